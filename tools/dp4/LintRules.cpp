#include "LintRules.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "JsonScan.h"
#include "LintModel.h"
#include "Roundtrip.h"
#include "Similar.h"

namespace dp4 {

const char* SeverityName(Severity severity) {
  switch (severity) {
    case Severity::kError:
      return "error";
    case Severity::kWarning:
      return "warning";
    default:
      return "info";
  }
}

const std::vector<Rule>& LintRules() {
  constexpr Severity kError = Severity::kError;
  constexpr Severity kWarning = Severity::kWarning;
  constexpr Severity kInfo = Severity::kInfo;
  static const std::vector<Rule> rules = {
      {RuleId::kJsonSyntax, "json-syntax", kError, "The file is not JSON."},
      {RuleId::kRepeatedMember, "repeated-member", kWarning, "An object has a member twice; the last one counts."},
      {RuleId::kNoConfiguration, "no-configuration", kError, "The file has no array of entities."},
      {RuleId::kNoEntities, "no-entities", kWarning, "The array of entities is empty."},
      {RuleId::kUnknownMember, "unknown-member", kWarning, "A member that nothing reads, misspelt perhaps."},
      {RuleId::kUnusedMember, "unused-member", kInfo, "A scaling or items that the data type has no use for."},
      {RuleId::kMisreadNumber, "misread-number", kWarning, "A number is not read as it is written."},

      {RuleId::kEntityUnusable, "entity-unusable", kError, "An entity can be neither encoded nor decoded."},
      {RuleId::kEntityVersion, "entity-version", kError, "An entity is called version, as the document's version is."},
      {RuleId::kDuplicateEntity, "duplicate-entity", kError, "Two entities have one name."},
      {RuleId::kNoAttributes, "no-attributes", kWarning, "An entity has no usable attribute."},

      {RuleId::kAttributeDropped, "attribute-dropped", kError, "The parser drops an attribute."},
      {RuleId::kInheritedScaling, "inherited-scaling", kError,
       "The parser drops an attribute for a member that an earlier attribute's uint_spec lacks."},
      {RuleId::kLimitKind, "limit-kind", kError, "A min or max is an array or object, on which the parser throws."},
      {RuleId::kUnknownKeyword, "unknown-keyword", kError, "A type, data_type or unit is none; drops the attribute."},
      {RuleId::kEmptyKeyword, "empty-keyword", kError, "A type or data_type is empty; drops the attribute."},
      {RuleId::kLongKeyword, "long-keyword", kError, "A keyword of 32 or more characters; drops the attribute."},
      {RuleId::kEmptyUnit, "empty-unit", kInfo, "An empty unit counts as byte."},
      {RuleId::kFlagBitsShifted, "flag-bits-shifted", kError,
       "A dropped writable attribute shifts the flag bits of all later ones."},

      {RuleId::kDuplicateName, "duplicate-name", kError, "Two attributes have one name, and so one value."},
      {RuleId::kKeyCollision, "key-collision", kError,
       "The display name of an alert or fault is another attribute's key in the decoded document."},
      {RuleId::kEmptyName, "empty-name", kWarning, "A name is empty."},
      {RuleId::kNulInName, "nul-in-name", kWarning, "A name holds a NUL, at which the look-up of its value ends."},
      {RuleId::kSharedName, "shared-name", kInfo,
       "An alert or fault has the name of another attribute, which does no harm."},
      {RuleId::kDuplicateId, "duplicate-id", kInfo, "Two entities, or two attributes of one, have one id."},

      {RuleId::kNumberInBits, "number-in-bits", kError, "A number in bit units can be neither read nor written."},
      {RuleId::kBinaryInBits, "binary-in-bits", kError, "A binary in bit units wipes every decode."},
      {RuleId::kBoolNotOneBit, "bool-not-one-bit", kError,
       "A bool that is not one bit ends every encode that carries it and wipes every decode."},
      {RuleId::kNegativeOffset, "negative-offset", kError, "A field begins before the payload or its group."},
      {RuleId::kEmptyField, "empty-field", kError, "A field has no length."},
      {RuleId::kNumberTooLong, "number-too-long", kError, "A number or enum is wider than 8 bytes."},
      {RuleId::kBinaryTooLong, "binary-too-long", kError, "A binary is longer than 65535 bytes."},
      {RuleId::kFieldTooWide, "field-too-wide", kError,
       "A bit field and the bits below it in its last byte are more than 64 bits."},
      {RuleId::kMemberOutsideGroup, "member-outside-group", kError, "A bit field begins above its group."},
      {RuleId::kFieldBeforeGroup, "field-before-group", kError,
       "A bit field reaches out of its group, into the bytes before it."},
      {RuleId::kFieldOutsidePayload, "field-outside-payload", kError, "A field does not lie in the payload."},
      {RuleId::kBitOffsetUnused, "bit-offset-unused", kInfo, "A bit_offset other than 0 in byte units has no meaning."},
      {RuleId::kGroupLastNotHighest, "group-last-not-highest", kError,
       "The last member of a bit group, which sizes it, is not its highest."},
      {RuleId::kGroupOrder, "group-order", kInfo,
       "The last member of a bit group is not its highest, but both need the same size."},
      {RuleId::kGroupSizedByAnother, "group-sized-by-another", kWarning,
       "A bit group is sized by the group behind it, whose size differs."},
      {RuleId::kGroupSizedByBytes, "group-sized-by-bytes", kWarning, "A bit group is sized by an enum in byte units."},
      {RuleId::kGroupSplit, "group-split", kError, "The members of a bit group do not stand together."},
      {RuleId::kGroupSizeDiffers, "group-size-differs", kError,
       "A bit group has one size for writing and another for reading."},
      {RuleId::kFieldsOverlap, "fields-overlap", kWarning, "Two fields have payload bits in common."},
      {RuleId::kNeighboursDisturbed, "neighbours-disturbed", kError,
       "Writing a field that partly fills several bytes changes fields that were written before."},
      {RuleId::kPayloadTooLong, "payload-too-long", kError, "The payload is longer than 16384 bytes."},
      {RuleId::kFlagsTooLong, "flags-too-long", kError, "The flag bitmap is longer than 1024 bytes."},

      {RuleId::kNarrowerThanType, "narrower-than-type", kInfo, "A number has fewer bytes than its type says."},
      {RuleId::kWiderThanType, "wider-than-type", kInfo, "A number has more bytes than its type says."},
      {RuleId::kNarrowerThanMax, "narrower-than-max", kError, "The bytes of a number do not hold its max."},
      {RuleId::kNegativeLimit, "negative-limit", kError, "A negative min or max refuses every value."},
      {RuleId::kMaxTooLarge, "max-too-large", kError, "A max at or above 2^52 refuses every value."},
      {RuleId::kMinAboveMax, "min-above-max", kError, "A min above max refuses every value."},
      {RuleId::kEmptyRange, "empty-range", kError, "A min equal to max refuses every value."},
      {RuleId::kZeroRatio, "zero-ratio", kError, "A ratio of 0 makes all raw values one."},
      {RuleId::kScalingNotFinite, "scaling-not-finite", kError, "A ratio or addition is infinite or no number."},
      {RuleId::kScalingTooFine, "scaling-too-fine", kWarning,
       "A scaling is finer than the six decimals that decoding prints, or than a double."},
      {RuleId::kScalingRounded, "scaling-rounded", kInfo,
       "Decoded values are rounded, to six decimals or to what a double holds."},
      {RuleId::kNumberTextCut, "number-text-cut", kWarning, "Decoded values are cut after 31 characters."},

      {RuleId::kEnumTooManyItems, "enum-too-many-items", kError, "An enum has more items than its bits hold."},
      {RuleId::kEnumItemNotText, "enum-item-not-text", kError,
       "An item of an enum is no text and left out, which shifts all later items."},
      {RuleId::kEnumWithoutTexts, "enum-without-texts", kError, "An enum has no item that is a text."},
      {RuleId::kEnumIndexCut, "enum-index-cut", kError,
       "An enum has indices of ten digits, of which nine are printed."},
      {RuleId::kEnumIncomplete, "enum-incomplete", kInfo,
       "An enum's bits hold numbers without an item, which end a decode."},
      {RuleId::kDuplicateItem, "duplicate-item", kInfo, "An enum has an item twice."},

      {RuleId::kBinaryAlert, "binary-alert", kWarning, "A binary alert or fault is active as its base64 text reads."},
      {RuleId::kFractionNotActive, "fraction-not-active", kInfo,
       "An alert or fault that is a number is not active below 1."},
      {RuleId::kAlertTooLarge, "alert-too-large", kWarning, "An alert or fault has numbers of more than 32 bits."},

      {RuleId::kRoundtrip, "roundtrip", kError, "With --roundtrip: a value does not come back as it was sent."},
  };
  return rules;
}

const Rule& RuleOf(RuleId id) { return LintRules().at(static_cast<size_t>(id)); }

void Findings::Add(Finding finding) {
  if (Wants(finding.rule)) findings_.push_back(std::move(finding));
}

void Findings::Add(RuleId rule, const Spot& spot, std::string message, std::string effect, std::string mend) {
  const auto offset = static_cast<size_t>(std::max<ptrdiff_t>(spot.value->getOffsetStart(), 0));
  Add({rule, offset, spot.pointer, std::move(message), std::move(effect), std::move(mend)});
}

void Findings::AddOnce(RuleId rule, const Spot& spot, std::string message, std::string effect, std::string mend) {
  if (!Wants(rule) || !known_.insert({rule, spot.pointer}).second) return;
  Add(rule, spot, std::move(message), std::move(effect), std::move(mend));
}

std::vector<Finding> Findings::Sorted() const {
  std::vector<Finding> sorted = findings_;
  std::stable_sort(sorted.begin(), sorted.end(), [](const Finding& left, const Finding& right) {
    return std::pair(left.offset, left.rule) < std::pair(right.offset, right.rule);
  });
  return sorted;
}

namespace {

void LintRepeated(const JsonText& json, Findings& findings) {
  for (const RepeatedMember& member : FindRepeatedMembers(json.text)) {
    findings.Add({RuleId::kRepeatedMember, member.offset, member.pointer, Quoted(member.name) + " stands here again",
                  "the earlier value is ignored", "remove one of the two"});
  }
}

// "'id'" out of "Warning: Can't find 'id' key."
std::string NamedMember(const std::string& line) {
  const size_t begin = line.find(" '");
  const size_t end = begin == std::string::npos ? begin : line.find('\'', begin + 2);
  return end == std::string::npos ? "" : line.substr(begin + 2, end - begin - 2);
}

void AddUnusableEntity(const LintEntity& entity, const std::string& line, Findings& findings) {
  const std::string member = NamedMember(line);
  Spot spot{&entity.json, entity.pointer};
  std::string message = "the entity is no object";
  std::string mend = "make it an object, or remove it";
  if (!member.empty()) {
    const bool isMissing = !entity.json.isMember(member);
    if (!isMissing) spot = {&entity.json[member], entity.pointer + "/" + member};
    const char* needed = member == "id" ? "an integer" : member == "attrs" ? "an array" : "a text";
    message =
        "the entity is unusable: " + Quoted(member) + (isMissing ? " is missing" : " is not " + std::string(needed));
    mend = "give " + Quoted(member) + " as " + needed;
  }
  findings.Add(RuleId::kEntityUnusable, spot, message,
               "every encode and decode of it logs \"" + line + "\" and \"Get entity info failed.\", and does nothing",
               mend);
}

void LintEntityNames(const LintEntity& entity, std::map<std::string, std::string>& pointers,
                     std::map<int32_t, std::string>& ids, Findings& findings) {
  const Spot name{&entity.json["name"], entity.pointer + "/name"};
  const auto known = pointers.emplace(entity.info.name, entity.pointer);
  if (!known.second) {
    findings.Add(RuleId::kDuplicateEntity, name,
                 "the entity at " + known.first->second + " is called " + Quoted(entity.info.name) + " as well",
                 "their values share one object in all documents; where names are equal, the later value wins",
                 "give each entity its own name");
  }
  const auto knownId = ids.emplace(entity.info.id, entity.pointer);
  if (!knownId.second) {
    findings.Add(
        RuleId::kDuplicateId, {&entity.json["id"], entity.pointer + "/id"},
        "the entity at " + knownId.first->second + " has the id " + std::to_string(entity.info.id) + " as well",
        "none: the id is not looked at", "give each entity its own id");
  }
  if (entity.info.name == "version") {
    findings.Add(RuleId::kEntityVersion, name, "the entity is called 'version'",
                 "the version of the receive document overwrites its values; none of them reaches the application",
                 "choose another name");
  }
  if (entity.info.name.empty()) {
    findings.Add(RuleId::kEmptyName, name, "the entity's name is empty", "its values stand under an empty key",
                 "give it a name");
  }
}

void LintUsableEntity(const LintEntity& entity, const LintChoices& choices, Findings& findings) {
  const bool throws = LintDropped(entity, findings);
  if (!throws && entity.all.empty() && entity.writable.empty()) {
    findings.Add(RuleId::kNoAttributes, {&entity.json["attrs"], entity.pointer + "/attrs"},
                 "the entity " + Quoted(entity.info.name) + " has no usable attribute",
                 "encoding logs \"No data will encode.\", decoding gives nothing",
                 "add attributes, or remove the entity");
  }
  LintNames(entity, findings);
  LintPlaces(entity, findings);
  LintGroups(entity, findings);
  LintNumbers(entity, findings);
  LintEnums(entity, findings);
  LintAlerts(entity, findings);
  if (choices.roundtrip) LintRoundtrip(entity, findings);
}

void LintEntities(const JsonText& json, const LintChoices& choices, Findings& findings) {
  const Json::Value* chosen = choices.entity.empty() ? nullptr : &ChooseEntity(json, choices.entity);
  const Json::Value& entities = json.root["entities"];
  if (entities.empty()) {
    findings.Add(RuleId::kNoEntities, {&entities, "/entities"}, "there is no entity",
                 "nothing can be encoded or decoded", "add an entity");
  }
  std::map<std::string, std::string> pointers;
  std::map<int32_t, std::string> ids;
  for (Json::ArrayIndex i = 0; i < entities.size(); ++i) {
    if (chosen != nullptr && chosen != &entities[i]) continue;
    LintEntity entity(entities[i], "/entities/" + std::to_string(i));
    std::string reason;
    const bool isUsable = entity.Parse(choices.log, reason);
    LintMembers(entity, findings);
    if (!isUsable) {
      AddUnusableEntity(entity, reason, findings);
      continue;
    }
    LintEntityNames(entity, pointers, ids, findings);
    LintUsableEntity(entity, choices, findings);
  }
}

void LintConfiguration(const JsonText& json, const LintChoices& choices, Findings& findings) {
  Json::Value entities;
  if (ProtocolGetEntitiesFromDevice_4_0(json.root, entities)) {
    LintEntities(json, choices, findings);
    return;
  }
  Spot spot{&json.root, ""};
  std::string message = "the configuration is no object";
  std::string mend = "start with {\"entities\": [...]}";
  if (json.root.isObject()) {
    const bool isMissing = !json.root.isMember("entities");
    if (!isMissing) spot = {&json.root["entities"], "/entities"};
    message = isMissing ? "the configuration has no 'entities'" : "'entities' is no array";
    const std::string similar = isMissing ? SimilarName("entities", json.root.getMemberNames()) : "";
    mend =
        similar.empty() ? "list the entities in an array 'entities'" : "rename " + Quoted(similar) + " to 'entities'";
  }
  findings.Add(RuleId::kNoConfiguration, spot, message, "nothing can be encoded or decoded", mend);
}

}  // namespace

void LintText(const std::string& path, const std::string& text, const LintChoices& choices, Findings& findings) {
  JsonText json;
  json.path = path;
  json.text = text;
  constexpr size_t kMaxError = 200;
  JsonError error;
  if (!ParseJsonText(json.text, json.root, error)) {
    findings.Add({RuleId::kJsonSyntax, OffsetOf(text, error.place), "",
                  "not JSON: " + Escaped(error.message.substr(0, kMaxError)), "the configuration cannot be loaded",
                  "correct the JSON"});
    return;
  }
  LintRepeated(json, findings);
  LintConfiguration(json, choices, findings);
}

}  // namespace dp4
