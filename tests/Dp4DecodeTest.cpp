// `dp4 decode`. The golden files in tests/golden/dp4/ follow from the products' pages in tests/golden/, where the
// notifications are worked out by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string Notification(const std::string& product) {
  return ReadFile(std::string(EXAMPLES_DIR) + "/" + product + ".notify.hex");
}

std::string WithoutBlanks(const std::string& text) {
  std::string digits;
  for (const char c : text) {
    if (c != ' ' && c != '\n') digits += c;
  }
  return digits;
}

// kettle.notify.hex in flat form, and the same without its line end.
std::string KettleLine() { return Golden("kettle.decode.flat.jsonl"); }
std::string KettleResult() {
  const std::string line = KettleLine();
  return line.substr(0, line.size() - 1);
}

// Without a summary.
ToolRun DecodeKettle(std::vector<std::string> arguments, const std::string& standardInput = "") {
  arguments.insert(arguments.begin(), {"decode", "kettle.json", "--quiet"});
  return RunTool(arguments, standardInput);
}

// The configuration comes on standard input.
ToolRun DecodeWith(const std::string& configuration, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"decode", "-"});
  return RunTool(arguments, configuration);
}

void ExpectFine(const ToolRun& run, const std::string& out) {
  EXPECT_EQ(run.out, out);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

void ExpectProblem(const ToolRun& run, const std::string& out, const std::string& err) {
  EXPECT_EQ(run.out, out);
  EXPECT_EQ(run.err, err);
  EXPECT_EQ(run.exitCode, 1);
}

// The record of a packet with an error; `message` is plain.
std::string ErrorRecord(const std::string& message) { return "{\"error\":\"" + message + "\"}\n"; }

void ExpectUsageError(const ToolRun& run, const std::string& message) {
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "dp4: " + message + "\n");
  EXPECT_EQ(run.exitCode, 2);
}

// A configuration of one entity with these attributes.
std::string Configuration(const std::string& entity, const std::string& attributes) {
  return R"({"entities": [{"id": 0, "name": ")" + entity + R"(", "display_name": "", "attrs": [)" + attributes + "]}]}";
}

// One bit of byte 0, or another kind of attribute there.
std::string Attribute(const std::string& name, const std::string& displayName, const std::string& type, int bit,
                      const std::string& kind = R"("data_type": "bool")", int len = 1) {
  return R"({"id": 0, "name": ")" + name + R"(", "display_name": ")" + displayName + R"(", "desc": "", "type": ")" +
         type + "\", " + kind + R"(, "position": {"byte_offset": 0, "unit": "bit", "bit_offset": )" +
         std::to_string(bit) + ", \"len\": " + std::to_string(len) + "}}";
}

// ---- The examples ----

class DecodeExample : public testing::TestWithParam<std::string> {
 protected:
  static ToolRun Decode(const std::string& document) {
    return RunTool({"decode", GetParam() + ".json", "--entity", "0", Notification(GetParam()), "--document", document});
  }
};

TEST_P(DecodeExample, GivesTheGoldenFlatResults) {
  ExpectGolden(Decode("flat").out, GetParam() + ".decode.flat.jsonl");
}

TEST_P(DecodeExample, GivesTheGoldenDecodedDocument) {
  ExpectGolden(Decode("decoded").out, GetParam() + ".decode.decoded.jsonl");
}

