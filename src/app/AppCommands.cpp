#include "app/AppCommands.h"

#include <QMenu>
#include <algorithm>
#include <array>

#include "app/CommandTable.h"
#include "app/NotificationBus.h"
#include "playback/PlaybackRates.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"
#include "session/RecentDocumentsTracker.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

QKeySequence keys(QKeyCombination key) { return QKeySequence(key); }

// The next speed of the list in `direction` (+1 faster, −1 slower); the ends hold.
double steppedRate(double rate, int direction) {
  const auto& choices = kPlaybackRateChoices;
  if (direction > 0) {
    for (double choice : choices) {
      if (choice > rate + 1e-9) return choice;
    }
    return choices.back();
  }
  for (auto it = choices.rbegin(); it != choices.rend(); ++it) {
    if (*it < rate - 1e-9) return *it;
  }
  return choices.front();
}

}  // namespace

void registerAppCommands(CommandTable& commands, AudioEngine& engine, NotificationBus& bus, AppCommandHooks hooks) {
  using namespace app_menu;
  commands.declareMenu(file, QStringLiteral("&File"), {QStringLiteral("open"), QStringLiteral("raw"), QStringLiteral("quit")});
  commands.declareMenu(edit, QStringLiteral("&Edit"), editGroups);
  commands.declareMenu(view, QStringLiteral("&View"),
                       {QStringLiteral("transport"), QStringLiteral("rate"), QStringLiteral("skip"), QStringLiteral("loop"),
                        QStringLiteral("selection"), QStringLiteral("panels"), QStringLiteral("focus")});
  commands.declareMenu(window, QStringLiteral("&Window"), {QStringLiteral("panels")});
  commands.declareMenu(help, QStringLiteral("&Help"), {QStringLiteral("about")});

  Transport& transport = engine.transport();
  AudioEngine* session = &engine;
  NotificationBus* notices = &bus;

  // ---- File ----
  commands.add({.id = QStringLiteral("file.open"),
                .title = QStringLiteral("Open Audio File\u2026"),
                .shortcut = keys(Qt::CTRL | Qt::Key_O),
                .menu = file,
                .group = QStringLiteral("open"),
                .trigger = [notices] { notices->post(notification::openFile); }});
  commands.add({.id = QStringLiteral("file.openRecent"),
                .title = QStringLiteral("Open Recent"),
                .menu = file,
                .group = QStringLiteral("open"),
                .fillSubmenu = [session](QMenu* menu) {
                  RecentDocumentsTracker& recent = session->recentDocuments();
                  for (const QString& path : recent.paths()) {
                    QAction* item = menu->addAction(path);
                    QObject::connect(item, &QAction::triggered, session,
                                     [session, path] { session->openURLs({QUrl::fromLocalFile(path)}); });
                  }
                  menu->addSeparator();
                  QAction* clear = menu->addAction(QStringLiteral("Clear Menu"));
                  clear->setEnabled(!recent.paths().isEmpty());
                  QObject::connect(clear, &QAction::triggered, session, [session] { session->recentDocuments().clear(); });
                }});
  commands.add({.id = QStringLiteral("file.addToCompare"),
                .title = QStringLiteral("Add Files to Compare\u2026"),
                .shortcut = keys(Qt::SHIFT | Qt::CTRL | Qt::Key_O),
                .menu = file,
                .group = QStringLiteral("open"),
                .needsFile = true,
                .trigger = [notices] { notices->post(notification::addFilesToCompare); }});
  commands.add({.id = QStringLiteral("file.reinterpretRaw"),
                .title = QStringLiteral("Reinterpret Raw Format\u2026"),
                .menu = file,
                .group = QStringLiteral("raw"),
                .needsFile = true,
                .isEnabled = [session] { return session->loadedFile() && session->loadedFile()->rawFormat.has_value(); },
                .trigger = [session] { session->requestRawReinterpret(); }});
  if (hooks.quit) {
    commands.add({.id = QStringLiteral("file.quit"),
                  .title = QStringLiteral("Quit"),
                  .shortcut = keys(Qt::CTRL | Qt::Key_Q),
                  .menu = file,
                  .group = QStringLiteral("quit"),
                  .trigger = hooks.quit});
  }

  // ---- View: transport ----
  const auto idle = [session] { return !session->isLoading(); };
  commands.add({.id = QStringLiteral("view.playPause"),
                .title = QStringLiteral("Play / Pause"),
                .shortcut = keys(QKeyCombination(Qt::Key_Space)),
                .menu = view,
                .group = QStringLiteral("transport"),
                .needsFile = true,
                .isEnabled = idle,
                .trigger = [&transport] { transport.togglePlayPause(); }});
  commands.add({.id = QStringLiteral("view.stop"),
                .title = QStringLiteral("Stop"),
                .shortcut = keys(Qt::CTRL | Qt::Key_Period),
                .menu = view,
                .group = QStringLiteral("transport"),
                .needsFile = true,
                .trigger = [&transport] { transport.stop(); }});
  commands.add({.id = QStringLiteral("view.rateDown"),
                .title = QStringLiteral("Decrease Playback Rate"),
                .shortcut = keys(QKeyCombination(Qt::Key_BracketLeft)),
                .menu = view,
                .group = QStringLiteral("rate"),
                .isEnabled = [&transport] { return transport.playbackRate() > kMinPlaybackRate + 1e-9; },
                .trigger = [&transport] { transport.setPlaybackRate(steppedRate(transport.playbackRate(), -1)); }});
  commands.add({.id = QStringLiteral("view.rateUp"),
                .title = QStringLiteral("Increase Playback Rate"),
                .shortcut = keys(QKeyCombination(Qt::Key_BracketRight)),
                .menu = view,
                .group = QStringLiteral("rate"),
                .isEnabled = [&transport] { return transport.playbackRate() < kMaxPlaybackRate - 1e-9; },
                .trigger = [&transport] { transport.setPlaybackRate(steppedRate(transport.playbackRate(), +1)); }});
  commands.add({.id = QStringLiteral("view.rateReset"),
                .title = QStringLiteral("Reset Playback Rate"),
                .shortcut = keys(QKeyCombination(Qt::Key_Backslash)),
                .menu = view,
                .group = QStringLiteral("rate"),
                .trigger = [&transport] { transport.setPlaybackRate(1.0); }});
  struct Skip {
    const char* id;
    const char* title;
    QKeyCombination key;
    double seconds;
  };
  for (const Skip& skip : {Skip{"view.skipBack5", "Skip Back 5 Seconds", QKeyCombination(Qt::Key_Left), -5.0},
                           Skip{"view.skipForward5", "Skip Forward 5 Seconds", QKeyCombination(Qt::Key_Right), 5.0},
                           Skip{"view.skipBack1", "Skip Back 1 Second", Qt::SHIFT | Qt::Key_Left, -1.0},
                           Skip{"view.skipForward1", "Skip Forward 1 Second", Qt::SHIFT | Qt::Key_Right, 1.0}}) {
    const double seconds = skip.seconds;
    commands.add({.id = QString::fromLatin1(skip.id),
                  .title = QString::fromLatin1(skip.title),
                  .shortcut = keys(skip.key),
                  .menu = view,
                  .group = QStringLiteral("skip"),
                  .needsFile = true,
                  .trigger = [&transport, seconds] { transport.skip(seconds); }});
  }
  commands.add({.id = QStringLiteral("view.goToStart"),
                .title = QStringLiteral("Go to Start"),
                .shortcut = keys(Qt::CTRL | Qt::Key_Left),
                .menu = view,
                .group = QStringLiteral("skip"),
                .needsFile = true,
                .trigger = [&transport] { transport.placePlayhead(0.0); }});
  commands.add({.id = QStringLiteral("view.toggleLoop"),
                .title = QStringLiteral("Toggle Loop"),
                .shortcut = keys(QKeyCombination(Qt::Key_L)),
                .menu = view,
                .group = QStringLiteral("loop"),
                .isChecked = [&transport] { return transport.isLooping(); },
                .trigger = [&transport] { transport.setIsLooping(!transport.isLooping()); }});

  // ---- View: selection ----
  commands.add({.id = QStringLiteral("view.clearSelection"),
                .title = QStringLiteral("Clear Selection"),
                .menu = view,
                .group = QStringLiteral("selection"),
                .needsFile = true,
                .isEnabled = [&transport] { return transport.selection().has_value(); },
                .trigger = [notices] { notices->post(notification::clearSelection); }});
  commands.add({.id = QStringLiteral("view.selectAll"),
                .title = QStringLiteral("Select All"),
                .shortcut = keys(Qt::CTRL | Qt::Key_A),
                .menu = view,
                .group = QStringLiteral("selection"),
                .needsFile = true,
                .trigger = [&transport] { transport.setSelection(PlaybackSelection{0.0, transport.duration()}); }});

  // ---- View: panels ----
  auto infoShown = hooks.isInfoPanelShown ? hooks.isInfoPanelShown
                                          : std::function<bool()>([session] { return session->settings().corvaneShowInfoPanel(); });
  auto setInfoShown = hooks.setInfoPanelShown
                          ? hooks.setInfoPanelShown
                          : std::function<void(bool)>([session](bool on) { session->settings().setCorvaneShowInfoPanel(on); });
  commands.add({.id = QStringLiteral("view.infoPanel"),
                .title = QStringLiteral("Show Info Panel"),
                .shortcut = keys(Qt::CTRL | Qt::Key_I),
                .menu = view,
                .group = QStringLiteral("panels"),
                .isChecked = infoShown,
                .trigger = [infoShown, setInfoShown] { setInfoShown(!infoShown()); }});
  struct PanelCommand {
    const char* name;
    const char* title;
    const QString* toggle;
    const QString* focus;
    const char* focusTitle;
  };
  const std::array<PanelCommand, 6> panels{{
      {"Waveform", "Waveform", &notification::toggleWaveform, &notification::focusWaveform, "Waveform"},
      {"LoudnessCurve", "Loudness Curve", &notification::toggleLoudnessCurve, &notification::focusLoudnessCurve, "Loudness Curve"},
      {"Spectrogram", "Spectrogram", &notification::toggleSpectrogram, &notification::focusSpectrogram, "Spectrogram"},
      {"FFT", "FFT", &notification::toggleFFT, &notification::focusFFT, "FFT"},
      {"StereoWidth", "Stereo Width", &notification::toggleStereoWidth, &notification::focusStereoWidth, "Stereo Width"},
      {"ChapterRibbon", "Chapter Ribbon", &notification::toggleChapterRibbon, &notification::focusChapters, "Chapter Ribbon"},
  }};
  for (std::size_t i = 0; i < panels.size(); ++i) {
    const Qt::Key digit = static_cast<Qt::Key>(Qt::Key_1 + static_cast<int>(i));
    const QString toggleNotice = *panels[i].toggle;
    commands.add({.id = QStringLiteral("view.toggle%1").arg(QLatin1String(panels[i].name)),
                  .title = QStringLiteral("Toggle %1").arg(QLatin1String(panels[i].title)),
                  .shortcut = keys(Qt::META | digit),
                  .menu = view,
                  .group = QStringLiteral("panels"),
                  .trigger = [notices, toggleNotice] { notices->post(toggleNotice); }});
  }
  for (std::size_t i = 0; i < panels.size(); ++i) {
    const Qt::Key digit = static_cast<Qt::Key>(Qt::Key_1 + static_cast<int>(i));
    const QString focusNotice = *panels[i].focus;
    commands.add({.id = QStringLiteral("view.focus%1").arg(QLatin1String(panels[i].name)),
                  .title = QStringLiteral("Focus %1").arg(QLatin1String(panels[i].focusTitle)),
                  .shortcut = keys(Qt::META | Qt::ALT | digit),
                  .menu = view,
                  .group = QStringLiteral("focus"),
                  .trigger = [notices, focusNotice] { notices->post(focusNotice); }});
  }

  // ---- Window ----
  commands.add({.id = QStringLiteral("window.outputPanel"),
                .title = QStringLiteral("Output Panel"),
                .shortcut = keys(Qt::ALT | Qt::CTRL | Qt::Key_O),
                .menu = window,
                .group = QStringLiteral("panels"),
                .trigger = [notices] { notices->post(notification::showOutputPanel); }});

  // ---- Help ----
  if (hooks.about) {
    commands.add({.id = QStringLiteral("help.about"),
                  .title = QStringLiteral("About Corvane"),
                  .menu = help,
                  .group = QStringLiteral("about"),
                  .trigger = hooks.about});
  }

  // Enablement follows the session.
  commands.refreshWhen(&engine, &AudioEngine::loadedFileChanged);
  commands.refreshWhen(&engine, &AudioEngine::isLoadingChanged);
  commands.refreshWhen(&transport, &Transport::isPlayingChanged);
  commands.refreshWhen(&transport, &Transport::selectionChanged);
  commands.refreshWhen(&transport, &Transport::isLoopingChanged);
  commands.refreshWhen(&transport, &Transport::playbackRateChanged);
  commands.refresh();
}

}  // namespace corvane
