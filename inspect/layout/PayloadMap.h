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
  const Attribute* attribute;
  std::string name;  // escaped, as are the next two
  std::string displayName;
  std::string flag;  // its bit in a write's flag bitmap; empty when it cannot be written
  Group group;
  DataType dataType;
  BitRange bits;         // of what is read; empty when it has no place there
  BitRange writtenBits;  // of a write, in the same way

  // The one of the two that is shown.
  const BitRange& Shown() const { return bits.IsEmpty() ? writtenBits : bits; }
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

// The entity outlives it.
struct PayloadMap {
  const EntityModel* entity;
  std::string title;
  std::string summary;
  std::vector<MapField> fields;  // in payload order; fields with a place on writing only come last
  std::vector<MapField> unplaced;
  std::vector<MapStretch> stretches;         // the whole payload
  std::vector<MapStretch> writtenStretches;  // that of a write, where a field lies elsewhere in it
  std::vector<MapBlock> blocks;
  std::vector<BitRange> groups;             // the bytes of each bit group, in their order
  size_t writtenBytes = 0;                  // of a write
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

// The names in a piece of a row; where fields overlap, each with the bits of its value.
std::string PieceNames(const PayloadMap& map, const MapRow& row, const MapPiece& piece);

// Whether a row is the last one of a write.
bool EndsWrite(const PayloadMap& map, const MapRow& row);

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

// The map in characters, with a list of the fields below it that is at most `width` columns wide; 0 is for any width.
std::string MapText(const PayloadMap& map, bool color, size_t width);

// The map as a self-contained SVG 1.1 picture, dark where the viewer prefers that.
std::string MapSvg(const PayloadMap& map);

// The map as one line of JSON:
//
//   {"name", "displayName", "id", "payloadBytes", "writeBytes", "groups": [{"firstByte", "bytes"}],
//    "stretches": [{"firstBit", "bits", "attributes": [name]}], "writeStretches": [...], "notes": [text]}
//
// A stretch is a run of bits with the same attributes: none in a gap, several where fields overlap. "writeStretches" is
// there when an attribute lies elsewhere in a write.
std::string MapJson(const PayloadMap& map);

// The stretches as comma-separated values: a row for each attribute in each stretch, one without a name for a gap.
std::string MapCsv(const PayloadMap& map);

}  // namespace morvix::inspect

#endif
