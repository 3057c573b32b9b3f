// The whole job on the example products: what a host does to send a write and to handle a received packet.
//
//     demo FOLDER      FOLDER holds the example products (examples/)

#include <json/json.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"

namespace {

const int kWritable = MorvixProtocolTypeStatusWritable_4_0;
const int kAllGroups = MorvixProtocolTypeStatusWritable_4_0 | MorvixProtocolTypeStatusReadonly_4_0 |
                       MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0;
const size_t kPacketCapacity = 512;
const size_t kSubDidBytes = 4;  // the packer writes the sub-device id beyond the capacity that it is told
const size_t kColumns = 120;

// The buffers of a package belong to whoever had it filled; this one releases its own.
struct Package : MorvixProtocolPackage_4_0 {
  Package() = default;
  ~Package() {
    std::free(flags);
    std::free(value);
  }
  Package(const Package&) = delete;
  Package& operator=(const Package&) = delete;
};

// One entity with its records, parsed once: the writable attributes for encoding, all of them for decoding.
struct Entity {
  MorvixProtocolEntity_4_0 info;
  std::vector<MorvixProtocolAttribute_4_0> writable;
  std::vector<MorvixProtocolAttribute_4_0> all;
};

void Require(bool success, const std::string& what) {
  if (!success) throw std::runtime_error(what);
}

// ---- Files ----------------------------------------------------------------------------------------------------------

std::string ReadText(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  Require(stream.is_open(), "cannot open " + path);
  std::ostringstream text;
  text << stream.rdbuf();
  Require(stream.good() && text.good(), "cannot read " + path);
  return text.str();
}

Json::Value ReadJson(const std::string& path) {
  std::istringstream stream(ReadText(path));
  Json::Value value;
  std::string errors;
  Require(Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors), path + ": " + errors);
  return value;
}

std::vector<byte> ReadHex(const std::string& path) {
  std::istringstream stream(ReadText(path));
  const std::string refusal = path + ": not two hexadecimal digits: ";
  std::vector<byte> bytes;
  std::string digits;
  while (stream >> digits) {
    const bool isByte = digits.size() == 2 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    Require(isByte, refusal + digits);
    bytes.push_back(static_cast<byte>(std::stoul(digits, nullptr, 16)));
  }
  return bytes;
}

std::string CompactJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

// ---- Printing -------------------------------------------------------------------------------------------------------

std::string Hex(const byte* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    if (i != 0) text += ' ';
    text += {kDigits[data[i] >> 4], kDigits[data[i] & 0x0f]};
  }
  return text;
}

void PrintLine(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  std::cout << line << '\n';
}

// Prints a label and the text after it, wrapped at blanks or after commas to fit the columns.
void PrintLabelled(const std::string& label, std::string text) {
  const size_t indent = 12;
  std::string start = "  " + label;
  start.resize(indent, ' ');
  while (!text.empty()) {
    size_t end = text.size();
    if (end > kColumns - indent) {
      end = text.find_last_of(" ,", kColumns - indent - 1);
      end = end == std::string::npos ? kColumns - indent : end + 1;
    }
    PrintLine(start + text.substr(0, end));
    text.erase(0, end);
    start.assign(indent, ' ');
  }
}

const char* GroupName(uint32_t type) {
  switch (type) {
    case MorvixProtocolTypeStatusWritable_4_0:
      return "writable";
    case MorvixProtocolTypeStatusReadonly_4_0:
      return "readonly";
    case MorvixProtocolTypeAlert_4_0:
      return "alert";
    case MorvixProtocolTypeFault_4_0:
      return "fault";
    default:
      return "?";
  }
}

