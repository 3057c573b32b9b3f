// What the page calls in the WebAssembly: texts go in and out through its memory.

#include <cstddef>
#include <string>

#include "Ask.h"

extern "C" {

// The answer to `size` bytes of a request, valid until the next call.
__attribute__((visibility("default"))) const char* studio_ask(const char* request, size_t size);

// The bytes of the last answer.
__attribute__((visibility("default"))) size_t studio_size();
}

namespace {

std::string answer;

}  // namespace

const char* studio_ask(const char* request, size_t size) {
  answer = morvix::studio::Ask(std::string(request, size));
  return answer.data();
}

size_t studio_size() { return answer.size(); }
