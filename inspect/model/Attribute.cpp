#include "inspect/model/Attribute.h"

#include <fmt/format.h>

namespace morvix::inspect {

const char* GroupName(Group group) {
  switch (group) {
    case MorvixProtocolTypeStatusWritable_4_0:
      return "writable";
    case MorvixProtocolTypeStatusReadonly_4_0:
      return "read-only";
    case MorvixProtocolTypeAlert_4_0:
      return "alert";
    case MorvixProtocolTypeFault_4_0:
      return "fault";
    default:
      return "unknown";
  }
}

const char* DataTypeName(DataType dataType) {
  static const char* const kNames[] = {"unknown", "bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  return dataType <= MorvixProtocolDataTypeUInt64_4_0 ? kNames[dataType] : kNames[0];
}

const char* GroupColor(Group group) {
  switch (group) {
    case MorvixProtocolTypeStatusWritable_4_0:
      return "32";
    case MorvixProtocolTypeStatusReadonly_4_0:
      return "36";
    case MorvixProtocolTypeAlert_4_0:
      return "33";
    default:
      return "31";
  }
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

bool IsScaled(const Attribute& attribute) {
  const Scaling& scaling = attribute.uint_spec;
  return !UserText(attribute, static_cast<uint64_t>(scaling.min)).empty() ||
         !UserText(attribute, static_cast<uint64_t>(scaling.max)).empty();
}

const std::string& DocumentKey(const Attribute& attribute) {
  return IsAlertOrFault(attribute) ? attribute.display_name : attribute.name;
}

std::string UserText(const Attribute& number, uint64_t raw) {
  std::string text;
  static_cast<void>(ProtocolRawToText_4_0(number, raw, text));
  return text;
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
  const bool isFatal =
      result.outcome == MorvixProtocolOutcomeUnreadable_4_0 && !IsNumber(attribute) && !IsEnum(attribute);
  return isFatal ? "Decode value is invalid." : "";
}

const std::vector<std::string>& KeywordsOf(const std::string& member) {
  static const std::vector<std::string> kTypes = {"status_writable", "status_readonly", "alert", "fault"};
  static const std::vector<std::string> kDataTypes = {"bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  static const std::vector<std::string> kUnits = {"byte", "bit"};
  return member == "type" ? kTypes : member == "data_type" ? kDataTypes : kUnits;
}

}  // namespace morvix::inspect
