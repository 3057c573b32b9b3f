// Packets as bytes: requests are packed, responses are unpacked. Results are compared with values worked out by hand
// and with the model, which also checks that nothing else is written. Flags and values are heap blocks of their exact
// size, so that the sanitizers see every access outside of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Guarded.h"
#include "Properties.h"
#include "TestSupport.h"

namespace {

using Bytes = std::vector<byte>;
using Package = MorvixProtocolPackage_4_0;
using support::CheckUnpack;

constexpr byte kGuard = support::Guarded::kGuard;
constexpr size_t kMaxFlags = 1024;
constexpr size_t kMaxValue = 16384;
constexpr int32_t kSubDid = 0x01020304;

MorvixProtocolCommand_4_0 Command(uint32_t number) { return static_cast<MorvixProtocolCommand_4_0>(number); }

bool CommandIsOneOf(uint32_t number, const std::vector<uint32_t>& commands) {
  return std::find(commands.begin(), commands.end(), number) != commands.end();
}

bool IsWrite(uint32_t number) { return CommandIsOneOf(number, {1, 7}); }
bool NeedsSubDid(uint32_t number) { return CommandIsOneOf(number, {8, 12}); }
bool IsBare(uint32_t number) { return CommandIsOneOf(number, {2, 11, 13}); }

// The one field that travels in host byte order.
Bytes HostOrder(int32_t number) {
  Bytes bytes(sizeof number);
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

Bytes Concat(const std::vector<Bytes>& parts) {
  Bytes whole;
  for (const Bytes& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

Bytes Counting(size_t size, size_t first) {
  Bytes bytes;
  for (size_t i = 0; i < size; ++i) bytes.push_back(static_cast<byte>(first + 7 * i));
  return bytes;
}

// A package that owns flags and value in blocks of their exact size.
class Request {
 public:
  Request(uint32_t command, const Bytes& flags, const Bytes& value)
      : flags_(support::Exact(flags)), value_(support::Exact(value)) {
    package_.cmd = Command(command);
    package_.flags = flags_.get();
    package_.sizeFlags = flags.size();
    package_.value = value_.get();
    package_.sizeValue = value.size();
  }
  Request& WithSubDid(int32_t subDid, byte needInsertSubDid = 1) {
    package_.subDid = subDid;
    package_.needInsertSubDid = needInsertSubDid;
    return *this;
  }
  Package& package() { return package_; }

 private:
  std::unique_ptr<byte[]> flags_, value_;
  Package package_;
};

void ExpectPacked(const Package& package, size_t bufLen, const Bytes& expected) {
  LogLines lines;
  ASSERT_EQ(support::CheckPack(package, bufLen, &lines), expected.size());
  EXPECT_EQ(lines, LogLines());
  Bytes buffer(std::max(bufLen + 4, expected.size()), kGuard);
  buffer.resize(ProtocolPackPackage_4_0(package, buffer.data(), bufLen));
  EXPECT_TRUE(buffer == expected) << "packed " << ToHex(buffer.data(), std::min<size_t>(buffer.size(), 64));
}

// Nothing packed and, but for the command byte of a sub-device request, nothing written.
void ExpectRefused(const Package& package, size_t bufLen, const LogLines& expected = {}) {
  LogLines lines;
  EXPECT_EQ(support::CheckPack(package, bufLen, &lines), 0u);
  EXPECT_EQ(lines, expected);
}

LogLines InvalidCommand(const std::string& number) {
  return {{1, "ProtocolPackPackage_4_0", "Invalid command " + number}};
}

TEST(PackPackage, PacksTheRequestsAndLogsEveryOtherCommand) {
  const Bytes flags = {0xAA};
  const Bytes value = {0x55, 0x66};
  for (uint32_t number = 0; number <= 300; ++number) {
    SCOPED_TRACE(number);
    Request request(number, flags, value);
    request.WithSubDid(kSubDid);
    const Bytes command = {static_cast<byte>(number)};
    if (IsWrite(number)) {
      ExpectPacked(request.package(), 100, Concat({command, HostOrder(kSubDid), flags, value}));
    } else if (NeedsSubDid(number)) {
      ExpectPacked(request.package(), 100, Concat({command, HostOrder(kSubDid)}));
    } else if (IsBare(number)) {
      ExpectPacked(request.package(), 100, command);
    } else {
      ExpectRefused(request.package(), 100, InvalidCommand(std::to_string(number)));
    }
  }
}

TEST(PackPackage, ComparesTheCommandUnsignedAndPrintsItSigned) {
  for (const auto& [number, text] :
       std::vector<std::pair<uint32_t, std::string>>{{257, "257"},  // a 1 in the low byte does not make a write request
                                                     {0x7FFFFFFF, "2147483647"},
                                                     {0x80000000, "-2147483648"},
                                                     {0x80000001, "-2147483647"},
                                                     {0x80000002, "-2147483646"},
                                                     {0xFFFFFF07, "-249"},
                                                     {0xFFFFFFFF, "-1"}}) {
    Request request(number, {0xAA}, {0x55});
    ExpectRefused(request.package(), 100, InvalidCommand(text));
  }
}

TEST(PackPackage, PacksAReadRequestIntoASingleByte) {
  ExpectPacked(Request(2, {}, {}).package(), 1, FromHex("02"));
  ExpectRefused(Request(2, {}, {}).package(), 0);
}

TEST(PackPackage, PacksAWriteAsCommandFlagsAndValue) {
  ExpectPacked(Request(1, {0xAA}, {0x55}).package(), 3, FromHex("01 aa 55"));
  ExpectPacked(Request(7, FromHex("01 02"), FromHex("03 04 05")).package(), 6, FromHex("07 01 02 03 04 05"));
}

TEST(PackPackage, StoresTheSubDeviceIdInHostByteOrder) {
  const auto host = [](const char* littleEndian, const char* bigEndian) {
    return FromHex(HostOrder(1).front() == 1 ? littleEndian : bigEndian);
  };
  ExpectPacked(Request(1, {0xAA}, {0x55}).WithSubDid(kSubDid).package(), 3,
               host("01 04 03 02 01 aa 55", "01 01 02 03 04 aa 55"));
  ExpectPacked(Request(7, {0xAA}, {0x55}).WithSubDid(-2).package(), 3,
               host("07 fe ff ff ff aa 55", "07 ff ff ff fe aa 55"));
  ExpectPacked(Request(8, {}, {}).WithSubDid(kSubDid).package(), 1, host("08 04 03 02 01", "08 01 02 03 04"));
  ExpectPacked(Request(12, {}, {}).WithSubDid(-2147483647 - 1).package(), 1, host("0c 00 00 00 80", "0c 80 00 00 00"));
}

TEST(PackPackage, SendsTheSubDeviceIdForEveryNonZeroRequest) {
  for (int need = 0; need <= 255; ++need) {
    SCOPED_TRACE(need);
    const Bytes id = need == 0 ? Bytes() : HostOrder(kSubDid);
    const auto flag = static_cast<byte>(need);
    ExpectPacked(Request(1, {0xAA}, {0x55}).WithSubDid(kSubDid, flag).package(), 10, Concat({{1}, id, {0xAA, 0x55}}));
    // The others have no place for it.
    ExpectPacked(Request(13, {0xAA}, {0x55}).WithSubDid(kSubDid, flag).package(), 10, {13});
  }
}

TEST(PackPackage, RefusesSubDeviceRequestsWithoutTheIdAfterTheCommandByte) {
  for (const uint32_t number : {8u, 12u}) {
    for (size_t bufLen = 1; bufLen <= 8; ++bufLen) {
      ExpectRefused(Request(number, {}, {}).WithSubDid(kSubDid, 0).package(), bufLen);
    }
    ExpectRefused(Request(number, {}, {}).WithSubDid(kSubDid, 0).package(), 0);
  }
}

TEST(PackPackage, CarriesNoFlagsAndValueInOtherRequests) {
  for (const uint32_t number : {2u, 8u, 11u, 12u, 13u}) {
    SCOPED_TRACE(number);
    Request request(number, Bytes(kMaxFlags, 0x11), Bytes(kMaxValue, 0x22));
    request.WithSubDid(kSubDid);
    const Bytes command = {static_cast<byte>(number)};
    ExpectPacked(request.package(), 1, NeedsSubDid(number) ? Concat({command, HostOrder(kSubDid)}) : command);
  }
}

TEST(PackPackage, TestsTheCapacityBeforeItCountsTheIdBytes) {
  for (const uint32_t number : {1u, 2u, 7u, 8u, 11u, 12u, 13u}) {
    for (size_t sizeFlags = 0; sizeFlags <= 3; ++sizeFlags) {
      for (size_t sizeValue = 2; sizeValue <= 5; ++sizeValue) {
        for (const bool withId : {false, true}) {
          if (NeedsSubDid(number) && !withId) continue;
          SCOPED_TRACE(testing::Message() << number << ": " << sizeFlags << " + " << sizeValue << ", id " << withId);
          const Bytes flags = Counting(sizeFlags, 0x10);
          const Bytes value = Counting(sizeValue, 0x80);
          Request request(number, flags, value);
          request.WithSubDid(kSubDid, withId ? 1 : 0);
          const Bytes command = {static_cast<byte>(number)};
          const Bytes id = withId && !IsBare(number) ? HostOrder(kSubDid) : Bytes();
          const Bytes packet = IsWrite(number) ? Concat({command, id, flags, value}) : Concat({command, id});
          const size_t required = packet.size() - id.size();
          for (size_t bufLen = 0; bufLen <= packet.size() + 2; ++bufLen) {
            if (bufLen < required) {
              ExpectRefused(request.package(), bufLen);
            } else {
              ExpectPacked(request.package(), bufLen, packet);
            }
          }
        }
      }
    }
  }
}

TEST(PackPackage, NeedsNoByteMoreThanThePacketHas) {
  // Exact heap blocks: without an id of bufLen bytes, with one of bufLen + 4.
  for (const bool withId : {false, true}) {
    for (size_t sizeValue = 2; sizeValue <= 64; ++sizeValue) {
      const Bytes value = Counting(sizeValue, 3);
      Request request(1, {0xAA}, value);
      request.WithSubDid(kSubDid, withId ? 1 : 0);
      const size_t bufLen = 2 + sizeValue;
      const size_t total = bufLen + (withId ? 4 : 0);
      const std::unique_ptr<byte[]> buffer(new byte[total]);
      ASSERT_EQ(ProtocolPackPackage_4_0(request.package(), buffer.get(), bufLen), total);
      EXPECT_EQ(Bytes(buffer.get() + total - sizeValue, buffer.get() + total), value);
    }
  }
}

TEST(PackPackage, WantsTwoBytesOfFlagsAndValueInAWrite) {
  for (const uint32_t number : {1u, 7u}) {
    for (const bool withId : {false, true}) {
      for (size_t sizeFlags = 0; sizeFlags <= 2; ++sizeFlags) {
        for (size_t sizeValue = 0; sizeValue <= 2; ++sizeValue) {
          SCOPED_TRACE(testing::Message() << number << ": " << sizeFlags << " + " << sizeValue << ", id " << withId);
          const Bytes flags = Counting(sizeFlags, 0x10);
          const Bytes value = Counting(sizeValue, 0x80);
          Request request(number, flags, value);
          request.WithSubDid(kSubDid, withId ? 1 : 0);
          if (sizeFlags + sizeValue < 2) {
            ExpectRefused(request.package(), 100);
          } else {
            const Bytes id = withId ? HostOrder(kSubDid) : Bytes();
            ExpectPacked(request.package(), 100, Concat({{static_cast<byte>(number)}, id, flags, value}));
          }
        }
      }
    }
  }
}

TEST(PackPackage, TakesFlagsUpTo1024BytesAndAValueUpTo16384) {
  for (const bool withId : {false, true}) {
    const Bytes flags = Counting(kMaxFlags, 1);
    const Bytes value = Counting(kMaxValue, 2);
    Request request(1, flags, value);
    request.WithSubDid(kSubDid, withId ? 1 : 0);
    const Bytes packet = Concat({{1}, withId ? HostOrder(kSubDid) : Bytes(), flags, value});
    EXPECT_EQ(packet.size(), withId ? 17413u : 17409u);
    ExpectPacked(request.package(), 17409, packet);
    ExpectRefused(request.package(), 17408);
  }
}

TEST(PackPackage, RefusesOversizeBeforeItLooksAtTheCommand) {
  constexpr size_t kHuge = std::numeric_limits<size_t>::max();
  for (uint32_t number = 0; number <= 17; ++number) {
    SCOPED_TRACE(number);
    Request request(number, {0xAA}, {0x55});
    request.WithSubDid(kSubDid);
    for (const size_t sizeFlags : {kMaxFlags + 1, size_t{2000}, kHuge - 1, kHuge}) {
      Package package = request.package();
      package.sizeFlags = sizeFlags;
      ExpectRefused(package, 100);
    }
    for (const size_t sizeValue : {kMaxValue + 1, size_t{20000}, kHuge - 1, kHuge}) {
      Package package = request.package();
      package.sizeValue = sizeValue;
      ExpectRefused(package, 100);
    }
  }
}

TEST(PackPackage, RefusesANullBufferSilently) {
  const LogCapture log;
  for (const uint32_t number : {0u, 1u, 2u, 7u, 8u, 12u, 13u, 14u, 256u}) {
    EXPECT_EQ(ProtocolPackPackage_4_0(Request(number, {0xAA}, {0x55}).WithSubDid(1).package(), nullptr, 100), 0u);
  }
  EXPECT_EQ(log.Lines(), LogLines());
}

TEST(PackPackage, LogsAnInvalidCommandBeforeItLooksAtTheCapacity) {
  ExpectRefused(Request(3, {0xAA}, {0x55}).package(), 0, InvalidCommand("3"));
  ExpectRefused(Request(14, {0xAA}, {0x55}).package(), 0, InvalidCommand("14"));
  ExpectRefused(Request(4, {}, {}).package(), 100, InvalidCommand("4"));
}

TEST(PackPackage, CountsMissingFlagsAndPutsTheValueInTheirPlace) {
  for (const bool withId : {false, true}) {
    Request request(1, {0x11, 0x22, 0x33}, {0x55, 0x66});
    request.WithSubDid(kSubDid, withId ? 1 : 0).package().flags = nullptr;
    const Bytes id = withId ? HostOrder(kSubDid) : Bytes();
    // The last three bytes of the packet are what the buffer held.
    ExpectPacked(request.package(), 6, Concat({{1}, id, {0x55, 0x66}, Bytes(3, kGuard)}));
    ExpectRefused(request.package(), 5);
  }
}

TEST(PackPackage, CountsAMissingValueAndCopiesNothingForIt) {
  for (const bool withId : {false, true}) {
    Request request(7, {0x11, 0x22, 0x33}, {0x55, 0x66});
    request.WithSubDid(kSubDid, withId ? 1 : 0).package().value = nullptr;
    const Bytes id = withId ? HostOrder(kSubDid) : Bytes();
    ExpectPacked(request.package(), 6, Concat({{7}, id, {0x11, 0x22, 0x33}, Bytes(2, kGuard)}));
    request.package().flags = nullptr;
    ExpectPacked(request.package(), 6, Concat({{7}, id, Bytes(5, kGuard)}));
    ExpectRefused(request.package(), 5);
  }
}

TEST(PackPackage, OnlyReadsThePackage) {
  const Bytes flags = Counting(5, 0x30);
  const Bytes value = Counting(9, 0x40);
  Request request(1, flags, value);
  const Package& package = request.WithSubDid(kSubDid).package();
  Bytes buffer(19);
  ASSERT_EQ(ProtocolPackPackage_4_0(package, buffer.data(), 15), 19u);
  EXPECT_EQ(Bytes(package.flags, package.flags + 5), flags);
  EXPECT_EQ(Bytes(package.value, package.value + 9), value);
}

// Fails with the command in the package and, when the value is too long, its length.
void ExpectNotUnpacked(const Bytes& packet, size_t sizeValue) {
  const model::Unpacked unpacked = CheckUnpack(packet);
  EXPECT_FALSE(unpacked.isAccepted);
  EXPECT_TRUE(unpacked.isCleared);
  EXPECT_EQ(unpacked.sizeValue, sizeValue);
}

TEST(UnpackPackage, TakesTheWholeRestOfAResponseAsTheValue) {
  const Bytes packet = FromHex("04 12 34");
  MorvixProtocolOwnedPackage_4_0 package;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package));
  EXPECT_EQ(package.cmd, MorvixProtocolCommandNotifyResp_4_0);
  ASSERT_EQ(package.sizeValue, 2u);
  EXPECT_EQ(ToHex(package.value, 2), "12 34");
  EXPECT_EQ(package.flags, nullptr);
  EXPECT_EQ(package.sizeFlags, 0u);
}

TEST(UnpackPackage, AcceptsReadResponsesAndNotificationsOnly) {
  for (int number = 0; number <= 255; ++number) {
    EXPECT_EQ(CheckUnpack({static_cast<byte>(number), 0x12, 0x34}).isAccepted, number == 3 || number == 4) << number;
  }
}

TEST(UnpackPackage, LeavesThePackageAloneWithoutTwoBytesOfData) {
  for (int number = 0; number <= 255; ++number) {
    const model::Unpacked unpacked = CheckUnpack({static_cast<byte>(number)});
    EXPECT_FALSE(unpacked.isAccepted || unpacked.isCleared);
  }
  EXPECT_FALSE(CheckUnpack({}).isCleared);
  Package package;
  package.subDid = kSubDid;
  for (const size_t dataLen : {size_t{0}, size_t{1}, size_t{2}, size_t{100}, size_t{20000}}) {
    EXPECT_FALSE(ProtocolUnpackPackage_4_0(nullptr, dataLen, package)) << dataLen;
    EXPECT_EQ(package.subDid, kSubDid);
  }
}

TEST(UnpackPackage, TakesValuesOfOneTo16384Bytes) {
  const auto expectForLength = [](size_t dataLen) {
    for (const byte number : {byte{3}, byte{4}}) {
      Bytes packet = Counting(dataLen, 0x21);
      packet[0] = number;
      const model::Unpacked unpacked = CheckUnpack(packet);
      EXPECT_EQ(unpacked.isAccepted, dataLen - 1 <= kMaxValue) << dataLen;
      EXPECT_EQ(unpacked.sizeValue, dataLen - 1);
    }
  };
  for (size_t dataLen = 2; dataLen <= 130; ++dataLen) expectForLength(dataLen);
  for (size_t dataLen = 16370; dataLen <= 16400; ++dataLen) expectForLength(dataLen);
  for (const size_t dataLen : {size_t{1024}, size_t{1025}, size_t{17409}, size_t{65536}, size_t{100000}}) {
    expectForLength(dataLen);
  }
}

TEST(UnpackPackage, LooksAtTheCommandBeforeTheLength) {
  Bytes packet(20000, 0x77);
  packet[0] = 2;
  ExpectNotUnpacked(packet, 0);
}

TEST(UnpackPackage, CopiesTheValueIntoABlockOfTheCallers) {
  Bytes packet = FromHex("03 01 02 03");
  MorvixProtocolOwnedPackage_4_0 first;
  MorvixProtocolOwnedPackage_4_0 second;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet.data(), packet.size(), first));
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet.data(), packet.size(), second));
  std::fill(packet.begin(), packet.end(), byte{0xEE});
  EXPECT_NE(first.value, second.value);
  EXPECT_EQ(ToHex(first.value, first.sizeValue), "01 02 03");
  EXPECT_EQ(ToHex(second.value, second.sizeValue), "01 02 03");
}

