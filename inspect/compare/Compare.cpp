#include "inspect/compare/Compare.h"

#include <fmt/format.h>

#include <optional>
#include <set>
#include <string>
#include <utility>

#include "host/Logging.h"
#include "inspect/compare/Attributes.h"
#include "inspect/compare/Examples.h"
#include "inspect/compare/Match.h"
#include "inspect/compare/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

// The entities of one configuration, those that are unusable included.
struct Entities {
  std::vector<Spot> spots;
  std::vector<std::optional<EntityModel>> models;  // nothing for the unusable ones
  std::vector<std::string> reasons;                // why they are

  explicit Entities(const json::Document& configuration) {
    const Json::Value& entities = EntitiesOf(configuration);
    const Spot all = Spot{&configuration.Root(), ""}.Member("entities");
    for (Json::ArrayIndex i = 0; i < entities.size(); ++i) {
      spots.push_back(all.Item(i));
      EntityFault fault;
      models.push_back(EntityModel::Parse(entities[i], spots.back().pointer, fault));
      reasons.push_back(fault.line);
      if (!models.back() || !models.back()->IsThrowing()) continue;
      models.back().reset();
      reasons.back() = "a \"min\" or \"max\" is an array or object";
    }
  }

  // By name as far as there is one, whether they are usable or not.
  std::vector<Identity> Identities() const {
    std::vector<Identity> identities;
    for (const Spot& spot : spots) {
      Identity identity{"", -1, 0};
      static_cast<void>(ProtocolGetAttrString_4_0(*spot.value, "name", identity.name));
      static_cast<void>(ProtocolGetAttrInteger_4_0(*spot.value, "id", identity.id));
      identities.push_back(identity);
    }
    return identities;
  }
};

// A notification of zeros of an entity, and how many values it has.
ShownPacket ShownZeros(const EntityModel& entity) {
  return {Zeros(entity), Count(entity.Reading().fields.size(), "value") + " of " + NameText(entity.Info().name)};
}

class Comparison {
 public:
  Comparison(const json::Document& before, const json::Document& after)
      : before_(before), after_(after), oldOnes_(before), newOnes_(after) {}

  std::vector<Change> Run() {
    CheckProduct();
    const auto matched = Matched(oldOnes_.Identities(), newOnes_.Identities());
    std::set<size_t> kept;
    auto next = matched.begin();
    for (size_t i = 0; i < newOnes_.spots.size(); ++i) {
      const bool isMatched = next != matched.end() && next->second == i;
      if (isMatched) {
        kept.insert(next->first);
        CheckEntity((next++)->first, i);
      } else {
        AddAdded(i);
      }
    }
    for (size_t i = 0; i < oldOnes_.spots.size(); ++i) {
      if (kept.count(i) == 0) AddRemoved(i);
    }
    return std::move(changes_);
  }

 private:
  // ---- The product ----

  void CheckProduct() {
    CheckMember(changes::kPacketVersion, "protocolType",
                "hosts choose devices by it: they do not find those in the field",
                "keep it for devices that speak the old configuration");
    if (!IsSameVersion()) {
      CheckMember(changes::kPacketVersion, "packetVersion",
                  "hosts choose devices by it: they do not find those in the field",
                  "keep it for devices that speak the old configuration");
    }
    CheckMember(changes::kProductKey, "product_key", "applications find the product by its key",
                "keep the key, unless this is to be a new product");
  }

  // "0x4" and "0x04" are the same to hosts.
  bool IsSameVersion() const {
    dword before = 0;
    dword after = 0;
    return ProtocolGetAttrHex_4_0(before_.Root(), "packetVersion", before) &&
           ProtocolGetAttrHex_4_0(after_.Root(), "packetVersion", after) && before == after;
  }

  void CheckMember(const Rule& rule, const char* member, const char* effect, const char* fix) {
    const Spot before = Spot{&before_.Root(), ""}.Member(member);
    const Spot after = Spot{&after_.Root(), ""}.Member(member);
    const auto valueOf = [&](const Spot& spot, const json::Document& document) -> const Json::Value& {
      return spot.value == &document.Root() ? Json::Value::nullSingleton() : *spot.value;
    };
    const Json::Value& oldValue = valueOf(before, before_);
    const Json::Value& newValue = valueOf(after, after_);
    if (oldValue == newValue) return;
    const auto textOf = [](const Json::Value& value) {
      return value.isNull() ? "missing" : Shortened(Escaped(json::CompactText(value)), 60);
    };
    ShownPacket shown = {{}, "no entity is usable"};
    for (const std::optional<EntityModel>& model : oldOnes_.models) {
      if (model && shown.bytes.empty()) shown = ShownZeros(*model);
    }
    changes_.push_back({&rule,
                        SiteOf(before),
                        SiteOf(after),
                        fmt::format("{} was {} and is {}", Quoted(member), textOf(oldValue), textOf(newValue)),
                        effect,
                        fix,
                        {},
                        shown,
                        {shown.bytes, "nobody reads it with this configuration"}});
  }

