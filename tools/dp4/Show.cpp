#include "Show.h"

#include <json/value.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <utility>

#include "Commands.h"

namespace dp4 {

namespace {

const char kBold[] = "1";
const size_t kItemColumns = 48;
const char kTableKey[] =
    "FLAG is the attribute's bit in a write's flag bitmap. PLACE counts bytes, or byte.bit with bit 0 the lowest.\n";

// ---- Text ----

struct CodeRange {
  uint32_t first;
  uint32_t last;
};

template <size_t size>
bool IsIn(const CodeRange (&ranges)[size], uint32_t code) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [code](const CodeRange& range) { return range.first <= code && code <= range.last; });
}

// Controls, invisible characters, and those that turn the direction of writing.
const CodeRange kEscaped[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},     {0xad, 0xad},     {0x61c, 0x61c},   {0x180e, 0x180e},   {0x200b, 0x200f},
    {0x2028, 0x202e}, {0x2060, 0x206f}, {0xfeff, 0xfeff}, {0xfff0, 0xfffb}, {0xe0000, 0xe0fff},
};
const CodeRange kZeroWidth[] = {
    {0x300, 0x36f}, {0x1ab0, 0x1aff}, {0x1dc0, 0x1dff}, {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f},
};
const CodeRange kDoubleWidth[] = {
    {0x1100, 0x115f}, {0x2e80, 0x303e}, {0x3041, 0x4dbf}, {0x4e00, 0xa4cf},   {0xac00, 0xd7a3},   {0xf900, 0xfaff},
    {0xfe30, 0xfe6f}, {0xff01, 0xff60}, {0xffe0, 0xffe6}, {0x1f300, 0x1f64f}, {0x1f680, 0x1f9ff}, {0x20000, 0x3fffd},
};

// The length in bytes of the character at `text[at]`, with its code; 0 when there is no valid one.
size_t ReadCharacter(const std::string& text, size_t at, uint32_t& code) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const size_t length = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
  if (length == 0 || at + length > text.size()) return 0;
  code = length == 1 ? lead : lead & (0x7fU >> length);
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xc0) != 0x80) return 0;
    code = code << 6 | (next & 0x3fU);
  }
  const bool isShortest = length < 3 || code >= (length == 3 ? 0x800U : 0x10000U);
  const bool isCharacter = code <= 0x10ffff && (code < 0xd800 || code > 0xdfff) && (code & 0xfffe) != 0xfffe;
  return isShortest && isCharacter ? length : 0;
}

std::string Hexadecimal(const char* format, uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, format, static_cast<unsigned>(number));
  return text;
}

std::string EscapeOf(uint32_t code) {
  if (code == '\n') return "\\n";
  if (code == '\r') return "\\r";
  if (code == '\t') return "\\t";
  return Hexadecimal(code < 0x80 ? "\\x%02x" : code < 0x10000 ? "\\u%04x" : "\\U%08x", code);
}

// A character with the zero-width ones that follow it.
struct Glyph {
  std::string bytes;
  size_t width;
};

std::vector<Glyph> Glyphs(const std::string& text) {
  std::vector<Glyph> glyphs;
  for (size_t at = 0, length = 0; at < text.size(); at += length) {
    uint32_t code = 0;
    length = std::max<size_t>(ReadCharacter(text, at, code), 1);
    const std::string bytes = text.substr(at, length);
    if (!glyphs.empty() && IsIn(kZeroWidth, code)) {
      glyphs.back().bytes += bytes;
    } else {
      glyphs.push_back({bytes, size_t{1} + IsIn(kDoubleWidth, code)});
    }
  }
  return glyphs;
}

bool IsSeparator(const Glyph& glyph) { return glyph.bytes.find_first_of(" _-.:/") == 0; }

