// The pass's own rules: which frames a selection reads, where curve points and columns sit in
// time, what a too-short or mono selection gives, and that both roads to the frames, and one
// or two threads, give the same result to the bit.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <stop_token>

#include "AnalysisTestSupport.h"

namespace corvane::test {
namespace {

constexpr double kRate = 48000.0;
constexpr float kMinusInfinity = -std::numeric_limits<float>::infinity();

TEST(SelectionFrameRules, StartEndAndCountFromSecondsAtTheBufferEdges) {
  struct Case {
    double lower, upper;
    FrameCount start, end, count;
    bool fullFile;
  } cases[] = {
      {0.0, 1.0, 0, 48000, 48000, true},       // the whole buffer
      {0.0, 5.0, 0, 48000, 48000, true},       // the end is clamped to the buffer
      {-1.0, 0.25, 0, 12000, 12000, false},    // a start before 0 is 0
      {0.5, 0.5, 24000, 24000, 1, false},      // an empty selection measures one frame
      {0.75, 0.5, 36000, 24000, 1, false},     // so does a reversed one
      {2.0, 3.0, 47999, 48000, 1, false},      // wholly past the end: the last frame
      {0.00001, 0.5, 0, 24000, 24000, false},  // 0.48 of a frame truncates to 0, yet not full
  };
  for (const Case& c : cases) {
    const auto r = selectionFrameRange(c.lower, c.upper, kRate, 48000);
    ASSERT_TRUE(r.has_value());
    EXPECT_EQ(r->startFrame, c.start) << c.lower << " ... " << c.upper;
    EXPECT_EQ(r->endFrame, c.end) << c.lower << " ... " << c.upper;
    EXPECT_EQ(r->frameCount, c.count) << c.lower << " ... " << c.upper;
    EXPECT_EQ(r->fullFile, c.fullFile) << c.lower << " ... " << c.upper;
  }
  EXPECT_FALSE(selectionFrameRange(0.0, 1.0, kRate, 0).has_value());
  EXPECT_FALSE(selectionFrameRange(0.0, 1.0, 0.0, 48000).has_value());
  EXPECT_FALSE(SelectionFrames::capture(nullptr, 0.0, 1.0).has_value());
  EXPECT_FALSE(SelectionFrames::capture(AudioBuffer::createZeroed(2, 0, kRate), 0.0, 1.0).has_value());
}

TEST(SelectionFrameRules, OnlyTheWholeFileReadsTheSharedBufferAndACopyIgnoresLaterEdits) {
  const SharedAudioBuffer buffer = toBuffer(toneSequence(kRate, {{2.0, -6.0}}));
  const auto whole = SelectionFrames::capture(buffer, 0.0, 2.0);
  ASSERT_TRUE(whole.has_value());
  EXPECT_TRUE(whole->readsSharedBuffer());  // its landing must compare bufferEpoch
  EXPECT_TRUE(whole->fullFile());

  const auto part = SelectionFrames::capture(buffer, 0.5, 1.5);
  ASSERT_TRUE(part.has_value());
  EXPECT_FALSE(part->readsSharedBuffer());
  EXPECT_FALSE(part->fullFile());
  // An in-place edit after the capture (silence over everything) does not reach the copy.
  for (int c = 0; c < 2; ++c) std::fill_n(buffer->channel(c), buffer->frameLength(), 0.0f);
  const SelectionAnalysisResult r = analyse(*part, plainSettings(2)).result;
  EXPECT_NEAR(r.peakDB[0], -6.0, 0.01);
  EXPECT_NEAR(r.rmsDB[1], -6.0 - 3.0103, 0.01);

  EXPECT_THROW(SelectionFrames::sharing(buffer, {0.0, 3.0}, 0, 96001), std::invalid_argument);
  EXPECT_THROW(SelectionFrames::copying(*buffer, {0.0, 1.0}, -1, 10), std::invalid_argument);
}

TEST(SelectionAnalysis, CurvePointsSitAtTheEndOfTheirBlockInFileTime) {
  // Three seconds of silence, then a 1 kHz stereo tone at −20 dBFS (−20.0 LUFS, as Tech 3341's
  // −23 dBFS tone reads −23). Selection 2.35 s ... 5.0 s: 127,200 frames, 26.5 blocks, so 27
  // points, the last one the flushed half block.
  const SharedAudioBuffer buffer = toBuffer(toneSequence(kRate, {{3.0, -300.0}, {3.0, -20.0}}));
  const SelectionAnalysisResult r = analyse(buffer, 2.35, 5.0, plainSettings(2)).result;
  ASSERT_EQ(r.momentaryCurve.size(), 27u);
  ASSERT_EQ(r.shortTermCurve.size(), 27u);
  ASSERT_EQ(r.integratedCurve.size(), 27u);
  ASSERT_EQ(r.truePeakCurve.size(), 27u);
  for (std::size_t i = 0; i < 27; ++i) {
    const double end = 2.35 + 0.1 * static_cast<double>(i + 1);
    EXPECT_NEAR(r.momentaryCurve[i].time, end, 1e-9);
    EXPECT_NEAR(r.truePeakCurve[i].time, end, 1e-9);
    EXPECT_EQ(r.shortTermCurve[i].time, r.momentaryCurve[i].time);
    EXPECT_EQ(r.integratedCurve[i].time, r.momentaryCurve[i].time);
  }
  // The tone starts at 3.0 s: the block ending at 2.95 s is silent, the one ending at 3.05 s
  // holds its first 50 ms. Points 5 and 6 (from 0).
  EXPECT_NEAR(r.truePeakCurve[5].time, 2.95, 1e-9);
  EXPECT_EQ(r.truePeakCurve[5].value, kMinusInfinity);
  EXPECT_LT(r.momentaryCurve[5].value, -70.0f);
  EXPECT_NEAR(r.truePeakCurve[6].value, -20.0, 0.2);
  EXPECT_GT(r.momentaryCurve[6].value, -70.0f);
  // From 3.4 s on, the 400 ms window lies wholly in the tone.
  EXPECT_NEAR(r.momentaryCurve[10].time, 3.45, 1e-9);
  EXPECT_NEAR(r.momentaryCurve[10].value, -20.0, 0.1);
  // The gating windows across the onset (−29 ... −20.6 LUFS) pass the relative gate and pull
  // the integrated figure below −20: libebur128 on the same frames says by how much (it leaves
  // out the final half block, a difference of 0.03 LU here).
  const OracleResult oracle = ebur128Measure(slice(*buffer, 112800, 127200));
  EXPECT_NEAR(r.integratedLUFS, oracle.integrated, 0.05);
  EXPECT_NEAR(r.integratedCurve.back().value, r.integratedLUFS, 1e-4);
  EXPECT_NEAR(r.maxMomentaryLUFS, -20.0, 0.1);
  EXPECT_NEAR(r.truePeakDB, -20.0, 0.2);
  ASSERT_EQ(r.truePeakDBByChannel.size(), 2u);
  EXPECT_NEAR(r.truePeakDBByChannel[1], -20.0, 0.2);
}

TEST(SelectionAnalysis, WindowPassColumnsKeepAboutTwoThousandAtTheirWindowStarts) {
  // fftSize 256 at overlap 4: hop 64. 256 + 4095 × 64 frames give n = 4095, a column stride of
  // (4095 + 1) >> 11 = 2: columns at windows 0, 2, ... 4094, that is 2048, every 128 frames.
  const FrameCount frames = 256 + 4095 * 64;
  const SharedAudioBuffer buffer = toBuffer(toneSequence(kRate, {{8.0, -12.0}}));
  SelectionAnalysisSettings settings = plainSettings(2);
  settings.fftSize = 256;
  settings.spectrogramFftSize = 256;
  const auto frameSelection = SelectionFrames::copying(*buffer, {1.0, 1.0 + frames / kRate}, 48000, frames);
  const SelectionAnalysisOutput out = analyse(frameSelection, settings);
  ASSERT_EQ(out.spectrogramColumns.size(), 2048u);
  EXPECT_DOUBLE_EQ(out.spectrogramColumns[0].time, 1.0);
  EXPECT_DOUBLE_EQ(out.spectrogramColumns[1].time, 1.0 + 128.0 / kRate);
  EXPECT_DOUBLE_EQ(out.spectrogramColumns[2047].time, 1.0 + 2047.0 * 128.0 / kRate);
  EXPECT_EQ(out.spectrogramColumns[5].mags.size(), 128u);

  // The plan behind it, and the averaging limit: 65,535 steps stay whole, 65,536 halve.
  const WindowPassPlan plan = windowPassPlan(frames, 256, 4, false);
  EXPECT_EQ(plan.hop, 64);
  EXPECT_EQ(plan.windowSteps, 4095);
  EXPECT_EQ(plan.columnStride, 2);
  EXPECT_EQ(plan.averageStride, 1);
  EXPECT_EQ(windowPassPlan(256 + 65535 * 64, 256, 4, false).averageStride, 1);
  EXPECT_EQ(windowPassPlan(256 + 65536 * 64, 256, 4, false).averageStride, 2);
  EXPECT_EQ(windowPassPlan(256 + 65536 * 64, 256, 4, true).averageStride, 1);
  EXPECT_EQ(windowPassPlan(256 + 196608 * 64, 256, 4, false).averageStride, 4);
  EXPECT_EQ(windowPassPlan(100, 4096, 4, false).windowSteps, -3);
  EXPECT_EQ(windowPassPlan(100, 4096, 4, false).columnStride, 1);
}

TEST(SelectionAnalysis, ColumnsOfOneChannelOrOfTheMixAndTheSeparatePassForAnotherSize) {
  // Channel 0: a tone at −6 dBFS on bin 64 of 1024; channel 1: silence. The mix halves the
  // tone's power (−3.01 dB); channel 1 alone holds nothing; an index past the channels mixes.
  Planar signal(kRate, 2, 240000);
  for (FrameCount i = 0; i < signal.frames(); ++i) {
    signal.channels[0][static_cast<std::size_t>(i)] = static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * 64.0 * static_cast<double>(i) / 1024.0));
  }
  const SharedAudioBuffer buffer = toBuffer(signal);
  SelectionAnalysisSettings settings = plainSettings(2);
  settings.fftSize = 1024;
  settings.spectrogramFftSize = 1024;
  const double tone = 20.0 * std::log10(0.5);

