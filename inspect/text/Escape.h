// Escaping of untrusted text. All text from files passes through one of these functions before it is shown.

#ifndef MORVIX_INSPECT_TEXT_ESCAPE_H
#define MORVIX_INSPECT_TEXT_ESCAPE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace morvix::inspect {

// The text with a backslash escape for each character that could forge a line, control a terminal or stay invisible,
// for each byte that is not UTF-8, and then for the backslash itself; a text without any of them stays as it is.
std::string Escaped(std::string_view text);

// The escaped name; an empty name is shown as "".
std::string NameText(std::string_view name);

// "name", escaped: for user input in messages.
std::string InQuotes(std::string_view text);

// 'name', escaped, and shortened when it is long: for strings of a configuration in findings, quoted as in log lines.
std::string Quoted(std::string_view text);

// The length in bytes of the UTF-8 character that begins at `at`, with its code; 0 when none begins there.
size_t ReadCharacter(std::string_view text, size_t at, int32_t& code);

bool IsUtf8(std::string_view text);

// The text with U+FFFD for each byte that is not UTF-8.
std::string ToUtf8(std::string_view text);

}  // namespace morvix::inspect

#endif
