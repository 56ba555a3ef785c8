// OutputTap: what leaves the graph, for the output meters and the phase scope.
//
// The graph runs it on its own format (after time-pitch and EQ, before the device channel map
// and rate conversion) while the transport plays. Every 4096 frames it publishes one RMS per
// channel, and with two or more channels the first 512 frames of channels 0 and 1 of that
// window for the phase scope. The render side never waits: RMS values are single atomics;
// the scope pair is published under a sequence counter that the reader checks, retrying a few
// times if the writer was mid-way.
//
// Thread class: process() on the render thread (wait-free, no allocation); the read functions
// on one reader thread (the main thread). Construction allocates.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace corvane {

class OutputTap {
 public:
  static constexpr int kWindowFrames = 4096;
  static constexpr int kScopeFrames = 512;

  explicit OutputTap(int channelCount);
  OutputTap(const OutputTap&) = delete;
  OutputTap& operator=(const OutputTap&) = delete;

  int channelCount() const { return _channelCount; }

  // Render thread.
  void process(const float* const* channels, int frames) noexcept;

  // Reader: the latest RMS (linear) of each channel; `out` takes min(size, channels) values.
  void readOutputRMS(std::span<float> out) const noexcept;
  // Reader: the latest scope window into `left` and `right` (each at least kScopeFrames long).
  // Returns its frame count; 0 when none was published yet, the tap has fewer than two
  // channels, or the writer kept overtaking the read.
  int readPhaseScope(std::span<float> left, std::span<float> right) const noexcept;
  // Reader: how many windows were published (to tell a fresh reading from a repeated one).
  std::uint64_t windowsPublished() const noexcept {
    return _windows.load(std::memory_order_acquire);
  }

 private:
  int _channelCount;
  // Render side.
  std::vector<double> _sumSquares;
  int _windowFill = 0;
  std::vector<float> _scopeLeft;
  std::vector<float> _scopeRight;
  int _scopeFill = 0;
  // Published.
  std::unique_ptr<std::atomic<float>[]> _rms;
  std::unique_ptr<std::atomic<float>[]> _publishedLeft;
  std::unique_ptr<std::atomic<float>[]> _publishedRight;
  std::atomic<int> _publishedScopeCount{0};
  std::atomic<std::uint64_t> _scopeSequence{0};  // odd while the writer publishes
  std::atomic<std::uint64_t> _windows{0};
};

}  // namespace corvane
