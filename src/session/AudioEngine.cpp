#include "session/AudioEngine.h"

#include <QPointer>
#include <QUuid>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "compare/CompareModel.h"
#include "dialogue/DialogueModel.h"
#include "editing/EditEngine.h"
#include "headless/files/AudioLoadLimits.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveMeters.h"
#include "playback/AudioDeviceManager.h"
#include "playback/Transport.h"
#include "session/AlertPresenter.h"
#include "session/BackgroundWork.h"
#include "session/CorvaneAppBridge.h"
#include "session/RecentDocumentsTracker.h"
#include "session/SessionSettings.h"
#include "session/SessionWorkGuard.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

constexpr AudioEngine::Mode kAllModes[] = {AudioEngine::Mode::edit,     AudioEngine::Mode::compare,
                                           AudioEngine::Mode::chapter,  AudioEngine::Mode::dialogue,
                                           AudioEngine::Mode::spectral, AudioEngine::Mode::record};

std::filesystem::path localPath(const QUrl& url) {
  return std::filesystem::path((url.isLocalFile() ? url.toLocalFile() : url.toString()).toStdString());
}

QString text(const std::string& utf8) { return QString::fromStdString(utf8); }

QString describe(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::bad_alloc&) {
    return QStringLiteral("Failed to allocate audio buffer");
  } catch (const std::exception& e) {
    return text(e.what());
  } catch (...) {
    return QStringLiteral("Unknown error");
  }
}

void log(const QString& line) {
  std::printf("%s\n", line.toUtf8().constData());
  std::fflush(stdout);
}

// Whether `file` lies inside `folder` (compared as written, after normalising both).
bool liesInside(const std::filesystem::path& file, const QString& folder) {
  if (folder.isEmpty()) return false;
  const std::string inside = std::filesystem::path(folder.toStdString()).lexically_normal().string();
  const std::string path = std::filesystem::absolute(file).lexically_normal().string();
  const std::string prefix = inside.ends_with('/') ? inside : inside + '/';
  return path.starts_with(prefix);
}

}  // namespace

// What a load's task carries and every landing of it compares.
struct AudioEngine::LoadTicket {
  quint64 generation = 0;
  std::filesystem::path url;
  QList<QUrl> extras;
  std::optional<RawPCMFormat> rawFormat;
  SileroVADTuning tuning;
};

struct AudioEngine::CompareTicket {
  quint64 generation = 0;
  std::filesystem::path url;
  std::optional<RawPCMFormat> rawFormat;
  SileroVADTuning tuning;
};

// The load pipeline's listener on the task: every result goes to the main thread.
class AudioEngine::LoadTask final : public FileLoadListener {
 public:
  LoadTask(QPointer<AudioEngine> engine, LoadTicket ticket) : _engine(std::move(engine)), _ticket(std::move(ticket)) {}

  bool wantsMore() override { return !_engine.isNull(); }

  void decodeFailed(std::exception_ptr error) override {
    landOnMainThread(_engine, [ticket = _ticket, message = describe(error)](AudioEngine& engine) {
      engine.landLoadFailure(ticket, message);
    });
  }
  void decoded(AudioFileModel model, SharedAudioBuffer buffer) override {
    landOnMainThread(_engine, [ticket = _ticket, model = std::move(model), buffer = std::move(buffer)](AudioEngine& engine) mutable {
      engine.landDecodedFile(ticket, std::move(model), std::move(buffer));
    });
  }
  void speechDetected(SpeechStageResult speech) override {
    landOnMainThread(_engine, [ticket = _ticket, speech = std::move(speech)](AudioEngine& engine) mutable {
      engine.landSpeech(ticket, std::move(speech));
    });
  }
  void measured(SlotMetrics metrics) override {
    landOnMainThread(_engine, [ticket = _ticket, metrics = std::move(metrics)](AudioEngine& engine) mutable {
      engine.landMetrics(ticket, std::move(metrics));
    });
  }
  void spectrogramComputed(SpectrogramColumns columns) override {
    landOnMainThread(_engine, [ticket = _ticket, columns = std::move(columns)](AudioEngine& engine) mutable {
      engine.landSpectrogram(ticket, std::move(columns));
    });
  }

 private:
  QPointer<AudioEngine> _engine;
  LoadTicket _ticket;
};

