// The map of a payload as an SVG picture.

#include <algorithm>
#include <string>
#include <vector>

#include "inspect/layout/PayloadMap.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

// Sizes in pixels; the page is as wide as the printable part of a sheet of A4.
const size_t kPageWidth = 720;
const size_t kMargin = 20;
const size_t kGridLeft = 60;
const size_t kBitWidth = 80;
const size_t kBandWidth = 12;  // at the left of each field, with the letter of its group
const size_t kLineHeight = 12;
const size_t kRowPadding = 8;  // above and below the lines of a row, together
const size_t kCutHeight = 12;  // of a row that stands for bytes left out
const size_t kPieceLines = 3;
const char kBoundaryColor[] = "#222222";
const char kMutedColor[] = "#555555";

// How a group looks: pale ground, a pattern on it, and a dark band with a letter, so that the groups can be told apart
// without colours.
struct GroupStyle {
  const char* id;
  const char* name;
  const char* letter;
  const char* ground;
  const char* band;
  const char* pattern;  // the drawing of one tile
};
const GroupStyle kGroupStyles[] = {
    {"writable", "writable", "W", "#d6e6f8", "#1d4f91", ""},
    {"readonly", "read-only", "R", "#dcf0d8", "#2c6e2f", "M-1,1 l2,-2 M0,8 l8,-8 M7,9 l2,-2"},
    {"alert", "alert", "A", "#fdeebc", "#8a5a00", "M1,2 h3 M5,6 h3"},
    {"fault", "fault", "F", "#f9d8d8", "#9c1f1f", "M0,0 l8,8 M0,8 l8,-8"},
    {"overlap", "fields overlap", "!", "#ffffff", "#000000", "M-1,7 l2,2 M0,4 l4,4 M0,0 l8,8 M4,0 l4,4 M7,-1 l2,2"},
};
const GroupStyle& kPlainStyle = kGroupStyles[0];
const GroupStyle& kOverlapStyle = kGroupStyles[4];

const GroupStyle& StyleOf(Group group) {
  switch (group) {
    case MorvixProtocolTypeStatusWritable_4_0:
      return kGroupStyles[0];
    case MorvixProtocolTypeStatusReadonly_4_0:
      return kGroupStyles[1];
    case MorvixProtocolTypeAlert_4_0:
      return kGroupStyles[2];
    default:
      return kGroupStyles[3];
  }
}

const GroupStyle& StyleOf(const PayloadMap& map, const MapPiece& piece) {
  return piece.fields.size() > 1 ? kOverlapStyle : StyleOf(map.fields[piece.fields[0]].group);
}

std::string XmlText(const std::string& text) {
  std::string xml;
  for (const char c : text) {
    switch (c) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '"':
        xml += "&quot;";
        break;
      case '\'':
        xml += "&apos;";
        break;
      default:
        xml += c;
    }
  }
  return xml;
}

std::string XmlAttribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + XmlText(value) + "\"";
}

std::string XmlAttribute(const char* name, size_t value) { return XmlAttribute(name, std::to_string(value)); }

std::string RectSvg(size_t x, size_t y, size_t width, size_t height, const std::string& fill) {
  return "<rect" + XmlAttribute("x", x) + XmlAttribute("y", y) + XmlAttribute("width", width) +
         XmlAttribute("height", height) + XmlAttribute("fill", fill) + "/>\n";
}

struct TextStyle {
  size_t size = 10;
  const char* color = "#000000";
  const char* anchor = "start";
  bool isBold = false;
};

// All text is set in a font of fixed width, so that what fits can be counted on every machine.
size_t CharactersIn(size_t width, size_t fontSize) { return width * 100 / (fontSize * 61); }

std::string TextSvg(size_t x, size_t baseline, const TextStyle& style, const std::string& text) {
  return "<text" + XmlAttribute("x", x) + XmlAttribute("y", baseline) + XmlAttribute("font-size", style.size) +
         XmlAttribute("fill", style.color) + XmlAttribute("text-anchor", style.anchor) +
         (style.isBold ? XmlAttribute("font-weight", "bold") : "") + ">" + XmlText(text) + "</text>\n";
}

