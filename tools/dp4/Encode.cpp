// dp4 encode: values to a write packet, and the explanation of what became of each of them.
//
// What happened to a value is found by having the module encode it alone: it is then written, refused with a log line,
// or left out without a word.

#include <json/reader.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <utility>

#include "Commands.h"
#include "EntityView.h"
#include "JsonScan.h"
#include "Packets.h"
#include "Similar.h"
#include "Text.h"
#include "host/Base64.h"

namespace dp4 {

namespace {

using Attribute = MorvixProtocolAttribute_4_0;

// --- The values ---

// A value as it was given.
struct Given {
  std::string source;  // where it stands
  std::string text;
};

struct Values {
  Json::Value document{Json::objectValue};  // as the module takes it
  std::map<std::string, Given> given;       // of the entity, by name
  std::vector<std::string> unused;          // what names nothing that can be written, and why
};

// The module looks values up by the name up to its first NUL.
std::string NameOf(const Attribute& attribute) { return attribute.name.c_str(); }

std::vector<std::string> NamesOf(const std::vector<Attribute>& attributes) {
  std::vector<std::string> names;
  names.reserve(attributes.size());
  for (const Attribute& attribute : attributes) names.push_back(NameOf(attribute));
  return names;
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// What the configuration has to say about the names that a document may use.
struct Names {
  std::string entity;
  std::vector<std::string> entities;
  std::vector<std::string> writable;
  std::map<std::string, std::string> others;  // attributes that are not written, and why
};

Names ReadNames(const JsonText& configuration, const Json::Value& entity, const ParsedEntity& writable) {
  Names names;
  names.entity = writable.info.name;
  names.writable = NamesOf(writable.attributes);
  for (const Json::Value& other : configuration.root["entities"]) {
    std::string name;
    if (ProtocolGetAttrString_4_0(other, "name", name)) names.entities.push_back(name);
  }
  for (const Json::Value& attribute : entity["attrs"]) {
    std::string name;
    if (ProtocolGetAttrString_4_0(attribute, "name", name)) names.others[name] = "is not usable; dp4 lint tells why";
  }
  for (const Attribute& attribute : ParseEntity(configuration, entity, kAllGroups, nullptr).attributes) {
    const bool isWritable = attribute.type == MorvixProtocolTypeStatusWritable_4_0;
    names.others[NameOf(attribute)] = isWritable
                                          ? "is dropped by encoding; dp4 lint tells why"
                                          : std::string("is not written, its group is ") + GroupName(attribute.type);
  }
  for (const std::string& name : names.writable) names.others.erase(name);
  return names;
}

// Why `name` is none that can be written.
std::string UnusedText(const Names& names, const std::string& name) {
  const auto other = names.others.find(name);
  if (other != names.others.end()) return InQuotes(name) + " " + other->second;
  return InQuotes(name) + " names no attribute of " + InQuotes(names.entity) + DidYouMean(name, names.writable);
}

void TakeDocument(const JsonText& document, const Names& names, Values& values) {
  if (!document.root.isObject()) {
    throw UsageError(document.NameOf(document.root) + ": expected an object {" + InQuotes(names.entity) + ": {...}}");
  }
  values.document = document.root;
  for (const RepeatedMember& member : FindRepeatedMembers(document.text)) {
    values.unused.push_back(document.NameOf(member.offset) + ": " + InQuotes(member.name) +
                            " stands here again; the earlier value is not used");
  }
  for (const std::string& name : document.root.getMemberNames()) {
    // A decoded document carries the protocol's version.
    if (Contains(names.entities, name) || name == "version") continue;
    values.unused.push_back(document.NameOf(document.root[name]) + ": " + InQuotes(name) + " names no entity" +
                            DidYouMean(name, names.entities));
  }
  if (!document.root.isMember(names.entity)) return;
  const Json::Value& given = document.root[names.entity];
  if (!given.isObject()) {
    throw UsageError(document.NameOf(given) + ": expected an object with the values of " + InQuotes(names.entity));
  }
  for (const std::string& name : given.getMemberNames()) {
    const Json::Value& value = given[name];
    const std::string source = document.NameOf(value);
    if (Contains(names.writable, name)) {
      const auto start = static_cast<size_t>(value.getOffsetStart());
      values.given[name] = {source, document.text.substr(start, static_cast<size_t>(value.getOffsetLimit()) - start)};
    } else {
      values.unused.push_back(source + ": " + UnusedText(names, name));
    }
  }
}

// The value of --set: JSON if it is JSON, otherwise the text itself.
Json::Value SetValueOf(const std::string& text) {
  Json::CharReaderBuilder builder;
  builder["allowComments"] = false;
  builder["failIfExtra"] = true;
  builder["rejectDupKeys"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return text;
  } catch (const Json::Exception&) {  // nested too deep
    return text;
  }
  if (value.isNumeric() && !value.isBool() && !IsJsonNumber(text)) return text;
  return value;
}

void TakeSet(const std::string& set, const Names& names, Values& values) {
  const size_t equals = set.find('=');
  const std::string source = "--set " + Shortened(Escaped(set), 60);
  if (equals == std::string::npos) throw UsageError(source + ": expected NAME=VALUE");
  const std::string name = set.substr(0, equals);
  if (!Contains(names.writable, name)) throw UsageError(source + ": " + UnusedText(names, name));
  const std::string text = set.substr(equals + 1);
  values.document[names.entity][name] = SetValueOf(text);
  values.given[name] = {source, text};
}

Values ReadValues(const EncodeOptions& options, const Names& names) {
  Values values;
  if (!options.values.empty()) TakeDocument(ReadJsonFile(options.values), names, values);
  for (const std::string& set : options.set) TakeSet(set, names, values);
  return values;
}

// --- What becomes of them ---

const char kTableKey[] =
    "\nFLAG is the attribute's bit in the flag bitmap. PLACE counts bytes of the payload, or byte.bit with bit 0 the "
    "lowest.\n";
constexpr size_t kValueColumns = 32;
constexpr size_t kBitsColumns = 47;  // 16 bytes

// What the module makes of one attribute.
struct Outcome {
  enum Kind { kNoValue, kLeftOut, kRefused, kWritten };

  Kind kind = kNoValue;
  Given given;
  BitRange bits;              // where it lies
  std::vector<byte> payload;  // written: the payload with this value alone
  bool isAltered = false;     // written: the packet says something else than the value
  std::string note;           // what there is to say about it
};

std::vector<LoggedLine> FailuresOf(std::vector<LoggedLine> lines) {
  lines.erase(std::remove_if(lines.begin(), lines.end(), [](const LoggedLine& line) { return line.level > 1; }),
              lines.end());
  return lines;
}

// Of a value of a kind that the data type does not take.
std::string KindsTaken(MorvixProtocolDataType_4_0 dataType) {
  const std::string name = DataTypeName(dataType);
  if (dataType == MorvixProtocolDataTypeBool_4_0)
    return "a bool takes an integer of 32 bits, true, false or decimal text";
  if (dataType == MorvixProtocolDataTypeEnum_4_0)
    return "an enum takes an item's index, an integer of 32 bits or decimal text";
  if (dataType == MorvixProtocolDataTypeBinary_4_0) return "a binary takes base64 text in quotation marks";
  return "a " + name + " takes a number or the text of one";
}

// The raw value that the module makes of a number or enum's value where there is room for all of it; nothing when it
// refuses.
std::optional<uint64_t> WholeRawValue(Attribute attribute, const Json::Value& value) {
  MorvixProtocolEntity_4_0 entity;
  entity.name = "entity";
  attribute.name = "value";
  attribute.position = {0, 0, MorvixProtocolUnitByte_4_0, sizeof(uint64_t), 0};
  Json::Value document;
  document[entity.name][attribute.name] = value;
  const LogGatherer silent;
  OwnedPackage package;
  ProtocolEncodeAttributes_4_0(entity, {attribute}, package, document);
  if (package.sizeValue == 0) return std::nullopt;
  uint64_t raw = 0;
  for (size_t i = 0; i < package.sizeValue; ++i) raw = raw << 8 | package.value[i];
  return raw;
}

// Of a value that the module refused with `line`.
std::string ExpectedText(const Attribute& attribute, const std::string& line) {
  if (line.find("Invalid enum") == 0) {
    const size_t items = attribute.enumList.size();
    return items == 0 ? "it has no items" : "expected 0 to " + std::to_string(items - 1);
  }
  if (line.find("Validate") != 0) return "nothing can be written in its place; dp4 lint tells why";
  const std::string least = UserText(attribute, static_cast<uint64_t>(attribute.uint_spec.min));
  const std::string most = UserText(attribute, static_cast<uint64_t>(attribute.uint_spec.max));
  if (least.empty() || most.empty()) return "its scaling takes no value; dp4 lint tells why";
  // Six decimals can round the end of a range beyond it.
  const char* beyond = attribute.uint_spec.ratio < 0 ? "less than " : "more than ";
  return std::string("expected ") + (WholeRawValue(attribute, least) ? "" : beyond) + least + " to " + most;
}

// The writable attributes, each of which can be encoded alone.
class Encoder {
 public:
  explicit Encoder(const ParsedEntity& entity) : entity_(entity), numbered_(entity.attributes) {
    for (size_t i = 0; i < numbered_.size(); ++i) numbered_[i].name = std::to_string(i);
  }

  // The payload with the values of these attributes alone, as long as the whole one; empty when nothing was written.
  // `lines` become the module's failures.
  std::vector<byte> EncodeSome(const std::vector<std::pair<size_t, Json::Value>>& some,
                               std::vector<LoggedLine>& lines) const {
    Json::Value document(Json::objectValue);
    Json::Value& values = document[entity_.info.name] = Json::Value(Json::objectValue);
    for (const auto& [index, value] : some) values[numbered_[index].name] = value;
    LogGatherer log;
    OwnedPackage package;
    ProtocolEncodeAttributes_4_0(entity_.info, numbered_, package, document);
    lines = FailuresOf(log.Take());
    return package.Payload();
  }

 private:
  const ParsedEntity& entity_;
  std::vector<Attribute> numbered_;  // under their numbers, so that two of one name are told apart
};

std::vector<Outcome> FindOutcomes(const ParsedEntity& entity, const Encoder& encoder, const Values& values,
                                  size_t payloadLength) {
  std::vector<Outcome> outcomes;
  for (size_t i = 0; i < entity.attributes.size(); ++i) {
    const Attribute& attribute = entity.attributes[i];
    Outcome& outcome = outcomes.emplace_back();
    outcome.bits = FieldBits(attribute.position, attribute.data_type, payloadLength);
    const auto given = values.given.find(NameOf(attribute));
    if (given == values.given.end()) {
      outcome.note = "left out: no value";
      continue;
    }
    outcome.given = given->second;
    const Json::Value& value = values.document[entity.info.name][NameOf(attribute)];
    std::vector<LoggedLine> lines;
    outcome.payload = encoder.EncodeSome({{i, value}}, lines);
    if (!lines.empty()) {
      outcome.kind = Outcome::kRefused;
      outcome.note = "refused: " + lines[0].text + " (" + ExpectedText(attribute, lines[0].text) + ")";
    } else if (!outcome.payload.empty()) {
      outcome.kind = Outcome::kWritten;
    } else {
      outcome.kind = Outcome::kLeftOut;
      outcome.note = "left out: " + KindsTaken(attribute.data_type);
    }
  }
  return outcomes;
}

// For each attribute whose bits in `payload` are not as it would write them alone: the first one whose writing changed
// them, or itself where it left bits of an earlier one and nobody changed them later.
std::map<size_t, size_t> FindOverwriters(const ParsedEntity& entity, const Encoder& encoder, const Values& values,
                                         const std::vector<Outcome>& outcomes, const byte* payload) {
  std::map<size_t, size_t> overwriters;
  for (size_t i = 0; i < outcomes.size(); ++i) {
    const Outcome& outcome = outcomes[i];
    const bool isWritten = outcome.kind == Outcome::kWritten;
    if (isWritten && BitsText(outcome.bits, payload) != BitsText(outcome.bits, outcome.payload.data())) {
      overwriters[i] = i;
    }
  }
  std::map<size_t, std::string> whole;  // what is in the bits of those that have been written and not yet changed
  std::vector<std::pair<size_t, Json::Value>> some;
  for (size_t i = 0; i < outcomes.size() && !overwriters.empty(); ++i) {
    if (outcomes[i].kind != Outcome::kWritten) continue;
    some.emplace_back(i, values.document[entity.info.name][NameOf(entity.attributes[i])]);
    if (whole.empty() && overwriters.count(i) == 0) continue;
    std::vector<LoggedLine> lines;
    const std::vector<byte> now = encoder.EncodeSome(some, lines);
    for (auto one = whole.begin(); one != whole.end();) {
      const bool isChanged = BitsText(outcomes[one->first].bits, now.data()) != one->second;
      if (isChanged) overwriters[one->first] = i;
      one = isChanged ? whole.erase(one) : std::next(one);
    }
    if (overwriters.count(i) != 0) whole[i] = BitsText(outcomes[i].bits, now.data());
  }
  return overwriters;
}

// How many characters of a number's text the module reads. It takes any number of blanks before it.
size_t LengthRead(const std::string& text, MorvixProtocolDataType_4_0 dataType) {
  const char* begin = text.c_str();
  char* end = nullptr;
  if (ProtocolDataTypeIsUInt(dataType)) {
    if (std::isnan(std::strtod(begin, &end))) return 0;
  } else {
    static_cast<void>(std::strtoull(begin, &end, 10));
  }
  return static_cast<size_t>(end - begin);
}

// Of a text, what the module reads of it is sent, without a word about the rest.
void NotePartlyRead(const Attribute& attribute, const std::string& text, Outcome& outcome) {
  const size_t length = LengthRead(text, attribute.data_type);
  if (length == text.size() && length != 0) return;
  outcome.isAltered = true;
  outcome.note += (outcome.note.empty() ? "" : ", ") + std::string("cut: ") +
                  (length == 0 ? "nothing of it is" : "only " + InQuotes(text.substr(0, length)) + " is") + " a number";
}

// " (45.5)" for a number that the packet holds as another one than `value`, as far as six decimals tell.
std::string RoundedText(const Attribute& number, const Json::Value& value, uint64_t raw) {
  Json::Value holder;
  holder["value"] = value;
  double given = 0;
  ProtocolGetAttrDouble_4_0(holder, "value", given);
  const std::string text = UserText(number, raw);
  const double difference = std::abs(std::strtod(text.c_str(), nullptr) - given);
  return difference < 1e-6 || difference <= 4e-16 * std::abs(given) ? "" : " (" + text + ")";
}

void NoteNumber(const Attribute& attribute, const Json::Value& value, Outcome& outcome) {
  const uint64_t raw = RawValue(outcome.bits, outcome.payload.data());
  const uint64_t whole = WholeRawValue(attribute, value).value_or(raw);
  if (raw != whole) {
    outcome.isAltered = true;
    outcome.note = "cut: raw " + std::to_string(whole) + " does not fit, " + std::to_string(raw) + " is sent";
  } else if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
    outcome.note = NameText(attribute.enumList.at(static_cast<size_t>(raw)));
  } else {
    outcome.note = "raw " + std::to_string(raw) + RoundedText(attribute, value, raw);
  }
}

// The base64 decoder stops at what it does not know and cuts what is too long, all without a word.
void NoteBinary(const std::string& text, Outcome& outcome) {
  std::vector<byte> bytes(text.size() + 1);
  const int decoded = __internal_base64_decode(bytes.data(), text.c_str(), static_cast<uint32_t>(bytes.size()));
  bytes.resize(static_cast<size_t>(std::max(decoded, 0)));
  std::vector<char> buffer(bytes.size() * 2 + 9);
  std::string clean =
      __internal_base64_encode(buffer.data(), static_cast<uint32_t>(buffer.size()), bytes.data(), bytes.size());
  std::string given;
  for (const char c : text) {
    if (std::isspace(static_cast<unsigned char>(c)) == 0) given += c;
  }
  for (std::string* base64 : {&clean, &given}) base64->erase(base64->find_last_not_of('=') + 1);
  const uint64_t room = outcome.bits.Length() / 8;
  const std::string count = Count(bytes.size(), "byte");
  if (given != clean) {
    outcome.isAltered = true;
    outcome.note = "cut: not all of it is base64, " + count + (bytes.size() == 1 ? " is sent" : " are sent");
  } else if (bytes.size() > room) {
    outcome.isAltered = true;
    outcome.note =
        "cut: it has " + count + ", of which " + std::to_string(room) + (room == 1 ? " is sent" : " are sent");
  } else if (bytes.size() < room) {
    outcome.note = count + ", filled up with zeros";
  }
}

// Notes on the attributes that were written into `payload`. Writing one can change the bits of another.
void NoteWritten(const ParsedEntity& entity, const Encoder& encoder, const Values& values, const byte* payload,
                 std::vector<Outcome>& outcomes) {
  const std::map<size_t, size_t> overwriters = FindOverwriters(entity, encoder, values, outcomes, payload);
  for (size_t i = 0; i < outcomes.size(); ++i) {
    Outcome& outcome = outcomes[i];
    const Attribute& attribute = entity.attributes[i];
    if (outcome.kind != Outcome::kWritten) continue;
    const Json::Value& value = values.document[entity.info.name][NameOf(attribute)];
    const auto overwriter = overwriters.find(i);
    if (overwriter != overwriters.end() && overwriter->second != i) {
      outcome.isAltered = true;
      outcome.note = "overwritten: was " + Shortened(BitsText(outcome.bits, outcome.payload.data()), kBitsColumns) +
                     " until " + InQuotes(entity.attributes[overwriter->second].name) + " was written";
    } else if (overwriter != overwriters.end()) {
      if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) NoteBinary(value.asString(), outcome);
      outcome.note =
          (outcome.isAltered ? outcome.note + ", " : "") + "mixed: what it does not set is an earlier value's";
      outcome.isAltered = true;
    } else if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
      NoteBinary(value.asString(), outcome);
    } else if (attribute.data_type != MorvixProtocolDataTypeBool_4_0) {
      NoteNumber(attribute, value, outcome);
    }
    const bool isText = value.isString() && attribute.data_type != MorvixProtocolDataTypeBinary_4_0;
    if (isText) NotePartlyRead(attribute, value.asString(), outcome);
  }
}

