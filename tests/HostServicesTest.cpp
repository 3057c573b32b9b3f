// The default host services: logging, base64, lower-casing and the configuration.

#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Cases.h"
#include "Guarded.h"
#include "Maker.h"
#include "TestSupport.h"
#include "host/Base64.h"
#include "host/Logging.h"
#include "host/TavelConfig.h"
#include "host/Text.h"

namespace {

int goodReads = -1;  // how many reads succeed before all others fail; below 0 all of them do

}  // namespace

// Stands in for the C library's, so that a file can fail half-way.
extern "C" ssize_t read(int file, void* buffer, size_t size) {
  if (goodReads == 0) {
    errno = EIO;
    return -1;
  }
  if (goodReads > 0) --goodReads;
  return syscall(SYS_read, file, buffer, size);
}

namespace {

// Every test begins with the default sink and level and leaves those that it found.
class Logging : public testing::Test {
 protected:
  Logging() : previousLevel_(SetLogLevel(1)), previousSink_(SetLogSink(LogSink())) {}
  ~Logging() override {
    SetLogSink(previousSink_);
    SetLogLevel(previousLevel_);
  }

  // Makes the sink one that adds every message to `texts`.
  static void Collect(std::vector<std::string>& texts) {
    SetLogSink([&texts](int, const char*, const std::string& message) { texts.push_back(message); });
  }

  // What the default sink writes for one message of level 1.
  static std::string DefaultLine(const std::string& message) {
    testing::internal::CaptureStderr();
    logMsg(1, "%s", message.c_str());
    return testing::internal::GetCapturedStderr();
  }

  const int previousLevel_;
  const LogSink previousSink_;
};

using Texts = std::vector<std::string>;

}  // namespace

// --- Logging ---

TEST_F(Logging, HandsLevelFunctionAndTextToTheSink) {
  LogLines lines;
  std::vector<bool> named;
  SetLogSink([&](int level, const char* functionName, const std::string& message) {
    named.push_back(functionName != nullptr);
    lines.push_back({level, functionName == nullptr ? "" : functionName, message});
  });
  logMsgEx(1, "Operation", "%s is %i of %lu%%", "this", -1, 2UL);
  logMsg(1, "%c%05.2f", 'x', 1.5);
  logMsgEx(0, "Other", "%s", "");
  EXPECT_EQ(lines, (LogLines{{1, "Operation", "this is -1 of 2%"}, {1, "", "x01.50"}, {0, "Other", ""}}));
  EXPECT_EQ(named, (std::vector<bool>{true, false, true})) << "a line of logMsg has no function name";
}

TEST_F(Logging, LetsOnlyLevelsUpToTheSetOnePass) {
  EXPECT_EQ(previousLevel_, 1) << "the level at first";
  std::vector<int> levels;
  SetLogSink([&levels](int level, const char*, const std::string&) { levels.push_back(level); });
  for (const int limit : {1, 2, 0, -1, INT_MAX, INT_MIN}) {
    SetLogLevel(limit);
    levels.clear();
    std::vector<int> expected;
    for (const int level : {INT_MIN, -2, -1, 0, 1, 2, 3, INT_MAX}) {
      logMsg(level, "line");
      logMsgEx(level, "Operation", "line");
      if (level <= limit) expected.insert(expected.end(), {level, level});
    }
    EXPECT_EQ(levels, expected) << "limit " << limit;
  }
}

TEST_F(Logging, ReturnsThePreviousLevel) {
  EXPECT_EQ(SetLogLevel(2), 1);
  EXPECT_EQ(SetLogLevel(-5), 2);
  EXPECT_EQ(SetLogLevel(1), -5);
}

// %n stores how much has been formatted so far: nothing must be stored for a line that is dropped.
TEST_F(Logging, DropsLinesBeforeFormattingThem) {
  Texts texts;
  Collect(texts);
  int formatted = -1;
  logMsg(2, "four%n", &formatted);
  logMsgEx(2, "Operation", "four%n", &formatted);
  EXPECT_EQ(formatted, -1);
  EXPECT_EQ(texts, Texts{});
  logMsg(1, "four%n", &formatted);
  EXPECT_EQ(formatted, 4);
  EXPECT_EQ(texts, Texts{"four"});
}

