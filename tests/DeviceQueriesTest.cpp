// The queries over device descriptions: by protocol and packet version, by product key, and the keys themselves.

#include <gtest/gtest.h>
#include <json/json.h>

#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"
#include "host/TavelConfig.h"

namespace {

// Leaves the host without devices, as a release build.
class DeviceTest : public testing::Test {
 protected:
  ~DeviceTest() override {
    TavelConfig::sharedInstance()->SetAllDevices(Json::Value());
    TavelConfig::sharedInstance()->SetDebug(false);
  }
};

class FilterDevices : public DeviceTest {
 protected:
  static void Know(const Json::Value& devices) { TavelConfig::sharedInstance()->SetAllDevices(devices); }

  // The numbers under "n" of the known devices that the filter selects; the output holds something beforehand.
  static std::vector<int> Selected(const char* protocolName, dword packetVersion) {
    Json::Value devices = ParseJson(R"([{"n":99},"left from before"])");
    EXPECT_TRUE(ProtocolFilterDevices_4_0(protocolName, packetVersion, devices));
    EXPECT_TRUE(devices.isArray());
    std::vector<int> numbers;
    for (const Json::Value& device : devices) numbers.push_back(device["n"].asInt());
    return numbers;
  }

  static void ExpectRefused(const char* protocolName) {
    for (const char* before : {"null", "{}", "7", R"([{"n":1}])"}) {
      SCOPED_TRACE(before);
      Json::Value devices = ParseJson(before);
      EXPECT_FALSE(ProtocolFilterDevices_4_0(protocolName, 4, devices));
      EXPECT_EQ(WriteJson(devices), "[]");
    }
  }
};

class GetDevice : public DeviceTest {
 protected:
  // Expects that `key` is not found and that the output is then `left`.
  static void ExpectMiss(const Json::Value& devices, const char* key, const Json::Value& left) {
    Json::Value device = "before";
    EXPECT_FALSE(ProtocolGetDevice_4_0(devices, key, device));
    EXPECT_EQ(WriteJson(device), WriteJson(left));
  }

  static void ExpectHit(const Json::Value& devices, const char* key, const Json::Value& found) {
    Json::Value device = "before";
    EXPECT_TRUE(ProtocolGetDevice_4_0(devices, key, device));
    EXPECT_EQ(WriteJson(device), WriteJson(found));
  }
};

class GetProductKey : public DeviceTest {
 protected:
  static void SetDebug(bool debug) { TavelConfig::sharedInstance()->SetDebug(debug); }
  static std::string Key(const std::string& device) { return ProtocolGetProductKey_4_0(ParseJson(device)); }
};

class GetProductList : public GetProductKey {
 protected:
  static std::vector<std::string> List(const std::string& devices) {
    return ProtocolGetProductList_4_0(ParseJson(devices));
  }
};

using Numbers = std::vector<int>;
using Keys = std::vector<std::string>;

}  // namespace

// --- Known devices by protocol and packet version ---

TEST_F(FilterDevices, SelectsByProtocolAndPacketVersionInOrder) {
  Know(ParseJson(R"([{"n":1,"protocolType":"point","packetVersion":"0x4"},
                     {"n":2,"protocolType":"other","packetVersion":"0x4"},
                     {"n":3,"protocolType":"point","packetVersion":"0x5"},
                     {"n":4,"protocolType":"point","packetVersion":"0x4"},
                     {"n":4,"protocolType":"point","packetVersion":"0x4"}])"));
  EXPECT_EQ(Selected("point", 4), (Numbers{1, 4, 4}));
  EXPECT_EQ(Selected("point", 5), (Numbers{3}));
  EXPECT_EQ(Selected("other", 4), (Numbers{2}));
  EXPECT_EQ(Selected("other", 5), Numbers{});
}

