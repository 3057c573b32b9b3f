// Checks compiled device code against the module:
//   firmware_check LIBRARY PACKETS SEED    of all devices in a shared library, with so many packets in each direction

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Check.h"
#include "DeviceChecks.h"
#include "TestSupport.h"

int main(int count, char** arguments) {
  constexpr int kMaxTries = 20;
  if (count != 4) return 2;
  void* library = dlopen(arguments[1], RTLD_NOW);
  if (library == nullptr) {
    static_cast<void>(std::fprintf(stderr, "%s\n", dlerror()));
    return 2;
  }
  const auto* devices = static_cast<const compiled_device* const*>(dlsym(library, "compiled_devices"));
  const unsigned long packets = std::strtoul(arguments[2], nullptr, 10);
  const unsigned long long seed = std::strtoull(arguments[3], nullptr, 10);
  size_t number = 0;
  size_t writes = 0;
  size_t refused = 0;
  try {
    for (; devices[number] != nullptr; ++number) {
      const firmware::DeviceChecks checks(*devices[number], ReadFile(devices[number]->configuration));
      support::SeededSource source(seed, number);
      for (unsigned long i = 0; i < packets; ++i) {
        morvix::inspect::Bytes packet;
        // The module refuses what rounding has moved out of range.
        for (int tries = 0; packet.empty() && tries < kMaxTries; ++tries) packet = checks.CheckWrite(source);
        writes += packet.empty() ? 0 : 1;
        checks.CheckPacket(packet);
        refused += checks.CheckPacket(firmware::DeviceChecks::Changed(packet, source)) ? 0 : 1;
        checks.CheckState(source);
      }
    }
  } catch (const std::exception& failure) {
    std::printf("device %zu (%s): %s\n", number, devices[number]->configuration, failure.what());
    return 1;
  }
  std::printf("%zu devices, %zu writes read, %zu changed ones refused, %zu states made: no difference\n", number,
              writes, refused, number * packets);
  return number == 0 ? 1 : 0;
}