TEST_F(Logging, ReturnsThePreviousSink) {
  Texts first;
  Texts second;
  Collect(first);
  const LogSink previous =
      SetLogSink([&second](int, const char*, const std::string& message) { second.push_back(message); });
  logMsg(1, "to the second");
  SetLogSink(previous);
  logMsg(1, "to the first");
  EXPECT_EQ(first, Texts{"to the first"});
  EXPECT_EQ(second, Texts{"to the second"});
}

TEST_F(Logging, GoesBackToTheDefaultSinkForAnEmptyOne) {
  Texts texts;
  Collect(texts);
  SetLogSink(LogSink());
  EXPECT_EQ(DefaultLine("default again"), "[1] default again\n");
  EXPECT_EQ(texts, Texts{});
}

TEST_F(Logging, TakesTheDefaultSinkBack) {
  Texts texts;
  const LogSink defaultSink =
      SetLogSink([&texts](int, const char*, const std::string& message) { texts.push_back(message); });
  SetLogSink(defaultSink);
  EXPECT_EQ(DefaultLine("default again"), "[1] default again\n");
  EXPECT_EQ(texts, Texts{});
}

TEST_F(Logging, KeepsMessagesOfEveryLengthWhole) {
  Texts texts;
  Collect(texts);
  std::vector<size_t> sizes = {100000, 1000003};
  for (size_t power = 1; power <= 65536; power *= 2) sizes.insert(sizes.end(), {power - 1, power, power + 1});
  for (const size_t size : sizes) {
    std::string text(size, 'x');
    for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + i % 90);
    texts.clear();
    logMsg(1, "%s", text.c_str());
    logMsgEx(1, "Operation", "<%s>", text.c_str());
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_TRUE(texts[0] == text) << "size " << size;
    EXPECT_TRUE(texts[1] == "<" + text + ">") << "size " << size;
  }
}

TEST_F(Logging, HandsTheTextOverUnescaped) {
  Texts texts;
  Collect(texts);
  const std::string text = "\n\r\t\x1b[31m \\ \x7f caf\xc3\xa9 \xff";
  logMsg(1, "%s", text.c_str());
  EXPECT_EQ(texts, Texts{text});
}

TEST_F(Logging, HandsTheLinesOfItsThreadToTheCapture) {
  Texts texts;
  Collect(texts);
  {
    LogCapture capture;
    logMsg(2, "info %d", 1);
    logMsgEx(1, "Operation", "warning");
    std::thread([] { logMsg(1, "of another thread"); }).join();
    EXPECT_EQ(capture.Lines(), (LogLines{{2, "", "info 1"}, {1, "Operation", "warning"}}));
    EXPECT_EQ(capture.Take().size(), 2u);
    EXPECT_EQ(capture.Lines(), LogLines());
    SetLogLevel(0);
    logMsg(9, "whatever the level");
    EXPECT_EQ(capture.Lines(), (LogLines{{9, "", "whatever the level"}}));
    SetLogLevel(1);
  }
  logMsg(1, "after it");
  logMsg(2, "below the level");
  EXPECT_EQ(texts, (Texts{"of another thread", "after it"}));
}

TEST_F(Logging, HandsLinesToTheInnermostCapture) {
  const LogCapture outer;
  logMsg(1, "before");
  {
    const LogCapture inner;
    logMsg(1, "inside");
    EXPECT_EQ(inner.Lines(), (LogLines{{1, "", "inside"}}));
  }
  logMsg(1, "after");
  EXPECT_EQ(outer.Lines(), (LogLines{{1, "", "before"}, {1, "", "after"}}));
}

TEST_F(Logging, SwallowsWhatTheSinkThrows) {
  int calls = 0;
  SetLogSink([&calls](int, const char*, const std::string& message) {
    ++calls;
    if (message == "number") throw 7;
    throw std::runtime_error("a sink that fails");
  });
  EXPECT_NO_THROW(logMsg(1, "text"));
  EXPECT_NO_THROW(logMsg(1, "number"));
  EXPECT_NO_THROW(logMsgEx(1, "Operation", "a text that is too long for any small-string buffer"));
  EXPECT_EQ(calls, 3) << "the sink stays in place";
}

