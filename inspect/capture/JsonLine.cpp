#include "inspect/capture/JsonLine.h"

#include <algorithm>

#include "inspect/json/Document.h"
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

bool ReadJsonLine(const std::string& text, const std::string& member, JsonLine& parts, HexError& error) {
  std::string line = text;
  std::replace_if(line.begin(), line.end(), IsControl, ' ');
  Json::Value value;
  json::SyntaxError problem;
  if (!json::ReadStrict(line, value, problem)) {
    error = {problem.place.column, (problem.isBeyondDouble ? "" : "not JSON: ") + Escaped(problem.message)};
    return false;
  }
  if (!value.isObject()) {
    error = {1, "expected an object"};
    return false;
  }
  const Json::Value& object = value;
  const bool isMember = object.isMember(member);
  const Json::Value& packet = object[member];
  const Json::Value& time = object["time"];
  parts.hasPacket = packet.isString();
  if (!parts.hasPacket) {
    const size_t offset = isMember ? static_cast<size_t>(packet.getOffsetStart()) : 0;
    error = {offset + 1, "expected a member " + InQuotes(member) + ", a string of hexadecimal digits"};
  }
  parts.hasOthers = object.size() > (isMember ? 1 : 0);
  parts.packet = parts.hasPacket ? packet.asString() : "";
  parts.time = time.isString() || time.isNumeric() ? time.asString() : "";
  const size_t end = text.rfind('}');
  parts.before = WithoutControls(text.substr(0, isMember ? static_cast<size_t>(packet.getOffsetStart()) : end));
  parts.after = WithoutControls(text.substr(isMember ? static_cast<size_t>(packet.getOffsetLimit()) : end));
  if (isMember) return true;
  if (parts.hasOthers) parts.before += ',';
  json::AppendString(member, parts.before);
  parts.before += ':';
  return true;
}

}  // namespace morvix::inspect
