// The text of a product configuration. What is encoded and received under it follows from the configuration itself.

#include <algorithm>
#include <string>

#include "Support.h"

namespace {

constexpr Json::ArrayIndex kMostEntities = 4;

// Bytes that depend on nothing but their place.
fuzz::Bytes PatternOf(size_t size, size_t seed) {
  fuzz::Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<byte>((i + seed) * 167 >> 3);
  return bytes;
}

Json::Value ValueOf(const fuzz::Attribute& attribute, size_t seed) {
  switch (attribute.data_type) {
    case MorvixProtocolDataTypeBool_4_0:
      return seed % 2 == 0;
    case MorvixProtocolDataTypeEnum_4_0:
      return attribute.enumList.empty() ? std::string() : std::to_string(seed % attribute.enumList.size());
    case MorvixProtocolDataTypeBinary_4_0:
      return model::Base64Text(PatternOf(static_cast<size_t>(std::clamp(attribute.position.len, 0, 300)), seed));
    default: {
      const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
      const auto raw = static_cast<double>(seed % 2 == 0 ? scaling.max : scaling.min);
      return raw * scaling.ratio + scaling.addition;
    }
  }
}

Json::Value ValuesOf(const model::Parsed& writable, size_t seed) {
  Json::Value values;
  for (size_t i = 0; i < writable.attributes.size(); ++i) {
    const fuzz::Attribute& attribute = writable.attributes[i];
    if ((i + seed) % 8 != 7) values[writable.entity.name][attribute.name] = ValueOf(attribute, i + seed);
  }
  return values;
}

void CheckEntities(const Json::Value& configuration) {
  Json::Value entities = "left from before";
  const bool isArray = ProtocolGetEntitiesFromDevice_4_0(configuration, entities);
  fuzz::ExpectEqual(entities, fuzz::MemberOf(configuration, "entities"), "the entities are the member of that name");
  fuzz::ExpectEqual(isArray, entities.isArray(), "entities are an array");
  Json::Value same = configuration;
  ProtocolGetEntitiesFromDevice_4_0(same, same);
  fuzz::ExpectEqual(same, entities, "entities may be written over their configuration");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Json::Value configuration;
  if (!fuzz::ParseText(std::string(data, data + size), configuration)) return 0;
  CheckEntities(configuration);
  const Json::Value& entities = fuzz::MemberOf(configuration, "entities");
  if (!entities.isArray()) {
    const model::Parsed all = fuzz::CheckParse(configuration, fuzz::kAllGroups);
    fuzz::CheckEntity(configuration, fuzz::CheckParse(configuration, fuzz::kWritable), all, Json::Value(), {1}, size);
    return 0;
  }
  for (Json::ArrayIndex i = 0; i < std::min(entities.size(), kMostEntities); ++i) {
    const model::Parsed writable = fuzz::CheckParse(entities[i], fuzz::kWritable);
    const model::Parsed all = fuzz::CheckParse(entities[i], fuzz::kAllGroups);
    const uint64_t mostBytes = size % 64 == 0 ? 16385 : 300;
    const auto length = static_cast<size_t>(std::min(model::PayloadLength(all.attributes), mostBytes));
    fuzz::CheckEntity(entities[i], writable, all, ValuesOf(writable, size), PatternOf(length, size), size);
    for (const char* member : {"id", "name", "attrs"}) fuzz::CheckReaders(entities[i], member);
  }
  return 0;
}
