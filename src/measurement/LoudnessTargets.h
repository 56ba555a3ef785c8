// LoudnessTargets: the session's side of delivery targets — which targets the user picked
// (persisted), the readings every target is judged by, the verdicts, the live match with its
// gain handed to the render path, the Normalize and Limit requests handed to the edit tools,
// and the violation lists.
//
// Readings. In the `live` display mode they are the live meters' (integrated, dialog-gated,
// largest short-term, true peak); in `offline` mode the last selection analysis', else the
// active compare slot's file metrics, else none (−inf). Un-weighted RMS, which ACX-style targets
// judge, comes only from an offline figure.
//
// Match. toggleLoudnessTargetMatch() matches a target (or releases the matched one): the render
// callback multiplies what it plays by 10^((reference − reading) / 20) and runs the true-peak
// limiter at the target's ceiling. The gain is taken again whenever the display mode changes;
// a match ends when its reading stops being finite, when its target leaves the active list, and
// when a new file becomes live. Every change is written to the render mirrors
// (_atomicTargetMatchEnabled, _atomicTargetMatchGain, _atomicPendingTargetMatchReset) and the
// graph's limiter ceiling; the render side never sees a target.
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QPointer>
#include <optional>
#include <string>
#include <vector>

#include "core/LevelViolations.h"
#include "core/LoudnessMeasurement.h"
#include "core/LoudnessTarget.h"
#include "core/LoudnessTargetEvaluator.h"
#include "core/LoudnessTargetMatch.h"
#include "core/LoudnessTargetSelection.h"
#include "session/SettingsValues.h"

namespace corvane {

class AudioEngine;

// A request to the edit tools to normalise the file to a target.
struct PendingNormalize {
  enum class Basis { integrated, dialogGated };
  Basis basis = Basis::integrated;
  std::string targetName;
  float nowLUFS = 0.0f;
  float targetLUFS = 0.0f;
  float ceilingDB = 0.0f;
  friend bool operator==(const PendingNormalize&, const PendingNormalize&) = default;
};

// A request to the edit tools to limit the true peak to a target's ceiling.
struct PendingLimitTP {
  std::string targetName;
  float ceilingDBTP = 0.0f;
  friend bool operator==(const PendingLimitTP&, const PendingLimitTP&) = default;
};

// One row of the targets view: the target and its verdict against the current readings.
struct TargetVerdict {
  LoudnessTarget target;
  LoudnessTargetEvaluation evaluation;
};

class LoudnessTargets : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::LoudnessTargetSelection loudnessTargetSelection READ loudnessTargetSelection
                 WRITE setLoudnessTargetSelection NOTIFY loudnessTargetSelectionChanged)
  Q_PROPERTY(corvane::LoudnessDisplayMode loudnessDisplayMode READ loudnessDisplayMode WRITE setLoudnessDisplayMode
                 NOTIFY loudnessDisplayModeChanged)
  Q_PROPERTY(std::optional<std::string> loudnessTargetMatchID READ loudnessTargetMatchID
                 NOTIFY loudnessTargetMatchChanged)
  Q_PROPERTY(bool violationsEnabled READ violationsEnabled WRITE setViolationsEnabled NOTIFY violationsChanged)

 public:
  // Reads the stored selection and display mode from the engine's settings.
  LoudnessTargets(AudioEngine* engine, QObject* parent);

  const LoudnessTargetSelection& loudnessTargetSelection() const { return _selection; }
  // Stores the selection; ends a match whose target is no longer active.
  void setLoudnessTargetSelection(const LoudnessTargetSelection& selection);
  LoudnessDisplayMode loudnessDisplayMode() const { return _displayMode; }
  // Stores the mode; a match takes its gain again from the new reading.
  void setLoudnessDisplayMode(LoudnessDisplayMode mode);

  // ---- Readings and verdicts ----------------------------------------------------------------
  float displayIntegratedLUFS() const;
  float displayDialogGatedLUFS() const;
  float displayMaxShortTermLUFS() const;
  // Everything a target is judged by, from the same source as the three above.
  LoudnessMeasurement measurement() const;
  // The active targets (the chosen mode's), in order, with their verdicts.
  std::vector<TargetVerdict> verdicts() const;

  // ---- Match ----------------------------------------------------------------------------------
  const std::optional<std::string>& loudnessTargetMatchID() const { return _match.matchID(); }
  // The matched gain in dB for the target rows; 0 without a match.
  float matchGainDB() const { return _match.gainDB(); }
  void toggleLoudnessTargetMatch(const LoudnessTarget& target);
  void recomputeMatchGain(const LoudnessTarget& target);
  // A new file: no match, the render side back to unity.
  void clearForFile();

  // ---- Requests to the edit tools -------------------------------------------------------------
  const std::optional<PendingNormalize>& pendingNormalize() const { return _pendingNormalize; }
  const std::optional<PendingLimitTP>& pendingLimitTP() const { return _pendingLimitTP; }
  // Edit mode opens pre-filled; nothing for RMS targets, without a finite reading, with two or
  // more compare slots, or when edit mode can't start.
  void requestNormalizeToTarget(const LoudnessTarget& target);
  void requestLimitTPToTarget(const LoudnessTarget& target);
  // The edit toolbar took the request.
  void consumePendingNormalize();
  void consumePendingLimitTP();

  // ---- Violations -----------------------------------------------------------------------------
  bool violationsEnabled() const { return _violationsEnabled; }
  void setViolationsEnabled(bool enabled);
  void setMomentaryThreshold(std::optional<float> lufs);
  void setShortTermThreshold(std::optional<float> lufs);
  void setTruePeakThreshold(std::optional<float> dbtp);
  // Where the selection analysis' curve (else the live one) lies strictly above its threshold;
  // empty unless violations are on and the threshold is set.
  std::vector<SecondsRange> momentaryViolations() const;
  std::vector<SecondsRange> shortTermViolations() const;
  std::vector<SecondsRange> truePeakViolations() const;

 signals:
  void loudnessTargetSelectionChanged();
  void loudnessDisplayModeChanged();
  void loudnessTargetMatchChanged();
  void pendingNormalizeChanged();
  void pendingLimitTPChanged();
  void violationsChanged();

 private:
  void apply(const LoudnessTargetMatch::Effects& effects, const std::optional<std::string>& matchBefore);
  std::vector<SecondsRange> violations(int curve, const std::optional<float>& threshold) const;

  QPointer<AudioEngine> _engine;
  LoudnessTargetSelection _selection;
  LoudnessDisplayMode _displayMode = LoudnessDisplayMode::live;
  LoudnessTargetMatch _match;
  std::optional<PendingNormalize> _pendingNormalize;
  std::optional<PendingLimitTP> _pendingLimitTP;
  bool _violationsEnabled = false;
  std::optional<float> _momentaryThreshold;
  std::optional<float> _shortTermThreshold;
  std::optional<float> _truePeakThreshold;
};

}  // namespace corvane
