// The values of one write, collected from value documents and single settings, with their sources for messages.

#ifndef MORVIX_INSPECT_PACKETS_VALUES_H
#define MORVIX_INSPECT_PACKETS_VALUES_H

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// A value from the user.
struct Given {
  std::string source;  // where it was given, for messages; empty where that says nothing
  std::string text;
};

// What a flat record, which decoding made, tells about its packet beside the values.
struct RecordHead {
  std::optional<MorvixProtocolCommand_4_0> command;
  std::optional<int32_t> subDevice;
};

// The head of a document; empty when it is no flat record. Throws InputError for a record of a request without values,
// and for a command or sub-device that no packet has.
RecordHead HeadOf(const json::Document& configuration, const json::Document& document);

// The values of the attributes that one direction of an entity has. A write has one value for all attributes of a name;
// what a device sends has one for each.
class GivenValues {
 public:
  // The direction is one of the entity's; both outlive it.
  GivenValues(const EntityModel& entity, const Direction& direction)
      : entityName_(entity.Info().name), direction_(direction), isReading_(&direction == &entity.Reading()) {}

  // The key of an attribute's value in the document: its name up to the first NUL, or its index in what a device sends.
  std::string KeyOf(const Attribute& attribute) const;

  // Replaces the value of an attribute.
  void Set(const Attribute& attribute, Json::Value value, const Given& given);

  // Forgets the value of an attribute.
  void Remove(const Attribute& attribute);

  // The document for the module, {entity: {key: value}}.
  const Json::Value& Document() const { return document_; }

  // The value of an attribute, and how it was given; null when it has none.
  const Json::Value* Of(const Attribute& attribute) const;
  const Given& SourceOf(const Attribute& attribute) const { return given_.at(KeyOf(attribute)); }

  // The values that were not taken, and why; one line each.
  const std::vector<std::string>& Problems() const { return problems_; }

 protected:
  const std::string& EntityName() const { return entityName_; }
  const Direction& GivenDirection() const { return direction_; }
  bool IsReading() const { return isReading_; }  // the direction is that of what a device sends
  void AddProblem(std::string problem) { problems_.push_back(std::move(problem)); }

 private:
  const std::string entityName_;
  const Direction& direction_;
  const bool isReading_;
  std::vector<std::string> problems_;
  Json::Value document_{Json::objectValue};
  std::map<std::string, Given> given_;
};

// Those of a user.
class Values : public GivenValues {
 public:
  // For the attributes that `direction` has, of the entity of this configuration that `entity` is the model of; all of
  // them outlive it.
  Values(const json::Document& configuration, const EntityModel& entity, const Direction& direction);

  // Takes the values of a document, {entity: {name: value}}, or of one that decoding made, with its alerts and faults
  // where the direction has them. Passes over what an attribute that is only read has in it, and "version". Throws
  // InputError when it has another form.
  void TakeDocument(const json::Document& document);

  // Takes NAME=VALUE. The value of an enum is an index in decimal digits, or else an item; any other is JSON if it is
  // JSON, otherwise a text. A later one replaces an earlier one. Throws InputError when it has another form.
  void TakeSetting(const std::string& setting);

  // After all values: a problem for each note of a record that stands for something that is not sent now, a value that
  // its packet did not tell or surplus bytes of what a device sends; and one for each key that stands for several
  // attributes, if decoding made the document, which has the value of one only. Another document has none.
  void CheckNotes(const json::Document& document);

 private:
  using Attributes = std::vector<const Attribute*>;

  void TakeListed(const json::Document& document, const char* member, Group group);
  void CheckKeys();
  void Take(const std::string& name, const Json::Value& value, const Given& given);
  void TakeDecoded(const Attribute& attribute, const Json::Value& value, const Given& given);
  void TakeFor(const Attribute& attribute, Json::Value value, const Given& given);
  bool ReplaceItem(const Attribute& attribute, Json::Value& value, const std::string& source);
  bool IsKnown(const std::string& name) const;
  std::string UnknownText(const std::string& name) const;

  std::vector<std::string> entities_;
  std::vector<std::string> names_;                // of the attributes that are taken
  std::map<std::string, Attributes> attributes_;  // what a name means, or another key of decoded documents
  std::map<std::string, Attributes> keyed_;       // all by their keys in decoded documents
  std::map<std::pair<int, std::string>, const Attribute*> told_;  // the last by its group and key
  std::set<const Attribute*> decoded_;                            // those whose values are from a decoded document
  std::map<std::string, std::string> others_;                     // attributes that are not taken, and why
  std::set<std::string> readOnly_;                                // names and keys of attributes that are only read
};

}  // namespace morvix::inspect

#endif
