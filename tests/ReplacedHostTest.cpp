// The module with another host: none of the default host services is linked.

#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/Base64.h"
#include "host/Logging.h"
#include "host/TavelConfig.h"
#include "host/Text.h"

namespace {

std::string encodedText;                 // what the encoder below gives for any bytes
uint32_t encoderCapacity = 0;            // what it was told last
int buildQuestions = 0;                  // how often the build kind was asked for
std::vector<std::string> loggedFormats;  // of every line
std::vector<std::string> lowerCased;     // every text that was to be lower-cased

}  // namespace

void logMsg(int, const char* format, ...) { loggedFormats.emplace_back(format); }

void logMsgEx(int, const char*, const char* format, ...) { loggedFormats.emplace_back(format); }

// Returns a string of its own, as a host may: the result need not be the buffer.
char* __internal_base64_encode(char*, uint32_t capacity, const byte*, size_t) {
  encoderCapacity = capacity;
  return encodedText.data();
}

int __internal_base64_decode(byte* output, const char* text, uint32_t capacity) {
  const size_t size = std::min<size_t>(std::strlen(text), capacity);
  std::memcpy(output, text, size);
  return static_cast<int>(size);
}

// Lets keywords as they are, so that those in upper case are unknown.
char* strlwr(char* text) {
  lowerCased.emplace_back(text);
  return text;
}

TavelConfig::TavelConfig() : devices_(std::make_shared<const Json::Value>(Json::arrayValue)) {}

TavelConfig* TavelConfig::sharedInstance() {
  static TavelConfig instance;
  return &instance;
}

const Json::Value* TavelConfig::GetAllDevices() { return devices_.get(); }

bool TavelConfig::IsDebug() {
  ++buildQuestions;
  return true;
}

namespace {

struct Product {
  Product() {
    Json::Value entity;
    std::string errors;
    const std::string text = R"({"id": 1, "name": "main", "display_name": "Main", "attrs": [
      {"id": 0, "name": "raw", "display_name": "Raw", "desc": "", "type": "status_writable", "data_type": "binary",
       "position": {"byte_offset": 0, "bit_offset": 0, "unit": "byte", "len": 3}},
      {"id": 1, "name": "code", "display_name": "Code", "desc": "", "type": "alert", "data_type": "binary",
       "position": {"byte_offset": 0, "bit_offset": 0, "unit": "byte", "len": 3}},
      {"id": 2, "name": "loud", "display_name": "Loud", "desc": "", "type": "ALERT", "data_type": "bool",
       "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}}]})";
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &entity, &errors)) << errors;
    EXPECT_TRUE(ProtocolParseEntity_4_0(entity, 15, attributes, info));
  }

  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 info;
};

const byte kPacket[] = {4, 'a', 'b', 'c'};

}  // namespace

TEST(ReplacedHost, LowerCasesKeywords) {
  loggedFormats.clear();
  lowerCased.clear();
  const Product product;
  EXPECT_EQ(product.attributes.size(), 2u) << "ALERT stays as it is, and is not a keyword";
  EXPECT_EQ(loggedFormats, (std::vector<std::string>{"Filter entity: id='%i' name='%s' display_name='%s'",
                                                     "Warning: '%s' is invalid, skip."}));
  // A copy of every keyword that is compared, whatever it looks like; both of an attribute before either counts.
  EXPECT_EQ(lowerCased, (std::vector<std::string>{"status_writable", "binary", "byte", "alert", "binary", "byte",
                                                  "ALERT", "bool"}));
}

TEST(ReplacedHost, DecodesBase64IntoTheFieldItself) {
  const Product product;
  Json::Value values;
  values["main"]["raw"] = "xyzw";
  MorvixProtocolPackage_4_0 package;
  ProtocolEncodeAttributes_4_0(product.info, {product.attributes[0]}, package, values);
  ASSERT_EQ(package.sizeValue, 3u);
  EXPECT_EQ(std::memcmp(package.value, "xyz", 3), 0);
  std::free(package.flags);
  std::free(package.value);
}