// What the values have come to that is worth a message.
std::vector<std::string> ProblemsOf(const std::vector<Attribute>& attributes, const std::vector<Outcome>& outcomes) {
  std::vector<std::string> problems;
  for (size_t i = 0; i < outcomes.size(); ++i) {
    const Outcome& outcome = outcomes[i];
    if (outcome.kind != Outcome::kLeftOut && !outcome.isAltered) continue;
    problems.push_back(outcome.given.source + ": " + InQuotes(attributes[i].name) + " " + outcome.note);
  }
  return problems;
}

// --- The explanation ---

// Bytes under their name, 16 a line.
std::string PartText(const std::string& name, const byte* data, size_t size) {
  constexpr size_t kBytesPerLine = 16;
  std::string text;
  for (size_t at = 0; at < size; at += kBytesPerLine) {
    const std::string label = at == 0 ? name : "";
    text += label + std::string(12 - label.size(), ' ') + HexText(data + at, std::min(kBytesPerLine, size - at)) + '\n';
  }
  return text;
}

std::string PartsText(const MorvixProtocolPackage_4_0& package, const std::vector<byte>& packet) {
  std::string text = PartText("command", packet.data(), 1);
  const size_t subDidBytes = packet.size() - 1 - package.sizeFlags - package.sizeValue;
  text += PartText("sub-device", packet.data() + 1, subDidBytes);
  return text + PartText("flags", package.flags, package.sizeFlags) +
         PartText("payload", package.value, package.sizeValue);
}

