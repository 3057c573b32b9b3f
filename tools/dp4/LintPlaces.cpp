// Where fields lie in the payload: whether they can be used, what they share, and whom writing them disturbs.

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "LintCoverage.h"
#include "LintModel.h"
#include "Packets.h"

namespace dp4 {

namespace {

// The attributes of a list with the places that the module gives them.
struct Layout {
  const std::vector<Attribute>& attributes;
  size_t payloadLength;
  bool isInMemory;
  std::vector<BitRange> ranges;
};

Layout ReadingOf(const LintEntity& entity) {
  Layout layout{entity.all, entity.readLength, entity.isReadInMemory, {}};
  for (const Attribute& field : entity.all) layout.ranges.push_back(Locate(field, entity.readLength));
  return layout;
}

// A group that is as long as on reading lies where it did, unless the shorter payload cuts it off.
Layout WritingOf(const LintEntity& entity, const Layout& reading) {
  Layout layout{entity.writable, entity.writeLength, entity.isWriteInMemory, {}};
  for (const Attribute& field : entity.writable) {
    const Attribute* read = entity.ReadRecord(static_cast<size_t>(field.id));
    const BitRange known = read == nullptr || read->position.groupByteLength != field.position.groupByteLength
                               ? BitRange()
                               : reading.ranges[static_cast<size_t>(read - entity.all.data())];
    const bool isKnown = !known.IsEmpty() && known.EndByte() <= entity.writeLength;
    layout.ranges.push_back(isKnown ? known : Locate(field, entity.writeLength));
  }
  return layout;
}

// ---- One field ----

int64_t GroupBits(const Attribute& field) { return static_cast<int64_t>(field.position.groupByteLength) * 8; }

std::string GroupText(const Attribute& field) {
  return "its group has " + Count(field.position.groupByteLength, "byte") +
         (GroupBits(field) == 0 ? "" : ", bits 0 to " + std::to_string(GroupBits(field) - 1));
}

void LintBool(const LintEntity& entity, const Attribute& field, Findings& findings) {
  const char* member = IsInBits(field) ? "len" : "unit";
  const std::string fault =
      IsInBits(field) ? " has " + std::to_string(field.position.len) + " bits" : " is in byte units";
  findings.AddOnce(RuleId::kBoolNotOneBit, entity.At(field, {"position", member}),
                   "the bool " + entity.Label(field) + fault, EffectOfUnusable(entity, static_cast<size_t>(field.id)),
                   "set 'unit' to 'bit' and 'len' to 1, or make it an enum");
}

const char kEndGroup[] =
    "list the attribute with the group's highest bit last in its group, and a number or binary of the same type behind "
    "it if another group follows";

// For a field that is not a bool and that the module cannot use: the first of the reasons.
void LintUnusableField(const LintEntity& entity, const Attribute& field, Findings& findings) {
  const auto element = static_cast<size_t>(field.id);
  const Position& position = field.position;
  const std::string label = entity.Label(element);
  const auto add = [&](RuleId rule, const char* member, const std::string& message, const std::string& mend) {
    findings.AddOnce(rule, entity.At(element, {"position", member}), message, EffectOfUnusable(entity, element), mend);
  };
  const bool isBinary = field.data_type == MorvixProtocolDataTypeBinary_4_0;
  if (IsInBits(field) && IsNumber(field)) {
    return add(RuleId::kNumberInBits, "unit", "the number " + label + " is in bit units",
               "set 'unit' to 'byte' and 'len' to its bytes, or make it an enum");
  }
  if (IsInBits(field) && isBinary) {
    return add(RuleId::kBinaryInBits, "unit", "the binary " + label + " is in bit units",
               "set 'unit' to 'byte' and 'len' to its bytes");
  }
  if (position.len <= 0) {
    return add(RuleId::kEmptyField, "len", label + " has the length " + std::to_string(position.len),
               "give it a length");
  }
  if (position.byte_offset < 0 || (IsInBits(field) && position.bit_offset < 0)) {
    const char* member = position.byte_offset < 0 ? "byte_offset" : "bit_offset";
    const int32_t offset = position.byte_offset < 0 ? position.byte_offset : position.bit_offset;
    return add(RuleId::kNegativeOffset, member, label + " has the " + member + " " + std::to_string(offset),
               "offsets count from 0");
  }
  if (!IsInBits(field) && isBinary && position.len > 65535) {
    return add(RuleId::kBinaryTooLong, "len", label + " has " + std::to_string(position.len) + " bytes",
               "shorten it; a payload has at most 16384 bytes");
  }
  if (!IsInBits(field) && !isBinary && position.len > 8) {
    return add(RuleId::kNumberTooLong, "len", label + " has " + std::to_string(position.len) + " bytes",
               "use at most 8 bytes, or make it a binary");
  }
  if (IsInBits(field) && position.bit_offset >= GroupBits(field)) {
    return add(RuleId::kMemberOutsideGroup, "bit_offset",
               label + " begins at bit " + std::to_string(position.bit_offset) + ", but " + GroupText(field),
               GroupBits(field) == 0 ? "offsets count from the lowest bit of the group; none is so large" : kEndGroup);
  }
  if (IsInBits(field) && position.bit_offset % 8 + int64_t{position.len} > 64) {
    return add(RuleId::kFieldTooWide, "len",
               label + " and the bits below it in its last byte are " +
                   std::to_string(position.bit_offset % 8 + int64_t{position.len}) + " bits",
               "use at most 64 bits, begun at a multiple of 8");
  }
  add(RuleId::kFieldOutsidePayload, "byte_offset", label + " does not lie in the payload",
      std::string("correct its offsets; ") + kEndGroup);
}

// Whether a bit field begins in its group and ends above it.
bool ReachesOut(const Attribute& field) {
  const Position& position = field.position;
  return IsInBits(field) && IsBitPacked(field) && position.len >= 1 && position.len <= 64 && position.bit_offset >= 0 &&
         position.bit_offset < GroupBits(field) && int64_t{position.bit_offset} + position.len > GroupBits(field);
}

void LintReach(const LintEntity& entity, const Attribute& field, const BitRange& range, Findings& findings) {
  const int64_t end = int64_t{field.position.bit_offset} + field.position.len;
  const std::string effect = range.IsEmpty()
                                 ? EffectOfUnusable(entity, static_cast<size_t>(field.id))
                                 : "it is looked for in " + BytesText(range) + ", but its group begins with byte " +
                                       std::to_string(field.position.byte_offset);
  findings.AddOnce(RuleId::kFieldBeforeGroup, entity.At(field, {"position", "len"}),
                   entity.Label(field) + " reaches up to bit " + std::to_string(end - 1) + ", but " + GroupText(field),
                   effect, kEndGroup);
}

void LintField(const LintEntity& entity, const Attribute& field, const BitRange& range, Findings& findings) {
  const Position& position = field.position;
  const bool isOneBit = IsInBits(field) && position.len == 1;
  if (field.data_type == MorvixProtocolDataTypeBool_4_0 && !isOneBit) return LintBool(entity, field, findings);
  if (ReachesOut(field)) {
    LintReach(entity, field, range, findings);
  } else if (range.IsEmpty()) {
    LintUnusableField(entity, field, findings);
  }
  if (!range.IsEmpty() && position.byte_offset < 0) {
    findings.AddOnce(RuleId::kNegativeOffset, entity.At(field, {"position", "byte_offset"}),
                     entity.Label(field) + " has the byte_offset " + std::to_string(position.byte_offset),
                     "it is looked for in " + BytesText(range) + ", in a group that begins before the payload",
                     "offsets count from 0");
  }
  if (!IsInBits(field) && !IsBitPacked(field) && position.bit_offset != 0) {
    findings.AddOnce(
        RuleId::kBitOffsetUnused, entity.At(field, {"position", "bit_offset"}),
        entity.Label(field) + " is in byte units and has the bit_offset " + std::to_string(position.bit_offset),
        "it is ignored", "set it to 0");
  }
}

// ---- Fields that overlap ----

// For each field of a layout the earlier ones of which it shares bits.
std::vector<FewFields> Overlapped(const Layout& layout) {
  Coverage coverage(layout.ranges);
  std::vector<FewFields> overlapped(layout.ranges.size());
  for (size_t i = 0; i < layout.ranges.size(); ++i) {
    if (layout.ranges[i].IsEmpty()) continue;
    overlapped[i] = coverage.Over(layout.ranges[i]);
    coverage.Lay(layout.ranges[i], i);
  }
  return overlapped;
}

std::vector<std::string> LabelsOf(const LintEntity& entity, const Layout& layout, const std::vector<size_t>& fields) {
  std::vector<std::string> labels;
  labels.reserve(fields.size());
  for (const size_t field : fields) labels.push_back(entity.Label(layout.attributes[field]));
  return labels;
}

std::string ListedFields(const LintEntity& entity, const Layout& layout, const FewFields& fields) {
  return Listed(LabelsOf(entity, layout, fields.first), fields.count);
}

bool DoOverlap(const BitRange& left, const BitRange& right) {
  return !left.IsEmpty() && !right.IsEmpty() && left.begin < right.end && right.begin < left.end;
}

// One field of a layout and the earlier ones that it overlaps.
struct Overlap {
  const Layout& layout;
  size_t field;
  const FewFields& others;

