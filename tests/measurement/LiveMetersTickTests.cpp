// The live meters' display tick, driven tick by tick with analysis rings written here and a
// loudness processor fed here, on a clock the test moves.
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "core/LoudnessProcessor.h"
#include "measurement/LiveMeters.h"
#include "playback/RenderMirrors.h"

namespace corvane {
namespace {

constexpr double kRate = 48000.0;
constexpr double kTickSec = 1.0 / 30.0;

std::vector<float> sine(int frames, double frequency, double amplitude, double phase = 0.0) {
  std::vector<float> out(static_cast<std::size_t>(frames));
  for (int i = 0; i < frames; ++i) {
    out[static_cast<std::size_t>(i)] =
        static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * frequency * i / kRate + phase));
  }
  return out;
}

std::vector<float> noise(int frames, unsigned seed, double amplitude = 0.3) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> dist(static_cast<float>(-amplitude), static_cast<float>(amplitude));
  std::vector<float> out(static_cast<std::size_t>(frames));
  for (auto& s : out) s = dist(gen);
  return out;
}

std::vector<float> negated(std::vector<float> s) {
  for (auto& v : s) v = -v;
  return s;
}

std::size_t peakBin(const std::vector<float>& mags) {
  return static_cast<std::size_t>(std::max_element(mags.begin(), mags.end()) - mags.begin());
}

float maxOf(const std::vector<float>& mags) { return *std::max_element(mags.begin(), mags.end()); }

// Live meters prepared for a file, with the rings the render callback would write.
struct TickRig {
  RenderMirrors mirrors;
  LiveMeters meters;
  double clock = 0.0;

  TickRig(int channels, int fftSize) {
    meters.prepareForFile(channels, kRate, fftSize, FFTWindowType::Hann, mirrors);
    meters.setClock([this] { return clock; });
  }
  const AnalysisRings& rings() const { return *mirrors._atomicAnalysisRings.current(); }
  void write(int channel, const std::vector<float>& samples) {
    rings().rings[static_cast<std::size_t>(channel)]->write(samples.data(), static_cast<int>(samples.size()));
  }
  void tick(double currentTime, bool playing, const LoudnessProcessor* loudness = nullptr) {
    DisplayTickInput in;
    in.currentTime = currentTime;
    in.isPlaying = playing;
    in.rings = &rings();
    in.loudness = loudness;
    meters.updateDisplayState(in);
  }
};

TEST(LiveMetersTick, SpectraReadSilentUntilTheRingHoldsAWholeWindow) {
  TickRig rig(2, 1024);
  // 3 kHz lies on bin 64 of a 1024-point transform at 48 kHz.
  const auto tone = sine(1024, 3000.0, 0.5);
  const std::vector<float> firstPart(tone.begin(), tone.end() - 1);
  rig.write(0, firstPart);
  rig.write(1, firstPart);
  rig.tick(0.02, true);
  const auto& early = *rig.meters.fftMagnitudes();
  ASSERT_EQ(early.size(), 2u);
  for (const auto& channel : early) {
    ASSERT_EQ(channel.size(), 512u);
    EXPECT_TRUE(std::all_of(channel.begin(), channel.end(), [](float v) { return v == LiveMeters::kSilentBinDB; }));
  }
  EXPECT_FALSE(rig.meters.msMagnitudes());

  // One channel full, the other not: each reads for itself; mid and side wait for both.
  rig.write(0, {tone.back()});
  rig.tick(0.04, true);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[0]), 64u);
  EXPECT_GT(maxOf((*rig.meters.fftMagnitudes())[0]), LiveMeters::kSilentBinDB + 40.0f);
  EXPECT_EQ(maxOf((*rig.meters.fftMagnitudes())[1]), LiveMeters::kSilentBinDB);
  EXPECT_FALSE(rig.meters.msMagnitudes());

  rig.write(1, {tone.back()});
  rig.tick(0.06, true);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[1]), 64u);
  ASSERT_TRUE(rig.meters.msMagnitudes());
  // Identical channels: all of it is mid, nothing is side.
  const auto& ms = *rig.meters.msMagnitudes();
  EXPECT_EQ(peakBin(ms.mid), 64u);
  EXPECT_NEAR(maxOf(ms.mid), maxOf((*rig.meters.fftMagnitudes())[0]), 0.01f);
  EXPECT_LT(maxOf(ms.side), maxOf(ms.mid) - 60.0f);
}

