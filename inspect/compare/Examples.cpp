#include "inspect/compare/Examples.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

#include "host/Logging.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

constexpr byte kWrite = MorvixProtocolCommandWriteReq_4_0;
constexpr byte kNotification = MorvixProtocolCommandNotifyResp_4_0;

// 1, 2, 3 ... in a binary.
byte BinaryByte(size_t index) { return static_cast<byte>(index + 1); }

void SetBits(const BitRange& bits, uint64_t raw, byte* payload) {
  for (uint64_t bit = bits.end; bit-- > bits.begin; raw >>= 1) {
    if ((raw & 1) != 0) payload[bit / 8] = static_cast<byte>(payload[bit / 8] | 0x80 >> bit % 8);
  }
}

void SetValue(const Field& field, uint64_t raw, byte* payload) {
  if (!IsBinary(*field.attribute)) return SetBits(field.bits, raw, payload);
  for (size_t i = field.bits.FirstByte(); i < field.bits.EndByte(); ++i) {
    payload[i] = BinaryByte(i - field.bits.FirstByte());
  }
}

// The largest raw value of a device, or the one that ends in the most ones.
uint64_t FullRaw(const Side& side, bool ofOnes) {
  const uint64_t largest = LargestRaw(side);
  const Attribute& attribute = side.Record();
  const auto least = IsNumber(attribute) ? static_cast<uint64_t>(attribute.uint_spec.min) : uint64_t{0};
  if (!ofOnes || largest == UINT64_MAX) return largest;
  for (int count = 63; count > 0; --count) {
    const uint64_t next = (largest + 1) >> count << count;
    if (next > least) return next - 1;
  }
  return largest;
}

bool FitsPacket(const Direction& direction) { return direction.payloadBytes <= MorvixProtocolMaxPayloadBytes_4_0; }

// The value with which the application asks for a raw value.
Json::Value ApplicationValue(const Field& field, uint64_t raw) {
  const Attribute& attribute = *field.attribute;
  if (IsBool(attribute)) return raw != 0;
  if (IsEnum(attribute)) return static_cast<Json::UInt>(raw);
  if (IsNumber(attribute)) {
    const std::string text = UserText(attribute, raw);
    if (!text.empty()) return text;
    return static_cast<double>(raw) * attribute.uint_spec.ratio + attribute.uint_spec.addition;
  }
  Bytes bytes(static_cast<size_t>(field.bits.Length() / 8));
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = BinaryByte(i);
  return Base64Text(bytes.data(), bytes.size());
}

// Of a result that ends an encode or decode.
std::string WhyRefused(const Result& result) {
  switch (result.outcome) {
    case MorvixProtocolOutcomeRefusedByItems_4_0:
      return fmt::format("no item has the index {}", result.raw);
    case MorvixProtocolOutcomeRefusedByScaling_4_0:
      return "the number is out of range";
    default:
      return "it has no place there";
  }
}

// "target = 85" of what a device finds in the place of one attribute whose flag is set.
std::string Setting(const Field& field, const byte* payload, size_t size) {
  const std::string name = NameText(field.attribute->name) + " = ";
  if (field.bits.IsEmpty() || field.bits.EndByte() > size) return name + "nothing";
  if (!IsBinary(*field.attribute)) return name + RawText(*field.attribute, RawValue(field.bits, payload));
  return name + Shortened(ContentText(field.bits, payload), 30);
}

// What a device makes of a write: its settings as far as it knows them, and whether the length is what it expects.
std::string DeviceMeaning(const EntityModel& device, const Bytes& packet) {
  const Direction& writing = device.Writing();
  const size_t flagBytes = FlagBytes(writing);
  const size_t expected = 1 + flagBytes + writing.payloadBytes;
  std::vector<std::string> settings;
  if (packet.size() > flagBytes) {
    const byte* payload = packet.data() + 1 + flagBytes;
    const size_t size = packet.size() - 1 - flagBytes;
    for (size_t flag = 0; flag < 8 * flagBytes; ++flag) {
      if (!BitAt(packet.data() + 1, FlagBit(writing, flag))) continue;
      settings.push_back(flag < writing.fields.size() ? Setting(writing.fields[flag], payload, size)
                                                      : fmt::format("the unknown flag {}", flag));
    }
  }
  std::string meaning = settings.empty() ? "nothing is set" : Listed(settings, settings.size());
  if (packet.size() != expected) {
    const bool isLong = packet.size() > expected;
    meaning += fmt::format(", {} too {}", Count(isLong ? packet.size() - expected : expected - packet.size(), "byte"),
                           isLong ? "long" : "short");
  }
  return meaning;
}

}  // namespace

uint64_t LargestRaw(const Side& side) {
  const Attribute& attribute = side.Record();
  const Field& field = *(side.Read() != nullptr ? side.Read() : side.Written());
  const uint64_t full = field.bits.IsEmpty() ? UINT64_MAX : field.bits.MaxValue();
  if (IsBool(attribute)) return 1;
  if (IsEnum(attribute)) return std::min<uint64_t>(std::max<size_t>(attribute.enumList.size(), 1) - 1, full);
  return IsNumber(attribute) ? std::min(static_cast<uint64_t>(attribute.uint_spec.max), full) : 0;
}

