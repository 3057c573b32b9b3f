// From the lists of alerts and faults to the active ones.

#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"

namespace {

// Name and value of each record: comparable, and readable when a test fails.
using Records = std::vector<std::pair<std::string, int32_t>>;

Records AsRecords(const std::vector<TavelReceiveInfo>& infos) {
  Records records;
  for (const TavelReceiveInfo& info : infos) records.emplace_back(info.name, info.value);
  return records;
}

Records ActiveOf(const Json::Value& alerts) {
  std::vector<TavelReceiveInfo> infos;
  ProtocolGetAlertsOrFaults_4_0(alerts, infos);
  return AsRecords(infos);
}

Records Active(const std::string& text) { return ActiveOf(ParseJson(text)); }

// The records of a list with one element of the given value.
Records ActiveValue(const Json::Value& value) {
  Json::Value alerts(Json::arrayValue);
  alerts[0]["name"] = "a";
  alerts[0]["value"] = value;
  return ActiveOf(alerts);
}

Records ActiveText(const std::string& text) { return ActiveValue(Json::Value(text)); }

Records One(int32_t value) { return {{"a", value}}; }

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
    std::vector<TavelReceiveInfo> infos = {{"kept", 9}};
    ProtocolGetAlertsOrFaults_4_0(ParseJson(text), infos);
    EXPECT_EQ(AsRecords(infos), (Records{{"kept", 9}}));
  }
}

TEST(GetAlertsOrFaults, ListsTheActiveOnesOnly) {
  EXPECT_EQ(Active(R"([{"name":"overheat","value":true},{"name":"lowWater","value":false}])"),
            (Records{{"overheat", 1}}));
}

TEST(GetAlertsOrFaults, AppendsInOrderAndMergesNothing) {
  std::vector<TavelReceiveInfo> infos = {{"kept", -1}};
  ProtocolGetAlertsOrFaults_4_0(ParseJson(R"([{"name":"z","value":3},{"name":"a","value":"2"},{"name":"off","value":0},
                                              {"name":"z","value":3},{"name":"z","value":true}])"),
                                infos);
  EXPECT_EQ(AsRecords(infos), (Records{{"kept", -1}, {"z", 3}, {"a", 2}, {"z", 3}, {"z", 1}}));
}

TEST(GetAlertsOrFaults, AppendsTheSameRecordsAgainOnASecondCall) {
  const Json::Value alerts = ParseJson(R"([{"name":"a","value":1},{"name":"b","value":2}])");
  std::vector<TavelReceiveInfo> infos;
  ProtocolGetAlertsOrFaults_4_0(alerts, infos);
  ProtocolGetAlertsOrFaults_4_0(alerts, infos);
  EXPECT_EQ(AsRecords(infos), (Records{{"a", 1}, {"b", 2}, {"a", 1}, {"b", 2}}));
}

TEST(GetAlertsOrFaults, SkipsElementsThatAreNoObjects) {
  EXPECT_EQ(Active(R"([null,1,1.5,true,"a",[],[{"name":"a","value":1}],{},{"name":"b","value":2},null])"),
            (Records{{"b", 2}}));
}

TEST(GetAlertsOrFaults, SkipsTheGapsOfAnArray) {
  Json::Value alerts(Json::arrayValue);
  alerts[7]["name"] = "late";
  alerts[7]["value"] = 1;
  alerts[2]["name"] = "early";
  alerts[2]["value"] = 2;
  EXPECT_EQ(ActiveOf(alerts), (Records{{"early", 2}, {"late", 1}}));
  alerts[20] = Json::Value();
  EXPECT_EQ(ActiveOf(alerts), (Records{{"early", 2}, {"late", 1}}));
}

// The last index of all makes an array's size wrap to 0.
TEST(GetAlertsOrFaults, TakesAnArrayWhoseSizeWrapsForAnEmptyOne) {
  Json::Value alerts(Json::arrayValue);
  alerts[Json::ArrayIndex{4294967295}] = ParseJson(R"({"name": "late", "value": 1})");
  EXPECT_EQ(ActiveOf(alerts), Records());
}

TEST(GetAlertsOrFaults, LeavesTheListAsItIs) {
  Json::Value alerts = ParseJson(R"([{"value":1},{"name":"a"},{"name":"b","value":1}])");
  alerts[5] = 1;
  const Json::Value before = alerts;
  EXPECT_EQ(ActiveOf(alerts), (Records{{"b", 1}}));
  EXPECT_EQ(alerts, before);
}

// --- The name ---

