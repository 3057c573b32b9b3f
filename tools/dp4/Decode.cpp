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
#include <memory>
#include <optional>
#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "LineReader.h"
#include "inspect/capture/JsonLine.h"
#include "inspect/capture/LinePattern.h"
#include "inspect/capture/Tally.h"
#include "inspect/packets/Reading.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

const char kTableKey[] = "\nPLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n";

// A line that tells how far a long stream has come.
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

class Decoder {
 public:
  Decoder(const EntityModel& entity, const DecodeOptions& options, Environment& environment)
      : options_(options),
        environment_(environment),
        output_(environment),
        reader_(entity),
        form_(MakeForm(options.document, entity, FormOptionsOf(options))) {
    if (!options.line.empty()) pattern_.emplace(options.line);
    if (options.document != DocumentForm::kCsv) return;
    for (const LineGroup& group : Groups()) {
      AppendCsvCell(group.name, output_.Text());
      output_.Text() += ',';
    }
    output_.Text() += "line,";
    AppendCsvHead(entity, FormOptionsOf(options), output_.Text());
    output_.Text() += "\r\n";
  }

  void DecodeArguments() {
    CheckArguments();
    source_ = "packet ";
    for (const std::string& packet : options_.packets) {
      ++number_;
      DecodePacket(packet, 0);
    }
  }

  void DecodeStream() {
    Progress progress(environment_);
    LineReader lines(environment_.in, [this] { output_.Flush(); });
    source_ = "standard input:";
    std::string_view line;
    while (output_.EndRecord() && lines.Next(line)) {
      number_ = lines.Number();
      json_.reset();
      if (pattern_) pattern_->Forget();
      if (lines.IsTooLong()) {
        RecordError("too long line", 0, fmt::format("expected a line of at most {} bytes", kMaxLineBytes));
      } else if (line.find_first_not_of(kBlanks) != std::string_view::npos) {
        DecodeLine(line);
      }
      progress.Update(lines, problems_);
    }
    progress.Clear();
  }

  // Ends the results.
  ExitCode Finish() {
    if (hasTables_) output_.Text() += kTableKey;
    output_.Flush();
    const bool isTold = options_.packets.empty() && !options_.quiet && environment_.out.good();
    if (isTold) environment_.err << "dp4: " << tally_.Text(number_) << '\n';
    return problems_ == 0 ? kFine : kProblems;
  }

 private:
  static constexpr const char* kBlanks = " \t\r\n\v\f";
  static constexpr size_t kCommands = 32;