// Where the line that begins at `start` ends: behind or before a blank if there is one in its second half, else a
// separator.
size_t LineEnd(const std::vector<Glyph>& glyphs, size_t start, size_t width, bool atSeparators) {
  size_t end = start;
  for (size_t used = 0; end < glyphs.size() && used + glyphs[end].width <= width; ++end) used += glyphs[end].width;
  end = std::max(end, start + 1);  // a wide character in a narrow line
  if (end == glyphs.size() || !atSeparators) return end;
  size_t separator = 0;
  for (size_t cut = end; cut > start + 1 && (separator == 0 || 2 * (cut - start) > end - start); --cut) {
    if (glyphs[cut - 1].bytes == " " || glyphs[cut].bytes == " ") return cut;
    if (separator == 0 && (IsSeparator(glyphs[cut - 1]) || IsSeparator(glyphs[cut]))) separator = cut;
  }
  return separator == 0 ? end : separator;
}

std::vector<std::string> Lines(const std::vector<Glyph>& glyphs, size_t width, bool atSeparators) {
  std::vector<std::string> lines;
  for (size_t start = 0, end = 0; start < glyphs.size(); start = end) {
    end = LineEnd(glyphs, start, width, atSeparators);
    std::string line;
    for (size_t i = start; i < end; ++i) line += glyphs[i].bytes;
    const size_t first = lines.empty() ? 0 : std::min(line.find_first_not_of(' '), line.size());
    const size_t last = end == glyphs.size() ? line.size() : line.find_last_not_of(' ') + 1;
    if (first < last) lines.push_back(line.substr(first, last - first));
  }
  return lines;
}

