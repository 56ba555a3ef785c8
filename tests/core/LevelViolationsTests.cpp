#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "core/LevelViolations.h"
#include "core/NumberFormat.h"

namespace corvane {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

// Points 0.1 s apart, the first ending at 0.1 s.
std::vector<LevelCurvePoint> curve(std::initializer_list<float> values) {
  std::vector<LevelCurvePoint> points;
  int i = 1;
  for (float v : values) points.push_back({0.1 * i++, v});
  return points;
}

void expectRanges(const std::vector<SecondsRange>& got, const std::vector<SecondsRange>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_NEAR(got[i].lower, want[i].lower, 1e-12) << "range " << i;
    EXPECT_NEAR(got[i].upper, want[i].upper, 1e-12) << "range " << i;
  }
}

TEST(ComputeViolations, RunsSpanTheirBlocksAndTheLastClosesAtItsPoint) {
  // Points at 0.1 ... 0.5; runs at 0.2-0.3 and at 0.5 (reaching the end).
  const auto points = curve({-20.0f, -5.0f, -5.0f, -20.0f, -5.0f});
  expectRanges(computeViolations(points, -10.0f, 0.1), {{0.1, 0.3}, {0.4, 0.5}});
  // Everything over: one range from the first block's start to the last point.
  expectRanges(computeViolations(curve({-1.0f, -1.0f, -1.0f}), -10.0f, 0.1), {{0.0, 0.3}});
  // A single point over, at the end.
  expectRanges(computeViolations(curve({-20.0f, -1.0f}), -10.0f, 0.1), {{0.1, 0.2}});
  EXPECT_TRUE(computeViolations(std::vector<LevelCurvePoint>{}, -10.0f, 0.1).empty());
}

TEST(ComputeViolations, OnlyFiniteValuesStrictlyAboveCount) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  // Exactly at the threshold, -inf, +inf and NaN all break runs.
  const auto points = curve({-10.0f, -9.9f, -10.0f, -9.0f, kInf, -9.0f, -kInf, -9.0f, nan, -9.0f});
  expectRanges(computeViolations(points, -10.0f, 0.1),
               {{0.1, 0.2}, {0.3, 0.4}, {0.5, 0.6}, {0.7, 0.8}, {0.9, 1.0}});
  EXPECT_TRUE(computeViolations(curve({kInf, kInf}), -10.0f, 0.1).empty());
  EXPECT_TRUE(computeViolations(curve({-5.0f}), nan, 0.1).empty());
}

TEST(ComputeViolations, ReadsOneColumnOfAWiderCurve) {
  struct LivePoint {
    double time;
    float momentary, shortTerm, integrated;
  };
  const std::vector<LivePoint> live{
      {10.0, -8.0f, -20.0f, -23.0f}, {10.1, -8.0f, -12.0f, -23.0f}, {10.2, -30.0f, -12.0f, -23.0f}};
  auto time = [](const LivePoint& p) { return p.time; };
  expectRanges(computeViolations(live, -15.0f, 0.1, time,
                                 [](const LivePoint& p) { return p.shortTerm; }),
               {{10.0, 10.2}});
  expectRanges(computeViolations(live, -15.0f, 0.1, time,
                                 [](const LivePoint& p) { return p.momentary; }),
               {{9.9, 10.1}});
}

TEST(NumberFormat, CLocaleFormsWithoutNegativeZero) {
  EXPECT_EQ(formatFixed(-23.04, 1), "-23.0");
  EXPECT_EQ(formatFixed(-0.04, 1), "0.0");
  EXPECT_EQ(formatFixed(-0.4, 0), "0");
  EXPECT_EQ(formatFixed(-1.6, 0), "-2");
  EXPECT_EQ(formatSigned(2.0, 1), "+2.0");
  EXPECT_EQ(formatSigned(-2.0, 1), "-2.0");
  EXPECT_EQ(formatSigned(-0.01, 1), "+0.0");
  EXPECT_EQ(formatCompact(-16.0), "-16");
  EXPECT_EQ(formatCompact(-20.5), "-20.5");
  EXPECT_EQ(formatCompact(0.04), "0");
  EXPECT_EQ(formatFixed(-kInf, 1), "-inf");
}

}  // namespace
}  // namespace corvane
