// Where made-up cases get their choices from: a seed, or the bytes of a fuzzer.

#ifndef MORVIX_TESTS_SUPPORT_SOURCE_H
#define MORVIX_TESTS_SUPPORT_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"

namespace support {

class Source {
 public:
  Source() = default;
  virtual ~Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  // A number from 0 to `max`. A fuzzer's source gives 0 once its bytes are used up.
  virtual uint64_t UpTo(uint64_t max) = 0;

  uint64_t Below(uint64_t count) { return UpTo(count - 1); }
  size_t Index(size_t count) { return static_cast<size_t>(Below(count)); }
  bool OneIn(uint64_t count) { return Below(count) == count - 1; }  // false for a 0
  bool Flip() { return OneIn(2); }
  int64_t Between(int64_t low, int64_t high) {
    return low + static_cast<int64_t>(UpTo(static_cast<uint64_t>(high) - static_cast<uint64_t>(low)));
  }
  int32_t Int(int32_t low, int32_t high) { return static_cast<int32_t>(Between(low, high)); }
  byte Byte() { return static_cast<byte>(UpTo(UINT8_MAX)); }
  uint64_t Next() { return UpTo(UINT64_MAX); }

  template <typename Value>
  Value Pick(std::initializer_list<Value> values) {
    return values.begin()[Index(values.size())];
  }
  template <typename Values>
  const auto& Of(const Values& values) {
    return values[Index(std::size(values))];
  }

  std::vector<byte> Bytes(size_t count) {
    std::vector<byte> bytes(count);
    for (byte& value : bytes) value = Byte();
    return bytes;
  }

  // A 64-bit number of any length, often one around a power of two.
  uint64_t Word() {
    const uint64_t length = Below(64);
    switch (Below(6)) {
      case 0:
        return Next() >> length;
      case 1:
        return (uint64_t{1} << length) - Below(3);
      case 2:
        return (uint64_t{1} << length) + Below(3);
      case 3:
        return Below(300);
      case 4:
        return UINT64_MAX - Below(9);
      default:
        return Next();
    }
  }

  // A 32-bit number: small, around a power of two, at the limits, or any.
  int32_t AnyInt() {
    const uint32_t power = uint32_t{1} << Below(32);
    switch (Below(6)) {
      case 0:
        return static_cast<int32_t>(power + static_cast<uint32_t>(Below(3)) - 1);
      case 1:
        return static_cast<int32_t>(0U - power + static_cast<uint32_t>(Below(3)) - 1);
      case 2:
        return Int(-80, 80);
      case 3:
        return INT32_MIN + Int(0, 9);
      case 4:
        return INT32_MAX - Int(0, 9);
      default:
        return static_cast<int32_t>(static_cast<uint32_t>(UpTo(UINT32_MAX)));
    }
  }
};

// Numbered cases of a seed; the same on every machine.
class SeededSource final : public Source {
 public:
  explicit SeededSource(uint64_t seed, uint64_t number = 0)
      : state_(seed * 0x9e3779b97f4a7c15 + number * 0xd1342543de82ef95) {}

  uint64_t UpTo(uint64_t max) override {
    state_ += 0x9e3779b97f4a7c15;
    uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
    mixed ^= mixed >> 31;
    return max == UINT64_MAX ? mixed : mixed % (max + 1);
  }

 private:
  uint64_t state_;
};

}  // namespace support

#endif
