#include "Text.h"

#include <json/writer.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <sstream>

namespace dp4 {

namespace {

struct CodeRange {
  uint32_t first;
  uint32_t last;
};

template <size_t size>
bool IsIn(const CodeRange (&ranges)[size], uint32_t code) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [code](const CodeRange& range) { return range.first <= code && code <= range.last; });
}

// Controls, invisible characters, and those that turn the direction of writing.
const CodeRange kEscaped[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},     {0xad, 0xad},     {0x61c, 0x61c},   {0x180e, 0x180e},   {0x200b, 0x200f},
    {0x2028, 0x202e}, {0x2060, 0x206f}, {0xfeff, 0xfeff}, {0xfff0, 0xfffb}, {0xe0000, 0xe0fff},
};
const CodeRange kZeroWidth[] = {
    {0x300, 0x36f}, {0x1ab0, 0x1aff}, {0x1dc0, 0x1dff}, {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f},
};
const CodeRange kDoubleWidth[] = {
    {0x1100, 0x115f}, {0x2e80, 0x303e}, {0x3041, 0x4dbf}, {0x4e00, 0xa4cf},   {0xac00, 0xd7a3},   {0xf900, 0xfaff},
    {0xfe30, 0xfe6f}, {0xff01, 0xff60}, {0xffe0, 0xffe6}, {0x1f300, 0x1f64f}, {0x1f680, 0x1f9ff}, {0x20000, 0x3fffd},
};

// The length in bytes of the character at `text[at]`, with its code; 0 when there is no valid one.
size_t ReadCharacter(const std::string& text, size_t at, uint32_t& code) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const size_t length = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
  if (length == 0 || at + length > text.size()) return 0;
  code = length == 1 ? lead : lead & (0x7fU >> length);
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xc0) != 0x80) return 0;
    code = code << 6 | (next & 0x3fU);
  }
  const bool isShortest = length < 3 || code >= (length == 3 ? 0x800U : 0x10000U);
  const bool isCharacter = code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
  return isShortest && isCharacter ? length : 0;
}

std::string Hexadecimal(const char* format, uint32_t number) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, format, static_cast<unsigned>(number)));
  return text;
}

std::string EscapeOf(uint32_t code) {
  if (code == '\n') return "\\n";
  if (code == '\r') return "\\r";
  if (code == '\t') return "\\t";
  return Hexadecimal(code < 0x80 ? "\\x%02x" : code < 0x10000 ? "\\u%04x" : "\\U%08x", code);
}

// A character with the zero-width ones that follow it.
struct Glyph {
  std::string bytes;
  size_t width;
};

std::vector<Glyph> Glyphs(const std::string& text) {
  std::vector<Glyph> glyphs;
  for (size_t at = 0, length = 0; at < text.size(); at += length) {
    uint32_t code = 0;
    length = std::max<size_t>(ReadCharacter(text, at, code), 1);
    const std::string bytes = text.substr(at, length);
    if (!glyphs.empty() && IsIn(kZeroWidth, code)) {
      glyphs.back().bytes += bytes;
    } else {
      glyphs.push_back({bytes, size_t{1} + IsIn(kDoubleWidth, code)});
    }
  }
  return glyphs;
}

bool IsSeparator(const Glyph& glyph) { return glyph.bytes.find_first_of(" _-.:/") == 0; }

// Where the line that begins at `start` ends: behind or before a blank if there is one in its second half, else a
// separator.
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

std::vector<std::string> Lines(const std::vector<Glyph>& glyphs, size_t width, bool atSeparators) {
  std::vector<std::string> lines;
  for (size_t start = 0, end = 0; start < glyphs.size(); start = end) {
    end = LineEnd(glyphs, start, width, atSeparators);
    std::string line;
    for (size_t i = start; i < end; ++i) line += glyphs[i].bytes;
    const size_t first = lines.empty() ? 0 : std::min(line.find_first_not_of(' '), line.size());
    const size_t last = end == glyphs.size() ? line.size() : line.find_last_not_of(' ') + 1;
    if (first < last) lines.push_back(line.substr(first, last - first));
  }
  return lines;
}

}  // namespace

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (size_t at = 0; at < text.size();) {
    uint32_t code = 0;
    const size_t length = ReadCharacter(text, at, code);
    if (length == 0) {
      escaped += Hexadecimal("\\x%02x", static_cast<unsigned char>(text[at]));
    } else if (code == '\\') {
      escaped += "\\\\";
    } else {
      const bool isNoCharacter = (code & 0xfffe) == 0xfffe;
      escaped += isNoCharacter || IsIn(kEscaped, code) ? EscapeOf(code) : text.substr(at, length);
    }
    at += std::max<size_t>(length, 1);
  }
  return escaped;
}

