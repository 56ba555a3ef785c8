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
// The level-of-detail pyramid (WaveformPyramidLevel) serves long files at zoom levels between
// the fixed peaks and the samples: a base level of about 2^20 bins per channel, then levels
// of four times as many frames per bin until the top holds at most 16,384 bins. A view asks
// pyramidPeaks for the bins of what it shows, and falls back to computePeaks on the samples
// where no level is fine enough.
//
// Thread class: pure functions of their arguments; any thread.
#pragma once

#include <optional>
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
  friend bool operator==(const WaveformPyramidLevel&, const WaveformPyramidLevel&) = default;
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
// Files from this many frames on get a pyramid.
inline constexpr FrameCount kWaveformPyramidMinFrames = 4194304;
// Bins per channel the base level aims at.
inline constexpr FrameCount kWaveformPyramidBaseBins = 1048576;
inline constexpr int kWaveformPyramidRatio = 4;
// A further level is made while the top one holds at least this many bins.
inline constexpr FrameCount kWaveformPyramidSplitBins = 16385;

// Per channel over the buffer's frameLength() frames. A buffer without channels prints
// "⚠️ computeWaveformPeaks: no channel data" and gives nothing; a resolution below 1 counts
// as 1.
std::vector<ChannelPeaks> computeWaveformPeaks(const AudioBuffer& buffer, int resolution);

// scanClipRegions over each channel's frames 0 ... frameLength(); nothing without channels.
std::vector<ChannelClipRegions> computeClipRegions(const AudioBuffer& buffer, float threshold);

// One bin of `count` frames (at least 1) from `data`: the smallest and largest sample and the
// root of the mean square, computed exactly as every bin above is, so a bin patched after an
// edit equals the bin a full recompute gives.
WaveformPeak peakOfFrames(const float* data, FrameCount count);

// The regions of data[start, end) whose magnitude is at or above `threshold`. A negative
// `start` counts as 0; `end` at or below `start` gives nothing. Frame numbers are indices of
// `data`. NaN samples never count as clipped.
ChannelClipRegions scanClipRegions(const float* data, FrameCount start, FrameCount end, float threshold);

// The levels for a buffer of at least kWaveformPyramidMinFrames frames, finest first; empty
// for a shorter buffer or one without channels. The base level has
// max(1, ceil(frames / 2^20)) frames per bin, computed from the samples like
// computeWaveformPeaks; each further level is downsampleLevel of the one before, ratio 4.
std::vector<WaveformPyramidLevel> buildWaveformPyramid(const AudioBuffer& buffer);

// The level above `level`: framesPerBin × ratio, ceil(bins / ratio) bins per channel. A new bin
// takes the smallest min and the largest max of its source bins, and an rms weighted by the
// frames each source bin really covers of `totalFrames` (a short last bin weighs what it
// holds), summed in double; 0 where nothing is covered. A ratio below 1 counts as 1.
WaveformPyramidLevel downsampleLevel(const WaveformPyramidLevel& level, FrameCount totalFrames, int ratio);

// `numBins` bins over frames [startFrame, endFrame) of one channel, from the coarsest level
// whose framesPerBin is still at most the frames per output bin ((end - start) / numBins,
// whole-number division; below 1 only a level of one frame per bin serves). Output bin i covers
// frames start + floor(length·i/n) up to start + floor(length·(i+1)/n), at least one frame; its
// min and max are those of the level's bins it touches, its rms the unweighted root mean square
// of theirs. None without levels, for numBins below 1, for an empty range, when no level is
// fine enough, or for a channel the level doesn't hold.
std::optional<ChannelPeaks> pyramidPeaks(const std::vector<WaveformPyramidLevel>& levels, int channel,
                                         FrameCount startFrame, FrameCount endFrame, int numBins);
// As above into `out` (its capacity is reused, so a view repainting at the same width doesn't
// allocate); false, with `out` emptied, where the other gives none.
bool pyramidPeaksInto(const std::vector<WaveformPyramidLevel>& levels, int channel, FrameCount startFrame,
                      FrameCount endFrame, int numBins, ChannelPeaks& out);

// `numBins` output bins over frames [startFrame, endFrame) gathered from `bins` of
// `framesPerBin` frames each (bin k covering frames k·framesPerBin onward), whatever their
// size against the output's: output bin i covers start + floor(length·i/n) up to
// start + floor(length·(i+1)/n), at least one frame, and takes the extremes of the bins it
// touches and the unweighted root mean square of their rms. Touched bins are clamped to the
// array. `out` is emptied first and stays empty for no bins, numBins below 1 or an empty range.
void gatherPeaksInto(const ChannelPeaks& bins, FrameCount framesPerBin, FrameCount startFrame, FrameCount endFrame,
                     int numBins, ChannelPeaks& out);

// `numBins` bins over frames [startFrame, endFrame) of one channel, from the samples. The range
// is clamped into the buffer; with step = max(end - start, 1) / numBins (double), bin i covers
// start + floor(step·i) up to min(end, start + floor(step·(i+1))), at least one frame, so with
// fewer frames than bins neighbouring bins repeat a sample. Empty for a channel the buffer
// doesn't have, for numBins below 1 or when the clamped range holds no frame of the buffer.
ChannelPeaks computePeaks(const AudioBuffer& buffer, int channel, FrameCount startFrame, FrameCount endFrame,
                          int numBins);
// As above into `out`, reusing its capacity.
void computePeaksInto(const AudioBuffer& buffer, int channel, FrameCount startFrame, FrameCount endFrame,
                      int numBins, ChannelPeaks& out);

}  // namespace corvane
