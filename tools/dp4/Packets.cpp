#include "Packets.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "Show.h"
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

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// How many letters were left out, added, mistaken or swapped with their neighbour.
size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> beforePrevious;
  std::vector<size_t> previous(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    std::vector<size_t> current(b.size() + 1);
    current[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t mistaken = Lower(a[i - 1]) == Lower(b[j - 1]) ? 0 : 1;
      current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + mistaken});
      const bool isSwapped = i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1]);
      if (isSwapped) current[j] = std::min(current[j], beforePrevious[j - 2] + 1);
    }
    beforePrevious = std::exchange(previous, std::move(current));
  }
  return previous[b.size()];
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

ParsedEntity ParseLogged(const JsonText& configuration, const Json::Value& entity, int matchTypes, std::ostream* log) {
  ParsedEntity parsed;
  try {
    const LogGatherer gatherer(log);
    if (ProtocolParseEntity_4_0(entity, matchTypes, parsed.attributes, parsed.info)) return parsed;
  } catch (const Json::LogicError&) {  // told below
  }
  return ParseEntity(configuration, entity, matchTypes);
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

std::string InQuotes(const std::string& text) { return '"' + Escaped(text) + '"'; }

std::string Shortened(const std::string& text, size_t columns) {
  const std::vector<std::string> lines = Wrapped(text, columns, 1, "…");
  return lines.empty() ? "" : lines[0];
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

std::string UserText(const MorvixProtocolAttribute_4_0& number, int64_t raw) {
  byte payload[8];
  for (size_t i = 0; i < sizeof payload; ++i)
    payload[i] = static_cast<byte>(static_cast<uint64_t>(raw) >> (56 - 8 * i));
  MorvixProtocolEntity_4_0 entity;
  entity.name = "entity";
  MorvixProtocolAttribute_4_0 attribute = number;
  attribute.name = "value";
  attribute.type = MorvixProtocolTypeStatusReadonly_4_0;
  attribute.position = {0, 0, MorvixProtocolUnitByte_4_0, sizeof payload, 0};
  MorvixProtocolPackage_4_0 package;
  package.value = payload;
  package.sizeValue = sizeof payload;
  Json::Value decoded(Json::objectValue);
  ProtocolDecodeAttributes_4_0(entity, {attribute}, package, decoded);
  return decoded["entity"]["value"]["value"].asString();
}

std::string DidYouMean(const std::string& name, const std::vector<std::string>& candidates) {
  constexpr size_t kMostOffered = 3;
  constexpr size_t kLongestName = 256;  // longer ones are no slips
  if (name.size() > kLongestName) return "";
  std::vector<std::pair<size_t, std::string>> near;
  for (const std::string& candidate : candidates) {
    const size_t longer = std::max(name.size(), candidate.size());
    const bool isBeginning = name.size() >= 3 && candidate.compare(0, name.size(), name) == 0;
    const size_t distance = EditDistance(name, candidate);
    if (isBeginning || 3 * distance <= longer || (distance == 1 && longer > 1)) near.emplace_back(distance, candidate);
  }
  std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  near.resize(std::min(near.size(), kMostOffered));
  if (near.empty()) return "";
  std::string text = "; did you mean ";
  for (size_t i = 0; i < near.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == near.size() ? " or " : ", ") + InQuotes(near[i].second);
  }
  return text + "?";
}

}  // namespace dp4
