#include "Workload.h"

#include <json/writer.h>

#include <cmath>
#include <cstdlib>
#include <iostream>

namespace {

using Kind = Field::Kind;

[[noreturn]] void Fail(const char* what) {
  std::cerr << "workload: " << what << '\n';
  std::exit(EXIT_FAILURE);
}

const char* GroupKeyword(MorvixProtocolType_4_0 group) {
  switch (group) {
    case MorvixProtocolTypeAlert_4_0:
      return "alert";
    case MorvixProtocolTypeFault_4_0:
      return "fault";
    default:
      return "status_writable";
  }
}

const char* DataTypeKeyword(const Field& field) {
  switch (field.kind) {
    case Kind::kBool:
      return "bool";
    case Kind::kEnum:
      return "enum";
    case Kind::kBinary:
      return "binary";
    case Kind::kNumber:
      break;
  }
  return field.byteLength == 1 ? "uint8" : field.byteLength == 2 ? "uint16" : "uint32";
}

Json::Value Items() {
  Json::Value items;
  for (const char* item : {"off", "low", "medium", "high"}) items.append(item);
  return items;
}

}  // namespace

void Workload::AddAttribute(const Field& field, size_t bitOffset) {
  const bool isInBits = field.kind == Kind::kBool || field.kind == Kind::kEnum;
  const bool isStatus = field.group == MorvixProtocolTypeStatusWritable_4_0;
  Json::Value attribute;
  attribute["id"] = static_cast<int>(fields.size());
  attribute["name"] = isStatus ? field.key : "condition" + std::to_string(fields.size());
  attribute["display_name"] = isStatus ? "Attribute " + std::to_string(fields.size()) : field.key;
  attribute["desc"] = "What the attribute tells";
  attribute["type"] = GroupKeyword(field.group);
  attribute["data_type"] = DataTypeKeyword(field);
  Json::Value& position = attribute["position"];
  position["byte_offset"] = static_cast<int>(field.byteOffset);
  position["bit_offset"] = static_cast<int>(bitOffset);
  position["unit"] = isInBits ? "bit" : "byte";
  position["len"] = field.kind == Kind::kBool ? 1 : field.kind == Kind::kEnum ? 2 : static_cast<int>(field.byteLength);
  if (field.kind == Kind::kEnum) attribute["enum"] = Items();
  if (field.kind == Kind::kNumber) {
    Json::Value& scaling = attribute["uint_spec"];
    scaling["min"] = 0;
    scaling["max"] = Json::UInt((uint64_t{1} << 8 * field.byteLength) - 1);
    scaling["ratio"] = std::pow(10.0, -static_cast<double>(field.decimals));
    scaling["addition"] = 0;
  }
  entity["attrs"].append(attribute);
  fields.push_back(field);
}

// Three bools and an enum share a byte; the numbers follow. The binaries come after every twenty attributes.
void Workload::AddStatusAttributes(size_t attributeCount) {
  static constexpr size_t kNumberBytes[] = {1, 2, 3, 4};
  static constexpr unsigned kNumberDecimals[] = {0, 1, 0, 2};
  size_t offset = 0;
  for (size_t ten = 0; ten < attributeCount / 10; ++ten) {
    const std::string suffix = std::to_string(ten);
    Field field;
    field.byteOffset = offset++;
    for (unsigned i = 0; i < 3; ++i) {
      field.key = "switch" + suffix + std::string(1, static_cast<char>('a' + i));
      field.shift = i;
      AddAttribute(field, i);
    }
    field.key = "mode" + suffix;
    field.kind = Kind::kEnum;
    field.shift = 3;
    field.mask = 3;
    AddAttribute(field, 3);
    for (size_t i = 0; i < 4; ++i) {
      Field number;
      number.key = "number" + suffix + std::string(1, static_cast<char>('a' + i));
      number.kind = Kind::kNumber;
      number.byteOffset = offset;
      number.byteLength = kNumberBytes[i];
      number.decimals = kNumberDecimals[i];
      AddAttribute(number, 0);
      offset += number.byteLength;
    }
    if (ten % 2 == 1) {
      Field binary;
      binary.key = "program" + suffix;
      binary.kind = Kind::kBinary;
      binary.byteOffset = offset;
      binary.byteLength = 16;
      AddAttribute(binary, 0);
      offset += binary.byteLength;
    }
  }
  writableLength = offset;
  flagLength = (fields.size() + 7) / 8;
  for (size_t i = 0; i < fields.size(); ++i) {
    fields[i].flagByte = flagLength - 1 - i / 8;
    fields[i].flagMask = static_cast<byte>(1U << i % 8);
  }
}

