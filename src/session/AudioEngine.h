// AudioEngine: the session. One per process, made at start-up, living on the main thread:
// the loaded file, the counters that keep background work honest, the six mode flags with
// their rules, the road by which a file is opened, and the subsystem models that every view
// and command talks to.
//
// Subsystem models. Each is a QObject of its own folder that owns one group of fields as
// observable properties; the session owns them and hands them out by accessor:
//   transport()        playback: transport state, routing, graph (src/playback)
//   deviceManager()    the audio devices and the chosen output (src/playback)
//   meters()           the live meters' processors and values (src/measurement)
//   analysis()         the file's offline figures, curves and spectrogram (src/measurement)
//   compare()          the compare slots (src/compare)
//   dialogue()         the file's speech history and dialogue regions (src/dialogue)
//   editEngine()       the edit history and the roads of an edit (src/editing)
//   sessionSettings()  display, analysis and speech settings (persisted ones write on change)
//   settings()         the settings store itself, for the keys other owners read
//   recentDocuments()  the recent files of the File menu
// A later subsystem adds its model the same way: a member made in the constructor (in the
// start-up order), an accessor, and, where the road must reach it, a call at the documented
// step of loadFile / setupActiveFile / a landing, or a connection to loadStarted() / landed().
//
// Observable properties notify (<name>Changed) only on a real change.
//
// The road of one file:
//   openURLs → confirmReplaceSession → recent documents → extra slots dropped → loadFile
//   loadFile, head (main thread): playback halts, isLoading, the file's speech state goes,
//     loadStarted(), loadGeneration and fileLoadEpoch + 1, then one background task runs the
//     load pipeline (headless/pipelines/FileLoadPipeline.h) with the settings captured now.
//   Each stage lands on the main thread (landed() tells which):
//     failed       isLoading false; a regular file of at least one byte raises the raw import
//                  sheet (pendingRawImport, with the note), anything else sets loadError.
//     decoded      isLoading false, slot 0, setupActiveFile, the extras start as compare
//                  slots, the pyramid is scheduled. From here the file can be played.
//     speech       the speech history, ranges and dialogue regions; the live meter gets it.
//     metrics      the file's loudness and width curves, speech-gated loudness, sample peak;
//                  slot 0's metrics.
//     spectrogram  the load-time spectrogram (only with autoComputeSpectrogramOnLoad).
//   Every landing of a load compares loadGeneration and drops a stale result without a word —
//   the first landing and the failure too, so that a slow earlier load never lands over a
//   later one. Tasks are never cancelled, only outrun.
//
// Threads: every member is main-thread only. Background tasks hold a QPointer to the engine,
// copy what they need (the shared buffer read-only), and land through landOnMainThread
// (BackgroundWork.h).
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "headless/files/AudioFileModel.h"
#include "headless/pipelines/FileLoadPipeline.h"
#include "playback/AudioDeviceCatalog.h"
#include "playback/PlaybackGraph.h"
#include "session/SessionTypes.h"

