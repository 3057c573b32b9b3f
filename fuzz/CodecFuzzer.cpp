// An entity, its values, payloads and packages, all put together from the fuzzer's bytes.

#include <algorithm>

#include "Maker.h"
#include "PayloadProperties.h"
#include "Properties.h"

namespace {

// Records that no configuration gives, encoded and received.
void CheckRecords(fuzz::Maker& maker, FuzzedDataProvider& in, const model::Parsed& parsed, const Json::Value& values) {
  fuzz::Attributes attributes = parsed.attributes;
  if (attributes.empty()) return;
  for (int i = in.ConsumeIntegralInRange(1, 3); i > 0; --i) {
    maker.Spoil(attributes[in.ConsumeIntegralInRange<size_t>(0, attributes.size() - 1)]);
  }
  fuzz::CheckEncodeRecords(parsed.entity, attributes, values, in.ConsumeIntegral<uint8_t>());
  fuzz::Bytes payload = maker.MakePayload(model::PayloadLength(attributes));
  fuzz::CheckDecodeRecords(parsed.entity, attributes, payload, Json::Value());
  payload.insert(payload.begin(), 4);
  fuzz::CheckReceive(parsed.entity, attributes, payload);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  fuzz::Maker maker(in);
  const Json::Value entity = maker.MakeEntity();
  const model::Parsed writable = fuzz::CheckParse(entity, fuzz::kWritable);
  const model::Parsed all = fuzz::CheckParse(entity, fuzz::kAllGroups);
  const Json::Value values = maker.MakeValues(writable.entity, writable.attributes);
  const fuzz::Bytes payload = maker.MakePayload(model::PayloadLength(all.attributes));
  fuzz::CheckEntity(entity, writable, all, values, payload, in.ConsumeIntegral<uint8_t>());
  if (in.ConsumeBool()) CheckRecords(maker, in, in.ConsumeBool() ? writable : all, values);
  if (in.ConsumeBool()) {
    fuzz::Bytes flags;
    fuzz::Bytes value;
    const fuzz::Package package = maker.MakePackage(flags, value);
    const size_t whole = 1 + package.sizeFlags + package.sizeValue;
    fuzz::CheckPack(package, in.ConsumeBool() ? whole : in.ConsumeIntegralInRange<size_t>(0, whole));
  }
  return 0;
}
