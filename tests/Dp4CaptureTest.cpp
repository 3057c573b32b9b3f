// `dp4 decode` with captures: packets in lines of any form, in both directions, and what is told about them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Dp4Configuration.h"
#include "TestSupport.h"
#include "ToolSupport.h"
#include "host/Logging.h"
#include "inspect/packets/ResultForms.h"

namespace {

namespace inspect = morvix::inspect;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kPacket = "04055a04640101";

std::string KettleResult() {
  const std::string line = Golden("kettle.decode.flat.jsonl");
  return line.substr(0, line.size() - 1);
}

ToolRun DecodeKettle(std::vector<std::string> arguments, const std::string& standardInput) {
  arguments.insert(arguments.begin(), {"decode", "kettle.json"});
  return RunTool(arguments, standardInput);
}

// The same without a summary, which has to end fine.
std::string Decoded(std::vector<std::string> arguments, const std::string& standardInput) {
  arguments.emplace_back("--quiet");
  const ToolRun run = DecodeKettle(arguments, standardInput);
  EXPECT_EQ(run.err, "") << standardInput;
  EXPECT_EQ(run.exitCode, 0) << standardInput;
  return run.out;
}

void ExpectUsageError(const ToolRun& run, const std::string& message) {
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, StartsWith("dp4: " + message));
  EXPECT_EQ(run.exitCode, 2);
}

// The line that is told when a stream ends.
std::string SummaryOf(const ToolRun& run) {
  const size_t begin = run.err.rfind("dp4: ", run.err.size() - 2);
  return begin == std::string::npos ? run.err : run.err.substr(begin + 5, run.err.size() - begin - 6);
}

// ---- Ready-made patterns ----

TEST(CaptureLine, MayBeginWithATimestamp) {
  for (const std::string time :
       {"03:15:22", "3:15", "03:15:22.123456", "03:15:22,123", "2026-01-31T03:15:22Z", "2026-01-31 03:15:22.5+0100",
        "2026-01-31 03:15:22,123 -05:00", "2026/1/31 03:15:22 UTC", "31.01.2026 03:15:22", "Jan  3 03:15:22",
        "03:15:22 PM", "1436509052.249713", "12.5", "1769829322", "1769829322123"}) {
    const std::string expected = R"({"time":")" + time + R"(","packet":)" + KettleResult() + "}\n";
    for (const std::string& line : std::vector<std::string>{
             time + " " + kPacket, "[" + time + "] " + kPacket, "[   " + time + "] " + kPacket,
             "(" + time + ")\t04 05 5a 04 64 01 01", time + ": 04:05:5a:04:64:01:01", " " + time + ";" + kPacket + "\r",
             time + ", 0x04,0x05,0x5a,0x04,0x64,0x01,0x01", time + " | {04 05 5a 04 64 01 01}"}) {
      EXPECT_EQ(Decoded({"--line", "time"}, line + "\n"), expected) << line;
    }
  }
}

// Digits that could be the packet's are no timestamp, and other words no packet.
TEST(CaptureLine, DoesNotMatchWithoutATimestampBeforeThePacket) {
  for (const std::string& line :
       std::vector<std::string>{kPacket, std::string("04 05 5a 04 64 01 01"), "12 " + kPacket, "0315 " + kPacket,
                                std::string("03:15:22 boot"), std::string("03:15:22"), "03:15:22,04 05 5a 04 64 01 01",
                                "# 03:15:22 " + kPacket, "03:15:22 < " + kPacket, "03:15:22 " + kPacket + " # on"}) {
    const ToolRun run = DecodeKettle({"--line", "time"}, line + "\n");
    EXPECT_EQ(run.out, "") << line;
    EXPECT_EQ(run.err, "dp4: 1 line, 0 packets, 1 unmatched\n") << line;
    EXPECT_EQ(run.exitCode, 0) << line;
  }
}

TEST(CaptureLine, MayTellTheDirection) {
  for (const std::string direction : {"<", ">", "->", "<-", "RX", "TX", "rx"}) {
    const std::string rest = R"("direction":")" + direction + R"(","packet":)" + KettleResult() + "}\n";
    EXPECT_EQ(Decoded({"--line", "direction"}, "03:15:22.5 " + direction + " 04 05 5a 04 64 01 01\n"),
              R"({"time":"03:15:22.5",)" + rest);
    EXPECT_EQ(Decoded({"--line", "direction"}, "[03:15:22] " + direction + ": " + kPacket + "\r\n"),
              R"({"time":"03:15:22",)" + rest);
    EXPECT_EQ(Decoded({"--line", "direction"}, direction + " " + kPacket), "{" + rest);
  }
}

