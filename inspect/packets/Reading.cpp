#include "inspect/packets/Reading.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "host/Logging.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

MorvixProtocolPackage_4_0 PackageWith(const byte* payload, size_t size) {
  MorvixProtocolPackage_4_0 package;
  package.value = const_cast<byte*>(payload);  // decoding only reads
  package.sizeValue = size;
  return package;
}

bool NamesSubDevice(uint32_t command) {
  return command == MorvixProtocolCommandCCReadReq_4_0 || command == MorvixProtocolCommandCCDelSubDeviceReq_4_0;
}

bool Fail(PacketError& error, const char* kind, std::string text) {
  error = {kind, std::move(text)};
  return false;
}

bool FailBySize(PacketError& error, std::string text) { return Fail(error, "wrong size", std::move(text)); }

// It travels in the byte order of the machine that made the packet.
int32_t SubDeviceAt(const byte* data) {
  int32_t id = 0;
  std::memcpy(&id, data, sizeof id);
  return id;
}

// Sets the text of a value that was read.
void SetText(const Field& field, const BitRange& bits, const byte* payload, FieldValue& value) {
  const Attribute& attribute = *field.attribute;
  const uint64_t raw = value.result.raw;
  if (IsBool(attribute)) {
    value.text = raw != 0 ? "true" : "false";
  } else if (IsEnum(attribute)) {
    char digits[24];
    value.text.assign(digits, std::to_chars(digits, digits + sizeof digits, raw).ptr);
  } else if (IsBinary(attribute)) {
    value.text = Base64Text(payload + bits.FirstByte(), bits.EndByte() - bits.FirstByte());
  } else {
    static_cast<void>(ProtocolRawToText_4_0(attribute, raw, value.text));
  }
}

// Reads a field whose bits lie in the payload. False for an enum's index without item.
bool ReadField(const Field& field, const BitRange& bits, const byte* payload, FieldValue& value) {
  const Attribute& attribute = *field.attribute;
  value.result = {MorvixProtocolOutcomeDone_4_0, IsBinary(attribute) ? 0 : RawValue(bits, payload)};
  if (IsEnum(attribute) && value.result.raw >= attribute.enumList.size()) {
    value.result.outcome = MorvixProtocolOutcomeRefusedByItems_4_0;
    return false;
  }
  value.text.clear();
  SetText(field, bits, payload, value);
  if (value.text.empty() && !IsBinary(attribute)) value.result.outcome = MorvixProtocolOutcomeRefusedByScaling_4_0;
  return true;
}

// Why decoding ended at the culprit, with what was expected.
std::string FailureText(const EntityModel& entity, const PacketReading& reading) {
  const Attribute& culprit = *reading.culprit->attribute;
  const size_t found = reading.payloadBytes;
  const size_t expected = entity.Reading().payloadBytes;
  std::string reason = fmt::format("expected {} bytes of payload, found {}", expected, found);
  if (found >= expected) reason = "nothing can be read from its place; dp4 lint tells why";
  if (IsEnum(culprit)) reason = ExpectedIndex(culprit);
  return fmt::format("{} unreadable: {} ({})", InQuotes(culprit.name),
                     DecodeLine(culprit, reading.values[reading.culprit->flag].result), reason);
}

}  // namespace

const char* NoteName(NoteKind kind) {
  static constexpr const char* kNames[kNoteKinds] = {"surplus", "short", "out-of-range", "no-item", "not-reached"};
  return kNames[static_cast<size_t>(kind)];
}

std::string NoteText(const Note& note) {
  if (note.field == nullptr) return fmt::format("surplus: {}", Count(note.place.Length() / 8, "byte"));
  const Attribute& attribute = *note.field->attribute;
  std::string text = InQuotes(attribute.name) + " " + NoteName(note.kind);
  if (note.kind == NoteKind::kOutOfRange) {
    text += fmt::format(": raw {}, expected {} to {}", note.raw, attribute.uint_spec.min, attribute.uint_spec.max);
  }
  if (note.kind == NoteKind::kNoItem) text += fmt::format(": {}, {}", note.raw, ExpectedIndex(attribute));
  return text;
}

bool PacketReading::IsReceived() const { return IsResponseCommand(command); }

bool PacketReading::IsTold(const Field& field) const {
  if (values[field.flag].result.outcome != MorvixProtocolOutcomeDone_4_0) return false;
  return culprit == nullptr || (IsEnum(*culprit->attribute) && field.flag < culprit->flag);
}