// The bit of attribute `index` in the flag bitmap, which is laid out like a bit group.
std::string FlagText(size_t index, const MorvixProtocolPackage_4_0& package) {
  MorvixProtocolPosition_4_0 position;
  position.bit_offset = static_cast<int32_t>(index);
  position.unit = MorvixProtocolUnitBit_4_0;
  position.len = 1;
  position.groupByteLength = package.sizeFlags;
  return std::to_string(index) + " = " +
         BitsText(FieldBits(position, MorvixProtocolDataTypeBool_4_0, package.sizeFlags), package.flags);
}

// Without the bits when nothing is sent: a value was refused, or there are problems that have to be none.
std::string TableOf(const std::vector<Attribute>& attributes, const std::vector<Outcome>& outcomes,
                    const MorvixProtocolPackage_4_0& package, bool isGood, bool color) {
  std::vector<TableRow> rows = {HeadingRow({"FLAG", "NAME", "VALUE", "PLACE", "BITS", "NOTE"}, color)};
  for (size_t i = 0; i < outcomes.size(); ++i) {
    const Outcome& outcome = outcomes[i];
    const bool isWritten = outcome.kind == Outcome::kWritten;
    const bool isSent = isWritten && isGood;
    const std::string bits = isSent ? BitsText(outcome.bits, package.value) : "";
    rows.push_back({{isGood ? FlagText(i, package) : std::to_string(i), ""},
                    {NameText(attributes[i].name), ""},
                    {Shortened(Escaped(outcome.given.text), kValueColumns), ""},
                    {PlaceText(outcome.bits), ""},
                    {Shortened(bits, kBitsColumns), ""},
                    {isWritten && !isSent && !outcome.isAltered ? "not sent" : outcome.note, ""}});
  }
  return AlignedTable(rows) + kTableKey;
}

