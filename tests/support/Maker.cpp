#include "Maker.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>

#include "TestSupport.h"

namespace support {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr uint64_t kMostPayloadBytes = 16384;

constexpr MorvixProtocolType_4_0 kGroups[] = {MorvixProtocolTypeStatusWritable_4_0,
                                              MorvixProtocolTypeStatusReadonly_4_0, MorvixProtocolTypeAlert_4_0,
                                              MorvixProtocolTypeFault_4_0};

int32_t Clamped(int64_t value) { return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX)); }

std::string Printed(const char* format, double number) {
  char text[400];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

const char* GroupKeyword(uint32_t type) {
  switch (type) {
    case 1:
      return "status_writable";
    case 2:
      return "status_readonly";
    case 4:
      return "alert";
    case 8:
      return "fault";
    default:
      return "status";
  }
}

const char* DataTypeKeyword(uint32_t type) {
  static const char* const kKeywords[] = {"int8", "bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  return kKeywords[type < 8 ? type : 0];
}

}  // namespace

Position BytesAt(int32_t byteOffset, int32_t len) { return {byteOffset, 0, MorvixProtocolUnitByte_4_0, len, 0}; }

Position BitsAt(int32_t byteOffset, int32_t bitOffset, int32_t len, size_t groupByteLength) {
  return {byteOffset, bitOffset, MorvixProtocolUnitBit_4_0, len, groupByteLength};
}

double UserValue(double raw, double ratio, double addition) {
  const volatile double product = raw * ratio;
  return product + addition;
}

const std::vector<std::string>& TroublesomeNames() {
  static const std::vector<std::string>& names = *new std::vector<std::string>{
      "", "a1", "a2", "A1", "main", "on", "on ", "temperat", "temperature", "temperature 1", "temperaturE", "version",
      "versio", "versions", "version ", "versioN", "versioo", "Version", "~", " ", "type", "value", "name", "0", "/",
      "a/b", "<&>'", "quo\"te", "\"", "back\\slash", "\\", "\\u0041", "A", "tab\t", "line\nend", "\b\f\r", "\x01",
      "\x1f", "\x7f", "/* no */ // comment", "W\xc3\xa4rme", "\xc2\x80", "\xe6\xb8\xa9\xe5\xba\xa6", "\xe2\x80\xa8",
      "\xef\xbf\xbd", "\xef\xbb\xbf", "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf",
      // Not UTF-8: stray bytes, cut short, too long for its value, a surrogate, beyond the last character.
      "\xff", "\xfe", "\x80", "W\xe4rme", "\xc3", "\xe6\xb8", "\xf0\x9f\x98", "\xc0\xaf", "\xed\xa0\x80",
      "\xed\xa0\x80\xed\xb0\x80", "\xf4\x90\x80\x80", "\xf7\xbf\xbf\xbf",
      // A NUL inside, first, last.
      std::string("on\0off", 6), std::string("on\0", 3), std::string("\0on", 3), std::string("\0", 1),
      std::string("a1\0b", 4), std::string("version\0", 8), std::string(300, 'n'), std::string(300, 'n') + "o"};
  return names;
}

// --- Numbers and strings ---

double Maker::MakeDouble() {
  if (source_.OneIn(4)) return std::ldexp(static_cast<double>(source_.Next()), source_.Int(-120, 10));
  return source_.Pick({0.0, -0.0, 1.0, -1.0, 2.0, 4.0, 8.0, 0.5, -0.5, -0.25, 2.9, -3.7, 0.1, 0.3, 0.01, 0.001, 1e-6,
                       2e-6, 5e-7, 1e-7, 1.0 / 3, 3.7, 10.0, 40.0, -40.0, 100.0, 273.15, 65535.5, 1e9, 1e10, 1e15,
                       -1e15,
                       // Huge, tiny, around the greatest raw value and the greatest integer, and not numbers.
                       1e19, -1e19, 1e24, 1e25, 1e300, -1e300, 5e-324, 4503599627370495.0, 4503599627370495.5,
                       4503599627370496.0, 9223372036854775808.0, -9223372036854775808.0, kNaN, kInfinity, -kInfinity});
}

std::string Maker::MakeName() {
  if (!source_.OneIn(8)) return source_.Of(TroublesomeNames());
  const Bytes bytes = source_.Bytes(source_.Index(20));
  return {bytes.begin(), bytes.end()};
}

std::string Maker::MakeText() {
  if (source_.OneIn(10)) return std::to_string(source_.AnyInt());
  if (source_.OneIn(10)) return MakeName();
  const std::string text =
      source_.Pick({"", " ", "abc", "0", "1", "5", "17", "-1", "-3", "+3", " 7", "\t9", "0x1F", "0X1f", "0x10", "0x",
                    "0x ", "017", "08", "12abc", "- 5", "true", "AQID", "AAEC", "=", "-", "1e3", "1e", "-1.5e2x", ".5",
                    "3.", "nan", "inf", "-infinity", "infi", "0x1p4", "0x.8", "0b1",
                    // Around the limits of numbers.
                    "4294967295", "4294967296", "2147483648", "9223372036854775807", "9223372036854775808",
                    "-9223372036854775809", "18446744073709551615", "18446744073709551616", "99999999999999999999",
                    "-99999999999999999999", "0x10000000000000000", "1.7976931348623159e308"});
  return source_.OneIn(10) ? text + '\0' + std::to_string(source_.Below(100)) : text;
}

std::string Maker::MakeBase64(size_t count) {
  std::string text = model::Base64Text(source_.Bytes(count));
  while (source_.OneIn(3)) {
    const size_t at = source_.Index(text.size() + 1);
    text.insert(at, 1, source_.Pick({' ', '\n', '\t', '\v', '=', '-', '\0', '\x80', 'A', '/'}));
  }
  if (source_.OneIn(6)) text.resize(source_.Index(text.size() + 1));
  return text;
}

Json::Value Maker::MakeAnything(int depth) {
  switch (source_.Below(depth > 0 ? 11 : 9)) {
    case 0:
      return Json::Value();
    case 1:
      return source_.Flip();
    case 2:
      return static_cast<Json::Int>(source_.AnyInt());
    case 3:
      return static_cast<Json::UInt>(source_.AnyInt());
    case 4:
      return static_cast<Json::Int64>(source_.Word());
    case 5:
      return static_cast<Json::UInt64>(source_.Word());
    case 6:
      return MakeDouble();
    case 9: {
      Json::Value array(Json::arrayValue);
      for (uint64_t i = source_.Below(3); i > 0; --i) array.append(MakeAnything(depth - 1));
      if (source_.OneIn(16)) array.resize(array.size() + 2);  // elements that are not there
      return array;
    }
    case 10: {
      Json::Value object(Json::objectValue);
      for (uint64_t i = source_.Below(3); i > 0; --i) {
        const std::string name = source_.Flip() ? source_.Pick({"a", "type", "value", "min", "name"}) : MakeName();
        object[name] = MakeAnything(depth - 1);
      }
      return object;
    }
    default:
      return MakeText();
  }
}

std::string Maker::Misspelt(std::string name) {
  const size_t index = source_.Index(name.size() + 1);
  const char letter = static_cast<char>('a' + source_.Index(26));
  if (source_.OneIn(4) || index == name.size()) return name.insert(index, 1, letter);
  if (source_.OneIn(4)) return name.erase(index, 1);
  name[index] = letter;
  return name;
}

// --- Positions and scalings ---

size_t Maker::MakeGroupLength(uint64_t payloadBytes) {
  switch (source_.Below(12)) {
    case 0:
      return 0;
    case 1:
      return static_cast<size_t>(payloadBytes - source_.Below(3));  // wraps for small payloads
    case 2:
      return static_cast<size_t>(payloadBytes + source_.Below(3));
    case 3:
      return static_cast<size_t>(source_.Word());
    case 4:
      return SIZE_MAX / 8 + source_.Index(3);  // in bits it wraps
    default:
      return source_.Index(9) + 1;
  }
}

Position Maker::MakePosition(uint64_t payloadBytes) {
  const auto bytes = static_cast<int64_t>(payloadBytes);
  Position position;
  if (source_.OneIn(30)) {
    position = BitsAt(0, 0, 1, 1);
    position.unit = MorvixProtocolUnit_4_0(source_.Pick({-1, 2, 3, 255, INT32_MIN, INT32_MAX}));
    return position;
  }
  if (source_.OneIn(3)) {
    position.byte_offset = Clamped(source_.Between(0, bytes));
    position.len = source_.Int(1, 9);
    if (source_.OneIn(8)) position.len = 0;
    if (source_.OneIn(4)) position.len = Clamped(bytes - position.byte_offset + source_.Between(-1, 1));
    if (source_.OneIn(8)) position.byte_offset = Clamped(bytes - position.len + source_.Between(-1, 1));
    position.bit_offset = source_.AnyInt();
    position.groupByteLength = MakeGroupLength(payloadBytes);
  } else {
    const size_t group = MakeGroupLength(payloadBytes);
    position = BitsAt(Clamped(source_.Between(0, bytes)), 0, 0, group);
    const auto groupBytes = static_cast<int64_t>(std::min<uint64_t>(position.groupByteLength, 1U << 28));
    if (!source_.OneIn(4)) position.byte_offset = Clamped(source_.Between(0, std::max<int64_t>(bytes - groupBytes, 0)));
    if (source_.OneIn(6)) position.byte_offset = Clamped(bytes - groupBytes + source_.Between(-3, 1));
    position.bit_offset = Clamped(source_.Between(0, std::max<int64_t>(groupBytes * 8 - 1, 0)));
    if (source_.OneIn(6)) position.bit_offset = Clamped(groupBytes * 8 + source_.Between(-2, 1));
    if (source_.OneIn(8)) position.bit_offset = source_.Int(-3, 1);
    position.len = source_.Int(1, source_.OneIn(3) ? 64 : 9);
    if (source_.OneIn(8)) position.len = source_.Int(-9, 72);
    if (source_.OneIn(8)) position.len = Clamped(groupBytes * 8 - position.bit_offset + source_.Between(-2, 20));
  }
  if (source_.OneIn(12)) position.byte_offset = source_.Flip() ? source_.Int(-9, 2) : source_.AnyInt();
  if (source_.OneIn(20)) position.len = source_.AnyInt();
  if (source_.OneIn(30)) position.bit_offset = source_.AnyInt();
  return position;
}

Scaling Maker::MakeScaling() {
  constexpr uint64_t kLimit = uint64_t{1} << 52;
  Scaling scaling;
  uint64_t& min = scaling.min;
  uint64_t& max = scaling.max;
  max = source_.OneIn(3) ? source_.Below(300) : source_.UpTo(kLimit - 1) >> source_.Below(52);
  if (source_.OneIn(10)) max = kLimit - 3 + source_.Below(5);
  if (source_.OneIn(30)) max = source_.Word();
  if (!source_.OneIn(3)) min = source_.UpTo(max);
  if (source_.OneIn(10)) min = max - 2 + source_.Below(5);
  if (source_.OneIn(30)) min = source_.Word();
  if (source_.OneIn(4)) scaling.step = source_.Below(9);
  if (source_.OneIn(20)) scaling.step = max - min - 1 + source_.Below(3);
  if (source_.OneIn(20)) scaling.step = static_cast<uint64_t>(int64_t{source_.AnyInt()});
  scaling.ratio = source_.OneIn(4) ? MakeDouble() : source_.Pick<double>({1, 1, 0.5, 0.1, 2, 10, 0.01, -1, 0});
  scaling.addition = source_.OneIn(4) ? MakeDouble() : source_.Pick<double>({0, 0, -40, 0.5, 0.05, 100, -1e15});
  return scaling;
}

uint64_t Maker::MakeRaw(const Scaling& scaling) {
  const auto [min, max, step, ratio, addition] = scaling;
  uint64_t raw = max >= min ? min + source_.UpTo(max - min) : source_.Word();
  if (source_.OneIn(3) && step != 0) raw -= (raw - min) % step;
  if (source_.OneIn(6)) raw = max - 2 + source_.Below(5);
  if (source_.OneIn(6)) raw = min - 2 + source_.Below(5);
  if (source_.OneIn(20)) raw = source_.Word();
  return raw;
}

double Maker::MakeUser(const Scaling& scaling) {
  if (source_.OneIn(15)) return MakeDouble();
  const auto raw = static_cast<double>(MakeRaw(scaling));
  const double fraction = source_.Pick({0.0, 0.0, 0.0, 0.5, -0.5, 0.3, -0.3, 0.49999999, 0.50000001, 1e-9});
  const double user = UserValue(raw + fraction, scaling.ratio, scaling.addition);
  return source_.OneIn(8) ? std::nextafter(user, source_.Flip() ? kInfinity : -kInfinity) : user;
}

// --- Products ---

Attribute& Maker::Add(Product& product, MorvixProtocolType_4_0 type, MorvixProtocolDataType_4_0 dataType) {
  Attribute& attribute = product.attributes.emplace_back();
  const std::string number = std::to_string(product.attributes.size());
  attribute.id = static_cast<int32_t>(product.attributes.size());
  attribute.name = "a" + number;
  attribute.display_name = "A" + number;
  attribute.type = type;
  attribute.data_type = dataType;
  return attribute;
}

void Maker::AddBits(Product& product, MorvixProtocolType_4_0 type, bool mayDisturb) {
  const size_t first = product.attributes.size();
  int32_t bit = source_.Int(0, 1);
  for (size_t fields = source_.Index(6) + 1; fields > 0; --fields) {
    int32_t len = source_.Flip() ? 1 : source_.Int(1, source_.OneIn(6) ? 64 : 9);
    const bool spans = bit % 8 + len > 8;
    if (spans && !mayDisturb) bit = (bit + 7) / 8 * 8 + source_.Int(0, 7);
    len = std::min(len, 64 - bit % 8);
    const bool isBool = len == 1 && source_.Flip();
    Attribute& attribute = Add(product, type, isBool ? MorvixProtocolDataTypeBool_4_0 : MorvixProtocolDataTypeEnum_4_0);
    attribute.position = BitsAt(nextByte_, bit, len, 0);
    const size_t most = std::min<size_t>(size_t{1} << std::min(len, 5), source_.OneIn(8) ? 24 : 9);
    const size_t items = isBool ? 0 : source_.OneIn(3) ? source_.Index(most) + 1 : most;
    while (attribute.enumList.size() < items) attribute.enumList.push_back("i" + std::to_string(bit));
    bit += len + source_.Int(0, 1);
    if (spans && !mayDisturb) bit = (bit + 7) / 8 * 8;
  }
  const Position& last = product.attributes.back().position;
  const int32_t groupBytes = (last.bit_offset + last.len + 7) / 8;
  for (size_t i = first; i < product.attributes.size(); ++i) {
    product.attributes[i].position.groupByteLength = static_cast<size_t>(groupBytes);
  }
  nextByte_ += groupBytes;
}

// A number or a binary.
void Maker::AddBytes(Product& product, MorvixProtocolType_4_0 type) {
  if (source_.OneIn(8)) nextByte_ += source_.Int(1, 3);
  if (source_.OneIn(4)) {
    const int32_t len = source_.OneIn(16) ? 300 : source_.Int(1, 12);
    Add(product, type, MorvixProtocolDataTypeBinary_4_0).position = BytesAt(nextByte_, len);
    nextByte_ += len;
    return;
  }
  const int32_t len = source_.Int(1, 8);
  Attribute& attribute = Add(product, type, MorvixProtocolDataType_4_0(4 + source_.Index(4)));
  attribute.position = BytesAt(nextByte_, len);
  nextByte_ += len;
  MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  scaling.step = 1;
  scaling.ratio = source_.Pick<double>({1, 1, 0.5, 0.1, 2, 10, 0.01, -1, 0.125, 3.5, 0.001});
  // Tenths of the largest numbers have no double of their own.
  const int64_t most = (int64_t{1} << std::min(8 * len, scaling.ratio == 1 ? 52 : 40)) - 1;
  scaling.addition = most >> 50 != 0 ? 0 : source_.Pick<double>({0, 0, -40, 0.5, 100});
  scaling.max = source_.Flip() ? most : source_.Between(1, most);
  scaling.min = source_.Flip() ? 0 : source_.Between(0, scaling.max - 1);
}

Product Maker::MakeProduct(bool mayDisturb) {
  Product product;
  product.entity.id = source_.AnyInt();
  product.entity.name = "main";
  product.entity.display_name = "Main";
  nextByte_ = 0;
  const size_t parts = source_.Index(5) + 1;
  for (size_t i = 0; i < parts; ++i) {
    const MorvixProtocolType_4_0 type = i == 0 || source_.OneIn(3) ? kGroups[0] : source_.Of(kGroups);
    if (source_.Flip()) AddBits(product, type, mayDisturb);
    AddBytes(product, type);
  }
  return product;
}

void Maker::Spoil(Product& product) {
  if (product.attributes.empty()) return;
  Attribute& attribute = product.attributes[source_.Index(product.attributes.size())];
  Position& position = attribute.position;
  const uint64_t payloadBytes = std::min<uint64_t>(model::PayloadLength(product.attributes), 99);
  switch (source_.Below(18)) {
    case 0:
      attribute.type = MorvixProtocolType_4_0(source_.Pick<uint32_t>({0, 1, 2, 4, 8, 3, 5, 9, 12, 16, 0x80000004}));
      break;
    case 1:
      attribute.data_type = MorvixProtocolDataType_4_0(
          source_.Pick<uint32_t>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x7fffffff, 0x80000000, 0x80000001, 0xffffffff}));
      break;
    case 2:
      position = MakePosition(payloadBytes);
      break;
    case 3:
      position.byte_offset = Clamped(position.byte_offset + source_.Between(-3, 3));
      break;
    case 4:
      position.bit_offset = Clamped(position.bit_offset + source_.Between(-9, 9));
      break;
    case 5:
      position.len = Clamped(position.len + source_.Between(-3, 9));
      break;
    case 6:
      position.groupByteLength = MakeGroupLength(payloadBytes);
      break;
    case 7:
      position.unit = MorvixProtocolUnit_4_0(source_.Pick({-1, 0, 1, 2, INT32_MIN}));
      break;
    case 8: {
      const Scaling scaling = MakeScaling();
      attribute.uint_spec = {static_cast<int64_t>(scaling.min), static_cast<int64_t>(scaling.max),
                             static_cast<int32_t>(scaling.step), scaling.ratio, scaling.addition};
      break;
    }
    case 9:
      attribute.enumList.resize(source_.Index(5));
      break;
    case 10:
      attribute.name = MakeName();
      break;
    case 11:
      attribute.display_name = MakeName();
      break;
    case 12:
      product.entity.name = MakeName();
      break;
    case 13:
      product.attributes.push_back(Attribute(attribute));
      break;
    case 14:
      product.attributes.clear();
      break;
    case 15:
      position.byte_offset = source_.Flip() ? source_.Int(-70000, -1) : source_.Int(0, 300);
      break;
    case 16:
      position.len = source_.Pick({300, 16000, 16384, 16385, 65535, 65536, 99999});
      break;
    default:
      std::swap(attribute, product.attributes[source_.Index(product.attributes.size())]);
      break;
  }
}

