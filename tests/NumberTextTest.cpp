// How numbers and enum indices are printed. Most numbers take a fast path; the C library gives the expected text of
// all numbers.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <cfenv>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Cases.h"
#include "CodecModel.h"

namespace number_text_test {
namespace {

const double kInfinity = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

// The text as the C library prints it, in `buffer`.
std::string_view TextOfTheLibrary(double number, char (&buffer)[32]) {
  std::snprintf(buffer, sizeof buffer, "%lf", number);
  return removeFloatLastZero(buffer);
}

// Compares numbers with the C library. The text is one and the same throughout and starts out full of digits, so that
// what an earlier number left there must not show.
class Comparison {
 public:
  Comparison() { std::memset(text_.number, '8', sizeof text_.number); }

  // Reports the first differences only: a wrong path is wrong a million times.
  ~Comparison() { EXPECT_EQ(differences_, 0u) << "of " << count_ << " numbers"; }

  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;

  void Add(double number) {
    ++count_;
    const std::string_view text = NumberText(number, text_);
    char buffer[32];
    const std::string_view expected = TextOfTheLibrary(number, buffer);
    if (text == expected && text.data()[text.size()] == '\0') return;
    if (++differences_ > 5) return;
    char hexadecimal[64];
    std::snprintf(hexadecimal, sizeof hexadecimal, "%a", number);
    ADD_FAILURE() << hexadecimal << " is printed \"" << text.data() << "\", by the C library \"" << expected << '"';
  }

  void AddBothSigns(double number) {
    Add(number);
    Add(-number);
  }

  // With `steps` neighbours on each side.
  void AddAround(double number, int steps = 1) {
    AddBothSigns(number);
    double above = number;
    double below = number;
    for (int i = 0; i < steps; ++i) {
      AddBothSigns(above = std::nextafter(above, kInfinity));
      AddBothSigns(below = std::nextafter(below, -kInfinity));
    }
  }

