// The configuration parser from the inside: keywords, entities, attributes with every fault they can have, what one
// attribute inherits from an earlier one, and the sizes of bit groups.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <limits>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Cases.h"
#include "EntityBuilder.h"
#include "Maker.h"
#include "TestSupport.h"

// A namespace with a name, since the unit's own operations stand at global scope.
namespace configuration_parser_test {

using std::string_literals::operator""s;

constexpr int kAllGroups = 15;

// A writable bool in bit 0 of byte 0, and what differs from that.
Json::Value Attribute(const std::string& changes = "{}") {
  return ::With(ParseJson(R"({
      "id": 1, "name": "n", "display_name": "N", "desc": "", "type": "status_writable", "data_type": "bool",
      "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}})"),
                ParseJson(changes));
}

// A writable number of one byte with raw values 1 to 9, and what differs from that.
Json::Value Number(const std::string& changes = "{}") {
  return ::With(Attribute(R"({"data_type": "uint8", "position": {"unit": "byte"},
                              "uint_spec": {"min": 1, "max": 9, "ratio": 0.5, "addition": -2}})"),
                ParseJson(changes));
}

// A writable enum of two items, and what differs from that.
Json::Value Enum(const std::string& changes = "{}") {
  return ::With(Attribute(R"({"data_type": "enum", "enum": ["off", "on"]})"), ParseJson(changes));
}

// The value at a path such as "position.len".
Json::Value& At(Json::Value& value, const std::string& path) {
  const size_t dot = path.find('.');
  return dot == std::string::npos ? value[path] : value[path.substr(0, dot)][path.substr(dot + 1)];
}

// With the member at a path set to a JSON text.
Json::Value With(Json::Value value, const std::string& path, const std::string& member) {
  At(value, path) = ParseJson(member);
  return value;
}

// Without the member at a path.
Json::Value Without(Json::Value value, const std::string& path) {
  const size_t dot = path.find('.');
  Json::Value& parent = dot == std::string::npos ? value : At(value, path.substr(0, dot));
  parent.removeMember(path.substr(dot == std::string::npos ? 0 : dot + 1));
  return value;
}

using Attributes = std::vector<MorvixProtocolAttribute_4_0>;
using Texts = std::vector<std::string>;

struct Parsed {
  bool success = false;
  Attributes attributes;
  MorvixProtocolEntity_4_0 entity;
  LogLines lines;
};

Parsed ParseEntity(const Json::Value& entity, int matchTypes = kAllGroups) {
  const LogCapture log;
  Parsed parsed;
  parsed.success = FilterConfigType(entity, matchTypes, parsed.attributes, parsed.entity);
  parsed.lines = log.Lines();
  return parsed;
}

Parsed Parse(const std::vector<Json::Value>& attributes, int matchTypes = kAllGroups) {
  return ParseEntity(Entity(attributes), matchTypes);
}

// The lines of an entity of Entity() whose attributes were skipped because of these members.
LogLines Skips(const Texts& keys) {
  LogLines lines = {FilterLine(7, "main", "Main")};
  for (const std::string& key : keys) lines.push_back(SkipLine(key));
  return lines;
}

// Every attribute is taken and nothing is logged but the entity.
Attributes ParseAll(const std::vector<Json::Value>& attributes) {
  const Parsed parsed = Parse(attributes);
  EXPECT_TRUE(parsed.success);
  EXPECT_EQ(parsed.lines, Skips({}));
  EXPECT_EQ(parsed.attributes.size(), attributes.size());
  return parsed.attributes;
}

// The record of the only attribute; the test fails when it is dropped.
MorvixProtocolAttribute_4_0 ParseOne(const Json::Value& attribute) {
  const Attributes attributes = ParseAll({attribute});
  return attributes.size() == 1 ? attributes[0] : MorvixProtocolAttribute_4_0();
}

// "min..max/step *ratio+addition"
std::string Scaling(const MorvixProtocolAttribute_4_0& attribute) {
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  std::ostringstream text;
  text << scaling.min << ".." << scaling.max << '/' << scaling.step << " *" << scaling.ratio << '+' << scaling.addition;
  return text.str();
}

// "[low,mid]"
std::string Items(const MorvixProtocolAttribute_4_0& attribute) {
  std::string text;
  for (const std::string& item : attribute.enumList) text += (text.empty() ? "" : ",") + item;
  return '[' + text + ']';
}

// All fields in one line: "1 n|N|desc type:1 data:2 at:0+0 unit:1 len:2 group:1 scale:0..0/0 *0+0 [low,mid]".
std::string Describe(const MorvixProtocolAttribute_4_0& attribute) {
  const MorvixProtocolPosition_4_0& position = attribute.position;
  std::ostringstream text;
  text << attribute.id << ' ' << attribute.name << '|' << attribute.display_name << '|' << attribute.desc
       << " type:" << attribute.type << " data:" << attribute.data_type << " at:" << position.byte_offset << '+'
       << position.bit_offset << " unit:" << position.unit << " len:" << position.len
       << " group:" << position.groupByteLength << " scale:" << Scaling(attribute) << ' ' << Items(attribute);
  return text.str();
}

std::string Name(const MorvixProtocolAttribute_4_0& attribute) { return attribute.name; }

size_t GroupSize(const MorvixProtocolAttribute_4_0& attribute) { return attribute.position.groupByteLength; }

template <typename Result>
std::vector<Result> Each(Result (*look)(const MorvixProtocolAttribute_4_0&), const Attributes& attributes) {
  std::vector<Result> results;
  for (const MorvixProtocolAttribute_4_0& attribute : attributes) results.push_back(look(attribute));
  return results;
}

using Sizes = std::vector<size_t>;

// --- Keywords --------------------------------------------------------------------------------------------------------

std::string InCase(std::string text, int (*change)(int), size_t every) {
  for (size_t i = 0; i < text.size(); i += every) {
    text[i] = static_cast<char>(change(static_cast<unsigned char>(text[i])));
  }
  return text;
}

template <typename Code>
using Keywords = std::vector<std::pair<std::string, Code>>;