Product Maker::MakeRecords() {
  Product product = MakeProduct(source_.Flip());
  if (source_.OneIn(8)) {
    for (Attribute& attribute : product.attributes) attribute.name = attribute.display_name = MakeName();
  }
  if (source_.OneIn(3)) return product;
  do {
    Spoil(product);
  } while (source_.Flip());
  return product;
}

// --- Configurations ---

Json::Value Maker::FormOf(int64_t number) {
  const bool isSmall = number >= INT32_MIN && number <= INT32_MAX;
  switch (isPlain_ ? 0 : source_.Below(16)) {
    case 1:
    case 2:
      return std::to_string(number);
    case 3: {
      char text[24];
      std::snprintf(text, sizeof text, "%s0x%llX", source_.Flip() ? " " : "", static_cast<unsigned long long>(number));
      return text;
    }
    case 4:
      return " " + std::to_string(number) + " and more";
    case 5:
      if (isSmall) return static_cast<Json::UInt>(number);
      break;
    default:
      break;
  }
  return isSmall ? Json::Value(static_cast<Json::Int>(number)) : Json::Value(static_cast<Json::Int64>(number));
}

Json::Value Maker::FormOf(double number) {
  if (!isPlain_ && source_.OneIn(6)) return Printed("%.17g", number);
  const bool isInteger = std::fabs(number) < 1e9 && number == std::floor(number);
  return isInteger && !isPlain_ && source_.Flip() ? Json::Value(static_cast<Json::Int>(number)) : Json::Value(number);
}

