// The text of an entity value document, encoded for every entity of the examples that it has values for. All members
// are read with the lenient readers as well.

#include <algorithm>
#include <string>

#include "Support.h"

namespace {

constexpr size_t kMostMembers = 64;

void CheckMembers(const Json::Value& value, size_t& left) {
  if (value.isObject()) {
    for (const std::string& name : value.getMemberNames()) {
      if (left == 0) return;
      --left;
      fuzz::CheckReaders(value, name);
    }
    fuzz::CheckReaders(value, "no member has this name");
  }
  if (!value.isObject() && !value.isArray()) return;
  for (const Json::Value& child : value) {
    if (left == 0) return;
    CheckMembers(child, left);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Json::Value values;
  if (!fuzz::ParseText(std::string(data, data + size), values)) return 0;
  const std::vector<fuzz::Example>& examples = fuzz::Examples();
  for (size_t i = 0; i < examples.size(); ++i) {
    const fuzz::Example& example = examples[i];
    if (i != size % examples.size() && fuzz::MemberOf(values, example.all.entity.name).isNull()) continue;
    fuzz::CheckEntity(example.entity, example.writable, example.all, values, {1, 2, 3}, size);
  }
  size_t left = kMostMembers;
  CheckMembers(values, left);
  fuzz::CheckReaders(values, "no member has this name");
  return 0;
}