TEST(CaptureLine, MayBeOneOfCandump) {
  const std::string frame = R"("interface":"can0","id":"123",)";
  const std::string packet = R"("packet":)" + KettleResult() + "}\n";
  EXPECT_EQ(Decoded({"--line", "candump"}, "  can0  123   [7]  04 05 5A 04 64 01 01\n"), "{" + frame + packet);
  EXPECT_EQ(Decoded({"--line", "candump"}, " (1436509052.249713)  can0  123   [7]  04 05 5A 04 64 01 01   '..Z.d..'\n"),
            R"({"time":"1436509052.249713",)" + frame + packet);
  EXPECT_EQ(Decoded({"--line", "candump"}, "(1436509052.249713) can0 123#04055A04640101\n"),
            R"({"time":"1436509052.249713",)" + frame + packet);
  EXPECT_EQ(Decoded({"--line", "candump"}, "(1436509052.249713) can0 123#04055A04640101 R\n"),
            R"({"time":"1436509052.249713",)" + frame + packet);
  EXPECT_EQ(Decoded({"--line", "candump"}, " (1.5)  can0  RX - -  12345678   [07]  04 05 5A 04 64 01 01\n"),
            R"({"time":"1.5","interface":"can0","direction":"RX","id":"12345678",)" + packet);
  EXPECT_EQ(DecodeKettle({"--line", "candump"}, "can0 123#R\n").err, "dp4: 1 line, 0 packets, 1 unmatched\n");
}

TEST(CaptureLine, OfCandumpHasAsManyBytesAsItAnnounces) {
  const std::string begin = R"({"interface":"can0","id":"123","packet":{"error":")";
  for (const auto& [announced, text] : {std::pair<std::string, std::string>("8", "8 bytes announced, 7 found"),
                                        {"1", "1 byte announced, 7 found"},
                                        {"64", "64 bytes announced, 7 found"}}) {
    const ToolRun run = DecodeKettle({"--line", "candump"}, "can0 123 [" + announced + "] 04 05 5A 04 64 01 01\n");
    EXPECT_EQ(run.out, begin + text + "\"}}\n");
    EXPECT_EQ(run.err, "dp4: standard input:1: " + text + "\ndp4: 1 line, 0 packets, 1 error (1 wrong size)\n");
    EXPECT_EQ(run.exitCode, 1);
  }
  // A pattern's own group may be called anything.
  EXPECT_EQ(Decoded({"--line", "(?P<announced>\\d) (?P<packet>.*)"}, "8 02\n"),
            R"({"announced":"8","packet":{"command":2}})"
            "\n");
}

// Flags stand between the two marks and the data of a CAN FD frame.
TEST(CaptureLine, MayBeOneOfCanFd) {
  EXPECT_EQ(Decoded({"--line", "candump"}, "(1.5) can0 123##104055A04640101\n"),
            R"({"time":"1.5","interface":"can0","id":"123","packet":)" + KettleResult() + "}\n");
}

// ---- Own patterns ----

TEST(CapturePattern, KeepsItsOtherGroups) {
  EXPECT_EQ(
      Decoded({"--line", "^(?P<at>\\d+);(?P<who>[^;]*);(?P<packet>[0-9a-f]*)$"}, "7;the \"k\xc3\xa4ttle\";" + kPacket),
      R"({"at":"7","who":"the \"k\u00e4ttle\"","packet":)" + KettleResult() + "}\n");
  EXPECT_EQ(Decoded({"--line", "data=(?P<packet>\\S+)( note=(?P<note>\\S+))?"}, "x data=" + kPacket + " y\n"),
            R"({"packet":)" + KettleResult() + "}\n");
}

// Bytes that are not UTF-8 are replaced in JSON only, and no reason to begin the match later.
TEST(CapturePattern, KeepsGroupsThatAreNotUtf8) {
  const std::string pattern = "(?P<q>.*)=1 p=(?P<packet>.*)";
  EXPECT_EQ(Decoded({"--line", pattern}, "a\xe9=1 p=02\nb\xc3\xa4=1 p=02\n\xff\xc3\xa4=1 p=02\n"),
            R"({"q":"a\ufffd","packet":{"command":2}})"
            "\n"
            R"({"q":"b\u00e4","packet":{"command":2}})"
            "\n"
            R"({"q":"\ufffd\u00e4","packet":{"command":2}})"
            "\n");
  EXPECT_EQ(Decoded({"--line", pattern, "--document", "csv", "--only", "power"}, "a\xe9=1 p=02\n"),
            "q,line,command,error,power\r\na\xe9,1,2,,\r\n");
  EXPECT_EQ(Decoded({"--line", "^(?P<q>[^;]*);(?P<packet>.*)$"}, "\xe9t\xe9;02\n"),
            R"({"q":"\ufffdt\ufffd","packet":{"command":2}})"
            "\n");
  // Columns are those of the line.
  EXPECT_THAT(DecodeKettle({"--line", pattern}, "a\xe9=1 p=0\n").err, StartsWith("dp4: standard input:1:9: "));
}

TEST(CapturePattern, SeesLinesWithoutTheirEnds) {
  const std::string result = R"({"packet":)" + KettleResult() + "}\n";
  const std::string note = R"({"note":"on","packet":)" + KettleResult() + "}\n";
  EXPECT_EQ(Decoded({"--line", "^(?P<packet>[0-9a-f]+)$"}, kPacket + "\r\n" + kPacket + "\n"), result + result);
  EXPECT_EQ(Decoded({"--line", "(?P<packet>\\S+)\t(?P<note>.*)"}, kPacket + "\ton\r\n" + kPacket + "\ton"),
            note + note);
}

