// Text that becomes part of C source: identifiers, comments, string literals. Whatever comes from a configuration
// passes through one of these before it stands in generated code.

#ifndef MORVIX_INSPECT_TEXT_C_SOURCE_H
#define MORVIX_INSPECT_TEXT_C_SOURCE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace morvix::inspect {

// An identifier for a name: the name in lower case, with "_" for each character that is not an ASCII letter or digit,
// before a leading digit, and after a word that C, C++ or the generated code itself uses. "_" for an empty name.
std::string CIdentifier(std::string_view name);

// The same in upper case, as a part of a constant's name: not changed for a leading digit or such a word.
std::string CConstant(std::string_view name);

// Whether the text is an identifier in C and C++, and no such word.
bool IsCIdentifier(std::string_view text);

// The text for the inside of a comment: escaped, and unable to end the comment, to open another one, or to join lines.
// Never ends in a backslash.
std::string CCommentText(std::string_view text);

// A string literal of ASCII characters, with its quotation marks. Bytes beyond printable ASCII become octal escapes.
std::string CString(std::string_view text);

// "0x01, 0x0a, 0xff".
std::string CBytes(const unsigned char* data, size_t size);

}  // namespace morvix::inspect

#endif
