// JSON as text: what a parsed value no longer shows, such as offsets and repeated members, and strict validation.

#ifndef MORVIX_INSPECT_JSON_SCAN_H
#define MORVIX_INSPECT_JSON_SCAN_H

#include <cstddef>
#include <string>
#include <vector>

#include "inspect/json/Document.h"

namespace morvix::inspect::json {

// A member whose name occurs earlier in the same object.
struct RepeatedMember {
  size_t offset;  // of the name
  std::string pointer;
  std::string name;
};

// `text` begins with a JSON value; comments are skipped.
std::vector<RepeatedMember> FindRepeatedMembers(const std::string& text);

// The offset of a place in the text; the size of the text for a place after its end.
size_t OffsetOf(const std::string& text, const Place& place);

// Reads strict JSON: UTF-8, no comments, no repeated members, numbers in JSON's grammar and within the range of a
// double. False, with `error` set, for anything else. The column of a syntax error counts all bytes of the text.
bool ReadStrict(const std::string& text, Json::Value& value, SyntaxError& error);

// "/name", escaped for a JSON pointer.
std::string PointerToken(const std::string& name);

}  // namespace morvix::inspect::json

#endif