  // "'a' and 'b' in byte 3": where they lie as far as they are all known, else where the field does.
  std::string Text(const LintEntity& entity) const {
    const BitRange& range = layout.ranges[field];
    BitRange shared = range;
    if (others.count == others.first.size()) {
      shared = {range.end, range.begin};
      for (const size_t other : others.first) {
        shared.begin = std::min(shared.begin, std::max(range.begin, layout.ranges[other].begin));
        shared.end = std::max(shared.end, std::min(range.end, layout.ranges[other].end));
      }
    }
    return ListedFields(entity, layout, others) + " in " + BitsText(shared);
  }
};

// Whether fields of the writing layout that overlap do so in the reading layout as well.
bool OverlapsThere(const Overlap& onWriting, const Layout& reading, const LintEntity& entity) {
  const auto rangeOf = [&](size_t field) {
    const auto element = static_cast<size_t>(onWriting.layout.attributes[field].id);
    const Attribute* read = entity.ReadRecord(element);
    return read == nullptr ? BitRange() : reading.ranges[static_cast<size_t>(read - entity.all.data())];
  };
  const BitRange range = rangeOf(onWriting.field);
  return std::all_of(onWriting.others.first.begin(), onWriting.others.first.end(),
                     [&](size_t other) { return DoOverlap(range, rangeOf(other)); });
}

void AddOverlap(const LintEntity& entity, size_t element, const Overlap* onReading, const Overlap* onWriting,
                Findings& findings) {
  const std::string label = entity.Label(element);
  const bool isElsewhere =
      onReading != nullptr && onWriting != nullptr && !OverlapsThere(*onWriting, onReading->layout, entity);
  std::string message = label + " overlaps ";
  if (onReading != nullptr) message += onReading->Text(entity);
  if (isElsewhere) message += ", and on writing ";
  if (onReading == nullptr || isElsewhere) message += onWriting->Text(entity);
  if (onReading == nullptr) message += " on writing";
  std::string effect;
  if (onWriting != nullptr) {
    const bool isOne = onWriting->others.count == 1;
    const bool areTwo = isOne && !isElsewhere && (onReading == nullptr || onReading->others.count == 1);
    const std::string others = ListedFields(entity, onWriting->layout, onWriting->others);
    effect = "a write of " + (areTwo ? "both" : label + (isOne ? " and " : " and any of ") + others) +
             " leaves the bits of " + label;
  }
  if (onReading != nullptr) {
    effect += std::string(effect.empty() ? "" : "; ") + "decoding takes each of them from the shared bits";
  }
  findings.Add(RuleId::kFieldsOverlap, entity.At(element, {"position"}), message, effect, "give each its own bits");
}

void LintOverlaps(const LintEntity& entity, const Layout& reading, const Layout& writing, Findings& findings) {
  const std::vector<FewFields> read = Overlapped(reading);
  const std::vector<FewFields> written = Overlapped(writing);
  const FewFields none{};
  size_t i = 0;
  size_t j = 0;
  while (i < read.size() || j < written.size()) {
    const size_t readElement = i < read.size() ? static_cast<size_t>(reading.attributes[i].id) : kNoElement;
    const size_t writtenElement = j < written.size() ? static_cast<size_t>(writing.attributes[j].id) : kNoElement;
    const size_t element = std::min(readElement, writtenElement);
    const bool isRead = readElement == element;
    const bool isWritten = writtenElement == element;
    const Overlap onReading{reading, i, isRead ? read[i] : none};
    const Overlap onWriting{writing, j, isWritten ? written[j] : none};
    if (!onReading.others.IsEmpty() || !onWriting.others.IsEmpty()) {
      AddOverlap(entity, element, onReading.others.IsEmpty() ? nullptr : &onReading,
                 onWriting.others.IsEmpty() ? nullptr : &onWriting, findings);
    }
    if (isRead) ++i;
    if (isWritten) ++j;
  }
}

// ---- Fields whose writing changes others ----

// The bits that a value of the field can set, from its lowest bit up.
BitRange SettableBits(const Attribute& field, const BitRange& range) {
  if (field.data_type == MorvixProtocolDataTypeBinary_4_0) return range;
  uint64_t largest = 1;
  if (field.data_type == MorvixProtocolDataTypeEnum_4_0) largest = std::max<size_t>(field.enumList.size(), 1) - 1;
  if (IsNumber(field)) {
    const auto max = static_cast<uint64_t>(field.uint_spec.max);
    largest = UserText(field, max).empty() ? 0 : max;
  }
  BitRange settable{range.end, range.end};
  for (; largest != 0 && settable.begin > range.begin; largest /= 2) --settable.begin;
  return settable;
}

// What the bytes of a bit field are with one bit set, and what they are once the field is written as 0 behind that.
struct Rewrite {
  std::vector<byte> before;
  std::vector<byte> after;
};

// How fields of several bytes are written. It depends on nothing but their length and their place in their last byte,
// so that the module is asked once for each such shape.
class Rewrites {
 public:
  // For each bit of the field's bytes, the highest of the first one first.
  const std::vector<Rewrite>& Of(const Position& position) {
    std::vector<Rewrite>& rewrites = known_[{position.bit_offset % 8, position.len}];
    if (rewrites.empty()) rewrites = Ask(position.bit_offset % 8, position.len);
    return rewrites;
  }

