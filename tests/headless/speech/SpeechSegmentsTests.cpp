// Silero's hysteresis and the placing of segments on blocks, against sequences worked out by
// hand. At 16 kHz a window is 512 samples (32 ms); the padding is 480 samples (30 ms).
#include <gtest/gtest.h>

#include "headless/speech/SpeechSegments.h"

namespace corvane {
namespace {

constexpr int kWindow = 512;
constexpr int kRate = 16000;

std::vector<float> sequence(std::initializer_list<std::pair<float, int>> runs) {
  std::vector<float> p;
  for (const auto& [value, count] : runs) p.insert(p.end(), static_cast<std::size_t>(count), value);
  return p;
}

std::vector<SpeechSegment> detect(const std::vector<float>& p, const SileroVADTuning& tuning = {}, double pad = 0) {
  return detectSpeechSegments(p, kWindow, kRate, static_cast<std::int64_t>(p.size()) * kWindow, tuning, pad);
}

TEST(SpeechSegments, StartsAtTheThresholdAndEndsAfterTheMinimumSilence) {
  // Speech in windows 2..9; the first low window (10) is the end; the minimum silence of
  // 1600 samples has passed at window 14 (7168 − 5120 = 2048), not at 13 (1536).
  const auto p = sequence({{0.1f, 2}, {0.5f, 8}, {0.2f, 10}});
  EXPECT_EQ(detect(p), (std::vector<SpeechSegment>{{2 * kWindow, 10 * kWindow}}));
  // Just under the threshold starts nothing.
  EXPECT_TRUE(detect(sequence({{0.1f, 2}, {0.4999f, 8}, {0.2f, 10}})).empty());
  // The threshold is the tuning's: 0.7 ignores the 0.5 windows, and its lower threshold is 0.55.
  SileroVADTuning strict;
  strict.threshold = 0.7;
  EXPECT_EQ(detect(sequence({{0.5f, 3}, {0.8f, 5}, {0.6f, 2}, {0.5f, 10}}), strict),
            (std::vector<SpeechSegment>{{3 * kWindow, 10 * kWindow}}));
}

TEST(SpeechSegments, ProbabilitiesBetweenTheThresholdsKeepSpeechGoing) {
  // 0.4 lies between the lower threshold (0.35) and the threshold: neither an end nor a start.
  const auto p = sequence({{0.9f, 5}, {0.4f, 20}, {0.9f, 5}, {0.0f, 10}});
  EXPECT_EQ(detect(p), (std::vector<SpeechSegment>{{0, 30 * kWindow}}));
  // A window at 0.4 neither cancels a possible end nor confirms it: only a window below the
  // lower threshold does. Here the probability comes back before another low window...
  const auto q = sequence({{0.9f, 5}, {0.2f, 2}, {0.4f, 3}, {0.9f, 5}});
  EXPECT_EQ(detect(q), (std::vector<SpeechSegment>{{0, 15 * kWindow}}));
  // ...and here a low window at 10 confirms the end at window 5 (5120 − 2560 ≥ 1600).
  const auto r = sequence({{0.9f, 5}, {0.2f, 2}, {0.4f, 3}, {0.2f, 1}, {0.9f, 5}});
  EXPECT_EQ(detect(r), (std::vector<SpeechSegment>{{0, 5 * kWindow}, {11 * kWindow, 16 * kWindow}}));
}

TEST(SpeechSegments, AWindowBackAtTheThresholdCancelsTheEnd) {
  // Four low windows: at the fourth, 1536 samples have passed since the possible end, under the
  // 1600 of the minimum silence, so speech goes on.
  EXPECT_EQ(detect(sequence({{0.9f, 5}, {0.1f, 4}, {0.9f, 5}, {0.0f, 10}})),
            (std::vector<SpeechSegment>{{0, 14 * kWindow}}));
  // Five low windows end it (2048 samples).
  EXPECT_EQ(detect(sequence({{0.9f, 5}, {0.1f, 5}, {0.9f, 5}, {0.0f, 10}})),
            (std::vector<SpeechSegment>{{0, 5 * kWindow}, {10 * kWindow, 15 * kWindow}}));
  // A minimum silence of one second bridges the same pause.
  SileroVADTuning patient;
  patient.minSilenceDurationSec = 1.0;
  EXPECT_EQ(detect(sequence({{0.9f, 5}, {0.1f, 5}, {0.9f, 5}, {0.0f, 40}}), patient),
            (std::vector<SpeechSegment>{{0, 15 * kWindow}}));
}

TEST(SpeechSegments, SpeechNotLongerThanTheMinimumIsDropped) {
  // Three windows are 1536 samples, not above the 1600 of 0.1 s; four windows are 2048.
  EXPECT_TRUE(detect(sequence({{0.0f, 3}, {0.9f, 3}, {0.0f, 10}})).empty());
  EXPECT_EQ(detect(sequence({{0.0f, 3}, {0.9f, 4}, {0.0f, 10}})),
            (std::vector<SpeechSegment>{{3 * kWindow, 7 * kWindow}}));
  SileroVADTuning longer;
  longer.minSpeechDurationSec = 0.25;
  EXPECT_TRUE(detect(sequence({{0.0f, 3}, {0.9f, 7}, {0.0f, 10}}), longer).empty());
  EXPECT_EQ(detect(sequence({{0.0f, 3}, {0.9f, 8}, {0.0f, 10}}), longer).size(), 1u);
}

TEST(SpeechSegments, SpeechOpenAtTheEndClosesAtTheLastSample) {
  const auto p = sequence({{0.0f, 4}, {0.9f, 6}});
  const auto segments = detectSpeechSegments(p, kWindow, kRate, 4900, {}, 0);
  EXPECT_EQ(segments, (std::vector<SpeechSegment>{{4 * kWindow, 4900}}));
  // Open speech that is too short at the end is dropped too: 4900 − 3584 = 1316 samples.
  EXPECT_TRUE(detectSpeechSegments(sequence({{0.0f, 7}, {0.9f, 3}}), kWindow, kRate, 4900, {}, 0).empty());
}

TEST(SpeechSegments, PaddingWidensSegmentsAndSplitsShortPauses) {
  SileroVADTuning instant;
  instant.minSilenceDurationSec = 0;
  // Segments [2048, 5120) and [5632, 8704): the 512-sample pause is under two paddings (960),
  // so each side takes half of it; the outer ends move by 480 samples.
  const auto p = sequence({{0.0f, 4}, {0.9f, 6}, {0.0f, 1}, {0.9f, 6}, {0.0f, 4}});
  EXPECT_EQ(detect(p, instant, kSpeechPaddingSec),
            (std::vector<SpeechSegment>{{2048 - 480, 5120 + 256}, {5632 - 256, 8704 + 480}}));
  // A wide pause keeps the full padding on both sides; ends are clamped to the signal.
  const auto q = sequence({{0.9f, 6}, {0.0f, 5}, {0.9f, 6}});
  EXPECT_EQ(detect(q, instant, kSpeechPaddingSec),
            (std::vector<SpeechSegment>{{0, 3072 + 480}, {5632 - 480, 17 * kWindow}}));
}

TEST(SpeechSegments, BlockCountsFollowTheLoudnessBlocks) {
  EXPECT_EQ(speechBlockFrames(44100), 4410);
  EXPECT_EQ(speechBlockFrames(22050), 2205);
  EXPECT_EQ(speechBlockFrames(11025), 1103);  // 1102.5 rounds away from zero
  EXPECT_EQ(speechBlockFrames(5), 1);
  EXPECT_EQ(speechBlockCount(0, 48000), 0);
  EXPECT_EQ(speechBlockCount(1, 48000), 1);
  EXPECT_EQ(speechBlockCount(48000, 48000), 10);
  EXPECT_EQ(speechBlockCount(48001, 48000), 11);
  EXPECT_EQ(speechBlockCount(8000, 44100), 2);
}

TEST(SpeechSegments, BlocksAreSpeechWhenTheirMiddleIsInASegment) {
  // 16 kHz segments onto a 48 kHz source of 3 s: 30 blocks of 4800 frames; block b's middle is
  // at (b + ½)·0.1 s.
  const FrameCount frames = 3 * 48000;
  auto history = [&](std::int64_t start, std::int64_t end) {
    const std::vector<SpeechSegment> s{{start, end}};
    return speechHistoryFromSegments(s, 16000, frames, 48000);
  };
  std::vector<bool> expected(30, false);
  for (int b = 10; b < 20; ++b) expected[b] = true;
  EXPECT_EQ(history(16000, 32000), expected);
  // Starting exactly at block 10's middle (1.05 s) still takes it; a sample later does not.
  EXPECT_EQ(history(16800, 32000), expected);
  expected[10] = false;
  EXPECT_EQ(history(16801, 32000), expected);
  // Ending exactly at block 19's middle (1.95 s) leaves it out (half-open).
  expected[10] = true;
  expected[19] = false;
  EXPECT_EQ(history(16000, 31200), expected);
  // The last, partial block of a 2.95 s source has its middle at 2.925 s.
  const FrameCount shorter = 141600;
  const std::vector<SpeechSegment> tail{{46790, 47200}};
  const auto h = speechHistoryFromSegments(tail, 16000, shorter, 48000);
  ASSERT_EQ(h.size(), 30u);
  EXPECT_TRUE(h[29]);
  EXPECT_FALSE(h[28]);
  const std::vector<SpeechSegment> late{{46801, 47200}};
  EXPECT_FALSE(speechHistoryFromSegments(late, 16000, shorter, 48000)[29]);
}

}  // namespace
}  // namespace corvane
