// `dp4 encode` and `dp4 request`. The golden files in tests/golden/dp4/ follow from the products' pages in
// tests/golden/, where the packets are worked out by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "Dp4Configuration.h"
#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n') + 1); }

// The id of a sub-device travels in the host's byte order.
bool IsLittleEndian() {
  const uint16_t one = 1;
  byte lowest = 0;
  std::memcpy(&lowest, &one, 1);
  return lowest == 1;
}

std::string IdText(const std::string& littleEndian, const std::string& bigEndian) {
  return IsLittleEndian() ? littleEndian : bigEndian;
}

ToolRun EncodeKettle(std::vector<std::string> arguments, const std::string& standardInput = "") {
  arguments.insert(arguments.begin(), {"encode", "kettle.json"});
  return RunTool(arguments, standardInput);
}

ToolRun EncodeGateway(const std::string& set, const std::vector<std::string>& options = {}) {
  std::vector<std::string> arguments = {"encode", "gateway.json", "--entity", "gateway", "--set", set};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return RunTool(arguments);
}

void ExpectUsageError(const ToolRun& run, const std::string& message) {
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "dp4: " + message + "\n");
}

// No packet, and this message alone.
void ExpectProblem(const ToolRun& run, const std::string& message) {
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "dp4: " + message + "\n");
}

// A configuration of one entity "fan" with these attributes.
std::string Fan(const std::string& attributes) {
  return R"({"entities": [{"id": 0, "name": "fan", "display_name": "Fan", "attrs": [)" + attributes + "]}]}";
}

std::string BitField(const std::string& name, const std::string& kind, int bitOffset, int len) {
  return R"({"id": 0, "name": ")" + name + R"(", "display_name": "", "desc": "", "type": "status_writable", )" + kind +
         R"(, "position": {"byte_offset": 0, "unit": "bit", "bit_offset": )" + std::to_string(bitOffset) +
         R"(, "len": )" + std::to_string(len) + "}}";
}

// Its group of two bytes is written in an order in which the last field, which lies across both, swaps the others.
std::string SwappingFan() {
  const std::string ten = R"("0", "1", "2", "3", "4", "5", "6", "7", "8", "9")";
  return Fan(BitField("swing", R"("data_type": "bool")", 0, 1) + ", " +
             BitField("mode", R"("data_type": "enum", "enum": ["calm", "breeze", "storm"])", 2, 2) + ", " +
             BitField("speed", R"("data_type": "enum", "enum": [)" + ten + R"(, "10", "11"])", 6, 4));
}

// ---- The examples ----

struct EncodeCase {
  std::string name;
  std::string golden;  // the explanation; its first line is the packet
  std::vector<std::string> arguments;
};

std::ostream& operator<<(std::ostream& stream, const EncodeCase& test) { return stream << test.name; }

class EncodeExample : public testing::TestWithParam<EncodeCase> {
 protected:
  static std::string ExpectedText() {
    std::string text = Golden(GetParam().golden);
    for (size_t at = 0; !IsLittleEndian() && (at = text.find("0d 0c 0b 0a", at)) != std::string::npos; ++at) {
      text.replace(at, 11, "0a 0b 0c 0d");
    }
    return text;
  }
};

TEST_P(EncodeExample, GivesTheGoldenPacket) {
  const ToolRun run = RunTool(GetParam().arguments);
  EXPECT_EQ(run.out, FirstLine(ExpectedText()));
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

TEST_P(EncodeExample, ExplainsItAsTheGoldenTextDoes) {
  std::vector<std::string> arguments = GetParam().arguments;
  arguments.emplace_back("--explain");
  const ToolRun run = RunTool(arguments);
  if (IsLittleEndian()) ExpectGolden(run.out, GetParam().golden);
  EXPECT_EQ(run.out, ExpectedText());
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Examples, EncodeExample,
    testing::Values(
        EncodeCase{"kettle", "kettle.encode.txt", {"encode", "kettle.json", "kettle.values.json"}},
        EncodeCase{"air_conditioner",
                   "air_conditioner.encode.txt",
                   {"encode", "air_conditioner.json", "air_conditioner.values.json"}},
        EncodeCase{
            "gateway", "gateway.encode.txt", {"encode", "gateway.json", "gateway.values.json", "--entity", "gateway"}},
        EncodeCase{"thermostat",
                   "gateway.subdevice.encode.txt",
                   {"encode", "gateway.json", "gateway.values.json", "--entity", "1", "--command", "cc-write",
                    "--sub-device", "168496141"}},
        EncodeCase{"power_meter", "power_meter.encode.txt", {"encode", "power_meter.json", "power_meter.values.json"}}),
    [](const testing::TestParamInfo<EncodeCase>& test) { return test.param.name; });

// ---- The forms of a packet ----

// 01 07 03 4f in each form. In base64: 000000 010000 011100 000011 010011 11(0000) = A Q c D T w.
TEST(EncodeOutput, IsHexadecimalOnOneLine) {
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--output", "hex"}).out, "01 07 03 4f\n");
}

TEST(EncodeOutput, IsAnArrayOfC) {
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--output", "c-array"}).out,
            "const unsigned char packet[4] = {\n    0x01, 0x07, 0x03, 0x4f,\n};\n");
}

TEST(EncodeOutput, BreaksAnArrayOfCAfterTwelveBytes) {
  const ToolRun run =
      RunTool({"encode", "gateway.json", "gateway.values.json", "--entity", "gateway", "--output", "c-array"});
  EXPECT_EQ(run.out,
            "const unsigned char packet[13] = {\n"
            "    0x01, 0x1e, 0x0c, 0x00, 0xb4, 0x41, 0x74, 0x74, 0x69, 0x63, 0x00, 0x00,\n"
            "    0x00,\n"
            "};\n");
}

TEST(EncodeOutput, IsBase64) {
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--output", "base64"}).out, "AQcDTw==\n");
}

TEST(EncodeOutput, IsTheBytesThemselves) {
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--output", "binary"}).out, "\x01\x07\x03\x4f");
}

TEST(EncodeOutput, IsNotBytesBeforeAnExplanation) {
  ExpectUsageError(EncodeKettle({"kettle.values.json", "--output", "binary", "--explain"}),
                   "--explain is text and cannot follow a binary packet; expected another --output");
}

TEST(EncodeOutput, HasABoldHeadingInColour) {
  const ToolRun run = EncodeKettle({"--set", "power=1", "--explain", "--color", "always"});
  EXPECT_NE(run.out.find("\x1b[1mFLAG\x1b[0m"), std::string::npos) << run.out;
}

TEST(EncodeOutput, HasTheExplanationOfANamedArrayInAComment) {
  const std::string array =
      "/*\n"
      " command     01\n"
      " flags       01\n"
      " payload     01 00\n"
      "\n"
      " FLAG   NAME     VALUE  PLACE    BITS  NOTE\n"
      " 0 = 1  power    1      0.0      1\n"
      " 1 = 0  program         0.2-0.1        left out: no value\n"
      " 2 = 0  target          1              left out: no value\n"
      "\n"
      " FLAG is the attribute's bit in the flag bitmap. PLACE counts bytes of the payload, or byte.bit with bit 0 the "
      "lowest.\n"
      " */\n"
      "const unsigned char kettle_on[4] = {\n    0x01, 0x01, 0x01, 0x00,\n};\n";
  EXPECT_EQ(EncodeKettle({"--set", "power=1", "--output", "c-array", "--name", "kettle_on"}).out, array);
  EXPECT_EQ(
      EncodeKettle({"--set", "power=1", "--output", "c-array", "--name", "kettle_on", "--explain", "--color", "always"})
          .out,
      array);
}

