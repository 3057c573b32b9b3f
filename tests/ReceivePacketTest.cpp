// One packet straight to the application's results, held against the five calls that give the same the long way.

#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"

namespace {

using Attribute = MorvixProtocolAttribute_4_0;
using Group = MorvixProtocolType_4_0;

const auto kWritable = MorvixProtocolTypeStatusWritable_4_0;
const auto kReadonly = MorvixProtocolTypeStatusReadonly_4_0;
const auto kAlert = MorvixProtocolTypeAlert_4_0;
const auto kFault = MorvixProtocolTypeFault_4_0;
const size_t kMaxPacketBytes = 16385;
const int64_t kMaxRaw = (int64_t{1} << 52) - 1;
const double kInfinity = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Configuration {
  MorvixProtocolEntity_4_0 entity;
  std::vector<Attribute> attributes;
};

Configuration ConfigurationOf(const std::string& entityName, const std::vector<Attribute>& attributes) {
  Configuration configuration;
  configuration.entity.name = entityName;
  configuration.attributes = attributes;
  return configuration;
}

// --- Records made by hand; alerts and faults go by the name too ---

Attribute Named(const std::string& name, Group group, MorvixProtocolDataType_4_0 dataType) {
  Attribute attribute;
  attribute.name = attribute.display_name = name;
  attribute.type = group;
  attribute.data_type = dataType;
  return attribute;
}

Attribute BitField(Attribute attribute, int32_t byteOffset, int32_t bitOffset, int32_t len, size_t groupBytes = 1) {
  attribute.position = {byteOffset, bitOffset, MorvixProtocolUnitBit_4_0, len, groupBytes};
  return attribute;
}

Attribute ByteField(Attribute attribute, int32_t byteOffset, int32_t len) {
  attribute.position = {byteOffset, 0, MorvixProtocolUnitByte_4_0, len, 0};
  return attribute;
}

Attribute Bool(const std::string& name, Group group, int32_t bitOffset = 0) {
  return BitField(Named(name, group, MorvixProtocolDataTypeBool_4_0), 0, bitOffset, 1);
}

Attribute Enum(const std::string& name, Group group, size_t items = 256) {
  Attribute attribute = BitField(Named(name, group, MorvixProtocolDataTypeEnum_4_0), 0, 0, 8);
  attribute.enumList.resize(items);
  return attribute;
}

Attribute Number(const std::string& name, Group group, double ratio = 1, double addition = 0, int32_t len = 1) {
  Attribute attribute = ByteField(Named(name, group, MorvixProtocolDataTypeUInt64_4_0), 0, len);
  attribute.uint_spec = {0, kMaxRaw, 1, ratio, addition};
  return attribute;
}

Attribute Binary(const std::string& name, Group group, int32_t len = 3) {
  return ByteField(Named(name, group, MorvixProtocolDataTypeBinary_4_0), 0, len);
}

// --- Both ways ---

// What an application holds. It uses the same objects for packet after packet.
struct Application {
  bool isReceived = false;
  std::string document = "left from before";
  std::vector<TavelReceiveInfo> alerts = {{"held alert", 3}};
  std::vector<TavelReceiveInfo> faults = {{"held fault", -3}, {"", 0}};
  LogLines log;
};

// Name and value of each alert or fault.
using Records = std::vector<std::pair<std::string, int32_t>>;

Records AsRecords(const std::vector<TavelReceiveInfo>& infos) {
  Records records;
  for (const TavelReceiveInfo& info : infos) records.emplace_back(info.name, info.value);
  return records;
}

// All of it: comparable, and readable when a test fails.
std::tuple<bool, std::string, Records, Records, LogLines> Everything(const Application& application) {
  return {application.isReceived, application.document, AsRecords(application.alerts), AsRecords(application.faults),
          application.log};
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::string Written(const Json::Value& document) { return Json::FastWriter().write(document); }
#pragma GCC diagnostic pop

void ReceiveInOnePass(const Configuration& configuration, const byte* data, size_t size, Application& application) {
  application.isReceived = ProtocolReceivePacket_4_0(configuration.entity, configuration.attributes, data, size,
                                                     application.document, application.alerts, application.faults);
}

void ReceiveTheLongWay(const Configuration& configuration, const byte* data, size_t size, Application& application) {
  OwnedPackage package;
  application.isReceived = ProtocolUnpackPackage_4_0(data, size, package);
  application.document.clear();
  if (!application.isReceived) return;
  Json::Value decoded;
  ProtocolDecodeAttributes_4_0(configuration.entity, configuration.attributes, package, decoded);
  decoded["version"] = 4.0;
  Json::Value alerts;
  Json::Value faults;
  application.document = ProtocolConvertReceiveResult_4_0(Written(decoded), alerts, faults);
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, application.alerts, application.faults);
}

class ReceivePacket : public testing::Test {
 protected:
  void ExpectSame(const Configuration& configuration, const byte* data, size_t size) {
    ReceiveInOnePass(configuration, data, size, onePass_);
    onePass_.log = log_.Take();
    ReceiveTheLongWay(configuration, data, size, longWay_);
    longWay_.log = log_.Take();
    EXPECT_EQ(Everything(onePass_), Everything(longWay_))
        << "packet " << (data == nullptr ? "null" : ToHex(data, std::min<size_t>(size, 200)));
  }

