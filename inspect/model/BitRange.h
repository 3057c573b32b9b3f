// Ranges of adjacent payload bits, and their text forms.

#ifndef MORVIX_INSPECT_MODEL_BIT_RANGE_H
#define MORVIX_INSPECT_MODEL_BIT_RANGE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace morvix::inspect {

// Bits are counted from 0, the most significant bit of byte 0, in reading order of a bit map.
struct BitRange {
  uint64_t begin = 0;
  uint64_t end = 0;  // the first bit after the range

  bool operator==(const BitRange& other) const { return begin == other.begin && end == other.end; }
  bool operator!=(const BitRange& other) const { return !(*this == other); }
  bool IsEmpty() const { return begin == end; }
  bool IsWholeBytes() const { return begin % 8 == 0 && end % 8 == 0; }
  bool Overlaps(const BitRange& other) const { return begin < other.end && other.begin < end; }
  uint64_t Length() const { return end - begin; }
  // The largest number that fits.
  uint64_t MaxValue() const { return Length() < 64 ? (uint64_t{1} << Length()) - 1 : UINT64_MAX; }
  size_t FirstByte() const { return static_cast<size_t>(begin / 8); }
  size_t EndByte() const { return static_cast<size_t>((end + 7) / 8); }
  // The range widened to whole bytes.
  BitRange Bytes() const { return {uint64_t{8} * FirstByte(), uint64_t{8} * EndByte()}; }
};

// "2" or "2-3" for whole bytes, otherwise "1.4" or "1.1-2.6" (byte.bit, most significant bit first); "nowhere" for an
// empty range.
std::string PlaceText(const BitRange& bits);

// "byte 3", "bytes 3 and 4", "bytes 3 to 5".
std::string BytesText(const BitRange& bits);

// "bit 4 of byte 3", "bits 4 to 2 of byte 3", or bytes.
std::string BitsText(const BitRange& bits);

bool BitAt(const unsigned char* payload, uint64_t bit);

// The content of payload bits: whole bytes in hexadecimal, parts of bytes in binary, with a blank between bytes.
std::string ContentText(const BitRange& bits, const unsigned char* payload);

// The content as a number; `bits` has at most 64 bits.
uint64_t RawValue(const BitRange& bits, const unsigned char* payload);

// "01 0a ff".
std::string HexText(const unsigned char* data, size_t size);

}  // namespace morvix::inspect

#endif
