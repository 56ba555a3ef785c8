// The questions the session asks before it is replaced, the mode flags' rules, the
// application bridge's waiting files and the raw-format road, with a scripted user in front of
// the alerts.
#include <QSignalSpy>
#include <filesystem>
#include <fstream>

#include "SessionTestSupport.h"
#include "compare/CompareModel.h"
#include "playback/Transport.h"
#include "session/BackgroundWork.h"
#include "session/CorvaneAppBridge.h"

namespace corvane::test {
namespace {

using Landing = AudioEngine::Landing;

class Questions : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    engine = makeEngine();
    work = std::make_shared<FakeWork>();
    engine->setWorkGuard(work);
  }
  // Loads `path` and waits for its first landing.
  void load(const std::string& path) {
    LandingLog log(*engine);
    engine->loadFile(url(path));
    ASSERT_TRUE(waitUntil([&] { return log.count(Landing::decoded) == 1; }));
  }

  std::unique_ptr<AudioEngine> engine;
  std::shared_ptr<FakeWork> work;
};

TEST_F(Questions, UnsavedEditsStillDirtyAfterTheSaveButtonKeepTheSession) {
  work->dirty = true;
  user->answers = {0};
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::open("the new file")));
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0], (SessionAlert{SessionAlert::Style::warning, "Unsaved Edits",
                                         "Opening the new file replaces the edited audio. Save your edits first, "
                                         "discard them, or cancel?",
                                         {"Save…", "Discard Edits", "Cancel"}}));
  // Overwriting isn't allowed: the save is a Save As.
  EXPECT_EQ(work->exports, 1);
  EXPECT_EQ(work->inPlaceSaves, 0);

  // The same question, and a save that goes through.
  work->saveSucceeds = true;
  user->answers = {0};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::open("the new file")));
  // Discard goes on without saving; Cancel and a closed alert keep the session.
  work->dirty = true;
  const int exports = work->exports;
  user->answers = {1};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::open("the new files")));
  EXPECT_EQ(work->exports, exports);
  user->answers = {2};
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::open("the new file")));
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::open("the new file")));
  EXPECT_TRUE(work->dirty);

  // Refused: openURLs loads nothing.
  user->answers = {2};
  engine->openURLs({url(writeFile("next.wav", sine(48000.0, 2, 0.2, 440.0, 0.5)))});
  EXPECT_EQ(engine->fileLoadEpoch(), 0u);
  EXPECT_EQ(user->seen.back().informativeText,
            "Opening the new file replaces the edited audio. Save your edits first, discard them, or cancel?");
}

TEST_F(Questions, QuittingWithEditsSavesOverTheFileOnlyWhereThatIsAllowed) {
  load(writeFile("mix.wav", sine(48000.0, 2, 0.3, 440.0, 0.5)));
  work->dirty = true;
  user->answers = {0};
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  EXPECT_EQ(user->seen.back().informativeText,
            "The audio has edits that haven't been saved. Save them to a new file, or quit and lose them?");
  EXPECT_EQ(user->seen.back().buttons, (QStringList{"Save…", "Quit Without Saving", "Cancel"}));
  EXPECT_EQ(work->exports, 1);

  store->setCorvaneAllowSaveOverwrite(true);
  user->answers = {0};
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  EXPECT_EQ(user->seen.back().informativeText,
            "The audio has edits that haven't been saved. Save them over mix.wav, or quit and lose them?");
  EXPECT_EQ(work->inPlaceSaves, 1);

  // A reason against overwriting sends the save to a new file again.
  work->blocker = QStringLiteral("Compressed files save as a new file.");
  work->saveSucceeds = true;
  user->answers = {0};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  EXPECT_EQ(user->seen.back().informativeText,
            "The audio has edits that haven't been saved. Save them to a new file, or quit and lose them?");
  EXPECT_EQ(work->exports, 2);
  EXPECT_EQ(work->inPlaceSaves, 1);
  work->dirty = true;
  user->answers = {1};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
}

TEST_F(Questions, ATakeStillRecordingIsStoppedOrKeepsTheSession) {
  work->recording = true;
  user->answers = {1};
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::open("the new file")));
  EXPECT_EQ(user->seen[0], (SessionAlert{SessionAlert::Style::warning, "Recording in progress",
                                         "A take is still recording. Stop it and open the new file? The take is kept "
                                         "on disk either way.",
                                         {"Stop and Open", "Cancel"}}));
  EXPECT_TRUE(work->recording);
  user->answers = {0};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  EXPECT_EQ(user->seen[1].informativeText,
            "A take is still recording. Stop it and quit? The take is kept on disk either way.");
  EXPECT_EQ(user->seen[1].buttons, (QStringList{"Stop and Quit", "Cancel"}));
  EXPECT_EQ(work->stops, 1);
}