TEST_F(Logging, LetsTheSinkLog) {
  Texts texts;
  SetLogSink([&texts](int, const char*, const std::string& message) {
    texts.push_back(message);
    if (message.size() < 4) logMsgEx(1, "Sink", "%s+", message.c_str());
    texts.push_back("end of " + message);
  });
  logMsg(1, "ab");
  EXPECT_EQ(texts, (Texts{"ab", "ab+", "ab++", "end of ab++", "end of ab+", "end of ab"}));
}

// The replaced sink is still running: what it holds must outlive its call.
TEST_F(Logging, LetsTheSinkReplaceItself) {
  Texts first;
  Texts second;
  SetLogSink([&first, &second, held = std::string(100, 'h')](int, const char*, const std::string& message) {
    Collect(second);
    first.push_back(message);
    first.push_back(held);
  });
  logMsg(1, "one");
  logMsg(1, "two");
  EXPECT_EQ(first, (Texts{"one", std::string(100, 'h')}));
  EXPECT_EQ(second, Texts{"two"});
}

TEST_F(Logging, WritesOneLinePerMessageByDefault) {
  testing::internal::CaptureStderr();
  logMsgEx(1, "FunctionName", "text %d", 1);
  SetLogLevel(2);
  logMsg(2, "text %d", 2);
  logMsgEx(0, "F", "%s", "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[1] FunctionName: text 1\n[2] text 2\n[0] F: \n");
}

TEST_F(Logging, WritesNothingByDefaultForDroppedLevels) {
  testing::internal::CaptureStderr();
  logMsg(2, "information");
  logMsgEx(2, "FunctionName", "information");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Logging, EscapesControlCharactersByDefault) {
  EXPECT_EQ(DefaultLine("a\nb"), "[1] a\\nb\n");
  EXPECT_EQ(DefaultLine("a\rb"), "[1] a\\rb\n");
  EXPECT_EQ(DefaultLine("a\tb"), "[1] a\\tb\n");
  EXPECT_EQ(DefaultLine("a\x1b[31mb"), "[1] a\\x1b[31mb\n");
  EXPECT_EQ(DefaultLine("a\x7f"
                        "b"),
            "[1] a\\x7fb\n");
  EXPECT_EQ(DefaultLine("x\n[1] Forged: line"), "[1] x\\n[1] Forged: line\n");
  for (int code = 1; code < 32; ++code) {
    if (code == '\n' || code == '\r' || code == '\t') continue;
    const std::string digits = {"0123456789abcdef"[code / 16], "0123456789abcdef"[code % 16]};
    EXPECT_EQ(DefaultLine(std::string(2, static_cast<char>(code))), "[1] \\x" + digits + "\\x" + digits + "\n");
  }
}

TEST_F(Logging, DoublesBackslashesByDefault) {
  EXPECT_EQ(DefaultLine("\\"), "[1] \\\\\n");
  EXPECT_EQ(DefaultLine("\\n and \n"), "[1] \\\\n and \\n\n");
}

TEST_F(Logging, KeepsOtherCharactersByDefault) {
  for (int code = 32; code < 256; ++code) {
    if (code == '\\' || code == 0x7f) continue;
    const std::string text(1, static_cast<char>(code));
    EXPECT_EQ(DefaultLine(text), "[1] " + text + "\n") << "code " << code;
  }
}

TEST_F(Logging, WritesLongLinesWholeByDefault) {
  const std::string text(100000, 'x');
  EXPECT_TRUE(DefaultLine(text) == "[1] " + text + "\n");
  EXPECT_EQ(DefaultLine(std::string(100000, '\n')).size(), 200005u);
}

TEST_F(Logging, EscapesTheControlCharactersAboveAscii) {
  EXPECT_EQ(DefaultLine("a\xc2\x85"
                        "b\xc2\x9b"
                        "c"),
            "[1] a\xc2\\x85"
            "b\xc2\\x9b"
            "c\n");
  const std::string others = "\xc2\xa0 \xc3\x85 \xc5\x9b \xc2 ?";
  EXPECT_EQ(DefaultLine(others), "[1] " + others + "\n");
}

