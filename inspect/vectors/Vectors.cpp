#include "inspect/vectors/Vectors.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <random>
#include <utility>

#include "host/Logging.h"
#include "inspect/packets/Encoding.h"
#include "inspect/packets/Reading.h"
#include "inspect/packets/ResultForms.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

size_t BinaryBytes(const Field& field) { return static_cast<size_t>(field.bits.Length() / 8); }

VectorValue BinaryValue(const Field& field, Bytes bytes) {
  const std::string text = '"' + Base64Text(bytes.data(), bytes.size()) + '"';
  return {&field, 0, std::move(bytes), text};
}

// The text of a number that encoding turns into `raw`: what decoding prints, or what it prints rounded. Empty where the
// scaling has no such number.
std::string NumberOf(const Attribute& number, uint64_t raw) {
  const Scaling& scaling = number.uint_spec;
  const double exact = static_cast<double>(raw) * scaling.ratio + scaling.addition;
  if (!std::isfinite(exact)) return "";
  for (const std::string& text : {UserText(number, raw), ShortestText(exact)}) {
    uint64_t written = 0;
    const bool isWritten = !text.empty() && ProtocolValueToRaw_4_0(number, std::strtod(text.c_str(), nullptr), written);
    if (isWritten && written == raw) return text;
  }
  return "";
}

// Its text is empty where no number is written as this raw value.
VectorValue ValueOf(const Field& field, uint64_t raw) {
  const Attribute& attribute = *field.attribute;
  if (IsBool(attribute)) return {&field, raw, {}, raw != 0 ? "true" : "false"};
  if (IsEnum(attribute)) return {&field, raw, {}, std::to_string(raw)};
  return {&field, raw, {}, NumberOf(attribute, raw)};
}

// The values of an attribute that are tried: what lies at its limits and in the middle between them.
std::vector<VectorValue> ValuesOf(const Field& field) {
  const Attribute& attribute = *field.attribute;
  std::vector<VectorValue> values;
  if (IsBinary(attribute)) {
    Bytes counted(BinaryBytes(field));
    for (size_t i = 0; i < counted.size(); ++i) counted[i] = static_cast<byte>(i * 37 + 129);
    for (const byte fill : {byte{0x00}, byte{0xff}}) {
      values.push_back(BinaryValue(field, Bytes(counted.size(), fill)));
    }
    values.push_back(BinaryValue(field, counted));
    return values;
  }
  std::vector<uint64_t> raws;
  if (IsNumber(attribute)) {
    if (!IsScaled(attribute)) return {};
    const auto min = static_cast<uint64_t>(attribute.uint_spec.min);
    const auto max = static_cast<uint64_t>(attribute.uint_spec.max);
    raws = {min, min + 1, min + (max - min) / 2, max - 1, max};
    std::sort(raws.begin(), raws.end());
    raws.erase(std::unique(raws.begin(), raws.end()), raws.end());
  } else {
    const size_t count = IsBool(attribute) ? 2 : attribute.enumList.size();
    for (uint64_t raw = 0; raw < count; ++raw) raws.push_back(raw);
  }
  for (const uint64_t raw : raws) values.push_back(ValueOf(field, raw));
  return values;
}

// Values that are just out of range.
std::vector<VectorValue> OutsidersOf(const Field& field) {
  const Attribute& attribute = *field.attribute;
  if (IsEnum(attribute)) return {ValueOf(field, attribute.enumList.size())};
  if (!IsNumber(attribute) || !IsScaled(attribute)) return {};
  const Scaling& scaling = attribute.uint_spec;
  std::vector<VectorValue> values;
  for (const double raw : {static_cast<double>(scaling.min) - 1, static_cast<double>(scaling.max) + 1}) {
    const double user = raw * scaling.ratio + scaling.addition;
    uint64_t rounded = 0;
    const bool isTaken = ProtocolValueToRaw_4_0(attribute, user, rounded);  // large ones are rounded into the range
    if (std::isfinite(user) && !isTaken) values.push_back({&field, 0, {}, ShortestText(user)});
  }
  return values;
}

// Replaces the bits of a field.
void Put(const VectorValue& value, byte* payload) {
  const BitRange& bits = value.field->bits;
  if (!value.bytes.empty()) {
    std::copy(value.bytes.begin(), value.bytes.end(), payload + bits.FirstByte());
    return;
  }
  uint64_t raw = value.raw;
  for (uint64_t bit = bits.end; bit-- > bits.begin; raw >>= 1) {
    byte& target = payload[bit / 8];
    const auto mask = static_cast<byte>(0x80 >> bit % 8);
    target = static_cast<byte>((target & ~mask) | ((raw & 1) != 0 ? mask : 0));
  }
}

