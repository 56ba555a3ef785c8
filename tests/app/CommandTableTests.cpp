// The window's commands: each command's title, key and enablement as the user meets them; keys
// that reach nothing while their command is disabled; keys shared by several commands going to
// the command of the mode that is on; and the global key filter's own keys, sent as real key
// events to the real window.
#include <gtest/gtest.h>

#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QTest>
#include <map>
#include <set>

#include "SessionTestSupport.h"
#include "app/AppCommands.h"
#include "app/CommandTable.h"
#include "app/ContentView.h"
#include "app/GlobalKeyFilter.h"
#include "app/MainWindow.h"
#include "app/NotificationBus.h"
#include "displays/WaveformSection.h"
#include "playback/Transport.h"
#include "session/RecentDocumentsTracker.h"

namespace corvane {
namespace {

using test::waitUntil;

struct Expected {
  const char* id;
  const char* title;
  const char* key;  // QKeySequence::PortableText, "" for none
  bool needsFile;
};

// The commands of the features the window has, with their keys in Linux form (Ctrl for the
// command key, Alt for option, Meta for control).
const std::vector<Expected> kExpected = {
    {"file.open", "Open Audio File\u2026", "Ctrl+O", false},
    {"file.openRecent", "Open Recent", "", false},
    {"file.addToCompare", "Add Files to Compare\u2026", "Ctrl+Shift+O", true},
    {"file.reinterpretRaw", "Reinterpret Raw Format\u2026", "", true},
    {"file.quit", "Quit", "Ctrl+Q", false},
    {"view.playPause", "Play / Pause", "Space", true},
    {"view.stop", "Stop", "Ctrl+.", true},
    {"view.rateDown", "Decrease Playback Rate", "[", false},
    {"view.rateUp", "Increase Playback Rate", "]", false},
    {"view.rateReset", "Reset Playback Rate", "\\", false},
    {"view.skipBack5", "Skip Back 5 Seconds", "Left", true},
    {"view.skipForward5", "Skip Forward 5 Seconds", "Right", true},
    {"view.skipBack1", "Skip Back 1 Second", "Shift+Left", true},
    {"view.skipForward1", "Skip Forward 1 Second", "Shift+Right", true},
    {"view.goToStart", "Go to Start", "Ctrl+Left", true},
    {"view.toggleLoop", "Toggle Loop", "L", false},
    {"view.clearSelection", "Clear Selection", "", true},
    {"view.selectAll", "Select All", "Ctrl+A", true},
    {"view.infoPanel", "Show Info Panel", "Ctrl+I", false},
    {"view.toggleWaveform", "Toggle Waveform", "Meta+1", false},
    {"view.toggleLoudnessCurve", "Toggle Loudness Curve", "Meta+2", false},
    {"view.toggleSpectrogram", "Toggle Spectrogram", "Meta+3", false},
    {"view.toggleFFT", "Toggle FFT", "Meta+4", false},
    {"view.toggleStereoWidth", "Toggle Stereo Width", "Meta+5", false},
    {"view.toggleChapterRibbon", "Toggle Chapter Ribbon", "Meta+6", false},
    {"view.focusWaveform", "Focus Waveform", "Meta+Alt+1", false},
    {"view.focusLoudnessCurve", "Focus Loudness Curve", "Meta+Alt+2", false},
    {"view.focusSpectrogram", "Focus Spectrogram", "Meta+Alt+3", false},
    {"view.focusFFT", "Focus FFT", "Meta+Alt+4", false},
    {"view.focusStereoWidth", "Focus Stereo Width", "Meta+Alt+5", false},
    {"view.focusChapterRibbon", "Focus Chapter Ribbon", "Meta+Alt+6", false},
    {"window.outputPanel", "Output Panel", "Ctrl+Alt+O", false},
    {"help.about", "About Corvane", "", false},
};

class CommandTableTest : public test::SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    engine = makeEngine();
    commands = std::make_unique<CommandTable>([this] { return engine->loadedFile().has_value(); });
    registerAppCommands(*commands, *engine, bus, {.quit = [this] { ++quits; }, .about = [this] { ++abouts; }});
  }
  void TearDown() override {
    commands.reset();
    engine.reset();
    SessionTest::TearDown();
  }

