// dp4 decode: received packets to what the application is told, one packet or a stream of them.
//
// Standard input is read when no packets are given: a packet in hexadecimal a line, or a JSON object a line, whose text
// "packet" is replaced by the result. The rest of such a line is kept as it stands, the order of its members and the
// writing of its numbers included; only control characters are escaped. With tables it is told above the table. Empty
// lines are passed over.
//
// A packet that the module does not take has no result; one that it decodes with a warning has what the application
// would be told. Both are reported, and the stream goes on.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>

#include "Commands.h"
#include "DecodeForms.h"
#include "JsonLine.h"
#include "LineReader.h"
#include "Packets.h"
#include "Text.h"

namespace dp4 {

namespace {

const char kTableKey[] = "\nPLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n";

// A line on standard error that tells how far a long stream has come, when people can see it and nothing else.
class Progress {
 public:
  explicit Progress(std::ostream& err) : err_(err), next_(Clock::now() + std::chrono::seconds(1)) {
    isShown_ = isatty(STDERR_FILENO) == 1 && isatty(STDOUT_FILENO) != 1;
    struct stat status = {};
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) total_ = static_cast<size_t>(status.st_size);
  }

  void Update(const LineReader& lines, size_t problems) {
    if (!isShown_ || Clock::now() < next_) return;
    next_ = Clock::now() + std::chrono::milliseconds(250);
    std::string text = std::to_string(lines.Number()) + " lines, " + std::to_string(problems) + " problems";
    if (total_ != 0) text += ", " + std::to_string(std::min<size_t>(100 * lines.BytesTaken() / total_, 100)) + " %";
    err_ << kClear << text << std::flush;
    isOnScreen_ = true;
  }

  void Clear() {
    if (isOnScreen_) err_ << kClear << std::flush;
    isOnScreen_ = false;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr char kClear[] = "\r\x1b[K";

  std::ostream& err_;
  Clock::time_point next_;
  size_t total_ = 0;  // bytes of a file
  bool isShown_ = false;
  bool isOnScreen_ = false;
};

// ---- The command ----

class Decoder {
 public:
  Decoder(const ParsedEntity& entity, const DecodeOptions& options, const CommonOptions& common, std::ostream& out,
          std::ostream& err)
      : entity_(entity),
        form_(MakeForm(options.document, entity, common.color)),
        isTable_(options.document == "table"),
        isFlushed_(isatty(STDOUT_FILENO) == 1),
        log_(common.log),
        out_(out),
        err_(err),
        progress_(err) {}

  void DecodeArguments(const std::vector<std::string>& packets) {
    const auto isByte = [](const std::string& packet) {
      const bool hasPrefix = packet.compare(0, 2, "0x") == 0 || packet.compare(0, 2, "0X") == 0;
      return packet.size() <= (hasPrefix ? 4 : 2);
    };
    if (packets.size() > 1 && std::all_of(packets.begin(), packets.end(), isByte)) {
      throw UsageError("each PACKET is a byte at most; expected quotation marks around a packet with blanks");
    }
    for (size_t i = 0; i < packets.size(); ++i) {
      const std::string place = "packet " + std::to_string(i + 1);
      DecodeHex(packets[i], place, place);
    }
  }

  void DecodeStream(std::istream& in) {
    LineReader lines(in, [this] { out_.flush(); });
    std::string line;
    while (out_ && lines.Next(line)) {
      const std::string place = "standard input:" + std::to_string(lines.Number());
      const std::string title = "line " + std::to_string(lines.Number());
      const size_t first = line.find_first_not_of(" \t\r\n\v\f");
      if (lines.IsTooLong()) {
        Report(place, "expected a line of at most " + std::to_string(kMaxLineBytes) + " bytes");
      } else if (first != std::string::npos && line[first] == '{') {
        DecodeJsonLine(line, place, title);
      } else if (first != std::string::npos) {
        DecodeHex(line, place, title);
      }
      if (isFlushed_) out_.flush();
      progress_.Update(lines, problems_);
    }
    progress_.Clear();
  }

  // Ends the results.
  ExitCode Finish() {
    if (!isFirst_) out_ << kTableKey;
    return problems_ == 0 ? kFine : kProblems;
  }

 private:
  // `column` is what stands before the text in its line.
  std::optional<std::string> ResultOf(const std::string& hex, const std::string& place, size_t column) {
    HexError error;
    if (!ParseHex(hex, packet_, error)) {
      Report(place + ":" + std::to_string(column + error.column), error.message);
      return std::nullopt;
    }
    std::optional<std::string> result = form_->ResultOf(packet_);
    if (!result) {
      Report(place, RefusalText(packet_));
      return result;
    }
    for (const LoggedLine& line : form_->Lines()) {
      Log(line);
      if (line.level == 1) Report(place, FailureText(entity_, packet_, line.text));
    }
    return result;
  }

  void DecodeHex(const std::string& hex, const std::string& place, const std::string& title) {
    const std::optional<std::string> result = ResultOf(hex, place, 0);
    if (!result) return;
    if (isTable_) WriteTitle(title);
    out_ << *result;
  }

  void DecodeJsonLine(const std::string& line, const std::string& place, const std::string& title) {
    JsonLine parts;
    HexError error;
    if (!ReadJsonLine(line, parts, error)) {
      Report(place + ":" + std::to_string(error.column), error.message);
      return;
    }
    std::optional<std::string> result = ResultOf(parts.packet, place, parts.before.size() + 1);
    if (!result) return;
    if (isTable_) {
      WriteTitle(parts.others.empty()
                     ? title
                     : title + " " + WithoutControls(parts.before) + "..." + WithoutControls(parts.after));
      out_ << *result;
      return;
    }
    result->pop_back();  // its line end
    out_ << WithoutControls(parts.before) << *result << WithoutControls(parts.after) << '\n';
  }

  void WriteTitle(const std::string& title) {
    out_ << (isFirst_ ? "" : "\n") << title << ": ";
    isFirst_ = false;
  }

  void Report(const std::string& place, const std::string& message) {
    ++problems_;
    progress_.Clear();
    err_ << "dp4: " << place << ": " << message << '\n';
  }

  void Log(const LoggedLine& line) {
    if (log_ == nullptr) return;
    progress_.Clear();
    *log_ << LogText(line) << '\n';
  }

  const ParsedEntity& entity_;
  std::unique_ptr<Form> form_;
  bool isTable_;
  bool isFlushed_;  // after each line
  std::ostream* log_;
  std::ostream& out_;
  std::ostream& err_;
  Progress progress_;
  std::vector<byte> packet_;  // kept for its memory
  size_t problems_ = 0;
  bool isFirst_ = true;  // no table has been written
};

}  // namespace

int Decode(const DecodeOptions& options, const CommonOptions& common, std::istream& in, std::ostream& out,
           std::ostream& err) {
  if (options.packets.empty() && options.configuration == "-") {
    throw UsageError("standard input cannot be both the configuration and the packets");
  }
  const JsonText configuration = ReadJsonFile(options.configuration);
  const Json::Value& entityJson = ChooseEntity(configuration, common.entity);
  const ParsedEntity entity = ParseEntity(configuration, entityJson, kAllGroups, common.log);
  Decoder decoder(entity, options, common, out, err);
  if (options.packets.empty()) {
    decoder.DecodeStream(in);
  } else {
    decoder.DecodeArguments(options.packets);
  }
  return decoder.Finish();
}

}  // namespace dp4