// The keywords in any letter case, and nothing that only resembles one.
template <typename Code>
void ExpectKeywords(Code (*map)(const char*), const Keywords<Code>& keywords, Code unknown) {
  for (const auto& [text, code] : keywords) {
    for (const std::string& same :
         {text, InCase(text, std::toupper, 1), InCase(text, std::toupper, 2), text + "\0tail"s}) {
      EXPECT_EQ(map(same.c_str()), code) << same;
    }
    if (text.empty()) continue;
    for (const std::string& near : {" " + text, text + " ", text + "x", text.substr(1), text + "\n", "\"" + text}) {
      EXPECT_EQ(map(near.c_str()), unknown) << "'" << near << "'";
    }
    for (const size_t length : {31u, 32u, 33u, 64u, 10000u}) {
      EXPECT_EQ(map((text + std::string(length - text.size(), ' ')).c_str()), unknown) << text << " " << length;
    }
  }
  for (const char* text : {"unknown", "0", "1", "null", "status", "status-writable", "status_write", "writable", "int8",
                           "uint", "uint128", "uint 8", "boolean", "enumeration", "string", "bits", "bytes", " "}) {
    EXPECT_EQ(map(text), unknown) << text;
  }
  for (const size_t length : {1u, 31u, 32u, 33u, 34u, 100u}) {
    EXPECT_EQ(map(std::string(length, 'x').c_str()), unknown) << length;
    EXPECT_EQ(map(std::string(length, '\xe9').c_str()), unknown) << length;
  }
}

TEST(GetType, KnowsTheGroups) {
  const Keywords<MorvixProtocolType_4_0> groups = {{"status_writable", MorvixProtocolTypeStatusWritable_4_0},
                                                   {"status_readonly", MorvixProtocolTypeStatusReadonly_4_0},
                                                   {"alert", MorvixProtocolTypeAlert_4_0},
                                                   {"fault", MorvixProtocolTypeFault_4_0}};
  ExpectKeywords(ProtocolGetType_4_0, groups, MorvixProtocolTypeUnknown_4_0);
  EXPECT_EQ(ProtocolGetType_4_0("Status_Writable"), MorvixProtocolTypeStatusWritable_4_0);
  for (const char* text : {"", "bool", "byte"}) EXPECT_EQ(ProtocolGetType_4_0(text), MorvixProtocolTypeUnknown_4_0);
}

TEST(GetDataType, KnowsTheDataTypes) {
  const Keywords<MorvixProtocolDataType_4_0> dataTypes = {
      {"bool", MorvixProtocolDataTypeBool_4_0},     {"enum", MorvixProtocolDataTypeEnum_4_0},
      {"uint8", MorvixProtocolDataTypeUInt8_4_0},   {"uint16", MorvixProtocolDataTypeUInt16_4_0},
      {"uint32", MorvixProtocolDataTypeUInt32_4_0}, {"uint64", MorvixProtocolDataTypeUInt64_4_0},
      {"binary", MorvixProtocolDataTypeBinary_4_0}};
  ExpectKeywords(GetDataType_4_0, dataTypes, MorvixProtocolDataTypeUnknown_4_0);
  for (const char* text : {"", "alert", "bit"}) EXPECT_EQ(GetDataType_4_0(text), MorvixProtocolDataTypeUnknown_4_0);
}

TEST(GetUnit, KnowsTheUnitsAndTakesNothingForBytes) {
  const Keywords<MorvixProtocolUnit_4_0> units = {
      {"", MorvixProtocolUnitByte_4_0}, {"byte", MorvixProtocolUnitByte_4_0}, {"bit", MorvixProtocolUnitBit_4_0}};
  ExpectKeywords(ProtocolGetUnit_4_0, units, MorvixProtocolUnitUnknown_4_0);
  for (const char* text : {"alert", "bool"}) EXPECT_EQ(ProtocolGetUnit_4_0(text), MorvixProtocolUnitUnknown_4_0);
}

// --- Entity ----------------------------------------------------------------------------------------------------------

struct EntityFault {
  Json::Value entity;
  std::string message;
  std::string read;  // "id name display_name" after the call; 9, old and older before it
};

// Each member in turn is missing or of a wrong kind.
std::vector<EntityFault> EntityFaults() {
  const struct {
    const char* key;
    std::vector<const char*> wrong;
    const char* read;
  } rows[] = {
      {"id", {"null", "3.0", R"("x")", "[]", "{}", "4294967296"}, "9 old older"},
      {"name", {"null", "5", "true", "[]", "{}"}, "7 old older"},
      {"display_name", {"null", "5", "true", "[]", "{}"}, "7 main older"},
      {"attrs", {"null", "0", "true", "{}", R"({"0": {}})", R"("[]")"}, "7 main Main"},
  };
  std::vector<EntityFault> faults;
  for (const char* entity : {"null", "[]", R"([{"id": 3}])", "5", "true", R"("id")"}) {
    faults.push_back({ParseJson(entity), "Warning: Invalid entity.", "9 old older"});
  }
  Json::Value partial(Json::objectValue);
  for (const auto& row : rows) {
    const std::string message = "Warning: Can't find '"s + row.key + "' key.";
    faults.push_back({partial, message, row.read});
    faults.push_back({Without(Entity({}), row.key), message, row.read});
    for (const char* wrong : row.wrong) faults.push_back({With(Entity({}), row.key, wrong), message, row.read});
    partial[row.key] = Entity({})[row.key];
  }
  return faults;
}

std::string Identity(const MorvixProtocolEntity_4_0& entity) {
  return std::to_string(entity.id) + " " + entity.name + " " + entity.display_name;
}

TEST(GetEntityInfo, NamesTheFirstFaultAndKeepsWhatWasReadBefore) {
  for (const EntityFault& fault : EntityFaults()) {
    SCOPED_TRACE(WriteJson(fault.entity));
    const LogCapture log;
    MorvixProtocolEntity_4_0 entity{9, "old", "older"};
    EXPECT_FALSE(GetEntityInfo(fault.entity, entity));
    EXPECT_EQ(Identity(entity), fault.read);
    EXPECT_EQ(log.Lines(), (LogLines{{1, "GetEntityInfo", fault.message}}));
  }
}

TEST(GetEntityInfo, ReadsAnEntityWithoutLogging) {
  const LogCapture log;
  const std::pair<const char*, const char*> ids[] = {{"-5", "-5"},   {R"("0x10")", "16"},  {R"("017")", "15"},
                                                     {R"("")", "9"}, {"4294967295", "-1"}, {"true", "1"}};
  for (const auto& [id, number] : ids) {
    MorvixProtocolEntity_4_0 entity{9, "old", "older"};
    EXPECT_TRUE(GetEntityInfo(With(Entity({}), "id", id), entity)) << id;
    EXPECT_EQ(Identity(entity), number + " main Main"s);
  }
  EXPECT_EQ(log.Lines(), LogLines());
}

TEST(FilterConfigType, FailsWithoutAnEntityAndLeavesTheList) {
  for (const EntityFault& fault : EntityFaults()) {
    SCOPED_TRACE(WriteJson(fault.entity));
    const LogCapture log;
    Attributes attributes(2);
    MorvixProtocolEntity_4_0 entity{9, "old", "older"};
    EXPECT_FALSE(FilterConfigType(fault.entity, kAllGroups, attributes, entity));
    EXPECT_EQ(attributes.size(), 2u);
    EXPECT_EQ(Identity(entity), fault.read);
    EXPECT_EQ(log.Lines(), (LogLines{{1, "GetEntityInfo", fault.message}}));
  }
}

