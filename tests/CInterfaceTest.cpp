// The C interface: the conformance cases that every language runs, the examples' golden results, hostile input, logging
// and threads. It is linked beside the default host services, of which it has its own.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "bindings/c/morvix_protocol.h"

namespace {

struct Free {
  void operator()(void* memory) const { morvix_free(memory); }
};
struct Close {
  void operator()(morvix_entity* entity) const { morvix_entity_close(entity); }
};
using Entity = std::unique_ptr<morvix_entity, Close>;

// The text of a result, which is released. A failed call leaves none.
std::string Take(morvix_bytes& bytes) {
  const std::unique_ptr<uint8_t, Free> owner(bytes.data);
  if (bytes.data == nullptr) {
    EXPECT_EQ(bytes.size, 0u);
    return "";
  }
  EXPECT_EQ(bytes.data[bytes.size], 0);
  std::string text(reinterpret_cast<const char*>(bytes.data), bytes.size);
  bytes = {};
  return text;
}

std::string Take(char*& message) {
  const std::unique_ptr<char, Free> owner(message);
  std::string text = message == nullptr ? "" : message;
  message = nullptr;
  return text;
}

// Outputs that hold something beforehand, which every call has to replace.
struct Outputs {
  uint8_t used = 1;
  morvix_bytes first = {&used, 1};
  morvix_bytes second = {&used, 1};
  char text = 1;
  char* message = &text;

  bool AreEmpty() const { return first.data == nullptr && first.size == 0; }
};

Entity Open(const std::string& configuration, const char* name = nullptr) {
  morvix_entity* entity = nullptr;
  char* message = nullptr;
  const morvix_status status = morvix_entity_open(configuration.data(), configuration.size(), name, &entity, &message);
  const std::string text = Take(message);
  EXPECT_EQ(status, MORVIX_OK) << text;
  return Entity(entity);
}

std::string Example(const std::string& name) { return ReadFile(std::string(EXAMPLES_DIR) + "/" + name); }

std::string Golden(const std::string& name) { return ReadFile(std::string(GOLDEN_DIR) + "/" + name); }

std::string Digits(const std::string& bytes) {
  std::string digits;
  for (const char c : ToHex(reinterpret_cast<const byte*>(bytes.data()), bytes.size())) {
    if (c != ' ') digits += c;
  }
  return digits;
}

// ---- The conformance cases ---------------------------------------------------------------------------------------

const Json::Value& Conformance() {
  static const Json::Value table = ParseJson(ReadFile(std::string(TESTS_DIR) + "/conformance.json"));
  return table;
}

// How a call ended, in the words of the table.
const char* StatusText(morvix_status status) {
  static const char* const kTexts[] = {"ok", "refused", "bad input", "no memory"};
  return kTexts[status];
}

std::string ConfigurationText(const std::string& name) {
  const Json::Value& configuration = Conformance()["configurations"][name];
  if (configuration.isMember("file"))
    return ReadFile(std::string(EXAMPLES_DIR) + "/../" + configuration["file"].asString());
  if (configuration.isMember("json")) return WriteJson(configuration["json"]);
  if (configuration.isMember("text")) return configuration["text"].asString();
  const std::vector<byte> bytes = FromHex(configuration["hex"].asString());
  return std::string(bytes.begin(), bytes.end());
}

std::vector<byte> PacketOf(const Json::Value& test) {
  std::vector<byte> packet = FromHex(test["packet"].asString());
  if (test.isMember("size")) packet.resize(test["size"].asUInt());
  return packet;
}

// The packets of a case, back to back.
struct Batch {
  std::vector<byte> bytes;
  std::vector<size_t> offsets = {0};

