// dp4 compare: what a new configuration breaks.

#include "inspect/compare/Compare.h"

#include <algorithm>
#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "inspect/text/Error.h"

namespace dp4 {

using namespace morvix::inspect;

int Compare(const CompareOptions& options, Environment& environment) {
  const Rules& rules = CompareRules();
  if (options.listRules) {
    environment.out << (options.format == FindingsForm::kJson ? RulesJson(rules)
                                                              : RulesText(rules, options.color, environment.columns));
    return kFine;
  }
  if (options.before == "-" && options.after == "-") {
    throw InputError("standard input cannot be both configurations");
  }
  const json::Document before = ReadJsonFile(options.before, environment);
  const json::Document after = ReadJsonFile(options.after, environment);
  const std::vector<Change> changes = morvix::inspect::Compare(before, after);
  const Version old{options.before, &before};
  const Version now{options.after, &after};
  switch (options.format) {
    case FindingsForm::kJson:
      environment.out << ChangesJson(old, now, changes);
      break;
    case FindingsForm::kSarif:
      environment.out << ChangesSarif(old, now, changes, rules);
      break;
    default:
      environment.out << ChangesText(old, now, changes, options.color);
  }
  const bool areFine = std::none_of(changes.begin(), changes.end(), [&options](const Change& change) {
    return change.rule->severity >= options.severity;
  });
  return areFine ? kFine : kProblems;
}

}  // namespace dp4
