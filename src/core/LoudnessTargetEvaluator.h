// LoudnessTargetEvaluator: the verdict of one target over one measurement.
//
// Rules, in the order they apply:
//  1. The reading judged is the target's source: integrated loudness, dialog-gated loudness
//     or programme RMS. A dialog-gated target with a dialogue fallback is judged on integrated
//     loudness against the fallback's reference and tolerance when speech detection ran and
//     found less speech than the fallback's share.
//  2. A reading that isn't finite gives no verdict (class noReading): "no speech" for
//     dialog-gated targets, "—" for the others.
//  3. Delivery targets (with a tolerance) pass when |reading - reference| ≤ tolerance, the
//     true peak is at or under the ceiling, and each further item holds: maximum short-term
//     at or under its limit, noise floor at or under its limit. Limits are inclusive: a
//     reading exactly on an edge passes. A noise-floor item with no noise-floor reading can't
//     fail; the verdict passes flagged, since the file may still fail the platform's check.
//  4. Playback targets (no tolerance) give the gain the platform applies when it plays the
//     file, by its policy; flagged when the file's true peak is over the platform's ceiling
//     (the platform's lossy encode may clip it) or when the ceiling stops the platform from
//     lifting the file all the way (it plays quieter than its neighbours).
//
// Thread class: pure functions, any thread. Nothing throws.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/LoudnessMeasurement.h"
#include "core/LoudnessTarget.h"

namespace corvane {

// What a verdict is, numbered as the info panel's classes.
enum class LoudnessVerdictClass : int {
  playback = 0,      // the gain a playback platform applies
  deliveryPass = 1,
  deliveryFail = 2,
  noReading = 3,
};

// What a verdict was judged on.
enum class LoudnessBasis {
  integrated,
  dialogGated,
  integratedFallback,  // a dialog-gated target judged on full-programme loudness
  rms,
};

// Causes of a failed delivery verdict (bit flags). The verdict text names the first in this
// order: loudness, true peak, maximum short-term, noise floor.
enum LoudnessFailure : std::uint8_t {
  kFailureLoudness = 1u << 0,
  kFailureTruePeak = 1u << 1,
  kFailureMaxShortTerm = 1u << 2,
  kFailureNoiseFloor = 1u << 3,
};

// Reasons behind a verdict's warning triangle (bit flags).
enum LoudnessWarning : std::uint8_t {
  // Playback: the file's true peak is above the platform's ceiling.
  kWarningTruePeakOverCeiling = 1u << 0,
  // Playback: the ceiling stops the platform short of the reference.
  kWarningGainLimitedByPeak = 1u << 1,
  // Delivery: the target checks a noise floor and there is no noise-floor reading.
  kWarningNoiseFloorUnmeasured = 1u << 2,
};

// The colour of a verdict's status dot.
enum class LoudnessStatusDot { green, yellow, orange, red, dim };

struct LoudnessTargetEvaluation {
  LoudnessVerdictClass verdictClass = LoudnessVerdictClass::noReading;
  LoudnessBasis basis = LoudnessBasis::integrated;
  // The level judged (LUFS, or dB RMS for RMS targets); -inf for no reading.
  float readingLevel = LoudnessMeasurement::kNoReading;
  // The reference and tolerance the reading was judged against: the target's own, or its
  // dialogue fallback's. No tolerance for playback targets.
  float referenceLevel = 0.0f;
  std::optional<float> tolerance;
  // reading - reference; NaN without a reading.
  float deviation = 0.0f;
  // Playback only: the gain the platform applies, dB; nullopt when it leaves the file as it
  // is ("as-is"), which includes a change too small to show at 0.1 dB.
  std::optional<float> playbackGainDB;
  std::uint8_t failures = 0;  // LoudnessFailure bits
  std::uint8_t warnings = 0;  // LoudnessWarning bits
  // Whether the source was dialog-gated (decides "no speech" over "—").
  bool dialogGatedTarget = false;

  bool isFlagged() const { return warnings != 0; }
  bool passed() const { return verdictClass == LoudnessVerdictClass::deliveryPass; }

  // The badge: "OK"; "FAIL L", "FAIL TP", "FAIL S↑", "FAIL NF"; "+2.0 dB" / "-3.5 dB" /
  // "as-is"; "no speech" / "—". The warning triangle is drawn by the view from isFlagged().
  std::string verdictText() const;

  // playback: green within 1.5 dB of the reference, yellow within 4 dB, orange beyond (the
  // distance of the file from the reference, not the gain applied: a quiet file a platform
  // leaves as-is still stands out); pass: green, orange when flagged; fail: red;
  // no reading: dim.
  LoudnessStatusDot statusDot() const;
};

namespace LoudnessTargetEvaluator {

LoudnessTargetEvaluation evaluate(const LoudnessTarget& target,
                                  const LoudnessMeasurement& measurement);

// The verdict's tool tip: the target's requirements in words, each reading against its limit
// and the outcome, lines joined by "\n". Numbers in the C locale.
std::string tooltipText(const LoudnessTarget& target, const LoudnessMeasurement& measurement);

}  // namespace LoudnessTargetEvaluator

}  // namespace corvane
