#include "headless/files/WaveformPeaks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace corvane {

namespace {

// Per-bin statistics in eight lanes (two SSE2 registers on x86-64, whose baseline has them):
// the compiler won't vectorise these reductions itself without licence to reassociate
// floating point. Squares are summed in float per lane, as a vectorised mean square is, and
// the lanes in double; a display bin holds at most a few hundred thousand samples. min and max
// pass NaN over, like the comparisons of the scalar tail.
constexpr int kLanes = 8;

struct Lanes {
  float low[kLanes];
  float high[kLanes];
  float squares[kLanes];
};

#if defined(__SSE2__)
FrameCount accumulate(const float* data, FrameCount count, Lanes& lanes) {
  __m128 low0 = _mm_set1_ps(data[0]), low1 = low0, high0 = low0, high1 = low0;
  __m128 sum0 = _mm_setzero_ps(), sum1 = sum0;
  FrameCount i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    const __m128 a = _mm_loadu_ps(data + i);
    const __m128 b = _mm_loadu_ps(data + i + 4);
    low0 = _mm_min_ps(a, low0);
    low1 = _mm_min_ps(b, low1);
    high0 = _mm_max_ps(a, high0);
    high1 = _mm_max_ps(b, high1);
    sum0 = _mm_add_ps(sum0, _mm_mul_ps(a, a));
    sum1 = _mm_add_ps(sum1, _mm_mul_ps(b, b));
  }
  _mm_storeu_ps(lanes.low, low0);
  _mm_storeu_ps(lanes.low + 4, low1);
  _mm_storeu_ps(lanes.high, high0);
  _mm_storeu_ps(lanes.high + 4, high1);
  _mm_storeu_ps(lanes.squares, sum0);
  _mm_storeu_ps(lanes.squares + 4, sum1);
  return i;
}

float largestMagnitude(const float* data, FrameCount count) {
  const __m128 magnitudeMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
  __m128 largest0 = _mm_setzero_ps(), largest1 = largest0;
  FrameCount i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    largest0 = _mm_max_ps(_mm_and_ps(_mm_loadu_ps(data + i), magnitudeMask), largest0);
    largest1 = _mm_max_ps(_mm_and_ps(_mm_loadu_ps(data + i + 4), magnitudeMask), largest1);
  }
  float lanes[kLanes];
  _mm_storeu_ps(lanes, largest0);
  _mm_storeu_ps(lanes + 4, largest1);
  float largest = *std::max_element(lanes, lanes + kLanes);
  for (; i < count; ++i) largest = std::fabs(data[i]) > largest ? std::fabs(data[i]) : largest;
  return largest;
}
#else
FrameCount accumulate(const float* data, FrameCount count, Lanes& lanes) {
  for (int lane = 0; lane < kLanes; ++lane) {
    lanes.low[lane] = lanes.high[lane] = data[0];
    lanes.squares[lane] = 0.0f;
  }
  FrameCount i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (int lane = 0; lane < kLanes; ++lane) {
      const float x = data[i + lane];
      lanes.low[lane] = x < lanes.low[lane] ? x : lanes.low[lane];
      lanes.high[lane] = x > lanes.high[lane] ? x : lanes.high[lane];
      lanes.squares[lane] += x * x;
    }
  }
  return i;
}

float largestMagnitude(const float* data, FrameCount count) {
  float largest = 0.0f;
  for (FrameCount i = 0; i < count; ++i) largest = std::fabs(data[i]) > largest ? std::fabs(data[i]) : largest;
  return largest;
}
#endif

WaveformPeak binPeak(const float* data, FrameCount count) {
  Lanes lanes;
  FrameCount i = accumulate(data, count, lanes);
  float minimum = lanes.low[0], maximum = lanes.high[0];
  double total = 0.0;
  for (int lane = 0; lane < kLanes; ++lane) {
    minimum = lanes.low[lane] < minimum ? lanes.low[lane] : minimum;
    maximum = lanes.high[lane] > maximum ? lanes.high[lane] : maximum;
    total += lanes.squares[lane];
  }
  for (; i < count; ++i) {
    const float x = data[i];
    minimum = x < minimum ? x : minimum;
    maximum = x > maximum ? x : maximum;
    total += static_cast<double>(x) * x;
  }
  return {minimum, maximum, static_cast<float>(std::sqrt(total / static_cast<double>(count)))};
}

}  // namespace

std::vector<ChannelPeaks> computeWaveformPeaks(const AudioBuffer& buffer, int resolution) {
  if (buffer.channelCount() < 1) {
    std::printf("⚠️ computeWaveformPeaks: no channel data\n");
    std::fflush(stdout);
    return {};
  }
  const FrameCount frames = buffer.frameLength();
  const FrameCount binSize = std::max<FrameCount>(frames / std::max(resolution, 1), 1);
  std::vector<ChannelPeaks> peaks(static_cast<std::size_t>(buffer.channelCount()));
  for (int c = 0; c < buffer.channelCount(); ++c) {
    const float* data = buffer.channel(c);
    auto& bins = peaks[static_cast<std::size_t>(c)];
    bins.reserve(static_cast<std::size_t>((frames + binSize - 1) / binSize));
    for (FrameCount start = 0; start < frames; start += binSize) {
      bins.push_back(binPeak(data + start, std::min(binSize, frames - start)));
    }
  }
  return peaks;
}

std::vector<ChannelClipRegions> computeClipRegions(const AudioBuffer& buffer, float threshold) {
  std::vector<ChannelClipRegions> regions;
  regions.reserve(static_cast<std::size_t>(buffer.channelCount()));
  for (int c = 0; c < buffer.channelCount(); ++c) {
    regions.push_back(scanClipRegions(buffer.channel(c), 0, buffer.frameLength(), threshold));
  }
  return regions;
}

ChannelClipRegions scanClipRegions(const float* data, FrameCount start, FrameCount end, float threshold) {
  start = std::max<FrameCount>(start, 0);
  ChannelClipRegions regions;
  if (end <= start || data == nullptr) return regions;
  FrameCount runStart = -1;
  for (FrameCount chunk = start; chunk < end; chunk += kClipScanChunk) {
    const FrameCount count = std::min(kClipScanChunk, end - chunk);
    if (!(largestMagnitude(data + chunk, count) >= threshold)) {
      if (runStart >= 0) {
        regions.push_back({runStart, chunk - 1});
        runStart = -1;
      }
      continue;
    }
    for (FrameCount i = chunk; i < chunk + count; ++i) {
      if (std::fabs(data[i]) >= threshold) {
        if (runStart < 0) runStart = i;
      } else if (runStart >= 0) {
        regions.push_back({runStart, i - 1});
        runStart = -1;
      }
    }
  }
  if (runStart >= 0) regions.push_back({runStart, end - 1});
  return regions;
}

}  // namespace corvane