std::string GroundSvg(const GroupStyle& style, size_t x, size_t y, size_t width, size_t height) {
  std::string svg = RectSvg(x, y, width, height, style.ground);
  if (*style.pattern != '\0') svg += RectSvg(x, y, width, height, std::string("url(#") + style.id + ")");
  return svg + RectSvg(x, y, kBandWidth, height, style.band);
}

// Text on a field, with the pattern left out behind it.
std::string FieldTextSvg(const GroupStyle& group, size_t x, size_t baseline, const TextStyle& style,
                         const std::string& text) {
  std::string svg = TextSvg(x, baseline, style, text);
  if (*group.pattern == '\0') return svg;
  const size_t width = (TextWidth(text) * style.size * 61 + 99) / 100;
  const std::string anchor = style.anchor;
  const size_t left = anchor == "end" ? x - width : anchor == "middle" ? x - width / 2 : x;
  return RectSvg(left, baseline - 9, width, kLineHeight, group.ground) + svg;
}

std::string LetterSvg(const GroupStyle& style, size_t x, size_t baseline) {
  return TextSvg(x + kBandWidth / 2, baseline, {10, "#ffffff", "middle", true}, style.letter);
}

std::string PatternsSvg() {
  std::string svg = "<defs>\n";
  for (const GroupStyle& style : kGroupStyles) {
    if (*style.pattern == '\0') continue;
    svg += "<pattern" + XmlAttribute("id", style.id) + XmlAttribute("patternUnits", "userSpaceOnUse") +
           XmlAttribute("width", 8) + XmlAttribute("height", 8) + "><path" + XmlAttribute("d", style.pattern) +
           XmlAttribute("stroke", style.band) + XmlAttribute("stroke-opacity", "0.3") + XmlAttribute("fill", "none") +
           "/></pattern>\n";
  }
  return svg + "</defs>\n";
}

// What stands in a piece; its value bits are on the right of its last line.
struct PieceText {
  std::vector<std::string> lines;
  std::string valueBits;
};

// A row of the picture: a byte, or bytes left out.
struct SvgRow {
  std::string label;
  const std::vector<MapPiece>* pieces;
  std::vector<PieceText> texts;
  bool isFirst;  // of its block
  bool isLeftOut;
};

PieceText TextOfPiece(const PayloadMap& map, const MapBlock& block, size_t byteIndex, const MapPiece& piece) {
  PieceText text;
  if (piece.fields.empty()) return text;
  const size_t width = CharactersIn(piece.columns * kBitWidth - kBandWidth - 6, 10);
  if (piece.fields.size() == 1) text.valueBits = ValueBitsText(map.fields[piece.fields[0]], byteIndex, piece);
  if (byteIndex == block.first) text.lines = Wrapped(NamesText(map, piece.fields, " + "), width, kPieceLines, "\u2026");
  const size_t used = text.lines.empty() ? 0 : TextWidth(text.lines.back()) + 1;
  if (text.lines.empty() || (!text.valueBits.empty() && used + text.valueBits.size() > width)) {
    text.lines.emplace_back();
  }
  return text;
}

SvgRow SvgRowOfByte(const PayloadMap& map, const MapBlock& block, size_t byteIndex) {
  SvgRow row{std::to_string(byteIndex), &block.pieces, {}, byteIndex == block.first, false};
  for (const MapPiece& piece : block.pieces) row.texts.push_back(TextOfPiece(map, block, byteIndex, piece));
  return row;
}

std::vector<SvgRow> SvgRows(const PayloadMap& map) {
  std::vector<SvgRow> rows;
  for (const MapBlock& block : map.blocks) {
    const size_t bytes = block.last - block.first + 1;
    rows.push_back(SvgRowOfByte(map, block, block.first));
    if (bytes > kShownBytes) {
      rows.push_back({"", &block.pieces, {{{LeftOutText(map, block)}, ""}}, false, true});
    } else {
      for (size_t i = block.first + 1; i < block.last; ++i) rows.push_back(SvgRowOfByte(map, block, i));
    }
    if (bytes > 1) rows.push_back(SvgRowOfByte(map, block, block.last));
  }
  return rows;
}