TEST_F(Questions, ATakeInTheTakesFolderIsOfferedForSavingFirst) {
  const std::filesystem::path takes = std::filesystem::path(folder.path()) / "Recordings";
  std::filesystem::create_directories(takes);
  work->takes = QString::fromStdString(takes.string());
  load(writeFile("Recordings/Take 1.wav", sine(48000.0, 1, 0.3, 440.0, 0.5)));

  user->answers = {1};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::open("the new file")));
  EXPECT_EQ(user->seen[0], (SessionAlert{SessionAlert::Style::warning, "Take not saved",
                                         "The loaded audio is a recorded take in Corvane's takes folder (kept for "
                                         "seven days). Save it before opening the new file?",
                                         {"Save Take As…", "Open Anyway", "Cancel"}}));
  user->answers = {2};
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  EXPECT_EQ(user->seen[1].informativeText,
            "The loaded audio is a recorded take in Corvane's takes folder (kept for seven days). Save it to a location "
            "of your choosing?");
  EXPECT_EQ(user->seen[1].buttons, (QStringList{"Save Take As…", "Quit", "Cancel"}));
  // Save Take As… answers yes only when the take no longer lies in the folder afterwards.
  user->answers = {0};
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  work->onExport = [&] { work->takes = QString::fromStdString(folder.file("Elsewhere")); };
  user->answers = {0};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::quit()));

  // A folder whose name only starts like the takes folder is not inside it.
  work->takes = QString::fromStdString(takes.string().substr(0, takes.string().size() - 1));
  const std::size_t asked = user->seen.size();
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  EXPECT_EQ(user->seen.size(), asked);
}

TEST_F(Questions, TheThreeQuestionsComeInTurn) {
  const std::filesystem::path takes = std::filesystem::path(folder.path()) / "Recordings";
  std::filesystem::create_directories(takes);
  work->takes = QString::fromStdString(takes.string());
  load(writeFile("Recordings/Take 2.wav", sine(48000.0, 1, 0.3, 440.0, 0.5)));
  work->recording = true;
  work->dirty = true;
  user->answers = {0, 1, 1};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::open("the generated audio")));
  ASSERT_EQ(user->seen.size(), 3u);
  EXPECT_EQ(user->seen[0].messageText, "Recording in progress");
  EXPECT_EQ(user->seen[1].messageText, "Unsaved Edits");
  EXPECT_EQ(user->seen[2].messageText, "Take not saved");
  EXPECT_EQ(user->seen[2].informativeText,
            "The loaded audio is a recorded take in Corvane's takes folder (kept for seven days). Save it before "
            "opening the generated audio?");
}

class Modes : public Questions {};

TEST_F(Modes, AtMostOneIsOnAndEditModeShapesTheGraph) {
  load(writeFile("a.wav", sine(48000.0, 2, 0.3, 440.0, 0.5)));
  QSignalSpy edit(engine.get(), &AudioEngine::isEditModeChanged);
  QSignalSpy chapter(engine.get(), &AudioEngine::isChapterModeChanged);
  engine->setIsEditMode(true);
  EXPECT_TRUE(engine->isEditMode());
  EXPECT_TRUE(engine->transport().controller().editMode());
  engine->setIsEditMode(true);
  EXPECT_EQ(edit.count(), 1);
  engine->setIsChapterMode(true);
  EXPECT_TRUE(engine->isChapterMode());
  EXPECT_FALSE(engine->isEditMode());
  EXPECT_FALSE(engine->transport().controller().editMode());
  EXPECT_EQ(edit.count(), 2);
  for (auto mode : {AudioEngine::Mode::dialogue, AudioEngine::Mode::spectral, AudioEngine::Mode::record,
                    AudioEngine::Mode::compare, AudioEngine::Mode::edit}) {
    ASSERT_TRUE(engine->setMode(mode, true));
    int on = 0;
    for (auto other : {AudioEngine::Mode::edit, AudioEngine::Mode::compare, AudioEngine::Mode::chapter,
                       AudioEngine::Mode::dialogue, AudioEngine::Mode::spectral, AudioEngine::Mode::record}) {
      on += engine->isModeOn(other) ? 1 : 0;
    }
    EXPECT_EQ(on, 1);
    EXPECT_TRUE(engine->isModeOn(mode));
  }
  EXPECT_EQ(chapter.count(), 2);
}

TEST_F(Modes, SpectralModeNeedsAFileAndClearsTheSelectionBothWays) {
  EXPECT_FALSE(engine->setMode(AudioEngine::Mode::spectral, true));
  EXPECT_FALSE(engine->isSpectralMode());
  load(writeFile("a.wav", sine(48000.0, 2, 1.0, 440.0, 0.5)));
  engine->transport().setSelection(PlaybackSelection{0.2, 0.4});
  EXPECT_TRUE(engine->setMode(AudioEngine::Mode::spectral, true));
  EXPECT_FALSE(engine->transport().selection());
  engine->transport().setSelection(PlaybackSelection{0.1, 0.3});
  engine->setIsEditMode(true);
  EXPECT_FALSE(engine->isSpectralMode());
  EXPECT_FALSE(engine->transport().selection());
}

