// Loudness and peak edits against libebur128 and sox: LUFS normalize lands on its target with
// its true peak under the ceiling, the limiter never lets a true peak through and leaves
// what it need not touch alone, peak normalize and normalize by gain hit their levels.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "EditTestSupport.h"
#include "core/ChannelOrder.h"
#include "headless/edits/EditOperations.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;

Audio fromResult(const Ops::EditResult& result) { return Audio{result.channelData, result.sampleRate, {}}; }

TEST(NormalizeLUFSTest, StereoLandsOnTargetWithTruePeakUnderTheCeiling) {
  TemporaryFolder folder;
  const fs::path source = folder / "source.wav";
  soxMake(source, "-r 48000 -b 24 -c 2", "synth 8 pinknoise pinknoise vol 0.08");
  const Audio audio = readAudio(source);
  ASSERT_LT(ebur128Measure(audio).integratedLUFS, -25.0);
  for (const double target : {-16.0, -23.0}) {
    SCOPED_TRACE(target);
    const auto result = Ops::normalizeLUFS(audio.channels, target, -1.0, audio.rate, ChannelOrder::bs1770Weights({}, 2));
    ASSERT_FALSE(result.nothingToDo);
    const Audio out = fromResult(result);
    const auto oracle = ebur128Measure(out);
    EXPECT_NEAR(oracle.integratedLUFS, target, 0.1);
    EXPECT_LE(oracle.truePeakDB, -0.9);
    EXPECT_LE(ourTruePeakDB(out), -1.0);
    std::printf("[ lufs ] target %.1f: libebur128 %.3f LUFS, true peak %.3f dBTP (ours %.3f)\n", target,
                oracle.integratedLUFS, oracle.truePeakDB, ourTruePeakDB(out));
  }
}

TEST(NormalizeLUFSTest, SurroundChannelsAreWeightedAsBS1770Says) {
  // 5.1 with most of the energy in the surrounds, which BS.1770 weights +1.5 dB and the LFE,
  // which it leaves out: a normalize that weighted every channel alike would miss by ~1 LU.
  const double rate = 48000;
  const FrameCount frames = 5 * 48000;
  std::mt19937 random(7);
  std::normal_distribution<float> noise(0.0f, 1.0f);
  const float levels[6] = {0.01f, 0.01f, 0.01f, 0.2f, 0.05f, 0.05f};
  Audio audio{ChannelData(6, std::vector<float>(frames)), rate,
              {ChannelPosition::FrontLeft, ChannelPosition::FrontRight, ChannelPosition::FrontCenter,
               ChannelPosition::LowFrequency, ChannelPosition::BackLeft, ChannelPosition::BackRight}};
  for (int c = 0; c < 6; ++c) {
    for (FrameCount i = 0; i < frames; ++i) {
      const float tone = c == 3 ? std::sin(2.0f * static_cast<float>(M_PI) * 50.0f * static_cast<float>(i) / 48000.0f) : 0.0f;
      audio.channels[c][i] = c == 3 ? levels[c] * tone : levels[c] * noise(random);
    }
  }
  const auto weights = ChannelOrder::bs1770Weights(audio.positions, 6);
  const auto result = Ops::normalizeLUFS(audio.channels, -20.0, -1.0, rate, weights);
  ASSERT_FALSE(result.nothingToDo);
  EXPECT_NEAR(ebur128Measure(fromResult(result), true).integratedLUFS, -20.0, 0.1);
}

