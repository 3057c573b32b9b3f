#include "Input.h"

#include <json/reader.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <system_error>
#include <utility>

#include "Text.h"
#include "host/Logging.h"

namespace dp4 {

namespace {

// Whoever writes a longer document by hand has other troubles; without a limit an endless one would fill the memory.
constexpr size_t kMaxFileBytes = size_t{1} << 26;

std::string ReadAll(std::istream& in, const std::string& path) {
  std::string text;
  std::vector<char> buffer(65536);
  while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() != 0) {
    text.append(buffer.data(), static_cast<size_t>(in.gcount()));
    if (text.size() > kMaxFileBytes) {
      throw UsageError(FileName(path) + ": expected at most " + std::to_string(kMaxFileBytes) + " bytes");
    }
  }
  if (in.bad()) throw UsageError(FileName(path) + ": cannot be read");
  if (text.compare(0, 3, "\xef\xbb\xbf") == 0) text.erase(0, 3);
  return text;
}

Place PlaceAt(const std::string& text, size_t offset) {
  const auto end = text.begin() + static_cast<ptrdiff_t>(offset);
  const auto lines = static_cast<size_t>(std::count(text.begin(), end, '\n'));
  return {lines + 1, lines == 0 ? offset + 1 : offset - text.rfind('\n', offset)};
}

// A record of one field, whose scaling lets every raw value of up to 52 bits through.
MorvixProtocolAttribute_4_0 FieldAttribute(const MorvixProtocolPosition_4_0& position,
                                           MorvixProtocolDataType_4_0 dataType) {
  MorvixProtocolAttribute_4_0 attribute;
  attribute.name = "field";
  attribute.type = MorvixProtocolTypeStatusWritable_4_0;
  attribute.data_type = dataType;
  attribute.position = position;
  attribute.uint_spec.max = (int64_t{1} << 52) - 1;
  attribute.uint_spec.step = 1;
  attribute.uint_spec.ratio = 1;
  return attribute;
}

// The payload that the module makes of one field's value, as long as `payloadLength`; empty when it refuses.
std::vector<byte> WriteField(const MorvixProtocolAttribute_4_0& field, const Json::Value& value, size_t payloadLength) {
  MorvixProtocolAttribute_4_0 end;  // makes the payload as long as the real one
  end.name = "end";
  end.type = MorvixProtocolTypeStatusWritable_4_0;
  end.data_type = MorvixProtocolDataTypeBinary_4_0;
  end.position.byte_offset = static_cast<int32_t>(payloadLength) - 1;
  end.position.len = 1;
  MorvixProtocolEntity_4_0 entity;
  entity.name = "entity";
  Json::Value values;
  values["entity"]["field"] = value;
  OwnedPackage package;
  ProtocolEncodeAttributes_4_0(entity, {field, end}, package, values);
  return package.sizeValue == payloadLength ? package.Payload() : std::vector<byte>();
}

// Counted from the most significant bit of byte 0; one bit is always set.
size_t FirstSetBit(const std::vector<byte>& payload) {
  for (size_t i = 0; i < payload.size(); ++i) {
    for (size_t bit = 0; bit < 8; ++bit) {
      if ((payload[i] & 0x80 >> bit) != 0) return 8 * i + bit;
    }
  }
  throw std::logic_error("the module wrote no bit");
}

}  // namespace

std::string FileName(const std::string& path) { return path == "-" ? "standard input" : Escaped(path); }

std::string PlaceName(const std::string& path, const Place& place) {
  return FileName(path) + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string JsonText::NameOf(const Json::Value& value) const {
  return NameOf(static_cast<size_t>(std::max<ptrdiff_t>(value.getOffsetStart(), 0)));
}

std::string JsonText::NameOf(size_t offset) const {
  if (lineStarts.empty()) {
    lineStarts.push_back(0);
    for (size_t i = text.find('\n'); i != std::string::npos; i = text.find('\n', i + 1)) lineStarts.push_back(i + 1);
  }
  const auto next = std::upper_bound(lineStarts.begin(), lineStarts.end(), offset);
  return PlaceName(path, {static_cast<size_t>(next - lineStarts.begin()), offset - *(next - 1) + 1});
}

std::string ReadWholeFile(const std::string& path) {
  if (path == "-") return ReadAll(std::cin, path);
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  const bool isOpen = file.is_open();
  file.peek();  // a directory opens, but reading it fails
  if (!isOpen || file.bad()) {
    throw UsageError(FileName(path) + ": cannot be read: " + std::generic_category().message(errno != 0 ? errno : EIO));
  }
  file.clear();
  return ReadAll(file, path);
}

JsonError FirstError(const std::string& report) {
  JsonError error;
  std::string word;
  std::istringstream text(report);  // "* Line 3, Column 5\n  Syntax error: ...\n"
  text >> word >> word >> error.place.line >> word >> word >> error.place.column >> std::ws;
  std::getline(text, error.message);
  return error;
}

bool ParseJsonText(const std::string& text, Json::Value& value, JsonError& error) {
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string report;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &report)) {
      error = FirstError(report);
      return false;
    }
  } catch (const Json::Exception&) {
    error = {Place(), "nested too deep"};
    return false;
  }
  // The reader takes it for the end of the text.
  const size_t nul = text.find('\0', static_cast<size_t>(value.getOffsetLimit()));
  if (nul == std::string::npos) return true;
  error = {PlaceAt(text, nul), "a NUL behind the document"};
  return false;
}

