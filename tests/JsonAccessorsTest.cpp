// The lenient readers of JSON members: every stored kind through every reader, the borders between the kinds, numbers
// in text, and what happens to the output when there is nothing to read.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "Properties.h"
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"

namespace {

using std::string_literals::operator""s;

constexpr int32_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int32_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr uint32_t kUInt32Max = std::numeric_limits<uint32_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr uint64_t kUInt64Max = std::numeric_limits<uint64_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kTwoTo63 = 9223372036854775808.0;

// Values of one stored kind, whatever the number would fit into otherwise.
Json::Value Signed(int64_t number) { return Json::Value(static_cast<Json::Int64>(number)); }
Json::Value Unsigned(uint64_t number) { return Json::Value(static_cast<Json::UInt64>(number)); }
Json::Value Real(double number) { return Json::Value(number); }
Json::Value Text(const std::string& text) { return Json::Value(text); }
Json::Value Array() { return Json::Value(Json::arrayValue); }
Json::Value Object() { return Json::Value(Json::objectValue); }

Json::Value WithMember(const Json::Value& member) {
  Json::Value attr(Json::objectValue);
  attr["other"] = 1;
  attr["k"] = member;
  return attr;
}

// --- One row per reading ---------------------------------------------------------------------------------------------

// What a reader did: refused, or succeeded with this output. The output is preset to a mark, which is also what a
// refusal must leave.
template <typename Number>
struct Reading {
  bool success;
  Number output;
};

template <typename Number>
bool operator==(const Reading<Number>& left, const Reading<Number>& right) {
  const bool bothNaN = left.output != left.output && right.output != right.output;
  return left.success == right.success && (left.output == right.output || bothNaN);
}

template <typename Number>
std::ostream& operator<<(std::ostream& stream, const Reading<Number>& reading) {
  return stream << (reading.success ? "success with " : "refusal with ") << reading.output;
}

template <typename Number>
constexpr Number kMark = Number(77);

template <typename Number>
using Reader = bool (*)(const Json::Value&, const char*, Number&);

template <typename Number>
Reading<Number> Read(Reader<Number> reader, const Json::Value& member) {
  Number output = kMark<Number>;
  const bool success = reader(WithMember(member), "k", output);
  return {success, output};
}

Reading<int32_t> Integer(const Json::Value& member) { return Read<int32_t>(ProtocolGetAttrInteger_4_0, member); }
Reading<int64_t> Integer64(const Json::Value& member) { return Read<int64_t>(ProtocolGetAttrInteger64_4_0, member); }
Reading<dword> Hex(const Json::Value& member) { return Read<dword>(ProtocolGetAttrHex_4_0, member); }
Reading<double> Double(const Json::Value& member) { return Read<double>(ProtocolGetAttrDouble_4_0, member); }

template <typename Number>
constexpr Reading<Number> kRefused = {false, kMark<Number>};
template <typename Number>
constexpr Reading<Number> kNothingScanned = {true, kMark<Number>};

constexpr Reading<int32_t> kNoInteger = kRefused<int32_t>;
constexpr Reading<int64_t> kNoInteger64 = kRefused<int64_t>;
constexpr Reading<dword> kNoHex = kRefused<dword>;
constexpr Reading<double> kNoDouble = kRefused<double>;

struct KindRow {
  Json::Value member;
  Reading<int32_t> integer;
  Reading<int64_t> integer64;
  Reading<dword> hex;
  Reading<double> number;
};

void ExpectRow(const KindRow& row) {
  SCOPED_TRACE(testing::Message() << WriteJson(row.member) << " stored as kind " << row.member.type());
  EXPECT_EQ(Integer(row.member), row.integer);
  EXPECT_EQ(Integer64(row.member), row.integer64);
  EXPECT_EQ(Hex(row.member), row.hex);
  EXPECT_EQ(Double(row.member), row.number);
}

// --- Kinds -----------------------------------------------------------------------------------------------------------

TEST(GetAttrNumbers, RefuseNull) { ExpectRow({Json::Value(), kNoInteger, kNoInteger64, kNoHex, kNoDouble}); }

TEST(GetAttrNumbers, TakeBoolsAsIntegersOnly) {
  ExpectRow({true, {true, 1}, {true, 1}, kNoHex, kNoDouble});
  ExpectRow({false, {true, 0}, {true, 0}, kNoHex, kNoDouble});
}

// Hexadecimal is for text and for large numbers; a small number would be a decimal in disguise.
TEST(GetAttrNumbers, TakeSignedIntegersExceptHex) {
  for (const int32_t number : {0, 1, -1, 5, -5, 65536, kInt32Max - 1, kInt32Max, kInt32Min + 1, kInt32Min}) {
    ExpectRow({Signed(number), {true, number}, {true, number}, kNoHex, {true, static_cast<double>(number)}});
  }
}

TEST(GetAttrNumbers, TakeUnsignedIntegers) {
  ExpectRow({Unsigned(0), {true, 0}, {true, 0}, {true, 0}, {true, 0.0}});
  ExpectRow({Unsigned(5), {true, 5}, {true, 5}, {true, 5}, {true, 5.0}});
  ExpectRow({Unsigned(2147483647), {true, kInt32Max}, {true, 2147483647}, {true, 2147483647}, {true, 2147483647.0}});
  ExpectRow({Unsigned(2147483648), {true, kInt32Min}, {true, 2147483648}, {true, 2147483648}, {true, 2147483648.0}});
  ExpectRow({Unsigned(4294967294), {true, -2}, {true, 4294967294}, {true, 4294967294}, {true, 4294967294.0}});
  ExpectRow({Unsigned(4294967295), {true, -1}, {true, 4294967295}, {true, 4294967295}, {true, 4294967295.0}});
}

// A number that was stored in a wider signed kind is what a parser of 32-bit kinds would have made of its digits.
TEST(GetAttrNumbers, TakeWideSignedIntegersUpToTwoTo32AsUnsigned) {
  ExpectRow({Signed(2147483648), {true, kInt32Min}, {true, 2147483648}, {true, 2147483648}, {true, 2147483648.0}});
  ExpectRow({Signed(2147483649), {true, -2147483647}, {true, 2147483649}, {true, 2147483649}, {true, 2147483649.0}});
  ExpectRow({Signed(4294967295), {true, -1}, {true, 4294967295}, {true, 4294967295}, {true, 4294967295.0}});
}

TEST(GetAttrNumbers, TakeIntegersBeyond32BitsAsReals) {
  ExpectRow({Signed(4294967296), kNoInteger, {true, 4294967296}, kNoHex, {true, 4294967296.0}});
  ExpectRow({Unsigned(4294967296), kNoInteger, {true, 4294967296}, kNoHex, {true, 4294967296.0}});
  ExpectRow({Signed(-2147483649), kNoInteger, {true, -2147483649}, kNoHex, {true, -2147483649.0}});
  ExpectRow({Signed(-4294967296), kNoInteger, {true, -4294967296}, kNoHex, {true, -4294967296.0}});
  ExpectRow({Signed(kInt64Max), kNoInteger, {true, kInt64Max}, kNoHex, {true, kTwoTo63}});
  ExpectRow({Signed(kInt64Min), kNoInteger, {true, kInt64Min}, kNoHex, {true, -kTwoTo63}});
}

TEST(GetAttrNumbers, SaturateUnsignedIntegersBeyond63Bits) {
  const uint64_t twoTo63 = uint64_t{1} << 63;
  ExpectRow({Unsigned(twoTo63 - 1), kNoInteger, {true, kInt64Max}, kNoHex, {true, kTwoTo63}});
  ExpectRow({Unsigned(twoTo63), kNoInteger, {true, kInt64Max}, kNoHex, {true, kTwoTo63}});
  ExpectRow({Unsigned(twoTo63 + 4096), kNoInteger, {true, kInt64Max}, kNoHex, {true, 9223372036854779904.0}});
  ExpectRow({Unsigned(kUInt64Max), kNoInteger, {true, kInt64Max}, kNoHex, {true, 18446744073709551616.0}});
}

TEST(GetAttrInteger64, ReadsIntegersBeyondTheExactDoublesExactly) {
  for (const int64_t number : {(int64_t{1} << 53) + 1, -(int64_t{1} << 53) - 1, kInt64Max - 1, kInt64Min + 1}) {
    EXPECT_EQ(Integer64(Signed(number)), (Reading<int64_t>{true, number}));
  }
  EXPECT_EQ(Integer64(Unsigned(9007199254740993)), (Reading<int64_t>{true, 9007199254740993}));
}

TEST(GetAttrNumbers, TakeRealsAsRealsEvenWhenTheyAreWhole) {
  ExpectRow({Real(2.9), kNoInteger, {true, 2}, kNoHex, {true, 2.9}});
  ExpectRow({Real(-3.7), kNoInteger, {true, -3}, kNoHex, {true, -3.7}});
  ExpectRow({Real(1.0), kNoInteger, {true, 1}, kNoHex, {true, 1.0}});
  ExpectRow({Real(-1.0), kNoInteger, {true, -1}, kNoHex, {true, -1.0}});
  ExpectRow({Real(3000000000.0), kNoInteger, {true, 3000000000}, kNoHex, {true, 3000000000.0}});
}

TEST(GetAttrNumbers, RefuseARealZeroAsInteger64Only) {
  ExpectRow({Real(0.0), kNoInteger, kNoInteger64, kNoHex, {true, 0.0}});
  ExpectRow({Real(-0.0), kNoInteger, kNoInteger64, kNoHex, {true, -0.0}});
  // Only zero itself; what merely truncates to zero is a success.
  ExpectRow({Real(0.5), kNoInteger, {true, 0}, kNoHex, {true, 0.5}});
  ExpectRow({Real(-0.999), kNoInteger, {true, 0}, kNoHex, {true, -0.999}});
  const double smallest = std::numeric_limits<double>::denorm_min();
  ExpectRow({Real(smallest), kNoInteger, {true, 0}, kNoHex, {true, smallest}});
}

TEST(GetAttrNumbers, SaturateRealsAndTakeNaNAsZero) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double belowTwoTo63 = 9223372036854774784.0;  // the largest double below
  EXPECT_EQ(Integer64(Real(belowTwoTo63)), (Reading<int64_t>{true, 9223372036854774784}));
  EXPECT_EQ(Integer64(Real(kTwoTo63)), (Reading<int64_t>{true, kInt64Max}));
  EXPECT_EQ(Integer64(Real(1e300)), (Reading<int64_t>{true, kInt64Max}));
  EXPECT_EQ(Integer64(Real(kInfinity)), (Reading<int64_t>{true, kInt64Max}));
  EXPECT_EQ(Integer64(Real(-belowTwoTo63)), (Reading<int64_t>{true, -9223372036854774784}));
  EXPECT_EQ(Integer64(Real(-kTwoTo63)), (Reading<int64_t>{true, kInt64Min}));
  EXPECT_EQ(Integer64(Real(-1e300)), (Reading<int64_t>{true, kInt64Min}));
  EXPECT_EQ(Integer64(Real(-kInfinity)), (Reading<int64_t>{true, kInt64Min}));
  EXPECT_EQ(Integer64(Real(nan)), (Reading<int64_t>{true, 0}));
  for (const double number : {nan, kInfinity, -kInfinity, 1e300}) {
    EXPECT_EQ(Integer(Real(number)), kNoInteger);
    EXPECT_EQ(Hex(Real(number)), kNoHex);
    EXPECT_EQ(Double(Real(number)), (Reading<double>{true, number}));
  }
}