TEST_F(FilterDevices, CarriesTheOtherMembersAlong) {
  const Json::Value known =
      ParseJson(R"([{"protocolType":"point","packetVersion":"0x4","name":"K1","entities":[{"id":0}],"extra":null}])");
  Know(known);
  Json::Value devices;
  EXPECT_TRUE(ProtocolFilterDevices_4_0("point", 4, devices));
  EXPECT_EQ(devices, known);
  EXPECT_EQ(*TavelConfig::sharedInstance()->GetAllDevices(), known);
}

TEST_F(FilterDevices, RefusesAMissingName) {
  Know(ParseJson(R"([{"protocolType":"","packetVersion":"0x4"},{"protocolType":"point","packetVersion":"0x4"}])"));
  ExpectRefused(nullptr);
  ExpectRefused("");
}

TEST_F(FilterDevices, RefusesWhenNoDevicesAreKnown) {
  Know(Json::Value());
  ExpectRefused("point");
  ExpectRefused("");
  ExpectRefused(nullptr);
}

TEST_F(FilterDevices, FindsNothingInAnEmptyArray) {
  Know(Json::Value(Json::arrayValue));
  EXPECT_EQ(Selected("point", 4), Numbers{});
  ExpectRefused("");
  ExpectRefused(nullptr);
}

TEST_F(FilterDevices, TakesKnownDevicesThatAreNotAnArrayForAnEmptyOne) {
  const std::string device = R"({"n":1,"protocolType":"point","packetVersion":"0x4"})";
  for (const std::string& known : {std::string("{}"), device, R"({"0":)" + device + "}", std::string("7"),
                                   std::string("1.5"), std::string("true"), std::string("\"text\"")}) {
    SCOPED_TRACE(known);
    Know(ParseJson(known));
    EXPECT_EQ(Selected("point", 4), Numbers{});
    ExpectRefused("");
  }
}

TEST_F(FilterDevices, PassesOverElementsThatAreNotDevices) {
  Know(ParseJson(R"([null,1,"point",true,[],[{"n":1,"protocolType":"point","packetVersion":"0x4"}],{},
                     {"n":2,"protocolType":"point","packetVersion":"0x4"},null])"));
  EXPECT_EQ(Selected("point", 4), (Numbers{2}));
}

TEST_F(FilterDevices, PassesOverTheGapsOfAnArray) {
  Json::Value known(Json::arrayValue);
  known[2] = ParseJson(R"({"n":1,"protocolType":"point","packetVersion":"0x4"})");
  known[5] = ParseJson(R"({"n":2,"protocolType":"point","packetVersion":"0x4"})");
  Know(known);
  EXPECT_EQ(Selected("point", 4), (Numbers{1, 2}));
}

// The last index of all makes an array's size wrap to 0.
TEST_F(FilterDevices, FindsNothingInAnArrayWhoseSizeWraps) {
  Json::Value known(Json::arrayValue);
  known[Json::ArrayIndex{4294967295}] = ParseJson(R"({"n":1,"protocolType":"point","packetVersion":"0x4"})");
  Know(known);
  EXPECT_EQ(Selected("point", 4), Numbers{});
}

TEST_F(FilterDevices, ComparesTheProtocolByteForByte) {
  Know(ParseJson(R"([{"n":1,"protocolType":"Point","packetVersion":"0x4"},
                     {"n":2,"protocolType":"points","packetVersion":"0x4"},
                     {"n":3,"protocolType":"poin","packetVersion":"0x4"},
                     {"n":4,"protocolType":" point","packetVersion":"0x4"},
                     {"n":5,"protocolType":"point\u0000","packetVersion":"0x4"},
                     {"n":6,"protocolType":"point\u0000x","packetVersion":"0x4"},
                     {"n":7,"protocolType":"point","packetVersion":"0x4"},
                     {"n":8,"protocolType":"p\u00f6int","packetVersion":"0x4"}])"));
  EXPECT_EQ(Selected("point", 4), (Numbers{7}));
  EXPECT_EQ(Selected("p\xc3\xb6int", 4), (Numbers{8}));
  EXPECT_EQ(Selected("POINT", 4), Numbers{});
}

