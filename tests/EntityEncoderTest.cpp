// The entity encoder: an application's values become the flag bitmap and the payload of a package.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace entity_encoder_test {
namespace {

const uint64_t kAllOnes = std::numeric_limits<uint64_t>::max();
const int32_t kMaxInt32 = std::numeric_limits<int32_t>::max();

std::string WithNul(const std::string& before, const std::string& behind) { return before + '\0' + behind; }

void MergeInto(Json::Value& target, const Json::Value& overrides) {
  for (const std::string& key : overrides.getMemberNames()) {
    if (overrides[key].isObject() && target[key].isObject()) {
      MergeInto(target[key], overrides[key]);
    } else {
      target[key] = overrides[key];
    }
  }
}

// A writable attribute of one bit at the payload's start, changed by `overrides`, a JSON text; objects are merged.
Json::Value Attr(const std::string& name, const std::string& dataType, const std::string& overrides) {
  Json::Value attr = ParseJson(R"({"id": 1, "desc": "", "type": "status_writable",
      "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}})");
  attr["name"] = name;
  attr["display_name"] = "The " + name;
  attr["data_type"] = dataType;
  MergeInto(attr, ParseJson(overrides));
  return attr;
}

Json::Value Placed(Json::Value attr, int byteOffset, int bitOffset, const char* unit, int len) {
  attr["position"]["byte_offset"] = byteOffset;
  attr["position"]["bit_offset"] = bitOffset;
  attr["position"]["unit"] = unit;
  attr["position"]["len"] = len;
  return attr;
}

Json::Value Bool(const std::string& name, int byteOffset, int bitOffset, const std::string& overrides = "{}") {
  return Placed(Attr(name, "bool", overrides), byteOffset, bitOffset, "bit", 1);
}

// An enum of `count` items.
Json::Value Enum(const std::string& name, int byteOffset, int bitOffset, int len, int count = 3) {
  Json::Value attr = Placed(Attr(name, "enum", "{}"), byteOffset, bitOffset, "bit", len);
  for (int i = 0; i < count; ++i) attr["enum"].append("item " + std::to_string(i));
  return attr;
}

// A number that takes every raw value up to 2 to the power 32, minus 1, unscaled unless `spec`, a JSON text, differs.
Json::Value Number(const std::string& name, int byteOffset, int len, const std::string& spec = "{}") {
  Json::Value attr = Placed(Attr(name, "uint32", "{}"), byteOffset, 0, "byte", len);
  attr["uint_spec"] = ParseJson(R"({"min": 0, "max": 4294967295, "ratio": 1, "addition": 0})");
  MergeInto(attr["uint_spec"], ParseJson(spec));
  return attr;
}

Json::Value Binary(const std::string& name, int byteOffset, int len) {
  return Placed(Attr(name, "binary", "{}"), byteOffset, 0, "byte", len);
}

Json::Value Entity(const std::vector<Json::Value>& attrs) {
  Json::Value entity = ParseJson(R"({"id": 7, "name": "main", "display_name": "Main", "attrs": []})");
  for (const Json::Value& attr : attrs) entity["attrs"].append(attr);
  return entity;
}

// The document with these values, a JSON text, for the entity above.
Json::Value Values(const std::string& values) {
  Json::Value root;
  root["main"] = ParseJson(values);
  return root;
}

const LogLine kFiltered = FilterLine(7, "main", "Main");

LogLine Failure(const std::string& text) { return {1, "ProtocolEncodeEntity_4_0", text}; }

// One call of the encoder on an empty package, and what became of it.
struct Encoding {
  Encoding(const Json::Value& entity, const Json::Value& root) {
    LogCapture capture;
    ProtocolEncodeEntity_4_0(entity, package, root);
    lines = capture.Take();
  }

  Encoding(const std::vector<MorvixProtocolAttribute_4_0>& attributes, const Json::Value& root) {
    MorvixProtocolEntity_4_0 entityInfo;
    entityInfo.name = "main";
    LogCapture capture;
    ProtocolEncodeAttributes_4_0(entityInfo, attributes, package, root);
    lines = capture.Take();
  }

  std::string Flags() const { return ToHex(package.flags, package.sizeFlags); }
  std::string Payload() const { return ToHex(package.value, package.sizeValue); }

  OwnedPackage package;
  LogLines lines;
};

MorvixProtocolPosition_4_0 PositionOf(int32_t byteOffset, int32_t bitOffset, MorvixProtocolUnit_4_0 unit, int32_t len,
                                      size_t groupByteLength = 0) {
  MorvixProtocolPosition_4_0 position;
  position.byte_offset = byteOffset;
  position.bit_offset = bitOffset;
  position.unit = unit;
  position.len = len;
  position.groupByteLength = groupByteLength;
  return position;
}

MorvixProtocolAttribute_4_0 Record(const std::string& name, MorvixProtocolDataType_4_0 dataType,
                                   const MorvixProtocolPosition_4_0& position) {
  MorvixProtocolAttribute_4_0 attribute;
  attribute.name = name;
  attribute.type = MorvixProtocolTypeStatusWritable_4_0;
  attribute.data_type = dataType;
  attribute.position = position;
  attribute.uint_spec.max = 255;
  attribute.uint_spec.step = 1;
  attribute.uint_spec.ratio = 1;
  return attribute;
}

size_t EndOf(const MorvixProtocolPosition_4_0& position) {
  return EncodeCalculateBytes({Record("x", MorvixProtocolDataTypeBool_4_0, position)});
}

// ---------------------------------------------------------------------------------------------------- look-ups

TEST(GetEntityValue, CopiesTheObjectOfTheEntity) {
  Json::Value entity("before");
  EXPECT_TRUE(GetEntityValue(ParseJson(R"({"main": {"a": 1}, "other": {"b": 2}})"), "main", entity));
  EXPECT_EQ(WriteJson(entity), R"({"a":1})");
}

TEST(GetEntityValue, TakesAnEmptyObject) {
  Json::Value entity("before");
  EXPECT_TRUE(GetEntityValue(ParseJson(R"({"main": {}})"), "main", entity));
  EXPECT_EQ(WriteJson(entity), "{}");
}

TEST(GetEntityValue, LeavesTheOutputAloneWhenTheDocumentIsNoObject) {
  for (const char* document : {"null", "true", "1", "1.5", "\"main\"", "[{\"main\": {}}]"}) {
    SCOPED_TRACE(document);
    Json::Value entity("before");
    EXPECT_FALSE(GetEntityValue(ParseJson(document), "main", entity));
    EXPECT_EQ(entity, Json::Value("before"));
  }
}

TEST(GetEntityValue, CopiesAMemberOfAnotherKindAndRefusesIt) {
  for (const char* member : {"null", "false", "3", "\"text\"", "[1]"}) {
    SCOPED_TRACE(member);
    Json::Value entity("before");
    EXPECT_FALSE(GetEntityValue(ParseJson(std::string("{\"main\": ") + member + "}"), "main", entity));
    EXPECT_EQ(entity, ParseJson(member));
  }
  Json::Value entity("before");
  EXPECT_FALSE(GetEntityValue(ParseJson(R"({"Main": {}})"), "main", entity));
  EXPECT_TRUE(entity.isNull());
}

TEST(GetEntityValue, ComparesTheNameBehindANulToo) {
  Json::Value document;
  document[WithNul("ma", "in")]["a"] = 1;
  Json::Value entity;
  EXPECT_TRUE(GetEntityValue(document, WithNul("ma", "in"), entity));
  EXPECT_FALSE(GetEntityValue(document, "ma", entity));
  EXPECT_FALSE(GetEntityValue(document, WithNul("ma", "xx"), entity));
}

TEST(GetIntegerValue, ReadsIntegersAndBools) {
  const std::vector<std::pair<std::string, uint64_t>> cases = {
      {"0", 0},
      {"7", 7},
      {"2147483647", 2147483647},
      {"2147483648", 0xffffffff80000000},  // unsigned integers keep their 32-bit pattern, which is then negative
      {"4294967295", kAllOnes},
      {"-1", kAllOnes},
      {"-2147483648", 0xffffffff80000000},
      {"true", 1},
      {"false", 0}};
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    uint64_t value = 99;
    EXPECT_TRUE(GetIntegerValue(Values("{\"a\": " + text + "}"), "main", "a", value));
    EXPECT_EQ(value, expected);
  }
}

