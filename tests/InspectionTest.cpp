// Questions about configurations and single values: what became of elements, places, outcomes and scalings.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box, to hold answers against the codec itself
// clang-format on

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "TestSupport.h"

namespace inspection_test {
namespace {

using Attribute = MorvixProtocolAttribute_4_0;
using Element = MorvixProtocolElement_4_0;
using Result = MorvixProtocolResult_4_0;
using Results = std::vector<Result>;

constexpr size_t kNone = SIZE_MAX;
constexpr auto kWritable = MorvixProtocolTypeStatusWritable_4_0;
constexpr auto kNoType = MorvixProtocolTypeUnknown_4_0;
constexpr auto kBool = MorvixProtocolDataTypeBool_4_0;
constexpr auto kEnum = MorvixProtocolDataTypeEnum_4_0;
constexpr auto kBinary = MorvixProtocolDataTypeBinary_4_0;
constexpr auto kUInt8 = MorvixProtocolDataTypeUInt8_4_0;
constexpr auto kUInt64 = MorvixProtocolDataTypeUInt64_4_0;
constexpr auto kNoDataType = MorvixProtocolDataTypeUnknown_4_0;

constexpr auto kNotReached = MorvixProtocolOutcomeNotReached_4_0;
constexpr auto kDone = MorvixProtocolOutcomeDone_4_0;
constexpr auto kAbsent = MorvixProtocolOutcomeAbsent_4_0;
constexpr auto kWrongKind = MorvixProtocolOutcomeWrongKind_4_0;
constexpr auto kByScaling = MorvixProtocolOutcomeRefusedByScaling_4_0;
constexpr auto kByItems = MorvixProtocolOutcomeRefusedByItems_4_0;
constexpr auto kByPlace = MorvixProtocolOutcomeRefusedByPlace_4_0;
constexpr auto kUnreadable = MorvixProtocolOutcomeUnreadable_4_0;

// Raw 10 to 200, each worth a half, from 5 on.
Json::Value Number(const std::string& name, int byteOffset, int len = 1) {
  return With(::Number(name, byteOffset, len, R"({"min": 10, "max": 200, "ratio": 0.5})"), R"({"data_type": "uint8"})");
}

Attribute At(MorvixProtocolDataType_4_0 dataType, int32_t byteOffset, int32_t bitOffset, MorvixProtocolUnit_4_0 unit,
             int32_t len, size_t groupByteLength = 0) {
  Attribute attribute;
  attribute.data_type = dataType;
  attribute.position = {byteOffset, bitOffset, unit, len, groupByteLength};
  return attribute;
}

constexpr auto kByte = MorvixProtocolUnitByte_4_0;
constexpr auto kBit = MorvixProtocolUnitBit_4_0;

// --------------------------------------------------------------------------------------------------------- elements

TEST(ParseEntityWithElements, TellsWhatBecameOfEachElement) {
  Json::Value entity = Entity({
      Number("taken", 0),
      With(Bool("of another group", 1, 0), R"({"type": "alert"})"),
      Json::Value(5),
      With(Bool("no type", 1, 0), R"({"type": "status"})"),
      With(Bool("no data type", 1, 0), R"({"data_type": 7})"),
      With(Bool("no description", 1, 0), R"({"desc": null, "type": "FAULT"})"),
      With(Bool("no position", 1, 0), R"({"position": null})"),
      With(Bool("no unit", 1, 0), R"({"position": {"unit": "bits"}})"),
      AttributeOf("status_writable", "no items", "enum", 1, 0, "bit", 1),
      With(Number("no ratio", 2), R"({"uint_spec": {"ratio": null}})"),
      Bool("inherits no ratio", 1, 0),
      Number("last", 3),
  });
  std::vector<Attribute> attributes(2);
  std::vector<Element> elements(1);
  MorvixProtocolEntity_4_0 entityInfo;
  LogCapture capture;
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity, kWritable, attributes, entityInfo, elements));
  EXPECT_EQ(elements, (std::vector<Element>{{},
                                            {2, "", kWritable, kUInt8},
                                            {kNone, "", MorvixProtocolTypeAlert_4_0, kBool},
                                            {kNone, "attr", kNoType, kNoDataType},
                                            {kNone, "type", kNoType, kBool},
                                            {kNone, "data_type", kWritable, kNoDataType},
                                            {kNone, "desc", MorvixProtocolTypeFault_4_0, kBool},
                                            {kNone, "position", kWritable, kBool},
                                            {kNone, "position.unit", kWritable, kBool},
                                            {kNone, "enum", kWritable, kEnum},
                                            {kNone, "ratio", kWritable, kUInt8},
                                            {kNone, "ratio", kWritable, kBool},
                                            {3, "", kWritable, kUInt8}}));
  // Everything else is as without the report.
  const LogLines lines = capture.Take();
  std::vector<Attribute> same(2);
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity, kWritable, same, entityInfo));
  EXPECT_EQ(capture.Lines(), lines);
  ASSERT_EQ(attributes.size(), same.size());
  for (size_t i = 0; i < same.size(); ++i) EXPECT_EQ(attributes[i].name, same[i].name);
}

