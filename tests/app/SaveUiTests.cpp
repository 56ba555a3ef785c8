// Saving in the window, as a user meets it: the quit question with its words, a save panel
// that is cancelled (the window stays, the edits stay unsaved) or answered (the file is
// written, the window goes), Quit Without Saving, Discard Edits, the dirty badge and the Save
// button following the session and the setting, and the settings window's Editing tab. The
// questions are the real QMessageBoxes and the panel the real QFileDialog, answered the way a
// user would, on a real session with real files.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <deque>
#include <fstream>
#include <functional>
#include <iterator>

#include "DialogScript.h"
#include "SessionTestSupport.h"
#include "app/CommandTable.h"
#include "app/MainWindow.h"
#include "app/MessageBoxAlertPresenter.h"
#include "app/NotificationBus.h"
#include "app/SaveCommands.h"
#include "app/SettingsWindow.h"
#include "editing/EditCommands.h"
#include "editing/EditEngine.h"
#include "headless/files/AudioFileModel.h"
#include "session/SettingsStore.h"

namespace corvane {
namespace {

using test::DialogScript;
using test::inSavePanel;
using test::pressIn;
using test::SeenBox;
using test::SeenPanel;
using test::waitUntil;

std::string bytesOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class SaveUi : public test::SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    auto options = engineOptions();
    boxes = std::make_shared<MessageBoxAlertPresenter>();
    options.presenter = boxes;
    engine = std::make_unique<AudioEngine>(std::move(options));
    window = std::make_unique<MainWindow>(*engine, bus, boxes);
    boxes->setParent(window.get());
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    saving = window->findChild<QToolBar*>(QStringLiteral("CorvaneSavingToolbar"));
    ASSERT_NE(saving, nullptr);
  }
  void TearDown() override {
    window.reset();
    engine.reset();
    SessionTest::TearDown();
  }
  // A loaded file (by default a 1 s stereo float WAV) with one gain edit.
  void loadAndEdit(std::optional<std::string> file = std::nullopt) {
    path = file ? *file : writeFile("take.wav", test::sine(48000.0, 2, 1.0, 440.0, 0.5));
    engine->loadFile(url(path));
    ASSERT_TRUE(waitUntil([&] { return !engine->isLoading() && engine->pcmBuffer() != nullptr; }));
    QCoreApplication::processEvents();
    EditCommands(*engine).applyGain({0, 48000}, -3.0, std::nullopt);
    ASSERT_TRUE(engine->editEngine().isDirty());
    QCoreApplication::processEvents();
  }
  // The toolbar widget by object name, and whether the toolbar shows it.
  bool shown(const QString& name) const {
    QCoreApplication::processEvents();  // the toolbar lays out its shown and hidden items late
    auto* widget = saving->findChild<QWidget*>(name);
    return widget && widget->isVisibleTo(saving);
  }
  QToolButton* toolButton(const QString& id) const {
    return saving->findChild<QToolButton*>(QStringLiteral("button.%1").arg(id));
  }

  NotificationBus bus;
  std::shared_ptr<MessageBoxAlertPresenter> boxes;
  std::unique_ptr<AudioEngine> engine;
  std::unique_ptr<MainWindow> window;
  QToolBar* saving = nullptr;
  std::string path;
};

const QString kQuitToNewFile =
    QStringLiteral("The audio has edits that haven't been saved. Save them to a new file, or quit and lose them?");