  const auto mixed = analyse(buffer, 0.0, 5.0, settings).spectrogramColumns;
  ASSERT_FALSE(mixed.empty());
  EXPECT_NEAR(mixed[3].mags[64], tone - 3.0103, 0.01);
  settings.spectrogramChannelIndex = 1;
  EXPECT_LT(analyse(buffer, 0.0, 5.0, settings).spectrogramColumns[3].mags[64], -200.0f);
  settings.spectrogramChannelIndex = 0;
  EXPECT_NEAR(analyse(buffer, 0.0, 5.0, settings).spectrogramColumns[3].mags[64], tone, 0.01);
  settings.spectrogramChannelIndex = 5;
  EXPECT_NEAR(analyse(buffer, 0.0, 5.0, settings).spectrogramColumns[3].mags[64], tone - 3.0103, 0.01);

  // A 4096-point spectrum with 1024-point columns: the window pass makes none; the separate
  // pass hops max(1024 / 4, (240000 − 1024) / 2048, 64) = 256 frames: (238976 / 256) + 1 = 934
  // columns from the selection's start. The invalid index still mixes.
  settings.fftSize = 4096;
  const SelectionAnalysisOutput separate = analyse(buffer, 0.0, 5.0, settings);
  ASSERT_EQ(separate.spectrogramColumns.size(), 934u);
  EXPECT_EQ(separate.spectrogramColumns[0].mags.size(), 512u);
  EXPECT_DOUBLE_EQ(separate.spectrogramColumns[1].time, 256.0 / kRate);
  EXPECT_NEAR(separate.spectrogramColumns[3].mags[64], tone - 3.0103, 0.01);
  EXPECT_EQ(separate.result.fftMagnitudes[0].size(), 2048u);
  EXPECT_NEAR(separate.result.fftMagnitudes[0][256], tone, 0.01);  // bin 64 of 1024 is bin 256 of 4096
}