TEST(GetAttrDouble, KeepsTheSignOfZero) {
  EXPECT_TRUE(std::signbit(Double(Real(-0.0)).output));
  EXPECT_FALSE(std::signbit(Double(Real(0.0)).output));
  EXPECT_FALSE(std::signbit(Double(Signed(0)).output));
}

TEST(GetAttrNumbers, RefuseArraysAndObjectsExceptInteger64) {
  for (const char* text : {"[]", "[1]", "[1,2]", "{}", R"({"a":1})"}) {
    const Json::Value member = ParseJson(text);
    EXPECT_EQ(Integer(member), kNoInteger) << text;
    EXPECT_EQ(Hex(member), kNoHex) << text;
    EXPECT_EQ(Double(member), kNoDouble) << text;
  }
}

// The only exception that reaches the caller.
TEST(GetAttrInteger64, ThrowsTheLibrarysErrorOnArraysAndObjects) {
  for (const char* text : {"[]", "[1]", "[[1,2],\"a long text that has to be released\"]", "{}", R"({"a":{"b":1}})"}) {
    const Json::Value attr = WithMember(ParseJson(text));
    const Json::Value before = attr;
    int64_t output = 77;
    EXPECT_THROW(ProtocolGetAttrInteger64_4_0(attr, "k", output), Json::LogicError) << text;
    EXPECT_EQ(output, 77) << text;
    EXPECT_EQ(attr, before) << text;
  }
}

