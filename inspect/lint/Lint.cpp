#include "inspect/lint/Lint.h"

#include <fmt/format.h>

#include <map>

#include "inspect/json/Scan.h"
#include "inspect/lint/Checks.h"
#include "inspect/lint/Members.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

void AddUnusableEntity(const Spot& entity, const EntityFault& fault, Findings& findings) {
  std::string message = "the entity is not an object";
  std::string fix = "make it an object, or remove it";
  if (!fault.member.empty()) {
    const char* needed = fault.member == "id" ? "an integer" : fault.member == "attrs" ? "an array" : "a string";
    const std::string problem = entity.value->isMember(fault.member) ? std::string("not ") + needed : "missing";
    message = fmt::format("the entity is unusable: {} is {}", Quoted(fault.member), problem);
    fix = fmt::format("give {} as {}", Quoted(fault.member), needed);
    const bool isMissing = fault.member == "attrs" && !entity.value->isMember("attrs");
    const std::string meant = isMissing ? MeantArray(*entity.value, "attrs") : "";
    if (!meant.empty()) fix = "rename " + Quoted(meant) + " to 'attrs'";
  }
  findings.Add(
      rules::kEntityUnusable, entity.Member(fault.member), message,
      fmt::format("every encode and decode of it logs \"{}\" and \"Get entity info failed.\", and does nothing",
                  fault.line),
      fix);
}

// The names and ids of the entities so far, each with the JSON pointer of the first entity that has it.
struct KnownEntities {
  std::map<std::string, std::string> names;
  std::map<int32_t, std::string> ids;
};

void LintEntityNames(const EntityModel& entity, KnownEntities& known, Findings& findings) {
  const std::string& name = entity.Info().name;
  const int32_t id = entity.Info().id;
  const Spot spot = entity.At().Member("name");
  const auto [sameName, isNewName] = known.names.emplace(name, entity.At().pointer);
  if (!isNewName) {
    findings.Add(rules::kDuplicateEntity, spot,
                 fmt::format("the entity at {} is called {} as well", sameName->second, Quoted(name)),
                 "their values share one object in all documents; where names are equal, the later value wins",
                 "give each entity its own name");
  }
  const auto [sameId, isNewId] = known.ids.emplace(id, entity.At().pointer);
  if (!isNewId) {
    findings.Add(rules::kDuplicateId, entity.At().Member("id"),
                 fmt::format("the entity at {} has the id {} as well", sameId->second, id), "none: the id is ignored",
                 "give each entity its own id");
  }
  if (name == "version") {
    findings.Add(rules::kEntityVersion, spot, "the entity is called 'version'",
                 "the version of the receive document overwrites its values; none of them reaches the application",
                 "choose another name");
  }
  if (name.empty()) {
    findings.Add(rules::kEmptyName, spot, "the entity's name is empty", "its values stand under an empty key",
                 "give it a name");
  }
}

void LintUsableEntity(const EntityModel& entity, bool withRoundtrip, Findings& findings) {
  LintDropped(entity, findings);
  if (entity.Fields().empty() && !entity.IsThrowing()) {
    findings.Add(rules::kNoAttributes, entity.At().Member("attrs"),
                 "the entity " + Quoted(entity.Info().name) + " has no usable attribute",
                 "encoding logs \"No data will encode.\", decoding gives nothing",
                 "add attributes, or remove the entity");
  }
  for (const auto lint : {LintNames, LintFields, LintOverlaps, LintGroups, LintNumbers, LintEnums, LintAlerts}) {
    lint(entity, findings);
  }
  if (withRoundtrip) LintRoundtrip(entity, findings);
}

void LintEntities(const json::Document& document, const LintChoices& choices, Findings& findings) {
  const Json::Value* chosen = choices.entity.empty() ? nullptr : &ChooseEntity(document, choices.entity);
  const Spot entities = Spot{&document.Root(), ""}.Member("entities");
  if (entities.value->empty()) {
    findings.Add(rules::kNoEntities, entities, "there is no entity", "nothing can be encoded or decoded",
                 "add an entity");
  }
  KnownEntities known;
  for (Json::ArrayIndex i = 0; i < entities.value->size(); ++i) {
    const Spot spot = entities.Item(i);
    if (chosen != nullptr && chosen != spot.value) continue;
    LintEntityMembers(spot, findings);
    EntityFault fault;
    const std::optional<EntityModel> entity = EntityModel::Parse(*spot.value, spot.pointer, fault);
    if (entity) {
      LintAttributeMembers(*entity, findings);
      LintEntityNames(*entity, known, findings);
      LintUsableEntity(*entity, choices.roundtrip, findings);
    } else {
      AddUnusableEntity(spot, fault, findings);
    }
  }
}

