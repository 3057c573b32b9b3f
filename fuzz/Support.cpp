#include "Support.h"

#include <string>
#include <utility>

// A configuration may need a payload of some gigabytes. Allocations above this limit fail: the module has to survive
// that, and the fuzzer stays fast. Short allocation stacks and a small quarantine, which fits into the processor's
// cache, also keep it fast.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=28:malloc_context_size=2:quarantine_size_mb=1:"
         "thread_local_quarantine_size_kb=256";
}

namespace fuzz {

namespace {

Lines& CapturedLines() {
  static Lines& lines = *new Lines;
  return lines;
}

}  // namespace

Lines TakeLines() { return std::exchange(CapturedLines(), {}); }

const std::vector<Example>& Examples() {
  static const std::vector<Example>& examples = *[] {
    auto* all = new std::vector<Example>;
    for (const char* name : {"kettle", "air_conditioner", "gateway", "power_meter"}) {
      const Json::Value configuration = ParseJson(ReadFile(EXAMPLES_DIR "/" + std::string(name) + ".json"));
      for (const Json::Value& entity : configuration["entities"]) {
        all->push_back({entity, model::Parse(entity, kWritable), model::Parse(entity, kAllGroups)});
      }
    }
    return all;
  }();
  return examples;
}

}  // namespace fuzz

// Called once, before the first input.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SetLogLevel(2);
  SetLogSink([](int level, const char* functionName, const std::string& message) {
    fuzz::CapturedLines().push_back({level, functionName == nullptr ? "" : functionName, message});
  });
  return 0;
}
