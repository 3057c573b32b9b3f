// JSON as text: what a JSON value does not show any more, and how strictly it was written.

#ifndef MORVIX_INSPECT_JSON_SCAN_H
#define MORVIX_INSPECT_JSON_SCAN_H

#include <cstddef>
#include <string>
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

// Reads strict JSON: UTF-8, no comments, no repeated members, numbers as JSON writes them and within the range of a
// double. False, with `error` set, for anything else; its column then counts all bytes of the text.
bool ReadStrict(const std::string& text, Json::Value& value, SyntaxError& error);

// "/name", as a JSON pointer spells it.
std::string PointerToken(const std::string& name);

}  // namespace morvix::inspect::json

#endif
