// The entity decoder: a received payload becomes a document of all attributes.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "TestSupport.h"

namespace entity_decoder_test {
namespace {

const LogLine kFiltered = FilterLine(7, "main", "Main");

LogLine Failure(const std::string& text) { return {1, "ProtocolDecodeEntity_4_0", text}; }

const LogLine kInvalid = Failure("Decode value is invalid.");

// One call of the decoder on a payload in hexadecimal, and what became of the document.
struct Decoding {
  Decoding(const Json::Value& entity, std::vector<byte> payload, const Json::Value& before = Json::Value())
      : document(before) {
    LogCapture capture;
    ProtocolDecodeEntity_4_0(entity, PackageOf(payload), document);
    lines = capture.Take();
  }
  Decoding(const Json::Value& entity, const std::string& payload, const Json::Value& before = Json::Value())
      : Decoding(entity, FromHex(payload), before) {}
  Decoding(const std::vector<MorvixProtocolAttribute_4_0>& attributes, const std::string& payload,
           const Json::Value& before = Json::Value())
      : document(before) {
    MorvixProtocolEntity_4_0 entityInfo;
    entityInfo.name = "main";
    std::vector<byte> bytes = FromHex(payload);
    LogCapture capture;
    ProtocolDecodeAttributes_4_0(entityInfo, attributes, PackageOf(bytes), document);
    lines = capture.Take();
  }

  Json::Value document;
  LogLines lines;
};

// The document that holds just these values, a JSON text, of writable attributes of the entity "main".
Json::Value Document(const std::string& values) {
  Json::Value document(Json::objectValue);
  const Json::Value parsed = ParseJson(values);
  for (const std::string& name : parsed.getMemberNames()) {
    document["main"][name]["type"] = 1;
    document["main"][name]["value"] = parsed[name];
  }
  return document;
}

// --------------------------------------------------------------------------------------------- number formatting

TEST(FloatOffset, IsTheIndexOfTheFirstPoint) {
  EXPECT_EQ(floatOffset("12.500000"), 2);
  EXPECT_EQ(floatOffset(".5"), 0);
  EXPECT_EQ(floatOffset("1.2.3"), 1);
  EXPECT_EQ(floatOffset("125"), -1);
  EXPECT_EQ(floatOffset(""), -1);
}

TEST(ScientistOffset, IsTheIndexOfTheFirstEFollowedByPlus) {
  EXPECT_EQ(scientistOffset("1.5E+10"), 3);
  EXPECT_EQ(scientistOffset("E+5"), 0);
  EXPECT_EQ(scientistOffset("E+"), 0);
  EXPECT_EQ(scientistOffset("1E2E+3E+4"), 3);
  for (const char* text : {"", "E", "+", "1.5", "1.5e+10", "1.5E-10", "+E", "1.5E", "1.5E 10"}) {
    EXPECT_EQ(scientistOffset(text), -1) << text;
  }
}

TEST(RemoveFloatLastZero, CutsZerosAndPointsAtTheEndOfAFraction) {
  // In the last three the walk starts as many characters before the end as the index of "E+" says.
  for (const Json::Value& row : ParseJson(R"([
      ["12.500000", "12.5"], ["3.000000", "3"], ["100.000000", "100"], ["0.000000", "0"], ["-0.000000", "-0"],
      ["-7.250000", "-7.25"], ["0.000001", "0.000001"], ["1.0", "1"], ["10.", "10"], ["100", "100"], ["0", "0"],
      ["nan", "nan"], ["-inf", "-inf"], ["", ""], [".", ""], [".50", ".5"], [".0", ""], ["1.20.0", "1.2"],
      ["1.5000E+2", "1.5000E+2"], ["1.50E+10", "1.5"], ["1234.5E+1", "1234.5E+1"]])")) {
    SCOPED_TRACE(WriteJson(row));
    const std::string text = row[0].asString();
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    EXPECT_EQ(removeFloatLastZero(buffer.data()), buffer.data());
    EXPECT_EQ(std::string(buffer.data()), row[1].asString());
  }
}

TEST(DecodeEntity, PrintsNumbersWithoutTrailingZeros) {
  // Ratio, addition and raw value, and the text: at most 31 characters of it are kept before zeros are cut.
  for (const Json::Value& row : ParseJson(R"([
      [0.5, 0, 5, "2.5"], [1, 0, 7, "7"], [1, 0, 0, "0"], [100, 0, 1, "100"], [12.5, 0, 1, "12.5"], [0.1, 0, 3, "0.3"],
      [0.1, -20, 255, "5.5"], [-1, 0, 7, "-7"], [1, -10, 3, "-7"], [0.0000001, 0, 4, "0"],
      [0.0000001, 0, 6, "0.000001"], [-0.0000001, 0, 4, "-0"], [-1, -0.0, 0, "-0"], [0, 5, 200, "5"],
      [1, "nan", 1, "nan"], ["inf", 0, 1, "inf"], ["-inf", 0, 1, "-inf"],
      [1e22, 0, 1, "10000000000000000000000"], [1e23, 0, 1, "99999999999999991611392"],
      [1e24, 0, 1, "999999999999999983222784"], [1e29, 0, 1, "99999999999999991433150857216"],
      [1e29, 0, 2, "199999999999999982866301714432"], [1e30, 0, 1, "1000000000000000019884624838656"],
      [-1e30, 0, 1, "-100000000000000001988462483865"], [1e40, 0, 1, "1000000000000000030378602842700"]])")) {
    SCOPED_TRACE(WriteJson(row));
    Json::Value number = Number("a", 0, 1);
    number["uint_spec"]["ratio"] = row[0];
    number["uint_spec"]["addition"] = row[1];
    const Decoding result(Entity({number}), std::vector<byte>{static_cast<byte>(row[2].asUInt())});
    EXPECT_EQ(result.document["main"]["a"]["value"], row[3]);
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
  }
}