TEST(GetIntegerValue, ReadsTextAsUnsignedDecimal) {
  const std::vector<std::pair<std::string, uint64_t>> cases = {{"0", 0},
                                                               {"42", 42},
                                                               {"  42", 42},
                                                               {"+42", 42},
                                                               {"42 apples", 42},
                                                               {"0042", 42},
                                                               {"0x10", 0},  // decimal ends at the x
                                                               {"2.9", 2},
                                                               {"4294967296", 4294967296},
                                                               {"18446744073709551615", kAllOnes},
                                                               {"18446744073709551616", kAllOnes},  // saturates
                                                               {"-1", kAllOnes},
                                                               {WithNul("4", "2"), 4}};
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    Json::Value root;
    root["main"]["a"] = text;
    uint64_t value = 99;
    EXPECT_TRUE(GetIntegerValue(root, "main", "a", value));
    EXPECT_EQ(value, expected);
  }
}

TEST(GetIntegerValue, KeepsThePresetForABlankText) {
  for (const std::string& text : {std::string(), std::string("   "), std::string("\t\n"), WithNul("", "5")}) {
    SCOPED_TRACE(text);
    Json::Value root;
    root["main"]["a"] = text;
    uint64_t value = 99;
    EXPECT_TRUE(GetIntegerValue(root, "main", "a", value));
    EXPECT_EQ(value, 99u);
  }
}

TEST(GetIntegerValue, RefusesOtherKindsAndLetters) {
  for (const char* text :
       {"null", "1.0", "0.0", "1.5", "4294967296", "-2147483649", "[1]", "{}", "\"one\"", "\"x1\""}) {
    SCOPED_TRACE(text);
    uint64_t value = 0;
    EXPECT_FALSE(GetIntegerValue(Values(std::string("{\"a\": ") + text + "}"), "main", "a", value));
  }
  uint64_t value = 99;
  EXPECT_FALSE(GetIntegerValue(Values(R"({"a": "letters"})"), "main", "a", value));
  EXPECT_EQ(value, 99u);
}

TEST(GetIntegerValue, RefusesAMissingEntityOrAttribute) {
  uint64_t value = 0;
  EXPECT_FALSE(GetIntegerValue(Values(R"({"a": 1})"), "main", "b", value));
  EXPECT_FALSE(GetIntegerValue(Values(R"({"a": 1})"), "other", "a", value));
  EXPECT_FALSE(GetIntegerValue(Json::Value(), "main", "a", value));
  EXPECT_FALSE(GetIntegerValue(ParseJson(R"({"main": [1]})"), "main", "a", value));
}

TEST(GetIntegerValue, LooksAnAttributeUpByItsNameBeforeTheNul) {
  Json::Value root;
  root["main"]["le"] = 5;
  root["main"][WithNul("le", "vel")] = 6;
  uint64_t value = 0;
  EXPECT_TRUE(GetIntegerValue(root, "main", WithNul("le", "vel"), value));
  EXPECT_EQ(value, 5u);
}

TEST(GetStringValue, TakesTextWholeAndNothingElse) {
  Json::Value root = Values(R"({"empty": "", "number": 1, "flag": true, "list": ["x"], "none": null})");
  root["main"]["text"] = WithNul("AQ", "ID");
  std::string value = "before";
  EXPECT_TRUE(GetStringValue(root, "main", "text", value));
  EXPECT_EQ(value, WithNul("AQ", "ID"));
  EXPECT_TRUE(GetStringValue(root, "main", "empty", value));
  EXPECT_EQ(value, "");
  value = "before";
  for (const char* name : {"number", "flag", "list", "none", "missing"}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(GetStringValue(root, "main", name, value));
    EXPECT_EQ(value, "before");
  }
  EXPECT_FALSE(GetStringValue(root, "other", "text", value));
}

TEST(GetDoubleValue, TakesNumbersAndTheirText) {
  const std::vector<std::pair<std::string, double>> cases = {{"7", 7},
                                                             {"-7", -7},
                                                             {"2.5", 2.5},
                                                             {"4294967295", 4294967295.0},
                                                             {"1e30", 1e30},
                                                             {"\"2.5\"", 2.5},
                                                             {"\" -1e2x\"", -100},
                                                             {"\"0x10\"", 16.0},
                                                             {"9007199254740992", 9007199254740992.0},
                                                             {"\"\"", 99},
                                                             {"\"  \"", 99}};  // a blank text keeps the preset
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    double value = 99;
    EXPECT_TRUE(GetDoubleValue(Values("{\"a\": " + text + "}"), "main", "a", value));
    EXPECT_EQ(value, expected);
  }
}

