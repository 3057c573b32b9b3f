#include "bindings/c/morvix_protocol.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <limits>
#include <locale>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInspection_v4.0.h"
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/Logging.h"

namespace {

using Attribute = MorvixProtocolAttribute_4_0;
using Element = MorvixProtocolElement_4_0;
using Package = MorvixProtocolOwnedPackage_4_0;
using Result = MorvixProtocolResult_4_0;
using Infos = std::vector<TavelReceiveInfo>;

constexpr int kWritable = MorvixProtocolTypeStatusWritable_4_0;
constexpr int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                           MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;
constexpr size_t kNone = SIZE_MAX;

bool IsNumber(const Attribute& attribute) { return ProtocolDataTypeIsUInt(attribute.data_type); }

bool IsEnum(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeEnum_4_0; }

// ---- Texts -----------------------------------------------------------------------------------------------------

// The length of the UTF-8 character that begins at `at`; 0 when none begins there.
size_t CharacterLength(std::string_view text, size_t at) {
  const auto byteAt = [text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const auto isTail = [&byteAt](size_t i) { return (byteAt(i) & 0xc0) == 0x80; };
  const unsigned first = byteAt(at);
  const unsigned second = byteAt(at + 1);
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4 || !isTail(at + 1)) return 0;
  if (first < 0xe0) return 2;
  if (!isTail(at + 2)) return 0;
  // Longer than needed, or half of a surrogate pair.
  if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
  if (first < 0xf0) return 3;
  // Longer than needed, or beyond the last code point.
  if (!isTail(at + 3) || (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
  return 4;
}

// The text without anything that could forge a line or is not UTF-8: control characters, backslashes and invalid bytes
// become escapes with a backslash.
std::string Escaped(std::string_view text) {
  static const char kHexDigits[] = "0123456789abcdef";
  std::string escaped;
  for (size_t at = 0; at < text.size();) {
    const auto code = static_cast<unsigned char>(text[at]);
    const size_t length = CharacterLength(text, at);
    const bool isControl =
        code < 0x20 || code == 0x7f || (length == 2 && code == 0xc2 && static_cast<unsigned char>(text[at + 1]) < 0xa0);
    if (code == '\\') {
      escaped += "\\\\";
    } else if (length == 0 || isControl) {
      for (const char c : text.substr(at, std::max<size_t>(length, 1))) {
        const auto value = static_cast<unsigned char>(c);
        escaped += {'\\', 'x', kHexDigits[value >> 4], kHexDigits[value & 0x0f]};
      }
    } else {
      escaped += text.substr(at, length);
    }
    at += std::max<size_t>(length, 1);
  }
  return escaped;
}

// Escaped, and cut where it is long.
std::string Shortened(std::string_view text) {
  constexpr size_t kLongest = 60;
  if (text.size() <= kLongest) return Escaped(text);
  size_t end = kLongest;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;  // not inside a character
  return Escaped(text.substr(0, end)) + "...";
}

std::string Quoted(std::string_view name) { return "'" + Shortened(name) + "'"; }

void AddLine(std::string& lines, const std::string& line) { lines += (lines.empty() ? "" : "\n") + line; }

std::string JsonText(const Json::Value& value) {
  Json::FastWriter writer;
  writer.omitEndingLineFeed();
  return writer.write(value);
}

// ---- The end of a call -----------------------------------------------------------------------------------------

// What ends a call that does not succeed.
struct Failure {
  morvix_status status;
  std::string text;
};

[[noreturn]] void Refuse(std::string text) { throw Failure{MORVIX_REFUSED, std::move(text)}; }

[[noreturn]] void RejectInput(std::string text) { throw Failure{MORVIX_BAD_INPUT, std::move(text)}; }

void RequirePointer(const void* pointer, const char* name) {
  if (pointer == nullptr) RejectInput(std::string(name) + " is null");
}

// Memory of the C heap for a caller.
struct Release {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Allocated = std::unique_ptr<T, Release>;

Allocated<uint8_t> Copy(const char* data, size_t size) {
  Allocated<uint8_t> copy(static_cast<uint8_t*>(std::malloc(size + 1)));
  if (copy == nullptr) throw std::bad_alloc();
  std::memcpy(copy.get(), data, size);
  copy.get()[size] = 0;
  return copy;
}

void Return(const std::string& text, morvix_bytes* output) {
  *output = {Copy(text.data(), text.size()).release(), text.size()};
}

void Return(const std::string& first, morvix_bytes* firstOutput, const std::string& second,
            morvix_bytes* secondOutput) {
  Allocated<uint8_t> copy = Copy(first.data(), first.size());
  Return(second, secondOutput);
  *firstOutput = {copy.release(), first.size()};
}

// Where log lines go.
struct LogTarget {
  morvix_log_sink sink = nullptr;
  void* context = nullptr;
  int level = 0;
};

std::mutex logMutex;  // guards logTarget; not held while a sink runs
LogTarget logTarget;

void SendToLog(const std::vector<LogCapture::Line>& lines) {
  if (lines.empty()) return;
  LogTarget target;
  {
    const std::lock_guard<std::mutex> lock(logMutex);
    target = logTarget;
  }
  if (target.sink == nullptr) return;
  for (const LogCapture::Line& line : lines) {
    if (line.level > target.level) continue;
    try {
      target.sink(target.context, line.level, line.function.empty() ? nullptr : line.function.c_str(),
                  line.text.c_str());
    } catch (...) {
      // A sink in C++ that throws does not fail the call.
    }
  }
}

bool IsWarning(const LogCapture::Line& line) { return line.level == 1; }

std::string WarningsIn(const std::vector<LogCapture::Line>& lines) {
  std::string text;
  for (const LogCapture::Line& line : lines) {
    if (IsWarning(line)) AddLine(text, Escaped(line.text));
  }
  return text;
}

// A message for a caller; null when there is nothing to say, or no memory to say it.
char* MessageOf(const std::string& text) {
  if (text.empty()) return nullptr;
  auto* message = static_cast<char*>(std::malloc(text.size() + 1));
  if (message != nullptr) std::memcpy(message, text.c_str(), text.size() + 1);
  return message;
}

// Runs the work of a call, which sets outputs as its last step, and turns whatever ends it into a status and a message.
template <class Work>
morvix_status Call(char** message, Work work) noexcept {
  if (message != nullptr) *message = nullptr;
  morvix_status status = MORVIX_OK;
  try {
    std::string text;
    LogCapture log;
    try {
      work();
    } catch (Failure& failure) {
      status = failure.status;
      text.swap(failure.text);
    } catch (...) {
      status = MORVIX_NO_MEMORY;
      text = "out of memory";
    }
    const std::vector<LogCapture::Line> lines = log.Take();
    SendToLog(lines);
    if (message == nullptr) return status;
    if (status == MORVIX_OK && !lines.empty()) text = WarningsIn(lines);
    *message = MessageOf(text);
  } catch (...) {
    // There is no memory for a message.
  }
  return status;
}

// ---- JSON input ------------------------------------------------------------------------------------------------

// "* Line 3, Column 5\n  Syntax error: ...\n" as one line.
std::string FirstProblem(const std::string& report) {
  std::istringstream lines(report);
  std::string place;
  std::string problem;
  std::getline(lines, place);
  std::getline(lines >> std::ws, problem);
  return Escaped(place.substr(std::min<size_t>(2, place.size())) + ": " + problem);
}

// `what` is what messages call the text.
Json::Value ParseText(const char* text, size_t size, const std::string& what) {
  if (text == nullptr && size != 0) RejectInput(what + " is null");
  const std::string_view read(text == nullptr ? "" : text, size);
  for (size_t at = 0; at < size;) {
    const size_t length = CharacterLength(read, at);
    if (length == 0) RejectInput(what + " is not UTF-8 at byte " + std::to_string(at));
    if (read[at] == '\0') RejectInput(what + " contains a NUL at byte " + std::to_string(at));
    at += length;
  }
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  builder["collectComments"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  Json::String report;
  bool isJson = false;
  try {
    isJson = reader->parse(read.data(), read.data() + size, &value, &report);
  } catch (const Json::RuntimeError& error) {
    // The reader's own limit; other errors are of memory.
    if (std::strstr(error.what(), "stackLimit") == nullptr) throw;
    RejectInput(what + " is nested too deep");
  }
  if (!isJson) RejectInput(what + " is not JSON: " + FirstProblem(report));
  return value;
}

Json::Value ParseConfiguration(const char* text, size_t size) {
  const Json::Value configuration = ParseText(text, size, "the configuration");
  Json::Value entities;
  if (!ProtocolGetEntitiesFromDevice_4_0(configuration, entities)) {
    RejectInput("the configuration is not an object with an array \"entities\"");
  }
  return entities;
}

// ---- Entities --------------------------------------------------------------------------------------------------

// The identity of an entity. `missing` is set to the member that cannot be read, or stays empty.
MorvixProtocolEntity_4_0 IdentityOf(const Json::Value& entity, std::string& missing) {
  MorvixProtocolEntity_4_0 info;
  if (!ProtocolGetAttrInteger_4_0(entity, "id", info.id)) {
    missing = "id";
  } else if (!ProtocolGetAttrString_4_0(entity, "name", info.name)) {
    missing = "name";
  } else if (!ProtocolGetAttrString_4_0(entity, "display_name", info.display_name)) {
    missing = "display_name";
  } else if (!entity["attrs"].isArray()) {
    missing = "attrs";
  }
  return info;
}

std::string UnusableText(Json::ArrayIndex index, const Json::Value& entity, const std::string& missing) {
  const std::string where = "entities[" + std::to_string(index) + "]";
  if (!entity.isObject()) return where + " is not an object";
  const char* kind = missing == "id" ? "integer" : missing == "attrs" ? "array" : "string";
  return where + " has no usable \"" + missing + "\"; expected a member of kind " + kind;
}

Json::ArrayIndex FindEntity(const Json::Value& entities, const char* name) {
  std::string names;
  Json::ArrayIndex found = entities.size();
  for (Json::ArrayIndex i = 0; i < entities.size(); ++i) {
    std::string known;
    if (!ProtocolGetAttrString_4_0(entities[i], "name", known)) continue;
    names += (names.empty() ? "" : ", ") + Quoted(known);
    if (name == nullptr || known != name) continue;
    if (found != entities.size()) RejectInput("two entities have the name " + Quoted(name));
    found = i;
  }
  if (found != entities.size()) return found;
  if (names.empty()) names = "none";
  if (name != nullptr) RejectInput("no entity has the name " + Quoted(name) + "; expected one of: " + names);
  if (entities.size() == 1) return 0;
  if (entities.empty()) RejectInput("the configuration has no entities");
  RejectInput("the configuration has " + std::to_string(entities.size()) + " entities; name one of: " + names);
}

// What the parser does with each element of "attrs", up to the one on which it throws if there is one.
std::vector<Element> ElementsOf(const Json::Value& entity, int groups) {
  const LogCapture silent;
  std::vector<Element> elements;
  try {
    std::vector<Attribute> attributes;
    MorvixProtocolEntity_4_0 info;
    static_cast<void>(ProtocolParseEntity_4_0(entity, groups, attributes, info, elements));
  } catch (const Json::LogicError&) {
    // The elements before that one are the result.
  }
  return elements;
}

// The entity with at most one item in each enum, which changes nothing else for the parser.
Json::Value WithoutItems(const Json::Value& entity) {
  Json::Value copy = entity;
  for (Json::Value& attribute : copy["attrs"]) {
    if (!attribute.isObject() || !attribute.isMember("enum") || !attribute["enum"].isArray()) continue;
    Json::Value items = Json::arrayValue;
    for (const Json::Value& item : attribute["enum"]) {
      if (items.empty() && item.isString()) items.append(item);
    }
    attribute["enum"] = std::move(items);
  }
  return copy;
}

// The parser hands an enum's items on to all later records, so that a small text can ask for gigabytes.
void CheckItems(const Json::Value& entity) {
  constexpr uint64_t kMostItems = 2'000'000;
  const Json::Value small = WithoutItems(entity);
  for (const int groups : {kAllGroups, static_cast<int>(MorvixProtocolTypeStatusWritable_4_0)}) {
    uint64_t all = 0;
    uint64_t inherited = 0;
    Json::ArrayIndex index = 0;
    for (const Element& element : ElementsOf(small, groups)) {
      const Json::Value& attribute = entity["attrs"][index++];
      const uint64_t items = attribute.isObject() && attribute["enum"].isArray() ? attribute["enum"].size() : 0;
      const bool isKept = element.attribute != kNone;
      if (isKept && element.data_type == MorvixProtocolDataTypeEnum_4_0) inherited = items;
      if (!element.invalid.empty()) inherited = std::max(inherited, items);  // it may have been read before that
      if (isKept) all += inherited;
    }
    if (all <= kMostItems) continue;
    RejectInput("the records of the entity would hold " + std::to_string(all) +
                " enum items, since every attribute inherits those of the last enum before it; expected at most " +
                std::to_string(kMostItems));
  }
}

// Of an entity on which the parser throws.
std::string LimitKindText(const Json::Value& entity) {
  const auto index = static_cast<Json::ArrayIndex>(ElementsOf(entity, kAllGroups).size());
  const Json::Value& scaling = entity["attrs"][index]["uint_spec"];
  const bool isMin = scaling["min"].isArray() || scaling["min"].isObject();
  const Json::Value& value = scaling[isMin ? "min" : "max"];
  return std::string(isMin ? "\"min\"" : "\"max\"") + " of attrs[" + std::to_string(index) + "] is an " +
         (value.isArray() ? "array" : "object") + "; expected a number";
}

// The attributes of one direction: those that are read, or those that are written.
struct Direction {
  std::vector<Attribute> attributes;
  std::vector<Element> elements;  // what the parser did with each element of "attrs"
  size_t payloadBytes = 0;

  bool Parse(const Json::Value& entity, int groups, MorvixProtocolEntity_4_0& info) {
    if (!ProtocolParseEntity_4_0(entity, groups, attributes, info, elements)) return false;
    for (Attribute& attribute : attributes) {
      if (!IsEnum(attribute)) std::vector<std::string>().swap(attribute.enumList);  // inherited
    }
    payloadBytes = ProtocolPayloadBytes_4_0(attributes);
    return true;
  }

  // The attribute of an element; null when it was dropped.
  const Attribute* Of(size_t element) const {
    const size_t index = elements[element].attribute;
    return index == kNone ? nullptr : &attributes[index];
  }
};

// Bits of a payload, counted from the most significant bit of its first byte.
struct Place {
  size_t firstBit = 0;
  size_t bits = 0;  // 0 when there is no place

  static Place Of(const Attribute* attribute, size_t payloadBytes) {
    Place place;
    if (attribute != nullptr) {
      static_cast<void>(ProtocolLocateAttribute_4_0(*attribute, payloadBytes, place.firstBit, place.bits));
    }
    return place;
  }
  bool operator==(const Place& other) const { return firstBit == other.firstBit && bits == other.bits; }
};

// The number in at most 64 bits of a payload.
uint64_t ReadBits(const uint8_t* payload, const Place& place) {
  const size_t end = place.firstBit + place.bits;
  const size_t last = (end - 1) / 8;
  size_t at = place.firstBit / 8;
  const size_t unused = 8 * (last + 1) - end;  // bits of the last byte
  uint64_t value = payload[at] & (0xffu >> place.firstBit % 8);
  if (at == last) return value >> unused;
  while (++at < last) value = value << 8 | payload[at];
  return value << (8 - unused) | payload[last] >> unused;
}

const char* GroupKeyword(MorvixProtocolType_4_0 group) {
  if (group == MorvixProtocolTypeStatusWritable_4_0) return "status_writable";
  if (group == MorvixProtocolTypeStatusReadonly_4_0) return "status_readonly";
  return group == MorvixProtocolTypeAlert_4_0 ? "alert" : "fault";
}

const char* TypeKeyword(MorvixProtocolDataType_4_0 type) {
  static const char* const kKeywords[] = {"", "bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  return kKeywords[type];
}

// JSON text of an object, member by member in the order of the calls.
class ObjectText {
 public:
  void Add(const char* name, const std::string& json) {
    text_ += text_.empty() ? "{\"" : ",\"";
    text_ += name;
    text_ += "\":";
    text_ += json;
  }
  void Add(const char* name, const Json::Value& value) { Add(name, JsonText(value)); }
  std::string Take() { return text_.empty() ? "{}" : std::move(text_) + "}"; }

 private:
  std::string text_;
};

void AddItem(std::string& array, const std::string& json) { array += (array.empty() ? "" : ",") + json; }

}  // namespace

struct morvix_entity {
  MorvixProtocolEntity_4_0 info;
  Direction reading;
  Direction writing;
  MorvixProtocolReceivePlan_4_0 plan;
  std::string description;
  std::vector<size_t> columns;  // the read attribute of each described one, or kNone for one that is written only
  std::vector<Place> places;    // of the read attributes; empty when one of them has no place

  explicit morvix_entity(const Json::Value& entity);

 private:
  void Describe(const Json::Value& elements);
};

namespace {

std::string PlaceText(const Place& place) {
  ObjectText text;
  text.Add("firstBit", std::to_string(place.firstBit));
  text.Add("bits", std::to_string(place.bits));
  return text.Take();
}

// One of the attributes of a description; one of the two directions may not have it.
std::string AttributeText(const Attribute& attribute, const Direction& reading, const Direction& writing,
                          size_t element) {
  const Attribute* written = writing.Of(element);
  const Place place = Place::Of(reading.Of(element), reading.payloadBytes);
  const Place writePlace = Place::Of(written, writing.payloadBytes);
  ObjectText text;
  text.Add("name", Json::Value(attribute.name));
  text.Add("displayName", Json::Value(attribute.display_name));
  text.Add("description", Json::Value(attribute.desc));
  text.Add("id", std::to_string(attribute.id));
  text.Add("group", Json::Value(GroupKeyword(attribute.type)));
  text.Add("type", Json::Value(TypeKeyword(attribute.data_type)));
  if (written != nullptr) text.Add("flag", std::to_string(writing.elements[element].attribute));
  if (place.bits != 0) text.Add("place", PlaceText(place));
  if (writePlace.bits != 0 && !(writePlace == place)) text.Add("writePlace", PlaceText(writePlace));
  if (IsNumber(attribute)) {
    text.Add("min", std::to_string(attribute.uint_spec.min));
    text.Add("max", std::to_string(attribute.uint_spec.max));
    const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
    if (std::isfinite(scaling.ratio)) text.Add("ratio", Json::Value(scaling.ratio));
    if (std::isfinite(scaling.addition)) text.Add("addition", Json::Value(scaling.addition));
  }
  if (IsEnum(attribute)) {
    Json::Value items(Json::arrayValue);
    for (const std::string& item : attribute.enumList) items.append(item);
    text.Add("items", items);
  }
  return text.Take();
}

std::string DroppedText(const Json::Value& element, size_t index, const std::string& member) {
  ObjectText text;
  text.Add("index", std::to_string(index));
  std::string name;
  if (ProtocolGetAttrString_4_0(element, "name", name)) text.Add("name", Json::Value(name));
  text.Add("member", Json::Value(member));
  return text.Take();
}

}  // namespace

// The calling call's log gets the lines of the parser about reading, and those about writing that tell something new.
morvix_entity::morvix_entity(const Json::Value& entity) {
  if (!reading.Parse(entity, kAllGroups, info)) RejectInput("the entity is unusable");
  {
    const LogCapture silent;
    if (!writing.Parse(entity, kWritable, info)) RejectInput("the entity is unusable");
  }
  for (size_t i = 0; i < reading.elements.size(); ++i) {
    if (!reading.elements[i].invalid.empty() || writing.elements[i].invalid.empty()) continue;
    logMsgEx(1, "FilterConfigType", "Warning: '%s' is invalid, skip.", writing.elements[i].invalid.c_str());
  }
  plan = ProtocolPlanReceive_4_0(info, reading.attributes);
  Describe(entity["attrs"]);
  for (const Attribute& attribute : reading.attributes) {
    places.push_back(Place::Of(&attribute, reading.payloadBytes));
    if (places.back().bits != 0) continue;
    places.clear();
    break;
  }
}

void morvix_entity::Describe(const Json::Value& elements) {
  std::string attributes;
  std::string dropped;
  for (size_t i = 0; i < reading.elements.size(); ++i) {
    const std::string& onReading = reading.elements[i].invalid;
    const std::string& invalid = onReading.empty() ? writing.elements[i].invalid : onReading;
    if (!invalid.empty()) AddItem(dropped, DroppedText(elements[static_cast<Json::ArrayIndex>(i)], i, invalid));
    const Attribute* attribute = reading.Of(i) != nullptr ? reading.Of(i) : writing.Of(i);
    if (attribute == nullptr) continue;
    AddItem(attributes, AttributeText(*attribute, reading, writing, i));
    columns.push_back(reading.elements[i].attribute);
  }
  ObjectText text;
  text.Add("name", Json::Value(info.name));
  text.Add("displayName", Json::Value(info.display_name));
  text.Add("id", std::to_string(info.id));
  text.Add("payloadBytes", std::to_string(reading.payloadBytes));
  text.Add("writeBytes", std::to_string(writing.payloadBytes));
  text.Add("attributes", "[" + attributes + "]");
  text.Add("dropped", "[" + dropped + "]");
  description = text.Take();
}

namespace {

// ---- Writing ---------------------------------------------------------------------------------------------------

// A number in the fewest digits that read as the same one, and with a point, exponent or name that tells it from an
// integer. The locale makes no difference.
std::string RealText(double number) {
  constexpr int kFewestDigits = 15;
  constexpr int kMostDigits = 17;
  std::string text;
  double read = 0;
  for (int digits = kFewestDigits; digits <= kMostDigits; ++digits) {
    std::ostringstream writer;
    writer.imbue(std::locale::classic());
    writer << std::setprecision(digits) << number;
    text = writer.str();
    std::istringstream reader(text);
    reader.imbue(std::locale::classic());
    if (reader >> read && read == number) break;
  }
  if (text.find_first_of(".en") == std::string::npos) text += ".0";
  return text;
}

std::string KindOf(const Json::Value& value) {
  switch (value.type()) {
    case Json::realValue:
      return RealText(value.asDouble());
    case Json::nullValue:
      return "null";
    case Json::arrayValue:
      return "an array";
    case Json::objectValue:
      return "an object";
    default:
      return Shortened(JsonText(value));
  }
}

std::string TakenBy(const Attribute& attribute) {
  if (IsNumber(attribute)) return "a number or the text of one";
  if (IsEnum(attribute)) return "the index of an item, as an integer or decimal text";
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) return "base64 text";
  return "true, false, an integer of 32 bits or decimal text";
}

// The range of a number in user units.
std::string RangeText(const Attribute& number) {
  std::string least;
  std::string most;
  const bool isUsable = ProtocolRawToText_4_0(number, static_cast<uint64_t>(number.uint_spec.min), least) &&
                        ProtocolRawToText_4_0(number, static_cast<uint64_t>(number.uint_spec.max), most);
  if (!isUsable) return "its scaling takes no value";
  if (number.uint_spec.ratio < 0) least.swap(most);
  return "expected " + least + " to " + most;
}

// Why a value is not written; empty when it is, or when it was not asked for.
std::string RefusalText(const Attribute& attribute, const Json::Value& value, const Result& result) {
  const std::string subject = Quoted(attribute.name) + ": ";
  switch (result.outcome) {
    case MorvixProtocolOutcomeWrongKind_4_0:
      return subject + KindOf(value) + " is of a kind that it does not take; expected " + TakenBy(attribute);
    case MorvixProtocolOutcomeRefusedByScaling_4_0:
      return subject + KindOf(value) + " is out of range; " + RangeText(attribute);
    case MorvixProtocolOutcomeRefusedByItems_4_0:
      return subject + KindOf(value) + " is not the index of an item; " +
             (attribute.enumList.empty() ? "it has none"
                                         : "expected 0 to " + std::to_string(attribute.enumList.size() - 1));
    case MorvixProtocolOutcomeRefusedByPlace_4_0:
      return subject + "it has no place in the payload where it could be written";
    default:
      return "";
  }
}

// One write of an entity.
class Write {
 public:
  Write(const morvix_entity& entity, const Json::Value& values, int command, const int32_t* subDevice)
      : entity_(entity), values_(values) {
    if (command != MorvixProtocolCommandWriteReq_4_0 && command != MorvixProtocolCommandCCWriteReq_4_0) {
      RejectInput("command " + std::to_string(command) + " is not a write; expected 1 or 7");
    }
    if (!values.isObject()) RejectInput("the value document is not an object");
    package_.cmd = static_cast<MorvixProtocolCommand_4_0>(command);
    if (subDevice == nullptr) return;
    package_.subDid = *subDevice;
    package_.needInsertSubDid = 1;
  }

  std::string Packet() {
    CheckSize();
    const Json::Value* given = Given();
    ProtocolEncodeAttributes_4_0(entity_.info, entity_.writing.attributes, package_, values_, results_);
    if (entity_.writing.payloadBytes != 0 && package_.value == nullptr) throw std::bad_alloc();
    const std::string problems = given == nullptr ? "" : Problems(*given);
    if (!problems.empty()) Refuse(problems);
    if (package_.sizeValue == 0) {
      const std::string name = Quoted(entity_.info.name);
      Refuse("nothing to write; expected " + (given == nullptr ? "a member " + name + " with the values"
                                                               : "a value of a writable attribute of " + name));
    }
    std::string packet(1 + MorvixProtocolSubDidBytes_4_0 + package_.sizeFlags + package_.sizeValue, '\0');
    packet.resize(ProtocolPackPackage_4_0(package_, reinterpret_cast<byte*>(packet.data()), packet.size()));
    return packet;
  }

 private:
  // Before anything is allocated for it.
  void CheckSize() const {
    const size_t payloadBytes = entity_.writing.payloadBytes;
    const size_t count = entity_.writing.attributes.size();
    if (payloadBytes <= MorvixProtocolMaxPayloadBytes_4_0 && count <= 8 * MorvixProtocolMaxFlagBytes_4_0) return;
    Refuse(Quoted(entity_.info.name) + ": " + std::to_string(payloadBytes) + " bytes of payload for " +
           std::to_string(count) + " writable attributes are more than a packet holds; expected at most " +
           std::to_string(MorvixProtocolMaxPayloadBytes_4_0) + " for " +
           std::to_string(8 * MorvixProtocolMaxFlagBytes_4_0));
  }

  // The values of the entity; null when there are none.
  const Json::Value* Given() const {
    const std::string& name = entity_.info.name;
    const Json::Value* given = values_.find(name.data(), name.data() + name.size());
    if (given != nullptr && !given->isObject()) RejectInput("the values of " + Quoted(name) + " are not an object");
    return given;
  }

  // Every name that is not that of a writable attribute and every value that was not written, one a line.
  std::string Problems(const Json::Value& given) const {
    std::string problems;
    std::vector<std::string> names;  // as the module looks them up
    for (size_t i = 0; i < results_.size(); ++i) {
      const Attribute& attribute = entity_.writing.attributes[i];
      names.emplace_back(attribute.name.c_str());
      const std::string& name = names.back();
      const Json::Value* value = given.find(name.data(), name.data() + name.size());
      if (value == nullptr) continue;
      const bool isReached = results_[i].outcome != MorvixProtocolOutcomeNotReached_4_0;
      std::string problem = RefusalText(attribute, *value, isReached ? results_[i] : ResultAlone(attribute, given));
      if (results_[i].outcome == MorvixProtocolOutcomeDone_4_0 && !HasFlag(i))
        problem = Quoted(name) + ": it has no flag";
      if (!problem.empty()) AddLine(problems, problem);
    }
    std::sort(names.begin(), names.end());
    std::vector<std::string> unknown;
    for (std::string& name : given.getMemberNames()) {
      if (!std::binary_search(names.begin(), names.end(), name)) unknown.push_back(std::move(name));
    }
    if (!unknown.empty()) AddUnknown(unknown, problems);
    return problems;
  }

  // Of a value after the first one that is refused, where encoding ends.
  Result ResultAlone(const Attribute& attribute, const Json::Value& given) const {
    Attribute rest;  // makes the payload as long as that of all, and has no value
    while (given.isMember(rest.name)) rest.name += '-';
    rest.data_type = MorvixProtocolDataTypeBinary_4_0;
    rest.position.len = static_cast<int32_t>(entity_.writing.payloadBytes);
    const LogCapture silent;
    Package package;
    std::vector<Result> results;
    ProtocolEncodeAttributes_4_0(entity_.info, {attribute, rest}, package, values_, results);
    return results.at(0);
  }

  // The bitmap is laid out as a bit group: flag 0 is the lowest bit of its last byte.
  bool HasFlag(size_t index) const {
    const size_t flagBytes = (entity_.writing.attributes.size() + 7) / 8;
    return (package_.flags[flagBytes - 1 - index / 8] >> index % 8 & 1) != 0;
  }

  // One line for each name that is not that of a writable attribute.
  void AddUnknown(const std::vector<std::string>& unknown, std::string& problems) const {
    std::map<std::string_view, const Attribute*> known;
    for (const Attribute& attribute : entity_.reading.attributes) known.emplace(attribute.name, &attribute);
    for (const std::string& name : unknown) {
      const auto found = known.find(name);
      const bool isRead = found != known.end() && found->second->type != MorvixProtocolTypeStatusWritable_4_0;
      const std::string reason = isRead ? "writable; its group is " + std::string(GroupKeyword(found->second->type))
                                        : "an attribute of " + Quoted(entity_.info.name);
      AddLine(problems, Quoted(name) + " is not " + reason);
    }
  }

  const morvix_entity& entity_;
  const Json::Value& values_;
  Package package_;
  std::vector<Result> results_;
};

std::string Request(int command, const int32_t* subDevice) {
  const bool needsSubDevice =
      command == MorvixProtocolCommandCCReadReq_4_0 || command == MorvixProtocolCommandCCDelSubDeviceReq_4_0;
  const bool isKnown = needsSubDevice || command == MorvixProtocolCommandReadReq_4_0 ||
                       command == MorvixProtocolCommandCCAddSubDeviceReq_4_0 ||
                       command == MorvixProtocolCommandCCGetSubDevicesReq_4_0;
  const std::string subject = "command " + std::to_string(command);
  if (!isKnown) RejectInput(subject + " is not a request; expected 2, 8, 11, 12 or 13");
  if (needsSubDevice && subDevice == nullptr) RejectInput(subject + " needs a sub-device id");
  if (!needsSubDevice && subDevice != nullptr) RejectInput(subject + " takes no sub-device id");
  MorvixProtocolPackage_4_0 package;
  package.cmd = static_cast<MorvixProtocolCommand_4_0>(command);
  if (needsSubDevice) {
    package.subDid = *subDevice;
    package.needInsertSubDid = 1;
  }
  byte packet[1 + MorvixProtocolSubDidBytes_4_0];
  const size_t size = ProtocolPackPackage_4_0(package, packet, sizeof packet);
  return std::string(reinterpret_cast<const char*>(packet), size);
}

// ---- Reading ---------------------------------------------------------------------------------------------------

// Why unpacking refuses a packet; empty when it does not.
std::string PacketFault(const uint8_t* packet, size_t size) {
  constexpr size_t kMostBytes = 1 + MorvixProtocolMaxPayloadBytes_4_0;
  if (size == 0) return "the packet is empty";
  if (packet[0] != MorvixProtocolCommandReadResp_4_0 && packet[0] != MorvixProtocolCommandNotifyResp_4_0) {
    return "command " + std::to_string(packet[0]) +
           " is not received; expected a read response (3) or notification (4)";
  }
  if (size >= 2 && size <= kMostBytes) return "";
  return "the packet has " + std::to_string(size) + (size == 1 ? " byte" : " bytes") + "; expected 2 to " +
         std::to_string(kMostBytes);
}

void CheckPacket(const uint8_t* packet, size_t size) {
  if (size != 0) RequirePointer(packet, "packet");
  const std::string fault = PacketFault(packet, size);
  if (!fault.empty()) Refuse(fault);
}

Package Unpacked(const uint8_t* packet, size_t size) {
  Package package;
  if (!ProtocolUnpackPackage_4_0(packet, size, package)) throw std::bad_alloc();
  return package;
}

// What an application is given of one packet.
struct Received {
  std::string document;
  Infos alerts;
  Infos faults;
};

// False when the packet is refused.
bool Receive(const morvix_entity& entity, const uint8_t* packet, size_t size, Received& received) {
  received.alerts.clear();
  received.faults.clear();
  return ProtocolReceivePacket_4_0(entity.plan, packet, size, received.document, received.alerts, received.faults);
}

// Whether a name stands in JSON text as it is.
bool IsPlain(const std::string& name) {
  return std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

void AddInfos(std::string& text, const Infos& infos) {
  const char* head = "{\"name\":\"";
  for (const TavelReceiveInfo& info : infos) {
    text += head;
    if (IsPlain(info.name)) {
      text += info.name;
    } else {
      const std::string quoted = JsonText(Json::Value(info.name));
      text.append(quoted, 1, quoted.size() - 2);
    }
    text += "\",\"value\":";
    text += std::to_string(info.value);
    text += '}';
    head = ",{\"name\":\"";
  }
}

// The members "alerts" and "faults".
void AddActive(std::string& text, const Received& received) {
  constexpr size_t kBytesOfFrame = 32;  // about what stands around each name, and around all
  size_t size = text.size() + kBytesOfFrame;
  for (const Infos* infos : {&received.alerts, &received.faults}) {
    for (const TavelReceiveInfo& info : *infos) size += info.name.size() + kBytesOfFrame;
  }
  if (text.capacity() < size) text.reserve(std::max(size, 2 * text.capacity()));
  text += "\"alerts\":[";
  AddInfos(text, received.alerts);
  text += "],\"faults\":[";
  AddInfos(text, received.faults);
  text += ']';
}

std::string ErrorLine(const std::string& fault) {
  ObjectText line;
  line.Add("error", Json::Value(fault));
  return line.Take() + "\n";
}

void AddReceivedLine(std::string& text, const Received& received, const std::vector<LogCapture::Line>& log) {
  text += "{\"document\":";
  text.append(received.document, 0, received.document.find_last_not_of('\n') + 1);
  text += ',';
  AddActive(text, received);
  std::string warnings;
  for (const LogCapture::Line& line : log) {
    if (IsWarning(line)) AddItem(warnings, JsonText(Json::Value(Escaped(line.text))));
  }
  if (!warnings.empty()) text += ",\"warnings\":[" + warnings + ']';
  text += "}\n";
}

// Packets back to back.
class Packets {
 public:
  Packets(const uint8_t* bytes, const size_t* offsets, size_t count) : bytes_(bytes), offsets_(offsets), count_(count) {
    if (count == 0) return;
    RequirePointer(offsets, "offsets");
    for (size_t i = 0; i < count; ++i) {
      if (offsets[i] > offsets[i + 1]) RejectInput("the offsets descend after packet " + std::to_string(i));
    }
    if (offsets[count] != offsets[0]) RequirePointer(bytes, "packets");
  }

  size_t Count() const { return count_; }
  const uint8_t* Data(size_t i) const { return SizeOf(i) == 0 ? nullptr : bytes_ + offsets_[i]; }
  size_t SizeOf(size_t i) const { return offsets_[i + 1] - offsets_[i]; }

 private:
  const uint8_t* bytes_;
  const size_t* offsets_;
  size_t count_;
};

std::string ReceivedLines(const morvix_entity& entity, const Packets& packets) {
  std::string lines;
  Received received;
  LogCapture log;
  for (size_t i = 0; i < packets.Count(); ++i) {
    const std::string fault = PacketFault(packets.Data(i), packets.SizeOf(i));
    if (!fault.empty()) {
      lines += ErrorLine(fault);
      continue;
    }
    if (!Receive(entity, packets.Data(i), packets.SizeOf(i), received)) throw std::bad_alloc();
    AddReceivedLine(lines, received, log.Lines());
    if (!log.Lines().empty()) SendToLog(log.Take());
  }
  return lines;
}

// ---- Tables ----------------------------------------------------------------------------------------------------

constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();

// The number that the text of a value in the document reads as; none when its scaling refuses the raw value.
double NumberOf(const Attribute& attribute, uint64_t raw, std::string& text) {
  return ProtocolRawToText_4_0(attribute, raw, text) ? std::strtod(text.c_str(), nullptr) : kNoValue;
}

// Decodes packets into numbers, a row a packet.
class Table {
 public:
  Table(const morvix_entity& entity, size_t count, double* values)
      : entity_(entity), count_(count), values_(values), row_(entity.reading.attributes.size(), kNoValue) {}

  // False when the packet is refused.
  bool AddRow(size_t index, const uint8_t* packet, size_t size) {
    std::fill(row_.begin(), row_.end(), kNoValue);
    const bool isAccepted = PacketFault(packet, size).empty();
    if (isAccepted && !ReadPlaces(packet + 1, size - 1)) Decode(packet, size);
    for (size_t a = 0; a < entity_.columns.size(); ++a) {
      values_[a * count_ + index] = entity_.columns[a] == kNone ? kNoValue : row_[entity_.columns[a]];
    }
    return isAccepted;
  }

 private:
  // Takes the numbers out of the payload without a document. False, with any row, when decoding could end early.
  bool ReadPlaces(const uint8_t* payload, size_t size) {
    if (entity_.places.empty() || size < entity_.reading.payloadBytes) return false;
    for (size_t i = 0; i < row_.size(); ++i) {
      const Attribute& attribute = entity_.reading.attributes[i];
      if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) continue;
      const uint64_t raw = ReadBits(payload, entity_.places[i]);
      if (IsEnum(attribute) && raw >= attribute.enumList.size()) return false;
      row_[i] = IsNumber(attribute) ? NumberOf(attribute, raw, text_) : static_cast<double>(raw);
    }
    return true;
  }

  void Decode(const uint8_t* packet, size_t size) {
    std::fill(row_.begin(), row_.end(), kNoValue);
    const Package package = Unpacked(packet, size);
    Json::Value document;
    ProtocolDecodeAttributes_4_0(entity_.info, entity_.reading.attributes, package, document, results_);
    if (!document.isMember(entity_.info.name)) return;  // nothing was decoded, or it was removed
    for (size_t i = 0; i < row_.size(); ++i) {
      const Attribute& attribute = entity_.reading.attributes[i];
      const bool isBinary = attribute.data_type == MorvixProtocolDataTypeBinary_4_0;
      if (results_[i].outcome != MorvixProtocolOutcomeDone_4_0 || isBinary) continue;
      row_[i] =
          IsNumber(attribute) ? NumberOf(attribute, results_[i].raw, text_) : static_cast<double>(results_[i].raw);
    }
  }

  const morvix_entity& entity_;
  size_t count_;
  double* values_;
  std::vector<double> row_;  // of the read attributes
  std::vector<Result> results_;
  std::string text_;
};

// ---- Receive documents -----------------------------------------------------------------------------------------

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// Why the module's reader, which takes less than ours, does not take a text; empty when it does.
std::string SyntaxProblem(const char* text, size_t size) {
  Json::Reader reader;
  Json::Value value;
  return reader.parse(text, text + size, value) ? "" : FirstProblem(reader.getFormattedErrorMessages());
}

#pragma GCC diagnostic pop

// Of a document that conversion refuses, and its text. Throws in any case.
[[noreturn]] void RefuseDocument(const Json::Value& document, const char* text, size_t size) {
  if (!document.isObject()) RejectInput("the document is not an object");
  const Json::Value& version = document["version"];
  if (version.type() == Json::realValue && version.asDouble() == 4.0) {
    const std::string problem = SyntaxProblem(text, size);
    if (!problem.empty()) RejectInput("the document is not JSON: " + problem);
    throw std::bad_alloc();
  }
  Refuse("\"version\" of the document is " + (version.isNull() ? "missing" : KindOf(version)) +
         "; expected the real number 4.0");
}

}  // namespace

// ---- The interface ---------------------------------------------------------------------------------------------

int morvix_abi(void) { return 1; }

const char* morvix_version(void) { return MORVIX_PROTOCOL_VERSION; }

void morvix_free(void* memory) { std::free(memory); }

morvix_status morvix_entities(const char* configuration, size_t size, morvix_bytes* json, char** message) {
  if (json != nullptr) *json = {};
  return Call(message, [&] {
    RequirePointer(json, "json");
    const Json::Value entities = ParseConfiguration(configuration, size);
    std::string list;
    for (Json::ArrayIndex i = 0; i < entities.size(); ++i) {
      std::string missing;
      const MorvixProtocolEntity_4_0 info = IdentityOf(entities[i], missing);
      if (!missing.empty()) {
        logMsgEx(1, "morvix_entities", "%s", UnusableText(i, entities[i], missing).c_str());
        continue;
      }
      ObjectText text;
      text.Add("id", std::to_string(info.id));
      text.Add("name", Json::Value(info.name));
      text.Add("displayName", Json::Value(info.display_name));
      AddItem(list, text.Take());
    }
    Return("[" + list + "]", json);
  });
}

morvix_status morvix_entity_open(const char* configuration, size_t size, const char* name, morvix_entity** entity,
                                 char** message) {
  if (entity != nullptr) *entity = nullptr;
  return Call(message, [&] {
    RequirePointer(entity, "entity");
    const Json::Value entities = ParseConfiguration(configuration, size);
    const Json::ArrayIndex index = FindEntity(entities, name);
    const Json::Value& chosen = entities[index];
    std::string missing;
    static_cast<void>(IdentityOf(chosen, missing));
    if (!missing.empty()) RejectInput(UnusableText(index, chosen, missing));
    CheckItems(chosen);
    try {
      *entity = new morvix_entity(chosen);
    } catch (const Json::LogicError&) {
      RejectInput(LimitKindText(chosen));
    }
  });
}

void morvix_entity_close(morvix_entity* entity) { delete entity; }

morvix_status morvix_entity_describe(const morvix_entity* entity, morvix_bytes* json) {
  if (json != nullptr) *json = {};
  return Call(nullptr, [&] {
    RequirePointer(entity, "entity");
    RequirePointer(json, "json");
    Return(entity->description, json);
  });
}

morvix_status morvix_encode(const morvix_entity* entity, const char* values, size_t size, int command,
                            const int32_t* sub_device, morvix_bytes* packet, char** message) {
  if (packet != nullptr) *packet = {};
  return Call(message, [&] {
    RequirePointer(entity, "entity");
    RequirePointer(packet, "packet");
    const Json::Value document = ParseText(values, size, "the value document");
    Return(Write(*entity, document, command, sub_device).Packet(), packet);
  });
}

morvix_status morvix_request(int command, const int32_t* sub_device, morvix_bytes* packet, char** message) {
  if (packet != nullptr) *packet = {};
  return Call(message, [&] {
    RequirePointer(packet, "packet");
    Return(Request(command, sub_device), packet);
  });
}

morvix_status morvix_decode(const morvix_entity* entity, const uint8_t* packet, size_t size, morvix_bytes* document,
                            char** message) {
  if (document != nullptr) *document = {};
  return Call(message, [&] {
    RequirePointer(entity, "entity");
    RequirePointer(document, "document");
    CheckPacket(packet, size);
    const Package package = Unpacked(packet, size);
    Json::Value decoded(Json::objectValue);
    ProtocolDecodeAttributes_4_0(entity->info, entity->reading.attributes, package, decoded);
    Return(JsonText(decoded), document);
  });
}

morvix_status morvix_receive(const morvix_entity* entity, const uint8_t* packet, size_t size, morvix_bytes* document,
                             morvix_bytes* active, char** message) {
  if (document != nullptr) *document = {};
  if (active != nullptr) *active = {};
  return Call(message, [&] {
    RequirePointer(entity, "entity");
    RequirePointer(document, "document");
    RequirePointer(active, "active");
    CheckPacket(packet, size);
    Received received;
    if (!Receive(*entity, packet, size, received)) throw std::bad_alloc();
    std::string text = "{";
    AddActive(text, received);
    text += '}';
    Return(received.document, document, text, active);
  });
}

morvix_status morvix_receive_many(const morvix_entity* entity, const uint8_t* packets, const size_t* offsets,
                                  size_t count, morvix_bytes* lines) {
  if (lines != nullptr) *lines = {};
  return Call(nullptr, [&] {
    RequirePointer(entity, "entity");
    RequirePointer(lines, "lines");
    Return(ReceivedLines(*entity, Packets(packets, offsets, count)), lines);
  });
}

morvix_status morvix_receive_table(const morvix_entity* entity, const uint8_t* packets, const size_t* offsets,
                                   size_t count, double* values, uint8_t* refused) {
  return Call(nullptr, [&] {
    RequirePointer(entity, "entity");
    const Packets all(packets, offsets, count);
    if (count == 0) return;
    if (!entity->columns.empty()) RequirePointer(values, "values");
    RequirePointer(refused, "refused");
    Table table(*entity, count, values);
    LogCapture log;
    for (size_t i = 0; i < count; ++i) {
      refused[i] = table.AddRow(i, all.Data(i), all.SizeOf(i)) ? 0 : 1;
      if (!log.Lines().empty()) SendToLog(log.Take());
    }
  });
}

morvix_status morvix_convert(const char* document, size_t size, morvix_bytes* flattened, morvix_bytes* lists,
                             char** message) {
  if (flattened != nullptr) *flattened = {};
  if (lists != nullptr) *lists = {};
  return Call(message, [&] {
    RequirePointer(flattened, "flattened");
    RequirePointer(lists, "lists");
    const Json::Value parsed = ParseText(document, size, "the document");
    Json::Value alerts;
    Json::Value faults;
    const std::string text = ProtocolConvertReceiveResult_4_0(std::string(document, size), alerts, faults);
    if (text.empty()) RefuseDocument(parsed, document, size);
    ObjectText both;
    both.Add("alerts", alerts);
    both.Add("faults", faults);
    Return(text, flattened, both.Take(), lists);
  });
}

void morvix_set_log(morvix_log_sink sink, void* context, int level) {
  const std::lock_guard<std::mutex> lock(logMutex);
  logTarget = {sink, context, level};
}
