// dp4 lint: the findings of configurations as text, JSON or SARIF 2.1.0.

#include <json/writer.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "LintModel.h"
#include "LintRules.h"
#include "Text.h"

namespace dp4 {

namespace {

// The findings of one file, with their places.
struct PlacedFinding {
  Finding finding;
  Place place;
  size_t utf16Column;
};

struct FileFindings {
  std::string path;
  std::vector<PlacedFinding> findings;
};

// Findings come in the order of the text, so that one walk over it places them all.
std::vector<PlacedFinding> PlaceAll(const std::string& text, std::vector<Finding> findings) {
  std::vector<PlacedFinding> placed;
  Place place;
  size_t utf16Column = 1;
  size_t offset = 0;
  for (Finding& finding : findings) {
    for (; offset < std::min(finding.offset, text.size()); ++offset) {
      const auto unit = static_cast<unsigned char>(text[offset]);
      if (unit == '\n') {
        place = {place.line + 1, 1};
        utf16Column = 1;
      } else {
        ++place.column;
        if ((unit & 0xc0) != 0x80) utf16Column += unit >= 0xf0 ? 2 : 1;
      }
    }
    placed.push_back({std::move(finding), place, utf16Column});
  }
  return placed;
}

Severity SeverityOf(const std::string& name) {
  for (const Severity severity : {Severity::kError, Severity::kWarning, Severity::kInfo}) {
    if (name == SeverityName(severity)) return severity;
  }
  throw UsageError("unknown severity " + Quoted(name) + ": expected error, warning or info");
}

// ---- Text ----

std::string SeverityText(Severity severity, bool color) {
  const char* code = severity == Severity::kError ? "1;31" : severity == Severity::kWarning ? "1;35" : "1;36";
  return Colored(SeverityName(severity), color ? code : "");
}

std::string FindingText(const std::string& path, const PlacedFinding& placed, bool color) {
  const Finding& finding = placed.finding;
  const Rule& rule = RuleOf(finding.rule);
  return PlaceName(path, placed.place) + ": " + SeverityText(rule.severity, color) + ": " + finding.message + " [" +
         rule.name + "]\n" + "  at      " +
         (finding.pointer.empty() ? "the whole document" : Escaped(finding.pointer)) + "\n" + "  effect  " +
         finding.effect + "\n" +  //
         "  mend    " + finding.mend + "\n";
}

std::string FindingsText(const std::vector<FileFindings>& files, bool color) {
  std::string text;
  for (const FileFindings& file : files) {
    for (const PlacedFinding& placed : file.findings) text += FindingText(file.path, placed, color);
  }
  return text;
}

std::string RulesText(bool color) {
  size_t width = 0;
  for (const Rule& rule : LintRules()) width = std::max(width, std::string(rule.name).size());
  std::string text;
  for (const Rule& rule : LintRules()) {
    const std::string name = rule.name;
    const std::string severity = SeverityName(rule.severity);
    text += name + std::string(width - name.size() + 2, ' ') + SeverityText(rule.severity, color) +
            std::string(9 - severity.size(), ' ') + rule.sentence + "\n";
  }
  return text;
}

// ---- JSON ----

// Indented, with brackets on the lines of their members' names.
std::string WriteJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["enableYAMLCompatibility"] = true;  // no blank before a colon
  const std::string text = Json::writeString(builder, value);
  static const std::string kBreak = ": \n";  // in texts, line ends are escaped
  std::string json;
  size_t begin = 0;
  for (size_t end = text.find(kBreak); end != std::string::npos; end = text.find(kBreak, begin)) {
    json.append(text, begin, end + 2 - begin);
    begin = text.find_first_not_of(" \n", end + 2);
  }
  return json.append(text, begin) + "\n";
}

Json::Value RuleJson(const Rule& rule) {
  Json::Value json;
  json["id"] = rule.name;
  json["severity"] = SeverityName(rule.severity);
  json["sentence"] = rule.sentence;
  return json;
}

Json::Value FindingsJson(const std::vector<FileFindings>& files) {
  Json::Value json;
  json["findings"] = Json::Value(Json::arrayValue);
  for (const Severity severity : {Severity::kError, Severity::kWarning, Severity::kInfo}) {
    json["counts"][SeverityName(severity)] = 0;
  }
  for (const FileFindings& file : files) {
    for (const PlacedFinding& placed : file.findings) {
      const Finding& finding = placed.finding;
      const Rule& rule = RuleOf(finding.rule);
      Json::Value& item = json["findings"].append(Json::objectValue);
      item["file"] = file.path;
      item["line"] = Json::UInt64{placed.place.line};
      item["column"] = Json::UInt64{placed.place.column};
      item["pointer"] = finding.pointer;
      item["rule"] = rule.name;
      item["severity"] = SeverityName(rule.severity);
      item["message"] = finding.message;
      item["effect"] = finding.effect;
      item["mend"] = finding.mend;
      Json::Value& count = json["counts"][SeverityName(rule.severity)];
      count = count.asUInt() + 1;
    }
  }
  return json;
}

// ---- SARIF ----

const char* SarifLevel(Severity severity) { return severity == Severity::kInfo ? "note" : SeverityName(severity); }

// A path as a relative or file URI.
std::string UriOf(const std::string& path) {
  static const char kDigits[] = "0123456789ABCDEF";
  static const std::string kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
  if (path == "-") return "stdin";
  std::string uri = path[0] == '/' ? "file://" : "";
  for (const char c : path) {
    const auto code = static_cast<unsigned char>(c);
    if (kPlain.find(c) != std::string::npos) {
      uri += c;
    } else {
      uri += {'%', kDigits[code >> 4], kDigits[code & 15]};
    }
  }
  return uri;
}

Json::Value SarifRule(const Rule& rule) {
  Json::Value json;
  json["id"] = rule.name;
  json["shortDescription"]["text"] = rule.sentence;
  json["defaultConfiguration"]["level"] = SarifLevel(rule.severity);
  return json;
}

Json::Value SarifResult(const std::string& path, const PlacedFinding& placed) {
  const Finding& finding = placed.finding;
  const Rule& rule = RuleOf(finding.rule);
  Json::Value json;
  json["ruleId"] = rule.name;
  json["ruleIndex"] = static_cast<int>(rule.id);
  json["level"] = SarifLevel(rule.severity);
  json["message"]["text"] = finding.message + ". Effect: " + finding.effect + ". Mend: " + finding.mend +
                            (finding.mend.back() == '?' ? "" : ".");
  Json::Value& location = json["locations"].append(Json::objectValue);
  location["physicalLocation"]["artifactLocation"]["uri"] = UriOf(path);
  location["physicalLocation"]["region"]["startLine"] = Json::UInt64{placed.place.line};
  location["physicalLocation"]["region"]["startColumn"] = Json::UInt64{placed.utf16Column};
  location["logicalLocations"].append(Json::objectValue)["fullyQualifiedName"] = finding.pointer;
  return json;
}

Json::Value SarifLog(const std::vector<FileFindings>& files) {
  Json::Value run;
  Json::Value& driver = run["tool"]["driver"];
  driver["name"] = "dp4";
  driver["version"] = MORVIX_PROTOCOL_VERSION;
  for (const Rule& rule : LintRules()) driver["rules"].append(SarifRule(rule));
  run["columnKind"] = "utf16CodeUnits";
  run["results"] = Json::Value(Json::arrayValue);
  for (const FileFindings& file : files) {
    for (const PlacedFinding& placed : file.findings) run["results"].append(SarifResult(file.path, placed));
  }
  Json::Value log;
  log["$schema"] = "https://json.schemastore.org/sarif-2.1.0.json";
  log["version"] = "2.1.0";
  log["runs"].append(run);
  return log;
}

// ---- The command ----

std::string RulesOutput(const std::string& format, bool color) {
  if (format == "text") return RulesText(color);
  if (format == "sarif") return WriteJson(SarifLog({}));
  Json::Value rules(Json::arrayValue);
  for (const Rule& rule : LintRules()) rules.append(RuleJson(rule));
  return WriteJson(rules);
}

std::string Output(const std::vector<FileFindings>& files, const std::string& format, bool color) {
  if (format == "text") return FindingsText(files, color);
  return WriteJson(format == "json" ? FindingsJson(files) : SarifLog(files));
}

FileFindings LintFile(const std::string& path, Severity least, const LintChoices& choices) {
  const std::string text = ReadWholeFile(path);
  Findings findings(least);
  LintText(path, text, choices, findings);
  return {path, PlaceAll(text, findings.Sorted())};
}

}  // namespace

