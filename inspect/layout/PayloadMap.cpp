#include "inspect/layout/PayloadMap.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "inspect/model/Summary.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

using Indexes = std::vector<size_t>;

MapField FieldOf(const EntityModel& entity, const Field& field) {
  const Attribute& attribute = *field.attribute;
  const Places places = PlacesOf(entity, field.element);
  const Field* written = entity.Written(field.element);
  return {&attribute,
          NameText(attribute.name),
          NameText(attribute.display_name),
          written == nullptr ? "" : std::to_string(written->flag),
          attribute.type,
          attribute.data_type,
          places.read,
          places.written};
}

// Splits the payload at every bit where a field begins or ends; `place` selects its place on reading or on writing.
std::vector<MapStretch> StretchesOf(const std::vector<MapField>& fields, BitRange MapField::*place, size_t bytes) {
  struct Cut {
    Indexes begins;
    Indexes ends;
  };
  const uint64_t end = uint64_t{8} * bytes;
  std::map<uint64_t, Cut> cuts = {{0, {}}, {end, {}}};
  for (size_t i = 0; i < fields.size(); ++i) {
    const BitRange& bits = fields[i].*place;
    if (bits.IsEmpty()) continue;
    cuts[bits.begin].begins.push_back(i);
    cuts[bits.end].ends.push_back(i);
  }
  std::vector<MapStretch> stretches;
  std::set<size_t> open;
  for (auto cut = cuts.begin(); cut->first != end; ++cut) {
    for (const size_t field : cut->second.ends) open.erase(field);
    open.insert(cut->second.begins.begin(), cut->second.begins.end());
    stretches.push_back({{cut->first, std::next(cut)->first}, {open.begin(), open.end()}});
  }
  return stretches;
}

// No block lies on both sides of the end of a write.
std::vector<MapBlock> BlocksOf(const std::vector<MapStretch>& stretches, size_t writtenBytes) {
  std::vector<MapBlock> blocks;
  for (const MapStretch& stretch : stretches) {
    for (uint64_t bit = stretch.bits.begin; bit < stretch.bits.end;) {
      const uint64_t writeEnd = uint64_t{8} * writtenBytes;
      const uint64_t end = bit < writeEnd ? std::min(stretch.bits.end, writeEnd) : stretch.bits.end;
      const auto byteIndex = static_cast<size_t>(bit / 8);
      const auto column = static_cast<size_t>(bit % 8);
      const auto bytes = static_cast<size_t>((end - bit) / 8);
      if (column == 0) blocks.push_back({byteIndex, byteIndex + std::max<size_t>(bytes, 1) - 1, {}});
      const auto columns = static_cast<size_t>(std::min<uint64_t>(8 - column, end - bit));
      blocks.back().pieces.push_back({column, columns, stretch.fields});
      bit += column == 0 && bytes > 0 ? 8 * bytes : columns;
    }
  }
  return blocks;
}

// The bytes of the bit groups, as what is read has them.
std::vector<BitRange> GroupsOf(const EntityModel& entity, size_t bytes) {
  std::set<std::pair<uint64_t, uint64_t>> groups;
  for (const Field& field : entity.Reading().fields) {
    const Position& position = field.attribute->position;
    if (!IsBitPacked(*field.attribute) || !IsInBits(*field.attribute) || position.byte_offset < 0) continue;
    const auto first = static_cast<uint64_t>(position.byte_offset);
    if (position.groupByteLength == 0 || first >= bytes) continue;
    groups.emplace(8 * first, 8 * std::min<uint64_t>(first + position.groupByteLength, bytes));
  }
  std::vector<BitRange> ranges;
  ranges.reserve(groups.size());
  for (const auto& [begin, end] : groups) ranges.push_back({begin, end});
  return ranges;
}

}  // namespace

PayloadMap MapPayload(const EntityModel& entity) {
  PayloadMap map;
  map.entity = &entity;
  map.title = EntityTitle(entity);
  map.summary = PayloadSummary(entity);
  map.notes = Notes(entity);
  size_t bytes = std::min(PayloadBytesOf(entity), MorvixProtocolMaxPayloadBytes_4_0);
  for (const Field* known : entity.Fields()) {
    const MapField field = FieldOf(entity, *known);
    const bool isPlaced = !field.bits.IsEmpty() || !field.writtenBits.IsEmpty();
    (isPlaced ? map.fields : map.unplaced).push_back(field);
    bytes = std::max(bytes, field.bits.EndByte());
    if (!field.writtenBits.IsEmpty() && field.writtenBits != field.bits) map.gapText = "not read";
  }
  std::stable_sort(map.fields.begin(), map.fields.end(), [](const MapField& left, const MapField& right) {
    const bool isLeftNowhere = left.bits.IsEmpty();
    return isLeftNowhere == right.bits.IsEmpty() ? left.bits.begin < right.bits.begin : !isLeftNowhere;
  });
  map.writtenBytes = entity.Writing().payloadBytes;
  map.groups = GroupsOf(entity, bytes);
  map.stretches = StretchesOf(map.fields, &MapField::bits, bytes);
  map.blocks = BlocksOf(map.stretches, map.writtenBytes);
  std::copy_if(map.stretches.begin(), map.stretches.end(), std::back_inserter(map.overlaps),
               [](const MapStretch& stretch) { return stretch.fields.size() > 1; });
  for (const MapBlock& block : map.blocks) {
    for (const MapPiece& piece : block.pieces) {
      map.hasGaps = map.hasGaps || piece.fields.empty();
      map.hasValueBits = map.hasValueBits || !ValueBitsText(map, block.first, piece).empty();
    }
  }
  const auto isMoved = [](const MapField& field) {
    return !field.writtenBits.IsEmpty() && field.bits != field.writtenBits;
  };
  if (std::none_of(map.fields.begin(), map.fields.end(), isMoved)) return map;
  const size_t writtenBytes = std::min(map.writtenBytes, MorvixProtocolMaxPayloadBytes_4_0);
  map.writtenStretches = StretchesOf(map.fields, &MapField::writtenBits, writtenBytes);
  for (const MapStretch& stretch : map.writtenStretches) {
    const bool hasMoved = std::any_of(stretch.fields.begin(), stretch.fields.end(),
                                      [&](size_t field) { return isMoved(map.fields[field]); });
    if (stretch.fields.size() > 1 && hasMoved) map.writtenOverlaps.push_back(stretch);
  }
  return map;
}