TEST(GetDoubleValue, RefusesOtherKindsAndLetters) {
  for (const char* text : {"null", "true", "[1]", "{}", "\"one\""}) {
    SCOPED_TRACE(text);
    double value = 99;
    EXPECT_FALSE(GetDoubleValue(Values(std::string("{\"a\": ") + text + "}"), "main", "a", value));
    EXPECT_EQ(value, 99);
  }
  double value = 99;
  EXPECT_FALSE(GetDoubleValue(Values(R"({"a": 1})"), "other", "a", value));
}

// ---------------------------------------------------------------------------------------------- payload length

TEST(EncodeCalculateBytes, IsTheFurthestEndWhateverTheOrder) {
  const auto bytes = Record("a", MorvixProtocolDataTypeUInt32_4_0, PositionOf(4, 0, MorvixProtocolUnitByte_4_0, 4));
  const auto bits = Record("b", MorvixProtocolDataTypeEnum_4_0, PositionOf(1, 5, MorvixProtocolUnitBit_4_0, 6));
  EXPECT_EQ(EncodeCalculateBytes({}), 0u);
  EXPECT_EQ(EncodeCalculateBytes({bits}), 3u);
  EXPECT_EQ(EncodeCalculateBytes({bytes, bits}), 8u);
  EXPECT_EQ(EncodeCalculateBytes({bits, bytes}), 8u);
}

TEST(EncodeCalculateBytes, RoundsBitsUpAndIgnoresTheGroupSize) {
  EXPECT_EQ(EndOf(PositionOf(0, 0, MorvixProtocolUnitBit_4_0, 1)), 1u);
  EXPECT_EQ(EndOf(PositionOf(0, 0, MorvixProtocolUnitBit_4_0, 8)), 1u);
  EXPECT_EQ(EndOf(PositionOf(0, 0, MorvixProtocolUnitBit_4_0, 9)), 2u);
  EXPECT_EQ(EndOf(PositionOf(0, 7, MorvixProtocolUnitBit_4_0, 1)), 1u);
  EXPECT_EQ(EndOf(PositionOf(2, 15, MorvixProtocolUnitBit_4_0, 2, 9)), 5u);
}

TEST(EncodeCalculateBytes, CountsLengthsOfAnUnknownUnitAsBytes) {
  EXPECT_EQ(EndOf(PositionOf(3, 50, MorvixProtocolUnitUnknown_4_0, 9)), 12u);
}

TEST(EncodeCalculateBytes, AddsNothingForAnEndAtOrBeforeTheStart) {
  EXPECT_EQ(EndOf(PositionOf(0, 0, MorvixProtocolUnitByte_4_0, 0)), 0u);
  EXPECT_EQ(EndOf(PositionOf(-5, 0, MorvixProtocolUnitByte_4_0, 5)), 0u);
  EXPECT_EQ(EndOf(PositionOf(-5, 0, MorvixProtocolUnitByte_4_0, 2)), 0u);
  EXPECT_EQ(EndOf(PositionOf(-5, 0, MorvixProtocolUnitByte_4_0, 6)), 1u);
  EXPECT_EQ(EndOf(PositionOf(0, -9, MorvixProtocolUnitBit_4_0, 1)), 0u);
  EXPECT_EQ(EndOf(PositionOf(3, -9, MorvixProtocolUnitBit_4_0, 1)), 2u);
  EXPECT_EQ(EndOf(PositionOf(3, -2, MorvixProtocolUnitBit_4_0, 1)), 3u);
  EXPECT_EQ(EndOf(PositionOf(3, 0, MorvixProtocolUnitByte_4_0, -2)), 1u);
}

TEST(EncodeCalculateBytes, DoesNotWrapAt32Bits) {
  EXPECT_EQ(EndOf(PositionOf(kMaxInt32, 0, MorvixProtocolUnitByte_4_0, kMaxInt32)), 4294967294u);
  // 4294967294 bits are 536870912 bytes.
  EXPECT_EQ(EndOf(PositionOf(kMaxInt32, kMaxInt32, MorvixProtocolUnitBit_4_0, kMaxInt32)), 2684354559u);
  const int32_t minInt32 = std::numeric_limits<int32_t>::min();
  EXPECT_EQ(EndOf(PositionOf(minInt32, minInt32, MorvixProtocolUnitBit_4_0, minInt32)), 0u);
}

// ------------------------------------------------------------------------------------------------- whole entities

TEST(EncodeEntity, PacksEveryDataTypeAtItsPlace) {
  const Json::Value entity =
      Entity({Bool("power", 0, 0), Enum("mode", 0, 1, 2), Number("level", 1, 1), Binary("key", 2, 3)});
  const Encoding result(entity, Values(R"({"power": 1, "mode": 2, "level": 75, "key": "AQID"})"));
  EXPECT_EQ(result.Flags(), "0f");
  EXPECT_EQ(result.Payload(), "05 4b 01 02 03");
  EXPECT_EQ(result.lines, LogLines({kFiltered}));
}

TEST(EncodeEntity, SendsTheWholePayloadForOneValue) {
  const Json::Value entity = Entity({Bool("power", 0, 0), Number("level", 1, 2), Number("far", 6, 1)});
  const Encoding result(entity, Values(R"({"level": 258})"));
  EXPECT_EQ(result.Flags(), "02");
  EXPECT_EQ(result.Payload(), "00 01 02 00 00 00 00");
}

TEST(EncodeEntity, IgnoresMembersThatNameNoWritableAttribute) {
  const Json::Value entity =
      Entity({Bool("seen", 0, 0, R"({"type": "status_readonly"})"), Bool("hot", 1, 0, R"({"type": "alert"})"),
              Bool("broken", 2, 0, R"({"type": "fault"})"), Number("level", 3, 1)});
  Json::Value root = Values(R"({"seen": 1, "hot": 1, "broken": 1, "The level": 9, "level": 8, "else": [1, {}]})");
  root["other"]["level"] = 7;
  const Encoding result(entity, root);
  EXPECT_EQ(result.Flags(), "01");  // the bitmap counts the writable attributes only
  EXPECT_EQ(result.Payload(), "00 00 00 08");
}

TEST(EncodeEntity, GivesNoFlagBitToASkippedAttribute) {
  Json::Value bad = Number("bad", 0, 1);
  bad.removeMember("desc");
  const Encoding result(Entity({Number("a", 0, 1), bad, Number("b", 1, 1)}), Values(R"({"bad": 1, "b": 2})"));
  EXPECT_EQ(result.lines, LogLines({kFiltered, SkipLine("desc")}));
  EXPECT_EQ(result.Flags(), "02");
  EXPECT_EQ(result.Payload(), "00 02");
}

