#include "inspect/packets/Encoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <map>
#include <new>
#include <utility>

#include "host/Base64.h"
#include "host/Logging.h"
#include "inspect/json/Document.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

const char kFlagKey[] = "FLAG is the attribute's bit in the flag bitmap. ";
const char kPlaceKey[] = "PLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n";
constexpr size_t kValueColumns = 32;
constexpr size_t kBitsColumns = 47;  // 16 bytes

bool IsDone(const EncodedValue& value) { return value.result.outcome == MorvixProtocolOutcomeDone_4_0; }

bool IsRefused(const EncodedValue& value) { return !EncodeLine(*value.field->attribute, value.result).empty(); }

// Encodes a part of the values, in a payload of the same length as that of all. The module makes a write; in what a
// device sends, every value stands where decoding reads it, which writing does not do in every bit group.
class PartialEncoder {
 public:
  PartialEncoder(const EntityModel& entity, const Direction& direction, const GivenValues& values)
      : info_(entity.Info()),
        direction_(direction),
        isWrite_(&direction == &entity.Writing()),
        values_(values),
        first_(direction.records) {
    const Json::Value* given = values.Document().find(info_.name.data(), info_.name.data() + info_.name.size());
    while (given != nullptr && given->isMember(unused_.name)) unused_.name += '-';
    unused_.data_type = MorvixProtocolDataTypeBinary_4_0;
    unused_.position.len = static_cast<int32_t>(direction.payloadBytes);
  }

  // The payload with one value, and the result of encoding it.
  Bytes EncodeAlone(size_t index, Result& result) const {
    Bytes written = Write(index, result);
    if (isWrite_ || result.outcome != MorvixProtocolOutcomeDone_4_0) return written;
    Bytes payload(direction_.payloadBytes);
    Place(direction_.fields[index], result, written, payload);
    return payload;
  }

  // The payload with the values of the first `count` attributes.
  Bytes EncodeFirst(size_t count) {
    if (!isWrite_) return PlaceFirst(count);
    for (size_t i = 0; i < first_.size(); ++i) first_[i].name = i < count ? direction_.records[i].name : unused_.name;
    std::vector<Result> results;
    return Encode(first_, results);
  }

 private:
  Bytes Encode(const std::vector<Attribute>& records, std::vector<Result>& results) const {
    const LogCapture silent;
    MorvixProtocolOwnedPackage_4_0 package;
    ProtocolEncodeAttributes_4_0(info_, records, package, values_.Document(), results);
    return {package.value, package.value + package.sizeValue};
  }

  // What the module writes of one value, and its result.
  Bytes Write(size_t index, Result& result) const {
    Attribute record = direction_.records[index];
    record.name = values_.KeyOf(direction_.records[index]);
    std::vector<Result> results;
    Bytes written = Encode({std::move(record), unused_}, results);
    result = results[0];
    return written;
  }

  // The bytes of a binary are taken from what the module wrote of it alone.
  static void Place(const Field& field, const Result& result, const Bytes& written, Bytes& payload) {
    const BitRange& bits = field.bits;
    if (IsBinary(*field.attribute)) {
      std::copy(written.data() + bits.FirstByte(), written.data() + bits.EndByte(), payload.data() + bits.FirstByte());
      return;
    }
    uint64_t raw = result.raw;
    for (uint64_t bit = bits.end; bit > bits.begin; raw >>= 1) {
      --bit;
      byte& place = payload[static_cast<size_t>(bit / 8)];
      const auto mask = static_cast<byte>(0x80 >> bit % 8);
      place = static_cast<byte>((place & ~mask) | ((raw & 1) != 0 ? mask : 0));
    }
  }

  Bytes PlaceFirst(size_t count) const {
    Bytes payload(direction_.payloadBytes);
    for (size_t i = 0; i < count; ++i) {
      Result result;
      const Bytes written = Write(i, result);
      if (result.outcome == MorvixProtocolOutcomeDone_4_0) Place(direction_.fields[i], result, written, payload);
    }
    return payload;
  }

  const MorvixProtocolEntity_4_0& info_;
  const Direction& direction_;
  const bool isWrite_;
  const GivenValues& values_;
  std::vector<Attribute> first_;
  Attribute unused_;  // as long as the payload, and never given a value
};

