// Received bytes, decoded under a configuration. The first byte chooses an entity of the examples, for which the rest
// is the packet; or else a configuration of the input's own, which goes up to the first NUL, with the packet after it.

#include <algorithm>
#include <string>

#include "Support.h"

namespace {

void CheckPacket(const Json::Value& entity, const model::Parsed& all, const fuzz::Bytes& packet) {
  const fuzz::Bytes payload(packet.begin() + (packet.empty() ? 0 : 1), packet.end());
  fuzz::CheckDecode(entity, all, payload, Json::Value());
  if (all.usable && !all.hasThrown) fuzz::CheckReceive(all.entity, all.attributes, packet);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<fuzz::Example>& examples = fuzz::Examples();
  const size_t choice = size == 0 ? 0 : data[0] % (examples.size() + 1);
  const fuzz::Bytes rest(data + std::min<size_t>(size, 1), data + size);
  fuzz::CheckUnpack(rest);
  if (choice < examples.size()) {
    CheckPacket(examples[choice].entity, examples[choice].all, rest);
    return 0;
  }
  const auto end = std::find(rest.begin(), rest.end(), byte{0});
  Json::Value configuration;
  if (!fuzz::ParseText(std::string(rest.begin(), end), configuration)) return 0;
  const fuzz::Bytes packet(end + (end == rest.end() ? 0 : 1), rest.end());
  const Json::Value& entities = fuzz::MemberOf(configuration, "entities");
  const Json::Value& entity = entities.isArray() && !entities.empty() ? entities[0] : configuration;
  CheckPacket(entity, fuzz::CheckParse(entity, fuzz::kAllGroups), packet);
  return 0;
}