TEST(EncodeEntity, SizesBitGroupsFromTheWritableAttributesAlone) {
  // Without the read-only number between them the two bools are one group of two bytes, whose bit 0 is in the last.
  Json::Value between = Number("between", 5, 1);
  between["type"] = "status_readonly";
  const Encoding result(Entity({Bool("low", 0, 0), between, Bool("high", 0, 9)}), Values(R"({"low": 1})"));
  EXPECT_EQ(result.Flags(), "01");
  EXPECT_EQ(result.Payload(), "00 01");
}

TEST(EncodeEntity, WritesOverlapsInConfigurationOrder) {
  const Json::Value entity = Entity({Bool("on", 0, 0), Bool("off", 0, 0), Number("byte", 1, 1), Number("word", 0, 2)});
  EXPECT_EQ(Encoding(entity, Values(R"({"on": 1, "off": 0})")).Payload(), "00 00");
  EXPECT_EQ(Encoding(entity, Values(R"({"on": 1})")).Payload(), "01 00");
  EXPECT_EQ(Encoding(entity, Values(R"({"on": 1, "byte": 7, "word": 4660})")).Payload(), "12 34");
}

TEST(EncodeEntity, ReversesTheNeighboursOfAFieldThatSpansBytes) {
  const Json::Value entity = Entity({Bool("low", 2, 1), Bool("high", 2, 12), Enum("wide", 2, 5, 6, 44)});
  EXPECT_EQ(Encoding(entity, Values(R"({"wide": 43})")).Payload(), "00 00 05 60");
  EXPECT_EQ(Encoding(entity, Values(R"({"low": 1, "high": 1})")).Payload(), "00 00 10 02");
  // Devices in the field count on this result; it is not 15 62.
  EXPECT_EQ(Encoding(entity, Values(R"({"low": 1, "high": 1, "wide": 43})")).Payload(), "00 00 05 70");
}

TEST(EncodeEntity, LetsAFieldReachBeforeItsGroup) {
  // The group is sized by its last member and has one byte; the field's upper two bits are in the byte before.
  EXPECT_EQ(Encoding(Entity({Enum("up", 1, 6, 4, 10), Bool("last", 1, 0)}), Values(R"({"up": 9})")).Payload(),
            "02 40 00");
  const Encoding outside(Entity({Enum("up", 0, 6, 4, 10), Bool("last", 0, 0)}), Values(R"({"up": 9})"));
  EXPECT_EQ(outside.lines, LogLines({kFiltered, Failure("Write enum value failed.")}));
}

TEST(EncodeEntity, GivesOneFlagBitToEachAttribute) {
  for (size_t count = 1; count <= 40; ++count) {
    std::vector<Json::Value> attrs;
    Json::Value all;
    for (size_t i = 0; i < count; ++i) {
      attrs.push_back(Number("a" + std::to_string(i), static_cast<int>(i), 1));
      all["main"]["a" + std::to_string(i)] = 255;
    }
    const Json::Value entity = Entity(attrs);
    const size_t flagBytes = (count + 7) / 8;
    std::vector<byte> everyFlag(flagBytes, 0);
    for (size_t i = 0; i < count; ++i) {
      SCOPED_TRACE("attribute " + std::to_string(i) + " of " + std::to_string(count));
      std::vector<byte> flags(flagBytes, 0);
      flags[flagBytes - 1 - i / 8] = static_cast<byte>(1 << (i % 8));
      everyFlag[flagBytes - 1 - i / 8] |= flags[flagBytes - 1 - i / 8];
      std::vector<byte> payload(count, 0);
      payload[i] = 9;
      const Encoding result(entity, Values("{\"a" + std::to_string(i) + "\": 9}"));
      EXPECT_EQ(result.Flags(), ToHex(flags));
      EXPECT_EQ(result.Payload(), ToHex(payload));
    }
    SCOPED_TRACE("all of " + std::to_string(count));
    const Encoding result(entity, all);
    EXPECT_EQ(result.Flags(), ToHex(everyFlag));
    EXPECT_EQ(result.Payload(), ToHex(std::vector<byte>(count, 255)));
  }
}

TEST(EncodeEntity, PutsTheNinthFlagIntoTheFirstOfTwoBytes) {
  std::vector<Json::Value> attrs;
  for (int i = 0; i < 9; ++i) attrs.push_back(Bool("a" + std::to_string(i), 0, i));
  const Encoding result(Entity(attrs), Values(R"({"a8": 1})"));
  EXPECT_EQ(result.Flags(), "01 00");
  EXPECT_EQ(result.Payload(), "01 00");
}

// --------------------------------------------------------------------------------------------------- value forms

TEST(EncodeEntity, TakesIntegersAndTheirTextForABool) {
  const Json::Value entity = Entity({Number("pad", 1, 1), Bool("a", 0, 3)});
  const std::vector<std::pair<std::string, bool>> written = {{"1", true},
                                                             {"0", false},
                                                             {"2", true},
                                                             {"-1", true},
                                                             {"true", true},
                                                             {"false", false},
                                                             {"\"1\"", true},
                                                             {"\"0\"", false},
                                                             {"\"12\"", true},
                                                             {"\" 1\"", true},
                                                             {"\"1on\"", true},
                                                             {"\"-1\"", true},
                                                             {"\"0x1\"", false},
                                                             {"\"\"", false},
                                                             {"\"  \"", false},
                                                             {"4294967295", true},
                                                             {"2147483648", true},
                                                             {"\"4294967296\"", true},
                                                             {"\"99999999999999999999\"", true}};
  for (const auto& [text, expected] : written) {
    SCOPED_TRACE(text);
    const Encoding result(entity, Values("{\"a\": " + text + "}"));
    EXPECT_EQ(result.Flags(), "02");
    EXPECT_EQ(result.Payload(), expected ? "08 00" : "00 00");
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
  }
}

TEST(EncodeEntity, TakesIntegersAndTheirTextForAnEnum) {
  const Json::Value entity = Entity({Enum("a", 0, 4, 2)});
  const std::vector<std::pair<std::string, std::string>> written = {
      {"0", "00"},     {"1", "10"},       {"2", "20"},       {"true", "10"}, {"false", "00"},
      {"\"2\"", "20"}, {"\" 1x\"", "10"}, {"\"0x2\"", "00"}, {"\"\"", "00"}, {"\" \"", "00"}};
  for (const auto& [text, payload] : written) {
    SCOPED_TRACE(text);
    const Encoding result(entity, Values("{\"a\": " + text + "}"));
    EXPECT_EQ(result.Flags(), "01");
    EXPECT_EQ(result.Payload(), payload);
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
  }
}