// ----------------------------------------------------------------------------------------- members of the document

TEST(ClearEntityValue, RemovesOneMemberWhateverItIs) {
  for (const char* member : {"null", "5", "[1]", R"({"a": {"value": true}})"}) {
    SCOPED_TRACE(member);
    Json::Value document = ParseJson(std::string(R"({"other": {"b": 1}, "main": )") + member + "}");
    ClearEntityValue(document, "main");
    EXPECT_EQ(document, ParseJson(R"({"other": {"b": 1}})"));
    ClearEntityValue(document, "missing");
    EXPECT_EQ(document, ParseJson(R"({"other": {"b": 1}})"));
  }
}

TEST(ClearEntityValue, MakesAnObjectOfAnythingElse) {
  for (Json::Value document : ParseJson(R"([null, true, 1, 1.5, "main", ["main"]])")) {
    SCOPED_TRACE(WriteJson(document));
    ClearEntityValue(document, "main");
    EXPECT_EQ(document, Json::Value(Json::objectValue));
  }
}

TEST(ClearEntityValue, ComparesTheNameAfterANulToo) {
  Json::Value document;
  document["ma"] = 1;
  document[WithNul("ma", "in")] = 2;
  ClearEntityValue(document, WithNul("ma", "xx"));
  EXPECT_EQ(document.size(), 2u);
  ClearEntityValue(document, WithNul("ma", "in"));
  EXPECT_EQ(document, ParseJson(R"({"ma": 1})"));
}

TEST(SetValue, RefusesValuesThatAreNotScalarsAndLeavesTheDocument) {
  for (const Json::Value& value : ParseJson(R"([null, {}, {"a": 1}, [], [1]])")) {
    for (const Json::Value& before : ParseJson(R"([null, 5, [1], {"main": {"a": 1}}])")) {
      SCOPED_TRACE(WriteJson(value) + " into " + WriteJson(before));
      Json::Value document = before;
      EXPECT_FALSE(SetValue(document, "main", "a", MorvixProtocolTypeAlert_4_0, value));
      EXPECT_EQ(document, before);
    }
  }
}

TEST(SetValue, StoresScalarsWithTheGroupAsASignedInteger) {
  for (const Json::Value& value : ParseJson(R"([true, false, 0, -1, 4294967295, 1.5, "", "text"])")) {
    SCOPED_TRACE(WriteJson(value));
    Json::Value document;
    EXPECT_TRUE(SetValue(document, "main", "a", MorvixProtocolTypeFault_4_0, value));
    EXPECT_EQ(document["main"]["a"]["value"], value);
    EXPECT_EQ(document["main"]["a"]["type"], Json::Value(Json::Int(8)));
    EXPECT_EQ(document["main"]["a"]["type"].type(), Json::intValue);
  }
}

TEST(SetValue, ReplacesWhatIsNotAnObjectOnEveryLevel) {
  const Json::Value expected = ParseJson(R"({"main": {"a": {"type": 4, "value": true}}})");
  for (Json::Value other : ParseJson(R"([null, true, 5, 1.5, "text", [], [{"a": 1}], {}])")) {
    SCOPED_TRACE(WriteJson(other));
    Json::Value entityLevel;
    entityLevel["main"] = other;
    Json::Value attributeLevel;
    attributeLevel["main"]["a"] = other;
    for (Json::Value* document : {&other, &entityLevel, &attributeLevel}) {
      EXPECT_TRUE(SetValue(*document, "main", "a", MorvixProtocolTypeAlert_4_0, true));
      EXPECT_EQ(*document, expected);
    }
  }
}

TEST(SetValue, KeepsOtherMembersOnEveryLevel) {
  Json::Value document = ParseJson(R"({"rest": 1, "main": {"b": 2, "a": {"note": 3, "type": "x", "value": [4]}}})");
  EXPECT_TRUE(SetValue(document, "main", "a", MorvixProtocolTypeStatusWritable_4_0, "new"));
  EXPECT_EQ(document, ParseJson(R"({"rest": 1, "main": {"b": 2, "a": {"note": 3, "type": 1, "value": "new"}}})"));
}

TEST(SetValue, ComparesNamesAfterANulToo) {
  Json::Value document = ParseJson(R"({"ma": {"a": 1}, "ma\u0000in": {"a": 2, "a\u0000b": 3}})");
  EXPECT_TRUE(SetValue(document, WithNul("ma", "in"), WithNul("a", "b"), MorvixProtocolTypeAlert_4_0, true));
  EXPECT_EQ(document, ParseJson(R"({"ma": {"a": 1},
      "ma\u0000in": {"a": 2, "a\u0000b": {"type": 4, "value": true}}})"));
}

// ------------------------------------------------------------------------------------------------- whole entities

