// The level-of-detail pyramid and the two ways a view reads peaks for a stretch of the file,
// against sums done the plain way over the samples.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "headless/files/WaveformPeaks.h"

namespace corvane {
namespace {

// Deterministic noise in -1 ... 1 with a slow envelope, so neighbouring bins differ.
SharedAudioBuffer noise(FrameCount frames, int channels) {
  auto buffer = AudioBuffer::create(channels, frames, 48000.0);
  std::uint32_t state = 0x12345678u;
  for (int c = 0; c < channels; ++c) {
    float* data = buffer->channel(c);
    for (FrameCount i = 0; i < frames; ++i) {
      state = state * 1664525u + 1013904223u;
      const float unit = static_cast<float>(state >> 8) / static_cast<float>(1u << 24) * 2.0f - 1.0f;
      const float envelope = 0.2f + 0.8f * static_cast<float>((i / 997) % 7) / 6.0f;
      data[i] = unit * envelope * (c == 0 ? 1.0f : 0.5f);
    }
  }
  return buffer;
}

struct Plain {
  float min, max;
  double meanSquare;
};

Plain plainStats(const float* data, FrameCount first, FrameCount end) {
  Plain p{data[first], data[first], 0.0};
  for (FrameCount i = first; i < end; ++i) {
    p.min = std::min(p.min, data[i]);
    p.max = std::max(p.max, data[i]);
    p.meanSquare += static_cast<double>(data[i]) * data[i];
  }
  p.meanSquare /= static_cast<double>(end - first);
  return p;
}

TEST(WaveformPyramid, LevelsForTheSmallestLongFile) {
  EXPECT_TRUE(buildWaveformPyramid(*AudioBuffer::createZeroed(1, 4194303, 48000.0)).empty());

  const auto levels = buildWaveformPyramid(*AudioBuffer::createZeroed(2, 4194304, 48000.0));
  ASSERT_EQ(levels.size(), 4u);
  const FrameCount framesPerBin[] = {4, 16, 64, 256};
  const std::size_t bins[] = {1048576, 262144, 65536, 16384};
  for (std::size_t k = 0; k < levels.size(); ++k) {
    SCOPED_TRACE(k);
    EXPECT_EQ(levels[k].framesPerBin, framesPerBin[k]);
    ASSERT_EQ(levels[k].peaks.size(), 2u);
    EXPECT_EQ(levels[k].peaks[0].size(), bins[k]);
    EXPECT_EQ(levels[k].peaks[1].size(), bins[k]);
  }
}

TEST(WaveformPyramid, EveryLevelHoldsTheExtremesOfItsFramesAndAFrameWeightedRms) {
  // Five frames past the limit: five frames per base bin, and a last base bin of four frames
  // whose parent bins end short too.
  const FrameCount frames = 4194304 + 5;
  const auto buffer = noise(frames, 2);
  const auto levels = buildWaveformPyramid(*buffer);
  ASSERT_EQ(levels.size(), 4u);
  EXPECT_EQ(levels[0].framesPerBin, 5);
  EXPECT_EQ(levels[0].peaks[0].size(), 838862u);  // ceil(4194309 / 5)
  EXPECT_EQ(levels[1].peaks[0].size(), 209716u);
  EXPECT_EQ(levels[2].peaks[0].size(), 52429u);
  EXPECT_EQ(levels[3].peaks[0].size(), 13108u);

  for (const auto& level : levels) {
    for (int c = 0; c < 2; ++c) {
      const auto& bins = level.peaks[static_cast<std::size_t>(c)];
      const std::size_t probes[] = {0, 1, bins.size() / 3, bins.size() - 2, bins.size() - 1};
      for (std::size_t b : probes) {
        SCOPED_TRACE(testing::Message() << "framesPerBin " << level.framesPerBin << " channel " << c << " bin " << b);
        const FrameCount first = static_cast<FrameCount>(b) * level.framesPerBin;
        const FrameCount end = std::min(frames, first + level.framesPerBin);
        const Plain p = plainStats(buffer->channel(c), first, end);
        EXPECT_EQ(bins[b].min, p.min);
        EXPECT_EQ(bins[b].max, p.max);
        // Parent levels weight each child by the frames it covers, so every level's rms is
        // the rms of its frames, up to float rounding of the children.
        EXPECT_NEAR(bins[b].rms, std::sqrt(p.meanSquare), 2e-6);
      }
    }
  }
}

TEST(WaveformPyramid, DownsamplingWeighsAShortLastBinByTheFramesItHolds) {
  WaveformPyramidLevel level;
  level.framesPerBin = 4;
  // Nine frames: bins of 4, 4 and 1 frames, then one more bin past the end that covers none.
  level.peaks = {{{-0.5f, 0.25f, 0.3f}, {-0.1f, 0.9f, 0.6f}, {-0.8f, -0.2f, 0.8f}, {-1.0f, 1.0f, 1.0f}}};
  const auto up = downsampleLevel(level, 9, 3);
  EXPECT_EQ(up.framesPerBin, 12);
  ASSERT_EQ(up.peaks[0].size(), 2u);
  EXPECT_EQ(up.peaks[0][0].min, -0.8f);
  EXPECT_EQ(up.peaks[0][0].max, 0.9f);
  // (4·0.09 + 4·0.36 + 1·0.64) / 9 = 2.44 / 9, not the unweighted (0.09 + 0.36 + 0.64) / 3.
  EXPECT_NEAR(up.peaks[0][0].rms, std::sqrt(2.44 / 9.0), 1e-7);
  // The bin past the end covers nothing: its rms is 0, its extremes are still its own.
  EXPECT_EQ(up.peaks[0][1].rms, 0.0f);
  EXPECT_EQ(up.peaks[0][1].max, 1.0f);
}

TEST(WaveformPyramid, PeaksForAStretchComeFromTheCoarsestLevelFineEnough) {
  const FrameCount frames = 4194304;
  const auto buffer = noise(frames, 1);
  const auto levels = buildWaveformPyramid(*buffer);  // 4, 16, 64, 256 frames per bin
  ASSERT_EQ(levels.size(), 4u);

  // None: no levels, no bins, an empty range, a missing channel, fewer frames per output bin
  // than the base level holds.
  EXPECT_FALSE(pyramidPeaks({}, 0, 0, frames, 100));
  EXPECT_FALSE(pyramidPeaks(levels, 0, 0, frames, 0));
  EXPECT_FALSE(pyramidPeaks(levels, 0, 500, 500, 10));
  EXPECT_FALSE(pyramidPeaks(levels, 1, 0, frames, 100));
  EXPECT_FALSE(pyramidPeaks(levels, 0, 1000, 1000 + 3 * 640, 640));  // 3 frames per output bin

  struct Case {
    FrameCount start, end;
    int bins;
    FrameCount framesPerBin;  // of the level that must serve
  };
  const Case cases[] = {
      {0, frames, 1000, 256},              // 4194 frames per output bin
      {12345, 12345 + 40 * 700, 700, 16},  // 40: 64 is too coarse
      {7, 7 + 4 * 333 + 2, 333, 4},        // 4 exactly: the base level
      {frames - 100000, frames, 1024, 64}, // 97: 64, and the stretch ends at the last bin
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.start << "..." << c.end << " in " << c.bins);
    const auto peaks = pyramidPeaks(levels, 0, c.start, c.end, c.bins);
    ASSERT_TRUE(peaks);
    ASSERT_EQ(peaks->size(), static_cast<std::size_t>(c.bins));
    const FrameCount length = c.end - c.start;
    for (int i = 0; i < c.bins; ++i) {
      // The output bin shows every level bin it touches, so its extremes are those of the
      // frames from the first touched bin's start to the last touched bin's end.
      const FrameCount a = c.start + length * i / c.bins;
      const FrameCount b = std::max(c.start + length * (i + 1) / c.bins, a + 1);
      const FrameCount first = a / c.framesPerBin * c.framesPerBin;
      const FrameCount end = std::min(frames, ((b - 1) / c.framesPerBin + 1) * c.framesPerBin);
      const Plain p = plainStats(buffer->channel(0), first, end);
      ASSERT_EQ((*peaks)[static_cast<std::size_t>(i)].min, p.min) << i;
      ASSERT_EQ((*peaks)[static_cast<std::size_t>(i)].max, p.max) << i;
      // Touched bins are whole here, so the unweighted mean of their squares is the frames'.
      ASSERT_NEAR((*peaks)[static_cast<std::size_t>(i)].rms, std::sqrt(p.meanSquare), 2e-6) << i;
    }
  }