 private:
  ValueText text_;
  size_t count_ = 0;
  size_t differences_ = 0;
};

std::string Text(double number) {
  ValueText text;
  return std::string(NumberText(number, text));
}

std::string Index(uint64_t index) {
  char text[kNumberTextSize];
  return std::string(EnumText(index, text));
}

}  // namespace

// --- By hand ---

TEST(NumberText, HasNoPointAfterAWholeNumber) {
  EXPECT_EQ(Text(0), "0");
  EXPECT_EQ(Text(7), "7");
  EXPECT_EQ(Text(-7), "-7");
  EXPECT_EQ(Text(100), "100");
  EXPECT_EQ(Text(4294967295.0), "4294967295");
  EXPECT_EQ(Text(999999999999999.0), "999999999999999");
  EXPECT_EQ(Text(1e15), "1000000000000000");
  EXPECT_EQ(Text(1e22), "10000000000000000000000");
}

TEST(NumberText, HasUpToSixDecimalsWithoutTrailingZeros) {
  EXPECT_EQ(Text(2.5), "2.5");
  EXPECT_EQ(Text(-12.5), "-12.5");
  EXPECT_EQ(Text(0.1), "0.1");
  EXPECT_EQ(Text(0.3), "0.3");  // 0.29999999999999998...
  EXPECT_EQ(Text(10.05), "10.05");
  EXPECT_EQ(Text(100.25), "100.25");
  EXPECT_EQ(Text(0.000001), "0.000001");
  EXPECT_EQ(Text(-0.100001), "-0.100001");
  EXPECT_EQ(Text(1234567.891), "1234567.891");
  EXPECT_EQ(Text(4503599627370495.5), "4503599627370495.5");
}

TEST(NumberText, RoundsTheSixthDecimal) {
  EXPECT_EQ(Text(0.1234564), "0.123456");
  EXPECT_EQ(Text(0.1234566), "0.123457");
  EXPECT_EQ(Text(0.0000004), "0");
  EXPECT_EQ(Text(0.0000006), "0.000001");
  EXPECT_EQ(Text(2.9999996), "3");
  EXPECT_EQ(Text(-99.9999999), "-100");
  EXPECT_EQ(Text(0.0999999), "0.1");
}

// An exact tie is a multiple of 1/128: the sixth decimal becomes even.
TEST(NumberText, RoundsATieToTheEvenDecimal) {
  EXPECT_EQ(Text(0.0078125), "0.007812");
  EXPECT_EQ(Text(0.0234375), "0.023438");
  EXPECT_EQ(Text(-8.0078125), "-8.007812");
  EXPECT_EQ(Text(1000000.9921875), "1000000.992188");
}

TEST(NumberText, KeepsTheSignOfNothing) {
  EXPECT_EQ(Text(-0.0), "-0");
  EXPECT_EQ(Text(-0.0000004), "-0");
  EXPECT_EQ(Text(-DBL_TRUE_MIN), "-0");
  EXPECT_EQ(Text(DBL_TRUE_MIN), "0");
}

// There is room for 31 characters. A point among them goes with the zeros after it; without one zeros stay.
TEST(NumberText, LosesTheEndOfWhatDoesNotFit) {
  EXPECT_EQ(Text(std::ldexp(1, 99)), "633825300114114700748351602688");    // 30 digits and the point
  EXPECT_EQ(Text(-std::ldexp(1, 96)), "-79228162514264337593543950336");   // the point and one decimal
  EXPECT_EQ(Text(std::ldexp(1, 100)), "1267650600228229401496703205376");  // 31 digits
  EXPECT_EQ(Text(std::ldexp(-1, 100)), "-126765060022822940149670320537");
  EXPECT_EQ(Text(1e33), "9999999999999999455752309870428");                // of 33 digits
  EXPECT_EQ(Text(std::ldexp(1, 105)), "4056481920730334084789450257203");  // of 32 digits
  EXPECT_EQ(Text(DBL_MAX), "1797693134862315708145274237317");
}

TEST(NumberText, NamesWhatIsNotANumber) {
  EXPECT_EQ(Text(kInfinity), "inf");
  EXPECT_EQ(Text(-kInfinity), "-inf");
  EXPECT_EQ(Text(kNaN), "nan");
}

TEST(NumberText, EndsWithANulInItsBuffer) {
  for (const double number : {0.0, -1.25, 1e14 + 0.015625, 1e15, 1e30, DBL_MAX, kNaN}) {
    ValueText text;
    std::memset(text.number, '8', sizeof text.number);
    const std::string_view view = NumberText(number, text);
    EXPECT_EQ(view.data(), text.number);
    EXPECT_EQ(std::strlen(text.number), view.size());
  }
}

TEST(EnumText, IsTheIndexInDecimal) {
  EXPECT_EQ(Index(0), "0");
  EXPECT_EQ(Index(9), "9");
  EXPECT_EQ(Index(10), "10");
  EXPECT_EQ(Index(255), "255");
  EXPECT_EQ(Index(999999999), "999999999");
}

TEST(EnumText, KeepsTheFirstNineDigits) {
  EXPECT_EQ(Index(1000000000), "100000000");
  EXPECT_EQ(Index(1234567890), "123456789");
  EXPECT_EQ(Index(98765432101), "987654321");
  EXPECT_EQ(Index(UINT64_MAX), "184467440");  // 18446744073709551615
}

TEST(EnumText, EndsWithANulInItsBuffer) {
  for (const uint64_t index : {uint64_t{0}, uint64_t{42}, uint64_t{1234567890}, UINT64_MAX}) {
    char text[kNumberTextSize];
    std::memset(text, '8', sizeof text);
    const std::string_view view = EnumText(index, text);
    EXPECT_EQ(view.data(), text);
    EXPECT_EQ(std::strlen(text), view.size());
  }
}

// The fast path has to handle all but difficult numbers.
TEST(PrintSmallNumber, LeavesOnlyDifficultNumbersToTheLibrary) {
  char text[kNumberTextSize] = {};
  size_t length = 0;
  for (const double number : {0.0, -0.0, 7.0, -2.5, 0.1, 0.9999999, 123456.789012, 999999999999999.0}) {
    EXPECT_TRUE(PrintSmallNumber(number, text, length)) << number;
  }
  EXPECT_TRUE(PrintSmallNumber(-2.5, text, length));
  EXPECT_EQ(std::string(text, length), "-2.5");
  for (const double number : {0.0000005, -3.0000015, 1e15, -1e15, 1e300, kInfinity, -kInfinity, kNaN}) {
    EXPECT_FALSE(PrintSmallNumber(number, text, length)) << number;
  }
}

TEST(LibraryPrintsPlainly, UnlessItRoundsInAnotherDirection) {
  EXPECT_TRUE(LibraryPrintsPlainly());
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    ASSERT_EQ(std::fesetround(mode), 0);
    const bool isPlain = LibraryPrintsPlainly();
    ASSERT_EQ(std::fesetround(FE_TONEAREST), 0);
    EXPECT_FALSE(isPlain) << mode;
  }
}

// --- Against the C library ---

TEST(NumberText, EqualsTheLibraryOnSmallIntegers) {
  Comparison comparison;
  for (int number = -70000; number <= 70000; ++number) comparison.Add(number);
}

TEST(NumberText, EqualsTheLibraryOnMultiplesOfCommonSteps) {
  for (const double step : {0.5, 0.1, 0.25, 0.01, 0.001, 0.0001, 1e-6}) {
    SCOPED_TRACE(step);
    Comparison comparison;
    const double perUnit = std::round(1 / step);
    for (int i = -70000; i <= 70000; ++i) {
      comparison.Add(i * step);
      comparison.Add(i / perUnit);  // the number next to it where the step is not exact
    }
    // Onward in ever larger strides, up to where the numbers have no decimals any more.
    for (double i = 70001; i < 1e16; i = std::floor(i * 1.001)) comparison.AddBothSigns(i * step);
  }
}