TEST(GetAlertsOrFaults, SkipsElementsWithoutATextForAName) {
  for (const char* name : {"null", "1", "1.5", "true", "[]", R"(["a"])", "{}"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Active(R"([{"name":)" + std::string(name) + R"(,"value":1}])"), Records{});
  }
  EXPECT_EQ(Active(R"([{"value":1},{"Name":"a","value":1},{"name\u0000":"a","value":1}])"), Records{});
}

TEST(GetAlertsOrFaults, TakesEveryText) {
  EXPECT_EQ(Active(R"([{"name":"","value":1},{"name":"h\u00f6t","value":2},{"name":" x\n","value":3}])"),
            (Records{{"", 1}, {"h\xc3\xb6t", 2}, {" x\n", 3}}));
}

TEST(GetAlertsOrFaults, TakesNamesWithNulsWhole) {
  EXPECT_EQ(Active(R"([{"name":"a\u0000b","value":1},{"name":"\u0000","value":2}])"),
            (Records{{std::string("a\0b", 3), 1}, {std::string(1, '\0'), 2}}));
}

TEST(GetAlertsOrFaults, IgnoresOtherMembers) {
  EXPECT_EQ(Active(R"([{"name":"a","value":1,"type":1,"Value":0,"value\u0000":0,"active":false}])"), One(1));
}

// --- The value ---

TEST(GetAlertsOrFaults, SkipsElementsWithoutAUsableValue) {
  for (const char* value : {"null", "[]", "[1]", "{}", R"({"value":1})"}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(Active(R"([{"name":"a","value":)" + std::string(value) + "}]"), Records{});
  }
  EXPECT_EQ(Active(R"([{"name":"a"},{"name":"a","Value":1},{"name":"a","value\u0000":1}])"), Records{});
}

TEST(GetAlertsOrFaults, TakesIntegersOtherThanZero) {
  EXPECT_EQ(Active(R"([{"name":"a","value":3}])"), One(3));
  EXPECT_EQ(Active(R"([{"name":"a","value":0}])"), Records{});
  EXPECT_EQ(Active(R"([{"name":"a","value":-1}])"), One(-1));
  EXPECT_EQ(Active(R"([{"name":"a","value":2147483647}])"), One(kMax32));
  EXPECT_EQ(Active(R"([{"name":"a","value":-2147483648}])"), One(kMin32));
}

TEST(GetAlertsOrFaults, TakesSignedIntegersWithin32BitsHoweverWideTheyWereGiven) {
  EXPECT_EQ(ActiveValue(Json::Int(3)), One(3));
  EXPECT_EQ(ActiveValue(Json::Int64(3)), One(3));
  EXPECT_EQ(ActiveValue(Json::Int64(kMin32)), One(kMin32));
  EXPECT_EQ(ActiveValue(Json::Int64(kMax32)), One(kMax32));
  EXPECT_EQ(ActiveValue(Json::Int64(0)), Records{});
}

TEST(GetAlertsOrFaults, RefusesIntegersBeyond32BitsSigned) {
  for (const Json::Int64 value : {Json::Int64(2147483648), Json::Int64(4294967295), Json::Int64(4294967296),
                                  Json::Int64(4294967297), Json::Int64(-2147483649), Json::Int64(-4294967295),
                                  std::numeric_limits<Json::Int64>::max(), std::numeric_limits<Json::Int64>::min()}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(ActiveValue(value), Records{});
  }
  for (const char* value : {"2147483648", "4294967295", "4294967297", "-2147483649", "18446744073709551615", "1e20"}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(Active(R"([{"name":"a","value":)" + std::string(value) + "}]"), Records{});
  }
}

// A host that fills the list itself may store unsigned numbers; only the signed form counts, however small they are.
TEST(GetAlertsOrFaults, RefusesIntegersThatAreStoredUnsigned) {
  EXPECT_EQ(ActiveValue(Json::UInt(1)), Records{});
  EXPECT_EQ(ActiveValue(Json::UInt(0)), Records{});
  EXPECT_EQ(ActiveValue(Json::UInt(2147483647)), Records{});
  EXPECT_EQ(ActiveValue(Json::UInt(4294967295)), Records{});
  EXPECT_EQ(ActiveValue(Json::UInt64(1)), Records{});
  EXPECT_EQ(ActiveValue(Json::UInt64(4294967297)), Records{});
  EXPECT_EQ(ActiveValue(std::numeric_limits<Json::UInt64>::max()), Records{});
}

