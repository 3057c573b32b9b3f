// `dp4 vectors`. Every vector is worked out again by the model of the codec, which shares no code with the tool.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>
#include <string>

#include "Cases.h"
#include "Dp4Configuration.h"
#include "Maker.h"
#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

using support::ExpectEqual;
using testing::HasSubstr;

Json::Value VectorsOf(const Json::Value& configuration, std::vector<std::string> more = {}) {
  more.insert(more.begin(), {"vectors", "-"});
  const ToolRun run = RunTool(more, WriteJson(configuration));
  EXPECT_EQ(run.exitCode, 0) << run.err;
  return ParseJson(run.out);
}

Json::Value ConfigurationOf(const Json::Value& entity) {
  Json::Value configuration;
  configuration["entities"].append(entity);
  return configuration;
}

Json::Value DocumentOf(const Json::Value& entity, const Json::Value& values) {
  Json::Value document;
  document[entity["name"].asString()] = values;
  return document;
}

// The packet that the model makes of these values; empty when it refuses one.
std::string ModelPacket(const Json::Value& entity, const Json::Value& values) {
  model::Encoded encoded = model::EncodeEntity(entity, DocumentOf(entity, values));
  if (encoded.sizeValue == 0) return "";
  model::Package package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  package.flags = encoded.flags.data();
  package.sizeFlags = encoded.sizeFlags;
  package.value = encoded.value.data();
  package.sizeValue = encoded.sizeValue;
  model::Lines lines;
  model::Bytes buffer(1 + package.sizeFlags + package.sizeValue + 4);
  buffer.resize(model::Pack(package, buffer, buffer.size() - 4, lines));
  return ToHex(buffer);
}

// A value in user units is the decoded one, whose numbers have six decimals.
bool IsSame(const Json::Value& value, const Json::Value& decoded) {
  if (!value.isNumeric() || value.isBool()) return value == decoded;
  const double number = decoded.isString() ? std::stod(decoded.asString()) : decoded.asDouble();
  return std::abs(value.asDouble() - number) <= 1e-6 * std::max(1.0, std::abs(number));
}

// Decoding gives what these vectors list. `configuration` has one entity.
void ExpectDecoded(const Json::Value& configuration, const Json::Value& vectors) {
  const Json::Value& entity = configuration["entities"][0];
  std::map<std::string, std::string> members;  // of the decoded results, by name
  std::map<std::string, std::string> keys;
  for (const Json::Value& attribute : entity["attrs"]) {
    const std::string type = attribute["type"].asString();
    const bool isActive = type == "alert" || type == "fault";
    members[attribute["name"].asString()] = isActive ? type + "s" : "values";
    keys[attribute["name"].asString()] = attribute[isActive ? "display_name" : "name"].asString();
  }
  for (const Json::Value& vector : vectors) {
    const ToolRun run = RunTool({"decode", "-", vector["packet"].asString()}, WriteJson(configuration));
    const Json::Value decoded = ParseJson(run.out);
    for (const std::string& name : vector["values"].getMemberNames()) {
      const Json::Value& values = decoded[members.at(name)];
      const Json::Value& found = members.at(name) == "values" ? values[entity["name"].asString()] : values;
      EXPECT_TRUE(IsSame(vector["values"][name], found[keys.at(name)])) << WriteJson(vector) << ' ' << run.out;
    }
  }
}

// Encoding refuses these values for the same reasons.
void ExpectRefused(const Json::Value& configuration, const Json::Value& vectors) {
  for (const Json::Value& vector : vectors) {
    std::vector<std::string> arguments = {"encode", "-"};
    for (const std::string& name : vector["values"].getMemberNames()) {
      arguments.insert(arguments.end(), {"--set", name + "=" + WriteJson(vector["values"][name])});
    }
    const ToolRun run = RunTool(arguments, WriteJson(configuration));
    EXPECT_EQ(run.exitCode, 1) << WriteJson(vector);
    std::string reasons;
    std::istringstream lines(run.err);
    for (std::string line; std::getline(lines, line);) {
      reasons += (reasons.empty() ? "" : "; ") + line.substr(line.find(": \"") + 2);
    }
    EXPECT_EQ(vector["reason"].asString(), reasons);
  }
}

