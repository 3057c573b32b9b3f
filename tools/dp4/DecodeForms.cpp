#include "DecodeForms.h"

#include <json/value.h>

#include <algorithm>
#include <set>
#include <utility>

#include "EntityView.h"
#include "Packets.h"
#include "Text.h"

namespace dp4 {

namespace {

using Attribute = MorvixProtocolAttribute_4_0;

// A packet, unpacked.
class Unpacked {
 public:
  explicit Unpacked(const std::vector<byte>& packet) {
    package_.cmd = kNoCommand;
    isGood_ = ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package_);
  }

  bool IsGood() const { return isGood_; }
  const MorvixProtocolPackage_4_0& Package() const { return package_; }

  // Why it is not good, as what the module left in the package tells.
  std::string Reason() const {
    if (package_.cmd == kNoCommand) return "too short; expected a command byte and at least one byte of payload";
    if (package_.sizeValue != 0) return "too long; expected a command byte and at most 16384 bytes of payload";
    const byte command = static_cast<byte>(package_.cmd);
    return "command " + HexText(&command, 1) + " is not received; expected 03 (read response) or 04 (notification)";
  }

 private:
  static constexpr auto kNoCommand = MorvixProtocolCommand_4_0(0x100);  // no byte has this number

  OwnedPackage package_;
  bool isGood_ = false;
};

bool IsStatus(const Attribute& attribute) {
  return attribute.type == MorvixProtocolTypeStatusWritable_4_0 ||
         attribute.type == MorvixProtocolTypeStatusReadonly_4_0;
}

// The key of an attribute's value in the decoded document.
const std::string& KeyOf(const Attribute& attribute) {
  return IsStatus(attribute) ? attribute.name : attribute.display_name;
}

// ---- --document decoded ----

class DecodedForm : public Form {
 public:
  using Form::Form;

  std::optional<std::string> ResultOf(const std::vector<byte>& packet) override {
    const Unpacked unpacked(packet);
    if (!unpacked.IsGood()) return std::nullopt;
    const Json::Value decoded = Decode(unpacked.Package());
    TakeLines();
    return CompactText(decoded) + '\n';
  }
};

// ---- --document flat ----

// One pass gives the values and what is active; the alerts and faults that are not active it does not tell. Further
// passes do, over the alerts alone and over the faults alone, as if they were status: a pass costs a fraction of what
// documents cost. They see what decoding all attributes sees as long as that is not ended early, which the module logs,
// and no attribute replaces another's value.
class FlatForm : public Form {
 public:
  explicit FlatForm(const ParsedEntity& entity)
      : Form(entity),
        alerts_(StatusOf(MorvixProtocolTypeAlert_4_0)),
        faults_(StatusOf(MorvixProtocolTypeFault_4_0)),
        isSeparable_(entity.info.name != "version" && AreKeysDistinct()) {
    listInfo_.name = "list";
  }

  std::optional<std::string> ResultOf(const std::vector<byte>& packet) override {
    activeAlerts_.clear();
    activeFaults_.clear();
    if (!ProtocolReceivePacket_4_0(Entity().info, Entity().attributes, packet.data(), packet.size(), document_,
                                   activeAlerts_, activeFaults_)) {
      return std::nullopt;
    }
    TakeLines();
    document_.erase(document_.find_last_not_of('\n') + 1);
    std::string alerts;
    std::string faults;
    const bool isSeparate =
        isSeparable_ && Lines().empty() && ListText(alerts_, packet, alerts) && ListText(faults_, packet, faults);
    if (!isSeparate) ListTextsByDocument(packet, alerts, faults);
    return "{\"values\":" + document_ + ",\"alerts\":" + alerts + ",\"faults\":" + faults +
           ",\"active\":{\"alerts\":" + ActiveText(activeAlerts_) + ",\"faults\":" + ActiveText(activeFaults_) + "}}\n";
  }

 private:
  std::vector<Attribute> StatusOf(MorvixProtocolType_4_0 group) const {
    std::vector<Attribute> status;
    for (const Attribute& attribute : Entity().attributes) {
      if (attribute.type != group) continue;
      status.push_back(attribute);
      status.back().name = attribute.display_name;
      status.back().type = MorvixProtocolTypeStatusReadonly_4_0;
    }
    return status;
  }

  // As they are written: what is no UTF-8 may become alike there.
  bool AreKeysDistinct() const {
    std::set<std::string> keys;
    for (const Attribute& attribute : Entity().attributes) keys.insert(CompactText(KeyOf(attribute)));
    return keys.size() == Entity().attributes.size();
  }

