// `dp4 lint`. tests/lint/ holds a broken configuration or more for each rule, named after it; what lint says of
// RULE[.VARIANT].json is in tests/golden/dp4/lint/, checked by hand against the configuration.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "ToolSupport.h"
#include "inspect/lint/Coverage.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// The broken configurations, without ".json".
std::vector<std::string> BrokenConfigurations() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(LINT_DIR)) {
    if (entry.path().extension() == ".json") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string PathOf(const std::string& name) { return "../tests/lint/" + name + ".json"; }

std::string RuleOf(const std::string& name) { return name.substr(0, name.find('.')); }

struct RuleLine {
  std::string id;
  std::string severity;
  std::string sentence;
};

std::vector<RuleLine> Rules() {
  std::vector<RuleLine> rules;
  std::istringstream lines(RunTool({"lint", "--rules"}).out);
  for (std::string line; std::getline(lines, line);) {
    RuleLine rule;
    std::istringstream columns(line);
    columns >> rule.id >> rule.severity >> std::ws;
    std::getline(columns, rule.sentence);
    rules.push_back(rule);
  }
  return rules;
}

std::set<std::string> RuleIds() {
  std::set<std::string> ids;
  for (const RuleLine& rule : Rules()) ids.insert(rule.id);
  return ids;
}

// The rules of the findings in the tool's output.
std::vector<std::string> FoundRules(const std::string& text) {
  std::vector<std::string> rules;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line[0] == ' ') continue;
    const size_t begin = line.rfind('[');
    rules.push_back(line.substr(begin + 1, line.size() - begin - 2));
  }
  return rules;
}

void ExpectFine(const ToolRun& run) {
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

// One entity with `count` attributes, each of them as `attribute` makes it from its index.
template <typename MakeAttribute>
std::string Configuration(size_t count, MakeAttribute attribute) {
  std::string text = R"({"entities": [{"id": 0, "name": "device", "display_name": "Device", "attrs": [)";
  for (size_t i = 0; i < count; ++i) text += (i == 0 ? "\n" : ",\n") + attribute(i);
  return text + "]}]}\n";
}

// A bool in its own bit of a payload that the bools fill one after the other.
std::string Bool(size_t index) {
  const std::string number = std::to_string(index);
  return R"({"id": )" + number + R"(, "name": "a)" + number + R"(", "display_name": "", "desc": "", )" +
         R"("type": "status_writable", "data_type": "bool", "position": {"byte_offset": )" + std::to_string(index / 8) +
         R"(, "bit_offset": )" + std::to_string(index % 8) + R"(, "unit": "bit", "len": 1}})";
}

// ---- The rules ----

TEST(LintRules, AreListedWithSeverityAndASentence) {
  const ToolRun run = RunTool({"lint", "--rules"});
  ExpectGolden(run.out, "lint.rules.txt");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(RuleIds().size(), Rules().size()) << "two rules have one id";
  for (const RuleLine& rule : Rules()) {
    EXPECT_TRUE(std::all_of(rule.id.begin(), rule.id.end(), [](char c) { return std::islower(c) != 0 || c == '-'; }))
        << rule.id;
    EXPECT_THAT((std::vector<std::string>{"error", "warning", "info"}), Contains(rule.severity)) << rule.id;
    EXPECT_EQ(rule.sentence.back(), '.') << rule.id;
  }
}

TEST(LintRules, AreListedAsJson) {
  const ToolRun run = RunTool({"lint", "--rules", "--format", "json"});
  EXPECT_EQ(run.exitCode, 0);
  const Json::Value json = ParseJson(run.out);
  const std::vector<RuleLine> rules = Rules();
  ASSERT_EQ(json.size(), rules.size());
  for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
    EXPECT_EQ(json[i]["id"].asString(), rules[i].id);
    EXPECT_EQ(json[i]["severity"].asString(), rules[i].severity);
    EXPECT_EQ(json[i]["sentence"].asString(), rules[i].sentence);
  }
}

TEST(LintRules, HaveABrokenConfigurationEach) {
  std::set<std::string> covered = {
      "flags-too-long",  // below, with 8193 attributes
      "enum-index-cut",  // takes an enum of more than a billion items
  };
  for (const std::string& name : BrokenConfigurations()) covered.insert(RuleOf(name));
  ASSERT_THAT(Rules(), Not(IsEmpty()));
  for (const RuleLine& rule : Rules()) EXPECT_THAT(covered, Contains(rule.id));
}

// ---- The broken configurations ----

