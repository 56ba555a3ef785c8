// EditEngine: the edit history of the loaded file and the roads by which an edit reaches its
// samples.
//
// History. Two stacks of whole-file snapshots, oldest first, at most 16 each (the 17th push
// drops the oldest). A snapshot keeps its samples in a 32-bit float WAV of its own in the
// private temporary folder ("corvane-undo-<UUID>.wav", RF64 once the data passes 4 GiB) and
// only the file's description in memory, so that the depth of the history costs disk, not
// memory: the session holds one decoded buffer however many edits were made. A snapshot owns
// its file; the file is deleted whichever way the snapshot leaves the history. A snapshot that
// can't be written (a full disk) is dropped without a word and the edit goes on; one that
// can't be read back makes undo or redo do nothing (its file is gone all the same). Files
// that a crash left behind are purged at the next start-up (purgeStaleSnapshots).
//
// isDirty means "edited since the last load or save", not "the samples differ": once set by
// an edit it survives any number of undos, and only reset() (a load, a save) clears it.
//
// The roads (EditRoads.cpp), all on the main thread:
//   applyEdit              a rebuild in memory from a copy of all channels, then a swap
//   applyStreamingRebuild  the streaming twin writes a temporary WAV, read back, then a swap
//   applyRangeEdit         the range is copied out, edited, written back; length unchanged
//   applyInPlaceEdit       the operation runs on the live buffer's own samples
// Each records the audio before the change (an operation with nothing to do records nothing),
// brings the session up to date (swapEditedBuffer / refreshAfterInPlaceEdit), raises the
// session's bufferEpoch, sets isDirty and shows its confirmation for 2.8 s. A failure leaves
// the audio as it was and goes to the session's onEditFailure, else to the alert "Couldn't
// apply the edit" (AudioEngine::presentEditFailure).
//
// Playback around an edit. Every road pauses first. The in-place roads then also wait until
// the render callback has finished the buffer it was rendering (one device period at most),
// so no buffer it plays mixes samples from before and after the edit; they resume afterwards.
// Rebuilds hand the new buffer to the render thread as a snapshot that retires the old one
// only once the callback has moved on, and leave the transport paused at 0.
//
// EditEngine is also the session's work guard for unsaved edits (hasUnsavedEdits).
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "headless/edits/EditOperations.h"
#include "headless/files/AudioFileModel.h"
#include "session/SessionWorkGuard.h"

namespace corvane {

class AudioEngine;

// A toast of the edit roads: a fresh id per confirmation, so that the same text twice is two.
struct EditConfirmation {
  QUuid id;
  QString text;
  friend bool operator==(const EditConfirmation&, const EditConfirmation&) = default;
};

using OptionalEditConfirmation = std::optional<EditConfirmation>;

class EditEngine : public QObject, public SessionWorkGuard {
  Q_OBJECT
  Q_PROPERTY(bool isDirty READ isDirty WRITE setIsDirty NOTIFY isDirtyChanged)
  Q_PROPERTY(int undoDepth READ undoDepth NOTIFY undoStackChanged)
  Q_PROPERTY(int redoDepth READ redoDepth NOTIFY redoStackChanged)
  Q_PROPERTY(corvane::OptionalEditConfirmation editConfirmation READ editConfirmation WRITE setEditConfirmation
                 NOTIFY editConfirmationChanged)

 public:
  static constexpr int kMaxHistoryDepth = 16;
  // How long a confirmation stays up.
  static constexpr int kConfirmationMs = 2800;
  // Clipping threshold of the clip regions patched after an in-place edit.
  static constexpr float kClipThreshold = 0.9999f;
  static constexpr std::string_view kSnapshotPrefix = "corvane-undo-";

  struct Snapshot {
    std::filesystem::path url;  // the WAV with the whole buffer at that moment
    AudioFileModel model;       // the description at that moment, without its buffer
    std::vector<ChannelPosition> channelPositions;  // the buffer's, which a WAV may not keep
    // A shared lock on the file for as long as the snapshot lives: the start-up purge of
    // another Corvane of the same user leaves the file of a running session alone.
    std::shared_ptr<void> fileLock;
  };
  struct Restored {
    SharedAudioBuffer buffer;
    AudioFileModel model;
  };

