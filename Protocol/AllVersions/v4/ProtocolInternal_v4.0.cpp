#include "ProtocolInternal_v4.0.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "host/Base64.h"
#include "host/Logging.h"
#include "host/TavelConfig.h"
#include "host/Text.h"

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8, "numbers are scaled in IEEE doubles");

// Log levels of the host.
static constexpr int kLevelWarning = 1;
static constexpr int kLevelInformation = 2;

// =====================================================================================================================
// JSON access
//
// The one way of reading members out of JSON. Numbers are told apart by how they are stored and by the 32-bit ranges,
// never by the library's range predicates, whose answers differ between its generations. Members are read in place.
// =====================================================================================================================

enum class JsonKind { kNull, kSigned, kUnsigned, kReal, kText, kBool, kArray, kObject };

static JsonKind KindOf(const Json::Value& value) {
  switch (value.type()) {
    case Json::intValue: {
      const Json::LargestInt number = value.asLargestInt();
      if (number < INT32_MIN || number > UINT32_MAX) return JsonKind::kReal;
      return number <= INT32_MAX ? JsonKind::kSigned : JsonKind::kUnsigned;
    }
    case Json::uintValue:
      return value.asLargestUInt() <= UINT32_MAX ? JsonKind::kUnsigned : JsonKind::kReal;
    case Json::realValue:
      return JsonKind::kReal;
    case Json::stringValue:
      return JsonKind::kText;
    case Json::booleanValue:
      return JsonKind::kBool;
    case Json::arrayValue:
      return JsonKind::kArray;
    case Json::objectValue:
      return JsonKind::kObject;
    case Json::nullValue:
      break;
  }
  return JsonKind::kNull;
}

// The member named by the bytes from `key` to `keyEnd`, or null when `object` is no object, lacks the member, or has a
// JSON null there.
static const Json::Value* FindMember(const Json::Value& object, const char* key, const char* keyEnd) {
  if (!object.isObject()) return nullptr;
  const Json::Value* member = object.find(key, keyEnd);
  return member == nullptr || member->isNull() ? nullptr : member;
}

static const Json::Value* FindMember(const Json::Value& object, const char* key) {
  return key == nullptr ? nullptr : FindMember(object, key, key + std::strlen(key));
}

static const Json::Value* FindMember(const Json::Value& object, const std::string& key) {
  return FindMember(object, key.data(), key.data() + key.size());
}

// The text of a text member, up to its first NUL, or null.
static const char* FindText(const Json::Value& object, const char* key) {
  const Json::Value* member = FindMember(object, key);
  return member != nullptr && member->isString() ? member->asCString() : nullptr;
}

// The whole text of a text value, NULs included.
static std::string_view TextOf(const Json::Value& text) {
  const char* begin = nullptr;
  const char* end = nullptr;
  text.getString(&begin, &end);
  return {begin, static_cast<size_t>(end - begin)};
}

// A scan has failed only when it returns 0. At the end of the input it returns a negative mark, which counts as a
// success that leaves the output as it was: an empty text stands for the caller's preset value.
static bool ScanConverted(int result) { return result != 0; }

// Numbers out of range saturate at 64 bits and are then cut, on machines with 32-bit longs too.
template <typename Integer>
static bool ScanInteger(const char* text, Integer& value) {
  long long number = value;
  const bool converted = ScanConverted(std::sscanf(text, "%lli", &number));
  value = static_cast<Integer>(number);
  return converted;
}

static bool IntegerOf(const Json::Value& member, int32_t& value) {
  switch (KindOf(member)) {
    case JsonKind::kText:
      return ScanInteger(member.asCString(), value);
    case JsonKind::kBool:
      value = member.asBool() ? 1 : 0;
      return true;
    case JsonKind::kSigned:
      value = member.asInt();
      return true;
    case JsonKind::kUnsigned:
      value = static_cast<int32_t>(member.asUInt());  // wraps on purpose
      return true;
    default:
      return false;
  }
}

// Truncated toward zero and saturated; 0 for a NaN.
static int64_t SaturateToInteger64(double number) {
  constexpr double kLimit = 9223372036854775808.0;  // 2 to the power 63
  if (std::isnan(number)) return 0;
  if (number >= kLimit) return INT64_MAX;
  if (number < -kLimit) return INT64_MIN;
  return static_cast<int64_t>(number);
}

static bool Integer64Of(const Json::Value& member, int64_t& value) {
  switch (member.type()) {
    case Json::stringValue:
      return ScanInteger(member.asCString(), value);
    case Json::booleanValue:
      value = member.asBool() ? 1 : 0;
      return true;
    case Json::intValue:
      value = member.asLargestInt();
      return true;
    case Json::uintValue:
      value = static_cast<int64_t>(std::min<Json::LargestUInt>(member.asLargestUInt(), INT64_MAX));
      return true;
    default:
      break;
  }
  const double number = member.asDouble();  // throws for arrays and objects, which is left to the caller
  if (number == 0.0) return false;          // a real zero is refused on purpose
  value = SaturateToInteger64(number);
  return true;
}

static bool DoubleOf(const Json::Value& member, double& value) {
  if (member.isString()) return ScanConverted(std::sscanf(member.asCString(), "%lf", &value));
  const JsonKind kind = KindOf(member);
  if (kind != JsonKind::kReal && kind != JsonKind::kSigned && kind != JsonKind::kUnsigned) return false;
  value = member.asDouble();
  return true;
}

bool ProtocolGetAttrInteger_4_0(const Json::Value& attr, const char* strKey, int32_t& value) {
  const Json::Value* member = FindMember(attr, strKey);
  return member != nullptr && IntegerOf(*member, value);
}

bool ProtocolGetAttrInteger64_4_0(const Json::Value& attr, const char* strKey, int64_t& value) {
  const Json::Value* member = FindMember(attr, strKey);
  return member != nullptr && Integer64Of(*member, value);
}

bool ProtocolGetAttrHex_4_0(const Json::Value& attr, const char* strKey, dword& value) {
  const Json::Value* member = FindMember(attr, strKey);
  if (member == nullptr) return false;
  switch (KindOf(*member)) {
    case JsonKind::kText: {
      unsigned long long number = value;
      const bool converted = ScanConverted(std::sscanf(member->asCString(), "0x%llX", &number));
      value = static_cast<dword>(number);
      return converted;
    }
    case JsonKind::kUnsigned:
      value = member->asUInt();
      return true;
    default:
      return false;
  }
}

bool ProtocolGetAttrDouble_4_0(const Json::Value& attr, const char* strKey, double& value) {
  const Json::Value* member = FindMember(attr, strKey);
  return member != nullptr && DoubleOf(*member, value);
}

bool ProtocolGetAttrString_4_0(const Json::Value& attr, const char* strKey, std::string& value) {
  const Json::Value* member = FindMember(attr, strKey);
  if (member == nullptr || !member->isString()) return false;
  value = TextOf(*member);
  return true;
}

bool ProtocolGetAttrObject_4_0(const Json::Value& attr, const char* strKey, Json::Value& value) {
  if (!attr.isObject()) return false;
  const Json::Value* member = FindMember(attr, strKey);
  // The output loses what it held whatever the member is. The assignment copies first, so it may hold the member.
  value = member == nullptr ? Json::Value::nullSingleton() : *member;
  return value.isObject();
}

// The library's older reader and writer, whose texts the receive documents have; the only deprecated calls.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// False also for a text on which the reader throws, which is one that is nested too deep.
static bool ParseJsonText(const std::string& text, Json::Value& root) {
  try {
    return Json::Reader().parse(text.data(), text.data() + text.size(), root);
  } catch (const Json::Exception&) {
    return false;
  }
}

static std::string WriteJsonText(const Json::Value& root) { return Json::FastWriter().write(root); }

#pragma GCC diagnostic pop

