// Bit groups: what sizes them, and whether that is what their members need. A group's size follows from the last
// attribute of a run of bools and enums of one type, so that the order of the list decides.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Members.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

int64_t EndBit(const Position& position) { return int64_t{position.bit_offset} + position.len; }
int64_t EndBit(const Field& member) { return EndBit(member.attribute->position); }

// The bytes that a group needs for a member with this position.
size_t NeededBytes(const Position& position) {
  return static_cast<size_t>(std::max<int64_t>(EndBit(position) + 7, 0) / 8);
}

// Adjacent bools and enums of one type, to which the parser gave one size.
struct Run {
  std::vector<const Field*> members;

  const Field& Last() const { return *members.back(); }
  size_t Size() const { return Last().attribute->position.groupByteLength; }
};

std::vector<Run> RunsOf(const Direction& direction) {
  std::vector<Run> runs;
  const Attribute* previous = nullptr;
  for (const Field& field : direction.fields) {
    const Attribute& attribute = *field.attribute;
    const bool isContinued = previous != nullptr && IsBitPacked(*previous) && previous->type == attribute.type;
    if (IsBitPacked(attribute)) {
      if (!isContinued) runs.emplace_back();
      runs.back().members.push_back(&field);
    }
    previous = &attribute;
  }
  return runs;
}

// A type and a byte_offset, which name a bit group.
using GroupKey = std::pair<uint32_t, int32_t>;

// A group as its device sees it: the attributes that have one key, with the highest of them.
using Groups = std::map<GroupKey, const Field*>;

bool IsMember(const Field& field) {
  const Attribute& attribute = *field.attribute;
  return IsBitPacked(attribute) && IsInBits(attribute) && attribute.position.bit_offset >= 0 &&
         attribute.position.len >= 1;
}

GroupKey KeyOf(const Field& member) { return {member.attribute->type, member.attribute->position.byte_offset}; }

Groups GroupsOf(const Direction& direction) {
  Groups groups;
  for (const Field& field : direction.fields) {
    if (!IsMember(field)) continue;
    const Field*& highest = groups.emplace(KeyOf(field), &field).first->second;
    if (EndBit(field) > EndBit(*highest)) highest = &field;
  }
  return groups;
}

// The members of a group that stand in one run. The run's size is right if it is what the whole group needs.
struct Part {
  const Run* run;
  const Field* first;
  const Field* highest;
  const Field* highestOfGroup;

  size_t Size() const { return run->Size(); }
  size_t OwnNeed() const { return NeededBytes(highest->attribute->position); }
  size_t Need() const { return NeededBytes(highestOfGroup->attribute->position); }
  // Whether the run has another size than these members need, for themselves and with the rest of their group.
  bool IsMissized() const { return Size() != OwnNeed() && Size() != Need(); }
};

// By byte_offset.
std::map<int32_t, Part> PartsOf(const Run& run, const Groups& groups) {
  std::map<int32_t, Part> parts;
  for (const Field* member : run.members) {
    if (!IsMember(*member)) continue;
    const Part alone{&run, member, member, groups.at(KeyOf(*member))};
    Part& part = parts.emplace(member->attribute->position.byte_offset, alone).first->second;
    if (EndBit(*member) > EndBit(*part.highest)) part.highest = member;
  }
  return parts;
}

// What a wrong size does to a member of the group.
std::string EffectOfSize(const EntityModel& entity, const Field& member, size_t needed, size_t payloadBytes) {
  Attribute right = *member.attribute;
  right.position.groupByteLength = needed;
  BitRange shouldBeAt = Locate(right);
  if (shouldBeAt.EndByte() > payloadBytes + needed) shouldBeAt = BitRange();
  const std::string effect =
      fmt::format("the group has {}; {}", SizesText(member.attribute->position.groupByteLength, needed),
                  entity.Label(member.element));
  const std::string place = shouldBeAt.IsEmpty() ? "" : BitsText(shouldBeAt);
  if (member.bits.IsEmpty()) {
    return effect + " can be neither read nor written" + (place.empty() ? "" : " instead of lying in " + place);
  }
  return fmt::format("{} is looked for in {}{}", effect, BitsText(member.bits),
                     place.empty() ? "" : " instead of " + place);
}

// The checks of one direction.
class GroupCheck {
 public:
  GroupCheck(const EntityModel& entity, const Direction& direction, Findings& findings)
      : entity_(entity),
        payloadBytes_(direction.payloadBytes),
        runs_(RunsOf(direction)),
        groups_(GroupsOf(direction)),
        findings_(findings) {}

