// DR values against cases worked out by hand from the published algorithm, and against
// ffmpeg's drmeter on programme-like material.
#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <string>
#include <vector>

#include "TestSignals.h"
#include "core/DRProcessor.h"

namespace corvane::test {
namespace {

constexpr double kRate = 48000.0;
constexpr FrameCount kBlock = 144000;  // 3 s

// Blocks of an alternating ±A square (mean square A², peak A), one amplitude per block.
std::vector<float> squareBlocks(const std::vector<double>& amplitudes, FrameCount lastBlockFrames = kBlock) {
  std::vector<float> x;
  for (std::size_t b = 0; b < amplitudes.size(); ++b) {
    const FrameCount n = b + 1 == amplitudes.size() ? lastBlockFrames : kBlock;
    for (FrameCount i = 0; i < n; ++i) x.push_back(static_cast<float>(i % 2 ? -amplitudes[b] : amplitudes[b]));
  }
  return x;
}

TEST(DRProcessor, HandComputedChannel) {
  std::vector<float> x = squareBlocks({0.1, 0.2, 0.1, 0.3, 0.1, 0.2, 0.1, 0.1, 0.25, 0.1});
  x[2 * kBlock + 100] = 0.9f;  // the largest peak, in a quiet block
  x[7 * kBlock + 100] = 0.8f;  // the second largest
  // Ten blocks: the loudest two (0.3 and 0.25) give RMS² = 2·A² each; Pk2 = 0.8.
  const double expected = 20 * std::log10(0.8 / std::sqrt((2 * 0.3 * 0.3 + 2 * 0.25 * 0.25) / 2));
  EXPECT_NEAR(DRProcessor::channelDRDecibels(x.data(), static_cast<FrameCount>(x.size()), kRate), expected, 1e-4);
  const float* channels[] = {x.data()};
  EXPECT_EQ(DRProcessor::computeDR(channels, 1, static_cast<FrameCount>(x.size()), kRate), 6);
}

TEST(DRProcessor, ShortLastBlockCountsAsABlock) {
  // Eleven blocks, the last only 1.5 s long but the loudest: N = round(2.2) = 2.
  std::vector<float> x = squareBlocks({0.1, 0.2, 0.1, 0.3, 0.1, 0.2, 0.1, 0.1, 0.25, 0.1, 0.5}, kBlock / 2);
  x[100] = 0.95f;
  x[4 * kBlock + 7] = 0.9f;
  const double expected = 20 * std::log10(0.9 / std::sqrt((2 * 0.5 * 0.5 + 2 * 0.3 * 0.3) / 2));
  EXPECT_NEAR(DRProcessor::channelDRDecibels(x.data(), static_cast<FrameCount>(x.size()), kRate), expected, 1e-4);
}

TEST(DRProcessor, ChannelsCombineByMeanOfUnroundedValues) {
  // Left: 6.23 dB (above). Right: one block type only: DR = 20·log10(Pk2 / (A√2)).
  std::vector<float> left = squareBlocks({0.1, 0.2, 0.1, 0.3, 0.1, 0.2, 0.1, 0.1, 0.25, 0.1});
  left[2 * kBlock + 100] = 0.9f;
  left[7 * kBlock + 100] = 0.8f;
  std::vector<float> right = squareBlocks(std::vector<double>(10, 0.1));
  right[kBlock + 5] = 0.7f;
  right[5 * kBlock + 5] = 0.6f;
  const double l = 20 * std::log10(0.8 / std::sqrt((2 * 0.3 * 0.3 + 2 * 0.25 * 0.25) / 2));
  const double r = 20 * std::log10(0.6 / std::sqrt(2 * 0.1 * 0.1));  // 12.55 dB
  const float* channels[] = {left.data(), right.data()};
  const auto frames = static_cast<FrameCount>(left.size());
  EXPECT_EQ(DRProcessor::computeDRPerChannel(channels, 2, frames, kRate), (std::vector<int>{6, 13}));
  EXPECT_EQ(DRProcessor::computeDR(channels, 2, frames, kRate), static_cast<int>(std::lround((l + r) / 2)));
  EXPECT_EQ(DRProcessor::computeDR(channels, 2, frames, kRate), 9);  // (6.23 + 12.55) / 2 = 9.39
}

TEST(DRProcessor, SineSilenceAndNothing) {
  const Planar s = sine(kRate, 1, 10.0, 1000.0, 1.0);
  const float* sineChannel[] = {s.channels[0].data()};
  EXPECT_EQ(DRProcessor::computeDR(sineChannel, 1, s.frames(), kRate), 0);  // RMS·√2 = peak
  const std::vector<float> zeros(48000, 0.0f);
  const float* silent[] = {zeros.data()};
  EXPECT_EQ(DRProcessor::computeDR(silent, 1, 48000, kRate), 0);
  EXPECT_EQ(DRProcessor::computeDR(silent, 1, 0, kRate), -1);
  EXPECT_EQ(DRProcessor::computeDR(nullptr, 1, 48000, kRate), -1);
  EXPECT_TRUE(DRProcessor::computeDRPerChannel(silent, 0, 48000, kRate).empty());
}

TEST(DRProcessor, AgreesWithFfmpegDrmeterOnProgrammeMaterial) {
  // 60 s: twenty whole blocks, so ffmpeg's "0.2 × blocks" is a whole number and its top-20 %
  // sum means what the algorithm means.
  const Planar signal = programme(kRate, 2, 60.0, 8);
  TemporaryDirectory dir;
  const std::string path = dir.file("programme.wav");
  writeWav(path, signal);
  const CommandResult r = runCommand("ffmpeg -nostdin -hide_banner -nostats -i '" + path + "' -af drmeter -f null - 2>&1");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  const std::regex channelLine(R"(Channel (\d+): DR: ([0-9.]+))"), overallLine(R"(Overall DR: ([0-9.]+))");
  std::vector<double> theirs(2, -1.0);
  double overall = -1.0;
  for (std::sregex_iterator it(r.output.begin(), r.output.end(), channelLine), end; it != end; ++it) {
    theirs[static_cast<std::size_t>(std::stoi((*it)[1]) - 1)] = std::stod((*it)[2]);
  }
  std::smatch m;
  ASSERT_TRUE(std::regex_search(r.output, m, overallLine)) << r.output;
  overall = std::stod(m[1]);
  for (int c = 0; c < 2; ++c) {
    const double ours = DRProcessor::channelDRDecibels(signal.channels[static_cast<std::size_t>(c)].data(), signal.frames(), kRate);
    // ffmpeg bins RMS and peak on a linear 1e-4 grid: a few hundredths of a dB at these levels.
    EXPECT_NEAR(ours, theirs[static_cast<std::size_t>(c)], 0.05) << "channel " << c;
    std::printf("    channel %d: ours %.4f dB, ffmpeg %.4f dB\n", c, ours, theirs[static_cast<std::size_t>(c)]);
  }
  const auto channels = signal.pointers();
  EXPECT_EQ(DRProcessor::computeDR(channels.data(), 2, signal.frames(), kRate), std::lround(overall));
  EXPECT_GT(overall, 3.0);  // programme, not a sine
}

}  // namespace
}  // namespace corvane::test
