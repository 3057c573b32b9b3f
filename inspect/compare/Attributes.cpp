#include "inspect/compare/Attributes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <set>

#include "host/Logging.h"
#include "inspect/compare/Examples.h"
#include "inspect/compare/Match.h"
#include "inspect/compare/Rules.h"
#include "inspect/layout/AttributeTable.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

// An attribute that is in both configurations.
struct Pair {
  Side before;
  Side after;

  std::string Label() const { return after.entity->Label(after.element); }
  bool IsWritten() const { return before.Written() != nullptr && after.Written() != nullptr; }
};

bool IsSamePosition(const Position& left, const Position& right) {
  return left.byte_offset == right.byte_offset && left.bit_offset == right.bit_offset && left.unit == right.unit &&
         left.len == right.len;
}

// "number" for all its widths.
std::string KindName(const Attribute& attribute) {
  return IsNumber(attribute) ? "number" : DataTypeName(attribute.data_type);
}

bool IsSameKind(const Attribute& left, const Attribute& right) {
  return left.data_type == right.data_type || (IsNumber(left) && IsNumber(right));
}

// A raw value that both take, and that shows more than 0 would.
uint64_t CommonRaw(const Pair& pair) { return std::min(LargestRaw(pair.before), LargestRaw(pair.after)); }

// The raw value with which the new configuration sends what the old one sends as `raw`; nothing when it cannot.
std::optional<uint64_t> Translated(const Pair& pair, uint64_t raw) {
  const Attribute& before = pair.before.Record();
  const Attribute& after = pair.after.Record();
  if (!IsNumber(before) || !IsNumber(after)) return raw;
  const std::string text = UserText(before, raw);
  uint64_t translated = 0;
  if (text.empty() || !ProtocolValueToRaw_4_0(after, std::strtod(text.c_str(), nullptr), translated)) {
    return std::nullopt;
  }
  return translated;
}

// A raw value of the old configuration whose number the new one can send, too, if there is one.
uint64_t SendableRaw(const Pair& pair) {
  const uint64_t largest = LargestRaw(pair.before);
  const auto least = static_cast<uint64_t>(std::max<int64_t>(pair.before.Record().uint_spec.min, 0));
  constexpr uint64_t kSteps = 16;
  for (uint64_t step = kSteps; IsNumber(pair.before.Record()) && step > 0 && largest > least; --step) {
    const uint64_t raw = least + (largest - least) / kSteps * step + (largest - least) % kSteps * step / kSteps;
    if (Translated(pair, raw)) return raw;
  }
  return CommonRaw(pair);
}

// "a bool", "an enum".
std::string KindText(const Attribute& attribute) { return (IsEnum(attribute) ? "an " : "a ") + KindName(attribute); }

bool IsShown(const Change& change) {
  return change.packetBefore.bytes != change.packetAfter.bytes ||
         change.packetBefore.meaning != change.packetAfter.meaning;
}

bool IsSameFactor(double left, double right) { return left == right || (std::isnan(left) && std::isnan(right)); }

// Where an attribute moved: in what is read, in a write, in both by as much, or in each differently.
enum class Way { kRead, kWritten, kBoth, kApart };

// Moves of the same kind and distance, of attributes that stand one after the other, are one change.
struct Move {
  int64_t distance = 0;
  size_t change = 0;  // its index
  size_t last = 0;    // the rank of its last attribute
};

// The elements of each key in documents. Of those that a packet tells, documents have the last one.
using ElementsByKey = std::map<std::string, std::vector<size_t>>;

ElementsByKey KeysOf(const EntityModel& entity) {
  ElementsByKey elements;
  for (const Field& field : entity.Reading().fields) elements[DocumentKey(*field.attribute)].push_back(field.element);
  return elements;
}

// What a notification says under the key of an attribute.
std::string MeaningOfKey(const EntityModel& entity, const ElementsByKey& keys, const Attribute& attribute,
                         const Bytes& notification) {
  std::string none = "no " + NameText(DocumentKey(attribute));
  const auto elements = keys.find(DocumentKey(attribute));
  if (elements == keys.end()) return none;
  constexpr ptrdiff_t kMostTried = 8;  // bounds the time where thousands of attributes have one key
  const ptrdiff_t count = std::min<ptrdiff_t>(kMostTried, static_cast<ptrdiff_t>(elements->second.size()));
  for (auto element = elements->second.rbegin(); element != elements->second.rbegin() + count; ++element) {
    std::string meaning = MeaningOf({&entity, *element}, notification);
    if (meaning != none) return meaning;
  }
  return none;
}