// A line that matches has a record in any case.
TEST(CapturePattern, KeepsItsOtherGroupsBesideAnError) {
  const ToolRun run = DecodeKettle({"--line", "(?P<at>\\d+): (?P<packet>.*)", "--quiet"}, "7: off\n8: 0a00\n");
  EXPECT_EQ(run.out, R"({"at":"7","packet":{"error":"expected a hexadecimal digit, found 'o'"}})"
                     "\n"
                     R"({"at":"8","packet":{"error":"command 0a is unknown; expected 01 to 04, 07, 08, 0b, 0c or 0d"}})"
                     "\n");
  EXPECT_EQ(run.err,
            "dp4: standard input:1:4: expected a hexadecimal digit, found 'o'\n"
            "dp4: standard input:2: command 0a is unknown; expected 01 to 04, 07, 08, 0b, 0c or 0d\n");
  EXPECT_EQ(run.exitCode, 1);
}

// A line that is too long to be matched has nothing of the line before it.
TEST(CapturePattern, KeepsNothingOfTheLineBefore) {
  const std::string error = R"({"error":"expected a line of at most 1048576 bytes"})";
  const std::string tooLong = std::string(1048577, '0') + "\n";
  EXPECT_EQ(DecodeKettle({"--line", "(?P<at>\\d+): (?P<packet>.*)"}, "7: 02\n" + tooLong).out,
            R"({"at":"7","packet":{"command":2}})"
            "\n"
            R"({"packet":)" +
                error + "}\n");
  EXPECT_EQ(DecodeKettle({}, R"({"at": 7, "packet": "02"})"
                             "\n" +
                                 tooLong)
                .out,
            R"({"at": 7, "packet": {"command":2}})"
            "\n" +
                error + "\n");
  EXPECT_EQ(DecodeKettle({"--line", "(?P<at>\\d+): (?P<packet>.*)", "--document", "csv", "--only", "power"},
                         "7: 02\n" + tooLong)
                .out,
            "at,line,command,error,power\r\n7,1,2,,\r\n,2,,expected a line of at most 1048576 bytes,\r\n");
}

// Two columns of one name are one to most readers of CSV.
TEST(CapturePattern, HasNoGroupThatIsCalledLikeAColumn) {
  for (const std::string name : {"line", "command", "error", "power"}) {
    const std::string pattern = "(?P<" + name + ">\\S+) (?P<packet>.*)";
    ExpectUsageError(DecodeKettle({"--line", pattern, "--document", "csv"}, ""),
                     "--line: a column is called \"" + name + "\"; give the group another name\n");
    EXPECT_EQ(DecodeKettle({"--line", pattern}, "x 02\n").out, "{\"" + name +
                                                                   R"(":"x","packet":{"command":2}})"
                                                                   "\n");
  }
  EXPECT_EQ(Decoded({"--line", "(?P<power>\\S+) (?P<packet>.*)", "--document", "csv", "--only", "target"}, "x 02\n"),
            "power,line,command,error,target\r\nx,1,2,,\r\n");
  // A configuration stays as it is.
  const std::string lamp = R"({"entities": [{"id": 0, "name": "lamp", "display_name": "", "attrs": [{"id": 0,
      "name": "line", "display_name": "", "desc": "", "type": "status_writable", "data_type": "bool",
      "position": {"byte_offset": 0, "unit": "bit", "bit_offset": 0, "len": 1}}]}]})";
  const ToolRun run = RunTool({"decode", "-", "--document", "csv", "0401"}, lamp);
  EXPECT_EQ(run.out, "line,command,error,line\r\n1,4,,1\r\n");
  EXPECT_EQ(run.err, "dp4: warning: two columns are called \"line\"\n");
}

TEST(CapturePattern, IsAUsageErrorWithoutAPacket) {
  ExpectUsageError(DecodeKettle({"--line", "tiem"}, ""),
                   "--line tiem: expected time, direction, candump or a pattern with a group (?P<packet>...); did you "
                   "mean \"time\"?\n");
  ExpectUsageError(DecodeKettle({"--line", "(?P<packet>"}, ""), "--line (?P<packet>: not a pattern: missing )");
  ExpectUsageError(DecodeKettle({"--line", "(?P<a>.)(?P<a>.)(?P<packet>.)"}, ""),
                   "--line (?P<a>.)(?P<a>.)(?P<packet>.): expected groups of different names\n");
  ExpectUsageError(DecodeKettle({"--line", "\\S+"}, ""),
                   "--line \\S+: expected time, direction, candump or a pattern with a group (?P<packet>...)\n");
  ExpectUsageError(RunTool({"decode", "kettle.json", "--line", "time", kPacket}),
                   "--line is for lines of standard input; expected no PACKET\n");
}

TEST(CapturePattern, TakesNoLineForJson) {
  EXPECT_EQ(DecodeKettle({"--line", "time"}, R"({"packet": ")" + kPacket + "\"}\n").err,
            "dp4: 1 line, 0 packets, 1 unmatched\n");
}

// ---- Hints ----

