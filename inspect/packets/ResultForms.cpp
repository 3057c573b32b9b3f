#include "inspect/packets/ResultForms.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "host/Logging.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

using json::CompactText;

// ---- decoded ----

class Decoded : public ResultForm {
 public:
  explicit Decoded(const EntityModel& entity) : entity_(entity) {}

  std::string ResultOf(const Bytes& packet, std::string& failure) override {
    const PacketReading reading = ReadPacket(entity_, packet);
    failure = FailureText(entity_, reading, packet);
    return CompactText(reading.document) + '\n';
  }

 private:
  const EntityModel& entity_;
};

// ---- flat ----

// One pass gives the values and what is active. The alerts and faults that are not active are read from their places,
// as long as each has one and a key of its own; otherwise they come from the decoded document.
class Flat : public ResultForm {
 public:
  explicit Flat(const EntityModel& entity)
      : entity_(entity),
        alerts_(FieldsOf(MorvixProtocolTypeAlert_4_0)),
        faults_(FieldsOf(MorvixProtocolTypeFault_4_0)),
        isSeparable_(IsSeparable()) {}

  std::string ResultOf(const Bytes& packet, std::string& failure) override {
    activeAlerts_.clear();
    activeFaults_.clear();
    bool isWhole = false;
    {
      const LogCapture capture;
      static_cast<void>(ProtocolReceivePacket_4_0(entity_.Info(), entity_.Reading().records, packet.data(),
                                                  packet.size(), document_, activeAlerts_, activeFaults_));
      isWhole = capture.Lines().empty();
    }
    document_.erase(document_.find_last_not_of('\n') + 1);
    std::string alerts;
    std::string faults;
    failure.clear();
    if (isWhole && isSeparable_) {
      alerts = ListText(alerts_, packet);
      faults = ListText(faults_, packet);
    } else {
      PacketReading reading = ReadPacket(entity_, packet);
      failure = FailureText(entity_, reading, packet);
      reading.document["version"] = 4.0;
      Json::Value alertList;
      Json::Value faultList;
      ProtocolConvertReceiveResult_4_0(CompactText(reading.document), alertList, faultList);
      alerts = TextByName(alertList);
      faults = TextByName(faultList);
    }
    return fmt::format("{{\"values\":{},\"alerts\":{},\"faults\":{},\"active\":{{\"alerts\":{},\"faults\":{}}}}}\n",
                       document_, alerts, faults, ActiveText(activeAlerts_), ActiveText(activeFaults_));
  }

 private:
  // Fields with their keys as JSON strings.
  using KeyedFields = std::vector<std::pair<std::string, const Field*>>;

  // In the order of a document.
  KeyedFields FieldsOf(Group group) const {
    std::map<std::string, const Field*> fields;
    for (const Field& field : entity_.Reading().fields) {
      if (field.attribute->type == group) fields[field.attribute->display_name] = &field;
    }
    KeyedFields keyed;
    for (const auto& [name, field] : fields) keyed.emplace_back(CompactText(name), field);
    return keyed;
  }

  bool IsSeparable() const {
    std::set<std::string> keys;  // as output: keys that are not UTF-8 may become equal there
    for (const Field& field : entity_.Reading().fields) {
      const bool isNew = keys.insert(CompactText(DocumentKey(*field.attribute))).second;
      if (!isNew || (IsAlertOrFault(*field.attribute) && field.bitsInLonger.IsEmpty())) return false;
    }
    return entity_.Info().name != "version";
  }

  // The values by name, of a packet that was decoded to its end.
  static std::string ListText(const KeyedFields& fields, const Bytes& packet) {
    std::string text = "{";
    const byte* payload = packet.data() + 1;
    for (const auto& [key, field] : fields) {
      const BitRange& bits = field->bitsInLonger;
      if (bits.EndByte() > packet.size() - 1) continue;
      const bool isNumeric = !IsBinary(*field->attribute);
      const Result result{MorvixProtocolOutcomeDone_4_0, isNumeric ? RawValue(bits, payload) : 0};
      const std::string value = ValueText(*field, result, payload);
      if (value.empty()) continue;  // its scaling refuses the raw value
      const char* quote = IsBool(*field->attribute) ? "" : "\"";
      text += fmt::format("{}{}:{}{}{}", text.size() == 1 ? "" : ",", key, quote, value, quote);
    }
    return text + '}';
  }

  static std::string TextByName(const Json::Value& list) {
    Json::Value values(Json::objectValue);
    for (const Json::Value& item : list) values[item["name"].asString()] = item["value"];
    return CompactText(values);
  }

  static std::string ActiveText(const std::vector<TavelReceiveInfo>& active) {
    std::string text = "{";
    for (const TavelReceiveInfo& info : active) {
      text += fmt::format("{}{}:{}", text.size() == 1 ? "" : ",", CompactText(info.name), info.value);
    }
    return text + '}';
  }

  const EntityModel& entity_;
  const KeyedFields alerts_;
  const KeyedFields faults_;
  const bool isSeparable_;
  // Kept for their memory.
  std::string document_;
  std::vector<TavelReceiveInfo> activeAlerts_;
  std::vector<TavelReceiveInfo> activeFaults_;
};

