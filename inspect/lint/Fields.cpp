// Each field's own place, and the length of the whole payload.

#include <fmt/format.h>

#include <algorithm>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

int64_t GroupBits(const Attribute& attribute) { return static_cast<int64_t>(attribute.position.groupByteLength) * 8; }

std::string GroupText(const Attribute& attribute) {
  const std::string size = "its group has " + Count(attribute.position.groupByteLength, "byte");
  return GroupBits(attribute) == 0 ? size : fmt::format("{}, bits 0 to {}", size, GroupBits(attribute) - 1);
}

constexpr char kEndGroup[] =
    "list the attribute with the group's highest bit last in its group, and a number or binary of the same type after "
    "it if another group follows";

// Why the module cannot use a field.
struct Fault {
  const Rule& rule;
  const char* member;  // of the position
  std::string text;    // after the attribute's label
  const char* fix;
  const char* kind = "";  // before it
};

bool IsOtherThanOneBit(const Attribute& attribute) { return !IsInBits(attribute) || attribute.position.len != 1; }

// The first fault that applies.
Fault FaultOf(const Attribute& attribute) {
  const Position& position = attribute.position;
  const bool isInBits = IsInBits(attribute);
  if (IsBool(attribute) && IsOtherThanOneBit(attribute)) {
    return {rules::kBoolNotOneBit, isInBits ? "len" : "unit",
            isInBits ? fmt::format("has {} bits", position.len) : "is in byte units",
            "set 'unit' to 'bit' and 'len' to 1, or make it an enum", "the bool "};
  }
  if (isInBits && IsNumber(attribute)) {
    return {rules::kNumberInBits, "unit", "is in bit units",
            "set 'unit' to 'byte' and 'len' to its bytes, or make it an enum", "the number "};
  }
  if (isInBits && IsBinary(attribute)) {
    return {rules::kBinaryInBits, "unit", "is in bit units", "set 'unit' to 'byte' and 'len' to its bytes",
            "the binary "};
  }
  if (position.len <= 0) {
    return {rules::kEmptyField, "len", fmt::format("has the length {}", position.len), "give it a length"};
  }
  if (position.byte_offset < 0 || (isInBits && position.bit_offset < 0)) {
    const bool isByte = position.byte_offset < 0;
    const char* member = isByte ? "byte_offset" : "bit_offset";
    return {rules::kNegativeOffset, member,
            fmt::format("has the {} {}", member, isByte ? position.byte_offset : position.bit_offset),
            "offsets count from 0"};
  }
  if (!isInBits && IsBinary(attribute) && position.len > 65535) {
    return {rules::kBinaryTooLong, "len", fmt::format("has {} bytes", position.len),
            "shorten it; a payload has at most 16384 bytes"};
  }
  if (!isInBits && !IsBinary(attribute) && position.len > 8) {
    return {rules::kNumberTooLong, "len", fmt::format("has {} bytes", position.len),
            "use at most 8 bytes, or make it a binary"};
  }
  if (isInBits && position.bit_offset >= GroupBits(attribute)) {
    return {rules::kMemberOutsideGroup, "bit_offset",
            fmt::format("begins at bit {}, but {}", position.bit_offset, GroupText(attribute)),
            GroupBits(attribute) == 0 ? "offsets count from the lowest bit of the group; none is so large" : kEndGroup};
  }
  const int64_t bits = position.bit_offset % 8 + int64_t{position.len};
  if (isInBits && bits > 64) {
    return {rules::kFieldTooWide, "len", fmt::format("and the bits below it in its last byte are {} bits", bits),
            "use at most 64 bits, begun at a multiple of 8"};
  }
  static const std::string kOffsets = std::string("correct its offsets; ") + kEndGroup;
  return {rules::kFieldOutsidePayload, "byte_offset", "does not lie in the payload", kOffsets.c_str()};
}

// Whether a bit field begins in its group and ends above it.
bool ReachesOut(const Attribute& attribute) {
  const Position& position = attribute.position;
  return IsInBits(attribute) && IsBitPacked(attribute) && position.len >= 1 && position.len <= 64 &&
         position.bit_offset >= 0 && position.bit_offset < GroupBits(attribute) &&
         int64_t{position.bit_offset} + position.len > GroupBits(attribute);
}

