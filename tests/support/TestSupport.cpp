#include "TestSupport.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>

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
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    throw std::runtime_error("not JSON: " + text + "\n" + errors);
  }
  return value;
}

std::string WriteJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

// The library's older reader and writer give the documents their texts.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

bool ParseText(const std::string& text, Json::Value& value) {
  try {
    return Json::Reader().parse(text.data(), text.data() + text.size(), value);
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
}

std::string Written(const Json::Value& document) { return Json::FastWriter().write(document); }

#pragma GCC diagnostic pop

std::string ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::vector<byte> FromHex(const std::string& hex) {
  std::vector<byte> bytes;
  std::istringstream stream(hex);
  std::string digits;
  while (stream >> digits) {
    if (digits.size() % 2 != 0 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
      throw std::runtime_error("not hexadecimal: " + hex);
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

MorvixProtocolPackage_4_0 PackageOf(std::vector<byte>& payload) {
  MorvixProtocolPackage_4_0 package;
  package.value = payload.data();
  package.sizeValue = payload.size();
  return package;
}
