// The values of one write, collected from value documents and single settings, with their sources for messages.

#ifndef MORVIX_INSPECT_PACKETS_VALUES_H
#define MORVIX_INSPECT_PACKETS_VALUES_H

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// A value from the user.
struct Given {
  std::string source;  // where it was given, for messages
  std::string text;
};

class Values {
 public:
  // `entity` is the model of an entity of this configuration. Both outlive the values.
  Values(const json::Document& configuration, const EntityModel& entity);

  // Adds the values of a document, {entity: {name: value}}. Throws InputError when it has another form.
  void TakeDocument(const json::Document& document);

  // Adds NAME=VALUE. The value is parsed as JSON, or else taken as a string. A later value replaces an earlier one.
  // Throws InputError when the setting has another form or does not name a writable attribute.
  void TakeSetting(const std::string& setting);

  // The document for the module.
  const Json::Value& Document() const { return document_; }

  // The value of an attribute, and how it was given; null when it has none. The module looks it up by the name up to
  // its first NUL.
  const Json::Value* Of(const Attribute& attribute) const;
  const Given& SourceOf(const Attribute& attribute) const { return given_.at(attribute.name.c_str()); }

  // Members that do not name a writable attribute, and why; one line each.
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
