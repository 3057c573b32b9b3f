// Bit groups: what sizes them, and whether that is what their members need. A group's size follows from the last
// attribute of a run of bools and enums of one type, so that the order of the list decides.

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "LintModel.h"

namespace dp4 {

namespace {

int64_t EndBit(const Attribute& member) { return int64_t{member.position.bit_offset} + member.position.len; }

// The bytes that a group needs for this member.
size_t NeededBytes(const Attribute& member) {
  return static_cast<size_t>(std::max<int64_t>(EndBit(member) + 7, 0) / 8);
}

// Adjacent bools and enums of one type, to which the parser gave one size.
struct Run {
  std::vector<const Attribute*> members;
  const Attribute& Last() const { return *members.back(); }
  size_t Size() const { return Last().position.groupByteLength; }
};

std::vector<Run> RunsOf(const std::vector<Attribute>& attributes) {
  std::vector<Run> runs;
  const Attribute* previous = nullptr;
  for (const Attribute& attribute : attributes) {
    const bool isContinued = previous != nullptr && IsBitPacked(*previous) && previous->type == attribute.type;
    if (IsBitPacked(attribute)) {
      if (!isContinued) runs.emplace_back();
      runs.back().members.push_back(&attribute);
    }
    previous = &attribute;
  }
  return runs;
}

// A type and a byte_offset, which name a bit group.
using GroupKey = std::pair<uint32_t, int32_t>;

// A group as its device sees it: the attributes that have one key, with the highest of them.
using Groups = std::map<GroupKey, const Attribute*>;

bool IsMember(const Attribute& attribute) {
  return IsBitPacked(attribute) && IsInBits(attribute) && attribute.position.bit_offset >= 0 &&
         attribute.position.len >= 1;
}

GroupKey KeyOf(const Attribute& member) { return {member.type, member.position.byte_offset}; }

Groups GroupsOf(const std::vector<Attribute>& attributes) {
  Groups groups;
  for (const Attribute& attribute : attributes) {
    if (!IsMember(attribute)) continue;
    const Attribute*& highest = groups.emplace(KeyOf(attribute), &attribute).first->second;
    if (EndBit(attribute) > EndBit(*highest)) highest = &attribute;
  }
  return groups;
}

// The members of a group that stand in one run. The run's size is right if it is what the whole group needs.
struct Part {
  const Run* run;
  const Attribute* first;
  const Attribute* highest;
  const Attribute* highestOfGroup;

