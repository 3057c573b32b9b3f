// The products in examples/ from end to end: value document to packet, received packet to the application's document
// and the active alerts and faults. The expected results in tests/golden/ are worked out by hand, on a page for each
// product.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "TestSupport.h"
#include "host/TavelConfig.h"

namespace {

const int kWritable = 1;
const int kAllGroups = 15;
const size_t kBufLen = 256;
const size_t kSubDidBytes = 4;
const std::string kProducts[] = {"kettle", "air_conditioner", "gateway", "power_meter"};

std::string Example(const std::string& name) { return ReadFile(std::string(EXAMPLES_DIR) + "/" + name); }

std::string Golden(const std::string& name) { return ReadFile(std::string(GOLDEN_DIR) + "/" + name); }

// A JSON text in the one form in which documents are compared.
std::string Canonical(const std::string& text) { return WriteJson(ParseJson(text)); }

Json::Value EntityOf(const std::string& product, Json::ArrayIndex index) {
  Json::Value entities;
  EXPECT_TRUE(ProtocolGetEntitiesFromDevice_4_0(ParseJson(Example(product + ".json")), entities));
  EXPECT_LT(index, entities.size());
  return entities[index];
}

std::string HexOf(const MorvixProtocolPackage_4_0& package) {
  std::vector<byte> buffer(kBufLen + kSubDidBytes);
  const size_t size = ProtocolPackPackage_4_0(package, buffer.data(), kBufLen);
  return ToHex(buffer.data(), size);
}

// One golden packet: which entity of which product is written, and how.
struct WriteCase {
  std::string product;
  Json::ArrayIndex entity;
  std::string golden;
  bool toSubDevice;
};

std::ostream& operator<<(std::ostream& stream, const WriteCase& write) { return stream << write.golden; }

const int32_t kSubDid = 0x0a0b0c0d;

class GoldenWrite : public testing::TestWithParam<WriteCase> {
 protected:
  void SetUp() override {
    entity_ = EntityOf(GetParam().product, GetParam().entity);
    values_ = ParseJson(Example(GetParam().product + ".values.json"));
    package_.cmd = MorvixProtocolCommandWriteReq_4_0;
    if (GetParam().toSubDevice) {
      package_.cmd = MorvixProtocolCommandCCWriteReq_4_0;
      package_.subDid = kSubDid;
      package_.needInsertSubDid = 1;
    }
  }

  // The golden packet. Its sub-device id is that of a little-endian host, since the id travels in host order.
  std::string ExpectedHex() const {
    std::vector<byte> packet = FromHex(Golden(GetParam().golden));
    const uint16_t one = 1;
    byte lowest = 0;
    std::memcpy(&lowest, &one, 1);
    if (GetParam().toSubDevice && lowest == 0) std::reverse(packet.begin() + 1, packet.begin() + 1 + kSubDidBytes);
    return ToHex(packet);
  }

