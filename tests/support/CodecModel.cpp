#include "CodecModel.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "TestSupport.h"

namespace model {

// --- Members of JSON objects ---

namespace {

// What a C string would hold of the text.
std::string CutAtNul(const std::string& text) { return text.substr(0, text.find('\0')); }

// The member whose whole name is `name`; null when there is none. It is not copied: most of the time would go into
// that.
const Json::Value& Member(const Json::Value& object, const std::string& name) {
  const Json::Value* member = object.find(name.data(), name.data() + name.size());
  return member == nullptr ? Json::Value::nullSingleton() : *member;
}

// The member for the scalar readers: null where they give up at once.
const Json::Value& ScalarMember(const Json::Value& object, const std::string& key) {
  return KindOf(object) == Kind::kObject ? Member(object, CutAtNul(key)) : Json::Value::nullSingleton();
}

// All integers are scanned with 64 bits, whatever the machine's `long`, and cut to their target.
bool ScanInteger(const std::string& text, long long& value) { return std::sscanf(text.c_str(), "%lli", &value) != 0; }

int32_t Cut(long long value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }

}  // namespace

Kind KindOf(const Json::Value& value) {
  switch (value.type()) {
    case Json::nullValue:
      return Kind::kNull;
    case Json::booleanValue:
      return Kind::kBool;
    case Json::realValue:
      return Kind::kReal;
    case Json::stringValue:
      return Kind::kText;
    case Json::arrayValue:
      return Kind::kArray;
    case Json::objectValue:
      return Kind::kObject;
    case Json::uintValue:
      return value.asLargestUInt() <= UINT32_MAX ? Kind::kUnsigned : Kind::kReal;
    case Json::intValue:
      break;
  }
  const Json::LargestInt integer = value.asLargestInt();
  if (integer < INT32_MIN) return Kind::kReal;
  if (integer <= INT32_MAX) return Kind::kSigned;
  return integer <= UINT32_MAX ? Kind::kUnsigned : Kind::kReal;
}

bool ReadInteger(const Json::Value& object, const std::string& key, int32_t& value) {
  const Json::Value& member = ScalarMember(object, key);
  switch (KindOf(member)) {
    case Kind::kText: {
      long long scanned = value;
      if (!ScanInteger(member.asString(), scanned)) return false;
      value = Cut(scanned);
      return true;
    }
    case Kind::kBool:
      value = member.asBool() ? 1 : 0;
      return true;
    case Kind::kSigned:
    case Kind::kUnsigned:
      value = Cut(member.asLargestInt());
      return true;
    default:
      return false;
  }
}

bool ReadInteger64(const Json::Value& object, const std::string& key, int64_t& value) {
  const Json::Value& member = ScalarMember(object, key);
  switch (KindOf(member)) {
    case Kind::kNull:
      return false;
    case Kind::kText: {
      long long scanned = value;
      if (!ScanInteger(member.asString(), scanned)) return false;
      value = scanned;
      return true;
    }
    case Kind::kBool:
      value = member.asBool() ? 1 : 0;
      return true;
    case Kind::kSigned:
    case Kind::kUnsigned:
      value = member.asLargestInt();
      return true;
    case Kind::kReal:
      break;
    case Kind::kArray:
    case Kind::kObject:
      throw NotANumber();
  }
  if (member.type() == Json::intValue) {
    value = member.asLargestInt();
    return true;
  }
  if (member.type() == Json::uintValue) {
    value = member.asLargestUInt() > INT64_MAX ? INT64_MAX : static_cast<int64_t>(member.asLargestUInt());
    return true;
  }
  const double real = member.asDouble();
  if (real == 0.0) return false;
  const double limit = 9223372036854775808.0;  // 2 to the power 63
  if (real != real) {
    value = 0;
  } else if (real >= limit) {
    value = INT64_MAX;
  } else if (real < -limit) {
    value = INT64_MIN;
  } else {
    value = static_cast<int64_t>(real);
  }
  return true;
}

bool ReadHex(const Json::Value& object, const std::string& key, uint32_t& value) {
  const Json::Value& member = ScalarMember(object, key);
  if (KindOf(member) == Kind::kText) {
    unsigned long long scanned = value;
    if (std::sscanf(member.asCString(), "0x%llX", &scanned) == 0) return false;
    value = static_cast<uint32_t>(scanned);
    return true;
  }
  if (KindOf(member) != Kind::kUnsigned) return false;
  value = static_cast<uint32_t>(member.asLargestUInt());
  return true;
}

bool ReadDouble(const Json::Value& object, const std::string& key, double& value) {
  const Json::Value& member = ScalarMember(object, key);
  switch (KindOf(member)) {
    case Kind::kText:
      return std::sscanf(member.asCString(), "%lf", &value) != 0;
    case Kind::kReal:
    case Kind::kSigned:
    case Kind::kUnsigned:
      value = member.asDouble();
      return true;
    default:
      return false;
  }
}

bool ReadText(const Json::Value& object, const std::string& key, std::string& value) {
  const Json::Value& member = ScalarMember(object, key);
  if (KindOf(member) != Kind::kText) return false;
  value = member.asString();
  return true;
}

bool ReadObject(const Json::Value& object, const std::string& key, Json::Value& value) {
  if (KindOf(object) != Kind::kObject) return false;
  value = Json::Value(Member(object, CutAtNul(key)));
  return KindOf(value) == Kind::kObject;
}

// --- Configurations ---

namespace {

bool IsUnsignedType(const Attribute& attribute) { return attribute.data_type >= 4 && attribute.data_type <= 7; }
bool IsBitPacked(const Attribute& attribute) { return attribute.data_type == 1 || attribute.data_type == 2; }

std::string Keyword(const std::string& text) {
  std::string keyword = CutAtNul(text);
  for (char& letter : keyword) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return keyword;
}

MorvixProtocolType_4_0 TypeOf(const std::string& text) {
  const std::string keyword = Keyword(text);
  if (keyword == "status_writable") return MorvixProtocolTypeStatusWritable_4_0;
  if (keyword == "status_readonly") return MorvixProtocolTypeStatusReadonly_4_0;
  if (keyword == "alert") return MorvixProtocolTypeAlert_4_0;
  if (keyword == "fault") return MorvixProtocolTypeFault_4_0;
  return MorvixProtocolTypeUnknown_4_0;
}

MorvixProtocolDataType_4_0 DataTypeOf(const std::string& text) {
  const std::string keyword = Keyword(text);
  if (keyword == "bool") return MorvixProtocolDataTypeBool_4_0;
  if (keyword == "enum") return MorvixProtocolDataTypeEnum_4_0;
  if (keyword == "binary") return MorvixProtocolDataTypeBinary_4_0;
  if (keyword == "uint8") return MorvixProtocolDataTypeUInt8_4_0;
  if (keyword == "uint16") return MorvixProtocolDataTypeUInt16_4_0;
  if (keyword == "uint32") return MorvixProtocolDataTypeUInt32_4_0;
  if (keyword == "uint64") return MorvixProtocolDataTypeUInt64_4_0;
  return MorvixProtocolDataTypeUnknown_4_0;
}

MorvixProtocolUnit_4_0 UnitOf(const std::string& text) {
  const std::string keyword = Keyword(text);
  if (keyword.empty() || keyword == "byte") return MorvixProtocolUnitByte_4_0;
  if (keyword == "bit") return MorvixProtocolUnitBit_4_0;
  return MorvixProtocolUnitUnknown_4_0;
}

// The name of the member that makes the entity unusable; empty when it is fine.
std::string ReadEntity(const Json::Value& json, Entity& entity) {
  if (!ReadInteger(json, "id", entity.id)) return "id";
  if (!ReadText(json, "name", entity.name)) return "name";
  if (!ReadText(json, "display_name", entity.display_name)) return "display_name";
  if (KindOf(Member(json, "attrs")) != Kind::kArray) return "attrs";
  return "";
}

void ReadItems(const Json::Value& json, std::vector<std::string>& items) {
  for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
    if (KindOf(json[i]) == Kind::kText) items.push_back(json[i].asString());
  }
}

// What the walk over the attributes carries from one to the next: members of the configuration, or null.
struct Walk {
  const Json::Value* uintSpec = &Json::Value::nullSingleton();
  const Json::Value* enumValue = &Json::Value::nullSingleton();
  MorvixProtocolType_4_0 currentType = MorvixProtocolTypeUnknown_4_0;
  size_t groupMin = SIZE_MAX;
  size_t groupMax = SIZE_MAX;
};

// Sets `isSelected`, and gives the name of the member for which the attribute is to be skipped, or an empty text.
std::string ReadAttribute(const Json::Value& json, int matchTypes, Walk& walk, Attribute& attribute, bool& isSelected) {
  isSelected = false;
  if (KindOf(json) != Kind::kObject) return "attr";
  std::string type;
  std::string dataType;
  std::string unit;
  if (!ReadInteger(json, "id", attribute.id)) return "id";
  if (!ReadText(json, "name", attribute.name)) return "name";
  if (!ReadText(json, "display_name", attribute.display_name)) return "display_name";
  if (!ReadText(json, "desc", attribute.desc)) return "desc";
  if (!ReadText(json, "type", type)) return "type";
  if (!ReadText(json, "data_type", dataType)) return "data_type";
  attribute.type = TypeOf(type);
  attribute.data_type = DataTypeOf(dataType);
  if (attribute.type == MorvixProtocolTypeUnknown_4_0) return "type";
  if (attribute.data_type == MorvixProtocolDataTypeUnknown_4_0) return "data_type";
  if ((attribute.type & static_cast<uint32_t>(matchTypes)) == 0) return "";
  isSelected = true;
  const Json::Value& position = Member(json, "position");
  if (KindOf(position) != Kind::kObject) return "position";
  if (IsUnsignedType(attribute)) {
    walk.uintSpec = &Member(json, "uint_spec");
    if (KindOf(*walk.uintSpec) != Kind::kObject) return "uint_spec";
  }
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
    walk.enumValue = &Member(json, "enum");
    if (KindOf(*walk.enumValue) != Kind::kArray || walk.enumValue->size() == 0) {
      walk.enumValue = &Json::Value::nullSingleton();
      return "enum";
    }
  }
  if (!ReadInteger(position, "byte_offset", attribute.position.byte_offset)) return "byte_offset";
  if (!ReadInteger(position, "bit_offset", attribute.position.bit_offset)) return "bit_offset";
  if (!ReadText(position, "unit", unit)) return "unit";
  if (!ReadInteger(position, "len", attribute.position.len)) return "len";
  attribute.position.unit = UnitOf(unit);
  if (attribute.position.unit == MorvixProtocolUnitUnknown_4_0) return "position.unit";
  if (KindOf(*walk.uintSpec) != Kind::kNull) {
    if (!ReadInteger64(*walk.uintSpec, "min", attribute.uint_spec.min)) return "min";
    if (!ReadInteger64(*walk.uintSpec, "max", attribute.uint_spec.max)) return "max";
    attribute.uint_spec.step = 1;
    if (!ReadDouble(*walk.uintSpec, "ratio", attribute.uint_spec.ratio)) return "ratio";
    if (!ReadDouble(*walk.uintSpec, "addition", attribute.uint_spec.addition)) return "addition";
  }
  if (KindOf(*walk.enumValue) != Kind::kNull) ReadItems(*walk.enumValue, attribute.enumList);
  return "";
}

