#include "JsonLine.h"

#include <json/reader.h>

#include <algorithm>
#include <string_view>

#include "Text.h"

namespace dp4 {

namespace {

// What JsonCpp takes and JSON does not, with its place: comments between members, numbers in forms of its own, and
// bytes that are no UTF-8. False for none.
bool FindForeign(const std::string& json, HexError& error) {
  const size_t noText = FindNoUtf8(json);
  if (noText != std::string::npos) {
    error = {noText + 1, "not JSON: a byte that is no UTF-8"};
    return true;
  }
  for (size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '"') {
      for (++i; i < json.size() && json[i] != '"'; ++i) i += json[i] == '\\' ? 1 : 0;
    } else if (json[i] == '\0') {
      error = {i + 1, "not JSON: a NUL, at which reading ends"};
      return true;
    } else if (json[i] == '/') {
      error = {i + 1, "not JSON: a comment, where none was expected"};
      return true;
    } else if (std::string_view("+-.0123456789").find(json[i]) != std::string_view::npos) {
      const size_t end = std::min(json.find_first_not_of("+-.0123456789eE", i), json.size());
      if (!IsJsonNumber(json.substr(i, end - i))) {
        error = {i + 1, "not JSON: a number that is written in another way"};
        return true;
      }
      i = end - 1;
    }
  }
  return false;
}

Json::CharReader& StrictReader() {
  static Json::CharReader& reader = *[] {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    return builder.newCharReader();
  }();
  return reader;
}

}  // namespace

bool ReadJsonLine(const std::string& line, JsonLine& parts, HexError& error) {
  if (FindForeign(line, error)) return false;
  std::string report;
  try {
    if (!StrictReader().parse(line.data(), line.data() + line.size(), &parts.others, &report)) {
      const JsonError first = FirstError(report);
      error = {first.place.column, "not JSON: " + first.message};
      return false;
    }
  } catch (const Json::Exception&) {
    error = {1, "not JSON: nested too deep"};
    return false;
  }
  if (!parts.others.isObject() || !parts.others["packet"].isString()) {
    error = {1, "expected a member \"packet\", a text of hexadecimal digits"};
    return false;
  }
  const Json::Value& packet = parts.others["packet"];
  parts.before = line.substr(0, static_cast<size_t>(packet.getOffsetStart()));
  parts.after = line.substr(static_cast<size_t>(packet.getOffsetLimit()));
  parts.packet = packet.asString();
  parts.others.removeMember("packet");
  return true;
}

std::string WithoutControls(const std::string& json) {
  std::string text;
  bool isInString = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const auto code = static_cast<unsigned char>(json[i]);
    const bool isC1 = code == 0xc2 && i + 1 < json.size() && static_cast<unsigned char>(json[i + 1]) < 0xa0;
    if (code >= 0x20 && code != 0x7f && !isC1) {
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

}  // namespace dp4