// =====================================================================================================================
// Configuration parser
//
// From one entity of a product configuration to records. Lenient: an attribute that cannot be used is named in the log
// and skipped; only an unusable entity fails the call. No range is checked here; the codec does so where it matters.
// =====================================================================================================================

bool ProtocolDataTypeIsUInt(MorvixProtocolDataType_4_0 type) {
  return (type & ~uint32_t{3}) == MorvixProtocolDataTypeUInt8_4_0;
}

// Bool and enum are packed into bit groups.
static bool IsBitPacked(MorvixProtocolDataType_4_0 type) {
  return type == MorvixProtocolDataTypeBool_4_0 || type == MorvixProtocolDataTypeEnum_4_0;
}

template <typename Value>
struct KeywordMeaning {
  const char* keyword;
  Value value;
};

// Keywords match without regard to case. Of longer texts only the first 32 characters count, so they match nothing.
template <typename Value, size_t count>
static Value FindKeyword(const char* text, const KeywordMeaning<Value> (&meanings)[count], Value unknown) {
  constexpr size_t kMaxKeywordLength = 32;
  char keyword[kMaxKeywordLength + 1] = {};
  std::strncpy(keyword, text, kMaxKeywordLength);
  strlwr(keyword);
  for (const KeywordMeaning<Value>& meaning : meanings) {
    if (std::strcmp(keyword, meaning.keyword) == 0) return meaning.value;
  }
  return unknown;
}

static MorvixProtocolType_4_0 ProtocolGetType_4_0(const char* type) {
  static constexpr KeywordMeaning<MorvixProtocolType_4_0> kMeanings[] = {
      {"status_writable", MorvixProtocolTypeStatusWritable_4_0},
      {"status_readonly", MorvixProtocolTypeStatusReadonly_4_0},
      {"alert", MorvixProtocolTypeAlert_4_0},
      {"fault", MorvixProtocolTypeFault_4_0},
  };
  return FindKeyword(type, kMeanings, MorvixProtocolTypeUnknown_4_0);
}

static MorvixProtocolDataType_4_0 GetDataType_4_0(const char* type) {
  static constexpr KeywordMeaning<MorvixProtocolDataType_4_0> kMeanings[] = {
      {"bool", MorvixProtocolDataTypeBool_4_0},     {"enum", MorvixProtocolDataTypeEnum_4_0},
      {"uint8", MorvixProtocolDataTypeUInt8_4_0},   {"uint16", MorvixProtocolDataTypeUInt16_4_0},
      {"uint32", MorvixProtocolDataTypeUInt32_4_0}, {"uint64", MorvixProtocolDataTypeUInt64_4_0},
      {"binary", MorvixProtocolDataTypeBinary_4_0},
  };
  return FindKeyword(type, kMeanings, MorvixProtocolDataTypeUnknown_4_0);
}

static MorvixProtocolUnit_4_0 ProtocolGetUnit_4_0(const char* type) {
  static constexpr KeywordMeaning<MorvixProtocolUnit_4_0> kMeanings[] = {
      {"", MorvixProtocolUnitByte_4_0},
      {"byte", MorvixProtocolUnitByte_4_0},
      {"bit", MorvixProtocolUnitBit_4_0},
  };
  return FindKeyword(type, kMeanings, MorvixProtocolUnitUnknown_4_0);
}

// Gives the attributes from `start` to `end` inclusive, clamped to the list, the byte length of their bit group. The
// length comes from the last attribute of the whole list only, so a configuration lists a group's highest bits last.
static void CalculateAttributesGroupByteSizeWithRange(std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                                      size_t start, size_t end) {
  if (attributes.empty() || !IsBitPacked(attributes.back().data_type)) return;
  const MorvixProtocolPosition_4_0& last = attributes.back().position;
  // The sum wraps in 32 bits.
  const auto bits = static_cast<int32_t>(static_cast<uint32_t>(last.bit_offset) + static_cast<uint32_t>(last.len));
  const size_t bytes = bits <= 0 ? 0 : (static_cast<size_t>(bits) + 7) / 8;
  for (size_t i = start; i <= end && i < attributes.size(); ++i) attributes[i].position.groupByteLength = bytes;
}

// The run of bit-packed attributes of one group that the walk is in, as indices into the attribute list.
struct BitGroupRun {
  uint32_t currentType = MorvixProtocolTypeUnknown_4_0;
  size_t groupMin = SIZE_MAX;
  size_t groupMax = SIZE_MAX;
};

// To be called before `next` is appended to `attributes`. Anything but one more bit-packed attribute of the same group
// ends the run. Behind an attribute that is not bit-packed the run's end lies one index too far, which the clamp of the
// sizing makes harmless.
static void AdvanceBitGroup(std::vector<MorvixProtocolAttribute_4_0>& attributes,
                            const MorvixProtocolAttribute_4_0& next, BitGroupRun& run) {
  const bool isExpectedType = IsBitPacked(next.data_type);
  if (run.currentType == next.type && isExpectedType) {
    ++run.groupMax;
    return;
  }
  CalculateAttributesGroupByteSizeWithRange(attributes, run.groupMin, run.groupMax);
  run.groupMin = run.groupMax = attributes.size() + (isExpectedType ? 0 : 1);
  run.currentType = next.type;
}

// The scaling and item list last seen in the walk over the attributes; null where there is none. Attributes that bring
// none of their own inherit them, whatever their data type. Product configurations rely on it.
struct CarriedMembers {
  const Json::Value* uintSpec = nullptr;
  const Json::Value* enumItems = nullptr;
};

// The readers of an attribute's parts return the key at fault, or null.

static const char* ReadIdentity(const Json::Value& attr, MorvixProtocolAttribute_4_0& attribute) {
  if (!attr.isObject()) return "attr";
  if (!ProtocolGetAttrInteger_4_0(attr, "id", attribute.id)) return "id";
  if (!ProtocolGetAttrString_4_0(attr, "name", attribute.name)) return "name";
  if (!ProtocolGetAttrString_4_0(attr, "display_name", attribute.display_name)) return "display_name";
  if (!ProtocolGetAttrString_4_0(attr, "desc", attribute.desc)) return "desc";
  const char* type = FindText(attr, "type");
  if (type == nullptr) return "type";
  const char* dataType = FindText(attr, "data_type");
  if (dataType == nullptr) return "data_type";
  attribute.type = ProtocolGetType_4_0(type);
  attribute.data_type = GetDataType_4_0(dataType);
  if (attribute.type == MorvixProtocolTypeUnknown_4_0) return "type";
  if (attribute.data_type == MorvixProtocolDataTypeUnknown_4_0) return "data_type";
  return nullptr;
}

static const char* ReadPosition(const Json::Value& json, MorvixProtocolPosition_4_0& position) {
  if (!ProtocolGetAttrInteger_4_0(json, "byte_offset", position.byte_offset)) return "byte_offset";
  if (!ProtocolGetAttrInteger_4_0(json, "bit_offset", position.bit_offset)) return "bit_offset";
  const char* unit = FindText(json, "unit");
  if (unit == nullptr) return "unit";
  if (!ProtocolGetAttrInteger_4_0(json, "len", position.len)) return "len";
  position.unit = ProtocolGetUnit_4_0(unit);
  return position.unit == MorvixProtocolUnitUnknown_4_0 ? "position.unit" : nullptr;
}

static const char* ReadUIntSpec(const Json::Value& json, MorvixProtocolUIntSpec_4_0& uintSpec) {
  if (!ProtocolGetAttrInteger64_4_0(json, "min", uintSpec.min)) return "min";
  if (!ProtocolGetAttrInteger64_4_0(json, "max", uintSpec.max)) return "max";
  uintSpec.step = 1;
  if (!ProtocolGetAttrDouble_4_0(json, "ratio", uintSpec.ratio)) return "ratio";
  if (!ProtocolGetAttrDouble_4_0(json, "addition", uintSpec.addition)) return "addition";
  return nullptr;
}

