#include "inspect/text/CSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

// Keywords of C up to C23 and of C++ up to C++20, the types by which generated code declares its members, and what is a
// macro in <stdio.h> or of some compilers.
constexpr std::string_view kTakenWords =
    " alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t char32_t char8_t class "
    "co_await co_return co_yield compl concept const const_cast consteval constexpr constinit continue decltype "
    "default delete do double dynamic_cast else enum explicit export extern false float for friend goto if inline int "
    "int32_t linux long mutable namespace new noexcept not not_eq nullptr operator or or_eq private protected public "
    "register reinterpret_cast requires restrict return short signed size_t sizeof static static_assert static_cast "
    "stderr stdin stdout struct switch template this thread_local throw true try typedef typeid typename typeof "
    "typeof_unqual uint16_t uint32_t uint64_t uint8_t union unix unsigned using virtual void volatile wchar_t while "
    "xor xor_eq ";

bool IsTaken(std::string_view word) { return kTakenWords.find(fmt::format(" {} ", word)) != std::string_view::npos; }

bool IsLower(char c) { return c >= 'a' && c <= 'z'; }
bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The name with "_" for each character that is not an ASCII letter or digit.
std::string PlainName(std::string_view name) {
  std::string plain;
  for (size_t at = 0; at < name.size();) {
    const char c = name[at];
    int32_t code = 0;
    at += std::max<size_t>(ReadCharacter(name, at, code), 1);
    plain += IsLower(c) || IsUpper(c) || IsDigit(c) ? c : '_';
  }
  return plain.empty() ? "_" : plain;
}

void Replace(std::string& text, std::string_view what, std::string_view with) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size() - 1) {
    text.replace(at, what.size(), with);
  }
}

}  // namespace

std::string CIdentifier(std::string_view name) {
  std::string identifier = PlainName(name);
  for (char& c : identifier) {
    if (IsUpper(c)) c = static_cast<char>(c - 'A' + 'a');
  }
  if (IsDigit(identifier[0])) identifier.insert(0, 1, '_');
  return IsTaken(identifier) ? identifier + '_' : identifier;
}

std::string CConstant(std::string_view name) {
  std::string constant = PlainName(name);
  for (char& c : constant) {
    if (IsLower(c)) c = static_cast<char>(c - 'a' + 'A');
  }
  return constant;
}

bool IsCIdentifier(std::string_view text) {
  if (text.empty() || IsDigit(text[0]) || IsTaken(text)) return false;
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return IsLower(c) || IsUpper(c) || IsDigit(c) || c == '_'; });
}

std::string CCommentText(std::string_view text) {
  std::string safe = Escaped(text);
  Replace(safe, "*/", "* /");
  Replace(safe, "/*", "/ *");
  Replace(safe, "?\?/", "? ?/");
  if (!safe.empty() && safe.back() == '\\') safe += '.';
  return safe;
}

std::string CString(std::string_view text) {
  std::string literal = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\' || c == '?') {
      literal += '\\';
      literal += c;
    } else if (c >= ' ' && c <= '~') {
      literal += c;
    } else {
      fmt::format_to(std::back_inserter(literal), "\\{:03o}", static_cast<unsigned char>(c));
    }
  }
  return literal + '"';
}

std::string CBytes(const unsigned char* data, size_t size) {
  std::string text;
  text.reserve(6 * size);
  for (size_t i = 0; i < size; ++i) {
    fmt::format_to(std::back_inserter(text), i == 0 ? "0x{:02x}" : ", 0x{:02x}", data[i]);
  }
  return text;
}

}  // namespace morvix::inspect