// What can be told of an element of the configuration; `skipped` as ReadAttribute gives it.
Element Describe(const Json::Value& json, const std::string& skipped) {
  Element element;
  element.invalid = skipped;
  std::string keyword;
  if (ReadText(json, "type", keyword)) element.type = TypeOf(keyword);
  if (ReadText(json, "data_type", keyword)) element.data_type = DataTypeOf(keyword);
  return element;
}

void KeepGroups(const Attribute& next, Walk& walk, Attributes& attributes) {
  if (walk.currentType == next.type && IsBitPacked(next)) {
    walk.groupMax += 1;
    return;
  }
  SizeRange(attributes, walk.groupMin, walk.groupMax);
  walk.groupMin = attributes.size() + (IsBitPacked(next) ? 0 : 1);
  walk.groupMax = walk.groupMin;
  walk.currentType = next.type;
}

// The bytes up to the end of a group's last field. Without an end, or up to a negative one, there are no bytes.
size_t GroupBytes(const Position& last) {
  const int32_t bits = Cut(static_cast<long long>(last.bit_offset) + last.len);
  if (bits <= 0) return 0;
  const int32_t wholeBytes = bits / 8;
  return static_cast<size_t>(bits % 8 == 0 ? wholeBytes : wholeBytes + 1);
}

}  // namespace

