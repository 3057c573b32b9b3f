// Values that a round trip changes: the limits and a middle value of every attribute, alone and all together.

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>

#include "host/Logging.h"
#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/packets/Packet.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

enum Choice { kMinimum, kMaximum, kMiddle };
constexpr Choice kAllChoices[] = {kMinimum, kMaximum, kMiddle};
constexpr const char* kNames[] = {"minimum", "maximum", "middle value"};

uint64_t Chosen(uint64_t min, uint64_t max, Choice choice) {
  return choice == kMinimum ? min : choice == kMaximum ? max : min + (max - min) / 2;
}

// A value of an attribute.
struct Value {
  std::string text;  // as decoded; empty when no value is possible
  uint64_t raw = 0;
  Bytes bytes;  // of a binary
};

Value ValueOf(const Attribute& attribute, Choice choice) {
  if (IsBinary(attribute)) {
    constexpr auto kLongest = static_cast<int32_t>(MorvixProtocolMaxBinaryBytes_4_0);
    Value value;
    value.bytes.resize(static_cast<size_t>(std::clamp(attribute.position.len, 0, kLongest)));
    for (size_t i = 0; i < value.bytes.size(); ++i) {
      value.bytes[i] = choice == kMinimum ? byte{0} : choice == kMaximum ? byte{255} : static_cast<byte>(i * 37 + 129);
    }
    value.text = Base64Text(value.bytes.data(), value.bytes.size());
    return value;
  }
  if (IsBool(attribute)) return {choice == kMinimum ? "false" : "true", choice == kMinimum ? 0U : 1U, {}};
  if (IsEnum(attribute)) {
    const uint64_t count = attribute.enumList.size();
    if (count == 0) return {};
    const uint64_t index = choice == kMiddle ? count / 2 : Chosen(0, count - 1, choice);
    return {std::to_string(index), index, {}};
  }
  const Scaling& scaling = attribute.uint_spec;
  const uint64_t raw = Chosen(static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max), choice);
  return {UserText(attribute, raw), raw, {}};
}

// Sets the bits of a field that are set in a value.
void Put(const BitRange& bits, const Value& value, Bytes& payload) {
  for (size_t i = 0; i < value.bytes.size() && !bits.IsEmpty(); ++i) {
    byte& target = payload[bits.FirstByte() + i];
    target = static_cast<byte>(target | value.bytes[i]);
  }
  uint64_t raw = value.raw;
  for (uint64_t bit = bits.end; raw != 0 && bit-- > bits.begin; raw >>= 1) {
    byte& target = payload[static_cast<size_t>(bit / 8)];
    target = static_cast<byte>(target | (raw & 1) << (7 - bit % 8));
  }
}

std::string Shown(const Attribute& attribute, const std::string& text) {
  if (text.empty() && !IsBinary(attribute)) return "nothing";
  return IsBool(attribute) ? text : Quoted(text);
}

// An attribute in both directions; a field is null when that direction drops the attribute.
struct Subject {
  size_t element;
  const Field* written;
  const Field* read;

  const Attribute& Either() const { return *(read == nullptr ? written : read)->attribute; }
  bool IsWritable() const { return inspect::IsWritable(Either()); }
  // In the direction in which its value travels.
  const Field& Sender() const { return *(read == nullptr || IsWritable() ? written : read); }
};

// Indexes of the attributes whose value the module accepts on its own: those that can be encoded, and those of them
// that can then be decoded, to the same value or another.
struct Passed {
  std::vector<size_t> sent;
  std::vector<size_t> decoded;
};

// The result of decoding.
struct Answer {
  std::string text;  // empty for nothing
  std::string line;  // the log line with which decoding ended
};

// The check of one entity.
class Roundtrip {
 public:
  Roundtrip(const EntityModel& entity, Findings& findings)
      : entity_(entity), findings_(findings), readBytes_(entity.Reading().payloadBytes) {
    for (const Field* field : entity.Fields()) {
      subjects_.push_back({field->element, entity.Written(field->element), entity.Read(field->element)});
    }
  }

