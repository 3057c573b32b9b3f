#include "inspect/devices/Devices.h"

#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/TavelConfig.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Similar.h"

namespace morvix::inspect {

namespace {

// The module parses the version itself. This rejects strings that it would misread.
dword PacketVersionOf(const std::string& text) {
  constexpr size_t kMostDigits = 8;
  const bool isHex = text.compare(0, 2, "0x") == 0 && text.size() > 2 && text.size() <= 2 + kMostDigits &&
                     text.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
  Json::Value holder;
  holder["packetVersion"] = text;
  dword version = 0;
  if (isHex && ProtocolGetAttrHex_4_0(holder, "packetVersion", version)) return version;
  throw InputError("--packet-version " + Escaped(text) + ": expected 0x and up to 8 hexadecimal digits, like 0x4");
}

std::string LinesOf(const Json::Value& values) {
  std::string lines;
  for (const Json::Value& value : values) lines += json::CompactText(value) + '\n';
  return lines;
}

}  // namespace

void UseDevices(const json::Document& list) {
  TavelConfig& config = *TavelConfig::sharedInstance();
  const Json::Value& root = list.Root();
  if (root.isArray()) return config.SetAllDevices(root);
  if (!root.isObject() || !root["devices"].isArray()) {
    throw InputError(list.PlaceName(root) + ": expected an array of devices, or an object with an array \"devices\"");
  }
  const Json::Value& debug = root["debug"];
  if (!debug.isNull() && !debug.isBool()) {
    throw InputError(list.PlaceName(debug) + ": expected true or false for \"debug\"");
  }
  config.SetAllDevices(root["devices"]);
  config.SetDebug(debug.isBool() && debug.asBool());
}

std::string FilterDevices(const std::string& protocol, const std::string& packetVersion, std::string& problem) {
  Json::Value devices;
  static_cast<void>(ProtocolFilterDevices_4_0(protocol.c_str(), PacketVersionOf(packetVersion), devices));
  if (devices.empty()) {
    problem =
        "no device speaks " + InQuotes(protocol) + " at packet version " + packetVersion + " (letter case counts)";
  }
  return LinesOf(devices);
}

std::string FindDevice(const std::string& key, std::string& problem) {
  const Json::Value& devices = *TavelConfig::sharedInstance()->GetAllDevices();
  Json::Value device;
  if (ProtocolGetDevice_4_0(devices, key.c_str(), device)) return json::CompactText(device) + '\n';
  problem = "no device has the product key " + InQuotes(key) + DidYouMean(key, ProtocolGetProductList_4_0(devices));
  return "";
}

std::string ListProductKeys(std::string& problem) {
  Json::Value keys(Json::arrayValue);
  for (const std::string& key : ProtocolGetProductList_4_0(*TavelConfig::sharedInstance()->GetAllDevices())) {
    keys.append(key);
  }
  if (keys.empty()) problem = "no device has a product key";
  return LinesOf(keys);
}

}  // namespace morvix::inspect
