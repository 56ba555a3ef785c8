// The road of one file through the session, on a real event loop with real files and the real
// decoders, speech detector and measurements: what lands, in which order, and what a later
// load does to an earlier one.
#include <QSignalSpy>
#include <fstream>
#include <future>
#include <set>

#include "SessionTestSupport.h"
#include "compare/CompareModel.h"
#include "dialogue/DialogueModel.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveMeters.h"
#include "playback/Transport.h"
#include "headless/files/AudioLoadLimits.h"
#include "session/BackgroundWork.h"
#include "session/RecentDocumentsTracker.h"
#include "session/SessionSettings.h"

namespace corvane::test {
namespace {

using Landing = AudioEngine::Landing;

class LoadRoad : public SessionTest {};

TEST_F(LoadRoad, StagesLandInOrderAndFillTheSession) {
  const Planar signal = burstyProgramme(48000.0, 2, 3.0);
  const std::string path = writeFile("programme.wav", signal);
  auto engine = makeEngine();
  engine->sessionSettings().setAutoComputeSpectrogramOnLoad(true);
  LandingLog log(*engine);
  QSignalSpy epochs(engine.get(), &AudioEngine::fileLoadEpochChanged);

  engine->loadFile(url(path));
  // The head has run synchronously; nothing has landed yet.
  EXPECT_TRUE(engine->isLoading());
  EXPECT_EQ(engine->fileLoadEpoch(), 1u);
  EXPECT_EQ(engine->loadGeneration(), 1u);
  EXPECT_EQ(epochs.count(), 1);
  EXPECT_FALSE(engine->loadedFile());
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::spectrogram) == 1; }));

  EXPECT_EQ(log.landings, (std::vector<Landing>{Landing::decoded, Landing::speech, Landing::metrics, Landing::spectrogram}));
  EXPECT_FALSE(engine->isLoading());
  ASSERT_TRUE(engine->loadedFile());
  EXPECT_EQ(engine->loadedFile()->name, "programme");
  EXPECT_EQ(engine->loadedFile()->totalFrames, 144000);
  EXPECT_EQ(engine->pcmBuffer()->frameLength(), 144000);
  EXPECT_EQ(engine->loadedFile()->pcmBuffer, engine->pcmBuffer());
  EXPECT_DOUBLE_EQ(engine->transport().duration(), 3.0);

  // setupActiveFile: default routing for two outputs, live meters per channel, a prepared graph.
  ASSERT_EQ(engine->transport().routings().size(), 2u);
  EXPECT_EQ(engine->transport().routings()[0].outputChannelLabel, "L Out");
  EXPECT_EQ(engine->transport().routings()[1].sources[0].sourceChannelIndex, 1);
  ASSERT_TRUE(engine->meters().fftMagnitudes());
  ASSERT_EQ(engine->meters().fftMagnitudes()->size(), 2u);
  EXPECT_EQ((*engine->meters().fftMagnitudes())[1].size(), 2048u);
  EXPECT_EQ((*engine->meters().fftMagnitudes())[1][0], -100.0f);
  EXPECT_NE(engine->meters().midProcessor(), nullptr);
  EXPECT_TRUE(engine->transport().hasGraph());
  EXPECT_FALSE(engine->transport().isPlaying());

  // Speech: one decision per 0.1 s block; the regions follow the history.
  ASSERT_TRUE(engine->dialogue().fileSpeechHistory());
  EXPECT_EQ(engine->dialogue().fileSpeechHistory()->size(), 30u);
  EXPECT_EQ(engine->dialogue().fileSpeechHistoryTuning(), engine->sessionSettings().currentVADTuning());

  // Metrics: the file's curves, and slot 0 holds the same figures; an independent meter agrees.
  const auto& compareSlots = engine->compare().compareSlots();
  ASSERT_EQ(compareSlots.size(), 1u);
  ASSERT_TRUE(compareSlots[0].metrics);
  EXPECT_FALSE(compareSlots[0].isLoadingMetrics);
  const SlotMetrics& m = *compareSlots[0].metrics;
  const OracleResult oracle = ebur128Measure(signal);
  EXPECT_NEAR(m.integratedLUFS, oracle.integrated, 0.1);
  ASSERT_TRUE(engine->analysis().fileLoudnessCurve());
  EXPECT_EQ(*engine->analysis().fileLoudnessCurve(), m.fileLoudnessCurve);
  EXPECT_EQ(m.fileLoudnessCurve.size(), 30u);
  EXPECT_DOUBLE_EQ(m.fileLoudnessCurve.back().time, 3.0);
  ASSERT_TRUE(engine->analysis().fileStereoWidthCurve());
  EXPECT_EQ(engine->analysis().fileStereoWidthCurve()->size(), 30u);
  EXPECT_EQ(engine->analysis().fileSamplePeakDB(), m.samplePeakDB);
  EXPECT_EQ(m.speechHistory, engine->dialogue().fileSpeechHistory());

  // The load-time spectrogram: about 2048 columns at most, fftSize / 2 bins each.
  ASSERT_TRUE(engine->analysis().offlineSpectrogramColumns());
  const auto& columns = *engine->analysis().offlineSpectrogramColumns();
  ASSERT_FALSE(columns.empty());
  EXPECT_EQ(columns.front().mags.size(), 2048u);
  EXPECT_EQ(columns.front().time, 0.0);
}