TEST(LiveMetersTick, AMonoFileHasNoMidAndSide) {
  TickRig rig(1, 512);
  rig.write(0, sine(512, 3000.0, 0.5));
  rig.tick(0.1, true);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[0]), 32u);
  EXPECT_FALSE(rig.meters.msMagnitudes());
  EXPECT_FALSE(rig.meters.midProcessor());
}

// Feeds a rising 997 Hz tone, one tick's worth at a time, so that every loudness figure moves
// between any two ticks; returns the ticks at which the momentary and the true-peak readings
// changed.
struct ReadoutCount {
  std::vector<int> momentaryTicks;
  int truePeakChanges = 0;
  int integratedChanges = 0;
};

ReadoutCount runReadout(MeterReadoutRate rate, bool playing) {
  TickRig rig(1, 256);
  rig.meters.setMeterReadoutRate(rate);
  LoudnessProcessor loudness(kRate, 1);
  double amplitude = 0.05;
  auto feed = [&](int frames) {
    auto s = sine(frames, 997.0, amplitude);
    const float* p = s.data();
    loudness.updateTruePeak(&p, frames);
    loudness.process(&p, frames);
  };
  feed(static_cast<int>(kRate));  // a full momentary window before the first tick
  QSignalSpy momentary(&rig.meters, &LiveMeters::momentaryLUFSChanged);
  QSignalSpy truePeak(&rig.meters, &LiveMeters::truePeakDBChanged);
  QSignalSpy integrated(&rig.meters, &LiveMeters::integratedLUFSChanged);
  ReadoutCount count;
  for (int tick = 0; tick < 30; ++tick) {
    amplitude *= 1.02;
    feed(1600);
    const int before = static_cast<int>(momentary.count());
    rig.tick(1.0 + tick * kTickSec, playing, &loudness);
    if (momentary.count() > before) count.momentaryTicks.push_back(tick);
    rig.clock += kTickSec;
  }
  count.truePeakChanges = static_cast<int>(truePeak.count());
  count.integratedChanges = static_cast<int>(integrated.count());
  return count;
}

std::vector<int> everyNth(int n) {
  std::vector<int> ticks;
  for (int t = 0; t < 30; t += n) ticks.push_back(t);
  return ticks;
}

TEST(LiveMetersTick, LoudnessReadOutsFollowTheReadoutRateWhileTheTruePeakFollowsEveryTick) {
  const auto hz10 = runReadout(MeterReadoutRate::hz10, true);
  EXPECT_EQ(hz10.momentaryTicks, everyNth(3));
  EXPECT_EQ(hz10.integratedChanges, 10);
  EXPECT_EQ(hz10.truePeakChanges, 30);
  const auto hz5 = runReadout(MeterReadoutRate::hz5, true);
  EXPECT_EQ(hz5.momentaryTicks, everyNth(6));
  EXPECT_EQ(hz5.truePeakChanges, 30);
  const auto hz2 = runReadout(MeterReadoutRate::hz2, true);
  EXPECT_EQ(hz2.momentaryTicks, everyNth(15));
  EXPECT_EQ(hz2.truePeakChanges, 30);
  // A still transport reads every tick.
  const auto still = runReadout(MeterReadoutRate::hz2, false);
  EXPECT_EQ(still.momentaryTicks, everyNth(1));
}