// The alerts and faults of a kind are one bit group each, eight to a byte, the highest bit last.
void Workload::AddConditions(size_t attributeCount) {
  const size_t count = attributeCount / 10;
  const size_t groupBytes = (count + 7) / 8;
  size_t offset = writableLength;
  for (const bool isAlert : {true, false}) {
    for (size_t i = 0; i < count; ++i) {
      Field field;
      field.key = (isAlert ? "Alert " : "Fault ") + std::to_string(i);
      field.group = isAlert ? MorvixProtocolTypeAlert_4_0 : MorvixProtocolTypeFault_4_0;
      field.byteOffset = offset;
      AddAttribute(field, i);
      fields.back().byteOffset = offset + groupBytes - 1 - i / 8;
      fields.back().shift = i % 8;
    }
    offset += groupBytes;
  }
  payloadLength = offset;
}

void Workload::AddValue(const Field& field) {
  Json::Value& value = values[kEntityName][field.key];
  const size_t salt = field.byteOffset;
  switch (field.kind) {
    case Kind::kBool:
      value = static_cast<int>((salt + field.shift) % 2);
      break;
    case Kind::kEnum:
      value = static_cast<int>(salt % 4);
      break;
    case Kind::kBinary:
      value = "AAECAwQFBgcICQoLDA0ODw==";
      break;
    case Kind::kNumber: {
      const auto limit = static_cast<double>((uint64_t{1} << 8 * field.byteLength) - 1);
      const double raw = std::floor(limit * 0.6180339887) - static_cast<double>(salt % 100);
      const double number = raw / std::pow(10.0, field.decimals);
      if (field.decimals == 0) {
        value = Json::Value(static_cast<Json::Int64>(number));
      } else {
        value = number;
      }
    }
  }
}

void Workload::Finish() {
  if (!ProtocolParseEntity_4_0(entity, 15, attributes, entityInfo) || attributes.size() != fields.size() ||
      !ProtocolParseEntity_4_0(entity, 1, writable, entityInfo)) {
    Fail("the configuration does not parse");
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["precision"] = 10;
  valuesText = Json::writeString(builder, values);

  // What is written comes back, with every third alert or fault on.
  MorvixProtocolPackage_4_0 package;
  ProtocolEncodeAttributes_4_0(entityInfo, writable, package, values);
  if (package.sizeValue != writableLength) Fail("the values do not encode");
  packet.assign(1 + payloadLength, 0);
  packet[0] = 4;
  std::copy(package.value, package.value + package.sizeValue, packet.begin() + 1);
  std::free(package.flags);
  package.flags = nullptr;
  std::free(package.value);
  for (size_t i = writableLength; i < payloadLength; ++i) packet[1 + i] = 0x49;

  if (!ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package)) Fail("the packet does not unpack");
  Json::Value decoded;
  ProtocolDecodeAttributes_4_0(entityInfo, attributes, package, decoded);
  std::free(package.value);
  decoded["version"] = 4.0;
  documentText = Json::writeString(builder, decoded);
  if (ProtocolConvertReceiveResult_4_0(documentText, alerts, faults).empty()) Fail("the document does not convert");
}

Workload::Workload(size_t attributeCount) {
  entity["id"] = 0;
  entity["name"] = kEntityName;
  entity["display_name"] = "Appliance";
  AddStatusAttributes(attributeCount);
  AddConditions(attributeCount);
  for (const Field& field : fields) {
    if (field.group == MorvixProtocolTypeStatusWritable_4_0) AddValue(field);
  }
  Finish();
}
