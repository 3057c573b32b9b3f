// The members of configuration objects: misspelt, unused, misread.

#include "inspect/lint/Members.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <utility>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

void LintUnknown(const Spot& object, const Names& known, const char* kind, Findings& findings) {
  if (!object.value->isObject()) return;
  for (auto member = object.value->begin(); member != object.value->end(); ++member) {
    const std::string name = member.name();
    const bool isNote = name.compare(0, 2, "x-") == 0 || name.compare(0, 1, "$") == 0;  // of the author's own
    if (isNote || Contains(known, name)) continue;
    const std::string similar = SimilarName(name, known);
    std::string fix = "remove it";
    if (!similar.empty()) {
      fix = object.value->isMember(similar) ? "remove it; " + Quoted(similar) + " is there already"
                                            : "did you mean " + Quoted(similar) + "?";
    } else if (Contains(known, "attrs") && !object.value->isMember("attrs") &&
               MeantArray(*object.value, "attrs") == name) {
      fix = "did you mean 'attrs'?";
    } else if (Contains(PositionMembers(), name)) {
      fix = "move it into 'position'";
    } else if (Contains(ScalingMembers(), name)) {
      fix = "move it into 'uint_spec'";
    }
    findings.Add(rules::kUnknownMember, object.Member(name), fmt::format("{} has no member {}", kind, Quoted(name)),
                 "it is ignored", fix);
  }
}

// The number as a human reads it; nothing when a human would not see a number.
std::optional<double> WrittenNumber(const Json::Value& value) {
  if (value.isNumeric() && !value.isBool()) return value.asDouble();
  if (!value.isString()) return std::nullopt;
  const std::string text = value.asString();
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  const bool isNumber =
      end != text.c_str() && std::all_of(static_cast<const char*>(end), text.c_str() + text.size(), IsBlank);
  return isNumber ? std::optional<double>(number) : std::nullopt;
}

// The number that the module reads from a member, which may be a string; nothing when it rejects the member.
std::optional<std::pair<double, std::string>> ReadNumber(const Json::Value& object, const std::string& member) {
  if (member == "ratio" || member == "addition") {
    double factor = 0;
    if (!ProtocolGetAttrDouble_4_0(object, member.c_str(), factor)) return std::nullopt;
    return {{factor, ShortestText(factor)}};
  }
  if (member == "min" || member == "max") {
    int64_t limit = 0;
    const bool isThrowing = object[member].isArray() || object[member].isObject();
    if (isThrowing || !ProtocolGetAttrInteger64_4_0(object, member.c_str(), limit)) return std::nullopt;
    return {{static_cast<double>(limit), std::to_string(limit)}};
  }
  int32_t integer = 0;
  if (!ProtocolGetAttrInteger_4_0(object, member.c_str(), integer)) return std::nullopt;
  return {{integer, std::to_string(integer)}};
}

void LintMisread(const Spot& object, const Names& numbers, Findings& findings) {
  for (const std::string& member : numbers) {
    const Json::Value* found =
        object.value->isObject() ? object.value->find(member.data(), member.data() + member.size()) : nullptr;
    if (found == nullptr) continue;
    const Json::Value& value = *found;
    if (value.type() == Json::intValue && value.isInt()) continue;  // what most are, read as it is by every reader
    const auto read = ReadNumber(*object.value, member);
    const auto written = WrittenNumber(value);
    if (!read) continue;
    const auto& [number, text] = *read;
    if (written && (*written == number || (std::isnan(*written) && std::isnan(number)))) continue;
    findings.Add(rules::kMisreadNumber, object.Member(member),
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

std::string Described(const Json::Value& value) {
  switch (value.type()) {
    case Json::nullValue:
      return "null";
    case Json::stringValue:
      return "the string " + Quoted(value.asString());
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

void LintEntityMembers(const Spot& entity, Findings& findings) {
  LintUnknown(entity, {"id", "name", "display_name", "attrs"}, "an entity", findings);
  LintMisread(entity, {"id"}, findings);
}

void LintAttributeMembers(const EntityModel& entity, Findings& findings) {
  static const Names kId = {"id"};
  static const Names kPlaceNumbers = {"byte_offset", "bit_offset", "len"};
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    const Spot attribute = entity.At(i);
    if (!attribute.value->isObject()) continue;
    LintUnknown(attribute, AttributeMembers(), "an attribute", findings);
    LintMisread(attribute, kId, findings);
    LintUnused(entity, i, findings);
    const Spot place = attribute.Member("position");
    if (place.value != attribute.value && place.value->isObject()) {
      const Json::Value& position = *place.value;
      LintUnknown(place, PositionMembers(), "a position", findings);
      LintMisread(place, kPlaceNumbers, findings);
      if (position["unit"].isString() && *position["unit"].asCString() == '\0') {
        findings.Add(rules::kEmptyUnit, entity.At(i, {"position", "unit"}), entity.Label(i) + " has an empty unit",
                     "it counts as 'byte'", "write 'byte'");
      }
    }
    if (!ProtocolDataTypeIsUInt(entity.Elements()[i].dataType)) continue;
    const Spot scaling = attribute.Member("uint_spec");
    if (scaling.value != attribute.value && scaling.value->isObject()) {
      LintUnknown(scaling, ScalingMembers(), "a uint_spec", findings);
      LintMisread(scaling, ScalingMembers(), findings);
    }
  }
}

}  // namespace morvix::inspect
