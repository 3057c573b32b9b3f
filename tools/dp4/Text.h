// Texts for people: escaping, quoting, cutting, colours and tables. What comes from a file passes through Escaped (or a
// function that calls it) before it is shown.

#ifndef MORVIX_DP4_TEXT_H
#define MORVIX_DP4_TEXT_H

#include <json/value.h>

#include <string>
#include <vector>

namespace dp4 {

// The same text without anything that could forge a line, steer a terminal, or hide: such characters, and bytes that
// are no UTF-8, become escapes with a backslash, and so does the backslash.
std::string Escaped(const std::string& text);

// Where the first byte is that is no part of a UTF-8 character; npos for nowhere.
size_t FindNoUtf8(const std::string& text);

// An escaped name that can be seen even when it is empty.
std::string NameText(const std::string& name);

// "name", escaped: a text of the user's in a message about what it has to be.
std::string InQuotes(const std::string& text);

// 'name', escaped and cut when it is long: a text of the configuration in a finding, quoted as the module's lines do.
std::string Quoted(const std::string& text);

// "1 byte", "2 bytes".
std::string Count(uint64_t number, const std::string& noun);

// The columns that an escaped text takes.
size_t TextWidth(const std::string& text);

// An escaped text in lines of at most `width` columns, if possible broken at its separators. What does not fit into
// `maxLines` is cut off and ends with `ellipsis`, one column wide.
std::vector<std::string> Wrapped(const std::string& text, size_t width, size_t maxLines, const char* ellipsis);

// An escaped text of at most `columns` columns, the last of which tells when it was longer.
std::string Shortened(const std::string& text, size_t columns);

// SGR parameters of a terminal.
constexpr char kBold[] = "1";

// The text in a colour, given as SGR parameters; an empty colour changes nothing.
std::string Colored(const std::string& text, const std::string& color);

// Cells of the last column may have several lines.
struct TableCell {
  std::string text;
  std::string color;
};
using TableRow = std::vector<TableCell>;

// The first row of a table.
TableRow HeadingRow(const std::vector<std::string>& headings, bool color);

std::string AlignedTable(const std::vector<TableRow>& rows);

// JSON text on one line, without its end.
std::string CompactText(const Json::Value& value);

}  // namespace dp4

#endif
