// dp4 show: the entities and attributes of a configuration as tables.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <utility>

#include "Commands.h"
#include "EntityView.h"
#include "Text.h"

namespace dp4 {

namespace {

const size_t kItemColumns = 48;
const char kTableKey[] =
    "FLAG is the attribute's bit in a write's flag bitmap. PLACE counts bytes, or byte.bit with bit 0 the lowest.\n";

// ---- The table ----

// A short text that reads back as the same number.
std::string ShortNumber(double number) {
  char text[32];
  for (int precision = 15; precision <= 17; ++precision) {
    static_cast<void>(std::snprintf(text, sizeof text, "%.*g", precision, number));
    if (std::strtod(text, nullptr) == number) break;
  }
  return text;
}

std::string ScalingText(const MorvixProtocolUIntSpec_4_0& scaling) {
  std::string text = "raw";
  if (scaling.ratio != 1) text += " * " + ShortNumber(scaling.ratio);
  if (scaling.addition < 0) {
    text += " - " + ShortNumber(-scaling.addition);
  } else if (scaling.addition != 0) {
    text += " + " + ShortNumber(scaling.addition);
  }
  return text;
}

std::string RangeText(const AttributeView& view) {
  if (view.bits.IsEmpty()) return "";
  // What the limits leave open, the width of the field may close.
  const uint64_t highest = view.bits.Length() < 64 ? (uint64_t{1} << view.bits.Length()) - 1 : UINT64_MAX;
  const auto min = static_cast<uint64_t>(view.attribute.uint_spec.min);
  const auto max = static_cast<uint64_t>(view.attribute.uint_spec.max);
  std::string low = UserText(view.attribute, min);
  std::string high = UserText(view.attribute, std::min(max, highest));
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
    const std::string item = std::to_string(i) + " " + ItemText(items[i]) + (i + 1 < items.size() ? "," : "");
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

std::string ValuesText(const AttributeView& view) {
  const MorvixProtocolAttribute_4_0& attribute = view.attribute;
  if (ProtocolDataTypeIsUInt(attribute.data_type)) return RangeText(view);
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) return ItemsText(attribute.enumList);
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
    return view.bits.IsEmpty() ? "" : Count(view.bits.EndByte() - view.bits.FirstByte(), "byte");
  }
  return "false, true";
}

TableRow AttributeRow(const AttributeView& view, bool color) {
  const MorvixProtocolAttribute_4_0& attribute = view.attribute;
  const bool isNumber = ProtocolDataTypeIsUInt(attribute.data_type);
  return {{NameText(attribute.name), ""},
          {NameText(attribute.display_name), ""},
          {GroupName(attribute.type), color ? GroupColor(attribute.type) : ""},
          {view.isWritten ? std::to_string(view.flagBit) : "", ""},
          {DataTypeName(attribute.data_type), ""},
          {PlaceText(view.bits), ""},
          {isNumber ? ScalingText(attribute.uint_spec) : "", ""},
          {ValuesText(view), ""}};
}

std::string EntityText(const EntityView& view, bool color) {
  std::string text = Colored(EntityTitle(view), color ? kBold : "") + ": " +
                     Count(view.attributes.size(), "attribute") + ", " + PayloadSummary(view) + "\n";
  if (!view.attributes.empty()) {
    std::vector<TableRow> rows = {
        HeadingRow({"NAME", "DISPLAY NAME", "GROUP", "FLAG", "TYPE", "PLACE", "SCALING", "VALUES"}, color)};
    for (const AttributeView& attribute : view.attributes) rows.push_back(AttributeRow(attribute, color));
    text += "\n" + AlignedTable(rows);
  }
  if (!view.notes.empty()) text += "\n";
  for (const std::string& note : view.notes) text += "Note: " + note + "\n";
  return text + "\n";
}

// ---- The command ----

// The chosen entity, or all of them.
std::vector<const Json::Value*> EntitiesToShow(const JsonText& configuration, const std::string& choice) {
  const Json::Value& root = configuration.root;
  if (!choice.empty() || !root.isObject() || !root["entities"].isArray() || root["entities"].size() < 2) {
    return {&ChooseEntity(configuration, choice)};
  }
  std::vector<const Json::Value*> entities;
  for (const Json::Value& entity : root["entities"]) entities.push_back(&entity);
  return entities;
}

}  // namespace

int Show(const ShowOptions& options, const CommonOptions& common, std::ostream& out) {
  const JsonText configuration = ReadJsonFile(options.configuration);
  std::optional<UsageError> unusable;
  for (const Json::Value* entity : EntitiesToShow(configuration, common.entity)) {
    try {
      out << EntityText(ViewEntity(configuration, *entity, common.log), common.color);
    } catch (const UsageError& error) {
      if (!unusable) unusable = error;  // the entities after it are shown all the same
    }
  }
  if (unusable) throw UsageError(*unusable);
  out << kTableKey;
  return kFine;
}

}  // namespace dp4