  // A 20 s stereo tone, loaded and decoded.
  void loadTone() {
    const std::string path = writeFile("tone.wav", test::sine(48000.0, 2, 20.0, 440.0, 0.5));
    engine->loadFile(url(path));
    ASSERT_TRUE(waitUntil([&] { return engine->loadedFile().has_value() && !engine->isLoading(); }));
  }
  bool enabled(const char* id) const { return commands->action(QString::fromLatin1(id))->isEnabled(); }
  bool press(QKeyCombination key, CommandTable::KeyState state = {}) { return commands->dispatch(key, state); }

  NotificationBus bus;
  std::unique_ptr<AudioEngine> engine;
  std::unique_ptr<CommandTable> commands;
  int quits = 0;
  int abouts = 0;
};

TEST_F(CommandTableTest, EveryCommandHasItsTitleKeyAndMenuText) {
  QStringList expectedIds;
  for (const Expected& e : kExpected) expectedIds << QString::fromLatin1(e.id);
  EXPECT_EQ(commands->ids(), expectedIds);

  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.id);
    const CommandSpec* spec = commands->spec(QString::fromLatin1(e.id));
    ASSERT_NE(spec, nullptr);
    EXPECT_EQ(spec->title, QString::fromUtf8(e.title));
    EXPECT_EQ(spec->shortcut.toString(QKeySequence::PortableText), QString::fromLatin1(e.key));
    EXPECT_EQ(spec->needsFile, e.needsFile);
    // The menu shows the title and, after a tab, the key; the action carries no Qt shortcut,
    // so that keys shared by several commands reach the dispatcher.
    QAction* action = commands->action(QString::fromLatin1(e.id));
    const QString key = spec->shortcut.toString(QKeySequence::NativeText);
    EXPECT_EQ(action->text(), key.isEmpty() ? spec->title : spec->title + QLatin1Char('\t') + key);
    EXPECT_TRUE(action->shortcut().isEmpty());
  }

  // The menus in their order, groups divided by separators.
  QMenuBar bar;
  commands->buildMenus(&bar);
  QStringList menus;
  for (QAction* menu : bar.actions()) menus << menu->text();
  EXPECT_EQ(menus, (QStringList{"&File", "&View", "&Window", "&Help"}));
  bar.actions()[3]->menu()->actions()[0]->trigger();
  EXPECT_EQ(abouts, 1);
  QStringList file;
  for (QAction* item : bar.actions()[0]->menu()->actions()) file << (item->isSeparator() ? QStringLiteral("--") : item->iconText());
  EXPECT_EQ(file, (QStringList{"Open Audio File\u2026", "Open Recent", "Add Files to Compare\u2026", "--",
                               "Reinterpret Raw Format\u2026", "--", "Quit"}));
}