TEST(CaptureHint, IsGivenOnceForLinesWithSomethingBeforeTheirPacket) {
  const struct {
    std::string line;
    std::string hint;
  } kCases[] = {{"03:15:22 " + kPacket, "--line time reads such lines"},
                {"03:15:22 -> " + kPacket, "--line direction reads such lines"},
                {"can0 123#04055A04640101", "--line candump reads such lines"},
                {"kettle says " + kPacket, "--line with a pattern reads lines that have something before the packet"}};
  for (const auto& [line, hint] : kCases) {
    const ToolRun run = DecodeKettle({"--quiet"}, line + "\nhello\n" + line + "\n");
    const std::string text = "dp4: hint: " + hint + "\n";
    EXPECT_THAT(run.err, HasSubstr(text));
    EXPECT_THAT(run.err.substr(run.err.find(text) + text.size()), Not(HasSubstr("hint"))) << line;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3) << line;
  }
}

TEST(CaptureHint, IsNotGivenForOtherLines) {
  for (const std::string& line : std::vector<std::string>{"hello", "04 0g 5a", "04 05 5a04", "# nothing", "0405 0g"}) {
    EXPECT_THAT(DecodeKettle({}, line + "\n").err, Not(HasSubstr("hint"))) << line;
  }
}

TEST(CaptureHint, IsGivenForAFileInPlaceOfAPacket) {
  ExpectUsageError(RunTool({"decode", "kettle.json", "kettle.notify.hex"}),
                   "\"kettle.notify.hex\" is a file; to decode its lines, write dp4 decode kettle.json < "
                   "kettle.notify.hex\n");
}

// ---- Both directions ----

// Flags 07; program 1 is bit 1 of byte 0; 4f = 79, 79 * 0.5 + 40 = 79.5.
TEST(CaptureRequest, OfAWriteHasTheAttributesThatItSets) {
  EXPECT_EQ(Decoded({}, "01 07 03 4f\n"), R"({"command":1,"set":["power","program","target"],)"
                                          R"("values":{"kettle":{"power":true,"program":"1","target":"79.5"}}})"
                                          "\n");
  // Only what is flagged counts: flag 2 is the target's.
  EXPECT_EQ(Decoded({}, "07 04 03 4f\n"), R"({"command":7,"set":["target"],"values":{"kettle":{"target":"79.5"}}})"
                                          "\n");
}

TEST(CaptureRequest, NamesItsSubDeviceWhereTheLengthSaysSo) {
  const std::string id = RunTool({"request", "cc-read", "--sub-device", "-2"}).out.substr(3, 11);
  EXPECT_EQ(Decoded({}, "01 " + id + " 01 01 00\n"),
            R"({"command":1,"subDevice":-2,"set":["power"],"values":{"kettle":{"power":true}}})"
            "\n");
  EXPECT_EQ(Decoded({}, "08 " + id + "\n0c " + id + "\n"),
            "{\"command\":8,\"subDevice\":-2}\n{\"command\":12,\"subDevice\":-2}\n");
  EXPECT_EQ(Decoded({}, "02\n0b\n0d\n"), "{\"command\":2}\n{\"command\":11}\n{\"command\":13}\n");
}

TEST(CaptureRequest, IsRefusedAsADeviceWould) {
  const struct {
    const char* packet;
    const char* error;
  } kCases[] = {
      {"01", "expected 4 bytes of a write, or 8 with a sub-device, found 1"},
      {"0107034f00", "expected 4 bytes of a write, or 8 with a sub-device, found 5"},
      {"01080000", "flag 3 is set; expected those of 3 writable attributes, 0 to 2"},
      {"01000000", "no flag is set; expected one at least"},
      {"0200", "expected 1 byte of a read request, found 2"},
      {"08", "expected 5 bytes of a cc-read request, found 1"},
      {"0c0000", "expected 5 bytes of a cc-delete request, found 3"},
  };
  for (const auto& [packet, error] : kCases) {
    const ToolRun run = RunTool({"decode", "kettle.json", packet});
    EXPECT_EQ(run.exitCode, 1) << packet;
    EXPECT_EQ(run.out, std::string(R"({"error":")") + error + "\"}\n");
  }
  const std::string sensor = Configuration(Bool("hot", 0, 0, "alert"));
  EXPECT_EQ(RunTool({"decode", "-", "01010101"}, sensor).out, R"({"error":"nothing of \"box\" is writable"})"
                                                              "\n");
}

// Raw 121 is one more than its scaling takes, and item 3 is one more than there are.
TEST(CaptureRequest, HasNotesForWhatItSetsWrongly) {
  EXPECT_EQ(Decoded({}, "01 06 06 79\n"),
            R"({"command":1,"set":["program","target"],"values":{"kettle":{}},"notes":[)"
            R"({"kind":"no-item","name":"program","place":{"firstBit":5,"bits":2},"raw":3,"min":0,"max":2},)"
            R"({"kind":"out-of-range","name":"target","place":{"firstBit":8,"bits":8},"raw":121,"min":0,"max":120}]})"
            "\n");
}

