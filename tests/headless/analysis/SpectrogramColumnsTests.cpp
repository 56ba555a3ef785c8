// Spectrogram columns: how many, at which times, and what a column reads for tones whose
// levels are known by hand (a sine of amplitude A centred on a bin reads 20·log10 A there).
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <stop_token>
#include <vector>

#include "headless/analysis/SpectrogramColumns.h"

namespace corvane {
namespace {

// A sine of `amplitude` centred on bin `bin` of an fftSize-point FFT, in every frame.
std::vector<float> binTone(FrameCount frames, int fftSize, int bin, double amplitude) {
  std::vector<float> x(static_cast<std::size_t>(frames));
  for (FrameCount i = 0; i < frames; ++i) {
    x[static_cast<std::size_t>(i)] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * bin * static_cast<double>(i) / fftSize));
  }
  return x;
}

TEST(SpectrogramColumns, ColumnCountAndTimesFollowTheHop) {
  // Ten seconds at 48 kHz, 4096-point windows at overlap 4: the hop is 1024 frames (the length
  // term, (480000 − 4096) / 2048 = 232, is shorter); (480000 − 4096) / 1024 = 464 hops, so 465
  // windows start at 0, 1024, ... 475136.
  const FrameCount frames = 480000;
  std::vector<float> silence(static_cast<std::size_t>(frames), 0.0f);
  const float* channels[] = {silence.data()};
  const SpectrogramColumns columns = computeSpectrogramColumns(channels, frames, 48000.0, 4096, 4, std::nullopt, 12.5);
  ASSERT_EQ(columns.size(), 465u);
  EXPECT_DOUBLE_EQ(columns[0].time, 12.5);
  EXPECT_DOUBLE_EQ(columns[1].time, 12.5 + 1024.0 / 48000.0);
  EXPECT_DOUBLE_EQ(columns.back().time, 12.5 + 475136.0 / 48000.0);
  EXPECT_EQ(columns[0].mags.size(), 2048u);

  // Overlap 64 would give a hop of 64 frames; the floor of 64 keeps it there for 2048 too.
  EXPECT_EQ(spectrogramColumnHop(480000, 4096, 64), 232);  // the length term wins: 232 > 64
  EXPECT_EQ(spectrogramColumnHop(100000, 1024, 64), 64);   // 1024 / 64 = 16, raised to 64
  EXPECT_EQ(spectrogramColumnHop(100000, 1024, 0), 1024);  // a factor below 1 counts as 1
}

TEST(SpectrogramColumns, LongLoadKeepsAboutTwoThousandColumnsByALongerHop) {
  // An hour at 1 kHz, 3,600,000 frames, fftSize 256: the length term
  // (3,600,000 − 256) / 2048 = 1757 beats 256 / 4 = 64; (3,599,744 / 1757) = 2048 hops
  // (2048 × 1757 = 3,598,336), so 2049 columns, the last at 3,598,336 / 1000 s.
  const FrameCount frames = 3600000;
  auto buffer = AudioBuffer::createZeroed(2, frames, 1000.0);
  const SpectrogramColumns columns = computeLoadTimeSpectrogram(buffer.get(), frames, 2, 1000.0, 256, 4, std::nullopt);
  ASSERT_EQ(columns.size(), 2049u);
  EXPECT_DOUBLE_EQ(columns[0].time, 0.0);
  EXPECT_DOUBLE_EQ(columns[1].time, 1.757);
  EXPECT_DOUBLE_EQ(columns.back().time, 3598.336);
  // Digital silence through the offline FFT reads its floor, −300 dB, not the live −160.
  EXPECT_FLOAT_EQ(columns[7].mags[10], -300.0f);
}