TEST_F(LoadRoad, ASecondLoadWhileTheFirstIsDecodingLeavesOnlyTheSecondsResults) {
  const std::string slow = writeFile("slow.wav", burstyProgramme(48000.0, 2, 4.0));
  const std::string fast = writeFile("fast.wav", burstyProgramme(44100.0, 1, 2.0));
  auto engine = makeEngine();
  engine->sessionSettings().setAutoComputeSpectrogramOnLoad(true);
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  engine->setLoadStageHook([&, released](const std::filesystem::path& file, FileLoadStage stage) {
    // The first file is held after decoding, before its first landing is handed over.
    if (file == slow && stage == FileLoadStage::decode) released.wait();
  });
  LandingLog log(*engine);

  engine->loadFile(url(slow), {url(fast)});
  engine->loadFile(url(fast));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::spectrogram) == 1; }));
  release.set_value();
  waitForBackgroundWork();
  QCoreApplication::processEvents();

  // Only the second load's four landings: none of the first, and none of its extras.
  EXPECT_EQ(log.landings, (std::vector<Landing>{Landing::decoded, Landing::speech, Landing::metrics, Landing::spectrogram}));
  ASSERT_TRUE(engine->loadedFile());
  EXPECT_EQ(engine->loadedFile()->url, fast);
  EXPECT_EQ(engine->loadedFile()->sampleRate, 44100.0);
  EXPECT_FALSE(engine->isLoading());
  ASSERT_EQ(engine->compare().slotCount(), 1);
  EXPECT_EQ(engine->compare().compareSlots()[0].url, fast);
  EXPECT_EQ(engine->dialogue().fileSpeechHistory()->size(), 20u);
  EXPECT_EQ(engine->analysis().fileLoudnessCurve()->size(), 20u);
  EXPECT_EQ(engine->transport().routings()[0].sources[0].gain, kMonoToStereoGain);
}

