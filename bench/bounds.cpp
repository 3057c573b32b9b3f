// Measures the cost of hostile input: runs one operation on an expensive input, inside MeasuredCalls, which callgrind
// counts, on a thread with a small stack.
//   bounds SCENARIO SIZE
// Prints the number of units of the input and the operation's peak heap in bytes. Without arguments it lists the
// scenarios, each with its unit and two sizes.

#include <json/reader.h>
#include <json/writer.h>
#include <malloc.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "Workload.h"
#include "host/Base64.h"
#include "host/Logging.h"
#include "host/TavelConfig.h"

namespace {

// The stack that is enough for every operation, whatever its input. Only JsonCpp's reader and writer need more, for
// documents nested as deeply as the reader allows.
constexpr size_t kStackBytes = size_t{64} * 1024;
constexpr size_t kNestedStackBytes = size_t{384} * 1024;
constexpr size_t kNestedCopyStackBytes = size_t{128} * 1024;  // to copy such a value
constexpr size_t kDeepest = 900;                              // nearly the reader's limit

size_t heapBytes = 0;
size_t heapPeak = 0;

void* Counted(void* memory) {
  heapBytes += malloc_usable_size(memory);
  if (heapBytes > heapPeak) heapPeak = heapBytes;
  return memory;
}

}  // namespace

// The C library's own allocator under the names that everything calls, counted.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the C library's
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void __libc_free(void* memory);
// NOLINTEND(bugprone-reserved-identifier)
void* malloc(size_t size) { return Counted(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) { return Counted(__libc_calloc(count, size)); }
void* realloc(void* memory, size_t size) {
  heapBytes -= malloc_usable_size(memory);
  return Counted(__libc_realloc(memory, size));
}
void free(void* memory) {
  heapBytes -= malloc_usable_size(memory);
  __libc_free(memory);
}
}