class AttributesCheck {
 public:
  AttributesCheck(const EntityModel& before, const EntityModel& after, std::vector<Change>& changes)
      : before_(before), after_(after), changes_(changes), oldFields_(before.Fields()), newFields_(after.Fields()) {
    std::vector<Identity> oldOnes;
    std::vector<Identity> newOnes;
    for (const Field* field : oldFields_) oldOnes.push_back(IdentityOf(*field));
    for (const Field* field : newFields_) newOnes.push_back(IdentityOf(*field));
    for (const auto& [left, right] : Matched(oldOnes, newOnes)) {
      pairs_.push_back({{&before, oldFields_[left]->element}, {&after, newFields_[right]->element}});
    }
  }

  void Check() {
    CheckPackets();
    auto next = pairs_.begin();
    for (const Field* field : newFields_) {
      if (next != pairs_.end() && next->after.element == field->element) {
        CheckPair(*next++);
        ++index_;
      } else {
        AddAdded({&after_, field->element});
      }
      LimitShown();
    }
    std::set<size_t> kept;
    for (const Pair& pair : pairs_) kept.insert(pair.before.element);
    for (const Field* field : oldFields_) {
      if (kept.count(field->element) == 0) AddRemoved({&before_, field->element});
      LimitShown();
    }
    for (Change& change : changes_) NameOthers(change);
  }

 private:
  // So many long packets would fill the memory: the last ones are told by their meaning only.
  void LimitShown() {
    constexpr size_t kMostBytes = size_t{1} << 26;
    for (; limited_ < changes_.size(); ++limited_) {
      for (ShownPacket* packet : {&changes_[limited_].packetBefore, &changes_[limited_].packetAfter}) {
        shownBytes_ += packet->bytes.size();
        if (shownBytes_ > kMostBytes) Bytes().swap(packet->bytes);
      }
    }
  }

  static Identity IdentityOf(const Field& field) {
    return {field.attribute->name, field.attribute->id, static_cast<int>(field.attribute->type)};
  }

  Site OldSite(const Side& side, const char* member) const { return SiteOf(before_.At(side.element, PathOf(member))); }
  Site NewSite(const Side& side, const char* member) const { return SiteOf(after_.At(side.element, PathOf(member))); }
  static std::vector<std::string> PathOf(const char* member) {
    return *member == '\0' ? std::vector<std::string>() : std::vector<std::string>{member};
  }

  Change& Add(const Rule& rule, const Pair& pair, const char* member, std::string message, std::string effect,
              std::string fix) {
    changes_.push_back({&rule,
                        OldSite(pair.before, member),
                        NewSite(pair.after, member),
                        std::move(message),
                        std::move(effect),
                        std::move(fix),
                        {pair.after.Record().name},
                        {},
                        {}});
    return changes_.back();
  }

  // The same value, sent by an application with the old and with the new configuration to a device in the field.
  void ShowWrite(Change& change, const Pair& pair, uint64_t rawBefore, uint64_t rawAfter) {
    change.packetBefore = ShownWrite(pair.before, rawBefore, before_);
    change.packetAfter = ShownWrite(pair.after, rawAfter, before_);
  }

  // The packet of a device in the field, read with the old and with the new configuration.
  void ShowNotification(Change& change, const Pair& pair, uint64_t raw) {
    change.packetBefore = ShownNotification(pair.before, raw, pair.before);
    change.packetAfter = ShownNotification(pair.before, raw, pair.after);
  }

  // A write for what can be written, else a packet of a device in the field.
  void Show(Change& change, const Pair& pair) {
    const uint64_t raw = SendableRaw(pair);
    const std::optional<uint64_t> translated = Translated(pair, raw);
    if (pair.IsWritten() && translated) {
      ShowWrite(change, pair, raw, *translated);
    } else {
      ShowNotification(change, pair, raw);
    }
  }

  // The same for a change that has an effect on what is sent or read, which such a packet may not show.
  void ShowDifference(Change& change, const Pair& pair) {
    Show(change, pair);
    for (const uint64_t raw : {CommonRaw(pair), LargestRaw(pair.before)}) {
      if (!IsShown(change)) ShowNotification(change, pair, raw);
    }
    if (IsShown(change)) return;
    change.packetBefore = ShownAmongOnes(pair.before, CommonRaw(pair), pair.after, pair.before);
    change.packetAfter = ShownAmongOnes(pair.before, CommonRaw(pair), pair.after, pair.after);
  }

