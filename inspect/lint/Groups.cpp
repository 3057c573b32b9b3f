// Sizes of bit groups, compared with what their members need. The last attribute of a run of bools and enums of one
// type determines the size, so the order of the list matters.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "inspect/lint/Checks.h"
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

// The members of a bit group that stand in one run of adjacent bools and enums of one type.
struct Part {
  size_t run;
  const Field* first;
  const Field* highest;

  size_t Size() const { return first->attribute->position.groupByteLength; }
  size_t Need() const { return NeededBytes(highest->attribute->position); }
};

// A bit group as the device sees it: the members of one type with the same byte_offset.
struct BitGroup {
  std::vector<Part> parts;
  const Field* highest;

  size_t Need() const { return NeededBytes(highest->attribute->position); }
  // Whether a part's size differs from what its own members need and from what the whole group needs.
  bool IsMissized(const Part& part) const { return part.Size() != part.Need() && part.Size() != Need(); }
};

bool IsMember(const Field& field) {
  const Attribute& attribute = *field.attribute;
  return IsBitPacked(attribute) && IsInBits(attribute) && attribute.position.bit_offset >= 0 &&
         attribute.position.len >= 1;
}

// The checks of one direction.
class GroupCheck {
 public:
  GroupCheck(const EntityModel& entity, const Direction& direction, Findings& findings)
      : entity_(entity), payloadBytes_(direction.payloadBytes), findings_(findings) {
    const Attribute* previous = nullptr;
    for (const Field& field : direction.fields) {
      const Attribute& attribute = *field.attribute;
      const bool isContinued = previous != nullptr && IsBitPacked(*previous) && previous->type == attribute.type;
      previous = &attribute;
      if (!IsBitPacked(attribute)) continue;
      if (!isContinued) lasts_.emplace_back();
      lasts_.back() = &field;
      if (IsMember(field)) AddMember(field);
    }
  }

  void Check() {
    std::map<size_t, std::vector<std::string>> needs;  // in runs that end with an attribute in byte units
    for (const auto& [key, group] : groups_) {
      for (const Part& part : group.parts) {
        const Field& last = *lasts_[part.run];
        if (IsInBits(*last.attribute) && last.attribute->position.byte_offset == key.second) {
          CheckLast(group, part, last);
        } else if (group.IsMissized(part)) {
          if (IsInBits(*last.attribute)) {
            AddSizedByAnother(group, part, last);
          } else {
            needs[part.run].push_back(
                fmt::format("{} needs {}", entity_.Label(group.highest->element), Count(group.Need(), "byte")));
          }
        }
      }
      CheckSplit(group);
    }
    for (const auto& [run, all] : needs) AddSizedByBytes(*lasts_[run], all);
  }

 private:
  void AddMember(const Field& field) {
    const size_t run = lasts_.size() - 1;
    const Attribute& attribute = *field.attribute;
    BitGroup& group =
        groups_.emplace(std::pair(attribute.type, attribute.position.byte_offset), BitGroup{{}, &field}).first->second;
    if (group.parts.empty() || group.parts.back().run != run) group.parts.push_back({run, &field, &field});
    for (const Field** highest : {&group.highest, &group.parts.back().highest}) {
      if (EndBit(field) > EndBit(**highest)) *highest = &field;
    }
  }

  // The effect of a wrong group size on a member.
  std::string EffectOfSize(const Field& member, size_t needed) const {
    Attribute right = *member.attribute;
    right.position.groupByteLength = needed;
    const BitRange shouldBeAt = Locate(right);
    const bool hasPlace = !shouldBeAt.IsEmpty() && shouldBeAt.EndByte() <= payloadBytes_ + needed;
    const std::string place = hasPlace ? BitsText(shouldBeAt) : "";
    const std::string effect =
        fmt::format("the group has {}; {}", SizesText(member.attribute->position.groupByteLength, needed),
                    entity_.Label(member.element));
    if (member.bits.IsEmpty()) {
      return effect + " can be neither read nor written" + (hasPlace ? " instead of lying in " + place : "");
    }
    return effect + " is looked for in " + BitsText(member.bits) + (hasPlace ? " instead of " + place : "");
  }

  // The part with the last attribute of its run.
  void CheckLast(const BitGroup& group, const Part& part, const Field& last) {
    if (EndBit(last) >= EndBit(*part.highest)) return;
    const Spot spot = entity_.At(last.element, {"position"});
    const std::string highest = entity_.Label(part.highest->element);
    const std::string message =
        fmt::format("the last member {} of its bit group ends at bit {}, but {} ends at bit {}",
                    entity_.Label(last.element), EndBit(last) - 1, highest, EndBit(*part.highest) - 1);
    const std::string fix = fmt::format("list {} last in its group", highest);
    if (group.IsMissized(part)) {
      findings_.AddOnce(rules::kGroupLastNotHighest, spot, message, EffectOfSize(last, group.Need()), fix);
    } else {
      findings_.AddOnce(rules::kGroupOrder, spot, message,
                        fmt::format("none: both need a group of {}", Count(part.Need(), "byte")), fix);
    }
  }

  void AddSizedByAnother(const BitGroup& group, const Part& part, const Field& last) {
    findings_.AddOnce(
        rules::kGroupSizedByAnother, entity_.At(part.first->element, {"position"}),
        fmt::format("the bit group of {} at byte {} is sized by {}, which ends the run of bools and enums",
                    entity_.Label(part.first->element), part.first->attribute->position.byte_offset,
                    entity_.Label(last.element)),
        EffectOfSize(*part.first, group.Need()),
        "list a number or binary of the same type between the two groups, or make them equally long");
  }

