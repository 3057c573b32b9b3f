#include "inspect/devices/Devices.h"

#include <set>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/TavelConfig.h"
#include "inspect/text/Csv.h"
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

Json::Value FilterDevices(const std::string& protocol, const std::string& packetVersion, std::string& problem) {
  Json::Value devices;
  static_cast<void>(ProtocolFilterDevices_4_0(protocol.c_str(), PacketVersionOf(packetVersion), devices));
  if (devices.empty()) {
    problem =
        "no device speaks " + InQuotes(protocol) + " at packet version " + packetVersion + " (letter case counts)";
  }
  return devices;
}

Json::Value FindDevice(const std::string& key, std::string& problem) {
  const Json::Value& devices = *TavelConfig::sharedInstance()->GetAllDevices();
  Json::Value found(Json::arrayValue);
  Json::Value device;
  if (ProtocolGetDevice_4_0(devices, key.c_str(), device)) {
    found.append(device);
    return found;
  }
  problem = "no device has the product key " + InQuotes(key) + DidYouMean(key, ProtocolGetProductList_4_0(devices));
  return found;
}

Json::Value ListProductKeys(std::string& problem) {
  Json::Value keys(Json::arrayValue);
  for (const std::string& key : ProtocolGetProductList_4_0(*TavelConfig::sharedInstance()->GetAllDevices())) {
    keys.append(key);
  }
  if (keys.empty()) problem = "no device has a product key";
  return keys;
}

std::string ResultLines(const Json::Value& results) {
  std::string lines;
  for (const Json::Value& result : results) lines += json::CompactText(result) + '\n';
  return lines;
}

std::string ResultJson(const Json::Value& results) { return json::CompactText(results) + '\n'; }

std::string ResultCsv(const Json::Value& results) {
  const auto textOf = [](const Json::Value& value) {
    return value.isString() ? value.asString() : value.isNull() ? "" : json::CompactText(value);
  };
  std::set<std::string> members;
  for (const Json::Value& result : results) {
    if (!result.isObject()) continue;
    for (const std::string& name : result.getMemberNames()) members.insert(name);
  }
  if (members.empty()) members = {"product_key"};
  std::string text = CsvRow({members.begin(), members.end()});
  for (const Json::Value& result : results) {
    std::vector<std::string> cells;
    cells.reserve(members.size());
    for (const std::string& name : members) cells.push_back(textOf(result.isObject() ? result[name] : result));
    text += CsvRow(cells);
  }
  return text;
}

}  // namespace morvix::inspect
