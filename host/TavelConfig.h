/// @file
/// The host's configuration: the devices it knows and whether it is a debug build.

#ifndef MORVIX_HOST_TAVEL_CONFIG_H
#define MORVIX_HOST_TAVEL_CONFIG_H

#include <json/value.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

/// The one configuration of the process. All members may be called from several threads at once.
class TavelConfig {
 public:
  /// The instance; never null, never destroyed.
  static TavelConfig* sharedInstance();

  TavelConfig(const TavelConfig&) = delete;
  TavelConfig& operator=(const TavelConfig&) = delete;

  /// The known devices: what SetAllDevices or LoadFromFile set last, null at first. Never a null pointer. The value
  /// belongs to the configuration and stays valid and unchanged, whatever is set meanwhile, until the calling thread
  /// calls this again (ProtocolFilterDevices_4_0 does) or ends. Do not call it from destructors of static objects: the
  /// thread's part of the configuration no longer exists then.
  const Json::Value* GetAllDevices();

  /// True when the host is a debug build, which selects one of a device's product keys. False at first.
  bool IsDebug();

  /// Replaces the known devices by a copy of `devices`, which should be an array of device descriptions or null.
  void SetAllDevices(const Json::Value& devices);

  /// Sets the result of IsDebug.
  void SetDebug(bool debug);

  /// Reads both from a JSON file, {"debug": bool, "devices": [...]}; "debug" is false when it is missing or null. On
  /// failure the result is false, `error` names the file and the reason in one line, and nothing changes.
  bool LoadFromFile(const std::string& path, std::string& error);

 private:
  TavelConfig();

  std::mutex mutex_;  // guards devices_
  std::shared_ptr<const Json::Value> devices_;
  std::atomic<bool> debug_{false};
};

#endif