TEST_F(SaveUi, QuitWithUnsavedEditsAsksAndACancelledSaveKeepsTheWindowAndTheEdits) {
  loadAndEdit();
  const std::string original = bytesOf(path);
  SeenBox question;
  SeenPanel panel;
  {
    DialogScript script;
    script.then(pressIn(question, QStringLiteral("Save\u2026")));
    script.then(inSavePanel(panel, std::nullopt));
    window->commands().trigger(QStringLiteral("file.quit"));
    EXPECT_TRUE(script.finished());
  }
  EXPECT_EQ(question.text, "Unsaved Edits");
  EXPECT_EQ(question.informative, kQuitToNewFile);
  EXPECT_EQ(question.buttons, (QStringList{"Save\u2026", "Quit Without Saving", "Cancel"}));
  EXPECT_EQ(panel.title, "Save Edited Audio");
  EXPECT_EQ(QFileInfo(panel.proposed).fileName(), "take_edited.wav");
  EXPECT_EQ(QFileInfo(panel.proposed).absolutePath(), QString::fromStdString(folder.path()));
  EXPECT_EQ(panel.filter, "WAV audio (*.wav)");
  // Still running, still edited, nothing written.
  EXPECT_TRUE(window->isVisible());
  EXPECT_TRUE(engine->editEngine().isDirty());
  EXPECT_TRUE(shown(QStringLiteral("dirtyBadge")));
  EXPECT_EQ(bytesOf(path), original);

  // Cancel in the question keeps it too; Quit Without Saving closes the window.
  {
    DialogScript script;
    script.then(pressIn(question, QStringLiteral("Cancel")));
    window->close();
    EXPECT_TRUE(script.finished());
  }
  EXPECT_TRUE(window->isVisible());
  {
    DialogScript script;
    script.then(pressIn(question, QStringLiteral("Quit Without Saving")));
    window->commands().trigger(QStringLiteral("file.quit"));
    EXPECT_TRUE(script.finished());
  }
  EXPECT_FALSE(window->isVisible());
  EXPECT_EQ(bytesOf(path), original);
}

TEST_F(SaveUi, ASaveInTheQuitQuestionWritesTheNewFileAndQuits) {
  loadAndEdit();
  const std::string chosen = folder.file("delivered");  // the panel adds the type's extension
  const std::vector<float> live(engine->pcmBuffer()->channel(0), engine->pcmBuffer()->channel(0) + 48000);
  SeenBox question;
  SeenPanel panel;
  DialogScript script;
  script.then(pressIn(question, QStringLiteral("Save\u2026")));
  script.then(inSavePanel(panel, chosen));
  window->close();
  EXPECT_TRUE(script.finished());
  EXPECT_FALSE(window->isVisible());
  EXPECT_FALSE(engine->editEngine().isDirty());
  ASSERT_TRUE(engine->loadedFile());
  EXPECT_EQ(engine->loadedFile()->url, std::filesystem::path(chosen + ".wav"));
  // The source was float; so is the new file, sample for sample.
  const SharedAudioBuffer written = AudioFileModel::decode(chosen + ".wav");
  ASSERT_EQ(written->frameLength(), 48000);
  EXPECT_TRUE(std::equal(live.begin(), live.end(), written->channel(0)));
}

TEST_F(SaveUi, DiscardEditsAsksThenRevertsToTheFile) {
  loadAndEdit();
  EXPECT_TRUE(window->commands().isEnabledNow(save_command::discard));
  SeenBox question;
  {
    DialogScript script;
    script.then(pressIn(question, QStringLiteral("Cancel")));
    toolButton(save_command::discard)->click();
    EXPECT_TRUE(script.finished());
  }
  EXPECT_EQ(question.text, "Discard Edits");
  EXPECT_TRUE(engine->editEngine().isDirty());
  {
    DialogScript script;
    script.then(pressIn(question, QStringLiteral("Discard")));
    window->commands().trigger(save_command::discard);
    EXPECT_TRUE(script.finished());
  }
  ASSERT_TRUE(waitUntil([&] { return !engine->isLoading() && !engine->editEngine().isDirty(); }));
  QCoreApplication::processEvents();
  EXPECT_FALSE(shown(QStringLiteral("dirtyBadge")));
  EXPECT_FALSE(window->commands().isEnabledNow(save_command::discard));
  // Nothing left to lose: quitting asks nothing.
  window->close();
  EXPECT_FALSE(window->isVisible());
}

