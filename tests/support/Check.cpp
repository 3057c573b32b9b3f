#include "Check.h"

namespace support {

thread_local const InputsBase* InputsBase::innermost = nullptr;

void Fail(const std::string& property, const std::string& details) {
  std::string inputs;
  for (const InputsBase* outer = InputsBase::innermost; outer != nullptr; outer = outer->outer_) {
    inputs.insert(0, outer->Text());
  }
  throw Failure("==== PROPERTY: " + property + "\n" + details + "\ninputs:" + inputs + "\n====");
}

void ExpectEqual(double actual, double expected, const char* property) {
  if (!IsSameNumber(actual, expected)) Fail(property, "actual:   " + Show(actual) + "\nexpected: " + Show(expected));
}

void ExpectEqual(const Json::Value& actual, const Json::Value& expected, const char* property) {
  // A NaN compares like every real, and is written like nothing else of its kind.
  if (actual == expected || (actual.compare(expected) == 0 && Show(actual) == Show(expected))) return;
  Fail(property, "actual:   " + Show(actual) + "\nexpected: " + Show(expected));
}

}  // namespace support
