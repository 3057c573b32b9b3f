/// @file
/// The host's configuration: the devices it knows and whether it is a debug build.

#ifndef MORVIX_HOST_TAVEL_CONFIG_H
#define MORVIX_HOST_TAVEL_CONFIG_H

#include <json/value.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

/// The one configuration of the process. All members are safe to call from any number of threads at once.
class TavelConfig {
 public:
  /// The instance; never null, never destroyed.
  static TavelConfig* sharedInstance();

  TavelConfig(const TavelConfig&) = delete;
  TavelConfig& operator=(const TavelConfig&) = delete;

  /// The known devices: what SetAllDevices or LoadFromFile gave last, null at first. Never a null pointer. The value is
  /// the configuration's own and stays valid and unchanged, whatever is set meanwhile, until the calling thread's next
  /// call of this operation (ProtocolFilterDevices_4_0 makes one) or its end. Not to be called by destructors of static
  /// objects: the thread's part of the configuration is gone by then.
  const Json::Value* GetAllDevices();

  /// True when the host runs as a debug build, which selects among a device's product keys. False at first.
  bool IsDebug();

  /// Replaces the known devices by a copy of `devices`, which should be an array of device descriptions or null.
  void SetAllDevices(const Json::Value& devices);

  /// Sets what IsDebug gives.
  void SetDebug(bool debug);

  /// Reads both from a JSON file, {"debug": bool, "devices": [...]}; "debug" is false when it is missing or null. On
  /// failure the result is false, `error` says in one line what is wrong with which file, and nothing changes.
  bool LoadFromFile(const std::string& path, std::string& error);

 private:
  TavelConfig();

  std::mutex mutex_;  // guards devices_
  std::shared_ptr<const Json::Value> devices_;
  std::atomic<bool> debug_{false};
};

#endif