// Neither a name nor a value ends the comment.
TEST(EncodeOutput, KeepsAnExplanationInsideItsComment) {
  const std::string fan = Fan(BitField("a*/b/*c", R"("data_type": "enum", "enum": ["**/", "//*"])", 0, 2));
  const std::string out = RunTool({"encode", "-", "--set", "a*/b/*c=**/", "--output", "c-array", "--explain"}, fan).out;
  EXPECT_EQ(out.find("*/"), out.find("*/\nconst")) << out;
  EXPECT_EQ(out.rfind("/*"), 0U) << out;
}

TEST(EncodeOutput, IsNamedOnlyAsAnArrayOfC) {
  ExpectUsageError(EncodeKettle({"--set", "power=1", "--name", "on"}),
                   "--name is for an array of C; expected --output c-array");
  for (const std::string name : {"1on", "kettle on", "a-b", "x;", "int", "class", "while"}) {
    ExpectUsageError(EncodeKettle({"--set", "power=1", "--output", "c-array", "--name", name}),
                     "--name " + name + ": expected an identifier of C");
  }
}

TEST(EncodeOutput, MayBeExplainedInJson) {
  EXPECT_EQ(EncodeKettle({"--set", "power=1", "--set", "program=keep_warm", "--explain", "--format", "json"}).out,
            R"({"command":1,"packet":"01 03 05 00","flags":"03","payload":"05 00","attributes":[)"
            R"({"name":"power","flag":0,"value":"1","place":{"firstBit":7,"bits":1},"raw":1,"bits":"1"},)"
            R"({"name":"program","flag":1,"value":"keep_warm","place":{"firstBit":5,"bits":2},"raw":2,"bits":"10",)"
            R"("note":"keep_warm"},)"
            R"({"name":"target","flag":2,"place":{"firstBit":8,"bits":8},"note":"left out: no value"}],"problems":[]})"
            "\n");
  const ToolRun refused = EncodeKettle({"--set", "target=101", "--explain", "--format", "json"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.out, testing::StartsWith(R"({"command":1,"attributes":[)"));
  EXPECT_THAT(refused.out, testing::HasSubstr(R"("problems":["--set target=101: \"target\" refused: )"));
  EXPECT_THAT(EncodeKettle({"--set", "power=1", "--sub-device", "7", "--explain", "--format", "json"}).out,
              testing::StartsWith(R"({"command":1,"subDevice":7,"packet":"01 )"));
  ExpectUsageError(EncodeKettle({"--set", "power=1", "--format", "json"}),
                   "--format json is a form of the explanation; expected --explain, and --output hex or none");
}

// ---- The command and the sub-device ----

TEST(EncodeCommand, MayNameASubDeviceOrNone) {
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--command", "cc-write"}).out, "07 07 03 4f\n");
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--command", "cc-write", "--sub-device", "5"}).out,
            IdText("07 05 00 00 00 07 03 4f\n", "07 00 00 00 05 07 03 4f\n"));
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--sub-device", "-2"}).out,
            IdText("01 fe ff ff ff 07 03 4f\n", "01 ff ff ff fe 07 03 4f\n"));
}

// ---- What a device sends ----

// (85.5 + 20) / 0.1 = 1055 = 04 1f; the open lid is bit 1 of byte 4.
TEST(EncodeReport, HasTheAttributesOfAllGroups) {
  const ToolRun run = EncodeKettle({"--set", "temperature=85.5", "--set", "lid_open=1", "--set", "program=keep_warm",
                                    "--command", "notify", "--explain"});
  EXPECT_EQ(run.out,
            "04 04 00 04 1f 02 00\n"
            "\n"
            "command     04\n"
            "payload     04 00 04 1f 02 00\n"
            "\n"
            "NAME         VALUE      PLACE    BITS   NOTE\n"
            "power                   0.0             left out: no value\n"
            "program      keep_warm  0.2-0.1  10     keep_warm\n"
            "target                  1               left out: no value\n"
            "temperature  85.5       2-3      04 1f  raw 1055\n"
            "low_water               4.0             left out: no value\n"
            "lid_open     1          4.1      1\n"
            "sensor                  5.0             left out: no value\n"
            "\n"
            "PLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(EncodeKettle({"--set", "sensor=1", "--command", "read-response"}).out, "03 00 00 00 00 00 01\n");
}

TEST(EncodeReport, IsWhatDecodeReads) {
  for (const std::string product : {"kettle", "air_conditioner", "gateway"}) {
    const auto decode = [&product](const std::string& packet) {
      return RunTool({"decode", product + ".json", "--entity", "0", packet, "--document", "decoded"}).out;
    };
    const std::string packet = ReadFile(std::string(EXAMPLES_DIR) + "/" + product + ".notify.hex");
    const std::string decoded = decode(packet);
    const ToolRun run = RunTool({"encode", product + ".json", "--entity", "0", "-", "--command", "notify"}, decoded);
    EXPECT_EQ(run.err, "") << product;
    EXPECT_EQ(run.out.size(), packet.size()) << product;
    EXPECT_EQ(decode(run.out), decoded) << product;
  }
}

// Bit 0 is the last byte's lowest bit, and speed lies across both bytes: 1 01 1011 0000 1 is 02 c1 with mode's 01 in
// bits 3 and 2: 02 c5. A write of the three would lose the other two.
TEST(EncodeReport, HasEachValueWhereDecodingReadsIt) {
  const ToolRun run =
      RunTool({"encode", "-", "--set", "swing=1", "--set", "mode=1", "--set", "speed=11", "--command", "notify"},
              SwappingFan());
  EXPECT_EQ(run.out, "04 02 c5\n");
  EXPECT_EQ(run.err, "");
}

TEST(EncodeReport, TellsWhatAnotherAttributeOverwrites) {
  const std::string twice = Fan(BitField("a", R"("data_type": "bool")", 0, 1) + ", " +
                                BitField("b", R"("data_type": "enum", "enum": ["x", "y", "z"])", 0, 2));
  ExpectProblem(RunTool({"encode", "-", "--set", "a=1", "--set", "b=z", "--command", "notify"}, twice),
                "--set a=1: \"a\" overwritten: was 1 until \"b\" was written");
}

TEST(EncodeReport, NamesNoSubDevice) {
  ExpectUsageError(EncodeKettle({"--set", "power=1", "--command", "notify", "--sub-device", "5"}),
                   "notify names no sub-device; expected no --sub-device");
}

// ---- --set ----

TEST(EncodeSet, StandsAlone) {
  // (100 - 40) / 0.5 = 120 = 78.
  const ToolRun run = EncodeKettle({"--set", "target=100"});
  EXPECT_EQ(run.out, "01 04 00 78\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

TEST(EncodeSet, ComesAfterTheDocumentAndTheLastOneWins) {
  // Of power 1, program 1 and 79.5 the last becomes 100; bits 0 and 1 of byte 0 stay.
  EXPECT_EQ(EncodeKettle({"kettle.values.json", "--set", "target=60", "--set", "target=100"}).out, "01 07 03 78\n");
  // Program 2 is bit 2: 01 + 04.
  EXPECT_EQ(EncodeKettle({"--set", "program=2", "kettle.values.json"}).out, "01 07 05 4f\n");
}

TEST(EncodeSet, TakesJsonAsJson) {
  EXPECT_EQ(EncodeKettle({"--set", "power=true"}).out, "01 01 01 00\n");
  EXPECT_EQ(EncodeKettle({"--set", "power=1"}).out, "01 01 01 00\n");
  EXPECT_EQ(EncodeKettle({"--set", "power=\"1\""}).out, "01 01 01 00\n");
  // (45.5 - 40) / 0.5 = 11.
  EXPECT_EQ(EncodeKettle({"--set", "target=455e-1"}).out, "01 04 00 0b\n");
}

TEST(EncodeSet, TakesEverythingElseAsText) {
  // "Attic" in base64; with the label alone only its flag is set.
  EXPECT_EQ(EncodeGateway("label=QXR0aWM=").out, "01 10 00 00 00 41 74 74 69 63 00 00 00\n");
  EXPECT_EQ(EncodeGateway("label=\"QXR0aWM=\"").out, "01 10 00 00 00 41 74 74 69 63 00 00 00\n");
  // An empty text is no bytes.
  EXPECT_EQ(EncodeGateway("label=").out, "01 10 00 00 00 00 00 00 00 00 00 00 00\n");
}

// A JSON reader that accepts trailing characters or leading zeros would read these as numbers.
TEST(EncodeSet, DoesNotMistakeBase64ForNumbers) {
  // 1 2 a b = 53, 54, 26, 27 = 110101 110110 011010 011011 = d7 66 9b.
  EXPECT_EQ(EncodeGateway("label=12ab").out, "01 10 00 00 00 d7 66 9b 00 00 00 00 00\n");
  // 0 1 0 0 = 52, 53, 52, 52 = 110100 110101 110100 110100 = d3 5d 34.
  EXPECT_EQ(EncodeGateway("label=0100").out, "01 10 00 00 00 d3 5d 34 00 00 00 00 00\n");
}

TEST(EncodeSet, SaysThatANumberIsNoBase64) {
  const ToolRun run = EncodeGateway("label=1234");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "dp4: --set label=1234: \"label\" left out: a binary takes base64 text in quotation marks\n");
  EXPECT_EQ(EncodeGateway("label=\"1234\"").exitCode, 0);
}

TEST(EncodeSet, AnswersAnUnknownNameWithTheKnownOnes) {
  const std::string known = "known: power, program and target";
  ExpectProblem(EncodeKettle({"--set", "porwer=1"}),
                "--set porwer=1: \"porwer\" names no attribute of \"kettle\"; did you mean \"power\"? " + known);
  ExpectProblem(EncodeKettle({"--set", "PROGRAM=1"}),
                "--set PROGRAM=1: \"PROGRAM\" names no attribute of \"kettle\"; did you mean \"program\"? " + known);
  ExpectProblem(EncodeKettle({"--set", "pro=1"}),
                "--set pro=1: \"pro\" names no attribute of \"kettle\"; did you mean \"program\"? " + known);
  EXPECT_THAT(RunTool({"encode", "air_conditioner.json", "--set", "timer_of=1"}).err,
              testing::HasSubstr("names no attribute of \"air_conditioner\"; did you mean \"timer_on\" or "
                                 "\"timer_off\"? known: "));
  ExpectProblem(EncodeKettle({"--set", "volume=1"}),
                "--set volume=1: \"volume\" names no attribute of \"kettle\"; " + known);
}

TEST(EncodeSet, TellsWhyAnAttributeCannotBeWritten) {
  ExpectProblem(EncodeKettle({"--set", "temperature=50"}),
                "--set temperature=50: \"temperature\" is not written, its group is read-only");
  ExpectProblem(EncodeKettle({"--set", "sensor=1"}), "--set sensor=1: \"sensor\" is not written, its group is fault");
  ExpectProblem(EncodeKettle({"--set", "Lid open=1"}),
                "--set Lid open=1: \"Lid open\" is not written, its group is alert");
  // A warning says first which are dropped.
  ExpectProblem(
      RunTool({"encode", "-", "--set", "twist=1"}, Fan(BitField("swing", R"("data_type": "bool")", 0, 1) + ", " +
                                                       BitField("twist", R"("data_type": "boolean")", 1, 1))),
      "warning: standard input: attrs[1] (twist) is dropped; dp4 lint tells why\ndp4: --set twist=1: \"twist\" is not "
      "usable; dp4 lint tells why");
  // Encoding leaves the read-only number with its complete scaling out, so that the bool inherits the incomplete one.
  const std::string scaled = R"({"id": 0, "name": "a", "display_name": "A", "desc": "", "data_type": "uint8",
      "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1}, )";
  const ToolRun run = RunTool(
      {"encode", "-", "--set", "swing=1"},
      Fan(scaled + R"("type": "status_writable", "uint_spec": {"min": 0, "max": 9, "addition": 0}}, )" + scaled +
          R"("type": "status_readonly", "uint_spec": {"min": 0, "max": 9, "ratio": 1, "addition": 0}}, )" +
          BitField("swing", R"("data_type": "bool")", 0, 1)));
  ExpectProblem(run,
                "warning: standard input: attrs[0] (a) and attrs[2] (swing) are dropped; dp4 lint tells why\ndp4: "
                "--set swing=1: \"swing\" is dropped by encoding; dp4 lint tells why");
}

TEST(EncodeSet, ExpectsANameAndAValue) {
  ExpectUsageError(EncodeKettle({"--set", "power"}), "--set power: expected NAME=VALUE");
  ExpectUsageError(EncodeKettle({}), "no values to encode: expected a value document or --set NAME=VALUE");
}

// ---- Records ----

// Encodes what decoding makes, by the configuration with this path.
ToolRun EncodeDecodedOf(const std::string& path, std::vector<std::string> decodeArguments,
                        std::vector<std::string> encodeArguments) {
  decodeArguments.insert(decodeArguments.begin(), {"decode", path});
  encodeArguments.insert(encodeArguments.begin(), {"encode", path, "-"});
  return RunTool(encodeArguments, RunTool(decodeArguments).out);
}

ToolRun EncodeDecoded(const std::string& packet, const std::vector<std::string>& arguments = {},
                      std::vector<std::string> decodeArguments = {}) {
  decodeArguments.push_back(packet);
  return EncodeDecodedOf("kettle.json", decodeArguments, arguments);
}

TEST(EncodeRecord, GivesItsPacketAgain) {
  const std::string id = IdText("05 00 00 00", "00 00 00 05");
  for (const std::string& packet :
       std::vector<std::string>{"04 05 5a 01 9f 03 01", "03 05 5a 01 9f 00 01", "04 00 00 00 00 02 00", "01 07 03 50",
                                "01 " + id + " 07 03 50", "07 07 03 50", "07 " + id + " 07 03 50"}) {
    for (const std::vector<std::string>& items : {std::vector<std::string>{}, {"--items"}}) {
      const ToolRun run = EncodeDecoded(packet, {}, items);
      EXPECT_EQ(run.out, packet + "\n");
      EXPECT_EQ(run.err, "") << packet;
      EXPECT_EQ(run.exitCode, 0) << packet;
    }
  }
}

// 79 is 121, one more than the kettle's target takes: the record has no value for it, and its bits would be zeros.
TEST(EncodeRecord, IsNoPacketWhereItsOwnToldNoValue) {
  const ToolRun decoded = RunTool({"decode", "kettle.json", "04 05 79 01 9f 00 00 ff"});
  const auto columnOf = [&decoded](const std::string& text) { return std::to_string(decoded.out.find(text) + 1); };
  const std::string surplus =
      "standard input:1:" + columnOf("{\"kind\":\"surplus\"") + ": the surplus bytes of the packet are left out";
  const std::string target = "standard input:1:" + columnOf("{\"kind\":\"out-of-range\"") +
                             ": \"target\" has no value, it was out-of-range in the packet";
  const ToolRun run = EncodeKettle({"-"}, decoded.out);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "dp4: " + surplus + "\ndp4: " + target + "\n");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(EncodeKettle({"-", "--lenient"}, decoded.out).out, "04 05 00 01 9f 00 00\n");
  // A write has no surplus bytes. 90 is (85 - 40) / 0.5.
  ExpectProblem(EncodeKettle({"-", "--command", "write"}, decoded.out), target);
  const ToolRun set = EncodeKettle({"-", "--command", "write", "--set", "target=85"}, decoded.out);
  EXPECT_EQ(set.err, "");
  EXPECT_EQ(set.out, "01 07 05 5a\n");
}

TEST(EncodeRecord, MayBecomeAnotherPacket) {
  const std::string id = IdText("05 00 00 00 ", "00 00 00 05 ");
  // Program 2 and power are 05; a write has neither alerts nor faults.
  ToolRun run = EncodeDecoded("04 05 5a 01 9f 03 01", {"--command", "write"});
  EXPECT_EQ(run.out, "01 07 05 5a\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(EncodeDecoded("04 05 5a 01 9f 03 01", {"--command", "read-response"}).out, "03 05 5a 01 9f 03 01\n");
  EXPECT_EQ(EncodeDecoded("04 05 5a 01 9f 03 01", {"--command", "cc-write", "--sub-device", "5"}).out,
            "07 " + id + "07 05 5a\n");
  // What a device sends names no sub-device.
  const std::string write = "07 " + id + "07 03 50";
  EXPECT_EQ(EncodeDecoded(write, {"--command", "notify"}).out, "04 03 50 00 00 00 00\n");
  EXPECT_EQ(EncodeDecoded(write, {"--command", "write"}).out, "01 " + id + "07 03 50\n");
  EXPECT_EQ(EncodeDecoded(write, {"--sub-device", "6"}).out,
            "07 " + IdText("06 00 00 00", "00 00 00 06") + " 07 03 50\n");
  // Settings come after its values.
  EXPECT_EQ(EncodeDecoded("04 05 5a 01 9f 03 01", {"--set", "lid_open=0"}).out, "04 05 5a 01 9f 01 01\n");
  ExpectUsageError(EncodeDecoded("04 05 5a 01 9f 03 01", {"--sub-device", "5"}),
                   "notify names no sub-device; expected no --sub-device");
}

TEST(EncodeRecord, OfARequestWithoutValuesIsNone) {
  const std::string id = IdText("05000000", "00000005");
  for (const auto& [packet, name] : {std::pair<std::string, std::string>("02", "read"),
                                     {"08" + id, "cc-read"},
                                     {"0b", "cc-add"},
                                     {"0c" + id, "cc-delete"},
                                     {"0d", "cc-list"}}) {
    ExpectUsageError(EncodeDecoded(packet), "standard input:1:12: a " + name + " has no values; see dp4 request");
  }
}

TEST(EncodeRecord, HasACommandAndASubDeviceThatPacketsHave) {
  const std::string values = R"(, "values": {"kettle": {"power": true}}})";
  for (const std::string command : {"0", "9", "-4", "5000000000", "\"4\""}) {
    ExpectUsageError(EncodeKettle({"-"}, R"({"command": )" + command + values),
                     "standard input:1:13: expected 1 (write), 3 (read-response), 4 (notify) or 7 (cc-write)");
  }
  for (const std::string id : {"null", "\"5\"", "1.5", "4294967296"}) {
    ExpectUsageError(EncodeKettle({"-"}, R"({"command": 7, "subDevice": )" + id + values),
                     "standard input:1:29: expected the id of a sub-device, an integer of 32 bits");
  }
  EXPECT_EQ(EncodeKettle({"-"}, R"({"command": 7, "subDevice": 4294967295)" + values).out, "07 ff ff ff ff 01 01 00\n");
}

TEST(EncodeRecord, HasTheEntitysAlertsAndFaultsOnly) {
  const std::string begin = R"({"command": 4, "values": {"kettle": {}}, "alerts": )";
  ExpectProblem(
      EncodeKettle({"-"}, begin + R"({"Lid": true}})"),
      "standard input:1:60: \"Lid\" is none of the alerts of \"kettle\"; did you mean \"Lid open\"? known: Low "
      "water and Lid open");
  ExpectUsageError(EncodeKettle({"-"}, begin + "[1]}"),
                   "standard input:1:52: expected an object with the values of alerts");
  // A name means an alert there, although a status has it, too: bit 0 is the alert, bit 1 the status.
  const std::string fan = R"({"entities": [{"id": 0, "name": "fan", "display_name": "Fan", "attrs": [
      {"id": 0, "name": "a", "display_name": "Hot", "desc": "", "type": "alert", "data_type": "bool",
       "position": {"byte_offset": 0, "unit": "bit", "bit_offset": 0, "len": 1}},)" +
                          BitField("Hot", R"("data_type": "bool")", 1, 1) + "]}]}";
  const std::string record = testing::TempDir() + "dp4_encode_record.json";
  std::ofstream(record) << R"({"command": 4, "values": {"fan": {"Hot": false}}, "alerts": {"Hot": true}})";
  EXPECT_EQ(RunTool({"encode", "-", record}, fan).out, "04 01\n");
}

// A status at bit 0 and an alert at bit 8, which share a name.
std::string BoxWithLid(const std::string& status) {
  const std::string alert = R"({"id": 1, "name": "lid", "display_name": "Lid open", "desc": "", "type": "alert", )"
                            R"("data_type": "bool", "position": {)" +
                            Bits(1, 0, 1) + "}}";
  return Configuration(status + ", " + alert);
}

ToolRun EncodeDecodedBy(const std::string& configuration, const std::vector<std::string>& decodeArguments,
                        const std::vector<std::string>& encodeArguments = {}) {
  const std::string path = testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
  std::ofstream(path) << configuration;
  return EncodeDecodedOf(path, decodeArguments, encodeArguments);
}

TEST(EncodeRecord, KeepsAStatusAndAnAlertOfOneNameApart) {
  const std::string box = BoxWithLid(Bool("lid", 0, 0, "status_readonly"));
  for (const std::string packet : {"04 01 00", "04 00 01", "04 01 01"}) {
    for (const std::string form : {"flat", "decoded"}) {
      const ToolRun run = EncodeDecodedBy(box, {packet, "--document", form}, {"--command", "notify"});
      EXPECT_EQ(run.out, packet + "\n") << form;
      EXPECT_EQ(run.err, "") << form;
    }
  }
  const auto set = [&box](const char* setting) {
    return RunTool({"encode", "-", "--command", "notify", "--set", setting}, box).out;
  };
  EXPECT_EQ(set("Lid open=1"), "04 00 01\n");
  EXPECT_EQ(set("lid=1"), "04 01 00\n");
}

// 50 is 32.
TEST(EncodeRecord, IsAWriteOfTheStatusWhoseNameAnAlertHas) {
  const std::string box =
      BoxWithLid(Attribute("lid", "status_writable", "uint8", Bytes(0, 1), Scaling("0", "200", "1", "0")));
  EXPECT_EQ(EncodeDecodedBy(box, {"04 32 01"}).out, "04 32 01\n");
  for (const std::string form : {"flat", "decoded"}) {
    const ToolRun run = EncodeDecodedBy(box, {"04 32 01", "--document", form}, {"--command", "write"});
    EXPECT_EQ(run.out, "01 01 32\n") << form;
    EXPECT_EQ(run.err, "") << form;
  }
}

// The key of the first alert is the name of the second.
TEST(EncodeDocument, NamesAlertsByTheirKeysWhenItIsADecodedOne) {
  const std::string alert = R"("desc": "", "type": "alert", "data_type": "bool", "position": {)";
  const std::string box =
      Configuration(R"({"id": 0, "name": "alarm", "display_name": "Door", )" + alert + Bits(0, 0, 1) +
                    R"(}}, {"id": 1, "name": "Door", "display_name": "Ajar", )" + alert + Bits(0, 1, 1) + "}}");
  EXPECT_EQ(EncodeDecodedBy(box, {"04 01", "--document", "decoded"}, {"--command", "notify"}).out, "04 01\n");
  EXPECT_EQ(EncodeDecodedBy(box, {"04 01"}).out, "04 01\n");
}

// Encoding knows it by what stands before the NUL.
TEST(EncodeRecord, MayHaveANameWithANul) {
  const std::string box = Configuration(Bool("a\\u0000b", 0, 0));
  for (const std::string packet : {"04 01", "01 01 01"}) EXPECT_EQ(EncodeDecodedBy(box, {packet}).out, packet + "\n");
  const ToolRun run = EncodeDecodedBy(box, {"04 01", "--document", "decoded"});
  EXPECT_EQ(run.out, "01 01 01\n");
}

TEST(EncodeRecord, HasNotTheValuesOfTwoAttributesOfOneName) {
  const std::string box = Configuration(Bool("twin", 0, 0) + ", " + Bool("twin", 0, 1));
  ExpectProblem(EncodeDecodedBy(box, {"01 01 01"}),
                "standard input:1:53: \"twin\" stands for 2 attributes, and the document has the value of one only");
  EXPECT_EQ(EncodeDecodedBy(box, {"01 01 01"}, {"--set", "twin=1"}).out, "01 03 03\n");
  // The alert takes the key of the status.
  const std::string lid = BoxWithLid(Bool("Lid open", 0, 0, "status_readonly"));
  const std::string two = "\"Lid open\" stands for 2 attributes, and the document has the value of one only";
  ExpectProblem(EncodeDecodedBy(lid, {"04 01 00"}), "standard input:1:69: " + two);
  ExpectProblem(EncodeDecodedBy(lid, {"04 01 00", "--document", "decoded"}, {"--command", "notify"}),
                "standard input:1:38: " + two);
}

// ---- Items ----

TEST(EncodeItem, IsTakenByNameOrIndex) {
  // Program is bits 2 and 1 of byte 0, its flag is 02.
  EXPECT_EQ(EncodeKettle({"--set", "program=keep_warm"}).out, "01 02 04 00\n");
  EXPECT_EQ(EncodeKettle({"--set", "program=\"green_tea\""}).out, "01 02 02 00\n");
  EXPECT_EQ(EncodeKettle({"--set", "program=01"}).out, "01 02 02 00\n");
  EXPECT_EQ(EncodeKettle({"-"}, R"({"kettle": {"program": "keep_warm"}})").out, "01 02 04 00\n");
  EXPECT_EQ(EncodeKettle({"-"}, R"({"kettle": {"program": "1"}})").out, "01 02 02 00\n");
  EXPECT_EQ(EncodeKettle({"-"}, R"({"kettle": {"program": 1}})").out, "01 02 02 00\n");
}

TEST(EncodeItem, IsAnsweredWithTheKnownOnesWhenItIsUnknown) {
  const std::string known = "known: boil, green_tea and keep_warm";
  ExpectProblem(EncodeKettle({"--set", "program=keep_wram"}),
                "--set program=keep_wram: \"program\" has no item \"keep_wram\"; did you mean \"keep_warm\"? " + known);
  for (const std::string item : {"", "-1", "1x", "1.0", "0x1", "true", "null", " 1"}) {
    ExpectProblem(EncodeKettle({"--set", "program=" + item}),
                  "--set program=" + item + ": \"program\" has no item \"" + item + "\"; " + known);
  }
  ExpectProblem(EncodeKettle({"-"}, R"({"kettle": {"program": "warm up"}})"),
                "standard input:1:24: \"program\" has no item \"warm up\"; " + known);
}

// The texts of JSON's words and of numbers may be items as well; two alike are told apart by their index alone.
TEST(EncodeItem, MayBeAnyText) {
  const std::string fan = Fan(BitField("mode", R"("data_type": "enum", "enum": ["null", "-1", "calm", "calm"])", 0, 2));
  EXPECT_EQ(RunTool({"encode", "-", "--set", "mode=null"}, fan).out, "01 01 00\n");
  EXPECT_EQ(RunTool({"encode", "-", "--set", "mode=-1"}, fan).out, "01 01 01\n");
  EXPECT_EQ(RunTool({"encode", "-", "--set", "mode=3"}, fan).out, "01 01 03\n");
  ExpectProblem(RunTool({"encode", "-", "--set", "mode=calm"}, fan),
                "--set mode=calm: \"mode\" has several items \"calm\"; expected one of the indices 2 or 3");
}

// ---- The value document ----

TEST(EncodeDocument, ComesFromStandardInput) {
  EXPECT_EQ(EncodeKettle({"-"}, R"({"kettle": {"target": 45.5}})").out, "01 04 00 0b\n");
}

TEST(EncodeDocument, PassesOverOtherEntitiesOfTheConfiguration) {
  const ToolRun run = RunTool({"encode", "gateway.json", "gateway.values.json", "--entity", "gateway"});
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

// The temperature is only read, and passed over.
const char kSlips[] =
    "{\n"
    "  \"kettel\": {\"power\": 1},\n"
    "  \"kettle\": {\n"
    "    \"powr\": 1,\n"
    "    \"program\": 2,\n"
    "    \"temperature\": 50\n"
    "  },\n"
    "  \"version\": 4.0\n"
    "}\n";
const char kSlipsReport[] =
    "dp4: standard input:2:13: \"kettel\" names no entity; did you mean \"kettle\"? known: kettle\n"
    "dp4: standard input:4:13: \"powr\" names no attribute of \"kettle\"; did you mean \"power\"? known: power, "
    "program and target\n";

TEST(EncodeDocument, MakesNoPacketWhereANameIsUnknown) {
  const ToolRun run = EncodeKettle({"-"}, kSlips);
  EXPECT_EQ(run.err, kSlipsReport);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(EncodeDocument, MakesAPacketOfTheRestWhenLenient) {
  const ToolRun run = EncodeKettle({"-", "--lenient"}, kSlips);
  EXPECT_EQ(run.err, kSlipsReport);
  EXPECT_EQ(run.out, "01 02 04 00\n");
  EXPECT_EQ(run.exitCode, 0);
}

// Made into a write. Alerts go by their display names there. The kettle's read-only attributes and the version are
// passed over.
TEST(EncodeDocument, MayBeADecodedOne) {
  for (const std::string form : {"flat", "decoded"}) {
    const std::string document = RunTool({"decode", "kettle.json", "04055a04640101", "--document", form}).out;
    const ToolRun run = EncodeKettle({"-", "--command", "write"}, document);
    EXPECT_EQ(run.err, "") << form;
    EXPECT_EQ(run.out, "01 07 05 5a\n") << form;
    EXPECT_EQ(run.exitCode, 0) << form;
  }
  EXPECT_EQ(EncodeKettle({"-"}, R"({"kettle": {"power": true, "temperature": "50"}, "version": 4.0})").out,
            "01 01 01 00\n");
}

TEST(EncodeDocument, ReportsValuesOfOtherKinds) {
  const ToolRun run = EncodeKettle({"-"},
                                   "{\"kettle\": {\n"
                                   "\"power\": 1.5,\n"
                                   "\"program\": 1.5,\n"
                                   "\"target\": true}}\n");
  EXPECT_EQ(
      run.err,
      "dp4: standard input:2:10: \"power\" left out: a bool takes an integer of 32 bits, true, false or decimal text\n"
      "dp4: standard input:3:12: \"program\" left out: an enum takes an item or its index\n"
      "dp4: standard input:4:11: \"target\" left out: a uint8 takes a number or the text of one\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(EncodeDocument, LeavesOutNullWithAReport) {
  const ToolRun run = EncodeKettle({"-", "--lenient"}, R"({"kettle": {"power": null, "target": 40}})");
  EXPECT_EQ(run.err,
            "dp4: standard input:1:22: \"power\" left out: a bool takes an integer of 32 bits, true, false or decimal "
            "text\n");
  EXPECT_EQ(run.out, "01 04 00 00\n");
  EXPECT_EQ(run.exitCode, 0);
}

TEST(EncodeDocument, IsAnObjectOfObjects) {
  ExpectUsageError(EncodeKettle({"-"}, "[1]"), "standard input:1:1: expected an object {\"kettle\": {...}}");
  ExpectUsageError(EncodeKettle({"-"}, "{\"kettle\":\n 1}"),
                   "standard input:2:2: expected an object with the values of \"kettle\"");
}

TEST(EncodeDocument, HasAValueForTheEntity) {
  const ToolRun run = EncodeKettle({"-"}, "{}");
  EXPECT_EQ(run.err, "dp4: kettle.json: \"kettle\": no value to encode for it; expected one of a writable attribute\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(EncodeDocument, CannotShareStandardInputWithTheConfiguration) {
  ExpectUsageError(RunTool({"encode", "-", "-"}, "{}"),
                   "standard input cannot be both the configuration and the value document");
}

TEST(EncodeDocument, IsNamedWhenItCannotBeRead) {
  ExpectUsageError(EncodeKettle({"missing.json"}), "missing.json: cannot be read: No such file or directory");
}

// ---- What the module refuses ----

TEST(EncodeRefusal, NamesTheValueTheModulesLineAndTheRange) {
  const ToolRun run = EncodeKettle({"-"}, "{\"kettle\": {\"power\": 1,\n \"target\": 100.5}}");
  EXPECT_EQ(run.err,
            "dp4: standard input:2:12: \"target\" refused: Validate uint value failed. (expected 40 to 100)\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitCode, 1);
}

// Six decimals put the value of raw 0 beyond the end of its range.
TEST(EncodeRefusal, TellsThatTheEndOfTheRangeIsNotPartOfIt) {
  const auto number = [](const std::string& ratio, const std::string& addition) {
    return Fan(R"({"id": 0, "name": "n", "display_name": "N", "desc": "", "type": "status_writable",
        "data_type": "uint8", "uint_spec": {"min": 0, "max": 9, "ratio": )" +
               ratio + R"(, "addition": )" + addition +
               R"(}, "position": {"byte_offset": 0, "bit_offset": 0, "unit": "byte", "len": 1}})");
  };
  EXPECT_THAT(RunTool({"encode", "-", "--set", "n=0.333333"}, number("1", "0.33333333")).err,
              testing::HasSubstr("(expected more than 0.333333 to 9.333333)\n"));
  EXPECT_THAT(RunTool({"encode", "-", "--set", "n=0.000001"}, number("-1", "0.0000006")).err,
              testing::HasSubstr("(expected less than 0.000001 to -8.999999)\n"));
}

// The longest name that is known is meant; base64 text ends in "=" as well.
TEST(EncodeSet, TakesNamesWithAnEqualsSign) {
  const std::string box = Configuration(Bool("a", 0, 0) + ", " + Bool("a=b", 0, 1) + ", " +
                                        Attribute("key", "status_writable", "binary", Bytes(1, 1)));
  const auto encoded = [&box](const char* setting) { return RunTool({"encode", "-", "--set", setting}, box).out; };
  EXPECT_EQ(encoded("a=true"), "01 01 01 00\n");
  EXPECT_EQ(encoded("a=b=true"), "01 02 02 00\n");
  EXPECT_EQ(encoded("key=QQ=="), "01 04 00 41\n");
}

TEST(EncodeRefusal, TellsAllInTheOrderOfTheConfiguration) {
  const ToolRun run = EncodeKettle({"--set", "target=1", "--set", "program=3", "--set", "power=1"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "dp4: --set program=3: \"program\" refused: Invalid enum value: 3, range: 0-3 (expected 0 to 2; the line's "
            "3 counts the items)\n"
            "dp4: --set target=1: \"target\" refused: Validate uint value failed. (expected 40 to 100)\n");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(EncodeRefusal, LeavesTheRestWhenLenient) {
  const std::string target = "\"target\" refused: Validate uint value failed. (expected 40 to 100)";
  const std::string program =
      "\"program\" refused: Invalid enum value: 3, range: 0-3 (expected 0 to 2; the line's 3 counts the items)";
  ToolRun run = EncodeKettle({"--set", "power=1", "--set", "target=200", "--set", "program=3", "--lenient"});
  EXPECT_EQ(run.out, "01 01 01 00\n");
  EXPECT_EQ(run.err, "dp4: --set program=3: " + program + "\ndp4: --set target=200: " + target + "\n");
  EXPECT_EQ(run.exitCode, 0);
  run = EncodeKettle({"--set", "power=1", "--set", "program=3", "--lenient", "--command", "notify"});
  EXPECT_EQ(run.out, "04 01 00 00 00 00 00\n");
  EXPECT_EQ(run.err, "dp4: --set program=3: " + program + "\n");
  EXPECT_EQ(run.exitCode, 0);
  ExpectProblem(EncodeKettle({"--set", "target=200", "--lenient"}), "--set target=200: " + target);
}

TEST(EncodeRefusal, IsExplainedWithoutAPacket) {
  const ToolRun run = EncodeKettle({"--set", "power=1", "--set", "target=101", "--explain"});
  EXPECT_EQ(run.out,
            "FLAG  NAME     VALUE  PLACE    BITS  NOTE\n"
            "0     power    1      0.0            not sent\n"
            "1     program         0.2-0.1        left out: no value\n"
            "2     target   101    1              refused: Validate uint value failed. (expected 40 to 100)\n"
            "\n"
            "FLAG is the attribute's bit in the flag bitmap. PLACE counts bytes of the payload, or byte.bit with bit 0 "
            "the lowest.\n");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(EncodeRefusal, MayBeAboutThePlace) {
  const ToolRun run =
      RunTool({"encode", "-", "--set", "swing=1"}, Fan(BitField("swing", R"("data_type": "bool")", 0, 2)));
  EXPECT_EQ(run.err,
            "dp4: --set swing=1: \"swing\" refused: Write bool value failed. (nothing can be written in its place; "
            "dp4 lint tells why)\n");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(EncodeRefusal, MayBeAboutTheEntity) {
  const ToolRun run = RunTool({"encode", "kettle.json", "-", "--log"}, "{}");
  EXPECT_EQ(run.err,
            "[2] Filter entity: id='0' name='kettle' display_name='Kettle'\n"
            "dp4: kettle.json: \"kettle\": no value to encode for it; expected one of a writable attribute\n");
  // Nothing of this entity is writable.
  const std::string sensorOnly = R"({"id": 0, "name": "hot", "display_name": "Hot", "desc": "", "type": "alert",
      "data_type": "bool", "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}})";
  ExpectProblem(RunTool({"encode", "-", "--set", "hot=1"}, Fan(sensorOnly)),
                "--set hot=1: \"hot\" is not written, its group is alert");
}

TEST(EncodeRefusal, HappensBeforeAPacketGrowsTooLong) {
  const std::string far = R"({"id": 0, "name": "far", "display_name": "", "desc": "", "type": "status_writable",
      "data_type": "binary", "position": {"byte_offset": 16384, "bit_offset": 0, "unit": "byte", "len": 1}})";
  ExpectUsageError(RunTool({"encode", "-", "--set", "far=AA=="}, Fan(far)),
                   "standard input: \"fan\" takes 16385 bytes of payload for its 1 writable attributes, more than a "
                   "packet can hold");
}

TEST(EncodeLog, ShowsTheModulesLines) {
  const ToolRun run = EncodeKettle({"--set", "target=101", "--log"});
  EXPECT_EQ(run.err,
            "[2] Filter entity: id='0' name='kettle' display_name='Kettle'\n"
            "[1] ProtocolEncodeEntity_4_0: Validate uint value failed.\n"
            "dp4: --set target=101: \"target\" refused: Validate uint value failed. (expected 40 to 100)\n");
}

// The level is 30 to 80, so that no device sends 0.
TEST(EncodeNotification, WarnsOfZerosThatNoDeviceSends) {
  const std::string level = R"({"id": 0, "name": "level", "display_name": "", "desc": "", "type": "status_writable",
      "data_type": "uint8", "uint_spec": {"min": 30, "max": 80, "ratio": 1, "addition": 0},
      "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1}}, )";
  const std::string fan = Fan(level + BitField("on", R"("data_type": "bool")", 0, 1));
  ToolRun run = RunTool({"encode", "-", "--set", "on=1", "--command", "notify", "--explain"}, fan);
  EXPECT_EQ(FirstLine(run.out), "04 01 00\n");
  EXPECT_EQ(run.err, "dp4: warning: \"level\" has no value: raw 0 is sent (expected 30 to 80)\n");
  EXPECT_NE(run.out.find("level         1            no value: raw 0 is sent (expected 30 to 80)"), std::string::npos)
      << run.out;
  EXPECT_EQ(run.exitCode, 0);
  // A write marks what it carries.
  EXPECT_EQ(RunTool({"encode", "-", "--set", "on=1"}, fan).err, "");
  EXPECT_EQ(RunTool({"encode", "-", "--set", "on=1", "--set", "level=30", "--command", "notify"}, fan).err, "");
}

// Beside the number, an enum without an item for its bits and a bool in bytes end a decode.
TEST(EncodeNotification, WarnsOfWhatEndsItsDecode) {
  const std::string number = Attribute("n", "status_writable", "uint8", Bytes(0, 1), Scaling("0", "200", "1", "0"));
  const std::string mode = Attribute("m", "status_readonly", "enum", Bits(0, 0, 3), R"("enum": ["a", "b"], )");
  const auto warningsOf = [&number](const std::string& other) {
    return RunTool({"encode", "-", "--set", "n=7", "--command", "notify"}, Configuration(number + ", " + other)).err;
  };
  EXPECT_EQ(warningsOf(mode), "dp4: warning: \"m\" has no value: raw 7 is sent (expected 0 to 1)\n");
  EXPECT_EQ(warningsOf(Attribute("m", "status_readonly", "enum", Bits(0, 0, 3), "\"enum\": [1], ")),
            "dp4: warning: \"m\" has no value: raw 7 is sent (it has no items)\n");
  EXPECT_EQ(warningsOf(Attribute("b", "alert", "bool", Bytes(1, 1))),
            "dp4: warning: \"b\" has no place: decoding ends there\n");
  // It is read as 0.
  EXPECT_EQ(warningsOf(Attribute("m", "status_readonly", "enum", Bits(1, -1, 1), R"("enum": ["a"], )")), "");
}

// ---- Values that do not survive in the packet ----

TEST(EncodeCut, IsReportedForABoolWithoutAPlace) {
  const std::string number = Attribute("n", "status_writable", "uint8", Bytes(1, 1), Scaling("0", "9", "1", "0"));
  const std::string box = Configuration(Bool("a", 0, -1) + ", " + Bool("b", 0, 1) + ", " + number);
  ExpectProblem(RunTool({"encode", "-", "--set", "a=1"}, box), "--set a=1: \"a\" lost: it has no place");
  EXPECT_EQ(RunTool({"encode", "-", "--set", "b=1"}, box).out, "01 02 02 00\n");
}

// swing 1 is group bit 0 and mode 1 bit 2: 00 05. Writing speed, in bits 9 to 6, loads these bytes the other way round,
// 0500, and clears bits 9 to 6 of it: 0400, swing is lost. 11 in bits 9 to 6 is 02c0: stored are 06 c0, and mode is 0.
const char kOverwritten[] =
    "dp4: --set swing=1: \"swing\" overwritten: was 1 until \"speed\" was written\n"
    "dp4: --set mode=1: \"mode\" overwritten: was 01 until \"speed\" was written\n";

TEST(EncodeNeighbours, AreReportedWhenAWriteDisturbsThem) {
  const ToolRun run =
      RunTool({"encode", "-", "--set", "swing=1", "--set", "mode=1", "--set", "speed=11", "--explain", "--lenient"},
              SwappingFan());
  EXPECT_EQ(run.err, kOverwritten);
  EXPECT_EQ(run.out,
            "01 07 06 c0\n"
            "\n"
            "command     01\n"
            "flags       07\n"
            "payload     06 c0\n"
            "\n"
            "FLAG   NAME   VALUE  PLACE    BITS   NOTE\n"
            "0 = 1  swing  1      1.0      0      overwritten: was 1 until \"speed\" was written\n"
            "1 = 1  mode   1      1.3-1.2  00     overwritten: was 01 until \"speed\" was written\n"
            "2 = 1  speed  11     0.1-1.6  10 11  11\n"
            "\n"
            "FLAG is the attribute's bit in the flag bitmap. PLACE counts bytes of the payload, or byte.bit with bit 0 "
            "the lowest.\n");
  EXPECT_EQ(run.exitCode, 0);
}

TEST(EncodeNeighbours, MakeNoPacketOtherwise) {
  const ToolRun run =
      RunTool({"encode", "-", "--set", "swing=1", "--set", "mode=1", "--set", "speed=11"}, SwappingFan());
  EXPECT_EQ(run.err, kOverwritten);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitCode, 1);
}

// ---- Values that do not fit their fields ----

// n has one byte for raw values up to 1000, e two bits for five items.
std::string NarrowFan() {
  return Fan(R"({"id": 0, "name": "n", "display_name": "", "desc": "", "type": "status_writable", "data_type": "uint16",
      "uint_spec": {"min": 0, "max": 1000, "ratio": 0.5, "addition": 0},
      "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1}}, )" +
             BitField("e", R"("data_type": "enum", "enum": ["a", "b", "c", "d", "e"])", 0, 2));
}

std::string RowOf(const std::string& text, const std::string& begin) {
  const size_t at = text.find("\n" + begin);
  return at == std::string::npos ? "no row" : text.substr(at + 1, text.find('\n', at + 1) - at - 1);
}

TEST(EncodeCut, IsReportedForNumbersAndEnums) {
  // 150 / 0.5 = 300 = 01 2c, of which 2c = 44 is left; 4 is 100 binary, of which 00 is left.
  const ToolRun run = RunTool({"encode", "-", "--set", "n=150", "--set", "e=4", "--explain", "--lenient"}, NarrowFan());
  EXPECT_EQ(run.err,
            "dp4: --set n=150: \"n\" cut: raw 300 does not fit, 44 is sent\n"
            "dp4: --set e=4: \"e\" cut: raw 4 does not fit, 0 is sent\n");
  EXPECT_EQ(run.out.substr(0, run.out.find('\n')), "01 03 00 2c");
  EXPECT_EQ(RowOf(run.out, "0 = 1"), "0 = 1  n     150    1        2c    cut: raw 300 does not fit, 44 is sent");
  EXPECT_EQ(run.exitCode, 0);
  // What fits is as good as ever.
  EXPECT_EQ(RunTool({"encode", "-", "--set", "n=127.5", "--set", "e=3"}, NarrowFan()).out, "01 03 03 ff\n");
}

TEST(EncodeCut, MakesNoPacketOtherwise) {
  const ToolRun run = RunTool({"encode", "-", "--set", "e=4"}, NarrowFan());
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitCode, 1);
}

TEST(EncodeCut, IsReportedForBinaries) {
  // QUJD, REVG, R0hJ and Sg are the bytes 41 to 4a, ten for a field of eight.
  ToolRun run = EncodeGateway("label=QUJDREVGR0hJSg==", {"--lenient"});
  EXPECT_EQ(run.out, "01 10 00 00 00 41 42 43 44 45 46 47 48\n");
  EXPECT_EQ(run.err, "dp4: --set label=QUJDREVGR0hJSg==: \"label\" cut: it has 10 bytes, of which 8 are sent\n");
  EXPECT_EQ(run.exitCode, 0);
  // Decoding ends at the star, after QXR0 = 41 74 74.
  run = EncodeGateway("label=QXR0*aWM=", {"--lenient"});
  EXPECT_EQ(run.out, "01 10 00 00 00 41 74 74 00 00 00 00 00\n");
  EXPECT_EQ(run.err, "dp4: --set label=QXR0*aWM=: \"label\" cut: not all of it is base64, 3 bytes are sent\n");
  EXPECT_EQ(run.exitCode, 0);
}

// A binary's text sets as many bytes as it has; the others keep what an earlier attribute wrote.
TEST(EncodeCut, IsReportedWhereAShortBinaryLeavesAnEarlierValue) {
  const auto binary = [](const std::string& name, const std::string& place) {
    return R"({"id": 0, "name": ")" + name + R"(", "display_name": "", "desc": "", "type": "status_writable",
        "data_type": "binary", "position": {"unit": "byte", "bit_offset": 0, )" +
           place + "}}";
  };
  const std::string fan =
      Fan(binary("x", R"("byte_offset": 0, "len": 3)") + "," + binary("y", R"("byte_offset": 1, "len": 2)"));
  const ToolRun run = RunTool({"encode", "-", "--set", "x=\"AQID\"", "--set", "y=\"BA==\"", "--lenient"}, fan);
  EXPECT_EQ(run.err,
            "dp4: --set x=\"AQID\": \"x\" overwritten: was 01 02 03 until \"y\" was written\n"
            "dp4: --set y=\"BA==\": \"y\" mixed: what it does not set is an earlier value's\n");
  EXPECT_EQ(run.out, "01 03 01 04 03\n");
  // What another one changes later is told instead.
  const ToolRun three =
      RunTool({"encode", "-", "--set", "x=\"AQID\"", "--set", "y=\"BA==\"", "--set", "z=\"BQ==\"", "--lenient"},
              Fan(binary("x", R"("byte_offset": 0, "len": 3)") + "," + binary("y", R"("byte_offset": 1, "len": 2)") +
                  "," + binary("z", R"("byte_offset": 1, "len": 1)")));
  EXPECT_THAT(three.err, testing::HasSubstr("\"y\" overwritten: was 04 00 until \"z\" was written\n"));
  EXPECT_EQ(three.out, "01 07 01 05 03\n");
}

TEST(EncodeCut, IsNoneForCompleteAndShortBinaries) {
  // 41 to 48; padding may be missing, and blanks do not count.
  for (const std::string text : {"QUJDREVGR0g=", "QUJDREVGR0g", "\"QUJD REVG\\nR0g=\""}) {
    const ToolRun run = EncodeGateway("label=" + text);
    EXPECT_EQ(run.out, "01 10 00 00 00 41 42 43 44 45 46 47 48\n") << text;
    EXPECT_EQ(run.err, "") << text;
  }
  const ToolRun run = RunTool({"encode", "gateway.json", "--entity", "0", "--set", "label=QQ==", "--explain"});
  EXPECT_EQ(RowOf(run.out, "4 = 1"),
            "4 = 1  label         QQ==   3-10     41 00 00 00 00 00 00 00  1 byte, filled up with zeros");
  EXPECT_EQ(run.exitCode, 0);
}

// (45.3 - 40) / 0.5 = 10.6, rounded to 11, which is 45.5 for the device.
TEST(EncodeRounding, IsExplained) {
  ToolRun run = EncodeKettle({"--set", "target=45.3", "--explain"});
  EXPECT_EQ(RowOf(run.out, "2 = 1"), "2 = 1  target   45.3   1        0b    raw 11 (45.5)");
  EXPECT_EQ(run.exitCode, 0);
  run = EncodeKettle({"--set", "target=\"45.5\"", "--explain"});
  EXPECT_EQ(RowOf(run.out, "2 = 1"), "2 = 1  target   \"45.5\"  1        0b    raw 11");
}

// ---- Names and values that would control a terminal ----

TEST(EncodeText, IsEscaped) {
  const std::string configuration =
      Fan(BitField("on\\u001b[2J\\noff", R"("data_type": "enum", "enum": ["x\u009b1m"])", 0, 1));
  const ToolRun run = RunTool({"encode", "-", "--set", "on\x1b[2J\noff=0", "--explain"}, configuration);
  EXPECT_EQ(run.out,
            "01 01 00\n"
            "\n"
            "command     01\n"
            "flags       01\n"
            "payload     00\n"
            "\n"
            "FLAG   NAME            VALUE  PLACE  BITS  NOTE\n"
            "0 = 1  on\\x1b[2J\\noff  0      0.0    0     x\\u009b1m\n"
            "\n"
            "FLAG is the attribute's bit in the flag bitmap. PLACE counts bytes of the payload, or byte.bit with bit 0 "
            "the lowest.\n");
  EXPECT_EQ(run.exitCode, 0);
  ExpectProblem(RunTool({"encode", "-", "--set", "o\x1b[2J=0"}, SwappingFan()),
                "--set o\\x1b[2J=0: \"o\\x1b[2J\" names no attribute of \"fan\"; known: swing, mode and speed");
}

// Two attributes of one name both take its value.
TEST(EncodeText, TellsAttributesOfOneNameApart) {
  const std::string twin = R"("data_type": "bool")";
  const ToolRun run = RunTool({"encode", "-", "--set", "twin=1", "--explain"},
                              Fan(BitField("twin", twin, 0, 1) + ", " + BitField("twin", twin, 4, 1)));
  EXPECT_EQ(run.out,
            "01 03 11\n"
            "\n"
            "command     01\n"
            "flags       03\n"
            "payload     11\n"
            "\n"
            "FLAG   NAME  VALUE  PLACE  BITS  NOTE\n"
            "0 = 1  twin  1      0.0    1\n"
            "1 = 1  twin  1      0.4    1\n"
            "\n"
            "FLAG is the attribute's bit in the flag bitmap. PLACE counts bytes of the payload, or byte.bit with bit 0 "
            "the lowest.\n");
}

// ---- dp4 request ----

TEST(Request, GivesTheRequestsThatNameNoSubDevice) {
  for (const auto& [command, packet] : {std::pair("read", "02\n"), {"cc-add", "0b\n"}, {"cc-list", "0d\n"}}) {
    const ToolRun run = RunTool({"request", command});
    EXPECT_EQ(run.out, packet) << command;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitCode, 0);
    ExpectUsageError(RunTool({"request", command, "--sub-device", "0"}),
                     std::string(command) + " names no sub-device; expected no --sub-device");
  }
}

TEST(Request, GivesTheRequestsThatNameOne) {
  for (const auto& [command, first] : {std::pair("cc-read", "08 "), {"cc-delete", "0c "}}) {
    const ToolRun run = RunTool({"request", command, "--sub-device", "5"});
    EXPECT_EQ(run.out, first + IdText("05 00 00 00\n", "00 00 00 05\n")) << command;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitCode, 0);
    ExpectUsageError(RunTool({"request", command}),
                     std::string(command) + " is for one sub-device; expected --sub-device ID");
  }
}

TEST(Request, TakesAllFormsOfOutput) {
  EXPECT_EQ(RunTool({"request", "read", "--output", "c-array"}).out,
            "const unsigned char packet[1] = {\n    0x02,\n};\n");
  // 000000 10(0000) = A g.
  EXPECT_EQ(RunTool({"request", "read", "--output", "base64"}).out, "Ag==\n");
  EXPECT_EQ(RunTool({"request", "read", "--output", "binary"}).out, "\x02");
  // The id 0 holds NULs.
  EXPECT_EQ(RunTool({"request", "cc-read", "--sub-device", "0", "--output", "binary"}).out,
            std::string("\x08\0\0\0\0", 5));
}

TEST(Request, KnowsNoOther) {
  const ToolRun run = RunTool({"request", "write"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err, "");
}

// ---- Strings of which only the beginning is read ----

// "%llu" ends at the x.
TEST(EncodeText, IsAProblemWhenItIsReadInPart) {
  const struct {
    const char* set;
    const char* packet;
    const char* problem;
  } kCases[] = {
      {"power=0x1", "01 01 00 00\n", "\"power\" read in part: expected decimal digits, only \"0\" is sent"},
      {"power=", "01 01 00 00\n", "\"power\" no number: expected decimal digits, 0 is sent"},
  };
  for (const auto& [set, packet, problem] : kCases) {
    SCOPED_TRACE(set);
    const ToolRun lenient = EncodeKettle({"--set", set, "--lenient"});
    EXPECT_EQ(lenient.out, packet);
    EXPECT_EQ(lenient.err, "dp4: --set " + std::string(set) + ": " + problem + "\n");
    EXPECT_EQ(lenient.exitCode, 0);
    const ToolRun plain = EncodeKettle({"--set", set});
    EXPECT_EQ(plain.out, "");
    EXPECT_EQ(plain.exitCode, 1);
  }
  EXPECT_EQ(EncodeKettle({"--set", "target= 8.5e1"}).out, "01 04 00 5a\n");
}

TEST(EncodeText, IsLeftOutWhenItIsNoNumber) {
  for (const std::string text : {"abc", "nan", "85,5", "85.5C", "", "-nan"}) {
    const std::string set = "target=" + text;
    const std::string problem = "--set " + set + ": \"target\" left out: a uint8 takes a number or the text of one";
    ExpectProblem(EncodeKettle({"--set", set}), problem);
    const ToolRun lenient = EncodeKettle({"--set", set, "--set", "power=1", "--lenient"});
    EXPECT_EQ(lenient.out, "01 01 01 00\n");
    EXPECT_EQ(lenient.err, "dp4: " + problem + "\n");
  }
  const ToolRun explained = EncodeKettle({"--set", "target=85,5", "--explain"});
  EXPECT_EQ(RowOf(explained.out, "2 "),
            "2     target   85,5   1              left out: a uint8 takes a number or the text of one");
  ExpectProblem(EncodeKettle({"--set", "power=yes"}),
                "--set power=yes: \"power\" left out: a bool takes an integer of 32 bits, true, false or decimal text");
}

TEST(EncodeDocument, ReportsAMemberThatStandsThereTwice) {
  const ToolRun run = EncodeKettle({"-"}, "{\"kettle\": {\"power\": 1,\n \"power\": 0}}");
  EXPECT_EQ(run.err, "dp4: standard input:2:2: \"power\" stands here again; the earlier value is not used\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitCode, 1);
}

// ratio 1000: raw 1732125630500 and 1732125630501 are 1732125630500000 and ...501000.
TEST(EncodeExplain, TellsWhatALargeNumberIsRoundedTo) {
  const std::string fan =
      Fan(R"({"id": 0, "name": "t", "display_name": "", "desc": "", "type": "status_writable", "data_type": "uint64", )"
          R"("position": {"byte_offset": 0, "unit": "byte", "bit_offset": 0, "len": 8}, )"
          R"("uint_spec": {"min": 0, "max": 4503599627370495, "ratio": 1000, "addition": 0}})");
  const ToolRun run = RunTool({"encode", "-", "--set", "t=1732125630500400", "--explain"}, fan);
  EXPECT_NE(run.out.find("raw 1732125630500 (1732125630500000)\n"), std::string::npos) << run.out;
}

TEST(EncodeExplain, ShowsNoBitsOfWhatIsNotSent) {
  const ToolRun run = EncodeKettle({"--set", "power=1", "--set", "target=85,5", "--explain"});
  EXPECT_NE(run.out.find("0     power    1      0.0            not sent\n"), std::string::npos) << run.out;
}

// ---- --sub-device ----

TEST(RequestSubDevice, IsANumberOf32Bits) {
  const auto packetOf = [](const std::string& id) {
    return RunTool({"request", "cc-delete", "--sub-device=" + id}).out;
  };
  EXPECT_EQ(packetOf("10"), IdText("0c 0a 00 00 00\n", "0c 00 00 00 0a\n"));
  EXPECT_EQ(packetOf("010"), packetOf("10"));
  EXPECT_EQ(packetOf("0x10"), IdText("0c 10 00 00 00\n", "0c 00 00 00 10\n"));
  EXPECT_EQ(packetOf("4294967295"), "0c ff ff ff ff\n");
  EXPECT_EQ(packetOf("-1"), "0c ff ff ff ff\n");
  EXPECT_EQ(packetOf("-2147483648"), IdText("0c 00 00 00 80\n", "0c 80 00 00 00\n"));
  EXPECT_EQ(packetOf("-2147483649"), "");
  for (const char* id : {"x", "0x", "1 ", "4294967296", "0x100000000", "99999999999"}) {
    const ToolRun run = RunTool({"request", "cc-delete", "--sub-device", id});
    EXPECT_EQ(run.exitCode, 2) << id;
    EXPECT_EQ(run.out, "") << id;
    EXPECT_NE(run.err.find("--sub-device: Value " + std::string(id) + " not in range -2147483648 to 4294967295"),
              std::string::npos)
        << run.err;
  }
}

}  // namespace
