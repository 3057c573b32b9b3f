// The module's queries over a list of known devices.

#ifndef MORVIX_INSPECT_DEVICES_DEVICES_H
#define MORVIX_INSPECT_DEVICES_DEVICES_H

#include <string>

#include "inspect/json/Document.h"

namespace morvix::inspect {

// Sets the known devices of the host's configuration from a list: {"debug": bool, "devices": [...]}, or just the array.
// Throws InputError when the list has another form.
void UseDevices(const json::Document& list);

// The results of a query, an array; empty, with `problem` set, when nothing was found.

// The devices that speak a protocol at a packet version, a string like "0x4". Throws InputError when the version
// has another form.
Json::Value FilterDevices(const std::string& protocol, const std::string& packetVersion, std::string& problem);

// The first device with a product key.
Json::Value FindDevice(const std::string& key, std::string& problem);

// The product keys of all devices.
Json::Value ListProductKeys(std::string& problem);

// The results in one form each: a line of JSON for each result; one array; comma-separated values.
std::string ResultLines(const Json::Value& results);
std::string ResultJson(const Json::Value& results);
// Devices have a column for each member that one of them has; of a product key that depends on the build, JSON. Keys
// have one column.
std::string ResultCsv(const Json::Value& results);

}  // namespace morvix::inspect

#endif
