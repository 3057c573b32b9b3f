// `dp4 show`. The golden files in tests/golden/dp4/ follow from the configurations in examples/.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Dp4Configuration.h"
#include "TestSupport.h"
#include "ToolSupport.h"
#include "inspect/text/Format.h"

namespace {

using testing::TestWithParam;
using testing::Values;

ToolRun ShowText(const std::string& configuration) { return RunTool({"show", "-"}, configuration); }

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The line of the table that begins with this name; the test fails when there is none.
std::string RowOf(const std::string& text, const std::string& name) {
  for (const std::string& line : LinesOf(text)) {
    if (line.compare(0, name.size() + 2, name + "  ") == 0) return line;
  }
  ADD_FAILURE() << "no row of " << name << " in\n" << text;
  return "";
}

// The cell of a row in the column with this heading; not for the last column.
std::string CellOf(const std::string& text, const std::string& name, const std::string& heading) {
  const std::string headings = RowOf(text, "NAME");
  const size_t begin = headings.find("  " + heading + " ") + 2;
  const size_t next = headings.find_first_not_of(' ', headings.find("  ", begin));
  const std::string row = RowOf(text, name);
  if (row.size() <= begin) return "";
  const std::string cell = row.substr(begin, next - begin);
  return cell.substr(0, cell.find_last_not_of(' ') + 1);
}

// The last column.
std::string ValuesOf(const std::string& text, const std::string& name) {
  const size_t begin = RowOf(text, "NAME").find("VALUES");
  const std::string row = RowOf(text, name);
  return row.size() <= begin ? "" : row.substr(begin);
}

std::vector<std::string> NotesOf(const std::string& text) {
  std::vector<std::string> notes;
  for (const std::string& line : LinesOf(text)) {
    if (line.compare(0, 6, "Note: ") == 0) notes.push_back(line.substr(6));
  }
  return notes;
}

class ShowGolden : public TestWithParam<const char*> {};

TEST_P(ShowGolden, IsTheTableOfTheExample) {
  const ToolRun run = RunTool({"show", std::string(GetParam()) + ".json"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  ExpectGolden(run.out, std::string(GetParam()) + ".show.txt");
}

INSTANTIATE_TEST_SUITE_P(Examples, ShowGolden, Values("kettle", "air_conditioner", "gateway", "power_meter"),
                         [](const auto& example) { return std::string(example.param); });

TEST(Show, TakesTheChosenEntityByNameOrId) {
  const std::string title = "thermostat \"Radiator thermostat\", id 1: ";
  for (const char* choice : {"thermostat", "1"}) {
    const ToolRun run = RunTool({"show", "gateway.json", "--entity", choice});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out.compare(0, title.size(), title), 0) << run.out;
    EXPECT_EQ(run.out.find("gateway"), std::string::npos) << run.out;
  }
}

TEST(Show, RefusesAnEntityThatIsNotThere) {
  const ToolRun run = RunTool({"show", "gateway.json", "--entity", "boiler"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("boiler"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("thermostat"), std::string::npos) << run.err;
}

TEST(Show, TellsWhyAChosenEntityIsUnusable) {
  const ToolRun run = RunTool({"show", "-", "--entity", "box"}, R"({"entities": [{"name": "box"}]})");
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "dp4: standard input:1:15: unusable entity: Warning: Can't find 'id' key.\n");
}

TEST(Show, RefusesAFileThatIsNotThere) {
  const ToolRun run = RunTool({"show", "no-such-file.json"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("no-such-file.json"), std::string::npos) << run.err;
}

TEST(Show, ShowsTheOtherEntitiesWhenOneIsUnusable) {
  const ToolRun run = ShowText(R"({"entities": [{"id": 0, "name": "broken"},
                                     {"id": 1, "name": "whole", "display_name": "Whole", "attrs": []}]})");
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "whole \"Whole\", id 1: 0 attributes, 0 bytes of payload, none in a write\n\n");
  EXPECT_NE(run.err.find("standard input:1:15: unusable entity: Warning: Can't find 'display_name' key."),
            std::string::npos)
      << run.err;
}

TEST(Show, CountsOneAsOne) {
  const ToolRun run = ShowText(Configuration(Bool("power", 0, 0)));
  EXPECT_EQ(LinesOf(run.out).at(0), "box \"Box\", id 7: 1 attribute, 1 byte of payload, all in a write");
}

TEST(Show, CountsFlagBitsOverTheWritableAttributesOnly) {
  const ToolRun run = ShowText(Configuration(Bool("first", 0, 0) + "," + Bool("closed", 1, 0, "status_readonly") + "," +
                                             Bool("hot", 2, 0, "alert") + "," + Bool("second", 3, 0)));
  EXPECT_EQ(CellOf(run.out, "first", "FLAG"), "0");
  EXPECT_EQ(CellOf(run.out, "closed", "FLAG"), "");
  EXPECT_EQ(CellOf(run.out, "hot", "FLAG"), "");
  EXPECT_EQ(CellOf(run.out, "second", "FLAG"), "1");
  EXPECT_EQ(CellOf(run.out, "hot", "GROUP"), "alert");
}

// Bits 6 to 9 of a group of two bytes: 9 and 8 are the lowest bits of byte 2, 7 and 6 the highest ones of byte 3.
TEST(Show, PlacesAFieldThatSpansBytesOfItsGroup) {
  const ToolRun run = ShowText(
      Configuration(Bool("swing", 2, 0) + "," +
                    Attribute("speed", "status_writable", "enum", Bits(2, 6, 4), R"("enum": ["slow", "fast"], )")));
  EXPECT_EQ(CellOf(run.out, "speed", "PLACE"), "2.1-3.6");
  EXPECT_EQ(CellOf(run.out, "swing", "PLACE"), "3.0");
}

TEST(Show, PlacesWholeBytesWithoutBits) {
  const ToolRun run =
      ShowText(Configuration(Attribute("one", "status_writable", "binary", Bytes(0, 1)) + "," +
                             Attribute("four", "status_writable", "binary", Bytes(1, 4)) + "," +
                             Attribute("group", "status_writable", "enum", Bits(5, 0, 8), R"("enum": ["a", "b"], )")));
  EXPECT_EQ(CellOf(run.out, "one", "PLACE"), "0");
  EXPECT_EQ(ValuesOf(run.out, "one"), "1 byte");
  EXPECT_EQ(CellOf(run.out, "four", "PLACE"), "1-4");
  EXPECT_EQ(ValuesOf(run.out, "four"), "4 bytes");
  EXPECT_EQ(CellOf(run.out, "group", "PLACE"), "5");
}

TEST(Show, SaysThatANumberInBitsIsNowhere) {
  const ToolRun run = ShowText(
      Configuration(Attribute("level", "status_writable", "uint8", Bits(0, 0, 8), Scaling("0", "9", "1", "0"))));
  EXPECT_EQ(CellOf(run.out, "level", "PLACE"), "nowhere");
  EXPECT_EQ(ValuesOf(run.out, "level"), "");
}

TEST(Show, SaysThatAPlaceBehindTheLongestPayloadIsNowhere) {
  const ToolRun run =
      ShowText(Configuration(Bool("last", 16383, 0) + "," + Attribute("far", "fault", "binary", Bytes(16384, 1))));
  EXPECT_EQ(CellOf(run.out, "last", "PLACE"), "16383.0");
  EXPECT_EQ(CellOf(run.out, "far", "PLACE"), "nowhere");
  EXPECT_EQ(NotesOf(run.out), std::vector<std::string>{"a packet carries at most 16384 bytes of payload"});
}

TEST(Show, WritesScalingsAsFormulas) {
  const auto number = [](const std::string& name, const std::string& ratio, const std::string& addition) {
    return Attribute(name, "status_writable", "uint8", Bytes(0, 1), Scaling("0", "10", ratio, addition));
  };
  const ToolRun run = ShowText(Configuration(number("same", "1", "0") + "," + number("below", "1", "-40") + "," +
                                             number("scaled", "0.1", "0") + "," + number("both", "2.5", "300") + "," +
                                             number("fine", "0.000001", "0")));
  EXPECT_EQ(CellOf(run.out, "same", "SCALING"), "raw");
  EXPECT_EQ(CellOf(run.out, "below", "SCALING"), "raw - 40");
  EXPECT_EQ(CellOf(run.out, "scaled", "SCALING"), "raw * 0.1");
  EXPECT_EQ(CellOf(run.out, "both", "SCALING"), "raw * 2.5 + 300");
  EXPECT_EQ(CellOf(run.out, "fine", "SCALING"), "raw * 1e-06");
  EXPECT_EQ(ValuesOf(run.out, "both"), "300 to 325");
  EXPECT_EQ(ValuesOf(run.out, "fine"), "0 to 0.00001");
}

TEST(Show, GivesTheLowerEndOfTheRangeFirst) {
  const ToolRun run = ShowText(
      Configuration(Attribute("depth", "status_readonly", "uint8", Bytes(0, 1), Scaling("2", "10", "-0.5", "1"))));
  EXPECT_EQ(CellOf(run.out, "depth", "SCALING"), "raw * -0.5 + 1");
  EXPECT_EQ(ValuesOf(run.out, "depth"), "-4 to 0");
}

TEST(Show, EndsTheRangeWhereTheFieldIsFull) {
  const ToolRun run = ShowText(
      Configuration(Attribute("level", "status_readonly", "uint16", Bytes(0, 1), Scaling("0", "1000", "0.5", "0"))));
  EXPECT_EQ(ValuesOf(run.out, "level"), "0 to 127.5");
}

TEST(Show, SaysThatAScalingAcceptsNothing) {
  const auto number = [](const std::string& name, const std::string& min, const std::string& max) {
    return Attribute(name, "status_readonly", "uint64", Bytes(0, 1), Scaling(min, max, "1", "0"));
  };
  const ToolRun run =
      ShowText(Configuration(number("turned", "5", "3") + "," + number("one", "4", "4") + "," +
                             number("large", "0", "4503599627370496") + "," + number("full", "256", "300")));
  for (const char* name : {"turned", "one", "large", "full"}) {
    EXPECT_EQ(ValuesOf(run.out, name), "no value is accepted") << name;
  }
}

TEST(Show, QuotesItemsThatWouldBeMisread) {
  const ToolRun run = ShowText(Configuration(
      Attribute("mode", "status_writable", "enum", Bits(0, 0, 3), R"("enum": ["a b", "c, d", "", " e", "\"f\""], )")));
  EXPECT_EQ(ValuesOf(run.out, "mode"), R"(0 a b, 1 "c, d", 2 "", 3 " e", 4 "\"f\"")");
}

TEST(Show, BreaksLongListsOfItemsInTheirColumn) {
  const ToolRun run = ShowText(
      Configuration(Attribute("mode", "status_writable", "enum", Bits(0, 0, 2),
                              R"("enum": ["quite_a_long_item_that_needs_room", "another_long_item", "third"], )")));
  EXPECT_EQ(ValuesOf(run.out, "mode"), "0 quite_a_long_item_that_needs_room,");
  const std::vector<std::string> lines = LinesOf(run.out);
  const size_t column = RowOf(run.out, "NAME").find("VALUES");
  EXPECT_EQ(lines.at(4), std::string(column, ' ') + "1 another_long_item, 2 third");
}

TEST(Show, EscapesWhatCouldForgeALineOrSteerATerminal) {
  const ToolRun run = ShowText(
      Configuration(Attribute(R"(a\nb)", "status_writable", "enum", Bits(0, 0, 1), R"("enum": ["\u001b[31m"], )") +
                    "," + Bool(R"(\u202egnp\u200b)", 0, 1) + "," + Bool(R"(back\\slash)", 0, 2) + "," +
                    Bool("\xc2\x9b"
                         "31m",
                         0, 3) +
                    "," + Bool("\xc3\xa9\xe4\xb8\xad", 0, 4) + "," + Bool("", 0, 5) + "," + Bool(R"(n\\n\n)", 0, 6)));
  EXPECT_EQ(ValuesOf(run.out, "a\\nb"), "0 \\x1b[31m");
  EXPECT_EQ(CellOf(run.out, "\\u202egnp\\u200b", "PLACE"), "0.1");
  EXPECT_EQ(CellOf(run.out, "back\\slash", "PLACE"), "0.2");  // only beside other escapes is it one
  EXPECT_EQ(CellOf(run.out, "n\\\\n\\n", "PLACE"), "0.6");
  EXPECT_EQ(CellOf(run.out, "\\u009b31m", "PLACE"), "0.3");
  EXPECT_NE(run.out.find("\n\xc3\xa9\xe4\xb8\xad  "), std::string::npos) << run.out;
  EXPECT_EQ(CellOf(run.out, "\"\"", "PLACE"), "0.5");
  for (const char c : run.out) EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
}

TEST(Show, EscapesBytesThatAreNoText) {
  const ToolRun run = ShowText(
      Configuration(Bool("a\xff\xc3", 0, 0) + "," + Bool("\xed\xa0\x80", 0, 1) + "," + Bool("\xe0\x82\x9b", 0, 2)));
  EXPECT_EQ(CellOf(run.out, "a\\xff\\xc3", "PLACE"), "0.0");
  EXPECT_EQ(CellOf(run.out, "\\xed\\xa0\\x80", "PLACE"), "0.1");
  EXPECT_EQ(CellOf(run.out, "\\xe0\\x82\\x9b", "PLACE"), "0.2");
}

// Columns of 8 are the narrowest: with two blanks between them, 18.
TEST(Show, BreaksWordsOnlyWhereTheTableFitsThen) {
  const std::vector<morvix::inspect::TableRow> rows = {{{"temperature"}, {"accelerator"}}};
  EXPECT_EQ(AlignedTable(rows, false, 18), "temperat  accelera\nure       tor\n");
  EXPECT_EQ(AlignedTable(rows, false, 17), "temperature  accelerator\n");
}

TEST(Show, CountsTheColumnsOfWideAndCombiningCharacters) {
  // Two ideographs take four columns; an e with a combining accent takes one.
  const ToolRun run = ShowText(Configuration(Bool("\xe4\xb8\xad\xe6\x96\x87", 0, 0) + "," + Bool("e\xcc\x81", 0, 1)));
  EXPECT_EQ(
      RowOf(run.out, "\xe4\xb8\xad\xe6\x96\x87"),
      "\xe4\xb8\xad\xe6\x96\x87  D \xe4\xb8\xad\xe6\x96\x87        writable  0     bool  0.0             false, true");
  EXPECT_EQ(RowOf(run.out, "e\xcc\x81   "),
            "e\xcc\x81     D e\xcc\x81           writable  1     bool  0.1             false, true");
}

TEST(Show, NamesDroppedAttributesAndTheMemberAtFault) {
  const std::string noType = R"({"id": 1, "name": "typeless", "display_name": "T", "desc": ""})";
  const ToolRun run = ShowText(Configuration(Bool("power", 0, 0) + ",5," + noType + "," +
                                             Attribute("mode", "status_writable", "enum", Bits(0, 1, 2))));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(NotesOf(run.out), (std::vector<std::string>{"attrs[1] is dropped, for its 'attr'",
                                                        "attrs[2] (typeless) is dropped, for its 'type'",
                                                        "attrs[3] (mode) is dropped, for its 'enum'"}));
  EXPECT_EQ(run.out.find("\nmode"), std::string::npos);
}

// The alert stands between the two writable bools when all groups are taken, so that each is a group of its own: bit 8
// is in a group of two bytes, bit 0 in one of one byte. Encoding does not see the alert; both share the group of two
// bytes, and bit 0 is in the second.
TEST(Show, TellsWhenAWriteGoesElsewhere) {
  const ToolRun run =
      ShowText(Configuration(Bool("low", 0, 0) + "," + Bool("hot", 4, 0, "alert") + "," + Bool("high", 0, 8)));
  EXPECT_EQ(CellOf(run.out, "low", "PLACE"), "0.0");
  EXPECT_EQ(CellOf(run.out, "high", "PLACE"), "0.0");
  EXPECT_EQ(NotesOf(run.out), std::vector<std::string>{"attrs[0] (low) is read at 0.0 but written at 1.0"});
}

// Listed last, bit 0 makes the group that is written one byte long, in which there is no bit 8.
TEST(Show, TellsWhenAWriteHasNoPlace) {
  const ToolRun run =
      ShowText(Configuration(Bool("high", 0, 8) + "," + Bool("hot", 4, 0, "alert") + "," + Bool("low", 0, 0)));
  EXPECT_EQ(NotesOf(run.out), std::vector<std::string>{"attrs[0] (high) is read at 0.0 but has no place in a write"});
}

// The group has four bytes, for its last attribute has bit 31; counted from byte 5 its bit 0 is in byte 8. The payload
// of a write ends where the attributes end that count for themselves: byte 5 and byte 3.
TEST(Show, TellsWhenAWriteIsTooShort) {
  const ToolRun run =
      ShowText(Configuration(Bool("far", 5, 0) + "," +
                             Attribute("near", "status_writable", "enum", Bits(0, 24, 8), R"("enum": ["a", "b"], )")));
  EXPECT_EQ(LinesOf(run.out).at(0), "box \"Box\", id 7: 2 attributes, 6 bytes of payload, all in a write");
  EXPECT_EQ(CellOf(run.out, "far", "PLACE"), "8.0");
  EXPECT_EQ(CellOf(run.out, "near", "PLACE"), "0");
  EXPECT_EQ(
      NotesOf(run.out),
      (std::vector<std::string>{"attrs[0] (far) is read at 8.0 but has no place in a write",
                                "attrs[0] (far) lies after the payload's end and is read from longer payloads only"}));
}

TEST(Show, CountsNoBytesForAFieldOfLengthZero) {
  const ToolRun run = ShowText(Configuration(Attribute("key", "status_writable", "binary", Bytes(0, 0))));
  EXPECT_EQ(LinesOf(run.out).at(0), "box \"Box\", id 7: 1 attribute, 0 bytes of payload, none in a write");
  EXPECT_EQ(CellOf(run.out, "key", "PLACE"), "nowhere");
}

// Bools inherit the scaling of the number before them. When that one lacks a member they are dropped with it, but
// encoding does not see a number that is only read.
TEST(Show, TellsWhenAnAttributeCanOnlyBeWritten) {
  const ToolRun run = ShowText(Configuration(Attribute("level", "status_readonly", "uint8", Bytes(1, 1),
                                                       R"("uint_spec": {"min": 0, "max": 9, "ratio": 1}, )") +
                                             "," + Bool("power", 0, 0)));
  EXPECT_EQ(CellOf(run.out, "power", "PLACE"), "0.0");
  EXPECT_EQ(CellOf(run.out, "power", "FLAG"), "0");
  EXPECT_EQ(NotesOf(run.out),
            (std::vector<std::string>{
                "attrs[0] (level) is dropped, for its 'addition'",
                "attrs[1] (power) can be written but not read: decoding drops it, for its 'addition'"}));
}

// Here the number that is only read brings a complete scaling, which ends the inheritance for decoding alone.
TEST(Show, TellsWhenAWritableAttributeCanOnlyBeRead) {
  const ToolRun run = ShowText(
      Configuration(Attribute("preset", "status_writable", "uint8", Bytes(1, 1), R"("uint_spec": {"max": 9}, )") + "," +
                    Attribute("level", "status_readonly", "uint8", Bytes(2, 1), Scaling("0", "9", "1", "0")) + "," +
                    Bool("power", 0, 0)));
  EXPECT_EQ(CellOf(run.out, "power", "FLAG"), "");
  EXPECT_EQ(NotesOf(run.out),
            (std::vector<std::string>{
                "attrs[0] (preset) is dropped, for its 'min'",
                "attrs[2] (power) can be read but not written: encoding drops it; dp4 lint tells why"}));
}

TEST(Show, KeepsAttributesOfOneNameAndIdApart) {
  const ToolRun run =
      ShowText(Configuration(Bool("twin", 0, 0) + "," + Bool("twin", 1, 0, "alert") + "," + Bool("twin", 2, 0)));
  const std::vector<std::string> lines = LinesOf(run.out);
  EXPECT_EQ(lines.at(3), "twin  D twin        writable  0     bool  0.0             false, true");
  EXPECT_EQ(lines.at(4), "twin  D twin        alert           bool  1.0             false, true");
  EXPECT_EQ(lines.at(5), "twin  D twin        writable  1     bool  2.0             false, true");
  EXPECT_EQ(NotesOf(run.out), std::vector<std::string>{});
}

TEST(Show, ColoursOnDemandOnly) {
  EXPECT_EQ(RunTool({"show", "kettle.json"}).out.find('\x1b'), std::string::npos);
  const std::string colored = RunTool({"show", "kettle.json", "--color", "always"}).out;
  EXPECT_NE(colored.find("\x1b[32mwritable\x1b[0m"), std::string::npos) << colored;
  EXPECT_NE(colored.find("\x1b[31mfault\x1b[0m"), std::string::npos) << colored;
}

TEST(Show, KeepsTheLogApartFromTheResult) {
  const ToolRun run = RunTool({"show", "kettle.json", "--log"});
  EXPECT_EQ(run.out, RunTool({"show", "kettle.json"}).out);
  EXPECT_EQ(run.err, "[2] Filter entity: id='0' name='kettle' display_name='Kettle'\n");
}

// ---- For programs ----

TEST(ShowJson, DescribesTheEntityOnOneLine) {
  const ToolRun run = RunTool({"show", "kettle.json", "--format", "json"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  ExpectGolden(run.out, "kettle.show.json");
}

TEST(ShowJson, HasALineForEachEntity) {
  const std::vector<std::string> lines = LinesOf(RunTool({"show", "gateway.json", "--format", "json"}).out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(ParseJson(lines[0])["name"].asString(), "gateway");
  EXPECT_EQ(ParseJson(lines[1])["name"].asString(), "thermostat");
  EXPECT_EQ(lines[1] + "\n", RunTool({"show", "gateway.json", "--entity", "1", "--format", "json"}).out);
}

// The group of a has two bytes on writing, since b ends it there at bit 9, and one on reading. n lies nowhere, since it
// is a number in bits.
TEST(ShowJson, HasThePlaceInAWriteWhereItDiffers) {
  const std::string configuration =
      Configuration(Bool("a", 0, 0) + "," + Bool("x", 3, 0, "status_readonly") + "," + Bool("b", 0, 9) + "," +
                    Attribute("n", "status_writable", "uint8", Bits(4, 0, 8), Scaling("0", "9", "0.25", "-1")));
  const Json::Value attributes = ParseJson(RunTool({"show", "-", "--format", "json"}, configuration).out)["attributes"];
  EXPECT_EQ(WriteJson(attributes[0]["place"]), R"({"bits":1,"firstBit":7})");
  EXPECT_EQ(WriteJson(attributes[0]["writePlace"]), R"({"bits":1,"firstBit":15})");
  EXPECT_FALSE(attributes[1].isMember("writePlace"));
  EXPECT_FALSE(attributes[1].isMember("flag"));
  EXPECT_EQ(attributes[2]["flag"].asInt(), 1);
  EXPECT_FALSE(attributes[2].isMember("writePlace"));
  EXPECT_FALSE(attributes[3].isMember("place"));
  EXPECT_FALSE(attributes[3].isMember("writePlace"));
  EXPECT_EQ(attributes[3]["min"].asInt(), 0);
  EXPECT_EQ(attributes[3]["ratio"].asDouble(), 0.25);
}

TEST(ShowJson, ListsWhatTheParserDrops) {
  const std::string configuration =
      Configuration(Bool("a", 0, 0) + R"(, {"id": 1, "name": "b"}, 5, {"id": 1, "name": 6})");
  const Json::Value entity = ParseJson(RunTool({"show", "-", "--format", "json"}, configuration).out);
  EXPECT_EQ(WriteJson(entity["dropped"]),
            R"([{"index":1,"member":"display_name","name":"b"},{"index":2,"member":"attr"},)"
            R"({"index":3,"member":"name"}])");
  EXPECT_EQ(entity["attributes"].size(), 1U);
}

// The read-only number lacks its ratio, which on reading drops q after it as well. On writing q is taken.
TEST(ShowJson, HasWhatIsWrittenOnly) {
  const std::string configuration = Configuration(
      Attribute("n", "status_readonly", "uint8", Bytes(0, 1), R"("uint_spec": {"min": 0, "max": 9, "addition": 0}, )") +
      "," + Bool("q", 0, 3));
  const Json::Value entity = ParseJson(RunTool({"show", "-", "--format", "json"}, configuration).out);
  EXPECT_EQ(WriteJson(entity["attributes"]),
            R"([{"description":"","displayName":"D q","flag":0,"group":"status_writable","id":0,"name":"q",)"
            R"("type":"bool","writePlace":{"bits":1,"firstBit":4}}])");
  EXPECT_EQ(WriteJson(entity["dropped"]),
            R"([{"index":0,"member":"ratio","name":"n"},{"index":1,"member":"ratio","name":"q"}])");
}

TEST(ShowCsv, HasARowForEachAttributeOfEachEntity) {
  const ToolRun run =
      RunTool({"show", "-", "--format", "csv"},
              Configuration(Bool("a", 0, 0) + "," +
                            Attribute("m,n", "alert", "enum", Bits(1, 0, 1), R"("enum": ["x", "y"], )") + "," +
                            Attribute("n", "fault", "uint8", Bytes(2, 1), Scaling("0", "9", "0.5", "-1"))));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(
      run.out,
      "entity,name,displayName,description,id,group,type,flag,firstBit,bits,writeFirstBit,writeBits,min,max,ratio,"
      "addition,items\r\n"
      "box,a,D a,,0,status_writable,bool,0,7,1,,,,,,,\r\n"
      "box,\"m,n\",\"D m,n\",,0,alert,enum,,15,1,,,,,,,\"[\"\"x\"\",\"\"y\"\"]\"\r\n"
      "box,n,D n,,0,fault,uint8,,16,8,,,0,9,0.5,-1.0,\r\n");
}

}  // namespace