// Hosts find a product's devices by their packet version.
void LintPacketVersion(const Spot& root, Findings& findings) {
  if (!root.value->isObject() || !root.value->isMember("packetVersion")) return;
  dword version = 0;
  if (ProtocolGetAttrHex_4_0(*root.value, "packetVersion", version)) return;
  const Spot spot = root.Member("packetVersion");
  findings.Add(rules::kVersionNeverMatches, spot,
               "'packetVersion' is " + Described(*spot.value) + ", which is not read as a version",
               "no query for devices by protocol and packet version gives this product",
               "write a string of 0x and hexadecimal digits, like \"0x4\"");
}

// A departure from strict JSON is told once, where it first occurs.
void LintText(const json::TextScan& scan, Findings& findings) {
  const auto add = [&](json::Laxity laxity, const Rule& rule, const char* what, const char* effect, const char* fix) {
    const json::TextScan::Seen& seen = scan.Of(laxity);
    if (seen.count == 0) return;
    const std::string others = seen.count == 1 ? "" : fmt::format(", and {} more", seen.count - 1);
    findings.Add({&rule, seen.first, "", what + others, effect, fix});
  };
  constexpr char kUnreadable[] = "the module takes it, but a strict reader refuses the whole file";
  using json::Laxity;
  add(Laxity::kComment, rules::kNotStrictJson, "a comment, which JSON does not have", kUnreadable,
      "remove it, or move it into a member whose name begins with x-");
  add(Laxity::kTrailingComma, rules::kNotStrictJson, "a comma after the last member or element", kUnreadable,
      "remove it");
  add(Laxity::kNumber, rules::kNotStrictJson, "a number in a form that JSON does not have", kUnreadable,
      "write it without leading zeros or signs, and with digits on both sides of a point");
  add(Laxity::kControlCharacter, rules::kNotStrictJson, "a raw control character in a string", kUnreadable,
      "write it as an escape, like \\n");
  add(Laxity::kSurrogate, rules::kNotStrictJson, "half of a surrogate pair", kUnreadable, "write the whole character");
  add(Laxity::kNotUtf8, rules::kNotUtf8, "a byte that is not UTF-8",
      "a strict reader refuses the file, and documents have a replacement character in its place",
      "save the file as UTF-8");
}

void LintConfiguration(const json::Document& document, const LintChoices& choices, Findings& findings) {
  const Json::Value& root = document.Root();
  LintPacketVersion({&root, ""}, findings);
  if (root.isObject() && root["entities"].isArray()) return LintEntities(document, choices, findings);
  std::string message = "the configuration is not an object";
  std::string fix = "start with {\"entities\": [...]}";
  if (root.isObject()) {
    const bool isMissing = !root.isMember("entities");
    message = isMissing ? "the configuration has no 'entities'" : "'entities' is not an array";
    const std::string meant = isMissing ? MeantArray(root, "entities") : "";
    fix = meant.empty() ? "list the entities in an array 'entities'" : "rename " + Quoted(meant) + " to 'entities'";
  }
  if (IsDeviceList(root)) fix = "this is a device list: use dp4 devices, or give lint a configuration";
  findings.Add(rules::kNoConfiguration, Spot{&root, ""}.Member("entities"), message,
               "nothing can be encoded or decoded", fix);
}

}  // namespace

LintResult Lint(const std::string& name, const std::string& text, Severity least, const LintChoices& choices) {
  constexpr size_t kMaxError = 200;
  Findings findings(LintRules(), least, choices.disabled);
  const auto result = [&findings] { return LintResult{findings.Sorted(), findings.LessSevere(), findings.Disabled()}; };
  json::SyntaxError error;
  const std::optional<json::Document> document = json::Document::Read(name, text, error);
  if (!document) {
    findings.Add({&rules::kJsonSyntax, json::OffsetOf(text, error.place), "",
                  "not JSON: " + Escaped(error.message.substr(0, kMaxError)), "the configuration cannot be loaded",
                  "correct the JSON here or just before"});
    return result();
  }
  const json::TextScan scan = json::Scan(text);
  LintText(scan, findings);
  for (const json::RepeatedMember& member : scan.repeated) {
    findings.Add({&rules::kRepeatedMember, member.offset, member.pointer, "duplicate member " + Quoted(member.name),
                  "the earlier value is ignored", "remove one of the two"});
  }
  LintConfiguration(*document, choices, findings);
  return result();
}

}  // namespace morvix::inspect
