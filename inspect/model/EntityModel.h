// One entity of a configuration as the module sees it, for reading and for writing. The rest of this library uses it.

#ifndef MORVIX_INSPECT_MODEL_ENTITY_MODEL_H
#define MORVIX_INSPECT_MODEL_ENTITY_MODEL_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inspect/json/Document.h"
#include "inspect/model/Attribute.h"
#include "inspect/model/BitRange.h"

namespace morvix::inspect {

constexpr size_t kNoElement = SIZE_MAX;

// An attribute in one direction.
struct Field {
  const Attribute* attribute;  // its record; groupByteLength is that of this direction
  size_t element;              // its index in "attrs"
  size_t flag;                 // its index among the attributes of the direction; in a write its bit in the flag bitmap
  BitRange bits;               // its place in a payload of the direction's length; empty when it has none
  BitRange bitsInLonger;       // the same in a payload that is long enough
};

// The attributes that are read, or those that are written.
struct Direction {
  std::vector<Attribute> records;  // in configuration order; only enums have items
  std::vector<Field> fields;       // one a record
  size_t payloadBytes = 0;

  // The field of an element; null when this direction does not have it.
  const Field* Of(size_t element) const;
};

// The bytes of a write's flag bitmap, and the bit of an attribute in it, counted as payload bits are: the bitmap is
// packed like a bit group.
size_t FlagBytes(const Direction& writing);
size_t FlagBit(const Direction& writing, size_t flag);

// One element of "attrs". What is read and what is written are parsed separately, so that the two directions can
// differ.
struct Element {
  const Json::Value* json;
  std::string droppedOnReading;  // the member for which the parser drops it; empty when kept
  std::string droppedOnWriting;  // also empty when the element is not writable
  Group group;                   // from its keyword, even if the element is dropped
  DataType dataType;

  bool IsWritable() const { return group == MorvixProtocolTypeStatusWritable_4_0; }
};

using ParsedElements = std::vector<MorvixProtocolElement_4_0>;

// A configuration value and its JSON pointer.
struct Spot {
  const Json::Value* value;
  std::string pointer;

  // The member with this name, or the value itself when there is no such member.
  Spot Member(const std::string& name) const;
  Spot Item(Json::ArrayIndex index) const;
};

// Why an entity is unusable.
struct EntityFault {
  std::string member;
  std::string line;  // the parser's
};

// Immutable. The configuration outlives it.
class EntityModel {
 public:
  // Nothing, with `fault` set, when the entity is unusable. The parser's lines are logged, once for both directions.
  // Throws InputError when the records would hold too many inherited enum items to fit into memory.
  static std::optional<EntityModel> Parse(const Json::Value& entity, std::string pointer, EntityFault& fault);

  EntityModel(EntityModel&&) = default;
  EntityModel& operator=(EntityModel&&) = default;

  // The entity itself.
  const Spot& At() const { return spot_; }
  const MorvixProtocolEntity_4_0& Info() const { return info_; }
  const std::vector<Element>& Elements() const { return elements_; }
  const Direction& Reading() const { return reading_; }
  const Direction& Writing() const { return writing_; }

  // Whether the parser throws on a "min" or "max" that is an array or object. Here such limits count as null.
  bool IsThrowing() const { return isThrowing_; }

  const Field* Read(size_t element) const { return reading_.Of(element); }
  const Field* Written(size_t element) const { return writing_.Of(element); }

  // The fields that are read or written, in the order of the elements; the reading field if there is one.
  std::vector<const Field*> Fields() const;

  // The element, or the value at a path inside it; where the path ends early, the last existing value.
  Spot At(size_t element, const std::vector<std::string>& members = {}) const;

  // "'power'", or "attribute 3" when it has no name.
  std::string Label(size_t element) const;

 private:
  EntityModel() = default;
  bool ParseRecords(const Json::Value& entity, ParsedElements& read, ParsedElements& written);

  Spot spot_ = {};
  MorvixProtocolEntity_4_0 info_;
  std::vector<Element> elements_;
  Direction reading_;
  Direction writing_;
  bool isThrowing_ = false;
};

// Whether a document without "entities" is a list of devices: an array of them, or an object with an array "devices".
bool IsDeviceList(const Json::Value& root);

// The member of an object that was probably meant to be the array `name`: one of a similar name, or the only array of
// objects. Empty when there is none.
std::string MeantArray(const Json::Value& object, const std::string& name);

// The entities of a configuration. Throws InputError when it has no array of them.
const Json::Value& EntitiesOf(const json::Document& configuration);

// The entity that `choice` names by its name or else its id; an empty choice is for the only one. Throws InputError,
// also when there are several of that name or id.
const Json::Value& ChooseEntity(const json::Document& configuration, const std::string& choice);

// The model of an entity. Throws InputError when the entity is unusable or makes the parser throw.
EntityModel ModelOf(const json::Document& configuration, const Json::Value& entity);

// The bits of a record in a payload that is long enough; empty when its data type cannot be used at its place.
BitRange Locate(const Attribute& attribute);

}  // namespace morvix::inspect

#endif