TEST_P(DecodeExample, GivesTheGoldenTable) {
  const ToolRun run = Decode("table");
  ExpectGolden(run.out, GetParam() + ".decode.table.txt");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

TEST_P(DecodeExample, GivesFlatResultsWithoutBeingAsked) {
  const std::string line = WithoutBlanks(Notification(GetParam())) + "\n";
  ExpectFine(RunTool({"decode", GetParam() + ".json", "--entity", "0", "--quiet"}, line),
             Golden(GetParam() + ".decode.flat.jsonl"));
}

INSTANTIATE_TEST_SUITE_P(Examples, DecodeExample,
                         testing::Values("kettle", "air_conditioner", "gateway", "power_meter"),
                         [](const testing::TestParamInfo<std::string>& test) { return test.param; });

// ---- The writing of packets ----

TEST(DecodePacket, IsHexadecimalInOneWriting) {
  for (const std::string packet :
       {"04055a04640101", "04055A04640101", "04 05 5a 04 64 01 01", "0x04055a04640101", "04:05:5a:04:64:01:01",
        "0x04, 0x05, 0x5a, 0x04, 0x64, 0x01, 0x01", "0X04 0X05 0x5a 0X04 0x64 0x01 0x01", "  04055a04640101\r\n",
        "0405 5a04 6401 01", "04055a:046401:01", "04,05,5a,04,64,01,01", "04 05 5a\t04  64 01\n01",
        "{0x04, 0x05, 0x5a, 0x04, 0x64, 0x01, 0x01}", "{ 0x04,0x05,0x5a,\n\t0x04,0x64,0x01,\n\t0x01,\n}",
        "{04055a04640101}", "{04 05 5a 04 64 01 01 }"}) {
    ExpectFine(DecodeKettle({packet}), KettleLine());
  }
}

TEST(DecodePacket, IsDecodedOneAfterTheOther) {
  // 03 is a read response. Program 01 and target 80 come from 03 50; (0x046f = 1135) * 0.1 - 20 = 93.5; 02 is the lid.
  ExpectFine(DecodeKettle({"04055a04640101", "03 03 50 04 6f 02 00"}),
             KettleLine() +
                 R"({"command":3,"values":{"kettle":{"power":true,"program":"1","target":"80","temperature":"93.5"},)"
                 R"("version":4.0},)"
                 R"("alerts":{"Lid open":true,"Low water":false},"faults":{"Sensor broken":false},)"
                 R"("active":{"alerts":{"Lid open":1},"faults":{}}})"
                 "\n");
}

TEST(DecodePacket, IsReportedWithTheColumnAndWhatWasExpected) {
  struct Case {
    std::string packet;
    std::string place;
    std::string message;
  };
  const std::string second = "expected the second hexadecimal digit of a byte, found ";
  const std::string oneLength = "expected groups of digits of one length, found ";
  for (const Case& test :
       std::vector<Case>{{"", ":1", "expected hexadecimal digits, found the end"},
                         {" \n", ":3", "expected hexadecimal digits, found the end"},
                         {"04055", ":6", second + "the end"},
                         {"04 5 5a", ":5", second + "a blank"},
                         {"04:0g", ":5", second + "'g'"},
                         {"04xx", ":3", "expected a hexadecimal digit, found 'x'"},
                         {"04055a 0x", ":8", "expected no 0x before a group, found '0'"},
                         {"0x04 05", ":6", "expected 0x before each group, found '0'"},
                         {"0x04 0x", ":8", "expected a hexadecimal digit, found the end"},
                         {"04::05", ":4", "expected a byte, found ':'"},
                         {":04", ":1", "expected a byte, found ':'"},
                         {"04,05,", ":7", "expected a byte, found the end"},
                         {"04 05,5a", ":6", "expected a blank, as before, found ','"},
                         {"04,05 5a", ":6", "expected a comma, as before, found a blank"},
                         {"04:05 5a", ":6", "expected a colon, as before, found a blank"},
                         {"04: 05", ":4", "expected a hexadecimal digit, found a blank"},
                         {"04 05 5a04640101", ":7", oneLength + "'5'"},
                         {"0405 5a 0464", ":9", "expected the end after a shorter group, found '0'"},
                         {"{04 05", ":7", "expected a closing brace, found the end"},
                         {"{04} 05", ":6", "expected the end, found '0'"},
                         {"04 05}", ":6", "expected a hexadecimal digit, found '}'"},
                         {"04\xc3\xa4", ":3", "expected a hexadecimal digit, found a character beyond ASCII"}}) {
    ExpectProblem(DecodeKettle({test.packet}), ErrorRecord(test.message),
                  "dp4: packet 1" + test.place + ": " + test.message + "\n");
  }
  // An escape in a message is escaped once more in JSON.
  ExpectProblem(DecodeKettle({"04\x1b[2J"}), ErrorRecord("expected a hexadecimal digit, found '\\\\x1b'"),
                "dp4: packet 1:3: expected a hexadecimal digit, found '\\x1b'\n");
}

// A time of day has colons, or blanks between digits of other lengths.
TEST(DecodePacket, IsNeverATimeWithAPacketAfterIt) {
  for (const std::string line : {"03:15:22 04055a019f0100", "04:05:06 04 05 5a 01 9f 01 00", "03 15 22 04055a019f0100",
                                 "0315 04055a019f0100", "2026-01-31 04055a019f0100", "04:05:06,04055a019f0100",
                                 "04055a019f0100 # on", "# 04055a019f0100", "packet 04055a019f0100"}) {
    const ToolRun run = DecodeKettle({}, line);
    EXPECT_EQ(run.exitCode, 1) << line;
    EXPECT_THAT(run.out, StartsWith("{\"error\":\"expected ")) << line;
  }
}

TEST(DecodePacket, IsRefusedWithTheReason) {
  const std::string shortText = "too short; expected a command byte and at least one byte of payload";
  ExpectProblem(DecodeKettle({"04"}), ErrorRecord(shortText), "dp4: packet 1: " + shortText + "\n");
  for (const std::string packet : {"0a00", "0000", "ff", "05", "0e00"}) {
    const std::string text = "command " + packet.substr(0, 2) + " is unknown; expected 01 to 04, 07, 08, 0b, 0c or 0d";
    ExpectProblem(DecodeKettle({packet}), ErrorRecord(text), "dp4: packet 1: " + text + "\n");
  }
}

TEST(DecodePacket, HasUpTo16384BytesOfPayload) {
  std::string packet = "04055a04640101";
  while (packet.size() < 2 * 16385) packet += "00";
  // What is beyond the kettle's six bytes is told.
  const std::string surplus = R"(,"notes":[{"kind":"surplus","place":{"firstBit":48,"bits":131024}}]})";
  const std::string line = KettleResult();
  ExpectFine(DecodeKettle({}, packet + "\n"), line.substr(0, line.size() - 1) + surplus + "\n");
  const std::string tooLong = "too long; expected a command byte and at most 16384 bytes of payload";
  ExpectProblem(DecodeKettle({}, packet + "00\n"), ErrorRecord(tooLong), "dp4: standard input:1: " + tooLong + "\n");
}

TEST(DecodePacket, DoesNotKeepTheNextOnesFromBeingDecoded) {
  const std::string text = "expected the second hexadecimal digit of a byte, found 'g'";
  ExpectProblem(DecodeKettle({"04 0g", "04055a04640101"}), ErrorRecord(text) + KettleLine(),
                "dp4: packet 1:5: " + text + "\n");
}

TEST(DecodePacket, WithBlanksNeedsQuotationMarks) {
  ExpectUsageError(DecodeKettle({"04", "05", "5a", "04", "64", "01", "01"}),
                   "each PACKET is a byte at most; expected quotation marks around a packet with blanks");
}

// ---- Packets that do not decode as a whole ----

// What the application would be told comes out all the same.
// The kettle's places: bits 7, 6 to 5, 8 to 15 and 16 to 31, 39, 38 and 47, with bit 0 the highest of byte 0.
TEST(DecodeFailure, OfABoolLosesTheEntity) {
  const ToolRun run = DecodeKettle({"04 03 50 04 6f 02"});
  ExpectProblem(run,
                R"({"command":4,"values":{"version":4.0},"alerts":{},"faults":{},"active":{"alerts":{},"faults":{}},)"
                R"("notes":[{"kind":"not-reached","name":"power","place":{"firstBit":7,"bits":1}},)"
                R"({"kind":"not-reached","name":"program","place":{"firstBit":5,"bits":2}},)"
                R"({"kind":"not-reached","name":"target","place":{"firstBit":8,"bits":8}},)"
                R"({"kind":"not-reached","name":"temperature","place":{"firstBit":16,"bits":16}},)"
                R"({"kind":"not-reached","name":"low_water","place":{"firstBit":39,"bits":1}},)"
                R"({"kind":"not-reached","name":"lid_open","place":{"firstBit":38,"bits":1}},)"
                R"({"kind":"short","name":"sensor","place":{"firstBit":47,"bits":1}}]})"
                "\n",
                "dp4: packet 1: \"sensor\" unreadable: Decode value is invalid. (expected 6 bytes of payload, found "
                "5)\n");
  EXPECT_EQ(DecodeKettle({"04 03 50 04 6f 02", "--document", "decoded"}).out, "{}\n");
}

TEST(DecodeFailure, OfAnEnumKeepsWhatCameBefore) {
  const std::string err =
      "dp4: packet 1: \"program\" unreadable: Invalid enum value: 3, range: 0-3 (expected 0 to 2; the line's 3 counts "
      "the items)\n";
  ExpectProblem(
      DecodeKettle({"04 07 50 04 6f 02 00"}),
      R"({"command":4,"values":{"kettle":{"power":true},"version":4.0},"alerts":{},"faults":{},"active":{)"
      R"("alerts":{},"faults":{}},)"
      R"("notes":[{"kind":"no-item","name":"program","place":{"firstBit":5,"bits":2},"raw":3,"min":0,"max":2},)"
      R"({"kind":"not-reached","name":"target","place":{"firstBit":8,"bits":8}},)"
      R"({"kind":"not-reached","name":"temperature","place":{"firstBit":16,"bits":16}},)"
      R"({"kind":"not-reached","name":"low_water","place":{"firstBit":39,"bits":1}},)"
      R"({"kind":"not-reached","name":"lid_open","place":{"firstBit":38,"bits":1}},)"
      R"({"kind":"not-reached","name":"sensor","place":{"firstBit":47,"bits":1}}]})"
      "\n",
      err);
  ExpectProblem(DecodeKettle({"04 07 50 04 6f 02 00", "--document", "decoded"}),
                "{\"kettle\":{\"power\":{\"type\":1,\"value\":true}}}\n", err);
}

TEST(DecodeFailure, IsToldInTheTable) {
  ExpectProblem(DecodeKettle({"04 07 50 04 6f 02 00", "04 03 50 04 6f 02", "--document", "table"}),
                "packet 1: notification, kettle, 6 bytes of payload\n"
                "\n"
                "NAME           GROUP      PLACE    BITS   VALUE  NOTE\n"
                "power          writable   0.0      1      true\n"
                "program        writable   0.2-0.1  11            unreadable: Invalid enum value: 3, range: 0-3\n"
                "target         writable   1        50     80     not reported: program is unreadable\n"
                "temperature    read-only  2-3      04 6f  93.5   not reported: program is unreadable\n"
                "Low water      alert      4.0      0      false  not reported: program is unreadable\n"
                "Lid open       alert      4.1      1      true   not reported: program is unreadable\n"
                "Sensor broken  fault      5.0      0      false  not reported: program is unreadable\n"
                "\n"
                "packet 2: notification, kettle, 5 bytes of payload\n"
                "\n"
                "NAME           GROUP      PLACE    BITS   VALUE  NOTE\n"
                "power          writable   0.0      1      true   not reported: Sensor broken is unreadable\n"
                "program        writable   0.2-0.1  01     1      not reported: Sensor broken is unreadable\n"
                "target         writable   1        50     80     not reported: Sensor broken is unreadable\n"
                "temperature    read-only  2-3      04 6f  93.5   not reported: Sensor broken is unreadable\n"
                "Low water      alert      4.0      0      false  not reported: Sensor broken is unreadable\n"
                "Lid open       alert      4.1      1      true   not reported: Sensor broken is unreadable\n"
                "Sensor broken  fault      nowhere                unreadable: Decode value is invalid.\n"
                "\n"
                "PLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n",
                "dp4: packet 1: \"program\" unreadable: Invalid enum value: 3, range: 0-3 (expected 0 to 2; the line's "
                "3 counts the items)\n"
                "dp4: packet 2: \"sensor\" unreadable: Decode value is invalid. (expected 6 bytes of payload, found "
                "5)\n");
}

// A number that its limits refuse is left out without a line of the module; the notes and the table tell.
TEST(DecodeFailure, IsNoneWhereANumberIsLeftOut) {
  ExpectFine(DecodeKettle({"04 00 79 04 6f 00 00"}),
             R"({"command":4,"values":{"kettle":{"power":false,"program":"0","temperature":"93.5"},"version":4.0},)"
             R"("alerts":{"Lid open":false,"Low water":false},"faults":{"Sensor broken":false},)"
             R"("active":{"alerts":{},"faults":{}},)"
             R"("notes":[{"kind":"out-of-range","name":"target","place":{"firstBit":8,"bits":8},"raw":121,"min":0,)"
             R"("max":120}]})"
             "\n");
  EXPECT_THAT(DecodeKettle({"04 00 79 04 6f 00 00", "--document", "table"}).out,
              HasSubstr("target         writable   1        79            left out: raw 121, expected 0 to 120\n"));
  const std::string unusable = R"({"id": 0, "name": "n", "display_name": "", "desc": "", "type": "status_readonly",
      "data_type": "uint8", "uint_spec": {"min": 5, "max": 5, "ratio": 1, "addition": 0},
      "position": {"byte_offset": 0, "bit_offset": 0, "unit": "byte", "len": 1}})";
  EXPECT_THAT(DecodeWith(Configuration("box", unusable), {"0405", "--document", "table"}).out,
              HasSubstr("left out: its scaling takes no value; dp4 lint tells why\n"));
}