  // ---- The packets of the entity ----

  void AddForEntity(const Rule& rule, const std::string& message, const std::string& effect, const std::string& fix) {
    changes_.push_back({&rule,
                        SiteOf(before_.At().Member("attrs")),
                        SiteOf(after_.At().Member("attrs")),
                        message,
                        effect,
                        fix,
                        {},
                        {},
                        {}});
  }

  void CheckPackets() {
    const auto written = std::find_if(pairs_.begin(), pairs_.end(), [](const Pair& pair) { return pair.IsWritten(); });
    const size_t oldFlags = FlagBytes(before_.Writing());
    const size_t newFlags = FlagBytes(after_.Writing());
    if (written != pairs_.end() && oldFlags != newFlags) {
      AddForEntity(changes::kFlagBytes,
                   fmt::format("the flag bitmap of a write has {}, for {}", SizesText(newFlags, oldFlags),
                               Count(after_.Writing().records.size(), "writable attribute")),
                   "a device in the field looks for the payload in the wrong place: it misreads every write",
                   "keep the number of writable attributes within the same flag bytes, or make a new product of it");
      Show(changes_.back(), *written);
    }
    const size_t oldBytes = before_.Writing().payloadBytes;
    const size_t newBytes = after_.Writing().payloadBytes;
    if (written != pairs_.end() && oldBytes != newBytes) {
      AddForEntity(changes::kWriteLength, fmt::format("the payload of a write has {}", SizesText(newBytes, oldBytes)),
                   "a device in the field may refuse every write for its length",
                   "put new writable attributes into bits that are free, or make a new product of it");
      Show(changes_.back(), *written);
    }
    CheckReading();
  }

  static std::string SizesText(size_t size, size_t before) {
    return fmt::format("{} instead of {}", Count(size, "byte"), before);
  }

  // What becomes of a packet of zeros of a device in the field.
  void CheckReading() {
    const size_t oldBytes = before_.Reading().payloadBytes;
    const size_t newBytes = after_.Reading().payloadBytes;
    if (before_.Reading().fields.empty() || after_.Reading().fields.empty()) return;
    const LogCapture silent;
    const Bytes zeros = Zeros(before_);
    const Field* culprit = CulpritOf(zeros);
    if (culprit == nullptr && oldBytes == newBytes) return;
    if (culprit != nullptr) {
      const bool isAfterEnd = culprit->bits.EndByte() > oldBytes;
      const bool isEnum = IsEnum(*culprit->attribute);
      AddForEntity(changes::kDecodeEnds,
                   fmt::format("{}, at which decoding ends, {}", after_.Label(culprit->element),
                               isAfterEnd ? "lies after the payload of devices in the field"
                                          : "cannot be read from a packet of devices in the field"),
                   isEnum ? "the attributes after it are missing in every decode of their packets"
                          : "every decode of their packets loses the whole entity",
                   isAfterEnd ? "use a number or enum, which is only left out, or put it into bits that are free"
                              : "correct it; dp4 lint tells what is wrong");
    } else {
      AddForEntity(changes::kPayloadLength,
                   fmt::format("the payload of what is read has {}", SizesText(newBytes, oldBytes)),
                   newBytes > oldBytes ? "what lies after the payload of devices in the field is left out"
                                       : "the last bytes that devices in the field send are not read",
                   "nothing needs to be done");
    }
    changes_.back().packetBefore = {zeros, WholeMeaning(before_, zeros)};
    changes_.back().packetAfter = {zeros, WholeMeaning(after_, zeros)};
  }

  static std::string WholeMeaning(const EntityModel& entity, const Bytes& packet) {
    PacketReader reader(entity);
    PacketError error;
    const PacketReading* reading = reader.Read(packet, error);
    if (reading == nullptr) return "no packet";
    const auto isTold = [reading](const Field& field) { return reading->IsTold(field); };
    const std::vector<Field>& fields = reading->direction->fields;
    const auto values = static_cast<size_t>(std::count_if(fields.begin(), fields.end(), isTold));
    std::string meaning = Count(values, "value");
    if (reading->culprit == nullptr) return meaning;
    const Attribute& culprit = *reading->culprit->attribute;
    return fmt::format("{}; the decode ends at {}", meaning, NameText(culprit.name));
  }

