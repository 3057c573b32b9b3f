// Where fields lie in the payload: whether they can be used, what they share, and whom writing them disturbs.

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "LintModel.h"

namespace dp4 {

namespace {

bool IsInBits(const Attribute& attribute) { return attribute.position.unit == MorvixProtocolUnitBit_4_0; }

// The attributes of a list with the places that the module gives them.
struct Layout {
  const std::vector<Attribute>& attributes;
  size_t payloadLength;
  std::vector<BitRange> ranges;
};

Layout ReadingOf(const LintEntity& entity) {
  Layout layout{entity.all, entity.readLength, {}};
  for (const Attribute& field : entity.all) layout.ranges.push_back(Locate(field, entity.readLength));
  return layout;
}

// A group that is as long as on reading lies where it did, unless the shorter payload cuts it off.
Layout WritingOf(const LintEntity& entity, const Layout& reading) {
  Layout layout{entity.writable, entity.writeLength, {}};
  for (const Attribute& field : entity.writable) {
    const Attribute* read = entity.ReadRecord(static_cast<size_t>(field.id));
    const BitRange known = read == nullptr || read->position.groupByteLength != field.position.groupByteLength
                               ? BitRange()
                               : reading.ranges[static_cast<size_t>(read - entity.all.data())];
    const bool isKnown = !known.IsEmpty() && known.EndByte() <= static_cast<int64_t>(entity.writeLength);
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
               "set 'unit' to 'byte', or make it an enum");
  }
  if (IsInBits(field) && isBinary) {
    return add(RuleId::kBinaryInBits, "unit", "the binary " + label + " is in bit units", "set 'unit' to 'byte'");
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
               "list the attribute with the group's highest bit last in its group");
  }
  if (IsInBits(field) && position.bit_offset % 8 + int64_t{position.len} > 64) {
    return add(RuleId::kFieldTooWide, "len",
               label + " and the bits below it in its last byte are " +
                   std::to_string(position.bit_offset % 8 + int64_t{position.len}) + " bits",
               "use at most 64 bits, begun at a multiple of 8");
  }
  add(RuleId::kFieldOutsidePayload, "byte_offset", label + " does not lie in the payload",
      "correct its offsets, and list the attribute with the group's highest bit last in its group");
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
                   effect, "list the attribute with the group's highest bit last in its group");
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

// ---- Fields and their neighbours ----

// Which field was laid last on each payload bit, as ranges of bits.
class BitMap {
 public:
  // The fields that have bits in the range, in the order of the list.
  std::vector<size_t> Fields(const BitRange& range) const {
    std::vector<size_t> fields;
    for (auto it = FirstIn(range); it != pieces_.end() && it->first < range.end; ++it) {
      fields.push_back(it->second.field);
    }
    std::sort(fields.begin(), fields.end());
    fields.erase(std::unique(fields.begin(), fields.end()), fields.end());
    return fields;
  }

  void Lay(const BitRange& range, size_t field) {
    auto it = FirstIn(range);
    while (it != pieces_.end() && it->first < range.end) {
      const int64_t begin = it->first;
      const Piece piece = it->second;
      it = pieces_.erase(it);
      if (begin < range.begin) pieces_[begin] = {range.begin, piece.field};
      if (piece.end > range.end) pieces_[range.end] = piece;
    }
    pieces_[range.begin] = {range.end, field};
  }

 private:
  struct Piece {
    int64_t end;
    size_t field;
  };

  std::map<int64_t, Piece>::const_iterator FirstIn(const BitRange& range) const {
    auto it = pieces_.upper_bound(range.begin);
    if (it != pieces_.begin() && std::prev(it)->second.end > range.begin) --it;
    return it;
  }

  std::map<int64_t, Piece> pieces_;
};

std::vector<std::string> LabelsOf(const LintEntity& entity, const Layout& layout, const std::vector<size_t>& fields) {
  std::vector<std::string> labels;
  for (const size_t field : fields) labels.push_back(entity.Label(layout.attributes[field]));
  return labels;
}

