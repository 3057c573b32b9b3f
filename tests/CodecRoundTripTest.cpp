// What an application writes comes back unchanged when a device reports it: made-up products, whose values travel
// through encoder, packer, unpacker and decoder.
//
// Writing a bit field that partly covers several bytes reverses the bits around it. Devices in the field rely on that.
// So values can come back unchanged only if one value is written at a time, or if no other field shares a byte with
// such a field.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "EntityBuilder.h"
#include "Maker.h"
#include "TestSupport.h"

namespace {

using support::Attribute;
using support::BitsAt;
using support::BytesAt;
using support::Product;
using support::SeededSource;
using support::Source;

// What an attribute's field holds; for a binary a number from which the bytes are made, 0 making zeros.
using Raws = std::vector<uint64_t>;

bool IsWritable(const Attribute& attribute) { return attribute.type == MorvixProtocolTypeStatusWritable_4_0; }

std::string DecodedBinary(const Attribute& attribute, uint64_t raw) {
  support::Bytes bytes;
  for (int32_t i = 0; i < attribute.position.len; ++i) {
    bytes.push_back(static_cast<byte>(raw * static_cast<uint64_t>(i * 31 + 1)));
  }
  return model::Base64Text(bytes);
}

double UserValue(const Attribute& attribute, uint64_t raw) {
  return support::UserValue(static_cast<double>(raw), attribute.uint_spec.ratio, attribute.uint_spec.addition);
}

// The value in the decoded document; null when it is left out.
Json::Value Decoded(const Attribute& attribute, uint64_t raw) {
  switch (attribute.data_type) {
    case MorvixProtocolDataTypeBool_4_0:
      return raw != 0;
    case MorvixProtocolDataTypeEnum_4_0:
      return std::to_string(raw);
    case MorvixProtocolDataTypeBinary_4_0:
      return DecodedBinary(attribute, raw);
    default:
      break;
  }
  const auto signedRaw = static_cast<int64_t>(raw);
  if (signedRaw < attribute.uint_spec.min || signedRaw > attribute.uint_spec.max) return Json::Value();
  return model::NumberText(UserValue(attribute, raw));
}

// One of the forms in which an application may give the value.
Json::Value Given(const Attribute& attribute, uint64_t raw, Source& source) {
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0 || source.OneIn(2)) return Decoded(attribute, raw);
  if (ProtocolDataTypeIsUInt(attribute.data_type)) return UserValue(attribute, raw);
  return source.Flip() ? Json::Value(std::to_string(raw)) : Json::Value(static_cast<Json::Int>(raw));
}

// The values to try.
Raws RawsOf(const Attribute& attribute, Source& source) {
  Raws raws;
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) return {0, 1, 0x80, 0xff, 0x5a};
  if (!ProtocolDataTypeIsUInt(attribute.data_type)) {
    for (uint64_t raw = 0; raw < std::max<size_t>(attribute.enumList.size(), 2); ++raw) raws.push_back(raw);
    if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) raws.resize(attribute.enumList.size());
    return raws;
  }
  const int64_t min = attribute.uint_spec.min;
  const int64_t max = attribute.uint_spec.max;
  for (const int64_t raw : {min, min + 1, max - 1, max}) raws.push_back(static_cast<uint64_t>(raw));
  for (int bit = 0; bit < 52; bit += 3) {
    const int64_t power = int64_t{1} << bit;
    if (power >= min && power <= max) raws.push_back(static_cast<uint64_t>(power));
  }
  for (int i = 0; i < 4; ++i) raws.push_back(static_cast<uint64_t>(source.Between(min, max)));
  return raws;
}

Json::Value DocumentOf(const Product& product, const Raws& raws) {
  Json::Value document;
  for (size_t i = 0; i < product.attributes.size(); ++i) {
    const Attribute& attribute = product.attributes[i];
    const Json::Value value = Decoded(attribute, raws[i]);
    const bool isReported = attribute.type >= MorvixProtocolTypeAlert_4_0;
    if (value.isNull()) continue;
    Json::Value& item = document["main"][isReported ? attribute.display_name : attribute.name];
    item["type"] = static_cast<Json::Int>(attribute.type);
    item["value"] = value;
  }
  return document;
}

