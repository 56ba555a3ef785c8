#include "app/ContentView.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QProgressBar>
#include <QScrollArea>
#include <QSplitter>
#include <QTimer>
#include <QVBoxLayout>

#include "app/CommandTable.h"
#include "app/ModeSelectorBar.h"
#include "app/NotificationBus.h"
#include "app/OutputSelectorBar.h"
#include "app/TransportBar.h"
#include "compare/CompareModel.h"
#include "dialogue/DialogueModel.h"
#include "displays/AudioFileWaveformSource.h"
#include "displays/InfoPanel.h"
#include "displays/LoudnessTargetsView.h"
#include "displays/TimeZoomState.h"
#include "displays/WaveformSection.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveMeters.h"
#include "measurement/LoudnessTargets.h"
#include "playback/Transport.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"
#include "session/SessionSettings.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

std::optional<SecondsRange> toSeconds(const std::optional<PlaybackSelection>& selection) {
  if (!selection) return std::nullopt;
  return SecondsRange{selection->lowerSec, selection->upperSec};
}

std::optional<PlaybackSelection> toPlayback(const std::optional<SecondsRange>& selection) {
  if (!selection) return std::nullopt;
  return PlaybackSelection{selection->lower, selection->upper};
}

const std::array<const QString*, 6> kToggleNotices{&notification::toggleWaveform,   &notification::toggleLoudnessCurve,
                                                    &notification::toggleSpectrogram, &notification::toggleFFT,
                                                    &notification::toggleStereoWidth, &notification::toggleChapterRibbon};
const std::array<const QString*, 6> kFocusNotices{&notification::focusWaveform,   &notification::focusLoudnessCurve,
                                                   &notification::focusSpectrogram, &notification::focusFFT,
                                                   &notification::focusStereoWidth, &notification::focusChapters};

}  // namespace

