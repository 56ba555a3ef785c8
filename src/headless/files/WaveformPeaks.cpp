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

WaveformPeak peakOfFrames(const float* data, FrameCount count) { return binPeak(data, count); }

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

std::vector<WaveformPyramidLevel> buildWaveformPyramid(const AudioBuffer& buffer) {
  const FrameCount frames = buffer.frameLength();
  if (buffer.channelCount() < 1 || frames < kWaveformPyramidMinFrames) return {};
  WaveformPyramidLevel base;
  base.framesPerBin = std::max<FrameCount>(1, (frames + kWaveformPyramidBaseBins - 1) / kWaveformPyramidBaseBins);
  base.peaks.resize(static_cast<std::size_t>(buffer.channelCount()));
  for (int c = 0; c < buffer.channelCount(); ++c) {
    const float* data = buffer.channel(c);
    auto& bins = base.peaks[static_cast<std::size_t>(c)];
    bins.reserve(static_cast<std::size_t>((frames + base.framesPerBin - 1) / base.framesPerBin));
    for (FrameCount start = 0; start < frames; start += base.framesPerBin) {
      bins.push_back(binPeak(data + start, std::min(base.framesPerBin, frames - start)));
    }
  }
  std::vector<WaveformPyramidLevel> levels;
  levels.push_back(std::move(base));
  while (static_cast<FrameCount>(levels.back().peaks[0].size()) >= kWaveformPyramidSplitBins) {
    levels.push_back(downsampleLevel(levels.back(), frames, kWaveformPyramidRatio));
  }
  return levels;
}

WaveformPyramidLevel downsampleLevel(const WaveformPyramidLevel& level, FrameCount totalFrames, int ratio) {
  ratio = std::max(ratio, 1);
  WaveformPyramidLevel next;
  next.framesPerBin = level.framesPerBin * ratio;
  next.peaks.reserve(level.peaks.size());
  for (const ChannelPeaks& source : level.peaks) {
    const std::size_t count = source.size();
    const std::size_t step = static_cast<std::size_t>(ratio);
    ChannelPeaks bins;
    bins.reserve((count + step - 1) / step);
    for (std::size_t first = 0; first < count; first += step) {
      const std::size_t last = std::min(count, first + step);
      WaveformPeak peak{source[first].min, source[first].max, 0.0f};
      double weighted = 0.0, covered = 0.0;
      for (std::size_t i = first; i < last; ++i) {
        peak.min = std::min(peak.min, source[i].min);
        peak.max = std::max(peak.max, source[i].max);
        const FrameCount frames = std::clamp<FrameCount>(
            totalFrames - static_cast<FrameCount>(i) * level.framesPerBin, 0, level.framesPerBin);
        weighted += static_cast<double>(source[i].rms) * source[i].rms * static_cast<double>(frames);
        covered += static_cast<double>(frames);
      }
      peak.rms = covered > 0.0 ? static_cast<float>(std::sqrt(weighted / covered)) : 0.0f;
      bins.push_back(peak);
    }
    next.peaks.push_back(std::move(bins));
  }
  return next;
}

bool pyramidPeaksInto(const std::vector<WaveformPyramidLevel>& levels, int channel, FrameCount startFrame,
                      FrameCount endFrame, int numBins, ChannelPeaks& out) {
  out.clear();
  if (levels.empty() || numBins < 1 || endFrame <= startFrame) return false;
  const FrameCount length = endFrame - startFrame;
  const FrameCount wanted = length / numBins;
  const WaveformPyramidLevel* chosen = nullptr;
  for (const auto& level : levels) {
    const bool eligible = wanted >= 1 ? wanted >= level.framesPerBin : level.framesPerBin < 2;
    if (eligible) chosen = &level;
  }
  if (chosen == nullptr || channel < 0 || channel >= static_cast<int>(chosen->peaks.size())) return false;
  const ChannelPeaks& bins = chosen->peaks[static_cast<std::size_t>(channel)];
  if (bins.empty()) return false;
  gatherPeaksInto(bins, chosen->framesPerBin, startFrame, endFrame, numBins, out);
  return true;
}

void gatherPeaksInto(const ChannelPeaks& bins, FrameCount framesPerBin, FrameCount startFrame, FrameCount endFrame,
                     int numBins, ChannelPeaks& out) {
  out.clear();
  if (bins.empty() || numBins < 1 || endFrame <= startFrame || framesPerBin < 1) return;
  const FrameCount length = endFrame - startFrame;
  const FrameCount lastBin = static_cast<FrameCount>(bins.size()) - 1;
  const FrameCount n = numBins;
  out.reserve(static_cast<std::size_t>(numBins));
  for (FrameCount i = 0; i < n; ++i) {
    const FrameCount a = startFrame + length * i / n;
    const FrameCount b = std::max(startFrame + length * (i + 1) / n, a + 1);
    const FrameCount first = std::clamp<FrameCount>(a / framesPerBin, 0, lastBin);
    const FrameCount last = std::clamp<FrameCount>((b - 1) / framesPerBin, first, lastBin);
    WaveformPeak peak{bins[static_cast<std::size_t>(first)].min, bins[static_cast<std::size_t>(first)].max, 0.0f};
    double squares = 0.0;
    for (FrameCount k = first; k <= last; ++k) {
      const WaveformPeak& bin = bins[static_cast<std::size_t>(k)];
      peak.min = std::min(peak.min, bin.min);
      peak.max = std::max(peak.max, bin.max);
      squares += static_cast<double>(bin.rms) * bin.rms;
    }
    peak.rms = static_cast<float>(std::sqrt(squares / static_cast<double>(last - first + 1)));
    out.push_back(peak);
  }
}

std::optional<ChannelPeaks> pyramidPeaks(const std::vector<WaveformPyramidLevel>& levels, int channel,
                                         FrameCount startFrame, FrameCount endFrame, int numBins) {
  ChannelPeaks peaks;
  if (!pyramidPeaksInto(levels, channel, startFrame, endFrame, numBins, peaks)) return std::nullopt;
  return peaks;
}

void computePeaksInto(const AudioBuffer& buffer, int channel, FrameCount startFrame, FrameCount endFrame,
                      int numBins, ChannelPeaks& out) {
  out.clear();
  const FrameCount frames = buffer.frameLength();
  if (channel < 0 || channel >= buffer.channelCount() || numBins < 1) return;
  startFrame = std::max<FrameCount>(startFrame, 0);
  endFrame = std::min(endFrame, frames);
  if (startFrame >= frames) return;
  const float* data = buffer.channel(channel);
  const double step = static_cast<double>(std::max<FrameCount>(endFrame - startFrame, 1)) / numBins;
  out.reserve(static_cast<std::size_t>(numBins));
  for (int i = 0; i < numBins; ++i) {
    const FrameCount a = startFrame + static_cast<FrameCount>(std::floor(step * i));
    // The last bin ends at the end itself: step · n can fall a hair short of the length.
    FrameCount b = i + 1 == numBins ? endFrame
                                    : std::min(endFrame, startFrame + static_cast<FrameCount>(std::floor(step * (i + 1))));
    const FrameCount first = std::min(a, frames - 1);
    b = std::clamp(b, first + 1, frames);
    out.push_back(binPeak(data + first, b - first));
  }
}

ChannelPeaks computePeaks(const AudioBuffer& buffer, int channel, FrameCount startFrame, FrameCount endFrame,
                          int numBins) {
  ChannelPeaks peaks;
  computePeaksInto(buffer, channel, startFrame, endFrame, numBins, peaks);
  return peaks;
}

}  // namespace corvane
