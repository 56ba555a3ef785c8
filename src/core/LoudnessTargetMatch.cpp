#include "core/LoudnessTargetMatch.h"

#include <algorithm>
#include <cmath>

namespace corvane {

std::optional<double> loudnessMatchGain(float referenceLUFS, float readingLUFS) {
  if (!std::isfinite(referenceLUFS) || !std::isfinite(readingLUFS)) return std::nullopt;
  return std::pow(10.0, (static_cast<double>(referenceLUFS) - readingLUFS) / 20.0);
}

std::optional<float> matchReading(const LoudnessTarget& target,
                                  const LoudnessMeasurement& measurement) {
  float reading = LoudnessMeasurement::kNoReading;
  switch (target.source) {
    case LoudnessSource::integrated: reading = measurement.integratedLUFS; break;
    case LoudnessSource::dialogGated: reading = measurement.dialogGatedLUFS; break;
    case LoudnessSource::rms: return std::nullopt;
  }
  if (!std::isfinite(reading)) return std::nullopt;
  return reading;
}

float LoudnessTargetMatch::gainDB() const {
  if (!_enabled) return 0.0f;
  return static_cast<float>(20.0 * std::log10(static_cast<double>(_gain)));
}

void LoudnessTargetMatch::end() {
  _matchID.reset();
  _enabled = false;
  _gain = 1.0f;
}

void LoudnessTargetMatch::clear() {
  end();
}

LoudnessTargetMatch::Effects LoudnessTargetMatch::toggle(const LoudnessTarget& target,
                                                         const LoudnessMeasurement& measurement) {
  Effects effects;
  if (!matchReading(target, measurement)) return effects;
  if (_matchID == target.id) {
    end();
  } else {
    effects.limiterCeilingDB = target.truePeakCeilingDBTP;
    _enabled = true;
    _matchID = target.id;
    recomputeGain(target, measurement);
  }
  effects.resetLimiter = true;
  return effects;
}

LoudnessTargetMatch::Effects LoudnessTargetMatch::recomputeGain(
    const LoudnessTarget& target, const LoudnessMeasurement& measurement) {
  Effects effects;
  auto reading = matchReading(target, measurement);
  auto gain = reading ? loudnessMatchGain(target.referenceLevel, *reading) : std::nullopt;
  if (gain) {
    _gain = static_cast<float>(*gain);
  } else {
    end();
  }
  effects.resetLimiter = true;
  return effects;
}

LoudnessTargetMatch::Effects LoudnessTargetMatch::displayModeChanged(
    const LoudnessTargetSelection& selection, const LoudnessMeasurement& measurement) {
  if (!_matchID) return {};
  if (auto target = selection.target(*_matchID)) return recomputeGain(*target, measurement);
  end();
  return Effects{std::nullopt, true};
}

LoudnessTargetMatch::Effects LoudnessTargetMatch::selectionChanged(
    const LoudnessTargetSelection& selection) {
  if (!_matchID) return {};
  const auto active = selection.activeTargets();
  const bool stillActive = std::any_of(active.begin(), active.end(), [&](const auto& target) {
    return target.id == *_matchID;
  });
  if (stillActive) return {};
  end();
  return Effects{std::nullopt, true};
}

}  // namespace corvane