TEST_F(CommandTableTest, EnablementFollowsTheFileTheSelectionAndTheSpeed) {
  std::set<QString> needFile;
  for (const Expected& e : kExpected) {
    if (e.needsFile) needFile.insert(QString::fromLatin1(e.id));
  }
  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.id);
    EXPECT_EQ(enabled(e.id), !e.needsFile);
  }

  loadTone();
  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.id);
    const QString id = QString::fromLatin1(e.id);
    // Nothing selected yet, and the file was decoded, not read as raw PCM.
    const bool expected = id != "view.clearSelection" && id != "file.reinterpretRaw";
    EXPECT_EQ(enabled(e.id), expected);
  }

  // Select All selects the whole file; Clear Selection then becomes available, and undoes it.
  ASSERT_TRUE(commands->trigger(QStringLiteral("view.selectAll")));
  ASSERT_TRUE(engine->transport().selection().has_value());
  EXPECT_DOUBLE_EQ(engine->transport().selection()->lowerSec, 0.0);
  EXPECT_NEAR(engine->transport().selection()->upperSec, 20.0, 1e-9);
  EXPECT_TRUE(enabled("view.clearSelection"));
  QObject::connect(&bus, &NotificationBus::posted, engine.get(), [this](const QString& name, const QVariant&) {
    if (name == notification::clearSelection) engine->transport().setSelection(std::nullopt);
  });
  ASSERT_TRUE(commands->trigger(QStringLiteral("view.clearSelection")));
  EXPECT_FALSE(engine->transport().selection().has_value());
  EXPECT_FALSE(enabled("view.clearSelection"));

  // The speed steps through the list and stops at its ends.
  std::vector<double> rates;
  for (int i = 0; i < 8 && enabled("view.rateDown"); ++i) {
    commands->trigger(QStringLiteral("view.rateDown"));
    rates.push_back(engine->transport().playbackRate());
  }
  EXPECT_EQ(rates, (std::vector<double>{0.75, 0.5, 0.25}));
  EXPECT_FALSE(enabled("view.rateDown"));
  rates.clear();
  for (int i = 0; i < 8 && enabled("view.rateUp"); ++i) {
    commands->trigger(QStringLiteral("view.rateUp"));
    rates.push_back(engine->transport().playbackRate());
  }
  EXPECT_EQ(rates, (std::vector<double>{0.5, 0.75, 1.0, 1.25, 1.5, 2.0}));
  EXPECT_FALSE(enabled("view.rateUp"));
  commands->trigger(QStringLiteral("view.rateReset"));
  EXPECT_DOUBLE_EQ(engine->transport().playbackRate(), 1.0);

  // The loop item carries the loop flag's check mark, whoever sets it.
  engine->transport().setIsLooping(true);
  EXPECT_TRUE(commands->action(QStringLiteral("view.toggleLoop"))->isChecked());
  commands->trigger(QStringLiteral("view.toggleLoop"));
  EXPECT_FALSE(engine->transport().isLooping());
  EXPECT_FALSE(commands->action(QStringLiteral("view.toggleLoop"))->isChecked());
}

TEST_F(CommandTableTest, KeysOfDisabledCommandsDoNothingAndEnabledOnesAct) {
  QSignalSpy ran(commands.get(), &CommandTable::triggered);
  // No file: the keys are the commands' (consumed) but nothing happens.
  EXPECT_TRUE(press(Qt::CTRL | Qt::Key_A));
  EXPECT_TRUE(press(QKeyCombination(Qt::Key_Space)));
  EXPECT_TRUE(press(QKeyCombination(Qt::Key_Right)));
  EXPECT_EQ(ran.count(), 0);
  EXPECT_FALSE(engine->transport().selection().has_value());
  EXPECT_FALSE(engine->transport().isPlaying());
  // A key nobody has goes on.
  EXPECT_FALSE(press(QKeyCombination(Qt::Key_F7)));

  loadTone();
  EXPECT_TRUE(press(QKeyCombination(Qt::Key_Right)));
  EXPECT_NEAR(engine->transport().currentTime(), 5.0, 1e-6);
  EXPECT_TRUE(press(Qt::SHIFT | Qt::Key_Right));
  EXPECT_NEAR(engine->transport().currentTime(), 6.0, 1e-6);
  EXPECT_TRUE(press(Qt::SHIFT | Qt::Key_Left));
  EXPECT_TRUE(press(QKeyCombination(Qt::Key_Left)));
  EXPECT_NEAR(engine->transport().currentTime(), 0.0, 1e-6);
  EXPECT_TRUE(press(Qt::CTRL | Qt::Key_A));
  ASSERT_TRUE(engine->transport().selection().has_value());
  EXPECT_TRUE(press(Qt::CTRL | Qt::Key_Q));
  EXPECT_EQ(quits, 1);

  // A bare key only while the keyboard is free; a chord with Ctrl also while typing; nothing
  // while a modal dialog is up.
  EXPECT_FALSE(press(QKeyCombination(Qt::Key_L), {.keyIsFree = false}));
  EXPECT_FALSE(engine->transport().isLooping());
  EXPECT_TRUE(press(Qt::CTRL | Qt::Key_I, {.keyIsFree = false}));
  EXPECT_FALSE(press(Qt::CTRL | Qt::Key_I, {.keyIsFree = false, .modalUp = true}));
  EXPECT_TRUE(press(QKeyCombination(Qt::Key_L)));
  EXPECT_TRUE(engine->transport().isLooping());
  // The keypad's Enter and a shifted symbol arrive in their plain form.
  EXPECT_EQ(CommandTable::normalise(Qt::SHIFT | Qt::Key_BraceRight), QKeyCombination(Qt::Key_BraceRight));
  EXPECT_EQ(CommandTable::normalise(QKeyCombination(Qt::Key_Enter)), QKeyCombination(Qt::Key_Return));
}

