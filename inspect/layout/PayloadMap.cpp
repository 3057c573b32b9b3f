#include "inspect/layout/PayloadMap.h"

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
  return {NameText(attribute.name),
          NameText(attribute.display_name),
          attribute.type,
          attribute.data_type,
          places.read,
          places.written};
}

// The payload cut wherever a field begins or ends; `place` is the one of the two that counts.
std::vector<MapStretch> StretchesOf(const std::vector<MapField>& fields, BitRange MapField::*place, size_t bytes) {
  std::set<uint64_t> cuts = {0};
  std::multimap<uint64_t, size_t> begins;
  std::multimap<uint64_t, size_t> ends;
  for (size_t i = 0; i < fields.size(); ++i) {
    const BitRange& bits = fields[i].*place;
    if (bits.IsEmpty()) continue;
    cuts.insert({bits.begin, bits.end});
    begins.emplace(bits.begin, i);
    ends.emplace(bits.end, i);
  }
  const uint64_t end = uint64_t{8} * bytes;
  cuts.insert(end);
  std::vector<MapStretch> stretches;
  std::set<size_t> open;
  for (auto cut = cuts.begin(); *cut != end; ++cut) {
    const auto [firstEnd, lastEnd] = ends.equal_range(*cut);
    for (auto ended = firstEnd; ended != lastEnd; ++ended) open.erase(ended->second);
    const auto [firstBegin, lastBegin] = begins.equal_range(*cut);
    for (auto begun = firstBegin; begun != lastBegin; ++begun) open.insert(begun->second);
    stretches.push_back({{*cut, *std::next(cut)}, {open.begin(), open.end()}});
  }
  return stretches;
}

std::vector<MapBlock> BlocksOf(const std::vector<MapStretch>& stretches) {
  std::vector<MapBlock> blocks;
  for (const MapStretch& stretch : stretches) {
    const uint64_t end = stretch.bits.end;
    for (uint64_t bit = stretch.bits.begin; bit < end;) {
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

}  // namespace

PayloadMap MapPayload(const EntityModel& entity) {
  PayloadMap map;
  map.title = EntityTitle(entity);
  map.summary = PayloadSummary(entity);
  map.notes = Notes(entity);
  size_t bytes = std::min(PayloadBytesOf(entity), MorvixProtocolMaxPayloadBytes_4_0);
  for (const Field* known : entity.Fields()) {
    const MapField field = FieldOf(entity, *known);
    if (field.bits.IsEmpty() && field.writtenBits.IsEmpty()) {
      map.unplaced.push_back(field);
      continue;
    }
    map.fields.push_back(field);
    bytes = std::max(bytes, field.bits.EndByte());
  }
  std::stable_sort(map.fields.begin(), map.fields.end(), [](const MapField& left, const MapField& right) {
    const bool isLeftNowhere = left.bits.IsEmpty();
    return isLeftNowhere == right.bits.IsEmpty() ? left.bits.begin < right.bits.begin : !isLeftNowhere;
  });
  const std::vector<MapStretch> stretches = StretchesOf(map.fields, &MapField::bits, bytes);
  map.blocks = BlocksOf(stretches);
  std::copy_if(stretches.begin(), stretches.end(), std::back_inserter(map.overlaps),
               [](const MapStretch& stretch) { return stretch.fields.size() > 1; });
  for (MapStretch& stretch : StretchesOf(map.fields, &MapField::writtenBits, bytes)) {
    const bool isMoved = std::any_of(stretch.fields.begin(), stretch.fields.end(), [&map](size_t field) {
      return map.fields[field].bits != map.fields[field].writtenBits;
    });
    if (stretch.fields.size() > 1 && isMoved) map.writtenOverlaps.push_back(std::move(stretch));
  }
  return map;
}

bool HasGaps(const PayloadMap& map) {
  return std::any_of(map.blocks.begin(), map.blocks.end(), [](const MapBlock& block) {
    return std::any_of(block.pieces.begin(), block.pieces.end(),
                       [](const MapPiece& piece) { return piece.fields.empty(); });
  });
}

const char* GapText(const PayloadMap& map) {
  const bool isWrittenElsewhere = std::any_of(map.fields.begin(), map.fields.end(), [](const MapField& field) {
    return !field.writtenBits.IsEmpty() && field.writtenBits != field.bits;
  });
  return isWrittenElsewhere ? "not read" : "not used";
}

std::string FieldPlaceText(const MapField& field) {
  return field.bits.IsEmpty() ? PlaceText(field.writtenBits) + " on writing" : PlaceText(field.bits);
}

std::string ValueBitsText(const MapField& field, size_t byteIndex, const MapPiece& piece) {
  // Binaries are no numbers, and their bytes are in order anyway.
  if (field.dataType == MorvixProtocolDataTypeBinary_4_0 || field.bits.Length() == piece.columns) return "";
  const uint64_t high = field.bits.end - 1 - (8 * byteIndex + piece.column);
  const uint64_t low = high + 1 - piece.columns;
  return "[" + std::to_string(high) + (high == low ? "" : ":" + std::to_string(low)) + "]";
}

bool HasValueBits(const PayloadMap& map) {
  return std::any_of(map.blocks.begin(), map.blocks.end(), [&map](const MapBlock& block) {
    return std::any_of(block.pieces.begin(), block.pieces.end(), [&](const MapPiece& piece) {
      return piece.fields.size() == 1 && !ValueBitsText(map.fields[piece.fields[0]], block.first, piece).empty();
    });
  });
}

std::string NamesText(const PayloadMap& map, const Indexes& fields, const std::string& separator) {
  std::string text;
  for (const size_t field : fields) text += (text.empty() ? "" : separator) + map.fields[field].name;
  return text;
}

std::vector<std::string> Remarks(const PayloadMap& map) {
  std::vector<std::string> remarks;
  for (const MapStretch& overlap : map.overlaps) {
    remarks.push_back("Overlap: " + PlaceText(overlap.bits) + " lies in " + NamesText(map, overlap.fields, " and "));
  }
  for (const MapStretch& overlap : map.writtenOverlaps) {
    remarks.push_back("Overlap on writing: " + PlaceText(overlap.bits) + " lies in " +
                      NamesText(map, overlap.fields, " and "));
  }
  for (const MapField& field : map.unplaced) {
    remarks.push_back("Nowhere: " + field.name + " (" + GroupName(field.group) + " " + DataTypeName(field.dataType) +
                      ") has no place in any packet");
  }
  for (const std::string& note : map.notes) remarks.push_back("Note: " + note);
  return remarks;
}

std::string LeftOutText(const PayloadMap& map, const MapBlock& block) {
  const bool isGap = block.pieces[0].fields.empty();
  return std::to_string(block.last - block.first + 1) + " bytes" + (isGap ? std::string(" ") + GapText(map) : "");
}

MapColumns ColumnsOf(const std::vector<MapPiece>& pieces) {
  MapColumns columns{};
  for (const MapPiece& piece : pieces) {
    for (size_t i = 0; i < piece.columns; ++i) columns[piece.column + i] = &piece.fields;
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
