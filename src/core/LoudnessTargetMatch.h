// LoudnessTargetMatch: hearing the file at a target's level, without touching it.
//
// A match multiplies the played signal by the gain that brings the reading of the target's
// source to the target's reference, and runs the true-peak limiter at the target's ceiling so
// the lift can't clip. This class is the main thread's side of it: which target is matched,
// whether the match is on and at what linear gain. Each operation returns the effects the
// session must carry to the render path:
//
//   auto effects = match.toggle(target, measurement);
//   if (effects.limiterCeilingDB) targetMatchLimiter->setCeilingDB(*effects.limiterCeilingDB);
//   _atomicTargetMatchEnabled.store(match.isEnabled());
//   _atomicTargetMatchGain.store(match.gain());
//   if (effects.resetLimiter) _atomicPendingTargetMatchReset.store(true);
//
// RMS targets have no loudness reading to match and can never be matched.
//
// Thread class: main thread (plain value; it holds no atomics itself). Nothing throws.
#pragma once

#include <optional>
#include <string>

#include "core/LoudnessMeasurement.h"
#include "core/LoudnessTarget.h"
#include "core/LoudnessTargetSelection.h"

namespace corvane {

// The linear gain that plays a reading of `readingLUFS` at `referenceLUFS`:
// 10^((reference - reading) / 20). -16 over a -20 reading is 1.5848932. nullopt when either
// level isn't finite.
std::optional<double> loudnessMatchGain(float referenceLUFS, float readingLUFS);

// The reading a match of `target` works from: integrated loudness for integrated targets,
// dialog-gated loudness for dialog-gated ones; nullopt for RMS targets and for a reading that
// isn't finite.
std::optional<float> matchReading(const LoudnessTarget& target,
                                  const LoudnessMeasurement& measurement);

class LoudnessTargetMatch {
 public:
  // What the session must pass on after an operation.
  struct Effects {
    // Set the match limiter's ceiling to this, dBTP.
    std::optional<float> limiterCeilingDB;
    // Ask the render path to reset the limiter before its next block.
    bool resetLimiter = false;
  };

  const std::optional<std::string>& matchID() const { return _matchID; }
  bool isEnabled() const { return _enabled; }
  // Linear; 1.0 when no match is on.
  float gain() const { return _gain; }
  // The gain in dB for the target rows; 0 when no match is on.
  float gainDB() const;

  // Matches `target`, or releases it when it is the matched one. A reading that isn't finite
  // (and any RMS target) ends the call with no change, release included: the Match button
  // is disabled then.
  Effects toggle(const LoudnessTarget& target, const LoudnessMeasurement& measurement);

  // Takes the reading again and recomputes the gain; a reading that isn't finite ends the
  // match. Run when the display mode changes, since the reading changes with it.
  Effects recomputeGain(const LoudnessTarget& target, const LoudnessMeasurement& measurement);

  // recomputeGain() for the matched target, looked up in `selection`; ends a match whose
  // target no longer exists. No effect without a match.
  Effects displayModeChanged(const LoudnessTargetSelection& selection,
                             const LoudnessMeasurement& measurement);

  // Ends the match when its target is no longer among selection.activeTargets() (deselected,
  // deleted, or the mode changed). No effect otherwise.
  Effects selectionChanged(const LoudnessTargetSelection& selection);

  // Back to no match, with no limiter reset requested: what a new file's graph starts from.
  void clear();

 private:
  void end();

  std::optional<std::string> _matchID;
  bool _enabled = false;
  float _gain = 1.0f;
};

}  // namespace corvane
