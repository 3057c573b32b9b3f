// The changes of one entity's packets and attributes.

#ifndef MORVIX_INSPECT_COMPARE_ATTRIBUTES_H
#define MORVIX_INSPECT_COMPARE_ATTRIBUTES_H

#include <vector>

#include "inspect/findings/Change.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

Site SiteOf(const Spot& spot);

// Adds the changes from one model of an entity to the next.
void CompareAttributes(const EntityModel& before, const EntityModel& after, std::vector<Change>& changes);

}  // namespace morvix::inspect

#endif
