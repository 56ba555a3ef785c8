// Helpers of the offline analysis tests: buffers from synthesised signals, a pass with the
// speech detector left out, and the outside references (sox stats, scipy's Welch, ffmpeg's
// drmeter) run on the very samples the pass measured.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/TestSignals.h"
#include "headless/analysis/SelectionAnalysis.h"

namespace corvane::test {

SharedAudioBuffer toBuffer(const Planar& signal);
// The frames [startFrame, startFrame + frameCount) of a buffer as a signal of its own.
Planar slice(const AudioBuffer& buffer, FrameCount startFrame, FrameCount frameCount);

// Display defaults, no speech detection, one loudness weight per channel.
SelectionAnalysisSettings plainSettings(int channelCount);

// A pass that must finish.
SelectionAnalysisOutput analyse(const SelectionFrames& frames, const SelectionAnalysisSettings& settings);
SelectionAnalysisOutput analyse(const SharedAudioBuffer& buffer, double lowerSec, double upperSec,
                                const SelectionAnalysisSettings& settings);

// `sox stats` on a WAV file, optionally trimmed to frames [start, start + count).
struct SoxStats {
  std::vector<double> dcOffset;  // linear
  std::vector<double> peakDB;    // from the larger of |Min level| and |Max level|
  std::vector<double> rmsDB;
};
SoxStats soxStats(const std::string& wavPath, int channelCount, std::optional<std::pair<FrameCount, FrameCount>> trim = {});

// scipy's Welch spectra (see welch_reference.py) of the signal: one row per channel, then mid
// and side with two or more channels; dB of scipy's 'spectrum' scaling.
std::vector<std::vector<double>> welchReference(const Planar& signal, int nperseg, int noverlap);

// Fails the calling test unless the two outputs agree to the bit in every field.
void expectIdentical(const SelectionAnalysisOutput& x, const SelectionAnalysisOutput& y);

// ffmpeg's drmeter on a WAV file: per-channel and overall DR in dB.
struct DrmeterResult {
  std::vector<double> channels;
  double overall = -1.0;
};
DrmeterResult ffmpegDrmeter(const std::string& wavPath, int channelCount);

}  // namespace corvane::test