void SizeRange(Attributes& attributes, size_t start, size_t end) {
  if (attributes.empty()) return;
  if (!IsBitPacked(attributes.back())) return;
  const size_t bytes = GroupBytes(attributes.back().position);
  for (size_t i = 0; i < attributes.size(); ++i) {
    if (start <= i && i <= end) attributes[i].position.groupByteLength = bytes;
  }
}

void SizeRuns(Attributes& attributes) {
  for (size_t i = 0; i < attributes.size(); ++i) {
    attributes[i].position.groupByteLength = 0;
    if (!IsBitPacked(attributes[i])) continue;
    size_t last = i;
    while (last + 1 < attributes.size() && IsBitPacked(attributes[last + 1]) &&
           attributes[last + 1].type == attributes[i].type) {
      ++last;
    }
    attributes[i].position.groupByteLength = GroupBytes(attributes[last].position);
  }
}

Parsed Parse(const Json::Value& entity, int matchTypes) {
  Parsed parsed;
  if (KindOf(entity) != Kind::kObject) {
    parsed.lines.push_back({1, "GetEntityInfo", "Warning: Invalid entity."});
    return parsed;
  }
  const std::string faulty = ReadEntity(entity, parsed.entity);
  if (!faulty.empty()) {
    parsed.lines.push_back({1, "GetEntityInfo", "Warning: Can't find '" + faulty + "' key."});
    return parsed;
  }
  parsed.lines.push_back({2, "",
                          "Filter entity: id='" + std::to_string(parsed.entity.id) + "' name='" +
                              CutAtNul(parsed.entity.name) + "' display_name='" + CutAtNul(parsed.entity.display_name) +
                              "'"});
  const Json::Value& json = Member(entity, "attrs");
  Walk walk;
  try {
    for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
      Attribute attribute;
      bool isSelected = false;
      const std::string skipped = ReadAttribute(json[i], matchTypes, walk, attribute, isSelected);
      parsed.elements.push_back(Describe(json[i], skipped));
      if (!skipped.empty()) {
        parsed.lines.push_back({1, "FilterConfigType", "Warning: '" + skipped + "' is invalid, skip."});
      } else if (isSelected) {
        parsed.elements.back().attribute = parsed.attributes.size();
        KeepGroups(attribute, walk, parsed.attributes);
        parsed.attributes.push_back(attribute);
      }
    }
  } catch (const NotANumber&) {
    parsed.hasThrown = true;
    return parsed;
  }
  SizeRange(parsed.attributes, walk.groupMin, walk.groupMax);
  parsed.usable = true;
  return parsed;
}

// --- Positions and bits ---

namespace {

// As all compares and sums of positions are: unsigned, 64 bits wide, with the sign carried up.
uint64_t Wide(int32_t value) { return static_cast<uint64_t>(static_cast<int64_t>(value)); }

Field LocateBytes(uint64_t payloadBytes, uint64_t byteOffset, uint64_t length) {
  Field field;
  field.isSized = true;
  field.byteLength = length;
  if (byteOffset >= payloadBytes) {  // every offset is outside an empty payload
    field.place = Place::kBytesStartOutside;
  } else if (length > payloadBytes) {
    field.place = Place::kBytesTooMany;
  } else if (length == 0) {
    field.place = Place::kBytesNone;
  } else if (byteOffset + length > payloadBytes) {
    field.place = Place::kBytesEndOutside;
  } else {
    field.place = Place::kBytesFound;
    field.firstByte = byteOffset;
  }
  return field;
}

Field LocateBits(uint64_t payloadBytes, const Position& position) {
  Field field;
  const uint64_t groupBits = uint64_t{position.groupByteLength} * 8;
  if (groupBits < Wide(position.bit_offset) + 1) {
    field.place = Place::kBitsOutsideGroup;
    return field;
  }
  // Bit numbers here count from the payload's start, from the most significant bit of byte 0.
  const uint64_t groupEnd = Wide(position.byte_offset) * 8 + groupBits;
  const uint64_t end = groupEnd - Wide(position.bit_offset);
  const uint64_t start = end - Wide(position.len);
  const uint64_t startByte = start / 8;
  const uint64_t endByte = end / 8 + (end % 8 == 0 ? 0 : 1);
  field.isSized = true;
  field.byteLength = (start % 8 + Wide(position.len)) / 8 + (end % 8 == 0 ? 0 : 1);
  if (startByte >= payloadBytes) {  // a start before the payload is a huge number
    field.place = Place::kBitsStartOutside;
  } else if (field.byteLength > payloadBytes) {
    field.place = Place::kBitsSpanTooMany;
  } else if (field.byteLength == 0) {
    field.place = Place::kBitsSpanNone;
  } else if (endByte > payloadBytes) {
    field.place = Place::kBitsEndOutside;
  } else {
    field.place = Place::kBitsFound;
    field.firstByte = startByte;
  }
  return field;
}

// The bits of a word; the least significant one is number 0.
using Bits = std::array<bool, 64>;

Bits ToBits(uint64_t word) {
  Bits bits;
  for (bool& bit : bits) {
    bit = word % 2 == 1;
    word /= 2;
  }
  return bits;
}

uint64_t FromBits(const Bits& bits) {
  uint64_t word = 0;
  for (size_t i = bits.size(); i > 0; --i) word = word * 2 + (bits[i - 1] ? 1 : 0);
  return word;
}

bool BitOf(byte value, size_t number) {
  for (size_t i = 0; i < number; ++i) value = static_cast<byte>(value / 2);
  return value % 2 == 1;
}

// Bits of a word from and to its bytes. `lowestFirst`: bytes[0] holds the bits 0 to 7. Otherwise the last byte does.
void PutBytes(const Bytes& bytes, bool lowestFirst, Bits& bits) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    const size_t place = lowestFirst ? i : bytes.size() - 1 - i;
    for (size_t bit = 0; bit < 8; ++bit) bits[place * 8 + bit] = BitOf(bytes[i], bit);
  }
}

