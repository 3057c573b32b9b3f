// Names, keys and ids that attributes share, and those that are empty.

#include <fmt/format.h>

#include <unordered_map>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

// The first attribute with each name, id or key.
template <typename Name>
class FirstWith {
 public:
  // The earlier attribute; null when this is the first.
  const Field* Add(const Name& name, const Field& field) {
    const auto [first, isNew] = firsts_.emplace(name, &field);
    return isNew ? nullptr : first->second;
  }

 private:
  std::unordered_map<Name, const Field*> firsts_;
};

std::string LabelOf(const EntityModel& entity, const Field& field) {
  return fmt::format("{} ({}, attribute {})", entity.Label(field.element), GroupName(field.attribute->type),
                     field.element);
}

// The attributes so far by name. Equal names matter among those that encoding takes, and among the states that decoding
// does.
class NamesSoFar {
 public:
  explicit NamesSoFar(const EntityModel& entity) : entity_(entity) {}

  void Add(const Field& field, Findings& findings) {
    const Attribute& attribute = *field.attribute;
    const bool isWritten = entity_.Written(field.element) != nullptr;
    const bool isRead = entity_.Read(field.element) != nullptr && !IsAlertOrFault(attribute);
    const Field* written = isWritten ? written_.Add(attribute.name, field) : nullptr;
    const Field* read = isRead ? read_.Add(attribute.name, field) : nullptr;
    const Field* any = any_.Add(attribute.name, field);
    const Field* same = written != nullptr ? written : read != nullptr ? read : any;
    if (same == nullptr) return;
    const Spot spot = entity_.At(field.element, {"name"});
    const std::string message =
        fmt::format("{} has the name {} as well", LabelOf(entity_, *same), Quoted(attribute.name));
    const char* fix = "give each attribute its own name";
    std::string effect = written != nullptr ? "one value in a document is written to both" : "";
    if (read != nullptr) {
      effect += std::string(effect.empty() ? "" : "; ") + "the decoded document holds the later one only";
    }
    if (!effect.empty()) return findings.Add(rules::kDuplicateName, spot, message, effect, fix);
    const bool isByDisplayName = IsAlertOrFault(attribute) || IsAlertOrFault(*same->attribute);
    findings.Add(rules::kSharedName, spot, message,
                 isByDisplayName ? "none: alerts and faults go by their display names"
                                 : "none: one is only written, the other only read",
                 fix);
  }

 private:
  const EntityModel& entity_;
  FirstWith<std::string> written_;
  FirstWith<std::string> read_;
  FirstWith<std::string> any_;
};

void LintName(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& attribute = *field.attribute;
  const Spot spot = entity.At(field.element, {"name"});
  if (attribute.name.empty()) {
    findings.Add(rules::kEmptyName, spot, entity.Label(field.element) + " has an empty name",
                 "its value stands under an empty key", "give it a name");
  }
  if (IsWritable(attribute) && attribute.name.find('\0') != std::string::npos) {
    findings.Add(rules::kNulInName, spot, Quoted(attribute.name) + " holds a NUL",
                 "encoding looks for its value under " + Quoted(attribute.name.c_str()), "remove the NUL");
  }
  if (IsAlertOrFault(attribute) && attribute.display_name.empty()) {
    findings.Add(rules::kEmptyName, entity.At(field.element, {"display_name"}),
                 entity.Label(field.element) + " has an empty display name",
                 "it stands under an empty key, and the application gets it without a name", "give it a display name");
  }
}

void LintKey(const EntityModel& entity, const Field& field, const Field& same, Findings& findings) {
  if (!IsAlertOrFault(*field.attribute) && !IsAlertOrFault(*same.attribute)) return;  // two equal names
  findings.Add(rules::kKeyCollision,
               entity.At(field.element, {IsAlertOrFault(*field.attribute) ? "display_name" : "name"}),
               fmt::format("{} and {} are both {} in the decoded document", LabelOf(entity, field),
                           LabelOf(entity, same), Quoted(DocumentKey(*field.attribute))),
               "the later one replaces the earlier one, which the application never sees",
               "give each alert and fault a display name that is neither another's nor the name of an attribute");
}

}  // namespace

void LintNames(const EntityModel& entity, Findings& findings) {
  NamesSoFar names(entity);
  FirstWith<std::string> keys;
  FirstWith<int32_t> ids;
  for (const Field* field : entity.Fields()) {
    LintName(entity, *field, findings);
    names.Add(*field, findings);
    const bool isRead = entity.Read(field->element) != nullptr;
    const Field* sameKey = isRead ? keys.Add(DocumentKey(*field->attribute), *field) : nullptr;
    if (sameKey != nullptr) LintKey(entity, *field, *sameKey, findings);
    const int32_t id = field->attribute->id;
    if (const Field* sameId = ids.Add(id, *field)) {
      findings.Add(rules::kDuplicateId, entity.At(field->element, {"id"}),
                   fmt::format("{} has the id {} as well", LabelOf(entity, *sameId), id),
                   "none: the id is not looked at", "give each attribute its own id");
    }
  }
}

}  // namespace morvix::inspect
