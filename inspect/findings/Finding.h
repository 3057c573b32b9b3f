// Findings about configurations, the rules that they belong to, and their output as text, JSON and SARIF.

#ifndef MORVIX_INSPECT_FINDINGS_FINDING_H
#define MORVIX_INSPECT_FINDINGS_FINDING_H

#include <cstddef>
#include <set>
#include <string>
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
  Findings(const Rules& rules, Severity least) : rules_(rules), least_(least) {}

  void Add(Finding finding);
  void Add(const Rule& rule, const Spot& spot, std::string message, std::string effect, std::string fix);
  // Adds the finding unless the rule already has one at this spot.
  void AddOnce(const Rule& rule, const Spot& spot, std::string message, std::string effect, std::string fix);

  // Sorted by offset, then by rule.
  std::vector<Finding> Sorted() const;

 private:
  bool Wants(const Rule& rule) const { return rule.severity >= least_; }

  const Rules& rules_;
  Severity least_;
  std::vector<Finding> findings_;
  std::set<std::pair<const Rule*, std::string>> known_;
};

// A finding with its place. Columns count bytes; in SARIF they count units of UTF-16.
struct PlacedFinding {
  Finding finding;
  json::Place place;
  size_t utf16Column;
};

// Adds line and column to findings, which must be sorted by offset.
std::vector<PlacedFinding> PlaceAll(const std::string& text, std::vector<Finding> findings);

// The findings of one file.
struct FileFindings {
  std::string path;  // as it was given; "-" for standard input
  std::string name;  // what messages call it
  std::vector<PlacedFinding> findings;
};

// The result of each ends with a line feed.
std::string FindingsText(const std::vector<FileFindings>& files, bool color);
std::string FindingsJson(const std::vector<FileFindings>& files);
std::string FindingsSarif(const std::vector<FileFindings>& files, const Rules& rules);  // SARIF 2.1.0
std::string RulesText(const Rules& rules, bool color);
std::string RulesJson(const Rules& rules);

}  // namespace morvix::inspect

#endif