// --- The command ---

MorvixProtocolCommand_4_0 CommandOf(const std::string& name) {
  if (name == "write") return MorvixProtocolCommandWriteReq_4_0;
  if (name == "cc-write") return MorvixProtocolCommandCCWriteReq_4_0;
  throw UsageError("--command " + Escaped(name) + ": expected write or cc-write");
}

// Whether a packet can hold the flags and payload of these attributes. A package without buffers counts all the same.
bool FitsPacket(size_t attributes, size_t payloadLength) {
  MorvixProtocolPackage_4_0 package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  package.sizeFlags = FlagBytes(attributes);
  package.sizeValue = payloadLength;
  return payloadLength == 0 || !PackPackage(package).empty();
}

void CheckOptions(const EncodeOptions& options) {
  if (options.explain && options.output == "binary") {
    throw UsageError("--explain is text and cannot stand behind a binary packet; expected another --output");
  }
  if (options.values.empty() && options.set.empty()) {
    throw UsageError("no values to encode: expected a value document or --set NAME=VALUE");
  }
  if (options.values == "-" && options.configuration == "-") {
    throw UsageError("standard input cannot be both the configuration and the value document");
  }
}

// Why there is no packet: the module's line, told with the value at which it stopped.
std::string RefusalText(const std::string& entityText, const std::vector<Attribute>& attributes,
                        const std::vector<Outcome>& outcomes, const std::vector<LoggedLine>& failures) {
  for (size_t i = 0; i < outcomes.size(); ++i) {
    if (outcomes[i].kind != Outcome::kRefused) continue;
    return outcomes[i].given.source + ": " + InQuotes(attributes[i].name) + " " + outcomes[i].note;
  }
  return entityText + ": " +
         (failures.empty() ? "no value to encode for it; expected one of a writable attribute" : failures[0].text);
}

}  // namespace