std::string Maker::KeywordOf(const char* keyword) {
  std::string text = keyword;
  if (isPlain_ || !source_.OneIn(6)) return text;
  switch (source_.Below(12)) {
    case 0:
      return text + '\0' + "more";
    case 1:
      return text + std::string(32, ' ');
    default:
      for (char& letter : text) {
        if (letter >= 'a' && letter <= 'z' && source_.Flip()) letter = static_cast<char>(letter - 'a' + 'A');
      }
      return text;
  }
}

Json::Value Maker::AttributeConfigurationOf(const Attribute& attribute) {
  Json::Value json;
  json["id"] = FormOf(int64_t{attribute.id});
  json["name"] = attribute.name;
  json["display_name"] = attribute.display_name;
  json["desc"] = attribute.desc;
  json["type"] = KeywordOf(GroupKeyword(attribute.type));
  json["data_type"] = KeywordOf(DataTypeKeyword(attribute.data_type));
  const int32_t unit = attribute.position.unit;
  const char* const bytes = !isPlain_ && source_.Flip() ? "" : "byte";
  Json::Value& position = json["position"];
  position["byte_offset"] = FormOf(int64_t{attribute.position.byte_offset});
  position["bit_offset"] = FormOf(int64_t{attribute.position.bit_offset});
  position["unit"] = KeywordOf(unit == 0 ? bytes : unit == 1 ? "bit" : "bits");
  position["len"] = FormOf(int64_t{attribute.position.len});
  if ((attribute.data_type >= 4 && attribute.data_type <= 7) || (!isPlain_ && source_.OneIn(20))) {
    Json::Value& scaling = json["uint_spec"];
    scaling["min"] = FormOf(attribute.uint_spec.min);
    scaling["max"] = FormOf(attribute.uint_spec.max);
    scaling["ratio"] = FormOf(attribute.uint_spec.ratio);
    scaling["addition"] = FormOf(attribute.uint_spec.addition);
  }
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0 || (!isPlain_ && source_.OneIn(20))) {
    Json::Value& items = json["enum"] = Json::Value(Json::arrayValue);
    for (const std::string& item : attribute.enumList) {
      if (!isPlain_ && source_.OneIn(30)) items[items.size() + (source_.Flip() ? 1 : 0)] = MakeAnything(0);
      items.append(item);
    }
  }
  return json;
}

