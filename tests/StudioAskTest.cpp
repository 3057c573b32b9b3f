// What the studio's page asks, and what it is answered.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <fstream>
#include <sstream>
#include <string>

#include "ToolSupport.h"
#include "inspect/json/Document.h"
#include "studio/Ask.h"

namespace {

using morvix::inspect::json::CompactText;
using testing::ElementsAre;
using testing::HasSubstr;

std::string TextOf(const std::string& path) {
  const std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string Example(const std::string& name) { return TextOf(std::string(EXAMPLES_DIR) + "/" + name); }

const std::string& Kettle() {
  static const std::string text = Example("kettle.json");
  return text;
}

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  std::istringstream stream(text);
  std::string errors;
  EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors)) << errors << text;
  return value;
}

// The answer to a request about an entity of the kettle, with more members given as JSON.
Json::Value AskKettle(const std::string& ask, const std::string& members = "{}", const std::string& text = Kettle()) {
  Json::Value request = Parsed(members);
  request["ask"] = ask;
  request["configuration"] = text;
  if (!request.isMember("entity")) request["entity"] = 0;
  return Parsed(morvix::studio::Ask(CompactText(request)));
}

std::vector<std::string> TextsOf(const Json::Value& list, const char* member) {
  std::vector<std::string> texts;
  for (const Json::Value& one : list) texts.push_back(one[member].asString());
  return texts;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(StudioAsk, RefusesWhatIsNoRequest) {
  for (const char* request : {"", "[]", "{", "{\"ask\": 1}", "{\"ask\": \"nothing\"}", "{\"ask\": \"lint\"}"}) {
    EXPECT_TRUE(Parsed(morvix::studio::Ask(request)).isMember("error")) << request;
  }
  EXPECT_EQ(Parsed(morvix::studio::Ask("{\"ask\": \"nothing\"}"))["error"], "unknown request \"nothing\"");
}

TEST(StudioAsk, ListsEntities) {
  const Json::Value answer = AskKettle("entities", "{}", Example("gateway.json"));
  ASSERT_GT(answer["entities"].size(), 1U);
  EXPECT_EQ(answer["entities"][0]["name"], Parsed(Example("gateway.json"))["entities"][0]["name"]);
}

TEST(StudioAsk, GivesTheFindingsOfTheTool) {
  for (const char* name : {"zero-ratio.json", "json-syntax.json", "hostile-names.json", "fields-overlap.json"}) {
    const std::string path = std::string(LINT_DIR) + "/" + name;
    const ToolRun run = RunTool({"lint", "--severity", "info", "--format", "json", path});
    Json::Value expected = Parsed(run.out);
    Json::Value answer = AskKettle("lint", "{}", TextOf(path));
    for (Json::Value& finding : expected["findings"]) finding.removeMember("file");
    for (Json::Value& finding : answer["findings"]) finding.removeMember("file");
    EXPECT_EQ(CompactText(answer), CompactText(expected)) << name;
  }
}

TEST(StudioAsk, RefusesConfigurationsThatTakeTooLong) {
  const std::string text = Kettle() + std::string(8U << 20, ' ');
  const std::string expected = " bytes; expected at most 8388608";
  EXPECT_THAT(AskKettle("lint", "{}", text)["error"].asString(), HasSubstr(expected));
  EXPECT_THAT(AskKettle("entity", "{}", text)["error"].asString(), HasSubstr(expected));
}

TEST(StudioAsk, DescribesAnEntityAsTheToolDoes) {
  const Json::Value answer = AskKettle("entity");
  const std::string path = std::string(EXAMPLES_DIR) + "/kettle.json";
  EXPECT_EQ(answer["description"], Parsed(RunTool({"show", "--format", "json", path}).out));
  EXPECT_EQ(answer["layout"], Parsed(RunTool({"layout", "--format", "json", path}).out));
}

TEST(StudioAsk, TellsTheControlsOfWhatCanBeWritten) {
  const Json::Value attributes = AskKettle("entity")["attributes"];
  EXPECT_EQ(CompactText(attributes[0]["control"]), R"({"kind":"switch"})");
  EXPECT_EQ(CompactText(attributes[1]["control"]), R"({"items":["boil","green_tea","keep_warm"],"kind":"choice"})");
  EXPECT_EQ(CompactText(attributes[2]["control"]), R"({"kind":"number","max":"100","min":"40","step":"0.5"})");
  EXPECT_FALSE(attributes[3].isMember("control"));
  EXPECT_EQ(attributes[3]["pointer"], "/entities/0/attrs/3");
}

TEST(StudioAsk, SwapsTheLimitsOfANegativeRatio) {
  const std::string text = Replaced(Kettle(), "\"ratio\": 0.5", "\"ratio\": -0.5");
  const Json::Value control = AskKettle("entity", "{}", text)["attributes"][2]["control"];
  EXPECT_EQ(CompactText(control), R"({"kind":"number","max":"40","min":"-20","step":"0.5"})");
}

// Row 0 of the kettle: five free bits, the program's two, the power's one.
TEST(StudioAsk, DrawsRowsOfElements) {
  const Json::Value rows = AskKettle("entity")["rows"];
  ASSERT_EQ(rows.size(), 6U);
  const Json::Value& pieces = rows[0]["pieces"];
  ASSERT_EQ(pieces.size(), 3U);
  EXPECT_EQ(CompactText(pieces[0]), R"({"column":0,"columns":5,"elements":[],"text":"","valueBits":""})");
  EXPECT_EQ(CompactText(pieces[1]), R"({"column":5,"columns":2,"elements":[1],"text":"program","valueBits":""})");
  EXPECT_EQ(CompactText(pieces[2]), R"({"column":7,"columns":1,"elements":[0],"text":"power","valueBits":""})");
  EXPECT_TRUE(rows[1]["endsWrite"].asBool());
}

TEST(StudioAsk, EncodesValuesAndReadsThePacketBack) {
  const Json::Value answer = AskKettle("encode", R"({"values": {"power": true, "program": 2, "target": "85"}})");
  EXPECT_EQ(answer["encoding"]["packet"], "01 07 05 5a");
  const Json::Value& reading = answer["reading"];
  EXPECT_EQ(reading["packet"], "01 07 05 5a");
  EXPECT_TRUE(reading["isWrite"].asBool());
  EXPECT_THAT(TextsOf(reading["parts"], "kind"), ElementsAre("command", "flags", "payload", "payload"));
  EXPECT_EQ(reading["parts"][1]["text"], "sets power, program, target");
  EXPECT_EQ(reading["values"][1]["value"], 2);
  EXPECT_EQ(reading["values"][1]["text"], "keep_warm");
}

TEST(StudioAsk, EncodesForASubDevice) {
  const Json::Value answer =
      AskKettle("encode", R"({"values": {"power": true}, "command": "cc-write", "subDevice": 5})");
  EXPECT_EQ(answer["reading"]["subDevice"], 5);
  EXPECT_EQ(answer["reading"]["command"], "cc-write");
  EXPECT_THAT(AskKettle("encode", R"({"values": {"power": true}, "command": "notify"})")["error"].asString(),
              HasSubstr("not a command that writes values"));
}

// 4294967295 and -1 are the same 32 bits.
TEST(StudioAsk, TakesTheIdsThatASubDeviceCanHave) {
  const auto answerTo = [](const std::string& id) {
    return AskKettle("encode", R"({"values": {"power": true}, "subDevice": )" + id + "}");
  };
  EXPECT_EQ(answerTo("4294967295")["encoding"]["packet"], "01 ff ff ff ff 01 01 00");
  EXPECT_EQ(answerTo("-1")["encoding"]["packet"], "01 ff ff ff ff 01 01 00");
  EXPECT_EQ(answerTo("-2147483648")["encoding"]["packet"], "01 00 00 00 80 01 01 00");
  for (const char* id : {"4294967296", "-2147483649", "99999999999999999999", "1.5", "\"5\"", "null", "[]"}) {
    EXPECT_EQ(answerTo(id)["error"], "the id of a sub-device is an integer from -2147483648 to 4294967295") << id;
  }
}

TEST(StudioAsk, TellsWhyAValueIsRefused) {
  const Json::Value answer = AskKettle("encode", R"({"values": {"target": "101"}})");
  EXPECT_FALSE(answer.isMember("reading"));
  EXPECT_THAT(answer["encoding"]["attributes"][2]["note"].asString(), HasSubstr("refused"));
  EXPECT_EQ(answer["encoding"]["problems"][0], "\"target\" refused: Validate uint value failed. (expected 40 to 100)");
}

// The program's bits are 1 and 0, of which bit 0 is the power's as well. dp4 sends nothing then either.
TEST(StudioAsk, MakesNoPacketThatSaysAnotherThing) {
  const std::string text =
      Replaced(Kettle(), R"("bit_offset": 1, "unit": "bit", "len": 2)", R"("bit_offset": 0, "unit": "bit", "len": 2)");
  const Json::Value answer = AskKettle("encode", R"({"values": {"power": true, "program": 2}})", text);
  EXPECT_FALSE(answer.isMember("reading")) << CompactText(answer);
  EXPECT_THAT(answer["encoding"]["problems"][0].asString(), HasSubstr("\"power\" overwritten"));
  EXPECT_EQ(RunTool({"encode", "-", "--set", "power=true", "--set", "program=2"}, text).out, "");
}

TEST(StudioAsk, RefusesMembersOfAnotherKind) {
  for (const char* values : {"1", "[]", "\"power\"", "[[[[]]]]", "true"}) {
    const std::string members = std::string(R"({"form": "c-array", "packet": "01 01 00", "values": )") + values + "}";
    for (const char* ask : {"encode", "export"}) {
      EXPECT_EQ(AskKettle(ask, members)["error"], "the request's \"values\" is not an object") << ask << values;
    }
  }
  EXPECT_TRUE(AskKettle("flip", R"({"packet": "04 00", "bit": -1})").isMember("error"));
  EXPECT_TRUE(AskKettle("flip", R"({"packet": "04 00", "bit": 18446744073709551615})").isMember("error"));
  EXPECT_TRUE(AskKettle("read", R"({"packet": ["04"]})").isMember("error"));
  EXPECT_TRUE(AskKettle("entity", R"({"entity": 4294967296})").isMember("error"));
  EXPECT_TRUE(AskKettle("entity", R"({"entity": {}})").isMember("error"));
  EXPECT_TRUE(AskKettle("capture", R"({"line": 1, "first": 1, "text": ""})").isMember("error"));
  EXPECT_TRUE(AskKettle("match", R"({"text": null})").isMember("error"));
  const std::string deep = R"({"ask": "encode", "values": )" + std::string(100000, '[');
  EXPECT_EQ(Parsed(morvix::studio::Ask(deep))["error"], "the request is not a JSON object");
}

// 92.4 degrees: raw 1124 = 0x0464 tenths above -20.
TEST(StudioAsk, ReadsANotification) {
  const Json::Value answer = AskKettle("read", R"({"packet": "04 05 5a 04 64 01 00"})");
  EXPECT_EQ(answer["command"], "notify");
  EXPECT_EQ(answer["payloadAt"], 1);
  EXPECT_EQ(answer["payloadBytes"], 6);
  EXPECT_EQ(
      CompactText(answer["values"][3]),
      R"({"bits":"04 64","element":3,"place":{"bits":16,"firstBit":16},"raw":1124,"text":"92.4","value":"92.4"})");
  EXPECT_TRUE(answer["values"][4]["active"].asBool());
  EXPECT_FALSE(answer["values"][5].isMember("active"));
  EXPECT_EQ(Parsed(answer["document"].asString())["kettle"]["temperature"], "92.4");
  EXPECT_EQ(answer["parts"][3]["bytes"], 2);  // the temperature's
}

TEST(StudioAsk, NotesWhatAPacketLacks) {
  const Json::Value answer = AskKettle("read", R"({"packet": "04 05 ff 04 64 01 00 00"})");
  EXPECT_THAT(CompactText(answer["notes"]), HasSubstr("surplus: 1 byte"));
  EXPECT_THAT(answer["values"][2]["note"].asString(), HasSubstr("out-of-range: raw 255, expected 0 to 120"));
  EXPECT_THAT(AskKettle("read", R"({"packet": "63"})")["refused"].asString(), HasSubstr("command 63 is unknown"));
  EXPECT_THAT(AskKettle("read", R"({"packet": "0x"})")["error"].asString(), HasSubstr("column 3"));
}

TEST(StudioAsk, FlipsABit) {
  EXPECT_EQ(AskKettle("flip", R"({"packet": "04 05 5a 04 64 01 00", "bit": 47})")["packet"], "04 05 5a 04 64 01 01");
  EXPECT_TRUE(AskKettle("flip", R"({"packet": "04 05 5a 04 64 01 00", "bit": 48})").isMember("error"));
  EXPECT_TRUE(AskKettle("flip", R"({"packet": "02", "bit": 0})").isMember("error"));
}

// Bit 7 is the power, whose flag is bit 0 of the flags.
TEST(StudioAsk, FlipsABitOfAWriteWithItsFlag) {
  EXPECT_EQ(AskKettle("flip", R"({"packet": "01 04 00 5a", "bit": 7})")["packet"], "01 05 01 5a");
  EXPECT_EQ(AskKettle("flip", R"({"packet": "01 04 00 5a", "bit": 0})")["packet"], "01 04 80 5a");
}

TEST(StudioAsk, ReadsTheLinesOfACapture) {
  const Json::Value answer = AskKettle(
      "capture",
      R"({"line": "time", "first": 11, "text": "1.5 04 05 5a 04 64 01 00\r\n\nnothing\n2.5 04\n3.5 01 01 01 00"})");
  EXPECT_EQ(answer["unmatched"], 1);
  ASSERT_EQ(answer["rows"].size(), 3U);
  EXPECT_EQ(CompactText(answer["rows"][0]),
            R"({"active":[4],"command":"notify","line":11,"packet":"04 05 5a 04 64 01 00",)"
            R"("time":"1.5","values":[1,2,85,92.400000000000006,1,0,0]})");
  EXPECT_EQ(answer["rows"][1]["line"], 14);
  EXPECT_THAT(answer["rows"][1]["error"].asString(), HasSubstr("too short"));
  EXPECT_EQ(CompactText(answer["rows"][2]["values"]), "[1,null,null,null,null,null,null]");
}

// 1e308 * 1500 is beyond the range of a double.
TEST(StudioAsk, LeavesInfiniteNumbersOutOfRows) {
  const std::string text = Replaced(Kettle(), "\"ratio\": 0.1", "\"ratio\": 1e308");
  const Json::Value answer = AskKettle("capture", R"({"line": "", "first": 1, "text": "04 05 5a 04 64 01 00"})", text);
  EXPECT_TRUE(answer["rows"][0]["values"][3].isNull()) << CompactText(answer);
  EXPECT_EQ(answer["rows"][0]["values"][2], 85);
}

TEST(StudioAsk, ReadsJsonAndBarePackets) {
  const Json::Value answer = AskKettle(
      "capture", R"({"line": "", "first": 1, "text": "{\"time\": 7, \"packet\": \"0400\"}\n04 00\nnot hex"})");
  ASSERT_EQ(answer["rows"].size(), 3U);
  EXPECT_EQ(answer["rows"][0]["time"], "7");
  EXPECT_EQ(answer["rows"][0]["packet"], "04 00");
  EXPECT_EQ(answer["rows"][1]["packet"], "04 00");
  EXPECT_TRUE(answer["rows"][2].isMember("error"));
}

TEST(StudioAsk, FindsTheReadyMadePatternOfLines) {
  const auto lineOf = [](const std::string& text) {
    Json::Value request(Json::objectValue);
    request["ask"] = "match";
    request["text"] = text;
    return Parsed(morvix::studio::Ask(CompactText(request)))["line"].asString();
  };
  EXPECT_EQ(lineOf("04 00\n04 01"), "");
  EXPECT_EQ(lineOf("{\"packet\": \"0400\"}"), "");
  EXPECT_EQ(lineOf("2024-05-01 10:00:00 04 00"), "time");
  EXPECT_EQ(lineOf("10:00:00 RX 04 00\n10:00:00 TX 02"), "direction");
  EXPECT_THAT(morvix::studio::Ask(R"({"ask": "match", "text": "04", "line": "("})"), HasSubstr("error"));
}

TEST(StudioAsk, ComparesAsTheToolDoes) {
  Json::Value members(Json::objectValue);
  members["after"] = Replaced(Kettle(), "keep_warm", "hold");
  const Json::Value answer = AskKettle("compare", CompactText(members));
  EXPECT_EQ(answer["counts"]["warning"], 1);
  EXPECT_EQ(answer["findings"][0]["attributes"][0], "program");
}

TEST(StudioAsk, TellsWhichOfTwoConfigurationsIsBroken) {
  Json::Value members(Json::objectValue);
  members["after"] = "{\n  1";
  EXPECT_THAT(AskKettle("compare", CompactText(members))["error"].asString(), HasSubstr("next version:2:3: not JSON"));
  members["after"] = std::string((8U << 20) + 1, ' ');
  EXPECT_THAT(AskKettle("compare", CompactText(members))["error"].asString(),
              HasSubstr("the next version has 8388609"));
  EXPECT_THAT(AskKettle("compare", CompactText(members), "[")["error"].asString(), HasSubstr("configuration:1:2: not"));
}

TEST(StudioAsk, ExportsWithTheCommandThatDoesTheSame) {
  const Json::Value answer = AskKettle("export", R"({"form": "svg", "file": "my kettle.json"})");
  EXPECT_EQ(answer["command"], "dp4 layout 'my kettle.json' --svg 'my kettle.svg'");
  EXPECT_EQ(answer["files"][0]["name"], "my kettle.svg");
  EXPECT_EQ(answer["files"][0]["text"].asString(), RunTool({"layout", "kettle.json", "--svg", "-"}).out);
  EXPECT_THAT(TextsOf(AskKettle("export", R"({"form": "c"})")["files"], "name"),
              ElementsAre("kettle.h", "kettle.c", "kettle_test.c"));
  const std::string broken = Replaced(Kettle(), "\"ratio\": 0.5", "\"ratio\": 0");
  EXPECT_THAT(AskKettle("export", R"({"form": "c"})", broken)["error"].asString(), HasSubstr("no code is made"));
}

TEST(StudioAsk, ExportsAPacketWithTheCommandThatMakesIt) {
  EXPECT_EQ(AskKettle("export", R"({"form": "svg", "file": "-k.json"})")["command"],
            "dp4 layout ./-k.json --svg ./-k.svg");
  const Json::Value answer = AskKettle("export", R"({"form": "c-array", "file": "kettle.json", "command": "cc-write",
      "packet": "07 05 00 00 00 01 01 00", "subDevice": 5, "values": {"power": true}})");
  EXPECT_EQ(answer["command"],
            "dp4 encode kettle.json --set power=true --command cc-write --sub-device 5 --output c-array");
  const ToolRun run = RunTool({"encode", "kettle.json", "--set", "power=true", "--command", "cc-write", "--sub-device",
                               "5", "--output", "c-array"});
  EXPECT_EQ(answer["files"][0]["text"].asString(), run.out);
}

TEST(StudioAsk, NamesTheEntityInCommandsWhereThereAreSeveral) {
  const Json::Value answer = AskKettle("export", R"({"form": "vectors", "entity": 1})", Example("gateway.json"));
  const std::string name = Parsed(Example("gateway.json"))["entities"][1]["name"].asString();
  EXPECT_EQ(answer["command"], "dp4 vectors configuration.json --entity " + name + " > configuration.vectors.json");
  // By its id where the name would be another's as well, or is none.
  const std::string box = R"(, "display_name": "Box", "attrs": []})";
  for (const std::string other : {"box", ""}) {
    const std::string text =
        R"({"entities": [{"id": 7, "name": "box")" + box + R"(, {"id": 8, "name": ")" + other + "\"" + box + "]}";
    EXPECT_EQ(AskKettle("export", R"({"form": "svg", "entity": 1})", text)["command"],
              "dp4 layout configuration.json --entity 8 --svg configuration.svg");
  }
}

TEST(StudioAsk, SurvivesHostileConfigurations) {
  const std::string deep = "{\"entities\": " + std::string(100000, '[');
  const std::string throwing = Replaced(Kettle(), "\"max\": 120", "\"max\": {}");
  for (const std::string& text : {deep, throwing, std::string("\0\0", 2), std::string("{\"entities\":[1]}")}) {
    EXPECT_TRUE(AskKettle("entity", "{}", text).isMember("error"));
    EXPECT_GT(AskKettle("lint", "{}", text)["findings"].size(), 0U);
  }
}

}  // namespace
