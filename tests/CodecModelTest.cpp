// The model of the codec, compared with examples worked out by hand. Other tests compare the module with the model.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Cases.h"
#include "CodecModel.h"
#include "Maker.h"
#include "TestSupport.h"

namespace {

using model::Attributes;
using model::Bytes;
using model::Entity;
using model::Place;
using model::Position;
using model::Result;
using model::Scaling;
using support::BitsAt;
using support::BytesAt;
using support::ExpectEqual;
using support::ForEachCase;
using support::Inputs;
using support::Source;

constexpr auto kAbsent = MorvixProtocolOutcomeAbsent_4_0;
constexpr auto kDone = MorvixProtocolOutcomeDone_4_0;
constexpr auto kNotReached = MorvixProtocolOutcomeNotReached_4_0;

// --- Positions and bits ---

TEST(ModelLocate, FindsTheWorkedExample) {
  // Group bits 5 to 10 of bytes 2 and 3: bits 21 to 26 from the payload's start.
  const model::Field field = model::Locate(4, BitsAt(2, 5, 6, 2));
  EXPECT_TRUE(field.IsFound());
  EXPECT_EQ(field.firstByte, 2u);
  EXPECT_EQ(field.byteLength, 2u);
}

TEST(ModelLocate, EndsBytesAtThePayloadsEnd) {
  EXPECT_EQ(model::Locate(4, BytesAt(2, 2)).place, Place::kBytesFound);
  EXPECT_EQ(model::Locate(4, BytesAt(2, 3)).place, Place::kBytesEndOutside);
  EXPECT_EQ(model::Locate(4, BytesAt(2, 5)).place, Place::kBytesTooMany);
  EXPECT_EQ(model::Locate(4, BytesAt(4, 1)).place, Place::kBytesStartOutside);
  EXPECT_EQ(model::Locate(4, BytesAt(-1, 2)).place, Place::kBytesStartOutside);
  EXPECT_EQ(model::Locate(4, BytesAt(1, 0)).place, Place::kBytesNone);
  EXPECT_EQ(model::Locate(4, BytesAt(1, -1)).place, Place::kBytesTooMany);
  EXPECT_EQ(model::Locate(0, BytesAt(0, 0)).place, Place::kBytesStartOutside);
}

TEST(ModelLocate, BeginsBitsInsideTheirGroup) {
  EXPECT_EQ(model::Locate(4, BitsAt(0, 7, 1, 1)).place, Place::kBitsFound);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 8, 1, 1)).place, Place::kBitsOutsideGroup);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 0, 1, 0)).place, Place::kBitsOutsideGroup);
  EXPECT_EQ(model::Locate(4, BitsAt(0, -2, 1, 1)).place, Place::kBitsOutsideGroup);
  // One bit before the first is let through, and lies in the byte after the group.
  const model::Field field = model::Locate(4, BitsAt(0, -1, 1, 1));
  EXPECT_TRUE(field.IsFound());
  EXPECT_EQ(field.firstByte, 1u);
}

TEST(ModelLocate, LetsBitsReachBeforeTheirGroup) {
  const model::Field field = model::Locate(4, BitsAt(1, 7, 2, 1));  // bits 7 to 8
  EXPECT_TRUE(field.IsFound());
  EXPECT_EQ(field.firstByte, 0u);
  EXPECT_EQ(field.byteLength, 2u);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 7, 2, 1)).place, Place::kBitsStartOutside);
}

TEST(ModelLocate, FollowsLengthsOfZeroAndBelow) {
  // Nothing at bit 3 of byte 0: the byte is spanned all the same. At bit 0 it is not.
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, 0, 1)).byteLength, 1u);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, 0, 1)).place, Place::kBitsFound);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 0, 0, 1)).place, Place::kBitsSpanNone);
  // From bit 6 (of the payload) on, -1 bits: 5 / 8 bytes and one.
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, -1, 1)).place, Place::kBitsFound);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, -8, 1)).place, Place::kBitsSpanTooMany);
}

TEST(ModelBits, WriteTheWorkedExample) {
  Bytes spanned = {0x00, 0x00};
  uint64_t word = 43 * 32;
  ASSERT_TRUE(model::WriteBits(word, 5, 6, spanned));
  EXPECT_EQ(spanned, Bytes({0x05, 0x60}));
  uint64_t read = 0;
  ASSERT_TRUE(model::ReadBits(spanned, 5, 6, read));
  EXPECT_EQ(read, 43u * 32);
}