// For a value of a kind that the data type does not accept.
std::string KindsTaken(const Attribute& attribute) {
  if (IsBool(attribute)) return "a bool takes an integer of 32 bits, true, false or decimal text";
  if (IsEnum(attribute)) return "an enum takes an item or its index";
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

// The module silently ignores what follows an integer in a string. It accepts any number of blanks before it.
void NotePartlyRead(const std::string& text, EncodedValue& value) {
  const char* begin = text.c_str();
  char* end = nullptr;
  static_cast<void>(std::strtoull(begin, &end, 10));
  const auto length = static_cast<size_t>(end - begin);
  if (length == text.size() && length != 0) return;
  value.isAltered = true;
  Add(value.note, length == 0
                      ? "no number: expected decimal digits, 0 is sent"
                      : "read in part: expected decimal digits, only " + InQuotes(text.substr(0, length)) + " is sent");
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

// What a device sends has bits for every attribute; a number's can be none that it would send.
void NoteUnset(const EntityModel& entity, const MorvixProtocolOwnedPackage_4_0& package, EncodedValue& value) {
  const Attribute& attribute = *value.field->attribute;
  const byte* payload = package.value;
  if (value.field->bits.IsEmpty()) {
    const Result result = DecodeSilently(entity, {attribute}, payload, package.sizeValue)[0];
    value.isInvalid = !DecodeLine(attribute, result).empty();
    if (value.isInvalid) value.note = "no place: decoding ends there";
    return;
  }
  if (!IsNumber(attribute) && !IsEnum(attribute)) return;
  const uint64_t raw = RawValue(value.field->bits, payload);
  value.isInvalid = IsEnum(attribute) ? raw >= attribute.enumList.size() : UserText(attribute, raw).empty();
  if (value.isInvalid) {
    const size_t items = attribute.enumList.size();
    const std::string expected = !IsEnum(attribute) ? ExpectedText(attribute, value.result)
                                 : items == 0       ? "it has no items"
                                                    : fmt::format("expected 0 to {}", items - 1);
    value.note = fmt::format("no value: raw {} is sent ({})", raw, expected);
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

const Direction& DirectionOf(const EntityModel& entity, MorvixProtocolCommand_4_0 command) {
  return IsWriteCommand(command) ? entity.Writing() : entity.Reading();
}

Encoding::Encoding(const EntityModel& entity, std::string entityText, const GivenValues& values,
                   MorvixProtocolOwnedPackage_4_0 package, bool isLenient)
    : entity_(entity),
      direction_(DirectionOf(entity, package.cmd)),
      entityText_(std::move(entityText)),
      areValuesTold_(!values.Problems().empty()),
      package_(std::move(package)) {
  const size_t payloadBytes = direction_.payloadBytes;
  if (payloadBytes > MorvixProtocolMaxPayloadBytes_4_0 ||
      (IsWrite() && FlagBytes(direction_) > MorvixProtocolMaxFlagBytes_4_0)) {
    throw InputError(fmt::format("{} takes {} of payload for its {}{} attributes, more than a packet can hold",
                                 entityText_, Count(payloadBytes, "byte"), direction_.records.size(),
                                 IsWrite() ? " writable" : ""));
  }
  const PartialEncoder single(entity, direction_, values);
  for (const Field& field : direction_.fields) {
    const Attribute& attribute = *field.attribute;
    values_.push_back({&field, {}, {}, false, "left out: no value"});
    if (values.Of(attribute) == nullptr) continue;
    EncodedValue& value = values_.back();
    value.given = values.SourceOf(attribute);
    single.EncodeAlone(field.flag, value.result);
    if (!IsWrite() && IsDone(value) && field.bits.IsEmpty()) {
      value.result.outcome = MorvixProtocolOutcomeRefusedByPlace_4_0;
    }
    value.note = IsDone(value) ? "" : "left out: " + KindsTaken(attribute);
    if (IsRefused(value)) {
      value.note =
          fmt::format("refused: {} ({})", EncodeLine(attribute, value.result), ExpectedText(attribute, value.result));
    }
  }
  const bool isAnyRefused = std::any_of(values_.begin(), values_.end(), IsRefused);
  if (!isLenient || !isAnyRefused) {
    Make(values, !isAnyRefused);
    return;
  }
  GivenValues taken = values;
  for (const EncodedValue& value : values_) {
    if (IsRefused(value)) taken.Remove(*value.field->attribute);
  }
  Make(taken, true);
}

// The packet; where some are refused, the module's lines alone, since it makes none.
void Encoding::Make(const GivenValues& values, bool areTaken) {
  if (IsWrite()) {
    ProtocolEncodeAttributes_4_0(entity_.Info(), direction_.records, package_, values.Document());
  } else if (areTaken && std::any_of(values_.begin(), values_.end(), IsDone)) {
    const Bytes payload = PartialEncoder(entity_, direction_, values).EncodeFirst(values_.size());
    package_.value = static_cast<byte*>(std::malloc(payload.size()));
    if (package_.value == nullptr) throw std::bad_alloc();
    package_.sizeValue = payload.size();
    std::copy(payload.begin(), payload.end(), package_.value);
  }
  if (HasPacket()) NoteWritten(values);
}

// The module packs requests only; what a device sends is its command and the payload.
Bytes Encoding::Packet() const {
  if (IsWrite()) return PackPackage(package_);
  Bytes packet = {static_cast<byte>(package_.cmd)};
  packet.insert(packet.end(), package_.value, package_.value + package_.sizeValue);
  return packet;
}

// Writing one attribute can change the bits of another.
void Encoding::NoteWritten(const GivenValues& values) {
  PartialEncoder encoder(entity_, direction_, values);
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
    if (!IsWrite() && value.result.outcome == MorvixProtocolOutcomeNotReached_4_0) {
      NoteUnset(entity_, package_, value);
    }
    if (!IsDone(value)) continue;
    if (value.field->bits.IsEmpty() && !IsBinary(attribute)) {
      value.isAltered = true;
      value.note = "lost: it has no place";
      continue;
    }
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
    if (given.isString() && IsBitPacked(attribute)) NotePartlyRead(given.asString(), value);
  }
}

std::vector<std::string> Encoding::Problems() const {
  std::vector<std::string> problems;
  for (const EncodedValue& value : values_) {
    const bool isLeftOut = value.result.outcome == MorvixProtocolOutcomeWrongKind_4_0;
    if (!isLeftOut && !value.isAltered && !IsRefused(value)) continue;
    const std::string& source = value.given.source;
    problems.push_back(fmt::format("{}{}{} {}", source, source.empty() ? "" : ": ",
                                   InQuotes(value.field->attribute->name), value.note));
  }
  if (HasPacket() || areValuesTold_ || !problems.empty()) return problems;
  const std::string reason = direction_.payloadBytes == 0 ? "No data will encode."
                                                          : std::string("no value to encode for it; expected one of ") +
                                                                (IsWrite() ? "a writable" : "an") + " attribute";
  return {entityText_ + ": " + reason};
}

std::vector<std::string> Encoding::Warnings() const {
  std::vector<std::string> warnings;
  for (const EncodedValue& value : values_) {
    if (value.isInvalid) warnings.push_back(InQuotes(value.field->attribute->name) + " has " + value.note);
  }
  return warnings;
}

std::string Encoding::PartsText() const {
  const Bytes packet = Packet();
  const size_t flagBytes = IsWrite() ? package_.sizeFlags : 0;
  const size_t subDidBytes = packet.size() - 1 - flagBytes - package_.sizeValue;
  return PartText("command", packet.data(), 1) + PartText("sub-device", packet.data() + 1, subDidBytes) +
         PartText("flags", package_.flags, flagBytes) + PartText("payload", package_.value, package_.sizeValue);
}

std::string Encoding::TableText(bool isSent, bool color) const {
  TableRow heading = HeadingRow({"FLAG", "NAME", "VALUE", "PLACE", "BITS", "NOTE"});
  if (!IsWrite()) heading.erase(heading.begin());
  std::vector<TableRow> rows = {heading};
  for (const EncodedValue& value : values_) {
    const BitRange& bits = value.field->bits;
    const bool isWritten = IsDone(value);
    TableRow row = {{NameText(value.field->attribute->name)},
                    {Shortened(Escaped(value.given.text), kValueColumns)},
                    {PlaceText(bits)},
                    {isWritten && isSent ? Shortened(ContentText(bits, package_.value), kBitsColumns) : ""},
                    {isWritten && !isSent && !value.isAltered ? "not sent" : value.note}};
    if (IsWrite()) {
      std::string flag = std::to_string(value.field->flag);
      if (isSent) flag += BitAt(package_.flags, FlagBit(direction_, value.field->flag)) ? " = 1" : " = 0";
      row.insert(row.begin(), {flag});
    }
    rows.push_back(std::move(row));
  }
  return AlignedTable(rows, color) + '\n' + (IsWrite() ? kFlagKey : "") + kPlaceKey;
}

std::string Encoding::JsonText(bool isSent, const std::vector<std::string>& problems) const {
  const auto quoted = [](const std::string& text) {
    std::string json;
    json::AppendString(text, json);
    return json;
  };
  std::string text = fmt::format("{{\"command\":{}", static_cast<int>(package_.cmd));
  if (package_.needInsertSubDid != 0) text += fmt::format(",\"subDevice\":{}", package_.subDid);
  if (isSent) {
    const Bytes packet = Packet();
    text += fmt::format(",\"packet\":\"{}\"", HexText(packet.data(), packet.size()));
    if (IsWrite()) text += fmt::format(",\"flags\":\"{}\"", HexText(package_.flags, package_.sizeFlags));
    text += fmt::format(",\"payload\":\"{}\"", HexText(package_.value, package_.sizeValue));
  }
  text += ",\"attributes\":[";
  for (const EncodedValue& value : values_) {
    const BitRange& bits = value.field->bits;
    if (&value != values_.data()) text += ',';
    text += "{\"name\":" + quoted(value.field->attribute->name);
    if (IsWrite()) text += fmt::format(",\"flag\":{}", value.field->flag);
    if (!value.given.source.empty()) text += ",\"value\":" + quoted(value.given.text);
    if (!bits.IsEmpty()) {
      text += fmt::format(R"(,"place":{{"firstBit":{},"bits":{}}})", bits.begin, bits.Length());
    }
    if (IsDone(value) && isSent) {
      if (!IsBinary(*value.field->attribute)) text += fmt::format(",\"raw\":{}", RawValue(bits, package_.value));
      text += ",\"bits\":" + quoted(ContentText(bits, package_.value));
    }
    if (!value.note.empty()) text += ",\"note\":" + quoted(value.note);
    text += '}';
  }
  text += "],\"problems\":[";
  for (const std::string& problem : problems) text += (&problem == problems.data() ? "" : ",") + quoted(problem);
  return text + "]}\n";
}

}  // namespace morvix::inspect
