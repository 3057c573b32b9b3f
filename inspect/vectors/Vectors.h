// Test vectors of an entity: packets with the values that they stand for, worked out by the module, for whoever
// implements the protocol's other end or wants to check one.

#ifndef MORVIX_INSPECT_VECTORS_VECTORS_H
#define MORVIX_INSPECT_VECTORS_VECTORS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect/model/EntityModel.h"
#include "inspect/packets/Packet.h"

namespace morvix::inspect {

// A value of one attribute.
struct VectorValue {
  const Field* field;
  uint64_t raw = 0;   // of a bool, enum or number
  Bytes bytes;        // of a binary
  std::string value;  // as JSON text, in user units; an enum's index, a binary's base64; "inf" or "nan" in quotes
};

// A write and what it writes.
struct WriteVector {
  std::vector<VectorValue> values;
  Bytes packet;
};

// A notification, what it tells, and the decoded document as JSON text.
struct NotificationVector {
  std::vector<VectorValue> values;
  Bytes packet;
  std::string document;
};

// Values that no write carries as they are, and why.
struct RefusedVector {
  std::vector<VectorValue> values;
  std::string reason;
};

struct Vectors {
  std::string entity;
  std::vector<WriteVector> writes;
  std::vector<NotificationVector> notifications;
  std::vector<RefusedVector> refused;
};

struct VectorChoices {
  size_t random = 0;  // that many more notifications and writes, of which some may be refused
  uint64_t seed = 1;  // of the random ones
};

// For every writable attribute writes of its limits, their neighbours, its middle and its items, alone and all
// attributes together; the same for all attributes as notifications; values just outside the limits as refused, and so
// are writes whose packet would hold other values, where fields overlap or cut them. The order and the random vectors
// are the same on every machine. The entity outlives the vectors. Throws InputError when no packet holds the entity's
// payload, or when the vectors would take more than 128 MiB.
Vectors VectorsOf(const EntityModel& entity, const VectorChoices& choices);

// Both forms end their last line.
std::string VectorsJson(const Vectors& vectors);
std::string VectorsC(const Vectors& vectors);

}  // namespace morvix::inspect

#endif
