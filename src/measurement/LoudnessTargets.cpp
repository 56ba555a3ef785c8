#include "measurement/LoudnessTargets.h"

#include <cmath>

#include "compare/CompareModel.h"
#include "dialogue/DialogueModel.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveMeters.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

constexpr float kNoReading = LoudnessMeasurement::kNoReading;
// Every violation list works on 0.1 s blocks.
constexpr double kBlockDurationSec = 0.1;

enum Curve { momentaryCurve, shortTermCurve, truePeakCurve };

}  // namespace

LoudnessTargets::LoudnessTargets(AudioEngine* engine, QObject* parent) : QObject(parent), _engine(engine) {
  if (_engine) {
    _selection = _engine->settings().loudnessTargetSelection();
    _displayMode = _engine->settings().loudnessDisplayMode();
  }
}

void LoudnessTargets::setLoudnessTargetSelection(const LoudnessTargetSelection& selection) {
  if (selection == _selection) return;
  _selection = selection;
  if (_engine) _engine->settings().setLoudnessTargetSelection(_selection);
  emit loudnessTargetSelectionChanged();
  const auto before = _match.matchID();
  apply(_match.selectionChanged(_selection), before);
}

void LoudnessTargets::setLoudnessDisplayMode(LoudnessDisplayMode mode) {
  if (mode == _displayMode) return;
  _displayMode = mode;
  if (_engine) _engine->settings().setLoudnessDisplayMode(mode);
  emit loudnessDisplayModeChanged();
  const auto before = _match.matchID();
  apply(_match.displayModeChanged(_selection, measurement()), before);
}

// ---- Readings --------------------------------------------------------------------------------

LoudnessMeasurement LoudnessTargets::measurement() const {
  LoudnessMeasurement m;
  if (!_engine) return m;
  if (_displayMode == LoudnessDisplayMode::live) {
    const LiveMeters& meters = _engine->meters();
    m.integratedLUFS = meters.integratedLUFS();
    m.dialogGatedLUFS = meters.speechGatedLUFS();
    m.maxShortTermLUFS = meters.liveMaxShortTermLUFS();
    m.truePeakDBTP = meters.truePeakDB();
    m.speechGatedNoiseFloorDBRMS = meters.speechGatedNoiseFloorDBRMS();
    // The live meter gets the file's speech history when the load's detection lands; before
    // that its 0 % means "not known yet".
    if (_engine->dialogue().fileSpeechHistory()) m.speechPercentage = meters.speechPercentage();
    return m;
  }
  if (const auto& analysis = _engine->analysis().selectionAnalysis()) {
    m.integratedLUFS = analysis->integratedLUFS;
    m.dialogGatedLUFS = analysis->speechGatedLUFS;
    m.maxShortTermLUFS = analysis->maxShortTermLUFS;
    m.truePeakDBTP = analysis->truePeakDB;
    m.rmsDBFS = LoudnessMeasurement::programRMSDBFS(analysis->rmsDB);
    m.speechGatedNoiseFloorDBRMS = analysis->speechGatedNoiseFloorDBRMS;
    if (!analysis->speechRanges.empty() || analysis->speechPercentage > 0.0f ||
        std::isfinite(analysis->speechGatedNoiseFloorDBRMS)) {
      m.speechPercentage = analysis->speechPercentage;
    }
    return m;
  }
  if (const auto metrics = _engine->compare().activeSlotMetrics()) {
    m.integratedLUFS = metrics->integratedLUFS;
    m.dialogGatedLUFS = metrics->speechGatedLUFS;
    m.maxShortTermLUFS = metrics->maxShortTermLUFS;
    m.truePeakDBTP = metrics->truePeakDB;
    m.rmsDBFS = LoudnessMeasurement::programRMSDBFS(metrics->channelRMSDB);
    m.speechGatedNoiseFloorDBRMS = metrics->speechGatedNoiseFloorDBRMS;
    if (std::isfinite(metrics->speechGatedLUFS) || std::isfinite(metrics->speechGatedNoiseFloorDBRMS)) {
      m.speechPercentage = metrics->speechPercentage;
    }
  }
  return m;
}

float LoudnessTargets::displayIntegratedLUFS() const { return measurement().integratedLUFS; }
float LoudnessTargets::displayDialogGatedLUFS() const { return measurement().dialogGatedLUFS; }
float LoudnessTargets::displayMaxShortTermLUFS() const { return measurement().maxShortTermLUFS; }

std::vector<TargetVerdict> LoudnessTargets::verdicts() const {
  const LoudnessMeasurement m = measurement();
  std::vector<TargetVerdict> rows;
  for (LoudnessTarget& target : _selection.activeTargets()) {
    LoudnessTargetEvaluation evaluation = LoudnessTargetEvaluator::evaluate(target, m);
    rows.push_back({std::move(target), evaluation});
  }
  return rows;
}

// ---- Match -------------------------------------------------------------------------------------

void LoudnessTargets::toggleLoudnessTargetMatch(const LoudnessTarget& target) {
  const auto before = _match.matchID();
  apply(_match.toggle(target, measurement()), before);
}

void LoudnessTargets::recomputeMatchGain(const LoudnessTarget& target) {
  const auto before = _match.matchID();
  apply(_match.recomputeGain(target, measurement()), before);
}

