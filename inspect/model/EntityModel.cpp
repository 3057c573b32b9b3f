#include "inspect/model/EntityModel.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/Logging.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

using ParsedElements = std::vector<MorvixProtocolElement_4_0>;

// The parser hands an enum's items on to all later records, so that a small text can ask for many.
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

// The entity with nulls for limits on which the parser throws: it names those instead.
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
    if (!IsEnum(record)) std::vector<std::string>().swap(record.enumList);  // inherited, and of no use to it
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

// What the parser gives for the two directions.
struct ParsedDirections {
  MorvixProtocolEntity_4_0 info;
  Direction reading;
  Direction writing;
  ParsedElements read;
  ParsedElements written;
};

// The lines of the first of the two walks are logged. Nothing when the entity is unusable.
std::optional<ParsedDirections> ParseBoth(const Json::Value& entity) {
  ParsedDirections parsed;
  std::vector<Attribute>& read = parsed.reading.records;
  if (!ProtocolParseEntity_4_0(entity, kAllGroups, read, parsed.info, parsed.read)) return std::nullopt;
  const LogCapture silent;
  std::vector<Attribute>& written = parsed.writing.records;
  if (!ProtocolParseEntity_4_0(entity, kWritableGroup, written, parsed.info, parsed.written)) return std::nullopt;
  return parsed;
}

// The member that the parser did not find in an entity that it refused.
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

size_t FlagBytes(const Direction& writing) { return (writing.records.size() + 7) / 8; }

size_t FlagBit(const Direction& writing, size_t flag) { return 8 * FlagBytes(writing) - 1 - flag; }

std::optional<EntityModel> EntityModel::Parse(const Json::Value& entity, std::string pointer, EntityFault& fault) {
  if (entity.isObject()) CheckItems(entity);
  std::optional<ParsedDirections> parsed;
  bool isThrowing = false;
  try {
    parsed = ParseBoth(entity);
  } catch (const Json::LogicError&) {
    isThrowing = true;
    const LogCapture silent;
    parsed = ParseBoth(WithoutThrowingLimits(entity));
  }
  if (!parsed) {
    fault.member = MissingMember(entity);
    fault.line = fault.member.empty() ? "Warning: Invalid entity." : "Warning: Can't find '" + fault.member + "' key.";
    return std::nullopt;
  }
  EntityModel model;
  model.json_ = &entity;
  model.pointer_ = std::move(pointer);
  model.info_ = std::move(parsed->info);
  model.isThrowing_ = isThrowing;
  model.reading_ = std::move(parsed->reading);
  model.writing_ = std::move(parsed->writing);
  AddFields(parsed->read, model.reading_);
  AddFields(parsed->written, model.writing_);
  model.elements_.reserve(parsed->read.size());
  for (size_t i = 0; i < parsed->read.size(); ++i) {
    const MorvixProtocolElement_4_0& read = parsed->read[i];
    const Json::Value& json = entity["attrs"][static_cast<Json::ArrayIndex>(i)];
    model.elements_.push_back({&json, read.invalid, parsed->written[i].invalid, read.type, read.data_type});
  }
  return model;
}

std::vector<const Field*> EntityModel::Fields() const {
  std::vector<const Field*> fields;
  auto read = reading_.fields.begin();
  auto written = writing_.fields.begin();
  for (size_t i = 0; i < elements_.size(); ++i) {
    const bool isRead = read != reading_.fields.end() && read->element == i;
    const bool isWritten = written != writing_.fields.end() && written->element == i;
    if (isRead || isWritten) fields.push_back(isRead ? &*read : &*written);
    if (isRead) ++read;
    if (isWritten) ++written;
  }
  return fields;
}

Spot EntityModel::At(size_t element, std::initializer_list<const char*> members) const {
  Spot spot{elements_[element].json, fmt::format("{}/attrs/{}", pointer_, element)};
  for (const char* member : members) {
    if (!spot.value->isObject() || !spot.value->isMember(member)) break;
    spot.value = &(*spot.value)[member];
    spot.pointer += std::string("/") + member;
  }
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
  std::string known;
  const Json::Value* byId = nullptr;
  for (const Json::Value& entity : all) {
    int32_t id = 0;
    std::string name;
    const bool hasId = ProtocolGetAttrInteger_4_0(entity, "id", id);
    if (!ProtocolGetAttrString_4_0(entity, "name", name)) continue;
    if (!choice.empty() && name == choice) return entity;
    if (!hasId) continue;
    if (byId == nullptr && std::to_string(id) == choice) byId = &entity;
    known += fmt::format("{}{} ({})", known.empty() ? "" : ", ", NameText(name), id);
  }
  if (byId != nullptr) return *byId;
  if (choice.empty() && all.size() == 1) return all[0];
  const std::string problem =
      choice.empty() ? "name one of the entities with --entity: " : "has no entity " + InQuotes(choice) + ", only ";
  throw InputError(Escaped(configuration.Name()) + ": " + problem + (known.empty() ? "none" : known));
}

EntityModel ModelOf(const json::Document& configuration, const Json::Value& entity) {
  EntityFault fault;
  std::optional<EntityModel> model = EntityModel::Parse(entity, "", fault);
  if (!model) throw InputError(configuration.PlaceName(entity) + ": unusable entity: " + fault.line);
  if (model->IsThrowing()) {
    throw InputError(configuration.PlaceName(entity) +
                     ": a \"min\" or \"max\" is an array or object; a number was expected");
  }
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
