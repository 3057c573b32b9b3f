#include "inspect/packets/ResultForms.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>

#include "inspect/json/Document.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

using json::AppendString;

constexpr std::string_view kVersion = "version";

void AppendNumber(uint64_t number, std::string& out) {
  char digits[24];
  out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

std::string JsonText(const std::string& text) {
  std::string json;
  AppendString(text, json);
  return json;
}

// A text as it comes back from JSON: bytes that are not UTF-8 are replaced there.
std::string ThroughJson(const std::string& text) {
  const std::string json = JsonText(text);
  if (json.size() == text.size() + 2 && json.find('\\') == std::string::npos) return text;
  Json::Value value;
  json::SyntaxError error;
  return json::Parse("[" + json + "]", Json::CharReaderBuilder(), value, error) ? value[0].asString() : text;
}

// Which attributes are told, and how.
class Selection {
 public:
  Selection(const EntityModel& entity, const FormOptions& options) {
    std::vector<std::string> known;
    std::vector<std::string> keys;
    for (const Field* field : entity.Fields()) {
      const Attribute& attribute = *field->attribute;
      isWanted_.resize(std::max(isWanted_.size(), field->element + 1));
      isWanted_[field->element] = options.only.empty() || Contains(options.only, attribute.name) ||
                                  Contains(options.only, DocumentKey(attribute));
      items_.resize(isWanted_.size());
      if (options.hasItems) items_[field->element] = ItemsTakenBack(attribute.enumList);
      known.push_back(attribute.name);
      keys.push_back(DocumentKey(attribute));
    }
    for (const std::string& name : options.only) {
      if (Contains(known, name) || Contains(keys, name)) continue;
      throw InputError(fmt::format("--only {}: no attribute of {} is called so{}", Escaped(name),
                                   InQuotes(entity.Info().name), KnownNames(name, known)));
    }
  }

  bool IsWanted(const Field& field) const { return isWanted_[field.element]; }
  bool IsWanted(const Note& note) const { return note.field == nullptr || IsWanted(*note.field); }

  // The text of a told value, with the names of items where they are wanted and can be taken back.
  std::string_view TextOf(const Field& field, const FieldValue& value) const {
    const std::vector<const std::string*>& items = items_[field.element];
    if (items.empty() || !IsEnum(*field.attribute)) return value.text;
    const std::string* item = items[static_cast<size_t>(value.result.raw)];
    return item == nullptr ? value.text : *item;
  }

  void AppendValue(const Field& field, const FieldValue& value, std::string& out) const {
    if (IsBool(*field.attribute)) {
      out += value.text;
    } else {
      AppendString(TextOf(field, value), out);
    }
  }

 private:
  // The items by which encoding finds their index; null for digits, which it takes for an index, for a text that
  // several items have, and for one that JSON cannot hold.
  static std::vector<const std::string*> ItemsTakenBack(const std::vector<std::string>& items) {
    std::map<std::string_view, int> uses;
    for (const std::string& item : items) ++uses[item];
    std::vector<const std::string*> known;
    for (const std::string& item : items) {
      const bool isIndex = !item.empty() && item.find_first_not_of("0123456789") == std::string::npos;
      known.push_back(isIndex || uses[item] > 1 || ThroughJson(item) != item ? nullptr : &item);
    }
    return known;
  }

  std::vector<bool> isWanted_;
  std::vector<std::vector<const std::string*>> items_;  // by element; empty where items are not named
};

// ---- Documents ----

// An attribute in a document.
struct Item {
  const Field* field;
  std::string key;    // what tells it from others in the document
  std::string start;  // `"key":`
  bool hasRival;      // the next item has the same key and, if it is told, replaces this one
};

// The attributes in the order of a document: by key, and of equal keys the one that stays is the last.
std::vector<Item> ItemsInOrder(const EntityModel& entity, std::string (*keyText)(const std::string&)) {
  std::vector<Item> items;
  for (const Field& field : entity.Reading().fields) {
    const std::string& key = DocumentKey(*field.attribute);
    items.push_back({&field, keyText(key), JsonText(key) + ':', false});
  }
  std::stable_sort(items.begin(), items.end(), [](const Item& left, const Item& right) {
    if (left.key != right.key) return left.key < right.key;
    return DocumentKey(*left.field->attribute) < DocumentKey(*right.field->attribute);
  });
  for (size_t i = 0; i + 1 < items.size(); ++i) items[i].hasRival = items[i].key == items[i + 1].key;
  return items;
}

bool IsReplaced(const PacketReading& reading, const std::vector<Item>& items, size_t index) {
  while (items[index].hasRival) {
    if (reading.IsTold(*items[++index].field)) return true;
  }
  return false;
}

// Calls `take` for each item that the document has.
template <typename Take>
void ForEachTold(const PacketReading& reading, const std::vector<Item>& items, Take take) {
  for (size_t i = 0; i < items.size(); ++i) {
    if (reading.IsTold(*items[i].field) && !IsReplaced(reading, items, i)) take(items[i]);
  }
}

bool IsAnyTold(const PacketReading& reading) {
  const std::vector<Field>& fields = reading.direction->fields;
  return std::any_of(fields.begin(), fields.end(), [&](const Field& field) { return reading.IsTold(field); });
}

void AppendNotes(const PacketReading& reading, const Selection& selection, std::string& out) {
  bool isFirst = true;
  for (const Note& note : reading.notes) {
    if (!selection.IsWanted(note)) continue;
    out += isFirst ? ",\"notes\":[" : ",";
    isFirst = false;
    fmt::format_to(std::back_inserter(out), R"({{"kind":"{}")", NoteName(note.kind));
    if (note.field != nullptr) {
      out += ",\"name\":";
      AppendString(note.field->attribute->name, out);
    }
    if (!note.place.IsEmpty()) {
      fmt::format_to(std::back_inserter(out), R"(,"place":{{"firstBit":{},"bits":{}}})", note.place.begin,
                     note.place.Length());
    }
    if (note.kind == NoteKind::kOutOfRange) {
      const Scaling& scaling = note.field->attribute->uint_spec;
      fmt::format_to(std::back_inserter(out), R"(,"raw":{},"min":{},"max":{})", note.raw, scaling.min, scaling.max);
    }
    if (note.kind == NoteKind::kNoItem) {
      const size_t items = note.field->attribute->enumList.size();
      fmt::format_to(std::back_inserter(out), R"(,"raw":{})", note.raw);
      if (items != 0) fmt::format_to(std::back_inserter(out), R"(,"min":0,"max":{})", items - 1);
    }
    out += '}';
  }
  if (!isFirst) out += ']';
}

// A form that has the attributes of a selection.
class SelectedForm : public ResultForm {
 public:
  SelectedForm(const EntityModel& entity, const FormOptions& options) : selection_(entity, options) {}

  bool Tells(const Note& note) const override { return selection_.IsWanted(note); }

 protected:
  const Selection& Selected() const { return selection_; }

 private:
  const Selection selection_;
};

class Flat : public SelectedForm {
 public:
  Flat(const EntityModel& entity, const FormOptions& options)
      : SelectedForm(entity, options),
        items_(ItemsInOrder(entity, ThroughJson)),
        entityName_(ThroughJson(entity.Info().name)),
        entityStart_(JsonText(entity.Info().name) + ":{") {}

  size_t Append(const PacketReading& reading, std::string& out) override {
    out += "{\"command\":";
    AppendNumber(reading.command, out);
    const size_t start = out.size();
    if (reading.IsReceived()) {
      AppendReceived(reading, out);
    } else {
      AppendRequest(reading, out);
    }
    if (!reading.notes.empty()) AppendNotes(reading, Selected(), out);
    out += '}';
    return start;
  }

 private:
  void AppendReceived(const PacketReading& reading, std::string& out) {
    alerts_.clear();
    faults_.clear();
    activeAlerts_.clear();
    activeFaults_.clear();
    // The document's version replaces an entity of this name.
    const bool isEntity = entityName_ != kVersion && IsAnyTold(reading);
    const bool isBeforeVersion = entityName_ < kVersion;
    out += isEntity && isBeforeVersion ? ",\"values\":{" : ",\"values\":{\"version\":4.0";
    if (isEntity) {
      if (!isBeforeVersion) out += ',';
      out += entityStart_;
      bool isFirst = true;
      ForEachTold(reading, items_, [&](const Item& item) {
        if (!Selected().IsWanted(*item.field)) return;
        const Group group = item.field->attribute->type;
        if (group == MorvixProtocolTypeAlert_4_0) return AppendListed(item, reading, alerts_, activeAlerts_);
        if (group == MorvixProtocolTypeFault_4_0) return AppendListed(item, reading, faults_, activeFaults_);
        if (!isFirst) out += ',';
        isFirst = false;
        AppendItem(item, reading, out);
      });
      out += isBeforeVersion ? "},\"version\":4.0" : "}";
    }
    out += "},\"alerts\":{";
    out += alerts_;
    out += "},\"faults\":{";
    out += faults_;
    out += "},\"active\":{\"alerts\":{";
    out += activeAlerts_;
    out += "},\"faults\":{";
    out += activeFaults_;
    out += "}}";
  }

  void AppendItem(const Item& item, const PacketReading& reading, std::string& out) const {
    out += item.start;
    Selected().AppendValue(*item.field, reading.values[item.field->flag], out);
  }

  void AppendListed(const Item& item, const PacketReading& reading, std::string& list, std::string& active) const {
    if (!list.empty()) list += ',';
    AppendItem(item, reading, list);
    const int32_t integer = ActiveInteger(*item.field->attribute, reading.values[item.field->flag]);
    if (integer == 0) return;
    if (!active.empty()) active += ',';
    active += item.start;
    active += std::to_string(integer);
  }

  void AppendRequest(const PacketReading& reading, std::string& out) const {
    if (reading.subDevice) out += ",\"subDevice\":" + std::to_string(*reading.subDevice);
    if (reading.direction == nullptr) return;
    std::string values;
    char separator = '[';
    out += ",\"set\":";
    std::map<std::string_view, const Field*> lastOfName;  // two attributes of one name have one value in a document
    for (const Field& field : reading.direction->fields) {
      if (reading.IsTold(field)) lastOfName[field.attribute->name] = &field;
    }
    for (const Field& field : reading.direction->fields) {
      const FieldValue& value = reading.values[field.flag];
      if (value.result.outcome == MorvixProtocolOutcomeAbsent_4_0 || !Selected().IsWanted(field)) continue;
      out += separator;
      separator = ',';
      AppendString(field.attribute->name, out);
      if (!reading.IsTold(field) || lastOfName[field.attribute->name] != &field) continue;
      if (!values.empty()) values += ',';
      AppendString(field.attribute->name, values);
      values += ':';
      Selected().AppendValue(field, value, values);
    }
    if (separator == '[') out += '[';
    out += "],\"values\":{" + entityStart_ + values + "}}";
  }

  const std::vector<Item> items_;
  const std::string entityName_;
  const std::string entityStart_;
  // Kept for their memory.
  std::string alerts_;
  std::string faults_;
  std::string activeAlerts_;
  std::string activeFaults_;
};

class Decoded : public SelectedForm {
 public:
  Decoded(const EntityModel& entity, const FormOptions& options)
      : SelectedForm(entity, options),
        items_(ItemsInOrder(entity, [](const std::string& key) { return key; })),
        entityStart_("{" + JsonText(entity.Info().name) + ":{") {}

  bool Takes(const PacketReading& reading) const override { return reading.IsReceived(); }

  size_t Append(const PacketReading& reading, std::string& out) override {
    const size_t start = out.size();
    if (!IsAnyTold(reading)) {
      out += "{}";
      return start;
    }
    out += entityStart_;
    bool isFirst = true;
    ForEachTold(reading, items_, [&](const Item& item) {
      if (!Selected().IsWanted(*item.field)) return;
      if (!isFirst) out += ',';
      isFirst = false;
      out += item.start;
      out += "{\"type\":";
      AppendNumber(item.field->attribute->type, out);
      out += ",\"value\":";
      Selected().AppendValue(*item.field, reading.values[item.field->flag], out);
      out += '}';
    });
    out += "}}";
    return start;
  }

 private:
  const std::vector<Item> items_;
  const std::string entityStart_;
};

// ---- table ----

class Table : public SelectedForm {
 public:
  Table(const EntityModel& entity, const FormOptions& options)
      : SelectedForm(entity, options),
        entity_(entity),
        color_(options.color),
        items_(ItemsInOrder(entity, [](const std::string& key) { return key; })),
        ranks_(items_.size()) {
    for (size_t i = 0; i < items_.size(); ++i) ranks_[items_[i].field->flag] = i;
  }

  size_t Append(const PacketReading& reading, std::string& out) override {
    out += TitleOf(reading);
    const size_t start = out.size();
    if (reading.direction == nullptr) return start;
    std::vector<TableRow> rows = {HeadingRow({"NAME", "GROUP", "PLACE", "BITS", "VALUE", "NOTE"})};
    rows.reserve(reading.direction->fields.size() + 1);
    for (const Field& field : reading.direction->fields) {
      if (Selected().IsWanted(field)) rows.push_back(RowOf(field, reading));
    }
    out += '\n';
    out += AlignedTable(rows, color_);
    for (const Note& note : reading.notes) {
      if (note.kind == NoteKind::kSurplus) out += SurplusText(note, reading) + '\n';
    }
    return start;
  }

  void AppendError(std::string_view error, std::string& out) const override { out.append(error) += '\n'; }

 private:
  static constexpr size_t kBitsColumns = 47;  // 16 bytes
  static constexpr size_t kValueColumns = 48;

  std::string TitleOf(const PacketReading& reading) const {
    const bool isNotification = reading.command == MorvixProtocolCommandNotifyResp_4_0;
    const bool isReceived = reading.IsReceived();
    std::string title = isNotification ? "notification" : isReceived ? "read response" : CommandName(reading.command);
    if (!isReceived) title += " request";
    if (reading.direction != nullptr) title += ", " + NameText(entity_.Info().name);
    if (reading.subDevice) title += fmt::format(", sub-device {}", *reading.subDevice);
    if (reading.direction != nullptr) title += ", " + Count(reading.payloadBytes, "byte") + " of payload";
    return title + "\n";
  }

  static std::string SurplusText(const Note& note, const PacketReading& reading) {
    const size_t begin = note.place.FirstByte();
    const std::string bytes = HexText(reading.payload + begin, note.place.EndByte() - begin);
    return fmt::format("{} ({})", NoteText(note), Shortened(bytes, kBitsColumns));
  }

  TableRow RowOf(const Field& field, const PacketReading& reading) const {
    const Attribute& attribute = *field.attribute;
    const FieldValue& value = reading.values[field.flag];
    const BitRange& place = reading.IsReceived() ? field.bitsInLonger : field.bits;
    const BitRange bits = place.EndByte() <= reading.payloadBytes ? place : BitRange();
    const bool isActive = IsAlertOrFault(attribute) && reading.IsTold(field) && !IsReplacedIn(reading, field) &&
                          ActiveInteger(attribute, value) != 0;
    std::string note = NoteOf(field, reading);
    if (isActive) note += note.empty() ? "active" : ", active";
    const bool isDone = value.result.outcome == MorvixProtocolOutcomeDone_4_0;
    const bool isSet = value.result.outcome != MorvixProtocolOutcomeAbsent_4_0;
    return {{NameText(reading.IsReceived() ? DocumentKey(attribute) : attribute.name)},
            {GroupName(attribute.type), GroupColor(attribute.type)},
            {PlaceText(bits)},
            {isSet ? Shortened(ContentText(bits, reading.payload), kBitsColumns) : ""},
            {isDone ? Shortened(value.text, kValueColumns) : ""},
            {std::move(note), isActive ? GroupColor(attribute.type) : ""}};
  }

  bool IsReplacedIn(const PacketReading& reading, const Field& field) const {
    return reading.IsReceived() && IsReplaced(reading, items_, ranks_[field.flag]);
  }

  std::string NoteOf(const Field& field, const PacketReading& reading) const {
    const Attribute& attribute = *field.attribute;
    const Result& result = reading.values[field.flag].result;
    if (result.outcome == MorvixProtocolOutcomeAbsent_4_0) return "not set";
    const std::string line = DecodeLine(attribute, result);
    if (!line.empty()) return "unreadable: " + line;
    if (result.outcome == MorvixProtocolOutcomeUnreadable_4_0) return "left out: not readable in this payload";
    if (result.outcome == MorvixProtocolOutcomeRefusedByScaling_4_0) {
      if (!IsScaled(attribute)) return "left out: its scaling takes no value; dp4 lint tells why";
      return fmt::format("left out: raw {}, expected {} to {}", result.raw, attribute.uint_spec.min,
                         attribute.uint_spec.max);
    }
    if (!reading.IsTold(field)) {
      return "not reported: " + NameText(DocumentKey(*reading.culprit->attribute)) + " is unreadable";
    }
    if (IsReplacedIn(reading, field)) return "not reported: another attribute of this name follows";
    return IsEnum(attribute) ? NameText(attribute.enumList.at(static_cast<size_t>(result.raw))) : "";
  }

  const EntityModel& entity_;
  const bool color_;
  const std::vector<Item> items_;
  std::vector<size_t> ranks_;  // of the fields that are read, in `items_`
};

// ---- csv ----

class Csv : public SelectedForm {
 public:
  Csv(const EntityModel& entity, const FormOptions& options) : SelectedForm(entity, options) {
    for (const Field* field : entity.Fields()) {
      if (!Selected().IsWanted(*field)) continue;
      columns_.push_back({entity.Read(field->element), entity.Written(field->element)});
    }
  }

  size_t Append(const PacketReading& reading, std::string& out) override {
    AppendNumber(reading.command, out);
    out += ',';
    const size_t start = out.size();
    if (!reading.notes.empty()) AppendCsvCell(ErrorOf(reading), out);
    for (const Column& column : columns_) {
      out += ',';
      const Field* field = reading.direction == nullptr ? nullptr : reading.IsReceived() ? column.read : column.written;
      if (field != nullptr && reading.IsTold(*field)) AppendValue(*field, reading.values[field->flag], out);
    }
    return start;
  }

  void AppendError(std::string_view error, std::string& out) const override {
    out += ',';
    AppendCsvCell(error, out);
    out.append(columns_.size(), ',');
  }

 private:
  // An attribute in both directions; null where it has none.
  struct Column {
    const Field* read;
    const Field* written;
  };

  void AppendValue(const Field& field, const FieldValue& value, std::string& out) const {
    if (IsBool(*field.attribute)) {
      out += value.result.raw != 0 ? '1' : '0';
    } else {
      const std::string_view text = Selected().TextOf(field, value);
      // An item can be empty. Then its index is written, since an empty cell means that there is no value.
      AppendCsvCell(text.empty() ? value.text : text, out);
    }
  }

  // Why decoding ended early, or else the notes.
  std::string ErrorOf(const PacketReading& reading) const {
    if (!reading.failure.empty()) return reading.failure;
    std::string text;
    for (const Note& note : reading.notes) {
      if (!Selected().IsWanted(note)) continue;
      text += (text.empty() ? "" : "; ") + NoteText(note);
    }
    return text;
  }

  std::vector<Column> columns_;
};

}  // namespace

