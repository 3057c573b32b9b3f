// Packets, and what becomes of them behind the decoder.

#include <algorithm>
#include <cstring>
#include <tuple>

#include "Properties.h"

namespace fuzz {

namespace {

constexpr size_t kMaxFlagBytes = 1024;
constexpr size_t kMaxPayloadBytes = 16384;
constexpr size_t kSubDidBytes = 4;
constexpr size_t kGuardBytes = 16;
constexpr byte kUnwritten = 0xa5;

bool IsOneOf(uint32_t command, std::initializer_list<uint32_t> commands) {
  return std::find(commands.begin(), commands.end(), command) != commands.end();
}

// A buffer after packing, by the layout alone.
struct Packed {
  size_t size = 0;
  Bytes buffer;
};

void Put(Bytes& buffer, size_t& at, const byte* bytes, size_t size) {
  if (bytes == nullptr) return;
  std::copy(bytes, bytes + size, buffer.begin() + static_cast<std::ptrdiff_t>(at));
  at += size;
}

Packed ExpectedPacket(const Package& package, size_t bufLen) {
  Packed packed;
  packed.buffer.assign(bufLen + kSubDidBytes + kGuardBytes, kUnwritten);
  const bool isWrite = IsOneOf(package.cmd, {1, 7});
  const bool isSubDeviceRequest = IsOneOf(package.cmd, {8, 12});
  const size_t required = isWrite ? 1 + package.sizeFlags + package.sizeValue : 1;
  if (package.sizeFlags > kMaxFlagBytes || package.sizeValue > kMaxPayloadBytes ||
      !IsOneOf(package.cmd, {1, 2, 7, 8, 11, 12, 13}) || (isWrite && required < 3) || required > bufLen) {
    return packed;
  }
  packed.buffer[0] = static_cast<byte>(package.cmd);
  if (isSubDeviceRequest && package.needInsertSubDid == 0) return packed;
  size_t at = 1;
  if ((isWrite || isSubDeviceRequest) && package.needInsertSubDid != 0) {
    byte id[kSubDidBytes];
    std::memcpy(id, &package.subDid, sizeof id);
    Put(packed.buffer, at, id, sizeof id);
  }
  packed.size = required + at - 1;
  if (isWrite) {
    Put(packed.buffer, at, package.flags, package.sizeFlags);
    Put(packed.buffer, at, package.value, package.sizeValue);
  }
  return packed;
}

// One way from a packet to the application.
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

template <typename Items>
Items Behind(const Items& held, const Items& found) {
  Items all = held;
  all.insert(all.end(), found.begin(), found.end());
  return all;
}

void CheckActive(const Json::Value& list, const std::vector<TavelReceiveInfo>& active, size_t held) {
  Json::ArrayIndex next = 0;
  for (size_t i = held; i < active.size(); ++i) {
    while (next < list.size() && MemberOf(list[next], "name") != Json::Value(active[i].name)) ++next;
    if (active[i].value == 0 || next == list.size()) {
      Fail("what is active is part of the list, in order, and not 0", Show(active) + "\nof " + Show(list));
    }
    ++next;
  }
}

// Whether an item goes into a list, by its type: an integer.
bool IsOfGroup(const Json::Value& item, int group) {
  const Json::Value& type = MemberOf(item, "type");
  return type.type() == Json::intValue && type.asLargestInt() == group;
}

// One entity of the input against what became of it; items for the lists are appended.
void CheckFlattened(const Json::Value& entity, const Json::Value& flat, Json::Value& alerts, Json::Value& faults,
                    const std::string& details) {
  size_t left = 0;
  for (const std::string& key : entity.getMemberNames()) {
    const Json::Value& item = MemberOf(entity, key);
    const bool isAlert = IsOfGroup(item, 4);
    if (isAlert || IsOfGroup(item, 8)) {
      Json::Value moved = item;
      moved.removeMember("type");
      moved["name"] = key;
      (isAlert ? alerts : faults).append(moved);
      if (flat.isMember(key)) Fail("a converted document holds no alert or fault", details);
      continue;
    }
    ++left;
    const Json::Value& expected = item.isObject() ? MemberOf(item, "value") : item;
    if (!flat.isMember(key) || MemberOf(flat, key) != expected) {
      Fail("a converted document holds the value of each status", Show(key) + " of\n" + details);
    }
  }
  if (flat.size() != left) Fail("a converted document holds nothing else", details);
}

void CheckFlattenedDocument(const Json::Value& root, const Json::Value& flat, const Json::Value& alerts,
                            const Json::Value& faults) {
  const std::string details = "input " + Show(root) + "result " + Show(flat);
  if (flat.getMemberNames() != root.getMemberNames())
    Fail("a converted document has the members of its input", details);
  Json::Value expectedAlerts(Json::arrayValue);
  Json::Value expectedFaults(Json::arrayValue);
  for (const std::string& name : root.getMemberNames()) {
    const Json::Value& entity = MemberOf(root, name);
    if (entity.isObject()) {
      CheckFlattened(entity, MemberOf(flat, name), expectedAlerts, expectedFaults, details);
    } else if (MemberOf(flat, name) != entity) {
      Fail("what is no entity is carried through", details);
    }
  }
  ExpectEqual(alerts, expectedAlerts, "the alerts of a document are in the list of alerts");
  ExpectEqual(faults, expectedFaults, "the faults of a document are in the list of faults");
}

}  // namespace

void CheckPack(const Package& package, size_t bufLen) {
  Bytes buffer(bufLen + kSubDidBytes + kGuardBytes, kUnwritten);
  Bytes modelBuffer = buffer;
  TakeLines();
  const size_t size = ProtocolPackPackage_4_0(package, buffer.data(), bufLen);
  const Lines lines = TakeLines();
  const Packed expected = ExpectedPacket(package, bufLen);
  ExpectEqual(size, expected.size, "a packet has the size of its parts");
  ExpectEqual(buffer, expected.buffer, "the parts of a packet stand in their places, and nothing else is written");

  Lines modelLines;
  const size_t modelSize = model::Pack(package, modelBuffer, bufLen, modelLines);
  ExpectEqual(size, modelSize, "a packet has the model's size");
  ExpectEqual(buffer, modelBuffer, "a packet is the model's");
  ExpectEqual(lines, modelLines, "the packer's lines are the model's");
  ExpectEqual(ProtocolPackPackage_4_0(package, nullptr, bufLen), size_t{0}, "nothing is packed nowhere");
  ExpectEqual(TakeLines(), Lines(), "nothing packed nowhere is not logged");
}

void CheckUnpack(const Bytes& packet) {
  byte flag = 0;
  byte value = 0;
  OwnedPackage package;
  package.cmd = MorvixProtocolCommandReadReq_4_0;
  package.subDid = 5;
  package.needInsertSubDid = 6;
  package.flags = &flag;
  package.sizeFlags = 7;
  package.value = &value;
  package.sizeValue = 8;
  const Package before = package;
  const Bytes exact(packet.begin(), packet.end());  // nothing behind it
  TakeLines();
  const bool isAccepted = ProtocolUnpackPackage_4_0(exact.data(), exact.size(), package);
  ExpectEqual(TakeLines(), Lines(), "unpacking logs nothing");
  if (package.flags == &flag) package.flags = nullptr;
  byte* const block = package.value == &value ? nullptr : package.value;
  const auto fields = [](const Package& p) {
    return std::make_tuple(p.cmd, p.subDid, p.needInsertSubDid, p.sizeFlags, p.sizeValue);
  };
  Package expected = before;
  if (exact.size() >= 2) {
    expected = Package();
    expected.cmd = static_cast<MorvixProtocolCommand_4_0>(exact[0]);
    if (IsOneOf(expected.cmd, {3, 4})) expected.sizeValue = exact.size() - 1;
  }
  const bool isResponse = exact.size() >= 2 && IsOneOf(expected.cmd, {3, 4}) && expected.sizeValue <= kMaxPayloadBytes;
  ExpectEqual(isAccepted, isResponse, "responses of 2 to 16385 bytes are accepted");
  if (fields(package) != fields(expected) || package.flags != nullptr || (block != nullptr) != isAccepted ||
      (package.value == &value) != (exact.size() < 2)) {
    Fail("unpacking leaves the fields that it should", Show(packet));
  }
  if (package.value == &value) package.value = nullptr;
  if (isAccepted) {
    ExpectEqual(Bytes(block, block + package.sizeValue), Bytes(exact.begin() + 1, exact.end()),
                "the payload is what stands behind the command");
  }
}

void CheckConvert(const std::string& text) {
  Application application;
  Json::Value alerts = "left from before";
  Json::Value faults;
  TakeLines();
  application.document = ProtocolConvertReceiveResult_4_0(text, alerts, faults);
  const model::Converted expected = model::Convert(text);
  ExpectEqual(application.document, expected.text, "the converted document is the model's");
  ExpectEqual(alerts, expected.alerts, "the list of alerts is the model's");
  ExpectEqual(faults, expected.faults, "the list of faults is the model's");

  const size_t heldAlerts = application.alerts.size();
  const size_t heldFaults = application.faults.size();
  auto activeAlerts = application.alerts;
  auto activeFaults = application.faults;
  model::AddActive(alerts, activeAlerts);
  model::AddActive(faults, activeFaults);
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, application.alerts, application.faults);
  ExpectEqual(application.alerts, activeAlerts, "the active alerts are the model's");
  ExpectEqual(application.faults, activeFaults, "the active faults are the model's");
  CheckActive(alerts, application.alerts, heldAlerts);
  CheckActive(faults, application.faults, heldFaults);
  ExpectEqual(TakeLines(), Lines(), "converting logs nothing");