TEST(LiveMetersTick, CurvesTakeAPointEveryNinetyMillisecondsOnlyWhilePlayingAndKeepTheNewest80000) {
  TickRig rig(2, 64);
  LoudnessProcessor loudness(kRate, 2);
  // At 30 ticks a second a point every third tick (0.1 s of playhead time).
  for (int tick = 0; tick < 30; ++tick) rig.tick(tick * kTickSec, true, &loudness);
  ASSERT_EQ(rig.meters.liveLoudnessCurve().size(), 10u);
  ASSERT_EQ(rig.meters.liveStereoWidthCurve().size(), 10u);
  for (std::size_t i = 1; i < rig.meters.liveLoudnessCurve().size(); ++i) {
    EXPECT_GE(rig.meters.liveLoudnessCurve()[i].time - rig.meters.liveLoudnessCurve()[i - 1].time, 0.09 - 1e-9);
  }
  rig.tick(5.0, false, &loudness);
  EXPECT_EQ(rig.meters.liveLoudnessCurve().size(), 10u);
  EXPECT_EQ(rig.meters.liveTruePeakCurve().size(), 10u);

  rig.meters.clearLiveCurves();
  const LiveLoudnessCurve published = rig.meters.liveLoudnessCurve();
  for (int point = 0; point < 80010; ++point) rig.tick(point * 0.1, true, &loudness);
  for (const std::size_t size : {rig.meters.liveLoudnessCurve().size(), rig.meters.liveTruePeakCurve().size(),
                                 rig.meters.liveStereoWidthCurve().size()}) {
    EXPECT_EQ(size, LiveMeters::kMaxCurvePoints);
  }
  EXPECT_NEAR(rig.meters.liveLoudnessCurve().front().time, 1.0, 1e-9);
  EXPECT_NEAR(rig.meters.liveTruePeakCurve().front().time, 1.0, 1e-9);
  EXPECT_NEAR(rig.meters.liveStereoWidthCurve().front().time, 1.0, 1e-9);
  EXPECT_NEAR(rig.meters.liveLoudnessCurve().back().time, 8000.9, 1e-6);
  EXPECT_TRUE(published.empty());
}

TEST(LiveMetersTick, SpectrogramMakesAtMost64ColumnsATickAnd1800InAll) {
  TickRig rig(2, 4096);
  rig.meters.setSpectrogramOverlapFactor(64);  // hop 64 frames
  for (int c = 0; c < 2; ++c) rig.write(c, noise(4 * 4096, 10 + c));
  rig.tick(10.0, true);
  ASSERT_EQ(rig.meters.liveSpectrogramColumns().size(), 1u);
  EXPECT_DOUBLE_EQ(rig.meters.liveSpectrogramColumns()[0].time, 10.0);
  EXPECT_EQ(rig.meters.liveSpectrogramColumns()[0].mags.size(), 2048u);

  // A jump forward beyond what the ring holds: the next column starts 3 windows back (0.256 s),
  // and of the 193 columns due only 64 are made this tick.
  QSignalSpy columnsChanged(&rig.meters, &LiveMeters::liveSpectrogramColumnsChanged);
  rig.tick(11.0, true);
  EXPECT_EQ(columnsChanged.count(), 1);
  ASSERT_EQ(rig.meters.liveSpectrogramColumns().size(), 65u);
  EXPECT_NEAR(rig.meters.liveSpectrogramColumns()[1].time, 11.0 - 3.0 * 4096 / kRate, 1e-9);
  EXPECT_NEAR(rig.meters.liveSpectrogramColumns()[2].time - rig.meters.liveSpectrogramColumns()[1].time, 64 / kRate,
              1e-9);
  for (int tick = 0; tick < 30; ++tick) rig.tick(12.0 + tick, true);
  const auto& columns = rig.meters.liveSpectrogramColumns();
  EXPECT_EQ(columns.size(), LiveMeters::kMaxSpectrogramColumns);
  for (std::size_t i = 1; i < columns.size(); ++i) ASSERT_GT(columns[i].time, columns[i - 1].time);
}

TEST(LiveMetersTick, SpectrogramHopNeverFallsBelow64Frames) {
  TickRig rig(1, 1024);
  rig.meters.setSpectrogramOverlapFactor(64);  // 1024 / 64 = 16 frames, raised to 64
  rig.write(0, noise(4 * 1024, 5));
  rig.tick(1.0, true);
  rig.tick(1.0 + 660 / kRate, true);  // ten hops of 64 frames later, and a little
  const auto& columns = rig.meters.liveSpectrogramColumns();
  ASSERT_EQ(columns.size(), 11u);
  for (std::size_t i = 1; i < columns.size(); ++i) EXPECT_NEAR(columns[i].time - columns[i - 1].time, 64 / kRate, 1e-9);
}