  // The field at which the decode of an old device's packet ends with the new configuration only; null for none.
  const Field* CulpritOf(const Bytes& zeros) const {
    const auto culpritIn = [&zeros](const EntityModel& entity) {
      PacketReader reader(entity);
      PacketError error;
      const PacketReading* reading = reader.Read(zeros, error);
      return reading == nullptr ? nullptr : reading->culprit;
    };
    const Field* culprit = culpritIn(after_);
    return culprit == nullptr || culpritIn(before_) != nullptr ? nullptr : culprit;
  }

  // An enum lies where devices in the field have something else: what they send may be no index of it.
  void CheckNewEnum(const Side& side, const Side* counterpart) {
    const Field* field = side.Read();
    if (field == nullptr || !IsEnum(*field->attribute) || field->attribute->enumList.empty()) return;
    for (const Bytes& packet : FullestOld()) {
      const Result result = DecodeSilently(after_, {*field->attribute}, packet.data() + 1, packet.size() - 1)[0];
      if (result.outcome != MorvixProtocolOutcomeRefusedByItems_4_0) continue;
      const std::string none = "no " + NameText(DocumentKey(side.Record()));
      changes_.push_back(
          {&changes::kDecodeEnds,
           counterpart != nullptr ? std::optional(OldSite(*counterpart, "")) : std::nullopt,
           NewSite(side, "enum"),
           after_.Label(side.element) + " has no item for what devices in the field may send in its bits",
           "a decode of such a packet ends there, and the attributes after it are missing",
           "put the enum into bits that are free",
           {side.Record().name},
           {packet, counterpart != nullptr ? MeaningOf(*counterpart, packet) : none},
           {packet, MeaningOf(side, packet)}});
      return;
    }
  }

  const std::vector<Bytes>& FullestOld() {
    if (fullest_) return *fullest_;
    fullest_.emplace();
    for (const bool ofOnes : {false, true}) {
      std::optional<Bytes> packet = Fullest(before_, ofOnes);
      if (packet) fullest_->push_back(std::move(*packet));
    }
    return *fullest_;
  }

  // ---- Attributes that are in one of the two ----

  void AddAdded(const Side& side) {
    const std::string label = after_.Label(side.element);
    Change change{&changes::kAttributeAdded, std::nullopt, NewSite(side, ""),
                  label + " is new",         "",           "",
                  {side.Record().name},      {},           {}};
    if (side.Written() != nullptr) {
      change.effect = "devices in the field do not know it";
      change.fix = "let the application set it only on devices that know it";
      change.packetBefore.meaning = "it cannot be written";
      change.packetAfter = ShownWrite(side, LargestRaw(side), before_);
    } else {
      change.effect = "what devices in the field send says nothing about it, whatever is read";
      change.fix = "let the application expect it only of devices that know it";
      const Bytes zeros = Zeros(before_);
      change.packetBefore = {zeros, MeaningOfKey(before_, oldKeys_, side.Record(), zeros)};
      change.packetAfter = {zeros, MeaningOfKey(after_, newKeys_, side.Record(), zeros)};
    }
    changes_.push_back(std::move(change));
    CheckNewEnum(side, nullptr);
  }

  void AddRemoved(const Side& side) {
    const std::string label = before_.Label(side.element);
    Change change{&changes::kAttributeRemoved,
                  OldSite(side, ""),
                  std::nullopt,
                  label + " is gone" + WhyDropped(side),
                  side.Written() != nullptr ? "applications can neither read nor write it any more"
                                            : "applications do not get it any more",
                  "keep it as long as applications know it",
                  {side.Record().name},
                  {},
                  {}};
    if (side.Read() == nullptr) {
      change.packetBefore = ShownWrite(side, LargestRaw(side), before_);
      change.packetAfter.meaning = "it cannot be written";
    } else {
      change.packetBefore = ShownNotification(side, LargestRaw(side), side);
      const Bytes& packet = change.packetBefore.bytes;
      change.packetAfter = {packet, MeaningOfKey(after_, newKeys_, side.Record(), packet)};
    }
    changes_.push_back(std::move(change));
  }

