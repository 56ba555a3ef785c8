#include "core/LoudnessTargetEvaluator.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "core/NumberFormat.h"

namespace corvane {

namespace {

// Catalogue levels are floats and readings arrive as floats; a reading that shows as exactly
// on an edge must not fail because -17.2f - -16.2f isn't exactly -1 in binary.
constexpr double kEdgeSlack = 1e-4;

// A gain that would show as "+0.0 dB" is no gain: the badge reads "as-is".
constexpr double kSmallestShownGainDB = 0.05;

bool above(double value, double limit) {
  return value > limit + kEdgeSlack;
}

// The source whose units a basis reads in: a fallback reads full-programme LUFS.
LoudnessSource unitSource(LoudnessBasis basis) {
  switch (basis) {
    case LoudnessBasis::dialogGated: return LoudnessSource::dialogGated;
    case LoudnessBasis::rms: return LoudnessSource::rms;
    case LoudnessBasis::integrated:
    case LoudnessBasis::integratedFallback: return LoudnessSource::integrated;
  }
  return LoudnessSource::integrated;
}

void judgeDelivery(const LoudnessTarget& target, const LoudnessMeasurement& m,
                   LoudnessTargetEvaluation& e) {
  if (above(std::fabs(static_cast<double>(e.deviation)), *e.tolerance)) {
    e.failures |= kFailureLoudness;
  }
  if (above(m.truePeakDBTP, target.truePeakCeilingDBTP)) e.failures |= kFailureTruePeak;
  if (auto item = target.maxShortTerm(); item && above(m.maxShortTermLUFS, item->maxLUFS)) {
    e.failures |= kFailureMaxShortTerm;
  }
  if (auto item = target.noiseFloor()) {
    // -inf can't be taken for "perfectly quiet": the processor also reports it with no
    // speech detection or no pauses, so the verdict passes flagged instead.
    if (!std::isfinite(m.speechGatedNoiseFloorDBRMS)) {
      e.warnings |= kWarningNoiseFloorUnmeasured;
    } else if (above(m.speechGatedNoiseFloorDBRMS, item->maxDBRMS)) {
      e.failures |= kFailureNoiseFloor;
    }
  }
  e.verdictClass =
      e.failures ? LoudnessVerdictClass::deliveryFail : LoudnessVerdictClass::deliveryPass;
}

void judgePlayback(const LoudnessTarget& target, const LoudnessMeasurement& m,
                   LoudnessTargetEvaluation& e) {
  e.verdictClass = LoudnessVerdictClass::playback;
  const double needed = static_cast<double>(e.referenceLevel) - e.readingLevel;
  const double ceiling = target.truePeakCeilingDBTP;
  const bool peakKnown = std::isfinite(m.truePeakDBTP);
  double gain = needed;
  switch (target.playbackGainPolicy()) {
    case PlaybackGainPolicy::upAndDown:
      break;
    case PlaybackGainPolicy::downOnly:
      gain = std::min(needed, 0.0);
      break;
    case PlaybackGainPolicy::upLimitedByCeiling:
      if (needed > 0.0 && peakKnown) {
        gain = std::min(needed, std::max(ceiling - m.truePeakDBTP, 0.0));
        if (gain < needed - kSmallestShownGainDB) e.warnings |= kWarningGainLimitedByPeak;
      }
      break;
  }
  // The file's own peak matters for the platform's encode, which runs before any gain; a
  // lift raises it further.
  if (peakKnown && above(m.truePeakDBTP + std::max(gain, 0.0), ceiling)) {
    e.warnings |= kWarningTruePeakOverCeiling;
  }
  if (std::fabs(gain) >= kSmallestShownGainDB) e.playbackGainDB = static_cast<float>(gain);
}

std::string levelText(double value, std::string_view unit) {
  return formatFixed(value, 1) + " " + std::string(unit);
}

std::string requirementsText(const LoudnessTarget& target) {
  const std::string unit(levelUnit(target.source));
  const std::string ceiling = "true peak ≤ " + formatCompact(target.truePeakCeilingDBTP) + " dBTP";
  std::string text = target.displayName + ": ";
  if (target.isPlaybackTarget()) {
    text += "plays everything at " + formatCompact(target.referenceLevel) + " " + unit;
    switch (target.playbackGainPolicy()) {
      case PlaybackGainPolicy::upAndDown:
        text += ", turning files up or down";
        break;
      case PlaybackGainPolicy::upLimitedByCeiling:
        text += ", turning loud files down and quiet ones up as far as a " +
                formatCompact(target.truePeakCeilingDBTP) + " dBTP peak allows";
        break;
      case PlaybackGainPolicy::downOnly:
        text += ", turning loud files down and leaving quiet ones as they are";
        break;
    }
    return text + "; masters should keep " + ceiling + ".";
  }
  const std::string sourceWord = target.source == LoudnessSource::integrated ? "integrated"
                                 : target.source == LoudnessSource::dialogGated
                                     ? "dialog-gated"
                                     : "un-weighted";
  text += formatCompact(target.referenceLevel) + " " + unit + " ±" +
          formatCompact(*target.tolerance) + " " + std::string(toleranceUnit(target.source)) +
          " " + sourceWord + ", " + ceiling;
  if (auto item = target.maxShortTerm()) {
    text += ", max short-term ≤ " + formatCompact(item->maxLUFS) + " LUFS";
  }
  if (auto item = target.noiseFloor()) {
    text += ", noise floor ≤ " + formatCompact(item->maxDBRMS) + " dB RMS";
  }
  if (auto item = target.dialogueFallback()) {
    text += "; under " + formatCompact(item->minSpeechPercent) + " % dialogue: " +
            formatCompact(item->referenceLUFS) + " LUFS ±" + formatCompact(item->toleranceLU) +
            " LU integrated";
  }
  return text + ".";
}

}  // namespace

std::string LoudnessTargetEvaluation::verdictText() const {
  switch (verdictClass) {
    case LoudnessVerdictClass::playback:
      return playbackGainDB ? formatSigned(*playbackGainDB, 1) + " dB" : "as-is";
    case LoudnessVerdictClass::deliveryPass:
      return "OK";
    case LoudnessVerdictClass::deliveryFail:
      if (failures & kFailureLoudness) return "FAIL L";
      if (failures & kFailureTruePeak) return "FAIL TP";
      if (failures & kFailureMaxShortTerm) return "FAIL S↑";
      return "FAIL NF";
    case LoudnessVerdictClass::noReading:
      return dialogGatedTarget ? "no speech" : "—";
  }
  return "—";
}

LoudnessStatusDot LoudnessTargetEvaluation::statusDot() const {
  switch (verdictClass) {
    case LoudnessVerdictClass::playback: {
      const double distance = std::fabs(static_cast<double>(deviation));
      if (distance <= 1.5 + kEdgeSlack) return LoudnessStatusDot::green;
      if (distance <= 4.0 + kEdgeSlack) return LoudnessStatusDot::yellow;
      return LoudnessStatusDot::orange;
    }
    case LoudnessVerdictClass::deliveryPass:
      return isFlagged() ? LoudnessStatusDot::orange : LoudnessStatusDot::green;
    case LoudnessVerdictClass::deliveryFail:
      return LoudnessStatusDot::red;
    case LoudnessVerdictClass::noReading:
      return LoudnessStatusDot::dim;
  }
  return LoudnessStatusDot::dim;
}

namespace LoudnessTargetEvaluator {

LoudnessTargetEvaluation evaluate(const LoudnessTarget& target,
                                  const LoudnessMeasurement& measurement) {
  LoudnessTargetEvaluation e;
  e.dialogGatedTarget = target.source == LoudnessSource::dialogGated;
  e.referenceLevel = target.referenceLevel;
  e.tolerance = target.tolerance;

  switch (target.source) {
    case LoudnessSource::integrated:
      e.basis = LoudnessBasis::integrated;
      e.readingLevel = measurement.integratedLUFS;
      break;
    case LoudnessSource::rms:
      e.basis = LoudnessBasis::rms;
      e.readingLevel = measurement.rmsDBFS;
      break;
    case LoudnessSource::dialogGated: {
      auto fallback = target.dialogueFallback();
      if (fallback && measurement.speechPercentage &&
          *measurement.speechPercentage < fallback->minSpeechPercent) {
        e.basis = LoudnessBasis::integratedFallback;
        e.readingLevel = measurement.integratedLUFS;
        e.referenceLevel = fallback->referenceLUFS;
        if (e.tolerance) e.tolerance = fallback->toleranceLU;
      } else {
        e.basis = LoudnessBasis::dialogGated;
        e.readingLevel = measurement.dialogGatedLUFS;
      }
      break;
    }
  }

  if (!std::isfinite(e.readingLevel)) {
    e.readingLevel = LoudnessMeasurement::kNoReading;
    e.deviation = std::numeric_limits<float>::quiet_NaN();
    e.verdictClass = LoudnessVerdictClass::noReading;
    return e;
  }
  e.deviation = e.readingLevel - e.referenceLevel;
  if (target.isPlaybackTarget()) {
    judgePlayback(target, measurement, e);
  } else {
    judgeDelivery(target, measurement, e);
  }
  return e;
}

std::string tooltipText(const LoudnessTarget& target, const LoudnessMeasurement& m) {
  const LoudnessTargetEvaluation e = evaluate(target, m);
  std::vector<std::string> lines{requirementsText(target)};
  const std::string unit(levelUnit(unitSource(e.basis)));
  const std::string tolUnit(toleranceUnit(unitSource(e.basis)));

  if (e.verdictClass == LoudnessVerdictClass::noReading) {
    if (target.source == LoudnessSource::dialogGated) {
      lines.push_back(m.speechPercentage
                          ? "No dialog-gated reading: this file has no detected speech."
                          : "No dialog-gated reading: speech detection hasn't run on this file.");
    } else if (target.source == LoudnessSource::rms) {
      lines.push_back("No RMS reading: RMS needs an offline analysis run.");
    } else {
      lines.push_back("Loudness reading not available yet.");
    }
    return lines.front() + "\n" + lines.back();
  }

  if (e.basis == LoudnessBasis::integratedFallback) {
    lines.push_back("Dialogue is " + formatFixed(*m.speechPercentage, 1) +
                    " % of the programme, under the " +
                    formatCompact(target.dialogueFallback()->minSpeechPercent) +
                    " % needed for gating: judged on full-programme loudness.");
  }

  if (e.verdictClass == LoudnessVerdictClass::playback) {
    const std::string reading = "Measured " + levelText(e.readingLevel, unit) + ": ";
    if (!e.playbackGainDB) {
      lines.push_back(reading + target.displayName + " plays it as it is.");
    } else {
      const bool up = *e.playbackGainDB > 0;
      lines.push_back(reading + target.displayName + " turns it " + (up ? "up" : "down") +
                      " by " + formatFixed(std::fabs(*e.playbackGainDB), 1) + " dB.");
    }
    if (e.warnings & kWarningGainLimitedByPeak) {
      const double shortBy = -static_cast<double>(e.deviation) - e.playbackGainDB.value_or(0.0f);
      lines.push_back("Its true peak of " + levelText(m.truePeakDBTP, "dBTP") +
                      " stops the lift " + formatFixed(shortBy, 1) +
                      " dB short of the reference, so it plays quieter than its neighbours.");
    }
    if (e.warnings & kWarningTruePeakOverCeiling) {
      lines.push_back("True peak " + levelText(m.truePeakDBTP, "dBTP") + " is over the " +
                      formatCompact(target.truePeakCeilingDBTP) +
                      " dBTP ceiling: the platform's lossy encode may clip.");
    }
  } else {
    const bool loudnessOK = !(e.failures & kFailureLoudness);
    lines.push_back("Measured " + levelText(e.readingLevel, unit) + ", " +
                    formatSigned(e.deviation, 1) + " " + tolUnit + " from " +
                    formatCompact(e.referenceLevel) + ": " + (loudnessOK ? "within" : "outside") +
                    " the ±" + formatCompact(*e.tolerance) + " " + tolUnit + " tolerance.");
    if (std::isfinite(m.truePeakDBTP)) {
      lines.push_back("True peak " + levelText(m.truePeakDBTP, "dBTP") +
                      ((e.failures & kFailureTruePeak) ? ": over" : ": at or under") + " the " +
                      formatCompact(target.truePeakCeilingDBTP) + " dBTP ceiling.");
    }
    if (auto item = target.maxShortTerm(); item && std::isfinite(m.maxShortTermLUFS)) {
      lines.push_back("Max short-term " + levelText(m.maxShortTermLUFS, "LUFS") +
                      ((e.failures & kFailureMaxShortTerm) ? ": over" : ": at or under") +
                      " the " + formatCompact(item->maxLUFS) + " LUFS limit.");
    }
    if (auto item = target.noiseFloor()) {
      if (e.warnings & kWarningNoiseFloorUnmeasured) {
        lines.push_back(m.speechPercentage
                            ? "No noise-floor reading: no pauses with sound in them were found "
                              "(digital silence reads as none). Check the room tone before "
                              "delivery."
                            : "Noise floor not measured: it needs speech detection to find the "
                              "pauses. Check it before delivery.");
      } else {
        lines.push_back("Noise floor " + levelText(m.speechGatedNoiseFloorDBRMS, "dB RMS") +
                        ((e.failures & kFailureNoiseFloor) ? ": over" : ": at or under") +
                        " the " + formatCompact(item->maxDBRMS) + " dB RMS limit.");
      }
    }
    if (e.passed()) {
      lines.push_back(e.isFlagged() ? "Passes what could be measured." : "Passes.");
    } else {
      std::vector<std::string> causes;
      if (e.failures & kFailureLoudness) causes.push_back("loudness");
      if (e.failures & kFailureTruePeak) causes.push_back("true peak");
      if (e.failures & kFailureMaxShortTerm) causes.push_back("max short-term");
      if (e.failures & kFailureNoiseFloor) causes.push_back("noise floor");
      std::string joined;
      for (const auto& cause : causes) joined += (joined.empty() ? "" : ", ") + cause;
      lines.push_back("Fails on " + joined + ".");
    }
  }

  std::string text;
  for (const auto& line : lines) text += (text.empty() ? "" : "\n") + line;
  return text;
}

}  // namespace LoudnessTargetEvaluator

}  // namespace corvane