TEST(FilterConfigType, TakesAnEntityWithoutAttributes) {
  for (const int matchTypes : {0, 1, kAllGroups, -1}) {
    const Parsed parsed = ParseEntity(Entity({}), matchTypes);
    EXPECT_TRUE(parsed.success);
    EXPECT_TRUE(parsed.attributes.empty());
    EXPECT_EQ(Identity(parsed.entity), "7 main Main");
    EXPECT_EQ(parsed.lines, (LogLines{{2, "", "Filter entity: id='7' name='main' display_name='Main'"}}));
  }
}

TEST(FilterConfigType, LogsTheEntitysTextsAsTheyAreUpToANul) {
  Json::Value entity = Entity({});
  entity["id"] = -5;
  entity["name"] = "100%s%n'";
  entity["display_name"] = "Ma\0in"s;
  const Parsed parsed = ParseEntity(entity);
  EXPECT_EQ(parsed.lines, (LogLines{{2, "", "Filter entity: id='-5' name='100%s%n'' display_name='Ma'"}}));
  EXPECT_EQ(parsed.entity.display_name, "Ma\0in"s);
}

// --- Attributes ------------------------------------------------------------------------------------------------------

TEST(FilterConfigType, ParsesTheExample) {
  const Json::Value entity = ParseJson(R"({"id": 0, "name": "main", "display_name": "Main", "attrs": [
    {"id": 1, "name": "switch", "display_name": "Switch", "desc": "", "type": "status_writable", "data_type": "bool",
     "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}},
    {"id": 2, "name": "mode", "display_name": "Mode", "desc": "how", "type": "status_writable", "data_type": "enum",
     "position": {"byte_offset": 0, "bit_offset": 1, "unit": "bit", "len": 2}, "enum": ["low", "mid", "high"]},
    {"id": 3, "name": "level", "display_name": "Level", "desc": "", "type": "status_writable", "data_type": "uint8",
     "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1},
     "uint_spec": {"min": 0, "max": 100, "ratio": 1, "addition": 0}},
    {"id": 4, "name": "overheat", "display_name": "Hot!", "desc": "", "type": "alert", "data_type": "bool",
     "position": {"byte_offset": 2, "bit_offset": 0, "unit": "bit", "len": 1}}]})");
  const LogLines lines = {FilterLine(0, "main", "Main")};
  const Texts all = {
      "1 switch|Switch| type:1 data:1 at:0+0 unit:1 len:1 group:1 scale:0..0/0 *0+0 []",
      "2 mode|Mode|how type:1 data:2 at:0+1 unit:1 len:2 group:1 scale:0..0/0 *0+0 [low,mid,high]",
      "3 level|Level| type:1 data:4 at:1+0 unit:0 len:1 group:0 scale:0..100/1 *1+0 [low,mid,high]",
      "4 overheat|Hot!| type:4 data:1 at:2+0 unit:1 len:1 group:1 scale:0..100/1 *1+0 [low,mid,high]",
  };

  const Parsed writable = ParseEntity(entity, 1);
  EXPECT_TRUE(writable.success);
  EXPECT_EQ(Each(Describe, writable.attributes), Texts(all.begin(), all.begin() + 3));
  EXPECT_EQ(writable.lines, lines);

  const Parsed everything = ParseEntity(entity, 15);
  EXPECT_TRUE(everything.success);
  EXPECT_EQ(Each(Describe, everything.attributes), all);
  EXPECT_EQ(everything.lines, lines);
}

// The order of the steps, seen from an attribute that is fixed where the parser points, one member at a time.
TEST(FilterConfigType, NamesTheFirstFaultOfANumber) {
  const struct {
    const char* expected;
    std::string path, fixed;
  } steps[] = {
      {"id", "id", "3"},
      {"name", "name", R"("a")"},
      {"display_name", "display_name", R"("A")"},
      {"desc", "desc", R"("d")"},
      {"type", "type", R"("nonsense")"},
      {"data_type", "data_type", R"("nonsense")"},
      {"type", "type", R"("fault")"},
      {"data_type", "data_type", R"("uint16")"},
      {"position", "position", "{}"},
      {"uint_spec", "uint_spec", "{}"},
      {"byte_offset", "position.byte_offset", "4"},
      {"bit_offset", "position.bit_offset", "5"},
      {"unit", "position.unit", R"("nonsense")"},
      {"len", "position.len", "2"},
      {"position.unit", "position.unit", R"("byte")"},
      {"min", "uint_spec.min", "-6"},
      {"max", "uint_spec.max", "70"},
      {"ratio", "uint_spec.ratio", "0.25"},
      {"addition", "uint_spec.addition", "-8.5"},
  };
  Json::Value attribute(Json::objectValue);
  for (const auto& step : steps) {
    const Parsed parsed = Parse({attribute});
    EXPECT_TRUE(parsed.success);
    EXPECT_TRUE(parsed.attributes.empty());
    EXPECT_EQ(parsed.lines, Skips({step.expected})) << WriteJson(attribute);
    attribute = With(attribute, step.path, step.fixed);
  }
  EXPECT_EQ(Describe(ParseOne(attribute)),
            "3 a|A|d type:8 data:5 at:4+5 unit:0 len:2 group:0 scale:-6..70/1 *0.25+-8.5 []");
}

TEST(FilterConfigType, NamesTheFirstFaultOfAnEnum) {
  Json::Value attribute = Without(Without(Enum(), "enum"), "position");
  EXPECT_EQ(Parse({attribute}).lines, Skips({"position"}));
  attribute["position"] = Json::Value(Json::objectValue);
  EXPECT_EQ(Parse({attribute}).lines, Skips({"enum"}));
  attribute["enum"].append("only");
  EXPECT_EQ(Parse({attribute}).lines, Skips({"byte_offset"}));
}

TEST(FilterConfigType, SkipsElementsThatAreNotObjects) {
  for (const char* element : {"null", "5", "1.5", "true", R"("text")", "[]", R"([{"id": 1}])"}) {
    const Parsed parsed = Parse({Attribute(), ParseJson(element), Attribute()});
    EXPECT_TRUE(parsed.success);
    EXPECT_EQ(parsed.attributes.size(), 2u) << element;
    EXPECT_EQ(parsed.lines, Skips({"attr"})) << element;
  }
}

// Setting an element beyond an array's end leaves gaps that read as null.
TEST(FilterConfigType, SkipsTheGapsOfASparseArray) {
  Json::Value entity = Entity({});
  entity["attrs"][3] = Attribute();
  const Parsed parsed = ParseEntity(entity);
  EXPECT_TRUE(parsed.success);
  EXPECT_EQ(parsed.lines, Skips({"attr", "attr", "attr"}));
  EXPECT_EQ(Each(Name, parsed.attributes), Texts{"n"});
}

