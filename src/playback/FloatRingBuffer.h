// FloatRingBuffer: the analysis feed from the render callback to the display tick.
//
// The callback writes each buffer's source samples of one channel; the 30 Hz tick copies the
// newest window out for its spectra and spectrogram columns. The writer never waits and the
// reader never blocks the writer: this is a single-producer, single-consumer ring without a
// lock, in which the reader validates its copy instead of holding the writer off.
//
// How a read stays correct: the writer announces the range it is about to overwrite
// (`_reserved`, then a release fence), stores the samples, and publishes them (`_written`,
// release). The reader takes `_written` (acquire), copies, then an acquire fence and a second
// look at `_reserved`. If the writer had announced, by then, a write that reaches back over the
// oldest copied sample, the copy may be torn and the read is refused (the tick tries again
// on its next run). With a ring of 4 × the FFT size and a tick of 30 Hz that only happens when
// the main thread stalls for a large part of a second. Samples are relaxed atomics, which cost
// plain loads and stores on the machines we run on and keep the protocol free of data races.
//
// Thread class: write() is for one render thread: wait-free, allocation-free, noexcept.
// The copy functions and the counters are for one reader thread (the main thread).
// Construction allocates.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

namespace corvane {

class FloatRingBuffer {
 public:
  // Throws std::invalid_argument for a capacity below 1.
  explicit FloatRingBuffer(int capacity);
  FloatRingBuffer(const FloatRingBuffer&) = delete;
  FloatRingBuffer& operator=(const FloatRingBuffer&) = delete;

  int capacity() const noexcept { return _capacity; }

  // Render thread. Appends `count` samples; of more than `capacity` only the newest stay.
  void write(const float* samples, int count) noexcept;

  // Reader. Samples written so far, at most capacity.
  int filledCount() const noexcept;
  // Every sample ever written (the writer's position; wraps after 2^64).
  std::uint64_t totalWritten() const noexcept {
    return _written.load(std::memory_order_acquire);
  }

  // Reader. Copies the newest `count` samples in time order into `out`. False, and `out`
  // undefined, when count < 1, fewer are filled, or the writer overtook the copy.
  bool copyLast(int count, float* out) const noexcept { return copyEnding(0, count, out); }

  // Reader. Copies `count` samples that end `lag` samples before the newest. False when
  // count < 1, lag < 0, fewer than count + lag are filled, or the writer overtook the copy.
  bool copyEnding(int lag, int count, float* out) const noexcept;

 private:
  int _capacity;
  std::unique_ptr<std::atomic<float>[]> _samples;
  std::atomic<std::uint64_t> _reserved{0};
  std::atomic<std::uint64_t> _written{0};
};

}  // namespace corvane
