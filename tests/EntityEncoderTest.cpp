// The entity encoder: an application's values become the flag bitmap and the payload of a package.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "TestSupport.h"

namespace entity_encoder_test {
namespace {

const int32_t kMaxInt32 = std::numeric_limits<int32_t>::max();

// The document with these values, a JSON text, for the entity above.
Json::Value Values(const std::string& values) {
  Json::Value root;
  root["main"] = ParseJson(values);
  return root;
}

Json::Value OneValue(const Json::Value& value) {
  Json::Value root;
  root["main"]["a"] = value;
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
  // The call ended without a result; the buffers hold these bytes all the same.
  void ExpectUncounted(const std::vector<byte>& flags, const std::vector<byte>& payload) const {
    EXPECT_EQ(package.sizeFlags, 0u);
    EXPECT_EQ(package.sizeValue, 0u);
    ASSERT_NE(package.flags, nullptr);
    ASSERT_NE(package.value, nullptr);
    EXPECT_EQ(std::vector<byte>(package.flags, package.flags + flags.size()), flags);
    EXPECT_EQ(std::vector<byte>(package.value, package.value + payload.size()), payload);
  }

  MorvixProtocolOwnedPackage_4_0 package;
  LogLines lines;
};

// A package that is already in use, with buffers that must not be released.
struct UsedPackage : MorvixProtocolPackage_4_0 {
  UsedPackage() {
    cmd = MorvixProtocolCommandReadResp_4_0;
    subDid = -77;
    needInsertSubDid = 9;
    flags = ownFlags;
    sizeFlags = 2;
    value = ownValue;
    sizeValue = 3;
  }
  // Nothing has changed but, perhaps, which buffers the package holds.
  bool IsUntouchedButForBuffers() const {
    return cmd == MorvixProtocolCommandReadResp_4_0 && subDid == -77 && needInsertSubDid == 9 &&
           ToHex(ownFlags, 2) + ToHex(ownValue, 3) == "01 0203 04 05";
  }
  bool IsUntouched() const {
    return IsUntouchedButForBuffers() && flags == ownFlags && sizeFlags == 2 && value == ownValue && sizeValue == 3;
  }

  byte ownFlags[2] = {1, 2};
  byte ownValue[3] = {3, 4, 5};
};

// The payload length for one attribute.
size_t EndOf(int32_t byteOffset, int32_t bitOffset, MorvixProtocolUnit_4_0 unit, int32_t len) {
  MorvixProtocolAttribute_4_0 attribute;
  attribute.position.byte_offset = byteOffset;
  attribute.position.bit_offset = bitOffset;
  attribute.position.unit = unit;
  attribute.position.len = len;
  attribute.position.groupByteLength = 9;  // does not matter
  return EncodeCalculateBytes({attribute});
}

// ---------------------------------------------------------------------------------------------------- look-ups

TEST(GetEntityValue, CopiesTheObjectOfTheEntity) {
  Json::Value entity("before");
  EXPECT_TRUE(GetEntityValue(ParseJson(R"({"main": {"a": 1}, "other": {}})"), "main", entity));
  EXPECT_EQ(WriteJson(entity), R"({"a":1})");
  EXPECT_TRUE(GetEntityValue(ParseJson(R"({"main": {"a": 1}, "other": {}})"), "other", entity));
  EXPECT_EQ(WriteJson(entity), "{}");
}

TEST(GetEntityValue, LeavesTheOutputAloneWhenTheDocumentIsNotAnObject) {
  for (const Json::Value& document : ParseJson(R"([null, true, 1, 1.5, "main", [{"main": {}}]])")) {
    SCOPED_TRACE(WriteJson(document));
    Json::Value entity("before");
    EXPECT_FALSE(GetEntityValue(document, "main", entity));
    EXPECT_EQ(entity, Json::Value("before"));
  }
}

TEST(GetEntityValue, CopiesAMemberOfAnotherKindAndRefusesIt) {
  for (const Json::Value& member : ParseJson(R"([null, false, 3, "text", [1]])")) {
    SCOPED_TRACE(WriteJson(member));
    Json::Value document;
    document["main"] = member;
    Json::Value entity("before");
    EXPECT_FALSE(GetEntityValue(document, "main", entity));
    EXPECT_EQ(entity, member);
    EXPECT_FALSE(GetEntityValue(document, "Main", entity));
    EXPECT_TRUE(entity.isNull());
  }
}

TEST(GetEntityValue, ComparesTheNameAfterANulToo) {
  Json::Value document;
  document[WithNul("ma", "in")]["a"] = 1;
  Json::Value entity;
  EXPECT_TRUE(GetEntityValue(document, WithNul("ma", "in"), entity));
  EXPECT_FALSE(GetEntityValue(document, "ma", entity));
  EXPECT_FALSE(GetEntityValue(document, WithNul("ma", "xx"), entity));
}

// Every row, of a JSON text, is a value and the integer that it gives.
void ExpectIntegers(const std::string& rows) {
  for (const Json::Value& row : ParseJson(rows)) {
    SCOPED_TRACE(WriteJson(row));
    uint64_t value = 99;
    EXPECT_TRUE(GetIntegerValue(OneValue(row[0]), "main", "a", value));
    EXPECT_EQ(value, row[1].asUInt64());
  }
}

TEST(GetIntegerValue, ReadsIntegersAndBools) {
  // Unsigned integers keep their 32-bit pattern, which is then widened with its sign.
  ExpectIntegers(R"([
      [0, 0], [7, 7], [true, 1], [false, 0], [2147483647, 2147483647], [2147483648, 18446744071562067968],
      [4294967295, 18446744073709551615], [-1, 18446744073709551615], [-2147483648, 18446744071562067968]])");
}

TEST(GetIntegerValue, ReadsTextAsUnsignedDecimal) {
  // Decimal ends at an x; too much saturates; a blank text keeps the preset.
  ExpectIntegers(R"([
      ["0", 0], ["42", 42], ["  42", 42], ["+42", 42], ["42 apples", 42], ["0042", 42], ["0x10", 0], ["2.9", 2],
      ["4294967296", 4294967296], ["18446744073709551615", 18446744073709551615], ["-1", 18446744073709551615],
      ["18446744073709551616", 18446744073709551615], ["4\u00002", 4], ["", 99], ["  ", 99], ["\t\n", 99],
      ["\u00005", 99]])");
}

