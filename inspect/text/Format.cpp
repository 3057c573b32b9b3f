#include "inspect/text/Format.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <cctype>
#include <numeric>

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

std::string AlignedTable(const std::vector<TableRow>& rows, bool color) {
  std::vector<size_t> widths;  // of all columns but the last, with the gaps after them
  for (const TableRow& row : rows) {
    widths.resize(row.size() - 1);
    for (size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], TextWidth(row[i].text) + 2);
  }
  const std::string indent(std::accumulate(widths.begin(), widths.end(), size_t{0}), ' ');
  std::string table;
  for (const TableRow& row : rows) {
    std::string line;
    for (size_t i = 0; i < widths.size(); ++i) {
      line += Colored(row[i].text, row[i].sgr, color) + std::string(widths[i] - TextWidth(row[i].text), ' ');
    }
    const std::string& last = row.back().text;
    for (size_t begin = 0, end = 0; begin <= last.size(); begin = end + 1) {
      end = std::min(last.find('\n', begin), last.size());
      line += Colored(last.substr(begin, end - begin), row.back().sgr, color);
      line.erase(line.find_last_not_of(' ') + 1);
      table += line + "\n";
      line = indent;
    }
  }
  return table;
}

}  // namespace morvix::inspect