namespace {

// The live meters follow the transport's display tick and still playhead, and the session's
// display settings; the readout rate is kept in the settings.
void connectMeasurement(AudioEngine& engine) {
  // The meters' tick follows the transport's own part of each display tick.
  QObject::connect(&engine.transport(), &Transport::displayTicked, &engine.meters(),
                   [&engine] { engine.meters().tick(engine.transport()); });
  QObject::connect(&engine.transport(), &Transport::stillPlayheadMoved, &engine.meters(), [&engine] {
    engine.meters().recomputeFFTAtPlayhead(engine.pcmBuffer().get(), engine.transport().currentTime());
  });
  QObject::connect(&engine.transport(), &Transport::finalLoudnessPublished, &engine.meters(), [&engine] {
    if (const auto& figures = engine.transport().finalLoudness()) engine.meters().applyFinalLoudness(*figures);
  });
  engine.meters().setMeterReadoutRate(engine.settings().meterReadoutRate());
  QObject::connect(&engine.meters(), &LiveMeters::meterReadoutRateChanged, &engine,
                   [&engine] { engine.settings().setMeterReadoutRate(engine.meters().meterReadoutRate()); });
  engine.meters().setSpectrogramOverlapFactor(overlapFactor(engine.sessionSettings().spectrogramOverlap()));
  QObject::connect(&engine.sessionSettings(), &SessionSettings::spectrogramOverlapChanged, &engine.meters(), [&engine] {
    engine.meters().setSpectrogramOverlapFactor(overlapFactor(engine.sessionSettings().spectrogramOverlap()));
  });
  engine.meters().setSpectrogramChannelIndex(engine.sessionSettings().spectrogramChannelIndex());
  QObject::connect(
      &engine.sessionSettings(), &SessionSettings::spectrogramChannelIndexChanged, &engine.meters(),
      [&engine] { engine.meters().setSpectrogramChannelIndex(engine.sessionSettings().spectrogramChannelIndex()); });
  QObject::connect(&engine.sessionSettings(), &SessionSettings::fftSizeChanged, &engine.meters(), [&engine] {
    if (engine.meters().setFftSize(engine.sessionSettings().fftSize(), engine.transport().mirrors())) {
      engine.analysis().setOfflineSpectrogramColumns(nullptr);
    }
  });
  QObject::connect(&engine.sessionSettings(), &SessionSettings::fftWindowTypeChanged, &engine.meters(),
                   [&engine] { engine.meters().setWindowType(engine.sessionSettings().fftWindowType()); });
}

}  // namespace

// ---- Start-up -----------------------------------------------------------------------------------

AudioEngine::AudioEngine(AudioEngineOptions options, QObject* parent)
    : QObject(parent),
      _settings(options.settings ? std::move(options.settings) : std::make_shared<SettingsStore>()),
      _sessionSettings(new SessionSettings(*_settings, this)),
      _recentDocuments(new RecentDocumentsTracker(*_settings, this)),
      _devices(new AudioDeviceManager(std::move(options.audioBackends), options.rescanDevices, this)),
      _transport(new Transport(_devices, this)),
      _meters(new LiveMeters(this)),
      _analysis(new FileAnalysis(this)),
      _compare(new CompareModel(this)),
      _dialogue(new DialogueModel(this)),
      _editEngine(new EditEngine(*this, this)),
      _presenter(options.presenter ? std::move(options.presenter) : std::make_shared<LoggingAlertPresenter>()) {
  // Snapshots of earlier runs (a crash leaves them behind) go before any edit can exist.
  EditEngine::purgeStaleSnapshots();
  setWorkGuard(nullptr);
  if (options.manualOutput) _transport->setManualOutput(options.manualOutput);
  connect(_transport, &Transport::liveCurvesBroken, _meters, &LiveMeters::breakLiveLoudnessCurves);
  connectMeasurement(*this);
  // The effect chain's callbacks, the last chain, the key monitor, the quit observer and the
  // purge of stale chain renders join the start-up here, in this order, with their subsystems.
  if (options.registerWithBridge) CorvaneAppBridge::shared().registerEngine(this);
}

