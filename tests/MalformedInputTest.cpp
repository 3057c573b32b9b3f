// Input with a fault in each place in turn. The effect of each fault has its own tests; this test checks that no fault
// causes a crash, a leak, an exception or contradicting results.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

Json::Value LoadExample(const std::string& name) { return ParseJson(ReadFile(EXAMPLES_DIR "/" + name)); }

// One wrong value of every kind and at every limit.
std::vector<Json::Value> WrongValues() {
  const Json::Value parsed = ParseJson(R"([
      null, true, -1, -2, 0, 1, 63, 64, 65, 2147483647, -2147483648, 4294967295, 8589934592, 9223372036854775808,
      -9223372036854775808, 0.0, 0.5, -3.7, 1e300, -1e300, "", " ", "abc", "0x", "0x10", "bit", "byte", "uint64",
      "bool", "binary", "a\u0000b", [], {}, [1, null, "a", {}], {"a": {"b": 1}}])");
  std::vector<Json::Value> values(parsed.begin(), parsed.end());
  values.insert(values.end(), {std::string(100000, 'x'), "\xff\xfe"});
  return values;
}

// The values inside `value` and itself, in the order of a walk; parents come before their children.
void CollectNodes(Json::Value& value, std::vector<Json::Value*>& nodes) {
  nodes.push_back(&value);
  if (value.isObject() || value.isArray()) {
    for (Json::Value& child : value) CollectNodes(child, nodes);
  }
}

// Everything that can be done with an entity, with the results compared with one another. Arrays and objects as the
// bounds of a scaling are the one thing that throws.
void UseEntity(const Json::Value& entity, const Json::Value& values, const std::vector<byte>& packet) {
  MorvixProtocolOwnedPackage_4_0 package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  try {
    ProtocolEncodeEntity_4_0(entity, package, values);
    EXPECT_EQ(package.sizeFlags == 0, package.sizeValue == 0);
  } catch (const Json::LogicError&) {
    EXPECT_EQ(package.flags, nullptr);
    EXPECT_EQ(package.value, nullptr);
  }
  MorvixProtocolOwnedPackage_4_0 received;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(packet.data(), packet.size(), received));
  Json::Value decoded;
  try {
    ProtocolDecodeEntity_4_0(entity, received, decoded);
  } catch (const Json::LogicError&) {
    EXPECT_TRUE(decoded.isNull());
  }
  EXPECT_TRUE(decoded.isNull() || decoded.isObject());
  decoded["version"] = 4.0;
  Json::Value alerts;
  Json::Value faults;
  EXPECT_NE(ProtocolConvertReceiveResult_4_0(WriteJson(decoded), alerts, faults), "");
  std::vector<TavelReceiveInfo> activeAlerts;
  std::vector<TavelReceiveInfo> activeFaults;
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, activeAlerts, activeFaults);
  EXPECT_LE(activeAlerts.size(), alerts.size());
  EXPECT_LE(activeFaults.size(), faults.size());
}

}  // namespace

TEST(MalformedConfiguration, IsSurvivedWithAnyWrongValueInAnyPlace) {
  const LogCapture log;
  const Json::Value values = LoadExample("kettle.values.json");
  const std::vector<byte> packet = FromHex(ReadFile(EXAMPLES_DIR "/kettle.notify.hex"));
  const Json::Value intact = LoadExample("kettle.json")["entities"][0];
  for (const Json::Value& wrong : WrongValues()) {
    size_t nodeCount = 1;
    for (size_t i = 0; i < nodeCount; ++i) {
      Json::Value entity = intact;
      std::vector<Json::Value*> nodes;
      CollectNodes(entity, nodes);
      nodeCount = nodes.size();
      *nodes[i] = wrong;
      UseEntity(entity, values, packet);
    }
    EXPECT_GT(nodeCount, 100u);
  }
}

TEST(MalformedConfiguration, IsSurvivedWithAnyMemberMissing) {
  const LogCapture log;
  const Json::Value values = LoadExample("kettle.values.json");
  const std::vector<byte> packet = FromHex(ReadFile(EXAMPLES_DIR "/kettle.notify.hex"));
  const Json::Value intact = LoadExample("kettle.json")["entities"][0];
  for (Json::ArrayIndex i = 0; i < intact["attrs"].size(); ++i) {
    for (const std::string& name : intact["attrs"][i].getMemberNames()) {
      Json::Value entity = intact;
      entity["attrs"][i].removeMember(name);
      UseEntity(entity, values, packet);
    }
  }
}

TEST(MalformedValues, AreSurvivedInAnyPlace) {
  const LogCapture log;
  const std::vector<byte> packet = FromHex(ReadFile(EXAMPLES_DIR "/kettle.notify.hex"));
  const Json::Value entity = LoadExample("kettle.json")["entities"][0];
  const Json::Value intact = LoadExample("kettle.values.json");
  for (const Json::Value& wrong : WrongValues()) {
    UseEntity(entity, wrong, packet);
    Json::Value values = intact;
    values["kettle"] = wrong;
    UseEntity(entity, values, packet);
    for (const std::string& name : intact["kettle"].getMemberNames()) {
      values = intact;
      values["kettle"][name] = wrong;
      UseEntity(entity, values, packet);
    }
  }
}

TEST(MalformedReceiveDocument, IsRefusedWhenItEndsEarly) {
  const std::string document =
      R"({"version": 4.0, "main": {"on": {"type": 1, "value": true}, "Hot": {"type": 4, "value": true}}})";
  Json::Value alerts;
  Json::Value faults;
  for (size_t length = 0; length < document.size(); ++length) {
    SCOPED_TRACE(length);
    EXPECT_EQ(ProtocolConvertReceiveResult_4_0(document.substr(0, length), alerts, faults), "");
    EXPECT_EQ(alerts, Json::Value(Json::arrayValue));
    EXPECT_EQ(faults, Json::Value(Json::arrayValue));
  }
  EXPECT_EQ(ProtocolConvertReceiveResult_4_0(document, alerts, faults), "{\"main\":{\"on\":true},\"version\":4.0}\n");
}

TEST(RandomPackets, DecodeWithoutAFaultForEveryExample) {
  constexpr unsigned kSeed = 20260401;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::mt19937 random(kSeed);
  const LogCapture log;
  for (const char* name : {"kettle.json", "air_conditioner.json", "gateway.json", "power_meter.json"}) {
    SCOPED_TRACE(name);
    const Json::Value configuration = LoadExample(name);
    for (int round = 0; round < 300; ++round) {
      std::vector<byte> packet(2 + random() % 200);
      for (byte& element : packet) element = static_cast<byte>(random());
      packet[0] = random() % 2 == 0 ? 3 : 4;
      for (const Json::Value& entity : configuration["entities"]) UseEntity(entity, Json::Value(), packet);
    }
  }
}
