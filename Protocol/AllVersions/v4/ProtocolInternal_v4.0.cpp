#include "ProtocolInternal_v4.0.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <cfenv>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "ProtocolInspection_v4.0.h"
#include "host/Base64.h"
#include "host/Logging.h"
#include "host/TavelConfig.h"
#include "host/Text.h"

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8, "numbers are scaled in IEEE doubles");
static_assert(FLT_EVAL_METHOD == 0 || FLT_EVAL_METHOD == 1,
              "doubles must not be evaluated with extra precision; on 32-bit x86 compile with -msse2 -mfpmath=sse");

// Log levels of the host.
static constexpr int kLevelWarning = 1;
static constexpr int kLevelInformation = 2;

// =====================================================================================================================
// JSON access
//
// All members are read from JSON here, in place. Numbers are classified by how they are stored and by the 32-bit
// ranges, never by the library's range predicates, whose answers differ between its versions: a number that is stored
// as an integer outside of 32 bits counts as a real.
// =====================================================================================================================

// The member named by the bytes from `key` to `keyEnd`; null when it is missing or `object` is not an object. No reader
// below takes a JSON null.
static inline const Json::Value* FindMember(const Json::Value& object, const char* key, const char* keyEnd) {
  return object.isObject() ? object.find(key, keyEnd) : nullptr;
}

static inline const Json::Value* FindMember(const Json::Value& object, const char* key) {
  return key == nullptr ? nullptr : FindMember(object, key, key + std::strlen(key));
}

static const Json::Value* FindMember(const Json::Value& object, const std::string& key) {
  return FindMember(object, key.data(), key.data() + key.size());
}

// Whether two names of the same length are equal. Most are short: two loads that overlap cover up to 16 bytes.
static inline bool EqualBytes(const char* left, const char* right, size_t length) {
  if (length < 4 || length > 16) return std::memcmp(left, right, length) == 0;
  const auto differs = [&](auto word, size_t offset) {
    auto other = word;
    std::memcpy(&word, left + offset, sizeof word);
    std::memcpy(&other, right + offset, sizeof other);
    return word != other;
  };
  if (length < 8) return !differs(uint32_t{0}, 0) && !differs(uint32_t{0}, length - 4);
  return !differs(uint64_t{0}, 0) && !differs(uint64_t{0}, length - 8);
}

// Negative, 0 or positive as `left` is before, equal to or after `right` in byte order. Most are equal.
static inline int CompareNames(std::string_view left, std::string_view right) {
  if (left.size() == right.size() && EqualBytes(left.data(), right.data(), left.size())) return 0;
  return left.compare(right);
}

template <size_t count>
static constexpr bool IsSorted(const std::string_view (&names)[count]) {
  for (size_t i = 1; i < count; ++i) {
    if (names[i - 1] >= names[i]) return false;
  }
  return true;
}

// Several members at once, in one walk: `names` are sorted, in the byte order in which objects hold their members.
// Entries of absent members are left untouched in `members`, all of them when `object` is not an object.
template <size_t count>
static void FindMembers(const Json::Value& object, const std::string_view (&names)[count],
                        const Json::Value* (&members)[count]) {
  if (!object.isObject()) return;
  size_t next = 0;
  auto it = object.begin();
  for (Json::ArrayIndex left = object.size(); left > 0; --left, ++it) {
    const char* end = nullptr;
    const char* begin = it.memberName(&end);
    const std::string_view name(begin, static_cast<size_t>(end - begin));
    int order = CompareNames(names[next], name);
    for (; order < 0; order = CompareNames(names[next], name)) {
      if (++next == count) return;
    }
    if (order > 0) continue;  // not one of `names`
    members[next] = &*it;
    if (++next == count) return;
  }
}

// A whole string value, NULs included, with a NUL after it; without data for values of other kinds.
static inline std::string_view TextOf(const Json::Value& value) {
  const char* begin = nullptr;
  const char* end = nullptr;
  if (!value.getString(&begin, &end)) return {};
  return {begin, static_cast<size_t>(end - begin)};
}

// A scan fails only if it converts nothing although there is something to read. At the end of the input its result is
// negative, which is a success that leaves the output untouched: an empty string means the caller's preset value.
template <typename Number, typename Value>
static bool StoreScanned(int scanned, Number number, Value& value) {
  if (scanned == 1) value = static_cast<Value>(number);
  return scanned != 0;
}

// Numbers out of range saturate at 64 bits and are then cut, also on machines with 32-bit longs.
template <typename Integer>
static bool ScanInteger(const char* text, Integer& value) {
  long long number = 0;
  // NOLINTNEXTLINE(cert-err34-c): saturates on purpose
  const int scanned = std::sscanf(text, "%lli", &number);
  return StoreScanned(scanned, number, value);
}

// The readers take a member that is not null and return false for kinds that they do not accept.

static inline bool WholeNumberOf(const Json::Value& member, Json::ValueType type, int32_t& value) {
  if (type == Json::intValue) {
    const Json::LargestInt number = member.asLargestInt();
    if (number < INT32_MIN || number > UINT32_MAX) return false;
    value = static_cast<int32_t>(number);  // unsigned ones wrap, on purpose
    return true;
  }
  if (type == Json::uintValue) {
    const Json::LargestUInt number = member.asLargestUInt();
    if (number > UINT32_MAX) return false;
    value = static_cast<int32_t>(number);
    return true;
  }
  if (type != Json::booleanValue) return false;
  value = member.asBool() ? 1 : 0;
  return true;
}

