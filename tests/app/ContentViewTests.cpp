// The main view's reactions to the session and to its notices: the focus rule of the panel
// stack, what a new load resets and a new picture of the same file keeps, the alert of a file
// that can't be opened, the loading overlay, and the drop rule. A real session on real files.
#include <gtest/gtest.h>

#include <QApplication>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QTimer>
#include <QTest>

#include "WindowTest.h"
#include "app/CommandTable.h"
#include "app/ContentView.h"
#include "app/MainWindow.h"
#include "app/NotificationBus.h"
#include "displays/TimeZoomState.h"
#include "playback/Transport.h"
#include "session/SessionSettings.h"

namespace corvane {
namespace {

using test::waitUntil;

class ContentViewTest : public test::WindowTest {
 protected:
  void loadAndWait(const std::string& path) {
    engine->loadFile(url(path));
    ASSERT_TRUE(waitUntil([&] { return !engine->isLoading() && engine->loadedFile().has_value(); }));
    QCoreApplication::processEvents();
  }
  std::vector<bool> shown() const {
    std::vector<bool> flags;
    for (ContentPanel panel : kAllContentPanels) flags.push_back(content->panels().isShown(panel));
    return flags;
  }
};

TEST_F(ContentViewTest, FocusShowsOnePanelAndTheSameCommandShowsAllAgain) {
  const std::vector<bool> all(6, true);
  PanelLayout everything;
  for (ContentPanel panel : kAllContentPanels) everything.setShown(panel, true);
  content->setPanels(everything);

  bus.post(notification::focusFFT);
  EXPECT_EQ(shown(), (std::vector<bool>{false, false, false, true, false, false}));
  bus.post(notification::focusFFT);
  EXPECT_EQ(shown(), all);

  // Two panels on: focus still leaves one, and leaving focus shows all six, not the two.
  PanelLayout two;
  two.setShown(ContentPanel::waveform, true);
  two.setShown(ContentPanel::spectrogram, true);
  content->setPanels(two);
  bus.post(notification::focusWaveform);
  EXPECT_EQ(shown(), (std::vector<bool>{true, false, false, false, false, false}));
  bus.post(notification::focusWaveform);
  EXPECT_EQ(shown(), all);

  // Show Info Panel carries the sidebar's state from the start, and hides and shows it.
  QAction* info = window->commands().action(QStringLiteral("view.infoPanel"));
  ASSERT_TRUE(content->isInfoPanelShown());
  EXPECT_TRUE(info->isChecked());
  window->commands().trigger(QStringLiteral("view.infoPanel"));
  EXPECT_FALSE(content->isInfoPanelShown());
  EXPECT_FALSE(info->isChecked());
  window->commands().trigger(QStringLiteral("view.infoPanel"));
  EXPECT_TRUE(content->isInfoPanelShown());

  // A toggle flips its own panel only; the chapter ribbon's focus notice has its own name.
  bus.post(notification::toggleStereoWidth);
  EXPECT_EQ(shown(), (std::vector<bool>{true, true, true, true, false, true}));
  bus.post(notification::focusChapters);
  EXPECT_EQ(shown(), (std::vector<bool>{false, false, false, false, false, true}));
}

TEST_F(ContentViewTest, ANewLoadResetsTheViewAndMutesNothing) {
  const std::string stereo = writeFile("stereo.wav", test::sine(48000.0, 2, 6.0, 300.0, 0.5));
  const std::string mono = writeFile("mono.wav", test::sine(48000.0, 1, 6.0, 300.0, 0.5));
  loadAndWait(stereo);
  EXPECT_EQ(content->enabledFFTChannels(), (std::set<int>{0, 1}));
  EXPECT_EQ(engine->sessionSettings().spectrogramChannelIndex(), std::nullopt);

  content->timeZoom().setZoom(8.0);
  content->timeZoom().setScroll(0.5);
  content->setMutedWaveformChannels({1});
  EXPECT_EQ(engine->transport().mutedSourceChannels(), QList<int>{1});
  // One channel left for the spectrum: the spectrogram follows it.
  content->setEnabledFFTChannels({1});
  EXPECT_EQ(engine->sessionSettings().spectrogramChannelIndex(), std::optional<int>(1));

  loadAndWait(mono);
  EXPECT_EQ(content->lastZoomResetEpoch(), engine->fileLoadEpoch());
  EXPECT_DOUBLE_EQ(content->timeZoom().zoom(), 1.0);
  EXPECT_DOUBLE_EQ(content->timeZoom().scroll(), 0.0);
  EXPECT_TRUE(content->mutedWaveformChannels().empty());
  EXPECT_TRUE(engine->transport().mutedSourceChannels().isEmpty());
  EXPECT_EQ(content->enabledFFTChannels(), std::set<int>{0});
  EXPECT_EQ(engine->sessionSettings().spectrogramChannelIndex(), std::optional<int>(0));

  // A rebuilt buffer of the same file (what an edit does) is a new picture, not a new load:
  // the zoom and the muted channels stay.
  content->timeZoom().setZoom(4.0);
  content->setMutedWaveformChannels({0});
  const quint64 epoch = engine->fileLoadEpoch();
  const SharedAudioBuffer original = engine->pcmBuffer();
  const SharedAudioBuffer quieter = AudioBuffer::create(1, original->frameLength(), original->sampleRate());
  for (FrameCount i = 0; i < original->frameLength(); ++i) quieter->channel(0)[i] = 0.5f * original->channel(0)[i];
  int pictures = 0;
  QObject::connect(engine.get(), &AudioEngine::loadedFileChanged, engine.get(), [&] { ++pictures; });
  engine->setupActiveFile(AudioFileModel::fromBuffer(quieter, *engine->loadedFile()), quieter);
  QCoreApplication::processEvents();
  ASSERT_EQ(pictures, 1);
  ASSERT_EQ(engine->fileLoadEpoch(), epoch);
  EXPECT_DOUBLE_EQ(content->timeZoom().zoom(), 4.0);
  EXPECT_EQ(content->mutedWaveformChannels(), std::set<int>{0});
  EXPECT_EQ(engine->transport().mutedSourceChannels(), QList<int>{0});
}

TEST_F(ContentViewTest, AFileThatCannotBeOpenedIsReportedOnceWithTheSessionsWords) {
  QString reported;
  QObject::connect(engine.get(), &AudioEngine::loadErrorChanged, engine.get(), [&] {
    if (engine->loadError()) reported = *engine->loadError();
  });
  const std::string missing = folder.file("no-such-file.wav");
  engine->loadFile(url(missing));
  ASSERT_TRUE(waitUntil([&] { return !user->seen.empty(); }));
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, QStringLiteral("Could not open file"));
  EXPECT_FALSE(reported.isEmpty());
  EXPECT_EQ(user->seen[0].informativeText, reported);
  EXPECT_EQ(user->seen[0].buttons, QStringList{QStringLiteral("OK")});
  // Closing the alert clears the error.
  EXPECT_FALSE(engine->loadError().has_value());
  EXPECT_FALSE(content->loadingOverlay()->isVisible());
}

TEST_F(ContentViewTest, TheOverlayCoversTheLoadAndDropsOpenFiles) {
  const std::string path = writeFile("dropped.wav", test::sine(48000.0, 2, 4.0, 500.0, 0.3));
  EXPECT_FALSE(content->dropFiles({}));
  EXPECT_FALSE(engine->isLoading());

  ASSERT_TRUE(content->dropFiles({url(path)}));
  EXPECT_TRUE(engine->isLoading());
  EXPECT_TRUE(content->loadingOverlay()->isVisible());
  EXPECT_EQ(content->loadingOverlay()->geometry().intersected(content->rect()), content->loadingOverlay()->geometry());
  ASSERT_TRUE(waitUntil([&] { return !engine->isLoading(); }));
  EXPECT_FALSE(content->loadingOverlay()->isVisible());
  ASSERT_TRUE(engine->loadedFile().has_value());
  EXPECT_EQ(engine->loadedFile()->url.filename(), std::filesystem::path("dropped.wav"));
  EXPECT_EQ(window->windowTitle(), QStringLiteral("dropped.wav \u2014 Corvane"));
}

}  // namespace
}  // namespace corvane

