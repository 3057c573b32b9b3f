// From the text of a receive document to the application's document, and the alerts and faults split off on the way.

#include <gtest/gtest.h>
#include <json/json.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"

namespace {

struct Conversion {
  std::string text;
  Json::Value alerts;
  Json::Value faults;
};

// Both lists hold something beforehand, so that every test also sees whether they are replaced.
Conversion Convert(const std::string& document) {
  Conversion conversion;
  conversion.alerts = "left from before";
  conversion.faults.append("left from before");
  conversion.text = ProtocolConvertReceiveResult_4_0(document, conversion.alerts, conversion.faults);
  return conversion;
}

// The conversion of a document whose one entity "e" has the given members.
Conversion ConvertEntity(const std::string& members) { return Convert(R"({"version":4.0,"e":{)" + members + "}}"); }

// The text of a document whose one entity "e" comes out with the given members.
std::string EntityText(const std::string& members) { return R"({"e":{)" + members + R"(},"version":4.0})" + "\n"; }

void ExpectResults(const Conversion& conversion, const std::string& text, const std::string& alerts = "[]",
                   const std::string& faults = "[]") {
  EXPECT_EQ(conversion.text, text);
  EXPECT_EQ(WriteJson(conversion.alerts), alerts);
  EXPECT_EQ(WriteJson(conversion.faults), faults);
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

void ExpectRejected(const std::string& document) {
  SCOPED_TRACE(document.substr(0, 100));
  ExpectResults(Convert(document), "");
}

std::string Repeated(const std::string& text, size_t times) {
  std::string result;
  for (size_t i = 0; i < times; ++i) result += text;
  return result;
}

}  // namespace

// --- The document as a whole ---

TEST(ConvertReceiveResult, GivesADocumentWithoutEntitiesBack) {
  ExpectResults(Convert(R"( { "version" : 4.0 } )"), "{\"version\":4.0}\n");
}

TEST(ConvertReceiveResult, RejectsTextThatIsNotJson) {
  for (const char* text :
       {"", " ", "\n", "{", "}", R"({"version":4.0)", R"({"version":})", R"({"version" 4.0})", R"({version:4.0})",
        R"({'version':4.0})", R"({"version":4.0,})", R"({"version":4.0 "a":1})",
        R"({"version":4.0,"e":{"a":{"type":4,"value":tru}}})", "version", "/* {\"version\":4.0} */"}) {
    ExpectRejected(text);
  }
}

TEST(ConvertReceiveResult, RejectsRootsThatAreNotObjects) {
  for (const char* text : {"null", "[]", R"([{"version":4.0}])", "4.0", "4", "true", R"("version")"}) {
    ExpectRejected(text);
  }
}

TEST(ConvertReceiveResult, RejectsEveryVersionButTheRealNumberFour) {
  for (const char* version :
       {"4",          "4.5",     "3.0",  "5.0",  "-4.0",  "4.0001", "3.9999999", "0.0", "4e1",
        "\"4\"",      "\"4.0\"", "null", "true", "false", "[4.0]",  "[]",        "{}",  R"({"type":1,"value":4.0})",
        "4294967300", "4.0e300"}) {
    ExpectRejected(R"({"version":)" + std::string(version) + "}");
    ExpectRejected(R"({"e":{"a":{"type":4,"value":true},"f":{"type":8,"value":true}},"version":)" +
                   std::string(version) + "}");
  }
}

TEST(ConvertReceiveResult, RejectsAMissingVersion) {
  ExpectRejected("{}");
  ExpectRejected(R"({"e":{"a":{"type":4,"value":true}}})");
  ExpectRejected(R"({"e":{"version":4.0}})");
  ExpectRejected(R"({"Version":4.0})");
  ExpectRejected(R"({"version\u0000":4.0})");
}

TEST(ConvertReceiveResult, AcceptsEverySpellingOfTheRealNumberFour) {
  for (const char* version : {"4.0", "4.000", "4e0", "4E+0", "40e-1", "0.4e1"}) {
    SCOPED_TRACE(version);
    EXPECT_EQ(Convert(R"({"version":)" + std::string(version) + "}").text, "{\"version\":4.0}\n");
  }
}

TEST(ConvertReceiveResult, KeepsNothingBetweenCalls) {
  Json::Value alerts;
  Json::Value faults;
  const std::string document = R"({"version":4.0,"e":{"a":{"type":4,"value":1},"f":{"type":8,"value":2}}})";
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(ProtocolConvertReceiveResult_4_0(document, alerts, faults), EntityText(""));
    EXPECT_EQ(WriteJson(alerts), R"([{"name":"a","value":1}])");
    EXPECT_EQ(WriteJson(faults), R"([{"name":"f","value":2}])");
  }
  EXPECT_EQ(ProtocolConvertReceiveResult_4_0("no JSON", alerts, faults), "");
  EXPECT_EQ(WriteJson(alerts), "[]");
  EXPECT_EQ(WriteJson(faults), "[]");
}

