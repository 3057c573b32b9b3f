// An entity, its values, payloads and packages, all put together from the fuzzer's bytes.

#include "Support.h"

namespace {

// Records that no configuration gives, encoded and received.
void CheckRecords(fuzz::Maker& maker, fuzz::Source& source, const model::Parsed& parsed, const Json::Value& values) {
  fuzz::Product product = {parsed.entity, parsed.attributes};
  do {
    maker.Spoil(product);
  } while (source.Flip());
  fuzz::CheckEncodeRecords(product.entity, product.attributes, values, source.Byte());
  for (const fuzz::Attribute& attribute : product.attributes) {
    fuzz::CheckScaling(attribute, source.Word(), maker.MakeDouble());
  }
  const fuzz::Bytes packet = maker.MakePacket(product);
  fuzz::CheckReceive(product.entity, product.attributes, packet);
  if (!packet.empty()) {
    fuzz::CheckDecodeRecords(product.entity, product.attributes, {packet.begin() + 1, packet.end()}, Json::Value());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::InputSource source(data, size);
  fuzz::Maker maker(source);
  const Json::Value entity = maker.MakeEntity();
  const model::Parsed writable = fuzz::CheckParse(entity, fuzz::kWritable);
  const model::Parsed all = fuzz::CheckParse(entity, fuzz::kAllGroups);
  const Json::Value values = maker.MakeValues({writable.entity, writable.attributes});
  const fuzz::Bytes payload = maker.MakePayload({all.entity, all.attributes});
  fuzz::CheckEntity(entity, writable, all, values, payload, source.Byte());
  if (source.Flip()) CheckRecords(maker, source, source.Flip() ? writable : all, values);
  if (source.Flip()) {
    fuzz::Bytes flags;
    fuzz::Bytes value;
    const fuzz::Package package = maker.MakePackage(flags, value);
    const size_t whole = 1 + package.sizeFlags + package.sizeValue;
    fuzz::CheckPack(package, source.Flip() ? whole : source.Index(whole + 1));
  }
  return 0;
}