  void Check() {
    for (const Run& run : runs_) CheckRun(run);
    CheckSplits();
  }

 private:
  void CheckRun(const Run& run) {
    const std::map<int32_t, Part> parts = PartsOf(run, groups_);
    const Attribute& last = *run.Last().attribute;
    if (!IsInBits(last)) return CheckSizedByBytes(run, parts);
    for (const auto& [byteOffset, part] : parts) {
      if (byteOffset == last.position.byte_offset) {
        CheckLastPart(part);
      } else {
        CheckOtherPart(part);
      }
    }
  }

  void CheckLastPart(const Part& part) {
    const Field& last = part.run->Last();
    if (EndBit(last) >= EndBit(*part.highest)) return;
    const Spot spot = entity_.At(last.element, {"position"});
    const std::string highest = entity_.Label(part.highest->element);
    const std::string message =
        fmt::format("the last member {} of its bit group ends at bit {}, but {} ends at bit {}",
                    entity_.Label(last.element), EndBit(last) - 1, highest, EndBit(*part.highest) - 1);
    const std::string fix = fmt::format("list {} last in its group", highest);
    if (part.IsMissized()) {
      findings_.AddOnce(rules::kGroupLastNotHighest, spot, message,
                        EffectOfSize(entity_, last, part.Need(), payloadBytes_), fix);
    } else {
      findings_.AddOnce(rules::kGroupOrder, spot, message,
                        fmt::format("none: both need a group of {}", Count(part.OwnNeed(), "byte")), fix);
    }
  }

  // Members of another group than that of the run's last attribute.
  void CheckOtherPart(const Part& part) {
    if (!part.IsMissized()) return;
    findings_.AddOnce(
        rules::kGroupSizedByAnother, entity_.At(part.first->element, {"position"}),
        fmt::format("the bit group of {} at byte {} is sized by {}, which ends the run of bools and enums",
                    entity_.Label(part.first->element), part.first->attribute->position.byte_offset,
                    entity_.Label(part.run->Last().element)),
        EffectOfSize(entity_, *part.first, part.Need(), payloadBytes_),
        "list a number or binary of the same type between the two groups, or make them equally long");
  }

  void CheckSizedByBytes(const Run& run, const std::map<int32_t, Part>& parts) {
    std::vector<std::string> needs;
    for (const auto& [byteOffset, part] : parts) {
      if (!part.IsMissized()) continue;
      needs.push_back(
          fmt::format("{} needs {}", entity_.Label(part.highestOfGroup->element), Count(part.Need(), "byte")));
    }
    if (needs.empty()) return;
    const Field& last = run.Last();
    findings_.AddOnce(rules::kGroupSizedByBytes, entity_.At(last.element, {"position", "unit"}),
                      fmt::format("the {} {} in byte units ends a run of bit fields and sizes their group",
                                  DataTypeName(last.attribute->data_type), entity_.Label(last.element)),
                      fmt::format("its bit_offset and len make a group of {}; {}", Count(run.Size(), "byte"),
                                  Listed(needs, needs.size())),
                      "list it before the bit fields, or after a number or binary of the same type");
  }

  // Groups whose members stand in several runs, of which some are therefore too short.
  void CheckSplits() {
    std::map<GroupKey, std::vector<Part>> split;
    for (const Run& run : runs_) {
      for (const auto& [byteOffset, part] : PartsOf(run, groups_)) split[KeyOf(*part.first)].push_back(part);
    }
    for (const auto& [key, parts] : split) {
      const Part& first = parts.front();
      const auto highest = std::find_if(parts.begin(), parts.end(),
                                        [](const Part& part) { return part.highest == part.highestOfGroup; });
      for (const Part& part : parts) {
        if (part.OwnNeed() == part.Need() || part.Size() == part.Need()) continue;
        const Field& later = &part == &first ? *highest->first : *part.first;
        findings_.AddOnce(rules::kGroupSplit, entity_.At(later.element, {"position"}),
                          fmt::format("{} does not stand next to {} of the same bit group at byte {}",
                                      entity_.Label(later.element), entity_.Label(first.first->element), key.second),
                          EffectOfSize(entity_, *part.first, part.Need(), payloadBytes_),
                          "list the members of a bit group next to one another");
      }
    }
  }

  const EntityModel& entity_;
  const size_t payloadBytes_;
  const std::vector<Run> runs_;
  const Groups groups_;
  Findings& findings_;
};