void TakeBytesHighestFirst(const Bits& bits, Bytes& bytes) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    const size_t place = bytes.size() - 1 - i;
    unsigned value = 0;
    for (size_t bit = 8; bit > 0; --bit) value = value * 2 + (bits[place * 8 + bit - 1] ? 1 : 0);
    bytes[i] = static_cast<byte>(value);
  }
}

bool IsCopyable(size_t spannedBytes, int32_t start, int32_t length) {
  if (start < 0 || length < 1 || length > 64) return false;
  if (spannedBytes == 0 || spannedBytes > 8) return false;
  return start % 8 + length <= 64;
}

bool IsField(uint64_t shift, uint64_t length) {
  if (shift > 63 || length == 0 || length > 64) return false;
  return shift + length <= 64;
}

Bytes Slice(const Bytes& payload, const Field& field) {
  Bytes spanned;
  for (uint64_t i = 0; i < field.byteLength; ++i) spanned.push_back(payload[static_cast<size_t>(field.firstByte + i)]);
  return spanned;
}

void PutSlice(const Bytes& spanned, const Field& field, Bytes& payload) {
  for (size_t i = 0; i < spanned.size(); ++i) payload[static_cast<size_t>(field.firstByte) + i] = spanned[i];
}

}  // namespace

Field Locate(uint64_t payloadBytes, const Position& position) {
  if (position.unit == MorvixProtocolUnitByte_4_0) {
    return LocateBytes(payloadBytes, Wide(position.byte_offset), Wide(position.len));
  }
  if (position.unit == MorvixProtocolUnitBit_4_0) return LocateBits(payloadBytes, position);
  return Field();
}

// A start outside 0 to 63 shifts everything out; a length of 0 or below keeps nothing, one from 64 on everything.
uint64_t KeepBits(uint64_t word, int64_t start, int64_t length) {
  if (start < 0 || start > 63) return 0;
  const Bits bits = ToBits(word);
  Bits kept{};
  for (int64_t i = start; i < 64; ++i) {
    const bool isInside = length >= 64 || i - start < length;
    kept[static_cast<size_t>(i)] = isInside && bits[static_cast<size_t>(i)];
  }
  return FromBits(kept);
}

uint64_t DropBits(uint64_t word, uint64_t start, uint64_t length) {
  Bits bits = ToBits(word);
  for (uint64_t i = start; i < 64; ++i) {
    if (length >= 64 || i - start < length) bits[static_cast<size_t>(i)] = false;
  }
  return FromBits(bits);
}

bool ReadBits(const Bytes& spanned, int32_t start, int32_t length, uint64_t& word) {
  if (!IsCopyable(spanned.size(), start, length)) return false;
  Bits bits = ToBits(word);
  PutBytes(spanned, false, bits);
  word = KeepBits(FromBits(bits), start % 8, length);
  return true;
}

bool WriteBits(uint64_t word, int32_t start, int32_t length, Bytes& spanned) {
  if (!IsCopyable(spanned.size(), start, length)) return false;
  const int32_t shift = start % 8;
  Bits bits = ToBits(KeepBits(word, shift, length));
  if (shift != 0 || length % 8 != 0) {
    // The neighbours: loaded in the one order here, stored in the other below.
    Bits neighbours{};
    PutBytes(spanned, true, neighbours);
    for (int32_t i = 0; i < 64; ++i) {
      const bool isField = i >= shift && i < shift + length;
      if (!isField && neighbours[static_cast<size_t>(i)]) bits[static_cast<size_t>(i)] = true;
    }
  }
  TakeBytesHighestFirst(bits, spanned);
  return true;
}

bool PutField(uint64_t bits, uint64_t shift, uint64_t length, uint64_t& word) {
  if (!IsField(shift, length)) return false;
  const Bits from = ToBits(bits);
  Bits to = ToBits(word);
  for (size_t i = 0; i < length; ++i) to[static_cast<size_t>(shift) + i] = from[i];
  word = FromBits(to);
  return true;
}

bool GetField(uint64_t word, uint64_t shift, uint64_t length, uint64_t& bits) {
  if (!IsField(shift, length)) return false;
  const Bits from = ToBits(word);
  Bits to{};
  for (size_t i = 0; i < length; ++i) to[i] = from[static_cast<size_t>(shift) + i];
  bits = FromBits(to);
  return true;
}

bool WriteBigEndian(uint64_t word, uint64_t count, Bytes& bytes) {
  if (count < 1 || count > 8) return false;
  for (uint64_t i = count; i > 0; --i) {
    bytes[static_cast<size_t>(i - 1)] = static_cast<byte>(word % 256);
    word /= 256;
  }
  return true;
}

bool ReadBigEndian(const Bytes& bytes, uint64_t count, uint64_t& word) {
  if (count < 1 || count > 8) return false;
  uint64_t read = 0;
  uint64_t unit = 1;  // 256 to the power count; 0 for all eight bytes, which leave nothing of the word
  for (uint64_t i = 0; i < count; ++i) {
    read = read * 256 + bytes[static_cast<size_t>(i)];
    unit *= 256;
  }
  word = (unit == 0 ? 0 : word - word % unit) + read;
  return true;
}

// --- Scaling and texts ---

