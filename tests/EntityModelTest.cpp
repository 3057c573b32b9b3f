// The model of an entity for reading and for writing: places, flags and lengths, worked out by hand from the bit
// drawings and tables in docs/formats.md; and the lines that the module logs for each outcome.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "TestSupport.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {
namespace {

// Fields refer to the configuration, so that it is kept next to the model.
struct Subject {
  explicit Subject(Json::Value entity) : json(std::move(entity)), model(Parsed(json)) {}

  static EntityModel Parsed(const Json::Value& entity) {
    const LogCapture silent;
    EntityFault fault;
    auto model = EntityModel::Parse(entity, "/entities/0", fault);
    if (!model) throw std::runtime_error(fault.line);
    return std::move(*model);
  }

  const Json::Value json;
  const EntityModel model;
};

// One line for each field: "name element flag begin-end".
std::vector<std::string> FieldsOf(const Direction& direction) {
  std::vector<std::string> texts;
  for (const Field& field : direction.fields) {
    const std::string place =
        field.bits.IsEmpty() ? "nowhere" : std::to_string(field.bits.begin) + "-" + std::to_string(field.bits.end);
    texts.push_back(field.attribute->name + " " + std::to_string(field.element) + " " + std::to_string(field.flag) +
                    " " + place);
  }
  return texts;
}

using Texts = std::vector<std::string>;

// ---- Places, flags and lengths ----

std::vector<Json::Value> Fan() { return {Bool("swing", 0, 0), Enum("mode", 0, 2, 2, 3), Enum("speed", 0, 6, 4, 12)}; }

// Group bit k of two bytes is the bit 15 - k from the start: swing 0, mode 2 and 3, speed 6 to 9.
TEST(EntityModel, PlacesTheFansBitsInAGroupOfTwoBytes) {
  const Subject fan(Entity(Fan()));
  const Texts fields = {"swing 0 0 15-16", "mode 1 1 12-14", "speed 2 2 6-10"};
  EXPECT_EQ(FieldsOf(fan.model.Reading()), fields);
  EXPECT_EQ(FieldsOf(fan.model.Writing()), fields);
  EXPECT_EQ(fan.model.Reading().payloadBytes, 2U);
  EXPECT_EQ(fan.model.Writing().payloadBytes, 2U);
}

// With swing listed last the group has one byte, and speed would begin before the payload.
TEST(EntityModel, PlacesTheReversedFansBitsInAGroupOfOneByte) {
  std::vector<Json::Value> attributes = Fan();
  std::reverse(attributes.begin(), attributes.end());
  const Subject fan(Entity(attributes));
  EXPECT_EQ(FieldsOf(fan.model.Writing()), (Texts{"speed 0 0 nowhere", "mode 1 1 4-6", "swing 2 2 7-8"}));
  EXPECT_TRUE(fan.model.Written(0)->bitsInLonger.IsEmpty());
}

TEST(EntityModel, PlacesTheKettlesAttributesAsDrawn) {
  const Subject kettle(ParseJson(ReadFile(EXAMPLES_DIR "/kettle.json"))["entities"][0]);
  EXPECT_EQ(FieldsOf(kettle.model.Reading()),
            (Texts{"power 0 0 7-8", "program 1 1 5-7", "target 2 2 8-16", "temperature 3 3 16-32",
                   "low_water 4 4 39-40", "lid_open 5 5 38-39", "sensor 6 6 47-48"}));
  EXPECT_EQ(FieldsOf(kettle.model.Writing()), (Texts{"power 0 0 7-8", "program 1 1 5-7", "target 2 2 8-16"}));
  EXPECT_EQ(kettle.model.Reading().payloadBytes, 6U);
  EXPECT_EQ(kettle.model.Writing().payloadBytes, 2U);
}

// Encoding does not see the alert: both bools are in one group of two bytes, whose bit 0 is in byte 1. For decoding
// each bool is a group of its own, of one byte and of two.
TEST(EntityModel, SizesGroupsSeparatelyForEachDirection) {
  const Subject entity(
      Entity({Bool("low", 0, 0), AttributeOf("alert", "hot", "bool", 2, 0, "bit", 1), Bool("high", 0, 8)}));
  EXPECT_EQ(FieldsOf(entity.model.Writing()), (Texts{"low 0 0 15-16", "high 2 1 7-8"}));
  EXPECT_EQ(FieldsOf(entity.model.Reading()), (Texts{"low 0 0 7-8", "hot 1 1 23-24", "high 2 2 7-8"}));
  EXPECT_EQ(entity.model.Writing().payloadBytes, 2U);
  EXPECT_EQ(entity.model.Reading().payloadBytes, 3U);
}

// The group has three bytes for its last member, so that bit 0 of it, from byte 3 on, is in byte 5. The payload ends
// with byte 3, the furthest that the attributes reach on their own.
TEST(EntityModel, TellsPlacesAfterThePayloadApartFromNone) {
  const Subject entity(Entity({Bool("far", 3, 0), Bool("near", 0, 23)}));
  EXPECT_EQ(entity.model.Writing().payloadBytes, 4U);
  EXPECT_TRUE(entity.model.Written(0)->bits.IsEmpty());
  EXPECT_EQ(entity.model.Written(0)->bitsInLonger, (BitRange{47, 48}));
  EXPECT_EQ(entity.model.Written(1)->bits, (BitRange{0, 1}));
}

// Three attributes: first set 01, last set 04. Nine: first set 00 01, last set 01 00.
TEST(EntityModel, NumbersFlagBitsFromTheLowestBitOfTheLastByte) {
  const Subject three(Entity(Fan()));
  EXPECT_EQ(FlagBytes(three.model.Writing()), 1U);
  EXPECT_EQ(FlagBit(three.model.Writing(), 0), 7U);
  EXPECT_EQ(FlagBit(three.model.Writing(), 2), 5U);

  std::vector<Json::Value> attributes;
  for (int i = 0; i < 9; ++i) attributes.push_back(Number("n" + std::to_string(i), i, 1));
  const Subject nine(Entity(attributes));
  EXPECT_EQ(FlagBytes(nine.model.Writing()), 2U);
  EXPECT_EQ(FlagBit(nine.model.Writing(), 0), 15U);
  EXPECT_EQ(FlagBit(nine.model.Writing(), 8), 7U);
}

// The incomplete scaling drops the bool after it as well, and a missing one ends the inheritance. The flag of the last
// attribute moves down from 3 to 0.
TEST(EntityModel, NamesTheMemberForWhichAnElementIsDropped) {
  Json::Value withoutRatio = Number("a", 0, 1);
  withoutRatio["uint_spec"].removeMember("ratio");
  Json::Value withoutScaling = Number("c", 2, 1);
  withoutScaling.removeMember("uint_spec");
  const Subject entity(Entity({withoutRatio, Bool("b", 1, 0), withoutScaling, Bool("d", 3, 0)}));
  Texts read;
  Texts written;
  for (const Element& element : entity.model.Elements()) {
    read.push_back(element.droppedOnReading);
    written.push_back(element.droppedOnWriting);
  }
  EXPECT_EQ(read, (Texts{"ratio", "ratio", "uint_spec", ""}));
  EXPECT_EQ(written, read);
  EXPECT_EQ(FieldsOf(entity.model.Writing()), Texts{"d 3 0 31-32"});
  EXPECT_EQ(entity.model.Read(1), nullptr);
}

// Encoding ignores the number, which is only read.
TEST(EntityModel, DropsInOneDirectionOnly) {
  Json::Value number = With(Number("n", 0, 1), R"({"type": "status_readonly"})");
  number["uint_spec"].removeMember("max");
  const Subject entity(Entity({number, Bool("b", 1, 0)}));
  EXPECT_EQ(entity.model.Elements()[0].droppedOnReading, "max");
  EXPECT_EQ(entity.model.Elements()[0].droppedOnWriting, "");
  EXPECT_EQ(entity.model.Elements()[1].droppedOnReading, "max");
  EXPECT_EQ(entity.model.Elements()[1].droppedOnWriting, "");
  EXPECT_TRUE(entity.model.Reading().fields.empty());
  EXPECT_EQ(FieldsOf(entity.model.Writing()), Texts{"b 1 0 15-16"});
  ASSERT_EQ(entity.model.Fields().size(), 1U);
  EXPECT_EQ(entity.model.Fields()[0], entity.model.Written(1));
}

TEST(EntityModel, NamesTheMemberThatMakesAnEntityUnusable) {
  const LogCapture silent;
  for (const char* member : {"id", "name", "display_name", "attrs"}) {
    Json::Value entity = Entity(Fan());
    entity.removeMember(member);
    EntityFault fault;
    EXPECT_FALSE(EntityModel::Parse(entity, "", fault));
    EXPECT_EQ(fault.member, member);
    EXPECT_EQ(fault.line, silent.Lines().back().text);
    EXPECT_EQ(fault.line, "Warning: Can't find '" + std::string(member) + "' key.");
  }
  EntityFault fault;
  EXPECT_FALSE(EntityModel::Parse(Json::Value(5), "", fault));
  EXPECT_EQ(fault.member, "");
  EXPECT_EQ(fault.line, "Warning: Invalid entity.");
}

// ---- Lines of the log ----

struct Logged {
  Result result;
  std::string line;  // of the module; empty for none
};

std::string OnlyLine(const LogCapture& capture) {
  const LogLines& lines = capture.Lines();
  if (lines.empty()) return "";
  EXPECT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].level, 1);
  return lines[0].text;
}