bool ResultForm::Takes(const PacketReading& /*reading*/) const { return true; }

void ResultForm::AppendError(std::string_view error, std::string& out) const {
  out += "{\"error\":";
  AppendString(error, out);
  out += '}';
}

std::unique_ptr<ResultForm> MakeForm(DocumentForm form, const EntityModel& entity, const FormOptions& options) {
  switch (form) {
    case DocumentForm::kDecoded:
      return std::make_unique<Decoded>(entity, options);
    case DocumentForm::kTable:
      return std::make_unique<Table>(entity, options);
    case DocumentForm::kCsv:
      return std::make_unique<Csv>(entity, options);
    default:
      return std::make_unique<Flat>(entity, options);
  }
}

std::vector<std::string> CsvColumns(const EntityModel& entity, const FormOptions& options) {
  const Selection selection(entity, options);
  std::vector<std::string> columns = {"command", "error"};
  for (const Field* field : entity.Fields()) {
    if (selection.IsWanted(*field)) columns.push_back(field->attribute->name);
  }
  return columns;
}

void AppendCsvCell(std::string_view text, std::string& out) {
  const bool isPlain = text.find_first_of(",\"\r\n") == std::string_view::npos;
  if (isPlain) {
    out += text;
    return;
  }
  out += '"';
  for (const char c : text) out.append(c == '"' ? 2 : 1, c);
  out += '"';
}

}  // namespace morvix::inspect
