#include "Input.h"

#include <json/reader.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <sstream>
#include <system_error>
#include <utility>

#include "Show.h"
#include "host/Logging.h"

namespace dp4 {

namespace {

Place PlaceAt(const std::string& text, size_t offset) {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
  Place place;
  place.line = 1 + static_cast<size_t>(std::count(text.begin(), end, '\n'));
  const auto lineStart = std::find(std::make_reverse_iterator(end), text.rend(), '\n').base();
  place.column = 1 + static_cast<size_t>(end - lineStart);
  return place;
}

// The first problem of a report of the form "* Line 3, Column 5\n  Syntax error: ...\n".
JsonError FirstError(const std::string& report) {
  JsonError error;
  unsigned long line = 1;
  unsigned long column = 1;
  if (std::sscanf(report.c_str(), "* Line %lu, Column %lu", &line, &column) == 2) error.place = {line, column};
  std::istringstream lines(report);
  std::getline(lines, error.message);  // the place
  std::getline(lines, error.message);
  error.message.erase(0, error.message.find_first_not_of(' '));
  return error;
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
  MorvixProtocolPackage_4_0 package;
  ProtocolEncodeAttributes_4_0(entity, {field, end}, package, values);
  std::vector<byte> payload;
  if (package.sizeValue == payloadLength) payload.assign(package.value, package.value + package.sizeValue);
  std::free(package.flags);
  std::free(package.value);
  return payload;
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

Place JsonText::PlaceOf(const Json::Value& value) const {
  return PlaceAt(text, static_cast<size_t>(std::max<ptrdiff_t>(value.getOffsetStart(), 0)));
}

std::string ReadWholeFile(const std::string& path) {
  if (path == "-") return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  const bool isOpen = file.is_open();
  file.peek();  // a directory opens, but reading it fails
  if (!isOpen || file.bad()) {
    throw UsageError(path + ": cannot be read: " + std::generic_category().message(errno != 0 ? errno : EIO));
  }
  file.clear();
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool ParseJsonText(const std::string& text, Json::Value& value, JsonError& error) {
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string report;
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &value, &report)) return true;
    error = FirstError(report);
  } catch (const Json::Exception&) {
    error = {Place(), "nested too deep"};
  }
  return false;
}

JsonText ReadJsonFile(const std::string& path) {
  JsonText json;
  json.path = path;
  json.text = ReadWholeFile(path);
  JsonError error;
  if (!ParseJsonText(json.text, json.root, error)) {
    throw UsageError(path + ":" + std::to_string(error.place.line) + ":" + std::to_string(error.place.column) +
                     ": not JSON: " + error.message);
  }
  return json;
}

const Json::Value& ChooseEntity(const JsonText& configuration, const std::string& choice) {
  if (!configuration.root.isObject() || !configuration.root["entities"].isArray()) {
    throw UsageError(configuration.path + ": expected an object with an array \"entities\"");
  }
  const Json::Value& all = configuration.root["entities"];
  std::string known;
  for (const Json::Value& entity : all) {
    int32_t id = 0;
    std::string name;
    if (!ProtocolGetAttrInteger_4_0(entity, "id", id) || !ProtocolGetAttrString_4_0(entity, "name", name)) continue;
    if (!choice.empty() && (name == choice || std::to_string(id) == choice)) return entity;
    known += (known.empty() ? "" : ", ") + name + " (" + std::to_string(id) + ")";
  }
  if (choice.empty() && all.size() == 1) return all[0];
  throw UsageError(
      configuration.path + ": " +
      (choice.empty() ? "name one of the entities with --entity: " : "has no entity " + choice + ", only ") +
      (known.empty() ? "none" : known));
}

ParsedEntity ParseEntity(const JsonText& configuration, const Json::Value& entity, int matchTypes) {
  ParsedEntity parsed;
  LogGatherer log;
  try {
    if (ProtocolParseEntity_4_0(entity, matchTypes, parsed.attributes, parsed.info)) return parsed;
  } catch (const Json::LogicError&) {
    throw UsageError(configuration.path + ": a \"min\" or \"max\" is an array or object; a number was expected");
  }
  const Place place = configuration.PlaceOf(entity);
  throw UsageError(configuration.path + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) +
                   ": unusable entity: " + log.Take().at(0).text);
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
    if (state->echo != nullptr) {
      *state->echo << '[' << level << "] " << (function.empty() ? "" : function + ": ") << Escaped(text) << '\n';
    }
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

std::vector<size_t> FieldBits(const MorvixProtocolPosition_4_0& position, MorvixProtocolDataType_4_0 dataType,
                              size_t payloadLength) {
  const LogGatherer silent;
  std::vector<size_t> bits;
  const bool isInBits = position.unit == MorvixProtocolUnitBit_4_0;
  if (payloadLength == 0 || position.len < 1 || (isInBits && position.bit_offset < 0)) return bits;
  // Enums and numbers are written alike; the scaling of a number lets every value through.
  const bool isNumber = dataType != MorvixProtocolDataTypeBool_4_0 && dataType != MorvixProtocolDataTypeBinary_4_0;
  const Json::Value zero = dataType == MorvixProtocolDataTypeBinary_4_0 ? Json::Value("") : Json::Value(0);
  const auto whole = FieldAttribute(position, isNumber ? MorvixProtocolDataTypeUInt64_4_0 : dataType);
  if (WriteField(whole, zero, payloadLength).empty()) return bits;

  if (!isInBits) {
    MorvixProtocolPosition_4_0 firstByte = position;
    firstByte.len = 1;
    const auto first = FieldAttribute(firstByte, MorvixProtocolDataTypeUInt8_4_0);
    const size_t firstBit = FirstSetBit(WriteField(first, 0x80, payloadLength));
    const size_t count = static_cast<size_t>(position.len) * 8;
    for (size_t k = 0; k < count; ++k) bits.push_back(firstBit + count - 1 - k);
    return bits;
  }
  for (int32_t k = 0; k < position.len; ++k) {
    MorvixProtocolPosition_4_0 oneBit = position;
    oneBit.len = 1;
    oneBit.bit_offset += k;
    // A bit above the group lies in a longer group that ends at the same byte.
    while (oneBit.groupByteLength * 8 <= static_cast<size_t>(oneBit.bit_offset)) {
      ++oneBit.groupByteLength;
      --oneBit.byte_offset;
    }
    bits.push_back(FirstSetBit(WriteField(FieldAttribute(oneBit, MorvixProtocolDataTypeBool_4_0), 1, payloadLength)));
  }
  return bits;
}

size_t PayloadLength(const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  const LogGatherer silent;
  MorvixProtocolPackage_4_0 package;
  MorvixProtocolEntity_4_0 entity;
  // Encoding one value of a made-up last attribute that lies in byte 0 makes the module say how long the payload is.
  std::vector<MorvixProtocolAttribute_4_0> all;
  for (MorvixProtocolAttribute_4_0 attribute : attributes) {
    attribute.name.clear();
    attribute.data_type = MorvixProtocolDataTypeBinary_4_0;  // left out, whatever it was
    all.push_back(std::move(attribute));
  }
  MorvixProtocolPosition_4_0 first;
  first.len = 1;
  all.push_back(FieldAttribute(first, MorvixProtocolDataTypeUInt8_4_0));
  Json::Value values;
  values[""]["field"] = 0;
  ProtocolEncodeAttributes_4_0(entity, all, package, values);
  const size_t length = package.sizeValue;
  std::free(package.flags);
  std::free(package.value);
  return attributes.empty() ? 0 : length;
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

std::string NumberText(double number) {
  // A field whose scaling adds the number to a raw 0 is decoded to it.
  MorvixProtocolPosition_4_0 first;
  first.len = 1;
  MorvixProtocolAttribute_4_0 attribute = FieldAttribute(first, MorvixProtocolDataTypeUInt8_4_0);
  attribute.uint_spec.addition = number;
  byte zero = 0;
  MorvixProtocolPackage_4_0 package;
  package.value = &zero;
  package.sizeValue = 1;
  Json::Value decoded;
  ProtocolDecodeAttributes_4_0(MorvixProtocolEntity_4_0(), {attribute}, package, decoded);
  return decoded[""]["field"]["value"].asString();
}

}  // namespace dp4