// What the digits of a document become, by way of the library's parser.
TEST(GetAttrNumbers, ReadParsedDigitsByTheirRange) {
  ExpectRow({ParseJson("5"), {true, 5}, {true, 5}, kNoHex, {true, 5.0}});
  ExpectRow({ParseJson("2147483647"), {true, kInt32Max}, {true, 2147483647}, kNoHex, {true, 2147483647.0}});
  ExpectRow({ParseJson("2147483648"), {true, kInt32Min}, {true, 2147483648}, {true, 2147483648}, {true, 2147483648.0}});
  ExpectRow({ParseJson("4294967295"), {true, -1}, {true, 4294967295}, {true, kUInt32Max}, {true, 4294967295.0}});
  ExpectRow({ParseJson("4294967296"), kNoInteger, {true, 4294967296}, kNoHex, {true, 4294967296.0}});
  ExpectRow({ParseJson("-2147483648"), {true, kInt32Min}, {true, kInt32Min}, kNoHex, {true, -2147483648.0}});
  ExpectRow({ParseJson("-2147483649"), kNoInteger, {true, -2147483649}, kNoHex, {true, -2147483649.0}});
  ExpectRow({ParseJson("9223372036854775807"), kNoInteger, {true, kInt64Max}, kNoHex, {true, kTwoTo63}});
  ExpectRow({ParseJson("9223372036854775808"), kNoInteger, {true, kInt64Max}, kNoHex, {true, kTwoTo63}});
  ExpectRow({ParseJson("-9223372036854775808"), kNoInteger, {true, kInt64Min}, kNoHex, {true, -kTwoTo63}});
  ExpectRow({ParseJson("18446744073709551616"), kNoInteger, {true, kInt64Max}, kNoHex, {true, 2 * kTwoTo63}});
  ExpectRow({ParseJson("5.0"), kNoInteger, {true, 5}, kNoHex, {true, 5.0}});
  ExpectRow({ParseJson("5e0"), kNoInteger, {true, 5}, kNoHex, {true, 5.0}});
  ExpectRow({ParseJson("0.0"), kNoInteger, kNoInteger64, kNoHex, {true, 0.0}});
}

