// Peaks and clip regions on the edge cases that decide their shape: bin counts around the
// resolution, short last bins, runs across scan chunks, clipped last samples.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "headless/files/WaveformPeaks.h"

namespace corvane {
namespace {

SharedAudioBuffer ramp(FrameCount frames, int channels = 1) {
  auto buffer = AudioBuffer::create(channels, frames, 48000.0);
  for (int c = 0; c < channels; ++c) {
    for (FrameCount i = 0; i < frames; ++i) buffer->channel(c)[i] = static_cast<float>(i) * (c == 0 ? 1e-4f : -1e-4f);
  }
  return buffer;
}

TEST(WaveformPeaks, BinCountsFollowTheResolution) {
  struct Case {
    FrameCount frames;
    std::size_t bins;
  };
  for (const auto& c : std::vector<Case>{{10, 10}, {4095, 4095}, {4096, 4096}, {8191, 8191}, {8192, 4096},
                                         {12287, 6144}, {48000 * 60, 4097}, {4096 * 3 - 1, 6144}, {4096 * 7 + 4095, 4681}}) {
    SCOPED_TRACE(c.frames);
    const auto peaks = computeWaveformPeaks(*ramp(c.frames, 2), kWaveformPeakResolution);
    ASSERT_EQ(peaks.size(), 2u);
    EXPECT_EQ(peaks[0].size(), c.bins);
    EXPECT_EQ(peaks[1].size(), c.bins);
  }
}

TEST(WaveformPeaks, EachBinHoldsItsMinimumMaximumAndRms) {
  // 10 frames at resolution 4: bins of 2 frames (10 / 4 = 2), five of them.
  auto buffer = AudioBuffer::create(1, 10, 48000.0);
  const float samples[10] = {0.5f, -0.5f, 1.0f, 0.0f, -0.25f, -0.75f, 0.3f, 0.4f, 2.0f, -2.0f};
  std::copy(samples, samples + 10, buffer->channel(0));
  const auto peaks = computeWaveformPeaks(*buffer, 4);
  ASSERT_EQ(peaks[0].size(), 5u);
  EXPECT_EQ(peaks[0][0].min, -0.5f);
  EXPECT_EQ(peaks[0][0].max, 0.5f);
  EXPECT_FLOAT_EQ(peaks[0][0].rms, 0.5f);
  EXPECT_FLOAT_EQ(peaks[0][1].rms, std::sqrt(0.5f));
  EXPECT_EQ(peaks[0][2].min, -0.75f);
  EXPECT_EQ(peaks[0][2].max, -0.25f);
  EXPECT_FLOAT_EQ(peaks[0][2].rms, std::sqrt((0.0625f + 0.5625f) / 2.0f));
  EXPECT_FLOAT_EQ(peaks[0][3].rms, 0.35355339f);
  EXPECT_EQ(peaks[0][4].max, 2.0f);

  // 11 frames at resolution 5: bins of 2, the sixth holds the last frame alone.
  auto odd = AudioBuffer::createZeroed(1, 11, 48000.0);
  odd->channel(0)[10] = -0.8f;
  const auto oddPeaks = computeWaveformPeaks(*odd, 5);
  ASSERT_EQ(oddPeaks[0].size(), 6u);
  EXPECT_EQ(oddPeaks[0][5].min, -0.8f);
  EXPECT_FLOAT_EQ(oddPeaks[0][5].rms, 0.8f);
}

TEST(WaveformPeaks, EmptyBuffersGiveEmptyResults) {
  testing::internal::CaptureStdout();
  EXPECT_TRUE(computeWaveformPeaks(*AudioBuffer::create(0, 100, 48000.0), 4096).empty());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "⚠️ computeWaveformPeaks: no channel data\n");
  const auto none = computeWaveformPeaks(*AudioBuffer::create(2, 0, 48000.0), 4096);
  ASSERT_EQ(none.size(), 2u);
  EXPECT_TRUE(none[0].empty());
  EXPECT_TRUE(computeClipRegions(*AudioBuffer::create(0, 100, 48000.0), kClipThreshold).empty());
}

TEST(ClipRegions, RunsAreClosedRangesWithoutBridging) {
  std::vector<float> data(20000, 0.1f);
  data[0] = 1.0f;                                        // the first frame
  data[100] = -0.9999f;                                  // exactly the threshold counts
  data[101] = 0.99989f;                                  // just below does not
  data[102] = -1.0f;                                     // a gap of one frame is not bridged
  for (int i = 4090; i <= 4101; ++i) data[static_cast<std::size_t>(i)] = 1.0f;  // across a scan chunk
  data[8191] = 1.0f;                                     // a chunk's last frame alone
  data[12000] = std::numeric_limits<float>::quiet_NaN();  // not a clip
  data[19998] = -1.5f;
  data[19999] = 1.5f;                                    // clipped to the last frame
  const auto regions = scanClipRegions(data.data(), 0, static_cast<FrameCount>(data.size()), kClipThreshold);
  const ChannelClipRegions expected{{0, 0}, {100, 100}, {102, 102}, {4090, 4101}, {8191, 8191}, {19998, 19999}};
  EXPECT_EQ(regions, expected);

  // A run that began before the range starts at the range; a negative start counts as 0; an
  // empty range gives nothing.
  EXPECT_EQ(scanClipRegions(data.data(), 4095, 5000, kClipThreshold), (ChannelClipRegions{{4095, 4101}}));
  EXPECT_EQ(scanClipRegions(data.data(), -50, 1, kClipThreshold), (ChannelClipRegions{{0, 0}}));
  EXPECT_TRUE(scanClipRegions(data.data(), 500, 500, kClipThreshold).empty());
  EXPECT_TRUE(scanClipRegions(data.data(), 600, 10, kClipThreshold).empty());
  // A range ending inside a run closes it at its last frame.
  EXPECT_EQ(scanClipRegions(data.data(), 4000, 4095, kClipThreshold), (ChannelClipRegions{{4090, 4094}}));
}

TEST(ClipRegions, EveryChannelIsScannedOverItsFrameLength) {
  auto buffer = AudioBuffer::createZeroed(2, 10000, 48000.0);
  buffer->channel(1)[9999] = -1.0f;
  buffer->channel(0)[5000] = 1.0f;
  buffer->channel(0)[9000] = 1.0f;
  buffer->setFrameLength(9000);  // the clip at 9000 lies beyond the audio
  const auto regions = computeClipRegions(*buffer, kClipThreshold);
  ASSERT_EQ(regions.size(), 2u);
  EXPECT_EQ(regions[0], (ChannelClipRegions{{5000, 5000}}));
  EXPECT_TRUE(regions[1].empty());
}

}  // namespace
}  // namespace corvane