TEST(GetIntegerValue, RefusesOtherKindsLettersAndWhatIsMissing) {
  // What the integer reader refuses, or does not find, is stored as 0.
  for (const Json::Value& refused : ParseJson(R"([null, 1.0, 0.0, 1.5, 4294967296, -2147483649, [1], {}])")) {
    SCOPED_TRACE(WriteJson(refused));
    uint64_t value = 99;
    EXPECT_FALSE(GetIntegerValue(OneValue(refused), "main", "a", value));
    EXPECT_EQ(value, 0u);
  }
  uint64_t value = 99;
  EXPECT_FALSE(GetIntegerValue(OneValue(1), "main", "b", value));
  EXPECT_EQ(value, 0u);
  // A refused string leaves the output unchanged, and so does an absent entity.
  value = 99;
  EXPECT_FALSE(GetIntegerValue(OneValue("letters"), "main", "a", value));
  EXPECT_FALSE(GetIntegerValue(OneValue("x1"), "main", "a", value));
  EXPECT_FALSE(GetIntegerValue(OneValue(1), "other", "a", value));
  EXPECT_FALSE(GetIntegerValue(ParseJson(R"({"main": [1]})"), "main", "a", value));
  EXPECT_FALSE(GetIntegerValue(Json::Value(), "main", "a", value));
  EXPECT_EQ(value, 99u);
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
  for (const Json::Value& row : ParseJson(R"([
      [7, 7], [-7, -7], [2.5, 2.5], [4294967295, 4294967295.0], [9007199254740992, 9007199254740992.0], [1e30, 1e30],
      ["2.5", 2.5], [" -1e2x", -100], ["0x10", 16], ["", 99], ["  ", 99]])")) {
    SCOPED_TRACE(WriteJson(row));
    double value = 99;
    EXPECT_TRUE(GetDoubleValue(OneValue(row[0]), "main", "a", value));
    EXPECT_EQ(value, row[1].asDouble());
  }
}

