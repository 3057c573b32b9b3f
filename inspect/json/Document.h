// JSON documents that keep the text that they were read from, so that every value has a place in it.

#ifndef MORVIX_INSPECT_JSON_DOCUMENT_H
#define MORVIX_INSPECT_JSON_DOCUMENT_H

#include <json/value.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace morvix::inspect::json {

// A line and column of a text, both counted from 1. Columns count bytes.
struct Place {
  size_t line = 1;
  size_t column = 1;
};

// Why a text is not JSON, and where.
struct SyntaxError {
  Place place;
  std::string message;
};

// One document, read as the module reads JSON: comments are allowed, nesting is limited. Nothing may follow it.
// Immutable.
class Document {
 public:
  // `name` is what messages call it. Throws InputError "NAME:LINE:COLUMN: not JSON: ...".
  Document(std::string name, std::string text);

  // The same without throwing: nothing, with `error` set, when the text is not JSON.
  static std::optional<Document> Read(std::string name, std::string text, SyntaxError& error);

  const std::string& Name() const { return name_; }
  const std::string& Text() const { return text_; }
  const Json::Value& Root() const { return root_; }

  // Where `value`, which is a part of Root(), begins in the text.
  size_t OffsetOf(const Json::Value& value) const;
  Place PlaceOf(size_t offset) const;

  // "NAME:LINE:COLUMN", escaped.
  std::string PlaceName(const Json::Value& value) const { return PlaceName(OffsetOf(value)); }
  std::string PlaceName(size_t offset) const;

 private:
  Document() = default;
  bool Parse(SyntaxError& error);

  std::string name_;
  std::string text_;
  Json::Value root_;
  std::vector<size_t> lineStarts_;
};

// "NAME:LINE:COLUMN", escaped.
std::string PlaceName(const std::string& name, const Place& place);

// The first problem in a report of JsonCpp's reader.
SyntaxError FirstError(const std::string& report);

// JSON text on one line, without its end.
std::string CompactText(const Json::Value& value);

// "/name", as a JSON pointer spells it.
std::string PointerToken(const std::string& name);

}  // namespace morvix::inspect::json

#endif
