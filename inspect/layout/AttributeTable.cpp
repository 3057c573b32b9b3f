#include "inspect/layout/AttributeTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

#include "inspect/model/Summary.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

const char kAttributeTableKey[] =
    "FLAG is the attribute's bit in a write's flag bitmap. PLACE counts bytes, or byte.bit with bit 0 the lowest.\n";

namespace {

constexpr size_t kItemColumns = 48;

std::string ScalingText(const Scaling& scaling) {
  std::string text = "raw";
  if (scaling.ratio != 1) text += " * " + ShortestText(scaling.ratio);
  if (scaling.addition < 0) return text + " - " + ShortestText(-scaling.addition);
  return scaling.addition == 0 ? text : text + " + " + ShortestText(scaling.addition);
}

// The range of user values, which both the limits and the width of the field restrict.
std::string RangeText(const Attribute& number, const BitRange& bits) {
  if (bits.IsEmpty()) return "";
  std::string low = MinText(number);
  std::string high = UserText(number, std::min(static_cast<uint64_t>(number.uint_spec.max), bits.MaxValue()));
  if (low.empty() || high.empty()) return "no value is accepted";
  if (std::strtod(low.c_str(), nullptr) > std::strtod(high.c_str(), nullptr)) std::swap(low, high);
  return low + " to " + high;
}

std::string ItemText(const std::string& item) {
  std::string text = Escaped(item);
  const bool isPlain =
      !text.empty() && text.find_first_of(",\"") == std::string::npos && text.front() != ' ' && text.back() != ' ';
  if (isPlain) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? std::string("\\\"") : std::string(1, c);
  return quoted + "\"";
}

std::string ItemsText(const std::vector<std::string>& items) {
  std::string text;
  size_t used = 0;
  for (size_t i = 0; i < items.size(); ++i) {
    const std::string item = fmt::format("{} {}{}", i, ItemText(items[i]), i + 1 < items.size() ? "," : "");
    const size_t width = TextWidth(item);
    if (used != 0 && used + 1 + width > kItemColumns) {
      text += "\n";
      used = 0;
    }
    text += (used == 0 ? "" : " ") + item;
    used += (used == 0 ? 0 : 1) + width;
  }
  return text;
}

std::string ValuesText(const Attribute& attribute, const BitRange& bits) {
  if (IsNumber(attribute)) return RangeText(attribute, bits);
  if (IsEnum(attribute)) return ItemsText(attribute.enumList);
  if (IsBinary(attribute)) return bits.IsEmpty() ? "" : Count(bits.EndByte() - bits.FirstByte(), "byte");
  return "false, true";
}

TableRow AttributeRow(const EntityModel& entity, const Field& field) {
  const Attribute& attribute = *field.attribute;
  const Field* written = entity.Written(field.element);
  const Places places = PlacesOf(entity, field.element);
  const BitRange bits = entity.Read(field.element) != nullptr ? places.read : places.written;
  return {{NameText(attribute.name)},
          {NameText(attribute.display_name)},
          {GroupName(attribute.type), GroupColor(attribute.type)},
          {written != nullptr ? std::to_string(written->flag) : ""},
          {DataTypeName(attribute.data_type)},
          {PlaceText(bits)},
          {IsNumber(attribute) ? ScalingText(attribute.uint_spec) : ""},
          {ValuesText(attribute, bits)}};
}

}  // namespace

std::string AttributeTable(const EntityModel& entity, bool color) {
  const std::vector<const Field*> fields = entity.Fields();
  std::string text = fmt::format("{}: {}, {}\n", Colored(EntityTitle(entity), kBold, color),
                                 Count(fields.size(), "attribute"), PayloadSummary(entity));
  if (!fields.empty()) {
    std::vector<TableRow> rows = {
        HeadingRow({"NAME", "DISPLAY NAME", "GROUP", "FLAG", "TYPE", "PLACE", "SCALING", "VALUES"})};
    for (const Field* field : fields) rows.push_back(AttributeRow(entity, *field));
    text += "\n" + AlignedTable(rows, color);
  }
  const std::vector<std::string> notes = Notes(entity);
  if (!notes.empty()) text += "\n";
  for (const std::string& note : notes) text += "Note: " + note + "\n";
  return text + "\n";
}

}  // namespace morvix::inspect
