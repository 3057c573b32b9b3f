#include "Maker.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace fuzz {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::string DecimalText(double number) {
  char text[400];
  std::snprintf(text, sizeof text, "%.17g", number);
  return text;
}

}  // namespace

std::string Maker::MakeName() {
  static const char* const kNames[] = {"on", "a", "b", "mode", "level", "", "version", "versio", "wersion", "type",
                                       "value", "name",
                                       // They share a beginning, need an escape, are beyond ASCII, and are no UTF-8.
                                       "temperature", "temperaturE", "quo\"te", "back\\slash", "line\nend", "\x7f",
                                       "W\xc3\xa4rme", "\xf0\x9f\x98\x80", "\xff", "\xed\xa0\x80"};
  if (OneIn(8)) return in_.ConsumeRandomLengthString(20);
  if (OneIn(16)) return std::string("on\0off", 6);
  return in_.PickValueInArray(kNames);
}

int32_t Maker::MakeInteger() {
  if (OneIn(4)) return in_.ConsumeIntegral<int32_t>();
  return Pick<int32_t>({-65, -64, -9,  -8,    -2,    -1,    0,     1,     2,     3,         7,         8,
                        9,   15,  16,  31,    32,    33,    56,    57,    63,    64,        65,        127,
                        128, 255, 256, 16383, 16384, 16385, 65535, 65536, 99999, INT32_MAX, INT32_MIN, INT32_MAX - 7});
}

double Maker::MakeDouble() {
  if (OneIn(4)) {
    const auto bits = in_.ConsumeIntegral<uint64_t>();
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
  }
  static const double kNumbers[] = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, -0.25, 0.1, 0.3, 0.01, 0.001, 1e-6, 2e-6, 5e-7,
                                    1e-7, 3.7, 10.0, 40.0, -40.0, 100.0, 273.15, 65535.5, 1e9, 1e15,
                                    // Huge, tiny, around the greatest raw value, and no numbers.
                                    1e24, 1e25, 1e300, -1e300, 5e-324, 4503599627370495.0, 4503599627370496.0, kNaN,
                                    kInfinity, -kInfinity};
  return in_.PickValueInArray(kNumbers);
}

// A number as one of the forms in which a document may have it.
Json::Value Maker::FormOf(int32_t number) {
  switch (Between(0, 15)) {
    case 0:
      return std::to_string(number);
    case 1: {
      char text[16];
      std::snprintf(text, sizeof text, "0x%X", static_cast<uint32_t>(number));
      return text;
    }
    case 2:
      return Json::UInt(static_cast<uint32_t>(number));
    case 3:
      return " " + std::to_string(number) + " and more";
    default:
      return number;
  }
}

Json::Value Maker::FormOf(double number) {
  // JSON has no text for what is no number, so a configuration gives it as text.
  if (!std::isfinite(number) || OneIn(8)) return DecimalText(number);
  if (std::fabs(number) < 1e9 && number == std::floor(number) && !OneIn(8)) return static_cast<int32_t>(number);
  return number;
}

Json::Value Maker::MakeAnything(int depth) {
  switch (Between(0, depth > 0 ? 11 : 8)) {
    case 0:
      return Json::Value();
    case 1:
      return in_.ConsumeBool();
    case 2:
      return MakeInteger();
    case 3:
      return MakeDouble();
    case 4:
      return Json::UInt(in_.ConsumeIntegral<uint32_t>());
    case 5:
      return Json::Int64(in_.ConsumeIntegral<int64_t>());
    case 6:
      return Json::UInt64(in_.ConsumeIntegral<uint64_t>());
    case 7:
      return Pick<const char*>({"", " ", "0x", "0x1F", "017", "-1", "12abc", "nan", "inf", "-", "1e3", "AAEC", "=",
                                "18446744073709551615", "99999999999999999999999", "0x10000000000000000"});
    case 8:
      return in_.ConsumeRandomLengthString(40);
    case 9: {
      Json::Value array(Json::arrayValue);
      for (int32_t i = Between(0, 3); i > 0; --i) array.append(MakeAnything(depth - 1));
      if (OneIn(16)) array.resize(array.size() + 2);  // elements that are not there
      return array;
    }
    default: {
      Json::Value object(Json::objectValue);
      for (int32_t i = Between(0, 3); i > 0; --i) object[MakeName()] = MakeAnything(depth - 1);
      return object;
    }
  }
}

