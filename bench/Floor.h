// The minimum cost of any implementation with Json::Value documents: the layout is a prepared table of shifts and
// masks, nothing is checked, and JsonCpp is used in its cheapest way. The names of
// attributes are known at run time only, so documents own them; "type" and "value" are static.

#ifndef MORVIX_BENCH_FLOOR_H
#define MORVIX_BENCH_FLOOR_H

#include "Workload.h"

// Both buffers come from the C heap, as in the module.
struct FloorPackage {
  byte* flags = nullptr;
  byte* value = nullptr;
};

FloorPackage FloorEncode(const Workload& workload);
void FloorDecode(const Workload& workload, Json::Value& document);

// The text before each value of the application's document, in the order of its keys, and the alerts and faults.
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

// Visits each member of the configuration once, its name and its value.
size_t FloorConfig(const Json::Value& configuration);

// Parses the text and serializes it again.
std::string FloorConvert(const std::string& text);

// One walk over a list of alerts or faults; gives the number of those that are true.
size_t FloorAlerts(const Json::Value& list, std::vector<TavelReceiveInfo>& active);

#endif