void LintField(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& attribute = *field.attribute;
  const Position& position = attribute.position;
  const std::string label = entity.Label(field.element);
  const auto add = [&](const Rule& rule, const char* member, const std::string& message, const std::string& effect,
                       const char* fix) {
    findings.AddOnce(rule, entity.At(field.element, {"position", member}), message, effect, fix);
  };
  const bool isWrongBool = IsBool(attribute) && IsOtherThanOneBit(attribute);
  if (isWrongBool || (field.bits.IsEmpty() && !ReachesOut(attribute))) {
    const Fault fault = FaultOf(attribute);
    add(fault.rule, fault.member, fmt::format("{}{} {}", fault.kind, label, fault.text),
        EffectOfUnusable(entity, field.element), fault.fix);
  } else if (ReachesOut(attribute)) {
    const std::string effect = field.bits.IsEmpty()
                                   ? EffectOfUnusable(entity, field.element)
                                   : fmt::format("it is looked for in {}, but its group begins with byte {}",
                                                 BytesText(field.bits), position.byte_offset);
    add(rules::kFieldBeforeGroup, "len",
        fmt::format("{} reaches up to bit {}, but {}", label, int64_t{position.bit_offset} + position.len - 1,
                    GroupText(attribute)),
        effect, kEndGroup);
  }
  if (isWrongBool) return;
  if (!field.bits.IsEmpty() && position.byte_offset < 0) {
    add(rules::kNegativeOffset, "byte_offset", fmt::format("{} has the byte_offset {}", label, position.byte_offset),
        fmt::format("it is looked for in {}, in a group that begins before the payload", BytesText(field.bits)),
        "offsets count from 0");
  }
  if (!IsInBits(attribute) && !IsBitPacked(attribute) && position.bit_offset != 0) {
    add(rules::kBitOffsetUnused, "bit_offset",
        fmt::format("{} is in byte units and has the bit_offset {}", label, position.bit_offset), "it is ignored",
        "set it to 0");
  }
}

// ---- The whole payload ----

void LintLength(const EntityModel& entity, Findings& findings) {
  const bool isSent = entity.Writing().payloadBytes <= MorvixProtocolMaxPayloadBytes_4_0;
  const bool isReceived = entity.Reading().payloadBytes <= MorvixProtocolMaxPayloadBytes_4_0;
  if (isSent && isReceived) return;
  const Direction& tooLong = isReceived ? entity.Writing() : entity.Reading();
  const auto furthest = std::max_element(tooLong.fields.begin(), tooLong.fields.end(),
                                         [](const Field& a, const Field& b) { return a.bits.end < b.bits.end; });
  std::vector<std::string> effects;
  if (!isSent) effects.emplace_back("no write can be packed: ProtocolPackPackage_4_0 gives 0");
  if (!isReceived) effects.emplace_back("no whole response can be received: ProtocolUnpackPackage_4_0 gives false");
  findings.Add(
      rules::kPayloadTooLong,
      furthest->bits.IsEmpty() ? entity.At().Member("attrs") : entity.At(furthest->element, {"position"}),
      fmt::format("the payload has {} bytes", tooLong.payloadBytes), fmt::format("{}", fmt::join(effects, "; ")),
      fmt::format("move the fields together; a payload has at most {} bytes", MorvixProtocolMaxPayloadBytes_4_0));
}

void LintFlags(const EntityModel& entity, Findings& findings) {
  const size_t flagBytes = FlagBytes(entity.Writing());
  if (flagBytes <= MorvixProtocolMaxFlagBytes_4_0) return;
  findings.Add(
      rules::kFlagsTooLong, entity.At().Member("attrs"),
      fmt::format("{} need {} flag bytes", Count(entity.Writing().fields.size(), "writable attribute"), flagBytes),
      "no write can be packed: ProtocolPackPackage_4_0 gives 0",
      fmt::format("use at most {} writable attributes, or split the entity", 8 * MorvixProtocolMaxFlagBytes_4_0));
}

}  // namespace

void LintFields(const EntityModel& entity, Findings& findings) {
  for (const Direction* direction : {&entity.Reading(), &entity.Writing()}) {
    for (const Field& field : direction->fields) LintField(entity, field, findings);
  }
  LintLength(entity, findings);
  LintFlags(entity, findings);
}

}  // namespace morvix::inspect