TEST(FilterConfigType, SkipsAnAttributeByTheMemberAtFault) {
  const Json::Value number = Number();
  const Json::Value enumeration = Enum();
  const struct {
    const Json::Value& sound;
    std::string path;
    std::string key;
    std::vector<const char*> wrong;  // besides missing and null
  } rows[] = {
      {number, "id", "id", {"1.0", R"("x")", "[]", "{}", "4294967296"}},
      {number, "name", "name", {"5", "true", "[]", "{}"}},
      {number, "display_name", "display_name", {"5", "false", "[]", "{}"}},
      {number, "desc", "desc", {"5", "1.5", "[]", "{}"}},
      {number, "type", "type", {"1", "[]", "{}", R"("")", R"("status")", R"("unknown")", R"("bool")"}},
      {number, "data_type", "data_type", {"4", "[]", "{}", R"("")", R"("int8")", R"("unknown")", R"("alert")"}},
      {number, "position", "position", {"5", "[]", R"("")", "true", "[{}]"}},
      {number, "uint_spec", "uint_spec", {"5", "[]", R"("")", "true", "[{}]"}},
      {enumeration, "enum", "enum", {"5", "{}", R"({"0": "low"})", R"("low")", "[]", "true"}},
      {number, "position.byte_offset", "byte_offset", {"1.0", R"("x")", "[]", "{}"}},
      {number, "position.bit_offset", "bit_offset", {"1.0", R"("x")", "[]", "{}"}},
      {number, "position.unit", "unit", {"0", "true", "[]", "{}"}},
      {number, "position.len", "len", {"1.0", R"("x")", "[]", "{}"}},
      {number, "uint_spec.min", "min", {R"("x")", "0.0"}},
      {number, "uint_spec.max", "max", {R"("x")", "0.0"}},
      {number, "uint_spec.ratio", "ratio", {R"("x")", "true", "[]", "{}"}},
      {number, "uint_spec.addition", "addition", {R"("x")", "false", "[]", "{}"}},
  };
  for (const auto& row : rows) {
    ParseOne(row.sound);
    EXPECT_EQ(Parse({Without(row.sound, row.path)}).lines, Skips({row.key})) << row.path;
    EXPECT_EQ(Parse({With(row.sound, row.path, "null")}).lines, Skips({row.key})) << row.path;
    for (const char* wrong : row.wrong) {
      const Parsed parsed = Parse({With(row.sound, row.path, wrong)});
      EXPECT_TRUE(parsed.success);
      EXPECT_TRUE(parsed.attributes.empty());
      EXPECT_EQ(parsed.lines, Skips({row.key})) << row.path << " " << wrong;
    }
  }
  for (const char* unit : {R"("bits")", R"("bytes")", R"(" ")", R"("unknown")"}) {
    EXPECT_EQ(Parse({With(number, "position.unit", unit)}).lines, Skips({"position.unit"})) << unit;
  }
}

// The only exception that reaches the caller: a limit that is an array or an object.
TEST(FilterConfigType, LetsTheLibrarysErrorAboutALimitPass) {
  for (const char* path : {"uint_spec.min", "uint_spec.max"}) {
    for (const char* limit : {"[]", "[1]", "{}", R"({"a": "a text that has to be released"})"}) {
      const LogCapture log;
      Attributes attributes;
      MorvixProtocolEntity_4_0 entity;
      const Json::Value document = Entity({Enum(), With(Number(), path, limit)});
      EXPECT_THROW(FilterConfigType(document, kAllGroups, attributes, entity), Json::LogicError) << path << limit;
      EXPECT_THROW(static_cast<void>(ProtocolParseEntity_4_0(document, kAllGroups, attributes, entity)),
                   Json::LogicError)
          << path << limit;
    }
  }
}

TEST(FilterConfigType, GoesOnAfterEverySkip) {
  const Parsed parsed = Parse({Without(Attribute(), "desc"), Attribute(R"({"name": "a"})"), Json::Value(),
                               Attribute(R"({"type": "?"})"), Attribute(R"({"name": "b"})"), Number(R"({"id": []})")});
  EXPECT_TRUE(parsed.success);
  EXPECT_EQ(Each(Name, parsed.attributes), (Texts{"a", "b"}));
  EXPECT_EQ(parsed.lines, Skips({"desc", "attr", "type", "id"}));
}

TEST(FilterConfigType, TakesKeywordsInAnyLetterCase) {
  EXPECT_EQ(
      Describe(ParseOne(Number(R"({"type": "Status_Readonly", "data_type": "UInt64", "position": {"unit": "BIT"}})"))),
      "1 n|N| type:2 data:7 at:0+0 unit:1 len:1 group:0 scale:1..9/1 *0.5+-2 []");
  EXPECT_EQ(Describe(ParseOne(Attribute(R"({"type": "FAULT", "data_type": "BinarY", "position": {"unit": "bYTE"}})"))),
            "1 n|N| type:8 data:3 at:0+0 unit:0 len:1 group:0 scale:0..0/0 *0+0 []");
}

TEST(FilterConfigType, RefusesLongKeywords) {
  for (const size_t length : {31u, 32u, 33u, 1000u}) {
    const std::string blanks(length - 4, ' ');
    EXPECT_EQ(Parse({With(Attribute(), "type", "\"fault" + blanks.substr(1) + '"')}).lines, Skips({"type"}));
    EXPECT_EQ(Parse({With(Attribute(), "data_type", "\"bool" + blanks + '"')}).lines, Skips({"data_type"}));
    EXPECT_EQ(Parse({With(Attribute(), "position.unit", "\"byte" + blanks + '"')}).lines, Skips({"position.unit"}));
  }
}

TEST(FilterConfigType, EndsKeywordsAtANulButNotOtherTexts) {
  Json::Value attribute = Enum(R"({"position": {"byte_offset": 3, "len": 3}})");
  attribute["name"] = "n\0a"s;
  attribute["display_name"] = "\0N"s;
  attribute["desc"] = "d\0"s;
  attribute["type"] = "Alert\0x"s;
  attribute["data_type"] = "Enum\0x"s;
  attribute["position"]["unit"] = "\0bit"s;
  attribute["position"]["len"] = "2\0001"s;
  attribute["enum"][1] = "o\0n"s;
  EXPECT_EQ(Describe(ParseOne(attribute)),
            "1 n\0a|\0N|d\0 type:4 data:2 at:3+0 unit:0 len:2 group:1 scale:0..0/0 *0+0 [off,o\0n]"s);
}