static inline bool IntegerOf(const Json::Value& member, int32_t& value) {
  const Json::ValueType type = member.type();
  return type == Json::stringValue ? ScanInteger(member.asCString(), value) : WholeNumberOf(member, type, value);
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

// JSON text gives small numbers as signed, so the plain numbers that are accepted are 2147483648 or more.
static bool HexOf(const Json::Value& member, dword& value) {
  switch (member.type()) {
    case Json::stringValue: {
      unsigned long long number = 0;
      // NOLINTNEXTLINE(cert-err34-c): saturates on purpose
      const int scanned = std::sscanf(member.asCString(), "0x%llX", &number);
      return StoreScanned(scanned, number, value);
    }
    case Json::intValue: {
      const Json::LargestInt number = member.asLargestInt();
      if (number <= INT32_MAX || number > UINT32_MAX) return false;
      value = static_cast<dword>(number);
      return true;
    }
    case Json::uintValue: {
      const Json::LargestUInt number = member.asLargestUInt();
      if (number > UINT32_MAX) return false;
      value = static_cast<dword>(number);
      return true;
    }
    default:
      return false;
  }
}

static inline bool DoubleOf(const Json::Value& member, double& value) {
  switch (member.type()) {
    case Json::stringValue:
      // NOLINTNEXTLINE(cert-err34-c): out of range is infinity or 0, on purpose
      return std::sscanf(member.asCString(), "%lf", &value) != 0;
    case Json::intValue:
    case Json::uintValue:
    case Json::realValue:
      value = member.asDouble();
      return true;
    default:
      return false;
  }
}

// `Text` is a std::string, or a std::string_view into the document.
template <typename Text>
static inline bool StringOf(const Json::Value& member, Text& value) {
  const std::string_view text = TextOf(member);
  if (text.data() == nullptr) return false;
  value = text;
  return true;
}

// A member that is missing is a null pointer.
template <typename Value>
static bool ReadMember(const Json::Value* member, bool (*read)(const Json::Value&, Value&), Value& value) {
  return member != nullptr && read(*member, value);
}

bool ProtocolGetAttrInteger_4_0(const Json::Value& attr, const char* strKey, int32_t& value) {
  return ReadMember(FindMember(attr, strKey), IntegerOf, value);
}

bool ProtocolGetAttrInteger64_4_0(const Json::Value& attr, const char* strKey, int64_t& value) {
  return ReadMember(FindMember(attr, strKey), Integer64Of, value);
}

bool ProtocolGetAttrHex_4_0(const Json::Value& attr, const char* strKey, dword& value) {
  return ReadMember(FindMember(attr, strKey), HexOf, value);
}

bool ProtocolGetAttrDouble_4_0(const Json::Value& attr, const char* strKey, double& value) {
  return ReadMember(FindMember(attr, strKey), DoubleOf, value);
}

bool ProtocolGetAttrString_4_0(const Json::Value& attr, const char* strKey, std::string& value) {
  return ReadMember(FindMember(attr, strKey), StringOf<std::string>, value);
}

// The value that replaces an output, also when the member is missing. The member may be part of the output: the
// assignment copies first.
static const Json::Value& MemberOrNull(const Json::Value* member) {
  return member == nullptr ? Json::Value::nullSingleton() : *member;
}

bool ProtocolGetAttrObject_4_0(const Json::Value& attr, const char* strKey, Json::Value& value) {
  if (!attr.isObject()) return false;
  value = MemberOrNull(FindMember(attr, strKey));
  return value.isObject();
}

// The library's older reader and writer, whose form of JSON receive documents have; the only deprecated calls.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// False also where the reader throws: for JSON that is nested too deep.
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
// From one entity of a product configuration to records. Lenient: an attribute that cannot be used is logged and
// skipped; only an unusable entity fails the call. Ranges are not checked here but in the codec, where they matter.
// =====================================================================================================================

bool ProtocolDataTypeIsUInt(MorvixProtocolDataType_4_0 type) {
  return (type & ~uint32_t{3}) == MorvixProtocolDataTypeUInt8_4_0;
}

// Bool and enum are packed into bit groups.
static bool IsBitPacked(MorvixProtocolDataType_4_0 type) {
  return type == MorvixProtocolDataTypeBool_4_0 || type == MorvixProtocolDataTypeEnum_4_0;
}

namespace {

template <typename Value>
struct KeywordMeaning {
  std::string_view keyword;
  Value value;
};

}  // namespace

// Keywords match without regard to case. Of longer strings only the first 32 characters count, so they match nothing.
template <typename Value, size_t count>
static Value FindKeyword(const char* text, const KeywordMeaning<Value> (&meanings)[count], Value unknown) {
  constexpr size_t kMaxKeywordLength = 32;
  char copy[kMaxKeywordLength + 1];
  copy[std::string_view(text).copy(copy, kMaxKeywordLength)] = '\0';
  const std::string_view keyword = strlwr(copy);
  for (const KeywordMeaning<Value>& meaning : meanings) {
    if (keyword == meaning.keyword) return meaning.value;
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

// The parser fills records, which own their strings, for callers who keep them; and views into the configuration where
// a one-call operation cannot change it meanwhile. Both have the same field names, and the codec works on either.
namespace {

struct AttributeView {
  struct ItemCount {
    size_t count = 0;
    size_t size() const { return count; }
  };
  int32_t id = 0;
  std::string_view name;
  std::string_view display_name;
  std::string_view desc;
  MorvixProtocolType_4_0 type = MorvixProtocolTypeUnknown_4_0;
  MorvixProtocolDataType_4_0 data_type = MorvixProtocolDataTypeUnknown_4_0;
  MorvixProtocolPosition_4_0 position;
  MorvixProtocolUIntSpec_4_0 uint_spec;
  ItemCount enumList;
};

}  // namespace

// Sets the byte length of the bit group in the attributes from `start` to `end` inclusive, clamped to the list. The
// length follows from the last attribute of the whole list, so a configuration lists a group's highest bits last.
template <typename Attribute>
static void SizeBitGroup(std::vector<Attribute>& attributes, size_t start, size_t end) {
  if (attributes.empty() || !IsBitPacked(attributes.back().data_type)) return;
  const MorvixProtocolPosition_4_0& last = attributes.back().position;
  // The sum wraps in 32 bits.
  const auto bits = static_cast<int32_t>(static_cast<uint32_t>(last.bit_offset) + static_cast<uint32_t>(last.len));
  const size_t bytes = bits <= 0 ? 0 : (static_cast<size_t>(bits) + 7) / 8;
  for (size_t i = start; i <= end && i < attributes.size(); ++i) attributes[i].position.groupByteLength = bytes;
}

[[maybe_unused]] static void CalculateAttributesGroupByteSizeWithRange(
    std::vector<MorvixProtocolAttribute_4_0>& attributes, size_t start, size_t end) {
  SizeBitGroup(attributes, start, end);
}

namespace {

// The run of bit-packed attributes of one group that the walk is in, as indices into the attribute list.
struct BitGroupRun {
  uint32_t currentType = MorvixProtocolTypeUnknown_4_0;
  size_t groupMin = SIZE_MAX;
  size_t groupMax = SIZE_MAX;
};

}  // namespace

// Call this before `next` is appended to `attributes`. Anything but another bit-packed attribute of the same group ends
// the run. After an attribute that is not bit-packed the run's end is one index too far, which the clamp in
// SizeBitGroup makes harmless.
template <typename Attribute>
static void AdvanceBitGroup(std::vector<Attribute>& attributes, const Attribute& next, BitGroupRun& run) {
  const bool isExpectedType = IsBitPacked(next.data_type);
  if (run.currentType == next.type && isExpectedType) {
    ++run.groupMax;
    return;
  }
  SizeBitGroup(attributes, run.groupMin, run.groupMax);
  run.groupMin = run.groupMax = attributes.size() + (isExpectedType ? 0 : 1);
  run.currentType = next.type;
}

// The scaling and items that were read last in the walk over the attributes. Only numbers and enums read them, and
// every later attribute inherits them; that decides which attributes are skipped, and is intended.
namespace {

template <typename Items>
struct CarriedMembers {
  const Json::Value* uintSpecMember = nullptr;  // null: nothing is inherited
  bool isUIntSpecRead = false;                  // the next two are read from the member
  MorvixProtocolUIntSpec_4_0 uintSpec;
  const char* invalidUIntSpecKey = nullptr;
  Items enumList;
};

enum AttributeMember { kDataType, kDesc, kDisplayName, kEnum, kId, kName, kPosition, kType, kUIntSpec, kAttributeSize };
static constexpr std::string_view kAttributeMembers[] = {"data_type", "desc",     "display_name", "enum",     "id",
                                                         "name",      "position", "type",         "uint_spec"};
static_assert(IsSorted(kAttributeMembers));
using AttributeMembers = const Json::Value* [kAttributeSize];

}  // namespace

// The readers of an attribute's parts return the invalid key, or null.

template <typename Attribute>
static const char* ReadIdentity(const AttributeMembers& members, Attribute& attribute) {
  if (!ReadMember(members[kId], IntegerOf, attribute.id)) return "id";
  if (!ReadMember(members[kName], StringOf, attribute.name)) return "name";
  if (!ReadMember(members[kDisplayName], StringOf, attribute.display_name)) return "display_name";
  if (!ReadMember(members[kDesc], StringOf, attribute.desc)) return "desc";
  std::string_view type;
  if (!ReadMember(members[kType], StringOf, type)) return "type";
  std::string_view dataType;
  if (!ReadMember(members[kDataType], StringOf, dataType)) return "data_type";
  attribute.type = ProtocolGetType_4_0(type.data());
  attribute.data_type = GetDataType_4_0(dataType.data());
  if (attribute.type == MorvixProtocolTypeUnknown_4_0) return "type";
  if (attribute.data_type == MorvixProtocolDataTypeUnknown_4_0) return "data_type";
  return nullptr;
}

static const char* ReadPosition(const Json::Value& json, MorvixProtocolPosition_4_0& position) {
  enum { kBitOffset, kByteOffset, kLen, kUnit, kSize };
  static constexpr std::string_view kNames[] = {"bit_offset", "byte_offset", "len", "unit"};
  static_assert(IsSorted(kNames));
  const Json::Value* members[kSize] = {};
  FindMembers(json, kNames, members);
  if (!ReadMember(members[kByteOffset], IntegerOf, position.byte_offset)) return "byte_offset";
  if (!ReadMember(members[kBitOffset], IntegerOf, position.bit_offset)) return "bit_offset";
  std::string_view unit;
  if (!ReadMember(members[kUnit], StringOf, unit)) return "unit";
  if (!ReadMember(members[kLen], IntegerOf, position.len)) return "len";
  position.unit = ProtocolGetUnit_4_0(unit.data());
  return position.unit == MorvixProtocolUnitUnknown_4_0 ? "position.unit" : nullptr;
}

static const char* ReadUIntSpec(const Json::Value& json, MorvixProtocolUIntSpec_4_0& uintSpec) {
  enum { kAddition, kMax, kMin, kRatio, kSize };
  static constexpr std::string_view kNames[] = {"addition", "max", "min", "ratio"};
  static_assert(IsSorted(kNames));
  const Json::Value* members[kSize] = {};
  FindMembers(json, kNames, members);
  if (!ReadMember(members[kMin], Integer64Of, uintSpec.min)) return "min";
  if (!ReadMember(members[kMax], Integer64Of, uintSpec.max)) return "max";
  uintSpec.step = 1;
  if (!ReadMember(members[kRatio], DoubleOf, uintSpec.ratio)) return "ratio";
  if (!ReadMember(members[kAddition], DoubleOf, uintSpec.addition)) return "addition";
  return nullptr;
}

// Elements that are not strings are left out, so the indices of later items shift.

static void AppendEnumItem(const Json::Value& item, std::vector<std::string>& items) {
  items.emplace_back(TextOf(item));
}

static void AppendEnumItem(const Json::Value&, AttributeView::ItemCount& items) { ++items.count; }

template <typename Items>
static Items ReadEnumItems(const Json::Value& json) {
  Items items;
  for (const Json::Value& item : json) {
    if (item.isString()) AppendEnumItem(item, items);
  }
  return items;
}

// Fetches the scaling or the items that an attribute of this data type requires. On failure the walk continues with the
// scaling that was fetched, usable or not, and without items.
template <typename Items>
static const char* FetchCarriedMembers(const AttributeMembers& members, MorvixProtocolDataType_4_0 dataType,
                                       CarriedMembers<Items>& carried) {
  if (ProtocolDataTypeIsUInt(dataType)) {
    const Json::Value* uintSpec = members[kUIntSpec];
    carried.uintSpecMember = uintSpec == nullptr || uintSpec->isNull() ? nullptr : uintSpec;
    carried.isUIntSpecRead = false;
    if (uintSpec == nullptr || !uintSpec->isObject()) return "uint_spec";
  }
  if (dataType == MorvixProtocolDataTypeEnum_4_0) {
    const Json::Value* items = members[kEnum];
    const bool isUsable = items != nullptr && items->isArray() && !items->empty();
    carried.enumList = isUsable ? ReadEnumItems<Items>(*items) : Items();
    if (!isUsable) return "enum";
  }
  return nullptr;
}

// The carried scaling is read at its first use, since an attribute with an unusable position does not use it.
template <typename Items>
static const char* InheritUIntSpec(CarriedMembers<Items>& carried, MorvixProtocolUIntSpec_4_0& uintSpec) {
  if (carried.uintSpecMember == nullptr) return nullptr;
  if (!carried.isUIntSpecRead) {
    carried.uintSpec = MorvixProtocolUIntSpec_4_0();
    carried.invalidUIntSpecKey = ReadUIntSpec(*carried.uintSpecMember, carried.uintSpec);
    carried.isUIntSpecRead = true;
  }
  uintSpec = carried.uintSpec;
  return carried.invalidUIntSpecKey;
}

// The rest of an attribute of a selected group, after its identity.
template <typename Attribute, typename Items>
static const char* ReadEncoding(const AttributeMembers& members, CarriedMembers<Items>& carried, Attribute& attribute) {
  const Json::Value* position = members[kPosition];
  if (position == nullptr || !position->isObject()) return "position";
  if (const char* invalidKey = FetchCarriedMembers(members, attribute.data_type, carried)) return invalidKey;
  if (const char* invalidKey = ReadPosition(*position, attribute.position)) return invalidKey;
  if (const char* invalidKey = InheritUIntSpec(carried, attribute.uint_spec)) return invalidKey;
  attribute.enumList = carried.enumList;
  return nullptr;
}

// Enough for most entities; a sparse array may claim any number of elements.
static constexpr size_t kFirstAttributes = 64;

// The report on an element, with the invalid key or null. Its keywords are read even if other members are invalid.
static MorvixProtocolElement_4_0 DescribeElement(const AttributeMembers& members, const char* invalidKey) {
  MorvixProtocolElement_4_0 element;
  if (invalidKey != nullptr) element.invalid = invalidKey;
  std::string_view keyword;
  if (ReadMember(members[kType], StringOf, keyword)) element.type = ProtocolGetType_4_0(keyword.data());
  if (ReadMember(members[kDataType], StringOf, keyword)) element.data_type = GetDataType_4_0(keyword.data());
  return element;
}

namespace {

// The walk over the attributes of an entity, which collects the usable ones of the selected groups.
template <typename Attribute>
class AttributeWalk {
 public:
  // `elements` may be null.
  AttributeWalk(int matchTypes, std::vector<Attribute>& attributes, std::vector<MorvixProtocolElement_4_0>* elements)
      : matchTypes_(static_cast<uint32_t>(matchTypes)), attributes_(attributes), elements_(elements) {}

  void Visit(const Json::Value& attr) {
    AttributeMembers members = {};
    FindMembers(attr, kAttributeMembers, members);
    Attribute attribute;
    const char* invalidKey = attr.isObject() ? ReadIdentity(members, attribute) : "attr";
    const bool isSelected = (attribute.type & matchTypes_) != 0;
    if (invalidKey == nullptr && isSelected) invalidKey = ReadEncoding(members, carried_, attribute);
    if (elements_ != nullptr) elements_->push_back(DescribeElement(members, invalidKey));
    if (invalidKey != nullptr) {
      logMsgEx(kLevelWarning, "FilterConfigType", "Warning: '%s' is invalid, skip.", invalidKey);
    } else if (isSelected) {
      if (elements_ != nullptr) elements_->back().attribute = attributes_.size();
      AdvanceBitGroup(attributes_, attribute, run_);
      attributes_.push_back(std::move(attribute));
    }
  }

  void Finish() { SizeBitGroup(attributes_, run_.groupMin, run_.groupMax); }

 private:
  const uint32_t matchTypes_;
  std::vector<Attribute>& attributes_;
  std::vector<MorvixProtocolElement_4_0>* const elements_;
  CarriedMembers<decltype(Attribute::enumList)> carried_;
  BitGroupRun run_;
};

}  // namespace

// Logs why an entity is unusable; always false.
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

template <typename Attribute>
static bool FilterAttributes(const Json::Value& entity, int matchTypes, std::vector<Attribute>& attributes,
                             MorvixProtocolEntity_4_0& entityInfo,
                             std::vector<MorvixProtocolElement_4_0>* elements = nullptr) {
  if (!GetEntityInfo(entity, entityInfo)) return false;
  logMsg(kLevelInformation, "Filter entity: id='%i' name='%s' display_name='%s'", entityInfo.id,
         entityInfo.name.c_str(), entityInfo.display_name.c_str());

  AttributeWalk<Attribute> walk(matchTypes, attributes, elements);
  const Json::Value& attrs = entity["attrs"];
  if (attributes.empty()) attributes.reserve(std::min<size_t>(attrs.size(), kFirstAttributes));
  if (attrs.end() - attrs.begin() == static_cast<ptrdiff_t>(attrs.size())) {
    for (const Json::Value& attr : attrs) walk.Visit(attr);
  } else {
    // A sparse array; its missing elements count as nulls.
    for (Json::ArrayIndex i = 0; i < attrs.size(); ++i) walk.Visit(attrs[i]);
  }
  walk.Finish();
  return true;
}

static bool FilterConfigType(const Json::Value& entity, int matchTypes,
                             std::vector<MorvixProtocolAttribute_4_0>& attributes,
                             MorvixProtocolEntity_4_0& entityInfo) {
  return FilterAttributes(entity, matchTypes, attributes, entityInfo);
}

bool ProtocolParseEntity_4_0(const Json::Value& entity, int matchTypes,
                             std::vector<MorvixProtocolAttribute_4_0>& attributes,
                             MorvixProtocolEntity_4_0& entityInfo) {
  return FilterConfigType(entity, matchTypes, attributes, entityInfo);
}

bool ProtocolParseEntity_4_0(const Json::Value& entity, int matchTypes,
                             std::vector<MorvixProtocolAttribute_4_0>& attributes, MorvixProtocolEntity_4_0& entityInfo,
                             std::vector<MorvixProtocolElement_4_0>& elements) {
  return FilterAttributes(entity, matchTypes, attributes, entityInfo, &elements);
}

// =====================================================================================================================
// Payload positions and bits
//
// From a position to the payload bytes that contain the field, and from there to the field's bits in one 64-bit word.
// Payload integers are big-endian; bits count from the least significant bit of their group's last byte. Offsets and
// lengths are sign-extended and compared unsigned in 64 bits on every machine: that refuses negative ones, except for
// the few whose arithmetic wraps back into range.
// =====================================================================================================================

static constexpr size_t kWordBits = 64;
static constexpr size_t kWordBytes = 8;

// The lowest `length` bits, all of them from 64 on.
static uint64_t Mask(size_t length) { return length >= kWordBits ? ~uint64_t{0} : (uint64_t{1} << length) - 1; }

static uint64_t ShiftLeft(uint64_t u, size_t bits) { return bits < kWordBits ? u << bits : 0; }

static uint64_t ShiftRight(uint64_t u, size_t bits) { return bits < kWordBits ? u >> bits : 0; }

static uint64_t SignExtend(int32_t value) { return static_cast<uint64_t>(int64_t{value}); }

namespace {

// The bytes that a field touches, in a payload of at least `needed` bytes; no payload is as long as kNowhere.
struct FieldPlace {
  uint64_t start;
  uint64_t byteLength;
  uint64_t needed;
};

}  // namespace

static constexpr uint64_t kNowhere = UINT64_MAX;

static inline FieldPlace BytePlace(uint64_t byteOffset, uint64_t byteLength) {
  const bool canBeInside = byteLength != 0 && byteOffset != UINT64_MAX;
  const uint64_t needed = std::max({byteOffset + 1, byteLength, byteOffset + byteLength});
  return {byteOffset, byteLength, canBeInside ? needed : kNowhere};
}

// `bitOffset` is the field's start, counted from the payload's start, the most significant bit of byte 0 first.
static inline FieldPlace BitPlace(uint64_t bitOffset, uint64_t bitLength) {
  const uint64_t end = bitOffset + bitLength;
  const uint64_t startByte = bitOffset / 8;
  const uint64_t endsInsideByte = end % 8 != 0 ? 1 : 0;
  const uint64_t spannedBytes = (bitOffset % 8 + bitLength) / 8 + endsInsideByte;
  const uint64_t needed = std::max({startByte + 1, spannedBytes, end / 8 + endsInsideByte});
  return {startByte, spannedBytes, spannedBytes != 0 ? needed : kNowhere};
}

static inline byte* InPlace(byte* data, uint64_t length, const FieldPlace& place) {
  return place.needed <= length ? data + place.start : nullptr;
}

[[maybe_unused]] static byte* OffsetBytePosition(byte* data, uint64_t length, uint64_t byteOffset,
                                                 uint64_t byteLength) {
  return InPlace(data, length, BytePlace(byteOffset, byteLength));
}

[[maybe_unused]] static byte* OffsetBitPosition(byte* data, uint64_t length, uint64_t bitOffset, uint64_t bitLength,
                                                size_t& byteLength) {
  const FieldPlace place = BitPlace(bitOffset, bitLength);
  byteLength = static_cast<size_t>(place.byteLength);
  return InPlace(data, length, place);
}

// False if the position has no bytes at all. A bit field may extend into the bytes before its group; only its lowest
// bit has to be inside.
static inline bool FindPlace(const MorvixProtocolPosition_4_0& position, FieldPlace& place) {
  const uint64_t byteOffset = SignExtend(position.byte_offset);
  const uint64_t len = SignExtend(position.len);
  if (position.unit == MorvixProtocolUnitByte_4_0) {
    place = BytePlace(byteOffset, len);
    return true;
  }
  const uint64_t groupBits = uint64_t{position.groupByteLength} * 8;
  const uint64_t bitOffset = SignExtend(position.bit_offset);
  if (position.unit != MorvixProtocolUnitBit_4_0 || groupBits < bitOffset + 1) return false;
  place = BitPlace(byteOffset * 8 + groupBits - bitOffset - len, len);
  return true;
}

// The first byte of the field and the number of bytes it touches, or null.
static inline byte* OffsetPosition(byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position,
                                   size_t& byteLength) {
  FieldPlace place;
  if (!FindPlace(position, place)) return nullptr;
  byteLength = static_cast<size_t>(place.byteLength);
  return InPlace(data, dataLen, place);
}

// Keeps the field's bits, in place, and clears all others. A length below 0 counts as 0.
static void FixIntegerInBitRange(uint64_t& u, int32_t start, int32_t length) {
  const auto shift = static_cast<size_t>(start);
  u = ShiftLeft(ShiftRight(u, shift) & Mask(static_cast<size_t>(std::max(length, 0))), shift);
}

static void ClearIntegerInBitRange(uint64_t& u, size_t start, size_t length) { u &= ~ShiftLeft(Mask(length), start); }

// True when the field and the bits below it in its last byte fit one word of the spanned bytes.
static bool FitsWord(int32_t start, int32_t length, uint64_t byteLength) {
  constexpr auto kMaxBits = static_cast<int32_t>(kWordBits);
  if (start < 0 || length < 1 || length > kMaxBits || byteLength > kWordBytes || byteLength == 0) return false;
  return start % 8 + length <= kMaxBits;
}

static bool EncodeUInt(uint64_t u, size_t totalBytes, byte* data, [[maybe_unused]] size_t dataLen) {
  if (totalBytes < 1 || totalBytes > kWordBytes) return false;
  for (size_t i = totalBytes; i-- > 0; u >>= 8) data[i] = static_cast<byte>(u);
  return true;
}

// Bytes of `u` above the lowest `totalBytes` stay untouched.
static bool DecodeUInt(const byte* data, [[maybe_unused]] size_t dataLen, size_t totalBytes, uint64_t& u) {
  if (totalBytes < 1 || totalBytes > kWordBytes) return false;
  uint64_t low = 0;
  for (size_t i = 0; i < totalBytes; ++i) low = low << 8 | data[i];
  ClearIntegerInBitRange(u, 0, totalBytes * 8);
  u |= low;
  return true;
}

// Reads the field's bits, in place, from the spanned bytes.
[[maybe_unused]] static bool BitCopy(const byte* offset, int32_t start, int32_t length, size_t byteLength,
                                     uint64_t& u) {
  if (!FitsWord(start, length, byteLength)) return false;
  DecodeUInt(offset, byteLength, byteLength, u);
  FixIntegerInBitRange(u, start % 8, length);
  return true;
}

// Writes the field's bits, in place, to the spanned bytes. The bits around the field are loaded with the first byte
// lowest but stored with the first byte highest: over two or more bytes their byte order is reversed. That is intended,
// since devices in the field rely on it; the field itself is always correct.
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

// Puts the lowest `bitLength` bits of `u` into `value`; does nothing if the range exceeds a word.
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
// Between user value and raw unsigned integer: user = raw * ratio + addition. Raw values are below 2 to the power 52,
// so that every raw value and every half is exact in a double.
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

static inline bool EncodeUIntSpec(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, double y,
                                  uint64_t& x) {
  if (!IsUsableRange(min, max, step)) return false;
  const double raw = (y - addition) / ratio;
  if (raw >= 0 && raw <= kMaxRawValue) {
    x = static_cast<uint64_t>(raw);
    if (raw - static_cast<double>(x) > 0.5) ++x;  // an exact half rounds down, on purpose
  } else if (std::isnan(raw)) {
    x = 0;
  } else {
    return false;
  }
  return IsOnStepGrid(min, max, step, x);
}

static inline bool DecodeUIntSpec(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, uint64_t x,
                                  double& y) {
  if (x >> kRawBits != 0 || !IsUsableRange(min, max, step) || !IsOnStepGrid(min, max, step, x)) return false;
  // The product is rounded before the sum, also on machines with a fused multiply-add.
  const volatile double product = static_cast<double>(x) * ratio;
  y = product + addition;
  return true;
}

// =====================================================================================================================
// Typed values
//
// One raw value into or out of the payload. A failure leaves the payload unchanged; nothing is logged here.
// =====================================================================================================================

static bool IsSingleBit(const MorvixProtocolPosition_4_0& position) {
  return position.unit == MorvixProtocolUnitBit_4_0 && position.len == 1;
}

// A field's shift inside its last byte. Negative for most negative offsets, which as a size is never a bit range.
static size_t ShiftInByte(const MorvixProtocolPosition_4_0& position) {
  return static_cast<size_t>(position.bit_offset % 8);
}

// The field of a binary, or null if it is not in bytes or too long.
static byte* OffsetBinaryPosition(byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position,
                                  size_t& byteLength) {
  if (position.unit != MorvixProtocolUnitByte_4_0) return nullptr;
  byte* field = OffsetPosition(data, dataLen, position, byteLength);
  return byteLength <= MorvixProtocolMaxBinaryBytes_4_0 ? field : nullptr;
}

static inline bool WriteBoolValue(byte* data, size_t& dataLen, const MorvixProtocolPosition_4_0& position, bool value) {
  if (!IsSingleBit(position)) return false;
  size_t byteLength = 0;
  byte* field = OffsetPosition(data, dataLen, position, byteLength);
  if (field == nullptr) return false;  // one bit never spans more than one byte
  dataLen = byteLength;
  uint64_t bits = *field;
  EncodeBit(value ? 1 : 0, ShiftInByte(position), 1, bits);
  *field = static_cast<byte>(bits);
  return true;
}

static inline bool WriteUIntValue(byte* data, size_t& dataLen, const MorvixProtocolPosition_4_0& position,
                                  uint64_t value) {
  size_t byteLength = 0;
  byte* field = OffsetPosition(data, dataLen, position, byteLength);
  if (field == nullptr || byteLength > kWordBytes) return false;
  dataLen = byteLength;
  if (position.unit == MorvixProtocolUnitByte_4_0) return EncodeUInt(value, byteLength, field, byteLength);
  if (!FitsWord(position.bit_offset, position.len, byteLength)) return false;
  uint64_t u = 0;
  EncodeBit(value, ShiftInByte(position), static_cast<size_t>(position.len), u);
  return BitCopy(u, position.bit_offset, position.len, byteLength, field);
}

// Base64 for fewer bytes than the field has leaves the rest untouched.
static bool WriteBase64(byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position, const char* text) {
  size_t byteLength = 0;
  byte* field = OffsetBinaryPosition(data, dataLen, position, byteLength);
  if (field == nullptr) return false;
  __internal_base64_decode(field, text, static_cast<uint32_t>(byteLength));
  return true;
}

// The same for a string that a NUL may end early. The size stays untouched; no caller uses it.
[[maybe_unused]] static bool WriteBinaryValue(byte* data, size_t& dataLen, const MorvixProtocolPosition_4_0& position,
                                              const std::string& value) {
  return WriteBase64(data, dataLen, position, value.c_str());
}

namespace {

// How a field is read, worked out from its position: `byteLength` bytes from `start` on, of a payload of at least
// `needed` bytes; and of a field in bits `length` bits from `shift` on.
struct FieldReader {
  uint64_t start = 0;
  uint64_t byteLength = 0;
  uint64_t needed = kNowhere;  // of a field that cannot be read
  bool isInBits = false;
  bool fitsWord = false;  // if not, the bits are read as 0
  size_t shift = 0;
  size_t length = 0;
};

}  // namespace

static inline FieldReader MakeReader(const MorvixProtocolPosition_4_0& position, uint64_t maxBytes) {
  FieldReader reader;
  FieldPlace place;
  if (!FindPlace(position, place) || place.byteLength > maxBytes) return reader;
  reader.start = place.start;
  reader.byteLength = place.byteLength;
  reader.needed = place.needed;
  if (position.unit == MorvixProtocolUnitBit_4_0) {
    reader.isInBits = true;
    reader.fitsWord = FitsWord(position.bit_offset, position.len, place.byteLength);
    reader.shift = ShiftInByte(position);
    reader.length = static_cast<size_t>(position.len);
  }
  return reader;
}

static inline FieldReader UIntReader(const MorvixProtocolPosition_4_0& position) {
  return MakeReader(position, kWordBytes);
}

// A bool is a bit of the field's first byte, however long the arithmetic of a negative bit offset makes the field.
static inline FieldReader BoolReader(const MorvixProtocolPosition_4_0& position) {
  if (!IsSingleBit(position)) return {};
  FieldReader reader = MakeReader(position, UINT64_MAX);
  reader.byteLength = 1;
  reader.fitsWord = true;
  return reader;
}

static FieldReader BinaryReader(const MorvixProtocolPosition_4_0& position) {
  const bool isInBytes = position.unit == MorvixProtocolUnitByte_4_0;
  return isInBytes ? MakeReader(position, MorvixProtocolMaxBinaryBytes_4_0) : FieldReader();
}

// The caller zeroes `value`: bytes above a field in bytes stay untouched, and so does all of it if a range of bits
// exceeds a word.
static inline bool ReadUInt(const byte* data, size_t dataLen, const FieldReader& reader, uint64_t& value) {
  if (reader.needed > dataLen) return false;
  const byte* field = data + reader.start;
  const auto byteLength = static_cast<size_t>(reader.byteLength);
  if (!reader.isInBits) return DecodeUInt(field, byteLength, byteLength, value);
  uint64_t u = 0;
  if (reader.fitsWord) DecodeUInt(field, byteLength, byteLength, u);
  DecodeBit(u, reader.shift, reader.length, value);
  return true;
}

// `text` is also the work buffer.
static void ReadBase64(const byte* field, size_t byteLength, std::string& text) {
  text.resize(2 * byteLength + 10);
  const auto capacity = static_cast<uint32_t>(2 * byteLength + 9);
  text.assign(__internal_base64_encode(text.data(), capacity, field, byteLength));
}

// The same by position. The codec makes readers of its own, which it may keep.

[[maybe_unused]] static bool ReadBoolValue(const byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position,
                                           bool& value) {
  uint64_t bit = 0;
  if (!ReadUInt(data, dataLen, BoolReader(position), bit)) return false;
  value = bit != 0;
  return true;
}

[[maybe_unused]] static bool ReadUIntValue(const byte* data, size_t dataLen, const MorvixProtocolPosition_4_0& position,
                                           uint64_t& value) {
  return ReadUInt(data, dataLen, UIntReader(position), value);
}

[[maybe_unused]] static bool ReadBinaryValue(const byte* data, size_t dataLen,
                                             const MorvixProtocolPosition_4_0& position, std::string& value) {
  const FieldReader reader = BinaryReader(position);
  if (reader.needed > dataLen) return false;
  ReadBase64(data + reader.start, static_cast<size_t>(reader.byteLength), value);
  return true;
}

// =====================================================================================================================
// Framing
//
// Converts between package records and packet bytes. A packet has neither a length field nor a checksum: the transport
// tells where it begins and ends.
// =====================================================================================================================

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

// Host byte order, on purpose: the only number on the wire that is not big-endian.
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
  if (buffer == nullptr || package.sizeFlags > MorvixProtocolMaxFlagBytes_4_0 ||
      package.sizeValue > MorvixProtocolMaxPayloadBytes_4_0)
    return 0;
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

static bool IsResponse(MorvixProtocolCommand_4_0 command) {
  return command == MorvixProtocolCommandReadResp_4_0 || command == MorvixProtocolCommandNotifyResp_4_0;
}

bool ProtocolUnpackPackage_4_0(const byte* data, size_t dataLen, MorvixProtocolPackage_4_0& package) {
  if (data == nullptr || dataLen < kMinReceivedBytes) return false;
  package = MorvixProtocolPackage_4_0();
  package.cmd = static_cast<MorvixProtocolCommand_4_0>(data[0]);
  if (!IsResponse(package.cmd)) return false;
  package.sizeValue = dataLen - 1;
  if (package.sizeValue > MorvixProtocolMaxPayloadBytes_4_0) return false;
  package.value = static_cast<byte*>(std::malloc(package.sizeValue));
  if (package.value == nullptr) return false;
  std::memcpy(package.value, data + 1, package.sizeValue);
  return true;
}

// =====================================================================================================================
// Encoder
//
// From the application's values for one entity to the flag bitmap and payload of a package. The entity's values are
// looked up once. The first value that cannot be written ends the call with both sizes 0, which means "send nothing".
// =====================================================================================================================

static const char kEncoderName[] = "ProtocolEncodeEntity_4_0";

// The values of one entity in a document, or null.
static const Json::Value* FindEntity(const Json::Value& result, const std::string& entityName) {
  const Json::Value* entity = FindMember(result, entityName);
  return entity != nullptr && entity->isObject() ? entity : nullptr;
}

// The value of one attribute. `values` are those of its entity, null when the document has no such entity; the look-up
// ends at a NUL in the name.

static const Json::Value* FindValue(const Json::Value* values, const char* attributeName) {
  return values == nullptr ? nullptr : values->find(attributeName, attributeName + std::strlen(attributeName));
}

// An absent value, or one of a kind that is refused, is stored as 0. A string without a number and an absent entity
// leave the output alone.
static bool ReadInteger(const Json::Value* values, const char* attributeName, uint64_t& value) {
  if (values == nullptr) return false;
  const Json::Value* member = FindValue(values, attributeName);
  const Json::ValueType type = member == nullptr ? Json::nullValue : member->type();
  if (type == Json::stringValue) {
    unsigned long long number = 0;
    // NOLINTNEXTLINE(cert-err34-c): saturates on purpose
    const int scanned = std::sscanf(member->asCString(), "%llu", &number);
    return StoreScanned(scanned, number, value);
  }
  int32_t number = 0;
  const bool isTaken = member != nullptr && WholeNumberOf(*member, type, number);
  value = SignExtend(number);
  return isTaken;
}

template <typename Text>
static bool ReadText(const Json::Value* values, const char* attributeName, Text& value) {
  return ReadMember(FindValue(values, attributeName), StringOf, value);
}

static bool ReadDouble(const Json::Value* values, const char* attributeName, double& value) {
  return ReadMember(FindValue(values, attributeName), DoubleOf, value);
}

// The same operations by entity name. The encoder itself looks its entity up once and reads in place.

[[maybe_unused]] static bool GetEntityValue(const Json::Value& result, const std::string& entityName,
                                            Json::Value& entity) {
  if (!result.isObject()) return false;
  entity = MemberOrNull(FindMember(result, entityName));
  return entity.isObject();
}

[[maybe_unused]] static bool GetIntegerValue(const Json::Value& result, const std::string& entityName,
                                             const std::string& attributeName, uint64_t& value) {
  return ReadInteger(FindEntity(result, entityName), attributeName.c_str(), value);
}

[[maybe_unused]] static bool GetStringValue(const Json::Value& result, const std::string& entityName,
                                            const std::string& attributeName, std::string& value) {
  return ReadText(FindEntity(result, entityName), attributeName.c_str(), value);
}

[[maybe_unused]] static bool GetDoubleValue(const Json::Value& result, const std::string& entityName,
                                            const std::string& attributeName, double& value) {
  return ReadDouble(FindEntity(result, entityName), attributeName.c_str(), value);
}

// The end of the last field. Gaps and overlaps are allowed; a field that ends at or before 0 adds nothing.
template <typename Attribute>
static size_t PayloadBytes(const std::vector<Attribute>& attributes) {
  int64_t encodeSize = 0;
  for (const Attribute& attribute : attributes) {
    const MorvixProtocolPosition_4_0& position = attribute.position;
    int64_t byteLength = position.len;
    if (position.unit == MorvixProtocolUnitBit_4_0) {
      const int64_t bits = int64_t{position.bit_offset} + position.len;
      byteLength = bits > 0 ? (bits + 7) / 8 : bits / 8;  // rounded up
    }
    encodeSize = std::max(encodeSize, position.byte_offset + byteLength);
  }
  return static_cast<size_t>(encodeSize);
}

static size_t EncodeCalculateBytes(const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  return PayloadBytes(attributes);
}

// Logs why the call ends.
static MorvixProtocolOutcome_4_0 Refuse(MorvixProtocolOutcome_4_0 outcome, const char* message) {
  logMsgEx(kLevelWarning, kEncoderName, "%s", message);
  return outcome;
}

// The logged upper bound is the count, not the last index; log readers expect that.
static void LogInvalidEnumValue(const char* functionName, uint64_t value, size_t itemCount) {
  logMsgEx(kLevelWarning, functionName, "Invalid enum value: %i, range: 0-%i", static_cast<int>(value),
           static_cast<int>(itemCount));
}

// One attribute each. After "absent" and "done" the next attribute follows; any other outcome ends the call. `raw` is
// set once there is a raw value.

template <typename Attribute>
static MorvixProtocolOutcome_4_0 EncodeBool(const Attribute& attribute, const Json::Value* values, byte* data,
                                            size_t length, uint64_t& raw) {
  uint64_t value = 0;
  if (!ReadInteger(values, attribute.name.data(), value)) return MorvixProtocolOutcomeAbsent_4_0;
  raw = value != 0 ? 1 : 0;
  if (!WriteBoolValue(data, length, attribute.position, raw != 0)) {
    return Refuse(MorvixProtocolOutcomeRefusedByPlace_4_0, "Write bool value failed.");
  }
  return MorvixProtocolOutcomeDone_4_0;
}

template <typename Attribute>
static MorvixProtocolOutcome_4_0 EncodeEnum(const Attribute& attribute, const Json::Value* values, byte* data,
                                            size_t length, uint64_t& raw) {
  if (!ReadInteger(values, attribute.name.data(), raw)) return MorvixProtocolOutcomeAbsent_4_0;
  if (raw >= attribute.enumList.size()) {
    LogInvalidEnumValue(kEncoderName, raw, attribute.enumList.size());
    return MorvixProtocolOutcomeRefusedByItems_4_0;
  }
  if (!WriteUIntValue(data, length, attribute.position, raw)) {
    return Refuse(MorvixProtocolOutcomeRefusedByPlace_4_0, "Write enum value failed.");
  }
  return MorvixProtocolOutcomeDone_4_0;
}

template <typename Attribute>
static MorvixProtocolOutcome_4_0 EncodeBinary(const Attribute& attribute, const Json::Value* values, byte* data,
                                              size_t length) {
  std::string_view value;
  if (!ReadText(values, attribute.name.data(), value)) return MorvixProtocolOutcomeAbsent_4_0;
  if (!WriteBase64(data, length, attribute.position, value.data())) {
    return Refuse(MorvixProtocolOutcomeRefusedByPlace_4_0, "Write binary value failed.");
  }
  return MorvixProtocolOutcomeDone_4_0;
}

static inline bool ScaleToRaw(const MorvixProtocolUIntSpec_4_0& scaling, double value, uint64_t& raw) {
  return EncodeUIntSpec(static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max),
                        SignExtend(scaling.step), scaling.ratio, scaling.addition, value, raw);
}

template <typename Attribute>
static MorvixProtocolOutcome_4_0 EncodeNumber(const Attribute& attribute, const Json::Value* values, byte* data,
                                              size_t length, uint64_t& raw) {
  double value = 0;
  if (!ReadDouble(values, attribute.name.data(), value)) return MorvixProtocolOutcomeAbsent_4_0;
  if (!ScaleToRaw(attribute.uint_spec, value, raw)) {
    return Refuse(MorvixProtocolOutcomeRefusedByScaling_4_0, "Validate uint value failed.");
  }
  if (!WriteUIntValue(data, length, attribute.position, raw)) {
    return Refuse(MorvixProtocolOutcomeRefusedByPlace_4_0, "Write uint value failed.");
  }
  return MorvixProtocolOutcomeDone_4_0;
}

template <typename Attribute>
static MorvixProtocolOutcome_4_0 EncodeAttribute(const Attribute& attribute, const Json::Value* values, byte* data,
                                                 size_t length, uint64_t& raw) {
  switch (attribute.data_type) {
    case MorvixProtocolDataTypeBool_4_0:
      return EncodeBool(attribute, values, data, length, raw);
    case MorvixProtocolDataTypeEnum_4_0:
      return EncodeEnum(attribute, values, data, length, raw);
    case MorvixProtocolDataTypeBinary_4_0:
      return EncodeBinary(attribute, values, data, length);
    case MorvixProtocolDataTypeUInt8_4_0:
    case MorvixProtocolDataTypeUInt16_4_0:
    case MorvixProtocolDataTypeUInt32_4_0:
    case MorvixProtocolDataTypeUInt64_4_0:
      return EncodeNumber(attribute, values, data, length, raw);
    default:
      // The call ends here although the line says "skip"; log readers expect both, so both stay.
      return Refuse(MorvixProtocolOutcomeRefusedByPlace_4_0, "Attribute type is unknown, skip.");
  }
}

// The flag bitmap is laid out as a bit group of its own length.
static void SetFlag(byte* flag, size_t flagLength, size_t index) {
  byte& flagByte = flag[flagLength - 1 - index / 8];
  flagByte = static_cast<byte>(flagByte | 1U << index % 8);
}

// `results` may be null; otherwise it has a result for each attribute.
template <typename Attribute>
static void EncodeAttributes(const MorvixProtocolEntity_4_0& entityInfo, const std::vector<Attribute>& attributes,
                             MorvixProtocolPackage_4_0& package, const Json::Value& root,
                             MorvixProtocolResult_4_0* results = nullptr) {
  const size_t length = PayloadBytes(attributes);
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
    uint64_t raw = 0;
    const MorvixProtocolOutcome_4_0 outcome = EncodeAttribute(attributes[i], values, data, length, raw);
    if (results != nullptr) results[i] = {outcome, raw};
    if (outcome == MorvixProtocolOutcomeAbsent_4_0) {
      const bool isGiven = results != nullptr && FindValue(values, attributes[i].name.data()) != nullptr;
      if (isGiven) results[i].outcome = MorvixProtocolOutcomeWrongKind_4_0;
      continue;
    }
    if (outcome != MorvixProtocolOutcomeDone_4_0) return;
    SetFlag(flag, flagLength, i);
    isSet = true;
  }
  if (isSet) {
    package.sizeFlags = flagLength;
    package.sizeValue = length;
  }
}

void ProtocolEncodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  MorvixProtocolPackage_4_0& package, const Json::Value& root) {
  EncodeAttributes(entityInfo, attributes, package, root);
}

void ProtocolEncodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  MorvixProtocolPackage_4_0& package, const Json::Value& root,
                                  std::vector<MorvixProtocolResult_4_0>& results) {
  results.assign(attributes.size(), MorvixProtocolResult_4_0());
  EncodeAttributes(entityInfo, attributes, package, root, results.data());
}

void ProtocolEncodeEntity_4_0(const Json::Value& entity, MorvixProtocolPackage_4_0& package, const Json::Value& root) {
  std::vector<AttributeView> attributes;
  MorvixProtocolEntity_4_0 entityInfo;
  if (!FilterAttributes(entity, MorvixProtocolTypeStatusWritable_4_0, attributes, entityInfo)) {
    logMsgEx(kLevelWarning, kEncoderName, "Get entity info failed.");
    return;
  }
  EncodeAttributes(entityInfo, attributes, package, root);
}

// =====================================================================================================================
// Decoder
//
// From a payload to the decoded document: entity name -> attribute key -> {"type": group, "value": value}. Command and
// flags are ignored. Items are built in place; the entity's object is created with its first item.
// =====================================================================================================================

static const char kDecoderName[] = "ProtocolDecodeEntity_4_0";
static constexpr int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                                  MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;
static constexpr size_t kNumberTextSize = 32;
static constexpr size_t kMaxEnumDigits = 9;
static constexpr uint32_t kMicrosPerUnit = 1000000;