  // The values of `attributes` by name. False when the document is not of the expected make.
  bool ListText(const std::vector<Attribute>& attributes, const std::vector<byte>& packet, std::string& text) {
    static const std::string kBegin = "{\"list\":";
    static const std::string kEnd = ",\"version\":4.0}\n";
    text = "{}";
    if (attributes.empty()) return true;
    if (!ProtocolReceivePacket_4_0(listInfo_, attributes, packet.data(), packet.size(), list_, unused_, unused_)) {
      return false;
    }
    if (list_ == "{\"version\":4.0}\n") return true;
    if (list_.size() < kBegin.size() + kEnd.size() || list_.compare(0, kBegin.size(), kBegin) != 0 ||
        list_.compare(list_.size() - kEnd.size(), kEnd.size(), kEnd) != 0) {
      return false;
    }
    text.assign(list_, kBegin.size(), list_.size() - kBegin.size() - kEnd.size());
    return true;
  }

  void ListTextsByDocument(const std::vector<byte>& packet, std::string& alerts, std::string& faults) const {
    const LogGatherer silent;  // these lines have been told
    const Unpacked unpacked(packet);
    Json::Value decoded = Decode(unpacked.Package());
    decoded["version"] = 4.0;
    Json::Value alertList;
    Json::Value faultList;
    ProtocolConvertReceiveResult_4_0(CompactText(decoded), alertList, faultList);
    alerts = CompactText(ByName(alertList));
    faults = CompactText(ByName(faultList));
  }

  static Json::Value ByName(const Json::Value& list) {
    Json::Value values(Json::objectValue);
    for (const Json::Value& item : list) values[item["name"].asString()] = item["value"];
    return values;
  }

  static std::string ActiveText(const std::vector<TavelReceiveInfo>& active) {
    std::string text = "{";
    for (const TavelReceiveInfo& info : active) {
      text += (text.size() == 1 ? "" : ",") + CompactText(info.name) + ':' + std::to_string(info.value);
    }
    return text + '}';
  }

  std::vector<Attribute> alerts_;
  std::vector<Attribute> faults_;
  bool isSeparable_;
  MorvixProtocolEntity_4_0 listInfo_;
  // Kept for their memory.
  std::string document_;
  std::string list_;
  std::vector<TavelReceiveInfo> activeAlerts_;
  std::vector<TavelReceiveInfo> activeFaults_;
  std::vector<TavelReceiveInfo> unused_;
};

// ---- What ended decoding ----

// An attribute on its own.
struct Alone {
  Json::Value value;  // null when there is none
  std::string line;   // the module's, when decoding it ends decoding
};

Alone DecodeAlone(const MorvixProtocolEntity_4_0& info, const Attribute& attribute,
                  const MorvixProtocolPackage_4_0& package) {
  LogGatherer log;
  Json::Value decoded(Json::objectValue);
  ProtocolDecodeAttributes_4_0(info, {attribute}, package, decoded);
  const std::vector<LoggedLine> lines = log.Take();
  Alone alone;
  if (!lines.empty()) alone.line = lines[0].text;
  if (decoded.isMember(info.name)) alone.value = decoded[info.name][KeyOf(attribute)]["value"];
  return alone;
}

// The first attribute that ends decoding; null for none.
const Attribute* FindCulprit(const ParsedEntity& entity, const MorvixProtocolPackage_4_0& package) {
  for (const Attribute& attribute : entity.attributes) {
    if (!DecodeAlone(entity.info, attribute, package).line.empty()) return &attribute;
  }
  return nullptr;
}

// ---- --document table ----

class TableForm : public Form {
 public:
  TableForm(const ParsedEntity& entity, bool color) : Form(entity), color_(color) {}

  std::optional<std::string> ResultOf(const std::vector<byte>& packet) override {
    const Unpacked unpacked(packet);
    if (!unpacked.IsGood()) return std::nullopt;
    const MorvixProtocolPackage_4_0& package = unpacked.Package();
    const Json::Value decoded = Decode(package);
    TakeLines();
    FindPlaces(package.sizeValue);
    culprit_ = Lines().empty() ? nullptr : FindCulprit(Entity(), package);
    const std::set<std::string> active = ActiveKeys(packet);
    std::vector<TableRow> rows = {HeadingRow({"NAME", "GROUP", "PLACE", "BITS", "VALUE", "NOTE"}, color_)};
    for (size_t i = 0; i < Entity().attributes.size(); ++i) rows.push_back(RowOf(i, package, decoded, active));
    const bool isNotification = package.cmd == MorvixProtocolCommandNotifyResp_4_0;
    return (isNotification ? "notification" : "read response") + std::string(", ") + NameText(Entity().info.name) +
           ", " + Count(package.sizeValue, "byte") + " of payload\n\n" + AlignedTable(rows);
  }

 private:
  static constexpr size_t kBitsColumns = 47;  // 16 bytes
  static constexpr size_t kValueColumns = 48;

  void FindPlaces(size_t payloadLength) {
    if (payloadLength == payloadLength_) return;
    payloadLength_ = payloadLength;
    places_.clear();
    for (const Attribute& attribute : Entity().attributes) {
      places_.push_back(FieldBits(attribute.position, attribute.data_type, payloadLength));
    }
  }