// --- Status attributes ---

TEST(ConvertReceiveResult, ReplacesAStatusItemByItsValue) {
  EXPECT_EQ(ConvertEntity(R"("level":{"type":1,"value":25})").text, EntityText(R"("level":25)"));
  EXPECT_EQ(ConvertEntity(R"("level":{"type":2,"value":25})").text, EntityText(R"("level":25)"));
}

TEST(ConvertReceiveResult, TakesValuesOfEveryKind) {
  for (const char* value :
       {"true", "false", "null", "0", "-1", "2147483648", "9223372036854775807", "-2.5", "0.5", R"("")", R"("12.5")",
        "[]", R"([1,[2,null],{"type":4}])", "{}", R"({"type":4,"value":{"type":8,"value":1}})"}) {
    SCOPED_TRACE(value);
    const std::string item = R"({"type":1,"value":)" + std::string(value) + "}";
    ExpectResults(ConvertEntity(R"("a":)" + item), EntityText(R"("a":)" + std::string(value)));
  }
}

TEST(ConvertReceiveResult, DropsTheOtherMembersOfAStatusItem) {
  EXPECT_EQ(ConvertEntity(R"("a":{"name":"other","note":[1],"type":1,"value":3})").text, EntityText(R"("a":3)"));
}

TEST(ConvertReceiveResult, TreatsEveryTypeButTheIntegers4And8AsStatus) {
  // Among the last ones are those whose low 32 bits are 4 or 8.
  for (const std::string& type :
       Words("0 1 2 3 5 6 7 9 12 16 -4 -8 4.0 8.0 4e0 true false null [4] [] {} {\"type\":4} \"4\" \"8\" \"alert\" "
             "2147483652 4294967300 4294967304 -4294967292 -4294967288 18446744073709551612")) {
    SCOPED_TRACE(type);
    ExpectResults(ConvertEntity(R"("a":{"type":)" + std::string(type) + R"(,"value":"v"})"), EntityText(R"("a":"v")"));
  }
}

TEST(ConvertReceiveResult, TreatsAMissingTypeAsStatus) {
  EXPECT_EQ(ConvertEntity(R"("a":{"value":25})").text, EntityText(R"("a":25)"));
  EXPECT_EQ(ConvertEntity(R"("a":{"Type":4,"value":25})").text, EntityText(R"("a":25)"));
}

TEST(ConvertReceiveResult, GivesNullForAStatusItemWithoutValue) {
  EXPECT_EQ(ConvertEntity(R"("a":{"type":1})").text, EntityText(R"("a":null)"));
  EXPECT_EQ(ConvertEntity(R"("a":{})").text, EntityText(R"("a":null)"));
  EXPECT_EQ(ConvertEntity(R"("a":{"Value":1})").text, EntityText(R"("a":null)"));
}

// --- Alerts and faults ---

TEST(ConvertReceiveResult, MovesAlertsAndFaultsIntoTheirLists) {
  ExpectResults(
      ConvertEntity(R"("on":{"type":1,"value":true},"hot":{"type":4,"value":true},"worn":{"type":8,"value":"2"})"),
      EntityText(R"("on":true)"), R"([{"name":"hot","value":true}])", R"([{"name":"worn","value":"2"}])");
}

TEST(ConvertReceiveResult, ListsInactiveAlertsAndFaultsToo) {
  const Conversion conversion = ConvertEntity(R"("a":{"type":4,"value":false},"f":{"type":8,"value":null})");
  EXPECT_EQ(WriteJson(conversion.alerts), R"([{"name":"a","value":false}])");
  EXPECT_EQ(WriteJson(conversion.faults), R"([{"name":"f","value":null}])");
}

TEST(ConvertReceiveResult, AddsNoValueToAnAlertWithout) {
  const Conversion conversion = ConvertEntity(R"("a":{"type":4},"f":{"type":8})");
  EXPECT_EQ(conversion.text, EntityText(""));
  EXPECT_EQ(WriteJson(conversion.alerts), R"([{"name":"a"}])");
  EXPECT_EQ(WriteJson(conversion.faults), R"([{"name":"f"}])");
}