TEST(ModelBits, ReverseTheNeighbourBytes) {
  Bytes spanned = {0x10, 0x02};
  ASSERT_TRUE(model::WriteBits(43 * 32, 5, 6, spanned));
  EXPECT_EQ(spanned, Bytes({0x05, 0x70}));
}

TEST(ModelBits, KeepTheNeighboursInOneByteInPlace) {
  Bytes spanned = {0xff};
  ASSERT_TRUE(model::WriteBits(0, 2, 3, spanned));
  EXPECT_EQ(spanned, Bytes({0xe3}));
}

TEST(ModelBits, ReplaceWholeBytes) {
  Bytes spanned = {0x12, 0x34};
  ASSERT_TRUE(model::WriteBits(0xabcd, 8, 16, spanned));
  EXPECT_EQ(spanned, Bytes({0xab, 0xcd}));
  Bytes eight = {1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_TRUE(model::WriteBits(0x1122334455667788, 0, 64, eight));
  EXPECT_EQ(eight, Bytes({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}));
}

TEST(ModelBits, RefuseWhatIsNotAField) {
  uint64_t word = 5;
  EXPECT_FALSE(model::ReadBits({0}, -1, 1, word));
  EXPECT_FALSE(model::ReadBits({0}, 0, 0, word));
  EXPECT_FALSE(model::ReadBits({0}, 0, 65, word));
  EXPECT_FALSE(model::ReadBits({0}, 1, 64, word));
  EXPECT_FALSE(model::ReadBits({}, 0, 1, word));
  EXPECT_FALSE(model::ReadBits(Bytes(9), 0, 1, word));
  EXPECT_EQ(word, 5u);
}

TEST(ModelBits, KeepAndDropRanges) {
  EXPECT_EQ(model::KeepBits(0xffff, 4, 8), 0x0ff0u);
  EXPECT_EQ(model::KeepBits(0xffff, 4, 64), 0xfff0u);
  EXPECT_EQ(model::KeepBits(0xffff, 4, 0), 0u);
  EXPECT_EQ(model::KeepBits(0xffff, -1, 8), 0u);
  EXPECT_EQ(model::KeepBits(0xffff, 64, 8), 0u);
  EXPECT_EQ(model::DropBits(0xffff, 4, 8), 0xf00fu);
  EXPECT_EQ(model::DropBits(0xffff, 4, 0), 0xffffu);
  EXPECT_EQ(model::DropBits(0xffff, 64, 8), 0xffffu);
  EXPECT_EQ(model::DropBits(UINT64_MAX, 0, 64), 0u);
}

TEST(ModelBits, PutAndGetFieldsOfAWord) {
  uint64_t word = 0xff00;
  EXPECT_TRUE(model::PutField(0x15, 6, 4, word));  // 0x15 is cut to 5: bits 6 and 8
  EXPECT_EQ(word, 0xfd40u);
  uint64_t bits = 0;
  EXPECT_TRUE(model::GetField(word, 6, 4, bits));
  EXPECT_EQ(bits, 5u);
  EXPECT_FALSE(model::PutField(1, 64, 1, word));
  EXPECT_FALSE(model::PutField(1, 60, 5, word));
  EXPECT_FALSE(model::GetField(word, 0, 0, bits));
  EXPECT_FALSE(model::GetField(word, 1, UINT64_MAX, bits));
}

TEST(ModelBigEndian, DropsTheHighBytes) {
  Bytes bytes(3);
  EXPECT_TRUE(model::WriteBigEndian(0x11223344, 3, bytes));
  EXPECT_EQ(bytes, Bytes({0x22, 0x33, 0x44}));
  uint64_t word = 0xff00000000000000;
  EXPECT_TRUE(model::ReadBigEndian(bytes, 3, word));
  EXPECT_EQ(word, 0xff00000000223344u);
  Bytes eight(8);
  EXPECT_TRUE(model::WriteBigEndian(0x0102030405060708, 8, eight));
  EXPECT_TRUE(model::ReadBigEndian(eight, 8, word));
  EXPECT_EQ(word, 0x0102030405060708u);
  EXPECT_FALSE(model::WriteBigEndian(1, 0, bytes));
  EXPECT_FALSE(model::ReadBigEndian(Bytes(9), 9, word));
}

// --- Scaling and texts ---

TEST(ModelScaling, RoundsHalvesDown) {
  uint64_t raw = 0;
  EXPECT_EQ(model::ToRaw(0, 255, 1, 0.5, 0, 1.25, raw), Scaling::kOnGrid);
  EXPECT_EQ(raw, 2u);
  EXPECT_EQ(model::ToRaw(0, 255, 1, 0.5, 0, 1.3, raw), Scaling::kOnGrid);
  EXPECT_EQ(raw, 3u);
  EXPECT_EQ(model::ToRaw(0, 80, 1, 1, -40, 40, raw), Scaling::kAtMax);
  EXPECT_EQ(raw, 80u);
}

TEST(ModelScaling, AcceptsTheGridAndTheMaximum) {
  uint64_t raw = 0;
  EXPECT_EQ(model::ToRaw(0, 10, 3, 1, 0, 9, raw), Scaling::kOnGrid);
  EXPECT_EQ(model::ToRaw(0, 10, 3, 1, 0, 10, raw), Scaling::kAtMax);
  EXPECT_EQ(model::ToRaw(0, 10, 3, 1, 0, 8, raw), Scaling::kOffGrid);
  double user = 0;
  EXPECT_EQ(model::ToUser(2, 10, 3, 0.5, 1, 5, user), Scaling::kOnGrid);
  EXPECT_EQ(user, 3.5);
  EXPECT_EQ(model::ToUser(2, 10, 3, 0.5, 1, 6, user), Scaling::kOffGrid);
  EXPECT_EQ(model::ToUser(2, 10, 0, 0.5, 1, 2, user), Scaling::kOnGrid);
  EXPECT_EQ(model::ToUser(2, 10, 0, 0.5, 1, 4, user), Scaling::kOffGrid);
}

TEST(ModelScaling, RefusesWhatIsOutOfBounds) {
  const uint64_t limit = uint64_t{1} << 52;
  uint64_t raw = 7;
  double user = 7;
  EXPECT_EQ(model::ToRaw(0, limit, 1, 1, 0, 1, raw), Scaling::kMaxTooLarge);
  EXPECT_EQ(model::ToUser(0, limit, 1, 1, 0, 1, user), Scaling::kMaxTooLarge);
  EXPECT_EQ(model::ToUser(0, 5, 1, 1, 0, limit, user), Scaling::kMaxTooLarge);
  EXPECT_EQ(model::ToRaw(6, 5, 1, 1, 0, 1, raw), Scaling::kRangeInverted);
  EXPECT_EQ(model::ToRaw(5, 5, 1, 1, 0, 5, raw), Scaling::kRangeBelowStep);
  EXPECT_EQ(model::ToRaw(0, 5, UINT64_MAX, 1, 0, 5, raw), Scaling::kRangeBelowStep);
  EXPECT_EQ(model::ToRaw(0, limit - 1, 1, 1, 0, 4503599627370496.0, raw), Scaling::kTooLarge);
  EXPECT_EQ(model::ToRaw(0, 5, 1, 0, 0, 1, raw), Scaling::kTooLarge);  // 1 / 0
  EXPECT_EQ(model::ToRaw(0, 5, 1, 1, 0, -0.1, raw), Scaling::kNegative);
  EXPECT_EQ(raw, 7u);
  EXPECT_EQ(user, 7);
  EXPECT_EQ(model::ToRaw(0, limit - 1, 1, 1, 0, 4503599627370495.0, raw), Scaling::kAtMax);
  EXPECT_EQ(model::ToRaw(0, 5, 1, 0, 0, 0, raw), Scaling::kOnGrid);  // 0 / 0
  EXPECT_EQ(raw, 0u);
  EXPECT_EQ(model::ToRaw(1, 5, 1, 1, 0, 0.2, raw), Scaling::kBelowMin);
  EXPECT_EQ(model::ToRaw(1, 5, 1, 1, 0, 5.6, raw), Scaling::kAboveMax);
}

TEST(ModelNumberText, LosesTrailingZeros) {
  EXPECT_EQ(model::NumberText(12.5), "12.5");
  EXPECT_EQ(model::NumberText(3), "3");
  EXPECT_EQ(model::NumberText(100), "100");
  EXPECT_EQ(model::NumberText(0), "0");
  EXPECT_EQ(model::NumberText(1e33), "9999999999999999455752309870428");  // the first 31 of 33 digits
  EXPECT_EQ(model::TrimNumber(""), "");
  EXPECT_EQ(model::TrimNumber("."), "");
  EXPECT_EQ(model::TrimNumber("10"), "10");
  // With an exponent at index 3 the zeros and the point are looked for from index 5 - 3 on, and the rest is cut off.
  EXPECT_EQ(model::TrimNumber("1.0E+5"), "1");
  EXPECT_EQ(model::TrimNumber("1.5E+0"), "1.5E+0");
}

TEST(ModelNumberText, CutsIndicesToNineDigits) {
  EXPECT_EQ(model::IndexText(7), "7");
  EXPECT_EQ(model::IndexText(1234567890), "123456789");
}

TEST(ModelBase64, IsTheStandardOne) {
  EXPECT_EQ(model::Base64Text({0x01, 0x02, 0x03}), "AQID");
  EXPECT_EQ(model::Base64Text({0x00, 0x01, 0x02}), "AAEC");
  EXPECT_EQ(model::Base64Text({0xff}), "/w==");
  EXPECT_EQ(model::Base64Text({0xfb, 0xf0}), "+/A=");
  EXPECT_EQ(model::Base64Bytes("AQID", 3), Bytes({1, 2, 3}));
  EXPECT_EQ(model::Base64Bytes("AQ ID", 2), Bytes({1, 2}));
  EXPECT_EQ(model::Base64Bytes("AQI=AQID", 9), Bytes({1, 2}));
  EXPECT_EQ(model::Base64Bytes("AQ-D", 9), Bytes({1}));
  EXPECT_EQ(model::Base64Bytes("A", 9), Bytes());
}

// --- Values in a payload ---

TEST(ModelValues, WriteBoolsAndNumbers) {
  Bytes payload(2);
  EXPECT_TRUE(model::WriteBool(payload, BitsAt(0, 9, 1, 2), true).isDone);
  EXPECT_EQ(payload, Bytes({0x02, 0x00}));
  bool isSet = false;
  EXPECT_TRUE(model::ReadBool(payload, BitsAt(0, 9, 1, 2), isSet));
  EXPECT_TRUE(isSet);
  EXPECT_FALSE(model::WriteBool(payload, BitsAt(0, 9, 2, 2), true).isDone);
  EXPECT_FALSE(model::WriteBool(payload, BytesAt(0, 1), true).isDone);
  EXPECT_TRUE(model::WriteNumber(payload, BytesAt(0, 2), 0x1234).isDone);
  EXPECT_EQ(payload, Bytes({0x12, 0x34}));
  EXPECT_TRUE(model::WriteNumber(payload, BytesAt(0, 2), 0x123456).isDone);
  EXPECT_EQ(payload, Bytes({0x34, 0x56}));
  Bytes longer(10);
  EXPECT_FALSE(model::WriteNumber(longer, BytesAt(0, 9), 1).isDone);
  EXPECT_TRUE(model::WriteNumber(longer, BitsAt(2, 5, 6, 2), 43).isDone);
  EXPECT_EQ(longer, Bytes({0, 0, 5, 0x60, 0, 0, 0, 0, 0, 0}));
  uint64_t number = 0;
  EXPECT_TRUE(model::ReadNumber(longer, BitsAt(2, 5, 6, 2), number));
  EXPECT_EQ(number, 43u);
}

TEST(ModelValues, LetABoolJustBelowItsGroupDoNothing) {
  Bytes payload = {0xff, 0xff};
  EXPECT_TRUE(model::WriteBool(payload, BitsAt(0, -1, 1, 1), false).isDone);
  EXPECT_EQ(payload, Bytes({0xff, 0xff}));
  bool isSet = true;
  EXPECT_TRUE(model::ReadBool(payload, BitsAt(0, -1, 1, 1), isSet));
  EXPECT_FALSE(isSet);
  EXPECT_FALSE(model::WriteNumber(payload, BitsAt(0, -1, 1, 1), 0).isDone);
  uint64_t number = 77;
  EXPECT_TRUE(model::ReadNumber(payload, BitsAt(0, -1, 1, 1), number));
  EXPECT_EQ(number, 77u);
}

TEST(ModelValues, LimitBinaries) {
  Bytes payload(65540);
  EXPECT_FALSE(model::WriteBinary(payload, BytesAt(0, 65536), "AQID"));
  EXPECT_TRUE(model::WriteBinary(payload, BytesAt(1, 65535), "AQID"));
  EXPECT_EQ(Bytes(payload.begin(), payload.begin() + 5), Bytes({0, 1, 2, 3, 0}));
  std::string text;
  EXPECT_TRUE(model::ReadBinary(payload, BytesAt(1, 3), text));
  EXPECT_EQ(text, "AQID");
  EXPECT_FALSE(model::ReadBinary(payload, BytesAt(0, 65536), text));
  EXPECT_FALSE(model::ReadBinary(payload, BitsAt(0, 0, 8, 1), text));
}

// --- Configurations ---

TEST(ModelReaders, AcceptNumbersInText) {
  // Each row: a member, and what the readers of integers, 64-bit integers, hexadecimal numbers and doubles make of it;
  // null for nothing.
  for (const Json::Value& row : ParseJson(R"([
      ["5", 5, 5, null, 5], ["0x1F", 31, 31, 31, 31], ["017", 15, 15, null, 17], ["abc", null, null, null, null],
      ["", 9, 9, 9, 9], [true, 1, 1, null, null], [2.9, null, 2, null, 2.9], [0.0, null, null, null, 0],
      [-3.7, null, -3, null, -3.7], [4294967295, -1, 4294967295, 4294967295, 4294967295], ["0x10", 16, 16, 16, 16],
      ["10", 10, 10, null, 10], ["0X10", 16, 16, null, 16], [null, null, null, null, null], [7, 7, 7, null, 7]])")) {
    SCOPED_TRACE(WriteJson(row));
    Json::Value object;
    object["k"] = row[0];
    int32_t integer = 9;
    int64_t wide = 9;
    uint32_t hex = 9;
    double real = 9;
    ASSERT_EQ(model::ReadInteger(object, "k", integer), !row[1].isNull());
    ASSERT_EQ(model::ReadInteger64(object, "k", wide), !row[2].isNull());
    ASSERT_EQ(model::ReadHex(object, "k", hex), !row[3].isNull());
    ASSERT_EQ(model::ReadDouble(object, "k", real), !row[4].isNull());
    EXPECT_EQ(integer, row[1].isNull() ? 9 : row[1].asInt());
    EXPECT_EQ(wide, row[2].isNull() ? 9 : row[2].asInt64());
    EXPECT_EQ(hex, row[3].isNull() ? 9 : row[3].asUInt());
    EXPECT_EQ(real, row[4].isNull() ? 9 : row[4].asDouble());
  }
}

