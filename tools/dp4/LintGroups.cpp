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

bool IsInBits(const Attribute& attribute) { return attribute.position.unit == MorvixProtocolUnitBit_4_0; }

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

// A group as its device sees it: the members of a run that have one byte_offset. By the highest of them, and the first.
struct Group {
  const Attribute* first;
  const Attribute* highest;
};

std::map<int32_t, Group> GroupsOf(const Run& run) {
  std::map<int32_t, Group> groups;
  for (const Attribute* member : run.members) {
    if (!IsInBits(*member) || member->position.bit_offset < 0 || member->position.len < 1) continue;
    Group& group = groups.emplace(member->position.byte_offset, Group{member, member}).first->second;
    if (EndBit(*member) > EndBit(*group.highest)) group.highest = member;
  }
  return groups;
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

void LintLastGroup(const LintEntity& entity, const Run& run, const Group& group, size_t payloadLength,
                   Findings& findings) {
  const Attribute& last = run.Last();
  if (EndBit(last) >= EndBit(*group.highest)) return;
  const Spot spot = entity.At(last, {"position"});
  const std::string message = "the last member " + entity.Label(last) + " of its bit group ends at bit " +
                              std::to_string(EndBit(last) - 1) + ", but " + entity.Label(*group.highest) +
                              " ends at bit " + std::to_string(EndBit(*group.highest) - 1);
  const std::string mend = "list " + entity.Label(*group.highest) + " last in its group";
  const size_t needed = NeededBytes(*group.highest);
  if (needed == run.Size()) {
    findings.AddOnce(RuleId::kGroupOrder, spot, message, "none: both need a group of " + Count(needed, "byte"), mend);
    return;
  }
  findings.AddOnce(RuleId::kGroupLastNotHighest, spot, message, EffectOfSize(entity, last, needed, payloadLength),
                   mend);
}

// A group of the run that does not hold the run's last attribute.
void LintOtherGroup(const LintEntity& entity, const Run& run, const Group& group, size_t payloadLength,
                    Findings& findings) {
  const size_t needed = NeededBytes(*group.highest);
  if (needed == run.Size()) return;
  findings.AddOnce(RuleId::kGroupSizedByAnother, entity.At(*group.first, {"position"}),
                   "the bit group of " + entity.Label(*group.first) + " at byte " +
                       std::to_string(group.first->position.byte_offset) + " is sized by " + entity.Label(run.Last()) +
                       ", which ends the run of bools and enums",
                   EffectOfSize(entity, *group.first, needed, payloadLength),
                   "list a number or binary of the same type between the two groups, or make them equally long");
}

void LintRun(const LintEntity& entity, const Run& run, size_t payloadLength, Findings& findings) {
  const std::map<int32_t, Group> groups = GroupsOf(run);
  const Attribute& last = run.Last();
  if (!IsInBits(last) && !groups.empty()) {
    const Group& group = groups.begin()->second;
    findings.AddOnce(RuleId::kGroupSizedByBytes, entity.At(last, {"position", "unit"}),
                     "the enum " + entity.Label(last) + " in byte units ends a run of bit fields and sizes their group",
                     "its bit_offset and len make a group of " + Count(run.Size(), "byte") + "; " +
                         entity.Label(*group.highest) + " needs " + Count(NeededBytes(*group.highest), "byte"),
                     "list it before the bit fields, or behind a number or binary of the same type");
  }
  for (const auto& [byteOffset, group] : groups) {
    if (IsInBits(last) && byteOffset == last.position.byte_offset) {
      LintLastGroup(entity, run, group, payloadLength, findings);
    } else if (IsInBits(last)) {
      LintOtherGroup(entity, run, group, payloadLength, findings);
    }
  }
}

// Groups of one type and byte_offset in several runs.
void LintSplits(const LintEntity& entity, const std::vector<Run>& runs, size_t payloadLength, Findings& findings) {
  std::map<std::pair<uint32_t, int32_t>, const Attribute*> firsts;
  for (const Run& run : runs) {
    for (const auto& [byteOffset, group] : GroupsOf(run)) {
      const Attribute& member = *group.first;
      const auto known = firsts.emplace(std::pair<uint32_t, int32_t>(member.type, byteOffset), &member);
      const Attribute& first = *known.first->second;
      if (first.position.groupByteLength == member.position.groupByteLength) continue;
      const bool isShorter = first.position.groupByteLength < member.position.groupByteLength;
      const Attribute& shorter = isShorter ? first : member;
      const size_t needed = std::max(first.position.groupByteLength, member.position.groupByteLength);
      findings.AddOnce(RuleId::kGroupSplit, entity.At(member, {"position"}),
                       entity.Label(member) + " does not stand next to " + entity.Label(first) +
                           " of the same bit group at byte " + std::to_string(byteOffset),
                       EffectOfSize(entity, shorter, needed, payloadLength),
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

void LintGroups(const LintEntity& entity, Findings& findings) {
  const std::pair<const std::vector<Attribute>*, size_t> layouts[] = {{&entity.all, entity.readLength},
                                                                      {&entity.writable, entity.writeLength}};
  for (const auto& [attributes, payloadLength] : layouts) {
    const std::vector<Run> runs = RunsOf(*attributes);
    for (const Run& run : runs) LintRun(entity, run, payloadLength, findings);
    LintSplits(entity, runs, payloadLength, findings);
  }
  LintSizes(entity, findings);
}

}  // namespace dp4
