// The render thread allocates nothing while it plays. Every allocation function of the C
// library is interposed in this test program; an allocation counts when it happens on a
// thread that is inside the render chain at that moment (marked by the chain's probe).
#include <gtest/gtest.h>

#include <malloc.h>

#include <atomic>
#include <cstdlib>

#include "playback/RoutingGain.h"
#include "support/JackPlaybackRig.h"
#include "support/PlaybackTestSignals.h"

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
}

namespace {
thread_local bool tInsideRender = false;
std::atomic<long> gRenderAllocations{0};
std::atomic<long> gRenderRuns{0};

inline void noteAllocation() {
  if (tInsideRender) gRenderAllocations.fetch_add(1, std::memory_order_relaxed);
}

void renderProbe(void*, bool entering) noexcept {
  tInsideRender = entering;
  if (entering) gRenderRuns.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

extern "C" {
void* malloc(size_t size) {
  noteAllocation();
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  noteAllocation();
  return __libc_calloc(count, size);
}
void* realloc(void* p, size_t size) {
  noteAllocation();
  return __libc_realloc(p, size);
}
void* memalign(size_t alignment, size_t size) {
  noteAllocation();
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
  noteAllocation();
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
  noteAllocation();
  void* p = __libc_memalign(alignment, size);
  if (!p) return ENOMEM;
  *out = p;
  return 0;
}
}

namespace corvane::test {
namespace {

class RenderAllocations : public OnJackServer {
 protected:
  void SetUp() override {
    gRenderAllocations.store(0);
    gRenderRuns.store(0);
  }
};

TEST_F(RenderAllocations, TenSecondsWithRoutingPhaseFilterAndLimiter) {
  // The counter itself works: an allocation inside a marked scope is seen.
  renderProbe(nullptr, true);
  void* probe = std::malloc(16);
  renderProbe(nullptr, false);
  std::free(probe);
  ASSERT_EQ(gRenderAllocations.load(), 1);
  gRenderAllocations.store(0);
  gRenderRuns.store(0);

  JackPlaybackRig rig;
  rig.load(sineBuffer(2, 12 * 48000, 440.0, 0.3));
  ChannelRoutings routings = rig.controller.routings();
  addRoute(routings, 2, 0);
  addRoute(routings, 2, 1);
  setRouteGainDB(routings, 2, 1, -6.0);
  routings[3].sources[0] = ChannelSourceSlot{RoutingId::create(), 0, 1.0f, RoutingPhase::plus90};
  addRoute(routings, 4, 1);
  cycleRoutePhase(routings, 4, 1);
  cycleRoutePhase(routings, 4, 1);  // −90°
  routings[5].sources[0] = ChannelSourceSlot{RoutingId::create(), 1, 0.5f, RoutingPhase::invert};
  rig.controller.setRoutings(routings);
  rig.controller.setFreqFilter(FreqRange{200.0, 5000.0}, FreqFilterMode::bandPass);
  ASSERT_TRUE(rig.build());
  ASSERT_FALSE(rig.controller.graph().isStereoGraph());
  // The live analysis feed as the session sets it up.
  rig.controller.mirrors()._atomicAnalysisRings.publish(std::make_unique<AnalysisRings>(2, 4 * 4096));
  // Target match on: the limiter works on every buffer (+12 dB into a -1 dBTP ceiling).
  rig.controller.mirrors()._atomicTargetMatchGain.store(4.0f);
  rig.controller.mirrors()._atomicTargetMatchEnabled.store(true);
  rig.controller.graph().chain()->setProbe(&renderProbe, nullptr);

  rig.capture.arm();
  rig.controller.play();
  rig.runFor(5.0);
  // Wide values handed over while playing: a new routing, a speech history, a filter.
  routings[0].sources[0].gain = 0.9f;
  rig.controller.setRoutings(routings);
  rig.controller.applySpeechHistory(std::make_shared<const SpeechHistory>(200, true));
  rig.controller.setFreqFilter(FreqRange{300.0, 4000.0}, FreqFilterMode::bandReject);
  rig.runFor(5.0);
  rig.controller.pause();
  rig.capture.disarm();

  EXPECT_GT(gRenderRuns.load(), 400) << "the render chain ran for the whole ten seconds";
  EXPECT_EQ(gRenderAllocations.load(), 0);
  // It really played through the limiter: nothing above the ceiling left on the port.
  const std::vector<float> out = rig.capture.channel(0);
  float peak = 0.0f;
  for (float v : out) peak = std::max(peak, std::fabs(v));
  EXPECT_GT(peak, 0.5f);
  EXPECT_LT(peak, 0.8913f);  // -1 dBFS: the true peak is at most -1 dBTP, the samples below it
}

TEST_F(RenderAllocations, TimePitchAndRateConversionToo) {
  JackPlaybackRig rig;
  // 44.1 kHz on a 48 kHz server: the chain converts to the device's rate.
  rig.load(sineBuffer(2, 5 * 44100, 440.0, 0.3, 44100.0));
  rig.controller.setPlaybackRate(1.5);
  ASSERT_TRUE(rig.build());
  ASSERT_TRUE(rig.controller.graph().chain()->resamplesToDevice());
  rig.controller.graph().chain()->setProbe(&renderProbe, nullptr);
  rig.controller.play();
  rig.runFor(1.5);
  rig.controller.setPreservePitch(false);  // a new stage, swapped in while playing
  rig.runFor(1.0);
  rig.controller.pause();
  EXPECT_GT(gRenderRuns.load(), 100);
  EXPECT_EQ(gRenderAllocations.load(), 0);
}

}  // namespace
}  // namespace corvane::test
