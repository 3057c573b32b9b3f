// The members of configuration objects: misspelt, unused, misread.

#include "inspect/lint/Members.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

void LintUnknown(const Spot& object, const Names& known, const char* kind, Findings& findings) {
  if (!object.value->isObject()) return;
  for (auto it = object.value->begin(); it != object.value->end(); ++it) {
    const std::string name = it.name();
    if (Contains(known, name)) continue;
    const std::string similar = SimilarName(name, known);
    std::string fix = "remove it";
    if (!similar.empty()) {
      fix = object.value->isMember(similar) ? "remove it; " + Quoted(similar) + " is there already"
                                            : "did you mean " + Quoted(similar) + "?";
    } else if (Contains(PositionMembers(), name)) {
      fix = "move it into 'position'";
    } else if (Contains(ScalingMembers(), name)) {
      fix = "move it into 'uint_spec'";
    }
    findings.Add(rules::kUnknownMember, {&*it, object.pointer + json::PointerToken(name)},
                 fmt::format("{} has no member {}", kind, Quoted(name)), "it is ignored", fix);
  }
}

// What a text says that is plainly one number; false for other texts.
bool PlainNumber(const std::string& text, double& number) {
  const char* begin = text.c_str();
  char* end = nullptr;
  number = std::strtod(begin, &end);
  if (end == begin) return false;
  while (std::isspace(static_cast<unsigned char>(*end)) != 0) ++end;
  return end == begin + text.size();
}

// The number as a human reads it; false when a human would not read one.
bool WrittenNumber(const Json::Value& value, double& number) {
  if (value.isString()) return PlainNumber(value.asString(), number);
  if (!value.isNumeric() || value.isBool()) return false;
  number = value.asDouble();
  return true;
}

// How the module reads a member; false when it does not take it.
bool ReadNumber(const Json::Value& object, const std::string& member, double& number, std::string& text) {
  const char* key = member.c_str();
  int32_t integer = 0;
  int64_t limit = 0;
  if (member == "ratio" || member == "addition") {
    number = 0;
    if (!ProtocolGetAttrDouble_4_0(object, key, number)) return false;
    text = ShortestText(number);
  } else if (member == "min" || member == "max") {
    if (object[member].isArray() || object[member].isObject()) return false;
    if (!ProtocolGetAttrInteger64_4_0(object, key, limit)) return false;
    number = static_cast<double>(limit);
    text = std::to_string(limit);
  } else {
    if (!ProtocolGetAttrInteger_4_0(object, key, integer)) return false;
    number = integer;
    text = std::to_string(integer);
  }
  return true;
}

void LintMisread(const Spot& object, const Names& numbers, Findings& findings) {
  for (const std::string& member : numbers) {
    if (!object.value->isObject() || !object.value->isMember(member)) continue;
    const Json::Value& value = (*object.value)[member];
    double written = 0;
    double read = 0;
    std::string text;
    if (!ReadNumber(*object.value, member, read, text)) continue;
    const bool isWritten = WrittenNumber(value, written);
    if (isWritten && (written == read || (std::isnan(written) && std::isnan(read)))) continue;
    findings.Add(rules::kMisreadNumber, {&value, object.pointer + json::PointerToken(member)},
                 fmt::format("{} is {}, which is read as {}", Quoted(member), Described(value), text),
                 fmt::format("the number {} is used", text), "write the number that is meant, as a plain JSON number");
  }
}

void LintUnused(const EntityModel& entity, size_t index, Findings& findings) {
  const Element& element = entity.Elements()[index];
  if (element.dataType == MorvixProtocolDataTypeUnknown_4_0) return;
  const auto add = [&](const char* member) {
    if (!element.json->isMember(member)) return;
    findings.Add(
        rules::kUnusedMember, entity.At(index, {member}),
        fmt::format("the {} {} does not use {}", DataTypeName(element.dataType), entity.Label(index), Quoted(member)),
        "it is ignored", "remove it, or correct the data_type");
  };
  if (!ProtocolDataTypeIsUInt(element.dataType)) add("uint_spec");
  if (element.dataType != MorvixProtocolDataTypeEnum_4_0) add("enum");
}

void LintAttributeMembers(const EntityModel& entity, size_t index, Findings& findings) {
  const Spot attribute = entity.At(index);
  LintUnknown(attribute, AttributeMembers(), "an attribute", findings);
  LintMisread(attribute, {"id"}, findings);
  LintUnused(entity, index, findings);
  const Json::Value& position = (*attribute.value)["position"];
  const Json::Value& uintSpec = (*attribute.value)["uint_spec"];
  if (position.isObject()) {
    const Spot spot{&position, attribute.pointer + "/position"};
    LintUnknown(spot, PositionMembers(), "a position", findings);
    LintMisread(spot, {"byte_offset", "bit_offset", "len"}, findings);
    if (position["unit"].isString() && *position["unit"].asCString() == '\0') {
      findings.Add(rules::kEmptyUnit, entity.At(index, {"position", "unit"}),
                   entity.Label(index) + " has an empty unit", "it counts as 'byte'", "write 'byte'");
    }
  }
  if (uintSpec.isObject() && ProtocolDataTypeIsUInt(entity.Elements()[index].dataType)) {
    const Spot spot{&uintSpec, attribute.pointer + "/uint_spec"};
    LintUnknown(spot, ScalingMembers(), "a uint_spec", findings);
    LintMisread(spot, ScalingMembers(), findings);
  }
}

}  // namespace

const Names& AttributeMembers() {
  static const Names names = {"id",        "name",     "display_name", "desc", "type",
                              "data_type", "position", "uint_spec",    "enum"};
  return names;
}

const Names& PositionMembers() {
  static const Names names = {"byte_offset", "bit_offset", "unit", "len"};
  return names;
}

const Names& ScalingMembers() {
  static const Names names = {"min", "max", "ratio", "addition"};
  return names;
}

bool Contains(const Names& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::string Described(const Json::Value& value) {
  switch (value.type()) {
    case Json::nullValue:
      return "null";
    case Json::stringValue:
      return "the text " + Quoted(value.asString());
    case Json::booleanValue:
      return value.asBool() ? "true" : "false";
    case Json::arrayValue:
      return value.empty() ? "an empty array" : "an array";
    case Json::objectValue:
      return "an object";
    case Json::realValue: {
      const std::string text = ShortestText(value.asDouble());
      const bool looksWhole = text.find_first_not_of("-0123456789") == std::string::npos;
      return "the real number " + text + (looksWhole ? ".0" : "");
    }
    default:
      return "the number " + value.asString();
  }
}

void LintEntityMembers(const Json::Value& entity, const std::string& pointer, Findings& findings) {
  static const Names kEntityMembers = {"id", "name", "display_name", "attrs"};
  LintUnknown({&entity, pointer}, kEntityMembers, "an entity", findings);
  LintMisread({&entity, pointer}, {"id"}, findings);
}

void LintMembers(const EntityModel& entity, Findings& findings) {
  LintEntityMembers(entity.Json(), entity.Pointer(), findings);
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    if (entity.Elements()[i].json->isObject()) LintAttributeMembers(entity, i, findings);
  }
}

}  // namespace morvix::inspect
