// What holds for every input. Each check runs the module on one input and holds the results against one another,
// against the naive model of the codec, and against what the payload's layout says; see Fail in Support.h.
//
// Of configurations, only one thing throws: an array or object as a limit of a scaling. Every check that parses accepts
// exactly that, where the model throws as well.

#ifndef MORVIX_FUZZ_PROPERTIES_H
#define MORVIX_FUZZ_PROPERTIES_H

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

#include "Support.h"

namespace fuzz {

// The six readers of one member agree with the model; what they refuse leaves the output as it was.
void CheckReaders(const Json::Value& object, const std::string& key);

// The parser agrees with the model on everything, log lines included, and appends. Gives what it parsed.
model::Parsed CheckParse(const Json::Value& entity, int groups);

// What an encoder did to a package.
struct Encoding {
  bool hasBuffers = false;
  Bytes flags;  // the whole buffers, unless the payload is too long to look at
  Bytes value;
  size_t sizeFlags = 0;
  size_t sizeValue = 0;
  Lines lines;
};

// Lets an encoder fill a package and looks at what it did; `attributes` are those that it encodes. It may throw what
// parsing throws, if `hasThrown` is given.
//  - A package has two new buffers or none, and both sizes or neither. Its other fields stay.
//  - Buffers are missing only when the payload has no bytes, or more than there is memory for.
Encoding RunEncoder(const Attributes& attributes, const std::function<void(Package&)>& encode,
                    bool* hasThrown = nullptr);

// Encodes `values`.
//  - One call, and parsing followed by encoding, agree with each other and with the model, log lines included.
//  - It throws only where parsing does, and what throws or is unusable leaves the package as it was.
//  - See CheckPayload in PayloadProperties.h; `choice` selects the attribute that is looked at more closely.
Encoding CheckEncode(const Json::Value& entity, const model::Parsed& writable, const Json::Value& values,
                     size_t choice);

// The same from records, which no configuration needs to give.
Encoding CheckEncodeRecords(const Entity& info, const Attributes& attributes, const Json::Value& values, size_t choice);

// Decodes a payload into a document that holds `before`: one call, and parsing followed by decoding, agree with each
// other and with the model, log lines included.
void CheckDecode(const Json::Value& entity, const model::Parsed& all, const Bytes& payload, const Json::Value& before);

// The same from records.
void CheckDecodeRecords(const Entity& info, const Attributes& attributes, const Bytes& payload,
                        const Json::Value& before);

// Receives a packet: one pass, the five calls that it stands for, and the model agree, log lines included. What the
// lists held before stays. See CheckUnpack and CheckConvert.
void CheckReceive(const Entity& info, const Attributes& attributes, const Bytes& packet);

// A packet that is accepted holds the bytes behind its command in a block of their own; one that is refused leaves what
// the header says and no block. Nothing before or behind the packet is read.
void CheckUnpack(const Bytes& packet);

// Converts the text of a receive document, as the model does.
//  - A text that is refused gives empty lists.
//  - The result parses, and has the members of the input's root. Their items are values or gone, and those that are
//    gone are in the lists, in order, each as it was but for its type and its name.
//  - Active alerts and faults are a part of the lists, in order, none of them 0, and come behind what was there.
// Texts that are no UTF-8 change on their way through JSON; for them only the model and the parsing are looked at.
void CheckConvert(const std::string& text);

// Lays `package` out in a buffer of `bufLen` bytes and the four that the sub-device id may take beyond it.
//  - The result is 0, or the command, the id, the flags and the payload stand where the layout has them; of a null
//    buffer nothing is written, and what follows moves up.
//  - Every byte behind the packet is as before, and so is the whole buffer of a packet that is refused, but for the
//    command of a sub-device request without an id.
void CheckPack(const Package& package, size_t bufLen);

// All of the above on one entity, parsed for encoding and for decoding: `values` are encoded, packed, and read back
// together; `payload` is decoded, and it is received or what was encoded is, as if a device had sent it. `choice`
// selects among what would take too long all at once.
void CheckEntity(const Json::Value& entity, const model::Parsed& writable, const model::Parsed& all,
                 const Json::Value& values, const Bytes& payload, size_t choice);

}  // namespace fuzz

#endif