TEST_F(FilterDevices, PassesOverDevicesWithoutAProtocolText) {
  Know(ParseJson(R"([{"n":1,"packetVersion":"0x4"},
                     {"n":2,"protocolType":null,"packetVersion":"0x4"},
                     {"n":3,"protocolType":4,"packetVersion":"0x4"},
                     {"n":4,"protocolType":["point"],"packetVersion":"0x4"},
                     {"n":5,"protocolType":{"point":1},"packetVersion":"0x4"},
                     {"n":6,"protocolType":"","packetVersion":"0x4"},
                     {"n":7,"ProtocolType":"point","packetVersion":"0x4"},
                     {"n":8,"protocolType\u0000":"point","packetVersion":"0x4"}])"));
  EXPECT_EQ(Selected("point", 4), Numbers{});
}

// The text of one device must not stand in for that of the next.
TEST_F(FilterDevices, ReadsEveryDeviceAnew) {
  Know(ParseJson(R"([{"n":1,"protocolType":"point","packetVersion":"0x4"},
                     {"n":2,"packetVersion":"0x4"},{"n":3,"protocolType":"point"},
                     {"n":4,"protocolType":"point","packetVersion":""}])"));
  EXPECT_EQ(Selected("point", 4), (Numbers{1}));
  EXPECT_EQ(Selected("point", 0), (Numbers{4})) << "a blank text leaves the packet version at 0";
}

TEST_F(FilterDevices, ReadsThePacketVersionAsHexadecimalText) {
  Know(ParseJson(R"([{"n":1,"protocolType":"p","packetVersion":"0x10"},
                     {"n":2,"protocolType":"p","packetVersion":"0x00000010 and more"},
                     {"n":3,"protocolType":"p","packetVersion":"10"},
                     {"n":4,"protocolType":"p","packetVersion":"0X10"},
                     {"n":5,"protocolType":"p","packetVersion":" 0x10"},
                     {"n":6,"protocolType":"p","packetVersion":"16"},
                     {"n":7,"protocolType":"p","packetVersion":"0xAbC"},
                     {"n":8,"protocolType":"p","packetVersion":"0xffffffff"},
                     {"n":9,"protocolType":"p","packetVersion":"0x11"},
                     {"n":10,"protocolType":"p","packetVersion":"0xf"},
                     {"n":11,"protocolType":"p","packetVersion":"0x1\u00000"}])"));
  EXPECT_EQ(Selected("p", 16), (Numbers{1, 2}));
  EXPECT_EQ(Selected("p", 0xabc), (Numbers{7}));
  EXPECT_EQ(Selected("p", 0xffffffff), (Numbers{8}));
  EXPECT_EQ(Selected("p", 1), (Numbers{11})) << "the text ends at its NUL";
  EXPECT_EQ(Selected("p", 10), Numbers{});
}

TEST_F(FilterDevices, TakesPacketVersionsThatAreStoredUnsigned) {
  Json::Value known = ParseJson(R"([{"n":1,"protocolType":"p","packetVersion":4294967295},
                                    {"n":2,"protocolType":"p","packetVersion":2147483648},
                                    {"n":3,"protocolType":"p","packetVersion":2147483647},
                                    {"n":4,"protocolType":"p","packetVersion":4}, {"n":5,"protocolType":"p"}])");
  known[4]["packetVersion"] = Json::UInt(4);
  Know(known);
  EXPECT_EQ(Selected("p", 0xffffffff), (Numbers{1}));
  EXPECT_EQ(Selected("p", 0x80000000), (Numbers{2}));
  EXPECT_EQ(Selected("p", 0x7fffffff), Numbers{}) << "a plain number is stored signed up to here";
  EXPECT_EQ(Selected("p", 4), (Numbers{5}));
}

