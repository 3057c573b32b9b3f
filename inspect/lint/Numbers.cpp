// Numbers: the width of their fields, and what their scaling does to values.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

// ---- Width ----

size_t BytesOfType(DataType dataType) { return size_t{1} << (dataType - MorvixProtocolDataTypeUInt8_4_0); }

// Whether the width of the field counts: it is in bytes, and the module uses it.
bool HasWidth(const Attribute& number) {
  return !IsInBits(number) && number.position.len >= 1 && number.position.len <= 8;
}

void LintTypeWidth(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  if (!HasWidth(number)) return;
  const auto bytes = static_cast<size_t>(number.position.len);
  const size_t typeBytes = BytesOfType(number.data_type);
  if (bytes == typeBytes) return;
  findings.Add(bytes < typeBytes ? rules::kNarrowerThanType : rules::kWiderThanType,
               entity.At(field.element, {"position", "len"}),
               fmt::format("{} is a {} in {}", entity.Label(field.element), DataTypeName(number.data_type),
                           Count(bytes, "byte")),
               fmt::format("'len' alone decides: {} of the payload", Count(bytes, "byte")),
               fmt::format("set 'len' to {}, if the device's type is the one that counts", typeBytes));
}

// For a scaling that can be used: whether the field holds its largest raw value.
void LintMaxWidth(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  if (!HasWidth(number)) return;
  const auto bytes = static_cast<size_t>(number.position.len);
  const uint64_t full = bytes == 8 ? UINT64_MAX : (uint64_t{1} << 8 * bytes) - 1;
  const auto max = static_cast<uint64_t>(number.uint_spec.max);
  if (max <= full) return;
  std::string effect = fmt::format("the highest part is silently lost: raw {} becomes raw {}", max, max & full);
  if (!IsWritable(number)) {
    effect = fmt::format("no raw value above {} can be received", full);
    if (UserText(number, full).empty()) effect += ", and the min is higher: no decode shows it";
  }
  findings.Add(
      rules::kNarrowerThanMax, entity.At(field.element, {"position", "len"}),
      fmt::format("{} has the max {}, which {} cannot hold", entity.Label(field.element), max, Count(bytes, "byte")),
      effect, "lower the max, or give it more bytes");
}

// ---- Scaling ----

constexpr char kRefusal[] = "\"Validate uint value failed.\"";

// The raw value that the encoder makes of a text, or the line that refuses it, in quotes.
std::string EncodeText(const Attribute& number, const std::string& text) {
  uint64_t raw = 0;
  const bool isTaken = ProtocolValueToRaw_4_0(number, std::strtod(text.c_str(), nullptr), raw);
  return isTaken ? std::to_string(raw) : kRefusal;
}

// A write of no bytes carries nothing.
bool IsCarried(const EntityModel& entity, const Attribute& number) {
  return IsWritable(number) && entity.Writing().payloadBytes != 0;
}

void LintUnusableScaling(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  const Scaling& scaling = number.uint_spec;
  std::string effect = "no decode shows it";
  if (IsCarried(entity, number)) {
    effect += fmt::format("; every write that carries it ends with {} and sends nothing", kRefusal);
  }
  const auto add = [&](const Rule& rule, const char* member, const std::string& message, const char* fix) {
    findings.Add(rule, entity.At(field.element, {"uint_spec", member}),
                 fmt::format("{} has {}", entity.Label(field.element), message), effect, fix);
  };
  if (scaling.min < 0 || scaling.max < 0) {
    const bool isMin = scaling.min < 0;
    return add(rules::kNegativeLimit, isMin ? "min" : "max",
               fmt::format("the {} {}", isMin ? "min" : "max", isMin ? scaling.min : scaling.max),
               "limits are raw values, which are never negative; use a negative 'addition' for negative user values");
  }
  if (scaling.max >= int64_t{1} << 52) {
    return add(rules::kMaxTooLarge, "max", fmt::format("the max {}", scaling.max), "a max is at most 4503599627370495");
  }
  if (scaling.min > scaling.max) {
    return add(rules::kMinAboveMax, "min", fmt::format("the min {} above the max {}", scaling.min, scaling.max),
               "exchange the two");
  }
  add(rules::kEmptyRange, "max", fmt::format("the min and max {}", scaling.min), "a max is above its min");
}

