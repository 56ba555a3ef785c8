// The rule by which the waveform picks its peaks, over a real file model: whichever source
// serves, no output bin may lose an extreme of the frames it stands for.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

#include "displays/AudioFileWaveformSource.h"

namespace corvane {
namespace {

// A long mono file: noise under an envelope that steps every 10,007 frames, with a spike of
// one frame now and then that a careless reduction would drop.
std::shared_ptr<AudioFileModel> longModel(FrameCount frames, bool withPyramid) {
  auto buffer = AudioBuffer::create(1, frames, 48000.0);
  float* data = buffer->channel(0);
  std::uint32_t state = 99;
  for (FrameCount i = 0; i < frames; ++i) {
    state = state * 1664525u + 1013904223u;
    const float unit = static_cast<float>(state >> 8) / static_cast<float>(1u << 24) * 2.0f - 1.0f;
    data[i] = unit * (0.1f + 0.1f * static_cast<float>((i / 10007) % 5));
    if (i % 777777 == 5) data[i] = (i / 777777) % 2 ? 0.97f : -0.97f;
  }
  auto model = std::make_shared<AudioFileModel>(AudioFileModel::fromBuffer(buffer, AudioFileModel{}));
  if (withPyramid) model->waveformPyramid = buildWaveformPyramid(*buffer);
  return model;
}

TEST(WaveformPeakSource, BasePeaksServeWhileTheyHoldABinPerOutputBin) {
  // 4096 bins over 4,096,000 frames: 1 bin per 1000 frames.
  EXPECT_TRUE(basePeaksSuffice(4096, 4096000, 4096, 4096000));
  EXPECT_FALSE(basePeaksSuffice(4096, 4096000, 4097, 4096000));
  // A tenth of the file in view: up to 409 output bins.
  EXPECT_TRUE(basePeaksSuffice(4096, 409600, 409, 4096000));
  EXPECT_FALSE(basePeaksSuffice(4096, 409600, 410, 4096000));
  EXPECT_FALSE(basePeaksSuffice(0, 100, 1, 100));
  // Ten hours at 48 kHz: the products stay exact.
  EXPECT_TRUE(basePeaksSuffice(4096, 1728000000, 4096, 1728000000));
}

TEST(WaveformPeakSource, EachSourceKeepsEveryExtremeOfItsStretch) {
  const FrameCount frames = 4194304 + 12345;
  const auto model = longModel(frames, true);
  const AudioFileWaveformSource source(model, 1);
  ASSERT_EQ(source.frameCount(), frames);
  ASSERT_EQ(source.basePeakFrames(), frames / 4096);
  const float* data = model->pcmBuffer->channel(0);

  struct Case {
    FrameCount start, end;
    int bins;
    WaveformPeakSource expected;
  };
  const Case cases[] = {
      {0, frames, 1280, WaveformPeakSource::basePeaks},
      {1000000, 1000000 + frames / 4, 1000, WaveformPeakSource::basePeaks},   // 4096 / 4 ≥ 1000 bins
      {1000000, 1000000 + frames / 40, 1000, WaveformPeakSource::pyramid},
      {777700, 777700 + 5 * 800, 800, WaveformPeakSource::pyramid},           // 5 frames a bin: the base level
      {777700, 777700 + 4 * 800, 800, WaveformPeakSource::samples},           // finer than any level
      {frames - 5000, frames, 1000, WaveformPeakSource::pyramid},
  };
  ChannelPeaks peaks;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.start << "..." << c.end << " in " << c.bins);
    EXPECT_EQ(visiblePeaks(source, 0, c.start, c.end, c.bins, peaks), c.expected);
    ASSERT_EQ(peaks.size(), static_cast<std::size_t>(c.bins));
    const FrameCount length = c.end - c.start;
    for (int i = 0; i < c.bins; ++i) {
      const FrameCount a = c.start + length * i / c.bins;
      const FrameCount b = std::max(c.start + length * (i + 1) / c.bins, a + 1);
      const float lowest = *std::min_element(data + a, data + b);
      const float highest = *std::max_element(data + a, data + b);
      const WaveformPeak& peak = peaks[static_cast<std::size_t>(i)];
      ASSERT_LE(peak.min, lowest) << i;
      ASSERT_GE(peak.max, highest) << i;
      if (c.expected == WaveformPeakSource::samples) {
        ASSERT_EQ(peak.min, lowest) << i;
        ASSERT_EQ(peak.max, highest) << i;
      }
    }
  }
}

TEST(WaveformPeakSource, WithoutAPyramidCloseZoomReadsTheSamples) {
  // A long file before its pyramid has landed.
  const FrameCount frames = 4194304;
  const auto model = longModel(frames, false);
  const AudioFileWaveformSource source(model, 1);
  ChannelPeaks peaks;
  EXPECT_EQ(visiblePeaks(source, 0, 2000000, 2000000 + frames / 40, 1000, peaks), WaveformPeakSource::samples);
  ASSERT_EQ(peaks.size(), 1000u);
  const float* data = model->pcmBuffer->channel(0);
  const FrameCount length = frames / 40;
  // Bin 0 of the stretch against the samples themselves.
  const FrameCount end = 2000000 + length / 1000;
  EXPECT_EQ(peaks[0].max, *std::max_element(data + 2000000, data + end));
  // A channel the file doesn't have gives nothing, from any source.
  EXPECT_EQ(visiblePeaks(source, 3, 0, frames, 1000, peaks), WaveformPeakSource::samples);
  EXPECT_TRUE(peaks.empty());
}

TEST(WaveformPeakSource, TheFileModelsLabelsColoursAndClips) {
  auto buffer = AudioBuffer::createZeroed(2, 48000, 48000.0);
  buffer->channel(1)[100] = 1.0f;
  buffer->channel(1)[101] = -1.0f;
  buffer->channel(1)[5000] = 0.99995f;
  const auto model = std::make_shared<AudioFileModel>(AudioFileModel::fromBuffer(buffer, AudioFileModel{}));
  const AudioFileWaveformSource source(model, 7);
  EXPECT_EQ(source.channelCount(), 2);
  EXPECT_EQ(source.sampleRate(), 48000.0);
  EXPECT_EQ(source.duration(), 1.0);
  EXPECT_EQ(source.revision(), 7u);
  EXPECT_EQ(source.channelLabel(0), "L");
  EXPECT_EQ(source.channelLabel(1), "R");
  EXPECT_EQ(source.channelColor(0), ChannelLayout(2).color(0));
  EXPECT_TRUE(source.clipRegions(0).empty());
  EXPECT_EQ(source.clipRegions(1), (ChannelClipRegions{{100, 101}, {5000, 5000}}));
  EXPECT_TRUE(source.clipRegions(2).empty());
  EXPECT_TRUE(source.basePeaks(-1).empty());
}

TEST(WaveformPeakSource, HoverLevels) {
  EXPECT_NEAR(sampleLevelDBFS(0.5f), -6.0206, 1e-4);
  EXPECT_NEAR(sampleLevelDBFS(-0.1f), -20.0, 1e-5);
  EXPECT_EQ(sampleLevelDBFS(1.0f), 0.0);
  EXPECT_EQ(sampleLevelDBFS(0.0f), -120.0);
}

}  // namespace
}  // namespace corvane
