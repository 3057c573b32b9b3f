#include "host/Base64.h"

#include <algorithm>
#include <array>
#include <limits>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr int8_t kEnd = -1;         // a character outside the alphabet
constexpr int8_t kWhiteSpace = -2;  // one that is skipped

// The value of each character, 0 to 63, or one of the two above.
constexpr std::array<int8_t, 256> MakeSymbolValues() {
  std::array<int8_t, 256> values = {};
  for (int8_t& value : values) value = kEnd;
  for (int8_t i = 0; i < 64; ++i) values[static_cast<unsigned char>(kAlphabet[i])] = i;
  for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) values[static_cast<unsigned char>(c)] = kWhiteSpace;
  return values;
}

constexpr std::array<int8_t, 256> kSymbolValues = MakeSymbolValues();

}  // namespace

char* __internal_base64_encode(char* output, uint32_t capacity, const byte* input, size_t length) {
  if (capacity == 0) {
    static char empty[] = "";
    return empty;
  }
  output[0] = '\0';
  // Base64 is longer than its bytes; with the first test the second cannot overflow.
  if (length >= capacity || (length + 2) / 3 > (capacity - 1) / 4) return output;

  char* out = output;
  for (; length >= 3; length -= 3, input += 3) {
    const unsigned group = unsigned{input[0]} << 16 | unsigned{input[1]} << 8 | input[2];
    *out++ = kAlphabet[group >> 18];
    *out++ = kAlphabet[group >> 12 & 63];
    *out++ = kAlphabet[group >> 6 & 63];
    *out++ = kAlphabet[group & 63];
  }
  if (length != 0) {
    const unsigned group = unsigned{input[0]} << 16 | (length == 2 ? unsigned{input[1]} << 8 : 0U);
    *out++ = kAlphabet[group >> 18];
    *out++ = kAlphabet[group >> 12 & 63];
    *out++ = length == 2 ? kAlphabet[group >> 6 & 63] : '=';
    *out++ = '=';
  }
  *out = '\0';
  return output;
}

int __internal_base64_decode(byte* output, const char* text, uint32_t capacity) {
  const int room = static_cast<int>(std::min<uint32_t>(capacity, std::numeric_limits<int>::max()));
  int written = 0;
  unsigned bits = 0;  // the symbols so far, newest lowest; only the bits not yet written count
  int bitCount = 0;
  for (; written < room; ++text) {
    const int8_t value = kSymbolValues[static_cast<unsigned char>(*text)];
    if (value == kWhiteSpace) continue;
    if (value == kEnd) break;
    bits = bits << 6 | static_cast<unsigned>(value);
    bitCount += 6;
    if (bitCount >= 8) {
      bitCount -= 8;
      output[written++] = static_cast<byte>(bits >> bitCount);
    }
  }
  return written;
}
