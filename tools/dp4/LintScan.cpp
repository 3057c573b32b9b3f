#include "LintScan.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace dp4 {

namespace {

// The next place from `offset` on that is neither blank nor part of a comment.
size_t SkipBlanks(const std::string& text, size_t offset) {
  while (offset < text.size()) {
    if (std::isspace(static_cast<unsigned char>(text[offset])) != 0) {
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

// Behind the text literal whose opening quote is at `offset`.
size_t EndOfText(const std::string& text, size_t offset) {
  for (++offset; offset < text.size() && text[offset] != '"'; ++offset) {
    if (text[offset] == '\\') ++offset;
  }
  return std::min(offset + 1, text.size());
}

// One open object or array.
struct Level {
  bool isObject = false;
  bool isNameNext = false;
  std::string member;  // the last name, or
  size_t index = 0;    // the current element
  std::set<std::string> names;
};

std::string PointerOf(const std::vector<Level>& levels) {
  std::string pointer;
  for (const Level& level : levels) {
    pointer += PointerToken(level.isObject ? level.member : std::to_string(level.index));
  }
  return pointer;
}

std::string Plain(const std::string& name) {
  std::string plain;
  for (const char c : name) {
    if (c != '-' && c != '_' && c != ' ') plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return plain;
}

// How many letters have to be added, removed, exchanged or swapped with the next one.
size_t Distance(const std::string& left, const std::string& right) {
  std::vector<size_t> beforeLast;
  std::vector<size_t> last(right.size() + 1);
  std::vector<size_t> current(right.size() + 1);
  for (size_t j = 0; j <= right.size(); ++j) current[j] = j;
  for (size_t i = 1; i <= left.size(); ++i) {
    beforeLast = last;
    last = current;
    current[0] = i;
    for (size_t j = 1; j <= right.size(); ++j) {
      const size_t exchanged = last[j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
      current[j] = std::min({exchanged, last[j] + 1, current[j - 1] + 1});
      if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
        current[j] = std::min(current[j], beforeLast[j - 2] + 1);
      }
    }
  }
  return current[right.size()];
}

// The only name that `plain` is a part of, or else the longest that is a part of it.
std::string PartOf(const std::string& plain, const std::vector<std::string>& names) {
  constexpr size_t kMinLength = 3;
  std::vector<std::string> wholes;
  std::string longest;
  for (const std::string& name : names) {
    const std::string other = Plain(name);
    if (plain.size() >= kMinLength && other.find(plain) != std::string::npos) wholes.push_back(name);
    const bool isPart = other.size() >= kMinLength && plain.find(other) != std::string::npos;
    if (isPart && other.size() > Plain(longest).size()) longest = name;
  }
  return wholes.size() == 1 ? wholes[0] : longest;
}

}  // namespace

std::string PointerToken(const std::string& name) {
  std::string token = "/";
  for (const char c : name) {
    if (c == '~') {
      token += "~0";
    } else if (c == '/') {
      token += "~1";
    } else {
      token += c;
    }
  }
  return token;
}

std::vector<RepeatedMember> FindRepeatedMembers(const std::string& text) {
  std::vector<RepeatedMember> repeated;
  std::vector<Level> levels;
  for (size_t i = SkipBlanks(text, 0); i < text.size(); i = SkipBlanks(text, i)) {
    const char c = text[i];
    if (c == '"') {
      const size_t end = EndOfText(text, i);
      if (!levels.empty() && levels.back().isNameNext) {
        Level& level = levels.back();
        level.isNameNext = false;
        level.member = text.substr(i + 1, end - i - 2);
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
      if (levels.empty()) break;  // what follows is not part of the value
    }
  }
  return repeated;
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

std::string SimilarName(const std::string& name, const std::vector<std::string>& names) {
  constexpr size_t kMaxLength = 40;
  if (name.size() > kMaxLength) return "";
  const std::string plain = Plain(name);
  std::string similar;
  size_t best = std::max<size_t>(1, std::min<size_t>(2, plain.size() / 3)) + 1;
  for (const std::string& other : names) {
    if (other.size() > kMaxLength) continue;
    const size_t distance = Distance(plain, Plain(other));
    if (distance >= best) continue;
    best = distance;
    similar = other;
  }
  return similar.empty() ? PartOf(plain, names) : similar;
}

}  // namespace dp4
