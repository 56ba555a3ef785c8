// Two threads on one live processor, as in playback: a render thread feeds it (and runs a
// limiter), the main thread reads every published value, seeks, resets, hands over speech
// histories and moves the limiter's ceiling. Built with ThreadSanitizer in CI (label tsan).
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <random>
#include <thread>

#include "TestSignals.h"
#include "core/LoudnessProcessor.h"
#include "core/ProgrammeSignal.h"
#include "core/TruePeakLimiterDSP.h"

namespace corvane::test {
namespace {

bool plausible(double v) { return !std::isnan(v) && v < 30.0 && (v > -400.0 || v == -INFINITY); }

TEST(LoudnessThreading, RenderThreadFeedsWhileTheMainThreadReadsAndRequests) {
  const SharedAudioBuffer clip = synthesiseProgramme({48000.0, 2, 8.0, 31});
  LoudnessProcessor live(48000.0, 2);
  TruePeakLimiterDSP limiter(48000.0, 2, -1.0f, 5.0f, 50.0f, 256);

  // The speech-history hand-over of the render callback: the main thread fills `pending` and
  // raises the flag; the render thread swaps it in and parks the old one in `pending`, which
  // the main thread frees after the flag has dropped.
  SharedSpeechHistory pending;
  std::atomic<bool> swapRequested{false};
  std::atomic<bool> running{true};
  std::atomic<long> callbacks{0};

  std::thread render([&] {
    std::vector<float> left(256), right(256);
    FrameCount position = 0;
    const FrameCount frames = clip->frameLength();
    for (int n = 0; n < 6000; ++n) {
      if (swapRequested.load(std::memory_order_acquire)) {
        pending = live.exchangeSpeechHistory(std::move(pending));
        swapRequested.store(false, std::memory_order_release);
      }
      if (position + 256 > frames) position = 0;  // loop
      const float* source[2] = {clip->channel(0) + position, clip->channel(1) + position};
      live.updateTruePeak(source, 256);
      live.process(source, 256);
      std::copy_n(source[0], 256, left.begin());
      std::copy_n(source[1], 256, right.begin());
      float* io[2] = {left.data(), right.data()};
      limiter.process(io, 256);
      position += 256;
      callbacks.fetch_add(1, std::memory_order_relaxed);
    }
    running.store(false, std::memory_order_release);
  });

  std::mt19937 random(5);
  long reads = 0, swaps = 0;
  bool allPlausible = true;
  while (running.load(std::memory_order_acquire)) {
    for (double v : {live.momentaryLUFS(), live.shortTermLUFS(), live.integratedLUFS(), live.truePeakDB(),
                     live.currentTruePeakDB(), live.channelTruePeakDB(0), live.maxMomentaryLUFS(),
                     live.speechGatedLUFS(), live.speechGatedNoiseFloorDBRMS()}) {
      allPlausible = allPlausible && plausible(v);
    }
    const double range = live.loudnessRange(), percentage = live.speechPercentage();
    allPlausible = allPlausible && range >= 0.0 && range < 100.0 && percentage >= 0.0 && percentage <= 100.0;
    ++reads;
    const int action = static_cast<int>(random() % 100);
    if (action < 10) live.setBlockIndex(static_cast<std::int64_t>(random() % 5000));
    if (action == 10) live.resetState();
    if (action == 11) live.reset();
    if (action < 20) limiter.setCeilingDB(-1.0f - static_cast<float>(random() % 30) / 10.0f);
    if (action > 95 && !swapRequested.load(std::memory_order_acquire)) {
      pending = std::make_shared<SpeechHistory>(static_cast<std::size_t>(1000 + random() % 1000), (random() & 1) != 0);
      swapRequested.store(true, std::memory_order_release);
      ++swaps;
    }
    std::this_thread::yield();
  }
  render.join();
  EXPECT_TRUE(allPlausible);
  EXPECT_EQ(callbacks.load(), 6000);
  EXPECT_GT(reads, 10);
  std::printf("    %ld reads, %ld speech histories handed over during %ld callbacks\n", reads, swaps, callbacks.load());

  // The processor is left consistent: after a reset it measures like a fresh one.
  live.reset();
  LoudnessProcessor fresh(48000.0, 2);
  Planar tail(48000.0, 2);
  for (int c = 0; c < 2; ++c) tail.channels[static_cast<std::size_t>(c)].assign(clip->channel(c), clip->channel(c) + 96000);
  feed(live, tail);
  feed(fresh, tail);
  EXPECT_EQ(live.integratedLUFS(), fresh.integratedLUFS());
  EXPECT_EQ(live.truePeakDB(), fresh.truePeakDB());
  EXPECT_EQ(live.blockIndex(), 20);
}

}  // namespace
}  // namespace corvane::test
