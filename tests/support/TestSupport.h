// What nearly every test, fuzzer and benchmark needs: JSON, bytes and files as text, and captured log lines.
//
// Only Cases.h in this folder depends on a test framework. Failures are thrown as std::runtime_error, which fails a
// test and ends a fuzzer.

#ifndef MORVIX_TESTS_SUPPORT_TEST_SUPPORT_H
#define MORVIX_TESTS_SUPPORT_TEST_SUPPORT_H

#include <json/json.h>

#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "Records.h"
#include "host/Logging.h"

using LogLine = LogCapture::Line;
using LogLines = std::vector<LogLine>;

// Those of level 1.
LogLines Warnings(const LogLines& lines);

// The parser's line that skips an attribute because of the member `key`.
LogLine SkipLine(const std::string& key);
// The parser's line about an entity with these members.
LogLine FilterLine(int id, const std::string& name, const std::string& displayName);

// The value of a JSON text; throws when the text is not JSON.
Json::Value ParseJson(const std::string& text);
// The compact text of a value, without a line end.
std::string WriteJson(const Json::Value& value);
// A JSON text as the module reads it, comments included; false when it is not JSON.
bool ParseText(const std::string& text, Json::Value& value);
// The text of a document as a host writes it: one line, with its end.
std::string Written(const Json::Value& document);

// A whole file as text; throws when it cannot be read.
std::string ReadFile(const std::string& path);

// Bytes from hexadecimal digits; blanks between bytes are allowed: "01 0a FF". Throws for anything else.
std::vector<byte> FromHex(const std::string& hex);
// Two lower-case digits a byte, blanks between the bytes: "01 0a ff".
std::string ToHex(const byte* data, size_t size);
std::string ToHex(const std::vector<byte>& bytes);

// A package that is to be decoded; `payload` stays its owner.
MorvixProtocolPackage_4_0 PackageOf(std::vector<byte>& payload);

#endif
