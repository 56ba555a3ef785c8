// The edit history on a live session: snapshots on disk that restore bit-exactly, the depth
// of 16, the deletion of every snapshot file that leaves the history, the purge at start-up,
// the dirty rule, Discard and the session's questions about unsaved edits.
#include <QSignalSpy>
#include <fstream>

#include "EditingTestSupport.h"
#include "headless/TemporaryFiles.h"
#include "headless/edits/EditOperations.h"
#include "playback/Transport.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;

class EditHistory : public EditingTest {};

void gainInPlace(EditEngine& edits, double gainDB, FrameCount start, FrameCount end) {
  edits.applyInPlaceEdit(start, end, std::nullopt,
                         [gainDB](float* const* d, int n, FrameCount total, FrameCount s, FrameCount e) {
                           return Ops::changeLevelInPlace(d, n, total, gainDB, s, e);
                         });
}

TEST_F(EditHistory, UndoAndRedoRestoreEveryStateBitExactlyAfterMixedEdits) {
  // 24-bit-like material is irrelevant here: the snapshot holds the float buffer itself, so
  // values that no 24-bit file could hold (tiny, beyond full scale) must come back unchanged.
  Planar signal = programme(48000.0, 2, 2.0, 7);
  signal.channels[0][100] = 1.75f;
  signal.channels[1][200] = 1.0e-38f;
  auto engine = loadSession(signal);
  EditEngine& edits = engine->editEngine();

  std::vector<ChannelData> states{liveSamples(*engine)};
  std::vector<FrameCount> lengths{engine->pcmBuffer()->frameLength()};
  auto remember = [&] {
    states.push_back(liveSamples(*engine));
    lengths.push_back(engine->pcmBuffer()->frameLength());
  };

  gainInPlace(edits, -3.5, 1000, 50000);
  remember();
  edits.applyEdit(QStringLiteral("Cut"), [](const ChannelData& d, double rate) {
    return Ops::cutRange(d, 20000, 30000, 480, rate);
  });
  remember();
  edits.applyInPlaceEdit(0, 24000, std::nullopt, [](float* const* d, int n, FrameCount t, FrameCount s, FrameCount e) {
    return Ops::fadeInPlace(d, n, t, Ops::FadeDirection::fadeIn, Ops::FadeCurve::log, s, e);
  });
  remember();
  edits.applyEdit(std::nullopt, [](const ChannelData& d, double rate) {
    return Ops::addSilence(d, 5000, 5000, Ops::SilenceMode::before, 7777, rate);
  });
  remember();
  edits.applyRangeEdit(40000, 60000, std::nullopt, [](const ChannelData& d, double rate) {
    return Ops::normalizePeak(d, -6.0, rate);
  });
  remember();
  edits.applyStreamingRebuild(Ops::kTrimTag, QStringLiteral("Couldn't trim this file"), std::nullopt,
                              [](EditSource& source, const std::filesystem::path& to) {
                                return Ops::writeTrimmedWAV(source, 3000, 70000, to, 4096);
                              });
  remember();

  ASSERT_EQ(states.size(), 7u);
  for (std::size_t i = 1; i < states.size(); ++i) EXPECT_FALSE(sameBits(states[i], states[i - 1])) << "edit " << i;
  EXPECT_EQ(lengths[2], lengths[1] - 10000);
  EXPECT_EQ(lengths[4], lengths[3] + 7777);
  EXPECT_EQ(lengths[6], 67000);
  EXPECT_EQ(edits.undoDepth(), 6);
  EXPECT_EQ(snapshotFiles().size(), 6u);
  EXPECT_TRUE(edits.isDirty());

  for (std::size_t i = states.size() - 1; i > 0; --i) {
    edits.undoLastEdit();
    EXPECT_TRUE(sameBits(liveSamples(*engine), states[i - 1])) << "undo to state " << i - 1;
    EXPECT_EQ(engine->loadedFile()->pcmBuffer, engine->pcmBuffer());
    EXPECT_DOUBLE_EQ(engine->transport().duration(), static_cast<double>(lengths[i - 1]) / 48000.0);
  }
  EXPECT_EQ(edits.undoDepth(), 0);
  EXPECT_EQ(edits.redoDepth(), 6);
  // Edited since the load, even though the samples are back to the file's.
  EXPECT_TRUE(edits.isDirty());
  EXPECT_TRUE(sameBits(liveSamples(*engine), toChannels(signal)));
  // An undo with nothing left changes nothing: playback goes on, the selection stays.
  const auto epoch = engine->bufferEpoch();
  engine->transport().setSelection(PlaybackSelection{0.1, 0.3});
  engine->transport().play();
  edits.undoLastEdit();
  EXPECT_EQ(engine->bufferEpoch(), epoch);
  EXPECT_TRUE(engine->transport().isPlaying());
  EXPECT_TRUE(engine->transport().selection());
  engine->transport().stop();
  engine->transport().setSelection(std::nullopt);

  for (std::size_t i = 1; i < states.size(); ++i) {
    edits.redoLastEdit();
    EXPECT_TRUE(sameBits(liveSamples(*engine), states[i])) << "redo to state " << i;
  }
  EXPECT_EQ(edits.undoDepth(), 6);
  EXPECT_EQ(edits.redoDepth(), 0);
  EXPECT_EQ(snapshotFiles().size(), 6u);
}

