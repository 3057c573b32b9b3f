// Lines of a stream that are JSON objects with a packet among their members.

#ifndef MORVIX_DP4_JSON_LINE_H
#define MORVIX_DP4_JSON_LINE_H

#include <json/value.h>

#include <string>

#include "Packets.h"

namespace dp4 {

struct JsonLine {
  Json::Value others;  // without the packet
  std::string before;  // the text around the value of the packet
  std::string packet;
  std::string after;
};

// False with `error` and its column set when the line is no JSON object with a text "packet".
bool ReadJsonLine(const std::string& line, JsonLine& parts, HexError& error);

// A JSON text with the control characters in its strings escaped, and blanks for those between them.
std::string WithoutControls(const std::string& json);

}  // namespace dp4

#endif
