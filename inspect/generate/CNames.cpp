#include "inspect/generate/CNames.h"

#include <fmt/format.h>

#include <cctype>
#include <map>
#include <set>

#include "inspect/text/CSource.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

// Members of the two structs that would have one name. A has_ member stands only beside writable ones.
std::string CollisionOf(const std::vector<CAttribute>& attributes) {
  std::map<std::string, const CAttribute*> members;
  std::map<std::string, const CAttribute*> hasMembers;
  for (const CAttribute& attribute : attributes) {
    if (attribute.written != nullptr) hasMembers["has_" + attribute.member] = &attribute;
  }
  for (const CAttribute& attribute : attributes) {
    const auto [known, isNew] = members.emplace(attribute.member, &attribute);
    const auto has = hasMembers.find(attribute.member);
    const CAttribute* other = !isNew ? known->second : has != hasMembers.end() ? has->second : nullptr;
    if (other == nullptr || (isNew && attribute.written == nullptr)) continue;
    return fmt::format("the attributes {} and {} would both have the member {} in C; rename one of them",
                       InQuotes(other->Record().name), InQuotes(attribute.Record().name), attribute.member);
  }
  return "";
}

// Constants of items that would be called like another constant get their index.
void NameItems(CNames& names) {
  std::map<std::string, int> uses;
  // The source's own: of a device "write" an item "bytes" of "packet" would be one of them.
  for (const char* fixed : {"WRITE_REQUEST", "READ_RESPONSE", "SUB_DEVICE_WRITE_REQUEST", "SUB_DEVICE_READ_REQUEST",
                            "SUB_DEVICE_REMOVE_REQUEST", "SUB_DEVICE_BYTES", "WRITE_PACKET_BYTES"}) {
    ++uses[fixed];
  }
  for (const char* fixed : {"_PAYLOAD_BYTES", "_WRITE_BYTES", "_FLAG_BYTES", "_MAX_PACKET_BYTES", "_H"}) {
    ++uses[names.constants + fixed];
  }
  for (CAttribute& attribute : names.attributes) {
    if (IsNumber(attribute.Record())) {
      for (const char* fixed : {"_MIN", "_MAX", "_RATIO", "_ADDITION"}) ++uses[attribute.constant + fixed];
    }
    if (!IsEnum(attribute.Record())) continue;
    for (const std::string& item : attribute.Record().enumList) {
      attribute.items.push_back(attribute.constant + '_' + CConstant(item));
      ++uses[attribute.items.back()];
    }
  }
  for (CAttribute& attribute : names.attributes) {
    for (size_t i = 0; i < attribute.items.size(); ++i) {
      std::string& item = attribute.items[i];
      if (uses[item] == 1) continue;
      do {
        item += fmt::format("_{}", i);
      } while (uses[item] != 0);
      ++uses[item];
    }
  }
}

}  // namespace

CNames NamesFor(const EntityModel& entity, const std::string& prefix, std::string& problem) {
  if (!prefix.empty() && !IsCIdentifier(prefix)) {
    throw InputError("--prefix " + InQuotes(prefix) + ": expected an identifier of C");
  }
  CNames names;
  const std::string& name = prefix.empty() ? entity.Info().name : prefix;
  names.prefix = prefix.empty() ? CIdentifier(name) : prefix;
  names.constants = CConstant(name);
  if (std::isdigit(static_cast<unsigned char>(names.constants[0])) != 0) names.constants.insert(0, 1, '_');
  for (const Field& field : entity.Reading().fields) {
    const std::string& attribute = field.attribute->name;
    names.attributes.push_back({&field,
                                entity.Written(field.element),
                                CIdentifier(attribute),
                                names.constants + '_' + CConstant(attribute),
                                {}});
  }
  problem = CollisionOf(names.attributes);
  if (problem.empty()) NameItems(names);
  return names;
}

}  // namespace morvix::inspect
