#include "inspect/capture/Tally.h"

#include <fmt/format.h>

#include <vector>

#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

// Counts of one noun by kind.
class Counts {
 public:
  void Add(size_t count, std::string_view kind) {
    if (count == 0) return;
    sum_ += count;
    parts_.push_back(fmt::format("{} {}", count, kind));
  }

  size_t Sum() const { return sum_; }

  // ", 3 notes (2 short, 1 surplus)"
  std::string Text(std::string_view noun) const {
    std::string text = ", " + Count(sum_, noun);
    if (sum_ != 0) text += fmt::format(" ({})", fmt::join(parts_, ", "));
    return text;
  }

 private:
  size_t sum_ = 0;
  std::vector<std::string> parts_;
};

}  // namespace

void Tally::AddError(std::string_view kind) {
  const auto found = errors_.find(kind);
  if (found != errors_.end()) {
    ++found->second;
  } else {
    errors_.emplace(kind, 1);
  }
}

void Tally::AddTime(std::string_view time) {
  if (firstTime_.empty()) firstTime_ = time;
  lastTime_ = time;
}

std::string Tally::Text(size_t lines) const {
  Counts packets;
  Counts errors;
  Counts notes;
  for (size_t i = 0; i < kCommands; ++i) {
    if (packets_[i] != 0) packets.Add(packets_[i], CommandName(static_cast<uint32_t>(i)));
  }
  for (const auto& [kind, count] : errors_) errors.Add(count, kind);
  for (size_t i = 0; i < kNoteKinds; ++i) notes.Add(notes_[i], NoteName(static_cast<NoteKind>(i)));
  std::string text = Count(lines, "line") + packets.Text("packet");
  if (unmatched_ != 0) text += fmt::format(", {} unmatched", unmatched_);
  if (errors.Sum() != 0) text += errors.Text("error");
  if (notes.Sum() != 0) text += notes.Text("note");
  if (!firstTime_.empty()) text += fmt::format(", from {} to {}", Escaped(firstTime_), Escaped(lastTime_));
  return text;
}

}  // namespace morvix::inspect