TEST(DecodeEntity, ReadsEveryDataTypeOfEveryGroup) {
  const Json::Value entity =
      Entity({Bool("power", 0, 0), Enum("mode", 0, 1, 2),
              With(Number("level", 1, 1, R"({"max": 255, "ratio": 0.5})"), R"({"type": "status_readonly"})"),
              With(Binary("key", 2, 3), R"({"type": "status_readonly"})"),
              With(Bool("hot", 5, 0), R"({"type": "alert", "display_name": "Overheat"})"),
              With(Number("code", 6, 2), R"({"type": "fault", "display_name": "Code"})")});
  const Decoding result(entity, "05 05 00 01 02 01 01 02");
  EXPECT_EQ(result.document, ParseJson(R"({"main": {
      "power": {"type": 1, "value": true}, "mode": {"type": 1, "value": "2"}, "level": {"type": 2, "value": "2.5"},
      "key": {"type": 2, "value": "AAEC"}, "Overheat": {"type": 4, "value": true},
      "Code": {"type": 8, "value": "258"}}})"));
  EXPECT_EQ(result.lines, LogLines({kFiltered}));
}

TEST(DecodeEntity, LooksAtNeitherTheCommandNorTheFlags) {
  std::vector<byte> payload = {1};
  byte flags[2] = {0, 0};
  MorvixProtocolPackage_4_0 package = PackageOf(payload);
  package.cmd = MorvixProtocolCommand_4_0(99);
  package.flags = flags;
  package.sizeFlags = 2;
  Json::Value document;
  LogCapture capture;
  ProtocolDecodeEntity_4_0(Entity({Bool("a", 0, 0)}), package, document);
  EXPECT_EQ(document, Document(R"({"a": true})"));
}

TEST(DecodeEntity, ReportsAPayloadWithoutBytesBeforeItReadsTheConfiguration) {
  byte one[1] = {1};
  for (const bool usable : {true, false}) {
    for (const Json::Value& before : ParseJson(R"([null, 5, [1], {"main": {"a": 1}}])")) {
      MorvixProtocolPackage_4_0 withoutBuffer;
      withoutBuffer.sizeValue = 1;
      MorvixProtocolPackage_4_0 withoutSize;
      withoutSize.value = one;
      for (const MorvixProtocolPackage_4_0& package : {MorvixProtocolPackage_4_0(), withoutBuffer, withoutSize}) {
        Json::Value document = before;
        LogCapture capture;
        ProtocolDecodeEntity_4_0(usable ? Entity({Bool("a", 0, 0)}) : Json::Value(), package, document);
        EXPECT_EQ(capture.Take(), LogLines({Failure("No data to decode.")}));
        EXPECT_EQ(document, before);
        ProtocolDecodeAttributes_4_0(MorvixProtocolEntity_4_0(), Records({Bool("a", 0, 0)}), package, document);
        EXPECT_EQ(capture.Take(), LogLines({Failure("No data to decode.")}));
        EXPECT_EQ(document, before);
      }
    }
  }
}

TEST(DecodeEntity, LeavesTheDocumentAloneWhenTheEntityIsUnusable) {
  std::vector<std::pair<Json::Value, std::string>> cases = {
      {Json::Value(), "Invalid entity."}, {ParseJson("[]"), "Invalid entity."}, {"main", "Invalid entity."}};
  for (const std::string key : {"id", "name", "display_name", "attrs"}) {
    cases.emplace_back(Entity({Bool("a", 0, 0)}), "Can't find '" + key + "' key.");
    cases.back().first.removeMember(key);
  }
  for (const auto& [entity, reason] : cases) {
    for (const Json::Value& before : ParseJson(R"([null, 5, [1], {"main": {"a": 1}}])")) {
      SCOPED_TRACE(reason);
      const Decoding result(entity, "01", before);
      EXPECT_EQ(result.lines,
                LogLines({{1, "GetEntityInfo", "Warning: " + reason}, Failure("Get entity info failed.")}));
      EXPECT_EQ(result.document, before);
    }
  }
}

TEST(DecodeEntity, SaysNothingWhenThereAreNoAttributesOrNoneCanBeRead) {
  for (const Json::Value& before : ParseJson(R"([null, 5, [1], {"main": 1}])")) {
    for (const Json::Value& entity : {Entity({}), Entity({Number("far", 5, 1), Enum("farther", 9, 0, 2)})}) {
      const Decoding result(entity, "01", before);
      EXPECT_EQ(result.lines, LogLines({kFiltered}));
      EXPECT_EQ(result.document, before);
    }
  }
  Json::Value bad = Bool("a", 0, 0);
  bad.removeMember("desc");
  const Decoding result(Entity({bad}), "01", ParseJson("[1]"));
  EXPECT_EQ(result.lines, LogLines({kFiltered, SkipLine("desc")}));
  EXPECT_EQ(result.document, ParseJson("[1]"));
}

TEST(DecodeEntity, PassesOnTheErrorOfAnArrayAsABoundBeforeItTouchesTheDocument) {
  std::vector<byte> payload = {1, 2};
  for (const char* scaling : {R"({"min": []})", R"({"max": [1]})"}) {
    Json::Value document = ParseJson("[1]");
    LogCapture capture;
    EXPECT_THROW(
        ProtocolDecodeEntity_4_0(Entity({Bool("b", 0, 0), Number("n", 1, 1, scaling)}), PackageOf(payload), document),
        Json::LogicError);
    EXPECT_EQ(document, ParseJson("[1]"));
  }
}

TEST(DecodeEntity, ReadsFieldsOfABitGroupAcrossBytes) {
  // 2 in bits 17 and 18, 43 in bits 5 to 10, 1 in bits 0 and 1 of a group of three bytes.
  const Json::Value entity = Entity({Enum("low", 1, 0, 2), Enum("wide", 1, 5, 6, 44), Enum("top", 1, 17, 2)});
  EXPECT_EQ(Decoding(entity, "ff 04 05 61").document, Document(R"({"low": "1", "wide": "43", "top": "2"})"));
}