  LogCapture log_;
  Json::Value entity_;
  Json::Value values_;
  MorvixProtocolOwnedPackage_4_0 package_;
};

TEST_P(GoldenWrite, EncodesTheValueDocumentIntoTheGoldenPacket) {
  ProtocolEncodeEntity_4_0(entity_, package_, values_);
  EXPECT_EQ(HexOf(package_), ExpectedHex());
  EXPECT_EQ(Warnings(log_.Lines()), LogLines());
}

TEST_P(GoldenWrite, EncodesAnyNumberOfPacketsFromOneParsedEntity) {
  const ParsedEntity parsed(entity_, kWritable);
  for (int round = 0; round < 2; ++round) {
    MorvixProtocolOwnedPackage_4_0 package;
    package.cmd = package_.cmd;
    package.subDid = package_.subDid;
    package.needInsertSubDid = package_.needInsertSubDid;
    ProtocolEncodeAttributes_4_0(parsed.info, parsed.attributes, package, values_);
    EXPECT_EQ(HexOf(package), ExpectedHex());
  }
  EXPECT_EQ(Warnings(log_.Lines()), LogLines());
}

TEST_P(GoldenWrite, HasNoAttributeThatIsSkipped) {
  const ParsedEntity parsed(entity_, kAllGroups);
  EXPECT_GT(parsed.attributes.size(), 0u);
  EXPECT_EQ(parsed.attributes.size(), entity_["attrs"].size());
  EXPECT_EQ(Warnings(log_.Lines()), LogLines());
}

// A configuration could let two groups of writable bits run into one another where only read-only attributes stand
// between them; a device would then see other bits than the ones that it reports.
TEST_P(GoldenWrite, SizesItsBitGroupsAlikeForWritingAndForReading) {
  const ParsedEntity writable(entity_, kWritable);
  std::vector<std::pair<std::string, size_t>> whenWriting;
  for (const auto& attribute : writable.attributes) {
    whenWriting.emplace_back(attribute.name, attribute.position.groupByteLength);
  }
  const ParsedEntity all(entity_, kAllGroups);
  std::vector<std::pair<std::string, size_t>> whenReading;
  for (const auto& attribute : all.attributes) {
    if (attribute.type != MorvixProtocolTypeStatusWritable_4_0) continue;
    whenReading.emplace_back(attribute.name, attribute.position.groupByteLength);
  }
  EXPECT_EQ(whenWriting, whenReading);
}

// Writing a field that spans bytes can move its neighbours' bits; the examples are laid out so that it does not.
TEST_P(GoldenWrite, ReadsEveryBitFieldBackAsItWasWritten) {
  ProtocolEncodeEntity_4_0(entity_, package_, values_);
  std::vector<byte> received = {MorvixProtocolCommandNotifyResp_4_0};
  received.insert(received.end(), package_.value, package_.value + package_.sizeValue);
  received.resize(kBufLen);
  MorvixProtocolOwnedPackage_4_0 answer;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(received.data(), received.size(), answer));
  Json::Value decoded;
  ProtocolDecodeEntity_4_0(entity_, answer, decoded);

  int fields = 0;
  const ParsedEntity parsed(entity_, kWritable);
  for (const auto& attribute : parsed.attributes) {
    const bool isBool = attribute.data_type == MorvixProtocolDataTypeBool_4_0;
    if (!isBool && attribute.data_type != MorvixProtocolDataTypeEnum_4_0) continue;
    ++fields;
    const Json::Value& given = values_[parsed.info.name][attribute.name];
    const std::string index = given.isNull() ? "0" : given.asString();
    const Json::Value expected = isBool ? Json::Value(index != "0") : Json::Value(index);
    EXPECT_EQ(decoded[parsed.info.name][attribute.name]["value"], expected) << attribute.name;
  }
  EXPECT_GT(fields, 0);
}

INSTANTIATE_TEST_SUITE_P(Examples, GoldenWrite,
                         testing::Values(WriteCase{"kettle", 0, "kettle.write.hex", false},
                                         WriteCase{"air_conditioner", 0, "air_conditioner.write.hex", false},
                                         WriteCase{"gateway", 0, "gateway.write.hex", false},
                                         WriteCase{"gateway", 1, "gateway.subdevice.write.hex", true},
                                         WriteCase{"power_meter", 0, "power_meter.write.hex", false}),
                         [](const testing::TestParamInfo<WriteCase>& test) {
                           return test.param.product + (test.param.toSubDevice ? "_subdevice" : "");
                         });

Json::Value ListOf(const std::vector<TavelReceiveInfo>& active) {
  Json::Value list(Json::arrayValue);
  for (const TavelReceiveInfo& info : active) {
    Json::Value element;
    element["name"] = info.name;
    element["value"] = info.value;
    list.append(element);
  }
  return list;
}

class GoldenReceive : public testing::TestWithParam<std::string> {
 protected:
  using Decode = std::function<void(const MorvixProtocolPackage_4_0& package, Json::Value& decoded)>;

  // The way of a received packet to the application, compared with the golden results at each step.
  void ExpectGoldenResults(const Decode& decode) const {
    const std::vector<byte> packet = FromHex(Example(GetParam() + ".notify.hex"));
    MorvixProtocolOwnedPackage_4_0 package;
    ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package));

    Json::Value decoded;
    decode(package, decoded);
    EXPECT_EQ(WriteJson(decoded), Canonical(Golden(GetParam() + ".decoded.json")));

    decoded["version"] = 4.0;
    Json::Value alerts;
    Json::Value faults;
    const std::string document = ProtocolConvertReceiveResult_4_0(WriteJson(decoded), alerts, faults);
    EXPECT_EQ(Canonical(document), Canonical(Golden(GetParam() + ".flat.json")));

    std::vector<TavelReceiveInfo> activeAlerts;
    std::vector<TavelReceiveInfo> activeFaults;
    ProtocolGetAlertsAndFaults_4_0(alerts, faults, activeAlerts, activeFaults);
    Json::Value active;
    active["alerts"] = ListOf(activeAlerts);
    active["faults"] = ListOf(activeFaults);
    EXPECT_EQ(WriteJson(active), Canonical(Golden(GetParam() + ".active.json")));
  }

  LogCapture log_;
};

