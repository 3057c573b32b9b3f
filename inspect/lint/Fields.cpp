// Each field's own place, and the length of the whole payload.

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

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
  std::string fix;
  const char* kind = "";  // before it
};

bool IsOtherThanOneBit(const Attribute& attribute) { return !IsInBits(attribute) || attribute.position.len != 1; }

// Whether the field begins above its group; the last attribute of a group gives it room.
bool IsAboveGroup(const Attribute& attribute) {
  return IsBitPacked(attribute) && IsInBits(attribute) && attribute.position.bit_offset >= GroupBits(attribute);
}

Fault AboveGroup(const Attribute& attribute) {
  const Position& position = attribute.position;
  const bool isTooHigh = GroupBits(attribute) == 0;
  return {rules::kMemberOutsideGroup, "bit_offset",
          fmt::format("begins at bit {}, but {}", position.bit_offset, GroupText(attribute)),
          isTooHigh ? "offsets count from the lowest bit of the group; none is so large"
                    : kEndGroup + NextByteHint(position)};
}

// All faults that apply.
std::vector<Fault> FaultsOf(const Attribute& attribute) {
  const Position& position = attribute.position;
  const bool isInBits = IsInBits(attribute);
  std::vector<Fault> faults;
  if (IsBool(attribute) && IsOtherThanOneBit(attribute)) {
    faults.push_back({rules::kBoolNotOneBit, isInBits ? "len" : "unit",
                      isInBits ? fmt::format("has {} bits", position.len) : "is in byte units",
                      "set 'unit' to 'bit' and 'len' to 1, or make it an enum", "the bool "});
  } else if (isInBits && IsNumber(attribute)) {
    faults.push_back({rules::kNumberInBits, "unit", "is in bit units",
                      "set 'unit' to 'byte' and 'len' to its bytes, or make it an enum", "the number "});
  } else if (isInBits && IsBinary(attribute)) {
    faults.push_back({rules::kBinaryInBits, "unit", "is in bit units", "set 'unit' to 'byte' and 'len' to its bytes",
                      "the binary "});
  } else if (position.len <= 0) {
    faults.push_back({rules::kEmptyField, "len", fmt::format("has the length {}", position.len), "give it a length"});
  }
  for (const auto& [member, offset] :
       {std::pair("byte_offset", position.byte_offset), std::pair("bit_offset", isInBits ? position.bit_offset : 0)}) {
    if (offset >= 0) continue;
    faults.push_back(
        {rules::kNegativeOffset, member, fmt::format("has the {} {}", member, offset), "offsets count from 0"});
  }
  if (!isInBits && IsBinary(attribute) && position.len > 65535) {
    faults.push_back({rules::kBinaryTooLong, "len", fmt::format("has {} bytes", position.len),
                      "shorten it; a payload has at most 16384 bytes"});
  }
  if (!isInBits && !IsBinary(attribute) && position.len > 8) {
    faults.push_back({rules::kNumberTooLong, "len", fmt::format("has {} bytes", position.len),
                      "use at most 8 bytes, or make it a binary"});
  }
  if (IsAboveGroup(attribute)) faults.push_back(AboveGroup(attribute));
  const int64_t bits = position.bit_offset % 8 + int64_t{position.len};
  if (isInBits && IsBitPacked(attribute) && bits > 64) {
    faults.push_back({rules::kFieldTooWide, "len",
                      fmt::format("and the bits below it in its last byte are {} bits", bits),
                      "use at most 64 bits, begun at a multiple of 8"});
  }
  if (faults.empty()) {
    faults.push_back({rules::kFieldOutsidePayload, "byte_offset", "does not lie in the payload",
                      std::string("correct its offsets; ") + kEndGroup});
  }
  return faults;
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
  const auto label = [&] { return entity.Label(field.element); };
  const auto add = [&](const Rule& rule, const char* member, const std::string& message, const std::string& effect,
                       const std::string& fix) {
    findings.AddOnce(rule, entity.At(field.element, {"position", member}), message, effect, fix);
  };
  const bool isWrongBool = IsBool(attribute) && IsOtherThanOneBit(attribute);
  if (isWrongBool || (field.bits.IsEmpty() && !ReachesOut(attribute))) {
    for (const Fault& fault : FaultsOf(attribute)) {
      add(fault.rule, fault.member, fmt::format("{}{} {}", fault.kind, label(), fault.text),
          EffectOfUnusable(entity, field.element), fault.fix);
    }
  } else if (ReachesOut(attribute)) {
    const std::string effect = field.bits.IsEmpty()
                                   ? EffectOfUnusable(entity, field.element)
                                   : fmt::format("it is looked for in {}, but its group begins with byte {}",
                                                 BytesText(field.bits), position.byte_offset);
    add(rules::kFieldBeforeGroup, "len",
        fmt::format("{} reaches up to bit {}, but {}", label(), int64_t{position.bit_offset} + position.len - 1,
                    GroupText(attribute)),
        effect, kEndGroup + NextByteHint(position));
  }
  if (isWrongBool) return;
  if (!field.bits.IsEmpty() && position.byte_offset < 0) {
    add(rules::kNegativeOffset, "byte_offset", fmt::format("{} has the byte_offset {}", label(), position.byte_offset),
        fmt::format("it is looked for in {}, in a group that begins before the payload", BytesText(field.bits)),
        "offsets count from 0");
  }
  if (!IsInBits(attribute) && !IsBitPacked(attribute) && position.bit_offset != 0) {
    add(rules::kBitOffsetUnused, "bit_offset",
        fmt::format("{} is in byte units and has the bit_offset {}", label(), position.bit_offset), "it is ignored",
        "set it to 0");
  }
}

