// Finds the problems of product configurations and tells how the SDK and the device will behave.

#ifndef MORVIX_INSPECT_LINT_LINT_H
#define MORVIX_INSPECT_LINT_LINT_H

#include <string>

#include "inspect/findings/Finding.h"

namespace morvix::inspect {

const Rules& LintRules();

struct LintChoices {
  std::string entity;      // name or id; empty for all
  bool roundtrip = false;  // also encodes and decodes the limits and a middle value of every attribute
};

// The findings of a configuration with at least the severity `least`, sorted by offset. Messages call the configuration
// `name`. The parser's lines are logged. Throws InputError when the chosen entity does not exist.
std::vector<Finding> Lint(const std::string& name, const std::string& text, Severity least, const LintChoices& choices);

}  // namespace morvix::inspect

#endif
