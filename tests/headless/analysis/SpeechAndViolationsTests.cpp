// Speech and level violations through the pass: which speech history a pass uses, the speech
// ranges it reports in file time (from a history handed in and from the real detector), and
// the violation ranges its curves give for a burst at a known time.
#include <gtest/gtest.h>

#include "AnalysisTestSupport.h"
#include "headless/speech/SileroVADAnalyser.h"
#include "headless/speech/SpeechScene.h"

namespace corvane::test {
namespace {

constexpr double kRate = 48000.0;

SharedSpeechHistory historyOf(std::initializer_list<int> blocks) {
  SpeechHistory h;
  for (int b : blocks) h.push_back(b != 0);
  return std::make_shared<const SpeechHistory>(std::move(h));
}

TEST(SpeechThroughThePass, WhichHistoryAPassUses) {
  const SharedAudioBuffer buffer = AudioBuffer::createZeroed(1, 48000, kRate);  // 10 blocks
  const auto whole = *SelectionFrames::capture(buffer, 0.0, 1.0);
  const auto part = *SelectionFrames::capture(buffer, 0.3, 0.7);
  const SharedSpeechHistory fileHistory = historyOf({0, 0, 0, 1, 1, 0, 1, 0, 0, 1});
  const SileroVADTuning tuning;
  SileroVADTuning otherTuning;
  otherTuning.minSilenceDurationSec = 0.25;

  // Regions still the detector's, history detected with this very tuning: the whole file
  // reuses it, a part detects anew.
  FileSpeechState detected{fileHistory, tuning, true};
  EXPECT_EQ(speechHistoryForSelection(detected, tuning, whole), fileHistory);
  EXPECT_EQ(speechHistoryForSelection(detected, tuning, part), nullptr);
  // Another tuning now, or a history that follows no tuning: detect anew.
  EXPECT_EQ(speechHistoryForSelection(detected, otherTuning, whole), nullptr);
  EXPECT_EQ(speechHistoryForSelection({fileHistory, std::nullopt, true}, tuning, whole), nullptr);
  EXPECT_EQ(speechHistoryForSelection({nullptr, tuning, true}, tuning, whole), nullptr);

  // Regions edited by the user: always the file history, sliced to the selection's blocks
  // (0.3 ... 0.7 s are file blocks 3 to 6), whatever the tuning.
  FileSpeechState edited{fileHistory, std::nullopt, false};
  const SharedSpeechHistory sliced = speechHistoryForSelection(edited, otherTuning, part);
  ASSERT_NE(sliced, nullptr);
  EXPECT_EQ(*sliced, (SpeechHistory{true, true, false, true}));
  EXPECT_EQ(*speechHistoryForSelection(edited, tuning, whole), *fileHistory);
}

TEST(SpeechThroughThePass, AHandedInHistoryGivesRangesInFileTimeAndIsNotDetectedAgain) {
  // 3 s of tone, selection 0.5 ... 2.5 s (20 blocks). History: speech in blocks 2–5, a pause
  // of three blocks (bridged), 9–10, a pause of four (kept), 15–16.
  const SharedAudioBuffer buffer = toBuffer(toneSequence(kRate, {{3.0, -20.0}}));
  SelectionAnalysisSettings settings = plainSettings(2);
  settings.speechHistory = historyOf({0, 0, 1, 1, 1, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0});
  // A detector with no model: had the pass run it, there would be no history at all.
  const SileroVADAnalyser unavailable(std::filesystem::path("/nonexistent/silero_vad.onnx"));
  ASSERT_FALSE(unavailable.isAvailable());
  settings.speechDetector = &unavailable;
  settings.detectSpeech = true;

  const SelectionAnalysisOutput out = analyse(buffer, 0.5, 2.5, settings);
  ASSERT_EQ(out.result.speechRanges.size(), 2u);
  EXPECT_NEAR(out.result.speechRanges[0].startSec, 0.7, 1e-9);
  EXPECT_NEAR(out.result.speechRanges[0].endSec, 1.6, 1e-9);
  EXPECT_NEAR(out.result.speechRanges[1].startSec, 2.0, 1e-9);
  EXPECT_NEAR(out.result.speechRanges[1].endSec, 2.2, 1e-9);
  EXPECT_EQ(out.speechHistory, settings.speechHistory);
  EXPECT_NEAR(out.result.speechPercentage, 40.0, 1e-3);  // 8 of 20 blocks
  EXPECT_NEAR(out.result.speechGatedLUFS, -20.0, 0.1);   // the steady tone, speech or not

  // Without a history and with the unavailable detector: no speech figures, every other one.
  settings.speechHistory = nullptr;
  const SelectionAnalysisOutput none = analyse(buffer, 0.5, 2.5, settings);
  EXPECT_TRUE(none.result.speechRanges.empty());
  EXPECT_EQ(none.speechHistory, nullptr);
  EXPECT_EQ(none.result.speechPercentage, 0.0f);
  EXPECT_NEAR(none.result.integratedLUFS, -20.0, 0.1);
}

TEST(SpeechThroughThePass, TheDetectorFindsThePhrasesOfASelection) {
  TemporaryFolder folder;
  const SpeechScene scene = SpeechScene::build(folder.path());
  const SileroVADAnalyser detector(installedModel());
  SelectionAnalysisSettings settings = plainSettings(2);
  settings.detectSpeech = true;
  settings.speechDetector = &detector;

  // From 0.5 s to the end, so ranges must come out shifted into file time.
  const double duration = static_cast<double>(scene.audio->frameLength()) / kRate;
  const SelectionAnalysisOutput out = analyse(scene.audio, 0.5, duration, settings);
  ASSERT_NE(out.speechHistory, nullptr);
  ASSERT_FALSE(out.result.speechRanges.empty());
  const auto spoken = [&](double seconds) {
    for (const SpeechRange& r : out.result.speechRanges) {
      if (seconds >= r.startSec && seconds <= r.endSec) return true;
    }
    return false;
  };
  for (const SpeechScene::Span& p : scene.phrases) {
    const double middle = static_cast<double>(p.start + p.end) / 2.0 / kRate;
    if (middle > 0.5) {
      EXPECT_TRUE(spoken(middle)) << "phrase around " << middle << " s";
    }
  }
  EXPECT_FALSE(spoken(static_cast<double>(scene.noise.start + scene.noise.end) / 2.0 / kRate));
  EXPECT_FALSE(spoken(static_cast<double>(scene.chord.start + scene.chord.end) / 2.0 / kRate));
  EXPECT_GT(out.result.speechPercentage, 5.0f);
  EXPECT_TRUE(std::isfinite(out.result.speechGatedLUFS));
}

TEST(ViolationsThroughThePass, ABurstGivesTheRangesItsWindowsCross) {
  // −40 dBFS tone, a −10 dBFS burst from 5.0 s to 6.95 s (inside a block, so no block edge
  // decides the end), −40 again. A window over the burst for a fraction f of its length reads
  // 10·log10(f × 0.1 + (1 − f) × 1e-4) LUFS. Block ends every 0.1 s from the selection's
  // start at 1.0 s:
  //   momentary (0.4 s) over −20: f > 0.0991, block ends 5.1 (f 0.25) ... 7.3 (f 0.125, −19.0),
  //     not 5.0 (f 0) nor 7.4 (f 0): the range 5.0 ... 7.3, first block's start to last end;
  //   short-term (3 s) over −21: f > 0.0785, block ends 5.3 (f 0.1, −20.0) ... 9.7
  //     (f 0.083, −20.7), not 5.2 (−21.7) nor 9.8 (−22.9): the range 5.2 ... 9.7;
  //   true peak over −12 dBTP: the blocks ending 5.1 ... 7.0 hold burst samples: 5.0 ... 7.0.
  const SharedAudioBuffer buffer = toBuffer(toneSequence(kRate, {{5.0, -40.0}, {1.95, -10.0}, {4.05, -40.0}}));
  const SelectionAnalysisResult r = analyse(buffer, 1.0, 10.0, plainSettings(2)).result;

  const auto momentary = computeViolations(r.momentaryCurve, -20.0f, 0.1);
  ASSERT_EQ(momentary.size(), 1u);
  EXPECT_NEAR(momentary[0].lower, 5.0, 1e-9);
  EXPECT_NEAR(momentary[0].upper, 7.3, 1e-9);
  const auto shortTerm = computeViolations(r.shortTermCurve, -21.0f, 0.1);
  ASSERT_EQ(shortTerm.size(), 1u);
  EXPECT_NEAR(shortTerm[0].lower, 5.2, 1e-9);
  EXPECT_NEAR(shortTerm[0].upper, 9.7, 1e-9);
  const auto truePeak = computeViolations(r.truePeakCurve, -12.0f, 0.1);
  ASSERT_EQ(truePeak.size(), 1u);
  EXPECT_NEAR(truePeak[0].lower, 5.0, 1e-9);
  EXPECT_NEAR(truePeak[0].upper, 7.0, 1e-9);

  // Cut at 6.5 s, inside the burst: the run reaches the last point and closes at its time.
  const SelectionAnalysisResult cut = analyse(buffer, 1.0, 6.5, plainSettings(2)).result;
  const auto open = computeViolations(cut.momentaryCurve, -20.0f, 0.1);
  ASSERT_EQ(open.size(), 1u);
  EXPECT_NEAR(open[0].lower, 5.0, 1e-9);
  EXPECT_NEAR(open[0].upper, 6.5, 1e-9);
  EXPECT_NEAR(cut.momentaryCurve.back().time, 6.5, 1e-9);
}

}  // namespace
}  // namespace corvane::test