// Four attributes: a switch and a mode in byte 0, a level in byte 1, an alert in byte 2.
Json::Value SampleEntity() {
  return ParseJson(R"({"id": 0, "name": "main", "display_name": "Main", "attrs": [
      {"id": 1, "name": "switch", "display_name": "Switch", "desc": "", "type": "status_writable", "data_type": "BOOL",
       "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}},
      {"id": 2, "name": "mode", "display_name": "Mode", "desc": "", "type": "Status_Writable", "data_type": "enum",
       "position": {"byte_offset": 0, "bit_offset": 1, "unit": "BIT", "len": 2}, "enum": ["low", 5, "mid", "high"]},
      {"id": 3, "name": "level", "display_name": "Level", "desc": "", "type": "status_writable", "data_type": "uint8",
       "position": {"byte_offset": 1, "bit_offset": 0, "unit": "", "len": "0x1"},
       "uint_spec": {"min": 0, "max": 100, "ratio": 0.5, "addition": 0}},
      {"id": 4, "name": "hot", "display_name": "Overheat", "desc": "", "type": "alert", "data_type": "bool",
       "position": {"byte_offset": 2, "bit_offset": 0, "unit": "bit", "len": 1}}]})");
}

TEST(ModelParse, SizesGroupsAndCarriesOver) {
  const model::Parsed parsed = model::Parse(SampleEntity(), 15);
  ASSERT_TRUE(parsed.usable);
  EXPECT_EQ(parsed.entity.name, "main");
  EXPECT_EQ(parsed.lines, LogLines({FilterLine(0, "main", "Main")}));
  const std::vector<std::string> items = {"low", "mid", "high"};
  const struct {
    size_t groupBytes;
    std::vector<std::string> items;
    MorvixProtocolUIntSpec_4_0 scaling;
  } expected[] = {{1, {}, {}}, {1, items, {}}, {0, items, {0, 100, 1, 0.5, 0}}, {1, items, {0, 100, 1, 0.5, 0}}};
  ASSERT_EQ(parsed.attributes.size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(parsed.attributes[i].position.groupByteLength, expected[i].groupBytes);
    EXPECT_EQ(parsed.attributes[i].enumList, expected[i].items);
    EXPECT_EQ(parsed.attributes[i].uint_spec, expected[i].scaling);
    EXPECT_EQ(parsed.elements[i].attribute, i);
  }
  EXPECT_EQ(model::Parse(SampleEntity(), 1).attributes.size(), 3u);
  EXPECT_EQ(model::Parse(SampleEntity(), 1).elements[3],
            (model::Element{SIZE_MAX, "", MorvixProtocolTypeAlert_4_0, MorvixProtocolDataTypeBool_4_0}));
}

