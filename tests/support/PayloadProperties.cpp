#include "PayloadProperties.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "TestSupport.h"

namespace support {

namespace {

const char kNameOfNoValue[] = "no value has this name";

bool IsBool(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeBool_4_0; }

bool IsBinary(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeBinary_4_0; }

bool IsInBits(const Attribute& attribute) { return attribute.position.unit == MorvixProtocolUnitBit_4_0; }

const std::string& DocumentKey(const Attribute& attribute) {
  const bool isReported =
      attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
  return isReported ? attribute.display_name : attribute.name;
}

bool IsFlagSet(const Bytes& flags, size_t index) {
  return (flags.at(flags.size() - 1 - index / 8) >> index % 8 & 1) != 0;
}

// Bits of a payload, counted from the most significant bit of byte 0.
struct Bits {
  int64_t begin = 0;
  int64_t end = 0;
  int64_t FirstByte() const { return begin / 8; }
  int64_t EndByte() const { return (end + 7) / 8; }
  bool Meets(const Bits& other) const { return begin < other.end && other.begin < end; }
};

// Where a field lies that was written; of such a field everything is inside the payload, though its arithmetic may have
// wrapped on the way.
Bits FieldOf(const Attribute& attribute) {
  const Position& position = attribute.position;
  const auto wide = [](int32_t value) { return static_cast<uint64_t>(int64_t{value}); };
  uint64_t end = 8 * (wide(position.byte_offset) + wide(position.len));
  uint64_t begin = 8 * wide(position.byte_offset);
  if (IsInBits(attribute)) {
    end = begin + 8 * uint64_t{position.groupByteLength} - wide(position.bit_offset);
    begin = end - wide(position.len);
  }
  return {static_cast<int64_t>(begin), static_cast<int64_t>(end)};
}

// A bool before its group has a byte but no bit.
bool HasNoBits(const Attribute& attribute) {
  return IsBool(attribute) && attribute.position.bit_offset < 0 && attribute.position.bit_offset % 8 != 0;
}

// Whether writing the field leaves the other bits of its bytes alone.
bool IsTidy(const Attribute& attribute) {
  const Bits field = FieldOf(attribute);
  return !IsInBits(attribute) || field.EndByte() - field.FirstByte() == 1 ||
         (field.begin % 8 == 0 && field.end % 8 == 0);
}

Bits TouchedBy(const Attribute& attribute) {
  const Bits field = FieldOf(attribute);
  if (HasNoBits(attribute)) return {field.begin, field.begin};
  return IsTidy(attribute) ? field : Bits{8 * field.FirstByte(), 8 * field.EndByte()};
}

uint64_t FieldWidth(const Attribute& attribute) {
  return static_cast<uint64_t>(attribute.position.len) * (IsInBits(attribute) ? 1 : 8);
}

uint64_t LowBits(uint64_t value, uint64_t count) { return count >= 64 ? value : value & ((uint64_t{1} << count) - 1); }

// Encodes records without the checks.
model::Encoded Encode(const Entity& info, const Attributes& attributes, const Json::Value& values) {
  return RunEncoder(attributes,
                    [&](Package& package) { ProtocolEncodeAttributes_4_0(info, attributes, package, values); });
}

// The payload of one attribute alone.
Bytes EncodeAlone(const Attribute& attribute, const Json::Value& value) {
  Json::Value values;
  values[""][attribute.name.c_str()] = value;
  return Encode(Entity(), {attribute}, values).value;
}

// What the module decodes from a payload for one attribute alone; null for nothing.
Json::Value DecodeAlone(const Attribute& attribute, Bytes payload) {
  const LogCapture log;
  Json::Value decoded;
  ProtocolDecodeAttributes_4_0(Entity(), {attribute}, PackageOf(payload), decoded);
  return MemberOf(MemberOf(MemberOf(decoded, ""), DocumentKey(attribute)), "value");
}

// The attribute's value as the encoder looks it up: by its name up to a NUL.
const Json::Value& ValueOf(const Entity& info, const Attribute& attribute, const Json::Value& values) {
  return MemberOf(MemberOf(values, info.name), attribute.name.c_str());
}

// Bools and enums: text as "%llu" reads it, which leaves the 0 of empty text, or an integer.
uint64_t IndexOf(const Json::Value& value) {
  if (value.isString()) {
    unsigned long long index = 0;
    std::sscanf(value.asCString(), "%llu", &index);
    return index;
  }
  if (value.isBool()) return value.asBool() ? 1 : 0;
  // Above 32 bits signed it wraps, and is then widened with its sign.
  return static_cast<uint64_t>(int64_t{static_cast<int32_t>(value.asLargestInt())});
}

double NumberOf(const Json::Value& value) {
  if (!value.isString()) return value.asDouble();
  double number = 0;
  std::sscanf(value.asCString(), "%lf", &number);
  return number;
}

void CheckUntouched(const Attributes& attributes, const model::Encoded& encoded) {
  Bytes left = encoded.value;
  for (size_t i = 0; i < attributes.size(); ++i) {
    if (!IsFlagSet(encoded.flags, i)) continue;
    const Bits bits = TouchedBy(attributes[i]);
    for (int64_t bit = bits.begin; bit < bits.end;) {
      byte& place = left.at(static_cast<size_t>(bit / 8));
      const bool isWholeByte = bit % 8 == 0 && bits.end - bit >= 8;
      place = static_cast<byte>(place & ~(isWholeByte ? 0xff : 0x80 >> bit % 8));
      bit += isWholeByte ? 8 : 1;
    }
  }
  ExpectEqual(left, Bytes(left.size()), "bits that no write touches are 0");
}

// What doubles and six decimals lose at most between a user value and its text.
double LossOf(const MorvixProtocolUIntSpec_4_0& scaling, double user) {
  constexpr double kHalfDecimal = 0.5e-6;
  return kHalfDecimal + 16 * DBL_EPSILON * (std::fabs(user) + std::fabs(scaling.addition) + std::fabs(scaling.ratio));
}

// Whether a number's field and scaling let its value come back.
bool CanComeBack(const Attribute& number) {
  const MorvixProtocolUIntSpec_4_0& scaling = number.uint_spec;
  return LowBits(static_cast<uint64_t>(scaling.max), FieldWidth(number)) == static_cast<uint64_t>(scaling.max) &&
         std::isfinite(scaling.ratio) && std::isfinite(scaling.addition) && scaling.ratio != 0;
}

void CheckNumber(const Attribute& attribute, const Json::Value& given, const std::string& text) {
  constexpr size_t kMaxCharacters = 31;
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  const double user = NumberOf(given);
  uint64_t raw = 0;
  std::string textOfRaw;
  if (!ProtocolValueToRaw_4_0(attribute, user, raw)) Fail("a number that was written has a raw value", "");
  if (!ProtocolRawToText_4_0(attribute, raw, textOfRaw)) Fail("a number that was written has a text", "");
  ExpectEqual(textOfRaw, text, "the text of a number is that of its raw value");

  const double back = std::strtod(text.c_str(), nullptr);
  const double loss = LossOf(scaling, user);
  if (!std::isfinite(user - scaling.addition) || text.size() >= kMaxCharacters || !std::isfinite(back)) return;
  if (std::fabs(back - user) > std::fabs(scaling.ratio) / 2 + loss) {
    Fail("a number is read back within half a ratio", Show(text));
  }
  if (raw < 1 || raw >= (uint64_t{1} << 52) - 1 || loss / std::fabs(scaling.ratio) > 0.49) return;
  ExpectEqual(EncodeAlone(attribute, text), EncodeAlone(attribute, given),
              "the text of a number is encoded like the number");
}

void CheckReadBack(const Attribute& attribute, const Json::Value& given, const Bytes& payload) {
  const Inputs inputs(attribute, given, payload);
  if (HasNoBits(attribute)) return;
  const bool isNumber = ProtocolDataTypeIsUInt(attribute.data_type);
  if (isNumber && (!CanComeBack(attribute) || !std::isfinite(NumberOf(given)))) return;
  const Json::Value read = DecodeAlone(attribute, payload);
  if (IsBool(attribute)) {
    ExpectEqual(read, Json::Value(IndexOf(given) != 0), "a bool is read back");
    return;
  }
  if (!read.isString()) Fail("what was written is read back", Show(read));
  if (isNumber) {
    CheckNumber(attribute, given, read.asString());
  } else if (IsBinary(attribute)) {
    const auto size = static_cast<size_t>(attribute.position.len);
    const Bytes wanted = model::Base64Bytes(given.asString(), size);
    const Bytes bytes = model::Base64Bytes(read.asString(), size);
    ExpectEqual(bytes.size(), size, "a binary is read back whole");
    ExpectEqual(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(wanted.size())), wanted,
                "the bytes of a binary are read back");
  } else {
    constexpr size_t kMaxDigits = 9;
    const std::string index = std::to_string(LowBits(IndexOf(given), FieldWidth(attribute))).substr(0, kMaxDigits);
    ExpectEqual(read.asString(), index, "the index of an enum is read back");
  }
}

void CheckLocated(const Attribute& attribute, size_t payloadBytes) {
  const Inputs inputs(attribute, payloadBytes);
  size_t firstBit = 0;
  size_t bitCount = 0;
  const bool isFound = ProtocolLocateAttribute_4_0(attribute, payloadBytes, firstBit, bitCount);
  ExpectEqual(isFound, !IsInBits(attribute) || attribute.position.bit_offset >= 0, "what was written is located");
  if (!isFound) return;
  const Bits field = FieldOf(attribute);
  ExpectEqual(static_cast<int64_t>(firstBit), field.begin, "a field begins where it is located");
  ExpectEqual(static_cast<int64_t>(firstBit + bitCount), field.end, "a field ends where it is located");
}

// The payload of the first `count` attributes, as long as that of all.
model::Encoded EncodeFirst(size_t count, const Entity& info, const Attributes& attributes, const Json::Value& values,
                           size_t length) {
  Attributes first(attributes.begin(), attributes.begin() + static_cast<std::ptrdiff_t>(count));
  Attribute& end = first.emplace_back();
  end.name = kNameOfNoValue;
  end.data_type = MorvixProtocolDataTypeBinary_4_0;
  end.position = BytesAt(static_cast<int32_t>(length) - 1, 1);
  model::Encoded encoded = Encode(info, first, values);
  ExpectEqual(encoded.value.size(), length, "a payload has the length that its attributes need");
  return encoded;
}

bool BitAt(const Bytes& payload, int64_t byteIndex, int64_t bit) {
  return (payload.at(static_cast<size_t>(byteIndex)) >> bit & 1) != 0;
}

// One write, bit by bit. Outside of the bytes that the field touches nothing changes. In them, bits are numbered from
// the lowest bit of the last byte. Around a tidy field nothing changes either; around another, the bit of number p
// comes from the bit that has the number p when the bytes are counted in reverse.
void CheckOneWrite(const Attribute& attribute, const Bytes& before, const Bytes& after) {
  const Bits field = FieldOf(attribute);
  const int64_t first = field.FirstByte();
  const int64_t end = field.EndByte();
  if (!std::equal(before.begin(), before.begin() + first, after.begin()) ||
      !std::equal(before.begin() + end, before.end(), after.begin() + end)) {
    Fail("a write changes its own bytes only", "");
  }
  if (!IsInBits(attribute)) return;  // nothing around it
  const bool isTidy = IsTidy(attribute);
  for (int64_t p = 0; p < 8 * (end - first); ++p) {
    const int64_t fromStart = 8 * end - 1 - p;
    if (fromStart >= field.begin && fromStart < field.end) continue;
    const bool now = BitAt(after, end - 1 - p / 8, p % 8);
    if (now != BitAt(before, isTidy ? end - 1 - p / 8 : first + p / 8, p % 8)) {
      Fail("bits around a field stay, or come back in reversed byte order", "bit " + Show(p));
    }
  }
}

void CheckNextWrite(const Entity& info, const Attributes& attributes, const Json::Value& values, size_t length,
                    size_t index) {
  if (!MemberOf(MemberOf(values, info.name), kNameOfNoValue).isNull()) return;
  const Attribute& attribute = attributes[index];
  const Bytes before = EncodeFirst(index, info, attributes, values, length).value;
  const model::Encoded encoded = EncodeFirst(index + 1, info, attributes, values, length);
  const Bytes& after = encoded.value;
  const Inputs inputs(attribute, before, after);
  if (!IsFlagSet(encoded.flags, index) || HasNoBits(attribute)) {
    ExpectEqual(after, before, "what is not written changes nothing");
    return;
  }
  CheckOneWrite(attribute, before, after);
  if (!IsBinary(attribute)) return;
  Bytes expected = before;
  const Bytes bytes =
      model::Base64Bytes(ValueOf(info, attribute, values).asString(), static_cast<size_t>(attribute.position.len));
  std::copy(bytes.begin(), bytes.end(), expected.begin() + attribute.position.byte_offset);
  ExpectEqual(after, expected, "a binary is as many bytes of its field as its text has");
}

}  // namespace

