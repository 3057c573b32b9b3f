// The values of one write, gathered from value documents and single settings, with their sources for messages.

#ifndef MORVIX_INSPECT_PACKETS_VALUES_H
#define MORVIX_INSPECT_PACKETS_VALUES_H

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// A value as it was given.
struct Given {
  std::string source;  // where it stands, for messages
  std::string text;
};

class Values {
 public:
  // For the entity of this configuration that `entity` is the model of; both outlive it.
  Values(const json::Document& configuration, const EntityModel& entity);

  // Takes the values of a document, {entity: {name: value}}. Throws InputError when it has another form.
  void TakeDocument(const json::Document& document);

  // Takes NAME=VALUE; the value is JSON if it is JSON, otherwise a text. A later one replaces an earlier one. Throws
  // InputError when it has another form or names nothing writable.
  void TakeSetting(const std::string& setting);

  // As the module takes them.
  const Json::Value& Document() const { return document_; }

  // The value of an attribute, and how it was given; null when it has none. The module looks it up by the name up to
  // its first NUL.
  const Json::Value* Of(const Attribute& attribute) const;
  const Given& SourceOf(const Attribute& attribute) const { return given_.at(attribute.name.c_str()); }

  // What names nothing that can be written, and why; one line each.
  const std::vector<std::string>& Unused() const { return unused_; }

 private:
  std::string UnusedText(const std::string& name) const;

  std::string entityName_;
  std::vector<std::string> entities_;
  std::vector<std::string> writable_;
  std::map<std::string, std::string> others_;  // attributes that are not written, and why
  Json::Value document_{Json::objectValue};
  std::map<std::string, Given> given_;  // of the entity, by name
  std::vector<std::string> unused_;
};

}  // namespace morvix::inspect

#endif
