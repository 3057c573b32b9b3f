#include "Layout.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <map>
#include <ostream>
#include <system_error>
#include <utility>

#include "Commands.h"

namespace dp4 {

namespace {

using Indexes = std::vector<size_t>;

// ---- The map ----

MapField FieldOf(const AttributeView& view) {
  const MorvixProtocolAttribute_4_0& attribute = view.attribute;
  return {NameText(attribute.name), NameText(attribute.display_name), attribute.type, attribute.data_type, view.bits};
}

// For each payload bit the fields that it lies in.
std::vector<Indexes> FieldsOfBits(const std::vector<MapField>& fields, size_t bytes) {
  std::vector<Indexes> fieldsOfBits(bytes * 8);
  for (size_t i = 0; i < fields.size(); ++i) {
    for (const size_t bit : fields[i].bits) fieldsOfBits[bit].push_back(i);
  }
  return fieldsOfBits;
}

std::vector<MapPiece> PiecesOf(const std::vector<Indexes>& fieldsOfBits, size_t byteIndex) {
  std::vector<MapPiece> pieces;
  for (size_t column = 0; column < 8; ++column) {
    const Indexes& fields = fieldsOfBits[byteIndex * 8 + column];
    if (pieces.empty() || pieces.back().fields != fields) pieces.push_back({column, 0, fields});
    ++pieces.back().columns;
  }
  return pieces;
}

std::vector<MapBlock> BlocksOf(const std::vector<Indexes>& fieldsOfBits) {
  std::vector<MapBlock> blocks;
  for (size_t i = 0; i < fieldsOfBits.size() / 8; ++i) {
    std::vector<MapPiece> pieces = PiecesOf(fieldsOfBits, i);
    const bool continues = !blocks.empty() && pieces.size() == 1 && blocks.back().pieces.size() == 1 &&
                           pieces[0].fields == blocks.back().pieces[0].fields;
    if (continues) {
      blocks.back().last = i;
    } else {
      blocks.push_back({i, i, std::move(pieces)});
    }
  }
  return blocks;
}

// Fields have no holes, so that the bits of an overlap have none either.
std::vector<MapOverlap> OverlapsOf(const std::vector<Indexes>& fieldsOfBits) {
  std::vector<MapOverlap> overlaps;
  for (size_t bit = 0; bit < fieldsOfBits.size(); ++bit) {
    const Indexes& fields = fieldsOfBits[bit];
    if (fields.size() < 2) continue;
    if (overlaps.empty() || overlaps.back().fields != fields) overlaps.push_back({{}, fields});
    overlaps.back().bits.push_back(bit);
  }
  return overlaps;
}

// The bits of the field's value in a piece, "[5:3]", when it has more of them elsewhere. Binaries are no numbers, and
// their bytes are in order anyway.
std::string ValueBitsText(const MapField& field, size_t byteIndex, const MapPiece& piece) {
  if (field.dataType == MorvixProtocolDataTypeBinary_4_0 || field.bits.size() == piece.columns) return "";
  const size_t begin = byteIndex * 8 + piece.column;
  std::string low;
  std::string high;
  for (size_t k = 0; k < field.bits.size(); ++k) {
    if (field.bits[k] < begin || field.bits[k] >= begin + piece.columns) continue;
    if (low.empty()) low = std::to_string(k);
    high = std::to_string(k);
  }
  return high == low ? "[" + low + "]" : "[" + high + ":" + low + "]";
}

std::string NamesText(const PayloadMap& map, const Indexes& fields, const std::string& separator) {
  std::string text;
  for (const size_t field : fields) text += (text.empty() ? "" : separator) + map.fields[field].name;
  return text;
}

bool HasGaps(const PayloadMap& map) {
  return std::any_of(map.blocks.begin(), map.blocks.end(), [](const MapBlock& block) {
    return std::any_of(block.pieces.begin(), block.pieces.end(),
                       [](const MapPiece& piece) { return piece.fields.empty(); });
  });
}

// Whether value bits are written anywhere.
bool HasValueBits(const PayloadMap& map) {
  return std::any_of(map.blocks.begin(), map.blocks.end(), [&map](const MapBlock& block) {
    return std::any_of(block.pieces.begin(), block.pieces.end(), [&](const MapPiece& piece) {
      return piece.fields.size() == 1 && !ValueBitsText(map.fields[piece.fields[0]], block.first, piece).empty();
    });
  });
}

// The lines below a map: what it cannot show.
std::vector<std::string> Remarks(const PayloadMap& map) {
  std::vector<std::string> remarks;
  for (const MapOverlap& overlap : map.overlaps) {
    remarks.push_back("Overlap: " + PlaceText(overlap.bits) + " lies in " + NamesText(map, overlap.fields, " and "));
  }
  for (const MapField& field : map.unplaced) {
    remarks.push_back("Nowhere: " + field.name + " (" + GroupName(field.group) + " " + DataTypeName(field.dataType) +
                      ") has no place in any packet");
  }
  for (const std::string& note : map.notes) remarks.push_back("Note: " + note);
  return remarks;
}

// ---- Text ----

const size_t kCellColumns = 8;  // of one bit, without the line to its left
const size_t kCellLines = 3;
const size_t kShownBytes = 3;  // of bytes that look alike; more are cut short

// One drawn row. A row that stands for left-out bytes has no byte.
struct TextRow {
  std::string label;
  const std::vector<MapPiece>* pieces;
  std::vector<std::vector<std::string>> lines;  // of each piece
};

size_t PieceWidth(const MapPiece& piece) { return piece.columns * (kCellColumns + 1) - 1; }

std::string PaddedTo(size_t width, const std::string& text) {
  const size_t used = TextWidth(text);
  return used < width ? text + std::string(width - used, ' ') : text;
}

// A dot in the middle of each bit.
std::string GapLine(const MapPiece& piece) {
  std::string line;
  const size_t before = (kCellColumns - 1) / 2;
  for (size_t i = 0; i < piece.columns; ++i) {
    line += std::string(i == 0 ? before : before + 1, ' ') + "." + std::string(kCellColumns - before - 1, ' ');
  }
  return line;
}

// The lines of a piece: a name on the left, value bits on the right, a blank from the borders where there is room.
std::vector<std::string> PieceLines(const std::string& name, const std::string& valueBits, size_t width) {
  std::vector<std::string> lines = Wrapped(name, width, kCellLines, "~");
  const size_t nameWidth = lines.empty() ? 0 : TextWidth(lines.back());
  const bool isTogether = !lines.empty() && nameWidth + 1 + valueBits.size() <= width;
  const size_t used = isTogether && !valueBits.empty() ? nameWidth + 1 + valueBits.size() : nameWidth;
  if (lines.size() == 1 && used + 1 <= width) lines[0] = " " + lines[0];
  if (valueBits.empty()) return lines;
  if (!isTogether) lines.emplace_back();
  const size_t left = TextWidth(lines.back()) + (isTogether ? 1 : 0) + valueBits.size();
  const std::string atRight = valueBits + (left < width ? " " : "");
  lines.back() = PaddedTo(width - std::min(width, atRight.size()), lines.back()) + atRight;
  return lines;
}

TextRow RowOfByte(const PayloadMap& map, const MapBlock& block, size_t byteIndex) {
  TextRow row{std::to_string(byteIndex), &block.pieces, {}};
  const bool isNamed = byteIndex == block.first;
  for (const MapPiece& piece : block.pieces) {
    const size_t width = PieceWidth(piece);
    if (piece.fields.empty()) {
      row.lines.push_back({GapLine(piece)});
    } else if (piece.fields.size() == 1) {
      const MapField& field = map.fields[piece.fields[0]];
      row.lines.push_back(PieceLines(isNamed ? field.name : "", ValueBitsText(field, byteIndex, piece), width));
    } else {
      row.lines.push_back(PieceLines(isNamed ? "! " + NamesText(map, piece.fields, " + ") : "!", "", width));
    }
  }
  return row;
}

std::string LeftOutText(const MapBlock& block) {
  return std::to_string(block.last - block.first + 1) + " bytes" + (block.pieces[0].fields.empty() ? " not used" : "");
}

std::vector<TextRow> TextRows(const PayloadMap& map) {
  std::vector<TextRow> rows;
  for (const MapBlock& block : map.blocks) {
    const size_t bytes = block.last - block.first + 1;
    rows.push_back(RowOfByte(map, block, block.first));
    if (bytes > kShownBytes) {
      rows.push_back({"..", &block.pieces, {{" " + LeftOutText(block)}}});
    } else {
      for (size_t i = block.first + 1; i < block.last; ++i) rows.push_back(RowOfByte(map, block, i));
    }
    if (bytes > 1) rows.push_back(RowOfByte(map, block, block.last));
  }
  return rows;
}

// The fields in each column; null outside of the map.
using Columns = std::array<const Indexes*, 8>;

Columns ColumnsOf(const std::vector<MapPiece>& pieces) {
  Columns columns{};
  for (const MapPiece& piece : pieces) {
    for (size_t i = 0; i < piece.columns; ++i) columns[piece.column + i] = &piece.fields;
  }
  return columns;
}

bool Differ(const Indexes* left, const Indexes* right) {
  return left == nullptr || right == nullptr ? left != right : *left != *right;
}

// Whether a line runs on the left of the column; column 8 is the right end.
bool HasLineLeftOf(const Columns& columns, size_t column) {
  return Differ(column == 0 ? nullptr : columns[column - 1], column == 8 ? nullptr : columns[column]);
}

// The line between two rows; empty when nothing ends there.
std::string Rule(const Columns& above, const Columns& below) {
  std::string rule;
  bool isLine = false;
  for (size_t column = 0; column <= 8; ++column) {
    const bool left = column > 0 && Differ(above[column - 1], below[column - 1]);
    const bool right = column < 8 && Differ(above[column], below[column]);
    const bool up = HasLineLeftOf(above, column);
    const bool down = HasLineLeftOf(below, column);
    const bool isBend = (left || right) && (up || down || left != right);
    rule += isBend ? '+' : left ? '-' : up || down ? '|' : ' ';
    if (column < 8) rule += std::string(kCellColumns, right ? '-' : ' ');
    isLine = isLine || right;
  }
  return isLine ? rule : "";
}

std::string PieceColor(const PayloadMap& map, const MapPiece& piece) {
  if (piece.fields.empty()) return "2";
  return piece.fields.size() > 1 ? "7" : GroupColor(map.fields[piece.fields[0]].group);
}

std::string RowText(const PayloadMap& map, const TextRow& row, size_t labelWidth, bool color) {
  size_t height = 1;
  for (const auto& lines : row.lines) height = std::max(height, lines.size());
  std::string text;
  for (size_t line = 0; line < height; ++line) {
    const std::string label = line == 0 ? row.label : "";
    text += std::string(labelWidth - label.size(), ' ') + label + " |";
    for (size_t i = 0; i < row.pieces->size(); ++i) {
      const MapPiece& piece = (*row.pieces)[i];
      const std::string content = line < row.lines[i].size() ? row.lines[i][line] : "";
      text += Colored(PaddedTo(PieceWidth(piece), content), color ? PieceColor(map, piece) : "") + "|";
    }
    text += "\n";
  }
  return text;
}

std::string MapText(const PayloadMap& map, bool color) {
  const size_t labelWidth = std::max<size_t>(4, std::to_string(map.blocks.back().last).size());
  const std::string margin(labelWidth + 1, ' ');
  std::string text = PaddedTo(labelWidth + 1, "byte") + "bit ";
  for (size_t bit = 8; bit-- > 0;) text += std::to_string(bit) + (bit == 0 ? "\n" : std::string(kCellColumns, ' '));
  const Columns outside{};
  Columns above = outside;
  for (const TextRow& row : TextRows(map)) {
    const Columns columns = ColumnsOf(*row.pieces);
    const std::string rule = Rule(above, columns);
    if (!rule.empty()) text += margin + rule + "\n";
    text += RowText(map, row, labelWidth, color);
    above = columns;
  }
  return text + margin + Rule(above, outside) + "\n";
}

std::string KeyText(const PayloadMap& map) {
  std::string key;
  const auto add = [&key](const char* part) { key += std::string(key.empty() ? "" : "   ") + part; };
  if (HasGaps(map)) add(". not used");
  if (!map.overlaps.empty()) add("! fields overlap");
  if (HasValueBits(map)) add("[7:0] bits of the value");
  add("2-3 bytes, 0.2 byte and bit");
  return key + "\n";
}

std::string LegendText(const PayloadMap& map, bool color) {
  std::vector<std::vector<TableCell>> rows(1);
  for (const char* heading : {"PLACE", "NAME", "GROUP", "TYPE", "DISPLAY NAME"}) {
    rows[0].push_back({heading, color ? "1" : ""});
  }
  for (const MapField& field : map.fields) {
    const std::string groupColor = color ? GroupColor(field.group) : "";
    rows.push_back({{PlaceText(field.bits), ""},
                    {field.name, groupColor},
                    {GroupName(field.group), groupColor},
                    {DataTypeName(field.dataType), ""},
                    {field.displayName, ""}});
  }
  return AlignedTable(rows);
}

// ---- SVG ----

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

const GroupStyle& StyleOf(MorvixProtocolType_4_0 group) {
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
  const std::string svg = TextSvg(x, baseline, style, text);
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
      rows.push_back({"", &block.pieces, {{{LeftOutText(block)}, ""}}, false, true});
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
    text += (text.empty() ? "" : "; ") + field.name + " (" + field.displayName + "): " + PlaceText(field.bits) + ", " +
            GroupName(field.group) + " " + DataTypeName(field.dataType);
  }
  return text.empty() ? "not used" : text;
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