TEST(LiveMetersTick, SpectrogramKeepsItsColumnsOverASmallJumpBackAndStartsOverAfterALargeOne) {
  TickRig rig(1, 1024);  // hop 256 frames at the default overlap of 4
  rig.write(0, noise(4 * 1024, 3));
  rig.tick(2.0, true);
  rig.tick(2.0 + kTickSec, true);
  const std::size_t made = rig.meters.liveSpectrogramColumns().size();
  ASSERT_GT(made, 1u);
  const double last = rig.meters.liveSpectrogramColumns().back().time;
  // Back by 0.3 s: the columns stay, and none is made before the playhead catches up.
  rig.tick(last - 0.3, true);
  EXPECT_EQ(rig.meters.liveSpectrogramColumns().size(), made);
  rig.tick(last, true);
  EXPECT_EQ(rig.meters.liveSpectrogramColumns().size(), made);
  // Back by more than 0.5 s: they go, and the column of the new place is the first.
  rig.tick(last - 0.6, true);
  ASSERT_EQ(rig.meters.liveSpectrogramColumns().size(), 1u);
  EXPECT_DOUBLE_EQ(rig.meters.liveSpectrogramColumns()[0].time, last - 0.6);
  // A still transport makes none.
  rig.tick(last + 1.0, false);
  EXPECT_EQ(rig.meters.liveSpectrogramColumns().size(), 1u);
}

TEST(LiveMetersTick, SpectrogramColumnShowsTheChosenChannelOrThePowerMeanOfAll) {
  TickRig rig(2, 1024);
  rig.write(0, sine(4 * 1024, 3000.0, 0.5));
  rig.write(1, std::vector<float>(4 * 1024, 0.0f));
  rig.meters.setSpectrogramChannelIndex(0);
  rig.tick(1.0, true);
  const float channelPeak = maxOf(rig.meters.liveSpectrogramColumns().back().mags);
  EXPECT_EQ(peakBin(rig.meters.liveSpectrogramColumns().back().mags), 64u);
  EXPECT_NEAR(channelPeak, maxOf((*rig.meters.fftMagnitudes())[0]), 0.01f);

  // A channel the file doesn't have: the mean power of both, the tone's half: −3.01 dB.
  rig.meters.setSpectrogramChannelIndex(5);
  rig.tick(1.0 + 1024 / kRate, true);
  const auto& mixed = rig.meters.liveSpectrogramColumns().back().mags;
  EXPECT_EQ(peakBin(mixed), 64u);
  EXPECT_NEAR(maxOf(mixed), channelPeak - 10.0f * std::log10(2.0f), 0.01f);
  // The mean never reads below its power floor of −160 dB, even over silence.
  rig.meters.setSpectrogramChannelIndex(1);
  rig.tick(1.0 + 2048 / kRate, true);
  rig.meters.setSpectrogramChannelIndex(std::nullopt);
  rig.write(0, std::vector<float>(4 * 1024, 0.0f));
  rig.tick(1.0 + 3072 / kRate, true);
  const auto& silent = rig.meters.liveSpectrogramColumns().back().mags;
  EXPECT_GE(*std::min_element(silent.begin(), silent.end()), -160.0f - 1e-3f);
}

TEST(LiveMetersTick, CorrelationReadsOneForMonoMinusOneForInvertedAndAboutZeroForUnrelated) {
  TickRig rig(2, 4096);
  const int fill = 4 * 4096;  // the whole ring, so that every column window holds the new pair
  const auto left = noise(fill, 21);
  rig.write(0, left);
  rig.write(1, left);
  rig.tick(1.0, true);
  ASSERT_EQ(rig.meters.liveStereoWidthCurve().size(), 1u);
  EXPECT_NEAR(rig.meters.liveStereoWidthCurve().back().correlation, 1.0f, 1e-5f);

  const auto second = noise(fill, 22);
  rig.write(0, second);
  rig.write(1, negated(second));
  rig.tick(1.1, true);
  ASSERT_EQ(rig.meters.liveStereoWidthCurve().size(), 2u);
  EXPECT_NEAR(rig.meters.liveStereoWidthCurve().back().correlation, -1.0f, 1e-5f);

  rig.write(0, noise(fill, 23));
  rig.write(1, noise(fill, 24));
  rig.tick(1.2, true);
  ASSERT_EQ(rig.meters.liveStereoWidthCurve().size(), 3u);
  // 4096 samples of independent noise: a standard deviation of 1/64.
  EXPECT_LT(std::abs(rig.meters.liveStereoWidthCurve().back().correlation), 0.06f);

  const std::vector<float> quiet(16, 0.0f);
  EXPECT_EQ(stereoCorrelation(quiet.data(), quiet.data(), 16), 0.0f);
  EXPECT_EQ(stereoCorrelation(left.data(), left.data(), 0), 0.0f);
}

