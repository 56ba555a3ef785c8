#include "dialogue/DialogueModel.h"

namespace corvane {

QString displayName(DialogueRegionSource source) {
  switch (source) {
    case DialogueRegionSource::automatic: return QStringLiteral("auto");
    case DialogueRegionSource::edited: return QStringLiteral("edited");
    case DialogueRegionSource::imported: return QStringLiteral("imported");
  }
  return {};
}

DialogueModel::DialogueModel(QObject* parent) : QObject(parent) {}

void DialogueModel::clearForLoad() {
  setFileSpeechHistory(nullptr);
  setFileSpeechHistoryTuning(std::nullopt);
  setFileSpeechRanges({});
  setDialogueRegions({});
  setDialogueRegionsSource(DialogueRegionSource::automatic);
  _dialogueSidecarCreatedAt.reset();
}

void DialogueModel::clearForFile() {
  setFileSpeechRanges({});
  setFileSpeechHistory(nullptr);
}

void DialogueModel::landDetectedHistory(SharedSpeechHistory history, const SileroVADTuning& tuning) {
  setFileSpeechHistory(history);
  if (!history) {
    setFileSpeechHistoryTuning(std::nullopt);
    return;
  }
  setFileSpeechHistoryTuning(tuning);
  setFileSpeechRanges(computeSpeechRanges(*history, 0.0, kLoudnessBlockSeconds));
  setDialogueRegions(DialogueRegion::fromHistory(*history, kLoudnessBlockSeconds));
  setDialogueRegionsSource(DialogueRegionSource::automatic);
}

void DialogueModel::setFileSpeechHistory(SharedSpeechHistory history) {
  if (history == _fileSpeechHistory) return;
  _fileSpeechHistory = std::move(history);
  emit fileSpeechHistoryChanged();
}

void DialogueModel::setFileSpeechHistoryTuning(std::optional<SileroVADTuning> tuning) {
  if (tuning == _fileSpeechHistoryTuning) return;
  _fileSpeechHistoryTuning = tuning;
  emit fileSpeechHistoryTuningChanged();
}

void DialogueModel::setFileSpeechRanges(SpeechRanges ranges) {
  if (ranges == _fileSpeechRanges) return;
  _fileSpeechRanges = std::move(ranges);
  emit fileSpeechRangesChanged();
}

void DialogueModel::setDialogueRegions(DialogueRegions regions) {
  if (regions == _dialogueRegions) return;
  _dialogueRegions = std::move(regions);
  emit dialogueRegionsChanged();
}

void DialogueModel::setDialogueRegionsSource(DialogueRegionSource source) {
  if (source == _dialogueRegionsSource) return;
  _dialogueRegionsSource = source;
  emit dialogueRegionsSourceChanged();
}

}  // namespace corvane
