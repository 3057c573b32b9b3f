// `dp4 devices`, on the list examples/devices.json and on small ones.

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

const char kKettle[] =
    R"({"configuration":"kettle.json","name":"Kettle K1","packetVersion":"0x4","product_key":"kettle-k1",)"
    R"("protocolType":"data-point"})"
    "\n";

ToolRun Devices(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"devices", "devices.json"});
  return RunTool(arguments);
}

ToolRun DevicesOf(const std::string& list, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"devices", "-"});
  return RunTool(arguments, list);
}

void ExpectFine(const ToolRun& run, const std::string& out) {
  EXPECT_EQ(run.out, out);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitCode, 0);
}

void ExpectFailure(const ToolRun& run, int exitCode, const std::string& message) {
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "dp4: " + message + "\n");
  EXPECT_EQ(run.exitCode, exitCode);
}

// A list file that is gone at its end.
class ListFile {
 public:
  explicit ListFile(const std::string& text)
      : path_(testing::TempDir() + "dp4-" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".json") {
    std::ofstream(path_, std::ios::binary) << text;
  }
  ~ListFile() { std::remove(path_.c_str()); }
  ListFile(const ListFile&) = delete;
  ListFile& operator=(const ListFile&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// ---- --protocol with --packet-version ----

TEST(DevicesByProtocol, AreWholeDevicesInTheirOrderOneALine) {
  ExpectFine(Devices({"--protocol", "stream", "--packet-version", "0x4"}),
             R"({"name":"Scale S2","packetVersion":"0x4","product_key":{"debug":"scale-s2-lab","release":"scale-s2"},)"
             R"("protocolType":"stream"})"
             "\n");
  const ToolRun run = Devices({"--protocol", "data-point", "--packet-version", "0x4"});
  std::string names;
  for (size_t at = 0; (at = run.out.find("\"name\":\"", at)) != std::string::npos;) {
    at += 8;
    names += run.out.substr(at, run.out.find('"', at) - at) + "\n";
  }
  EXPECT_EQ(names,
            "Kettle K1\nAir conditioner A2\nGateway G1\nPower meter P3\nLamp L5\nOven prototype\nPlain switch\n");
  EXPECT_EQ(run.out.substr(0, run.out.find('\n') + 1), kKettle);
}

TEST(DevicesByProtocol, TakesVersionsOfUpTo32Bits) {
  ExpectFine(Devices({"--protocol", "stream", "--packet-version", "0x10"}),
             R"({"name":"Door bell B1","packetVersion":"0x10","product_key":"door-bell-b1","protocolType":"stream"})"
             "\n");
  ExpectFine(DevicesOf(R"([{"protocolType": "p", "packetVersion": 4294967295}])",
                       {"--protocol", "p", "--packet-version", "0xFFFFffff"}),
             "{\"packetVersion\":4294967295,\"protocolType\":\"p\"}\n");
}

TEST(DevicesByProtocol, TellsWhenThereAreNone) {
  ExpectFailure(Devices({"--protocol", "Stream", "--packet-version", "0x4"}), 1,
                "devices.json: no device speaks \"Stream\" at packet version 0x4 (letter case counts)");
  ExpectFailure(Devices({"--protocol", "stream", "--packet-version", "0x5"}), 1,
                "devices.json: no device speaks \"stream\" at packet version 0x5 (letter case counts)");
}

TEST(DevicesByProtocol, ExpectsAVersionAsTheDevicesHaveIt) {
  for (const std::string version : {"4", "0x", "0X4", "0x4 ", "0xg", "0x100000000", ""}) {
    ExpectFailure(Devices({"--protocol", "stream", "--packet-version", version}), 2,
                  "--packet-version " + version + ": expected 0x and up to 8 hexadecimal digits, like 0x4");
  }
}

TEST(DevicesByProtocol, ExpectsAName) {
  ExpectFailure(Devices({"--protocol", "", "--packet-version", "0x4"}), 2,
                "--protocol: expected text, found an empty string\ndp4 --help tells more.");
}

// ---- --find ----

TEST(DevicesByKey, IsTheFirstDeviceWithTheKey) {
  ExpectFine(Devices({"--find", "kettle-k1"}), kKettle);
  ExpectFine(DevicesOf(R"([{"n": 1, "product_key": "a"}, {"n": 2, "product_key": "b"}, {"n": 3, "product_key": "b"}])",
                       {"--find", "b"}),
             "{\"n\":2,\"product_key\":\"b\"}\n");
}

TEST(DevicesByKey, KnowsAnEmptyKeyAsDefault) {
  ExpectFine(Devices({"--find", "Default"}),
             R"({"name":"Plain switch","packetVersion":"0x4","product_key":"","protocolType":"data-point"})"
             "\n");
}

TEST(DevicesByKey, LooksAtTheKeysOfTheBuild) {
  const std::string lamp =
      R"({"name":"Lamp L5","packetVersion":"0x4","product_key":{"debug":"lamp-l5-lab","release":"lamp-l5"},)"
      R"("protocolType":"data-point"})"
      "\n";
  ExpectFine(Devices({"--find", "lamp-l5"}), lamp);
  ExpectFine(Devices({"--find", "lamp-l5", "--release"}), lamp);
  ExpectFine(Devices({"--find", "lamp-l5-lab", "--debug"}), lamp);
  ExpectFailure(Devices({"--find", "oven-lab"}), 1, "devices.json: no device has the product key \"oven-lab\"");
}

TEST(DevicesByKey, OffersTheClosestKeys) {
  ExpectFailure(Devices({"--find", "kettle-k9"}), 1,
                "devices.json: no device has the product key \"kettle-k9\"; did you mean \"kettle-k1\" or "
                "\"kettle-k0\"?");
  ExpectFailure(DevicesOf("[]", {"--find", "a"}), 1, "standard input: no device has the product key \"a\"");
}

// ---- --keys ----

TEST(DeviceKeys, AreAllKeysOneALine) {
  ExpectFine(Devices({"--keys"}),
             "\"kettle-k1\"\n\"air-conditioner-a2\"\n\"gateway-g1\"\n\"power-meter-p3\"\n\"lamp-l5\"\n\"Default\"\n"
             "\"kettle-k0\"\n\"scale-s2\"\n\"door-bell-b1\"\n");
}

TEST(DeviceKeys, AreThoseOfTheBuild) {
  ExpectFine(Devices({"--keys", "--debug"}),
             "\"kettle-k1\"\n\"air-conditioner-a2\"\n\"gateway-g1\"\n\"power-meter-p3\"\n\"lamp-l5-lab\"\n"
             "\"oven-lab\"\n\"Default\"\n\"kettle-k0\"\n\"scale-s2-lab\"\n\"door-bell-b1\"\n");
}

TEST(DeviceKeys, FollowTheFileUnlessAskedOtherwise) {
  const ListFile list(R"({"debug": true, "devices": [{"product_key": {"debug": "d", "release": "r"}}]})");
  ExpectFine(RunTool({"devices", list.Path(), "--keys"}), "\"d\"\n");
  ExpectFine(RunTool({"devices", list.Path(), "--keys", "--debug"}), "\"d\"\n");
  ExpectFine(RunTool({"devices", list.Path(), "--keys", "--release"}), "\"r\"\n");
}

TEST(DeviceKeys, TellsWhenThereAreNone) {
  ExpectFailure(DevicesOf(R"([{}, 5, null])", {"--keys"}), 1, "standard input: no device has a product key");
}

TEST(DeviceKeys, CannotForgeALine) {
  ExpectFine(DevicesOf(R"([{"product_key": "a\nb\u001b[2J\u009b"}])", {"--keys"}), "\"a\\nb\\u001b[2J\\u009b\"\n");
}

// ---- The list ----

TEST(DeviceList, MayBeAnArray) {
  const ListFile list(R"([{"product_key": {"debug": "d", "release": "r"}}])");
  ExpectFine(RunTool({"devices", list.Path(), "--keys"}), "\"r\"\n");
  ExpectFine(RunTool({"devices", list.Path(), "--keys", "--debug"}), "\"d\"\n");
}

TEST(DeviceList, IsNamedWhenItCannotBeUsed) {
  ExpectFailure(RunTool({"devices", "missing.json", "--keys"}), 2,
                "missing.json: cannot be read: No such file or directory");
  ExpectFailure(RunTool({"devices", "kettle.json", "--keys"}), 2,
                "kettle.json:1:1: expected an array of devices, or an object with an array \"devices\"");
  const ListFile text("\"kettle\"");
  ExpectFailure(RunTool({"devices", text.Path(), "--keys"}), 2,
                text.Path() + ":1:1: expected an array of devices, or an object with an array \"devices\"");
  const ListFile debug("{\"devices\": [],\n \"debug\": 1}");
  ExpectFailure(RunTool({"devices", debug.Path(), "--keys"}), 2,
                debug.Path() + ":2:11: expected true or false for \"debug\"");
}

TEST(DeviceList, IsTakenFromStandardInputInBothForms) {
  ExpectFine(DevicesOf(R"([{"product_key": "a"}])", {"--keys"}), "\"a\"\n");
  const std::string list = R"({"debug": true, "devices": [{"product_key": {"debug": "d", "release": "r"}}]})";
  ExpectFine(DevicesOf(list, {"--keys"}), "\"d\"\n");
  ExpectFine(DevicesOf(list, {"--keys", "--release"}), "\"r\"\n");
  ExpectFine(DevicesOf(list, {"--keys", "--release=false"}), "\"d\"\n");
}

TEST(DeviceList, ExpectsOneQuery) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"--protocol", "stream"},
                                                    {"--packet-version", "0x4"},
                                                    {"--find", "a", "--keys"},
                                                    {"--keys", "--debug", "--release"}}) {
    const ToolRun run = Devices(arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err, "");
  }
}

}  // namespace
