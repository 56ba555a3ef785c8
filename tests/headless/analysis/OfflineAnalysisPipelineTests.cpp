// The whole-file pipeline for scripts, on real files written to disk and read back through
// the file layer: its figures against sox and libebur128 on the same file, the stereo width
// curve on material whose correlation is known, speech detection, and the load's errors.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <random>

#include "AnalysisTestSupport.h"
#include "headless/analysis/OfflineAnalysisPipeline.h"
#include "headless/files/AudioError.h"
#include "headless/speech/SpeechScene.h"

namespace corvane::test {
namespace {

constexpr double kRate = 48000.0;

OfflineAnalysisPipeline::Options withoutSpeech() {
  OfflineAnalysisPipeline::Options options;
  options.detectSpeech = false;
  return options;
}

TEST(OfflineAnalysisPipeline, AnalysesTheWholeFileAsSoxAndLibebur128ReadIt) {
  const Planar signal = programme(kRate, 2, 20.0, 31);
  TemporaryDirectory dir;
  const std::string path = dir.file("programme.wav");
  writeWav(path, signal);

  const OfflineAnalysisPipeline::Result r = OfflineAnalysisPipeline::analyzeFile(path, withoutSpeech());
  EXPECT_EQ(r.file.channelCount, 2);
  EXPECT_EQ(r.file.sampleRate, kRate);
  EXPECT_EQ(r.file.pcmBuffer->frameLength(), 0);  // the samples are not kept
  EXPECT_EQ(r.file.channelLabels(), (std::vector<std::string>{"L", "R"}));
  EXPECT_EQ(r.analysis.timeRange.lower, 0.0);
  EXPECT_DOUBLE_EQ(r.analysis.timeRange.upper, 20.0);

  const SoxStats sox = soxStats(path, 2);
  for (std::size_t c = 0; c < 2; ++c) {
    EXPECT_NEAR(r.analysis.peakDB[c], sox.peakDB[c], 0.01);
    EXPECT_NEAR(r.analysis.rmsDB[c], sox.rmsDB[c], 0.01);
  }
  const OracleResult ebu = ebur128Measure(signal);
  EXPECT_NEAR(r.analysis.integratedLUFS, ebu.integrated, 0.05);
  EXPECT_NEAR(r.analysis.truePeakDB, std::max(ebu.truePeakDB[0], ebu.truePeakDB[1]), 0.2);
  EXPECT_EQ(r.analysis.momentaryCurve.size(), 200u);
  EXPECT_FALSE(r.spectrogramColumns.empty());
  EXPECT_EQ(r.speechHistory, nullptr);
  EXPECT_TRUE(r.speechDetectionError.empty());
}

TEST(OfflineAnalysisPipeline, StereoWidthCurveReadsMonoInvertedAndUnrelatedChannels) {
  // 2 s of one noise in both channels, 2 s with the right channel inverted, 2 s of two
  // unrelated noises, and 50 ms more that make no whole block.
  const FrameCount frames = 6 * 48000 + 2400;
  Planar signal(kRate, 2, frames);
  std::mt19937 random(11);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  for (FrameCount i = 0; i < frames; ++i) {
    const auto k = static_cast<std::size_t>(i);
    const float a = noise(random);
    signal.channels[0][k] = a;
    signal.channels[1][k] = i < 96000 ? a : i < 192000 ? -a : noise(random);
  }
  TemporaryDirectory dir;
  const std::string path = dir.file("width.wav");
  writeWav(path, signal);

  const OfflineAnalysisPipeline::Result r = OfflineAnalysisPipeline::analyzeFile(path, withoutSpeech());
  ASSERT_EQ(r.stereoWidthCurve.size(), 60u);
  for (std::size_t i = 0; i < 60; ++i) {
    EXPECT_NEAR(r.stereoWidthCurve[i].time, 0.1 * static_cast<double>(i + 1), 1e-9);
    const float c = r.stereoWidthCurve[i].correlation;
    if (i < 20) EXPECT_NEAR(c, 1.0f, 1e-5) << i;
    else if (i < 40) EXPECT_NEAR(c, -1.0f, 1e-5) << i;
    else EXPECT_LT(std::fabs(c), 0.1f) << i;  // 4800 unrelated samples: about ±0.014
  }

  OfflineAnalysisPipeline::Options options = withoutSpeech();
  options.stereoCorrelation = false;
  EXPECT_TRUE(OfflineAnalysisPipeline::analyzeFile(path, options).stereoWidthCurve.empty());
  // Silence has no correlation to speak of: it reads 0.
  EXPECT_EQ(computeStereoWidthCurve(std::vector<float>(4800).data(), std::vector<float>(4800).data(), 4800, kRate)[0].correlation, 0.0f);
}

TEST(OfflineAnalysisPipeline, DetectsSpeechWhenAsked) {
  TemporaryFolder folder;
  const SpeechScene scene = SpeechScene::build(folder.path());
  const auto path = folder / "scene.wav";
  writeWav(path, scene.audio);

  const OfflineAnalysisPipeline::Result r = OfflineAnalysisPipeline::analyzeFile(path);
  ASSERT_NE(r.speechHistory, nullptr) << r.speechDetectionError;
  EXPECT_TRUE(r.speechDetectionError.empty());
  EXPECT_GT(r.analysis.speechPercentage, 5.0f);
  EXPECT_FALSE(r.analysis.speechRanges.empty());
  EXPECT_TRUE(std::isfinite(r.analysis.speechGatedLUFS));
  // The scene is the same in both channels: the width curve reads +1 inside a phrase.
  const auto block = static_cast<std::size_t>((scene.phrases[0].start + scene.phrases[0].end) / 2 / 4800);
  ASSERT_LT(block, r.stereoWidthCurve.size());
  EXPECT_NEAR(r.stereoWidthCurve[block].correlation, 1.0f, 1e-4);
}

TEST(OfflineAnalysisPipeline, PassesTheLoadsErrorsOnInTheUsersWords) {
  TemporaryDirectory dir;
  try {
    OfflineAnalysisPipeline::analyzeFile(dir.file("missing.wav"), withoutSpeech());
    FAIL() << "a missing file was analysed";
  } catch (const AudioDecodeError& e) {
    EXPECT_NE(std::string(e.what()).find("missing.wav"), std::string::npos) << e.what();
  }
  // A WAV header without a single frame.
  const std::string empty = dir.file("empty.wav");
  writeWav(empty, Planar(kRate, 2, 0));
  try {
    OfflineAnalysisPipeline::analyzeFile(empty, withoutSpeech());
    FAIL() << "a file without frames was analysed";
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "The file holds no audio.");
  }
}

}  // namespace
}  // namespace corvane::test
