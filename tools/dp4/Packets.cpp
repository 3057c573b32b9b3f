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

// The bits of a field that lie in one payload byte; a field's runs go from its highest bit to its lowest.
struct Run {
  size_t byteIndex;
  size_t high;  // numbered from the byte's lowest bit, 0
  size_t low;
};

std::vector<Run> RunsOf(const std::vector<size_t>& bits) {
  std::vector<Run> runs;
  for (auto bit = bits.rbegin(); bit != bits.rend(); ++bit) {
    const size_t number = 7 - *bit % 8;
    if (!runs.empty() && runs.back().byteIndex == *bit / 8) {
      runs.back().low = number;
    } else {
      runs.push_back({*bit / 8, number, number});
    }
  }
  return runs;
}

std::string BinaryText(const Run& run, const byte* payload) {
  std::string text;
  for (size_t number = run.high + 1; number-- > run.low;) {
    text += (payload[run.byteIndex] >> number & 1) != 0 ? '1' : '0';
  }
  return text;
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

std::string BitsText(const std::vector<size_t>& bits, const byte* payload) {
  const std::vector<Run> runs = RunsOf(bits);
  const bool isBytes =
      std::all_of(runs.begin(), runs.end(), [](const Run& run) { return run.high == 7 && run.low == 0; });
  std::string text;
  for (const Run& run : runs) {
    if (!text.empty()) text += ' ';
    text += isBytes ? HexText(payload + run.byteIndex, 1) : BinaryText(run, payload);
  }
  return text;
}

uint64_t RawValue(const std::vector<size_t>& bits, const byte* payload) {
  uint64_t raw = 0;
  for (auto bit = bits.rbegin(); bit != bits.rend(); ++bit) raw = raw << 1 | (payload[*bit / 8] >> (7 - *bit % 8) & 1);
  return raw;
}

}  // namespace dp4
