// Conversion of packets between bytes and text, and the names of the commands.

#ifndef MORVIX_INSPECT_PACKETS_PACKET_H
#define MORVIX_INSPECT_PACKETS_PACKET_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"

namespace morvix::inspect {

using Bytes = std::vector<byte>;

// Why a string is not a packet, and the column of the error, counted from 1.
struct HexError {
  size_t column = 1;
  std::string message;
};

// The bytes of hexadecimal text: two digits a byte, with or without blanks, one colon or one comma between bytes, and
// 0x before each run of digits. False, with `error` set, for anything else.
bool ParseHex(const std::string& text, Bytes& bytes, HexError& error);

std::string Base64Text(const byte* data, size_t size);

// The output forms of a packet.
enum class PacketForm { kHex, kCArray, kBase64, kBinary };

// All forms except binary end with a line feed.
std::string PacketText(const Bytes& packet, PacketForm form);

// The bytes to which the module serializes `package`; empty when it refuses.
Bytes PackPackage(const MorvixProtocolPackage_4_0& package);

// The packet of a request without payload. Throws InputError when the command needs a sub-device and has none, or the
// other way round; messages call the command `name`.
Bytes RequestPacket(MorvixProtocolCommand_4_0 command, const std::string& name, std::optional<int32_t> subDevice);

}  // namespace morvix::inspect

#endif
