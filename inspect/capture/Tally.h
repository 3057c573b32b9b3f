// What there was in a capture, for the summary at its end.

#ifndef MORVIX_INSPECT_CAPTURE_TALLY_H
#define MORVIX_INSPECT_CAPTURE_TALLY_H

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "inspect/packets/Reading.h"

namespace morvix::inspect {

class Tally {
 public:
  void AddPacket(MorvixProtocolCommand_4_0 command) { ++packets_[command % kCommands]; }
  void AddNote(NoteKind kind) { ++notes_[static_cast<size_t>(kind)]; }
  void AddError(std::string_view kind);
  void AddUnmatched() { ++unmatched_; }
  void AddTime(std::string_view time);

  // "6 lines, 3 packets (2 notify, 1 write), 1 unmatched, 1 error (1 no packet), 2 notes (2 out-of-range), from
  // 03:15:22 to 03:17:00", escaped.
  std::string Text(size_t lines) const;

 private:
  static constexpr size_t kCommands = 32;

  std::array<size_t, kCommands> packets_{};  // by command
  std::array<size_t, kNoteKinds> notes_{};
  std::map<std::string, size_t, std::less<>> errors_;
  size_t unmatched_ = 0;
  std::string firstTime_;
  std::string lastTime_;
};

}  // namespace morvix::inspect

#endif