  // An attribute that is still in the text, but dropped.
  std::string WhyDropped(const Side& side) const {
    for (const Element& element : after_.Elements()) {
      std::string name;
      if (element.droppedOnReading.empty() || !ProtocolGetAttrString_4_0(*element.json, "name", name)) continue;
      if (name == side.Record().name) {
        return fmt::format(": the parser drops it for its {}; dp4 lint tells why", Quoted(element.droppedOnReading));
      }
    }
    return "";
  }

  // ---- Attributes that are in both ----

  void CheckPair(const Pair& pair) {
    CheckFlag(pair);
    CheckPlace(pair);
    CheckWritable(pair);
    CheckNames(pair);
    const Attribute& before = pair.before.Record();
    const Attribute& after = pair.after.Record();
    if (!IsSameKind(before, after)) {
      Change& change = Add(changes::kDataType, pair, "data_type",
                           fmt::format("{} was {} and is {}", pair.Label(), KindText(before), KindText(after)),
                           "applications get and give values of another kind", "add an attribute for it instead");
      ShowNotification(change, pair, CommonRaw(pair));
      CheckNewEnum(pair.after, &pair.before);
    } else if (IsNumber(before)) {
      CheckScaling(pair);
      CheckLimits(pair);
    } else if (IsEnum(before)) {
      CheckItems(pair);
    }
  }

  // `way` tells apart what moves in other directions; `rank` says where the attribute stands among those that the rule
  // is about.
  void AddMove(const Rule& rule, const Pair& pair, Way way, size_t rank, int64_t distance, const char* member,
               const std::string& message, const std::string& effect, const std::string& fix) {
    const auto [found, isFirst] = moves_.emplace(std::pair(&rule, way), Move());
    Move& move = found->second;
    if (!isFirst && move.distance == distance && move.last + 1 == rank) {
      changes_[move.change].attributes.push_back(pair.after.Record().name);
    } else {
      ShowDifference(Add(rule, pair, member, message, effect, fix), pair);
      move = {distance, changes_.size() - 1, rank};
    }
    move.last = rank;
  }

  void CheckFlag(const Pair& pair) {
    if (!pair.IsWritten()) return;
    const size_t before = pair.before.Written()->flag;
    const size_t after = pair.after.Written()->flag;
    if (before == after) return;
    AddMove(changes::kFlag, pair, Way::kWritten, after, static_cast<int64_t>(after) - static_cast<int64_t>(before), "",
            fmt::format("the flag of {} moved from bit {} to bit {}", pair.Label(), before, after),
            "a device in the field takes it for the flag of another attribute, or knows no such flag",
            "list new writable attributes after all others, and keep those that are not used any more");
  }

  static BitRange BitsOf(const Field* field) { return field == nullptr ? BitRange() : field->bits; }

  void CheckPlace(const Pair& pair) {
    const BitRange oldRead = BitsOf(pair.before.Read());
    const BitRange newRead = BitsOf(pair.after.Read());
    const BitRange oldWritten = pair.IsWritten() ? BitsOf(pair.before.Written()) : BitRange();
    const BitRange newWritten = pair.IsWritten() ? BitsOf(pair.after.Written()) : BitRange();
    const bool isReadMoved = pair.before.Read() != nullptr && pair.after.Read() != nullptr && oldRead != newRead;
    const bool isWrittenMoved = oldWritten != newWritten;
    const bool isSamePosition = IsSamePosition(pair.before.Record().position, pair.after.Record().position);
    if (!isReadMoved && !isWrittenMoved) {
      if (isSamePosition) return;
      Change& change = Add(changes::kPosition, pair, "position",
                           fmt::format("the position of {} is written differently; it still lies in {}", pair.Label(),
                                       oldRead.IsEmpty() ? "no byte" : BitsText(oldRead)),
                           "none", "nothing needs to be done");
      return Show(change, pair);
    }
    const auto textOf = [](const BitRange& bits) { return bits.IsEmpty() ? "nowhere" : BitsText(bits); };
    std::string message = pair.Label() + " moved";
    if (isReadMoved) message += fmt::format(" from {} to {}", textOf(oldRead), textOf(newRead));
    const bool isSameMove = isReadMoved && oldRead == oldWritten && newRead == newWritten;
    if (isWrittenMoved && !isSameMove) {
      message +=
          fmt::format("{} on writing from {} to {}", isReadMoved ? "," : "", textOf(oldWritten), textOf(newWritten));
    }
    const BitRange& from = isReadMoved ? oldRead : oldWritten;
    const BitRange& to = isReadMoved ? newRead : newWritten;
    const Way way = isSameMove                      ? Way::kBoth
                    : isReadMoved && isWrittenMoved ? Way::kApart
                    : isReadMoved                   ? Way::kRead
                                                    : Way::kWritten;
    const bool isWhole = from.Length() == to.Length() && !from.IsEmpty() && way != Way::kApart;
    if (isSamePosition) {
      message += fmt::format(", since its bit group has {}",
                             SizesText(GroupBytes(pair.after, isReadMoved), GroupBytes(pair.before, isReadMoved)));
    }
    // Only moves of the whole field can be told together.
    const int64_t distance = isWhole ? static_cast<int64_t>(to.begin) - static_cast<int64_t>(from.begin)
                                     : INT64_MIN + static_cast<int64_t>(index_);
    const char* effect = "devices in the field still have it in the old place";
    if (isSamePosition) {
      AddMove(changes::kGroupSize, pair, way, index_, distance, "position", message, effect,
              "keep the last attribute of the group last, and its highest bit where it is");
    } else {
      AddMove(changes::kPlace, pair, way, index_, distance, "position", message, effect,
              "keep the place, and put what is new into bits that are free");
    }
  }

