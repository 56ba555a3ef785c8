// The roads of an edit on a live session: what each does to the history, the session, the
// render side and playback; their failure texts word for word; the memory figures that turn
// a rebuild away; the confirmation toast.
#include <QSignalSpy>
#include <fstream>

#include "EditingTestSupport.h"
#include "compare/CompareModel.h"
#include "dialogue/DialogueModel.h"
#include "headless/TemporaryFiles.h"
#include "headless/edits/EditOperations.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/PCMWriteSettings.h"
#include "measurement/FileAnalysis.h"
#include "playback/Transport.h"
#include "session/BackgroundWork.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;

class EditRoads : public EditingTest {
 protected:
  std::unique_ptr<AudioEngine> session(double seconds = 2.0, int channels = 2) {
    auto engine = loadSession(programme(48000.0, channels, seconds, 11));
    engine->setOnEditFailure([this](const QString& text) { failures.push_back(text); });
    return engine;
  }
  // Memory figures under which a rebuild of `bytes` decoded bytes does not fit, while a load
  // of the result still does.
  static void tooSmallForRebuild(std::int64_t bytes) {
    AudioLoadLimits::setFiguresForTesting(MemoryFigures{bytes * 8, bytes * 2});
  }
  QStringList failures;
};

EditEngine::RebuildOperation cut(FrameCount start, FrameCount end, FrameCount crossfade) {
  return [=](const ChannelData& d, double rate) { return Ops::cutRange(d, start, end, crossfade, rate); };
}

TEST_F(EditRoads, ARebuildSwapsTheBufferThroughTheSessionAndTheRenderSide) {
  auto engine = session();
  EditEngine& edits = engine->editEngine();
  const ChannelData before = liveSamples(*engine);
  const SharedAudioBuffer oldBuffer = engine->pcmBuffer();
  engine->transport().setSelection(PlaybackSelection{0.2, 0.4});
  engine->transport().placePlayhead(1.0);
  ASSERT_TRUE(engine->analysis().fileLoudnessCurve());
  const auto epoch = engine->bufferEpoch();
  QSignalSpy buffers(engine.get(), &AudioEngine::pcmBufferChanged);
  QSignalSpy confirmations(&edits, &EditEngine::editConfirmationChanged);

  edits.applyEdit(QStringLiteral("Cut 0.50s"), cut(48000, 72000, 0));

  // A hard cut is the two sides joined, sample for sample.
  const ChannelData after = liveSamples(*engine);
  ASSERT_EQ(after[0].size(), 96000u - 24000u);
  for (std::size_t c = 0; c < 2; ++c) {
    std::vector<float> expected(before[c].begin(), before[c].begin() + 48000);
    expected.insert(expected.end(), before[c].begin() + 72000, before[c].end());
    EXPECT_EQ(after[c], expected);
  }
  EXPECT_GT(engine->bufferEpoch(), epoch);
  EXPECT_EQ(buffers.count(), 1);
  EXPECT_NE(engine->pcmBuffer(), oldBuffer);
  EXPECT_EQ(engine->loadedFile()->totalFrames, 72000);
  EXPECT_DOUBLE_EQ(engine->loadedFile()->duration, 1.5);
  EXPECT_EQ(engine->loadedFile()->url, std::filesystem::path(lastPath));
  // The render side plays the new buffer from its next run.
  const SourceSnapshot* source = engine->transport().mirrors()._atomicSource.current();
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->buffer, engine->pcmBuffer());
  EXPECT_EQ(source->totalFrames, 72000);
  EXPECT_DOUBLE_EQ(engine->transport().duration(), 1.5);
  // Playhead, selection and the figures of the old audio are gone.
  EXPECT_EQ(engine->transport().controller().playbackFrame(), 0);
  EXPECT_FALSE(engine->transport().selection());
  EXPECT_FALSE(engine->analysis().fileLoudnessCurve());
  EXPECT_EQ(engine->analysis().fileSamplePeakDB(), -std::numeric_limits<float>::infinity());
  // Slot 0 is the edited file, measured anew.
  ASSERT_EQ(engine->compare().compareSlots().size(), 1u);
  EXPECT_EQ(engine->compare().compareSlots()[0].buffer, engine->pcmBuffer());
  EXPECT_FALSE(engine->compare().compareSlots()[0].metrics);
  EXPECT_TRUE(edits.isDirty());
  ASSERT_TRUE(edits.editConfirmation());
  EXPECT_EQ(edits.editConfirmation()->text, "Cut 0.50s");
  EXPECT_EQ(confirmations.count(), 1);
  EXPECT_TRUE(failures.isEmpty());
}

