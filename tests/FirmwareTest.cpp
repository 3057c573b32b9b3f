// The code that `dp4 generate c` makes of the examples, compiled and held against the module.

#include <gtest/gtest.h>

#include <string>

#include "Cases.h"
#include "DeviceChecks.h"
#include "TestSupport.h"

namespace {

using firmware::DeviceChecks;

class Firmware : public testing::TestWithParam<size_t> {
 protected:
  const DeviceChecks checks_{*compiled_devices[GetParam()], ReadFile(compiled_devices[GetParam()]->configuration)};
};

TEST_P(Firmware, ReadsWhatTheModuleSends) {
  size_t writes = 0;
  support::ForEachCase(11, 500, [&](support::Source& source) { writes += checks_.CheckWrite(source).empty() ? 0 : 1; });
  EXPECT_GT(writes, 200u);
}

TEST_P(Firmware, TakesOnlyWritesOfValuesInRange) {
  size_t taken = 0;
  size_t refused = 0;
  support::ForEachCase(12, 1000, [&](support::Source& source) {
    const morvix::inspect::Bytes packet = DeviceChecks::Changed(checks_.CheckWrite(source), source);
    ++(checks_.CheckPacket(packet) ? taken : refused);
  });
  EXPECT_GT(taken, 50u);
  EXPECT_GT(refused, 50u);
}

TEST_P(Firmware, TakesOnlyWholePackets) {
  support::SeededSource source(13);
  const morvix::inspect::Bytes packet = checks_.CheckWrite(source);
  for (size_t size = 0; size <= packet.size() + 8; ++size) {
    morvix::inspect::Bytes other = packet;
    other.resize(size);
    checks_.CheckPacket(other);
  }
}

TEST_P(Firmware, MakesWhatTheModuleReads) {
  support::ForEachCase(14, 500, [&](support::Source& source) { checks_.CheckState(source); });
}

std::vector<size_t> Numbers() {
  std::vector<size_t> numbers;
  while (compiled_devices[numbers.size()] != nullptr) numbers.push_back(numbers.size());
  return numbers;
}

INSTANTIATE_TEST_SUITE_P(Examples, Firmware, testing::ValuesIn(Numbers()),
                         [](const auto& number) { return std::string(compiled_devices[number.param]->entity); });

// Commands 8 and 12 name a sub-device in five bytes, all others do not.
TEST_P(Firmware, FindsTheSubDeviceOfRequests) {
  for (int command = 0; command < 20; ++command) {
    checks_.CheckPacket({static_cast<byte>(command), 0x78, 0x56, 0x34, 0x92});
  }
}

}  // namespace