ContentView::ContentView(AudioEngine& engine, CommandTable& commands, NotificationBus& bus,
                         std::shared_ptr<AlertPresenter> alerts, QWidget* parent)
    : QWidget(parent),
      _engine(engine),
      _commands(commands),
      _bus(bus),
      _alerts(std::move(alerts)),
      _timeZoom(std::make_unique<TimeZoomState>()) {
  setObjectName(QStringLiteral("contentView"));
  setAcceptDrops(true);
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);

  auto* topRow = new QHBoxLayout;
  topRow->setContentsMargins(6, 0, 0, 0);
  _modeSelector = new ModeSelectorBar(_engine, this);
  _transportBar = new TransportBar(_engine.transport(), _commands, this);
  topRow->addWidget(_modeSelector);
  topRow->addWidget(_transportBar, 1);
  outer->addLayout(topRow);
  _top = new QVBoxLayout;
  outer->addLayout(_top);

  _split = new QSplitter(Qt::Horizontal, this);
  _split->setChildrenCollapsible(false);
  auto* main = new QWidget(_split);
  auto* mainLayout = new QVBoxLayout(main);
  mainLayout->setContentsMargins(0, 0, 0, 0);
  _emptyStack = new QLabel(QStringLiteral("Open an audio file (Ctrl+O), or drop one here."), main);
  _emptyStack->setObjectName(QStringLiteral("content.empty"));
  _emptyStack->setAlignment(Qt::AlignCenter);
  _emptyStack->setStyleSheet(QStringLiteral("color: palette(mid); font-size: 15px;"));
  mainLayout->addWidget(_emptyStack, 1);
  _stackScroll = new QScrollArea(main);
  _stackScroll->setWidgetResizable(true);
  _stackScroll->setFrameShape(QFrame::NoFrame);
  _stackHost = new QWidget;
  _stack = new QVBoxLayout(_stackHost);
  _stack->setContentsMargins(0, 0, 0, 0);
  _stack->setSpacing(6);
  _stackScroll->setWidget(_stackHost);
  mainLayout->addWidget(_stackScroll, 1);

  _sidebar = new QWidget(_split);
  _sidebar->setObjectName(QStringLiteral("sidebar"));
  auto* sideLayout = new QVBoxLayout(_sidebar);
  sideLayout->setContentsMargins(0, 0, 0, 0);
  auto* infoScroll = new QScrollArea(_sidebar);
  infoScroll->setWidgetResizable(true);
  infoScroll->setFrameShape(QFrame::NoFrame);
  _info = new InfoPanel;
  infoScroll->setWidget(_info);
  sideLayout->addWidget(infoScroll, 1);
  _outputSelector = new OutputSelectorBar(_engine.deviceManager(), _bus, _sidebar);
  sideLayout->addWidget(_outputSelector);
  _sidebar->setMinimumWidth(kSidebarWidth);
  _split->addWidget(main);
  _split->addWidget(_sidebar);
  _split->setStretchFactor(0, 1);
  _split->setStretchFactor(1, 0);
  outer->addWidget(_split, 1);

  _waveform = new WaveformSection(_timeZoom.get(), _stackHost);
  addPanel(ContentPanel::waveform, _waveform);

  _overlay = new QWidget(this);
  _overlay->setObjectName(QStringLiteral("loadingOverlay"));
  _overlay->setAttribute(Qt::WA_StyledBackground);
  _overlay->setStyleSheet(QStringLiteral("#loadingOverlay { background: rgba(10, 12, 16, 170); }"));
  auto* overlayLayout = new QVBoxLayout(_overlay);
  overlayLayout->addStretch(1);
  auto* loading = new QLabel(QStringLiteral("Loading\u2026"), _overlay);
  loading->setAlignment(Qt::AlignCenter);
  loading->setStyleSheet(QStringLiteral("color: white; font-size: 16px;"));
  auto* busy = new QProgressBar(_overlay);
  busy->setRange(0, 0);
  busy->setMaximumWidth(240);
  overlayLayout->addWidget(loading);
  overlayLayout->addWidget(busy, 0, Qt::AlignHCenter);
  overlayLayout->addStretch(1);
  _overlay->hide();

  setInfoPanelShown(_engine.settings().corvaneShowInfoPanel());
  _info->setRollAnimated(_engine.sessionSettings().meterRollAnimation());
  _info->setTextScale(_engine.settings().corvaneTextScale());

  // ---- The session's file ----
  connect(&_engine, &AudioEngine::loadedFileChanged, this, &ContentView::onLoadedFileChanged);
  connect(&_engine, &AudioEngine::isLoadingChanged, this, [this] {
    _overlay->setVisible(_engine.isLoading());
    if (_engine.isLoading()) {
      placeOverlay();
      _overlay->raise();
    }
  });
  // The alerts wait until the landing that raised them has returned.
  connect(&_engine, &AudioEngine::loadErrorChanged, this, &ContentView::onLoadErrorChanged, Qt::QueuedConnection);
  connect(&_engine, &AudioEngine::pendingRawImportChanged, this, &ContentView::onPendingRawImportChanged,
          Qt::QueuedConnection);

  // ---- Transport and waveform ----
  Transport& transport = _engine.transport();
  WaveformView* view = _waveform->view();
  connect(&transport, &Transport::currentTimeChanged, view, [view, &transport] { view->setCurrentTime(transport.currentTime()); });
  connect(&transport, &Transport::selectionChanged, this, &ContentView::onSelectionFromTransport);
  connect(view, &WaveformView::selectionChanged, this, [this, view] {
    _engine.transport().setSelection(toPlayback(view->selection()));
  });
  connect(view, &WaveformView::seekRequested, this, [this](double seconds) { _engine.transport().placePlayhead(seconds); });
  connect(view, &WaveformView::mutedChannelsChanged, this, [this, view] { setMutedWaveformChannels(view->mutedChannels()); });
  connect(&_engine.dialogue(), &DialogueModel::fileSpeechRangesChanged, this, &ContentView::refreshSpeechAndRegions);
  connect(&_engine.dialogue(), &DialogueModel::dialogueRegionsChanged, this, &ContentView::refreshSpeechAndRegions);
  connect(&_engine, &AudioEngine::isDialogueModeChanged, this, &ContentView::refreshSpeechAndRegions);

  // ---- The info panel ----
  connect(&_engine, &AudioEngine::landed, this, &ContentView::scheduleInfoRefresh);
  connect(&transport, &Transport::isPlayingChanged, this, &ContentView::scheduleInfoRefresh);
  connect(&_engine.meters(), &LiveMeters::channelRMSChanged, this, &ContentView::scheduleInfoRefresh);
  connect(&_engine.analysis(), &FileAnalysis::selectionAnalysisChanged, this, &ContentView::scheduleInfoRefresh);
  connect(&_engine.analysis(), &FileAnalysis::isAnalysingChanged, this, &ContentView::scheduleInfoRefresh);
  connect(&_engine.analysis(), &FileAnalysis::fileSamplePeakDBChanged, this, &ContentView::scheduleInfoRefresh);
  connect(&_engine.compare(), &CompareModel::compareSlotsChanged, this, &ContentView::scheduleInfoRefresh);
  connect(&_engine.compare(), &CompareModel::activeSlotIndexChanged, this, &ContentView::scheduleInfoRefresh);
  connect(_info, &InfoPanel::monitorModeChosen, this, &ContentView::setMonitorMode);
  connect(_info, &InfoPanel::loudnessDisplayModeChosen, this, &ContentView::setLoudnessDisplayMode);
  connect(_info, &InfoPanel::channelStatsRequested, this, [this] { _bus.post(notification::showChannelStatsPanel); });
  connect(_info->targetsView(), &LoudnessTargetsView::modeChosen, this, [this](LoudnessTargetMode mode) {
    LoudnessTargets& targets = _engine.analysis().targets();
    LoudnessTargetSelection selection = targets.loudnessTargetSelection();
    selection.setMode(mode);
    targets.setLoudnessTargetSelection(selection);
  });
  // The live meters' read-outs (the final figures of a pass stay in them after a stop) and the
  // targets model's choices.
  const LiveMeters* meters = &_engine.meters();
  for (auto signal : {&LiveMeters::outputChannelRMSChanged, &LiveMeters::momentaryLUFSChanged, &LiveMeters::shortTermLUFSChanged,
                      &LiveMeters::integratedLUFSChanged, &LiveMeters::loudnessRangeChanged, &LiveMeters::truePeakDBChanged,
                      &LiveMeters::speechGatedLUFSChanged, &LiveMeters::speechPercentageChanged,
                      &LiveMeters::speechGatedNoiseFloorDBRMSChanged, &LiveMeters::liveMaxShortTermLUFSChanged}) {
    connect(meters, signal, this, &ContentView::scheduleInfoRefresh);
  }
  const LoudnessTargets* targets = &_engine.analysis().targets();
  for (auto signal : {&LoudnessTargets::loudnessTargetSelectionChanged, &LoudnessTargets::loudnessDisplayModeChanged,
                      &LoudnessTargets::loudnessTargetMatchChanged}) {
    connect(targets, signal, this, &ContentView::scheduleInfoRefresh);
  }

  // ---- Notices of the View menu ----
  _bus.observe(notification::clearSelection, this, [this](const QVariant&) { _engine.transport().setSelection(std::nullopt); });
  for (ContentPanel panel : kAllContentPanels) {
    const auto index = static_cast<std::size_t>(panel);
    _bus.observe(*kToggleNotices[index], this, [this, panel](const QVariant&) { togglePanel(panel); });
    _bus.observe(*kFocusNotices[index], this, [this, panel](const QVariant&) { focusPanel(panel); });
  }
  for (auto signal : {&AudioEngine::isEditModeChanged, &AudioEngine::isCompareModeChanged, &AudioEngine::isChapterModeChanged,
                      &AudioEngine::isDialogueModeChanged, &AudioEngine::isSpectralModeChanged, &AudioEngine::isRecordModeChanged}) {
    connect(&_engine, signal, this, &ContentView::refreshModeToolbars);
  }

  onLoadedFileChanged();
  refreshPanels();
  refreshInfoPanel();
}

