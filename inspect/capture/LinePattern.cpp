#include "inspect/capture/LinePattern.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "inspect/packets/Packet.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

// A date with a time of day, a time of day, or seconds: with a fraction, or so many that they count from 1970. Anything
// less, such as two digits and a blank, could be the beginning of the packet. Kernels fill seconds in brackets up with
// blanks.
const char kTimestamp[] =
    R"((?:[\[(]\s*)?(?P<time>(?:(?:\d{4}[-/.]\d{1,2}[-/.]\d{1,2}|\d{1,2}[-/.]\d{1,2}[-/.]\d{4})"
    R"(|[A-Z][a-z]{2} [ \d]\d)[T ]\s*)?)"
    R"(\d{1,2}:\d\d(?::\d\d)?(?:\.\d+|,(?:\d{3}|\d{6}|\d{9}))?(?: ?[AP]M)?(?: ?(?:Z|UTC|[-+]\d\d:?\d\d))?)"
    R"(|\d+\.\d+|\d{9,})[\])]?(?:\s*[;|]\s*|[:,]?\s+))";

const char kPacketToEnd[] = R"((?P<packet>\{?\s*[0-9A-Fa-f][0-9A-Fa-fxX:, \t]*\}?)\s*$)";

const std::vector<std::string>& ReadyMade() {
  static const std::vector<std::string> kNames = {"time", "direction", "candump"};
  return kNames;
}

std::string PatternOf(const std::string& choice) {
  const std::string timestamp = kTimestamp;
  if (choice == "time") return R"(^\s*)" + timestamp + kPacketToEnd;
  if (choice == "direction") {
    return R"(^\s*(?:)" + timestamp + R"()?(?P<direction><-|->|<|>|(?i:RX|TX))(?:\s*[;|]\s*|[:,]?\s*))" + kPacketToEnd;
  }
  if (choice == "candump") {
    return R"(^\s*(?:\((?P<time>[^)]*)\)\s+)?(?P<interface>[^\s#]+)\s+(?:(?P<direction>[RT]X)\s+\S+\s+\S+\s+)?)"
           R"((?P<id>[0-9A-Fa-f]{3,8})(?:##[0-9A-Fa-f]|#|\s+\[(?P<announced>\d{1,9})\]\s+)(?P<packet>[0-9A-Fa-f]{2}[0-9A-Fa-f ]*?))"
           R"((?:\s+'.*'|\s+[RT])?\s*$)";
  }
  return choice;
}

bool IsPacket(std::string_view text, size_t leastBytes) {
  Bytes bytes;
  HexError error;
  return ParseHex(text, bytes, error) && bytes.size() >= leastBytes && CommandName(bytes[0]) != nullptr;
}

}  // namespace

LinePattern::LinePattern(const std::string& pattern) {
  RE2::Options options;
  options.set_log_errors(false);
  expression_ = std::make_unique<RE2>(PatternOf(pattern), options);
  if (!expression_->ok()) {
    throw InputError(fmt::format("--line {}: not a pattern: {}", Escaped(pattern), Escaped(expression_->error())));
  }
  if (expression_->NamedCapturingGroups().size() != expression_->CapturingGroupNames().size()) {
    throw InputError(fmt::format("--line {}: expected groups of different names", Escaped(pattern)));
  }
  for (const auto& [index, name] : expression_->CapturingGroupNames()) {
    if (name == "packet") {
      packetIndex_ = index;
    } else if (name == "announced" && Contains(ReadyMade(), pattern)) {
      announcedIndex_ = index;
    } else {
      others_.push_back({name, {}});
      indices_.push_back(index);
    }
  }
  if (packetIndex_ == 0) {
    throw InputError(
        fmt::format("--line {}: expected time, direction, candump or a pattern with a group (?P<packet>...){}",
                    Escaped(pattern), DidYouMean(pattern, ReadyMade())));
  }
  matches_.resize(static_cast<size_t>(expression_->NumberOfCapturingGroups()) + 1);
}

bool LinePattern::Match(std::string_view line, std::string_view& packet) {
  const auto textOf = [](const re2::StringPiece& piece) { return std::string_view(piece.data(), piece.size()); };
  const re2::StringPiece text(line.data(), line.size());
  const RE2& expression = IsUtf8(line) ? *expression_ : Bytewise();
  if (!expression.Match(text, 0, text.size(), RE2::UNANCHORED, matches_.data(), static_cast<int>(matches_.size()))) {
    return false;
  }
  packet = textOf(matches_[static_cast<size_t>(packetIndex_)]);
  for (size_t i = 0; i < others_.size(); ++i) others_[i].text = textOf(matches_[static_cast<size_t>(indices_[i])]);
  return true;
}

// RE2 matches nothing to a byte that is not UTF-8, and would begin the match after it.
const RE2& LinePattern::Bytewise() {
  if (bytewise_ == nullptr) {
    RE2::Options options = expression_->options();
    options.set_encoding(RE2::Options::EncodingLatin1);
    bytewise_ = std::make_unique<RE2>(expression_->pattern(), options);
  }
  return bytewise_->ok() ? *bytewise_ : *expression_;
}

std::optional<size_t> LinePattern::AnnouncedBytes() const {
  const re2::StringPiece& text = matches_[static_cast<size_t>(announcedIndex_)];
  if (announcedIndex_ == 0 || text.empty()) return std::nullopt;
  size_t bytes = 0;
  std::from_chars(text.data(), text.data() + text.size(), bytes);
  return bytes;
}

void LinePattern::Forget() {
  for (LineGroup& group : others_) group.text = {};
}

LineHints::LineHints() {
  for (const std::string& name : ReadyMade()) readyMade_.emplace_back(name, LinePattern(name));
}

std::string LineHints::HintFor(std::string_view line) {
  constexpr size_t kMostStarts = 32;
  std::string_view packet;
  for (auto& [name, pattern] : readyMade_) {
    if (pattern.Match(line, packet) && IsPacket(packet, 1)) return "--line " + name + " reads such lines";
  }
  size_t at = 0;
  for (size_t i = 0; i < kMostStarts; ++i) {
    at = line.find_first_of(" \t#=;|)]>,:", at);
    if (at == std::string_view::npos) break;
    if (IsPacket(line.substr(++at), 2))
      return "--line with a pattern reads lines that have something before the packet";
  }
  return "";
}

}  // namespace morvix::inspect
