#include "inspect/model/EntityModel.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/Logging.h"
#include "inspect/json/Scan.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

// The parser copies an enum's items to all later records, so a small configuration can need much memory.
void CheckItems(const Json::Value& entity) {
  constexpr uint64_t kMostItems = 20'000'000;
  uint64_t all = 0;
  uint64_t inherited = 0;
  for (const Json::Value& attribute : entity["attrs"]) {
    if (attribute.isObject() && attribute["enum"].isArray()) inherited = attribute["enum"].size();
    all += inherited;
  }
  if (all <= kMostItems) return;
  throw InputError(fmt::format(
      "the records of the entity would hold {} enum items, since every attribute inherits those of the last "
      "enum before it; expected at most {}",
      all, kMostItems));
}

// A copy of the entity with null for limits on which the parser throws; null makes it name the member instead.
Json::Value WithoutThrowingLimits(Json::Value entity) {
  for (Json::Value& attribute : entity["attrs"]) {
    if (!attribute.isObject() || !attribute["uint_spec"].isObject()) continue;
    for (const char* limit : {"min", "max"}) {
      Json::Value& value = attribute["uint_spec"][limit];
      if (value.isArray() || value.isObject()) value = Json::Value();
    }
  }
  return entity;
}

void AddFields(const ParsedElements& elements, Direction& direction) {
  for (Attribute& record : direction.records) {
    if (!IsEnum(record)) std::vector<std::string>().swap(record.enumList);  // inherited, but not used
  }
  direction.payloadBytes = ProtocolPayloadBytes_4_0(direction.records);
  direction.fields.reserve(direction.records.size());
  for (size_t i = 0; i < elements.size(); ++i) {
    if (elements[i].attribute == SIZE_MAX) continue;
    const Attribute& record = direction.records[elements[i].attribute];
    const BitRange place = Locate(record);
    const bool isInside = place.EndByte() <= direction.payloadBytes;
    direction.fields.push_back({&record, i, elements[i].attribute, isInside ? place : BitRange(), place});
  }
}

// The member that the parser did not find in a refused entity.
std::string MissingMember(const Json::Value& entity) {
  int32_t id = 0;
  std::string text;
  if (!entity.isObject()) return "";
  if (!ProtocolGetAttrInteger_4_0(entity, "id", id)) return "id";
  if (!ProtocolGetAttrString_4_0(entity, "name", text)) return "name";
  return ProtocolGetAttrString_4_0(entity, "display_name", text) ? "attrs" : "display_name";
}

}  // namespace

const Field* Direction::Of(size_t element) const {
  const auto isBefore = [](const Field& field, size_t index) { return field.element < index; };
  const auto found = std::lower_bound(fields.begin(), fields.end(), element, isBefore);
  return found != fields.end() && found->element == element ? &*found : nullptr;
}

Spot Spot::Member(const std::string& name) const {
  if (!value->isObject() || !value->isMember(name)) return *this;
  return {&(*value)[name], pointer + json::PointerToken(name)};
}

Spot Spot::Item(Json::ArrayIndex index) const { return {&(*value)[index], fmt::format("{}/{}", pointer, index)}; }

size_t FlagBytes(const Direction& writing) { return (writing.records.size() + 7) / 8; }

size_t FlagBit(const Direction& writing, size_t flag) { return 8 * FlagBytes(writing) - 1 - flag; }

// Logs the lines of the first of the two parses only. False when the entity is unusable.
bool EntityModel::ParseRecords(const Json::Value& entity, ParsedElements& read, ParsedElements& written) {
  if (!ProtocolParseEntity_4_0(entity, kAllGroups, reading_.records, info_, read)) return false;
  const LogCapture silent;
  return ProtocolParseEntity_4_0(entity, kWritableGroup, writing_.records, info_, written);
}