TEST(GetDoubleValue, RefusesOtherKindsAndLetters) {
  double value = 99;
  for (const Json::Value& refused : ParseJson(R"([null, true, [1], {}, "one"])")) {
    SCOPED_TRACE(WriteJson(refused));
    EXPECT_FALSE(GetDoubleValue(OneValue(refused), "main", "a", value));
    EXPECT_EQ(value, 99);
  }
  EXPECT_FALSE(GetDoubleValue(OneValue(1), "other", "a", value));
}

// ---------------------------------------------------------------------------------------------- payload length

TEST(EncodeCalculateBytes, IsTheFurthestEndWhateverTheOrder) {
  const Json::Value bits = Enum("bits", 1, 5, 6);
  const Json::Value bytes = Number("bytes", 4, 4);
  EXPECT_EQ(EncodeCalculateBytes(Records({})), 0u);
  EXPECT_EQ(EncodeCalculateBytes(Records({bits})), 3u);
  EXPECT_EQ(EncodeCalculateBytes(Records({bytes, bits})), 8u);
  EXPECT_EQ(EncodeCalculateBytes(Records({bits, bytes})), 8u);
}

TEST(EncodeCalculateBytes, RoundsBitsUpAndCountsEverythingElseAsBytes) {
  EXPECT_EQ(EndOf(0, 0, MorvixProtocolUnitBit_4_0, 1), 1u);
  EXPECT_EQ(EndOf(0, 0, MorvixProtocolUnitBit_4_0, 8), 1u);
  EXPECT_EQ(EndOf(0, 0, MorvixProtocolUnitBit_4_0, 9), 2u);
  EXPECT_EQ(EndOf(0, 7, MorvixProtocolUnitBit_4_0, 1), 1u);
  EXPECT_EQ(EndOf(2, 15, MorvixProtocolUnitBit_4_0, 2), 5u);
  EXPECT_EQ(EndOf(3, 50, MorvixProtocolUnitByte_4_0, 9), 12u);
  EXPECT_EQ(EndOf(3, 50, MorvixProtocolUnitUnknown_4_0, 9), 12u);
}

TEST(EncodeCalculateBytes, AddsNothingForAnEndAtOrBeforeTheStart) {
  EXPECT_EQ(EndOf(0, 0, MorvixProtocolUnitByte_4_0, 0), 0u);
  EXPECT_EQ(EndOf(-5, 0, MorvixProtocolUnitByte_4_0, 2), 0u);
  EXPECT_EQ(EndOf(-5, 0, MorvixProtocolUnitByte_4_0, 5), 0u);
  EXPECT_EQ(EndOf(-5, 0, MorvixProtocolUnitByte_4_0, 6), 1u);
  EXPECT_EQ(EndOf(3, 0, MorvixProtocolUnitByte_4_0, -2), 1u);
  EXPECT_EQ(EndOf(0, -9, MorvixProtocolUnitBit_4_0, 1), 0u);
  EXPECT_EQ(EndOf(3, -9, MorvixProtocolUnitBit_4_0, 1), 2u);
  EXPECT_EQ(EndOf(3, -2, MorvixProtocolUnitBit_4_0, 1), 3u);
  EXPECT_EQ(EndOf(20, -100, MorvixProtocolUnitBit_4_0, 20), 10u);  // 80 bits before byte 20
  EXPECT_EQ(EndOf(20, -100, MorvixProtocolUnitBit_4_0, 21), 11u);
}

