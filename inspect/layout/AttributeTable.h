// An entity's attributes as a table for people.

#ifndef MORVIX_INSPECT_LAYOUT_ATTRIBUTE_TABLE_H
#define MORVIX_INSPECT_LAYOUT_ATTRIBUTE_TABLE_H

#include <string>

#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// At most `width` columns wide; 0 is for any width.
std::string AttributeTable(const EntityModel& entity, bool color, size_t width);

// "raw * 0.5 + 40"; empty for anything but a number.
std::string ScalingText(const Attribute& attribute);

// The values that an attribute in these bits can have: "40 to 100", "0 boil, 1 green_tea" in lines of at most 48
// columns, "8 bytes", "false, true".
std::string ValuesText(const Attribute& attribute, const BitRange& bits);

// What the columns of the table mean.
extern const char kAttributeTableKey[];

}  // namespace morvix::inspect

#endif