// The index of the first ".", or -1.
static int floatOffset(const char* str) {
  const char* point = std::strchr(str, '.');
  return point == nullptr ? -1 : static_cast<int>(point - str);
}

// The index of the first "E+", or -1. Fixed notation never has one.
static int scientistOffset(const char* str) {
  const char* exponent = std::strstr(str, "E+");
  return exponent == nullptr ? -1 : static_cast<int>(exponent - str);
}

// Removes trailing zeros and a trailing point from a number with a point, in place.
static char* removeFloatLastZero(char* str) {
  const int point = floatOffset(str);
  if (point < 0) return str;
  const int last = static_cast<int>(std::strlen(str)) - 1 - std::max(scientistOffset(str), 0);
  for (int i = last; i >= point && (str[i] == '0' || str[i] == '.'); --i) str[i] = '\0';
  return str;
}

// Numbers and enums are printed into buffers of kNumberTextSize characters and end with a NUL.

// A number of at most six decimals, without trailing zeros. Returns its end.
static inline char* PrintMicros(bool isNegative, uint64_t whole, uint32_t micros, char* text) {
  char* end = text;
  if (isNegative) *end++ = '-';
  end = std::to_chars(end, text + kNumberTextSize, whole).ptr;
  if (micros != 0) {
    *end++ = '.';
    for (uint32_t unit = kMicrosPerUnit / 10; micros != 0; micros %= unit, unit /= 10) {
      *end++ = static_cast<char>('0' + micros / unit);
    }
  }
  *end = '\0';
  return end;
}

