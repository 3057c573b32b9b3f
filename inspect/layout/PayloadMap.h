// The payload of an entity as a bit map, drawn as text or as SVG.

#ifndef MORVIX_INSPECT_LAYOUT_PAYLOAD_MAP_H
#define MORVIX_INSPECT_LAYOUT_PAYLOAD_MAP_H

#include <array>
#include <string>
#include <vector>

#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// One attribute with its place.
struct MapField {
  std::string name;  // escaped, as is the next
  std::string displayName;
  Group group;
  DataType dataType;
  BitRange bits;         // of what is read; empty when it has no place there
  BitRange writtenBits;  // of a write, in the same way
};

// Neighbouring bits of one byte that lie in the same fields. Column 0 is bit 7.
struct MapPiece {
  size_t column;
  size_t columns;
  std::vector<size_t> fields;  // indexes; empty in a gap, several where fields overlap
};

// Consecutive bytes with the same pieces; more than one only where the same fields cover all bits of each byte.
struct MapBlock {
  size_t first;
  size_t last;
  std::vector<MapPiece> pieces;
};

// A row of the drawn map: one byte of a block, or all bytes of a long block between its first and last, left out.
struct MapRow {
  const MapBlock* block;
  size_t byteIndex;
  bool isLeftOut;

  bool IsFirst() const { return byteIndex == block->first; }
};

// A longest run of adjacent bits that lie in the same fields.
struct MapStretch {
  BitRange bits;
  std::vector<size_t> fields;  // as in a piece
};

struct PayloadMap {
  std::string title;
  std::string summary;
  std::vector<MapField> fields;  // in payload order; fields with a place on writing only come last
  std::vector<MapField> unplaced;
  std::vector<MapBlock> blocks;
  std::vector<MapStretch> overlaps;         // bits in several fields
  std::vector<MapStretch> writtenOverlaps;  // the same on writing, if a field lies elsewhere there
  std::vector<std::string> notes;
  bool hasGaps = false;              // bits that lie in no field
  bool hasValueBits = false;         // ValueBitsText is not always empty
  const char* gapText = "not used";  // what gaps are; "not read" where a write may use them
};

PayloadMap MapPayload(const EntityModel& entity);

// The rows of the blocks. Of a long block only the first and the last byte are drawn.
std::vector<MapRow> RowsOf(const PayloadMap& map);

// The text in place of the bytes that are left out: "40 bytes not used".
std::string LeftOutText(const PayloadMap& map, const MapBlock& block);

// "2-3", or "2-3 on writing" for a field that has a place there only.
std::string FieldPlaceText(const MapField& field);

// The bits of a field's value in a piece of a byte, "[5:3]", when it has more of them elsewhere; empty where fields
// overlap.
std::string ValueBitsText(const PayloadMap& map, size_t byteIndex, const MapPiece& piece);

std::string NamesText(const PayloadMap& map, const std::vector<size_t>& fields, const std::string& separator);

// The remarks below a map: overlaps, fields without a place, notes.
std::vector<std::string> Remarks(const PayloadMap& map);

// The fields in each column of a drawn row; null outside of the map.
using MapColumns = std::array<const std::vector<size_t>*, 8>;
MapColumns ColumnsOf(const MapRow& row);

// Whether a line runs between two neighbouring cells.
bool Differ(const std::vector<size_t>* one, const std::vector<size_t>* other);

// Whether a line runs on the left of the column; column 8 is the right end.
bool HasLineLeftOf(const MapColumns& columns, size_t column);

// The map in characters, with a list of the fields below it.
std::string MapText(const PayloadMap& map, bool color);

// The map as a self-contained SVG 1.1 picture.
std::string MapSvg(const PayloadMap& map);

}  // namespace morvix::inspect

#endif
