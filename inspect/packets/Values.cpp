#include "inspect/packets/Values.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "inspect/json/Scan.h"
#include "inspect/packets/Packet.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

// Why an element is not written.
std::string ReasonOf(const Element& element, bool isRead) {
  if (!isRead) return "is not usable; dp4 lint tells why";
  if (element.IsWritable()) return "is dropped by encoding; dp4 lint tells why";
  return std::string("is not written, its group is ") + GroupName(element.group);
}

std::vector<std::string> EntityNames(const json::Document& configuration) {
  std::vector<std::string> names;
  for (const Json::Value& entity : EntitiesOf(configuration)) {
    std::string name;
    if (ProtocolGetAttrString_4_0(entity, "name", name)) names.push_back(name);
  }
  return names;
}

// Whether decoding made this document of a packet; its values are a member then.
bool IsRecord(const json::Document& document, const std::vector<std::string>& entities) {
  const Json::Value& root = document.Root();
  if (!root.isObject() || !root.isMember("command") || Contains(entities, "command")) return false;
  return root["values"].isObject() || root["command"].isIntegral();
}

// Whether all of the text is a number, with any blanks before it.
bool IsNumberText(const std::string& text) {
  char* end = nullptr;
  const bool isNumber = !std::isnan(std::strtod(text.c_str(), &end));
  return isNumber && !text.empty() && end == text.c_str() + text.size();
}

Given GivenAt(const json::Document& document, const Json::Value& value) {
  const size_t start = json::OffsetOf(value);
  return {document.PlaceName(value),
          document.Text().substr(start, static_cast<size_t>(value.getOffsetLimit()) - start)};
}

MorvixProtocolCommand_4_0 CommandOf(const json::Document& document) {
  const Json::Value& command = document.Root()["command"];
  switch (command.isInt() ? command.asInt() : 0) {
    case MorvixProtocolCommandWriteReq_4_0:
    case MorvixProtocolCommandReadResp_4_0:
    case MorvixProtocolCommandNotifyResp_4_0:
    case MorvixProtocolCommandCCWriteReq_4_0:
      return static_cast<MorvixProtocolCommand_4_0>(command.asInt());
    default:
      break;
  }
  const char* name = command.isUInt() ? CommandName(command.asUInt()) : nullptr;
  throw InputError(document.PlaceName(command) + ": " +
                   (name != nullptr ? fmt::format("a {} has no values; see dp4 request", name)
                                    : "expected 1 (write), 3 (read-response), 4 (notify) or 7 (cc-write)"));
}

}  // namespace

std::string GivenValues::KeyOf(const Attribute& attribute) const {
  if (isReading_) return std::to_string(&attribute - direction_.records.data());
  return attribute.name.substr(0, attribute.name.find('\0'));
}

void GivenValues::Set(const Attribute& attribute, Json::Value value, const Given& given) {
  const std::string key = KeyOf(attribute);
  document_[entityName_][key] = std::move(value);
  given_[key] = given;
}

void GivenValues::Remove(const Attribute& attribute) {
  const std::string key = KeyOf(attribute);
  document_[entityName_].removeMember(key);
  given_.erase(key);
}

const Json::Value* GivenValues::Of(const Attribute& attribute) const {
  const std::string key = KeyOf(attribute);
  return given_.count(key) == 0 ? nullptr : &document_[entityName_][key];
}

RecordHead HeadOf(const json::Document& configuration, const json::Document& document) {
  if (!IsRecord(document, EntityNames(configuration))) return {};
  RecordHead head;
  head.command = CommandOf(document);
  if (!document.Root().isMember("subDevice")) return head;
  const Json::Value& id = document.Root()["subDevice"];
  if (!id.isInt() && !id.isUInt()) {
    throw InputError(document.PlaceName(id) + ": expected the id of a sub-device, an integer of 32 bits");
  }
  head.subDevice = static_cast<int32_t>(id.asInt64());
  return head;
}

Values::Values(const json::Document& configuration, const EntityModel& entity, const Direction& direction)
    : GivenValues(entity, direction), entities_(EntityNames(configuration)) {
  // A name is first that of a status, then that of an alert or fault, and last a key of documents: a display name, or a
  // name with a NUL.
  std::map<std::string, Attributes> named;
  for (const Attribute& attribute : direction.records) {
    names_.emplace_back(attribute.name.c_str());
    told_[{attribute.type, DocumentKey(attribute)}] = &attribute;
    keyed_[DocumentKey(attribute)].push_back(&attribute);
    (IsAlertOrFault(attribute) ? named : attributes_)[names_.back()].push_back(&attribute);
  }
  attributes_.merge(named);
  attributes_.insert(keyed_.begin(), keyed_.end());
  for (const bool isRead : {false, true}) {  // an attribute that is read is worth more than one that is not
    for (size_t i = 0; i < entity.Elements().size(); ++i) {
      const Element& element = entity.Elements()[i];
      const Field* read = entity.Read(i);
      std::string name;
      if ((read != nullptr) != isRead || !ProtocolGetAttrString_4_0(*element.json, "name", name)) continue;
      if (isRead) name = name.c_str();
      if (attributes_.count(name) == 0) others_[name] = ReasonOf(element, isRead);
      if (!isRead || element.IsWritable()) continue;
      const std::string& key = DocumentKey(*read->attribute);
      readOnly_.insert({name, key});
      others_.emplace(key, ReasonOf(element, isRead));
    }
  }
}

