// Fields that share bits, and fields that are corrupted by writing another field.

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Coverage.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

BitRange BitsOf(const Field& field) { return field.bits; }

std::vector<BitRange> RangesOf(const Direction& direction, BitRange (*rangeOf)(const Field&)) {
  std::vector<BitRange> ranges;
  std::transform(direction.fields.begin(), direction.fields.end(), std::back_inserter(ranges), rangeOf);
  return ranges;
}

template <typename Indexes>
std::vector<std::string> LabelsOf(const EntityModel& entity, const Direction& direction, const Indexes& fields) {
  std::vector<std::string> labels;
  labels.reserve(fields.size());
  for (const size_t field : fields) labels.push_back(entity.Label(direction.fields[field].element));
  return labels;
}

// ---- Fields that overlap ----

// One field of a direction and the earlier ones with which it shares bits.
struct Overlap {
  const Direction* direction;
  const Field* field;
  FewFields others;

  std::string Listed(const EntityModel& entity) const {
    return inspect::Listed(LabelsOf(entity, *direction, others.first), others.count);
  }

  // "'a' and 'b' in byte 3": the shared bits, or the bits of the field when there are too many overlaps to know.
  std::string Text(const EntityModel& entity) const {
    BitRange shared = field->bits;
    if (others.count == others.first.size()) {
      shared = {field->bits.end, field->bits.begin};
      for (const size_t other : others.first) {
        const BitRange& bits = direction->fields[other].bits;
        shared.begin = std::min(shared.begin, std::max(field->bits.begin, bits.begin));
        shared.end = std::max(shared.end, std::min(field->bits.end, bits.end));
      }
    }
    return Listed(entity) + " in " + BitsText(shared);
  }
};

// The overlaps of a direction, by element.
std::map<size_t, Overlap> OverlapsOf(const Direction& direction) {
  Coverage coverage(RangesOf(direction, BitsOf));
  std::map<size_t, Overlap> overlaps;
  for (const Field& field : direction.fields) {
    if (field.bits.IsEmpty()) continue;
    const FewFields others = coverage.Over(field.bits);
    if (!others.IsEmpty()) overlaps[field.element] = {&direction, &field, others};
    coverage.Lay(field.bits, field.flag);
  }
  return overlaps;
}

// Whether two fields overlap both on writing and on reading.
bool OverlapsOnReading(const Overlap& onWriting, const EntityModel& entity) {
  const auto bitsOf = [&entity](const Field& field) {
    const Field* read = entity.Read(field.element);
    return read == nullptr ? BitRange() : read->bits;
  };
  const BitRange bits = bitsOf(*onWriting.field);
  return std::all_of(onWriting.others.first.begin(), onWriting.others.first.end(),
                     [&](size_t other) { return bits.Overlaps(bitsOf(onWriting.direction->fields[other])); });
}

// The attribute with the highest bit of each bit group, by its type and byte_offset.
using GroupTops = std::map<std::pair<Group, int32_t>, const Attribute*>;

GroupTops TopsOf(const EntityModel& entity) {
  GroupTops tops;
  for (const Field& field : entity.Reading().fields) {
    const Attribute& attribute = *field.attribute;
    if (!IsBitPacked(attribute) || !IsInBits(attribute)) continue;
    const Attribute*& top = tops[{attribute.type, attribute.position.byte_offset}];
    if (top == nullptr || attribute.position.bit_offset > top->position.bit_offset) top = &attribute;
  }
  return tops;
}

// Where one of the fields is in a group with bits beyond its first byte: that these may not be meant.
std::string GrownGroupHint(const GroupTops& tops, const Overlap& overlap) {
  std::vector<size_t> fields = overlap.others.first;
  fields.push_back(overlap.field->flag);
  for (const size_t i : fields) {
    const Attribute& attribute = *overlap.direction->fields[i].attribute;
    const auto top = tops.find({attribute.type, attribute.position.byte_offset});
    if (!IsInBits(attribute) || top == tops.end()) continue;
    const std::string hint = NextByteHint(top->second->position);
    if (hint.empty()) continue;
    return fmt::format("; {} begins at bit {} of its group{}", Quoted(top->second->name),
                       top->second->position.bit_offset, hint);
  }
  return "";
}

