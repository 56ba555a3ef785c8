// The file metrics against tools no one here wrote (sox stats, libebur128) and against a
// whole-file run of the offline analysis pass (the other road to the same figures, itself held
// to sox, ffmpeg's drmeter and libebur128).
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "AnalysisTestSupport.h"
#include "core/ChannelOrder.h"
#include "headless/pipelines/SlotMetrics.h"

namespace corvane::test {
namespace {

constexpr float kNegInf = -std::numeric_limits<float>::infinity();

// Programme in the front pair, a tone with a DC offset in the centre, noise in the LFE.
Planar fiveOne(double seconds) {
  const double rate = 48000.0;
  const Planar music = programme(rate, 2, seconds, 5);
  const Planar noise = bandLimitedNoise(rate, 1, seconds, 120.0, -30.0, 3.0, 9);
  Planar p(rate, 6, music.frames());
  for (FrameCount i = 0; i < music.frames(); ++i) {
    const auto k = static_cast<std::size_t>(i);
    p.channels[0][k] = music.channels[0][k];
    p.channels[1][k] = music.channels[1][k];
    p.channels[2][k] = 0.1f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 440.0 * static_cast<double>(i) / rate)) + 0.02f;
    p.channels[3][k] = noise.channels[0][k];
    p.channels[4][k] = 0.5f * music.channels[1][k];
    p.channels[5][k] = -0.5f * music.channels[0][k];
  }
  return p;
}

TEST(SlotMetrics, ChannelFiguresAgreeWithSoxAndTheLoudnessWithLibebur128) {
  const Planar signal = fiveOne(12.0);
  TemporaryDirectory dir;
  const std::string path = dir.file("five-one.wav");
  writeWav(path, signal);
  const SharedAudioBuffer buffer = toBuffer(signal);
  const SlotMetrics m = computeSlotMetrics(*buffer, 12.0, nullptr);

  const SoxStats sox = soxStats(path, 6);
  ASSERT_EQ(m.channelPeakDB.size(), 6u);
  for (std::size_t c = 0; c < 6; ++c) {
    EXPECT_NEAR(m.channelPeakDB[c], sox.peakDB[c], 0.01) << c;
    EXPECT_NEAR(m.channelRMSDB[c], sox.rmsDB[c], 0.01) << c;
    EXPECT_NEAR(m.channelDCOffset[c], sox.dcOffset[c], 2e-6) << c;
    EXPECT_FLOAT_EQ(m.channelCrestFactorDB[c], m.channelPeakDB[c] - m.channelRMSDB[c]) << c;
  }
  EXPECT_NEAR(m.samplePeakDB, *std::max_element(sox.peakDB.begin(), sox.peakDB.end()), 0.01);
  EXPECT_FLOAT_EQ(m.headroomDB, -m.samplePeakDB);

  // libebur128 with its 5.1 layout (LFE left out, surrounds weighted 1.41).
  const OracleResult oracle = ebur128Measure(signal);
  EXPECT_NEAR(m.integratedLUFS, oracle.integrated, 0.1);
  EXPECT_NEAR(m.loudnessRange, oracle.range, 1.0);
  for (std::size_t c = 0; c < 6; ++c) EXPECT_NEAR(m.channelTruePeakDB[c], oracle.truePeakDB[c], 0.3) << c;
  EXPECT_FLOAT_EQ(m.truePeakDB, *std::max_element(m.channelTruePeakDB.begin(), m.channelTruePeakDB.end()));

  // The curve: a point per 0.1 s block at the block's end; the maxima are the curve's.
  ASSERT_EQ(m.fileLoudnessCurve.size(), 120u);
  EXPECT_DOUBLE_EQ(m.fileLoudnessCurve[0].time, 0.1);
  EXPECT_DOUBLE_EQ(m.fileLoudnessCurve[119].time, 12.0);
  float maxShortTerm = kNegInf;
  for (const auto& point : m.fileLoudnessCurve) maxShortTerm = std::max(maxShortTerm, point.shortTermLUFS);
  EXPECT_EQ(m.maxShortTermLUFS, maxShortTerm);
  EXPECT_NEAR(m.fileLoudnessCurve.back().integratedLUFS, m.integratedLUFS, 0.01);
  EXPECT_EQ(m.duration, 12.0);
  EXPECT_EQ(m.stereoWidthCurve.size(), 120u);
  EXPECT_TRUE(m.speechRanges.empty());
  EXPECT_EQ(m.speechPercentage, 0.0f);
}