TEST(ParseEntityWithElements, CountsLeftOutElementsOfASparseArray) {
  Json::Value entity = Entity({});
  entity["attrs"][2] = Bool("b", 0, 0);
  std::vector<Attribute> attributes;
  std::vector<Element> elements;
  MorvixProtocolEntity_4_0 entityInfo;
  const LogCapture capture;
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity, 15, attributes, entityInfo, elements));
  const Element missing = {kNone, "attr", kNoType, kNoDataType};
  EXPECT_EQ(elements, (std::vector<Element>{missing, missing, {0, "", kWritable, kBool}}));
}

TEST(ParseEntityWithElements, TellsNothingOfAnUnusableEntity) {
  std::vector<Attribute> attributes;
  std::vector<Element> elements;
  MorvixProtocolEntity_4_0 entityInfo;
  const LogCapture capture;
  EXPECT_FALSE(ProtocolParseEntity_4_0(ParseJson(R"({"attrs": [1]})"), 15, attributes, entityInfo, elements));
  EXPECT_TRUE(elements.empty());
  EXPECT_EQ(capture.Lines(), LogLines({{1, "GetEntityInfo", "Warning: Can't find 'id' key."}}));
}

TEST(ParseEntityWithElements, TellsOfTheElementsBeforeAnError) {
  const Json::Value entity =
      Entity({Bool("b", 0, 0), With(Number("n", 1), R"({"uint_spec": {"min": [1]}})"), Bool("c", 2, 0)});
  std::vector<Attribute> attributes;
  std::vector<Element> elements;
  MorvixProtocolEntity_4_0 entityInfo;
  const LogCapture capture;
  EXPECT_THROW(static_cast<void>(ProtocolParseEntity_4_0(entity, 15, attributes, entityInfo, elements)),
               Json::LogicError);
  EXPECT_EQ(elements, (std::vector<Element>{{0, "", kWritable, kBool}}));
}

// ----------------------------------------------------------------------------------------------------------- places

TEST(PayloadBytes, IsTheEndOfTheFurthestReachingAttribute) {
  EXPECT_EQ(ProtocolPayloadBytes_4_0({}), 0u);
  EXPECT_EQ(ProtocolPayloadBytes_4_0(Records({Binary("x", 3, 2), Bool("b", 4, 9)})), 6u);
  EXPECT_EQ(ProtocolPayloadBytes_4_0({At(kBinary, -5, 0, kByte, 5)}), 0u);
  EXPECT_EQ(ProtocolPayloadBytes_4_0({At(kBinary, INT32_MAX, 0, kByte, INT32_MAX)}), 4294967294u);
}

// The place that is found, as "first bit + number of bits"; empty for none.
std::string PlaceOf(const Attribute& attribute, size_t payloadBytes) {
  size_t firstBit = 77;
  size_t bitCount = 88;
  if (!ProtocolLocateAttribute_4_0(attribute, payloadBytes, firstBit, bitCount)) {
    EXPECT_EQ(firstBit, 77u);
    EXPECT_EQ(bitCount, 88u);
    return "";
  }
  return std::to_string(firstBit) + "+" + std::to_string(bitCount);
}