// Elements that are no text are left out, so the indices of later items shift.
static void ReadEnumItems(const Json::Value& json, std::vector<std::string>& items) {
  items.reserve(json.size());
  for (const Json::Value& item : json) {
    if (item.isString()) items.emplace_back(TextOf(item));
  }
}

// What follows the identity, for an attribute of a selected group. A fault leaves in `carried` what was fetched before.
static const char* ReadEncoding(const Json::Value& attr, CarriedMembers& carried,
                                MorvixProtocolAttribute_4_0& attribute) {
  const Json::Value* position = FindMember(attr, "position");
  if (position == nullptr || !position->isObject()) return "position";
  if (ProtocolDataTypeIsUInt(attribute.data_type)) {
    carried.uintSpec = FindMember(attr, "uint_spec");
    if (carried.uintSpec == nullptr || !carried.uintSpec->isObject()) return "uint_spec";
  }
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
    carried.enumItems = FindMember(attr, "enum");
    if (carried.enumItems == nullptr || !carried.enumItems->isArray() || carried.enumItems->empty()) {
      carried.enumItems = nullptr;
      return "enum";
    }
  }
  if (const char* invalidKey = ReadPosition(*position, attribute.position)) return invalidKey;
  if (carried.uintSpec != nullptr) {
    if (const char* invalidKey = ReadUIntSpec(*carried.uintSpec, attribute.uint_spec)) return invalidKey;
  }
  if (carried.enumItems != nullptr) ReadEnumItems(*carried.enumItems, attribute.enumList);
  return nullptr;
}

// Reports the fault of an entity; always false.
static bool RefuseEntity(const char* warning) {
  logMsgEx(kLevelWarning, "GetEntityInfo", "%s", warning);
  return false;
}

static bool GetEntityInfo(const Json::Value& entity, MorvixProtocolEntity_4_0& entityInfo) {
  if (!entity.isObject()) return RefuseEntity("Warning: Invalid entity.");
  if (!ProtocolGetAttrInteger_4_0(entity, "id", entityInfo.id)) {
    return RefuseEntity("Warning: Can't find 'id' key.");
  }
  if (!ProtocolGetAttrString_4_0(entity, "name", entityInfo.name)) {
    return RefuseEntity("Warning: Can't find 'name' key.");
  }
  if (!ProtocolGetAttrString_4_0(entity, "display_name", entityInfo.display_name)) {
    return RefuseEntity("Warning: Can't find 'display_name' key.");
  }
  const Json::Value* attrs = FindMember(entity, "attrs");
  if (attrs == nullptr || !attrs->isArray()) return RefuseEntity("Warning: Can't find 'attrs' key.");
  return true;
}

static bool FilterConfigType(const Json::Value& entity, int matchTypes,
                             std::vector<MorvixProtocolAttribute_4_0>& attributes,
                             MorvixProtocolEntity_4_0& entityInfo) {
  if (!GetEntityInfo(entity, entityInfo)) return false;
  logMsg(kLevelInformation, "Filter entity: id='%i' name='%s' display_name='%s'", entityInfo.id,
         entityInfo.name.c_str(), entityInfo.display_name.c_str());

  CarriedMembers carried;
  BitGroupRun run;
  const Json::Value& attrs = entity["attrs"];
  for (Json::ArrayIndex i = 0; i < attrs.size(); ++i) {
    const Json::Value& attr = attrs[i];
    MorvixProtocolAttribute_4_0 attribute;
    const char* invalidKey = ReadIdentity(attr, attribute);
    if (invalidKey == nullptr) {
      if ((attribute.type & static_cast<uint32_t>(matchTypes)) == 0) continue;
      invalidKey = ReadEncoding(attr, carried, attribute);
    }
    if (invalidKey != nullptr) {
      logMsgEx(kLevelWarning, "FilterConfigType", "Warning: '%s' is invalid, skip.", invalidKey);
      continue;
    }
    AdvanceBitGroup(attributes, attribute, run);
    attributes.push_back(std::move(attribute));
  }
  CalculateAttributesGroupByteSizeWithRange(attributes, run.groupMin, run.groupMax);
  return true;
}

bool ProtocolParseEntity_4_0(const Json::Value& entity, int matchTypes,
                             std::vector<MorvixProtocolAttribute_4_0>& attributes,
                             MorvixProtocolEntity_4_0& entityInfo) {
  return FilterConfigType(entity, matchTypes, attributes, entityInfo);
}

// =====================================================================================================================
// Payload positions and bits
//
// From a position to the run of payload bytes that holds the field, and from there to the field's bits in one 64-bit
// word. Payload integers are big-endian; bits count from the least significant bit of their group's last byte. Offsets
// and lengths are widened with their sign and compared unsigned in 64 bits on every machine: that refuses negative
// ones, except for the few whose arithmetic wraps back into range.
// =====================================================================================================================

static constexpr size_t kWordBits = 64;
static constexpr size_t kWordBytes = 8;

// The lowest `length` bits: none at or below 0, all at or above 64.
static uint64_t Mask(size_t length) { return length >= kWordBits ? ~uint64_t{0} : (uint64_t{1} << length) - 1; }

static uint64_t ShiftLeft(uint64_t u, size_t bits) { return bits < kWordBits ? u << bits : 0; }

static uint64_t ShiftRight(uint64_t u, size_t bits) { return bits < kWordBits ? u >> bits : 0; }

static uint64_t SignExtend(int32_t value) { return static_cast<uint64_t>(int64_t{value}); }

static byte* OffsetBytePosition(byte* data, uint64_t length, uint64_t byteOffset, uint64_t byteLength) {
  const bool isInside = byteOffset < length && byteLength <= length && length != 0 && byteLength != 0 &&
                        byteOffset + byteLength <= length;
  return isInside ? data + byteOffset : nullptr;
}

// `bitOffset` is the field's start, counted from the payload's start, the most significant bit of byte 0 first.
static byte* OffsetBitPosition(byte* data, uint64_t length, uint64_t bitOffset, uint64_t bitLength,
                               size_t& byteLength) {
  const uint64_t end = bitOffset + bitLength;
  const uint64_t startByte = bitOffset / 8;
  const uint64_t endsInsideByte = end % 8 != 0 ? 1 : 0;
  const uint64_t spannedBytes = (bitOffset % 8 + bitLength) / 8 + endsInsideByte;
  byteLength = static_cast<size_t>(spannedBytes);
  const bool isInside = startByte < length && spannedBytes <= length && length != 0 && spannedBytes != 0 &&
                        end / 8 + endsInsideByte <= length;
  return isInside ? data + startByte : nullptr;
}

// The first byte of the field and the number of bytes it touches, or null. A bit field may reach into the bytes before
// its group; only its lowest bit has to lie inside.
static byte* OffsetPosition(byte* data, size_t dataLen, MorvixProtocolPosition_4_0 position, size_t& byteLength) {
  const uint64_t byteOffset = SignExtend(position.byte_offset);
  const uint64_t len = SignExtend(position.len);
  if (position.unit == MorvixProtocolUnitByte_4_0) {
    byteLength = static_cast<size_t>(len);
    return OffsetBytePosition(data, dataLen, byteOffset, len);
  }
  if (position.unit != MorvixProtocolUnitBit_4_0) return nullptr;
  const uint64_t groupBits = uint64_t{position.groupByteLength} * 8;
  const uint64_t bitOffset = SignExtend(position.bit_offset);
  if (groupBits < bitOffset + 1) return nullptr;
  return OffsetBitPosition(data, dataLen, byteOffset * 8 + groupBits - bitOffset - len, len, byteLength);
}