  void AddSizedByBytes(const Field& last, const std::vector<std::string>& needs) {
    const std::string size = Count(last.attribute->position.groupByteLength, "byte");
    findings_.AddOnce(rules::kGroupSizedByBytes, entity_.At(last.element, {"position", "unit"}),
                      fmt::format("the {} {} in byte units ends a run of bit fields and sizes their group",
                                  DataTypeName(last.attribute->data_type), entity_.Label(last.element)),
                      fmt::format("its bit_offset and len make a group of {}; {}", size, Listed(needs, needs.size())),
                      "list it before the bit fields, or after a number or binary of the same type");
  }

  // Groups whose members are in several runs, so that some parts are too short.
  void CheckSplit(const BitGroup& group) {
    const Field& first = *group.parts.front().first;
    const auto highest = std::find_if(group.parts.begin(), group.parts.end(),
                                      [&](const Part& part) { return part.highest == group.highest; });
    for (const Part& part : group.parts) {
      if (part.Need() == group.Need() || part.Size() == group.Need()) continue;
      const Field& later = part.first == &first ? *highest->first : *part.first;
      findings_.AddOnce(
          rules::kGroupSplit, entity_.At(later.element, {"position"}),
          fmt::format("{} does not stand next to {} of the same bit group at byte {}", entity_.Label(later.element),
                      entity_.Label(first.element), first.attribute->position.byte_offset),
          EffectOfSize(*part.first, group.Need()), "list the members of a bit group next to one another");
    }
  }

  const EntityModel& entity_;
  const size_t payloadBytes_;
  Findings& findings_;
  std::vector<const Field*> lasts_;                       // the last attribute of each run
  std::map<std::pair<Group, int32_t>, BitGroup> groups_;  // by type and byte_offset
};

// Groups whose size differs between writing and reading.
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

// What a run needs to know about an attribute.
struct Membership {
  Group type;
  bool isBitPacked;
  size_t needed;  // bytes of its group
};

// The same for a dropped attribute, as it was probably meant; nothing when that is unclear.
std::optional<Membership> MembershipOf(const EntityModel& entity, size_t index) {
  static const std::map<std::string, Group> kGroups = {{"status_writable", MorvixProtocolTypeStatusWritable_4_0},
                                                       {"status_readonly", MorvixProtocolTypeStatusReadonly_4_0},
                                                       {"alert", MorvixProtocolTypeAlert_4_0},
                                                       {"fault", MorvixProtocolTypeFault_4_0}};
  if (const Field* kept = entity.Read(index)) {
    const Attribute& attribute = *kept->attribute;
    return Membership{attribute.type, IsBitPacked(attribute), NeededBytes(attribute.position)};
  }
  const Element& element = entity.Elements()[index];
  if (!element.json->isObject()) return std::nullopt;
  const Json::Value& json = *element.json;
  const Json::Value& place = json["position"];
  const auto meant = kGroups.find(MeantKeyword("type", json["type"]));
  const Group type = meant == kGroups.end() ? element.group : meant->second;
  const std::string dataType = MeantKeyword("data_type", json["data_type"]);
  const bool isBitPacked = element.dataType == MorvixProtocolDataTypeBool_4_0 ||
                           element.dataType == MorvixProtocolDataTypeEnum_4_0 || dataType == "bool" ||
                           dataType == "enum";
  Position position;
  const bool isKnown = type != MorvixProtocolTypeUnknown_4_0 &&
                       (element.dataType != MorvixProtocolDataTypeUnknown_4_0 || !dataType.empty()) &&
                       place.isObject() && place["unit"].isString() &&
                       ProtocolGetAttrInteger_4_0(place, "byte_offset", position.byte_offset) &&
                       ProtocolGetAttrInteger_4_0(place, "bit_offset", position.bit_offset) &&
                       ProtocolGetAttrInteger_4_0(place, "len", position.len);
  return isKnown ? std::optional(Membership{type, isBitPacked, NeededBytes(position)}) : std::nullopt;
}

}  // namespace

std::string SizesText(size_t size, size_t needed) {
  return fmt::format("{} instead of {}", Count(size, "byte"), needed);
}

std::map<size_t, std::string> EffectsOnGroups(const EntityModel& entity) {
  std::map<size_t, std::string> effects;
  std::vector<const Field*> run;  // the attributes of the run so far that were not dropped
  size_t lost = kNoElement;       // a dropped attribute that would be the last of the run so far
  std::optional<Membership> last;
  const auto endRun = [&] {
    std::vector<std::string> moved;
    size_t size = 0;
    for (const Field* member : run) {
      if (lost == kNoElement || !IsInBits(*member->attribute)) continue;
      size = member->attribute->position.groupByteLength;
      if (size != last->needed) moved.push_back(entity.Label(member->element));
    }
    if (!moved.empty()) {
      effects[lost] =
          fmt::format("its group has {}, which moves {}", SizesText(size, last->needed), Listed(moved, moved.size()));
    }
    run.clear();
    lost = kNoElement;
  };
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    const std::optional<Membership> next = MembershipOf(entity, i);
    if (!next) continue;
    const bool isContinued = last && last->isBitPacked && next->isBitPacked && last->type == next->type;
    if (!isContinued) endRun();
    last = next;
    if (!next->isBitPacked) continue;
    const Field* kept = entity.Read(i);
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