 private:
  static std::vector<Rewrite> Ask(int32_t bitOffset, int32_t length) {
    const auto bytes = static_cast<size_t>((bitOffset + length + 7) / 8);
    Attribute field;
    field.position = {0, bitOffset, MorvixProtocolUnitBit_4_0, length, bytes};
    const Attribute writer = OpenField(field, "writer");
    std::vector<Rewrite> rewrites;
    for (size_t bit = 0; bit < 8 * bytes; ++bit) {
      field.position = {static_cast<int32_t>(bit / 8), 0, MorvixProtocolUnitByte_4_0, 1, 0};
      const Attribute setter = OpenField(field, "set");
      Json::Value values;
      values["set"] = 0x80 >> bit % 8;
      const Encoded before = EncodeFields({setter, writer}, values, bytes);
      values["writer"] = 0;
      rewrites.push_back({before.payload, EncodeFields({setter, writer}, values, bytes).payload});
    }
    return rewrites;
  }

  std::map<std::pair<int32_t, int32_t>, std::vector<Rewrite>> known_;
};

// The fields of a layout that were written before a field and that writing it disturbs.
struct Disturbance {
  std::set<size_t> fields;
  bool areMore = false;  // than that, where more than a few overlap
  std::string example;

  std::string Listed(const LintEntity& entity, const Layout& layout) const {
    const std::vector<std::string> labels = LabelsOf(entity, layout, {fields.begin(), fields.end()});
    if (!areMore) return dp4::Listed(labels, labels.size());
    std::string listed;
    for (size_t i = 0; i + 1 < Coverage::kFew; ++i) listed += labels[i] + ", ";
    return listed + "and others";
  }
};

class DisturbanceCheck {
 public:
  DisturbanceCheck(const LintEntity& entity, const Layout& layout)
      : entity_(entity), layout_(layout), settable_(AllSettable(layout)), laid_(layout.ranges), canSet_(settable_) {}

