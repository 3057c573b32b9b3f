// What no implementation that hands over Json::Value documents can avoid: the layout is known beforehand as a table of
// shifts and masks, nothing is checked, and documents are read and built with JsonCpp at its cheapest. The names of
// attributes are known at run time only, so documents own them; "type" and "value" are static.

#ifndef MORVIX_BENCH_FLOOR_H
#define MORVIX_BENCH_FLOOR_H

#include "Workload.h"

// Both buffers come from the C heap, as the module hands them over.
struct FloorPackage {
  byte* flags = nullptr;
  byte* value = nullptr;
};

FloorPackage FloorEncode(const Workload& workload);
void FloorDecode(const Workload& workload, Json::Value& document);

// The texts before each value of the application's document, in the order in which it is written, and the conditions.
struct FloorReceivePlan {
  explicit FloorReceivePlan(const Workload& workload);

  struct Value {
    Field field;
    std::string opening;  // comma or brace, key and colon
  };
  std::vector<Value> values;
  std::vector<Field> alerts;  // in the order of their keys
  std::vector<Field> faults;
};

// Appends to the lists.
void FloorReceive(const FloorReceivePlan& plan, const byte* packet, std::string& document,
                  std::vector<TavelReceiveInfo>& alerts, std::vector<TavelReceiveInfo>& faults);

// One walk over the configuration that looks at each member once, at its name and its value.
size_t FloorConfig(const Json::Value& configuration);

// Parses the text and writes it out again.
std::string FloorConvert(const std::string& text);

// One walk over a list of alerts or faults; gives the number of those that are true.
size_t FloorAlerts(const Json::Value& list, std::vector<TavelReceiveInfo>& active);

#endif
