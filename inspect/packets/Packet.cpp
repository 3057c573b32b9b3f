#include "inspect/packets/Packet.h"

#include <fmt/format.h>

#include <array>
#include <iterator>

#include "host/Base64.h"
#include "inspect/model/BitRange.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

std::string Found(std::string_view text, size_t at) {
  if (at >= text.size()) return "the end";
  if (IsBlank(text[at])) return "a blank";
  if ((text[at] & 0x80) != 0) return "a character beyond ASCII";
  return "'" + Escaped(text.substr(at, 1)) + "'";
}

constexpr byte kNoDigit = 0xff;

constexpr byte DigitValue(size_t c) {
  if (c >= '0' && c <= '9') return static_cast<byte>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<byte>(c - 'a' + 10);
  return c >= 'A' && c <= 'F' ? static_cast<byte>(c - 'A' + 10) : kNoDigit;
}

constexpr std::array<byte, 256> MakeDigitValues() {
  std::array<byte, 256> values{};
  for (size_t c = 0; c < values.size(); ++c) values[c] = DigitValue(c);
  return values;
}

// The value of each character as a hexadecimal digit.
constexpr std::array<byte, 256> kDigitValues = MakeDigitValues();

byte DigitAt(std::string_view text, size_t at) {
  return at < text.size() ? kDigitValues[static_cast<unsigned char>(text[at])] : kNoDigit;
}

// Reads one text. Each step moves on in it, or sets the error.
class HexParser {
 public:
  HexParser(std::string_view text, Bytes& bytes, HexError& error) : text_(text), bytes_(bytes), error_(error) {}

  bool Parse() {
    bytes_.clear();
    SkipBlanks();
    if (IsAt('{')) {
      isBraced_ = true;
      ++at_;
      SkipBlanks();
    }
    if (at_ == text_.size()) return Fail("hexadecimal digits");
    for (bool isFirst = true;; isFirst = false) {
      if (!ParseGroup(isFirst)) return false;
      bool isEnd = false;
      if (!ParseSeparator(isFirst, isEnd)) return false;
      if (isEnd) return true;
    }
  }

 private:
  enum class Separator { kBlanks, kColon, kComma };

  bool IsAt(char c) const { return at_ < text_.size() && text_[at_] == c; }

  void SkipBlanks() {
    while (at_ < text_.size() && IsBlank(text_[at_])) ++at_;
  }

  bool Fail(const char* expected) {
    error_ = {at_ + 1, fmt::format("expected {}, found {}", expected, Found(text_, at_))};
    return false;
  }

  bool ParseGroup(bool isFirst) {
    const size_t begin = at_;
    const bool hasPrefix = IsAt('0') && at_ + 1 < text_.size() && (text_[at_ + 1] == 'x' || text_[at_ + 1] == 'X');
    if (!isFirst && hasPrefix != hasPrefix_) return Fail(hasPrefix_ ? "0x before each group" : "no 0x before a group");
    hasPrefix_ = hasPrefix;
    if (hasPrefix) at_ += 2;
    if (DigitAt(text_, at_) == kNoDigit) return Fail(IsAt(':') || IsAt(',') ? "a byte" : "a hexadecimal digit");
    const size_t first = at_;
    for (byte high = DigitAt(text_, at_); high != kNoDigit; high = DigitAt(text_, at_)) {
      const byte low = DigitAt(text_, ++at_);
      if (low == kNoDigit) return Fail("the second hexadecimal digit of a byte");
      bytes_.push_back(static_cast<byte>(high << 4 | low));
      ++at_;
    }
    const size_t length = at_ - first;
    if (isFirst) groupLength_ = length;
    if (length > groupLength_ || isShort_) {
      at_ = begin;
      return Fail(isShort_ ? "the end after a shorter group" : "groups of digits of one length");
    }
    isShort_ = length < groupLength_;
    return true;
  }