// --- Numbers in text -------------------------------------------------------------------------------------------------

// Each row of a JSON document has a string and the number that the reader gives for it.
template <typename Number>
void ExpectTexts(Reading<Number> (*read)(const Json::Value&), const std::string& rows) {
  for (const Json::Value& row : ParseJson(rows)) {
    EXPECT_EQ(read(row[0]), (Reading<Number>{true, static_cast<Number>(row[1].as<double>())})) << WriteJson(row);
  }
}

TEST(GetAttrIntegers, ScanText) {
  // Octal ends before an 8.
  const char* const rows = R"([
      ["5", 5], ["-5", -5], ["+5", 5], ["0", 0], ["0x1F", 31], ["0X1f", 31], ["-0x10", -16], ["017", 15],
      ["-017", -15], ["08", 0], ["  5", 5], ["\t\n\u000b\f\r 5", 5], ["5abc", 5], ["5 6", 5], ["5.9", 5], ["1e3", 1],
      ["5\u00009", 5], ["2147483647", 2147483647], ["-2147483648", -2147483648]])";
  ExpectTexts(Integer, rows);
  ExpectTexts(Integer64, rows);
  EXPECT_EQ(Integer64(Text("4294967296")), (Reading<int64_t>{true, 4294967296}));
  EXPECT_EQ(Integer64(Text("9007199254740993")), (Reading<int64_t>{true, 9007199254740993}));
}

