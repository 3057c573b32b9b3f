// Holds generated device code against the module: what the module sends the device reads, what the device makes the
// module reads, and of hostile bytes the device takes exactly the writes.

#ifndef MORVIX_TESTS_FIRMWARE_DEVICE_CHECKS_H
#define MORVIX_TESTS_FIRMWARE_DEVICE_CHECKS_H

#include <memory>
#include <optional>
#include <string>

#include "CompiledDevice.h"
#include "Source.h"
#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"
#include "inspect/packets/Packet.h"

namespace firmware {

class DeviceChecks {
 public:
  // `device` is compiled from that entity of that configuration.
  DeviceChecks(const compiled_device& device, const std::string& configuration);

  // A write of some values from the module to the device. Throws Failure, as all checks do. Gives the packet; empty
  // when the module refused a value.
  morvix::inspect::Bytes CheckWrite(support::Source& source) const;

  // Any bytes: the device takes exactly the packets that are a write of values in range, and reads from them what is
  // there; but for the bits of attributes that are not set it is what the module sends for these values. Gives whether
  // it was taken.
  bool CheckPacket(const morvix::inspect::Bytes& packet) const;

  // A packet that was changed in some places.
  static morvix::inspect::Bytes Changed(morvix::inspect::Bytes packet, support::Source& source);

  // A state from the device to the module, and one with a value out of range.
  void CheckState(support::Source& source) const;

 private:
  using Bytes = morvix::inspect::Bytes;
  using Field = morvix::inspect::Field;

  bool IsWrite(const Bytes& packet) const;
  void CheckSubDevice(const Bytes& packet) const;
  void CheckReread(const Bytes& packet, const Bytes& write) const;
  Bytes Send(const Json::Value& values, bool hasId, std::vector<morvix::inspect::Result>& results) const;

  const compiled_device& device_;
  morvix::inspect::json::Document configuration_;
  morvix::inspect::EntityModel entity_;
  std::vector<morvix::inspect::Attribute> writers_;  // the writable records, each with a name of its own
};

}  // namespace firmware

#endif
