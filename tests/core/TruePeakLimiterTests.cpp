// The true-peak limiter on a swept worst case: its output never reads above the ceiling on
// our own true-peak meter, and libebur128 agrees within 0.1 dB.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "TestSignals.h"
#include "core/LoudnessProcessor.h"
#include "core/TruePeakLimiterDSP.h"

namespace corvane::test {
namespace {

constexpr double kPi = std::numbers::pi;

// Stereo material built to overshoot: a +6 dBFS sweep 20 Hz → 20 kHz (reversed on the right),
// a +3 dBTP tone at 12 kHz whose samples sit at 0 dBFS, 5 ms bursts at +9.5 dBFS that need the
// full attack, and programme material 12 dB too hot.
Planar worstCase(double rate) {
  Planar p(rate, 2);
  const auto sweepFrames = static_cast<std::size_t>(4.0 * rate);
  for (std::size_t i = 0; i < sweepFrames; ++i) {
    const double t = double(i) / rate, duration = 4.0;
    const double k = std::log(20000.0 / 20.0);
    const double phase = 2 * kPi * 20.0 * duration / k * (std::exp(t / duration * k) - 1.0);
    const double reversedT = duration - t;
    const double reversedPhase = 2 * kPi * 20.0 * duration / k * (std::exp(reversedT / duration * k) - 1.0);
    p.channels[0].push_back(static_cast<float>(2.0 * std::sin(phase)));
    p.channels[1].push_back(static_cast<float>(2.0 * std::sin(reversedPhase)));
  }
  p.append(sine(rate, 2, 0.5, 12000.0, 1.41, kPi / 4));
  for (int b = 0; b < 10; ++b) {
    p.append(sine(rate, 2, 0.005, 12000.0 - 500.0 * b, 3.0, 0.3 * b));
    p.append(silence(rate, 2, 0.05));
  }
  Planar music = programme(rate, 2, 5.0, 12);
  for (auto& ch : music.channels) {
    for (float& v : ch) v *= 4.0f;
  }
  p.append(music);
  p.append(silence(rate, 2, 0.1));  // let the delay line empty
  return p;
}

Planar limit(TruePeakLimiterDSP& limiter, Planar signal, int block) {
  auto ptrs = signal.mutablePointers();
  for (FrameCount start = 0; start < signal.frames(); start += block) {
    const int n = static_cast<int>(std::min<FrameCount>(block, signal.frames() - start));
    float* io[2] = {ptrs[0] + start, ptrs[1] + start};
    limiter.process(io, n);
  }
  return signal;
}

class TruePeakLimiter : public ::testing::TestWithParam<double> {};

TEST_P(TruePeakLimiter, OutputNeverExceedsTheCeilingOnTheSweptWorstCase) {
  const double rate = GetParam();
  const Planar input = worstCase(rate);
  ASSERT_GT(measure(input).truePeak, 9.0);  // the input does overshoot, by a lot
  for (float ceiling : {-1.0f, -0.1f}) {
    TruePeakLimiterDSP limiter(rate, 2, ceiling, 5.0f, 50.0f, 512);
    const Planar output = limit(limiter, input, 512);
    const Measured ours = measure(output);
    const OracleResult oracle = ebur128Measure(output);
    EXPECT_LE(ours.truePeak, ceiling + 1e-4) << "ceiling " << ceiling;
    for (double tp : oracle.truePeakDB) EXPECT_LE(tp, ceiling + 0.1) << "libebur128, ceiling " << ceiling;
    // Limiting, not muting: the loud parts come out close to the ceiling.
    EXPECT_GT(ours.truePeak, ceiling - 0.5);
    std::printf("    %g Hz, ceiling %.1f: ours %.4f dBTP, libebur128 %.4f / %.4f dBTP\n", rate, ceiling,
                ours.truePeak, oracle.truePeakDB[0], oracle.truePeakDB[1]);
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, TruePeakLimiter, ::testing::Values(44100.0, 48000.0, 96000.0),
                         [](const auto& info) { return std::to_string(static_cast<int>(info.param)) + "Hz"; });

TEST(TruePeakLimiterBehaviour, BelowTheCeilingTheOutputIsTheInputDelayed) {
  const Planar input = sine(48000, 2, 1.0, 997.0, 0.5);
  TruePeakLimiterDSP limiter(48000, 2, -1.0f, 5.0f, 50.0f, 256);
  const Planar output = limit(limiter, input, 256);
  const auto latency = static_cast<std::size_t>(limiter.latencyFrames());
  EXPECT_EQ(latency, static_cast<std::size_t>(240 + 22));  // 5 ms + half the interpolator span
  for (std::size_t i = 0; i < latency; ++i) ASSERT_EQ(output.channels[0][i], 0.0f);
  for (std::size_t i = latency; i < input.channels[0].size(); ++i) {
    ASSERT_EQ(output.channels[0][i], input.channels[0][i - latency]) << i;
  }
  EXPECT_EQ(limiter.currentGainReductionDB(), 0.0f);
}

TEST(TruePeakLimiterBehaviour, CeilingChangesTakeEffectAtTheNextBlockAndResetForgets) {
  const Planar loud = sine(48000, 2, 2.0, 1000.0, 1.0);
  TruePeakLimiterDSP limiter(48000, 2, -1.0f, 2.0f, 20.0f, 480);
  Planar first = loud;
  first.channels[0].resize(48000);
  first.channels[1].resize(48000);
  Planar second = first;
  first = limit(limiter, first, 480);
  EXPECT_NEAR(limiter.currentGainReductionDB(), -1.0f, 0.05f);
  limiter.setCeilingDB(-6.0f);
  EXPECT_EQ(limiter.ceilingDB(), -6.0f);
  second = limit(limiter, second, 480);
  // Skip the frames still in the delay line from before the change and the ramp.
  Planar tail(48000, 2);
  for (int c = 0; c < 2; ++c) {
    tail.channels[static_cast<std::size_t>(c)].assign(second.channels[static_cast<std::size_t>(c)].begin() + 4800, second.channels[static_cast<std::size_t>(c)].end());
  }
  EXPECT_NEAR(measure(tail).truePeak, -6.0, 0.05);
  limiter.reset();
  EXPECT_EQ(limiter.currentGainReductionDB(), 0.0f);
  std::vector<float> zeros(100, 0.0f), ones(100, 0.1f);
  float* io[2] = {ones.data(), zeros.data()};
  limiter.process(io, 100);
  for (float v : ones) EXPECT_EQ(v, 0.0f);  // the delay line is silent after a reset
  EXPECT_THROW(TruePeakLimiterDSP(48000, 0, -1, 5, 50, 512), std::invalid_argument);
  EXPECT_THROW(TruePeakLimiterDSP(1000, 2, -1, 5, 50, 512), std::invalid_argument);
}

}  // namespace
}  // namespace corvane::test