  using RebuildOperation = std::function<EditOperations::EditResult(const ChannelData& channelData, double sampleRate)>;
  // The same over the live buffer read where it lies: the rebuild then needs memory for the
  // result only, not for a copy of the channels as well.
  using SourceOperation = std::function<EditOperations::EditResult(EditSource& source)>;
  // Runs on the live buffer's channel pointers, over [startFrame, endFrame) (already clamped).
  // False: nothing changed.
  using InPlaceOperation = std::function<bool(float* const* channelData, int channelCount, FrameCount totalFrames,
                                              FrameCount startFrame, FrameCount endFrame)>;
  // Writes the edited audio of `source` to `to`; false: nothing to do, no file. Throws on failure.
  using StreamingWrite = std::function<bool(EditSource& source, const std::filesystem::path& to)>;

  // The failure texts of the roads.
  static const QString kTooLargeText;
  static const QString kOutOfMemoryText;

  explicit EditEngine(AudioEngine& engine, QObject* parent = nullptr);
  ~EditEngine() override;

  // ---- History --------------------------------------------------------------------------------
  const std::vector<Snapshot>& undoStack() const { return _undoStack; }
  const std::vector<Snapshot>& redoStack() const { return _redoStack; }
  int undoDepth() const { return static_cast<int>(_undoStack.size()); }
  int redoDepth() const { return static_cast<int>(_redoStack.size()); }
  bool isDirty() const { return _isDirty; }
  void setIsDirty(bool dirty);

  // The state before an edit goes onto the undo stack; the redo stack is cleared.
  void recordEdit(const AudioBuffer& buffer, const AudioFileModel& model);
  // None when the stack is empty or its snapshot can't be read back. Otherwise the current
  // state goes onto the other stack and the newest snapshot comes back.
  std::optional<Restored> undo(const AudioBuffer& current, const AudioFileModel& model);
  std::optional<Restored> redo(const AudioBuffer& current, const AudioFileModel& model);
  // Both stacks cleared (their files deleted), isDirty false.
  void reset();
  // Deletes every "corvane-undo-" file in the private temporary folder that no running session
  // holds (a crash leaves its snapshots unlocked); all failures ignored.
  static void purgeStaleSnapshots();
  // The whole of a snapshot file as a buffer; none when it can't be read or is empty.
  static SharedAudioBuffer readBuffer(const std::filesystem::path& url);

  // ---- Session commands -----------------------------------------------------------------------
  // Undo or redo on the live file: playback pauses and does not resume; no toast; isDirty stays.
  void undoLastEdit();
  void redoLastEdit();
  // "Discard Edits": asks, then reloads the file. Nothing on a clean session.
  void discardSessionEdits();

  // ---- Roads ----------------------------------------------------------------------------------
  void applyEdit(const std::optional<QString>& confirmation, const RebuildOperation& operation);
  void applyEdit(const std::optional<QString>& confirmation, const SourceOperation& operation);
  void applyStreamingRebuild(std::string_view tempName, const QString& failMessage,
                             const std::optional<QString>& confirmation, const StreamingWrite& write);
  void applyRangeEdit(FrameCount startFrame, FrameCount endFrame, const std::optional<QString>& confirmation,
                      const RebuildOperation& operation);
  void applyInPlaceEdit(FrameCount startFrame, FrameCount endFrame, const std::optional<QString>& confirmation,
                        const InPlaceOperation& operation);
  // Installs a new buffer of any length (rebuilds, undo, redo).
  void swapEditedBuffer(SharedAudioBuffer buffer, AudioFileModel model, bool lengthChanged);
  // Publishes the live buffer after its samples changed in place.
  void refreshAfterInPlaceEdit(AudioFileModel model, const SharedAudioBuffer& buffer);
  // The rebuild road around `build`, which makes the result from the live buffer.
  void applyRebuild(const std::optional<QString>& confirmation,
                    const std::function<EditOperations::EditResult(const AudioBuffer& old)>& build);
  // After a change of length: the speech history is derived again in the background.
  void scheduleSpeechRederiveAfterEdit();