// Sends the writable values that `isGiven` names to a device that takes the payload over and reports it, with raw
// values of its own for the other attributes; the document that the application reads.
void ExpectToComeBack(const Product& product, const Raws& raws, const std::vector<bool>& isGiven, Source& source) {
  Json::Value root;
  Raws expected = raws;
  for (size_t i = 0; i < raws.size(); ++i) {
    const Attribute& attribute = product.attributes[i];
    if (!IsWritable(attribute)) continue;
    if (isGiven[i]) root["main"][attribute.name] = Given(attribute, raws[i], source);
    if (!isGiven[i]) expected[i] = 0;
  }
  const Json::Value entity = support::Maker(source).ConfigurationOf(product, true);
  SCOPED_TRACE(WriteJson(root) + "\n" + WriteJson(entity));
  const bool isParsedOnce = source.Flip();
  LogCapture log;
  MorvixProtocolOwnedPackage_4_0 request;
  request.cmd = MorvixProtocolCommandWriteReq_4_0;
  if (source.Flip()) {
    request.cmd = MorvixProtocolCommandCCWriteReq_4_0;
    request.subDid = 0x01020304;
    request.needInsertSubDid = 1;
  }
  if (isParsedOnce) {
    const ParsedEntity writable(entity, MorvixProtocolTypeStatusWritable_4_0);
    ProtocolEncodeAttributes_4_0(writable.info, writable.attributes, request, root);
  } else {
    ProtocolEncodeEntity_4_0(entity, request, root);
  }
  const size_t payloadStart = 1 + (request.needInsertSubDid != 0 ? 4 : 0) + request.sizeFlags;
  support::Bytes packet(payloadStart + request.sizeValue);
  ASSERT_EQ(ProtocolPackPackage_4_0(request, packet.data(), packet.size()), packet.size());

  support::Bytes payload(packet.begin() + static_cast<std::ptrdiff_t>(payloadStart), packet.end());
  payload.resize(static_cast<size_t>(model::PayloadLength(product.attributes)));
  for (size_t i = 0; i < raws.size(); ++i) {
    const Attribute& attribute = product.attributes[i];
    if (IsWritable(attribute)) continue;
    if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
      model::WriteBinary(payload, attribute.position, DecodedBinary(attribute, raws[i]));
    } else {
      model::WriteNumber(payload, attribute.position, raws[i]);
    }
  }
  payload.insert(payload.begin(), MorvixProtocolCommandNotifyResp_4_0);
  MorvixProtocolOwnedPackage_4_0 response;
  ASSERT_TRUE(ProtocolUnpackPackage_4_0(payload.data(), payload.size(), response));
  Json::Value document;
  if (isParsedOnce) {
    const ParsedEntity all(entity);
    ProtocolDecodeAttributes_4_0(all.info, all.attributes, response, document);
  } else {
    ProtocolDecodeEntity_4_0(entity, response, document);
  }
  EXPECT_EQ(WriteJson(document), WriteJson(DocumentOf(product, expected)));
  EXPECT_EQ(Warnings(log.Lines()), LogLines());
}

// Raw values of the attributes that only the device sets.
Raws Reported(const Product& product, Source& source) {
  Raws raws;
  for (const Attribute& attribute : product.attributes) {
    raws.push_back(IsWritable(attribute) ? 0 : source.Of(RawsOf(attribute, source)));
  }
  return raws;
}

TEST(RoundTrip, BringsBackEveryValueWrittenAlone) {
  for (uint64_t seed = 1; seed <= 60 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    SeededSource source(seed);
    // Fields of other groups share no bytes with writable ones, but may share some with one another.
    Product product = support::Maker(source).MakeProduct(true);
    for (Attribute& attribute : product.attributes) attribute.type = MorvixProtocolTypeStatusWritable_4_0;
    for (size_t i = 0; i < product.attributes.size(); ++i) {
      for (const uint64_t raw : RawsOf(product.attributes[i], source)) {
        Raws raws(product.attributes.size());
        std::vector<bool> isGiven(product.attributes.size());
        raws[i] = raw;
        isGiven[i] = true;
        ExpectToComeBack(product, raws, isGiven, source);
      }
    }
  }
}

TEST(RoundTrip, BringsBackValuesWrittenTogether) {
  for (uint64_t seed = 1001; seed <= 1100 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    SeededSource source(seed);
    const Product product = support::Maker(source).MakeProduct(false);
    for (int turn = 0; turn < 20; ++turn) {
      Raws raws = Reported(product, source);
      std::vector<bool> isGiven(raws.size());
      for (size_t i = 0; i < raws.size(); ++i) {
        if (!IsWritable(product.attributes[i])) continue;
        raws[i] = source.Of(RawsOf(product.attributes[i], source));
        isGiven[i] = turn == 0 || !source.OneIn(4) || std::count(isGiven.begin(), isGiven.end(), true) == 0;
      }
      ExpectToComeBack(product, raws, isGiven, source);
    }
  }
}

// A writable attribute and a raw value for it.
Attribute Writable(const std::string& name, MorvixProtocolDataType_4_0 dataType, const support::Position& position) {
  Attribute attribute;
  attribute.name = name;
  attribute.type = MorvixProtocolTypeStatusWritable_4_0;
  attribute.data_type = dataType;
  attribute.position = position;
  return attribute;
}

TEST(RoundTrip, HoldsForEveryWidthAtEveryShiftInGroupsOfEveryLength) {
  SeededSource source(7);
  for (int bitOffset = 0; bitOffset < 24; ++bitOffset) {
    for (int len = 1; bitOffset % 8 + len <= 64; ++len) {
      const int last = bitOffset + len + source.Int(0, 30);  // the group has 1 to 15 bytes
      const int byteOffset = source.Int(0, 2);
      Product product;
      product.entity.name = "main";
      product.attributes = {Writable("wide", MorvixProtocolDataTypeEnum_4_0, BitsAt(byteOffset, bitOffset, len, 0)),
                            Writable("top", MorvixProtocolDataTypeEnum_4_0, BitsAt(byteOffset, last, 1, 0))};
      const uint64_t items = len < 5 ? uint64_t{1} << len : 17;
      product.attributes[0].enumList.assign(static_cast<size_t>(items), "item");
      product.attributes[1].enumList.assign(2, "item");
      for (const uint64_t raw : {uint64_t{0}, uint64_t{1}, items / 2, items - 1}) {
        ExpectToComeBack(product, {raw, 0}, {true, false}, source);
      }
    }
  }
}

TEST(RoundTrip, BringsBackEveryNumberOfAByteAndOfTwelveBits) {
  SeededSource source(3);
  for (const int bits : {8, 12}) {
    Product product;
    product.entity.name = "main";
    product.attributes = {Writable("number", MorvixProtocolDataTypeUInt16_4_0, BytesAt(1, (bits + 7) / 8))};
    product.attributes[0].uint_spec = {0, (1 << bits) - 1, 1, 0.1, -20};
    for (uint64_t raw = 0; raw < uint64_t{1} << bits; ++raw) ExpectToComeBack(product, {raw}, {true}, source);
  }
}

}  // namespace