Json::Value KettleWithTarget(const char* object, const char* member, int value) {
  Json::Value configuration = ParseJson(ReadFile(EXAMPLES_DIR "/kettle.json"));
  for (Json::Value& attribute : configuration["entities"][0]["attrs"]) {
    if (attribute["name"] == "target") attribute[object][member] = value;
  }
  return configuration;
}

std::vector<std::string> LinesOf(const Json::Value& vectors, Json::ArrayIndex size) {
  std::vector<std::string> lines;
  for (const Json::Value& vector : vectors) {
    if (vector["values"].size() == size) lines.push_back(WriteJson(vector));
  }
  return lines;
}

void CheckAgainstModel(const Json::Value& entity, const Json::Value& vectors) {
  const support::Inputs inputs(entity, vectors);
  for (const Json::Value& write : vectors["writes"]) {
    ExpectEqual(write["packet"].asString(), ModelPacket(entity, write["values"]), "a write is the model's");
  }
  for (const Json::Value& refused : vectors["refused"]) {
    const std::string reason = refused["reason"].asString();
    const bool isAltered = reason.find("\" overwritten: ") != std::string::npos ||
                           reason.find("\" mixed: ") != std::string::npos ||
                           reason.find("\" cut: ") != std::string::npos;
    ExpectEqual(ModelPacket(entity, refused["values"]).empty(), !isAltered,
                "what is refused has no packet, or one with another value");
    ExpectEqual(refused["reason"].asString().empty(), false, "a refusal has a reason");
  }
  for (const Json::Value& notification : vectors["notifications"]) {
    std::vector<byte> packet = FromHex(notification["packet"].asString());
    ExpectEqual(packet[0], byte{4}, "a notification is command 4");
    packet.erase(packet.begin());
    const model::Decoded decoded = model::DecodeEntity(entity, packet, Json::Value(Json::objectValue));
    ExpectEqual(WriteJson(notification["document"]), WriteJson(decoded.document), "a document is the model's");
    for (const std::string& name : notification["values"].getMemberNames()) {
      const Json::Value* text =
          decoded.document[entity["name"].asString()].find(name.data(), name.data() + name.size());
      if (text == nullptr) continue;  // an alert, whose key is its display name
      const Json::Value& value = notification["values"][name];
      const Json::Value& expected = (*text)["value"];
      const bool isEqual =
          expected == value || (value.isNumeric() && std::stod(expected.asString()) == value.asDouble());
      ExpectEqual(isEqual, true, "a value is the document's");
    }
  }
}

TEST(Vectors, OfTheKettleAreTheGoldenOnes) {
  ExpectGolden(RunTool({"vectors", "kettle.json"}).out, "kettle.vectors.json");
  ExpectGolden(RunTool({"vectors", "kettle.json", "--format", "c"}).out, "kettle.vectors.c");
}

TEST(Vectors, AreAsTheManualShowsThem) {
  const std::string manual = ReadFile(EXAMPLES_DIR "/../docs/tool.md");
  const std::string command = "$ dp4 vectors kettle.json | head -6\n";
  const size_t begin = manual.find(command) + command.size();
  const std::string sample = manual.substr(begin, manual.find("```", begin) - begin);
  EXPECT_EQ(std::count(sample.begin(), sample.end(), '\n'), 6);
  EXPECT_THAT(RunTool({"vectors", "kettle.json"}).out, testing::StartsWith(sample));
}

TEST(Vectors, OfTheExamplesAreTheModels) {
  for (const char* product : {"kettle", "air_conditioner", "gateway", "power_meter"}) {
    const Json::Value configuration = ParseJson(ReadFile(std::string(EXAMPLES_DIR) + "/" + product + ".json"));
    for (const Json::Value& entity : configuration["entities"]) {
      const Json::Value vectors = VectorsOf(ConfigurationOf(entity), {"--random", "200", "--seed", "5"});
      EXPECT_EQ(vectors["entity"], entity["name"]);
      EXPECT_GE(vectors["notifications"].size(), 200u);
      CheckAgainstModel(entity, vectors);
    }
  }
}