  explicit Batch(const Json::Value& packets) {
    for (const Json::Value& packet : packets) {
      const std::vector<byte> one = FromHex(packet.asString());
      bytes.insert(bytes.end(), one.begin(), one.end());
      offsets.push_back(bytes.size());
    }
  }
  size_t Count() const { return offsets.size() - 1; }
};

// Where the order of members and the form of numbers do not matter.
void ExpectSameJson(const std::string& text, const Json::Value& expected) {
  EXPECT_EQ(WriteJson(ParseJson(text)), WriteJson(ParseJson(WriteJson(expected))));
}

class ConformanceCase : public testing::TestWithParam<Json::ArrayIndex> {
 public:
  // What is expected of the call as a whole; returns whether it is to succeed.
  bool ExpectEnd(morvix_status status) {
    EXPECT_EQ(StatusText(status), test_.get("status", "ok").asString());
    EXPECT_EQ(Take(outputs_.message), test_.get("message", "").asString());
    EXPECT_TRUE(status == MORVIX_OK || outputs_.AreEmpty());
    return status == MORVIX_OK;
  }

  morvix_status OpenIt(morvix_entity** entity, char** message) {
    const std::string text = ConfigurationText(test_["configuration"].asString());
    const char* name = test_.isMember("entity") ? test_["entity"].asCString() : nullptr;
    return morvix_entity_open(text.data(), text.size(), name, entity, message);
  }

  Entity Opened() {
    morvix_entity* entity = nullptr;
    EXPECT_EQ(OpenIt(&entity, nullptr), MORVIX_OK);
    return Entity(entity);
  }

  const int32_t* SubDevice() {
    if (!test_.isMember("subDevice")) return nullptr;
    subDevice_ = test_["subDevice"].asInt();
    return &subDevice_;
  }

  void Entities() {
    const std::string text = ConfigurationText(test_["configuration"].asString());
    if (!ExpectEnd(morvix_entities(text.data(), text.size(), &outputs_.first, &outputs_.message))) return;
    ExpectSameJson(Take(outputs_.first), test_["result"]);
  }

  void Open() {
    morvix_entity* entity = reinterpret_cast<morvix_entity*>(&outputs_);
    outputs_.first = {};
    const bool isOpen = ExpectEnd(OpenIt(&entity, &outputs_.message));
    EXPECT_EQ(entity != nullptr, isOpen);
    morvix_entity_close(entity);
  }

  void Describe() {
    EXPECT_EQ(morvix_entity_describe(Opened().get(), &outputs_.first), MORVIX_OK);
    ExpectSameJson(Take(outputs_.first), test_["result"]);
  }

  void Encode() {
    const std::string values = WriteJson(test_["values"]);
    const int command = test_.get("command", 1).asInt();
    const Entity entity = Opened();
    if (!ExpectEnd(morvix_encode(entity.get(), values.data(), values.size(), command, SubDevice(), &outputs_.first,
                                 &outputs_.message))) {
      return;
    }
    EXPECT_EQ(Digits(Take(outputs_.first)), ExpectedPacket());
  }

  void Request() {
    if (!ExpectEnd(morvix_request(test_["command"].asInt(), SubDevice(), &outputs_.first, &outputs_.message))) return;
    EXPECT_EQ(Digits(Take(outputs_.first)), ExpectedPacket());
  }

  // The id of a sub-device travels in host order; in the table it is that of a little-endian host.
  std::string ExpectedPacket() const {
    std::vector<byte> packet = FromHex(test_["result"].asString());
    const uint16_t one = 1;
    byte lowest = 0;
    std::memcpy(&lowest, &one, 1);
    if (test_.isMember("subDevice") && lowest == 0) std::reverse(packet.begin() + 1, packet.begin() + 5);
    return Digits(std::string(packet.begin(), packet.end()));
  }

  void Decode() {
    const std::vector<byte> packet = PacketOf(test_);
    const Entity entity = Opened();
    if (!ExpectEnd(morvix_decode(entity.get(), packet.data(), packet.size(), &outputs_.first, &outputs_.message))) {
      return;
    }
    ExpectSameJson(Take(outputs_.first), test_["result"]);
  }

  void Receive() {
    const std::vector<byte> packet = PacketOf(test_);
    const Entity entity = Opened();
    if (!ExpectEnd(morvix_receive(entity.get(), packet.data(), packet.size(), &outputs_.first, &outputs_.second,
                                  &outputs_.message))) {
      EXPECT_EQ(outputs_.second.data, nullptr);
      return;
    }
    const Json::Value& result = test_["result"];
    EXPECT_EQ(Take(outputs_.first), result["document"].asString());
    Json::Value active;
    active["alerts"] = result["alerts"];
    active["faults"] = result["faults"];
    ExpectSameJson(Take(outputs_.second), active);
  }