TEST(SlotMetrics, AgreeWithAWholeFileAnalysisAndDoNotDependOnThreads) {
  const Planar signal = fiveOne(7.3);
  const SharedAudioBuffer buffer = toBuffer(signal);
  // Speech in blocks 10 ... 39 and 50 ... 51, as a detector might have found.
  SpeechHistory history(73, false);
  for (int i = 10; i < 40; ++i) history[static_cast<std::size_t>(i)] = true;
  history[50] = history[51] = true;
  const auto shared = std::make_shared<const SpeechHistory>(history);
  const SlotMetrics two = computeSlotMetrics(*buffer, 7.3, shared, 2);
  const SlotMetrics one = computeSlotMetrics(*buffer, 7.3, shared, 1);
  EXPECT_EQ(one, two);

  SelectionAnalysisSettings settings = plainSettings(6);
  settings.channelWeights = ChannelOrder::bs1770Weights(*buffer);
  settings.speechHistory = shared;
  const SelectionAnalysisResult r = analyse(buffer, 0.0, 7.3, settings).result;
  EXPECT_EQ(two.integratedLUFS, r.integratedLUFS);
  EXPECT_EQ(two.truePeakDB, r.truePeakDB);
  EXPECT_EQ(two.loudnessRange, r.loudnessRange);
  EXPECT_EQ(two.speechGatedLUFS, r.speechGatedLUFS);
  EXPECT_EQ(two.speechPercentage, r.speechPercentage);
  EXPECT_EQ(two.speechGatedNoiseFloorDBRMS, r.speechGatedNoiseFloorDBRMS);
  EXPECT_EQ(two.maxMomentaryLUFS, r.maxMomentaryLUFS);
  EXPECT_EQ(two.maxShortTermLUFS, r.maxShortTermLUFS);
  EXPECT_EQ(two.samplePeakDB, r.samplePeakDB);
  EXPECT_EQ(two.dynamicRange, r.dynamicRange);
  EXPECT_EQ(two.channelDR, r.channelDR);
  EXPECT_EQ(two.channelPeakDB, r.peakDB);
  EXPECT_EQ(two.channelRMSDB, r.rmsDB);
  EXPECT_EQ(two.channelTruePeakDB, r.truePeakDBByChannel);
  EXPECT_EQ(two.speechRanges, r.speechRanges);
  // The gap of ten blocks separates two ranges; the lone pair of blocks is a range of its own.
  EXPECT_EQ(two.speechRanges.size(), 2u);
  EXPECT_NEAR(two.speechRanges[0].startSec, 1.0, 1e-9);
  EXPECT_NEAR(two.speechRanges[0].endSec, 4.0, 1e-9);
  EXPECT_EQ(two.speechHistory, shared);
  EXPECT_NEAR(two.speechPercentage, 100.0 * 32 / 73, 0.01);
}

TEST(SlotMetrics, SilenceAndRatesTheLoudnessMeterDoesNotMeasure) {
  const SlotMetrics silent = computeSlotMetrics(*AudioBuffer::createZeroed(2, 48000, 48000.0), 1.0, nullptr);
  EXPECT_EQ(silent.samplePeakDB, kNegInf);
  EXPECT_EQ(silent.headroomDB, 0.0f);
  EXPECT_EQ(silent.integratedLUFS, kNegInf);
  EXPECT_EQ(silent.maxMomentaryLUFS, kNegInf);
  EXPECT_EQ(silent.loudnessRange, 0.0f);
  EXPECT_EQ(silent.channelPeakDB, (std::vector<float>{-240.0f, -240.0f}));
  EXPECT_EQ(silent.stereoWidthCurve.size(), 10u);
  EXPECT_EQ(silent.stereoWidthCurve[3].correlation, 0.0f);

  // 4 kHz has no BS.1770 filter: no loudness figures, everything else stands.
  const Planar tone = sine(4000.0, 2, 2.0, 100.0, 0.5);
  const SlotMetrics low = computeSlotMetrics(*toBuffer(tone), 2.0, nullptr);
  EXPECT_EQ(low.integratedLUFS, kNegInf);
  EXPECT_EQ(low.truePeakDB, kNegInf);
  EXPECT_TRUE(low.fileLoudnessCurve.empty());
  EXPECT_NEAR(low.samplePeakDB, 20.0 * std::log10(0.5), 0.01);
  EXPECT_EQ(low.stereoWidthCurve.size(), 20u);
  EXPECT_EQ(low.channelTruePeakDB, (std::vector<float>{kNegInf, kNegInf}));
}

}  // namespace
}  // namespace corvane::test
