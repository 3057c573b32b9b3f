// An entity as decoding and encoding see it, and its pieces as texts for people.

#ifndef MORVIX_DP4_ENTITY_VIEW_H
#define MORVIX_DP4_ENTITY_VIEW_H

#include <iosfwd>
#include <string>
#include <vector>

#include "Input.h"

namespace dp4 {

// The longest payload that a packet carries.
constexpr size_t kMaxPayloadBytes = 16384;

// An attribute that decoding or encoding takes. The two may differ in its place, for each sizes the bit groups from the
// attributes that it takes itself.
struct AttributeView {
  MorvixProtocolAttribute_4_0 attribute;  // as decoding sees it, or as encoding does when decoding leaves it out
  bool isRead = false;
  bool isWritten = false;
  size_t flagBit = 0;    // of the flag bitmap, when it is written
  BitRange bits;         // of the payload; empty when it has no place in what is read
  BitRange writtenBits;  // of the payload of a write; empty when it has no place there
};

struct EntityView {
  MorvixProtocolEntity_4_0 info;
  std::vector<AttributeView> attributes;  // in configuration order
  size_t payloadBytes = 0;                // SIZE_MAX for more than there is memory for, as the next
  size_t writtenBytes = 0;                // of the payload of a write
  std::vector<std::string> notes;         // what is not as it seems, a line each
};

// The module's log lines go to `log` unless that is null. Throws UsageError when the entity is unusable.
EntityView ViewEntity(const JsonText& configuration, const Json::Value& entity, std::ostream* log);

// kettle "Kettle", id 0
std::string EntityTitle(const EntityView& view);

// 6 bytes of payload, the first 2 in a write
std::string PayloadSummary(const EntityView& view);

// Payload bits as "2" or "2-3" for whole bytes, else from the most significant one on as "1.4" or "1.1-2.6" (byte.bit);
// "nowhere" for none.
std::string PlaceText(const BitRange& bits);

// SGR parameters of the group's colour.
const char* GroupColor(MorvixProtocolType_4_0 group);

}  // namespace dp4

#endif
