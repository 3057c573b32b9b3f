// What several tests need: captured log lines, JSON and bytes from literals, and packages that release their buffers.

#ifndef MORVIX_TESTS_TEST_SUPPORT_H
#define MORVIX_TESTS_TEST_SUPPORT_H

#include <json/json.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/Logging.h"

using LogLine = LogCapture::Line;

bool operator==(const LogLine& left, const LogLine& right);
std::ostream& operator<<(std::ostream& stream, const LogLine& line);

using LogLines = std::vector<LogLine>;

// Those of level 1.
LogLines Warnings(const LogLines& lines);

// The parser's line that skips an attribute because of the member `key`.
LogLine SkipLine(const std::string& key);
// The parser's line about an entity with these members.
LogLine FilterLine(int id, const std::string& name, const std::string& displayName);

// The value of a JSON text; the test fails when the text is none.
Json::Value ParseJson(const std::string& text);
// The compact text of a value, without a line end.
std::string WriteJson(const Json::Value& value);
// A whole file as text; the test fails when it cannot be read.
std::string ReadFile(const std::string& path);

// Bytes from hexadecimal digits; blanks between bytes are allowed: "01 0a FF".
std::vector<byte> FromHex(const std::string& hex);
// Two lower-case digits a byte, blanks between the bytes: "01 0a ff".
std::string ToHex(const byte* data, size_t size);
std::string ToHex(const std::vector<byte>& bytes);

// A package that releases its buffers at its end. Release() does so earlier.
struct OwnedPackage : MorvixProtocolPackage_4_0 {
  OwnedPackage() = default;
  ~OwnedPackage();
  OwnedPackage(const OwnedPackage&) = delete;
  OwnedPackage& operator=(const OwnedPackage&) = delete;
  void Release();
};

#endif
