// Fields that share bits, and fields that are corrupted when another one is written.

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Coverage.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

std::vector<BitRange> RangesOf(const Direction& direction) {
  std::vector<BitRange> ranges;
  ranges.reserve(direction.fields.size());
  for (const Field& field : direction.fields) ranges.push_back(field.bits);
  return ranges;
}

std::vector<std::string> LabelsOf(const EntityModel& entity, const Direction& direction,
                                  const std::vector<size_t>& fields) {
  std::vector<std::string> labels;
  labels.reserve(fields.size());
  for (const size_t field : fields) labels.push_back(entity.Label(direction.fields[field].element));
  return labels;
}

// ---- Fields that overlap ----

// For each field of a direction the earlier ones with which it shares bits.
std::vector<FewFields> Overlapped(const Direction& direction) {
  Coverage coverage(RangesOf(direction));
  std::vector<FewFields> overlapped;
  for (const Field& field : direction.fields) {
    overlapped.push_back(field.bits.IsEmpty() ? FewFields() : coverage.Over(field.bits));
    coverage.Lay(field.bits, field.flag);
  }
  return overlapped;
}

// One field of a direction and the earlier ones that it overlaps.
struct Overlap {
  const Direction& direction;
  const Field& field;
  const FewFields& others;

  std::string Listed(const EntityModel& entity) const {
    return inspect::Listed(LabelsOf(entity, direction, others.first), others.count);
  }

  // "'a' and 'b' in byte 3": where they lie as far as they are all known, else where the field does.
  std::string Text(const EntityModel& entity) const {
    BitRange shared = field.bits;
    if (others.count == others.first.size()) {
      shared = {field.bits.end, field.bits.begin};
      for (const size_t other : others.first) {
        const BitRange& bits = direction.fields[other].bits;
        shared.begin = std::min(shared.begin, std::max(field.bits.begin, bits.begin));
        shared.end = std::max(shared.end, std::min(field.bits.end, bits.end));
      }
    }
    return Listed(entity) + " in " + BitsText(shared);
  }
};

// Whether fields that overlap when they are written do so when they are read as well.
bool OverlapsOnReading(const Overlap& onWriting, const EntityModel& entity) {
  const auto bitsOf = [&entity](const Field& field) {
    const Field* read = entity.Read(field.element);
    return read == nullptr ? BitRange() : read->bits;
  };
  const BitRange bits = bitsOf(onWriting.field);
  return std::all_of(onWriting.others.first.begin(), onWriting.others.first.end(),
                     [&](size_t other) { return bits.Overlaps(bitsOf(onWriting.direction.fields[other])); });
}

void AddOverlap(const EntityModel& entity, size_t element, const Overlap* onReading, const Overlap* onWriting,
                Findings& findings) {
  const std::string label = entity.Label(element);
  const bool isElsewhere = onReading != nullptr && onWriting != nullptr && !OverlapsOnReading(*onWriting, entity);
  std::string message = label + " overlaps ";
  if (onReading != nullptr) message += onReading->Text(entity);
  if (isElsewhere) message += ", and on writing ";
  if (onReading == nullptr || isElsewhere) message += onWriting->Text(entity);
  if (onReading == nullptr) message += " on writing";
  std::string effect;
  if (onWriting != nullptr) {
    const bool isOne = onWriting->others.count == 1;
    const bool areTwo = isOne && !isElsewhere && (onReading == nullptr || onReading->others.count == 1);
    const std::string written =
        areTwo ? "both" : fmt::format("{} and {}{}", label, isOne ? "" : "any of ", onWriting->Listed(entity));
    effect = fmt::format("a write of {} leaves the bits of {}", written, label);
  }
  if (onReading != nullptr) {
    effect += std::string(effect.empty() ? "" : "; ") + "decoding takes each of them from the shared bits";
  }
  findings.Add(rules::kFieldsOverlap, entity.At(element, {"position"}), message, effect, "give each its own bits");
}

void LintSharedBits(const EntityModel& entity, Findings& findings) {
  const Direction& reading = entity.Reading();
  const Direction& writing = entity.Writing();
  const std::vector<FewFields> read = Overlapped(reading);
  const std::vector<FewFields> written = Overlapped(writing);
  for (const Field* field : entity.Fields()) {
    const Field* onReading = entity.Read(field->element);
    const Field* onWriting = entity.Written(field->element);
    const bool isRead = onReading != nullptr && !read[onReading->flag].IsEmpty();
    const bool isWritten = onWriting != nullptr && !written[onWriting->flag].IsEmpty();
    if (!isRead && !isWritten) continue;
    const FewFields none = {};
    const Overlap readOverlap{reading, *field, isRead ? read[onReading->flag] : none};
    const Overlap writtenOverlap{writing, isWritten ? *onWriting : *field, isWritten ? written[onWriting->flag] : none};
    AddOverlap(entity, field->element, isRead ? &readOverlap : nullptr, isWritten ? &writtenOverlap : nullptr, findings);
  }
}

