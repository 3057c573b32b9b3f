#include "inspect/json/Scan.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <utility>

#include "inspect/text/Escape.h"

namespace morvix::inspect::json {

namespace {

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
  bool isAfterComma = false;
  std::string member;  // of an object: the last name
  size_t index = 0;    // of an array: the current element
  std::vector<std::string> names;
};

std::string PointerOf(const std::vector<Level>& levels) {
  std::string pointer;
  for (const Level& level : levels) {
    pointer += PointerToken(level.isObject ? level.member : std::to_string(level.index));
  }
  return pointer;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

size_t SkipDigits(std::string_view text, size_t at) {
  while (at < text.size() && IsDigit(text[at])) ++at;
  return at;
}

// -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?
bool IsStrictNumber(std::string_view text) {
  size_t at = text[0] == '-' ? 1 : 0;
  const auto takeDigits = [&text, &at] {
    const size_t begin = at;
    at = SkipDigits(text, at);
    return at != begin;
  };
  const bool hasLeadingZero = at + 1 < text.size() && text[at] == '0' && IsDigit(text[at + 1]);
  if (hasLeadingZero || !takeDigits()) return false;
  if (at < text.size() && text[at] == '.') {
    ++at;
    if (!takeDigits()) return false;
  }
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
    if (!takeDigits()) return false;
  }
  return at == text.size();
}

class Scanner {
  static constexpr size_t kMostListed = 16;

 public:
  explicit Scanner(const std::string& text) : text_(text) {}

  TextScan Run() {
    for (SkipBlanks(); at_ < text_.size(); SkipBlanks()) {
      const char c = text_[at_];
      if (c == '"') {
        TakeString();
      } else if (c == '{' || c == '[') {
        Open(c == '{');
      } else if (c == '}' || c == ']') {
        Close();
      } else if (c == ',') {
        TakeComma();
      } else if (IsDigit(c) || c == '-' || c == '+' || c == '.') {
        TakeNumber();
      } else {
        at_ += LengthHere();
        if (!levels_.empty()) levels_.back().isAfterComma = false;
      }
      if (levels_.empty()) break;  // the value has ended
    }
    SkipBlanks();
    return std::move(scan_);
  }

 private:
  void Note(Laxity laxity, size_t offset) {
    TextScan::Seen& seen = scan_.lax[static_cast<size_t>(laxity)];
    if (seen.count++ == 0) seen.first = offset;
  }

  // Notes what is not UTF-8 at this place; returns the length of what is there.
  size_t LengthHere() {
    if ((text_[at_] & 0x80) == 0) return 1;
    int32_t code = 0;
    const size_t length = ReadCharacter(text_, at_, code);
    if (length == 0) Note(Laxity::kNotUtf8, at_);
    return length == 0 ? 1 : length;
  }

  // The end of the printable ASCII from `at` on, without quotation marks and backslashes.
  size_t SkipPlain(size_t at) const {
    const char* next = text_.data() + at;
    const char* const end = text_.data() + text_.size();
    while (next != end && *next >= ' ' && *next <= '~' && *next != '"' && *next != '\\') ++next;
    return static_cast<size_t>(next - text_.data());
  }

