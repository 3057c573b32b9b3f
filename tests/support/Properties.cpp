#include "Properties.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "PayloadProperties.h"
#include "TestSupport.h"

namespace support {

namespace {

// Up to this many bytes can be allocated.
constexpr uint64_t kSureBytes = uint64_t{1} << 24;

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

// Whether the call throws the one error that passes through.
template <typename Call>
bool Throws(const Call& call) {
  try {
    call();
  } catch (const Json::LogicError&) {
    return true;
  } catch (const model::NotANumber&) {
    return true;
  }
  return false;
}

template <typename Value, typename ReadModule, typename ReadModel>
void CheckReader(const char* property, Value preset, ReadModule readModule, ReadModel readModel) {
  Value actual = preset;
  Value expected = preset;
  bool isRead = false;
  bool isExpected = false;
  const bool throws = Throws([&] { isRead = readModule(actual); });
  ExpectEqual(throws, Throws([&] { isExpected = readModel(expected); }), property);
  ExpectEqual(isRead, isExpected, property);
  ExpectEqual(actual, expected, property);
}

// A package with something in the fields that an encoder leaves alone.
void Prepare(Package& package) {
  package.cmd = MorvixProtocolCommandCCWriteReq_4_0;
  package.subDid = -0x01020304;
  package.needInsertSubDid = 7;
}

// What an encoder made of a prepared package.
model::Encoded LookAt(const Package& package, const Attributes& attributes) {
  Package fields = package;
  Prepare(fields);
  if (fields.cmd != package.cmd || fields.subDid != package.subDid ||
      fields.needInsertSubDid != package.needInsertSubDid) {
    Fail("encoding leaves the other fields of a package alone", "");
  }
  model::Encoded encoded;
  encoded.hasBuffers = package.flags != nullptr;
  encoded.sizeFlags = package.sizeFlags;
  encoded.sizeValue = package.sizeValue;
  ExpectEqual(package.value != nullptr, encoded.hasBuffers, "a package has both buffers or none");
  ExpectEqual(package.sizeValue != 0, package.sizeFlags != 0, "a package has both sizes or none");
  if (!encoded.hasBuffers) {
    ExpectEqual(package.sizeValue, size_t{0}, "a package without buffers has no sizes");
    return encoded;
  }
  encoded.flags.assign(package.flags, package.flags + (attributes.size() + 7) / 8);
  const uint64_t payloadBytes = model::PayloadLength(attributes);
  // The whole buffer, from the heap, where reading too much of it is found.
  if (payloadBytes <= kMaxComparedBytes) {
    encoded.value.assign(package.value, package.value + static_cast<size_t>(payloadBytes));
  }
  return encoded;
}

void ExpectSame(const model::Encoded& actual, const model::Encoded& expected, const char* property) {
  ExpectEqual(actual.lines, expected.lines, property);
  ExpectEqual(actual.hasBuffers, expected.hasBuffers, property);
  ExpectEqual(actual.flags, expected.flags, property);
  ExpectEqual(actual.value, expected.value, property);
  ExpectEqual(actual.sizeFlags, expected.sizeFlags, property);
  ExpectEqual(actual.sizeValue, expected.sizeValue, property);
}

}  // namespace

const Json::Value& MemberOf(const Json::Value& object, const std::string& name) {
  const Json::Value* member = object.isObject() ? object.find(name.data(), name.data() + name.size()) : nullptr;
  return member == nullptr ? Json::Value::nullSingleton() : *member;
}

void CheckReaders(const Json::Value& object, const std::string& key) {
  const Inputs inputs(object, key);
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
  const Inputs inputs(entity, groups);
  Attribute earlier;
  earlier.name = "earlier";
  Attributes attributes = {earlier};
  std::vector<model::Element> elements(1);
  Entity info;
  bool isUsable = false;
  LogCapture log;
  // One form reports on the elements, the other does not.
  const bool isReported = groups == kEveryGroup;
  const bool hasThrown = Throws([&] {
    isUsable = isReported ? ProtocolParseEntity_4_0(entity, groups, attributes, info, elements)
                          : ProtocolParseEntity_4_0(entity, groups, attributes, info);
  });
  model::Parsed expected = model::Parse(entity, groups);
  ExpectEqual(hasThrown, expected.hasThrown, "parsing throws where the model does");
  ExpectEqual(isUsable, expected.usable && !expected.hasThrown, "an entity is usable where the model says so");
  ExpectEqual(log.Lines(), expected.lines, "the parser's lines are the model's");
  if (!(info == expected.entity)) Fail("the entity is the model's", Show(info) + "\nnot\n" + Show(expected.entity));

  if (attributes.empty() || !(attributes[0] == earlier)) Fail("parsing appends", "");
  attributes.erase(attributes.begin());
  ExpectEqual(attributes, expected.attributes, "the attributes are the model's");
  if (isReported) {
    std::vector<model::Element> reports(1);  // which is not changed
    reports.insert(reports.end(), expected.elements.begin(), expected.elements.end());
    for (size_t i = 1; i < reports.size(); ++i) {
      if (reports[i].attribute != SIZE_MAX) ++reports[i].attribute;
    }
    ExpectEqual(elements, reports, "the reports on the elements are the model's");
  }
  return expected;
}

model::Encoded RunEncoder(const Attributes& attributes, const std::function<void(Package&)>& encode) {
  MorvixProtocolOwnedPackage_4_0 package;
  Prepare(package);
  LogCapture log;
  encode(package);
  model::Encoded encoded = LookAt(package, attributes);
  encoded.lines = log.Take();
  return encoded;
}

model::Encoded CheckEncodeRecords(const Entity& info, const Attributes& attributes, const Json::Value& values,
                                  size_t choice) {
  const Inputs inputs(info, attributes, values);
  const uint64_t payloadBytes = model::PayloadLength(attributes);
  ExpectEqual(uint64_t{ProtocolPayloadBytes_4_0(attributes)}, payloadBytes, "a payload has the model's length");
  std::vector<model::Result> results;
  const bool isReported = choice % 2 == 0;
  const auto encode = [&](Package& package) {
    if (isReported) {
      ProtocolEncodeAttributes_4_0(info, attributes, package, values, results);
    } else {
      ProtocolEncodeAttributes_4_0(info, attributes, package, values);
    }
  };
  model::Encoded encoded = RunEncoder(attributes, encode);
  if (payloadBytes > kMaxComparedBytes) {
    if (encoded.sizeValue != 0) ExpectEqual(uint64_t{encoded.sizeValue}, payloadBytes, "all of a payload is valid");
    if (payloadBytes <= kSureBytes) ExpectEqual(encoded.hasBuffers, true, "there are buffers if there is memory");
    if (!encoded.hasBuffers) ExpectEqual(encoded.lines, Lines(), "a lack of memory is not logged");
    return encoded;
  }
  const model::Encoded expected = model::EncodeAttributes(info, attributes, values);
  ExpectSame(encoded, expected, "what is encoded is the model's");
  if (isReported) ExpectEqual(results, expected.results, "the results of encoding are the model's");
  encoded.results = expected.results;
  if (encoded.hasBuffers) CheckPayload(info, attributes, values, encoded, choice);
  return encoded;
}

model::Encoded CheckEncode(const Json::Value& entity, const model::Parsed& writable, const Json::Value& values,
                           size_t choice) {
  const Inputs inputs(entity, values);
  bool hasThrown = false;
  model::Encoded oneCall = RunEncoder(writable.attributes, [&](Package& package) {
    hasThrown = Throws([&] { ProtocolEncodeEntity_4_0(entity, package, values); });
  });
  ExpectEqual(hasThrown, writable.hasThrown, "encoding throws where parsing does");
  Lines lines;
  if (EndsEarly(writable, "ProtocolEncodeEntity_4_0", lines)) {
    ExpectEqual(oneCall.hasBuffers, false, "what is unusable is not encoded");
    ExpectEqual(oneCall.lines, lines, "encoding what is unusable is logged");
    return oneCall;
  }
  model::Encoded parseOnce = CheckEncodeRecords(writable.entity, writable.attributes, values, choice);
  parseOnce.lines = Joined(lines, parseOnce.lines);
  ExpectSame(oneCall, parseOnce, "one call gives and logs what parsing and encoding do");
  return parseOnce;
}

model::Decoded CheckDecodeRecords(const Entity& info, const Attributes& attributes, const Bytes& payload,
                                  const Json::Value& before) {
  const Inputs inputs(info, attributes, payload, before);
  Bytes copy = payload;
  Json::Value document = before;
  std::vector<model::Result> results;
  const bool isReported = payload.size() % 2 == 0;
  LogCapture log;
  if (isReported) {
    ProtocolDecodeAttributes_4_0(info, attributes, PackageOf(copy), document, results);
  } else {
    ProtocolDecodeAttributes_4_0(info, attributes, PackageOf(copy), document);
  }
  ExpectEqual(copy, payload, "decoding leaves the payload alone");
  model::Decoded expected = model::DecodeAttributes(info, attributes, payload, before);
  ExpectEqual(log.Lines(), expected.lines, "the decoder's lines are the model's");
  ExpectEqual(document, expected.document, "the decoded document is the model's");
  if (isReported) ExpectEqual(results, expected.results, "the results of decoding are the model's");
  return expected;
}

model::Decoded CheckDecode(const Json::Value& entity, const model::Parsed& all, const Bytes& payload,
                           const Json::Value& before) {
  const Inputs inputs(entity, payload, before);
  Bytes copy = payload;
  model::Decoded decoded;
  decoded.document = before;
  LogCapture log;
  decoded.hasThrown = Throws([&] { ProtocolDecodeEntity_4_0(entity, PackageOf(copy), decoded.document); });
  decoded.lines = log.Take();
  if (payload.empty()) {
    ExpectEqual(decoded.hasThrown, false, "nothing to decode throws nothing");
    ExpectEqual(decoded.lines, Lines{{1, "ProtocolDecodeEntity_4_0", "No data to decode."}}, "it is logged alone");
    ExpectEqual(decoded.document, before, "nothing to decode leaves the document alone");
    return decoded;
  }
  ExpectEqual(decoded.hasThrown, all.hasThrown, "decoding throws where parsing does");
  Lines lines;
  if (EndsEarly(all, "ProtocolDecodeEntity_4_0", lines)) {
    ExpectEqual(decoded.document, before, "what is unusable leaves the document alone");
    ExpectEqual(decoded.lines, lines, "decoding what is unusable is logged");
    return decoded;
  }
  const model::Decoded parseOnce = CheckDecodeRecords(all.entity, all.attributes, payload, before);
  ExpectEqual(decoded.lines, Joined(lines, parseOnce.lines), "one call logs what parsing and decoding log");
  ExpectEqual(decoded.document, parseOnce.document, "one call gives the document of decoding");
  decoded.results = parseOnce.results;
  return decoded;
}

void CheckEntity(const Json::Value& entity, const model::Parsed& writable, const model::Parsed& all,
                 const Json::Value& values, const Bytes& payload, size_t choice) {
  model::Encoded encoded = CheckEncode(entity, writable, values, choice);
  CheckDecode(entity, all, payload, choice / 8 % 4 == 0 ? values : Json::Value());

  Package package;
  package.cmd = choice % 2 == 0 ? MorvixProtocolCommandWriteReq_4_0 : MorvixProtocolCommandCCWriteReq_4_0;
  package.needInsertSubDid = choice % 3 == 0 ? 1 : 0;
  package.subDid = static_cast<int32_t>(static_cast<uint32_t>(choice * 2654435761U));
  package.flags = encoded.flags.data();
  package.sizeFlags = encoded.sizeFlags;
  package.value = encoded.value.data();
  package.sizeValue = encoded.sizeValue;
  const size_t size = 1 + package.sizeFlags + package.sizeValue;
  if (size <= kMaxComparedBytes) CheckPack(package, size - choice / 32 % 2);

  if (!all.usable || all.hasThrown) return;
  const bool isEncoded = encoded.sizeValue != 0 && encoded.sizeValue <= MorvixProtocolMaxPayloadBytes_4_0;
  if (isEncoded) CheckDecodedTogether(writable, all, encoded.value);
  Bytes packet = isEncoded && choice / 8 % 2 == 0 ? encoded.value : payload;
  packet.insert(packet.begin(),
                choice % 2 == 0 ? MorvixProtocolCommandReadResp_4_0 : MorvixProtocolCommandNotifyResp_4_0);
  CheckReceive(all.entity, all.attributes, packet);
}

std::pair<bool, bool> CheckScaling(const Attribute& attribute, uint64_t raw, double user) {
  const Inputs inputs(attribute, raw, user);
  const bool isNumber = attribute.data_type >= 4 && attribute.data_type <= 7;
  const auto& [min, max, step, ratio, addition] = attribute.uint_spec;
  const auto wide = [](int64_t value) { return static_cast<uint64_t>(value); };
  double expectedUser = 0;
  uint64_t expectedRaw = 0;
  const bool hasText = isNumber && model::IsAccepted(model::ToUser(wide(min), wide(max), wide(step), ratio, addition,
                                                                   raw, expectedUser));
  const bool hasRaw =
      isNumber && model::IsAccepted(model::ToRaw(wide(min), wide(max), wide(step), ratio, addition, user, expectedRaw));
  std::string text = "kept";
  ExpectEqual(ProtocolRawToText_4_0(attribute, raw, text), hasText, "a raw value has a text where the model has one");
  ExpectEqual(text, hasText ? model::NumberText(expectedUser) : "kept", "the text of a raw value is the model's");
  uint64_t scaled = 77;
  ExpectEqual(ProtocolValueToRaw_4_0(attribute, user, scaled), hasRaw,
              "a number has a raw value where the model's has");
  ExpectEqual(scaled, hasRaw ? expectedRaw : uint64_t{77}, "the raw value of a number is the model's");
  return {hasText, hasRaw};
}

// --- Packets, and what becomes of them after the decoder ---

namespace {

// One way from a packet to the application, which holds something already.
struct Application {
  bool isReceived = false;
  std::string document = "left from before";
  std::vector<TavelReceiveInfo> alerts = {{"held alert", 3}};
  std::vector<TavelReceiveInfo> faults = {{"held fault", -3}, {"", 0}};
  Lines lines;
};

void ExpectSame(const Application& actual, const Application& expected, const char* property) {
  ExpectEqual(actual.isReceived, expected.isReceived, property);
  ExpectEqual(actual.document, expected.document, property);
  ExpectEqual(actual.alerts, expected.alerts, property);
  ExpectEqual(actual.faults, expected.faults, property);
  ExpectEqual(actual.lines, expected.lines, property);
}

}  // namespace

size_t CheckPack(const Package& package, size_t bufLen, Lines* lines) {
  constexpr size_t kGuardBytes = 16;
  const Inputs inputs(package, bufLen);
  Bytes buffer(bufLen + MorvixProtocolSubDidBytes_4_0 + kGuardBytes, 0xa5);
  Bytes expected = buffer;
  LogCapture log;
  const size_t size = ProtocolPackPackage_4_0(package, buffer.data(), bufLen);
  Lines expectedLines;
  ExpectEqual(size, model::Pack(package, expected, bufLen, expectedLines), "a packet has the model's size");
  ExpectEqual(buffer, expected, "a packet is the model's, and nothing else is written");
  ExpectEqual(log.Take(), expectedLines, "the packer's lines are the model's");
  ExpectEqual(ProtocolPackPackage_4_0(package, nullptr, bufLen), size_t{0}, "nothing is packed nowhere");
  ExpectEqual(log.Take(), Lines(), "nothing packed nowhere is not logged");
  if (lines != nullptr) *lines = Joined(*lines, expectedLines);
  return size;
}

model::Unpacked CheckUnpack(const Bytes& packet) {
  const Inputs inputs(packet);
  byte flag = 0;
  byte value = 0;
  Package package;
  Prepare(package);
  package.flags = &flag;
  package.sizeFlags = 7;
  package.value = &value;
  package.sizeValue = 8;
  const Bytes exact(packet.begin(), packet.end());  // nothing after it
  const LogCapture log;
  const bool isAccepted = ProtocolUnpackPackage_4_0(exact.data(), exact.size(), package);
  // Whoever releases nothing but what was allocated.
  MorvixProtocolOwnedPackage_4_0 owner;
  if (package.value != &value) owner.value = package.value;
  model::Unpacked unpacked = model::Unpack(packet);
  ExpectEqual(log.Lines(), Lines(), "unpacking logs nothing");
  ExpectEqual(isAccepted, unpacked.isAccepted, "packets are accepted where the model accepts them");
  ExpectEqual(owner.value != nullptr, isAccepted, "an accepted packet has a block of its own");
  Package expected;
  if (unpacked.isCleared) {
    expected.cmd = MorvixProtocolCommand_4_0(unpacked.command);
    expected.sizeValue = unpacked.sizeValue;
    expected.value = owner.value;
  } else {
    Prepare(expected);
    expected.flags = &flag;
    expected.sizeFlags = 7;
    expected.value = &value;
    expected.sizeValue = 8;
  }
  if (std::memcmp(&package.subDid, &expected.subDid, sizeof package.subDid) != 0 || package.cmd != expected.cmd ||
      package.needInsertSubDid != expected.needInsertSubDid || package.flags != expected.flags ||
      package.sizeFlags != expected.sizeFlags || package.value != expected.value ||
      package.sizeValue != expected.sizeValue) {
    Fail("unpacking leaves the fields that it should", "");
  }
  if (isAccepted) {
    ExpectEqual(Bytes(package.value, package.value + package.sizeValue), unpacked.value,
                "the payload is what follows the command");
  }
  return unpacked;
}

void CheckActive(const Json::Value& alerts) {
  const Inputs inputs(alerts);
  std::vector<TavelReceiveInfo> active = {{"held", 1}};
  std::vector<TavelReceiveInfo> expected = active;
  ProtocolGetAlertsOrFaults_4_0(alerts, active);
  model::AddActive(alerts, expected);
  ExpectEqual(active, expected, "the active alerts are the model's");
}

model::Converted CheckConvert(const std::string& text) {
  const Inputs inputs(text);
  const LogCapture log;
  Json::Value alerts = "left from before";
  Json::Value faults;
  const std::string document = ProtocolConvertReceiveResult_4_0(text, alerts, faults);
  model::Converted expected = model::Convert(text);
  ExpectEqual(document, expected.text, "the converted document is the model's");
  ExpectEqual(alerts, expected.alerts, "the list of alerts is the model's");
  ExpectEqual(faults, expected.faults, "the list of faults is the model's");
  Application application;
  Application held;
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, application.alerts, application.faults);
  model::AddActive(alerts, held.alerts);
  model::AddActive(faults, held.faults);
  ExpectSame(application, held, "the active alerts and faults are the model's");
  ExpectEqual(log.Lines(), Lines(), "converting logs nothing");
  Json::Value flat;
  if (!document.empty() && !ParseText(document, flat)) Fail("a converted document is JSON", document);
  return expected;
}

