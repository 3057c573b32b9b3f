// dp4 devices: the module's queries over a list of known devices.
//
// One line of JSON a result: a device, or with --keys a product key. A list file is what the host's configuration
// reads,
// {"debug": bool, "devices": [...]}, or just the array.

#include <ostream>

#include "Commands.h"
#include "Similar.h"
#include "Text.h"
#include "host/TavelConfig.h"

namespace dp4 {

namespace {

// What the file holds is checked as the host's configuration checks it.
void LoadList(const std::string& path) {
  TavelConfig& config = *TavelConfig::sharedInstance();
  const JsonText list = ReadJsonFile(path);
  if (list.root.isArray()) {
    config.SetAllDevices(list.root);
    return;
  }
  if (!list.root.isObject() || !list.root["devices"].isArray()) {
    throw UsageError(list.NameOf(list.root) + ": expected an array of devices, or an object with an array \"devices\"");
  }
  const Json::Value& debug = list.root["debug"];
  if (!debug.isNull() && !debug.isBool()) {
    throw UsageError(list.NameOf(debug) + ": expected true or false for \"debug\"");
  }
  config.SetAllDevices(list.root["devices"]);
  config.SetDebug(debug.isBool() && debug.asBool());
}

// The module reads the text; this is about what it would read as something else than what stands there.
dword PacketVersionOf(const std::string& text) {
  constexpr size_t kMostDigits = 8;
  const bool isHex = text.compare(0, 2, "0x") == 0 && text.size() > 2 && text.size() <= 2 + kMostDigits &&
                     text.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
  Json::Value options;
  options["packetVersion"] = text;
  dword version = 0;
  if (!isHex || !ProtocolGetAttrHex_4_0(options, "packetVersion", version)) {
    throw UsageError("--packet-version " + Escaped(text) + ": expected 0x and up to 8 hexadecimal digits, like 0x4");
  }
  return version;
}

int NotFound(const DevicesOptions& options, const std::string& message, std::ostream& err) {
  err << "dp4: " << FileName(options.list) << ": " << message << '\n';
  return kProblems;
}

int Filter(const DevicesOptions& options, std::ostream& out, std::ostream& err) {
  Json::Value devices;
  if (!ProtocolFilterDevices_4_0(options.protocol.c_str(), PacketVersionOf(options.packetVersion), devices) ||
      devices.empty()) {
    return NotFound(options,
                    "no device speaks " + InQuotes(options.protocol) + " at packet version " + options.packetVersion +
                        " (letter case counts)",
                    err);
  }
  for (const Json::Value& device : devices) out << CompactText(device) << '\n';
  return kFine;
}

int Find(const DevicesOptions& options, std::ostream& out, std::ostream& err) {
  const Json::Value& devices = *TavelConfig::sharedInstance()->GetAllDevices();
  Json::Value device;
  if (!ProtocolGetDevice_4_0(devices, options.find.c_str(), device)) {
    return NotFound(options,
                    "no device has the product key " + InQuotes(options.find) +
                        DidYouMean(options.find, ProtocolGetProductList_4_0(devices)),
                    err);
  }
  out << CompactText(device) << '\n';
  return kFine;
}

int ListKeys(const DevicesOptions& options, std::ostream& out, std::ostream& err) {
  const std::vector<std::string> keys = ProtocolGetProductList_4_0(*TavelConfig::sharedInstance()->GetAllDevices());
  if (keys.empty()) return NotFound(options, "no device has a product key", err);
  for (const std::string& key : keys) out << CompactText(key) << '\n';
  return kFine;
}

}  // namespace

int Devices(const DevicesOptions& options, std::ostream& out, std::ostream& err) {
  LoadList(options.list);
  if (options.build != 0) TavelConfig::sharedInstance()->SetDebug(options.build > 0);
  if (options.keys) return ListKeys(options, out, err);
  if (options.protocol.empty() && options.packetVersion.empty()) return Find(options, out, err);
  return Filter(options, out, err);
}

}  // namespace dp4