namespace {

// Whether the operation had the scenario's expected result.
using Run = std::function<bool()>;

// An input with its number of units, and the operation on it.
struct Input {
  size_t units;
  Run run;
};

struct Scenario {
  const char* name;
  const char* unit;
  size_t small;
  size_t large;
  std::function<Input(size_t size)> make;
  size_t stackBytes = kStackBytes;
};

Json::Value MakeAttribute(size_t index, const char* type, const char* dataType, size_t byteOffset, size_t length) {
  Json::Value attribute;
  attribute["id"] = static_cast<int>(index);
  attribute["name"] = attribute["display_name"] = "a" + std::to_string(index);
  attribute["desc"] = "";
  attribute["type"] = type;
  attribute["data_type"] = dataType;
  Json::Value& position = attribute["position"];
  position["byte_offset"] = static_cast<Json::UInt64>(byteOffset);
  position["bit_offset"] = 0;
  position["unit"] = "byte";
  position["len"] = static_cast<Json::UInt64>(length);
  Json::Value& scaling = attribute["uint_spec"];
  scaling["min"] = 0;
  scaling["max"] = 255;
  scaling["ratio"] = scaling["addition"] = 1.0;
  if (attribute["data_type"] == "enum") attribute["enum"].append("item");
  return attribute;
}

Json::Value MakeEntity() {
  Json::Value entity;
  entity["id"] = 1;
  entity["name"] = entity["display_name"] = "appliance";
  entity["attrs"] = Json::Value(Json::arrayValue);
  return entity;
}

MorvixProtocolPackage_4_0 Response(std::vector<byte>& payload) {
  MorvixProtocolPackage_4_0 package;
  package.cmd = MorvixProtocolCommandReadResp_4_0;
  package.value = payload.data();
  package.sizeValue = payload.size();
  return package;
}

Input DecodeAttributes(size_t count) {
  const Workload workload(count);
  return {workload.attributes.size(), [workload] {
            Json::Value document;
            std::vector<byte> payload(workload.packet.begin() + 1, workload.packet.end());
            ProtocolDecodeEntity_4_0(workload.entity, Response(payload), document);
            return document[kEntityName].size() == workload.attributes.size();
          }};
}

Input ReceiveAttributes(size_t count) {
  const Workload workload(count);
  return {workload.attributes.size(), [workload] {
            std::string document;
            std::vector<TavelReceiveInfo> alerts;
            std::vector<TavelReceiveInfo> faults;
            return ProtocolReceivePacket_4_0(workload.entityInfo, workload.attributes, workload.packet.data(),
                                             workload.packet.size(), document, alerts, faults);
          }};
}

// Every attribute is a binary that covers the whole of the longest payload.
Input DecodeOverlappingBinaries(size_t count) {
  constexpr size_t kPayloadBytes = 16384;
  Json::Value entity = MakeEntity();
  for (size_t i = 0; i < count; ++i) {
    entity["attrs"].append(MakeAttribute(i, "status_readonly", "binary", 0, kPayloadBytes));
  }
  return {count * kPayloadBytes, [entity] {
            Json::Value document;
            std::vector<byte> payload(kPayloadBytes, 0xa5);
            ProtocolDecodeEntity_4_0(entity, Response(payload), document);
            return document["appliance"].size() == entity["attrs"].size();
          }};
}

// Every attribute after an enum inherits its items.
Input ParseInheritedItems(size_t size) {
  Json::Value entity = MakeEntity();
  entity["attrs"].append(MakeAttribute(0, "status_readonly", "enum", 0, 1));
  for (size_t i = 0; i < size; ++i) entity["attrs"][0]["enum"].append("item");
  for (size_t i = 1; i < size; ++i) entity["attrs"].append(MakeAttribute(i, "status_readonly", "uint8", i, 1));
  return {size * size, [entity] {
            std::vector<MorvixProtocolAttribute_4_0> attributes;
            MorvixProtocolEntity_4_0 info;
            return ProtocolParseEntity_4_0(entity, 15, attributes, info) &&
                   attributes.back().enumList.size() > entity["attrs"].size();
          }};
}

// Attributes that the parser drops, with a log line for each.
Input ParseDroppedAttributes(size_t count) {
  Json::Value entity = MakeEntity();
  for (size_t i = 0; i < count; ++i) {
    entity["attrs"].append(MakeAttribute(i, "status_writable", "binary", i, 1));
    entity["attrs"][static_cast<Json::ArrayIndex>(i)].removeMember("desc");
  }
  return {count, [entity] {
            MorvixProtocolPackage_4_0 package;
            ProtocolEncodeEntity_4_0(entity, package, Json::Value(Json::objectValue));
            return package.sizeValue == 0;
          }};
}

// A small configuration that needs a long payload.
Input EncodeFarField(size_t byteOffset) {
  Json::Value entity = MakeEntity();
  entity["attrs"].append(MakeAttribute(0, "status_writable", "uint8", byteOffset, 1));
  return {byteOffset, [entity, byteOffset] {
            Json::Value values;
            values["appliance"]["a0"] = 5;
            MorvixProtocolPackage_4_0 package;
            ProtocolEncodeEntity_4_0(entity, package, values);
            std::free(package.flags);
            std::free(package.value);
            return package.sizeValue == byteOffset + 1;
          }};
}

// A number with many digits, and members that do not belong to an attribute.
Input EncodeLongNumbers(size_t digits) {
  Json::Value entity = MakeEntity();
  entity["attrs"].append(MakeAttribute(0, "status_writable", "uint8", 0, 1));
  entity["attrs"].append(MakeAttribute(1, "status_writable", "enum", 1, 1));
  Json::Value values;
  values["appliance"]["a0"] = "5." + std::string(digits, '0');
  values["appliance"]["a1"] = std::string(digits, '0');
  return {2 * digits, [entity, values] {
            MorvixProtocolPackage_4_0 package;
            ProtocolEncodeEntity_4_0(entity, package, values);
            std::free(package.flags);
            std::free(package.value);
            return package.sizeValue == 2;
          }};
}

Input ConvertText(const std::string& text, bool isAccepted = true) {
  return {text.size(), [text, isAccepted] {
            Json::Value alerts;
            Json::Value faults;
            return ProtocolConvertReceiveResult_4_0(text, alerts, faults).empty() != isAccepted;
          }};
}

Input ConvertManyAlerts(size_t count) {
  std::string text = "{\"version\":4.0,\"e\":{";
  for (size_t i = 0; i < count; ++i) {
    text += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":{\"type\":" + (i % 2 == 0 ? "4" : "1") + ",\"value\":0}";
  }
  return ConvertText(text + "}}");
}

// Nested arrays side by side, each as deep as the reader allows.
Input ConvertNested(size_t count) {
  std::string text = "{\"version\":4.0,\"e\":[";
  for (size_t i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ",") + std::string(kDeepest, '[') + std::string(kDeepest, ']');
  }
  return ConvertText(text + "]}");
}

Input ConvertTooDeep(size_t depth) { return ConvertText(std::string(depth, '['), false); }

Input ConvertEscapes(size_t count) {
  std::string text = "{\"version\":4.0,\"e\":\"";
  for (size_t i = 0; i < count; ++i) text += "\\u0001";
  return ConvertText(text + "\"}");
}

Input ConvertLongNumber(size_t digits) { return ConvertText("{\"version\":4." + std::string(digits, '0') + "}"); }

Input ReduceAlerts(size_t count) {
  Json::Value alerts(Json::arrayValue);
  for (size_t i = 0; i < count; ++i) {
    Json::Value& alert = alerts.append(Json::objectValue);
    alert["name"] = "an alert";
    alert["value"] = "1";
  }
  return {count, [alerts] {
            std::vector<TavelReceiveInfo> active;
            ProtocolGetAlertsOrFaults_4_0(alerts, active);
            return active.size() == alerts.size();
          }};
}

