// An entity's attributes as a table for people.

#ifndef MORVIX_INSPECT_LAYOUT_ATTRIBUTE_TABLE_H
#define MORVIX_INSPECT_LAYOUT_ATTRIBUTE_TABLE_H

#include <string>

#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

std::string AttributeTable(const EntityModel& entity, bool color);

// What the columns of the table mean.
extern const char kAttributeTableKey[];

}  // namespace morvix::inspect

#endif
