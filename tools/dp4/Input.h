// What the commands share for reading: files, JSON with places, product configurations and their entities.

#ifndef MORVIX_DP4_INPUT_H
#define MORVIX_DP4_INPUT_H

#include <json/value.h>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"

namespace dp4 {

// Exit codes of the tool.
enum ExitCode { kFine = 0, kProblems = 1, kUnusable = 2 };

// Arguments or files that cannot be used; what() names the file, the place and what was expected. Ends the tool with
// kUnusable.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A line and column of a text, both counted from 1.
struct Place {
  size_t line = 1;
  size_t column = 1;
};

// A file in messages: its path, or "standard input" for "-".
std::string FileName(const std::string& path);

// "FILE:LINE:COLUMN".
std::string PlaceName(const std::string& path, const Place& place);

// A JSON text with its value; the place of each value in it is known.
struct JsonText {
  std::string path;  // "-" for standard input
  std::string text;
  Json::Value root;

  // Where `value`, which is part of `root`, begins: "FILE:LINE:COLUMN".
  std::string NameOf(const Json::Value& value) const;
  std::string NameOf(size_t offset) const;

  mutable std::vector<size_t> lineStarts;  // found when a place is first asked for
};

// The whole of a file, or of standard input for "-", without a byte-order mark. Throws UsageError, also when it is
// longer than 64 MiB.
std::string ReadWholeFile(const std::string& path);

// What is wrong with a text that is not JSON: one line of text and its place.
struct JsonError {
  Place place;
  std::string message;
};

// The first problem of a report of JsonCpp's reader.
JsonError FirstError(const std::string& report);

// Reads JSON as the module does: comments are allowed, nesting is limited. Nothing may follow the value. False with
// `error` set when it is none.
bool ParseJsonText(const std::string& text, Json::Value& value, JsonError& error);

// Whether a number is written as JSON allows. JsonCpp reads more: leading zeros, a point without digits behind it, a
// lone minus.
bool IsJsonNumber(const std::string& text);

// Reads a JSON file. Throws UsageError, which for a text that is not JSON reads "FILE:LINE:COLUMN: not JSON: ...".
JsonText ReadJsonFile(const std::string& path);

// The entity of a configuration that `choice` names by its name or else its id; an empty choice is for the only one.
// Throws UsageError.
const Json::Value& ChooseEntity(const JsonText& configuration, const std::string& choice);

// One log line of the module.
struct LoggedLine {
  int level;
  std::string function;  // empty for the lines without one
  std::string text;
};

// An entity as the module's parser gives it for one set of groups. The parser's log lines go to `log` unless that is
// null. Throws UsageError with the parser's own warning when the entity is unusable.
struct ParsedEntity {
  MorvixProtocolEntity_4_0 info;
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  std::vector<LoggedLine> lines;  // the parser's
};
ParsedEntity ParseEntity(const JsonText& configuration, const Json::Value& entity, int matchTypes, std::ostream* log);

constexpr int kWritable = MorvixProtocolTypeStatusWritable_4_0;
constexpr int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                           MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;

// "[level] function: text", escaped.
std::string LogText(const LoggedLine& line);

// While it lives, gathers the module's log lines of all levels on their way to nobody else, unless `echo` is set, which
// then gets the LogText of each. The previous sink and level come back at its end.
class LogGatherer {
 public:
  explicit LogGatherer(std::ostream* echo = nullptr);
  ~LogGatherer();
  LogGatherer(const LogGatherer&) = delete;
  LogGatherer& operator=(const LogGatherer&) = delete;

  // The lines since the last call.
  std::vector<LoggedLine> Take();

 private:
  struct State;
  State* state_;
};

// A package that releases its buffers.
struct OwnedPackage : MorvixProtocolPackage_4_0 {
  OwnedPackage() = default;
  ~OwnedPackage();
  OwnedPackage(const OwnedPackage&) = delete;
  OwnedPackage& operator=(const OwnedPackage&) = delete;

  std::vector<byte> Payload() const { return {value, value + sizeValue}; }
};

// Adjacent bits of a payload, counted from 0, the most significant bit of byte 0, as a reader of a bit map sees them.
struct BitRange {
  uint64_t begin = 0;
  uint64_t end = 0;  // the first one behind them

  bool operator==(const BitRange& other) const { return begin == other.begin && end == other.end; }
  bool IsEmpty() const { return begin == end; }
  uint64_t Length() const { return end - begin; }
  size_t FirstByte() const { return static_cast<size_t>(begin / 8); }
  size_t EndByte() const { return static_cast<size_t>((end + 7) / 8); }
};

// The payload bits that a field of the module takes, found by having the module write them; the value's highest bit is
// the first. Empty for a field that the module cannot write at `payloadLength`.
BitRange FieldBits(const MorvixProtocolPosition_4_0& position, MorvixProtocolDataType_4_0 dataType,
                   size_t payloadLength);

// The length of the payload in bytes that the module uses for these attributes; nothing when there is no memory for so
// many.
std::optional<size_t> PayloadLength(const std::vector<MorvixProtocolAttribute_4_0>& attributes);

// The flag bytes that the module makes for so many writable attributes.
size_t FlagBytes(size_t attributes);

const char* GroupName(MorvixProtocolType_4_0 group);            // "writable", "read-only", "alert", "fault"
const char* DataTypeName(MorvixProtocolDataType_4_0 dataType);  // "bool", "enum", "binary", "uint8" ...

// What the module makes of a raw value of this number: its text in user units, or an empty text when it refuses.
std::string UserText(const MorvixProtocolAttribute_4_0& number, uint64_t raw);

// A number of user units as the module prints it: six decimals without trailing zeros.
std::string NumberText(double number);

}  // namespace dp4

#endif
