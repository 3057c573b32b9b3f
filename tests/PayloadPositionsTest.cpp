// Where a field lies in a payload, and how its bits are numbered, read and stored: worked examples, every small field,
// and random ones, the last two against the model.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Cases.h"
#include "Guarded.h"
#include "Maker.h"
#include "TestSupport.h"

namespace payload_positions_test {
namespace {

using support::BitsAt;
using support::BytesAt;
using support::ExpectEqual;
using support::ForEachCase;
using support::Guarded;
using support::Inputs;
using support::Sightings;
using support::Source;
using Bytes = std::vector<byte>;
using Position = MorvixProtocolPosition_4_0;

constexpr uint64_t kAllOnes = ~uint64_t{0};
constexpr size_t kHugeSize = std::numeric_limits<size_t>::max();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr uint64_t kMark = 0x0123456789abcdef;

// --- Places ---

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

std::string Show(const Place& place) {
  return "start " + std::to_string(place.start) + ", " + std::to_string(place.byteLength) + " bytes";
}

std::ostream& operator<<(std::ostream& stream, const Place& place) { return stream << Show(place); }

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

Place PlaceOf(const model::Field& field) {
  return {field.IsFound() ? static_cast<ptrdiff_t>(field.firstByte) : kNowhere,
          field.isSized ? static_cast<size_t>(field.byteLength) : kUntouched};
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
  EXPECT_EQ(Locate(4, BitsAt(2, 5, 6, 2)), (Place{2, 2}));
  EXPECT_EQ(Locate(3, BitsAt(2, 5, 6, 2)), (Place{kNowhere, 2}));
}

TEST(OffsetPosition, FindsAByteFieldThatEndsAtThePayloadEndAndNoneThatGoesOn) {
  EXPECT_EQ(Locate(5, BytesAt(2, 3)), (Place{2, 3}));
  EXPECT_EQ(Locate(5, BytesAt(3, 3)), (Place{kNowhere, 3}));
  EXPECT_EQ(Locate(5, BytesAt(2, 4)), (Place{kNowhere, 4}));
  EXPECT_EQ(Locate(5, BytesAt(0, 5)), (Place{0, 5}));
  EXPECT_EQ(Locate(5, BytesAt(0, 6)), (Place{kNowhere, 6}));
  EXPECT_EQ(Locate(5, BytesAt(5, 1)), (Place{kNowhere, 1}));
  EXPECT_EQ(Locate(0, BytesAt(0, 1)), (Place{kNowhere, 1}));
}

TEST(OffsetPosition, GivesTheLengthOfAByteFieldAlsoWhenItFails) {
  EXPECT_EQ(Locate(4, BytesAt(0, 0)), (Place{kNowhere, 0}));
  EXPECT_EQ(Locate(4, BytesAt(0, -1)), (Place{kNowhere, kHugeSize}));
  EXPECT_EQ(Locate(4, BytesAt(1, -1)), (Place{kNowhere, kHugeSize}));
  EXPECT_EQ(Locate(4, BytesAt(-1, 1)), (Place{kNowhere, 1}));
  EXPECT_EQ(Locate(4, BytesAt(-1, 2)), (Place{kNowhere, 2}));
  EXPECT_EQ(Locate(4, BytesAt(kMinInt, kMaxInt)), (Place{kNowhere, static_cast<size_t>(kMaxInt)}));
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

TEST(OffsetPosition, WantsTheBitOffsetInsideTheGroup) {
  EXPECT_EQ(Locate(8, BitsAt(0, 63, 1, 8)).start, 0);
  EXPECT_EQ(Locate(8, BitsAt(0, 64, 1, 8)).start, kNowhere);
  EXPECT_EQ(Locate(8, BitsAt(0, kMaxInt, 1, 8)).start, kNowhere);
  EXPECT_EQ(Locate(8, BitsAt(4, 0, 1, 0)).start, kNowhere);
}

TEST(OffsetPosition, LetsABitOffsetOfMinusOnePassTheGroupTest) {
  // -1 + 1 is not above any group size. The bit after the group is the first one of the byte after it.
  EXPECT_EQ(Locate(2, BitsAt(0, -1, 1, 1)), (Place{1, 1}));
  EXPECT_EQ(Locate(1, BitsAt(0, -1, 1, 1)), (Place{kNowhere, 1}));
  EXPECT_EQ(Locate(1, BitsAt(0, -1, 1, 0)), (Place{0, 1}));
  EXPECT_EQ(Locate(2, BitsAt(0, -1, 2, 1)), (Place{0, 2}));
  for (const int32_t bitOffset : {-2, -7, -8, -9, kMinInt}) {
    EXPECT_EQ(Locate(8, BitsAt(0, bitOffset, 1, 2)).start, kNowhere) << bitOffset;
  }
}

TEST(OffsetPosition, FollowsTheWrappedArithmeticForBitLengthsOfZeroAndBelow) {
  EXPECT_EQ(Locate(2, BitsAt(0, 0, 0, 1)), (Place{kNowhere, 0}));
  EXPECT_EQ(Locate(2, BitsAt(0, 1, 0, 1)), (Place{0, 1}));   // start 7, end 7
  EXPECT_EQ(Locate(2, BitsAt(0, 2, -1, 1)), (Place{0, 1}));  // start 7, end 6
  // Start 8, end 7: (0 - 1) / 8 is 2 to the power 61, less 1.
  EXPECT_EQ(Locate(2, BitsAt(0, 1, -1, 1)), (Place{kNowhere, static_cast<size_t>(uint64_t{1} << 61)}));
}

TEST(OffsetPosition, FindsEverySmallBitFieldWhereTheModelDoes) {
  for (size_t dataLen = 0; dataLen <= 4; ++dataLen) {
    for (int32_t byteOffset = -2; byteOffset <= 4; ++byteOffset) {
      for (size_t group = 0; group <= 4; ++group) {
        for (int32_t bitOffset = -3; bitOffset <= 41; ++bitOffset) {
          for (int32_t len = -2; len <= 41; ++len) {
            const Position position = BitsAt(byteOffset, bitOffset, len, group);
            ASSERT_EQ(Locate(dataLen, position), PlaceOf(model::Locate(dataLen, position))) << dataLen << position;
          }
        }
      }
    }
  }
}

// Much address space without memory, so that positions can be huge and yet inside: beyond 4 GiB if the machine lets us.
class Region {
 public:
  Region() {
    for (const uint64_t size : {uint64_t{6} << 30, uint64_t{1} << 30, uint64_t{1} << 24}) {
      if (data_ != MAP_FAILED || size > SIZE_MAX) continue;
      size_ = static_cast<size_t>(size);
      data_ = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    }
  }
  ~Region() {
    if (data_ != MAP_FAILED) munmap(data_, size_);
  }
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;

  size_t Size() const { return size_; }
  byte* Data() const { return data_ == MAP_FAILED ? nullptr : static_cast<byte*>(data_); }

 private:
  void* data_ = MAP_FAILED;
  size_t size_ = 0;
};

TEST(OffsetPosition, AgreesWithTheModel) {
  static const char* const kPlaces[] = {"bytes found",
                                        "bytes start outside",
                                        "too many bytes",
                                        "no bytes",
                                        "bytes end outside",
                                        "bits found",
                                        "bits outside their group",
                                        "bits start outside",
                                        "bits span too many bytes",
                                        "bits span no bytes",
                                        "bits end outside",
                                        "unknown unit"};
  Sightings places({std::begin(kPlaces), std::end(kPlaces)});
  const Region region;
  ASSERT_NE(region.Data(), nullptr);
  ForEachCase(2026040602, 1000000, [&](Source& source) {
    size_t payloadBytes = source.Index(20);
    if (source.OneIn(4)) payloadBytes = static_cast<size_t>(source.Word() % region.Size());
    const Position position = support::Maker(source).MakePosition(payloadBytes);
    const Inputs inputs(payloadBytes, position);
    size_t byteLength = kUntouched;
    const byte* found = OffsetPosition(region.Data(), payloadBytes, position, byteLength);
    const model::Field field = model::Locate(payloadBytes, position);
    places.Add(kPlaces[static_cast<size_t>(field.place)]);
    const Place expected = PlaceOf(field);
    ExpectEqual(IndexOf(found, region.Data()), expected.start, "a field begins where the model has it");
    ExpectEqual(byteLength, expected.byteLength, "a field has the model's length");
  });
}

// --- Bits ---

// Reads a field's bits out of its bytes, against the model.
bool CheckRead(const Bytes& spanned, int32_t start, int32_t length, uint64_t before) {
  const Inputs inputs(spanned, start, length, before);
  uint64_t word = before;
  uint64_t expected = before;
  const bool isRead = model::ReadBits(spanned, start, length, expected);
  ExpectEqual(BitCopy(support::Exact(spanned).get(), start, length, spanned.size(), word), isRead,
              "bits are read where the model reads them");
  ExpectEqual(word, expected, "bits are read as the model reads them");
  return isRead;
}

// Writes a field's bits into its bytes, against the model.
bool CheckWrite(const Bytes& before, int32_t start, int32_t length, uint64_t word) {
  const Inputs inputs(before, start, length, word);
  Guarded spanned(before);
  Bytes expected = before;
  const bool isWritten = model::WriteBits(word, start, length, expected);
  ExpectEqual(BitCopy(word, start, length, before.size(), spanned.Data()), isWritten,
              "bits are written where the model writes them");
  ExpectEqual(spanned.Content(), expected, "bits are written as the model writes them");
  return isWritten;
}

TEST(BitCopyRead, ReadsTheWorkedExample) {
  const Bytes run = FromHex("05 60");
  uint64_t u = 0;
  ASSERT_TRUE(BitCopy(run.data(), 5, 6, run.size(), u));
  EXPECT_EQ(u, 0x0560u);
  uint64_t value = 0;
  ASSERT_TRUE(DecodeBit(u, 5, 6, value));
  EXPECT_EQ(value, 43u);
}

TEST(BitCopy, RefusesWhatDoesNotFitAWordAndLeavesTheOutputsAlone) {
  const struct {
    int32_t start;
    int32_t length;
    size_t byteLength;
  } cases[] = {{-1, 1, 1},        {-8, 1, 1}, {kMinInt, 1, 1}, {0, 0, 1},        {0, -1, 1},
               {0, kMinInt, 1},   {0, 65, 8}, {0, kMaxInt, 8}, {0, 1, 0},        {0, 1, 9},
               {0, 1, kHugeSize}, {1, 64, 8}, {7, 58, 8},      {kMaxInt, 58, 8}, {7, kMaxInt, 8}};
  for (const auto& one : cases) {
    SCOPED_TRACE(testing::Message() << one.start << ' ' << one.length << ' ' << one.byteLength);
    const Bytes run(16, 0xff);
    Guarded target(run);
    uint64_t u = kMark;
    EXPECT_FALSE(BitCopy(run.data(), one.start, one.length, one.byteLength, u));
    EXPECT_EQ(u, kMark);
    EXPECT_FALSE(BitCopy(u, one.start, one.length, one.byteLength, target.Data()));
    EXPECT_EQ(target.Content(), run);
  }
}

std::string Overwrite(const std::string& before, int32_t start, int32_t length, uint64_t value) {
  Guarded target(FromHex(before));
  EXPECT_TRUE(BitCopy(value << (start % 8), start, length, target.Size(), target.Data())) << before;
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

TEST(BitCopy, ReadsAndWritesEveryFieldLikeTheModel) {
  support::SeededSource source(2021041701);
  for (size_t size = 1; size <= 8; ++size) {
    for (int32_t start = 0; start < 20; ++start) {
      for (int32_t length = 1; length <= 64; ++length) {
        const Bytes run = source.Bytes(size);
        const uint64_t word = source.Next();
        const bool fits = start % 8 + length <= 64;
        ASSERT_EQ(CheckRead(run, start, length, word), fits);
        ASSERT_EQ(CheckWrite(run, start, length, word), fits);
      }
    }
  }
}

TEST(BitCopy, AgreesWithTheModel) {
  Sightings sights({"not read", "read", "not written", "whole bytes", "a part of one byte", "a part of several bytes"});
  ForEachCase(2026040603, 400000, [&](Source& source) {
    int32_t start = source.Int(0, 63);
    int32_t length = source.Int(1, 64 - start % 8);
    if (source.OneIn(6)) length = source.Int(1, 8) * 8;
    if (source.OneIn(6)) start = source.Int(0, 20) * 8;
    if (source.OneIn(10)) length = source.Int(-2, 70);
    if (source.OneIn(20)) start = source.AnyInt();
    if (source.OneIn(20)) length = source.AnyInt();
    // As many bytes as the field spans, or some other number.
    const int64_t bits = std::max<int64_t>(0, start % 8 + int64_t{length});
    const auto spanned = static_cast<size_t>(std::min<int64_t>((bits + 7) / 8, 10));
    const Bytes run = source.Bytes(source.OneIn(3) ? source.Index(11) : spanned);
    sights.Add(CheckRead(run, start, length, source.Word()) ? "read" : "not read");
    const bool isWhole = start % 8 == 0 && length % 8 == 0;
    sights.Add(!CheckWrite(run, start, length, source.Word()) ? "not written"
               : isWhole                                      ? "whole bytes"
               : run.size() == 1                              ? "a part of one byte"
                                                              : "a part of several bytes");
  });
}

TEST(FixIntegerInBitRange, KeepsTheFieldInPlaceAlsoOutsideItsDomain) {
  support::SeededSource source(2021041702);
  std::vector<int32_t> numbers = {kMinInt, -65, -64, -63, 128, kMaxInt};
  for (int32_t number = -2; number <= 66; ++number) numbers.push_back(number);
  for (const int32_t start : numbers) {
    for (const int32_t length : numbers) {
      for (const uint64_t before : {source.Next(), source.Word()}) {
        uint64_t u = before;
        FixIntegerInBitRange(u, start, length);
        ASSERT_EQ(u, model::KeepBits(before, start, length)) << before << ", start " << start << ", length " << length;
      }
    }
  }
}

TEST(ClearIntegerInBitRange, ClearsTheFieldOnlyAlsoOutsideItsDomain) {
  support::SeededSource source(2021041703);
  std::vector<size_t> numbers = {kHugeSize, kHugeSize - 6, size_t{1} << 31};
  for (size_t number = 0; number <= 70; ++number) numbers.push_back(number);
  for (const size_t start : numbers) {
    for (const size_t length : numbers) {
      for (const uint64_t before : {source.Next(), kAllOnes}) {
        uint64_t u = before;
        ClearIntegerInBitRange(u, start, length);
        ASSERT_EQ(u, model::DropBits(before, start, length)) << before << ", start " << start << ", length " << length;
      }
    }
  }
}

// A field that does not lie in a word is ignored in both directions; sums may wrap into the word.
TEST(EncodeBitAndDecodeBit, DoWithEveryFieldWhatTheModelDoes) {
  support::SeededSource source(2021041704);
  std::vector<size_t> numbers = {kHugeSize, kHugeSize - 6, size_t{1} << 31};
  for (size_t number = 0; number <= 67; ++number) numbers.push_back(number);
  for (const size_t shift : numbers) {
    for (const size_t length : numbers) {
      for (const uint64_t bits : {uint64_t{0}, kAllOnes, source.Next()}) {
        SCOPED_TRACE(testing::Message() << std::hex << bits << std::dec << ", shift " << shift << ", length "
                                        << length);
        const uint64_t before = source.Next();
        uint64_t value = before;
        uint64_t expected = before;
        const bool isField = model::PutField(bits, shift, length, expected);
        EncodeBit(bits, shift, length, value);
        ASSERT_EQ(value, expected);
        uint64_t back = kMark;
        uint64_t expectedBack = kMark;
        ASSERT_EQ(DecodeBit(value, shift, length, back), isField);
        ASSERT_EQ(model::GetField(value, shift, length, expectedBack), isField);
        ASSERT_EQ(back, expectedBack);
      }
    }
  }
}

// --- Big-endian integers ---

TEST(EncodeUInt, StoresTheLowBytesMostSignificantFirst) {
  Guarded target(3);
  EXPECT_TRUE(EncodeUInt(0x11223344, 3, target.Data(), 3));
  EXPECT_EQ(ToHex(target.Content()), "22 33 44");
}

TEST(DecodeUInt, ReadsTheLowBytesAndLeavesTheHigherOnes) {
  uint64_t u = 0xa1a2a3a4a5a6a7a8;
  EXPECT_TRUE(DecodeUInt(FromHex("11 22 33").data(), 3, 3, u));
  EXPECT_EQ(u, 0xa1a2a3a4a5112233u);
}

TEST(EncodeUIntAndDecodeUInt, DoWithEverySizeWhatTheModelDoes) {
  support::SeededSource source(2021041705);
  for (const size_t size : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 256u, 65536u}) {
    for (int round = 0; round < 100; ++round) {
      SCOPED_TRACE(size);
      const uint64_t word = source.Word();
      const Bytes before = source.Bytes(std::min<size_t>(size, 16));
      Guarded target(before);
      Bytes expected = before;
      const bool isDone = model::WriteBigEndian(word, size, expected);
      ASSERT_EQ(EncodeUInt(word, size, target.Data(), before.size()), isDone);
      ASSERT_EQ(target.Content(), expected);
      uint64_t read = word;
      uint64_t expectedRead = word;
      ASSERT_EQ(DecodeUInt(before.data(), before.size(), size, read), isDone);
      ASSERT_EQ(model::ReadBigEndian(before, size, expectedRead), isDone);
      ASSERT_EQ(read, expectedRead);
    }
  }
}

TEST(EncodeUIntAndDecodeUInt, LeaveThePayloadSizeToTheirCallers) {
  Guarded target(2);
  EXPECT_TRUE(EncodeUInt(0x1234, 2, target.Data(), 0));
  EXPECT_EQ(ToHex(target.Content()), "12 34");
  uint64_t u = 0;
  EXPECT_TRUE(DecodeUInt(target.Data(), 0, 2, u));
  EXPECT_EQ(u, 0x1234u);
}

}  // namespace
}  // namespace payload_positions_test
