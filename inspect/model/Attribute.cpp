#include "inspect/model/Attribute.h"

#include <fmt/format.h>

namespace morvix::inspect {

const char* GroupName(Group group) {
  if (group == MorvixProtocolTypeStatusWritable_4_0) return "writable";
  if (group == MorvixProtocolTypeStatusReadonly_4_0) return "read-only";
  return group == MorvixProtocolTypeAlert_4_0 ? "alert" : "fault";
}

const char* DataTypeName(DataType dataType) {
  return KeywordsOf("data_type").at(dataType - MorvixProtocolDataTypeBool_4_0).c_str();
}

const char* GroupColor(Group group) {
  if (group == MorvixProtocolTypeStatusWritable_4_0) return "32";
  if (group == MorvixProtocolTypeStatusReadonly_4_0) return "36";
  return group == MorvixProtocolTypeAlert_4_0 ? "33" : "31";
}

bool IsWritable(const Attribute& attribute) { return attribute.type == MorvixProtocolTypeStatusWritable_4_0; }

bool IsAlertOrFault(const Attribute& attribute) {
  return attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
}

bool IsBool(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeBool_4_0; }

bool IsEnum(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeEnum_4_0; }

bool IsBinary(const Attribute& attribute) { return attribute.data_type == MorvixProtocolDataTypeBinary_4_0; }

bool IsNumber(const Attribute& attribute) { return ProtocolDataTypeIsUInt(attribute.data_type); }

bool IsBitPacked(const Attribute& attribute) { return IsBool(attribute) || IsEnum(attribute); }

bool IsInBits(const Attribute& attribute) { return attribute.position.unit == MorvixProtocolUnitBit_4_0; }

bool IsScaled(const Attribute& attribute) { return !MinText(attribute).empty() || !MaxText(attribute).empty(); }

const std::string& DocumentKey(const Attribute& attribute) {
  return IsAlertOrFault(attribute) ? attribute.display_name : attribute.name;
}

std::string UserText(const Attribute& number, uint64_t raw) {
  std::string text;
  static_cast<void>(ProtocolRawToText_4_0(number, raw, text));
  return text;
}

std::string MinText(const Attribute& number) { return UserText(number, static_cast<uint64_t>(number.uint_spec.min)); }

std::string MaxText(const Attribute& number) { return UserText(number, static_cast<uint64_t>(number.uint_spec.max)); }

std::string ExpectedIndex(const Attribute& attribute) {
  const size_t items = attribute.enumList.size();
  if (items == 0) return "it has no items";
  return fmt::format("expected 0 to {}; the line's {} counts the items", items - 1, items);
}

namespace {

// The upper bound that is logged is the number of items.
std::string InvalidEnumLine(const Attribute& attribute, const Result& result) {
  return fmt::format("Invalid enum value: {}, range: 0-{}", static_cast<int>(result.raw),
                     static_cast<int>(attribute.enumList.size()));
}

}  // namespace

std::string EncodeLine(const Attribute& attribute, const Result& result) {
  switch (result.outcome) {
    case MorvixProtocolOutcomeRefusedByItems_4_0:
      return InvalidEnumLine(attribute, result);
    case MorvixProtocolOutcomeRefusedByScaling_4_0:
      return "Validate uint value failed.";
    case MorvixProtocolOutcomeRefusedByPlace_4_0:
      return fmt::format("Write {} value failed.", IsNumber(attribute) ? "uint" : DataTypeName(attribute.data_type));
    default:
      return "";
  }
}

std::string DecodeLine(const Attribute& attribute, const Result& result) {
  if (result.outcome == MorvixProtocolOutcomeRefusedByItems_4_0) return InvalidEnumLine(attribute, result);
  if (result.outcome != MorvixProtocolOutcomeUnreadable_4_0 || IsNumber(attribute) || IsEnum(attribute)) return "";
  return "Decode value is invalid.";
}

const std::vector<std::string>& KeywordsOf(const std::string& member) {
  static const std::vector<std::string> kTypes = {"status_writable", "status_readonly", "alert", "fault"};
  static const std::vector<std::string> kDataTypes = {"bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  static const std::vector<std::string> kUnits = {"byte", "bit"};
  return member == "type" ? kTypes : member == "data_type" ? kDataTypes : kUnits;
}

}  // namespace morvix::inspect
