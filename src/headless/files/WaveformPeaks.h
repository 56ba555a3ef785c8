// Waveform peaks and clip regions: the compact picture of a buffer that its AudioFileModel
// carries from the load on.
//
// waveformPeaks: per channel, bins of max(frames / resolution, 1) frames (whole-number
// division) from frame 0, the last bin possibly short, so a file longer than the resolution
// has between `resolution` and just under twice as many bins, a shorter one one bin per frame.
// Each bin holds the smallest and largest sample and the root of its mean square.
//
// clipRegions: per channel, the stretches whose magnitude reaches the threshold (0.9999 at
// load), as closed frame ranges in ascending order that never overlap. One clipped sample
// makes a region of one frame; gaps are not bridged. The scan looks at each sample only in
// chunks of 4096 whose largest magnitude reaches the threshold, so clean material costs one
// vectorised maximum per chunk.
//
// The level-of-detail pyramid (WaveformPyramidLevel) is built later, with the session; its
// record lives here so that the model can hold it.
//
// Thread class: pure functions of their arguments; any thread.
#pragma once

#include <vector>

#include "core/AudioBuffer.h"

namespace corvane {

struct WaveformPeak {
  float min = 0.0f;
  float max = 0.0f;
  float rms = 0.0f;
  friend bool operator==(const WaveformPeak&, const WaveformPeak&) = default;
};

using ChannelPeaks = std::vector<WaveformPeak>;

struct WaveformPyramidLevel {
  FrameCount framesPerBin = 1;
  std::vector<ChannelPeaks> peaks;  // per channel; every channel has the same bin count
};

// A closed range of frame numbers.
struct ClipRegion {
  FrameCount first = 0;
  FrameCount last = 0;
  friend bool operator==(const ClipRegion&, const ClipRegion&) = default;
};

using ChannelClipRegions = std::vector<ClipRegion>;

inline constexpr int kWaveformPeakResolution = 4096;
inline constexpr float kClipThreshold = 0.9999f;
inline constexpr FrameCount kClipScanChunk = 4096;

// Per channel over the buffer's frameLength() frames. A buffer without channels prints
// "⚠️ computeWaveformPeaks: no channel data" and gives nothing; a resolution below 1 counts
// as 1.
std::vector<ChannelPeaks> computeWaveformPeaks(const AudioBuffer& buffer, int resolution);

// scanClipRegions over each channel's frames 0 ... frameLength(); nothing without channels.
std::vector<ChannelClipRegions> computeClipRegions(const AudioBuffer& buffer, float threshold);

// The regions of data[start, end) whose magnitude is at or above `threshold`. A negative
// `start` counts as 0; `end` at or below `start` gives nothing. Frame numbers are indices of
// `data`. NaN samples never count as clipped.
ChannelClipRegions scanClipRegions(const float* data, FrameCount start, FrameCount end, float threshold);

}  // namespace corvane