int Lint(const LintOptions& options, const CommonOptions& common, std::ostream& out) {
  const Severity least = SeverityOf(options.severity);
  if (options.format != "text" && options.format != "json" && options.format != "sarif") {
    throw UsageError("unknown format " + Quoted(options.format) + ": expected text, json or sarif");
  }
  if (options.listRules) {
    out << RulesOutput(options.format, common.color);
    return kFine;
  }
  if (std::count(options.configurations.begin(), options.configurations.end(), "-") > 1) {
    throw UsageError("standard input can be read once; expected \"-\" only once");
  }
  LintChoices choices;
  choices.entity = common.entity;
  choices.log = common.log;
  choices.roundtrip = options.roundtrip;
  std::vector<FileFindings> files;
  std::string unusable;
  bool areFine = true;
  for (const std::string& path : options.configurations) {
    try {
      files.push_back(LintFile(path, least, choices));
      areFine = areFine && files.back().findings.empty();
    } catch (const UsageError& error) {
      unusable += (unusable.empty() ? "" : "\ndp4: ") + std::string(error.what());
    }
  }
  // The other files' findings are not lost to one that cannot be used.
  if (!files.empty() || unusable.empty()) out << Output(files, options.format, common.color);
  if (!unusable.empty()) throw UsageError(unusable);
  return areFine ? kFine : kProblems;
}

}  // namespace dp4