AudioEngine::~AudioEngine() {
  // Tasks still running hold only a QPointer: their landings find no engine and do nothing.
  // The models go in the reverse order of their making, before the settings store they were
  // made over: the transport still closes its stream on the device catalog. The edit history
  // goes first, with its snapshot files.
  delete _editEngine;
  delete _dialogue;
  delete _compare;
  delete _analysis;
  delete _meters;
  delete _transport;
  delete _devices;
  delete _recentDocuments;
  delete _sessionSettings;
}

// ---- Properties -------------------------------------------------------------------------------

void AudioEngine::setLoadedFile(OptionalAudioFileModel model) {
  if (model == _loadedFile) return;
  _loadedFile = std::move(model);
  emit loadedFileChanged();
}

void AudioEngine::setPcmBuffer(SharedAudioBuffer buffer) {
  if (buffer == _pcmBuffer) return;
  _pcmBuffer = std::move(buffer);
  emit pcmBufferChanged();
}

void AudioEngine::setLoadError(OptionalText error) {
  if (error == _loadError) return;
  _loadError = std::move(error);
  emit loadErrorChanged();
}

void AudioEngine::setIsLoading(bool loading) {
  _transport->controller().setLoadInProgress(loading);
  if (loading == _isLoading) return;
  _isLoading = loading;
  emit isLoadingChanged();
}

void AudioEngine::setPendingRawImport(OptionalRawImportRequest request) {
  if (request == _pendingRawImport) return;
  _pendingRawImport = std::move(request);
  emit pendingRawImportChanged();
}

void AudioEngine::setAlertPresenter(std::shared_ptr<AlertPresenter> presenter) {
  _presenter = presenter ? std::move(presenter) : std::make_shared<LoggingAlertPresenter>();
}

void AudioEngine::setWorkGuard(std::shared_ptr<SessionWorkGuard> guard) {
  // The edit history belongs to the engine: the guard only borrows it.
  _workGuard = guard ? std::move(guard) : std::shared_ptr<SessionWorkGuard>(std::shared_ptr<void>(), _editEngine);
}

void AudioEngine::setEditedFile(AudioFileModel model, SharedAudioBuffer buffer) {
  setLoadedFile(std::move(model));
  setPcmBuffer(std::move(buffer));
}

int AudioEngine::ask(const SessionAlert& alert) { return _presenter->present(alert); }

void AudioEngine::presentEditFailure(const QString& text) {
  if (_onEditFailure) {
    _onEditFailure(text);
    return;
  }
  ask(SessionAlert{SessionAlert::Style::warning, QStringLiteral("Couldn't apply the edit"), text, {QStringLiteral("OK")}});
}

void AudioEngine::presentInPlaceWriteRefused() {
  const QString advice =
      _settings->corvaneAllowSaveOverwrite()
          ? QStringLiteral("Save As always writes a new file. To replace the loaded file with the edited audio, use "
                           "Save (Ctrl+S) instead, or choose a different name or location.")
          : QStringLiteral("Save As always writes a new file. To save over the loaded file instead, turn on Settings "
                           "\u2192 Editing \u2192 Allow Save to overwrite the original file, then use Save (Ctrl+S). "
                           "Otherwise choose a different name or location.");
  ask(SessionAlert{SessionAlert::Style::warning, QStringLiteral("Cannot overwrite the original file"), advice, {QStringLiteral("OK")}});
}

bool AudioEngine::alertSuppressionChecked() const { return _presenter->suppressionChecked(); }

// ---- Modes ------------------------------------------------------------------------------------

bool AudioEngine::modeMayTurnOn(Mode mode) {
  const bool oneSlot = _compare->slotCount() <= 1;
  switch (mode) {
    case Mode::edit:
    case Mode::chapter:
    case Mode::dialogue:
    case Mode::record:
      return oneSlot;
    case Mode::spectral:
      return oneSlot && _loadedFile.has_value();
    case Mode::compare:
      return confirmLeaveSessionForCompare();
  }
  return false;
}

void AudioEngine::emitModeChanged(Mode mode) {
  switch (mode) {
    case Mode::edit: emit isEditModeChanged(); break;
    case Mode::compare: emit isCompareModeChanged(); break;
    case Mode::chapter: emit isChapterModeChanged(); break;
    case Mode::dialogue: emit isDialogueModeChanged(); break;
    case Mode::spectral: emit isSpectralModeChanged(); break;
    case Mode::record: emit isRecordModeChanged(); break;
  }
}

