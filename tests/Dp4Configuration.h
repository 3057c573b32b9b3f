// Small product configurations for the tests of the command-line tool.

#ifndef MORVIX_TESTS_DP4_CONFIGURATION_H
#define MORVIX_TESTS_DP4_CONFIGURATION_H

#include <string>

// A configuration of one entity, box, with these attributes, given as JSON separated by commas.
inline std::string Configuration(const std::string& attributes) {
  return R"({"entities": [{"id": 7, "name": "box", "display_name": "Box", "attrs": [)" + attributes + "]}]}";
}

// One attribute; `more` holds its "uint_spec" or "enum" with a comma at the end, if it needs one.
inline std::string Attribute(const std::string& name, const std::string& type, const std::string& dataType,
                             const std::string& position, const std::string& more = "") {
  return R"({"id": 0, "name": ")" + name + R"(", "display_name": "D )" + name + R"(", "desc": "", "type": ")" + type +
         R"(", "data_type": ")" + dataType + "\", " + more + R"("position": {)" + position + "}}";
}

inline std::string Bits(int byteOffset, int bitOffset, int length) {
  return "\"byte_offset\": " + std::to_string(byteOffset) + ", \"bit_offset\": " + std::to_string(bitOffset) +
         ", \"unit\": \"bit\", \"len\": " + std::to_string(length);
}

inline std::string Bytes(int byteOffset, int length) {
  return "\"byte_offset\": " + std::to_string(byteOffset) + R"(, "bit_offset": 0, "unit": "byte", "len": )" +
         std::to_string(length);
}

inline std::string Scaling(const std::string& min, const std::string& max, const std::string& ratio,
                           const std::string& addition) {
  return R"("uint_spec": {"min": )" + min + R"(, "max": )" + max + R"(, "ratio": )" + ratio + R"(, "addition": )" +
         addition + "}, ";
}

inline std::string Bool(const std::string& name, int byteOffset, int bitOffset,
                        const std::string& type = "status_writable") {
  return Attribute(name, type, "bool", Bits(byteOffset, bitOffset, 1));
}

#endif