TEST_F(LoadRoad, StagesOfALoadThatWasOvertakenAfterItsFirstLandingAreDropped) {
  const std::string first = writeFile("first.wav", burstyProgramme(48000.0, 2, 4.0));
  const std::string second = writeFile("second.wav", burstyProgramme(48000.0, 2, 2.5));
  auto engine = makeEngine();
  engine->sessionSettings().setAutoComputeSpectrogramOnLoad(true);
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  engine->setLoadStageHook([&, released](const std::filesystem::path& file, FileLoadStage stage) {
    if (file == first && stage == FileLoadStage::speech) released.wait();
  });
  LandingLog log(*engine);

  engine->loadFile(url(first));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::decoded) == 1; }));
  engine->loadFile(url(second));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::spectrogram) == 1; }));
  release.set_value();
  waitForBackgroundWork();
  QCoreApplication::processEvents();

  EXPECT_EQ(log.landings, (std::vector<Landing>{Landing::decoded, Landing::decoded, Landing::speech, Landing::metrics,
                                                Landing::spectrogram}));
  EXPECT_EQ(engine->loadedFile()->url, second);
  EXPECT_EQ(engine->dialogue().fileSpeechHistory()->size(), 25u);
  EXPECT_EQ(engine->analysis().fileLoudnessCurve()->size(), 25u);
  EXPECT_EQ(engine->compare().compareSlots()[0].metrics->duration, 2.5);
}

TEST_F(LoadRoad, OpeningTheLoadedFileAgainReloadsNothingAndAddsTheOthersAsSlots) {
  const std::string a = writeFile("a.wav", burstyProgramme(48000.0, 2, 1.0));
  const std::string b = writeFile("b.wav", burstyProgramme(48000.0, 2, 1.5));
  auto engine = makeEngine();
  LandingLog log(*engine);
  engine->openURLs({url(a)});
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::metrics) == 1; }));
  const auto model = engine->loadedFile();

  engine->openURLs({url(folder.path() + "/./a.wav")});
  EXPECT_FALSE(engine->isLoading());
  EXPECT_EQ(engine->fileLoadEpoch(), 1u);

  engine->openURLs({url(a), url(b)});
  EXPECT_EQ(engine->fileLoadEpoch(), 1u);
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::compareMetrics) == 1; }));
  EXPECT_EQ(engine->loadedFile(), model);
  ASSERT_EQ(engine->compare().slotCount(), 2);
  EXPECT_EQ(engine->compare().compareSlots()[1].url, b);
  EXPECT_EQ(engine->compare().compareSlots()[1].metrics->duration, 1.5);
  EXPECT_TRUE(engine->isCompareMode());
  // The recent documents list the files, the latest first, each once.
  EXPECT_EQ(engine->recentDocuments().paths(), (QStringList{QString::fromStdString(b), QString::fromStdString(a)}));
}

TEST_F(LoadRoad, OfEightFilesTheFirstLoadsAndFiveOfTheSevenExtrasBecomeSlots) {
  QList<QUrl> urls;
  for (int i = 0; i < 8; ++i) {
    const std::string name = std::to_string(i) + "-extra.wav";
    urls.append(url(writeFile(name, burstyProgramme(48000.0, 2, 0.5 + 0.1 * i))));
  }
  auto engine = makeEngine();
  LandingLog log(*engine);
  engine->openURLs(urls);
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::compareMetrics) == 5; }));
  waitForBackgroundWork();
  QCoreApplication::processEvents();

  EXPECT_EQ(log.count(Landing::compareSlot), 5);
  ASSERT_EQ(engine->compare().slotCount(), CompareModel::kMaximumSlots);
  EXPECT_EQ(engine->compare().compareSlots()[0].url, urls[0].toLocalFile().toStdString());
  std::set<std::filesystem::path> distinct;
  for (const auto& slot : engine->compare().compareSlots()) {
    distinct.insert(slot.url);
    ASSERT_TRUE(slot.metrics);
    EXPECT_DOUBLE_EQ(slot.metrics->duration, slot.model.duration);
  }
  EXPECT_EQ(distinct.size(), 6u);
  EXPECT_TRUE(engine->isCompareMode());
  EXPECT_EQ(engine->compare().activeSlotIndex(), 0);
  EXPECT_TRUE(user->seen.empty());

  // A new open replaces the comparison: the extra slots go before the new file loads.
  const std::string next = writeFile("next.wav", burstyProgramme(48000.0, 2, 0.4));
  engine->openURLs({url(next)});
  EXPECT_EQ(engine->compare().slotCount(), 1);
  EXPECT_FALSE(engine->isCompareMode());
  ASSERT_TRUE(waitUntil([&] { return engine->loadedFile() && engine->loadedFile()->url == next; }));
  EXPECT_EQ(engine->compare().slotCount(), 1);
}

