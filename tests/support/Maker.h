// Made-up configurations, values, payloads, records and packages: mostly well-formed, so that they get deep, and wrong
// in one place or another, so that every branch is reached.

#ifndef MORVIX_TESTS_SUPPORT_MAKER_H
#define MORVIX_TESTS_SUPPORT_MAKER_H

#include <json/value.h>

#include <string>
#include <vector>

#include "CodecModel.h"
#include "Source.h"

namespace support {

using model::Attribute;
using model::Attributes;
using model::Bytes;
using model::Entity;
using model::Lines;
using model::Package;
using model::Position;

constexpr int kWritableGroup = MorvixProtocolTypeStatusWritable_4_0;
constexpr int kEveryGroup = 15;

// The records of one entity.
struct Product {
  Entity entity;
  Attributes attributes;
};

// The numbers of a scaling as the scaling operations take them.
struct Scaling {
  uint64_t min = 0;
  uint64_t max = 0;
  uint64_t step = 1;
  double ratio = 1;
  double addition = 0;
};

Position BytesAt(int32_t byteOffset, int32_t len);
Position BitsAt(int32_t byteOffset, int32_t bitOffset, int32_t len, size_t groupByteLength);

// The number that the user sees. The product is rounded before the sum, also by a compiler that would rather fuse them.
double UserValue(double raw, double ratio, double addition);

// Names that sort, merge or survive JSON in their own way: around "version" and the names of members, with long
// beginnings in common, escaped, beyond ASCII, beyond UTF-8, with NULs.
const std::vector<std::string>& TroublesomeNames();

class Maker {
 public:
  explicit Maker(Source& source) : source_(source) {}

  // --- Good ones ---

  // A product whose fields follow one another. Each run of bits is followed by bytes of its group, so that it stays a
  // bit group of its own whichever of the other groups are selected. `mayDisturb`: bit fields may share bytes with
  // fields that span several, and are disturbed when those are written.
  Product MakeProduct(bool mayDisturb);
  // A value that the attribute takes, in one of the forms that an application may use.
  Json::Value MakeGoodValue(const Attribute& attribute);

  // --- Good ones and bad ones ---

  // A product, in two of three cases changed in some places into something that no configuration gives.
  Product MakeRecords();
  void Spoil(Product& product);
  // The configuration of an entity, in one form or in all that the parser takes; what has none becomes something else.
  Json::Value ConfigurationOf(const Product& product, bool isPlain);
  // The same of made-up records, with members changed, misspelt and missing in some cases.
  Json::Value MakeEntity();

  // A value document, and a document to decode into.
  Json::Value MakeValues(const Product& product);
  Json::Value MakeDocument(const Product& product);
  // Bytes for a payload: as a device may send them, of chance, or too few or too many. With `command` a packet.
  Bytes MakePayload(const Product& product);
  Bytes MakePacket(const Product& product);
  // A package for the packer; its buffers are `flags` and `value`.
  Package MakePackage(Bytes& flags, Bytes& value);
  // The text of a receive document, and a list of alerts.
  std::string MakeReceiveDocument();
  Json::Value MakeAlerts();

  // A position that fits a payload, or nearly, or not at all.
  Position MakePosition(uint64_t payloadBytes);
  Scaling MakeScaling();
  // A raw value inside the range or near it, and a user value on a raw value, around it, or anywhere.
  uint64_t MakeRaw(const Scaling& scaling);
  double MakeUser(const Scaling& scaling);
  double MakeDouble();
  std::string MakeName();
  // Base64 text of some bytes, whole, spoilt or spread out.
  std::string MakeBase64(size_t count);
  Json::Value MakeAnything(int depth = 2);
  // A name that is not quite `name`: one letter other, less or more.
  std::string Misspelt(std::string name);

 private:
  Attribute& Add(Product& product, MorvixProtocolType_4_0 type, MorvixProtocolDataType_4_0 dataType);
  void AddBits(Product& product, MorvixProtocolType_4_0 type, bool mayDisturb);
  void AddBytes(Product& product, MorvixProtocolType_4_0 type);
  size_t MakeGroupLength(uint64_t payloadBytes);
  std::string MakeText();
  Json::Value FormOf(int64_t number);
  Json::Value FormOf(double number);
  std::string KeywordOf(const char* keyword);
  Json::Value AttributeConfigurationOf(const Attribute& attribute);
  void SpoilMember(Json::Value& object);
  void SpoilConfiguration(Json::Value& entity);

  Source& source_;
  int32_t nextByte_ = 0;  // of the product that is being made
  bool isPlain_ = false;  // the configuration that is being made has one form only
};

}  // namespace support

#endif