TEST(DecodeFailure, IsNoneWhereThePayloadEndsBeforeANumber) {
  const std::string late = R"({"id": 0, "name": "late", "display_name": "", "desc": "", "type": "status_readonly",
      "data_type": "uint8", "uint_spec": {"min": 0, "max": 9, "ratio": 1, "addition": 0},
      "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1}})";
  const std::string attributes = Attribute("on", "", "status_readonly", 0) + ", " + late;
  ExpectFine(
      DecodeWith(Configuration("box", attributes), {"0401"}),
      R"({"command":4,"values":{"box":{"on":true},"version":4.0},"alerts":{},"faults":{},)"
      R"("active":{"alerts":{},"faults":{}},"notes":[{"kind":"short","name":"late","place":{"firstBit":8,"bits":8}}]})"
      "\n");
  ExpectFine(DecodeWith(Configuration("box", attributes), {"0401", "--document", "table"}),
             "packet 1: notification, box, 1 byte of payload\n"
             "\n"
             "NAME  GROUP      PLACE    BITS  VALUE  NOTE\n"
             "on    read-only  0.0      1     true\n"
             "late  read-only  nowhere               left out: not readable in this payload\n"
             "\n"
             "PLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n");
}

TEST(DecodeFailure, MayBeThePlaces) {
  ExpectProblem(
      DecodeWith(Configuration("box", Attribute("wide", "", "status_readonly", 0, R"("data_type": "bool")", 2)),
                 {"0400"}),
      R"({"command":4,"values":{"version":4.0},"alerts":{},"faults":{},"active":{"alerts":{},"faults":{}},)"
      R"("notes":[{"kind":"not-reached","name":"wide"}]})"
      "\n",
      "dp4: packet 1: \"wide\" unreadable: Decode value is invalid. (nothing can be read from its place; dp4 "
      "lint tells why)\n");
}