TEST(Vectors, OfMadeUpProductsAreTheModels) {
  size_t writes = 0;
  size_t refused = 0;
  support::ForEachCase(41, 300, [&](support::Source& source) {
    support::Maker maker(source);
    const Json::Value entity = maker.ConfigurationOf(maker.MakeProduct(source.Flip()), source.Flip());
    const ToolRun run = RunTool({"vectors", "-", "--random", "5"}, WriteJson(ConfigurationOf(entity)));
    if (run.exitCode != 0) return;  // the payload of a made-up product can be too long for a packet
    const Json::Value vectors = ParseJson(run.out);
    CheckAgainstModel(entity, vectors);
    writes += vectors["writes"].size();
    refused += vectors["refused"].size();
  });
  EXPECT_GT(writes, 1000u);
  EXPECT_GT(refused, 100u);
}

TEST(Vectors, TryLimitsNeighboursMiddleAndItemsAlone) {
  const Json::Value vectors = VectorsOf(ParseJson(ReadFile(EXAMPLES_DIR "/kettle.json")));
  std::vector<std::string> alone;
  for (const Json::Value& write : vectors["writes"]) {
    if (write["values"].size() == 1) alone.push_back(WriteJson(write["values"]));
  }
  EXPECT_THAT(alone,
              testing::ElementsAre(R"({"power":false})", R"({"power":true})", R"({"program":0})", R"({"program":1})",
                                   R"({"program":2})", R"({"target":40})", R"({"target":40.5})", R"({"target":70})",
                                   R"({"target":99.5})", R"({"target":100})"));
}

TEST(Vectors, OfABinaryAreZerosOnesAndCountedBytes) {
  const Json::Value vectors =
      VectorsOf(ParseJson(Configuration(Attribute("key", "status_writable", "binary", Bytes(0, 3)))));
  EXPECT_EQ(
      WriteJson(vectors["writes"]),
      R"([{"packet":"01 01 00 00 00","values":{"key":"AAAA"}},{"packet":"01 01 ff ff ff","values":{"key":"////"}},)"
      R"({"packet":"01 01 81 a6 cb","values":{"key":"gabL"}}])");
  EXPECT_EQ(vectors["refused"].size(), 0u);
}

// Both have the flag of their own index; the value is found by the name for both.
TEST(Vectors, OfAttributesThatShareANameWriteBoth) {
  const Json::Value vectors = VectorsOf(ParseJson(Configuration(Bool("a", 0, 0) + ", " + Bool("a", 1, 0))));
  EXPECT_EQ(WriteJson(vectors["writes"][1]), R"({"packet":"01 03 01 01","values":{"a":true}})");
}

TEST(Vectors, LeaveOutWhatTakesNoValue) {
  const std::string inverted = Attribute("level", "status_writable", "uint8", Bytes(0, 1), Scaling("9", "3", "1", "0"));
  const Json::Value vectors = VectorsOf(ParseJson(Configuration(inverted)), {"--random", "3"});
  EXPECT_EQ(vectors["writes"].size(), 0u);
  EXPECT_EQ(WriteJson(vectors["notifications"][0]["values"]), "{}");
}

// A device can send what no application can write.
TEST(Vectors, NotifyOfRawValuesThatNoNumberIsWrittenAs) {
  const std::string fine =
      Attribute("level", "status_writable", "uint8", Bytes(0, 1), Scaling("0", "9", "1e-9", "1e9"));
  const Json::Value vectors = VectorsOf(ParseJson(Configuration(fine)));
  EXPECT_EQ(vectors["notifications"].size(), 5u);
  EXPECT_EQ(vectors["notifications"][4]["packet"], "04 09");
  EXPECT_EQ(WriteJson(vectors["notifications"][4]["values"]), R"({"level":1000000000})");
}

// The step above the largest value is less than a double tells at this size, so that it is sent as the largest.
TEST(Vectors, RefuseOnlyWhatTheModuleRefuses) {
  const Json::Value meter = ParseJson(Configuration(Attribute("total", "status_writable", "uint64", Bytes(0, 8),
                                                              Scaling("0", "3086347495041211", "0.1", "1000000"))));
  const Json::Value vectors = VectorsOf(meter);
  ExpectDecoded(meter, vectors["writes"]);
  EXPECT_EQ(vectors["writes"].size(), 5u);
  ExpectRefused(meter, vectors["refused"]);
  EXPECT_EQ(vectors["refused"].size(), 1u);
}