// One of the two overlaps may be null.
void AddOverlap(const EntityModel& entity, const GroupTops& tops, size_t element, const Overlap* onReading,
                const Overlap* onWriting, Findings& findings) {
  const std::string label = entity.Label(element);
  const bool isElsewhere = onReading != nullptr && onWriting != nullptr && !OverlapsOnReading(*onWriting, entity);
  std::string message = label + " overlaps ";
  if (onReading != nullptr) message += onReading->Text(entity);
  if (isElsewhere) message += ", and on writing ";
  if (onReading == nullptr || isElsewhere) message += onWriting->Text(entity);
  if (onReading == nullptr) message += " on writing";
  std::vector<std::string> effects;
  if (onWriting != nullptr) {
    const bool isOne = onWriting->others.count == 1;
    const bool areTwo = isOne && !isElsewhere && (onReading == nullptr || onReading->others.count == 1);
    const std::string written =
        areTwo ? "both" : fmt::format("{} and {}{}", label, isOne ? "" : "any of ", onWriting->Listed(entity));
    effects.push_back(fmt::format("a write of {} leaves the bits of {}", written, label));
  }
  if (onReading != nullptr) effects.emplace_back("decoding reads each of them from the shared bits");
  findings.Add(rules::kFieldsOverlap, entity.At(element, {"position"}), message,
               fmt::format("{}", fmt::join(effects, "; ")),
               "give each its own bits" + GrownGroupHint(tops, onReading != nullptr ? *onReading : *onWriting));
}

void LintSharedBits(const EntityModel& entity, Findings& findings) {
  const std::map<size_t, Overlap> read = OverlapsOf(entity.Reading());
  const std::map<size_t, Overlap> written = OverlapsOf(entity.Writing());
  if (read.empty() && written.empty()) return;
  const GroupTops tops = TopsOf(entity);
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    const auto onReading = read.find(i);
    const auto onWriting = written.find(i);
    if (onReading == read.end() && onWriting == written.end()) continue;
    AddOverlap(entity, tops, i, onReading == read.end() ? nullptr : &onReading->second,
               onWriting == written.end() ? nullptr : &onWriting->second, findings);
  }
}

// ---- Fields that a write corrupts ----

// The bits that a value of the field can set: a range that ends with its lowest bit.
BitRange SettableBits(const Field& field) {
  const Attribute& attribute = *field.attribute;
  if (IsBinary(attribute)) return field.bits;
  uint64_t largest = 1;
  if (IsEnum(attribute)) largest = std::max<size_t>(attribute.enumList.size(), 1) - 1;
  if (IsNumber(attribute)) {
    const auto max = static_cast<uint64_t>(attribute.uint_spec.max);
    largest = UserText(attribute, max).empty() ? 0 : max;
  }
  BitRange settable{field.bits.end, field.bits.end};
  for (; largest != 0 && settable.begin > field.bits.begin; largest /= 2) --settable.begin;
  return settable;
}

// Writing a field that partly fills several bytes reverses the order of these bytes for the bits around the field.
// Returns the bit that moves to `bit`.
uint64_t MirroredBit(const BitRange& bytes, uint64_t bit) {
  return bytes.begin + bytes.end - 8 - bit / 8 * 8 + bit % 8;
}

// Earlier fields that writing a field corrupts.
struct Corruption {
  std::set<size_t> fields;
  bool areMore = false;  // whether there may be more, since more than a few overlap
  std::string example;
};

