// EBU Tech 3341 (tests 1–6, 9–23) and Tech 3342 (tests 1–4) minimum-requirement signals,
// synthesised from the tables of the two documents, at 48 kHz and again at 44.1 and 96 kHz.
// Tolerances are the documents' own: ±0.1 LU for M, S and I, ±1 LU for LRA, +0.2/−0.4 dB for
// true peak. Each test prints its worst deviation, so the margin is visible in the log.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

#include "TestSignals.h"
#include "core/ChannelOrder.h"
#include "core/LoudnessProcessor.h"

namespace corvane::test {
namespace {

constexpr double kLoudnessTolerance = 0.1;
constexpr double kNegInf = -std::numeric_limits<double>::infinity();

class EbuCompliance : public ::testing::TestWithParam<double> {
 protected:
  double rate() const { return GetParam(); }
};

std::string rateName(const ::testing::TestParamInfo<double>& info) {
  return std::to_string(static_cast<int>(info.param)) + "Hz";
}

// Tech 3341 tests 1 and 2: a steady stereo tone reads its level on every scale.
TEST_P(EbuCompliance, Tech3341_1and2_SteadyToneReadsItsLevelOnMomentaryShortTermIntegrated) {
  for (double level : {-23.0, -33.0}) {
    const Measured m = measure(toneSequence(rate(), {{20.0, level}}));
    EXPECT_NEAR(m.momentary, level, kLoudnessTolerance) << level;
    EXPECT_NEAR(m.shortTerm, level, kLoudnessTolerance) << level;
    EXPECT_NEAR(m.integrated, level, kLoudnessTolerance) << level;
    RecordProperty("integrated_" + std::to_string(static_cast<int>(level)), std::to_string(m.integrated));
  }
}

// Tests 3–5: the gates leave the quieter and the silent parts out of the integrated value.
TEST_P(EbuCompliance, Tech3341_3to5_GatingKeepsIntegratedAtMinus23) {
  const std::vector<std::vector<std::pair<double, double>>> cases = {
      {{10, -36}, {60, -23}, {10, -36}},
      {{10, -72}, {10, -36}, {60, -23}, {10, -36}, {10, -72}},
      {{20, -26}, {20.1, -20}, {20, -26}},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const Measured m = measure(toneSequence(rate(), cases[i]));
    EXPECT_NEAR(m.integrated, -23.0, kLoudnessTolerance) << "Tech 3341 test " << i + 3;
  }
}

// Test 6: 5.0 with the surround weights of 1.41 read from the canonical positions.
TEST_P(EbuCompliance, Tech3341_6_FiveChannelToneUsesSurroundWeights) {
  Planar signal(rate(), 5);
  const std::vector<double> levels = {-28, -28, -24, -30, -30};  // L R C Ls Rs
  for (int c = 0; c < 5; ++c) {
    signal.channels[static_cast<std::size_t>(c)] =
        sine(rate(), 1, 20.0, 1000.0, dbfs(levels[static_cast<std::size_t>(c)])).channels[0];
  }
  const std::vector<double> weights = ChannelOrder::bs1770Weights({}, 5);
  const Measured m = measure(signal, weights);
  EXPECT_NEAR(m.integrated, -23.0, kLoudnessTolerance);
  // Without the surround weights the same signal reads 0.37 LU lower: the test can tell.
  const Measured flat = measure(signal, {1, 1, 1, 1, 1});
  EXPECT_NEAR(flat.integrated, -23.37, kLoudnessTolerance);
}

// Test 9: 1.34 s at −20 and 1.66 s at −30 dBFS, five times: short-term constant −23 after 3 s.
TEST_P(EbuCompliance, Tech3341_9_ShortTermIsConstantOverThreeSecondPeriods) {
  std::vector<std::pair<double, double>> segments;
  for (int i = 0; i < 5; ++i) {
    segments.push_back({1.34, -20});
    segments.push_back({1.66, -30});
  }
  const Measured m = measure(toneSequence(rate(), segments));
  ASSERT_GE(m.history.size(), 150u);
  double worst = 0.0;
  for (std::size_t i = 29; i < m.history.size(); ++i) {  // block i ends at (i + 1) × 0.1 s
    worst = std::max(worst, std::fabs(m.history[i].shortTermLUFS + 23.0));
  }
  EXPECT_LE(worst, kLoudnessTolerance);
  RecordProperty("worstDeviation", std::to_string(worst));
}

// Test 10 (file-based): 20 files, each i × 0.15 s of silence, 3 s at −23, 1 s of silence.
TEST_P(EbuCompliance, Tech3341_10_MaxShortTermOfEachFileIsMinus23) {
  for (int i = 0; i < 20; ++i) {
    const Measured m = measure(toneSequence(rate(), {{i * 0.15, kNegInf}, {3.0, -23}, {1.0, kNegInf}}));
    EXPECT_NEAR(m.maxShortTerm, -23.0, kLoudnessTolerance) << "file " << i;
  }
}

// Live meters (tests 11 and 14): 20 tones at −38 + i dBFS, each in a segment of its own,
// starting i × `step` s into it; the signal is fed in render-sized chunks and `reading` is
// taken after every chunk. Returns, per segment, the largest reading taken during it.
template <typename Reading>
std::vector<double> liveSegmentMaxima(double rate, double segment, double tone, double step, Reading reading) {
  std::vector<std::pair<double, double>> segments;
  for (int i = 0; i < 20; ++i) {
    segments.push_back({i * step, kNegInf});
    segments.push_back({tone, -38.0 + i});
    segments.push_back({segment - tone - i * step, kNegInf});
  }
  const Planar signal = toneSequence(rate, segments);
  LoudnessProcessor p(rate, 2);
  std::vector<double> maxima(20, kNegInf);
  constexpr FrameCount kChunk = 480;
  for (FrameCount start = 0; start < signal.frames(); start += kChunk) {
    const FrameCount n = std::min(kChunk, signal.frames() - start);
    const auto ptrs = signal.pointers(start);
    p.updateTruePeak(ptrs.data(), n);
    p.process(ptrs.data(), n);
    const double t = static_cast<double>(start + n) / rate;
    auto& slot = maxima[static_cast<std::size_t>(std::min(19, static_cast<int>(t / segment - 1e-9)))];
    slot = std::max(slot, reading(p));
  }
  return maxima;
}

// Test 11 (live): 3 s tones in 6 s segments; the short-term maximum of each segment, read from
// the published value while playing, is −38 + i.
TEST_P(EbuCompliance, Tech3341_11_LiveShortTermMaximaRiseOneLUPerSegment) {
  const auto maxima = liveSegmentMaxima(rate(), 6.0, 3.0, 0.15, [](const LoudnessProcessor& p) { return p.shortTermLUFS(); });
  for (int i = 0; i < 20; ++i) EXPECT_NEAR(maxima[static_cast<std::size_t>(i)], -38.0 + i, kLoudnessTolerance) << i;
}

// Test 12: 0.18 s at −20 and 0.22 s at −30, 25 times: momentary constant −23 after 1 s.
TEST_P(EbuCompliance, Tech3341_12_MomentaryIsConstantOverFourHundredMillisecondPeriods) {
  std::vector<std::pair<double, double>> segments;
  for (int i = 0; i < 25; ++i) {
    segments.push_back({0.18, -20});
    segments.push_back({0.22, -30});
  }
  const Measured m = measure(toneSequence(rate(), segments));
  double worst = 0.0;
  for (std::size_t i = 9; i < m.history.size(); ++i) worst = std::max(worst, std::fabs(m.history[i].momentaryLUFS + 23.0));
  EXPECT_LE(worst, kLoudnessTolerance);
  RecordProperty("worstDeviation", std::to_string(worst));
}

// Test 13 (file-based): a 400 ms tone after i × 20 ms of silence. The 0.1 s block grid would
// cut most of these tones in two; the maximum evaluated every 10 ms does not.
TEST_P(EbuCompliance, Tech3341_13_MaxMomentaryOfEachFileIsMinus23) {
  for (int i = 0; i < 20; ++i) {
    const Measured m = measure(toneSequence(rate(), {{i * 0.02, kNegInf}, {0.4, -23}, {1.0, kNegInf}}));
    EXPECT_NEAR(m.maxMomentary, -23.0, kLoudnessTolerance) << "file " << i;
  }
}

// Test 14 (live): 400 ms tones in 0.8 s segments; the maximum momentary published by the end
// of each segment is −38 + i.
TEST_P(EbuCompliance, Tech3341_14_LiveMaxMomentaryRisesOneLUPerSegment) {
  const auto maxima = liveSegmentMaxima(rate(), 0.8, 0.4, 0.02, [](const LoudnessProcessor& p) { return p.maxMomentaryLUFS(); });
  for (int i = 0; i < 20; ++i) EXPECT_NEAR(maxima[static_cast<std::size_t>(i)], -38.0 + i, kLoudnessTolerance) << i;
}

// --- True peak, tests 15–23 -------------------------------------------------------------

void expectTruePeak(const Planar& signal, double expectedDB, const char* what) {
  const Measured m = measure(signal);
  EXPECT_LE(m.truePeak, expectedDB + 0.2) << what;
  EXPECT_GE(m.truePeak, expectedDB - 0.4) << what;
}

// Tests 15–19: tones at fs/4, fs/6, fs/8 of the 48 kHz set (12, 8, 6 kHz at every rate) with
// phases that put the peak between samples.
TEST_P(EbuCompliance, Tech3341_15to19_TonesWithInterSamplePeaks) {
  struct Case {
    int test;
    double frequency, amplitude, phaseDegrees, expectedDB;
  };
  const Case cases[] = {
      {15, 12000, 0.50, 0.0, -6.0}, {16, 12000, 0.50, 45.0, -6.0}, {17, 8000, 0.50, 60.0, -6.0},
      {18, 6000, 0.50, 67.5, -6.0}, {19, 12000, 1.41, 45.0, 3.0},
  };
  for (const Case& c : cases) {
    Planar tone = sine(rate(), 2, 1.0, c.frequency, c.amplitude, c.phaseDegrees * std::numbers::pi / 180.0);
    taper(tone, 0.010);
    expectTruePeak(tone, c.expectedDB, ("Tech 3341 test " + std::to_string(c.test)).c_str());
  }
}

// Tests 20–23: an 8 kHz tone at 0.5 carrying one period of a 12 kHz sine at 1.0, made at four
// times the rate, low-passed below the target Nyquist and decimated at offsets 0 ... 3.
Planar burstSignal(double rate, int offset) {
  const double hiRate = 4.0 * rate;
  const double f1 = 8000.0, f2 = 12000.0;
  const double seconds = 0.5;
  const auto n = static_cast<std::size_t>(seconds * hiRate);
  const double t0 = std::round(0.25 * f1) / f1;  // an upward zero crossing of the tone
  const double burst = 1.0 / f2;
  std::vector<double> hi(n);
  for (std::size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / hiRate;
    if (t < t0) {
      hi[i] = 0.5 * std::sin(2 * std::numbers::pi * f1 * t);
    } else if (t < t0 + burst) {
      hi[i] = std::sin(2 * std::numbers::pi * f2 * (t - t0));
    } else {
      hi[i] = 0.5 * std::sin(2 * std::numbers::pi * f1 * (t - burst));
    }
  }
  // Anti-alias: Kaiser-windowed sinc (β = 10, 257 taps) at a cutoff of 0.45 × the target rate.
  const int taps = 257, half = taps / 2;
  const double cutoff = 0.45 * rate / hiRate;
  std::vector<double> h(taps);
  const double i0 = std::cyl_bessel_i(0.0, 10.0);
  for (int k = 0; k < taps; ++k) {
    const double m = k - half;
    const double sinc = m == 0 ? 2 * cutoff : std::sin(2 * std::numbers::pi * cutoff * m) / (std::numbers::pi * m);
    const double r = m / half;
    h[static_cast<std::size_t>(k)] = sinc * std::cyl_bessel_i(0.0, 10.0 * std::sqrt(1 - r * r)) / i0;
  }
  Planar out(rate, 2);
  for (std::size_t j = static_cast<std::size_t>(half + offset); j + half < n; j += 4) {
    double acc = 0.0;
    for (int k = 0; k < taps; ++k) acc += h[static_cast<std::size_t>(k)] * hi[j + static_cast<std::size_t>(half) - static_cast<std::size_t>(k)];
    for (auto& ch : out.channels) ch.push_back(static_cast<float>(acc));
  }
  taper(out, 0.010);
  return out;
}

TEST_P(EbuCompliance, Tech3341_20to23_SinglePeriodBurstAtEveryDecimationOffset) {
  for (int offset = 0; offset < 4; ++offset) {
    expectTruePeak(burstSignal(rate(), offset), 0.0, ("Tech 3341 test " + std::to_string(20 + offset)).c_str());
  }
}

// --- Tech 3342, loudness range tests 1–4 -------------------------------------------------

TEST_P(EbuCompliance, Tech3342_1to4_LoudnessRangeOfToneSteps) {
  struct Case {
    std::vector<std::pair<double, double>> segments;
    double expected;
  };
  const std::vector<Case> cases = {
      {{{20, -20}, {20, -30}}, 10.0},
      {{{20, -20}, {20, -15}}, 5.0},
      {{{20, -40}, {20, -20}}, 20.0},
      {{{20, -50}, {20, -35}, {20, -20}, {20, -35}, {20, -50}}, 15.0},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const Measured m = measure(toneSequence(rate(), cases[i].segments));
    EXPECT_NEAR(m.range, cases[i].expected, 1.0) << "Tech 3342 test " << i + 1;
    // Our own tighter expectation: steady tones leave nothing between the steps but the
    // transitions, so the range lands within 0.1 LU of the step size.
    EXPECT_NEAR(m.range, cases[i].expected, 0.1) << "Tech 3342 test " << i + 1;
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, EbuCompliance, ::testing::Values(48000.0, 44100.0, 96000.0), rateName);

}  // namespace
}  // namespace corvane::test
