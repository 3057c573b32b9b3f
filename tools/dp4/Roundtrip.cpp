#include "Roundtrip.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "EntityView.h"
#include "host/Base64.h"

namespace dp4 {

namespace {

enum Choice { kMinimum, kMaximum, kMiddle };

constexpr Choice kAllChoices[] = {kMinimum, kMaximum, kMiddle};

const char* NameOf(Choice choice) {
  return choice == kMinimum ? "minimum" : choice == kMaximum ? "maximum" : "middle value";
}

uint64_t RawValue(const Attribute& number, Choice choice) {
  const auto min = static_cast<uint64_t>(number.uint_spec.min);
  const auto max = static_cast<uint64_t>(number.uint_spec.max);
  return choice == kMinimum ? min : choice == kMaximum ? max : min + (max - min) / 2;
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

// A value of an attribute, in the form in which decoding shows it; null when the attribute can have none.
Json::Value ValueOf(const Attribute& attribute, Choice choice) {
  if (IsNumber(attribute)) {
    const std::string text = UserText(attribute, RawValue(attribute, choice));
    return text.empty() ? Json::Value() : Json::Value(text);
  }
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

// An attribute and the two forms in which the module knows it; one that is dropped on one of the ways has one form
// only.
struct Subject {
  size_t element;
  const Attribute* written;  // what encoding takes; of one that is not writable what decoding takes, as a device does
  const Attribute* read;

  const Attribute& Either() const { return read == nullptr ? *written : *read; }
  std::string Key() const { return std::to_string(element); }

  // A device sends raw numbers.
  bool IsSentRaw() const { return IsNumber(*written) && !IsWritable(*written); }
  Attribute Writer(const std::string& key) const {
    return IsSentRaw() ? OpenField(*written, key) : Keyed(*written, key);
  }
  Json::Value Sent(Choice choice) const {
    return IsSentRaw() ? Json::Value(Json::UInt64{RawValue(*written, choice)}) : ValueOf(Either(), choice);
  }
};

// How the module takes one value of an attribute alone.
struct Passage {
  bool isEncoded = false;
  bool isDecoded = false;  // as the value or as another one
};

// The check of one entity.
class Roundtrip {
 public:
  Roundtrip(const LintEntity& entity, Findings& findings) : entity_(entity), findings_(findings) {
    for (size_t i = 0; i < entity.elements.size(); ++i) {
      const Attribute* read = entity.ReadRecord(i);
      const Attribute* written = entity.WriteRecord(i);
      if (written == nullptr && read != nullptr && !IsWritable(*read)) written = read;
      if (read != nullptr || written != nullptr) subjects_.push_back({i, written, read});
    }
    isReported_.resize(subjects_.size());
  }

  void Check() {
    std::vector<Passage> alone[std::size(kAllChoices)];
    for (const Choice choice : kAllChoices) {
      for (size_t i = 0; i < subjects_.size(); ++i) alone[choice].push_back(CheckAlone(i, choice));
    }
    // A longer payload has no packet.
    if (entity_.readLength == 0 || std::max(entity_.readLength, entity_.writeLength) > kMaxPayloadBytes) return;
    for (const Choice choice : kAllChoices) CheckWrite(alone[choice], choice);
    for (const Choice choice : kAllChoices) CheckResponse(alone[choice], choice);
  }

 private:
  void Report(size_t index, const std::string& how, Choice choice, const Json::Value& value,
              const std::string& result) {
    if (isReported_[index]) return;
    isReported_[index] = true;
    const size_t element = subjects_[index].element;
    findings_.Add(RuleId::kRoundtrip, entity_.At(element),
                  "the " + std::string(NameOf(choice)) + " of " + entity_.Label(element) + " does not come back" + how,
                  Shown(value) + " " + result, "see the other findings of this attribute and of its neighbours");
  }

  // The module's refusal, or what it decodes instead of the value.
  static std::string Result(const Decoded& decoded, const Json::Value& back) {
    if (!back.isNull()) return "is decoded as " + Shown(back);
    return decoded.refusal.empty() ? "is not decoded" : "is decoded with \"" + decoded.refusal + "\"";
  }

  // The bytes of a payload that lie in the window, from one that lies in another; those around it are zeros.
  static std::vector<byte> Moved(const std::vector<byte>& payload, size_t from, const Window& window) {
    std::vector<byte> moved(window.length);
    for (size_t i = 0; i < payload.size(); ++i) {
      const size_t at = from + i - window.shift;  // a huge one for what lies before the window
      if (at < moved.size()) moved[at] = payload[i];
    }
    return moved;
  }

  Passage CheckAlone(size_t index, Choice choice) {
    const Subject& subject = subjects_[index];
    const Json::Value value = ValueOf(subject.Either(), choice);
    Passage passage;
    const auto report = [&](const std::string& result) {
      Report(index, "", choice, value, result);
      return passage;
    };
    if (value.isNull()) return report("can be sent: its scaling or items refuse everything");
    if (subject.written == nullptr) return report("is not encoded: encoding drops the attribute");
    const size_t sentLength = IsWritable(*subject.written) ? entity_.writeLength : entity_.readLength;
    const Window sent = WindowOn({subject.Writer("field")}, sentLength);
    Json::Value values;
    values["field"] = subject.Sent(choice);
    const Encoded encoded = EncodeFields({sent.fields[0]}, values, std::min(sent.length, sentLength));
    if (encoded.payload.empty()) return report("is refused with \"" + encoded.refusal + "\"");
    passage.isEncoded = true;
    if (subject.read == nullptr) return report("is not decoded: decoding drops the attribute");
    const Window received = WindowOn({*subject.read}, entity_.readLength);
    const Decoded decoded =
        DecodeFields({Keyed(received.fields[0], "field")}, Moved(encoded.payload, sent.shift, received));
    passage.isDecoded = decoded.refusal.empty();
    const Json::Value& back = decoded.values["field"];
    return back == value ? passage : report(Result(decoded, back));
  }

  // All writable attributes in one write, in the order of the list. What ends a decode alone is left out of that.
  void CheckWrite(const std::vector<Passage>& alone, Choice choice) {
    std::vector<size_t> indexes;
    std::vector<Attribute> writers;
    std::vector<Attribute> readers;
    Json::Value values;
    for (size_t i = 0; i < subjects_.size(); ++i) {
      const Subject& subject = subjects_[i];
      if (!alone[i].isEncoded || !IsWritable(*subject.written)) continue;
      writers.push_back(subject.Writer(subject.Key()));
      values[subject.Key()] = subject.Sent(choice);
      if (!alone[i].isDecoded) continue;
      indexes.push_back(i);
      readers.push_back(Keyed(*subject.read, subject.Key()));
    }
    if (readers.empty()) return;
    std::vector<byte> payload = EncodeFields(writers, values, entity_.writeLength).payload;
    payload.resize(entity_.readLength);
    Compare(indexes, readers, payload, " from a write of all attributes", choice);
  }

  // A device sets the bits of every attribute, which the module writes one by one.
  void CheckResponse(const std::vector<Passage>& alone, Choice choice) {
    std::vector<size_t> indexes;
    std::vector<Attribute> readers;
    std::vector<byte> payload(entity_.readLength);
    for (size_t i = 0; i < subjects_.size(); ++i) {
      const Subject& subject = subjects_[i];
      if (!alone[i].isDecoded) continue;
      indexes.push_back(i);
      readers.push_back(*subject.read);
      Attribute field = subject.Writer("field");
      field.position = subject.read->position;
      const Window window = WindowOn({field}, entity_.readLength);
      Json::Value values;
      values["field"] = subject.Sent(choice);
      const Encoded encoded = EncodeFields({window.fields[0]}, values, window.length);
      for (size_t k = 0; k < encoded.payload.size() && window.shift + k < payload.size(); ++k) {
        payload[window.shift + k] = static_cast<byte>(payload[window.shift + k] | encoded.payload[k]);
      }
    }
    if (readers.empty()) return;
    Compare(indexes, readers, Received(payload), " from a response with all attributes", choice);
  }

  void Compare(const std::vector<size_t>& indexes, const std::vector<Attribute>& readers,
               const std::vector<byte>& payload, const std::string& how, Choice choice) {
    const Decoded decoded = DecodeFields(readers, payload);
    std::map<std::string, size_t> holders;
    for (size_t i = 0; i < indexes.size(); ++i) holders[DecodedKey(readers[i])] = i;
    for (size_t i = 0; i < indexes.size(); ++i) {
      const std::string key = DecodedKey(readers[i]);
      const Json::Value value = ValueOf(subjects_[indexes[i]].Either(), choice);
      const Json::Value& back = decoded.values[key];
      if (holders[key] != i && !back.isNull()) {
        const std::string holder = entity_.Label(subjects_[indexes[holders[key]]].element);
        Report(indexes[i], how, choice, value, "is replaced by the later " + holder);
      } else if (back != value) {
        Report(indexes[i], how, choice, value, Result(decoded, back));
      }
    }
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
  std::vector<Subject> subjects_;
  std::vector<bool> isReported_;
};

}  // namespace

void LintRoundtrip(const LintEntity& entity, Findings& findings) { Roundtrip(entity, findings).Check(); }

}  // namespace dp4
