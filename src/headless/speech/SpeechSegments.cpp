#include "headless/speech/SpeechSegments.h"

#include <algorithm>
#include <cmath>

namespace corvane {

std::vector<SpeechSegment> detectSpeechSegments(std::span<const float> probabilities, int windowSamples,
                                                int sampleRate, std::int64_t totalSamples,
                                                const SileroVADTuning& tuning, double paddingSec) {
  const double threshold = tuning.threshold;
  const double lowerThreshold = std::max(threshold - 0.15, 0.01);
  const double minSpeechSamples = tuning.minSpeechDurationSec * sampleRate;
  const double minSilenceSamples = tuning.minSilenceDurationSec * sampleRate;

  std::vector<SpeechSegment> segments;
  bool inSpeech = false;
  std::int64_t start = 0;
  std::int64_t possibleEnd = -1;  // -1: none
  for (std::size_t i = 0; i < probabilities.size(); ++i) {
    const double p = probabilities[i];
    const std::int64_t position = static_cast<std::int64_t>(i) * windowSamples;
    if (p >= threshold) {
      possibleEnd = -1;
      if (!inSpeech) {
        inSpeech = true;
        start = position;
      }
      continue;
    }
    if (!inSpeech || p >= lowerThreshold) continue;
    if (possibleEnd < 0) possibleEnd = position;
    if (static_cast<double>(position - possibleEnd) < minSilenceSamples) continue;
    if (static_cast<double>(possibleEnd - start) > minSpeechSamples) segments.push_back({start, possibleEnd});
    inSpeech = false;
    possibleEnd = -1;
  }
  if (inSpeech && static_cast<double>(totalSamples - start) > minSpeechSamples) {
    segments.push_back({start, totalSamples});
  }

  const std::int64_t pad = std::llround(paddingSec * sampleRate);
  for (std::size_t i = 0; i < segments.size(); ++i) {
    SpeechSegment& s = segments[i];
    if (i == 0) s.startSample = std::max<std::int64_t>(0, s.startSample - pad);
    if (i + 1 < segments.size()) {
      SpeechSegment& next = segments[i + 1];
      const std::int64_t gap = next.startSample - s.endSample;
      const std::int64_t widen = gap < 2 * pad ? gap / 2 : pad;
      s.endSample += widen;
      next.startSample -= widen;
    } else {
      s.endSample = std::min(totalSamples, s.endSample + pad);
    }
  }
  return segments;
}

FrameCount speechBlockFrames(double sampleRate, double blockDurationSec) {
  return std::max<FrameCount>(1, std::llround(sampleRate * blockDurationSec));
}

std::int64_t speechBlockCount(FrameCount frames, double sampleRate, double blockDurationSec) {
  if (frames <= 0) return 0;
  const FrameCount block = speechBlockFrames(sampleRate, blockDurationSec);
  return (frames + block - 1) / block;
}

SpeechHistory speechHistoryFromSegments(std::span<const SpeechSegment> segments, double detectorRate,
                                            FrameCount sourceFrames, double sourceRate, double blockDurationSec) {
  const FrameCount block = speechBlockFrames(sourceRate, blockDurationSec);
  const std::int64_t count = speechBlockCount(sourceFrames, sourceRate, blockDurationSec);
  SpeechHistory history(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)), false);
  const double scale = sourceRate / detectorRate;
  for (const SpeechSegment& segment : segments) {
    // The segment in source frames, half-open; a block counts when its middle lies inside.
    const double startFrame = static_cast<double>(segment.startSample) * scale;
    const double endFrame = static_cast<double>(segment.endSample) * scale;
    std::int64_t first = std::max<std::int64_t>(0, static_cast<std::int64_t>(std::floor(startFrame / block)) - 1);
    const std::int64_t last = std::min<std::int64_t>(count, static_cast<std::int64_t>(std::ceil(endFrame / block)) + 1);
    for (std::int64_t b = first; b < last; ++b) {
      const FrameCount blockStart = b * block;
      const FrameCount blockEnd = std::min(sourceFrames, blockStart + block);
      const double middle = 0.5 * static_cast<double>(blockStart + blockEnd);
      if (middle >= startFrame && middle < endFrame) history[static_cast<std::size_t>(b)] = true;
    }
  }
  return history;
}

}  // namespace corvane
