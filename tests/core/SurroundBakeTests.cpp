// The offline routing mix: sums and gains exactly, quadrature routes aligned with the source.
#include <gtest/gtest.h>

#include <cmath>

#include "core/SurroundBake.h"

namespace corvane {
namespace {

using Route = SurroundBake::Route;

std::vector<float> sine(double frequency, double phase, std::size_t frames, double amplitude = 0.5) {
  std::vector<float> out(frames);
  for (std::size_t i = 0; i < frames; ++i) {
    out[i] = static_cast<float>(amplitude * std::sin(2.0 * M_PI * frequency * static_cast<double>(i) / 48000.0 + phase));
  }
  return out;
}

double rms(const std::vector<float>& x, std::size_t from, std::size_t to) {
  double sum = 0.0;
  for (std::size_t i = from; i < to; ++i) sum += static_cast<double>(x[i]) * x[i];
  return std::sqrt(sum / static_cast<double>(to - from));
}

TEST(SurroundBake, DownmixesReordersAndInvertsExactly) {
  std::vector<std::vector<float>> source;
  for (int c = 0; c < 6; ++c) source.push_back(sine(200.0 + 150.0 * c, 0.3 * c, 4800, 0.2));
  const float g = 0.70710678f;
  const std::vector<std::vector<Route>> routes{
      {{0, 1.0f, false}, {2, g, false}, {4, g, false}},  // Lo
      {{1, 1.0f, false}, {2, g, false}, {5, g, false}},  // Ro
      {{3, 1.0f, false}},                                // LFE moved
      {{0, -1.0f, false}},                               // polarity
      {},                                                // silent
      {{9, 1.0f, false}, {-1, 1.0f, false}},             // sources it lacks: skipped
  };
  const auto out = SurroundBake::render(source, routes, 48000.0);
  ASSERT_EQ(out.size(), 6u);
  for (const auto& channel : out) ASSERT_EQ(channel.size(), 4800u);
  for (std::size_t i = 0; i < 4800; ++i) {
    EXPECT_FLOAT_EQ(out[0][i], source[0][i] + g * source[2][i] + g * source[4][i]);
    EXPECT_FLOAT_EQ(out[1][i], source[1][i] + g * source[2][i] + g * source[5][i]);
    ASSERT_EQ(out[2][i], source[3][i]);
    ASSERT_EQ(out[3][i], -source[0][i]);
    ASSERT_EQ(out[4][i], 0.0f);
    ASSERT_EQ(out[5][i], 0.0f);
  }
}

TEST(SurroundBake, QuadratureRoutesAreNinetyDegreesAndAligned) {
  // 1 kHz, inside the shifter's band. The +90° route of sin(ωt) lags it by a quarter period:
  // −cos(ωt). Edges of 200 frames are left out (the filter's start and end).
  const std::size_t frames = 48000;
  const auto input = sine(1000.0, 0.0, frames);
  const auto expected = sine(1000.0, -M_PI / 2, frames);
  const auto out = SurroundBake::render({input}, {{{0, 1.0f, true}}, {{0, -1.0f, true}}, {{0, 1.0f, false}, {0, 1.0f, true}}}, 48000.0);
  double worst = 0.0;
  for (std::size_t i = 200; i < frames - 200; ++i) {
    worst = std::max(worst, std::fabs(static_cast<double>(out[0][i]) - expected[i]));
    ASSERT_EQ(out[1][i], -out[0][i]);
  }
  // ±0.5 dB of 0.5 is 0.03; the phase is exact.
  EXPECT_LT(worst, 0.03);
  // A signal plus its own quadrature: √2 the level, which only holds when the two are
  // aligned to the sample (a 50-frame slip would cancel or comb the sum).
  const double ratio = rms(out[2], 200, frames - 200) / rms(input, 200, frames - 200);
  EXPECT_NEAR(20.0 * std::log10(ratio), 20.0 * std::log10(std::sqrt(2.0)), 0.5);
  EXPECT_EQ(out[2].size(), frames);
}

TEST(SurroundBake, ChannelsOfUnequalLengthAndNoSources) {
  const auto out = SurroundBake::render({std::vector<float>(10, 1.0f), std::vector<float>(4, 1.0f)},
                                        {{{0, 1.0f, false}, {1, 1.0f, false}}}, 48000.0);
  ASSERT_EQ(out[0].size(), 10u);
  EXPECT_EQ(out[0][3], 2.0f);
  EXPECT_EQ(out[0][4], 1.0f);
  const auto none = SurroundBake::render({}, {{}, {}}, 48000.0);
  ASSERT_EQ(none.size(), 2u);
  EXPECT_TRUE(none[0].empty());
}

}  // namespace
}  // namespace corvane