const char* DataTypeName(MorvixProtocolDataType_4_0 type) {
  static const char* const kNames[] = {"?", "bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  return type < sizeof kNames / sizeof kNames[0] ? kNames[type] : "?";
}

// "4" or "4-7".
std::string Range(int64_t first, int64_t count) {
  const std::string start = std::to_string(first);
  return count <= 1 ? start : start + '-' + std::to_string(first + count - 1);
}

// Where an attribute lies: its bytes, or its bit group's bytes and its bits in the group.
std::string PlaceRow(const MorvixProtocolAttribute_4_0& attribute, const std::string& flagBit) {
  const MorvixProtocolPosition_4_0& position = attribute.position;
  const bool inBits = position.unit == MorvixProtocolUnitBit_4_0;
  const int64_t byteCount = inBits ? static_cast<int64_t>(position.groupByteLength) : position.len;
  char row[80];
  static_cast<void>(std::snprintf(row, sizeof row, "%-21.20s%-9s%-7s%-6s%-6s%-4s", attribute.name.c_str(),
                                  GroupName(attribute.type), DataTypeName(attribute.data_type),
                                  Range(position.byte_offset, byteCount).c_str(),
                                  inBits ? Range(position.bit_offset, position.len).c_str() : "", flagBit.c_str()));
  return row;
}

// All attributes of an entity, in configuration order down the left column and on down the right one.
void PrintPlaces(const Entity& entity) {
  std::vector<std::string> rows;
  size_t flagBit = 0;
  for (const MorvixProtocolAttribute_4_0& attribute : entity.all) {
    const bool isWritable = attribute.type == MorvixProtocolTypeStatusWritable_4_0;
    rows.push_back(PlaceRow(attribute, isWritable ? std::to_string(flagBit++) : ""));
  }
  char header[80];
  static_cast<void>(std::snprintf(header, sizeof header, "%-21s%-9s%-7s%-6s%-6s%-4s", "attribute", "group", "type",
                                  "bytes", "bits", "flag"));
  const size_t lines = (rows.size() + 1) / 2;
  PrintLine(std::string("  ") + header + "   " + header);
  for (size_t i = 0; i < lines; ++i) {
    PrintLine("  " + rows[i] + (i + lines < rows.size() ? "   " + rows[i + lines] : ""));
  }
}

// The decoded document, one paragraph for each group.
void PrintDecoded(const Entity& entity, const Json::Value& decoded) {
  std::map<uint32_t, std::string> groups;
  const Json::Value& items = decoded[entity.info.name];
  for (const MorvixProtocolAttribute_4_0& attribute : entity.all) {
    const bool isStatus = (attribute.type & (MorvixProtocolTypeAlert_4_0 | MorvixProtocolTypeFault_4_0)) == 0;
    const std::string& key = isStatus ? attribute.name : attribute.display_name;
    if (!items.isMember(key)) continue;  // its raw value is out of range
    std::string& text = groups[attribute.type];
    text += (text.empty() ? "" : ", ") + key + '=' + CompactJson(items[key]["value"]);
  }
  for (const auto& group : groups) PrintLabelled(GroupName(group.first), group.second);
}

void PrintActive(const std::string& label, const std::vector<TavelReceiveInfo>& active) {
  std::string text;
  for (const TavelReceiveInfo& info : active) {
    text += (text.empty() ? "" : ", ") + info.name + " (" + std::to_string(info.value) + ")";
  }
  PrintLabelled(label, text.empty() ? "none" : text);
}

// ---- The job --------------------------------------------------------------------------------------------------------

Entity ParseEntity(const Json::Value& configuration, Json::ArrayIndex index) {
  Json::Value entities;
  Require(ProtocolGetEntitiesFromDevice_4_0(configuration, entities), "the configuration has no entities");
  Require(index < entities.size(), "the configuration has no entity " + std::to_string(index));
  Entity entity;
  Require(ProtocolParseEntity_4_0(entities[index], kWritable, entity.writable, entity.info), "the entity is unusable");
  Require(ProtocolParseEntity_4_0(entities[index], kAllGroups, entity.all, entity.info), "the entity is unusable");
  return entity;
}

// Encodes the values for the entity and packs the packet. The package's command, and its sub-device id where there is
// one, are set by the caller.
std::vector<byte> Write(const Entity& entity, const Json::Value& values, Package& package) {
  ProtocolEncodeAttributes_4_0(entity.info, entity.writable, package, values);
  Require(package.sizeValue != 0, "no value was encoded, or one was refused");

  std::vector<byte> packet(kPacketCapacity + kSubDidBytes);
  const size_t size = ProtocolPackPackage_4_0(package, packet.data(), kPacketCapacity);
  Require(size != 0, "the packet was not packed");
  packet.resize(size);
  return packet;
}

void ShowWrite(const Entity& entity, const Json::Value& values, Package& package) {
  const std::vector<byte> packet = Write(entity, values, package);
  PrintLabelled("values", CompactJson(values[entity.info.name]));
  PrintLabelled("flags", Hex(package.flags, package.sizeFlags));
  PrintLabelled("payload", Hex(package.value, package.sizeValue));
  PrintLabelled("packet", Hex(packet.data(), packet.size()));
}

void ShowReceived(const Entity& entity, const std::vector<byte>& packet) {
  Package package;
  Require(ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package), "not a packet to decode");
  PrintLine("3. A received notification, decoded; alerts and faults stand under their display names");
  PrintLabelled("packet", Hex(packet.data(), packet.size()));
  Json::Value decoded;
  ProtocolDecodeAttributes_4_0(entity.info, entity.all, package, decoded);
  Require(decoded.isMember(entity.info.name), "the payload was not decoded");
  PrintDecoded(entity, decoded);

  PrintLine("4. Flattened for the application");
  decoded["version"] = 4.0;
  Json::Value alerts;
  Json::Value faults;
  std::string document = ProtocolConvertReceiveResult_4_0(CompactJson(decoded), alerts, faults);
  Require(!document.empty(), "the decoded document was not converted");
  document.erase(document.find_last_not_of('\n') + 1);
  PrintLabelled("document", document);

  PrintLine("5. The active alerts and faults, with their values");
  std::vector<TavelReceiveInfo> activeAlerts;
  std::vector<TavelReceiveInfo> activeFaults;
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, activeAlerts, activeFaults);
  PrintActive("alerts", activeAlerts);
  PrintActive("faults", activeFaults);
}

