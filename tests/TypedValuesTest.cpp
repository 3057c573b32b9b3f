// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"

// One attribute's raw value into a payload and out of it: bits, unsigned integers and runs of bytes. Payloads live in
// heap blocks of their exact size, so that the sanitizers see a step aside, with guard bytes for the builds without.

namespace typed_values_test {
namespace {

using Position = MorvixProtocolPosition_4_0;

constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr uint64_t kAllOnes = ~uint64_t{0};
constexpr uint64_t kPreset = 0xA1A2A3A4A5A6A7A8;
constexpr uint64_t kSeed = 20210418;

Position BitField(int32_t byteOffset, size_t groupByteLength, int32_t bitOffset, int32_t len) {
  return {byteOffset, bitOffset, MorvixProtocolUnitBit_4_0, len, groupByteLength};
}

Position ByteField(int32_t byteOffset, int32_t len) { return {byteOffset, 0, MorvixProtocolUnitByte_4_0, len, 0}; }

Position InUnit(int32_t unit, Position position) {
  position.unit = static_cast<MorvixProtocolUnit_4_0>(unit);
  return position;
}

// What a write left behind.
struct Written {
  bool ok;
  size_t dataLen;
  std::vector<byte> payload;
};

using Writer = std::function<bool(byte*, size_t&)>;

Written Write(const std::vector<byte>& before, const Writer& writer) {
  // Once in a block that ends with the payload, once between guards: the same must come out.
  const std::unique_ptr<byte[]> exact(new byte[before.size()]);
  std::copy(before.begin(), before.end(), exact.get());
  Written written{false, before.size(), {}};
  written.ok = writer(exact.get(), written.dataLen);
  written.payload.assign(exact.get(), exact.get() + before.size());

  constexpr size_t kGuards = 16;
  std::vector<byte> guarded(before.size() + 2 * kGuards, 0xC5);
  std::copy(before.begin(), before.end(), guarded.begin() + kGuards);
  std::vector<byte> expected = guarded;
  std::copy(written.payload.begin(), written.payload.end(), expected.begin() + kGuards);
  size_t dataLen = before.size();
  EXPECT_EQ(writer(guarded.data() + kGuards, dataLen), written.ok);
  EXPECT_EQ(guarded, expected) << "wrote outside the payload";
  return written;
}

Written WriteBool(const std::vector<byte>& before, const Position& position, bool value) {
  return Write(before, [&](byte* data, size_t& dataLen) { return WriteBoolValue(data, dataLen, position, value); });
}

Written WriteUInt(const std::vector<byte>& before, const Position& position, uint64_t value) {
  return Write(before, [&](byte* data, size_t& dataLen) { return WriteUIntValue(data, dataLen, position, value); });
}

Written WriteBinary(const std::vector<byte>& before, const Position& position, const std::string& value) {
  return Write(before, [&](byte* data, size_t& dataLen) { return WriteBinaryValue(data, dataLen, position, value); });
}

std::unique_ptr<byte[]> Exact(const std::vector<byte>& payload) {
  std::unique_ptr<byte[]> exact(new byte[payload.size()]);
  std::copy(payload.begin(), payload.end(), exact.get());
  return exact;
}

bool ReadBool(const std::vector<byte>& payload, const Position& position, bool& value) {
  return ReadBoolValue(Exact(payload).get(), payload.size(), position, value);
}

bool ReadUInt(const std::vector<byte>& payload, const Position& position, uint64_t& value) {
  return ReadUIntValue(Exact(payload).get(), payload.size(), position, value);
}

bool ReadBinary(const std::vector<byte>& payload, const Position& position, std::string& value) {
  return ReadBinaryValue(Exact(payload).get(), payload.size(), position, value);
}

std::string BinaryOf(const std::vector<byte>& payload, const Position& position) {
  std::string text = "not read";
  EXPECT_TRUE(ReadBinary(payload, position, text));
  return text;
}

std::vector<byte> Repeated(const std::vector<byte>& pattern, size_t size) {
  std::vector<byte> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = pattern[i % pattern.size()];
  return bytes;
}

std::vector<byte> RandomBytes(std::mt19937_64& random, size_t size) {
  std::vector<byte> bytes(size);
  for (byte& one : bytes) one = static_cast<byte>(random());
  return bytes;
}

bool BitOf(uint64_t word, int bit) { return (word >> bit & 1) != 0; }

void SetBit(byte& target, int bit, bool on) {
  const auto mask = static_cast<byte>(1 << bit);
  target = static_cast<byte>(on ? target | mask : target & ~mask);
}

// A field that the writer and the reader of its shape refuse: payload, size and output stay as they are.
void ExpectNoBool(const std::vector<byte>& payload, const Position& position) {
  for (const bool value : {false, true}) {
    const Written written = WriteBool(payload, position, value);
    EXPECT_FALSE(written.ok);
    EXPECT_EQ(written.payload, payload);
    EXPECT_EQ(written.dataLen, payload.size());
    bool read = value;
    EXPECT_FALSE(ReadBool(payload, position, read));
    EXPECT_EQ(read, value);
  }
}

void ExpectNoUInt(const std::vector<byte>& payload, const Position& position) {
  const Written written = WriteUInt(payload, position, 0x0123456789ABCDEF);
  EXPECT_FALSE(written.ok);
  EXPECT_EQ(written.payload, payload);
  EXPECT_EQ(written.dataLen, payload.size());
  uint64_t read = kPreset;
  EXPECT_FALSE(ReadUInt(payload, position, read));
  EXPECT_EQ(read, kPreset);
}

void ExpectNoBinary(const std::vector<byte>& payload, const Position& position) {
  const Written written = WriteBinary(payload, position, "AQID");
  EXPECT_FALSE(written.ok);
  EXPECT_EQ(written.payload, payload);
  std::string read = "kept";
  EXPECT_FALSE(ReadBinary(payload, position, read));
  EXPECT_EQ(read, "kept");
}

TEST(WriteBoolValue, SetsBit9OfATwoByteGroupInItsFirstByte) {
  const Written written = WriteBool(FromHex("00 00"), BitField(0, 2, 9, 1), true);
  EXPECT_TRUE(written.ok);
  EXPECT_EQ(ToHex(written.payload), "02 00");
  EXPECT_EQ(written.dataLen, 1u);
}

TEST(WriteBoolValue, AndReadBoolValueUseOneBitOfTheGroupAndNoOther) {
  std::mt19937_64 random(kSeed);
  for (int32_t byteOffset = 0; byteOffset <= 3; ++byteOffset) {
    for (int32_t group = 1; group <= 9; ++group) {
      for (int32_t bitOffset = 0; bitOffset < 8 * group; ++bitOffset) {
        const Position position = BitField(byteOffset, static_cast<size_t>(group), bitOffset, 1);
        const std::vector<byte> before = RandomBytes(random, static_cast<size_t>(byteOffset + group) + 1);
        for (const bool value : {false, true}) {
          std::vector<byte> expected = before;
          SetBit(expected[static_cast<size_t>(byteOffset + group - 1 - bitOffset / 8)], bitOffset % 8, value);
          const Written written = WriteBool(before, position, value);
          ASSERT_TRUE(written.ok);
          ASSERT_EQ(ToHex(written.payload), ToHex(expected)) << group << " at " << byteOffset << ", bit " << bitOffset;
          ASSERT_EQ(written.dataLen, 1u);
          bool read = !value;
          ASSERT_TRUE(ReadBool(expected, position, read));
          ASSERT_EQ(read, value) << group << " at " << byteOffset << ", bit " << bitOffset;
        }
      }
    }
  }
}

TEST(WriteBoolValue, AndReadBoolValueWantTheBitUnitAndALengthOfOne) {
  const std::vector<byte> payload = FromHex("a5 5a");
  for (const int32_t len : {kMinInt, -1, 0, 2, 8, 9, kMaxInt}) ExpectNoBool(payload, BitField(0, 2, 3, len));
  for (const int32_t unit : {-1, 0, 2, kMaxInt}) ExpectNoBool(payload, InUnit(unit, BitField(0, 2, 3, 1)));
}

TEST(WriteBoolValue, AndReadBoolValueWantTheBitInTheGroupAndInThePayload) {
  const std::vector<byte> payload = FromHex("a5 5a");
  ExpectNoBool(payload, BitField(0, 2, 16, 1));
  ExpectNoBool(payload, BitField(0, 0, 0, 1));
  ExpectNoBool(payload, BitField(2, 1, 0, 1));
  ExpectNoBool(payload, BitField(1, 2, 7, 1));  // the group's last byte is outside, and the bit in it
  ExpectNoBool(payload, BitField(-1, 1, 0, 1));
  ExpectNoBool(payload, BitField(kMinInt, 1, 0, 1));
  ExpectNoBool(payload, BitField(kMaxInt, 1, 0, 1));
  ExpectNoBool({}, BitField(0, 1, 0, 1));
}

TEST(WriteBoolValue, LooksAtTheBitsByteAndNotAtTheWholeGroup) {
  // Bit 8 of a group of two bytes is in its first byte, which the payload has.
  EXPECT_EQ(ToHex(WriteBool(FromHex("00 00"), BitField(1, 2, 8, 1), true).payload), "00 01");
  EXPECT_EQ(ToHex(WriteBool(FromHex("00 00"), BitField(-1, 2, 7, 1), true).payload), "80 00");
}

TEST(WriteBoolValue, SucceedsAndChangesNothingAtABitOffsetOfMinusOne) {
  const std::vector<byte> payload = FromHex("00 ff");
  for (const bool value : {false, true}) {
    const Written written = WriteBool(payload, BitField(0, 1, -1, 1), value);
    EXPECT_TRUE(written.ok);
    EXPECT_EQ(written.payload, payload);
    EXPECT_EQ(written.dataLen, 1u);
  }
  ExpectNoBool(FromHex("ff"), BitField(0, 1, -1, 1));  // the byte behind the group must be there
  ExpectNoBool(payload, BitField(0, 1, -2, 1));
}

TEST(ReadBoolValue, GivesFalseWithSuccessAtABitOffsetOfMinusOne) {
  bool value = true;
  EXPECT_TRUE(ReadBool(FromHex("ff ff"), BitField(0, 1, -1, 1), value));
  EXPECT_FALSE(value);
}

TEST(WriteUIntValue, StoresAByteFieldMostSignificantByteFirst) {
  EXPECT_EQ(ToHex(WriteUInt(FromHex("00 00"), ByteField(0, 2), 0x1234).payload), "12 34");
  EXPECT_EQ(ToHex(WriteUInt(FromHex("00 00"), ByteField(0, 2), 0x123456).payload), "34 56");
  EXPECT_EQ(ToHex(WriteUInt(FromHex("ff ff"), ByteField(0, 2), 0).payload), "00 00");
}

TEST(WriteUIntValue, AndReadUIntValueTakeByteFieldsOfOneToEightBytes) {
  const std::vector<byte> digits = FromHex("11 22 33 44 55 66 77 88");
  for (size_t len = 1; len <= 8; ++len) {
    for (size_t offset = 0; offset <= 4; ++offset) {
      const Position position = ByteField(static_cast<int32_t>(offset), static_cast<int32_t>(len));
      const std::vector<byte> before(12, 0xEE);
      std::vector<byte> expected = before;
      for (size_t i = 0; i < len; ++i) expected[offset + i] = digits[8 - len + i];
      const Written written = WriteUInt(before, position, 0x1122334455667788);
      ASSERT_TRUE(written.ok);
      EXPECT_EQ(ToHex(written.payload), ToHex(expected));
      EXPECT_EQ(written.dataLen, len);
      uint64_t read = 0;
      ASSERT_TRUE(ReadUInt(expected, position, read));
      uint64_t value = 0;
      for (size_t i = 0; i < len; ++i) value = value * 256 + digits[8 - len + i];
      EXPECT_EQ(read, value);
    }
  }
}

TEST(WriteUIntValue, AndReadUIntValueRefuseByteFieldsOfOtherLengths) {
  const std::vector<byte> payload(20, 0x5A);
  for (const int32_t len : {kMinInt, -1, 0, 9, 10, 20, 21, 256, kMaxInt}) ExpectNoUInt(payload, ByteField(0, len));
}

TEST(ReadUIntValue, KeepsTheCallersHigherBytesOfAByteField) {
  uint64_t value = 0xAAAAAAAAAAAAAAAA;
  ASSERT_TRUE(ReadUInt(FromHex("12 34"), ByteField(0, 2), value));
  EXPECT_EQ(value, 0xAAAAAAAAAAAA1234u);
}

TEST(ReadUIntValue, ReplacesTheWholeValueByABitField) {
  uint64_t value = kAllOnes;
  ASSERT_TRUE(ReadUInt(FromHex("00 00 05 60"), BitField(2, 2, 5, 6), value));
  EXPECT_EQ(value, 43u);
}

TEST(WriteUIntValue, IgnoresTheBitOffsetAndTheGroupOfAByteField) {
  for (const int32_t bitOffset : {-2, -1, 5, 99}) {
    const Position position{1, bitOffset, MorvixProtocolUnitByte_4_0, 2, 7};
    EXPECT_EQ(ToHex(WriteUInt(FromHex("00 00 00"), position, 0x1234).payload), "00 12 34");
    uint64_t value = 0;
    EXPECT_TRUE(ReadUInt(FromHex("00 12 34"), position, value));
    EXPECT_EQ(value, 0x1234u);
  }
}

TEST(WriteUIntValue, WritesTheBitsOfABitFieldAndDropsTheRestOfTheValue) {
  EXPECT_EQ(ToHex(WriteUInt(FromHex("00 00 00 00"), BitField(2, 2, 5, 6), 43).payload), "00 00 05 60");
  EXPECT_EQ(WriteUInt(FromHex("00 00 00 00"), BitField(2, 2, 5, 6), 43).dataLen, 2u);
  EXPECT_EQ(ToHex(WriteUInt(FromHex("00 00 00 00"), BitField(2, 2, 5, 6), kAllOnes).payload), "00 00 07 e0");
  EXPECT_EQ(ToHex(WriteUInt(FromHex("ff ff"), BitField(0, 2, 10, 3), 0x0A).payload), "eb ff");
  EXPECT_EQ(WriteUInt(FromHex("ff ff"), BitField(0, 2, 10, 3), 0x0A).dataLen, 1u);
}

TEST(WriteUIntValue, ReversesTheBytesOfTheNeighboursInTheSpannedBytes) {
  EXPECT_EQ(ToHex(WriteUInt(FromHex("10 02"), BitField(0, 2, 5, 6), 43).payload), "05 70");
  EXPECT_EQ(ToHex(WriteUInt(FromHex("77 ab cd 77"), BitField(1, 2, 4, 8), 0x5A).payload), "77 c5 ab 77");
  EXPECT_EQ(ToHex(WriteUInt(FromHex("11 22 33"), BitField(0, 3, 4, 16), 0xBEEF).payload), "3b ee f1");
}

TEST(WriteUIntValue, LetsAFieldReachBeforeItsGroup) {
  EXPECT_EQ(ToHex(WriteUInt(FromHex("00 00"), BitField(1, 1, 4, 8), 0xAB).payload), "0a b0");
  uint64_t value = 0;
  EXPECT_TRUE(ReadUInt(FromHex("0a b0"), BitField(1, 1, 4, 8), value));
  EXPECT_EQ(value, 0xABu);
  ExpectNoUInt(FromHex("00 00"), BitField(0, 1, 4, 8));
}

TEST(WriteUIntValue, AndReadUIntValueAgreeWithTheModelForEveryShiftAndLength) {
  std::mt19937_64 random(kSeed);
  constexpr int32_t kSize = 11;
  for (const int32_t byteOffset : {0, 1, 2}) {
    for (const int32_t group : {1, 2, 3, 8, 9, 10}) {
      for (int32_t bitOffset = 0; bitOffset < 8 * group; ++bitOffset) {
        for (int32_t len = 1; len <= 66; ++len) {
          const Position position = BitField(byteOffset, static_cast<size_t>(group), bitOffset, len);
          const int32_t first = byteOffset + group - 1 - (bitOffset + len - 1) / 8;
          const int32_t last = byteOffset + group - 1 - bitOffset / 8;
          const std::vector<byte> before = RandomBytes(random, kSize);
          const uint64_t value = random();
          if (first < 0 || last >= kSize || last - first + 1 > 8) {
            ExpectNoUInt(before, position);
            ASSERT_FALSE(HasFailure()) << group << " at " << byteOffset << ", " << len << " bits at " << bitOffset;
            continue;
          }
          // Spanned bit `bit` counts from the last spanned byte; its neighbour comes from the mirrored byte.
          std::vector<byte> expected = before;
          uint64_t inPlace = 0;
          for (int32_t bit = 0; bit < 8 * (last - first + 1); ++bit) {
            const int32_t fieldBit = bit - bitOffset % 8;
            const bool inField = fieldBit >= 0 && fieldBit < len;
            const byte mirrored = before[static_cast<size_t>(first + bit / 8)];
            const byte own = before[static_cast<size_t>(last - bit / 8)];
            SetBit(expected[static_cast<size_t>(last - bit / 8)], bit % 8,
                   inField ? BitOf(value, fieldBit) : BitOf(mirrored, bit % 8));
            if (inField && BitOf(own, bit % 8)) inPlace |= uint64_t{1} << fieldBit;
          }
          const Written written = WriteUInt(before, position, value);
          ASSERT_TRUE(written.ok) << group << " at " << byteOffset << ", " << len << " bits at " << bitOffset;
          ASSERT_EQ(ToHex(written.payload), ToHex(expected))
              << ToHex(before) << ", " << len << " bits at " << bitOffset << ", seed " << kSeed;
          ASSERT_EQ(written.dataLen, static_cast<size_t>(last - first + 1));
          uint64_t read = kPreset;
          ASSERT_TRUE(ReadUInt(before, position, read));
          ASSERT_EQ(read, inPlace) << ToHex(before) << ", " << len << " bits at " << bitOffset;
        }
      }
    }
  }
}

TEST(WriteUIntValue, TakesSixtyFourBitsOverEightBytesAndNoFieldOverNine) {
  const std::vector<byte> zeros(9, 0);
  EXPECT_EQ(ToHex(WriteUInt(zeros, BitField(0, 8, 0, 64), 0x0123456789ABCDEF).payload), "01 23 45 67 89 ab cd ef 00");
  uint64_t value = 0;
  EXPECT_TRUE(ReadUInt(FromHex("01 23 45 67 89 ab cd ef 00"), BitField(0, 8, 0, 64), value));
  EXPECT_EQ(value, 0x0123456789ABCDEFu);
  EXPECT_TRUE(WriteUInt(zeros, BitField(0, 9, 7, 57), 0).ok);
  ExpectNoUInt(zeros, BitField(0, 9, 7, 58));
  ExpectNoUInt(zeros, BitField(0, 9, 1, 64));
  ExpectNoUInt(zeros, BitField(0, 9, 0, 65));
}

TEST(WriteUIntValue, AndReadUIntValueRefuseOtherUnitsAndPlacesOutside) {
  const std::vector<byte> payload = FromHex("a5 5a 3c");
  for (const int32_t unit : {-1, 2, kMinInt, kMaxInt}) ExpectNoUInt(payload, InUnit(unit, BitField(0, 2, 0, 4)));
  ExpectNoUInt(payload, BitField(0, 0, 0, 4));  // a number declared in bits: its group is never sized
  ExpectNoUInt(payload, BitField(0, 2, 16, 1));
  ExpectNoUInt(payload, BitField(3, 1, 0, 4));
  ExpectNoUInt(payload, BitField(kMinInt, 1, 0, 4));
  ExpectNoUInt(payload, ByteField(-1, 2));
  ExpectNoUInt(payload, ByteField(3, 1));
  ExpectNoUInt({}, ByteField(0, 1));
}

// A place that is found although its bits are no field: the writer fails after it has reported the size, the reader
// succeeds and leaves the value alone.
void ExpectPlaceWithoutBits(const Position& position, size_t byteLength) {
  const std::vector<byte> payload = FromHex("a5 5a");
  const Written written = WriteUInt(payload, position, kAllOnes);
  EXPECT_FALSE(written.ok);
  EXPECT_EQ(written.payload, payload);
  EXPECT_EQ(written.dataLen, byteLength);
  uint64_t value = kPreset;
  EXPECT_TRUE(ReadUInt(payload, position, value));
  EXPECT_EQ(value, kPreset);
}

TEST(ReadUIntValue, SucceedsWithoutAValueWhereTheBitRangeIsRejected) {
  ExpectPlaceWithoutBits(BitField(0, 1, -1, 1), 1);
  ExpectPlaceWithoutBits(BitField(0, 1, -1, 8), 2);
  ExpectPlaceWithoutBits(BitField(0, 1, 1, 0), 1);
  ExpectPlaceWithoutBits(BitField(0, 1, 2, -1), 1);
  ExpectNoUInt(FromHex("a5 5a"), BitField(0, 1, -2, 1));
  ExpectNoUInt(FromHex("a5 5a"), BitField(0, 1, 0, 0));
}

TEST(WriteBinaryValue, AndReadBinaryValueCarryBase64) {
  EXPECT_EQ(ToHex(WriteBinary(FromHex("ee ee ee ee ee"), ByteField(1, 3), "AQID").payload), "ee 01 02 03 ee");
  EXPECT_EQ(BinaryOf(FromHex("ee 01 02 03 ee"), ByteField(1, 3)), "AQID");
  EXPECT_EQ(BinaryOf(FromHex("ff"), ByteField(0, 1)), "/w==");
  EXPECT_EQ(BinaryOf(FromHex("fb f0"), ByteField(0, 2)), "+/A=");
  EXPECT_EQ(ToHex(WriteBinary(FromHex("00 00"), ByteField(0, 2), "+/A=").payload), "fb f0");
}

TEST(WriteBinaryValue, CutsALongTextAtTheFieldAndLeavesTheRestOfAShortOne) {
  EXPECT_EQ(ToHex(WriteBinary(FromHex("ee ee ee ee"), ByteField(1, 2), "AQIDBAUG").payload), "ee 01 02 ee");
  EXPECT_EQ(ToHex(WriteBinary(FromHex("ee ee ee ee"), ByteField(0, 4), "AQI=").payload), "01 02 ee ee");
}

TEST(WriteBinaryValue, SucceedsWhateverTheTextHolds) {
  for (const std::string& text : {std::string(), std::string("="), std::string("*#?"), std::string("\0AQID", 5)}) {
    const Written written = WriteBinary(FromHex("ee ee ee"), ByteField(0, 3), text);
    EXPECT_TRUE(written.ok) << text;
    EXPECT_EQ(ToHex(written.payload), "ee ee ee") << text;
  }
  const Written ended = WriteBinary(FromHex("ee ee ee"), ByteField(0, 3), std::string("AQ\0ID", 5));
  EXPECT_TRUE(ended.ok);
  EXPECT_EQ(ToHex(ended.payload), "01 ee ee");
}

TEST(WriteBinaryValue, AndReadBinaryValueIgnoreTheBitOffsetAndTheGroup) {
  for (const int32_t bitOffset : {kMinInt, -1, 3, kMaxInt}) {
    const Position position{1, bitOffset, MorvixProtocolUnitByte_4_0, 3, 9};
    EXPECT_EQ(ToHex(WriteBinary(FromHex("00 00 00 00"), position, "AQID").payload), "00 01 02 03");
    EXPECT_EQ(BinaryOf(FromHex("00 01 02 03"), position), "AQID");
  }
}

TEST(WriteBinaryValue, AndReadBinaryValueWantTheByteUnitALengthAndAPlaceInside) {
  const std::vector<byte> payload = FromHex("a5 5a 3c");
  for (const int32_t unit : {-1, 1, 2, kMaxInt}) ExpectNoBinary(payload, InUnit(unit, BitField(0, 3, 0, 3)));
  for (const int32_t len : {kMinInt, -1, 0, 4, kMaxInt}) ExpectNoBinary(payload, ByteField(0, len));
  ExpectNoBinary(payload, ByteField(1, 3));
  ExpectNoBinary(payload, ByteField(3, 1));
  ExpectNoBinary(payload, ByteField(-1, 1));
  ExpectNoBinary({}, ByteField(0, 1));
}

TEST(WriteBinaryValue, AndReadBinaryValueStopAt65535Bytes) {
  std::string text;
  for (int i = 0; i < 65535 / 3; ++i) text += "AQID";
  const std::vector<byte> pattern = FromHex("01 02 03");
  const Written written = WriteBinary(std::vector<byte>(65536, 0xEE), ByteField(0, 65535), text + "AQID");
  EXPECT_TRUE(written.ok);
  std::vector<byte> expected = Repeated(pattern, 65535);
  expected.push_back(0xEE);
  EXPECT_TRUE(written.payload == expected);
  EXPECT_TRUE(BinaryOf(expected, ByteField(0, 65535)) == text);

  const std::vector<byte> longer = Repeated(pattern, 65537);
  ExpectNoBinary(longer, ByteField(0, 65536));
  ExpectNoBinary(longer, ByteField(1, 65536));
  ExpectNoBinary(longer, ByteField(0, 65537));
}

TEST(ReadBinaryValue, EncodesEveryLengthWhole) {
  // 0x55 repeated is "VVVV", with one byte left "VQ==", with two "VVU=".
  for (size_t size = 1; size <= 200; ++size) {
    std::string expected;
    for (size_t i = 0; i < size / 3; ++i) expected += "VVVV";
    if (size % 3 == 1) expected += "VQ==";
    if (size % 3 == 2) expected += "VVU=";
    const std::vector<byte> payload(size, 0x55);
    EXPECT_EQ(BinaryOf(payload, ByteField(0, static_cast<int32_t>(size))), expected);
    EXPECT_EQ(WriteBinary(std::vector<byte>(size, 0), ByteField(0, static_cast<int32_t>(size)), expected).payload,
              payload);
  }
}

// Each field needs the payload up to its own last byte, however short the payload was cut.
TEST(TypedValues, AreFoundInExactlyThePrefixesThatHoldThem) {
  std::vector<byte> whole(12);
  for (size_t i = 0; i < whole.size(); ++i) whole[i] = static_cast<byte>(0x11 * (i + 1));
  struct Case {
    Position position;
    size_t needs;
  };
  for (size_t size = 0; size <= whole.size(); ++size) {
    const std::vector<byte> prefix(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    for (const Case& one :
         {Case{BitField(0, 1, 0, 1), 1}, Case{BitField(3, 2, 15, 1), 4}, Case{BitField(3, 2, 8, 1), 4},
          Case{BitField(3, 2, 7, 1), 5}, Case{BitField(2, 10, 0, 1), 12}}) {
      bool value = false;
      if (size < one.needs) {
        ExpectNoBool(prefix, one.position);
      } else {
        EXPECT_TRUE(WriteBool(prefix, one.position, true).ok);
        EXPECT_TRUE(ReadBool(prefix, one.position, value));
      }
    }
    for (const Case& one :
         {Case{ByteField(0, 1), 1}, Case{ByteField(4, 8), 12}, Case{ByteField(3, 3), 6}, Case{BitField(2, 2, 5, 6), 4},
          Case{BitField(2, 4, 16, 9), 4}, Case{BitField(1, 1, 4, 8), 2}, Case{BitField(4, 8, 0, 64), 12}}) {
      uint64_t value = 0;
      if (size < one.needs) {
        ExpectNoUInt(prefix, one.position);
      } else {
        EXPECT_TRUE(WriteUInt(prefix, one.position, 1).ok);
        EXPECT_TRUE(ReadUInt(prefix, one.position, value));
      }
    }
    for (const Case& one : {Case{ByteField(0, 1), 1}, Case{ByteField(0, 12), 12}, Case{ByteField(5, 4), 9}}) {
      std::string value;
      if (size < one.needs) {
        ExpectNoBinary(prefix, one.position);
      } else {
        EXPECT_TRUE(WriteBinary(prefix, one.position, "AQID").ok);
        EXPECT_TRUE(ReadBinary(prefix, one.position, value));
      }
    }
  }
}

TEST(TypedValues, LogNothing) {
  const LogCapture log;
  const std::vector<byte> payload = FromHex("a5 5a");
  ExpectNoBool(payload, ByteField(0, 1));
  ExpectNoUInt(payload, ByteField(0, 9));
  ExpectNoBinary(payload, BitField(0, 1, 0, 8));
  EXPECT_EQ(log.Lines(), LogLines());
}

}  // namespace
}  // namespace typed_values_test