TEST(GetAlertsOrFaults, RefusesRealsEvenWithoutAFraction) {
  for (const char* value : {"1.5", "2.0", "-3.0", "1e0", "0.0", "-0.0", "1e300", "4.0"}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(Active(R"([{"name":"a","value":)" + std::string(value) + "}]"), Records{});
  }
  EXPECT_EQ(ActiveValue(1.0), Records{});
  EXPECT_EQ(ActiveValue(std::numeric_limits<double>::infinity()), Records{});
  EXPECT_EQ(ActiveValue(-std::numeric_limits<double>::infinity()), Records{});
  EXPECT_EQ(ActiveValue(std::numeric_limits<double>::quiet_NaN()), Records{});
}

TEST(GetAlertsOrFaults, TakesTrueAsOne) {
  EXPECT_EQ(ActiveValue(true), One(1));
  EXPECT_EQ(ActiveValue(false), Records{});
}

// --- The value as text ---

TEST(GetAlertsOrFaults, ReadsDecimalText) {
  EXPECT_EQ(ActiveText("1"), One(1));
  EXPECT_EQ(ActiveText("42"), One(42));
  EXPECT_EQ(ActiveText("+7"), One(7));
  EXPECT_EQ(ActiveText("-7"), One(-7));
  EXPECT_EQ(ActiveText("2147483647"), One(kMax32));
  EXPECT_EQ(ActiveText("-2147483648"), One(kMin32));
}

TEST(GetAlertsOrFaults, ReadsHexadecimalText) {
  EXPECT_EQ(ActiveText("0x10"), One(16));
  EXPECT_EQ(ActiveText("0X1f"), One(31));
  EXPECT_EQ(ActiveText("0xAbC"), One(0xabc));
  EXPECT_EQ(ActiveText("-0x10"), One(-16));
  EXPECT_EQ(ActiveText("+0x10"), One(16));
  EXPECT_EQ(ActiveText("0x7fffffff"), One(kMax32));
  EXPECT_EQ(ActiveText("0x1g"), One(1));
  EXPECT_EQ(ActiveText("0x0"), Records{});
}

TEST(GetAlertsOrFaults, ReadsOctalText) {
  EXPECT_EQ(ActiveText("017"), One(15));
  EXPECT_EQ(ActiveText("0010"), One(8));
  EXPECT_EQ(ActiveText("-010"), One(-8));
  EXPECT_EQ(ActiveText("0178"), One(15));
  EXPECT_EQ(ActiveText("00"), Records{});
  EXPECT_EQ(ActiveText("09"), Records{}) << "an octal 0 with a 9 behind it";
  EXPECT_EQ(ActiveText("08"), Records{}) << "an octal 0 with an 8 behind it";
}

TEST(GetAlertsOrFaults, SkipsLeadingWhiteSpaceOnly) {
  EXPECT_EQ(ActiveText("  5"), One(5));
  EXPECT_EQ(ActiveText("\t\n\v\f\r -0x5"), One(-5));
  EXPECT_EQ(ActiveText("5 "), One(5));
  EXPECT_EQ(ActiveText("- 5"), Records{});
  EXPECT_EQ(ActiveText("\xc2\xa0"
                       "5"),
            Records{})
      << "a no-break space is none";
}

TEST(GetAlertsOrFaults, IgnoresWhatFollowsTheNumber) {
  EXPECT_EQ(ActiveText("12abc"), One(12));
  EXPECT_EQ(ActiveText("3.9"), One(3));
  EXPECT_EQ(ActiveText("1e3"), One(1));
  EXPECT_EQ(ActiveText("5,6"), One(5));
  EXPECT_EQ(ActiveText("0.9"), Records{});
  EXPECT_EQ(ActiveText("0 1"), Records{});
}

TEST(GetAlertsOrFaults, SkipsTextWithoutANumber) {
  for (const char* text : {"",   " ",  "\t\n", "abc",          "x10", "true", "-",  "+",  "--5", "+-5", "-+5",
                           ".5", "e5", "#1",   "\xef\xbc\x91", "0",   "-0",   "+0", "0x", "0x ", "0xg", "-0x"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ActiveText(text), Records{});
  }
}

