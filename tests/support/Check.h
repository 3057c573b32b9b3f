// Reporting of properties that do not hold, in tests and in fuzzers.

#ifndef MORVIX_TESTS_SUPPORT_CHECK_H
#define MORVIX_TESTS_SUPPORT_CHECK_H

#include <stdexcept>
#include <string>
#include <tuple>

#include "Records.h"

namespace support {

// Thrown where a property does not hold. A test reports it; in a fuzzer it is not caught, which ends the run here.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Names the property, the details and the inputs of this thread's checks.
[[noreturn]] void Fail(const std::string& property, const std::string& details);

// The caller computes both values. They are converted to text only when they differ.
template <typename Left, typename Right>
void ExpectEqual(const Left& actual, const Right& expected, const char* property) {
  if (!(actual == expected)) Fail(property, "actual:   " + Show(actual) + "\nexpected: " + Show(expected));
}

// The same for reals and documents, in which a NaN equals itself.
void ExpectEqual(double actual, double expected, const char* property);
void ExpectEqual(const Json::Value& actual, const Json::Value& expected, const char* property);

class InputsBase {
 public:
  InputsBase(const InputsBase&) = delete;
  InputsBase& operator=(const InputsBase&) = delete;

 protected:
  InputsBase() : outer_(innermost) { innermost = this; }
  virtual ~InputsBase() { innermost = outer_; }

 private:
  friend void Fail(const std::string& property, const std::string& details);
  virtual std::string Text() const = 0;

  static thread_local const InputsBase* innermost;
  const InputsBase* const outer_;
};

// What a check works on, which is told when the check fails: "const Inputs inputs(payload, position);". The values must
// outlive it and are shown only then.
template <typename... Values>
class Inputs final : InputsBase {
 public:
  explicit Inputs(const Values&... values) : values_(values...) {}

 private:
  std::string Text() const override {
    std::string text;
    std::apply([&](const auto&... values) { ((text += "\n  " + Show(values)), ...); }, values_);
    return text;
  }

  const std::tuple<const Values&...> values_;
};

}  // namespace support

#endif
