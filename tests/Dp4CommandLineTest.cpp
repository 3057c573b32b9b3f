// How dp4 handles its arguments before a command runs: help, errors, colours, completion.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

void ExpectUsageError(const std::vector<std::string>& arguments, const std::string& err) {
  const ToolRun run = RunTool(arguments);
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, err);
}

TEST(CommandLine, NamesACommandThatThereIsNot) {
  ExpectUsageError(
      {"nonsense"},
      "dp4: no command is called \"nonsense\"; expected one of show, layout, lint, compare, encode, request, "
      "decode, vectors, generate, devices, completion, help\n");
  ExpectUsageError({"shw"}, "dp4: no command is called \"shw\"; did you mean \"show\"?\n");
  ExpectUsageError({"\x1b[2J"},
                   "dp4: no command is called \"\\x1b[2J\"; expected one of show, layout, lint, compare, encode, "
                   "request, decode, vectors, generate, devices, completion, help\n");
}

TEST(CommandLine, EscapesArgumentsInMessages) {
  ExpectUsageError({"lint", "--format", "\x1b[2J"},
                   "dp4: --format: \\x1b[2J not in {text,json,sarif}\ndp4 --help tells more.\n");
}

// JsonCpp's reader stops at a NUL.
TEST(CommandLine, PassesNothingOverBehindANul) {
  const std::string text = std::string("{}\n ") + '\0' + " {";
  const std::string err = "dp4: standard input:2:2: not JSON: a NUL after the document\n";
  EXPECT_EQ(RunTool({"show", "-"}, text).err, err);
  EXPECT_EQ(RunTool({"encode", "kettle.json", "-"}, text).err, err);
  const ToolRun lint = RunTool({"lint", "-"}, text);
  EXPECT_EQ(lint.exitCode, 1);
  EXPECT_THAT(lint.out, StartsWith("standard input:2:2: error: not JSON: a NUL after the document [json-syntax]\n"));
}

TEST(CommandLine, TakesNoEmptyTexts) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"show", ""},
                                                    {"show", "kettle.json", "--entity", ""},
                                                    {"layout", "kettle.json", "--svg", ""},
                                                    {"lint", ""},
                                                    {"encode", "kettle.json", ""},
                                                    {"devices", ""},
                                                    {"devices", "devices.json", "--find", ""}}) {
    const ToolRun run = RunTool(arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("expected text, found an empty string"));
  }
}

TEST(CommandLine, ChoosesAnEntityByItsNameBeforeItsId) {
  const std::string entity = R"("display_name": "", "attrs": []})";
  const std::string configuration =
      R"({"entities": [{"id": 2, "name": "1", )" + entity + R"(, {"id": 1, "name": "2", )" + entity + "]}";
  EXPECT_THAT(RunTool({"show", "-", "--entity", "1"}, configuration).out, StartsWith("1 \"\", id 2:"));
  EXPECT_THAT(RunTool({"show", "-", "--entity", "2"}, configuration).out, StartsWith("2 \"\", id 1:"));
}

// Of an attribute that the parser drops, packets say nothing, and it has no flag: high is flag 0.
TEST(CommandLine, WarnsOfDroppedAttributes) {
  const auto switchAt = [](const std::string& name, const std::string& desc, int bit) {
    return R"({"id": 0, "name": ")" + name + R"(", "display_name": "", )" + desc +
           R"("type": "status_writable", "data_type": "bool", )" +
           R"("position": {"byte_offset": 0, "unit": "bit", "bit_offset": )" + std::to_string(bit) + R"(, "len": 1}})";
  };
  const std::string begin = R"({"entities": [{"id": 0, "name": "fan", "display_name": "", "attrs": [)";
  const std::string desc = R"("desc": "", )";
  const std::string one = begin + switchAt("low", "", 0) + ", " + switchAt("high", desc, 1) + "]}]}";
  const std::string warning = "dp4: warning: standard input: attrs[0] (low) is dropped; dp4 lint tells why\n";
  const ToolRun encode = RunTool({"encode", "-", "--set", "high=1"}, one);
  EXPECT_EQ(encode.out, "01 01 02\n");
  EXPECT_EQ(encode.err, warning);
  EXPECT_EQ(encode.exitCode, 0);
  const ToolRun decode = RunTool({"decode", "-", "0402"}, one);
  EXPECT_EQ(decode.err, warning);
  EXPECT_EQ(decode.exitCode, 0);
  EXPECT_EQ(RunTool({"vectors", "-"}, one).err, warning);
  const std::string two = begin + switchAt("low", "", 0) + ", " + switchAt("high", desc, 1) + ", 5]}]}";
  EXPECT_EQ(RunTool({"decode", "-", "0402"}, two).err,
            "dp4: warning: standard input: attrs[0] (low) and attrs[2] are dropped; dp4 lint tells why\n");
}

