// The payload of an entity as a map of bits, and the two forms in which it is drawn.

#ifndef MORVIX_DP4_LAYOUT_H
#define MORVIX_DP4_LAYOUT_H

#include <string>
#include <vector>

#include "Show.h"

namespace dp4 {

// One attribute with its place.
struct MapField {
  std::string name;  // escaped, as is the next
  std::string displayName;
  MorvixProtocolType_4_0 group;
  MorvixProtocolDataType_4_0 dataType;
  std::vector<size_t> bits;  // as FieldBits gives them
};

// Neighbouring bits of one byte that lie in the same fields. Column 0 is bit 7.
struct MapPiece {
  size_t column;
  size_t columns;
  std::vector<size_t> fields;  // indexes; none where nothing lies, several where fields overlap
};

// Consecutive bytes that look alike; more than one only where whole bytes lie in the same fields.
struct MapBlock {
  size_t first;
  size_t last;
  std::vector<MapPiece> pieces;
};

// Bits that lie in several fields.
struct MapOverlap {
  std::vector<size_t> bits;
  std::vector<size_t> fields;
};

struct PayloadMap {
  std::string title;
  std::string summary;
  std::vector<MapField> fields;  // in the order of their places
  std::vector<MapField> unplaced;
  std::vector<MapBlock> blocks;
  std::vector<MapOverlap> overlaps;
  std::vector<std::string> notes;
};

PayloadMap MapPayload(const EntityView& view);

std::string LayoutText(const PayloadMap& map, bool color);

// SVG 1.1 that needs nothing from outside.
std::string LayoutSvg(const PayloadMap& map);

}  // namespace dp4

#endif