// Open Recent lists the files opened (by the panel, a hand-over or the command line), newest
// first, and opens one; Clear Menu empties it.
TEST_F(CommandTableTest, OpenRecentListsOpensAndClears) {
  const std::string first = writeFile("first.wav", test::sine(48000.0, 1, 1.0, 440.0, 0.5));
  const std::string second = writeFile("second.wav", test::sine(48000.0, 1, 1.0, 440.0, 0.5));
  for (const std::string& path : {first, second}) {
    engine->openURLs({url(path)});
    ASSERT_TRUE(waitUntil([&] { return !engine->isLoading() && engine->loadedFile() && engine->loadedFile()->url == path; }));
  }
  QMenu* recent = commands->action(QStringLiteral("file.openRecent"))->menu();
  ASSERT_NE(recent, nullptr);
  emit recent->aboutToShow();
  QStringList items;
  for (QAction* item : recent->actions()) items << (item->isSeparator() ? QStringLiteral("--") : item->text());
  EXPECT_EQ(items, (QStringList{QString::fromStdString(second), QString::fromStdString(first), "--", "Clear Menu"}));

  recent->actions()[1]->trigger();
  ASSERT_TRUE(waitUntil([&] { return !engine->isLoading() && engine->loadedFile() && engine->loadedFile()->url == first; }));

  emit recent->aboutToShow();
  recent->actions().back()->trigger();
  EXPECT_TRUE(engine->recentDocuments().paths().isEmpty());
  emit recent->aboutToShow();
  ASSERT_EQ(recent->actions().size(), 2);  // the divider and a disabled Clear Menu
  EXPECT_FALSE(recent->actions().back()->isEnabled());
}

// L toggles the loop, except in a mode that gives it a meaning of its own (the spectral
// lasso): the mode's command wins while its mode is on, and when that command is disabled the
// key does nothing rather than falling back to the loop.
TEST_F(CommandTableTest, SharedKeysGoToTheCommandOfTheModeThatIsOn) {
  commands->declareMenu(QStringLiteral("Spectral"), QStringLiteral("Spectral"), {QStringLiteral("tools")});
  int lassoPicks = 0;
  bool lassoAvailable = true;
  commands->add({.id = QStringLiteral("spectral.lasso"),
                 .title = QStringLiteral("Lasso Tool"),
                 .shortcut = QKeySequence(Qt::Key_L),
                 .menu = QStringLiteral("Spectral"),
                 .group = QStringLiteral("tools"),
                 .isEnabled = [&] { return lassoAvailable; },
                 .appliesNow = [this] { return engine->isSpectralMode(); },
                 .trigger = [&] { ++lassoPicks; }});
  loadTone();

  EXPECT_EQ(commands->resolve(QKeyCombination(Qt::Key_L)), QStringLiteral("view.toggleLoop"));
  press(QKeyCombination(Qt::Key_L));
  EXPECT_TRUE(engine->transport().isLooping());
  EXPECT_EQ(lassoPicks, 0);

  ASSERT_TRUE(engine->setMode(AudioEngine::Mode::spectral, true));
  EXPECT_EQ(commands->resolve(QKeyCombination(Qt::Key_L)), QStringLiteral("spectral.lasso"));
  press(QKeyCombination(Qt::Key_L));
  EXPECT_EQ(lassoPicks, 1);
  EXPECT_TRUE(engine->transport().isLooping());

  lassoAvailable = false;
  EXPECT_TRUE(press(QKeyCombination(Qt::Key_L)));
  EXPECT_EQ(lassoPicks, 1);
  EXPECT_TRUE(engine->transport().isLooping());

  ASSERT_TRUE(engine->setMode(AudioEngine::Mode::spectral, false));
  press(QKeyCombination(Qt::Key_L));
  EXPECT_FALSE(engine->transport().isLooping());
  EXPECT_EQ(lassoPicks, 1);
}