std::string Count(size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// ---- An entity as decoding and encoding see it ----

// The entity with the index of each attribute as its id, which the parser passes on and otherwise has no use for: so
// its records can be told to belong to an attribute even where names repeat.
Json::Value WithIndexesAsIds(Json::Value entity) {
  if (!entity.isObject() || !entity["attrs"].isArray()) return entity;
  Json::Value& attributes = entity["attrs"];
  for (Json::ArrayIndex i = 0; i < attributes.size(); ++i) {
    int32_t id = 0;
    if (ProtocolGetAttrInteger_4_0(attributes[i], "id", id)) attributes[i]["id"] = static_cast<int32_t>(i);
  }
  return entity;
}

// The members at fault in the attributes that the parser drops, in the order of those.
std::vector<std::string> DroppedFor(const Json::Value& entity, int matchTypes, std::ostream* log) {
  std::vector<std::string> members;
  LogGatherer gatherer(log);
  try {
    ParsedEntity parsed;
    if (!ProtocolParseEntity_4_0(entity, matchTypes, parsed.attributes, parsed.info)) return members;
  } catch (const Json::LogicError&) {
    return members;
  }
  for (const LoggedLine& line : gatherer.Take()) {
    const size_t begin = line.text.find('\'');
    const size_t end = line.text.find('\'', begin + 1);
    if (line.level == 1 && end != std::string::npos) members.push_back(line.text.substr(begin, end + 1 - begin));
  }
  return members;
}

using AttributesByIndex = std::map<size_t, MorvixProtocolAttribute_4_0>;

AttributesByIndex ByIndex(const std::vector<MorvixProtocolAttribute_4_0>& attributes) {
  AttributesByIndex byIndex;
  for (const MorvixProtocolAttribute_4_0& attribute : attributes) {
    byIndex.emplace(static_cast<size_t>(attribute.id), attribute);
  }
  return byIndex;
}

std::vector<size_t> PlaceIn(size_t payloadBytes, const MorvixProtocolAttribute_4_0& attribute) {
  return FieldBits(attribute.position, attribute.data_type, payloadBytes);
}

// attrs[3] (mode)
std::string AttributeText(const Json::Value& attributes, size_t index) {
  std::string name;
  const bool isNamed = ProtocolGetAttrString_4_0(attributes[static_cast<Json::ArrayIndex>(index)], "name", name);
  return "attrs[" + std::to_string(index) + "]" + (isNamed ? " (" + Escaped(name) + ")" : "");
}

void AddAttributes(const AttributesByIndex& read, const AttributesByIndex& written, EntityView& view) {
  AttributesByIndex all = read;
  all.insert(written.begin(), written.end());
  for (const auto& [index, attribute] : all) {
    AttributeView attributeView;
    attributeView.attribute = attribute;
    attributeView.bits = PlaceIn(kMaxPayloadBytes, attribute);
    const auto inWrite = written.find(index);
    attributeView.isWritten = inWrite != written.end();
    attributeView.flagBit = static_cast<size_t>(std::distance(written.begin(), inWrite));
    view.attributes.push_back(std::move(attributeView));
  }
}

// What sets decoding and encoding of one attribute apart; empty for nothing.
std::string DifferenceText(const MorvixProtocolAttribute_4_0* read, const MorvixProtocolAttribute_4_0* written,
                           size_t writtenBytes) {
  if (read == nullptr) return " can be written but not read: decoding drops it";
  if (written == nullptr) {
    const bool isWritable = read->type == MorvixProtocolTypeStatusWritable_4_0;
    return isWritable ? " can be read but not written: encoding drops it" : "";
  }
  const std::vector<size_t> readAt = PlaceIn(kMaxPayloadBytes, *read);
  const std::vector<size_t> writtenAt = PlaceIn(std::min(writtenBytes, kMaxPayloadBytes), *written);
  if (readAt == writtenAt) return "";
  if (writtenAt.empty()) return " is read at " + PlaceText(readAt) + " but has no place in a write";
  if (readAt.empty()) return " is written at " + PlaceText(writtenAt) + " but has no place in what is read";
  return " is read at " + PlaceText(readAt) + " but written at " + PlaceText(writtenAt);
}

void AddNotes(const Json::Value& attributes, const AttributesByIndex& read, const AttributesByIndex& written,
              const std::vector<std::string>& membersAtFault, EntityView& view) {
  size_t dropped = 0;
  for (Json::ArrayIndex i = 0; i < attributes.size(); ++i) {
    const auto inRead = read.find(i);
    const auto inWritten = written.find(i);
    std::string note;
    std::string reason;
    if (inRead == read.end() && dropped < membersAtFault.size()) reason = ", for its " + membersAtFault[dropped++];
    if (inRead == read.end() && inWritten == written.end()) {
      note = " is dropped" + reason;
    } else {
      note = DifferenceText(inRead == read.end() ? nullptr : &inRead->second,
                            inWritten == written.end() ? nullptr : &inWritten->second, view.writtenBytes);
      if (!note.empty()) note += reason;
    }
    if (!note.empty()) view.notes.push_back(AttributeText(attributes, i) + note);
  }
  if (std::max(view.payloadBytes, view.writtenBytes) > kMaxPayloadBytes) {
    view.notes.push_back("a packet carries at most " + std::to_string(kMaxPayloadBytes) + " bytes of payload");
  }
}

// ---- The table ----

// A short text that reads back as the same number.
std::string ShortNumber(double number) {
  char text[32];
  for (int precision = 15; precision <= 17; ++precision) {
    std::snprintf(text, sizeof text, "%.*g", precision, number);
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

// What a number's raw value is decoded to; empty when it is refused.
std::string DecodedText(const AttributeView& view, uint64_t raw) {
  MorvixProtocolAttribute_4_0 number = view.attribute;
  number.name = "number";
  number.type = MorvixProtocolTypeStatusReadonly_4_0;
  std::vector<byte> payload(*std::max_element(view.bits.begin(), view.bits.end()) / 8 + 1);
  for (size_t k = 0; k < view.bits.size(); ++k) {
    if ((raw >> k & 1) != 0) payload[view.bits[k] / 8] |= static_cast<byte>(0x80 >> view.bits[k] % 8);
  }
  MorvixProtocolPackage_4_0 package;
  package.value = payload.data();
  package.sizeValue = payload.size();
  Json::Value decoded(Json::objectValue);
  const LogGatherer silent;
  ProtocolDecodeAttributes_4_0(MorvixProtocolEntity_4_0(), {number}, package, decoded);
  return decoded[""].isMember("number") ? decoded[""]["number"]["value"].asString() : "";
}

std::string RangeText(const AttributeView& view) {
  if (view.bits.empty()) return "";
  // What the limits leave open, the width of the field may close.
  const uint64_t highest = view.bits.size() < 64 ? (uint64_t{1} << view.bits.size()) - 1 : UINT64_MAX;
  const auto min = static_cast<uint64_t>(view.attribute.uint_spec.min);
  const auto max = static_cast<uint64_t>(view.attribute.uint_spec.max);
  std::string low = DecodedText(view, min);
  std::string high = DecodedText(view, std::min(max, highest));
  if (low.empty() || high.empty()) return "no value is accepted";
  if (std::strtod(low.c_str(), nullptr) > std::strtod(high.c_str(), nullptr)) std::swap(low, high);
  return low + " to " + high;
}

std::string ItemText(const std::string& item) {
  const std::string text = Escaped(item);
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
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) return Count(view.bits.size() / 8, "byte");
  return "false, true";
}

std::vector<TableCell> AttributeRow(const AttributeView& view, bool color) {
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

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (size_t at = 0; at < text.size();) {
    uint32_t code = 0;
    const size_t length = ReadCharacter(text, at, code);
    if (length == 0) {
      escaped += Hexadecimal("\\x%02x", static_cast<unsigned char>(text[at]));
    } else if (code == '\\') {
      escaped += "\\\\";
    } else {
      escaped += IsIn(kEscaped, code) ? EscapeOf(code) : text.substr(at, length);
    }
    at += std::max<size_t>(length, 1);
  }
  return escaped;
}

std::string NameText(const std::string& name) { return name.empty() ? "\"\"" : Escaped(name); }

size_t TextWidth(const std::string& text) {
  size_t width = 0;
  for (const Glyph& glyph : Glyphs(text)) width += glyph.width;
  return width;
}

std::vector<std::string> Wrapped(const std::string& text, size_t width, size_t maxLines, const char* ellipsis) {
  const std::vector<Glyph> glyphs = Glyphs(text);
  std::vector<std::string> lines = Lines(glyphs, width, true);
  if (lines.size() <= maxLines) return lines;
  lines = Lines(glyphs, width, false);
  if (lines.size() <= maxLines) return lines;
  lines.resize(maxLines);
  const std::vector<Glyph> last = Glyphs(lines.back());
  lines.back().clear();
  for (size_t i = 0, used = 0; i < last.size() && used + last[i].width < width; ++i) {
    used += last[i].width;
    lines.back() += last[i].bytes;
  }
  lines.back() += ellipsis;
  return lines;
}

const char* GroupColor(MorvixProtocolType_4_0 group) {
  switch (group) {
    case MorvixProtocolTypeStatusWritable_4_0:
      return "32";
    case MorvixProtocolTypeStatusReadonly_4_0:
      return "36";
    case MorvixProtocolTypeAlert_4_0:
      return "33";
    default:
      return "31";
  }
}

std::string Colored(const std::string& text, const std::string& color) {
  return color.empty() || text.empty() ? text : "\x1b[" + color + "m" + text + "\x1b[0m";
}

std::string AlignedTable(const std::vector<std::vector<TableCell>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i + 1 < row.size(); ++i) widths[i] = std::max(widths[i], TextWidth(row[i].text));
  }
  std::string table;
  for (const auto& row : rows) {
    std::string line;
    std::string blank;
    for (size_t i = 0; i + 1 < row.size(); ++i) {
      const std::string padding(widths[i] + 2 - TextWidth(row[i].text), ' ');
      line += Colored(row[i].text, row[i].color) + padding;
      blank += std::string(widths[i] + 2, ' ');
    }
    const std::string& last = row.back().text;
    for (size_t begin = 0; begin <= last.size();) {
      const size_t end = std::min(last.find('\n', begin), last.size());
      line += Colored(last.substr(begin, end - begin), row.back().color);
      line.erase(line.find_last_not_of(' ') + 1);
      table += line + "\n";
      line = blank;
      begin = end + 1;
    }
  }
  return table;
}

