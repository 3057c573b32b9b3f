// Findings as text, JSON and SARIF 2.1.0.

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "inspect/findings/Finding.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

using Tree = nlohmann::json;

// Invalid UTF-8 is replaced by U+FFFD.
std::string Written(const Tree& tree) { return tree.dump(2, ' ', true, Tree::error_handler_t::replace) + "\n"; }

// ---- Text ----

const char* SeverityColor(Severity severity) {
  return severity == Severity::kError ? "1;31" : severity == Severity::kWarning ? "1;35" : "1;36";
}

std::string FindingText(const std::string& name, const PlacedFinding& placed, bool color) {
  const Finding& finding = placed.finding;
  const Severity severity = finding.rule->severity;
  return fmt::format("{}: {}: {} [{}]\n  at      {}\n  effect  {}\n  fix     {}\n", json::PlaceName(name, placed.place),
                     Colored(SeverityName(severity), SeverityColor(severity), color), finding.message,
                     finding.rule->name, finding.pointer.empty() ? "the whole document" : Escaped(finding.pointer),
                     finding.effect, finding.fix);
}

// ---- SARIF ----

const char* SarifLevel(Severity severity) { return severity == Severity::kInfo ? "note" : SeverityName(severity); }

// A path as a relative or file URI.
std::string UriOf(const std::string& path) {
  static const std::string kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
  if (path == "-") return "stdin";
  std::string uri = path[0] == '/' ? "file://" : "";
  for (const char c : path) {
    const bool isPlain = kPlain.find(c) != std::string::npos;
    uri += isPlain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return uri;
}

Tree SarifRule(const Rule& rule) {
  return {{"id", rule.name},
          {"shortDescription", {{"text", rule.sentence}}},
          {"defaultConfiguration", {{"level", SarifLevel(rule.severity)}}}};
}

Tree SarifResult(const std::string& path, const PlacedFinding& placed, const Rules& rules) {
  const Finding& finding = placed.finding;
  const char* end = finding.fix.back() == '?' ? "" : ".";
  const Tree place = {{"artifactLocation", {{"uri", UriOf(path)}}},
                      {"region", {{"startLine", placed.place.line}, {"startColumn", placed.utf16Column}}}};
  const Tree logical = {{"fullyQualifiedName", finding.pointer}};
  const Tree location = {{"physicalLocation", place}, {"logicalLocations", Tree::array({logical})}};
  return {{"ruleId", finding.rule->name},
          {"ruleIndex", std::find(rules.begin(), rules.end(), finding.rule) - rules.begin()},
          {"level", SarifLevel(finding.rule->severity)},
          {"message",
           {{"text", fmt::format("{}. Effect: {}. Fix: {}{}", finding.message, finding.effect, finding.fix, end)}}},
          {"locations", Tree::array({location})}};
}

}  // namespace

std::string FindingsText(const std::vector<FileFindings>& files, bool color) {
  std::string text;
  for (const FileFindings& file : files) {
    for (const PlacedFinding& placed : file.findings) text += FindingText(file.name, placed, color);
  }
  return text;
}

std::string FindingsJson(const std::vector<FileFindings>& files) {
  Tree findings = Tree::array();
  Tree counts = {{"error", 0}, {"warning", 0}, {"info", 0}};
  for (const FileFindings& file : files) {
    for (const PlacedFinding& placed : file.findings) {
      const Finding& finding = placed.finding;
      const char* severity = SeverityName(finding.rule->severity);
      findings.push_back({{"file", file.path},
                          {"line", placed.place.line},
                          {"column", placed.place.column},
                          {"pointer", finding.pointer},
                          {"rule", finding.rule->name},
                          {"severity", severity},
                          {"message", finding.message},
                          {"effect", finding.effect},
                          {"fix", finding.fix}});
      counts[severity] = counts[severity].get<size_t>() + 1;
    }
  }
  return Written({{"findings", findings}, {"counts", counts}});
}

std::string FindingsSarif(const std::vector<FileFindings>& files, const Rules& rules) {
  Tree results = Tree::array();
  for (const FileFindings& file : files) {
    for (const PlacedFinding& placed : file.findings) results.push_back(SarifResult(file.path, placed, rules));
  }
  Tree driver = {{"name", "dp4"}, {"version", MORVIX_PROTOCOL_VERSION}, {"rules", Tree::array()}};
  for (const Rule* rule : rules) driver["rules"].push_back(SarifRule(*rule));
  const Tree run = {{"tool", {{"driver", driver}}}, {"columnKind", "utf16CodeUnits"}, {"results", results}};
  return Written({{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                  {"version", "2.1.0"},
                  {"runs", Tree::array({run})}});
}

std::string RulesText(const Rules& rules, bool color) {
  std::vector<TableRow> rows;
  for (const Rule* rule : rules) {
    rows.push_back({{rule->name}, {SeverityName(rule->severity), SeverityColor(rule->severity)}, {rule->sentence}});
  }
  return AlignedTable(rows, color);
}

std::string RulesJson(const Rules& rules) {
  Tree list = Tree::array();
  for (const Rule* rule : rules) {
    list.push_back({{"id", rule->name}, {"severity", SeverityName(rule->severity)}, {"sentence", rule->sentence}});
  }
  return Written(list);
}

}  // namespace morvix::inspect