bool AudioEngine::setMode(Mode mode, bool on) {
  if (_modes[index(mode)] == on) return true;
  if (on) {
    if (!modeMayTurnOn(mode)) return false;
    for (Mode other : kAllModes) {
      if (other != mode && isModeOn(other)) setMode(other, false);
    }
  }
  _modes[index(mode)] = on;
  emitModeChanged(mode);
  switch (mode) {
    case Mode::edit:
      _transport->setEditMode(on);
      break;
    case Mode::spectral:
      // The spectral canvas keeps its own time-frequency selection; a plain time selection
      // left standing would fight it on the way in and mean nothing on the way out.
      _transport->setSelection(std::nullopt);
      break;
    default:
      break;
  }
  return true;
}

// ---- Questions --------------------------------------------------------------------------------

bool AudioEngine::confirmReplaceSession(const SessionReplaceAction& action) {
  const bool quitting = action.kind == SessionReplaceAction::Kind::quit;
  SessionWorkGuard& guard = *_workGuard;

  if (guard.isRecording()) {
    const SessionAlert alert{
        SessionAlert::Style::warning, QStringLiteral("Recording in progress"),
        quitting ? QStringLiteral("A take is still recording. Stop it and quit? The take is kept on disk either way.")
                 : QStringLiteral("A take is still recording. Stop it and open %1? The take is kept on disk either way.")
                       .arg(action.label),
        {quitting ? QStringLiteral("Stop and Quit") : QStringLiteral("Stop and Open"), QStringLiteral("Cancel")}};
    if (ask(alert) != 0) return false;
    guard.stopRecording();
  }

  if (guard.hasUnsavedEdits()) {
    const bool saveInPlace = _settings->corvaneAllowSaveOverwrite() && !guard.inPlaceSaveBlocker();
    QString informative;
    if (!quitting) {
      informative = QStringLiteral("Opening %1 replaces the edited audio. Save your edits first, discard them, or cancel?")
                        .arg(action.label);
    } else if (saveInPlace && _loadedFile) {
      informative = QStringLiteral("The audio has edits that haven't been saved. Save them over %1, or quit and lose them?")
                        .arg(text(_loadedFile->url.filename().string()));
    } else {
      informative = QStringLiteral("The audio has edits that haven't been saved. Save them to a new file, or quit and lose them?");
    }
    const SessionAlert alert{SessionAlert::Style::warning, QStringLiteral("Unsaved Edits"), informative,
                             {guard.sessionPromptSaveTitle(),
                              quitting ? QStringLiteral("Quit Without Saving") : QStringLiteral("Discard Edits"),
                              QStringLiteral("Cancel")}};
    const int answer = ask(alert);
    if (answer == 0) {
      if (saveInPlace) {
        guard.saveEditedBufferInPlace();
      } else {
        guard.exportEditedBuffer();
      }
      // A cancelled or failed save leaves the edits unsaved: the session must stay.
      if (guard.hasUnsavedEdits()) return false;
    } else if (answer != 1) {
      return false;
    }
  }

  if (_loadedFile && liesInside(_loadedFile->url, guard.takesDirectory())) {
    const QString intro = QStringLiteral(
        "The loaded audio is a recorded take in Corvane's takes folder (kept for seven days). ");
    const SessionAlert alert{
        SessionAlert::Style::warning, QStringLiteral("Take not saved"),
        quitting ? intro + QStringLiteral("Save it to a location of your choosing?")
                 : intro + QStringLiteral("Save it before opening %1?").arg(action.label),
        {QStringLiteral("Save Take As…"), quitting ? QStringLiteral("Quit") : QStringLiteral("Open Anyway"),
         QStringLiteral("Cancel")}};
    const int answer = ask(alert);
    if (answer == 0) {
      guard.exportEditedBuffer();
      return !(_loadedFile && liesInside(_loadedFile->url, guard.takesDirectory()));
    }
    return answer == 1;
  }
  return true;
}