TEST(NormalizeLUFSTest, LoudTargetsAreLimitedAndNeverOvershoot) {
  TemporaryFolder folder;
  const fs::path source = folder / "source.wav";
  soxMake(source, "-r 44100 -b 16 -c 2", "synth 6 pinknoise pinknoise vol 0.3");
  const Audio audio = readAudio(source);
  const double inputLUFS = ebur128Measure(audio).integratedLUFS;
  // At −10 LUFS the peaks need about a dB of limiting; the lost loudness is made up.
  ASSERT_GT(ourTruePeakDB(audio) + (-10.0 - inputLUFS), -0.5);
  const Audio moderate = fromResult(Ops::normalizeLUFS(audio.channels, -10.0, -1.0, audio.rate, {}));
  EXPECT_NEAR(ebur128Measure(moderate).integratedLUFS, -10.0, 0.1);
  EXPECT_LE(ourTruePeakDB(moderate), -1.0);
  EXPECT_LE(ebur128Measure(moderate).truePeakDB, -0.9);
  // At −8 LUFS pink noise must lose its crest to the limiter: under the ceiling, and at or a
  // little below the target, never above it.
  const Audio out = fromResult(Ops::normalizeLUFS(audio.channels, -8.0, -1.0, audio.rate, {}));
  const auto oracle = ebur128Measure(out);
  EXPECT_LE(ourTruePeakDB(out), -1.0);
  EXPECT_LE(oracle.truePeakDB, -0.9);
  EXPECT_LE(oracle.integratedLUFS, -8.0 + 0.05);
  EXPECT_GT(oracle.integratedLUFS, -9.0);
  EXPECT_TRUE(Ops::normalizeLUFS(ChannelData(2, std::vector<float>(48000, 0.0f)), -16.0, -1.0, 48000, {}).nothingToDo);
  // Too short for a 400 ms gating block: no loudness to normalize.
  EXPECT_TRUE(Ops::normalizeLUFS(ChannelData(1, std::vector<float>(4800, 0.1f)), -16.0, -1.0, 48000, {}).nothingToDo);
}

// Signals whose true peak lies well above their sample peak, the limiter's hard cases.
Audio hardCase(int which) {
  const double rate = 48000;
  const FrameCount frames = 4 * 48000;
  Audio audio{ChannelData(2, std::vector<float>(frames, 0.0f)), rate, {}};
  std::mt19937 random(11 + which);
  std::normal_distribution<float> noise(0.0f, 1.0f);
  for (FrameCount i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    float left = 0.0f, right = 0.0f;
    switch (which) {
      case 0:  // fs/4 at 45°: every sample at 0.707 of the true peak, which is +3 dB over full scale
        left = right = static_cast<float>(1.41 * std::sin(2.0 * M_PI * 12000.0 * t + M_PI / 4.0));
        break;
      case 1:  // a square wave with its overshoot, hard-clipped noise in the other channel
        left = static_cast<float>(std::sin(2.0 * M_PI * 997.0 * t) >= 0.0 ? 0.99 : -0.99);
        right = std::clamp(0.6f * noise(random), -1.0f, 1.0f);
        break;
      default:  // isolated single-sample clicks at full scale over quiet noise
        left = right = 0.01f * noise(random);
        if (i % 9601 == 4800) left = right = (i / 9601) % 2 ? 1.0f : -1.0f;
        break;
    }
    audio.channels[0][i] = left;
    audio.channels[1][i] = right;
  }
  return audio;
}

TEST(LimitTruePeakTest, OutputTruePeakNeverAboveTheCeiling) {
  for (int which = 0; which < 3; ++which) {
    for (const double ceiling : {-1.0, -0.1, -6.0}) {
      SCOPED_TRACE("case " + std::to_string(which) + ", ceiling " + std::to_string(ceiling));
      const Audio audio = hardCase(which);
      ASSERT_GT(ourTruePeakDB(audio), ceiling);
      const auto result = Ops::limitTruePeak(audio.channels, ceiling, audio.rate);
      ASSERT_FALSE(result.nothingToDo);
      const Audio out = fromResult(result);
      ASSERT_EQ(out.frames(), audio.frames());
      EXPECT_LE(ourTruePeakDB(out), ceiling);
      EXPECT_LE(ebur128Measure(out).truePeakDB, ceiling + 0.1);
      std::printf("[ limit ] case %d, ceiling %.1f: ours %.3f dBTP, libebur128 %.3f dBTP\n", which, ceiling,
                  ourTruePeakDB(out), ebur128Measure(out).truePeakDB);
    }
  }
}

