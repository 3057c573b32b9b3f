// Conversion of packets between bytes and text, and the names of the commands.

#ifndef MORVIX_INSPECT_PACKETS_PACKET_H
#define MORVIX_INSPECT_PACKETS_PACKET_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"

namespace morvix::inspect {

using Bytes = std::vector<byte>;

// "write", "read", "read-response", "notify", "cc-write", "cc-read", "cc-add", "cc-delete" or "cc-list"; null for a
// command that no packet of version 4.0 carries.
const char* CommandName(uint32_t command);

// Commands with the values of writable attributes: "write" and "cc-write".
bool IsWriteCommand(uint32_t command);

// Commands by which a device tells all of its values: "read-response" and "notify".
bool IsResponseCommand(uint32_t command);

// Why a text is not a packet, and the column, counted from 1, where that shows.
struct HexError {
  size_t column = 1;
  std::string message;
};

// The bytes of hexadecimal text: one run of digits; or groups of digits, all of one even length except for the last
// one, which may be shorter, with the same separator between all of them: blanks, a colon, or a comma with or without
// blanks. 0x may stand before every group, and braces around the whole; a comma may then follow the last group, as in
// C. False with `error` set for anything else: a time of day before a packet is not taken for a part of it.
bool ParseHex(std::string_view text, Bytes& bytes, HexError& error);

std::string Base64Text(const byte* data, size_t size);

// The output forms of a packet.
enum class PacketForm { kHex, kCArray, kBase64, kBinary };

// All but binary end their line. `name` is that of the array of C.
std::string PacketText(const Bytes& packet, PacketForm form, std::string_view name = "packet");

// A comment of C that holds the text. What would end it early is taken apart.
std::string CComment(std::string_view text);

// The bytes to which the module serializes `package`; empty when it refuses.
Bytes PackPackage(const MorvixProtocolPackage_4_0& package);

// The packet of a request without payload. Throws InputError when the command needs a sub-device and has none, or the
// other way round; messages call the command `name`.
Bytes RequestPacket(MorvixProtocolCommand_4_0 command, const std::string& name, std::optional<int32_t> subDevice);

}  // namespace morvix::inspect

#endif
