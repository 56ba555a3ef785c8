// The callback and mirror layer under load, with no audio server: a thread runs the render
// chain back to back (through the manual output, the same code the device callback runs)
// while the main thread writes mirrors, swaps routings, filters and buffers, seeks, pauses
// and changes speed. Run under ThreadSanitizer as well as in the plain build.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>

#include "core/ChannelOrder.h"
#include "playback/PlaybackController.h"
#include "support/ManualRenderThread.h"
#include "support/PlaybackTestSignals.h"

namespace corvane::test {
namespace {

constexpr int kChannels = 6;
constexpr int kMaxCallFrames = 512;

ChannelRoutings randomRouting(std::mt19937& rng) {
  ChannelRoutings routings = defaultRoutings(kChannels, kChannels, {});
  std::uniform_int_distribution<int> source(-1, kChannels);
  std::uniform_int_distribution<int> phase(0, 3);
  std::uniform_real_distribution<float> gain(0.0f, 2.0f);
  for (auto& entry : routings) {
    entry.sources.clear();
    for (int s = 0; s < 3; ++s) {
      const RoutingPhase phases[] = {RoutingPhase::inPhase, RoutingPhase::plus90, RoutingPhase::minus90,
                                     RoutingPhase::invert};
      entry.sources.push_back({RoutingId::create(), source(rng), gain(rng), phases[phase(rng)]});
    }
  }
  return routings;
}

TEST(RenderStress, MainThreadChangesEverythingWhileTheCallbackRuns) {
  PlaybackController controller;
  controller.setManualOutput(ManualOutput{48000.0, kChannels});
  auto buffer = indexCodedBuffer(kChannels, 10 * 48000);
  controller.loadSource(PlaybackSource{buffer, ChannelOrder::bs1770Weights(*buffer), nullptr});
  controller.setupRoutings(kChannels, kChannels);
  ASSERT_TRUE(controller.setupEngine());
  RenderMirrors& mirrors = controller.mirrors();
  mirrors._atomicAnalysisRings.publish(std::make_unique<AnalysisRings>(kChannels, 16384));
  controller.play();

  std::atomic<long> nonFinite{0};
  const int outputs = controller.graph().outputChannels();
  ManualRenderThread render(controller.graph(), 1, kMaxCallFrames, 3, [&](float* const* output, int) {
    for (int c = 0; c < outputs; ++c) {
      if (!std::isfinite(output[c][0])) nonFinite.fetch_add(1);
    }
  });
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<float> ringCopy(4096);
  long seeksChecked = 0;
  // Long enough for a few thousand buffers and a hundred checked seeks, also when the
  // ThreadSanitizer build runs everything ten times slower on a machine shared with other
  // builds (30 s gave 2760 buffers there); bounded either way.
  const auto start = std::chrono::steady_clock::now();
  const auto enough = [&] {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (elapsed > std::chrono::seconds(90)) return true;
    return elapsed > std::chrono::seconds(1) && render.calls() >= 3000 && seeksChecked >= 100;
  };
  for (int step = 0; !enough(); ++step) {
    switch (step % 12) {
      case 0: controller.setRoutings(randomRouting(rng)); break;
      case 1: controller.setMutedSourceChannels({static_cast<int>(unit(rng) * kChannels)}); break;
      case 2:
        controller.setFreqFilter(unit(rng) < 0.3 ? std::nullopt
                                                 : std::optional<FreqRange>(FreqRange{100.0 + 500 * unit(rng), 3000.0}),
                                 unit(rng) < 0.5 ? FreqFilterMode::bandPass : FreqFilterMode::bandReject);
        break;
      case 3: {
        // A new buffer of another length, as an edit would make.
        auto edited = indexCodedBuffer(kChannels, static_cast<FrameCount>((4 + 6 * unit(rng)) * 48000));
        controller.swapSourceBuffer(edited);
        break;
      }
      case 4:
        controller.setSelection(unit(rng) < 0.5 ? std::nullopt
                                                : std::optional<PlaybackSelection>({unit(rng), 1.0 + 2 * unit(rng)}));
        controller.setLooping(unit(rng) < 0.5);
        break;
      case 5:
        mirrors._atomicTargetMatchGain.store(static_cast<float>(0.5 + 3 * unit(rng)));
        mirrors._atomicTargetMatchEnabled.store(unit(rng) < 0.5);
        mirrors._atomicPendingTargetMatchReset.store(true);
        controller.setSlotGain(static_cast<float>(unit(rng)));
        break;
      case 6: controller.applySpeechHistory(std::make_shared<const SpeechHistory>(100, unit(rng) < 0.5)); break;
      case 7:
        if (step % 60 == 7) controller.setPlaybackRate(unit(rng) < 0.5 ? 1.0 : 1.5);
        if (step % 120 == 7) controller.setPreservePitch(unit(rng) < 0.5);
        break;
      case 8: controller.togglePlayPause(); if (!controller.isPlaying()) controller.play(); break;
      case 9: {
        // A checked seek: no selection, no loop, far from the previous place. Whatever the
        // callback was doing, the frame then only moves forward from the target.
        controller.setSelection(std::nullopt);
        controller.setLooping(false);
        const double total = static_cast<double>(controller.totalFrames()) / 48000.0;
        const double target = (seeksChecked % 2 ? 0.55 : 0.05) * total + 0.3 * total * unit(rng);
        controller.seek(target, true);
        const std::uint64_t runsBefore = mirrors.renderEpoch.completedRuns();
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        const FrameCount frame = controller.playbackFrame();
        const std::uint64_t runs = mirrors.renderEpoch.completedRuns() - runsBefore + 1;
        const FrameCount expected = static_cast<FrameCount>(target * 48000.0);
        // At 1.5× a stretcher may pull a few blocks ahead per call.
        const FrameCount reach = static_cast<FrameCount>(runs) * 4 * kMaxRenderBlockFrames;
        ASSERT_GE(frame, expected) << "seek " << seeksChecked;
        ASSERT_LE(frame, expected + reach) << "seek " << seeksChecked << " was undone";
        ++seeksChecked;
        break;
      }
      case 10:
        if (const AnalysisRings* rings = mirrors._atomicAnalysisRings.current()) {
          rings->rings[0]->copyLast(4096, ringCopy.data());
        }
        if (step % 40 == 10) mirrors._atomicAnalysisRings.publish(std::make_unique<AnalysisRings>(kChannels, 16384));
        break;
      case 11: controller.displayTick(); break;
    }
  }
  controller.pause();
  EXPECT_GE(seeksChecked, 100);
  EXPECT_GE(render.calls(), 3000);
  EXPECT_EQ(nonFinite.load(), 0);
  render.stop();
  controller.stop();
  controller.displayTick();
  EXPECT_EQ(mirrors.collectRetired(), 0u);
}

}  // namespace
}  // namespace corvane::test
