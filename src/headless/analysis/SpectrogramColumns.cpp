#include "headless/analysis/SpectrogramColumns.h"

#include <algorithm>
#include <memory>

#include "core/FFTProcessor.h"
#include "headless/analysis/SpectrumPower.h"

namespace corvane {

namespace {
constexpr FrameCount kMinimumHop = 64;
constexpr FrameCount kColumnTarget = 2048;
constexpr float kMissingChannelDB = -100.0f;
}  // namespace

FrameCount spectrogramColumnHop(FrameCount frameCount, int fftSize, int overlapFactor) {
  const FrameCount byOverlap = fftSize / std::max(overlapFactor, 1);
  const FrameCount byLength = (frameCount - fftSize) / kColumnTarget;
  return std::max({byOverlap, byLength, kMinimumHop});
}

SpectrogramColumns computeSpectrogramColumns(std::span<const float* const> channelPointers,
                                             FrameCount frameCount, double sampleRate, int fftSize,
                                             int overlapFactor, std::optional<int> channelIndex,
                                             double startTime, std::stop_token stop) {
  SpectrogramColumns columns;
  const int channelCount = static_cast<int>(channelPointers.size());
  if (fftSize < 2 || fftSize % 2 != 0 || frameCount < fftSize || channelCount < 1 || !(sampleRate > 0.0)) {
    return columns;
  }
  if (std::any_of(channelPointers.begin(), channelPointers.end(), [](const float* p) { return p == nullptr; })) {
    return columns;
  }

  const FrameCount hop = spectrogramColumnHop(frameCount, fftSize, overlapFactor);
  const auto half = static_cast<std::size_t>(fftSize / 2);
  columns.reserve(static_cast<std::size_t>((frameCount - fftSize) / hop + 1));

  const bool mixing = !channelIndex.has_value();
  const bool selectedExists = channelIndex.has_value() && *channelIndex >= 0 && *channelIndex < channelCount;
  // Mixing transforms every channel; a selected channel needs one processor; a missing one none.
  const int processorCount = mixing ? channelCount : (selectedExists ? 1 : 0);
  std::vector<std::unique_ptr<FFTProcessor>> processors;
  for (int c = 0; c < processorCount; ++c) {
    processors.push_back(std::make_unique<FFTProcessor>(fftSize, sampleRate, FFTWindowType::Hann));
    processors.back()->setLiveMode(false);
  }
  std::vector<float> mix(mixing ? half : 0);
  const float mixScale = 1.0f / static_cast<float>(channelCount);

  for (FrameCount pos = 0; pos + fftSize <= frameCount; pos += hop) {
    if (stop.stop_requested()) break;
    SpectrogramColumn column{startTime + static_cast<double>(pos) / sampleRate, std::vector<float>(half)};
    if (mixing) {
      std::fill(mix.begin(), mix.end(), 0.0f);
      for (int c = 0; c < channelCount; ++c) {
        spectrum::addPower(processors[static_cast<std::size_t>(c)]->processPower(channelPointers[static_cast<std::size_t>(c)] + pos, fftSize),
                           std::span<float>(mix));
      }
      spectrum::meanPowerToDecibels(std::span<const float>(mix), mixScale, std::span<float>(column.mags));
    } else if (selectedExists) {
      FFTProcessor& fft = *processors.front();
      const std::span<const float> power = fft.processPower(channelPointers[static_cast<std::size_t>(*channelIndex)] + pos, fftSize);
      std::transform(power.begin(), power.end(), column.mags.begin(), [&fft](float p) { return fft.decibels(p); });
    } else {
      std::fill(column.mags.begin(), column.mags.end(), kMissingChannelDB);
    }
    columns.push_back(std::move(column));
  }
  return columns;
}

SpectrogramColumns computeLoadTimeSpectrogram(const AudioBuffer* buffer, FrameCount frameLen, int chCount,
                                              double sr, int fftSize, int overlapFactor,
                                              std::optional<int> channelIndex, std::stop_token stop) {
  if (buffer == nullptr || chCount < 1 || chCount > buffer->channelCount() || frameLen > buffer->frameLength()) {
    return {};
  }
  return computeSpectrogramColumns(std::span<const float* const>(buffer->channels(), static_cast<std::size_t>(chCount)),
                                   frameLen, sr, fftSize, overlapFactor, channelIndex, 0.0, stop);
}

}  // namespace corvane
