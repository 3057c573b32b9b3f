#include "inspect/packets/Encoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
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

bool IsRefused(const Result& result) {
  return result.outcome == MorvixProtocolOutcomeRefusedByScaling_4_0 ||
         result.outcome == MorvixProtocolOutcomeRefusedByItems_4_0 ||
         result.outcome == MorvixProtocolOutcomeRefusedByPlace_4_0;
}

bool IsDone(const Result& result) { return result.outcome == MorvixProtocolOutcomeDone_4_0; }

// Lets the module encode a part of the values: an attribute without a value has a name that the document does not have.
class PartialEncoder {
 public:
  PartialEncoder(const EntityModel& entity, const Values& values)
      : info_(entity.Info()), names_(entity.Writing().records), records_(names_), document_(values.Document()) {
    const Json::Value* given = document_.find(info_.name.data(), info_.name.data() + info_.name.size());
    while (given != nullptr && given->isMember(absentName_)) absentName_ += '-';
  }

  // What becomes of each value on its own: an attribute whose value was refused is left out of the next attempt.
  std::vector<Result> Results() {
    std::vector<Result> all(records_.size());
    for (;;) {
      std::vector<Result> results;
      Encode(results);
      const auto refused = std::find_if(results.begin(), results.end(), IsRefused);
      for (size_t i = 0; i < results.size(); ++i) {
        if (!IsRefused(all[i])) all[i] = results[i];
      }
      if (refused == results.end()) return all;
      records_[static_cast<size_t>(refused - results.begin())].name = absentName_;
    }
  }

  // The payload with the values of the first `count` attributes.
  Bytes EncodeFirst(size_t count) {
    for (size_t i = 0; i < records_.size(); ++i) records_[i].name = i < count ? names_[i].name : absentName_;
    std::vector<Result> results;
    return Encode(results);
  }

 private:
  Bytes Encode(std::vector<Result>& results) const {
    const LogCapture silent;
    MorvixProtocolOwnedPackage_4_0 package;
    ProtocolEncodeAttributes_4_0(info_, records_, package, document_, results);
    return {package.value, package.value + package.sizeValue};
  }

  const MorvixProtocolEntity_4_0& info_;
  const std::vector<Attribute>& names_;
  std::vector<Attribute> records_;
  const Json::Value& document_;
  std::string absentName_;
};

// A field on its own: the bytes that it touches, zeros around it.
struct Alone {
  BitRange bits;
  Bytes bytes;

  std::string Text() const { return ContentText(bits, bytes.data()); }
};

Alone AloneOf(const BitRange& bits, const Attribute& attribute, const Result& result, const Json::Value& value) {
  const uint64_t start = bits.Bytes().begin;
  Alone alone{{bits.begin - start, bits.end - start}, Bytes(bits.EndByte() - bits.FirstByte())};
  if (IsBinary(attribute)) {
    __internal_base64_decode(alone.bytes.data(), value.asCString(), static_cast<uint32_t>(alone.bytes.size()));
    return alone;
  }
  uint64_t raw = result.raw;
  for (uint64_t bit = alone.bits.end; bit-- > alone.bits.begin; raw >>= 1) {
    byte& target = alone.bytes[bit / 8];
    target = static_cast<byte>(target | (raw & 1) << (7 - bit % 8));
  }
  return alone;
}

// Of a value of a kind that the data type does not take.
std::string KindsTaken(const Attribute& attribute) {
  if (IsBool(attribute)) return "a bool takes an integer of 32 bits, true, false or decimal text";
  if (IsEnum(attribute)) return "an enum takes an item's index, an integer of 32 bits or decimal text";
  if (IsBinary(attribute)) return "a binary takes base64 text in quotation marks";
  return fmt::format("a {} takes a number or the text of one", DataTypeName(attribute.data_type));
}

