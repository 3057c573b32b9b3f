#include "JsonLine.h"

#include <json/reader.h>

#include <algorithm>
#include <cstdio>

namespace dp4 {

namespace {

// Where a comment begins, which JsonCpp takes between members even when it is told not to; npos for none.
size_t FindComment(const std::string& json) {
  bool isInString = false;
  for (size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '"') isInString = !isInString;
    if (json[i] == '\\') ++i;
    if (json[i] == '/' && !isInString) return i;
  }
  return std::string::npos;
}

// Of a reader's report, "* Line 1, Column 5\n  Syntax error: ...\n".
HexError FirstProblem(const std::string& report) {
  HexError error;
  unsigned long column = 0;
  if (std::sscanf(report.c_str(), "* Line 1, Column %lu", &column) == 1) error.column = column;
  const size_t begin = std::min(report.find('\n') + 3, report.size());
  error.message = "not JSON: " + report.substr(begin, report.find('\n', begin) - begin);
  return error;
}

}  // namespace

bool ReadJsonLine(const std::string& line, JsonLine& parts, HexError& error) {
  static Json::CharReader& reader = *[] {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    return builder.newCharReader();
  }();
  const size_t comment = FindComment(line);
  if (comment != std::string::npos) {
    error = {comment + 1, "not JSON: a comment, where none was expected"};
    return false;
  }
  std::string report;
  try {
    if (!reader.parse(line.data(), line.data() + line.size(), &parts.others, &report)) {
      error = FirstProblem(report);
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
