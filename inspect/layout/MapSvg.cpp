// The map of a payload as an SVG picture.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inspect/layout/PayloadMap.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

// Sizes in pixels; the page is as wide as the printable part of a sheet of A4.
const size_t kPageWidth = 720;
const size_t kMargin = 20;
const size_t kInnerWidth = kPageWidth - 2 * kMargin;
const size_t kGridLeft = 60;
const size_t kBitWidth = 80;
const size_t kBandWidth = 12;  // at the left of each field, with the letter of its group
const size_t kLineHeight = 12;
const size_t kRowPadding = 8;  // above and below the lines of a row, together
const size_t kCutHeight = 12;  // of a row that stands for bytes left out
const size_t kPieceLines = 3;
const char kBlack[] = "#000000";
const char kLineColor[] = "#222222";
const char kMutedColor[] = "#555555";

// How a group looks: pale ground, a pattern on it, and a dark band with a letter, so that the groups can be told apart
// without colours.
struct GroupStyle {
  Group group;
  const char* id;
  const char* name;
  const char* letter;
  const char* ground;
  const char* band;
  std::string_view pattern;  // the drawing of one tile
};
constexpr Group kOverlap = MorvixProtocolTypeUnknown_4_0;
const GroupStyle kGroupStyles[] = {
    {MorvixProtocolTypeStatusWritable_4_0, "writable", "writable", "W", "#d6e6f8", "#1d4f91", ""},
    {MorvixProtocolTypeStatusReadonly_4_0, "readonly", "read-only", "R", "#dcf0d8", "#2c6e2f",
     "M-1,1 l2,-2 M0,8 l8,-8 M7,9 l2,-2"},
    {MorvixProtocolTypeAlert_4_0, "alert", "alert", "A", "#fdeebc", "#8a5a00", "M1,2 h3 M5,6 h3"},
    {MorvixProtocolTypeFault_4_0, "fault", "fault", "F", "#f9d8d8", "#9c1f1f", "M0,0 l8,8 M0,8 l8,-8"},
    {kOverlap, "overlap", "fields overlap", "!", "#ffffff", "#000000",
     "M-1,7 l2,2 M0,4 l4,4 M0,0 l8,8 M4,0 l4,4 M7,-1 l2,2"},
};

const GroupStyle& StyleOf(Group group) {
  return *std::find_if(std::begin(kGroupStyles), std::end(kGroupStyles),
                       [group](const GroupStyle& style) { return style.group == group; });
}

const GroupStyle& StyleOf(const PayloadMap& map, const MapPiece& piece) {
  return StyleOf(piece.fields.size() > 1 ? kOverlap : map.fields[piece.fields[0]].group);
}

struct TextStyle {
  const char* anchor = "start";
  const char* color = kBlack;
  size_t size = 10;
  bool isBold = false;
};
const TextStyle kSmall{"start", kBlack, 9};

// All text is in a fixed-width font, so that its width can be computed without the font.
size_t CharactersIn(size_t width, size_t fontSize) { return width * 100 / (fontSize * 61); }

size_t MiddleOf(size_t column) { return kGridLeft + column * kBitWidth + kBitWidth / 2; }

