// dp4 decode: packets to what they say, one packet or a stream of them.
//
// Standard input is read when no packets are given. A line is a packet in hexadecimal; or a JSON object, whose text
// "packet" is replaced by the result; or what --line takes apart. The rest of a JSON line is kept as it stands, the
// order of its members and the writing of its numbers included; only control characters are escaped. Empty lines are
// ignored.
//
// Every line gives one record, also if there is an error in it, which is reported as well; the stream goes on. Lines
// that do not match the pattern of --line give none and are counted.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <fstream>
#include <istream>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>

#include "Commands.h"
#include "Files.h"
#include "LineReader.h"
#include "inspect/capture/JsonLine.h"
#include "inspect/capture/LinePattern.h"
#include "inspect/capture/Tally.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

const char kTableKey[] = "\nPLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n";

// The progress line of a long stream.
class Progress {
 public:
  explicit Progress(Environment& environment) : environment_(environment) {
    environment.clearProgress = [this] { Clear(); };
  }
  ~Progress() {
    environment_.clearProgress = [] {};
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Update(const LineReader& lines, size_t problems) {
    if (!environment_.isProgressShown || Clock::now() < next_) return;
    next_ = Clock::now() + std::chrono::milliseconds(250);
    std::string text = fmt::format("{} lines, {} problems", lines.Number(), problems);
    const size_t total = environment_.inBytes;
    if (total != 0) text += fmt::format(", {} %", std::min<size_t>(100 * lines.BytesTaken() / total, 100));
    environment_.err << kClear << text << std::flush;
    isOnScreen_ = true;
  }

  void Clear() {
    if (isOnScreen_) environment_.err << kClear << std::flush;
    isOnScreen_ = false;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr char kClear[] = "\r\x1b[K";

  Environment& environment_;
  Clock::time_point next_ = Clock::now() + std::chrono::seconds(1);
  bool isOnScreen_ = false;
};

// The results that wait to be written.
class Output {
 public:
  explicit Output(Environment& environment) : stream_(environment.out), isLineWise_(environment.isOutTerminal) {}
  ~Output() { Write(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  std::string& Text() { return text_; }

  // Called between records. False when nothing can be written any more.
  bool EndRecord() {
    constexpr size_t kBufferBytes = 65536;
    if (isLineWise_ || text_.size() >= kBufferBytes) Flush();
    return stream_.good();
  }

  void Flush() {
    Write();
    stream_.flush();
  }

 private:
  void Write() {
    stream_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
    text_.clear();
  }

  std::ostream& stream_;
  const bool isLineWise_;
  std::string text_;
};

// Where a packet comes from.
struct Origin {
  bool isArgument = false;
  size_t number = 0;                   // of the line or argument
  std::optional<JsonLine> json;        // the line, if it is a JSON object
  std::optional<LinePattern> pattern;  // what takes lines apart; with the texts of this one

  const std::vector<LineGroup>& Groups() const {
    static const std::vector<LineGroup> kNone;
    return pattern ? pattern->Others() : kNone;
  }

  void Begin(size_t newNumber) {
    number = newNumber;
    json.reset();
    if (pattern) pattern->Forget();
  }
};

// What stands before and after the result in a record.
class Frame {
 public:
  Frame(DocumentForm form, const Origin& origin) : form_(form), origin_(origin) {}

  void Open(std::string& out) const {
    if (form_ == DocumentForm::kTable) {
      AppendTitle(out);
    } else if (form_ == DocumentForm::kCsv) {
      for (const LineGroup& group : origin_.Groups()) {
        AppendCsvCell(group.text, out);
        out += ',';
      }
      out += std::to_string(origin_.number) + ',';
    } else if (origin_.json) {
      out += origin_.json->before;
    } else if (origin_.pattern) {
      AppendGroups(out);
    }
  }

  void Close(std::string& out) const {
    if (form_ == DocumentForm::kTable) return;
    if (form_ == DocumentForm::kCsv) {
      out += '\r';
    } else if (origin_.json) {
      out += origin_.json->after;
    } else if (origin_.pattern) {
      out += '}';
    }
    out += '\n';
  }

 private:
  void AppendTitle(std::string& out) const {
    out += (origin_.isArgument ? "packet " : "line ") + std::to_string(origin_.number);
    if (origin_.json && origin_.json->hasOthers) out += " " + origin_.json->before + "..." + origin_.json->after;
    for (const LineGroup& group : origin_.Groups()) {
      if (group.text.data() != nullptr) out += " " + Escaped(group.text);
    }
    out += ": ";
  }

  void AppendGroups(std::string& out) const {
    out += '{';
    for (const LineGroup& group : origin_.Groups()) {
      if (group.text.data() == nullptr) continue;
      json::AppendString(group.name, out);
      out += ':';
      // The JSON writer would take a byte that is not UTF-8 together with those after it.
      if (IsUtf8(group.text)) {
        json::AppendString(group.text, out);
      } else {
        json::AppendString(ToUtf8(group.text), out);
      }
      out += ',';
    }
    out += "\"packet\":";
  }

  const DocumentForm form_;
  const Origin& origin_;
};

class Decoder {
 public:
  Decoder(const EntityModel& entity, const DecodeOptions& options, Environment& environment)
      : options_(options),
        environment_(environment),
        output_(environment),
        reader_(entity),
        form_(MakeForm(options.document, entity, FormOptionsOf(options))),
        frame_(options.document, origin_) {
    if (!options.line.empty()) origin_.pattern.emplace(options.line);
    if (options.document == DocumentForm::kCsv) AppendCsvHead(CsvColumns(entity, FormOptionsOf(options)));
    if (options.document == DocumentForm::kFlat || options.document == DocumentForm::kDecoded) WarnOfKeys(entity);
  }

  void DecodeArguments() {
    CheckArguments();
    origin_.isArgument = true;
    for (const std::string& packet : options_.packets) {
      origin_.Begin(origin_.number + 1);
      DecodePacket(packet, 0);
    }
  }

  void DecodeStream() {
    Progress progress(environment_);
    LineReader lines(environment_.in, [this] { output_.Flush(); });
    std::string_view line;
    while (output_.EndRecord() && lines.Next(line)) {
      origin_.Begin(lines.Number());
      if (lines.IsTooLong()) {
        RecordError("too long line", 0, fmt::format("expected a line of at most {} bytes", kMaxLineBytes));
      } else if (line.find_first_not_of(kBlanks) != std::string_view::npos) {
        DecodeLine(line);
      }
      progress.Update(lines, problems_);
    }
    progress.Clear();
  }

  // Completes the output.
  ExitCode Finish() {
    if (hasTables_) output_.Text() += kTableKey;
    output_.Flush();
    const bool isTold = !origin_.isArgument && !options_.quiet && environment_.out.good();
    if (isTold) environment_.err << "dp4: " << tally_.Text(origin_.number) << '\n';
    return problems_ == 0 ? kFine : kProblems;
  }

 private:
  static constexpr const char* kBlanks = " \t\r\n\v\f";
  static constexpr size_t kCommands = 32;

  // What a packet said, and of which sub-device, which is not a part of every form.
  struct State {
    std::optional<std::string> text;
    std::optional<int32_t> subDevice;
  };

  static FormOptions FormOptionsOf(const DecodeOptions& options) {
    return {options.items, options.only, options.color};
  }

  // A group is called otherwise easily, an attribute is not.
  void AppendCsvHead(const std::vector<std::string>& columns) {
    std::vector<std::string> all = {"line"};
    all.insert(all.end(), columns.begin(), columns.end());
    std::set<std::string> names;
    for (const std::string& name : all) {
      if (names.insert(name).second) continue;
      environment_.err << "dp4: warning: two columns are called " << InQuotes(name) << '\n';
    }
    for (const LineGroup& group : origin_.Groups()) {
      if (names.count(group.name) == 0) continue;
      throw InputError("--line: a column is called " + InQuotes(group.name) + "; give the group another name");
    }
    for (auto group = origin_.Groups().rbegin(); group != origin_.Groups().rend(); ++group) {
      all.insert(all.begin(), group->name);
    }
    std::string& out = output_.Text();
    for (const std::string& name : all) {
      if (!out.empty()) out += ',';
      AppendCsvCell(name, out);
    }
    out += "\r\n";
  }

  // Of the attributes with one key, a document has the last one only. Tables say so themselves.
  void WarnOfKeys(const EntityModel& entity) const {
    std::map<std::string, std::string> names;  // by key
    for (const Field& field : entity.Reading().fields) {
      const std::string& key = DocumentKey(*field.attribute);
      const auto [earlier, isFirst] = names.emplace(key, field.attribute->name);
      if (isFirst) continue;
      environment_.err << fmt::format("dp4: warning: {} gives way to {}: both are {} in the result\n",
                                      InQuotes(earlier->second), InQuotes(field.attribute->name), InQuotes(key));
      earlier->second = field.attribute->name;
    }
    if (options_.document != DocumentForm::kFlat || entity.Info().name != "version") return;
    environment_.err << "dp4: warning: the entity \"version\" gives way to the document's version in the result\n";
  }

  void CheckArguments() const {
    const auto isByte = [](const std::string& packet) {
      const bool hasPrefix = packet.compare(0, 2, "0x") == 0 || packet.compare(0, 2, "0X") == 0;
      return packet.size() <= (hasPrefix ? 4 : 2);
    };
    const std::vector<std::string>& packets = options_.packets;
    if (packets.size() > 1 && std::all_of(packets.begin(), packets.end(), isByte)) {
      throw InputError("each PACKET is a byte at most; expected quotation marks around a packet with blanks");
    }
    for (const std::string& packet : packets) {
      Bytes bytes;
      HexError error;
      if (ParseHex(packet, bytes, error) || !std::ifstream(packet)) continue;
      throw InputError(fmt::format("{} is a file; to decode its lines, write dp4 decode {} < {}", InQuotes(packet),
                                   Escaped(options_.configuration), Escaped(packet)));
    }
  }

  void DecodeLine(std::string_view line) {
    if (origin_.pattern) return DecodeMatch(line);
    const size_t first = line.find_first_not_of(kBlanks);
    const size_t second = line[first] == '{' ? line.find_first_not_of(kBlanks, first + 1) : 0;
    const bool isArray =
        second != std::string_view::npos && std::isxdigit(static_cast<unsigned char>(line[second])) != 0;
    if (line[first] == '{' && !isArray) return DecodeJsonLine(line);
    DecodePacket(line, 0);
  }

  // Patterns see lines without their ends, whichever these are.
  void DecodeMatch(std::string_view line) {
    if (line.back() == '\r') line.remove_suffix(1);
    std::string_view packet;
    if (!origin_.pattern->Match(line, packet)) {
      tally_.AddUnmatched();
      if (options_.strict) Report(0, "does not match --line");
      return;
    }
    for (const LineGroup& group : origin_.Groups()) {
      if (group.name == "time" && !group.text.empty()) tally_.AddTime(group.text);
    }
    DecodePacket(packet, packet.data() == nullptr ? 0 : static_cast<size_t>(packet.data() - line.data()));
  }

  void DecodeJsonLine(std::string_view line) {
    HexError error;
    JsonLine parts;
    if (!ReadJsonLine(std::string(line), options_.member.value_or("packet"), parts, error)) {
      RecordError("no packet", error.column, error.message);
      return;
    }
    if (!parts.time.empty()) tally_.AddTime(parts.time);
    origin_.json = std::move(parts);
    if (!origin_.json->hasPacket) return RecordError("no packet", error.column, error.message);
    DecodePacket(origin_.json->packet, origin_.json->before.size() + 1);  // its quotation mark
  }

  // `offset` is the packet's in the line, for messages.
  void DecodePacket(std::string_view text, size_t offset) {
    HexError hexError;
    if (!ParseHex(text, packet_, hexError)) {
      RecordError("no packet", offset + hexError.column, hexError.message);
      if (!origin_.isArgument && !origin_.pattern && !origin_.json) Hint(text);
      return;
    }
    const std::optional<size_t> announced = origin_.pattern ? origin_.pattern->AnnouncedBytes() : std::nullopt;
    if (announced && *announced != packet_.size()) {
      return RecordError("wrong size", 0,
                         fmt::format("{} announced, {} found", Count(*announced, "byte"), packet_.size()));
    }
    PacketError error;
    const PacketReading* reading = reader_.Read(packet_, error);
    if (reading != nullptr && !form_->Takes(*reading)) {
      error = {"not received", fmt::format("command {:02x} is not received; expected 03 (read response) or 04 "
                                           "(notification)",
                                           packet_[0])};
      reading = nullptr;
    }
    if (reading == nullptr) {
      RecordError(error.kind, 0, error.text);
    } else {
      Record(*reading);
    }
  }

  void Record(const PacketReading& reading) {
    tally_.AddPacket(reading.command);
    const bool isComplete = reading.failure.empty();
    if (!isComplete) {
      tally_.AddError("ended early");
      Report(0, reading.failure);
    }
    for (const Note& note : reading.notes) {
      if (!form_->Tells(note)) continue;
      tally_.AddNote(note.kind);
      if (options_.strict && isComplete) Report(0, NoteText(note));
    }
    std::string& out = output_.Text();
    const size_t begin = out.size();
    const bool isTable = options_.document == DocumentForm::kTable;
    if (isTable && hasTables_) out += '\n';
    frame_.Open(out);
    const size_t state = form_->Append(reading, out);
    if (options_.changes && !IsChanged(reading, std::string_view(out).substr(state))) {
      out.resize(begin);
      return;
    }
    hasTables_ = isTable;
    frame_.Close(out);
  }

  // Against the last packet of its command; what a device sends is of one kind, whether it was asked or not.
  bool IsChanged(const PacketReading& reading, std::string_view state) {
    State& last = states_.at(reading.IsReceived() ? 0 : reading.command % kCommands);
    if (last.text == state && last.subDevice == reading.subDevice) return false;
    last.text = state;
    last.subDevice = reading.subDevice;
    return true;
  }

  void RecordError(const char* kind, size_t column, const std::string& message) {
    tally_.AddError(kind);
    Report(column, message);
    const bool isTable = options_.document == DocumentForm::kTable;
    if (isTable && origin_.isArgument) return;  // what was reported stands right beside it
    if (isTable && hasTables_) output_.Text() += '\n';
    frame_.Open(output_.Text());
    form_->AppendError(message, output_.Text());
    frame_.Close(output_.Text());
  }

  // At a column, unless it is 0.
  void Report(size_t column, const std::string& message) {
    ++problems_;
    if (environment_.isOutTerminal) output_.Flush();
    environment_.clearProgress();
    environment_.err << "dp4: " << (origin_.isArgument ? "packet " : "standard input:") << origin_.number;
    if (column != 0) environment_.err << ':' << column;
    environment_.err << ": " << message << '\n';
  }

  // Once, how to read lines such as this one, which is no packet.
  void Hint(std::string_view line) {
    if (isHinted_) return;
    if (!hints_) hints_.emplace();
    const std::string hint = hints_->HintFor(line);
    if (hint.empty()) return;
    isHinted_ = true;
    environment_.err << "dp4: hint: " << hint << '\n';
  }

  const DecodeOptions& options_;
  Environment& environment_;
  Output output_;
  PacketReader reader_;
  const std::unique_ptr<ResultForm> form_;
  Origin origin_;
  const Frame frame_;
  std::optional<LineHints> hints_;
  std::array<State, kCommands> states_;  // of the last packet of each command
  Bytes packet_;                         // kept for its memory
  Tally tally_;
  size_t problems_ = 0;
  bool isHinted_ = false;
  bool hasTables_ = false;
};

void CheckOptions(const DecodeOptions& options) {
  const bool isStream = options.packets.empty();
  if (isStream && options.configuration == "-") {
    throw InputError("standard input cannot be both the configuration and the packets");
  }
  const char* const ofLines = !options.line.empty() ? "--line" : options.member ? "--member" : nullptr;
  if (!isStream && ofLines != nullptr) {
    throw InputError(fmt::format("{} is for lines of standard input; expected no PACKET", ofLines));
  }
  const bool hasItems = options.document == DocumentForm::kFlat || options.document == DocumentForm::kCsv;
  if (options.items && !hasItems) throw InputError("--items is for the documents flat and csv");
}

}  // namespace

int Decode(const DecodeOptions& options, Environment& environment) {
  CheckOptions(options);
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const EntityModel entity = ReadEntity(configuration, options.entity, environment);
  Decoder decoder(entity, options, environment);
  if (options.packets.empty()) {
    decoder.DecodeStream();
  } else {
    decoder.DecodeArguments();
  }
  return decoder.Finish();
}

}  // namespace dp4