TEST_F(EditHistory, SeventeenEditsKeepSixteenSnapshotsAndEveryFileLeavesWithItsEntry) {
  auto engine = loadSession(sine(48000.0, 2, 1.0, 440.0, 0.25));
  EditEngine& edits = engine->editEngine();

  gainInPlace(edits, -1.0, 0, 48000);
  ASSERT_EQ(edits.undoDepth(), 1);
  const std::filesystem::path first = edits.undoStack().front().url;
  EXPECT_TRUE(first.filename().string().starts_with("corvane-undo-"));
  EXPECT_EQ(first.extension(), ".wav");
  EXPECT_EQ(first.parent_path(), privateTemporaryDirectory());
  for (int i = 1; i < 17; ++i) gainInPlace(edits, -0.1, 0, 48000);

  EXPECT_EQ(edits.undoDepth(), 16);
  EXPECT_EQ(snapshotFiles().size(), 16u);
  EXPECT_FALSE(std::filesystem::exists(first));
  // The snapshot holds the description without the audio, which lives only on disk.
  EXPECT_FALSE(edits.undoStack().back().model.pcmBuffer);

  // Undo moves one snapshot to the other stack: the popped file is gone, a new one is made.
  const std::filesystem::path newest = edits.undoStack().back().url;
  edits.undoLastEdit();
  EXPECT_FALSE(std::filesystem::exists(newest));
  EXPECT_EQ(edits.undoDepth(), 15);
  EXPECT_EQ(edits.redoDepth(), 1);
  EXPECT_EQ(snapshotFiles().size(), 16u);

  // Undo, redo: redo pushes onto the undo stack without clearing what undo left.
  edits.undoLastEdit();
  edits.redoLastEdit();
  EXPECT_EQ(edits.undoDepth(), 15);
  EXPECT_EQ(edits.redoDepth(), 1);

  // A new edit clears the redo stack, files and all.
  const std::filesystem::path redoFile = edits.redoStack().front().url;
  gainInPlace(edits, 1.0, 0, 100);
  EXPECT_EQ(edits.redoDepth(), 0);
  EXPECT_FALSE(std::filesystem::exists(redoFile));
  EXPECT_EQ(snapshotFiles().size(), 16u);

  // A load resets the history: no snapshot is left, and the dirty flag goes.
  LandingLog log(*engine);
  engine->loadFile(url(lastPath));
  EXPECT_TRUE(snapshotFiles().empty());
  EXPECT_EQ(edits.undoDepth(), 0);
  EXPECT_FALSE(edits.isDirty());
  ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::decoded) == 1; }));
}

TEST_F(EditHistory, ASnapshotThatCannotBeReadBackUndoesNothingAndIsGone) {
  auto engine = loadSession(sine(48000.0, 1, 1.0, 440.0, 0.25));
  EditEngine& edits = engine->editEngine();
  gainInPlace(edits, -6.0, 0, 48000);
  const ChannelData edited = liveSamples(*engine);
  const auto broken = edits.undoStack().back().url;
  { std::ofstream(broken, std::ios::trunc) << "not audio"; }
  const auto epoch = engine->bufferEpoch();

  edits.undoLastEdit();
  EXPECT_TRUE(sameBits(liveSamples(*engine), edited));
  EXPECT_EQ(engine->bufferEpoch(), epoch);
  EXPECT_FALSE(std::filesystem::exists(broken));
  EXPECT_EQ(edits.undoDepth(), 0);
  // The current state went onto the redo stack before the read failed, and stays there.
  EXPECT_EQ(edits.redoDepth(), 1);
  edits.redoLastEdit();
  EXPECT_TRUE(sameBits(liveSamples(*engine), edited));
}

