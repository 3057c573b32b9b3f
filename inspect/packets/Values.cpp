#include "inspect/packets/Values.h"

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

Values::Values(const json::Document& configuration, const EntityModel& entity) : entityName_(entity.Info().name) {
  for (const Json::Value& other : EntitiesOf(configuration)) {
    std::string name;
    if (ProtocolGetAttrString_4_0(other, "name", name)) entities_.push_back(name);
  }
  for (const Attribute& attribute : entity.Writing().records) writable_.emplace_back(attribute.name.c_str());
  for (const bool isRead : {false, true}) {  // the reason for a readable attribute wins over that for a dropped one
    for (size_t i = 0; i < entity.Elements().size(); ++i) {
      const Element& element = entity.Elements()[i];
      std::string name;
      if ((entity.Read(i) != nullptr) != isRead || !ProtocolGetAttrString_4_0(*element.json, "name", name)) continue;
      if (isRead) name = name.c_str();
      if (!Contains(writable_, name)) others_[name] = ReasonOf(element, isRead);
    }
  }
}

void Values::TakeDocument(const json::Document& document) {
  const Json::Value& root = document.Root();
  const std::string entity = InQuotes(entityName_);
  if (!root.isObject()) throw InputError(document.PlaceName(root) + ": expected an object {" + entity + ": {...}}");
  document_ = root;
  for (const json::RepeatedMember& member : json::FindRepeatedMembers(document.Text())) {
    unused_.push_back(document.PlaceName(member.offset) + ": " + InQuotes(member.name) +
                      " is repeated; the earlier value is not used");
  }
  for (const std::string& name : root.getMemberNames()) {
    // A decoded document carries the protocol's version.
    if (Contains(entities_, name) || name == "version") continue;
    unused_.push_back(document.PlaceName(root[name]) + ": " + InQuotes(name) + " names no entity" +
                      DidYouMean(name, entities_));
  }
  if (!root.isMember(entityName_)) return;
  const Json::Value& given = root[entityName_];
  if (!given.isObject()) {
    throw InputError(document.PlaceName(given) + ": expected an object with the values of " + entity);
  }
  for (const std::string& name : given.getMemberNames()) {
    const Json::Value& value = given[name];
    const std::string source = document.PlaceName(value);
    if (Contains(writable_, name)) {
      const size_t start = json::OffsetOf(value);
      given_[name] = {source, document.Text().substr(start, static_cast<size_t>(value.getOffsetLimit()) - start)};
    } else {
      unused_.push_back(source + ": " + UnusedText(name));
    }
  }
}

void Values::TakeSetting(const std::string& setting) {
  const size_t equals = setting.find('=');
  const std::string source = "--set " + Shortened(Escaped(setting), 60);
  if (equals == std::string::npos) throw InputError(source + ": expected NAME=VALUE");
  const std::string name = setting.substr(0, equals);
  if (!Contains(writable_, name)) throw InputError(source + ": " + UnusedText(name));
  const std::string text = setting.substr(equals + 1);
  Json::Value& value = document_[entityName_][name];
  json::SyntaxError notJson;
  if (!json::ReadStrict(text, value, notJson)) value = text;
  given_[name] = {source, text};
}

const Json::Value* Values::Of(const Attribute& attribute) const {
  const std::string name = attribute.name.c_str();
  return given_.count(name) == 0 ? nullptr : &document_[entityName_][name];
}

std::string Values::UnusedText(const std::string& name) const {
  const auto other = others_.find(name);
  if (other != others_.end()) return InQuotes(name) + " " + other->second;
  return InQuotes(name) + " names no attribute of " + InQuotes(entityName_) + DidYouMean(name, writable_);
}

}  // namespace morvix::inspect