TEST(DecodeLog, ShowsTheModulesLines) {
  const ToolRun run = DecodeKettle({"04 07 50 04 6f 02 00", "--log"});
  EXPECT_EQ(run.err,
            "[2] Filter entity: id='0' name='kettle' display_name='Kettle'\n"
            "[1] ProtocolDecodeEntity_4_0: Invalid enum value: 3, range: 0-3\n"
            "dp4: packet 1: \"program\" unreadable: Invalid enum value: 3, range: 0-3 (expected 0 to 2; the line's 3 "
            "counts the items)\n");
}

// ---- Alerts and faults in flat results, where names collide ----

void ExpectWarned(const ToolRun& run, const std::string& out, const std::string& warning) {
  EXPECT_EQ(run.out, out);
  EXPECT_EQ(run.err, "dp4: warning: " + warning + "\n");
  EXPECT_EQ(run.exitCode, 0);
}

// Bits 0 and 1 are the alerts. Both go by the display name "Hot", and the later one replaces the earlier: on, then off.
TEST(DecodeFlat, HasTheLaterOfTwoAlertsOfOneName) {
  const std::string twins = Attribute("a", "Hot", "alert", 0) + ", " + Attribute("b", "Hot", "alert", 1);
  ExpectWarned(DecodeWith(Configuration("box", twins), {"0401", "0402"}),
               "{\"command\":4,\"values\":{\"box\":{},\"version\":4.0},\"alerts\":{\"Hot\":false},\"faults\":{},"
               "\"active\":{\"alerts\":{},\"faults\":{}}}\n"
               "{\"command\":4,\"values\":{\"box\":{},\"version\":4.0},\"alerts\":{\"Hot\":true},\"faults\":{},"
               "\"active\":{\"alerts\":{\"Hot\":1},\"faults\":{}}}\n",
               "\"a\" gives way to \"b\": both are \"Hot\" in the result");
  // Nobody misses a value that a form does have.
  for (const char* form : {"table", "csv"}) {
    EXPECT_EQ(DecodeWith(Configuration("box", twins), {"0401", "--document", form}).err, "") << form;
  }
  EXPECT_EQ(DecodeWith(Configuration("box", twins), {"0401", "--document", "decoded"}).err,
            "dp4: warning: \"a\" gives way to \"b\": both are \"Hot\" in the result\n");
}

