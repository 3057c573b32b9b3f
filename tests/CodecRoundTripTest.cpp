// What an application writes comes back unchanged when a device reports it: generated configurations, whose values
// travel through encoder, packer, unpacker and decoder; and the two-step forms do what the one-call forms do.
//
// Fields of a bit group that span bytes without covering them whole reverse the bits around them when they are
// written. That is how devices in the field know it, and it limits what can come back: either one value is written at a
// time, or no other field shares a byte with such a field.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"
#include "host/Logging.h"

namespace {

// The same numbers on every machine, which the standard distributions do not promise.
class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  uint64_t Below(uint64_t limit) { return engine_() % limit; }
  int Int(int from, int to) { return from + static_cast<int>(Below(static_cast<uint64_t>(to - from + 1))); }
  bool Chance(int percent) { return Int(1, 100) <= percent; }
  template <typename Element>
  const Element& Of(const std::vector<Element>& elements) {
    return elements[static_cast<size_t>(Below(elements.size()))];
  }

 private:
  std::mt19937_64 engine_;
};

std::string Base64(const std::vector<byte>& bytes) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    unsigned group = 0;
    for (size_t j = 0; j < 3; ++j) group = group * 256 + (i + j < bytes.size() ? bytes[i + j] : 0u);
    for (size_t j = 0; j < 4; ++j) text += i + j <= bytes.size() ? kAlphabet[(group >> (18 - 6 * j)) & 63] : '=';
  }
  return text;
}

// A number as documents show it: up to six decimals.
std::string NumberText(double number) {
  char text[400];
  std::snprintf(text, sizeof text, "%.6f", number);
  std::string shown = text;
  shown.erase(shown.find_last_not_of('0') + 1);
  if (shown.back() == '.') shown.pop_back();
  return shown;
}

// A writable attribute and the model of its values. A raw value is what the field holds; for a binary it is a number
// from which the bytes are made, 0 making zeros.
struct Field {
  std::string name;
  std::string dataType;
  bool inBits = false;
  int byteOffset = 0;
  int bitOffset = 0;
  int len = 1;
  int items = 0;
  uint64_t min = 0;
  uint64_t max = 1;
  double ratio = 1;
  double addition = 0;
  std::vector<uint64_t> raws;  // the values to try

  bool IsNumber() const { return dataType.compare(0, 4, "uint") == 0; }
  Json::Value Attribute() const;
  double UserValue(uint64_t raw) const;
  Json::Value Decoded(uint64_t raw) const;
  Json::Value Written(uint64_t raw, Random& random) const;
};

Json::Value Field::Attribute() const {
  Json::Value attribute;
  attribute["id"] = 1;
  attribute["name"] = name;
  attribute["display_name"] = "The " + name;
  attribute["desc"] = "";
  attribute["type"] = "status_writable";
  attribute["data_type"] = dataType;
  attribute["position"]["byte_offset"] = byteOffset;
  attribute["position"]["bit_offset"] = bitOffset;
  attribute["position"]["unit"] = inBits ? "bit" : "byte";
  attribute["position"]["len"] = len;
  for (int i = 0; i < items; ++i) attribute["enum"].append("item " + std::to_string(i));
  if (IsNumber()) {
    attribute["uint_spec"]["min"] = Json::UInt64(min);
    attribute["uint_spec"]["max"] = Json::UInt64(max);
    attribute["uint_spec"]["ratio"] = ratio;
    attribute["uint_spec"]["addition"] = addition;
  }
  return attribute;
}

// The number that the user sees. The product is rounded before the sum, also by a compiler that would rather fuse them.
double Field::UserValue(uint64_t raw) const {
  const volatile double product = static_cast<double>(raw) * ratio;
  return product + addition;
}

// The value in the decoded document; null when it is left out.
Json::Value Field::Decoded(uint64_t raw) const {
  if (dataType == "bool") return raw != 0;
  if (dataType == "enum") return std::to_string(raw);
  if (dataType == "binary") {
    std::vector<byte> bytes;
    for (int i = 0; i < len; ++i) bytes.push_back(static_cast<byte>(raw * static_cast<uint64_t>(i * 31 + 1)));
    return Base64(bytes);
  }
  if (raw < min || raw > max) return Json::Value();
  return NumberText(UserValue(raw));
}

