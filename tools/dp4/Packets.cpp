#include "Packets.h"

#include <algorithm>
#include <cctype>

#include "Text.h"
#include "host/Base64.h"

namespace dp4 {

namespace {

const char kHexDigits[] = "0123456789abcdef";

// The limits of the module, with room for the id that its own test of the capacity leaves out.
constexpr size_t kMaxPacketBytes = 1 + 1024 + 16384;
constexpr size_t kSubDidBytes = 4;

bool IsHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

unsigned DigitValue(char c) {
  const int digit = std::tolower(static_cast<unsigned char>(c));
  return static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
}

std::string Found(const std::string& text, size_t at) {
  if (at >= text.size()) return "the end";
  if (IsBlank(text[at])) return "a blank";
  if ((text[at] & 0x80) != 0) return "a character beyond ASCII";
  return "'" + Escaped(text.substr(at, 1)) + "'";
}

bool FailAt(const std::string& text, size_t at, const std::string& expected, HexError& error) {
  error = {at + 1, "expected " + expected + ", found " + Found(text, at)};
  return false;
}

// The digits that stand together from `at` on, which ends behind them.
bool ParseDigits(const std::string& text, size_t& at, std::vector<byte>& bytes, HexError& error) {
  if (text.compare(at, 2, "0x") == 0 || text.compare(at, 2, "0X") == 0) at += 2;
  do {
    if (at >= text.size() || !IsHexDigit(text[at])) return FailAt(text, at, "a hexadecimal digit", error);
    if (at + 1 >= text.size() || !IsHexDigit(text[at + 1])) {
      return FailAt(text, at + 1, "the second hexadecimal digit of a byte", error);
    }
    bytes.push_back(static_cast<byte>(DigitValue(text[at]) << 4 | DigitValue(text[at + 1])));
    at += 2;
  } while (at < text.size() && !IsBlank(text[at]) && text[at] != ':' && text[at] != ',');
  return true;
}

std::string CArrayText(const std::vector<byte>& packet) {
  constexpr size_t kBytesPerLine = 12;
  std::string text = "const unsigned char packet[" + std::to_string(packet.size()) + "] = {";
  for (size_t i = 0; i < packet.size(); ++i) {
    text += i % kBytesPerLine == 0 ? "\n    0x" : " 0x";
    text += {kHexDigits[packet[i] >> 4], kHexDigits[packet[i] & 0x0f], ','};
  }
  return text + "\n};\n";
}

std::string Base64Text(const std::vector<byte>& packet) {
  std::vector<char> buffer((packet.size() + 2) / 3 * 4 + 1);
  return __internal_base64_encode(buffer.data(), static_cast<uint32_t>(buffer.size()), packet.data(), packet.size());
}

}  // namespace

bool ParseHex(const std::string& text, std::vector<byte>& bytes, HexError& error) {
  bytes.clear();
  bool isByteDue = true;  // at the start and after a mark
  for (size_t at = 0;;) {
    while (at < text.size() && IsBlank(text[at])) ++at;
    if (at == text.size()) {
      if (!isByteDue) return true;
      return FailAt(text, at, bytes.empty() ? "hexadecimal digits" : "a byte", error);
    }
    if (text[at] == ':' || text[at] == ',') {
      if (isByteDue) return FailAt(text, at, "a byte", error);
      isByteDue = true;
      ++at;
      continue;
    }
    if (!ParseDigits(text, at, bytes, error)) return false;
    isByteDue = false;
  }
}

std::string HexText(const byte* data, size_t size) {
  std::string text;
  text.reserve(3 * size);
  for (size_t i = 0; i < size; ++i) {
    if (i != 0) text += ' ';
    text += {kHexDigits[data[i] >> 4], kHexDigits[data[i] & 0x0f]};
  }
  return text;
}

std::string PacketText(const std::vector<byte>& packet, const std::string& form) {
  if (form == "hex") return HexText(packet.data(), packet.size()) + '\n';
  if (form == "c-array") return CArrayText(packet);
  if (form == "base64") return Base64Text(packet) + '\n';
  if (form == "binary") return {packet.begin(), packet.end()};
  throw UsageError("--output " + Escaped(form) + ": expected hex, c-array, base64 or binary");
}

std::vector<byte> PackPackage(const MorvixProtocolPackage_4_0& package) {
  std::vector<byte> buffer(kMaxPacketBytes + kSubDidBytes);
  buffer.resize(ProtocolPackPackage_4_0(package, buffer.data(), kMaxPacketBytes));
  return buffer;
}

bool BitAt(const byte* payload, uint64_t bit) { return (payload[bit / 8] & 0x80 >> bit % 8) != 0; }

std::string BitsText(const BitRange& bits, const byte* payload) {
  const size_t bytes = bits.EndByte() - bits.FirstByte();
  if (bits.begin % 8 == 0 && bits.end % 8 == 0) return HexText(payload + bits.FirstByte(), bytes);
  std::string text;
  for (uint64_t bit = bits.begin; bit < bits.end; ++bit) {
    if (bit % 8 == 0 && !text.empty()) text += ' ';
    text += BitAt(payload, bit) ? '1' : '0';
  }
  return text;
}

uint64_t RawValue(const BitRange& bits, const byte* payload) {
  uint64_t raw = 0;
  for (uint64_t bit = bits.begin; bit < bits.end; ++bit) raw = raw << 1 | (BitAt(payload, bit) ? 1 : 0);
  return raw;
}

}  // namespace dp4