TEST(LocateAttribute, CountsBitsFromTheHighestOfByteZero) {
  EXPECT_EQ(PlaceOf(At(kUInt8, 3, 0, kByte, 2), 5), "24+16");
  EXPECT_EQ(PlaceOf(At(kUInt8, 3, 9, kByte, 2), 5), "24+16");  // bit_offset does not count in bytes
  EXPECT_EQ(PlaceOf(At(kEnum, 3, 0, kByte, 8), 11), "24+64");
  EXPECT_EQ(PlaceOf(At(kBinary, 0, 0, kByte, 65535), 65535), "0+524280");
  // A group of two bytes at byte 2: bit 5 of it is bit 5 of byte 3, whose highest bit is the payload's bit 24.
  EXPECT_EQ(PlaceOf(At(kEnum, 2, 5, kBit, 6, 2), 4), "21+6");
  EXPECT_EQ(PlaceOf(At(kBool, 2, 0, kBit, 1, 2), 4), "31+1");
  EXPECT_EQ(PlaceOf(At(kBool, 2, 9, kBit, 1, 2), 4), "22+1");
  EXPECT_EQ(PlaceOf(At(kEnum, 0, 0, kBit, 64, 8), 8), "0+64");
  // A field may reach into the bytes before its group, and a group may begin before the payload.
  EXPECT_EQ(PlaceOf(At(kEnum, 1, 6, kBit, 4, 1), 2), "6+4");
  EXPECT_EQ(PlaceOf(At(kEnum, -1, 2, kBit, 3, 2), 1), "3+3");
}

TEST(LocateAttribute, FindsNothingOutsideThePayload) {
  EXPECT_EQ(PlaceOf(At(kUInt8, 3, 0, kByte, 2), 4), "");
  EXPECT_EQ(PlaceOf(At(kUInt8, 0, 0, kByte, 1), 0), "");
  EXPECT_EQ(PlaceOf(At(kUInt8, -1, 0, kByte, 1), 4), "");
  EXPECT_EQ(PlaceOf(At(kUInt8, 0, 0, kByte, 0), 4), "");
  EXPECT_EQ(PlaceOf(At(kUInt8, 0, 0, kByte, -1), 4), "");
  EXPECT_EQ(PlaceOf(At(kBool, 2, 0, kBit, 1, 2), 3), "");
  EXPECT_EQ(PlaceOf(At(kBool, 2, 16, kBit, 1, 2), 99), "");
  EXPECT_EQ(PlaceOf(At(kEnum, 0, 6, kBit, 4, 1), 2), "");  // it would begin before the payload
  EXPECT_EQ(PlaceOf(At(kEnum, 0, 0, kBit, 0, 1), 1), "");
  EXPECT_EQ(PlaceOf(At(kBool, 0, 0, MorvixProtocolUnitUnknown_4_0, 1, 1), 1), "");
}

TEST(LocateAttribute, FindsNothingThatTheDataTypeCannotUse) {
  EXPECT_EQ(PlaceOf(At(kBool, 0, 0, kByte, 1), 4), "");
  EXPECT_EQ(PlaceOf(At(kBool, 0, 0, kBit, 2, 1), 4), "");
  EXPECT_EQ(PlaceOf(At(kBinary, 0, 0, kBit, 8, 1), 4), "");
  EXPECT_EQ(PlaceOf(At(kBinary, 0, 0, kByte, 65536), 70000), "");
  EXPECT_EQ(PlaceOf(At(kUInt64, 0, 0, kByte, 9), 10), "");
  EXPECT_EQ(PlaceOf(At(kEnum, 0, 0, kByte, 9), 10), "");
  EXPECT_EQ(PlaceOf(At(kUInt8, 0, 0, kBit, 8), 4), "");     // numbers have no group
  EXPECT_EQ(PlaceOf(At(kEnum, 0, 1, kBit, 64, 9), 9), "");  // with the bit below it more than a word
  EXPECT_EQ(PlaceOf(At(kEnum, 0, 0, kBit, 65, 9), 9), "");
  EXPECT_EQ(PlaceOf(At(kNoDataType, 0, 0, kByte, 1), 4), "");
  EXPECT_EQ(PlaceOf(At(MorvixProtocolDataType_4_0(8), 0, 0, kByte, 1), 4), "");
}