// One of the forms in which an application may give the value.
Json::Value Field::Written(uint64_t raw, Random& random) const {
  if (dataType == "binary") return Decoded(raw);
  if (IsNumber() && random.Chance(50)) return Decoded(raw);
  if (IsNumber()) return UserValue(raw);
  if (random.Chance(50)) return std::to_string(raw);
  if (dataType == "bool" && random.Chance(50)) return raw != 0;
  return Json::Int(raw);
}

// A configuration's entity with writable fields, and behind them three attributes that only the device sets: they
// prove that neither direction mixes the groups.
class Product {
 public:
  // Isolated: no field shares a byte with a field that spans bytes.
  Product(Random& random, bool isolated) : random_(random), isolated_(isolated) {
    const int parts = random_.Int(2, 6);
    for (int i = 0; i < parts; ++i) {
      // Bit groups stand apart: bits of one group type that follow one another are one bit group.
      if (i % 2 == 0) {
        AddBitGroup(random_.Chance(20) ? random_.Int(9, 12) : random_.Int(1, 8));
      } else if (random_.Chance(30)) {
        AddBinary(random_.Chance(20) ? random_.Int(100, 300) : random_.Int(1, 12));
      } else {
        AddNumber(random_.Int(1, 8));
      }
    }
    if (fields.back().inBits && random_.Chance(50)) AddNumber(random_.Int(1, 8));
  }

