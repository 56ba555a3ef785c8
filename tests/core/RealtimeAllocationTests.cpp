// The real-time members allocate nothing: this binary counts every operator new (and, where the
// C library allows, every malloc) while a test is "armed", and plays minutes of audio through
// the live paths in render-sized callbacks.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

#include "TestSignals.h"
#include "core/FFTProcessor.h"
#include "core/HilbertPhaseShifter.h"
#include "core/LoudnessProcessor.h"
#include "core/TruePeakLimiterDSP.h"

namespace {
std::atomic<bool> armed{false};
std::atomic<long> allocations{0};

void* counted(std::size_t n) {
  if (armed.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  void* p = std::malloc(n == 0 ? 1 : n);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* countedAligned(std::size_t n, std::align_val_t a) {
  if (armed.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  const auto alignment = static_cast<std::size_t>(a);
  void* p = std::aligned_alloc(alignment, (n + alignment - 1) / alignment * alignment);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
}  // namespace

void* operator new(std::size_t n) { return counted(n); }
void* operator new[](std::size_t n) { return counted(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  try { return counted(n); } catch (...) { return nullptr; }
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept {
  try { return counted(n); } catch (...) { return nullptr; }
}
void* operator new(std::size_t n, std::align_val_t a) { return countedAligned(n, a); }
void* operator new[](std::size_t n, std::align_val_t a) { return countedAligned(n, a); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }

// C allocations too (FFTW allocates with malloc), on glibc and outside sanitizer builds, which
// bring their own malloc.
#if defined(__GLIBC__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void* malloc(std::size_t n) {
  if (armed.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(n);
}
void* calloc(std::size_t n, std::size_t size) {
  if (armed.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t n) {
  if (armed.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(p, n);
}
int posix_memalign(void** out, std::size_t alignment, std::size_t n) {
  if (armed.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  *out = __libc_memalign(alignment, n);
  return *out != nullptr ? 0 : ENOMEM;
}
}
#endif

namespace corvane::test {
namespace {

class Armed {
 public:
  Armed() {
    allocations.store(0);
    armed.store(true);
  }
  ~Armed() { armed.store(false); }
  long count() const { return allocations.load(); }
};

TEST(RealtimeAllocation, CounterSeesAllocations) {
  // The positive control: the offline processor grows its history, and the counter notices.
  const Planar audio = programme(48000.0, 2, 3.0, 21);
  LoudnessProcessor offline(48000.0, 2);
  offline.setOfflineFeed(true);
  const Armed armedScope;
  feed(offline, audio);
  EXPECT_GT(armedScope.count(), 0);
}

TEST(RealtimeAllocation, LiveLoudnessFeedAllocatesNothing) {
  const Planar audio = programme(48000.0, 2, 20.0, 21);
  auto historyA = std::make_shared<SpeechHistory>(2000, true);
  auto historyB = std::make_shared<SpeechHistory>(3000, false);
  LoudnessProcessor live(48000.0, 2, historyA);
  SharedSpeechHistory parked = historyB;  // the slot the main thread would empty
  double sink = 0.0;
  {
    const Armed armedScope;
    // Six minutes of playback: the clip looped, in 256-frame callbacks, with every request
    // a session makes on the way (seeks, resets, a speech history arriving, a stop).
    for (int loop = 0; loop < 18; ++loop) {
      for (FrameCount start = 0; start + 256 <= audio.frames(); start += 256) {
        const float* ptrs[2] = {audio.channels[0].data() + start, audio.channels[1].data() + start};
        live.updateTruePeak(ptrs, 256);
        live.process(ptrs, 256);
        sink += live.momentaryLUFS() + live.shortTermLUFS() + live.integratedLUFS() + live.loudnessRange() +
                live.truePeakDB() + live.currentTruePeakDB() + live.channelTruePeakDB(1) +
                live.speechGatedLUFS() + live.speechPercentage() + live.speechGatedNoiseFloorDBRMS() +
                live.maxMomentaryLUFS() + static_cast<double>(live.blockIndex());
      }
      live.setBlockIndex(loop * 37);
      if (loop % 3 == 0) live.resetState();
      if (loop % 5 == 0) parked = live.exchangeSpeechHistory(std::move(parked));
      if (loop % 7 == 6) {
        live.flushPartialBlock();
        live.reset();
      }
    }
    EXPECT_EQ(armedScope.count(), 0);
  }
  EXPECT_FALSE(std::isnan(sink));
  EXPECT_TRUE(live.blockHistory().empty());
}

TEST(RealtimeAllocation, LimiterHilbertAndFFTAllocateNothing) {
  Planar audio = programme(48000.0, 2, 10.0, 21);
  for (auto& ch : audio.channels) {
    for (float& v : ch) v *= 3.0f;  // hot enough to limit
  }
  TruePeakLimiterDSP limiter(48000.0, 2, -1.0f, 5.0f, 50.0f, 512);
  HilbertPhaseShifter shifters[2];
  FFTProcessor fft(4096, 48000.0);
  std::vector<float> reference(8192), quadrature(8192);
  float sink = 0.0f;
  {
    const Armed armedScope;
    for (FrameCount start = 0; start + 512 <= audio.frames(); start += 512) {
      float* io[2] = {audio.channels[0].data() + start, audio.channels[1].data() + start};
      for (int c = 0; c < 2; ++c) shifters[c].process(io[c], 512, reference.data(), quadrature.data());
      limiter.process(io, 512);
      if (start % (512 * 50) == 0) {
        limiter.setCeilingDB(start % 1024 == 0 ? -1.0f : -2.0f);
        fft.setWindowType(start % 1024 == 0 ? FFTWindowType::FlatTop : FFTWindowType::Hann);
        fft.setLiveMode(start % 1024 == 0);
        sink += fft.process(io[0], 4096)[100];
      }
    }
    limiter.reset();
    shifters[0].reset();
    sink += limiter.currentGainReductionDB();
    EXPECT_EQ(armedScope.count(), 0);
  }
  EXPECT_TRUE(std::isfinite(sink));
}

}  // namespace
}  // namespace corvane::test
