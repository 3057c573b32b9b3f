// An entity for programs: its attributes with their places, limits and items.

#ifndef MORVIX_INSPECT_MODEL_DESCRIPTION_H
#define MORVIX_INSPECT_MODEL_DESCRIPTION_H

#include <string>

#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// One line of JSON:
//
//   {"name", "displayName", "id", "payloadBytes", "writeBytes",
//    "attributes": [{"name", "displayName", "description", "id", "group", "type", "flag",
//                    "place": {"firstBit", "bits"}, "writePlace": {"firstBit", "bits"},
//                    "min", "max", "ratio", "addition", "items"}],
//    "dropped": [{"index", "name", "member"}]}
//
// "attributes" are those that are read or written, in configuration order; "dropped" are the elements of "attrs" that
// the parser drops when reading or writing, with the member for which it does. Places count bits from the most
// significant bit of byte 0: "place" in the payload of all groups, "writePlace" in a write where it has another one.
// "flag" is there for what can be written, limits and scaling for numbers, "items" for enums. Limits are raw values.
std::string DescriptionJson(const EntityModel& entity);

// The attributes of DescriptionJson as comma-separated values, a row each, with the entity's name first. Items are a
// JSON array in one cell.
std::string DescriptionCsvHeader();
std::string DescriptionCsv(const EntityModel& entity);

}  // namespace morvix::inspect

#endif