TEST_F(EditRoads, TheStreamingRoadGivesTheSamplesOfTheRebuildAndLeavesNoTemporaryFile) {
  auto memory = session(3.0);
  memory->editEngine().applyEdit(std::nullopt, cut(30000, 90000, 960));
  const ChannelData inMemory = liveSamples(*memory);
  memory.reset();

  auto engine = session(3.0);
  const ChannelData original = liveSamples(*engine);
  const std::int64_t bytes = Ops::decodedBytes(144000, 2);
  tooSmallForRebuild(bytes);
  EXPECT_FALSE(AudioLoadLimits::rebuildEditFits(bytes));
  EditEngine& edits = engine->editEngine();

  // Where the rebuild does not fit, applyEdit refuses with its text and changes nothing.
  edits.applyEdit(std::nullopt, cut(30000, 90000, 960));
  ASSERT_EQ(failures.size(), 1);
  EXPECT_EQ(failures[0],
            "This file is too large to apply that edit in memory. Fades, gain, phase, and DC removal work on any size; "
            "for trim, silence, or normalize on a file this large, save a trimmed copy first.");
  EXPECT_EQ(edits.undoDepth(), 0);
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  const auto epoch = engine->bufferEpoch();
  edits.applyStreamingRebuild(Ops::kCutTag, QStringLiteral("Couldn't cut this file"), QStringLiteral("Cut"),
                              [](EditSource& source, const std::filesystem::path& to) {
                                return Ops::writeCutWAV(source, 30000, 90000, 960, to, Ops::kStreamingChunkFrames);
                              });
  EXPECT_EQ(failures.size(), 1);
  EXPECT_TRUE(sameBits(liveSamples(*engine), inMemory));
  EXPECT_GT(engine->bufferEpoch(), epoch);
  EXPECT_EQ(edits.undoDepth(), 1);
  EXPECT_TRUE(edits.isDirty());
  for (const std::string& name : temporaryFileNames()) EXPECT_FALSE(name.starts_with("corvane-cut-")) << name;
  edits.undoLastEdit();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
}

TEST_F(EditRoads, FailuresLeaveTheAudioAndHistoryAsTheyWereAndSayWhy) {
  auto engine = session();
  EditEngine& edits = engine->editEngine();
  const ChannelData original = liveSamples(*engine);

  // A write that fails midway: its partial file goes, the text names the command's failure.
  std::filesystem::path written;
  edits.applyStreamingRebuild(Ops::kNormalizeTag, QStringLiteral("Couldn't normalize this file"), std::nullopt,
                              [&](EditSource&, const std::filesystem::path& to) -> bool {
                                written = to;
                                std::ofstream(to) << "partial";
                                throw AudioWriteError("The disk is full.");
                              });
  ASSERT_EQ(failures.size(), 1);
  EXPECT_EQ(failures[0], "Couldn't normalize this file: The disk is full.");
  EXPECT_TRUE(written.filename().string().starts_with("corvane-normalize-"));
  EXPECT_FALSE(std::filesystem::exists(written));
  EXPECT_EQ(edits.undoDepth(), 0);

  // A rebuild that runs out of memory.
  edits.applyEdit(std::nullopt, [](const ChannelData&, double) -> Ops::EditResult { throw std::bad_alloc(); });
  ASSERT_EQ(failures.size(), 2);
  EXPECT_EQ(failures[1],
            "There isn't enough memory to apply this edit to a file this large. Try editing a shorter selection, or "
            "save a trimmed copy first.");

  // Without a handler, the alert.
  engine->setOnEditFailure(nullptr);
  AudioLoadLimits::setFiguresForTesting(MemoryFigures{0, 0});
  edits.applyEdit(std::nullopt, cut(0, 10, 0));
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "Couldn't apply the edit");
  EXPECT_TRUE(user->seen[0].informativeText.startsWith("This file is too large"));
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
  EXPECT_EQ(edits.undoDepth(), 0);
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(snapshotFiles().empty());
}