void LintOverlaps(const LintEntity& entity, const Layout& layout, Findings& findings) {
  BitMap map;
  for (size_t i = 0; i < layout.attributes.size(); ++i) {
    const BitRange& range = layout.ranges[i];
    if (range.IsEmpty()) continue;
    const std::vector<size_t> others = map.Fields(range);
    map.Lay(range, i);
    if (others.empty()) continue;
    const Attribute& field = layout.attributes[i];
    BitRange shared = range;
    bool areWritten = field.type == MorvixProtocolTypeStatusWritable_4_0;
    bool isOneWritten = false;
    for (const size_t other : others) {
      if (others.size() == 1) {
        shared = {std::max(range.begin, layout.ranges[other].begin), std::min(range.end, layout.ranges[other].end)};
      }
      isOneWritten = isOneWritten || layout.attributes[other].type == MorvixProtocolTypeStatusWritable_4_0;
    }
    areWritten = areWritten && isOneWritten;
    findings.AddOnce(
        RuleId::kFieldsOverlap, entity.At(field, {"position"}),
        entity.Label(field) + " overlaps " + Listed(LabelsOf(entity, layout, others)) + " in " + BitsText(shared),
        areWritten ? "a write of both leaves the bits of " + entity.Label(field) +
                         "; decoding takes each of them from the shared bits"
                   : "decoding takes each of them from the shared bits",
        "give each its own bits");
  }
}

// The highest raw value that an attribute can have, in bits that are all set below its highest one.
uint64_t AllBits(const Attribute& field, const BitRange& range) {
  uint64_t largest = LargestOpenValue(static_cast<size_t>(range.Length()));
  if (field.data_type != MorvixProtocolDataTypeEnum_4_0) return largest;
  if (field.enumList.empty()) return 0;
  while (largest != 0 && largest / 2 + 1 > field.enumList.size() - 1) largest /= 2;
  return largest;
}

// An attribute that lies in some of the bytes of `bytes`; of one in byte units only that part.
Attribute Part(const Attribute& field, const BitRange& bytes) {
  Attribute part = field;
  if (IsInBits(field)) return part;
  const int64_t begin = std::max<int64_t>(field.position.byte_offset, bytes.FirstByte());
  const int64_t end = std::min<int64_t>(int64_t{field.position.byte_offset} + field.position.len, bytes.EndByte());
  part.position.byte_offset = static_cast<int32_t>(begin);
  part.position.len = static_cast<int32_t>(end - begin);
  return part;
}

bool BitAt(const std::vector<byte>& payload, int64_t bit) {
  return (payload[static_cast<size_t>(bit / 8)] & 0x80 >> bit % 8) != 0;
}

// Fields are known by their index in the layout.
struct Disturbance {
  std::vector<size_t> disturbed;
  std::string example;
};

std::string HexOf(const std::vector<byte>& payload, int64_t begin, int64_t end) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (int64_t i = begin; i < end; ++i) {
    const byte value = payload[static_cast<size_t>(i)];
    hex += {kDigits[value >> 4], kDigits[value & 15], ' '};
  }
  if (!hex.empty()) hex.pop_back();
  return hex;
}

// Sets every neighbour that was written before in turn, writes the field behind it, and looks at the bits around it.
Disturbance Disturb(const LintEntity& entity, const Layout& layout, size_t field,
                    const std::vector<size_t>& neighbours) {
  const BitRange& range = layout.ranges[field];
  std::vector<Attribute> fields;
  for (const size_t neighbour : neighbours) fields.push_back(Part(layout.attributes[neighbour], range));
  fields.push_back(layout.attributes[field]);
  const Window window = WindowOn(fields, layout.payloadLength);
  const auto shift = static_cast<int64_t>(window.shift);
  const Attribute writer = OpenField(window.fields.back(), "writer");

  std::vector<bool> isDisturbed(neighbours.size());
  Disturbance found;
  for (size_t set = 0; set < neighbours.size(); ++set) {
    const Attribute& neighbour = layout.attributes[neighbours[set]];
    Json::Value values;
    values["set"] = Json::UInt64{AllBits(neighbour, layout.ranges[neighbours[set]])};
    const Attribute setter = OpenField(window.fields[set], "set");
    const std::vector<byte> before = EncodeFields({setter}, values, window.length).payload;
    values["writer"] = 0;
    const std::vector<byte> after = EncodeFields({setter, writer}, values, window.length).payload;
    if (before.size() != after.size() || before.empty()) continue;
    bool hasChanged = false;
    for (size_t k = 0; k < neighbours.size(); ++k) {
      const BitRange& other = layout.ranges[neighbours[k]];
      const int64_t begin = std::max(other.begin, range.FirstByte() * 8);
      const int64_t end = std::min(other.end, range.EndByte() * 8);
      for (int64_t bit = begin; bit < end; ++bit) {
        if (bit >= range.begin && bit < range.end) continue;
        if (BitAt(before, bit - 8 * shift) == BitAt(after, bit - 8 * shift)) continue;
        hasChanged = isDisturbed[k] = true;
      }
    }
    if (!hasChanged || !found.example.empty()) continue;
    const int64_t first = range.FirstByte() - shift;
    const int64_t end = range.EndByte() - shift;
    found.example = BytesText(range) + " are " + HexOf(before, first, end) + " with the bits of " +
                    entity.Label(neighbour) + " set, and " + HexOf(after, first, end) + " once " +
                    entity.Label(layout.attributes[field]) + " is written as 0";
  }
  for (size_t k = 0; k < neighbours.size(); ++k) {
    if (isDisturbed[k]) found.disturbed.push_back(neighbours[k]);
  }
  return found;
}

