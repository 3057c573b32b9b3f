// An entity in a few lines: title, payload size, and notes on unexpected behaviour.

#ifndef MORVIX_INSPECT_MODEL_SUMMARY_H
#define MORVIX_INSPECT_MODEL_SUMMARY_H

#include <string>
#include <vector>

#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// The place of an element in packets; empty when it has none.
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

// "attrs[1] (lock) is dropped": the elements that the parser drops when reading or writing; empty when there are none.
std::string DroppedSummary(const EntityModel& entity);

// Notes, one line each: elements that are dropped or whose place differs between reading and writing, and a payload too
// long for any packet.
std::vector<std::string> Notes(const EntityModel& entity);

}  // namespace morvix::inspect

#endif