std::string XmlText(const std::string& text) {
  static const std::map<char, const char*> kEntities = {
      {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&apos;"}};
  std::string xml;
  for (const char c : text) {
    const auto entity = kEntities.find(c);
    xml += entity == kEntities.end() ? std::string(1, c) : entity->second;
  }
  return xml;
}

// The text in a piece of a byte. Value bits are at the right of the last line.
struct PieceText {
  std::vector<std::string> lines;
  std::string valueBits;
};

PieceText TextOf(const PayloadMap& map, const MapRow& row, const MapPiece& piece) {
  PieceText text;
  if (piece.fields.empty() || row.isLeftOut) return text;
  const size_t width = CharactersIn(piece.columns * kBitWidth - kBandWidth - 6, 10);
  text.valueBits = ValueBitsText(map, row.byteIndex, piece);
  if (row.IsFirst()) text.lines = Wrapped(NamesText(map, piece.fields, " + "), width, kPieceLines, "\u2026");
  const size_t used = text.lines.empty() ? 0 : TextWidth(text.lines.back()) + 1;
  const bool fits = text.valueBits.empty() || used + text.valueBits.size() <= width;
  if (text.lines.empty() || !fits) text.lines.emplace_back();
  return text;
}

size_t RowHeight(const PayloadMap& map, const MapRow& row) {
  if (row.isLeftOut) return kCutHeight;
  size_t lines = 1;
  for (const MapPiece& piece : row.block->pieces) lines = std::max(lines, TextOf(map, row, piece).lines.size());
  return lines * kLineHeight + kRowPadding;
}

// The tooltip of a piece.
std::string TooltipText(const PayloadMap& map, const MapPiece& piece) {
  std::vector<std::string> fields;
  for (const size_t i : piece.fields) {
    const MapField& field = map.fields[i];
    fields.push_back(fmt::format("{} ({}): {}, {} {}", field.name, field.displayName, FieldPlaceText(field),
                                 GroupName(field.group), DataTypeName(field.dataType)));
  }
  return fields.empty() ? map.gapText : fmt::format("{}", fmt::join(fields, "; "));
}

// The picture, drawn from top to bottom.
class Picture {
 public:
  explicit Picture(const PayloadMap& map) : map_(map) {}

  std::string Draw() {
    DrawLines(map_.title, {"start", kBlack, 15, true}, 14, 20);
    DrawText(kMargin, y_ + 10, {"start", kMutedColor}, map_.summary);
    y_ += 22;
    if (!map_.blocks.empty()) {
      DrawGroups();
      DrawGrid();
      DrawFieldList();
    }
    const std::vector<std::string> remarks = Remarks(map_);
    if (!remarks.empty()) y_ += 8;
    for (const std::string& remark : remarks) DrawLines(remark, kSmall, 10, 13);
    y_ += kMargin;
    const std::string drawn = std::move(svg_);
    svg_ = fmt::format(R"(<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" version="1.1" width="{0}" height="{1}" viewBox="0 0 {0} {1}" )"
                       R"(font-family="DejaVu Sans Mono, Menlo, Consolas, Liberation Mono, Courier New, monospace">
<title>{2}</title>
)",
                       kPageWidth, y_, XmlText(map_.title));
    DrawPatterns();
    DrawRect(0, 0, kPageWidth, y_, "#ffffff");
    return svg_ + drawn + "</svg>\n";
  }

 private:
  void Write(const std::string& element) { svg_ += element + '\n'; }

  void DrawRect(size_t x, size_t y, size_t width, size_t height, const std::string& fill) {
    Write(fmt::format(R"(<rect x="{}" y="{}" width="{}" height="{}" fill="{}"/>)", x, y, width, height, fill));
  }

  void DrawText(size_t x, size_t baseline, const TextStyle& style, const std::string& text) {
    Write(fmt::format(R"(<text x="{}" y="{}" font-size="{}" fill="{}" text-anchor="{}"{}>{}</text>)", x, baseline,
                      style.size, style.color, style.anchor, style.isBold ? R"( font-weight="bold")" : "",
                      XmlText(text)));
  }

  void DrawPath(const std::string& path, const char* stroke) {
    if (!path.empty()) Write(fmt::format(R"(<path d="{}" fill="none" {}/>)", path, stroke));
  }

  // Lines over the whole width of the page.
  void DrawLines(const std::string& text, const TextStyle& style, size_t ascent, size_t height) {
    for (const std::string& line : Wrapped(text, CharactersIn(kInnerWidth, style.size), SIZE_MAX, "")) {
      DrawText(kMargin, y_ + ascent, style, line);
      y_ += height;
    }
  }

  void DrawPatterns() {
    Write("<defs>");
    for (const GroupStyle& style : kGroupStyles) {
      if (style.pattern.empty()) continue;
      Write(fmt::format(R"(<pattern id="{}" patternUnits="userSpaceOnUse" width="8" height="8">)"
                        R"(<path d="{}" stroke="{}" stroke-opacity="0.3" fill="none"/></pattern>)",
                        style.id, style.pattern, style.band));
    }
    Write("</defs>");
  }

  void DrawGround(const GroupStyle& style, size_t x, size_t y, size_t width, size_t height) {
    DrawRect(x, y, width, height, style.ground);
    if (!style.pattern.empty()) DrawRect(x, y, width, height, fmt::format("url(#{})", style.id));
    DrawRect(x, y, kBandWidth, height, style.band);
  }

  void DrawLetter(const GroupStyle& style, size_t x, size_t baseline) {
    DrawText(x + kBandWidth / 2, baseline, {"middle", "#ffffff", 10, true}, style.letter);
  }

  // Text on a field, on a plain background so that the pattern does not disturb it.
  void DrawFieldText(const GroupStyle& group, size_t x, size_t baseline, const TextStyle& style,
                     const std::string& text) {
    if (!group.pattern.empty()) {
      const size_t width = (TextWidth(text) * style.size * 61 + 99) / 100;
      const std::string anchor = style.anchor;
      const size_t left = anchor == "end" ? x - width : anchor == "middle" ? x - width / 2 : x;
      DrawRect(left, baseline - 9, width, kLineHeight, group.ground);
    }
    DrawText(x, baseline, style, text);
  }

  // The groups that occur, on one line.
  void DrawGroups() {
    std::set<Group> groups;
    for (const MapField& field : map_.fields) groups.insert(field.group);
    if (!map_.overlaps.empty()) groups.insert(kOverlap);
    size_t x = kMargin;
    for (const GroupStyle& style : kGroupStyles) {
      if (groups.count(style.group) == 0) continue;
      DrawGround(style, x, y_, 36, 16);
      DrawLetter(style, x, y_ + 12);
      Write(fmt::format(R"(<rect x="{}" y="{}" width="36" height="16" fill="none" stroke="{}"/>)", x, y_, kLineColor));
      DrawText(x + 42, y_ + 12, {}, style.name);
      x += 42 + std::string(style.name).size() * 6 + 24;
    }
    y_ += 28;
  }

  void DrawGrid() {
    DrawText(kGridLeft - 8, y_ + 12, {"end", kMutedColor}, "byte");
    DrawText(kGridLeft + 2, y_ + 12, {"start", kMutedColor}, "bit");
    for (size_t column = 0; column < 8; ++column) {
      DrawText(MiddleOf(column), y_ + 12, {"middle"}, std::to_string(7 - column));
    }
    y_ += 18;
    const MapColumns outside{};
    MapColumns above = outside;
    bool isCut = false;
    for (const MapRow& row : RowsOf(map_)) {
      const size_t height = RowHeight(map_, row);
      const MapColumns columns = ColumnsOf(row);
      DrawRowLabel(row, height);
      for (const MapPiece& piece : row.block->pieces) DrawPiece(row, piece, height);
      if (!row.isLeftOut && !isCut) AddLinesBetween(above, columns);
      isCut = row.isLeftOut;
      AddLinesWithin(columns, height);
      above = columns;
      y_ += height;
    }
    AddLinesBetween(above, outside);
    y_ += 16;
    DrawPath(dashedLines_, R"(stroke="#888888" stroke-width="0.5" stroke-dasharray="2,3")");
    DrawPath(solidLines_, R"(stroke="#222222" stroke-width="1")");
  }

  void DrawRowLabel(const MapRow& row, size_t height) {
    if (!row.isLeftOut) {
      return DrawText(kGridLeft - 8, y_ + height / 2 + 4, {"end"}, std::to_string(row.byteIndex));
    }
    for (size_t i = 0; i < 3; ++i) DrawRect(kGridLeft - 12, y_ + 1 + i * 4, 2, 2, kMutedColor);
  }

  void DrawPiece(const MapRow& row, const MapPiece& piece, size_t height) {
    svg_ += fmt::format("<g><title>{}</title>\n", XmlText(TooltipText(map_, piece)));
    if (!piece.fields.empty()) {
      DrawField(row, piece, height);
    } else if (row.isLeftOut) {
      DrawText(kGridLeft + 4 * kBitWidth, y_ + 9, {"middle", kMutedColor, 9}, LeftOutText(map_, *row.block));
    } else {
      DrawGap(piece, height);
    }
    svg_ += "</g>\n";
  }

  // A dot in the middle of each bit.
  void DrawGap(const MapPiece& piece, size_t height) {
    for (size_t column = piece.column; column < piece.column + piece.columns; ++column) {
      DrawText(MiddleOf(column), y_ + height / 2 + 3, {"middle", kMutedColor}, "\u00b7");
    }
  }

  void DrawField(const MapRow& row, const MapPiece& piece, size_t height) {
    const GroupStyle& style = StyleOf(map_, piece);
    const PieceText text = TextOf(map_, row, piece);
    const size_t x = kGridLeft + piece.column * kBitWidth;
    const size_t width = piece.columns * kBitWidth;
    DrawGround(style, x, y_, width, height);
    if (row.isLeftOut) {
      return DrawFieldText(style, kGridLeft + 4 * kBitWidth, y_ + 9, {"middle", kMutedColor, 9},
                           LeftOutText(map_, *row.block));
    }
    size_t baseline = y_ + (height - text.lines.size() * kLineHeight) / 2 + 10;
    if (row.IsFirst()) DrawLetter(style, x, baseline);
    for (const std::string& line : text.lines) {
      if (!line.empty()) DrawFieldText(style, x + kBandWidth + 3, baseline, {}, line);
      baseline += kLineHeight;
    }
    if (!text.valueBits.empty()) {
      DrawFieldText(style, x + width - 4, baseline - kLineHeight, {"end", kMutedColor}, text.valueBits);
    }
  }

  void AddLinesBetween(const MapColumns& above, const MapColumns& below) {
    for (size_t column = 0; column < 8; ++column) {
      std::string& lines = Differ(above[column], below[column]) ? solidLines_ : dashedLines_;
      lines += fmt::format("M{},{}h{}", kGridLeft + column * kBitWidth, y_, kBitWidth);
    }
  }

  void AddLinesWithin(const MapColumns& columns, size_t height) {
    for (size_t column = 0; column <= 8; ++column) {
      if (!HasLineLeftOf(columns, column)) continue;
      solidLines_ += fmt::format("M{},{}v{}", kGridLeft + column * kBitWidth, y_, height);
    }
  }

  // A list of all fields, in as many columns as fit.
  void DrawFieldList() {
    size_t placeWidth = 0;
    size_t nameWidth = 0;
    for (const MapField& field : map_.fields) {
      placeWidth = std::max(placeWidth, FieldPlaceText(field).size() + 1);
      nameWidth = std::max(nameWidth, TextWidth(field.name));
    }
    const size_t placeLeft = kBandWidth + 4;
    const size_t nameLeft = placeLeft + placeWidth * 56 / 10;
    const size_t needed = nameLeft + nameWidth * 56 / 10 + 12;
    const size_t columns = std::clamp<size_t>(kInnerWidth / needed, 1, 3);
    const size_t columnWidth = kInnerWidth / columns;
    const size_t perColumn = (map_.fields.size() + columns - 1) / columns;
    DrawText(kMargin, y_ + 10, {"start", kBlack, 10, true}, "Fields");
    DrawText(kMargin + 48, y_ + 10, {"start", kMutedColor, 9},
             std::string("2-3 are bytes, 0.2 is byte 0, bit 2") +
                 (map_.hasValueBits ? "; in the map [7:0] are bits of the value" : ""));
    const size_t first = y_ + 18;
    y_ = first;
    for (size_t i = 0; i < map_.fields.size(); ++i) {
      const MapField& field = map_.fields[i];
      const GroupStyle& style = StyleOf(field.group);
      const size_t x = kMargin + i / perColumn * columnWidth;
      size_t top = columns == 1 ? y_ : first + i % perColumn * 14;
      DrawRect(x, top, kBandWidth, 12, style.band);
      DrawLetter(style, x, top + 10);
      DrawText(x + placeLeft, top + 10, kSmall, FieldPlaceText(field));
      for (const std::string& line : Wrapped(field.name, CharactersIn(columnWidth - nameLeft, 9), SIZE_MAX, "")) {
        DrawText(x + nameLeft, top + 10, kSmall, line);
        top += 14;
      }
      y_ = std::max(y_, top);
    }
  }

  const PayloadMap& map_;
  std::string svg_;
  size_t y_ = kMargin;  // where the next part begins
  // The lines around fields. They are collected while the rows are drawn and are drawn on top of them.
  std::string solidLines_;
  std::string dashedLines_;  // between the bytes of one field
};

}  // namespace

std::string MapSvg(const PayloadMap& map) { return Picture(map).Draw(); }

}  // namespace morvix::inspect
