#include "EntityView.h"

#include <algorithm>
#include <map>
#include <utility>

#include "Text.h"

namespace dp4 {

namespace {

// The entity with the index of each attribute as its id, which the parser passes on and otherwise has no use for: so
// its records can be told to belong to an attribute even where names repeat.
Json::Value WithIndexesAsIds(Json::Value entity) {
  if (!entity.isObject() || !entity["attrs"].isArray()) return entity;
  Json::Value& attributes = entity["attrs"];
  for (Json::ArrayIndex i = 0; i < attributes.size(); ++i) {
    int32_t id = 0;
    if (ProtocolGetAttrInteger_4_0(attributes[i], "id", id)) attributes[i]["id"] = static_cast<int32_t>(i);
  }
  return entity;
}

// The members at fault in the attributes that the parser drops, quoted and in the order of those.
std::vector<std::string> MembersAtFault(const std::vector<LoggedLine>& lines) {
  std::vector<std::string> members;
  for (const LoggedLine& line : lines) {
    const size_t begin = line.text.find('\'');
    const size_t end = line.text.find('\'', begin + 1);
    if (line.level == 1 && end != std::string::npos) members.push_back(line.text.substr(begin, end + 1 - begin));
  }
  return members;
}

using AttributesByIndex = std::map<size_t, MorvixProtocolAttribute_4_0>;

AttributesByIndex ByIndex(const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  AttributesByIndex byIndex;
  for (const MorvixProtocolAttribute_4_0& attribute : attributes) {
    byIndex.emplace(static_cast<size_t>(attribute.id), attribute);
  }
  return byIndex;
}

BitRange PlaceIn(size_t payloadBytes, const MorvixProtocolAttribute_4_0& attribute) {
  return FieldBits(attribute.position, attribute.data_type, payloadBytes);
}

// attrs[3] (mode)
std::string AttributeText(const Json::Value& attributes, size_t index) {
  std::string name;
  const bool isNamed = ProtocolGetAttrString_4_0(attributes[static_cast<Json::ArrayIndex>(index)], "name", name);
  return "attrs[" + std::to_string(index) + "]" + (isNamed ? " (" + Escaped(name) + ")" : "");
}

void AddAttributes(const AttributesByIndex& read, const AttributesByIndex& written, EntityView& view) {
  AttributesByIndex all = read;
  all.insert(written.begin(), written.end());
  for (const auto& [index, attribute] : all) {
    AttributeView attributeView;
    attributeView.attribute = attribute;
    attributeView.bits = PlaceIn(kMaxPayloadBytes, attribute);
    attributeView.isRead = read.count(index) != 0;
    const auto inWrite = written.find(index);
    attributeView.isWritten = inWrite != written.end();
    if (attributeView.isWritten) {
      attributeView.writtenBits = PlaceIn(std::min(view.writtenBytes, kMaxPayloadBytes), inWrite->second);
    }
    attributeView.flagBit = static_cast<size_t>(std::distance(written.begin(), inWrite));
    view.attributes.push_back(std::move(attributeView));
  }
}

// What sets decoding and encoding of one attribute apart; empty for nothing.
std::string DifferenceText(const AttributeView& view) {
  if (!view.isRead) return " can be written but not read: decoding drops it";
  if (!view.isWritten) {
    const bool isWritable = view.attribute.type == MorvixProtocolTypeStatusWritable_4_0;
    return isWritable ? " can be read but not written: encoding drops it; dp4 lint tells why" : "";
  }
  const BitRange& readAt = view.bits;
  const BitRange& writtenAt = view.writtenBits;
  if (readAt == writtenAt) return "";
  if (writtenAt.IsEmpty()) return " is read at " + PlaceText(readAt) + " but has no place in a write";
  if (readAt.IsEmpty()) return " is written at " + PlaceText(writtenAt) + " but has no place in what is read";
  return " is read at " + PlaceText(readAt) + " but written at " + PlaceText(writtenAt);
}

void AddNotes(const Json::Value& attributes, const std::vector<std::string>& membersAtFault, EntityView& view) {
  size_t dropped = 0;
  auto next = view.attributes.begin();
  for (Json::ArrayIndex i = 0; i < attributes.size(); ++i) {
    const bool isDropped = next == view.attributes.end() || static_cast<size_t>(next->attribute.id) != i;
    std::string reason;
    if ((isDropped || !next->isRead) && dropped < membersAtFault.size()) {
      reason = ", for its " + membersAtFault[dropped++];
    }
    const std::string difference = isDropped ? " is dropped" : DifferenceText(*next);
    if (!difference.empty()) view.notes.push_back(AttributeText(attributes, i).append(difference).append(reason));
    if (isDropped) continue;
    if (next->isRead && next->bits.EndByte() > view.payloadBytes) {
      view.notes.push_back(AttributeText(attributes, i) + " lies behind the payload and is read from longer ones only");
    }
    ++next;
  }
  if (view.payloadBytes > kMaxPayloadBytes) {
    view.notes.push_back("a packet carries at most " + std::to_string(kMaxPayloadBytes) + " bytes of payload");
  }
}

}  // namespace

std::string PlaceText(const BitRange& bits) {
  if (bits.IsEmpty()) return "nowhere";
  const bool isBytes = bits.begin % 8 == 0 && bits.end % 8 == 0;
  const auto placeOf = [isBytes](uint64_t bit) {
    return std::to_string(bit / 8) + (isBytes ? "" : "." + std::to_string(7 - bit % 8));
  };
  const std::string first = placeOf(bits.begin);
  const std::string last = placeOf(bits.end - 1);
  return first == last ? first : first + "-" + last;
}

EntityView ViewEntity(const JsonText& configuration, const Json::Value& entity, std::ostream* log) {
  const Json::Value numbered = WithIndexesAsIds(entity);
  const ParsedEntity read = ParseEntity(configuration, numbered, kAllGroups, log);
  const ParsedEntity written = ParseEntity(configuration, numbered, kWritable, nullptr);
  const AttributesByIndex readByIndex = ByIndex(read.attributes);
  const AttributesByIndex writtenByIndex = ByIndex(written.attributes);
  EntityView view;
  view.info = read.info;
  view.writtenBytes = PayloadLength(written.attributes).value_or(SIZE_MAX);
  view.payloadBytes = std::max(PayloadLength(read.attributes).value_or(SIZE_MAX), view.writtenBytes);
  AddAttributes(readByIndex, writtenByIndex, view);
  AddNotes(numbered["attrs"], MembersAtFault(read.lines), view);
  return view;
}

std::string EntityTitle(const EntityView& view) {
  return NameText(view.info.name) + " \"" + Escaped(view.info.display_name) + "\", id " + std::to_string(view.info.id);
}

std::string PayloadSummary(const EntityView& view) {
  const bool isCounted = view.payloadBytes != SIZE_MAX;
  const std::string payload =
      (isCounted ? Count(view.payloadBytes, "byte") : "more bytes than there is memory for") + " of payload";
  if (view.writtenBytes == 0) return payload + ", none in a write";
  if (view.writtenBytes == view.payloadBytes) return payload + ", all in a write";
  return payload + ", the first " + std::to_string(view.writtenBytes) + " in a write";
}

const char* GroupColor(MorvixProtocolType_4_0 group) {
  switch (group) {
    case MorvixProtocolTypeStatusWritable_4_0:
      return "32";
    case MorvixProtocolTypeStatusReadonly_4_0:
      return "36";
    case MorvixProtocolTypeAlert_4_0:
      return "33";
    default:
      return "31";
  }
}

}  // namespace dp4