  void SkipBlanks() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == ' ' || c == '\n' || c == '\r' || c == '\t') {
        ++at_;
      } else if (c == '/' && text_.compare(at_, 2, "//") == 0) {
        SkipComment(std::min(text_.find('\n', at_), text_.size()));
      } else if (c == '/' && text_.compare(at_, 2, "/*") == 0) {
        const size_t end = text_.find("*/", at_ + 2);
        SkipComment(end == std::string::npos ? text_.size() : end + 2);
      } else {
        break;
      }
    }
  }

  void SkipComment(size_t end) {
    Note(Laxity::kComment, at_);
    while (at_ < end) at_ += LengthHere();
  }

  void Open(bool isObject) {
    if (!levels_.empty()) levels_.back().isAfterComma = false;
    levels_.emplace_back();
    levels_.back().isObject = levels_.back().isNameNext = isObject;
    if (isObject) levels_.back().names.reserve(kMostListed);
    ++at_;
  }

  void Close() {
    if (!levels_.empty()) {
      if (levels_.back().isAfterComma) Note(Laxity::kTrailingComma, comma_);
      levels_.pop_back();
    }
    ++at_;
  }

  void TakeComma() {
    comma_ = at_;
    if (!levels_.empty()) {
      Level& level = levels_.back();
      ++level.index;
      level.isNameNext = level.isObject;
      level.isAfterComma = true;
    }
    ++at_;
  }

  void TakeNumber() {
    const size_t begin = at_;
    at_ = std::min(text_.find_first_not_of("+-.0123456789eE", at_), text_.size());
    if (!IsStrictNumber(std::string_view(text_).substr(begin, at_ - begin))) Note(Laxity::kNumber, begin);
    if (!levels_.empty()) levels_.back().isAfterComma = false;
  }

  void TakeString() {
    const size_t begin = at_;
    bool hasEscapes = false;
    for (at_ = SkipPlain(at_ + 1); at_ < text_.size() && text_[at_] != '"'; at_ = SkipPlain(at_)) {
      const char c = text_[at_];
      if (c == '\\') {
        TakeEscape();
        hasEscapes = true;
      } else {
        if (static_cast<unsigned char>(c) < 0x20) Note(Laxity::kControlCharacter, at_);
        at_ += LengthHere();
      }
    }
    at_ = std::min(at_ + 1, text_.size());
    if (levels_.empty()) return;
    Level& level = levels_.back();
    level.isAfterComma = false;
    if (!level.isNameNext) return;
    level.isNameNext = false;
    if (hasEscapes) {
      level.member = Unquoted(text_.substr(begin, at_ - begin));
    } else {
      level.member.assign(text_, begin + 1, std::max<size_t>(at_ - begin, 2) - 2);
    }
    NoteName(level, begin);
  }

  // A character outside of the basic plane is two escapes; a second one alone stands for none.
  void TakeEscape() {
    const auto unitAt = [this](size_t at) -> unsigned long {
      if (at + 6 > text_.size() || text_.compare(at, 2, "\\u") != 0) return 0;
      return std::strtoul(text_.substr(at + 2, 4).c_str(), nullptr, 16);
    };
    const unsigned long unit = unitAt(at_);
    const bool isFirst = unit >= 0xd800 && unit < 0xdc00;
    const unsigned long next = isFirst ? unitAt(at_ + 6) : 0;
    const bool isPair = next >= 0xdc00 && next < 0xe000;
    if ((isFirst && !isPair) || (unit >= 0xdc00 && unit < 0xe000)) Note(Laxity::kSurrogate, at_);
    at_ += isPair ? 12 : 2;
  }

  // Most objects have few members; for those a list is quicker than a set.
  void NoteName(Level& level, size_t offset) {
    bool isRepeated = false;
    if (level.names.size() < kMostListed) {
      isRepeated = std::find(level.names.begin(), level.names.end(), level.member) != level.names.end();
      if (!isRepeated) level.names.push_back(level.member);
    } else {
      std::set<std::string>& more = moreNames_[levels_.size()];
      if (level.names.size() == kMostListed) more = {level.names.begin(), level.names.end()};
      isRepeated = !more.insert(level.member).second;
      if (!isRepeated) level.names.emplace_back();  // only its number counts from here on
    }
    if (isRepeated) scan_.repeated.push_back({offset, PointerOf(levels_), level.member});
  }

  const std::string& text_;
  size_t at_ = 0;
  size_t comma_ = 0;  // the last one
  std::vector<Level> levels_;
  std::map<size_t, std::set<std::string>> moreNames_;  // of long objects, by their depth
  TextScan scan_;
};

}  // namespace

TextScan Scan(const std::string& text) { return Scanner(text).Run(); }

std::vector<RepeatedMember> FindRepeatedMembers(const std::string& text) { return Scan(text).repeated; }

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
    error.isBeyondDouble = syntax == nullptr;
    error.place.column = syntax == nullptr ? 1 : std::max<size_t>(syntax->byte, 1);
    error.message = problem.what();
    error.message.erase(0, error.message.find(syntax == nullptr ? "] " : ": ") + 2);
  }
  return false;
}

std::string PointerToken(const std::string& name) {
  if (name.find_first_of("~/") == std::string::npos) return '/' + name;
  return (nlohmann::json::json_pointer() / name).to_string();
}

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