TEST(EncodeCalculateBytes, DoesNotWrapAt32Bits) {
  const int32_t min = std::numeric_limits<int32_t>::min();
  EXPECT_EQ(EndOf(kMaxInt32, 0, MorvixProtocolUnitByte_4_0, kMaxInt32), 4294967294u);
  // 4294967294 bits are 536870912 bytes.
  EXPECT_EQ(EndOf(kMaxInt32, kMaxInt32, MorvixProtocolUnitBit_4_0, kMaxInt32), 2684354559u);
  EXPECT_EQ(EndOf(min, min, MorvixProtocolUnitBit_4_0, min), 0u);
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
  const Json::Value entity = Entity({With(Bool("seen", 0, 0), R"({"type": "status_readonly"})"),
                                     With(Bool("hot", 1, 0), R"({"type": "alert"})"),
                                     With(Bool("broken", 2, 0), R"({"type": "fault"})"), Number("level", 3, 1)});
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
  const Json::Value between = With(Number("between", 5, 1), R"({"type": "status_readonly"})");
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
  std::vector<Json::Value> attrs;
  Json::Value all;
  for (size_t count = 1; count <= 40; ++count) {
    const std::string last = "a" + std::to_string(count - 1);
    attrs.push_back(Number(last, static_cast<int>(count - 1), 1));
    all["main"][last] = 255;
    std::vector<byte> everyFlag((count + 7) / 8, 0);
    for (size_t i = 0; i < count; ++i) {
      SCOPED_TRACE("attribute " + std::to_string(i) + " of " + std::to_string(count));
      std::vector<byte> flags((count + 7) / 8, 0);
      flags[flags.size() - 1 - i / 8] = static_cast<byte>(1 << (i % 8));
      everyFlag[flags.size() - 1 - i / 8] |= static_cast<byte>(1 << (i % 8));
      std::vector<byte> payload(count, 0);
      payload[i] = 9;
      const Encoding result(Entity(attrs), Values("{\"a" + std::to_string(i) + "\": 9}"));
      EXPECT_EQ(result.Flags(), ToHex(flags));
      EXPECT_EQ(result.Payload(), ToHex(payload));
    }
    const Encoding result(Entity(attrs), all);
    EXPECT_EQ(result.Flags(), ToHex(everyFlag));
    EXPECT_EQ(result.Payload(), ToHex(std::vector<byte>(count, 255)));
  }
}

TEST(EncodeEntity, PutsTheNinthFlagIntoTheFirstOfTwoBytes) {
  std::vector<Json::Value> attrs;
  for (int i = 0; i < 9; ++i) attrs.push_back(Bool("a" + std::to_string(i), 0, i));
  EXPECT_EQ(Encoding(Entity(attrs), Values(R"({"a8": 1})")).Flags(), "01 00");
}

// --------------------------------------------------------------------------------------------------- value forms

// Every row, of a JSON text, is a value of the attribute "a" and the payload that it gives.
void ExpectPayloads(const Json::Value& entity, const std::string& rows) {
  for (const Json::Value& row : ParseJson(rows)) {
    SCOPED_TRACE(WriteJson(row));
    const Encoding result(entity, OneValue(row[0]));
    EXPECT_EQ(result.Flags(), "01");
    EXPECT_EQ(result.Payload(), row[1].asString());
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
  }
}

TEST(EncodeEntity, TakesIntegersAndTheirTextForABool) {
  ExpectPayloads(Entity({Bool("a", 0, 3)}), R"([
      [1, "08"], [0, "00"], [2, "08"], [-1, "08"], [true, "08"], [false, "00"], [2147483648, "08"],
      [4294967295, "08"], ["1", "08"], ["0", "00"], ["12", "08"], [" 1", "08"], ["1on", "08"], ["-1", "08"],
      ["0x1", "00"], ["", "00"], ["  ", "00"], ["4294967296", "08"], ["99999999999999999999", "08"]])");
}

TEST(EncodeEntity, TakesIntegersAndTheirTextForAnEnum) {
  ExpectPayloads(Entity({Enum("a", 0, 4, 2)}), R"([
      [0, "00"], [1, "10"], [2, "20"], [true, "10"], [false, "00"], ["2", "20"], [" 1x", "10"], ["0x2", "00"],
      ["", "00"], [" ", "00"]])");
}

TEST(EncodeEntity, TakesNumbersAndTheirTextForANumber) {
  // An exact half rounds down.
  ExpectPayloads(Entity({Number("a", 0, 4)}), R"([
      [7, "00 00 00 07"], [7.0, "00 00 00 07"], [7.4, "00 00 00 07"], [7.5, "00 00 00 07"], [7.6, "00 00 00 08"],
      [8.5, "00 00 00 08"], [-0.0, "00 00 00 00"], [305419896, "12 34 56 78"], [2147483648, "80 00 00 00"],
      [4294967295, "ff ff ff ff"], ["7", "00 00 00 07"], ["7.6 degrees", "00 00 00 08"], ["0x10", "00 00 00 10"],
      ["1e2", "00 00 00 64"], ["nan", "00 00 00 00"], ["", "00 00 00 00"], [" ", "00 00 00 00"]])");
}

