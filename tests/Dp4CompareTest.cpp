// `dp4 compare`. tests/compare/ holds a pair of configurations or more for each rule, named after it; what compare says
// of RULE[.VARIANT].old.json and .new.json is in tests/golden/dp4/compare/, checked by hand against the pair.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Dp4Configuration.h"
#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// The pairs, without ".old.json".
std::vector<std::string> Pairs() {
  const std::string ending = ".old.json";
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(COMPARE_DIR)) {
    const std::string file = entry.path().filename().string();
    const size_t end = file.find(ending);
    if (end != std::string::npos && end + ending.size() == file.size()) names.push_back(file.substr(0, end));
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string PathOf(const std::string& name, const char* version) {
  return "../tests/compare/" + name + "." + version + ".json";
}

ToolRun ComparePair(const std::string& name, std::vector<std::string> options = {}) {
  options.insert(options.begin(), {"compare", PathOf(name, "old"), PathOf(name, "new")});
  return RunTool(options);
}

std::string RuleOf(const std::string& name) { return name.substr(0, name.find('.')); }

// The severity of each rule, by its name.
std::map<std::string, std::string> Rules() {
  std::map<std::string, std::string> rules;
  for (const Json::Value& rule : ParseJson(RunTool({"compare", "--rules", "--format", "json"}).out)) {
    rules[rule["id"].asString()] = rule["severity"].asString();
  }
  return rules;
}

Json::Value FindingsOf(const ToolRun& run) { return ParseJson(run.out)["findings"]; }

// ---- The rules ----

TEST(CompareRules, AreListedWithSeverityAndASentence) {
  const ToolRun run = RunTool({"compare", "--rules"});
  ExpectGolden(run.out, "compare.rules.txt");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

TEST(CompareRules, HaveAPairEach) {
  std::set<std::string> covered;
  for (const std::string& name : Pairs()) covered.insert(RuleOf(name));
  ASSERT_THAT(Rules(), Not(IsEmpty()));
  for (const auto& [rule, severity] : Rules()) EXPECT_THAT(covered, Contains(rule));
}

TEST(Compare, FindsInEachPairWhatItIsNamedAfter) {
  ASSERT_THAT(Pairs(), Not(IsEmpty()));
  const std::map<std::string, std::string> rules = Rules();
  for (const std::string& name : Pairs()) {
    SCOPED_TRACE(name);
    const ToolRun run = ComparePair(name);
    ExpectGolden(run.out, "compare/" + name + ".txt");
    EXPECT_EQ(run.err, "");
    std::vector<std::string> found;
    bool hasError = false;
    for (const Json::Value& finding : FindingsOf(ComparePair(name, {"--format", "json"}))) {
      found.push_back(finding["rule"].asString());
      hasError = hasError || finding["severity"] == "error";
      EXPECT_EQ(finding["severity"].asString(), rules.at(found.back()));
      EXPECT_TRUE(finding.isMember("old") || finding.isMember("new")) << found.back();
      EXPECT_TRUE(finding["before"].isMember("packet") || finding["after"].isMember("packet")) << found.back();
      for (const char* shown : {"before", "after"}) EXPECT_NE(finding[shown]["meaning"].asString(), "") << found.back();
    }
    EXPECT_EQ(run.exitCode, hasError ? 1 : 0);
    if (name == "nothing-changed") {
      EXPECT_THAT(found, IsEmpty());
    } else {
      EXPECT_THAT(found, Contains(RuleOf(name)));
    }
  }
}

// Each the other way round, so that what is new becomes what is gone.
TEST(Compare, TakesEachPairInBothDirections) {
  for (const std::string& name : Pairs()) {
    SCOPED_TRACE(name);
    const ToolRun run = RunTool({"compare", PathOf(name, "new"), PathOf(name, "old"), "--format", "json"});
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(FindingsOf(run).empty(), name == "nothing-changed");
  }
}

TEST(Compare, FindsNothingBetweenEqualConfigurations) {
  for (const char* example : {"kettle.json", "air_conditioner.json", "gateway.json", "power_meter.json"}) {
    const ToolRun run = RunTool({"compare", example, example});
    EXPECT_EQ(run.out, "") << example;
    EXPECT_EQ(run.err, "") << example;
    EXPECT_EQ(run.exitCode, 0) << example;
  }
}

// Hosts read the number behind "0x".
TEST(Compare, ReadsThePacketVersionAsHostsDo) {
  const std::string text = ReadFile(std::string(COMPARE_DIR) + "/nothing-changed.old.json");
  const std::string old = R"("packetVersion": "0x4")";
  const size_t begin = text.find(old);
  ASSERT_NE(begin, std::string::npos);
  for (const auto& [version, exitCode] :
       {std::pair(R"("0x04")", 0), std::pair(R"("0X4")", 1), std::pair("4", 1), std::pair(R"("0x10")", 1)}) {
    std::string other = text;
    other.replace(begin, old.size(), std::string(R"("packetVersion": )") + version);
    const ToolRun run = RunTool({"compare", PathOf("nothing-changed", "old"), "-"}, other);
    EXPECT_EQ(run.exitCode, exitCode) << version;
    EXPECT_EQ(run.out.find("[packet-version-changed]") == std::string::npos, exitCode == 0) << version;
  }
}

// ---- Packets ----

// The new lock is listed first, in a free bit: it takes flag 0. So a write of the power, in bit 0 of byte 0, has flag 1
// (02) and no longer 0 (01), and flag 1 is that of the mode in devices in the field.
TEST(Compare, ShowsWhatAnInsertedWritableAttributeDoes) {
  const Json::Value findings = FindingsOf(ComparePair("flag-changed", {"--format", "json"}));
  const auto moved = std::find_if(findings.begin(), findings.end(),
                                  [](const Json::Value& finding) { return finding["rule"] == "flag-changed"; });
  ASSERT_NE(moved, findings.end());
  EXPECT_EQ(WriteJson((*moved)["attributes"]), R"(["power","mode","speed"])");
  EXPECT_EQ((*moved)["message"].asString(),
            "the flag of 'power' moved from bit 0 to bit 1; moved as far: 'mode' and 'speed'");
  EXPECT_EQ((*moved)["before"]["packet"].asString(), "01 01 01 00");
  EXPECT_EQ((*moved)["before"]["meaning"].asString(), "power = true");
  EXPECT_EQ((*moved)["after"]["packet"].asString(), "01 02 01 00");
  EXPECT_EQ((*moved)["after"]["meaning"].asString(), "mode = 0 (quiet)");
}

// The write of the old configuration is what encoding with it gives, and so is that of the new one.
TEST(Compare, ShowsThePacketsThatEncodingGives) {
  const Json::Value findings = FindingsOf(ComparePair("scaling-changed", {"--format", "json"}));
  ASSERT_EQ(findings[0]["rule"].asString(), "scaling-changed");
  const std::string value = findings[0]["before"]["meaning"].asString();
  ASSERT_EQ(value.substr(0, 8), "speed = ");
  for (const auto& [version, shown] : {std::pair("old", "before"), std::pair("new", "after")}) {
    const ToolRun encoded =
        RunTool({"encode", PathOf("scaling-changed", version), "--set", "speed=" + value.substr(8)});
    EXPECT_EQ(encoded.out, findings[0][shown]["packet"].asString() + "\n");
  }
}

// ---- Matching ----

// Names first: x and y swap their ids, which nobody looks at. What is left, z and w, has one id.
TEST(Compare, MatchesByNameAndTheRestById) {
  const auto attribute = [](const char* name, int id, int bit) {
    return R"({"id": )" + std::to_string(id) + R"(, "name": ")" + name +
           R"(", "display_name": "", "desc": "", "type": "status_readonly", "data_type": "bool", "position": {)" +
           Bits(0, bit, 1) + "}}";
  };
  const std::string path = testing::TempDir() + "compare-old.json";
  std::ofstream(path) << Configuration(attribute("x", 1, 0) + "," + attribute("y", 2, 1) + "," + attribute("z", 3, 2));
  const ToolRun run =
      RunTool({"compare", path, "-", "--format", "json"},
              Configuration(attribute("x", 2, 0) + "," + attribute("y", 1, 1) + "," + attribute("w", 3, 2)));
  std::vector<std::string> found;
  for (const Json::Value& finding : FindingsOf(run)) {
    found.push_back(finding["rule"].asString() + " " + finding["attributes"][0].asString());
  }
  EXPECT_THAT(found, ElementsAre("text-changed x", "text-changed y", "key-changed w"));
  EXPECT_EQ(run.exitCode, 0);
}

// ---- Options and forms ----

TEST(Compare, EndsWith1FromTheSeverityOn) {
  EXPECT_EQ(ComparePair("place-changed").exitCode, 1);
  EXPECT_EQ(ComparePair("key-changed").exitCode, 0);
  EXPECT_EQ(ComparePair("key-changed", {"--severity", "warning"}).exitCode, 1);
  EXPECT_EQ(ComparePair("text-changed", {"--severity", "warning"}).exitCode, 0);
  EXPECT_EQ(ComparePair("text-changed", {"--severity", "info"}).exitCode, 1);
  EXPECT_EQ(ComparePair("key-changed", {"--severity", "info"}).out, ComparePair("key-changed").out);
}

TEST(Compare, RefusesWhatItCannotRead) {
  const ToolRun missing = RunTool({"compare", "kettle.json", "no_such_file.json"});
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_THAT(missing.err, HasSubstr("no_such_file.json: cannot be read"));
  const ToolRun twice = RunTool({"compare", "-", "-"});
  EXPECT_EQ(twice.exitCode, 2);
  EXPECT_EQ(twice.err, "dp4: standard input cannot be both configurations\n");
  EXPECT_EQ(RunTool({"compare", "kettle.json"}).exitCode, 2);
  const ToolRun none = RunTool({"compare", "kettle.json", "-"}, "{}");
  EXPECT_EQ(none.exitCode, 2);
  EXPECT_THAT(none.err, HasSubstr("expected an object with an array \"entities\""));
}

TEST(CompareJson, HasBothPlaces) {
  const Json::Value finding = FindingsOf(ComparePair("limits-narrowed", {"--format", "json"}))[0];
  EXPECT_EQ(finding["old"]["file"].asString(), PathOf("limits-narrowed", "old"));
  EXPECT_EQ(finding["new"]["file"].asString(), PathOf("limits-narrowed", "new"));
  EXPECT_EQ(finding["old"]["pointer"].asString(), "/entities/0/attrs/2/uint_spec");
  EXPECT_EQ(finding["old"]["line"].asInt(), 9);
  EXPECT_EQ(finding["old"]["column"].asInt(), finding["new"]["column"].asInt());
}

TEST(CompareSarif, NamesOnlyWhatItDeclares) {
  for (const std::string& name : Pairs()) {
    SCOPED_TRACE(name);
    const Json::Value run = ParseJson(ComparePair(name, {"--format", "sarif"}).out)["runs"][0];
    const Json::Value& rules = run["tool"]["driver"]["rules"];
    for (const Json::Value& result : run["results"]) {
      const Json::Value& rule = rules[result["ruleIndex"].asUInt()];
      EXPECT_EQ(rule["id"], result["ruleId"]);
      EXPECT_EQ(rule["defaultConfiguration"]["level"], result["level"]);
      EXPECT_GE(result["locations"][0]["physicalLocation"]["region"]["startLine"].asInt(), 1);
      EXPECT_THAT(result["message"]["text"].asString(), HasSubstr(". Effect: "));
    }
    EXPECT_EQ(run["results"].size(), FindingsOf(ComparePair(name, {"--format", "json"})).size());
  }
}

TEST(Compare, LetsNoNameForgeALineOrSteerATerminal) {
  for (const char* format : {"text", "json", "sarif"}) {
    const ToolRun run = RunTool({"compare", "../tests/lint/hostile-names.json", "kettle.json", "--format", format});
    EXPECT_NE(run.out, "");
    for (const char c : run.out) {
      const auto code = static_cast<unsigned char>(c);
      ASSERT_TRUE(code >= 0x20 || c == '\n') << format << ": " << static_cast<int>(code);
    }
  }
}

// Every broken configuration against every other one would take long; each against the kettle shows that none is too
// much.
TEST(Compare, TakesBrokenConfigurations) {
  for (const auto& entry : std::filesystem::directory_iterator(LINT_DIR)) {
    for (const auto& [old, now] : {std::pair(entry.path().string(), std::string("kettle.json")),
                                   std::pair(std::string("kettle.json"), entry.path().string()),
                                   std::pair(entry.path().string(), entry.path().string())}) {
      const ToolRun run = RunTool({"compare", old, now, "--format", "json"});
      EXPECT_TRUE(run.exitCode == 2 ? run.out.empty() : ParseJson(run.out).isMember("findings")) << old << " " << now;
      EXPECT_THAT(run.err, Not(HasSubstr("internal error"))) << old << " " << now;
      if (old == now && run.exitCode != 2) {
        EXPECT_TRUE(FindingsOf(run).empty()) << old;
      }
    }
  }
}

}  // namespace
