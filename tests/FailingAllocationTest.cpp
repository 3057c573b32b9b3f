// Calls of malloc and calloc from the module and from here go through the wrappers below, which refuse on demand. So
// does operator new.

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

// How many more calls succeed, and how many fail after that; then all succeed again.
int allowedCalls = 0;
int refusedCalls = 0;
bool isNewRefused = false;  // operator new counts as well

bool IsRefused() {
  if (allowedCalls > 0) {
    --allowedCalls;
    return false;
  }
  if (refusedCalls == 0) return false;
  --refusedCalls;
  return true;
}

// Lets the next `allowed` allocations succeed and the `refused` ones after them fail, during its lifetime.
struct RefuseAllocations {
  RefuseAllocations(int allowed, int refused, bool alsoNew = false) {
    allowedCalls = allowed;
    refusedCalls = refused;
    isNewRefused = alsoNew;
  }
  ~RefuseAllocations() {
    allowedCalls = refusedCalls = 0;
    isNewRefused = false;
  }
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

void* operator new(size_t size) {
  void* const memory = isNewRefused && IsRefused() ? nullptr : __real_malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }

// The text, the name of the operation or the line in the capture do not fit; the caller does not notice.
TEST(Logging, DropsALineForWhichThereIsNoMemory) {
  const std::string text(1000, 'x');
  const char* const operation = "AnOperationWithALongName";
  const LogCapture log;
  for (const int allowed : {0, 1, 2}) {
    const RefuseAllocations limit(allowed, 1, true);
    logMsgEx(1, operation, "%s", text.c_str());
  }
  EXPECT_EQ(log.Lines().size(), 0u);
  logMsgEx(1, operation, "%s", text.c_str());
  EXPECT_EQ(log.Lines(), (LogLines{{1, operation, text}}));
}

TEST(EncodeEntity, LeavesThePackageAloneWhenABufferCannotBeAllocated) {
  const Json::Value entity = ParseJson(kConfiguration);
  const Json::Value values = ParseJson(R"({"main": {"level": 7}})");
  byte flags = 0xAA;
  byte value = 0x55;
  const struct { int allowed, refused; } cases[] = {{0, 2}, {0, 1}, {1, 1}};
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::Message() << test.allowed << " succeed, " << test.refused << " fail");
    const LogCapture log;
    MorvixProtocolPackage_4_0 package;
    package.flags = &flags;
    package.sizeFlags = 1;
    package.value = &value;
    package.sizeValue = 1;
    {
      const RefuseAllocations limit(test.allowed, test.refused);
      ProtocolEncodeEntity_4_0(entity, package, values);
    }
    EXPECT_EQ(package.flags, &flags);
    EXPECT_EQ(package.sizeFlags, 1u);
    EXPECT_EQ(package.value, &value);
    EXPECT_EQ(package.sizeValue, 1u);
    EXPECT_EQ(log.Lines(), LogLines{FilterLine(0, "main", "Main")});
  }
  MorvixProtocolOwnedPackage_4_0 package;
  {
    const RefuseAllocations limit(2, 1);
    ProtocolEncodeEntity_4_0(entity, package, values);
  }
  ASSERT_EQ(package.sizeValue, 2u);
  EXPECT_EQ(ToHex(package.value, 2), "00 07");
}

TEST(EncodeEntity, ReleasesTheOneBufferWhenTheOtherCannotBeAllocated) {
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 info;
  const LogCapture log;
  ASSERT_TRUE(ProtocolParseEntity_4_0(ParseJson(kConfiguration), 1, attributes, info));
  const Json::Value values;
  for (const int allowed : {0, 1}) {
    SCOPED_TRACE(allowed);
    const auto encode = [&] {
      const RefuseAllocations limit(allowed, 1);
      MorvixProtocolPackage_4_0 package;
      ProtocolEncodeAttributes_4_0(info, attributes, package, values);
      return package.value != nullptr;
    };
    EXPECT_FALSE(encode());
    const size_t usedBytes = mallinfo2().uordblks;
    for (int i = 0; i < 1000; ++i) encode();
    EXPECT_LT(mallinfo2().uordblks, usedBytes + 1000);
  }
}

TEST(UnpackPackage, GivesFalseAndNoValueWhenThereIsNoMemory) {
  const byte data[] = {4, 1, 2};
  const LogCapture log;
  MorvixProtocolOwnedPackage_4_0 package;
  {
    const RefuseAllocations limit(0, 1);
    EXPECT_FALSE(ProtocolUnpackPackage_4_0(data, sizeof data, package));
  }
  EXPECT_EQ(package.cmd, MorvixProtocolCommandNotifyResp_4_0);
  EXPECT_EQ(package.value, nullptr);
  EXPECT_EQ(package.sizeValue, 2u);
  EXPECT_EQ(log.Lines(), LogLines{});
}

TEST(ReceivePacket, AllocatesOnceByAPlanAndTwiceWithoutWhenItsResultsAreReused) {
  const Json::Value entity = ParseJson(R"({"id": 0, "name": "main", "display_name": "Main", "attrs": [
    {"id": 0, "name": "on", "display_name": "On", "desc": "", "type": "status_writable", "data_type": "bool",
     "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}},
    {"id": 1, "name": "program", "display_name": "Program", "desc": "", "type": "status_writable", "data_type": "enum",
     "enum": ["a", "b", "c"], "position": {"byte_offset": 0, "bit_offset": 1, "unit": "bit", "len": 2}},
    {"id": 2, "name": "level", "display_name": "Level", "desc": "", "type": "status_readonly", "data_type": "uint8",
     "uint_spec": {"min": 0, "max": 255, "ratio": 0.5, "addition": 0},
     "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1}},
    {"id": 3, "name": "tag", "display_name": "Tag", "desc": "", "type": "status_readonly", "data_type": "binary",
     "position": {"byte_offset": 2, "bit_offset": 0, "unit": "byte", "len": 3}},
    {"id": 4, "name": "hot", "display_name": "Hot", "desc": "", "type": "alert", "data_type": "bool",
     "position": {"byte_offset": 5, "bit_offset": 0, "unit": "bit", "len": 1}},
    {"id": 5, "name": "broken", "display_name": "Broken", "desc": "", "type": "fault", "data_type": "bool",
     "position": {"byte_offset": 5, "bit_offset": 1, "unit": "bit", "len": 1}}]})");
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 info;
  const LogCapture log;
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity, 15, attributes, info));
  const MorvixProtocolReceivePlan_4_0 plan = ProtocolPlanReceive_4_0(info, attributes);
  const byte packet[] = {4, 0x05, 5, 1, 2, 3, 0x03};
  std::string document(1000, ' ');
  std::vector<TavelReceiveInfo> alerts(1);
  std::vector<TavelReceiveInfo> faults(1);
  for (const bool hasPlan : {true, false}) {
    alerts.clear();
    faults.clear();
    {
      const RefuseAllocations limit(hasPlan ? 1 : 2, 1000, true);
      EXPECT_TRUE(hasPlan
                      ? ProtocolReceivePacket_4_0(plan, packet, sizeof packet, document, alerts, faults)
                      : ProtocolReceivePacket_4_0(info, attributes, packet, sizeof packet, document, alerts, faults));
    }
    EXPECT_EQ(document,
              "{\"main\":{\"level\":\"2.5\",\"on\":true,\"program\":\"2\",\"tag\":\"AQID\"},\"version\":4.0}\n");
    EXPECT_EQ(alerts, (std::vector<TavelReceiveInfo>{{"Hot", 1}}));
    EXPECT_EQ(faults, (std::vector<TavelReceiveInfo>{{"Broken", 1}}));
  }
}