std::string PlaceText(std::vector<size_t> bits) {
  if (bits.empty()) return "nowhere";
  std::sort(bits.begin(), bits.end());
  const auto bitText = [](size_t bit) { return std::to_string(bit / 8) + "." + std::to_string(7 - bit % 8); };
  std::string text;
  for (size_t begin = 0, end = 0; begin < bits.size(); begin = end) {
    for (end = begin + 1; end < bits.size() && bits[end] == bits[end - 1] + 1;) ++end;
    const size_t first = bits[begin];
    const size_t last = bits[end - 1];
    const bool isBytes = first % 8 == 0 && last % 8 == 7;
    const std::string from = isBytes ? std::to_string(first / 8) : bitText(first);
    const std::string to = isBytes ? std::to_string(last / 8) : bitText(last);
    text += (text.empty() ? "" : ",") + from + (from == to ? "" : "-" + to);
  }
  return text;
}

EntityView ViewEntity(const JsonText& configuration, const Json::Value& entity, std::ostream* log) {
  const Json::Value numbered = WithIndexesAsIds(entity);
  const std::vector<std::string> membersAtFault = DroppedFor(numbered, kAllGroups, log);
  const ParsedEntity read = ParseEntity(configuration, numbered, kAllGroups);
  const ParsedEntity written = ParseEntity(configuration, numbered, kWritable);
  const AttributesByIndex readByIndex = ByIndex(read.attributes);
  const AttributesByIndex writtenByIndex = ByIndex(written.attributes);
  EntityView view;
  view.info = read.info;
  view.payloadBytes = std::max(PayloadLength(read.attributes), PayloadLength(written.attributes));
  view.writtenBytes = PayloadLength(written.attributes);
  AddAttributes(readByIndex, writtenByIndex, view);
  AddNotes(numbered["attrs"], readByIndex, writtenByIndex, membersAtFault, view);
  return view;
}

