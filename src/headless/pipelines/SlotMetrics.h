// SlotMetrics: the whole-file measurements of one loaded file, as the info panel, the compare
// metrics table and `corvane measure` show them.
//
// computeSlotMetrics is the third stage of every load (FileLoadPipeline.h) and the measuring
// stage of every compare slot, so the window's figures and a script's come from one place:
//   - loudness: a LoudnessProcessor in offline feed, with the file's speech history and the
//     BS.1770 weights of its channel positions, fed in chunks of max(1, round(rate × 0.1))
//     frames (updateTruePeak, then process), then flushPartialBlock. Its block history is the
//     loudness curve, point k at (k + 1) × 0.1 s. A rate the processor does not measure
//     (outside 8 kHz ... 768 kHz) leaves every loudness figure at −inf (LRA 0) and the curve
//     empty; the other figures stand.
//   - per channel: sample peak, RMS, crest factor and DC offset (ChannelStatistics), true peak
//     (the processor's), DR (DRProcessor).
//   - the stereo width curve of channels 0 and 1 (computeStereoWidthCurve), below two
//     channels none.
//   - speech ranges of the history (computeSpeechRanges at 0.1 s blocks).
// Maximum momentary is the processor's maximum over 10 ms steps, the same figure the selection
// analysis reports, so a whole-file analysis and the file metrics agree; maximum short-term is
// the largest short-term value at the 0.1 s blocks. Both −inf when none is finite.
//
// Levels in dBFS, dBTP, LUFS and LU; −inf means silence or no reading.
// Thread class: pure, any thread (background tasks). It reads the buffer only; with two
// threads the statistics, DR and width curve run beside the loudness feed on a thread of its
// own, and the result does not depend on it. Allocates the result; std::bad_alloc only.
#pragma once

#include <vector>

#include "core/AudioBuffer.h"
#include "core/SpeechHistory.h"
#include "headless/analysis/StereoWidthCurve.h"
#include "headless/speech/SpeechRanges.h"

namespace corvane {

// One 0.1 s block of the loudness curve; time is the end of the block, in seconds.
struct LoudnessCurvePoint {
  double time = 0.0;
  float momentaryLUFS = 0.0f;
  float shortTermLUFS = 0.0f;
  float integratedLUFS = 0.0f;
  friend bool operator==(const LoudnessCurvePoint&, const LoudnessCurvePoint&) = default;
};

struct SlotMetrics {
  float integratedLUFS = 0.0f;
  float truePeakDB = 0.0f;              // dBTP, all channels
  float samplePeakDB = 0.0f;            // dBFS, largest |sample| of all channels; −inf for silence
  float loudnessRange = 0.0f;           // LU
  int dynamicRange = -1;                // DR value; −1 when there was nothing to measure
  float speechGatedLUFS = 0.0f;
  float speechPercentage = 0.0f;        // 0 ... 100
  float speechGatedNoiseFloorDBRMS = 0.0f;
  float headroomDB = 0.0f;              // −samplePeakDB; 0 when the peak is −inf
  float maxMomentaryLUFS = 0.0f;
  float maxShortTermLUFS = 0.0f;
  double duration = 0.0;                // seconds, the model's
  std::vector<float> channelPeakDB;     // 20·log10(max(peak, 1e−12))
  std::vector<float> channelTruePeakDB;
  std::vector<float> channelRMSDB;      // 20·log10(sqrt(max(mean square, 1e−12)))
  std::vector<float> channelCrestFactorDB;
  std::vector<float> channelDCOffset;   // mean of the samples, linear
  std::vector<int> channelDR;
  std::vector<LoudnessCurvePoint> fileLoudnessCurve;
  std::vector<SpeechRange> speechRanges;
  std::vector<StereoWidthCurvePoint> stereoWidthCurve;  // empty below two channels
  SharedSpeechHistory speechHistory;               // as given to the measuring; may be null

  friend bool operator==(const SlotMetrics&, const SlotMetrics&) = default;
};

// The metrics of the buffer's frameLength() frames. `duration` is the model's (a truncated
// file keeps its header's length there). `speechHistory` may be null: no speech figures.
// `threads` 2 measures the channel figures beside the loudness feed, 1 on the calling thread.
SlotMetrics computeSlotMetrics(const AudioBuffer& buffer, double duration, SharedSpeechHistory speechHistory,
                               int threads = 2);

}  // namespace corvane