  if (application.document.empty()) {
    if (alerts != Json::Value(Json::arrayValue) || faults != Json::Value(Json::arrayValue)) {
      Fail("a refused document gives empty lists", Show(text));
    }
    return;
  }
  Json::Value root;
  Json::Value flat;
  Json::Value again;
  if (!ParseText(application.document, flat)) Fail("a converted document is JSON", Show(application.document));
  if (!ParseText(text, root)) Fail("what is converted is JSON", Show(text));
  if (ParseText(Written(root), again) && again == root) CheckFlattenedDocument(root, flat, alerts, faults);
}

void CheckReceive(const Entity& info, const Attributes& attributes, const Bytes& packet) {
  CheckUnpack(packet);
  const Bytes exact(packet.begin(), packet.end());

  Application onePass;
  TakeLines();
  onePass.isReceived = ProtocolReceivePacket_4_0(info, attributes, exact.data(), exact.size(), onePass.document,
                                                 onePass.alerts, onePass.faults);
  onePass.lines = TakeLines();

  Application longWay;
  longWay.document.clear();
  OwnedPackage package;
  longWay.isReceived = ProtocolUnpackPackage_4_0(exact.data(), exact.size(), package);
  if (longWay.isReceived) {
    Json::Value decoded;
    ProtocolDecodeAttributes_4_0(info, attributes, package, decoded);
    longWay.lines = TakeLines();
    decoded["version"] = 4.0;
    const std::string text = Written(decoded);
    Json::Value alerts;
    Json::Value faults;
    longWay.document = ProtocolConvertReceiveResult_4_0(text, alerts, faults);
    ProtocolGetAlertsAndFaults_4_0(alerts, faults, longWay.alerts, longWay.faults);
    if (longWay.document.empty()) Fail("a decoded document can be converted", Show(text));
    CheckConvert(text);
  }
  ExpectSame(onePass, longWay, "one pass gives what the five calls give");

  const model::Received received = model::Receive(info, attributes, packet);
  const Application held;
  Application model;
  model.isReceived = received.isAccepted;
  model.document = received.document;
  model.alerts = Behind(held.alerts, received.alerts);
  model.faults = Behind(held.faults, received.faults);
  model.lines = received.lines;
  ExpectSame(onePass, model, "one pass gives what the model gives");
}

}  // namespace fuzz
