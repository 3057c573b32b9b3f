// Reads lines from a stream of any length in bounded memory.

#ifndef MORVIX_DP4_LINE_READER_H
#define MORVIX_DP4_LINE_READER_H

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace dp4 {

// Longer lines cannot be packets. Without a limit, a stream without line feeds would fill the memory.
constexpr size_t kMaxLineBytes = size_t{1} << 20;

class LineReader {
 public:
  // `beforeWaiting` is called before each read that may block.
  LineReader(std::istream& in, std::function<void()> beforeWaiting);

  // The next line, cut at the limit, the first without a byte-order mark; false at the end. Throws InputError when the
  // stream cannot be read.
  bool Next(std::string& line);

  bool IsTooLong() const { return isTooLong_; }
  size_t Number() const { return number_; }
  size_t BytesTaken() const { return bytesTaken_; }

 private:
  bool Fill();

  std::streambuf& source_;
  std::function<void()> beforeWaiting_;
  std::vector<char> buffer_;
  size_t begin_ = 0;  // start of the unread part of the buffer
  size_t end_ = 0;
  size_t number_ = 0;
  size_t bytesTaken_ = 0;
  bool isTooLong_ = false;
};

}  // namespace dp4

#endif
