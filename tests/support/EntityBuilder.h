// Entities of a configuration, put together from attributes by hand.

#ifndef MORVIX_TESTS_SUPPORT_ENTITY_BUILDER_H
#define MORVIX_TESTS_SUPPORT_ENTITY_BUILDER_H

#include <stdexcept>
#include <string>
#include <vector>

#include "TestSupport.h"

inline std::string WithNul(const std::string& before, const std::string& after) { return before + '\0' + after; }

// `value` with the members of `overrides` in place of its own; objects inside it are merged.
inline Json::Value With(Json::Value value, const Json::Value& overrides) {
  for (const std::string& key : overrides.getMemberNames()) {
    value[key] = overrides[key].isObject() ? With(value[key], overrides[key]) : overrides[key];
  }
  return value;
}

// The same with a JSON text.
inline Json::Value With(const Json::Value& value, const char* overrides) { return With(value, ParseJson(overrides)); }

// An attribute of a group, whose display name is its name with "The " before it.
inline Json::Value AttributeOf(const char* group, const std::string& name, const char* dataType, int byteOffset,
                               int bitOffset, const char* unit, int len) {
  Json::Value attr = ParseJson(R"({"id": 1, "desc": ""})");
  attr["type"] = group;
  attr["name"] = name;
  attr["display_name"] = "The " + name;
  attr["data_type"] = dataType;
  attr["position"]["byte_offset"] = byteOffset;
  attr["position"]["bit_offset"] = bitOffset;
  attr["position"]["unit"] = unit;
  attr["position"]["len"] = len;
  return attr;
}

// Writable attributes.

inline Json::Value Bool(const std::string& name, int byteOffset, int bitOffset) {
  return AttributeOf("status_writable", name, "bool", byteOffset, bitOffset, "bit", 1);
}

inline Json::Value Enum(const std::string& name, int byteOffset, int bitOffset, int len, int count = 3) {
  Json::Value attr = AttributeOf("status_writable", name, "enum", byteOffset, bitOffset, "bit", len);
  for (int i = 0; i < count; ++i) attr["enum"].append("item " + std::to_string(i));
  return attr;
}

// A number that takes every raw value below 2 to the power 52, unscaled unless `scaling`, a JSON text, differs.
inline Json::Value Number(const std::string& name, int byteOffset, int len, const char* scaling = "{}") {
  Json::Value attr = AttributeOf("status_writable", name, "uint64", byteOffset, 0, "byte", len);
  attr["uint_spec"] = With(ParseJson(R"({"min": 0, "max": 4503599627370495, "ratio": 1, "addition": 0})"), scaling);
  return attr;
}

inline Json::Value Binary(const std::string& name, int byteOffset, int len) {
  return AttributeOf("status_writable", name, "binary", byteOffset, 0, "byte", len);
}

inline Json::Value Entity(const std::vector<Json::Value>& attrs) {
  Json::Value entity = ParseJson(R"({"id": 7, "name": "main", "display_name": "Main", "attrs": []})");
  for (const Json::Value& attr : attrs) entity["attrs"].append(attr);
  return entity;
}

// An entity's records, parsed once.
struct ParsedEntity {
  explicit ParsedEntity(const Json::Value& entity, int groups = 15) {
    const LogCapture capture;
    if (!ProtocolParseEntity_4_0(entity, groups, attributes, info)) throw std::runtime_error("an entity is unusable");
  }

  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 info;
};

// The records of these attributes, to be changed into what no configuration gives.
inline std::vector<MorvixProtocolAttribute_4_0> Records(const std::vector<Json::Value>& attrs) {
  return ParsedEntity(Entity(attrs)).attributes;
}

#endif