  void ReceiveTable() {
    const Entity entity = Opened();
    const Batch batch(test_["packets"]);
    const Json::Value& result = test_["result"];
    const size_t count = batch.Count();
    std::vector<double> values(count * result["values"].size(), -1);
    std::vector<uint8_t> refused(count, 9);
    ASSERT_EQ(morvix_receive_table(entity.get(), batch.bytes.data(), batch.offsets.data(), count, values.data(),
                                   refused.data()),
              MORVIX_OK);
    for (size_t i = 0; i < count; ++i) {
      const auto column = static_cast<Json::ArrayIndex>(i);
      EXPECT_EQ(refused[i], result["refused"][column].asUInt());
      for (Json::ArrayIndex a = 0; a < result["values"].size(); ++a) {
        const Json::Value& expected = result["values"][a][column];
        const double value = values[a * count + i];
        if (expected.isNull()) {
          EXPECT_TRUE(std::isnan(value)) << a << ' ' << i << ' ' << value;
        } else {
          EXPECT_EQ(value, expected.asDouble()) << a << ' ' << i;
        }
      }
    }
  }

  void ReceiveMany() {
    const Entity entity = Opened();
    const Batch batch(test_["packets"]);
    EXPECT_EQ(
        morvix_receive_many(entity.get(), batch.bytes.data(), batch.offsets.data(), batch.Count(), &outputs_.first),
        MORVIX_OK);
    std::string expected;
    for (const Json::Value& line : test_["lines"]) expected += line.asString() + "\n";
    EXPECT_EQ(Take(outputs_.first), expected);
  }

  void Convert() {
    const std::string document = test_["document"].asString();
    if (!ExpectEnd(
            morvix_convert(document.data(), document.size(), &outputs_.first, &outputs_.second, &outputs_.message))) {
      EXPECT_EQ(outputs_.second.data, nullptr);
      return;
    }
    const Json::Value& result = test_["result"];
    EXPECT_EQ(Take(outputs_.first), result["flattened"].asString());
    Json::Value lists;
    lists["alerts"] = result["alerts"];
    lists["faults"] = result["faults"];
    ExpectSameJson(Take(outputs_.second), lists);
  }

