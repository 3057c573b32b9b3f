#include "inspect/packets/Reading.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/Base64.h"
#include "host/Logging.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

std::string Base64Of(const BitRange& bits, const byte* payload) {
  const size_t size = bits.EndByte() - bits.FirstByte();
  std::string text((size + 2) / 3 * 4 + 1, '\0');
  return __internal_base64_encode(text.data(), static_cast<uint32_t>(text.size()), payload + bits.FirstByte(), size);
}

MorvixProtocolPackage_4_0 PackageOf(const Bytes& packet) {
  MorvixProtocolPackage_4_0 package;
  package.cmd = static_cast<MorvixProtocolCommand_4_0>(packet[0]);
  package.value = const_cast<byte*>(packet.data()) + 1;  // decoding only reads
  package.sizeValue = packet.size() - 1;
  return package;
}

// What the fields after the culprit hold, which decoding did not reach: each on its own.
void ReadAlone(const EntityModel& entity, const MorvixProtocolPackage_4_0& package, size_t from,
               std::vector<Result>& results) {
  const LogCapture silent;
  for (size_t i = from; i < results.size(); ++i) {
    Json::Value unused;
    std::vector<Result> result;
    ProtocolDecodeAttributes_4_0(entity.Info(), {entity.Reading().records[i]}, package, unused, result);
    results[i] = result[0];
  }
}

}  // namespace

std::string RefusalOf(const Bytes& packet) {
  MorvixProtocolOwnedPackage_4_0 package;
  if (ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package)) return "";
  if (packet.size() < 2) return "too short; expected a command byte and at least one byte of payload";
  if (package.sizeValue != 0) {
    return fmt::format("too long; expected a command byte and at most {} bytes of payload",
                       MorvixProtocolMaxPayloadBytes_4_0);
  }
  return fmt::format("command {:02x} is not received; expected 03 (read response) or 04 (notification)", packet[0]);
}

PacketReading ReadPacket(const EntityModel& entity, const Bytes& packet) {
  PacketReading reading;
  const MorvixProtocolPackage_4_0 package = PackageOf(packet);
  reading.command = package.cmd;
  reading.document = Json::Value(Json::objectValue);
  const Direction& fields = entity.Reading();
  ProtocolDecodeAttributes_4_0(entity.Info(), fields.records, package, reading.document, reading.results);
  const auto culprit = std::find_if(fields.fields.begin(), fields.fields.end(), [&](const Field& field) {
    return !DecodeLine(*field.attribute, reading.results[field.flag]).empty();
  });
  reading.culprit = culprit == fields.fields.end() ? nullptr : &*culprit;
  if (reading.culprit != nullptr) ReadAlone(entity, package, reading.culprit->flag + 1, reading.results);
  return reading;
}

std::string ValueText(const Field& field, const Result& result, const byte* payload) {
  if (result.outcome != MorvixProtocolOutcomeDone_4_0) return "";
  const Attribute& attribute = *field.attribute;
  if (IsBool(attribute)) return result.raw != 0 ? "true" : "false";
  if (IsEnum(attribute)) return std::to_string(result.raw);
  return IsNumber(attribute) ? UserText(attribute, result.raw) : Base64Of(field.bitsInLonger, payload);
}

std::string FailureText(const EntityModel& entity, const PacketReading& reading, const Bytes& packet) {
  const Attribute& culprit = *reading.culprit->attribute;
  const std::string text =
      InQuotes(culprit.name) + " unreadable: " + DecodeLine(culprit, reading.results[reading.culprit->flag]);
  if (IsEnum(culprit)) {
    const size_t items = culprit.enumList.size();
    return text + (items == 0 ? " (it has no items)" : fmt::format(" (expected 0 to {})", items - 1));
  }
  const size_t found = packet.size() - 1;
  const size_t expected = entity.Reading().payloadBytes;
  if (found >= expected) return text + " (nothing can be read from its place; dp4 lint tells why)";
  return fmt::format("{} (expected {} bytes of payload, found {})", text, expected, found);
}

}  // namespace morvix::inspect
