// A buffer that shows when something is written next to it, in builds without a sanitizer, too.

#ifndef MORVIX_TESTS_SUPPORT_GUARDED_H
#define MORVIX_TESTS_SUPPORT_GUARDED_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "Check.h"

namespace support {

class Guarded {
 public:
  static constexpr byte kGuard = 0xc5;

  explicit Guarded(const std::vector<byte>& content)
      : size_(content.size()), bytes_(content.size() + 2 * size_t{kGuards}, kGuard) {
    std::copy(content.begin(), content.end(), Data());
  }
  // Of guard bytes only.
  explicit Guarded(size_t size) : Guarded(std::vector<byte>(size, kGuard)) {}

  byte* Data() { return bytes_.data() + kGuards; }
  char* Characters() { return reinterpret_cast<char*>(Data()); }
  size_t Size() const { return size_; }

  // What it holds; fails when a guard has changed.
  std::vector<byte> Content() {
    const auto isChanged = [](byte value) { return value != kGuard; };
    if (std::any_of(bytes_.begin(), bytes_.begin() + kGuards, isChanged) ||
        std::any_of(bytes_.end() - kGuards, bytes_.end(), isChanged)) {
      Fail("nothing is written next to a buffer", Show(bytes_));
    }
    return {Data(), Data() + size_};
  }

 private:
  static constexpr int kGuards = 16;

  const size_t size_;
  std::vector<byte> bytes_;
};

// The bytes in a block of exactly their size.
inline std::unique_ptr<byte[]> Exact(const std::vector<byte>& bytes) {
  std::unique_ptr<byte[]> block(new byte[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), block.get());
  return block;
}

}  // namespace support

#endif