TEST(Lint, FindsInEachBrokenConfigurationWhatItIsNamedAfter) {
  const std::set<std::string> rules = RuleIds();
  const std::set<std::string> harmless = {"group-sized-by-bytes.harmless", "neighbours-disturbed.items",
                                          "neighbours-disturbed.order", "roundtrip.clean"};
  ASSERT_THAT(BrokenConfigurations(), Not(IsEmpty()));
  for (const std::string& name : BrokenConfigurations()) {
    SCOPED_TRACE(name);
    std::vector<std::string> arguments = {"lint", "--severity", "info", PathOf(name)};
    if (RuleOf(name) == "roundtrip") arguments.emplace_back("--roundtrip");
    const ToolRun run = RunTool(arguments);
    ExpectGolden(run.out, "lint/" + name + ".txt");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitCode, run.out.empty() ? 0 : 1);
    if (harmless.count(name) != 0) {
      EXPECT_THAT(FoundRules(run.out), Not(Contains(RuleOf(name))));
    } else if (rules.count(RuleOf(name)) != 0) {
      EXPECT_THAT(FoundRules(run.out), Contains(RuleOf(name)));
    }
  }
}

TEST(Lint, SaysNothingOfTheExamples) {
  for (const char* example : {"kettle.json", "air_conditioner.json", "gateway.json", "power_meter.json"}) {
    SCOPED_TRACE(example);
    ExpectFine(RunTool({"lint", example}));
    ExpectFine(RunTool({"lint", "--severity", "warning", "--roundtrip", example}));
  }
}

TEST(Lint, FindsMoreThan8192WritableAttributes) {
  ExpectFine(RunTool({"lint", "-"}, Configuration(8192, Bool)));
  const ToolRun run = RunTool({"lint", "-"}, Configuration(8193, Bool));
  EXPECT_THAT(run.out,
              HasSubstr("standard input:1:78: error: 8193 writable attributes need 1025 flag bytes [flags-too-long]\n"
                        "  at      /entities/0/attrs\n"));
  EXPECT_THAT(FoundRules(run.out), testing::ElementsAre("flags-too-long"));
  EXPECT_EQ(run.exitCode, 1);
}

TEST(Lint, NamesTheFirstOfTheFieldsThatOneOverlapsAndCountsTheOthers) {
  const auto sameBit = [](size_t index) {
    const std::string number = std::to_string(index);
    return R"({"id": )" + number + R"(, "name": "a)" + number + R"(", "display_name": "", "desc": "", )" +
           R"("type": "status_writable", "data_type": "bool", )" +
           R"("position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}})";
  };
  constexpr size_t kFields = 20000;
  const ToolRun run = RunTool({"lint", "-"}, Configuration(kFields, sameBit));
  EXPECT_THAT(run.out, HasSubstr("warning: 'a5' overlaps 'a0', 'a1', 'a2', 'a3' and 'a4' in bit 0 of byte 0 "));
  EXPECT_THAT(run.out, HasSubstr("warning: 'a6' overlaps 'a0', 'a1', 'a2', 'a3' and 2 more in bit 0 of byte 0 "));
  EXPECT_THAT(run.out, HasSubstr("warning: 'a19999' overlaps 'a0', 'a1', 'a2', 'a3' and 19995 more in bit 0 "));
  EXPECT_LT(run.out.size(), kFields * 500);
}

// ---- Fields on payload bits ----

using morvix::inspect::BitRange;
using morvix::inspect::Coverage;
using morvix::inspect::FewFields;

// The same, by a look at every field.
FewFields SlowOver(const std::vector<BitRange>& laid, const BitRange& range) {
  FewFields few;
  for (size_t i = 0; i < laid.size(); ++i) {
    if (laid[i].IsEmpty() || laid[i].end <= range.begin || range.end <= laid[i].begin) continue;
    if (few.count++ < Coverage::kFew) few.first.push_back(i);
  }
  return few;
}

TEST(CoverageOver, KnowsTheFirstFieldsAndCountsAll) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](unsigned limit) { return uint64_t{random() % limit}; };
    const unsigned bits = seed % 2 == 0 ? 24 : 400;
    std::vector<BitRange> ranges;
    for (unsigned i = 0; i < 1 + seed % 40; ++i) {
      const uint64_t begin = below(bits);
      ranges.push_back({begin, begin + below(i % 3 == 0 ? bits : 9)});  // some of them empty
    }
    Coverage coverage(ranges);
    std::vector<BitRange> laid;
    for (size_t i = 0; i < ranges.size(); ++i) {
      for (int probe = 0; probe < 20; ++probe) {
        const uint64_t begin = below(bits + 10);
        const BitRange range{begin, begin + 1 + below(bits)};
        const FewFields expected = SlowOver(laid, range);
        const FewFields few = coverage.Over(range);
        ASSERT_EQ(few.count, expected.count) << "seed " << seed << ", " << range.begin << " to " << range.end;
        ASSERT_EQ(few.first, expected.first) << "seed " << seed << ", " << range.begin << " to " << range.end;
      }
      coverage.Lay(ranges[i], i);
      laid.push_back(ranges[i]);
    }
  }
}

