// `dp4 generate`: names, refusals and files. What the code does is the subject of FirmwareTest and
// script/test-firmware.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "Dp4Configuration.h"
#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Generate : public testing::Test {
 protected:
  Generate() : folder_(fs::temp_directory_path() / ("dp4-generate-" + Name())) {
    fs::remove_all(folder_);
    fs::create_directory(folder_);
  }
  ~Generate() override { fs::remove_all(folder_); }

  ToolRun Run(std::vector<std::string> arguments, const std::string& configuration = "") const {
    arguments.insert(arguments.begin(), "generate");
    arguments.insert(arguments.end(), {"--output", folder_.string()});
    return RunTool(arguments, configuration);
  }

  // Of a configuration of the entity box.
  ToolRun RunC(const std::string& attributes) const { return Run({"c", "-"}, Configuration(attributes)); }

  // What RunC writes; the test fails when it refuses.
  std::string Header(const std::string& attributes) const {
    const ToolRun run = RunC(attributes);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    return Text("box.h");
  }

  void ExpectRefused(const std::string& attributes, const std::string& message) const {
    const ToolRun run = RunC(attributes);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr(message));
    EXPECT_TRUE(fs::is_empty(folder_));
  }

  std::string Text(const std::string& name) const { return ReadFile((folder_ / name).string()); }

  const fs::path folder_;

 private:
  static std::string Name() { return testing::UnitTest::GetInstance()->current_test_info()->name(); }
};

std::string Enum(const std::string& name, const std::string& position, const std::string& items) {
  return Attribute(name, "status_writable", "enum", position, "\"enum\": [" + items + "], ");
}

std::string Number(const std::string& name, const std::string& position, const std::string& max) {
  return Attribute(name, "status_writable", "uint64", position, Scaling("0", max, "1", "0"));
}

// ---- The files ----

TEST_F(Generate, WritesTheKettle) {
  const ToolRun run = Run({"c", "kettle.json"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out + run.err, "");
  for (const char* name : {"kettle.h", "kettle.c", "kettle_test.c"}) ExpectGolden(Text(name), name);
}

// Worked out with sha256sum.
TEST_F(Generate, NamesTheSha256OfTheBytes) {
  EXPECT_EQ(Run({"c", "-"}, Configuration(Bool("on", 0, 0))).exitCode, 0);
  const std::string line =
      "/* Made by dp4 from the configuration with SHA-256 "
      "62405c26c501f932b48a07ad6e2566c6cbb4cb9b3930ef068212fd969eb9b243. */\n";
  for (const char* name : {"box.h", "box.c", "box_test.c"}) EXPECT_THAT(Text(name), StartsWith(line));
  EXPECT_EQ(Run({"c", "-"}, "\xef\xbb\xbf" + Configuration(Bool("on", 0, 0))).exitCode, 0);
  EXPECT_THAT(Text("box.h"), HasSubstr(" f60695d2481fd71b7eea67e667d32ee81179bd77b383134a46668284931920da. */\n"));
}

TEST_F(Generate, LeavesUnchangedFilesAlone) {
  Run({"c", "kettle.json"});
  const auto longAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(folder_ / "kettle.c", longAgo);
  fs::last_write_time(folder_ / "kettle.h", longAgo);
  fs::resize_file(folder_ / "kettle.h", 10);
  fs::last_write_time(folder_ / "kettle.h", longAgo);
  Run({"c", "kettle.json"});
  EXPECT_EQ(fs::last_write_time(folder_ / "kettle.c"), longAgo);
  EXPECT_GT(fs::last_write_time(folder_ / "kettle.h"), longAgo);
  EXPECT_EQ(Text("kettle.h"), Golden("kettle.h"));
}

TEST_F(Generate, MakesTheFolder) {
  for (const char* name : {"one", "two/levels/", "two/levels"}) {
    const fs::path folder = folder_ / name;
    const ToolRun run = RunTool({"generate", "c", "kettle.json", "--output", folder.string()});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadFile((folder / "kettle.h").string()), Golden("kettle.h"));
  }
  RunTool({"generate", "wireshark", "kettle.json", "--dlt", "0", "--output", (folder_ / "three").string()});
  EXPECT_TRUE(fs::exists(folder_ / "three/kettle.lua"));
}

