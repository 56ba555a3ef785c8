#include "core/DRProcessor.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "core/ChannelStatistics.h"

namespace corvane::DRProcessor {
namespace {

struct Block {
  double rmsSquared;  // 2 · mean square
  double peak;
};

std::vector<Block> blocksOf(const float* samples, FrameCount frameCount, double sampleRate) {
  const FrameCount blockFrames = std::max<FrameCount>(1, std::llround(3.0 * sampleRate));
  std::vector<Block> blocks;
  blocks.reserve(static_cast<std::size_t>(frameCount / blockFrames + 1));
  for (FrameCount start = 0; start < frameCount; start += blockFrames) {
    const ChannelStatistics block = measureChannel(samples + start, std::min(blockFrames, frameCount - start));
    blocks.push_back({2.0 * block.meanSquare, block.peak});
  }
  return blocks;
}

bool measurable(const float* const* channelData, int channelCount, FrameCount frameCount) {
  if (channelData == nullptr || channelCount < 1 || frameCount < 1) return false;
  for (int c = 0; c < channelCount; ++c) {
    if (channelData[c] == nullptr) return false;
  }
  return true;
}

}  // namespace

double channelDRDecibels(const float* samples, FrameCount frameCount, double sampleRate) {
  if (samples == nullptr || frameCount < 1 || !(sampleRate > 0.0)) return 0.0;
  std::vector<Block> blocks = blocksOf(samples, frameCount, sampleRate);
  std::vector<double> peaks;
  peaks.reserve(blocks.size());
  for (const Block& b : blocks) peaks.push_back(b.peak);
  std::sort(peaks.begin(), peaks.end(), std::greater<>());
  const double secondPeak = peaks.size() > 1 ? peaks[1] : peaks[0];

  std::sort(blocks.begin(), blocks.end(),
            [](const Block& a, const Block& b) { return a.rmsSquared > b.rmsSquared; });
  const std::size_t loudest =
      std::max<std::size_t>(1, static_cast<std::size_t>(std::llround(0.2 * static_cast<double>(blocks.size()))));
  double sum = 0.0;
  for (std::size_t i = 0; i < loudest; ++i) sum += blocks[i].rmsSquared;
  const double rms = std::sqrt(sum / static_cast<double>(loudest));
  if (!(secondPeak > 0.0) || !(rms > 0.0)) return 0.0;
  return 20.0 * std::log10(secondPeak / rms);
}

std::vector<int> computeDRPerChannel(const float* const* channelData, int channelCount,
                                     FrameCount frameCount, double sampleRate) {
  std::vector<int> result;
  if (!measurable(channelData, channelCount, frameCount)) return result;
  result.reserve(static_cast<std::size_t>(channelCount));
  for (int c = 0; c < channelCount; ++c) {
    result.push_back(static_cast<int>(std::lround(channelDRDecibels(channelData[c], frameCount, sampleRate))));
  }
  return result;
}

int computeDR(const float* const* channelData, int channelCount, FrameCount frameCount,
              double sampleRate) {
  if (!measurable(channelData, channelCount, frameCount)) return -1;
  double sum = 0.0;
  for (int c = 0; c < channelCount; ++c) sum += channelDRDecibels(channelData[c], frameCount, sampleRate);
  return static_cast<int>(std::lround(sum / channelCount));
}

}  // namespace corvane::DRProcessor
