#include "inspect/model/EntityModel.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/Logging.h"
#include "inspect/json/Scan.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Similar.h"

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
  const Json::Value* member = value->isObject() ? value->find(name.data(), name.data() + name.size()) : nullptr;
  return member == nullptr ? *this : Spot{member, pointer + json::PointerToken(name)};
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
  Spot spot = {elements_[element].json, spot_.pointer + "/attrs/" + std::to_string(element)};
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

std::string MeantArray(const Json::Value& object, const std::string& name) {
  std::vector<std::string> arrays;
  for (const std::string& member : object.getMemberNames()) {
    const Json::Value& value = object[member];
    if (value.isArray() && !value.empty() && value[0].isObject()) arrays.push_back(member);
  }
  const std::string similar = SimilarName(name, object.getMemberNames());
  return !similar.empty() ? similar : arrays.size() == 1 ? arrays[0] : "";
}

bool IsDeviceList(const Json::Value& root) {
  if (root.isObject()) return root["devices"].isArray() && !root.isMember("entities");
  if (!root.isArray() || !root[0].isObject()) return false;
  return root[0].isMember("protocolType") || root[0].isMember("packetVersion") || root[0].isMember("product_key");
}

const Json::Value& EntitiesOf(const json::Document& configuration) {
  const Json::Value& root = configuration.Root();
  if (root.isObject() && root["entities"].isArray()) return root["entities"];
  if (IsDeviceList(root)) {
    throw InputError(configuration.PlaceName(root) + ": expected a configuration, not a device list; see dp4 devices");
  }
  const std::string meant = root.isObject() && !root.isMember("entities") ? MeantArray(root, "entities") : "";
  throw InputError(configuration.PlaceName(root) + ": expected an object with an array \"entities\"" +
                   (meant.empty() ? "" : "; rename " + InQuotes(meant) + " to \"entities\""));
}

namespace {

// An entity as a list of them names it: kettle (0)
std::string ChoiceText(const std::string& name, int32_t id) { return fmt::format("{} ({})", NameText(name), id); }

// The one entity of those that a choice fits.
const Json::Value& OnlyOne(const json::Document& configuration, const std::string& choice,
                           const std::vector<const Json::Value*>& fitting, const char* kind) {
  if (fitting.size() == 1) return *fitting[0];
  std::vector<std::string> places;
  for (const Json::Value* entity : fitting) {
    std::string name;
    int32_t id = 0;
    static_cast<void>(ProtocolGetAttrString_4_0(*entity, "name", name));
    static_cast<void>(ProtocolGetAttrInteger_4_0(*entity, "id", id));
    places.push_back(configuration.PlaceName(*entity) + " " + ChoiceText(name, id));
  }
  throw InputError(fmt::format("{}: {} entities have the {} {}: {}; give each its own", Escaped(configuration.Name()),
                               fitting.size(), kind, InQuotes(choice), fmt::join(places, ", ")));
}

}  // namespace

const Json::Value& ChooseEntity(const json::Document& configuration, const std::string& choice) {
  const Json::Value& all = EntitiesOf(configuration);
  if (all.empty()) throw InputError(configuration.PlaceName(all) + ": expected an entity, found none");
  if (choice.empty() && all.size() == 1) return all[0];
  std::vector<std::string> known;
  std::vector<const Json::Value*> byName;
  std::vector<const Json::Value*> byId;
  for (const Json::Value& entity : all) {
    int32_t id = 0;
    std::string name;
    const bool hasId = ProtocolGetAttrInteger_4_0(entity, "id", id);
    if (!ProtocolGetAttrString_4_0(entity, "name", name)) continue;
    if (!choice.empty() && name == choice) byName.push_back(&entity);
    if (!hasId) continue;
    if (std::to_string(id) == choice) byId.push_back(&entity);
    known.push_back(ChoiceText(name, id));
  }
  if (!byName.empty()) return OnlyOne(configuration, choice, byName, "name");
  if (!byId.empty()) return OnlyOne(configuration, choice, byId, "id");
  const std::string file = Escaped(configuration.Name());
  if (known.empty()) throw InputError(file + ": none of its entities has a name and an id; dp4 lint tells more");
  const std::string problem =
      choice.empty() ? "name one of the entities with --entity: " : "has no entity " + InQuotes(choice) + ", only ";
  throw InputError(fmt::format("{}: {}{}", file, problem, fmt::join(known, ", ")));
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
