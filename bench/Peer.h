// The same job by protobuf: a message of the fields of 40 attributes, and libprotobuf's JSON utilities.

#ifndef MORVIX_BENCH_PEER_H
#define MORVIX_BENCH_PEER_H

#include "Operations.h"

// 40 attributes and two binaries.
constexpr size_t kPeerFieldCount = 42;

// Adds protobuf/text-to-bytes and protobuf/bytes-to-text. Ends the program when a round trip loses a field.
void AddPeerOperations(const Workload& workload, std::vector<Operation>& operations);

#endif