// The status comes later and replaces the alert, which is then no alert any more.
TEST(DecodeFlat, HasNoAlertThatAStatusReplaces) {
  const std::string attributes = Attribute("a", "Hot", "alert", 0) + ", " + Attribute("Hot", "", "status_readonly", 1);
  ExpectWarned(DecodeWith(Configuration("box", attributes), {"0401"}),
               "{\"command\":4,\"values\":{\"box\":{\"Hot\":false},\"version\":4.0},\"alerts\":{},\"faults\":{},"
               "\"active\":{\"alerts\":{},\"faults\":{}}}\n",
               "\"a\" gives way to \"Hot\": both are \"Hot\" in the result");
  const ToolRun table = DecodeWith(Configuration("box", attributes), {"0401", "--document", "table"});
  EXPECT_EQ(table.out,
            "packet 1: notification, box, 1 byte of payload\n"
            "\n"
            "NAME  GROUP      PLACE  BITS  VALUE  NOTE\n"
            "Hot   alert      0.0    1     true   not reported: another attribute of this name follows\n"
            "Hot   read-only  0.1    0     false\n"
            "\n"
            "PLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n");
}

TEST(DecodeFlat, HasTheFaultThatReplacesAnAlert) {
  const std::string attributes = Attribute("a", "Hot", "alert", 0) + ", " + Attribute("b", "Hot", "fault", 0);
  ExpectWarned(DecodeWith(Configuration("box", attributes), {"0401"}),
               "{\"command\":4,\"values\":{\"box\":{},\"version\":4.0},\"alerts\":{},\"faults\":{\"Hot\":true},"
               "\"active\":{\"alerts\":{},\"faults\":{\"Hot\":1}}}\n",
               "\"a\" gives way to \"b\": both are \"Hot\" in the result");
}

// The version takes the entity's place.
TEST(DecodeFlat, HasNothingOfAnEntityCalledVersion) {
  ExpectWarned(DecodeWith(Configuration("version", Attribute("a", "Hot", "alert", 0)), {"0401"}),
               "{\"command\":4,\"values\":{\"version\":4.0},\"alerts\":{},\"faults\":{},\"active\":{\"alerts\":{},"
               "\"faults\":{}}}\n",
               "the entity \"version\" gives way to the document's version in the result");
}

TEST(DecodeFlat, KeepsAnAlertsOwnValueBesideTheActiveInteger) {
  // Raw 5 * 0.5 = 2.5, active as 2; raw 1 is 0.5, which begins with the integer 0.
  const std::string level = R"({"id": 0, "name": "level", "display_name": "Level", "desc": "", "type": "fault",
      "data_type": "uint8", "uint_spec": {"min": 0, "max": 255, "ratio": 0.5, "addition": 0},
      "position": {"byte_offset": 0, "bit_offset": 0, "unit": "byte", "len": 1}})";
  ExpectFine(DecodeWith(Configuration("box", level), {"0405", "0401"}),
             "{\"command\":4,\"values\":{\"box\":{},\"version\":4.0},\"alerts\":{},\"faults\":{\"Level\":\"2.5\"},"
             "\"active\":{\"alerts\":{},\"faults\":{\"Level\":2}}}\n"
             "{\"command\":4,\"values\":{\"box\":{},\"version\":4.0},\"alerts\":{},\"faults\":{\"Level\":\"0.5\"},"
             "\"active\":{\"alerts\":{},\"faults\":{}}}\n");
}

TEST(DecodeFlat, HasNothingOfAnEntityWithoutAttributes) {
  ExpectFine(DecodeWith(Configuration("box", ""), {"0401"}),
             R"({"command":4,"values":{"version":4.0},"alerts":{},"faults":{},"active":{"alerts":{},"faults":{}},)"
             R"("notes":[{"kind":"surplus","place":{"firstBit":0,"bits":8}}]})"
             "\n");
}

TEST(DecodeText, IsEscaped) {
  const std::string attributes = Attribute("a", R"(Hot\u001b[2J\n\u009b\"\\x)", "alert", 0);
  const ToolRun flat = DecodeWith(Configuration("box", attributes), {"0401"});
  ExpectFine(
      flat, R"({"command":4,"values":{"box":{},"version":4.0},"alerts":{"Hot\u001b[2J\n\u009b\"\\x":true},"faults":{},)"
            R"("active":{"alerts":{"Hot\u001b[2J\n\u009b\"\\x":1},"faults":{}}})"
            "\n");
  const ToolRun table = DecodeWith(Configuration("box", attributes), {"0401", "--document", "table"});
  EXPECT_THAT(table.out, HasSubstr(R"(Hot\x1b[2J\n\u009b"\\x  alert  0.0    1     true   active)"));
}