TEST_F(EditHistory, TheStartUpPurgeRemovesOnlySnapshotFiles) {
  // A session that runs (another window of the same user) keeps its snapshots.
  auto running = loadSession(sine(48000.0, 1, 0.5, 440.0, 0.25));
  gainInPlace(running->editEngine(), -1.0, 0, 100);
  const std::filesystem::path live = running->editEngine().undoStack().back().url;
  const auto folder = privateTemporaryDirectory();
  for (const char* name : {"corvane-undo-x", "corvane-undo-3F2504E0.wav", "corvane-trim-x.wav", "notes.txt",
                           "corvane-undo"}) {
    std::ofstream(folder / name) << "leftover";
  }
  std::filesystem::create_directory(folder / "CorvaneChainRenders");
  auto engine = makeEngine();
  const auto names = temporaryFileNames();
  auto has = [&](const std::string& n) { return std::find(names.begin(), names.end(), n) != names.end(); };
  EXPECT_FALSE(has("corvane-undo-x"));
  EXPECT_FALSE(has("corvane-undo-3F2504E0.wav"));
  EXPECT_TRUE(has("corvane-trim-x.wav"));
  EXPECT_TRUE(has("notes.txt"));
  EXPECT_TRUE(has("corvane-undo"));
  EXPECT_TRUE(has("CorvaneChainRenders"));
  EXPECT_TRUE(std::filesystem::exists(live));
  running->editEngine().undoLastEdit();
  EXPECT_EQ(running->editEngine().redoDepth(), 1);
  running.reset();
  EXPECT_FALSE(std::filesystem::exists(live));
  for (const char* name : {"corvane-trim-x.wav", "notes.txt", "corvane-undo"}) std::filesystem::remove(folder / name);
  std::filesystem::remove(folder / "CorvaneChainRenders");
}

TEST_F(EditHistory, DiscardAsksOnlyWhenEditedAndReloadsTheFile) {
  const Planar signal = sine(48000.0, 2, 1.0, 1000.0, 0.5);
  auto engine = loadSession(signal);
  EditEngine& edits = engine->editEngine();

  edits.discardSessionEdits();
  EXPECT_TRUE(user->seen.empty());

  gainInPlace(edits, 6.0, 0, 48000);
  user->answers = {1};  // Cancel
  edits.discardSessionEdits();
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "Discard Edits");
  EXPECT_EQ(user->seen[0].informativeText, "Revert to the last saved version? Unsaved edits will be lost.");
  EXPECT_EQ(user->seen[0].buttons, (QStringList{"Discard", "Cancel"}));
  EXPECT_TRUE(edits.isDirty());
  EXPECT_EQ(edits.undoDepth(), 1);

  user->answers = {0};
  LandingLog log(*engine);
  edits.discardSessionEdits();
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(snapshotFiles().empty());
  ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::decoded) == 1; }));
  EXPECT_TRUE(sameBits(liveSamples(*engine), toChannels(signal)));
}

TEST_F(EditHistory, TheSessionAsksAboutUnsavedEditsThroughTheHistory) {
  auto engine = loadSession(sine(48000.0, 2, 1.0, 1000.0, 0.5));
  const std::string other = writeFile("other.wav", sine(48000.0, 2, 0.5, 500.0, 0.5));
  QSignalSpy dirty(&engine->editEngine(), &EditEngine::isDirtyChanged);
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::open("other.wav")));
  EXPECT_TRUE(user->seen.empty());

  gainInPlace(engine->editEngine(), 1.0, 0, 10);
  EXPECT_EQ(dirty.count(), 1);
  user->answers = {2};  // Cancel
  EXPECT_FALSE(engine->confirmReplaceSession(SessionReplaceAction::open("other.wav")));
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "Unsaved Edits");
  user->answers = {1};  // Discard Edits
  EXPECT_TRUE(engine->confirmReplaceSession(SessionReplaceAction::open("other.wav")));
}

}  // namespace
}  // namespace corvane::test