std::string Maker::Keyword(std::string keyword) {
  if (!OneIn(12)) return keyword;
  switch (Between(0, 4)) {
    case 0:
      for (char& c : keyword) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
      return keyword;
    case 1:
      return keyword + '\0' + "behind";
    case 2:
      return keyword + std::string(32, ' ');
    case 3:
      return "";
    default:
      return MakeName();
  }
}

Json::Value Maker::MakePosition(const std::string& dataType) {
  const bool isBitPacked = dataType == "bool" || dataType == "enum";
  int32_t byteOffset = nextByte_;
  int32_t bitOffset = nextBit_;
  int32_t len = 1;
  std::string unit = "bit";
  if (isBitPacked) {
    if (dataType == "enum") len = OneIn(4) ? Between(1, 64) : Between(1, 9);
    if (OneIn(8)) bitOffset += Between(0, 20);  // a gap
    nextBit_ = bitOffset + len;
  } else {
    unit = "byte";
    bitOffset = OneIn(8) ? MakeInteger() : 0;
    len =
        dataType == "binary" ? (OneIn(16) ? Pick<int32_t>({300, 16000, 65535, 65536}) : Between(1, 12)) : Between(1, 8);
    nextByte_ += len;
  }
  if (OneIn(6)) {  // elsewhere, perhaps on something else
    byteOffset = Between(0, 12);
    if (isBitPacked) bitOffset = Between(0, 70);
  }
  if (OneIn(24)) byteOffset = MakeInteger();
  if (OneIn(24)) bitOffset = MakeInteger();
  if (OneIn(24)) len = MakeInteger();
  if (OneIn(16)) unit = Pick<const char*>({"bit", "byte", ""});
  Json::Value position;
  position["byte_offset"] = FormOf(byteOffset);
  position["bit_offset"] = FormOf(bitOffset);
  position["unit"] = Keyword(unit);
  position["len"] = FormOf(len);
  return position;
}

Json::Value Maker::MakeScaling(int64_t width) {
  Json::Value scaling;
  const int64_t greatest = (int64_t{1} << std::clamp<int64_t>(width, 1, 52)) - 1;
  int64_t min = 0;
  int64_t max = greatest;
  if (OneIn(3)) max = std::min<int64_t>(max, Between(1, 1000));
  if (OneIn(4)) min = std::min<int64_t>(max, Between(0, 100));
  if (OneIn(16)) min = in_.ConsumeIntegral<int64_t>();
  if (OneIn(16)) max = Pick({int64_t{1} << 52, (int64_t{1} << 52) - 1, int64_t{-1}, INT64_MAX, int64_t{0}});
  const auto formOf = [&](int64_t limit) -> Json::Value {
    if (OneIn(10)) return std::to_string(limit);
    if (OneIn(10)) return static_cast<double>(limit);
    return Json::Int64(limit);
  };
  scaling["min"] = formOf(min);
  scaling["max"] = formOf(max);
  scaling["ratio"] = FormOf(OneIn(2) ? 1.0 : MakeDouble());
  scaling["addition"] = FormOf(OneIn(2) ? 0.0 : MakeDouble());
  return scaling;
}

Json::Value Maker::MakeItems(int64_t width) {
  Json::Value items(Json::arrayValue);
  constexpr int64_t kMostBits = 4;  // long lists are slow
  const int32_t whole = 1 << std::clamp<int64_t>(width, 0, OneIn(32) ? 2 * kMostBits : kMostBits);
  const int32_t count = OneIn(4) ? Between(0, whole + 2) : whole;
  for (int32_t i = 0; i < count; ++i) items.append("item");
  if (OneIn(8)) items.append(MakeAnything());
  return items;
}