TEST(DecodeTable, IsColouredOnlyWhenAsked) {
  const ToolRun run = DecodeKettle({"04055a04640101", "--document", "table", "--color", "always"});
  EXPECT_THAT(run.out, HasSubstr("\x1b[1mNAME\x1b[0m"));
  EXPECT_THAT(run.out, HasSubstr("\x1b[33mactive\x1b[0m"));  // an alert
  EXPECT_THAT(run.out, HasSubstr("\x1b[31mactive\x1b[0m"));  // a fault
}

// ---- Streams of packets ----

TEST(DecodeStream, HasAPacketALine) {
  ExpectFine(DecodeKettle({}, "04055a04640101\n\n \r\n04 05 5a 04 64 01 01\r\n0x04055a04640101"),
             KettleLine() + KettleLine() + KettleLine());
  ExpectFine(DecodeKettle({}, ""), "");
}

TEST(DecodeStream, ReportsBadLinesByNumberAndGoesOn) {
  const std::string digit = "expected a hexadecimal digit, found 'h'";
  const std::string shortText = "too short; expected a command byte and at least one byte of payload";
  const std::string second = "expected the second hexadecimal digit of a byte, found the end";
  ExpectProblem(DecodeKettle({}, "04055a04640101\n\nhello\n04\n04055a04640101\n0405 5\n"),
                KettleLine() + ErrorRecord(digit) + ErrorRecord(shortText) + KettleLine() + ErrorRecord(second),
                "dp4: standard input:3:1: " + digit + "\ndp4: standard input:4: " + shortText +
                    "\ndp4: standard input:6:7: " + second + "\n");
}

TEST(DecodeStream, PassesOverLinesThatAreTooLong) {
  const std::string limit = "expected a line of at most 1048576 bytes";
  ExpectProblem(DecodeKettle({}, std::string(5000000, 'a') + "\n04055a04640101\n" + std::string(1048577, '0')),
                ErrorRecord(limit) + KettleLine() + ErrorRecord(limit),
                "dp4: standard input:1: " + limit + "\ndp4: standard input:3: " + limit + "\n");
  // One byte less is a line like any other.
  const std::string tooLong = "too long; expected a command byte and at most 16384 bytes of payload";
  ExpectProblem(DecodeKettle({}, std::string(1048576 - 14, ' ') + "04055a04640101\n04" + std::string(1048574, '0')),
                KettleLine() + ErrorRecord(tooLong), "dp4: standard input:2: " + tooLong + "\n");
}

TEST(DecodeStream, HasATableForEachPacket) {
  const ToolRun run = DecodeKettle({"--document", "table"}, "04055a04640101\nx\n{\"packet\": \"0400500000\"}\n");
  EXPECT_EQ(run.exitCode, 1);
  const std::string golden = Golden("kettle.decode.table.txt");
  const std::string first = golden.substr(0, golden.find("\n\nPLACE") + 1);
  EXPECT_THAT(run.out, StartsWith("line 1" + first.substr(first.find(':')) +
                                  "\nline 2: expected a hexadecimal digit, found 'x'\n"
                                  "\nline 3: notification, kettle, 4 bytes of payload\n\n"));
}

TEST(DecodeStream, CannotShareStandardInputWithTheConfiguration) {
  ExpectUsageError(RunTool({"decode", "-"}, "{}"), "standard input cannot be both the configuration and the packets");
}

TEST(DecodeStream, NeedsAnEntityToBeChosenFromSeveral) {
  ExpectUsageError(RunTool({"decode", "gateway.json"}, ""),
                   "gateway.json: name one of the entities with --entity: gateway (0), thermostat (1)");
}

// ---- Lines that are JSON objects ----

TEST(DecodeJsonLine, HasItsPacketReplacedAndTheRestKeptAsItStands) {
  ExpectFine(
      DecodeKettle({}, R"({"time": 1.50e3, "packet": "04 05 5a 04 64 01 01", "b": [1,{"packet": 2}], "a": "\u00e4"})"
                       "\n"
                       R"( {"packet":"0x04055a04640101"} )"
                       "\r\n"
                       "04055a04640101\n"),
      R"({"time": 1.50e3, "packet": )" + KettleResult() + R"(, "b": [1,{"packet": 2}], "a": "\u00e4"})" + "\n" +
          R"( {"packet":)" + KettleResult() + "}  \n" + KettleLine());
}

TEST(DecodeJsonLine, KeepsNumbersThatNoMachineNumberHolds) {
  ExpectFine(DecodeKettle({}, R"({"id": 123456789012345678901234567890.000, "packet": "04055a04640101"})"),
             R"({"id": 123456789012345678901234567890.000, "packet": )" + KettleResult() + "}\n");
}

TEST(DecodeJsonLine, KeepsSlashesInTexts) {
  ExpectFine(DecodeKettle({}, R"({"\"//": "http://a /* b */", "packet": "04055a04640101"})"),
             R"({"\"//": "http://a /* b */", "packet": )" + KettleResult() + "}\n");
}

