// Helpers of the edit tests: test material made by sox, audio read back through Corvane's
// decoder, and the oracles (sox, ffmpeg, libebur128) that judge what the edits did.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "FileTestSupport.h"
#include "headless/edits/EditSource.h"

namespace corvane::test {

// Audio as channel arrays at a rate.
struct Audio {
  ChannelData channels;
  double rate = 0.0;
  std::vector<ChannelPosition> positions;

  int channelCount() const { return static_cast<int>(channels.size()); }
  FrameCount frames() const { return channels.empty() ? 0 : static_cast<FrameCount>(channels.front().size()); }
  std::vector<float*> pointers();
};

// Runs `sox -n <file options> OUT <effects>` to make test material (e.g. options "-r 48000 -b 24
// -c 2", effects "synth 3 pinknoise vol 0.3"), with sox's repeatable random numbers and no
// dither, so the same call makes the same file.
void soxMake(const fs::path& out, const std::string& options, const std::string& effects);

// The whole file through Corvane's decoder (FileEditSource: canonical channel order).
Audio readAudio(const fs::path& file);

// Writes 32-bit float WAV with Corvane's writer.
void writeFloatWav(const fs::path& file, const Audio& audio);

// Channel arrays of sox's decode of a file (float, the file's channel order).
ChannelData soxChannels(const fs::path& file, int channelCount);

// sox's `stats` over all channels: RMS level, peak level (dBFS), DC offset.
struct SoxStats {
  double rmsDB = 0.0;
  double peakDB = 0.0;
  double dcOffset = 0.0;
};
SoxStats soxStats(const fs::path& file);
// The same for one channel (1-based, as sox's remix counts).
SoxStats soxStats(const fs::path& file, int channel);

// ffmpeg astats' overall RMS level (dBFS) over [startSec, startSec + durationSec) of a file.
double astatsRMSDB(const fs::path& file, double startSec, double durationSec);

// libebur128 over channel arrays: integrated loudness (LUFS) and true peak (dBTP, the
// largest over the channels). `surround51` maps six channels as L R C LFE Ls Rs.
struct Ebur128Result {
  double integratedLUFS = 0.0;
  double truePeakDB = 0.0;
};
Ebur128Result ebur128Measure(const Audio& audio, bool surround51 = false);

// Corvane's own meter (LoudnessProcessor) over the arrays: true peak, dBTP.
double ourTruePeakDB(const Audio& audio);

// Largest |a − b| over all samples; infinity when the shapes differ.
double maxDifference(const ChannelData& a, const ChannelData& b);

// Bit-for-bit equality of two sets of arrays (lengths and every sample's bits).
bool bitIdentical(const ChannelData& a, const ChannelData& b);

// Planar → interleaved and back.
std::vector<float> interleave(const ChannelData& channels);
ChannelData deinterleave(const std::vector<float>& interleaved, int channelCount);

}  // namespace corvane::test