// The bit after the group passes the codec's test of the place, but nothing is written or read there.
TEST(LocateAttribute, FindsNothingAtANegativeBitOffset) {
  for (const auto type : {kBool, kEnum, kUInt64}) {
    EXPECT_EQ(PlaceOf(At(type, 0, -1, kBit, 1, 1), 4), "");
    EXPECT_EQ(PlaceOf(At(type, 0, -2, kBit, 1, 1), 4), "");
    EXPECT_EQ(PlaceOf(At(type, 2, -1, kBit, 1, 0), 4), "");
  }
}

// Every small position: where a place is told, writing all ones changes just these bits; elsewhere writing fails or
// changes nothing.
TEST(LocateAttribute, AgreesWithTheWriters) {
  size_t found = 0;
  for (int32_t byteOffset = -2; byteOffset <= 3; ++byteOffset) {
    for (int32_t bitOffset = -9; bitOffset <= 25; ++bitOffset) {
      for (int32_t len = -1; len <= 18; ++len) {
        for (const auto unit : {kByte, kBit}) {
          for (const size_t group : {0u, 1u, 2u, 3u}) {
            for (const auto type : {kBool, kEnum}) {
              const Attribute attribute = At(type, byteOffset, bitOffset, unit, len, group);
              std::vector<byte> payload(4);
              size_t length = payload.size();
              const bool isWritten = type == kBool
                                         ? WriteBoolValue(payload.data(), length, attribute.position, true)
                                         : WriteUIntValue(payload.data(), length, attribute.position, UINT64_MAX);
              size_t firstBit = 0;
              size_t bitCount = 0;
              const bool isFound = ProtocolLocateAttribute_4_0(attribute, payload.size(), firstBit, bitCount);
              std::vector<byte> expected(4);
              for (size_t bit = firstBit; bit < firstBit + bitCount; ++bit) {
                expected[bit / 8] = static_cast<byte>(expected[bit / 8] | 0x80 >> bit % 8);
              }
              ASSERT_EQ(ToHex(payload), ToHex(expected)) << byteOffset << ' ' << bitOffset << ' ' << len << ' ' << unit;
              ASSERT_LE(isFound, isWritten);
              found += isFound ? 1 : 0;
            }
          }
        }
      }
    }
  }
  EXPECT_GT(found, 1000u);
}

// --------------------------------------------------------------------------------------------------------- outcomes

// What became of values, a JSON text, of the entity "main".
Results Encode(const std::vector<Attribute>& attributes, const std::string& values, LogLines* lines = nullptr) {
  MorvixProtocolEntity_4_0 entityInfo;
  entityInfo.name = "main";
  Json::Value root;
  root["main"] = ParseJson(values);
  Results results(3, {kDone, 99});
  MorvixProtocolOwnedPackage_4_0 package;
  MorvixProtocolOwnedPackage_4_0 same;
  LogCapture capture;
  ProtocolEncodeAttributes_4_0(entityInfo, attributes, package, root, results);
  const LogLines logged = capture.Take();
  if (lines != nullptr) *lines = logged;
  ProtocolEncodeAttributes_4_0(entityInfo, attributes, same, root);
  EXPECT_EQ(capture.Lines(), logged);
  EXPECT_EQ(ToHex(package.value, package.sizeValue), ToHex(same.value, same.sizeValue));
  EXPECT_EQ(ToHex(package.flags, package.sizeFlags), ToHex(same.flags, same.sizeFlags));
  return results;
}

