#include "inspect/model/BitRange.h"

#include <fmt/format.h>

namespace morvix::inspect {

std::string PlaceText(const BitRange& bits) {
  if (bits.IsEmpty()) return "nowhere";
  const auto placeOf = [&bits](uint64_t bit) {
    return bits.IsWholeBytes() ? std::to_string(bit / 8) : fmt::format("{}.{}", bit / 8, 7 - bit % 8);
  };
  const std::string first = placeOf(bits.begin);
  const std::string last = placeOf(bits.end - 1);
  return first == last ? first : first + "-" + last;
}

std::string BytesText(const BitRange& bits) {
  const size_t first = bits.FirstByte();
  const size_t last = bits.EndByte() - 1;
  if (first == last) return fmt::format("byte {}", first);
  return fmt::format("bytes {} {} {}", first, last == first + 1 ? "and" : "to", last);
}

std::string BitsText(const BitRange& bits) {
  if (bits.EndByte() - bits.FirstByte() > 1 || bits.Length() == 8) return BytesText(bits);
  const uint64_t highest = 7 - bits.begin % 8;
  const uint64_t lowest = 7 - (bits.end - 1) % 8;
  if (highest == lowest) return fmt::format("bit {} of {}", highest, BytesText(bits));
  return fmt::format("bits {} {} {} of {}", highest, highest == lowest + 1 ? "and" : "to", lowest, BytesText(bits));
}

bool BitAt(const unsigned char* payload, uint64_t bit) { return (payload[bit / 8] & 0x80 >> bit % 8) != 0; }

std::string ContentText(const BitRange& bits, const unsigned char* payload) {
  if (bits.IsWholeBytes()) return HexText(payload + bits.FirstByte(), bits.EndByte() - bits.FirstByte());
  std::string text;
  for (uint64_t bit = bits.begin; bit < bits.end; ++bit) {
    if (bit % 8 == 0 && !text.empty()) text += ' ';
    text += BitAt(payload, bit) ? '1' : '0';
  }
  return text;
}

uint64_t RawValue(const BitRange& bits, const unsigned char* payload) {
  constexpr uint64_t kWordBytes = 8;
  uint64_t raw = 0;
  if (bits.EndByte() - bits.FirstByte() > kWordBytes) {
    for (uint64_t bit = bits.begin; bit < bits.end; ++bit) raw = raw << 1 | (BitAt(payload, bit) ? 1 : 0);
    return raw;
  }
  for (size_t at = bits.FirstByte(); at < bits.EndByte(); ++at) raw = raw << 8 | payload[at];
  return raw >> (uint64_t{8} * bits.EndByte() - bits.end) & bits.MaxValue();
}

std::string HexText(const unsigned char* data, size_t size) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(3 * size);
  for (size_t i = 0; i < size; ++i) {
    if (i != 0) text += ' ';
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 15];
  }
  return text;
}

}  // namespace morvix::inspect
