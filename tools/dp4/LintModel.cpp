#include "LintModel.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "Similar.h"

namespace dp4 {

namespace {

const char kEntity[] = "entity";
const char kEndOfPayload[] = "end of payload";

constexpr int64_t kRawBits = 52;  // of the largest raw value of a number

// The attributes of an entity with what decides how they are parsed, and with their index as the id. Limits on which
// the parser would throw are nulls, which it names instead; and of items there is one at most, since every later
// attribute inherits them.
Json::Value TaggedEntity(const Json::Value& entity) {
  Json::Value tagged(Json::objectValue);
  for (const char* member : {"id", "name", "display_name"}) {
    if (entity.isMember(member)) tagged[member] = entity[member];
  }
  if (!entity["attrs"].isArray()) return tagged;
  Json::Value& attrs = tagged["attrs"] = Json::Value(Json::arrayValue);
  for (const Json::Value& attr : entity["attrs"]) {
    const auto index = static_cast<int>(attrs.size());
    Json::Value& copy = attrs.append(attr.isObject() ? Json::objectValue : Json::nullValue);
    if (!attr.isObject()) continue;
    for (const char* member : {"name", "display_name", "desc", "type", "data_type", "position", "uint_spec"}) {
      if (attr.isMember(member)) copy[member] = attr[member];
    }
    int32_t id = 0;
    if (ProtocolGetAttrInteger_4_0(attr, "id", id)) copy["id"] = index;
    if (attr["uint_spec"].isObject()) {
      for (const char* limit : {"min", "max"}) {
        const Json::Value& value = attr["uint_spec"][limit];
        if (value.isArray() || value.isObject()) copy["uint_spec"][limit] = Json::Value();
      }
    }
    const Json::Value& items = attr["enum"];
    if (items.isArray() && !items.empty()) copy["enum"].append("item");
  }
  return tagged;
}

// An entity with one attribute that lacks nothing, for asking the parser about one of its members.
Json::Value CompleteEntity() {
  Json::Value entity;
  entity["id"] = 0;
  entity["name"] = entity["display_name"] = "";
  Json::Value& attr = entity["attrs"].append(Json::objectValue);
  attr["id"] = 0;
  attr["name"] = attr["display_name"] = attr["desc"] = "";
  attr["type"] = "status_writable";
  attr["data_type"] = "binary";
  Json::Value& position = attr["position"];
  position["byte_offset"] = position["bit_offset"] = 0;
  position["unit"] = "byte";
  position["len"] = 1;
  Json::Value& uintSpec = attr["uint_spec"];
  uintSpec["min"] = uintSpec["addition"] = 0;
  uintSpec["max"] = uintSpec["ratio"] = 1;
  attr["enum"].append("item");
  return entity;
}

std::vector<Attribute> ParseQuietly(const Json::Value& entity) {
  const LogGatherer silent;
  MorvixProtocolEntity_4_0 info;
  std::vector<Attribute> attributes;
  if (!ProtocolParseEntity_4_0(entity, kAllGroups, attributes, info)) attributes.clear();
  return attributes;
}

// The members that the parser names in its lines.
std::vector<std::string> DroppedMembers(const std::vector<LoggedLine>& lines) {
  std::vector<std::string> members;
  for (const LoggedLine& line : lines) {
    const size_t begin = line.text.find('\'');
    const size_t end = line.text.find('\'', begin + 1);
    if (line.function != "FilterConfigType" || end == std::string::npos) continue;
    members.push_back(line.text.substr(begin + 1, end - begin - 1));
  }
  return members;
}

// What the parser makes of one keyword of an attribute, whatever else is wrong with that.
Attribute ParsedWith(const char* member, const Json::Value& attr) {
  Json::Value entity = CompleteEntity();
  entity["attrs"][0][member] = attr[member];
  const std::vector<Attribute> parsed = ParseQuietly(entity);
  Attribute unknown;
  return parsed.empty() ? unknown : parsed[0];
}

}  // namespace

bool IsIdentity(const std::string& member) {
  static const char* const kMembers[] = {"attr", "id", "name", "display_name", "desc", "type", "data_type"};
  return std::find(std::begin(kMembers), std::end(kMembers), member) != std::end(kMembers);
}

namespace {

// A bit field's place depends on where its group ends and on its offset from there, so that whole bytes above and below
// it can be taken from the group.
constexpr int64_t kGroupBytes = 10;

// What is longer than this is refused, however long it is.
constexpr int32_t kLongestBits = 65;
constexpr int32_t kLongestBytes = 65536;

bool IsInBytes(const Position& position) { return position.unit == MorvixProtocolUnitByte_4_0; }

// Others are refused wherever they are. A bit offset of -1 passes, as the bit behind its group.
bool IsShiftable(const Position& position) {
  if (IsInBytes(position)) return position.byte_offset >= 0;
  return position.bit_offset >= -1 && int64_t{position.bit_offset} < static_cast<int64_t>(position.groupByteLength) * 8;
}

int64_t GroupEnd(const Position& position) {
  return int64_t{position.byte_offset} + static_cast<int64_t>(position.groupByteLength) - position.bit_offset / 8;
}

// The first byte that the field can touch, or 0, and the byte behind the last one.
int64_t FirstByte(const Position& position) {
  return std::max<int64_t>(IsInBytes(position) ? position.byte_offset : GroupEnd(position) - kGroupBytes, 0);
}

int64_t EndByte(const Position& position) {
  if (IsInBytes(position)) return int64_t{position.byte_offset} + std::min(position.len, kLongestBytes);
  return GroupEnd(position) + (position.bit_offset < 0 ? 1 : 0);
}

void Shift(Position& position, int64_t shift) {
  if (IsInBytes(position)) {
    position.byte_offset = static_cast<int32_t>(position.byte_offset - shift);
    position.bit_offset = 0;
    position.len = std::min(position.len, kLongestBytes);
    return;
  }
  const int64_t end = GroupEnd(position);
  const int64_t bytes = std::min<int64_t>(end - position.byte_offset, kGroupBytes);
  position.byte_offset = static_cast<int32_t>(end - bytes - shift);
  position.groupByteLength = static_cast<size_t>(bytes);
  position.bit_offset %= 8;
  position.len = std::min(position.len, kLongestBits);
}

}  // namespace

std::string UpToNul(const std::string& text) { return text.c_str(); }

bool IsWritable(const Attribute& attribute) { return attribute.type == MorvixProtocolTypeStatusWritable_4_0; }

bool IsNumber(const Attribute& attribute) { return ProtocolDataTypeIsUInt(attribute.data_type); }

bool IsAlertOrFault(const Attribute& attribute) {
  return attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
}

bool IsBitPacked(const Attribute& attribute) {
  return attribute.data_type == MorvixProtocolDataTypeBool_4_0 || attribute.data_type == MorvixProtocolDataTypeEnum_4_0;
}

bool IsInBits(const Attribute& attribute) { return attribute.position.unit == MorvixProtocolUnitBit_4_0; }

const std::vector<std::string>& KeywordsOf(const std::string& member) {
  static const std::vector<std::string> kTypes = {"status_writable", "status_readonly", "alert", "fault"};
  static const std::vector<std::string> kDataTypes = {"bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  static const std::vector<std::string> kUnits = {"byte", "bit"};
  return member == "type" ? kTypes : member == "data_type" ? kDataTypes : kUnits;
}

std::string MeantKeyword(const std::string& member, const Json::Value& value) {
  if (!value.isString()) return "";
  const std::vector<std::string>& known = KeywordsOf(member);
  const std::string keyword = UpToNul(value.asString());
  const bool isKnown = std::find(known.begin(), known.end(), keyword) != known.end();
  return isKnown ? "" : SimilarName(keyword, known);
}

bool LintEntity::Parse(std::ostream* log, std::string& reason) {
  LogGatherer gatherer(log);
  const Json::Value tagged = json.isObject() ? TaggedEntity(json) : Json::Value();
  if (!ProtocolParseEntity_4_0(tagged, kAllGroups, all, info)) {
    for (const LoggedLine& line : gatherer.Take()) reason = line.text;
    return false;
  }
  const std::vector<LoggedLine> reading = gatherer.Take();
  MorvixProtocolEntity_4_0 sameInfo;
  if (!ProtocolParseEntity_4_0(tagged, kWritable, writable, sameInfo)) return false;
  NoteDrops(reading, gatherer.Take());

  for (std::vector<Attribute>* attributes : {&all, &writable}) {
    for (Attribute& attribute : *attributes) {
      attribute.enumList.clear();
      if (attribute.data_type != MorvixProtocolDataTypeEnum_4_0) continue;
      attribute.enumList = ItemsOf((*elements[static_cast<size_t>(attribute.id)].json)["enum"]);
    }
  }
  const std::optional<size_t> ofAll = PayloadLength(all);
  const std::optional<size_t> ofWrite = PayloadLength(writable);
  readLength = ofAll.value_or(0);
  writeLength = ofWrite.value_or(0);
  isReadInMemory = ofAll.has_value();
  isWriteInMemory = ofWrite.has_value();
  return true;
}

void LintEntity::NoteDrops(const std::vector<LoggedLine>& reading, const std::vector<LoggedLine>& writing) {
  const Json::Value& attrs = json["attrs"];
  elements.resize(attrs.size());
  for (Json::ArrayIndex i = 0; i < attrs.size(); ++i) elements[i].json = &attrs[i];
  for (const Attribute& attribute : all) {
    Element& element = elements[static_cast<size_t>(attribute.id)];
    element.group = attribute.type;
    element.dataType = attribute.data_type;
  }
  std::vector<bool> isWritten(elements.size());
  for (const Attribute& attribute : writable) isWritten[static_cast<size_t>(attribute.id)] = true;

  // An element that did not become a record has a line; the lines stand in the order of the elements.
  const std::vector<std::string> onReading = DroppedMembers(reading);
  const std::vector<std::string> onWriting = DroppedMembers(writing);
  size_t nextReading = 0;
  size_t nextWriting = 0;
  for (size_t i = 0; i < elements.size(); ++i) {
    Element& element = elements[i];
    const bool isRead = element.group != MorvixProtocolTypeUnknown_4_0;
    if (!isRead) element.droppedOnReading = onReading.at(nextReading++);
    if (!isRead && element.json->isObject()) {
      element.group = ParsedWith("type", *element.json).type;
      element.dataType = ParsedWith("data_type", *element.json).data_type;
    }
    const bool isWanted = element.IsWritable() || IsIdentity(element.droppedOnReading);
    if (isWanted && !isWritten[i]) element.droppedOnWriting = onWriting.at(nextWriting++);
  }
}

Spot LintEntity::At(size_t element, std::initializer_list<const char*> members) const {
  Spot spot{elements[element].json, pointer + "/attrs/" + std::to_string(element)};
  for (const char* member : members) {
    if (!spot.value->isObject() || !spot.value->isMember(member)) break;
    spot.value = &(*spot.value)[member];
    spot.pointer += std::string("/") + member;
  }
  return spot;
}

std::string LintEntity::Label(size_t element) const {
  std::string name;
  if (!ProtocolGetAttrString_4_0(*elements[element].json, "name", name) || name.empty()) {
    return "attribute " + std::to_string(element);
  }
  return Quoted(name);
}

const Attribute* LintEntity::Record(const std::vector<Attribute>& attributes, size_t element) {
  const auto isBefore = [](const Attribute& attribute, size_t index) {
    return static_cast<size_t>(attribute.id) < index;
  };
  const auto found = std::lower_bound(attributes.begin(), attributes.end(), element, isBefore);
  return found != attributes.end() && static_cast<size_t>(found->id) == element ? &*found : nullptr;
}

std::vector<const Attribute*> LintEntity::Records() const {
  std::vector<const Attribute*> records;
  for (size_t i = 0; i < elements.size(); ++i) {
    const Attribute* read = ReadRecord(i);
    const Attribute* record = read != nullptr ? read : WriteRecord(i);
    if (record != nullptr) records.push_back(record);
  }
  return records;
}

std::vector<Attribute> LintEntity::WholeRecords() const {
  Json::Value whole = TaggedEntity(json);
  Json::Value& attrs = whole["attrs"];
  for (Json::ArrayIndex i = 0; i < attrs.size(); ++i) {
    if (elements[i].droppedOnReading.empty() || !elements[i].json->isObject()) continue;
    Json::Value complete = CompleteEntity()["attrs"][0];
    complete["id"] = static_cast<int>(i);
    for (const char* member : {"type", "data_type", "position"}) complete[member] = attrs[i][member];
    const auto mend = [](Json::Value& value, const char* member) {
      const std::string meant = MeantKeyword(member, value);
      if (!meant.empty()) value = meant;
    };
    mend(complete["type"], "type");
    mend(complete["data_type"], "data_type");
    if (complete["position"].isObject()) mend(complete["position"]["unit"], "unit");
    attrs[i] = std::move(complete);
  }
  return ParseQuietly(whole);
}

std::vector<std::string> ItemsOf(const Json::Value& member) {
  Json::Value entity = CompleteEntity();
  entity["attrs"][0]["data_type"] = "enum";
  entity["attrs"][0]["enum"] = member;
  std::vector<Attribute> parsed = ParseQuietly(entity);
  return parsed.empty() ? std::vector<std::string>() : std::move(parsed[0].enumList);
}

std::string BytesText(const BitRange& range) {
  const size_t first = range.FirstByte();
  const size_t last = range.EndByte() - 1;
  if (first == last) return "byte " + std::to_string(first);
  return "bytes " + std::to_string(first) + (last == first + 1 ? " and " : " to ") + std::to_string(last);
}

std::string BitsText(const BitRange& range) {
  if (range.EndByte() - range.FirstByte() > 1 || range.Length() == 8) return BytesText(range);
  const uint64_t highest = 7 - range.begin % 8;
  const uint64_t lowest = 7 - (range.end - 1) % 8;
  const std::string bits = highest == lowest ? "bit " + std::to_string(highest)
                                             : "bits " + std::to_string(highest) +
                                                   (highest == lowest + 1 ? " and " : " to ") + std::to_string(lowest);
  return bits + " of " + BytesText(range);
}

std::string Listed(const std::vector<std::string>& labels, size_t count) {
  constexpr size_t kShown = 4;
  const size_t shown = count <= kShown + 1 ? count : kShown;
  std::string listed;
  for (size_t i = 0; i < shown; ++i) {
    const bool isLast = i + 1 == count;
    listed += (i == 0 ? "" : isLast ? " and " : ", ") + labels[i];
  }
  if (shown < count) listed += " and " + std::to_string(count - shown) + " more";
  return listed;
}

Window WindowOn(const std::vector<Attribute>& fields, size_t payloadLength) {
  Window window{fields, 0, 1};
  const auto isShiftable = [](const Attribute& field) { return IsShiftable(field.position); };
  if (payloadLength == 0 || !std::all_of(fields.begin(), fields.end(), isShiftable)) return window;
  const auto length = static_cast<int64_t>(payloadLength);
  int64_t shift = length - 1;
  int64_t end = 1;
  for (const Attribute& field : fields) {
    shift = std::min(shift, FirstByte(field.position));
    end = std::max(end, EndByte(field.position));
  }
  for (Attribute& field : window.fields) Shift(field.position, shift);
  window.shift = static_cast<size_t>(shift);
  window.length = static_cast<size_t>(std::max<int64_t>(std::min(length, end) - shift, 1));
  return window;
}

BitRange Locate(const Attribute& field, size_t payloadLength) {
  if (payloadLength == 0 || !IsShiftable(field.position)) return {};
  const Window window = WindowOn({field}, payloadLength);
  Attribute moved = window.fields[0];
  const int32_t bytes = moved.position.len;
  const bool isLong = IsInBytes(moved.position) && bytes > 8;
  if (isLong) {
    // Not to be asked bit by bit: whether the module takes it, and where it begins.
    const bool isBinary = field.data_type == MorvixProtocolDataTypeBinary_4_0;
    Json::Value values;
    values["field"] = "";
    const Attribute probe = isBinary ? Keyed(moved, "field") : OpenField(moved, "field");
    if (EncodeFields({probe}, values, window.length).payload.empty()) return {};
    moved.position.len = 1;
    moved.data_type = MorvixProtocolDataTypeUInt8_4_0;
  }
  const size_t length = std::max(window.length, PayloadLength({moved}).value_or(0));
  BitRange range = FieldBits(moved.position, moved.data_type, length);
  if (range.IsEmpty()) return range;
  if (isLong) range.end = range.begin + 8 * static_cast<uint64_t>(bytes);
  range.begin += uint64_t{8} * window.shift;
  range.end += uint64_t{8} * window.shift;
  return range;
}

std::string ShortestText(double number) {
  char text[32];
  const std::to_chars_result result = std::to_chars(std::begin(text), std::end(text), number);
  return std::string(std::begin(text), result.ptr);
}

Attribute Keyed(const Attribute& field, const std::string& key) {
  Attribute keyed = field;
  keyed.name = keyed.display_name = key;
  return keyed;
}

Attribute OpenField(const Attribute& field, const std::string& key) {
  Attribute open;
  open.name = open.display_name = key;
  open.type = MorvixProtocolTypeStatusWritable_4_0;
  open.data_type = MorvixProtocolDataTypeUInt64_4_0;
  open.position = field.position;
  open.uint_spec.max = (int64_t{1} << kRawBits) - 1;
  open.uint_spec.step = 1;
  open.uint_spec.ratio = 1;
  return open;
}

uint64_t LargestOpenValue(uint64_t bits) { return (uint64_t{1} << std::min<uint64_t>(bits, kRawBits)) - 1; }

Encoded EncodeFields(const std::vector<Attribute>& fields, const Json::Value& values, size_t payloadLength) {
  LogGatherer log;
  std::vector<Attribute> all = fields;
  if (payloadLength != 0) {
    Attribute end;  // makes the payload as long as asked for
    end.name = kEndOfPayload;
    end.type = MorvixProtocolTypeStatusWritable_4_0;
    end.data_type = MorvixProtocolDataTypeBinary_4_0;
    end.position.byte_offset = static_cast<int32_t>(payloadLength) - 1;
    end.position.len = 1;
    all.push_back(end);
  }
  MorvixProtocolEntity_4_0 info;
  info.name = kEntity;
  Json::Value root;
  root[kEntity] = values;
  OwnedPackage package;
  ProtocolEncodeAttributes_4_0(info, all, package, root);
  Encoded encoded;
  encoded.payload = package.Payload();
  for (const LoggedLine& line : log.Take()) encoded.refusal = line.text;
  return encoded;
}

Decoded DecodeFields(const std::vector<Attribute>& fields, const std::vector<byte>& payload) {
  LogGatherer log;
  MorvixProtocolEntity_4_0 info;
  info.name = kEntity;
  std::vector<byte> bytes = payload;
  MorvixProtocolPackage_4_0 package;
  package.value = bytes.data();
  package.sizeValue = bytes.size();
  Json::Value document;
  ProtocolDecodeAttributes_4_0(info, fields, package, document);
  Decoded decoded;
  if (document.isObject() && document[kEntity].isObject()) {
    for (const std::string& key : document[kEntity].getMemberNames()) {
      decoded.values[key] = document[kEntity][key]["value"];
    }
  }
  for (const LoggedLine& line : log.Take()) decoded.refusal = line.text;
  return decoded;
}

std::string DecodedKey(const Attribute& attribute) {
  Attribute probe;
  probe.name = attribute.name;
  probe.display_name = attribute.display_name;
  probe.type = attribute.type;
  probe.data_type = MorvixProtocolDataTypeBool_4_0;
  probe.position.unit = MorvixProtocolUnitBit_4_0;
  probe.position.len = 1;
  probe.position.groupByteLength = 1;
  return DecodeFields({probe}, {0}).values.getMemberNames().at(0);
}

bool IsScaled(const Attribute& attribute) {
  if (!IsNumber(attribute)) return false;
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  return !UserText(attribute, static_cast<uint64_t>(scaling.min)).empty() ||
         !UserText(attribute, static_cast<uint64_t>(scaling.max)).empty();
}

namespace {

bool HasNoItems(const Attribute& field) {
  return field.data_type == MorvixProtocolDataTypeEnum_4_0 && field.enumList.empty();
}

// The line with which the module refuses, for a sentence: its number depends on the value.
std::string LineText(const std::string& line) {
  constexpr char kInvalid[] = "Invalid enum value";
  return line.find(kInvalid) == 0 ? "an \"" + std::string(kInvalid) + "\" line" : "\"" + line + "\"";
}

// What a write that carries the attribute does; empty when it works.
std::string EffectOnWriting(const Attribute& field, size_t payloadLength) {
  if (!Locate(field, payloadLength).IsEmpty() && !HasNoItems(field)) return "";
  if (payloadLength == 0) return "every write ends with \"No data will encode.\" and sends nothing";
  const Window window = WindowOn({field}, payloadLength);
  // What no value gets past refuses before the place does.
  const Attribute probe = IsScaled(field) ? OpenField(window.fields[0], "field") : Keyed(window.fields[0], "field");
  Json::Value values;
  values["field"] = field.data_type == MorvixProtocolDataTypeBinary_4_0 ? Json::Value("") : Json::Value(0);
  const Encoded encoded = EncodeFields({probe}, values, window.length);
  if (encoded.refusal.empty()) return "a write that carries it changes nothing";
  return "every write that carries it ends with " + LineText(encoded.refusal) + " and sends nothing";
}

std::string EffectOnReading(const Attribute& field, size_t payloadLength) {
  if (!Locate(field, payloadLength).IsEmpty() && !HasNoItems(field)) return "";
  const size_t longer = field.position.groupByteLength + 1;  // than the module makes it; there it may hold the field
  if (payloadLength == 0 && !Locate(field, longer).IsEmpty()) return "";
  const Window window = WindowOn({field}, payloadLength);
  const Attribute probe = Keyed(window.fields[0], "field");
  const Decoded decoded = DecodeFields({probe}, std::vector<byte>(window.length));
  const Decoded fromLonger = DecodeFields({probe}, std::vector<byte>(window.length + longer));
  const bool isSame = decoded.refusal == fromLonger.refusal && decoded.values == fromLonger.values;
  const std::string decode = "decode" + (isSame ? "" : " of " + Count(payloadLength, "byte") + " of payload");
  if (!decoded.refusal.empty()) {
    return "every " + decode + " ends with " + LineText(decoded.refusal) +
           (HasNoItems(field) ? ", and the attributes behind it are missing" : " and loses the whole entity");
  }
  if (!decoded.values.isMember("field")) return "no " + decode + " shows it";
  const Json::Value& shown = decoded.values["field"];
  return "every " + decode + " shows it as " + (shown.isBool() ? "false" : Quoted(shown.asString()));
}

}  // namespace

std::string EffectOfUnusable(const LintEntity& entity, size_t element) {
  const Attribute* written = entity.WriteRecord(element);
  const Attribute* read = entity.ReadRecord(element);
  std::string effect = written == nullptr ? "" : EffectOnWriting(*written, entity.writeLength);
  const std::string onReading = read == nullptr ? "" : EffectOnReading(*read, entity.readLength);
  if (!effect.empty() && !onReading.empty()) effect += "; ";
  return effect + onReading;
}

}  // namespace dp4
