#include "PayloadProperties.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

namespace {

const char kNameOfNoValue[] = "no value has this name";

bool IsReported(const Attribute& attribute) {
  return attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
}

bool IsBool(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeBool_4_0; }

bool IsBinary(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeBinary_4_0; }

bool IsInBits(const Attribute& attribute) { return attribute.position.unit == MorvixProtocolUnitBit_4_0; }

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

// A bool in front of its group has a byte but no bit.
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

std::string Describe(const Attribute& attribute, const Json::Value& value, const Bytes& payload) {
  return Show(attribute) + "\ngiven " + Show(value) + "payload " + Show(payload);
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
  double number = 0;
  if (value.isString()) {
    std::sscanf(value.asCString(), "%lf", &number);
  } else {
    number = value.asDouble();
  }
  return number;
}

void CheckUntouched(const Attributes& attributes, const Encoding& encoding) {
  Bytes touched(encoding.value.size());
  for (size_t i = 0; i < attributes.size(); ++i) {
    if (!IsFlagSet(encoding.flags, i)) continue;
    const Bits bits = TouchedBy(attributes[i]);
    for (int64_t bit = bits.begin; bit < bits.end;) {
      byte& mask = touched.at(static_cast<size_t>(bit / 8));
      const bool isWholeByte = bit % 8 == 0 && bits.end - bit >= 8;
      mask = static_cast<byte>(mask | (isWholeByte ? 0xff : 0x80 >> bit % 8));
      bit += isWholeByte ? 8 : 1;
    }
  }
  for (size_t i = 0; i < touched.size(); ++i) {
    if ((encoding.value[i] & ~touched[i]) != 0) {
      Fail("bits that no write touches are 0",
           "byte " + Show(i) + "\npayload " + Show(encoding.value) + "\ntouched " + Show(touched));
    }
  }
}

// What doubles and six decimals lose at most between a user value and its text.
double LossOf(const MorvixProtocolUIntSpec_4_0& scaling, double user) {
  constexpr double kHalfDecimal = 0.5e-6;
  return kHalfDecimal + 16 * DBL_EPSILON * (std::fabs(user) + std::fabs(scaling.addition) + std::fabs(scaling.ratio));
}

// The payload of one attribute alone, of which the other values are left out.
Bytes EncodeAlone(const Attribute& attribute, const Json::Value& value) {
  Json::Value values;
  values[""][attribute.name.c_str()] = value;
  return EncodeRecords(Entity(), {attribute}, values).value;
}

void CheckNumber(const Attribute& attribute, const Json::Value& given, const std::string& text, const Bytes& payload) {
  constexpr size_t kMaxCharacters = 31;
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  const double user = NumberOf(given);
  const double back = std::strtod(text.c_str(), nullptr);
  const double loss = LossOf(scaling, user);
  if (!std::isfinite(user - scaling.addition) || text.size() >= kMaxCharacters || !std::isfinite(back)) return;
  if (std::fabs(back - user) > std::fabs(scaling.ratio) / 2 + loss) {
    Fail("a number is read back within half a ratio", Describe(attribute, given, payload) + "\nread " + Show(text));
  }
  const double raw = std::round((user - scaling.addition) / scaling.ratio);
  const double maxRaw = 4503599627370495.0;
  if (raw < 1 || raw >= maxRaw || loss / std::fabs(scaling.ratio) > 0.49) return;
  const Bytes first = EncodeAlone(attribute, given);
  const Bytes second = EncodeAlone(attribute, text);
  if (first != second) {
    Fail("the text of a number is encoded like the number",
         Describe(attribute, given, first) + "\nread " + Show(text) + "\npayload " + Show(second));
  }
}

// Whether a number's field and scaling let its value come back.
bool CanComeBack(const Attribute& number) {
  const MorvixProtocolUIntSpec_4_0& scaling = number.uint_spec;
  return LowBits(static_cast<uint64_t>(scaling.max), FieldWidth(number)) == static_cast<uint64_t>(scaling.max) &&
         std::isfinite(scaling.ratio) && std::isfinite(scaling.addition) && scaling.ratio != 0;
}

void CheckBinary(const Attribute& attribute, const Json::Value& given, const std::string& text, const Bytes& payload) {
  const auto size = static_cast<size_t>(attribute.position.len);
  const Bytes wanted = model::Base64Bytes(given.asString(), size);
  const Bytes read = model::Base64Bytes(text, size);
  if (read.size() != size || !std::equal(wanted.begin(), wanted.end(), read.begin())) {
    Fail("the bytes of a binary are read back", Describe(attribute, given, payload) + "\nread " + Show(text));
  }
}

void CheckReadBack(const Attribute& attribute, const Json::Value& given, const Bytes& payload) {
  if (HasNoBits(attribute)) return;
  if (ProtocolDataTypeIsUInt(attribute.data_type) && (!CanComeBack(attribute) || !std::isfinite(NumberOf(given)))) {
    return;
  }
  const Json::Value read = DecodeAlone(attribute, payload);
  if (IsBool(attribute)) {
    const bool wanted = IndexOf(given) != 0;
    if (read != Json::Value(wanted)) {
      Fail("a bool is read back", Describe(attribute, given, payload) + "\nread " + Show(read));
    }
    return;
  }
  if (!read.isString()) {
    Fail("what was written is read back", Describe(attribute, given, payload) + "\nread " + Show(read));
  }
  if (IsBinary(attribute)) {
    CheckBinary(attribute, given, read.asString(), payload);
  } else if (ProtocolDataTypeIsUInt(attribute.data_type)) {
    CheckNumber(attribute, given, read.asString(), payload);
  } else {
    constexpr size_t kMaxDigits = 9;
    const std::string index = std::to_string(LowBits(IndexOf(given), FieldWidth(attribute))).substr(0, kMaxDigits);
    if (read.asString() != index) {
      Fail("the index of an enum is read back", Describe(attribute, given, payload) + "\nread " + Show(read));
    }
  }
}

// The payload of the first `count` attributes, as long as that of all.
Encoding EncodeFirst(size_t count, const Entity& info, const Attributes& attributes, const Json::Value& values,
                     size_t length) {
  Attributes first(attributes.begin(), attributes.begin() + static_cast<std::ptrdiff_t>(count));
  Attribute end;
  end.name = kNameOfNoValue;
  end.data_type = MorvixProtocolDataTypeBinary_4_0;
  end.position.byte_offset = static_cast<int32_t>(length) - 1;
  end.position.len = 1;
  first.push_back(end);
  return EncodeRecords(info, first, values);
}

bool BitAt(const Bytes& payload, int64_t byteIndex, int64_t bit) {
  return (payload.at(static_cast<size_t>(byteIndex)) >> bit & 1) != 0;
}

std::string DescribeWrite(const Attribute& attribute, const Bytes& before, const Bytes& after) {
  return Show(attribute) + "\nbefore " + Show(before) + "\nafter  " + Show(after);
}

// One write, bit by bit. Outside of the bytes that the field touches nothing changes. In them, bits are numbered from
// the lowest bit of the last byte. Around a tidy field nothing changes either; around another, the bit of number p
// comes from the bit that has the number p when the bytes are counted in reverse.
void CheckOneWrite(const Attribute& attribute, const Bytes& before, const Bytes& after) {
  const Bits field = FieldOf(attribute);
  const int64_t first = field.FirstByte();
  const int64_t end = field.EndByte();
  if (before.size() != after.size() || !std::equal(before.begin(), before.begin() + first, after.begin()) ||
      !std::equal(before.begin() + end, before.end(), after.begin() + end)) {
    Fail("a write changes its own bytes only", DescribeWrite(attribute, before, after));
  }
  if (!IsInBits(attribute)) return;  // nothing around it
  const bool isTidy = IsTidy(attribute);
  for (int64_t p = 0; p < 8 * (end - first); ++p) {
    const int64_t fromStart = 8 * end - 1 - p;
    if (fromStart >= field.begin && fromStart < field.end) continue;
    const bool now = BitAt(after, end - 1 - p / 8, p % 8);
    if (now != BitAt(before, isTidy ? end - 1 - p / 8 : first + p / 8, p % 8)) {
      Fail("bits around a field stay, or come back in reversed byte order",
           "bit " + Show(p) + " of\n" + DescribeWrite(attribute, before, after));
    }
  }
}

void CheckNextWrite(const Entity& info, const Attributes& attributes, const Json::Value& values, size_t length,
                    size_t index) {
  if (!MemberOf(MemberOf(values, info.name), kNameOfNoValue).isNull()) return;
  const Attribute& attribute = attributes[index];
  const Encoding before = EncodeFirst(index, info, attributes, values, length);
  const Encoding after = EncodeFirst(index + 1, info, attributes, values, length);
  ExpectEqual(before.value.size(), length, "a payload has the length that its attributes need");
  ExpectEqual(after.value.size(), length, "a payload has the length that its attributes need");
  if (!IsFlagSet(after.flags, index) || HasNoBits(attribute)) {
    if (before.value != after.value) {
      Fail("what is not written changes nothing", DescribeWrite(attribute, before.value, after.value));
    }
    return;
  }
  CheckOneWrite(attribute, before.value, after.value);
  if (!IsBinary(attribute)) return;
  const auto start = static_cast<size_t>(attribute.position.byte_offset);
  const auto size = static_cast<size_t>(attribute.position.len);
  Bytes expected = before.value;
  const Bytes bytes = model::Base64Bytes(ValueOf(info, attribute, values).asString(), size);
  std::copy(bytes.begin(), bytes.end(), expected.begin() + static_cast<std::ptrdiff_t>(start));
  ExpectEqual(after.value, expected, "a binary is as many bytes of its field as its text has");
}

}  // namespace