// Encodes a value, a JSON text, of the attribute "a". A binary makes the payload long enough.
Logged Encoded(const Attribute& attribute, const std::string& value) {
  Attribute filler;
  filler.name = "filler";
  filler.data_type = MorvixProtocolDataTypeBinary_4_0;
  filler.position.len = 16;
  MorvixProtocolEntity_4_0 info;
  info.name = "main";
  const Json::Value root = ParseJson(value.empty() ? R"({"main": {}})" : R"({"main": {"a": )" + value + "}}");
  std::vector<Result> results;
  MorvixProtocolOwnedPackage_4_0 package;
  const LogCapture capture;
  ProtocolEncodeAttributes_4_0(info, {attribute, filler}, package, root, results);
  return {results[0], OnlyLine(capture)};
}

Logged Decoded(const Attribute& attribute, std::vector<byte> payload) {
  MorvixProtocolEntity_4_0 info;
  info.name = "main";
  Json::Value document;
  std::vector<Result> results;
  const LogCapture capture;
  ProtocolDecodeAttributes_4_0(info, {attribute}, PackageOf(payload), document, results);
  return {results[0], OnlyLine(capture)};
}

constexpr auto kDone = MorvixProtocolOutcomeDone_4_0;
constexpr auto kAbsent = MorvixProtocolOutcomeAbsent_4_0;
constexpr auto kWrongKind = MorvixProtocolOutcomeWrongKind_4_0;
constexpr auto kByScaling = MorvixProtocolOutcomeRefusedByScaling_4_0;
constexpr auto kByItems = MorvixProtocolOutcomeRefusedByItems_4_0;
constexpr auto kByPlace = MorvixProtocolOutcomeRefusedByPlace_4_0;
constexpr auto kUnreadable = MorvixProtocolOutcomeUnreadable_4_0;