TEST_F(Modes, WithTwoSlotsOnlyCompareModeMayComeOn) {
  LandingLog log(*engine);
  engine->openURLs({url(writeFile("a.wav", sine(48000.0, 2, 0.3, 440.0, 0.5))),
                    url(writeFile("b.wav", sine(48000.0, 2, 0.4, 440.0, 0.5)))});
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::compareSlot) == 1; }));
  EXPECT_TRUE(engine->isCompareMode());
  for (auto mode : {AudioEngine::Mode::edit, AudioEngine::Mode::chapter, AudioEngine::Mode::dialogue,
                    AudioEngine::Mode::spectral, AudioEngine::Mode::record}) {
    EXPECT_FALSE(engine->setMode(mode, true));
    EXPECT_FALSE(engine->isModeOn(mode));
    EXPECT_TRUE(engine->isCompareMode());
  }
}

TEST_F(Modes, CompareModeAsksBeforeItSetsUnsavedEditsAside) {
  load(writeFile("a.wav", sine(48000.0, 2, 0.3, 440.0, 0.5)));
  engine->setIsEditMode(true);
  work->dirty = true;
  user->answers = {2};
  EXPECT_FALSE(engine->setMode(AudioEngine::Mode::compare, true));
  EXPECT_TRUE(engine->isEditMode());
  EXPECT_EQ(user->seen.back(), (SessionAlert{SessionAlert::Style::warning, "Unsaved Edits",
                                             "Comparing files sets the edited audio aside. Save it first, discard your "
                                             "edits, or cancel?",
                                             {"Save…", "Discard", "Cancel"}}));
  user->answers = {0};
  EXPECT_FALSE(engine->setMode(AudioEngine::Mode::compare, true));
  user->answers = {1};
  EXPECT_TRUE(engine->setMode(AudioEngine::Mode::compare, true));
  EXPECT_FALSE(engine->isEditMode());
}

class Road : public Questions {};

TEST_F(Road, FilesThatArriveBeforeTheSessionOpenOnceItRegisters) {
  const std::string first = writeFile("first.wav", sine(48000.0, 2, 0.3, 440.0, 0.5));
  const std::string second = writeFile("second.wav", sine(48000.0, 2, 0.3, 220.0, 0.5));
  CorvaneAppBridge& bridge = CorvaneAppBridge::shared();
  bridge.registerEngine(nullptr);
  bridge.openURLs({url(first), url(second)});
  EXPECT_EQ(bridge.pendingOpenURLs().size(), 2);

  AudioEngineOptions options = engineOptions();
  options.registerWithBridge = true;
  AudioEngine registered(options);
  EXPECT_EQ(bridge.engine(), &registered);
  EXPECT_TRUE(bridge.pendingOpenURLs().isEmpty());
  EXPECT_EQ(registered.fileLoadEpoch(), 1u);
  LandingLog log(registered);
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::compareSlot) == 1; }));
  EXPECT_EQ(registered.loadedFile()->url, first);
  EXPECT_EQ(registered.compare().compareSlots()[1].url, second);
  waitForBackgroundWork();
}

TEST_F(Road, ARememberedRawFormatOpensTheFileWithoutTheSheetAndCanBeReinterpreted) {
  // Headerless 16-bit stereo: 1000 frames of a ramp.
  const std::string path = folder.file("capture.raw");
  {
    std::ofstream out(path, std::ios::binary);
    for (int i = 0; i < 2000; ++i) {
      const std::int16_t sample = static_cast<std::int16_t>(i * 8);
      out.write(reinterpret_cast<const char*>(&sample), 2);
    }
  }
  RawPCMFormat format;
  format.sampleRate = 8000.0;
  format.channelCount = 2;
  format.encoding = RawPCMFormat::Encoding::s16;
  engine->setRawFormatMemory([&](const std::filesystem::path& file) -> std::optional<RawPCMFormat> {
    if (file == path) return format;
    return std::nullopt;
  });
  LandingLog log(*engine);
  engine->openURLs({url(path)});
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::decoded) == 1; }));
  EXPECT_FALSE(engine->pendingRawImport());
  ASSERT_TRUE(engine->loadedFile()->rawFormat);
  EXPECT_EQ(*engine->loadedFile()->rawFormat, format);
  EXPECT_EQ(engine->loadedFile()->totalFrames, 1000);
  EXPECT_EQ(engine->pcmBuffer()->channel(1)[10], 21 * 8 / 32768.0f);

  engine->requestRawReinterpret();
  ASSERT_TRUE(engine->pendingRawImport());
  EXPECT_EQ(engine->pendingRawImport()->prefill, format);
  EXPECT_EQ(engine->pendingRawImport()->fileSize, 4000);
  EXPECT_FALSE(engine->pendingRawImport()->note);
}

}  // namespace
}  // namespace corvane::test