namespace {

const double kMaxScaled = 4503599627370495.0;               // 2 to the power 52, minus 1
const uint64_t kTooLargeFrom = uint64_t{4503599627370496};  // 2 to the power 52

Scaling CheckRange(uint64_t min, uint64_t max, uint64_t step) {
  if (max >= kTooLargeFrom) return Scaling::kMaxTooLarge;
  if (max < min) return Scaling::kRangeInverted;
  if (max - min < step) return Scaling::kRangeBelowStep;
  return Scaling::kOnGrid;
}

Scaling CheckRaw(uint64_t min, uint64_t max, uint64_t step, uint64_t raw) {
  if (raw < min) return Scaling::kBelowMin;
  if (raw > max) return Scaling::kAboveMax;
  if (raw == max) return Scaling::kAtMax;
  const uint64_t aboveMin = raw - min;
  const uint64_t remainder = step == 0 ? aboveMin : aboveMin % step;
  return remainder == 0 ? Scaling::kOnGrid : Scaling::kOffGrid;
}

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

bool IsAccepted(Scaling scaling) { return scaling == Scaling::kAtMax || scaling == Scaling::kOnGrid; }

Scaling ToRaw(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, double user, uint64_t& raw) {
  const Scaling range = CheckRange(min, max, step);
  if (!IsAccepted(range)) return range;
  const volatile double difference = user - addition;
  const volatile double quotient = difference / ratio;
  const double scaled = quotient;
  if (scaled > kMaxScaled) return Scaling::kTooLarge;
  if (scaled < 0) return Scaling::kNegative;
  if (scaled != scaled) {
    raw = 0;
  } else {
    const uint64_t whole = static_cast<uint64_t>(scaled);
    const double fraction = scaled - static_cast<double>(whole);
    raw = fraction > 0.5 ? whole + 1 : whole;
  }
  return CheckRaw(min, max, step, raw);
}

Scaling ToUser(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, uint64_t raw, double& user) {
  if (raw >= kTooLargeFrom) return Scaling::kMaxTooLarge;
  const Scaling range = CheckRange(min, max, step);
  if (!IsAccepted(range)) return range;
  const Scaling scaling = CheckRaw(min, max, step, raw);
  if (!IsAccepted(scaling)) return scaling;
  // Rounded twice on every machine, also on those that could multiply and add at once.
  const volatile double product = static_cast<double>(raw) * ratio;
  user = product + addition;
  return scaling;
}

std::string TrimNumber(const std::string& text) {
  std::string number = CutAtNul(text);
  const long length = static_cast<long>(number.size());
  long point = -1;
  for (long i = length - 1; i >= 0; --i) {
    if (number[static_cast<size_t>(i)] == '.') point = i;
  }
  if (point < 0) return number;
  long exponent = -1;
  for (long i = length - 2; i >= 0; --i) {
    if (number.compare(static_cast<size_t>(i), 2, "E+") == 0) exponent = i;
  }
  long index = length - 1 - (exponent >= 0 ? exponent : 0);
  while (index >= point) {
    char& letter = number[static_cast<size_t>(index)];
    if (letter != '0' && letter != '.') break;
    letter = '\0';
    --index;
  }
  return CutAtNul(number);
}

std::string NumberText(double number) {
  char printed[32] = {};
  std::snprintf(printed, sizeof printed, "%lf", number);
  return TrimNumber(printed);
}

std::string IndexText(uint64_t index) { return std::to_string(index).substr(0, 9); }

std::string Base64Text(const Bytes& bytes) {
  std::string text;
  unsigned left = 0;  // the bits that no symbol has taken
  unsigned count = 0;
  for (const byte value : bytes) {
    left = left * 256 + value;
    for (count += 8; count >= 6; count -= 6) {
      text += kAlphabet[left >> (count - 6)];
      left %= 1U << (count - 6);
    }
  }
  if (count != 0) text += kAlphabet[left << (6 - count)];
  while (text.size() % 4 != 0) text += '=';
  return text;
}

Bytes Base64Bytes(const std::string& text, size_t capacity) {
  Bytes bytes;
  unsigned left = 0;  // the bits that no byte has taken
  unsigned count = 0;
  for (const char letter : CutAtNul(text)) {
    if (letter == ' ' || (letter >= '\t' && letter <= '\r')) continue;
    const char* found = std::strchr(kAlphabet, letter);
    if (found == nullptr) break;
    left = left * 64 + static_cast<unsigned>(found - kAlphabet);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    if (bytes.size() < capacity) bytes.push_back(static_cast<byte>(left >> count));
    left %= 1U << count;
  }
  return bytes;
}

// --- Values in a payload ---

namespace {

const uint64_t kMaxBinaryBytes = 65535;

// Where a bool lies; not found also when it could not be a bool.
Field LocateBool(const Bytes& payload, const Position& position) {
  if (position.unit != MorvixProtocolUnitBit_4_0 || position.len != 1) return Field();
  const Field field = Locate(payload.size(), position);
  return field.byteLength == 1 ? field : Field();
}

Field LocateNumber(const Bytes& payload, const Position& position) {
  const Field field = Locate(payload.size(), position);
  return field.byteLength >= 1 && field.byteLength <= 8 ? field : Field();
}

Field LocateBinary(const Bytes& payload, const Position& position) {
  if (position.unit != MorvixProtocolUnitByte_4_0 || position.len == 0) return Field();
  Position bytes = position;
  bytes.bit_offset = 0;
  const Field field = Locate(payload.size(), bytes);
  return field.byteLength >= 1 && field.byteLength <= kMaxBinaryBytes ? field : Field();
}

// The place of the lowest bit in the last spanned byte. Of a negative offset it is negative, which is a huge shift.
uint64_t ShiftOf(const Position& position) { return Wide(position.bit_offset % 8); }

}  // namespace

Write WriteBool(Bytes& payload, const Position& position, bool value) {
  const Field field = LocateBool(payload, position);
  if (!field.IsFound()) return {false, payload.size()};
  byte& spanned = payload[static_cast<size_t>(field.firstByte)];
  uint64_t word = spanned;
  PutField(value ? 1 : 0, ShiftOf(position), 1, word);
  spanned = static_cast<byte>(word);
  return {true, field.byteLength};
}

Write WriteNumber(Bytes& payload, const Position& position, uint64_t value) {
  const Field field = LocateNumber(payload, position);
  if (!field.IsFound()) return {false, payload.size()};
  Bytes spanned = Slice(payload, field);
  if (position.unit == MorvixProtocolUnitByte_4_0) {
    WriteBigEndian(value, field.byteLength, spanned);
  } else {
    uint64_t word = 0;
    if (!ReadBits(spanned, position.bit_offset, position.len, word)) return {false, field.byteLength};
    PutField(value, ShiftOf(position), Wide(position.len), word);
    if (!WriteBits(word, position.bit_offset, position.len, spanned)) return {false, field.byteLength};
  }
  PutSlice(spanned, field, payload);
  return {true, field.byteLength};
}

bool WriteBinary(Bytes& payload, const Position& position, const std::string& base64) {
  const Field field = LocateBinary(payload, position);
  if (!field.IsFound()) return false;
  PutSlice(Base64Bytes(base64, static_cast<size_t>(field.byteLength)), field, payload);
  return true;
}

bool ReadBool(const Bytes& payload, const Position& position, bool& value) {
  const Field field = LocateBool(payload, position);
  if (!field.IsFound()) return false;
  uint64_t bit = 0;
  GetField(payload[static_cast<size_t>(field.firstByte)], ShiftOf(position), 1, bit);
  value = bit == 1;
  return true;
}

bool ReadNumber(const Bytes& payload, const Position& position, uint64_t& value) {
  const Field field = LocateNumber(payload, position);
  if (!field.IsFound()) return false;
  const Bytes spanned = Slice(payload, field);
  if (position.unit == MorvixProtocolUnitByte_4_0) {
    ReadBigEndian(spanned, field.byteLength, value);
  } else {
    uint64_t word = 0;
    ReadBits(spanned, position.bit_offset, position.len, word);
    GetField(word, ShiftOf(position), Wide(position.len), value);
  }
  return true;
}

bool ReadBinary(const Bytes& payload, const Position& position, std::string& base64) {
  const Field field = LocateBinary(payload, position);
  if (!field.IsFound()) return false;
  base64 = Base64Text(Slice(payload, field));
  return true;
}

// --- Encoding ---

namespace {

const char kEncode[] = "ProtocolEncodeEntity_4_0";
const char kDecode[] = "ProtocolDecodeEntity_4_0";

std::string ItemMessage(uint64_t index, size_t count) {
  return "Invalid enum value: " + std::to_string(Cut(static_cast<long long>(index))) + ", range: 0-" +
         std::to_string(Cut(static_cast<long long>(count)));
}

// The object of the entity's values; null when there is none.
const Json::Value& EntityValues(const Json::Value& root, const std::string& entityName) {
  const Json::Value& none = Json::Value::nullSingleton();
  if (KindOf(root) != Kind::kObject) return none;
  const Json::Value& values = Member(root, entityName);
  return KindOf(values) == Kind::kObject ? values : none;
}

bool ReadIndex(const Json::Value& values, const std::string& key, uint64_t& index) {
  std::string text;
  if (ReadText(values, key, text)) {
    unsigned long long scanned = index;
    if (std::sscanf(text.c_str(), "%llu", &scanned) == 0) return false;
    index = scanned;
    return true;
  }
  int32_t integer = 0;
  const bool isInteger = ReadInteger(values, key, integer);
  index = Wide(integer);
  return isInteger;
}

// The result of an attribute whose value is not read.
Result LeftOut(const Attribute& attribute, const Json::Value& values) {
  const std::string key = CutAtNul(attribute.name);
  const bool isGiven = KindOf(values) == Kind::kObject && values.find(key.data(), key.data() + key.size()) != nullptr;
  return {isGiven ? MorvixProtocolOutcomeWrongKind_4_0 : MorvixProtocolOutcomeAbsent_4_0, 0};
}

// What a write gives, with the message of one that fails.
Result ResultOfWrite(bool isDone, const char* type, uint64_t raw, std::string& message) {
  if (isDone) return {MorvixProtocolOutcomeDone_4_0, raw};
  message = std::string("Write ") + type + " value failed.";
  return {MorvixProtocolOutcomeRefusedByPlace_4_0, raw};
}

Result EncodeBool(const Attribute& attribute, const Json::Value& values, Bytes& payload, std::string& message) {
  uint64_t value = 0;
  if (!ReadIndex(values, attribute.name, value)) return LeftOut(attribute, values);
  const bool bit = value != 0;
  return ResultOfWrite(WriteBool(payload, attribute.position, bit).isDone, "bool", bit ? 1 : 0, message);
}

Result EncodeEnum(const Attribute& attribute, const Json::Value& values, Bytes& payload, std::string& message) {
  uint64_t index = 0;
  if (!ReadIndex(values, attribute.name, index)) return LeftOut(attribute, values);
  if (index >= attribute.enumList.size()) {
    message = ItemMessage(index, attribute.enumList.size());
    return {MorvixProtocolOutcomeRefusedByItems_4_0, index};
  }
  return ResultOfWrite(WriteNumber(payload, attribute.position, index).isDone, "enum", index, message);
}

Result EncodeBinary(const Attribute& attribute, const Json::Value& values, Bytes& payload, std::string& message) {
  std::string text;
  if (!ReadText(values, attribute.name, text)) return LeftOut(attribute, values);
  return ResultOfWrite(WriteBinary(payload, attribute.position, text), "binary", 0, message);
}

Result EncodeNumber(const Attribute& attribute, const Json::Value& values, Bytes& payload, std::string& message) {
  double user = 0;
  if (!ReadDouble(values, attribute.name, user)) return LeftOut(attribute, values);
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  uint64_t raw = 0;
  if (!IsAccepted(ToRaw(static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max), Wide(scaling.step),
                        scaling.ratio, scaling.addition, user, raw))) {
    message = "Validate uint value failed.";
    return {MorvixProtocolOutcomeRefusedByScaling_4_0, raw};
  }
  return ResultOfWrite(WriteNumber(payload, attribute.position, raw).isDone, "uint", raw, message);
}

// The message is set when the result ends the call.
Result EncodeAttribute(const Attribute& attribute, const Json::Value& values, Bytes& payload, std::string& message) {
  if (attribute.data_type == MorvixProtocolDataTypeBool_4_0) return EncodeBool(attribute, values, payload, message);
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) return EncodeEnum(attribute, values, payload, message);
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) return EncodeBinary(attribute, values, payload, message);
  if (IsUnsignedType(attribute)) return EncodeNumber(attribute, values, payload, message);
  message = "Attribute type is unknown, skip.";
  return {MorvixProtocolOutcomeRefusedByPlace_4_0, 0};
}

}  // namespace