// A fuzzer found that these were no JSON.
TEST(Vectors, TellInfiniteNumbersAsText) {
  const std::string infinite =
      Attribute("level", "status_readonly", "uint8", Bytes(0, 1), Scaling("1", "9", "\"inf\"", "0"));
  const Json::Value vectors = VectorsOf(ParseJson(Configuration(infinite)));
  EXPECT_EQ(WriteJson(vectors["notifications"][0]["values"]), R"({"level":"inf"})");
}

TEST(Vectors, NameThePlaceThatCannotBeWritten) {
  const Json::Value vectors =
      VectorsOf(ParseJson(Configuration(Attribute("on", "status_writable", "bool", Bytes(0, 1)))));
  EXPECT_EQ(vectors["writes"].size(), 0u);
  EXPECT_EQ(vectors["refused"][0]["reason"],
            R"("on" refused: Write bool value failed. (nothing can be written in its place; dp4 lint tells why))");
}

TEST(Vectors, RandomOnesAreTheSameForOneSeedAndOthersForAnother) {
  const auto run = [](const char* seed) {
    return RunTool({"vectors", "power_meter.json", "--random", "20", "--seed", seed}).out;
  };
  EXPECT_EQ(run("1"), run("1"));
  EXPECT_NE(run("1"), run("2"));
  EXPECT_EQ(run("1"), RunTool({"vectors", "power_meter.json", "--random", "20"}).out);
  const Json::Value few = ParseJson(RunTool({"vectors", "power_meter.json"}).out);
  const Json::Value more = ParseJson(run("1"));
  EXPECT_EQ(more["writes"].size(), few["writes"].size() + 20);
  EXPECT_EQ(more["notifications"].size(), few["notifications"].size() + 20);
}

TEST(Vectors, OfOverlappingFieldsHoldTheirValues) {
  const Json::Value kettle = KettleWithTarget("position", "byte_offset", 0);
  const Json::Value vectors = VectorsOf(kettle, {"--random", "50"});
  ExpectDecoded(kettle, vectors["writes"]);
  ExpectDecoded(kettle, vectors["notifications"]);
  ExpectRefused(kettle, vectors["refused"]);
  // Raw 0 and 60 of target (00 and 3c) have the bits of power and program in them; 1, 119 and 120 have others.
  const Json::Value few = VectorsOf(kettle);
  EXPECT_THAT(LinesOf(few["writes"], 3),
              testing::ElementsAre(R"({"packet":"01 07 00","values":{"power":false,"program":0,"target":40}})",
                                   R"({"packet":"01 07 3c","values":{"power":false,"program":2,"target":70}})"));
  std::vector<std::string> refused;
  for (const Json::Value& vector : few["refused"]) {
    if (vector["values"].size() == 3) refused.push_back(WriteJson(vector["values"]));
  }
  EXPECT_THAT(refused, testing::ElementsAre(R"({"power":true,"program":1,"target":40.5})",
                                            R"({"power":true,"program":0,"target":99.5})",
                                            R"({"power":false,"program":1,"target":100})"));
  EXPECT_THAT(WriteJson(few["refused"]), HasSubstr(R"(\"program\" overwritten: was 01 until \"target\" was written)"));
}

// 300 = 0x12c.
TEST(Vectors, OfNumbersThatDoNotFitAreRefused) {
  const Json::Value kettle = KettleWithTarget("uint_spec", "max", 300);
  const Json::Value vectors = VectorsOf(kettle, {"--random", "50"});
  ExpectDecoded(kettle, vectors["writes"]);
  ExpectDecoded(kettle, vectors["notifications"]);
  ExpectRefused(kettle, vectors["refused"]);
  EXPECT_THAT(LinesOf(vectors["refused"], 1),
              testing::IsSupersetOf(
                  {R"({"reason":"\"target\" cut: raw 299 does not fit, 43 is sent","values":{"target":189.5}})",
                   R"({"reason":"\"target\" cut: raw 300 does not fit, 44 is sent","values":{"target":190}})"}));
  EXPECT_THAT(WriteJson(vectors["writes"]), HasSubstr(R"({"packet":"01 04 00 96","values":{"target":115}})"));
  EXPECT_THAT(WriteJson(vectors["writes"]), testing::Not(HasSubstr(R"("target":190})")));
}

