#include "LayoutMap.h"

#include <algorithm>
#include <utility>

#include "Text.h"

namespace dp4 {

namespace {

using Indexes = std::vector<size_t>;

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

bool HasGaps(const PayloadMap& map) {
  return std::any_of(map.blocks.begin(), map.blocks.end(), [](const MapBlock& block) {
    return std::any_of(block.pieces.begin(), block.pieces.end(),
                       [](const MapPiece& piece) { return piece.fields.empty(); });
  });
}

std::string ValueBitsText(const MapField& field, size_t byteIndex, const MapPiece& piece) {
  // Binaries are no numbers, and their bytes are in order anyway.
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

std::string LeftOutText(const MapBlock& block) {
  return std::to_string(block.last - block.first + 1) + " bytes" + (block.pieces[0].fields.empty() ? " not used" : "");
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

}  // namespace dp4
