// Edits against a running render callback, with no audio server: a thread renders back to back
// (through the manual output, the code the device callback runs) while the main thread edits
// the live buffer the two ways the edit roads do — in place after pausing and waiting for the
// callback to leave, and by swapping in a rebuilt buffer. Qt-free, so that the ThreadSanitizer
// build runs it too: a write into samples that a callback is still reading is a data race.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>

#include "core/ChannelOrder.h"
#include "headless/edits/EditOperations.h"
#include "playback/PlaybackController.h"
#include "support/ManualRenderThread.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;
constexpr int kChannels = 2;
constexpr int kMaxCallFrames = 256;
constexpr float kLevel = 0.25f;

SharedAudioBuffer levelBuffer(FrameCount frames) {
  auto buffer = AudioBuffer::create(kChannels, frames, 48000.0);
  for (int c = 0; c < kChannels; ++c) std::fill_n(buffer->channel(c), frames, kLevel);
  return buffer;
}

TEST(EditRenderStress, InPlaceAndRebuiltEditsWhileTheCallbackRuns) {
  PlaybackController controller;
  controller.setManualOutput(ManualOutput{48000.0, kChannels});
  SharedAudioBuffer live = levelBuffer(2 * 48000);
  controller.loadSource(PlaybackSource{live, ChannelOrder::bs1770Weights(*live), nullptr});
  controller.setupRoutings(kChannels, kChannels);
  ASSERT_TRUE(controller.setupEngine());
  controller.setLooping(true);
  controller.play();

  // Counts the calls whose output holds both signs of the level: audio from before and after
  // an inversion in one buffer.
  std::atomic<long> audible{0}, mixed{0}, strange{0};
  ManualRenderThread render(controller.graph(), 16, kMaxCallFrames, 9, [&](float* const* output, int frames) {
    bool plus = false, minus = false;
    for (int i = 0; i < frames; ++i) {
      const float v = output[0][i];
      plus |= std::fabs(v - kLevel) < 1e-5f;
      minus |= std::fabs(v + kLevel) < 1e-5f;
      if (v != 0.0f && std::fabs(std::fabs(v) - kLevel) >= 1e-5f) strange.fetch_add(1, std::memory_order_relaxed);
    }
    if (plus && minus) mixed.fetch_add(1, std::memory_order_relaxed);
    if (plus || minus) audible.fetch_add(1, std::memory_order_relaxed);
  });
  std::mt19937 rng(4);
  std::uniform_int_distribution<FrameCount> place(0, 48000);
  int inPlaceEdits = 0, swaps = 0;
  const auto start = std::chrono::steady_clock::now();
  const auto enough = [&] {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (elapsed > std::chrono::seconds(30)) return true;
    return render.calls() >= 4000 && inPlaceEdits >= 300 && swaps >= 100;
  };
  for (int step = 0; !enough(); ++step) {
    if (step % 3 != 2) {
      // The in-place road: pause, wait for the callback to leave, write, play on.
      const bool wasPlaying = controller.isPlaying();
      controller.pause();
      controller.waitForRenderToLeave();
      AudioBuffer& buffer = *live;
      Ops::invertPhaseInPlace(buffer.channels(), buffer.channelCount(), buffer.frameLength(), 0, buffer.frameLength());
      if (wasPlaying) controller.play();
      ++inPlaceEdits;
    } else {
      // A rebuild: a new buffer of another length from the live one, handed over whole.
      Ops::EditResult result = step % 2 ? Ops::addSilence(Ops::extractChannelData(*live), place(rng), 0,
                                                          Ops::SilenceMode::before, 480, 48000.0)
                                        : Ops::trim(Ops::extractChannelData(*live), 0, 48000 + place(rng), 48000.0);
      if (result.nothingToDo) continue;
      live = Ops::buildBuffer(std::move(result), {});
      ASSERT_TRUE(live);
      controller.swapSourceBuffer(live);
      controller.seek(0.0, true);
      ++swaps;
    }
    if (!controller.isPlaying()) controller.play();
    controller.displayTick();
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  controller.pause();
  render.stop();
  EXPECT_GE(inPlaceEdits, 300);
  EXPECT_GE(swaps, 100);
  EXPECT_GE(audible.load(), 1000);
  EXPECT_EQ(mixed.load(), 0);
  EXPECT_EQ(strange.load(), 0);
  controller.stop();
  controller.displayTick();
  EXPECT_EQ(controller.mirrors().collectRetired(), 0u);
}

}  // namespace
}  // namespace corvane::test
