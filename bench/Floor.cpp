#include "Floor.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "host/Base64.h"

namespace {

using Kind = Field::Kind;

constexpr double kPowersOfTen[] = {1, 10, 100};
constexpr uint64_t kIntegerPowersOfTen[] = {1, 10, 100};

void StoreBytes(uint64_t raw, size_t length, byte* out) {
  for (size_t i = length; i-- > 0; raw >>= 8) out[i] = static_cast<byte>(raw);
}

uint64_t LoadBytes(const byte* data, size_t length) {
  uint64_t raw = 0;
  for (size_t i = 0; i < length; ++i) raw = raw << 8 | data[i];
  return raw;
}

// A number with a known count of decimals needs integers only.
char* PrintDecimal(uint64_t raw, unsigned decimals, char* out) {
  out = std::to_chars(out, out + 24, raw / kIntegerPowersOfTen[decimals]).ptr;
  uint64_t fraction = raw % kIntegerPowersOfTen[decimals];
  if (fraction == 0) return out;
  *out++ = '.';
  for (unsigned i = decimals; i-- > 0 && fraction != 0; fraction %= kIntegerPowersOfTen[i]) {
    *out++ = static_cast<char>('0' + fraction / kIntegerPowersOfTen[i]);
  }
  return out;
}

Json::Value FieldValue(const Field& field, const byte* payload) {
  const byte* data = payload + field.byteOffset;
  char text[64];
  switch (field.kind) {
    case Kind::kBool:
      return (*data >> field.shift & 1) != 0;
    case Kind::kEnum:
      return {text, std::to_chars(text, text + sizeof text, *data >> field.shift & field.mask).ptr};
    case Kind::kBinary: {
      __internal_base64_encode(text, sizeof text, data, field.byteLength);
      return Json::Value(text);
    }
    case Kind::kNumber:
      break;
  }
  return {text, PrintDecimal(LoadBytes(data, field.byteLength), field.decimals, text)};
}

void PrintValue(const Field& field, const byte* payload, std::string& out) {
  const byte* data = payload + field.byteOffset;
  if (field.kind == Kind::kBool) {
    out += (*data >> field.shift & 1) != 0 ? "true" : "false";
    return;
  }
  char text[64];
  const char* end = nullptr;
  switch (field.kind) {
    case Kind::kEnum:
      end = std::to_chars(text, text + sizeof text, *data >> field.shift & field.mask).ptr;
      break;
    case Kind::kBinary:
      end = text + std::strlen(__internal_base64_encode(text, sizeof text, data, field.byteLength));
      break;
    default:
      end = PrintDecimal(LoadBytes(data, field.byteLength), field.decimals, text);
  }
  out += '"';
  out.append(text, static_cast<size_t>(end - text));
  out += '"';
}

void AppendActive(const std::vector<Field>& conditions, const byte* payload, std::vector<TavelReceiveInfo>& active) {
  for (const Field& field : conditions) {
    if ((payload[field.byteOffset] >> field.shift & 1) != 0) active.push_back({field.key, 1});
  }
}

}  // namespace

FloorPackage FloorEncode(const Workload& workload) {
  FloorPackage package;
  package.flags = static_cast<byte*>(std::calloc(workload.flagLength, 1));
  package.value = static_cast<byte*>(std::calloc(workload.writableLength, 1));
  const Json::Value* values = workload.values.find(kEntityName, kEntityName + sizeof kEntityName - 1);
  for (const Field& field : workload.fields) {
    if (field.group != MorvixProtocolTypeStatusWritable_4_0) break;  // the writable ones come first
    const Json::Value* value = values->find(field.key.data(), field.key.data() + field.key.size());
    if (value == nullptr) continue;
    byte* out = package.value + field.byteOffset;
    switch (field.kind) {
      case Kind::kBool:
      case Kind::kEnum:
        *out = static_cast<byte>(*out | static_cast<unsigned>(value->asInt()) << field.shift);
        break;
      case Kind::kBinary:
        __internal_base64_decode(out, value->asCString(), static_cast<uint32_t>(field.byteLength));
        break;
      case Kind::kNumber:
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): never negative, and cheaper than a call of lround
        StoreBytes(static_cast<uint64_t>(value->asDouble() * kPowersOfTen[field.decimals] + 0.5), field.byteLength,
                   out);
    }
    package.flags[field.flagByte] |= field.flagMask;
  }
  return package;
}