  // A level of one frame per bin serves output bins of less than one frame.
  std::vector<WaveformPyramidLevel> single{{1, {{{-0.5f, -0.5f, 0.5f}, {0.25f, 0.25f, 0.25f}}}}};
  const auto stretched = pyramidPeaks(single, 0, 0, 2, 4);
  ASSERT_TRUE(stretched);
  EXPECT_EQ((*stretched)[0].max, -0.5f);
  EXPECT_EQ((*stretched)[1].max, -0.5f);
  EXPECT_EQ((*stretched)[2].max, 0.25f);
  EXPECT_EQ((*stretched)[3].max, 0.25f);
}

TEST(WaveformPyramid, PeaksFromTheSamplesCoverEveryFrameOnce) {
  const FrameCount frames = 100003;
  const auto buffer = noise(frames, 2);

  for (const auto& [start, end, bins] : {std::tuple<FrameCount, FrameCount, int>{0, frames, 640},
                                         {777, 5000, 1000}, {-50, 1234, 7}}) {
    SCOPED_TRACE(testing::Message() << start << "..." << end << " in " << bins);
    const auto peaks = computePeaks(*buffer, 1, start, end, bins);
    ASSERT_EQ(peaks.size(), static_cast<std::size_t>(bins));
    const FrameCount from = std::max<FrameCount>(start, 0);
    const double step = static_cast<double>(end - from) / bins;
    FrameCount expectedStart = from;
    for (int i = 0; i < bins; ++i) {
      const FrameCount binEnd = i + 1 == bins ? end : from + static_cast<FrameCount>(std::floor(step * (i + 1)));
      const Plain p = plainStats(buffer->channel(1), expectedStart, binEnd);
      ASSERT_EQ(peaks[static_cast<std::size_t>(i)].min, p.min) << i;
      ASSERT_EQ(peaks[static_cast<std::size_t>(i)].max, p.max) << i;
      ASSERT_NEAR(peaks[static_cast<std::size_t>(i)].rms, std::sqrt(p.meanSquare), 1e-6) << i;
      expectedStart = binEnd;
    }
  }

  // Fewer frames than bins: each frame shows in the bins that fall on it; min = max = sample.
  const auto close = computePeaks(*buffer, 0, 10, 13, 6);
  ASSERT_EQ(close.size(), 6u);
  const float* data = buffer->channel(0);
  const FrameCount frameOfBin[] = {10, 10, 11, 11, 12, 12};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(close[static_cast<std::size_t>(i)].min, data[frameOfBin[i]]) << i;
    EXPECT_EQ(close[static_cast<std::size_t>(i)].max, data[frameOfBin[i]]) << i;
  }

  // Past the end the range is clamped to the buffer; outside it there is nothing.
  const auto tail = computePeaks(*buffer, 0, frames - 10, frames + 1000, 5);
  ASSERT_EQ(tail.size(), 5u);
  EXPECT_EQ(tail[4].max, std::max(data[frames - 2], data[frames - 1]));
  EXPECT_TRUE(computePeaks(*buffer, 2, 0, frames, 10).empty());
  EXPECT_TRUE(computePeaks(*buffer, 0, frames, frames + 10, 10).empty());
  EXPECT_TRUE(computePeaks(*buffer, 0, 0, frames, 0).empty());
}

}  // namespace
}  // namespace corvane
