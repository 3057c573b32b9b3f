// Generated products of any size, with values to write and a packet to receive, for all measurements.

#ifndef MORVIX_BENCH_WORKLOAD_H
#define MORVIX_BENCH_WORKLOAD_H

#include <json/value.h>

#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"

// The place and scaling of an attribute, for code that knows the layout in advance.
struct Field {
  enum class Kind { kBool, kEnum, kNumber, kBinary };
  std::string key;  // in the decoded document
  Kind kind = Kind::kBool;
  MorvixProtocolType_4_0 group = MorvixProtocolTypeStatusWritable_4_0;
  size_t byteOffset = 0;  // first byte
  size_t byteLength = 1;  // numbers and binaries
  unsigned shift = 0;     // bools and enums: of the lowest bit in their byte
  unsigned mask = 1;      // bools and enums: before shifting
  unsigned decimals = 0;  // numbers: user value = raw value / 10^decimals
  size_t flagByte = 0;    // writable attributes: byte of the flag bitmap
  byte flagMask = 0;      // and bit in it
};

// Of ten attributes three are bools, one is an enum, four are numbers of 8 to 32 bits (half of them with a fractional
// scaling), one is an alert and one a fault. For every twenty there is an additional 16-byte binary.
struct Workload {
  explicit Workload(size_t attributeCount);

  Json::Value entity;         // product configuration
  Json::Value values;         // a value for every writable attribute
  std::string valuesText;     // the same as text
  std::vector<byte> packet;   // a notification
  std::vector<Field> fields;  // in the order of the configuration
  size_t payloadLength = 0;   // of all attributes
  size_t writableLength = 0;  // of the writable ones; they come first
  size_t flagLength = 0;

  // Parsed once.
  MorvixProtocolEntity_4_0 entityInfo;
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  std::vector<MorvixProtocolAttribute_4_0> writable;

  std::string documentText;    // the receive document of `packet`
  Json::Value alerts, faults;  // all of them, as converting `documentText` gives them

 private:
  void AddAttribute(const Field& field, size_t bitOffset);
  void AddStatusAttributes(size_t attributeCount);
  void AddConditions(size_t attributeCount);
  void AddValue(const Field& field);
  void Finish();
};

constexpr char kEntityName[] = "appliance";

#endif
