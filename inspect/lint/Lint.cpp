#include "inspect/lint/Lint.h"

#include <fmt/format.h>

#include <map>

#include "inspect/json/Scan.h"
#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

void LintRepeated(const json::Document& document, Findings& findings) {
  for (const json::RepeatedMember& member : json::FindRepeatedMembers(document.Text())) {
    findings.Add({&rules::kRepeatedMember, member.offset, member.pointer, Quoted(member.name) + " stands here again",
                  "the earlier value is ignored", "remove one of the two"});
  }
}

void AddUnusableEntity(const Json::Value& entity, const std::string& pointer, const EntityFault& fault,
                       Findings& findings) {
  Spot spot{&entity, pointer};
  std::string message = "the entity is not an object";
  std::string fix = "make it an object, or remove it";
  if (!fault.member.empty()) {
    const bool isMissing = !entity.isMember(fault.member);
    if (!isMissing) spot = {&entity[fault.member], pointer + "/" + fault.member};
    const char* needed = fault.member == "id" ? "an integer" : fault.member == "attrs" ? "an array" : "a string";
    message = fmt::format("the entity is unusable: {} is {}{}", Quoted(fault.member), isMissing ? "missing" : "not ",
                          isMissing ? "" : needed);
    fix = fmt::format("give {} as {}", Quoted(fault.member), needed);
  }
  findings.Add(
      rules::kEntityUnusable, spot, message,
      fmt::format("every encode and decode of it logs \"{}\" and \"Get entity info failed.\", and does nothing",
                  fault.line),
      fix);
}

// The names and ids of the entities so far, each with the pointer of the first that has it.
struct KnownEntities {
  std::map<std::string, std::string> names;
  std::map<int32_t, std::string> ids;
};

void LintEntityNames(const EntityModel& entity, KnownEntities& known, Findings& findings) {
  const std::string& name = entity.Info().name;
  const int32_t id = entity.Info().id;
  const Spot spot{&entity.Json()["name"], entity.Pointer() + "/name"};
  const auto sameName = known.names.emplace(name, entity.Pointer());
  if (!sameName.second) {
    findings.Add(rules::kDuplicateEntity, spot,
                 fmt::format("the entity at {} is called {} as well", sameName.first->second, Quoted(name)),
                 "their values share one object in all documents; where names are equal, the later value wins",
                 "give each entity its own name");
  }
  const auto sameId = known.ids.emplace(id, entity.Pointer());
  if (!sameId.second) {
    findings.Add(rules::kDuplicateId, {&entity.Json()["id"], entity.Pointer() + "/id"},
                 fmt::format("the entity at {} has the id {} as well", sameId.first->second, id),
                 "none: the id is not looked at", "give each entity its own id");
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

void LintUsableEntity(const EntityModel& entity, const LintChoices& choices, Findings& findings) {
  LintDropped(entity, findings);
  const bool isEmpty = entity.Reading().fields.empty() && entity.Writing().fields.empty();
  if (isEmpty && !entity.IsThrowing()) {
    findings.Add(rules::kNoAttributes, {&entity.Json()["attrs"], entity.Pointer() + "/attrs"},
                 "the entity " + Quoted(entity.Info().name) + " has no usable attribute",
                 "encoding logs \"No data will encode.\", decoding gives nothing",
                 "add attributes, or remove the entity");
  }
  LintNames(entity, findings);
  LintFields(entity, findings);
  LintOverlaps(entity, findings);
  LintGroups(entity, findings);
  LintNumbers(entity, findings);
  LintEnums(entity, findings);
  LintAlerts(entity, findings);
  if (choices.roundtrip) LintRoundtrip(entity, findings);
}

void LintEntities(const json::Document& document, const LintChoices& choices, Findings& findings) {
  const Json::Value* chosen = choices.entity.empty() ? nullptr : &ChooseEntity(document, choices.entity);
  const Json::Value& entities = document.Root()["entities"];
  if (entities.empty()) {
    findings.Add(rules::kNoEntities, {&entities, "/entities"}, "there is no entity",
                 "nothing can be encoded or decoded", "add an entity");
  }
  KnownEntities known;
  for (Json::ArrayIndex i = 0; i < entities.size(); ++i) {
    if (chosen != nullptr && chosen != &entities[i]) continue;
    const std::string pointer = fmt::format("/entities/{}", i);
    EntityFault fault;
    const std::optional<EntityModel> entity = EntityModel::Parse(entities[i], pointer, fault);
    if (entity) {
      LintMembers(*entity, findings);
      LintEntityNames(*entity, known, findings);
      LintUsableEntity(*entity, choices, findings);
    } else {
      LintEntityMembers(entities[i], pointer, findings);
      AddUnusableEntity(entities[i], pointer, fault, findings);
    }
  }
}

void LintConfiguration(const json::Document& document, const LintChoices& choices, Findings& findings) {
  const Json::Value& root = document.Root();
  if (root.isObject() && root["entities"].isArray()) return LintEntities(document, choices, findings);
  Spot spot{&root, ""};
  std::string message = "the configuration is not an object";
  std::string fix = "start with {\"entities\": [...]}";
  if (root.isObject()) {
    const bool isMissing = !root.isMember("entities");
    if (!isMissing) spot = {&root["entities"], "/entities"};
    message = isMissing ? "the configuration has no 'entities'" : "'entities' is not an array";
    const std::string similar = isMissing ? SimilarName("entities", root.getMemberNames()) : "";
    fix = similar.empty() ? "list the entities in an array 'entities'" : "rename " + Quoted(similar) + " to 'entities'";
  }
  findings.Add(rules::kNoConfiguration, spot, message, "nothing can be encoded or decoded", fix);
}

}  // namespace

std::vector<Finding> Lint(const std::string& name, const std::string& text, Severity least,
                          const LintChoices& choices) {
  constexpr size_t kMaxError = 200;
  Findings findings(LintRules(), least);
  json::SyntaxError error;
  const std::optional<json::Document> document = json::Document::Read(name, text, error);
  if (document) {
    LintRepeated(*document, findings);
    LintConfiguration(*document, choices, findings);
  } else {
    findings.Add({&rules::kJsonSyntax, json::OffsetOf(text, error.place), "",
                  "not JSON: " + Escaped(error.message.substr(0, kMaxError)), "the configuration cannot be loaded",
                  "correct the JSON"});
  }
  return findings.Sorted();
}

}  // namespace morvix::inspect
