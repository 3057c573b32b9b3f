// Numbered cases of a seed, for tests.
//
// The environment variable MODEL_CASES multiplies their number.

#ifndef MORVIX_TESTS_SUPPORT_CASES_H
#define MORVIX_TESTS_SUPPORT_CASES_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <string>
#include <utility>

#include "Check.h"
#include "Source.h"

namespace support {

// Calls `check` with a source for each case, from which alone the case is made. Ends at the third failure: a wrong rule
// is wrong a thousand times.
template <typename Check>
void ForEachCase(uint64_t seed, size_t count, const Check& check) {
  const char* times = std::getenv("MODEL_CASES");
  if (times != nullptr) count = static_cast<size_t>(static_cast<double>(count) * std::strtod(times, nullptr));
  int failures = 0;
  for (size_t number = 0; number < count && failures < 3; ++number) {
    SeededSource source(seed, number);
    try {
      check(source);
    } catch (const Failure& failure) {
      ++failures;
      ADD_FAILURE() << "seed " << seed << ", case " << number << ": " << failure.what();
    }
  }
}

// Records which situations the cases of a test reached. At the end of the test all expected situations must have
// occurred, and no others: cases prove little about situations that never occur.
class Sightings {
 public:
  explicit Sightings(std::set<std::string> expected) : expected_(std::move(expected)) {}
  ~Sightings() { EXPECT_EQ(seen_, expected_); }
  Sightings(const Sightings&) = delete;
  Sightings& operator=(const Sightings&) = delete;

  void Add(const std::string& sight) { seen_.insert(sight); }
  void AddIf(bool isSeen, const std::string& sight) {
    if (isSeen) Add(sight);
  }
  // The texts of warnings whole, others up to their first colon.
  void Add(const std::vector<LogCapture::Line>& lines) {
    for (const LogCapture::Line& line : lines) {
      Add(line.text.rfind("Warning:", 0) == 0 ? line.text : line.text.substr(0, line.text.find(':')));
    }
  }

 private:
  const std::set<std::string> expected_;
  std::set<std::string> seen_;
};

}  // namespace support

#endif