  static FormOptions FormOptionsOf(const DecodeOptions& options) {
    return {options.items, options.only, options.color};
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

  const std::vector<LineGroup>& Groups() const {
    static const std::vector<LineGroup> kNone;
    return pattern_ ? pattern_->Others() : kNone;
  }

  void DecodeLine(std::string_view line) {
    if (pattern_) return DecodeMatch(line);
    const size_t first = line.find_first_not_of(kBlanks);
    const size_t second = line[first] == '{' ? line.find_first_not_of(kBlanks, first + 1) : 0;
    const bool isArray =
        second != std::string_view::npos && std::isxdigit(static_cast<unsigned char>(line[second])) != 0;
    if (line[first] == '{' && !isArray) return DecodeJsonLine(line);
    DecodePacket(line, 0);
  }

  void DecodeMatch(std::string_view line) {
    std::string_view packet;
    if (!pattern_->Match(line, packet)) {
      tally_.AddUnmatched();
      if (options_.strict) Report(0, "does not match --line");
      return;
    }
    for (const LineGroup& group : Groups()) {
      if (group.name == "time" && !group.text.empty()) tally_.AddTime(group.text);
    }
    DecodePacket(packet, packet.data() == nullptr ? 0 : static_cast<size_t>(packet.data() - line.data()));
  }

  void DecodeJsonLine(std::string_view line) {
    HexError error;
    JsonLine parts;
    if (!ReadJsonLine(std::string(line), options_.member, parts, error)) {
      RecordError("no packet", error.column, error.message);
      return;
    }
    json_ = std::move(parts);
    if (!json_->time.empty()) tally_.AddTime(json_->time);
    DecodePacket(json_->packet, json_->before.size() + 1);  // its quotation mark
  }

  // `offset` is the packet's in the line, for messages.
  void DecodePacket(std::string_view text, size_t offset) {
    HexError hexError;
    if (!ParseHex(text, packet_, hexError)) {
      RecordError("no packet", offset + hexError.column, hexError.message);
      if (!pattern_ && !json_) Hint(text);
      return;
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
    tally_.AddPacket(reading);
    if (!reading.failure.empty()) {
      Report(0, reading.failure);
    } else if (options_.strict) {
      for (const Note& note : reading.notes) Report(0, NoteText(note));
    }
    std::string& out = output_.Text();
    const size_t begin = out.size();
    OpenRecord();
    const size_t state = form_->Append(reading, out);
    if (options_.changes && !IsChanged(reading, std::string_view(out).substr(state))) {
      out.resize(begin);
      return;
    }
    if (options_.document == DocumentForm::kTable) hasTables_ = true;
    CloseRecord();
  }

  // Against the last packet of its command; what a device sends is of one kind, whether it was asked or not.
  bool IsChanged(const PacketReading& reading, std::string_view state) {
    std::optional<std::string>& last = states_.at(reading.IsReceived() ? 0 : reading.command % kCommands);
    if (last == state) return false;
    last = state;
    return true;
  }

  void RecordError(const char* kind, size_t column, const std::string& message) {
    tally_.AddError(kind);
    Report(column, message);
    if (options_.document == DocumentForm::kTable) return;
    OpenRecord();
    form_->AppendError(message, output_.Text());
    CloseRecord();
  }

  // What stands before a result.
  void OpenRecord() {
    std::string& out = output_.Text();
    if (options_.document == DocumentForm::kTable) {
      out += (hasTables_ ? "\n" : "") + TitleOf();
    } else if (options_.document == DocumentForm::kCsv) {
      for (const LineGroup& group : Groups()) {
        AppendCsvCell(group.text, out);
        out += ',';
      }
      out += std::to_string(number_) + ',';
    } else if (json_) {
      out += json_->before;
    } else if (pattern_) {
      out += '{';
      for (const LineGroup& group : Groups()) {
        if (group.text.data() == nullptr) continue;
        json::AppendString(group.name, out);
        out += ':';
        json::AppendString(group.text, out);
        out += ',';
      }
      out += "\"packet\":";
    }
  }

  void CloseRecord() {
    std::string& out = output_.Text();
    if (options_.document == DocumentForm::kTable) return;
    if (options_.document == DocumentForm::kCsv) {
      out += '\r';
    } else if (json_) {
      out += json_->after;
    } else if (pattern_) {
      out += '}';
    }
    out += '\n';
  }

  std::string TitleOf() const {
    std::string title = (options_.packets.empty() ? "line " : "packet ") + std::to_string(number_);
    if (json_ && json_->hasOthers) title += " " + json_->before + "..." + json_->after;
    for (const LineGroup& group : Groups()) {
      if (group.text.data() != nullptr) title += " " + Escaped(group.text);
    }
    return title + ": ";
  }

  // At a column, unless it is 0.
  void Report(size_t column, const std::string& message) {
    ++problems_;
    if (environment_.isOutTerminal) output_.Flush();
    environment_.clearProgress();
    environment_.err << "dp4: " << source_ << number_;
    if (column != 0) environment_.err << ':' << column;
    environment_.err << ": " << message << '\n';
  }

  // Once, how to read lines such as this one, which is no packet.
  void Hint(std::string_view line) {
    if (isHinted_ || !options_.packets.empty()) return;
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
  std::optional<LinePattern> pattern_;
  std::optional<JsonLine> json_;  // the line that is decoded, if it is one
  std::optional<LineHints> hints_;
  std::array<std::optional<std::string>, kCommands> states_;  // what the last packet of each command said
  Bytes packet_;                                              // kept for its memory
  Tally tally_;
  const char* source_ = "";
  size_t number_ = 0;  // of the line or packet
  size_t problems_ = 0;
  bool isHinted_ = false;
  bool hasTables_ = false;
};

void CheckOptions(const DecodeOptions& options) {
  const bool isStream = options.packets.empty();
  if (isStream && options.configuration == "-") {
    throw InputError("standard input cannot be both the configuration and the packets");
  }
  if (!isStream && !options.line.empty()) throw InputError("--line is for lines of standard input; expected no PACKET");
  const bool hasItems = options.document == DocumentForm::kFlat || options.document == DocumentForm::kCsv;
  if (options.items && !hasItems) throw InputError("--items is for the documents flat and csv");
}

}  // namespace

int Decode(const DecodeOptions& options, Environment& environment) {
  CheckOptions(options);
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const EntityModel entity = ModelOf(configuration, ChooseEntity(configuration, options.entity));
  Decoder decoder(entity, options, environment);
  if (options.packets.empty()) {
    decoder.DecodeStream();
  } else {
    decoder.DecodeArguments();
  }
  return decoder.Finish();
}

}  // namespace dp4