TEST(DecodeEntity, LeavesOutNumbersAndEnumsAfterEveryPrefixOfAPayload) {
  const Json::Value entity =
      Entity({Number("a", 0, 1), Number("b", 1, 2), Enum("low", 3, 0, 2), Enum("wide", 3, 5, 6, 44),
              Enum("top", 3, 17, 2), Number("c", 6, 4), Enum("d", 10, 7, 1)});
  const std::vector<byte> payload = FromHex("05 01 02 04 05 61 00 00 01 00 80");
  const std::vector<std::string> expected = {
      R"({"a": "5"})",
      R"({"a": "5"})",
      R"({"a": "5", "b": "258"})",
      R"({"a": "5", "b": "258", "top": "2"})",
      R"({"a": "5", "b": "258", "top": "2"})",
      R"({"a": "5", "b": "258", "top": "2", "wide": "43", "low": "1"})",
      R"({"a": "5", "b": "258", "top": "2", "wide": "43", "low": "1"})",
      R"({"a": "5", "b": "258", "top": "2", "wide": "43", "low": "1"})",
      R"({"a": "5", "b": "258", "top": "2", "wide": "43", "low": "1"})",
      R"({"a": "5", "b": "258", "top": "2", "wide": "43", "low": "1", "c": "256"})",
      R"({"a": "5", "b": "258", "top": "2", "wide": "43", "low": "1", "c": "256", "d": "1"})"};
  ASSERT_EQ(expected.size(), payload.size());
  const Json::Value ends[] = {Bool("end", 11, 0), Binary("end", 9, 3)};
  for (size_t size = 1; size <= payload.size(); ++size) {
    SCOPED_TRACE(size);
    // A buffer of its own, so that a read past the end does not go unnoticed.
    const std::vector<byte> prefix(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size));
    const Decoding result(entity, prefix);
    EXPECT_EQ(result.document, Document(expected[size - 1]));
    EXPECT_EQ(result.lines, LogLines({kFiltered}));
    // A bool or a binary after the end takes everything with it.
    for (const Json::Value& end : ends) {
      Json::Value longer = entity;
      longer["attrs"].append(end);
      const Decoding wiped(longer, prefix, ParseJson(R"({"main": {"x": 1}, "other": 2})"));
      EXPECT_EQ(wiped.document, ParseJson(R"({"other": 2})"));
      EXPECT_EQ(wiped.lines, LogLines({kFiltered, kInvalid}));
    }
  }
}

TEST(DecodeEntity, LeavesOutNumbersThatTheirScalingRefuses) {
  const std::string widest = "00 0f ff ff ff ff ff ff";
  const std::vector<std::pair<Json::Value, std::string>> refused = {
      {Number("a", 0, 1, R"({"max": 9})"), "0a"},
      {Number("a", 0, 1, R"({"min": 3})"), "02"},
      {Number("a", 0, 1, R"({"min": 9, "max": 3})"), "05"},
      {Number("a", 0, 1, R"({"min": 5, "max": 5})"), "05"},
      {Number("a", 0, 1, R"({"min": -1})"), "05"},
      {Number("a", 0, 1, R"({"max": 4503599627370496})"), "05"},
      {Number("a", 0, 1, R"({"max": -1})"), "05"},
      {Number("a", 0, 8), "00 10 00 00 00 00 00 00"},
      {Number("a", 0, 8), "ff ff ff ff ff ff ff ff"},
      {Number("a", 0, 9), widest + " 00"},
      {Number("a", 0, 0), "05"},
      {Number("a", -1, 2), "05 05"},
      {With(Number("a", 0, 8), R"({"position": {"unit": "bit"}})"), "05"}};
  for (const auto& [number, payload] : refused) {
    SCOPED_TRACE(WriteJson(number) + " " + payload);
    const Decoding result(Entity({number, Bool("b", 0, 0)}), payload);
    ASSERT_EQ(result.lines, LogLines({kFiltered}));
    EXPECT_FALSE(result.document["main"].isMember("a"));
    EXPECT_TRUE(result.document["main"].isMember("b"));
  }
  EXPECT_EQ(Decoding(Entity({Number("a", 0, 8)}), widest).document, Document(R"({"a": "4503599627370495"})"));
  EXPECT_EQ(Decoding(Entity({Number("a", 0, 1, R"({"min": 3, "max": 9})")}), "03").document, Document(R"({"a": "3"})"));
  EXPECT_EQ(Decoding(Entity({Number("a", 0, 1, R"({"min": 3, "max": 9})")}), "09").document, Document(R"({"a": "9"})"));
}