TEST(CaptureRequest, IsWhatEncodeMakes) {
  for (const std::string command : {"write", "cc-write"}) {
    const std::string packet = RunTool({"encode", "kettle.json", "kettle.values.json", "--command", command}).out;
    EXPECT_THAT(Decoded({}, packet), HasSubstr(R"("values":{"kettle":{"power":true,"program":"1","target":"79.5"}})"));
  }
  // And encode takes what decode makes.
  for (const std::string product : {"kettle", "air_conditioner", "gateway", "power_meter"}) {
    const auto run = [&product](const std::string& command, const std::string& more, const std::string& standardInput) {
      std::vector<std::string> arguments = {command, product + ".json", "--entity", "0"};
      if (!more.empty()) arguments.push_back(more);
      return RunTool(arguments, standardInput).out;
    };
    const std::string packet = run("encode", product + ".values.json", "");
    EXPECT_GT(packet.size(), 3U) << product;
    EXPECT_EQ(run("encode", "-", run("decode", "", packet)), packet) << product;
    EXPECT_EQ(run("encode", "-", run("decode", "--items", packet)), packet) << product;
  }
}

TEST(CaptureRequest, HasNoDecodedDocument) {
  const ToolRun run = DecodeKettle({"--document", "decoded", "--quiet"}, "02\n");
  EXPECT_EQ(run.out, "{\"error\":\"command 02 is not received; expected 03 (read response) or 04 (notification)\"}\n");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(CaptureRequest, HasATable) {
  const ToolRun run = DecodeKettle({"--document", "table", "--quiet"}, "01 04 00 78\n02\n");
  EXPECT_EQ(run.out,
            "line 1: write request, kettle, 2 bytes of payload\n"
            "\n"
            "NAME     GROUP     PLACE    BITS  VALUE  NOTE\n"
            "power    writable  0.0                   not set\n"
            "program  writable  0.2-0.1               not set\n"
            "target   writable  1        78    100\n"
            "\n"
            "line 2: read request\n"
            "\n"
            "PLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n");
}

// ---- CSV ----

const std::string kHead = "line,command,error,power,program,target,temperature,low_water,lid_open,sensor\r\n";

TEST(CaptureCsv, HasAColumnForEachAttribute) {
  const ToolRun run =
      DecodeKettle({"--document", "csv", "--quiet"},
                   kPacket + "\n\n01 04 00 78\nx,\"y\n04 00 79 04 6f 00 00\n04 07 50 04 6f 02 00\n02\n");
  EXPECT_EQ(run.out, kHead +
                         "1,4,,1,2,85,92.4,1,0,1\r\n"
                         "3,1,,,,100,,,,\r\n"
                         "4,,\"expected a hexadecimal digit, found 'x'\",,,,,,,\r\n"
                         "5,4,\"\"\"target\"\" out-of-range: raw 121, expected 0 to 120\",0,0,,93.5,0,0,0\r\n"
                         "6,4,\"\"\"program\"\" unreadable: Invalid enum value: 3, range: 0-3 (expected 0 to 2; the "
                         "line's 3 counts the items)\",1,,,,,,\r\n"
                         "7,2,,,,,,,,\r\n");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(Decoded({"--document", "csv"}, ""), kHead);
}

TEST(CaptureCsv, BeginsWithThePatternsGroups) {
  EXPECT_EQ(Decoded({"--document", "csv", "--line", "time", "--only", "target"}, "03:15:22,123 " + kPacket + "\n"),
            "time,line,command,error,target\r\n\"03:15:22,123\",1,4,,85\r\n");
  EXPECT_EQ(Decoded({"--document", "csv", "--line", "direction", "--only", "power"}, "> " + kPacket + "\n"),
            "time,direction,line,command,error,power\r\n,>,1,4,,1\r\n");
}

// ---- What is told ----

TEST(CaptureOptions, NamesItems) {
  EXPECT_THAT(Decoded({"--items"}, kPacket), HasSubstr(R"("program":"keep_warm","target":"85")"));
  EXPECT_THAT(Decoded({"--items"}, "01 02 02 00\n"), HasSubstr(R"("values":{"kettle":{"program":"green_tea"}})"));
  EXPECT_THAT(Decoded({"--items", "--document", "csv"}, kPacket), HasSubstr("\r\n1,4,,1,keep_warm,85,"));
  ExpectUsageError(DecodeKettle({"--items", "--document", "decoded"}, ""),
                   "--items is for the documents flat and csv\n");
}

// Encoding takes digits for an index, item 0 is called 1 here, and cannot tell one item "off" from another.
TEST(CaptureOptions, NamesNoItemThatEncodingWouldTakeForAnother) {
  const std::string box = Configuration(
      Attribute("mode", "status_writable", "enum", Bits(0, 0, 3), R"("enum": ["1", "0", "2", "x1", "off", "off"], )"));
  const auto valueOf = [&box](const std::string& packet, const std::string& document) {
    return RunTool({"decode", "-", packet, "--items", "--document", document}, box).out;
  };
  for (const auto& [packet, item] : {std::pair<std::string, std::string>("01 01 00", "0"),
                                     {"01 01 01", "1"},
                                     {"01 01 02", "2"},
                                     {"01 01 03", "x1"},
                                     {"01 01 04", "4"},
                                     {"01 01 05", "5"}}) {
    EXPECT_EQ(valueOf(packet, "flat"), R"({"command":1,"set":["mode"],"values":{"box":{"mode":")" + item + "\"}}}\n");
    EXPECT_THAT(valueOf(packet, "csv"), HasSubstr("\r\n1,1,," + item + "\r\n"));
    EXPECT_EQ(RunTool({"encode", "-", "--set", "mode=" + item}, box).out, packet + "\n");
  }
}

