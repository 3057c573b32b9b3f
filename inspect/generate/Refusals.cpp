// What keeps code from being made, and the mark of the configuration that it is made from.

#include <sha2.h>

#include <algorithm>
#include <cstdint>

#include "inspect/generate/Generate.h"
#include "inspect/lint/Lint.h"
#include "inspect/lint/Rules.h"

namespace morvix::inspect {

std::vector<Finding> FindingsAgainstCode(const std::string& name, const std::string& text, const std::string& entity) {
  LintChoices choices;
  choices.entity = entity;
  std::vector<Finding> findings = Lint(name, text, Severity::kWarning, choices).findings;
  const auto isHarmless = [](const Finding& finding) {
    return finding.rule->severity != Severity::kError && finding.rule != &rules::kFieldsOverlap &&
           finding.rule != &rules::kNoAttributes;
  };
  findings.erase(std::remove_if(findings.begin(), findings.end(), isHarmless), findings.end());
  return findings;
}

std::string Sha256Text(const std::string& bytes) {
  char text[SHA256_DIGEST_STRING_LENGTH];
  return SHA256Data(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), text);
}

}  // namespace morvix::inspect