TEST_F(EditRoads, NothingToDoRecordsNothing) {
  auto engine = session();
  EditEngine& edits = engine->editEngine();
  const auto epoch = engine->bufferEpoch();
  bool ran = false;
  auto gain = [&](float* const* d, int n, FrameCount t, FrameCount s, FrameCount e) {
    ran = true;
    return Ops::changeLevelInPlace(d, n, t, 3.0, s, e);
  };
  edits.applyInPlaceEdit(96000, 200000, std::nullopt, gain);  // wholly after the end
  edits.applyInPlaceEdit(-50, 0, std::nullopt, gain);
  edits.applyInPlaceEdit(500, 500, std::nullopt, gain);
  edits.applyRangeEdit(100, 50, std::nullopt, [](const ChannelData& d, double r) { return Ops::normalizePeak(d, 0, r); });
  EXPECT_FALSE(ran);
  // Operations that find nothing to change: a cut of the whole file, a peak normalize of silence.
  edits.applyEdit(std::nullopt, cut(0, 96000, 0));
  edits.applyStreamingRebuild(Ops::kCutTag, QStringLiteral("Couldn't cut this file"), std::nullopt,
                              [](EditSource& s, const std::filesystem::path& to) {
                                return Ops::writeCutWAV(s, -5, 1 << 20, 0, to, Ops::kStreamingChunkFrames);
                              });
  edits.applyRangeEdit(0, 10, std::nullopt, [](const ChannelData& d, double r) {
    return Ops::normalizePeak(ChannelData(d.size(), std::vector<float>(d[0].size(), 0.0f)), -1.0, r);
  });
  EXPECT_EQ(edits.undoDepth(), 0);
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(snapshotFiles().empty());
  EXPECT_FALSE(edits.editConfirmation());
  EXPECT_TRUE(failures.isEmpty());
  // Only the range edit that had to run its operation to find nothing raised the epoch (it
  // pauses readers off the buffer before it looks); nothing else touched the samples.
  EXPECT_EQ(engine->bufferEpoch(), epoch + 1);
}

TEST_F(EditRoads, RangeAndInPlaceEditsPatchTheModelAndKeepSpeechAndPlayhead) {
  auto engine = session(3.0);
  EditEngine& edits = engine->editEngine();
  const SharedAudioBuffer buffer = engine->pcmBuffer();
  const ChannelData before = liveSamples(*engine);
  const SharedSpeechHistory speech = engine->dialogue().fileSpeechHistory();
  engine->transport().setSelection(PlaybackSelection{1.0, 1.5});
  const auto epoch = engine->bufferEpoch();

  // A range operation that returns one channel of another length: that channel stays.
  edits.applyRangeEdit(48000, 72000, QStringLiteral("Gain"), [](const ChannelData& d, double rate) {
    Ops::EditResult r{d, rate, false};
    for (float& v : r.channelData[0]) v *= 0.5f;
    r.channelData[1].pop_back();
    return r;
  });
  const ChannelData after = liveSamples(*engine);
  EXPECT_EQ(engine->pcmBuffer(), buffer);
  EXPECT_EQ(engine->bufferEpoch(), epoch + 1);
  for (std::size_t i = 0; i < before[0].size(); ++i) {
    const bool inside = i >= 48000 && i < 72000;
    ASSERT_EQ(after[0][i], inside ? before[0][i] * 0.5f : before[0][i]) << i;
  }
  EXPECT_EQ(after[1], before[1]);
  EXPECT_EQ(edits.undoDepth(), 1);
  EXPECT_TRUE(edits.isDirty());
  // The patched description equals one made from scratch; speech, selection stay.
  const AudioFileModel fresh = AudioFileModel::fromBuffer(buffer, *engine->loadedFile());
  EXPECT_EQ(engine->loadedFile()->waveformPeaks, fresh.waveformPeaks);
  EXPECT_EQ(engine->loadedFile()->clipRegions, fresh.clipRegions);
  EXPECT_EQ(engine->dialogue().fileSpeechHistory(), speech);
  EXPECT_TRUE(engine->transport().selection());

  // In place with clipping: the clip regions follow.
  edits.applyInPlaceEdit(0, 4800, std::nullopt, [](float* const* d, int n, FrameCount t, FrameCount s, FrameCount e) {
    return Ops::changeLevelInPlace(d, n, t, 40.0, s, e);
  });
  const AudioFileModel fresh2 = AudioFileModel::fromBuffer(buffer, *engine->loadedFile());
  EXPECT_FALSE(engine->loadedFile()->clipRegions.empty() || engine->loadedFile()->clipRegions[0].empty());
  EXPECT_EQ(engine->loadedFile()->clipRegions, fresh2.clipRegions);
  EXPECT_EQ(engine->loadedFile()->waveformPeaks, fresh2.waveformPeaks);
}

