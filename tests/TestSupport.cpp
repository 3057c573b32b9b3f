#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <tuple>
#include <utility>

bool operator==(const LogLine& left, const LogLine& right) {
  return std::tie(left.level, left.function, left.text) == std::tie(right.level, right.function, right.text);
}

std::ostream& operator<<(std::ostream& stream, const LogLine& line) {
  return stream << '[' << line.level << "] " << line.function << ": " << line.text;
}

LogLines Warnings(const LogLines& lines) {
  LogLines warnings;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(warnings),
               [](const LogLine& line) { return line.level == 1; });
  return warnings;
}

LogLine SkipLine(const std::string& key) { return {1, "FilterConfigType", "Warning: '" + key + "' is invalid, skip."}; }

LogLine FilterLine(int id, const std::string& name, const std::string& displayName) {
  return {2, "",
          "Filter entity: id='" + std::to_string(id) + "' name='" + name + "' display_name='" + displayName + "'"};
}

Json::Value ParseJson(const std::string& text) {
  Json::Value value;
  std::string errors;
  std::istringstream stream(text);
  if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors)) {
    ADD_FAILURE() << "not JSON: " << text << "\n" << errors;
  }
  return value;
}

std::string WriteJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

std::string ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) ADD_FAILURE() << "cannot read " << path;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::vector<byte> FromHex(const std::string& hex) {
  std::vector<byte> bytes;
  std::istringstream stream(hex);
  std::string digits;
  while (stream >> digits) {
    if (digits.size() % 2 != 0 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
      ADD_FAILURE() << "not hexadecimal: " << hex;
      return {};
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
      bytes.push_back(static_cast<byte>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
  }
  return bytes;
}

std::string ToHex(const byte* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    if (i != 0) text += ' ';
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 0x0f];
  }
  return text;
}

std::string ToHex(const std::vector<byte>& bytes) { return ToHex(bytes.data(), bytes.size()); }

OwnedPackage::~OwnedPackage() { Release(); }

void OwnedPackage::Release() {
  std::free(flags);
  std::free(value);
  static_cast<MorvixProtocolPackage_4_0&>(*this) = MorvixProtocolPackage_4_0();
}
