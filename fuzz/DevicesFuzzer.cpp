// A list of devices: a value for the host's configuration, and a file for it and for the tool. The first byte tells
// whether the host is a debug build.

#include <sys/mman.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "Support.h"
#include "host/TavelConfig.h"
#include "inspect/json/Document.h"
#include "inspect/text/Error.h"
#include "tools/dp4/Commands.h"

namespace {

// A file in memory, made once.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("devices", 0)) {
    if (descriptor_ < 0) fuzz::Fail("there is a file", "");
  }

  void Hold(const char* data, size_t size) {
    if (ftruncate(descriptor_, 0) != 0 || pwrite(descriptor_, data, size, 0) != static_cast<ssize_t>(size)) {
      fuzz::Fail("the file can be written", "");
    }
  }

  std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

TavelConfig& Config() { return *TavelConfig::sharedInstance(); }

// A product key as it is told in the documentation, read with the model's readers.
std::string ExpectedKey(const Json::Value& device) {
  std::string key;
  if (model::ReadText(device, "product_key", key)) return key.empty() ? "Default" : key;
  Json::Value builds;
  if (!model::ReadObject(device, "product_key", builds)) return "";
  model::ReadText(builds, Config().IsDebug() ? "debug" : "release", key);
  return key;
}

void CheckFilter(const Json::Value& devices, const std::string& protocol, dword version) {
  Json::Value found = "left from before";
  const bool isFiltered = ProtocolFilterDevices_4_0(protocol.c_str(), version, found);
  const std::string name = protocol.c_str();
  Json::Value expected(Json::arrayValue);
  for (Json::ArrayIndex i = 0; devices.isArray() && !name.empty() && i < devices.size(); ++i) {
    std::string spoken;
    dword spokenVersion = 0;
    if (model::ReadText(devices[i], "protocolType", spoken) &&
        model::ReadHex(devices[i], "packetVersion", spokenVersion) && spoken == name && spokenVersion == version) {
      expected.append(devices[i]);
    }
  }
  fuzz::ExpectEqual(found, expected, "the filter gives the devices of that protocol and version, in order");
  fuzz::ExpectEqual(isFiltered, !devices.isNull() && !name.empty(), "the filter fails without a list or a name");
}

void CheckSearch(const Json::Value& devices, const std::string& key) {
  const Json::Value before = "left from before";
  Json::Value device = before;
  const bool isFound = ProtocolGetDevice_4_0(devices, key.c_str(), device);
  const std::string wanted = key.c_str();
  const bool canSearch = devices.isArray() && !devices.empty() && !wanted.empty();
  Json::Value expected = canSearch ? devices[devices.size() - 1] : before;
  bool isExpected = false;
  for (Json::ArrayIndex i = 0; canSearch && !isExpected && i < devices.size(); ++i) {
    isExpected = devices[i].isObject() && ExpectedKey(devices[i]) == wanted;
    if (isExpected) expected = devices[i];
  }
  fuzz::ExpectEqual(isFound, isExpected, "a device is found by its key");
  fuzz::ExpectEqual(device, expected, "the device is the first of that key, or the last of all");
}

std::vector<std::string> CheckKeys(const Json::Value& devices) {
  std::vector<std::string> expected;
  for (Json::ArrayIndex i = 0; devices.isArray() && i < devices.size(); ++i) {
    const std::string key = ProtocolGetProductKey_4_0(devices[i]);
    fuzz::ExpectEqual(key, ExpectedKey(devices[i]), "a product key is the one of the build");
    if (devices[i].isObject() && !key.empty()) expected.push_back(key);
  }
  std::vector<std::string> keys = ProtocolGetProductList_4_0(devices);
  fuzz::ExpectEqual(keys, expected, "the list of keys has every key that is not empty");
  return keys;
}

void CheckDevices(const Json::Value& devices) {
  Config().SetAllDevices(devices);
  fuzz::ExpectEqual(*Config().GetAllDevices(), devices, "the host gives the list that was set");
  CheckFilter(devices, "", 4);
  CheckFilter(devices, "data-point", 4);
  CheckSearch(devices, "");
  CheckSearch(devices, "Default");
  size_t left = 8;
  for (Json::ArrayIndex i = 0; devices.isArray() && i < devices.size() && left > 0; ++i, --left) {
    std::string protocol;
    dword version = 0;
    model::ReadText(devices[i], "protocolType", protocol);
    model::ReadHex(devices[i], "packetVersion", version);
    CheckFilter(devices, protocol, version);
    CheckFilter(devices, protocol, version + 1);
  }
  for (const std::string& key : CheckKeys(devices)) {
    if (left++ == 16) break;
    CheckSearch(devices, key);
  }
}

void CheckFile(const std::string& path, const std::string& text) {
  const Json::Value before = *Config().GetAllDevices();
  const bool wasDebug = Config().IsDebug();
  std::string error;
  const bool isLoaded = Config().LoadFromFile(path, error);
  const Json::Value after = *Config().GetAllDevices();
  if (!isLoaded) {
    if (error.empty() || error.find('\n') != std::string::npos) fuzz::Fail("an error is one line", fuzz::Show(error));
    fuzz::ExpectEqual(after, before, "a file that cannot be used changes no device");
    fuzz::ExpectEqual(Config().IsDebug(), wasDebug, "a file that cannot be used changes no build");
    return;
  }
  morvix::inspect::json::SyntaxError problem;
  const auto document = morvix::inspect::json::Document::Read("file", text, problem);
  if (!document) fuzz::Fail("a file that can be used is JSON", fuzz::Show(text));
  const Json::Value& root = document->Root();
  fuzz::ExpectEqual(after, fuzz::MemberOf(root, "devices"), "the devices are those of the file");
  fuzz::ExpectEqual(Config().IsDebug(), fuzz::MemberOf(root, "debug") == Json::Value(true), "so is the build");
}

// The lines of the tool are the module's results.
void CheckTool(const std::string& path) {
  dp4::DevicesOptions options;
  options.list = path;
  options.keys = true;
  std::istringstream in;
  std::ostringstream out;
  std::ostringstream err;
  dp4::Environment environment{in, out, err};
  try {
    const int code = dp4::Devices(options, environment);
    std::string expected;
    for (const std::string& key : ProtocolGetProductList_4_0(*Config().GetAllDevices())) {
      Json::Value value;
      expected += fuzz::Written(key);
    }
    fuzz::ExpectEqual(out.str(), expected, "the tool lists the keys");
    fuzz::ExpectEqual(code == dp4::kFine, !expected.empty(), "the tool tells that there are none");
    fuzz::ExpectEqual(err.str().empty(), code == dp4::kFine, "it does so in words");
  } catch (const morvix::inspect::InputError& error) {
    const std::string text = error.what();
    if (text.empty() || text.find('\n') != std::string::npos) fuzz::Fail("a refusal is one line", fuzz::Show(text));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static MemoryFile file;
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  Config().SetDebug(data[0] % 2 != 0);
  file.Hold(text.data(), text.size());
  CheckFile(file.Path(), text);
  CheckTool(file.Path());
  Json::Value root;
  if (!fuzz::ParseText(text, root)) return 0;
  CheckDevices(root);
  if (root.isObject()) CheckDevices(fuzz::MemberOf(root, "devices"));
  return 0;
}
