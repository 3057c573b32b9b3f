#include "Properties.h"

#include <algorithm>
#include <cstring>

#include "PayloadProperties.h"

namespace fuzz {

namespace {

constexpr size_t kMaxPayloadBytes = 16384;
// What less is asked for is there.
constexpr uint64_t kSureBytes = uint64_t{1} << 25;

void ExpectSameRecords(const Attributes& actual, const Attributes& expected, const char* property) {
  ExpectEqual(actual.size(), expected.size(), property);
  for (size_t i = 0; i < actual.size(); ++i) {
    if (!IsSame(actual[i], expected[i])) {
      Fail(property, "actual:   " + Show(actual[i]) + "\nexpected: " + Show(expected[i]));
    }
  }
}

Lines Joined(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// True when parsing has ended the call already; its lines are then expected, and perhaps one more.
bool EndsEarly(const model::Parsed& parsed, const char* caller, Lines& lines) {
  lines = parsed.lines;
  if (parsed.hasThrown) return true;
  if (!parsed.usable) lines.push_back({1, caller, "Get entity info failed."});
  return !parsed.usable;
}

template <typename Value, typename ReadModule, typename ReadModel>
void CheckReader(const char* property, Value preset, ReadModule readModule, ReadModel readModel) {
  Value actual = preset;
  Value expected = preset;
  bool isReadByModule = false;
  bool isReadByModel = false;
  bool hasModuleThrown = false;
  bool hasModelThrown = false;
  try {
    isReadByModule = readModule(actual);
  } catch (const Json::LogicError&) {
    hasModuleThrown = true;
  }
  try {
    isReadByModel = readModel(expected);
  } catch (const model::NotANumber&) {
    hasModelThrown = true;
  }
  ExpectEqual(hasModuleThrown, hasModelThrown, property);
  ExpectEqual(isReadByModule, isReadByModel, property);
  if constexpr (std::is_same_v<Value, double>) {
    if (IsSameNumber(actual, expected)) return;
  }
  ExpectEqual(actual, expected, property);
}

// The whole of a package's buffer, of which the module says that it has these bytes. It belongs to the heap, where
// reading too much of it is found.
Bytes Copied(const byte* buffer, uint64_t size) {
  if (size > kMaxComparedBytes) return Bytes();
  return Bytes(buffer, buffer + static_cast<size_t>(size));
}

}  // namespace

void CheckReaders(const Json::Value& object, const std::string& key) {
  const char* name = key.c_str();
  CheckReader(
      "a reader of integers agrees with the model", int32_t{77},
      [&](int32_t& value) { return ProtocolGetAttrInteger_4_0(object, name, value); },
      [&](int32_t& value) { return model::ReadInteger(object, key, value); });
  CheckReader(
      "a reader of 64-bit integers agrees with the model", int64_t{77},
      [&](int64_t& value) { return ProtocolGetAttrInteger64_4_0(object, name, value); },
      [&](int64_t& value) { return model::ReadInteger64(object, key, value); });
  CheckReader(
      "a reader of hexadecimal numbers agrees with the model", uint32_t{77},
      [&](uint32_t& value) { return ProtocolGetAttrHex_4_0(object, name, value); },
      [&](uint32_t& value) { return model::ReadHex(object, key, value); });
  CheckReader(
      "a reader of doubles agrees with the model", 77.5,
      [&](double& value) { return ProtocolGetAttrDouble_4_0(object, name, value); },
      [&](double& value) { return model::ReadDouble(object, key, value); });
  CheckReader(
      "a reader of texts agrees with the model", std::string("preset"),
      [&](std::string& value) { return ProtocolGetAttrString_4_0(object, name, value); },
      [&](std::string& value) { return model::ReadText(object, key, value); });
  CheckReader(
      "a reader of objects agrees with the model", Json::Value("preset"),
      [&](Json::Value& value) { return ProtocolGetAttrObject_4_0(object, name, value); },
      [&](Json::Value& value) { return model::ReadObject(object, key, value); });
  CheckReader(
      "a reader of objects may write over its input", object,
      [&](Json::Value& value) { return ProtocolGetAttrObject_4_0(value, name, value); },
      [&](Json::Value& value) { return model::ReadObject(object, key, value); });
}

model::Parsed CheckParse(const Json::Value& entity, int groups) {
  TakeLines();
  Attribute earlier;
  earlier.name = "earlier";
  Attributes attributes = {earlier};
  Entity info;
  bool isUsable = false;
  bool hasThrown = false;
  try {
    isUsable = ProtocolParseEntity_4_0(entity, groups, attributes, info);
  } catch (const Json::LogicError&) {
    hasThrown = true;
  }
  const Lines lines = TakeLines();
  if (attributes.empty() || !IsSame(attributes[0], earlier)) Fail("parsing appends", Show(entity));
  attributes.erase(attributes.begin());

  model::Parsed expected = model::Parse(entity, groups);
  ExpectEqual(hasThrown, expected.hasThrown, "parsing throws where the model does");
  ExpectEqual(isUsable, expected.usable && !expected.hasThrown, "an entity is usable where the model says so");
  ExpectEqual(lines, expected.lines, "the parser's lines are the model's");
  if (!IsSame(info, expected.entity)) {
    Fail("the entity is the model's", "actual:   " + Show(info) + "\nexpected: " + Show(expected.entity));
  }
  ExpectSameRecords(attributes, expected.attributes, "the attributes are the model's");
  return expected;
}

Encoding RunEncoder(const Attributes& attributes, const std::function<void(Package&)>& encode, bool* hasThrown) {
  const uint64_t payloadBytes = model::PayloadLength(attributes);
  OwnedPackage package;
  package.cmd = MorvixProtocolCommandCCWriteReq_4_0;
  package.subDid = -0x01020304;
  package.needInsertSubDid = 7;
  TakeLines();
  try {
    encode(package);
    if (hasThrown != nullptr) *hasThrown = false;
  } catch (const Json::LogicError&) {
    if (hasThrown == nullptr) throw;
    *hasThrown = true;
  }
  Encoding encoding;
  encoding.lines = TakeLines();
  encoding.hasBuffers = package.flags != nullptr;
  encoding.sizeFlags = package.sizeFlags;
  encoding.sizeValue = package.sizeValue;
  if (package.cmd != MorvixProtocolCommandCCWriteReq_4_0 || package.subDid != -0x01020304 ||
      package.needInsertSubDid != 7) {
    Fail("encoding leaves the other fields of a package alone", "");
  }
  ExpectEqual(package.value != nullptr, encoding.hasBuffers, "a package has both buffers or none");
  ExpectEqual(package.sizeValue != 0, package.sizeFlags != 0, "a package has both sizes or none");
  if (encoding.hasBuffers) {
    encoding.flags = Copied(package.flags, (attributes.size() + 7) / 8);
    encoding.value = Copied(package.value, payloadBytes);
  } else {
    ExpectEqual(package.sizeValue, size_t{0}, "a package without buffers has no sizes");
  }
  return encoding;
}

Encoding CheckEncodeRecords(const Entity& info, const Attributes& attributes, const Json::Value& values,
                            size_t choice) {
  const uint64_t payloadBytes = model::PayloadLength(attributes);
  Encoding encoding = EncodeRecords(info, attributes, values);
  if (payloadBytes > kMaxComparedBytes) {
    const uint64_t size = encoding.sizeValue;
    if (size != 0) ExpectEqual(size, payloadBytes, "the payload has the model's length");
    if (payloadBytes <= kSureBytes) ExpectEqual(encoding.hasBuffers, true, "there are buffers if there is memory");
    if (!encoding.hasBuffers) ExpectEqual(encoding.lines, Lines(), "a lack of memory is not logged");
    return encoding;
  }
  const model::Encoded expected = model::EncodeAttributes(info, attributes, values);
  ExpectEqual(encoding.lines, expected.lines, "the encoder's lines are the model's");
  ExpectEqual(encoding.hasBuffers, expected.hasBuffers, "the encoder allocates where the model does");
  ExpectEqual(encoding.flags, expected.flags, "the flags are the model's");
  ExpectEqual(encoding.value, expected.value, "the payload is the model's");
  ExpectEqual(encoding.sizeFlags, expected.sizeFlags, "the size of the flags is the model's");
  ExpectEqual(encoding.sizeValue, expected.sizeValue, "the size of the payload is the model's");
  if (encoding.hasBuffers) CheckPayload(info, attributes, values, encoding, choice);
  return encoding;
}

Encoding CheckEncode(const Json::Value& entity, const model::Parsed& writable, const Json::Value& values,
                     size_t choice) {
  bool hasThrown = false;
  Encoding oneCall = RunEncoder(
      writable.attributes, [&](Package& package) { ProtocolEncodeEntity_4_0(entity, package, values); }, &hasThrown);
  ExpectEqual(hasThrown, writable.hasThrown, "encoding throws where parsing does");
  Lines lines;
  if (EndsEarly(writable, "ProtocolEncodeEntity_4_0", lines)) {
    ExpectEqual(oneCall.hasBuffers, false, "what is unusable is not encoded");
    ExpectEqual(oneCall.lines, lines, "encoding what is unusable is logged");
    return oneCall;
  }
  Encoding parseOnce = CheckEncodeRecords(writable.entity, writable.attributes, values, choice);
  ExpectEqual(oneCall.lines, Joined(lines, parseOnce.lines), "one call logs what parsing and encoding log");
  ExpectEqual(oneCall.hasBuffers, parseOnce.hasBuffers, "one call allocates what encoding does");
  ExpectEqual(oneCall.flags, parseOnce.flags, "one call gives the flags of encoding");
  ExpectEqual(oneCall.value, parseOnce.value, "one call gives the payload of encoding");
  ExpectEqual(oneCall.sizeFlags, parseOnce.sizeFlags, "one call gives the sizes of encoding");
  ExpectEqual(oneCall.sizeValue, parseOnce.sizeValue, "one call gives the sizes of encoding");
  return parseOnce;
}

void CheckDecodeRecords(const Entity& info, const Attributes& attributes, const Bytes& payload,
                        const Json::Value& before) {
  Bytes copy = payload;
  Package package;
  package.value = copy.data();
  package.sizeValue = copy.size();
  Json::Value document = before;
  TakeLines();
  ProtocolDecodeAttributes_4_0(info, attributes, package, document);
  const Lines lines = TakeLines();
  ExpectEqual(copy, payload, "decoding leaves the payload alone");
  const model::Decoded expected = model::DecodeAttributes(info, attributes, payload, before);
  ExpectEqual(lines, expected.lines, "the decoder's lines are the model's");
  ExpectEqual(document, expected.document, "the decoded document is the model's");
}

void CheckDecode(const Json::Value& entity, const model::Parsed& all, const Bytes& payload, const Json::Value& before) {
  Bytes copy = payload;
  Package package;
  package.value = copy.data();
  package.sizeValue = copy.size();
  Json::Value oneCall = before;
  bool hasThrown = false;
  TakeLines();
  try {
    ProtocolDecodeEntity_4_0(entity, package, oneCall);
  } catch (const Json::LogicError&) {
    hasThrown = true;
  }
  const Lines oneCallLines = TakeLines();
  if (payload.empty()) {
    ExpectEqual(hasThrown, false, "nothing to decode throws nothing");
    ExpectEqual(oneCallLines, Lines{{1, "ProtocolDecodeEntity_4_0", "No data to decode."}}, "it is logged alone");
    ExpectEqual(oneCall, before, "nothing to decode leaves the document alone");
    return;
  }
  ExpectEqual(hasThrown, all.hasThrown, "decoding throws where parsing does");
  Lines lines;
  if (EndsEarly(all, "ProtocolDecodeEntity_4_0", lines)) {
    ExpectEqual(oneCall, before, "what is unusable leaves the document alone");
    ExpectEqual(oneCallLines, lines, "decoding what is unusable is logged");
    return;
  }
  CheckDecodeRecords(all.entity, all.attributes, payload, before);
  Json::Value parseOnce = before;
  ProtocolDecodeAttributes_4_0(all.entity, all.attributes, package, parseOnce);
  ExpectEqual(oneCallLines, Joined(lines, TakeLines()), "one call logs what parsing and decoding log");
  ExpectEqual(oneCall, parseOnce, "one call gives the document of decoding");
}

namespace {

const std::string& DocumentKey(const Attribute& attribute) {
  const bool isReported =
      attribute.type == MorvixProtocolTypeAlert_4_0 || attribute.type == MorvixProtocolTypeFault_4_0;
  return isReported ? attribute.display_name : attribute.name;
}

// What was written is read back from the whole payload as it is alone, as long as decoding goes to its end, sees the
// attribute with the same record, and no later attribute takes its key.
void CheckDecodedTogether(const model::Parsed& writable, const model::Parsed& all, const Bytes& payload) {
  Bytes copy = payload;
  Package package;
  package.value = copy.data();
  package.sizeValue = copy.size();
  Json::Value document;
  TakeLines();
  ProtocolDecodeAttributes_4_0(all.entity, all.attributes, package, document);
  if (!TakeLines().empty()) return;
  for (size_t i = 0; i < all.attributes.size(); ++i) {
    const Attribute& attribute = all.attributes[i];
    const auto isSame = [&](const Attribute& other) { return IsSame(attribute, other); };
    const auto hasItsKey = [&](const Attribute& other) { return DocumentKey(attribute) == DocumentKey(other); };
    const auto next = all.attributes.begin() + static_cast<std::ptrdiff_t>(i) + 1;
    if (std::none_of(writable.attributes.begin(), writable.attributes.end(), isSame) ||
        std::any_of(next, all.attributes.end(), hasItsKey)) {
      continue;
    }
    const Json::Value alone = DecodeAlone(attribute, payload);
    const Json::Value& item = MemberOf(MemberOf(document, all.entity.name), DocumentKey(attribute));
    if (alone.isNull()) continue;  // an earlier attribute may have the key
    ExpectEqual(MemberOf(item, "value"), alone, "together, attributes are read as they are alone");
    ExpectEqual(MemberOf(item, "type"), Json::Value(static_cast<Json::Int>(attribute.type)), "an item has its group");
  }
}

}  // namespace

void CheckEntity(const Json::Value& entity, const model::Parsed& writable, const model::Parsed& all,
                 const Json::Value& values, const Bytes& payload, size_t choice) {
  Encoding encoding = CheckEncode(entity, writable, values, choice);
  // A document with a NaN in it does not equal itself.
  const bool isInto = choice / 8 % 4 == 0 && Json::Value(values) == values;
  CheckDecode(entity, all, payload, isInto ? values : Json::Value());

  Package package;
  package.cmd = choice % 2 == 0 ? MorvixProtocolCommandWriteReq_4_0 : MorvixProtocolCommandCCWriteReq_4_0;
  package.needInsertSubDid = choice % 3 == 0 ? 1 : 0;
  package.subDid = static_cast<int32_t>(static_cast<uint32_t>(choice * 2654435761U));
  package.flags = encoding.flags.data();
  package.sizeFlags = encoding.sizeFlags;
  package.value = encoding.value.data();
  package.sizeValue = encoding.sizeValue;
  const size_t size = 1 + package.sizeFlags + package.sizeValue;
  if (size <= kMaxComparedBytes) {
    CheckPack(package, size);
    CheckPack(package, size - 1);
  }

  if (!all.usable || all.hasThrown) return;
  const auto packetOf = [&](const Bytes& bytes) {
    Bytes packet = {
        static_cast<byte>(choice % 2 == 0 ? MorvixProtocolCommandReadResp_4_0 : MorvixProtocolCommandNotifyResp_4_0)};
    packet.insert(packet.end(), bytes.begin(), bytes.end());
    return packet;
  };
  if (encoding.sizeValue == 0 || encoding.sizeValue > kMaxPayloadBytes) {
    CheckReceive(all.entity, all.attributes, packetOf(payload));
  } else {
    CheckDecodedTogether(writable, all, encoding.value);
    CheckReceive(all.entity, all.attributes, packetOf(choice / 8 % 2 == 0 ? encoding.value : payload));
  }
}

}  // namespace fuzz
