// From the lists of alerts and faults to the active ones.

#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"

namespace {

using Active = std::vector<TavelReceiveInfo>;

Active ActiveOf(const Json::Value& alerts) {
  Active active;
  ProtocolGetAlertsOrFaults_4_0(alerts, active);
  return active;
}

Active ActiveIn(const std::string& text) { return ActiveOf(ParseJson(text)); }

// What a list with one element of the given value gives: its value, or 0 when it is not active.
int32_t ActiveValue(const Json::Value& value) {
  Json::Value alerts(Json::arrayValue);
  alerts[0]["name"] = "a";
  alerts[0]["value"] = value;
  const Active active = ActiveOf(alerts);
  if (active.empty()) return 0;
  EXPECT_EQ(active, (Active{{"a", active[0].value}}));
  EXPECT_NE(active[0].value, 0);
  return active[0].value;
}

// Each row of a JSON document has a value and the expected result.
void ExpectRows(const std::string& rows) {
  for (const Json::Value& row : ParseJson(rows)) EXPECT_EQ(ActiveValue(row[0]), row[1].asInt()) << WriteJson(row);
}

constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();

}  // namespace

// --- The list ---

TEST(GetAlertsOrFaults, LeavesTheOutputAloneForEverythingButAFilledArray) {
  const std::string element = R"({"name":"a","value":1})";
  for (const std::string& text :
       {std::string("null"), std::string("[]"), std::string("{}"), element, R"({"0":)" + element + "}",
        std::string("1"), std::string("1.5"), std::string("true"), std::string("\"[]\"")}) {
    SCOPED_TRACE(text);
    Active infos = {{"kept", 9}};
    ProtocolGetAlertsOrFaults_4_0(ParseJson(text), infos);
    EXPECT_EQ(infos, (Active{{"kept", 9}}));
  }
}

TEST(GetAlertsOrFaults, ListsTheActiveOnesOnly) {
  EXPECT_EQ(ActiveIn(R"([{"name":"overheat","value":true},{"name":"lowWater","value":false}])"),
            (Active{{"overheat", 1}}));
}

TEST(GetAlertsOrFaults, AppendsInOrderAndMergesNothing) {
  Active infos = {{"kept", -1}};
  ProtocolGetAlertsOrFaults_4_0(ParseJson(R"([{"name":"z","value":3},{"name":"a","value":"2"},{"name":"off","value":0},
                                              {"name":"z","value":3},{"name":"z","value":true}])"),
                                infos);
  EXPECT_EQ(infos, (Active{{"kept", -1}, {"z", 3}, {"a", 2}, {"z", 3}, {"z", 1}}));
}

TEST(GetAlertsOrFaults, AppendsTheSameRecordsAgainOnASecondCall) {
  const Json::Value alerts = ParseJson(R"([{"name":"a","value":1},{"name":"b","value":2}])");
  Active infos;
  ProtocolGetAlertsOrFaults_4_0(alerts, infos);
  ProtocolGetAlertsOrFaults_4_0(alerts, infos);
  EXPECT_EQ(infos, (Active{{"a", 1}, {"b", 2}, {"a", 1}, {"b", 2}}));
}

TEST(GetAlertsOrFaults, SkipsElementsThatAreNotObjects) {
  EXPECT_EQ(ActiveIn(R"([null,1,1.5,true,"a",[],[{"name":"a","value":1}],{},{"name":"b","value":2},null])"),
            (Active{{"b", 2}}));
}

TEST(GetAlertsOrFaults, SkipsTheGapsOfAnArray) {
  Json::Value alerts(Json::arrayValue);
  alerts[7]["name"] = "late";
  alerts[7]["value"] = 1;
  alerts[2]["name"] = "early";
  alerts[2]["value"] = 2;
  EXPECT_EQ(ActiveOf(alerts), (Active{{"early", 2}, {"late", 1}}));
  alerts[20] = Json::Value();
  EXPECT_EQ(ActiveOf(alerts), (Active{{"early", 2}, {"late", 1}}));
}

// The last index of all makes an array's size wrap to 0.
TEST(GetAlertsOrFaults, TakesAnArrayWhoseSizeWrapsForAnEmptyOne) {
  Json::Value alerts(Json::arrayValue);
  alerts[Json::ArrayIndex{4294967295}] = ParseJson(R"({"name": "late", "value": 1})");
  EXPECT_EQ(ActiveOf(alerts), Active());
}

TEST(GetAlertsOrFaults, LeavesTheListAsItIs) {
  Json::Value alerts = ParseJson(R"([{"value":1},{"name":"a"},{"name":"b","value":1}])");
  alerts[5] = 1;
  const Json::Value before = alerts;
  EXPECT_EQ(ActiveOf(alerts), (Active{{"b", 1}}));
  EXPECT_EQ(alerts, before);
}

// --- The name ---