// Keeps the field's bits, in place, and clears all others.
static void FixIntegerInBitRange(uint64_t& u, int32_t start, int32_t length) {
  const auto shift = static_cast<size_t>(start);
  u = ShiftLeft(ShiftRight(u, shift) & Mask(static_cast<size_t>(std::max(length, 0))), shift);
}

static void ClearIntegerInBitRange(uint64_t& u, size_t start, size_t length) { u &= ~ShiftLeft(Mask(length), start); }

// True when the field and the bits below it in its last byte fit one word of the spanned bytes.
static bool FitsWord(int32_t start, int32_t length, size_t byteLength) {
  constexpr auto kMaxBits = static_cast<int32_t>(kWordBits);
  if (start < 0 || length < 1 || length > kMaxBits || byteLength > kWordBytes || byteLength == 0) return false;
  return start % 8 + length <= kMaxBits;
}

static bool EncodeUInt(uint64_t u, size_t totalBytes, byte* data, [[maybe_unused]] size_t dataLen) {
  if (totalBytes < 1 || totalBytes > kWordBytes) return false;
  for (size_t i = totalBytes; i-- > 0; u >>= 8) data[i] = static_cast<byte>(u);
  return true;
}

// Bytes of `u` above the lowest `totalBytes` keep what the caller put there.
static bool DecodeUInt(const byte* data, [[maybe_unused]] size_t dataLen, size_t totalBytes, uint64_t& u) {
  if (totalBytes < 1 || totalBytes > kWordBytes) return false;
  uint64_t low = 0;
  for (size_t i = 0; i < totalBytes; ++i) low = low << 8 | data[i];
  ClearIntegerInBitRange(u, 0, totalBytes * 8);
  u |= low;
  return true;
}

// The field's bits in place, out of the spanned bytes.
static bool BitCopy(const byte* offset, int32_t start, int32_t length, size_t byteLength, uint64_t& u) {
  if (!FitsWord(start, length, byteLength)) return false;
  DecodeUInt(offset, byteLength, byteLength, u);
  FixIntegerInBitRange(u, start % 8, length);
  return true;
}

// The field's bits, in place, into the spanned bytes. The bits around the field are loaded with the first byte lowest
// but stored with the first byte highest: over two or more bytes they come back in reversed byte order. That is
// intended, devices in the field know it; the field itself is always placed right.
static bool BitCopy(uint64_t u, int32_t start, int32_t length, size_t byteLength, byte* offset) {
  if (!FitsWord(start, length, byteLength)) return false;
  const int32_t shift = start % 8;
  FixIntegerInBitRange(u, shift, length);
  if (shift != 0 || length % 8 != 0) {
    uint64_t neighbours = 0;
    for (size_t i = byteLength; i-- > 0;) neighbours = neighbours << 8 | offset[i];
    ClearIntegerInBitRange(neighbours, static_cast<size_t>(shift), static_cast<size_t>(length));
    u |= neighbours;
  }
  return EncodeUInt(u, byteLength, offset, byteLength);
}

static bool IsBitRange(size_t shiftBits, size_t bitLength) {
  return shiftBits + bitLength <= kWordBits && shiftBits < kWordBits && bitLength != 0 && bitLength <= kWordBits;
}

// Puts the lowest `bitLength` bits of `u` into `value`; does nothing when the range is none of a word.
static void EncodeBit(uint64_t u, size_t shiftBits, size_t bitLength, uint64_t& value) {
  if (!IsBitRange(shiftBits, bitLength)) return;
  ClearIntegerInBitRange(value, shiftBits, bitLength);
  value |= (u & Mask(bitLength)) << shiftBits;
}

static bool DecodeBit(uint64_t u, size_t shiftBits, size_t bitLength, uint64_t& value) {
  if (!IsBitRange(shiftBits, bitLength)) return false;
  value = u >> shiftBits & Mask(bitLength);
  return true;
}

// =====================================================================================================================
// Scaling
//
// Between the number that the user sees and the raw unsigned integer: user = raw * ratio + addition. Raw values stay
// below 2 to the power 52, so that every one of them and every half is exact in a double.
// =====================================================================================================================

static constexpr unsigned kRawBits = 52;
static constexpr double kMaxRawValue = 4503599627370495.0;

// True for `max`, and for `min` and every multiple of `step` above it. With a step of 0 only `min` and `max` are left.
static bool IsOnStepGrid(uint64_t min, uint64_t max, uint64_t step, uint64_t x) {
  if (x < min || x > max) return false;
  if (x == max) return true;
  return (step == 0 ? x - min : (x - min) % step) == 0;
}

static bool IsUsableRange(uint64_t min, uint64_t max, uint64_t step) {
  return max >> kRawBits == 0 && max >= min && max - min >= step;
}

static bool EncodeUIntSpec(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, double y,
                           uint64_t& x) {
  if (!IsUsableRange(min, max, step)) return false;
  const double raw = (y - addition) / ratio;
  if (raw > kMaxRawValue || raw < 0) return false;
  double whole = 0;
  const double fraction = std::modf(raw, &whole);
  if (fraction > 0.5) whole += 1;  // an exact half rounds down, on purpose
  x = std::isnan(whole) ? 0 : static_cast<uint64_t>(whole);
  return IsOnStepGrid(min, max, step, x);
}

static bool DecodeUIntSpec(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, uint64_t x,
                           double& y) {
  if (x >> kRawBits != 0 || !IsUsableRange(min, max, step) || !IsOnStepGrid(min, max, step, x)) return false;
  // The product is rounded before the sum on machines with a fused multiply-add too.
  const volatile double product = static_cast<double>(x) * ratio;
  y = product + addition;
  return true;
}

// =====================================================================================================================
// Typed values
//
// One raw value into or out of the payload. A failure leaves the payload unchanged; nothing is logged here.
// =====================================================================================================================

static constexpr size_t kMaxBinaryBytes = 65535;

static const byte* OffsetPositionForReading(const byte* data, size_t dataLen,
                                            const MorvixProtocolPosition_4_0& position, size_t& byteLength) {
  return OffsetPosition(const_cast<byte*>(data), dataLen, position, byteLength);
}

static bool IsSingleBit(const MorvixProtocolPosition_4_0& position) {
  return position.unit == MorvixProtocolUnitBit_4_0 && position.len == 1;
}

// A field's shift inside its last byte. Negative for a negative offset, which as a size is no bit range.
static size_t ShiftInByte(const MorvixProtocolPosition_4_0& position) {
  return static_cast<size_t>(position.bit_offset % 8);
}

// The field of a binary, or null: whole bytes, 1 to kMaxBinaryBytes of them.
static byte* OffsetBinaryPosition(byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position,
                                  size_t& byteLength) {
  if (position.unit != MorvixProtocolUnitByte_4_0) return nullptr;
  byte* field = OffsetPosition(data, dataLen, position, byteLength);
  return byteLength <= kMaxBinaryBytes ? field : nullptr;
}

static bool WriteBoolValue(byte* data, size_t& dataLen, const MorvixProtocolPosition_4_0& position, bool value) {
  if (!IsSingleBit(position)) return false;
  size_t byteLength = 0;
  byte* field = OffsetPosition(data, dataLen, position, byteLength);
  if (field == nullptr || byteLength != 1) return false;
  dataLen = byteLength;
  uint64_t bits = *field;
  EncodeBit(value ? 1 : 0, ShiftInByte(position), 1, bits);
  *field = static_cast<byte>(bits);
  return true;
}

static bool WriteUIntValue(byte* data, size_t& dataLen, const MorvixProtocolPosition_4_0& position, uint64_t value) {
  size_t byteLength = 0;
  byte* field = OffsetPosition(data, dataLen, position, byteLength);
  if (field == nullptr || byteLength > kWordBytes) return false;
  dataLen = byteLength;
  if (position.unit == MorvixProtocolUnitByte_4_0) return EncodeUInt(value, byteLength, field, byteLength);
  uint64_t u = 0;
  if (!BitCopy(field, position.bit_offset, position.len, byteLength, u)) return false;
  EncodeBit(value, ShiftInByte(position), static_cast<size_t>(position.len), u);
  return BitCopy(u, position.bit_offset, position.len, byteLength, field);
}