TEST(ConvertReceiveResult, CarriesTheOtherMembersOfAnAlertOver) {
  const Conversion conversion =
      ConvertEntity(R"("a":{"Type":4,"list":[1,{"type":4}],"text":"t","type":4,"value":{"type":8}})");
  EXPECT_EQ(WriteJson(conversion.alerts),
            R"([{"Type":4,"list":[1,{"type":4}],"name":"a","text":"t","value":{"type":8}}])");
  EXPECT_EQ(WriteJson(conversion.faults), "[]");
}

TEST(ConvertReceiveResult, ReplacesTheNameThatAnItemAlreadyHas) {
  for (const char* name : {R"("other")", "7", "null", "[1]", R"({"type":4})"}) {
    SCOPED_TRACE(name);
    const std::string had = R"({"name":)" + std::string(name);
    const Conversion conversion =
        ConvertEntity(R"("a":)" + had + R"(,"type":4,"value":1},"f":)" + had + R"(,"type":8,"value":1})");
    EXPECT_EQ(WriteJson(conversion.alerts), R"([{"name":"a","value":1}])");
    EXPECT_EQ(WriteJson(conversion.faults), R"([{"name":"f","value":1}])");
  }
}

TEST(ConvertReceiveResult, KeepsAnEntityThatHeldOnlyAlertsAndFaultsAsAnEmptyObject) {
  EXPECT_EQ(ConvertEntity(R"("a":{"type":4,"value":1},"f":{"type":8,"value":1})").text, EntityText(""));
}

TEST(ConvertReceiveResult, KeepsAnEmptyEntity) { EXPECT_EQ(ConvertEntity("").text, EntityText("")); }

TEST(ConvertReceiveResult, ListsAlertsOfOneNameOncePerEntity) {
  const Conversion conversion =
      Convert(R"({"version":4.0,"right":{"hot":{"type":4,"value":2}},"left":{"hot":{"type":4,"value":1}}})");
  EXPECT_EQ(conversion.text, "{\"left\":{},\"right\":{},\"version\":4.0}\n");
  EXPECT_EQ(WriteJson(conversion.alerts), R"([{"name":"hot","value":1},{"name":"hot","value":2}])");
}

TEST(ConvertReceiveResult, TakesNamesThatAreMembersElsewhere) {
  ExpectResults(ConvertEntity(R"("type":{"type":4,"value":1},"value":{"type":8,"value":2},"name":{"type":1,"value":3},)"
                              R"("version":{"type":2,"value":4},"":{"type":4,"value":5})"),
                EntityText(R"("name":3,"version":4)"), R"([{"name":"","value":5},{"name":"type","value":1}])",
                R"([{"name":"value","value":2}])");
}

// --- What is neither an entity nor an item ---

TEST(ConvertReceiveResult, CarriesRootMembersThatAreNotObjectsThrough) {
  for (const char* value : {"null", "7", "-0.5", "true", R"("text")", "[]", R"([{"a":{"type":4,"value":1}}])"}) {
    SCOPED_TRACE(value);
    ExpectResults(Convert(R"({"version":4.0,"extra":)" + std::string(value) + "}"),
                  R"({"extra":)" + std::string(value) + ",\"version\":4.0}\n");
  }
}

TEST(ConvertReceiveResult, CarriesEntityMembersThatAreNotObjectsThrough) {
  for (const char* value : {"null", "7", "-0.5", "false", R"("text")", "[]", R"([{"type":4,"value":1}])"}) {
    SCOPED_TRACE(value);
    ExpectResults(ConvertEntity(R"("extra":)" + std::string(value) + R"(,"f":{"type":8,"value":1})"),
                  EntityText(R"("extra":)" + std::string(value)), "[]", R"([{"name":"f","value":1}])");
  }
}

TEST(ConvertReceiveResult, TakesAnItemInThePlaceOfAnEntityForAnEntity) {
  ExpectResults(Convert(R"({"odd":{"type":4,"value":1},"version":4.0})"),
                "{\"odd\":{\"type\":4,\"value\":1},\"version\":4.0}\n");
}

// --- Order ---

