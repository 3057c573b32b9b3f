// Numbers: the width of their fields, and what their scaling does to values.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

// ---- Width ----

// A field whose unit or length is wrong has no width.
bool HasWidth(const Attribute& number) {
  return !IsInBits(number) && number.position.len >= 1 && number.position.len <= 8;
}

void LintTypeWidth(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  const int32_t bytes = number.position.len;
  const int32_t typeBytes = 1 << (number.data_type - MorvixProtocolDataTypeUInt8_4_0);
  if (!HasWidth(number) || bytes == typeBytes) return;
  const std::string size = Count(static_cast<uint64_t>(bytes), "byte");
  findings.Add(bytes < typeBytes ? rules::kNarrowerThanType : rules::kWiderThanType,
               entity.At(field.element, {"position", "len"}),
               fmt::format("{} is a {} in {}", entity.Label(field.element), DataTypeName(number.data_type), size),
               fmt::format("'len' alone decides: {} of the payload", size),
               fmt::format("set 'len' to {} if the device uses the type", typeBytes));
}

// Checks whether the field can hold the largest raw value of a usable scaling.
void LintMaxWidth(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  if (!HasWidth(number)) return;
  const auto bytes = static_cast<uint64_t>(number.position.len);
  const uint64_t full = BitRange{0, 8 * bytes}.MaxValue();
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

// The raw value that the encoder makes of a string, or the quoted line with which it refuses the string.
std::string EncodeText(const Attribute& number, const std::string& text) {
  uint64_t raw = 0;
  const bool isTaken = ProtocolValueToRaw_4_0(number, std::strtod(text.c_str(), nullptr), raw);
  return isTaken ? std::to_string(raw) : kRefusal;
}

// A write without payload is never sent.
bool IsCarried(const EntityModel& entity, const Attribute& number) {
  return IsWritable(number) && entity.Writing().payloadBytes != 0;
}

// The effect of writing a number that is always refused; empty when no write carries it.
std::string RefusedWriteText(const EntityModel& entity, const Attribute& number) {
  if (!IsCarried(entity, number)) return "";
  return fmt::format("; every write that carries it ends with {} and sends nothing", kRefusal);
}

void LintUnusableScaling(const EntityModel& entity, const Field& field, Findings& findings) {
  const Scaling& scaling = field.attribute->uint_spec;
  const auto add = [&](const Rule& rule, const char* member, const std::string& limits, const char* fix) {
    findings.Add(rule, entity.At(field.element, {"uint_spec", member}),
                 fmt::format("{} has the {}", entity.Label(field.element), limits),
                 "no decode shows it" + RefusedWriteText(entity, *field.attribute), fix);
  };
  constexpr char kRaw[] =
      "limits are raw values, which are never negative; use a negative 'addition' for negative user values";
  const bool isTooLarge = scaling.max >= int64_t{1} << 52;
  if (scaling.min < 0) add(rules::kNegativeLimit, "min", fmt::format("min {}", scaling.min), kRaw);
  if (scaling.max < 0) add(rules::kNegativeLimit, "max", fmt::format("max {}", scaling.max), kRaw);
  if (isTooLarge)
    add(rules::kMaxTooLarge, "max", fmt::format("max {}", scaling.max), "a max is at most 4503599627370495");
  if (scaling.min > scaling.max && scaling.max >= 0) {
    add(rules::kMinAboveMax, "min", fmt::format("min {} above the max {}", scaling.min, scaling.max), "swap the two");
  }
  if (scaling.min == scaling.max && scaling.min >= 0 && !isTooLarge) {
    add(rules::kEmptyRange, "max", fmt::format("min and max {}", scaling.min), "a max is above its min");
  }
}

// Whether the ratio and addition are finite and the ratio is not 0.
bool LintFactors(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  const Scaling& scaling = number.uint_spec;
  const bool isRatioFinite = std::isfinite(scaling.ratio);
  const bool areFinite = isRatioFinite && std::isfinite(scaling.addition);
  if (areFinite && scaling.ratio != 0) return true;
  const std::string label = entity.Label(field.element);
  const std::string text = MaxText(number);
  constexpr char kUnusable[] = "no raw value would decode as a number with other limits either";
  const bool isShown = IsScaled(number);
  if (!areFinite) {
    const char* member = isRatioFinite ? "addition" : "ratio";
    findings.Add(rules::kScalingNotFinite, entity.At(field.element, {"uint_spec", member}),
                 fmt::format("{} has the {} {:f}", label, member, isRatioFinite ? scaling.addition : scaling.ratio),
                 isShown ? fmt::format("raw {} decodes as {}", scaling.max, Quoted(text)) : kUnusable,
                 "write a finite number");
    return false;
  }
  const std::string exact = ShortestText(scaling.addition);
  Attribute usable = number;
  usable.uint_spec.min = 0;
  usable.uint_spec.max = 1;
  std::string effect = isShown ? "every raw value decodes as " + Quoted(text)
                               : "with other limits every raw value decodes as " + Quoted(MinText(usable));
  if (!isShown) {
    // Nothing can be written, which the finding on the limits tells.
  } else if (EncodeText(number, exact) == kRefusal) {
    effect += RefusedWriteText(entity, number);
  } else if (IsCarried(entity, number)) {
    effect += exact == text ? ", and no other value can be written" : ", and only " + exact + " can be written";
  }
  findings.Add(rules::kZeroRatio, entity.At(field.element, {"uint_spec", "ratio"}), label + " has the ratio 0", effect,
               "a ratio says how much one raw step is in user units");
  return false;
}

std::set<uint64_t> SampleRaws(const Scaling& scaling) {
  const auto min = static_cast<uint64_t>(scaling.min);
  const auto max = static_cast<uint64_t>(scaling.max);
  const uint64_t middle = min + (max - min) / 2;
  std::set<uint64_t> raws = {min, min + 1, min + 2, min + 3, middle, middle + 1, max - 1, max};
  raws.erase(raws.upper_bound(max), raws.end());
  return raws;
}

// The largest error in raw steps of decoding and encoding a raw value, caused by the rounding of doubles.
double LargestError(const Scaling& scaling) {
  const double min = static_cast<double>(scaling.min) * scaling.ratio;
  const double max = static_cast<double>(scaling.max) * scaling.ratio;
  const double largest = std::max(std::fabs(min), std::fabs(max)) + std::fabs(scaling.addition);
  return std::ldexp(4 * largest / std::fabs(scaling.ratio), -53);
}

// The last raw value before user values get more binary digits before the point, and so fewer after it; the min if
// there is no such value.
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

// A raw value of a usable scaling whose text encodes to another raw value, or is refused, because a double has 53 bits.
// Tries some thousands of values.
std::optional<uint64_t> FindLostRaw(const Attribute& number) {
  constexpr double kHarmless = 0.4;  // less than the half step that changes a raw value
  constexpr int kTries = 4096;
  constexpr int kMostTexts = 64;
  constexpr double kGolden = 0.6180339887498949;  // its multiples fill a range evenly
  const Scaling& scaling = number.uint_spec;
  if (LargestError(scaling) < kHarmless) return std::nullopt;
  const auto max = static_cast<uint64_t>(scaling.max);
  int texts = 0;
  for (const uint64_t from : {LastBinade(scaling), static_cast<uint64_t>(scaling.min)}) {
    for (int i = 0; i < kTries && texts < kMostTexts; ++i) {
      const double part = i * kGolden - std::floor(i * kGolden);
      const uint64_t raw = from + static_cast<uint64_t>(part * static_cast<double>(max - from));
      uint64_t back = 0;
      const double user = static_cast<double>(raw) * scaling.ratio + scaling.addition;
      if (ProtocolValueToRaw_4_0(number, user, back) && back == raw) continue;  // so does its text, nearly always
      const std::string text = UserText(number, raw);
      if (!text.empty() && EncodeText(number, text) != std::to_string(raw)) return raw;
      ++texts;
    }
  }
  return std::nullopt;
}

// The round trip of a raw value: its text, and the raw value that this text encodes to.
struct Passage {
  std::string text;  // empty when the decoder leaves the raw value out
  std::string back;
  bool isRounded = false;  // by more than the error of printing six decimals
  bool isOff = false;      // by a noticeable part of a raw step
  bool isLost = false;     // encodes to another raw value, or is refused

  Passage(const Attribute& number, uint64_t raw)
      : text(UserText(number, raw)), back(EncodeText(number, text)), isLost(back != std::to_string(raw)) {
    constexpr double kTolerated = 0.01;  // of one raw step
    constexpr double kPrinted = 1e-8;
    const double exact = static_cast<double>(raw) * number.uint_spec.ratio + number.uint_spec.addition;
    const double error = std::fabs(std::strtod(text.c_str(), nullptr) - exact);
    isRounded = error > std::max(kPrinted, std::fabs(exact) * 1e-14);
    isOff = error > kTolerated * std::fabs(number.uint_spec.ratio);
  }

  std::string Effect(const Attribute& number, uint64_t raw) const {
    std::string effect = fmt::format("raw {} decodes as {}", raw, Quoted(text));
    if (isLost && IsWritable(number)) {
      effect += fmt::format(", which encodes as {}{}", back == kRefusal ? "" : "raw ", back);
    }
    return effect;
  }
};

// The first raw value with a wrong text determines the finding.
void LintPrecision(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  const auto add = [&](const Rule& rule, const char* member, const std::string& problem, const std::string& effect,
                       const std::string& fix) {
    findings.Add(rule, entity.At(field.element, {"uint_spec", member}), entity.Label(field.element) + problem, effect,
                 fix);
  };
  std::string rounded;
  std::string lost;
  for (const uint64_t raw : SampleRaws(number.uint_spec)) {
    const Passage passage(number, raw);
    if (passage.text.empty()) continue;
    if (passage.isOff && passage.text.size() >= 31) {
      return add(rules::kNumberTextCut, "ratio", " has values of more than 31 characters", passage.Effect(number, raw),
                 "choose units in which the values are smaller");
    }
    if (passage.isOff) {
      return add(rules::kScalingTooFine, "ratio", " is scaled finer than the six decimals of a decoded value",
                 passage.Effect(number, raw),
                 "choose smaller units, so that a raw step is at least 0.000001 and has six decimals");
    }
    const bool isRoundedOut = passage.isLost && passage.isRounded && passage.back == kRefusal;
    if (isRoundedOut && IsWritable(number)) {
      return add(rules::kScalingTooFine, "addition", " has a value that six decimals round to one that is refused",
                 passage.Effect(number, raw), "choose an addition of at most six decimals");
    }
    if (passage.isLost && !isRoundedOut && lost.empty()) lost = passage.Effect(number, raw);
    if (passage.isRounded && rounded.empty()) rounded = passage.Effect(number, raw);
  }
  if (lost.empty()) {
    if (const auto raw = FindLostRaw(number)) lost = Passage(number, *raw).Effect(number, *raw);
  }
  const std::string moreDigits = " has values with more digits than a double holds";
  const std::string fewerDigits =
      "lower the max, or choose a ratio and addition that make no value of more than 15 digits";
  if (!lost.empty() && IsWritable(number)) {
    add(rules::kScalingTooFine, "ratio", moreDigits, lost, fewerDigits);
  } else if (!lost.empty()) {
    add(rules::kScalingRounded, "ratio", moreDigits, lost, fewerDigits + ", if the rest matters");
  } else if (!rounded.empty()) {
    add(rules::kScalingRounded, "ratio", " has values of more than six decimals", rounded,
        "choose units in which six decimals are enough, if the rest matters");
  }
}

}  // namespace

void LintNumbers(const EntityModel& entity, Findings& findings) {
  for (const Field& field : entity.Reading().fields) {
    if (!IsNumber(*field.attribute)) continue;
    LintTypeWidth(entity, field, findings);
    const bool isScaled = IsScaled(*field.attribute);
    isScaled ? LintMaxWidth(entity, field, findings) : LintUnusableScaling(entity, field, findings);
    if (LintFactors(entity, field, findings) && isScaled) LintPrecision(entity, field, findings);
  }
}

}  // namespace morvix::inspect