void Values::TakeDocument(const json::Document& document) {
  const std::string entity = InQuotes(EntityName());
  for (const json::RepeatedMember& member : json::FindRepeatedMembers(document.Text())) {
    AddProblem(document.PlaceName(member.offset) + ": " + InQuotes(member.name) +
               " stands here again; the earlier value is not used");
  }
  const Json::Value* root = &document.Root();
  const bool isRecord = IsRecord(document, entities_);
  if (isRecord) root = &(*root)["values"];
  if (!root->isObject()) throw InputError(document.PlaceName(*root) + ": expected an object {" + entity + ": {...}}");
  for (const std::string& name : root->getMemberNames()) {
    if (Contains(entities_, name) || name == "version") continue;
    AddProblem(document.PlaceName((*root)[name]) + ": " + InQuotes(name) + " names no entity" +
               KnownNames(name, entities_));
  }
  if (!root->isMember(EntityName())) return;
  const Json::Value& given = (*root)[EntityName()];
  if (!given.isObject()) {
    // The version takes the place of an entity of this name.
    if (EntityName() == "version" && given.isNumeric()) return;
    throw InputError(document.PlaceName(given) + ": expected an object with the values of " + entity);
  }
  for (const std::string& key : given.getMemberNames()) {
    const Json::Value& member = given[key];
    const bool isItem = member.isObject() && member.isMember("type") && member.isMember("value");
    const Json::Value& value = isItem ? member["value"] : member;
    const auto told = isItem && member["type"].isInt() ? told_.find({member["type"].asInt(), key}) : told_.end();
    const auto meant = isRecord ? attributes_.find(key) : attributes_.end();
    if (told != told_.end()) {
      TakeDecoded(*told->second, value, GivenAt(document, value));
    } else if (meant != attributes_.end()) {
      TakeDecoded(*meant->second.back(), value, GivenAt(document, value));
    } else if (!isItem || readOnly_.count(key) == 0) {
      Take(key, value, GivenAt(document, value));
    }
  }
  if (!isRecord || !IsReading()) return;
  TakeListed(document, "alerts", MorvixProtocolTypeAlert_4_0);
  TakeListed(document, "faults", MorvixProtocolTypeFault_4_0);
}

// Takes the alerts or faults of a record, which go by their keys.
void Values::TakeListed(const json::Document& document, const char* member, Group group) {
  const Json::Value& list = document.Root()[member];
  if (!list.isObject() && !list.isNull()) {
    throw InputError(document.PlaceName(list) + ": expected an object with the values of " + member);
  }
  std::vector<std::string> known;
  for (const Attribute& attribute : GivenDirection().records) {
    if (attribute.type == group) known.push_back(DocumentKey(attribute));
  }
  for (const std::string& key : list.getMemberNames()) {
    const Json::Value& value = list[key];
    const auto told = told_.find({group, key});
    if (told != told_.end()) {
      TakeDecoded(*told->second, value, GivenAt(document, value));
    } else {
      AddProblem(fmt::format("{}: {} is none of the {} of {}{}", document.PlaceName(value), InQuotes(key), member,
                             InQuotes(EntityName()), KnownNames(key, known)));
    }
  }
}

// Of the attributes of one key, a decoded document has the value of the last one that was told. A write has one value
// for all of a name.
void Values::CheckKeys() {
  for (const auto& [key, attributes] : keyed_) {
    if (attributes.size() == 1) continue;
    const auto isDecoded = [this](const Attribute* one) { return decoded_.count(one) != 0; };
    const auto decoded = std::find_if(attributes.begin(), attributes.end(), isDecoded);
    const auto hasValue = [this](const Attribute* one) { return Of(*one) != nullptr; };
    if (decoded == attributes.end()) continue;
    if (IsReading() && std::all_of(attributes.begin(), attributes.end(), hasValue)) continue;
    const std::string source = Of(**decoded) == nullptr ? "" : SourceOf(**decoded).source + ": ";
    AddProblem(fmt::format("{}{} stands for {} attributes, and the document has the value of one only", source,
                           InQuotes(key), attributes.size()));
  }
}