  const Json::Value& test_ = Conformance()["cases"][GetParam()];
  Outputs outputs_;
  int32_t subDevice_ = 0;
};

TEST_P(ConformanceCase, Holds) {
  const std::pair<const char*, void (ConformanceCase::*)()> kCalls[] = {
      {"entities", &ConformanceCase::Entities},        {"open", &ConformanceCase::Open},
      {"describe", &ConformanceCase::Describe},        {"encode", &ConformanceCase::Encode},
      {"request", &ConformanceCase::Request},          {"decode", &ConformanceCase::Decode},
      {"receive", &ConformanceCase::Receive},          {"table", &ConformanceCase::ReceiveTable},
      {"receive many", &ConformanceCase::ReceiveMany}, {"convert", &ConformanceCase::Convert},
  };
  SCOPED_TRACE(test_["name"].asString());
  for (const auto& call : kCalls) {
    if (test_["call"] == call.first) return (this->*call.second)();
  }
  FAIL() << "no call " << test_["call"];
}

INSTANTIATE_TEST_SUITE_P(Table, ConformanceCase, testing::Range(Json::ArrayIndex{0}, Conformance()["cases"].size()));

// ---- The examples ------------------------------------------------------------------------------------------------

class CInterfaceExample : public testing::TestWithParam<std::string> {
 protected:
  // Only the gateway has two.
  Entity entity_ = Open(Example(GetParam() + ".json"), GetParam() == "gateway" ? "gateway" : nullptr);
};

TEST_P(CInterfaceExample, HasItsGoldenResults) {
  Outputs outputs;
  const std::string values = Example(GetParam() + ".values.json");
  ASSERT_EQ(morvix_encode(entity_.get(), values.data(), values.size(), 1, nullptr, &outputs.first, nullptr), MORVIX_OK);
  EXPECT_EQ(FromHex(Digits(Take(outputs.first))), FromHex(Golden(GetParam() + ".write.hex")));

  const std::vector<byte> packet = FromHex(Example(GetParam() + ".notify.hex"));
  ASSERT_EQ(morvix_decode(entity_.get(), packet.data(), packet.size(), &outputs.first, nullptr), MORVIX_OK);
  ExpectSameJson(Take(outputs.first), ParseJson(Golden(GetParam() + ".decoded.json")));
  ASSERT_EQ(morvix_receive(entity_.get(), packet.data(), packet.size(), &outputs.first, &outputs.second, nullptr),
            MORVIX_OK);
  ExpectSameJson(Take(outputs.first), ParseJson(Golden(GetParam() + ".flat.json")));
  ExpectSameJson(Take(outputs.second), ParseJson(Golden(GetParam() + ".active.json")));
}

INSTANTIATE_TEST_SUITE_P(Products, CInterfaceExample,
                         testing::Values("kettle", "air_conditioner", "gateway", "power_meter"),
                         [](const testing::TestParamInfo<std::string>& test) { return test.param; });

// ---- Input that a caller got wrong -------------------------------------------------------------------------------

class CInterface : public testing::Test {
 protected:
  Entity kettle_ = Open(Example("kettle.json"));
  const std::vector<byte> packet_ = {4, 5, 0x5a, 4, 0x64, 1, 1};
  const std::string values_ = R"({"kettle":{"power":true}})";
  Outputs outputs_;
};

TEST_F(CInterface, TellsItsNumberAndVersion) {
  EXPECT_EQ(morvix_abi(), 1);
  EXPECT_STREQ(morvix_version(), MORVIX_PROTOCOL_VERSION);
}

TEST_F(CInterface, TakesNullsToRelease) {
  morvix_free(nullptr);
  morvix_entity_close(nullptr);
}

TEST_F(CInterface, RejectsNullEntities) {
  double number = 0;
  uint8_t refused = 0;
  const size_t offsets[] = {0, 7};
  const std::string text = "entity is null";
  EXPECT_EQ(morvix_entity_describe(nullptr, &outputs_.first), MORVIX_BAD_INPUT);
  EXPECT_TRUE(outputs_.AreEmpty());
  EXPECT_EQ(morvix_encode(nullptr, "{}", 2, 1, nullptr, &outputs_.first, &outputs_.message), MORVIX_BAD_INPUT);
  EXPECT_EQ(Take(outputs_.message), text);
  EXPECT_EQ(morvix_decode(nullptr, packet_.data(), 7, &outputs_.first, &outputs_.message), MORVIX_BAD_INPUT);
  EXPECT_EQ(Take(outputs_.message), text);
  EXPECT_EQ(morvix_receive(nullptr, packet_.data(), 7, &outputs_.first, &outputs_.second, &outputs_.message),
            MORVIX_BAD_INPUT);
  EXPECT_EQ(Take(outputs_.message), text);
  EXPECT_EQ(morvix_receive_many(nullptr, packet_.data(), offsets, 1, &outputs_.first), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_table(nullptr, packet_.data(), offsets, 1, &number, &refused), MORVIX_BAD_INPUT);
}

TEST_F(CInterface, RejectsNullInputsAndOutputs) {
  const morvix_entity* entity = kettle_.get();
  const std::string configuration = Example("kettle.json");
  const char* text = configuration.data();
  const size_t size = configuration.size();
  const size_t offsets[] = {0, 7};
  double values[7];
  uint8_t refused = 0;
  morvix_entity* opened = nullptr;
  const auto expectNull = [this](morvix_status status, const char* name) {
    EXPECT_EQ(status, MORVIX_BAD_INPUT);
    EXPECT_EQ(Take(outputs_.message), std::string(name) + " is null");
  };
  char** message = &outputs_.message;
  morvix_bytes* first = &outputs_.first;
  morvix_bytes* second = &outputs_.second;
  expectNull(morvix_entities(text, size, nullptr, message), "json");
  expectNull(morvix_entities(nullptr, 1, first, message), "the configuration");
  expectNull(morvix_entity_open(text, size, nullptr, nullptr, message), "entity");
  expectNull(morvix_entity_open(nullptr, 1, nullptr, &opened, message), "the configuration");
  expectNull(morvix_encode(entity, values_.data(), values_.size(), 1, nullptr, nullptr, message), "packet");
  expectNull(morvix_encode(entity, nullptr, 1, 1, nullptr, first, message), "the value document");
  expectNull(morvix_request(2, nullptr, nullptr, message), "packet");
  expectNull(morvix_decode(entity, packet_.data(), 7, nullptr, message), "document");
  expectNull(morvix_decode(entity, nullptr, 7, first, message), "packet");
  expectNull(morvix_receive(entity, packet_.data(), 7, nullptr, second, message), "document");
  expectNull(morvix_receive(entity, packet_.data(), 7, first, nullptr, message), "active");
  expectNull(morvix_receive(entity, nullptr, 7, first, second, message), "packet");
  expectNull(morvix_convert("{}", 2, nullptr, second, message), "flattened");
  expectNull(morvix_convert("{}", 2, first, nullptr, message), "lists");
  expectNull(morvix_convert(nullptr, 2, first, second, message), "the document");
  EXPECT_EQ(morvix_entity_describe(entity, nullptr), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_many(entity, packet_.data(), offsets, 1, nullptr), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_many(entity, packet_.data(), nullptr, 1, first), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_many(entity, nullptr, offsets, 1, first), MORVIX_BAD_INPUT);
  EXPECT_TRUE(outputs_.AreEmpty());
  EXPECT_EQ(morvix_receive_table(entity, packet_.data(), offsets, 1, nullptr, &refused), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_table(entity, packet_.data(), offsets, 1, values, nullptr), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_table(entity, packet_.data(), nullptr, 1, values, &refused), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_table(entity, nullptr, offsets, 1, values, &refused), MORVIX_BAD_INPUT);
}

TEST_F(CInterface, TakesNothingAsNothing) {
  EXPECT_EQ(morvix_decode(kettle_.get(), nullptr, 0, &outputs_.first, nullptr), MORVIX_REFUSED);
  EXPECT_EQ(morvix_entities(nullptr, 0, &outputs_.first, nullptr), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_many(kettle_.get(), nullptr, nullptr, 0, &outputs_.first), MORVIX_OK);
  EXPECT_EQ(Take(outputs_.first), "");
  EXPECT_EQ(morvix_receive_table(kettle_.get(), nullptr, nullptr, 0, nullptr, nullptr), MORVIX_OK);
  const size_t offsets[] = {3, 3};
  EXPECT_EQ(morvix_receive_many(kettle_.get(), nullptr, offsets, 1, &outputs_.first), MORVIX_OK);
  EXPECT_EQ(Take(outputs_.first), "{\"error\":\"the packet is empty\"}\n");
}

TEST_F(CInterface, RejectsOffsetsThatDescend) {
  const size_t offsets[] = {0, 7, 6};
  double values[14];
  uint8_t refused[2];
  EXPECT_EQ(morvix_receive_many(kettle_.get(), packet_.data(), offsets, 2, &outputs_.first), MORVIX_BAD_INPUT);
  EXPECT_EQ(morvix_receive_table(kettle_.get(), packet_.data(), offsets, 2, values, refused), MORVIX_BAD_INPUT);
}

TEST_F(CInterface, StartsWhereTheFirstOffsetSays) {
  const size_t offsets[] = {2, 9};
  std::vector<byte> packets = {0xff, 0xff};
  packets.insert(packets.end(), packet_.begin(), packet_.end());
  ASSERT_EQ(morvix_receive_many(kettle_.get(), packets.data(), offsets, 1, &outputs_.first), MORVIX_OK);
  EXPECT_EQ(ParseJson(Take(outputs_.first))["alerts"][0]["name"], "Low water");
}

// Every prefix of valid input, in memory of exactly its size.
TEST_F(CInterface, SurvivesEveryPrefixOfItsInput) {
  const std::string configuration = Example("kettle.json");
  for (size_t size = 0; size < configuration.size() - 1; ++size) {
    const std::vector<char> text(configuration.begin(), configuration.begin() + static_cast<ptrdiff_t>(size));
    morvix_entity* entity = nullptr;
    EXPECT_NE(morvix_entity_open(text.data(), size, nullptr, &entity, nullptr), MORVIX_OK) << size;
    EXPECT_EQ(entity, nullptr);
  }
  for (size_t size = 0; size <= packet_.size(); ++size) {
    const std::vector<byte> packet(packet_.begin(), packet_.begin() + static_cast<ptrdiff_t>(size));
    const morvix_status expected = size < 2 ? MORVIX_REFUSED : MORVIX_OK;
    EXPECT_EQ(morvix_decode(kettle_.get(), packet.data(), size, &outputs_.first, nullptr), expected);
    Take(outputs_.first);
    const size_t offsets[] = {0, size};
    double values[7];
    uint8_t refused = 9;
    EXPECT_EQ(morvix_receive_table(kettle_.get(), packet.data(), offsets, 1, values, &refused), MORVIX_OK);
    EXPECT_EQ(refused, size < 2 ? 1 : 0);
  }
}

TEST_F(CInterface, RejectsTextThatIsNotUtf8) {
  const std::pair<const char*, bool> texts[] = {
      {"\x7f", true},
      {"\xc2\x80", true},
      {"\xdf\xbf", true},
      {"\xe0\xa0\x80", true},
      {"\xed\x9f\xbf", true},
      {"\xee\x80\x80", true},
      {"\xf0\x90\x80\x80", true},
      {"\xf4\x8f\xbf\xbf", true},
      {"\x80", false},
      {"\xc1\xbf", false},
      {"\xe0\x9f\xbf", false},
      {"\xed\xa0\x80", false},
      {"\xf0\x8f\xbf\xbf", false},
      {"\xf4\x90\x80\x80", false},
      {"\xf5\x80\x80\x80", false},
      {"\xc2", false},
      {"\xe1\x80", false},
      {"\xf1\x80\x80", false},
      {"\xff", false},
      {"\xe1\x80x", false},
  };
  for (const auto& [text, isValid] : texts) {
    const std::string configuration = std::string(R"({"entities":[],"x":")") + text + "\"}";
    const morvix_status status =
        morvix_entities(configuration.data(), configuration.size(), &outputs_.first, &outputs_.message);
    const std::string message = Take(outputs_.message);
    Take(outputs_.first);
    EXPECT_EQ(status, isValid ? MORVIX_OK : MORVIX_BAD_INPUT) << Digits(text);
    EXPECT_EQ(message, isValid ? "" : "the configuration is not UTF-8 at byte 20");
  }
}

TEST_F(CInterface, RejectsJsonThatIsNestedTooDeep) {
  for (const int depth : {5000, 200000}) {
    const std::string text(static_cast<size_t>(depth), '[');
    EXPECT_EQ(morvix_entities(text.data(), text.size(), &outputs_.first, &outputs_.message), MORVIX_BAD_INPUT);
    EXPECT_EQ(Take(outputs_.message), "the configuration is nested too deep");
  }
}

std::string WithAttributes(const std::string& attributes) {
  return R"({"entities":[{"id":0,"name":"e","display_name":"E","attrs":[)" + attributes + "]}]}";
}

// An enum of 1000 items, whose items the parser hands on to 2000 bools. A smaller enum between them does not help where
// it is dropped, or is only read and the others are written.
TEST_F(CInterface, RejectsRecordsThatWouldFillTheMemory) {
  const std::string position = R"("position":{"byte_offset":0,"bit_offset":0,"unit":"bit","len":1})";
  const auto head = [&position](const std::string& type) {
    return R"({"id":0,"name":"a","display_name":"A","desc":"","type":")" + type + "\"," + position;
  };
  std::string large = head("status_writable") + R"(,"data_type":"enum","enum":["")";
  for (int i = 1; i < 1000; ++i) large += R"(,"")";
  large += "]}";
  std::string bools;
  for (int i = 0; i < 2000; ++i) bools += "," + head("status_writable") + R"(,"data_type":"bool"})";
  const std::string alert = "," + head("alert") + R"(,"data_type":"enum","enum":[""]})";
  for (const std::string& between : {std::string(), std::string(R"(,{"enum":[""]})"), alert}) {
    const std::string configuration = WithAttributes(large + between + bools);
    morvix_entity* entity = nullptr;
    EXPECT_EQ(morvix_entity_open(configuration.data(), configuration.size(), nullptr, &entity, &outputs_.message),
              MORVIX_BAD_INPUT);
    EXPECT_EQ(Take(outputs_.message),
              "the records of the entity would hold 2001000 enum items, since every attribute inherits those of the "
              "last enum before it; expected at most 2000000");
  }
  Open(WithAttributes(large + "," + head("status_writable") + R"(,"data_type":"enum","enum":[""]})" + bools));
}