TEST(DecodeEntity, EndsAtAnEnumIndexBeyondTheItemsAndKeepsWhatCameBefore) {
  const Json::Value inBytes = With(Enum("e", 1, 0, 2), R"({"position": {"unit": "byte", "len": 8}})");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"00 00 00 00 00 00 00 03", "3"},  // the count itself is out already
      {"00 00 00 00 00 00 01 2c", "300"},
      {"00 00 00 01 00 00 00 05", "5"},  // the line shows the low 32 bits
      {"ff ff ff ff ff ff ff ff", "-1"}};
  for (const auto& [payload, shown] : cases) {
    SCOPED_TRACE(payload);
    const Json::Value entity = Entity({Number("before", 0, 1), inBytes, Number("after", 0, 1)});
    const Decoding result(entity, "07 " + payload, ParseJson(R"({"main": {"old": 1}})"));
    EXPECT_EQ(result.lines, LogLines({kFiltered, Failure("Invalid enum value: " + shown + ", range: 0-3")}));
    EXPECT_EQ(result.document, ParseJson(R"({"main": {"old": 1, "before": {"type": 1, "value": "7"}}})"));
  }
  EXPECT_EQ(Decoding(Entity({inBytes}), "00 00 00 00 00 00 00 00 02").document, Document(R"({"e": "2"})"));
}

TEST(DecodeEntity, ReadsAnEnumOfAnImpossibleWidthAsZeroOrNotAtAll) {
  // Where the place is found but the bits cannot be cut out of it, the index stays 0.
  EXPECT_EQ(Decoding(Entity({Enum("e", 0, 1, 0)}), "ff").document, Document(R"({"e": "0"})"));
  EXPECT_EQ(Decoding(Entity({Enum("e", 0, -1, 2)}), "ff ff").document, Document(R"({"e": "0"})"));
  EXPECT_EQ(Decoding(Entity({Enum("e", 0, -1, 2)}), "ff").document, Json::Value());
  const std::string nine = "00 00 00 00 00 00 00 00 01";
  EXPECT_EQ(Decoding(Entity({Enum("e", 0, 0, 65)}), nine).document, Json::Value());
  EXPECT_EQ(Decoding(Entity({Enum("e", 0, 1, 64)}), nine).document, Json::Value());
  EXPECT_EQ(Decoding(Entity({Enum("e", 0, 0, 64)}), nine.substr(3)).document, Document(R"({"e": "1"})"));
}

TEST(DecodeEntity, ReadsANumberInBitsAsZeroOrNotAtAll) {
  // A number has no bit group, so only bit -1 of it is found, and there are no bits there.
  const auto inBits = [](int bitOffset) {
    Json::Value attr = Number("n", 1, 1);
    attr["position"]["unit"] = "bit";
    attr["position"]["bit_offset"] = bitOffset;
    return Entity({attr});
  };
  EXPECT_EQ(Decoding(inBits(-1), "ff ff").document, Document(R"({"n": "0"})"));
  EXPECT_EQ(Decoding(inBits(0), "ff ff").document, Json::Value());
}

TEST(DecodeEntity, RemovesTheEntityForABoolOrBinaryThatCannotBeRead) {
  const Json::Value inBytes = ParseJson(R"({"position": {"unit": "byte"}})");
  const std::vector<std::pair<std::string, Json::Value>> cases = {
      {"a bool in bytes", With(Bool("x", 1, 0), inBytes)},
      {"a bool of two bits", With(Bool("x", 1, 0), R"({"position": {"len": 2}})")},
      {"a bool after the payload", Bool("x", 2, 0)},
      {"a bool before the payload", Bool("x", -1, 0)},
      {"a bool at bit -2", Bool("x", 1, -2)},
      {"a binary in bits", With(Binary("x", 0, 1), R"({"position": {"unit": "bit"}})")},
      {"a binary of no bytes", Binary("x", 0, 0)},
      {"a binary that ends after the payload", Binary("x", 1, 2)},
      {"a binary before the payload", Binary("x", -1, 2)}};
  for (const auto& [what, attr] : cases) {
    SCOPED_TRACE(what);
    const Json::Value entity = Entity({Number("before", 0, 1), attr, Number("after", 0, 1)});
    const Decoding result(entity, "ff ff", ParseJson(R"({"main": {"old": 1}, "other": 2})"));
    EXPECT_EQ(result.lines, LogLines({kFiltered, kInvalid}));
    EXPECT_EQ(result.document, ParseJson(R"({"other": 2})"));
    for (const Json::Value& before : ParseJson(R"([null, true, 5, 1.5, "main", [1], {}])")) {
      EXPECT_EQ(Decoding(Entity({attr}), "ff ff", before).document, Json::Value(Json::objectValue));
    }
  }
}

// A sink may look at the document: what is taken back is gone before the line says why.
TEST(DecodeEntity, RemovesTheEntityBeforeItLogsTheLine) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Number("a", 0, 1), Bool("b", 5, 0)});
  std::vector<MorvixProtocolAttribute_4_0> ofUnknownType = Records({Number("a", 0, 1), Number("b", 0, 1)});
  ofUnknownType[1].data_type = MorvixProtocolDataType_4_0(8);
  for (const auto& records : {attributes, ofUnknownType}) {
    std::vector<std::string> documents;
    Json::Value document = ParseJson(R"({"main": {"old": 1}, "other": 2})");
    const LogSink previous = SetLogSink(
        [&](int, const char*, const std::string& line) { documents.push_back(line + " " + WriteJson(document)); });
    MorvixProtocolEntity_4_0 entityInfo;
    entityInfo.name = "main";
    std::vector<byte> payload = {5};
    ProtocolDecodeAttributes_4_0(entityInfo, records, PackageOf(payload), document);
    SetLogSink(previous);
    const bool isUnreadable = records[1].data_type == MorvixProtocolDataTypeBool_4_0;
    EXPECT_EQ(documents, std::vector<std::string>{
                             std::string(isUnreadable ? "Decode value is invalid." : "Unknown attribute type.") +
                             " {\"other\":2}"});
  }
}