TEST(EncodeEntity, TakesNumbersAndTheirTextForANumber) {
  const Json::Value entity = Entity({Number("a", 0, 4)});
  const std::vector<std::pair<std::string, std::string>> written = {
      {"7", "00 00 00 07"},          {"7.0", "00 00 00 07"},      {"7.5", "00 00 00 07"},  // a half rounds down
      {"8.5", "00 00 00 08"},        {"7.6", "00 00 00 08"},      {"7.4", "00 00 00 07"},
      {"-0.0", "00 00 00 00"},       {"\"7\"", "00 00 00 07"},    {"\"7.6 degrees\"", "00 00 00 08"},
      {"\"0x10\"", "00 00 00 10"},   {"\"1e2\"", "00 00 00 64"},  {"4294967295", "ff ff ff ff"},
      {"2147483648", "80 00 00 00"}, {"\"\"", "00 00 00 00"},     {"\" \"", "00 00 00 00"},
      {"\"nan\"", "00 00 00 00"},    {"305419896", "12 34 56 78"}};
  for (const auto& [text, payload] : written) {
    SCOPED_TRACE(text);
    const Encoding result(entity, Values("{\"a\": " + text + "}"));
    EXPECT_EQ(result.Flags(), "01");
    EXPECT_EQ(result.Payload(), payload);
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
  }
}

TEST(EncodeEntity, TakesTextOfAnyKindForABinary) {
  const Json::Value entity = Entity({Binary("a", 1, 3), Number("behind", 4, 1)});
  const std::vector<std::pair<std::string, std::string>> written = {
      {"AQID", "00 01 02 03 00"},     {"AQ==", "00 01 00 00 00"},  // the rest of the field stays zero
      {"AQIDBAUG", "00 01 02 03 00"},                              // and longer texts end with it
      {"AQ ID", "00 01 02 03 00"},    {"****", "00 00 00 00 00"},
      {"", "00 00 00 00 00"},         {WithNul("AQ==", "AQID"), "00 01 00 00 00"}};
  for (const auto& [text, payload] : written) {
    SCOPED_TRACE(text);
    Json::Value root;
    root["main"]["a"] = text;
    const Encoding result(entity, root);
    EXPECT_EQ(result.Flags(), "01");
    EXPECT_EQ(result.Payload(), payload);
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
  }
}

TEST(EncodeEntity, LeavesOutValuesOfOtherKinds) {
  const Json::Value entity = Entity({Bool("b", 0, 0), Enum("e", 0, 1, 2), Number("n", 1, 1), Binary("x", 2, 1)});
  for (const char* values :
       {"{}", R"({"b": null, "e": null, "n": null, "x": null})", R"({"b": 1.0, "e": 1.0, "n": true, "x": 1})",
        R"({"b": 0.0, "e": 2.5, "n": false, "x": 1.5})", R"({"b": [], "e": [1], "n": [1], "x": ["AQ=="]})",
        R"({"b": {}, "e": {"a": 1}, "n": {}, "x": {}})", R"({"b": "on", "e": "item 1", "n": "much", "x": true})",
        R"({"b": 4294967296, "e": -2147483649})"}) {
    SCOPED_TRACE(values);
    const Encoding result(entity, Values(values));
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
    EXPECT_EQ(result.package.sizeFlags, 0u);
    EXPECT_EQ(result.package.sizeValue, 0u);
    ASSERT_NE(result.package.flags, nullptr);
    ASSERT_NE(result.package.value, nullptr);
    EXPECT_EQ(ToHex(result.package.flags, 1), "00");
    EXPECT_EQ(ToHex(result.package.value, 3), "00 00 00");
  }
}

TEST(EncodeEntity, FindsNothingWithoutAnObjectForTheEntity) {
  const Json::Value entity = Entity({Bool("power", 0, 0)});
  for (const char* root :
       {"null", "true", "5", "1.5", "\"main\"", "[]", "[{\"main\": {\"power\": 1}}]", "{}", "{\"power\": 1}",
        "{\"main\": null}", "{\"main\": 1}", "{\"main\": [{\"power\": 1}]}", "{\"Main\": {\"power\": 1}}"}) {
    SCOPED_TRACE(root);
    const Encoding result(entity, ParseJson(root));
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
    EXPECT_EQ(result.package.sizeFlags, 0u);
    EXPECT_EQ(result.package.sizeValue, 0u);
    ASSERT_NE(result.package.flags, nullptr);
    ASSERT_NE(result.package.value, nullptr);
    EXPECT_EQ(ToHex(result.package.flags, 1), "00");
    EXPECT_EQ(ToHex(result.package.value, 1), "00");
  }
}

TEST(EncodeEntity, ScalesNumbersToRawValues) {
  const Json::Value half = Entity({Number("t", 0, 1, R"({"max": 120, "ratio": 0.5, "addition": 40})")});
  EXPECT_EQ(Encoding(half, Values(R"({"t": 72.5})")).Payload(), "41");
  EXPECT_EQ(Encoding(half, Values(R"({"t": "100"})")).Payload(), "78");
  EXPECT_EQ(Encoding(half, Values(R"({"t": 40})")).Payload(), "00");
  const Json::Value falling = Entity({Number("t", 0, 1, R"({"max": 100, "ratio": -1, "addition": 100})")});
  EXPECT_EQ(Encoding(falling, Values(R"({"t": 97})")).Payload(), "03");
}

TEST(EncodeEntity, DropsNumberBytesThatTheFieldDoesNotHold) {
  EXPECT_EQ(Encoding(Entity({Number("n", 0, 3)}), Values(R"({"n": 287454020})")).Payload(), "22 33 44");
  const Json::Value wide = Entity({Number("n", 0, 8, R"({"max": 4503599627370495})")});
  EXPECT_EQ(Encoding(wide, Values(R"({"n": 4503599627370495})")).Payload(), "00 0f ff ff ff ff ff ff");
}

TEST(EncodeEntity, DropsEnumBitsThatTheFieldDoesNotHold) {
  const Encoding result(Entity({Enum("e", 0, 0, 2, 6)}), Values(R"({"e": 5})"));
  EXPECT_EQ(result.Flags(), "01");
  EXPECT_EQ(result.Payload(), "01");
}

TEST(EncodeEntity, TakesAnEnumInBytes) {
  const Json::Value entity = Entity({Placed(Enum("e", 0, 0, 1, 300), 1, 0, "byte", 2)});
  EXPECT_EQ(Encoding(entity, Values(R"({"e": 299})")).Payload(), "00 01 2b");
}