  static size_t GroupBytes(const Side& side, bool onReading) {
    return (onReading ? side.Read() : side.Written())->attribute->position.groupByteLength;
  }

  void CheckWritable(const Pair& pair) {
    const Attribute& before = pair.before.Record();
    const Attribute& after = pair.after.Record();
    if (before.type != after.type) {
      Change& change =
          Add(changes::kGroup, pair, "type",
              fmt::format("{} was {} and is {}", pair.Label(), GroupName(before.type), GroupName(after.type)),
              IsWritable(before)  ? "applications can read it, but not write it any more"
              : IsWritable(after) ? "applications can write it, which devices in the field do not know"
                                  : "applications get it in another place",
              "add an attribute for it instead");
      const uint64_t raw = CommonRaw(pair);
      if (IsWritable(before) || IsWritable(after)) return ShowWrite(change, pair, raw, raw);
      ShowNotification(change, pair, raw);
      for (const auto& [shown, type] :
           {std::pair(&change.packetBefore, before.type), std::pair(&change.packetAfter, after.type)}) {
        shown->meaning += std::string(", ") + GroupName(type);
      }
    } else if (pair.before.Written() != nullptr && pair.after.Written() == nullptr) {
      Change& change =
          Add(changes::kAttributeRemoved, pair, "", pair.Label() + " is dropped on writing; dp4 lint tells why",
              "applications can read it, but not write it any more", "fix what makes the parser drop it");
      ShowWrite(change, pair, CommonRaw(pair), CommonRaw(pair));
    }
  }

  void CheckNames(const Pair& pair) {
    const Attribute& before = pair.before.Record();
    const Attribute& after = pair.after.Record();
    const std::string& oldKey = DocumentKey(before);
    const std::string& newKey = DocumentKey(after);
    if (oldKey != newKey) {
      const char* member = IsAlertOrFault(after) ? "display_name" : "name";
      Change& change =
          Add(changes::kKey, pair, member,
              fmt::format("{} was {} in documents and is {}", pair.Label(), Quoted(oldKey), Quoted(newKey)),
              "applications that know the old key do not find it", "keep the key");
      ShowNotification(change, pair, CommonRaw(pair));
      if (pair.after.Read() != nullptr) {
        change.packetAfter.meaning = MeaningOfKey(after_, newKeys_, after, change.packetAfter.bytes);
      }
    }
    CheckKeyTaken(pair);
    std::vector<std::string> texts;
    const char* member = "";
    const auto note = [&](const char* name, bool differs) {
      if (!differs) return;
      texts.emplace_back(std::string("'") + name + "'");
      if (*member == '\0') member = name;
    };
    note("id", before.id != after.id);
    note("name", before.name != after.name && IsAlertOrFault(before) && IsAlertOrFault(after));
    note("display_name",
         before.display_name != after.display_name && !IsAlertOrFault(before) && !IsAlertOrFault(after));
    note("desc", before.desc != after.desc);
    note("data_type", before.data_type != after.data_type && IsSameKind(before, after));
    if (texts.empty()) return;
    Change& change =
        Add(changes::kText, pair, member, fmt::format("{} has another {}", pair.Label(), Series(texts, "and")),
            "none: neither packets nor keys depend on it", "nothing needs to be done");
    ShowNotification(change, pair, CommonRaw(pair));
    if (IsShown(change)) ShowNotification(change, pair, 0);  // what differs is told by another change
  }