// The bits of the saturated 64-bit number are cut, as in the C library.
TEST(GetAttrInteger, CutsTextBeyond32Bits) {
  ExpectTexts(Integer, R"([
      ["2147483648", -2147483648], ["4294967295", -1], ["4294967296", 0], ["4294967301", 5],
      ["-2147483649", 2147483647], ["0x100000005", 5], ["9223372036854775807", -1], ["9223372036854775808", -1],
      ["99999999999999999999999", -1], ["-9223372036854775808", 0], ["-99999999999999999999999", 0]])");
}

TEST(GetAttrInteger64, SaturatesText) {
  for (const std::string& text : {"9223372036854775807"s, "9223372036854775808"s, "0x7fffffffffffffff"s,
                                  "0xffffffffffffffffff"s, std::string(1000, '9')}) {
    EXPECT_EQ(Integer64(Text(text)), (Reading<int64_t>{true, kInt64Max})) << text;
    EXPECT_EQ(Integer64(Text("-" + text)).output,
              text == "9223372036854775807" || text == "0x7fffffffffffffff" ? -kInt64Max : kInt64Min);
  }
}

TEST(GetAttrNumbers, RefuseTextThatIsNotANumber) {
  for (const std::string& text : {"abc"s, "-"s, "+"s, "--5"s, "x1"s, "."s, "true"s, "\xc2\xb5"s, "  abc"s}) {
    ExpectRow({Text(text), kNoInteger, kNoInteger64, kNoHex, kNoDouble});
  }
}

// A scan that meets the end of the text before anything else is a success with nothing read: callers preset outputs.
TEST(GetAttrNumbers, TakeEmptyTextAndLeaveTheOutput) {
  for (const std::string& text : {""s, "\0005"s, "\0"s}) {
    ExpectRow({Text(text), kNothingScanned<int32_t>, kNothingScanned<int64_t>, kNothingScanned<dword>,
               kNothingScanned<double>});
  }
}

// The hexadecimal scan begins with a literal 0, which a blank does not match.
TEST(GetAttrNumbers, TakeBlankTextExceptHex) {
  for (const std::string& text : {" "s, " \t\n\v\f\r "s, std::string(100, ' '), "  \0005"s}) {
    ExpectRow({Text(text), kNothingScanned<int32_t>, kNothingScanned<int64_t>, kNoHex, kNothingScanned<double>});
  }
}

TEST(GetAttrHex, ScansText) {
  // The conversion skips blanks and takes a prefix and a sign of its own; it saturates at 64 bits and is cut to 32.
  ExpectTexts(Hex, R"([
      ["0x10", 16], ["0x1f", 31], ["0x1F", 31], ["0xaBcDeF", 11259375], ["0x0", 0], ["0x00000000000000000012", 18],
      ["0x10 and more", 16], ["0x10g", 16], ["0x10\u00002", 16], ["0xffffffff", 4294967295],
      ["0x80000000", 2147483648], ["0x 10", 16], ["0x0x10", 16], ["0x-1", 4294967295], ["0x100000005", 5],
      ["0xffffffff00000007", 7], ["0x1ffffffffffffffff", 4294967295], ["0xabcdef0123456789000", 4294967295]])");
}

