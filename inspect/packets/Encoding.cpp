#include "inspect/packets/Encoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>

#include "host/Base64.h"
#include "host/Logging.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

const char kTableKey[] =
    "\nFLAG is the attribute's bit in the flag bitmap. PLACE counts bytes of the payload, or byte.bit with bit 0 the "
    "lowest.\n";
constexpr size_t kValueColumns = 32;
constexpr size_t kBitsColumns = 47;  // 16 bytes

bool IsDone(const EncodedValue& value) { return value.result.outcome == MorvixProtocolOutcomeDone_4_0; }

bool IsRefused(const EncodedValue& value) { return !EncodeLine(*value.field->attribute, value.result).empty(); }

// Has the module encode some of the values, into a payload as long as with all of them.
class PartialEncoder {
 public:
  PartialEncoder(const EntityModel& entity, const Values& values)
      : info_(entity.Info()), all_(entity.Writing().records), document_(values.Document()), first_(all_) {
    const Json::Value* given = document_.find(info_.name.data(), info_.name.data() + info_.name.size());
    while (given != nullptr && given->isMember(unused_.name)) unused_.name += '-';
    unused_.data_type = MorvixProtocolDataTypeBinary_4_0;
    unused_.position.len = static_cast<int32_t>(entity.Writing().payloadBytes);
  }

  // The payload with one value, and the result of encoding it.
  Bytes EncodeAlone(size_t index, Result& result) const {
    std::vector<Result> results;
    Bytes payload = Encode({all_[index], unused_}, results);
    result = results[0];
    return payload;
  }

  // The payload with the values of the first `count` attributes.
  Bytes EncodeFirst(size_t count) {
    for (size_t i = 0; i < first_.size(); ++i) first_[i].name = i < count ? all_[i].name : unused_.name;
    std::vector<Result> results;
    return Encode(first_, results);
  }

 private:
  Bytes Encode(const std::vector<Attribute>& records, std::vector<Result>& results) const {
    const LogCapture silent;
    MorvixProtocolOwnedPackage_4_0 package;
    ProtocolEncodeAttributes_4_0(info_, records, package, document_, results);
    return {package.value, package.value + package.sizeValue};
  }

  const MorvixProtocolEntity_4_0& info_;
  const std::vector<Attribute>& all_;
  const Json::Value& document_;
  std::vector<Attribute> first_;
  Attribute unused_;  // as long as the payload, and never given a value
};

// For a value of a kind that the data type does not accept.
std::string KindsTaken(const Attribute& attribute) {
  if (IsBool(attribute)) return "a bool takes an integer of 32 bits, true, false or decimal text";
  if (IsEnum(attribute)) return "an enum takes an item's index, an integer of 32 bits or decimal text";
  if (IsBinary(attribute)) return "a binary takes base64 text in quotation marks";
  return fmt::format("a {} takes a number or the text of one", DataTypeName(attribute.data_type));
}

// For a value that the module refused.
std::string ExpectedText(const Attribute& attribute, const Result& result) {
  if (result.outcome == MorvixProtocolOutcomeRefusedByItems_4_0) return ExpectedIndex(attribute);
  if (result.outcome == MorvixProtocolOutcomeRefusedByPlace_4_0) {
    return "nothing can be written in its place; dp4 lint tells why";
  }
  const std::string least = MinText(attribute);
  const std::string most = MaxText(attribute);
  if (least.empty() || most.empty()) return "its scaling takes no value; dp4 lint tells why";
  // Six decimals can round the end of a range beyond it.
  uint64_t raw = 0;
  const bool isTaken = ProtocolValueToRaw_4_0(attribute, std::strtod(least.c_str(), nullptr), raw);
  const char* beyond = isTaken ? "" : attribute.uint_spec.ratio < 0 ? "less than " : "more than ";
  return fmt::format("expected {}{} to {}", beyond, least, most);
}

void Add(std::string& note, const std::string& more) { note += (note.empty() ? "" : ", ") + more; }

// The module silently ignores what follows a number in a string. It accepts any number of blanks before it.
void NotePartlyRead(const std::string& text, EncodedValue& value) {
  const char* begin = text.c_str();
  char* end = nullptr;
  bool isNumber = true;
  if (IsNumber(*value.field->attribute)) {
    isNumber = !std::isnan(std::strtod(begin, &end));
  } else {
    static_cast<void>(std::strtoull(begin, &end, 10));
  }
  const size_t length = isNumber ? static_cast<size_t>(end - begin) : 0;
  if (length == text.size() && length != 0) return;
  value.isAltered = true;
  Add(value.note, length == 0 ? "cut: nothing of it is a number"
                              : "cut: only " + InQuotes(text.substr(0, length)) + " is a number");
}

