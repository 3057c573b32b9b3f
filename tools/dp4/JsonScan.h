// Looks at JSON as text: what a JSON value does not show any more.

#ifndef MORVIX_DP4_JSON_SCAN_H
#define MORVIX_DP4_JSON_SCAN_H

#include <cstddef>
#include <string>
#include <vector>

#include "Input.h"

namespace dp4 {

// A member whose object has one of the same name before it.
struct RepeatedMember {
  size_t offset;  // of the name
  std::string pointer;
  std::string name;
};

// `text` begins with a JSON value; comments are passed over.
std::vector<RepeatedMember> FindRepeatedMembers(const std::string& text);

// "/name", as a JSON pointer spells it.
std::string PointerToken(const std::string& name);

size_t OffsetOf(const std::string& text, const Place& place);

}  // namespace dp4

#endif