  Disturbance Of(size_t field) {
    const BitRange& range = layout_.ranges[field];
    const BitRange bytes{uint64_t{8} * range.FirstByte(), uint64_t{8} * range.EndByte()};
    const bool isWritten = !layout_.attributes[field].enumList.empty();  // more than one byte has no bool
    Disturbance found;
    if (!isWritten || !IsInBits(layout_.attributes[field]) || bytes.Length() <= 8) return found;
    if (laid_.Over(bytes).IsEmpty()) return found;
    const std::vector<Rewrite>& rewrites = rewrites_.Of(layout_.attributes[field].position);
    // Bits that the field overwrites count as well: they may come back elsewhere.
    for (uint64_t bit = bytes.end; bit-- > bytes.begin;) {
      const FewFields setters = canSet_.Over({bit, bit + 1});
      if (setters.IsEmpty()) continue;
      const Rewrite& rewrite = rewrites[static_cast<size_t>(bit - bytes.begin)];
      if (!Compare(rewrite, range, found) || !found.example.empty()) continue;
      found.example = BytesText(range) + " are " + HexText(rewrite.before.data(), rewrite.before.size()) +
                      " with one bit of " + entity_.Label(layout_.attributes[setters.first[0]]) + " set, and " +
                      HexText(rewrite.after.data(), rewrite.after.size()) + " once " +
                      entity_.Label(layout_.attributes[field]) + " is written as 0";
    }
    return found;
  }

