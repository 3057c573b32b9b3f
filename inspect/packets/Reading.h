// Decodes received packets attribute by attribute.

#ifndef MORVIX_INSPECT_PACKETS_READING_H
#define MORVIX_INSPECT_PACKETS_READING_H

#include <json/value.h>

#include <string>
#include <vector>

#include "inspect/model/EntityModel.h"
#include "inspect/packets/Packet.h"

namespace morvix::inspect {

// Why the module refuses a received packet; empty when it accepts the packet.
std::string RefusalOf(const Bytes& packet);

// One accepted packet.
struct PacketReading {
  MorvixProtocolCommand_4_0 command;
  Json::Value document;         // the decoded document
  std::vector<Result> results;  // one for each field that is read
  const Field* culprit;         // the field at which decoding ended; null when it did not end early
};

// Decodes a packet that RefusalOf accepts. The module's lines are logged.
PacketReading ReadPacket(const EntityModel& entity, const Bytes& packet);

// The result of decoding each of these attributes from a payload. Nothing is logged.
std::vector<Result> DecodeSilently(const EntityModel& entity, const std::vector<Attribute>& attributes,
                                   const byte* payload, size_t size);

// The text of a field's value in a payload that was decoded with this result; empty when there is no value.
std::string ValueText(const Field& field, const Result& result, const byte* payload);

// Why decoding ended at the culprit, and what was expected; empty when there is no culprit.
std::string FailureText(const EntityModel& entity, const PacketReading& reading, const Bytes& packet);

}  // namespace morvix::inspect

#endif