bool AudioEngine::confirmLeaveSessionForCompare() {
  SessionWorkGuard& guard = *_workGuard;
  if (!guard.hasUnsavedEdits()) return true;
  const SessionAlert alert{
      SessionAlert::Style::warning, QStringLiteral("Unsaved Edits"),
      QStringLiteral("Comparing files sets the edited audio aside. Save it first, discard your edits, or cancel?"),
      {guard.sessionPromptSaveTitle(), QStringLiteral("Discard"), QStringLiteral("Cancel")}};
  const int answer = ask(alert);
  if (answer == 0) {
    if (_settings->corvaneAllowSaveOverwrite() && !guard.inPlaceSaveBlocker()) {
      guard.saveEditedBufferInPlace();
    } else {
      guard.exportEditedBuffer();
    }
    return !guard.hasUnsavedEdits();
  }
  return answer == 1;
}

void AudioEngine::presentCompareBudgetExceeded() {
  ask(SessionAlert{SessionAlert::Style::warning, QStringLiteral("Not enough memory to add this file to the comparison"),
                   QStringLiteral("The files already loaded for comparison would exceed the memory budget. Remove a "
                                  "file and try again."),
                   {QStringLiteral("OK")}});
}

// ---- Opening ----------------------------------------------------------------------------------

void AudioEngine::openURLs(const QList<QUrl>& urls) {
  if (urls.isEmpty()) return;
  const QString label = urls.size() > 1 ? QStringLiteral("the new files") : QStringLiteral("the new file");
  if (!confirmReplaceSession(SessionReplaceAction::open(label))) return;
  for (const QUrl& url : urls) {
    if (url.isLocalFile()) _recentDocuments->noteDocument(url.toLocalFile());
  }
  if (_compare->slotCount() >= 2) {
    const bool wasElsewhere = _compare->activeSlotIndex() != 0;
    _compare->dropExtraSlots();
    if (wasElsewhere) returnToReferenceSlot();
  }
  setMode(Mode::compare, false);

  const QList<QUrl> extras = urls.mid(1);
  if (_loadedFile && CompareModel::sameFile(localPath(urls.first()), _loadedFile->url)) {
    for (const QUrl& extra : extras) addCompareSlot(extra);
    return;
  }
  loadFile(urls.first(), extras, std::nullopt);
}

void AudioEngine::returnToReferenceSlot() {
  if (_compare->compareSlots().empty()) return;
  const CompareSlot& reference = _compare->compareSlots().front();
  if (reference.buffer == _pcmBuffer) return;
  setupActiveFile(reference.model, reference.buffer);
  applySlotFigures(reference);
}

void AudioEngine::applySlotFigures(const CompareSlot& slot) {
  if (!slot.metrics) return;
  _analysis->applyFileMetrics(*slot.metrics);
  if (slot.metrics->speechHistory) _transport->applySpeechHistory(slot.metrics->speechHistory);
}

void AudioEngine::requestRawReinterpret() {
  if (!_loadedFile || !_loadedFile->rawFormat) return;
  const auto size = regularFileSize(_loadedFile->url);
  if (!size) return;
  setPendingRawImport(RawImportRequest{QUuid::createUuid(), _loadedFile->url, *size, _loadedFile->rawFormat, std::nullopt});
}

// ---- The load ---------------------------------------------------------------------------------

void AudioEngine::loadFile(const QUrl& url, const QList<QUrl>& extras, std::optional<RawPCMFormat> rawFormat) {
  const std::filesystem::path path = localPath(url);
  _transport->haltForLoad();
  setIsLoading(true);
  setLoadError(std::nullopt);
  _dialogue->clearForLoad();
  // The history belongs to the file being replaced.
  _editEngine->reset();
  emit loadStarted(url);
  ++_loadGeneration;
  ++_fileLoadEpoch;
  emit fileLoadEpochChanged();
  if (!rawFormat && _rawFormatMemory) rawFormat = _rawFormatMemory(path);

  const SessionSettings& settings = *_sessionSettings;
  FileLoadRequest request;
  request.url = path;
  request.rawFormat = rawFormat;
  request.options.vadTuning = settings.currentVADTuning();
  request.options.computeSpectrogram = settings.autoComputeSpectrogramOnLoad();
  request.options.spectrogramFftSize = settings.spectrogramFftSize();
  request.options.spectrogramOverlapFactor = overlapFactor(settings.spectrogramOverlap());
  request.options.spectrogramChannelIndex = settings.spectrogramChannelIndex();
  if (_loadStageHook) {
    request.options.afterStage = [hook = _loadStageHook, path](FileLoadStage stage) { hook(path, stage); };
  }
  LoadTicket ticket{_loadGeneration, path, extras, rawFormat, request.options.vadTuning};

  runUserInitiated([engine = QPointer<AudioEngine>(this), request = std::move(request), ticket = std::move(ticket)] {
    LoadTask task(engine, ticket);
    runFileLoad(request, task);
  });
}