TEST_F(SaveUi, TheBadgeAndTheSaveButtonFollowTheSessionAndTheSetting) {
  CommandTable& commands = window->commands();
  EXPECT_FALSE(commands.isEnabledNow(save_command::saveAs));
  EXPECT_FALSE(shown(QStringLiteral("dirtyBadge")));
  EXPECT_FALSE(shown(QStringLiteral("saveButton")));
  loadAndEdit();

  auto* badge = saving->findChild<QLabel*>(QStringLiteral("dirtyBadge"));
  auto* save = saving->findChild<QToolButton*>(QStringLiteral("saveButton"));
  EXPECT_TRUE(shown(QStringLiteral("dirtyBadge")));
  EXPECT_EQ(badge->toolTip(), "Unsaved edits to the audio. Save As to write a new file.");
  EXPECT_FALSE(shown(QStringLiteral("saveButton")));
  // Overwriting off: no Save in the Edit menu, and its key reaches nothing.
  EXPECT_FALSE(commands.action(save_command::save)->isVisible());
  EXPECT_FALSE(commands.isEnabledNow(save_command::save));
  EXPECT_TRUE(commands.isEnabledNow(save_command::saveAs));
  EXPECT_EQ(toolButton(save_command::saveAs)->toolTip(), "Save edited audio as new file (Shift+Ctrl+S)");
  EXPECT_EQ(toolButton(save_command::discard)->toolTip(), "Discard unsaved edits and revert to the last saved version");

  // Ctrl+, opens the settings; overwriting turned on there shows Save at once.
  commands.dispatch(Qt::CTRL | Qt::Key_Comma);
  SettingsWindow* settings = window->findChild<SettingsWindow*>();
  ASSERT_NE(settings, nullptr);
  ASSERT_TRUE(QTest::qWaitForWindowExposed(settings));
  settings->allowOverwriteToggle()->click();
  EXPECT_TRUE(shown(QStringLiteral("saveButton")));
  EXPECT_TRUE(save->isEnabled());
  EXPECT_TRUE(commands.action(save_command::save)->isVisible());
  EXPECT_TRUE(commands.isEnabledNow(save_command::save));
  EXPECT_EQ(save->toolTip(), "Save the edited audio over the loaded file (Ctrl+S)");
  EXPECT_EQ(badge->toolTip(), "Unsaved edits to the audio. Save writes over the file; Save As writes a new one.");

  // Save asks first; "Don't ask again" ticked with Save stores the answer and the file is
  // written over, the badge gone.
  const std::string original = bytesOf(path);
  SeenBox question;
  {
    DialogScript script;
    script.then(pressIn(question, QStringLiteral("Save"), true));
    save->click();
    EXPECT_TRUE(script.finished());
  }
  EXPECT_EQ(question.text, "Save over \"take.wav\"?");
  EXPECT_EQ(question.checkBox, "Don't ask again");
  EXPECT_EQ(question.buttons, (QStringList{"Save", "Save As\u2026", "Cancel"}));
  EXPECT_FALSE(store->corvaneConfirmSaveOverwrite());
  EXPECT_NE(bytesOf(path), original);
  EXPECT_FALSE(engine->editEngine().isDirty());
  EXPECT_FALSE(shown(QStringLiteral("dirtyBadge")));
  EXPECT_FALSE(save->isEnabled());

  // Now Ctrl+S saves without a word.
  EditCommands(*engine).applyGain({0, 48000}, -3.0, std::nullopt);
  const std::string once = bytesOf(path);
  EXPECT_TRUE(commands.dispatch(Qt::CTRL | Qt::Key_S));
  EXPECT_FALSE(engine->editEngine().isDirty());
  EXPECT_NE(bytesOf(path), once);
}