// Prints like "%lf", truncated to the size of `text`, without trailing zeros, and sets `length`. False for numbers that
// are left to the C library: huge ones, infinities, NaNs, and those whose digits after the sixth decimal are close to
// one half. `number` is split exactly: both parts fit a double.
static bool PrintSmallNumber(double number, char* text, size_t& length) {
  constexpr double kLimit = 1e15;
  constexpr double kTieDistance = 1e-6;  // far above the error of the multiplication
  const double magnitude = std::fabs(number);
  if (!(magnitude < kLimit)) return false;
  auto whole = static_cast<uint64_t>(magnitude);
  const double scaled = (magnitude - static_cast<double>(whole)) * kMicrosPerUnit;
  auto micros = static_cast<uint32_t>(scaled);
  const double rest = scaled - micros;
  if (std::fabs(rest - 0.5) < kTieDistance) return false;
  if (rest > 0.5) ++micros;
  if (micros == kMicrosPerUnit) {
    micros = 0;
    ++whole;
  }
  length = static_cast<size_t>(PrintMicros(std::signbit(number), whole, micros, text) - text);
  return true;
}

// True if the C library prints a plain decimal point and rounds to nearest, as PrintSmallNumber does. The decimal comma
// of other locales is not recognised, so the zeros after it stay.
static bool LibraryPrintsPlainly() {
  char* end = nullptr;
  static_cast<void>(std::strtod("0.", &end));  // reads a point only if the locale's numbers have one
  return *end == '\0' && std::fegetround() == FE_TONEAREST;
}

namespace {

// Buffers for the string of one value: `number` for numbers and enums, `binary` for binaries. One object is used for a
// whole call, so that `binary` keeps its memory.
struct ValueText {
  char number[kNumberTextSize];
  std::string binary;
  const bool isPlain = LibraryPrintsPlainly();
};

}  // namespace

// Six decimals without trailing zeros. Numbers that are too long lose their end. `micros` is the number in millionths,
// or 0 where that is not known.
static inline std::string_view NumberText(double number, int64_t micros, bool isPlain, char* text) {
  if (micros != 0 && isPlain) {
    const auto magnitude = static_cast<uint64_t>(micros < 0 ? -micros : micros);
    const char* end =
        PrintMicros(micros < 0, magnitude / kMicrosPerUnit, static_cast<uint32_t>(magnitude % kMicrosPerUnit), text);
    return {text, static_cast<size_t>(end - text)};
  }
  size_t length = 0;
  if (isPlain && PrintSmallNumber(number, text, length)) return {text, length};
  std::memset(text, 0, kNumberTextSize);
  static_cast<void>(std::snprintf(text, kNumberTextSize, "%lf", number));
  return removeFloatLastZero(text);
}

static std::string_view NumberText(double number, ValueText& text) {
  return NumberText(number, 0, text.isPlain, text.number);
}

// At most nine digits; larger indices lose their end.
static inline std::string_view EnumText(uint64_t index, char* text) {
  const char* end = std::to_chars(text, text + kNumberTextSize, index).ptr;
  const size_t length = std::min(static_cast<size_t>(end - text), kMaxEnumDigits);
  text[length] = '\0';
  return {text, length};
}

namespace {

// A scaling whose numbers are known to print as an integer multiple of a decimal unit.
struct DecimalScaling {
  bool isKnown = false;
  int64_t ratio = 0;  // in millionths, as is the addition
  int64_t addition = 0;
};

// An attribute of a receive plan: all that does not depend on the packet.
struct PlannedAttribute {
  MorvixProtocolType_4_0 type = MorvixProtocolTypeUnknown_4_0;
  MorvixProtocolDataType_4_0 data_type = MorvixProtocolDataTypeUnknown_4_0;
  FieldReader reader;
  size_t itemCount = 0;
  MorvixProtocolUIntSpec_4_0 uint_spec;
  DecimalScaling decimals;
  std::string_view key;
  std::string_view opening;  // comma, key and colon as they are written
};

// The value of a field. The bytes of a binary stay in the payload.
struct DecodedValue {
  MorvixProtocolDataType_4_0 data_type = MorvixProtocolDataTypeUnknown_4_0;
  uint64_t raw = 0;  // 0 or 1 of a bool, the index of an enum
  double number = 0;
  int64_t micros = 0;  // the number in millionths, where that is known; else 0
  const byte* bytes = nullptr;
  size_t byteLength = 0;
};

struct Payload {
  const byte* data;
  size_t size;
};

enum class Decoded { kSet, kOutOfReach, kRefused, kInvalidEnum, kUnreadable, kUnknownType };

}  // namespace

// What decoding needs of a record, a view or a planned attribute. A field that cannot be read is beyond every payload.

template <typename Attribute>
static inline FieldReader ReaderOf(const Attribute& attribute) {
  if (attribute.data_type == MorvixProtocolDataTypeBool_4_0) return BoolReader(attribute.position);
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) return BinaryReader(attribute.position);
  return UIntReader(attribute.position);
}

static inline const FieldReader& ReaderOf(const PlannedAttribute& attribute) { return attribute.reader; }

template <typename Attribute>
static inline size_t ItemCountOf(const Attribute& attribute) {
  return attribute.enumList.size();
}

static inline size_t ItemCountOf(const PlannedAttribute& attribute) { return attribute.itemCount; }

template <typename Attribute>
static inline int64_t MicrosOf(const Attribute&, uint64_t) {
  return 0;
}

static inline int64_t MicrosOf(const PlannedAttribute& attribute, uint64_t raw) {
  if (!attribute.decimals.isKnown) return 0;
  return static_cast<int64_t>(raw) * attribute.decimals.ratio + attribute.decimals.addition;
}