  // Alerts and faults; within one entity their names tell which.
  std::set<std::string> ActiveKeys(const std::vector<byte>& packet) const {
    const LogGatherer silent;  // these lines have been told
    std::string document;
    std::vector<TavelReceiveInfo> active;
    std::set<std::string> keys;
    if (!ProtocolReceivePacket_4_0(Entity().info, Entity().attributes, packet.data(), packet.size(), document, active,
                                   active)) {
      return keys;
    }
    for (const TavelReceiveInfo& info : active) keys.insert(info.name);
    return keys;
  }

  TableRow RowOf(size_t index, const MorvixProtocolPackage_4_0& package, const Json::Value& decoded,
                 const std::set<std::string>& active) const {
    const Attribute& attribute = Entity().attributes[index];
    const BitRange& bits = places_[index];
    const Alone alone = DecodeAlone(Entity().info, attribute, package);
    std::string note = NoteOf(attribute, bits, package, alone, decoded);
    const bool isActive = !IsStatus(attribute) && active.count(KeyOf(attribute)) != 0;
    if (isActive) note += note.empty() ? "active" : ", active";
    return {{NameText(KeyOf(attribute)), ""},
            {GroupName(attribute.type), color_ ? GroupColor(attribute.type) : ""},
            {PlaceText(bits), ""},
            {Shortened(BitsText(bits, package.value), kBitsColumns), ""},
            {Shortened(Escaped(alone.value.asString()), kValueColumns), ""},
            {note, color_ && isActive ? GroupColor(attribute.type) : ""}};
  }

  std::string NoteOf(const Attribute& attribute, const BitRange& bits, const MorvixProtocolPackage_4_0& package,
                     const Alone& alone, const Json::Value& decoded) const {
    if (!alone.line.empty()) return "unreadable: " + alone.line;
    if (alone.value.isNull() && bits.IsEmpty()) return "left out: not readable in this payload";
    const MorvixProtocolUIntSpec_4_0& limits = attribute.uint_spec;
    const auto isRefused = [&attribute](int64_t raw) {
      return UserText(attribute, static_cast<uint64_t>(raw)).empty();
    };
    if (alone.value.isNull() && isRefused(limits.min) && isRefused(limits.max)) {
      return "left out: its scaling takes no value; dp4 lint tells why";
    }
    if (alone.value.isNull()) {
      return "left out: raw " + std::to_string(RawValue(bits, package.value)) + ", expected " +
             std::to_string(limits.min) + " to " + std::to_string(limits.max);
    }
    const Json::Value* told = decoded.find(Entity().info.name.data(), End(Entity().info.name));
    if (told != nullptr) told = told->find(KeyOf(attribute).data(), End(KeyOf(attribute)));
    if (told == nullptr) return "not told: " + NameText(culprit_ == nullptr ? "" : KeyOf(*culprit_)) + " is unreadable";
    if ((*told)["value"] != alone.value || (*told)["type"] != static_cast<int>(attribute.type)) {
      return "not told: another attribute of this name follows";
    }
    if (attribute.data_type != MorvixProtocolDataTypeEnum_4_0) return "";
    return NameText(attribute.enumList.at(std::stoul(alone.value.asString())));
  }

  static const char* End(const std::string& text) { return text.data() + text.size(); }

  bool color_;
  const Attribute* culprit_ = nullptr;
  size_t payloadLength_ = 0;  // no packet has none
  std::vector<BitRange> places_;
};

}  // namespace

Json::Value Form::Decode(const MorvixProtocolPackage_4_0& package) const {
  Json::Value decoded(Json::objectValue);
  ProtocolDecodeAttributes_4_0(entity_.info, entity_.attributes, package, decoded);
  return decoded;
}

std::unique_ptr<Form> MakeForm(const std::string& name, const ParsedEntity& entity, bool color) {
  if (name == "flat") return std::make_unique<FlatForm>(entity);
  if (name == "decoded") return std::make_unique<DecodedForm>(entity);
  if (name == "table") return std::make_unique<TableForm>(entity, color);
  throw UsageError("--document " + Escaped(name) + ": expected decoded, flat or table");
}

std::string RefusalText(const std::vector<byte>& packet) { return Unpacked(packet).Reason(); }

std::string FailureText(const ParsedEntity& entity, const std::vector<byte>& packet, const std::string& line) {
  const Unpacked unpacked(packet);
  const Attribute* culprit = FindCulprit(entity, unpacked.Package());
  if (culprit == nullptr) return line;
  const std::string text = InQuotes(culprit->name) + " unreadable: " + line;
  if (culprit->data_type == MorvixProtocolDataTypeEnum_4_0) {
    const size_t items = culprit->enumList.size();
    return text + (items == 0 ? " (it has no items)" : " (expected 0 to " + std::to_string(items - 1) + ")");
  }
  const size_t given = unpacked.Package().sizeValue;
  const size_t taken = PayloadLength(entity.attributes).value_or(SIZE_MAX);
  if (given >= taken) return text + " (nothing can be read from its place; dp4 lint tells why)";
  return text + " (expected " + std::to_string(taken) + " bytes of payload, found " + std::to_string(given) + ")";
}

}  // namespace dp4