void CheckPayload(const Entity& info, const Attributes& attributes, const Json::Value& values,
                  const model::Encoded& encoded, size_t choice) {
  CheckUntouched(attributes, encoded);
  for (size_t i = 0; i < attributes.size(); ++i) {
    if (!IsFlagSet(encoded.flags, i)) continue;
    CheckLocated(attributes[i], encoded.value.size());
    const Bits field = FieldOf(attributes[i]);
    bool isTouchedLater = false;
    for (size_t j = i + 1; j < attributes.size(); ++j) {
      if (IsFlagSet(encoded.flags, j) && TouchedBy(attributes[j]).Meets(field)) isTouchedLater = true;
    }
    if (!isTouchedLater) CheckReadBack(attributes[i], ValueOf(info, attributes[i], values), encoded.value);
  }
  CheckNextWrite(info, attributes, values, encoded.value.size(), choice % attributes.size());
}

void CheckDecodedTogether(const model::Parsed& writable, const model::Parsed& all, const Bytes& payload) {
  const Inputs inputs(all.attributes, payload);
  Bytes copy = payload;
  Json::Value document;
  const LogCapture log;
  ProtocolDecodeAttributes_4_0(all.entity, all.attributes, PackageOf(copy), document);
  if (!log.Lines().empty()) return;
  for (size_t i = 0; i < all.attributes.size(); ++i) {
    const Attribute& attribute = all.attributes[i];
    const auto isSame = [&](const Attribute& other) { return attribute == other; };
    const auto hasItsKey = [&](const Attribute& other) { return DocumentKey(attribute) == DocumentKey(other); };
    const auto next = all.attributes.begin() + static_cast<std::ptrdiff_t>(i) + 1;
    if (std::none_of(writable.attributes.begin(), writable.attributes.end(), isSame) ||
        std::any_of(next, all.attributes.end(), hasItsKey)) {
      continue;
    }
    const Json::Value alone = DecodeAlone(attribute, payload);
    if (alone.isNull()) continue;  // an earlier attribute may have the key
    const Json::Value& item = MemberOf(MemberOf(document, all.entity.name), DocumentKey(attribute));
    ExpectEqual(MemberOf(item, "value"), alone, "together, attributes are read as they are alone");
    ExpectEqual(MemberOf(item, "type"), Json::Value(static_cast<Json::Int>(attribute.type)), "an item has its group");
  }
}

}  // namespace support
