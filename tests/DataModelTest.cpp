// The records and enumerations: their numbers, which firmware and stored documents rely on, their types, what a fresh
// record holds, and that copies are independent.

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"

namespace {

// A fresh record made where every bit was set before, so that a member without an initial value shows.
template <typename Record>
class FreshRecord {
 public:
  FreshRecord() {
    std::memset(storage_, 0xff, sizeof storage_);
    record_ = new (storage_) Record;
  }
  ~FreshRecord() { record_->~Record(); }
  FreshRecord(const FreshRecord&) = delete;
  FreshRecord& operator=(const FreshRecord&) = delete;

  const Record& operator*() const { return *record_; }

 private:
  alignas(Record) unsigned char storage_[sizeof(Record)];
  Record* record_ = nullptr;
};

template <typename Record>
constexpr bool kIsPlainData =
    std::is_aggregate_v<Record>&& std::is_standard_layout_v<Record>&& std::is_default_constructible_v<Record>&&
        std::is_copy_constructible_v<Record>&& std::is_copy_assignable_v<Record> &&
    !std::is_polymorphic_v<Record>;

template <typename Enumeration, typename Underlying>
constexpr bool kIsStoredAs =
    std::is_enum_v<Enumeration>&& std::is_same_v<std::underlying_type_t<Enumeration>, Underlying> &&
    sizeof(Enumeration) == 4;

template <typename Type, typename Expected>
constexpr bool kIs = std::is_same_v<Type, Expected>;

template <typename Record, typename Member>
Member TypeOf(Member Record::*);

// The types of some members of a record.
template <auto... kMembers>
using TypesOf = std::tuple<decltype(TypeOf(kMembers))...>;

// --- Scalars ---------------------------------------------------------------------------------------------------------

static_assert(std::is_unsigned_v<byte> && sizeof(byte) == 1 && std::numeric_limits<byte>::digits == 8);
static_assert(std::is_unsigned_v<dword> && sizeof(dword) == 4 && std::numeric_limits<dword>::digits == 32);
static_assert(kIs<byte, unsigned char> && kIs<dword, uint32_t>);

// --- Enumerations ----------------------------------------------------------------------------------------------------

static_assert(kIsStoredAs<MorvixProtocolDataType_4_0, uint32_t>);
static_assert(kIsStoredAs<MorvixProtocolCommand_4_0, uint32_t>);
static_assert(kIsStoredAs<MorvixProtocolType_4_0, uint32_t>);
static_assert(kIsStoredAs<MorvixProtocolUnit_4_0, int32_t>);

// Every type goes by two names; code that says "tag" and code that does not must mean the same type.
static_assert(kIs<tagMorvixProtocolDataType_4_0, MorvixProtocolDataType_4_0>);
static_assert(kIs<tagMorvixProtocolCommand_4_0, MorvixProtocolCommand_4_0>);
static_assert(kIs<tagMorvixProtocolType_4_0, MorvixProtocolType_4_0>);
static_assert(kIs<tagMorvixProtocolUnit_4_0, MorvixProtocolUnit_4_0>);
static_assert(kIs<tagMorvixProtocolPosition_4_0, MorvixProtocolPosition_4_0>);
static_assert(kIs<tagMorvixProtocolUIntSpec_4_0, MorvixProtocolUIntSpec_4_0>);
static_assert(kIs<tagMorvixProtocolAttribute_4_0, MorvixProtocolAttribute_4_0>);
static_assert(kIs<tagMorvixProtocolEntity_4_0, MorvixProtocolEntity_4_0>);
static_assert(kIs<tagMorvixProtocolPackage_4_0, MorvixProtocolPackage_4_0>);

TEST(DataType, HasItsNumbers) {
  EXPECT_EQ(MorvixProtocolDataTypeUnknown_4_0, 0u);
  EXPECT_EQ(MorvixProtocolDataTypeBool_4_0, 1u);
  EXPECT_EQ(MorvixProtocolDataTypeEnum_4_0, 2u);
  EXPECT_EQ(MorvixProtocolDataTypeBinary_4_0, 3u);
  EXPECT_EQ(MorvixProtocolDataTypeUInt8_4_0, 4u);
  EXPECT_EQ(MorvixProtocolDataTypeUInt16_4_0, 5u);
  EXPECT_EQ(MorvixProtocolDataTypeUInt32_4_0, 6u);
  EXPECT_EQ(MorvixProtocolDataTypeUInt64_4_0, 7u);
}

TEST(Command, HasItsNumbersAndGaps) {
  EXPECT_EQ(MorvixProtocolCommandWriteReq_4_0, 1u);
  EXPECT_EQ(MorvixProtocolCommandReadReq_4_0, 2u);
  EXPECT_EQ(MorvixProtocolCommandReadResp_4_0, 3u);
  EXPECT_EQ(MorvixProtocolCommandNotifyResp_4_0, 4u);
  EXPECT_EQ(MorvixProtocolCommandCCWriteReq_4_0, 7u);
  EXPECT_EQ(MorvixProtocolCommandCCReadReq_4_0, 8u);
  EXPECT_EQ(MorvixProtocolCommandCCNotifyResp_4_0, 10u);
  EXPECT_EQ(MorvixProtocolCommandCCAddSubDeviceReq_4_0, 11u);
  EXPECT_EQ(MorvixProtocolCommandCCDelSubDeviceReq_4_0, 12u);
  EXPECT_EQ(MorvixProtocolCommandCCGetSubDevicesReq_4_0, 13u);
  EXPECT_EQ(MorvixProtocolCommandCCGetSubDevicesResp_4_0, 14u);
  EXPECT_EQ(MorvixProtocolCommandCCNotifySubDevicesResp_4_0, 15u);
  EXPECT_EQ(MorvixProtocolCommandCCNotifySubDeviceOnlineResp_4_0, 16u);
}

TEST(Type, HasItsNumbers) {
  EXPECT_EQ(MorvixProtocolTypeUnknown_4_0, 0u);
  EXPECT_EQ(MorvixProtocolTypeStatusWritable_4_0, 1u);
  EXPECT_EQ(MorvixProtocolTypeStatusReadonly_4_0, 2u);
  EXPECT_EQ(MorvixProtocolTypeAlert_4_0, 4u);
  EXPECT_EQ(MorvixProtocolTypeFault_4_0, 8u);
}

TEST(Type, UnitesToSetsThatTellTheirMembers) {
  const uint32_t groups[] = {MorvixProtocolTypeStatusWritable_4_0, MorvixProtocolTypeStatusReadonly_4_0,
                             MorvixProtocolTypeAlert_4_0, MorvixProtocolTypeFault_4_0};
  for (uint32_t set = 0; set < 16; ++set) {
    uint32_t rebuilt = 0;
    for (const uint32_t group : groups) {
      if ((set & group) != 0) rebuilt |= group;
    }
    EXPECT_EQ(rebuilt, set);
  }
}

TEST(Unit, HasItsNumbers) {
  EXPECT_EQ(MorvixProtocolUnitUnknown_4_0, -1);
  EXPECT_EQ(MorvixProtocolUnitByte_4_0, 0);
  EXPECT_EQ(MorvixProtocolUnitBit_4_0, 1);
}

TEST(Command, HoldsEveryReceivedByte) {
  for (uint32_t number = 0; number <= 255; ++number) {
    MorvixProtocolPackage_4_0 package;
    package.cmd = static_cast<MorvixProtocolCommand_4_0>(number);
    EXPECT_EQ(package.cmd, number);
  }
}

// --- Records ---------------------------------------------------------------------------------------------------------

using Attribute = MorvixProtocolAttribute_4_0;
using Entity = MorvixProtocolEntity_4_0;
using Package = MorvixProtocolPackage_4_0;
using Position = MorvixProtocolPosition_4_0;
using Scaling = MorvixProtocolUIntSpec_4_0;

static_assert(kIsPlainData<Position> && kIsPlainData<Scaling> && kIsPlainData<Attribute> && kIsPlainData<Entity> &&
              kIsPlainData<Package> && kIsPlainData<TavelReceiveInfo>);
static_assert(kIs<TypesOf<&Position::byte_offset, &Position::bit_offset, &Position::unit, &Position::len,
                          &Position::groupByteLength>,
                  std::tuple<int32_t, int32_t, MorvixProtocolUnit_4_0, int32_t, size_t>>);
static_assert(kIs<TypesOf<&Scaling::min, &Scaling::max, &Scaling::step, &Scaling::ratio, &Scaling::addition>,
                  std::tuple<int64_t, int64_t, int32_t, double, double>>);
static_assert(kIs<TypesOf<&Attribute::id, &Attribute::name, &Attribute::display_name, &Attribute::desc,
                          &Attribute::type, &Attribute::data_type>,
                  std::tuple<int32_t, std::string, std::string, std::string, MorvixProtocolType_4_0,
                             MorvixProtocolDataType_4_0>>);
static_assert(kIs<TypesOf<&Attribute::position, &Attribute::uint_spec, &Attribute::enumList>,
                  std::tuple<Position, Scaling, std::vector<std::string>>>);
static_assert(
    kIs<TypesOf<&Entity::id, &Entity::name, &Entity::display_name>, std::tuple<int32_t, std::string, std::string>>);
static_assert(kIs<TypesOf<&Package::cmd, &Package::subDid, &Package::needInsertSubDid, &Package::flags,
                          &Package::sizeFlags, &Package::value, &Package::sizeValue>,
                  std::tuple<MorvixProtocolCommand_4_0, int32_t, byte, byte*, size_t, byte*, size_t>>);
static_assert(kIs<TypesOf<&TavelReceiveInfo::name, &TavelReceiveInfo::value>, std::tuple<std::string, int32_t>>);

TEST(Records, AreZeroAndEmptyAtFirst) {
  const Position position = {0, 0, MorvixProtocolUnitByte_4_0, 0, 0};
  const Scaling scaling = {0, 0, 0, 0, 0};
  EXPECT_EQ(*FreshRecord<Position>(), position);
  EXPECT_EQ(*FreshRecord<Scaling>(), scaling);
  EXPECT_EQ(
      *FreshRecord<Attribute>(),
      (Attribute{
          0, "", "", "", MorvixProtocolTypeUnknown_4_0, MorvixProtocolDataTypeUnknown_4_0, position, scaling, {}}));
  EXPECT_EQ(*FreshRecord<Entity>(), (Entity{0, "", ""}));
  EXPECT_EQ(*FreshRecord<TavelReceiveInfo>(), (TavelReceiveInfo{"", 0}));
  const FreshRecord<Package> fresh;
  const Package& package = *fresh;
  EXPECT_EQ(package.cmd, 0u);
  EXPECT_EQ(package.subDid, 0);
  EXPECT_EQ(package.needInsertSubDid, 0);
  EXPECT_EQ(package.flags, nullptr);
  EXPECT_EQ(package.sizeFlags, 0u);
  EXPECT_EQ(package.value, nullptr);
  EXPECT_EQ(package.sizeValue, 0u);
}

TEST(Records, AreCopiedDeeply) {
  const auto make = [] {
    return Attribute{1,
                     "a name that is too long for any small-string buffer",
                     "shown",
                     "described",
                     MorvixProtocolTypeAlert_4_0,
                     MorvixProtocolDataTypeEnum_4_0,
                     {1, 2, MorvixProtocolUnitBit_4_0, 3, 4},
                     {5, 6, 7, 8.5, 9.5},
                     {"low", "an item that is too long for any small-string buffer"}};
  };
  Attribute original = make();
  const Attribute constructed = original;
  Attribute assigned;
  assigned = original;
  original.name[0] = original.display_name[0] = original.desc[0] = original.enumList[1][0] = 'X';
  original.enumList.push_back("more");
  original.position.len = 99;
  original.uint_spec.max = 99;
  EXPECT_EQ(constructed, make());
  EXPECT_EQ(assigned, make());

  Entity entity{7, "main", "Main"};
  const Entity entityCopy = entity;
  entity.id = 8;
  entity.name[0] = entity.display_name[0] = 'X';
  EXPECT_EQ(entityCopy, (Entity{7, "main", "Main"}));

  TavelReceiveInfo info{"overheat", 3};
  const TavelReceiveInfo infoCopy = info;
  info.name[0] = 'X';
  info.value = 4;
  EXPECT_EQ(infoCopy, (TavelReceiveInfo{"overheat", 3}));
}

// A package only points to its buffers, so that passing one by value to the packer or the decoder copies no payload.
TEST(Package, SharesItsBuffersWithItsCopies) {
  byte flags[] = {0x80};
  byte value[] = {1, 2, 3};
  const MorvixProtocolPackage_4_0 original{MorvixProtocolCommandCCWriteReq_4_0, -5, 1, flags, 1, value, 3};
  const MorvixProtocolPackage_4_0 copy = original;
  EXPECT_EQ(copy.cmd, MorvixProtocolCommandCCWriteReq_4_0);
  EXPECT_EQ(copy.subDid, -5);
  EXPECT_EQ(copy.needInsertSubDid, 1);
  EXPECT_EQ(copy.flags, flags);
  EXPECT_EQ(copy.sizeFlags, 1u);
  EXPECT_EQ(copy.value, value);
  EXPECT_EQ(copy.sizeValue, 3u);
}

TEST(Package, HasNoFlagsWhenItWasReceived) {
  byte stale = 0;
  MorvixProtocolOwnedPackage_4_0 package;
  package.flags = &stale;
  package.sizeFlags = 1;
  const byte packet[] = {4, 0x12, 0x34};
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet, sizeof packet, package));
  EXPECT_EQ(package.flags, nullptr);
  EXPECT_EQ(package.sizeFlags, 0u);
  EXPECT_EQ(ToHex(package.value, package.sizeValue), "12 34");
}

