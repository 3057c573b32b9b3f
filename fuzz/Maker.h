// Configurations, values and records out of the fuzzer's bytes: mostly well-formed, so that they get deep, and wrong in
// one place or another, so that every branch is reached.

#ifndef MORVIX_FUZZ_MAKER_H
#define MORVIX_FUZZ_MAKER_H

#include <fuzzer/FuzzedDataProvider.h>
#include <json/value.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "Support.h"

namespace fuzz {

class Maker {
 public:
  explicit Maker(FuzzedDataProvider& in) : in_(in) {}

  // An entity of up to a few dozen attributes. Its bit groups and fields follow one another, until some are moved.
  Json::Value MakeEntity();

  // A value document for these attributes, which belong to an entity of that name: values that fit, that just do not,
  // and those that are no values.
  Json::Value MakeValues(const Entity& info, const Attributes& attributes);

  // Bytes for a payload; `length` is what the configuration asks for.
  Bytes MakePayload(uint64_t length);

  // Changes a record into one that no configuration gives.
  void Spoil(Attribute& attribute);

  // A package for the packer; its buffers are `flags` and `value`.
  Package MakePackage(Bytes& flags, Bytes& value);

 private:
  template <typename Value>
  Value Pick(std::initializer_list<Value> values) {
    return *(values.begin() + in_.ConsumeIntegralInRange<size_t>(0, values.size() - 1));
  }
  bool OneIn(uint8_t count) { return in_.ConsumeIntegralInRange<uint8_t>(1, count) == count; }
  int32_t Between(int32_t min, int32_t max) { return in_.ConsumeIntegralInRange<int32_t>(min, max); }

  std::string MakeName();
  int32_t MakeInteger();
  double MakeDouble();
  Json::Value FormOf(int32_t number);
  Json::Value FormOf(double number);
  Json::Value MakeAnything(int depth = 2);
  std::string Keyword(std::string keyword);
  Json::Value MakeAttribute();
  Json::Value MakePosition(const std::string& dataType);
  Json::Value MakeScaling(int64_t width);
  Json::Value MakeItems(int64_t width);
  Json::Value MakeValue(const Attribute& attribute);
  Json::Value MakeNumber(const MorvixProtocolUIntSpec_4_0& scaling);

  FuzzedDataProvider& in_;
  // The walk over the payload: where the current bit group begins and what of it is taken, or where the next field is.
  int32_t nextByte_ = 0;
  int32_t nextBit_ = 0;
  std::string group_;
};

}  // namespace fuzz

#endif