TEST(SelectionAnalysis, ShortOneFramePastTheEndAndMonoSelections) {
  SelectionAnalysisSettings settings = plainSettings(2);
  settings.fftSize = 32768;
  settings.spectrogramFftSize = 32768;
  const SharedAudioBuffer buffer = toBuffer(toneSequence(kRate, {{1.0, -20.0}}));
  buffer->channel(0)[47999] = 0.25f;
  buffer->channel(1)[47999] = -0.125f;
  buffer->channel(0)[24000] = -0.5f;

  // Half a second against a 32768-point FFT: no window, so −100 everywhere and no columns, no
  // mid and side; the loudness and peaks are measured all the same.
  const SelectionAnalysisOutput brief = analyse(buffer, 0.25, 0.75, settings);
  ASSERT_EQ(brief.result.fftMagnitudes.size(), 2u);
  EXPECT_EQ(brief.result.fftMagnitudes[1].size(), 16384u);
  EXPECT_EQ(brief.result.fftMagnitudes[1][100], -100.0f);
  EXPECT_FALSE(brief.result.msFftMagnitudes.has_value());
  EXPECT_TRUE(brief.spectrogramColumns.empty());
  EXPECT_NEAR(brief.result.integratedLUFS, -20.0, 0.1);
  EXPECT_NEAR(brief.result.peakDB[0], 20.0 * std::log10(0.5), 1e-4);  // the sample at 0.5 s

  // One frame: the empty selection at 0.5 s reads the sample there.
  const SelectionAnalysisResult one = analyse(buffer, 0.5, 0.5, settings).result;
  EXPECT_NEAR(one.peakDB[0], 20.0 * std::log10(0.5), 1e-4);
  EXPECT_NEAR(one.rmsDB[0], 20.0 * std::log10(0.5), 1e-4);
  EXPECT_FLOAT_EQ(one.dcOffset[0], -0.5f);
  EXPECT_EQ(one.momentaryCurve.size(), 1u);

  // Wholly past the end: the last frame, with the curve still timed from the selection.
  const SelectionAnalysisResult past = analyse(buffer, 2.0, 3.0, settings).result;
  EXPECT_NEAR(past.peakDB[0], 20.0 * std::log10(0.25), 1e-4);
  EXPECT_NEAR(past.peakDB[1], 20.0 * std::log10(0.125), 1e-4);
  EXPECT_FLOAT_EQ(past.dcOffset[1], -0.125f);
  EXPECT_NEAR(past.samplePeakDB, 20.0 * std::log10(0.25), 1e-4);
  EXPECT_NEAR(past.headroomDB, -20.0 * std::log10(0.25), 1e-4);
  ASSERT_EQ(past.truePeakCurve.size(), 1u);
  EXPECT_NEAR(past.truePeakCurve[0].time, 2.1, 1e-9);
  EXPECT_EQ(past.timeRange.lower, 2.0);

  // Mono with plenty of windows: a spectrum, columns, never mid and side.
  const SharedAudioBuffer mono = toBuffer(toneSequence(kRate, {{2.0, -20.0}}, 1000.0, 1));
  const SelectionAnalysisOutput m = analyse(mono, 0.0, 2.0, plainSettings(1));
  ASSERT_EQ(m.result.fftMagnitudes.size(), 1u);
  EXPECT_FALSE(m.result.msFftMagnitudes.has_value());
  EXPECT_FALSE(m.spectrogramColumns.empty());
  EXPECT_EQ(m.result.peakDB.size(), 1u);
  EXPECT_EQ(m.result.channelDR.size(), 1u);
}

