#include "playback/FloatRingBuffer.h"

#include <stdexcept>

namespace corvane {

FloatRingBuffer::FloatRingBuffer(int capacity) : _capacity(capacity) {
  if (capacity < 1) throw std::invalid_argument("FloatRingBuffer: capacity must be positive");
  _samples = std::make_unique<std::atomic<float>[]>(static_cast<std::size_t>(capacity));
  for (int i = 0; i < capacity; ++i) _samples[static_cast<std::size_t>(i)].store(0.0f, std::memory_order_relaxed);
}

void FloatRingBuffer::write(const float* samples, int count) noexcept {
  if (count <= 0) return;
  // Of an oversized write only the newest `capacity` samples are stored; the others still
  // count as written, so that positions stay in file time.
  std::uint64_t start = _written.load(std::memory_order_relaxed);
  if (count > _capacity) {
    start += static_cast<std::uint64_t>(count - _capacity);
    samples += count - _capacity;
    count = _capacity;
  }
  const std::uint64_t end = start + static_cast<std::uint64_t>(count);
  _reserved.store(end, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  const std::size_t cap = static_cast<std::size_t>(_capacity);
  std::size_t pos = static_cast<std::size_t>(start % static_cast<std::uint64_t>(_capacity));
  for (int i = 0; i < count; ++i) {
    _samples[pos].store(samples[i], std::memory_order_relaxed);
    if (++pos == cap) pos = 0;
  }
  _written.store(end, std::memory_order_release);
}

int FloatRingBuffer::filledCount() const noexcept {
  const std::uint64_t w = _written.load(std::memory_order_acquire);
  return w < static_cast<std::uint64_t>(_capacity) ? static_cast<int>(w) : _capacity;
}

bool FloatRingBuffer::copyEnding(int lag, int count, float* out) const noexcept {
  if (count < 1 || lag < 0) return false;
  const std::uint64_t written = _written.load(std::memory_order_acquire);
  const std::uint64_t need = static_cast<std::uint64_t>(count) + static_cast<std::uint64_t>(lag);
  const std::uint64_t filled = written < static_cast<std::uint64_t>(_capacity) ? written : _capacity;
  if (filled < need) return false;
  const std::uint64_t first = written - need;
  std::size_t pos = static_cast<std::size_t>(first % static_cast<std::uint64_t>(_capacity));
  const std::size_t cap = static_cast<std::size_t>(_capacity);
  for (int i = 0; i < count; ++i) {
    out[i] = _samples[pos].load(std::memory_order_relaxed);
    if (++pos == cap) pos = 0;
  }
  std::atomic_thread_fence(std::memory_order_acquire);
  const std::uint64_t reserved = _reserved.load(std::memory_order_relaxed);
  // Sample `first` lives until the writer reserves past first + capacity.
  return reserved - first <= static_cast<std::uint64_t>(_capacity);
}

}  // namespace corvane