int Encode(const EncodeOptions& options, const CommonOptions& common, std::ostream& out, std::ostream& err) {
  CheckOptions(options);
  LogGatherer log(common.log);
  OwnedPackage package;
  package.cmd = CommandOf(options.command);
  package.subDid = options.subDevice;
  package.needInsertSubDid = options.hasSubDevice ? 1 : 0;
  const JsonText configuration = ReadJsonFile(options.configuration);
  const Json::Value& entityJson = ChooseEntity(configuration, common.entity);
  const ParsedEntity entity = ParseEntity(configuration, entityJson, kWritable, common.log);
  const std::string entityText = FileName(configuration.path) + ": " + InQuotes(entity.info.name);
  const Values values = ReadValues(options, ReadNames(configuration, entityJson, entity));
  const std::optional<size_t> payloadLength = PayloadLength(entity.attributes);
  if (!payloadLength || !FitsPacket(entity.attributes.size(), *payloadLength)) {
    const std::string length = payloadLength ? Count(*payloadLength, "byte") : "too many bytes";
    throw UsageError(entityText + " takes " + length + " of payload for its " +
                     std::to_string(entity.attributes.size()) + " writable attributes, more than a packet can hold");
  }

  log.Take();
  ProtocolEncodeAttributes_4_0(entity.info, entity.attributes, package, values.document);
  const std::vector<LoggedLine> failures = FailuresOf(log.Take());
  const Encoder encoder(entity);
  std::vector<Outcome> outcomes = FindOutcomes(entity, encoder, values, *payloadLength);
  if (package.sizeValue != 0) NoteWritten(entity, encoder, values, package.value, outcomes);

  std::vector<std::string> problems = values.unused;
  for (std::string& problem : ProblemsOf(entity.attributes, outcomes)) problems.push_back(std::move(problem));
  if (package.sizeValue == 0) problems.push_back(RefusalText(entityText, entity.attributes, outcomes, failures));
  for (const std::string& problem : problems) err << "dp4: " << problem << '\n';
  const bool isGood = package.sizeValue != 0 && (!options.strict || problems.empty());
  if (isGood) {
    const std::vector<byte> packet = PackPackage(package);
    out << PacketText(packet, options.output);
    if (options.explain) out << '\n' << PartsText(package, packet) << '\n';
  }
  if (options.explain) out << TableOf(entity.attributes, outcomes, package, isGood, common.color);
  return isGood ? kFine : kProblems;
}

}  // namespace dp4