// The global key filter on the real window: real key events through the application.
TEST_F(CommandTableTest, TheWindowsOwnKeysActOnlyWhileTheKeyboardIsFree) {
  commands.reset();
  MainWindow window(*engine, bus, user);
  CommandTable& table = window.commands();
  GlobalKeyFilter filter(table, bus, [&table] { table.trigger(QStringLiteral("view.playPause")); });
  filter.setMainWindow(&window);
  qApp->installEventFilter(&filter);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  loadTone();

  std::vector<std::pair<QString, QVariant>> notices;
  QObject::connect(&bus, &NotificationBus::posted, &window,
                   [&](const QString& name, const QVariant& payload) { notices.emplace_back(name, payload); });
  QWidget* target = window.content();

  // Escape clears the selection (the content view observes the notice).
  engine->transport().setSelection(PlaybackSelection{1.0, 2.0});
  QTest::keyClick(target, Qt::Key_Escape);
  EXPECT_FALSE(engine->transport().selection().has_value());

  // Space plays and pauses.
  QTest::keyClick(target, Qt::Key_Space);
  EXPECT_TRUE(engine->transport().isPlaying());
  QTest::keyClick(target, Qt::Key_Space);
  EXPECT_FALSE(engine->transport().isPlaying());

  // 1 to 6 ask for compare slots 0 to 5; 7 and 0 are nobody's; D asks for the difference.
  notices.clear();
  for (Qt::Key key : {Qt::Key_1, Qt::Key_6, Qt::Key_7, Qt::Key_0, Qt::Key_D}) QTest::keyClick(target, key);
  ASSERT_EQ(notices.size(), 3u);
  EXPECT_EQ(notices[0], std::make_pair(notification::switchCompareSlot, QVariant(0)));
  EXPECT_EQ(notices[1], std::make_pair(notification::switchCompareSlot, QVariant(5)));
  EXPECT_EQ(notices[2].first, notification::toggleDiffViewActiveSlot);

  // Typing in a text field: Space, digits and D are text; Escape leaves the selection alone.
  auto* field = new QLineEdit(window.content());
  field->show();
  field->setFocus();
  ASSERT_TRUE(waitUntil([&] { return field->hasFocus(); }, 5.0));
  notices.clear();
  engine->transport().setSelection(PlaybackSelection{1.0, 2.0});
  QTest::keyClicks(field, QStringLiteral("a 1d"));
  QTest::keyClick(field, Qt::Key_Escape);
  EXPECT_EQ(field->text(), QStringLiteral("a 1d"));
  EXPECT_FALSE(engine->transport().isPlaying());
  EXPECT_TRUE(notices.empty());
  EXPECT_TRUE(engine->transport().selection().has_value());
  // A click outside the field gives the keys back.
  QTest::mouseClick(window.content()->waveformSection(), Qt::LeftButton, Qt::NoModifier, QPoint(5, 5));
  EXPECT_FALSE(field->hasFocus());

  qApp->removeEventFilter(&filter);
  window.hide();
}

}  // namespace
}  // namespace corvane