TEST(EncodeAttributesWithResults, TellsTheRawValueOfWhatIsWritten) {
  const auto attributes = Records({Bool("b", 0, 0), Enum("e", 0, 1, 3, 5), Number("n", 1), Binary("x", 2, 2)});
  EXPECT_EQ(Encode(attributes, R"({"b": 7, "e": "4", "n": 50, "x": "AQI="})"),
            (Results{{kDone, 1}, {kDone, 4}, {kDone, 100}, {kDone, 0}}));
  EXPECT_EQ(Encode(attributes, R"({"b": false, "e": 0, "n": "5.25"})"),
            (Results{{kDone, 0}, {kDone, 0}, {kDone, 10}, {kAbsent, 0}}));
}

TEST(EncodeAttributesWithResults, TellsAbsentValuesFromThoseOfAnotherKind) {
  const auto attributes = Records({Bool("b", 0, 0), Enum("e", 0, 1, 3, 5), Number("n", 1), Binary("x", 2, 2)});
  const Result absent = {kAbsent, 0};
  const Result wrong = {kWrongKind, 0};
  EXPECT_EQ(Encode(attributes, "{}"), (Results{absent, absent, absent, absent}));
  EXPECT_EQ(Encode(attributes, "[]"), (Results{absent, absent, absent, absent}));
  EXPECT_EQ(Encode(attributes, R"({"b": 1.0, "e": "boil", "n": true, "x": 5})"), (Results{wrong, wrong, wrong, wrong}));
  EXPECT_EQ(Encode(attributes, R"({"b": null, "e": [], "n": {}, "x": null})"), (Results{wrong, wrong, wrong, wrong}));
}

TEST(EncodeAttributesWithResults, TellsWhatRefusedAValue) {
  LogLines lines;
  EXPECT_EQ(
      Encode(Records({Bool("b", 0, 0), Enum("e", 0, 1, 3, 5), Number("n", 1)}), R"({"b": 1, "e": 5, "n": 50})", &lines),
      (Results{{kDone, 1}, {kByItems, 5}, {kNotReached, 0}}));
  EXPECT_EQ(lines, LogLines({{1, "ProtocolEncodeEntity_4_0", "Invalid enum value: 5, range: 0-5"}}));
  // 4.5 is raw 9, below the min; 2^53 does not get as far as a raw value.
  EXPECT_EQ(Encode(Records({Number("n", 0), Number("m", 1)}), R"({"n": 4.5, "m": 50})"),
            (Results{{kByScaling, 9}, {kNotReached, 0}}));
  EXPECT_EQ(Encode(Records({Number("n", 0)}), R"({"n": 9007199254740992})"), (Results{{kByScaling, 0}}));
  EXPECT_EQ(Encode(Records({Bool("a", 1, 0), With(Bool("b", 0, 0), R"({"position": {"len": 2}})")}), R"({"b": 1})"),
            (Results{{kAbsent, 0}, {kByPlace, 1}}));
  EXPECT_EQ(Encode(Records({Number("n", 0, 9)}), R"({"n": 50})"), (Results{{kByPlace, 100}}));
  EXPECT_EQ(Encode(Records({With(Enum("e", 0, 0, 2, 3), R"({"position": {"len": 65}})")}), R"({"e": 2})"),
            (Results{{kByPlace, 2}}));
  EXPECT_EQ(
      Encode(Records({Number("n", 0), With(Binary("x", 0, 1), R"({"position": {"unit": "bit"}})")}), R"({"x": ""})"),
      (Results{{kAbsent, 0}, {kByPlace, 0}}));
  std::vector<Attribute> unknown = Records({Number("n", 0)});
  unknown[0].data_type = kNoDataType;
  EXPECT_EQ(Encode(unknown, "{}"), (Results{{kByPlace, 0}}));
}

TEST(EncodeAttributesWithResults, ReachesNothingWithoutAPayload) {
  EXPECT_EQ(Encode({}, "{}"), Results());
  EXPECT_EQ(Encode({At(kBinary, -3, 0, kByte, 3)}, "{}"), Results(1));
}

