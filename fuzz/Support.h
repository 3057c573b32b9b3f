// What the fuzzers share beside the properties: how a failed property ends the run, values as text, captured log lines
// and the example products.

#ifndef MORVIX_FUZZ_SUPPORT_H
#define MORVIX_FUZZ_SUPPORT_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/CodecModel.h"

namespace fuzz {

using model::Attribute;
using model::Attributes;
using model::Bytes;
using model::Entity;
using model::Lines;
using model::Package;
using model::Position;

// Prints the property that does not hold, with the details, and aborts, which the fuzzer reports with the input.
[[noreturn]] void Fail(const std::string& property, const std::string& details);

std::string Show(bool value);
template <typename Integer, std::enable_if_t<std::is_integral_v<Integer> && !std::is_same_v<Integer, bool>, int> = 0>
std::string Show(Integer value) {
  return std::to_string(value);
}
std::string Show(double value);
std::string Show(const std::string& text);  // quoted; what is not printable ASCII as \xHH
std::string Show(const Bytes& bytes);       // hexadecimal
std::string Show(const Json::Value& value);
std::string Show(const Lines& lines);
std::string Show(const std::vector<std::string>& texts);
std::string Show(const std::vector<TavelReceiveInfo>& infos);
std::string Show(const Position& position);
std::string Show(const Attribute& attribute);
std::string Show(const Entity& entity);

// Both sides are worked out by the caller, whatever they cost; the texts only when they differ.
template <typename Left, typename Right>
void ExpectEqual(const Left& actual, const Right& expected, const char* property) {
  if (!(actual == expected)) Fail(property, "actual:   " + Show(actual) + "\nexpected: " + Show(expected));
}

// Bit by bit: a NaN equals itself, 0 and -0 differ.
bool IsSameNumber(double left, double right);

// The module's log lines since the last call. All levels are captured, and none is printed.
Lines TakeLines();

// The text of a document as its host writes it.
std::string Written(const Json::Value& document);

// A JSON text read as the module reads it, comments included. False when it is none.
bool ParseText(const std::string& text, Json::Value& value);

// The entities of all example products, parsed by the model.
struct Example {
  Json::Value entity;
  model::Parsed writable;
  model::Parsed all;
};
const std::vector<Example>& Examples();

constexpr int kWritable = MorvixProtocolTypeStatusWritable_4_0;
constexpr int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                           MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;

// The member of that whole name, NULs included; null when there is none.
const Json::Value& MemberOf(const Json::Value& object, const std::string& name);

// Equal in every field; reals as IsSameNumber tells.
bool IsSame(const Attribute& left, const Attribute& right);
bool IsSame(const Entity& left, const Entity& right);

// A package that releases its buffers.
struct OwnedPackage : Package {
  OwnedPackage() = default;
  ~OwnedPackage();
  OwnedPackage(const OwnedPackage&) = delete;
  OwnedPackage& operator=(const OwnedPackage&) = delete;
};

}  // namespace fuzz

bool operator==(const TavelReceiveInfo& left, const TavelReceiveInfo& right);

#endif