  const OptionalEditConfirmation& editConfirmation() const { return _editConfirmation; }
  void setEditConfirmation(OptionalEditConfirmation confirmation);
  // A new confirmation with a fresh id.
  void confirm(const QString& text);
  // For tests: the confirmation's time on screen.
  void setConfirmationIntervalForTesting(int milliseconds) { _confirmationTimer.setInterval(milliseconds); }

  // The alert when an export would write over the loaded file.
  void presentInPlaceWriteRefused();

  // ---- Saving (EditSave.cpp) -------------------------------------------------------------------
  // Save As asks where through this; the app installs its save panel. Without one, Save As
  // does nothing.
  struct SaveRequest {
    QString title;                    // "Save Edited Audio"
    std::string proposedName;         // "<stem>_edited.<extension>"
    std::string extension;            // the only type offered: "wav" or "caf"
    std::filesystem::path directory;  // the loaded file's folder
  };
  using SaveLocationChooser = std::function<std::optional<std::filesystem::path>(const SaveRequest& request)>;
  void setSaveLocationChooser(SaveLocationChooser chooser) { _chooseSaveLocation = std::move(chooser); }
  // Leaves edit mode (the effect chain's question joins here with its subsystem).
  void requestExitEditMode();

  // ---- SessionWorkGuard -----------------------------------------------------------------------
  bool hasUnsavedEdits() const override { return _isDirty; }
  // Why Save can't write over the loaded file; none when it can.
  std::optional<QString> inPlaceSaveBlocker() const override;
  QString sessionPromptSaveTitle() const override;
  // Save: over the loaded file, keeping its format (with the setting and the confirmation);
  // else Save As.
  void saveEditedBufferInPlace() override;
  // Save As: a new file; the session is then bound to it and the history is gone.
  void exportEditedBuffer() override;

 signals:
  void isDirtyChanged();
  void undoStackChanged();
  void redoStackChanged();
  void editConfirmationChanged();

 private:
  enum class Stack { undo, redo };
  std::vector<Snapshot>& stack(Stack which) { return which == Stack::undo ? _undoStack : _redoStack; }
  void notify(Stack which);
  bool push(const AudioBuffer& buffer, const AudioFileModel& model, Stack onto);
  std::optional<Restored> pop(Stack from);
  void clear(Stack which);
  void restore(bool undoing);
  // The newest undo entry goes again (an in-place operation that found nothing to change).
  void dropNewestUndo();

  void reportFailure(const QString& text);
  // Pauses playback; returns whether it was playing.
  bool pauseForEdit();
  // Returns once the render callback no longer runs inside a buffer it began before now.
  void waitForRenderToLeave();
  void resumePlayback();
  bool beginInPlace(FrameCount& startFrame, FrameCount& endFrame, bool& wasPlaying);
  void finishInPlace(FrameCount startFrame, FrameCount endFrame, bool wasPlaying,
                     const std::optional<QString>& confirmation);
  // What was measured on the audio before the edit: file curves and figures, spectra, rings.
  void clearDerivedFigures();
  // Compare slot 0, when there are slots, becomes the edited file with nothing measured.
  void rebuildReferenceSlot(const AudioFileModel& model, const SharedAudioBuffer& buffer);

  // After a save: the model bound to `model`, slot 0 rebuilt, the history gone.
  void bindSavedFile(AudioFileModel model);

  AudioEngine& _engine;
  SaveLocationChooser _chooseSaveLocation;
  std::vector<Snapshot> _undoStack;
  std::vector<Snapshot> _redoStack;
  bool _isDirty = false;
  OptionalEditConfirmation _editConfirmation;
  QTimer _confirmationTimer;
};

}  // namespace corvane

Q_DECLARE_METATYPE(corvane::OptionalEditConfirmation)