void LintDisturbances(const LintEntity& entity, const Layout& layout, Findings& findings) {
  BitMap map;
  for (size_t i = 0; i < layout.attributes.size(); ++i) {
    const BitRange& range = layout.ranges[i];
    if (range.IsEmpty()) continue;
    const BitRange bytes{range.FirstByte() * 8, range.EndByte() * 8};
    const Attribute& field = layout.attributes[i];
    const std::vector<size_t> neighbours =
        IsInBits(field) && bytes.Length() > 8 ? map.Fields(bytes) : std::vector<size_t>();
    map.Lay(range, i);
    if (neighbours.empty()) continue;
    const Disturbance found = Disturb(entity, layout, i, neighbours);
    if (found.disturbed.empty()) continue;
    findings.AddOnce(RuleId::kNeighboursDisturbed, entity.At(field, {"position"}),
                     "writing " + entity.Label(field) + ", which lies in " + BytesText(range) + ", disturbs " +
                         Listed(LabelsOf(entity, layout, found.disturbed)),
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

std::string LengthText(size_t length) {
  return length == 0 ? "more bytes than there is memory for" : std::to_string(length) + " bytes";
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
  const bool isSent = writing.attributes.empty() || (writing.payloadLength != 0 && IsPacked(1, writing.payloadLength));
  const bool isReceived =
      reading.attributes.empty() || (reading.payloadLength != 0 && IsUnpacked(reading.payloadLength));
  if (isSent && isReceived) return;
  const Layout& tooLong = isReceived ? writing : reading;
  std::string effect;
  if (!isSent) effect = "no write can be packed: ProtocolPackPackage_4_0 gives 0";
  if (!isSent && !isReceived) effect += "; ";
  if (!isReceived) effect += "no whole response can be received: ProtocolUnpackPackage_4_0 gives false";
  findings.Add(RuleId::kPayloadTooLong, Furthest(entity, tooLong),
               "the payload has " + LengthText(tooLong.payloadLength), effect,
               "move the fields together; a payload has at most 16384 bytes");
}

// The flag bytes that the encoder makes for so many attributes.
size_t FlagBytes(size_t attributes) {
  const LogGatherer silent;
  Attribute attribute;
  attribute.name = "field";
  attribute.data_type = MorvixProtocolDataTypeBinary_4_0;
  attribute.position.len = 1;
  Json::Value root;
  root[""]["field"] = "";
  OwnedPackage package;
  ProtocolEncodeAttributes_4_0({}, std::vector<Attribute>(attributes, attribute), package, root);
  return package.sizeFlags;
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
    if (layout->payloadLength != 0) {
      for (size_t i = 0; i < layout->attributes.size(); ++i) {
        LintField(entity, layout->attributes[i], layout->ranges[i], findings);
      }
    }
    LintOverlaps(entity, *layout, findings);
  }
  LintDisturbances(entity, writing, findings);
  LintPayload(entity, reading, writing, findings);
  LintFlags(entity, findings);
}

}  // namespace dp4
