// Publication of wide values to the render thread and their retirement.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

#include "playback/OutputTap.h"
#include "playback/RenderSnapshot.h"

namespace corvane {
namespace {

// Counts its own destruction, so a test sees exactly when a retired value is freed.
struct Tracked {
  explicit Tracked(int v, std::atomic<int>& deaths) : value(v), _deaths(deaths) {}
  ~Tracked() { _deaths.fetch_add(1); }
  int value;
  std::atomic<int>& _deaths;
};

TEST(RenderSnapshot, IdleRenderThreadFreesAtOnceBusyOneAfterItLeaves) {
  RenderEpoch epoch;
  SnapshotRetirer retirer(epoch);
  SnapshotSlot<const Tracked> slot(retirer);
  std::atomic<int> deaths{0};

  slot.publish(std::make_unique<Tracked>(1, deaths));
  slot.publish(std::make_unique<Tracked>(2, deaths));
  // No callback inside: the replaced value went straight away.
  EXPECT_EQ(deaths.load(), 1);
  EXPECT_EQ(retirer.pending(), 0u);

  const Tracked* held = nullptr;
  {
    RenderEpoch::Scope scope(epoch);
    held = slot.acquire();
    // A callback holds value 2 while the main thread replaces it twice.
    slot.publish(std::make_unique<Tracked>(3, deaths));
    slot.publish(std::make_unique<Tracked>(4, deaths));
    EXPECT_EQ(retirer.collect(), 2u);
    EXPECT_EQ(deaths.load(), 1);
    EXPECT_EQ(held->value, 2);  // still alive for the rest of the buffer
  }
  // The callback left: both retired values go at the next collect.
  EXPECT_EQ(retirer.collect(), 0u);
  EXPECT_EQ(deaths.load(), 3);
  EXPECT_EQ(slot.acquire()->value, 4);
  slot.publish(nullptr);
  EXPECT_EQ(deaths.load(), 4);
  EXPECT_EQ(slot.acquire(), nullptr);
  EXPECT_EQ(epoch.completedRuns(), 1u);
}

// A render thread reads the values it acquires for the length of its buffer while the main
// thread keeps replacing them; each value poisons itself on destruction, so reading a freed
// one shows (and the ThreadSanitizer build reports any unordered free).
TEST(RenderSnapshot, ConcurrentReaderNeverSeesAFreedValue) {
  struct Value {
    explicit Value(int v) : a(v), b(v) {}
    ~Value() { a = -1; b = -2; }
    int a;
    int b;
  };
  RenderEpoch epoch;
  SnapshotRetirer retirer(epoch);
  SnapshotSlot<const Value> slot(retirer);
  slot.publish(std::make_unique<Value>(0));
  std::atomic<bool> done{false};
  std::atomic<int> bad{0};
  std::atomic<long> reads{0};
  std::thread render([&] {
    while (!done.load()) {
      RenderEpoch::Scope scope(epoch);
      const Value* v = slot.acquire();
      for (int spin = 0; spin < 50; ++spin) {
        if (v->a != v->b || v->a < 0) bad.fetch_add(1);
      }
      reads.fetch_add(1);
    }
  });
  while (reads.load() == 0) std::this_thread::yield();
  for (int i = 1; i <= 20000 || reads.load() < 2000; ++i) {
    slot.publish(std::make_unique<Value>(i));
    if (i % 7 == 0) retirer.collect();
  }
  done.store(true);
  render.join();
  retirer.collect();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_GT(reads.load(), 0);
  EXPECT_EQ(retirer.pending(), 0u);
}

TEST(OutputTap, PublishesWindowRMSAndScope) {
  OutputTap tap(3);
  std::vector<float> a(OutputTap::kWindowFrames), b(OutputTap::kWindowFrames), c(OutputTap::kWindowFrames, 0.0f);
  for (int i = 0; i < OutputTap::kWindowFrames; ++i) {
    a[i] = 0.5f * std::sin(2.0 * M_PI * i / 64.0);  // RMS 0.5/√2 over whole periods
    b[i] = (i % 2) ? 0.25f : -0.25f;                 // RMS 0.25
  }
  const float* chans[] = {a.data(), b.data(), c.data()};
  // In uneven pieces, as device buffers come.
  int offset = 0;
  for (int piece : {1000, 96, 3000}) {
    const float* p[] = {chans[0] + offset, chans[1] + offset, chans[2] + offset};
    tap.process(p, piece);
    offset += piece;
  }
  EXPECT_EQ(tap.windowsPublished(), 1u);
  float rms[3];
  tap.readOutputRMS(rms);
  EXPECT_NEAR(rms[0], 0.5 / std::sqrt(2.0), 1e-5);
  EXPECT_NEAR(rms[1], 0.25, 1e-6);
  EXPECT_EQ(rms[2], 0.0f);
  std::vector<float> left(OutputTap::kScopeFrames), right(OutputTap::kScopeFrames);
  ASSERT_EQ(tap.readPhaseScope(left, right), OutputTap::kScopeFrames);
  for (int i = 0; i < OutputTap::kScopeFrames; ++i) {
    ASSERT_EQ(left[i], a[i]);
    ASSERT_EQ(right[i], b[i]);
  }
  OutputTap mono(1);
  EXPECT_EQ(mono.readPhaseScope(left, right), 0);
}

}  // namespace
}  // namespace corvane
