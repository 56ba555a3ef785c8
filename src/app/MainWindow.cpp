#include "app/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QMessageBox>
#include <QMenuBar>

#include "app/AppCommands.h"
#include "app/CommandTable.h"
#include "app/ContentView.h"
#include "app/EditMenuCommands.h"
#include "app/EditToolbar.h"
#include "app/FilePanels.h"
#include "app/NotificationBus.h"
#include "app/OutputPanel.h"
#include "app/PresetBar.h"
#include "app/SaveCommands.h"
#include "compare/CompareModel.h"
#include "displays/ChannelStatsView.h"
#include "measurement/FileAnalysis.h"
#include "playback/RoutingPresets.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"
#include "session/SessionTypes.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {
constexpr const char* kChannelStatsFrameKey = "windowFrame.CorvaneChannelStatsPanel.v2";
}  // namespace

MainWindow::MainWindow(AudioEngine& engine, NotificationBus& bus, std::shared_ptr<AlertPresenter> alerts, QWidget* parent)
    : QMainWindow(parent), _engine(engine), _bus(bus), _alerts(std::move(alerts)) {
  setObjectName(QStringLiteral("corvane-main"));
  _commands = new CommandTable([this] { return _engine.loadedFile().has_value(); }, this);
  // The commands come first: the content's tool buttons share their actions.
  registerAppCommands(*_commands, _engine, _bus,
                      {.quit = [this] { close(); },
                       .isInfoPanelShown = [this] { return _content && _content->isInfoPanelShown(); },
                       .setInfoPanelShown = [this](bool on) {
                         if (_content) _content->setInfoPanelShown(on);
                       },
                       .about = [this] { showAbout(); }});
  _editCommands = std::make_unique<EditCommands>(_engine);
  registerEditCommands(*_commands, _engine, *_editCommands);
  _content = new ContentView(_engine, *_commands, _bus, _alerts, this);
  setCentralWidget(_content);
  _content->addModeToolbar(static_cast<int>(AudioEngine::Mode::edit), new EditToolbar(_engine, *_editCommands, *_commands));
  _commands->refresh();  // the info panel's check mark, now that the panel exists
  addToolBar((new SaveCommands(*_commands, _engine, this))->toolbar());
  _commands->buildMenus(menuBar());
  _presets = std::make_unique<UserPresetStore>(_engine.settings());

  _bus.observe(notification::openFile, this, [this](const QVariant&) { openFilePanel(this, _engine); });
  _bus.observe(notification::addFilesToCompare, this, [this](const QVariant&) { addFilesToComparePanel(this, _engine); });
  _bus.observe(notification::showOutputPanel, this, [this](const QVariant&) { showOutputPanel(); });
  _bus.observe(notification::showChannelStatsPanel, this, [this](const QVariant&) { showChannelStats(); });

  connect(&_engine, &AudioEngine::loadedFileChanged, this, &MainWindow::refreshTitle);
  refreshTitle();
  resize(kDefaultWidth, kDefaultHeight);
}

MainWindow::~MainWindow() {
  delete _outputPanel.data();
  delete _channelStats.data();
}

QString MainWindow::titleFor(const QString& fileName) {
  if (fileName.isEmpty()) return QStringLiteral("Corvane");
  return QStringLiteral("%1 \u2014 Corvane").arg(fileName);
}

void MainWindow::refreshTitle() {
  const auto& file = _engine.loadedFile();
  setWindowTitle(titleFor(file ? QString::fromStdString(file->url.filename().string()) : QString()));
}

OutputPanel* MainWindow::showOutputPanel() {
  if (!_outputPanel) {
    // A window of its own that stays over the main window.
    _outputPanel = new OutputPanel(_engine, *_presets, std::make_shared<QtUserPresetUI>(this), this);
    _outputPanel->setWindowFlag(Qt::Window);
    _outputPanel->setWindowTitle(QStringLiteral("Output"));
  }
  _outputPanel->show();
  _outputPanel->raise();
  _outputPanel->activateWindow();
  return _outputPanel;
}

ChannelStatsView* MainWindow::showChannelStats() {
  if (!_channelStats) {
    _channelStats = new ChannelStatsView(this);
    _channelStats->setObjectName(QStringLiteral("CorvaneChannelStatsPanel"));
    _channelStats->setWindowFlag(Qt::Tool);
    _channelStats->setWindowTitle(QStringLiteral("Channel Statistics"));
    // The panel comes back where the user left it.
    const QString frame = _engine.settings().readString(kChannelStatsFrameKey, QString());
    if (!frame.isEmpty()) _channelStats->restoreGeometry(QByteArray::fromBase64(frame.toLatin1()));
    _channelStats->installEventFilter(this);
    // The figures land one by one; the table follows each of them.
    connect(&_engine, &AudioEngine::landed, _channelStats, [this] { refreshChannelStats(); });
    connect(&_engine, &AudioEngine::loadedFileChanged, _channelStats, [this] { refreshChannelStats(); });
    connect(&_engine.analysis(), &FileAnalysis::selectionAnalysisChanged, _channelStats, [this] { refreshChannelStats(); });
    connect(&_engine.analysis(), &FileAnalysis::isAnalysingChanged, _channelStats, [this] { refreshChannelStats(); });
    connect(&_engine.compare(), &CompareModel::activeSlotIndexChanged, _channelStats, [this] { refreshChannelStats(); });
  }
  refreshChannelStats();
  _channelStats->show();
  _channelStats->raise();
  return _channelStats;
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == _channelStats && event->type() == QEvent::Hide) {
    _engine.settings().writeString(kChannelStatsFrameKey, QString::fromLatin1(_channelStats->saveGeometry().toBase64()));
  }
  return QMainWindow::eventFilter(watched, event);
}

void MainWindow::refreshChannelStats() {
  if (!_channelStats) return;
  const InfoPanelReadings readings = _content->currentReadings();
  _channelStats->setData(readings.file, readings.fileMetrics, readings.selectionAnalysis, readings.isAnalysing);
}

void MainWindow::showAbout() {
  QMessageBox::about(this, QStringLiteral("About Corvane"),
                     QStringLiteral("<b>Corvane %1</b><p>Audio inspection and repair: loudness to ITU-R BS.1770 and EBU R128, "
                                    "true peak, dynamics and speech-gated loudness, playback through a routable channel "
                                    "matrix.</p><p>Free software under the GNU General Public License, version 3 or later.</p>")
                         .arg(QApplication::applicationVersion()));
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (!_engine.confirmReplaceSession(SessionReplaceAction::quit())) {
    event->ignore();
    return;
  }
  if (_outputPanel) _outputPanel->close();
  if (_channelStats) _channelStats->close();
  event->accept();
}

}  // namespace corvane
