// The records and enumerations: their numbers, which firmware and stored documents rely on, their types, what a fresh
// record holds, and that copies are independent.

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <new>
#include <string>
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
  const Record* operator->() const { return record_; }

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

template <typename Member, typename Expected>
constexpr bool kIs = std::is_same_v<Member, Expected>;

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

static_assert(kIsPlainData<MorvixProtocolPosition_4_0>);
static_assert(kIs<decltype(MorvixProtocolPosition_4_0::byte_offset), int32_t>);
static_assert(kIs<decltype(MorvixProtocolPosition_4_0::bit_offset), int32_t>);
static_assert(kIs<decltype(MorvixProtocolPosition_4_0::unit), MorvixProtocolUnit_4_0>);
static_assert(kIs<decltype(MorvixProtocolPosition_4_0::len), int32_t>);
static_assert(kIs<decltype(MorvixProtocolPosition_4_0::groupByteLength), size_t>);

static_assert(kIsPlainData<MorvixProtocolUIntSpec_4_0>);
static_assert(kIs<decltype(MorvixProtocolUIntSpec_4_0::min), int64_t>);
static_assert(kIs<decltype(MorvixProtocolUIntSpec_4_0::max), int64_t>);
static_assert(kIs<decltype(MorvixProtocolUIntSpec_4_0::step), int32_t>);
static_assert(kIs<decltype(MorvixProtocolUIntSpec_4_0::ratio), double>);
static_assert(kIs<decltype(MorvixProtocolUIntSpec_4_0::addition), double>);

static_assert(kIsPlainData<MorvixProtocolAttribute_4_0>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::id), int32_t>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::name), std::string>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::display_name), std::string>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::desc), std::string>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::type), MorvixProtocolType_4_0>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::data_type), MorvixProtocolDataType_4_0>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::position), MorvixProtocolPosition_4_0>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::uint_spec), MorvixProtocolUIntSpec_4_0>);
static_assert(kIs<decltype(MorvixProtocolAttribute_4_0::enumList), std::vector<std::string>>);

static_assert(kIsPlainData<MorvixProtocolEntity_4_0>);
static_assert(kIs<decltype(MorvixProtocolEntity_4_0::id), int32_t>);
static_assert(kIs<decltype(MorvixProtocolEntity_4_0::name), std::string>);
static_assert(kIs<decltype(MorvixProtocolEntity_4_0::display_name), std::string>);

static_assert(kIsPlainData<MorvixProtocolPackage_4_0>);
static_assert(kIs<decltype(MorvixProtocolPackage_4_0::cmd), MorvixProtocolCommand_4_0>);
static_assert(kIs<decltype(MorvixProtocolPackage_4_0::subDid), int32_t>);
static_assert(kIs<decltype(MorvixProtocolPackage_4_0::needInsertSubDid), byte>);
static_assert(kIs<decltype(MorvixProtocolPackage_4_0::flags), byte*>);
static_assert(kIs<decltype(MorvixProtocolPackage_4_0::sizeFlags), size_t>);
static_assert(kIs<decltype(MorvixProtocolPackage_4_0::value), byte*>);
static_assert(kIs<decltype(MorvixProtocolPackage_4_0::sizeValue), size_t>);

static_assert(kIsPlainData<TavelReceiveInfo>);
static_assert(kIs<decltype(TavelReceiveInfo::name), std::string>);
static_assert(kIs<decltype(TavelReceiveInfo::value), int32_t>);

void ExpectZero(const MorvixProtocolPosition_4_0& position) {
  EXPECT_EQ(position.byte_offset, 0);
  EXPECT_EQ(position.bit_offset, 0);
  EXPECT_EQ(position.unit, MorvixProtocolUnitByte_4_0);
  EXPECT_EQ(position.len, 0);
  EXPECT_EQ(position.groupByteLength, 0u);
}

void ExpectZero(const MorvixProtocolUIntSpec_4_0& scaling) {
  EXPECT_EQ(scaling.min, 0);
  EXPECT_EQ(scaling.max, 0);
  EXPECT_EQ(scaling.step, 0);
  EXPECT_EQ(scaling.ratio, 0.0);
  EXPECT_EQ(scaling.addition, 0.0);
}

TEST(Position, IsZeroAndInBytesAtFirst) { ExpectZero(*FreshRecord<MorvixProtocolPosition_4_0>()); }

TEST(UIntSpec, IsZeroAtFirst) { ExpectZero(*FreshRecord<MorvixProtocolUIntSpec_4_0>()); }