Json::Value JsonOf(const VectorValue& value) {
  const Attribute& attribute = *value.field->attribute;
  if (IsBool(attribute)) return value.raw != 0;
  if (IsEnum(attribute)) return static_cast<Json::UInt>(value.raw);
  if (IsBinary(attribute)) return Base64Text(value.bytes.data(), value.bytes.size());
  return std::strtod(value.value.c_str(), nullptr);
}

class VectorMaker {
 public:
  VectorMaker(const EntityModel& entity, const VectorChoices& choices)
      : entity_(entity), choices_(choices), random_(choices.seed) {
    const Direction& writing = entity.Writing();
    if (std::max(entity.Reading().payloadBytes, writing.payloadBytes) > MorvixProtocolMaxPayloadBytes_4_0 ||
        FlagBytes(writing) > MorvixProtocolMaxFlagBytes_4_0) {
      throw InputError(InQuotes(entity.Info().name) + " takes more payload or flags than a packet can hold");
    }
    vectors_.entity = entity.Info().name;
    for (const Field& field : entity.Reading().fields) Count(field.attribute->enumList.size() * sizeof(VectorValue));
  }

  Vectors Make() {
    MakeWrites();
    if (entity_.Reading().payloadBytes != 0) MakeNotifications();
    return std::move(vectors_);
  }

 private:
  using Lists = std::vector<std::vector<VectorValue>>;  // values, by attribute

  // One round takes a value of each list, until every value has had its turn. A single attribute needs none.
  static size_t RoundsOf(const Lists& lists) {
    if (lists.size() < 2) return 0;
    size_t rounds = 0;
    for (const auto& list : lists) rounds = std::max(rounds, list.size());
    return rounds;
  }

  static std::vector<VectorValue> Round(const Lists& lists, size_t round) {
    std::vector<VectorValue> values;
    for (const auto& list : lists) {
      if (!list.empty()) values.push_back(list[round % list.size()]);
    }
    return values;
  }

  // Takes note of memory that is about to be used.
  void Count(size_t bytes) {
    constexpr size_t kMaxBytes = size_t{1} << 27;
    bytes_ += bytes;
    if (bytes_ > kMaxBytes) {
      throw InputError(
          fmt::format("the vectors of {} would take more than {} bytes", InQuotes(vectors_.entity), kMaxBytes));
    }
  }

  uint64_t RandomBelow(uint64_t count) { return random_() % count; }

  // Nothing where the attribute takes no value.
  std::optional<VectorValue> RandomValue(const Field& field) {
    const Attribute& attribute = *field.attribute;
    if (IsBool(attribute)) return ValueOf(field, RandomBelow(2));
    if (IsEnum(attribute)) {
      if (attribute.enumList.empty()) return std::nullopt;
      return ValueOf(field, RandomBelow(attribute.enumList.size()));
    }
    if (IsBinary(attribute)) {
      Bytes bytes(BinaryBytes(field));
      for (byte& value : bytes) value = static_cast<byte>(RandomBelow(256));
      return BinaryValue(field, std::move(bytes));
    }
    if (!IsScaled(attribute)) return std::nullopt;
    const auto min = static_cast<uint64_t>(attribute.uint_spec.min);
    const auto max = static_cast<uint64_t>(attribute.uint_spec.max);
    return ValueOf(field, min + RandomBelow(max - min + 1));
  }

  // Whether a packet holds the values; they are refused otherwise.
  bool AddWrite(std::vector<VectorValue> values) {
    GivenValues given(entity_, entity_.Writing());
    for (const VectorValue& value : values) {
      const Attribute& attribute = *value.field->attribute;
      if (given.Of(attribute) == nullptr) given.Set(attribute, JsonOf(value), {"", value.value});
    }
    MorvixProtocolOwnedPackage_4_0 package;
    package.cmd = MorvixProtocolCommandWriteReq_4_0;
    const LogCapture silent;
    const Encoding encoding(entity_, InQuotes(entity_.Info().name), given, std::move(package));
    const std::vector<std::string> problems = encoding.Problems();
    const size_t valueBytes = values.size() * sizeof(VectorValue);
    if (!problems.empty()) {
      std::string reason = fmt::format("{}", fmt::join(problems, "; "));
      Count(reason.size() + valueBytes);
      vectors_.refused.push_back({std::move(values), std::move(reason)});
      return false;
    }
    Bytes packet = encoding.Packet();
    Count(packet.size() + valueBytes);
    vectors_.writes.push_back({std::move(values), std::move(packet)});
    return true;
  }