// What became of a payload in hexadecimal.
Results Decode(const std::vector<Attribute>& attributes, const std::string& payload) {
  MorvixProtocolEntity_4_0 entityInfo;
  std::vector<byte> bytes = FromHex(payload);
  MorvixProtocolPackage_4_0 package;
  package.value = bytes.data();
  package.sizeValue = bytes.size();
  Results results(3, {kDone, 99});
  Json::Value document;
  Json::Value same;
  LogCapture capture;
  ProtocolDecodeAttributes_4_0(entityInfo, attributes, package, document, results);
  const LogLines logged = capture.Take();
  ProtocolDecodeAttributes_4_0(entityInfo, attributes, package, same);
  EXPECT_EQ(capture.Lines(), logged);
  EXPECT_EQ(document, same);
  return results;
}

TEST(DecodeAttributesWithResults, TellsRawValues) {
  const auto attributes = Records({Bool("b", 0, 0), Enum("e", 0, 1, 3, 5), Number("n", 1), Binary("x", 2, 2)});
  EXPECT_EQ(Decode(attributes, "07 64 01 02"), (Results{{kDone, 1}, {kDone, 3}, {kDone, 100}, {kDone, 0}}));
}

TEST(DecodeAttributesWithResults, TellsWhatIsLeftOutAndWhatEndsTheCall) {
  const auto attributes = Records({Bool("b", 0, 0), Enum("e", 0, 1, 3, 5), Number("n", 1), Binary("x", 2, 2)});
  // Raw 9 is below the min: left out. Index 5 has no item: the end. Bytes 2 and 3 are missing: the end.
  EXPECT_EQ(Decode(attributes, "01 09 01 02"), (Results{{kDone, 1}, {kDone, 0}, {kByScaling, 9}, {kDone, 0}}));
  EXPECT_EQ(Decode(attributes, "0a 64 01 02"),
            (Results{{kDone, 0}, {kByItems, 5}, {kNotReached, 0}, {kNotReached, 0}}));
  EXPECT_EQ(Decode(attributes, "01 64 01"), (Results{{kDone, 1}, {kDone, 0}, {kDone, 100}, {kUnreadable, 0}}));
  EXPECT_EQ(Decode(attributes, "01"), (Results{{kDone, 1}, {kDone, 0}, {kUnreadable, 0}, {kUnreadable, 0}}));
  EXPECT_EQ(Decode(attributes, ""), Results(4));
  std::vector<Attribute> unknown = Records({Number("n", 0), Number("m", 0)});
  unknown[0].data_type = MorvixProtocolDataType_4_0(8);
  EXPECT_EQ(Decode(unknown, "64"), (Results{{kUnreadable, 0}, {kNotReached, 0}}));
}

// ---------------------------------------------------------------------------------------------------------- scaling

TEST(RawToText, IsTheTextOfTheDecodedDocument) {
  const Attribute number = Records({Number("n", 0)})[0];
  std::string text = "kept";
  EXPECT_TRUE(ProtocolRawToText_4_0(number, 25, text));
  EXPECT_EQ(text, "12.5");
  EXPECT_TRUE(ProtocolRawToText_4_0(number, 200, text));
  EXPECT_EQ(text, "100");
  for (const uint64_t refused : {uint64_t{9}, uint64_t{201}, UINT64_MAX}) {
    EXPECT_FALSE(ProtocolRawToText_4_0(number, refused, text));
    EXPECT_EQ(text, "100");
  }
  EXPECT_FALSE(ProtocolRawToText_4_0(Records({Number("n", 0), Bool("b", 1, 0)})[1], 25, text)) << "inherits a scaling";
}

TEST(ValueToRaw, IsTheRawValueOfAWrite) {
  const Attribute number = Records({Number("n", 0)})[0];
  uint64_t raw = 77;
  EXPECT_TRUE(ProtocolValueToRaw_4_0(number, 12.25, raw));  // 24.5, and an exact half rounds down
  EXPECT_EQ(raw, 24u);
  EXPECT_TRUE(ProtocolValueToRaw_4_0(number, 12.3, raw));
  EXPECT_EQ(raw, 25u);
  for (const double refused : {4.7, 100.5, -1.0, 1e300}) {
    EXPECT_FALSE(ProtocolValueToRaw_4_0(number, refused, raw));
    EXPECT_EQ(raw, 25u);
  }
  EXPECT_FALSE(ProtocolValueToRaw_4_0(Records({Number("n", 0), Bool("b", 1, 0)})[1], 12, raw));
}