TEST(SelectionAnalysis, SharedAndCopiedFramesAndOneOrTwoThreadsGiveTheSameResult) {
  // 5.1 programme, with a speech history handed in so the speech figures take part too.
  const Planar signal = programme(kRate, 6, 12.0, 4);
  const SharedAudioBuffer buffer = toBuffer(signal);
  SelectionAnalysisSettings settings = plainSettings(6);
  settings.channelWeights = {1.0, 1.0, 1.0, 0.0, 1.41, 1.41};
  SpeechHistory history(120, false);
  for (std::size_t i = 30; i < 70; ++i) history[i] = (i % 9) != 0;
  settings.speechHistory = std::make_shared<const SpeechHistory>(history);
  settings.spectrogramFftSize = 2048;  // the separate column pass as well

  const auto shared = SelectionFrames::capture(buffer, 0.0, 12.0);
  ASSERT_TRUE(shared && shared->readsSharedBuffer());
  const auto copied = SelectionFrames::copying(*buffer, {0.0, 12.0}, 0, buffer->frameLength());
  const SelectionAnalysisOutput a = analyse(*shared, settings);
  expectIdentical(a, analyse(copied, settings));
  settings.threadCount = 1;
  expectIdentical(a, analyse(*shared, settings));
  EXPECT_GT(a.result.speechPercentage, 20.0f);
  EXPECT_FALSE(a.result.speechRanges.empty());

  // A part of the file: copied at capture, or read in place from the shared buffer.
  settings.threadCount = 2;
  settings.speechHistory = nullptr;
  const auto part = SelectionFrames::capture(buffer, 2.5, 9.25);
  ASSERT_TRUE(part && !part->readsSharedBuffer());
  const auto inPlace = SelectionFrames::sharing(buffer, {2.5, 9.25}, 120000, 324000);
  expectIdentical(analyse(*part, settings), analyse(inPlace, settings));
}

TEST(SelectionAnalysis, AStopRequestAbandonsThePass) {
  const SharedAudioBuffer buffer = toBuffer(programme(kRate, 2, 5.0, 9));
  const auto frames = SelectionFrames::capture(buffer, 0.0, 5.0);
  ASSERT_TRUE(frames.has_value());
  std::stop_source stop;
  stop.request_stop();
  for (int threads : {1, 2}) {
    SelectionAnalysisSettings settings = plainSettings(2);
    settings.threadCount = threads;
    EXPECT_FALSE(runSelectionAnalysis(*frames, settings, stop.get_token()).has_value()) << threads << " threads";
  }
  SelectionAnalysisSettings odd = plainSettings(2);
  odd.fftSize = 1001;
  EXPECT_THROW(runSelectionAnalysis(*frames, odd), std::invalid_argument);
}

}  // namespace
}  // namespace corvane::test
