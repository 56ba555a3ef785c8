// LoudnessMeasurement: the readings a file is judged by against its targets.
//
// The session fills one from whatever the display shows (live meters, a selection's analysis
// or the file's metrics); the CLI from one offline pass. Every level uses the house
// convention: negative infinity means silence or no reading yet.
//
// Thread class: plain value, any thread.
#pragma once

#include <limits>
#include <optional>
#include <span>

namespace corvane {

struct LoudnessMeasurement {
  static constexpr float kNoReading = -std::numeric_limits<float>::infinity();

  float integratedLUFS = kNoReading;
  // BS.1770 loudness over the blocks detected as speech; -inf without detected speech.
  float dialogGatedLUFS = kNoReading;
  // Share of the programme detected as speech, 0 ... 100; nullopt when speech detection has
  // not run (then no dialogue fallback can be decided). The loudness processor reads 0
  // without a speech history: pass its figure only when a history was present.
  std::optional<float> speechPercentage;
  float truePeakDBTP = kNoReading;
  float maxShortTermLUFS = kNoReading;
  // Un-weighted RMS of the whole programme (see programRMSDBFS), dBFS. Only an offline pass
  // gives one.
  float rmsDBFS = kNoReading;
  // Un-weighted RMS level of the non-speech blocks (room tone between phrases), dB RMS. -inf
  // when there was nothing to measure: no speech detection, no pauses, or pauses of digital
  // silence. Targets with a noise-floor limit can't tell these apart and flag the verdict.
  float speechGatedNoiseFloorDBRMS = kNoReading;

  // One programme RMS from per-channel RMS levels (dBFS): the RMS over every sample of every
  // channel, i.e. the mean of the channels' powers. Identical channels read as one (a mono
  // voice in a stereo file is not 3 dB louder than the mono file); a silent channel pulls the
  // level down by its share of samples, as it does in the file. -inf for an empty list or
  // all-silent channels; NaN entries are skipped.
  static float programRMSDBFS(std::span<const float> perChannelDBFS);
};

}  // namespace corvane
