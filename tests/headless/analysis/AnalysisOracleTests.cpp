// The pass's figures against tools no one here wrote, on the very samples it measured: sox
// stats for peak, RMS and DC per channel, scipy's Welch for the averaged spectra, ffmpeg's
// drmeter for the dynamic range.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <random>

#include "AnalysisTestSupport.h"
#include "core/DRProcessor.h"

namespace corvane::test {
namespace {

// Three channels that differ in every figure: programme material, noise riding on a DC
// offset, a quiet tone with a negative offset.
Planar threeChannels(double seconds) {
  const double rate = 48000.0;
  const Planar music = programme(rate, 1, seconds, 21);
  const Planar noise = bandLimitedNoise(rate, 1, seconds, 12000.0, -24.0, 6.0, 5);
  Planar p(rate, 3, music.frames());
  for (FrameCount i = 0; i < music.frames(); ++i) {
    const auto k = static_cast<std::size_t>(i);
    p.channels[0][k] = music.channels[0][k];
    p.channels[1][k] = noise.channels[0][k] + 0.05f;
    p.channels[2][k] = static_cast<float>(0.0316 * std::sin(2.0 * std::numbers::pi * 997.0 * static_cast<double>(i) / rate)) - 0.01f;
  }
  return p;
}

void expectSoxAgreement(const SelectionAnalysisResult& r, const SoxStats& sox) {
  ASSERT_EQ(r.peakDB.size(), sox.peakDB.size());
  for (std::size_t c = 0; c < sox.peakDB.size(); ++c) {
    // sox prints Min/Max level to six decimals and RMS to two: 0.01 dB covers its rounding.
    EXPECT_NEAR(r.peakDB[c], sox.peakDB[c], 0.01) << "channel " << c;
    EXPECT_NEAR(r.rmsDB[c], sox.rmsDB[c], 0.01) << "channel " << c;
    EXPECT_NEAR(r.dcOffset[c], sox.dcOffset[c], 2e-6) << "channel " << c;
    EXPECT_FLOAT_EQ(r.crestFactorDB[c], r.peakDB[c] - r.rmsDB[c]);
  }
  const double loudest = *std::max_element(sox.peakDB.begin(), sox.peakDB.end());
  EXPECT_NEAR(r.samplePeakDB, loudest, 0.01);
  EXPECT_FLOAT_EQ(r.headroomDB, -r.samplePeakDB);
}

TEST(AnalysisOracles, ChannelStatisticsAgreeWithSoxStatsOnTheWholeFileAndASlice) {
  const Planar signal = threeChannels(20.0);
  TemporaryDirectory dir;
  const std::string path = dir.file("three.wav");
  writeWav(path, signal);
  const SharedAudioBuffer buffer = toBuffer(signal);

  const SelectionAnalysisResult whole = analyse(buffer, 0.0, 20.0, plainSettings(3)).result;
  expectSoxAgreement(whole, soxStats(path, 3));

  // 3.25 s ... 11.5 s: frames 156,000 to 552,000.
  const SelectionAnalysisResult part = analyse(buffer, 3.25, 11.5, plainSettings(3)).result;
  expectSoxAgreement(part, soxStats(path, 3, std::make_pair(FrameCount{156000}, FrameCount{396000})));
  EXPECT_DOUBLE_EQ(part.timeRange.lower, 3.25);
  EXPECT_DOUBLE_EQ(part.timeRange.upper, 11.5);
}

// Ours reads a sine's peak amplitude (a full-scale sine on a bin: 0 dB); scipy's 'spectrum'
// scaling reads its mean square (−3.01 dB), and leaves bin 0 undoubled (another 3.01 dB).
double scipyToOurs(double scipyDB, std::size_t bin) {
  return scipyDB + (bin == 0 ? 20.0 : 10.0) * std::log10(2.0);
}

void expectSpectrum(const std::vector<float>& ours, const std::vector<double>& scipy, double tolerance,
                    const char* what) {
  ASSERT_EQ(ours.size(), scipy.size()) << what;
  double worst = 0.0;
  std::size_t worstBin = 0;
  for (std::size_t k = 0; k < ours.size(); ++k) {
    const double difference = std::fabs(ours[k] - scipyToOurs(scipy[k], k));
    if (difference > worst) {
      worst = difference;
      worstBin = k;
    }
  }
  std::printf("    %s: largest difference from scipy %.5f dB (bin %zu)\n", what, worst, worstBin);
  EXPECT_LT(worst, tolerance) << what << ": bin " << worstBin << " reads " << ours[worstBin] << " dB, scipy "
                              << scipyToOurs(scipy[worstBin], worstBin) << " dB";
}

TEST(AnalysisOracles, AveragedSpectraMatchScipyWelch) {
  // Stereo white noise with a tone, a DC offset and a level difference, so channel, mid and
  // side spectra all differ. White, so every bin stays far above the float FFT's rounding
  // (about 140 dB below the strongest component). Selection 1 s ... 9 s; 4096-point Hann
  // windows every 1024 frames.
  const double rate = 48000.0;
  Planar signal(rate, 2, 480000);
  std::mt19937 random(77);
  const auto white = [&random] { return static_cast<float>(static_cast<double>(random()) / 4294967296.0 - 0.5); };
  for (FrameCount i = 0; i < signal.frames(); ++i) {
    const auto k = static_cast<std::size_t>(i);
    const float tone = static_cast<float>(0.1 * std::sin(2.0 * std::numbers::pi * 1500.0 * static_cast<double>(i) / rate));
    signal.channels[0][k] = 0.2f * white() + tone + 0.02f;
    signal.channels[1][k] = 0.1f * white() + 0.7f * tone;
  }
  const SharedAudioBuffer buffer = toBuffer(signal);
  SelectionAnalysisSettings settings = plainSettings(2);
  settings.fftSize = 4096;
  settings.overlapFactor = 4;
  const SelectionAnalysisResult r = analyse(buffer, 1.0, 9.0, settings).result;

  const auto reference = welchReference(slice(*buffer, 48000, 384000), 4096, 3072);
  ASSERT_EQ(reference.size(), 4u);
  ASSERT_EQ(r.fftMagnitudes.size(), 2u);
  expectSpectrum(r.fftMagnitudes[0], reference[0], 0.01, "channel 0");
  expectSpectrum(r.fftMagnitudes[1], reference[1], 0.01, "channel 1");
  ASSERT_TRUE(r.msFftMagnitudes.has_value());
  expectSpectrum(r.msFftMagnitudes->mid, reference[2], 0.01, "mid");
  expectSpectrum(r.msFftMagnitudes->side, reference[3], 0.01, "side");
  EXPECT_EQ(r.fftSize, 4096);
}

TEST(AnalysisOracles, ThinnedAverageStaysWithinTheStatisticsOfTheFullOne) {
  // 70,000 hops of 64 frames (fftSize 256 at overlap 4) pass the 65,536-window limit: by
  // default every second window is averaged, with the exact average every window is.
  const double rate = 8000.0;
  const FrameCount frames = 256 + 70000 * 64;
  Planar signal = bandLimitedNoise(rate, 1, static_cast<double>(frames) / rate, 3500.0, -15.0, 0.0, 3);
  signal.channels[0].resize(static_cast<std::size_t>(frames));
  const SharedAudioBuffer buffer = toBuffer(signal);
  const auto reference = welchReference(signal, 256, 192);

  SelectionAnalysisSettings settings = plainSettings(1);
  settings.fftSize = 256;
  settings.spectrogramFftSize = 256;
  settings.fftExactAverage = true;
  const SelectionAnalysisResult exact = analyse(buffer, 0.0, static_cast<double>(frames) / rate, settings).result;
  expectSpectrum(exact.fftMagnitudes[0], reference[0], 0.01, "every window");

  settings.fftExactAverage = false;
  const SelectionAnalysisResult thinned = analyse(buffer, 0.0, static_cast<double>(frames) / rate, settings).result;
  // Half of 70,001 windows of stationary noise: each bin's mean moves by a few hundredths of
  // a dB at most.
  expectSpectrum(thinned.fftMagnitudes[0], reference[0], 0.1, "every second window");
  double largestChange = 0.0;
  for (std::size_t k = 0; k < 128; ++k) {
    largestChange = std::max(largestChange, static_cast<double>(std::fabs(thinned.fftMagnitudes[0][k] - exact.fftMagnitudes[0][k])));
  }
  EXPECT_GT(largestChange, 1e-3) << "the default average took every window";
  EXPECT_FALSE(exact.msFftMagnitudes.has_value());
}

TEST(AnalysisOracles, DynamicRangeAgreesWithTheCoreAndWithFfmpegDrmeter) {
  // A 60 s selection of 70 s of programme: twenty whole 3 s blocks, the case where ffmpeg's
  // top-20 % means what the DR algorithm means.
  const Planar signal = programme(48000.0, 2, 70.0, 12);
  const SharedAudioBuffer buffer = toBuffer(signal);
  const SelectionAnalysisResult r = analyse(buffer, 5.0, 65.0, plainSettings(2)).result;

  const Planar selected = slice(*buffer, 240000, 2880000);
  const auto pointers = selected.pointers();
  EXPECT_EQ(r.dynamicRange, DRProcessor::computeDR(pointers.data(), 2, selected.frames(), 48000.0));
  EXPECT_EQ(r.channelDR, DRProcessor::computeDRPerChannel(pointers.data(), 2, selected.frames(), 48000.0));

  TemporaryDirectory dir;
  const std::string path = dir.file("selection.wav");
  writeWav(path, selected);
  const DrmeterResult ffmpeg = ffmpegDrmeter(path, 2);
  ASSERT_EQ(r.channelDR.size(), 2u);
  for (std::size_t c = 0; c < 2; ++c) {
    // An integer against ffmpeg's decimal: within half a dB plus ffmpeg's 1e-4 binning.
    EXPECT_NEAR(r.channelDR[c], ffmpeg.channels[c], 0.55) << "channel " << c;
  }
  EXPECT_NEAR(r.dynamicRange, ffmpeg.overall, 0.55);
  EXPECT_GT(r.dynamicRange, 3);
}

}  // namespace
}  // namespace corvane::test
