// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "TestSupport.h"

// Where a field lies in a payload, how its bits are numbered and stored, and how numbers are scaled. The models in here
// are slow on purpose: they know nothing of masks and words, they walk over bits and bytes one at a time.

namespace payload_positions_test {
namespace {

using Position = MorvixProtocolPosition_4_0;

constexpr uint64_t kAllOnes = ~uint64_t{0};
constexpr uint64_t kTwoTo52 = uint64_t{1} << 52;
constexpr size_t kHugeSize = std::numeric_limits<size_t>::max();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr uint64_t kSeed = 20210417;

Position BitField(int32_t byteOffset, size_t groupByteLength, int32_t bitOffset, int32_t len) {
  return {byteOffset, bitOffset, MorvixProtocolUnitBit_4_0, len, groupByteLength};
}

Position ByteField(int32_t byteOffset, int32_t len) { return {byteOffset, 0, MorvixProtocolUnitByte_4_0, len, 0}; }

bool BitOf(uint64_t word, size_t bit) { return (word >> bit & 1) != 0; }

uint64_t WithBit(uint64_t word, size_t bit, bool on) {
  const uint64_t mask = uint64_t{1} << bit;
  return on ? word | mask : word & ~mask;
}

// Bit `bit` of a run of bytes that is read as one big-endian number: bit 0 is the last byte's least significant one.
bool BitOf(const std::vector<byte>& run, size_t bit) { return BitOf(run[run.size() - 1 - bit / 8], bit % 8); }

void SetBit(std::vector<byte>& run, size_t bit, bool on) {
  byte& target = run[run.size() - 1 - bit / 8];
  target = static_cast<byte>(WithBit(target, bit % 8, on));
}

std::vector<byte> RandomBytes(std::mt19937_64& random, size_t size) {
  std::vector<byte> bytes(size);
  for (byte& one : bytes) one = static_cast<byte>(random());
  return bytes;
}

// Bytes on the heap with guard bytes on both sides.
class Guarded {
 public:
  explicit Guarded(const std::vector<byte>& content) : size_(content.size()), bytes_(size_ + 2 * kGuards, kGuard) {
    std::copy(content.begin(), content.end(), data());
  }
  byte* data() { return bytes_.data() + kGuards; }
  std::vector<byte> Content() { return {data(), data() + size_}; }
  bool Intact() const {
    const auto guards = std::count(bytes_.begin(), bytes_.begin() + kGuards, kGuard);
    return guards == kGuards && std::count(bytes_.end() - kGuards, bytes_.end(), kGuard) == kGuards;
  }