TEST(DecodeEntity, ReadsABoolBeforeItsGroupAsFalse) {
  // Bit -1 of the one-byte group at byte 0 would be in byte 1.
  const Json::Value entity = Entity({Bool("b", 0, -1), Bool("c", 0, 0)});
  EXPECT_EQ(Decoding(entity, "ff ff").document, Document(R"({"b": false, "c": true})"));
  EXPECT_EQ(Decoding(entity, "ff").lines, LogLines({kFiltered, kInvalid}));
}

TEST(DecodeEntity, ReadsABoolOfEveryBitOfAGroup) {
  std::vector<Json::Value> attrs;
  for (int bit = 0; bit < 24; ++bit) attrs.push_back(Bool("b" + std::to_string(bit), 0, bit));
  for (int bit = 0; bit < 24; ++bit) {
    SCOPED_TRACE(bit);
    std::vector<byte> payload(3, 0);
    payload[2 - static_cast<size_t>(bit) / 8] = static_cast<byte>(1 << (bit % 8));
    const Decoding result(Entity(attrs), payload);
    for (int other = 0; other < 24; ++other) {
      EXPECT_EQ(result.document["main"]["b" + std::to_string(other)]["value"], Json::Value(other == bit));
    }
  }
}

TEST(DecodeEntity, ReadsBinariesOfUpTo65535Bytes) {
  const std::vector<byte> payload(65536, 0);
  const Decoding longest(Entity({Binary("x", 1, 65535)}), payload);
  EXPECT_EQ(longest.document, Document("{\"x\": \"" + std::string(65535 / 3 * 4, 'A') + "\"}"));
  const Decoding tooLong(Entity({Binary("x", 0, 65536)}), payload);
  EXPECT_EQ(tooLong.lines, LogLines({kFiltered, kInvalid}));
  EXPECT_EQ(Decoding(Entity({Binary("x", 1, 1)}), "ff 01").document, Document(R"({"x": "AQ=="})"));
}

TEST(DecodeEntity, LetsTheLaterOfTwoEqualKeysWin) {
  const Json::Value entity =
      Entity({Number("heat", 0, 1), With(Bool("x", 0, 0), R"({"type": "alert", "display_name": "heat"})"),
              With(Bool("y", 0, 1), R"({"type": "fault", "display_name": ""})"),
              With(Bool("z", 0, 2), R"({"type": "alert", "display_name": ""})")});
  EXPECT_EQ(Decoding(entity, "05").document, ParseJson(R"({"main": {
      "heat": {"type": 4, "value": true}, "": {"type": 4, "value": true}}})"));
}

TEST(DecodeEntity, KeepsWhatTheDocumentHolds) {
  const Json::Value before = ParseJson(R"({
      "other": {"a": {"type": 1, "value": "9"}}, "version": 4.0,
      "main": {"gone": {"type": 1, "value": "1"}, "a": {"note": "kept", "type": 8, "value": [1]}, "b": 7}})");
  const Decoding result(Entity({Number("a", 0, 1), Bool("b", 0, 0)}), "05", before);
  EXPECT_EQ(result.document, ParseJson(R"({
      "other": {"a": {"type": 1, "value": "9"}}, "version": 4.0,
      "main": {"gone": {"type": 1, "value": "1"}, "a": {"note": "kept", "type": 1, "value": "5"},
               "b": {"type": 1, "value": true}}})"));
}

TEST(DecodeEntity, MakesAnObjectOfADocumentOfAnotherKind) {
  for (const Json::Value& before : ParseJson(R"([null, true, 5, -5, 4294967295, 1.5, "main", [{"main": 1}], {}])")) {
    SCOPED_TRACE(WriteJson(before));
    EXPECT_EQ(Decoding(Entity({Number("a", 0, 1)}), "05", before).document, Document(R"({"a": "5"})"));
  }
}

TEST(DecodeEntity, TreatsAnEntityCalledVersionLikeAnyOther) {
  const Json::Value entity = With(Entity({Number("a", 0, 1)}), R"({"name": "version"})");
  EXPECT_EQ(Decoding(entity, "05", ParseJson(R"({"version": 4.0})")).document,
            ParseJson(R"({"version": {"a": {"type": 1, "value": "5"}}})"));
}

TEST(DecodeEntity, DecodesIntoItsOwnConfiguration) {
  Json::Value entity = Entity({Number("a", 0, 1)});
  Json::Value expected = entity;
  expected["main"] = ParseJson(R"({"a": {"type": 1, "value": "5"}})");
  std::vector<byte> payload = {5};
  LogCapture capture;
  ProtocolDecodeEntity_4_0(entity, PackageOf(payload), entity);
  EXPECT_EQ(entity, expected);
}