  Json::Value Entity() const {
    Json::Value entity = ParseJson(R"({"id": 1, "name": "main", "display_name": "Main", "attrs": []})");
    for (const Field& field : fields) entity["attrs"].append(field.Attribute());
    Json::Value reported = ParseJson(R"([
        {"id": 2, "name": "reported", "display_name": "", "desc": "", "type": "status_readonly", "data_type": "uint8",
         "uint_spec": {"min": 0, "max": 255, "ratio": 1, "addition": 0},
         "position": {"bit_offset": 0, "unit": "byte", "len": 1}},
        {"id": 3, "name": "a", "display_name": "Alert", "desc": "", "type": "alert", "data_type": "bool",
         "position": {"bit_offset": 3, "unit": "bit", "len": 1}},
        {"id": 4, "name": "f", "display_name": "Fault", "desc": "", "type": "fault", "data_type": "enum",
         "enum": ["none", "one", "two", "three"], "position": {"bit_offset": 6, "unit": "bit", "len": 2}}])");
    for (int i = 0; i < 3; ++i) {
      reported[i]["position"]["byte_offset"] = PayloadBytes() + i;
      entity["attrs"].append(reported[i]);
    }
    return entity;
  }

  // The decoded document for these raw values of the fields and these three bytes behind them.
  Json::Value Document(const std::vector<uint64_t>& raws, const std::vector<byte>& reported) const {
    Json::Value document;
    const auto add = [&document](const std::string& key, int type, const Json::Value& value) {
      if (value.isNull()) return;
      document["main"][key]["type"] = type;
      document["main"][key]["value"] = value;
    };
    for (size_t i = 0; i < fields.size(); ++i) add(fields[i].name, 1, fields[i].Decoded(raws[i]));
    add("reported", 2, std::to_string(reported[0]));
    add("Alert", 4, (reported[1] & 0x08) != 0);
    add("Fault", 8, std::to_string(reported[2] / 64));
    return document;
  }

  // The end of the last field.
  int PayloadBytes() const {
    int end = 0;
    for (const Field& field : fields) {
      end = std::max(end, field.byteOffset + (field.inBits ? (field.bitOffset + field.len + 7) / 8 : field.len));
    }
    return end;
  }

  std::vector<Field> fields;

 private:
  Field NewField(const std::string& dataType, int byteOffset, int len) {
    Field field;
    field.name = dataType + " " + std::to_string(fields.size());
    field.dataType = dataType;
    field.byteOffset = byteOffset;
    field.len = len;
    return field;
  }

  void AddBits(int byteOffset, int bitOffset, int len) {
    Field field = NewField(len == 1 && random_.Chance(70) ? "bool" : "enum", byteOffset, len);
    field.inBits = true;
    field.bitOffset = bitOffset;
    if (field.dataType == "enum") field.items = std::min(random_.Int(2, 24), len < 5 ? 1 << len : 24);
    for (int raw = 0; raw < std::max(field.items, 2); ++raw) field.raws.push_back(static_cast<uint64_t>(raw));
    fields.push_back(field);
  }

  void AddBitGroup(int groupBytes) {
    const int byteOffset = PayloadBytes() + random_.Int(0, 3);
    const int last = groupBytes * 8 - random_.Int(1, 4);
    const int end = isolated_ && groupBytes > 1 ? groupBytes * 8 - 8 : last;
    int bit = random_.Int(0, 7);
    for (;;) {
      const int len = random_.Chance(25) ? random_.Int(1, 64) : random_.Int(1, 10);
      const bool spans = bit % 8 + len > 8;
      if (isolated_ && spans) bit = (bit + 7) / 8 * 8 + random_.Int(0, 7);
      if (bit + len > end) break;
      if (bit % 8 + len <= 64) AddBits(byteOffset, bit, len);
      bit += len + random_.Int(0, 2);
      if (isolated_ && spans) bit = (bit + 7) / 8 * 8;
    }
    AddBits(byteOffset, last, 1);  // the last field decides on the length of the group
  }

  void AddNumber(int len) {
    Field field = NewField(random_.Of<std::string>({"uint8", "uint16", "uint32", "uint64"}),
                           PayloadBytes() + random_.Int(0, 3), len);
    field.ratio = random_.Of<double>({1, 0.5, 0.25, 2, -1, 0.1, 0.01, 10, 3.5, 0.001});
    // Tenths of the largest numbers have no double of their own.
    const int bits = std::min(len * 8, field.ratio == 1 ? 52 : 40);
    field.addition = bits > 50 ? 0 : random_.Of<double>({0, 40, -20, 0.5, 1000});
    const uint64_t limit = uint64_t{1} << bits;
    field.max = random_.Chance(50) ? limit - 1 : 1 + random_.Below(limit - 1);
    field.min = random_.Chance(60) ? 0 : random_.Below(field.max);
    std::vector<uint64_t> raws = {field.min, field.min + 1, field.max - 1, field.max};
    for (int bit = 0; bit < bits; bit += 3) raws.push_back(uint64_t{1} << bit);
    for (int i = 0; i < 4; ++i) raws.push_back(field.min + random_.Below(field.max - field.min));
    for (const uint64_t raw : raws) {
      if (raw >= field.min && raw <= field.max) field.raws.push_back(raw);
    }
    fields.push_back(field);
  }

  void AddBinary(int len) {
    Field field = NewField("binary", PayloadBytes() + random_.Int(0, 3), len);
    field.raws = {0, 1, 0x80, 0xff, 0x5a};
    fields.push_back(field);
  }

  Random& random_;
  const bool isolated_;
};

