// Calls of malloc and calloc from the module and from here go through the wrappers below, which refuse on demand.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "TestSupport.h"

namespace {

// How many more calls succeed; negative: all.
int allowedCalls = -1;

bool IsRefused() {
  if (allowedCalls < 0) return false;
  if (allowedCalls == 0) return true;
  --allowedCalls;
  return false;
}

// Lets the next `count` allocations succeed and all later ones of its lifetime fail.
struct AllowAllocations {
  explicit AllowAllocations(int count) { allowedCalls = count; }
  ~AllowAllocations() { allowedCalls = -1; }
};

const char kConfiguration[] = R"({
  "id": 0, "name": "main", "display_name": "Main",
  "attrs": [{"id": 0, "name": "level", "display_name": "Level", "desc": "", "type": "status_writable",
             "data_type": "uint8", "uint_spec": {"min": 0, "max": 255, "ratio": 1, "addition": 0},
             "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1}}]})";

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __wrap_malloc(size_t size) { return IsRefused() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) { return IsRefused() ? nullptr : __real_calloc(count, size); }
}

TEST(EncodeEntity, LeavesThePackageAloneWhenABufferCannotBeAllocated) {
  const Json::Value entity = ParseJson(kConfiguration);
  const Json::Value values = ParseJson(R"({"main": {"level": 7}})");
  byte flags = 0xAA;
  byte value = 0x55;
  for (int allowed = 0; allowed < 2; ++allowed) {
    SCOPED_TRACE(allowed);
    const LogCapture log;
    MorvixProtocolPackage_4_0 package;
    package.flags = &flags;
    package.sizeFlags = 1;
    package.value = &value;
    package.sizeValue = 1;
    {
      const AllowAllocations limit(allowed);
      ProtocolEncodeEntity_4_0(entity, package, values);
    }
    EXPECT_EQ(package.flags, &flags);
    EXPECT_EQ(package.sizeFlags, 1u);
    EXPECT_EQ(package.value, &value);
    EXPECT_EQ(package.sizeValue, 1u);
    EXPECT_EQ(log.Lines(), LogLines{FilterLine(0, "main", "Main")});
  }
  OwnedPackage package;
  {
    const AllowAllocations limit(2);
    ProtocolEncodeEntity_4_0(entity, package, values);
  }
  ASSERT_EQ(package.sizeValue, 2u);
  EXPECT_EQ(ToHex(package.value, 2), "00 07");
}

TEST(UnpackPackage, GivesFalseAndNoValueWhenThereIsNoMemory) {
  const byte data[] = {4, 1, 2};
  const LogCapture log;
  OwnedPackage package;
  {
    const AllowAllocations limit(0);
    EXPECT_FALSE(ProtocolUnpackPackage_4_0(data, sizeof data, package));
  }
  EXPECT_EQ(package.cmd, MorvixProtocolCommandNotifyResp_4_0);
  EXPECT_EQ(package.value, nullptr);
  EXPECT_EQ(package.sizeValue, 2u);
  EXPECT_EQ(log.Lines(), LogLines{});
}