PacketReader::PacketReader(const EntityModel& entity)
    : entity_(entity),
      isLocated_(std::none_of(entity.Reading().fields.begin(), entity.Reading().fields.end(),
                              [](const Field& field) { return field.bitsInLonger.IsEmpty(); })) {}

const PacketReading* PacketReader::Read(const Bytes& packet, PacketError& error) {
  const uint32_t command = packet[0];
  reading_.command = static_cast<MorvixProtocolCommand_4_0>(command);
  reading_.subDevice.reset();
  reading_.direction = nullptr;
  reading_.payload = packet.data() + 1;
  reading_.payloadBytes = packet.size() - 1;
  reading_.notes.clear();
  reading_.culprit = nullptr;
  reading_.failure.clear();
  if (IsResponseCommand(command)) return ReadReceived(error) ? &reading_ : nullptr;
  if (IsWriteCommand(command)) return ReadWrite(packet, error) ? &reading_ : nullptr;
  if (CommandName(command) == nullptr) {
    Fail(error, "unknown command",
         fmt::format("command {:02x} is unknown; expected 01 to 04, 07, 08, 0b, 0c or 0d", command));
    return nullptr;
  }
  const size_t size = NamesSubDevice(command) ? 1 + MorvixProtocolSubDidBytes_4_0 : 1;
  if (packet.size() != size) {
    FailBySize(error, fmt::format("expected {} of a {} request, found {}", Count(size, "byte"), CommandName(command),
                                  packet.size()));
    return nullptr;
  }
  if (NamesSubDevice(command)) reading_.subDevice = SubDeviceAt(packet.data() + 1);
  reading_.payloadBytes = 0;
  return &reading_;
}

bool PacketReader::ReadReceived(PacketError& error) {
  if (reading_.payloadBytes == 0) {
    return FailBySize(error, "too short; expected a command byte and at least one byte of payload");
  }
  if (reading_.payloadBytes > MorvixProtocolMaxPayloadBytes_4_0) {
    return FailBySize(error, fmt::format("too long; expected a command byte and at most {} bytes of payload",
                                         MorvixProtocolMaxPayloadBytes_4_0));
  }
  reading_.direction = &entity_.Reading();
  reading_.values.resize(reading_.direction->fields.size());
  if (!isLocated_ || !ReadAll()) ReadThroughModule();
  NoteValues();
  return true;
}

// Reads every field from its place. False when decoding would end early.
bool PacketReader::ReadAll() {
  for (const Field& field : reading_.direction->fields) {
    FieldValue& value = reading_.values[field.flag];
    const Attribute& attribute = *field.attribute;
    if (field.bitsInLonger.EndByte() <= reading_.payloadBytes) {
      if (!ReadField(field, field.bitsInLonger, reading_.payload, value)) return false;
      continue;
    }
    if (!IsNumber(attribute) && !IsEnum(attribute)) return false;
    value.result = {MorvixProtocolOutcomeUnreadable_4_0, 0};
    value.text.clear();
  }
  return true;
}

void PacketReader::ReadThroughModule() {
  const Direction& direction = *reading_.direction;
  Json::Value unused;
  std::vector<Result> results;
  ProtocolDecodeAttributes_4_0(entity_.Info(), direction.records, PackageWith(reading_.payload, reading_.payloadBytes),
                               unused, results);
  for (const Field& field : direction.fields) {
    FieldValue& value = reading_.values[field.flag];
    value.result = results[field.flag];
    value.text.clear();
    if (reading_.culprit != nullptr) {
      // Decoding did not reach it, so it is read on its own.
      value.result = DecodeSilently(entity_, {*field.attribute}, reading_.payload, reading_.payloadBytes)[0];
    } else if (!DecodeLine(*field.attribute, value.result).empty()) {
      reading_.culprit = &field;
    }
    if (value.result.outcome == MorvixProtocolOutcomeDone_4_0) {
      SetText(field, field.bitsInLonger, reading_.payload, value);
    }
  }
  if (reading_.culprit != nullptr) reading_.failure = FailureText(entity_, reading_);
}

