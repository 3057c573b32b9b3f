// Answers about one packet: made of values, read, and changed bit by bit.

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "Request.h"
#include "inspect/packets/Encoding.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace morvix::studio {

using namespace inspect;

namespace {

constexpr size_t kMaxPacketText = size_t{1} << 20;

Bytes BytesOf(const std::string& text) {
  if (text.size() > kMaxPacketText) throw InputError("the packet is longer than any packet can be");
  Bytes packet;
  HexError error;
  if (!ParseHex(text, packet, error)) throw InputError(fmt::format("column {}: {}", error.column, error.message));
  return packet;
}

// A value in the form that encoding takes: an enum by its index, a binary in base64.
void WriteValue(const Attribute& attribute, const FieldValue& value, std::string& out) {
  if (IsBool(attribute) || IsEnum(attribute)) {
    out += value.text;
  } else {
    json::AppendString(value.text, out);
  }
}

std::string ShownText(const Attribute& attribute, const FieldValue& value, const BitRange& place, const byte* payload) {
  if (IsBinary(attribute)) return HexText(payload + place.FirstByte(), place.EndByte() - place.FirstByte());
  if (!IsEnum(attribute)) return value.text;
  return NameText(attribute.enumList.at(static_cast<size_t>(value.result.raw)));
}

// Where the packet has a field; empty when it ends before it.
BitRange PlaceIn(const PacketReading& reading, const Field& field) {
  const BitRange& place = reading.IsReceived() ? field.bitsInLonger : field.bits;
  return place.EndByte() <= reading.payloadBytes ? place : BitRange();
}

void WriteFieldValue(const PacketReading& reading, const Field& field, std::string& out) {
  const Attribute& attribute = *field.attribute;
  const FieldValue& value = reading.values[field.flag];
  const BitRange place = PlaceIn(reading, field);
  JsonWriter writer(out);
  writer.Number("element", field.element);
  if (!place.IsEmpty()) writer.Place("place", place);
  if (value.result.outcome == MorvixProtocolOutcomeAbsent_4_0) return;
  if (!place.IsEmpty()) writer.Text("bits", ContentText(place, reading.payload));
  if (!place.IsEmpty() && !IsBinary(attribute)) writer.Number("raw", RawValue(place, reading.payload));
  if (reading.IsTold(field)) {
    WriteValue(attribute, value, writer.Member("value"));
    writer.Text("text", ShownText(attribute, value, place, reading.payload));
    if (IsAlertOrFault(attribute) && ActiveInteger(attribute, value) != 0) writer.Member("active") += "true";
  }
  for (const Note& note : reading.notes) {
    if (note.field == &field) writer.Text("note", NoteText(note));
  }
}

void WritePart(JsonWriter& parts, size_t at, size_t bytes, const char* kind, const std::string& text,
               const std::set<size_t>& elements) {
  JsonWriter part(parts.Element());
  part.Number("at", at);
  part.Number("bytes", bytes);
  part.Text("kind", kind);
  part.Text("text", text);
  JsonWriter list(part.Member("elements"), '[');
  for (const size_t element : elements) list.Element() += std::to_string(element);
}

// Runs of payload bytes in which the same fields lie.
void WritePayloadParts(const PacketReading& reading, size_t at, JsonWriter& parts) {
  std::vector<std::set<size_t>> elements(reading.payloadBytes);
  for (const Field& field : reading.direction->fields) {
    const BitRange place = PlaceIn(reading, field);
    if (place.IsEmpty()) continue;
    for (size_t i = place.FirstByte(); i < place.EndByte(); ++i) elements[i].insert(field.element);
  }
  for (size_t i = 0; i < elements.size();) {
    size_t end = i + 1;
    while (end < elements.size() && elements[end] == elements[i]) ++end;
    WritePart(parts, at + i, end - i, "payload", elements[i].empty() ? "not used" : "", elements[i]);
    i = end;
  }
}

std::string FlagsText(const PacketReading& reading) {
  std::string text;
  for (const Field& field : reading.direction->fields) {
    if (reading.values[field.flag].result.outcome == MorvixProtocolOutcomeAbsent_4_0) continue;
    text += (text.empty() ? "sets " : ", ") + NameText(field.attribute->name);
  }
  return text;
}

void WriteParts(const PacketReading& reading, const Bytes& packet, std::string& out) {
  JsonWriter parts(out, '[');
  WritePart(parts, 0, 1, "command", CommandName(reading.command), {});
  size_t at = 1;
  if (reading.subDevice) {
    WritePart(parts, at, MorvixProtocolSubDidBytes_4_0, "sub-device", std::to_string(*reading.subDevice), {});
    at += MorvixProtocolSubDidBytes_4_0;
  }
  if (reading.direction == nullptr) return;
  const auto payloadAt = static_cast<size_t>(reading.payload - packet.data());
  if (at < payloadAt) WritePart(parts, at, payloadAt - at, "flags", FlagsText(reading), {});
  WritePayloadParts(reading, payloadAt, parts);
}

// The text that the application is given for a received packet.
std::string ApplicationDocument(const EntityModel& entity, const Bytes& packet) {
  std::string document;
  std::vector<TavelReceiveInfo> active;
  static_cast<void>(ProtocolReceivePacket_4_0(entity.Info(), entity.Reading().records, packet.data(), packet.size(),
                                              document, active, active));
  return document;
}

void WriteReading(const EntityModel& entity, const Bytes& packet, std::string& out) {
  PacketReader reader(entity);
  PacketError error;
  const PacketReading* reading = reader.Read(packet, error);
  JsonWriter writer(out);
  writer.Text("packet", HexText(packet.data(), packet.size()));
  if (reading == nullptr) return writer.Text("refused", error.text);
  writer.Text("command", CommandName(reading->command));
  writer.Member("isWrite") += reading->direction == &entity.Writing() ? "true" : "false";
  if (reading->subDevice) writer.Member("subDevice") += std::to_string(*reading->subDevice);
  writer.Number("payloadAt", static_cast<size_t>(reading->payload - packet.data()));
  writer.Number("payloadBytes", reading->payloadBytes);
  if (!reading->failure.empty()) writer.Text("failure", reading->failure);
  {
    JsonWriter notes(writer.Member("notes"), '[');
    for (const Note& note : reading->notes) json::AppendString(NoteText(note), notes.Element());
  }
  WriteParts(*reading, packet, writer.Member("parts"));
  if (reading->IsReceived()) writer.Text("document", ApplicationDocument(entity, packet));
  JsonWriter values(writer.Member("values"), '[');
  if (reading->direction == nullptr) return;
  for (const Field& field : reading->direction->fields) WriteFieldValue(*reading, field, values.Element());
}

MorvixProtocolCommand_4_0 WriteCommand(const std::string& name) {
  for (const auto command : {MorvixProtocolCommandWriteReq_4_0, MorvixProtocolCommandCCWriteReq_4_0}) {
    if (name == CommandName(command)) return command;
  }
  throw InputError(InQuotes(name) + " is not a command that writes values");
}

constexpr char kValues[] = "values";

// "values:1:12: text" without the place, which is in a document that the user does not see.
std::string WithoutPlace(const std::string& problem) {
  const std::string begin = std::string(kValues) + ":";
  const size_t end = problem.find(": ");
  const bool hasPlace = problem.compare(0, begin.size(), begin) == 0 && end != std::string::npos;
  return hasPlace ? problem.substr(end + 2) : problem;
}

std::string ValuesText(const EntityModel& entity, const Json::Value& values) {
  Json::Value document(Json::objectValue);
  document[entity.Info().name] = values;
  return json::CompactText(document);
}

}  // namespace