TEST(LiveMetersTick, ANewWindowSizeRebuildsRingsAndProcessorsAndStartsTheColumnsOver) {
  TickRig rig(2, 1024);
  for (int c = 0; c < 2; ++c) rig.write(c, sine(4 * 1024, 3000.0, 0.5));
  rig.tick(1.0, true);
  ASSERT_FALSE(rig.meters.liveSpectrogramColumns().empty());
  const AnalysisRings* before = &rig.rings();

  EXPECT_FALSE(rig.meters.setFftSize(1024, rig.mirrors));  // no change
  EXPECT_FALSE(rig.meters.setFftSize(3000, rig.mirrors));  // not a power of two
  EXPECT_EQ(&rig.rings(), before);
  ASSERT_TRUE(rig.meters.setFftSize(2048, rig.mirrors));
  EXPECT_NE(&rig.rings(), before);
  EXPECT_EQ(rig.rings().channelCount(), 2);
  EXPECT_EQ(rig.rings().rings[0]->capacity(), 4 * 2048);
  EXPECT_EQ(rig.rings().rings[0]->filledCount(), 0);
  EXPECT_FALSE(rig.meters.fftMagnitudes());
  EXPECT_TRUE(rig.meters.liveSpectrogramColumns().empty());
  EXPECT_DOUBLE_EQ(rig.meters.nextSpectrogramColumnTime, -1.0);

  // The new rings fill at the new size: 3 kHz is bin 128 of 2048 points.
  for (int c = 0; c < 2; ++c) rig.write(c, sine(2048, 3000.0, 0.5));
  rig.tick(1.5, true);
  ASSERT_EQ((*rig.meters.fftMagnitudes())[0].size(), 1024u);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[1]), 128u);
  ASSERT_TRUE(rig.meters.msMagnitudes());
  EXPECT_EQ(rig.meters.msMagnitudes()->mid.size(), 1024u);
  ASSERT_EQ(rig.meters.liveSpectrogramColumns().size(), 1u);
  EXPECT_EQ(rig.meters.liveSpectrogramColumns()[0].mags.size(), 1024u);
}

TEST(LiveMetersTick, RecomputeAtPlayheadTakesTheWindowEndingThere) {
  TickRig rig(2, 1024);
  auto buffer = AudioBuffer::createZeroed(2, 96000, kRate);
  // First second 1500 Hz (bin 32), second second 6000 Hz (bin 128).
  const auto low = sine(48000, 1500.0, 0.5);
  const auto high = sine(48000, 6000.0, 0.5);
  for (int c = 0; c < 2; ++c) {
    std::copy(low.begin(), low.end(), buffer->channel(c));
    std::copy(high.begin(), high.end(), buffer->channel(c) + 48000);
  }
  rig.meters.recomputeFFTAtPlayhead(buffer.get(), 1.5);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[0]), 128u);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[1]), 128u);
  ASSERT_TRUE(rig.meters.msMagnitudes());
  EXPECT_EQ(peakBin(rig.meters.msMagnitudes()->mid), 128u);
  // At the start the window is raised to the first fftSize frames; past the end it is the last.
  rig.meters.recomputeFFTAtPlayhead(buffer.get(), 0.0);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[0]), 32u);
  rig.meters.recomputeFFTAtPlayhead(buffer.get(), 7.0);
  EXPECT_EQ(peakBin((*rig.meters.fftMagnitudes())[0]), 128u);
  // A buffer shorter than a window, or of another channel count, changes nothing.
  const auto before = rig.meters.fftMagnitudes();
  rig.meters.recomputeFFTAtPlayhead(AudioBuffer::createZeroed(2, 1000, kRate).get(), 0.0);
  rig.meters.recomputeFFTAtPlayhead(AudioBuffer::createZeroed(1, 96000, kRate).get(), 0.0);
  EXPECT_EQ(rig.meters.fftMagnitudes(), before);
}

}  // namespace
}  // namespace corvane