  bool ParseSeparator(bool isFirst, bool& isEnd) {
    const size_t begin = at_;
    SkipBlanks();
    const bool isComma = IsAt(',');
    const bool isColon = IsAt(':') && at_ == begin;
    if (isComma || isColon) ++at_;
    if (isComma) SkipBlanks();
    if (at_ == text_.size() || (isBraced_ && IsAt('}') && !isColon)) return ParseEnd(isComma || isColon, isEnd);
    if (!isComma && !isColon && at_ == begin) return Fail("a hexadecimal digit");
    const Separator separator = isComma ? Separator::kComma : isColon ? Separator::kColon : Separator::kBlanks;
    if (isFirst) separator_ = separator;
    if (separator == separator_) return true;
    at_ = begin;
    return Fail(separator_ == Separator::kBlanks  ? "a blank, as before"
                : separator_ == Separator::kColon ? "a colon, as before"
                                                  : "a comma, as before");
  }

  bool ParseEnd(bool isAfterMark, bool& isEnd) {
    if (!isBraced_) return isAfterMark ? Fail("a byte") : (isEnd = true);
    if (!IsAt('}')) return Fail("a closing brace");
    ++at_;
    SkipBlanks();
    isEnd = at_ == text_.size();
    return isEnd || Fail("the end");
  }

  const std::string_view text_;
  Bytes& bytes_;
  HexError& error_;
  size_t at_ = 0;
  bool isBraced_ = false;
  bool hasPrefix_ = false;
  bool isShort_ = false;    // a group has been shorter than the first
  size_t groupLength_ = 0;  // of the first
  Separator separator_ = Separator::kBlanks;
};

std::string CArrayText(const Bytes& packet, std::string_view name) {
  constexpr size_t kBytesPerLine = 12;
  std::string text = fmt::format("const unsigned char {}[{}] = {{", name, packet.size());
  for (size_t i = 0; i < packet.size(); ++i) {
    fmt::format_to(std::back_inserter(text), "{}0x{:02x},", i % kBytesPerLine == 0 ? "\n    " : " ", packet[i]);
  }
  return text + "\n};\n";
}

}  // namespace

bool ParseHex(std::string_view text, Bytes& bytes, HexError& error) { return HexParser(text, bytes, error).Parse(); }

const char* CommandName(uint32_t command) {
  static constexpr const char* kNames[] = {nullptr, "write",  "read",      "read-response", "notify",
                                           nullptr, nullptr,  "cc-write",  "cc-read",       nullptr,
                                           nullptr, "cc-add", "cc-delete", "cc-list"};
  return command < std::size(kNames) ? kNames[command] : nullptr;
}

bool IsWriteCommand(uint32_t command) {
  return command == MorvixProtocolCommandWriteReq_4_0 || command == MorvixProtocolCommandCCWriteReq_4_0;
}

bool IsResponseCommand(uint32_t command) {
  return command == MorvixProtocolCommandReadResp_4_0 || command == MorvixProtocolCommandNotifyResp_4_0;
}

std::string Base64Text(const byte* data, size_t size) {
  std::string text((size + 2) / 3 * 4 + 1, '\0');
  return __internal_base64_encode(text.data(), static_cast<uint32_t>(text.size()), data, size);
}

std::string PacketText(const Bytes& packet, PacketForm form, std::string_view name) {
  switch (form) {
    case PacketForm::kCArray:
      return CArrayText(packet, name);
    case PacketForm::kBase64:
      return Base64Text(packet.data(), packet.size()) + '\n';
    case PacketForm::kBinary:
      return {packet.begin(), packet.end()};
    default:
      return HexText(packet.data(), packet.size()) + '\n';
  }
}

std::string CComment(std::string_view text) {
  std::string comment = "/*\n";
  bool isLineStart = true;
  for (const char c : text) {
    if (isLineStart && c != '\n') comment += ' ';
    const bool isMark = (c == '/' && comment.back() == '*') || (c == '*' && comment.back() == '/');
    if (isMark) comment += ' ';
    comment += c;
    isLineStart = c == '\n';
  }
  return comment + (isLineStart ? " */\n" : "\n */\n");
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