TEST_F(Logging, GivesTheFormatWhereAnArgumentCannotBePrinted) {
  Texts texts;
  Collect(texts);
  logMsg(1, "a wide %lc", static_cast<wint_t>(0x7fffffff));
  EXPECT_EQ(texts, Texts{"a wide %lc"});
}

// --- Base64 ---

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr byte kUnwritten = support::Guarded::kGuard;

std::vector<byte> BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

// Encodes with room for `capacity` characters.
std::string EncodeInto(const std::vector<byte>& bytes, uint32_t capacity) {
  support::Guarded buffer(capacity);
  const char* text = __internal_base64_encode(buffer.Characters(), capacity, bytes.data(), bytes.size());
  EXPECT_EQ(text, buffer.Characters());
  buffer.Content();
  return text;
}

std::string Encode(const std::vector<byte>& bytes) {
  return EncodeInto(bytes, static_cast<uint32_t>(2 * bytes.size() + 9));
}

// Decodes with room for `capacity` bytes; the rest of them stay as they were.
std::vector<byte> DecodeInto(const std::string& text, uint32_t capacity) {
  support::Guarded buffer(capacity);
  const int written = __internal_base64_decode(buffer.Data(), text.c_str(), capacity);
  std::vector<byte> bytes = buffer.Content();
  EXPECT_TRUE(written >= 0 && static_cast<uint32_t>(written) <= capacity) << written << " bytes of " << capacity;
  const size_t size = std::min(static_cast<size_t>(written), bytes.size());
  EXPECT_EQ(bytes.size() - size, static_cast<size_t>(std::count(bytes.begin() + written, bytes.end(), kUnwritten)));
  bytes.resize(size);
  return bytes;
}

std::string Decode(const std::string& text) {
  const std::vector<byte> bytes = DecodeInto(text, static_cast<uint32_t>(text.size()));
  return {bytes.begin(), bytes.end()};
}

struct Base64Pair {
  const char* plain;
  const char* text;
};

constexpr Base64Pair kVectors[] = {{"", ""},
                                   {"f", "Zg=="},
                                   {"fo", "Zm8="},
                                   {"foo", "Zm9v"},
                                   {"foob", "Zm9vYg=="},
                                   {"fooba", "Zm9vYmE="},
                                   {"foobar", "Zm9vYmFy"}};

}  // namespace

TEST(Base64Encode, GivesThePublishedVectors) {
  for (const Base64Pair& pair : kVectors) EXPECT_EQ(Encode(BytesOf(pair.plain)), pair.text);
}

TEST(Base64Encode, UsesThePlusAndSlashAlphabet) {
  EXPECT_EQ(Encode(FromHex("000102")), "AAEC");
  EXPECT_EQ(Encode(FromHex("fbefbe")), "++++");
  EXPECT_EQ(Encode(FromHex("ffffff")), "////");
  EXPECT_EQ(
      Encode(FromHex("00108310518720928b30d38f41149351559761969b71d79f8218a39259a7a29aabb2dbafc31cb3d35db7e39ebbf3"
                     "dfbf")),
      kAlphabet);
}

TEST(Base64Encode, BreaksNoLines) {
  const std::string text = Encode(std::vector<byte>(3000, 0));
  EXPECT_TRUE(text == std::string(4000, 'A'));
}

TEST(Base64Encode, AgreesWithTheModelAtEveryLength) {
  support::SeededSource source(20240517);
  for (size_t size = 0; size <= 64; ++size) {
    for (int round = 0; round < 20; ++round) {
      const std::vector<byte> bytes = source.Bytes(size);
      ASSERT_EQ(Encode(bytes), model::Base64Text(bytes)) << ToHex(bytes);
      ASSERT_EQ(DecodeInto(Encode(bytes), static_cast<uint32_t>(size)), bytes);
    }
  }
}

TEST(Base64Encode, GivesTheWholeTextOrNone) {
  for (size_t size = 0; size <= 12; ++size) {
    const std::vector<byte> bytes(size, 0x5a);
    const std::string whole = model::Base64Text(bytes);
    for (uint32_t capacity = 1; capacity <= whole.size() + 4; ++capacity) {
      EXPECT_EQ(EncodeInto(bytes, capacity), capacity > whole.size() ? whole : "") << size << " into " << capacity;
    }
  }
}

