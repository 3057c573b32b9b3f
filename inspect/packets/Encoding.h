// What becomes of each value of a write, and its explanation for people.

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
  Result result;           // on its own, whatever the values before it came to
  Given given;             // empty when it has no value
  bool isAltered = false;  // the packet says something else than the value
  std::string note;        // what there is to say about it
};

// A write of the values, made by the module.
class Encoding {
 public:
  // `entityText` is what messages call the entity; `package` holds the command and the sub-device. The module's lines
  // are logged. Throws InputError when no packet can hold the entity's writable attributes. The entity outlives it.
  Encoding(const EntityModel& entity, std::string entityText, const Values& values,
           MorvixProtocolOwnedPackage_4_0 package);

  // Whether there is a packet: something was written and nothing refused.
  bool HasPacket() const { return package_.sizeValue != 0; }
  Bytes Packet() const { return PackPackage(package_); }

  // Values that are left out or altered, and the reason why there is no packet; one line each.
  std::vector<std::string> Problems() const;

  // The parts of the packet, byte by byte.
  std::string PartsText() const;

  // Every writable attribute with its flag, value, place and bits. `isSent` is false when the packet is not given out.
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