Attribute OneRecord(const Json::Value& attribute) { return Records({attribute}).at(0); }

// Raw 0 to 100 in one byte.
Json::Value Percent(const char* overrides = "{}") {
  return With(With(::Number("a", 0, 1, R"({"min": 0, "max": 100})"), R"({"data_type": "uint8"})"), overrides);
}

struct EncodeCase {
  Json::Value attribute;
  std::string value;  // empty for none
  MorvixProtocolOutcome_4_0 outcome;
  std::string line;
};

TEST(EncodeLine, IsTheModulesLineForEachOutcome) {
  const Json::Value flag = ::Bool("a", 0, 0);
  const Json::Value mode = ::Enum("a", 0, 0, 3, 5);
  const Json::Value bytes = ::Binary("a", 0, 3);
  const std::vector<EncodeCase> cases = {
      {flag, "1", kDone, ""},
      {flag, "", kAbsent, ""},
      {flag, "1.0", kWrongKind, ""},
      {With(flag, R"({"position": {"len": 2}})"), "1", kByPlace, "Write bool value failed."},
      {mode, "4", kDone, ""},
      {mode, "", kAbsent, ""},
      {mode, "[]", kWrongKind, ""},
      {mode, "5", kByItems, "Invalid enum value: 5, range: 0-5"},
      {mode, "-1", kByItems, "Invalid enum value: -1, range: 0-5"},
      {With(mode, R"({"position": {"len": 65}})"), "4", kByPlace, "Write enum value failed."},
      {bytes, R"("AQID")", kDone, ""},
      {bytes, "", kAbsent, ""},
      {bytes, "5", kWrongKind, ""},
      {With(bytes, R"({"position": {"unit": "bit"}})"), R"("AQID")", kByPlace, "Write binary value failed."},
      {Percent(), "100", kDone, ""},
      {Percent(), "", kAbsent, ""},
      {Percent(), "true", kWrongKind, ""},
      {Percent(), "101", kByScaling, "Validate uint value failed."},
      {Percent(), "-1", kByScaling, "Validate uint value failed."},
      {Percent(R"({"uint_spec": {"max": 0}})"), "0", kByScaling, "Validate uint value failed."},
      {Percent(R"({"position": {"len": 9}})"), "100", kByPlace, "Write uint value failed."},
  };
  for (const EncodeCase& one : cases) {
    SCOPED_TRACE(WriteJson(one.attribute) + " " + one.value);
    const Attribute attribute = OneRecord(one.attribute);
    const Logged logged = Encoded(attribute, one.value);
    EXPECT_EQ(logged.result.outcome, one.outcome);
    EXPECT_EQ(logged.line, one.line);
    EXPECT_EQ(EncodeLine(attribute, logged.result), one.line);
  }
}

