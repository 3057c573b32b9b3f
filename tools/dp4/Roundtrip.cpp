#include "Roundtrip.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "EntityView.h"
#include "host/Base64.h"

namespace dp4 {

namespace {

enum Choice { kMinimum, kMaximum, kMiddle };

const char* NameOf(Choice choice) {
  return choice == kMinimum ? "minimum" : choice == kMaximum ? "maximum" : "middle value";
}

// A value of an attribute, in the form in which decoding shows it; null when the attribute can have none.
Json::Value NumberValue(const Attribute& number, Choice choice) {
  const auto min = static_cast<uint64_t>(number.uint_spec.min);
  const auto max = static_cast<uint64_t>(number.uint_spec.max);
  uint64_t raw = choice == kMinimum ? min : choice == kMaximum ? max : min + (max - min) / 2;
  Attribute alone = Keyed(number, "field");
  alone.position = Position();
  alone.position.len = 8;
  std::vector<byte> bytes(8);
  for (size_t i = 8; i-- > 0; raw >>= 8) bytes[i] = static_cast<byte>(raw);
  return DecodeFields({alone}, bytes).values["field"];
}

Json::Value BinaryValue(const Attribute& binary, Choice choice) {
  constexpr int32_t kLongest = 65535;
  std::vector<byte> bytes(static_cast<size_t>(std::clamp(binary.position.len, 0, kLongest)));
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = choice == kMinimum ? byte{0} : choice == kMaximum ? byte{255} : static_cast<byte>(i * 37 + 129);
  }
  std::string text(2 * bytes.size() + 9, '\0');
  return __internal_base64_encode(text.data(), static_cast<uint32_t>(text.size()), bytes.data(), bytes.size());
}

Json::Value ValueOf(const Attribute& attribute, Choice choice) {
  if (IsNumber(attribute)) return NumberValue(attribute, choice);
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) return BinaryValue(attribute, choice);
  if (attribute.data_type == MorvixProtocolDataTypeBool_4_0) return choice != kMinimum;
  const size_t count = attribute.enumList.size();
  if (count == 0) return Json::Value();
  return std::to_string(choice == kMinimum ? 0 : choice == kMaximum ? count - 1 : count / 2);
}

std::string Shown(const Json::Value& value) {
  if (value.isNull()) return "nothing";
  return value.isBool() ? (value.asBool() ? "true" : "false") : Quoted(value.asString());
}

// The check of one entity. Attributes are known by their index in the list of all.
class Roundtrip {
 public:
  Roundtrip(const LintEntity& entity, Findings& findings)
      : entity_(entity), findings_(findings), isBroken_(entity.all.size()) {}

  void Check() {
    for (const Choice choice : {kMinimum, kMaximum, kMiddle}) {
      for (size_t i = 0; i < entity_.all.size(); ++i) CheckAlone(i, choice);
    }
    // A longer payload has no packet.
    if (entity_.readLength == 0 || entity_.readLength > kMaxPayloadBytes) return;
    for (const Choice choice : {kMinimum, kMaximum, kMiddle}) {
      CheckWrite(choice);
      CheckResponse(choice);
    }
  }

 private:
  // How an attribute is written: as a writable one where it is one, else as a device would.
  const Attribute& Writer(size_t index) const {
    const Attribute* written = entity_.WriteRecord(static_cast<size_t>(entity_.all[index].id));
    if (written != nullptr) return *written;
    return entity_.all[index];
  }

  void Report(size_t index, const std::string& how, Choice choice, const Json::Value& value,
              const std::string& result) {
    if (isBroken_[index]) return;
    isBroken_[index] = true;
    const Attribute& attribute = entity_.all[index];
    findings_.Add(
        RuleId::kRoundtrip, entity_.At(attribute),
        "the " + std::string(NameOf(choice)) + " of " + entity_.Label(attribute) + " does not come back" + how,
        Shown(value) + " " + result, "see the other findings of this attribute and of its neighbours");
  }

  // The module's refusal, or what it decodes instead of the value.
  static std::string Result(const Decoded& decoded, const Json::Value& back) {
    if (!back.isNull()) return "is decoded as " + Shown(back);
    return decoded.refusal.empty() ? "is not decoded" : "is decoded with \"" + decoded.refusal + "\"";
  }