// `value` is base64 text that ends at a NUL; text for fewer bytes than the field has leaves the rest alone.
static bool WriteBinaryValue(byte* data, size_t& dataLen, const MorvixProtocolPosition_4_0& position,
                             std::string_view value) {
  size_t byteLength = 0;
  byte* field = OffsetBinaryPosition(data, dataLen, position, byteLength);
  if (field == nullptr) return false;
  __internal_base64_decode(field, value.data(), static_cast<uint32_t>(byteLength));
  return true;
}

static bool ReadBoolValue(const byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position, bool& value) {
  if (!IsSingleBit(position)) return false;
  size_t byteLength = 0;
  const byte* field = OffsetPositionForReading(data, dataLen, position, byteLength);
  if (field == nullptr || byteLength != 1) return false;
  uint64_t bit = 0;
  DecodeBit(*field, ShiftInByte(position), 1, bit);
  value = bit != 0;
  return true;
}

// The caller zeroes `value`: bytes above the field, and everything when the bit range is none, keep what it put there.
static bool ReadUIntValue(const byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position,
                          uint64_t& value) {
  size_t byteLength = 0;
  const byte* field = OffsetPositionForReading(data, dataLen, position, byteLength);
  if (field == nullptr || byteLength > kWordBytes) return false;
  if (position.unit == MorvixProtocolUnitByte_4_0) return DecodeUInt(field, byteLength, byteLength, value);
  uint64_t u = 0;
  BitCopy(field, position.bit_offset, position.len, byteLength, u);
  DecodeBit(u, ShiftInByte(position), static_cast<size_t>(position.len), value);
  return true;
}

// `value` is its own work buffer; it becomes the field's bytes as base64 text.
static bool ReadBinaryValue(const byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position,
                            std::string& value) {
  size_t byteLength = 0;
  const byte* field = OffsetBinaryPosition(const_cast<byte*>(data), dataLen, position, byteLength);
  if (field == nullptr) return false;
  value.resize(2 * byteLength + 10);
  const auto capacity = static_cast<uint32_t>(2 * byteLength + 9);
  value.assign(__internal_base64_encode(value.data(), capacity, field, byteLength));
  return true;
}

// =====================================================================================================================
// Framing
//
// Between a package record and packet bytes. No length field and no checksum: the transport below delimits packets.
// =====================================================================================================================

static constexpr size_t kMaxFlagBytes = 1024;
static constexpr size_t kMaxPayloadBytes = 16384;
static constexpr size_t kMinWriteBytes = 3;  // a command and two bytes of flags and payload
static constexpr size_t kMinReceivedBytes = 2;
static constexpr uint32_t kMaxPackedCommand = MorvixProtocolCommandCCGetSubDevicesReq_4_0;

static constexpr uint32_t CommandBit(MorvixProtocolCommand_4_0 command) { return uint32_t{1} << command; }

static constexpr uint32_t kRequestCommands =
    CommandBit(MorvixProtocolCommandReadReq_4_0) | CommandBit(MorvixProtocolCommandCCReadReq_4_0) |
    CommandBit(MorvixProtocolCommandCCAddSubDeviceReq_4_0) | CommandBit(MorvixProtocolCommandCCDelSubDeviceReq_4_0) |
    CommandBit(MorvixProtocolCommandCCGetSubDevicesReq_4_0);
static constexpr uint32_t kSubDeviceRequestCommands =
    CommandBit(MorvixProtocolCommandCCReadReq_4_0) | CommandBit(MorvixProtocolCommandCCDelSubDeviceReq_4_0);
static constexpr uint32_t kWriteCommands =
    CommandBit(MorvixProtocolCommandWriteReq_4_0) | CommandBit(MorvixProtocolCommandCCWriteReq_4_0);

static bool IsCommandIn(MorvixProtocolCommand_4_0 command, uint32_t commands) {
  return command <= kMaxPackedCommand && (CommandBit(command) & commands) != 0;
}

// Host byte order, on purpose: the one number on the wire that is not big-endian.
static size_t AppendSubDid(int32_t subDid, byte* out) {
  std::memcpy(out, &subDid, sizeof subDid);
  return sizeof subDid;
}

static size_t AppendBytes(const byte* bytes, size_t size, byte* out) {
  if (size == 0 || bytes == nullptr) return 0;
  std::memcpy(out, bytes, size);
  return size;
}

size_t ProtocolPackPackage_4_0(MorvixProtocolPackage_4_0 package, byte* buffer, size_t bufLen) {
  if (buffer == nullptr || package.sizeFlags > kMaxFlagBytes || package.sizeValue > kMaxPayloadBytes) return 0;
  const bool isWrite = IsCommandIn(package.cmd, kWriteCommands);
  if (!isWrite && !IsCommandIn(package.cmd, kRequestCommands)) {
    logMsgEx(kLevelWarning, "ProtocolPackPackage_4_0", "Invalid command %d", static_cast<int>(package.cmd));
    return 0;
  }
  const size_t sizeRequired = isWrite ? 1 + package.sizeFlags + package.sizeValue : 1;
  if (isWrite && sizeRequired < kMinWriteBytes) return 0;
  // The sub-device id is not counted yet: callers keep room for its 4 bytes beyond `bufLen`.
  if (sizeRequired > bufLen) return 0;

  buffer[0] = static_cast<byte>(package.cmd);
  size_t sizeSubDid = 0;
  if (isWrite || IsCommandIn(package.cmd, kSubDeviceRequestCommands)) {
    if (package.needInsertSubDid != 0) {
      sizeSubDid = AppendSubDid(package.subDid, buffer + 1);
    } else if (!isWrite) {
      return 0;
    }
  }
  if (isWrite) {
    byte* out = buffer + 1 + sizeSubDid;
    out += AppendBytes(package.flags, package.sizeFlags, out);
    AppendBytes(package.value, package.sizeValue, out);
  }
  return sizeRequired + sizeSubDid;
}

bool ProtocolUnpackPackage_4_0(const byte* data, size_t dataLen, MorvixProtocolPackage_4_0& package) {
  if (data == nullptr || dataLen < kMinReceivedBytes) return false;
  package = MorvixProtocolPackage_4_0();
  package.cmd = static_cast<MorvixProtocolCommand_4_0>(data[0]);
  if (package.cmd != MorvixProtocolCommandReadResp_4_0 && package.cmd != MorvixProtocolCommandNotifyResp_4_0) {
    return false;
  }
  package.sizeValue = dataLen - 1;
  if (package.sizeValue > kMaxPayloadBytes) return false;
  package.value = static_cast<byte*>(std::malloc(package.sizeValue));
  if (package.value == nullptr) return false;
  std::memcpy(package.value, data + 1, package.sizeValue);
  return true;
}

// =====================================================================================================================
// Encoder
//
// From the application's values for one entity to the flag bitmap and payload of a package. The entity's values are
// looked up once. The first value that cannot be written ends the call with both sizes 0, which says "send nothing".
// =====================================================================================================================

static const char kEncoderName[] = "ProtocolEncodeEntity_4_0";

// The values of one entity in a document, or null.
static const Json::Value* FindEntity(const Json::Value& result, const std::string& entityName) {
  const Json::Value* entity = FindMember(result, entityName);
  return entity != nullptr && entity->isObject() ? entity : nullptr;
}

// The values of one attribute; an entity that is null has none.

static const Json::Value* FindValue(const Json::Value* entity, const std::string& attributeName) {
  return entity == nullptr ? nullptr : FindMember(*entity, attributeName.c_str());
}

