// dp4 lint: the findings of configurations.

#include "inspect/lint/Lint.h"

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <set>
#include <system_error>
#include <utility>

#include "Commands.h"
#include "Files.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Similar.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

// The findings of the files, or the rules.
std::string Output(const std::vector<FileFindings>& files, const LintOptions& options, size_t columns) {
  const Rules& rules = LintRules();
  switch (options.format) {
    case FindingsForm::kJson:
      return options.listRules ? RulesJson(rules) : FindingsJson(files);
    case FindingsForm::kSarif:
      return FindingsSarif(files, rules);
    default:
      return options.listRules ? RulesText(rules, options.color, columns) : FindingsText(files, options.color);
  }
}

constexpr char kSettingsFile[] = ".dp4-lint.json";

const Rule& RuleOf(const std::string& name, const std::string& source) {
  std::vector<std::string> known;
  for (const Rule* rule : LintRules()) {
    if (rule->name == name) return *rule;
    known.emplace_back(rule->name);
  }
  const std::string similar = DidYouMean(name, known);
  throw InputError(source + ": no rule is called " + InQuotes(name) +
                   (similar.empty() ? "; dp4 lint --rules lists them" : similar));
}

void Disable(const std::string& name, const std::string& source, std::set<std::string>& disabled) {
  const Rule& rule = RuleOf(name, source);
  if (rule.name == std::string("json-syntax")) throw InputError(source + ": json-syntax cannot be disabled");
  disabled.insert(rule.name);
}

// Adds the rules that a file beside the configuration disables, if there is one: {"disable": ["RULE", ...]}.
void ReadSettings(const std::string& configuration, std::set<std::string>& disabled, Environment& environment) {
  if (configuration == "-") return;
  const std::filesystem::path path = std::filesystem::path(configuration).parent_path() / kSettingsFile;
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) return;
  const json::Document settings = ReadJsonFile(path.string(), environment);
  const Json::Value& root = settings.Root();
  const auto fail = [&settings](const Json::Value& value, const std::string& expected) {
    throw InputError(settings.PlaceName(value) + ": expected " + expected);
  };
  if (!root.isObject()) fail(root, "an object {\"disable\": [RULE, ...]}");
  for (const std::string& member : root.getMemberNames()) {
    if (member != "disable") fail(root[member], "the member \"disable\" only, found " + InQuotes(member));
  }
  if (root.isMember("disable") && !root["disable"].isArray()) fail(root["disable"], "an array of rules");
  for (const Json::Value& rule : root["disable"]) {
    if (!rule.isString()) fail(rule, "the name of a rule");
    Disable(rule.asString(), settings.PlaceName(rule), disabled);
  }
}

FileFindings LintFile(const std::string& path, const LintOptions& options, Environment& environment) {
  LintChoices choices = {options.entity, options.roundtrip, {}};
  for (const std::string& rule : options.disabled) Disable(rule, "--disable " + Escaped(rule), choices.disabled);
  ReadSettings(path, choices.disabled, environment);
  const std::string text = ReadFile(path, environment);
  const std::string name = NameOfFile(path);
  LintResult result = morvix::inspect::Lint(name, text, options.severity, choices);
  return {path, name, PlaceAll(text, std::move(result.findings)), result.lessSevere, result.disabled};
}

}  // namespace

int Lint(const LintOptions& options, Environment& environment) {
  if (options.listRules) {
    environment.out << Output({}, options, environment.columns);
    return kFine;
  }
  if (!options.explained.empty()) {
    environment.out << RuleText(RuleOf(options.explained, "--explain " + Escaped(options.explained)), options.color);
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
      files.push_back(LintFile(path, options, environment));
      areFine = areFine && files.back().findings.empty();
    } catch (const InputError& error) {
      unusable += (unusable.empty() ? "" : "\ndp4: ") + std::string(error.what());
    }
  }
  // One unusable file does not hide the findings of the others.
  if (!files.empty() || unusable.empty()) environment.out << Output(files, options, environment.columns);
  const bool isSummed = options.format == FindingsForm::kText && !files.empty();
  if (isSummed) {
    environment.out.flush();
    environment.err << "dp4: " << SummaryText(files, options.severity) << '\n';
  }
  if (!unusable.empty()) throw InputError(unusable);
  return areFine ? kFine : kProblems;
}

}  // namespace dp4