std::string EntityTitle(const EntityView& view) {
  return NameText(view.info.name) + " \"" + Escaped(view.info.display_name) + "\", id " + std::to_string(view.info.id);
}

std::string PayloadSummary(const EntityView& view) {
  const std::string payload = Count(view.payloadBytes, "byte") + " of payload";
  if (view.writtenBytes == 0) return payload + ", none in a write";
  if (view.writtenBytes == view.payloadBytes) return payload + ", all in a write";
  return payload + ", the first " + std::to_string(view.writtenBytes) + " in a write";
}

std::string EntityText(const EntityView& view, bool color) {
  std::string text = Colored(EntityTitle(view), color ? kBold : "") + ": " +
                     Count(view.attributes.size(), "attribute") + ", " + PayloadSummary(view) + "\n";
  if (!view.attributes.empty()) {
    std::vector<std::vector<TableCell>> rows(1);
    for (const char* heading : {"NAME", "DISPLAY NAME", "GROUP", "FLAG", "TYPE", "PLACE", "SCALING", "VALUES"}) {
      rows[0].push_back({heading, color ? kBold : ""});
    }
    for (const AttributeView& attribute : view.attributes) rows.push_back(AttributeRow(attribute, color));
    text += "\n" + AlignedTable(rows);
  }
  if (!view.notes.empty()) text += "\n";
  for (const std::string& note : view.notes) text += "Note: " + note + "\n";
  return text + "\n";
}

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