  void CheckKeyTaken(const Pair& pair) {
    if (pair.before.Read() == nullptr || pair.after.Read() == nullptr) return;
    const std::string& key = DocumentKey(pair.after.Record());
    const Side other{&after_, newKeys_.at(key).back()};
    if (other.element == pair.after.element) return;
    if (oldKeys_.at(DocumentKey(pair.before.Record())).back() != pair.before.element) return;
    Change& change = Add(changes::kKeyTaken, pair, "",
                         fmt::format("{} gives way to {}: both are {} in documents", pair.Label(),
                                     after_.Label(other.element), Quoted(key)),
                         "applications get the value of the other one", "give each a key of its own");
    ShowNotification(change, pair, CommonRaw(pair));
    change.packetAfter.meaning = MeaningOf(other, change.packetAfter.bytes);
    // A packet that does not tell the other one shows nothing yet.
    const bool isTold = change.packetAfter.meaning != "no " + NameText(key);
    if (!isTold) change.packetAfter = ShownNotification(other, LargestRaw(other), other);
  }

  // ---- Values ----

  void CheckScaling(const Pair& pair) {
    const Scaling& before = pair.before.Record().uint_spec;
    const Scaling& after = pair.after.Record().uint_spec;
    if (IsSameFactor(before.ratio, after.ratio) && IsSameFactor(before.addition, after.addition)) return;
    Change& change = Add(changes::kScaling, pair, "uint_spec",
                         fmt::format("{} was {} and is {}", pair.Label(), ScalingText(pair.before.Record()),
                                     ScalingText(pair.after.Record())),
                         "devices in the field mean other numbers by the same raw values", "keep the scaling");
    ShowDifference(change, pair);
  }

  // The raw values that an attribute takes, in its bits.
  struct Limits {
    uint64_t min;
    uint64_t max;
    bool isEmpty;
  };
  static Limits LimitsOf(const Side& side) {
    const Attribute& number = side.Record();
    if (!IsScaled(number)) return {0, 0, true};
    const auto min = static_cast<uint64_t>(number.uint_spec.min);
    const uint64_t max = LargestRaw(side);
    return {min, max, min > max};
  }

  void CheckLimits(const Pair& pair) {
    const Limits before = LimitsOf(pair.before);
    const Limits after = LimitsOf(pair.after);
    const auto textOf = [](const Limits& limits) {
      return limits.isEmpty ? std::string("no raw value") : fmt::format("raw {} to {}", limits.min, limits.max);
    };
    const std::string message = fmt::format("{} took {} and takes {}", pair.Label(), textOf(before), textOf(after));
    const bool isLost = !before.isEmpty && (after.isEmpty || after.min > before.min || after.max < before.max);
    if (isLost) {
      const uint64_t raw = after.isEmpty || after.max < before.max ? before.max : before.min;
      Change& change =
          Add(changes::kLimitsNarrowed, pair, "uint_spec", message,
              IsWritable(pair.before.Record())
                  ? "what devices in the field send outside of it is left out, and writes of it are refused"
                  : "what devices in the field send outside of it is left out",
              "keep the limits, or let the application narrow them");
      ShowNotification(change, pair, raw);
    }
    const bool isWider = !after.isEmpty && (before.isEmpty || after.min < before.min || after.max > before.max);
    if (!isWider) return;
    const uint64_t raw = before.isEmpty || after.max > before.max ? after.max : after.min;
    AddWidening(changes::kLimitsWidened, changes::kReadLimitsWidened, pair, "uint_spec", message, "values", raw);
  }

  // More values can be sent than before, `raw` for one. Devices in the field have to know them only where they are
  // written.
  void AddWidening(const Rule& writtenRule, const Rule& readRule, const Pair& pair, const char* member,
                   const std::string& message, const char* values, uint64_t raw) {
    if (pair.after.Written() != nullptr) {
      Change& change = Add(writtenRule, pair, member, message,
                           fmt::format("a write can carry {} that devices in the field do not know", values),
                           "let the application send them only to devices that know them");
      return ShowWrite(change, pair, raw, raw);
    }
    Change& change =
        Add(readRule, pair, member, message, "none: devices in the field do not send them", "nothing needs to be done");
    ShowNotification(change, pair, LargestRaw(pair.before));
  }