  void Lay(size_t field) {
    laid_.Lay(layout_.ranges[field], field);
    canSet_.Lay(settable_[field], field);
  }

 private:
  static std::vector<BitRange> AllSettable(const Layout& layout) {
    std::vector<BitRange> settable;
    for (size_t i = 0; i < layout.ranges.size(); ++i) {
      settable.push_back(SettableBits(layout.attributes[i], layout.ranges[i]));
    }
    return settable;
  }

  // True when bits of other fields, which are then noted, are not as they were.
  bool Compare(const Rewrite& rewrite, const BitRange& range, Disturbance& found) const {
    bool isDisturbed = false;
    const uint64_t begin = uint64_t{8} * range.FirstByte();
    for (uint64_t bit = begin; bit < uint64_t{8} * range.EndByte(); ++bit) {
      const bool isOwn = bit >= range.begin && bit < range.end;
      if (isOwn || BitAt(rewrite.before.data(), bit - begin) == BitAt(rewrite.after.data(), bit - begin)) continue;
      const FewFields fields = laid_.Over({bit, bit + 1});
      found.fields.insert(fields.first.begin(), fields.first.end());
      found.areMore = found.areMore || fields.count > fields.first.size();
      isDisturbed = isDisturbed || !fields.IsEmpty();
    }
    return isDisturbed;
  }