// Sends `root` to a device that takes the payload over and reports it, `reported` behind it; the decoded document.
Json::Value RoundTrip(const Json::Value& entity, const Json::Value& root, const std::vector<byte>& reported) {
  LogCapture capture;
  OwnedPackage request;
  request.cmd = MorvixProtocolCommandWriteReq_4_0;
  if (reported[0] % 2 == 0) {
    request.cmd = MorvixProtocolCommandCCWriteReq_4_0;
    request.subDid = 0x01020304;
    request.needInsertSubDid = 1;
  }
  ProtocolEncodeEntity_4_0(entity, request, root);
  const size_t payloadStart = 1 + (request.needInsertSubDid != 0 ? 4 : 0) + request.sizeFlags;
  std::vector<byte> packet(payloadStart + request.sizeValue);
  if (ProtocolPackPackage_4_0(request, packet.data(), packet.size()) != packet.size()) {
    ADD_FAILURE() << "nothing to send";
    return Json::Value();
  }
  std::vector<byte> notification = {MorvixProtocolCommandNotifyResp_4_0};
  notification.insert(notification.end(), packet.begin() + static_cast<std::ptrdiff_t>(payloadStart), packet.end());
  notification.insert(notification.end(), reported.begin(), reported.end());
  OwnedPackage response;
  EXPECT_TRUE(ProtocolUnpackPackage_4_0(notification.data(), notification.size(), response));
  Json::Value document;
  ProtocolDecodeEntity_4_0(entity, response, document);
  EXPECT_EQ(capture.Take(), LogLines({FilterLine(1, "main", "Main"), FilterLine(1, "main", "Main")}));
  return document;
}

std::vector<byte> ReportedBytes(Random& random) {
  return {static_cast<byte>(random.Below(256)), static_cast<byte>(random.Below(256)),
          static_cast<byte>(random.Below(256))};
}

TEST(RoundTrip, BringsBackEveryValueWrittenAlone) {
  for (uint64_t seed = 1; seed <= 40; ++seed) {
    Random random(seed);
    const Product product(random, false);
    const Json::Value entity = product.Entity();
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + WriteJson(entity));
    for (size_t i = 0; i < product.fields.size(); ++i) {
      for (const uint64_t raw : product.fields[i].raws) {
        Json::Value root;
        root["main"][product.fields[i].name] = product.fields[i].Written(raw, random);
        SCOPED_TRACE(WriteJson(root));
        std::vector<uint64_t> raws(product.fields.size(), 0);
        raws[i] = raw;
        const std::vector<byte> reported = ReportedBytes(random);
        ASSERT_EQ(RoundTrip(entity, root, reported), product.Document(raws, reported));
      }
    }
  }
}

TEST(RoundTrip, BringsBackValuesWrittenTogether) {
  for (uint64_t seed = 1001; seed <= 1060; ++seed) {
    Random random(seed);
    const Product product(random, true);
    const Json::Value entity = product.Entity();
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + WriteJson(entity));
    for (int turn = 0; turn < 20; ++turn) {
      Json::Value root;
      std::vector<uint64_t> raws;
      for (const Field& field : product.fields) {
        const bool leftOut = turn != 0 && !raws.empty() && random.Chance(25);
        raws.push_back(leftOut ? 0 : random.Of(field.raws));
        if (!leftOut) root["main"][field.name] = field.Written(raws.back(), random);
      }
      SCOPED_TRACE(WriteJson(root));
      const std::vector<byte> reported = ReportedBytes(random);
      ASSERT_EQ(RoundTrip(entity, root, reported), product.Document(raws, reported));
    }
  }
}

TEST(RoundTrip, HoldsForEveryWidthAtEveryShiftInGroupsOfEveryLength) {
  Random random(7);
  for (int bitOffset = 0; bitOffset < 24; ++bitOffset) {
    for (int len = 1; bitOffset % 8 + len <= 64; ++len) {
      Product product(random, true);
      product.fields.resize(2);
      Field& field = product.fields[0];
      field.name = "wide";
      field.dataType = "enum";
      field.inBits = true;
      field.byteOffset = random.Int(0, 2);
      field.bitOffset = bitOffset;
      field.len = len;
      field.items = len < 5 ? 1 << len : 17;
      Field& top = product.fields[1];
      top = field;
      top.name = "top";
      top.bitOffset = bitOffset + len + random.Int(0, 30);  // the group has 1 to 15 bytes
      top.len = 1;
      top.items = 2;
      const Json::Value entity = product.Entity();
      SCOPED_TRACE(WriteJson(entity));
      for (const int raw : {0, 1, field.items / 2, field.items - 1}) {
        Json::Value root;
        root["main"]["wide"] = raw;
        const std::vector<byte> reported = ReportedBytes(random);
        ASSERT_EQ(RoundTrip(entity, root, reported), product.Document({static_cast<uint64_t>(raw), 0}, reported));
      }
    }
  }
}