TEST_F(FilterDevices, PassesOverDevicesWithoutAUsablePacketVersion) {
  Know(ParseJson(R"([{"n":1,"protocolType":"p"},{"n":2,"protocolType":"p","packetVersion":null},
                     {"n":3,"protocolType":"p","packetVersion":0},{"n":4,"protocolType":"p","packetVersion":0.0},
                     {"n":5,"protocolType":"p","packetVersion":false},{"n":6,"protocolType":"p","packetVersion":[]},
                     {"n":7,"protocolType":"p","packetVersion":{}},{"n":8,"protocolType":"p","packetVersion":"none"},
                     {"n":9,"protocolType":"p","packetVersion":4294967296},
                     {"n":10,"protocolType":"p","PacketVersion":"0x0"}])"));
  EXPECT_EQ(Selected("p", 0), Numbers{});
}

// --- One device by its product key ---

TEST_F(GetDevice, FindsTheFirstDeviceWithTheKey) {
  const Json::Value devices =
      ParseJson(R"([{"n":1,"product_key":"a"},{"n":2,"product_key":"b","x":[1]},{"n":3,"product_key":"b"},{"n":4}])");
  ExpectHit(devices, "a", devices[0]);
  ExpectHit(devices, "b", devices[1]);
}

TEST_F(GetDevice, LeavesTheLastElementWhenNothingMatches) {
  ExpectMiss(ParseJson(R"([{"product_key":"a"},{"product_key":"b"}])"), "c", ParseJson(R"({"product_key":"b"})"));
  for (const char* last : {"null", "7", "true", R"("c")", "[]", R"([{"product_key":"c"}])", "{}"}) {
    SCOPED_TRACE(last);
    ExpectMiss(ParseJson(R"([{"product_key":"a"},)" + std::string(last) + "]"), "c", ParseJson(last));
  }
}

TEST_F(GetDevice, RefusesAMissingKey) {
  const Json::Value devices = ParseJson(R"([{"n":1},{"product_key":7},{"product_key":""}])");
  ExpectMiss(devices, nullptr, "before");
  ExpectMiss(devices, "", "before");
}

TEST_F(GetDevice, LeavesTheOutputAloneWhenThereAreNoElements) {
  const std::string device = R"({"product_key":"a"})";
  for (const std::string& devices :
       {std::string("null"), std::string("[]"), std::string("{}"), device, R"({"0":)" + device + "}", std::string("7"),
        std::string("1.5"), std::string("true"), std::string("\"a\"")}) {
    SCOPED_TRACE(devices);
    ExpectMiss(ParseJson(devices), "a", "before");
  }
}

TEST_F(GetDevice, PassesOverElementsThatAreNotDevices) {
  const Json::Value devices =
      ParseJson(R"([null,1,"a",[],[{"product_key":"a"}],{"0":{"product_key":"a"}},{"n":1,"product_key":"a"},2])");
  ExpectHit(devices, "a", devices[6]);
}

TEST_F(GetDevice, PassesOverTheGapsOfAnArray) {
  Json::Value devices(Json::arrayValue);
  devices[3]["product_key"] = "a";
  ExpectHit(devices, "a", ParseJson(R"({"product_key":"a"})"));
  ExpectMiss(devices, "b", ParseJson(R"({"product_key":"a"})"));
  devices[6] = Json::Value();
  ExpectMiss(devices, "b", Json::Value());
}

TEST_F(GetDevice, ComparesTheKeyByteForByte) {
  const Json::Value devices = ParseJson(
      R"([{"product_key":"A"},{"product_key":"a "},{"product_key":"a\u0000"},{"product_key":"a\u0000b"},
          {"product_key":"ab"},{"n":1,"product_key":"a"},{"product_key":"last"}])");
  ExpectHit(devices, "a", devices[5]);
  ExpectMiss(devices, "LAST", devices[6]);
  ExpectMiss(devices, "las", devices[6]);
}

