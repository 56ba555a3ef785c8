#include "core/CustomTargetDraft.h"

#include "core/LoudnessTargetSelection.h"
#include "core/NumberFormat.h"

namespace corvane {

std::string trimmedBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\n\r\f\v";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(kBlanks);
  return std::string(text.substr(first, last - first + 1));
}

CustomTargetDraft CustomTargetDraft::newDraft(LoudnessTargetMode mode, std::string_view uuid) {
  CustomTargetDraft draft;
  draft.id = std::string(LoudnessTargetSelection::customIDPrefix) + std::string(uuid);
  draft.mode = mode;
  draft.source = defaultSource(mode);
  return draft;
}

CustomTargetDraft CustomTargetDraft::editing(const LoudnessTarget& target) {
  CustomTargetDraft draft;
  draft.id = target.id;
  draft.name = target.displayName;
  draft.mode = target.mode;
  draft.source = target.source;
  draft.referenceLUFS = target.referenceLevel;
  draft.toleranceLU = target.tolerance.value_or(0.0f);
  draft.truePeakCeilingDBTP = target.truePeakCeilingDBTP;
  draft.sourceTouched = true;
  return draft;
}

LoudnessSource CustomTargetDraft::defaultSource(LoudnessTargetMode mode) {
  switch (mode) {
    case LoudnessTargetMode::podcast:
    case LoudnessTargetMode::vod: return LoudnessSource::dialogGated;
    case LoudnessTargetMode::music:
    case LoudnessTargetMode::broadcast: return LoudnessSource::integrated;
  }
  return LoudnessSource::integrated;
}

void CustomTargetDraft::setMode(LoudnessTargetMode newMode) {
  mode = newMode;
  if (!sourceTouched) source = defaultSource(newMode);
}

void CustomTargetDraft::setSource(LoudnessSource newSource) {
  source = newSource;
  sourceTouched = true;
}

bool CustomTargetDraft::isValid() const {
  // Written as "inside" tests so that NaN, which compares false, is rejected.
  return !trimmedBlanks(name).empty() &&
         referenceLUFS >= kMinReference && referenceLUFS <= kMaxReference &&
         toleranceLU >= kMinTolerance && toleranceLU <= kMaxTolerance &&
         truePeakCeilingDBTP >= kMinCeilingDBTP && truePeakCeilingDBTP <= kMaxCeilingDBTP;
}

LoudnessTarget CustomTargetDraft::buildTarget() const {
  LoudnessTarget target;
  target.id = id;
  target.displayName = trimmedBlanks(name);
  target.mode = mode;
  target.source = source;
  target.referenceLevel = referenceLUFS;
  target.tolerance = toleranceLU;
  target.truePeakCeilingDBTP = truePeakCeilingDBTP;
  return target;
}

std::string_view CustomTargetDraft::editorTitle(bool isNew) {
  return isNew ? "New Custom Target" : "Edit Custom Target";
}

std::string CustomTargetDraft::summaryText() const {
  const std::string measured = source == LoudnessSource::rms ? "RMS" : "Loudness";
  return "Verdicts read pass when the measured " + measured + " sits within " +
         formatCompact(toleranceLU) + " " + std::string(toleranceUnit(source)) + " of " +
         formatCompact(referenceLUFS) + " " + std::string(levelUnit(source)) +
         " and the true peak stays at or under " + formatCompact(truePeakCeilingDBTP) +
         " dBTP. Dialog-gated needs detected speech; RMS needs an offline analysis run.";
}

}  // namespace corvane
