// Answers about captures: the packets of many lines, and how a pattern takes lines apart.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "Request.h"
#include "inspect/capture/JsonLine.h"
#include "inspect/capture/LinePattern.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Error.h"
#include "inspect/text/Format.h"

namespace morvix::studio {

using namespace inspect;

namespace {

constexpr size_t kMaxLineBytes = size_t{1} << 20;

// Calls `take` with each line of a text and its number from `number` on, without line ends and without empty lines.
template <typename Take>
void ForEachLine(std::string_view text, uint64_t number, Take take) {
  for (size_t begin = 0; begin < text.size(); ++number) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    std::string_view line = text.substr(begin, end - begin);
    begin = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.find_first_not_of(" \t\r\v\f") != std::string_view::npos) take(line, number);
  }
}

// Takes lines apart: by a pattern, as JSON objects with a member "packet", or as bare packets.
class LineTaker {
 public:
  // `line` is empty for JSON and bare packets. Throws InputError when it is not a pattern.
  explicit LineTaker(const std::string& line) {
    if (!line.empty()) pattern_.emplace(line);
  }

  // False when the line does not match.
  bool Take(std::string_view line) {
    time_ = {};
    others_.clear();
    if (pattern_) return TakeMatch(line);
    const size_t first = line.find_first_not_of(" \t");
    packet_ = line;
    HexError error;
    if (first == std::string_view::npos || line[first] != '{') return true;
    if (!ReadJsonLine(std::string(line), "packet", json_, error)) return true;
    packet_ = json_.packet;
    time_ = json_.time;
    return true;
  }

  std::string_view Packet() const { return packet_; }
  std::string_view Time() const { return time_; }
  // The other groups that took part in the match, such as a direction.
  const std::string& Others() const { return others_; }

 private:
  bool TakeMatch(std::string_view line) {
    if (!pattern_->Match(line, packet_)) return false;
    for (const LineGroup& group : pattern_->Others()) {
      if (group.text.data() == nullptr) continue;
      if (group.name == "time") {
        time_ = group.text;
      } else {
        others_ += (others_.empty() ? "" : " ") + std::string(group.text);
      }
    }
    return true;
  }

  std::optional<LinePattern> pattern_;
  JsonLine json_;
  std::string_view packet_;
  std::string_view time_;
  std::string others_;
};

// The number that stands for a value in a chart; null where there is none.
std::string ChartNumber(const Attribute& attribute, const FieldValue& value) {
  if (IsBinary(attribute)) return "null";
  if (IsBool(attribute) || IsEnum(attribute)) return std::to_string(value.result.raw);
  const bool isFinite = std::isfinite(std::strtod(value.text.c_str(), nullptr));
  return isFinite ? value.text : "null";  // JSON has no infinity
}

// One column for each element of the entity that has one.
class RowWriter {
 public:
  explicit RowWriter(const EntityModel& entity) : reader_(entity) {
    for (const Field* field : entity.Fields()) elements_.push_back(field->element);
  }

  void Write(std::string_view text, JsonWriter& row) {
    HexError hexError;
    if (!ParseHex(text, packet_, hexError)) return row.Text("error", hexError.message);
    row.Text("packet", HexText(packet_.data(), packet_.size()));
    PacketError error;
    const PacketReading* reading = reader_.Read(packet_, error);
    if (reading == nullptr) return row.Text("error", error.text);
    row.Text("command", CommandName(reading->command));
    WriteNotes(*reading, row);
    if (reading->direction != nullptr) WriteValues(*reading, row);
  }

 private:
  static void WriteNotes(const PacketReading& reading, JsonWriter& row) {
    std::string text = reading.failure;
    for (const Note& note : reading.notes) text += (text.empty() ? "" : "; ") + NoteText(note);
    if (!text.empty()) row.Text("notes", text);
  }

  void WriteValues(const PacketReading& reading, JsonWriter& row) {
    std::string active;
    {
      JsonWriter values(row.Member("values"), '[');
      for (size_t i = 0; i < elements_.size(); ++i) {
        const Field* field = reading.direction->Of(elements_[i]);
        std::string& out = values.Element();
        if (field == nullptr || !reading.IsTold(*field)) {
          out += "null";
          continue;
        }
        const FieldValue& value = reading.values[field->flag];
        out += ChartNumber(*field->attribute, value);
        if (!IsAlertOrFault(*field->attribute) || ActiveInteger(*field->attribute, value) == 0) continue;
        active += (active.empty() ? "" : ",") + std::to_string(i);
      }
    }
    if (!active.empty()) row.Json("active", "[" + active + "]");
  }

  std::vector<size_t> elements_;
  PacketReader reader_;
  Bytes packet_;
};

// The share of lines that a way of reading takes as packets, in counts.
size_t PacketsBy(const std::string& line, std::string_view text) {
  LineTaker taker(line);
  size_t packets = 0;
  ForEachLine(text, 1, [&](std::string_view one, uint64_t) {
    Bytes packet;
    HexError error;
    if (taker.Take(one) && ParseHex(taker.Packet(), packet, error)) ++packets;
  });
  return packets;
}

// The ready-made pattern that reads most of these lines; empty for JSON and bare packets.
std::string GuessedLine(std::string_view text) {
  std::string best;
  size_t most = PacketsBy(best, text);
  for (const char* line : {"direction", "time", "candump"}) {
    const size_t packets = PacketsBy(line, text);
    if (packets <= most) continue;
    most = packets;
    best = line;
  }
  return best;
}

}  // namespace

void AnswerCapture(const Request& request, std::string& answer) {
  const ChosenEntity chosen(request);
  LineTaker taker(request.Text("line"));
  RowWriter rowWriter(chosen.model);
  const std::string text = request.Text("text");
  size_t unmatched = 0;
  JsonWriter writer(answer);
  {
    JsonWriter rows(writer.Member("rows"), '[');
    ForEachLine(text, request.Number("first"), [&](std::string_view line, uint64_t number) {
      if (line.size() > kMaxLineBytes || !taker.Take(line)) {
        ++unmatched;
        return;
      }
      JsonWriter row(rows.Element());
      row.Number("line", number);
      if (!taker.Time().empty()) row.Text("time", taker.Time());
      if (!taker.Others().empty()) row.Text("others", taker.Others());
      rowWriter.Write(taker.Packet(), row);
    });
  }
  writer.Number("unmatched", unmatched);
}

void AnswerMatch(const Request& request, std::string& answer) {
  const std::string text = request.Text("text");
  const std::string line = request.Has("line") ? request.Text("line") : GuessedLine(text);
  LineTaker taker(line);
  JsonWriter writer(answer);
  writer.Text("line", line);
  JsonWriter lines(writer.Member("lines"), '[');
  ForEachLine(text, 1, [&](std::string_view one, uint64_t) {
    JsonWriter written(lines.Element());
    written.Text("text", one);
    if (!taker.Take(one)) return;
    Bytes packet;
    HexError error;
    if (!taker.Time().empty()) written.Text("time", taker.Time());
    if (!taker.Others().empty()) written.Text("others", taker.Others());
    if (ParseHex(taker.Packet(), packet, error)) {
      written.Text("packet", HexText(packet.data(), packet.size()));
    } else {
      written.Text("error", error.message);
    }
  });
}

}  // namespace morvix::studio