TEST(EncodeEntity, MarksABoolBeforeItsGroupAsWrittenWithoutWritingIt) {
  // Bit -1 of the one-byte group at byte 0 would be in byte 1, which the number makes part of the payload.
  const Json::Value entity = Entity({Number("n", 0, 2), Bool("b", 0, -1), Bool("c", 0, 0)});
  const Encoding result(entity, Values(R"({"n": 0, "b": 1})"));
  EXPECT_EQ(result.lines, LogLines({kFiltered}));
  EXPECT_EQ(result.Flags(), "03");
  EXPECT_EQ(result.Payload(), "00 00");
}

TEST(EncodeEntity, EndsNamesOfAttributesButNotOfEntitiesAtANul) {
  Json::Value entity = Entity({Number(WithNul("le", "vel"), 0, 1), Number("", 1, 1)});
  entity["name"] = WithNul("ma", "in");
  Json::Value root;
  root["ma"]["le"] = 1;
  root[WithNul("ma", "in")]["le"] = 2;
  root[WithNul("ma", "in")][WithNul("le", "vel")] = 3;
  root[WithNul("ma", "in")][""] = 4;
  const Encoding result(entity, root);
  EXPECT_EQ(result.lines, LogLines({FilterLine(7, "ma", "Main")}));
  EXPECT_EQ(result.Flags(), "03");
  EXPECT_EQ(result.Payload(), "02 04");
}

// ------------------------------------------------------------------------------------------------------ failures

TEST(EncodeEntity, EndsAtTheFirstRefusedValueAndKeepsWhatItWrote) {
  struct Row {
    std::string what;
    Json::Value attr;
    std::string value;
    std::string message;
    size_t payloadBytes;
  };
  const std::string boolFailed = "Write bool value failed.";
  const std::string enumFailed = "Write enum value failed.";
  const std::string binaryFailed = "Write binary value failed.";
  const std::string refused = "Validate uint value failed.";
  const std::string numberFailed = "Write uint value failed.";
  const std::vector<Row> rows = {
      {"a bool in bytes", Placed(Bool("x", 0, 0), 1, 0, "byte", 1), "1", boolFailed, 2},
      {"a bool of two bits", Placed(Bool("x", 0, 0), 1, 0, "bit", 2), "1", boolFailed, 2},
      {"a bool at bit -2", Bool("x", 1, -2), "0", boolFailed, 1},
      {"a bool before the payload", Bool("x", -1, 0), "1", boolFailed, 1},
      {"an index that is the count", Enum("x", 1, 0, 2), "3", "Invalid enum value: 3, range: 0-3", 2},
      {"a negative index", Enum("x", 1, 0, 2), "-1", "Invalid enum value: -1, range: 0-3", 2},
      {"an index of 33 bits", Enum("x", 1, 0, 2), "\"4294967301\"", "Invalid enum value: 5, range: 0-3", 2},
      {"an enum of nine bytes", Placed(Enum("x", 0, 0, 1), 1, 0, "byte", 9), "1", enumFailed, 10},
      {"an enum of no bytes", Placed(Enum("x", 0, 0, 1), 1, 0, "byte", 0), "1", enumFailed, 1},
      {"an enum of 65 bits", Enum("x", 1, 0, 65), "1", enumFailed, 10},
      {"an enum of no bits", Enum("x", 1, 1, 0), "1", enumFailed, 2},
      {"an enum over nine bytes", Enum("x", 1, 1, 64), "1", enumFailed, 10},
      {"an enum at bit -1", Enum("x", 1, -1, 2), "1", enumFailed, 2},
      {"a binary in bits", Placed(Binary("x", 0, 1), 1, 0, "bit", 3), "\"AQID\"", binaryFailed, 2},
      {"a binary of no bytes", Binary("x", 1, 0), "\"\"", binaryFailed, 1},
      {"a binary of 65536 bytes", Binary("x", 1, 65536), "\"AQID\"", binaryFailed, 65537},
      {"a binary before the payload", Binary("x", -1, 3), "\"AQID\"", binaryFailed, 2},
      {"below min", Number("x", 1, 1, R"({"min": 10, "max": 20})"), "9", refused, 2},
      {"above max", Number("x", 1, 1, R"({"min": 10, "max": 20})"), "21", refused, 2},
      {"below zero", Number("x", 1, 1), "-0.4", refused, 2},
      {"infinite", Number("x", 1, 1), "\"inf\"", refused, 2},
      {"a ratio of zero", Number("x", 1, 1, R"({"ratio": 0})"), "1", refused, 2},
      {"an empty text below the addition", Number("x", 1, 1, R"({"addition": 5})"), "\"\"", refused, 2},
      {"a max of 2 to the power 52", Number("x", 1, 1, R"({"max": 4503599627370496})"), "1", refused, 2},
      {"2 to the power 52", Number("x", 1, 8, R"({"max": 4503599627370495})"), "4503599627370496", refused, 9},
      {"min above max", Number("x", 1, 1, R"({"min": 9, "max": 3})"), "5", refused, 2},
      {"a single raw value", Number("x", 1, 1, R"({"min": 5, "max": 5})"), "5", refused, 2},
      {"a negative min", Number("x", 1, 1, R"({"min": -1, "max": 5})"), "3", refused, 2},
      {"a number of nine bytes", Number("x", 1, 9), "1", numberFailed, 10},
      {"a number of no bytes", Number("x", 1, 0), "1", numberFailed, 1},
      {"a number in bits", Placed(Number("x", 0, 1), 1, 0, "bit", 8), "1", numberFailed, 2},
      {"a number before the payload", Number("x", -1, 2), "1", numberFailed, 1}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const Json::Value entity = Entity({Number("first", 0, 1), row.attr, Number("after", 0, 1)});
    const Encoding result(entity, Values("{\"first\": 165, \"after\": 17, \"x\": " + row.value + "}"));
    EXPECT_EQ(result.lines, LogLines({kFiltered, Failure(row.message)}));
    EXPECT_EQ(result.package.sizeFlags, 0u);
    EXPECT_EQ(result.package.sizeValue, 0u);
    ASSERT_NE(result.package.flags, nullptr);
    ASSERT_NE(result.package.value, nullptr);
    EXPECT_EQ(ToHex(result.package.flags, 1), "01");
    std::vector<byte> payload(row.payloadBytes, 0);
    payload[0] = 165;
    EXPECT_EQ(std::vector<byte>(result.package.value, result.package.value + row.payloadBytes), payload);
    // Without a value the bad place is not even looked at.
    const Encoding without(entity, Values(R"({"first": 165, "after": 17})"));
    EXPECT_EQ(without.lines, LogLines({kFiltered}));
    EXPECT_EQ(without.Flags(), "05");
  }
}