// A write has one of two lengths: with the id of a sub-device and without.
bool PacketReader::ReadWrite(const Bytes& packet, PacketError& error) {
  const Direction& writing = entity_.Writing();
  const size_t flagBytes = FlagBytes(writing);
  const size_t bytes = 1 + flagBytes + writing.payloadBytes;
  if (flagBytes == 0) {
    return Fail(error, "nothing writable", "nothing of " + InQuotes(entity_.Info().name) + " is writable");
  }
  const bool hasSubDevice = packet.size() == bytes + MorvixProtocolSubDidBytes_4_0;
  if (packet.size() != bytes && !hasSubDevice) {
    return FailBySize(error, fmt::format("expected {} bytes of a write, or {} with a sub-device, found {}", bytes,
                                         bytes + MorvixProtocolSubDidBytes_4_0, packet.size()));
  }
  if (hasSubDevice) reading_.subDevice = SubDeviceAt(packet.data() + 1);
  const byte* flags = packet.data() + 1 + (hasSubDevice ? MorvixProtocolSubDidBytes_4_0 : 0);
  reading_.direction = &writing;
  reading_.payload = flags + flagBytes;
  reading_.payloadBytes = writing.payloadBytes;
  reading_.values.resize(writing.fields.size());
  for (size_t flag = writing.records.size(); flag < 8 * flagBytes; ++flag) {
    if (!BitAt(flags, FlagBit(writing, flag))) continue;
    return Fail(error, "wrong flags",
                fmt::format("flag {} is set; expected those of {}, 0 to {}", flag,
                            Count(writing.records.size(), "writable attribute"), writing.records.size() - 1));
  }
  bool isAnySet = false;
  for (const Field& field : writing.fields) {
    FieldValue& value = reading_.values[field.flag];
    value.text.clear();
    value.result = {MorvixProtocolOutcomeAbsent_4_0, 0};
    if (!BitAt(flags, FlagBit(writing, field.flag))) continue;
    isAnySet = true;
    value.result = {MorvixProtocolOutcomeUnreadable_4_0, 0};
    if (!field.bits.IsEmpty()) static_cast<void>(ReadField(field, field.bits, reading_.payload, value));
  }
  if (!isAnySet) return Fail(error, "wrong flags", "no flag is set; expected one at least");
  NoteValues();
  return true;
}

Note PacketReader::NoteOf(NoteKind kind, const Field& field) const {
  const bool isRead = kind == NoteKind::kOutOfRange || kind == NoteKind::kNoItem;
  return {kind, &field, reading_.IsReceived() ? field.bitsInLonger : field.bits,
          isRead ? reading_.values[field.flag].result.raw : 0};
}

void PacketReader::NoteValues() {
  const size_t expected = reading_.direction->payloadBytes;
  if (reading_.payloadBytes > expected) {
    const BitRange surplus = {8 * uint64_t{expected}, 8 * uint64_t{reading_.payloadBytes}};
    reading_.notes.push_back({NoteKind::kSurplus, nullptr, surplus, 0});
  }
  for (const Field& field : reading_.direction->fields) NoteValue(field);
}

void PacketReader::NoteValue(const Field& field) {
  const MorvixProtocolOutcome_4_0 outcome = reading_.values[field.flag].result.outcome;
  const bool isCulprit = &field == reading_.culprit;
  if (outcome == MorvixProtocolOutcomeAbsent_4_0 || reading_.IsTold(field)) return;
  const bool isOutside = reading_.IsReceived() && field.bitsInLonger.EndByte() > reading_.payloadBytes;
  const bool isPassedOver = reading_.culprit != nullptr && !isCulprit &&
                            (!IsEnum(*reading_.culprit->attribute) || field.flag > reading_.culprit->flag);
  NoteKind kind = NoteKind::kNotReached;
  if (isOutside) {
    kind = NoteKind::kShort;
  } else if (!isPassedOver && outcome == MorvixProtocolOutcomeRefusedByItems_4_0) {
    kind = NoteKind::kNoItem;
  } else if (!isPassedOver && outcome == MorvixProtocolOutcomeRefusedByScaling_4_0) {
    kind = NoteKind::kOutOfRange;
  }
  reading_.notes.push_back(NoteOf(kind, field));
}

std::vector<Result> DecodeSilently(const EntityModel& entity, const std::vector<Attribute>& attributes,
                                   const byte* payload, size_t size) {
  const LogCapture silent;
  Json::Value unused;
  std::vector<Result> results;
  ProtocolDecodeAttributes_4_0(entity.Info(), attributes, PackageWith(payload, size), unused, results);
  return results;
}

std::string ValueText(const Field& field, const Result& result, const byte* payload) {
  FieldValue value = {result, ""};
  if (result.outcome == MorvixProtocolOutcomeDone_4_0) SetText(field, field.bitsInLonger, payload, value);
  return std::move(value.text);
}

// A text counts by the integer with which it begins.
int32_t ActiveInteger(const Attribute& attribute, const FieldValue& value) {
  if (IsBool(attribute)) return value.result.raw != 0 ? 1 : 0;
  return static_cast<int32_t>(std::strtoll(value.text.c_str(), nullptr, 0));
}

}  // namespace morvix::inspect