TEST_F(Generate, MakesNoFolderForWhatItRefuses) {
  const std::string folder = (folder_ / "none").string();
  EXPECT_EQ(RunTool({"generate", "c", "-", "--output", folder}, Configuration("")).exitCode, 1);
  EXPECT_FALSE(fs::exists(folder));
}

// A file stands where a folder is needed, or one of the files to be written is a folder.
TEST_F(Generate, NeedsAFolderThatCanBeWritten) {
  Run({"c", "kettle.json"});
  for (const char* name : {"kettle.h", "kettle.h/below"}) {
    const std::string folder = (folder_ / name).string();
    const ToolRun run = RunTool({"generate", "c", "kettle.json", "--output", folder});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "dp4: " + folder + ": cannot be made: Not a directory\n");
  }
  fs::create_directories(folder_ / "other/kettle.h");
  const ToolRun run = RunTool({"generate", "c", "kettle.json", "--output", (folder_ / "other").string()});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.err, HasSubstr("kettle.h: cannot be written"));
}

TEST_F(Generate, NamesWhatCanBeMade) {
  const ToolRun run = Run({"go", "kettle.json"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "dp4: no command is called \"generate go\"; expected one of c, wireshark\n");
  EXPECT_EQ(Run({"wireshrak", "kettle.json"}).err,
            "dp4: no command is called \"generate wireshrak\"; did you mean \"wireshark\"?\n");
  EXPECT_THAT(RunTool({"generate"}).err, HasSubstr("A subcommand is required"));
}

TEST_F(Generate, NeedsTheEntityWhenThereAreSeveral) {
  const ToolRun run = Run({"c", "gateway.json"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "dp4: gateway.json: name one of the entities with --entity: gateway (0), thermostat (1)\n");
  EXPECT_EQ(Run({"c", "gateway.json", "--entity", "1"}).exitCode, 0);
  EXPECT_TRUE(fs::exists(folder_ / "thermostat.c"));
}

// ---- Names ----

TEST_F(Generate, TakesAPrefix) {
  EXPECT_EQ(Run({"c", "kettle.json", "--prefix", "k1_Kettle"}).exitCode, 0);
  EXPECT_THAT(Text("k1_Kettle.h"), AllOf(HasSubstr("#define K1_KETTLE_PAYLOAD_BYTES 6u"),
                                         HasSubstr("bool k1_Kettle_read_write("), HasSubstr("K1_KETTLE_PROGRAM_BOIL")));
  for (const char* prefix : {"1k", "a-b", "int", "\xc3\xa4"}) {
    const ToolRun run = Run({"c", "kettle.json", "--prefix", prefix});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.err, HasSubstr("expected an identifier of C"));
  }
}

TEST_F(Generate, MakesIdentifiersOfNames) {
  const std::string header =
      Header(Bool("Child Lock", 0, 0) + ", " + Bool("2nd", 0, 1) + ", " + Bool("switch", 0, 2) + ", " +
             Bool("uint8_t", 0, 3) + ", " + Bool("W\xc3\xa4rme", 0, 4) + ", " + Bool("", 0, 5));
  for (const char* member : {"child_lock", "_2nd", "switch_", "uint8_t_", "w_rme", "_"}) {
    EXPECT_THAT(header, HasSubstr("  bool has_" + std::string(member) + ";\n  bool " + member + ";\n"));
  }
}

TEST_F(Generate, KeepsConstantsPlain) {
  const std::string header = Header(Number("2nd", Bytes(0, 1), "9") + ", " + Number("switch", Bytes(1, 1), "9"));
  EXPECT_THAT(header, AllOf(HasSubstr("#define BOX_2ND_MAX UINT8_C(9)\n"), HasSubstr("#define BOX_SWITCH_MIN ")));
}

TEST_F(Generate, MakesAPrefixOfAnyName) {
  std::string configuration = Configuration(Bool("on", 0, 0));
  EXPECT_EQ(Run({"c", "-"}, configuration.replace(configuration.find("box"), 3, "3D switch")).exitCode, 0);
  EXPECT_THAT(Text("_3d_switch.h"), HasSubstr("#define _3D_SWITCH_PAYLOAD_BYTES 1u"));
  configuration = Configuration(Bool("on", 0, 0));
  EXPECT_EQ(Run({"c", "-"}, configuration.replace(configuration.find("box"), 3, "Switch")).exitCode, 0);
  EXPECT_THAT(Text("switch_.h"), HasSubstr("#define SWITCH_PAYLOAD_BYTES 1u"));
  // A macro of one of these names would replace the member.
  for (const char* name : {"stdin", "stdout", "stderr", "linux", "unix"}) {
    EXPECT_THAT(Header(Bool(name, 0, 0)), HasSubstr("  bool " + std::string(name) + "_;\n"));
  }
}

TEST_F(Generate, RefusesAttributesThatCollide) {
  ExpectRefused(
      Bool("a-b", 0, 0) + ", " + Bool("c", 0, 1) + ", " + Bool("A b", 0, 2),
      "dp4: standard input: the attributes \"a-b\" and \"A b\" would both have the member a_b in C; rename one "
      "of them\n");
  ExpectRefused(Bool("on", 0, 0) + ", " + Bool("has_on", 0, 1),
                "the attributes \"on\" and \"has_on\" would both have the member has_on in C");
  ExpectRefused(Bool("has_on", 0, 0) + ", " + Bool("on", 0, 1),
                "the attributes \"on\" and \"has_on\" would both have the member has_on in C");
}

// Only writable attributes stand beside has_ members.
TEST_F(Generate, TakesAReadOnlyAttributeCalledHas) {
  Header(Bool("on", 0, 0) + ", " + Attribute("gap", "status_readonly", "binary", Bytes(1, 1)) + ", " +
         Bool("has_on", 2, 0, "status_readonly"));
}

TEST_F(Generate, GivesCollidingItemsTheirIndex) {
  const std::string header = Header(Enum("a", Bits(0, 0, 3), R"("x", "X", "y", "x_1", "x 1")") + ", " +
                                    Enum("payload", Bits(0, 3, 1), R"("bytes", "bits")"));
  for (const char* line : {"BOX_A_X_0 0u", "BOX_A_X_1_1 1u", "BOX_A_Y 2u", "BOX_A_X_1_3 3u", "BOX_A_X_1_4 4u",
                           "BOX_PAYLOAD_BYTES_0 0u", "BOX_PAYLOAD_BITS 1u"}) {
    EXPECT_THAT(header, HasSubstr("#define " + std::string(line) + " ")) << line;
  }
}

TEST_F(Generate, KeepsItemsApartFromTheSourcesOwnConstants) {
  std::string configuration = Configuration(Enum("packet", Bits(0, 0, 1), R"("bytes", "bits")"));
  EXPECT_EQ(Run({"c", "-"}, configuration.replace(configuration.find("box"), 3, "write")).exitCode, 0);
  EXPECT_THAT(Text("write.h"), HasSubstr("#define WRITE_PACKET_BYTES_0 0u"));
}

// ---- Types and constants ----

TEST_F(Generate, ChoosesTypesByTheFieldsBits) {
  const std::string header =
      Header(Enum("wide", Bits(0, 0, 9), R"("a", "b")") + ", " + Number("one", Bytes(2, 1), "9") + ", " +
             Number("three", Bytes(3, 3), "9") + ", " + Number("five", Bytes(6, 5), "9") + ", " +
             Attribute("key", "status_writable", "binary", Bytes(11, 4)));
  for (const char* member : {"uint16_t wide", "uint8_t one", "uint32_t three", "uint64_t five", "uint8_t key[4]"}) {
    EXPECT_THAT(header, HasSubstr("  " + std::string(member) + ";\n"));
  }
  EXPECT_THAT(header, AllOf(HasSubstr("BOX_THREE_MIN UINT32_C(0)\n"), HasSubstr("BOX_FIVE_MAX UINT64_C(9)\n")));
}

TEST_F(Generate, GivesTheScalingAsFloatingPoint) {
  const std::string header =
      Header(Attribute("t", "status_writable", "uint8", Bytes(0, 1), Scaling("3", "250", "-2", "-0.5")));
  EXPECT_THAT(header, AllOf(HasSubstr("BOX_T_RATIO (-2.0)\n"), HasSubstr("BOX_T_ADDITION (-0.5)\n"),
                            HasSubstr("User value = raw * -2 - 0.5, from -6.5 to -500.5.")));
}

// The payload of a notification has 3 bytes, that of a write 1 and a flag byte.
TEST_F(Generate, SizesPackets) {
  const std::string header = Header(Bool("on", 0, 0) + ", " + Attribute("k", "status_readonly", "binary", Bytes(1, 2)));
  EXPECT_THAT(header, AllOf(HasSubstr("BOX_PAYLOAD_BYTES 3u\n"), HasSubstr("BOX_WRITE_BYTES 1u\n"),
                            HasSubstr("BOX_FLAG_BYTES 1u\n"), HasSubstr("BOX_MAX_PACKET_BYTES 7u\n")));
}

TEST_F(Generate, LeavesOutWritesWhereNothingIsWritable) {
  const std::string header = Header(Bool("on", 0, 0, "status_readonly"));
  EXPECT_THAT(header, AllOf(Not(HasSubstr("box_write")), Not(HasSubstr("box_apply")), HasSubstr("box_read_sub_device"),
                            HasSubstr("BOX_FLAG_BYTES 0u\n")));
  EXPECT_THAT(Text("box_test.c"), Not(HasSubstr("box_write")));
}

// ---- Comments ----

TEST_F(Generate, KeepsTextsInsideTheirComments) {
  std::string attribute = Enum("mode", Bits(0, 0, 2), R"("a*/b", "/*", "?\u003f/", "\u202eevil\\")");
  const std::string desc = R"("desc": "*/ int x; /* ??/ \u2066 )" + std::string(120, 'x') + R"( \\\\ end\\")";
  attribute.replace(attribute.find(R"("desc": "")"), 10, desc);
  const std::string header = Header(attribute);
  EXPECT_THAT(header, AllOf(HasSubstr("/* a* /b */"), HasSubstr("/* / * */"), HasSubstr("/* ? ?/ */"),
                            HasSubstr("/* \\u202eevil\\\\. */"), HasSubstr("* / int x; / * ? ?/ \\u2066\n")));
  EXPECT_THAT(header, AllOf(Not(HasSubstr("\\\n")), Not(HasSubstr("?\?/")), Not(HasSubstr("\xe2\x80\xae"))));
}