  size_t Size() const { return run->Size(); }
  size_t OwnNeed() const { return NeededBytes(*highest); }
  size_t Need() const { return NeededBytes(*highestOfGroup); }
  // Whether the run has another size than these members need, for themselves and with the rest of their group.
  bool IsMissized() const { return Size() != OwnNeed() && Size() != Need(); }
};

// By byte_offset.
std::map<int32_t, Part> PartsOf(const Run& run, const Groups& groups) {
  std::map<int32_t, Part> parts;
  for (const Attribute* member : run.members) {
    if (!IsMember(*member)) continue;
    const Part alone{&run, member, member, groups.at(KeyOf(*member))};
    Part& part = parts.emplace(member->position.byte_offset, alone).first->second;
    if (EndBit(*member) > EndBit(*part.highest)) part.highest = member;
  }
  return parts;
}

std::string SizesText(size_t size, size_t needed) {
  return Count(size, "byte") + " instead of " + std::to_string(needed);
}

// What a wrong size does to a member of the group, by the place that the module gives it.
std::string EffectOfSize(const LintEntity& entity, const Attribute& member, size_t needed, size_t payloadLength) {
  Attribute right = member;
  right.position.groupByteLength = needed;
  const BitRange isAt = Locate(member, payloadLength);
  const BitRange shouldBeAt = Locate(right, payloadLength + needed);
  std::string effect =
      "the group has " + SizesText(member.position.groupByteLength, needed) + "; " + entity.Label(member);
  if (isAt.IsEmpty()) {
    effect += " can be neither read nor written";
    return shouldBeAt.IsEmpty() ? effect : effect + " instead of lying in " + BitsText(shouldBeAt);
  }
  effect += " is looked for in " + BitsText(isAt);
  return shouldBeAt.IsEmpty() ? effect : effect + " instead of " + BitsText(shouldBeAt);
}

void LintLastPart(const LintEntity& entity, const Part& part, size_t payloadLength, Findings& findings) {
  const Attribute& last = part.run->Last();
  if (EndBit(last) >= EndBit(*part.highest)) return;
  const Spot spot = entity.At(last, {"position"});
  const std::string message = "the last member " + entity.Label(last) + " of its bit group ends at bit " +
                              std::to_string(EndBit(last) - 1) + ", but " + entity.Label(*part.highest) +
                              " ends at bit " + std::to_string(EndBit(*part.highest) - 1);
  const std::string mend = "list " + entity.Label(*part.highest) + " last in its group";
  if (!part.IsMissized()) {
    findings.AddOnce(RuleId::kGroupOrder, spot, message, "none: both need a group of " + Count(part.OwnNeed(), "byte"),
                     mend);
    return;
  }
  findings.AddOnce(RuleId::kGroupLastNotHighest, spot, message, EffectOfSize(entity, last, part.Need(), payloadLength),
                   mend);
}

// Members of another group than that of the run's last attribute.
void LintOtherPart(const LintEntity& entity, const Part& part, size_t payloadLength, Findings& findings) {
  if (!part.IsMissized()) return;
  findings.AddOnce(RuleId::kGroupSizedByAnother, entity.At(*part.first, {"position"}),
                   "the bit group of " + entity.Label(*part.first) + " at byte " +
                       std::to_string(part.first->position.byte_offset) + " is sized by " +
                       entity.Label(part.run->Last()) + ", which ends the run of bools and enums",
                   EffectOfSize(entity, *part.first, part.Need(), payloadLength),
                   "list a number or binary of the same type between the two groups, or make them equally long");
}

void LintSizedByBytes(const LintEntity& entity, const Run& run, const std::map<int32_t, Part>& parts,
                      Findings& findings) {
  std::vector<std::string> needs;
  for (const auto& [byteOffset, part] : parts) {
    if (!part.IsMissized()) continue;
    needs.push_back(entity.Label(*part.highestOfGroup) + " needs " + Count(part.Need(), "byte"));
  }
  if (needs.empty()) return;
  const Attribute& last = run.Last();
  findings.AddOnce(
      RuleId::kGroupSizedByBytes, entity.At(last, {"position", "unit"}),
      std::string("the ") + DataTypeName(last.data_type) + " " + entity.Label(last) +
          " in byte units ends a run of bit fields and sizes their group",
      "its bit_offset and len make a group of " + Count(run.Size(), "byte") + "; " + Listed(needs, needs.size()),
      "list it before the bit fields, or behind a number or binary of the same type");
}

void LintRun(const LintEntity& entity, const Run& run, const Groups& groups, size_t payloadLength, Findings& findings) {
  const std::map<int32_t, Part> parts = PartsOf(run, groups);
  const Attribute& last = run.Last();
  if (!IsInBits(last)) return LintSizedByBytes(entity, run, parts, findings);
  for (const auto& [byteOffset, part] : parts) {
    if (byteOffset == last.position.byte_offset) {
      LintLastPart(entity, part, payloadLength, findings);
    } else {
      LintOtherPart(entity, part, payloadLength, findings);
    }
  }
}

// Groups whose members stand in several runs, of which some are therefore too short.
void LintSplits(const LintEntity& entity, const std::vector<Run>& runs, const Groups& groups, size_t payloadLength,
                Findings& findings) {
  std::map<GroupKey, std::vector<Part>> split;
  for (const Run& run : runs) {
    for (const auto& [byteOffset, part] : PartsOf(run, groups)) split[KeyOf(*part.first)].push_back(part);
  }
  for (const auto& [key, parts] : split) {
    const Part& first = parts.front();
    const auto highest =
        std::find_if(parts.begin(), parts.end(), [](const Part& part) { return part.highest == part.highestOfGroup; });
    for (const Part& part : parts) {
      if (part.OwnNeed() == part.Need() || part.Size() == part.Need()) continue;
      const Attribute& later = &part == &first ? *highest->first : *part.first;
      findings.AddOnce(RuleId::kGroupSplit, entity.At(later, {"position"}),
                       entity.Label(later) + " does not stand next to " + entity.Label(*first.first) +
                           " of the same bit group at byte " + std::to_string(key.second),
                       EffectOfSize(entity, *part.first, part.Need(), payloadLength),
                       "list the members of a bit group one behind the other");
    }
  }
}

void LintSizes(const LintEntity& entity, Findings& findings) {
  for (const Attribute& written : entity.writable) {
    const Attribute* read = entity.ReadRecord(static_cast<size_t>(written.id));
    if (read == nullptr || !IsInBits(written)) continue;
    if (read->position.groupByteLength == written.position.groupByteLength) continue;
    const BitRange isWritten = Locate(written, entity.writeLength);
    const BitRange isRead = Locate(*read, entity.readLength);
    findings.Add(RuleId::kGroupSizeDiffers, entity.At(written, {"position"}),
                 "the bit group of " + entity.Label(written) + " has " +
                     Count(written.position.groupByteLength, "byte") + " on writing and " +
                     Count(read->position.groupByteLength, "byte") + " on reading",
                 "it is written to " + (isWritten.IsEmpty() ? "nowhere" : BitsText(isWritten)) + " and read from " +
                     (isRead.IsEmpty() ? "nowhere" : BitsText(isRead)),
                 "list nothing of another type between the members of its group, and complete what is dropped there");
  }
}

}  // namespace

std::map<size_t, std::string> EffectsOnGroups(const LintEntity& entity) {
  std::map<size_t, std::string> effects;
  const auto isDropped = [](const Element& element) { return !element.droppedOnReading.empty(); };
  if (std::none_of(entity.elements.begin(), entity.elements.end(), isDropped)) return effects;
  const std::vector<Attribute> whole = entity.WholeRecords();
  for (const Run& run : RunsOf(whole)) {
    const auto last = static_cast<size_t>(run.Last().id);
    if (!isDropped(entity.elements[last])) continue;
    std::vector<std::string> moved;
    size_t size = 0;
    for (const Attribute* member : run.members) {
      const Attribute* read = entity.ReadRecord(static_cast<size_t>(member->id));
      if (read == nullptr || !IsInBits(*read)) continue;
      size = read->position.groupByteLength;
      if (size != run.Size()) moved.push_back(entity.Label(*read));
    }
    if (moved.empty()) continue;
    effects[last] = "its group has " + SizesText(size, run.Size()) + ", which moves " + Listed(moved, moved.size());
  }
  return effects;
}

void LintGroups(const LintEntity& entity, Findings& findings) {
  const std::pair<const std::vector<Attribute>*, size_t> layouts[] = {{&entity.all, entity.readLength},
                                                                      {&entity.writable, entity.writeLength}};
  for (const auto& [attributes, payloadLength] : layouts) {
    const std::vector<Run> runs = RunsOf(*attributes);
    const Groups groups = GroupsOf(*attributes);
    for (const Run& run : runs) LintRun(entity, run, groups, payloadLength, findings);
    LintSplits(entity, runs, groups, payloadLength, findings);
  }
  LintSizes(entity, findings);
}

}  // namespace dp4