void Values::CheckNotes(const json::Document& document) {
  CheckKeys();
  if (!IsRecord(document, entities_)) return;
  std::map<std::string, Attributes> named;
  for (const Attribute& attribute : GivenDirection().records) named[attribute.name.c_str()].push_back(&attribute);
  for (const Json::Value& note : document.Root()["notes"]) {
    if (!note.isObject() || !note["kind"].isString()) continue;
    const std::string place = document.PlaceName(note) + ": ";
    const auto meant = note["name"].isString() ? named.find(note["name"].asString()) : named.end();
    const auto isMissing = [this](const Attribute* attribute) { return Of(*attribute) == nullptr; };
    if (meant != named.end() && std::any_of(meant->second.begin(), meant->second.end(), isMissing)) {
      AddProblem(fmt::format("{}{} has no value, it was {} in the packet", place, InQuotes(meant->first),
                             Escaped(note["kind"].asString())));
    } else if (!note.isMember("name") && IsReading()) {
      AddProblem(fmt::format("{}the {} bytes of the packet are left out", place, Escaped(note["kind"].asString())));
    }
  }
}

bool Values::IsKnown(const std::string& name) const {
  return attributes_.count(name) != 0 || readOnly_.count(name) != 0;
}

void Values::TakeSetting(const std::string& setting) {
  size_t equals = setting.find('=');
  // A name can have an "=" itself: of several that are known the longest is meant.
  for (size_t at = equals; at != std::string::npos; at = setting.find('=', at + 1)) {
    if (IsKnown(setting.substr(0, at))) equals = at;
  }
  const std::string source = "--set " + Shortened(Escaped(setting), 60);
  if (equals == std::string::npos) throw InputError(source + ": expected NAME=VALUE");
  const std::string name = setting.substr(0, equals);
  const std::string text = setting.substr(equals + 1);
  const auto attributes = attributes_.find(name);
  const bool isKnown = attributes != attributes_.end();
  const bool isEnum = isKnown && IsEnum(*attributes->second.front());
  Json::Value value;
  json::SyntaxError notJson;
  const bool isJson = json::ReadStrict(text, value, notJson);
  if (!isJson || (isEnum && !value.isString())) value = text;
  if (isKnown || readOnly_.count(name) == 0) return Take(name, value, {source, text});
  AddProblem(source + ": " + UnknownText(name));
}

void Values::TakeDecoded(const Attribute& attribute, const Json::Value& value, const Given& given) {
  TakeFor(attribute, value, given);
  decoded_.insert(&attribute);
}

void Values::Take(const std::string& name, const Json::Value& value, const Given& given) {
  const auto attributes = attributes_.find(name);
  if (attributes != attributes_.end()) {
    for (const Attribute* attribute : attributes->second) {
      decoded_.erase(attribute);
      // A write has one value for all of them.
      if (IsReading() || attribute == attributes->second.front()) TakeFor(*attribute, value, given);
    }
  } else if (readOnly_.count(name) == 0) {
    AddProblem(given.source + ": " + UnknownText(name));
  }
}

void Values::TakeFor(const Attribute& attribute, Json::Value value, const Given& given) {
  if (IsEnum(attribute) && !ReplaceItem(attribute, value, given.source)) return;
  // The module would take the number with which a text begins, and a NaN; null it leaves out as it does other texts.
  if (IsNumber(attribute) && value.isString() && !IsNumberText(value.asString())) value = Json::nullValue;
  Set(attribute, std::move(value), given);
}

// Replaces an enum's item by its index. False when there is no such item, or more than one.
bool Values::ReplaceItem(const Attribute& attribute, Json::Value& value, const std::string& source) {
  const std::string text = value.isString() ? value.asString() : "0";
  const bool isIndex = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  if (isIndex) return true;
  std::vector<std::string> indices;
  for (size_t i = 0; i < attribute.enumList.size(); ++i) {
    if (attribute.enumList[i] != text) continue;
    indices.push_back(std::to_string(i));
    value = static_cast<Json::Int>(i);
  }
  if (indices.size() == 1) return true;
  const std::string name = source + ": " + InQuotes(attribute.name);
  AddProblem(indices.empty() ? name + " has no item " + InQuotes(text) + KnownNames(text, attribute.enumList)
                             : name + " has several items " + InQuotes(text) + "; expected one of the indices " +
                                   Series(indices, "or"));
  return false;
}

std::string Values::UnknownText(const std::string& name) const {
  const auto other = others_.find(name);
  if (other != others_.end()) return InQuotes(name) + " " + other->second;
  return InQuotes(name) + " names no attribute of " + InQuotes(EntityName()) + KnownNames(name, names_);
}

}  // namespace morvix::inspect