static bool ReadInteger(const Json::Value* entity, const std::string& attributeName, uint64_t& value) {
  const Json::Value* member = FindValue(entity, attributeName);
  if (member == nullptr) return false;
  if (member->isString()) {
    unsigned long long number = value;
    const bool converted = ScanConverted(std::sscanf(member->asCString(), "%llu", &number));
    value = number;
    return converted;
  }
  int32_t number = 0;
  if (!IntegerOf(*member, number)) return false;
  value = SignExtend(number);
  return true;
}

static bool ReadText(const Json::Value* entity, const std::string& attributeName, std::string_view& value) {
  const Json::Value* member = FindValue(entity, attributeName);
  if (member == nullptr || !member->isString()) return false;
  value = TextOf(*member);
  return true;
}

static bool ReadDouble(const Json::Value* entity, const std::string& attributeName, double& value) {
  const Json::Value* member = FindValue(entity, attributeName);
  return member != nullptr && DoubleOf(*member, value);
}

// The same by entity name, for a caller with a single value to read; GetEntityValue gives a copy.

[[maybe_unused]] static bool GetEntityValue(const Json::Value& result, const std::string& entityName,
                                            Json::Value& entity) {
  if (!result.isObject()) return false;
  const Json::Value* member = FindMember(result, entityName);
  entity = member == nullptr ? Json::Value::nullSingleton() : *member;
  return entity.isObject();
}

[[maybe_unused]] static bool GetIntegerValue(const Json::Value& result, const std::string& entityName,
                                             const std::string& attributeName, uint64_t& value) {
  return ReadInteger(FindEntity(result, entityName), attributeName, value);
}

[[maybe_unused]] static bool GetStringValue(const Json::Value& result, const std::string& entityName,
                                            const std::string& attributeName, std::string& value) {
  std::string_view text;
  if (!ReadText(FindEntity(result, entityName), attributeName, text)) return false;
  value = text;
  return true;
}

[[maybe_unused]] static bool GetDoubleValue(const Json::Value& result, const std::string& entityName,
                                            const std::string& attributeName, double& value) {
  return ReadDouble(FindEntity(result, entityName), attributeName, value);
}

// The end of the furthest-reaching attribute. Gaps and overlaps are the configuration's affair; what ends at or before
// 0 adds nothing.
static size_t EncodeCalculateBytes(const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  int64_t encodeSize = 0;
  for (const MorvixProtocolAttribute_4_0& attribute : attributes) {
    const MorvixProtocolPosition_4_0& position = attribute.position;
    int64_t byteLength = position.len;
    if (position.unit == MorvixProtocolUnitBit_4_0) {
      const int64_t bits = int64_t{position.bit_offset} + position.len;
      byteLength = bits / 8 + (bits % 8 > 0 ? 1 : 0);
    }
    encodeSize = std::max(encodeSize, position.byte_offset + byteLength);
  }
  return static_cast<size_t>(encodeSize);
}

enum class Encoded { kWritten, kSkipped, kFatal };

// Kept out of the writers' way: a write that was refused ends the call.
static Encoded WrittenUnlessRefused(bool written, const char* refusal) {
  if (written) return Encoded::kWritten;
  logMsgEx(kLevelWarning, kEncoderName, "%s", refusal);
  return Encoded::kFatal;
}

static void LogInvalidEnumValue(const char* functionName, uint64_t value, size_t itemCount) {
  // The upper bound that is logged is the count, not the last index; log readers know it so.
  logMsgEx(kLevelWarning, functionName, "Invalid enum value: %i, range: 0-%i", static_cast<int>(value),
           static_cast<int>(itemCount));
}

static Encoded EncodeBool(const MorvixProtocolAttribute_4_0& attribute, const Json::Value* values, byte* data,
                          size_t length) {
  uint64_t value = 0;
  if (!ReadInteger(values, attribute.name, value)) return Encoded::kSkipped;
  return WrittenUnlessRefused(WriteBoolValue(data, length, attribute.position, value != 0), "Write bool value failed.");
}

static Encoded EncodeEnum(const MorvixProtocolAttribute_4_0& attribute, const Json::Value* values, byte* data,
                          size_t length) {
  uint64_t value = 0;
  if (!ReadInteger(values, attribute.name, value)) return Encoded::kSkipped;
  if (value >= attribute.enumList.size()) {
    LogInvalidEnumValue(kEncoderName, value, attribute.enumList.size());
    return Encoded::kFatal;
  }
  return WrittenUnlessRefused(WriteUIntValue(data, length, attribute.position, value), "Write enum value failed.");
}

static Encoded EncodeBinary(const MorvixProtocolAttribute_4_0& attribute, const Json::Value* values, byte* data,
                            size_t length) {
  std::string_view value;
  if (!ReadText(values, attribute.name, value)) return Encoded::kSkipped;
  return WrittenUnlessRefused(WriteBinaryValue(data, length, attribute.position, value), "Write binary value failed.");
}

static Encoded EncodeNumber(const MorvixProtocolAttribute_4_0& attribute, const Json::Value* values, byte* data,
                            size_t length) {
  double value = 0;
  if (!ReadDouble(values, attribute.name, value)) return Encoded::kSkipped;
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  uint64_t raw = 0;
  if (!EncodeUIntSpec(static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max), SignExtend(scaling.step),
                      scaling.ratio, scaling.addition, value, raw)) {
    return WrittenUnlessRefused(false, "Validate uint value failed.");
  }
  return WrittenUnlessRefused(WriteUIntValue(data, length, attribute.position, raw), "Write uint value failed.");
}

static Encoded EncodeAttribute(const MorvixProtocolAttribute_4_0& attribute, const Json::Value* values, byte* data,
                               size_t length) {
  switch (attribute.data_type) {
    case MorvixProtocolDataTypeBool_4_0:
      return EncodeBool(attribute, values, data, length);
    case MorvixProtocolDataTypeEnum_4_0:
      return EncodeEnum(attribute, values, data, length);
    case MorvixProtocolDataTypeBinary_4_0:
      return EncodeBinary(attribute, values, data, length);
    case MorvixProtocolDataTypeUInt8_4_0:
    case MorvixProtocolDataTypeUInt16_4_0:
    case MorvixProtocolDataTypeUInt32_4_0:
    case MorvixProtocolDataTypeUInt64_4_0:
      return EncodeNumber(attribute, values, data, length);
    default:
      // The call ends here although the text says "skip"; both are known to log readers and kept.
      return WrittenUnlessRefused(false, "Attribute type is unknown, skip.");
  }
}

// The flag bitmap is one more bit group, as long as the bitmap.
static bool SetFlag(byte* flag, size_t flagLength, size_t index) {
  MorvixProtocolPosition_4_0 position;
  position.bit_offset = static_cast<int32_t>(index);
  position.unit = MorvixProtocolUnitBit_4_0;
  position.len = 1;
  position.groupByteLength = flagLength;
  return WriteBoolValue(flag, flagLength, position, true);
}

void ProtocolEncodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  MorvixProtocolPackage_4_0& package, const Json::Value& root) {
  const size_t length = EncodeCalculateBytes(attributes);
  if (length == 0) {
    logMsgEx(kLevelWarning, kEncoderName, "No data will encode.");
    return;
  }
  const size_t flagLength = (attributes.size() + 7) / 8;
  auto* data = static_cast<byte*>(std::calloc(length, 1));
  auto* flag = static_cast<byte*>(std::calloc(flagLength, 1));
  if (data == nullptr || flag == nullptr) {
    std::free(data);
    std::free(flag);
    return;
  }
  package.flags = flag;
  package.sizeFlags = 0;
  package.value = data;
  package.sizeValue = 0;

  const Json::Value* values = FindEntity(root, entityInfo.name);
  bool isSet = false;
  for (size_t i = 0; i < attributes.size(); ++i) {
    const Encoded encoded = EncodeAttribute(attributes[i], values, data, length);
    if (encoded == Encoded::kFatal) return;
    if (encoded == Encoded::kWritten) isSet |= SetFlag(flag, flagLength, i);
  }
  if (isSet) {
    package.sizeFlags = flagLength;
    package.sizeValue = length;
  }
}

