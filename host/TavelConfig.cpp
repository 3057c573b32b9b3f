#include "host/TavelConfig.h"

#include <json/reader.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

namespace {

bool Fail(std::string& error, const std::string& path, const std::string& reason) {
  error = path + ": " + reason;
  std::replace(error.begin(), error.end(), '\n', ' ');
  return false;
}

// Text without a trailing line end.
std::string Trimmed(std::string text) {
  text.erase(text.find_last_not_of('\n') + 1);
  return text;
}

}  // namespace

TavelConfig::TavelConfig() : devices_(std::make_shared<const Json::Value>()) {}

TavelConfig* TavelConfig::sharedInstance() {
  static auto* const instance = new TavelConfig;
  return instance;
}

const Json::Value* TavelConfig::GetAllDevices() {
  // Keeps alive the list that this thread got last, even if another thread sets a new one.
  thread_local std::shared_ptr<const Json::Value> inUse;
  std::shared_ptr<const Json::Value> current;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    current = devices_;
  }
  inUse = std::move(current);
  return inUse.get();
}

bool TavelConfig::IsDebug() { return debug_; }

void TavelConfig::SetAllDevices(const Json::Value& devices) {
  auto next = std::make_shared<const Json::Value>(devices);
  const std::lock_guard<std::mutex> lock(mutex_);
  devices_.swap(next);
}

void TavelConfig::SetDebug(bool debug) { debug_ = debug; }

bool TavelConfig::LoadFromFile(const std::string& path, std::string& error) {
  std::string text;
  std::vector<char> block(65536);
  std::ifstream file(path, std::ios::binary);
  while (file.read(block.data(), static_cast<std::streamsize>(block.size())) || file.gcount() != 0) {
    text.append(block.data(), static_cast<size_t>(file.gcount()));
  }
  if (!file.is_open() || file.bad()) {  // a directory opens, but reading it fails
    return Fail(error, path, "cannot be read: " + std::generic_category().message(errno));
  }
  Json::Value root;
  try {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string problems;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &problems)) {
      return Fail(error, path, "is not JSON: " + Trimmed(problems));
    }
  } catch (const Json::Exception& exception) {  // nested too deep
    return Fail(error, path, std::string("is not JSON: ") + exception.what());
  }
  // The reader takes a NUL for the end of the text.
  if (text.find('\0', static_cast<size_t>(root.getOffsetLimit())) != std::string::npos) {
    return Fail(error, path, "is not JSON: a NUL after the document");
  }
  if (!root.isObject()) return Fail(error, path, "should hold an object with \"debug\" and \"devices\"");
  const Json::Value& debug = root["debug"];
  if (!debug.isNull() && !debug.isBool()) return Fail(error, path, "\"debug\" should be true or false");
  Json::Value& devices = root["devices"];
  if (!devices.isArray()) return Fail(error, path, "\"devices\" should be an array");
  SetAllDevices(devices);
  SetDebug(debug.isBool() && debug.asBool());
  return true;
}