static MorvixProtocolOutcome_4_0 OutcomeOf(Decoded decoded) {
  switch (decoded) {
    case Decoded::kSet:
      return MorvixProtocolOutcomeDone_4_0;
    case Decoded::kRefused:
      return MorvixProtocolOutcomeRefusedByScaling_4_0;
    case Decoded::kInvalidEnum:
      return MorvixProtocolOutcomeRefusedByItems_4_0;
    default:
      return MorvixProtocolOutcomeUnreadable_4_0;
  }
}

static inline bool ScaleFromRaw(const MorvixProtocolUIntSpec_4_0& scaling, uint64_t raw, double& value) {
  return DecodeUIntSpec(static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max),
                        SignExtend(scaling.step), scaling.ratio, scaling.addition, raw, value);
}

template <typename Attribute>
static inline Decoded DecodeValue(const Attribute& attribute, Payload payload, DecodedValue& value) {
  value.data_type = attribute.data_type;
  const FieldReader& reader = ReaderOf(attribute);
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
    if (reader.needed > payload.size) return Decoded::kUnreadable;
    value.bytes = payload.data + reader.start;
    value.byteLength = static_cast<size_t>(reader.byteLength);
    return Decoded::kSet;
  }
  const bool isRead = ReadUInt(payload.data, payload.size, reader, value.raw);
  switch (attribute.data_type) {
    case MorvixProtocolDataTypeBool_4_0:
      return isRead ? Decoded::kSet : Decoded::kUnreadable;
    case MorvixProtocolDataTypeEnum_4_0:
      if (!isRead) return Decoded::kOutOfReach;
      if (value.raw < ItemCountOf(attribute)) return Decoded::kSet;
      LogInvalidEnumValue(kDecoderName, value.raw, ItemCountOf(attribute));
      return Decoded::kInvalidEnum;
    case MorvixProtocolDataTypeUInt8_4_0:
    case MorvixProtocolDataTypeUInt16_4_0:
    case MorvixProtocolDataTypeUInt32_4_0:
    case MorvixProtocolDataTypeUInt64_4_0:
      if (!isRead) return Decoded::kOutOfReach;
      if (!ScaleFromRaw(attribute.uint_spec, value.raw, value.number)) return Decoded::kRefused;
      value.micros = MicrosOf(attribute, value.raw);
      return Decoded::kSet;
    default:
      value.raw = 0;
      return Decoded::kUnknownType;
  }
}

// Decodes the attributes in order, each into `slot` of its index, and calls `store` for those that have a value. If the
// stored values have to be removed again, the result is the line to log after that; otherwise it is null. The asymmetry
// is intended: a number or enum that cannot be read is left out, an enum index out of range ends the call, and a bool
// or binary that cannot be read removes the whole entity. `results` may be null; otherwise it has one result per
// attribute.
template <typename Attribute, typename Slot, typename Store>
static const char* DecodeEach(const std::vector<Attribute>& attributes, Payload payload,
                              MorvixProtocolResult_4_0* results, Slot slot, Store store) {
  for (size_t i = 0; i < attributes.size(); ++i) {
    DecodedValue& value = slot(i);
    const Decoded decoded = DecodeValue(attributes[i], payload, value);
    if (results != nullptr) results[i] = {OutcomeOf(decoded), value.raw};
    switch (decoded) {
      case Decoded::kSet:
        store(i);
        break;
      case Decoded::kOutOfReach:
      case Decoded::kRefused:
        break;
      case Decoded::kInvalidEnum:
        return nullptr;
      case Decoded::kUnreadable:
        return "Decode value is invalid.";
      case Decoded::kUnknownType:
        return "Unknown attribute type.";
    }
  }
  return nullptr;
}

template <typename Attribute>
static bool IsAlertOrFault(const Attribute& attribute) {
  return attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
}

// Alerts and faults are stored under their display name. A std::string for records, a std::string_view for others.
template <typename Attribute>
static const auto& DocumentKey(const Attribute& attribute) {
  return IsAlertOrFault(attribute) ? attribute.display_name : attribute.name;
}

static const std::string_view& DocumentKey(const PlannedAttribute& attribute) { return attribute.key; }

static const std::string& StringOfKey(const std::string& key) { return key; }

static std::string StringOfKey(std::string_view key) { return std::string(key); }

// The string of a number or enum.
static inline std::string_view NumericText(const DecodedValue& value, bool isPlain, char* text) {
  if (value.data_type == MorvixProtocolDataTypeEnum_4_0) return EnumText(value.raw, text);
  return NumberText(value.number, value.micros, isPlain, text);
}

// The string of a value of any type but bool.
static std::string_view TextOfValue(const DecodedValue& value, ValueText& text) {
  if (value.data_type != MorvixProtocolDataTypeBinary_4_0) return NumericText(value, text.isPlain, text.number);
  ReadBase64(value.bytes, value.byteLength, text.binary);
  return text.binary;
}

static Json::Value JsonOfValue(const DecodedValue& value, ValueText& text) {
  if (value.data_type == MorvixProtocolDataTypeBool_4_0) return value.raw != 0;
  const std::string_view characters = TextOfValue(value, text);
  return {characters.data(), characters.data() + characters.size()};
}

// Replaces any non-object with {}.
static Json::Value& MakeObject(Json::Value& value) {
  if (!value.isObject()) value = Json::Value(Json::objectValue);
  return value;
}

static void ClearEntityValue(Json::Value& result, const std::string& entityName) {
  Json::Value removed;
  MakeObject(result).removeMember(entityName.data(), entityName.data() + entityName.size(), &removed);
}

namespace {

// Stores items, {"type": group, "value": value}. A new item is a copy of a prototype, which costs less than inserting
// the two members. One object is used for a whole call.
class ItemStore {
 public:
  ItemStore() {
    prototype_[Json::StaticString("type")] = 0;
    prototype_[Json::StaticString("value")] = Json::Value();
  }

  // An item that exists keeps its other members. The key may contain NULs.
  void Set(Json::Value& entity, const std::string& key, MorvixProtocolType_4_0 type, Json::Value&& value) {
    Json::Value& item = entity[key];
    if (item.isObject()) {
      item[Json::StaticString("type")] = static_cast<Json::Int>(type);
      item[Json::StaticString("value")] = std::move(value);
      return;
    }
    if (type != type_) {
      type_ = type;
      *prototype_.begin() = static_cast<Json::Int>(type);  // "type" comes before "value"
    }
    item.copyPayload(prototype_);
    auto member = item.begin();
    ++member;  // from "type" to "value"
    member->swapPayload(value);
  }

 private:
  Json::Value prototype_;
  MorvixProtocolType_4_0 type_ = MorvixProtocolTypeUnknown_4_0;  // of the prototype
};

}  // namespace

// The same for one item by entity name. A value that is null, an object or an array is refused.
[[maybe_unused]] static bool SetValue(Json::Value& result, const std::string& entityName,
                                      const std::string& attributeName, MorvixProtocolType_4_0 type,
                                      const Json::Value& value) {
  if (value.isNull() || value.isObject() || value.isArray()) return false;
  Json::Value copy = value;  // `value` may be part of what the next line replaces
  ItemStore().Set(MakeObject(MakeObject(result)[entityName]), attributeName, type, std::move(copy));
  return true;
}

template <typename Attribute>
static void DecodeAttributes(const MorvixProtocolEntity_4_0& entityInfo, const std::vector<Attribute>& attributes,
                             const MorvixProtocolPackage_4_0& package, Json::Value& decodeResult,
                             MorvixProtocolResult_4_0* results = nullptr) {
  const Payload payload = {package.value, package.sizeValue};
  Json::Value* entity = nullptr;
  ItemStore items;
  ValueText text;
  DecodedValue value;
  const auto slot = [&](size_t) -> DecodedValue& { return value = DecodedValue(); };
  const auto store = [&](size_t i) {
    if (entity == nullptr) entity = &MakeObject(MakeObject(decodeResult)[entityInfo.name]);
    items.Set(*entity, StringOfKey(DocumentKey(attributes[i])), attributes[i].type, JsonOfValue(value, text));
  };
  if (const char* failure = DecodeEach(attributes, payload, results, slot, store)) {
    ClearEntityValue(decodeResult, entityInfo.name);
    logMsgEx(kLevelWarning, kDecoderName, "%s", failure);
  }
}

static bool HasPayload(const MorvixProtocolPackage_4_0& package) {
  if (package.value != nullptr && package.sizeValue != 0) return true;
  logMsgEx(kLevelWarning, kDecoderName, "No data to decode.");
  return false;
}

void ProtocolDecodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  const MorvixProtocolPackage_4_0& package, Json::Value& decodeResult) {
  if (HasPayload(package)) DecodeAttributes(entityInfo, attributes, package, decodeResult);
}

void ProtocolDecodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  const MorvixProtocolPackage_4_0& package, Json::Value& decodeResult,
                                  std::vector<MorvixProtocolResult_4_0>& results) {
  results.assign(attributes.size(), MorvixProtocolResult_4_0());
  if (HasPayload(package)) DecodeAttributes(entityInfo, attributes, package, decodeResult, results.data());
}

template <typename Attribute>
static void ParseAndDecode(const Json::Value& entity, const MorvixProtocolPackage_4_0& package,
                           Json::Value& decodeResult) {
  std::vector<Attribute> attributes;
  MorvixProtocolEntity_4_0 entityInfo;
  if (!FilterAttributes(entity, kAllGroups, attributes, entityInfo)) {
    logMsgEx(kLevelWarning, kDecoderName, "Get entity info failed.");
    return;
  }
  DecodeAttributes(entityInfo, attributes, package, decodeResult);
}

void ProtocolDecodeEntity_4_0(const Json::Value& entity, MorvixProtocolPackage_4_0 package, Json::Value& decodeResult) {
  if (!HasPayload(package)) return;
  // The configuration may be part of the document, which is about to change: then records own their strings.
  const bool isFree = decodeResult.begin() == decodeResult.end() && !decodeResult.isString();
  if (isFree) {
    ParseAndDecode<AttributeView>(entity, package, decodeResult);
  } else {
    ParseAndDecode<MorvixProtocolAttribute_4_0>(entity, package, decodeResult);
  }
}

bool ProtocolGetEntitiesFromDevice_4_0(const Json::Value& device, Json::Value& entities) {
  entities = MemberOrNull(FindMember(device, "entities"));
  return entities.isArray();
}

// =====================================================================================================================
// Receive results
//
// From the text of a decoded document to the application's text, without alerts and faults. Values are moved, not
// copied.
// =====================================================================================================================

static constexpr char kVersionKey[] = "version";
static constexpr double kDocumentVersion = 4.0;

static bool IsDocument(const Json::Value& root) {
  const Json::Value* version = FindMember(root, kVersionKey);
  return version != nullptr && version->type() == Json::realValue && version->asDouble() == kDocumentVersion;
}

// Equal in kind and value: with a 4.0 or "4" an item is not an alert.
static bool IsItemOfGroup(const Json::Value& item, MorvixProtocolType_4_0 group) {
  const Json::Value* type = FindMember(item, "type");
  return type != nullptr && type->type() == Json::intValue && type->asLargestInt() == Json::LargestInt{group};
}

// Takes a member out of an object; null when it is missing.
static Json::Value TakeMember(Json::Value& object, std::string_view key) {
  Json::Value member;
  object.removeMember(key.data(), key.data() + key.size(), &member);
  return member;
}