TEST(GetAlertsOrFaults, SkipsElementsWithoutATextForAName) {
  for (const char* name : {"null", "1", "1.5", "true", "[]", R"(["a"])", "{}"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(ActiveIn(R"([{"name":)" + std::string(name) + R"(,"value":1}])"), Active{});
  }
  EXPECT_EQ(ActiveIn(R"([{"value":1},{"Name":"a","value":1},{"name\u0000":"a","value":1}])"), Active{});
}

TEST(GetAlertsOrFaults, TakesEveryText) {
  EXPECT_EQ(ActiveIn(R"([{"name":"","value":1},{"name":"h\u00f6t","value":2},{"name":" x\n","value":3}])"),
            (Active{{"", 1}, {"h\xc3\xb6t", 2}, {" x\n", 3}}));
}

TEST(GetAlertsOrFaults, TakesNamesWithNulsWhole) {
  EXPECT_EQ(ActiveIn(R"([{"name":"a\u0000b","value":1},{"name":"\u0000","value":2}])"),
            (Active{{std::string("a\0b", 3), 1}, {std::string(1, '\0'), 2}}));
}

TEST(GetAlertsOrFaults, IgnoresOtherMembers) {
  EXPECT_EQ(ActiveIn(R"([{"name":"a","value":1,"type":1,"Value":0,"value\u0000":0,"active":false}])"),
            (Active{{"a", 1}}));
}

// --- The value ---

TEST(GetAlertsOrFaults, SkipsElementsWithoutAUsableValue) {
  for (const Json::Value& value : ParseJson(R"([null, [], [1], {}, {"value": 1}])")) EXPECT_EQ(ActiveValue(value), 0);
  EXPECT_EQ(ActiveIn(R"([{"name":"a"},{"name":"a","Value":1},{"name":"a","value\u0000":1}])"), Active{});
}

TEST(GetAlertsOrFaults, TakesTrueAndSignedIntegersWithin32BitsHoweverWideTheyWereGiven) {
  ExpectRows(R"([[true, 1], [false, 0], [3, 3], [0, 0], [-1, -1], [2147483647, 2147483647],
                 [-2147483648, -2147483648]])");
  for (const int32_t value : {0, 3, kMin32, kMax32}) {
    EXPECT_EQ(ActiveValue(Json::Int(value)), value);
    EXPECT_EQ(ActiveValue(Json::Int64(value)), value);
  }
}

TEST(GetAlertsOrFaults, RefusesIntegersBeyond32BitsSigned) {
  for (const Json::Int64 value : {Json::Int64(2147483648), Json::Int64(4294967295), Json::Int64(4294967296),
                                  Json::Int64(4294967297), Json::Int64(-2147483649), Json::Int64(-4294967295),
                                  std::numeric_limits<Json::Int64>::max(), std::numeric_limits<Json::Int64>::min()}) {
    EXPECT_EQ(ActiveValue(value), 0) << value;
  }
  for (const Json::Value& value :
       ParseJson("[2147483648, 4294967295, 4294967297, -2147483649, 18446744073709551615, 1e20]")) {
    EXPECT_EQ(ActiveValue(value), 0) << value;
  }
}

// A host that fills the list itself may store unsigned numbers; only the signed form counts, however small they are.
TEST(GetAlertsOrFaults, RefusesIntegersThatAreStoredUnsigned) {
  for (const uint64_t value : {uint64_t{0}, uint64_t{1}, uint64_t{2147483647}, uint64_t{4294967295},
                               uint64_t{4294967297}, std::numeric_limits<uint64_t>::max()}) {
    EXPECT_EQ(ActiveValue(Json::UInt64(value)), 0) << value;
    EXPECT_EQ(ActiveValue(Json::UInt(value)), 0) << value;
  }
}

TEST(GetAlertsOrFaults, RefusesRealsEvenWithoutAFraction) {
  for (const Json::Value& value : ParseJson("[1.5, 2.0, -3.0, 1e0, 0.0, -0.0, 1e300, 4.0]")) {
    EXPECT_EQ(ActiveValue(value), 0) << value;
  }
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double value : {1.0, infinity, -infinity, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(ActiveValue(value), 0) << value;
  }
}

// --- The value as text ---

TEST(GetAlertsOrFaults, ReadsDecimalText) {
  ExpectRows(R"([["1", 1], ["42", 42], ["+7", 7], ["-7", -7], ["2147483647", 2147483647],
                 ["-2147483648", -2147483648]])");
}

TEST(GetAlertsOrFaults, ReadsHexadecimalText) {
  ExpectRows(R"([["0x10", 16], ["0X1f", 31], ["0xAbC", 2748], ["-0x10", -16], ["+0x10", 16],
                 ["0x7fffffff", 2147483647], ["0x1g", 1], ["0x0", 0]])");
}

// An octal number ends before an 8 or 9.
TEST(GetAlertsOrFaults, ReadsOctalText) {
  ExpectRows(R"([["017", 15], ["0010", 8], ["-010", -8], ["0178", 15], ["00", 0], ["09", 0], ["08", 0]])");
}