void AudioEngine::landLoadFailure(const LoadTicket& ticket, const QString& message) {
  // A failure of a load that a later one has replaced must not raise a sheet over it.
  if (ticket.generation != _loadGeneration) return;
  setIsLoading(false);
  if (const auto size = regularFileSize(ticket.url)) {
    std::optional<QString> note;
    if (ticket.rawFormat) {
      note = message;
    } else if (const auto importNote = rawImportNote(ticket.url)) {
      note = text(*importNote);
    }
    setPendingRawImport(RawImportRequest{QUuid::createUuid(), ticket.url, *size, ticket.rawFormat, note});
  } else {
    setLoadError(message);
  }
  emit landed(Landing::failed);
}

void AudioEngine::landDecodedFile(const LoadTicket& ticket, AudioFileModel model, SharedAudioBuffer buffer) {
  // A slower, earlier load must not land over a later one.
  if (ticket.generation != _loadGeneration) return;
  setIsLoading(false);
  _compare->placeReference(CompareSlot::make(ticket.url, model, buffer, false));
  setupActiveFile(model, buffer);
  for (const QUrl& extra : ticket.extras) addCompareSlot(extra);
  // The chapter subsystem binds to the new file here (landed(decoded)).
  schedulePyramidRebuild();
  emit landed(Landing::decoded);
}

void AudioEngine::setupActiveFile(const AudioFileModel& model, const SharedAudioBuffer& buffer) {
  if (!buffer) return;
  setLoadedFile(model);
  setPcmBuffer(buffer);
  _transport->loadSource(buffer, nullptr);
  _transport->setupRoutings(buffer->channelCount(), _devices->deviceChannels());
  const SessionSettings& settings = *_sessionSettings;
  try {
    _meters->prepareForFile(buffer->channelCount(), buffer->sampleRate(), settings.fftSize(), settings.fftWindowType(),
                            _transport->mirrors());
  } catch (const std::invalid_argument& e) {
    log(QStringLiteral("[LiveMeters] no live spectrum: %1").arg(text(e.what())));
  }
  _transport->setMutedSourceChannels({});
  _analysis->clearForFile();
  _dialogue->clearForFile();
  // The graph is built prepared, not started: nothing renders until play().
  _transport->stopEngine();
  _transport->setupEngine();
}

void AudioEngine::landSpeech(const LoadTicket& ticket, SpeechStageResult speech) {
  if (ticket.generation != _loadGeneration) return;
  if (!speech.failure.empty()) log(QStringLiteral("[SpeechDetection] %1").arg(text(speech.failure)));
  _dialogue->landDetectedHistory(speech.history, ticket.tuning);
  if (speech.history) _transport->applySpeechHistory(speech.history);
  // The dialogue sidecar of the file, read after the detector's regions, comes with the
  // dialogue subsystem (landed(speech)).
  emit landed(Landing::speech);
}

void AudioEngine::landMetrics(const LoadTicket& ticket, SlotMetrics metrics) {
  if (ticket.generation != _loadGeneration) return;
  _analysis->applyFileMetrics(metrics);
  const auto& compareSlots = _compare->compareSlots();
  if (!compareSlots.empty() && CompareModel::sameFile(compareSlots.front().url, ticket.url)) {
    _compare->landMetrics(ticket.url, std::move(metrics));
  }
  emit landed(Landing::metrics);
}

void AudioEngine::landSpectrogram(const LoadTicket& ticket, SpectrogramColumns columns) {
  if (ticket.generation != _loadGeneration) return;
  _analysis->setOfflineSpectrogramColumns(makeSnapshot(std::move(columns)));
  emit landed(Landing::spectrogram);
}

// ---- The pyramid ------------------------------------------------------------------------------