// Every device has one more member, `more`.
Input FilterDevicesWith(const Json::Value& more, size_t count) {
  Json::Value devices(Json::arrayValue);
  for (size_t i = 0; i < count; ++i) {
    Json::Value& device = devices.append(Json::objectValue);
    device["protocolType"] = "data-point";
    device["packetVersion"] = "0x4";
    device["product_key"] = "key";
    device["more"] = more;
  }
  TavelConfig::sharedInstance()->SetAllDevices(devices);
  return {count, [count] {
            Json::Value matching;
            Json::Value device;
            return ProtocolFilterDevices_4_0("data-point", 4, matching) &&
                   !ProtocolGetDevice_4_0(matching, "another key", device) &&
                   ProtocolGetProductList_4_0(matching).size() == count;
          }};
}

Input FilterDevices(size_t count) { return FilterDevicesWith(Json::Value(), count); }

Input FilterNestedDevices(size_t count) {
  Json::Value nested;
  for (size_t i = 0; i < kDeepest; ++i) {
    Json::Value around(Json::arrayValue);
    around.append(std::move(nested));
    nested = std::move(around);
  }
  return FilterDevicesWith(nested, count);
}

Input DecodeBase64(size_t size) {
  const std::string text(size, 'A');
  return {size, [text] {
            std::vector<byte> bytes(text.size());
            return __internal_base64_decode(bytes.data(), text.c_str(), static_cast<uint32_t>(bytes.size())) > 0;
          }};
}

const Scenario kScenarios[] = {
    {"decode", "attribute", 300, 3000, DecodeAttributes},
    {"receive-in-one-pass", "attribute", 300, 3000, ReceiveAttributes},
    {"decode-overlapping-binaries", "byte of field", 4, 40, DecodeOverlappingBinaries},
    {"parse-inherited-items", "item and attribute", 40, 400, ParseInheritedItems},
    {"parse-dropped-attributes", "attribute", 300, 3000, ParseDroppedAttributes},
    {"encode-far-field", "payload byte", 100000, 1000000, EncodeFarField},
    {"encode-long-numbers", "digit", 20000, 200000, EncodeLongNumbers},
    {"convert-many-alerts", "byte of text", 300, 3000, ConvertManyAlerts},
    {"convert-nested", "byte of text", 3, 30, ConvertNested, kNestedStackBytes},
    {"convert-too-deep", "byte of text", 20000, 200000, ConvertTooDeep, kNestedStackBytes},
    {"convert-escapes", "byte of text", 5000, 50000, ConvertEscapes},
    {"convert-long-number", "byte of text", 20000, 200000, ConvertLongNumber},
    {"reduce-alerts", "alert", 500, 5000, ReduceAlerts},
    {"filter-devices", "device", 500, 5000, FilterDevices},
    {"filter-nested-devices", "device", 5, 50, FilterNestedDevices, kNestedCopyStackBytes},
    {"decode-base64", "character", 20000, 200000, DecodeBase64},
};

}  // namespace

extern "C" __attribute__((noinline)) void* MeasuredCalls(void* run) {
  return (*static_cast<Run*>(run))() ? run : nullptr;
}

namespace {

bool RunOnStack(size_t bytes, Run& run) {
  pthread_t thread;
  pthread_attr_t attributes;
  void* result = nullptr;
  return pthread_attr_init(&attributes) == 0 && pthread_attr_setstacksize(&attributes, bytes) == 0 &&
         pthread_create(&thread, &attributes, MeasuredCalls, &run) == 0 && pthread_join(thread, &result) == 0 &&
         result != nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 1) {
    for (const Scenario& scenario : kScenarios) {
      std::printf("%s\t%s\t%zu\t%zu\n", scenario.name, scenario.unit, scenario.small, scenario.large);
    }
    return EXIT_SUCCESS;
  }
  SetLogSink([](int, const char*, const std::string&) {});
  for (const Scenario& scenario : kScenarios) {
    if (argc != 3 || std::string(scenario.name) != argv[1]) continue;
    Input input = scenario.make(std::strtoul(argv[2], nullptr, 10));
    const size_t before = heapPeak = heapBytes;
    if (!RunOnStack(scenario.stackBytes, input.run)) {
      std::cerr << "bounds: " << scenario.name << " did not do what it should\n";
      return EXIT_FAILURE;
    }
    std::printf("%zu %zu\n", input.units, heapPeak - before);
    return EXIT_SUCCESS;
  }
  std::cerr << "usage: bounds [SCENARIO SIZE]\n";
  return 2;
}