  void CheckAlone(size_t index, Choice choice) {
    const Attribute& reader = entity_.all[index];
    const Json::Value value = ValueOf(reader, choice);
    if (value.isNull()) return Report(index, "", choice, value, "can be sent: its scaling or items refuse everything");
    const Window window = WindowOn({Writer(index), reader}, entity_.readLength);
    Json::Value values;
    values["field"] = value;
    const Encoded encoded = EncodeFields({Keyed(window.fields[0], "field")}, values, window.length);
    if (encoded.payload.empty()) return Report(index, "", choice, value, "is refused with \"" + encoded.refusal + "\"");
    const Decoded decoded = DecodeFields({Keyed(window.fields[1], "field")}, encoded.payload);
    const Json::Value& back = decoded.values["field"];
    if (back != value) Report(index, "", choice, value, Result(decoded, back));
  }

  // The attributes that come back alone, each under its index.
  std::vector<Attribute> Whole(bool onlyWritable, bool asWritten) const {
    std::vector<Attribute> whole;
    for (size_t i = 0; i < entity_.all.size(); ++i) {
      const bool isWritable = entity_.all[i].type == MorvixProtocolTypeStatusWritable_4_0;
      if (isBroken_[i] || (onlyWritable && !isWritable)) continue;
      whole.push_back(Keyed(asWritten ? Writer(i) : entity_.all[i], std::to_string(i)));
    }
    return whole;
  }

  static size_t IndexOf(const Attribute& keyed) { return std::stoul(keyed.name); }

  void Compare(const std::vector<Attribute>& readers, const std::vector<byte>& payload, const std::string& how,
               Choice choice) {
    const Decoded decoded = DecodeFields(readers, payload);
    for (const Attribute& reader : readers) {
      const Json::Value value = ValueOf(reader, choice);
      const Json::Value& back = decoded.values[reader.name];
      if (back != value) Report(IndexOf(reader), how, choice, value, Result(decoded, back));
    }
  }

  // All writable attributes in one write, in the order of the list.
  void CheckWrite(Choice choice) {
    const std::vector<Attribute> writers = Whole(true, true);
    if (writers.empty()) return;
    Json::Value values;
    for (const Attribute& writer : writers) values[writer.name] = ValueOf(writer, choice);
    const Encoded encoded = EncodeFields(writers, values, entity_.readLength);
    if (encoded.payload.empty()) return;  // each of them was accepted alone
    Compare(Whole(true, false), encoded.payload, " from a write of all attributes", choice);
  }

  // A device sets the bits of every attribute, which the module writes one by one.
  void CheckResponse(Choice choice) {
    const std::vector<Attribute> fields = Whole(false, false);
    if (fields.empty()) return;
    std::vector<byte> payload(entity_.readLength);
    for (const Attribute& field : fields) {
      const Window window = WindowOn({field}, entity_.readLength);
      Json::Value values;
      values[field.name] = ValueOf(field, choice);
      const Encoded encoded = EncodeFields({window.fields[0]}, values, window.length);
      for (size_t i = 0; i < encoded.payload.size() && window.shift + i < payload.size(); ++i) {
        payload[window.shift + i] = static_cast<byte>(payload[window.shift + i] | encoded.payload[i]);
      }
    }
    Compare(fields, Received(payload), " from a response with all attributes", choice);
  }

  // What is left of a payload once it came in a packet.
  static std::vector<byte> Received(const std::vector<byte>& payload) {
    std::vector<byte> packet = {MorvixProtocolCommandNotifyResp_4_0};
    packet.insert(packet.end(), payload.begin(), payload.end());
    OwnedPackage package;
    return ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package) ? package.Payload() : std::vector<byte>();
  }

  const LintEntity& entity_;
  Findings& findings_;
  std::vector<bool> isBroken_;
};

}  // namespace

void LintRoundtrip(const LintEntity& entity, Findings& findings) { Roundtrip(entity, findings).Check(); }

}  // namespace dp4