TEST(DecodeJsonLine, CannotSteerATerminal) {
  ExpectFine(DecodeKettle(
                 {}, "{\"a\": \"\x1b[2J\x7f\xc2\x9b\\\"\x07\", \"packet\": \"04055a04640101\",\t\"b\": \"\xc3\xa4\"}"),
             R"({"a": "\u001b[2J\u007f\u009b\"\u0007", "packet": )" + KettleResult() + ", \"b\": \"\xc3\xa4\"}\n");
}

TEST(DecodeJsonLine, TakesTheOtherDocuments) {
  const std::string decoded = Golden("kettle.decode.decoded.jsonl");
  ExpectFine(DecodeKettle({"--document", "decoded"}, R"({"packet": "04055a04640101", "n": 1})"),
             "{\"packet\": " + decoded.substr(0, decoded.size() - 1) + ", \"n\": 1}\n");
  EXPECT_THAT(
      DecodeKettle({"--document", "table"}, R"({"n": 1.0, "packet": "04055a04640101", "a": "\u009b"})").out,
      StartsWith(
          "line 1 {\"n\": 1.0, \"packet\": ..., \"a\": \"\\u009b\"}: notification, kettle, 6 bytes of payload\n"));
}

TEST(DecodeJsonLine, KeepsTheOthersAsTheyAreSpelt) {
  EXPECT_THAT(
      DecodeKettle({"--document", "table"}, R"({"t": 1.10, "x": 12345678901234567890123, "packet": "04055a04640101"})")
          .out,
      StartsWith(R"(line 1 {"t": 1.10, "x": 12345678901234567890123, "packet": ...}: notification)"));
}

TEST(DecodeJsonLine, IsReportedWithItsPlace) {
  struct Case {
    std::string line;
    std::string place;
    std::string message;
    std::string record;  // with an E where the message stands
  };
  const std::string member = R"(expected a member "packet", a string of hexadecimal digits)";
  const std::string error = R"({"error":"expected a member \"packet\", a string of hexadecimal digits"})";
  for (const Case& test : std::vector<Case>{
           {R"({"packet": 4})", ":12", member, R"({"packet": )" + error + "}"},
           {R"({"n": 1, "packet": ["04"], "m": 2})", ":20", member, R"({"n": 1, "packet": )" + error + R"(, "m": 2})"},
           {R"({"Packet": "04"} )", ":1", member, R"({"Packet": "04","packet":)" + error + "} "},
           {"{ }", ":1", member, R"({ "packet":)" + error + "}"},
           {R"({"n": 1, "packet": "04 0g"})", ":25", "expected the second hexadecimal digit of a byte, found 'g'",
            R"({"n": 1, "packet": {"error":"expected the second hexadecimal digit of a byte, found 'g'"}})"},
           {R"({"packet": "04", "n": 1})", "", "too short; expected a command byte and at least one byte of payload",
            R"({"packet": {"error":"too short; expected a command byte and at least one byte of payload"}, "n": 1})"},
           {R"({"packet": "0501"})", "", "command 05 is unknown; expected 01 to 04, 07, 08, 0b, 0c or 0d",
            R"({"packet": {"error":"command 05 is unknown; expected 01 to 04, 07, 08, 0b, 0c or 0d"}})"}}) {
    ExpectProblem(DecodeKettle({}, "\n" + test.line + "\n04055a04640101\n"), test.record + "\n" + KettleLine(),
                  "dp4: standard input:2" + test.place + ": " + test.message + "\n");
  }
}

// The record keeps its line's other members, whatever the packet's member is called.
TEST(DecodeJsonLine, HasItsPacketInTheMemberThatIsAskedFor) {
  ExpectFine(DecodeKettle({"--member", "data"}, R"({"packet": 7, "data": "04055a04640101", "time": 1})"),
             R"({"packet": 7, "data": )" + KettleResult() + ", \"time\": 1}\n");
  EXPECT_THAT(DecodeKettle({"--member", "data"}, R"({"packet": "04055a04640101"})").err,
              HasSubstr(":1: expected a member \"data\", a string of hexadecimal digits\n"));
  EXPECT_EQ(DecodeKettle({"--member", "data", "--line", "time"}).exitCode, 2);
  for (const char* member : {"data", "packet"}) {
    ExpectUsageError(DecodeKettle({"--member", member, "04055a04640101"}),
                     "--member is for lines of standard input; expected no PACKET");
  }
}

// 1e400 is JSON.
TEST(DecodeJsonLine, HasNumbersThatADoubleHolds) {
  ExpectProblem(DecodeKettle({}, R"({"n": 1e400, "packet": "02"})"), ErrorRecord("number overflow parsing '1e400'"),
                "dp4: standard input:1:1: number overflow parsing '1e400'\n");
}

TEST(DecodeJsonLine, IsStrictJson) {
  for (const std::string line :
       {R"({"packet": "04055a04640101")", R"({"packet": "04055a04640101",})", R"({"packet": "04055a04640101"} x)",
        R"({"packet": "04055a04640101" /* the kettle */})", R"({"packet": "00", "packet": "04055a04640101"})",
        R"({'packet': '04055a04640101'})"}) {
    const ToolRun run = DecodeKettle({}, line);
    EXPECT_EQ(run.exitCode, 1) << line;
    EXPECT_THAT(run.out, StartsWith("{\"error\":\"not JSON: ")) << line;
    EXPECT_THAT(run.err, StartsWith("dp4: standard input:1:")) << line;
    EXPECT_THAT(run.err, HasSubstr(": not JSON: ")) << line;
  }
  ExpectProblem(DecodeKettle({}, "{\"packet\": " + std::string(5000, '[') + std::string(5000, ']') + "}"),
                ErrorRecord("not JSON: nested too deep"), "dp4: standard input:1:1: not JSON: nested too deep\n");
}

