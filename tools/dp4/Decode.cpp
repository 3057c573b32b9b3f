// dp4 decode: decodes received packets, given as arguments or as a stream.
//
// Standard input is read when no packets are given. Each line is a packet in hexadecimal, or a JSON object whose string
// "packet" is replaced by the result. The rest of such a line is kept unchanged, with the order of its members and the
// spelling of its numbers; only control characters are escaped. A table shows the rest in its title. Empty lines are
// skipped.
//
// A packet that the module refuses has no result. A packet that it decodes with a warning has the result that the
// application would get. Both are reported, and the stream continues.

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <istream>
#include <memory>
#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "LineReader.h"
#include "inspect/capture/JsonLine.h"
#include "inspect/packets/Reading.h"
#include "inspect/packets/ResultForms.h"
#include "inspect/text/Error.h"

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

std::unique_ptr<ResultForm> MakeForm(const EntityModel& entity, const DecodeOptions& options) {
  if (options.document == DocumentForm::kDecoded) return DecodedForm(entity);
  if (options.document == DocumentForm::kTable) return TableForm(entity, options.color);
  return FlatForm(entity);
}

// The name of a packet's source in messages and titles.
struct Source {
  std::string place;
  std::string title;
};

class Decoder {
 public:
  Decoder(const EntityModel& entity, const DecodeOptions& options, Environment& environment)
      : environment_(environment),
        form_(MakeForm(entity, options)),
        isTable_(options.document == DocumentForm::kTable) {}

  void DecodeArguments(const std::vector<std::string>& packets) {
    const auto isByte = [](const std::string& packet) {
      const bool hasPrefix = packet.compare(0, 2, "0x") == 0 || packet.compare(0, 2, "0X") == 0;
      return packet.size() <= (hasPrefix ? 4 : 2);
    };
    if (packets.size() > 1 && std::all_of(packets.begin(), packets.end(), isByte)) {
      throw InputError("each PACKET is a byte at most; expected quotation marks around a packet with blanks");
    }
    for (size_t i = 0; i < packets.size(); ++i) {
      const std::string place = fmt::format("packet {}", i + 1);
      DecodePacket({false, "", packets[i], ""}, {place, place});
    }
  }

  void DecodeStream() {
    Progress progress(environment_);
    LineReader lines(environment_.in, [this] { environment_.out.flush(); });
    std::string line;
    while (environment_.out && lines.Next(line)) {
      const Source source = {fmt::format("standard input:{}", lines.Number()), fmt::format("line {}", lines.Number())};
      const size_t first = line.find_first_not_of(" \t\r\n\v\f");
      if (lines.IsTooLong()) {
        Report(source.place, fmt::format("expected a line of at most {} bytes", kMaxLineBytes));
      } else if (first != std::string::npos && line[first] == '{') {
        DecodeJsonLine(line, source);
      } else if (first != std::string::npos) {
        DecodePacket({false, "", line, ""}, source);
      }
      if (environment_.isOutTerminal) environment_.out.flush();
      progress.Update(lines, problems_);
    }
    progress.Clear();
  }

  // Completes the output.
  ExitCode Finish() {
    if (!isFirst_) environment_.out << kTableKey;
    return problems_ == 0 ? kFine : kProblems;
  }

 private:
  void DecodeJsonLine(const std::string& line, const Source& source) {
    JsonLine parts;
    HexError error;
    if (ReadJsonLine(line, parts, error)) {
      DecodePacket(parts, source);
    } else {
      Report(fmt::format("{}:{}", source.place, error.column), error.message);
    }
  }

  // `parts` has empty surroundings when the packet is not part of a JSON line.
  void DecodePacket(const JsonLine& parts, const Source& source) {
    HexError error;
    if (!ParseHex(parts.packet, packet_, error)) {
      const size_t column = error.column + (parts.before.empty() ? 0 : parts.before.size() + 1);  // its quotation mark
      return Report(fmt::format("{}:{}", source.place, column), error.message);
    }
    const std::string refusal = RefusalOf(packet_);
    if (!refusal.empty()) return Report(source.place, refusal);
    std::string failure;
    std::string result = form_->ResultOf(packet_, failure);
    if (!failure.empty()) Report(source.place, failure);
    if (isTable_) {
      const std::string others = parts.hasOthers ? fmt::format(" {}...{}", parts.before, parts.after) : "";
      environment_.out << (isFirst_ ? "" : "\n") << source.title << others << ": " << result;
      isFirst_ = false;
    } else {
      result.pop_back();  // its line end
      environment_.out << parts.before << result << parts.after << '\n';
    }
  }

  void Report(const std::string& place, const std::string& message) {
    ++problems_;
    environment_.clearProgress();
    environment_.err << "dp4: " << place << ": " << message << '\n';
  }

  Environment& environment_;
  const std::unique_ptr<ResultForm> form_;
  const bool isTable_;
  Bytes packet_;  // kept for its memory
  size_t problems_ = 0;
  bool isFirst_ = true;  // no table has been written
};

}  // namespace

int Decode(const DecodeOptions& options, Environment& environment) {
  if (options.packets.empty() && options.configuration == "-") {
    throw InputError("standard input cannot be both the configuration and the packets");
  }
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const EntityModel entity = ModelOf(configuration, ChooseEntity(configuration, options.entity));
  Decoder decoder(entity, options, environment);
  if (options.packets.empty()) {
    decoder.DecodeStream();
  } else {
    decoder.DecodeArguments(options.packets);
  }
  return decoder.Finish();
}

}  // namespace dp4
