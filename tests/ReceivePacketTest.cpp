// One packet straight to the application's results: by hand, and held against the five calls that give the same the
// long way, one difficulty at a time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "Properties.h"
#include "TestSupport.h"

namespace {

using Active = std::vector<TavelReceiveInfo>;
using Attribute = MorvixProtocolAttribute_4_0;
using Group = MorvixProtocolType_4_0;
using support::BitsAt;
using support::BytesAt;

const auto kWritable = MorvixProtocolTypeStatusWritable_4_0;
const auto kReadonly = MorvixProtocolTypeStatusReadonly_4_0;
const auto kAlert = MorvixProtocolTypeAlert_4_0;
const auto kFault = MorvixProtocolTypeFault_4_0;
const size_t kMaxPacketBytes = 16385;
const int64_t kMaxRaw = (int64_t{1} << 52) - 1;
const double kInfinity = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

// --- Records made by hand; alerts and faults go by the name too ---

Attribute Named(const std::string& name, Group group, MorvixProtocolDataType_4_0 dataType,
                const MorvixProtocolPosition_4_0& position) {
  Attribute attribute;
  attribute.name = attribute.display_name = name;
  attribute.type = group;
  attribute.data_type = dataType;
  attribute.position = position;
  return attribute;
}

Attribute BoolAt(const std::string& name, Group group, int32_t bitOffset = 0, int32_t byteOffset = 0) {
  return Named(name, group, MorvixProtocolDataTypeBool_4_0, BitsAt(byteOffset, bitOffset, 1, 1));
}

Attribute EnumAt(const std::string& name, Group group, size_t items = 256,
                 const MorvixProtocolPosition_4_0& position = BitsAt(0, 0, 8, 1)) {
  Attribute attribute = Named(name, group, MorvixProtocolDataTypeEnum_4_0, position);
  attribute.enumList.resize(items);
  return attribute;
}

Attribute NumberAt(const std::string& name, Group group, double ratio = 1, double addition = 0,
                   const MorvixProtocolPosition_4_0& position = BytesAt(0, 1)) {
  Attribute attribute = Named(name, group, MorvixProtocolDataTypeUInt64_4_0, position);
  attribute.uint_spec = {0, kMaxRaw, 1, ratio, addition};
  return attribute;
}

Attribute BinaryAt(const std::string& name, Group group, int32_t len = 3, int32_t byteOffset = 0) {
  return Named(name, group, MorvixProtocolDataTypeBinary_4_0, BytesAt(byteOffset, len));
}

// Receives a packet for the entity "main" or another one. The result is the same the long way and in the model.
model::Received Receive(const std::vector<Attribute>& attributes, const std::vector<byte>& packet,
                        const std::string& entityName = "main") {
  MorvixProtocolEntity_4_0 entity;
  entity.name = entityName;
  return support::CheckReceive(entity, attributes, packet);
}

const Group kGroups[] = {kWritable, kReadonly, kAlert,   kFault,    Group(0),
                         Group(3),  Group(5),  Group(9), Group(12), Group(0x80000004)};

// What makes an attribute unreadable, out of range or unknown, or moves it elsewhere.
void (*const kWaysToSpoil[])(Attribute&) = {
    [](Attribute& a) { a.position.len = 0; },
    [](Attribute& a) { a.position.len = 2; },
    [](Attribute& a) { a.position.len = 9; },
    [](Attribute& a) { a.position.len = INT32_MAX; },
    [](Attribute& a) { a.position.bit_offset = -1; },
    [](Attribute& a) { a.position.bit_offset = 8; },
    [](Attribute& a) { a.position.byte_offset = 500; },
    [](Attribute& a) { a.position.unit = MorvixProtocolUnitUnknown_4_0; },
    [](Attribute& a) { a.position.unit = MorvixProtocolUnitByte_4_0; },
    [](Attribute& a) { a.position.unit = MorvixProtocolUnitBit_4_0; },
    [](Attribute& a) { a.position.groupByteLength = 0; },
    [](Attribute& a) { a.data_type = MorvixProtocolDataTypeUnknown_4_0; },
    [](Attribute& a) { a.data_type = MorvixProtocolDataType_4_0(0x80000001); },
    [](Attribute& a) { a.enumList.clear(); },
    [](Attribute& a) { a.enumList.resize(1); },
    [](Attribute& a) { a.uint_spec.min = 100; },
    [](Attribute& a) { a.uint_spec.max = 100; },
    [](Attribute& a) { a.uint_spec.step = -1; },
};

// --- By hand ---

TEST(ReceivePacket, GivesDocumentAlertsAndFaultsOfAPacket) {
  std::vector<Attribute> kiln = {BoolAt("on", kWritable),
                                 EnumAt("mode", kWritable, 3, BitsAt(0, 1, 2, 1)),
                                 NumberAt("target", kWritable, 0.5, -10, BytesAt(1, 2)),
                                 BinaryAt("batch", kReadonly, 3, 3),
                                 NumberAt("Heat", kAlert, 1, -100, BytesAt(6, 1)),
                                 BoolAt("Door open", kAlert, 0, 7),
                                 EnumAt("Sensor", kFault, 3, BitsAt(8, 0, 4, 1))};
  for (size_t i = 4; i < kiln.size(); ++i) kiln[i].name = "not the display name";
  // 05 is on and mode 2; 012d is 301, 301 / 2 - 10 = 140.5; 60 is 96, 96 - 100 = -4.
  const model::Received received = Receive(kiln, FromHex("04 05 012d 010203 60 01 02"), "kiln");
  EXPECT_TRUE(received.isAccepted);
  EXPECT_EQ(received.document,
            "{\"kiln\":{\"batch\":\"AQID\",\"mode\":\"2\",\"on\":true,\"target\":\"140.5\"},\"version\":4.0}\n");
  EXPECT_EQ(received.alerts, (Active{{"Door open", 1}, {"Heat", -4}}));
  EXPECT_EQ(received.faults, (Active{{"Sensor", 2}}));
  EXPECT_EQ(received.lines, LogLines());
}

// Alerts and faults are read like "%i" reads: up to the first other character, 0x and 0 prefixes counting, saturated at
// 64 bits and then cut to 32. 0 is not active.
TEST(ReceivePacket, ReadsTheActiveValueFromTheTextOfTheValue) {
  const double kTwo32 = 4294967296.0;
  const struct {
    const char* payload;
    Attribute attribute;
    int32_t active;
  } cases[] = {
      {"01", BoolAt("it", kAlert), 1},
      {"fe", BoolAt("it", kAlert), 0},
      {"05", EnumAt("it", kAlert), 5},
      {"00", EnumAt("it", kAlert), 0},
      {"19", NumberAt("it", kAlert, 0.5), 12},  // 12.5
      {"01", NumberAt("it", kAlert, 0.5), 0},   // 0.5
      {"01", NumberAt("it", kAlert, -0.5, -1), -1},
      {"00", NumberAt("it", kAlert, -1, -0.0), 0},  // -0
      {"03", NumberAt("it", kAlert, -1), -3},
      {"01", NumberAt("it", kAlert, kTwo32 / 2), INT32_MIN},
      {"01", NumberAt("it", kAlert, kTwo32), 0},
      {"03", NumberAt("it", kAlert, kTwo32, 7.25), 7},
      {"01", NumberAt("it", kAlert, 1e300), -1},  // 31 digits
      {"01", NumberAt("it", kAlert, -1e300), 0},
      {"01", NumberAt("it", kAlert, kNaN), 0},
      {"00", NumberAt("it", kAlert, kInfinity), 0},  // 0 * inf is not a number
      {"01", NumberAt("it", kAlert, kInfinity), 0},
      {"01", NumberAt("it", kAlert, -kInfinity), 0},
      {"d76df8", BinaryAt("it", kAlert), 1234},  // 1234
      {"d31d45", BinaryAt("it", kAlert), 31},    // 0x1F
      {"d34d74", BinaryAt("it", kAlert), 8},     // 0010
      {"fb5db7", BinaryAt("it", kAlert), 123},   // +123
      {"d76df8d76df8", BinaryAt("it", kAlert, 6), 12341234},
      {"d7", BinaryAt("it", kAlert, 1), 1},   // 1w==
      {"d3", BinaryAt("it", kAlert, 1), 0},   // 0w==
      {"000000", BinaryAt("it", kAlert), 0},  // AAAA
  };
  for (auto [payload, attribute, active] : cases) {
    SCOPED_TRACE(std::string(payload) + " is " + std::to_string(active));
    for (const Group group : {kAlert, kFault}) {
      attribute.type = group;
      const model::Received received = Receive({attribute}, FromHex(std::string("03") + payload));
      EXPECT_EQ(received.document, "{\"main\":{},\"version\":4.0}\n");
      EXPECT_EQ(group == kAlert ? received.alerts : received.faults, active == 0 ? Active() : (Active{{"it", active}}));
    }
  }
}

TEST(ReceivePacket, RefusesEverythingButReadResponsesAndNotifications) {
  const std::vector<Attribute> attributes = {BoolAt("on", kWritable), BoolAt("hot", kAlert, 1)};
  for (const size_t size : {size_t{0}, size_t{1}, size_t{2}, kMaxPacketBytes, SIZE_MAX}) {
    std::string document = "left from before";
    Active active = {{"held", 3}};
    EXPECT_FALSE(ProtocolReceivePacket_4_0({}, attributes, nullptr, size, document, active, active));
    EXPECT_EQ(document, "");
    EXPECT_EQ(active, (Active{{"held", 3}}));
  }
  EXPECT_FALSE(Receive(attributes, {}).isAccepted);
  for (int command = 0; command < 256; ++command) {
    const byte first = static_cast<byte>(command);
    EXPECT_FALSE(Receive(attributes, {first}).isAccepted);
    EXPECT_EQ(Receive(attributes, {first, 0xff}).isAccepted, command == 3 || command == 4);
  }
  EXPECT_FALSE(Receive(attributes, std::vector<byte>(kMaxPacketBytes + 1, 4)).isAccepted);
}

TEST(ReceivePacket, TakesPacketsUpToTheLimit) {
  const auto payloadBytes = static_cast<int32_t>(kMaxPacketBytes - 1);
  for (const Group group : {kReadonly, kAlert}) {
    std::vector<byte> packet(kMaxPacketBytes, 0xd7);
    packet[0] = 3;
    EXPECT_TRUE(Receive({BinaryAt("all", group, payloadBytes)}, packet).isAccepted);
    packet.pop_back();
    const model::Received received = Receive({BinaryAt("all", group, payloadBytes)}, packet);
    EXPECT_EQ(received.document, "{\"version\":4.0}\n");
    EXPECT_EQ(received.lines, (LogLines{{1, "ProtocolDecodeEntity_4_0", "Decode value is invalid."}}));
  }
}

TEST(ReceivePacket, KeepsTheMemoryOfTheDocument) {
  const std::vector<Attribute> attributes = {BinaryAt("all", kReadonly, 300), BoolAt("on", kReadonly)};
  const std::vector<byte> packet(301, 4);
  const LogCapture log;
  std::string document;
  Active active;
  size_t capacity = 0;
  for (const size_t size : {packet.size(), packet.size(), size_t{2}, size_t{1}}) {
    EXPECT_EQ(ProtocolReceivePacket_4_0({}, attributes, packet.data(), size, document, active, active), size != 1);
    EXPECT_TRUE(capacity == 0 || document.capacity() == capacity);
    capacity = document.capacity();
  }
}

// A caller that does not tell alerts from faults may hand in one list for both: all alerts, then all faults.
TEST(ReceivePacket, AppendsAlertsBeforeFaultsWhenTheyShareAList) {
  const byte packet[] = {4, 1};
  Active both;
  std::string document;
  EXPECT_TRUE(ProtocolReceivePacket_4_0({}, {BoolAt("a", kFault), BoolAt("b", kAlert)}, packet, sizeof packet, document,
                                        both, both));
  EXPECT_EQ(both, (Active{{"b", 1}, {"a", 1}}));
}

// --- By a plan: every check above and below also receives by one ---

class ReceivePlan : public testing::Test {
 protected:
  // True if the packet 04 01 gives `document`, and the alert "Hot" or none.
  bool Gives(const MorvixProtocolReceivePlan_4_0& plan, const std::string& document, bool isHot) {
    static const byte kPacket[] = {4, 1};
    std::string received;
    Active alerts;
    Active faults;
    return ProtocolReceivePacket_4_0(plan, kPacket, sizeof kPacket, received, alerts, faults) && received == document &&
           alerts == (isHot ? Active{{"Hot", 1}} : Active()) && faults.empty();
  }