TEST_F(CInterface, NamesTheLimitOfWhichTheParserThrows) {
  const std::string number = R"("name":"a","display_name":"A","desc":"","type":"alert","data_type":"uint8",)"
                             R"("position":{"byte_offset":0,"bit_offset":0,"unit":"byte","len":1},"uint_spec":)";
  // The first one is dropped for its id before anybody looks at its limits.
  const std::string configuration =
      WithAttributes("{" + number + R"({"min":{}}},{"id":1,)" + number + R"({"min":0,"max":[],"ratio":1}})");
  morvix_entity* entity = nullptr;
  EXPECT_EQ(morvix_entity_open(configuration.data(), configuration.size(), nullptr, &entity, &outputs_.message),
            MORVIX_BAD_INPUT);
  EXPECT_EQ(Take(outputs_.message), "\"max\" of attrs[1] is an array; expected a number");
}

TEST_F(CInterface, TakesACutCharacterInAName) {
  const std::string configuration = WithAttributes("");
  morvix_entity* entity = nullptr;
  EXPECT_EQ(morvix_entity_open(configuration.data(), configuration.size(), "\xc2", &entity, &outputs_.message),
            MORVIX_BAD_INPUT);
  EXPECT_EQ(Take(outputs_.message), "no entity has the name '\\xc2'; expected one of: 'e'");
}