TEST(Base64Encode, TouchesNothingWithoutCapacity) {
  char buffer[4] = {'\0', 'x', 'y', 'z'};
  EXPECT_STREQ(__internal_base64_encode(buffer, 0, FromHex("010203").data(), 3), "");
  EXPECT_STREQ(__internal_base64_encode(buffer, 0, nullptr, 0), "");
  buffer[0] = 'w';
  __internal_base64_encode(buffer, 0, FromHex("010203").data(), 3);
  EXPECT_EQ(std::string(buffer, 4), "wxyz");
}

TEST(Base64Encode, TakesTheLargestCapacityAndNoInput) {
  char buffer[8] = "before";
  EXPECT_STREQ(__internal_base64_encode(buffer, UINT32_MAX, FromHex("010203").data(), 3), "AQID");
  EXPECT_STREQ(__internal_base64_encode(buffer, UINT32_MAX, nullptr, 0), "");
}

TEST(Base64Decode, TakesThePublishedVectors) {
  for (const Base64Pair& pair : kVectors) EXPECT_EQ(Decode(pair.text), pair.plain);
}

TEST(Base64Decode, AgreesWithTheModelAtEveryLengthAndCapacity) {
  support::SeededSource source(20240519);
  for (size_t size = 0; size <= 64; ++size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) text += kAlphabet[source.Index(64)];
    for (uint32_t capacity = 0; capacity <= 52; ++capacity) {
      ASSERT_EQ(DecodeInto(text, capacity), model::Base64Bytes(text, capacity)) << text << " into " << capacity;
    }
  }
}

TEST(Base64Decode, AgreesWithTheModelOnAnyText) {
  support::Sightings sights({"nothing", "fewer bytes than room", "all the room"});
  support::ForEachCase(2026040613, 50000, [&](support::Source& source) {
    const std::string text = support::Maker(source).MakeBase64(source.Index(12));
    const auto capacity = static_cast<uint32_t>(source.Index(12));
    const support::Inputs inputs(text, capacity);
    const std::vector<byte> expected = model::Base64Bytes(text, capacity);
    support::ExpectEqual(DecodeInto(text, capacity), expected, "the bytes are the model's");
    sights.Add(expected.empty() ? "nothing" : expected.size() < capacity ? "fewer bytes than room" : "all the room");
  });
}

TEST(Base64Decode, KeepsTheWholeBytesOfAnIncompleteGroup) {
  EXPECT_EQ(Decode("Q"), "");
  EXPECT_EQ(Decode("QU"), "A");
  EXPECT_EQ(Decode("QV"), "A") << "the bits left over do not matter";
  EXPECT_EQ(Decode("QUI"), "AB");
  EXPECT_EQ(Decode("QUJDR"), "ABC");
  EXPECT_EQ(Decode("QUJDRE"), "ABCD");
  EXPECT_EQ(Decode("QUI="), "AB");
  EXPECT_EQ(Decode("QQ="), "A");
  EXPECT_EQ(Decode("Q==="), "");
}

TEST(Base64Decode, SkipsWhiteSpaceAnywhere) {
  EXPECT_EQ(Decode(" Q\tU\nJ\rD\vR\fEVG "), "ABCDEF");
  EXPECT_EQ(Decode("QUJD\r\nREVG\r\n"), "ABCDEF");
  EXPECT_EQ(Decode("QU I"), "AB");
  EXPECT_EQ(Decode(" \t\r\n\v\f"), "");
}

TEST(Base64Decode, EndsAtTheFirstOtherCharacter) {
  for (int code = 1; code < 256; ++code) {
    const char other = static_cast<char>(code);
    if (std::strchr(kAlphabet, other) != nullptr || std::strchr(" \t\n\v\f\r", other) != nullptr) continue;
    EXPECT_EQ(Decode(std::string(1, other) + "QUJD"), "") << "code " << code;
    EXPECT_EQ(Decode("Q" + std::string(1, other) + "UJD"), "") << "code " << code;
    EXPECT_EQ(Decode("QU" + std::string(1, other) + "JD"), "A") << "code " << code;
    EXPECT_EQ(Decode("QUI" + std::string(1, other) + "D"), "AB") << "code " << code;
    EXPECT_EQ(Decode("QUJD" + std::string(1, other) + "REVG"), "ABC") << "code " << code;
  }
}