// The scan saturates at 64 bits, and what is stored are the low 32 of them.
TEST(GetAlertsOrFaults, CutsTextBeyond32BitsAfterSaturatingAt64) {
  EXPECT_EQ(ActiveText("2147483648"), One(kMin32));
  EXPECT_EQ(ActiveText("4294967295"), One(-1));
  EXPECT_EQ(ActiveText("4294967296"), Records{});
  EXPECT_EQ(ActiveText("4294967297"), One(1));
  EXPECT_EQ(ActiveText("-2147483649"), One(kMax32));
  EXPECT_EQ(ActiveText("-4294967297"), One(-1));
  EXPECT_EQ(ActiveText("0xffffffff"), One(-1));
  EXPECT_EQ(ActiveText("0x100000000"), Records{});
  EXPECT_EQ(ActiveText("0x100000002"), One(2));
  EXPECT_EQ(ActiveText("040000000003"), One(3)) << "2 to the power 32, and 3";
  EXPECT_EQ(ActiveText("9223372036854775806"), One(-2));
  EXPECT_EQ(ActiveText("9223372036854775807"), One(-1));
  EXPECT_EQ(ActiveText("9223372036854775808"), One(-1));
  EXPECT_EQ(ActiveText("18446744073709551617"), One(-1));
  EXPECT_EQ(ActiveText("0xffffffffffffffffff"), One(-1));
  EXPECT_EQ(ActiveText("-9223372036854775807"), One(1));
  EXPECT_EQ(ActiveText("-9223372036854775808"), Records{});
  EXPECT_EQ(ActiveText("-9223372036854775809"), Records{});
  EXPECT_EQ(ActiveText(std::string(1000, '9')), One(-1));
  EXPECT_EQ(ActiveText("-" + std::string(1000, '9')), Records{});
  EXPECT_EQ(ActiveText(std::string(100000, '0') + "5"), One(5));
}

TEST(GetAlertsOrFaults, EndsTextAtItsFirstNul) {
  EXPECT_EQ(ActiveText(std::string("12\0"
                                   "345",
                                   6)),
            One(12));
  EXPECT_EQ(ActiveText(std::string("\0"
                                   "5",
                                   2)),
            Records{});
  EXPECT_EQ(ActiveText(std::string(" \0"
                                   "5",
                                   3)),
            Records{});
}

// --- Both lists ---

TEST(GetAlertsAndFaults, FillsEachOutputFromItsOwnList) {
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;
  ProtocolGetAlertsAndFaults_4_0(ParseJson(R"([{"name":"a","value":1},{"name":"x","value":0}])"),
                                 ParseJson(R"([{"name":"f","value":"2"},{"name":"g","value":true}])"), alerts, faults);
  EXPECT_EQ(AsRecords(alerts), (Records{{"a", 1}}));
  EXPECT_EQ(AsRecords(faults), (Records{{"f", 2}, {"g", 1}}));
}

TEST(GetAlertsAndFaults, HandlesTheListsIndependently) {
  const Json::Value empty(Json::arrayValue);
  const Json::Value active = ParseJson(R"([{"name":"n","value":5}])");
  std::vector<TavelReceiveInfo> alerts = {{"kept", 8}};
  std::vector<TavelReceiveInfo> faults;
  ProtocolGetAlertsAndFaults_4_0(empty, active, alerts, faults);
  EXPECT_EQ(AsRecords(alerts), (Records{{"kept", 8}}));
  EXPECT_EQ(AsRecords(faults), (Records{{"n", 5}}));
  ProtocolGetAlertsAndFaults_4_0(active, Json::Value(), alerts, faults);
  EXPECT_EQ(AsRecords(alerts), (Records{{"kept", 8}, {"n", 5}}));
  EXPECT_EQ(AsRecords(faults), (Records{{"n", 5}}));
}

TEST(GetAlertsAndFaults, AppendsAlertsBeforeFaultsWhenTheyShareOneOutput) {
  std::vector<TavelReceiveInfo> both;
  ProtocolGetAlertsAndFaults_4_0(ParseJson(R"([{"name":"a","value":1}])"), ParseJson(R"([{"name":"f","value":2}])"),
                                 both, both);
  EXPECT_EQ(AsRecords(both), (Records{{"a", 1}, {"f", 2}}));
}

TEST(GetAlertsAndFaults, ReducesWhatAConversionGives) {
  Json::Value alerts;
  Json::Value faults;
  const std::string text = ProtocolConvertReceiveResult_4_0(
      R"({"version":4.0,"e":{"Hot":{"type":4,"value":true},"Dry":{"type":4,"value":false},)"
      R"("Worn":{"type":8,"value":"2"},"Jam":{"type":8,"value":"0"},"on":{"type":1,"value":true}}})",
      alerts, faults);
  EXPECT_EQ(text, "{\"e\":{\"on\":true},\"version\":4.0}\n");
  std::vector<TavelReceiveInfo> activeAlerts;
  std::vector<TavelReceiveInfo> activeFaults;
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, activeAlerts, activeFaults);
  EXPECT_EQ(AsRecords(activeAlerts), (Records{{"Hot", 1}}));
  EXPECT_EQ(AsRecords(activeFaults), (Records{{"Worn", 2}}));
}