TEST(EncodeEntity, RefusesABitBeyondTheGroup) {
  // The group has the one byte that its last member needs.
  const Json::Value entity = Entity({Bool("beyond", 0, 8), Bool("inside", 0, 7), Bool("last", 0, 0)});
  EXPECT_EQ(Encoding(entity, Values(R"({"inside": 1})")).Payload(), "80 00");
  EXPECT_EQ(Encoding(entity, Values(R"({"beyond": 1})")).lines,
            LogLines({kFiltered, Failure("Write bool value failed.")}));
}

TEST(EncodeEntity, LeavesThePackageAloneWhenTheEntityIsUnusable) {
  std::vector<std::pair<Json::Value, std::string>> cases = {{Json::Value(), "Invalid entity."},
                                                            {ParseJson("[]"), "Invalid entity."},
                                                            {Json::Value("main"), "Invalid entity."}};
  for (const char* key : {"id", "name", "display_name", "attrs"}) {
    Json::Value entity = Entity({Bool("power", 0, 0)});
    entity.removeMember(key);
    cases.emplace_back(entity, std::string("Can't find '") + key + "' key.");
  }
  for (const auto& [entity, reason] : cases) {
    SCOPED_TRACE(reason);
    byte flags[2] = {1, 2};
    byte value[3] = {3, 4, 5};
    MorvixProtocolPackage_4_0 package;
    package.cmd = MorvixProtocolCommandCCWriteReq_4_0;
    package.flags = flags;
    package.sizeFlags = 2;
    package.value = value;
    package.sizeValue = 3;
    LogCapture capture;
    ProtocolEncodeEntity_4_0(entity, package, Values(R"({"power": 1})"));
    EXPECT_EQ(capture.Take(),
              LogLines({{1, "GetEntityInfo", "Warning: " + reason}, Failure("Get entity info failed.")}));
    EXPECT_EQ(package.cmd, MorvixProtocolCommandCCWriteReq_4_0);
    EXPECT_EQ(package.flags, flags);
    EXPECT_EQ(package.sizeFlags, 2u);
    EXPECT_EQ(package.value, value);
    EXPECT_EQ(package.sizeValue, 3u);
    EXPECT_EQ(ToHex(flags, 2) + " " + ToHex(value, 3), "01 02 03 04 05");
  }
}

TEST(EncodeEntity, LeavesThePackageAloneWhenThePayloadHasNoBytes) {
  const std::vector<Json::Value> entities = {Entity({}), Entity({Bool("power", 0, 0, R"({"type": "fault"})")}),
                                             Entity({Binary("x", 0, 0)}), Entity({Binary("x", -5, 5)}),
                                             Entity({Bool("x", -1, 7), Bool("y", 0, -9)})};
  for (const Json::Value& entity : entities) {
    SCOPED_TRACE(WriteJson(entity));
    byte flags[1] = {1};
    byte value[1] = {2};
    MorvixProtocolPackage_4_0 package;
    package.flags = flags;
    package.sizeFlags = 1;
    package.value = value;
    package.sizeValue = 1;
    LogCapture capture;
    ProtocolEncodeEntity_4_0(entity, package, Values(R"({"power": 1, "x": "AQID", "y": 1})"));
    EXPECT_EQ(capture.Take(), LogLines({kFiltered, Failure("No data will encode.")}));
    EXPECT_EQ(package.flags, flags);
    EXPECT_EQ(package.sizeFlags, 1u);
    EXPECT_EQ(package.value, value);
    EXPECT_EQ(package.sizeValue, 1u);
  }
}

TEST(EncodeEntity, PassesOnTheErrorOfAnArrayAsABoundBeforeItTouchesThePackage) {
  for (const char* spec : {R"({"min": []})", R"({"max": {}})"}) {
    OwnedPackage package;
    LogCapture capture;
    EXPECT_THROW(ProtocolEncodeEntity_4_0(Entity({Number("n", 0, 1, spec)}), package, Values("{}")), Json::LogicError);
    EXPECT_EQ(package.flags, nullptr);
    EXPECT_EQ(package.value, nullptr);
    EXPECT_EQ(capture.Take(), LogLines({kFiltered}));
  }
}

// --------------------------------------------------------------------------------------------------- the package

TEST(EncodeEntity, LeavesTheCommandAndTheSubDeviceAlone) {
  for (const char* values : {R"({"power": 1})", "{}", R"({"power": 1, "n": -1})"}) {
    OwnedPackage package;
    package.cmd = MorvixProtocolCommandReadResp_4_0;
    package.subDid = -77;
    package.needInsertSubDid = 9;
    LogCapture capture;
    ProtocolEncodeEntity_4_0(Entity({Bool("power", 0, 0), Number("n", 1, 1)}), package, Values(values));
    EXPECT_EQ(package.cmd, MorvixProtocolCommandReadResp_4_0);
    EXPECT_EQ(package.subDid, -77);
    EXPECT_EQ(package.needInsertSubDid, 9);
  }
}

TEST(EncodeEntity, NeitherReleasesNorUsesEarlierBuffers) {
  for (const char* values : {R"({"power": 1})", "{}"}) {
    SCOPED_TRACE(values);
    byte* const flags = static_cast<byte*>(std::calloc(4, 1));
    byte* const value = static_cast<byte*>(std::calloc(8, 1));
    OwnedPackage package;
    package.flags = flags;
    package.sizeFlags = 4;
    package.value = value;
    package.sizeValue = 8;
    LogCapture capture;
    ProtocolEncodeEntity_4_0(Entity({Bool("power", 0, 0)}), package, Values(values));
    const size_t expected = std::string(values) == "{}" ? 0 : 1;
    EXPECT_EQ(package.sizeFlags, expected);
    EXPECT_EQ(package.sizeValue, expected);
    EXPECT_NE(package.flags, flags);
    EXPECT_NE(package.value, value);
    EXPECT_EQ(ToHex(flags, 4) + ToHex(value, 8), "00 00 00 0000 00 00 00 00 00 00 00");
    std::free(flags);
    std::free(value);
  }
}

TEST(EncodeEntity, HandlesThousandsOfAttributes) {
  const size_t count = 1500;
  std::vector<Json::Value> attrs;
  Json::Value root;
  std::vector<byte> flags((count + 7) / 8, 0);
  std::vector<byte> payload(count, 0);
  for (size_t i = 0; i < count; ++i) {
    attrs.push_back(Number("a" + std::to_string(i), static_cast<int>(i), 1));
    if (i % 3 != 0) continue;
    root["main"]["a" + std::to_string(i)] = static_cast<int>(i % 251);
    payload[i] = static_cast<byte>(i % 251);
    byte& flagByte = flags[flags.size() - 1 - i / 8];
    flagByte = static_cast<byte>(flagByte | (1 << (i % 8)));
  }
  const Encoding result(Entity(attrs), root);
  EXPECT_EQ(result.Flags(), ToHex(flags));
  EXPECT_EQ(result.Payload(), ToHex(payload));
}

