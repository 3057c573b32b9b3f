// Attribute records in plain words: their groups, data types and kinds, and what the module logs about them.

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

// Of what the parser recognised.
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

// A number whose scaling accepts values.
bool IsScaled(const Attribute& attribute);

// The key of the attribute's value in the decoded document.
const std::string& DocumentKey(const Attribute& attribute);

// How decoding prints a raw value of a number, in user units; empty where the scaling refuses it.
std::string UserText(const Attribute& number, uint64_t raw);

// The same of its min and max.
std::string MinText(const Attribute& number);
std::string MaxText(const Attribute& number);

// "expected 0 to 2" of an enum's index, with a word on the module's line, whose range ends with the number of items; or
// "it has no items".
std::string ExpectedIndex(const Attribute& attribute);

// The line with which encoding ends at an attribute with this result; empty where it goes on.
std::string EncodeLine(const Attribute& attribute, const Result& result);

// The line with which decoding ends at an attribute with this result; empty where it goes on.
std::string DecodeLine(const Attribute& attribute, const Result& result);

// The keywords of the member "type", "data_type" or "unit".
const std::vector<std::string>& KeywordsOf(const std::string& member);

}  // namespace morvix::inspect

#endif