ContentView::~ContentView() = default;

// ---- Panels ---------------------------------------------------------------------------------

void ContentView::setPanels(const PanelLayout& panels) {
  if (panels == _panels) return;
  _panels = panels;
  refreshPanels();
  emit panelsChanged();
}

void ContentView::togglePanel(ContentPanel panel) {
  PanelLayout next = _panels;
  next.toggle(panel);
  setPanels(next);
}

void ContentView::focusPanel(ContentPanel panel) {
  PanelLayout next = _panels;
  next.focus(panel);
  setPanels(next);
}

void ContentView::addPanel(ContentPanel panel, QWidget* widget) {
  widget->setParent(_stackHost);
  // The stack keeps the panels' order whatever order they join in.
  int at = 0;
  for (ContentPanel before : kAllContentPanels) {
    if (before == panel) break;
    if (_panelWidgets[static_cast<std::size_t>(before)]) ++at;
  }
  _stack->insertWidget(at, widget, panel == ContentPanel::waveform ? 1 : 0);
  _panelWidgets[static_cast<std::size_t>(panel)] = widget;
  refreshPanels();
}

bool ContentView::hasPanel(ContentPanel panel) const { return !_panelWidgets[static_cast<std::size_t>(panel)].isNull(); }

void ContentView::refreshPanels() {
  const bool hasFile = _engine.loadedFile().has_value();
  _emptyStack->setVisible(!hasFile);
  _stackScroll->setVisible(hasFile);
  for (ContentPanel panel : kAllContentPanels) {
    if (QWidget* widget = _panelWidgets[static_cast<std::size_t>(panel)]) widget->setVisible(_panels.isShown(panel));
  }
  const int channels = _engine.loadedFile() ? _engine.loadedFile()->channelCount : 1;
  _waveform->setMinimumHeight(static_cast<int>(waveformSectionHeight(channels, 0.0)));
}