bool IsJsonNumber(const std::string& text) {
  size_t at = 0;
  const auto skipDigits = [&] {
    const size_t first = at;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0) ++at;
    return at - first;
  };
  if (at < text.size() && text[at] == '-') ++at;
  const bool hasLeadingZero = at + 1 < text.size() && text[at] == '0' && text[at + 1] >= '0' && text[at + 1] <= '9';
  if (hasLeadingZero || skipDigits() == 0) return false;
  if (at < text.size() && text[at] == '.') {
    ++at;
    if (skipDigits() == 0) return false;
  }
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
    if (skipDigits() == 0) return false;
  }
  return at == text.size();
}

JsonText ReadJsonFile(const std::string& path) {
  JsonText json;
  json.path = path;
  json.text = ReadWholeFile(path);
  JsonError error;
  if (!ParseJsonText(json.text, json.root, error)) {
    throw UsageError(PlaceName(path, error.place) + ": not JSON: " + Escaped(error.message));
  }
  return json;
}

const Json::Value& ChooseEntity(const JsonText& configuration, const std::string& choice) {
  if (!configuration.root.isObject() || !configuration.root["entities"].isArray()) {
    throw UsageError(configuration.NameOf(configuration.root) + ": expected an object with an array \"entities\"");
  }
  const Json::Value& all = configuration.root["entities"];
  if (all.empty()) throw UsageError(configuration.NameOf(all) + ": expected an entity, found none");
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
    known += (known.empty() ? "" : ", ") + NameText(name) + " (" + std::to_string(id) + ")";
  }
  if (byId != nullptr) return *byId;
  if (choice.empty() && all.size() == 1) return all[0];
  throw UsageError(
      FileName(configuration.path) + ": " +
      (choice.empty() ? "name one of the entities with --entity: " : "has no entity " + InQuotes(choice) + ", only ") +
      (known.empty() ? "none" : known));
}

ParsedEntity ParseEntity(const JsonText& configuration, const Json::Value& entity, int matchTypes, std::ostream* log) {
  ParsedEntity parsed;
  LogGatherer gatherer(log);
  try {
    const bool isUsable = ProtocolParseEntity_4_0(entity, matchTypes, parsed.attributes, parsed.info);
    parsed.lines = gatherer.Take();
    if (isUsable) return parsed;
  } catch (const Json::LogicError&) {
    throw UsageError(configuration.NameOf(entity) +
                     ": a \"min\" or \"max\" is an array or object; a number was expected");
  }
  throw UsageError(configuration.NameOf(entity) + ": unusable entity: " + Escaped(parsed.lines.back().text));
}

OwnedPackage::~OwnedPackage() {
  std::free(flags);
  std::free(value);
}

std::string LogText(const LoggedLine& line) {
  const std::string function = line.function.empty() ? "" : line.function + ": ";
  return "[" + std::to_string(line.level) + "] " + Escaped(function + line.text);
}

struct LogGatherer::State {
  std::ostream* echo;
  std::mutex mutex;
  std::vector<LoggedLine> lines;
  LogSink previousSink;
  int previousLevel = 0;
};

LogGatherer::LogGatherer(std::ostream* echo) : state_(new State) {
  state_->echo = echo;
  state_->previousLevel = SetLogLevel(2);
  state_->previousSink = SetLogSink([state = state_](int level, const char* functionName, const std::string& text) {
    const std::string function = functionName == nullptr ? "" : functionName;
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->lines.push_back({level, function, text});
    if (state->echo != nullptr) *state->echo << LogText(state->lines.back()) << '\n';
  });
}

LogGatherer::~LogGatherer() {
  SetLogSink(state_->previousSink);
  SetLogLevel(state_->previousLevel);
  delete state_;
}

std::vector<LoggedLine> LogGatherer::Take() {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return std::exchange(state_->lines, {});
}

