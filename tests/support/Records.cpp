#include "Records.h"

#include <cmath>
#include <cstdio>
#include <tuple>

#include "TestSupport.h"

namespace support {

std::string Show(bool value) { return value ? "true" : "false"; }

std::string Show(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

std::string Show(const std::string& text) {
  std::string shown = "\"";
  for (const char c : text) {
    if (c >= ' ' && c <= '~' && c != '\\' && c != '"') {
      shown += c;
    } else {
      const auto code = static_cast<byte>(c);
      shown += "\\x" + ToHex(&code, 1);
    }
  }
  return shown + "\"";
}

std::string Show(const std::vector<byte>& bytes) { return std::to_string(bytes.size()) + " bytes: " + ToHex(bytes); }

std::string Show(const Json::Value& value) { return WriteJson(value); }

std::string Show(const LogCapture::Line& line) {
  return '[' + std::to_string(line.level) + "] " + line.function + ": " + Show(line.text);
}

std::string Show(const TavelReceiveInfo& info) { return Show(info.name) + " = " + Show(info.value); }

std::string Show(const MorvixProtocolPosition_4_0& position) {
  return "byte_offset " + Show(position.byte_offset) + ", bit_offset " + Show(position.bit_offset) + ", unit " +
         Show(position.unit) + ", len " + Show(position.len) + ", groupByteLength " + Show(position.groupByteLength);
}

std::string Show(const MorvixProtocolUIntSpec_4_0& scaling) {
  return "min " + Show(scaling.min) + ", max " + Show(scaling.max) + ", step " + Show(scaling.step) + ", ratio " +
         Show(scaling.ratio) + ", addition " + Show(scaling.addition);
}

std::string Show(const MorvixProtocolAttribute_4_0& attribute) {
  std::string text = Show(attribute.name) + " (" + Show(attribute.display_name) + ", " + Show(attribute.desc) +
                     "), id " + Show(attribute.id) + ", group " + Show(attribute.type) + ", data type " +
                     Show(attribute.data_type) + ", " + Show(attribute.position) + ", " + Show(attribute.uint_spec) +
                     ", items";
  for (const std::string& item : attribute.enumList) text += ' ' + Show(item);
  return text;
}

std::string Show(const MorvixProtocolEntity_4_0& entity) {
  return Show(entity.name) + " (" + Show(entity.display_name) + "), id " + Show(entity.id);
}

std::string Show(const MorvixProtocolElement_4_0& element) {
  return '{' + Show(element.attribute) + ", " + Show(element.invalid) + ", " + Show(element.type) + ", " +
         Show(element.data_type) + '}';
}

std::string Show(const MorvixProtocolResult_4_0& result) {
  return '{' + Show(result.outcome) + ", " + Show(result.raw) + '}';
}

std::string Show(const MorvixProtocolPackage_4_0& package) {
  const auto buffer = [](const byte* data, size_t size) {
    return Show(size) + " bytes" + (data == nullptr ? " of nothing" : ": " + ToHex(data, size));
  };
  return "command " + Show(package.cmd) + ", id " + Show(package.subDid) + " if " + Show(package.needInsertSubDid) +
         ", flags of " + buffer(package.flags, package.sizeFlags) + ", value of " +
         buffer(package.value, package.sizeValue);
}

bool IsSameNumber(double left, double right) {
  if (std::isnan(left) || std::isnan(right)) return std::isnan(left) && std::isnan(right);
  return left == right && std::signbit(left) == std::signbit(right);
}

namespace {

auto FieldsOf(const LogCapture::Line& l) { return std::tie(l.level, l.function, l.text); }
auto FieldsOf(const TavelReceiveInfo& i) { return std::tie(i.name, i.value); }
auto FieldsOf(const MorvixProtocolPosition_4_0& p) {
  return std::tie(p.byte_offset, p.bit_offset, p.unit, p.len, p.groupByteLength);
}
auto FieldsOf(const MorvixProtocolAttribute_4_0& a) {
  return std::tie(a.id, a.name, a.display_name, a.desc, a.type, a.data_type, a.position, a.uint_spec, a.enumList);
}
auto FieldsOf(const MorvixProtocolEntity_4_0& e) { return std::tie(e.id, e.name, e.display_name); }
auto FieldsOf(const MorvixProtocolElement_4_0& e) { return std::tie(e.attribute, e.invalid, e.type, e.data_type); }
auto FieldsOf(const MorvixProtocolResult_4_0& r) { return std::tie(r.outcome, r.raw); }

}  // namespace

}  // namespace support

using support::FieldsOf;

bool operator==(const LogCapture::Line& left, const LogCapture::Line& right) {
  return FieldsOf(left) == FieldsOf(right);
}
bool operator==(const TavelReceiveInfo& left, const TavelReceiveInfo& right) {
  return FieldsOf(left) == FieldsOf(right);
}
bool operator==(const MorvixProtocolPosition_4_0& left, const MorvixProtocolPosition_4_0& right) {
  return FieldsOf(left) == FieldsOf(right);
}
bool operator==(const MorvixProtocolUIntSpec_4_0& left, const MorvixProtocolUIntSpec_4_0& right) {
  return std::tie(left.min, left.max, left.step) == std::tie(right.min, right.max, right.step) &&
         support::IsSameNumber(left.ratio, right.ratio) && support::IsSameNumber(left.addition, right.addition);
}
bool operator==(const MorvixProtocolAttribute_4_0& left, const MorvixProtocolAttribute_4_0& right) {
  return FieldsOf(left) == FieldsOf(right);
}
bool operator==(const MorvixProtocolEntity_4_0& left, const MorvixProtocolEntity_4_0& right) {
  return FieldsOf(left) == FieldsOf(right);
}
bool operator==(const MorvixProtocolElement_4_0& left, const MorvixProtocolElement_4_0& right) {
  return FieldsOf(left) == FieldsOf(right);
}
bool operator==(const MorvixProtocolResult_4_0& left, const MorvixProtocolResult_4_0& right) {
  return FieldsOf(left) == FieldsOf(right);
}
