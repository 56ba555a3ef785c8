// LoudnessProcessor behaviour beyond the EBU tables: how blocks are formed and flushed, the
// 10 ms maximum, the per-block true peak, the speech measurements and their definitions, the
// requests from other threads and the speech-history hand-over.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#include "TestSignals.h"
#include "core/LoudnessProcessor.h"

namespace corvane::test {
namespace {

constexpr double kNegInf = -std::numeric_limits<double>::infinity();

// The loudness of a steady 1 kHz stereo tone, by libebur128: the level the windows are
// compared with below.
double toneLoudness(double rate, double levelDB) {
  return ebur128Measure(toneSequence(rate, {{5.0, levelDB}})).integrated;
}

TEST(LoudnessProcessor, ResultsDoNotDependOnHowTheStreamIsChunked) {
  const Planar signal = programme(44100, 2, 12.0, 9);
  LoudnessProcessor regular(44100, 2);
  regular.setOfflineFeed(true);
  feed(regular, signal);

  LoudnessProcessor ragged(44100, 2);
  ragged.setOfflineFeed(true);
  std::mt19937 random(4);
  std::uniform_int_distribution<FrameCount> size(1, 7000);
  for (FrameCount start = 0; start < signal.frames();) {
    const FrameCount n = std::min(size(random), signal.frames() - start);
    const auto ptrs = signal.pointers(start);
    ragged.updateTruePeak(ptrs.data(), n);
    ragged.process(ptrs.data(), n);
    start += n;
  }
  ragged.flushPartialBlock();

  EXPECT_EQ(regular.integratedLUFS(), ragged.integratedLUFS());
  EXPECT_EQ(regular.loudnessRange(), ragged.loudnessRange());
  EXPECT_EQ(regular.truePeakDB(), ragged.truePeakDB());
  EXPECT_EQ(regular.maxMomentaryLUFS(), ragged.maxMomentaryLUFS());
  EXPECT_EQ(regular.samplePeakDB(), ragged.samplePeakDB());
  ASSERT_EQ(regular.blockHistory().size(), ragged.blockHistory().size());
  EXPECT_EQ(0, std::memcmp(regular.blockHistory().data(), ragged.blockHistory().data(),
                           regular.blockHistory().size() * sizeof(LoudnessBlock)));
  EXPECT_TRUE(std::isfinite(regular.integratedLUFS()));
}

TEST(LoudnessProcessor, BlockHistoryWindowsAverageEnergyOverTheirLength) {
  // One second of tone, then silence: the windows that overlap the tone's end carry known
  // shares of its energy.
  const double rate = 48000;
  const double tone = toneLoudness(rate, -20.0);
  const Measured m = measure(toneSequence(rate, {{1.0, -20.0}, {3.0, kNegInf}}));
  ASSERT_EQ(m.history.size(), 40u);
  // Blocks end at (i + 1) × 0.1 s. Block 9: 400 ms window 0.6–1.0 s, all tone.
  EXPECT_NEAR(m.history[9].momentaryLUFS, tone, 0.02);
  // Block 12: window 0.9–1.3 s, a quarter of it tone.
  EXPECT_NEAR(m.history[12].momentaryLUFS, tone + 10 * std::log10(0.25), 0.02);
  // Block 1: window reaches 0.2 s before the start: half of it silence.
  EXPECT_NEAR(m.history[1].momentaryLUFS, tone + 10 * std::log10(0.5), 0.02);
  // Block 29: 3 s window 0–3 s, a third of it tone.
  EXPECT_NEAR(m.history[29].shortTermLUFS, tone + 10 * std::log10(1.0 / 3.0), 0.02);
  // Integrated: no gating block before 400 ms; then the tone. Once it ends, the gating blocks
  // ending at 1.1, 1.2 and 1.3 s (¾, ½, ¼ tone) pass the relative gate and count; the seven
  // whole-tone blocks ending at 0.4 ... 1.0 s keep their weight; silence is gated out.
  EXPECT_EQ(m.history[2].integratedLUFS, -std::numeric_limits<float>::infinity());
  EXPECT_NEAR(m.history[3].integratedLUFS, tone, 0.02);
  EXPECT_NEAR(m.history[39].integratedLUFS, tone + 10 * std::log10((7.0 + 0.75 + 0.5 + 0.25) / 10.0), 0.02);
  // Past 1.4 s the momentary window holds only the filters' ring-down.
  EXPECT_LT(m.history[14].momentaryLUFS, -150.0f);
}

TEST(LoudnessProcessor, MaximumMomentaryIsFoundBetweenBlockBoundaries) {
  // A 400 ms tone 50 ms off the block grid: every block window cuts it, the 10 ms steps do not.
  const double rate = 48000;
  const double tone = toneLoudness(rate, -23.0);
  const Measured m = measure(toneSequence(rate, {{0.05, kNegInf}, {0.4, -23.0}, {1.0, kNegInf}}));
  double curveMax = kNegInf;
  for (const LoudnessBlock& b : m.history) curveMax = std::max(curveMax, double{b.momentaryLUFS});
  EXPECT_NEAR(curveMax, tone + 10 * std::log10(350.0 / 400.0), 0.03);
  EXPECT_NEAR(m.maxMomentary, tone, 0.03);
}

TEST(LoudnessProcessor, PartialBlockCountsWhenFlushedAndGatesOnlyAfter400Milliseconds) {
  const double rate = 48000;
  const double tone = toneLoudness(rate, -20.0);

  const Planar longEnough = toneSequence(rate, {{0.45, -20.0}});
  LoudnessProcessor flushed(rate, 2);
  flushed.setOfflineFeed(true);
  feed(flushed, longEnough);
  EXPECT_EQ(flushed.blockHistory().size(), 5u);
  EXPECT_NEAR(flushed.integratedLUFS(), tone, 0.05);

  LoudnessProcessor unflushed(rate, 2);
  unflushed.setOfflineFeed(true);
  feed(unflushed, longEnough, 0, /*flush=*/false);
  EXPECT_EQ(unflushed.blockHistory().size(), 4u);

  // 350 ms: no complete 400 ms gating block, so no integrated value; the momentary window,
  // read as starting from silence, still has one.
  const Measured tooShort = measure(toneSequence(rate, {{0.35, -20.0}}));
  EXPECT_EQ(tooShort.history.size(), 4u);
  EXPECT_EQ(tooShort.integrated, kNegInf);
  EXPECT_TRUE(std::isfinite(tooShort.maxMomentary));

  // A whole number of blocks leaves nothing to flush.
  EXPECT_EQ(measure(toneSequence(rate, {{1.0, -20.0}})).history.size(), 10u);
}

// A burst at fs/4 and 45°: samples at ±0.707, peaks of 1.0 between them.
Planar interSampleBurst(double rate, double atSeconds, double length, int frames) {
  Planar p = silence(rate, 1, 0.0);
  p.channels[0].assign(static_cast<std::size_t>(frames), 0.0f);
  const auto start = static_cast<std::size_t>(atSeconds * rate);
  const auto n = static_cast<std::size_t>(length * rate);
  for (std::size_t i = 0; i < n && start + i < p.channels[0].size(); ++i) {
    const double taper = std::sin(std::numbers::pi * static_cast<double>(i) / static_cast<double>(n - 1));
    p.channels[0][start + i] =
        static_cast<float>(std::sin(std::numbers::pi / 2 * static_cast<double>(i) + std::numbers::pi / 4) *
                           std::min(1.0, 4 * taper));
  }
  return p;
}

TEST(LoudnessProcessor, TruePeakIsKeptPerBlockAndFoundInTheLastFrames) {
  const double rate = 48000;
  const Planar burst = interSampleBurst(rate, 0.73, 0.01, 48000);
  const Measured m = measure(burst);
  ASSERT_EQ(m.history.size(), 10u);
  EXPECT_NEAR(m.history[7].truePeakDB, 0.0, 0.05);
  EXPECT_LT(m.history[6].truePeakDB, -100.0);
  EXPECT_LT(m.history[8].truePeakDB, -100.0);
  EXPECT_NEAR(m.truePeak, 0.0, 0.05);

  // Eight frames of the same burst ending on the very last frame: only running the
  // interpolator out past the end sees the peaks between them.
  Planar atEnd = silence(rate, 1, 1.0);
  const std::size_t last = atEnd.channels[0].size();
  for (std::size_t i = 0; i < 8; ++i) {
    atEnd.channels[0][last - 8 + i] =
        static_cast<float>(std::sin(std::numbers::pi / 2 * static_cast<double>(i) + std::numbers::pi / 4));
  }
  const Measured end = measure(atEnd);
  EXPECT_GT(end.truePeak, -1.5);  // the samples alone read −3.01 dB
  EXPECT_GT(end.history.back().truePeakDB, -1.5);
}

// Mono programme of alternating "speech" (a 1 kHz tone at −20 dBFS) and pauses of room tone
// (noise at −55 dBFS RMS), 2 s each, five times, then 4 s of a bed at −30 dBFS RMS, with the
// speech history marking exactly the tone blocks.
struct SpeechCase {
  Planar signal;
  SharedSpeechHistory history;
  int speechBlocks = 0;
  int blocks = 0;
};

SpeechCase speechCase(double pauseRMSDB) {
  const double rate = 48000;
  SpeechCase c;
  c.signal = Planar(rate, 1);
  auto history = std::make_shared<SpeechHistory>();
  for (int i = 0; i < 5; ++i) {
    c.signal.append(sine(rate, 1, 2.0, 1000.0, dbfs(-20.0)));
    Planar pause = pauseRMSDB < -200 ? silence(rate, 1, 2.0)
                                     : bandLimitedNoise(rate, 1, 2.0, 8000.0, pauseRMSDB, 0.0, 20 + static_cast<std::uint64_t>(i));
    c.signal.append(pause);
    history->insert(history->end(), 20, true);
    history->insert(history->end(), 20, false);
  }
  c.signal.append(bandLimitedNoise(rate, 1, 4.0, 8000.0, -30.0, 0.0, 99));
  history->insert(history->end(), 40, false);
  c.history = history;
  c.speechBlocks = 100;
  c.blocks = 240;
  return c;
}

TEST(LoudnessProcessor, SpeechMeasurementsFollowTheirDefinitions) {
  const SpeechCase c = speechCase(-55.0);
  LoudnessProcessor p(48000, 1, c.history);
  p.setOfflineFeed(true);
  feed(p, c.signal);
  // Speech-gated: the tone's own loudness (libebur128 on 10 s of it), the pauses gated out.
  const double tone = ebur128Measure(sine(48000, 1, 10.0, 1000.0, dbfs(-20.0))).integrated;
  EXPECT_NEAR(p.speechGatedLUFS(), tone, 0.05);
  // Percentage of blocks marked as speech.
  EXPECT_DOUBLE_EQ(p.speechPercentage(), 100.0 * c.speechBlocks / c.blocks);
  // Floor: 10th percentile of the non-speech blocks' RMS: in the room tone, not the bed.
  EXPECT_NEAR(p.speechGatedNoiseFloorDBRMS(), -55.0, 0.3);
  // The bed is quieter than the tone, so the whole programme reads below the speech alone.
  EXPECT_LT(p.integratedLUFS(), p.speechGatedLUFS() - 0.5);
  EXPECT_EQ(p.speechHistory(), c.history);
}

TEST(LoudnessProcessor, SpeechMeasurementsWithoutHistoryOrWithSilentPauses) {
  const SpeechCase c = speechCase(-55.0);
  LoudnessProcessor none(48000, 1);
  feed(none, c.signal);
  EXPECT_EQ(none.speechGatedLUFS(), kNegInf);
  EXPECT_EQ(none.speechPercentage(), 0.0);
  EXPECT_EQ(none.speechGatedNoiseFloorDBRMS(), kNegInf);
  EXPECT_TRUE(std::isfinite(none.integratedLUFS()));

  // Digitally silent pauses are the quietest floor there is.
  const SpeechCase silent = speechCase(-1000.0);
  LoudnessProcessor p(48000, 1, silent.history);
  feed(p, silent.signal);
  EXPECT_EQ(p.speechGatedNoiseFloorDBRMS(), kNegInf);
  EXPECT_TRUE(std::isfinite(p.speechGatedLUFS()));
}

TEST(LoudnessProcessor, BlockIndexSelectsTheHistoryEntriesOfTheAudioBeingMeasured) {
  auto history = std::make_shared<SpeechHistory>(100, false);
  for (int i = 50; i < 60; ++i) (*history)[static_cast<std::size_t>(i)] = true;
  const Planar tone = sine(48000, 1, 1.0, 1000.0, dbfs(-20.0));

  LoudnessProcessor fromStart(48000, 1, history);
  feed(fromStart, tone);
  EXPECT_EQ(fromStart.speechPercentage(), 0.0);
  EXPECT_EQ(fromStart.blockIndex(), 10);

  LoudnessProcessor seeked(48000, 1, history);
  seeked.setBlockIndex(50);
  EXPECT_EQ(seeked.blockIndex(), 50);  // a pending request already reads back
  feed(seeked, tone);
  EXPECT_EQ(seeked.speechPercentage(), 100.0);
  EXPECT_TRUE(std::isfinite(seeked.speechGatedLUFS()));
  EXPECT_EQ(seeked.blockIndex(), 60);

  // resetState keeps the index, reset returns it to 0.
  seeked.resetState();
  EXPECT_EQ(seeked.blockIndex(), 60);
  seeked.reset();
  EXPECT_EQ(seeked.blockIndex(), 0);
}

TEST(LoudnessProcessor, ResetRequestReadsAsResetAtOnceAndIsHonouredAtTheNextFeed) {
  const double rate = 48000;
  LoudnessProcessor p(rate, 2);
  feed(p, toneSequence(rate, {{2.0, -20.0}}), 0, false);
  ASSERT_TRUE(std::isfinite(p.integratedLUFS()));
  ASSERT_GT(p.blockCount(), 0);

  p.resetState();
  EXPECT_EQ(p.integratedLUFS(), kNegInf);
  EXPECT_EQ(p.truePeakDB(), kNegInf);
  EXPECT_EQ(p.loudnessRange(), 0.0);
  EXPECT_EQ(p.blockCount(), 0);

  // After the reset only the new, quieter audio counts, and its windows start from silence.
  feed(p, toneSequence(rate, {{2.0, -40.0}}), 0, false);
  EXPECT_NEAR(p.integratedLUFS(), toneLoudness(rate, -40.0), 0.05);
  EXPECT_NEAR(p.truePeakDB(), -40.0, 0.05);
  EXPECT_EQ(p.blockCount(), 20);
}

TEST(LoudnessProcessor, ExchangeHandsTheOldHistoryBackInsteadOfFreeingIt) {
  auto first = std::make_shared<SpeechHistory>(10, true);
  auto second = std::make_shared<SpeechHistory>(30, false);
  const SpeechHistory* firstAddress = first.get();
  LoudnessProcessor p(48000, 1, first);
  const Planar tone = sine(48000, 1, 1.0, 1000.0, dbfs(-20.0));
  feed(p, tone, 0, false);
  EXPECT_EQ(p.speechPercentage(), 100.0);

  SharedSpeechHistory old = p.exchangeSpeechHistory(second);
  EXPECT_EQ(old.get(), firstAddress);
  EXPECT_EQ(first.use_count(), 2);  // ours and the one handed back: the processor let go
  EXPECT_EQ(p.speechHistory(), second);
  // Blocks already measured keep their status; blocks 10–19 are non-speech in the new one.
  feed(p, tone, 0, false);
  EXPECT_EQ(p.speechPercentage(), 50.0);
}

TEST(LoudnessProcessor, NonFiniteSamplesAreMeasuredAsSilence) {
  Planar clean = toneSequence(48000, {{3.0, -20.0}});
  Planar dirty = clean;
  for (std::size_t i : {1000u, 50000u, 90001u}) {
    clean.channels[0][i] = 0.0f;
    dirty.channels[0][i] = std::numeric_limits<float>::quiet_NaN();
  }
  dirty.channels[1][70000] = std::numeric_limits<float>::infinity();
  clean.channels[1][70000] = 0.0f;
  const Measured a = measure(clean), b = measure(dirty);
  EXPECT_EQ(a.integrated, b.integrated);
  EXPECT_EQ(a.truePeak, b.truePeak);
  EXPECT_EQ(a.range, b.range);
}

TEST(LoudnessProcessor, LiveProcessorKeepsNoHistoryAndOfflineKeepsAll) {
  const Planar signal = programme(48000, 2, 10.0, 2);
  LoudnessProcessor live(48000, 2);
  feed(live, signal);
  EXPECT_TRUE(live.blockHistory().empty());
  EXPECT_EQ(live.blockCount(), 100);
  LoudnessProcessor offline(48000, 2);
  offline.setOfflineFeed(true);
  feed(offline, signal);
  EXPECT_EQ(offline.blockHistory().size(), 100u);
  EXPECT_EQ(live.integratedLUFS(), offline.integratedLUFS());
}

TEST(LoudnessProcessor, ExtremeRatesMeasureTheSameToneAndInvalidOnesAreRefused) {
  for (double rate : {8000.0, 11025.0, 22050.0, 192000.0, 384000.0}) {
    const Measured m = measure(toneSequence(rate, {{3.0, -23.0}}));
    EXPECT_NEAR(m.integrated, -23.0, 0.1) << rate;
    EXPECT_NEAR(m.truePeak, -23.0, 0.1) << rate;
  }
  EXPECT_THROW(LoudnessProcessor(7999.0, 2), std::invalid_argument);
  EXPECT_THROW(LoudnessProcessor(std::numeric_limits<double>::quiet_NaN(), 2), std::invalid_argument);
  EXPECT_THROW(LoudnessProcessor(48000.0, 0), std::invalid_argument);
}

}  // namespace
}  // namespace corvane::test