TEST(RoundTrip, BringsBackEveryNumberOfAByteAndOfTwelveBits) {
  for (const int bits : {8, 12}) {
    Random random(3);
    Product product(random, true);
    product.fields.resize(1);
    Field& field = product.fields[0];
    field = Field();
    field.name = "number";
    field.dataType = "uint16";
    field.byteOffset = 1;
    field.len = (bits + 7) / 8;
    field.max = (uint64_t{1} << bits) - 1;
    field.ratio = 0.1;
    field.addition = -20;
    const Json::Value entity = product.Entity();
    for (uint64_t raw = 0; raw <= field.max; ++raw) {
      Json::Value root;
      root["main"]["number"] = field.Written(raw, random);
      const std::vector<byte> reported = ReportedBytes(random);
      ASSERT_EQ(RoundTrip(entity, root, reported), product.Document({raw}, reported)) << raw;
    }
  }
}

// ------------------------------------------------------------------------------------- parsed once, used many times

// What a call gives, as text, and what it logs.
template <typename Call>
std::string Told(const Call& call) {
  LogCapture capture;
  std::ostringstream told;
  try {
    told << call();
  } catch (const Json::LogicError&) {
    told << "error";
  }
  for (const LogLine& line : capture.Lines()) told << '\n' << line;
  return told.str();
}

std::string Text(const MorvixProtocolPackage_4_0& package) {
  if (package.flags == nullptr && package.value == nullptr) return "untouched";
  return ToHex(package.flags, package.sizeFlags) + " | " + ToHex(package.value, package.sizeValue);
}

std::string EncodedInOneCall(const Json::Value& entity, const Json::Value& root) {
  return Told([&] {
    OwnedPackage package;
    ProtocolEncodeEntity_4_0(entity, package, root);
    return Text(package);
  });
}

std::string EncodedInTwoSteps(const Json::Value& entity, const Json::Value& root) {
  return Told([&] {
    std::vector<MorvixProtocolAttribute_4_0> attributes;
    MorvixProtocolEntity_4_0 entityInfo;
    OwnedPackage package;
    if (ProtocolParseEntity_4_0(entity, MorvixProtocolTypeStatusWritable_4_0, attributes, entityInfo)) {
      ProtocolEncodeAttributes_4_0(entityInfo, attributes, package, root);
    } else {
      logMsgEx(1, "ProtocolEncodeEntity_4_0", "Get entity info failed.");
    }
    return Text(package);
  });
}

MorvixProtocolPackage_4_0 PackageOf(std::vector<byte>& payload) {
  MorvixProtocolPackage_4_0 package;
  package.value = payload.data();
  package.sizeValue = payload.size();
  return package;
}

std::string DecodedInOneCall(const Json::Value& entity, std::vector<byte> payload, Json::Value document) {
  return Told([&] {
    ProtocolDecodeEntity_4_0(entity, PackageOf(payload), document);
    return WriteJson(document);
  });
}

std::string DecodedInTwoSteps(const Json::Value& entity, std::vector<byte> payload, Json::Value document) {
  return Told([&] {
    std::vector<MorvixProtocolAttribute_4_0> attributes;
    MorvixProtocolEntity_4_0 entityInfo;
    if (ProtocolParseEntity_4_0(entity, 15, attributes, entityInfo)) {
      ProtocolDecodeAttributes_4_0(entityInfo, attributes, PackageOf(payload), document);
    } else {
      logMsgEx(1, "ProtocolDecodeEntity_4_0", "Get entity info failed.");
    }
    return WriteJson(document);
  });
}

// Puts something unfit in the place of members here and there.
void Damage(Json::Value& value, Random& random, int percent) {
  static const Json::Value junk =
      ParseJson(R"([null, true, -1, 0, 3, 65536, 2.5, "", "x", "bit", "bool", [], [1], {}])");
  for (Json::Value& member : value) {
    if (random.Chance(percent)) {
      member = junk[static_cast<Json::ArrayIndex>(random.Below(junk.size()))];
    } else {
      Damage(member, random, percent);
    }
  }
}