std::string RawText(const Attribute& attribute, uint64_t raw) {
  if (IsBool(attribute)) return raw != 0 ? "true" : "false";
  if (IsEnum(attribute)) {
    const bool hasItem = raw < attribute.enumList.size();
    return fmt::format("{} ({})", raw, hasItem ? NameText(attribute.enumList[static_cast<size_t>(raw)]) : "no item");
  }
  const std::string text = UserText(attribute, raw);
  return text.empty() ? fmt::format("raw {}, which is out of range", raw) : text;
}

ShownPacket ShownWrite(const Side& side, uint64_t raw, const EntityModel& device) {
  const Field* field = side.Written();
  if (field == nullptr) return {{}, "it cannot be written"};
  const Direction& writing = side.entity->Writing();
  if (!FitsPacket(writing)) return {{}, "no packet is long enough"};
  // The attribute alone, in a payload as long as that of all.
  Attribute record = *field->attribute;
  record.name = "value";
  Attribute rest;
  rest.data_type = MorvixProtocolDataTypeBinary_4_0;
  rest.position.len = static_cast<int32_t>(writing.payloadBytes);
  Json::Value document;
  document[side.entity->Info().name]["value"] = ApplicationValue(*field, raw);
  MorvixProtocolOwnedPackage_4_0 package;
  std::vector<Result> results;
  {
    const LogCapture silent;
    ProtocolEncodeAttributes_4_0(side.entity->Info(), {record, rest}, package, document, results);
  }
  if (package.sizeValue == 0 || results.empty() || results[0].outcome != MorvixProtocolOutcomeDone_4_0) {
    return {{}, results.empty() ? "nothing is sent" : "nothing is sent: " + WhyRefused(results[0])};
  }
  Bytes packet = {kWrite};
  packet.resize(1 + FlagBytes(writing));
  SetBits({FlagBit(writing, field->flag), FlagBit(writing, field->flag) + 1}, 1, packet.data() + 1);
  packet.insert(packet.end(), package.value, package.value + package.sizeValue);
  return {packet, DeviceMeaning(device, packet)};
}

Bytes Zeros(const EntityModel& device) {
  Bytes packet(1 + std::min(device.Reading().payloadBytes, MorvixProtocolMaxPayloadBytes_4_0));
  packet[0] = kNotification;
  return packet;
}

std::optional<Bytes> Fullest(const EntityModel& device, bool ofOnes) {
  Bytes packet = Zeros(device);
  for (const Field& field : device.Reading().fields) {
    if (field.bits.IsEmpty() || field.bits.EndByte() >= packet.size()) continue;
    if (IsBinary(*field.attribute)) {
      std::fill(packet.begin() + 1 + static_cast<std::ptrdiff_t>(field.bits.FirstByte()),
                packet.begin() + 1 + static_cast<std::ptrdiff_t>(field.bits.EndByte()), byte{0xff});
      continue;
    }
    SetBits(field.bits, FullRaw({&device, field.element}, ofOnes), packet.data() + 1);
  }
  const LogCapture silent;
  PacketReader reader(device);
  PacketError error;
  const PacketReading* reading = reader.Read(packet, error);
  if (reading == nullptr || reading->culprit != nullptr) return std::nullopt;
  return packet;
}

std::string MeaningOf(const Side& side, const Bytes& notification) {
  const Attribute& attribute = side.Record();
  const std::string name = NameText(DocumentKey(attribute));
  if (side.Read() == nullptr) return "no " + name;
  const byte* payload = notification.data() + 1;
  const Result result = DecodeSilently(*side.entity, {*side.Read()->attribute}, payload, notification.size() - 1)[0];
  if (!DecodeLine(attribute, result).empty()) return fmt::format("the decode ends at {}, {}", name, WhyRefused(result));
  if (result.outcome != MorvixProtocolOutcomeDone_4_0) return "no " + name;
  if (!IsBinary(attribute)) return name + " = " + RawText(attribute, result.raw);
  return name + " = " + Shortened(ContentText(side.Read()->bitsInLonger, payload), 30);
}

namespace {

// A notification of a device, in which one attribute has a raw value.
Bytes Notification(const Side& sent, uint64_t raw) {
  Bytes packet = Zeros(*sent.entity);
  const Field* field = sent.Read();
  if (field != nullptr && field->bits.EndByte() < packet.size()) SetValue(*field, raw, packet.data() + 1);
  return packet;
}

}  // namespace

ShownPacket ShownAmongOnes(const Side& sent, uint64_t raw, const Side& moved, const Side& reader) {
  Bytes packet = Notification(sent, raw);
  const BitRange own = sent.Read() != nullptr ? sent.Read()->bits : BitRange();
  const BitRange more = moved.Read() != nullptr ? moved.Read()->bits : BitRange();
  for (uint64_t bit = more.begin; bit < more.end && bit / 8 + 1 < packet.size(); ++bit) {
    if (bit < own.begin || bit >= own.end) SetBits({bit, bit + 1}, 1, packet.data() + 1);
  }
  return {packet, MeaningOf(reader, packet)};
}

ShownPacket ShownNotification(const Side& sent, uint64_t raw, const Side& reader) {
  const Bytes packet = Notification(sent, raw);
  return {packet, MeaningOf(reader, packet)};
}

}  // namespace morvix::inspect
