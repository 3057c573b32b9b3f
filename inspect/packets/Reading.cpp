#include "inspect/packets/Reading.h"

#include <fmt/format.h>

#include "host/Logging.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

MorvixProtocolPackage_4_0 PackageWith(const byte* payload, size_t size) {
  MorvixProtocolPackage_4_0 package;
  package.value = const_cast<byte*>(payload);  // decoding only reads
  package.sizeValue = size;
  return package;
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

std::vector<Result> DecodeSilently(const EntityModel& entity, const std::vector<Attribute>& attributes,
                                   const byte* payload, size_t size) {
  const LogCapture silent;
  Json::Value unused;
  std::vector<Result> results;
  ProtocolDecodeAttributes_4_0(entity.Info(), attributes, PackageWith(payload, size), unused, results);
  return results;
}

PacketReading ReadPacket(const EntityModel& entity, const Bytes& packet) {
  const byte* payload = packet.data() + 1;
  const size_t size = packet.size() - 1;
  const std::vector<Attribute>& records = entity.Reading().records;
  PacketReading reading = {static_cast<MorvixProtocolCommand_4_0>(packet[0]), Json::objectValue, {}, nullptr};
  ProtocolDecodeAttributes_4_0(entity.Info(), records, PackageWith(payload, size), reading.document, reading.results);
  for (const Field& field : entity.Reading().fields) {
    Result& result = reading.results[field.flag];
    if (reading.culprit != nullptr) {
      // Decoding did not reach it, so it is read on its own.
      result = DecodeSilently(entity, {*field.attribute}, payload, size)[0];
    } else if (!DecodeLine(*field.attribute, result).empty()) {
      reading.culprit = &field;
    }
  }
  return reading;
}

std::string ValueText(const Field& field, const Result& result, const byte* payload) {
  if (result.outcome != MorvixProtocolOutcomeDone_4_0) return "";
  const Attribute& attribute = *field.attribute;
  if (IsBool(attribute)) return result.raw != 0 ? "true" : "false";
  if (IsEnum(attribute)) return std::to_string(result.raw);
  if (IsNumber(attribute)) return UserText(attribute, result.raw);
  const BitRange& bits = field.bitsInLonger;
  return Base64Text(payload + bits.FirstByte(), bits.EndByte() - bits.FirstByte());
}

std::string FailureText(const EntityModel& entity, const PacketReading& reading, const Bytes& packet) {
  if (reading.culprit == nullptr) return "";
  const Attribute& culprit = *reading.culprit->attribute;
  const size_t found = packet.size() - 1;
  const size_t expected = entity.Reading().payloadBytes;
  std::string reason = fmt::format("expected {} bytes of payload, found {}", expected, found);
  if (found >= expected) reason = "nothing can be read from its place; dp4 lint tells why";
  if (IsEnum(culprit)) reason = ExpectedIndex(culprit);
  return fmt::format("{} unreadable: {} ({})", InQuotes(culprit.name),
                     DecodeLine(culprit, reading.results[reading.culprit->flag]), reason);
}

}  // namespace morvix::inspect