Encoding EncodeRecords(const Entity& info, const Attributes& attributes, const Json::Value& values) {
  return RunEncoder(attributes,
                    [&](Package& package) { ProtocolEncodeAttributes_4_0(info, attributes, package, values); });
}

Json::Value DecodeAlone(const Attribute& attribute, const Bytes& payload) {
  Bytes copy = payload;
  Package package;
  package.value = copy.data();
  package.sizeValue = copy.size();
  Json::Value decoded;
  ProtocolDecodeAttributes_4_0(Entity(), {attribute}, package, decoded);
  TakeLines();
  return MemberOf(MemberOf(MemberOf(decoded, ""), IsReported(attribute) ? attribute.display_name : attribute.name),
                  "value");
}

void CheckPayload(const Entity& info, const Attributes& attributes, const Json::Value& values, const Encoding& encoding,
                  size_t choice) {
  CheckUntouched(attributes, encoding);
  for (size_t i = 0; i < attributes.size(); ++i) {
    if (!IsFlagSet(encoding.flags, i)) continue;
    const Bits field = FieldOf(attributes[i]);
    bool isTouchedLater = false;
    for (size_t j = i + 1; j < attributes.size(); ++j) {
      if (IsFlagSet(encoding.flags, j) && TouchedBy(attributes[j]).Meets(field)) isTouchedLater = true;
    }
    if (!isTouchedLater) CheckReadBack(attributes[i], ValueOf(info, attributes[i], values), encoding.value);
  }
  if (!attributes.empty()) {
    CheckNextWrite(info, attributes, values, encoding.value.size(), choice % attributes.size());
  }
}

}  // namespace fuzz
