// DialogueModel: the speech of the loaded file as the session knows it: the detector's history
// (one Boolean per 0.1 s block) with the tuning that made it, the stretches of speech, and the
// dialogue regions the user sees and corrects.
//
// The load's second stage lands here (landDetectedHistory): the regions follow the history
// anew and their source goes back to "auto". Reading a dialogue sidecar, the region commands,
// their undo and the debounced sidecar save belong to the dialogue subsystem and extend this
// model.
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QString>
#include <optional>
#include <vector>

#include "core/SpeechHistory.h"
#include "headless/speech/DialogueRegion.h"
#include "headless/speech/SileroVADTuning.h"
#include "headless/speech/SpeechRanges.h"

namespace corvane {

// Where the dialogue regions come from: the detector, the user's corrections, or a sidecar.
enum class DialogueRegionSource { automatic, edited, imported };
// "auto", "edited", "imported".
QString displayName(DialogueRegionSource source);

using SpeechRanges = std::vector<SpeechRange>;
using DialogueRegions = std::vector<DialogueRegion>;

class DialogueModel : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::SharedSpeechHistory fileSpeechHistory READ fileSpeechHistory NOTIFY fileSpeechHistoryChanged)
  Q_PROPERTY(std::optional<corvane::SileroVADTuning> fileSpeechHistoryTuning READ fileSpeechHistoryTuning
                 NOTIFY fileSpeechHistoryTuningChanged)
  Q_PROPERTY(corvane::SpeechRanges fileSpeechRanges READ fileSpeechRanges NOTIFY fileSpeechRangesChanged)
  Q_PROPERTY(corvane::DialogueRegions dialogueRegions READ dialogueRegions NOTIFY dialogueRegionsChanged)
  Q_PROPERTY(corvane::DialogueRegionSource dialogueRegionsSource READ dialogueRegionsSource NOTIFY dialogueRegionsSourceChanged)

 public:
  explicit DialogueModel(QObject* parent = nullptr);

  // Null before detection, or when the detector gave none.
  const SharedSpeechHistory& fileSpeechHistory() const { return _fileSpeechHistory; }
  // The tuning that made fileSpeechHistory; none without a history.
  const std::optional<SileroVADTuning>& fileSpeechHistoryTuning() const { return _fileSpeechHistoryTuning; }
  const SpeechRanges& fileSpeechRanges() const { return _fileSpeechRanges; }
  const DialogueRegions& dialogueRegions() const { return _dialogueRegions; }
  DialogueRegionSource dialogueRegionsSource() const { return _dialogueRegionsSource; }
  // When the sidecar the regions came from was made; none unless they came from one.
  const std::optional<QString>& dialogueSidecarCreatedAt() const { return _dialogueSidecarCreatedAt; }

  // A load begins: history, tuning, ranges and regions go, the source is "auto" again, no
  // sidecar.
  void clearForLoad();
  // A new file is live: its speech is not known yet.
  void clearForFile();
  // What the detector found for the whole file with `tuning` (history may be null: nothing).
  void landDetectedHistory(SharedSpeechHistory history, const SileroVADTuning& tuning);

 signals:
  void fileSpeechHistoryChanged();
  void fileSpeechHistoryTuningChanged();
  void fileSpeechRangesChanged();
  void dialogueRegionsChanged();
  void dialogueRegionsSourceChanged();

 private:
  void setFileSpeechHistory(SharedSpeechHistory history);
  void setFileSpeechHistoryTuning(std::optional<SileroVADTuning> tuning);
  void setFileSpeechRanges(SpeechRanges ranges);
  void setDialogueRegions(DialogueRegions regions);
  void setDialogueRegionsSource(DialogueRegionSource source);

  SharedSpeechHistory _fileSpeechHistory;
  std::optional<SileroVADTuning> _fileSpeechHistoryTuning;
  SpeechRanges _fileSpeechRanges;
  DialogueRegions _dialogueRegions;
  DialogueRegionSource _dialogueRegionsSource = DialogueRegionSource::automatic;
  std::optional<QString> _dialogueSidecarCreatedAt;
};

}  // namespace corvane
