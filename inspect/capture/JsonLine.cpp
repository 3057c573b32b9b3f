#include "inspect/capture/JsonLine.h"

#include <algorithm>

#include "inspect/json/Scan.h"
#include "inspect/model/BitRange.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '\x7f'; }

// Part of a JSON document. Control characters become escapes inside strings and blanks elsewhere, so that the result
// cannot control a terminal.
std::string WithoutControls(const std::string& json) {
  std::string text;
  bool isInString = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const bool isC1 = json[i] == '\xc2' && i + 1 < json.size() && static_cast<unsigned char>(json[i + 1]) < 0xa0;
    if (!isC1 && !IsControl(json[i])) {
      text += json[i];
      if (json[i] == '"') isInString = !isInString;
      if (json[i] == '\\' && i + 1 < json.size()) text += json[++i];
    } else if (isInString) {
      const byte low = static_cast<byte>(isC1 ? json[++i] : json[i]);
      text += "\\u00" + HexText(&low, 1);
    } else {
      text += ' ';
    }
  }
  return text;
}

}  // namespace

bool ReadJsonLine(const std::string& text, JsonLine& parts, HexError& error) {
  std::string line = text;
  std::replace_if(line.begin(), line.end(), IsControl, ' ');
  Json::Value object;
  json::SyntaxError problem;
  if (!json::ReadStrict(line, object, problem)) {
    error = {problem.place.column, "not JSON: " + Escaped(problem.message)};
    return false;
  }
  if (!object.isObject() || !object["packet"].isString()) {
    error = {1, "expected a member \"packet\", a string of hexadecimal digits"};
    return false;
  }
  const Json::Value& packet = object["packet"];
  parts.hasOthers = object.size() > 1;
  parts.before = WithoutControls(text.substr(0, static_cast<size_t>(packet.getOffsetStart())));
  parts.after = WithoutControls(text.substr(static_cast<size_t>(packet.getOffsetLimit())));
  parts.packet = packet.asString();
  return true;
}

}  // namespace morvix::inspect