TEST_P(GoldenReceive, TurnsTheNotificationIntoTheGoldenDocuments) {
  const Json::Value entity = EntityOf(GetParam(), 0);
  ExpectGoldenResults([&entity](const MorvixProtocolPackage_4_0& package, Json::Value& decoded) {
    ProtocolDecodeEntity_4_0(entity, package, decoded);
  });
  EXPECT_EQ(Warnings(log_.Lines()), LogLines());
}

TEST_P(GoldenReceive, TurnsAnyNumberOfNotificationsIntoDocumentsFromOneParsedEntity) {
  const ParsedEntity parsed(EntityOf(GetParam(), 0), kAllGroups);
  for (int round = 0; round < 2; ++round) {
    ExpectGoldenResults([&parsed](const MorvixProtocolPackage_4_0& package, Json::Value& decoded) {
      ProtocolDecodeAttributes_4_0(parsed.info, parsed.attributes, package, decoded);
    });
  }
  EXPECT_EQ(Warnings(log_.Lines()), LogLines());
}

TEST_P(GoldenReceive, TurnsTheNotificationIntoTheGoldenResultsInOnePass) {
  const ParsedEntity parsed(EntityOf(GetParam(), 0), kAllGroups);
  const std::vector<byte> packet = FromHex(Example(GetParam() + ".notify.hex"));
  std::string document;
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;
  ASSERT_TRUE(ProtocolReceivePacket_4_0(parsed.info, parsed.attributes, packet.data(), packet.size(), document, alerts,
                                        faults));
  EXPECT_EQ(Canonical(document), Canonical(Golden(GetParam() + ".flat.json")));
  Json::Value active;
  active["alerts"] = ListOf(alerts);
  active["faults"] = ListOf(faults);
  EXPECT_EQ(WriteJson(active), Canonical(Golden(GetParam() + ".active.json")));
  EXPECT_EQ(Warnings(log_.Lines()), LogLines());
}

INSTANTIATE_TEST_SUITE_P(Examples, GoldenReceive, testing::ValuesIn(kProducts),
                         [](const testing::TestParamInfo<std::string>& test) { return test.param; });

class ExampleDevices : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(TavelConfig::sharedInstance()->LoadFromFile(std::string(EXAMPLES_DIR) + "/devices.json", error))
        << error;
    ASSERT_TRUE(ProtocolFilterDevices_4_0("data-point", 4, devices_));
  }

  void TearDown() override {
    TavelConfig::sharedInstance()->SetAllDevices(Json::Value());
    TavelConfig::sharedInstance()->SetDebug(false);
  }

  Json::Value devices_;
};

TEST_F(ExampleDevices, ListTheProductsOfThisProtocolForReleaseBuilds) {
  EXPECT_EQ(ProtocolGetProductList_4_0(devices_),
            std::vector<std::string>(
                {"kettle-k1", "air-conditioner-a2", "gateway-g1", "power-meter-p3", "lamp-l5", "Default"}));
}

TEST_F(ExampleDevices, ListTheProductsOfThisProtocolForDebugBuilds) {
  TavelConfig::sharedInstance()->SetDebug(true);
  EXPECT_EQ(ProtocolGetProductList_4_0(devices_),
            std::vector<std::string>({"kettle-k1", "air-conditioner-a2", "gateway-g1", "power-meter-p3", "lamp-l5-lab",
                                      "oven-lab", "Default"}));
}

TEST_F(ExampleDevices, DescribeEachExampleAsItsConfigurationDoes) {
  for (const std::string& product : kProducts) {
    const Json::Value configuration = ParseJson(Example(product + ".json"));
    Json::Value device;
    ASSERT_TRUE(ProtocolGetDevice_4_0(devices_, ProtocolGetProductKey_4_0(configuration).c_str(), device)) << product;
    EXPECT_EQ(device["configuration"].asString(), product + ".json");
    for (const char* member : {"name", "protocolType", "packetVersion", "product_key"}) {
      EXPECT_EQ(device[member], configuration[member]) << product << ' ' << member;
    }
  }
}

}  // namespace