TEST(ConvertReceiveResult, OrdersEntitiesAndItemsByTheBytesOfTheirNames) {
  // Capitals come before small letters, a name before its extensions, and letters beyond ASCII last.
  const Conversion conversion = Convert(
      R"({"version":4.0,)"
      R"("b":{"z":{"type":4,"value":7},"\u00e9":{"type":4,"value":8},"Z":{"type":4,"value":6},"s":{"value":2}},)"
      R"("a":{"a":{"type":4,"value":5},"B":{"type":4,"value":4},"f":{"type":8,"value":2}},)"
      R"("B":{"ab":{"type":4,"value":3},"a":{"type":4,"value":2},"10":{"type":4,"value":0},)"
      R"("9":{"type":4,"value":1},"f":{"type":8,"value":1},"c":{"value":1},"C":{"value":0}}})");
  EXPECT_EQ(conversion.text, "{\"B\":{\"C\":0,\"c\":1},\"a\":{},\"b\":{\"s\":2},\"version\":4.0}\n");
  ASSERT_EQ(conversion.alerts.size(), 9u);
  const std::vector<std::string> names = {"10", "9", "a", "ab", "B", "a", "Z", "z", "\xc3\xa9"};
  for (Json::ArrayIndex i = 0; i < 9; ++i) {
    EXPECT_EQ(conversion.alerts[i]["name"].asString(), names[i]);
    EXPECT_EQ(conversion.alerts[i]["value"].asInt(), static_cast<int>(i));
  }
  EXPECT_EQ(WriteJson(conversion.faults), R"([{"name":"f","value":1},{"name":"f","value":2}])");
}

TEST(ConvertReceiveResult, PutsEntitiesAfterTheVersionWhereTheirNamesBelong) {
  EXPECT_EQ(Convert(R"({"zone":{"a":{"type":1,"value":1}},"version":4.0,"area":{"a":{"type":1,"value":2}}})").text,
            "{\"area\":{\"a\":2},\"version\":4.0,\"zone\":{\"a\":1}}\n");
}

// --- Names that hold NULs ---

// A removal that ends at the NUL would take "a" away and leave the alert in the entity.
TEST(ConvertReceiveResult, RemovesAnAlertWithANulInItsNameWhole) {
  const Conversion conversion = ConvertEntity(R"("a":{"type":1,"value":1},"a\u0000b":{"type":4,"value":2})");
  EXPECT_EQ(conversion.text, EntityText(R"("a":1)"));
  ASSERT_EQ(conversion.alerts.size(), 1u);
  EXPECT_EQ(conversion.alerts[0]["name"].asString(), std::string("a\0b", 3));
  EXPECT_EQ(conversion.alerts[0]["value"].asInt(), 2);
}

TEST(ConvertReceiveResult, KeepsAnAttributeBesideAnAlertOfTheSameBeginning) {
  const Conversion conversion =
      ConvertEntity(R"("a":{"type":8,"value":1},"a\u0000":{"type":1,"value":2},"a\u0000b":{"type":1,"value":3},)"
                    R"("\u0000":{"type":1,"value":4},"":{"type":4,"value":5})");
  EXPECT_EQ(conversion.text, EntityText(R"("\u0000":4,"a\u0000":2,"a\u0000b":3)"));
  EXPECT_EQ(WriteJson(conversion.alerts), R"([{"name":"","value":5}])");
  EXPECT_EQ(WriteJson(conversion.faults), R"([{"name":"a","value":1}])");
}

TEST(ConvertReceiveResult, ListsAlertsOfOneBeginningOneByOne) {
  ExpectResults(
      ConvertEntity(R"("a":{"type":4,"value":1},"a\u0000b":{"type":4,"value":2},"a\u0000c":{"type":8,"value":3})"),
      EntityText(""), R"([{"name":"a","value":1},{"name":"a\u0000b","value":2}])",
      R"([{"name":"a\u0000c","value":3}])");
}

TEST(ConvertReceiveResult, KeepsEntitiesOfOneBeginningApart) {
  ExpectResults(
      Convert(
          R"({"version":4.0,"e":{"s":{"type":1,"value":1}},"e\u0000x":{"a":{"type":4,"value":2},"s":{"value":3}}})"),
      "{\"e\":{\"s\":1},\"e\\u0000x\":{\"s\":3},\"version\":4.0}\n", R"([{"name":"a","value":2}])");
}

TEST(ConvertReceiveResult, ComparesTheNamesOfAnItemsMembersWhole) {
  const Conversion conversion =
      ConvertEntity(R"("a":{"name\u0000":"n","type":4,"type\u0000x":8,"value":1,"value\u0000":2},)"
                    R"("s":{"type\u0000":4,"value\u0000":2})");
  EXPECT_EQ(conversion.text, EntityText(R"("s":null)"));
  EXPECT_EQ(WriteJson(conversion.alerts),
            R"([{"name":"a","name\u0000":"n","type\u0000x":8,"value":1,"value\u0000":2}])");
}

TEST(ConvertReceiveResult, PassesTheVersionOverEvenBesideAVersionWithANul) {
  EXPECT_EQ(Convert(R"({"version":4.0,"version\u0000":5.0})").text, "{\"version\":4.0,\"version\\u0000\":5.0}\n");
}

// --- The text ---