TEST(Base64Decode, TakesTheLargestCapacity) {
  byte buffer[8] = {};
  EXPECT_EQ(__internal_base64_decode(buffer, "AQID", UINT32_MAX), 3);
  EXPECT_EQ(ToHex(buffer, 4), "01 02 03 00");
}

// --- Text ---

TEST(LowerCase, ChangesTheCapitalsOfAsciiAlone) {
  std::string text;
  std::string expected;
  for (int code = 1; code < 256; ++code) {
    text += static_cast<char>(code);
    expected += static_cast<char>(code >= 'A' && code <= 'Z' ? code + 32 : code);
  }
  EXPECT_EQ(strlwr(text.data()), text.data());
  EXPECT_EQ(text, expected);
}

TEST(LowerCase, EndsAtTheNul) {
  char text[] = "AB\0CD";
  EXPECT_STREQ(strlwr(text), "ab");
  EXPECT_STREQ(text + 3, "CD");
  char empty[] = "";
  EXPECT_EQ(strlwr(empty), empty);
  EXPECT_STREQ(empty, "");
}

// --- Configuration ---

namespace {

// Leaves the configuration as it is at first.
class Config : public testing::Test {
 protected:
  ~Config() override {
    config_->SetAllDevices(Json::Value());
    config_->SetDebug(false);
    std::remove(path_.c_str());
  }

  // Expects that loading `path` fails, says so about that file in one line, and changes nothing.
  void ExpectFailure(const std::string& path) {
    const Json::Value devices = ParseJson(R"([{"product_key":"kept"}])");
    for (const bool debug : {true, false}) {
      config_->SetAllDevices(devices);
      config_->SetDebug(debug);
      std::string error;
      EXPECT_FALSE(config_->LoadFromFile(path, error));
      EXPECT_NE(error.find(path), std::string::npos) << error;
      EXPECT_EQ(error.find('\n'), std::string::npos) << error;
      EXPECT_EQ(*config_->GetAllDevices(), devices);
      EXPECT_EQ(config_->IsDebug(), debug);
    }
  }

  void Write(const std::string& content) {
    std::ofstream stream(path_, std::ios::binary | std::ios::trunc);
    stream << content;
    ASSERT_TRUE(stream.flush());
  }

  void ExpectFailureOf(const std::string& content) {
    SCOPED_TRACE(content.substr(0, 100));
    Write(content);
    ExpectFailure(path_);
  }

  void ExpectLoaded(const std::string& content, const std::string& devices, bool debug) {
    Write(content);
    std::string error;
    EXPECT_TRUE(config_->LoadFromFile(path_, error)) << error;
    EXPECT_EQ(WriteJson(*config_->GetAllDevices()), devices);
    EXPECT_EQ(config_->IsDebug(), debug);
  }

  TavelConfig* const config_ = TavelConfig::sharedInstance();
  const std::string path_ = testing::TempDir() + "morvix_host_services_" + std::to_string(getpid()) + ".json";
};

}  // namespace

TEST_F(Config, IsOneInstance) {
  ASSERT_NE(config_, nullptr);
  EXPECT_EQ(TavelConfig::sharedInstance(), config_);
  TavelConfig* elsewhere = nullptr;
  std::thread([&elsewhere] { elsewhere = TavelConfig::sharedInstance(); }).join();
  EXPECT_EQ(elsewhere, config_);
}

TEST_F(Config, KnowsNothingAtFirst) {
  EXPECT_TRUE(config_->GetAllDevices()->isNull());
  EXPECT_FALSE(config_->IsDebug());
}

TEST_F(Config, GivesWhatWasSet) {
  for (const char* devices : {"[]", R"([{"a":1},null])", "null", "{}", "7"}) {
    config_->SetAllDevices(ParseJson(devices));
    ASSERT_NE(config_->GetAllDevices(), nullptr);
    EXPECT_EQ(WriteJson(*config_->GetAllDevices()), devices);
  }
  config_->SetDebug(true);
  EXPECT_TRUE(config_->IsDebug());
  config_->SetDebug(false);
  EXPECT_FALSE(config_->IsDebug());
}

