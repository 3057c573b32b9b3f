// What is wrong with product configurations, and what a device will make of it.

#ifndef MORVIX_INSPECT_LINT_LINT_H
#define MORVIX_INSPECT_LINT_LINT_H

#include <string>

#include "inspect/findings/Finding.h"

namespace morvix::inspect {

const Rules& LintRules();

struct LintChoices {
  std::string entity;      // name or id; empty for all
  bool roundtrip = false;  // encodes and decodes limits and middles of every attribute as well
};

// The findings of a configuration, those of `least` severity and above, in the order of the text. `name` is what
// messages call the configuration. The parser's lines are logged. Throws InputError when the chosen entity does not
// exist.
std::vector<Finding> Lint(const std::string& name, const std::string& text, Severity least, const LintChoices& choices);

}  // namespace morvix::inspect

#endif
