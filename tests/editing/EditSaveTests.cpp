// Saving edited audio on a live session with real files: Save over the loaded file behind its
// setting and confirmation (the format kept, judged by sox), Save As to a new file in the
// source's encoding, the refusals and their texts, and the save step of the leave-session
// questions.
#include <fstream>
#include <iterator>

#include "EditingTestSupport.h"
#include "compare/CompareModel.h"
#include "editing/EditCommands.h"
#include "headless/files/AudioFileModel.h"
#include "session/SettingsStore.h"

namespace corvane::test {
namespace {

// A user who may also tick the alert's check box.
class TickingUser : public ScriptedUser {
 public:
  bool suppressionChecked() const override { return tick; }
  bool tick = false;
};

class EditSave : public EditingTest {
 protected:
  void SetUp() override {
    EditingTest::SetUp();
    user = ticking;
  }
  // A 24-bit stereo WAV made by sox, loaded, with one gain edit.
  std::unique_ptr<AudioEngine> editedSession(const std::string& name = "take.wav") {
    const std::string path = folder.file(name);
    const CommandResult made =
        runCommand("sox -V1 -R -n -r 48000 -b 24 -c 2 '" + path + "' synth 1 pinknoise vol 0.3 2>&1");
    EXPECT_EQ(made.exitCode, 0) << made.output;
    lastPath = path;
    auto engine = makeEngine();
    LandingLog log(*engine);
    engine->loadFile(url(path));
    EXPECT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) == 1; }));
    engine->editEngine().setSaveLocationChooser([this](const EditEngine::SaveRequest& request) {
      requests.push_back(request);
      return nextLocation;
    });
    EditCommands(*engine).applyGain({0, 48000}, -3.0, std::nullopt);
    return engine;
  }
  static std::string soxInfo(const std::string& path, const char* option) {
    return runCommand("sox --i " + std::string(option) + " '" + path + "'").output;
  }
  static std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // The live samples as a 24-bit file stores them: within half a step of 2^-23.
  static void expectSamplesOf(const std::string& path, AudioEngine& engine) {
    const SharedAudioBuffer written = AudioFileModel::decode(path);
    const ChannelData live = liveSamples(engine);
    ASSERT_EQ(written->frameLength(), static_cast<FrameCount>(live[0].size()));
    for (int c = 0; c < 2; ++c) {
      for (std::size_t i = 0; i < live[0].size(); i += 7) {
        ASSERT_NEAR(written->channel(c)[i], live[static_cast<std::size_t>(c)][i], 0.6 / 8388608.0) << i;
      }
    }
  }

  std::shared_ptr<TickingUser> ticking = std::make_shared<TickingUser>();
  std::vector<EditEngine::SaveRequest> requests;
  std::optional<std::filesystem::path> nextLocation;
};

TEST_F(EditSave, SaveAsWritesTheSourceEncodingAndBindsTheSessionToTheNewFile) {
  auto engine = editedSession();
  EditEngine& edits = engine->editEngine();
  const SharedAudioBuffer buffer = engine->pcmBuffer();
  const std::string original = bytesOf(lastPath);

  // Without the overwrite setting, Save is Save As; a cancelled panel changes nothing.
  edits.saveEditedBufferInPlace();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].title, "Save Edited Audio");
  EXPECT_EQ(requests[0].proposedName, "take_edited.wav");
  EXPECT_EQ(requests[0].directory, std::filesystem::path(folder.path()));
  EXPECT_TRUE(edits.isDirty());

  nextLocation = folder.file("delivered.wav");
  edits.exportEditedBuffer();
  EXPECT_EQ(soxInfo(*nextLocation, "-b"), "24\n");
  EXPECT_EQ(soxInfo(*nextLocation, "-s"), "48000\n");
  expectSamplesOf(*nextLocation, *engine);
  EXPECT_EQ(bytesOf(lastPath), original);
  // Bound to the new file, with the same buffer, no history and nothing unsaved.
  EXPECT_EQ(engine->loadedFile()->url, *nextLocation);
  EXPECT_EQ(engine->loadedFile()->name, "delivered");
  EXPECT_EQ(engine->loadedFile()->fileFormat, "WAV");
  EXPECT_EQ(engine->loadedFile()->bitDepth, 24);
  EXPECT_EQ(engine->pcmBuffer(), buffer);
  EXPECT_FALSE(edits.isDirty());
  EXPECT_EQ(edits.undoDepth(), 0);
  EXPECT_TRUE(snapshotFiles().empty());
  EXPECT_EQ(engine->compare().compareSlots()[0].url, *nextLocation);
  EXPECT_FALSE(edits.editConfirmation());
}

TEST_F(EditSave, SaveAsOverTheLoadedFileIsRefusedWithTheSettingsWords) {
  auto engine = editedSession();
  const std::string original = bytesOf(lastPath);
  nextLocation = lastPath;
  engine->editEngine().exportEditedBuffer();
  store->setCorvaneAllowSaveOverwrite(true);
  engine->editEngine().exportEditedBuffer();
  ASSERT_EQ(user->seen.size(), 2u);
  EXPECT_EQ(user->seen[0].messageText, "Cannot overwrite the original file");
  EXPECT_EQ(user->seen[0].informativeText,
            "Save As always writes a new file. To save over the loaded file instead, turn on Settings → Editing → "
            "Allow Save to overwrite the original file, then use Save (Ctrl+S). Otherwise choose a different name or "
            "location.");
  EXPECT_EQ(user->seen[1].informativeText,
            "Save As always writes a new file. To replace the loaded file with the edited audio, use Save (Ctrl+S) "
            "instead, or choose a different name or location.");
  EXPECT_EQ(bytesOf(lastPath), original);
  EXPECT_TRUE(engine->editEngine().isDirty());
}

