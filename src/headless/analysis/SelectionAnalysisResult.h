// SelectionAnalysisResult: the figures of one offline pass over a selection or a whole file,
// as the Offline tab of every display, the targets and the reports read them.
//
// Conventions: levels are dBFS (sample peak, RMS), dBTP (true peak), LUFS or LU; negative
// infinity means silence or no reading. Per-channel arrays hold one entry per channel of the
// audio analysed, in its canonical order. Curves have one point per 0.1 s loudness block, a
// point's time being the end of its block in the file's time: timeRange.lower + (i + 1) × 0.1 s
// for block i.
//
// A plain value, copied freely; any thread.
#pragma once

#include <limits>
#include <optional>
#include <vector>

#include "core/LevelViolations.h"
#include "headless/speech/SpeechRanges.h"

namespace corvane {

// Averaged spectra of mid ((L + R) / 2) and side ((L − R) / 2) of channels 0 and 1, in dB.
struct MidSideSpectra {
  std::vector<float> mid;
  std::vector<float> side;
};

struct SelectionAnalysisResult {
  static constexpr float kNoReading = -std::numeric_limits<float>::infinity();

  // The selection analysed, seconds in the file's time (as asked for, before the frame rules).
  SecondsRange timeRange;
  // Sample peak per channel: 20·log10(max(peak, 1e-12)), so a silent channel reads −240.
  std::vector<float> peakDB;
  // True peak per channel from the loudness processor, dBTP.
  std::vector<float> truePeakDBByChannel;
  // RMS per channel: 20·log10(sqrt(max(mean square, 1e-12))), floored at −120 dBFS.
  std::vector<float> rmsDB;
  // peakDB − rmsDB per channel.
  std::vector<float> crestFactorDB;
  // Mean of the samples per channel (linear).
  std::vector<float> dcOffset;
  // Largest finite peakDB; −inf when there is none.
  float samplePeakDB = kNoReading;
  // −samplePeakDB; 0 when samplePeakDB is infinite.
  float headroomDB = 0.0f;
  // DR value over all channels and per channel (DRProcessor); −1 and empty when unmeasurable.
  int dynamicRange = -1;
  std::vector<int> channelDR;
  float integratedLUFS = kNoReading;
  float loudnessRange = 0.0f;  // LU
  float truePeakDB = kNoReading;
  float speechGatedLUFS = kNoReading;
  float speechPercentage = 0.0f;  // 0 ... 100
  float speechGatedNoiseFloorDBRMS = kNoReading;
  // Stretches of speech, from the speech history the loudness was gated with, in file time.
  std::vector<SpeechRange> speechRanges;
  // Averaged spectrum per channel: fftSize / 2 values in dB; −100 in every bin when the
  // selection is shorter than one FFT window.
  std::vector<std::vector<float>> fftMagnitudes;
  // Averaged mid and side spectra; absent with fewer than two channels or no window.
  std::optional<MidSideSpectra> msFftMagnitudes;
  // Largest true peak of each block over all channels, dBTP (LevelCurvePoint::value).
  std::vector<LevelCurvePoint> truePeakCurve;
  int fftSize = 0;
  double sampleRate = 0.0;
  // Largest momentary loudness (400 ms windows evaluated every 10 ms, so the maximum does not
  // depend on where 0.1 s blocks fall) and largest short-term loudness; −inf when none.
  float maxMomentaryLUFS = kNoReading;
  float maxShortTermLUFS = kNoReading;
  // Momentary, short-term and integrated loudness at the end of each block (LUFS).
  std::vector<LevelCurvePoint> momentaryCurve;
  std::vector<LevelCurvePoint> shortTermCurve;
  std::vector<LevelCurvePoint> integratedCurve;
};

}  // namespace corvane
