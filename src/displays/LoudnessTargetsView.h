// LoudnessTargetsView: the rows of the chosen mode's delivery targets under the info panel's
// loudness readouts, each with its verdict against the current readings and, where the owner
// gives the actions, the Match, Normalize and Limit buttons.
//
// The verdicts come from LoudnessTargetEvaluator (CorvaneCore); this view only words and lays
// them out. targetRowTexts() is the wording, free of widgets.
//
// Thread class: main thread (a widget); targetRowTexts is pure.
#pragma once

#include <QString>
#include <QWidget>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/LoudnessMeasurement.h"
#include "core/LoudnessTarget.h"
#include "core/LoudnessTargetEvaluator.h"

class QComboBox;
class QLabel;
class QVBoxLayout;

namespace corvane {

// What one target's row says.
struct TargetRowTexts {
  QString name;
  QString referenceLine;  // "dialog · -27 ±2 LKFS · ≤ -2 dBTP"
  QString verdict;        // "OK", "FAIL TP", "+2.0 dB", "no speech", "—"
  bool warning = false;   // the triangle beside the verdict
  LoudnessStatusDot dot = LoudnessStatusDot::dim;
  QString verdictToolTip;
  bool matchEnabled = false;
  bool matchActive = false;
  QString matchToolTip;
  bool normalizeShown = false;  // not for RMS targets
  bool normalizeEnabled = false;
  QString normalizeToolTip;
  bool limitShown = false;  // the measured true peak is over the ceiling
  QString limitToolTip;
};

TargetRowTexts targetRowTexts(const LoudnessTarget& target, const LoudnessMeasurement& measurement,
                              const std::optional<std::string>& activeMatchTargetID, float matchGainDB);

// "No targets selected. Pick up to <limit> in Settings → Targets."
QString noTargetsText(int limit);

class LoudnessTargetsView : public QWidget {
  Q_OBJECT

 public:
  using TargetAction = std::function<void(const LoudnessTarget&)>;

  explicit LoudnessTargetsView(QWidget* parent = nullptr);

  // The mode picker's value and the targets to show (the chosen mode's, in order).
  void setMode(LoudnessTargetMode mode);
  void setTargets(std::vector<LoudnessTarget> targets);
  void setMeasurement(const LoudnessMeasurement& measurement);
  void setMatch(std::optional<std::string> activeMatchTargetID, float matchGainDB);
  // A button is shown only where its action is given.
  void setActions(TargetAction onToggleMatch, TargetAction onNormalizeToTarget, TargetAction onLimitTPToTarget);

  // The rows as they stand (for tests and the reports' preview).
  const std::vector<TargetRowTexts>& rows() const { return _rows; }

 signals:
  // The user picked another mode in the header.
  void modeChosen(corvane::LoudnessTargetMode mode);

 private:
  void rebuild();

  QComboBox* _modePicker;
  QVBoxLayout* _rowsLayout;
  QWidget* _rowsHost;
  LoudnessTargetMode _mode = LoudnessTargetMode::music;
  std::vector<LoudnessTarget> _targets;
  LoudnessMeasurement _measurement;
  std::optional<std::string> _activeMatchTargetID;
  float _matchGainDB = 0.0f;
  TargetAction _onToggleMatch, _onNormalize, _onLimit;
  std::vector<TargetRowTexts> _rows;
};

}  // namespace corvane