void AnswerRead(const Request& request, std::string& answer) {
  const ChosenEntity chosen(request);
  WriteReading(chosen.model, BytesOf(request.Text("packet")), answer);
}

void AnswerEncode(const Request& request, std::string& answer) {
  const ChosenEntity chosen(request);
  const EntityModel& entity = chosen.model;
  MorvixProtocolOwnedPackage_4_0 package;
  package.cmd = WriteCommand(request.TextOr("command", CommandName(MorvixProtocolCommandWriteReq_4_0)));
  if (const std::optional<int32_t> id = request.SubDevice()) {
    package.subDid = *id;
    package.needInsertSubDid = 1;
  }
  json::SyntaxError error;
  const std::optional<json::Document> document =
      json::Document::Read(kValues, ValuesText(entity, request.Object("values")), error);
  if (!document) throw InputError("the values are not JSON: " + error.message);
  Values values(chosen.configuration, entity, entity.Writing());
  values.TakeDocument(*document);
  const Encoding encoding(entity, InQuotes(entity.Info().name), values, std::move(package));
  std::vector<std::string> problems = values.Problems();
  for (std::string& problem : encoding.Problems()) problems.push_back(std::move(problem));
  for (std::string& problem : problems) problem = WithoutPlace(problem);
  const bool isSent = encoding.HasPacket() && problems.empty();
  JsonWriter writer(answer);
  writer.Json("encoding", encoding.JsonText(isSent, problems));
  if (isSent) WriteReading(entity, encoding.Packet(), writer.Member("reading"));
}

void AnswerFlip(const Request& request, std::string& answer) {
  const ChosenEntity chosen(request);
  Bytes packet = BytesOf(request.Text("packet"));
  const uint64_t bit = request.Number("bit");
  PacketReader reader(chosen.model);
  PacketError error;
  const PacketReading* reading = reader.Read(packet, error);
  if (reading == nullptr) throw InputError(error.text);
  if (reading->direction == nullptr || bit / 8 >= reading->payloadBytes) {
    throw InputError("the payload of this packet has no such bit");
  }
  const auto payloadAt = static_cast<size_t>(reading->payload - packet.data());
  packet[payloadAt + static_cast<size_t>(bit / 8)] ^= static_cast<byte>(0x80 >> bit % 8);
  const Direction& writing = chosen.model.Writing();
  if (reading->direction == &writing) {
    // A write carries only what its flags name.
    const size_t flagsAt = payloadAt - FlagBytes(writing);
    for (const Field& field : writing.fields) {
      if (bit < field.bits.begin || bit >= field.bits.end) continue;
      const size_t flag = FlagBit(writing, field.flag);
      packet[flagsAt + flag / 8] |= static_cast<byte>(0x80 >> flag % 8);
    }
  }
  WriteReading(chosen.model, packet, answer);
}

}  // namespace morvix::studio