// A device sends raw numbers, even those whose text the encoder would refuse.
TEST(Lint, FindsThatAReadOnlyNumberComesBackThoughItsTextCannotBeEncoded) {
  ExpectFine(RunTool({"lint", "--roundtrip", PathOf("scaling-rounded.third")}));
}

// ---- What is shown and what counts ----

TEST(Lint, ShowsAndCountsFromTheSeverityOn) {
  const std::string info = PathOf("enum-incomplete");
  ExpectFine(RunTool({"lint", info}));
  EXPECT_EQ(RunTool({"lint", "--severity", "info", info}).exitCode, 1);
  const std::string warning = PathOf("fields-overlap");
  ExpectFine(RunTool({"lint", "--severity", "error", warning}));
  EXPECT_EQ(RunTool({"lint", warning}).exitCode, 1);
  EXPECT_EQ(RunTool({"lint", "--severity", "warning", warning}).exitCode, 1);
  EXPECT_EQ(RunTool({"lint", "--severity", "error", PathOf("json-syntax")}).exitCode, 1);
}

TEST(Lint, TakesSeveralFilesInTheirOrder) {
  const ToolRun run = RunTool({"lint", PathOf("empty-range"), "kettle.json", PathOf("json-syntax")});
  EXPECT_EQ(run.out, Golden("lint/empty-range.txt") + Golden("lint/json-syntax.txt"));
  EXPECT_EQ(run.exitCode, 1);
}

TEST(Lint, EndsWith2ForAFileThatCannotBeReadAndStillChecksTheOthers) {
  const ToolRun run = RunTool({"lint", "no_such_file.json", PathOf("empty-range"), "."});
  EXPECT_EQ(run.out, Golden("lint/empty-range.txt"));
  EXPECT_THAT(run.err, StartsWith("dp4: no_such_file.json: cannot be read: "));
  EXPECT_THAT(run.err, HasSubstr("\ndp4: .: cannot be read: "));
  EXPECT_EQ(run.exitCode, 2);

  const ToolRun nothing = RunTool({"lint", "no_such_file.json"});
  EXPECT_EQ(nothing.out, "");
  EXPECT_EQ(nothing.exitCode, 2);
}

TEST(Lint, RefusesUnknownFormatsAndSeverities) {
  EXPECT_EQ(RunTool({"lint", "--format", "xml", "kettle.json"}).exitCode, 2);
  EXPECT_EQ(RunTool({"lint", "--severity", "fatal", "kettle.json"}).exitCode, 2);
  EXPECT_EQ(RunTool({"lint"}).exitCode, 2);
}

TEST(Lint, TakesOneEntityWhenAsked) {
  const std::string text = R"({"entities": [
      {"id": 0, "name": "version", "display_name": "", "attrs": []},
      {"id": 1, "name": "lamp", "display_name": "", "attrs": []}]})";
  EXPECT_THAT(FoundRules(RunTool({"lint", "-"}, text).out),
              testing::ElementsAre("entity-version", "no-attributes", "no-attributes"));
  for (const char* choice : {"lamp", "1"}) {
    const ToolRun run = RunTool({"lint", "--entity", choice, "-"}, text);
    EXPECT_THAT(FoundRules(run.out), testing::ElementsAre("no-attributes"));
    EXPECT_THAT(run.out, HasSubstr("at      /entities/1/attrs\n"));
  }
  EXPECT_EQ(RunTool({"lint", "--entity", "oven", "-"}, text).exitCode, 2);
}

TEST(Lint, ShowsTheParsersLinesWhenAsked) {
  const ToolRun run = RunTool({"lint", "--log", "--severity", "error", PathOf("unknown-member")});
  EXPECT_THAT(run.err, HasSubstr("[1] FilterConfigType: Warning: 'desc' is invalid, skip.\n"));
}