  void CheckItems(const Pair& pair) {
    const std::vector<std::string>& before = pair.before.Record().enumList;
    const std::vector<std::string>& after = pair.after.Record().enumList;
    const auto indexIn = [](const std::vector<std::string>& items, const std::string& item) {
      return static_cast<size_t>(std::find(items.begin(), items.end(), item) - items.begin());
    };
    // Whether what has the index now is told as moved; the second of two equal items is not.
    const auto isMovedTo = [&](size_t i) {
      const size_t from = indexIn(before, after[i]);
      return from < before.size() && !(from < after.size() && after[from] == before[from]);
    };
    std::vector<std::string> moved;
    std::vector<std::string> renamed;
    std::optional<std::pair<size_t, size_t>> firstMoved;
    std::optional<size_t> firstRenamed;
    for (size_t i = 0; i < before.size(); ++i) {
      if (i < after.size() && before[i] == after[i]) continue;
      const size_t to = indexIn(after, before[i]);
      if (to < after.size()) {
        if (!firstMoved) firstMoved = {i, to};
        moved.push_back(fmt::format("{} from {} to {}", Quoted(before[i]), i, to));
      } else if (i < after.size() && !isMovedTo(i)) {
        if (!firstRenamed) firstRenamed = i;
        renamed.push_back(fmt::format("{} from {} to {}", i, Quoted(before[i]), Quoted(after[i])));
      }
    }
    if (firstMoved) {
      Change& change = Add(changes::kItemMoved, pair, "enum",
                           fmt::format("items of {} moved: {}", pair.Label(), Listed(moved, moved.size())),
                           "devices in the field mean other items by the same indices",
                           "keep the order, and add new items at the end");
      if (pair.IsWritten()) {
        ShowWrite(change, pair, firstMoved->first, firstMoved->second);
      } else {
        ShowNotification(change, pair, firstMoved->first);
      }
    }
    if (firstRenamed) {
      Change& change =
          Add(changes::kItemRenamed, pair, "enum",
              fmt::format("items of {} have other texts: {}", pair.Label(), Listed(renamed, renamed.size())),
              "applications that know the old text do not find it",
              "keep the text, unless it means the same to applications");
      ShowNotification(change, pair, *firstRenamed);
    }
    CheckItemCount(pair, before.size(), after.size());
  }

  void CheckItemCount(const Pair& pair, size_t before, size_t after) {
    if (before == after) return;
    const std::string message = fmt::format("{} had {} and has {}", pair.Label(), Count(before, "item"), after);
    if (after < before) {
      Change& change =
          Add(changes::kItemsRemoved, pair, "enum", message,
              "a decode ends where a device in the field sends one of the others, and the attributes after "
              "it are missing",
              "keep the items");
      return ShowNotification(change, pair, before - 1);
    }
    AddWidening(changes::kItemsAdded, changes::kReadItemsAdded, pair, "enum", message, "indices",
                LargestRaw(pair.after));
  }

  // The others that moved as far as the first.
  static void NameOthers(Change& change) {
    if (change.attributes.size() < 2) return;
    std::vector<std::string> others;
    for (size_t i = 1; i < change.attributes.size() && i <= 5; ++i) others.push_back(Quoted(change.attributes[i]));
    change.message += "; moved as far: " + Listed(others, change.attributes.size() - 1);
  }

  const EntityModel& before_;
  const EntityModel& after_;
  std::vector<Change>& changes_;
  const std::vector<const Field*> oldFields_;
  const std::vector<const Field*> newFields_;
  const ElementsByKey oldKeys_ = KeysOf(before_);
  const ElementsByKey newKeys_ = KeysOf(after_);
  std::vector<Pair> pairs_;  // in the new order
  size_t index_ = 0;         // of the pair that is looked at
  size_t limited_ = 0;       // changes that LimitShown has seen
  size_t shownBytes_ = 0;
  std::optional<std::vector<Bytes>> fullest_;  // packets of devices in the field, made when they are needed
  std::map<std::pair<const Rule*, Way>, Move> moves_;
};

}  // namespace

Site SiteOf(const Spot& spot) { return {json::OffsetOf(*spot.value), spot.pointer}; }

void CompareAttributes(const EntityModel& before, const EntityModel& after, std::vector<Change>& changes) {
  std::vector<Change> found;
  AttributesCheck(before, after, found).Check();
  changes.insert(changes.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
}

}  // namespace morvix::inspect
