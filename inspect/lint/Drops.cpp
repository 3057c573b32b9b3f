// Attributes that the parser drops, why, and what their absence shifts.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Members.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

using GroupEffects = std::map<size_t, std::string>;

// An attribute that the parser drops, whatever the reason.
struct Drop {
  size_t element;
  std::string member;  // as the parser names it
  bool onReading;
  bool onWriting;
  size_t holder;      // the element whose scaling was in force
  size_t laterFlags;  // flag bits that shift if the attribute, whose type cannot be told, is meant to be writable
};

// Which walks over the entity use a scaling.
struct ScalingUse {
  bool onReading = false;
  bool onWriting = false;
};

// What a member has to be.
std::string Needed(const std::string& member) {
  if (member == "position" || member == "uint_spec") return "an object";
  if (member == "enum") return "an array with items";
  if (member == "ratio" || member == "addition") return "a number";
  return Contains({"id", "byte_offset", "bit_offset", "len", "min", "max"}, member) ? "an integer" : "a string";
}

// Whether the parser looks at a member that it names before it looks at the group, and so at the others.
bool IsIdentity(const std::string& member) {
  return Contains({"attr", "id", "name", "display_name", "desc", "type", "data_type"}, member);
}

// The path to a member from its attribute.
std::vector<const char*> PathOf(const std::string& member) {
  for (const std::string& known : PositionMembers()) {
    if (known == member) return {"position", known.c_str()};
  }
  for (const std::string& known : ScalingMembers()) {
    if (known == member) return {"uint_spec", known.c_str()};
  }
  for (const std::string& known : AttributeMembers()) {
    if (known == member) return {known.c_str()};
  }
  return {};
}

Spot SpotOf(const EntityModel& entity, size_t element, const std::string& member) {
  const std::vector<const char*> path = PathOf(member);
  return path.empty()       ? entity.At(element)
         : path.size() == 1 ? entity.At(element, {path[0]})
                            : entity.At(element, {path[0], path[1]});
}

// What is wrong with a member, and how to put it right.
struct Fault {
  std::string text;
  std::string fix;
};

Fault MissingMember(const Json::Value& object, const std::string& member, const Names& known) {
  for (const std::string& name : object.getMemberNames()) {
    if (!Contains(known, name) && SimilarName(name, known) == member) {
      return {Quoted(member) + " is missing", "did you mean it by " + Quoted(name) + "?"};
    }
  }
  return {Quoted(member) + " is missing", fmt::format("give {} as {}", Quoted(member), Needed(member))};
}

Fault FaultOf(const EntityModel& entity, size_t element, const std::string& member) {
  const std::vector<const char*> path = PathOf(member);
  const Json::Value* object = entity.Elements()[element].json;
  if (path.size() == 2) object = &(*object)[path[0]];
  if (!object->isObject()) {
    return {"it is " + Described(*object) + " where an object is needed", "make it an object, or remove it"};
  }
  if (!object->isMember(member)) {
    return MissingMember(*object, member,
                         path.size() == 1                    ? AttributeMembers()
                         : Contains(ScalingMembers(), member) ? ScalingMembers()
                                                             : PositionMembers());
  }
  const Json::Value& value = (*object)[member];
  const std::string needed = Needed(member);
  const bool isRealZero = value.type() == Json::realValue && value.asDouble() == 0;
  return {fmt::format("{} is {} where {} is needed", Quoted(member), Described(value), needed),
          isRealZero ? "write 0" : "write " + needed};
}

// A fix that concerns the uint_spec of another attribute.
std::string FixElsewhere(const std::string& fix, const std::string& label) {
  const bool isQuestion = fix.back() == '?';
  return fmt::format("{} in the uint_spec of {}{}", fix.substr(0, fix.size() - (isQuestion ? 1 : 0)), label,
                     isQuestion ? "?" : "");
}

std::string EffectOfLimitKind(const ScalingUse& use) {
  if (use.onReading && use.onWriting) return "every encode, decode and parse of the entity throws Json::LogicError";
  if (use.onReading) {
    return "every decode of the entity and every parse that takes its group throws Json::LogicError; encoding does not "
           "look at it";
  }
  return "every encode of the entity throws Json::LogicError; decoding does not look at it";
}

// Follows the scaling that is in force through the walk over the elements.
class ScalingWalk {
 public:
  // The element whose scaling is in force for this one; `dropped` is the parser's reason to drop it.
  size_t Advance(size_t index, const Element& element, const std::string& dropped) {
    const bool isFetched = dropped != "position" && !IsIdentity(dropped);
    if (isFetched && ProtocolDataTypeIsUInt(element.dataType)) holder_ = index;
    return holder_;
  }

