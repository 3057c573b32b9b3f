// The measured operations, by name. One program measures their time, another counts their instructions.

#ifndef MORVIX_BENCH_OPERATIONS_H
#define MORVIX_BENCH_OPERATIONS_H

#include <functional>
#include <string>
#include <vector>

#include "Workload.h"

struct Operation {
  std::string name;
  std::function<void()> run;
};

// All operations on one workload, which must outlive them. The protobuf peer is for 40 attributes only. Ends the
// program when the floors or the peer and the module do not agree on the results.
std::vector<Operation> MakeOperations(const Workload& workload);

#endif