TEST_F(Generate, EndsNoLineOfACommentInABackslash) {
  std::string attribute = Bool("on", 0, 0);
  const std::string desc = R"("desc": ")" + std::string(70, 'p') + R"( \\  )" + std::string(80, 'x') + '"';
  EXPECT_THAT(Header(attribute.replace(attribute.find(R"("desc": "")"), 10, desc)), Not(HasSubstr("\\\n")));
}

// What has no text of six decimals is told as it is.
TEST_F(Generate, TellsTheRangeOfANumber) {
  const auto number = [](const std::string& max, const std::string& ratio, const std::string& addition) {
    return Attribute("level", "status_writable", "uint8", Bytes(0, 1), Scaling("1", max, ratio, addition));
  };
  EXPECT_THAT(Header(number("3", "0.5", "40")), HasSubstr("User value = raw * 0.5 + 40, from 40.5 to 41.5."));
  EXPECT_THAT(Header(number("3", "0.1", "-1.1")), HasSubstr("User value = raw * 0.1 - 1.1, from -1 to -0.8."));
  EXPECT_THAT(Header(number("3", "0.1", "-0.1")), HasSubstr("raw * 0.1 - 0.1, from 0 to 0.2."));
  EXPECT_THAT(Header(number("3", "0.1", "-0.3")), HasSubstr("raw * 0.1 - 0.3, from -0.2 to 0."));
  EXPECT_THAT(Header(number("5", "0.0000001", "0")), HasSubstr("raw * 1e-07, from 1e-07 to 5e-07."));
  EXPECT_THAT(Header(number("5", "1e40", "0")), HasSubstr("raw * 1e+40, from 1e+40 to 5e+40."));
}

