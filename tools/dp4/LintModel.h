// An entity as lint sees it: its elements, what the parser made of each, and questions to the codec about one field.

#ifndef MORVIX_DP4_LINT_MODEL_H
#define MORVIX_DP4_LINT_MODEL_H

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "Input.h"
#include "LintRules.h"
#include "Text.h"

namespace dp4 {

using Attribute = MorvixProtocolAttribute_4_0;
using Position = MorvixProtocolPosition_4_0;

// A text of the configuration as the module's look-ups see it: it ends at a NUL.
std::string UpToNul(const std::string& text);

bool IsWritable(const Attribute& attribute);
bool IsNumber(const Attribute& attribute);
bool IsAlertOrFault(const Attribute& attribute);
bool IsScaled(const Attribute& attribute);     // a number whose scaling takes values
bool IsBitPacked(const Attribute& attribute);  // a member of bit groups: bool or enum
bool IsInBits(const Attribute& attribute);     // by its unit

// The keywords that the parser knows for "type", "data_type" or "unit".
const std::vector<std::string>& KeywordsOf(const std::string& member);
// The one that a text which is none may have been meant to be; empty when that cannot be told.
std::string MeantKeyword(const std::string& member, const Json::Value& value);

// One element of "attrs".
struct Element {
  const Json::Value* json = nullptr;
  // The member that the parser names as the reason for dropping it; empty when it took it. Writing selects the writable
  // attributes alone, so that the two can differ.
  std::string droppedOnReading;
  std::string droppedOnWriting;
  // As far as the parser can tell from the keyword alone.
  MorvixProtocolType_4_0 group = MorvixProtocolTypeUnknown_4_0;
  MorvixProtocolDataType_4_0 dataType = MorvixProtocolDataTypeUnknown_4_0;

  bool IsWritable() const { return group == MorvixProtocolTypeStatusWritable_4_0; }
};

constexpr size_t kNoElement = SIZE_MAX;

// Whether the parser looks at a member that it names before it looks at the group, and so at the others.
bool IsIdentity(const std::string& member);

// One entity. The records' `id` is the index of their element, and only enums have items.
class LintEntity {
 public:
  LintEntity(const Json::Value& entity, std::string entityPointer) : json(entity), pointer(std::move(entityPointer)) {}

  // False with the parser's reason when the entity is unusable.
  bool Parse(std::ostream* log, std::string& reason);

  // The element itself or a member deep in it; as far down as there is one.
  Spot At(size_t element, std::initializer_list<const char*> members = {}) const;
  Spot At(const Attribute& attribute, std::initializer_list<const char*> members = {}) const {
    return At(static_cast<size_t>(attribute.id), members);
  }
  // "'power'", or "attribute 3" when it has no name.
  std::string Label(size_t element) const;
  std::string Label(const Attribute& attribute) const { return Label(static_cast<size_t>(attribute.id)); }
  // The record of an element on reading or writing; null when there is none.
  const Attribute* ReadRecord(size_t element) const { return Record(all, element); }
  const Attribute* WriteRecord(size_t element) const { return Record(writable, element); }
  // Those that became records on either way, in the order of the elements, as reading knows them if it does.
  std::vector<const Attribute*> Records() const;
  // What decoding would take if all that it drops were whole, as far as its place is known or can be guessed.
  std::vector<Attribute> WholeRecords() const;

  const Json::Value& json;
  const std::string pointer;
  MorvixProtocolEntity_4_0 info;
  std::vector<Element> elements;
  std::vector<Attribute> all;       // what decoding takes
  std::vector<Attribute> writable;  // what encoding takes
  size_t readLength = 0;            // payload bytes of all; 0 also when there is no memory for so many
  size_t writeLength = 0;           // of a write, in the same way
  bool isReadInMemory = true;       // false when that is so
  bool isWriteInMemory = true;

 private:
  static const Attribute* Record(const std::vector<Attribute>& attributes, size_t element);
  void NoteDrops(const std::vector<LoggedLine>& reading, const std::vector<LoggedLine>& writing);
};

// The texts of an "enum" member as the parser takes them.
std::vector<std::string> ItemsOf(const Json::Value& member);

// "byte 3", "bytes 3 and 4", "bytes 3 to 5".
std::string BytesText(const BitRange& range);
// "bit 4 of byte 3", "bits 4 to 2 of byte 3", or bytes.
std::string BitsText(const BitRange& range);
// "'a'", "'a' and 'b'", "'a', 'b', 'c', 'd' and 5 more", for lists of any length: `labels` holds all `count` or at
// least the first five of them.
std::string Listed(const std::vector<std::string>& labels, size_t count);

// The module's answers for one field cost as much as the payload is long. This moves fields that are looked at together
// to the payload's start and cuts the rest off; every answer is as for the payload of `payloadLength` bytes, which is
// at least what the fields need, only `shift` bytes further on.
struct Window {
  std::vector<Attribute> fields;
  size_t shift = 0;
  size_t length = 0;
};
Window WindowOn(const std::vector<Attribute>& fields, size_t payloadLength);

// Where the module writes a field; empty when it cannot.
BitRange Locate(const Attribute& field, size_t payloadLength);

// The shortest text that is read as this number.
std::string ShortestText(double number);

// The same field for a probe, by the name `key` in all documents.
Attribute Keyed(const Attribute& field, const std::string& key);
// A number in the bits of the field, under the name `key`, which lets every raw value of up to 52 bits through.
Attribute OpenField(const Attribute& field, const std::string& key);
// The largest raw value of an open field of this many bits.
uint64_t LargestOpenValue(uint64_t bits);

// What the encoder makes of `values`, by name.
struct Encoded {
  std::vector<byte> payload;  // at least as long as asked for; empty when nothing was written
  std::string refusal;        // the line that ended the call
};
Encoded EncodeFields(const std::vector<Attribute>& fields, const Json::Value& values, size_t payloadLength);

// What the decoder makes of a payload: the values by name.
struct Decoded {
  Json::Value values = Json::Value(Json::objectValue);
  std::string refusal;
};
Decoded DecodeFields(const std::vector<Attribute>& fields, const std::vector<byte>& payload);

// The key under which the decoder stores an attribute.
std::string DecodedKey(const Attribute& attribute);

// What becomes of an attribute whose field has no usable place.
std::string EffectOfUnusable(const LintEntity& entity, size_t element);

// What the group of a dropped attribute loses with it, by element, where that sized the group.
std::map<size_t, std::string> EffectsOnGroups(const LintEntity& entity);

// The subjects of the rules. Each checks one entity.
void LintMembers(const LintEntity& entity, Findings& findings);  // of objects: unknown, unused, misread
// True when the parser throws on one of the limits.
bool LintDropped(const LintEntity& entity, Findings& findings);
void LintNames(const LintEntity& entity, Findings& findings);
void LintGroups(const LintEntity& entity, Findings& findings);
void LintPlaces(const LintEntity& entity, Findings& findings);
void LintNumbers(const LintEntity& entity, Findings& findings);
void LintEnums(const LintEntity& entity, Findings& findings);
void LintAlerts(const LintEntity& entity, Findings& findings);

}  // namespace dp4

#endif