size_t RowHeight(const SvgRow& row) {
  if (row.isLeftOut) return kCutHeight;
  size_t lines = 1;
  for (const PieceText& text : row.texts) lines = std::max(lines, text.lines.size());
  return lines * kLineHeight + kRowPadding;
}

// What a viewer tells about a piece under the pointer.
std::string TooltipText(const PayloadMap& map, const MapPiece& piece) {
  std::string text;
  for (const size_t i : piece.fields) {
    const MapField& field = map.fields[i];
    text += (text.empty() ? "" : "; ") + field.name + " (" + field.displayName + "): " + FieldPlaceText(field) + ", " +
            GroupName(field.group) + " " + DataTypeName(field.dataType);
  }
  return text.empty() ? GapText(map) : text;
}

std::string GapSvg(const SvgRow& row, const MapPiece& piece, size_t y, size_t height) {
  const size_t x = kGridLeft + piece.column * kBitWidth;
  std::string svg;
  for (size_t i = 0; i < piece.columns && !row.isLeftOut; ++i) {
    const size_t middle = x + i * kBitWidth + kBitWidth / 2;
    svg += TextSvg(middle, y + height / 2 + 3, {10, kMutedColor, "middle", false}, "\u00b7");
  }
  return svg;
}

std::string FieldSvg(const GroupStyle& style, const SvgRow& row, size_t index, size_t y, size_t height) {
  const MapPiece& piece = (*row.pieces)[index];
  const PieceText& text = row.texts[index];
  const size_t x = kGridLeft + piece.column * kBitWidth;
  const size_t width = piece.columns * kBitWidth;
  std::string svg = GroundSvg(style, x, y, width, height);
  if (row.isLeftOut) return svg;
  size_t baseline = y + (height - text.lines.size() * kLineHeight) / 2 + 10;
  if (row.isFirst) svg += LetterSvg(style, x, baseline);
  for (const std::string& line : text.lines) {
    if (!line.empty()) svg += FieldTextSvg(style, x + kBandWidth + 3, baseline, {}, line);
    baseline += kLineHeight;
  }
  if (text.valueBits.empty()) return svg;
  const TextStyle atRight{10, kMutedColor, "end", false};
  return svg + FieldTextSvg(style, x + width - 4, baseline - kLineHeight, atRight, text.valueBits);
}

std::string PieceSvg(const PayloadMap& map, const SvgRow& row, size_t index, size_t y, size_t height) {
  const MapPiece& piece = (*row.pieces)[index];
  const bool isGap = piece.fields.empty();
  std::string svg = "<g><title>" + XmlText(TooltipText(map, piece)) + "</title>\n";
  svg += isGap ? GapSvg(row, piece, y, height) : FieldSvg(StyleOf(map, piece), row, index, y, height);
  if (row.isLeftOut) {
    const size_t middle = kGridLeft + 4 * kBitWidth;
    svg += FieldTextSvg(isGap ? kPlainStyle : StyleOf(map, piece), middle, y + 9, {9, kMutedColor, "middle", false},
                        row.texts[index].lines[0]);
  }
  return svg + "</g>\n";
}

std::string PathSvg(const std::string& path, const char* color, const char* width, const char* dashes) {
  if (path.empty()) return "";
  return "<path" + XmlAttribute("d", path) + XmlAttribute("fill", "none") + XmlAttribute("stroke", color) +
         XmlAttribute("stroke-width", width) + (*dashes != '\0' ? XmlAttribute("stroke-dasharray", dashes) : "") +
         "/>\n";
}

// The lines around fields, gathered while the rows are drawn above them.
struct Boundaries {
  std::string solid;
  std::string dashed;  // between the bytes of one field

  static std::string Line(size_t x, size_t y, char direction, size_t length) {
    return "M" + std::to_string(x) + "," + std::to_string(y) + direction + std::to_string(length);
  }