TEST(LimitTruePeakTest, LeavesAlignedAudioUntouchedAwayFromThePeaks) {
  // One second of a quiet tone, a loud burst, then the tone again.
  const double rate = 48000;
  const FrameCount frames = 3 * 48000;
  Audio audio{ChannelData(1, std::vector<float>(frames)), rate, {}};
  for (FrameCount i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    const double level = i >= 48000 && i < 52800 ? 1.2 : 0.05;
    audio.channels[0][i] = static_cast<float>(level * std::sin(2.0 * M_PI * 440.0 * t));
  }
  const auto result = Ops::limitTruePeak(audio.channels, -1.0, rate);
  ASSERT_FALSE(result.nothingToDo);
  const auto& out = result.channelData[0];
  // Before the 5 ms look-ahead of the burst, sample for sample the input, in its place.
  for (FrameCount i = 0; i < 48000 - 260; ++i) ASSERT_EQ(out[i], audio.channels[0][i]) << i;
  // After the release, back to the input within float rounding of a gain near 1.
  for (FrameCount i = 52800 + 48000; i < frames; ++i) ASSERT_NEAR(out[i], audio.channels[0][i], 1e-6) << i;
  // And nothing to do where nothing passes the ceiling.
  EXPECT_TRUE(Ops::limitTruePeak(audio.channels, 3.0, rate).nothingToDo);
}

TEST(NormalizePeakTest, LargestSampleLandsOnTheTargetBySoxStats) {
  TemporaryFolder folder;
  const fs::path source = folder / "source.wav";
  soxMake(source, "-r 48000 -b 24 -c 2", "synth 2 pinknoise sine 220 vol 0.2");
  const Audio audio = readAudio(source);
  for (const double target : {-1.0, -0.1, -12.0}) {
    const auto result = Ops::normalizePeak(audio.channels, target, audio.rate);
    const fs::path out = folder / "out.wav";
    writeFloatWav(out, fromResult(result));
    EXPECT_NEAR(soxStats(out).peakDB, target, 0.01) << target;
    // A pure gain: the RMS moves by as much as the peak.
    EXPECT_NEAR(soxStats(out).rmsDB - soxStats(source).rmsDB, target - soxStats(source).peakDB, 0.01);
  }
  EXPECT_TRUE(Ops::normalizePeak(ChannelData(2, std::vector<float>(100, 0.0f)), -1.0, 48000).nothingToDo);
}

TEST(NormalizeByGainTest, GainsThenLimitsAtTheCeiling) {
  TemporaryFolder folder;
  const fs::path source = folder / "source.wav";
  soxMake(source, "-r 48000 -b 24 -c 2", "synth 3 pinknoise pinknoise vol 0.05");
  const Audio audio = readAudio(source);
  // Room enough: a pure gain of 6 dB.
  const auto quiet = Ops::normalizeByGain(audio.channels, 6.0, -1.0, audio.rate);
  const fs::path out = folder / "out.wav";
  writeFloatWav(out, fromResult(quiet));
  EXPECT_NEAR(soxStats(out).rmsDB - soxStats(source).rmsDB, 6.0, 0.01);
  // Too much gain for the ceiling: limited under it.
  const auto loud = Ops::normalizeByGain(audio.channels, 30.0, -1.0, audio.rate);
  EXPECT_LE(ourTruePeakDB(fromResult(loud)), -1.0);
  EXPECT_LE(ebur128Measure(fromResult(loud)).truePeakDB, -0.9);
  EXPECT_TRUE(Ops::normalizeByGain(audio.channels, 0.0, 0.0, audio.rate).nothingToDo);
}

}  // namespace
}  // namespace corvane::test