TEST(Attribute, IsZeroAndEmptyAtFirst) {
  const FreshRecord<MorvixProtocolAttribute_4_0> attribute;
  EXPECT_EQ(attribute->id, 0);
  EXPECT_EQ(attribute->name, "");
  EXPECT_EQ(attribute->display_name, "");
  EXPECT_EQ(attribute->desc, "");
  EXPECT_EQ(attribute->type, MorvixProtocolTypeUnknown_4_0);
  EXPECT_EQ(attribute->data_type, MorvixProtocolDataTypeUnknown_4_0);
  ExpectZero(attribute->position);
  ExpectZero(attribute->uint_spec);
  EXPECT_TRUE(attribute->enumList.empty());
}

TEST(Entity, IsZeroAndEmptyAtFirst) {
  const FreshRecord<MorvixProtocolEntity_4_0> entity;
  EXPECT_EQ(entity->id, 0);
  EXPECT_EQ(entity->name, "");
  EXPECT_EQ(entity->display_name, "");
}

TEST(Package, IsZeroAndHasNoBuffersAtFirst) {
  const FreshRecord<MorvixProtocolPackage_4_0> package;
  EXPECT_EQ(package->cmd, 0u);
  EXPECT_EQ(package->subDid, 0);
  EXPECT_EQ(package->needInsertSubDid, 0);
  EXPECT_EQ(package->flags, nullptr);
  EXPECT_EQ(package->sizeFlags, 0u);
  EXPECT_EQ(package->value, nullptr);
  EXPECT_EQ(package->sizeValue, 0u);
}

TEST(ReceiveInfo, IsZeroAndEmptyAtFirst) {
  const FreshRecord<TavelReceiveInfo> info;
  EXPECT_EQ(info->name, "");
  EXPECT_EQ(info->value, 0);
}

TEST(Attribute, IsCopiedDeeply) {
  MorvixProtocolAttribute_4_0 original;
  original.id = 1;
  original.name = "a name that is too long for any small-string buffer";
  original.display_name = "shown";
  original.desc = "described";
  original.type = MorvixProtocolTypeAlert_4_0;
  original.data_type = MorvixProtocolDataTypeEnum_4_0;
  original.position = {1, 2, MorvixProtocolUnitBit_4_0, 3, 4};
  original.uint_spec = {5, 6, 7, 8.5, 9.5};
  original.enumList = {"low", "an item that is too long for any small-string buffer"};

  const MorvixProtocolAttribute_4_0 constructed = original;
  MorvixProtocolAttribute_4_0 assigned;
  assigned = original;

  original.name[0] = 'X';
  original.display_name[0] = 'X';
  original.desc[0] = 'X';
  original.enumList[1][0] = 'X';
  original.enumList.push_back("more");
  original.position.len = 99;
  original.uint_spec.max = 99;

  for (const MorvixProtocolAttribute_4_0* copy : {&constructed, static_cast<const decltype(original)*>(&assigned)}) {
    EXPECT_EQ(copy->id, 1);
    EXPECT_EQ(copy->name, "a name that is too long for any small-string buffer");
    EXPECT_EQ(copy->display_name, "shown");
    EXPECT_EQ(copy->desc, "described");
    EXPECT_EQ(copy->type, MorvixProtocolTypeAlert_4_0);
    EXPECT_EQ(copy->data_type, MorvixProtocolDataTypeEnum_4_0);
    EXPECT_EQ(copy->position.byte_offset, 1);
    EXPECT_EQ(copy->position.bit_offset, 2);
    EXPECT_EQ(copy->position.unit, MorvixProtocolUnitBit_4_0);
    EXPECT_EQ(copy->position.len, 3);
    EXPECT_EQ(copy->position.groupByteLength, 4u);
    EXPECT_EQ(copy->uint_spec.min, 5);
    EXPECT_EQ(copy->uint_spec.max, 6);
    EXPECT_EQ(copy->uint_spec.step, 7);
    EXPECT_EQ(copy->uint_spec.ratio, 8.5);
    EXPECT_EQ(copy->uint_spec.addition, 9.5);
    EXPECT_EQ(copy->enumList,
              (std::vector<std::string>{"low", "an item that is too long for any small-string buffer"}));
  }
}

TEST(Entity, IsCopiedDeeply) {
  MorvixProtocolEntity_4_0 original{7, "main", "Main"};
  const MorvixProtocolEntity_4_0 copy = original;
  original.id = 8;
  original.name[0] = 'X';
  original.display_name[0] = 'X';
  EXPECT_EQ(copy.id, 7);
  EXPECT_EQ(copy.name, "main");
  EXPECT_EQ(copy.display_name, "Main");
}

TEST(ReceiveInfo, IsCopiedDeeply) {
  TavelReceiveInfo original{"overheat", 3};
  const TavelReceiveInfo copy = original;
  original.name[0] = 'X';
  original.value = 4;
  EXPECT_EQ(copy.name, "overheat");
  EXPECT_EQ(copy.value, 3);
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