void LoudnessTargets::clearForFile() {
  const auto before = _match.matchID();
  _match.clear();
  // A new graph starts at unity anyway; the mirrors say so too.
  apply({}, before);
}

void LoudnessTargets::apply(const LoudnessTargetMatch::Effects& effects,
                            const std::optional<std::string>& matchBefore) {
  if (_engine) {
    Transport& transport = _engine->transport();
    RenderMirrors& mirrors = transport.mirrors();
    if (effects.limiterCeilingDB) {
      if (TruePeakLimiterDSP* limiter = transport.controller().graph().targetMatchLimiter()) {
        limiter->setCeilingDB(*effects.limiterCeilingDB);
      }
    }
    mirrors._atomicTargetMatchEnabled.store(_match.isEnabled(), std::memory_order_release);
    mirrors._atomicTargetMatchGain.store(_match.gain(), std::memory_order_release);
    if (effects.resetLimiter) mirrors._atomicPendingTargetMatchReset.store(true, std::memory_order_release);
  }
  if (_match.matchID() != matchBefore) emit loudnessTargetMatchChanged();
}

// ---- Requests ----------------------------------------------------------------------------------

void LoudnessTargets::requestNormalizeToTarget(const LoudnessTarget& target) {
  if (!_engine || target.source == LoudnessSource::rms) return;
  const auto reading = matchReading(target, measurement());
  if (!reading) return;
  // Normalising is a single-file operation.
  if (_engine->compare().compareSlots().size() >= 2) return;
  _pendingNormalize =
      PendingNormalize{target.source == LoudnessSource::dialogGated ? PendingNormalize::Basis::dialogGated
                                                                    : PendingNormalize::Basis::integrated,
                       target.displayName, *reading, target.referenceLevel, target.truePeakCeilingDBTP};
  emit pendingNormalizeChanged();
  if (!_engine->setMode(AudioEngine::Mode::edit, true)) consumePendingNormalize();
}

void LoudnessTargets::requestLimitTPToTarget(const LoudnessTarget& target) {
  if (!_engine || _engine->compare().compareSlots().size() >= 2) return;
  if (!_engine->setMode(AudioEngine::Mode::edit, true)) {
    consumePendingLimitTP();
    return;
  }
  _pendingLimitTP = PendingLimitTP{target.displayName, target.truePeakCeilingDBTP};
  emit pendingLimitTPChanged();
}

void LoudnessTargets::consumePendingNormalize() {
  if (!_pendingNormalize) return;
  _pendingNormalize.reset();
  emit pendingNormalizeChanged();
}

void LoudnessTargets::consumePendingLimitTP() {
  if (!_pendingLimitTP) return;
  _pendingLimitTP.reset();
  emit pendingLimitTPChanged();
}

// ---- Violations --------------------------------------------------------------------------------

void LoudnessTargets::setViolationsEnabled(bool enabled) {
  if (enabled == _violationsEnabled) return;
  _violationsEnabled = enabled;
  emit violationsChanged();
}

void LoudnessTargets::setMomentaryThreshold(std::optional<float> lufs) {
  if (lufs == _momentaryThreshold) return;
  _momentaryThreshold = lufs;
  emit violationsChanged();
}

void LoudnessTargets::setShortTermThreshold(std::optional<float> lufs) {
  if (lufs == _shortTermThreshold) return;
  _shortTermThreshold = lufs;
  emit violationsChanged();
}

void LoudnessTargets::setTruePeakThreshold(std::optional<float> dbtp) {
  if (dbtp == _truePeakThreshold) return;
  _truePeakThreshold = dbtp;
  emit violationsChanged();
}

std::vector<SecondsRange> LoudnessTargets::momentaryViolations() const {
  return violations(momentaryCurve, _momentaryThreshold);
}
std::vector<SecondsRange> LoudnessTargets::shortTermViolations() const {
  return violations(shortTermCurve, _shortTermThreshold);
}
std::vector<SecondsRange> LoudnessTargets::truePeakViolations() const {
  return violations(truePeakCurve, _truePeakThreshold);
}

std::vector<SecondsRange> LoudnessTargets::violations(int curve, const std::optional<float>& threshold) const {
  if (!_engine || !_violationsEnabled || !threshold) return {};
  if (const auto& analysis = _engine->analysis().selectionAnalysis()) {
    const auto& points = curve == momentaryCurve   ? analysis->momentaryCurve
                         : curve == shortTermCurve ? analysis->shortTermCurve
                                                   : analysis->truePeakCurve;
    return computeViolations(points, *threshold, kBlockDurationSec);
  }
  const LiveMeters& meters = _engine->meters();
  if (curve == truePeakCurve) {
    return computeViolations(
        meters.liveTruePeakCurve(), *threshold, kBlockDurationSec, [](const LevelCurvePoint& p) { return p.time; },
        [](const LevelCurvePoint& p) { return p.value; });
  }
  const bool momentary = curve == momentaryCurve;
  return computeViolations(
      meters.liveLoudnessCurve(), *threshold, kBlockDurationSec, [](const LoudnessCurvePoint& p) { return p.time; },
      [momentary](const LoudnessCurvePoint& p) { return momentary ? p.momentaryLUFS : p.shortTermLUFS; });
}

}  // namespace corvane
