// What a new configuration breaks: for devices in the field, which speak the old one, and for applications that know
// it. Errors break devices, warnings break applications, infos break nobody.

#ifndef MORVIX_INSPECT_COMPARE_COMPARE_H
#define MORVIX_INSPECT_COMPARE_COMPARE_H

#include <vector>

#include "inspect/findings/Change.h"

namespace morvix::inspect {

const Rules& CompareRules();

// The changes from one configuration to the next, in the order of the new one; what was removed comes after the rest of
// its entity. Entities and attributes are matched by name, those that are left by an id that no two of them have.
// Throws InputError when one of the two has no array of entities, or holds an entity that cannot be modelled.
std::vector<Change> Compare(const json::Document& before, const json::Document& after);

}  // namespace morvix::inspect

#endif