TEST(EncodeEntity, TakesAnyTextForABinary) {
  // What a short text does not reach stays zero, and a long text ends with the field.
  ExpectPayloads(Entity({Binary("a", 1, 3), Number("after", 4, 1)}), R"([
      ["AQID", "00 01 02 03 00"], ["AQ==", "00 01 00 00 00"], ["AQIDBAUG", "00 01 02 03 00"],
      ["AQ ID", "00 01 02 03 00"], ["****", "00 00 00 00 00"], ["", "00 00 00 00 00"],
      ["AQ==\u0000AQID", "00 01 00 00 00"]])");
}

TEST(EncodeEntity, LeavesOutValuesOfOtherKinds) {
  const Json::Value entity = Entity({Bool("b", 0, 0), Enum("e", 0, 1, 2), Number("n", 1, 1), Binary("x", 2, 1)});
  for (const Json::Value& values : ParseJson(R"([
      {}, {"b": null, "e": null, "n": null, "x": null}, {"b": 1.0, "e": 1.0, "n": true, "x": 1},
      {"b": 0.0, "e": 2.5, "n": false, "x": 1.5}, {"b": [], "e": [1], "n": [1], "x": ["AQ=="]},
      {"b": {}, "e": {"a": 1}, "n": {}, "x": {}}, {"b": "on", "e": "item 1", "n": "much", "x": true},
      {"b": 4294967296, "e": -2147483649}])")) {
    SCOPED_TRACE(WriteJson(values));
    Json::Value root;
    root["main"] = values;
    const Encoding result(entity, root);
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
    result.ExpectUncounted({0}, {0, 0, 0});
  }
}