// ---- The whole payload ----

// Bytes that nothing uses, more of them in one place than are used at all.
void LintGaps(const EntityModel& entity, Findings& findings) {
  constexpr uint64_t kHarmless = 16;  // bytes
  std::vector<const Field*> placed;
  for (const Field& field : entity.Reading().fields) {
    if (!field.bits.IsEmpty()) placed.push_back(&field);
  }
  std::stable_sort(placed.begin(), placed.end(),
                   [](const Field* left, const Field* right) { return left->bits.begin < right->bits.begin; });
  struct Gap {
    const Field* after;  // the field that follows it
    uint64_t first;
    uint64_t bytes;
  };
  std::vector<Gap> gaps;
  uint64_t end = 0;
  uint64_t used = 0;
  for (const Field* field : placed) {
    const BitRange bytes = field->bits.Bytes();
    if (bytes.begin > end + 8 * kHarmless) gaps.push_back({field, end / 8, (bytes.begin - end) / 8});
    if (bytes.end > end) used += (bytes.end - std::max(bytes.begin, end)) / 8;
    end = std::max(end, bytes.end);
  }
  for (const Gap& gap : gaps) {
    if (gap.bytes <= used) continue;
    findings.Add(rules::kLargeGap, entity.At(gap.after->element, {"position", "byte_offset"}),
                 fmt::format("{} lies in {}, and the {} bytes before it are not used", entity.Label(gap.after->element),
                             BytesText(gap.after->bits), gap.bytes),
                 fmt::format("every packet that reaches it carries them; only {} are used", Count(used, "byte")),
                 fmt::format("correct the byte_offset; byte {} is the first that is not used", gap.first));
  }
}

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

std::string NextByteHint(const Position& position) {
  if (position.unit != MorvixProtocolUnitBit_4_0 || position.bit_offset < 8) return "";
  const int32_t bytes = position.bit_offset / 8;
  const bool isLow = position.byte_offset <= INT32_MAX - bytes;
  if (!isLow) return "";
  return fmt::format("; if bit {} of {} is meant, write byte_offset {} and bit_offset {}", position.bit_offset % 8,
                     bytes == 1 ? "the next byte" : fmt::format("byte {}", position.byte_offset + bytes),
                     position.byte_offset + bytes, position.bit_offset % 8);
}

void LintFields(const EntityModel& entity, Findings& findings) {
  for (const Direction* direction : {&entity.Reading(), &entity.Writing()}) {
    for (const Field& field : direction->fields) LintField(entity, field, findings);
  }
  LintGaps(entity, findings);
  LintLength(entity, findings);
  LintFlags(entity, findings);
}

}  // namespace morvix::inspect