Json::Value Maker::ConfigurationOf(const Product& product, bool isPlain) {
  isPlain_ = isPlain;
  Json::Value json;
  json["id"] = FormOf(int64_t{product.entity.id});
  json["name"] = product.entity.name;
  json["display_name"] = product.entity.display_name;
  Json::Value& attrs = json["attrs"] = Json::Value(Json::arrayValue);
  const bool hasGaps = !isPlain_ && source_.OneIn(16);  // they read as null
  for (const Attribute& attribute : product.attributes) {
    const Json::ArrayIndex gap = hasGaps ? static_cast<Json::ArrayIndex>(source_.Below(3)) : 0;
    attrs[attrs.size() + gap] = AttributeConfigurationOf(attribute);
  }
  return json;
}

// Takes one member of an object away, misspells it, or puts something else in its place.
void Maker::SpoilMember(Json::Value& object) {
  const std::vector<std::string> names = object.getMemberNames();
  if (names.empty()) return;
  const std::string& name = source_.Of(names);
  if (source_.Flip()) {
    object[name] = source_.OneIn(4) ? Json::Value("") : MakeAnything();
    return;
  }
  const Json::Value member = object[name];
  object.removeMember(name);
  if (source_.Flip()) object[Misspelt(name)] = member;
}

void Maker::SpoilConfiguration(Json::Value& entity) {
  Json::Value& attrs = entity["attrs"];
  if (attrs.isArray() && !attrs.empty() && !source_.OneIn(8)) {
    Json::Value& attr = attrs[static_cast<Json::ArrayIndex>(source_.Index(attrs.size()))];
    if (!attr.isObject() || source_.OneIn(10)) {
      attr = MakeAnything();
    } else if (attr["position"].isObject() && source_.OneIn(3)) {
      SpoilMember(attr["position"]);
    } else if (attr.isMember("uint_spec") && attr["uint_spec"].isObject() && source_.Flip()) {
      SpoilMember(attr["uint_spec"]);
    } else {
      SpoilMember(attr);
    }
  } else if (source_.OneIn(3)) {
    SpoilMember(entity);
  } else if (source_.OneIn(3)) {
    attrs = MakeAnything();
  } else if (source_.OneIn(6)) {
    entity = MakeAnything();
  }
}