  void Check() {
    // A longer payload has no packet.
    const size_t longest = std::max(readBytes_, entity_.Writing().payloadBytes);
    payload_.resize(std::min(longest, MorvixProtocolMaxPayloadBytes_4_0));
    Passed passed[std::size(kAllChoices)];
    for (const Choice choice : kAllChoices) {
      for (size_t i = 0; i < subjects_.size(); ++i) CheckAlone(i, choice, passed[choice]);
    }
    if (readBytes_ == 0 || longest > MorvixProtocolMaxPayloadBytes_4_0) return;
    for (const Choice choice : kAllChoices) CheckWrite(passed[choice], choice);
    for (const Choice choice : kAllChoices) CheckResponse(passed[choice], choice);
  }

 private:
  void Report(const Subject& subject, const char* how, Choice choice, const std::string& result) {
    const Attribute& attribute = subject.Either();
    findings_.AddOnce(
        rules::kRoundtrip, entity_.At(subject.element),
        fmt::format("the {} of {} does not come back{}", kNames[choice], entity_.Label(subject.element), how),
        fmt::format("{} {}", Shown(attribute, ValueOf(attribute, choice).text), result),
        "see the other findings of this attribute and of its neighbours");
  }

  static std::string ResultText(const Attribute& attribute, const Answer& answer) {
    if (!answer.text.empty()) return "is decoded as " + Shown(attribute, answer.text);
    return answer.line.empty() ? "is not decoded" : "is decoded with \"" + answer.line + "\"";
  }

  // Decodes these fields, in their order.
  std::vector<Answer> Decode(const std::vector<const Field*>& fields, const Bytes& payload) const {
    std::vector<Attribute> records;
    records.reserve(fields.size());
    for (const Field* field : fields) records.push_back(*field->attribute);
    const std::vector<Result> results =
        DecodeSilently(entity_, records, payload.data(), std::min(payload.size(), readBytes_));
    std::vector<Answer> answers;
    for (size_t i = 0; i < fields.size(); ++i) {
      answers.push_back({ValueText(*fields[i], results[i], payload.data()), DecodeLine(records[i], results[i])});
    }
    return answers;
  }

  // Sets the raw value that a device sends or a write carries; returns the line with which encoding refuses, or empty.
  static std::string Send(const Subject& subject, Value& value) {
    const Field& sender = subject.Sender();
    const Attribute& attribute = *sender.attribute;
    Result result{MorvixProtocolOutcomeDone_4_0, value.raw};
    if (subject.IsWritable() && IsNumber(attribute) &&
        !ProtocolValueToRaw_4_0(attribute, std::strtod(value.text.c_str(), nullptr), value.raw)) {
      result.outcome = MorvixProtocolOutcomeRefusedByScaling_4_0;
    } else if (sender.bits.IsEmpty() && !(IsBool(attribute) && attribute.position.bit_offset == -1)) {
      result.outcome = MorvixProtocolOutcomeRefusedByPlace_4_0;
    }
    return EncodeLine(attribute, result);
  }

  void CheckAlone(size_t index, Choice choice, Passed& passed) {
    const Subject& subject = subjects_[index];
    const Attribute& attribute = subject.Either();
    Value value = ValueOf(attribute, choice);
    const auto report = [&](const std::string& result) { Report(subject, "", choice, result); };
    if (value.text.empty() && !IsBinary(attribute)) {
      return report("can be sent: its scaling or items refuse everything");
    }
    if (subject.IsWritable() && subject.written == nullptr) {
      return report("is not encoded: encoding drops the attribute");
    }
    const std::string line = Send(subject, value);
    if (!line.empty()) return report("is refused with \"" + line + "\"");
    passed.sent.push_back(index);
    if (subject.read == nullptr) return report("is not decoded: decoding drops the attribute");
    const BitRange& bits = (subject.IsWritable() ? subject.written : subject.read)->bits;
    if (bits.EndByte() > payload_.size()) return;  // no packet reaches that far
    Put(bits, value, payload_);
    const Answer answer = Decode({subject.read}, payload_)[0];
    std::fill(payload_.begin() + static_cast<ptrdiff_t>(bits.FirstByte()),
              payload_.begin() + static_cast<ptrdiff_t>(bits.EndByte()), byte{0});
    if (answer.line.empty()) passed.decoded.push_back(index);
    if (answer.text != value.text) report(ResultText(attribute, answer));
  }

