#include "LineReader.h"

#include <algorithm>
#include <istream>
#include <utility>

#include "inspect/text/Error.h"

namespace dp4 {

namespace {

constexpr size_t kBufferBytes = 65536;

}  // namespace

LineReader::LineReader(std::istream& in, std::function<void()> beforeWaiting)
    : source_(*in.rdbuf()), beforeWaiting_(std::move(beforeWaiting)), buffer_(kBufferBytes) {}

bool LineReader::Next(std::string& line) {
  line.clear();
  isTooLong_ = false;
  bool isAny = false;
  while (begin_ != end_ || Fill()) {
    isAny = true;
    const auto first = buffer_.begin() + static_cast<std::ptrdiff_t>(begin_);
    const auto last = buffer_.begin() + static_cast<std::ptrdiff_t>(end_);
    const auto lineEnd = std::find(first, last, '\n');
    const auto size = static_cast<size_t>(lineEnd - first);
    if (size > kMaxLineBytes - line.size()) isTooLong_ = true;
    line.append(first, first + static_cast<std::ptrdiff_t>(std::min(size, kMaxLineBytes - line.size())));
    begin_ += size;
    if (lineEnd == last) continue;
    ++begin_;
    break;
  }
  if (isAny) ++number_;
  if (number_ == 1 && line.compare(0, 3, "\xef\xbb\xbf") == 0) line.erase(0, 3);
  return isAny;
}

// Reads the available bytes, and waits only when there are none.
bool LineReader::Fill() {
  try {
    std::streamsize available = source_.in_avail();
    if (available <= 0) {
      beforeWaiting_();
      if (source_.sgetc() == std::streambuf::traits_type::eof()) return false;
      available = std::max<std::streamsize>(source_.in_avail(), 1);
    }
    const auto count = std::min(available, static_cast<std::streamsize>(kBufferBytes));
    begin_ = 0;
    end_ = static_cast<size_t>(std::max<std::streamsize>(source_.sgetn(buffer_.data(), count), 0));
  } catch (const std::ios_base::failure&) {
    throw morvix::inspect::InputError("standard input:" + std::to_string(number_ + 1) + ": cannot be read");
  }
  bytesTaken_ += end_;
  return end_ != 0;
}

}  // namespace dp4
