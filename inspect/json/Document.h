// JSON documents that keep their source text, so that each value can be located in it.

#ifndef MORVIX_INSPECT_JSON_DOCUMENT_H
#define MORVIX_INSPECT_JSON_DOCUMENT_H

#include <json/reader.h>
#include <json/value.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace morvix::inspect::json {

// A line and a column in the source text, both counted from 1. Columns count bytes.
struct Place {
  size_t line = 1;
  size_t column = 1;
};

// Why the text cannot be read as JSON, and where.
struct SyntaxError {
  Place place;
  std::string message;
  bool isBeyondDouble = false;  // it is JSON, with a number that no double holds
};

// "NAME:LINE:COLUMN", escaped.
std::string PlaceName(const std::string& name, const Place& place);

// One document, parsed as the module parses JSON: comments are allowed and nesting is limited. Anything after the
// document is an error. Immutable.
class Document {
 public:
  // `name` is what messages call it. Nothing, with `error` set, when the text is not JSON.
  static std::optional<Document> Read(std::string name, std::string text, SyntaxError& error);

  const std::string& Name() const { return name_; }
  const std::string& Text() const { return text_; }
  const Json::Value& Root() const { return root_; }

  // "NAME:LINE:COLUMN", escaped, of a part of Root() or of an offset in the text.
  std::string PlaceName(const Json::Value& value) const;
  std::string PlaceName(size_t offset) const { return json::PlaceName(name_, PlaceOf(offset)); }
  Place PlaceOf(size_t offset) const;

 private:
  Document() = default;

  std::string name_;
  std::string text_;
  Json::Value root_;
  std::vector<size_t> lineStarts_;
};

// Where a value of a document begins in its text.
size_t OffsetOf(const Json::Value& value);

// Reads a value with JsonCpp. False, with the first problem in `error`, when the text is not JSON.
bool Parse(const std::string& text, const Json::CharReaderBuilder& builder, Json::Value& value, SyntaxError& error);

// JSON on one line, without a line feed.
std::string CompactText(const Json::Value& value);

// Appends a text as a JSON string.
void AppendString(std::string_view text, std::string& json);

}  // namespace morvix::inspect::json

#endif
