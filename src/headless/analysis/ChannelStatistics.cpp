#include "headless/analysis/ChannelStatistics.h"

#include <algorithm>
#include <cmath>

namespace corvane {

namespace {

// Independent accumulators per lane, so the compiler can keep several sums in vector
// registers instead of one long dependency chain; the lanes are added in a fixed order, so
// the result does not depend on the machine.
constexpr int kLanes = 8;

// Clears a non-finite sample without a branch: NaN and ±inf fail the comparison.
inline float finiteOrZero(float v) { return std::fabs(v) <= 3.4028235e38f ? v : 0.0f; }

}  // namespace

float ChannelStatistics::peakDB() const {
  return static_cast<float>(20.0 * std::log10(std::max(static_cast<double>(peak), 1e-12)));
}

float ChannelStatistics::rmsDB() const {
  return static_cast<float>(20.0 * std::log10(std::sqrt(std::max(meanSquare, 1e-12))));
}

ChannelStatistics measureChannel(const float* samples, FrameCount frameCount) noexcept {
  ChannelStatistics s;
  if (samples == nullptr || frameCount < 1) return s;
  double sum[kLanes] = {};
  double sumSquares[kLanes] = {};
  float peak[kLanes] = {};
  FrameCount i = 0;
  for (; i + kLanes <= frameCount; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) {
      const float v = finiteOrZero(samples[i + l]);
      const double d = v;
      sum[l] += d;
      sumSquares[l] += d * d;
      peak[l] = std::max(peak[l], std::fabs(v));
    }
  }
  for (int l = 0; i < frameCount; ++i, ++l) {
    const float v = finiteOrZero(samples[i]);
    sum[l] += v;
    sumSquares[l] += static_cast<double>(v) * v;
    peak[l] = std::max(peak[l], std::fabs(v));
  }
  double totalSum = 0.0, totalSquares = 0.0;
  for (int l = 0; l < kLanes; ++l) {
    totalSum += sum[l];
    totalSquares += sumSquares[l];
    s.peak = std::max(s.peak, peak[l]);
  }
  s.mean = totalSum / static_cast<double>(frameCount);
  s.meanSquare = totalSquares / static_cast<double>(frameCount);
  return s;
}

}  // namespace corvane