// Groups that are written with one size and read with another.
void LintSizes(const EntityModel& entity, Findings& findings) {
  const auto placeOf = [](const Field& field) { return field.bits.IsEmpty() ? "nowhere" : BitsText(field.bits); };
  for (const Field& written : entity.Writing().fields) {
    const Field* read = entity.Read(written.element);
    if (read == nullptr || !IsInBits(*written.attribute)) continue;
    const size_t writtenSize = written.attribute->position.groupByteLength;
    const size_t readSize = read->attribute->position.groupByteLength;
    if (readSize == writtenSize) continue;
    findings.Add(rules::kGroupSizeDiffers, entity.At(written.element, {"position"}),
                 fmt::format("the bit group of {} has {} on writing and {} on reading", entity.Label(written.element),
                             Count(writtenSize, "byte"), Count(readSize, "byte")),
                 fmt::format("it is written to {} and read from {}", placeOf(written), placeOf(*read)),
                 "list nothing of another type between the members of its group, and complete what is dropped there");
  }
}

// What decides about an attribute's part in a run.
struct Membership {
  Group type = MorvixProtocolTypeUnknown_4_0;
  bool isBitPacked = false;
  size_t needed = 0;  // bytes of its group
};

// That of a dropped attribute, as it was probably meant; false when that cannot be told.
bool ReadMeant(const Element& element, Membership& meant) {
  static const std::map<std::string, Group> kGroups = {{"status_writable", MorvixProtocolTypeStatusWritable_4_0},
                                                       {"status_readonly", MorvixProtocolTypeStatusReadonly_4_0},
                                                       {"alert", MorvixProtocolTypeAlert_4_0},
                                                       {"fault", MorvixProtocolTypeFault_4_0}};
  if (!element.json->isObject()) return false;
  const Json::Value& json = *element.json;
  const Json::Value& place = json["position"];
  const auto group = kGroups.find(MeantKeyword("type", json["type"]));
  meant.type = group == kGroups.end() ? element.group : group->second;
  const std::string dataType = MeantKeyword("data_type", json["data_type"]);
  meant.isBitPacked = element.dataType == MorvixProtocolDataTypeBool_4_0 ||
                      element.dataType == MorvixProtocolDataTypeEnum_4_0 || dataType == "bool" || dataType == "enum";
  Position position;
  const bool isKnown = meant.type != MorvixProtocolTypeUnknown_4_0 &&
                       (element.dataType != MorvixProtocolDataTypeUnknown_4_0 || !dataType.empty()) &&
                       place.isObject() && place["unit"].isString() &&
                       ProtocolGetAttrInteger_4_0(place, "byte_offset", position.byte_offset) &&
                       ProtocolGetAttrInteger_4_0(place, "bit_offset", position.bit_offset) &&
                       ProtocolGetAttrInteger_4_0(place, "len", position.len);
  meant.needed = NeededBytes(position);
  return isKnown;
}

}  // namespace

std::string SizesText(size_t size, size_t needed) {
  return fmt::format("{} instead of {}", Count(size, "byte"), needed);
}

std::map<size_t, std::string> EffectsOnGroups(const EntityModel& entity) {
  std::map<size_t, std::string> effects;
  std::vector<const Field*> run;  // what was kept of the run so far
  size_t lost = kNoElement;       // a dropped attribute that would be its last one so far
  Membership last;
  const auto endRun = [&] {
    std::vector<std::string> moved;
    size_t size = 0;
    for (const Field* member : run) {
      if (!IsInBits(*member->attribute)) continue;
      size = member->attribute->position.groupByteLength;
      if (size != last.needed) moved.push_back(entity.Label(member->element));
    }
    if (lost != kNoElement && !moved.empty()) {
      effects[lost] =
          fmt::format("its group has {}, which moves {}", SizesText(size, last.needed), Listed(moved, moved.size()));
    }
    run.clear();
    lost = kNoElement;
  };
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    const Field* kept = entity.Read(i);
    Membership next;
    if (kept != nullptr) {
      const Attribute& attribute = *kept->attribute;
      next = {attribute.type, IsBitPacked(attribute), NeededBytes(attribute.position)};
    } else if (!ReadMeant(entity.Elements()[i], next)) {
      continue;
    }
    if (!next.isBitPacked || next.type != last.type || !last.isBitPacked) endRun();
    last = next;
    if (!next.isBitPacked) continue;
    lost = kept == nullptr ? i : kNoElement;
    if (kept != nullptr) run.push_back(kept);
  }
  endRun();
  return effects;
}

void LintGroups(const EntityModel& entity, Findings& findings) {
  GroupCheck(entity, entity.Reading(), findings).Check();
  GroupCheck(entity, entity.Writing(), findings).Check();
  LintSizes(entity, findings);
}

}  // namespace morvix::inspect