TEST(EncodeEntity, FindsNothingWithoutAnObjectForTheEntity) {
  for (const Json::Value& root : ParseJson(R"([
      null, true, 5, 1.5, "main", [], [{"main": {"power": 1}}], {}, {"power": 1}, {"main": null}, {"main": 1},
      {"main": [{"power": 1}]}, {"Main": {"power": 1}}])")) {
    SCOPED_TRACE(WriteJson(root));
    const Encoding result(Entity({Bool("power", 0, 0)}), root);
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
    result.ExpectUncounted({0}, {0});
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

TEST(EncodeEntity, DropsTheBitsThatAFieldDoesNotHold) {
  EXPECT_EQ(Encoding(Entity({Number("n", 0, 3)}), Values(R"({"n": 287454020})")).Payload(), "22 33 44");
  EXPECT_EQ(Encoding(Entity({Enum("e", 0, 0, 2, 6)}), Values(R"({"e": 5})")).Payload(), "01");
}

TEST(EncodeEntity, TakesTheWidestNumberAndAnEnumInBytes) {
  const Json::Value wide = Entity({Number("n", 0, 8, R"({"max": 4503599627370495})")});
  EXPECT_EQ(Encoding(wide, Values(R"({"n": 4503599627370495})")).Payload(), "00 0f ff ff ff ff ff ff");
  const Json::Value inBytes = Entity({With(Enum("e", 1, 0, 2, 300), R"({"position": {"unit": "byte"}})")});
  EXPECT_EQ(Encoding(inBytes, Values(R"({"e": 299})")).Payload(), "00 01 2b");
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
  const char* const inBytes = R"({"position": {"unit": "byte"}})";
  const char* const inBits = R"({"position": {"unit": "bit"}})";
  const std::string boolFailed = "Write bool value failed.";
  const std::string enumFailed = "Write enum value failed.";
  const std::string binaryFailed = "Write binary value failed.";
  const std::string refused = "Validate uint value failed.";
  const std::string numberFailed = "Write uint value failed.";
  const std::vector<Row> rows = {
      {"a bool in bytes", With(Bool("x", 1, 0), inBytes), "1", boolFailed, 2},
      {"a bool of two bits", With(Bool("x", 1, 0), R"({"position": {"len": 2}})"), "1", boolFailed, 2},
      {"a bool at bit -2", Bool("x", 1, -2), "0", boolFailed, 1},
      {"a bool before the payload", Bool("x", -1, 0), "1", boolFailed, 1},
      {"an index that is the count", Enum("x", 1, 0, 2), "3", "Invalid enum value: 3, range: 0-3", 2},
      {"a negative index", Enum("x", 1, 0, 2), "-1", "Invalid enum value: -1, range: 0-3", 2},
      {"an index of 33 bits", Enum("x", 1, 0, 2), "\"4294967301\"", "Invalid enum value: 5, range: 0-3", 2},
      {"an enum of nine bytes", With(Enum("x", 1, 0, 9), inBytes), "1", enumFailed, 10},
      {"an enum of no bytes", With(Enum("x", 1, 0, 0), inBytes), "1", enumFailed, 1},
      {"an enum of 65 bits", Enum("x", 1, 0, 65), "1", enumFailed, 10},
      {"an enum of no bits", Enum("x", 1, 1, 0), "1", enumFailed, 2},
      {"an enum over nine bytes", Enum("x", 1, 1, 64), "1", enumFailed, 10},
      {"an enum at bit -1", Enum("x", 1, -1, 2), "1", enumFailed, 2},
      {"a binary in bits", With(Binary("x", 1, 3), inBits), "\"AQID\"", binaryFailed, 2},
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
      {"a number in bits", With(Number("x", 1, 8), inBits), "1", numberFailed, 2},
      {"a number before the payload", Number("x", -1, 2), "1", numberFailed, 1}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const Json::Value entity = Entity({Number("first", 0, 1), row.attr, Number("after", 0, 1)});
    const Encoding result(entity, Values("{\"first\": 165, \"after\": 17, \"x\": " + row.value + "}"));
    EXPECT_EQ(result.lines, LogLines({kFiltered, Failure(row.message)}));
    std::vector<byte> payload(row.payloadBytes, 0);
    payload[0] = 165;
    result.ExpectUncounted({1}, payload);
    // Without a value the bad place is ignored.
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
  const Json::Value entity = Entity({Bool("power", 0, 0)});
  std::vector<std::pair<Json::Value, std::string>> cases = {
      {Json::Value(), "Invalid entity."}, {ParseJson("[]"), "Invalid entity."}, {"main", "Invalid entity."}};
  for (const std::string key : {"id", "name", "display_name", "attrs"}) {
    cases.emplace_back(entity, "Can't find '" + key + "' key.");
    cases.back().first.removeMember(key);
  }
  for (const auto& [unusable, reason] : cases) {
    SCOPED_TRACE(reason);
    UsedPackage package;
    LogCapture capture;
    ProtocolEncodeEntity_4_0(unusable, package, Values(R"({"power": 1})"));
    EXPECT_EQ(capture.Take(),
              LogLines({{1, "GetEntityInfo", "Warning: " + reason}, Failure("Get entity info failed.")}));
    EXPECT_TRUE(package.IsUntouched());
  }
}

TEST(EncodeEntity, LeavesThePackageAloneWhenThePayloadHasNoBytes) {
  for (const Json::Value& entity :
       {Entity({}), Entity({With(Bool("x", 0, 0), R"({"type": "fault"})")}), Entity({Binary("x", 0, 0)}),
        Entity({Binary("x", -5, 5)}), Entity({Bool("x", -1, 7), Bool("y", 0, -9)})}) {
    SCOPED_TRACE(WriteJson(entity));
    UsedPackage package;
    LogCapture capture;
    ProtocolEncodeEntity_4_0(entity, package, Values(R"({"x": "AQID", "y": 1})"));
    EXPECT_EQ(capture.Take(), LogLines({kFiltered, Failure("No data will encode.")}));
    EXPECT_TRUE(package.IsUntouched());
  }
}

TEST(EncodeEntity, PassesOnTheErrorOfAnArrayAsABoundBeforeItTouchesThePackage) {
  for (const char* scaling : {R"({"min": []})", R"({"max": [1]})"}) {
    UsedPackage package;
    LogCapture capture;
    EXPECT_THROW(ProtocolEncodeEntity_4_0(Entity({Number("n", 0, 1, scaling)}), package, Values("{}")),
                 Json::LogicError);
    EXPECT_EQ(capture.Take(), LogLines({kFiltered}));
    EXPECT_TRUE(package.IsUntouched());
  }
}

// --------------------------------------------------------------------------------------------------- the package

TEST(EncodeEntity, ReplacesTheBuffersOfAPackageInUseWithoutReleasingThem) {
  for (const char* values : {R"({"power": 1})", "{}", R"({"power": 1, "n": -1})"}) {
    SCOPED_TRACE(values);
    UsedPackage package;
    LogCapture capture;
    ProtocolEncodeEntity_4_0(Entity({Bool("power", 0, 0), Number("n", 1, 1)}), package, Values(values));
    EXPECT_TRUE(package.IsUntouchedButForBuffers());
    ASSERT_NE(package.flags, package.ownFlags);
    ASSERT_NE(package.value, package.ownValue);
    const bool written = std::string(values) == R"({"power": 1})";
    EXPECT_EQ(package.sizeFlags, written ? 1u : 0u);
    EXPECT_EQ(package.sizeValue, written ? 2u : 0u);
    std::free(package.flags);
    std::free(package.value);
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

// ------------------------------------------------------------------------------------------- parsed beforehand

TEST(EncodeAttributes, TakesTheRecordsAsTheyAre) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Bool("a", 0, 17), Number("b", 2, 1)});
  attributes[0].type = MorvixProtocolTypeAlert_4_0;
  attributes[0].position.groupByteLength = 4;
  const Encoding result(attributes, Values(R"({"a": 1, "b": 7})"));
  EXPECT_EQ(result.lines, LogLines());
  EXPECT_EQ(result.Flags(), "03");
  EXPECT_EQ(result.Payload(), "00 02 07");  // bit 17 of four bytes is in the second
}

TEST(EncodeAttributes, HasNothingToDoWithoutAttributes) {
  const Encoding result(Records({}), Values(R"({"a": 1})"));
  EXPECT_EQ(result.lines, LogLines({Failure("No data will encode.")}));
  EXPECT_EQ(result.package.flags, nullptr);
  EXPECT_EQ(result.package.value, nullptr);
}

TEST(EncodeAttributes, EndsAtAnUnknownDataTypeEvenWithoutAValue) {
  std::vector<MorvixProtocolAttribute_4_0> attributes =
      Records({Number("a", 0, 1), Number("b", 1, 1), Number("c", 1, 1)});
  for (const uint32_t dataType : {0u, 8u, 255u, 0x80000000u, 0xffffffffu}) {
    attributes[1].data_type = MorvixProtocolDataType_4_0(dataType);
    for (const char* values : {R"({"a": 5, "c": 6})", R"({"a": 5, "b": 1, "c": 6})"}) {
      SCOPED_TRACE(std::to_string(dataType) + " " + values);
      const Encoding result(attributes, Values(values));
      EXPECT_EQ(result.lines, LogLines({Failure("Attribute type is unknown, skip.")}));
      result.ExpectUncounted({1}, {5, 0});
    }
  }
}

TEST(EncodeAttributes, FailsForAnUnknownUnit) {
  const std::vector<std::pair<Json::Value, std::string>> cases = {{Bool("a", 0, 0), "Write bool value failed."},
                                                                  {Enum("a", 0, 0, 2), "Write enum value failed."},
                                                                  {Binary("a", 0, 2), "Write binary value failed."},
                                                                  {Number("a", 0, 2), "Write uint value failed."}};
  for (const auto& [attr, message] : cases) {
    SCOPED_TRACE(message);
    std::vector<MorvixProtocolAttribute_4_0> attributes = Records({attr});
    attributes[0].position.unit = MorvixProtocolUnitUnknown_4_0;
    EXPECT_EQ(Encoding(attributes, Values(R"({"a": "1"})")).lines, LogLines({Failure(message)}));
  }
}

TEST(EncodeAttributes, RefusesEveryIndexOfAnEnumWithoutItems) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Enum("a", 0, 0, 2)});
  attributes[0].enumList.clear();
  EXPECT_EQ(Encoding(attributes, Values(R"({"a": 0})")).lines,
            LogLines({Failure("Invalid enum value: 0, range: 0-0")}));
}

TEST(EncodeAttributes, TakesRawValuesOnTheStepGridAndTheMaximum) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Number("a", 0, 1, R"({"max": 10})")});
  attributes[0].uint_spec.step = 3;
  EXPECT_EQ(Encoding(attributes, Values(R"({"a": 9})")).Payload(), "09");
  EXPECT_EQ(Encoding(attributes, Values(R"({"a": 10})")).Payload(), "0a");
  EXPECT_EQ(Encoding(attributes, Values(R"({"a": 8})")).lines, LogLines({Failure("Validate uint value failed.")}));
}

}  // namespace
}  // namespace entity_encoder_test
