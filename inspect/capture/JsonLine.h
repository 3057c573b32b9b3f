// Lines of a capture that are JSON objects, with a packet in one of their members.

#ifndef MORVIX_INSPECT_CAPTURE_JSON_LINE_H
#define MORVIX_INSPECT_CAPTURE_JSON_LINE_H

#include <string>

#include "inspect/packets/Packet.h"

namespace morvix::inspect {

struct JsonLine {
  bool hasOthers = false;  // members besides the packet
  bool hasPacket = false;  // the member is there and is a string
  std::string before;      // the text around its value, or around where it would stand, without control characters
  std::string packet;
  std::string after;
  std::string time;  // of a member "time", as text; empty when there is none
};

// Control characters, which JSON forbids, are read as blanks and shown as escapes. False, with `error` and its column,
// when the line is not a JSON object. `error` is set as well when the object's member of this name is not a string.
bool ReadJsonLine(const std::string& line, const std::string& member, JsonLine& parts, HexError& error);

}  // namespace morvix::inspect

#endif
