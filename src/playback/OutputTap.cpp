#include "playback/OutputTap.h"

#include <algorithm>
#include <cmath>

namespace corvane {

OutputTap::OutputTap(int channelCount)
    : _channelCount(std::max(channelCount, 0)),
      _sumSquares(static_cast<std::size_t>(_channelCount), 0.0),
      _scopeLeft(kScopeFrames, 0.0f),
      _scopeRight(kScopeFrames, 0.0f),
      _rms(std::make_unique<std::atomic<float>[]>(static_cast<std::size_t>(std::max(_channelCount, 1)))),
      _publishedLeft(std::make_unique<std::atomic<float>[]>(kScopeFrames)),
      _publishedRight(std::make_unique<std::atomic<float>[]>(kScopeFrames)) {
  for (int c = 0; c < std::max(_channelCount, 1); ++c) _rms[static_cast<std::size_t>(c)].store(0.0f);
  for (int i = 0; i < kScopeFrames; ++i) {
    _publishedLeft[static_cast<std::size_t>(i)].store(0.0f, std::memory_order_relaxed);
    _publishedRight[static_cast<std::size_t>(i)].store(0.0f, std::memory_order_relaxed);
  }
}

void OutputTap::process(const float* const* channels, int frames) noexcept {
  if (_channelCount == 0) return;
  int offset = 0;
  while (offset < frames) {
    const int chunk = std::min(frames - offset, kWindowFrames - _windowFill);
    for (int c = 0; c < _channelCount; ++c) {
      const float* x = channels[c] + offset;
      double sum = 0.0;
      for (int i = 0; i < chunk; ++i) sum += static_cast<double>(x[i]) * x[i];
      _sumSquares[static_cast<std::size_t>(c)] += sum;
    }
    if (_channelCount >= 2 && _scopeFill < kScopeFrames) {
      const int take = std::min(chunk, kScopeFrames - _scopeFill);
      std::copy_n(channels[0] + offset, take, _scopeLeft.begin() + _scopeFill);
      std::copy_n(channels[1] + offset, take, _scopeRight.begin() + _scopeFill);
      _scopeFill += take;
      if (_scopeFill == kScopeFrames) {
        const std::uint64_t seq = _scopeSequence.load(std::memory_order_relaxed);
        _scopeSequence.store(seq + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        for (int i = 0; i < kScopeFrames; ++i) {
          _publishedLeft[static_cast<std::size_t>(i)].store(_scopeLeft[static_cast<std::size_t>(i)], std::memory_order_relaxed);
          _publishedRight[static_cast<std::size_t>(i)].store(_scopeRight[static_cast<std::size_t>(i)], std::memory_order_relaxed);
        }
        _publishedScopeCount.store(kScopeFrames, std::memory_order_relaxed);
        _scopeSequence.store(seq + 2, std::memory_order_release);
      }
    }
    _windowFill += chunk;
    offset += chunk;
    if (_windowFill == kWindowFrames) {
      for (int c = 0; c < _channelCount; ++c) {
        const double mean = _sumSquares[static_cast<std::size_t>(c)] / kWindowFrames;
        _rms[static_cast<std::size_t>(c)].store(static_cast<float>(std::sqrt(mean)), std::memory_order_relaxed);
        _sumSquares[static_cast<std::size_t>(c)] = 0.0;
      }
      _windows.fetch_add(1, std::memory_order_release);
      _windowFill = 0;
      _scopeFill = 0;
    }
  }
}

void OutputTap::readOutputRMS(std::span<float> out) const noexcept {
  const std::size_t n = std::min(out.size(), static_cast<std::size_t>(_channelCount));
  for (std::size_t c = 0; c < n; ++c) out[c] = _rms[c].load(std::memory_order_relaxed);
}

int OutputTap::readPhaseScope(std::span<float> left, std::span<float> right) const noexcept {
  if (_channelCount < 2 || left.size() < kScopeFrames || right.size() < kScopeFrames) return 0;
  for (int attempt = 0; attempt < 4; ++attempt) {
    const std::uint64_t before = _scopeSequence.load(std::memory_order_acquire);
    if (before & 1) continue;
    const int count = _publishedScopeCount.load(std::memory_order_relaxed);
    for (int i = 0; i < count; ++i) {
      left[static_cast<std::size_t>(i)] = _publishedLeft[static_cast<std::size_t>(i)].load(std::memory_order_relaxed);
      right[static_cast<std::size_t>(i)] = _publishedRight[static_cast<std::size_t>(i)].load(std::memory_order_relaxed);
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (_scopeSequence.load(std::memory_order_relaxed) == before) return count;
  }
  return 0;
}

}  // namespace corvane
