// The map of a payload in characters.

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "inspect/layout/AttributeTable.h"
#include "inspect/layout/PayloadMap.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

const size_t kCellColumns = 8;  // of one bit, without the line to its left
const size_t kCellLines = 3;

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

std::vector<std::string> LinesOf(const PayloadMap& map, const MapRow& row, const MapPiece& piece) {
  if (row.isLeftOut) return {" " + LeftOutText(map, *row.block)};
  if (piece.fields.empty()) return {GapLine(piece)};
  std::string name = PieceNames(map, row, piece);
  if (piece.fields.size() > 1) name = name.empty() ? "!" : "! " + name;
  return PieceLines(name, ValueBitsText(map, row.byteIndex, piece), PieceWidth(piece));
}

// The line between two rows; empty when nothing ends there. The end of a write is a double line from end to end.
std::string Rule(const MapColumns& above, const MapColumns& below, bool endsWrite) {
  const char dash = endsWrite ? '=' : '-';
  std::string rule;
  bool isLine = false;
  for (size_t column = 0; column <= 8; ++column) {
    const bool left = column > 0 && (endsWrite || Differ(above[column - 1], below[column - 1]));
    const bool right = column < 8 && (endsWrite || Differ(above[column], below[column]));
    const bool up = HasLineLeftOf(above, column);
    const bool down = HasLineLeftOf(below, column);
    const bool isBend = (left || right) && (up || down || left != right);
    rule += isBend ? '+' : left ? dash : up || down ? '|' : ' ';
    if (column < 8) rule += std::string(kCellColumns, right ? dash : ' ');
    isLine = isLine || right;
  }
  return isLine ? rule : "";
}

// The bit groups at the right of the grid, with their names if there is room for them.
class GroupMarks {
 public:
  GroupMarks(const PayloadMap& map, bool hasNames) : map_(map), hasNames_(hasNames) {}

  // What stands at the right of a row's first line; of the other ones, and of a line between it and the next row, too
  // when `isGoingOn`.
  std::string Text(size_t byteIndex, bool isGoingOn = false) {
    bool isInside = false;
    std::string names;
    for (size_t i = 0; i < map_.groups.size(); ++i) {
      const BitRange& group = map_.groups[i];
      if (byteIndex < group.FirstByte() || byteIndex >= group.EndByte()) continue;
      isInside = true;
      if (hasNames_ && !isGoingOn && named_.insert(i).second)
        names += (names.empty() ? " bit group " : ", ") + PlaceText(group);
    }
    return isInside ? " ]" + names : "";
  }

  // Between two bytes.
  std::string TextBetween(size_t above, size_t below) const {
    const bool isInside = std::any_of(map_.groups.begin(), map_.groups.end(), [&](const BitRange& group) {
      return group.FirstByte() <= above && below < group.EndByte();
    });
    return isInside ? " ]" : "";
  }

 private:
  const PayloadMap& map_;
  const bool hasNames_;
  std::set<size_t> named_;
};

std::string PieceColor(const PayloadMap& map, const MapPiece& piece) {
  if (piece.fields.empty()) return "2";
  return piece.fields.size() > 1 ? "7" : GroupColor(map.fields[piece.fields[0]].group);
}

std::string RowText(const PayloadMap& map, const MapRow& row, size_t labelWidth, GroupMarks& groups, bool color) {
  std::vector<std::vector<std::string>> lines;  // of each piece
  size_t height = 1;
  for (const MapPiece& piece : row.block->pieces) {
    lines.push_back(LinesOf(map, row, piece));
    height = std::max(height, lines.back().size());
  }
  std::string text;
  for (size_t line = 0; line < height; ++line) {
    const std::string label = row.isLeftOut ? ".." : std::to_string(row.byteIndex);
    text += fmt::format("{:>{}} |", line == 0 ? label : "", labelWidth);
    for (size_t i = 0; i < lines.size(); ++i) {
      const MapPiece& piece = row.block->pieces[i];
      const std::string content = PaddedTo(PieceWidth(piece), line < lines[i].size() ? lines[i][line] : "");
      text += Colored(content, PieceColor(map, piece), color) + "|";
    }
    text += groups.Text(row.byteIndex, line != 0) + "\n";
  }
  return text;
}

