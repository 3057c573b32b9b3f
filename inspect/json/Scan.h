// JSON as text: what a parsed value no longer shows, such as offsets and repeated members, and strict validation.

#ifndef MORVIX_INSPECT_JSON_SCAN_H
#define MORVIX_INSPECT_JSON_SCAN_H

#include <array>
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

// In what a text departs from strict JSON (RFC 8259) although the reader takes it.
enum class Laxity { kComment, kTrailingComma, kNumber, kControlCharacter, kSurrogate, kNotUtf8 };
constexpr size_t kLaxities = 6;

// What a look at the text itself shows, in one pass.
struct TextScan {
  struct Seen {
    size_t first = 0;  // offset
    size_t count = 0;
  };
  std::vector<RepeatedMember> repeated;
  std::array<Seen, kLaxities> lax;  // by laxity

  const Seen& Of(Laxity laxity) const { return lax[static_cast<size_t>(laxity)]; }
};

// `text` begins with a JSON value; what follows the value is not looked at.
TextScan Scan(const std::string& text);

// The members that Scan finds.
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
