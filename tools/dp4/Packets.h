// Packets between bytes and text, and the pieces of text that the packet commands share.

#ifndef MORVIX_DP4_PACKETS_H
#define MORVIX_DP4_PACKETS_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "Input.h"

namespace dp4 {

// Why a text is no row of bytes, and the column of it, counted from 1, where that shows.
struct HexError {
  size_t column = 1;
  std::string message;
};

// The bytes of hexadecimal text: two digits a byte, with or without blanks, one colon or one comma between bytes, and
// 0x before the first of digits that stand together. False with `error` set for anything else.
bool ParseHex(const std::string& text, std::vector<byte>& bytes, HexError& error);

// "01 0a ff".
std::string HexText(const byte* data, size_t size);

// A packet in one of the forms of --output: "hex", "c-array", "base64" or "binary"; all but the last end their line.
// Throws UsageError for another form.
std::string PacketText(const std::vector<byte>& packet, const std::string& form);

// The bytes that the module lays `package` out as; empty when it refuses.
std::vector<byte> PackPackage(const MorvixProtocolPackage_4_0& package);

bool BitAt(const byte* payload, uint64_t bit);

// What stands in bits of a payload: whole bytes in hexadecimal, others in binary, a blank between bytes.
std::string BitsText(const BitRange& bits, const byte* payload);

// The same as a number; `bits` are at most 64.
uint64_t RawValue(const BitRange& bits, const byte* payload);

}  // namespace dp4

#endif
