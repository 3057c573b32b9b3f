// Lines of a capture that have something around their packet: how it is taken apart.

#ifndef MORVIX_INSPECT_CAPTURE_LINE_PATTERN_H
#define MORVIX_INSPECT_CAPTURE_LINE_PATTERN_H

#include <re2/re2.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace morvix::inspect {

// The part of a line that a named group matched. `text` has no data when the group took no part in the match.
struct LineGroup {
  std::string name;
  std::string_view text;
};

class LinePattern {
 public:
  // One of the ready-made patterns, or a pattern of RE2 that is searched for in each line:
  //
  //   time       a timestamp, then the packet
  //   direction  a timestamp, <, >, <-, ->, RX or TX, then the packet
  //   candump    what candump prints or logs of one frame
  //
  // Throws InputError when it is none of them or has no group (?P<packet>...).
  explicit LinePattern(const std::string& pattern);

  // Whether the line matches. Sets the packet, and the texts of the other groups. In a line that is not UTF-8, each
  // byte is a character.
  bool Match(std::string_view line, std::string_view& packet);

  // The length of the packet that the line of the last match announces, as candump prints it; nothing if it does not.
  std::optional<size_t> AnnouncedBytes() const;

  // Forgets the texts of the last match.
  void Forget();

  // The named groups but the packet, in their order. Their texts are those of the last match, as long as its line
  // lives.
  const std::vector<LineGroup>& Others() const { return others_; }

 private:
  const RE2& Bytewise();

  std::unique_ptr<RE2> expression_;
  std::unique_ptr<RE2> bytewise_;  // for lines that are not UTF-8; made for the first of them
  std::vector<LineGroup> others_;
  std::vector<int> indices_;  // of the others
  int packetIndex_ = 0;
  int announcedIndex_ = 0;  // 0: none
  std::vector<re2::StringPiece> matches_;
};

// What to say about lines that are no packets.
class LineHints {
 public:
  LineHints();

  // How to read a line that seems to end in a packet: "--line time reads such lines", for one. Empty when it does not.
  std::string HintFor(std::string_view line);

 private:
  std::vector<std::pair<std::string, LinePattern>> readyMade_;
};

}  // namespace morvix::inspect

#endif