  void MakeWrites() {
    Lists lists;
    for (const Field& field : entity_.Writing().fields) {
      lists.emplace_back();
      for (VectorValue& value : ValuesOf(field)) {
        if (!value.value.empty() && AddWrite({value})) lists.back().push_back(std::move(value));
      }
      for (VectorValue& value : OutsidersOf(field)) AddWrite({std::move(value)});
    }
    for (size_t round = 0; round < RoundsOf(lists); ++round) AddWrite(Round(lists, round));
    const bool isAny = std::any_of(lists.begin(), lists.end(), [](const auto& list) { return !list.empty(); });
    for (size_t i = 0; i < choices_.random && isAny; ++i) AddWrite(RandomWrite(lists));
  }

  std::vector<VectorValue> RandomWrite(const Lists& lists) {
    std::vector<VectorValue> values;
    while (values.empty()) {
      for (const Field& field : entity_.Writing().fields) {
        const std::vector<VectorValue>& known = lists[field.flag];
        if (known.empty() || RandomBelow(2) == 0) continue;
        const std::optional<VectorValue> value = RandomValue(field);
        const bool isWritten = value && !value->value.empty();
        values.push_back(isWritten ? *value : known[static_cast<size_t>(RandomBelow(known.size()))]);
      }
    }
    return values;
  }

  // A notification of these values; the bits of all other attributes are 0.
  void AddNotification(const std::vector<VectorValue>& sent) {
    NotificationVector vector;
    vector.packet.assign(1 + entity_.Reading().payloadBytes, byte{0});
    vector.packet[0] = MorvixProtocolCommandNotifyResp_4_0;
    byte* payload = vector.packet.data() + 1;
    for (const VectorValue& value : sent) Put(value, payload);
    const LogCapture silent;
    PacketReader reader(entity_);
    PacketError error;
    const PacketReading& reading = *reader.Read(vector.packet, error);
    MakeForm(DocumentForm::kDecoded, entity_, {})->Append(reading, vector.document);
    for (const Field& field : entity_.Reading().fields) {
      if (!reading.IsTold(field)) continue;
      const Result& result = reading.values[field.flag].result;
      std::string text = ValueText(field, result, payload);
      if (text.empty()) continue;
      const byte* first = payload + field.bits.FirstByte();
      const bool isBinary = IsBinary(*field.attribute);
      // JSON has no infinite numbers.
      const bool isText =
          isBinary || (IsNumber(*field.attribute) && !std::isfinite(std::strtod(text.c_str(), nullptr)));
      if (isText) text = InQuotes(text);
      vector.values.push_back(
          {&field, result.raw, isBinary ? Bytes(first, first + BinaryBytes(field)) : Bytes(), text});
    }
    Count(vector.packet.size() + vector.document.size() + vector.values.size() * sizeof(VectorValue));
    vectors_.notifications.push_back(std::move(vector));
  }

  void MakeNotifications() {
    Lists lists;
    for (const Field& field : entity_.Reading().fields) {
      lists.push_back(field.bits.IsEmpty() ? std::vector<VectorValue>() : ValuesOf(field));
    }
    const std::vector<VectorValue> lowest = Round(lists, 0);
    AddNotification(lowest);
    for (const auto& list : lists) {
      for (size_t i = 1; i < list.size(); ++i) {
        std::vector<VectorValue> values = lowest;
        for (VectorValue& value : values) {
          if (value.field == list[i].field) value = list[i];
        }
        AddNotification(values);
      }
    }
    for (size_t round = 1; round < RoundsOf(lists); ++round) AddNotification(Round(lists, round));
    for (size_t i = 0; i < choices_.random; ++i) {
      std::vector<VectorValue> values;
      for (const Field& field : entity_.Reading().fields) {
        if (lists[field.flag].empty()) continue;
        if (std::optional<VectorValue> value = RandomValue(field)) values.push_back(std::move(*value));
      }
      AddNotification(values);
    }
  }

  const EntityModel& entity_;
  const VectorChoices choices_;
  std::mt19937_64 random_;  // its numbers are the same everywhere
  Vectors vectors_;
  size_t bytes_ = 0;
};

}  // namespace

Vectors VectorsOf(const EntityModel& entity, const VectorChoices& choices) {
  return VectorMaker(entity, choices).Make();
}

}  // namespace morvix::inspect