// ---- table ----

class Table : public ResultForm {
 public:
  Table(const EntityModel& entity, bool color) : entity_(entity), color_(color) {}

  std::string ResultOf(const Bytes& packet, std::string& failure) override {
    const PacketReading reading = ReadPacket(entity_, packet);
    failure = FailureText(entity_, reading, packet);
    const std::set<std::string> active = ActiveKeys(packet);
    std::map<std::string, size_t> lastOfKey;
    for (const Field& field : entity_.Reading().fields) {
      if (IsTold(reading, field)) lastOfKey[DocumentKey(*field.attribute)] = field.flag;
    }
    std::vector<TableRow> rows = {HeadingRow({"NAME", "GROUP", "PLACE", "BITS", "VALUE", "NOTE"})};
    for (const Field& field : entity_.Reading().fields) {
      rows.push_back(RowOf(field, packet, reading, active, lastOfKey));
    }
    const bool isNotification = reading.command == MorvixProtocolCommandNotifyResp_4_0;
    return fmt::format("{}, {}, {} of payload\n\n{}", isNotification ? "notification" : "read response",
                       NameText(entity_.Info().name), Count(packet.size() - 1, "byte"), AlignedTable(rows, color_));
  }

 private:
  static constexpr size_t kBitsColumns = 47;  // 16 bytes
  static constexpr size_t kValueColumns = 48;

  // Whether the decoded document has this field's value: an unreadable bool or binary removes all values of the entity.
  static bool IsTold(const PacketReading& reading, const Field& field) {
    if (reading.results[field.flag].outcome != MorvixProtocolOutcomeDone_4_0) return false;
    return reading.culprit == nullptr || (IsEnum(*reading.culprit->attribute) && field.flag < reading.culprit->flag);
  }

  // Alerts and faults; within one entity their names are distinct.
  std::set<std::string> ActiveKeys(const Bytes& packet) const {
    const LogCapture silent;  // these lines have already been logged
    std::string document;
    std::vector<TavelReceiveInfo> active;
    static_cast<void>(ProtocolReceivePacket_4_0(entity_.Info(), entity_.Reading().records, packet.data(), packet.size(),
                                                document, active, active));
    std::set<std::string> keys;
    for (const TavelReceiveInfo& info : active) keys.insert(info.name);
    return keys;
  }

  TableRow RowOf(const Field& field, const Bytes& packet, const PacketReading& reading,
                 const std::set<std::string>& active, const std::map<std::string, size_t>& lastOfKey) const {
    const Attribute& attribute = *field.attribute;
    const byte* payload = packet.data() + 1;
    const bool isInside = field.bitsInLonger.EndByte() <= packet.size() - 1;
    const BitRange bits = isInside ? field.bitsInLonger : BitRange();
    const std::string value = ValueText(field, reading.results[field.flag], payload);
    std::string note = NoteOf(field, reading, lastOfKey);
    const bool isActive = IsAlertOrFault(attribute) && active.count(DocumentKey(attribute)) != 0;
    if (isActive) note += note.empty() ? "active" : ", active";
    return {{NameText(DocumentKey(attribute))},
            {GroupName(attribute.type), GroupColor(attribute.type)},
            {PlaceText(bits)},
            {Shortened(ContentText(bits, payload), kBitsColumns)},
            {Shortened(value, kValueColumns)},
            {note, isActive ? GroupColor(attribute.type) : ""}};
  }

  static std::string NoteOf(const Field& field, const PacketReading& reading,
                            const std::map<std::string, size_t>& lastOfKey) {
    const Attribute& attribute = *field.attribute;
    const Result& result = reading.results[field.flag];
    const std::string line = DecodeLine(attribute, result);
    if (!line.empty()) return "unreadable: " + line;
    if (result.outcome == MorvixProtocolOutcomeUnreadable_4_0) return "left out: not readable in this payload";
    if (result.outcome == MorvixProtocolOutcomeRefusedByScaling_4_0) {
      if (!IsScaled(attribute)) return "left out: its scaling takes no value; dp4 lint tells why";
      return fmt::format("left out: raw {}, expected {} to {}", result.raw, attribute.uint_spec.min,
                         attribute.uint_spec.max);
    }
    if (!IsTold(reading, field)) {
      return "not reported: " + NameText(DocumentKey(*reading.culprit->attribute)) + " is unreadable";
    }
    if (lastOfKey.at(DocumentKey(attribute)) != field.flag) {
      return "not reported: another attribute of this name follows";
    }
    return IsEnum(attribute) ? NameText(attribute.enumList.at(static_cast<size_t>(result.raw))) : "";
  }

  const EntityModel& entity_;
  const bool color_;
};

}  // namespace

std::unique_ptr<ResultForm> FlatForm(const EntityModel& entity) { return std::make_unique<Flat>(entity); }

std::unique_ptr<ResultForm> DecodedForm(const EntityModel& entity) { return std::make_unique<Decoded>(entity); }

std::unique_ptr<ResultForm> TableForm(const EntityModel& entity, bool color) {
  return std::make_unique<Table>(entity, color);
}

}  // namespace morvix::inspect