 private:
  size_t holder_ = kNoElement;
};

// The walk over the elements in their order.
class DropWalk {
 public:
  DropWalk(const EntityModel& entity, Findings& findings)
      : entity_(entity), findings_(findings), onGroups_(EffectsOnGroups(entity)) {}

  void Visit(size_t index) {
    const Element& element = entity_.Elements()[index];
    const std::string& onReading = element.droppedOnReading;
    const std::string& onWriting = element.droppedOnWriting;
    const bool isWritable = element.IsWritable();
    const size_t readHolder = reading_.Advance(index, element, onReading);
    const size_t writeHolder = isWritable ? writing_.Advance(index, element, onWriting) : kNoElement;
    if (Contains(ScalingMembers(), onReading)) uses_[readHolder].onReading = true;
    if (Contains(ScalingMembers(), onWriting)) uses_[writeHolder].onWriting = true;
    if (isWritable && onWriting.empty()) ++taken_;
    const size_t laterFlags = NoteShift(index);
    const bool isOneReason = onReading == onWriting && readHolder == writeHolder;
    if (!onReading.empty() && !onWriting.empty() && (isOneReason || !isWritable)) {
      drops_.push_back({index, onReading, true, true, readHolder, laterFlags});
      return;
    }
    if (!onReading.empty()) drops_.push_back({index, onReading, true, !onWriting.empty(), readHolder, 0});
    if (!onWriting.empty()) drops_.push_back({index, onWriting, !onReading.empty(), true, writeHolder, 0});
  }

  void Finish() {
    AddLostFlags();
    for (const Drop& drop : drops_) AddDrop(drop);
  }

 private:
  // Reports the flag bits that a drop shifts; gives their number when the attribute may be meant to be writable or not.
  size_t NoteShift(size_t index) {
    const Element& element = entity_.Elements()[index];
    const bool isUnknown = element.json->isObject() && element.group == MorvixProtocolTypeUnknown_4_0;
    const std::string meant = isUnknown ? MeantKeyword("type", (*element.json)["type"]) : "";
    if ((element.IsWritable() && !element.droppedOnWriting.empty()) || meant == "status_writable") {
      AddShift(index, ++dropped_);
      lastDropped_ = index;
    }
    return isUnknown && meant.empty() ? entity_.Writing().fields.size() - taken_ : 0;
  }

  void AddShift(size_t index, size_t dropped) {
    const std::vector<Field>& fields = entity_.Writing().fields;
    if (taken_ >= fields.size()) return;
    const std::string label = entity_.Label(index);
    findings_.Add(
        rules::kFlagBitsShifted, entity_.At(index),
        fmt::format("dropping {} shifts the flag bits of {}", label, Count(fields.size() - taken_, "later attribute")),
        fmt::format("the flag of {} is bit {} instead of {}; a device that counts all attributes sets the wrong ones",
                    entity_.Label(fields[taken_].element), taken_, taken_ + dropped),
        fmt::format("fix {}, or remove it from the device's list as well", label));
  }

  // The flags are whole bytes.
  void AddLostFlags() {
    const size_t bytes = (taken_ + 7) / 8;
    const size_t needed = (taken_ + dropped_ + 7) / 8;
    if (dropped_ == 0 || taken_ == 0 || bytes == needed) return;
    const std::string label = entity_.Label(lastDropped_);
    findings_.Add(
        rules::kFlagBitsShifted, entity_.At(lastDropped_),
        fmt::format("dropping {} leaves {} instead of {}",
                    dropped_ == 1 ? label : Count(dropped_, "writable attribute"), Count(bytes, "flag byte"), needed),
        "a device that counts all attributes takes the beginning of each write's payload for flags",
        fmt::format("fix {} from the device's list as well",
                    dropped_ == 1 ? label + ", or remove it" : "them, or remove them"));
  }

  // What a drop means, in the parser's words.
  std::string EffectOf(const Drop& drop) const {
    const Element& element = entity_.Elements()[drop.element];
    const bool isWritable = element.IsWritable();
    std::string effect = fmt::format("the parser logs \"Warning: '{}' is invalid, skip.\"; ", drop.member);
    const auto found = onGroups_.find(drop.element);
    const std::string onGroup = found == onGroups_.end() ? "" : "; " + found->second;
    if (drop.onReading && drop.onWriting && (isWritable || element.group == MorvixProtocolTypeUnknown_4_0)) {
      effect += "it can be neither read nor written" + onGroup;
      if (drop.laterFlags == 0) return effect;
      return fmt::format("{}; if it is meant to be writable, this shifts the flag bits of {}", effect,
                         Count(drop.laterFlags, "later attribute"));
    }
    if (!drop.onReading) return effect + "decodes show it, but it cannot be written";
    return effect + (isWritable ? "it can be written, but no decode shows it" : "no decode shows it") + onGroup;
  }