uint64_t PayloadLength(const Attributes& attributes) {
  int64_t longest = 0;
  for (const Attribute& attribute : attributes) {
    const Position& position = attribute.position;
    int64_t bytes = position.len;
    if (position.unit == MorvixProtocolUnitBit_4_0) {
      const int64_t bits = static_cast<int64_t>(position.bit_offset) + position.len;
      bytes = bits / 8;  // toward zero, which is up for what is negative
      if (bits > 0 && bits % 8 != 0) bytes += 1;
    }
    longest = std::max(longest, position.byte_offset + bytes);
  }
  return static_cast<uint64_t>(longest);
}

Encoded EncodeAttributes(const Entity& entity, const Attributes& attributes, const Json::Value& root) {
  Encoded encoded;
  encoded.results.resize(attributes.size());
  const uint64_t length = PayloadLength(attributes);
  if (length == 0) {
    encoded.lines.push_back({1, kEncode, "No data will encode."});
    return encoded;
  }
  size_t flagBytes = 0;
  while (flagBytes * 8 < attributes.size()) ++flagBytes;
  encoded.hasBuffers = true;
  encoded.value.assign(static_cast<size_t>(length), 0);
  encoded.flags.assign(flagBytes, 0);

  const Json::Value& values = EntityValues(root, entity.name);
  bool isSet = false;
  for (size_t i = 0; i < attributes.size(); ++i) {
    std::string message;
    encoded.results[i] = EncodeAttribute(attributes[i], values, encoded.value, message);
    if (!message.empty()) {
      encoded.lines.push_back({1, kEncode, message});
      return encoded;
    }
    if (encoded.results[i].outcome == MorvixProtocolOutcomeDone_4_0) {
      // Flag 0 is the lowest bit of the last byte.
      byte& flag = encoded.flags[flagBytes - 1 - i / 8];
      for (unsigned bit = 1, number = 0; number < 8; bit *= 2, ++number) {
        if (number == i % 8) flag = static_cast<byte>(flag + bit);
      }
      isSet = true;
    }
  }
  if (isSet) {
    encoded.sizeFlags = flagBytes;
    encoded.sizeValue = static_cast<size_t>(length);
  }
  return encoded;
}

