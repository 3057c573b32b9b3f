#include "inspect/packets/Values.h"

#include <utility>

#include "inspect/json/Scan.h"
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

}  // namespace

void GivenValues::Set(const std::string& name, Json::Value value, const Given& given) {
  document_[entityName_][name] = std::move(value);
  given_[name] = given;
}

const Json::Value* GivenValues::Of(const Attribute& attribute) const {
  const std::string name = attribute.name.c_str();
  return given_.count(name) == 0 ? nullptr : &document_[entityName_][name];
}

Values::Values(const json::Document& configuration, const EntityModel& entity, const Direction& direction)
    : GivenValues(entity.Info().name) {
  for (const Json::Value& other : EntitiesOf(configuration)) {
    std::string name;
    if (ProtocolGetAttrString_4_0(other, "name", name)) entities_.push_back(name);
  }
  for (const Attribute& attribute : direction.records) {
    names_.emplace_back(attribute.name.c_str());
    attributes_.emplace(names_.back(), &attribute);
  }
  for (const Attribute& attribute : direction.records) {
    if (attributes_.count(DocumentKey(attribute)) == 0) keys_.emplace(DocumentKey(attribute), attribute.name.c_str());
  }
  for (const bool isRead : {false, true}) {  // an attribute that is read is worth more than one that is not
    for (size_t i = 0; i < entity.Elements().size(); ++i) {
      const Element& element = entity.Elements()[i];
      const Field* read = entity.Read(i);
      std::string name;
      if ((read != nullptr) != isRead || !ProtocolGetAttrString_4_0(*element.json, "name", name)) continue;
      if (isRead) name = name.c_str();
      if (attributes_.count(name) != 0) continue;
      others_[name] = ReasonOf(element, isRead);
      if (isRead && !element.IsWritable()) readOnly_.insert({name, DocumentKey(*read->attribute)});
    }
  }
}

void Values::TakeDocument(const json::Document& document) {
  const std::string entity = InQuotes(entityName_);
  for (const json::RepeatedMember& member : json::FindRepeatedMembers(document.Text())) {
    problems_.push_back(document.PlaceName(member.offset) + ": " + InQuotes(member.name) +
                        " stands here again; the earlier value is not used");
  }
  const Json::Value* root = &document.Root();
  // A result of decoding, whose values are the document.
  const bool isResult = root->isObject() && root->isMember("command") && (*root)["values"].isObject();
  if (isResult && !Contains(entities_, "command")) root = &(*root)["values"];
  if (!root->isObject()) throw InputError(document.PlaceName(*root) + ": expected an object {" + entity + ": {...}}");
  for (const std::string& name : root->getMemberNames()) {
    if (Contains(entities_, name) || name == "version") continue;
    problems_.push_back(document.PlaceName((*root)[name]) + ": " + InQuotes(name) + " names no entity" +
                        KnownNames(name, entities_));
  }
  if (!root->isMember(entityName_)) return;
  const Json::Value& given = (*root)[entityName_];
  if (!given.isObject()) {
    // The version takes the place of an entity of this name.
    if (entityName_ == "version" && given.isNumeric()) return;
    throw InputError(document.PlaceName(given) + ": expected an object with the values of " + entity);
  }
  for (const std::string& name : given.getMemberNames()) {
    const bool isItem = given[name].isObject() && given[name].isMember("type") && given[name].isMember("value");
    const Json::Value& value = isItem ? given[name]["value"] : given[name];
    const size_t start = json::OffsetOf(value);
    Take(name, value,
         {document.PlaceName(value),
          document.Text().substr(start, static_cast<size_t>(value.getOffsetLimit()) - start)});
  }
}

void Values::TakeSetting(const std::string& setting) {
  const size_t equals = setting.find('=');
  const std::string source = "--set " + Shortened(Escaped(setting), 60);
  if (equals == std::string::npos) throw InputError(source + ": expected NAME=VALUE");
  const std::string name = setting.substr(0, equals);
  const std::string text = setting.substr(equals + 1);
  const auto attribute = attributes_.find(name);
  const bool isEnum = attribute != attributes_.end() && IsEnum(*attribute->second);
  Json::Value value;
  json::SyntaxError notJson;
  const bool isJson = json::ReadStrict(text, value, notJson);
  if (!isJson || (isEnum && !value.isString())) value = text;
  if (attribute != attributes_.end() || readOnly_.count(name) == 0) return Take(name, value, {source, text});
  problems_.push_back(source + ": " + UnknownText(name));
}

void Values::Take(const std::string& name, Json::Value value, const Given& given) {
  const auto key = keys_.find(name);
  const std::string& taken = key == keys_.end() ? name : key->second;
  const auto attribute = attributes_.find(taken);
  if (attribute == attributes_.end()) {
    if (readOnly_.count(name) == 0) problems_.push_back(given.source + ": " + UnknownText(name));
    return;
  }
  if (IsEnum(*attribute->second) && !ReplaceItem(*attribute->second, value, given.source)) return;
  Set(taken, std::move(value), given);
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
  problems_.push_back(indices.empty() ? name + " has no item " + InQuotes(text) + KnownNames(text, attribute.enumList)
                                      : name + " has several items " + InQuotes(text) +
                                            "; expected one of the indices " + Series(indices, "or"));
  return false;
}

std::string Values::UnknownText(const std::string& name) const {
  const auto other = others_.find(name);
  if (other != others_.end()) return InQuotes(name) + " " + other->second;
  return InQuotes(name) + " names no attribute of " + InQuotes(entityName_) + KnownNames(name, names_);
}

}  // namespace morvix::inspect
