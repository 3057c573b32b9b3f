// The map of a payload in characters.

#include <algorithm>
#include <string>
#include <vector>

#include "inspect/layout/PayloadMap.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

const size_t kCellColumns = 8;  // of one bit, without the line to its left
const size_t kCellLines = 3;

// One drawn row. A row that stands for left-out bytes has no byte.
struct TextRow {
  std::string label;
  const std::vector<MapPiece>* pieces;
  std::vector<std::vector<std::string>> lines;  // of each piece
};

size_t PieceWidth(const MapPiece& piece) { return piece.columns * (kCellColumns + 1) - 1; }

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

std::vector<TextRow> TextRows(const PayloadMap& map) {
  std::vector<TextRow> rows;
  for (const MapBlock& block : map.blocks) {
    const size_t bytes = block.last - block.first + 1;
    rows.push_back(RowOfByte(map, block, block.first));
    if (bytes > kShownBytes) {
      rows.push_back({"..", &block.pieces, {{" " + LeftOutText(map, block)}}});
    } else {
      for (size_t i = block.first + 1; i < block.last; ++i) rows.push_back(RowOfByte(map, block, i));
    }
    if (bytes > 1) rows.push_back(RowOfByte(map, block, block.last));
  }
  return rows;
}

// The line between two rows; empty when nothing ends there.
std::string Rule(const MapColumns& above, const MapColumns& below) {
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

std::string GridText(const PayloadMap& map, bool color) {
  const size_t labelWidth = std::max<size_t>(4, std::to_string(map.blocks.back().last).size());
  const std::string margin(labelWidth + 1, ' ');
  std::string text = PaddedTo(labelWidth + 1, "byte") + "bit ";
  for (size_t bit = 8; bit-- > 0;) text += std::to_string(bit) + (bit == 0 ? "\n" : std::string(kCellColumns, ' '));
  const MapColumns outside{};
  MapColumns above = outside;
  for (const TextRow& row : TextRows(map)) {
    const MapColumns columns = ColumnsOf(*row.pieces);
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
  if (HasGaps(map)) add((std::string(". ") + GapText(map)).c_str());
  if (!map.overlaps.empty()) add("! fields overlap");
  if (HasValueBits(map)) add("[7:0] bits of the value");
  add("2-3 bytes, 0.2 byte and bit");
  return key + "\n";
}

std::string LegendText(const PayloadMap& map, bool color) {
  std::vector<TableRow> rows = {HeadingRow({"PLACE", "NAME", "GROUP", "TYPE", "DISPLAY NAME"}, color)};
  for (const MapField& field : map.fields) {
    const std::string groupColor = color ? GroupColor(field.group) : "";
    rows.push_back({{FieldPlaceText(field), ""},
                    {field.name, groupColor},
                    {GroupName(field.group), groupColor},
                    {DataTypeName(field.dataType), ""},
                    {field.displayName, ""}});
  }
  return AlignedTable(rows);
}

}  // namespace

std::string MapText(const PayloadMap& map, bool color) {
  std::string text = Colored(map.title, color ? kBold : "") + ": " + map.summary + "\n";
  if (!map.blocks.empty()) text += "\n" + GridText(map, color) + KeyText(map);
  if (!map.fields.empty()) text += "\n" + LegendText(map, color);
  const std::vector<std::string> remarks = Remarks(map);
  if (!remarks.empty()) text += "\n";
  for (const std::string& remark : remarks) text += remark + "\n";
  return text;
}

}  // namespace morvix::inspect