class CorruptionCheck {
 public:
  CorruptionCheck(const EntityModel& entity, Findings& findings)
      : entity_(entity),
        writing_(entity.Writing()),
        settable_(RangesOf(writing_, SettableBits)),
        laid_(RangesOf(writing_, BitsOf)),
        canSet_(settable_),
        findings_(findings) {}

  void Check() {
    for (const Field& field : writing_.fields) {
      const BitRange bytes = field.bits.Bytes();
      const bool isInSeveralBytes = bytes.Length() > 8 && !field.bits.IsWholeBytes();
      const bool isWritten = IsInBits(*field.attribute) && !field.attribute->enumList.empty();  // a bool has one byte
      if (isWritten && isInSeveralBytes && !laid_.Over(bytes).IsEmpty()) CheckField(field, bytes);
      laid_.Lay(field.bits, field.flag);
      canSet_.Lay(settable_[field.flag], field.flag);
    }
  }

 private:
  void CheckField(const Field& field, const BitRange& bytes) {
    Corruption found;
    // Each set bit of an earlier field moves: its old place and its new place both change.
    for (uint64_t set = bytes.end; set-- > bytes.begin;) {
      const FewFields setters = canSet_.Over({set, set + 1});
      const uint64_t back = MirroredBit(bytes, set);
      if (setters.IsEmpty() || set == back) continue;
      const bool isGone = Note(field, set, found);
      const bool isNew = Note(field, back, found);
      if ((isGone || isNew) && found.example.empty()) found.example = ExampleOf(field, bytes, set, setters.first[0]);
    }
    if (found.fields.empty()) return;
    const std::vector<std::string> labels = LabelsOf(entity_, writing_, found.fields);
    const std::string others =
        found.areMore
            ? fmt::format("{}, and others", fmt::join(labels.begin(), labels.begin() + Coverage::kFew - 1, ", "))
            : Listed(labels, labels.size());
    findings_.AddOnce(rules::kNeighboursDisturbed, entity_.At(field.element, {"position"}),
                      fmt::format("writing {}, which lies in {}, corrupts {}", entity_.Label(field.element),
                                  BytesText(field.bits), others),
                      found.example,
                      "keep it inside one byte, or list it before them (but still list the highest bit of a group "
                      "last)");
  }

  static bool Holds(const Field& field, uint64_t bit) { return bit >= field.bits.begin && bit < field.bits.end; }

  // Collects the fields that contain a changed bit. False when only the written field, or no field, contains it.
  bool Note(const Field& field, uint64_t bit, Corruption& found) const {
    if (Holds(field, bit)) return false;
    const FewFields fields = laid_.Over({bit, bit + 1});
    found.fields.insert(fields.first.begin(), fields.first.end());
    found.areMore = found.areMore || fields.count > fields.first.size();
    return !fields.IsEmpty();
  }

  std::string ExampleOf(const Field& field, const BitRange& bytes, uint64_t set, size_t setter) const {
    // All zeros except for the bit, unless the field clears it.
    const auto contentWith = [&](uint64_t bit, bool isCleared) {
      std::vector<byte> content(static_cast<size_t>(bytes.Length() / 8));
      if (!isCleared) content[static_cast<size_t>((bit - bytes.begin) / 8)] = static_cast<byte>(0x80 >> bit % 8);
      return HexText(content.data(), content.size());
    };
    const uint64_t back = MirroredBit(bytes, set);
    return fmt::format("{} are {} with one bit of {} set, and {} once {} is written as 0", BytesText(field.bits),
                       contentWith(set, false), entity_.Label(writing_.fields[setter].element),
                       contentWith(back, Holds(field, back)), entity_.Label(field.element));
  }

  const EntityModel& entity_;
  const Direction& writing_;
  const std::vector<BitRange> settable_;
  Coverage laid_;
  Coverage canSet_;
  Findings& findings_;
};

}  // namespace

void LintOverlaps(const EntityModel& entity, Findings& findings) {
  LintSharedBits(entity, findings);
  CorruptionCheck(entity, findings).Check();
}

}  // namespace morvix::inspect