void ProtocolEncodeEntity_4_0(const Json::Value& entity, MorvixProtocolPackage_4_0& package, const Json::Value& root) {
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 entityInfo;
  if (!FilterConfigType(entity, MorvixProtocolTypeStatusWritable_4_0, attributes, entityInfo)) {
    logMsgEx(kLevelWarning, kEncoderName, "Get entity info failed.");
    return;
  }
  ProtocolEncodeAttributes_4_0(entityInfo, attributes, package, root);
}

// =====================================================================================================================
// Decoder
//
// From a payload to the decoded document: entity name -> attribute key -> {"type": group, "value": value}. Neither the
// command nor the flags are looked at. Items are built in place; the entity's object appears with its first item.
// =====================================================================================================================

static const char kDecoderName[] = "ProtocolDecodeEntity_4_0";
static constexpr int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                                  MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;
static constexpr size_t kNumberTextSize = 32;
static constexpr size_t kMaxEnumDigits = 9;

// The index of the first ".", or -1.
static int floatOffset(const char* str) {
  const char* point = std::strchr(str, '.');
  return point == nullptr ? -1 : static_cast<int>(point - str);
}

// The index of the first "E+", or -1. Fixed notation has none; the check is kept.
static int scientistOffset(const char* str) {
  const char* exponent = std::strstr(str, "E+");
  return exponent == nullptr ? -1 : static_cast<int>(exponent - str);
}

// Cuts trailing zeros and a bare trailing point off a number with a point, in place.
static char* removeFloatLastZero(char* str) {
  const int point = floatOffset(str);
  if (point < 0) return str;
  const int last = static_cast<int>(std::strlen(str)) - 1 - std::max(scientistOffset(str), 0);
  for (int i = last; i >= point && (str[i] == '0' || str[i] == '.'); --i) str[i] = '\0';
  return str;
}

// Six decimals without trailing zeros. Numbers too long for the text lose their end.
static Json::Value NumberText(double number) {
  char text[kNumberTextSize] = {};
  std::snprintf(text, sizeof text, "%lf", number);
  return removeFloatLastZero(text);
}

// At most nine digits; larger indices lose their end.
static std::string EnumText(uint64_t index) {
  std::string text = std::to_string(index);
  if (text.size() > kMaxEnumDigits) text.resize(kMaxEnumDigits);
  return text;
}

// Makes anything else an empty object.
static Json::Value& MakeObject(Json::Value& value) {
  if (!value.isObject()) value = Json::Value(Json::objectValue);
  return value;
}

static void ClearEntityValue(Json::Value& result, const std::string& entityName) {
  Json::Value removed;
  MakeObject(result).removeMember(entityName.data(), entityName.data() + entityName.size(), &removed);
}

static void StoreItem(Json::Value& entity, const std::string& attributeName, MorvixProtocolType_4_0 type,
                      Json::Value&& value) {
  Json::Value& item = MakeObject(entity[attributeName]);
  item[Json::StaticString("type")] = static_cast<Json::Int>(type);
  item[Json::StaticString("value")] = std::move(value);
}

// Stores one item by entity name. A value that is null, an object or an array is refused.
[[maybe_unused]] static bool SetValue(Json::Value& result, const std::string& entityName,
                                      const std::string& attributeName, MorvixProtocolType_4_0 type,
                                      const Json::Value& value) {
  if (value.isNull() || value.isObject() || value.isArray()) return false;
  Json::Value copy = value;  // `value` may be part of what the next line replaces
  StoreItem(MakeObject(MakeObject(result)[entityName]), attributeName, type, std::move(copy));
  return true;
}

enum class Decoded { kSet, kSkipped, kUnreadable, kInvalidEnum, kUnknownType };

static Decoded DecodeEnum(const MorvixProtocolAttribute_4_0& attribute, const MorvixProtocolPackage_4_0& package,
                          Json::Value& value) {
  uint64_t index = 0;
  if (!ReadUIntValue(package.value, package.sizeValue, attribute.position, index)) return Decoded::kSkipped;
  if (index >= attribute.enumList.size()) {
    LogInvalidEnumValue(kDecoderName, index, attribute.enumList.size());
    return Decoded::kInvalidEnum;
  }
  value = EnumText(index);
  return Decoded::kSet;
}

static Decoded DecodeNumber(const MorvixProtocolAttribute_4_0& attribute, const MorvixProtocolPackage_4_0& package,
                            Json::Value& value) {
  uint64_t raw = 0;
  double number = 0;
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  if (!ReadUIntValue(package.value, package.sizeValue, attribute.position, raw) ||
      !DecodeUIntSpec(static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max), SignExtend(scaling.step),
                      scaling.ratio, scaling.addition, raw, number)) {
    return Decoded::kSkipped;
  }
  value = NumberText(number);
  return Decoded::kSet;
}

static Decoded DecodeAttribute(const MorvixProtocolAttribute_4_0& attribute, const MorvixProtocolPackage_4_0& package,
                               std::string& binaryText, Json::Value& value) {
  switch (attribute.data_type) {
    case MorvixProtocolDataTypeBool_4_0: {
      bool bit = false;
      if (!ReadBoolValue(package.value, package.sizeValue, attribute.position, bit)) return Decoded::kUnreadable;
      value = bit;
      return Decoded::kSet;
    }
    case MorvixProtocolDataTypeEnum_4_0:
      return DecodeEnum(attribute, package, value);
    case MorvixProtocolDataTypeBinary_4_0:
      if (!ReadBinaryValue(package.value, package.sizeValue, attribute.position, binaryText)) {
        return Decoded::kUnreadable;
      }
      value = binaryText;
      return Decoded::kSet;
    case MorvixProtocolDataTypeUInt8_4_0:
    case MorvixProtocolDataTypeUInt16_4_0:
    case MorvixProtocolDataTypeUInt32_4_0:
    case MorvixProtocolDataTypeUInt64_4_0:
      return DecodeNumber(attribute, package, value);
    default:
      return Decoded::kUnknownType;
  }
}

// Alerts and faults are told to people, so they go by their display name.
static const std::string& DocumentKey(const MorvixProtocolAttribute_4_0& attribute) {
  const bool isToldToPeople =
      attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
  return isToldToPeople ? attribute.display_name : attribute.name;
}

static bool HasPayload(const MorvixProtocolPackage_4_0& package) {
  if (package.value != nullptr && package.sizeValue != 0) return true;
  logMsgEx(kLevelWarning, kDecoderName, "No data to decode.");
  return false;
}

// The asymmetry is intended: a number or enum that cannot be read is left out, an enum index out of range ends the
// call, and a bool or binary that cannot be read takes the whole entity with it.
void ProtocolDecodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  const MorvixProtocolPackage_4_0& package, Json::Value& decodeResult) {
  if (!HasPayload(package)) return;
  Json::Value* entity = nullptr;
  std::string binaryText;
  for (const MorvixProtocolAttribute_4_0& attribute : attributes) {
    Json::Value value;
    const Decoded decoded = DecodeAttribute(attribute, package, binaryText, value);
    if (decoded == Decoded::kSkipped) continue;
    if (decoded == Decoded::kInvalidEnum) return;
    if (decoded != Decoded::kSet) {
      ClearEntityValue(decodeResult, entityInfo.name);
      logMsgEx(kLevelWarning, kDecoderName, "%s",
               decoded == Decoded::kUnreadable ? "Decode value is invalid." : "Unknown attribute type.");
      return;
    }
    if (entity == nullptr) entity = &MakeObject(MakeObject(decodeResult)[entityInfo.name]);
    StoreItem(*entity, DocumentKey(attribute), attribute.type, std::move(value));
  }
}

