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
  std::mutex mutex;  // guards current; not held while a sink is at work
  std::shared_ptr<const LogSink> current = std::make_shared<const LogSink>();

  static Sink& Instance() {
    static Sink& sink = *new Sink;
    return sink;
  }
};

std::string EscapeControlCharacters(const std::string& text) {
  static const char kHexDigits[] = "0123456789abcdef";
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    switch (c) {
      case '\\':
        escaped += "\\\\";
        break;
      case '\n':
        escaped += "\\n";
        break;
      case '\r':
        escaped += "\\r";
        break;
      case '\t':
        escaped += "\\t";
        break;
      default:
        if (code < 0x20 || code == 0x7f) {
          escaped += {'\\', 'x', kHexDigits[code >> 4], kHexDigits[code & 0x0f]};
        } else {
          escaped += c;
        }
    }
  }
  return escaped;
}

void WriteToStandardError(int level, const char* functionName, const std::string& message) {
  std::string line = "[" + std::to_string(level) + "] ";
  if (functionName != nullptr) line += EscapeControlCharacters(functionName) + ": ";
  line += EscapeControlCharacters(message);
  line += '\n';
  // One call, so that lines of several threads do not mix.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string FormatMessage(const char* format, va_list arguments) {
  char buffer[256];
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  std::string message;
  if (length < 0) {
    message = format;  // an argument that cannot be printed; the format still tells what happened
  } else if (static_cast<size_t>(length) < sizeof buffer) {
    message.assign(buffer, static_cast<size_t>(length));
  } else {
    message.resize(static_cast<size_t>(length));
    std::vsnprintf(message.data(), message.size() + 1, format, again);
  }
  va_end(again);
  return message;
}

void Log(int level, const char* functionName, const char* format, va_list arguments) noexcept {
  try {
    const std::string message = FormatMessage(format, arguments);
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
    // Logging never fails in a way that its caller sees.
  }
}

}  // namespace

void logMsg(int level, const char* format, ...) {
  if (level > maxLevel.load(std::memory_order_relaxed)) return;
  va_list arguments;
  va_start(arguments, format);
  Log(level, nullptr, format, arguments);
  va_end(arguments);
}

void logMsgEx(int level, const char* functionName, const char* format, ...) {
  if (level > maxLevel.load(std::memory_order_relaxed)) return;
  va_list arguments;
  va_start(arguments, format);
  Log(level, functionName, format, arguments);
  va_end(arguments);
}

LogSink SetLogSink(LogSink sink) {
  auto next = std::make_shared<const LogSink>(std::move(sink));
  Sink& shared = Sink::Instance();
  const std::lock_guard<std::mutex> lock(shared.mutex);
  shared.current.swap(next);
  return *next;
}

int SetLogLevel(int level) { return maxLevel.exchange(level); }