void AudioEngine::schedulePyramidRebuild() {
  if (!_pcmBuffer || _pcmBuffer->frameLength() < kWaveformPyramidMinFrames) return;
  runAtUtilityPriority([engine = QPointer<AudioEngine>(this), buffer = _pcmBuffer, generation = _loadGeneration,
                        epoch = _bufferEpoch] {
    auto levels = buildWaveformPyramid(*buffer);
    if (levels.empty()) return;
    landOnMainThread(engine, [generation, epoch, levels = std::move(levels)](AudioEngine& e) mutable {
      e.landPyramid(generation, epoch, std::move(levels));
    });
  });
}

void AudioEngine::landPyramid(quint64 generation, quint64 bufferEpoch, std::vector<WaveformPyramidLevel> levels) {
  if (generation != _loadGeneration || bufferEpoch != _bufferEpoch || !_loadedFile) return;
  AudioFileModel model = *_loadedFile;
  model.waveformPyramid = std::move(levels);
  setLoadedFile(std::move(model));
  emit landed(Landing::pyramid);
}

// ---- Compare extras ---------------------------------------------------------------------------

void AudioEngine::addCompareSlot(const QUrl& url) {
  const std::filesystem::path path = localPath(url);
  if (!_compare->hasRoomForAnotherSlot() || _compare->indexOf(path)) return;
  CompareTicket ticket{_loadGeneration, path, _rawFormatMemory ? _rawFormatMemory(path) : std::nullopt,
                       _sessionSettings->currentVADTuning()};
  runUserInitiated([engine = QPointer<AudioEngine>(this), ticket = std::move(ticket)] {
    AudioFileModel::Loaded loaded;
    try {
      loaded = AudioFileModel::load(ticket.url, ticket.rawFormat);
    } catch (...) {
      landOnMainThread(engine, [ticket](AudioEngine& e) { e.landCompareFailure(ticket); });
      return;
    }
    CompareSlot slot = CompareSlot::make(ticket.url, std::move(loaded.model), std::move(loaded.buffer), true);
    landOnMainThread(engine, [ticket, slot = std::move(slot)](AudioEngine& e) mutable {
      e.landCompareSlot(ticket, std::move(slot));
    });
  });
}

void AudioEngine::landCompareFailure(const CompareTicket& ticket) {
  // Unreadable files are left out without a word.
  if (ticket.generation != _loadGeneration) return;
  _compare->removeSlotsOf(ticket.url);
}

void AudioEngine::landCompareSlot(const CompareTicket& ticket, CompareSlot slot) {
  // A slot of a session that has since been replaced has no place in the new one.
  if (ticket.generation != _loadGeneration) return;
  // Tested again: other adds may have filled the list or brought the file meanwhile.
  if (!_compare->hasRoomForAnotherSlot() || _compare->indexOf(slot.url)) return;
  if (_compare->residentCompareBytes() + slot.residentBytes() > AudioLoadLimits::maxDecodedBytes()) {
    presentCompareBudgetExceeded();
    return;
  }
  const SharedAudioBuffer buffer = slot.buffer;
  const double duration = slot.model.duration;
  _compare->appendSlot(std::move(slot));
  if (_compare->slotCount() > 1 && !isCompareMode() && !isEditMode() && !isChapterMode() && !isDialogueMode() &&
      !isSpectralMode()) {
    setMode(Mode::compare, true);
  }
  emit landed(Landing::compareSlot);

  runUserInitiated([engine = QPointer<AudioEngine>(this), ticket, buffer, duration] {
    FileLoadOptions options;
    options.vadTuning = ticket.tuning;
    SpeechStageResult speech = detectFileSpeech(*buffer, options);
    if (!canMeasure(*buffer)) return;
    SlotMetrics metrics = computeSlotMetrics(*buffer, duration, speech.history);
    landOnMainThread(engine, [ticket, metrics = std::move(metrics)](AudioEngine& e) mutable {
      e.landCompareMetrics(ticket, std::move(metrics));
    });
  });
}

void AudioEngine::landCompareMetrics(const CompareTicket& ticket, SlotMetrics metrics) {
  if (ticket.generation != _loadGeneration) return;
  if (_compare->landMetrics(ticket.url, std::move(metrics))) emit landed(Landing::compareMetrics);
}

}  // namespace corvane
