// Entities of a configuration, put together from attributes.

#ifndef MORVIX_TESTS_ENTITY_BUILDER_H
#define MORVIX_TESTS_ENTITY_BUILDER_H

#include <string>
#include <vector>

#include "TestSupport.h"

inline std::string WithNul(const std::string& before, const std::string& behind) { return before + '\0' + behind; }

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

// An attribute that is an enum of `count` items.
inline Json::Value WithItems(Json::Value attr, int count) {
  for (int i = 0; i < count; ++i) attr["enum"].append("item " + std::to_string(i));
  return attr;
}

inline Json::Value Entity(const std::vector<Json::Value>& attrs) {
  Json::Value entity = ParseJson(R"({"id": 7, "name": "main", "display_name": "Main", "attrs": []})");
  for (const Json::Value& attr : attrs) entity["attrs"].append(attr);
  return entity;
}

#endif