// The decoder once read names out of the configuration while it replaced the attribute list that held them.
TEST(DecodeEntity, DecodesIntoADocumentThatHoldsItsConfiguration) {
  const std::string longName = "a name that is too long to be kept without memory of its own";
  Json::Value document;
  document["main"] = Entity({Number("attrs", 0, 1), Number(longName, 1, 1), Number("last", 2, 1)});
  Json::Value expected = document;
  expected["main"]["attrs"] = ParseJson(R"({"type": 1, "value": "5"})");
  expected["main"][longName] = ParseJson(R"({"type": 1, "value": "6"})");
  expected["main"]["last"] = ParseJson(R"({"type": 1, "value": "7"})");
  std::vector<byte> payload = {5, 6, 7};
  LogCapture capture;
  ProtocolDecodeEntity_4_0(document["main"], PackageOf(payload), document);
  EXPECT_EQ(document, expected);

  // An array gives way to an object, and takes the configuration in it along.
  Json::Value list(Json::arrayValue);
  list.append(Entity({Number(longName, 0, 1), Number("last", 1, 1)}));
  ProtocolDecodeEntity_4_0(list[0], PackageOf(payload), list);
  EXPECT_EQ(list["main"][longName]["value"], "5");
  EXPECT_EQ(list["main"]["last"]["value"], "6");

  // The last index of all makes an array's size wrap to 0, although it holds the configuration.
  constexpr Json::ArrayIndex kLastIndex = 4294967295U;
  Json::Value sparse(Json::arrayValue);
  sparse[kLastIndex] = Entity({Number(longName, 0, 1), Number("last", 1, 1)});
  ASSERT_EQ(sparse.size(), 0u);
  ProtocolDecodeEntity_4_0(sparse[kLastIndex], PackageOf(payload), sparse);
  EXPECT_EQ(sparse["main"][longName]["value"], "5");
  EXPECT_EQ(sparse["main"]["last"]["value"], "6");
}

// The decoder once read the name of an attribute after replacing the string that it viewed.
TEST(DecodeEntity, DecodesIntoAStringOfItsConfiguration) {
  const std::string longName = "a name that is too long to be kept without memory of its own";
  Json::Value entity = Entity({Number(longName, 0, 1)});
  std::vector<byte> payload = {5};
  LogCapture capture;
  ProtocolDecodeEntity_4_0(entity, PackageOf(payload), entity["attrs"][0]["name"]);
  Json::Value expected;
  expected["main"][longName] = ParseJson(R"({"type": 1, "value": "5"})");
  EXPECT_EQ(entity["attrs"][0]["name"], expected);
}

TEST(DecodeEntity, TakesNamesWholeThatHoldANul) {
  Json::Value entity = Entity({Number(WithNul("le", "vel"), 0, 1)});
  entity["name"] = WithNul("ma", "in");
  const Json::Value before = ParseJson(R"({"ma": {"le": 1}})");
  const Decoding result(entity, "05", before);
  EXPECT_EQ(result.document,
            ParseJson(R"({"ma": {"le": 1}, "ma\u0000in": {"le\u0000vel": {"type": 1, "value": "5"}}})"));
  entity["attrs"].append(Bool("unreadable", 9, 0));
  EXPECT_EQ(Decoding(entity, "05", before).document, before);
}

// ------------------------------------------------------------------------------------------- parsed beforehand

TEST(DecodeAttributes, RemovesTheEntityForAnUnknownDataType) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Number("a", 0, 1), Number("b", 0, 1)});
  for (const uint32_t dataType : {0u, 8u, 255u, 0x80000000u, 0xffffffffu}) {
    SCOPED_TRACE(dataType);
    attributes[1].data_type = MorvixProtocolDataType_4_0(dataType);
    const Decoding result(attributes, "05", ParseJson(R"({"main": {"old": 1}, "other": 2})"));
    EXPECT_EQ(result.lines, LogLines({Failure("Unknown attribute type.")}));
    EXPECT_EQ(result.document, ParseJson(R"({"other": 2})"));
    EXPECT_EQ(Decoding(attributes, "05", 5).document, Json::Value(Json::objectValue));
  }
}

TEST(DecodeAttributes, SaysNothingWithoutAttributes) {
  const Decoding result(Records({}), "05", 5);
  EXPECT_EQ(result.lines, LogLines());
  EXPECT_EQ(result.document, Json::Value(5));
}

TEST(DecodeAttributes, TakesRawValuesOnTheStepGridAndTheMaximum) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Number("a", 0, 1, R"({"min": 1, "max": 10})")});
  attributes[0].uint_spec.step = 4;
  EXPECT_EQ(Decoding(attributes, "01").document, Document(R"({"a": "1"})"));
  EXPECT_EQ(Decoding(attributes, "09").document, Document(R"({"a": "9"})"));
  EXPECT_EQ(Decoding(attributes, "0a").document, Document(R"({"a": "10"})"));
  EXPECT_EQ(Decoding(attributes, "08").document, Json::Value());
  attributes[0].uint_spec.step = 0;
  EXPECT_EQ(Decoding(attributes, "01").document, Document(R"({"a": "1"})"));
  EXPECT_EQ(Decoding(attributes, "0a").document, Document(R"({"a": "10"})"));
  EXPECT_EQ(Decoding(attributes, "02").document, Json::Value());
  attributes[0].uint_spec.step = -1;
  EXPECT_EQ(Decoding(attributes, "01").document, Json::Value());
}

TEST(DecodeAttributes, ReadsNothingInAnUnknownUnit) {
  for (const Json::Value& attr : {Number("a", 0, 1), Enum("a", 0, 0, 1)}) {
    std::vector<MorvixProtocolAttribute_4_0> attributes = Records({attr});
    attributes[0].position.unit = MorvixProtocolUnitUnknown_4_0;
    EXPECT_EQ(Decoding(attributes, "01").lines, LogLines());
    EXPECT_EQ(Decoding(attributes, "01").document, Json::Value());
  }
  for (const Json::Value& attr : {Bool("a", 0, 0), Binary("a", 0, 1)}) {
    std::vector<MorvixProtocolAttribute_4_0> attributes = Records({attr});
    attributes[0].position.unit = MorvixProtocolUnitUnknown_4_0;
    EXPECT_EQ(Decoding(attributes, "01").lines, LogLines({kInvalid}));
  }
}