struct DecodeCase {
  Json::Value attribute;
  std::string payload;
  MorvixProtocolOutcome_4_0 outcome;
  std::string line;
};

TEST(DecodeLine, IsTheModulesLineForEachOutcome) {
  const Json::Value flag = ::Bool("a", 1, 0);
  const Json::Value mode = ::Enum("a", 1, 0, 3, 5);
  const Json::Value bytes = ::Binary("a", 1, 3);
  const std::vector<DecodeCase> cases = {
      {flag, "00 01", kDone, ""},
      {flag, "00", kUnreadable, "Decode value is invalid."},
      {With(flag, R"({"position": {"len": 2}})"), "00 01", kUnreadable, "Decode value is invalid."},
      {mode, "00 04", kDone, ""},
      {mode, "00 05", kByItems, "Invalid enum value: 5, range: 0-5"},
      {mode, "00", kUnreadable, ""},
      {bytes, "00 01 02 03", kDone, ""},
      {bytes, "00 01 02", kUnreadable, "Decode value is invalid."},
      {With(bytes, R"({"position": {"unit": "bit"}})"), "00 01 02 03", kUnreadable, "Decode value is invalid."},
      {Percent(), "64", kDone, ""},
      {Percent(), "65", kByScaling, ""},
      {Percent(R"({"position": {"byte_offset": 1}})"), "64", kUnreadable, ""},
      {Percent(R"({"position": {"len": 9}})"), "00 00 00 00 00 00 00 00 64", kUnreadable, ""},
  };
  for (const DecodeCase& one : cases) {
    SCOPED_TRACE(WriteJson(one.attribute) + " " + one.payload);
    const Attribute attribute = OneRecord(one.attribute);
    const Logged logged = Decoded(attribute, FromHex(one.payload));
    EXPECT_EQ(logged.result.outcome, one.outcome);
    EXPECT_EQ(logged.line, one.line);
    EXPECT_EQ(DecodeLine(attribute, logged.result), one.line);
  }
}