Json::Value Maker::MakeAttribute() {
  const auto dataType =
      Pick<const char*>({"bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64", "bool", "enum", "uint64"});
  const std::string group =
      OneIn(3) || group_.empty()
          ? Pick<const char*>({"status_writable", "status_writable", "status_readonly", "alert", "fault"})
          : group_;
  const bool isBitPacked = dataType == std::string("bool") || dataType == std::string("enum");
  if (nextBit_ != 0 && (!isBitPacked || group != group_)) {  // the bit group has ended
    nextByte_ += (nextBit_ + 7) / 8;
    nextBit_ = 0;
  }
  group_ = group;

  Json::Value attr;
  attr["id"] = FormOf(Between(0, 9));
  attr["name"] = MakeName();
  attr["display_name"] = OneIn(2) ? attr["name"] : Json::Value(MakeName());
  attr["desc"] = "";
  attr["type"] = Keyword(group);
  attr["data_type"] = Keyword(dataType);
  attr["position"] = MakePosition(dataType);
  int32_t len = 0;
  ProtocolGetAttrInteger_4_0(attr["position"], "len", len);
  if (dataType[0] == 'u') attr["uint_spec"] = MakeScaling(int64_t{len} * 8);
  if (dataType == std::string("enum")) attr["enum"] = MakeItems(len);
  if (OneIn(12)) {  // one member is something else, or gone
    static const std::string kMembers[] = {"id",        "name",     "display_name", "desc", "type",
                                           "data_type", "position", "uint_spec",    "enum"};
    const std::string& member = in_.PickValueInArray(kMembers);
    if (OneIn(2)) {
      attr.removeMember(member);
    } else {
      attr[member] = MakeAnything();
    }
  }
  for (const char* object : {"position", "uint_spec"}) {
    if (!attr.isMember(object) || !attr[object].isObject() || attr[object].empty() || !OneIn(24)) continue;
    const std::vector<std::string> names = attr[object].getMemberNames();
    const std::string& name = names[static_cast<size_t>(Between(0, static_cast<int32_t>(names.size()) - 1))];
    if (OneIn(2)) {
      attr[object].removeMember(name);
    } else {
      attr[object][name] = MakeAnything();
    }
  }
  return attr;
}

Json::Value Maker::MakeEntity() {
  nextByte_ = 0;
  nextBit_ = 0;
  group_.clear();
  Json::Value entity;
  entity["id"] = FormOf(Between(0, 3));
  entity["name"] = OneIn(4) ? MakeName() : "main";
  entity["display_name"] = "Main";
  entity["attrs"] = Json::Value(Json::arrayValue);
  const int32_t count = OneIn(16) ? Between(0, 24) : Between(1, 6);
  for (int32_t i = 0; i < count; ++i) entity["attrs"].append(OneIn(32) ? MakeAnything() : MakeAttribute());
  if (OneIn(32)) {
    static const std::string kMembers[] = {"id", "name", "display_name", "attrs"};
    entity[in_.PickValueInArray(kMembers)] = MakeAnything();
  }
  return OneIn(64) ? MakeAnything() : entity;
}

Json::Value Maker::MakeNumber(const MorvixProtocolUIntSpec_4_0& scaling) {
  const uint64_t min = static_cast<uint64_t>(scaling.min);
  const uint64_t max = static_cast<uint64_t>(scaling.max);
  uint64_t raw = OneIn(3) ? max : min;
  if (max > min && OneIn(2)) raw = in_.ConsumeIntegralInRange<uint64_t>(min, max);
  if (OneIn(16)) raw += Pick<uint64_t>({uint64_t{1}, ~uint64_t{0}});  // one more or less
  double number = static_cast<double>(raw) * scaling.ratio + scaling.addition;
  if (OneIn(6)) number += scaling.ratio * Pick({0.25, 0.5, 0.75, -0.5, 0.49999999999});
  return FormOf(OneIn(12) ? MakeDouble() : number);
}

