// What is the same in two configurations.

#ifndef MORVIX_INSPECT_COMPARE_MATCH_H
#define MORVIX_INSPECT_COMPARE_MATCH_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace morvix::inspect {

// What things are matched by. Those of equal kinds come together first; the kind of an attribute is its group.
struct Identity {
  std::string name;
  int32_t id;
  int kind;
};

// The pairs of things that are the same, by their indexes, in the new order.
std::vector<std::pair<size_t, size_t>> Matched(const std::vector<Identity>& before, const std::vector<Identity>& after);

}  // namespace morvix::inspect

#endif