// Of a value that the module refused.
std::string ExpectedText(const Attribute& attribute, const Result& result) {
  if (result.outcome == MorvixProtocolOutcomeRefusedByItems_4_0) {
    const size_t items = attribute.enumList.size();
    return items == 0 ? "it has no items" : fmt::format("expected 0 to {}", items - 1);
  }
  if (result.outcome == MorvixProtocolOutcomeRefusedByPlace_4_0) {
    return "nothing can be written in its place; dp4 lint tells why";
  }
  const std::string least = UserText(attribute, static_cast<uint64_t>(attribute.uint_spec.min));
  const std::string most = UserText(attribute, static_cast<uint64_t>(attribute.uint_spec.max));
  if (least.empty() || most.empty()) return "its scaling takes no value; dp4 lint tells why";
  // Six decimals can round the end of a range beyond it.
  uint64_t raw = 0;
  const bool isTaken = ProtocolValueToRaw_4_0(attribute, std::strtod(least.c_str(), nullptr), raw);
  const char* beyond = isTaken ? "" : attribute.uint_spec.ratio < 0 ? "less than " : "more than ";
  return fmt::format("expected {}{} to {}", beyond, least, most);
}

// How many characters of a number's text the module reads. It accepts any number of blanks before it.
size_t LengthRead(const std::string& text, const Attribute& attribute) {
  const char* begin = text.c_str();
  char* end = nullptr;
  if (IsNumber(attribute)) {
    if (std::isnan(std::strtod(begin, &end))) return 0;
  } else {
    static_cast<void>(std::strtoull(begin, &end, 10));
  }
  return static_cast<size_t>(end - begin);
}

void Add(std::string& note, const std::string& more) { note += (note.empty() ? "" : ", ") + more; }

// What the module reads of a text is sent, and it silently ignores the rest.
void NotePartlyRead(const std::string& text, EncodedValue& value) {
  const size_t length = LengthRead(text, *value.field->attribute);
  if (length == text.size() && length != 0) return;
  value.isAltered = true;
  Add(value.note, length == 0 ? "cut: nothing of it is a number"
                              : "cut: only " + InQuotes(text.substr(0, length)) + " is a number");
}

// " (45.5)" for a number that the packet holds as another one than `given`, as far as six decimals tell.
std::string RoundedText(const Attribute& number, const Json::Value& given, uint64_t raw) {
  const std::string text = UserText(number, raw);
  const double value = given.isString() ? std::strtod(given.asCString(), nullptr) : given.asDouble();
  const double difference = std::abs(std::strtod(text.c_str(), nullptr) - value);
  return difference < 1e-6 || difference <= 4e-16 * std::abs(value) ? "" : " (" + text + ")";
}

void NoteNumber(const Json::Value& given, const Alone& alone, EncodedValue& value) {
  const Attribute& attribute = *value.field->attribute;
  const uint64_t sent = RawValue(alone.bits, alone.bytes.data());
  if (sent != value.result.raw) {
    value.isAltered = true;
    value.note = fmt::format("cut: raw {} does not fit, {} is sent", value.result.raw, sent);
  } else if (IsEnum(attribute)) {
    value.note = NameText(attribute.enumList.at(static_cast<size_t>(sent)));
  } else {
    value.note = fmt::format("raw {}{}", sent, RoundedText(attribute, given, sent));
  }
}