// " (45.5)" when the number in the packet differs from `given` in the first six decimals.
std::string RoundedText(const Attribute& number, const Json::Value& given, uint64_t raw) {
  const std::string text = UserText(number, raw);
  const double value = given.isString() ? std::strtod(given.asCString(), nullptr) : given.asDouble();
  const double difference = std::abs(std::strtod(text.c_str(), nullptr) - value);
  return difference < 1e-6 || difference <= 4e-16 * std::abs(value) ? "" : " (" + text + ")";
}

// `sent` is what the field holds.
void NoteNumber(const Json::Value& given, uint64_t sent, EncodedValue& value) {
  const Attribute& attribute = *value.field->attribute;
  value.isAltered = sent != value.result.raw;
  if (value.isAltered) {
    value.note = fmt::format("cut: raw {} does not fit, {} is sent", value.result.raw, sent);
  } else if (IsEnum(attribute)) {
    value.note = NameText(attribute.enumList.at(static_cast<size_t>(sent)));
  } else {
    value.note = fmt::format("raw {}{}", sent, RoundedText(attribute, given, sent));
  }
}

// The base64 decoder silently stops at an unknown character, and cuts data that is too long.
void NoteBinary(const std::string& text, EncodedValue& value) {
  Bytes bytes(text.size() + 1);
  const int decoded = __internal_base64_decode(bytes.data(), text.c_str(), static_cast<uint32_t>(bytes.size()));
  bytes.resize(static_cast<size_t>(std::max(decoded, 0)));
  std::string known = Base64Text(bytes.data(), bytes.size());
  std::string given = text;
  given.erase(std::remove_if(given.begin(), given.end(), IsBlank), given.end());
  for (std::string* base64 : {&known, &given}) base64->erase(base64->find_last_not_of('=') + 1);
  const uint64_t room = value.field->bits.Length() / 8;
  const std::string count = Count(bytes.size(), "byte");
  const auto areSent = [](uint64_t number) { return number == 1 ? "is sent" : "are sent"; };
  value.isAltered = given != known || bytes.size() > room;
  if (given != known) {
    value.note = fmt::format("cut: not all of it is base64, {} {}", count, areSent(bytes.size()));
  } else if (bytes.size() > room) {
    value.note = fmt::format("cut: it has {}, of which {} {}", count, room, areSent(room));
  } else if (bytes.size() < room) {
    value.note = count + ", filled up with zeros";
  }
}

// Bytes under their name, 16 a line.
std::string PartText(const char* name, const byte* data, size_t size) {
  constexpr size_t kBytesPerLine = 16;
  std::string text;
  for (size_t at = 0; at < size; at += kBytesPerLine) {
    text += fmt::format("{:<12}{}\n", at == 0 ? name : "", HexText(data + at, std::min(kBytesPerLine, size - at)));
  }
  return text;
}

}  // namespace

Encoding::Encoding(const EntityModel& entity, std::string entityText, const Values& values,
                   MorvixProtocolOwnedPackage_4_0 package)
    : entity_(entity), entityText_(std::move(entityText)), package_(std::move(package)) {
  const Direction& writing = entity.Writing();
  const size_t payloadBytes = writing.payloadBytes;
  if (payloadBytes > MorvixProtocolMaxPayloadBytes_4_0 || FlagBytes(writing) > MorvixProtocolMaxFlagBytes_4_0) {
    throw InputError(fmt::format("{} takes {} of payload for its {} writable attributes, more than a packet can hold",
                                 entityText_, Count(payloadBytes, "byte"), writing.records.size()));
  }
  ProtocolEncodeAttributes_4_0(entity.Info(), writing.records, package_, values.Document());
  const PartialEncoder encoder(entity, values);
  for (const Field& field : writing.fields) {
    const Attribute& attribute = *field.attribute;
    values_.push_back({&field, {}, {}, false, "left out: no value"});
    if (values.Of(attribute) == nullptr) continue;
    EncodedValue& value = values_.back();
    value.given = values.SourceOf(attribute);
    encoder.EncodeAlone(field.flag, value.result);
    value.note = IsDone(value) ? "" : "left out: " + KindsTaken(attribute);
    if (IsRefused(value)) {
      value.note =
          fmt::format("refused: {} ({})", EncodeLine(attribute, value.result), ExpectedText(attribute, value.result));
    }
  }
  if (HasPacket()) NoteWritten(values);
}