void ContentView::addModeToolbar(int modeIndex, QWidget* toolbar) {
  toolbar->setParent(this);
  _top->addWidget(toolbar);
  _modeToolbars[modeIndex] = toolbar;
  refreshModeToolbars();
}

void ContentView::refreshModeToolbars() {
  for (auto& [mode, toolbar] : _modeToolbars) toolbar->setVisible(_engine.isModeOn(static_cast<AudioEngine::Mode>(mode)));
}

bool ContentView::isInfoPanelShown() const { return !_sidebar->isHidden(); }

void ContentView::setInfoPanelShown(bool shown) {
  _sidebar->setVisible(shown);
  if (_engine.settings().corvaneShowInfoPanel() != shown) _engine.settings().setCorvaneShowInfoPanel(shown);
}

// ---- Reactions to the session ---------------------------------------------------------------

void ContentView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (_seededFromDefaults) return;
  _seededFromDefaults = true;
  const SessionSettings& settings = _engine.sessionSettings();
  PanelLayout panels = _panels;
  panels.setShown(ContentPanel::waveform, settings.defaultShowWaveform());
  panels.setShown(ContentPanel::loudnessCurve, settings.defaultShowLoudnessCurve());
  panels.setShown(ContentPanel::spectrogram, settings.defaultShowSpectrogram());
  panels.setShown(ContentPanel::fft, settings.defaultShowFFT());
  panels.setShown(ContentPanel::stereoWidth, settings.defaultShowStereoWidth());
  setPanels(panels);
}