  void AddKeyword(const Drop& drop, const char* name, const Spot& spot) {
    const std::string keyword = spot.value->asCString();
    std::string all;
    for (const std::string& other : KeywordsOf(name)) all += (all.empty() ? "" : ", ") + other;
    const std::string similar = MeantKeyword(name, *spot.value);
    const std::string fix = similar.empty() ? "one of " + all : "did you mean " + Quoted(similar) + "?";
    const std::string subject = fmt::format("{} is dropped: its {} ", entity_.Label(drop.element), name);
    const std::string effect = EffectOf(drop);
    if (keyword.empty()) {
      findings_.Add(rules::kEmptyKeyword, spot, subject + "is empty", effect, fix);
    } else if (keyword.size() >= 32) {
      findings_.Add(rules::kLongKeyword, spot, fmt::format("{}has {} characters", subject, keyword.size()), effect,
                    fix);
    } else {
      findings_.Add(rules::kUnknownKeyword, spot, subject + Quoted(keyword) + " is unknown", effect, fix);
    }
  }

  void AddDrop(const Drop& drop) {
    if (drop.member == "type" || drop.member == "data_type") {
      const Spot spot = entity_.At(drop.element, {drop.member.c_str()});
      if (spot.value->isString()) return AddKeyword(drop, drop.member.c_str(), spot);
    }
    if (drop.member == "position.unit") return AddKeyword(drop, "unit", entity_.At(drop.element, {"position", "unit"}));
    const bool isAlways = drop.onReading == drop.onWriting || !entity_.Elements()[drop.element].IsWritable();
    const char* when = isAlways ? "" : drop.onReading ? " on reading" : " on writing";
    const std::string subject = fmt::format("{} is dropped{}: ", entity_.Label(drop.element), when);
    if (Contains(ScalingMembers(), drop.member)) return AddScalingDrop(drop, subject);
    const Fault fault = FaultOf(entity_, drop.element, drop.member);
    findings_.Add(rules::kAttributeDropped, SpotOf(entity_, drop.element, drop.member), subject + fault.text,
                  EffectOf(drop), fault.fix);
  }

  void AddScalingDrop(const Drop& drop, const std::string& subject) {
    const Fault fault = FaultOf(entity_, drop.holder, drop.member);
    const std::string holder = entity_.Label(drop.holder);
    const Spot spot = SpotOf(entity_, drop.holder, drop.member);
    const Json::Value& limit = (*entity_.Elements()[drop.holder].json)["uint_spec"][drop.member];
    const bool isLimit = drop.member == "min" || drop.member == "max";
    if (isLimit && (limit.isArray() || limit.isObject())) {
      findings_.AddOnce(rules::kLimitKind, spot, holder + ": " + fault.text, EffectOfLimitKind(uses_.at(drop.holder)),
                        fault.fix);
    } else if (drop.holder == drop.element) {
      findings_.Add(rules::kAttributeDropped, spot, subject + fault.text, EffectOf(drop), fault.fix);
    } else {
      findings_.Add(rules::kInheritedScaling, entity_.At(drop.element),
                    fmt::format("{}it inherits the uint_spec of {}, in which {}", subject, holder, fault.text),
                    EffectOf(drop), FixElsewhere(fault.fix, holder));
    }
  }

  const EntityModel& entity_;
  Findings& findings_;
  const GroupEffects onGroups_;
  ScalingWalk reading_;
  ScalingWalk writing_;
  size_t taken_ = 0;    // writable attributes so far that became records
  size_t dropped_ = 0;  // and that did not
  size_t lastDropped_ = kNoElement;
  std::vector<Drop> drops_;
  std::map<size_t, ScalingUse> uses_;
};

}  // namespace

std::string MeantKeyword(const std::string& member, const Json::Value& value) {
  if (!value.isString()) return "";
  const std::vector<std::string>& known = KeywordsOf(member);
  const std::string keyword = value.asCString();
  return Contains(known, keyword) ? "" : SimilarName(keyword, known);
}

void LintDropped(const EntityModel& entity, Findings& findings) {
  DropWalk walk(entity, findings);
  for (size_t i = 0; i < entity.Elements().size(); ++i) walk.Visit(i);
  walk.Finish();
}

}  // namespace morvix::inspect