  void AddBetween(const MapColumns& above, const MapColumns& below, size_t y) {
    for (size_t column = 0; column < 8; ++column) {
      std::string& path = Differ(above[column], below[column]) ? solid : dashed;
      path += Line(kGridLeft + column * kBitWidth, y, 'h', kBitWidth);
    }
  }

  void AddWithin(const MapColumns& columns, size_t y, size_t height) {
    for (size_t column = 0; column <= 8; ++column) {
      if (HasLineLeftOf(columns, column)) solid += Line(kGridLeft + column * kBitWidth, y, 'v', height);
    }
  }
};

std::string RowLabelSvg(const SvgRow& row, size_t y, size_t height) {
  if (!row.isLeftOut) {
    return TextSvg(kGridLeft - 8, y + height / 2 + 4, {10, "#000000", "end", false}, row.label);
  }
  std::string dots;
  for (size_t i = 0; i < 3; ++i) dots += RectSvg(kGridLeft - 12, y + 1 + i * 4, 2, 2, kMutedColor);
  return dots;
}

// Draws the map from `y` on, which becomes its end.
std::string GridSvg(const PayloadMap& map, size_t& y) {
  std::string svg = TextSvg(kGridLeft - 8, y + 12, {10, kMutedColor, "end", false}, "byte");
  svg += TextSvg(kGridLeft + 2, y + 12, {10, kMutedColor, "start", false}, "bit");
  for (size_t column = 0; column < 8; ++column) {
    const size_t middle = kGridLeft + column * kBitWidth + kBitWidth / 2;
    svg += TextSvg(middle, y + 12, {10, "#000000", "middle", false}, std::to_string(7 - column));
  }
  y += 18;
  Boundaries boundaries;
  const MapColumns outside{};
  MapColumns above = outside;
  bool isCut = false;
  for (const SvgRow& row : SvgRows(map)) {
    const size_t height = RowHeight(row);
    const MapColumns columns = ColumnsOf(*row.pieces);
    svg += RowLabelSvg(row, y, height);
    for (size_t i = 0; i < row.pieces->size(); ++i) svg += PieceSvg(map, row, i, y, height);
    if (!row.isLeftOut && !isCut) boundaries.AddBetween(above, columns, y);
    isCut = row.isLeftOut;
    boundaries.AddWithin(columns, y, height);
    above = columns;
    y += height;
  }
  boundaries.AddBetween(above, outside, y);
  return svg + PathSvg(boundaries.dashed, "#888888", "0.5", "2,3") + PathSvg(boundaries.solid, kBoundaryColor, "1", "");
}

// The groups that occur, on one line.
std::string GroupsSvg(const PayloadMap& map, size_t y) {
  std::string svg;
  size_t x = kMargin;
  const auto add = [&](const GroupStyle& style) {
    svg += GroundSvg(style, x, y, 36, 16) + LetterSvg(style, x, y + 12);
    svg += "<rect" + XmlAttribute("x", x) + XmlAttribute("y", y) + XmlAttribute("width", 36) +
           XmlAttribute("height", 16) + XmlAttribute("fill", "none") + XmlAttribute("stroke", kBoundaryColor) + "/>\n";
    svg += TextSvg(x + 42, y + 12, {}, style.name);
    x += 42 + std::string(style.name).size() * 6 + 24;
  };
  for (const Group group : {MorvixProtocolTypeStatusWritable_4_0, MorvixProtocolTypeStatusReadonly_4_0,
                            MorvixProtocolTypeAlert_4_0, MorvixProtocolTypeFault_4_0}) {
    const bool occurs = std::any_of(map.fields.begin(), map.fields.end(),
                                    [group](const MapField& field) { return field.group == group; });
    if (occurs) add(StyleOf(group));
  }
  if (!map.overlaps.empty()) add(kOverlapStyle);
  return svg;
}