 private:
  static constexpr int kGuards = 16;
  static constexpr byte kGuard = 0xC5;
  size_t size_;
  std::vector<byte> bytes_;
};

// The answer to "where is it?". A place that was not found starts at kNowhere; kUntouched is the byte length that no
// operation wrote.
constexpr ptrdiff_t kNowhere = std::numeric_limits<ptrdiff_t>::min();
constexpr size_t kUntouched = 7777;

struct Place {
  ptrdiff_t start;
  size_t byteLength;
};

bool operator==(const Place& left, const Place& right) {
  return left.start == right.start && left.byteLength == right.byteLength;
}

std::ostream& operator<<(std::ostream& stream, const Place& place) {
  return stream << "start " << place.start << ", " << place.byteLength << " bytes";
}

ptrdiff_t IndexOf(const byte* found, const byte* data) { return found == nullptr ? kNowhere : found - data; }

Place Locate(size_t dataLen, const Position& position) {
  const std::unique_ptr<byte[]> data(new byte[dataLen]);
  size_t byteLength = kUntouched;
  const byte* const found = OffsetPosition(data.get(), dataLen, position, byteLength);
  return {IndexOf(found, data.get()), byteLength};
}

Place LocateBits(size_t length, size_t bitOffset, size_t bitLength) {
  const std::unique_ptr<byte[]> data(new byte[length]);
  size_t byteLength = kUntouched;
  const byte* const found = OffsetBitPosition(data.get(), length, bitOffset, bitLength, byteLength);
  return {IndexOf(found, data.get()), byteLength};
}

ptrdiff_t LocateBytes(size_t length, size_t byteOffset, size_t byteLength) {
  const std::unique_ptr<byte[]> data(new byte[length]);
  return IndexOf(OffsetBytePosition(data.get(), length, byteOffset, byteLength), data.get());
}

TEST(OffsetBytePosition, AcceptsExactlyTheFieldsWhollyInsideThePayload) {
  for (size_t length = 0; length <= 6; ++length) {
    for (size_t offset = 0; offset <= 8; ++offset) {
      for (size_t count = 0; count <= 8; ++count) {
        bool inside = count > 0;
        for (size_t i = 0; i < count; ++i) inside = inside && offset + i < length;
        EXPECT_EQ(LocateBytes(length, offset, count), inside ? static_cast<ptrdiff_t>(offset) : kNowhere)
            << count << " bytes at " << offset << " of " << length;
      }
    }
  }
}

TEST(OffsetBytePosition, RefusesNumbersWhoseSumWrapsIntoThePayload) {
  EXPECT_EQ(LocateBytes(4, 1, kHugeSize), kNowhere);  // the sum is 0
  EXPECT_EQ(LocateBytes(4, kHugeSize, 2), kNowhere);  // the sum is 1
  EXPECT_EQ(LocateBytes(4, 0, kHugeSize), kNowhere);
  EXPECT_EQ(LocateBytes(4, kHugeSize, 1), kNowhere);
  EXPECT_EQ(LocateBytes(4, kHugeSize, kHugeSize), kNowhere);
}

TEST(OffsetBitPosition, SpansTheBytesFromItsFirstBitToItsLastAndStoresTheirCountAnyway) {
  for (size_t length = 0; length <= 5; ++length) {
    for (size_t start = 0; start <= 44; ++start) {
      for (size_t count = 1; count <= 44; ++count) {
        const size_t first = start / 8;
        const size_t last = (start + count - 1) / 8;
        const Place expected{last < length ? static_cast<ptrdiff_t>(first) : kNowhere, last - first + 1};
        EXPECT_EQ(LocateBits(length, start, count), expected) << count << " bits at " << start << " of " << length;
      }
    }
  }
}

TEST(OffsetBitPosition, FollowsItsWrappedArithmetic) {
  EXPECT_EQ(LocateBits(4, kHugeSize - 1, 6), (Place{kNowhere, 2}));  // bits -2 to 3: byte -1 and byte 0
  EXPECT_EQ(LocateBits(4, kHugeSize - 7, 8), (Place{kNowhere, 1}));  // bits -8 to -1: byte -1 alone
  EXPECT_EQ(LocateBits(2, 8, 0), (Place{kNowhere, 0}));              // (0 + 0) / 8, the end is on a byte boundary
  EXPECT_EQ(LocateBits(2, 7, 0), (Place{0, 1}));                     // (7 + 0) / 8, the end is inside byte 0
}

TEST(OffsetPosition, FindsTheSixBitsOfATwoByteGroup) {
  EXPECT_EQ(Locate(4, BitField(2, 2, 5, 6)), (Place{2, 2}));
  EXPECT_EQ(Locate(3, BitField(2, 2, 5, 6)), (Place{kNowhere, 2}));
}

TEST(OffsetPosition, FindsAByteFieldThatEndsAtThePayloadEndAndNoneThatGoesOn) {
  EXPECT_EQ(Locate(5, ByteField(2, 3)), (Place{2, 3}));
  EXPECT_EQ(Locate(5, ByteField(3, 3)), (Place{kNowhere, 3}));
  EXPECT_EQ(Locate(5, ByteField(2, 4)), (Place{kNowhere, 4}));
  EXPECT_EQ(Locate(5, ByteField(0, 5)), (Place{0, 5}));
  EXPECT_EQ(Locate(5, ByteField(0, 6)), (Place{kNowhere, 6}));
  EXPECT_EQ(Locate(5, ByteField(5, 1)), (Place{kNowhere, 1}));
  EXPECT_EQ(Locate(0, ByteField(0, 1)), (Place{kNowhere, 1}));
}

TEST(OffsetPosition, GivesTheLengthOfAByteFieldAlsoWhenItFails) {
  EXPECT_EQ(Locate(4, ByteField(0, 0)), (Place{kNowhere, 0}));
  EXPECT_EQ(Locate(4, ByteField(0, -1)), (Place{kNowhere, kHugeSize}));
  EXPECT_EQ(Locate(4, ByteField(1, -1)), (Place{kNowhere, kHugeSize}));
  EXPECT_EQ(Locate(4, ByteField(-1, 1)), (Place{kNowhere, 1}));
  EXPECT_EQ(Locate(4, ByteField(-1, 2)), (Place{kNowhere, 2}));
  EXPECT_EQ(Locate(4, ByteField(kMinInt, kMaxInt)), (Place{kNowhere, static_cast<size_t>(kMaxInt)}));
}

TEST(OffsetPosition, IgnoresTheBitOffsetAndTheGroupOfAByteField) {
  EXPECT_EQ(Locate(4, {1, 99, MorvixProtocolUnitByte_4_0, 2, 0}), (Place{1, 2}));
  EXPECT_EQ(Locate(4, {1, -99, MorvixProtocolUnitByte_4_0, 2, 77}), (Place{1, 2}));
}

TEST(OffsetPosition, LocatesNothingInAnotherUnitAndLeavesTheLengthAlone) {
  for (const int32_t unit : {-1, 2, 3, kMinInt, kMaxInt}) {
    EXPECT_EQ(Locate(4, {0, 0, static_cast<MorvixProtocolUnit_4_0>(unit), 1, 1}), (Place{kNowhere, kUntouched}))
        << unit;
  }
}

TEST(OffsetPosition, FindsEveryBitFieldWhoseBytesAreInThePayload) {
  for (size_t dataLen = 0; dataLen <= 4; ++dataLen) {
    for (int32_t byteOffset = -2; byteOffset <= 4; ++byteOffset) {
      for (int32_t group = 0; group <= 4; ++group) {
        for (int32_t bitOffset = 0; bitOffset <= 8 * group + 9; ++bitOffset) {
          for (int32_t len = 1; len <= 41; ++len) {
            int32_t first = byteOffset + group;
            int32_t last = byteOffset - 8;
            for (int32_t bit = bitOffset; bit < bitOffset + len; ++bit) {
              const int32_t holder = byteOffset + group - 1 - bit / 8;
              first = std::min(first, holder);
              last = std::max(last, holder);
            }
            const bool startsInGroup = bitOffset < 8 * group;
            const bool inPayload = first >= 0 && last < static_cast<int32_t>(dataLen);
            const Place expected{startsInGroup && inPayload ? first : kNowhere,
                                 startsInGroup ? static_cast<size_t>(last - first + 1) : kUntouched};
            ASSERT_EQ(Locate(dataLen, BitField(byteOffset, static_cast<size_t>(group), bitOffset, len)), expected)
                << "payload " << dataLen << ", group of " << group << " at " << byteOffset << ", " << len << " bits at "
                << bitOffset;
          }
        }
      }
    }
  }
}

TEST(OffsetPosition, WantsTheBitOffsetInsideTheGroup) {
  EXPECT_EQ(Locate(8, BitField(0, 8, 63, 1)).start, 0);
  EXPECT_EQ(Locate(8, BitField(0, 8, 64, 1)).start, kNowhere);
  EXPECT_EQ(Locate(8, BitField(0, 8, kMaxInt, 1)).start, kNowhere);
  EXPECT_EQ(Locate(8, BitField(4, 0, 0, 1)).start, kNowhere);
}

TEST(OffsetPosition, LetsABitOffsetOfMinusOnePassTheGroupTest) {
  // -1 + 1 is not above any group size. The bit behind the group is the first one of the byte behind it.
  EXPECT_EQ(Locate(2, BitField(0, 1, -1, 1)), (Place{1, 1}));
  EXPECT_EQ(Locate(1, BitField(0, 1, -1, 1)), (Place{kNowhere, 1}));
  EXPECT_EQ(Locate(1, BitField(0, 0, -1, 1)), (Place{0, 1}));
  EXPECT_EQ(Locate(2, BitField(0, 1, -1, 2)), (Place{0, 2}));
  for (const int32_t bitOffset : {-2, -7, -8, -9, kMinInt}) {
    EXPECT_EQ(Locate(8, BitField(0, 2, bitOffset, 1)).start, kNowhere) << bitOffset;
  }
}

TEST(OffsetPosition, FollowsTheWrappedArithmeticForBitLengthsOfZeroAndBelow) {
  EXPECT_EQ(Locate(2, BitField(0, 1, 0, 0)), (Place{kNowhere, 0}));
  EXPECT_EQ(Locate(2, BitField(0, 1, 1, 0)), (Place{0, 1}));   // start 7, end 7
  EXPECT_EQ(Locate(2, BitField(0, 1, 2, -1)), (Place{0, 1}));  // start 7, end 6
  // Start 8, end 7: (0 - 1) / 8 is 2 to the power 61, less 1.
  EXPECT_EQ(Locate(2, BitField(0, 1, 1, -1)), (Place{kNowhere, static_cast<size_t>(uint64_t{1} << 61)}));
}

TEST(BitCopyRead, ReadsTheWorkedExample) {
  const std::vector<byte> run = FromHex("05 60");
  uint64_t u = 0;
  ASSERT_TRUE(BitCopy(run.data(), 5, 6, run.size(), u));
  EXPECT_EQ(u, 0x0560u);
  uint64_t value = 0;
  ASSERT_TRUE(DecodeBit(u, 5, 6, value));
  EXPECT_EQ(value, 43u);
}

TEST(BitCopyRead, KeepsTheFieldInPlaceAndNothingElse) {
  std::mt19937_64 random(kSeed);
  for (size_t size = 1; size <= 8; ++size) {
    for (int32_t start = 0; start < 20; ++start) {
      for (int32_t length = 1; length <= 64; ++length) {
        const std::vector<byte> run = RandomBytes(random, size);
        const uint64_t before = random();
        const auto shift = static_cast<size_t>(start % 8);
        const auto count = static_cast<size_t>(length);
        const bool fits = shift + count <= 64;
        // A field longer than its bytes continues in what the caller left in the word.
        uint64_t expected = fits ? 0 : before;
        for (size_t bit = shift; fits && bit < shift + count; ++bit) {
          expected = WithBit(expected, bit, bit < 8 * size ? BitOf(run, bit) : BitOf(before, bit));
        }
        uint64_t u = before;
        ASSERT_EQ(BitCopy(run.data(), start, length, size, u), fits) << size << ' ' << start << ' ' << length;
        ASSERT_EQ(u, expected) << ToHex(run) << ", start " << start << ", length " << length << ", seed " << kSeed;
      }
    }
  }
}

TEST(BitCopyRead, RefusesWhatDoesNotFitAWordAndLeavesItAlone) {
  const std::vector<byte> run(16, 0xFF);
  struct Case {
    int32_t start;
    int32_t length;
    size_t byteLength;
  };
  for (const Case& one :
       {Case{-1, 1, 1}, Case{-8, 1, 1}, Case{kMinInt, 1, 1}, Case{0, 0, 1}, Case{0, -1, 1}, Case{0, kMinInt, 1},
        Case{0, 65, 8}, Case{0, kMaxInt, 8}, Case{0, 1, 0}, Case{0, 1, 9}, Case{0, 1, kHugeSize}, Case{1, 64, 8},
        Case{7, 58, 8}, Case{kMaxInt, 58, 8}, Case{7, kMaxInt, 8}}) {
    uint64_t u = 0x0123456789ABCDEF;
    EXPECT_FALSE(BitCopy(run.data(), one.start, one.length, one.byteLength, u))
        << one.start << ' ' << one.length << ' ' << one.byteLength;
    EXPECT_EQ(u, 0x0123456789ABCDEFu);
    Guarded target(run);
    EXPECT_FALSE(BitCopy(u, one.start, one.length, one.byteLength, target.data()))
        << one.start << ' ' << one.length << ' ' << one.byteLength;
    EXPECT_EQ(target.Content(), run);
    EXPECT_TRUE(target.Intact());
  }
}

std::string Overwrite(const std::string& before, int32_t start, int32_t length, uint64_t value) {
  Guarded target(FromHex(before));
  const bool written = BitCopy(value << (start % 8), start, length, target.Content().size(), target.data());
  EXPECT_TRUE(written && target.Intact()) << before;
  return ToHex(target.Content());
}

TEST(BitCopyWrite, KeepsTheNeighboursOfAFieldInOneByte) {
  EXPECT_EQ(Overwrite("ff", 2, 3, 0), "e3");
  EXPECT_EQ(Overwrite("a5", 4, 4, 0x3), "35");
  EXPECT_EQ(Overwrite("a5", 0, 4, 0x3), "a3");
}

// Devices in the field are served by this: the neighbours are loaded little-endian and stored big-endian.
TEST(BitCopyWrite, ReversesTheBytesOfTheNeighboursOfAFieldInSeveralBytes) {
  EXPECT_EQ(Overwrite("00 00", 5, 6, 43), "05 60");
  // 0x0210 without bits 5 to 10 is 0x0010; with 43 << 5 = 0x0560 it is 0x0570.
  EXPECT_EQ(Overwrite("10 02", 5, 6, 43), "05 70");
  // 0xCDAB without bits 4 to 11 is 0xC00B; with 0x5A << 4 it is 0xC5AB.
  EXPECT_EQ(Overwrite("ab cd", 4, 8, 0x5A), "c5 ab");
  // 0x332211 without bits 4 to 19 is 0x300001; with 0xBEEF << 4 it is 0x3BEEF1.
  EXPECT_EQ(Overwrite("11 22 33", 4, 16, 0xBEEF), "3b ee f1");
  // A field from bit 0 on: 0x2211 without bits 0 to 8 is 0x2200; with 0x101 it is 0x2301.
  EXPECT_EQ(Overwrite("11 22", 0, 9, 0x101), "23 01");
}

TEST(BitCopyWrite, StoresAFieldOfWholeBytesWithoutItsNeighbours) {
  EXPECT_EQ(Overwrite("ff", 0, 8, 0x5A), "5a");
  EXPECT_EQ(Overwrite("ff ff", 8, 16, 0x1234), "12 34");
  EXPECT_EQ(Overwrite("ff ff ff ff ff ff ff ff", 0, 64, 0x0123456789ABCDEF), "01 23 45 67 89 ab cd ef");
  // A run that is longer than its whole bytes has nothing merged into it either.
  EXPECT_EQ(Overwrite("ff ff", 0, 8, 0x5A), "00 5a");
}

TEST(BitCopyWrite, PlacesEveryFieldAndItsNeighboursAsTheModelDoes) {
  std::mt19937_64 random(kSeed);
  for (size_t size = 1; size <= 8; ++size) {
    for (int32_t start = 0; start < 20; ++start) {
      const auto shift = static_cast<size_t>(start % 8);
      for (int32_t length = 1; static_cast<size_t>(length) + shift <= 64; ++length) {
        const auto count = static_cast<size_t>(length);
        const std::vector<byte> before = RandomBytes(random, size);
        const uint64_t u = random();
        const bool merges = shift != 0 || count % 8 != 0;
        std::vector<byte> expected(size);
        for (size_t bit = 0; bit < 8 * size; ++bit) {
          const bool inField = bit >= shift && bit < shift + count;
          const bool neighbour = merges && BitOf(before[bit / 8], bit % 8);  // counted from the first byte
          SetBit(expected, bit, inField ? BitOf(u, bit) : neighbour);
        }
        Guarded target(before);
        ASSERT_TRUE(BitCopy(u, start, length, size, target.data())) << size << ' ' << start << ' ' << length;
        ASSERT_EQ(ToHex(target.Content()), ToHex(expected))
            << ToHex(before) << ", start " << start << ", length " << length << ", seed " << kSeed;
        ASSERT_TRUE(target.Intact());
        uint64_t back = 0;
        ASSERT_TRUE(BitCopy(target.data(), start, length, size, back));
        for (size_t bit = 0; bit < 64; ++bit) {
          const bool inField = bit >= shift && bit < shift + count && bit < 8 * size;
          ASSERT_EQ(BitOf(back, bit), inField && BitOf(u, bit));
        }
      }
    }
  }
}

TEST(FixIntegerInBitRange, KeepsTheFieldInPlaceAlsoOutsideItsDomain) {
  std::mt19937_64 random(kSeed);
  std::vector<int64_t> numbers = {kMinInt, -65, -64, -63, 128, kMaxInt};
  for (int64_t number = -2; number <= 66; ++number) numbers.push_back(number);
  for (const int64_t start : numbers) {
    for (const int64_t length : numbers) {
      const uint64_t before = random();
      uint64_t u = before;
      FixIntegerInBitRange(u, static_cast<int32_t>(start), static_cast<int32_t>(length));
      uint64_t expected = 0;
      for (int64_t bit = 0; bit < 64; ++bit) {
        const bool inField = start >= 0 && bit >= start && bit < start + length;
        if (inField && BitOf(before, static_cast<size_t>(bit))) expected |= uint64_t{1} << bit;
      }
      ASSERT_EQ(u, expected) << std::hex << before << std::dec << ", start " << start << ", length " << length;
    }
  }
}

TEST(ClearIntegerInBitRange, ClearsTheFieldOnlyAlsoOutsideItsDomain) {
  std::mt19937_64 random(kSeed);
  for (size_t start = 0; start <= 70; ++start) {
    for (size_t length = 0; length <= 70; ++length) {
      const uint64_t before = random();
      uint64_t u = before;
      ClearIntegerInBitRange(u, start, length);
      for (size_t bit = 0; bit < 64; ++bit) {
        const bool inField = bit >= start && bit - start < length;
        ASSERT_EQ(BitOf(u, bit), !inField && BitOf(before, bit)) << start << ' ' << length << " bit " << bit;
      }
    }
  }
  uint64_t u = kAllOnes;
  ClearIntegerInBitRange(u, kHugeSize, 1);
  EXPECT_EQ(u, kAllOnes);
}

TEST(EncodeBit, ReplacesTheFieldAndKeepsTheRest) {
  std::mt19937_64 random(kSeed);
  for (size_t shift = 0; shift <= 63; ++shift) {
    for (size_t length = 1; length <= 64 - shift; ++length) {
      for (const uint64_t u : {uint64_t{0}, kAllOnes, uint64_t{random()}}) {
        const uint64_t before = random();
        uint64_t expected = before;
        for (size_t bit = 0; bit < length; ++bit) expected = WithBit(expected, shift + bit, BitOf(u, bit));
        uint64_t value = before;
        EncodeBit(u, shift, length, value);
        ASSERT_EQ(value, expected) << std::hex << u << std::dec << ", shift " << shift << ", length " << length;
        uint64_t back = 0;
        ASSERT_TRUE(DecodeBit(value, shift, length, back));
        for (size_t bit = 0; bit < 64; ++bit) ASSERT_EQ(BitOf(back, bit), bit < length && BitOf(u, bit));
      }
    }
  }
}

// A field that does not lie in a word: neither direction touches its output.
void ExpectNoField(size_t shift, size_t length) {
  uint64_t value = 0x0123456789ABCDEF;
  EncodeBit(kAllOnes, shift, length, value);
  EXPECT_EQ(value, 0x0123456789ABCDEFu) << "shift " << shift << ", length " << length;
  EXPECT_FALSE(DecodeBit(kAllOnes, shift, length, value)) << "shift " << shift << ", length " << length;
  EXPECT_EQ(value, 0x0123456789ABCDEFu) << "shift " << shift << ", length " << length;
}

TEST(EncodeBit, AndDecodeBitIgnoreFieldsThatLeaveTheWord) {
  for (size_t shift = 0; shift <= 66; ++shift) {
    ExpectNoField(shift, 0);
    for (size_t length = shift >= 64 ? 1 : 65 - shift; length <= 66; ++length) ExpectNoField(shift, length);
  }
  // Sums that wrap into the word.
  ExpectNoField(kHugeSize, 1);
  ExpectNoField(1, kHugeSize);
  ExpectNoField(kHugeSize, kHugeSize);
  ExpectNoField(kHugeSize - 6, 8);
}

TEST(EncodeUInt, StoresTheLowBytesMostSignificantFirst) {
  const auto stored = [](uint64_t u, size_t size) {
    Guarded target(std::vector<byte>(size, 0));
    EXPECT_TRUE(EncodeUInt(u, size, target.data(), size) && target.Intact());
    return ToHex(target.Content());
  };
  EXPECT_EQ(stored(0x11223344, 3), "22 33 44");
  const std::vector<byte> all = FromHex("11 22 33 44 55 66 77 88");
  for (size_t size = 1; size <= 8; ++size) {
    EXPECT_EQ(stored(0x1122334455667788, size), ToHex(all.data() + all.size() - size, size));
  }
}

TEST(DecodeUInt, ReadsTheLowBytesAndLeavesTheHigherOnes) {
  const std::vector<byte> all = FromHex("11 22 33 44 55 66 77 88");
  for (size_t size = 1; size <= 8; ++size) {
    const std::vector<byte> run(all.begin(), all.begin() + static_cast<ptrdiff_t>(size));
    uint64_t expected = 0xA1A2A3A4A5A6A7A8;
    for (size_t bit = 0; bit < 8 * size; ++bit) expected = WithBit(expected, bit, BitOf(run, bit));
    uint64_t u = 0xA1A2A3A4A5A6A7A8;
    ASSERT_TRUE(DecodeUInt(run.data(), size, size, u));
    EXPECT_EQ(u, expected) << size;
  }
}

TEST(DecodeUInt, AndEncodeUIntRefuseOtherThanOneToEightBytes) {
  for (const size_t size : {size_t{0}, size_t{9}, size_t{10}, size_t{256}, kHugeSize}) {
    const std::vector<byte> before(16, 0x5A);
    Guarded target(before);
    EXPECT_FALSE(EncodeUInt(kAllOnes, size, target.data(), 16)) << size;
    EXPECT_EQ(target.Content(), before);
    EXPECT_TRUE(target.Intact());
    uint64_t u = 0x0123456789ABCDEF;
    EXPECT_FALSE(DecodeUInt(target.data(), 16, size, u)) << size;
    EXPECT_EQ(u, 0x0123456789ABCDEFu);
  }
}

TEST(DecodeUInt, AndEncodeUIntLeaveThePayloadSizeToTheirCallers) {
  Guarded target(FromHex("00 00"));
  EXPECT_TRUE(EncodeUInt(0x1234, 2, target.data(), 0));
  EXPECT_EQ(ToHex(target.Content()), "12 34");
  uint64_t u = 0;
  EXPECT_TRUE(DecodeUInt(target.data(), 0, 2, u));
  EXPECT_EQ(u, 0x1234u);
}

// Scaling, with the refusal as an empty result.
struct Scale {
  uint64_t min, max, step;
  double ratio = 1, addition = 0;
};

std::optional<uint64_t> Encode(const Scale& scale, double y) {
  uint64_t x = 0;
  if (!EncodeUIntSpec(scale.min, scale.max, scale.step, scale.ratio, scale.addition, y, x)) return std::nullopt;
  return x;
}

constexpr double kPreset = -12345.678;

std::optional<double> Decode(const Scale& scale, uint64_t x) {
  double y = kPreset;
  if (DecodeUIntSpec(scale.min, scale.max, scale.step, scale.ratio, scale.addition, x, y)) return y;
  EXPECT_EQ(y, kPreset) << "a refusal changed the output";
  return std::nullopt;
}

const std::optional<uint64_t> kRefused = std::nullopt;
const std::optional<double> kUnread = std::nullopt;
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInfinity = std::numeric_limits<double>::infinity();

TEST(EncodeUIntSpec, DividesWhatIsLeftAfterTheAddition) {
  EXPECT_EQ(Encode({0, 100, 1, 2, 10}, 30), 10u);
  EXPECT_EQ(Encode({0, 100, 1, 0.5, -40}, -40), 0u);
  EXPECT_EQ(Encode({0, 100, 1, 0.5, -40}, -15.5), 49u);
  EXPECT_EQ(Encode({0, 100, 1, -2, 0}, -14), 7u);
  EXPECT_EQ(Encode({0, 100, 1, 0.1, 0}, 0.3), 3u);  // the quotient is a little below 3
}

TEST(EncodeUIntSpec, RoundsAnExactHalfDown) {
  EXPECT_EQ(Encode({0, 100, 1, 0.5, 0}, 1.25), 2u);
  EXPECT_EQ(Encode({0, 100, 1, 0.5, 0}, 1.3), 3u);
  for (uint64_t whole = 0; whole <= 50; ++whole) {
    for (int eighths = 0; eighths < 8; ++eighths) {
      EXPECT_EQ(Encode({0, 100, 1}, static_cast<double>(whole) + eighths / 8.0), eighths > 4 ? whole + 1 : whole)
          << whole << " and " << eighths << "/8";
    }
  }
  EXPECT_EQ(Encode({0, 1, 1}, 0.5), 0u);
  EXPECT_EQ(Encode({0, 1, 1}, std::nextafter(0.5, 1.0)), 1u);
}

TEST(EncodeUIntSpec, TestsTheRangeAfterRounding) {
  EXPECT_EQ(Encode({3, 10, 1}, 2.6), 3u);
  EXPECT_EQ(Encode({3, 10, 1}, 2.5), kRefused);
  EXPECT_EQ(Encode({3, 10, 1}, 10.5), 10u);
  EXPECT_EQ(Encode({3, 10, 1}, 10.6), kRefused);
  EXPECT_EQ(Encode({3, 10, 1}, 0), kRefused);
}

TEST(EncodeUIntSpec, RefusesWhatIsBelowZeroBeforeRounding) {
  EXPECT_EQ(Encode({0, 10, 1}, -0.25), kRefused);
  EXPECT_EQ(Encode({0, 10, 1}, -std::numeric_limits<double>::denorm_min()), kRefused);
  EXPECT_EQ(Encode({0, 10, 1}, -0.0), 0u);
  EXPECT_EQ(Encode({0, 10, 1, -1, 0}, 3), kRefused);
}

TEST(EncodeUIntSpec, StopsAtTwoToThePowerOf52) {
  const Scale widest{0, kTwoTo52 - 1, 1};
  EXPECT_EQ(Encode(widest, 4503599627370495.0), kTwoTo52 - 1);
  EXPECT_EQ(Encode(widest, 4503599627370494.5), kTwoTo52 - 2);
  EXPECT_EQ(Encode(widest, 4503599627370495.5), kRefused);
  EXPECT_EQ(Encode(widest, 4503599627370496.0), kRefused);
  EXPECT_EQ(Encode(widest, 1e300), kRefused);
  EXPECT_EQ(Encode(widest, kInfinity), kRefused);
  EXPECT_EQ(Encode(widest, -kInfinity), kRefused);
}

TEST(EncodeUIntSpec, TakesNotANumberForZero) {
  EXPECT_EQ(Encode({0, 10, 3}, kNaN), 0u);
  EXPECT_EQ(Encode({1, 10, 1}, kNaN), kRefused);
  EXPECT_EQ(Encode({0, 10, 1, kNaN, 0}, 5), 0u);
  EXPECT_EQ(Encode({0, 10, 1, 1, kNaN}, 5), 0u);
  EXPECT_EQ(Encode({0, 10, 1, 0, 7}, 7), 0u);        // 0 / 0
  EXPECT_EQ(Encode({0, 10, 1, 0, 7}, 8), kRefused);  // infinity
  EXPECT_EQ(Encode({0, 10, 1, 0, 7}, 6), kRefused);  // -infinity
  uint64_t x = 5;
  EXPECT_TRUE(EncodeUIntSpec(0, 10, 1, 0, 7, 7, x));
  EXPECT_EQ(x, 0u);
}

TEST(DecodeUIntSpec, MultipliesAndThenAdds) {
  EXPECT_EQ(Decode({0, 100, 1, 2, 10}, 10), 30.0);
  EXPECT_EQ(Decode({0, 100, 1, 0.5, -40}, 49), -15.5);
  EXPECT_EQ(Decode({0, 100, 1, -1.5, 10}, 3), 5.5);
  EXPECT_EQ(Decode({0, 100, 1, 0, 7}, 99), 7.0);
  EXPECT_EQ(Decode({0, 100, 1, kInfinity, 0}, 1), kInfinity);
}

// 3 * 0.1 lies halfway between two doubles and is rounded up to the one above 0.3. A multiplication that is fused with
// the addition would not round it, and leave half of the distance.
TEST(DecodeUIntSpec, RoundsTheProductBeforeTheAddition) {
  EXPECT_EQ(Decode({0, 10, 1, 0.1, -0.3}, 3), std::ldexp(1.0, -54));
}

TEST(DecodeUIntSpec, RefusesRawValuesFromTwoToThePowerOf52On) {
  const Scale widest{0, kTwoTo52 - 1, 1};
  EXPECT_EQ(Decode(widest, kTwoTo52 - 1), 4503599627370495.0);
  for (int bit = 52; bit < 64; ++bit) EXPECT_EQ(Decode(widest, uint64_t{1} << bit), kUnread) << bit;
  EXPECT_EQ(Decode(widest, kAllOnes), kUnread);
}

TEST(DecodeUIntSpec, AndEncodeUIntSpecAcceptMinTheStepsAboveItAndMax) {
  EXPECT_EQ(Encode({0, 10, 3}, 9), 9u);
  EXPECT_EQ(Encode({0, 10, 3}, 10), 10u);
  EXPECT_EQ(Encode({0, 10, 3}, 8), kRefused);
  for (uint64_t min = 0; min <= 9; ++min) {
    for (uint64_t max = 0; max <= 12; ++max) {
      for (uint64_t step = 0; step <= 13; ++step) {
        std::set<uint64_t> accepted;
        if (max >= min && max - min >= step) {
          accepted = {min, max};
          for (uint64_t x = min; step != 0 && x <= max; x += step) accepted.insert(x);
        }
        for (uint64_t x = 0; x < 16; ++x) {
          const bool isAccepted = accepted.count(x) != 0;
          const auto y = static_cast<double>(x);
          const Scale scale{min, max, step};
          ASSERT_EQ(Encode(scale, y), isAccepted ? std::optional<uint64_t>(x) : kRefused)
              << min << ' ' << max << ' ' << step << ' ' << x;
          ASSERT_EQ(Decode(scale, x), isAccepted ? std::optional<double>(y) : kUnread)
              << min << ' ' << max << ' ' << step << ' ' << x;
        }
      }
    }
  }
}

TEST(DecodeUIntSpec, AndEncodeUIntSpecRefuseUnusableScalingsWhateverTheValue) {
  const auto minusOne = static_cast<uint64_t>(int64_t{-1});
  const auto minusBillion = static_cast<uint64_t>(int64_t{-1000000000});
  for (const Scale& scale :
       {Scale{0, kTwoTo52, 1}, Scale{0, kTwoTo52 + 1, 1}, Scale{0, uint64_t{1} << 63, 1}, Scale{0, minusOne, 1},
        Scale{kTwoTo52, kTwoTo52, 0}, Scale{minusOne, minusOne, 0},  // max too large
        Scale{11, 10, 0}, Scale{minusOne, 10, 1},                    // max below min
        Scale{0, 10, 11}, Scale{5, 5, 1},                            // step above their distance
        Scale{0, 10, minusOne}, Scale{0, kTwoTo52 - 1, minusBillion}}) {
    for (const uint64_t x : {uint64_t{0}, uint64_t{5}, uint64_t{10}, uint64_t{11}, kTwoTo52 - 1, kTwoTo52}) {
      EXPECT_EQ(Encode(scale, static_cast<double>(x)), kRefused) << scale.min << ' ' << scale.max << ' ' << scale.step;
      EXPECT_EQ(Decode(scale, x), kUnread) << scale.min << ' ' << scale.max << ' ' << scale.step;
    }
    EXPECT_EQ(Encode(scale, kNaN), kRefused);
    uint64_t x = 77;
    EXPECT_FALSE(EncodeUIntSpec(scale.min, scale.max, scale.step, 1, 0, 5, x));
    EXPECT_EQ(x, 77u) << "a refused scaling changed the output";
  }
}

TEST(DecodeUIntSpec, IsUndoneByEncodeUIntSpecAroundEveryPowerOfTwo) {
  for (const double ratio : {1.0, 0.25, 4.0}) {
    for (const double addition : {0.0, -8.0}) {
      const Scale scale{0, kTwoTo52 - 1, 1, ratio, addition};
      for (int exponent = 1; exponent <= 52; ++exponent) {
        for (const int64_t distance : {-1, 0, 1}) {
          const uint64_t x = (uint64_t{1} << exponent) + static_cast<uint64_t>(distance);
          if (x >= kTwoTo52) continue;
          const double y = static_cast<double>(x) * ratio + addition;  // exact, there are at most 53 digits
          ASSERT_EQ(Decode(scale, x), y) << x;
          ASSERT_EQ(Encode(scale, y), x) << x;
        }
      }
    }
  }
}

}  // namespace
}  // namespace payload_positions_test