// The module's reader takes neither, other than that of the C interface.
TEST_F(CInterface, RejectsDocumentsThatTheModuleDoesNotRead) {
  for (const std::string document : {R"({"version":4.0,})", R"({"version":4.0,"e":{"a":[1,]}})",
                                     "\xef\xbb\xbf{\"version\":4.0}", R"({"version":4.0,"e":+1})"}) {
    EXPECT_EQ(morvix_convert(document.data(), document.size(), &outputs_.first, &outputs_.second, &outputs_.message),
              MORVIX_BAD_INPUT)
        << document;
    EXPECT_EQ(Take(outputs_.message).rfind("the document is not JSON: Line 1, Column ", 0), 0u) << document;
  }
}

TEST_F(CInterface, RefusesAWriteThatNoPacketHolds) {
  const Entity entity = Open(
      WithAttributes(R"({"id":0,"name":"a","display_name":"A","desc":"","type":"status_writable","data_type":"bool",)"
                     R"("position":{"byte_offset":2147483000,"bit_offset":0,"unit":"bit","len":1}})"));
  const std::string values = R"({"e":{"a":true}})";
  EXPECT_EQ(morvix_encode(entity.get(), values.data(), values.size(), 1, nullptr, &outputs_.first, &outputs_.message),
            MORVIX_REFUSED);
  EXPECT_EQ(Take(outputs_.message),
            "'e': 2147483001 bytes of payload for 1 writable attributes are more than a packet holds; expected at most "
            "16384 for 8192");
}

