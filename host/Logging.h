/// @file
/// The logging service that the protocol module calls, with a replaceable sink.
///
/// Levels: 1 is a warning or failure, 2 is information. All functions may be called from several threads at once, and
/// the logging calls neither fail nor throw.

#ifndef MORVIX_HOST_LOGGING_H
#define MORVIX_HOST_LOGGING_H

#include <functional>
#include <string>
#include <vector>

/// Logs one printf-style line. Messages may have any length.
void logMsg(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Logs one printf-style line on behalf of the operation `functionName`.
void logMsgEx(int level, const char* functionName, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// Receives every line that passes the level: its level, the reporting operation (null for logMsg) and its text. It may
/// be called on several threads at once, and may itself log or replace the sink. What it throws is ignored.
using LogSink = std::function<void(int level, const char* functionName, const std::string& message)>;

/// Replaces the sink and returns the previous one, which may still be running on other threads. An empty sink means
/// the default one: a line "[level] functionName: message" on standard error, with control characters and
/// backslashes escaped, so that strings of a configuration cannot forge a line or send escape sequences to a UTF-8
/// terminal.
LogSink SetLogSink(LogSink sink);

/// Lines of a higher level than this are dropped before they are formatted. Returns the previous level. 1 by default.
int SetLogLevel(int level);

/// While a capture exists, it receives the lines of its thread, of any level, instead of the sink. Lines of other
/// threads are not affected. Captures may be nested: the innermost one gets the lines. Destroy a capture on the thread
/// that created it, the innermost one first.
class LogCapture {
 public:
  /// One line.
  struct Line {
    int level = 0;         ///< As it was logged.
    std::string function;  ///< The reporting operation; empty for logMsg.
    std::string text;      ///< The message.
  };

  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The lines so far, in order. Valid until the next line or call.
  const std::vector<Line>& Lines() const { return lines_; }

  /// Returns the lines so far and removes them from the capture.
  std::vector<Line> Take();

 private:
  std::vector<Line> lines_;
  std::vector<Line>* const outerLines_;  // of the capture around this one, or null
};

#endif