TEST_F(EditSave, SaveOverTheFileKeepsItsFormatAndEndsTheReachOfUndo) {
  auto engine = editedSession();
  EditEngine& edits = engine->editEngine();
  store->setCorvaneAllowSaveOverwrite(true);
  EXPECT_EQ(edits.sessionPromptSaveTitle(), "Save…");

  // Cancel first: nothing happens; "Don't ask again" counts only with Save.
  ticking->answers = {2};
  ticking->tick = true;
  edits.saveEditedBufferInPlace();
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "Save over \"take.wav\"?");
  EXPECT_EQ(user->seen[0].informativeText,
            "The file on disk will be replaced with the edited audio, keeping its format. The original can't be "
            "recovered afterwards: Undo and Discard Edits only reach back to this save.");
  EXPECT_EQ(user->seen[0].buttons, (QStringList{"Save", "Save As…", "Cancel"}));
  EXPECT_EQ(user->seen[0].suppressionTitle, "Don't ask again");
  EXPECT_TRUE(store->corvaneConfirmSaveOverwrite());
  EXPECT_TRUE(edits.isDirty());

  ticking->answers = {0};
  edits.saveEditedBufferInPlace();
  EXPECT_FALSE(store->corvaneConfirmSaveOverwrite());
  EXPECT_EQ(soxInfo(lastPath, "-b"), "24\n");
  EXPECT_EQ(soxInfo(lastPath, "-t"), "wav\n");
  expectSamplesOf(lastPath, *engine);
  EXPECT_FALSE(edits.isDirty());
  EXPECT_EQ(edits.undoDepth(), 0);
  ASSERT_TRUE(edits.editConfirmation());
  EXPECT_EQ(edits.editConfirmation()->text, "Saved over take.wav");
  EXPECT_EQ(edits.sessionPromptSaveTitle(), "Save");

  // The next save asks nothing, and a quit prompt's save step saves in place.
  EditCommands(*engine).applyGain({0, 100}, 1.0, std::nullopt);
  ticking->answers = {0};
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  ASSERT_EQ(user->seen.size(), 3u);
  EXPECT_EQ(user->seen[2].informativeText,
            "The audio has edits that haven't been saved. Save them over take.wav, or quit and lose them?");
  EXPECT_EQ(user->seen[2].buttons[0], "Save");
  EXPECT_FALSE(edits.isDirty());
  expectSamplesOf(lastPath, *engine);
}

TEST_F(EditSave, FilesThatCannotBeRewrittenBlockSaveWithTheirReason) {
  // FLAC bytes under a .wav name, and a FLAC under its own name.
  const std::string flac = folder.file("source.flac");
  ASSERT_EQ(runCommand("sox -V1 -R -n -r 44100 -b 16 -c 2 '" + flac + "' synth 1 sine 440 vol 0.3").exitCode, 0);
  std::filesystem::copy_file(flac, folder.file("misnamed.wav"));
  store->setCorvaneAllowSaveOverwrite(true);

  for (const auto& [name, expected] :
       {std::pair<std::string, QString>{"misnamed.wav",
                                        "This file is FLAC inside, whatever its name says. Corvane writes WAV, AIFF, "
                                        "and CAF in place; use Save As to write a new file."},
        std::pair<std::string, QString>{"source.flac",
                                        "Corvane writes WAV, AIFF, and CAF in place. FLAC files are saved as a new "
                                        "file with Save As."}}) {
    SCOPED_TRACE(name);
    auto engine = makeEngine();
    LandingLog log(*engine);
    engine->loadFile(url(folder.file(name)));
    ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::decoded) == 1; }));
    EditEngine& edits = engine->editEngine();
    EXPECT_EQ(edits.inPlaceSaveBlocker(), expected);
    EXPECT_EQ(edits.sessionPromptSaveTitle(), "Save…");
    EditCommands(*engine).applyGain({0, 100}, 1.0, std::nullopt);
    const std::string before = bytesOf(folder.file(name));
    user->seen.clear();
    ticking->answers = {1};
    edits.saveEditedBufferInPlace();
    ASSERT_EQ(user->seen.size(), 1u);
    EXPECT_EQ(user->seen[0].messageText, "Can't save over this file");
    EXPECT_EQ(user->seen[0].informativeText, expected);
    EXPECT_EQ(bytesOf(folder.file(name)), before);
    EXPECT_TRUE(edits.isDirty());
  }
}

TEST_F(EditSave, ACancelledSaveInAQuitPromptKeepsTheSession) {
  auto engine = editedSession();
  ticking->answers = {0};  // "Save…", then the panel is cancelled
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
  EXPECT_EQ(requests.size(), 1u);
  EXPECT_TRUE(engine->editEngine().isDirty());
  ticking->answers = {1};  // "Quit Without Saving"
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::quit()));
}

}  // namespace
}  // namespace corvane::test