  MorvixProtocolReceivePlan_4_0 MakePlan(const std::string& entityName) {
    MorvixProtocolEntity_4_0 entity;
    entity.name = entityName;
    return ProtocolPlanReceive_4_0(
        entity, {BoolAt("a name that is too long for a string's own memory", kWritable), BoolAt("Hot", kAlert)});
  }

  const std::string members_ = "{\"a name that is too long for a string's own memory\":true}";
};

TEST_F(ReceivePlan, OutlivesWhatItWasMadeFrom) {
  EXPECT_TRUE(Gives(MakePlan("oven"), "{\"oven\":" + members_ + ",\"version\":4.0}\n", true));
}

TEST_F(ReceivePlan, HasNamesOfItsOwn) {
  std::vector<Attribute> attributes = {BoolAt("Hot", kAlert)};
  MorvixProtocolEntity_4_0 entity;
  entity.name = "oven";
  const MorvixProtocolReceivePlan_4_0 plan = ProtocolPlanReceive_4_0(entity, attributes);
  for (std::string* name : {&entity.name, &attributes[0].name, &attributes[0].display_name}) name->assign("Old");
  EXPECT_TRUE(Gives(plan, "{\"oven\":{},\"version\":4.0}\n", true));
}

// JSON has U+FFFD for a byte that is not UTF-8.
TEST_F(ReceivePlan, NamesWhatJsonChangesAsTheDocumentDoes) {
  const auto received = Receive({BoolAt("\xfe", kAlert)}, {4, 1}, "\xff");
  EXPECT_EQ(received.document, "{\"version\":4.0,\"\\ufffd\":{}}\n");
  EXPECT_EQ(received.alerts, (Active{{"\xef\xbf\xbd", 1}}));
}

TEST_F(ReceivePlan, HasNoAttributesByDefaultAndAfterAMove) {
  const std::string none = "{\"version\":4.0}\n";
  EXPECT_TRUE(Gives(MorvixProtocolReceivePlan_4_0(), none, false));
  MorvixProtocolReceivePlan_4_0 source = MakePlan("oven");
  const MorvixProtocolReceivePlan_4_0 target = std::move(source);
  EXPECT_TRUE(Gives(target, "{\"oven\":" + members_ + ",\"version\":4.0}\n", true));
  EXPECT_TRUE(Gives(source, none, false));  // NOLINT(bugprone-use-after-move): a plan without attributes
}

TEST_F(ReceivePlan, IsSharedByItsCopies) {
  MorvixProtocolReceivePlan_4_0 copy;
  {
    const MorvixProtocolReceivePlan_4_0 plan = MakePlan("zone");
    copy = plan;
  }
  EXPECT_TRUE(Gives(copy, "{\"version\":4.0,\"zone\":" + members_ + "}\n", true));
}

TEST_F(ReceivePlan, RefusesWhatUnpackingRefuses) {
  const MorvixProtocolReceivePlan_4_0 plan = MakePlan("oven");
  for (const auto& packet : {std::vector<byte>{}, {4}, {2, 1}, {5, 1}, std::vector<byte>(kMaxPacketBytes + 1, 4)}) {
    std::string document = "left from before";
    Active active = {{"held", 3}};
    EXPECT_FALSE(ProtocolReceivePacket_4_0(plan, packet.data(), packet.size(), document, active, active));
    EXPECT_EQ(document, "");
    EXPECT_EQ(active, (Active{{"held", 3}}));
  }
}

// Numbers of at most six decimals are printed from integers. 0.3 * 3 is 0.8999999999999999 in doubles.
TEST(ReceivePlanNumbers, PrintWhatTheCLibraryPrints) {
  const struct {
    double ratio;
    double addition;
  } scalings[] = {{0.3, 0},       {0.1, -40},    {1e-6, 0},          {1e-6, 999},    {1e-7, 0},    {0.000001, 0.000001},
                  {-0.25, 10},    {123456.5, 0}, {1e9, 0},           {1e9, 0.5},     {1e15, 0},    {-1, 0},
                  {-1, -0.0},     {0, -0.0},     {0, 12.345678},     {0, 1.2345678}, {1.5e300, 0}, {kNaN, 0},
                  {kInfinity, 0}, {1, kNaN},     {2.0 / 3, 1.0 / 3}, {0.999999, 0},  {1, 1e9},     {3906250.128, -7.75},
                  {2.0 / 3, 0},   {1, 5e-7}};
  for (const auto& [ratio, addition] : scalings) {
    for (const int64_t max : {int64_t{255}, int64_t{1} << 32, kMaxRaw}) {
      Attribute number = NumberAt("n", kReadonly, ratio, addition, BytesAt(0, 7));
      number.uint_spec.max = max;
      for (int bit = 0; bit < 52; ++bit) {
        for (const int64_t change : {-1, 0, 1, 2}) {
          const int64_t raw = (int64_t{1} << bit) + change;
          std::vector<byte> packet = {4};
          for (int shift = 48; shift >= 0; shift -= 8) packet.push_back(static_cast<byte>(raw >> shift));
          Receive({number}, packet);
        }
      }
    }
  }
}

// --- One difficulty at a time ---

// Those of the support library, and two that are long.
std::vector<std::string> AllNames() {
  std::vector<std::string> names = support::TroublesomeNames();
  names.insert(names.end(), {std::string(5000, '"'), std::string(20000, 'x')});
  return names;
}

TEST(ReceivePacket, OrdersMergesAndEscapesAnyTwoNames) {
  const std::pair<Group, Group> groups[] = {
      {kWritable, kReadonly}, {kWritable, kAlert}, {kAlert, kReadonly}, {kAlert, kFault}, {kFault, kFault}};
  const std::vector<std::string> names = AllNames();
  size_t merged = 0;
  for (const std::string& first : names) {
    for (const std::string& second : names) {
      for (const auto& [firstGroup, secondGroup] : groups) {
        const auto received = Receive({EnumAt(first, firstGroup), BoolAt(second, secondGroup, 1)}, {4, 3});
        if (firstGroup == kAlert && secondGroup == kFault && received.alerts.empty()) ++merged;
      }
    }
  }
  EXPECT_GT(merged, names.size());  // equal names, and those that JSON makes equal
}

TEST(ReceivePacket, OrdersLongNamesThatBeginAlike) {
  const auto received = Receive({BoolAt("brightnesses", kWritable), BoolAt("brightness1", kWritable, 3),
                                 BoolAt("brightness", kWritable, 1), BoolAt("brightnesr", kWritable, 2)},
                                {4, 0b0110});
  EXPECT_EQ(received.document,
            "{\"main\":{\"brightnesr\":true,\"brightness\":true,\"brightness1\":false,\"brightnesses\":false},"
            "\"version\":4.0}\n");
}

TEST(ReceivePacket, TakesOnlyAlertsAndFaultsByTheirDisplayName) {
  for (const Group first : kGroups) {
    for (const Group second : kGroups) {
      Attribute one = BoolAt("a", first);
      Attribute other = NumberAt("b", second);
      Receive({one, other}, {4, 3});
      one.display_name = other.name;
      Receive({one, other}, {4, 3});
      other.display_name = one.name;
      Receive({one, other}, {4, 3});
      other.name = "a";
      Receive({one, other}, {4, 3});
    }
  }
}

TEST(ReceivePacket, PutsTheEntityWhereItsNameSorts) {
  for (const std::string& name : AllNames()) {
    Receive({BoolAt("on", kWritable), NumberAt("level", kReadonly), EnumAt("hot", kAlert)}, {4, 3}, name);
    Receive({BoolAt("hot", kAlert), BoolAt("dry", kFault, 1)}, {4, 3}, name);
    Receive({}, {4, 3}, name);
    Receive({NumberAt("beyond", kReadonly, 1, 0, BytesAt(0, 2))}, {4, 3}, name);
    Receive({BoolAt("on", kWritable), BinaryAt("beyond", kReadonly)}, {4, 3}, name);
  }
}

TEST(ReceivePacket, KeepsWhatALaterFaultLeaves) {
  const std::vector<Attribute> good = {BoolAt("on", kWritable), BinaryAt("serial", kReadonly, 1), EnumAt("hot", kAlert),
                                       NumberAt("level", kFault, 0.1)};
  for (const Attribute& victim : good) {
    for (const auto& spoil : kWaysToSpoil) {
      for (size_t place = 0; place <= good.size(); ++place) {
        Attribute spoilt = victim;
        spoil(spoilt);
        std::vector<Attribute> attributes = good;
        attributes.insert(attributes.begin() + static_cast<ptrdiff_t>(place), spoilt);
        Receive(attributes, {4, 0xa5});
        attributes[place].name = attributes[place].display_name = "\xc3\xa4";
        Receive(attributes, {4, 0xa5});
      }
    }
  }
}

class ReceiveExamplePacket : public testing::TestWithParam<const char*> {
 protected:
  ReceiveExamplePacket() {
    const std::string file = std::string(EXAMPLES_DIR "/") + GetParam();
    packet_ = FromHex(ReadFile(file + ".notify.hex"));
    const Json::Value configuration = ParseJson(ReadFile(file + ".json"));
    for (const Json::Value& entity : configuration["entities"]) entities_.emplace_back(entity);
  }