TEST(ModelParse, SkipsWhatInheritsAnIncompleteScaling) {
  Json::Value entity = SampleEntity();
  entity["attrs"][2]["uint_spec"].removeMember("ratio");
  const model::Parsed parsed = model::Parse(entity, 15);
  EXPECT_EQ(parsed.attributes.size(), 2u);
  EXPECT_EQ(parsed.elements[3].invalid, "ratio");
  EXPECT_EQ(parsed.lines, LogLines({FilterLine(0, "main", "Main"), SkipLine("ratio"), SkipLine("ratio")}));
}

TEST(ModelParse, NamesWhatMakesAnEntityUnusable) {
  EXPECT_EQ(model::Parse(Json::Value(3), 15).lines, LogLines({{1, "GetEntityInfo", "Warning: Invalid entity."}}));
  Json::Value entity = SampleEntity();
  entity["attrs"] = Json::Value(Json::objectValue);
  const model::Parsed parsed = model::Parse(entity, 15);
  EXPECT_FALSE(parsed.usable);
  EXPECT_EQ(parsed.lines, LogLines({{1, "GetEntityInfo", "Warning: Can't find 'attrs' key."}}));
}

// --- Encoding and decoding ---

TEST(ModelEncode, WritesTheSample) {
  const model::Encoded encoded =
      model::EncodeEntity(SampleEntity(), ParseJson(R"({"main": {"switch": "1", "level": 30, "hot": 1}})"));
  EXPECT_TRUE(encoded.hasBuffers);
  EXPECT_EQ(encoded.flags, Bytes({0x05}));
  EXPECT_EQ(encoded.value, Bytes({0x01, 0x3c}));
  EXPECT_EQ(encoded.sizeFlags, 1u);
  EXPECT_EQ(encoded.sizeValue, 2u);
  EXPECT_EQ(encoded.results, std::vector<Result>({{kDone, 1}, {kAbsent, 0}, {kDone, 60}}));
}

