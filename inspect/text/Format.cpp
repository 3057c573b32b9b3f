#include "inspect/text/Format.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

// A character with the combining ones that follow it.
struct Glyph {
  std::string_view bytes;
  size_t width;
};

std::vector<Glyph> Glyphs(std::string_view text) {
  std::vector<Glyph> glyphs;
  for (size_t at = 0, length = 0; at < text.size(); at += length) {
    int32_t code = 0;
    length = std::max<size_t>(ReadCharacter(text, at, code), 1);
    const auto width = static_cast<size_t>(utf8proc_charwidth(code));
    if (width == 0 && !glyphs.empty()) {
      const size_t start = static_cast<size_t>(glyphs.back().bytes.data() - text.data());
      glyphs.back().bytes = text.substr(start, at + length - start);
    } else {
      glyphs.push_back({text.substr(at, length), std::max<size_t>(width, 1)});
    }
  }
  return glyphs;
}

// Printable ASCII takes one column a character.
bool IsPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

bool IsSeparator(const Glyph& glyph) { return glyph.bytes.find_first_of(" _-.:/") == 0; }

// The end of the line that begins at `start`: at a blank in its second half if there is one, otherwise at a separator.
size_t LineEnd(const std::vector<Glyph>& glyphs, size_t start, size_t width, bool atSeparators) {
  size_t end = start;
  for (size_t used = 0; end < glyphs.size() && used + glyphs[end].width <= width; ++end) used += glyphs[end].width;
  end = std::max(end, start + 1);  // a wide character in a narrow line
  if (end == glyphs.size() || !atSeparators) return end;
  size_t separator = 0;
  for (size_t cut = end; cut > start + 1 && (separator == 0 || 2 * (cut - start) > end - start); --cut) {
    if (glyphs[cut - 1].bytes == " " || glyphs[cut].bytes == " ") return cut;
    if (separator == 0 && (IsSeparator(glyphs[cut - 1]) || IsSeparator(glyphs[cut]))) separator = cut;
  }
  return separator == 0 ? end : separator;
}

std::string TextOf(const std::vector<Glyph>& glyphs, size_t begin, size_t end) {
  std::string text;
  for (size_t i = begin; i < end; ++i) text += glyphs[i].bytes;
  return text;
}

std::vector<std::string> Lines(const std::vector<Glyph>& glyphs, size_t width, bool atSeparators) {
  std::vector<std::string> lines;
  for (size_t start = 0, end = 0; start < glyphs.size(); start = end) {
    end = LineEnd(glyphs, start, width, atSeparators);
    const std::string line = TextOf(glyphs, start, end);
    const size_t first = lines.empty() ? 0 : std::min(line.find_first_not_of(' '), line.size());
    const size_t last = end == glyphs.size() ? line.size() : line.find_last_not_of(' ') + 1;
    if (first < last) lines.push_back(line.substr(first, last - first));
  }
  return lines;
}

constexpr size_t kColumnGap = 2;  // between the columns of a table

// The lines of a cell, each broken where it is longer than `width`.
std::vector<std::string> LinesOf(const std::string& cell, size_t width = SIZE_MAX) {
  std::vector<std::string> lines;
  for (size_t begin = 0, end = 0; begin <= cell.size(); begin = end + 1) {
    end = std::min(cell.find('\n', begin), cell.size());
    const std::string line = cell.substr(begin, end - begin);
    if (width == SIZE_MAX || TextWidth(line) <= width) {
      lines.push_back(line);
    } else {
      for (std::string& part : Wrapped(line, width, SIZE_MAX, "")) lines.push_back(std::move(part));
    }
  }
  return lines;
}

// The columns of the longest part of a cell that Wrapped does not break.
size_t LongestPart(const std::string& cell) {
  size_t longest = 0;
  for (size_t begin = 0, end = 0; begin < cell.size(); begin = end + 1) {
    end = std::min(cell.find_first_of(" _-.:/\n", begin), cell.size());
    longest = std::max(longest, TextWidth(std::string_view(cell).substr(begin, end - begin)) + 1);
  }
  return longest;
}

// Makes the widest columns narrower until all of them fit, but none narrower than `least`. Whether they fit.
bool Narrow(std::vector<size_t>& widths, const std::vector<size_t>& least, size_t width) {
  size_t used = std::accumulate(widths.begin(), widths.end(), kColumnGap * (widths.size() - 1));
  for (; used > width; --used) {
    size_t widest = widths.size();
    for (size_t i = 0; i < widths.size(); ++i) {
      if (widths[i] > least[i] && (widest == widths.size() || widths[i] > widths[widest])) widest = i;
    }
    if (widest == widths.size()) return false;
    --widths[widest];
  }
  return true;
}

}  // namespace

bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

std::string Count(uint64_t number, std::string_view noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

std::string Series(const std::vector<std::string>& items, std::string_view conjunction) {
  if (items.size() < 2) return items.empty() ? "" : items[0];
  return fmt::format("{} {} {}", fmt::join(items.begin(), items.end() - 1, ", "), conjunction, items.back());
}

std::string Listed(const std::vector<std::string>& labels, size_t count) {
  constexpr size_t kShown = 4;
  if (count <= kShown + 1) return Series(labels, "and");
  return fmt::format("{} and {} more", fmt::join(labels.begin(), labels.begin() + kShown, ", "), count - kShown);
}

std::string ShortestText(double number) { return fmt::format("{}", number); }

size_t TextWidth(std::string_view text) {
  if (IsPlain(text)) return text.size();
  size_t width = 0;
  for (const Glyph& glyph : Glyphs(text)) width += glyph.width;
  return width;
}

std::vector<std::string> Wrapped(std::string_view text, size_t width, size_t maxLines, const char* ellipsis) {
  const std::vector<Glyph> glyphs = Glyphs(text);
  std::vector<std::string> lines = Lines(glyphs, width, true);
  if (lines.size() > maxLines) lines = Lines(glyphs, width, false);
  if (lines.size() <= maxLines) return lines;
  lines.resize(maxLines);
  const std::vector<Glyph> last = Glyphs(lines.back());
  lines.back() = TextOf(last, 0, LineEnd(last, 0, width - 1, false)) + ellipsis;
  return lines;
}

std::string Shortened(std::string_view text, size_t columns) {
  const bool hasBlanks = !text.empty() && (text.front() == ' ' || text.back() == ' ');
  if (text.size() <= columns && !hasBlanks && IsPlain(text)) return std::string(text);
  const std::vector<std::string> lines = Wrapped(text, columns, 1, "…");
  return lines.empty() ? "" : lines[0];
}

std::string PaddedTo(size_t width, std::string_view text) {
  const size_t used = TextWidth(text);
  return std::string(text) + std::string(width - std::min(used, width), ' ');
}

std::string Colored(std::string_view text, std::string_view sgr, bool color) {
  return !color || sgr.empty() || text.empty() ? std::string(text) : fmt::format("\x1b[{}m{}\x1b[0m", sgr, text);
}

TableRow HeadingRow(const std::vector<std::string>& headings) {
  TableRow row;
  for (const std::string& heading : headings) row.push_back({heading, kBold});
  return row;
}

std::string AlignedTable(const std::vector<TableRow>& rows, bool color, size_t width) {
  std::vector<size_t> widths;  // of the columns
  for (const TableRow& row : rows) {
    widths.resize(row.size());
    for (size_t i = 0; i < widths.size(); ++i) {
      for (const std::string& line : LinesOf(row[i].text)) widths[i] = std::max(widths[i], TextWidth(line));
    }
  }
  if (width != 0) {
    constexpr size_t kLongestPart = 20;  // longer ones are broken anywhere
    std::vector<size_t> least(widths.size());
    for (const TableRow& row : rows) {
      for (size_t i = 0; i < row.size(); ++i) {
        least[i] = std::max(least[i], std::min(LongestPart(row[i].text), kLongestPart));
      }
    }
    Narrow(widths, least, width);
    constexpr size_t kNarrowest = 8;  // cannot be read any more
    std::vector<size_t> broken = widths;
    if (Narrow(broken, std::vector<size_t>(widths.size(), kNarrowest), width)) widths = broken;
  }
  std::string table;
  for (const TableRow& row : rows) {
    std::vector<std::vector<std::string>> cells;
    size_t height = 1;
    for (size_t i = 0; i < row.size(); ++i) {
      cells.push_back(LinesOf(row[i].text, width == 0 ? SIZE_MAX : widths[i]));
      height = std::max(height, cells.back().size());
    }
    for (size_t line = 0; line < height; ++line) {
      std::string text;
      for (size_t i = 0; i < row.size(); ++i) {
        const std::string part = line < cells[i].size() ? cells[i][line] : "";
        text += Colored(part, row[i].sgr, color);
        if (i + 1 < row.size()) text += std::string(widths[i] - TextWidth(part) + kColumnGap, ' ');
      }
      text.erase(text.find_last_not_of(' ') + 1);
      table += text + "\n";
    }
  }
  return table;
}

}  // namespace morvix::inspect