using Seen = std::map<MorvixProtocolDataType_4_0, std::set<MorvixProtocolOutcome_4_0>>;

// Every small position, usable or not, in every group size and payload length.
TEST(LogLines, AreTheModulesInEverySmallPosition) {
  const std::map<MorvixProtocolDataType_4_0, std::vector<std::string>> values = {
      {MorvixProtocolDataTypeBool_4_0, {"", "1", "{}"}},
      {MorvixProtocolDataTypeEnum_4_0, {"", "2", "3", "{}"}},
      {MorvixProtocolDataTypeBinary_4_0, {"", R"("AQ==")", "{}"}},
      {MorvixProtocolDataTypeUInt16_4_0, {"", "7", "8", "{}"}},
  };
  Seen encoded;
  Seen decoded;
  Attribute attribute;
  attribute.name = "a";
  attribute.enumList = {"x", "y", "z"};
  attribute.uint_spec.max = 7;
  attribute.uint_spec.ratio = 1;
  Position& position = attribute.position;
  for (const auto& [type, texts] : values) {
    attribute.data_type = type;
    for (const auto unit : {MorvixProtocolUnitByte_4_0, MorvixProtocolUnitBit_4_0}) {
      for (int32_t byteOffset = -1; byteOffset <= 2; ++byteOffset) {
        for (int32_t bitOffset = -2; bitOffset <= 9; ++bitOffset) {
          for (const int32_t len : {-1, 0, 1, 2, 8, 9, 64, 65}) {
            for (const size_t group : {0U, 1U, 2U}) {
              position = {byteOffset, bitOffset, unit, len, group};
              for (const std::string& value : texts) {
                const Logged logged = Encoded(attribute, value);
                ASSERT_EQ(EncodeLine(attribute, logged.result), logged.line);
                encoded[type].insert(logged.result.outcome);
              }
              for (const byte fill : {byte{0}, byte{1}, byte{0xff}}) {
                for (const size_t size : {1U, 3U}) {
                  const Logged logged = Decoded(attribute, std::vector<byte>(size, fill));
                  ASSERT_EQ(DecodeLine(attribute, logged.result), logged.line);
                  decoded[type].insert(logged.result.outcome);
                }
              }
            }
          }
        }
      }
    }
  }
  EXPECT_EQ(encoded, (Seen{{MorvixProtocolDataTypeBool_4_0, {kDone, kAbsent, kWrongKind, kByPlace}},
                           {MorvixProtocolDataTypeEnum_4_0, {kDone, kAbsent, kWrongKind, kByItems, kByPlace}},
                           {MorvixProtocolDataTypeBinary_4_0, {kDone, kAbsent, kWrongKind, kByPlace}},
                           {MorvixProtocolDataTypeUInt16_4_0, {kDone, kAbsent, kWrongKind, kByScaling, kByPlace}}}));
  EXPECT_EQ(decoded, (Seen{{MorvixProtocolDataTypeBool_4_0, {kDone, kUnreadable}},
                           {MorvixProtocolDataTypeEnum_4_0, {kDone, kByItems, kUnreadable}},
                           {MorvixProtocolDataTypeBinary_4_0, {kDone, kUnreadable}},
                           {MorvixProtocolDataTypeUInt16_4_0, {kDone, kByScaling, kUnreadable}}}));
}

}  // namespace
}  // namespace morvix::inspect