Json::Value Maker::MakeEntity() {
  const Product product = MakeRecords();
  Json::Value entity = ConfigurationOf(product, source_.Flip());
  while (entity.isObject() && source_.Flip()) SpoilConfiguration(entity);
  return entity;
}

// --- Values and payloads ---

Json::Value Maker::MakeGoodValue(const Attribute& attribute) {
  if (attribute.data_type == MorvixProtocolDataTypeBool_4_0) {
    static const Json::Value kValues[] = {true, false, 0, 1, "0", "1", 2, -1, "17", "", 3000000000U};
    return source_.Of(kValues);
  }
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
    const size_t index = source_.Index(std::max<size_t>(attribute.enumList.size(), 1));
    if (source_.OneIn(3)) return std::to_string(index);
    return source_.OneIn(3) ? Json::Value(static_cast<Json::UInt>(index)) : Json::Value(static_cast<Json::Int>(index));
  }
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
    if (source_.OneIn(4)) return MakeBase64(source_.Index(9));
    return model::Base64Text(source_.Bytes(static_cast<size_t>(std::clamp(attribute.position.len, 0, 99))));
  }
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  const bool isRange = scaling.min >= 0 && scaling.max >= scaling.min;
  const int64_t end = source_.OneIn(4) ? scaling.min : source_.OneIn(4) ? scaling.max : -1;
  const int64_t raw = !isRange ? 3 : end != -1 ? end : source_.Between(scaling.min, scaling.max);
  double user = UserValue(static_cast<double>(raw), scaling.ratio, scaling.addition);
  if (source_.OneIn(4)) user += scaling.ratio * source_.Pick({0.25, 0.4, 0.5, 0.75, -0.5, 0.49999999999});
  if (source_.OneIn(4)) return model::NumberText(user);
  const bool isInteger = std::fabs(user) < 1e9 && user == std::floor(user);
  return isInteger && source_.Flip() ? Json::Value(static_cast<Json::Int>(user)) : Json::Value(user);
}

