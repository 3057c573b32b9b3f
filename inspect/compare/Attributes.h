// The changes of one entity's packets and attributes.

#ifndef MORVIX_INSPECT_COMPARE_ATTRIBUTES_H
#define MORVIX_INSPECT_COMPARE_ATTRIBUTES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "inspect/findings/Change.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// What things are matched by. Those of equal kinds come together first; the kind of an attribute is its group.
struct Identity {
  std::string name;
  int32_t id;
  int kind;
};

// The pairs of things that are the same, by their indexes, in the new order.
std::vector<std::pair<size_t, size_t>> Matched(const std::vector<Identity>& before, const std::vector<Identity>& after);

Site SiteOf(const Spot& spot);

// Adds the changes from one model of an entity to the next.
void CompareAttributes(const EntityModel& before, const EntityModel& after, std::vector<Change>& changes);

}  // namespace morvix::inspect

#endif
