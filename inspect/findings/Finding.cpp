#include "inspect/findings/Finding.h"

#include <algorithm>
#include <map>

namespace morvix::inspect {

const char* SeverityName(Severity severity) {
  return severity == Severity::kError ? "error" : severity == Severity::kWarning ? "warning" : "info";
}

bool Findings::Wants(const Rule& rule) {
  const bool isDisabled = !disabled_.empty() && disabled_.count(rule.name) != 0;
  const bool isLessSevere = rule.severity < least_;
  if (isDisabled) {
    ++disabledCount_;
  } else if (isLessSevere) {
    ++lessSevere_;
  }
  return !isDisabled && !isLessSevere;
}

void Findings::Add(Finding finding) {
  if (Wants(*finding.rule)) findings_.push_back(std::move(finding));
}

void Findings::Add(const Rule& rule, const Spot& spot, std::string message, std::string effect, std::string fix) {
  Add({&rule, json::OffsetOf(*spot.value), spot.pointer, std::move(message), std::move(effect), std::move(fix)});
}

void Findings::AddOnce(const Rule& rule, const Spot& spot, std::string message, std::string effect, std::string fix) {
  if (known_.insert({&rule, spot.pointer}).second)
    Add(rule, spot, std::move(message), std::move(effect), std::move(fix));
}

std::vector<Finding> Findings::Sorted() const {
  std::map<const Rule*, size_t> ranks;
  for (const Rule* rule : rules_) ranks.emplace(rule, ranks.size());
  std::vector<Finding> sorted = findings_;
  std::stable_sort(sorted.begin(), sorted.end(), [&ranks](const Finding& left, const Finding& right) {
    if (left.offset != right.offset) return left.offset < right.offset;
    return ranks.at(left.rule) < ranks.at(right.rule);
  });
  return sorted;
}

size_t Utf16Units(std::string_view text) {
  size_t units = 0;
  for (const char c : text) {
    const auto unit = static_cast<unsigned char>(c);
    if ((unit & 0xc0) != 0x80) units += unit >= 0xf0 ? 2 : 1;
  }
  return units;
}

std::vector<PlacedFinding> PlaceAll(const std::string& text, std::vector<Finding> findings) {
  std::vector<PlacedFinding> placed;
  placed.reserve(findings.size());
  size_t offset = 0;
  size_t line = 1;
  size_t start = 0;  // of the line
  size_t utf16Column = 1;
  for (Finding& finding : findings) {
    const size_t end = std::min(finding.offset, text.size());
    for (size_t next = text.find('\n', offset); next < end; next = text.find('\n', offset)) {
      offset = start = next + 1;
      utf16Column = 1;
      ++line;
    }
    utf16Column += Utf16Units(std::string_view(text).substr(offset, end - offset));
    offset = end;
    placed.push_back({std::move(finding), {line, offset - start + 1}, utf16Column});
  }
  return placed;
}

}  // namespace morvix::inspect
