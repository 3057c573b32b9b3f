// What holds for every input. Each check runs the module on one input and holds the results against one another,
// against the model of the codec, and against what the payload's layout says; see Fail in Check.h.
//
// Of configurations, only one thing throws: an array or object as a limit of a scaling. Every check that parses accepts
// exactly that, where the model throws as well.

#ifndef MORVIX_TESTS_SUPPORT_PROPERTIES_H
#define MORVIX_TESTS_SUPPORT_PROPERTIES_H

#include <json/value.h>

#include <functional>
#include <string>
#include <utility>

#include "Check.h"
#include "Maker.h"

namespace support {

// Longer payloads are encoded, but not checked.
constexpr uint64_t kMaxComparedBytes = uint64_t{1} << 18;

// The six readers of one member agree with the model; what they refuse leaves the output as it was.
void CheckReaders(const Json::Value& object, const std::string& key);

// The parser agrees with the model on everything, log lines and the reports on elements included, and appends. Gives
// what it parsed.
model::Parsed CheckParse(const Json::Value& entity, int groups);

// Encodes `values`, and gives what the module made of them.
//  - One call, and parsing followed by encoding, agree with each other and with the model, log lines and results
//    included.
//  - It throws only where parsing does, and what throws or is unusable leaves the package as it was.
//  - A package has two new buffers or none, and both sizes or neither. Its other fields stay.
//  - Buffers are missing only when the payload has no bytes, or more than there is memory for.
//  - See CheckPayload in PayloadProperties.h; `choice` selects the attribute that is looked at more closely.
model::Encoded CheckEncode(const Json::Value& entity, const model::Parsed& writable, const Json::Value& values,
                           size_t choice);

// The same from records, which no configuration needs to give.
model::Encoded CheckEncodeRecords(const Entity& info, const Attributes& attributes, const Json::Value& values,
                                  size_t choice);

// What an encoder, which must not throw, makes of an empty package for these attributes. Its buffers are copied whole,
// unless the payload is too long to look at; there are no results.
model::Encoded RunEncoder(const Attributes& attributes, const std::function<void(Package&)>& encode);

// Decodes a payload into a document that holds `before`: one call, and parsing followed by decoding, agree with each
// other and with the model, log lines and results included. Gives what the model makes of it.
model::Decoded CheckDecode(const Json::Value& entity, const model::Parsed& all, const Bytes& payload,
                           const Json::Value& before);

// The same from records.
model::Decoded CheckDecodeRecords(const Entity& info, const Attributes& attributes, const Bytes& payload,
                                  const Json::Value& before);

// Scales a raw value and a number of one attribute, as the model does; of what is refused nothing is left. Gives
// whether the raw value has a text and the number a raw value.
std::pair<bool, bool> CheckScaling(const Attribute& attribute, uint64_t raw, double user);

// Receives a packet: one pass, the five calls that it stands for, and the model agree, log lines included. What the
// lists held before stays. See CheckUnpack. Gives what the model makes of it.
model::Received CheckReceive(const Entity& info, const Attributes& attributes, const Bytes& packet);

// A packet that is accepted holds the bytes after its command in a block of their own; one that is refused leaves what
// the header says and no block. Nothing before or after the packet is read.
model::Unpacked CheckUnpack(const Bytes& packet);

// Converts the text of a receive document, as the model does. A list of alerts gives the active ones, as the model has
// them, after what was there.
model::Converted CheckConvert(const std::string& text);
void CheckActive(const Json::Value& alerts);

// Serializes `package` into a buffer of `bufLen` bytes and the four that the sub-device id may take beyond it, as the
// model does. Nothing after the packet is written, and of a packet that is refused at most the command. Gives the size,
// and adds to `lines` what is logged.
size_t CheckPack(const Package& package, size_t bufLen, Lines* lines = nullptr);

// All of the above on one entity, parsed for encoding and for decoding: `values` are encoded, packed, and read back
// together; `payload` is decoded, and it is received or what was encoded is, as if a device had sent it. `choice`
// selects among what would take too long all at once.
void CheckEntity(const Json::Value& entity, const model::Parsed& writable, const model::Parsed& all,
                 const Json::Value& values, const Bytes& payload, size_t choice);

// The member of that whole name, NULs included; null when there is none.
const Json::Value& MemberOf(const Json::Value& object, const std::string& name);

}  // namespace support

#endif