// A list of all fields, in as many columns as their names leave room for.
std::string FieldListSvg(const PayloadMap& map, size_t& y) {
  const size_t fontSize = 9;
  size_t placeWidth = 0;
  size_t nameWidth = 0;
  for (const MapField& field : map.fields) {
    placeWidth = std::max(placeWidth, FieldPlaceText(field).size() + 1);
    nameWidth = std::max(nameWidth, TextWidth(field.name));
  }
  const size_t placeLeft = kBandWidth + 4;
  const size_t nameLeft = placeLeft + placeWidth * 56 / 10;
  const size_t available = kPageWidth - 2 * kMargin;
  const size_t needed = nameLeft + nameWidth * 56 / 10 + 12;
  const size_t columns = std::max<size_t>(1, std::min<size_t>(3, available / needed));
  const size_t columnWidth = available / columns;
  const size_t perColumn = (map.fields.size() + columns - 1) / columns;
  const std::string key = std::string("2-3 are bytes, 0.2 is byte 0, bit 2") +
                          (HasValueBits(map) ? "; in the map [7:0] are bits of the value" : "");
  std::string svg = TextSvg(kMargin, y + 10, {10, "#000000", "start", true}, "Fields") +
                    TextSvg(kMargin + 48, y + 10, {fontSize, kMutedColor, "start", false}, key);
  y += 18;
  size_t lowest = y;
  for (size_t i = 0; i < map.fields.size(); ++i) {
    const MapField& field = map.fields[i];
    const size_t x = kMargin + i / perColumn * columnWidth;
    size_t top = columns == 1 ? lowest : y + i % perColumn * 14;
    svg += RectSvg(x, top, kBandWidth, 12, StyleOf(field.group).band) + LetterSvg(StyleOf(field.group), x, top + 10);
    svg += TextSvg(x + placeLeft, top + 10, {fontSize, "#000000", "start", false}, FieldPlaceText(field));
    for (const std::string& line : Wrapped(field.name, CharactersIn(columnWidth - nameLeft, fontSize), SIZE_MAX, "")) {
      svg += TextSvg(x + nameLeft, top + 10, {fontSize, "#000000", "start", false}, line);
      top += 14;
    }
    lowest = std::max(lowest, top);
  }
  y = lowest;
  return svg;
}

std::string RemarksSvg(const PayloadMap& map, size_t& y) {
  std::string svg;
  const std::vector<std::string> remarks = Remarks(map);
  if (!remarks.empty()) y += 8;
  for (const std::string& remark : remarks) {
    for (const std::string& line : Wrapped(remark, CharactersIn(kPageWidth - 2 * kMargin, 9), SIZE_MAX, "")) {
      svg += TextSvg(kMargin, y + 10, {9, "#000000", "start", false}, line);
      y += 13;
    }
  }
  return svg;
}

}  // namespace

std::string MapSvg(const PayloadMap& map) {
  size_t y = kMargin;
  std::string body;
  for (const std::string& line : Wrapped(map.title, CharactersIn(kPageWidth - 2 * kMargin, 15), SIZE_MAX, "")) {
    body += TextSvg(kMargin, y + 14, {15, "#000000", "start", true}, line);
    y += 20;
  }
  body += TextSvg(kMargin, y + 10, {10, kMutedColor, "start", false}, map.summary);
  y += 22;
  if (!map.blocks.empty()) {
    body += GroupsSvg(map, y);
    y += 28;
    body += GridSvg(map, y);
    y += 16;
    body += FieldListSvg(map, y);
  }
  body += RemarksSvg(map, y);
  y += kMargin;
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg" + XmlAttribute("xmlns", "http://www.w3.org/2000/svg") +
         XmlAttribute("version", "1.1") + XmlAttribute("width", kPageWidth) + XmlAttribute("height", y) +
         XmlAttribute("viewBox", "0 0 " + std::to_string(kPageWidth) + " " + std::to_string(y)) +
         XmlAttribute("font-family", "DejaVu Sans Mono, Menlo, Consolas, Liberation Mono, Courier New, monospace") +
         ">\n<title>" + XmlText(map.title) + "</title>\n" + PatternsSvg() + RectSvg(0, 0, kPageWidth, y, "#ffffff") +
         body + "</svg>\n";
}

}  // namespace morvix::inspect