static void FlattenEntity(Json::Value& entity, Json::Value& alerts, Json::Value& faults) {
  for (auto it = entity.begin(); it != entity.end();) {
    auto current = it++;  // removing a member invalidates its own iterator only
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
// From lists of all alerts and faults to the active ones, in order, including repeats.
// =====================================================================================================================

// The value of an alert or fault as an integer; 0 when it is not active. Reals never are, on purpose, nor are small
// integers that are stored unsigned.

static int32_t ActiveValue(const char* text) {
  int32_t number = 0;
  ScanInteger(text, number);
  return number;
}

static int32_t ActiveValue(const Json::Value& value) {
  switch (value.type()) {
    case Json::intValue: {
      const Json::LargestInt number = value.asLargestInt();
      return number < INT32_MIN || number > INT32_MAX ? 0 : static_cast<int32_t>(number);
    }
    case Json::booleanValue:
      return value.asBool() ? 1 : 0;
    case Json::stringValue:
      return ActiveValue(value.asCString());
    default:
      return 0;
  }
}

static void AppendActive(std::string_view name, int32_t value, std::vector<TavelReceiveInfo>& active) {
  TavelReceiveInfo& info = active.emplace_back();
  info.name = name;
  info.value = value;
}

void ProtocolGetAlertsOrFaults_4_0(const Json::Value& alerts, std::vector<TavelReceiveInfo>& valert) {
  if (!alerts.isArray() || alerts.empty()) return;
  for (const Json::Value& alert : alerts) {
    const Json::Value* value = FindMember(alert, "value");
    const int32_t activeValue = value == nullptr ? 0 : ActiveValue(*value);
    std::string_view name;
    if (activeValue != 0 && ReadMember(FindMember(alert, "name"), StringOf, name)) {
      AppendActive(name, activeValue, valert);
    }
  }
}

void ProtocolGetAlertsAndFaults_4_0(const Json::Value& alerts, const Json::Value& faults,
                                    std::vector<TavelReceiveInfo>& valert, std::vector<TavelReceiveInfo>& vfault) {
  ProtocolGetAlertsOrFaults_4_0(alerts, valert);
  ProtocolGetAlertsOrFaults_4_0(faults, vfault);
}

// =====================================================================================================================
// Receive in one pass
//
// From the bytes to the results of the two sections above. The values are decoded, which is all that can fail or log,
// and written in the order of their keys, of equal keys only the last. A plan has that order, the decoders and the text
// before each value prepared. Strings that JSON would escape, or that might change on their way through it, take the
// long way through a document unless a plan has them prepared.
// =====================================================================================================================

namespace {

// The value of an attribute in one packet.
struct ReceivedValue {
  bool isSet = false;
  DecodedValue value;
};

// The place of an attribute in the order of keys. The prefix is the key's first eight bytes as one number, the first
// byte highest: it decides most comparisons.
struct RankedKey {
  uint64_t prefix;
  size_t index;
};

// The members of a document.
struct DocumentOrder {
  std::string_view entityName;
  std::string_view entityOpening;  // in a plan: as that of an attribute
  std::vector<RankedKey> keys;
  bool hasRepeats = false;   // of keys, at least possibly
  bool isDirect = true;      // keys are written as they are or as their openings; if not, the long way is taken
  size_t expectedBytes = 0;  // of the text
};

// All of a receive that does not depend on the packet.
struct ReceivePlan {
  std::vector<std::string> strings;
  std::vector<PlannedAttribute> attributes;
  DocumentOrder order;
};

// The results of one packet for the application.
struct ReceivedResults {
  std::string& document;
  std::vector<TavelReceiveInfo>& alerts;
  std::vector<TavelReceiveInfo>& faults;
};

// Writes a string in place of what it had, without a call for each part.
class TextWriter {
 public:
  TextWriter(std::string& text, size_t expectedBytes) : text_(text) { text_.resize(expectedBytes); }

  // Where the next characters go: at least `length`, of which Add() then takes some.
  char* Room(size_t length) {
    if (text_.size() - size_ < length) text_.resize(2 * text_.size() + length);
    return text_.data() + size_;
  }
  void Add(size_t length) { size_ += length; }
  void Append(std::string_view text) {
    std::memcpy(Room(text.size()), text.data(), text.size());
    size_ += text.size();
  }
  size_t Size() const { return size_; }
  void Finish() { text_.resize(size_); }

 private:
  std::string& text_;
  size_t size_ = 0;
};

}  // namespace

static inline uint64_t PrefixOf(std::string_view key) {
  unsigned char bytes[sizeof(uint64_t)] = {};
  std::memcpy(bytes, key.data(), std::min(key.size(), sizeof bytes));
  return uint64_t{bytes[0]} << 56 | uint64_t{bytes[1]} << 48 | uint64_t{bytes[2]} << 40 | uint64_t{bytes[3]} << 32 |
         uint64_t{bytes[4]} << 24 | uint64_t{bytes[5]} << 16 | uint64_t{bytes[6]} << 8 | uint64_t{bytes[7]};
}

// Whether all eight characters are printable ASCII that JSON writes unchanged. The highest bit of each byte tells.
static bool IsPlainWord(uint64_t word) {
  constexpr uint64_t kOnes = 0x0101010101010101;
  constexpr uint64_t kHighBits = 0x80 * kOnes;
  const uint64_t control = word - ' ' * kOnes;  // also below ' ' where nothing else is wrong
  const uint64_t quote = (word ^ '"' * kOnes) - kOnes;
  const uint64_t backslash = (word ^ '\\' * kOnes) - kOnes;
  const uint64_t del = word + kOnes;
  return ((word | control | quote | backslash | del) & kHighBits) == 0;
}

// Printable ASCII that JSON writes unchanged.
static bool IsPlain(std::string_view text) {
  uint64_t word = 0;
  for (; text.size() >= sizeof word; text.remove_prefix(sizeof word)) {
    std::memcpy(&word, text.data(), sizeof word);
    if (!IsPlainWord(word)) return false;
  }
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

// The same for a key of which the prefix is known.
static bool IsPlainKey(std::string_view key, uint64_t prefix) {
  constexpr uint64_t kSpaces = 0x2020202020202020;
  if (key.size() < sizeof prefix) return IsPlainWord(prefix | kSpaces >> 8 * key.size());
  return IsPlainWord(prefix) && (key.size() == sizeof prefix || IsPlain(key.substr(sizeof prefix)));
}

// By key, equal keys in the order of their attributes. The strings stay those of the caller.
template <typename Attribute>
static DocumentOrder OrderByKey(std::string_view entityName, const std::vector<Attribute>& attributes) {
  DocumentOrder order;
  order.entityName = entityName;
  order.expectedBytes = entityName.size() + kNumberTextSize;
  order.isDirect = IsPlain(entityName);
  order.keys.reserve(attributes.size());
  for (size_t i = 0; i < attributes.size(); ++i) {
    const std::string_view key = DocumentKey(attributes[i]);
    const uint64_t prefix = PrefixOf(key);
    order.keys.push_back({prefix, i});
    order.isDirect &= IsPlainKey(key, prefix);
    order.expectedBytes += key.size() + kNumberTextSize;
  }
  std::sort(order.keys.begin(), order.keys.end(), [&](const RankedKey& left, const RankedKey& right) {
    if (left.prefix != right.prefix) return left.prefix < right.prefix;
    const std::string_view rightKey = DocumentKey(attributes[right.index]);
    const int comparison = std::string_view(DocumentKey(attributes[left.index])).compare(rightKey);
    order.hasRepeats |= comparison == 0;
    return comparison != 0 ? comparison < 0 : left.index < right.index;
  });
  return order;
}

// Of values with equal keys only the last stays.
template <typename Attribute>
static void RemoveRepeats(const DocumentOrder& order, const std::vector<Attribute>& attributes,
                          std::vector<ReceivedValue>& values) {
  size_t last = attributes.size();
  for (const RankedKey& ranked : order.keys) {
    if (!values[ranked.index].isSet) continue;
    if (last < attributes.size() && DocumentKey(attributes[last]) == DocumentKey(attributes[ranked.index])) {
      values[last].isSet = false;
    }
    last = ranked.index;
  }
}

// The comma before a member, its key and the colon. Without an opening the key is plain.
static void WriteKey(std::string_view key, std::string_view opening, TextWriter& out) {
  if (!opening.empty()) {
    out.Append(opening);
    return;
  }
  char* end = out.Room(key.size() + 5);
  *end++ = ',';
  *end++ = '"';
  std::memcpy(end, key.data(), key.size());
  end += key.size();
  *end++ = '"';
  *end++ = ':';
  out.Add(key.size() + 4);
}

// Encodes in place; a host service may return a string elsewhere.
static std::string_view WriteBase64(const DecodedValue& value, TextWriter& out) {
  char* begin = out.Room(2 * value.byteLength + 9);
  const auto capacity = static_cast<uint32_t>(2 * value.byteLength + 9);
  const char* encoded = __internal_base64_encode(begin, capacity, value.bytes, value.byteLength);
  const std::string_view characters = encoded;
  if (encoded == begin) {
    out.Add(characters.size());
  } else {
    out.Append(characters);
  }
  return characters;
}

// False if the string of the value is not plain. Numbers that the C library prints plainly are.
static bool WriteValue(const DecodedValue& value, ValueText& text, TextWriter& out) {
  if (value.data_type == MorvixProtocolDataTypeBool_4_0) {
    out.Append(value.raw != 0 ? "true" : "false");
    return true;
  }
  if (value.data_type == MorvixProtocolDataTypeBinary_4_0) {
    out.Append("\"");
    const bool isPlain = IsPlain(WriteBase64(value, out));
    out.Append("\"");
    return isPlain;
  }
  char* quote = out.Room(kNumberTextSize + 2);
  const std::string_view characters = NumericText(value, text.isPlain, quote + 1);
  *quote = '"';
  quote[characters.size() + 1] = '"';
  out.Add(characters.size() + 2);
  return text.isPlain || IsPlain(characters);
}

template <typename Attribute>
static std::string_view OpeningOf(const Attribute&) {
  return {};
}

static std::string_view OpeningOf(const PlannedAttribute& attribute) { return attribute.opening; }

// Appends an alert or fault if it is active; false if its string is not plain.
template <typename Attribute>
static bool AppendIfActive(const Attribute& attribute, const DecodedValue& value, ValueText& text,
                           std::vector<TavelReceiveInfo>& active) {
  auto activeValue = static_cast<int32_t>(value.raw);
  if (value.data_type != MorvixProtocolDataTypeBool_4_0) {
    const std::string_view characters = TextOfValue(value, text);
    if (!IsPlain(characters)) return false;
    activeValue = ActiveValue(characters.data());
  }
  if (activeValue != 0) AppendActive(DocumentKey(attribute), activeValue, active);
  return true;
}

// Writes the document and appends to the lists; false, with all of them unfinished, if the string of a value is not
// plain.
template <typename Attribute>
static bool WriteResults(const DocumentOrder& order, const std::vector<Attribute>& attributes,
                         const std::vector<ReceivedValue>& values, ValueText& text, const ReceivedResults& results) {
  TextWriter out(results.document, order.expectedBytes);
  const bool isBeforeVersion = order.entityName < kVersionKey;
  if (!isBeforeVersion) out.Append("{\"version\":4.0");
  WriteKey(order.entityName, order.entityOpening, out);
  results.document[0] = '{';  // in place of the comma
  const size_t start = out.Size();
  for (const RankedKey& ranked : order.keys) {
    const Attribute& attribute = attributes[ranked.index];
    const ReceivedValue& value = values[ranked.index];
    if (!value.isSet) continue;
    if (IsAlertOrFault(attribute)) {
      auto& active = attribute.type == MorvixProtocolTypeAlert_4_0 ? results.alerts : results.faults;
      if (!AppendIfActive(attribute, value.value, text, active)) return false;
    } else {
      WriteKey(DocumentKey(attribute), OpeningOf(attribute), out);
      if (!WriteValue(value.value, text, out)) return false;
    }
  }
  if (out.Size() == start) out.Append("{");
  results.document[start] = '{';
  out.Append(isBeforeVersion ? "},\"version\":4.0}\n" : "}}\n");
  out.Finish();
  return true;
}

// The long way, from the values on.
template <typename Attribute>
static void WriteThroughDocument(const DocumentOrder& order, const std::vector<Attribute>& attributes,
                                 const std::vector<ReceivedValue>& values, ValueText& text,
                                 const ReceivedResults& results) {
  Json::Value decoded;
  Json::Value& entity = decoded[std::string(order.entityName)];
  MakeObject(entity);
  ItemStore store;
  for (size_t i = 0; i < values.size(); ++i) {
    if (!values[i].isSet) continue;
    store.Set(entity, StringOfKey(DocumentKey(attributes[i])), attributes[i].type, JsonOfValue(values[i].value, text));
  }
  decoded[kVersionKey] = kDocumentVersion;
  Json::Value alerts;
  Json::Value faults;
  results.document = ProtocolConvertReceiveResult_4_0(WriteJsonText(decoded), alerts, faults);
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, results.alerts, results.faults);
}

static bool IsReceivable(const byte* data, size_t dataLen) {
  return data != nullptr && dataLen >= kMinReceivedBytes && dataLen - 1 <= MorvixProtocolMaxPayloadBytes_4_0 &&
         IsResponse(static_cast<MorvixProtocolCommand_4_0>(data[0]));
}

template <typename Attribute>
static void ReceivePayload(const DocumentOrder& order, const std::vector<Attribute>& attributes, Payload payload,
                           const ReceivedResults& results) {
  std::vector<ReceivedValue> values(attributes.size(), ReceivedValue());  // copies cost less than zeroing each
  size_t count = 0;
  const auto slot = [&](size_t i) -> DecodedValue& { return values[i].value; };
  const auto store = [&](size_t i) {
    values[i].isSet = true;
    ++count;
  };
  if (const char* failure = DecodeEach(attributes, payload, nullptr, slot, store)) {
    count = 0;
    logMsgEx(kLevelWarning, kDecoderName, "%s", failure);
  }
  // The document's version replaces an entity with the name "version".
  if (count == 0 || order.entityName == kVersionKey) {
    results.document = "{\"version\":4.0}\n";
    return;
  }
  if (order.hasRepeats) RemoveRepeats(order, attributes, values);
  ValueText text;
  const size_t alertCount = results.alerts.size();
  const size_t faultCount = results.faults.size();
  // A caller may pass the same list twice: alerts then come before faults.
  const bool isOneList = &results.alerts == &results.faults;
  if (order.isDirect && !isOneList && WriteResults(order, attributes, values, text, results)) return;
  results.alerts.resize(alertCount);
  results.faults.resize(faultCount);
  WriteThroughDocument(order, attributes, values, text, results);
}

bool ProtocolReceivePacket_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                               const std::vector<MorvixProtocolAttribute_4_0>& attributes, const byte* data,
                               size_t dataLen, std::string& document, std::vector<TavelReceiveInfo>& valert,
                               std::vector<TavelReceiveInfo>& vfault) {
  document.clear();
  if (!IsReceivable(data, dataLen)) return false;
  const DocumentOrder order = OrderByKey(entityInfo.name, attributes);
  ReceivePayload(order, attributes, {data + 1, dataLen - 1}, {document, valert, vfault});
  return true;
}

// Makes a member's name the plan's own, with its opening; false if it would change on its way through JSON.
static bool PrepareKey(std::string_view& key, std::string_view& opening, ReceivePlan& plan) {
  std::string& text = plan.strings.emplace_back(1, ',');
  key = plan.strings.emplace_back(key);
  Json::Value keys(Json::arrayValue);
  keys.append(Json::Value(key.data(), key.data() + key.size()));
  const std::string written = WriteJsonText(keys);  // ["key"] and a line end
  Json::Value read;
  static_cast<void>(ParseJsonText(written, read));
  if (read != keys) return false;
  text.append(written, 1, written.size() - 3);
  text += ':';
  opening = text;
  return true;
}

// Numbers whose scaling has at most six decimals print as that many millionths, exactly, as long as the error of the
// scaling in doubles is below half a millionth.
static DecimalScaling FindDecimals(const MorvixProtocolUIntSpec_4_0& scaling) {
  constexpr double kMost = 1e9;  // of a number; the error is then below 0.4 millionths
  DecimalScaling decimals;
  const double ratio = std::nearbyint(scaling.ratio * kMicrosPerUnit);
  const double addition = std::nearbyint(scaling.addition * kMicrosPerUnit);
  const double most =
      std::fabs(scaling.ratio) * std::max(1.0, static_cast<double>(static_cast<uint64_t>(scaling.max))) +
      std::fabs(scaling.addition);
  if (!(most <= kMost) || ratio / kMicrosPerUnit != scaling.ratio || addition / kMicrosPerUnit != scaling.addition) {
    return decimals;
  }
  decimals.isKnown = true;
  decimals.ratio = static_cast<int64_t>(ratio);
  decimals.addition = static_cast<int64_t>(addition);
  return decimals;
}

static PlannedAttribute PlanAttribute(const MorvixProtocolAttribute_4_0& attribute) {
  PlannedAttribute planned;
  planned.type = attribute.type;
  planned.data_type = attribute.data_type;
  planned.reader = ReaderOf(attribute);
  planned.itemCount = attribute.enumList.size();
  planned.uint_spec = attribute.uint_spec;
  planned.decimals = FindDecimals(attribute.uint_spec);
  planned.key = DocumentKey(attribute);
  return planned;
}

MorvixProtocolReceivePlan_4_0 ProtocolPlanReceive_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                                      const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  const auto plan = std::make_shared<ReceivePlan>();
  plan->order = OrderByKey(entityInfo.name, attributes);
  plan->strings.reserve(2 * (attributes.size() + 1));  // so that none of them moves
  plan->order.isDirect = PrepareKey(plan->order.entityName, plan->order.entityOpening, *plan);
  plan->attributes.reserve(attributes.size());
  for (const MorvixProtocolAttribute_4_0& attribute : attributes) {
    PlannedAttribute& planned = plan->attributes.emplace_back(PlanAttribute(attribute));
    plan->order.isDirect &= PrepareKey(planned.key, planned.opening, *plan);
  }
  MorvixProtocolReceivePlan_4_0 result;
  result.plan_ = plan;
  return result;
}

