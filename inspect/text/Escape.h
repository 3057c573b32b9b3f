// Text from outside, made safe to show. Whatever comes from a file passes through one of these before it is shown.

#ifndef MORVIX_INSPECT_TEXT_ESCAPE_H
#define MORVIX_INSPECT_TEXT_ESCAPE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace morvix::inspect {

// The same text without anything that could forge a line, steer a terminal, or hide: such characters, and bytes that
// are not UTF-8, become escapes with a backslash, and so does the backslash itself.
std::string Escaped(std::string_view text);

// An escaped name that can be seen even when it is empty: "".
std::string NameText(std::string_view name);

// "name", escaped: a text of the user's in a message about what it has to be.
std::string InQuotes(std::string_view text);

// 'name', escaped and shortened when it is long: a text of a configuration in a finding, as the module's lines quote.
std::string Quoted(std::string_view text);

// The length in bytes of the UTF-8 character that begins at `at`, with its code; 0 when there is no valid one.
size_t ReadCharacter(std::string_view text, size_t at, int32_t& code);

}  // namespace morvix::inspect

#endif
