// One attribute's raw value into a payload and out of it: bits, unsigned integers and runs of bytes. Worked examples,
// every small field, and random ones; all of them are also compared with the model.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Cases.h"
#include "Guarded.h"
#include "Maker.h"
#include "TestSupport.h"

namespace typed_values_test {
namespace {

using support::BitsAt;
using support::BytesAt;
using support::Exact;
using support::ExpectEqual;
using support::ForEachCase;
using support::Guarded;
using support::Inputs;
using support::Maker;
using support::SeededSource;
using support::Sightings;
using support::Source;
using Bytes = std::vector<byte>;
using Position = MorvixProtocolPosition_4_0;

constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr uint64_t kAllOnes = ~uint64_t{0};
constexpr uint64_t kPreset = 0xa1a2a3a4a5a6a7a8;

Position InUnit(int32_t unit, Position position) {
  position.unit = static_cast<MorvixProtocolUnit_4_0>(unit);
  return position;
}

// --- One value each, against the model ---

// Whether a value could be written to a field, and be read from it.
struct Done {
  bool isWritten = false;
  bool isRead = false;
  Bytes payload;       // after the write
  size_t dataLen = 0;  // likewise
};

template <typename Writer>
void Write(const Bytes& before, const Writer& writer, const model::Write& expected, const Bytes& expectedPayload,
           Done& done) {
  Guarded payload(before);
  done.dataLen = before.size();
  done.isWritten = writer(payload.Data(), done.dataLen);
  done.payload = payload.Content();
  ExpectEqual(done.isWritten, expected.isDone, "a value is written where the model writes it");
  ExpectEqual(uint64_t{done.dataLen}, expected.size, "a write leaves the model's size");
  ExpectEqual(done.payload, expectedPayload, "a value is written as the model writes it");
}

template <typename Value, typename Reader>
void Read(const Bytes& payload, const Reader& reader, bool isExpected, const Value& expected, Value value, Done& done) {
  done.isRead = reader(Exact(payload).get(), payload.size(), value);
  ExpectEqual(done.isRead, isExpected, "a value is read where the model reads it");
  ExpectEqual(value, expected, "a value is read as the model reads it");
}

Done UseBool(const Bytes& payload, const Position& position, bool value) {
  const Inputs inputs(payload, position, value);
  Done done;
  Bytes written = payload;
  const model::Write write = model::WriteBool(written, position, value);
  Write(
      payload, [&](byte* data, size_t& length) { return WriteBoolValue(data, length, position, value); }, write,
      written, done);
  bool expected = value;
  const bool isExpected = model::ReadBool(payload, position, expected);
  const auto read = [&](const byte* data, size_t length, bool& bit) {
    return ReadBoolValue(data, length, position, bit);
  };
  Read(payload, read, isExpected, expected, value, done);
  return done;
}

Done UseNumber(const Bytes& payload, const Position& position, uint64_t value, uint64_t preset = kPreset) {
  const Inputs inputs(payload, position, value, preset);
  Done done;
  Bytes written = payload;
  const model::Write write = model::WriteNumber(written, position, value);
  Write(
      payload, [&](byte* data, size_t& length) { return WriteUIntValue(data, length, position, value); }, write,
      written, done);
  uint64_t expected = preset;
  const bool isExpected = model::ReadNumber(payload, position, expected);
  const auto read = [&](const byte* data, size_t length, uint64_t& number) {
    return ReadUIntValue(data, length, position, number);
  };
  Read(payload, read, isExpected, expected, preset, done);
  return done;
}

Done UseBinary(const Bytes& payload, const Position& position, const std::string& value) {
  const Inputs inputs(payload, position, value);
  Done done;
  Bytes written = payload;
  const model::Write write = {model::WriteBinary(written, position, value), payload.size()};
  Write(
      payload, [&](byte* data, size_t& length) { return WriteBinaryValue(data, length, position, value); }, write,
      written, done);
  std::string expected = "kept";
  const bool isExpected = model::ReadBinary(payload, position, expected);
  const auto read = [&](const byte* data, size_t length, std::string& text) {
    return ReadBinaryValue(data, length, position, text);
  };
  Read(payload, read, isExpected, expected, std::string("kept"), done);
  return done;
}

std::string NumberWritten(const std::string& before, const Position& position, uint64_t value) {
  return ToHex(UseNumber(FromHex(before), position, value).payload);
}

std::string BinaryWritten(const std::string& before, const Position& position, const std::string& value) {
  return ToHex(UseBinary(FromHex(before), position, value).payload);
}

uint64_t NumberOf(const std::string& payload, const Position& position, uint64_t value = 0) {
  EXPECT_TRUE(ReadUIntValue(FromHex(payload).data(), FromHex(payload).size(), position, value));
  return value;
}

std::string BinaryOf(const Bytes& payload, const Position& position) {
  std::string text = "not read";
  EXPECT_TRUE(ReadBinaryValue(payload.data(), payload.size(), position, text));
  return text;
}

// Fields that the writer and the reader of their shape refuse: payload, size and output stay as they are.

void ExpectNoBool(const Bytes& payload, const Position& position) {
  const Done done = UseBool(payload, position, true);
  EXPECT_FALSE(done.isWritten || done.isRead) << position;
  UseBool(payload, position, false);
}

void ExpectNoNumber(const Bytes& payload, const Position& position) {
  const Done done = UseNumber(payload, position, 0x0123456789abcdef);
  EXPECT_FALSE(done.isWritten || done.isRead) << position;
}

void ExpectNoBinary(const Bytes& payload, const Position& position) {
  const Done done = UseBinary(payload, position, "AQID");
  EXPECT_FALSE(done.isWritten || done.isRead) << position;
}

// --- Bools ---

TEST(WriteBoolValue, SetsBit9OfATwoByteGroupInItsFirstByte) {
  const Done done = UseBool(FromHex("00 00"), BitsAt(0, 9, 1, 2), true);
  EXPECT_TRUE(done.isWritten);
  EXPECT_EQ(ToHex(done.payload), "02 00");
  EXPECT_EQ(done.dataLen, 1u);
}

TEST(WriteBoolValue, AndReadBoolValueUseOneBitOfTheGroupAndNoOther) {
  SeededSource source(2021041801);
  for (int32_t byteOffset = 0; byteOffset <= 3; ++byteOffset) {
    for (int32_t group = 1; group <= 9; ++group) {
      for (int32_t bitOffset = 0; bitOffset < 8 * group; ++bitOffset) {
        const Position position = BitsAt(byteOffset, bitOffset, 1, static_cast<size_t>(group));
        const Bytes before = source.Bytes(static_cast<size_t>(byteOffset + group) + 1);
        for (const bool value : {false, true}) {
          const Done done = UseBool(before, position, value);
          ASSERT_TRUE(done.isWritten && done.isRead) << position;
          Bytes expected = before;
          byte& holder = expected[static_cast<size_t>(byteOffset + group - 1 - bitOffset / 8)];
          const int mask = 1 << bitOffset % 8;
          holder = static_cast<byte>(value ? holder | mask : holder & ~mask);
          ASSERT_EQ(ToHex(done.payload), ToHex(expected)) << position;
          ASSERT_EQ(done.dataLen, 1u);
        }
      }
    }
  }
}

TEST(WriteBoolValue, AndReadBoolValueWantTheBitUnitAndALengthOfOne) {
  const Bytes payload = FromHex("a5 5a");
  for (const int32_t len : {kMinInt, -1, 0, 2, 8, 9, kMaxInt}) ExpectNoBool(payload, BitsAt(0, 3, len, 2));
  for (const int32_t unit : {-1, 0, 2, kMaxInt}) ExpectNoBool(payload, InUnit(unit, BitsAt(0, 3, 1, 2)));
}

TEST(WriteBoolValue, AndReadBoolValueWantTheBitInTheGroupAndInThePayload) {
  const Bytes payload = FromHex("a5 5a");
  for (const Position& position : {BitsAt(0, 16, 1, 2), BitsAt(0, 0, 1, 0), BitsAt(2, 0, 1, 1),
                                   BitsAt(1, 7, 1, 2),  // the group's last byte is outside, and the bit in it
                                   BitsAt(-1, 0, 1, 1), BitsAt(kMinInt, 0, 1, 1), BitsAt(kMaxInt, 0, 1, 1)}) {
    ExpectNoBool(payload, position);
  }
  ExpectNoBool({}, BitsAt(0, 0, 1, 1));
}

TEST(WriteBoolValue, LooksAtTheBitsByteAndNotAtTheWholeGroup) {
  // Bit 8 of a group of two bytes is in its first byte, which the payload has.
  EXPECT_EQ(ToHex(UseBool(FromHex("00 00"), BitsAt(1, 8, 1, 2), true).payload), "00 01");
  EXPECT_EQ(ToHex(UseBool(FromHex("00 00"), BitsAt(-1, 7, 1, 2), true).payload), "80 00");
}

TEST(WriteBoolValue, SucceedsAndChangesNothingAtABitOffsetOfMinusOne) {
  const Bytes payload = FromHex("00 ff");
  for (const bool value : {false, true}) {
    const Done done = UseBool(payload, BitsAt(0, -1, 1, 1), value);
    EXPECT_TRUE(done.isWritten);
    EXPECT_EQ(done.payload, payload);
    EXPECT_EQ(done.dataLen, 1u);
  }
  ExpectNoBool(FromHex("ff"), BitsAt(0, -1, 1, 1));  // the byte after the group must be there
  ExpectNoBool(payload, BitsAt(0, -2, 1, 1));
}

TEST(ReadBoolValue, GivesFalseWithSuccessAtABitOffsetOfMinusOne) {
  bool value = true;
  EXPECT_TRUE(ReadBoolValue(FromHex("ff ff").data(), 2, BitsAt(0, -1, 1, 1), value));
  EXPECT_FALSE(value);
}

// --- Numbers and enums ---

TEST(WriteUIntValue, StoresAByteFieldMostSignificantByteFirst) {
  EXPECT_EQ(NumberWritten("00 00", BytesAt(0, 2), 0x1234), "12 34");
  EXPECT_EQ(NumberWritten("00 00", BytesAt(0, 2), 0x123456), "34 56");
  EXPECT_EQ(NumberWritten("ff ff", BytesAt(0, 2), 0), "00 00");
}

TEST(WriteUIntValue, AndReadUIntValueTakeByteFieldsOfOneToEightBytes) {
  const Bytes before(12, 0xee);
  for (int32_t len = 1; len <= 8; ++len) {
    for (int32_t offset = 0; offset <= 4; ++offset) {
      const Done done = UseNumber(before, BytesAt(offset, len), 0x1122334455667788);
      EXPECT_TRUE(done.isWritten && done.isRead);
      EXPECT_EQ(done.dataLen, static_cast<size_t>(len));
    }
  }
  EXPECT_EQ(NumberWritten("ee ee ee ee ee", BytesAt(1, 3), 0x1122334455667788), "ee 66 77 88 ee");
  EXPECT_EQ(NumberOf("11 22 33 44 55 66 77 88 99", BytesAt(1, 8)), 0x2233445566778899u);
}

TEST(WriteUIntValue, AndReadUIntValueRefuseByteFieldsOfOtherLengths) {
  const Bytes payload(20, 0x5a);
  for (const int32_t len : {kMinInt, -1, 0, 9, 10, 20, 21, 256, kMaxInt}) ExpectNoNumber(payload, BytesAt(0, len));
}

TEST(ReadUIntValue, KeepsTheCallersHigherBytesOfAByteFieldAndReplacesAllByABitField) {
  EXPECT_EQ(NumberOf("12 34", BytesAt(0, 2), 0xaaaaaaaaaaaaaaaa), 0xaaaaaaaaaaaa1234u);
  EXPECT_EQ(NumberOf("00 00 05 60", BitsAt(2, 5, 6, 2), kAllOnes), 43u);
}

TEST(WriteUIntValue, IgnoresTheBitOffsetAndTheGroupOfAByteField) {
  for (const int32_t bitOffset : {-2, -1, 5, 99}) {
    const Position position{1, bitOffset, MorvixProtocolUnitByte_4_0, 2, 7};
    EXPECT_EQ(NumberWritten("00 00 00", position, 0x1234), "00 12 34");
    EXPECT_EQ(NumberOf("00 12 34", position), 0x1234u);
  }
}

TEST(WriteUIntValue, WritesTheBitsOfABitFieldAndDropsTheRestOfTheValue) {
  EXPECT_EQ(NumberWritten("00 00 00 00", BitsAt(2, 5, 6, 2), 43), "00 00 05 60");
  EXPECT_EQ(UseNumber(Bytes(4), BitsAt(2, 5, 6, 2), 43).dataLen, 2u);
  EXPECT_EQ(NumberWritten("00 00 00 00", BitsAt(2, 5, 6, 2), kAllOnes), "00 00 07 e0");
  EXPECT_EQ(NumberWritten("ff ff", BitsAt(0, 10, 3, 2), 0x0a), "eb ff");
  EXPECT_EQ(UseNumber(Bytes(2), BitsAt(0, 10, 3, 2), 0x0a).dataLen, 1u);
}

TEST(WriteUIntValue, ReversesTheBytesOfTheNeighboursInTheSpannedBytes) {
  EXPECT_EQ(NumberWritten("10 02", BitsAt(0, 5, 6, 2), 43), "05 70");
  EXPECT_EQ(NumberWritten("77 ab cd 77", BitsAt(1, 4, 8, 2), 0x5a), "77 c5 ab 77");
  EXPECT_EQ(NumberWritten("11 22 33", BitsAt(0, 4, 16, 3), 0xbeef), "3b ee f1");
}

TEST(WriteUIntValue, LetsAFieldReachBeforeItsGroup) {
  EXPECT_EQ(NumberWritten("00 00", BitsAt(1, 4, 8, 1), 0xab), "0a b0");
  EXPECT_EQ(NumberOf("0a b0", BitsAt(1, 4, 8, 1)), 0xabu);
  ExpectNoNumber(FromHex("00 00"), BitsAt(0, 4, 8, 1));
}

TEST(WriteUIntValue, AndReadUIntValueAgreeWithTheModelForEveryShiftAndLength) {
  SeededSource source(2021041802);
  size_t done = 0;
  for (const int32_t byteOffset : {0, 1, 2}) {
    for (const int32_t group : {1, 2, 3, 8, 9, 10}) {
      for (int32_t bitOffset = 0; bitOffset < 8 * group; ++bitOffset) {
        for (int32_t len = 1; len <= 66; ++len) {
          const Bytes before = source.Bytes(11);
          const Position position = BitsAt(byteOffset, bitOffset, len, static_cast<size_t>(group));
          const Done one = UseNumber(before, position, source.Next());
          ASSERT_EQ(one.isWritten, one.isRead) << position;
          done += one.isWritten ? 1 : 0;
        }
      }
    }
  }
  EXPECT_GT(done, 10000u);
}

TEST(WriteUIntValue, TakesSixtyFourBitsOverEightBytesAndNoFieldOverNine) {
  const Bytes zeros(9, 0);
  EXPECT_EQ(ToHex(UseNumber(zeros, BitsAt(0, 0, 64, 8), 0x0123456789abcdef).payload), "01 23 45 67 89 ab cd ef 00");
  EXPECT_EQ(NumberOf("01 23 45 67 89 ab cd ef 00", BitsAt(0, 0, 64, 8)), 0x0123456789abcdefu);
  EXPECT_TRUE(UseNumber(zeros, BitsAt(0, 7, 57, 9), 0).isWritten);
  ExpectNoNumber(zeros, BitsAt(0, 7, 58, 9));
  ExpectNoNumber(zeros, BitsAt(0, 1, 64, 9));
  ExpectNoNumber(zeros, BitsAt(0, 0, 65, 9));
}

TEST(WriteUIntValue, AndReadUIntValueRefuseOtherUnitsAndPlacesOutside) {
  const Bytes payload = FromHex("a5 5a 3c");
  for (const int32_t unit : {-1, 2, kMinInt, kMaxInt}) ExpectNoNumber(payload, InUnit(unit, BitsAt(0, 0, 4, 2)));
  for (const Position& position :
       {BitsAt(0, 0, 4, 0),  // a number declared in bits: its group is never sized
        BitsAt(0, 16, 1, 2), BitsAt(3, 0, 4, 1), BitsAt(kMinInt, 0, 4, 1), BytesAt(-1, 2), BytesAt(3, 1)}) {
    ExpectNoNumber(payload, position);
  }
  ExpectNoNumber({}, BytesAt(0, 1));
}

// Places that are found although their bits are not a field: the writer fails after it has reported the size, the
// reader succeeds and leaves the value alone.
TEST(ReadUIntValue, SucceedsWithoutAValueWhereTheBitRangeIsRejected) {
  const Bytes payload = FromHex("a5 5a");
  const std::pair<Position, size_t> cases[] = {
      {BitsAt(0, -1, 1, 1), 1}, {BitsAt(0, -1, 8, 1), 2}, {BitsAt(0, 1, 0, 1), 1}, {BitsAt(0, 2, -1, 1), 1}};
  for (const auto& [position, byteLength] : cases) {
    const Done done = UseNumber(payload, position, kAllOnes);
    EXPECT_FALSE(done.isWritten);
    EXPECT_EQ(done.payload, payload);
    EXPECT_EQ(done.dataLen, byteLength);
    EXPECT_EQ(NumberOf("a5 5a", position, kPreset), kPreset);
  }
  ExpectNoNumber(payload, BitsAt(0, -2, 1, 1));
  ExpectNoNumber(payload, BitsAt(0, 0, 0, 1));
}

// --- Binaries ---

TEST(WriteBinaryValue, AndReadBinaryValueCarryBase64) {
  EXPECT_EQ(BinaryWritten("ee ee ee ee ee", BytesAt(1, 3), "AQID"), "ee 01 02 03 ee");
  EXPECT_EQ(BinaryOf(FromHex("ee 01 02 03 ee"), BytesAt(1, 3)), "AQID");
  EXPECT_EQ(BinaryOf(FromHex("ff"), BytesAt(0, 1)), "/w==");
  EXPECT_EQ(BinaryOf(FromHex("fb f0"), BytesAt(0, 2)), "+/A=");
  EXPECT_EQ(BinaryWritten("00 00", BytesAt(0, 2), "+/A="), "fb f0");
}

TEST(WriteBinaryValue, CutsALongTextAtTheFieldAndLeavesTheRestOfAShortOne) {
  EXPECT_EQ(BinaryWritten("ee ee ee ee", BytesAt(1, 2), "AQIDBAUG"), "ee 01 02 ee");
  EXPECT_EQ(BinaryWritten("ee ee ee ee", BytesAt(0, 4), "AQI="), "01 02 ee ee");
}

TEST(WriteBinaryValue, SucceedsWhateverTheTextHolds) {
  for (const std::string& text : {std::string(), std::string("="), std::string("*#?"), std::string("\0AQID", 5)}) {
    const Done done = UseBinary(FromHex("ee ee ee"), BytesAt(0, 3), text);
    EXPECT_TRUE(done.isWritten) << text;
    EXPECT_EQ(ToHex(done.payload), "ee ee ee") << text;
  }
  EXPECT_EQ(BinaryWritten("ee ee ee", BytesAt(0, 3), std::string("AQ\0ID", 5)), "01 ee ee");
}

TEST(WriteBinaryValue, AndReadBinaryValueIgnoreTheBitOffsetAndTheGroup) {
  for (const int32_t bitOffset : {kMinInt, -1, 3, kMaxInt}) {
    const Position position{1, bitOffset, MorvixProtocolUnitByte_4_0, 3, 9};
    EXPECT_EQ(BinaryWritten("00 00 00 00", position, "AQID"), "00 01 02 03");
    EXPECT_EQ(BinaryOf(FromHex("00 01 02 03"), position), "AQID");
  }
}

TEST(WriteBinaryValue, AndReadBinaryValueWantTheByteUnitALengthAndAPlaceInside) {
  const Bytes payload = FromHex("a5 5a 3c");
  for (const int32_t unit : {-1, 1, 2, kMaxInt}) ExpectNoBinary(payload, InUnit(unit, BitsAt(0, 0, 3, 3)));
  for (const int32_t len : {kMinInt, -1, 0, 4, kMaxInt}) ExpectNoBinary(payload, BytesAt(0, len));
  for (const Position& position : {BytesAt(1, 3), BytesAt(3, 1), BytesAt(-1, 1)}) ExpectNoBinary(payload, position);
  ExpectNoBinary({}, BytesAt(0, 1));
}

TEST(WriteBinaryValue, AndReadBinaryValueStopAt65535Bytes) {
  Bytes bytes;
  std::string text;
  for (int i = 0; i < 65535 / 3; ++i) {
    bytes.insert(bytes.end(), {1, 2, 3});
    text += "AQID";
  }
  bytes.push_back(0xee);
  EXPECT_TRUE(UseBinary(Bytes(65536, 0xee), BytesAt(0, 65535), text + "AQID").payload == bytes);
  EXPECT_TRUE(BinaryOf(bytes, BytesAt(0, 65535)) == text);

  bytes.push_back(0xee);
  ExpectNoBinary(bytes, BytesAt(0, 65536));
  ExpectNoBinary(bytes, BytesAt(1, 65536));
  ExpectNoBinary(bytes, BytesAt(0, 65537));
}

TEST(ReadBinaryValue, EncodesEveryLengthWhole) {
  for (size_t size = 1; size <= 200; ++size) {
    const Bytes payload(size, 0x55);
    const Done done = UseBinary(payload, BytesAt(0, static_cast<int32_t>(size)), model::Base64Text(payload));
    EXPECT_TRUE(done.isWritten && done.isRead);
    EXPECT_EQ(done.payload, payload);
  }
}

// --- All of them ---

// Each field needs the payload up to its own last byte, however short the payload was cut.
TEST(TypedValues, AreFoundInExactlyThePrefixesThatHoldThem) {
  struct Case {
    Position position;
    size_t needs;
  };
  const auto uses = [](const Done& done, size_t size, const Case& one) {
    EXPECT_EQ(done.isWritten, size >= one.needs) << one.position << " in " << size;
    EXPECT_EQ(done.isRead, size >= one.needs) << one.position << " in " << size;
  };
  for (size_t size = 0; size <= 12; ++size) {
    const Bytes prefix(size, 0x11);
    for (const Case& one : {Case{BitsAt(0, 0, 1, 1), 1}, Case{BitsAt(3, 15, 1, 2), 4}, Case{BitsAt(3, 8, 1, 2), 4},
                            Case{BitsAt(3, 7, 1, 2), 5}, Case{BitsAt(2, 0, 1, 10), 12}}) {
      uses(UseBool(prefix, one.position, true), size, one);
    }
    for (const Case& one :
         {Case{BytesAt(0, 1), 1}, Case{BytesAt(4, 8), 12}, Case{BytesAt(3, 3), 6}, Case{BitsAt(2, 5, 6, 2), 4},
          Case{BitsAt(2, 16, 9, 4), 4}, Case{BitsAt(1, 4, 8, 1), 2}, Case{BitsAt(4, 0, 64, 8), 12}}) {
      uses(UseNumber(prefix, one.position, 1), size, one);
    }
    for (const Case& one : {Case{BytesAt(0, 1), 1}, Case{BytesAt(0, 12), 12}, Case{BytesAt(5, 4), 9}}) {
      uses(UseBinary(prefix, one.position, "AQID"), size, one);
    }
  }
}

TEST(TypedValues, LogNothing) {
  const LogCapture log;
  const Bytes payload = FromHex("a5 5a");
  ExpectNoBool(payload, BytesAt(0, 1));
  ExpectNoNumber(payload, BytesAt(0, 9));
  ExpectNoBinary(payload, BitsAt(0, 0, 8, 1));
  EXPECT_EQ(log.Lines(), LogLines());
}

// --- Anywhere ---

size_t SomePayloadSize(Source& source) { return source.OneIn(6) ? source.Index(3) : 1 + source.Index(24); }

TEST(TypedValues, AgreeWithTheModelOnBools) {
  Sightings outcomes({"refused", "done", "bit -1"});
  ForEachCase(2026040614, 100000, [&](Source& source) {
    const Bytes payload = source.Bytes(SomePayloadSize(source));
    Position position = Maker(source).MakePosition(payload.size());
    if (!source.OneIn(10)) position.len = 1;
    const Done done = UseBool(payload, position, source.Flip());
    outcomes.Add(!done.isWritten ? "refused" : position.bit_offset < 0 ? "bit -1" : "done");
  });
}

TEST(TypedValues, AgreeWithTheModelOnNumbers) {
  Sightings outcomes({"refused", "found and refused", "bytes", "bits of one byte", "bits of more bytes"});
  ForEachCase(2026040615, 200000, [&](Source& source) {
    const Bytes payload = source.Bytes(SomePayloadSize(source));
    const Position position = Maker(source).MakePosition(payload.size());
    const uint64_t preset = source.OneIn(3) ? source.Next() : 0;
    const Done done = UseNumber(payload, position, source.Word(), preset);
    outcomes.Add(!done.isWritten                               ? done.isRead ? "found and refused" : "refused"
                 : position.unit == MorvixProtocolUnitByte_4_0 ? "bytes"
                 : done.dataLen == 1                           ? "bits of one byte"
                                                               : "bits of more bytes");
  });
}

TEST(TypedValues, AgreeWithTheModelOnBinaries) {
  Sightings outcomes({"refused", "longer than a binary may be", "done"});
  ForEachCase(2026040616, 50000, [&](Source& source) {
    Maker maker(source);
    size_t payloadBytes = SomePayloadSize(source);
    Position position = maker.MakePosition(payloadBytes);
    if (!source.OneIn(10)) position.unit = MorvixProtocolUnitByte_4_0;
    if (source.OneIn(1000)) {  // around the longest that there may be
      payloadBytes = 65535 + source.Index(5);
      position = BytesAt(source.Int(0, 1), 0);
      position.len = source.Int(65534, 65537);
    }
    const Bytes payload = source.Bytes(payloadBytes);
    const Done done = UseBinary(payload, position, maker.MakeBase64(source.Index(12)));
    const bool isTooLong = position.len > 65535 && model::Locate(payload.size(), position).IsFound();
    outcomes.Add(done.isWritten ? "done" : isTooLong ? "longer than a binary may be" : "refused");
  });
}

}  // namespace
}  // namespace typed_values_test
