// The band filters against the RBJ cookbook responses computed independently in double
// precision by scipy (data/rbj_response.py), measured here from the impulse response of the
// processing code itself.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "playback/BiquadFilter.h"
#include "support/RbjOracle.h"

namespace corvane {
namespace {

// |H(f)| in dB of the filter as processBiquadStages runs it, from its impulse response.
std::vector<double> measuredDB(const BiquadFilterSpec& spec, double fs, const std::vector<double>& freqs) {
  std::vector<float> h(1 << 16, 0.0f);
  h[0] = 1.0f;
  BiquadChannelState state{};
  processBiquadStages(spec, state, h.data(), static_cast<int>(h.size()));
  return test::responseDB(h, fs, freqs);
}

void expectMatches(const BiquadFilterSpec& spec, double fs, const std::string& form, double lo,
                   double hi) {
  const std::vector<double> freqs = test::logGrid(20.0, 0.45 * fs, 120);
  const std::vector<double> expected = test::rbjOracleDB(fs, form, lo, hi, freqs);
  ASSERT_EQ(expected.size(), freqs.size()) << "scipy oracle did not answer";
  const std::vector<double> actual = measuredDB(spec, fs, freqs);
  int compared = 0;
  for (std::size_t i = 0; i < freqs.size(); ++i) {
    // Deep in a stopband a hundredth of a dB of coefficient rounding is tens of dB of response;
    // the tolerance holds where the filter passes or shapes the signal.
    if (expected[i] < -40.0) continue;
    ++compared;
    EXPECT_NEAR(actual[i], expected[i], 0.1) << form << " at " << freqs[i] << " Hz, fs " << fs << " lo " << lo << " hi " << hi;
  }
  EXPECT_GT(compared, 60);
}

bool stable(const BiquadCoeffs& c) { return std::fabs(c.a2) < 1.0f && std::fabs(c.a1) < 1.0f + c.a2; }

TEST(BandFilters, CallbackBandPassMatchesTheCookbook) {
  for (double fs : {48000.0, 44100.0, 96000.0}) {
    expectMatches(makeCallbackFilterSpec({200.0, 2000.0}, FreqFilterMode::bandPass, fs), fs,
                  "bandpass", 200.0, 2000.0);
  }
  expectMatches(makeCallbackFilterSpec({40.0, 15000.0}, FreqFilterMode::bandPass, 48000.0),
                48000.0, "bandpass", 40.0, 15000.0);
}

TEST(BandFilters, CallbackNotchMatchesTheCookbook) {
  expectMatches(makeCallbackFilterSpec({500.0, 2000.0}, FreqFilterMode::bandReject, 48000.0),
                48000.0, "notch", 500.0, 2000.0);
  // Equal edges count as a bandwidth of 1 Hz.
  const BiquadFilterSpec narrow = makeCallbackFilterSpec({1000.0, 1000.0}, FreqFilterMode::bandReject, 48000.0);
  ASSERT_TRUE(narrow.notch && !narrow.hp && !narrow.lp);
  expectMatches(narrow, 48000.0, "notch", 1000.0, 1000.0);
}

TEST(BandFilters, EqBandRejectIsAFortyDecibelPeakingCut) {
  expectMatches(makeEqFilterSpec({500.0, 2000.0}, FreqFilterMode::bandReject, 48000.0), 48000.0,
                "peakcut", 500.0, 2000.0);
  expectMatches(makeEqFilterSpec({300.0, 310.0}, FreqFilterMode::bandReject, 44100.0), 44100.0,
                "peakcut", 300.0, 310.0);
  expectMatches(makeEqFilterSpec({200.0, 2000.0}, FreqFilterMode::bandPass, 48000.0), 48000.0,
                "bandpass", 200.0, 2000.0);
}

TEST(BandFilters, EdgesAreLimitedAndStayStableAt22050) {
  const FreqRange limited48 = limitFilterEdges({5.0, 30000.0}, 48000.0);
  EXPECT_EQ(limited48.lowHz, 20.0);
  EXPECT_EQ(limited48.highHz, 20000.0);
  EXPECT_EQ(limitFilterEdges({25000.0, 10.0}, 48000.0).lowHz, 19999.0);
  EXPECT_EQ(limitFilterEdges({25000.0, 10.0}, 48000.0).highHz, 21.0);

  const double fs = 22050.0;
  const FreqRange limited = limitFilterEdges({100.0, 20000.0}, fs);
  EXPECT_EQ(limited.highHz, 0.45 * fs);
  const BiquadFilterSpec pass = makeCallbackFilterSpec({100.0, 20000.0}, FreqFilterMode::bandPass, fs);
  const BiquadFilterSpec reject = makeCallbackFilterSpec({100.0, 20000.0}, FreqFilterMode::bandReject, fs);
  const BiquadFilterSpec eqReject = makeEqFilterSpec({100.0, 20000.0}, FreqFilterMode::bandReject, fs);
  ASSERT_TRUE(pass.hp && pass.lp && reject.notch && eqReject.notch);
  for (const BiquadCoeffs* c : {&*pass.hp, &*pass.lp, &*reject.notch, &*eqReject.notch}) {
    EXPECT_TRUE(stable(*c)) << "a1 " << c->a1 << " a2 " << c->a2;
  }
  expectMatches(pass, fs, "bandpass", 100.0, limited.highHz);
  // Ten seconds of full-scale noise stay bounded.
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
  for (const BiquadFilterSpec* spec : {&pass, &reject, &eqReject}) {
    std::vector<float> x(static_cast<std::size_t>(fs * 10));
    for (float& v : x) v = noise(rng);
    BiquadChannelState state{};
    processBiquadStages(*spec, state, x.data(), static_cast<int>(x.size()));
    float peak = 0.0f;
    for (float v : x) {
      ASSERT_TRUE(std::isfinite(v));
      peak = std::max(peak, std::fabs(v));
    }
    EXPECT_LT(peak, 4.0f);
  }
}

}  // namespace
}  // namespace corvane