// The base64 decoder silently stops at what it does not know and cuts what is too long.
void NoteBinary(const std::string& text, EncodedValue& value) {
  Bytes bytes(text.size() + 1);
  const int decoded = __internal_base64_decode(bytes.data(), text.c_str(), static_cast<uint32_t>(bytes.size()));
  bytes.resize(static_cast<size_t>(std::max(decoded, 0)));
  std::string clean = PacketText(bytes, PacketForm::kBase64);
  clean.pop_back();  // its line end
  std::string given;
  for (const char c : text) {
    if (std::isspace(static_cast<unsigned char>(c)) == 0) given += c;
  }
  for (std::string* base64 : {&clean, &given}) base64->erase(base64->find_last_not_of('=') + 1);
  const uint64_t room = value.field->bits.Length() / 8;
  const std::string count = Count(bytes.size(), "byte");
  const auto areSent = [](uint64_t number) { return number == 1 ? "is sent" : "are sent"; };
  value.isAltered = given != clean || bytes.size() > room;
  if (given != clean) {
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
  const std::vector<Result> results = PartialEncoder(entity, values).Results();
  for (const Field& field : writing.fields) {
    const Attribute& attribute = *field.attribute;
    EncodedValue& value = values_.emplace_back();
    value.field = &field;
    value.result = results[field.flag];
    if (values.Of(attribute) == nullptr) {
      value.result = Result();
      value.note = "left out: no value";
      continue;
    }
    value.given = values.SourceOf(attribute);
    if (IsRefused(value.result)) {
      value.note =
          fmt::format("refused: {} ({})", EncodeLine(attribute, value.result), ExpectedText(attribute, value.result));
    } else if (!IsDone(value.result)) {
      value.note = "left out: " + KindsTaken(attribute);
    }
  }
  if (HasPacket()) NoteWritten(values);
}

// Writing one attribute can change the bits of another.
void Encoding::NoteWritten(const Values& values) {
  std::vector<Alone> alone;
  for (const EncodedValue& value : values_) {
    const Attribute& attribute = *value.field->attribute;
    alone.push_back(IsDone(value.result) ? AloneOf(value.field->bits, attribute, value.result, *values.Of(attribute))
                                         : Alone());
  }
  // For each attribute whose bits are not as it would write them alone: the first one whose writing changed them, or
  // itself where it left bits of an earlier one and no later one changed them.
  std::map<size_t, size_t> overwriters;
  for (size_t i = 0; i < values_.size(); ++i) {
    if (alone[i].Text() != ContentText(values_[i].field->bits, package_.value) && IsDone(values_[i].result)) {
      overwriters[i] = i;
    }
  }
  PartialEncoder encoder(entity_, values);
  std::map<size_t, std::string> whole;  // what is in the bits of those that have been written and not yet changed
  for (size_t i = 0; i < values_.size() && !overwriters.empty(); ++i) {
    if (!IsDone(values_[i].result) || (whole.empty() && overwriters.count(i) == 0)) continue;
    const Bytes now = encoder.EncodeFirst(i + 1);
    for (auto one = whole.begin(); one != whole.end();) {
      const bool isChanged = ContentText(values_[one->first].field->bits, now.data()) != one->second;
      if (isChanged) overwriters[one->first] = i;
      one = isChanged ? whole.erase(one) : std::next(one);
    }
    if (overwriters.count(i) != 0) whole[i] = ContentText(values_[i].field->bits, now.data());
  }

  for (size_t i = 0; i < values_.size(); ++i) {
    EncodedValue& value = values_[i];
    const Attribute& attribute = *value.field->attribute;
    if (!IsDone(value.result)) continue;
    const Json::Value& given = *values.Of(attribute);
    const auto overwriter = overwriters.find(i);
    const bool isOverwritten = overwriter != overwriters.end() && overwriter->second != i;
    if (isOverwritten) {
      value.note = fmt::format("overwritten: was {} until {} was written", Shortened(alone[i].Text(), kBitsColumns),
                               InQuotes(values_[overwriter->second].field->attribute->name));
    } else if (IsBinary(attribute)) {
      NoteBinary(given.asString(), value);
    } else if (overwriter == overwriters.end() && !IsBool(attribute)) {
      NoteNumber(given, alone[i], value);
    }
    if (overwriter != overwriters.end() && !isOverwritten) {
      if (!value.isAltered) value.note.clear();
      Add(value.note, "mixed: what it does not set is an earlier value's");
    }
    value.isAltered = value.isAltered || overwriter != overwriters.end();
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
    if (refused == nullptr && IsRefused(value.result)) refused = &value;
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
  std::vector<TableRow> rows = {HeadingRow({"FLAG", "NAME", "VALUE", "PLACE", "BITS", "NOTE"}, color)};
  for (const EncodedValue& value : values_) {
    const BitRange& bits = value.field->bits;
    const bool isWritten = IsDone(value.result);
    std::string flag = std::to_string(value.field->flag);
    if (isSent) flag += BitAt(package_.flags, FlagBit(entity_.Writing(), value.field->flag)) ? " = 1" : " = 0";
    rows.push_back({{flag},
                    {NameText(value.field->attribute->name)},
                    {Shortened(Escaped(value.given.text), kValueColumns)},
                    {PlaceText(bits)},
                    {isWritten && isSent ? Shortened(ContentText(bits, package_.value), kBitsColumns) : ""},
                    {isWritten && !isSent && !value.isAltered ? "not sent" : value.note}});
  }
  return AlignedTable(rows) + kTableKey;
}

}  // namespace morvix::inspect