TEST_F(EditRoads, PlaybackAroundAnEdit) {
  auto engine = session(3.0);
  EditEngine& edits = engine->editEngine();
  Transport& transport = engine->transport();
  transport.placePlayhead(1.25);
  transport.play();
  ASSERT_TRUE(transport.isPlaying());
  const FrameCount frame = transport.controller().playbackFrame();

  // A gain change pauses, edits and plays on from the same place.
  edits.applyInPlaceEdit(0, 144000, std::nullopt, [](float* const* d, int n, FrameCount t, FrameCount s, FrameCount e) {
    return Ops::changeLevelInPlace(d, n, t, -2.0, s, e);
  });
  EXPECT_TRUE(transport.isPlaying());
  EXPECT_EQ(transport.controller().playbackFrame(), frame);

  // A rebuild that fails resumes; one that succeeds leaves playback stopped at 0.
  AudioLoadLimits::setFiguresForTesting(MemoryFigures{0, 0});
  edits.applyEdit(std::nullopt, cut(0, 4800, 0));
  EXPECT_EQ(failures.size(), 1);
  EXPECT_TRUE(transport.isPlaying());
  AudioLoadLimits::setFiguresForTesting(std::nullopt);
  edits.applyEdit(std::nullopt, cut(0, 4800, 0));
  EXPECT_FALSE(transport.isPlaying());
  EXPECT_EQ(transport.controller().playbackFrame(), 0);
  EXPECT_DOUBLE_EQ(transport.currentTime(), 0.0);

  // Undo pauses too and does not resume.
  transport.play();
  edits.undoLastEdit();
  EXPECT_FALSE(transport.isPlaying());
}

TEST_F(EditRoads, ALengthChangeDerivesSpeechAgainAndDropsStaleResults) {
  auto engine = session(4.0);
  if (!engine->dialogue().fileSpeechHistory()) GTEST_SKIP() << "no speech model installed";
  EditEngine& edits = engine->editEngine();
  edits.applyEdit(std::nullopt, cut(0, 96000, 0));
  // Cleared at once, derived again in the background for the new length.
  EXPECT_FALSE(engine->dialogue().fileSpeechHistory());
  ASSERT_TRUE(waitUntil([&] { return engine->dialogue().fileSpeechHistory() != nullptr; }));
  EXPECT_EQ(engine->dialogue().fileSpeechHistory()->size(), 20u);

  // Two length changes in a row: only the last one's history lands.
  edits.applyEdit(std::nullopt, cut(0, 48000, 0));
  edits.applyEdit(std::nullopt, cut(0, 24000, 0));
  waitForBackgroundWork();
  QCoreApplication::processEvents();
  ASSERT_TRUE(engine->dialogue().fileSpeechHistory());
  EXPECT_EQ(engine->dialogue().fileSpeechHistory()->size(), 5u);
  // A swap of the same length keeps the history.
  const SharedSpeechHistory kept = engine->dialogue().fileSpeechHistory();
  edits.applyEdit(std::nullopt, [](const ChannelData& d, double rate) { return Ops::swapChannels(d, rate); });
  EXPECT_EQ(engine->dialogue().fileSpeechHistory(), kept);
}

TEST_F(EditRoads, AConfirmationStaysUpForItsFullTimeFromTheNewest) {
  auto engine = session(1.0);
  EditEngine& edits = engine->editEngine();
  edits.setConfirmationIntervalForTesting(300);
  auto gain = [](float* const* d, int n, FrameCount t, FrameCount s, FrameCount e) {
    return Ops::changeLevelInPlace(d, n, t, 1.0, s, e);
  };
  edits.applyInPlaceEdit(0, 10, QStringLiteral("Gain +1 dB"), gain);
  const QUuid first = edits.editConfirmation()->id;
  waitUntil([] { return false; }, 0.2);
  edits.applyInPlaceEdit(0, 10, QStringLiteral("Gain +1 dB"), gain);
  ASSERT_TRUE(edits.editConfirmation());
  EXPECT_NE(edits.editConfirmation()->id, first);
  // 0.2 s after the second, 0.4 s after the first: still up.
  waitUntil([] { return false; }, 0.2);
  EXPECT_TRUE(edits.editConfirmation());
  EXPECT_TRUE(waitUntil([&] { return !edits.editConfirmation(); }, 2.0));
}

}  // namespace
}  // namespace corvane::test