TEST(ModelEncode, EndsAtAWrongIndex) {
  const model::Encoded encoded =
      model::EncodeEntity(SampleEntity(), ParseJson(R"({"main": {"switch": 2, "mode": 3, "level": 30}})"));
  EXPECT_TRUE(encoded.hasBuffers);
  EXPECT_EQ(encoded.flags, Bytes({0x01}));
  EXPECT_EQ(encoded.value, Bytes({0x01, 0x00}));
  EXPECT_EQ(encoded.sizeFlags, 0u);
  EXPECT_EQ(encoded.sizeValue, 0u);
  ASSERT_EQ(encoded.lines.size(), 2u);
  EXPECT_EQ(encoded.lines[1], (LogLine{1, "ProtocolEncodeEntity_4_0", "Invalid enum value: 3, range: 0-3"}));
  EXPECT_EQ(encoded.results,
            std::vector<Result>({{kDone, 1}, {MorvixProtocolOutcomeRefusedByItems_4_0, 3}, {kNotReached, 0}}));
}

TEST(ModelEncode, PutsTheNinthFlagIntoTheFirstOfTwoBytes) {
  Attributes attributes(9);
  Json::Value root;
  for (size_t i = 0; i < attributes.size(); ++i) {
    attributes[i].name = std::to_string(i);
    attributes[i].data_type = MorvixProtocolDataTypeBool_4_0;
    attributes[i].position = BitsAt(0, static_cast<int32_t>(i), 1, 2);
  }
  Entity entity;
  entity.name = "main";
  root["main"]["8"] = true;
  const model::Encoded encoded = model::EncodeAttributes(entity, attributes, root);
  EXPECT_EQ(encoded.flags, Bytes({0x01, 0x00}));
  EXPECT_EQ(encoded.value, Bytes({0x01, 0x00}));
}