TEST(GetAttrHex, RefusesTextWithoutItsExactPrefix) {
  for (const char* text : {"10", "0X10", " 0x10", "\t0x10", "x10", "-0x10", "+0x10", "00x10", "0 x10", "ff", "0g", "5",
                           "0xg", "0x-g", "0xx1"}) {
    EXPECT_EQ(Hex(Text(text)), kNoHex) << text;
  }
}

TEST(GetAttrHex, TakesAPrefixThatEndsEarlyAndLeavesTheOutput) {
  for (const std::string& text : {"0"s, "0x"s, "0x   "s, "0\000x10"s, "0x\00010"s}) {
    EXPECT_EQ(Hex(Text(text)), kNothingScanned<dword>) << text;
  }
}

TEST(GetAttrDouble, ScansText) {
  ExpectTexts(Double, R"([
      ["5", 5], ["-5", -5], ["+0.5", 0.5], [".5", 0.5], ["5.", 5], ["1e3", 1000], ["1.5E-1", 0.15], ["  2.5xyz", 2.5],
      ["2.5 3.5", 2.5], ["2,5", 2], ["0x1p4", 16], ["0x1F", 31], ["017", 17], ["1e-999", 0], ["0.1", 0.1],
      ["2.5\u00009", 2.5], ["18446744073709551615", 18446744073709551616.0]])");
  for (const char* text : {"inf", "Infinity", "1e999"}) {
    EXPECT_EQ(Double(Text(text)), (Reading<double>{true, kInfinity})) << text;
    EXPECT_EQ(Double(Text("-"s + text)), (Reading<double>{true, -kInfinity})) << text;
  }
  EXPECT_EQ(Double(Text("nan")), (Reading<double>{true, std::numeric_limits<double>::quiet_NaN()}));
  EXPECT_TRUE(std::signbit(Double(Text("-0")).output));
}

// For all other strings, the C library gives the expected result.
TEST(GetAttrNumbers, AgreeWithTheCLibrarysScans) {
  const std::string pieces[] = {"", " ", "-", "+", "0", "0x", "0X", "7", "9", "a", ".", "e", "g"};
  for (const std::string& first : pieces) {
    for (const std::string& second : pieces) {
      for (const std::string& third : pieces) {
        for (const std::string& fourth : pieces) {
          const std::string text = first + second + third + fourth;
          Reading<int32_t> integer = {false, kMark<int32_t>};
          Reading<dword> hex = {false, kMark<dword>};
          Reading<double> number = {false, kMark<double>};
          long long wide = kMark<long long>;
          integer.success = std::sscanf(text.c_str(), "%i", &integer.output) != 0;
          const bool wideSuccess = std::sscanf(text.c_str(), "%lli", &wide) != 0;
          hex.success = std::sscanf(text.c_str(), "0x%X", &hex.output) != 0;
          number.success = std::sscanf(text.c_str(), "%lf", &number.output) != 0;
          ASSERT_EQ(Integer(Text(text)), integer) << "'" << text << "'";
          ASSERT_EQ(Integer64(Text(text)), (Reading<int64_t>{wideSuccess, wide})) << "'" << text << "'";
          ASSERT_EQ(Hex(Text(text)), hex) << "'" << text << "'";
          ASSERT_EQ(Double(Text(text)), number) << "'" << text << "'";
        }
      }
    }
  }
}

// --- ProtocolGetAttrString_4_0 ---------------------------------------------------------------------------------------

TEST(GetAttrString, ReplacesTheOutputByTheWholeText) {
  for (const std::string& text : {""s, "a"s, "5"s, " x "s, "\0"s, "a\0b"s, "\xff\xfe"s, std::string(100000, 'x')}) {
    std::string output = "preset";
    EXPECT_TRUE(ProtocolGetAttrString_4_0(WithMember(Text(text)), "k", output));
    EXPECT_EQ(output, text);
  }
}