// The group has two bytes: 04 40 lacks the lowest bit, which is swing's.
TEST(Vectors, ThatDisturbNeighboursAreRefused) {
  const auto items = [](const char* list) { return "\"enum\": [" + std::string(list) + "], "; };
  const Json::Value fan = ParseJson(
      Configuration(Bool("swing", 0, 0) + ", " +
                    Attribute("mode", "status_writable", "enum", Bits(0, 2, 2), items(R"("a", "b", "c")")) + ", " +
                    Attribute("speed", "status_writable", "enum", Bits(0, 6, 4),
                              items(R"("0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11")"))));
  const Json::Value vectors = VectorsOf(fan, {"--random", "50"});
  ExpectDecoded(fan, vectors["writes"]);
  ExpectDecoded(fan, vectors["notifications"]);
  ExpectRefused(fan, vectors["refused"]);
  EXPECT_THAT(WriteJson(vectors["writes"]), testing::Not(HasSubstr(R"({"mode":1,"speed":1,"swing":true})")));
  EXPECT_THAT(WriteJson(vectors["refused"]), HasSubstr(R"({"mode":1,"speed":1,"swing":true})"));
  EXPECT_THAT(WriteJson(vectors["refused"]), HasSubstr(R"(\"swing\" overwritten: was 1 until \"speed\" was written)"));
}

// A bool that cannot be read takes back what was read before it.
TEST(Vectors, OfNotificationsThatCannotBeReadTellNothing) {
  const Json::Value box =
      ParseJson(Configuration(Bool("a", 0, 0) + ", " + Attribute("on", "status_readonly", "bool", Bytes(1, 1))));
  const Json::Value vectors = VectorsOf(box);
  EXPECT_EQ(WriteJson(vectors["notifications"][0]["values"]), "{}");
}

TEST(Vectors, NeedRandomOnesForASeed) {
  const ToolRun run = RunTool({"vectors", "kettle.json", "--seed", "5"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "dp4: --seed needs --random\n");
  EXPECT_EQ(RunTool({"vectors", "kettle.json", "--seed", "5", "--random", "0"}).exitCode, 0);
}

TEST(Vectors, NeedAPayloadThatAPacketHolds) {
  const std::string far = Attribute("key", "status_readonly", "binary", Bytes(16384, 1));
  const ToolRun run = RunTool({"vectors", "-"}, Configuration(far));
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "dp4: \"box\" takes more payload or flags than a packet can hold\n");
}

TEST(Vectors, EndBeforeTheyFillTheMemory) {
  const std::string far = Attribute("key", "status_readonly", "binary", Bytes(16383, 1));
  const ToolRun run = RunTool({"vectors", "-", "--random", "1000000"}, Configuration(far));
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.err, HasSubstr("the vectors of \"box\" would take more than 134217728 bytes"));
}

TEST(Vectors, NeedTheEntityWhenThereAreSeveral) {
  EXPECT_EQ(RunTool({"vectors", "gateway.json"}).exitCode, 2);
  EXPECT_EQ(RunTool({"vectors", "gateway.json", "--entity", "gateway"}).exitCode, 0);
}

// Names are part of string literals and of identifiers.
TEST(Vectors, WriteHostileNamesAsCLiterals) {
  std::string configuration = Configuration(Bool("a", 0, 0));
  configuration.replace(configuration.find("box"), 3, R"(1 */ \" \u202e??/)");
  const ToolRun run = RunTool({"vectors", "-", "--format", "c"}, configuration);
  EXPECT_THAT(run.out, testing::StartsWith("/* Test vectors of 1 * / \" \\u202e? ?/: values"));
  EXPECT_THAT(run.out, HasSubstr("} _1___________writes[] = {"));
  EXPECT_THAT(run.out, HasSubstr(R"("{\"1 */ \\\" )"));
}

}  // namespace