void ProtocolDecodeEntity_4_0(const Json::Value& entity, MorvixProtocolPackage_4_0 package, Json::Value& decodeResult) {
  if (!HasPayload(package)) return;
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 entityInfo;
  if (!FilterConfigType(entity, kAllGroups, attributes, entityInfo)) {
    logMsgEx(kLevelWarning, kDecoderName, "Get entity info failed.");
    return;
  }
  ProtocolDecodeAttributes_4_0(entityInfo, attributes, package, decodeResult);
}

bool ProtocolGetEntitiesFromDevice_4_0(const Json::Value& device, Json::Value& entities) {
  const Json::Value* member = FindMember(device, "entities");
  // The assignment copies first, so the output may hold the member.
  entities = member == nullptr ? Json::Value::nullSingleton() : *member;
  return entities.isArray();
}

// =====================================================================================================================
// Receive results
//
// From the text of a decoded document to the application's text, with alerts and faults taken out. Values are moved
// from where the reader put them, never copied.
// =====================================================================================================================

static constexpr double kDocumentVersion = 4.0;

static bool IsDocument(const Json::Value& root) {
  const Json::Value* version = FindMember(root, "version");
  return version != nullptr && version->type() == Json::realValue && version->asDouble() == kDocumentVersion;
}

// Equal in kind and value: a 4.0 or "4" is no alert.
static bool IsItemOfGroup(const Json::Value& item, MorvixProtocolType_4_0 group) {
  const Json::Value* type = FindMember(item, "type");
  return type != nullptr && type->type() == Json::intValue && type->asLargestInt() == Json::LargestInt{group};
}

// Takes a member out of an object; null when there is none.
static Json::Value TakeMember(Json::Value& object, std::string_view key) {
  Json::Value member;
  object.removeMember(key.data(), key.data() + key.size(), &member);
  return member;
}

static void FlattenEntity(Json::Value& entity, Json::Value& alerts, Json::Value& faults) {
  for (auto it = entity.begin(); it != entity.end();) {
    const auto current = it++;  // taking a member out ends its own iterator only
    Json::Value& item = *current;
    if (!item.isObject()) continue;
    const bool isAlert = IsItemOfGroup(item, MorvixProtocolTypeAlert_4_0);
    if (isAlert || IsItemOfGroup(item, MorvixProtocolTypeFault_4_0)) {
      const char* nameEnd = nullptr;
      const char* name = current.memberName(&nameEnd);
      item[Json::StaticString("name")] = Json::Value(name, nameEnd);
      TakeMember(item, "type");
      (isAlert ? alerts : faults).append(TakeMember(entity, {name, static_cast<size_t>(nameEnd - name)}));
    } else {
      item = TakeMember(item, "value");
    }
  }
}

std::string ProtocolConvertReceiveResult_4_0(const std::string& result, Json::Value& alerts, Json::Value& faults) {
  alerts = Json::Value(Json::arrayValue);
  faults = Json::Value(Json::arrayValue);
  Json::Value root;
  if (!ParseJsonText(result, root) || !IsDocument(root)) return "";
  for (Json::Value& entity : root) {
    if (entity.isObject()) FlattenEntity(entity, alerts, faults);
  }
  return WriteJsonText(root);
}

// =====================================================================================================================
// Alerts and faults
//
// From lists of all alerts and faults to those that are active, in order and unmerged.
// =====================================================================================================================

// The value of an alert or fault as an integer; 0 when it is not active. Reals never are, on purpose.
static int32_t ActiveValue(const Json::Value& value) {
  int32_t number = 0;
  switch (KindOf(value)) {
    case JsonKind::kSigned:
      return value.asInt();
    case JsonKind::kBool:
      return value.asBool() ? 1 : 0;
    case JsonKind::kText:
      ScanInteger(value.asCString(), number);
      return number;
    default:
      return 0;
  }
}

void ProtocolGetAlertsOrFaults_4_0(const Json::Value& alerts, std::vector<TavelReceiveInfo>& valert) {
  if (!alerts.isArray()) return;
  for (const Json::Value& alert : alerts) {
    const Json::Value* name = FindMember(alert, "name");
    const Json::Value* value = FindMember(alert, "value");
    if (name == nullptr || !name->isString() || value == nullptr) continue;
    const int32_t activeValue = ActiveValue(*value);
    if (activeValue != 0) valert.push_back({std::string(TextOf(*name)), activeValue});
  }
}

void ProtocolGetAlertsAndFaults_4_0(const Json::Value& alerts, const Json::Value& faults,
                                    std::vector<TavelReceiveInfo>& valert, std::vector<TavelReceiveInfo>& vfault) {
  ProtocolGetAlertsOrFaults_4_0(alerts, valert);
  ProtocolGetAlertsOrFaults_4_0(faults, vfault);
}

// =====================================================================================================================
// Device queries
//
// Over arrays of device descriptions. What is no array has no elements; elements that are no objects are passed over.
// =====================================================================================================================

static bool IsEmptyText(const char* text) { return text == nullptr || *text == '\0'; }

static bool SpeaksProtocol(const Json::Value& device, std::string_view protocolName, dword packetVersion) {
  const Json::Value* protocolType = FindMember(device, "protocolType");
  dword packetVer = 0;
  return protocolType != nullptr && protocolType->isString() &&
         ProtocolGetAttrHex_4_0(device, "packetVersion", packetVer) && TextOf(*protocolType) == protocolName &&
         packetVer == packetVersion;
}

bool ProtocolFilterDevices_4_0(const char* protocolName, dword packetVersion, Json::Value& devices) {
  const Json::Value* known = TavelConfig::sharedInstance()->GetAllDevices();
  devices = Json::Value(Json::arrayValue);
  if (known->isNull() || IsEmptyText(protocolName)) return false;
  if (!known->isArray()) return true;
  for (const Json::Value& device : *known) {
    if (SpeaksProtocol(device, protocolName, packetVersion)) devices.append(device);
  }
  return true;
}

// The product key of a device, in place; empty when there is none.
static std::string_view ProductKeyOf(const Json::Value& device) {
  const Json::Value* key = FindMember(device, "product_key");
  if (key == nullptr) return {};
  if (key->isString()) {
    const std::string_view text = TextOf(*key);
    return text.empty() ? "Default" : text;
  }
  if (!key->isObject()) return {};
  // "Default" stands for an empty key of a device only, not for an empty key of one build kind.
  const Json::Value* build = FindMember(*key, TavelConfig::sharedInstance()->IsDebug() ? "debug" : "release");
  return build != nullptr && build->isString() ? TextOf(*build) : std::string_view();
}

bool ProtocolGetDevice_4_0(const Json::Value& devices, const char* deviceKey, Json::Value& device) {
  if (!devices.isArray() || devices.empty() || IsEmptyText(deviceKey)) return false;
  for (const Json::Value& candidate : devices) {
    if (ProductKeyOf(candidate) == deviceKey) {
      device = candidate;
      return true;
    }
  }
  // A failed search leaves the last element behind; callers look at the result first.
  device = devices[devices.size() - 1];
  return false;
}

std::string ProtocolGetProductKey_4_0(const Json::Value& device) { return std::string(ProductKeyOf(device)); }

std::vector<std::string> ProtocolGetProductList_4_0(const Json::Value& devices) {
  std::vector<std::string> keys;
  if (!devices.isArray()) return keys;
  for (const Json::Value& device : devices) {
    const std::string_view key = ProductKeyOf(device);
    if (!key.empty()) keys.emplace_back(key);
  }
  return keys;
}
