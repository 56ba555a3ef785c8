// The vectorised channel statistics against a plain loop in long double, for every tail length
// the eight-wide kernel can meet, and against values worked out by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "core/ChannelStatistics.h"

namespace corvane {
namespace {

TEST(ChannelStatistics, AgreesWithAPlainLoopForEveryLengthAndOffset) {
  std::mt19937 random(5);
  std::uniform_real_distribution<float> sample(-0.9f, 0.7f);
  std::vector<float> x(300);
  for (float& v : x) v = sample(random);
  for (int offset = 0; offset < 3; ++offset) {  // unaligned starts too
    for (FrameCount n = 1; n <= 97; ++n) {
      long double sum = 0, squares = 0;
      float peak = 0;
      for (FrameCount i = 0; i < n; ++i) {
        const float v = x[static_cast<std::size_t>(offset + i)];
        sum += v;
        squares += static_cast<long double>(v) * v;
        peak = std::max(peak, std::fabs(v));
      }
      const ChannelStatistics s = measureChannel(x.data() + offset, n);
      EXPECT_EQ(s.peak, peak) << n;
      EXPECT_NEAR(s.mean, static_cast<double>(sum / n), 1e-15) << n;
      EXPECT_NEAR(s.meanSquare, static_cast<double>(squares / n), 1e-15) << n;
    }
  }
}

TEST(ChannelStatistics, HandValuesSilenceAndNonFiniteSamples) {
  const float inf = std::numeric_limits<float>::infinity();
  // 0.5, −0.25 and 0.1 with a NaN and two infinities that count as 0: mean 0.35 / 6,
  // mean square (0.25 + 0.0625 + 0.01) / 6, peak 0.5.
  const std::vector<float> x = {0.5f, -0.25f, std::nanf(""), inf, -inf, 0.1f};
  const ChannelStatistics s = measureChannel(x.data(), 6);
  EXPECT_EQ(s.peak, 0.5f);
  EXPECT_NEAR(s.mean, (0.5 - 0.25 + static_cast<double>(0.1f)) / 6.0, 1e-12);
  EXPECT_NEAR(s.meanSquare, (0.25 + 0.0625 + static_cast<double>(0.1f) * 0.1f) / 6.0, 1e-12);
  EXPECT_NEAR(s.peakDB(), -6.0206, 1e-4);
  EXPECT_NEAR(s.crestFactorDB(), s.peakDB() - s.rmsDB(), 1e-6);

  // Silence reads the floors of −240 dBFS peak and −120 dBFS RMS, not −inf.
  const std::vector<float> zeros(1000, 0.0f);
  const ChannelStatistics quiet = measureChannel(zeros.data(), 1000);
  EXPECT_FLOAT_EQ(quiet.peakDB(), -240.0f);
  EXPECT_FLOAT_EQ(quiet.rmsDB(), -120.0f);
  const ChannelStatistics none = measureChannel(nullptr, 10);
  EXPECT_EQ(none.peak, 0.0f);
  EXPECT_EQ(measureChannel(x.data(), 0).meanSquare, 0.0);
}

}  // namespace
}  // namespace corvane
