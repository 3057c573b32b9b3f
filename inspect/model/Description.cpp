#include "inspect/model/Description.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "inspect/text/Csv.h"

namespace morvix::inspect {

namespace {

using Tree = nlohmann::ordered_json;

// On one line. What is not UTF-8 becomes a replacement character.
std::string Compact(const Tree& tree) { return tree.dump(-1, ' ', false, Tree::error_handler_t::replace); }

Tree PlaceOf(const Attribute& attribute, size_t payloadBytes) {
  size_t firstBit = 0;
  size_t bitCount = 0;
  if (!ProtocolLocateAttribute_4_0(attribute, payloadBytes, firstBit, bitCount)) return nullptr;
  return {{"firstBit", firstBit}, {"bits", bitCount}};
}

const std::string& GroupKeyword(Group group) {
  const std::vector<std::string>& keywords = KeywordsOf("type");
  size_t index = 0;
  while (index + 1 < keywords.size() && group >> (index + 1) != 0) ++index;  // groups are single bits
  return keywords[index];
}

// Of an attribute that is read or written.
Tree AttributeTree(const EntityModel& entity, const Field& field) {
  const Attribute& attribute = *field.attribute;
  const Field* read = entity.Read(field.element);
  Tree tree = {
      {"name", attribute.name}, {"displayName", attribute.display_name}, {"description", attribute.desc},
      {"id", attribute.id},     {"group", GroupKeyword(attribute.type)}, {"type", DataTypeName(attribute.data_type)}};
  const Field* written = entity.Written(field.element);
  if (written != nullptr) tree["flag"] = written->flag;
  const Tree place = read == nullptr ? Tree() : PlaceOf(*read->attribute, entity.Reading().payloadBytes);
  if (!place.is_null()) tree["place"] = place;
  if (written != nullptr) {
    const Tree writePlace = PlaceOf(*written->attribute, entity.Writing().payloadBytes);
    if (!writePlace.is_null() && writePlace != place) tree["writePlace"] = writePlace;
  }
  if (IsNumber(attribute)) {
    const Scaling& scaling = attribute.uint_spec;
    tree["min"] = scaling.min;
    tree["max"] = scaling.max;
    if (std::isfinite(scaling.ratio)) tree["ratio"] = scaling.ratio;
    if (std::isfinite(scaling.addition)) tree["addition"] = scaling.addition;
  }
  if (IsEnum(attribute)) tree["items"] = attribute.enumList;
  return tree;
}

Tree AttributeTrees(const EntityModel& entity) {
  Tree trees = Tree::array();
  for (const Field* field : entity.Fields()) trees.push_back(AttributeTree(entity, *field));
  return trees;
}

Tree DroppedTrees(const EntityModel& entity) {
  Tree dropped = Tree::array();
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    const Element& element = entity.Elements()[i];
    const std::string& member = element.droppedOnReading.empty() ? element.droppedOnWriting : element.droppedOnReading;
    if (member.empty()) continue;
    Tree tree = {{"index", i}};
    std::string name;
    if (ProtocolGetAttrString_4_0(*element.json, "name", name)) tree["name"] = name;
    tree["member"] = member;
    dropped.push_back(tree);
  }
  return dropped;
}

// The columns after the entity's name, each with the way to its value.
struct Column {
  const char* heading;
  Tree::json_pointer pointer;
};

const std::vector<Column>& Columns() {
  static const std::vector<Column> columns = [] {
    std::vector<Column> all;
    for (const char* name : {"name", "displayName", "description", "id", "group", "type", "flag"}) {
      all.push_back({name, Tree::json_pointer() / name});
    }
    for (const char* name : {"firstBit", "bits"}) all.push_back({name, Tree::json_pointer("/place") / name});
    all.push_back({"writeFirstBit", Tree::json_pointer("/writePlace/firstBit")});
    all.push_back({"writeBits", Tree::json_pointer("/writePlace/bits")});
    for (const char* name : {"min", "max", "ratio", "addition", "items"}) {
      all.push_back({name, Tree::json_pointer() / name});
    }
    return all;
  }();
  return columns;
}

}  // namespace

std::string DescriptionJson(const EntityModel& entity) {
  const MorvixProtocolEntity_4_0& info = entity.Info();
  const Tree tree = {{"name", info.name},
                     {"displayName", info.display_name},
                     {"id", info.id},
                     {"payloadBytes", entity.Reading().payloadBytes},
                     {"writeBytes", entity.Writing().payloadBytes},
                     {"attributes", AttributeTrees(entity)},
                     {"dropped", DroppedTrees(entity)}};
  return Compact(tree) + '\n';
}

std::string DescriptionCsvHeader() {
  std::vector<std::string> headings = {"entity"};
  for (const Column& column : Columns()) headings.emplace_back(column.heading);
  return CsvRow(headings);
}

std::string DescriptionCsv(const EntityModel& entity) {
  std::string rows;
  for (const Tree& attribute : AttributeTrees(entity)) {
    std::vector<std::string> cells = {entity.Info().name};
    for (const Column& column : Columns()) {
      const bool isThere = attribute.contains(column.pointer);
      const Tree value = isThere ? attribute[column.pointer] : Tree("");
      cells.push_back(value.is_string() ? value.get<std::string>() : Compact(value));
    }
    rows += CsvRow(cells);
  }
  return rows;
}

}  // namespace morvix::inspect
