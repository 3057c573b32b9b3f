// Attributes that the parser drops, why, and what their absence shifts.

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <map>
#include <string_view>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Members.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

// An attribute that the parser drops, whatever the reason.
struct Drop {
  size_t element;
  std::string member;  // as the parser names it
  bool onReading;
  bool onWriting;
  size_t holder;      // the element whose scaling was used
  size_t laterFlags;  // flag bits that shift if the attribute, whose type is unknown, is meant to be writable
};

// Whether reading, writing or both use a scaling.
struct ScalingUse {
  bool onReading = false;
  bool onWriting = false;
};

// The required kind of a member.
std::string Needed(const std::string& member) {
  if (member == "position" || member == "uint_spec") return "an object";
  if (member == "enum") return "an array with items";
  if (member == "ratio" || member == "addition") return "a number";
  return Contains({"id", "byte_offset", "bit_offset", "len", "min", "max"}, member) ? "an integer" : "a string";
}

// Whether the parser reads the scaling of an element; later elements then inherit it. `dropped` is the member for which
// the element is dropped.
bool HasReadScaling(const Element& element, const std::string& dropped) {
  static const Names kReadBefore = {"attr", "id", "name", "display_name", "desc", "type", "data_type", "position"};
  return ProtocolDataTypeIsUInt(element.dataType) && !Contains(kReadBefore, dropped);
}

// The path from an attribute to a member; shorter when the member does not exist.
Names PathOf(const std::string& member) {
  if (Contains(PositionMembers(), member)) return {"position", member};
  if (Contains(ScalingMembers(), member)) return {"uint_spec", member};
  return Contains(AttributeMembers(), member) ? Names{member} : Names{};
}

// What is wrong with a member, and how to correct it.
struct Fault {
  std::string text;
  std::string fix;
};

Fault FaultOf(const EntityModel& entity, size_t element, const std::string& member) {
  const Names path = PathOf(member);
  const bool isDeep = path.size() == 2;
  const Json::Value& attribute = *entity.Elements()[element].json;
  const Json::Value& object = isDeep ? attribute[path[0]] : attribute;
  if (!object.isObject()) {
    return {"it is " + Described(object) + " where an object is needed", "make it an object, or remove it"};
  }
  const std::string needed = Needed(member);
  if (object.isMember(member)) {
    const Json::Value& value = object[member];
    const bool isRealZero = value.type() == Json::realValue && value.asDouble() == 0;
    return {fmt::format("{} is {} where {} is needed", Quoted(member), Described(value), needed),
            "write " + (isRealZero ? "0" : needed)};
  }
  const Names& known = !isDeep ? AttributeMembers() : path[0] == "position" ? PositionMembers() : ScalingMembers();
  std::string fix = fmt::format("give {} as {}", Quoted(member), needed);
  for (const std::string& name : object.getMemberNames()) {
    if (Contains(known, name) || SimilarName(name, known) != member) continue;
    fix = "rename " + Quoted(name) + " to " + Quoted(member);
    break;
  }
  return {Quoted(member) + " is missing", fix};
}

bool IsInteger(const Json::Value& object, const char* member) {
  int32_t value = 0;
  return ProtocolGetAttrInteger_4_0(object, member, value);
}

bool IsText(const Json::Value& object, const char* member) {
  std::string value;
  return ProtocolGetAttrString_4_0(object, member, value);
}

bool IsFactor(const Json::Value& object, const char* member) {
  double value = 0;
  return ProtocolGetAttrDouble_4_0(object, member, value);
}

bool IsLimit(const Json::Value& object, const char* member) {
  int64_t value = 0;
  const bool isThrowing = object[member].isArray() || object[member].isObject();
  return isThrowing || ProtocolGetAttrInteger64_4_0(object, member, value);  // limit-kind is about the others
}

// The members of an attribute, an object, that the parser cannot read, whether it gets to them or not.
Names UnreadableMembers(const Element& element) {
  const Json::Value& attribute = *element.json;
  Names unreadable;
  const auto check = [&unreadable](const Json::Value& object, bool (*isReadable)(const Json::Value&, const char*),
                                   std::initializer_list<const char*> members) {
    for (const char* member : members) {
      if (!isReadable(object, member)) unreadable.emplace_back(member);
    }
  };
  check(attribute, IsInteger, {"id"});
  check(attribute, IsText, {"name", "display_name", "desc", "type", "data_type"});
  const Json::Value& position = attribute["position"];
  if (position.isObject()) {
    check(position, IsInteger, {"byte_offset", "bit_offset", "len"});
    check(position, IsText, {"unit"});
  } else {
    unreadable.emplace_back("position");
  }
  if (ProtocolDataTypeIsUInt(element.dataType)) {
    const Json::Value& scaling = attribute["uint_spec"];
    if (scaling.isObject()) {
      check(scaling, IsLimit, {"min", "max"});
      check(scaling, IsFactor, {"ratio", "addition"});
    } else {
      unreadable.emplace_back("uint_spec");
    }
  }
  const bool isEnum = element.dataType == MorvixProtocolDataTypeEnum_4_0;
  if (isEnum && (!attribute["enum"].isArray() || attribute["enum"].empty())) unreadable.emplace_back("enum");
  return unreadable;
}