Encoded EncodeEntity(const Json::Value& entity, const Json::Value& root) {
  const Parsed parsed = Parse(entity, MorvixProtocolTypeStatusWritable_4_0);
  Encoded encoded;
  if (parsed.usable) encoded = EncodeAttributes(parsed.entity, parsed.attributes, root);
  encoded.hasThrown = parsed.hasThrown;
  encoded.lines.insert(encoded.lines.begin(), parsed.lines.begin(), parsed.lines.end());
  if (!parsed.usable && !parsed.hasThrown) encoded.lines.push_back({1, kEncode, "Get entity info failed."});
  return encoded;
}

// --- Decoding ---

namespace {

// One attribute's value for the document; null when there is none. The message is set when the result ends the call.

Json::Value DecodeBool(const Attribute& attribute, const Bytes& payload, Result& result) {
  bool value = false;
  if (!ReadBool(payload, attribute.position, value)) return Json::Value();
  result = {MorvixProtocolOutcomeDone_4_0, value ? uint64_t{1} : uint64_t{0}};
  return value;
}

Json::Value DecodeBinary(const Attribute& attribute, const Bytes& payload, Result& result) {
  std::string text;
  if (!ReadBinary(payload, attribute.position, text)) return Json::Value();
  result.outcome = MorvixProtocolOutcomeDone_4_0;
  return text;
}

Json::Value DecodeEnum(const Attribute& attribute, const Bytes& payload, Result& result, std::string& message) {
  if (!ReadNumber(payload, attribute.position, result.raw)) return Json::Value();
  if (result.raw >= attribute.enumList.size()) {
    message = ItemMessage(result.raw, attribute.enumList.size());
    result.outcome = MorvixProtocolOutcomeRefusedByItems_4_0;
    return Json::Value();
  }
  result.outcome = MorvixProtocolOutcomeDone_4_0;
  return IndexText(result.raw);
}

Json::Value DecodeNumber(const Attribute& attribute, const Bytes& payload, Result& result) {
  if (!ReadNumber(payload, attribute.position, result.raw)) return Json::Value();
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  double user = 0;
  if (!IsAccepted(ToUser(static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max), Wide(scaling.step),
                         scaling.ratio, scaling.addition, result.raw, user))) {
    result.outcome = MorvixProtocolOutcomeRefusedByScaling_4_0;
    return Json::Value();
  }
  result.outcome = MorvixProtocolOutcomeDone_4_0;
  return NumberText(user);
}

void ClearEntity(Json::Value& document, const std::string& name) {
  if (KindOf(document) != Kind::kObject) document = Json::Value(Json::objectValue);
  document.removeMember(name.data(), name.data() + name.size(), nullptr);
}

void Store(Json::Value& document, const Entity& entity, const Attribute& attribute, const Json::Value& value) {
  const bool isReported =
      attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
  const std::string& key = isReported ? attribute.display_name : attribute.name;
  if (KindOf(document) != Kind::kObject) document = Json::Value(Json::objectValue);
  Json::Value& values = document[entity.name];
  if (KindOf(values) != Kind::kObject) values = Json::Value(Json::objectValue);
  Json::Value& item = values[key];
  if (KindOf(item) != Kind::kObject) item = Json::Value(Json::objectValue);
  item["type"] = static_cast<Json::Int>(attribute.type);
  item["value"] = value;
}

Result DecodeAttribute(const Entity& entity, const Attribute& attribute, const Bytes& payload, Json::Value& document,
                       std::string& message) {
  Result result = {MorvixProtocolOutcomeUnreadable_4_0, 0};
  Json::Value value;
  bool mayBeUnreadable = false;
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
    value = DecodeEnum(attribute, payload, result, message);
    mayBeUnreadable = true;
  } else if (IsUnsignedType(attribute)) {
    value = DecodeNumber(attribute, payload, result);
    mayBeUnreadable = true;
  } else if (attribute.data_type == MorvixProtocolDataTypeBool_4_0) {
    value = DecodeBool(attribute, payload, result);
  } else if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
    value = DecodeBinary(attribute, payload, result);
  } else {
    message = "Unknown attribute type.";
  }
  if (result.outcome == MorvixProtocolOutcomeDone_4_0) {
    Store(document, entity, attribute, value);
  } else if (!mayBeUnreadable) {
    ClearEntity(document, entity.name);
    if (message.empty()) message = "Decode value is invalid.";
  }
  return result;
}

}  // namespace

Decoded DecodeAttributes(const Entity& entity, const Attributes& attributes, const Bytes& payload,
                         const Json::Value& document) {
  Decoded decoded;
  decoded.document = document;
  decoded.results.resize(attributes.size());
  if (payload.empty()) {
    decoded.lines.push_back({1, kDecode, "No data to decode."});
    return decoded;
  }
  for (size_t i = 0; i < attributes.size(); ++i) {
    std::string message;
    decoded.results[i] = DecodeAttribute(entity, attributes[i], payload, decoded.document, message);
    if (!message.empty()) {
      decoded.lines.push_back({1, kDecode, message});
      return decoded;
    }
  }
  return decoded;
}