Json::Value Maker::MakeValues(const Product& product) {
  if (source_.OneIn(30)) return MakeAnything();
  Json::Value root(Json::objectValue);
  if (source_.OneIn(4)) root["other"] = MakeAnything(0);
  Json::Value& values = root[source_.OneIn(30) ? "else" : product.entity.name];
  if (source_.OneIn(30)) {
    values = MakeAnything();
    return root;
  }
  values = Json::Value(Json::objectValue);
  const uint64_t oneBadIn = source_.OneIn(3) ? 3 : 30;
  const uint64_t oneMissingIn = source_.OneIn(3) ? 16 : 4;
  for (const Attribute& attribute : product.attributes) {
    if (source_.OneIn(oneMissingIn)) continue;
    const std::string name = source_.OneIn(10) ? attribute.name : std::string(attribute.name.c_str());
    values[name] = source_.OneIn(oneBadIn) ? MakeAnything() : MakeGoodValue(attribute);
  }
  return root;
}

Json::Value Maker::MakeDocument(const Product& product) {
  if (source_.Flip()) return Json::Value();
  if (source_.OneIn(6)) return MakeAnything();
  Json::Value document(Json::objectValue);
  document["other"] = MakeAnything();
  if (source_.OneIn(6)) {
    document[product.entity.name] = MakeAnything();
  } else if (source_.Flip()) {
    Json::Value& values = document[product.entity.name];
    values["a1"] = MakeAnything();
    values["A2"]["more"] = 1;
    values["a2"]["value"] = MakeAnything(0);
  }
  return document;
}