  void ExpectSame(const Configuration& configuration, const std::vector<byte>& packet) {
    ExpectSame(configuration, packet.data(), packet.size());
  }

  // Forgets the alerts and faults so far, but for the first of each.
  void ShortenLists() {
    for (Application* application : {&onePass_, &longWay_}) {
      application->alerts.resize(1);
      application->faults.resize(1);
    }
  }

  LogCapture log_;
  Application onePass_;
  Application longWay_;
};

// Names that sort, merge or survive JSON in their own way: around "version", escaped, beyond ASCII, beyond UTF-8.
const std::vector<std::string>& TroublesomeNames() {
  static const std::vector<std::string> names = {
      "", "on", "on ", "temperat", "temperature", "temperaturE", "version", "versio", "version ", "versioN", "versioo",
      "Version", "~", " ", "type", "value", "name", "0", "a/b", "<&>'", "quo\"te", "\"", "back\\slash", "\\", "\\u0041",
      "A", "tab\t", "line\nend", "\b\f\r", "\x01", "\x1f", "\x7f", "/* no */ // comment", "W\xc3\xa4rme", "\xc2\x80",
      "\xe6\xb8\xa9\xe5\xba\xa6", "\xe2\x80\xa8", "\xef\xbf\xbd", "\xef\xbb\xbf", "\xf0\x9f\x98\x80",
      "\xf4\x8f\xbf\xbf",
      // No UTF-8: stray bytes, cut short, too long for its value, a surrogate, beyond the last character.
      "\xff", "\xfe", "\x80", "W\xe4rme", "\xc3", "\xe6\xb8", "\xf0\x9f\x98", "\xc0\xaf", "\xed\xa0\x80",
      "\xed\xa0\x80\xed\xb0\x80", "\xf4\x90\x80\x80", "\xf7\xbf\xbf\xbf",
      // A NUL inside, in front, behind.
      std::string("on\0off", 6), std::string("on\0", 3), std::string("\0on", 3), std::string("\0", 1),
      std::string("version\0", 8), std::string(300, 'n'), std::string(300, 'n') + "o", std::string(5000, '"'),
      std::string(20000, 'x')};
  return names;
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

}  // namespace

// --- By hand ---

TEST_F(ReceivePacket, GivesDocumentAlertsAndFaultsOfAPacket) {
  Configuration kiln = ConfigurationOf(
      "kiln", {Bool("on", kWritable), BitField(Enum("mode", kWritable, 3), 0, 1, 2),
               ByteField(Number("target", kWritable, 0.5, -10), 1, 2), ByteField(Binary("batch", kReadonly), 3, 3),
               ByteField(Number("Heat", kAlert, 1, -100), 6, 1), BitField(Bool("Door open", kAlert), 7, 0, 1),
               BitField(Enum("Sensor", kFault, 3), 8, 0, 4)});
  for (size_t i = 4; i < kiln.attributes.size(); ++i) kiln.attributes[i].name = "not the display name";
  // 05 is on and mode 2; 012d is 301, 301 / 2 - 10 = 140.5; 60 is 96, 96 - 100 = -4.
  ExpectSame(kiln, FromHex("04 05 012d 010203 60 01 02"));
  EXPECT_TRUE(onePass_.isReceived);
  EXPECT_EQ(onePass_.document,
            "{\"kiln\":{\"batch\":\"AQID\",\"mode\":\"2\",\"on\":true,\"target\":\"140.5\"},\"version\":4.0}\n");
  EXPECT_EQ(AsRecords(onePass_.alerts), (Records{{"held alert", 3}, {"Door open", 1}, {"Heat", -4}}));
  EXPECT_EQ(AsRecords(onePass_.faults), (Records{{"held fault", -3}, {"", 0}, {"Sensor", 2}}));
  EXPECT_EQ(onePass_.log, LogLines());
}

// Alerts and faults are read like "%i" reads: up to the first other character, 0x and 0 prefixes counting, saturated at
// 64 bits and then cut to 32. 0 is not active.
TEST_F(ReceivePacket, ReadsTheActiveValueFromTheTextOfTheValue) {
  const double kTwo32 = 4294967296.0;
  const struct {
    const char* payload;
    Attribute attribute;
    int32_t active;
  } cases[] = {
      {"01", Bool("it", kAlert), 1},
      {"fe", Bool("it", kAlert), 0},
      {"05", Enum("it", kAlert), 5},
      {"00", Enum("it", kAlert), 0},
      {"19", Number("it", kAlert, 0.5), 12},  // 12.5
      {"01", Number("it", kAlert, 0.5), 0},   // 0.5
      {"01", Number("it", kAlert, -0.5, -1), -1},
      {"00", Number("it", kAlert, -1, -0.0), 0},  // -0
      {"03", Number("it", kAlert, -1), -3},
      {"01", Number("it", kAlert, kTwo32 / 2), INT32_MIN},
      {"01", Number("it", kAlert, kTwo32), 0},
      {"03", Number("it", kAlert, kTwo32, 7.25), 7},
      {"01", Number("it", kAlert, 1e300), -1},  // 31 digits
      {"01", Number("it", kAlert, -1e300), 0},
      {"01", Number("it", kAlert, kNaN), 0},
      {"00", Number("it", kAlert, kInfinity), 0},  // 0 * inf is no number
      {"01", Number("it", kAlert, kInfinity), 0},
      {"01", Number("it", kAlert, -kInfinity), 0},
      {"d76df8", Binary("it", kAlert), 1234},  // 1234
      {"d31d45", Binary("it", kAlert), 31},    // 0x1F
      {"d34d74", Binary("it", kAlert), 8},     // 0010
      {"fb5db7", Binary("it", kAlert), 123},   // +123
      {"d76df8d76df8", Binary("it", kAlert, 6), 12341234},
      {"d7", Binary("it", kAlert, 1), 1},   // 1w==
      {"d3", Binary("it", kAlert, 1), 0},   // 0w==
      {"000000", Binary("it", kAlert), 0},  // AAAA
  };
  for (auto [payload, attribute, active] : cases) {
    SCOPED_TRACE(std::string(payload) + " is " + std::to_string(active));
    for (const Group group : {kAlert, kFault}) {
      attribute.type = group;
      onePass_ = longWay_ = Application();
      ExpectSame(ConfigurationOf("main", {attribute}), FromHex(std::string("03") + payload));
      EXPECT_EQ(onePass_.document, "{\"main\":{},\"version\":4.0}\n");
      Records expected = AsRecords(group == kAlert ? Application().alerts : Application().faults);
      if (active != 0) expected.emplace_back("it", active);
      EXPECT_EQ(AsRecords(group == kAlert ? onePass_.alerts : onePass_.faults), expected);
    }
  }
}

TEST_F(ReceivePacket, RefusesWhatIsNoReadResponseOrNotification) {
  const Configuration configuration = ConfigurationOf("main", {Bool("on", kWritable), Bool("hot", kAlert, 1)});
  const auto expectRefused = [&](const byte* data, size_t size) {
    SCOPED_TRACE(size);
    onePass_ = longWay_ = Application();
    ExpectSame(configuration, data, size);
    EXPECT_FALSE(onePass_.isReceived);
    EXPECT_EQ(onePass_.document, "");
    EXPECT_EQ(AsRecords(onePass_.alerts), AsRecords(Application().alerts));
    EXPECT_EQ(AsRecords(onePass_.faults), AsRecords(Application().faults));
    EXPECT_EQ(onePass_.log, LogLines());
  };
  for (const size_t size : {size_t{0}, size_t{1}, size_t{2}, kMaxPacketBytes, SIZE_MAX}) expectRefused(nullptr, size);
  for (int command = 0; command < 256; ++command) {
    const std::vector<byte> packet = {static_cast<byte>(command), 0xff};
    expectRefused(packet.data(), 0);
    expectRefused(packet.data(), 1);
    if (command != 3 && command != 4) expectRefused(packet.data(), packet.size());
  }
  const std::vector<byte> tooLong(kMaxPacketBytes + 1, 4);
  expectRefused(tooLong.data(), tooLong.size());
}

TEST_F(ReceivePacket, TakesPacketsUpToTheLimit) {
  const auto payloadBytes = static_cast<int32_t>(kMaxPacketBytes - 1);
  for (const Group group : {kReadonly, kAlert}) {
    std::vector<byte> packet(kMaxPacketBytes, 0xd7);
    packet[0] = 3;
    ExpectSame(ConfigurationOf("main", {Binary("all", group, payloadBytes)}), packet);
    EXPECT_TRUE(onePass_.isReceived);
    packet.pop_back();
    ExpectSame(ConfigurationOf("main", {Binary("all", group, payloadBytes)}), packet);
    EXPECT_EQ(onePass_.document, "{\"version\":4.0}\n");
    EXPECT_EQ(onePass_.log, (LogLines{{1, "ProtocolDecodeEntity_4_0", "Decode value is invalid."}}));
  }
}

TEST_F(ReceivePacket, KeepsTheMemoryOfTheDocument) {
  const Configuration configuration = ConfigurationOf("main", {Binary("all", kReadonly, 300), Bool("on", kReadonly)});
  const std::vector<byte> packet(301, 4);
  ExpectSame(configuration, packet);
  const size_t capacity = onePass_.document.capacity();
  for (const size_t size : {packet.size(), size_t{2}, size_t{1}}) {
    ExpectSame(configuration, packet.data(), size);
    EXPECT_EQ(onePass_.document.capacity(), capacity);
  }
}

// A caller that does not tell alerts from faults may hand in one list for both: all alerts, then all faults.
TEST_F(ReceivePacket, AppendsAlertsBeforeFaultsWhenTheyShareAList) {
  const Configuration configuration = ConfigurationOf("main", {Bool("a", kFault), Bool("b", kAlert)});
  const std::vector<byte> packet = {4, 1};
  std::vector<TavelReceiveInfo> both;
  std::string document;
  EXPECT_TRUE(ProtocolReceivePacket_4_0(configuration.entity, configuration.attributes, packet.data(), packet.size(),
                                        document, both, both));
  EXPECT_EQ(AsRecords(both), (Records{{"b", 1}, {"a", 1}}));
}

// --- Against the long way, one difficulty at a time ---

TEST_F(ReceivePacket, OrdersMergesAndEscapesAnyTwoNames) {
  const std::pair<Group, Group> groups[] = {
      {kWritable, kReadonly}, {kWritable, kAlert}, {kAlert, kReadonly}, {kAlert, kFault}, {kFault, kFault}};
  size_t merged = 0;
  for (const std::string& first : TroublesomeNames()) {
    for (const std::string& second : TroublesomeNames()) {
      SCOPED_TRACE(testing::PrintToString(first.substr(0, 30)) + ", " + testing::PrintToString(second.substr(0, 30)));
      for (const auto& [firstGroup, secondGroup] : groups) {
        ShortenLists();
        const Attribute one = Enum(first, firstGroup);
        const Attribute other = Bool(second, secondGroup, 1);
        ExpectSame(ConfigurationOf("main", {one, other}), {4, 3});
        if (firstGroup == kAlert && secondGroup == kFault && onePass_.alerts.size() == 1) ++merged;
      }
    }
  }
  EXPECT_GT(merged, TroublesomeNames().size());  // equal names, and those that JSON makes equal
}

TEST_F(ReceivePacket, OrdersLongNamesThatBeginAlike) {
  ExpectSame(ConfigurationOf("main", {Bool("brightnesses", kWritable), Bool("brightness1", kWritable, 3),
                                      Bool("brightness", kWritable, 1), Bool("brightnesr", kWritable, 2)}),
             {4, 0b0110});
  EXPECT_EQ(onePass_.document,
            "{\"main\":{\"brightnesr\":true,\"brightness\":true,\"brightness1\":false,\"brightnesses\":false},"
            "\"version\":4.0}\n");
}

TEST_F(ReceivePacket, TakesOnlyAlertsAndFaultsByTheirDisplayName) {
  for (const Group first : kGroups) {
    for (const Group second : kGroups) {
      SCOPED_TRACE(std::to_string(first) + ", " + std::to_string(second));
      Attribute one = Bool("a", first);
      Attribute other = Number("b", second);
      ExpectSame(ConfigurationOf("main", {one, other}), {4, 3});
      one.display_name = other.name;
      ExpectSame(ConfigurationOf("main", {one, other}), {4, 3});
      other.display_name = one.name;
      ExpectSame(ConfigurationOf("main", {one, other}), {4, 3});
      other.name = "a";
      ExpectSame(ConfigurationOf("main", {one, other}), {4, 3});
    }
  }
}

TEST_F(ReceivePacket, PutsTheEntityWhereItsNameSorts) {
  for (const std::string& name : TroublesomeNames()) {
    SCOPED_TRACE(testing::PrintToString(name.substr(0, 30)));
    ExpectSame(ConfigurationOf(name, {Bool("on", kWritable), Number("level", kReadonly), Enum("hot", kAlert)}), {4, 3});
    ExpectSame(ConfigurationOf(name, {Bool("hot", kAlert), Bool("dry", kFault, 1)}), {4, 3});
    ExpectSame(ConfigurationOf(name, {}), {4, 3});
    ExpectSame(ConfigurationOf(name, {Number("beyond", kReadonly, 1, 0, 2)}), {4, 3});
    ExpectSame(ConfigurationOf(name, {Bool("on", kWritable), Binary("beyond", kReadonly)}), {4, 3});
  }
}

TEST_F(ReceivePacket, KeepsWhatALaterFaultLeaves) {
  const std::vector<Attribute> good = {Bool("on", kWritable), Binary("serial", kReadonly, 1), Enum("hot", kAlert),
                                       Number("level", kFault, 0.1)};
  for (const Attribute& victim : good) {
    for (size_t way = 0; way < std::size(kWaysToSpoil); ++way) {
      SCOPED_TRACE(victim.name + " spoilt in way " + std::to_string(way));
      for (size_t place = 0; place <= good.size(); ++place) {
        ShortenLists();
        Configuration configuration = ConfigurationOf("main", good);
        Attribute spoilt = victim;
        kWaysToSpoil[way](spoilt);
        configuration.attributes.insert(configuration.attributes.begin() + static_cast<ptrdiff_t>(place), spoilt);
        ExpectSame(configuration, {4, 0xa5});
        configuration.attributes[place].name = configuration.attributes[place].display_name = "\xc3\xa4";
        ExpectSame(configuration, {4, 0xa5});
      }
    }
  }
}

class ReceiveExamplePacket : public ReceivePacket, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    const std::string file = std::string(EXAMPLES_DIR "/") + GetParam();
    packet_ = FromHex(ReadFile(file + ".notify.hex"));
    const Json::Value entities = ParseJson(ReadFile(file + ".json"))["entities"];
    configurations_.resize(entities.size());
    for (Json::ArrayIndex i = 0; i < entities.size(); ++i) {
      Configuration& configuration = configurations_[i];
      ASSERT_TRUE(ProtocolParseEntity_4_0(entities[i], 15, configuration.attributes, configuration.entity));
    }
    ASSERT_FALSE(configurations_.empty());
    log_.Take();
  }

  void ExpectSameForEachEntity(const std::vector<byte>& packet) {
    ShortenLists();
    for (const Configuration& configuration : configurations_) ExpectSame(configuration, packet);
  }

  std::vector<Configuration> configurations_;
  std::vector<byte> packet_;
};

