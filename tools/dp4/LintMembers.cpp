// The members of configuration objects: misspelt, unused, misread; what the parser drops and why; names.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <unordered_map>
#include <utility>

#include "JsonScan.h"
#include "LintModel.h"
#include "Similar.h"

namespace dp4 {

namespace {

using Names = std::vector<std::string>;

const Names kEntityMembers = {"id", "name", "display_name", "attrs"};
const Names kAttributeMembers = {"id",        "name",     "display_name", "desc", "type",
                                 "data_type", "position", "uint_spec",    "enum"};
const Names kPositionMembers = {"byte_offset", "bit_offset", "unit", "len"};
const Names kScalingMembers = {"min", "max", "ratio", "addition"};

bool Contains(const Names& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// What a member has to be.
std::string Needed(const std::string& member) {
  if (member == "position" || member == "uint_spec") return "an object";
  if (member == "enum") return "an array with items";
  if (member == "ratio" || member == "addition") return "a number";
  return Contains({"id", "byte_offset", "bit_offset", "len", "min", "max"}, member) ? "an integer" : "a text";
}

std::string Described(const Json::Value& value) {
  switch (value.type()) {
    case Json::nullValue:
      return "null";
    case Json::stringValue:
      return "the text " + Quoted(value.asString());
    case Json::booleanValue:
      return value.asBool() ? "true" : "false";
    case Json::arrayValue:
      return value.empty() ? "an empty array" : "an array";
    case Json::objectValue:
      return "an object";
    case Json::realValue: {
      const std::string text = ShortestText(value.asDouble());
      return "the real number " + text + (text.find_first_not_of("-0123456789") == std::string::npos ? ".0" : "");
    }
    default:
      return "the number " + value.asString();
  }
}

// ---- Members that nothing reads, and numbers that are read as something else ----

void LintUnknown(const Spot& object, const Names& known, const std::string& kind, Findings& findings) {
  if (!object.value->isObject()) return;
  for (auto it = object.value->begin(); it != object.value->end(); ++it) {
    const std::string name = it.name();
    if (Contains(known, name)) continue;
    const std::string similar = SimilarName(name, known);
    std::string mend = "remove it";
    if (!similar.empty()) {
      mend = object.value->isMember(similar) ? "remove it; " + Quoted(similar) + " is there already"
                                             : "did you mean " + Quoted(similar) + "?";
    } else if (Contains(kPositionMembers, name)) {
      mend = "move it into 'position'";
    } else if (Contains(kScalingMembers, name)) {
      mend = "move it into 'uint_spec'";
    }
    findings.Add(RuleId::kUnknownMember, {&*it, object.pointer + PointerToken(name)},
                 kind + " has no member " + Quoted(name), "it is ignored", mend);
  }
}

// What a text that is plainly one number says; false when it is not.
bool PlainNumber(const std::string& text, double& number) {
  const char* begin = text.c_str();
  char* end = nullptr;
  number = std::strtod(begin, &end);
  if (end == begin) return false;
  while (std::isspace(static_cast<unsigned char>(*end)) != 0) ++end;
  return end == begin + text.size();
}

// What a reader of the configuration takes the value for; false when it is no number to him.
bool WrittenNumber(const Json::Value& value, double& number) {
  if (value.isString()) return PlainNumber(value.asString(), number);
  if (!value.isNumeric() || value.isBool()) return false;
  number = value.asDouble();
  return true;
}

// How the module reads a member; false when it does not take it.
bool ReadNumber(const Json::Value& object, const char* member, double& number, std::string& text) {
  int32_t integer = 0;
  int64_t limit = 0;
  if (Contains({"ratio", "addition"}, member)) {
    number = 0;
    if (!ProtocolGetAttrDouble_4_0(object, member, number)) return false;
    text = ShortestText(number);
  } else if (Contains({"min", "max"}, member)) {
    if (object[member].isArray() || object[member].isObject()) return false;
    if (!ProtocolGetAttrInteger64_4_0(object, member, limit)) return false;
    number = static_cast<double>(limit);
    text = std::to_string(limit);
  } else {
    if (!ProtocolGetAttrInteger_4_0(object, member, integer)) return false;
    number = integer;
    text = std::to_string(integer);
  }
  return true;
}

void LintMisread(const Spot& object, const Names& numbers, Findings& findings) {
  for (const std::string& member : numbers) {
    if (!object.value->isObject() || !object.value->isMember(member)) continue;
    const Json::Value& value = (*object.value)[member];
    double written = 0;
    double read = 0;
    std::string text;
    if (!ReadNumber(*object.value, member.c_str(), read, text)) continue;
    const bool isWritten = WrittenNumber(value, written);
    if (isWritten && (written == read || (std::isnan(written) && std::isnan(read)))) continue;
    findings.Add(RuleId::kMisreadNumber, {&value, object.pointer + PointerToken(member)},
                 Quoted(member) + " is " + Described(value) + ", which is read as " + text,
                 "the number " + text + " is used", "write the number that is meant, as a plain JSON number");
  }
}

void LintUnused(const LintEntity& entity, size_t index, Findings& findings) {
  const Element& element = entity.elements[index];
  if (element.dataType == MorvixProtocolDataTypeUnknown_4_0) return;
  const std::string dataType = DataTypeName(element.dataType);
  const auto add = [&](const char* member) {
    if (!element.json->isMember(member)) return;
    findings.Add(RuleId::kUnusedMember, entity.At(index, {member}),
                 "the " + dataType + " " + entity.Label(index) + " has no use for " + Quoted(member), "it is ignored",
                 "remove it, or correct the data_type");
  };
  if (!ProtocolDataTypeIsUInt(element.dataType)) add("uint_spec");
  if (element.dataType != MorvixProtocolDataTypeEnum_4_0) add("enum");
}

}  // namespace

void LintMembers(const LintEntity& entity, Findings& findings) {
  const Spot whole{&entity.json, entity.pointer};
  LintUnknown(whole, kEntityMembers, "an entity", findings);
  LintMisread(whole, {"id"}, findings);
  for (size_t i = 0; i < entity.elements.size(); ++i) {
    if (!entity.elements[i].json->isObject()) continue;
    const Spot attribute = entity.At(i);
    LintUnknown(attribute, kAttributeMembers, "an attribute", findings);
    LintMisread(attribute, {"id"}, findings);
    LintUnused(entity, i, findings);
    const Json::Value& position = (*attribute.value)["position"];
    const Json::Value& uintSpec = (*attribute.value)["uint_spec"];
    if (position.isObject()) {
      const Spot spot{&position, attribute.pointer + "/position"};
      LintUnknown(spot, kPositionMembers, "a position", findings);
      LintMisread(spot, {"byte_offset", "bit_offset", "len"}, findings);
      if (position["unit"].isString() && UpToNul(position["unit"].asString()).empty()) {
        findings.Add(RuleId::kEmptyUnit, entity.At(i, {"position", "unit"}), entity.Label(i) + " has an empty unit",
                     "it counts as 'byte'", "write 'byte'");
      }
    }
    if (uintSpec.isObject() && ProtocolDataTypeIsUInt(entity.elements[i].dataType)) {
      const Spot spot{&uintSpec, attribute.pointer + "/uint_spec"};
      LintUnknown(spot, kScalingMembers, "a uint_spec", findings);
      LintMisread(spot, kScalingMembers, findings);
    }
  }
}

// ---- Attributes that the parser drops ----

namespace {

// An attribute that the parser drops, whatever the reason.
struct Drop {
  size_t element;
  std::string member;  // as the parser names it
  bool onReading;
  bool onWriting;
  size_t holder;      // the element whose scaling was in force
  size_t laterFlags;  // flag bits that shift if the attribute, whose type cannot be told, is meant to be writable
};

// What a drop means, in the parser's words.
std::string EffectOfDrop(const Drop& drop, const LintEntity& entity, const std::map<size_t, std::string>& onGroups) {
  const Element& element = entity.elements[drop.element];
  const bool isWritable = element.IsWritable();
  std::string effect = "the parser logs \"Warning: '" + drop.member + "' is invalid, skip.\"; ";
  const auto found = onGroups.find(drop.element);
  const std::string onGroup = found == onGroups.end() ? "" : "; " + found->second;
  if (drop.onReading && drop.onWriting && (isWritable || element.group == MorvixProtocolTypeUnknown_4_0)) {
    effect += "it can be neither read nor written" + onGroup;
    if (drop.laterFlags == 0) return effect;
    return effect + "; if it is meant to be writable, this shifts the flag bits of " +
           Count(drop.laterFlags, "later attribute");
  }
  if (drop.onReading) {
    return effect + (isWritable ? "it can be written, but no decode shows it" : "no decode shows it") + onGroup;
  }
  return effect + "decodes show it, but it cannot be written";
}

// The path to a member from its attribute.
std::vector<const char*> PathOf(const std::string& member) {
  for (const std::string& known : kPositionMembers) {
    if (known == member) return {"position", known.c_str()};
  }
  for (const std::string& known : kScalingMembers) {
    if (known == member) return {"uint_spec", known.c_str()};
  }
  for (const std::string& known : kAttributeMembers) {
    if (known == member) return {known.c_str()};
  }
  return {};
}

Spot SpotOf(const LintEntity& entity, size_t element, const std::string& member) {
  const std::vector<const char*> path = PathOf(member);
  return path.empty()       ? entity.At(element)
         : path.size() == 1 ? entity.At(element, {path[0]})
                            : entity.At(element, {path[0], path[1]});
}

// What is wrong with a member, and how to put it right.
std::pair<std::string, std::string> FaultOf(const LintEntity& entity, size_t element, const std::string& member) {
  const std::vector<const char*> path = PathOf(member);
  const Json::Value* object = entity.elements[element].json;
  if (path.size() == 2) object = &(*object)[path[0]];
  const std::string needed = Needed(member);
  if (!object->isObject()) {
    return {"it is " + Described(*object) + " where an object is needed", "make it an object, or remove it"};
  }
  if (!object->isMember(member)) {
    Names known = path.size() == 1                    ? kAttributeMembers
                  : Contains(kScalingMembers, member) ? kScalingMembers
                                                      : kPositionMembers;
    for (const std::string& name : object->getMemberNames()) {
      if (!Contains(known, name) && SimilarName(name, known) == member) {
        return {Quoted(member) + " is missing", "did you mean it by " + Quoted(name) + "?"};
      }
    }
    return {Quoted(member) + " is missing", "give " + Quoted(member) + " as " + needed};
  }
  const Json::Value& value = (*object)[member];
  const bool isRealZero = value.type() == Json::realValue && value.asDouble() == 0;
  return {Quoted(member) + " is " + Described(value) + " where " + needed + " is needed",
          isRealZero ? "write 0" : "write " + needed};
}

void AddKeyword(const LintEntity& entity, const Drop& drop, const char* name, const Spot& spot,
                const std::map<size_t, std::string>& onGroups, Findings& findings) {
  const std::string keyword = UpToNul(spot.value->asString());
  std::string all;
  for (const std::string& other : KeywordsOf(name)) all += (all.empty() ? "" : ", ") + other;
  const std::string similar = MeantKeyword(name, *spot.value);
  const std::string mend = similar.empty() ? "one of " + all : "did you mean " + Quoted(similar) + "?";
  const std::string subject = entity.Label(drop.element) + " is dropped: its " + name + " ";
  const std::string effect = EffectOfDrop(drop, entity, onGroups);
  if (keyword.empty()) {
    findings.Add(RuleId::kEmptyKeyword, spot, subject + "is empty", effect, mend);
  } else if (keyword.size() >= 32) {
    findings.Add(RuleId::kLongKeyword, spot, subject + "has " + std::to_string(keyword.size()) + " characters", effect,
                 mend);
  } else {
    findings.Add(RuleId::kUnknownKeyword, spot, subject + Quoted(keyword) + " is unknown", effect, mend);
  }
}

// True when the module's reader throws on this limit.
bool Throws(const Json::Value& uintSpec, const std::string& limit) {
  try {
    int64_t value = 0;
    ProtocolGetAttrInteger64_4_0(uintSpec, limit.c_str(), value);
    return false;
  } catch (const Json::LogicError&) {
    return true;
  }
}

// True when the parser throws on what dropped the attribute, as far as lint has it go on.
bool Throws(const LintEntity& entity, const Drop& drop) {
  return (drop.member == "min" || drop.member == "max") &&
         Throws((*entity.elements[drop.holder].json)["uint_spec"], drop.member);
}

// Which walks over the entity use a scaling.
struct ScalingUse {
  bool onReading = false;
  bool onWriting = false;
};

std::string EffectOfLimitKind(const ScalingUse& use) {
  if (use.onReading && use.onWriting) return "every encode, decode and parse of the entity throws Json::LogicError";
  if (use.onReading) {
    return "every decode of the entity and every parse that takes its group throws Json::LogicError; encoding does not "
           "look at it";
  }
  return "every encode of the entity throws Json::LogicError; decoding does not look at it";
}

// A mend that concerns the uint_spec of another attribute.
std::string MendElsewhere(const std::string& mend, const std::string& label) {
  const bool isQuestion = mend.back() == '?';
  return mend.substr(0, mend.size() - (isQuestion ? 1 : 0)) + " in the uint_spec of " + label + (isQuestion ? "?" : "");
}

void AddDrop(const LintEntity& entity, const Drop& drop, const std::map<size_t, ScalingUse>& uses,
             const std::map<size_t, std::string>& onGroups, Findings& findings) {
  if (drop.member == "type" || drop.member == "data_type") {
    const Spot spot = entity.At(drop.element, {drop.member.c_str()});
    if (spot.value->isString()) return AddKeyword(entity, drop, drop.member.c_str(), spot, onGroups, findings);
  }
  if (drop.member == "position.unit") {
    return AddKeyword(entity, drop, "unit", entity.At(drop.element, {"position", "unit"}), onGroups, findings);
  }
  const std::string effect = EffectOfDrop(drop, entity, onGroups);
  const std::string subject = entity.Label(drop.element) + " is dropped";
  const std::string when = drop.onReading == drop.onWriting || !entity.elements[drop.element].IsWritable() ? ""
                           : drop.onReading ? " on reading"
                                            : " on writing";
  if (!Contains(kScalingMembers, drop.member)) {
    const auto fault = FaultOf(entity, drop.element, drop.member);
    return findings.Add(RuleId::kAttributeDropped, SpotOf(entity, drop.element, drop.member),
                        subject + when + ": " + fault.first, effect, fault.second);
  }
  const auto fault = FaultOf(entity, drop.holder, drop.member);
  const std::string holder = entity.Label(drop.holder);
  const Spot spot = SpotOf(entity, drop.holder, drop.member);
  if (Throws(entity, drop)) {
    return findings.AddOnce(RuleId::kLimitKind, spot, holder + ": " + fault.first,
                            EffectOfLimitKind(uses.at(drop.holder)), fault.second);
  }
  if (drop.holder == drop.element) {
    return findings.Add(RuleId::kAttributeDropped, spot, subject + when + ": " + fault.first, effect, fault.second);
  }
  findings.Add(RuleId::kInheritedScaling, entity.At(drop.element),
               subject + when + ": it inherits the uint_spec of " + holder + ", in which " + fault.first, effect,
               MendElsewhere(fault.second, holder));
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

void AddShift(const LintEntity& entity, size_t element, size_t taken, size_t dropped, Findings& findings) {
  if (taken >= entity.writable.size()) return;
  const Attribute& next = entity.writable[taken];
  const size_t later = entity.writable.size() - taken;
  findings.Add(RuleId::kFlagBitsShifted, entity.At(element),
               "dropping " + entity.Label(element) + " shifts the flag bits of " + Count(later, "later attribute"),
               "the flag of " + entity.Label(static_cast<size_t>(next.id)) + " is bit " + std::to_string(taken) +
                   " instead of " + std::to_string(taken + dropped) +
                   "; a device that counts all attributes sets the wrong ones",
               "mend " + entity.Label(element) + ", or remove it from the device's list as well");
}

// The walk over the elements in their order.
class DropWalk {
 public:
  DropWalk(const LintEntity& entity, Findings& findings) : entity_(entity), findings_(findings) {}

  void Visit(size_t index) {
    const Element& element = entity_.elements[index];
    const std::string& onReading = element.droppedOnReading;
    const std::string& onWriting = element.droppedOnWriting;
    const bool isWritable = element.IsWritable();
    const size_t readHolder = reading_.Advance(index, element, onReading);
    const size_t writeHolder = isWritable ? writing_.Advance(index, element, onWriting) : kNoElement;
    if (Contains(kScalingMembers, onReading)) uses_[readHolder].onReading = true;
    if (Contains(kScalingMembers, onWriting)) uses_[writeHolder].onWriting = true;
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

  // True when the parser throws on one of the limits.
  bool Finish() {
    AddLostFlags();
    const std::map<size_t, std::string> onGroups = EffectsOnGroups(entity_);
    for (const Drop& drop : drops_) AddDrop(entity_, drop, uses_, onGroups, findings_);
    return std::any_of(drops_.begin(), drops_.end(), [this](const Drop& drop) { return Throws(entity_, drop); });
  }

 private:
  // Reports the flag bits that a drop shifts; gives their number when the attribute may be meant to be writable or not.
  size_t NoteShift(size_t index) {
    const Element& element = entity_.elements[index];
    const bool isUnknown = element.json->isObject() && element.group == MorvixProtocolTypeUnknown_4_0;
    const std::string meant = isUnknown ? MeantKeyword("type", (*element.json)["type"]) : "";
    if ((element.IsWritable() && !element.droppedOnWriting.empty()) || meant == "status_writable") {
      AddShift(entity_, index, taken_, ++dropped_, findings_);
      lastDropped_ = index;
    }
    return isUnknown && meant.empty() ? entity_.writable.size() - taken_ : 0;
  }

  // The flags are whole bytes.
  void AddLostFlags() {
    if (dropped_ == 0 || taken_ == 0) return;
    const size_t bytes = FlagBytes(taken_);
    const size_t needed = FlagBytes(taken_ + dropped_);
    if (bytes == needed) return;
    const std::string label = entity_.Label(lastDropped_);
    findings_.Add(RuleId::kFlagBitsShifted, entity_.At(lastDropped_),
                  "dropping " + (dropped_ == 1 ? label : Count(dropped_, "writable attribute")) + " leaves " +
                      Count(bytes, "flag byte") + " instead of " + std::to_string(needed),
                  "a device that counts all attributes takes the beginning of each write's payload for flags",
                  "mend " + (dropped_ == 1 ? label + ", or remove it" : "them, or remove them") +
                      " from the device's list as well");
  }

  const LintEntity& entity_;
  Findings& findings_;
  ScalingWalk reading_;
  ScalingWalk writing_;
  size_t taken_ = 0;    // writable attributes so far that became records
  size_t dropped_ = 0;  // and that did not
  size_t lastDropped_ = kNoElement;
  std::vector<Drop> drops_;
  std::map<size_t, ScalingUse> uses_;
};

}  // namespace

bool LintDropped(const LintEntity& entity, Findings& findings) {
  DropWalk walk(entity, findings);
  for (size_t i = 0; i < entity.elements.size(); ++i) walk.Visit(i);
  return walk.Finish();
}

// ---- Names ----

namespace {

// The first attribute with each name, id or key.
template <typename Name>
class FirstWith {
 public:
  // The earlier attribute; null when this is the first.
  const Attribute* Add(const Name& name, const Attribute& attribute) {
    return firsts_.emplace(name, &attribute).second ? nullptr : firsts_[name];
  }

 private:
  std::unordered_map<Name, const Attribute*> firsts_;
};

std::string LabelOf(const LintEntity& entity, const Attribute& attribute) {
  return entity.Label(static_cast<size_t>(attribute.id)) + " (" + GroupName(attribute.type) + ", attribute " +
         std::to_string(attribute.id) + ")";
}

// The attributes so far by name. Equal names matter among those that encoding takes, and among the states that decoding
// does.
class NamesSoFar {
 public:
  explicit NamesSoFar(const LintEntity& entity) : entity_(entity) {}

  void Add(const Attribute& attribute, Findings& findings) {
    const auto element = static_cast<size_t>(attribute.id);
    const bool isWritten = entity_.WriteRecord(element) != nullptr;
    const bool isRead = entity_.ReadRecord(element) != nullptr && !IsAlertOrFault(attribute);
    const Attribute* written = isWritten ? written_.Add(attribute.name, attribute) : nullptr;
    const Attribute* read = isRead ? read_.Add(attribute.name, attribute) : nullptr;
    const Attribute* any = any_.Add(attribute.name, attribute);
    const Attribute* same = written != nullptr ? written : read != nullptr ? read : any;
    if (same == nullptr) return;
    const Spot spot = entity_.At(attribute, {"name"});
    const std::string message = LabelOf(entity_, *same) + " has the name " + Quoted(attribute.name) + " as well";
    const char* mend = "give each attribute its own name";
    std::string effect;
    if (written != nullptr) effect = "one value in a document is written to both";
    if (read != nullptr) {
      effect += std::string(effect.empty() ? "" : "; ") + "the decoded document holds the later one only";
    }
    if (!effect.empty()) {
      findings.Add(RuleId::kDuplicateName, spot, message, effect, mend);
    } else {
      const bool isByDisplayName = IsAlertOrFault(attribute) || IsAlertOrFault(*same);
      findings.Add(RuleId::kSharedName, spot, message,
                   isByDisplayName ? "none: alerts and faults go by their display names"
                                   : "none: one is only written, the other only read",
                   mend);
    }
  }

 private:
  const LintEntity& entity_;
  FirstWith<std::string> written_;
  FirstWith<std::string> read_;
  FirstWith<std::string> any_;
};

void LintName(const LintEntity& entity, const Attribute& attribute, Findings& findings) {
  const Spot spot = entity.At(attribute, {"name"});
  if (attribute.name.empty()) {
    findings.Add(RuleId::kEmptyName, spot, entity.Label(static_cast<size_t>(attribute.id)) + " has an empty name",
                 "its value stands under an empty key", "give it a name");
  }
  if (IsWritable(attribute) && attribute.name.find('\0') != std::string::npos) {
    findings.Add(RuleId::kNulInName, spot, Quoted(attribute.name) + " holds a NUL",
                 "encoding looks for its value under " + Quoted(UpToNul(attribute.name)), "remove the NUL");
  }
}

void LintKey(const LintEntity& entity, const Attribute& attribute, const Attribute& sameKey, const std::string& key,
             Findings& findings) {
  if (!IsAlertOrFault(attribute) && !IsAlertOrFault(sameKey)) return;  // two equal names
  findings.Add(RuleId::kKeyCollision, entity.At(attribute, {IsAlertOrFault(attribute) ? "display_name" : "name"}),
               LabelOf(entity, attribute) + " and " + LabelOf(entity, sameKey) + " are both " + Quoted(key) +
                   " in the decoded document",
               "the later one replaces the earlier one, which the application never sees",
               "give each alert and fault a display name that is neither another's nor the name of an attribute");
}

}  // namespace

void LintNames(const LintEntity& entity, Findings& findings) {
  NamesSoFar names(entity);
  FirstWith<std::string> keys;
  FirstWith<int32_t> ids;
  for (const Attribute* record : entity.Records()) {
    const Attribute& attribute = *record;
    LintName(entity, attribute, findings);
    names.Add(attribute, findings);
    const bool isRead = entity.ReadRecord(static_cast<size_t>(attribute.id)) != nullptr;
    const std::string key = DecodedKey(attribute);
    const Attribute* sameKey = isRead ? keys.Add(key, attribute) : nullptr;
    if (sameKey != nullptr) LintKey(entity, attribute, *sameKey, key, findings);
    if (IsAlertOrFault(attribute) && key.empty()) {
      findings.Add(RuleId::kEmptyName, entity.At(attribute, {"display_name"}),
                   entity.Label(static_cast<size_t>(attribute.id)) + " has an empty display name",
                   "it stands under an empty key, and the application gets it without a name",
                   "give it a display name");
    }
    int32_t id = 0;
    const Element& element = entity.elements[static_cast<size_t>(attribute.id)];
    if (!ProtocolGetAttrInteger_4_0(*element.json, "id", id)) continue;
    if (const Attribute* sameId = ids.Add(id, attribute)) {
      findings.Add(RuleId::kDuplicateId, entity.At(attribute, {"id"}),
                   LabelOf(entity, *sameId) + " has the id " + std::to_string(id) + " as well",
                   "none: the id is not looked at", "give each attribute its own id");
    }
  }
}

}  // namespace dp4
