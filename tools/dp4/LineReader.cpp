#include "LineReader.h"

#include <algorithm>
#include <cstring>
#include <istream>
#include <utility>

#include "inspect/text/Error.h"

namespace dp4 {

namespace {

constexpr size_t kBufferBytes = 65536;

}  // namespace

LineReader::LineReader(std::istream& in, std::function<void()> beforeWaiting)
    : source_(*in.rdbuf()), beforeWaiting_(std::move(beforeWaiting)), buffer_(kBufferBytes) {}

bool LineReader::Next(std::string_view& line) {
  line = {};
  joined_.clear();
  isTooLong_ = false;
  bool isAny = false;
  for (bool isEnd = false; !isEnd && (begin_ != end_ || Fill()); isAny = true) {
    const char* first = buffer_.data() + begin_;
    const auto* lineEnd = static_cast<const char*>(std::memchr(first, '\n', end_ - begin_));
    isEnd = lineEnd != nullptr;
    const size_t size = isEnd ? static_cast<size_t>(lineEnd - first) : end_ - begin_;
    begin_ += size + (isEnd ? 1 : 0);
    if (isEnd && !isAny) {
      isTooLong_ = size > kMaxLineBytes;
      line = {first, std::min(size, kMaxLineBytes)};
    } else {
      if (size > kMaxLineBytes - joined_.size()) isTooLong_ = true;
      joined_.append(first, std::min(size, kMaxLineBytes - joined_.size()));
      line = joined_;
    }
  }
  if (isAny) ++number_;
  if (number_ == 1 && line.substr(0, 3) == "\xef\xbb\xbf") line.remove_prefix(3);
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