// ---- Long streams ----

// The temperature of packet i is raw i mod 1501, a tenth of a degree each from -20 on; every hundredth lid is open.
std::string LongStream(size_t packets) {
  std::string stream;
  char line[32];
  for (size_t i = 0; i < packets; ++i) {
    std::snprintf(line, sizeof line, "04055a%04zx%02x00\n", i % 1501, i % 100 == 0 ? 2u : 0u);
    stream += line;
  }
  return stream;
}

std::string Tenths(long tenths) {
  const long whole = std::labs(tenths) / 10;
  const long rest = std::labs(tenths) % 10;
  return (tenths < 0 ? "-" : "") + std::to_string(whole) + (rest == 0 ? "" : "." + std::to_string(rest));
}

std::string LongResult(size_t i) {
  const bool isOpen = i % 100 == 0;
  return R"({"command":4,"values":{"kettle":{"power":true,"program":"2","target":"85","temperature":")" +
         Tenths(static_cast<long>(i % 1501) - 200) + R"("},"version":4.0},"alerts":{"Lid open":)" +
         (isOpen ? "true" : "false") + R"(,"Low water":false},"faults":{"Sensor broken":false},"active":{"alerts":{)" +
         (isOpen ? R"("Lid open":1)" : "") + R"(},"faults":{}}})";
}

constexpr size_t kManyPackets = 100000;

TEST(DecodeLongStream, DecodesEveryPacket) {
  const ToolRun run = DecodeKettle({}, LongStream(kManyPackets));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  std::istringstream lines(run.out);
  std::string line;
  for (size_t i = 0; i < kManyPackets; ++i) {
    ASSERT_TRUE(std::getline(lines, line)) << i;
    ASSERT_EQ(line, LongResult(i)) << i;
  }
  EXPECT_FALSE(std::getline(lines, line));
}

TEST(DecodeStream, PassesNothingThroughThatIsNoJson) {
  const std::string packet = "\"packet\":\"04055a019f0100\"}\n";
  const ToolRun run = DecodeKettle({}, "{\"v\":01," + packet + "{\"v\":1.," + packet + "{\"v\":\"\xff\"," + packet +
                                           "{/**/" + packet + "{\"v\":-0.5e3,\"\\\"/\":\"01\"," + packet);
  EXPECT_EQ(
      run.err,
      "dp4: standard input:1:7: not JSON: syntax error while parsing object - unexpected number literal; "
      "expected '}'\n"
      "dp4: standard input:2:8: not JSON: syntax error while parsing value - invalid number; expected digit after "
      "'.'; last read: '1.,'\n"
      "dp4: standard input:3:7: not JSON: syntax error while parsing value - invalid string: ill-formed UTF-8 "
      "byte; last read: '\"\\xff'\n"
      "dp4: standard input:4:2: not JSON: syntax error while parsing object key - invalid literal; last read: "
      "'{/'; expected string literal\n");
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 5) << run.out;
  EXPECT_THAT(run.out, HasSubstr("}\n{\"v\":-0.5e3,\"\\\"/\":\"01\",\"packet\":{\"command"));
  EXPECT_EQ(run.exitCode, 1);
}

// Found by a fuzzer: both lines were taken, and came out with the plus and with the bytes after the NUL.
TEST(DecodeStream, TakesNoPlusAndNothingBehindANul) {
  const std::string packet = R"("packet": "04055a019f0100"})";
  const ToolRun run =
      DecodeKettle({}, "{\"at\": +1, " + packet + "\n{" + packet + std::string(1, '\0') + " \"more\"\n");
  EXPECT_THAT(run.out, Not(HasSubstr("command")));
  EXPECT_EQ(
      run.err,
      "dp4: standard input:1:8: not JSON: syntax error while parsing value - invalid literal; last read: "
      "'\"at\": +'\n"
      "dp4: standard input:2:36: not JSON: syntax error while parsing value - unexpected string literal; expected "
      "end of input\n");
}

TEST(DecodeStream, MayBeginWithAByteOrderMark) {
  EXPECT_EQ(DecodeKettle({},
                         "\xef\xbb\xbf"
                         "04055a019f0100\n")
                .out,
            DecodeKettle({"04055a019f0100"}).out);
  EXPECT_EQ(DecodeKettle({},
                         "04055a019f0100\n\xef\xbb\xbf"
                         "04055a019f0100\n")
                .exitCode,
            1);
}

TEST(DecodeStream, IsTheCaptureOfAnExample) {
  for (const std::string product : {"kettle", "air_conditioner", "gateway", "power_meter"}) {
    const std::string capture = ReadFile(std::string(EXAMPLES_DIR) + "/" + product + ".notify.hex");
    const ToolRun run = RunTool({"decode", product + ".json", "--entity", "0"}, capture);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
  }
}

}  // namespace
