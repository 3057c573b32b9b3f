// Two configurations, with a NUL between them, for the tool's compare.

#include <algorithm>
#include <set>
#include <string>

#include "Support.h"
#include "host/Logging.h"
#include "inspect/compare/Compare.h"
#include "inspect/text/Error.h"

using namespace morvix::inspect;

namespace {

std::string Described(const Change& change) {
  return std::string(change.rule->name) + "\n  " + fuzz::Show(change.message) + "\n  " + fuzz::Show(change.effect) +
         "\n  " + fuzz::Show(change.fix);
}

void CheckChange(const Change& change, const json::Document& before, const json::Document& after) {
  for (const std::string* part :
       {&change.message, &change.effect, &change.fix, &change.packetBefore.meaning, &change.packetAfter.meaning}) {
    if (part->empty() || std::any_of(part->begin(), part->end(), [](char c) { return c >= 0 && c < ' '; })) {
      fuzz::Fail("a change tells in one line what it is", Described(change));
    }
  }
  if (!change.before && !change.after) fuzz::Fail("a change has a place", Described(change));
  const bool isInside = (!change.before || change.before->offset <= before.Text().size()) &&
                        (!change.after || change.after->offset <= after.Text().size());
  if (!isInside) fuzz::Fail("the places of a change are in the texts", Described(change));
  for (const ShownPacket* packet : {&change.packetBefore, &change.packetAfter}) {
    if (packet->bytes.size() > MorvixProtocolMaxPacketBytes_4_0) {
      fuzz::Fail("a packet that is shown can be sent", Described(change));
    }
  }
}

// The decoded documents of some payloads, of all entities together.
Json::Value Decoded(const json::Document& configuration) {
  const LogCapture silent;
  Json::Value documents;
  for (const unsigned filling : {0x00U, 0xffU, 0x5aU}) {
    Json::Value& document = documents[filling];
    for (const Json::Value& entity : EntitiesOf(configuration)) {
      std::vector<unsigned char> payload(64, static_cast<unsigned char>(filling));
      MorvixProtocolPackage_4_0 package;
      package.value = payload.data();
      package.sizeValue = payload.size();
      ProtocolDecodeEntity_4_0(entity, package, document);
    }
  }
  return documents;
}

bool HasDistinctNames(const json::Document& configuration) {
  std::set<std::string> names;
  for (const Json::Value& entity : EntitiesOf(configuration)) {
    EntityFault fault;
    const auto model = EntityModel::Parse(entity, "", fault);
    if (!model || model->IsThrowing() || !names.insert(model->Info().name).second) return false;
    std::set<std::string> keys;
    for (const Field* field : model->Fields()) {
      if (!keys.insert(DocumentKey(*field->attribute)).second) return false;
    }
  }
  return true;
}

// Whether one order of attributes can show where the other does not: a decode ends at the first that it cannot read.
bool IsOrderKept(const json::Document& before, const json::Document& after) {
  const auto namesOf = [](const json::Document& configuration) {
    std::vector<std::string> names;
    for (const Json::Value& entity : EntitiesOf(configuration)) {
      EntityFault fault;
      const auto model = EntityModel::Parse(entity, "", fault);
      for (const Field* field : model->Fields()) names.push_back(field->attribute->name);
    }
    return names;
  };
  return namesOf(before) == namesOf(after);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint8_t* middle = std::find(data, data + size, 0);
  if (middle == data + size) return 0;
  json::SyntaxError error;
  const auto before = json::Document::Read("before", {data, middle}, error);
  const auto after = json::Document::Read("after", {middle + 1, data + size}, error);
  if (!before || !after) return 0;
  try {
    const std::vector<Change> changes = Compare(*before, *after);
    for (const Change& change : changes) CheckChange(change, *before, *after);
    const std::vector<Change> none = Compare(*after, *after);
    if (!none.empty()) fuzz::Fail("nothing changes from a configuration to itself", Described(none[0]));
    const bool isComparable = changes.empty() && HasDistinctNames(*before) && HasDistinctNames(*after);
    if (isComparable && IsOrderKept(*before, *after)) {
      const std::string old = json::CompactText(Decoded(*before));
      fuzz::ExpectEqual(json::CompactText(Decoded(*after)), old, "what is not told does not change what is read");
    }
  } catch (const InputError&) {
    return 0;  // no configuration, or more inherited items than there is memory for
  }
  fuzz::TakeLines();
  return 0;
}