  // ---- Entities ----

  void CheckEntity(size_t old, size_t now) {
    const std::optional<EntityModel>& before = oldOnes_.models[old];
    const std::optional<EntityModel>& after = newOnes_.models[now];
    if (!before) {
      if (after) AddAdded(now);
      return;
    }
    const std::string& name = before->Info().name;
    if (!after) {
      changes_.push_back({&changes::kEntityUnusable,
                          SiteOf(oldOnes_.spots[old]),
                          SiteOf(newOnes_.spots[now]),
                          fmt::format("the entity {} is unusable: {}", Quoted(name), newOnes_.reasons[now]),
                          "nothing of it can be read or written",
                          "make it usable; dp4 lint tells what is wrong",
                          {},
                          ShownZeros(*before),
                          {Zeros(*before), "nothing reads it"}});
      return;
    }
    if (name != after->Info().name) {
      changes_.push_back({&changes::kEntityRenamed,
                          SiteOf(before->At().Member("name")),
                          SiteOf(after->At().Member("name")),
                          fmt::format("the entity {} is called {}", Quoted(name), Quoted(after->Info().name)),
                          "applications that know the old name find no values",
                          "keep the name",
                          {},
                          ShownZeros(*before),
                          ShownZeros(*after)});
    }
    if (before->Info().id != after->Info().id || before->Info().display_name != after->Info().display_name) {
      const char* member = before->Info().id != after->Info().id ? "id" : "display_name";
      changes_.push_back({&changes::kText,
                          SiteOf(before->At().Member(member)),
                          SiteOf(after->At().Member(member)),
                          fmt::format("the entity {} has another {}", Quoted(after->Info().name), Quoted(member)),
                          "none: neither packets nor keys depend on it",
                          "nothing needs to be done",
                          {},
                          ShownZeros(*before),
                          ShownZeros(*before)});
    }
    CompareAttributes(*before, *after, changes_);
  }

  void AddAdded(size_t now) {
    const std::optional<EntityModel>& model = newOnes_.models[now];
    if (!model) return;  // of no use, and none before; lint tells why
    changes_.push_back({&changes::kEntityAdded,
                        std::nullopt,
                        SiteOf(newOnes_.spots[now]),
                        fmt::format("the entity {} is new", Quoted(model->Info().name)),
                        "devices in the field do not have it",
                        "let the application expect it only of devices that have it",
                        {},
                        {{}, "nobody sends it"},
                        ShownZeros(*model)});
  }

  void AddRemoved(size_t old) {
    const std::optional<EntityModel>& model = oldOnes_.models[old];
    if (!model) return;
    changes_.push_back({&changes::kEntityRemoved,
                        SiteOf(oldOnes_.spots[old]),
                        std::nullopt,
                        fmt::format("the entity {} is gone", Quoted(model->Info().name)),
                        "applications can neither read nor write it any more",
                        "keep it as long as applications know it",
                        {},
                        ShownZeros(*model),
                        {Zeros(*model), "nothing reads it"}});
  }

  const json::Document& before_;
  const json::Document& after_;
  const Entities oldOnes_;
  const Entities newOnes_;
  std::vector<Change> changes_;
};

}  // namespace

const Rules& CompareRules() {
  using namespace changes;
  static const Rules all = {
      &kPacketVersion, &kProductKey,        &kEntityUnusable, &kEntityRemoved,  &kEntityRenamed, &kEntityAdded,
      &kFlagBytes,     &kWriteLength,       &kDecodeEnds,     &kPayloadLength,  &kFlag,          &kPlace,
      &kGroupSize,     &kScaling,           &kLimitsNarrowed, &kItemMoved,      &kItemsRemoved,  &kAttributeRemoved,
      &kKey,           &kKeyTaken,          &kGroup,          &kDataType,       &kItemRenamed,   &kLimitsWidened,
      &kItemsAdded,    &kReadLimitsWidened, &kReadItemsAdded, &kAttributeAdded, &kPosition,      &kText,
  };
  return all;
}

std::vector<Change> Compare(const json::Document& before, const json::Document& after) {
  return Comparison(before, after).Run();
}

}  // namespace morvix::inspect
