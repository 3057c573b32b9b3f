// Times every operation on products of 10, 40, 200 and 1000 attributes.

#include <benchmark/benchmark.h>

#include <initializer_list>
#include <memory>
#include <vector>

#include "Operations.h"

int main(int argc, char** argv) {
  std::vector<std::unique_ptr<Workload>> workloads;
  for (const size_t attributeCount : std::initializer_list<size_t>{10, 40, 200, 1000}) {
    workloads.push_back(std::make_unique<Workload>(attributeCount));
    for (const Operation& operation : MakeOperations(*workloads.back())) {
      benchmark::RegisterBenchmark((operation.name + "/" + std::to_string(attributeCount)).c_str(),
                                   [operation](benchmark::State& state) {
                                     for ([[maybe_unused]] auto _ : state) operation.run();
                                     state.SetItemsProcessed(state.iterations());
                                   });
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
