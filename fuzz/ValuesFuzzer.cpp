// The text of an entity value document. The first byte chooses an entity of the examples. All members are read with the
// lenient readers as well.

#include <algorithm>
#include <string>

#include "Properties.h"

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
  if (size == 0) return 0;
  const std::vector<fuzz::Example>& examples = fuzz::Examples();
  const fuzz::Example& example = examples[data[0] % examples.size()];
  Json::Value values;
  if (!fuzz::ParseText(std::string(data + 1, data + size), values)) return 0;
  fuzz::CheckEntity(example.entity, example.writable, example.all, values, {1, 2, 3}, size + data[0]);
  size_t left = kMostMembers;
  CheckMembers(values, left);
  fuzz::CheckReaders(values, "no member has this name");
  return 0;
}
