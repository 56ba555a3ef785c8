// The session's offline analysis: "Analyse" and a selection's pass through the background
// task and its landing guards, measured against sox's stats and scipy's Welch average of the
// same frames.
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "SessionTestSupport.h"
#include "measurement/FileAnalysis.h"
#include "playback/Transport.h"
#include "session/BackgroundWork.h"

namespace corvane::test {
namespace {

constexpr double kRate = 48000.0;

// What a command writes to standard output (and standard error, where sox writes its stats);
// empty when it can't run.
std::string commandOutput(const std::string& command, bool withErrors) {
  std::string out;
  FILE* pipe = ::popen((command + (withErrors ? " 2>&1" : " 2>/dev/null")).c_str(), "r");
  if (!pipe) return out;
  std::array<char, 4096> chunk{};
  while (std::fgets(chunk.data(), static_cast<int>(chunk.size()), pipe)) out += chunk.data();
  ::pclose(pipe);
  return out;
}

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

// One row of `sox stats`: the values after the label, overall first, then per channel.
std::vector<double> soxRow(const std::string& stats, const std::string& label) {
  std::istringstream lines(stats);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind(label, 0) != 0) continue;
    std::istringstream values(line.substr(label.size()));
    std::vector<double> row;
    double v;
    while (values >> v) row.push_back(v);
    return row;
  }
  return {};
}

TEST_F(FileAnalysisTest, ASelectionsPeakRmsAndDcMatchSoxAndItsSpectrumMatchesWelch) {
  load(testSignal());
  // Frames 24000 ... 81600 by the frame rules.
  engine->transport().setSelection(PlaybackSelection{0.5, 1.7});
  engine->analysis().analyseSelection();
  settle();
  ASSERT_TRUE(engine->analysis().selectionAnalysis());
  const SelectionAnalysisResult& result = *engine->analysis().selectionAnalysis();

  const std::string stats = commandOutput("sox '" + path + "' -n trim 24000s =81600s stats", true);
  const auto peak = soxRow(stats, "Pk lev dB");
  const auto rms = soxRow(stats, "RMS lev dB");
  const auto dc = soxRow(stats, "DC offset");
  ASSERT_EQ(peak.size(), 3u) << stats;
  ASSERT_EQ(rms.size(), 3u) << stats;
  ASSERT_EQ(dc.size(), 3u) << stats;
  for (int c = 0; c < 2; ++c) {
    // sox prints dB to two decimals and the offset to six.
    EXPECT_NEAR(result.peakDB[c], peak[c + 1], 0.01) << c;
    EXPECT_NEAR(result.rmsDB[c], rms[c + 1], 0.01) << c;
    EXPECT_NEAR(result.dcOffset[c], dc[c + 1], 2e-6) << c;
    EXPECT_NEAR(result.crestFactorDB[c], peak[c + 1] - rms[c + 1], 0.02) << c;
  }

  // scipy's Welch average of the same windows (Hann, 4096 frames, hop 1024, no detrending).
  // Ours reads a bin as 20·log10(2·|X| / Σw) averaged in power; Welch's one-sided power spectrum
  // is 2·|X|² / (Σw)² above DC, so ours lies 10·log10(2) above it, and at DC 10·log10(4).
  ASSERT_EQ(result.fftSize, 4096);
  const std::string script =
      "import numpy, scipy.io.wavfile, scipy.signal\n"
      "rate, x = scipy.io.wavfile.read('" + path + "')\n"
      "x = x[24000:81600].astype(numpy.float64)\n"
      "for c in range(2):\n"
      "    f, p = scipy.signal.welch(x[:, c], fs=rate, window='hann', nperseg=4096, noverlap=3072,\n"
      "                              detrend=False, scaling='spectrum', average='mean')\n"
      "    print(' '.join('%.9g' % v for v in 10 * numpy.log10(numpy.maximum(p[:2048], 1e-30))))\n";
  const std::string welch = commandOutput("/usr/bin/python3 -c \"" + script + "\"", false);
  std::istringstream rows(welch);
  for (int c = 0; c < 2; ++c) {
    std::string row;
    ASSERT_TRUE(std::getline(rows, row)) << "no output from scipy";
    std::istringstream values(row);
    std::vector<double> reference;
    double v;
    while (values >> v) reference.push_back(v);
    ASSERT_EQ(reference.size(), 2048u);
    ASSERT_EQ(result.fftMagnitudes[c].size(), 2048u);
    EXPECT_NEAR(result.fftMagnitudes[c][0], reference[0] + 10.0 * std::log10(4.0), 0.01) << c;
    // A single-precision transform resolves about 100 dB below its strongest bin.
    const double floor = *std::max_element(reference.begin(), reference.end()) - 100.0;
    double worst = 0.0;
    int compared = 0;
    for (std::size_t k = 1; k < 2048; ++k) {
      if (reference[k] < floor) continue;
      ++compared;
      worst = std::max(worst, std::abs(result.fftMagnitudes[c][k] - (reference[k] + 10.0 * std::log10(2.0))));
    }
    EXPECT_GT(compared, 1000) << c;
    EXPECT_LT(worst, 0.01) << "channel " << c;
  }
}

}  // namespace
}  // namespace corvane::test