TEST(ParseOnce, EncodesAndDecodesLikeTheOneCallForms) {
  size_t written = 0;
  for (uint64_t seed = 2001; seed <= 2300; ++seed) {
    Random random(seed);
    const Product product(random, random.Chance(50));
    Json::Value entity = product.Entity();
    if (random.Chance(70)) Damage(entity, random, random.Int(0, 4));
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + WriteJson(entity));
    for (int turn = 0; turn < 5; ++turn) {
      Json::Value root;
      for (const Field& field : product.fields) {
        if (random.Chance(70)) root["main"][field.name] = field.Written(random.Of(field.raws), random);
      }
      if (turn > 2) Damage(root, random, 10);
      const std::string encoded = EncodedInOneCall(entity, root);
      ASSERT_EQ(EncodedInTwoSteps(entity, root), encoded) << WriteJson(root);
      const size_t bar = encoded.find(" | ");
      written += bar != 0 && bar != std::string::npos ? 1 : 0;

      std::vector<byte> payload(
          static_cast<size_t>(1 + random.Below(static_cast<uint64_t>(product.PayloadBytes()) + 4)));
      for (byte& one : payload) one = random.Chance(50) ? byte{0} : static_cast<byte>(random.Below(256));
      Json::Value before = ParseJson(R"({"main": {"old": 1}, "other": 2})");
      Damage(before, random, 20);
      ASSERT_EQ(DecodedInTwoSteps(entity, payload, before), DecodedInOneCall(entity, payload, before))
          << ToHex(payload) << " into " << WriteJson(before);
    }
  }
  EXPECT_GT(written, 100u) << "too few of the damaged configurations still encode";
}

TEST(ParseOnce, ReportsAnEmptyPayloadBehindTheLinesOfTheParser) {
  Random random(1);
  const Json::Value entity = Product(random, true).Entity();
  EXPECT_EQ(DecodedInOneCall(entity, {}, "before"), "\"before\"\n[1] ProtocolDecodeEntity_4_0: No data to decode.");
  EXPECT_EQ(DecodedInTwoSteps(entity, {}, "before"),
            "\"before\"\n[2] : Filter entity: id='1' name='main' display_name='Main'"
            "\n[1] ProtocolDecodeEntity_4_0: No data to decode.");
  EXPECT_EQ(DecodedInOneCall(5, {}, "before"), "\"before\"\n[1] ProtocolDecodeEntity_4_0: No data to decode.");
}

TEST(ParseOnce, ServesManyPacketsWithTheSameRecords) {
  Random random(11);
  const Product product(random, true);
  const Json::Value entity = product.Entity();
  LogCapture capture;
  std::vector<MorvixProtocolAttribute_4_0> writable;
  std::vector<MorvixProtocolAttribute_4_0> all;
  MorvixProtocolEntity_4_0 entityInfo;
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity, MorvixProtocolTypeStatusWritable_4_0, writable, entityInfo));
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity, 15, all, entityInfo));
  capture.Take();
  for (int turn = 0; turn < 50; ++turn) {
    Json::Value root;
    std::vector<uint64_t> raws;
    for (const Field& field : product.fields) {
      raws.push_back(random.Of(field.raws));
      root["main"][field.name] = field.Written(raws.back(), random);
    }
    SCOPED_TRACE(WriteJson(root));
    OwnedPackage package;
    ProtocolEncodeAttributes_4_0(entityInfo, writable, package, root);
    std::vector<byte> payload(package.value, package.value + package.sizeValue);
    const std::vector<byte> reported = ReportedBytes(random);
    payload.insert(payload.end(), reported.begin(), reported.end());
    Json::Value document;
    ProtocolDecodeAttributes_4_0(entityInfo, all, PackageOf(payload), document);
    ASSERT_EQ(document, product.Document(raws, reported));
  }
  EXPECT_EQ(capture.Take(), LogLines());
}

}  // namespace