// True when the ratio and addition make numbers of raw values.
bool LintFactors(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  const Scaling& scaling = number.uint_spec;
  const std::string label = entity.Label(field.element);
  const std::string text = UserText(number, static_cast<uint64_t>(scaling.max));
  if (!std::isfinite(scaling.ratio) || !std::isfinite(scaling.addition)) {
    const char* member = std::isfinite(scaling.ratio) ? "addition" : "ratio";
    findings.Add(rules::kScalingNotFinite, entity.At(field.element, {"uint_spec", member}),
                 fmt::format("{} has the {} {:f}", label, member,
                             std::isfinite(scaling.ratio) ? scaling.addition : scaling.ratio),
                 fmt::format("raw {} decodes as {}", scaling.max, Quoted(text)), "write a finite number");
    return false;
  }
  if (scaling.ratio != 0) return true;
  std::string effect = "every raw value decodes as " + Quoted(text);
  if (IsCarried(entity, number)) {
    const std::string exact = ShortestText(scaling.addition);
    const std::string back = EncodeText(number, exact);
    if (back == kRefusal) {
      effect += fmt::format("; every write that carries it ends with {} and sends nothing", back);
    } else {
      effect += exact == text ? ", and no other value can be written" : ", and only " + exact + " can be written";
    }
  }
  findings.Add(rules::kZeroRatio, entity.At(field.element, {"uint_spec", "ratio"}), label + " has the ratio 0", effect,
               "a ratio says how much one raw step is in user units");
  return false;
}

std::set<uint64_t> SampleRaws(const Scaling& scaling) {
  const auto min = static_cast<uint64_t>(scaling.min);
  const auto max = static_cast<uint64_t>(scaling.max);
  const uint64_t middle = min + (max - min) / 2;
  std::set<uint64_t> raws;
  for (const uint64_t raw : {min, min + 1, min + 2, min + 3, middle, middle + 1, max - 1, max}) {
    if (raw <= max) raws.insert(raw);
  }
  return raws;
}

// How far from the raw value a decoded and encoded one can be, in raw steps, since doubles are rounded.
double LargestError(const Scaling& scaling) {
  const double min = static_cast<double>(scaling.min) * scaling.ratio;
  const double max = static_cast<double>(scaling.max) * scaling.ratio;
  const double largest = std::max(std::fabs(min), std::fabs(max)) + std::fabs(scaling.addition);
  return std::ldexp(4 * largest / std::fabs(scaling.ratio), -53);
}

// The last raw value after which user values have more binary digits before the point, so that fewer remain after it;
// or else the min.
uint64_t LastBinade(const Scaling& scaling) {
  const auto min = static_cast<double>(scaling.min);
  const auto max = static_cast<double>(scaling.max);
  int exponent = 0;
  const double user = max * scaling.ratio + scaling.addition;
  std::frexp(user, &exponent);
  const double power = std::ldexp(std::copysign(0.5, user), exponent);
  const double raw = (power - scaling.addition) / scaling.ratio;
  return raw > min && raw < max ? static_cast<uint64_t>(raw) : static_cast<uint64_t>(scaling.min);
}

// A raw value of a usable scaling whose text the encoder takes for another one, or refuses, since a double has 53 bits.
// Looks at some thousands of values; false when it finds none.
bool FindLostRaw(const Attribute& number, uint64_t& raw) {
  constexpr double kHarmless = 0.4;  // it takes half a raw step to come out at another one
  constexpr int kTries = 4096;
  constexpr int kMostTexts = 64;
  constexpr double kGolden = 0.6180339887498949;  // its multiples fill a range evenly
  const Scaling& scaling = number.uint_spec;
  if (LargestError(scaling) < kHarmless) return false;
  const auto max = static_cast<uint64_t>(scaling.max);
  int texts = 0;
  for (const uint64_t from : {LastBinade(scaling), static_cast<uint64_t>(scaling.min)}) {
    for (int i = 0; i < kTries && texts < kMostTexts; ++i) {
      const double part = i * kGolden - std::floor(i * kGolden);
      raw = from + static_cast<uint64_t>(part * static_cast<double>(max - from));
      uint64_t back = 0;
      const double user = static_cast<double>(raw) * scaling.ratio + scaling.addition;
      if (ProtocolValueToRaw_4_0(number, user, back) && back == raw) continue;  // so does its text, nearly always
      const std::string text = UserText(number, raw);
      if (!text.empty() && EncodeText(number, text) != std::to_string(raw)) return true;
      ++texts;
    }
  }
  return false;
}

