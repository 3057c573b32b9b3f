// What becomes of each value of a packet that is made, and its explanation for people and programs.

#ifndef MORVIX_INSPECT_PACKETS_ENCODING_H
#define MORVIX_INSPECT_PACKETS_ENCODING_H

#include <string>
#include <vector>

#include "inspect/packets/Packet.h"
#include "inspect/packets/Values.h"

namespace morvix::inspect {

// One attribute in a packet that is made.
struct EncodedValue {
  const Field* field;
  Result result;           // of this value alone, whatever the earlier results
  Given given;             // empty when it has no value
  bool isAltered = false;  // the packet holds another value
  std::string note;        // explanation; empty when there is nothing to explain
  bool isInvalid = false;  // it has no value, and its bits are a number that it cannot have
};

// The attributes that a packet with this command carries: the writable ones of a write, or all of what a device sends.
const Direction& DirectionOf(const EntityModel& entity, MorvixProtocolCommand_4_0 command);

// A packet with the values: a write, which the module makes, or what a device would send.
class Encoding {
 public:
  // `entityText` is what messages call the entity; `package` holds the command and the sub-device. The module's lines
  // of a write are logged. A lenient one leaves refused values out. Throws InputError when no packet can hold the
  // entity's attributes. The entity outlives it.
  Encoding(const EntityModel& entity, std::string entityText, const GivenValues& values,
           MorvixProtocolOwnedPackage_4_0 package, bool isLenient = false);

  // Whether there is a packet: a value was taken, and none refused that is not left out.
  bool HasPacket() const { return package_.sizeValue != 0; }
  Bytes Packet() const;

  // One line for each value that is left out, altered or refused; if there is none and no packet either, the reason.
  std::vector<std::string> Problems() const;

  // One line for each attribute without a value in what a device sends whose bits are a number that it cannot have.
  std::vector<std::string> Warnings() const;

  // The parts of the packet, byte by byte.
  std::string PartsText() const;

  // Every attribute with its flag in a write, value, place and bits. `isSent` is false when the packet is not given
  // out.
  std::string TableText(bool isSent, bool color) const;

  // Both as one line of JSON, with the problems: {"command", "subDevice", "packet", "flags", "payload", "attributes":
  // [{"name", "flag", "value", "place": {"firstBit", "bits"}, "raw", "bits", "note"}], "problems"}, with what applies.
  // Bytes are in hexadecimal. "value" is as it was given; "raw" and "bits" are in the packet.
  std::string JsonText(bool isSent, const std::vector<std::string>& problems) const;

 private:
  void Make(const GivenValues& values, bool areTaken);
  void NoteWritten(const GivenValues& values);
  bool IsWrite() const { return &direction_ == &entity_.Writing(); }

  const EntityModel& entity_;
  const Direction& direction_;
  std::string entityText_;
  bool areValuesTold_;  // that some were not taken has been told
  MorvixProtocolOwnedPackage_4_0 package_;
  std::vector<EncodedValue> values_;
};

}  // namespace morvix::inspect

#endif