TEST(EncodeEntity, HandlesAFarPlace) {
  const Encoding result(Entity({Number("far", 1000000, 2)}), Values(R"({"far": 258})"));
  EXPECT_EQ(result.Flags(), "01");
  ASSERT_EQ(result.package.sizeValue, 1000002u);
  EXPECT_EQ(std::count(result.package.value, result.package.value + 1000000, 0), 1000000);
  EXPECT_EQ(ToHex(result.package.value + 1000000, 2), "01 02");
}

// Ends the process: 0 when the encoder left the package alone and logged the parser's line only.
[[noreturn]] void EncodeMoreThanFits() {
  rlimit limit;
  limit.rlim_cur = limit.rlim_max = rlim_t{2} << 30;
  const bool limited = setrlimit(RLIMIT_AS, &limit) == 0;
  byte flags[1] = {1};
  byte value[1] = {2};
  MorvixProtocolPackage_4_0 package;
  package.flags = flags;
  package.sizeFlags = 1;
  package.value = value;
  package.sizeValue = 1;
  LogCapture capture;
  ProtocolEncodeEntity_4_0(Entity({Binary("x", kMaxInt32, kMaxInt32)}), package, Values(R"({"x": "AQID"})"));
  const bool untouched =
      package.flags == flags && package.sizeFlags == 1 && package.value == value && package.sizeValue == 1;
  std::_Exit(limited && untouched && capture.Take() == LogLines({kFiltered}) ? 0 : 1);
}

TEST(EncodeEntityDeathTest, LeavesThePackageAloneWhenMemoryIsShort) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's address space cannot be limited";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
  GTEST_SKIP() << "a sanitizer's address space cannot be limited";
#endif
#endif
  EXPECT_EXIT(EncodeMoreThanFits(), ::testing::ExitedWithCode(0), "");
}

// ------------------------------------------------------------------------------------------- parsed beforehand

TEST(EncodeAttributes, TakesTheRecordsAsTheyAre) {
  auto readonly = Record("a", MorvixProtocolDataTypeBool_4_0, PositionOf(0, 17, MorvixProtocolUnitBit_4_0, 1, 3));
  readonly.type = MorvixProtocolTypeAlert_4_0;
  const auto number = Record("b", MorvixProtocolDataTypeUInt8_4_0, PositionOf(2, 0, MorvixProtocolUnitByte_4_0, 1));
  const Encoding result({readonly, number}, Values(R"({"a": 1, "b": 7})"));
  EXPECT_EQ(result.Flags(), "03");
  EXPECT_EQ(result.Payload(), "02 00 07");
  EXPECT_EQ(result.lines, LogLines());
}

TEST(EncodeAttributes, HasNothingToDoWithoutAttributes) {
  const Encoding result(std::vector<MorvixProtocolAttribute_4_0>(), Values(R"({"a": 1})"));
  EXPECT_EQ(result.lines, LogLines({Failure("No data will encode.")}));
  EXPECT_EQ(result.package.flags, nullptr);
  EXPECT_EQ(result.package.value, nullptr);
}

TEST(EncodeAttributes, EndsAtAnUnknownDataTypeEvenWithoutAValue) {
  const auto first = Record("a", MorvixProtocolDataTypeUInt8_4_0, PositionOf(0, 0, MorvixProtocolUnitByte_4_0, 1));
  auto last = first;
  last.name = "c";
  for (const uint32_t dataType : {0u, 8u, 255u, 0x80000000u, 0xffffffffu}) {
    SCOPED_TRACE(dataType);
    const auto unknown =
        Record("b", MorvixProtocolDataType_4_0(dataType), PositionOf(1, 0, MorvixProtocolUnitByte_4_0, 1));
    for (const char* values : {R"({"a": 5, "c": 6})", R"({"a": 5, "b": 1, "c": 6})"}) {
      const Encoding result({first, unknown, last}, Values(values));
      EXPECT_EQ(result.lines, LogLines({Failure("Attribute type is unknown, skip.")}));
      EXPECT_EQ(result.package.sizeFlags, 0u);
      EXPECT_EQ(result.package.sizeValue, 0u);
      ASSERT_NE(result.package.flags, nullptr);
      EXPECT_EQ(ToHex(result.package.flags, 1), "01");
      EXPECT_EQ(ToHex(result.package.value, 2), "05 00");
    }
  }
}

TEST(EncodeAttributes, FailsForAnUnknownUnit) {
  const std::vector<std::pair<MorvixProtocolDataType_4_0, std::string>> cases = {
      {MorvixProtocolDataTypeBool_4_0, "Write bool value failed."},
      {MorvixProtocolDataTypeEnum_4_0, "Write enum value failed."},
      {MorvixProtocolDataTypeBinary_4_0, "Write binary value failed."},
      {MorvixProtocolDataTypeUInt64_4_0, "Write uint value failed."}};
  for (const auto& [dataType, message] : cases) {
    SCOPED_TRACE(message);
    auto attribute = Record("a", dataType, PositionOf(0, 0, MorvixProtocolUnitUnknown_4_0, 1, 1));
    attribute.enumList = {"off", "on"};
    EXPECT_EQ(Encoding({attribute}, Values(R"({"a": "1"})")).lines, LogLines({Failure(message)}));
  }
}

TEST(EncodeAttributes, RefusesEveryIndexOfAnEnumWithoutItems) {
  const auto attribute = Record("a", MorvixProtocolDataTypeEnum_4_0, PositionOf(0, 0, MorvixProtocolUnitBit_4_0, 2, 1));
  EXPECT_EQ(Encoding({attribute}, Values(R"({"a": 0})")).lines,
            LogLines({Failure("Invalid enum value: 0, range: 0-0")}));
}

TEST(EncodeAttributes, TakesRawValuesOnTheStepGridAndTheMaximum) {
  auto attribute = Record("a", MorvixProtocolDataTypeUInt16_4_0, PositionOf(0, 0, MorvixProtocolUnitByte_4_0, 1));
  attribute.uint_spec.max = 10;
  attribute.uint_spec.step = 3;
  EXPECT_EQ(Encoding({attribute}, Values(R"({"a": 9})")).Payload(), "09");
  EXPECT_EQ(Encoding({attribute}, Values(R"({"a": 10})")).Payload(), "0a");
  EXPECT_EQ(Encoding({attribute}, Values(R"({"a": 8})")).lines, LogLines({Failure("Validate uint value failed.")}));
}

}  // namespace
}  // namespace entity_encoder_test
