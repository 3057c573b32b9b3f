#include "inspect/capture/JsonLine.h"

#include <json/reader.h>

#include <algorithm>
#include <memory>

#include "inspect/json/Scan.h"
#include "inspect/model/BitRange.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

bool ParseStrictly(const std::string& text, Json::Value& value, std::string& report) {
  static const Json::CharReaderBuilder builder = [] {
    Json::CharReaderBuilder strict;
    Json::CharReaderBuilder::strictMode(&strict.settings_);
    return strict;
  }();
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  return reader->parse(text.data(), text.data() + text.size(), &value, &report);
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '\x7f'; }

// Part of a JSON text with the control characters in its strings escaped, and blanks for those between them, so that it
// cannot steer a terminal.
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
  size_t offset = 0;
  std::string message;
  if (!json::IsStrictJson(line, offset, message)) {
    error = {offset + 1, "not JSON: " + Escaped(message)};
    return false;
  }
  Json::Value object;
  try {
    std::string report;
    if (!ParseStrictly(line, object, report)) {
      const json::SyntaxError first = json::FirstError(report);
      error = {first.place.column, "not JSON: " + first.message};
      return false;
    }
  } catch (const Json::Exception&) {
    error = {1, "not JSON: nested too deep"};
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