bool ProtocolReceivePacket_4_0(const MorvixProtocolReceivePlan_4_0& plan, const byte* data, size_t dataLen,
                               std::string& document, std::vector<TavelReceiveInfo>& valert,
                               std::vector<TavelReceiveInfo>& vfault) {
  document.clear();
  if (!IsReceivable(data, dataLen)) return false;
  const ReceivePlan none = {};
  const ReceivePlan& steps = plan.plan_ == nullptr ? none : *static_cast<const ReceivePlan*>(plan.plan_.get());
  ReceivePayload(steps.order, steps.attributes, {data + 1, dataLen - 1}, {document, valert, vfault});
  return true;
}

// =====================================================================================================================
// Device queries
//
// Over arrays of device descriptions. Anything but an array has no elements; elements that are not objects are ignored,
// and so are those of a sparse array whose size has wrapped to 0.
// =====================================================================================================================

static bool IsEmptyText(const char* text) { return text == nullptr || *text == '\0'; }

static bool SpeaksProtocol(const Json::Value& device, std::string_view protocolName, dword packetVersion) {
  const Json::Value* protocolType = FindMember(device, "protocolType");
  dword packetVer = 0;
  return protocolType != nullptr && ProtocolGetAttrHex_4_0(device, "packetVersion", packetVer) &&
         TextOf(*protocolType) == protocolName && packetVer == packetVersion;
}

bool ProtocolFilterDevices_4_0(const char* protocolName, dword packetVersion, Json::Value& devices) {
  const Json::Value* known = TavelConfig::sharedInstance()->GetAllDevices();
  Json::Value matching(Json::arrayValue);
  const bool canFilter = !known->isNull() && !IsEmptyText(protocolName);
  if (canFilter && known->isArray() && !known->empty()) {
    for (const Json::Value& device : *known) {
      if (SpeaksProtocol(device, protocolName, packetVersion)) matching.append(device);
    }
  }
  devices = std::move(matching);
  return canFilter;
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
  // "Default" replaces an empty key of a device only, not an empty key of one kind of build.
  const Json::Value* build = FindMember(*key, TavelConfig::sharedInstance()->IsDebug() ? "debug" : "release");
  return build != nullptr ? TextOf(*build) : std::string_view();
}

bool ProtocolGetDevice_4_0(const Json::Value& devices, const char* deviceKey, Json::Value& device) {
  if (!devices.isArray() || devices.empty() || IsEmptyText(deviceKey)) return false;
  for (const Json::Value& candidate : devices) {
    if (ProductKeyOf(candidate) == deviceKey) {
      device = candidate;
      return true;
    }
  }
  // A failed search leaves the last element in the output; callers check the result first.
  device = devices[devices.size() - 1];
  return false;
}

std::string ProtocolGetProductKey_4_0(const Json::Value& device) { return std::string(ProductKeyOf(device)); }

std::vector<std::string> ProtocolGetProductList_4_0(const Json::Value& devices) {
  std::vector<std::string> keys;
  // Sizes count as signed, so an array of more elements has none.
  if (!devices.isArray() || devices.empty() || devices.size() > INT32_MAX) return keys;
  for (const Json::Value& device : devices) {
    const std::string_view key = ProductKeyOf(device);
    if (!key.empty()) keys.emplace_back(key);
  }
  return keys;
}

// =====================================================================================================================
// Inspection
//
// What the codec would do, without a packet.
// =====================================================================================================================

size_t ProtocolPayloadBytes_4_0(const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  return EncodeCalculateBytes(attributes);
}

// Whether a value of this type can be both written to and read from a field in `byteLength` bytes.
static bool CanHold(const MorvixProtocolPosition_4_0& position, MorvixProtocolDataType_4_0 type, uint64_t byteLength) {
  const bool isInBytes = position.unit == MorvixProtocolUnitByte_4_0;
  if (type == MorvixProtocolDataTypeBool_4_0) return IsSingleBit(position) && position.bit_offset >= 0;
  if (type == MorvixProtocolDataTypeBinary_4_0) return isInBytes && byteLength <= MorvixProtocolMaxBinaryBytes_4_0;
  if (type != MorvixProtocolDataTypeEnum_4_0 && !ProtocolDataTypeIsUInt(type)) return false;
  return isInBytes ? byteLength <= kWordBytes : FitsWord(position.bit_offset, position.len, byteLength);
}

bool ProtocolLocateAttribute_4_0(const MorvixProtocolAttribute_4_0& attribute, size_t payloadBytes, size_t& firstBit,
                                 size_t& bitCount) {
  const MorvixProtocolPosition_4_0& position = attribute.position;
  FieldPlace place;
  if (!FindPlace(position, place) || place.needed > payloadBytes) return false;
  if (!CanHold(position, attribute.data_type, place.byteLength)) return false;
  const bool isInBits = position.unit == MorvixProtocolUnitBit_4_0;
  const uint64_t count = SignExtend(position.len) * (isInBits ? 1 : 8);
  const uint64_t first = (place.start + place.byteLength) * 8 - (isInBits ? ShiftInByte(position) : 0) - count;
  if (first > SIZE_MAX) return false;  // where a size has 32 bits
  firstBit = static_cast<size_t>(first);
  bitCount = static_cast<size_t>(count);
  return true;
}

bool ProtocolRawToText_4_0(const MorvixProtocolAttribute_4_0& attribute, uint64_t raw, std::string& text) {
  double number = 0;
  if (!ProtocolDataTypeIsUInt(attribute.data_type) || !ScaleFromRaw(attribute.uint_spec, raw, number)) return false;
  ValueText buffer;
  text = NumberText(number, buffer);
  return true;
}

bool ProtocolValueToRaw_4_0(const MorvixProtocolAttribute_4_0& attribute, double value, uint64_t& raw) {
  uint64_t scaled = 0;
  if (!ProtocolDataTypeIsUInt(attribute.data_type) || !ScaleToRaw(attribute.uint_spec, value, scaled)) return false;
  raw = scaled;
  return true;
}
