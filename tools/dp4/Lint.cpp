// dp4 lint: the findings of configurations.

#include "inspect/lint/Lint.h"

#include <algorithm>
#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "inspect/text/Error.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

// The findings of the files, or the rules.
std::string Output(const std::vector<FileFindings>& files, const LintOptions& options) {
  const Rules& rules = LintRules();
  switch (options.format) {
    case FindingsForm::kJson:
      return options.listRules ? RulesJson(rules) : FindingsJson(files);
    case FindingsForm::kSarif:
      return FindingsSarif(files, rules);
    default:
      return options.listRules ? RulesText(rules, options.color) : FindingsText(files, options.color);
  }
}

}  // namespace

int Lint(const LintOptions& options, Environment& environment) {
  if (options.listRules) {
    environment.out << Output({}, options);
    return kFine;
  }
  if (std::count(options.configurations.begin(), options.configurations.end(), "-") > 1) {
    throw InputError("standard input can be read once; expected \"-\" only once");
  }
  std::vector<FileFindings> files;
  std::string unusable;
  bool areFine = true;
  for (const std::string& path : options.configurations) {
    try {
      const std::string text = ReadFile(path, environment);
      const std::string name = NameOfFile(path);
      const LintChoices choices = {options.entity, options.roundtrip};
      files.push_back({path, name, PlaceAll(text, morvix::inspect::Lint(name, text, options.severity, choices))});
      areFine = areFine && files.back().findings.empty();
    } catch (const InputError& error) {
      unusable += (unusable.empty() ? "" : "\ndp4: ") + std::string(error.what());
    }
  }
  // One unusable file does not hide the findings of the others.
  if (!files.empty() || unusable.empty()) environment.out << Output(files, options);
  if (!unusable.empty()) throw InputError(unusable);
  return areFine ? kFine : kProblems;
}

}  // namespace dp4