TEST(Lint, ColorsSeveritiesWhenAsked) {
  const ToolRun plain = RunTool({"lint", PathOf("empty-range")});
  EXPECT_THAT(plain.out, Not(HasSubstr("\x1b")));
  const ToolRun colored = RunTool({"lint", "--color", "always", PathOf("empty-range")});
  EXPECT_THAT(colored.out, HasSubstr(":9:42: \x1b[1;31merror\x1b[0m: 'level' has the min and max 7"));
}

// ---- Places ----

TEST(Lint, CountsColumnsInBytesAndInSarifInUtf16) {
  // After the letters a-umlaut (2 bytes) and the treble clef (4 bytes, 2 UTF-16 units).
  const std::string text = "{\"\xc3\xa4\xf0\x9d\x84\x9e\": 0, \"entities\": []}";
  EXPECT_THAT(RunTool({"lint", "-"}, text).out, StartsWith("standard input:1:27: warning: there is no entity"));
  const Json::Value region = ParseJson(RunTool({"lint", "--format", "sarif", "-"}, text)
                                           .out)["runs"][0]["results"][0]["locations"][0]["physicalLocation"]["region"];
  EXPECT_EQ(region["startLine"].asInt(), 1);
  EXPECT_EQ(region["startColumn"].asInt(), 24);
}

TEST(Lint, KnowsPlacesBehindAByteOrderMark) {
  EXPECT_THAT(RunTool({"lint", "-"}, "\xef\xbb\xbf{\n  \"entities\": []}").out,
              StartsWith("standard input:2:15: warning: "));
}

// ---- JSON and SARIF ----