size_t FindNoUtf8(const std::string& text) {
  uint32_t code = 0;
  for (size_t at = 0, length = 0; at < text.size(); at += length) {
    length = ReadCharacter(text, at, code);
    if (length == 0) return at;
  }
  return std::string::npos;
}

std::string NameText(const std::string& name) { return name.empty() ? "\"\"" : Escaped(name); }

size_t TextWidth(const std::string& text) {
  size_t width = 0;
  for (const Glyph& glyph : Glyphs(text)) width += glyph.width;
  return width;
}

std::vector<std::string> Wrapped(const std::string& text, size_t width, size_t maxLines, const char* ellipsis) {
  const std::vector<Glyph> glyphs = Glyphs(text);
  std::vector<std::string> lines = Lines(glyphs, width, true);
  if (lines.size() <= maxLines) return lines;
  lines = Lines(glyphs, width, false);
  if (lines.size() <= maxLines) return lines;
  lines.resize(maxLines);
  const std::vector<Glyph> last = Glyphs(lines.back());
  lines.back().clear();
  for (size_t i = 0, used = 0; i < last.size() && used + last[i].width < width; ++i) {
    used += last[i].width;
    lines.back() += last[i].bytes;
  }
  lines.back() += ellipsis;
  return lines;
}

std::string InQuotes(const std::string& text) { return '"' + Escaped(text) + '"'; }

std::string Shortened(const std::string& text, size_t columns) {
  const std::vector<std::string> lines = Wrapped(text, columns, 1, "…");
  return lines.empty() ? "" : lines[0];
}

std::string Quoted(const std::string& text) {
  constexpr size_t kMaxLength = 60;
  if (text.size() <= kMaxLength) return "'" + Escaped(text) + "'";
  size_t end = kMaxLength;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;  // not in a character
  return "'" + Escaped(text.substr(0, end)) + "...'";
}

std::string Count(uint64_t number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string Colored(const std::string& text, const std::string& color) {
  return color.empty() || text.empty() ? text : "\x1b[" + color + "m" + text + "\x1b[0m";
}

TableRow HeadingRow(const std::vector<std::string>& headings, bool color) {
  TableRow row;
  for (const std::string& heading : headings) row.push_back({heading, color ? kBold : ""});
  return row;
}

std::string AlignedTable(const std::vector<TableRow>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i + 1 < row.size(); ++i) widths[i] = std::max(widths[i], TextWidth(row[i].text));
  }
  std::string table;
  for (const auto& row : rows) {
    std::string line;
    std::string blank;
    for (size_t i = 0; i + 1 < row.size(); ++i) {
      const std::string padding(widths[i] + 2 - TextWidth(row[i].text), ' ');
      line += Colored(row[i].text, row[i].color) + padding;
      blank += std::string(widths[i] + 2, ' ');
    }
    const std::string& last = row.back().text;
    for (size_t begin = 0; begin <= last.size();) {
      const size_t end = std::min(last.find('\n', begin), last.size());
      line += Colored(last.substr(begin, end - begin), row.back().color);
      line.erase(line.find_last_not_of(' ') + 1);
      table += line + "\n";
      line = blank;
      begin = end + 1;
    }
  }
  return table;
}

std::string CompactText(const Json::Value& value) {
  static Json::StreamWriter& writer = *[] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return builder.newStreamWriter();
  }();
  std::ostringstream text;
  writer.write(value, &text);
  return text.str();
}

}  // namespace dp4
