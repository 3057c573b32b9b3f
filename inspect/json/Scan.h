// JSON as text: what a JSON value does not show any more.

#ifndef MORVIX_INSPECT_JSON_SCAN_H
#define MORVIX_INSPECT_JSON_SCAN_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/json/Document.h"

namespace morvix::inspect::json {

// A member whose object has one of the same name before it.
struct RepeatedMember {
  size_t offset;  // of the name
  std::string pointer;
  std::string name;
};

// `text` begins with a JSON value; comments are passed over.
std::vector<RepeatedMember> FindRepeatedMembers(const std::string& text);

// The offset of a place in a text; its end for a place after it.
size_t OffsetOf(const std::string& text, const Place& place);

// Whether `text` is strict JSON: UTF-8, no comments, numbers as JSON writes them and within the range of a double. If
// not, `message` says why and `offset` where, or 0 for a number out of range.
bool IsStrictJson(std::string_view text, size_t& offset, std::string& message);

}  // namespace morvix::inspect::json

#endif