TEST_F(GetDevice, FindsADeviceWithAnEmptyKeyAsDefault) {
  const Json::Value devices = ParseJson(R"([{"n":1},{"n":2,"product_key":""},{"n":3,"product_key":"Default"}])");
  ExpectHit(devices, "Default", devices[1]);
}

TEST_F(GetDevice, AsksForTheBuildKind) {
  const Json::Value devices = ParseJson(
      R"([{"n":1,"product_key":{"debug":"d","release":"r"}},{"n":2,"product_key":"d"},{"n":3,"product_key":"r"}])");
  TavelConfig::sharedInstance()->SetDebug(true);
  ExpectHit(devices, "d", devices[0]);
  ExpectHit(devices, "r", devices[2]);
  TavelConfig::sharedInstance()->SetDebug(false);
  ExpectHit(devices, "d", devices[1]);
  ExpectHit(devices, "r", devices[0]);
}

// --- The product key of a device ---

TEST_F(GetProductKey, IsTheText) {
  EXPECT_EQ(Key(R"({"product_key":"kettle"})"), "kettle");
  EXPECT_EQ(Key(R"({"product_key":" "})"), " ");
  EXPECT_EQ(Key(R"({"product_key":"caf\u00e9"})"), "caf\xc3\xa9");
}

TEST_F(GetProductKey, KeepsNuls) {
  EXPECT_EQ(Key(R"({"product_key":"a\u0000b"})"), std::string("a\0b", 3));
  EXPECT_EQ(Key(R"({"product_key":"\u0000"})"), std::string(1, '\0')) << "not empty";
  SetDebug(true);
  EXPECT_EQ(Key(R"({"product_key":{"debug":"a\u0000b"}})"), std::string("a\0b", 3));
}

TEST_F(GetProductKey, IsDefaultForAnEmptyText) { EXPECT_EQ(Key(R"({"product_key":""})"), "Default"); }

TEST_F(GetProductKey, FollowsTheBuildKind) {
  const std::string device = R"({"product_key":{"debug":"d","release":"r"}})";
  SetDebug(true);
  EXPECT_EQ(Key(device), "d");
  EXPECT_EQ(Key(R"({"product_key":"text"})"), "text");
  SetDebug(false);
  EXPECT_EQ(Key(device), "r");
  EXPECT_EQ(Key(R"({"product_key":"text"})"), "text");
}

TEST_F(GetProductKey, IsEmptyWithoutATextForTheBuildKind) {
  for (const char* value : {"null", "1", "1.5", "true", "[]", R"(["k"])", "{}", R"({"debug":"d","release":"r"})"}) {
    SCOPED_TRACE(value);
    SetDebug(true);
    EXPECT_EQ(Key(R"({"product_key":{"debug":)" + std::string(value) + R"(,"release":"r"}})"), "");
    SetDebug(false);
    EXPECT_EQ(Key(R"({"product_key":{"debug":"d","release":)" + std::string(value) + "}}"), "");
  }
  SetDebug(true);
  EXPECT_EQ(Key(R"({"product_key":{"release":"r","Debug":"d","debug\u0000":"d"}})"), "");
  EXPECT_EQ(Key(R"({"product_key":{},"debug":"d"})"), "");
  SetDebug(false);
  EXPECT_EQ(Key(R"({"product_key":{"debug":"d"}})"), "");
  EXPECT_EQ(Key(R"({"product_key":{},"release":"r"})"), "");
}

TEST_F(GetProductKey, DoesNotReplaceAnEmptyTextOfABuildKind) {
  SetDebug(true);
  EXPECT_EQ(Key(R"({"product_key":{"debug":"","release":"r"}})"), "");
  SetDebug(false);
  EXPECT_EQ(Key(R"({"product_key":{"debug":"d","release":""}})"), "");
}

