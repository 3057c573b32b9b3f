// Bytes that a device receives, read by the code that is generated of the examples. The first byte chooses the device,
// the rest is the packet.

#include <vector>

#include "DeviceChecks.h"
#include "Support.h"

namespace {

const std::vector<firmware::DeviceChecks>& Devices() {
  static const auto& devices = *[] {
    auto* all = new std::vector<firmware::DeviceChecks>;
    for (size_t i = 0; compiled_devices[i] != nullptr; ++i) {
      all->emplace_back(*compiled_devices[i], ReadFile(compiled_devices[i]->configuration));
    }
    return all;
  }();
  return devices;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::vector<firmware::DeviceChecks>& devices = Devices();
  devices[data[0] % devices.size()].CheckPacket(fuzz::Bytes(data + 1, data + size));
  return 0;
}