TEST(NumberText, EqualsTheLibraryOnScaledRawValues) {
  constexpr uint32_t kSeed = 20260403;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::mt19937_64 random(kSeed);
  Comparison comparison;
  for (int scaling = 0; scaling < 3000; ++scaling) {
    // Ratios and additions of up to nine decimals, as a configuration has them, and any others.
    const double powerOfTen = std::pow(10, random() % 10);
    double ratio = static_cast<double>(random() % 10000) / powerOfTen;
    double addition = static_cast<double>(static_cast<int64_t>(random() % 20001) - 10000) / powerOfTen;
    if (scaling % 3 == 0) ratio = std::ldexp(static_cast<double>(random()), -static_cast<int>(random() % 90));
    if (scaling % 5 == 0) addition = 0;
    const uint64_t rawBits = 1 + random() % 52;
    for (int i = 0; i < 200; ++i) {
      const double raw = static_cast<double>(random() >> (64 - rawBits));
      const volatile double product = raw * ratio;
      comparison.Add(product + addition);
    }
  }
}

TEST(NumberText, EqualsTheLibraryAtTiesOfTheSeventhDecimal) {
  constexpr uint32_t kSeed = 20260404;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::mt19937_64 random(kSeed);
  Comparison comparison;
  // Exact ties, near ones, and what lies next to both, at every magnitude at which they can be told apart.
  for (int i = 0; i < 20000; ++i) {
    const uint64_t magnitude = uint64_t{1} << random() % 46;
    comparison.AddAround(static_cast<double>(random() % magnitude) + static_cast<double>(random() % 128) / 128);
    comparison.AddAround(static_cast<double>(random() % (magnitude * 16)) * 1e-6 + 5e-7, 2);
    // Where the seventh decimal is close enough to a tie to be left to the C library, and just not.
    const double tie = (static_cast<double>(random() % 1000000) + 0.5) * 1e-6;
    for (const double distance : {0.9e-12, 1e-12, 1.1e-12, 1e-9}) {
      comparison.Add(tie + distance);
      comparison.Add(tie - distance);
    }
  }
}

TEST(NumberText, EqualsTheLibraryWhereRoundingCarries) {
  Comparison comparison;
  for (int exponent = 0; exponent <= 17; ++exponent) {
    const double power = std::pow(10, exponent);
    for (const double number : {power, 5 * power, power - 5e-7, power - 1e-6, power - 4e-7, power + 5e-7, 1 / power}) {
      comparison.AddAround(number, 100);
    }
  }
}

TEST(NumberText, EqualsTheLibraryAroundTheLimits) {
  Comparison comparison;
  for (const double limit : {1e14, 1e15, std::ldexp(1, 52), std::ldexp(1, 53), 1e22, 1e25, std::ldexp(1, 63),
                             std::ldexp(1, 64), 1e30, 1e31, DBL_MAX, DBL_MIN, DBL_EPSILON, 0.5, 1.0}) {
    SCOPED_TRACE(limit);
    comparison.AddAround(limit, 200);
    for (int i = 0; i < 1000; ++i) comparison.AddBothSigns(limit + i * 0.03125 - 16);
  }
  for (const double number : {0.0, DBL_TRUE_MIN, 100 * DBL_TRUE_MIN, DBL_MIN / 3, kInfinity, kNaN}) {
    comparison.AddBothSigns(number);
  }
  for (int exponent = -1074; exponent < 1024; ++exponent) comparison.AddAround(std::ldexp(1, exponent), 2);
}

TEST(NumberText, EqualsTheLibraryOnAnyBits) {
  constexpr uint32_t kSeed = 20260405;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::mt19937_64 random(kSeed);
  Comparison comparison;
  for (int i = 0; i < 50000; ++i) {
    const uint64_t bits = random();
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    comparison.Add(number);
  }
  // All significands, at magnitudes that have decimals.
  for (int i = 0; i < 400000; ++i) {
    comparison.Add(std::ldexp(static_cast<double>(random() >> 11), -static_cast<int>(random() % 75)));
  }
}

TEST(NumberText, FollowsTheRoundingModeAsTheLibraryDoes) {
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(std::fesetround(mode), 0);
    {
      Comparison comparison;
      for (int i = -1000; i <= 1000; ++i) comparison.Add(i / 7.0);
    }
    ASSERT_EQ(std::fesetround(FE_TONEAREST), 0);
  }
}

// --- Against the model ---

TEST(RemoveFloatLastZero, AgreesWithTheModelOnAnyText) {
  support::Sightings outcomes({"unchanged", "changed"});
  support::ForEachCase(2026040611, 200000, [&](support::Source& source) {
    std::string text(source.Index(12), ' ');
    for (char& letter : text) letter = source.Pick({'0', '0', '0', '.', '.', '1', '9', '-', 'E', '+'});
    if (source.OneIn(8)) text.insert(source.Index(text.size() + 1), "E+");
    const support::Inputs inputs(text);
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    const std::string expected = model::TrimNumber(text);
    support::ExpectEqual(std::string(removeFloatLastZero(buffer.data())), expected, "zeros go like the model's");
    outcomes.Add(expected == text ? "unchanged" : "changed");
  });
}

}  // namespace number_text_test