TEST(ModelEncode, NeedsAPayload) {
  EXPECT_EQ(model::EncodeAttributes(Entity(), Attributes(), Json::Value()).lines,
            LogLines({{1, "ProtocolEncodeEntity_4_0", "No data will encode."}}));
  EXPECT_FALSE(model::EncodeAttributes(Entity(), Attributes(), Json::Value()).hasBuffers);
  Attributes attributes(1);
  attributes[0].position = BitsAt(-2, 9, 8, 0);  // bits 9 to 16 of a group that begins 2 bytes early: 3 bytes
  EXPECT_EQ(model::PayloadLength(attributes), 1u);
  attributes[0].position = BitsAt(3, -24, 8, 0);
  EXPECT_EQ(model::PayloadLength(attributes), 1u);
  attributes[0].position = BytesAt(-5, 4);
  EXPECT_EQ(model::PayloadLength(attributes), 0u);
}

TEST(ModelDecode, ReadsTheSample) {
  const model::Decoded decoded =
      model::DecodeEntity(SampleEntity(), {0x05, 0x05, 0x01}, ParseJson(R"({"main": {"switch": {"old": 1}}})"));
  EXPECT_EQ(decoded.document, ParseJson(R"({"main": {"switch": {"old": 1, "type": 1, "value": true},
      "mode": {"type": 1, "value": "2"}, "level": {"type": 1, "value": "2.5"},
      "Overheat": {"type": 4, "value": true}}})"));
}

