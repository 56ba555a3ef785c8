// The session's offline analysis: "Analyse" and a selection's pass through the background
// task and its landing guards, measured against sox's stats and scipy's Welch average of the
// same frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "AnalysisTestSupport.h"
#include "SessionTestSupport.h"
#include "measurement/FileAnalysis.h"
#include "playback/Transport.h"
#include "session/BackgroundWork.h"

namespace corvane::test {
namespace {

constexpr double kRate = 48000.0;

// Two channels that differ in peak, RMS and DC: noise with a DC offset, and a tone over
// quieter noise with the opposite offset.
Planar testSignal() {
  Planar p = bandLimitedNoise(kRate, 2, 3.0, 9000.0, -20.0, 3.0, 41);
  for (FrameCount i = 0; i < p.frames(); ++i) {
    p.channels[0][static_cast<std::size_t>(i)] += 0.05f;
    p.channels[1][static_cast<std::size_t>(i)] =
        0.4f * p.channels[1][static_cast<std::size_t>(i)] - 0.02f +
        0.3f * static_cast<float>(std::sin(2.0 * M_PI * 1000.0 * static_cast<double>(i) / kRate));
  }
  return p;
}

class FileAnalysisTest : public SessionTest {
 protected:
  void load(const Planar& signal) {
    path = writeFile("analysed.wav", signal);
    engine = makeEngine();
    LandingLog landings(*engine);
    engine->openURLs({url(path)});
    ASSERT_TRUE(waitUntil([&] { return landings.count(AudioEngine::Landing::metrics) == 1; }));
  }
  // Lets every pass finish and land.
  void settle() {
    waitForBackgroundWork();
    ASSERT_TRUE(waitUntil([&] { return !engine->analysis().isAnalysing(); }));
    QCoreApplication::processEvents();
  }

  std::string path;
  std::unique_ptr<AudioEngine> engine;
};

TEST_F(FileAnalysisTest, AnalyseSelectsTheWholeFileAndAPassOverAnEditedBufferIsDropped) {
  load(testSignal());
  FileAnalysis& analysis = engine->analysis();
  ASSERT_FALSE(engine->transport().selection());

  // The whole file is read in place: an edit while the pass runs makes its result stale.
  analysis.analyse();
  ASSERT_TRUE(engine->transport().selection());
  EXPECT_DOUBLE_EQ(engine->transport().selection()->lowerSec, 0.0);
  EXPECT_DOUBLE_EQ(engine->transport().selection()->upperSec, 3.0);
  EXPECT_TRUE(analysis.isAnalysing());
  engine->bumpBufferEpoch();
  settle();
  EXPECT_FALSE(analysis.selectionAnalysis());

  // Unedited, it lands, with the selection it measured and the columns of the whole file.
  analysis.analyse();
  settle();
  ASSERT_TRUE(analysis.selectionAnalysis());
  EXPECT_EQ(analysis.selectionAnalysis()->timeRange, (SecondsRange{0.0, 3.0}));
  EXPECT_EQ(analysis.selectionAnalysis()->peakDB.size(), 2u);
  ASSERT_TRUE(analysis.offlineSpectrogramColumns());
  EXPECT_FALSE(analysis.offlineSpectrogramColumns()->empty());

  // A part of the file is copied before the pass: an edit meanwhile doesn't touch it.
  engine->transport().setSelection(PlaybackSelection{0.5, 1.7});
  analysis.analyseSelection();
  EXPECT_FALSE(analysis.selectionAnalysis());
  engine->bumpBufferEpoch();
  settle();
  ASSERT_TRUE(analysis.selectionAnalysis());
  EXPECT_EQ(analysis.selectionAnalysis()->timeRange, (SecondsRange{0.5, 1.7}));
}

TEST_F(FileAnalysisTest, ASelectionsPeakRmsAndDcMatchSoxAndItsSpectrumMatchesWelch) {
  load(testSignal());
  // Frames 24000 ... 81600 by the frame rules.
  engine->transport().setSelection(PlaybackSelection{0.5, 1.7});
  engine->analysis().analyseSelection();
  settle();
  ASSERT_TRUE(engine->analysis().selectionAnalysis());
  const SelectionAnalysisResult& result = *engine->analysis().selectionAnalysis();

  const SoxStats sox = soxStats(path, 2, std::make_pair(FrameCount{24000}, FrameCount{57600}));
  for (int c = 0; c < 2; ++c) {
    // sox prints dB to two decimals and the offset to six.
    EXPECT_NEAR(result.peakDB[c], sox.peakDB[c], 0.01) << c;
    EXPECT_NEAR(result.rmsDB[c], sox.rmsDB[c], 0.01) << c;
    EXPECT_NEAR(result.dcOffset[c], sox.dcOffset[c], 2e-6) << c;
    EXPECT_NEAR(result.crestFactorDB[c], sox.peakDB[c] - sox.rmsDB[c], 0.02) << c;
  }

  // scipy's Welch average of the same windows (Hann, 4096 frames, hop 1024 at the default
  // overlap, no detrending). Ours reads a bin as 20·log10(2·|X| / Σw) averaged in power; Welch's
  // one-sided power spectrum is 2·|X|² / (Σw)² above DC, so ours lies 10·log10(2) above it, and
  // at DC 10·log10(4).
  ASSERT_EQ(result.fftSize, 4096);
  const auto reference = welchReference(slice(*engine->pcmBuffer(), 24000, 57600), 4096, 3072);
  ASSERT_EQ(reference.size(), 4u);  // both channels, mid, side
  for (int c = 0; c < 2; ++c) {
    const auto& welch = reference[static_cast<std::size_t>(c)];
    ASSERT_EQ(welch.size(), 2048u);
    ASSERT_EQ(result.fftMagnitudes[c].size(), 2048u);
    EXPECT_NEAR(result.fftMagnitudes[c][0], welch[0] + 10.0 * std::log10(4.0), 0.01) << c;
    // A single-precision transform resolves about 100 dB below its strongest bin.
    const double floor = *std::max_element(welch.begin(), welch.end()) - 100.0;
    double worst = 0.0;
    int compared = 0;
    for (std::size_t k = 1; k < 2048; ++k) {
      if (welch[k] < floor) continue;
      ++compared;
      worst = std::max(worst, std::abs(result.fftMagnitudes[c][k] - (welch[k] + 10.0 * std::log10(2.0))));
    }
    EXPECT_GT(compared, 1000) << c;
    EXPECT_LT(worst, 0.01) << "channel " << c;
  }
}

}  // namespace
}  // namespace corvane::test
