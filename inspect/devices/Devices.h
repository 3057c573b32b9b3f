// The module's queries over a list of known devices, as lines of JSON.

#ifndef MORVIX_INSPECT_DEVICES_DEVICES_H
#define MORVIX_INSPECT_DEVICES_DEVICES_H

#include <string>

#include "inspect/json/Document.h"

namespace morvix::inspect {

// Sets the known devices of the host's configuration from a list: {"debug": bool, "devices": [...]}, or just the array.
// Throws InputError when the list has another form.
void UseDevices(const json::Document& list);

// The results of a query, one line of JSON each; empty, with `problem` set, when nothing was found.

// The devices that speak a protocol at a packet version, a string like "0x4". Throws InputError when the version
// has another form.
std::string FilterDevices(const std::string& protocol, const std::string& packetVersion, std::string& problem);

// The first device with a product key.
std::string FindDevice(const std::string& key, std::string& problem);

// The product keys of all devices.
std::string ListProductKeys(std::string& problem);

}  // namespace morvix::inspect

#endif
