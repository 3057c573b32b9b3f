// Text formatting: counts, lists, numbers, wrapped text, colours and tables.

#ifndef MORVIX_INSPECT_TEXT_FORMAT_H
#define MORVIX_INSPECT_TEXT_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace morvix::inspect {

bool IsBlank(char c);

// "1 byte", "2 bytes".
std::string Count(uint64_t number, std::string_view noun);

// "a", "a or b", "a, b or c".
std::string Series(const std::vector<std::string>& items, std::string_view conjunction);

// "'a'", "'a' and 'b'", "'a', 'b', 'c', 'd' and 5 more": `labels` holds all `count` labels or at least the first five.
std::string Listed(const std::vector<std::string>& labels, size_t count);

// The shortest string that is read as this number.
std::string ShortestText(double number);

// The display width of an escaped string in columns.
size_t TextWidth(std::string_view text);

// An escaped string wrapped to lines of at most `width` columns, at separators if possible. Text that does not fit into
// `maxLines` is cut off and ends with `ellipsis`, one column wide.
std::vector<std::string> Wrapped(std::string_view text, size_t width, size_t maxLines, const char* ellipsis);

// An escaped string cut to at most `columns` columns; a cut string ends with an ellipsis.
std::string Shortened(std::string_view text, size_t columns);

// The text padded with blanks to this width.
std::string PaddedTo(size_t width, std::string_view text);

constexpr char kBold[] = "1";  // SGR parameters of a terminal

// The text in a colour, given as SGR parameters, if colours are wanted.
std::string Colored(std::string_view text, std::string_view sgr, bool color);

// May have several lines.
struct TableCell {
  std::string text;
  std::string sgr = {};
};
using TableRow = std::vector<TableCell>;

// The first row of a table.
TableRow HeadingRow(const std::vector<std::string>& headings);

// At most `width` columns wide, as far as cells can be broken for that; 0 is for any width. Words are broken only where
// that makes the table fit.
std::string AlignedTable(const std::vector<TableRow>& rows, bool color, size_t width = 0);

}  // namespace morvix::inspect

#endif
