#include "inspect/packets/Packet.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>

#include "host/Base64.h"
#include "inspect/model/BitRange.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

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

// Parses the adjacent digits from `at` on and moves `at` to their end.
bool ParseDigits(const std::string& text, size_t& at, Bytes& bytes, HexError& error) {
  if (text.compare(at, 2, "0x") == 0 || text.compare(at, 2, "0X") == 0) at += 2;
  do {
    const char* first = text.data() + at;
    unsigned value = 0;
    const auto digits = std::from_chars(first, first + std::min<size_t>(text.size() - at, 2), value, 16).ptr - first;
    if (digits == 0) return FailAt(text, at, "a hexadecimal digit", error);
    if (digits == 1) return FailAt(text, at + 1, "the second hexadecimal digit of a byte", error);
    bytes.push_back(static_cast<byte>(value));
    at += 2;
  } while (at < text.size() && !IsBlank(text[at]) && text[at] != ':' && text[at] != ',');
  return true;
}

std::string CArrayText(const Bytes& packet) {
  constexpr size_t kBytesPerLine = 12;
  std::string text = fmt::format("const unsigned char packet[{}] = {{", packet.size());
  for (size_t i = 0; i < packet.size(); ++i) {
    fmt::format_to(std::back_inserter(text), "{}0x{:02x},", i % kBytesPerLine == 0 ? "\n    " : " ", packet[i]);
  }
  return text + "\n};\n";
}

}  // namespace

bool ParseHex(const std::string& text, Bytes& bytes, HexError& error) {
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

std::string Base64Text(const byte* data, size_t size) {
  std::string text((size + 2) / 3 * 4 + 1, '\0');
  return __internal_base64_encode(text.data(), static_cast<uint32_t>(text.size()), data, size);
}

std::string PacketText(const Bytes& packet, PacketForm form) {
  switch (form) {
    case PacketForm::kCArray:
      return CArrayText(packet);
    case PacketForm::kBase64:
      return Base64Text(packet.data(), packet.size()) + '\n';
    case PacketForm::kBinary:
      return {packet.begin(), packet.end()};
    default:
      return HexText(packet.data(), packet.size()) + '\n';
  }
}

Bytes PackPackage(const MorvixProtocolPackage_4_0& package) {
  Bytes buffer(MorvixProtocolMaxPacketBytes_4_0);
  buffer.resize(ProtocolPackPackage_4_0(package, buffer.data(), buffer.size() - MorvixProtocolSubDidBytes_4_0));
  return buffer;
}

Bytes RequestPacket(MorvixProtocolCommand_4_0 command, const std::string& name, std::optional<int32_t> subDevice) {
  MorvixProtocolPackage_4_0 package;
  package.cmd = command;
  const Bytes anonymous = PackPackage(package);
  package.subDid = subDevice.value_or(0);
  package.needInsertSubDid = 1;
  const Bytes addressed = PackPackage(package);
  // The module refuses a request that lacks its sub-device, and ignores a sub-device that a request does not name.
  if (!subDevice && anonymous.empty()) throw InputError(name + " is for one sub-device; expected --sub-device ID");
  if (subDevice && addressed == anonymous) throw InputError(name + " names no sub-device; expected no --sub-device");
  return subDevice ? addressed : anonymous;
}

}  // namespace morvix::inspect