TEST(CaptureOptions, TellsOnlyWhatIsAskedFor) {
  const std::string only =
      R"({"command":4,"values":{"kettle":{"power":true},"version":4.0},"alerts":{"Low water":true},)"
      R"("faults":{},"active":{"alerts":{"Low water":1},"faults":{}}})"
      "\n";
  EXPECT_EQ(Decoded({"--only", "power", "--only", "low_water"}, kPacket), only);
  EXPECT_EQ(Decoded({"--only", "power", "--only", "Low water"}, kPacket), only);
  EXPECT_EQ(Decoded({"--only", "power", "--document", "decoded"}, kPacket),
            "{\"kettle\":{\"power\":{\"type\":1,\"value\":true}}}\n");
  EXPECT_EQ(Decoded({"--only", "target", "--document", "csv"}, kPacket), "line,command,error,target\r\n1,4,,85\r\n");
  EXPECT_THAT(Decoded({"--only", "target", "--document", "table"}, kPacket),
              HasSubstr("NAME    GROUP     PLACE  BITS  VALUE  NOTE\ntarget  writable  1      5a    85\n\nPLACE"));
  EXPECT_EQ(Decoded({"--only", "power"}, "01 05 01 78\n"),
            R"({"command":1,"set":["power"],"values":{"kettle":{"power":true}}})"
            "\n");
  // A note about another attribute is not told either.
  EXPECT_THAT(Decoded({"--only", "power"}, "04 00 79 04 6f 00 00\n"), Not(HasSubstr("notes")));
  ExpectUsageError(DecodeKettle({"--only", "porwer"}, ""),
                   "--only porwer: no attribute of \"kettle\" is called so; did you mean \"power\"? known: power, "
                   "program, target, temperature, low_water, lid_open and sensor\n");
}