  const LintEntity& entity_;
  const Layout& layout_;
  const std::vector<BitRange> settable_;
  Coverage laid_;
  Coverage canSet_;
  Rewrites rewrites_;
};

void LintDisturbances(const LintEntity& entity, const Layout& layout, Findings& findings) {
  DisturbanceCheck check(entity, layout);
  for (size_t i = 0; i < layout.attributes.size(); ++i) {
    const Attribute& field = layout.attributes[i];
    const Disturbance found = check.Of(i);
    check.Lay(i);
    if (found.fields.empty()) continue;
    findings.AddOnce(RuleId::kNeighboursDisturbed, entity.At(field, {"position"}),
                     "writing " + entity.Label(field) + ", which lies in " + BytesText(layout.ranges[i]) +
                         ", disturbs " + found.Listed(entity, layout),
                     found.example,
                     "keep it inside one byte, or list it before them (the highest bit of a group is listed last all "
                     "the same)");
  }
}

// ---- The whole payload ----

Spot Furthest(const LintEntity& entity, const Layout& layout) {
  size_t furthest = kNoElement;
  for (size_t i = 0; i < layout.ranges.size(); ++i) {
    if (layout.ranges[i].IsEmpty()) continue;
    if (furthest == kNoElement || layout.ranges[i].end > layout.ranges[furthest].end) furthest = i;
  }
  if (furthest == kNoElement) return {&entity.json["attrs"], entity.pointer + "/attrs"};
  return entity.At(layout.attributes[furthest], {"position"});
}

std::string LengthText(const Layout& layout) {
  return layout.isInMemory ? std::to_string(layout.payloadLength) + " bytes" : "more bytes than there is memory for";
}

bool IsPacked(size_t flagBytes, size_t payloadBytes) {
  MorvixProtocolPackage_4_0 package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  package.sizeFlags = flagBytes;
  package.sizeValue = payloadBytes;
  byte command = 0;
  return ProtocolPackPackage_4_0(package, &command, SIZE_MAX) != 0;  // there are no bytes to copy
}

bool IsUnpacked(size_t payloadBytes) {
  constexpr size_t kEnough = size_t{1} << 16;  // beyond the limit, whatever the configuration claims
  std::vector<byte> packet(1 + std::min(payloadBytes, kEnough));
  packet[0] = MorvixProtocolCommandNotifyResp_4_0;
  OwnedPackage package;
  return ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package);
}

void LintPayload(const LintEntity& entity, const Layout& reading, const Layout& writing, Findings& findings) {
  const bool isSent = writing.isInMemory && (writing.payloadLength == 0 || IsPacked(1, writing.payloadLength));
  const bool isReceived = reading.isInMemory && (reading.payloadLength == 0 || IsUnpacked(reading.payloadLength));
  if (isSent && isReceived) return;
  const Layout& tooLong = isReceived ? writing : reading;
  std::string effect;
  if (!isSent) effect = "no write can be packed: ProtocolPackPackage_4_0 gives 0";
  if (!isSent && !isReceived) effect += "; ";
  if (!isReceived) effect += "no whole response can be received: ProtocolUnpackPackage_4_0 gives false";
  findings.Add(RuleId::kPayloadTooLong, Furthest(entity, tooLong), "the payload has " + LengthText(tooLong), effect,
               "move the fields together; a payload has at most 16384 bytes");
}

void LintFlags(const LintEntity& entity, Findings& findings) {
  const size_t flagBytes = FlagBytes(entity.writable.size());
  if (flagBytes == 0 || IsPacked(flagBytes, 1)) return;
  findings.Add(
      RuleId::kFlagsTooLong, {&entity.json["attrs"], entity.pointer + "/attrs"},
      Count(entity.writable.size(), "writable attribute") + " need " + std::to_string(flagBytes) + " flag bytes",
      "no write can be packed: ProtocolPackPackage_4_0 gives 0",
      "use at most 8192 writable attributes, or split the entity");
}

}  // namespace

void LintPlaces(const LintEntity& entity, Findings& findings) {
  const Layout reading = ReadingOf(entity);
  const Layout writing = WritingOf(entity, reading);
  for (const Layout* layout : {&reading, &writing}) {
    if (layout->isInMemory) {
      for (size_t i = 0; i < layout->attributes.size(); ++i) {
        LintField(entity, layout->attributes[i], layout->ranges[i], findings);
      }
    }
  }
  LintOverlaps(entity, reading, writing, findings);
  LintDisturbances(entity, writing, findings);
  LintPayload(entity, reading, writing, findings);
  LintFlags(entity, findings);
}

}  // namespace dp4
