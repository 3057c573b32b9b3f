// Findings about configurations, the rules that they belong to, and their output as text, JSON and SARIF.

#ifndef MORVIX_INSPECT_FINDINGS_FINDING_H
#define MORVIX_INSPECT_FINDINGS_FINDING_H

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

enum class Severity { kInfo, kWarning, kError };

const char* SeverityName(Severity severity);  // "info", "warning", "error"

// One kind of finding. Rules are constants; a finding points at its rule.
struct Rule {
  const char* name;
  Severity severity;
  const char* sentence;
  const char* why = "";  // at more length: what happens, why, and how to put it right
};

// Rules in the order in which they are listed. Findings at the same place are sorted in this order.
using Rules = std::vector<const Rule*>;

struct Finding {
  const Rule* rule;
  size_t offset;  // of the value in the text
  std::string pointer;
  std::string message;
  std::string effect;  // what the SDK or the device will do
  std::string fix;     // how to correct it
};

// The findings of one document that have the minimum severity or a higher one.
class Findings {
 public:
  // Findings of the disabled rules are left out as well.
  Findings(const Rules& rules, Severity least, std::set<std::string> disabled = {})
      : rules_(rules), least_(least), disabled_(std::move(disabled)) {}

  void Add(Finding finding);
  void Add(const Rule& rule, const Spot& spot, std::string message, std::string effect, std::string fix);
  // Adds the finding unless the rule already has one at this spot.
  void AddOnce(const Rule& rule, const Spot& spot, std::string message, std::string effect, std::string fix);

  // Sorted by offset, then by rule.
  std::vector<Finding> Sorted() const;

  // How many were left out for their severity, and for their rule.
  size_t LessSevere() const { return lessSevere_; }
  size_t Disabled() const { return disabledCount_; }

 private:
  // Counts those that are left out.
  bool Wants(const Rule& rule);

  const Rules& rules_;
  Severity least_;
  std::set<std::string> disabled_;
  size_t lessSevere_ = 0;
  size_t disabledCount_ = 0;
  std::vector<Finding> findings_;
  std::set<std::pair<const Rule*, std::string>> known_;
};

// A finding with its place. Columns count bytes; in SARIF they count units of UTF-16.
struct PlacedFinding {
  Finding finding;
  json::Place place;
  size_t utf16Column;
};

// The units of UTF-16 that a text of UTF-8 takes.
size_t Utf16Units(std::string_view text);

// Adds line and column to findings, which must be sorted by offset.
std::vector<PlacedFinding> PlaceAll(const std::string& text, std::vector<Finding> findings);

// The findings of one file.
struct FileFindings {
  std::string path;  // as it was given; "-" for standard input
  std::string name;  // what messages call it
  std::vector<PlacedFinding> findings;
  size_t lessSevere = 0;  // left out for their severity
  size_t disabled = 0;    // left out for their rule
};

// The result of each ends with a line feed.
std::string FindingsText(const std::vector<FileFindings>& files, bool color);
std::string FindingsJson(const std::vector<FileFindings>& files);
std::string FindingsSarif(const std::vector<FileFindings>& files, const Rules& rules);  // SARIF 2.1.0
std::string RulesText(const Rules& rules, bool color, size_t width);                    // as AlignedTable takes it
std::string RulesJson(const Rules& rules);

// "2 files: 1 error, 2 warnings (3 infos not shown: --severity info)", without a line end. `least` is the minimum
// severity that was reported.
std::string SummaryText(const std::vector<FileFindings>& files, Severity least);

// A rule at length, in lines of at most 80 columns.
std::string RuleText(const Rule& rule, bool color);

}  // namespace morvix::inspect

#endif
