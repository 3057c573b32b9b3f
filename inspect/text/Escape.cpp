#include "inspect/text/Escape.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>

namespace morvix::inspect {

namespace {

// Control characters, line separators, characters that change the writing direction, and invisible characters.
// Variation selectors are not escaped: they follow visible characters.
bool IsHarmful(int32_t code) {
  const utf8proc_category_t category = utf8proc_category(code);
  const bool isControl = category == UTF8PROC_CATEGORY_CC || category == UTF8PROC_CATEGORY_CF ||
                         category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP;
  const bool isVariationSelector = code >= 0xfe00 && code <= 0xfe0f;
  const bool isIgnorable = utf8proc_get_property(code)->ignorable && !isVariationSelector;
  const bool isNoncharacter = (code & 0xfffe) == 0xfffe || (code >= 0xfdd0 && code <= 0xfdef);
  return isControl || isIgnorable || isNoncharacter;
}

std::string EscapeOf(int32_t code) {
  if (code == '\n') return "\\n";
  if (code == '\r') return "\\r";
  if (code == '\t') return "\\t";
  return fmt::format(code < 0x80 ? "\\x{:02x}" : code < 0x10000 ? "\\u{:04x}" : "\\U{:08x}", code);
}

}  // namespace

size_t ReadCharacter(std::string_view text, size_t at, int32_t& code) {
  constexpr size_t kLongest = 4;
  const auto* begin = reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at);
  const auto length = static_cast<utf8proc_ssize_t>(std::min(text.size() - at, kLongest));
  return static_cast<size_t>(std::max<utf8proc_ssize_t>(utf8proc_iterate(begin, length, &code), 0));
}

std::string Escaped(std::string_view text) {
  const bool isPlain = std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
  if (isPlain) return std::string(text);
  std::string escaped;
  escaped.reserve(text.size());
  bool hasOther = false;  // escapes but those of backslashes
  for (size_t at = 0; at < text.size();) {
    int32_t code = 0;
    const size_t length = ReadCharacter(text, at, code);
    hasOther = hasOther || length == 0 || IsHarmful(code);
    if (length == 0) {
      escaped += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[at]));
    } else if (code == '\\') {
      escaped += "\\\\";
    } else if (IsHarmful(code)) {
      escaped += EscapeOf(code);
    } else {
      escaped += text.substr(at, length);
    }
    at += std::max<size_t>(length, 1);
  }
  return hasOther ? escaped : std::string(text);
}

bool IsUtf8(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    int32_t code = 0;
    const size_t length = (text[at] & 0x80) == 0 ? 1 : ReadCharacter(text, at, code);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string ToUtf8(std::string_view text) {
  std::string valid;
  for (size_t at = 0; at < text.size();) {
    int32_t code = 0;
    const size_t length = ReadCharacter(text, at, code);
    valid += length == 0 ? "\xef\xbf\xbd" : text.substr(at, length);
    at += std::max<size_t>(length, 1);
  }
  return valid;
}

std::string NameText(std::string_view name) { return name.empty() ? "\"\"" : Escaped(name); }

std::string InQuotes(std::string_view text) { return '"' + Escaped(text) + '"'; }

std::string Quoted(std::string_view text) {
  constexpr size_t kMaxLength = 60;
  if (text.size() <= kMaxLength) return "'" + Escaped(text) + "'";
  size_t end = kMaxLength;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;  // not inside a character
  return "'" + Escaped(text.substr(0, end)) + "...'";
}

}  // namespace morvix::inspect