Json::Value Maker::MakeValue(const Attribute& attribute) {
  if (OneIn(16)) return MakeAnything();
  switch (attribute.data_type) {
    case MorvixProtocolDataTypeBool_4_0:
      return OneIn(4) ? FormOf(Between(-1, 2)) : Json::Value(in_.ConsumeBool());
    case MorvixProtocolDataTypeEnum_4_0: {
      const auto count = static_cast<int32_t>(attribute.enumList.size());
      return FormOf(OneIn(16) ? Between(-1, count) : Between(0, std::max(count - 1, 0)));
    }
    case MorvixProtocolDataTypeBinary_4_0: {
      const int32_t most = std::clamp(attribute.position.len, 0, 40);
      std::string text =
          model::Base64Text(in_.ConsumeBytes<byte>(static_cast<size_t>(OneIn(4) ? Between(0, most + 2) : most)));
      if (OneIn(6))
        text.insert(static_cast<size_t>(Between(0, static_cast<int32_t>(text.size()))), 1,
                    Pick({' ', '\n', '=', '-', '\0', 'A'}));
      return text;
    }
    default:
      return MakeNumber(attribute.uint_spec);
  }
}

Json::Value Maker::MakeValues(const Entity& info, const Attributes& attributes) {
  if (OneIn(64)) return MakeAnything();
  Json::Value values;
  Json::Value& entity = values[info.name];
  for (const Attribute& attribute : attributes) {
    if (!OneIn(8)) entity[attribute.name] = MakeValue(attribute);
  }
  if (OneIn(64)) entity = MakeAnything();
  return values;
}

Bytes Maker::MakePayload(uint64_t length) {
  constexpr uint64_t kMost = 16384;
  uint64_t size = std::min(length, kMost + 1);
  if (OneIn(4)) size = static_cast<uint64_t>(Between(0, static_cast<int32_t>(size)));
  if (OneIn(8)) size += static_cast<uint64_t>(Between(1, 3));
  const byte filling = Pick<byte>({0x00, 0x01, 0xff, 0xd7});
  Bytes payload = in_.ConsumeBytes<byte>(static_cast<size_t>(std::min<uint64_t>(size, 64)));
  payload.resize(static_cast<size_t>(size), filling);
  return payload;
}

void Maker::Spoil(Attribute& attribute) {
  switch (Between(0, 9)) {
    case 0:
      attribute.data_type = MorvixProtocolDataType_4_0(Pick<uint32_t>({0, 8, 9, 0x80000001, UINT32_MAX}));
      break;
    case 1:
      attribute.type = MorvixProtocolType_4_0(Pick<uint32_t>({0, 3, 5, 12, 15, 16, 0x80000004}));
      break;
    case 2:
      attribute.uint_spec.step = Pick<int32_t>({0, 2, 3, 7, 10, -1, INT32_MAX, INT32_MIN});
      break;
    case 3:
      attribute.position.groupByteLength =
          Pick<size_t>({0, 1, 2, 3, 8, 9, 100, SIZE_MAX, SIZE_MAX / 8 + 1, SIZE_MAX / 8 + 2, SIZE_MAX / 8});
      break;
    case 4:
      attribute.position.unit = MorvixProtocolUnit_4_0(Pick<int32_t>({-1, 2, INT32_MIN}));
      break;
    case 5:
      attribute.position.bit_offset = MakeInteger();
      break;
    case 6:
      attribute.position.byte_offset = Between(-3, 12);
      break;
    case 7:
      attribute.position.len = Between(-1, 66);
      break;
    case 8:
      attribute.enumList.resize(static_cast<size_t>(Between(0, 3)));
      break;
    default:
      attribute.uint_spec.ratio = MakeDouble();
      attribute.uint_spec.addition = MakeDouble();
      break;
  }
}

Package Maker::MakePackage(Bytes& flags, Bytes& value) {
  const auto sizeUpTo = [&](int32_t limit) {
    return static_cast<size_t>(OneIn(4) ? limit + Between(-1, 1) : Between(0, 12));
  };
  flags.assign(sizeUpTo(1024), 0xf1);
  value.assign(sizeUpTo(16384), 0x7a);
  Package package;
  package.cmd =
      MorvixProtocolCommand_4_0(OneIn(8) ? in_.ConsumeIntegral<uint32_t>() : static_cast<uint32_t>(Between(0, 17)));
  package.subDid = in_.ConsumeIntegral<int32_t>();
  package.needInsertSubDid = Pick<byte>({0, 1, 255});
  package.flags = OneIn(6) ? nullptr : flags.data();
  package.sizeFlags = flags.size();
  package.value = OneIn(6) ? nullptr : value.data();
  package.sizeValue = value.size();
  return package;
}

}  // namespace fuzz