TEST(ReplacedHost, MayEncodeBytesAsAnyText) {
  const Product product;
  const struct {
    const char* text;
    const char* document;
    int32_t active;
  } cases[] = {
      {"plain", R"({"main":{"raw":"plain"},"version":4.0})", 0},
      {"12 \"quoted\"", R"({"main":{"raw":"12 \"quoted\""},"version":4.0})", 12},
      {"-3\\", R"({"main":{"raw":"-3\\"},"version":4.0})", -3},
      {"7\xc3\xa9", R"({"main":{"raw":"7\u00e9"},"version":4.0})", 7},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.text);
    encodedText = test.text;
    std::string document;
    std::vector<TavelReceiveInfo> alerts;
    std::vector<TavelReceiveInfo> faults;
    ASSERT_TRUE(
        ProtocolReceivePacket_4_0(product.info, product.attributes, kPacket, sizeof kPacket, document, alerts, faults));
    EXPECT_EQ(document, test.document + std::string("\n"));
    ASSERT_EQ(alerts.size(), test.active == 0 ? 0u : 1u);
    if (test.active != 0) {
      EXPECT_EQ(alerts[0].name, "Code");
      EXPECT_EQ(alerts[0].value, test.active);
    }
    EXPECT_TRUE(faults.empty());
  }
}

TEST(ReplacedHost, MayEncodeOnlyAlertsAsTextThatIsNotPlain) {
  Product product;
  product.attributes.erase(product.attributes.begin());
  encodedText = "5\t";
  std::string document;
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;
  ASSERT_TRUE(
      ProtocolReceivePacket_4_0(product.info, product.attributes, kPacket, sizeof kPacket, document, alerts, faults));
  EXPECT_EQ(document, "{\"main\":{},\"version\":4.0}\n");
  ASSERT_EQ(alerts.size(), 1u);
  EXPECT_EQ(alerts[0].value, 5);
}

TEST(ReplacedHost, MayEncodeOnlyAStatusAsTextThatIsNotPlain) {
  Product product;
  product.attributes.pop_back();
  encodedText = "\"quoted\"";
  std::string document;
  std::vector<TavelReceiveInfo> active;
  ASSERT_TRUE(
      ProtocolReceivePacket_4_0(product.info, product.attributes, kPacket, sizeof kPacket, document, active, active));
  EXPECT_EQ(document, R"({"main":{"raw":"\"quoted\""},"version":4.0})" + std::string("\n"));
}

TEST(ReplacedHost, HasRoomForTwiceTheBytesAndNineMore) {
  const Product product;
  MorvixProtocolPackage_4_0 package;
  byte payload[] = {'a', 'b', 'c'};
  package.value = payload;
  package.sizeValue = sizeof payload;
  Json::Value document;
  ProtocolDecodeAttributes_4_0(product.info, product.attributes, package, document);
  EXPECT_EQ(encoderCapacity, 15u);
}

TEST(ReplacedHost, IsAskedForTheBuildOnlyWhenThereIsAKeyForEach) {
  Json::Value device;
  for (const Json::Value& key : {Json::Value("k"), Json::Value(""), Json::Value(5), Json::Value(Json::arrayValue)}) {
    device["product_key"] = key;
    buildQuestions = 0;
    ProtocolGetProductKey_4_0(device);
    EXPECT_EQ(buildQuestions, 0);
  }
  device["product_key"] = Json::Value(Json::objectValue);
  ProtocolGetProductKey_4_0(device);
  EXPECT_EQ(buildQuestions, 1);
}

TEST(ReplacedHost, SaysWhichBuildItIs) {
  Json::Value device;
  device["product_key"]["debug"] = "d";
  device["product_key"]["release"] = "r";
  EXPECT_EQ(ProtocolGetProductKey_4_0(device), "d");
  Json::Value devices;
  EXPECT_TRUE(ProtocolFilterDevices_4_0("any", 4, devices));
  EXPECT_EQ(devices, Json::Value(Json::arrayValue));
}