Bytes Maker::MakePayload(const Product& product) {
  constexpr size_t kMostOfChance = 64;
  const uint64_t length = model::PayloadLength(product.attributes);
  Bytes payload;
  if (length <= 4 * kMostPayloadBytes && source_.Flip()) {
    Json::Value root;
    Json::Value& values = root[product.entity.name] = Json::Value(Json::objectValue);
    for (const Attribute& attribute : product.attributes) values[attribute.name.c_str()] = MakeGoodValue(attribute);
    payload = model::EncodeAttributes(product.entity, product.attributes, root).value;
  } else {
    const auto size = static_cast<size_t>(std::min(length, kMostPayloadBytes + 1));
    payload = source_.Bytes(std::min(size, kMostOfChance));
    payload.resize(size, source_.Pick<byte>({0x00, 0x01, 0xff, 0xd7}));
  }
  if (!payload.empty() && source_.OneIn(6)) payload[source_.Index(payload.size())] = source_.Byte();
  if (source_.OneIn(8)) payload.resize(source_.Index(payload.size() + 9));
  if (source_.OneIn(60)) payload.clear();
  return payload;
}

Bytes Maker::MakePacket(const Product& product) {
  Bytes packet = MakePayload(product);
  if (source_.OneIn(300)) packet.resize(kMostPayloadBytes - 1 + source_.Index(3));
  packet.insert(packet.begin(), source_.OneIn(20) ? source_.Byte() : source_.Pick<byte>({3, 4}));
  if (source_.OneIn(60)) packet.resize(source_.Index(2));
  return packet;
}