// ---- Fields that a write corrupts ----

// The bits that a value of the field can set, from its lowest bit up.
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

// A field that partly fills several bytes is written with the bits around it in reversed byte order: the bit that comes
// to lie at `bit`.
uint64_t MirroredBit(const BitRange& bytes, uint64_t bit) {
  return bytes.begin + bytes.end - 8 - bit / 8 * 8 + bit % 8;
}

// The fields that were written before a field and that writing it corrupts.
struct Corruption {
  std::set<size_t> fields;
  bool areMore = false;  // than that, where more than a few overlap
  std::string example;

  std::string Listed(const EntityModel& entity, const Direction& direction) const {
    const std::vector<std::string> labels = LabelsOf(entity, direction, {fields.begin(), fields.end()});
    if (!areMore) return inspect::Listed(labels, labels.size());
    std::string listed;
    for (size_t i = 0; i + 1 < Coverage::kFew; ++i) listed += labels[i] + ", ";
    return listed + "and others";
  }
};

class CorruptionCheck {
 public:
  explicit CorruptionCheck(const EntityModel& entity)
      : entity_(entity),
        writing_(entity.Writing()),
        settable_(AllSettable(writing_)),
        laid_(RangesOf(writing_)),
        canSet_(settable_) {}

  Corruption Of(const Field& field) const {
    const BitRange bytes = field.bits.Bytes();
    Corruption found;
    const bool isWritten = IsInBits(*field.attribute) && !field.attribute->enumList.empty();  // a bool has one byte
    if (!isWritten || bytes.Length() <= 8 || field.bits.IsWholeBytes() || laid_.Over(bytes).IsEmpty()) return found;
    // Each bit that was set by an earlier field: where it was, and where it comes back, other bits are now.
    for (uint64_t set = bytes.end; set-- > bytes.begin;) {
      const FewFields setters = canSet_.Over({set, set + 1});
      if (setters.IsEmpty()) continue;
      const uint64_t back = MirroredBit(bytes, set);
      if (set == back) continue;
      const bool isGone = Note(field, set, found);
      const bool isNew = Note(field, back, found);
      if ((isGone || isNew) && found.example.empty()) found.example = ExampleOf(field, bytes, set, setters.first[0]);
    }
    return found;
  }

  void Lay(const Field& field) {
    laid_.Lay(field.bits, field.flag);
    canSet_.Lay(settable_[field.flag], field.flag);
  }

 private:
  static std::vector<BitRange> AllSettable(const Direction& direction) {
    std::vector<BitRange> settable;
    for (const Field& field : direction.fields) settable.push_back(SettableBits(field));
    return settable;
  }

  static bool Holds(const Field& field, uint64_t bit) { return bit >= field.bits.begin && bit < field.bits.end; }

  // Notes the fields that have a changed bit; false when it is the written field's own, or nobody's.
  bool Note(const Field& field, uint64_t bit, Corruption& found) const {
    if (Holds(field, bit)) return false;
    const FewFields fields = laid_.Over({bit, bit + 1});
    found.fields.insert(fields.first.begin(), fields.first.end());
    found.areMore = found.areMore || fields.count > fields.first.size();
    return !fields.IsEmpty();
  }

  std::string ExampleOf(const Field& field, const BitRange& bytes, uint64_t set, size_t setter) const {
    // Zeros but for the bit, unless the field clears it.
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
};

void LintCorruption(const EntityModel& entity, Findings& findings) {
  CorruptionCheck check(entity);
  for (const Field& field : entity.Writing().fields) {
    const Corruption found = check.Of(field);
    check.Lay(field);
    if (found.fields.empty()) continue;
    findings.AddOnce(rules::kNeighboursDisturbed, entity.At(field.element, {"position"}),
                     fmt::format("writing {}, which lies in {}, disturbs {}", entity.Label(field.element),
                                 BytesText(field.bits), found.Listed(entity, entity.Writing())),
                     found.example,
                     "keep it inside one byte, or list it before them (the highest bit of a group is listed last all "
                     "the same)");
  }
}

}  // namespace

void LintOverlaps(const EntityModel& entity, Findings& findings) {
  LintSharedBits(entity, findings);
  LintCorruption(entity, findings);
}

}  // namespace morvix::inspect