TEST(ConvertReceiveResult, WritesOneLineWithoutBlanks) {
  const Conversion conversion = Convert(
      "{\n  \"version\" : 4.0,\r\n\t\"e\" : {\n    \"s\" : { \"type\" : 1, \"value\" : [ 1, { \"b\" : null } ] },\n"
      "    \"a\" : { \"type\" : 4, \"value\" : true }\n  }\n}\n\n");
  EXPECT_EQ(conversion.text, EntityText(R"("s":[1,{"b":null}])"));
  EXPECT_EQ(WriteJson(conversion.alerts), R"([{"name":"a","value":true}])");
}

TEST(ConvertReceiveResult, EscapesTextsAndKeepsThemWhole) {
  const std::string members = R"("\"q\"":"\\ \" \n \t \u0000 end")";
  EXPECT_EQ(ConvertEntity(R"("\"q\"":{"type":1,"value":"\\ \" \n \t \u0000 end"})").text, EntityText(members));
}

TEST(ConvertReceiveResult, KeepsLettersBeyondAscii) {
  const std::string name = "temp\xc3\xa9rature";
  const std::string value = "\xe2\x82\xac \xf0\x9f\x98\x80";
  const Conversion conversion =
      ConvertEntity("\"" + name + R"(":{"type":1,"value":")" + value + R"("},"caf\u00e9":{"type":4,"value":"\u00fc"})");
  const Json::Value document = ParseJson(conversion.text);
  ASSERT_EQ(document["e"].getMemberNames(), std::vector<std::string>{name});
  EXPECT_EQ(document["e"][name].asString(), value);
  ASSERT_EQ(conversion.alerts.size(), 1u);
  EXPECT_EQ(conversion.alerts[0]["name"].asString(), "caf\xc3\xa9");
  EXPECT_EQ(conversion.alerts[0]["value"].asString(), "\xc3\xbc");
}

TEST(ConvertReceiveResult, KeepsNumbersAsTheyAre) {
  const Conversion conversion = ConvertEntity(
      R"("a":{"value":18446744073709551615},"b":{"value":-9223372036854775808},"c":{"value":4.0},"d":{"value":4},)"
      R"("e":{"value":0.125},"f":4294967295)");
  EXPECT_EQ(conversion.text, EntityText(R"("a":18446744073709551615,"b":-9223372036854775808,"c":4.0,"d":4,)"
                                        R"("e":0.125,"f":4294967295)"));
}

TEST(ConvertReceiveResult, ReadsOverCommentsAndWritesNone) {
  const Conversion conversion = Convert(
      "// the device's answer\n"
      "{ /* tag */ \"version\": 4.0, // four\n"
      "  /* entity */ \"e\": {\n"
      "    \"s\": /* status */ {\"type\": 1, /* on */ \"value\": 25}, // same line\n"
      "    \"a\": /* alert */ {\"type\": 4, \"value\": true}\n"
      "  } /* done */\n"
      "} // end");
  EXPECT_EQ(conversion.text, EntityText(R"("s":25)"));
  ASSERT_EQ(conversion.alerts.size(), 1u);
  EXPECT_EQ(conversion.alerts[0], ParseJson(R"({"name":"a","value":true})"));
  // Comments are collected, and an item keeps its own in the list.
  EXPECT_EQ(conversion.alerts[0].getComment(Json::commentBefore), "/* alert */");
}

// --- Deep nesting ---

// The JSON reader throws on it; it counts as text that is not JSON.
TEST(ConvertReceiveResult, RejectsTextThatIsNestedTooDeep) {
  const size_t depth = 100000;
  ExpectRejected(Repeated("[", depth));
  ExpectRejected(Repeated("[", depth) + Repeated("]", depth));
  ExpectRejected(Repeated(R"({"a":)", depth) + "1" + Repeated("}", depth));
  ExpectRejected(R"({"version":4.0,"e":)" + Repeated("[", depth) + Repeated("]", depth) + "}");
  ExpectRejected(R"({"version":4.0,"e":{"s":{"type":4,"value":)" + Repeated(R"({"a":)", depth) + "1" +
                 Repeated("}", depth) + "}}}");
}

TEST(ConvertReceiveResult, TakesNestingOfSomeHundredLevels) {
  const std::string nested = Repeated("[", 400) + Repeated("]", 400);
  const std::string item = R"({"type":4,"value":)" + nested + "}";
  const Conversion conversion = ConvertEntity(R"("s":)" + nested + R"(,"a":)" + item);
  EXPECT_EQ(conversion.text, EntityText(R"("s":)" + nested));
  EXPECT_EQ(WriteJson(conversion.alerts), R"([{"name":"a","value":)" + nested + "}]");
}