// A no-break space is not white space.
TEST(GetAlertsOrFaults, SkipsLeadingWhiteSpaceOnly) {
  ExpectRows(R"([["  5", 5], ["\t\n\u000b\f\r -0x5", -5], ["5 ", 5], ["- 5", 0], ["\u00a05", 0]])");
}

TEST(GetAlertsOrFaults, IgnoresWhatFollowsTheNumber) {
  ExpectRows(R"([["12abc", 12], ["3.9", 3], ["1e3", 1], ["5,6", 5], ["0.9", 0], ["0 1", 0]])");
}

TEST(GetAlertsOrFaults, SkipsTextWithoutANumber) {
  for (const Json::Value& text :
       ParseJson(R"(["", " ", "\t\n", "abc", "x10", "true", "-", "+", "--5", "+-5", "-+5", ".5",
                                               "e5", "#1", "\uff11", "0", "-0", "+0", "0x", "0x ", "0xg", "-0x"])")) {
    EXPECT_EQ(ActiveValue(text), 0) << text;
  }
}

// The scan saturates at 64 bits, and what is stored are the low 32 of them.
TEST(GetAlertsOrFaults, CutsTextBeyond32BitsAfterSaturatingAt64) {
  // 040000000003 is 2 to the power 32, and 3.
  ExpectRows(R"([
      ["2147483648", -2147483648], ["4294967295", -1], ["4294967296", 0], ["4294967297", 1],
      ["-2147483649", 2147483647], ["-4294967297", -1], ["0xffffffff", -1], ["0x100000000", 0], ["0x100000002", 2],
      ["040000000003", 3], ["9223372036854775806", -2], ["9223372036854775807", -1], ["9223372036854775808", -1],
      ["18446744073709551617", -1], ["0xffffffffffffffffff", -1], ["-9223372036854775807", 1],
      ["-9223372036854775808", 0], ["-9223372036854775809", 0]])");
  EXPECT_EQ(ActiveValue(std::string(1000, '9')), -1);
  EXPECT_EQ(ActiveValue("-" + std::string(1000, '9')), 0);
  EXPECT_EQ(ActiveValue(std::string(100000, '0') + "5"), 5);
}

TEST(GetAlertsOrFaults, EndsTextAtItsFirstNul) {
  ExpectRows(R"([["12\u0000345", 12], ["\u00005", 0], [" \u00005", 0]])");
}

// --- Both lists ---

TEST(GetAlertsAndFaults, FillsEachOutputFromItsOwnList) {
  Active alerts;
  Active faults;
  ProtocolGetAlertsAndFaults_4_0(ParseJson(R"([{"name":"a","value":1},{"name":"x","value":0}])"),
                                 ParseJson(R"([{"name":"f","value":"2"},{"name":"g","value":true}])"), alerts, faults);
  EXPECT_EQ(alerts, (Active{{"a", 1}}));
  EXPECT_EQ(faults, (Active{{"f", 2}, {"g", 1}}));
}

TEST(GetAlertsAndFaults, HandlesTheListsIndependently) {
  const Json::Value empty(Json::arrayValue);
  const Json::Value active = ParseJson(R"([{"name":"n","value":5}])");
  Active alerts = {{"kept", 8}};
  Active faults;
  ProtocolGetAlertsAndFaults_4_0(empty, active, alerts, faults);
  EXPECT_EQ(alerts, (Active{{"kept", 8}}));
  EXPECT_EQ(faults, (Active{{"n", 5}}));
  ProtocolGetAlertsAndFaults_4_0(active, Json::Value(), alerts, faults);
  EXPECT_EQ(alerts, (Active{{"kept", 8}, {"n", 5}}));
  EXPECT_EQ(faults, (Active{{"n", 5}}));
}

TEST(GetAlertsAndFaults, AppendsAlertsBeforeFaultsWhenTheyShareOneOutput) {
  Active both;
  ProtocolGetAlertsAndFaults_4_0(ParseJson(R"([{"name":"a","value":1}])"), ParseJson(R"([{"name":"f","value":2}])"),
                                 both, both);
  EXPECT_EQ(both, (Active{{"a", 1}, {"f", 2}}));
}

TEST(GetAlertsAndFaults, ReducesWhatAConversionGives) {
  Json::Value alerts;
  Json::Value faults;
  const std::string text = ProtocolConvertReceiveResult_4_0(
      R"({"version":4.0,"e":{"Hot":{"type":4,"value":true},"Dry":{"type":4,"value":false},)"
      R"("Worn":{"type":8,"value":"2"},"Jam":{"type":8,"value":"0"},"on":{"type":1,"value":true}}})",
      alerts, faults);
  EXPECT_EQ(text, "{\"e\":{\"on\":true},\"version\":4.0}\n");
  Active activeAlerts;
  Active activeFaults;
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, activeAlerts, activeFaults);
  EXPECT_EQ(activeAlerts, (Active{{"Hot", 1}}));
  EXPECT_EQ(activeFaults, (Active{{"Worn", 2}}));
}