  // Writes all writable attributes at once, in the order of the list. Attributes that end a decode are left out.
  void CheckWrite(const Passed& passed, Choice choice) {
    std::vector<Attribute> writers = entity_.Writing().records;
    for (size_t i = 0; i < writers.size(); ++i) writers[i].name = std::to_string(i);  // unique, even if names repeat
    const auto isWritten = [this](size_t index) { return subjects_[index].IsWritable(); };
    Json::Value document;
    for (const size_t index : passed.sent) {
      if (!isWritten(index)) continue;
      const Subject& subject = subjects_[index];
      const Value value = ValueOf(subject.Either(), choice);
      document[entity_.Info().name][writers[subject.written->flag].name] =
          IsBool(subject.Either()) ? std::to_string(value.raw) : value.text;
    }
    std::vector<size_t> indexes;
    std::copy_if(passed.decoded.begin(), passed.decoded.end(), std::back_inserter(indexes), isWritten);
    if (indexes.empty()) return;
    MorvixProtocolOwnedPackage_4_0 package;
    {
      const LogCapture silent;
      ProtocolEncodeAttributes_4_0(entity_.Info(), writers, package, document);
    }
    Bytes payload(package.value, package.value + package.sizeValue);
    payload.resize(readBytes_);
    Compare(indexes, payload, " from a write of all attributes", choice, false);
  }

  // A response in which the device sets the bits of every attribute.
  void CheckResponse(const Passed& passed, Choice choice) {
    Bytes payload(readBytes_);
    for (const size_t index : passed.decoded) {
      Value value = ValueOf(subjects_[index].Either(), choice);
      static_cast<void>(Send(subjects_[index], value));
      Put(subjects_[index].read->bits, value, payload);
    }
    Compare(passed.decoded, payload, " from a response with all attributes", choice, true);
  }

  void Compare(const std::vector<size_t>& indexes, const Bytes& payload, const char* how, Choice choice,
               bool hasRealNames) {
    std::vector<const Field*> fields;
    fields.reserve(indexes.size());
    for (const size_t index : indexes) fields.push_back(subjects_[index].read);
    const std::vector<Answer> answers = Decode(fields, payload);
    std::map<std::string, size_t> holders;  // the last of each key
    for (size_t i = 0; i < fields.size(); ++i) {
      if (!answers[i].text.empty() && hasRealNames) holders[DocumentKey(*fields[i]->attribute)] = indexes[i];
    }
    for (size_t i = 0; i < fields.size(); ++i) {
      const Subject& subject = subjects_[indexes[i]];
      const auto holder = holders.find(DocumentKey(*fields[i]->attribute));
      if (holder != holders.end() && holder->second != indexes[i]) {
        Report(subject, how, choice, "is replaced by the later " + entity_.Label(subjects_[holder->second].element));
      } else if (answers[i].text != ValueOf(*fields[i]->attribute, choice).text) {
        Report(subject, how, choice, ResultText(*fields[i]->attribute, answers[i]));
      }
    }
  }

  const EntityModel& entity_;
  Findings& findings_;
  const size_t readBytes_;
  std::vector<Subject> subjects_;
  Bytes payload_;  // of zeros, between uses
};

}  // namespace

void LintRoundtrip(const EntityModel& entity, Findings& findings) { Roundtrip(entity, findings).Check(); }

}  // namespace morvix::inspect
