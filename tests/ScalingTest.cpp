// How numbers are scaled between what the user sees and what a field holds.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>

#include "Cases.h"
#include "Maker.h"

namespace scaling_test {
namespace {

using support::ExpectEqual;
using support::ForEachCase;
using support::Inputs;
using support::Sightings;
using support::Source;

constexpr uint64_t kAllOnes = ~uint64_t{0};
constexpr uint64_t kTwoTo52 = uint64_t{1} << 52;

// Scaling, with the refusal as an empty result.
struct Scale {
  uint64_t min, max, step;
  double ratio = 1, addition = 0;
};

std::optional<uint64_t> Encode(const Scale& scale, double y) {
  uint64_t x = 0;
  if (!EncodeUIntSpec(scale.min, scale.max, scale.step, scale.ratio, scale.addition, y, x)) return std::nullopt;
  return x;
}

constexpr double kPreset = -12345.678;

std::optional<double> Decode(const Scale& scale, uint64_t x) {
  double y = kPreset;
  if (DecodeUIntSpec(scale.min, scale.max, scale.step, scale.ratio, scale.addition, x, y)) return y;
  EXPECT_EQ(y, kPreset) << "a refusal changed the output";
  return std::nullopt;
}

const std::optional<uint64_t> kRefused = std::nullopt;
const std::optional<double> kUnread = std::nullopt;
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInfinity = std::numeric_limits<double>::infinity();

TEST(EncodeUIntSpec, DividesWhatIsLeftAfterTheAddition) {
  EXPECT_EQ(Encode({0, 100, 1, 2, 10}, 30), 10u);
  EXPECT_EQ(Encode({0, 100, 1, 0.5, -40}, -40), 0u);
  EXPECT_EQ(Encode({0, 100, 1, 0.5, -40}, -15.5), 49u);
  EXPECT_EQ(Encode({0, 100, 1, -2, 0}, -14), 7u);
  EXPECT_EQ(Encode({0, 100, 1, 0.1, 0}, 0.3), 3u);  // the quotient is a little below 3
}

TEST(EncodeUIntSpec, RoundsAnExactHalfDown) {
  EXPECT_EQ(Encode({0, 100, 1, 0.5, 0}, 1.25), 2u);
  EXPECT_EQ(Encode({0, 100, 1, 0.5, 0}, 1.3), 3u);
  for (uint64_t whole = 0; whole <= 50; ++whole) {
    for (int eighths = 0; eighths < 8; ++eighths) {
      EXPECT_EQ(Encode({0, 100, 1}, static_cast<double>(whole) + eighths / 8.0), eighths > 4 ? whole + 1 : whole)
          << whole << " and " << eighths << "/8";
    }
  }
  EXPECT_EQ(Encode({0, 1, 1}, 0.5), 0u);
  EXPECT_EQ(Encode({0, 1, 1}, std::nextafter(0.5, 1.0)), 1u);
}

TEST(EncodeUIntSpec, TestsTheRangeAfterRounding) {
  EXPECT_EQ(Encode({3, 10, 1}, 2.6), 3u);
  EXPECT_EQ(Encode({3, 10, 1}, 2.5), kRefused);
  EXPECT_EQ(Encode({3, 10, 1}, 10.5), 10u);
  EXPECT_EQ(Encode({3, 10, 1}, 10.6), kRefused);
  EXPECT_EQ(Encode({3, 10, 1}, 0), kRefused);
}

TEST(EncodeUIntSpec, RefusesWhatIsBelowZeroBeforeRounding) {
  EXPECT_EQ(Encode({0, 10, 1}, -0.25), kRefused);
  EXPECT_EQ(Encode({0, 10, 1}, -std::numeric_limits<double>::denorm_min()), kRefused);
  EXPECT_EQ(Encode({0, 10, 1}, -0.0), 0u);
  EXPECT_EQ(Encode({0, 10, 1, -1, 0}, 3), kRefused);
}

TEST(EncodeUIntSpec, StopsAtTwoToThePowerOf52) {
  const Scale widest{0, kTwoTo52 - 1, 1};
  EXPECT_EQ(Encode(widest, 4503599627370495.0), kTwoTo52 - 1);
  EXPECT_EQ(Encode(widest, 4503599627370494.5), kTwoTo52 - 2);
  EXPECT_EQ(Encode(widest, 4503599627370495.5), kRefused);
  EXPECT_EQ(Encode(widest, 4503599627370496.0), kRefused);
  EXPECT_EQ(Encode(widest, 1e300), kRefused);
  EXPECT_EQ(Encode(widest, kInfinity), kRefused);
  EXPECT_EQ(Encode(widest, -kInfinity), kRefused);
}

TEST(EncodeUIntSpec, TakesNotANumberForZero) {
  EXPECT_EQ(Encode({0, 10, 3}, kNaN), 0u);
  EXPECT_EQ(Encode({1, 10, 1}, kNaN), kRefused);
  EXPECT_EQ(Encode({0, 10, 1, kNaN, 0}, 5), 0u);
  EXPECT_EQ(Encode({0, 10, 1, 1, kNaN}, 5), 0u);
  EXPECT_EQ(Encode({0, 10, 1, 0, 7}, 7), 0u);        // 0 / 0
  EXPECT_EQ(Encode({0, 10, 1, 0, 7}, 8), kRefused);  // infinity
  EXPECT_EQ(Encode({0, 10, 1, 0, 7}, 6), kRefused);  // -infinity
  uint64_t x = 5;
  EXPECT_TRUE(EncodeUIntSpec(0, 10, 1, 0, 7, 7, x));
  EXPECT_EQ(x, 0u);
}

TEST(DecodeUIntSpec, MultipliesAndThenAdds) {
  EXPECT_EQ(Decode({0, 100, 1, 2, 10}, 10), 30.0);
  EXPECT_EQ(Decode({0, 100, 1, 0.5, -40}, 49), -15.5);
  EXPECT_EQ(Decode({0, 100, 1, -1.5, 10}, 3), 5.5);
  EXPECT_EQ(Decode({0, 100, 1, 0, 7}, 99), 7.0);
  EXPECT_EQ(Decode({0, 100, 1, kInfinity, 0}, 1), kInfinity);
}

// 3 * 0.1 lies halfway between two doubles and is rounded up to the one above 0.3. A multiplication that is fused with
// the addition would not round it, and leave half of the distance.
TEST(DecodeUIntSpec, RoundsTheProductBeforeTheAddition) {
  EXPECT_EQ(Decode({0, 10, 1, 0.1, -0.3}, 3), std::ldexp(1.0, -54));
}

TEST(DecodeUIntSpec, RefusesRawValuesFromTwoToThePowerOf52On) {
  const Scale widest{0, kTwoTo52 - 1, 1};
  EXPECT_EQ(Decode(widest, kTwoTo52 - 1), 4503599627370495.0);
  for (int bit = 52; bit < 64; ++bit) EXPECT_EQ(Decode(widest, uint64_t{1} << bit), kUnread) << bit;
  EXPECT_EQ(Decode(widest, kAllOnes), kUnread);
}

TEST(DecodeUIntSpec, AndEncodeUIntSpecAcceptMinTheStepsAboveItAndMax) {
  EXPECT_EQ(Encode({0, 10, 3}, 9), 9u);
  EXPECT_EQ(Encode({0, 10, 3}, 10), 10u);
  EXPECT_EQ(Encode({0, 10, 3}, 8), kRefused);
  for (uint64_t min = 0; min <= 9; ++min) {
    for (uint64_t max = 0; max <= 12; ++max) {
      for (uint64_t step = 0; step <= 13; ++step) {
        std::set<uint64_t> accepted;
        if (max >= min && max - min >= step) {
          accepted = {min, max};
          for (uint64_t x = min; step != 0 && x <= max; x += step) accepted.insert(x);
        }
        for (uint64_t x = 0; x < 16; ++x) {
          const bool isAccepted = accepted.count(x) != 0;
          const auto y = static_cast<double>(x);
          const Scale scale{min, max, step};
          ASSERT_EQ(Encode(scale, y), isAccepted ? std::optional<uint64_t>(x) : kRefused)
              << min << ' ' << max << ' ' << step << ' ' << x;
          ASSERT_EQ(Decode(scale, x), isAccepted ? std::optional<double>(y) : kUnread)
              << min << ' ' << max << ' ' << step << ' ' << x;
        }
      }
    }
  }
}

TEST(DecodeUIntSpec, AndEncodeUIntSpecRefuseUnusableScalingsWhateverTheValue) {
  const auto minusOne = static_cast<uint64_t>(int64_t{-1});
  const auto minusBillion = static_cast<uint64_t>(int64_t{-1000000000});
  for (const Scale& scale :
       {Scale{0, kTwoTo52, 1}, Scale{0, kTwoTo52 + 1, 1}, Scale{0, uint64_t{1} << 63, 1}, Scale{0, minusOne, 1},
        Scale{kTwoTo52, kTwoTo52, 0}, Scale{minusOne, minusOne, 0},  // max too large
        Scale{11, 10, 0}, Scale{minusOne, 10, 1},                    // max below min
        Scale{0, 10, 11}, Scale{5, 5, 1},                            // step above their distance
        Scale{0, 10, minusOne}, Scale{0, kTwoTo52 - 1, minusBillion}}) {
    for (const uint64_t x : {uint64_t{0}, uint64_t{5}, uint64_t{10}, uint64_t{11}, kTwoTo52 - 1, kTwoTo52}) {
      EXPECT_EQ(Encode(scale, static_cast<double>(x)), kRefused) << scale.min << ' ' << scale.max << ' ' << scale.step;
      EXPECT_EQ(Decode(scale, x), kUnread) << scale.min << ' ' << scale.max << ' ' << scale.step;
    }
    EXPECT_EQ(Encode(scale, kNaN), kRefused);
    uint64_t x = 77;
    EXPECT_FALSE(EncodeUIntSpec(scale.min, scale.max, scale.step, 1, 0, 5, x));
    EXPECT_EQ(x, 77u) << "a refused scaling changed the output";
  }
}

TEST(DecodeUIntSpec, IsUndoneByEncodeUIntSpecAroundEveryPowerOfTwo) {
  for (const double ratio : {1.0, 0.25, 4.0}) {
    for (const double addition : {0.0, -8.0}) {
      const Scale scale{0, kTwoTo52 - 1, 1, ratio, addition};
      for (int exponent = 1; exponent <= 52; ++exponent) {
        for (const int64_t distance : {-1, 0, 1}) {
          const uint64_t x = (uint64_t{1} << exponent) + static_cast<uint64_t>(distance);
          if (x >= kTwoTo52) continue;
          const double y = static_cast<double>(x) * ratio + addition;  // exact, there are at most 53 digits
          ASSERT_EQ(Decode(scale, x), y) << x;
          ASSERT_EQ(Encode(scale, y), x) << x;
        }
      }
    }
  }
}

// --- Against the model ---

const char* const kOutcomes[] = {"at the maximum",
                                 "on the grid",
                                 "maximum or raw value too large",
                                 "minimum above maximum",
                                 "range below the step",
                                 "too large",
                                 "negative",
                                 "below the minimum",
                                 "above the maximum",
                                 "off the grid"};

TEST(EncodeUIntSpec, AgreesWithTheModel) {
  Sightings outcomes({std::begin(kOutcomes), std::end(kOutcomes)});
  ForEachCase(2026040609, 400000, [&](Source& source) {
    support::Maker maker(source);
    const auto scaling = maker.MakeScaling();
    const auto [min, max, step, ratio, addition] = scaling;
    const double user = maker.MakeUser(scaling);
    const Inputs inputs(min, max, step, ratio, addition, user);
    uint64_t raw = 0;
    uint64_t expected = 0;
    const model::Scaling outcome = model::ToRaw(min, max, step, ratio, addition, user, expected);
    outcomes.Add(kOutcomes[static_cast<size_t>(outcome)]);
    ExpectEqual(EncodeUIntSpec(min, max, step, ratio, addition, user, raw), model::IsAccepted(outcome), "the result");
    ExpectEqual(raw, expected, "the raw value");
  });
}

TEST(DecodeUIntSpec, AgreesWithTheModel) {
  Sightings outcomes({std::begin(kOutcomes), std::end(kOutcomes)});
  outcomes.Add("too large");  // these two are of the other direction
  outcomes.Add("negative");
  ForEachCase(2026040610, 400000, [&](Source& source) {
    support::Maker maker(source);
    const auto scaling = maker.MakeScaling();
    const auto [min, max, step, ratio, addition] = scaling;
    const uint64_t raw = maker.MakeRaw(scaling);
    const Inputs inputs(min, max, step, ratio, addition, raw);
    double user = -77;
    double expected = -77;
    const model::Scaling outcome = model::ToUser(min, max, step, ratio, addition, raw, expected);
    outcomes.Add(kOutcomes[static_cast<size_t>(outcome)]);
    ExpectEqual(DecodeUIntSpec(min, max, step, ratio, addition, raw, user), model::IsAccepted(outcome), "the result");
    ExpectEqual(user, expected, "the user value");
  });
}

}  // namespace
}  // namespace scaling_test