TEST(GetAttrString, RefusesEverythingElse) {
  const Json::Value members[] = {Json::Value(),           true,      false,     Signed(5), Unsigned(5),
                                 Signed(kInt64Min),       Real(1.5), Real(0.0), Array(),   Object(),
                                 ParseJson(R"(["text"])")};
  for (const Json::Value& member : members) {
    std::string output = "preset";
    EXPECT_FALSE(ProtocolGetAttrString_4_0(WithMember(member), "k", output)) << WriteJson(member);
    EXPECT_EQ(output, "preset") << WriteJson(member);
  }
}

// --- ProtocolGetAttrObject_4_0 ---------------------------------------------------------------------------------------

TEST(GetAttrObject, GivesObjects) {
  for (const char* text : {"{}", R"({"a":1})", R"({"a":{"b":[1,null]}})"}) {
    Json::Value output = "preset";
    EXPECT_TRUE(ProtocolGetAttrObject_4_0(WithMember(ParseJson(text)), "k", output)) << text;
    EXPECT_EQ(output, ParseJson(text));
  }
}

TEST(GetAttrObject, AssignsEverythingElseAndRefusesIt) {
  const Json::Value members[] = {Json::Value(), true,      false,    Signed(5),          Unsigned(5),
                                 Real(1.5),     Text("x"), Text(""), ParseJson("[1,2]"), Array()};
  for (const Json::Value& member : members) {
    Json::Value output = ParseJson(R"({"preset":1})");
    EXPECT_FALSE(ProtocolGetAttrObject_4_0(WithMember(member), "k", output)) << WriteJson(member);
    EXPECT_EQ(output, member);
    EXPECT_EQ(output.type(), member.type());
  }
}

TEST(GetAttrObject, AssignsNullForAMissingMember) {
  Json::Value output = ParseJson(R"({"preset":1})");
  EXPECT_FALSE(ProtocolGetAttrObject_4_0(ParseJson(R"({"other":{}})"), "k", output));
  EXPECT_EQ(output, Json::Value());
}

TEST(GetAttrObject, GivesACopy) {
  const Json::Value attr = ParseJson(R"({"k":{"a":1}})");
  Json::Value output;
  ASSERT_TRUE(ProtocolGetAttrObject_4_0(attr, "k", output));
  output["a"] = 2;
  EXPECT_EQ(attr, ParseJson(R"({"k":{"a":1}})"));
}

TEST(GetAttrObject, MayReplaceItsInput) {
  Json::Value value = ParseJson(R"({"k":{"k":[1,2],"a":"text"},"z":0})");
  EXPECT_TRUE(ProtocolGetAttrObject_4_0(value, "k", value));
  EXPECT_EQ(value, ParseJson(R"({"k":[1,2],"a":"text"})"));
  EXPECT_FALSE(ProtocolGetAttrObject_4_0(value, "k", value));
  EXPECT_EQ(value, ParseJson("[1,2]"));
  EXPECT_FALSE(ProtocolGetAttrObject_4_0(value, "k", value));  // an array has no members and is left alone
  EXPECT_EQ(value, ParseJson("[1,2]"));

  value = ParseJson(R"({"a":1})");
  EXPECT_FALSE(ProtocolGetAttrObject_4_0(value, "k", value));
  EXPECT_EQ(value, Json::Value());
}

// --- Where there is nothing to read ----------------------------------------------------------------------------------