// What becomes of a raw value: its text and, when that is written, the raw value that it is taken for.
struct Passage {
  std::string text;
  std::string back;
  bool isRounded;  // by more than what six decimals leave of a number that they hold
  bool isOff;      // by a part of a raw step that shows
  bool isLost;     // taken for another one, or refused

  // False when the decoder leaves the raw value out.
  bool Follow(const Attribute& number, uint64_t raw) {
    constexpr double kTolerated = 0.01;  // of one raw step
    constexpr double kPrinted = 1e-8;
    text = UserText(number, raw);
    if (text.empty()) return false;
    const double exact = static_cast<double>(raw) * number.uint_spec.ratio + number.uint_spec.addition;
    const double error = std::fabs(std::strtod(text.c_str(), nullptr) - exact);
    isRounded = error > std::max(kPrinted, std::fabs(exact) * 1e-14);
    isOff = error > kTolerated * std::fabs(number.uint_spec.ratio);
    back = EncodeText(number, text);
    isLost = back != std::to_string(raw);
    return true;
  }

  std::string Effect(const Attribute& number, uint64_t raw) const {
    std::string shown = fmt::format("raw {} decodes as {}", raw, Quoted(text));
    if (!isLost || !IsWritable(number)) return shown;
    return fmt::format("{}, which encodes as {}{}", shown, back == kRefusal ? "" : "raw ", back);
  }
};

// The first raw value whose text is not what it should be decides.
void LintPrecision(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  const Spot spot = entity.At(field.element, {"uint_spec", "ratio"});
  const std::string label = entity.Label(field.element);
  const std::string moreDigits = label + " has values with more digits than a double holds";
  const std::string fewerDigits =
      "lower the max, or choose a ratio and addition that make no value of more than 15 digits";
  std::string rounded;
  std::string lost;
  Passage passage;
  for (const uint64_t raw : SampleRaws(number.uint_spec)) {
    if (!passage.Follow(number, raw)) continue;
    const std::string effect = passage.Effect(number, raw);
    if (passage.text.size() >= 31 && passage.isOff) {
      return findings.Add(rules::kNumberTextCut, spot, label + " has values of more than 31 characters", effect,
                          "choose units in which the values are smaller");
    }
    if (passage.isOff) {
      return findings.Add(rules::kScalingTooFine, spot,
                          label + " is scaled finer than the six decimals of a decoded value", effect,
                          "choose smaller units, so that a raw step is at least 0.000001 and has six decimals");
    }
    const bool isRoundedOut = passage.isLost && passage.isRounded && passage.back == kRefusal;
    if (isRoundedOut && IsWritable(number)) {
      return findings.Add(rules::kScalingTooFine, entity.At(field.element, {"uint_spec", "addition"}),
                          label + " has a value that six decimals round to one that is refused", effect,
                          "choose an addition of at most six decimals");
    }
    if (passage.isLost && !isRoundedOut && lost.empty()) lost = effect;
    if (passage.isRounded && rounded.empty()) rounded = effect;
  }
  uint64_t raw = 0;
  if (lost.empty() && FindLostRaw(number, raw) && passage.Follow(number, raw)) lost = passage.Effect(number, raw);
  if (!lost.empty() && IsWritable(number)) {
    findings.Add(rules::kScalingTooFine, spot, moreDigits, lost, fewerDigits);
  } else if (!lost.empty()) {
    findings.Add(rules::kScalingRounded, spot, moreDigits, lost, fewerDigits + ", if the rest matters");
  } else if (!rounded.empty()) {
    findings.Add(rules::kScalingRounded, spot, label + " has values of more than six decimals", rounded,
                 "choose units in which six decimals do, if the rest matters");
  }
}

}  // namespace

void LintNumbers(const EntityModel& entity, Findings& findings) {
  for (const Field& field : entity.Reading().fields) {
    if (!IsNumber(*field.attribute)) continue;
    LintTypeWidth(entity, field, findings);
    if (!IsScaled(*field.attribute)) {
      LintUnusableScaling(entity, field, findings);
      continue;
    }
    LintMaxWidth(entity, field, findings);
    if (LintFactors(entity, field, findings)) LintPrecision(entity, field, findings);
  }
}

}  // namespace morvix::inspect
