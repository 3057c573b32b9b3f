// Encodes a write and explains the result for each value.

#ifndef MORVIX_INSPECT_PACKETS_ENCODING_H
#define MORVIX_INSPECT_PACKETS_ENCODING_H

#include <string>
#include <vector>

#include "inspect/packets/Packet.h"
#include "inspect/packets/Values.h"

namespace morvix::inspect {

// One writable attribute in a write.
struct EncodedValue {
  const Field* field;
  Result result;           // of this value alone, whatever the earlier results
  Given given;             // empty when it has no value
  bool isAltered = false;  // the packet holds another value
  std::string note;        // explanation; empty when there is nothing to explain
};

// A write of the values, made by the module.
class Encoding {
 public:
  // Messages call the entity `entityText`. `package` holds the command and the sub-device. The module's lines are
  // logged. Throws InputError when no packet can hold the entity's writable attributes. The entity outlives it.
  Encoding(const EntityModel& entity, std::string entityText, const Values& values,
           MorvixProtocolOwnedPackage_4_0 package);

  // Whether there is a packet: at least one value was written and none was refused.
  bool HasPacket() const { return package_.sizeValue != 0; }
  Bytes Packet() const { return PackPackage(package_); }

  // One line for each value that is left out or altered, and one for the reason why there is no packet.
  std::vector<std::string> Problems() const;

  // The parts of the packet, byte by byte.
  std::string PartsText() const;

  // Every writable attribute with its flag, value, place and bits. `isSent` is false when the packet is not output.
  std::string TableText(bool isSent, bool color) const;

 private:
  void NoteWritten(const Values& values);

  const EntityModel& entity_;
  std::string entityText_;
  MorvixProtocolOwnedPackage_4_0 package_;
  std::vector<EncodedValue> values_;
};

}  // namespace morvix::inspect

#endif
