// Duplicate and empty names, keys and ids of attributes.

#include <fmt/format.h>

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

// The first attribute with each name, key or id.
template <typename Name>
using Firsts = std::unordered_map<Name, const Field*>;

// The earlier attribute with this name; null when this is the first.
template <typename Name>
const Field* Add(Firsts<Name>& firsts, const Name& name, const Field& field) {
  const auto [first, isNew] = firsts.emplace(name, &field);
  return isNew ? nullptr : first->second;
}

std::string LabelOf(const EntityModel& entity, const Field& field) {
  return fmt::format("{} ({}, attribute {})", entity.Label(field.element), GroupName(field.attribute->type),
                     field.element);
}

void LintName(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& attribute = *field.attribute;
  if (attribute.name.empty()) {
    findings.Add(rules::kEmptyName, entity.At(field.element, {"name"}),
                 entity.Label(field.element) + " has an empty name", "its value stands under an empty key",
                 "give it a name");
  }
  if (IsWritable(attribute) && attribute.name.find('\0') != std::string::npos) {
    findings.Add(rules::kNulInName, entity.At(field.element, {"name"}), Quoted(attribute.name) + " holds a NUL",
                 "encoding looks for its value under " + Quoted(attribute.name.c_str()), "remove the NUL");
  }
  if (IsAlertOrFault(attribute) && attribute.display_name.empty()) {
    findings.Add(rules::kEmptyName, entity.At(field.element, {"display_name"}),
                 entity.Label(field.element) + " has an empty display name",
                 "it stands under an empty key, and the application gets it without a name", "give it a display name");
  }
}

// Earlier attributes with the same name: among all that are written, among the states that are read, and among all.
struct SameName {
  const Field* written;
  const Field* read;
  const Field* any;
};

void LintSameName(const EntityModel& entity, const Field& field, const SameName& same, Findings& findings) {
  const Field* other = same.written != nullptr ? same.written : same.read != nullptr ? same.read : same.any;
  if (other == nullptr) return;
  std::vector<std::string> effects;
  if (same.written != nullptr) effects.emplace_back("one value in a document is written to both");
  if (same.read != nullptr) effects.emplace_back("the decoded document holds the later one only");
  const Rule& rule = effects.empty() ? rules::kSharedName : rules::kDuplicateName;
  if (effects.empty()) {
    const bool isByDisplayName = IsAlertOrFault(*field.attribute) || IsAlertOrFault(*other->attribute);
    effects.emplace_back(isByDisplayName ? "none: alerts and faults go by their display names"
                                         : "none: one is only written, the other only read");
  }
  findings.Add(rule, entity.At(field.element, {"name"}),
               fmt::format("{} has the name {} as well", LabelOf(entity, *other), Quoted(field.attribute->name)),
               fmt::format("{}", fmt::join(effects, "; ")), "give each attribute its own name");
}

// `same` is an earlier attribute with the same key in the decoded document, or null.
void LintKey(const EntityModel& entity, const Field& field, const Field* same, Findings& findings) {
  const bool isByDisplayName = IsAlertOrFault(*field.attribute);
  if (same == nullptr || (!isByDisplayName && !IsAlertOrFault(*same->attribute))) return;  // or two equal names
  findings.Add(rules::kKeyCollision, entity.At(field.element, {isByDisplayName ? "display_name" : "name"}),
               fmt::format("{} and {} are both {} in the decoded document", LabelOf(entity, field),
                           LabelOf(entity, *same), Quoted(DocumentKey(*field.attribute))),
               "the later one replaces the earlier one, which the application never sees",
               "give each alert and fault a display name that is neither another's nor the name of an attribute");
}

// For a key that is not UTF-8: whether another one becomes the same when it is written.
void LintRepairedKey(const EntityModel& entity, const Field& field, Firsts<std::string>& repairedKeys,
                     Findings& findings) {
  const std::string& key = DocumentKey(*field.attribute);
  const std::string written = json::CompactText(key);
  const Field* same = Add(repairedKeys, written, field);
  if (same == nullptr || DocumentKey(*same->attribute) == key) return;
  findings.Add(rules::kNamesBecomeOne,
               entity.At(field.element, {IsAlertOrFault(*field.attribute) ? "display_name" : "name"}),
               fmt::format("{} and {} both become {} in the application's text", LabelOf(entity, field),
                           LabelOf(entity, *same), Escaped(written)),
               "the later one replaces the earlier one, which the application never sees", "save the file as UTF-8");
}

}  // namespace

void LintNames(const EntityModel& entity, Findings& findings) {
  const std::vector<const Field*> fields = entity.Fields();
  Firsts<std::string_view> writtenNames;
  Firsts<std::string_view> readNames;
  Firsts<std::string_view> names;
  Firsts<std::string_view> keys;
  Firsts<int32_t> ids;
  Firsts<std::string> repairedKeys;
  for (auto* firsts : {&writtenNames, &readNames, &names, &keys}) firsts->reserve(fields.size());
  ids.reserve(fields.size());
  for (const Field* field : fields) {
    const Attribute& attribute = *field->attribute;
    const bool isWritten = entity.Written(field->element) != nullptr;
    const bool isRead = entity.Read(field->element) != nullptr;
    LintName(entity, *field, findings);
    const std::string_view name = attribute.name;
    const SameName same = {isWritten ? Add(writtenNames, name, *field) : nullptr,
                           isRead && !IsAlertOrFault(attribute) ? Add(readNames, name, *field) : nullptr,
                           Add(names, name, *field)};
    LintSameName(entity, *field, same, findings);
    const std::string_view key = DocumentKey(attribute);
    LintKey(entity, *field, isRead ? Add(keys, key, *field) : nullptr, findings);
    if (isRead && !IsUtf8(key)) LintRepairedKey(entity, *field, repairedKeys, findings);
    const Field* sameId = Add(ids, attribute.id, *field);
    if (sameId == nullptr) continue;
    findings.Add(rules::kDuplicateId, entity.At(field->element, {"id"}),
                 fmt::format("{} has the id {} as well", LabelOf(entity, *sameId), attribute.id),
                 "none: the id is ignored", "give each attribute its own id");
  }
}

}  // namespace morvix::inspect
