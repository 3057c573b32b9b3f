// Runs one operation a number of times inside MeasuredCalls, for callgrind to count, or counts its heap allocations.
//   instructions OPERATION ATTRIBUTES CALLS
// Prints the heap allocations per call. Without arguments lists the operations.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "Operations.h"

namespace {
size_t allocations = 0;
}

// The C library's own allocator under the names that everything calls, counted.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the C library's
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
// NOLINTEND(bugprone-reserved-identifier)
void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
}

extern "C" __attribute__((noinline)) void MeasuredCalls(const Operation& operation, int calls) {
  for (int i = 0; i < calls; ++i) operation.run();
}

int main(int argc, char** argv) {
  if (argc == 1) {
    const Workload workload(40);
    for (const Operation& operation : MakeOperations(workload)) std::puts(operation.name.c_str());
    return EXIT_SUCCESS;
  }
  if (argc != 4) {
    std::cerr << "usage: instructions [OPERATION ATTRIBUTES CALLS]\n";
    return 2;
  }
  const auto calls = static_cast<int>(std::strtol(argv[3], nullptr, 10));
  const Workload workload(std::strtoul(argv[2], nullptr, 10));
  for (const Operation& operation : MakeOperations(workload)) {
    if (operation.name != argv[1] || calls < 1) continue;
    operation.run();  // first-time work of the libraries
    const size_t before = allocations;
    MeasuredCalls(operation, calls);
    std::printf("%zu\n", (allocations - before) / static_cast<size_t>(calls));
    return EXIT_SUCCESS;
  }
  std::cerr << "instructions: no operation " << argv[1] << '\n';
  return 2;
}