// As the parser takes it: of any letter case and less than 32 characters, or an empty unit.
bool IsKeyword(const std::string& member, const Json::Value& value) {
  std::string keyword = value.asCString();
  std::transform(keyword.begin(), keyword.end(), keyword.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return (keyword.empty() && member == "unit") || Contains(KeywordsOf(member), keyword);
}

// A fix that concerns the uint_spec of another attribute.
std::string FixElsewhere(const std::string& fix, const std::string& label) {
  return fix + " in the uint_spec of " + label;
}

std::string EffectOfLimitKind(const ScalingUse& use) {
  if (use.onReading && use.onWriting) return "every encode, decode and parse of the entity throws Json::LogicError";
  if (use.onReading) {
    return "every decode of the entity and every parse that takes its group throws Json::LogicError; encoding "
           "ignores it";
  }
  return "every encode of the entity throws Json::LogicError; decoding ignores it";
}

// Walks over the elements in their order.
class DropCheck {
 public:
  DropCheck(const EntityModel& entity, Findings& findings)
      : entity_(entity), findings_(findings), onGroups_(EffectsOnGroups(entity)) {}

  void Check() {
    for (size_t i = 0; i < entity_.Elements().size(); ++i) Visit(i);
    AddLostFlags();
    for (const Drop& drop : drops_) AddDrop(drop);
    for (size_t i = 0; i < drops_.size(); ++i) {
      const bool isAgain = i != 0 && drops_[i].element == drops_[i - 1].element;
      if (!isAgain) AddOtherFaults(drops_[i]);
    }
  }

 private:
  void Visit(size_t index) {
    const Element& element = entity_.Elements()[index];
    const std::string& onReading = element.droppedOnReading;
    const std::string& onWriting = element.droppedOnWriting;
    const bool isWritable = element.IsWritable();
    if (HasReadScaling(element, onReading)) readHolder_ = index;
    if (HasReadScaling(element, onWriting) && isWritable) writeHolder_ = index;
    if (Contains(ScalingMembers(), onReading)) uses_[readHolder_].onReading = true;
    if (Contains(ScalingMembers(), onWriting)) uses_[writeHolder_].onWriting = true;
    if (isWritable && onWriting.empty()) ++taken_;
    const size_t laterFlags = NoteShift(index);
    const bool isOneReason = !isWritable || (onReading == onWriting && readHolder_ == writeHolder_);
    Drop drop{index, onReading, !onReading.empty(), !onWriting.empty(), readHolder_, laterFlags};
    if (drop.onReading) drops_.push_back(drop);
    if (!drop.onWriting || (drop.onReading && isOneReason)) return;
    drop.member = onWriting;
    drop.holder = writeHolder_;
    drops_.push_back(drop);
  }

  // Reports the flag bits that a drop shifts. Returns their number when the attribute's type is unknown, so that it may
  // or may not be writable.
  size_t NoteShift(size_t index) {
    const Element& element = entity_.Elements()[index];
    const std::vector<Field>& fields = entity_.Writing().fields;
    const size_t later = fields.size() - taken_;
    const bool isUnknown = element.json->isObject() && element.group == MorvixProtocolTypeUnknown_4_0;
    const std::string meant = isUnknown ? MeantKeyword("type", (*element.json)["type"]) : "";
    const bool isShifting = (element.IsWritable() && !element.droppedOnWriting.empty()) || meant == "status_writable";
    if (!isShifting) return isUnknown && meant.empty() ? later : 0;
    ++dropped_;
    lastDropped_ = index;
    if (later == 0) return 0;
    const std::string label = entity_.Label(index);
    findings_.Add(
        rules::kFlagBitsShifted, entity_.At(index),
        fmt::format("dropping {} shifts the flag bits of {}", label, Count(later, "later attribute")),
        fmt::format("the flag of {} is bit {} instead of {}; a device that counts all attributes sets the wrong ones",
                    entity_.Label(fields[taken_].element), taken_, taken_ + dropped_),
        fmt::format("fix {}, or remove it from the device's list as well", label));
    return 0;
  }

  // The flag bitmap has whole bytes.
  void AddLostFlags() {
    const size_t bytes = (taken_ + 7) / 8;
    const size_t needed = (taken_ + dropped_ + 7) / 8;
    if (dropped_ == 0 || taken_ == 0 || bytes == needed) return;
    const std::string label = entity_.Label(lastDropped_);
    findings_.Add(
        rules::kFlagBitsShifted, entity_.At(lastDropped_),
        fmt::format("dropping {} leaves {} instead of {}",
                    dropped_ == 1 ? label : Count(dropped_, "writable attribute"), Count(bytes, "flag byte"), needed),
        "a device that counts all attributes reads the beginning of each write's payload as flags",
        fmt::format("fix {} from the device's list as well",
                    dropped_ == 1 ? label + ", or remove it" : "them, or remove them"));
  }

  // The effect of a drop, beginning with the line that the parser logs.
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

  void AddKeyword(size_t element, const char* name, const Spot& spot, const std::string& effect) {
    const std::string keyword = spot.value->asCString();
    const std::string meant = MeantKeyword(name, *spot.value);
    const std::string fix = meant.empty() ? fmt::format("one of {}", fmt::join(KeywordsOf(name), ", "))
                                          : "did you mean " + Quoted(meant) + "?";
    const bool isLong = keyword.size() >= 32;
    const Rule& rule = keyword.empty() ? rules::kEmptyKeyword : isLong ? rules::kLongKeyword : rules::kUnknownKeyword;
    const std::string problem = keyword.empty() ? "is empty"
                                : isLong        ? fmt::format("has {} characters", keyword.size())
                                                : Quoted(keyword) + " is unknown";
    findings_.Add(rule, spot, fmt::format("{} is dropped: its {} {}", entity_.Label(element), name, problem), effect,
                  fix);
  }

  void AddDrop(const Drop& drop) {
    if (drop.member == "type" || drop.member == "data_type") {
      const Spot spot = entity_.At(drop.element, {drop.member});
      if (spot.value->isString()) return AddKeyword(drop.element, drop.member.c_str(), spot, EffectOf(drop));
    }
    if (drop.member == "position.unit") {
      return AddKeyword(drop.element, "unit", entity_.At(drop.element, {"position", "unit"}), EffectOf(drop));
    }
    const bool isAlways = drop.onReading == drop.onWriting || !entity_.Elements()[drop.element].IsWritable();
    const char* when = isAlways ? "" : drop.onReading ? " on reading" : " on writing";
    const std::string subject = fmt::format("{} is dropped{}: ", entity_.Label(drop.element), when);
    if (Contains(ScalingMembers(), drop.member)) return AddScalingDrop(drop, subject);
    const Fault fault = FaultOf(entity_, drop.element, drop.member);
    findings_.Add(rules::kAttributeDropped, entity_.At(drop.element, PathOf(drop.member)), subject + fault.text,
                  EffectOf(drop), fault.fix);
  }

  // What the parser does not get to, since it drops the attribute for another member.
  void AddOtherFaults(const Drop& drop) {
    const Element& element = entity_.Elements()[drop.element];
    if (!element.json->isObject()) return;
    const std::string effect = "the parser would drop it for this, too, once the other is fixed";
    for (const std::string& member : UnreadableMembers(element)) {
      if (member == drop.member) continue;
      const Fault fault = FaultOf(entity_, drop.element, member);
      findings_.Add(rules::kAttributeDropped, entity_.At(drop.element, PathOf(member)),
                    fmt::format("{} is dropped: {}", entity_.Label(drop.element), fault.text), effect, fault.fix);
    }
    for (const char* name : {"type", "data_type", "unit"}) {
      const bool isUnit = std::string_view(name) == "unit";
      if (drop.member == (isUnit ? "position.unit" : name)) continue;
      const Json::Value& object = isUnit ? (*element.json)["position"] : *element.json;
      if (!object.isObject() || !object[name].isString() || IsKeyword(name, object[name])) continue;
      const Names path = isUnit ? Names{"position", "unit"} : Names{name};
      AddKeyword(drop.element, name, entity_.At(drop.element, path), effect);
    }
  }

  void AddScalingDrop(const Drop& drop, const std::string& subject) {
    const Fault fault = FaultOf(entity_, drop.holder, drop.member);
    const std::string holder = entity_.Label(drop.holder);
    const Spot spot = entity_.At(drop.holder, PathOf(drop.member));
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
  const std::map<size_t, std::string> onGroups_;  // by element
  size_t readHolder_ = kNoElement;                // the element whose scaling is used
  size_t writeHolder_ = kNoElement;
  size_t taken_ = 0;    // writable attributes so far that the parser kept
  size_t dropped_ = 0;  // and those that it dropped
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

void LintDropped(const EntityModel& entity, Findings& findings) { DropCheck(entity, findings).Check(); }

}  // namespace morvix::inspect