std::vector<MapRow> RowsOf(const PayloadMap& map) {
  constexpr size_t kShownBytes = 3;
  std::vector<MapRow> rows;
  for (const MapBlock& block : map.blocks) {
    const bool isCut = block.last - block.first >= kShownBytes;
    rows.push_back({&block, block.first, false});
    if (isCut) rows.push_back({&block, block.first + 1, true});
    for (size_t i = isCut ? block.last : block.first + 1; i <= block.last; ++i) rows.push_back({&block, i, false});
  }
  return rows;
}

std::string LeftOutText(const PayloadMap& map, const MapBlock& block) {
  const std::string text = std::to_string(block.last - block.first + 1) + " bytes";
  return block.pieces[0].fields.empty() ? text + " " + map.gapText : text;
}

std::string FieldPlaceText(const MapField& field) {
  return PlaceText(field.Shown()) + (field.bits.IsEmpty() ? " on writing" : "");
}

namespace {

std::string ValueBitsOf(const MapField& field, size_t byteIndex, const MapPiece& piece) {
  // Binaries are not numbers, and their bytes are in order anyway.
  if (field.dataType == MorvixProtocolDataTypeBinary_4_0 || field.bits.Length() == piece.columns) return "";
  const uint64_t high = field.bits.end - 1 - (8 * byteIndex + piece.column);
  const uint64_t low = high + 1 - piece.columns;
  return high == low ? fmt::format("[{}]", high) : fmt::format("[{}:{}]", high, low);
}

}  // namespace

std::string ValueBitsText(const PayloadMap& map, size_t byteIndex, const MapPiece& piece) {
  return piece.fields.size() == 1 ? ValueBitsOf(map.fields[piece.fields[0]], byteIndex, piece) : "";
}

std::string PieceNames(const PayloadMap& map, const MapRow& row, const MapPiece& piece) {
  if (piece.fields.size() == 1) return row.IsFirst() ? map.fields[piece.fields[0]].name : "";
  std::string names;
  for (const size_t i : piece.fields) {
    const MapField& field = map.fields[i];
    const std::string bits = ValueBitsOf(field, row.byteIndex, piece);
    if (!row.IsFirst() && bits.empty()) continue;
    names += (names.empty() ? "" : " + ") + field.name + (bits.empty() ? "" : " " + bits);
  }
  return names;
}

bool EndsWrite(const PayloadMap& map, const MapRow& row) {
  return !row.isLeftOut && row.byteIndex + 1 == map.writtenBytes;
}

std::string NamesText(const PayloadMap& map, const Indexes& fields, const std::string& separator) {
  std::string text;
  for (const size_t field : fields) text += (text.empty() ? "" : separator) + map.fields[field].name;
  return text;
}

std::vector<std::string> Remarks(const PayloadMap& map) {
  std::vector<std::string> remarks;
  const auto add = [&](const char* kind, const std::vector<MapStretch>& overlaps) {
    for (const MapStretch& overlap : overlaps) {
      const std::string names = NamesText(map, overlap.fields, " and ");
      remarks.push_back(fmt::format("{}: {} lies in {}", kind, PlaceText(overlap.bits), names));
    }
  };
  add("Overlap", map.overlaps);
  add("Overlap on writing", map.writtenOverlaps);
  for (const MapField& field : map.unplaced) {
    remarks.push_back(fmt::format("Nowhere: {} ({} {}) has no place in any packet", field.name, GroupName(field.group),
                                  DataTypeName(field.dataType)));
  }
  for (const std::string& note : map.notes) remarks.push_back("Note: " + note);
  return remarks;
}

MapColumns ColumnsOf(const MapRow& row) {
  MapColumns columns{};
  for (const MapPiece& piece : row.block->pieces) {
    std::fill_n(columns.begin() + static_cast<ptrdiff_t>(piece.column), piece.columns, &piece.fields);
  }
  return columns;
}

bool Differ(const Indexes* one, const Indexes* other) {
  return one == nullptr || other == nullptr ? one != other : *one != *other;
}

bool HasLineLeftOf(const MapColumns& columns, size_t column) {
  return Differ(column == 0 ? nullptr : columns[column - 1], column == 8 ? nullptr : columns[column]);
}

}  // namespace morvix::inspect