size_t LinesOf(const std::string& text) { return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')); }

TEST(CaptureOptions, HasARecordOnlyWhenSomethingChanged) {
  const std::string other = "04 05 5a 04 65 01 01";
  EXPECT_EQ(
      LinesOf(Decoded({"--changes"}, kPacket + "\n" + kPacket + "\n" + other + "\n" + other + "\n" + kPacket + "\n")),
      3U);
  // The temperature alone differs.
  EXPECT_EQ(LinesOf(Decoded({"--changes", "--only", "target"}, kPacket + "\n" + other + "\n")), 1U);
  // A read response says what a notification said. A time is no change.
  EXPECT_EQ(LinesOf(Decoded({"--changes"}, kPacket + "\n03055a04640101\n")), 1U);
  EXPECT_EQ(Decoded({"--changes", "--line", "time", "--document", "csv", "--only", "target"},
                    "03:15:22 " + kPacket + "\n03:15:23 " + kPacket + "\n03:15:24 04055b04640101\n"),
            "time,line,command,error,target\r\n03:15:22,1,4,,85\r\n03:15:24,3,4,,85.5\r\n");
  EXPECT_EQ(LinesOf(Decoded({"--changes", "--document", "decoded"}, kPacket + "\n" + kPacket + "\n")), 1U);
  // What is noted of a packet is a part of what it says.
  EXPECT_EQ(LinesOf(Decoded({"--changes", "--document", "csv"}, "01020600\n01040079\n01040079\n")), 3U);
  const std::string table =
      Decoded({"--changes", "--document", "table"}, kPacket + "\n" + kPacket + "\n" + other + "\n");
  EXPECT_THAT(table, HasSubstr("line 1: "));
  EXPECT_THAT(table, Not(HasSubstr("line 2: ")));
  EXPECT_THAT(table, HasSubstr("\n\nline 3: "));
  // Requests are compared with requests of their kind.
  EXPECT_EQ(LinesOf(Decoded({"--changes"}, kPacket + "\n02\n01010100\n02\n" + kPacket + "\n01010000\n")), 4U);
}

// The table and CSV do not have the sub-device in what they compare.
TEST(CaptureOptions, KeepsPacketsOfAnotherSubDevice) {
  const auto packet = [](const std::string& id) {
    const std::string line = RunTool({"encode", "kettle.json", "--set", "power=1", "--sub-device", id}).out;
    return line + line;
  };
  const std::string lines = packet("5") + packet("6") + "01010100\n" + packet("5");
  EXPECT_EQ(LinesOf(Decoded({"--changes"}, lines)), 4U);
  EXPECT_EQ(Decoded({"--changes", "--document", "csv", "--only", "power"}, lines),
            "line,command,error,power\r\n1,1,,1\r\n3,1,,1\r\n5,1,,1\r\n6,1,,1\r\n");
  const std::string table = Decoded({"--changes", "--document", "table"}, lines);
  for (const std::string& line : std::vector<std::string>{
           "line 1: write request, kettle, sub-device 5, ", "line 3: write request, kettle, sub-device 6, ",
           "line 5: write request, kettle, 2 bytes", "line 6: write request, kettle, sub-device 5, "}) {
    EXPECT_THAT(table, HasSubstr(line));
  }
  for (const char* line : {"line 2", "line 4", "line 7"}) EXPECT_THAT(table, Not(HasSubstr(line)));
}

TEST(CaptureTable, ShowsSurplusBytes) {
  EXPECT_THAT(Decoded({"--document", "table"}, kPacket + "ff\n"),
              HasSubstr("true   active\nsurplus: 1 byte (ff)\n\nPLACE"));
  EXPECT_THAT(Decoded({"--document", "table", "--only", "power"}, kPacket + "fe00\n"),
              HasSubstr("true\nsurplus: 2 bytes (fe 00)\n\nPLACE"));
  EXPECT_THAT(Decoded({"--document", "table"}, kPacket + "\n"), Not(HasSubstr("surplus")));
  // 16 bytes at most.
  EXPECT_THAT(Decoded({"--document", "table"}, kPacket + std::string(400, '0')),
              HasSubstr("surplus: 200 bytes (00 00 "));
  // Without attributes there are bytes, too.
  EXPECT_THAT(RunTool({"decode", "-", "0401", "--document", "table"}, Configuration("")).out,
              HasSubstr("\nsurplus: 1 byte (01)\n"));
}

TEST(CaptureOptions, MakesNotesAndUnmatchedLinesProblemsWhenStrict) {
  ToolRun run = DecodeKettle({"--strict", "--quiet"}, kPacket + "00\n04 00 79 04 6f 00 00\n");
  EXPECT_EQ(run.err,
            "dp4: standard input:1: surplus: 1 byte\n"
            "dp4: standard input:2: \"target\" out-of-range: raw 121, expected 0 to 120\n");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(LinesOf(run.out), 2U);
  run = DecodeKettle({"--strict", "--quiet", "--line", "time"}, "03:15:22 " + kPacket + "\nboot\n");
  EXPECT_EQ(run.err, "dp4: standard input:2: does not match --line\n");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(DecodeKettle({"--strict"}, kPacket).exitCode, 0);
}

// ---- The summary ----

TEST(CaptureSummary, CountsLinesPacketsErrorsAndNotes) {
  const ToolRun run = DecodeKettle({"--line", "time"},
                                   "boot\n03:15:20 " + kPacket + "\n\n03:15:21 01 04 00 78\n03:15:22 " + kPacket +
                                       "00\n03:15:23 04 00 79 04 6f 00 00\n03:15:24 0a00\n03:15:25 040\n03:15:26 04\n");
  EXPECT_EQ(SummaryOf(run),
            "9 lines, 4 packets (1 write, 3 notify), 1 unmatched, 3 errors (1 no packet, 1 unknown command, 1 wrong "
            "size), 2 notes (1 surplus, 1 out-of-range), from 03:15:20 to 03:15:26");
  EXPECT_EQ(SummaryOf(DecodeKettle({}, kPacket)), "1 line, 1 packet (1 notify)");
  EXPECT_EQ(SummaryOf(DecodeKettle({}, "")), "0 lines, 0 packets");
}

// Program 3 ends the decode; target, temperature and the four after it are not reached.
TEST(CaptureSummary, CountsADecodeThatEndsEarlyAsAnError) {
  const std::string early = "04 07 50 04 6f 02 00\n";
  EXPECT_EQ(SummaryOf(DecodeKettle({}, early)),
            "1 line, 1 packet (1 notify), 1 error (1 ended early), 6 notes (1 no-item, 5 not-reached)");
  const ToolRun run = DecodeKettle({"--only", "power", "--strict"}, early);
  EXPECT_EQ(SummaryOf(run), "1 line, 1 packet (1 notify), 1 error (1 ended early)");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(CaptureSummary, CountsOnlyWhatIsAskedFor) {
  const std::string beyond = "04 00 79 04 6f 00 00";  // the target's raw value
  for (const std::string document : {"flat", "decoded", "table", "csv"}) {
    ToolRun run = DecodeKettle({"--only", "power", "--strict", "--document", document}, beyond + "\n");
    EXPECT_EQ(run.err, "dp4: 1 line, 1 packet (1 notify)\n") << document;
    EXPECT_EQ(run.exitCode, 0) << document;
    run = DecodeKettle({"--only", "target", "--strict", "--document", document}, beyond + "\n");
    EXPECT_EQ(SummaryOf(run), "1 line, 1 packet (1 notify), 1 note (1 out-of-range)") << document;
    EXPECT_EQ(run.exitCode, 1) << document;
  }
  // Surplus bytes are no attribute's.
  EXPECT_EQ(SummaryOf(DecodeKettle({"--only", "power"}, beyond + " 00\n")),
            "1 line, 1 packet (1 notify), 1 note (1 surplus)");
}

TEST(CaptureSummary, KnowsTheTimesOfJsonLines) {
  EXPECT_EQ(SummaryOf(DecodeKettle({}, R"({"time": "a\u001b", "packet": "02"})"
                                       "\n"
                                       R"({"time": 17, "packet": "02"})"
                                       "\n")),
            "2 lines, 2 packets (2 read), from a\\x1b to 17");
}

TEST(CaptureSummary, IsOfStreamsOnlyAndMayBeLeftOut) {
  EXPECT_EQ(RunTool({"decode", "kettle.json", kPacket}).err, "");
  EXPECT_EQ(DecodeKettle({"--quiet"}, kPacket).err, "");
}

// ---- The module's answers ----

// Names that collide, need escapes or are not UTF-8; places that overlap or are nowhere; payloads of any length.
TEST(CaptureValues, AreTheModulesForOddConfigurations) {
  const std::vector<std::string> names = {"a", "b", "version", "\xff", "\xfe", "k\\u00e4", "q\\\"", "n\\u0000x", ""};
  std::mt19937 random(7);
  const LogCapture silent;
  const auto pick = [&random](size_t count) { return random() % count; };
  size_t received = 0;
  for (size_t round = 0; round < 400; ++round) {
    std::string attributes;
    for (size_t i = 0, count = 1 + pick(6); i < count; ++i) {
      const std::vector<std::string> groups = {"status_writable", "status_readonly", "alert", "fault"};
      const auto offset = static_cast<int>(pick(4));
      const std::string& name = names[pick(names.size())];
      const std::string& group = groups[pick(groups.size())];
      std::string attribute;
      switch (pick(5)) {
        case 0:
          attribute = Attribute(name, group, "bool", Bits(offset, static_cast<int>(pick(8)), pick(9) == 0 ? 2 : 1));
          break;
        case 1:
          attribute = Attribute(name, group, "enum", Bits(offset, static_cast<int>(pick(7)), 2),
                                pick(2) == 0 ? R"("enum": ["x", "y"], )" : R"("enum": ["w", "x", "y", "z"], )");
          break;
        case 2:
          attribute = Attribute(name, group, "binary", Bytes(offset, 2));
          break;
        default:
          attribute = Attribute(name, group, "uint16", Bytes(offset, 1 + static_cast<int>(pick(2))),
                                Scaling("0", pick(2) == 0 ? "200" : "65535", pick(3) == 0 ? "0.5" : "1", "-7"));
      }
      // What a name is called by in documents is its display name, for alerts and faults.
      attributes += (i == 0 ? "" : ", ") + attribute.replace(attribute.find("\"D "), 3, "\"");
    }
    const std::string text = Configuration(attributes);
    inspect::json::SyntaxError syntax;
    const auto configuration = inspect::json::Document::Read("", text, syntax);
    ASSERT_TRUE(configuration) << text;
    const inspect::EntityModel entity = inspect::ModelOf(*configuration, inspect::ChooseEntity(*configuration, ""));
    inspect::PacketReader reader(entity);
    const auto flat = MakeForm(inspect::DocumentForm::kFlat, entity, {});
    const auto decoded = MakeForm(inspect::DocumentForm::kDecoded, entity, {});
    for (size_t k = 0; k < 8; ++k) {
      inspect::Bytes packet = {4};
      for (size_t i = 0, count = 1 + pick(8); i < count; ++i)
        packet.push_back(static_cast<byte>(pick(3) == 0 ? 1 : random()));
      std::string document;
      std::vector<TavelReceiveInfo> alerts;
      std::vector<TavelReceiveInfo> faults;
      ASSERT_TRUE(ProtocolReceivePacket_4_0(entity.Info(), entity.Reading().records, packet.data(), packet.size(),
                                            document, alerts, faults));
      document.pop_back();  // its line end
      inspect::PacketError error;
      const inspect::PacketReading* reading = reader.Read(packet, error);
      ASSERT_NE(reading, nullptr);
      std::string result;
      flat->Append(*reading, result);
      EXPECT_THAT(result, StartsWith(R"({"command":4,"values":)" + document + ",\"alerts\":")) << text;
      const auto activeText = [](const std::vector<TavelReceiveInfo>& active) {
        std::string list;
        for (const TavelReceiveInfo& info : active) {
          list += (list.empty() ? "" : ",") + inspect::json::CompactText(info.name) + ":" + std::to_string(info.value);
        }
        return "{" + list + "}";
      };
      EXPECT_THAT(result,
                  HasSubstr("\"active\":{\"alerts\":" + activeText(alerts) + ",\"faults\":" + activeText(faults)));
      MorvixProtocolPackage_4_0 package;
      package.value = packet.data() + 1;
      package.sizeValue = packet.size() - 1;
      Json::Value expected(Json::objectValue);
      ProtocolDecodeAttributes_4_0(entity.Info(), entity.Reading().records, package, expected);
      std::string decodedText;
      decoded->Append(*reading, decodedText);
      EXPECT_EQ(decodedText, inspect::json::CompactText(expected)) << text;
      ++received;
    }
  }
  EXPECT_EQ(received, 3200U);
}

}  // namespace