void ContentView::onLoadedFileChanged() {
  const auto& loaded = _engine.loadedFile();
  _file = loaded ? std::make_shared<const AudioFileModel>(*loaded) : nullptr;
  _waveform->setSource(_file ? std::make_shared<AudioFileWaveformSource>(_file, ++_sourceRevision) : nullptr);
  const int channels = _file ? _file->channelCount : 0;
  const bool newLoad = _engine.fileLoadEpoch() != _lastZoomResetEpoch;
  // A new picture of the same file (the pyramid, an edit) keeps what the user set on it.
  if (newLoad || channels != _lastChannelCount) {
    setMutedWaveformChannels({});
    std::set<int> all;
    for (int c = 0; c < channels; ++c) all.insert(c);
    setEnabledFFTChannels(std::move(all));
    _engine.sessionSettings().setSpectrogramChannelIndex(channels == 1 ? std::optional<int>(0) : std::nullopt);
  }
  if (newLoad) {
    _lastZoomResetEpoch = _engine.fileLoadEpoch();
    _timeZoom->reset();
  }
  // The session starts a rebuilt buffer with nothing muted, after it has published the new
  // picture; the channels the user muted on this file stay muted in what plays, as the
  // waveform shows them. So they go back once the session's step has run.
  QTimer::singleShot(0, this, [this] {
    _engine.transport().setMutedSourceChannels(QList<int>(_mutedWaveformChannels.begin(), _mutedWaveformChannels.end()));
  });
  _lastChannelCount = channels;
  _waveform->view()->setCurrentTime(_engine.transport().currentTime());
  onSelectionFromTransport();
  refreshSpeechAndRegions();
  refreshPanels();
  scheduleInfoRefresh();
}

void ContentView::setMutedWaveformChannels(std::set<int> channels) {
  if (channels == _mutedWaveformChannels && _waveform->view()->mutedChannels() == channels) return;
  _mutedWaveformChannels = channels;
  _waveform->view()->setMutedChannels(channels);
  _engine.transport().setMutedSourceChannels(QList<int>(channels.begin(), channels.end()));
}

void ContentView::setEnabledFFTChannels(std::set<int> channels) {
  _enabledFFTChannels = std::move(channels);
  // The spectrum's channel choice drives the spectrogram: one channel enabled, that channel.
  _engine.sessionSettings().setSpectrogramChannelIndex(_enabledFFTChannels.size() == 1
                                                           ? std::optional<int>(*_enabledFFTChannels.begin())
                                                           : std::nullopt);
}

void ContentView::onSelectionFromTransport() { _waveform->view()->setSelection(toSeconds(_engine.transport().selection())); }

void ContentView::refreshSpeechAndRegions() {
  const DialogueModel& dialogue = _engine.dialogue();
  std::vector<SecondsRange> ranges;
  for (const SpeechRange& range : dialogue.fileSpeechRanges()) ranges.push_back({range.startSec, range.endSec});
  _waveform->setSpeechRanges(std::move(ranges), _engine.isDialogueMode());
  _waveform->view()->setDialogueRegions(dialogue.dialogueRegions(), _engine.isDialogueMode());
}

void ContentView::onLoadErrorChanged() {
  const auto error = _engine.loadError();
  if (!error) return;
  SessionAlert alert;
  alert.style = SessionAlert::Style::warning;
  alert.messageText = QStringLiteral("Could not open file");
  alert.informativeText = error->isEmpty() ? QStringLiteral("Unknown error") : *error;
  alert.buttons = {QStringLiteral("OK")};
  _alerts->present(alert);
  _engine.setLoadError(std::nullopt);
}

void ContentView::setRawImportPresenter(std::function<void(const RawImportRequest&)> presenter) {
  _rawImportPresenter = std::move(presenter);
}

void ContentView::onPendingRawImportChanged() {
  const auto request = _engine.pendingRawImport();
  if (!request) return;
  if (_rawImportPresenter) {
    _rawImportPresenter(*request);
    return;
  }
  SessionAlert alert;
  alert.messageText = QStringLiteral("Could not open file");
  alert.informativeText = request->note.value_or(
      QStringLiteral("Corvane could not read \u201C%1\u201D as audio.").arg(QString::fromStdString(request->url.filename().string())));
  alert.buttons = {QStringLiteral("OK")};
  _alerts->present(alert);
  _engine.setPendingRawImport(std::nullopt);
}