Decoded DecodeEntity(const Json::Value& entity, const Bytes& payload, const Json::Value& document) {
  if (payload.empty()) return DecodeAttributes(Entity(), Attributes(), payload, document);
  const Parsed parsed = Parse(entity, 15);
  Decoded decoded;
  decoded.document = document;
  if (parsed.usable) decoded = DecodeAttributes(parsed.entity, parsed.attributes, payload, document);
  decoded.hasThrown = parsed.hasThrown;
  decoded.lines.insert(decoded.lines.begin(), parsed.lines.begin(), parsed.lines.end());
  if (!parsed.usable && !parsed.hasThrown) decoded.lines.push_back({1, kDecode, "Get entity info failed."});
  return decoded;
}

// --- Packets and receive results ---

namespace {

bool IsOneOf(uint32_t command, std::initializer_list<uint32_t> commands) {
  return std::find(commands.begin(), commands.end(), command) != commands.end();
}

// The sub-device id is the one field in the machine's own byte order.
void PutSubDid(int32_t subDid, Bytes& buffer) { std::memcpy(&buffer[1], &subDid, 4); }

}  // namespace

size_t Pack(const Package& package, Bytes& buffer, size_t bufLen, Lines& lines) {
  if (package.sizeFlags > 1024 || package.sizeValue > 16384) return 0;
  const uint32_t command = package.cmd;
  size_t required = 0;
  if (IsOneOf(command, {2, 8, 11, 12, 13})) {
    required = 1;
  } else if (IsOneOf(command, {1, 7})) {
    required = 1 + package.sizeFlags + package.sizeValue;
    if (required < 3) return 0;
  } else {
    lines.push_back({1, "ProtocolPackPackage_4_0", "Invalid command " + std::to_string(static_cast<int32_t>(command))});
    return 0;
  }
  if (required > bufLen) return 0;
  buffer[0] = static_cast<byte>(command);
  if (IsOneOf(command, {2, 11, 13})) return 1;
  if (IsOneOf(command, {8, 12})) {
    if (package.needInsertSubDid == 0) return 0;
    PutSubDid(package.subDid, buffer);
    return 5;
  }
  size_t next = 1;
  if (package.needInsertSubDid != 0) {
    PutSubDid(package.subDid, buffer);
    next += 4;
    required += 4;
  }
  if (package.flags != nullptr) {
    for (size_t i = 0; i < package.sizeFlags; ++i) buffer[next++] = package.flags[i];
  }
  if (package.value != nullptr) {
    for (size_t i = 0; i < package.sizeValue; ++i) buffer[next++] = package.value[i];
  }
  return required;
}

Unpacked Unpack(const Bytes& packet) {
  Unpacked unpacked;
  if (packet.size() < 2) return unpacked;
  unpacked.isCleared = true;
  unpacked.command = packet[0];
  if (!IsOneOf(unpacked.command, {3, 4})) return unpacked;
  unpacked.sizeValue = packet.size() - 1;
  if (unpacked.sizeValue > 16384) return unpacked;
  unpacked.value.assign(packet.begin() + 1, packet.end());
  unpacked.isAccepted = true;
  return unpacked;
}

namespace {

bool IsInteger(const Json::Value& value, int integer) {
  return KindOf(value) == Kind::kSigned && value.asInt() == integer;
}

void ConvertEntity(Json::Value& entity, Json::Value& alerts, Json::Value& faults) {
  for (const std::string& name : entity.getMemberNames()) {
    Json::Value item = Member(entity, name);
    if (KindOf(item) != Kind::kObject) continue;
    const Json::Value type = Member(item, "type");
    if (!IsInteger(type, 4) && !IsInteger(type, 8)) {
      entity[name] = Member(item, "value");
      continue;
    }
    item["name"] = name;
    item.removeMember("type");
    (IsInteger(type, 4) ? alerts : faults).append(item);
    entity.removeMember(name.data(), name.data() + name.size(), nullptr);
  }
}

}  // namespace

Converted Convert(const std::string& text) {
  Converted converted;
  Json::Value root;
  if (!ParseText(text, root) || KindOf(root) != Kind::kObject) return converted;
  const Json::Value& version = Member(root, "version");
  if (KindOf(version) != Kind::kReal || version.asDouble() != 4.0) return converted;
  for (const std::string& name : root.getMemberNames()) {
    Json::Value entity = Member(root, name);
    if (KindOf(entity) != Kind::kObject) continue;
    ConvertEntity(entity, converted.alerts, converted.faults);
    root[name] = entity;
  }
  converted.text = ::Written(root);
  return converted;
}

void AddActive(const Json::Value& alerts, std::vector<TavelReceiveInfo>& active) {
  if (KindOf(alerts) != Kind::kArray) return;
  for (Json::ArrayIndex i = 0; i < alerts.size(); ++i) {
    const Json::Value& alert = alerts[i];
    if (KindOf(alert) != Kind::kObject) continue;
    const Json::Value& name = Member(alert, "name");
    if (KindOf(name) != Kind::kText) continue;
    const Json::Value& value = Member(alert, "value");
    int32_t number = 0;
    if (KindOf(value) == Kind::kSigned) number = value.asInt();
    if (KindOf(value) == Kind::kBool) number = value.asBool() ? 1 : 0;
    if (KindOf(value) == Kind::kText) {
      long long scanned = 0;  // stays so at the end of an empty text
      if (ScanInteger(value.asString(), scanned)) number = Cut(scanned);
    }
    if (number == 0) continue;
    TavelReceiveInfo info;
    info.name = name.asString();
    info.value = number;
    active.push_back(info);
  }
}

Received Receive(const Entity& entity, const Attributes& attributes, const Bytes& packet) {
  Received received;
  const Unpacked unpacked = Unpack(packet);
  if (!unpacked.isAccepted) return received;
  received.isAccepted = true;
  Decoded decoded = DecodeAttributes(entity, attributes, unpacked.value, Json::Value());
  received.lines = decoded.lines;
  decoded.document["version"] = 4.0;
  const Converted converted = Convert(::Written(decoded.document));
  received.document = converted.text;
  AddActive(converted.alerts, received.alerts);
  AddActive(converted.faults, received.faults);
  return received;
}

}  // namespace model