TEST_F(Config, CopiesTheDevices) {
  Json::Value devices = ParseJson(R"([{"a":1}])");
  config_->SetAllDevices(devices);
  devices[0]["a"] = 2;
  EXPECT_EQ(WriteJson(*config_->GetAllDevices()), R"([{"a":1}])");
  config_->SetAllDevices(*config_->GetAllDevices());
  EXPECT_EQ(WriteJson(*config_->GetAllDevices()), R"([{"a":1}])");
}

TEST_F(Config, KeepsAThreadsDevicesUntilItAsksAgain) {
  config_->SetAllDevices(ParseJson(R"(["first"])"));
  const Json::Value* devices = config_->GetAllDevices();
  std::thread([this] {
    for (int round = 0; round < 100; ++round) {
      config_->SetAllDevices(Json::Value(round));
      EXPECT_EQ(*config_->GetAllDevices(), Json::Value(round));
    }
  }).join();
  EXPECT_EQ(WriteJson(*devices), R"(["first"])");
  config_->SetAllDevices(Json::Value("own"));
  EXPECT_EQ(WriteJson(*devices), R"(["first"])");
  EXPECT_EQ(*config_->GetAllDevices(), Json::Value("own"));
}

TEST_F(Config, LoadsDevicesAndDebugFromAFile) {
  ExpectLoaded(R"({"debug":true,"devices":[{"product_key":"k"},null],"more":1})", R"([{"product_key":"k"},null])",
               true);
  ExpectLoaded(R"({"debug":false,"devices":[]})", "[]", false);
}

TEST_F(Config, TakesAMissingDebugForFalse) {
  config_->SetDebug(true);
  ExpectLoaded(R"({"devices":[1]})", "[1]", false);
}

TEST_F(Config, RefusesFilesThatCannotBeRead) {
  ExpectFailure(path_);
  ExpectFailure(path_ + "/below/nothing.json");
  ExpectFailure(testing::TempDir());
}

// It used to throw when the first block could be read and a later one could not.
TEST_F(Config, RefusesAFileThatFailsHalfWay) {
  Write(R"({"devices":[]})" + std::string(200000, ' '));
  for (int reads = 0; reads < 3; ++reads) {
    std::string error;
    goodReads = reads;
    const bool isLoaded = config_->LoadFromFile(path_, error);
    goodReads = -1;
    EXPECT_FALSE(isLoaded) << reads;
    EXPECT_EQ(error, path_ + ": cannot be read: Input/output error");
  }
}

TEST_F(Config, RefusesFilesWithoutAnObject) {
  for (const char* content : {"", " \n", "nonsense", "{", R"({"devices":[})", R"({"debug":true "devices":[]})", "null",
                              "[]", R"([{"debug":true,"devices":[]}])", "7", R"("text")", "true"}) {
    ExpectFailureOf(content);
  }
}

// JsonCpp's reader stops at a NUL. Found by a fuzzer: the bytes after it were ignored.
TEST_F(Config, PassesNothingOverAfterANul) {
  ExpectFailureOf(std::string("{\"devices\":[]}\n") + '\0' + "{");
  ExpectFailureOf(std::string("\0{\"devices\":[]}", 15));
}

TEST_F(Config, RefusesMembersOfTheWrongKind) {
  for (const char* devices : {"{}", "7", "1.5", "true", R"("[]")"}) {
    ExpectFailureOf(R"({"debug":true,"devices":)" + std::string(devices) + "}");
  }
  for (const char* debug : {"1", "0", "1.0", R"("true")", "[]", "{}"}) {
    ExpectFailureOf(R"({"devices":[],"debug":)" + std::string(debug) + "}");
  }
}

TEST_F(Config, RefusesFilesThatAreNestedTooDeep) {
  const std::string nested = std::string(100000, '[') + std::string(100000, ']');
  ExpectFailureOf(nested);
  ExpectFailureOf(R"({"devices":)" + nested + "}");
}