TEST(ModelDecode, LeavesOutFailsAndWipes) {
  // A level above its maximum is left out.
  EXPECT_EQ(model::DecodeEntity(SampleEntity(), {0x00, 0x65, 0x00}, Json::Value()).document,
            ParseJson(R"({"main": {"switch": {"type": 1, "value": false}, "mode": {"type": 1, "value": "0"},
      "Overheat": {"type": 4, "value": false}}})"));
  // A wrong index ends the decoding and keeps what was decoded.
  const model::Decoded wrong = model::DecodeEntity(SampleEntity(), {0x07, 0x05, 0x01}, Json::Value());
  EXPECT_EQ(wrong.document, ParseJson(R"({"main": {"switch": {"type": 1, "value": true}}})"));
  EXPECT_EQ(wrong.lines.back().text, "Invalid enum value: 3, range: 0-3");
  // A bool that is not there takes everything with it.
  const model::Decoded missing = model::DecodeEntity(SampleEntity(), {0x01, 0x05}, Json::Value(5));
  EXPECT_EQ(missing.document, Json::Value(Json::objectValue));
  EXPECT_EQ(missing.lines.back(), (LogLine{1, "ProtocolDecodeEntity_4_0", "Decode value is invalid."}));
  EXPECT_EQ(model::DecodeEntity(SampleEntity(), {}, Json::Value(5)).lines,
            LogLines({{1, "ProtocolDecodeEntity_4_0", "No data to decode."}}));
}

// --- Packets and receive results ---

TEST(ModelConvert, FlattensAndSeparates) {
  const model::Converted converted = model::Convert(R"({"version": 4.0, "list": [1], "main": {"hot": {"type": 4,
      "value": true}, "leak": {"type": 8, "value": "2", "more": 1}, "level": {"type": 1, "value": 25}, "odd":
      {"type": 4.0}, "plain": 3}, "rest": {"hot": {"type": 4, "value": false}}})");
  EXPECT_EQ(ParseJson(converted.text), ParseJson(R"({"version": 4.0, "list": [1], "main": {"level": 25, "odd": null,
      "plain": 3}, "rest": {}})"));
  EXPECT_EQ(converted.alerts, ParseJson(R"([{"name": "hot", "value": true}, {"name": "hot", "value": false}])"));
  EXPECT_EQ(converted.faults, ParseJson(R"([{"more": 1, "name": "leak", "value": "2"}])"));
  EXPECT_EQ(model::Convert(R"({"version": 4})").text, "");
  EXPECT_EQ(model::Convert(R"({"version": 4.5})").text, "");
  EXPECT_EQ(model::Convert(R"({"version": 4.0})").text, "{\"version\":4.0}\n");
}

