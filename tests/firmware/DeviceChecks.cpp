#include "DeviceChecks.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Check.h"
#include "host/Logging.h"
#include "inspect/packets/Reading.h"

namespace firmware {

using namespace morvix::inspect;
using support::ExpectEqual;
using support::Source;

namespace {

constexpr int32_t kSubDevice = -0x01020304;  // fc fd fe fc, low byte first
constexpr size_t kIdBytes = MorvixProtocolSubDidBytes_4_0;

json::Document ReadDocument(const std::string& text) {
  json::SyntaxError error;
  std::optional<json::Document> document = json::Document::Read("the configuration", text, error);
  if (!document) throw support::Failure("not JSON: " + error.message);
  return std::move(*document);
}

EntityModel ReadEntity(const json::Document& configuration, const char* entity) {
  const LogCapture silent;
  return ModelOf(configuration, ChooseEntity(configuration, entity));
}

bool IsInBytes(const Field& field) { return IsBinary(*field.attribute); }

// The number in a member of a struct, in this machine's byte order.
uint64_t NumberIn(const Bytes& record, const compiled_member& member) {
  const byte* at = record.data() + member.offset;
  uint8_t one = 0;
  uint16_t two = 0;
  uint32_t four = 0;
  uint64_t eight = 0;
  if (member.size == 1) return std::memcpy(&one, at, 1), one;
  if (member.size == 2) return std::memcpy(&two, at, 2), two;
  if (member.size == 4) return std::memcpy(&four, at, 4), four;
  return std::memcpy(&eight, at, 8), eight;
}

void PutNumber(uint64_t number, const compiled_member& member, Bytes& record) {
  byte* at = record.data() + member.offset;
  const auto one = static_cast<uint8_t>(number);
  const auto two = static_cast<uint16_t>(number);
  const auto four = static_cast<uint32_t>(number);
  if (member.size == 1) std::memcpy(at, &one, 1);
  if (member.size == 2) std::memcpy(at, &two, 2);
  if (member.size == 4) std::memcpy(at, &four, 4);
  if (member.size == 8) std::memcpy(at, &number, 8);
}

uint64_t LeastOf(const Attribute& attribute) {
  return IsNumber(attribute) ? static_cast<uint64_t>(attribute.uint_spec.min) : 0;
}

uint64_t MostOf(const Attribute& attribute) {
  if (IsBool(attribute)) return 1;
  return IsEnum(attribute) ? attribute.enumList.size() - 1 : static_cast<uint64_t>(attribute.uint_spec.max);
}

bool IsInRange(uint64_t raw, const Attribute& attribute) {
  return raw >= LeastOf(attribute) && raw <= MostOf(attribute);
}

uint64_t RandomRaw(const Attribute& attribute, Source& source) {
  const uint64_t least = LeastOf(attribute);
  const uint64_t most = MostOf(attribute);
  if (source.OneIn(4)) return source.Flip() ? least : most;
  return least + source.UpTo(most - least);
}

Json::Value ValueOf(const Attribute& attribute, uint64_t raw) {
  if (!IsNumber(attribute)) return static_cast<Json::UInt>(raw);
  return static_cast<double>(raw) * attribute.uint_spec.ratio + attribute.uint_spec.addition;
}

// Sets the bits of a field one after the other.
void SetBits(const BitRange& bits, uint64_t raw, byte* payload) {
  for (uint64_t bit = bits.end; bit-- > bits.begin; raw >>= 1) {
    const auto mask = static_cast<byte>(0x80 >> bit % 8);
    byte& target = payload[bit / 8];
    target = static_cast<byte>((raw & 1) != 0 ? target | mask : target & ~mask);
  }
}

// Names up to their first NUL can be alike, and then the module cannot write the one without the other.
std::string NameOf(size_t flag) { return std::to_string(flag); }

}  // namespace

DeviceChecks::DeviceChecks(const compiled_device& device, const std::string& configuration)
    : device_(device),
      configuration_(ReadDocument(configuration)),
      entity_(ReadEntity(configuration_, device.entity)),
      writers_(entity_.Writing().records) {
  for (size_t i = 0; i < writers_.size(); ++i) writers_[i].name = NameOf(i);
}

Bytes DeviceChecks::Send(const Json::Value& values, bool hasId, std::vector<Result>& results) const {
  Json::Value document;
  document[entity_.Info().name] = values;
  const LogCapture silent;
  MorvixProtocolOwnedPackage_4_0 package;
  package.cmd = hasId ? MorvixProtocolCommandCCWriteReq_4_0 : MorvixProtocolCommandWriteReq_4_0;
  package.subDid = kSubDevice;
  package.needInsertSubDid = hasId ? 1 : 0;
  ProtocolEncodeAttributes_4_0(entity_.Info(), writers_, package, document, results);
  if (package.sizeValue == 0) return {};
  Bytes packet = PackPackage(package);
  // The module sends the id in this machine's byte order, devices expect the lowest byte first.
  if (hasId && packet[1] != static_cast<byte>(kSubDevice & 0xff)) {
    std::reverse(packet.begin() + 1, packet.begin() + 1 + kIdBytes);
  }
  return packet;
}

Bytes DeviceChecks::CheckWrite(Source& source) const {
  if (device_.write_size == 0) return {};
  const std::vector<Field>& fields = entity_.Writing().fields;
  Json::Value values(Json::objectValue);
  for (const Field& field : fields) {
    if (source.Flip()) continue;
    const Attribute& attribute = *field.attribute;
    Json::Value& value = values[NameOf(field.flag)];
    if (IsInBytes(field)) {
      const Bytes bytes = source.Bytes(static_cast<size_t>(field.bits.Length() / 8));
      value = Base64Text(bytes.data(), bytes.size());
    } else {
      value = ValueOf(attribute, RandomRaw(attribute, source));
    }
  }
  std::vector<Result> results;
  const bool hasId = source.Flip();
  Bytes packet = Send(values, hasId, results);
  if (packet.empty()) return {};
  const support::Inputs inputs(configuration_.Root(), values, packet);
  Bytes write(device_.write_size, byte{0xa5});
  ExpectEqual(device_.read_write(packet.data(), packet.size(), write.data()), true, "what the module sends is read");
  const byte* payload = packet.data() + packet.size() - entity_.Writing().payloadBytes;
  for (const Field& field : fields) {
    const compiled_member& member = device_.write[field.flag];
    const bool isSet = results[field.flag].outcome == MorvixProtocolOutcomeDone_4_0;
    ExpectEqual(write[member.has] != 0, isSet, "a member is set when the module set it");
    if (IsInBytes(field)) {
      const Bytes none(member.size);
      const int difference = std::memcmp(write.data() + member.offset,
                                         isSet ? payload + field.bits.FirstByte() : none.data(), member.size);
      ExpectEqual(difference, 0, "a binary's bytes are those of the packet");
    } else {
      ExpectEqual(NumberIn(write, member), isSet ? results[field.flag].raw : 0, "a raw value is the module's");
    }
  }
  int32_t id = 0;
  ExpectEqual(device_.read_sub_device(packet.data(), packet.size(), &id), hasId, "a sub-device's id is found");
  ExpectEqual(id, hasId ? kSubDevice : 0, "a sub-device's id is the module's");
  return packet;
}

// Whether the bytes are a write of values in range: flags of known attributes, and raw values that decoding takes.
bool DeviceChecks::IsWrite(const Bytes& packet) const {
  const Direction& writing = entity_.Writing();
  const size_t flagBytes = FlagBytes(writing);
  const size_t whole = 1 + flagBytes + writing.payloadBytes;
  if (packet.size() != whole && packet.size() != whole + kIdBytes) return false;
  if (packet[0] != 1 && packet[0] != 7) return false;
  const byte* payload = packet.data() + packet.size() - writing.payloadBytes;
  const byte* flags = payload - flagBytes;
  bool isAnySet = false;
  for (uint64_t bit = 0; bit < 8 * flagBytes; ++bit) {
    if (!BitAt(flags, bit)) continue;
    isAnySet = true;
    const size_t flag = 8 * flagBytes - 1 - static_cast<size_t>(bit);
    if (flag >= writing.records.size()) return false;
    const std::vector<Result> results = DecodeSilently(entity_, {writing.records[flag]}, payload, writing.payloadBytes);
    if (results[0].outcome != MorvixProtocolOutcomeDone_4_0) return false;
  }
  return isAnySet;
}

void DeviceChecks::CheckSubDevice(const Bytes& packet) const {
  const Direction& writing = entity_.Writing();
  const size_t addressed = 1 + kIdBytes + FlagBytes(writing) + writing.payloadBytes;
  const byte command = packet.empty() ? byte{0} : packet[0];
  const bool isWrite = !writing.records.empty() && packet.size() == addressed && (command == 1 || command == 7);
  const bool isRequest = packet.size() == 1 + kIdBytes && (command == 8 || command == 12);
  int32_t id = 77;
  ExpectEqual(device_.read_sub_device(packet.data(), packet.size(), &id), isWrite || isRequest,
              "a sub-device's id is told by command and size");
  uint32_t expected = 77;
  if (isWrite || isRequest) {
    expected = 0;
    for (size_t i = kIdBytes; i > 0; --i) expected = expected << 8 | packet[i];
  }
  ExpectEqual(static_cast<uint32_t>(id), expected, "a sub-device's id has its lowest byte first");
}

// The module sends the values that were read in the same bytes, but for the bits of attributes that are not set.
void DeviceChecks::CheckReread(const Bytes& packet, const Bytes& write) const {
  const Direction& writing = entity_.Writing();
  Json::Value values(Json::objectValue);
  Bytes expected = packet;
  byte* payload = expected.data() + expected.size() - writing.payloadBytes;
  std::fill(payload, payload + writing.payloadBytes, byte{0});
  for (const Field& field : writing.fields) {
    const compiled_member& member = device_.write[field.flag];
    if (write[member.has] == 0) continue;
    const Attribute& attribute = *field.attribute;
    const byte* bytes = write.data() + member.offset;
    if (IsInBytes(field)) {
      values[NameOf(field.flag)] = Base64Text(bytes, member.size);
      std::copy(bytes, bytes + member.size, payload + field.bits.FirstByte());
      continue;
    }
    const uint64_t raw = NumberIn(write, member);
    uint64_t sent = raw;
    values[NameOf(field.flag)] = ValueOf(attribute, raw);
    // Of a scaling that is finer than doubles some raw values cannot be sent.
    if (IsNumber(attribute) &&
        (!ProtocolValueToRaw_4_0(attribute, values[NameOf(field.flag)].asDouble(), sent) || sent != raw)) {
      return;
    }
    SetBits(field.bits, raw, payload);
  }
  const bool hasId = packet.size() != 1 + FlagBytes(writing) + writing.payloadBytes;
  std::vector<Result> results;
  Bytes sent = Send(values, hasId, results);
  ExpectEqual(sent.size(), expected.size(), "what is read can be sent");
  sent[0] = expected[0];
  if (hasId) std::copy(expected.begin() + 1, expected.begin() + 1 + kIdBytes, sent.begin() + 1);
  ExpectEqual(sent, expected, "what is read is what the module sends");
}

bool DeviceChecks::CheckPacket(const Bytes& packet) const {
  const support::Inputs inputs(configuration_.Root(), packet);
  // In a block of its own size, so that a sanitizer sees what is read beyond it.
  const std::unique_ptr<byte[]> block(new byte[packet.size()]);
  std::copy(packet.begin(), packet.end(), block.get());
  CheckSubDevice(packet);
  if (device_.write_size == 0) return false;
  Bytes write(device_.write_size, byte{0xa5});
  const bool isRead = device_.read_write(packet.empty() ? nullptr : block.get(), packet.size(), write.data());
  ExpectEqual(isRead, IsWrite(packet), "exactly the writes are read");
  if (isRead) {
    CheckReread(packet, write);
  } else {
    const bool isClear = std::all_of(write.begin(), write.end(), [](byte value) { return value == 0; });
    ExpectEqual(isClear, true, "what is refused is cleared");
  }
  return isRead;
}

Bytes DeviceChecks::Changed(Bytes packet, Source& source) {
  if (packet.empty()) return packet;
  do {
    byte& value = packet[source.Index(packet.size())];
    value = source.Flip() ? static_cast<byte>(value ^ 1 << source.Below(8)) : source.Byte();
  } while (source.Flip());
  if (source.OneIn(8)) packet.resize(source.Index(packet.size() + 8));
  return packet;
}

void DeviceChecks::CheckState(Source& source) const {
  const Direction& reading = entity_.Reading();
  Bytes state(device_.state_size);
  Bytes expected(1 + reading.payloadBytes);
  byte* payload = expected.data() + 1;
  const Field* outside = nullptr;
  for (const Field& field : reading.fields) {
    const Attribute& attribute = *field.attribute;
    const compiled_member& member = device_.state[field.flag];
    if (IsInBytes(field)) {
      const Bytes bytes = source.Bytes(member.size);
      std::copy(bytes.begin(), bytes.end(), state.begin() + static_cast<ptrdiff_t>(member.offset));
      std::copy(bytes.begin(), bytes.end(), payload + field.bits.FirstByte());
      continue;
    }
    uint64_t raw = RandomRaw(attribute, source);
    if (!IsBool(attribute) && source.OneIn(200)) {
      raw = source.Word();
      PutNumber(raw, member, state);
      raw = NumberIn(state, member);
      if (!IsInRange(raw, attribute)) outside = &field;
    }
    PutNumber(raw, member, state);
    SetBits(field.bits, raw, payload);
  }
  const support::Inputs inputs(configuration_.Root(), state, expected);
  ExpectEqual(expected.size() <= device_.max_packet_bytes, true, "no packet is longer than the longest");
  for (const byte command : {byte{3}, byte{4}}) {
    const auto make = command == 3 ? device_.make_read_response : device_.make_notification;
    expected[0] = command;
    Bytes packet(expected.size(), byte{0xa5});
    const Bytes untouched = packet;
    ExpectEqual(make(state.data(), packet.data(), packet.size() - 1), size_t{0}, "no room makes no packet");
    ExpectEqual(packet, untouched, "no room leaves the packet untouched");
    ExpectEqual(make(state.data(), nullptr, 0), size_t{0}, "a null packet makes no packet");
    const size_t size = make(state.data(), packet.data(), packet.size());
    if (outside != nullptr) {
      ExpectEqual(size, size_t{0}, "a value out of range makes no packet");
      ExpectEqual(packet, untouched, "a value out of range leaves the packet untouched");
      continue;
    }
    ExpectEqual(size, expected.size(), "a state makes a packet");
    ExpectEqual(packet, expected, "a packet has every bit in its place, and zeros elsewhere");
    morvix::inspect::PacketReader reader(entity_);
    morvix::inspect::PacketError error;
    const LogCapture silent;
    const morvix::inspect::PacketReading* result = reader.Read(packet, error);
    ExpectEqual(result != nullptr, true, "the packet can be read");
    for (const Field& field : reading.fields) {
      const Result& read = result->values[field.flag].result;
      ExpectEqual(uint32_t{read.outcome}, uint32_t{MorvixProtocolOutcomeDone_4_0}, "the module reads every value");
      if (IsInBytes(field)) continue;
      ExpectEqual(read.raw, NumberIn(state, device_.state[field.flag]), "the module reads the device's raw value");
    }
  }
  if (outside != nullptr || device_.write_size == 0) return;
  // Applying takes over what is set, and nothing else.
  Bytes write(device_.write_size);
  Bytes applied = state;
  for (const Field& field : entity_.Writing().fields) {
    const compiled_member& member = device_.write[field.flag];
    const compiled_member& target = device_.state[entity_.Read(field.element)->flag];
    const bool isSet = source.Flip();
    write[member.has] = isSet ? 1 : 0;
    for (size_t i = 0; i < member.size; ++i) {
      write[member.offset + i] = IsBool(*field.attribute) ? source.Byte() & 1 : source.Byte();
      if (isSet) applied[target.offset + i] = write[member.offset + i];
    }
  }
  device_.apply(state.data(), write.data());
  ExpectEqual(state, applied, "applying takes over what is set");
}

}  // namespace firmware
