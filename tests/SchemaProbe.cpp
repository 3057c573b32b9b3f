// What the module makes of a product configuration, for schema_test.py: reads one on standard input and writes
//
//   entities missing           there is no array "entities"; nothing else is looked at
//   attributes COUNT           how many attributes of all entities were taken, of all groups
//   warning TEXT               one line for each of the parser's, in order
//   thrown                     parsing an entity ended with the error that passes through the module
//   device not selected        "protocolType" or "packetVersion" is there, but no filter finds the device by them
//   device without KIND key    "product_key" is there, but a debug or release host reads no key from it
//
// to standard output. The exit code is 0 unless the input is not JSON.

#include <json/json.h>

#include <iostream>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/Logging.h"
#include "host/TavelConfig.h"

static void ProbeEntities(const Json::Value& entities) {
  size_t attributeCount = 0;
  for (const Json::Value& entity : entities) {
    constexpr int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                               MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;
    std::vector<MorvixProtocolAttribute_4_0> attributes;
    MorvixProtocolEntity_4_0 entityInfo;
    try {
      // An unusable entity shows in its warning and its missing attributes.
      static_cast<void>(ProtocolParseEntity_4_0(entity, kAllGroups, attributes, entityInfo));
    } catch (const Json::LogicError&) {
      std::cout << "thrown\n";
    }
    attributeCount += attributes.size();
  }
  std::cout << "attributes " << attributeCount << '\n';
}

// Whether the filter finds the device among the known ones when it is asked for what the device says it is.
static bool IsSelectable(const Json::Value& device) {
  std::string protocolType;
  dword packetVersion = 0;
  Json::Value devices;
  return ProtocolGetAttrString_4_0(device, "protocolType", protocolType) &&
         ProtocolGetAttrHex_4_0(device, "packetVersion", packetVersion) &&
         ProtocolFilterDevices_4_0(protocolType.c_str(), packetVersion, devices) && !devices.empty();
}

static void ProbeDevice(const Json::Value& device) {
  Json::Value devices(Json::arrayValue);
  devices.append(device);
  TavelConfig::sharedInstance()->SetAllDevices(devices);
  if ((device.isMember("protocolType") || device.isMember("packetVersion")) && !IsSelectable(device)) {
    std::cout << "device not selected\n";
  }
  for (const bool isDebug : {true, false}) {
    TavelConfig::sharedInstance()->SetDebug(isDebug);
    if (device.isMember("product_key") && ProtocolGetProductKey_4_0(device).empty()) {
      std::cout << "device without " << (isDebug ? "debug" : "release") << " key\n";
    }
  }
}

int main() {
  Json::Value configuration;
  std::string errors;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), std::cin, &configuration, &errors)) {
    std::cerr << "not JSON: " << errors;
    return 1;
  }
  SetLogSink([](int, const char*, const std::string& message) { std::cout << "warning " << message << '\n'; });
  SetLogLevel(1);

  Json::Value entities;
  if (!ProtocolGetEntitiesFromDevice_4_0(configuration, entities)) {
    std::cout << "entities missing\n";
    return 0;
  }
  ProbeEntities(entities);
  ProbeDevice(configuration);
  return 0;
}