TEST(UnpackPackage, ReadsNoSubDeviceIdAndNoFlags) {
  // As long as a packed write of a sub-device, and still payload from the first byte on.
  EXPECT_EQ(CheckUnpack(FromHex("03 04 03 02 01 aa 55")).sizeValue, 6u);
}

TEST(UnpackPackage, MayUnpackThePackagesOwnValue) {
  byte* const packet = static_cast<byte*>(std::malloc(3));
  ASSERT_NE(packet, nullptr);
  std::memcpy(packet, FromHex("03 0a 0b").data(), 3);
  MorvixProtocolOwnedPackage_4_0 package;
  package.value = packet;
  package.sizeValue = 3;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(package.value, package.sizeValue, package));
  EXPECT_EQ(ToHex(package.value, package.sizeValue), "0a 0b");
  std::free(packet);
}

TEST(PackPackage, AndUnpackPackageKeepToTheirOwnDirection) {
  for (const uint32_t number : {1u, 2u, 7u, 8u, 11u, 12u, 13u}) {
    Bytes buffer(104);
    ASSERT_GT(
        ProtocolPackPackage_4_0(Request(number, {0xAA}, {0x55}).WithSubDid(kSubDid).package(), buffer.data(), 100), 0u);
    ExpectNotUnpacked(buffer, 0);
  }
  MorvixProtocolOwnedPackage_4_0 response;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(FromHex("03 12 34").data(), 3, response));
  ExpectRefused(response, 100, InvalidCommand("3"));
}

}  // namespace
