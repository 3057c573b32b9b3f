// Base64 in both directions: the input is encoded as bytes and decoded as text. Its first two bytes choose a capacity
// near the required size.

#include <algorithm>
#include <string>

#include "Guarded.h"
#include "Support.h"
#include "host/Base64.h"

namespace {

using fuzz::Guarded;

std::string Encoded(const fuzz::Bytes& bytes, size_t capacity) {
  Guarded buffer(capacity);
  const char* text =
      __internal_base64_encode(buffer.Characters(), static_cast<uint32_t>(capacity), bytes.data(), bytes.size());
  buffer.Content();
  if (capacity != 0 && text != buffer.Characters()) fuzz::Fail("the text is where it was asked for", fuzz::Show(bytes));
  return text;
}

fuzz::Bytes Decoded(const std::string& text, size_t capacity) {
  Guarded buffer(capacity);
  const int written = __internal_base64_decode(buffer.Data(), text.c_str(), static_cast<uint32_t>(capacity));
  if (written < 0 || static_cast<size_t>(written) > capacity) {
    fuzz::Fail("decoding writes at most its capacity", fuzz::Show(text) + " " + fuzz::Show(written));
  }
  const fuzz::Bytes content = buffer.Content();
  const auto end = content.begin() + written;
  if (std::any_of(end, content.end(), [](byte b) { return b != Guarded::kGuard; })) {
    fuzz::Fail("decoding writes what it says, and no more", fuzz::Show(text) + "\n" + fuzz::Show(content));
  }
  return {content.begin(), end};
}

void CheckBytes(const fuzz::Bytes& bytes, size_t capacity) {
  const size_t needed = (bytes.size() + 2) / 3 * 4 + 1;
  const std::string text = Encoded(bytes, needed);
  fuzz::ExpectEqual(text, model::Base64Text(bytes), "the text is the model's");
  fuzz::ExpectEqual(Decoded(text, bytes.size()), bytes, "decoding gives what was encoded");
  fuzz::ExpectEqual(Decoded(text, bytes.size() + capacity), bytes, "more capacity does not change the result");
  fuzz::ExpectEqual(Encoded(bytes, capacity), capacity < needed ? std::string() : text, "text is complete or empty");
  fuzz::ExpectEqual(Encoded(bytes, needed - 1), std::string(), "text needs room for its NUL");
}

void CheckText(const std::string& text, size_t capacity) {
  const fuzz::Bytes whole = Decoded(text, text.size());
  fuzz::ExpectEqual(whole, model::Base64Bytes(text, text.size()), "the bytes are the model's");
  const auto end = whole.begin() + static_cast<std::ptrdiff_t>(std::min(capacity, whole.size()));
  fuzz::ExpectEqual(Decoded(text, capacity), fuzz::Bytes(whole.begin(), end),
                    "a smaller capacity gives the first bytes");
  std::string spaced;
  for (const char c : text) spaced += std::string(1, c) + " \t\n\v\f\r"[spaced.size() % 6];
  fuzz::ExpectEqual(Decoded(spaced, text.size()), whole, "white space is ignored");
  fuzz::ExpectEqual(Decoded(Encoded(whole, 2 * whole.size() + 9), whole.size()), whole, "bytes come back through text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t capacity = (size_t{data[0]} | size_t{data[1]} << 8) % (2 * size + 16);
  CheckBytes(fuzz::Bytes(data + 2, data + size), capacity);
  CheckText(std::string(data + 2, data + size), capacity);
  return 0;
}