// ---- Logging -----------------------------------------------------------------------------------------------------

using Lines = std::vector<std::string>;

void AddLine(void* context, int level, const char* function, const char* line) {
  const char* name = function == nullptr ? "" : function;
  static_cast<Lines*>(context)->push_back(std::to_string(level) + " " + name + ": " + line);
}

class CInterfaceLog : public CInterface {
 protected:
  ~CInterfaceLog() override { morvix_set_log(nullptr, nullptr, 0); }
  Lines lines_;
};

TEST_F(CInterfaceLog, GetsTheLinesOfItsLevel) {
  const std::vector<byte> bad = {4, 7, 0};
  for (const int level : {0, 1, 2}) {
    lines_.clear();
    morvix_set_log(AddLine, &lines_, level);
    Open(Example("kettle.json"));
    EXPECT_EQ(morvix_decode(kettle_.get(), bad.data(), bad.size(), &outputs_.first, nullptr), MORVIX_OK);
    Take(outputs_.first);
    Lines expected;
    if (level > 1) expected.push_back("2 : Filter entity: id='0' name='kettle' display_name='Kettle'");
    if (level > 0) expected.push_back("1 ProtocolDecodeEntity_4_0: Invalid enum value: 3, range: 0-3");
    EXPECT_EQ(lines_, expected);
  }
}

