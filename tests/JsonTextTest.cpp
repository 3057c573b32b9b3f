// JSON as text: strict validation, the places of errors and values, and repeated members.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "TestSupport.h"
#include "inspect/json/Document.h"
#include "inspect/json/Scan.h"

namespace morvix::inspect::json {
namespace {

using testing::HasSubstr;

// "LINE:COLUMN" of the error; "fine" when the text is strict JSON.
std::string StrictPlace(const std::string& text) {
  Json::Value value;
  SyntaxError error;
  if (ReadStrict(text, value, error)) return "fine";
  EXPECT_FALSE(error.message.empty()) << text;
  return std::to_string(error.place.line) + ":" + std::to_string(error.place.column);
}

bool IsStrict(const std::string& text) { return StrictPlace(text) == "fine"; }

std::string Nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

// ---- Strict JSON ----

TEST(ReadStrict, GivesTheValue) {
  Json::Value value;
  SyntaxError error;
  ASSERT_TRUE(ReadStrict(" {\"a\": [1, -2.5e1, true, null, \"\\u00e4\\u0000\"]}\n", value, error));
  ASSERT_EQ(value["a"].size(), 5U);
  EXPECT_EQ(value["a"][0], 1);
  EXPECT_EQ(value["a"][1].asDouble(), -25);
  EXPECT_EQ(value["a"][2], true);
  EXPECT_TRUE(value["a"][3].isNull());
  EXPECT_EQ(value["a"][4].asString(), WithNul("\xc3\xa4", ""));
}

// The column is that of the first byte that cannot follow, or one after the end.
TEST(ReadStrict, CountsTheColumnOverAllBytesOfTheText) {
  EXPECT_EQ(StrictPlace(""), "1:1");
  EXPECT_EQ(StrictPlace("{\"a\": 1"), "1:8");
  EXPECT_EQ(StrictPlace("{\"a\": x}"), "1:7");
  EXPECT_EQ(StrictPlace("{\"\xc3\xa4\": x}"), "1:8");
  EXPECT_EQ(StrictPlace("{\"a\": 1,\n\"b\": x}"), "1:15");
  EXPECT_EQ(StrictPlace("{} {}"), "1:4");
}

TEST(ReadStrict, TakesNumbersInJsonsGrammarOnly) {
  for (const char* number : {"0", "-0", "10", "-1.50", "1e5", "1E+5", "0.1e-5", "18446744073709551616"}) {
    EXPECT_TRUE(IsStrict(number)) << number;
  }
  for (const char* number :
       {"01", "-01", "+1", ".5", "1.", "1e", "1e+", "-", "0x1", "1_0", "NaN", "Infinity", "-inf"}) {
    EXPECT_FALSE(IsStrict(number)) << number;
  }
}

// The largest double is about 1.8e308.
TEST(ReadStrict, RefusesNumbersBeyondADouble) {
  EXPECT_TRUE(IsStrict("{\"a\": 1.7e308}"));
  EXPECT_TRUE(IsStrict("-1.7e308"));
  for (const char* number : {"1.9e308", "-1.9e308", "1e999", "[1, -1e400]"}) {
    EXPECT_FALSE(IsStrict(number)) << number;
    Json::Value value;
    SyntaxError error;
    EXPECT_FALSE(ReadStrict(number, value, error));
    EXPECT_THAT(error.message, HasSubstr("number overflow"));
  }
  EXPECT_FALSE(IsStrict("1" + std::string(400, '0')));
}

TEST(ReadStrict, RefusesControlCharactersInStrings) {
  for (char control = 0; control < 0x20; ++control) {
    EXPECT_FALSE(IsStrict("\"a" + std::string(1, control) + "\"")) << int{control};
  }
  EXPECT_TRUE(IsStrict("\"a\x7f\""));
  EXPECT_TRUE(IsStrict("\"\\u0000\\u001f\\n\\t\\/\""));
  EXPECT_FALSE(IsStrict("\"\\a\""));
  EXPECT_FALSE(IsStrict("'a'"));
}

// Blanks between values are four characters and no others.
TEST(ReadStrict, TakesFourBlanksBetweenValues) {
  EXPECT_TRUE(IsStrict("\t\r\n [\t\r\n ]\t\r\n "));
  for (const char* text : {"[\v]", "[\f]", "[\x01]", "[\xc2\xa0]"}) EXPECT_FALSE(IsStrict(text)) << text;
}

TEST(ReadStrict, RefusesRepeatedMembers) {
  EXPECT_TRUE(IsStrict("{\"a\": 1, \"b\": {\"a\": 1}, \"A\": 1}"));
  EXPECT_TRUE(IsStrict("[{\"a\": 1}, {\"a\": 1}]"));
  EXPECT_FALSE(IsStrict("{\"a\": 1, \"a\": 1}"));
  EXPECT_FALSE(IsStrict("{\"a\": 1, \"\\u0061\": 2}"));
  EXPECT_FALSE(IsStrict("{\"b\": [{\"a\": 1, \"a\": 1}]}"));
  EXPECT_FALSE(IsStrict("{\"\": 1, \"\": 1}"));
}

// Parsers that take a NUL for the end of the text would ignore the bytes after it.
TEST(ReadStrict, RefusesNulsOutsideOfEscapes) {
  EXPECT_EQ(StrictPlace(WithNul("{}", "")), "1:3");
  EXPECT_FALSE(IsStrict(WithNul("", "{}")));
  EXPECT_EQ(StrictPlace(WithNul("{\n}\n", " x")), "1:5");
  EXPECT_FALSE(IsStrict(WithNul("[1,", "2]")));
  EXPECT_FALSE(IsStrict(WithNul("\"a", "b\"")));
}

TEST(ReadStrict, RefusesWhatIsNotUtf8) {
  EXPECT_TRUE(IsStrict("\"\xf0\x9d\x84\x9e\""));
  for (const char* text : {"\"\xff\"", "\"\xc0\x80\"", "\"\xc3\"", "\"\xed\xa0\x80\"", "\"\xf5\x80\x80\x80\"",
                           "\"\\ud800\"", "\"\\ud800\\u0061\"", "\"\\udc00\""}) {
    EXPECT_FALSE(IsStrict(text)) << text;
  }
}

TEST(ReadStrict, RefusesCommentsAndTrailingCommas) {
  for (const char* text : {"/* */ {}", "{} // end", "{/**/}", "[1,]", "{\"a\": 1,}", "{\"a\" 1}", "{a: 1}"}) {
    EXPECT_FALSE(IsStrict(text)) << text;
  }
}

// The module's reader takes a thousand levels.
TEST(ReadStrict, LimitsTheDepth) {
  EXPECT_TRUE(IsStrict(Nested(1000)));
  for (const size_t depth : {size_t{1001}, size_t{100000}}) {
    Json::Value value;
    SyntaxError error;
    EXPECT_FALSE(ReadStrict(Nested(depth), value, error));
    EXPECT_EQ(error.message, "nested too deep");
  }
  EXPECT_FALSE(IsStrict(std::string(100000, '[')));
}

// ---- Documents ----

std::string ReadError(const std::string& text) {
  SyntaxError error;
  if (Document::Read("file", text, error)) return "fine";
  return PlaceName("file", error.place) + " " + error.message;
}

Document ReadDocument(const std::string& text) {
  SyntaxError error;
  std::optional<Document> document = Document::Read("file", text, error);
  EXPECT_TRUE(document) << error.message;
  return std::move(document.value());
}

TEST(Document, NamesThePlaceOfEachValue) {
  const Document document = ReadDocument("{\n  \"a\": [1,\r\n    {\"b\": \"x\"}],\n\"\xc3\xa4\": null\n}\n");
  const Json::Value& root = document.Root();
  EXPECT_EQ(document.PlaceName(root), "file:1:1");
  EXPECT_EQ(document.PlaceName(root["a"]), "file:2:8");
  EXPECT_EQ(document.PlaceName(root["a"][0]), "file:2:9");
  EXPECT_EQ(document.PlaceName(root["a"][1]), "file:3:5");
  EXPECT_EQ(document.PlaceName(root["a"][1]["b"]), "file:3:11");
  EXPECT_EQ(document.PlaceName(root["\xc3\xa4"]), "file:4:7");  // two bytes of a name
}

TEST(Document, NamesThePlaceOfAnOffset) {
  const Document document = ReadDocument("[1,\n2]\n");
  EXPECT_EQ(document.PlaceName(size_t{0}), "file:1:1");
  EXPECT_EQ(document.PlaceName(size_t{3}), "file:1:4");  // the line feed
  EXPECT_EQ(document.PlaceName(size_t{4}), "file:2:1");
  EXPECT_EQ(document.PlaceName(size_t{7}), "file:3:1");  // the end
}

TEST(Document, EscapesItsName) { EXPECT_EQ(PlaceName("a\nb", {3, 4}), "a\\nb:3:4"); }

TEST(Document, NamesThePlaceOfAnError) {
  EXPECT_THAT(ReadError("{\n  \"a\": x\n}"), testing::StartsWith("file:2:8 "));
  EXPECT_THAT(ReadError("[1] 2"), testing::StartsWith("file:1:5 "));
  EXPECT_EQ(ReadError(Nested(1001)), "file:1:1 nested too deep");
  EXPECT_EQ(ReadError(Nested(1000)), "fine");
}

// JsonCpp stops at a NUL and would ignore the bytes after it.
TEST(Document, RefusesANulAfterTheDocument) {
  EXPECT_EQ(ReadError(WithNul("[1]", "")), "file:1:4 a NUL after the document");
  EXPECT_EQ(ReadError(WithNul("[1]\n \n", "[2]")), "file:3:1 a NUL after the document");
  EXPECT_EQ(ReadError("[\"\\u0000\"]"), "fine");
}

TEST(Document, TakesCommentsAndRepeatedMembers) {
  const Document document = ReadDocument("// one\n{\"a\": 1, /* two */ \"a\": 2}");
  EXPECT_EQ(document.Root()["a"], 2);
  EXPECT_EQ(document.PlaceName(document.Root()), "file:2:1");
}

// ---- Scanning ----

// "offset pointer name"
std::vector<std::string> Repeated(const std::string& text) {
  std::vector<std::string> texts;
  for (const RepeatedMember& member : FindRepeatedMembers(text)) {
    texts.push_back(std::to_string(member.offset) + " " + member.pointer + " " + member.name);
  }
  return texts;
}

using Texts = std::vector<std::string>;

TEST(FindRepeatedMembers, TellsOffsetPointerAndName) {
  EXPECT_EQ(Repeated("{\"a\":1,\"a\":2}"), Texts{"7 /a a"});
  EXPECT_EQ(Repeated("{\"a\":1,\"a\":2,\"a\":3}"), (Texts{"7 /a a", "13 /a a"}));
  EXPECT_EQ(Repeated("{\"a\":[{\"b\":1},{\"b\":1,\"b\":2}],\"a\":0}"), (Texts{"21 /a/1/b b", "29 /a a"}));
  EXPECT_EQ(Repeated("{\"a\":{\"b\":1},\"b\":{\"a\":1}}"), Texts());
}

// A JSON pointer spells "/" as "~1" and "~" as "~0".
TEST(FindRepeatedMembers, ComparesUnescapedNames) {
  EXPECT_EQ(Repeated("{\"a\":1,\"\\u0061\":2}"), Texts{"7 /a a"});
  EXPECT_EQ(Repeated("{\"/~\":1,\"/~\":2}"), Texts{"8 /~1~0 /~"});
  EXPECT_EQ(Repeated("{\"\\\"\":1,\"\\\"\":2}"), Texts{"8 /\" \""});
}

TEST(FindRepeatedMembers, IgnoresStringsAndComments) {
  EXPECT_EQ(Repeated("{\"a\":\"{\\\"a\\\":1,\\\"a\\\":1}\"}"), Texts());
  EXPECT_EQ(Repeated("{\"a\":1,/* \"a\":2, */\"b\":3 // ,\"a\":4\n}"), Texts());
  EXPECT_EQ(Repeated("[\"a\",\"a\"]"), Texts());
}

TEST(OffsetOf, ClampsToTheText) {
  const std::string text = "ab\ncd";
  EXPECT_EQ(OffsetOf(text, {1, 1}), 0U);
  EXPECT_EQ(OffsetOf(text, {2, 1}), 3U);
  EXPECT_EQ(OffsetOf(text, {2, 2}), 4U);
  EXPECT_EQ(OffsetOf(text, {2, 9}), 5U);
}

}  // namespace
}  // namespace morvix::inspect::json