TEST_P(ReceiveExamplePacket, EqualsTheLongWayWholeCutAndExtended) {
  ExpectSame(configurations_[0], packet_);
  EXPECT_EQ(onePass_.log, LogLines());
  EXPECT_NE(onePass_.document, "{\"version\":4.0}\n");
  for (size_t size = 0; size <= packet_.size(); ++size) {
    ExpectSameForEachEntity({packet_.begin(), packet_.begin() + static_cast<ptrdiff_t>(size)});
  }
  packet_.resize(packet_.size() + 100, 0xff);
  ExpectSameForEachEntity(packet_);
}

TEST_P(ReceiveExamplePacket, EqualsTheLongWayWithAnyBitOrByteChanged) {
  for (byte& changed : packet_) {
    const byte intact = changed;
    for (int bit = 0; bit < 8; ++bit) {
      changed = static_cast<byte>(intact ^ 1 << bit);
      ExpectSameForEachEntity(packet_);
    }
    for (const int value : {0x00, 0x7f, 0x80, 0xff}) {
      changed = static_cast<byte>(value);
      ExpectSameForEachEntity(packet_);
    }
    changed = intact;
  }
}

TEST_P(ReceiveExamplePacket, EqualsTheLongWayWithAnyAttributeSpoilt) {
  for (Configuration& configuration : configurations_) {
    for (Attribute& attribute : configuration.attributes) {
      const Attribute intact = attribute;
      for (size_t way = 0; way < std::size(kWaysToSpoil); ++way) {
        SCOPED_TRACE(intact.name + " spoilt in way " + std::to_string(way));
        kWaysToSpoil[way](attribute);
        ShortenLists();
        ExpectSame(configuration, packet_);
        attribute = intact;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Examples, ReceiveExamplePacket,
                         testing::Values("kettle", "air_conditioner", "gateway", "power_meter"),
                         [](const auto& test) { return std::string(test.param); });

// --- Against the long way, all difficulties at once ---

namespace {

const size_t kDefaultPackets = 20000;
const size_t kPacketsPerConfiguration = 200;

// The number of random packets; the long form of the suite asks for more.
size_t RandomPacketCount() {
  const char* text = std::getenv("MORVIX_RECEIVE_PACKETS");
  return text == nullptr ? kDefaultPackets : std::strtoul(text, nullptr, 10);
}

// Makes one configuration and its packets out of a seed.
class Generator {
 public:
  explicit Generator(uint32_t seed) : random_(seed), payloadBytes_(4 + Below(36)), isPlain_(OneIn(2)) {}

  Configuration MakeConfiguration() {
    Configuration configuration;
    configuration.entity.name = OneIn(20) ? "version" : Name();
    configuration.attributes.resize(Below(size_t{14}));
    for (Attribute& attribute : configuration.attributes) attribute = MakeAttribute();
    if (!configuration.attributes.empty() && OneIn(3)) {
      kWaysToSpoil[Below(std::size(kWaysToSpoil))](configuration.attributes[Below(configuration.attributes.size())]);
    }
    return configuration;
  }

  std::vector<byte> MakePacket() {
    size_t size = 1 + static_cast<size_t>(payloadBytes_);
    if (OneIn(10)) size = OneIn(50) ? kMaxPacketBytes - 1 + Below(size_t{4}) : Below(2 * size);
    std::vector<byte> packet(size);
    const int kind = Below(4);
    for (size_t i = 0; i < size; ++i) {
      if (kind == 0 || OneIn(10)) packet[i] = static_cast<byte>(random_());
      if (kind == 1) packet[i] = static_cast<byte>(Pick({0xd7, 0x6d, 0xf8, 0xd3}));  // digits in base64
    }
    if (size != 0) packet[0] = static_cast<byte>(OneIn(40) ? Below(256) : Pick({3, 4}));
    return packet;
  }

 private:
  template <typename Integer>
  Integer Below(Integer limit) {
    return static_cast<Integer>(random_() % static_cast<uint32_t>(limit));
  }

  template <typename Value>
  Value Pick(std::initializer_list<Value> values) {
    return *(values.begin() + Below(values.size()));
  }

  bool OneIn(uint32_t count) { return random_() % count == 0; }

  std::string Name() {
    if (OneIn(3)) return std::string(1, static_cast<char>('a' + Below(8)));
    if (!isPlain_ && OneIn(4)) return TroublesomeNames()[Below(TroublesomeNames().size())];
    std::string name(Below(size_t{25}), ' ');
    for (char& c : name) c = isPlain_ ? static_cast<char>('#' + Below('[' - '#')) : static_cast<char>(random_());
    return name;
  }

  Attribute MakeAttribute() {
    Attribute attribute;
    attribute.name = Name();
    attribute.display_name = Name();
    attribute.type = OneIn(10) ? kGroups[Below(std::size(kGroups))] : kGroups[Below(size_t{4})];
    attribute.data_type = MorvixProtocolDataType_4_0(1 + Below(7));
    attribute.position = MakePosition(attribute.data_type);
    attribute.uint_spec = MakeScaling();
    if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
      const auto items = size_t{1} << attribute.position.len;
      attribute.enumList.resize(OneIn(15) ? Below(items) : items);
    }
    return attribute;
  }

  MorvixProtocolPosition_4_0 MakePosition(MorvixProtocolDataType_4_0 dataType) {
    if (dataType == MorvixProtocolDataTypeBinary_4_0 || (ProtocolDataTypeIsUInt(dataType) && !OneIn(8))) {
      const int32_t len = 1 + Below(std::min(payloadBytes_, dataType == MorvixProtocolDataTypeBinary_4_0 ? 20 : 8));
      return {Below(payloadBytes_ - len + 1), Below(8), MorvixProtocolUnitByte_4_0, len, 0};
    }
    const int32_t group = 1 + Below(4);
    const int32_t len = dataType == MorvixProtocolDataTypeBool_4_0 ? 1 : 1 + Below(7);
    return {Below(payloadBytes_ - group + 1), Below(8 * group - len + 1), MorvixProtocolUnitBit_4_0, len,
            static_cast<size_t>(group)};
  }

  MorvixProtocolUIntSpec_4_0 MakeScaling() {
    const int64_t max = OneIn(6) ? Below(40000) : kMaxRaw;
    const double ratio =
        Pick({1.0, 1.0, 0.5, 0.1, 0.01, 0.001, -1.0, -0.25, 1e-7, 3.7, 1e9, 1e300, 0.0, kNaN, kInfinity});
    const double addition = Pick({0.0, 0.0, 0.0, -0.0, -40.0, 0.25, 1e-6, 1e15, -1e300, kInfinity});
    return {OneIn(20) ? Below(300) : 0, max, 1, ratio, addition};
  }

  std::mt19937 random_;
  const int32_t payloadBytes_;
  const bool isPlain_;  // all names printable, so that nothing needs an escape
};

// Counts what a run comes across: equality says little about what the packets never bring up.
void Sight(const Application& application, std::map<std::string, size_t>& sightings) {
  const std::string& document = application.document;
  const auto has = [&](const char* text) { return document.find(text) != std::string::npos; };
  sightings["a refused packet"] += !application.isReceived;
  sightings["a document without an entity"] += document == "{\"version\":4.0}\n";
  sightings["an entity without members"] += has(":{}");
  sightings["a text behind another"] += has("\",\"");
  sightings["a name that is escaped"] += has("\\u00");
  sightings["an active alert"] += application.alerts.size() > 1;
  sightings["an active fault"] += application.faults.size() > 1;
  for (const char* start : {"Invalid enum value", "Unknown attribute type.", "Decode value is invalid."}) {
    sightings[start] += !application.log.empty() && application.log[0].text.rfind(start, 0) == 0;
  }
}

}  // namespace

TEST_F(ReceivePacket, EqualsTheLongWayOnRandomConfigurations) {
  constexpr uint32_t kSeed = 20260402;
  const size_t packets = RandomPacketCount();
  ASSERT_GT(packets, 0u) << "MORVIX_RECEIVE_PACKETS is to be a number";
  std::map<std::string, size_t> sightings;
  for (size_t packet = 0; packet < packets && !HasFailure(); packet += kPacketsPerConfiguration) {
    const uint32_t seed = kSeed + static_cast<uint32_t>(packet / kPacketsPerConfiguration);
    SCOPED_TRACE("seed " + std::to_string(seed));
    Generator generator(seed);
    const Configuration configuration = generator.MakeConfiguration();
    for (size_t i = packet; i < std::min(packet + kPacketsPerConfiguration, packets) && !HasFailure(); ++i) {
      ShortenLists();
      ExpectSame(configuration, generator.MakePacket());
      Sight(onePass_, sightings);
    }
  }
  if (packets < kDefaultPackets) return;
  for (const auto& [sight, count] : sightings) EXPECT_GT(count, packets / 2000) << sight;
}
