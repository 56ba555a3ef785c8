// FFTProcessor against spectra worked out by hand and against a plain DFT computed here in
// double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <thread>
#include <vector>

#include "core/FFTProcessor.h"

namespace corvane {
namespace {

constexpr double kPi = std::numbers::pi;

std::vector<float> tone(int n, double cyclesPerWindow, double amplitude, double phase = 0.3) {
  std::vector<float> x(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) x[static_cast<std::size_t>(i)] = static_cast<float>(amplitude * std::cos(2 * kPi * cyclesPerWindow * i / n + phase));
  return x;
}

// The window written from its textbook definition (periodic form), for the reference DFT.
double windowValue(FFTWindowType type, int i, int n) {
  const double t = 2 * kPi * i / n;
  switch (type) {
    case FFTWindowType::Hann: return 0.5 * (1 - std::cos(t));
    case FFTWindowType::Hamming: return 0.54 - 0.46 * std::cos(t);
    case FFTWindowType::Blackman: return 0.42 - 0.5 * std::cos(t) + 0.08 * std::cos(2 * t);
    case FFTWindowType::BlackmanHarris:
      return 0.35875 - 0.48829 * std::cos(t) + 0.14128 * std::cos(2 * t) - 0.01168 * std::cos(3 * t);
    case FFTWindowType::FlatTop:
      return 0.21557895 - 0.41663158 * std::cos(t) + 0.277263158 * std::cos(2 * t) -
             0.083578947 * std::cos(3 * t) + 0.006947368 * std::cos(4 * t);
  }
  return 0.0;
}

const FFTWindowType kAllWindows[] = {FFTWindowType::Hann, FFTWindowType::Hamming, FFTWindowType::Blackman,
                                     FFTWindowType::BlackmanHarris, FFTWindowType::FlatTop};

TEST(FFTProcessor, FullScaleSineOnABinReadsZeroDecibelsWithEveryWindow) {
  FFTProcessor fft(1024, 48000.0);
  const auto x = tone(1024, 64, 1.0);
  for (FFTWindowType type : kAllWindows) {
    fft.setWindowType(type);
    const auto m = fft.process(x.data(), 1024);
    ASSERT_EQ(m.size(), 512u);
    EXPECT_NEAR(m[64], 0.0, 0.01) << fftWindowTypeName(type);
  }
  // −20 dBFS reads −20.
  fft.setWindowType(FFTWindowType::Hann);
  const auto quiet = tone(1024, 100, 0.1);
  EXPECT_NEAR(fft.process(quiet.data(), 1024)[100], -20.0, 0.01);
}

TEST(FFTProcessor, LeakageAndScallopingOfTheWindowsAreTheTextbookValues) {
  FFTProcessor fft(1024, 48000.0);
  const auto onBin = tone(1024, 64, 1.0);
  fft.setWindowType(FFTWindowType::Hann);
  auto m = fft.process(onBin.data(), 1024);
  // Hann: neighbours at half the main value (−6.02 dB), the next ones empty.
  EXPECT_NEAR(m[63], -6.02, 0.01);
  EXPECT_NEAR(m[65], -6.02, 0.01);
  EXPECT_LT(m[66], -100.0);
  fft.setWindowType(FFTWindowType::Hamming);
  m = fft.process(onBin.data(), 1024);
  EXPECT_NEAR(m[65], 20 * std::log10(0.23 / 0.54), 0.01);  // −7.39 dB

  // Half a bin off: Hann scallops by 1.42 dB, the flat top by less than 0.02 dB.
  const auto between = tone(1024, 64.5, 1.0);
  fft.setWindowType(FFTWindowType::Hann);
  m = fft.process(between.data(), 1024);
  EXPECT_NEAR(std::max(m[64], m[65]), -1.42, 0.02);
  fft.setWindowType(FFTWindowType::FlatTop);
  m = fft.process(between.data(), 1024);
  EXPECT_NEAR(std::max(m[64], m[65]), 0.0, 0.02);
}

TEST(FFTProcessor, AgreesWithADirectDFTOnNoise) {
  const int n = 512;
  std::mt19937 random(3);
  std::normal_distribution<float> normal(0.0f, 0.2f);
  std::vector<float> x(n);
  for (float& v : x) v = normal(random);
  FFTProcessor fft(n, 44100.0);
  for (FFTWindowType type : kAllWindows) {
    fft.setWindowType(type);
    const auto m = fft.process(x.data(), n);
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += windowValue(type, i, n);
    double worst = 0.0;
    for (int k = 0; k < n / 2; ++k) {
      std::complex<double> acc = 0.0;
      for (int i = 0; i < n; ++i) acc += double(x[static_cast<std::size_t>(i)]) * windowValue(type, i, n) * std::polar(1.0, -2 * kPi * k * i / n);
      const double expected = 20 * std::log10(2 * std::abs(acc) / sum);
      if (expected > -100) worst = std::max(worst, std::fabs(m[static_cast<std::size_t>(k)] - expected));
    }
    EXPECT_LT(worst, 0.01) << fftWindowTypeName(type);
  }
}

TEST(FFTProcessor, ShortInputsSilenceAndFloors) {
  FFTProcessor fft(256, 48000.0);
  // Silence reads the floor of the mode: −160 dB live, −300 dB offline.
  std::vector<float> zeros(256, 0.0f);
  EXPECT_FLOAT_EQ(fft.process(zeros.data(), 256)[10], -160.0f);
  fft.setLiveMode(false);
  EXPECT_FLOAT_EQ(fft.process(zeros.data(), 256)[10], -300.0f);
  EXPECT_FLOAT_EQ(fft.process(nullptr, 256)[3], -300.0f);
  // Fewer samples than the size are zero-padded: a tone over the first half reads about
  // 6 dB down (half the window's weight), non-finite samples count as silence.
  auto x = tone(256, 32, 1.0);
  x[5] = std::numeric_limits<float>::quiet_NaN();
  const auto m = fft.process(x.data(), 128);
  EXPECT_NEAR(m[32], -6.0, 0.5);
  for (float v : m) EXPECT_TRUE(std::isfinite(v));
  EXPECT_THROW(FFTProcessor(3, 48000.0), std::invalid_argument);
  EXPECT_THROW(FFTProcessor(256, 0.0), std::invalid_argument);
}

TEST(FFTProcessor, ProcessorsBuiltOnManyThreadsAtOnceAllWork) {
  // Background tasks plan FFTs concurrently; planning must be serialised inside the core.
  std::vector<std::thread> threads;
  std::vector<float> results(8, -1000.0f);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &results] {
      const int size = 256 << (t % 4);
      FFTProcessor fft(size, 48000.0, FFTWindowType::BlackmanHarris);
      const auto x = tone(size, 16, 0.5);
      results[static_cast<std::size_t>(t)] = fft.process(x.data(), size)[16];
    });
  }
  for (auto& th : threads) th.join();
  for (float r : results) EXPECT_NEAR(r, -6.02, 0.01);
}

}  // namespace
}  // namespace corvane
