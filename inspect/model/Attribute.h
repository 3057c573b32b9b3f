// Names, kinds and value ranges of attribute records, and the lines that the module logs about them.

#ifndef MORVIX_INSPECT_MODEL_ATTRIBUTE_H
#define MORVIX_INSPECT_MODEL_ATTRIBUTE_H

#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInspection_v4.0.h"

namespace morvix::inspect {

using Attribute = MorvixProtocolAttribute_4_0;
using Position = MorvixProtocolPosition_4_0;
using Scaling = MorvixProtocolUIntSpec_4_0;
using Group = MorvixProtocolType_4_0;
using DataType = MorvixProtocolDataType_4_0;
using Result = MorvixProtocolResult_4_0;

constexpr int kWritableGroup = MorvixProtocolTypeStatusWritable_4_0;
constexpr int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                           MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;

// Only for values that the parser produces.
const char* GroupName(Group group);           // "writable", "read-only", "alert", "fault"
const char* DataTypeName(DataType dataType);  // "bool", "enum", "binary", "uint8" ...
const char* GroupColor(Group group);          // SGR parameters

bool IsWritable(const Attribute& attribute);
bool IsAlertOrFault(const Attribute& attribute);
bool IsBool(const Attribute& attribute);
bool IsEnum(const Attribute& attribute);
bool IsBinary(const Attribute& attribute);
bool IsNumber(const Attribute& attribute);
bool IsBitPacked(const Attribute& attribute);  // a member of bit groups: bool or enum
bool IsInBits(const Attribute& attribute);     // by its unit

// Whether the attribute is a number whose scaling accepts values.
bool IsScaled(const Attribute& attribute);

// The key of the attribute's value in the decoded document.
const std::string& DocumentKey(const Attribute& attribute);

// A raw value of a number in user units, as decoding prints it; empty when the scaling refuses it.
std::string UserText(const Attribute& number, uint64_t raw);

// The min and max in the same form.
std::string MinText(const Attribute& number);
std::string MaxText(const Attribute& number);

// "expected 0 to 2" of an enum's index, or "it has no items".
std::string ExpectedIndex(const Attribute& attribute);

// The line that the module logs when encoding ends at an attribute with this result; empty when encoding continues.
std::string EncodeLine(const Attribute& attribute, const Result& result);

// The line that the module logs when decoding ends at an attribute with this result; empty when decoding continues.
std::string DecodeLine(const Attribute& attribute, const Result& result);

// The keywords of the member "type", "data_type" or "unit".
const std::vector<std::string>& KeywordsOf(const std::string& member);

}  // namespace morvix::inspect

#endif