  void AddBetween(const Columns& above, const Columns& below, size_t y) {
    for (size_t column = 0; column < 8; ++column) {
      std::string& path = Differ(above[column], below[column]) ? solid : dashed;
      path += Line(kGridLeft + column * kBitWidth, y, 'h', kBitWidth);
    }
  }

  void AddWithin(const Columns& columns, size_t y, size_t height) {
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
std::string MapSvg(const PayloadMap& map, size_t& y) {
  std::string svg = TextSvg(kGridLeft - 8, y + 12, {10, kMutedColor, "end", false}, "byte");
  svg += TextSvg(kGridLeft + 2, y + 12, {10, kMutedColor, "start", false}, "bit");
  for (size_t column = 0; column < 8; ++column) {
    const size_t middle = kGridLeft + column * kBitWidth + kBitWidth / 2;
    svg += TextSvg(middle, y + 12, {10, "#000000", "middle", false}, std::to_string(7 - column));
  }
  y += 18;
  Boundaries boundaries;
  const Columns outside{};
  Columns above = outside;
  bool isCut = false;
  for (const SvgRow& row : SvgRows(map)) {
    const size_t height = RowHeight(row);
    const Columns columns = ColumnsOf(*row.pieces);
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
  for (const MorvixProtocolType_4_0 group : {MorvixProtocolTypeStatusWritable_4_0, MorvixProtocolTypeStatusReadonly_4_0,
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
    placeWidth = std::max(placeWidth, PlaceText(field.bits).size() + 1);
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
    svg += TextSvg(x + placeLeft, top + 10, {fontSize, "#000000", "start", false}, PlaceText(field.bits));
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

PayloadMap MapPayload(const EntityView& view) {
  PayloadMap map;
  map.title = EntityTitle(view);
  map.summary = PayloadSummary(view);
  map.notes = view.notes;
  size_t bytes = std::min(view.payloadBytes, kMaxPayloadBytes);
  for (const AttributeView& attribute : view.attributes) {
    if (attribute.bits.empty()) {
      map.unplaced.push_back(FieldOf(attribute));
      continue;
    }
    map.fields.push_back(FieldOf(attribute));
    bytes = std::max(bytes, *std::max_element(attribute.bits.begin(), attribute.bits.end()) / 8 + 1);
  }
  std::stable_sort(map.fields.begin(), map.fields.end(), [](const MapField& left, const MapField& right) {
    return *std::min_element(left.bits.begin(), left.bits.end()) <
           *std::min_element(right.bits.begin(), right.bits.end());
  });
  const std::vector<Indexes> fieldsOfBits = FieldsOfBits(map.fields, bytes);
  map.blocks = BlocksOf(fieldsOfBits);
  map.overlaps = OverlapsOf(fieldsOfBits);
  return map;
}

std::string LayoutText(const PayloadMap& map, bool color) {
  std::string text = Colored(map.title, color ? "1" : "") + ": " + map.summary + "\n";
  if (!map.blocks.empty()) text += "\n" + MapText(map, color) + KeyText(map);
  if (!map.fields.empty()) text += "\n" + LegendText(map, color);
  const std::vector<std::string> remarks = Remarks(map);
  if (!remarks.empty()) text += "\n";
  for (const std::string& remark : remarks) text += remark + "\n";
  return text;
}

std::string LayoutSvg(const PayloadMap& map) {
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
    body += MapSvg(map, y);
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

int Layout(const LayoutOptions& options, const CommonOptions& common, std::ostream& out) {
  const JsonText configuration = ReadJsonFile(options.configuration);
  const Json::Value& entity = ChooseEntity(configuration, common.entity);
  const PayloadMap map = MapPayload(ViewEntity(configuration, entity, common.log));
  if (options.svg.empty()) {
    out << LayoutText(map, common.color);
    return kFine;
  }
  if (options.svg == "-") {
    out << LayoutSvg(map);
    return kFine;
  }
  errno = 0;
  std::ofstream file(options.svg, std::ios::binary);
  file << LayoutSvg(map);
  file.close();
  if (!file) {
    throw UsageError(options.svg + ": cannot be written: " + std::generic_category().message(errno != 0 ? errno : EIO));
  }
  return kFine;
}

}  // namespace dp4