namespace corvane {
namespace {

// Closing the window is quitting: unsaved edits are asked about, and the window stays unless
// the user lets them go; the Quit command takes the same road.
TEST_F(ContentViewTest, ClosingTheWindowAsksAboutUnsavedEditsFirst) {
  auto work = std::make_shared<test::FakeWork>();
  engine->setWorkGuard(work);
  loadAndWait(writeFile("edited.wav", test::sine(48000.0, 2, 2.0, 440.0, 0.5)));
  work->dirty = true;

  EXPECT_FALSE(window->close());  // the alert closed without an answer: cancel
  EXPECT_TRUE(window->isVisible());
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].buttons, (QStringList{QStringLiteral("Save\u2026"), QStringLiteral("Quit Without Saving"),
                                                QStringLiteral("Cancel")}));

  user->answers = {2};  // Cancel, by the Quit command
  EXPECT_TRUE(window->commands().trigger(QStringLiteral("file.quit")));
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(user->seen.size(), 2u);

  user->answers = {1};  // Quit Without Saving
  EXPECT_TRUE(window->close());
  EXPECT_FALSE(window->isVisible());
  EXPECT_EQ(work->exports, 0);
}

}  // namespace
}  // namespace corvane

namespace corvane {
namespace {

// Ctrl+O: the open panel with its title, message and filters (any file may be picked: a file
// the decoders can't read goes on to the raw road), and the file picked opens.
TEST_F(ContentViewTest, TheOpenCommandAsksForAFileAndOpensIt) {
  const std::string path = writeFile("picked.wav", test::sine(48000.0, 1, 1.0, 440.0, 0.5));
  QString title, filters, message;
  QTimer::singleShot(0, [&] {
    ASSERT_TRUE(waitUntil([] { return qobject_cast<QFileDialog*>(QApplication::activeModalWidget()) != nullptr; }, 10.0));
    auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
    title = dialog->windowTitle();
    filters = dialog->nameFilters().join(QLatin1Char('|'));
    for (QLabel* label : dialog->findChildren<QLabel*>()) {
      if (label->wordWrap()) message = label->text();
    }
    dialog->selectFile(QString::fromStdString(path));
    QMetaObject::invokeMethod(dialog, "accept");
  });
  ASSERT_TRUE(window->commands().dispatch(Qt::CTRL | Qt::Key_O));
  EXPECT_EQ(title, QStringLiteral("Open Audio File"));
  EXPECT_TRUE(filters.startsWith(QStringLiteral("Audio files (*.wav "))) << filters.toStdString();
  EXPECT_TRUE(filters.contains(QStringLiteral("*.flac")));
  EXPECT_TRUE(filters.endsWith(QStringLiteral("|All files (*)")));
  EXPECT_TRUE(message.startsWith(QStringLiteral("Pick one file to analyse, or several to load directly into Compare")));
  ASSERT_TRUE(waitUntil([&] { return engine->loadedFile() && !engine->isLoading(); }));
  EXPECT_EQ(engine->loadedFile()->url, std::filesystem::path(path));
}

}  // namespace
}  // namespace corvane
