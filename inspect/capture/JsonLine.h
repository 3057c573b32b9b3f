// Lines of a capture that are JSON objects with a packet among their members.

#ifndef MORVIX_INSPECT_CAPTURE_JSON_LINE_H
#define MORVIX_INSPECT_CAPTURE_JSON_LINE_H

#include <string>

#include "inspect/packets/Packet.h"

namespace morvix::inspect {

struct JsonLine {
  bool hasOthers = false;  // members besides the packet
  std::string before;      // the text around the value of the packet, without control characters
  std::string packet;
  std::string after;
};

// Control characters, which JSON forbids, are read as blanks and shown as escapes. False, with `error` and its column,
// when the line is not a JSON object with a string "packet".
bool ReadJsonLine(const std::string& line, JsonLine& parts, HexError& error);

}  // namespace morvix::inspect

#endif