TEST_F(GetProductKey, IsEmptyForOtherKinds) {
  for (const char* value : {"null", "1", "1.5", "true", "[]", R"(["k"])"}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(Key(R"({"product_key":)" + std::string(value) + "}"), "");
  }
  EXPECT_EQ(Key(R"({"Product_key":"k","productKey":"k","product_key\u0000":"k"})"), "");
  EXPECT_EQ(Key("{}"), "");
}

TEST_F(GetProductKey, IsEmptyForWhatIsNotADevice) {
  for (const char* device : {"null", "1", "1.5", "true", R"("k")", "[]", R"([{"product_key":"k"}])"}) {
    SCOPED_TRACE(device);
    EXPECT_EQ(Key(device), "");
  }
}

// --- The product keys of a list of devices ---

TEST_F(GetProductList, KeepsOrderAndRepeats) {
  EXPECT_EQ(List(R"([{"product_key":"b"},{"product_key":"a"},{"product_key":"b"}])"), (Keys{"b", "a", "b"}));
  EXPECT_EQ(List(R"([{"product_key":"k"},null,{"product_key":"k"}])"), (Keys{"k", "k"}));
}

TEST_F(GetProductList, LeavesDevicesWithoutAKeyOut) {
  SetDebug(false);
  EXPECT_EQ(List(R"([{},{"product_key":""},{"product_key":1},{"product_key":{"release":""}},
                     {"product_key":{"debug":"d"}},{"product_key":{"release":"r"}},{"product_key":""}])"),
            (Keys{"Default", "r", "Default"}));
  SetDebug(true);
  EXPECT_EQ(List(R"([{"product_key":{"debug":"d","release":"r"}},{"product_key":{"release":"r"}}])"), (Keys{"d"}));
}

TEST_F(GetProductList, PassesOverElementsThatAreNotDevices) {
  EXPECT_EQ(List(R"([null,1,"k",true,[],[{"product_key":"k"}],{"product_key":"a"},{"0":{"product_key":"k"}}])"),
            (Keys{"a"}));
}

TEST_F(GetProductList, PassesOverTheGapsOfAnArray) {
  Json::Value devices(Json::arrayValue);
  devices[1]["product_key"] = "a";
  devices[4]["product_key"] = "b";
  devices[9] = Json::Value();
  EXPECT_EQ(ProtocolGetProductList_4_0(devices), (Keys{"a", "b"}));
}

TEST_F(GetProductList, KeepsKeysWithNulsWhole) {
  EXPECT_EQ(List(R"([{"product_key":"a\u0000b"},{"product_key":"\u0000"}])"),
            (Keys{std::string("a\0b", 3), std::string(1, '\0')}));
}

TEST_F(GetProductList, IsEmptyForWhatIsNotAnArray) {
  const std::string device = R"({"product_key":"k"})";
  for (const std::string& devices :
       {std::string("null"), std::string("[]"), std::string("{}"), device, R"({"0":)" + device + "}", std::string("7"),
        std::string("1.5"), std::string("true"), std::string("\"k\"")}) {
    SCOPED_TRACE(devices);
    EXPECT_EQ(List(devices), Keys{});
  }
}

// Sizes count as signed 32-bit numbers there: an array that claims three thousand million elements has fewer than none.
TEST_F(GetProductList, IsEmptyForAnArrayThatClaimsTooMuch) {
  Json::Value devices(Json::arrayValue);
  devices[Json::ArrayIndex{2147483646}]["product_key"] = "k";
  EXPECT_EQ(ProtocolGetProductList_4_0(devices), Keys{"k"});
  devices[Json::ArrayIndex{3000000000}]["product_key"] = "k";
  EXPECT_EQ(ProtocolGetProductList_4_0(devices), Keys{});
}

// The last index of all makes an array's size wrap to 0.
TEST_F(GetProductList, IsEmptyForAnArrayWhoseSizeWraps) {
  Json::Value devices(Json::arrayValue);
  devices[Json::ArrayIndex{4294967295}]["product_key"] = "k";
  EXPECT_EQ(ProtocolGetProductList_4_0(devices), Keys{});
}