// Writing one attribute can change the bits of another.
void Encoding::NoteWritten(const Values& values) {
  PartialEncoder encoder(entity_, values);
  const auto contentOf = [this](size_t index, const byte* payload) {
    return ContentText(values_[index].field->bits, payload);
  };
  // For each attribute whose bits differ from what it would write alone: the first attribute whose writing changed
  // them, or the attribute itself when it kept bits of an earlier attribute and no later one changed them.
  std::map<size_t, size_t> overwriters;
  for (size_t i = 0; i < values_.size(); ++i) {
    if (!IsDone(values_[i])) continue;
    const Bytes alone = encoder.EncodeAlone(i, values_[i].result);
    if (contentOf(i, alone.data()) != contentOf(i, package_.value)) overwriters[i] = i;
  }
  std::map<size_t, std::string> whole;  // the content of attributes that are written and not yet changed
  for (size_t i = 0; i < values_.size() && !overwriters.empty(); ++i) {
    if (!IsDone(values_[i]) || (whole.empty() && overwriters.count(i) == 0)) continue;
    const Bytes now = encoder.EncodeFirst(i + 1);
    for (auto one = whole.begin(); one != whole.end();) {
      const bool isChanged = contentOf(one->first, now.data()) != one->second;
      if (isChanged) overwriters[one->first] = i;
      one = isChanged ? whole.erase(one) : std::next(one);
    }
    if (overwriters.count(i) != 0) whole[i] = contentOf(i, now.data());
  }

  for (size_t i = 0; i < values_.size(); ++i) {
    EncodedValue& value = values_[i];
    const Attribute& attribute = *value.field->attribute;
    if (!IsDone(value)) continue;
    const Json::Value& given = *values.Of(attribute);
    const Bytes alone = encoder.EncodeAlone(i, value.result);
    const auto overwriter = overwriters.find(i);
    const bool isAsAlone = overwriter == overwriters.end();
    const bool isMixed = !isAsAlone && overwriter->second == i;
    if (!isAsAlone && !isMixed) {
      value.note =
          fmt::format("overwritten: was {} until {} was written", Shortened(contentOf(i, alone.data()), kBitsColumns),
                      InQuotes(values_[overwriter->second].field->attribute->name));
    } else if (IsBinary(attribute)) {
      NoteBinary(given.asString(), value);
    } else if (isAsAlone && !IsBool(attribute)) {
      NoteNumber(given, RawValue(value.field->bits, alone.data()), value);
    }
    if (isMixed) {
      if (!value.isAltered) value.note.clear();
      Add(value.note, "mixed: what it does not set is an earlier value's");
    }
    value.isAltered = value.isAltered || !isAsAlone;
    if (given.isString() && !IsBinary(attribute)) NotePartlyRead(given.asString(), value);
  }
}

std::vector<std::string> Encoding::Problems() const {
  std::vector<std::string> problems;
  const EncodedValue* refused = nullptr;
  const auto textOf = [](const EncodedValue& value) {
    return fmt::format("{}: {} {}", value.given.source, InQuotes(value.field->attribute->name), value.note);
  };
  for (const EncodedValue& value : values_) {
    if (value.result.outcome == MorvixProtocolOutcomeWrongKind_4_0 || value.isAltered)
      problems.push_back(textOf(value));
    if (refused == nullptr && IsRefused(value)) refused = &value;
  }
  if (HasPacket()) return problems;
  const char* reason = entity_.Writing().payloadBytes == 0
                           ? "No data will encode."
                           : "no value to encode for it; expected one of a writable attribute";
  problems.push_back(refused != nullptr ? textOf(*refused) : entityText_ + ": " + reason);
  return problems;
}

std::string Encoding::PartsText() const {
  const Bytes packet = Packet();
  const size_t subDidBytes = packet.size() - 1 - package_.sizeFlags - package_.sizeValue;
  return PartText("command", packet.data(), 1) + PartText("sub-device", packet.data() + 1, subDidBytes) +
         PartText("flags", package_.flags, package_.sizeFlags) +
         PartText("payload", package_.value, package_.sizeValue);
}

std::string Encoding::TableText(bool isSent, bool color) const {
  std::vector<TableRow> rows = {HeadingRow({"FLAG", "NAME", "VALUE", "PLACE", "BITS", "NOTE"})};
  for (const EncodedValue& value : values_) {
    const BitRange& bits = value.field->bits;
    const bool isWritten = IsDone(value);
    std::string flag = std::to_string(value.field->flag);
    if (isSent) flag += BitAt(package_.flags, FlagBit(entity_.Writing(), value.field->flag)) ? " = 1" : " = 0";
    rows.push_back({{flag},
                    {NameText(value.field->attribute->name)},
                    {Shortened(Escaped(value.given.text), kValueColumns)},
                    {PlaceText(bits)},
                    {isWritten && isSent ? Shortened(ContentText(bits, package_.value), kBitsColumns) : ""},
                    {isWritten && !isSent && !value.isAltered ? "not sent" : value.note}});
  }
  return AlignedTable(rows, color) + kTableKey;
}

}  // namespace morvix::inspect
