// The text of a product configuration. What is encoded and received under it is made up from its length.

#include <algorithm>
#include <string>

#include "Support.h"

namespace {

constexpr Json::ArrayIndex kMostEntities = 4;

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
    fuzz::SeededSource source(size, i);
    fuzz::Maker maker(source);
    const Json::Value values = maker.MakeValues({writable.entity, writable.attributes});
    const fuzz::Bytes payload = maker.MakePayload({all.entity, all.attributes});
    fuzz::CheckEntity(entities[i], writable, all, values, payload, source.Byte());
    for (const char* member : {"id", "name", "attrs"}) fuzz::CheckReaders(entities[i], member);
  }
  return 0;
}
