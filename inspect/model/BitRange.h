// Adjacent bits of a payload, and their names for people.

#ifndef MORVIX_INSPECT_MODEL_BIT_RANGE_H
#define MORVIX_INSPECT_MODEL_BIT_RANGE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace morvix::inspect {

// Counted from 0, the most significant bit of byte 0, as a reader of a bit map sees them.
struct BitRange {
  uint64_t begin = 0;
  uint64_t end = 0;  // the first one after them

  bool operator==(const BitRange& other) const { return begin == other.begin && end == other.end; }
  bool operator!=(const BitRange& other) const { return !(*this == other); }
  bool IsEmpty() const { return begin == end; }
  bool IsWholeBytes() const { return begin % 8 == 0 && end % 8 == 0; }
  bool Overlaps(const BitRange& other) const { return begin < other.end && other.begin < end; }
  uint64_t Length() const { return end - begin; }
  // The largest number that they can hold.
  uint64_t MaxValue() const { return Length() < 64 ? (uint64_t{1} << Length()) - 1 : UINT64_MAX; }
  size_t FirstByte() const { return static_cast<size_t>(begin / 8); }
  size_t EndByte() const { return static_cast<size_t>((end + 7) / 8); }
  // All bits of the bytes that it touches.
  BitRange Bytes() const { return {uint64_t{8} * FirstByte(), uint64_t{8} * EndByte()}; }
};

// "2" or "2-3" for whole bytes, else from the most significant bit on as "1.4" or "1.1-2.6" (byte.bit); "nowhere" for
// none.
std::string PlaceText(const BitRange& bits);

// "byte 3", "bytes 3 and 4", "bytes 3 to 5".
std::string BytesText(const BitRange& bits);

// "bit 4 of byte 3", "bits 4 to 2 of byte 3", or bytes.
std::string BitsText(const BitRange& bits);

bool BitAt(const unsigned char* payload, uint64_t bit);

// What stands in bits of a payload: whole bytes in hexadecimal, others in binary, a blank between bytes.
std::string ContentText(const BitRange& bits, const unsigned char* payload);

// The same as a number; `bits` are at most 64.
uint64_t RawValue(const BitRange& bits, const unsigned char* payload);

// "01 0a ff".
std::string HexText(const unsigned char* data, size_t size);

}  // namespace morvix::inspect

#endif
