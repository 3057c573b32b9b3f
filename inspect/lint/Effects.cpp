// The effects of an attribute that has no usable place or items.

#include <fmt/format.h>

#include <algorithm>

#include "inspect/lint/Checks.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

bool HasNoItems(const Field& field) { return IsEnum(*field.attribute) && field.attribute->enumList.empty(); }

bool IsUsable(const Field& field) { return !field.bits.IsEmpty() && !HasNoItems(field); }

// The result of decoding just this field from a payload of zeros.
Result ReadZeros(const EntityModel& entity, const Field& field, size_t payloadBytes) {
  constexpr size_t kMostBytes = size_t{1} << 20;  // no packet is nearly as long
  const Bytes payload(std::min(payloadBytes, kMostBytes));
  return DecodeSilently(entity, {*field.attribute}, payload.data(), payload.size())[0];
}

// A log line as part of a sentence. The line for an enum depends on the value, so only its beginning is quoted.
std::string LineText(const std::string& line) {
  constexpr char kInvalid[] = "Invalid enum value";
  return line.find(kInvalid) == 0 ? fmt::format("an \"{}\" line", kInvalid) : "\"" + line + "\"";
}

// The effect of writing the attribute; empty when writing works.
std::string EffectOnWriting(const EntityModel& entity, const Field& field) {
  if (IsUsable(field)) return "";
  const Attribute& attribute = *field.attribute;
  if (entity.Writing().payloadBytes == 0) return "every write ends with \"No data will encode.\" and sends nothing";
  // A bool just outside its group is found by the codec, but it has no bit there.
  const bool isVain = IsBool(attribute) &&
                      ReadZeros(entity, field, entity.Writing().payloadBytes).outcome == MorvixProtocolOutcomeDone_4_0;
  if (isVain) return "a write that carries it changes nothing";
  Result refused{MorvixProtocolOutcomeRefusedByPlace_4_0, 0};
  if (HasNoItems(field)) refused.outcome = MorvixProtocolOutcomeRefusedByItems_4_0;
  if (IsNumber(attribute) && !IsScaled(attribute)) refused.outcome = MorvixProtocolOutcomeRefusedByScaling_4_0;
  return fmt::format("every write that carries it ends with {} and sends nothing",
                     LineText(EncodeLine(attribute, refused)));
}

std::string EffectOnReading(const EntityModel& entity, const Field& field) {
  if (IsUsable(field)) return "";
  const size_t payloadBytes = entity.Reading().payloadBytes;
  const size_t longerBytes = payloadBytes + field.attribute->position.groupByteLength + 1;
  const bool isReadFromLonger = !field.bitsInLonger.IsEmpty() && field.bitsInLonger.EndByte() <= longerBytes;
  if (payloadBytes == 0 && isReadFromLonger) return "";
  const Result result = ReadZeros(entity, field, std::max<size_t>(payloadBytes, 1));
  const Result fromLonger = ReadZeros(entity, field, longerBytes);
  const bool isSame = result.outcome == fromLonger.outcome && result.raw == fromLonger.raw;
  const std::string decode = isSame ? "decode" : fmt::format("decode of {} of payload", Count(payloadBytes, "byte"));
  const std::string line = DecodeLine(*field.attribute, result);
  if (!line.empty()) {
    return fmt::format("every {} ends with {}{}", decode, LineText(line),
                       HasNoItems(field) ? ", and the attributes after it are missing" : " and loses the whole entity");
  }
  if (result.outcome != MorvixProtocolOutcomeDone_4_0) return "no " + decode + " shows it";
  const std::string shown = ValueText(field, result, nullptr);
  return fmt::format("every {} shows it as {}", decode, IsBool(*field.attribute) ? shown : Quoted(shown));
}

}  // namespace

std::string EffectOfUnusable(const EntityModel& entity, size_t element) {
  const Field* written = entity.Written(element);
  const Field* read = entity.Read(element);
  std::string effect = written == nullptr ? "" : EffectOnWriting(entity, *written);
  const std::string onReading = read == nullptr ? "" : EffectOnReading(entity, *read);
  if (!effect.empty() && !onReading.empty()) effect += "; ";
  return effect + onReading;
}

}  // namespace morvix::inspect