BitRange FieldBits(const MorvixProtocolPosition_4_0& position, MorvixProtocolDataType_4_0 dataType,
                   size_t payloadLength) {
  const LogGatherer silent;
  const bool isInBits = position.unit == MorvixProtocolUnitBit_4_0;
  if (payloadLength == 0 || position.len < 1 || (isInBits && position.bit_offset < 0)) return {};
  // Enums and numbers are written alike; the scaling of a number lets every value through.
  const bool isNumber = dataType != MorvixProtocolDataTypeBool_4_0 && dataType != MorvixProtocolDataTypeBinary_4_0;
  const Json::Value zero = dataType == MorvixProtocolDataTypeBinary_4_0 ? Json::Value("") : Json::Value(0);
  const auto whole = FieldAttribute(position, isNumber ? MorvixProtocolDataTypeUInt64_4_0 : dataType);
  if (WriteField(whole, zero, payloadLength).empty()) return {};

  const auto length = static_cast<uint64_t>(position.len);
  MorvixProtocolPosition_4_0 part = position;
  part.len = 1;
  if (!isInBits) {
    const auto firstByte = FieldAttribute(part, MorvixProtocolDataTypeUInt8_4_0);
    const uint64_t highest = FirstSetBit(WriteField(firstByte, 0x80, payloadLength));
    return {highest, highest + length * 8};
  }
  const auto lowestBit = FieldAttribute(part, MorvixProtocolDataTypeBool_4_0);
  const uint64_t end = FirstSetBit(WriteField(lowestBit, 1, payloadLength)) + 1;
  return {end - length, end};
}

std::optional<size_t> PayloadLength(const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  LogGatherer log;
  const MorvixProtocolEntity_4_0 entity;
  std::vector<MorvixProtocolAttribute_4_0> all;
  for (MorvixProtocolAttribute_4_0 attribute : attributes) {
    attribute.name.clear();
    attribute.data_type = MorvixProtocolDataTypeBinary_4_0;  // left out, whatever it was
    all.push_back(std::move(attribute));
  }
  Json::Value values;
  {
    OwnedPackage package;
    ProtocolEncodeAttributes_4_0(entity, all, package, values);
    if (!log.Take().empty()) return 0;  // "No data will encode."
  }
  // Encoding one value of a made-up last attribute that lies in byte 0 makes the module say how long the payload is.
  MorvixProtocolPosition_4_0 first;
  first.len = 1;
  all.push_back(FieldAttribute(first, MorvixProtocolDataTypeUInt8_4_0));
  values[""]["field"] = 0;
  OwnedPackage package;
  ProtocolEncodeAttributes_4_0(entity, all, package, values);
  if (package.sizeValue == 0) return std::nullopt;
  return package.sizeValue;
}

size_t FlagBytes(size_t attributes) {
  const LogGatherer silent;
  MorvixProtocolPosition_4_0 position;
  position.len = 1;
  const auto attribute = FieldAttribute(position, MorvixProtocolDataTypeBinary_4_0);
  Json::Value root;
  root[""]["field"] = "";
  OwnedPackage package;
  ProtocolEncodeAttributes_4_0({}, std::vector<MorvixProtocolAttribute_4_0>(attributes, attribute), package, root);
  return package.sizeFlags;
}

const char* GroupName(MorvixProtocolType_4_0 group) {
  switch (group) {
    case MorvixProtocolTypeStatusWritable_4_0:
      return "writable";
    case MorvixProtocolTypeStatusReadonly_4_0:
      return "read-only";
    case MorvixProtocolTypeAlert_4_0:
      return "alert";
    case MorvixProtocolTypeFault_4_0:
      return "fault";
    default:
      return "unknown";
  }
}

const char* DataTypeName(MorvixProtocolDataType_4_0 dataType) {
  static const char* const kNames[] = {"unknown", "bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  return dataType <= MorvixProtocolDataTypeUInt64_4_0 ? kNames[dataType] : kNames[0];
}

std::string UserText(const MorvixProtocolAttribute_4_0& number, uint64_t raw) {
  byte payload[8];
  for (size_t i = 0; i < sizeof payload; ++i) payload[i] = static_cast<byte>(raw >> (56 - 8 * i));
  MorvixProtocolAttribute_4_0 attribute = number;
  attribute.name = "number";
  attribute.type = MorvixProtocolTypeStatusReadonly_4_0;
  attribute.position = {0, 0, MorvixProtocolUnitByte_4_0, sizeof payload, 0};
  MorvixProtocolPackage_4_0 package;
  package.value = payload;
  package.sizeValue = sizeof payload;
  Json::Value decoded(Json::objectValue);
  const LogGatherer silent;
  ProtocolDecodeAttributes_4_0(MorvixProtocolEntity_4_0(), {attribute}, package, decoded);
  return decoded[""]["number"]["value"].asString();
}

std::string NumberText(double number) {
  // A number whose scaling adds it to a raw 0 is decoded to it.
  MorvixProtocolAttribute_4_0 attribute = FieldAttribute({}, MorvixProtocolDataTypeUInt8_4_0);
  attribute.uint_spec.addition = number;
  return UserText(attribute, 0);
}

}  // namespace dp4
