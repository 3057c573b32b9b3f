// `dp4 vectors`. Every vector is worked out again by the model of the codec, which shares no code with the tool.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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

void CheckAgainstModel(const Json::Value& entity, const Json::Value& vectors) {
  const support::Inputs inputs(entity, vectors);
  for (const Json::Value& write : vectors["writes"]) {
    ExpectEqual(write["packet"].asString(), ModelPacket(entity, write["values"]), "a write is the model's");
  }
  for (const Json::Value& refused : vectors["refused"]) {
    ExpectEqual(ModelPacket(entity, refused["values"]), std::string(), "what is refused has no packet");
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
  EXPECT_EQ(vectors["refused"][0]["reason"], "Write bool value failed. (its place cannot be written)");
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
