// Findings as text, JSON and SARIF 2.1.0.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "inspect/findings/Change.h"
#include "inspect/findings/Finding.h"
#include "inspect/model/BitRange.h"
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

// `column` counts units of UTF-16.
Tree SarifLocation(const std::string& path, size_t line, size_t column, const std::string& pointer) {
  const Tree place = {{"artifactLocation", {{"uri", UriOf(path)}}},
                      {"region", {{"startLine", line}, {"startColumn", column}}}};
  const Tree logical = {{"fullyQualifiedName", pointer}};
  return {{"physicalLocation", place}, {"logicalLocations", Tree::array({logical})}};
}

size_t RankOf(const Rule* rule, const Rules& rules) {
  return static_cast<size_t>(std::find(rules.begin(), rules.end(), rule) - rules.begin());
}

std::string SarifLog(const Tree& results, const Rules& rules) {
  Tree driver = {{"name", "dp4"}, {"version", MORVIX_PROTOCOL_VERSION}, {"rules", Tree::array()}};
  for (const Rule* rule : rules) driver["rules"].push_back(SarifRule(*rule));
  const Tree run = {{"tool", {{"driver", driver}}}, {"columnKind", "utf16CodeUnits"}, {"results", results}};
  return Written({{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                  {"version", "2.1.0"},
                  {"runs", Tree::array({run})}});
}

Tree SarifResult(const std::string& path, const PlacedFinding& placed, const Rules& rules) {
  const Finding& finding = placed.finding;
  const char* end = finding.fix.back() == '?' ? "" : ".";
  const Tree location = SarifLocation(path, placed.place.line, placed.utf16Column, finding.pointer);
  return {{"ruleId", finding.rule->name},
          {"ruleIndex", RankOf(finding.rule, rules)},
          {"level", SarifLevel(finding.rule->severity)},
          {"message",
           {{"text", fmt::format("{}. Effect: {}. Fix: {}{}", finding.message, finding.effect, finding.fix, end)}}},
          {"locations", Tree::array({location})}};
}

// ---- Changes ----

// The packet in hexadecimal, with long runs of zeros cut short: "04 00 .. 57 zeros .. 5a".
std::string ShortHex(const std::vector<unsigned char>& bytes) {
  constexpr std::ptrdiff_t kLongRun = 12;
  std::string text;
  for (auto at = bytes.begin(); at != bytes.end();) {
    const auto end = std::find_if(at, bytes.end(), [](unsigned char value) { return value != 0; });
    const bool isCut = end - at > kLongRun;
    const auto next = isCut ? end : end == at ? at + 1 : end;
    const std::string part =
        isCut ? fmt::format(".. {} zeros ..", end - at) : HexText(&*at, static_cast<size_t>(next - at));
    text += (text.empty() ? "" : " ") + part;
    at = next;
  }
  return text;
}

std::string PacketLine(const ShownPacket& packet) {
  if (packet.bytes.empty()) return packet.meaning;
  return ShortHex(packet.bytes) + ": " + packet.meaning;
}

std::string ChangeText(const Version& before, const Version& after, const Change& change, bool color) {
  const Severity severity = change.rule->severity;
  const auto placeOf = [](const Version& version, const std::optional<Site>& site) {
    if (!site) return std::string("-");
    return version.document->PlaceName(site->offset) + " " +
           (site->pointer.empty() ? "the whole document" : Escaped(site->pointer));
  };
  const bool isInNew = change.after.has_value();
  const std::string place =
      (isInNew ? after : before).document->PlaceName((isInNew ? change.after : change.before)->offset);
  return fmt::format(
      "{}: {}: {} [{}]\n  old     {}\n  new     {}\n  effect  {}\n  before  {}\n  after   {}\n  fix     {}\n", place,
      Colored(SeverityName(severity), SeverityColor(severity), color), change.message, change.rule->name,
      placeOf(before, change.before), placeOf(after, change.after), change.effect, PacketLine(change.packetBefore),
      PacketLine(change.packetAfter), change.fix);
}

Tree SiteTree(const Version& version, const Site& site) {
  const json::Place place = version.document->PlaceOf(site.offset);
  return {{"file", version.path}, {"line", place.line}, {"column", place.column}, {"pointer", site.pointer}};
}

Tree PacketTree(const ShownPacket& packet) {
  Tree tree = {{"meaning", packet.meaning}};
  if (!packet.bytes.empty()) tree["packet"] = HexText(packet.bytes.data(), packet.bytes.size());
  return tree;
}

Tree SarifSite(const Version& version, const Site& site) {
  const std::string& text = version.document->Text();
  const json::Place place = version.document->PlaceOf(site.offset);
  const size_t column = Utf16Units(std::string_view(text).substr(site.offset + 1 - place.column, place.column - 1)) + 1;
  return SarifLocation(version.path, place.line, column, site.pointer);
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
  return SarifLog(results, rules);
}

std::string RulesText(const Rules& rules, bool color, size_t width) {
  std::vector<TableRow> rows;
  for (const Rule* rule : rules) {
    rows.push_back({{rule->name}, {SeverityName(rule->severity), SeverityColor(rule->severity)}, {rule->sentence}});
  }
  return AlignedTable(rows, color, width);
}

std::string SummaryText(const std::vector<FileFindings>& files, Severity least) {
  std::map<Severity, size_t> counts;
  size_t lessSevere = 0;
  size_t disabled = 0;
  for (const FileFindings& file : files) {
    for (const PlacedFinding& placed : file.findings) ++counts[placed.finding.rule->severity];
    lessSevere += file.lessSevere;
    disabled += file.disabled;
  }
  std::vector<std::string> parts;
  for (const Severity severity : {Severity::kError, Severity::kWarning, Severity::kInfo}) {
    if (counts[severity] != 0) parts.push_back(Count(counts[severity], SeverityName(severity)));
  }
  std::string text = Count(files.size(), "file") + ": ";
  text += parts.empty() ? "nothing found" : fmt::format("{}", fmt::join(parts, ", "));
  const char* lower = least == Severity::kError ? "warning" : "info";
  if (lessSevere != 0) text += fmt::format(" ({} not shown: --severity {})", lessSevere, lower);
  if (disabled != 0) text += fmt::format(" ({} of disabled rules)", disabled);
  return text;
}

std::string RuleText(const Rule& rule, bool color) {
  constexpr size_t kWidth = 80;
  std::string text =
      fmt::format("{}: {}\n{}\n\n", Colored(rule.name, kBold, color),
                  Colored(SeverityName(rule.severity), SeverityColor(rule.severity), color), rule.sentence);
  for (const std::string& line : Wrapped(rule.why, kWidth, SIZE_MAX, "")) text += line + "\n";
  return text;
}

std::string RulesJson(const Rules& rules) {
  Tree list = Tree::array();
  for (const Rule* rule : rules) {
    list.push_back({{"id", rule->name}, {"severity", SeverityName(rule->severity)}, {"sentence", rule->sentence}});
    if (*rule->why != '\0') list.back()["why"] = rule->why;
  }
  return Written(list);
}

std::string ChangesText(const Version& before, const Version& after, const std::vector<Change>& changes, bool color) {
  std::string text;
  for (const Change& change : changes) text += ChangeText(before, after, change, color);
  return text;
}

std::string ChangesJson(const Version& before, const Version& after, const std::vector<Change>& changes) {
  Tree findings = Tree::array();
  Tree counts = {{"error", 0}, {"warning", 0}, {"info", 0}};
  for (const Change& change : changes) {
    const char* severity = SeverityName(change.rule->severity);
    Tree finding = {{"rule", change.rule->name},
                    {"severity", severity},
                    {"message", change.message},
                    {"effect", change.effect},
                    {"fix", change.fix},
                    {"attributes", change.attributes},
                    {"before", PacketTree(change.packetBefore)},
                    {"after", PacketTree(change.packetAfter)}};
    if (change.before) finding["old"] = SiteTree(before, *change.before);
    if (change.after) finding["new"] = SiteTree(after, *change.after);
    findings.push_back(finding);
    counts[severity] = counts[severity].get<size_t>() + 1;
  }
  return Written({{"findings", findings}, {"counts", counts}});
}

std::string ChangesSarif(const Version& before, const Version& after, const std::vector<Change>& changes,
                         const Rules& rules) {
  Tree results = Tree::array();
  for (const Change& change : changes) {
    const std::string text =
        fmt::format("{}. Effect: {}. Before: {}. After: {}. Fix: {}.", change.message, change.effect,
                    PacketLine(change.packetBefore), PacketLine(change.packetAfter), change.fix);
    Tree result = {{"ruleId", change.rule->name},
                   {"ruleIndex", RankOf(change.rule, rules)},
                   {"level", SarifLevel(change.rule->severity)},
                   {"message", {{"text", text}}}};
    const Tree place = change.after ? SarifSite(after, *change.after) : SarifSite(before, *change.before);
    result["locations"] = Tree::array({place});
    if (change.after && change.before) result["relatedLocations"] = Tree::array({SarifSite(before, *change.before)});
    results.push_back(result);
  }
  return SarifLog(results, rules);
}

}  // namespace morvix::inspect