TEST_F(LoadRoad, AnExtraThatWouldExceedTheMemoryBudgetIsRefusedWithTheAlert) {
  // Three seconds of stereo float are 1,152,000 bytes: two files fit in 2.5 MB, three don't.
  const MemoryFigures figures{5'000'000, 100'000'000};
  AudioLoadLimits::setFiguresForTesting(figures);
  QList<QUrl> urls;
  for (int i = 0; i < 3; ++i) {
    const std::string name = std::to_string(i) + "-budget.wav";
    urls.append(url(writeFile(name, burstyProgramme(48000.0, 2, 3.0))));
  }
  auto engine = makeEngine();
  LandingLog log(*engine);
  engine->openURLs(urls);
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::compareSlot) == 1 && user->seen.size() == 1; }));
  waitForBackgroundWork();
  AudioLoadLimits::setFiguresForTesting(std::nullopt);

  EXPECT_EQ(engine->compare().slotCount(), 2);
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "Not enough memory to add this file to the comparison");
  EXPECT_EQ(user->seen[0].informativeText,
            "The files already loaded for comparison would exceed the memory budget. Remove a file and try again.");
  EXPECT_EQ(engine->compare().residentCompareBytes(), 2 * 144000 * 2 * 4);
}

TEST_F(LoadRoad, AZeroLengthFileEndsInLoadErrorAndKeepsThePreviousFile) {
  const std::string good = writeFile("good.wav", burstyProgramme(48000.0, 2, 1.0));
  const std::string empty = folder.file("empty.wav");
  { std::ofstream touch(empty); }
  auto engine = makeEngine();
  LandingLog log(*engine);
  engine->loadFile(url(good));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::metrics) == 1; }));

  engine->loadFile(url(empty));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::failed) == 1; }));
  ASSERT_TRUE(engine->loadError());
  EXPECT_EQ(*engine->loadError(), "empty.wav is empty (0 bytes).");
  EXPECT_FALSE(engine->pendingRawImport());
  EXPECT_FALSE(engine->isLoading());
  // The previous file stays live; the head of the failed load has cleared its speech data.
  EXPECT_EQ(engine->loadedFile()->url, good);
  EXPECT_TRUE(engine->transport().hasGraph());
  EXPECT_FALSE(engine->dialogue().fileSpeechHistory());

  // A folder, and a path that doesn't exist, end the same way.
  engine->loadFile(url(folder.path()));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::failed) == 2; }));
  EXPECT_TRUE(engine->loadError());
  EXPECT_FALSE(engine->pendingRawImport());
}

TEST_F(LoadRoad, AFileOfNoFramesLandsWithoutTheLaterStages) {
  const std::string path = writeFile("zero.wav", Planar(48000.0, 2, 0));
  auto engine = makeEngine();
  engine->sessionSettings().setAutoComputeSpectrogramOnLoad(true);
  LandingLog log(*engine);
  engine->loadFile(url(path));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::decoded) == 1; }));
  waitForBackgroundWork();
  QCoreApplication::processEvents();
  EXPECT_EQ(log.landings, std::vector<Landing>{Landing::decoded});
  EXPECT_EQ(engine->loadedFile()->totalFrames, 0);
  EXPECT_FALSE(engine->dialogue().fileSpeechHistory());
  EXPECT_FALSE(engine->compare().compareSlots()[0].metrics);
}

