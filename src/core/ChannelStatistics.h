// ChannelStatistics: sample peak, mean square and mean of one channel, the per-channel
// figures of the offline analysis and of the file metrics, and the block figures of the DR
// meter.
//
// Non-finite samples (NaN, ±inf in a damaged float file) count as 0, as they do in the
// loudness and DR measurements, so one bad sample cannot turn every figure into NaN. Sums are
// kept in double: an hour at 48 kHz is 1.7e8 samples, past what float sums keep exact.
//
// Thread class: pure, any thread; no allocation, no lock (safe on the render thread, though
// it is meant for background work).
#pragma once

#include "core/AudioBuffer.h"

namespace corvane {

struct ChannelStatistics {
  float peak = 0.0f;        // largest |sample|
  double meanSquare = 0.0;  // mean of sample²
  double mean = 0.0;        // mean of the samples (DC offset)

  // 20·log10(max(peak, 1e-12)): a silent channel reads −240 dBFS.
  float peakDB() const;
  // 20·log10(sqrt(max(meanSquare, 1e-12))): floored at −120 dBFS.
  float rmsDB() const;
  // peakDB() − rmsDB().
  float crestFactorDB() const { return peakDB() - rmsDB(); }
};

// The statistics of `frameCount` samples from `samples`; zeros for a null pointer or a count
// below 1.
ChannelStatistics measureChannel(const float* samples, FrameCount frameCount) noexcept;

}  // namespace corvane