  void CheckForEachEntity(const std::vector<byte>& packet) {
    for (const ParsedEntity& entity : entities_) support::CheckReceive(entity.info, entity.attributes, packet);
  }

  std::vector<ParsedEntity> entities_;
  std::vector<byte> packet_;
};

TEST_P(ReceiveExamplePacket, EqualsTheLongWayWholeCutAndExtended) {
  const auto received = support::CheckReceive(entities_[0].info, entities_[0].attributes, packet_);
  EXPECT_EQ(received.lines, LogLines());
  EXPECT_NE(received.document, "{\"version\":4.0}\n");
  for (size_t size = 0; size <= packet_.size(); ++size) {
    CheckForEachEntity({packet_.begin(), packet_.begin() + static_cast<ptrdiff_t>(size)});
  }
  packet_.resize(packet_.size() + 100, 0xff);
  CheckForEachEntity(packet_);
}

TEST_P(ReceiveExamplePacket, EqualsTheLongWayWithAnyBitOrByteChanged) {
  for (byte& changed : packet_) {
    const byte intact = changed;
    for (int bit = 0; bit < 8; ++bit) {
      changed = static_cast<byte>(intact ^ 1 << bit);
      CheckForEachEntity(packet_);
    }
    for (const byte value : {byte{0x00}, byte{0x7f}, byte{0x80}, byte{0xff}}) {
      changed = value;
      CheckForEachEntity(packet_);
    }
    changed = intact;
  }
}

TEST_P(ReceiveExamplePacket, EqualsTheLongWayWithAnyAttributeSpoilt) {
  for (ParsedEntity& entity : entities_) {
    for (Attribute& attribute : entity.attributes) {
      const Attribute intact = attribute;
      for (const auto& spoil : kWaysToSpoil) {
        spoil(attribute);
        support::CheckReceive(entity.info, entity.attributes, packet_);
        attribute = intact;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Examples, ReceiveExamplePacket,
                         testing::Values("kettle", "air_conditioner", "gateway", "power_meter"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