namespace corvane {

class AlertPresenter;
class AudioDeviceManager;
class CompareModel;
class DialogueModel;
class EditEngine;
class FileAnalysis;
class LiveMeters;
class RecentDocumentsTracker;
class SessionSettings;
class SessionWorkGuard;
class SettingsStore;
class Transport;
struct CompareSlot;
struct SessionAlert;

struct AudioEngineOptions {
  // Null: the user's settings.
  std::shared_ptr<SettingsStore> settings;
  // Null: questions are logged and answered as if closed (LoggingAlertPresenter).
  std::shared_ptr<AlertPresenter> presenter;
  // The audio backends to list devices from; empty: all of them, JACK first.
  std::vector<AudioBackend> audioBackends;
  // The 2 s device re-read.
  bool rescanDevices = true;
  // Play into a caller-driven output instead of a device (tests, offline use).
  std::optional<ManualOutput> manualOutput;
  // Register with CorvaneAppBridge at start-up (the application's one session does).
  bool registerWithBridge = true;
};

using OptionalAudioFileModel = std::optional<AudioFileModel>;
using OptionalText = std::optional<QString>;
using OptionalRawImportRequest = std::optional<RawImportRequest>;

class AudioEngine : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::OptionalAudioFileModel loadedFile READ loadedFile NOTIFY loadedFileChanged)
  Q_PROPERTY(corvane::SharedAudioBuffer pcmBuffer READ pcmBuffer NOTIFY pcmBufferChanged)
  Q_PROPERTY(corvane::OptionalText loadError READ loadError WRITE setLoadError NOTIFY loadErrorChanged)
  Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
  Q_PROPERTY(corvane::OptionalRawImportRequest pendingRawImport READ pendingRawImport WRITE setPendingRawImport
                 NOTIFY pendingRawImportChanged)
  Q_PROPERTY(quint64 fileLoadEpoch READ fileLoadEpoch NOTIFY fileLoadEpochChanged)
  Q_PROPERTY(quint64 loadGeneration READ loadGeneration)
  Q_PROPERTY(quint64 bufferEpoch READ bufferEpoch)
  Q_PROPERTY(bool isEditMode READ isEditMode WRITE setIsEditMode NOTIFY isEditModeChanged)
  Q_PROPERTY(bool isCompareMode READ isCompareMode WRITE setIsCompareMode NOTIFY isCompareModeChanged)
  Q_PROPERTY(bool isChapterMode READ isChapterMode WRITE setIsChapterMode NOTIFY isChapterModeChanged)
  Q_PROPERTY(bool isDialogueMode READ isDialogueMode WRITE setIsDialogueMode NOTIFY isDialogueModeChanged)
  Q_PROPERTY(bool isSpectralMode READ isSpectralMode WRITE setIsSpectralMode NOTIFY isSpectralModeChanged)
  Q_PROPERTY(bool isRecordMode READ isRecordMode WRITE setIsRecordMode NOTIFY isRecordModeChanged)

 public:
  enum class Mode { edit, compare, chapter, dialogue, spectral, record };
  Q_ENUM(Mode)

  // What a landing brought, in landed().
  enum class Landing {
    failed,          // stage 1 failed: pendingRawImport or loadError
    decoded,         // the first landing: the file is live
    speech,          // the speech history
    metrics,         // the file metrics
    spectrogram,     // the load-time spectrogram
    pyramid,         // the waveform pyramid of a long file
    compareSlot,     // an extra file became a compare slot
    compareMetrics,  // a compare slot's metrics
  };
  Q_ENUM(Landing)

  // Start-up, in order: the settings are read (sessionSettings), the device list is read,
  // the models are made, the engine registers with the application bridge (which may open
  // files that waited for it). Nothing plays and no graph exists until a file lands.
  explicit AudioEngine(AudioEngineOptions options = {}, QObject* parent = nullptr);
  ~AudioEngine() override;

  // ---- Subsystem models ---------------------------------------------------------------------
  Transport& transport() { return *_transport; }
  AudioDeviceManager& deviceManager() { return *_devices; }
  LiveMeters& meters() { return *_meters; }
  FileAnalysis& analysis() { return *_analysis; }
  CompareModel& compare() { return *_compare; }
  DialogueModel& dialogue() { return *_dialogue; }
  EditEngine& editEngine() { return *_editEngine; }
  SessionSettings& sessionSettings() { return *_sessionSettings; }
  SettingsStore& settings() { return *_settings; }
  RecentDocumentsTracker& recentDocuments() { return *_recentDocuments; }

  // ---- The file -----------------------------------------------------------------------------
  // The live file, with peaks and clip regions; its pyramid arrives later for long files.
  const OptionalAudioFileModel& loadedFile() const { return _loadedFile; }
  // Its samples, shared with the render thread and background readers.
  const SharedAudioBuffer& pcmBuffer() const { return _pcmBuffer; }
  // Why a file could not be opened, for the "Could not open file" alert, which clears it.
  const OptionalText& loadError() const { return _loadError; }
  void setLoadError(OptionalText error);
  bool isLoading() const { return _isLoading; }
  // A file to offer to the raw import sheet, which clears it when it closes.
  const OptionalRawImportRequest& pendingRawImport() const { return _pendingRawImport; }
  void setPendingRawImport(OptionalRawImportRequest request);

  // ---- Counters (they only grow) -------------------------------------------------------------
  // + 1 at the head of every load: compared by every landing of a load and by the pyramid.
  quint64 loadGeneration() const { return _loadGeneration; }
  // + 1 at the head of every load; views reset their per-file state when it changes.
  quint64 fileLoadEpoch() const { return _fileLoadEpoch; }
  // + 1 by every road that changes the live buffer's samples: background readers compare it.
  quint64 bufferEpoch() const { return _bufferEpoch; }
  void bumpBufferEpoch() { ++_bufferEpoch; }
  // The edit roads' hand-over of the live file after its samples changed (in place, or a new
  // buffer): notifies as a load does, and leaves transport and figures to the caller.
  void setEditedFile(AudioFileModel model, SharedAudioBuffer buffer);

  // ---- Modes --------------------------------------------------------------------------------
  // At most one is on; turning one on turns the others off. Refusals (the flag stays off):
  // edit, chapter, dialogue and record mode while more than one compare slot exists; spectral
  // mode then too, and without a file; compare mode when confirmLeaveSessionForCompare says
  // no. Spectral mode clears the selection on the way in and out; edit mode shapes the graph.
  // Each mode's own behaviour belongs to its subsystem, which observes the flag.
  bool isEditMode() const { return _modes[index(Mode::edit)]; }
  bool isCompareMode() const { return _modes[index(Mode::compare)]; }
  bool isChapterMode() const { return _modes[index(Mode::chapter)]; }
  bool isDialogueMode() const { return _modes[index(Mode::dialogue)]; }
  bool isSpectralMode() const { return _modes[index(Mode::spectral)]; }
  bool isRecordMode() const { return _modes[index(Mode::record)]; }
  void setIsEditMode(bool on) { setMode(Mode::edit, on); }
  void setIsCompareMode(bool on) { setMode(Mode::compare, on); }
  void setIsChapterMode(bool on) { setMode(Mode::chapter, on); }
  void setIsDialogueMode(bool on) { setMode(Mode::dialogue, on); }
  void setIsSpectralMode(bool on) { setMode(Mode::spectral, on); }
  void setIsRecordMode(bool on) { setMode(Mode::record, on); }
  bool isModeOn(Mode mode) const { return _modes[index(mode)]; }
  // False when the mode refused to turn on.
  bool setMode(Mode mode, bool on);

  // ---- The road -----------------------------------------------------------------------------
  // The one way in for the user's files. The first is loaded (or, if it is the loaded file,
  // kept); the others become compare slots.
  void openURLs(const QList<QUrl>& urls);
  // The questions before the session is replaced (opening, quitting): a take still recording,
  // unsaved edits, a take only in the takes folder. True when the user lets it go ahead.
  bool confirmReplaceSession(const SessionReplaceAction& action);
  // The question before compare mode sets unsaved edits aside.
  bool confirmLeaveSessionForCompare();
  // Replaces the session with `url` (see the header comment); `extras` become compare slots
  // once it lands. With `rawFormat` the file is read as headerless PCM of that format.
  void loadFile(const QUrl& url, const QList<QUrl>& extras = {}, std::optional<RawPCMFormat> rawFormat = std::nullopt);
  // Makes a model and its buffer the live ones: transport, routing (default for the selected
  // device, at least 2 outputs), live meters, the file's figures cleared, a new graph.
  void setupActiveFile(const AudioFileModel& model, const SharedAudioBuffer& buffer);
  // Adds a file as a compare slot in the background (refused silently at six slots or for a
  // file already listed; with an alert when memory would not hold it).
  void addCompareSlot(const QUrl& url);
  // Builds the waveform pyramid of a long live buffer (from 4,194,304 frames) at utility
  // priority; it lands only if neither loadGeneration nor bufferEpoch moved meanwhile.
  void schedulePyramidRebuild();
  // A file read as raw PCM is offered to the raw import sheet again, with its format.
  void requestRawReinterpret();

  // ---- Collaborators ------------------------------------------------------------------------
  void setAlertPresenter(std::shared_ptr<AlertPresenter> presenter);
  // Where an operation that fails tells the user why: the installed onEditFailure callback if
  // there is one, else a warning alert headed "Couldn't apply the edit" with the text.
  void setOnEditFailure(std::function<void(const QString& text)> callback) { _onEditFailure = std::move(callback); }
  void presentEditFailure(const QString& text);
  // "Cannot overwrite the original file": a Save As or an export chose the loaded file itself.
  // The advice depends on whether Save may overwrite the file (corvaneAllowSaveOverwrite).
  void presentInPlaceWriteRefused();
  // Null: the edit history answers for unsaved edits, nobody for recording.
  void setWorkGuard(std::shared_ptr<SessionWorkGuard> guard);
  // Shows a question through the installed presenter; the index of the button pressed.
  int presentAlert(const SessionAlert& alert) { return ask(alert); }
  // Whether the last alert's suppression check box was ticked.
  bool alertSuppressionChecked() const;
  // The raw formats remembered per file (the raw import subsystem installs it): asked when a
  // file is loaded or added without a format.
  using RawFormatMemory = std::function<std::optional<RawPCMFormat>(const std::filesystem::path&)>;
  void setRawFormatMemory(RawFormatMemory memory) { _rawFormatMemory = std::move(memory); }
  // Called on the load task after each stage, before its result is handed over (tests use it
  // to hold a load back).
  using LoadStageHook = std::function<void(const std::filesystem::path& url, FileLoadStage stage)>;
  void setLoadStageHook(LoadStageHook hook) { _loadStageHook = std::move(hook); }

 signals:
  void loadedFileChanged();
  void pcmBufferChanged();
  void loadErrorChanged();
  void isLoadingChanged();
  void pendingRawImportChanged();
  void fileLoadEpochChanged();
  void isEditModeChanged();
  void isCompareModeChanged();
  void isChapterModeChanged();
  void isDialogueModeChanged();
  void isSpectralModeChanged();
  void isRecordModeChanged();
  // The head of a load, after the session cleared its own per-file state and before the
  // counters move: subsystems with per-file state of their own (the edit history, the effect
  // chain) reset it here.
  void loadStarted(const QUrl& url);
  // A landing has been applied.
  void landed(corvane::AudioEngine::Landing landing);

 private:
  class LoadTask;
  struct LoadTicket;
  struct CompareTicket;

  static std::size_t index(Mode mode) { return static_cast<std::size_t>(mode); }

  void setLoadedFile(OptionalAudioFileModel model);
  void setPcmBuffer(SharedAudioBuffer buffer);
  void setIsLoading(bool loading);
  bool modeMayTurnOn(Mode mode);
  void emitModeChanged(Mode mode);
  int ask(const SessionAlert& alert);
  void presentCompareBudgetExceeded();
  void returnToReferenceSlot();
  void applySlotFigures(const CompareSlot& slot);

  void landLoadFailure(const LoadTicket& ticket, const QString& message);
  void landDecodedFile(const LoadTicket& ticket, AudioFileModel model, SharedAudioBuffer buffer);
  void landSpeech(const LoadTicket& ticket, SpeechStageResult speech);
  void landMetrics(const LoadTicket& ticket, SlotMetrics metrics);
  void landSpectrogram(const LoadTicket& ticket, SpectrogramColumns columns);
  void landPyramid(quint64 generation, quint64 bufferEpoch, std::vector<WaveformPyramidLevel> levels);
  void landCompareFailure(const CompareTicket& ticket);
  void landCompareSlot(const CompareTicket& ticket, CompareSlot slot);
  void landCompareMetrics(const CompareTicket& ticket, SlotMetrics metrics);

  std::shared_ptr<SettingsStore> _settings;
  SessionSettings* _sessionSettings;
  RecentDocumentsTracker* _recentDocuments;
  AudioDeviceManager* _devices;
  Transport* _transport;
  LiveMeters* _meters;
  FileAnalysis* _analysis;
  CompareModel* _compare;
  DialogueModel* _dialogue;
  EditEngine* _editEngine;
  std::shared_ptr<AlertPresenter> _presenter;
  std::shared_ptr<SessionWorkGuard> _workGuard;
  RawFormatMemory _rawFormatMemory;
  LoadStageHook _loadStageHook;
  std::function<void(const QString&)> _onEditFailure;

  OptionalAudioFileModel _loadedFile;
  SharedAudioBuffer _pcmBuffer;
  OptionalText _loadError;
  bool _isLoading = false;
  OptionalRawImportRequest _pendingRawImport;
  quint64 _loadGeneration = 0;
  quint64 _fileLoadEpoch = 0;
  quint64 _bufferEpoch = 0;
  bool _modes[6] = {};
};

}  // namespace corvane
