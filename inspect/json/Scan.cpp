#include "inspect/json/Scan.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "inspect/text/Format.h"

namespace morvix::inspect::json {

namespace {

// Skips blanks and comments from `offset` on.
size_t SkipBlanks(const std::string& text, size_t offset) {
  while (offset < text.size()) {
    if (IsBlank(text[offset])) {
      ++offset;
    } else if (text.compare(offset, 2, "//") == 0) {
      offset = std::min(text.find('\n', offset), text.size());
    } else if (text.compare(offset, 2, "/*") == 0) {
      const size_t end = text.find("*/", offset + 2);
      offset = end == std::string::npos ? text.size() : end + 2;
    } else {
      break;
    }
  }
  return offset;
}

// The offset after the string whose opening quote is at `offset`.
size_t EndOfString(const std::string& text, size_t offset) {
  for (++offset; offset < text.size() && text[offset] != '"'; ++offset) {
    if (text[offset] == '\\') ++offset;
  }
  return std::min(offset + 1, text.size());
}

// Unescapes a quoted string; returns it unchanged if it is not valid JSON.
std::string Unquoted(const std::string& literal) {
  if (literal.find('\\') == std::string::npos) return literal.substr(1, literal.size() - 2);
  SyntaxError error;
  const std::optional<Document> text = Document::Read("", literal, error);
  return text && text->Root().isString() ? text->Root().asString() : literal;
}

// One open object or array.
struct Level {
  bool isObject = false;
  bool isNameNext = false;
  std::string member;  // of an object: the last name
  size_t index = 0;    // of an array: the current element
  std::set<std::string> names;
};

std::string PointerOf(const std::vector<Level>& levels) {
  std::string pointer;
  for (const Level& level : levels) {
    pointer += PointerToken(level.isObject ? level.member : std::to_string(level.index));
  }
  return pointer;
}

}  // namespace

std::vector<RepeatedMember> FindRepeatedMembers(const std::string& text) {
  std::vector<RepeatedMember> repeated;
  std::vector<Level> levels;
  for (size_t i = SkipBlanks(text, 0); i < text.size(); i = SkipBlanks(text, i)) {
    const char c = text[i];
    if (c == '"') {
      const size_t end = EndOfString(text, i);
      if (!levels.empty() && levels.back().isNameNext) {
        Level& level = levels.back();
        level.isNameNext = false;
        level.member = Unquoted(text.substr(i, end - i));
        if (!level.names.insert(level.member).second) repeated.push_back({i, PointerOf(levels), level.member});
      }
      i = end;
    } else {
      if (c == '{' || c == '[') {
        levels.emplace_back();
        levels.back().isObject = levels.back().isNameNext = c == '{';
      } else if ((c == '}' || c == ']') && !levels.empty()) {
        levels.pop_back();
      } else if (c == ',' && !levels.empty()) {
        ++levels.back().index;
        levels.back().isNameNext = levels.back().isObject;
      }
      ++i;
      if (levels.empty()) break;  // the value has ended
    }
  }
  return repeated;
}

bool ReadStrict(const std::string& text, Json::Value& value, SyntaxError& error) {
  static const Json::CharReaderBuilder kBuilder = [] {
    Json::CharReaderBuilder builder;
    builder["rejectDupKeys"] = true;
    return builder;
  }();
  if (nlohmann::json::accept(text)) {
    const size_t nul = text.find('\0');  // both parsers stop at a NUL
    if (nul == std::string::npos) return Parse(text, kBuilder, value, error);
    error = {{1, nul + 1}, "a NUL after the document"};
    return false;
  }
  try {
    [[maybe_unused]] const nlohmann::json tree = nlohmann::json::parse(text);
  } catch (const nlohmann::json::exception& problem) {
    // "[json.exception.parse_error.101] parse error at line 1, column 3: syntax error while parsing ..." or
    // "[json.exception.out_of_range.406] number overflow parsing '1e999'"
    const auto* syntax = dynamic_cast<const nlohmann::json::parse_error*>(&problem);
    error.place.column = syntax == nullptr ? 1 : std::max<size_t>(syntax->byte, 1);
    error.message = problem.what();
    error.message.erase(0, error.message.find(syntax == nullptr ? "] " : ": ") + 2);
  }
  return false;
}

std::string PointerToken(const std::string& name) { return (nlohmann::json::json_pointer() / name).to_string(); }

size_t OffsetOf(const std::string& text, const Place& place) {
  size_t offset = 0;
  for (size_t line = 1; line < place.line; ++line) {
    const size_t end = text.find('\n', offset);
    if (end == std::string::npos) break;
    offset = end + 1;
  }
  return std::min(offset + place.column - 1, text.size());
}

}  // namespace morvix::inspect::json