TEST(CommandLine, ReadsStandardInputOnce) {
  ExpectUsageError({"lint", "-", "-"}, "dp4: standard input can be read once; expected \"-\" only once\n");
  ExpectUsageError({"encode", "-", "-"},
                   "dp4: standard input cannot be both the configuration and the value document\n");
  ExpectUsageError({"decode", "-"}, "dp4: standard input cannot be both the configuration and the packets\n");
}

TEST(CommandLine, ColoursWhereItIsTold) {
  EXPECT_THAT(RunTool({"show", "kettle.json"}).out, StartsWith("kettle"));
  EXPECT_THAT(RunTool({"show", "kettle.json", "--color", "always"}).out, StartsWith("\x1b[1mkettle"));
}

TEST(CommandLine, HelpsWithACommand) {
  EXPECT_EQ(RunTool({"help"}).out, RunTool({"--help"}).out);
  for (const char* command : {"show", "lint", "compare", "decode", "help"}) {
    const ToolRun run = RunTool({"help", command});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_NE(run.out, "");
    EXPECT_EQ(run.out, RunTool({command, "--help"}).out) << command;
  }
  ExpectUsageError({"help", "shw"}, "dp4: no command is called \"shw\"; did you mean \"show\"?\n");
}

TEST(CommandLine, ListsTheEntitiesThatOneNameOrIdFits) {
  const std::string rest = R"(, "display_name": "", "attrs": []})";
  const std::string configuration = R"({"entities": [{"id": 1, "name": "a")" + rest + R"(, {"id": 2, "name": "a")" +
                                    rest + R"(, {"id": 2, "name": "b")" + rest + "]}";
  const ToolRun byName = RunTool({"show", "-", "--entity", "a"}, configuration);
  EXPECT_EQ(byName.exitCode, 2);
  EXPECT_EQ(byName.out, "");
  EXPECT_EQ(
      byName.err,
      "dp4: standard input: 2 entities have the name \"a\": standard input:1:15 a (1), standard input:1:72 a (2); "
      "give each its own\n");
  const ToolRun byId = RunTool({"layout", "-", "--entity", "2"}, configuration);
  EXPECT_EQ(byId.exitCode, 2);
  EXPECT_THAT(byId.err, HasSubstr("2 entities have the id \"2\": standard input:1:72 a (2), "));
  EXPECT_EQ(RunTool({"show", "-", "--entity", "1"}, configuration).exitCode, 0);
  EXPECT_EQ(RunTool({"show", "-", "--entity", "b"}, configuration).exitCode, 0);
}

// To name an entity helps only where one has a name.
TEST(CommandLine, OffersNoChoiceAmongEntitiesWithoutNames) {
  const ToolRun run = RunTool({"layout", "-"}, R"({"entities": [{"id": 1}, 5]})");
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "dp4: standard input: none of its entities has a name and an id; dp4 lint tells more\n");
}

TEST(CommandLine, OffersTheMemberThatEntitiesWereMeantBy) {
  const ToolRun run = RunTool({"show", "-"}, R"({"entity": [{"id": 1}]})");
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(
      run.err,
      "dp4: standard input:1:1: expected an object with an array \"entities\"; rename \"entity\" to \"entities\"\n");
}

TEST(CommandLine, KnowsADeviceList) {
  const std::string rest = ":1:1: expected a configuration, not a device list; see dp4 devices\n";
  ExpectUsageError({"show", "devices.json"}, "dp4: devices.json" + rest);
  EXPECT_EQ(RunTool({"layout", "-"}, R"([{"protocolType": "data-point"}])").err, "dp4: standard input" + rest);
  EXPECT_THAT(RunTool({"lint", "devices.json"}).out,
              HasSubstr("  fix     this is a device list: use dp4 devices, or give lint a configuration\n"));
}

// ---- Completion ----

TEST(Completion, DescribesWhatFits) {
  EXPECT_EQ(RunTool({"complete", "--", "sh"}).out, "show\tLists the entities and attributes of a configuration.\n");
  EXPECT_EQ(RunTool({"complete", "--", "lint", "--ro"}).out,
            "--roundtrip\talso encodes and decodes the limits and a middle value of every attribute\n");
  EXPECT_EQ(RunTool({"complete", "--", "lint", "--format=s"}).out, "--format=sarif\n");
  EXPECT_EQ(RunTool({"complete", "--", "generate", "w"}).out,
            "wireshark\tWrites NAME.lua, a dissector of all entities; NAME is the first one's name.\n");
  EXPECT_EQ(RunTool({"complete", "--", "generate", "--"}).out, "--help\n");
  EXPECT_EQ(RunTool({"complete", "--", "generate", "c", "--pre"}).out,
            "--prefix\tbegins all names; without it the entity's name in lower case\n");
  EXPECT_EQ(RunTool({"complete", "--", "decode", ""}).out, "") << "files";
  EXPECT_EQ(RunTool({"complete", "--", "decode", "--entity", ""}).out, "") << "any text";
  EXPECT_EQ(RunTool({"complete", "--", "nonsense", "x"}).out, "");
  EXPECT_EQ(RunTool({"complete"}).exitCode, 0);
}

}  // namespace
