#include "headless/files/WaveformPeaks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace corvane {

namespace {

WaveformPeak binPeak(const float* data, FrameCount count) {
  float low = data[0];
  float high = data[0];
  double sumSquares = 0.0;
  for (FrameCount i = 0; i < count; ++i) {
    const float x = data[i];
    low = std::min(low, x);
    high = std::max(high, x);
    sumSquares += static_cast<double>(x) * static_cast<double>(x);
  }
  return {low, high, static_cast<float>(std::sqrt(sumSquares / static_cast<double>(count)))};
}

float largestMagnitude(const float* data, FrameCount count) {
  float largest = 0.0f;
  for (FrameCount i = 0; i < count; ++i) largest = std::max(largest, std::fabs(data[i]));
  return largest;
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
