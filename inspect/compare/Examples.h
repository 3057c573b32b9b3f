// Packets that show a change: the same value, or the same packet of a device in the field, under both configurations.

#ifndef MORVIX_INSPECT_COMPARE_EXAMPLES_H
#define MORVIX_INSPECT_COMPARE_EXAMPLES_H

#include <cstdint>
#include <optional>
#include <string>

#include "inspect/findings/Change.h"
#include "inspect/model/EntityModel.h"
#include "inspect/packets/Packet.h"

namespace morvix::inspect {

// An attribute of one of the two configurations.
struct Side {
  const EntityModel* entity;
  size_t element;

  const Field* Read() const { return entity->Read(element); }
  const Field* Written() const { return entity->Written(element); }
  // The record, as reading knows it if it does.
  const Attribute& Record() const { return *(Read() != nullptr ? Read() : Written())->attribute; }
};

// The largest raw value that an attribute takes in its bits; of a binary 0, it has bytes instead.
uint64_t LargestRaw(const Side& side);

// "85", "1 (green_tea)", "true"; "raw 300" where the attribute has no value for the raw one.
std::string RawText(const Attribute& attribute, uint64_t raw);

// The packet that sets one attribute to a raw value, or why there is none. `device` is the configuration of the device
// that gets it, which says what it makes of it.
ShownPacket ShownWrite(const Side& side, uint64_t raw, const EntityModel& device);

// What `reader` makes of the packet in which a device with the configuration of `sent` sends this raw value, with zeros
// around it; `reader` is its counterpart.
ShownPacket ShownNotification(const Side& sent, uint64_t raw, const Side& reader);

// The same with ones in the bits that its counterpart `moved` has and it has not.
ShownPacket ShownAmongOnes(const Side& sent, uint64_t raw, const Side& moved, const Side& reader);

// A notification of zeros, as long as `device` sends it.
Bytes Zeros(const EntityModel& device);

// A notification in which each value of `device` is the largest, or if `ofOnes` is set, the largest of ones only.
// Nothing when it would not read it to its end itself.
std::optional<Bytes> Fullest(const EntityModel& device, bool ofOnes);

// The value that an attribute has in a notification: "target = 85", or "no target" with the reason.
std::string MeaningOf(const Side& side, const Bytes& notification);

}  // namespace morvix::inspect

#endif
