// Values: scalings of numbers, items of enums, alerts and faults that never become active.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "LintModel.h"

namespace dp4 {

namespace {

// A number in 8 bytes of its own, for questions to its scaling alone.
Attribute Alone(const Attribute& number) {
  Attribute alone = Keyed(number, "field");
  alone.position = Position();
  alone.position.len = 8;
  return alone;
}

// The user value that the decoder prints for a raw value; false when it leaves it out.
bool DecodeRaw(const Attribute& alone, uint64_t raw, std::string& text) {
  text = UserText(alone, raw);
  return !text.empty();
}

// The raw value that the encoder makes of a user value, as text; or the line that refuses it, in quotes.
std::string EncodeText(const Attribute& alone, const std::string& text) {
  Json::Value values;
  values["field"] = text;
  const Encoded encoded = EncodeFields({alone}, values, 8);
  if (encoded.payload.empty()) return "\"" + encoded.refusal + "\"";
  return DecodeFields({OpenField(alone, "field")}, encoded.payload).values["field"].asString();
}

// ---- Scaling ----

// A write of no bytes carries nothing.
bool IsWritten(const LintEntity& entity, const Attribute& number) {
  return IsWritable(number) && (entity.writeLength != 0 || !entity.isWriteInMemory);
}

void LintUnusableScaling(const LintEntity& entity, const Attribute& number, Findings& findings) {
  const MorvixProtocolUIntSpec_4_0& uintSpec = number.uint_spec;
  const std::string min = std::to_string(uintSpec.min);
  const std::string max = std::to_string(uintSpec.max);
  std::string effect = "no decode shows it";
  if (IsWritten(entity, number)) {
    effect += "; every write that carries it ends with " +
              EncodeText(Alone(number), NumberText(number.uint_spec.addition)) + " and sends nothing";
  }
  const auto add = [&](RuleId rule, const char* member, const std::string& message, const std::string& mend) {
    findings.Add(rule, entity.At(number, {"uint_spec", member}), entity.Label(number) + " has " + message, effect,
                 mend);
  };
  if (uintSpec.min < 0 || uintSpec.max < 0) {
    const bool isMin = uintSpec.min < 0;
    return add(RuleId::kNegativeLimit, isMin ? "min" : "max", isMin ? "the min " + min : "the max " + max,
               "limits are raw values, which are never negative; use a negative 'addition' for negative user values");
  }
  if (uintSpec.max >= int64_t{1} << 52) {
    return add(RuleId::kMaxTooLarge, "max", "the max " + max, "a max is at most 4503599627370495");
  }
  if (uintSpec.min > uintSpec.max) {
    return add(RuleId::kMinAboveMax, "min", "the min " + min + " above the max " + max, "exchange the two");
  }
  add(RuleId::kEmptyRange, "max", "the min and max " + min, "a max is above its min");
}

// True when the ratio and addition make numbers of raw values.
bool LintFactors(const LintEntity& entity, const Attribute& number, Findings& findings) {
  const MorvixProtocolUIntSpec_4_0& uintSpec = number.uint_spec;
  if (!std::isfinite(uintSpec.ratio) || !std::isfinite(uintSpec.addition)) {
    const bool isRatio = !std::isfinite(uintSpec.ratio);
    std::string text;
    DecodeRaw(Alone(number), static_cast<uint64_t>(uintSpec.max), text);
    findings.Add(RuleId::kScalingNotFinite, entity.At(number, {"uint_spec", isRatio ? "ratio" : "addition"}),
                 entity.Label(number) + " has the " + (isRatio ? "ratio " : "addition ") +
                     std::to_string(isRatio ? uintSpec.ratio : uintSpec.addition),
                 "raw " + std::to_string(uintSpec.max) + " decodes as " + Quoted(text), "write a finite number");
    return false;
  }
  if (uintSpec.ratio != 0) return true;
  std::string text;
  DecodeRaw(Alone(number), static_cast<uint64_t>(uintSpec.max), text);
  std::string effect = "every raw value decodes as " + Quoted(text);
  if (IsWritten(entity, number)) {
    const std::string exact = ShortestText(uintSpec.addition);
    const std::string back = EncodeText(Alone(number), exact);
    if (back[0] == '"') {
      effect += "; every write that carries it ends with " + back + " and sends nothing";
    } else {
      effect += exact == text ? ", and no other value can be written" : ", and only " + exact + " can be written";
    }
  }
  findings.Add(RuleId::kZeroRatio, entity.At(number, {"uint_spec", "ratio"}), entity.Label(number) + " has the ratio 0",
               effect, "a ratio says how much one raw step is in user units");
  return false;
}

std::set<uint64_t> SampleRaws(const MorvixProtocolUIntSpec_4_0& uintSpec) {
  const auto min = static_cast<uint64_t>(uintSpec.min);
  const auto max = static_cast<uint64_t>(uintSpec.max);
  const uint64_t middle = min + (max - min) / 2;
  std::set<uint64_t> raws;
  for (const uint64_t raw : {min, min + 1, min + 2, min + 3, middle, middle + 1, max - 1, max}) {
    if (raw <= max) raws.insert(raw);
  }
  return raws;
}

// Whether a number that is decoded and encoded in doubles may come out as another one. This only tells which raw values
// the module is worth asking about.
bool MayBeLost(const MorvixProtocolUIntSpec_4_0& uintSpec, uint64_t raw) {
  constexpr double kLargestRaw = 4503599627370495.0;
  const double user = static_cast<double>(raw) * uintSpec.ratio + uintSpec.addition;
  const double back = (user - uintSpec.addition) / uintSpec.ratio;
  if (!(back >= 0 && back <= kLargestRaw)) return true;
  const auto whole = static_cast<uint64_t>(back);
  return whole + (back - static_cast<double>(whole) > 0.5 ? 1 : 0) != raw;
}

// How far from the raw value a decoded and encoded one can be, in raw steps, by what doubles are rounded.
double LargestError(const MorvixProtocolUIntSpec_4_0& uintSpec) {
  const double min = static_cast<double>(uintSpec.min) * uintSpec.ratio;
  const double max = static_cast<double>(uintSpec.max) * uintSpec.ratio;
  const double largest = std::max(std::fabs(min), std::fabs(max)) + std::fabs(uintSpec.addition);
  return std::ldexp(4 * largest / std::fabs(uintSpec.ratio), -53);
}

// The raw value behind which user values have more binary digits before the point, so that fewer remain behind it: the
// last such one, or else the min.
uint64_t LastBinade(const MorvixProtocolUIntSpec_4_0& uintSpec) {
  const auto min = static_cast<double>(uintSpec.min);
  const auto max = static_cast<double>(uintSpec.max);
  int exponent = 0;
  const double user = max * uintSpec.ratio + uintSpec.addition;
  std::frexp(user, &exponent);
  const double power = std::ldexp(std::copysign(0.5, user), exponent);
  const double raw = (power - uintSpec.addition) / uintSpec.ratio;
  return raw > min && raw < max ? static_cast<uint64_t>(raw) : static_cast<uint64_t>(uintSpec.min);
}

// A raw value of a usable scaling whose text the encoder takes for another one, or refuses, since a double has 53 bits.
// Looks at some thousands of values; false when it finds none.
bool FindLostRaw(const Attribute& number, uint64_t& raw) {
  constexpr double kHarmless = 0.4;  // it takes half a raw step to come out at another one
  constexpr int kTries = 4096;
  constexpr int kMostAsked = 64;
  constexpr double kGolden = 0.6180339887498949;  // its multiples fill a range evenly
  const MorvixProtocolUIntSpec_4_0& uintSpec = number.uint_spec;
  const Attribute alone = Alone(number);
  if (LargestError(uintSpec) < kHarmless) return false;
  const auto max = static_cast<uint64_t>(uintSpec.max);
  int asked = 0;
  for (const uint64_t from : {LastBinade(uintSpec), static_cast<uint64_t>(uintSpec.min)}) {
    for (int i = 0; i < kTries && asked < kMostAsked; ++i) {
      const double part = i * kGolden - std::floor(i * kGolden);
      raw = from + static_cast<uint64_t>(part * static_cast<double>(max - from));
      std::string text;
      if (!MayBeLost(uintSpec, raw) || !DecodeRaw(alone, raw, text)) continue;
      if (EncodeText(alone, text) != std::to_string(raw)) return true;
      ++asked;
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
  bool Follow(const Attribute& alone, uint64_t raw) {
    constexpr double kTolerated = 0.01;  // of one raw step
    constexpr double kPrinted = 1e-8;
    if (!DecodeRaw(alone, raw, text)) return false;
    const double exact = static_cast<double>(raw) * alone.uint_spec.ratio + alone.uint_spec.addition;
    const double error = std::fabs(std::strtod(text.c_str(), nullptr) - exact);
    isRounded = error > std::max(kPrinted, std::fabs(exact) * 1e-14);
    isOff = error > kTolerated * std::fabs(alone.uint_spec.ratio);
    back = EncodeText(alone, text);
    isLost = back != std::to_string(raw);
    return true;
  }

  std::string Effect(const Attribute& number, uint64_t raw) const {
    std::string shown = "raw " + std::to_string(raw) + " decodes as " + Quoted(text);
    if (!isLost || !IsWritable(number)) return shown;
    return shown + ", which encodes as " + (back[0] == '"' ? back : "raw " + back);
  }
};

// The first raw value whose text is not what it should be decides.
void LintPrecision(const LintEntity& entity, const Attribute& number, Findings& findings) {
  const Attribute alone = Alone(number);
  const Spot spot = entity.At(number, {"uint_spec", "ratio"});
  const std::string label = entity.Label(number);
  const std::string moreDigits = label + " has values with more digits than a double holds";
  const std::string fewerDigits =
      "lower the max, or choose a ratio and addition that make no value of more than 15 digits";
  std::string rounded;
  std::string lost;
  Passage passage;
  for (const uint64_t raw : SampleRaws(number.uint_spec)) {
    if (!passage.Follow(alone, raw)) continue;
    const std::string effect = passage.Effect(number, raw);
    if (passage.text.size() >= 31 && passage.isOff) {
      return findings.Add(RuleId::kNumberTextCut, spot, label + " has values of more than 31 characters", effect,
                          "choose units in which the values are smaller");
    }
    if (passage.isOff) {
      return findings.Add(RuleId::kScalingTooFine, spot,
                          label + " is scaled finer than the six decimals of a decoded value", effect,
                          "choose smaller units, so that a raw step is at least 0.000001 and has six decimals");
    }
    const bool isRoundedOut = passage.isLost && passage.isRounded && passage.back[0] == '"';
    if (isRoundedOut && IsWritable(number)) {
      return findings.Add(RuleId::kScalingTooFine, entity.At(number, {"uint_spec", "addition"}),
                          label + " has a value that six decimals round to one that is refused", effect,
                          "choose an addition of at most six decimals");
    }
    if (passage.isLost && !isRoundedOut && lost.empty()) lost = effect;
    if (passage.isRounded && rounded.empty()) rounded = effect;
  }
  uint64_t raw = 0;
  if (lost.empty() && FindLostRaw(number, raw) && passage.Follow(alone, raw)) lost = passage.Effect(number, raw);
  if (!lost.empty() && IsWritable(number)) {
    findings.Add(RuleId::kScalingTooFine, spot, moreDigits, lost, fewerDigits);
  } else if (!lost.empty()) {
    findings.Add(RuleId::kScalingRounded, spot, moreDigits, lost, fewerDigits + ", if the rest matters");
  } else if (!rounded.empty()) {
    findings.Add(RuleId::kScalingRounded, spot, label + " has values of more than six decimals", rounded,
                 "choose units in which six decimals do, if the rest matters");
  }
}

// ---- Width ----

size_t BytesOfType(MorvixProtocolDataType_4_0 dataType) {
  return size_t{1} << (dataType - MorvixProtocolDataTypeUInt8_4_0);
}

// Whether the width of the field counts: it is in bytes, and the module uses it.
bool HasWidth(const Attribute& number) {
  const Position& position = number.position;
  return position.unit == MorvixProtocolUnitByte_4_0 && position.len >= 1 && position.len <= 8;
}

void LintTypeWidth(const LintEntity& entity, const Attribute& number, Findings& findings) {
  if (!HasWidth(number)) return;
  const auto bytes = static_cast<size_t>(number.position.len);
  const size_t typeBytes = BytesOfType(number.data_type);
  if (bytes == typeBytes) return;
  findings.Add(bytes < typeBytes ? RuleId::kNarrowerThanType : RuleId::kWiderThanType,
               entity.At(number, {"position", "len"}),
               entity.Label(number) + " is a " + DataTypeName(number.data_type) + " in " + Count(bytes, "byte"),
               "'len' alone decides: " + Count(bytes, "byte") + " of the payload",
               "set 'len' to " + std::to_string(typeBytes) + ", if the device's type is the one that counts");
}

// For a scaling that can be used: the largest raw value that it lets through, written to as many bytes and read back.
void LintMaxWidth(const LintEntity& entity, const Attribute& number, Findings& findings) {
  if (!HasWidth(number)) return;
  const auto bytes = static_cast<size_t>(number.position.len);
  const std::string max = std::to_string(number.uint_spec.max);
  Attribute narrow = Alone(number);
  narrow.position.len = number.position.len;
  const Attribute open = OpenField(narrow, "field");
  const std::string back = EncodeText(open, max);
  if (back == max) return;
  std::string effect = "the highest part is lost without a word: raw " + max + " becomes raw " + back;
  if (!IsWritable(number)) {
    const std::vector<byte> full(bytes, 0xff);
    effect = "no raw value above " + DecodeFields({open}, full).values["field"].asString() + " can be received";
    if (!DecodeFields({narrow}, full).values.isMember("field")) effect += ", and the min is higher: no decode shows it";
  }
  findings.Add(RuleId::kNarrowerThanMax, entity.At(number, {"position", "len"}),
               entity.Label(number) + " has the max " + max + ", which " + Count(bytes, "byte") + " cannot hold",
               effect, "lower the max, or give it more bytes");
}

// ---- Items ----

std::string CountText(size_t count) { return Count(count, "item"); }

void LintItemTexts(const LintEntity& entity, const Attribute& field, Findings& findings) {
  const Spot member = entity.At(field, {"enum"});
  const Json::Value& items = *member.value;
  if (!items.isArray()) return;
  size_t dropped = 0;
  Json::ArrayIndex first = 0;
  std::set<std::string> known;
  for (Json::ArrayIndex i = 0; i < items.size(); ++i) {
    if (!items[i].isString()) {
      if (dropped++ == 0) first = i;
    } else if (!known.insert(items[i].asString()).second) {
      findings.Add(RuleId::kDuplicateItem, {&items[i], member.pointer + "/" + std::to_string(i)},
                   entity.Label(field) + " has the item " + Quoted(items[i].asString()) + " twice",
                   "none: values are indices", "give each item its own text");
    }
  }
  if (dropped == 0) return;
  const Spot spot{&items[first], member.pointer + "/" + std::to_string(first)};
  if (field.enumList.empty()) {
    findings.Add(RuleId::kEnumWithoutTexts, spot, entity.Label(field) + " has no item that is a text",
                 EffectOfUnusable(entity, static_cast<size_t>(field.id)), "list texts");
    return;
  }
  std::string shift = "it has " + CountText(field.enumList.size()) + " instead of " + std::to_string(items.size());
  for (Json::ArrayIndex i = first; i < items.size(); ++i) {
    if (!items[i].isString()) continue;
    shift +=
        "; " + Quoted(items[i].asString()) + " is index " + std::to_string(first) + " instead of " + std::to_string(i);
    break;
  }
  findings.Add(
      RuleId::kEnumItemNotText, spot,
      entity.Label(field) + " has " + CountText(dropped) + " that " + (dropped == 1 ? "is" : "are") + " no text", shift,
      "list texts only");
}

// The index that comes back from a write of `index`; empty when it is refused.
std::string WrittenIndex(const Attribute& field, const Window& window, uint64_t index) {
  Json::Value values;
  values["field"] = std::to_string(index);
  const Encoded encoded = EncodeFields({field}, values, window.length);
  if (encoded.payload.empty()) return "";
  return DecodeFields({OpenField(field, "field")}, encoded.payload).values["field"].asString();
}

void LintItemCount(const LintEntity& entity, const Attribute& field, Findings& findings) {
  constexpr size_t kPrintedIndices = 1000000000;  // of nine digits
  const Spot spot = entity.At(field, {"enum"});
  const size_t count = field.enumList.size();
  const std::string label = entity.Label(field);
  if (count > kPrintedIndices) {
    findings.Add(RuleId::kEnumIndexCut, spot, label + " has " + CountText(count),
                 "indices from " + std::to_string(kPrintedIndices) + " on lose their last digit when decoded",
                 "use fewer items, or a number");
  }
  const bool isRead = entity.ReadRecord(static_cast<size_t>(field.id)) != nullptr;
  const size_t payloadLength = isRead ? entity.readLength : entity.writeLength;
  const BitRange range = Locate(field, payloadLength);
  if (range.IsEmpty() || count == 0) return;
  const Window window = WindowOn({field}, payloadLength);
  const Attribute probe = Keyed(window.fields[0], "field");
  const std::string last = std::to_string(count - 1);
  const std::string back = WrittenIndex(probe, window, count - 1);
  if (!back.empty() && back != last) {
    findings.Add(RuleId::kEnumTooManyItems, spot,
                 label + " has " + CountText(count) + " in " + Count(range.Length(), "bit"),
                 "the highest bits are lost without a word: index " + last + " becomes index " + back,
                 "use more bits or fewer items");
  }

  if (!isRead) return;
  // A device that sets all bits.
  const uint64_t largest = LargestOpenValue(range.Length());
  Json::Value values;
  values["field"] = Json::UInt64{largest};
  const Encoded full = EncodeFields({OpenField(probe, "field")}, values, window.length);
  const Decoded decoded = DecodeFields({probe}, full.payload);
  if (decoded.refusal.empty()) return;
  findings.Add(RuleId::kEnumIncomplete, spot,
               label + " has " + CountText(count) + " in " + Count(range.Length(), "bit"),
               "a device that sends " + std::to_string(largest) + " ends the decode with \"" + decoded.refusal +
                   "\"; the attributes behind it are missing",
               "list an item for each number that the device may send");
}

// ---- Alerts and faults ----

// The value with which an alert is active; nothing when it is not.
std::optional<int32_t> ActiveValue(const std::string& value) {
  Json::Value alerts;
  Json::Value& alert = alerts.append(Json::objectValue);
  alert["name"] = "alert";
  alert["value"] = value;
  std::vector<TavelReceiveInfo> active;
  ProtocolGetAlertsOrFaults_4_0(alerts, active);
  if (active.empty()) return std::nullopt;
  return active[0].value;
}

// Raw values next to the one that is 0 in user units, as far as the limits let them through.
std::set<uint64_t> RawsAroundZero(const MorvixProtocolUIntSpec_4_0& uintSpec) {
  std::set<uint64_t> raws = {static_cast<uint64_t>(uintSpec.min), static_cast<uint64_t>(uintSpec.max)};
  const double zero = std::floor(-uintSpec.addition / uintSpec.ratio);
  for (const double raw : {zero - 1, zero, zero + 1, zero + 2}) {
    const bool isWithin = raw >= static_cast<double>(uintSpec.min) && raw <= static_cast<double>(uintSpec.max);
    if (isWithin) raws.insert(static_cast<uint64_t>(raw));
  }
  return raws;
}

void LintLargeAlert(const LintEntity& entity, const Attribute& number, Findings& findings) {
  const Attribute alone = Alone(number);
  for (const int64_t raw : {number.uint_spec.max, number.uint_spec.min}) {
    std::string text;
    if (!DecodeRaw(alone, static_cast<uint64_t>(raw), text)) continue;
    const double value = std::trunc(std::strtod(text.c_str(), nullptr));
    const std::optional<int32_t> active = ActiveValue(text);
    if (!std::isfinite(value) || value == active.value_or(0)) continue;
    findings.Add(RuleId::kAlertTooLarge, entity.At(number, {"uint_spec"}),
                 entity.Label(number) + " is an alert or fault with values of more than 32 bits",
                 "raw " + std::to_string(raw) + " decodes as " + Quoted(text) + ", which is " +
                     (active ? "active with the value " + std::to_string(*active) : "not active"),
                 "choose units in which every value lies between -2147483648 and 2147483647");
    return;
  }
}

void LintFractions(const LintEntity& entity, const Attribute& number, Findings& findings) {
  const Attribute alone = Alone(number);
  for (const uint64_t raw : RawsAroundZero(number.uint_spec)) {
    std::string text;
    if (!DecodeRaw(alone, raw, text) || std::fabs(std::strtod(text.c_str(), nullptr)) >= 1) continue;
    if (text == "0" || text == "-0" || ActiveValue(text)) continue;
    findings.Add(RuleId::kFractionNotActive, entity.At(number, {"uint_spec"}),
                 entity.Label(number) + " is an alert or fault with values below 1",
                 "raw " + std::to_string(raw) + " decodes as " + Quoted(text) + ", which is not active",
                 "choose units in which every value that matters is at least 1");
    return;
  }
}

}  // namespace

void LintNumbers(const LintEntity& entity, Findings& findings) {
  for (const Attribute& attribute : entity.all) {
    if (!IsNumber(attribute)) continue;
    LintTypeWidth(entity, attribute, findings);
    if (!IsScaled(attribute)) {
      LintUnusableScaling(entity, attribute, findings);
      continue;
    }
    LintMaxWidth(entity, attribute, findings);
    if (LintFactors(entity, attribute, findings)) LintPrecision(entity, attribute, findings);
  }
}

void LintEnums(const LintEntity& entity, Findings& findings) {
  for (const Attribute* attribute : entity.Records()) {
    if (attribute->data_type != MorvixProtocolDataTypeEnum_4_0) continue;
    LintItemTexts(entity, *attribute, findings);
    LintItemCount(entity, *attribute, findings);
  }
}

void LintAlerts(const LintEntity& entity, Findings& findings) {
  for (const Attribute& attribute : entity.all) {
    if (!IsAlertOrFault(attribute)) continue;
    if (IsScaled(attribute)) {
      LintFractions(entity, attribute, findings);
      LintLargeAlert(entity, attribute, findings);
    }
    if (attribute.data_type != MorvixProtocolDataTypeBinary_4_0) continue;
    findings.Add(RuleId::kBinaryAlert, entity.At(attribute, {"data_type"}),
                 entity.Label(attribute) + " is an alert or fault that is a binary",
                 "it is active when its base64 text begins with an integer other than 0: 'AQID' is not, '4AAA' is",
                 "use a bool, an enum or a number");
  }
}

}  // namespace dp4
