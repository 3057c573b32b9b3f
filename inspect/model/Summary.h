// An entity in a few lines: title, payload, and what is not as it seems.

#ifndef MORVIX_INSPECT_MODEL_SUMMARY_H
#define MORVIX_INSPECT_MODEL_SUMMARY_H

#include <string>
#include <vector>

#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// Where an element lies in packets; empty where it does not.
struct Places {
  BitRange read;
  BitRange written;
};
Places PlacesOf(const EntityModel& entity, size_t element);

// The bytes of a payload that holds everything that is read or written.
size_t PayloadBytesOf(const EntityModel& entity);

// kettle "Kettle", id 0
std::string EntityTitle(const EntityModel& entity);

// 6 bytes of payload, the first 2 in a write
std::string PayloadSummary(const EntityModel& entity);

// Elements that are dropped, or lie elsewhere in a write than in what is read; a payload that no packet holds. One line
// each.
std::vector<std::string> Notes(const EntityModel& entity);

}  // namespace morvix::inspect

#endif