TEST(ModelAddActive, KeepsWhatIsNotZero) {
  std::vector<TavelReceiveInfo> active;
  model::AddActive(ParseJson(R"([{"name": "a", "value": true}, {"name": "b", "value": false}, {"name": "c", "value": 3},
      {"name": "d", "value": 0}, {"name": "e", "value": "0x10"}, {"name": "f", "value": "12abc"},
      {"name": "g", "value": "abc"}, {"name": "h", "value": "0"}, {"name": "i", "value": ""},
      {"name": "j", "value": 1.5}, {"name": "k", "value": 2.0}, {"name": 7, "value": 1}])"),
                   active);
  EXPECT_EQ(active, (std::vector<TavelReceiveInfo>{{"a", 1}, {"c", 3}, {"e", 16}, {"f", 12}}));
}

TEST(ModelPack, SerializesTheWorkedExample) {
  byte flags = 0xaa;
  byte value = 0x55;
  model::Package package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  std::memcpy(&package.subDid, "\x04\x03\x02\x01", 4);
  package.needInsertSubDid = 1;
  package.flags = &flags;
  package.sizeFlags = 1;
  package.value = &value;
  package.sizeValue = 1;
  Bytes buffer(7);
  LogLines lines;
  EXPECT_EQ(model::Pack(package, buffer, 3, lines), 7u);
  EXPECT_EQ(buffer, Bytes({0x01, 0x04, 0x03, 0x02, 0x01, 0xaa, 0x55}));
  package.sizeValue = 0;
  EXPECT_EQ(model::Pack(package, buffer, 3, lines), 0u);
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(model::Unpack({0x04, 0x12, 0x34}).value, Bytes({0x12, 0x34}));
  EXPECT_FALSE(model::Unpack({0x02, 0x00}).isAccepted);
}

// --- The halves of the model against each other ---

// The rules of positions, words and shifts together give what a drawing of a group shows: bit k of a group is bit
// k mod 8 of its byte k / 8 from the end.
TEST(ModelValues, LieWhereTheGroupNumbersItsBits) {
  ForEachCase(2026040601, 20000, [](Source& source) {
    const Bytes payload = source.Bytes(20);
    const int32_t groupBytes = source.Int(1, 9);
    const int32_t len = source.Int(1, std::min(groupBytes * 8, 57));
    const int32_t byteOffset = source.Int(0, 20 - groupBytes);
    const int32_t bitOffset = source.Int(0, groupBytes * 8 - len);
    const Position position = BitsAt(byteOffset, bitOffset, len, static_cast<size_t>(groupBytes));
    const Inputs inputs(payload, position);
    const auto isSet = [&](const Bytes& bytes, int32_t groupBit) {
      return (bytes[static_cast<size_t>(byteOffset + groupBytes - 1 - groupBit / 8)] >> groupBit % 8 & 1) == 1;
    };
    uint64_t expected = 0;
    for (int32_t i = len; i > 0; --i) expected = expected * 2 + isSet(payload, bitOffset + i - 1);
    uint64_t read = 0;
    ExpectEqual(model::ReadNumber(payload, position, read), true, "a field in its group is read");
    ExpectEqual(read, expected, "its bits are those of the group");

    const uint64_t value = source.Next();
    Bytes written = payload;
    model::WriteNumber(written, position, value);
    const int32_t first = bitOffset / 8;
    const int32_t last = (bitOffset + len - 1) / 8;
    for (int32_t bit = 0; bit < groupBytes * 8; ++bit) {
      const bool isField = bit >= bitOffset && bit < bitOffset + len;
      // Other bits of several spanned bytes may have moved.
      if (!isField && first != last && bit / 8 >= first && bit / 8 <= last) continue;
      const bool wanted = isField ? (value >> (bit - bitOffset) & 1) == 1 : isSet(payload, bit);
      ExpectEqual(isSet(written, bit), wanted, "a write changes the bits of the field");
    }
  });
}

TEST(ModelParse, SizesEveryRunOfBitsByItsLastMember) {
  size_t groups = 0;
  ForEachCase(2026040621, 2000, [&](Source& source) {
    const model::Parsed parsed = model::Parse(support::Maker(source).MakeEntity(), source.Pick({1, 15, 6}));
    if (!parsed.usable) return;
    Attributes sized = parsed.attributes;
    model::SizeRuns(sized);
    ExpectEqual(sized, parsed.attributes, "the walk sizes runs");
    for (const model::Attribute& attribute : sized) groups += attribute.position.groupByteLength != 0 ? 1 : 0;
  });
  EXPECT_GT(groups, 500u);
}

}  // namespace