// All six refuse and leave their outputs. The readers of scalars do so for missing members, too.
void ExpectNothingScalar(const Json::Value& attr, const char* key) {
  SCOPED_TRACE(WriteJson(attr));
  int32_t integer = 77;
  int64_t integer64 = 77;
  dword hex = 77;
  double number = 77;
  std::string text = "preset";
  EXPECT_FALSE(ProtocolGetAttrInteger_4_0(attr, key, integer));
  EXPECT_FALSE(ProtocolGetAttrInteger64_4_0(attr, key, integer64));
  EXPECT_FALSE(ProtocolGetAttrHex_4_0(attr, key, hex));
  EXPECT_FALSE(ProtocolGetAttrDouble_4_0(attr, key, number));
  EXPECT_FALSE(ProtocolGetAttrString_4_0(attr, key, text));
  EXPECT_EQ(integer, 77);
  EXPECT_EQ(integer64, 77);
  EXPECT_EQ(hex, 77u);
  EXPECT_EQ(number, 77.0);
  EXPECT_EQ(text, "preset");
}

void ExpectObject(const Json::Value& attr, const char* key, const Json::Value& expected) {
  SCOPED_TRACE(WriteJson(attr));
  Json::Value output = "preset";
  EXPECT_FALSE(ProtocolGetAttrObject_4_0(attr, key, output));
  EXPECT_EQ(output, expected);
}

TEST(GetAttrAll, RefuseWhatIsNotAnObject) {
  const Json::Value values[] = {Json::Value(), true,      Signed(5), Unsigned(5), Signed(kInt64Max),
                                Real(1.5),     Text("k"), Text(""),  Array(),     ParseJson(R"([{"k":5},"k"])")};
  for (const Json::Value& attr : values) {
    for (const char* key : {"k", "", "0", static_cast<const char*>(nullptr)}) {
      ExpectNothingScalar(attr, key);
      ExpectObject(attr, key, "preset");
    }
  }
}

TEST(GetAttrAll, RefuseAMissingMember) {
  for (const char* text : {"{}", R"({"K":{}})", R"({"kk":{}})", R"({"":{}})", R"({"a":{"k":{}}})"}) {
    ExpectNothingScalar(ParseJson(text), "k");
    ExpectObject(ParseJson(text), "k", Json::Value());
  }
}

TEST(GetAttrAll, TakeANullKeyAsMissing) {
  for (const char* text : {"{}", R"({"":{}})", R"({"k":{}})"}) {
    ExpectNothingScalar(ParseJson(text), nullptr);
    ExpectObject(ParseJson(text), nullptr, Json::Value());
  }
}

TEST(GetAttrAll, FindTheEmptyKey) {
  int32_t integer = 77;
  EXPECT_TRUE(ProtocolGetAttrInteger_4_0(ParseJson(R"({"":5})"), "", integer));
  EXPECT_EQ(integer, 5);
  Json::Value object;
  EXPECT_TRUE(ProtocolGetAttrObject_4_0(ParseJson(R"({"":{"a":1}})"), "", object));
  EXPECT_EQ(object, ParseJson(R"({"a":1})"));
}

// A key is a C string; a member's name is not, and is compared whole.
TEST(GetAttrAll, EndTheKeyAtANulButNotTheMembersName) {
  Json::Value attr(Json::objectValue);
  attr["k\0x"s] = 5;
  ExpectNothingScalar(attr, "k");
  ExpectNothingScalar(attr, "k\0x");
  ExpectObject(attr, "k\0x", Json::Value());

  attr["k"] = 6;
  int32_t integer = 77;
  EXPECT_TRUE(ProtocolGetAttrInteger_4_0(attr, "k\0x", integer));
  EXPECT_EQ(integer, 6);
}

TEST(GetAttrAll, InsertNothing) {
  const Json::Value attr = ParseJson(R"({"a":1})");
  ExpectNothingScalar(attr, "k");
  ExpectObject(attr, "k", Json::Value());
  EXPECT_EQ(attr.getMemberNames(), std::vector<std::string>{"a"});
}

TEST(GetAttrAll, LogNothing) {
  const LogCapture log;
  for (const Json::Value& attr : ParseJson(R"([null, 5, {}, {"k": null}, {"k": "abc"}, {"k": 1.5}, {"k": "5"}])")) {
    support::CheckReaders(attr, "k");
  }
  EXPECT_EQ(log.Lines(), LogLines());
}

}  // namespace