std::optional<EntityModel> EntityModel::Parse(const Json::Value& entity, std::string pointer, EntityFault& fault) {
  if (entity.isObject()) CheckItems(entity);
  EntityModel model;
  ParsedElements read;
  ParsedElements written;
  bool isUsable = false;
  try {
    isUsable = model.ParseRecords(entity, read, written);
  } catch (const Json::LogicError&) {
    const LogCapture silent;
    model = EntityModel();
    model.isThrowing_ = true;
    read.clear();
    written.clear();
    isUsable = model.ParseRecords(WithoutThrowingLimits(entity), read, written);
  }
  if (!isUsable) {
    fault.member = MissingMember(entity);
    fault.line = fault.member.empty() ? "Warning: Invalid entity." : "Warning: Can't find '" + fault.member + "' key.";
    return std::nullopt;
  }
  model.spot_ = {&entity, std::move(pointer)};
  AddFields(read, model.reading_);
  AddFields(written, model.writing_);
  model.elements_.reserve(read.size());
  for (size_t i = 0; i < read.size(); ++i) {
    const Json::Value& json = entity["attrs"][static_cast<Json::ArrayIndex>(i)];
    model.elements_.push_back({&json, read[i].invalid, written[i].invalid, read[i].type, read[i].data_type});
  }
  return model;
}

std::vector<const Field*> EntityModel::Fields() const {
  std::vector<const Field*> fields;
  for (size_t i = 0; i < elements_.size(); ++i) {
    const Field* read = Read(i);
    const Field* either = read != nullptr ? read : Written(i);
    if (either != nullptr) fields.push_back(either);
  }
  return fields;
}

Spot EntityModel::At(size_t element, const std::vector<std::string>& members) const {
  Spot spot = {elements_[element].json, fmt::format("{}/attrs/{}", spot_.pointer, element)};
  for (const std::string& member : members) spot = spot.Member(member);
  return spot;
}

std::string EntityModel::Label(size_t element) const {
  std::string name;
  if (!ProtocolGetAttrString_4_0(*elements_[element].json, "name", name) || name.empty()) {
    return fmt::format("attribute {}", element);
  }
  return Quoted(name);
}

const Json::Value& EntitiesOf(const json::Document& configuration) {
  const Json::Value& root = configuration.Root();
  if (!root.isObject() || !root["entities"].isArray()) {
    throw InputError(configuration.PlaceName(root) + ": expected an object with an array \"entities\"");
  }
  return root["entities"];
}

const Json::Value& ChooseEntity(const json::Document& configuration, const std::string& choice) {
  const Json::Value& all = EntitiesOf(configuration);
  if (all.empty()) throw InputError(configuration.PlaceName(all) + ": expected an entity, found none");
  std::vector<std::string> known;
  const Json::Value* byId = nullptr;
  for (const Json::Value& entity : all) {
    int32_t id = 0;
    std::string name;
    const bool hasId = ProtocolGetAttrInteger_4_0(entity, "id", id);
    if (!ProtocolGetAttrString_4_0(entity, "name", name)) continue;
    if (!choice.empty() && name == choice) return entity;
    if (!hasId) continue;
    if (byId == nullptr && std::to_string(id) == choice) byId = &entity;
    known.push_back(fmt::format("{} ({})", NameText(name), id));
  }
  if (byId != nullptr) return *byId;
  if (choice.empty() && all.size() == 1) return all[0];
  if (known.empty()) known = {"none"};
  const std::string problem =
      choice.empty() ? "name one of the entities with --entity: " : "has no entity " + InQuotes(choice) + ", only ";
  throw InputError(fmt::format("{}: {}{}", Escaped(configuration.Name()), problem, fmt::join(known, ", ")));
}

EntityModel ModelOf(const json::Document& configuration, const Json::Value& entity) {
  EntityFault fault;
  std::optional<EntityModel> model = EntityModel::Parse(entity, "", fault);
  std::string problem;
  if (!model) problem = "unusable entity: " + fault.line;
  if (model && model->IsThrowing()) problem = "a \"min\" or \"max\" is an array or object; a number was expected";
  if (!problem.empty()) throw InputError(configuration.PlaceName(entity) + ": " + problem);
  return std::move(*model);
}

BitRange Locate(const Attribute& attribute) {
  size_t firstBit = 0;
  size_t bitCount = 0;
  constexpr size_t kLongEnough = SIZE_MAX / 8;  // positions that wrap lie beyond it
  if (!ProtocolLocateAttribute_4_0(attribute, kLongEnough, firstBit, bitCount)) return {};
  return {firstBit, uint64_t{firstBit} + bitCount};
}

}  // namespace morvix::inspect