// Whether words fit at the right of the grid.
bool HasMargin(size_t width) { return width == 0 || width >= 100; }

std::string GridText(const PayloadMap& map, bool color, size_t width) {
  const size_t labelWidth = std::max<size_t>(4, std::to_string(map.blocks.back().last).size());
  const std::string margin(labelWidth + 1, ' ');
  std::string text = PaddedTo(labelWidth + 1, "byte") + "bit ";
  for (size_t bit = 8; bit-- > 0;) text += std::to_string(bit) + (bit == 0 ? "\n" : std::string(kCellColumns, ' '));
  const MapColumns outside{};
  MapColumns above = outside;
  const MapRow* previous = nullptr;
  GroupMarks groups(map, HasMargin(width));
  const auto addRule = [&](const MapColumns& columns, const std::string& groupMark) {
    const bool endsWrite = previous != nullptr && EndsWrite(map, *previous);
    const std::string rule = Rule(above, columns, endsWrite);
    if (!rule.empty())
      text += margin + rule + groupMark + (endsWrite && HasMargin(width) ? " end of a write" : "") + "\n";
    above = columns;
  };
  const std::vector<MapRow> rows = RowsOf(map);
  for (const MapRow& row : rows) {
    addRule(ColumnsOf(row), previous == nullptr ? "" : groups.TextBetween(previous->byteIndex, row.byteIndex));
    text += RowText(map, row, labelWidth, groups, color);
    previous = &row;
  }
  addRule(outside, "");
  return text;
}

std::string KeyText(const PayloadMap& map, size_t width) {
  std::vector<std::string> parts;
  if (map.hasGaps) parts.push_back(std::string(". ") + map.gapText);
  if (!map.overlaps.empty()) parts.emplace_back("! fields overlap");
  if (map.hasValueBits) parts.emplace_back("[7:0] bits of the value");
  if (!map.groups.empty()) parts.emplace_back("] bits of one group");
  if (map.writtenBytes != 0 && !HasMargin(width)) parts.emplace_back("=== end of a write");
  parts.emplace_back("2-3 bytes, 0.2 byte and bit");
  std::string text = parts[0];
  size_t used = TextWidth(parts[0]);
  for (size_t i = 1; i < parts.size(); ++i) {
    const bool isFull = width != 0 && used + 3 + TextWidth(parts[i]) > width;
    text += (isFull ? "\n" : "   ") + parts[i];
    used = (isFull ? 0 : used + 3) + TextWidth(parts[i]);
  }
  return text + "\n";
}

std::string LegendText(const PayloadMap& map, bool color, size_t width) {
  std::vector<TableRow> rows = {
      HeadingRow({"PLACE", "NAME", "DISPLAY NAME", "GROUP", "FLAG", "TYPE", "SCALING", "VALUES"})};
  for (const MapField& field : map.fields) {
    rows.push_back({{FieldPlaceText(field)},
                    {field.name, GroupColor(field.group)},
                    {field.displayName},
                    {GroupName(field.group), GroupColor(field.group)},
                    {field.flag},
                    {DataTypeName(field.dataType)},
                    {ScalingText(*field.attribute)},
                    {ValuesText(*field.attribute, field.Shown())}});
  }
  return AlignedTable(rows, color, width);
}

}  // namespace

std::string MapText(const PayloadMap& map, bool color, size_t width) {
  std::string text = Colored(map.title, kBold, color) + ": " + map.summary + "\n";
  if (!map.blocks.empty()) text += "\n" + GridText(map, color, width) + KeyText(map, width);
  if (!map.fields.empty()) text += "\n" + LegendText(map, color, width);
  const std::vector<std::string> remarks = Remarks(map);
  if (!remarks.empty()) text += "\n";
  for (const std::string& remark : remarks) text += remark + "\n";
  return text;
}

}  // namespace morvix::inspect
