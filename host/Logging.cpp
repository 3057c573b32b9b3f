#include "host/Logging.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>

namespace {

std::atomic<int> maxLevel{1};

// Never destroyed, so that lines logged while the process ends still have a sink.
struct Sink {
  std::mutex mutex;  // guards current; not held while a sink runs
  std::shared_ptr<const LogSink> current = std::make_shared<const LogSink>();

  static Sink& Instance() {
    static Sink& sink = *new Sink;
    return sink;
  }
};

// For control characters above ASCII, which are two bytes in UTF-8, true for the second byte.
bool IsControlCharacter(unsigned char previous, unsigned char code) {
  return code < 0x20 || code == 0x7f || (previous == 0xc2 && code >= 0x80 && code < 0xa0);
}

std::string EscapeControlCharacters(const std::string& text) {
  static const char kHexDigits[] = "0123456789abcdef";
  std::string escaped;
  escaped.reserve(text.size());
  unsigned char previous = 0;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '\n') {
      escaped += "\\n";
    } else if (c == '\r') {
      escaped += "\\r";
    } else if (c == '\t') {
      escaped += "\\t";
    } else if (IsControlCharacter(previous, code)) {
      escaped += {'\\', 'x', kHexDigits[code >> 4], kHexDigits[code & 0x0f]};
    } else {
      escaped += c;
    }
    previous = code;
  }
  return escaped;
}

void WriteToStandardError(int level, const char* functionName, const std::string& message) {
  std::string line = "[" + std::to_string(level) + "] ";
  if (functionName != nullptr) line += EscapeControlCharacters(functionName) + ": ";
  line += EscapeControlCharacters(message);
  line += '\n';
  // One call, so that lines of several threads do not mix.
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

std::string FormatMessage(const char* format, va_list arguments) {
  char buffer[256];
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer, sizeof buffer, format, again);
  va_end(again);
  if (length < 0) return format;  // an argument cannot be printed; the format is still useful
  const auto size = static_cast<size_t>(length);
  if (size < sizeof buffer) return std::string(buffer, size);
  std::string message(size, '\0');
  static_cast<void>(std::vsnprintf(message.data(), size + 1, format, arguments));
  return message;
}

// The lines of the calling thread's innermost capture; null when they go to the sink.
thread_local std::vector<LogCapture::Line>* capturedLines = nullptr;

bool IsDropped(int level) { return level > maxLevel.load(std::memory_order_relaxed) && capturedLines == nullptr; }

void Log(int level, const char* functionName, const char* format, va_list arguments) noexcept {
  try {
    std::string message = FormatMessage(format, arguments);
    if (capturedLines != nullptr) {
      capturedLines->push_back({level, functionName == nullptr ? "" : functionName, std::move(message)});
      return;
    }
    std::shared_ptr<const LogSink> sink;
    {
      Sink& shared = Sink::Instance();
      const std::lock_guard<std::mutex> lock(shared.mutex);
      sink = shared.current;
    }
    if (*sink) {
      (*sink)(level, functionName, message);
    } else {
      WriteToStandardError(level, functionName, message);
    }
  } catch (...) {
    // Logging never fails into its caller.
  }
}

}  // namespace

// NOLINTNEXTLINE(cert-dcl50-cpp): C-style variadic is how the module calls it; compilers check the format
void logMsg(int level, const char* format, ...) {
  if (IsDropped(level)) return;
  va_list arguments;
  va_start(arguments, format);
  Log(level, nullptr, format, arguments);
  va_end(arguments);
}

// NOLINTNEXTLINE(cert-dcl50-cpp): as logMsg
void logMsgEx(int level, const char* functionName, const char* format, ...) {
  if (IsDropped(level)) return;
  va_list arguments;
  va_start(arguments, format);
  Log(level, functionName, format, arguments);
  va_end(arguments);
}

LogSink SetLogSink(LogSink sink) {
  auto other = std::make_shared<const LogSink>(std::move(sink));
  Sink& shared = Sink::Instance();
  {
    const std::lock_guard<std::mutex> lock(shared.mutex);
    shared.current.swap(other);
  }
  return *other;
}

int SetLogLevel(int level) { return maxLevel.exchange(level); }

LogCapture::LogCapture() : outerLines_(capturedLines) { capturedLines = &lines_; }

LogCapture::~LogCapture() { capturedLines = outerLines_; }

std::vector<LogCapture::Line> LogCapture::Take() { return std::exchange(lines_, {}); }