Package Maker::MakePackage(Bytes& flags, Bytes& value) {
  flags = source_.Bytes(source_.Index(4));
  value = source_.Bytes(source_.Index(9));
  if (source_.OneIn(64)) flags.resize(1023 + source_.Index(3), 0xf1);
  if (source_.OneIn(64)) value.resize(kMostPayloadBytes - 1 + source_.Index(3), 0x7a);
  Package package;
  package.cmd = MorvixProtocolCommand_4_0(source_.Flip() ? source_.Pick<uint32_t>({1, 7}) : source_.Below(18));
  if (source_.OneIn(60)) package.cmd = MorvixProtocolCommand_4_0(UINT32_MAX - source_.Below(2));
  package.subDid = static_cast<int32_t>(source_.UpTo(UINT32_MAX));
  package.needInsertSubDid = source_.Pick<byte>({0, 0, 1, 255});
  package.flags = source_.OneIn(10) ? nullptr : flags.data();
  package.sizeFlags = flags.size();
  package.value = source_.OneIn(10) ? nullptr : value.data();
  package.sizeValue = value.size();
  return package;
}

// --- Receive results ---

std::string Maker::MakeReceiveDocument() {
  static const Json::Value kTypes[] = {1, 2, 4, 4, 4, 8, 8, 8, 4.0, "4", true, Json::Value()};
  static const Json::Value kVersions[] = {4, 4.5, "4.0", Json::Value(), 8589934592};
  if (source_.OneIn(30)) return WriteJson(MakeAnything());
  Json::Value document(Json::objectValue);
  for (size_t entities = source_.Index(4); entities > 0; --entities) {
    Json::Value& entity = document[MakeName()];
    entity = source_.OneIn(8) ? MakeAnything() : Json::Value(Json::objectValue);
    for (size_t items = entity.isObject() ? source_.Index(6) : 0; items > 0; --items) {
      Json::Value& item = entity[MakeName()];
      item = source_.OneIn(8) ? MakeAnything() : Json::Value(Json::objectValue);
      if (!item.isObject()) continue;
      if (!source_.OneIn(10)) item["type"] = source_.Of(kTypes);
      if (!source_.OneIn(10)) item["value"] = MakeAnything();
      if (source_.OneIn(10)) item["name"] = MakeAnything();
      if (source_.OneIn(10)) item[MakeName()] = MakeAnything();
    }
  }
  document["version"] = source_.OneIn(8) ? source_.Of(kVersions) : Json::Value(4.0);
  std::string text = WriteJson(document);
  if (source_.OneIn(10)) text.resize(source_.Index(text.size()));
  if (source_.OneIn(10)) text.insert(source_.Index(text.size() + 1), "/* */");
  if (source_.OneIn(30)) text.insert(0, source_.Flip() ? "[" : "[[[[");
  return text;
}

Json::Value Maker::MakeAlerts() {
  if (source_.OneIn(20)) return MakeAnything();
  Json::Value alerts(Json::arrayValue);
  for (size_t count = source_.Index(4); count > 0; --count) {
    Json::Value alert(Json::objectValue);
    alert["name"] = source_.OneIn(10) ? MakeAnything() : Json::Value(MakeName());
    alert["value"] = source_.OneIn(3) ? MakeAnything() : Json::Value(MakeText());
    if (source_.OneIn(10)) alert = MakeAnything();
    alerts[alerts.size() + (source_.OneIn(20) ? 1 : 0)] = alert;
  }
  return alerts;
}

}  // namespace support
