// The map of a payload for programs: JSON and comma-separated values.

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "inspect/layout/PayloadMap.h"
#include "inspect/text/Csv.h"

namespace morvix::inspect {

namespace {

using Tree = nlohmann::ordered_json;

Tree StretchTrees(const PayloadMap& map, const std::vector<MapStretch>& stretches) {
  Tree trees = Tree::array();
  for (const MapStretch& stretch : stretches) {
    if (stretch.bits.IsEmpty()) continue;
    Tree names = Tree::array();
    for (const size_t field : stretch.fields) names.push_back(map.fields[field].attribute->name);
    trees.push_back({{"firstBit", stretch.bits.begin}, {"bits", stretch.bits.Length()}, {"attributes", names}});
  }
  return trees;
}

}  // namespace

std::string MapJson(const PayloadMap& map) {
  const MorvixProtocolEntity_4_0& info = map.entity->Info();
  Tree tree = {{"name", info.name},
               {"displayName", info.display_name},
               {"id", info.id},
               {"payloadBytes", map.entity->Reading().payloadBytes},
               {"writeBytes", map.writtenBytes},
               {"groups", Tree::array()},
               {"stretches", StretchTrees(map, map.stretches)}};
  for (const BitRange& group : map.groups) {
    tree["groups"].push_back({{"firstByte", group.FirstByte()}, {"bytes", group.Length() / 8}});
  }
  if (!map.writtenStretches.empty()) tree["writeStretches"] = StretchTrees(map, map.writtenStretches);
  tree["notes"] = map.notes;
  return tree.dump(-1, ' ', false, Tree::error_handler_t::replace) + '\n';
}

std::string MapCsv(const PayloadMap& map) {
  std::string text = CsvRow({"firstBit", "bits", "place", "attribute"});
  for (const MapStretch& stretch : map.stretches) {
    if (stretch.bits.IsEmpty()) continue;
    std::vector<std::string> names;
    for (const size_t field : stretch.fields) names.push_back(map.fields[field].attribute->name);
    if (names.empty()) names.emplace_back();
    for (const std::string& name : names) {
      text += CsvRow(
          {std::to_string(stretch.bits.begin), std::to_string(stretch.bits.Length()), PlaceText(stretch.bits), name});
    }
  }
  return text;
}

}  // namespace morvix::inspect
