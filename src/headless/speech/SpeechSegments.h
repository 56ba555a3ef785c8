// From speech probabilities to the speech history: Silero's hysteresis, and the mapping of
// speech segments onto the 0.1 s blocks that the loudness processor counts.
//
// Choices of ours, where the detector's contract leaves them open:
// - Padding: each segment is widened by 30 ms on both sides (Silero's own default), because
//   the network starts to fire a little after a word begins and the soft ends of words fall
//   below the lower threshold before they are inaudible. Where two segments are closer than
//   two paddings, the pause between them is split at its middle.
// - Maximum speech length: none. Splitting long speech only serves chunked transcription; a
//   history of speech blocks would merely gain an artificial gap.
// - A block is speech when the middle of its frames lies inside a speech segment, i.e. when
//   speech covers about half of it or more. The same rule places regions on blocks
//   (DialogueRegion::toHistory), so that a region and the history it came from agree.
//
// Thread class: pure functions, any thread.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/SpeechHistory.h"
#include "headless/speech/SileroVADTuning.h"

namespace corvane {

// A half-open range of samples at the detector's rate.
struct SpeechSegment {
  std::int64_t startSample = 0;
  std::int64_t endSample = 0;
  bool operator==(const SpeechSegment&) const = default;
};

inline constexpr double kSpeechPaddingSec = 0.03;

// Silero's hysteresis over one probability per window of `windowSamples` at `sampleRate`:
// speech starts at the first window at or above the threshold; a window below the lower
// threshold max(threshold − 0.15, 0.01) marks a possible end, which a window back at the
// threshold cancels; when a window below the lower threshold lies minSilenceDurationSec or
// more after the possible end, the segment ends at the possible end. Segments not longer
// than minSpeechDurationSec are dropped; speech still open at the end closes at
// `totalSamples`. Then the padding above, clamped to 0 ... totalSamples. `paddingSec` 0 turns
// the padding off.
std::vector<SpeechSegment> detectSpeechSegments(std::span<const float> probabilities, int windowSamples,
                                                int sampleRate, std::int64_t totalSamples,
                                                const SileroVADTuning& tuning,
                                                double paddingSec = kSpeechPaddingSec);

// Frames per history block: max(1, round(sampleRate × blockDurationSec)).
FrameCount speechBlockFrames(double sampleRate, double blockDurationSec = kLoudnessBlockSeconds);

// Blocks of a history of `frames` frames: ceil(frames / speechBlockFrames), the loudness
// processor's block count; the last block may be partial.
std::int64_t speechBlockCount(FrameCount frames, double sampleRate, double blockDurationSec = kLoudnessBlockSeconds);

// One Boolean per block of a source of `sourceFrames` frames at `sourceRate`, true where the
// middle of the block lies in one of `segments`, which are given at `detectorRate`.
SpeechHistory speechHistoryFromSegments(std::span<const SpeechSegment> segments, double detectorRate,
                                            FrameCount sourceFrames, double sourceRate,
                                            double blockDurationSec = kLoudnessBlockSeconds);

}  // namespace corvane
