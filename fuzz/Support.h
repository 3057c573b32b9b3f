// Support for the fuzzers, in addition to the tests' support library: choices from the input bytes, captured log lines
// and the example products. A property that does not hold throws (see Fail); this ends the run, and libFuzzer reports
// the input.

#ifndef MORVIX_FUZZ_SUPPORT_H
#define MORVIX_FUZZ_SUPPORT_H

#include <json/value.h>

#include <vector>

#include "Properties.h"
#include "TestSupport.h"

namespace fuzz {

using namespace support;
using ::ParseText;
using ::Written;

constexpr int kWritable = kWritableGroup;
constexpr int kAllGroups = kEveryGroup;

// Consumes as many bytes as a choice needs. When the bytes are used up, all choices are 0.
class InputSource final : public Source {
 public:
  InputSource(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

  uint64_t UpTo(uint64_t max) override {
    uint64_t value = 0;
    for (uint64_t left = max; left != 0 && next_ != end_; left >>= 8) value = value << 8 | *next_++;
    return max == UINT64_MAX ? value : value % (max + 1);
  }

 private:
  const uint8_t* next_;
  const uint8_t* const end_;
};

// The log lines since the last call that no check has captured. They are not printed.
Lines TakeLines();

// The entities of all example products, parsed by the model.
struct Example {
  Json::Value entity;
  model::Parsed writable;
  model::Parsed all;
};
const std::vector<Example>& Examples();

}  // namespace fuzz

#endif