// ---- The info panel ---------------------------------------------------------------------------

void ContentView::setMonitorMode(MonitorMode mode) {
  if (mode == _monitorMode) return;
  _monitorMode = mode;
  scheduleInfoRefresh();
}

LoudnessDisplayMode ContentView::loudnessDisplayMode() const { return _engine.analysis().targets().loudnessDisplayMode(); }

void ContentView::setLoudnessDisplayMode(LoudnessDisplayMode mode) { _engine.analysis().targets().setLoudnessDisplayMode(mode); }

InfoPanelReadings ContentView::currentReadings() const {
  InfoPanelReadings r;
  r.file = _file;
  const Transport& transport = _engine.transport();
  const LiveMeters& meters = _engine.meters();
  r.channelRMS = meters.channelRMS();
  r.outputChannelRMS = meters.outputChannelRMS();
  r.outputChannelCount = meters.outputChannelCount();
  r.isPlaying = transport.isPlaying();
  r.monitorMode = _monitorMode;
  r.momentaryLUFS = meters.momentaryLUFS();
  r.shortTermLUFS = meters.shortTermLUFS();
  r.integratedLUFS = meters.integratedLUFS();
  r.loudnessRange = meters.loudnessRange();
  r.truePeakDB = meters.truePeakDB();
  r.speechGatedLUFS = meters.speechGatedLUFS();
  r.speechPercentage = meters.speechPercentage();
  r.speechGatedNoiseFloorDBRMS = meters.speechGatedNoiseFloorDBRMS();
  r.maxShortTermLUFS = meters.liveMaxShortTermLUFS();
  r.samplePeakDB = _engine.analysis().fileSamplePeakDB();
  r.selectionAnalysis = _engine.analysis().selectionAnalysis();
  r.fileMetrics = _engine.compare().activeSlotMetrics();
  r.isAnalysing = _engine.analysis().isAnalysing() || (_file && !r.fileMetrics);
  r.loudnessDisplayMode = loudnessDisplayMode();
  return r;
}

void ContentView::scheduleInfoRefresh() {
  if (_infoRefreshPending) return;
  _infoRefreshPending = true;
  // Several figures land together (a tick, a landing): one refresh for all of them.
  QTimer::singleShot(0, this, [this] {
    _infoRefreshPending = false;
    refreshInfoPanel();
  });
}

void ContentView::refreshInfoPanel() {
  const InfoPanelReadings readings = currentReadings();
  _info->setReadings(readings);
  // The targets are judged by the session's targets model, from the same readings.
  const LoudnessTargets& model = _engine.analysis().targets();
  LoudnessTargetsView* targets = _info->targetsView();
  targets->setMode(model.loudnessTargetSelection().mode());
  targets->setTargets(model.loudnessTargetSelection().activeTargets());
  targets->setMeasurement(model.measurement());
}

// ---- Drops and geometry -----------------------------------------------------------------------

bool ContentView::dropFiles(const QList<QUrl>& urls) {
  QList<QUrl> files;
  for (const QUrl& url : urls) {
    if (url.isLocalFile()) files << url;
  }
  if (files.isEmpty()) return false;
  _engine.openURLs(files);
  return true;
}

void ContentView::dragEnterEvent(QDragEnterEvent* event) {
  for (const QUrl& url : event->mimeData()->urls()) {
    if (url.isLocalFile()) {
      event->acceptProposedAction();
      return;
    }
  }
  event->ignore();
}

void ContentView::dropEvent(QDropEvent* event) {
  if (dropFiles(event->mimeData()->urls())) {
    event->acceptProposedAction();
  } else {
    event->ignore();
  }
}

void ContentView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  placeOverlay();
}

void ContentView::placeOverlay() { _overlay->setGeometry(_split->geometry()); }

}  // namespace corvane