void FloorDecode(const Workload& workload, Json::Value& document) {
  const byte* payload = workload.packet.data() + 1;
  Json::Value& entity = document[kEntityName];
  Json::Value prototype;
  prototype[Json::StaticString("type")] = 0;
  prototype[Json::StaticString("value")] = Json::Value();
  MorvixProtocolType_4_0 group = MorvixProtocolTypeUnknown_4_0;
  for (const Field& field : workload.fields) {
    if (field.group != group) {
      group = field.group;
      *prototype.begin() = static_cast<int>(group);
    }
    Json::Value& item = entity[field.key];
    item.copyPayload(prototype);
    Json::Value value = FieldValue(field, payload);
    (++item.begin())->swapPayload(value);
  }
}

FloorReceivePlan::FloorReceivePlan(const Workload& workload) {
  std::vector<Field> fields = workload.fields;
  std::sort(fields.begin(), fields.end(), [](const Field& left, const Field& right) { return left.key < right.key; });
  std::string opening = std::string("{\"") + kEntityName + "\":{\"";
  for (const Field& field : fields) {
    if (field.group == MorvixProtocolTypeStatusWritable_4_0) {
      values.push_back({field, opening + field.key + "\":"});
      opening = ",\"";
    } else {
      (field.group == MorvixProtocolTypeAlert_4_0 ? alerts : faults).push_back(field);
    }
  }
}

void FloorReceive(const FloorReceivePlan& plan, const byte* packet, std::string& document,
                  std::vector<TavelReceiveInfo>& alerts, std::vector<TavelReceiveInfo>& faults) {
  const byte* payload = packet + 1;
  document.clear();
  for (const auto& [field, opening] : plan.values) {
    document += opening;
    PrintValue(field, payload, document);
  }
  document += "},\"version\":4.0}\n";
  AppendActive(plan.alerts, payload, alerts);
  AppendActive(plan.faults, payload, faults);
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the configuration, which is our own
size_t FloorConfig(const Json::Value& configuration) {
  const char* end = nullptr;
  switch (configuration.type()) {
    case Json::objectValue: {
      size_t seen = 0;
      const auto last = configuration.end();
      for (auto it = configuration.begin(); it != last; ++it) {
        const char* name = it.memberName(&end);
        seen += static_cast<size_t>(end - name) + FloorConfig(*it);
      }
      return seen;
    }
    case Json::arrayValue: {
      size_t seen = 0;
      for (const Json::Value& element : configuration) seen += FloorConfig(element);
      return seen;
    }
    case Json::stringValue: {
      const char* text = nullptr;
      configuration.getString(&text, &end);
      return static_cast<size_t>(end - text);
    }
    case Json::realValue:
      return configuration.asDouble() != 0 ? 1 : 0;
    default:
      return configuration.asLargestInt() != 0 ? 1 : 0;
  }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::string FloorConvert(const std::string& text) {
  Json::Value root;
  Json::Reader().parse(text.data(), text.data() + text.size(), root);
  return Json::FastWriter().write(root);
}
#pragma GCC diagnostic pop

size_t FloorAlerts(const Json::Value& list, std::vector<TavelReceiveInfo>& active) {
  static constexpr char kName[] = "name";
  static constexpr char kValue[] = "value";
  for (const Json::Value& item : list) {
    if (item.find(kValue, kValue + 5)->asBool()) active.push_back({item.find(kName, kName + 4)->asCString(), 1});
  }
  return active.size();
}