// A product with one entity: a write to it and a notification from it.
void ShowProduct(const std::string& folder, const std::string& product) {
  const Json::Value configuration = ReadJson(folder + '/' + product + ".json");
  const Entity entity = ParseEntity(configuration, 0);

  PrintLine("== " + configuration["name"].asString() + " ==");
  PrintLine("1. Where each attribute lies; bits count from the lowest bit of the last of the bytes, as flag bits do");
  PrintPlaces(entity);

  PrintLine("2. A write: the application's values, the flag bitmap, the payload, and the packet of both");
  Package package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  ShowWrite(entity, ReadJson(folder + '/' + product + ".values.json"), package);

  ShowReceived(entity, ReadHex(folder + '/' + product + ".notify.hex"));
  PrintLine("");
}

// A write to a sub-device: another command, the sub-device's id, and the entity that describes the sub-device.
void ShowSubDeviceWrite(const std::string& folder) {
  const Json::Value configuration = ReadJson(folder + "/gateway.json");
  const Entity entity = ParseEntity(configuration, 1);

  Package package;
  package.cmd = MorvixProtocolCommandCCWriteReq_4_0;
  package.subDid = 0x0a0b0c0d;
  package.needInsertSubDid = 1;

  PrintLine("== " + configuration["name"].asString() + " ==");
  PrintLine("A write to its sub-device 0x0a0b0c0d, a \"" + entity.info.display_name +
            "\"; the id travels in host order");
  ShowWrite(entity, ReadJson(folder + "/gateway.values.json"), package);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: demo FOLDER\n";
    return 2;
  }
  try {
    const std::string folder = argv[1];
    ShowProduct(folder, "kettle");
    ShowProduct(folder, "air_conditioner");
    ShowSubDeviceWrite(folder);
    Require(std::cout.flush().good(), "cannot write the output");
  } catch (const std::exception& error) {
    std::cerr << "demo: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