TEST(DecodeAttributes, RefusesEveryIndexOfAnEnumWithoutItems) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Enum("a", 0, 0, 2)});
  attributes[0].enumList.clear();
  EXPECT_EQ(Decoding(attributes, "00").lines, LogLines({Failure("Invalid enum value: 0, range: 0-0")}));
}

TEST(DecodeAttributes, KeysOnlyAlertsAndFaultsByTheirDisplayName) {
  std::vector<MorvixProtocolAttribute_4_0> attributes = Records({Bool("a", 0, 0)});
  for (const uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 8u, 12u}) {
    SCOPED_TRACE(type);
    attributes[0].type = MorvixProtocolType_4_0(type);
    const Json::Value document = Decoding(attributes, "01").document;
    const char* const key = type == 4 || type == 8 ? "The a" : "a";
    EXPECT_EQ(document["main"].getMemberNames(), Json::Value::Members{key});
    EXPECT_EQ(document["main"][key]["type"], Json::Value(static_cast<int>(type)));
  }
}

// --------------------------------------------------------------------------------------------- received in one pass

TEST(PrefixOf, HoldsTheFirstEightBytesTheFirstOneHighest) {
  EXPECT_EQ(PrefixOf(""), 0u);
  EXPECT_EQ(PrefixOf("a"), 0x6100000000000000u);
  EXPECT_EQ(PrefixOf("abcdefg"), 0x6162636465666700u);
  EXPECT_EQ(PrefixOf("abcdefgh"), 0x6162636465666768u);
  EXPECT_EQ(PrefixOf("abcdefghi"), 0x6162636465666768u);
  EXPECT_EQ(PrefixOf("\xff\x01\x80"), 0xff01800000000000u);
}

TEST(IsPlain, IsPrintableAsciiWithoutQuotesAndBackslashes) {
  EXPECT_TRUE(IsPlain(""));
  EXPECT_TRUE(IsPlainKey("", PrefixOf("")));
  for (int code = 0; code < 256; ++code) {
    const bool isPrintable = code >= 0x20 && code <= 0x7e;
    const bool isPlain = isPrintable && code != 0x22 && code != 0x5c;
    EXPECT_EQ(IsPlain(std::string("ab") + static_cast<char>(code)), isPlain) << code;
    EXPECT_EQ(IsPlain(static_cast<char>(code) + std::string("ab")), isPlain) << code;
    for (size_t place = 0; place < 20; ++place) {
      std::string key(20, 'k');
      key[place] = static_cast<char>(code);
      EXPECT_EQ(IsPlain(key), isPlain) << code;
      for (const size_t length : {place + 1, size_t{8}, size_t{9}, key.size()}) {
        const std::string part = key.substr(0, length);
        EXPECT_EQ(IsPlainKey(part, PrefixOf(part)), isPlain || place >= length) << code;
      }
    }
  }
}

// --------------------------------------------------------------------------------------------------- the entities

TEST(GetEntitiesFromDevice, CopiesAnArray) {
  const Json::Value device = ParseJson(R"({"name": "K1", "entities": [{"id": 1}, 2]})");
  Json::Value entities("before");
  EXPECT_TRUE(ProtocolGetEntitiesFromDevice_4_0(device, entities));
  EXPECT_EQ(entities, ParseJson(R"([{"id": 1}, 2])"));
  EXPECT_TRUE(ProtocolGetEntitiesFromDevice_4_0(ParseJson(R"({"entities": []})"), entities));
  EXPECT_EQ(entities, Json::Value(Json::arrayValue));
}

TEST(GetEntitiesFromDevice, CopiesWhateverElseTheMemberIsAndRefusesIt) {
  for (const Json::Value& member : ParseJson(R"([null, true, 5, 1.5, "text", {}, {"0": 1}])")) {
    SCOPED_TRACE(WriteJson(member));
    Json::Value device;
    device["entities"] = member;
    Json::Value entities("before");
    EXPECT_FALSE(ProtocolGetEntitiesFromDevice_4_0(device, entities));
    EXPECT_EQ(entities, member);
  }
}

TEST(GetEntitiesFromDevice, GivesNullWhereThereAreNone) {
  for (const Json::Value& device :
       ParseJson(R"([null, true, 5, "entities", [], [{"entities": []}], {}, {"Entities": []}])")) {
    SCOPED_TRACE(WriteJson(device));
    Json::Value entities("before");
    EXPECT_FALSE(ProtocolGetEntitiesFromDevice_4_0(device, entities));
    EXPECT_TRUE(entities.isNull());
  }
}

TEST(GetEntitiesFromDevice, MayReplaceItsOwnInput) {
  Json::Value device = ParseJson(R"({"name": "K1", "entities": [{"id": 1}]})");
  EXPECT_TRUE(ProtocolGetEntitiesFromDevice_4_0(device, device));
  EXPECT_EQ(device, ParseJson(R"([{"id": 1}])"));
  EXPECT_FALSE(ProtocolGetEntitiesFromDevice_4_0(device, device));
  EXPECT_TRUE(device.isNull());
  Json::Value other = ParseJson(R"({"entities": {"a": 1}})");
  EXPECT_FALSE(ProtocolGetEntitiesFromDevice_4_0(other, other));
  EXPECT_EQ(other, ParseJson(R"({"a": 1})"));
}

}  // namespace
}  // namespace entity_decoder_test