model::Received CheckReceive(const Entity& info, const Attributes& attributes, const Bytes& packet) {
  const Inputs inputs(info, attributes, packet);
  CheckUnpack(packet);
  const Bytes exact(packet.begin(), packet.end());
  LogCapture log;
  Application byPlan;
  byPlan.isReceived = ProtocolReceivePacket_4_0(ProtocolPlanReceive_4_0(info, attributes), exact.data(), exact.size(),
                                                byPlan.document, byPlan.alerts, byPlan.faults);
  byPlan.lines = log.Take();

  Application onePass;
  onePass.isReceived = ProtocolReceivePacket_4_0(info, attributes, exact.data(), exact.size(), onePass.document,
                                                 onePass.alerts, onePass.faults);
  onePass.lines = log.Take();

  Application longWay;
  longWay.document.clear();
  MorvixProtocolOwnedPackage_4_0 package;
  longWay.isReceived = ProtocolUnpackPackage_4_0(exact.data(), exact.size(), package);
  if (longWay.isReceived) {
    Json::Value decoded;
    ProtocolDecodeAttributes_4_0(info, attributes, package, decoded);
    longWay.lines = log.Take();
    decoded["version"] = 4.0;
    const std::string text = Written(decoded);
    Json::Value alerts;
    Json::Value faults;
    longWay.document = ProtocolConvertReceiveResult_4_0(text, alerts, faults);
    ProtocolGetAlertsAndFaults_4_0(alerts, faults, longWay.alerts, longWay.faults);
    if (longWay.document.empty()) Fail("a decoded document can be converted", Show(text));
  }
  ExpectSame(onePass, longWay, "one pass gives what the five calls give");
  ExpectSame(byPlan, longWay, "a plan gives what the five calls give");

  model::Received received = model::Receive(info, attributes, packet);
  Application expected;
  expected.isReceived = received.isAccepted;
  expected.document = received.document;
  expected.alerts.insert(expected.alerts.end(), received.alerts.begin(), received.alerts.end());
  expected.faults.insert(expected.faults.end(), received.faults.begin(), received.faults.end());
  expected.lines = received.lines;
  ExpectSame(onePass, expected, "one pass gives what the model gives");
  return received;
}

}  // namespace support