// --- ProtocolDataTypeIsUInt ------------------------------------------------------------------------------------------

bool NumberIsUInt(uint32_t number) { return ProtocolDataTypeIsUInt(static_cast<MorvixProtocolDataType_4_0>(number)); }

TEST(DataTypeIsUInt, IsTrueOfTheUnsignedIntegersOnly) {
  EXPECT_FALSE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeUnknown_4_0));
  EXPECT_FALSE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeBool_4_0));
  EXPECT_FALSE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeEnum_4_0));
  EXPECT_FALSE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeBinary_4_0));
  EXPECT_TRUE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeUInt8_4_0));
  EXPECT_TRUE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeUInt16_4_0));
  EXPECT_TRUE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeUInt32_4_0));
  EXPECT_TRUE(ProtocolDataTypeIsUInt(MorvixProtocolDataTypeUInt64_4_0));
}

TEST(DataTypeIsUInt, IsFalseOfAllSmallNumbersOutsideTheEnumeration) {
  for (uint32_t number = 8; number <= 0x10000; ++number) ASSERT_FALSE(NumberIsUInt(number)) << number;
}

// Any one bit above the low three must count, the sign bit of a 32-bit number included.
TEST(DataTypeIsUInt, LooksAtAll32Bits) {
  for (unsigned bit = 3; bit < 32; ++bit) {
    for (uint32_t low = 0; low < 8; ++low) {
      EXPECT_FALSE(NumberIsUInt((uint32_t{1} << bit) | low)) << bit << " " << low;
      EXPECT_FALSE(NumberIsUInt((0xffffffffu << bit) | low)) << bit << " " << low;
    }
  }
}

TEST(DataTypeIsUInt, IsFalseAtTheEdgesOf32Bits) {
  for (const uint32_t number : {0x7fffffffu, 0x7ffffffcu, 0x80000000u, 0x80000003u, 0x80000004u, 0x80000007u,
                                0xfffffffbu, 0xfffffffcu, 0xfffffffdu, 0xfffffffeu, 0xffffffffu}) {
    EXPECT_FALSE(NumberIsUInt(number)) << number;
  }
}

}  // namespace