TEST_F(LoadRoad, AMonoFileHasNoCorrelationNoMidSideAndPlaysAtMinus3dBOnBothSides) {
  const std::string path = writeFile("mono.wav", burstyProgramme(48000.0, 1, 1.0));
  auto engine = makeEngine();
  LandingLog log(*engine);
  engine->loadFile(url(path));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::metrics) == 1; }));
  const SlotMetrics& m = *engine->compare().compareSlots()[0].metrics;
  EXPECT_TRUE(m.stereoWidthCurve.empty());
  EXPECT_EQ(m.channelPeakDB.size(), 1u);
  EXPECT_EQ(m.channelDR.size(), 1u);
  const auto& width = engine->analysis().fileStereoWidthCurve();
  EXPECT_TRUE(!width || width->empty());
  EXPECT_EQ(engine->meters().midProcessor(), nullptr);
  EXPECT_FALSE(engine->meters().msMagnitudes());
  const auto& routings = engine->transport().routings();
  ASSERT_EQ(routings.size(), 2u);
  EXPECT_EQ(routings[0].sources[0].sourceChannelIndex, 0);
  EXPECT_EQ(routings[1].sources[0].sourceChannelIndex, 0);
  EXPECT_EQ(routings[1].sources[0].gain, kMonoToStereoGain);
}

TEST_F(LoadRoad, AFileShorterThanTheSpectrogramWindowGetsNoSpectrogram) {
  auto engine = makeEngine();
  engine->sessionSettings().setAutoComputeSpectrogramOnLoad(true);
  engine->sessionSettings().setSpectrogramFftSize(4096);
  LandingLog log(*engine);
  engine->loadFile(url(writeFile("short.wav", sine(48000.0, 1, 4095 / 48000.0, 440.0, 0.5))));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::metrics) == 1; }));
  waitForBackgroundWork();
  QCoreApplication::processEvents();
  EXPECT_EQ(log.count(Landing::spectrogram), 0);
  EXPECT_FALSE(engine->analysis().offlineSpectrogramColumns());

  // One frame more is one window: one column at time 0.
  engine->loadFile(url(writeFile("window.wav", sine(48000.0, 1, 4096 / 48000.0, 440.0, 0.5))));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::spectrogram) == 1; }));
  ASSERT_TRUE(engine->analysis().offlineSpectrogramColumns());
  EXPECT_EQ(engine->analysis().offlineSpectrogramColumns()->size(), 1u);
}

TEST_F(LoadRoad, AnUndecodableRegularFileGoesToTheRawImportSheetWithItsNote) {
  auto engine = makeEngine();
  LandingLog log(*engine);
  const std::string named = folder.file("take.wav");
  std::ofstream(named) << "twelve bytes";
  engine->loadFile(url(named));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::failed) == 1; }));
  ASSERT_TRUE(engine->pendingRawImport());
  const RawImportRequest request = *engine->pendingRawImport();
  EXPECT_EQ(request.url, named);
  EXPECT_EQ(request.fileSize, 12);
  EXPECT_FALSE(request.prefill);
  EXPECT_EQ(request.note, QStringLiteral("The file couldn't be read as WAV audio; it may be damaged. If it is actually "
                                         "headerless PCM, declare the format below."));
  EXPECT_FALSE(engine->loadError());
  EXPECT_FALSE(request.id.isNull());

  // No audio extension: the sheet comes without a note.
  const std::string bare = folder.file("capture.bin");
  std::ofstream(bare) << "0123456789";
  engine->setPendingRawImport(std::nullopt);
  engine->loadFile(url(bare));
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::failed) == 2; }));
  ASSERT_TRUE(engine->pendingRawImport());
  EXPECT_FALSE(engine->pendingRawImport()->note);

  // A declared format that fails: the sheet comes back with that format and the reader's words.
  RawPCMFormat format;
  format.channelCount = 4;
  format.encoding = RawPCMFormat::Encoding::f64;
  engine->setPendingRawImport(std::nullopt);
  engine->loadFile(url(bare), {}, format);
  ASSERT_TRUE(waitUntil([&] { return log.count(Landing::failed) == 3; }));
  ASSERT_TRUE(engine->pendingRawImport());
  EXPECT_EQ(engine->pendingRawImport()->prefill, format);
  ASSERT_TRUE(engine->pendingRawImport()->note);
  EXPECT_FALSE(engine->pendingRawImport()->note->isEmpty());
}

}  // namespace
}  // namespace corvane::test