TEST(FilterConfigType, TakesIntegersInEveryForm) {
  EXPECT_EQ(Describe(ParseOne(Number(R"({
      "id": "0x10",
      "position": {"byte_offset": "017", "bit_offset": true, "len": "4294967295"},
      "uint_spec": {"min": "-0x10", "max": 9007199254740993, "ratio": "2.5e-1", "addition": 4294967295}})"))),
            "16 n|N| type:1 data:4 at:15+1 unit:0 len:-1 group:0 scale:-16..9007199254740993/1 *0.25+4.29497e+09 []");
  EXPECT_EQ(ParseOne(Number(R"({"uint_spec": {"max": 2.9}})")).uint_spec.max, 2);
}

// An empty text leaves the fresh record's zero.
TEST(FilterConfigType, TakesEmptyTextForZero) {
  EXPECT_EQ(Describe(ParseOne(Number(R"({
      "id": "", "name": "", "display_name": "", "position": {"byte_offset": "", "bit_offset": " ", "unit": "", "len": ""},
      "uint_spec": {"min": "", "max": " ", "ratio": "", "addition": ""}})"))),
            "0 || type:1 data:4 at:0+0 unit:0 len:0 group:0 scale:0..0/1 *0+0 []");
}

TEST(FilterConfigType, ChecksNoRange) {
  EXPECT_EQ(Describe(ParseOne(Number(R"({
      "id": -2147483648, "position": {"byte_offset": -1, "bit_offset": -99, "len": 2147483647},
      "uint_spec": {"min": 9223372036854775807, "max": -9223372036854775808, "ratio": 0, "addition": 0.0}})"))),
            "-2147483648 n|N| type:1 data:4 at:-1+-99 unit:0 len:2147483647 group:0 "
            "scale:9223372036854775807..-9223372036854775808/1 *0+0 []");
}

TEST(FilterConfigType, TakesTheTextsOfAnEnumsItems) {
  const auto items = [](const char* text) { return ParseOne(With(Enum(), "enum", text)).enumList; };
  EXPECT_EQ(items(R"(["low", 5, "high"])"), (Texts{"low", "high"}));
  EXPECT_EQ(items(R"([null, "a", true, 1.5, [], {}, ["b"], "", "a"])"), (Texts{"a", "", "a"}));
  EXPECT_EQ(items(R"([5])"), Texts());  // not empty as an array
  EXPECT_EQ(items(R"([null])"), Texts());

  Json::Value sparse = Enum();
  sparse["enum"] = Json::Value(Json::arrayValue);
  sparse["enum"][2] = "third";
  EXPECT_EQ(ParseOne(sparse).enumList, Texts{"third"});
}

// --- Selection -------------------------------------------------------------------------------------------------------

TEST(FilterConfigType, SelectsTheGroupsOfTheMask) {
  const std::vector<Json::Value> attributes = {
      Attribute(R"({"name": "w"})"), Attribute(R"({"name": "r", "type": "status_readonly"})"),
      Attribute(R"({"name": "a", "type": "alert"})"), Attribute(R"({"name": "f", "type": "fault"})")};
  const char* names[] = {"w", "r", "a", "f"};
  for (int matchTypes = 0; matchTypes < 64; ++matchTypes) {
    Texts expected;
    for (int group = 0; group < 4; ++group) {
      if ((matchTypes >> group) % 2 == 1) expected.push_back(names[group]);
    }
    const Parsed parsed = Parse(attributes, matchTypes);
    EXPECT_TRUE(parsed.success);
    EXPECT_EQ(Each(Name, parsed.attributes), expected) << matchTypes;
    EXPECT_EQ(parsed.lines, Skips({})) << matchTypes;
  }
  EXPECT_EQ(Parse(attributes, -1).attributes.size(), 4u);
}

// Identity and keywords are checked for every attribute, the rest for selected ones only.
TEST(FilterConfigType, WarnsAboutUnselectedAttributesUpToTheirKeywords) {
  const std::vector<Json::Value> attributes = {
      Json::Value(),
      Without(Attribute(), "desc"),
      Attribute(R"({"type": "?"})"),
      Attribute(R"({"data_type": "?"})"),
      Attribute(R"({"type": "?", "data_type": "?"})"),
      Without(Attribute(), "position"),
      Without(Attribute(), "position.len"),
      Without(Number(), "uint_spec"),
      Without(Number(), "uint_spec.min"),
      Without(Enum(), "enum"),
  };
  for (const int matchTypes : {0, 4, 14, 16}) {
    const Parsed parsed = Parse(attributes, matchTypes);
    EXPECT_TRUE(parsed.success);
    EXPECT_TRUE(parsed.attributes.empty());
    EXPECT_EQ(parsed.lines, Skips({"attr", "desc", "type", "data_type", "type"})) << matchTypes;
  }
}

// --- What an attribute inherits --------------------------------------------------------------------------------------

Json::Value Binary() { return Attribute(R"({"data_type": "binary"})"); }
Json::Value Alert() { return Attribute(R"({"type": "alert"})"); }

const std::string kNoScaling = "0..0/0 *0+0";
const std::string kScaling = "1..9/1 *0.5+-2";  // of Number()
const std::string kItems = "[off,on]";          // of Enum()

TEST(Inheritance, HandsAScalingToEveryLaterDataType) {
  const std::string second = "1..5/1 *0.5+-2";
  EXPECT_EQ(Each(Scaling, ParseAll({Attribute(), Enum(), Number(), Attribute(), Enum(), Binary(), Alert(),
                                    Number(R"({"uint_spec": {"max": 5}})"), Attribute()})),
            (Texts{kNoScaling, kNoScaling, kScaling, kScaling, kScaling, kScaling, kScaling, second, second}));
}

TEST(Inheritance, HandsItemsToEveryLaterDataType) {
  EXPECT_EQ(Each(Items, ParseAll({Attribute(), Number(), Enum(), Attribute(), Number(), Binary(), Alert(),
                                  Enum(R"({"enum": ["x"]})"), Attribute()})),
            (Texts{"[]", "[]", kItems, kItems, kItems, kItems, kItems, "[x]", "[x]"}));
}

TEST(Inheritance, SkipsAllUntilANumberBringsAScalingOfItsOwn) {
  for (const std::string& member : {"min"s, "max"s, "ratio"s, "addition"s}) {
    const Parsed parsed = Parse({Attribute(), Without(Number(), "uint_spec." + member), Attribute(), Enum(), Binary(),
                                 Alert(), Number(R"({"name": "cure"})"), Attribute()});
    EXPECT_TRUE(parsed.success);
    EXPECT_EQ(Each(Name, parsed.attributes), (Texts{"n", "cure", "n"})) << member;
    EXPECT_EQ(parsed.lines, Skips({member, member, member, member, member}));
  }
}

TEST(Inheritance, EndsWithAMissingScaling) {
  for (const Json::Value& broken : {Without(Number(), "uint_spec"), With(Number(), "uint_spec", "null")}) {
    const Parsed parsed = Parse({Number(), Enum(), broken, Attribute(), Enum()});
    EXPECT_EQ(Each(Scaling, parsed.attributes), (Texts{kScaling, kScaling, kNoScaling, kNoScaling}));
    EXPECT_EQ(Each(Items, parsed.attributes), (Texts{"[]", kItems, kItems, kItems}));
    EXPECT_EQ(parsed.lines, Skips({"uint_spec"}));
  }
}

// A scaling that is not an object is inherited all the same, and has no "min".
TEST(Inheritance, HandsOnAScalingThatIsNotAnObject) {
  for (const char* scaling : {"5", "0", "false", "[]", "[{}]", R"("")", R"("text")"}) {
    const Parsed parsed = Parse({With(Number(), "uint_spec", scaling), Attribute(), Binary(), Number(), Attribute()});
    EXPECT_EQ(Each(Scaling, parsed.attributes), (Texts{kScaling, kScaling})) << scaling;
    EXPECT_EQ(parsed.lines, Skips({"uint_spec", "min", "min"})) << scaling;
  }
}

TEST(Inheritance, EndsWithUnusableItems) {
  for (const char* items : {"null", "[]", "{}", "5", R"("off")"}) {
    const Parsed parsed = Parse({Number(), Enum(), With(Enum(), "enum", items), Attribute(), Number()});
    EXPECT_EQ(Each(Items, parsed.attributes), (Texts{"[]", kItems, "[]", "[]"})) << items;
    EXPECT_EQ(Each(Scaling, parsed.attributes), (Texts{kScaling, kScaling, kScaling, kScaling})) << items;
    EXPECT_EQ(parsed.lines, Skips({"enum"})) << items;
  }
  EXPECT_EQ(Each(Items, ParseAll({Enum(), With(Enum(), "enum", "[5]"), Attribute()})), (Texts{kItems, "[]", "[]"}));
}

// An attribute hands on what was fetched for it even when it is skipped afterwards, and nothing when it was skipped or
// ignored before that.
TEST(Inheritance, ComesFromSkippedAttributesOnceTheyWereFetched) {
  for (const char* path : {"position.byte_offset", "position.bit_offset", "position.unit", "position.len"}) {
    const Parsed parsed = Parse({Without(Number(), path), Without(Enum(), path), Attribute()});
    ASSERT_EQ(parsed.attributes.size(), 1u) << path;
    EXPECT_EQ(Scaling(parsed.attributes[0]) + Items(parsed.attributes[0]), kScaling + kItems) << path;
  }
  for (const char* path : {"id", "desc", "type", "data_type", "position"}) {
    const Parsed parsed = Parse({Without(Number(), path), Without(Enum(), path), Attribute()});
    ASSERT_EQ(parsed.attributes.size(), 1u) << path;
    EXPECT_EQ(Scaling(parsed.attributes[0]) + Items(parsed.attributes[0]), kNoScaling + "[]") << path;
  }
  const char* alert = R"({"type": "alert"})";
  const Parsed parsed = Parse({Number(alert), Enum(alert), With(Number(alert), "uint_spec", "{}"), Attribute()}, 1);
  ASSERT_EQ(parsed.attributes.size(), 1u);
  EXPECT_EQ(Scaling(parsed.attributes[0]) + Items(parsed.attributes[0]), kNoScaling + "[]");
}

TEST(Inheritance, ReadsAnewForEveryAttribute) {
  EXPECT_EQ(Each(Scaling, ParseAll({Number(), Number(R"({"uint_spec": {"min": "", "ratio": " "}})"), Attribute()})),
            (Texts{kScaling, "0..9/1 *0+-2", "0..9/1 *0+-2"}));
}

TEST(Inheritance, KnowsNoPositionsAndNoOtherCalls) {
  const Parsed parsed = Parse({Number(), Enum(), Without(Attribute(), "position")});
  EXPECT_EQ(parsed.lines, Skips({"position"}));
  EXPECT_EQ(Each(Scaling, ParseAll({Attribute()})), Texts{kNoScaling});
  EXPECT_EQ(Each(Items, ParseAll({Attribute()})), Texts{"[]"});
}

// --- Bit groups ------------------------------------------------------------------------------------------------------

constexpr size_t kMark = 99;

MorvixProtocolAttribute_4_0 Record(MorvixProtocolDataType_4_0 dataType, int32_t bitOffset, int32_t length) {
  MorvixProtocolAttribute_4_0 attribute;
  attribute.data_type = dataType;
  attribute.position.bit_offset = bitOffset;
  attribute.position.len = length;
  attribute.position.groupByteLength = kMark;
  return attribute;
}

TEST(CalculateGroupByteSize, SizesTheRangeByTheLastAttributeOfTheList) {
  const Attributes original = {
      Record(MorvixProtocolDataTypeUInt8_4_0, 0, 1), Record(MorvixProtocolDataTypeBool_4_0, 0, 1),
      Record(MorvixProtocolDataTypeEnum_4_0, 90, 9), Record(MorvixProtocolDataTypeBool_4_0, 9, 2)};
  const size_t largest = std::numeric_limits<size_t>::max();
  for (const size_t start : {size_t{0}, size_t{1}, size_t{2}, size_t{3}, size_t{4}, size_t{5}, largest - 1, largest}) {
    for (const size_t end : {size_t{0}, size_t{1}, size_t{2}, size_t{3}, size_t{4}, size_t{5}, largest - 1, largest}) {
      Attributes attributes = original;
      CalculateAttributesGroupByteSizeWithRange(attributes, start, end);
      for (size_t i = 0; i < attributes.size(); ++i) {
        EXPECT_EQ(GroupSize(attributes[i]), start <= i && i <= end ? 2 : kMark) << start << " " << end << " " << i;
      }
    }
  }
}

TEST(CalculateGroupByteSize, LeavesAListThatIsEmptyOrEndsOutsideAGroup) {
  Attributes attributes;
  CalculateAttributesGroupByteSizeWithRange(attributes, 0, 0);
  EXPECT_TRUE(attributes.empty());
  for (const uint32_t dataType : {0u, 3u, 4u, 5u, 6u, 7u, 8u}) {
    attributes = {Record(MorvixProtocolDataTypeBool_4_0, 0, 1),
                  Record(static_cast<MorvixProtocolDataType_4_0>(dataType), 0, 1)};
    CalculateAttributesGroupByteSizeWithRange(attributes, 0, 1);
    EXPECT_EQ(Each(GroupSize, attributes), (Sizes{kMark, kMark})) << dataType;
  }
}

TEST(CalculateGroupByteSize, RoundsUpWrapsAt32BitsAndTakesNegativesForZero) {
  constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  struct Row {
    int32_t bitOffset, length;
    size_t bytes;
  };
  std::vector<Row> rows = {{0, 0, 0},  {0, 1, 1},  {0, 8, 1},  {0, 9, 2},  {7, 1, 1},  {7, 2, 2},
                           {8, 0, 1},  {16, 1, 3}, {5, -4, 1}, {-7, 8, 1}, {-1, 0, 0}, {0, -7, 0},
                           {0, -8, 0}, {-9, 0, 0}, {3, -9, 0}, {-9, 3, 0}};
  for (const Row& row :
       {Row{kMost - 7, 0, 268435455}, Row{kMost - 6, 0, 268435456}, Row{kMost, 0, 268435456}, Row{kMost, 1, 0},
        Row{kMost, kMost, 0}, Row{kLeast, 0, 0}, Row{kLeast, -1, 268435456}, Row{kLeast, kLeast, 0}}) {
    rows.push_back(row);
  }
  for (const auto& row : rows) {
    for (const auto dataType : {MorvixProtocolDataTypeBool_4_0, MorvixProtocolDataTypeEnum_4_0}) {
      Attributes attributes = {Record(dataType, row.bitOffset, row.length)};
      CalculateAttributesGroupByteSizeWithRange(attributes, 0, 0);
      EXPECT_EQ(GroupSize(attributes[0]), row.bytes) << row.bitOffset << " + " << row.length;
    }
  }
}

TEST(CalculateGroupByteSize, AgreesWithTheModel) {
  support::Sightings outcomes({"unchanged", "changed"});
  support::ForEachCase(2026040622, 50000, [&](support::Source& source) {
    Attributes before(source.Index(6));
    for (MorvixProtocolAttribute_4_0& attribute : before) {
      attribute = Record(MorvixProtocolDataType_4_0(source.OneIn(3) ? source.Below(9) : 1 + source.Below(2)), 0, 0);
      attribute.position.bit_offset = source.OneIn(4) ? source.AnyInt() : source.Int(-20, 40);
      attribute.position.len = source.OneIn(4) ? source.AnyInt() : source.Int(-20, 40);
    }
    const size_t start = source.OneIn(8) ? SIZE_MAX - source.Index(2) : source.Index(6);
    const size_t end = source.OneIn(8) ? SIZE_MAX - source.Index(2) : start + source.Index(4) - 1;
    const support::Inputs inputs(before, start, end);
    Attributes attributes = before;
    CalculateAttributesGroupByteSizeWithRange(attributes, start, end);
    Attributes expected = before;
    model::SizeRange(expected, start, end);
    support::ExpectEqual(attributes, expected, "groups are sized like the model's");
    outcomes.Add(expected == before ? "unchanged" : "changed");
  });
}

Json::Value Bits(int bitOffset, int length, const std::string& type = "status_writable") {
  Json::Value attribute = Attribute();
  attribute["type"] = type;
  attribute["position"]["bit_offset"] = bitOffset;
  attribute["position"]["len"] = length;
  return attribute;
}

TEST(BitGroup, IsSizedByItsLastMember) {
  const auto sizes = [](const std::vector<Json::Value>& attributes) { return Each(GroupSize, ParseAll(attributes)); };
  EXPECT_EQ(sizes({Bits(0, 1), Bits(1, 7), Bits(8, 1)}), (Sizes{2, 2, 2}));
  EXPECT_EQ(sizes({Bits(20, 9), Bits(0, 1)}), (Sizes{1, 1}));  // the highest bit should stand last
  EXPECT_EQ(sizes({Bits(0, 1), With(Enum(), "position.bit_offset", "15"), Bits(1, 8)}), (Sizes{2, 2, 2}));
  EXPECT_EQ(sizes({Bits(0, 1), With(Bits(0, 17), "position.unit", R"("byte")")}), (Sizes{3, 3}));
  EXPECT_EQ(sizes({Bits(0, 1), With(Bits(0, 17), "position.byte_offset", "5")}), (Sizes{3, 3}));
}

TEST(BitGroup, EndsAtAnotherGroupAndAtOtherDataTypes) {
  const auto sizes = [](const std::vector<Json::Value>& attributes) { return Each(GroupSize, ParseAll(attributes)); };
  const Json::Value number = Number(R"({"position": {"unit": "bit", "len": 40}})");
  EXPECT_EQ(sizes({Bits(0, 1), Bits(0, 9, "alert"), Bits(0, 17)}), (Sizes{1, 2, 3}));
  EXPECT_EQ(sizes({Bits(0, 1), Bits(0, 9), number, Bits(0, 1), Bits(0, 17)}), (Sizes{2, 2, 0, 3, 3}));
  EXPECT_EQ(sizes({number, Binary(), Bits(0, 9), Binary(), number, Bits(0, 1), number}), (Sizes{0, 0, 2, 0, 0, 1, 0}));
  EXPECT_EQ(sizes({number, Bits(0, 9, "fault"), Bits(0, 1, "fault")}), (Sizes{0, 1, 1}));
}

TEST(BitGroup, DoesNotSeeSkippedAndUnselectedAttributes) {
  const Json::Value broken = Without(Number(), "position");
  EXPECT_EQ(Each(GroupSize, Parse({Bits(0, 1), broken, Json::Value(), Bits(8, 1)}).attributes), (Sizes{2, 2}));
  const std::vector<Json::Value> attributes = {Bits(0, 1), Bits(0, 17, "alert"), Bits(8, 1)};
  EXPECT_EQ(Each(GroupSize, Parse(attributes, 1).attributes), (Sizes{2, 2}));
  EXPECT_EQ(Each(GroupSize, Parse(attributes, 15).attributes), (Sizes{1, 3, 2}));
}

// Every sequence of up to five attributes out of four kinds, against the rule in its short form: a run of neighbours
// that are bits of one type has the size of its last member.
TEST(BitGroup, IsARunOfNeighboursOfOneType) {
  const std::vector<Json::Value> kinds = {Number(), Bits(0, 1), Bits(0, 1, "alert"), Without(Attribute(), "position")};
  for (size_t length = 1, count = 4; length <= 5; ++length, count *= 4) {
    for (size_t sequence = 0; sequence < count; ++sequence) {
      std::vector<Json::Value> attributes;
      std::vector<size_t> kept;  // kinds
      Sizes expected;
      for (size_t i = 0, rest = sequence; i < length; ++i, rest /= 4) {
        attributes.push_back(With(kinds[rest % 4], "position.len", std::to_string(8 * i + 1)));
        if (rest % 4 == 3) {
          attributes.back().removeMember("position");
          continue;
        }
        kept.push_back(rest % 4);
        expected.push_back(rest % 4 == 0 ? 0 : i + 1);
      }
      for (size_t i = kept.size(); i-- > 1;) {
        if (kept[i - 1] == kept[i]) expected[i - 1] = expected[i];
      }
      ASSERT_EQ(Each(GroupSize, Parse(attributes).attributes), expected) << length << " " << sequence;
    }
  }
}

TEST(FilterConfigType, AppendsAndLeavesTheEarlierAttributes) {
  const LogCapture log;
  const Attributes earlier = {Record(MorvixProtocolDataTypeUInt8_4_0, 0, 1),
                              Record(MorvixProtocolDataTypeBool_4_0, 0, 1)};
  Attributes attributes = earlier;
  MorvixProtocolEntity_4_0 entity;
  EXPECT_TRUE(FilterConfigType(Entity({Json::Value()}), kAllGroups, attributes, entity));
  EXPECT_EQ(Each(Describe, attributes), Each(Describe, earlier));
  EXPECT_TRUE(FilterConfigType(Entity({Bits(0, 1), Bits(8, 1), Number(), Bits(0, 1)}), kAllGroups, attributes, entity));
  EXPECT_EQ(Each(GroupSize, attributes), (Sizes{kMark, kMark, 2, 2, 0, 1}));
}

// --- ProtocolParseEntity_4_0 -----------------------------------------------------------------------------------------

TEST(ParseEntity, DoesWhatTheParserDoes) {
  std::vector<Json::Value> entities = {
      Entity({}), Entity({Json::Value(), Attribute(), Number(), Enum(), Binary(), Alert(), Bits(0, 9, "fault")}),
      Entity({Without(Number(), "uint_spec.max"), Alert(), Attribute(R"({"type": "?"})"), Number(), Bits(3, 9)})};
  for (const EntityFault& fault : EntityFaults()) entities.push_back(fault.entity);
  for (const Json::Value& document : entities) {
    for (const int matchTypes : {0, 1, 2, 4, 8, 9, 15, 16, -1}) {
      LogCapture log;
      Attributes expected = {Record(MorvixProtocolDataTypeBool_4_0, 0, 1)};
      MorvixProtocolEntity_4_0 expectedEntity{9, "old", "older"};
      const bool success = FilterConfigType(document, matchTypes, expected, expectedEntity);
      const LogLines lines = log.Take();

      Attributes attributes = {Record(MorvixProtocolDataTypeBool_4_0, 0, 1)};
      MorvixProtocolEntity_4_0 entity{9, "old", "older"};
      EXPECT_EQ(ProtocolParseEntity_4_0(document, matchTypes, attributes, entity), success);
      EXPECT_EQ(Each(Describe, attributes), Each(Describe, expected));
      EXPECT_EQ(Identity(entity), Identity(expectedEntity));
      EXPECT_EQ(log.Lines(), lines);
    }
  }
}

// --- Looking members up ---

TEST(EqualBytes, SeesADifferenceAtEveryPlaceOfEveryLength) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string left(length, 'n');
    EXPECT_TRUE(EqualBytes(left.data(), std::string(left).data(), length)) << length;
    for (size_t i = 0; i < length; ++i) {
      std::string right = left;
      right[i] = 'm';
      EXPECT_FALSE(EqualBytes(left.data(), right.data(), length)) << i << " of " << length;
      EXPECT_FALSE(EqualBytes(right.data(), left.data(), length)) << i << " of " << length;
    }
  }
}

// A page of memory between two that may not be touched.
class LonelyPage {
 public:
  LonelyPage()
      : size_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
        memory_(mmap(nullptr, 3 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    EXPECT_NE(memory_, MAP_FAILED);
    EXPECT_EQ(mprotect(Start(), size_, PROT_READ | PROT_WRITE), 0);
  }
  ~LonelyPage() { munmap(memory_, 3 * size_); }
  LonelyPage(const LonelyPage&) = delete;
  LonelyPage& operator=(const LonelyPage&) = delete;

  char* Start() const { return static_cast<char*>(memory_) + size_; }
  char* End() const { return Start() + size_; }

 private:
  const size_t size_;
  void* const memory_;
};

TEST(EqualBytes, ReadsNothingBeforeOrAfterTheNames) {
  const LonelyPage page;
  for (size_t length = 1; length <= 40; ++length) {
    const std::string name(length, 'n');
    for (char* const place : {page.Start(), page.End() - length}) {
      std::memcpy(place, name.data(), length);
      EXPECT_TRUE(EqualBytes(place, name.data(), length)) << length;
      EXPECT_TRUE(EqualBytes(name.data(), place, length)) << length;
    }
  }
}

TEST(FindMembers, LooksAtNoNameAfterTheLast) {
  using Names = std::string_view[2];
  const LonelyPage page;
  auto* const names = reinterpret_cast<Names*>(page.End() - sizeof(Names));
  new (&(*names)[0]) std::string_view("b");
  new (&(*names)[1]) std::string_view("d");
  for (const char* const text : {R"({"e": 1})", R"({"b": 1, "d": 2, "e": 3})", R"({"d": 1, "dd": 2, "e": 3})"}) {
    SCOPED_TRACE(text);
    const Json::Value object = ParseJson(text);
    const Json::Value* members[2] = {};
    FindMembers(object, *names, members);
    EXPECT_EQ(members[0], object.isMember("b") ? &object["b"] : nullptr);
    EXPECT_EQ(members[1], object.isMember("d") ? &object["d"] : nullptr);
  }
}

TEST(FindMembers, FindsWhatIsThereAmongOtherMembers) {
  static constexpr std::string_view kNames[] = {"b", "bb", "d"};
  const struct {
    const char* object;
    int found[3];  // 0: missing
  } cases[] = {
      {R"({})", {0, 0, 0}},
      {R"({"a": 1})", {0, 0, 0}},
      {R"({"e": 1})", {0, 0, 0}},
      {R"({"b": 1, "bb": 2, "d": 3})", {1, 2, 3}},
      {R"({"a": 9, "b": 1, "ba": 9, "bb": 2, "c": 9, "d": 3, "e": 9})", {1, 2, 3}},
      {R"({"bb": 2})", {0, 2, 0}},
      {R"({"B": 9, "d": 3})", {0, 0, 3}},
      {R"({"b\u0000": 9, "b": 1})", {1, 0, 0}},
      {R"({"b": 1, "c": 9, "z": 9})", {1, 0, 0}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.object);
    const Json::Value object = ParseJson(test.object);
    const Json::Value* members[3] = {};
    FindMembers(object, kNames, members);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(members[i] == nullptr ? 0 : members[i]->asInt(), test.found[i]) << i;
  }
}

}  // namespace configuration_parser_test