TEST(LintJson, HoldsFindingsAndCounts) {
  const ToolRun run =
      RunTool({"lint", "--format", "json", "--severity", "info", PathOf("hostile-names"), PathOf("flag-bits-shifted")});
  ExpectGolden(run.out, "lint.json");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(LintJson, IsADocumentWithoutFindingsToo) {
  const ToolRun run = RunTool({"lint", "--format", "json", "kettle.json"});
  EXPECT_EQ(WriteJson(ParseJson(run.out)), R"({"counts":{"error":0,"info":0,"warning":0},"findings":[]})");
  EXPECT_EQ(run.exitCode, 0);
}

TEST(LintSarif, HoldsTheRulesAndResults) {
  const ToolRun run =
      RunTool({"lint", "--format", "sarif", "--severity", "info", PathOf("hostile-names"), PathOf("empty-unit")});
  ExpectGolden(run.out, "lint.sarif");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(LintSarif, NamesOnlyWhatItDeclares) {
  std::vector<std::string> arguments = {"lint", "--format", "sarif", "--severity", "info", "--roundtrip"};
  for (const std::string& name : BrokenConfigurations()) arguments.push_back(PathOf(name));
  const Json::Value log = ParseJson(RunTool(arguments).out);
  EXPECT_EQ(log["version"].asString(), "2.1.0");
  ASSERT_EQ(log["runs"].size(), 1U);
  const Json::Value& run = log["runs"][0];
  const Json::Value& rules = run["tool"]["driver"]["rules"];
  ASSERT_GT(run["results"].size(), BrokenConfigurations().size());
  for (const Json::Value& result : run["results"]) {
    const Json::Value& rule = rules[result["ruleIndex"].asUInt()];
    EXPECT_EQ(rule["id"], result["ruleId"]);
    EXPECT_EQ(rule["defaultConfiguration"]["level"], result["level"]);
    EXPECT_THAT((std::vector<std::string>{"error", "warning", "note"}), Contains(result["level"].asString()));
    EXPECT_FALSE(result["message"]["text"].asString().empty());
    const Json::Value& place = result["locations"][0]["physicalLocation"];
    EXPECT_THAT(place["artifactLocation"]["uri"].asString(), StartsWith("../tests/lint/"));
    EXPECT_GE(place["region"]["startLine"].asInt(), 1);
    EXPECT_GE(place["region"]["startColumn"].asInt(), 1);
  }
}

TEST(LintSarif, HasNoResultsForACleanConfiguration) {
  const ToolRun run = RunTool({"lint", "--format", "sarif", "kettle.json"});
  const Json::Value results = ParseJson(run.out)["runs"][0]["results"];
  EXPECT_TRUE(results.isArray());
  EXPECT_EQ(results.size(), 0U);
  EXPECT_EQ(run.exitCode, 0);
}

// ---- Hostile configurations ----

TEST(Lint, LetsNoNameForgeALineOrSteerATerminal) {
  for (const char* format : {"text", "json", "sarif"}) {
    const ToolRun run = RunTool({"lint", "--format", format, PathOf("hostile-names")});
    EXPECT_THAT(run.out, HasSubstr("number-in-bits"));
    for (const char c : run.out) {
      const auto code = static_cast<unsigned char>(c);
      ASSERT_TRUE(code >= 0x20 || c == '\n') << format << ": " << static_cast<int>(code);
    }
    EXPECT_THAT(run.out, Not(HasSubstr("\xe2\x80\xae"))) << "turns the direction of writing";
    EXPECT_THAT(run.out, Not(HasSubstr("\xc2\x9b"))) << "begins a control sequence";
  }
}

TEST(Lint, SaysWhereNestingIsTooDeepOrANumberTooLarge) {
  for (const std::string& text :
       {std::string(1000000, '['), std::string(R"({"entities": [{"id": 1e400}]})"),
        "{\"entities\": [" + std::string(100000, '9') + "x]}", std::string(), std::string("\0", 1)}) {
    const ToolRun run = RunTool({"lint", "-"}, text);
    EXPECT_THAT(FoundRules(run.out), testing::ElementsAre("json-syntax"));
    EXPECT_THAT(run.out, StartsWith("standard input:"));
    EXPECT_LT(run.out.size(), 1000U);
    EXPECT_EQ(run.exitCode, 1);
  }
}

TEST(Lint, SurvivesEveryExtremeNumberAtEveryPlace) {
  const std::vector<std::string> members = {"byte_offset", "bit_offset", "len", "min", "max", "ratio", "addition"};
  const std::vector<std::string> numbers = {"-2147483648",         "-1",    "0", "2147483647", "4294967295", "1e308",
                                            "9223372036854775807", "-1e308"};
  std::vector<std::string> attributes;
  for (const char* unit : {"bit", "byte"}) {
    for (const char* dataType : {"bool", "enum", "binary", "uint64"}) {
      for (const std::string& member : members) {
        for (const std::string& number : numbers) {
          const auto value = [&](const char* name, const char* usual) {
            return std::string("\"") + name + "\": " + (member == name ? number : usual);
          };
          attributes.push_back(R"({"id": 0, "name": "a)" + std::to_string(attributes.size()) +
                               R"(", "display_name": "", "desc": "", "type": "status_writable", "data_type": ")" +
                               dataType + R"(", "enum": ["a"], "uint_spec": {)" + value("min", "0") + ", " +
                               value("max", "9") + ", " + value("ratio", "1") + ", " + value("addition", "0") +
                               R"(}, "position": {"unit": ")" + unit + R"(", )" + value("byte_offset", "3") + ", " +
                               value("bit_offset", "5") + ", " + value("len", "1") + "}}");
        }
      }
    }
  }
  const auto attribute = [&](size_t index) { return attributes[index]; };
  const ToolRun all = RunTool({"lint", "--roundtrip", "-"}, Configuration(attributes.size(), attribute));
  EXPECT_EQ(all.exitCode, 1);
  EXPECT_EQ(all.err, "");

  // When a payload does not fit into memory, as with 32 bits, its fields have no findings.
  std::string entities;
  for (size_t i = 0; i < attributes.size(); ++i) {
    entities += (i == 0 ? "" : ", ") + std::string(R"({"id": )") + std::to_string(i) + R"(, "name": "e)" +
                std::to_string(i) + R"(", "display_name": "", "attrs": [)" + attributes[i] + "]}";
  }
  const ToolRun each = RunTool({"lint", "--roundtrip", "-"}, R"({"entities": [)" + entities + "]}");
  EXPECT_EQ(each.exitCode, 1);
  EXPECT_EQ(each.err, "");
  for (const char* rule :
       {"negative-offset", "member-outside-group", "empty-field", "max-too-large", "payload-too-long", "roundtrip"}) {
    EXPECT_THAT(FoundRules(each.out), Contains(rule));
  }
  if (sizeof(size_t) < 8) return;
  EXPECT_THAT(FoundRules(each.out), Contains("number-too-long"));
  EXPECT_THAT(FoundRules(each.out), Contains("binary-too-long"));
}

TEST(Lint, ChecksAHundredThousandAttributesInReasonableTime) {
  const auto start = std::chrono::steady_clock::now();
  const ToolRun run = RunTool({"lint", "-"}, Configuration(100000, Bool));
  const auto time = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(FoundRules(run.out), testing::ElementsAre("flags-too-long"));  // 12500 bytes of payload are fine
  EXPECT_LT(std::chrono::duration_cast<std::chrono::seconds>(time).count(), 120);
}

}  // namespace