// ------------------------------------------------------------------------------------------------------ public face

TEST(Limits, AreThoseOfThePackets) {
  EXPECT_EQ(MorvixProtocolMaxFlagBytes_4_0, 1024u);
  EXPECT_EQ(MorvixProtocolMaxPayloadBytes_4_0, 16384u);
  EXPECT_EQ(MorvixProtocolMaxBinaryBytes_4_0, 65535u);
  EXPECT_EQ(MorvixProtocolSubDidBytes_4_0, 4u);
  EXPECT_EQ(MorvixProtocolMaxPacketBytes_4_0, 17413u);
}

TEST(OwnedPackage, PassesWhereverAPackageDoesAndMoves) {
  using Owned = MorvixProtocolOwnedPackage_4_0;
  static_assert(!std::is_copy_constructible_v<Owned> && !std::is_copy_assignable_v<Owned>);
  static_assert(std::is_nothrow_move_constructible_v<Owned> && std::is_nothrow_move_assignable_v<Owned>);
  const byte packet[] = {4, 0x12, 0x34};
  Owned package;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet, sizeof packet, package));
  const byte* const value = package.value;
  Owned moved = std::move(package);
  EXPECT_EQ(moved.value, value);
  EXPECT_EQ(moved.cmd, MorvixProtocolCommandNotifyResp_4_0);
  EXPECT_EQ(package.value, nullptr);  // NOLINT(bugprone-use-after-move): a moved-from package is empty
  EXPECT_EQ(package.sizeValue, 0u);
  EXPECT_EQ(package.cmd, 0u);
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet, 2, package));
  package = std::move(moved);
  EXPECT_EQ(package.value, value);
  EXPECT_EQ(moved.value, nullptr);  // NOLINT(bugprone-use-after-move)
  Owned& self = package;
  package = std::move(self);
  EXPECT_EQ(package.value, value);
  package.subDid = 5;
  package.needInsertSubDid = 1;
  package.Reset();
  EXPECT_EQ(package.value, nullptr);
  EXPECT_EQ(package.sizeValue, 0u);
  EXPECT_EQ(package.subDid, 0);
  EXPECT_EQ(package.needInsertSubDid, 0);
  byte buffer[1];
  package.cmd = MorvixProtocolCommandReadReq_4_0;
  EXPECT_EQ(ProtocolPackPackage_4_0(package, buffer, sizeof buffer), 1u);
}

// The operations with a given name are plain functions, which a file that includes the source unit can point at.
TEST(NamedOperations, ArePlainFunctions) {
  using Attributes = std::vector<Attribute>;
  bool (*filter)(const Json::Value&, int, Attributes&, MorvixProtocolEntity_4_0&) = &FilterConfigType;
  bool (*entityInfo)(const Json::Value&, MorvixProtocolEntity_4_0&) = &GetEntityInfo;
  void (*size)(Attributes&, size_t, size_t) = &CalculateAttributesGroupByteSizeWithRange;
  size_t (*bytes)(const Attributes&) = &EncodeCalculateBytes;
  bool (*writeBinary)(byte*, size_t&, const MorvixProtocolPosition_4_0&, const std::string&) = &WriteBinaryValue;
  bool (*readBinary)(const byte*, size_t, const MorvixProtocolPosition_4_0&, std::string&) = &ReadBinaryValue;
  for (const bool isFunction : {filter != nullptr, entityInfo != nullptr, size != nullptr, bytes != nullptr,
                                writeBinary != nullptr, readBinary != nullptr}) {
    EXPECT_TRUE(isFunction);
  }
  size_t length = 0;
  EXPECT_EQ(OffsetPosition(nullptr, 0, MorvixProtocolPosition_4_0(), length), nullptr);
}

}  // namespace
}  // namespace inspection_test