// ---- Refusals ----

TEST_F(Generate, RefusesWhatLintCallsAnError) {
  ExpectRefused(Attribute("on", "status_writable", "bool", Bytes(0, 1)), "[bool-not-one-bit]");
  ExpectRefused(Attribute("on", "status_writable", "boolean", Bits(0, 0, 1)),
                "dp4: standard input: no code is made until this is fixed\n");
}

TEST_F(Generate, RefusesOverlapsAndNeighboursThatAWriteDisturbs) {
  ExpectRefused(Bool("a", 0, 0) + ", " + Bool("b", 0, 0), "[fields-overlap]");
  const std::string spanning = Enum("speed", Bits(0, 6, 4), R"("0", "1", "2", "3", "4", "5", "6", "7", "8", "9")");
  ExpectRefused(Bool("swing", 0, 0) + ", " + spanning, "[neighbours-disturbed]");
}

TEST_F(Generate, RefusesAnEntityWithoutAttributes) { ExpectRefused("", "[no-attributes]"); }

TEST_F(Generate, TakesWhatIsOnlyAWarning) {
  Header(Attribute("level", "status_writable", "uint8", Bytes(0, 1), Scaling("0", "9", "0.0000001", "0")));
}

// Another entity's faults are no reason to refuse.
TEST_F(Generate, LooksAtTheChosenEntityOnly) {
  std::string configuration = Configuration(Bool("on", 0, 0));
  configuration.insert(configuration.rfind("]}"),
                       R"(, {"id": 8, "name": "bad", "display_name": "", "attrs": [{"name": "x"}]})");
  EXPECT_EQ(Run({"c", "-", "--entity", "box"}, configuration).exitCode, 0);
  EXPECT_EQ(Run({"c", "-", "--entity", "bad"}, configuration).exitCode, 1);
}