TEST(SpectrogramColumns, ChannelChoiceMeanOfPowersAndMissingChannel) {
  const int fftSize = 1024;
  const FrameCount frames = 8 * fftSize;
  // Channel 0: amplitude 0.5 at bin 64 (−6.02 dB). Channel 1: amplitude 0.25 at bin 200
  // (−12.04 dB). The mean of the two power spectra halves each tone's power: −3.01 dB each.
  const std::vector<float> left = binTone(frames, fftSize, 64, 0.5);
  const std::vector<float> right = binTone(frames, fftSize, 200, 0.25);
  const float* channels[] = {left.data(), right.data()};
  const double half = 10.0 * std::log10(0.5);

  const auto mixed = computeSpectrogramColumns(channels, frames, 48000.0, fftSize, 4, std::nullopt, 0.0);
  ASSERT_FALSE(mixed.empty());
  for (const SpectrogramColumn& c : mixed) {
    EXPECT_NEAR(c.mags[64], 20.0 * std::log10(0.5) + half, 0.01);
    EXPECT_NEAR(c.mags[200], 20.0 * std::log10(0.25) + half, 0.01);
  }

  const auto second = computeSpectrogramColumns(channels, frames, 48000.0, fftSize, 4, 1, 0.0);
  ASSERT_EQ(second.size(), mixed.size());
  EXPECT_NEAR(second[3].mags[200], 20.0 * std::log10(0.25), 0.01);
  // Channel 1 has nothing at bin 64: a tone centred on a bin leaks only into its two
  // neighbours through a Hann window, so what is left is the float FFT's rounding.
  EXPECT_LT(second[3].mags[64], -100.0f);

  const auto missing = computeSpectrogramColumns(channels, frames, 48000.0, fftSize, 4, 2, 0.0);
  ASSERT_EQ(missing.size(), mixed.size());
  for (const SpectrogramColumn& c : missing) {
    ASSERT_EQ(c.mags.size(), 512u);
    EXPECT_EQ(c.mags.front(), -100.0f);
    EXPECT_EQ(c.mags.back(), -100.0f);
  }
  EXPECT_DOUBLE_EQ(missing[2].time, mixed[2].time);
}

TEST(SpectrogramColumns, NothingToDraw) {
  std::vector<float> x(4096, 0.1f);
  const float* one[] = {x.data()};
  const float* none[] = {nullptr};
  // Shorter than one window, a null channel, no rate, a size that is no FFT size.
  EXPECT_TRUE(computeSpectrogramColumns(one, 4095, 48000.0, 4096, 4, std::nullopt, 0.0).empty());
  EXPECT_EQ(computeSpectrogramColumns(one, 4096, 48000.0, 4096, 4, std::nullopt, 0.0).size(), 1u);
  EXPECT_TRUE(computeSpectrogramColumns(none, 4096, 48000.0, 4096, 4, std::nullopt, 0.0).empty());
  EXPECT_TRUE(computeSpectrogramColumns(one, 4096, 0.0, 4096, 4, std::nullopt, 0.0).empty());
  EXPECT_TRUE(computeSpectrogramColumns(one, 4096, 48000.0, 0, 4, std::nullopt, 0.0).empty());

  auto buffer = AudioBuffer::createZeroed(1, 4096, 48000.0);
  EXPECT_TRUE(computeLoadTimeSpectrogram(nullptr, 4096, 1, 48000.0, 1024, 4, std::nullopt).empty());
  EXPECT_TRUE(computeLoadTimeSpectrogram(buffer.get(), 4096, 2, 48000.0, 1024, 4, std::nullopt).empty());
  EXPECT_TRUE(computeLoadTimeSpectrogram(buffer.get(), 8192, 1, 48000.0, 1024, 4, std::nullopt).empty());
  EXPECT_EQ(computeLoadTimeSpectrogram(buffer.get(), 4096, 1, 48000.0, 1024, 4, std::nullopt).size(), 13u);

  // A stop requested before the loop leaves no columns.
  std::stop_source stop;
  stop.request_stop();
  EXPECT_TRUE(computeLoadTimeSpectrogram(buffer.get(), 4096, 1, 48000.0, 1024, 4, std::nullopt, stop.get_token()).empty());
}

}  // namespace
}  // namespace corvane