TEST_F(CInterfaceLog, GetsTheLinesOfManyPackets) {
  morvix_set_log(AddLine, &lines_, 1);
  const std::vector<byte> bad = {4, 7, 0, 4, 7, 0};
  const size_t offsets[] = {0, 3, 6};
  double values[14];
  uint8_t refused[2];
  ASSERT_EQ(morvix_receive_many(kettle_.get(), bad.data(), offsets, 2, &outputs_.first), MORVIX_OK);
  Take(outputs_.first);
  ASSERT_EQ(morvix_receive_table(kettle_.get(), bad.data(), offsets, 2, values, refused), MORVIX_OK);
  EXPECT_EQ(lines_, Lines(4, "1 ProtocolDecodeEntity_4_0: Invalid enum value: 3, range: 0-3"));
}

TEST_F(CInterfaceLog, DoesNotReachTheHostServicesOfTheProgram) {
  const LogCapture log;
  const std::vector<byte> bad = {4, 7, 0};
  EXPECT_EQ(morvix_decode(kettle_.get(), bad.data(), bad.size(), &outputs_.first, nullptr), MORVIX_OK);
  Take(outputs_.first);
  EXPECT_EQ(log.Lines(), LogLines());
}

TEST_F(CInterfaceLog, DoesNotFailACallWhenItThrows) {
  morvix_set_log([](void*, int, const char*, const char*) { throw std::runtime_error("made up"); }, nullptr, 2);
  const std::vector<byte> bad = {4, 7, 0};
  EXPECT_EQ(morvix_decode(kettle_.get(), bad.data(), bad.size(), &outputs_.first, &outputs_.message), MORVIX_OK);
  Take(outputs_.first);
  EXPECT_EQ(Take(outputs_.message), "Invalid enum value: 3, range: 0-3");
}

// ---- Threads -----------------------------------------------------------------------------------------------------

TEST_F(CInterfaceLog, LetsThreadsShareAnEntityWhileTheSinkChanges) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  std::atomic<int> lines{0};
  const auto count = [](void* context, int, const char*, const char*) { ++*static_cast<std::atomic<int>*>(context); };
  morvix_set_log(count, &lines, 1);
  const std::string configuration = Example("kettle.json");
  const auto work = [&] {
    const std::vector<byte> packets = {4, 5, 0x5a, 4, 0x64, 1, 1, 4, 7, 0};
    const size_t offsets[] = {0, 7, 10};
    for (int i = 0; i < kRounds; ++i) {
      Outputs outputs;
      double values[14];
      uint8_t refused[2];
      EXPECT_EQ(morvix_encode(kettle_.get(), values_.data(), values_.size(), 1, nullptr, &outputs.first, nullptr),
                MORVIX_OK);
      EXPECT_EQ(Digits(Take(outputs.first)), "01010100");
      EXPECT_EQ(morvix_receive(kettle_.get(), packets.data(), 7, &outputs.first, &outputs.second, &outputs.message),
                MORVIX_OK);
      EXPECT_EQ(Take(outputs.second),
                R"({"alerts":[{"name":"Low water","value":1}],"faults":[{"name":"Sensor broken","value":1}]})");
      Take(outputs.first);
      EXPECT_EQ(morvix_receive_many(kettle_.get(), packets.data(), offsets, 2, &outputs.first), MORVIX_OK);
      Take(outputs.first);
      EXPECT_EQ(morvix_receive_table(kettle_.get(), packets.data(), offsets, 2, values, refused), MORVIX_OK);
      EXPECT_EQ(values[6], 92.4);
      if (i % 20 == 0) Open(configuration);
    }
  };
  std::atomic<int> running{kThreads};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      work();
      --running;
    });
  }
  while (running > 0) {
    morvix_set_log(count, &lines, 1);
    std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(lines, kThreads * kRounds * 2);
}

}  // namespace