// ---- Wireshark ----

TEST_F(Generate, WritesADissectorOfTheKettle) {
  const ToolRun run = Run({"wireshark", "kettle.json", "--udp", "12416", "--tcp", "12417", "--dlt", "3"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  ExpectGolden(Text("kettle.lua"), "kettle.lua");
}

TEST_F(Generate, WritesADissectorOfAllEntities) {
  EXPECT_EQ(Run({"wireshark", "gateway.json", "--udp", "12416"}).exitCode, 0);
  EXPECT_THAT(Text("gateway.lua"), AllOf(HasSubstr("name = \"gateway\""), HasSubstr("name = \"thermostat\"")));
  EXPECT_EQ(Run({"wireshark", "gateway.json", "--udp", "12416", "--entity", "thermostat"}).exitCode, 0);
  EXPECT_THAT(Text("thermostat.lua"), Not(HasSubstr("name = \"gateway\"")));
}

TEST_F(Generate, QuotesTextsForLua) {
  std::string configuration = Configuration(Bool("on", 0, 0));
  configuration.replace(configuration.find("D on"), 4, R"(a\"b\\\n]]--)");
  EXPECT_EQ(Run({"wireshark", "-", "--dlt", "0"}, configuration).exitCode, 0);
  EXPECT_THAT(Text("box.lua"), HasSubstr(R"(title = "a\"b\\\\\\n]]--")"));
}

TEST_F(Generate, NeedsToKnowWhereThePacketsAre) {
  const ToolRun run = Run({"wireshark", "kettle.json"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.err, HasSubstr("One of --udp, --tcp and --dlt is required"));
  EXPECT_EQ(Run({"wireshark", "kettle.json", "--dlt", "16"}).exitCode, 2);
  EXPECT_EQ(Run({"wireshark", "kettle.json", "--udp", "0"}).exitCode, 2);
}

TEST_F(Generate, RefusesADissectorWhoseNamesCollide) {
  std::string configuration = Configuration(Bool("on", 0, 0));
  configuration.insert(configuration.rfind("]}"),
                       R"(, {"id": 8, "name": "BOX", "display_name": "", "attrs": [)" + Bool("on", 0, 0) + "]}");
  const ToolRun run = Run({"wireshark", "-", "--dlt", "0"}, configuration);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("two entities would both be called box in filters"));
}

// A has_ member stands in C only.
TEST_F(Generate, RefusesAttributesOfOneNameInFilters) {
  const auto dissector = [this](const std::string& attributes) {
    return Run({"wireshark", "-", "--dlt", "0"}, Configuration(attributes));
  };
  EXPECT_EQ(dissector(Bool("on", 0, 0) + ", " + Bool("has_on", 0, 1)).exitCode, 0);
  const ToolRun run = dissector(Bool("a-b", 0, 0) + ", " + Bool("A b", 0, 1));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("the attributes \"a-b\" and \"A b\" would both be called box.a_b in filters; rename "
                                 "one of them\n"));
}

TEST_F(Generate, NeedsAnEntityForADissector) {
  const ToolRun run = Run({"wireshark", "-", "--dlt", "0"}, R"({"entities": []})");
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "dp4: standard input: expected an entity, found none\n");
}

}  // namespace
