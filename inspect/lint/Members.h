// The known members of configuration objects, and descriptions of values for findings.

#ifndef MORVIX_INSPECT_LINT_MEMBERS_H
#define MORVIX_INSPECT_LINT_MEMBERS_H

#include <json/value.h>

#include <string>
#include <vector>

namespace morvix::inspect {

using Names = std::vector<std::string>;

const Names& AttributeMembers();
const Names& PositionMembers();
const Names& ScalingMembers();

// "null", "the number 5", "the string 'x'", "an empty array" ...
std::string Described(const Json::Value& value);

}  // namespace morvix::inspect

#endif