TEST_F(SaveUi, AFileSaveCantRewriteSaysWhyOnTheButtonAndOnlySaveAsSavesWithoutOverwrite) {
  const std::string mp3 = folder.file("talk.mp3");
  ASSERT_EQ(test::runCommand("sox -V1 -R -n -r 44100 -c 2 '" + mp3 + "' synth 1 sine 440 vol 0.5").exitCode, 0);
  loadAndEdit(mp3);
  CommandTable& commands = window->commands();

  // Overwriting off: Ctrl+S brings up nothing; Shift+Ctrl+S the save panel.
  SeenPanel panel;
  {
    DialogScript script;
    script.then(inSavePanel(panel, std::nullopt));
    commands.dispatch(Qt::CTRL | Qt::Key_S);
    EXPECT_FALSE(script.finished());
    EXPECT_TRUE(commands.dispatch(Qt::SHIFT | Qt::CTRL | Qt::Key_S));
    EXPECT_TRUE(script.finished());
  }
  EXPECT_EQ(panel.title, "Save Edited Audio");
  EXPECT_EQ(QFileInfo(panel.proposed).fileName(), "talk_edited.wav");
  EXPECT_TRUE(engine->editEngine().isDirty());

  // Overwriting on: Save shows, can't be pressed, and its tooltip says why.
  commands.trigger(save_command::settings);
  SettingsWindow* settings = window->findChild<SettingsWindow*>();
  ASSERT_NE(settings, nullptr);
  settings->allowOverwriteToggle()->click();
  auto* save = saving->findChild<QToolButton*>(QStringLiteral("saveButton"));
  EXPECT_TRUE(shown(QStringLiteral("saveButton")));
  EXPECT_FALSE(save->isEnabled());
  EXPECT_EQ(save->toolTip(), "Corvane writes WAV, AIFF, and CAF in place. MP3 files are saved as a new file with Save As.");
}

TEST_F(SaveUi, TheEditingTabStoresItsKeysAndAskOnlyChangesWhileOverwriteIsOn) {
  window->commands().trigger(save_command::settings);
  SettingsWindow* settings = window->findChild<SettingsWindow*>();
  ASSERT_NE(settings, nullptr);
  ASSERT_TRUE(QTest::qWaitForWindowExposed(settings));
  EXPECT_EQ(settings->windowTitle(), "Settings");
  ASSERT_EQ(settings->tabs()->count(), 1);
  EXPECT_EQ(settings->tabs()->tabText(0), "Editing");
  QCheckBox* allow = settings->allowOverwriteToggle();
  QCheckBox* ask = settings->confirmOverwriteToggle();
  EXPECT_EQ(allow->text(), "Allow Save to overwrite the original file");
  EXPECT_EQ(ask->text(), "Ask before overwriting");
  EXPECT_TRUE(settings->findChild<QLabel*>()->text().startsWith(
      "Off (the default), Save As (Shift+Ctrl+S) always writes a new file and refuses the loaded file's path."));

  // Defaults: overwrite off, ask on but disabled; nothing stored by just looking.
  EXPECT_FALSE(allow->isChecked());
  EXPECT_TRUE(ask->isChecked());
  EXPECT_FALSE(ask->isEnabled());
  EXPECT_FALSE(store->contains(SettingsKey::corvaneAllowSaveOverwrite));
  EXPECT_FALSE(store->contains(SettingsKey::corvaneConfirmSaveOverwrite));
  QTest::mouseClick(ask, Qt::LeftButton, {}, QPoint(8, ask->height() / 2));
  EXPECT_TRUE(ask->isChecked());
  EXPECT_FALSE(store->contains(SettingsKey::corvaneConfirmSaveOverwrite));

  QTest::mouseClick(allow, Qt::LeftButton, {}, QPoint(8, allow->height() / 2));
  EXPECT_TRUE(store->corvaneAllowSaveOverwrite());
  EXPECT_TRUE(ask->isEnabled());
  QTest::mouseClick(ask, Qt::LeftButton, {}, QPoint(8, ask->height() / 2));
  EXPECT_FALSE(store->corvaneConfirmSaveOverwrite());

  // Overwrite off again: ask keeps its stored value and can't be changed.
  allow->click();
  EXPECT_FALSE(store->corvaneAllowSaveOverwrite());
  EXPECT_FALSE(ask->isEnabled());
  EXPECT_FALSE(ask->isChecked());
  QTest::mouseClick(ask, Qt::LeftButton, {}, QPoint(8, ask->height() / 2));
  EXPECT_FALSE(store->corvaneConfirmSaveOverwrite());

  // A key written elsewhere shows when the window comes back.
  settings->close();
  store->setCorvaneAllowSaveOverwrite(true);
  store->setCorvaneConfirmSaveOverwrite(true);
  window->commands().trigger(save_command::settings);
  EXPECT_TRUE(allow->isChecked());
  EXPECT_TRUE(ask->isChecked());
  EXPECT_TRUE(ask->isEnabled());
}

}  // namespace
}  // namespace corvane
