// Every file of the matrix (made by sox and ffmpeg) decodes, with the rate, channels, layout
// and length ffprobe reports, the identity its container's specification gives, and the
// samples the independent decoders produce.
#include <gtest/gtest.h>

#include <cmath>

#include "FileTestSupport.h"
#include "headless/files/AudioFileModel.h"

namespace corvane {
namespace {

using test::Fixture;

// ChannelLayout's labels for the layouts ffprobe names (the table of known layouts).
std::vector<std::string> labelsForLayout(const std::string& layout, int channels) {
  if (layout == "mono") return {"M"};
  if (layout == "stereo") return {"L", "R"};
  if (layout == "5.1" || layout == "5.1(side)") return {"L", "R", "C", "LFE", "Ls", "Rs"};
  if (layout == "7.1") return {"L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss"};
  // A file without a layout takes the known layout of its channel count.
  if (channels == 1) return {"M"};
  if (channels == 2) return {"L", "R"};
  std::vector<std::string> labels;
  for (int i = 0; i < channels; ++i) labels.push_back("Ch" + std::to_string(i + 1));
  return labels;
}

double rms(const std::vector<float>& interleaved, int channels, int channel) {
  double sum = 0.0;
  std::size_t count = 0;
  for (std::size_t i = static_cast<std::size_t>(channel); i < interleaved.size(); i += static_cast<std::size_t>(channels)) {
    sum += static_cast<double>(interleaved[i]) * interleaved[i];
    ++count;
  }
  return std::sqrt(sum / static_cast<double>(std::max<std::size_t>(count, 1)));
}

class DecodeMatrix : public ::testing::TestWithParam<Fixture> {
 protected:
  static void SetUpTestSuite() { test::fixtureFolder(); }
};

TEST_P(DecodeMatrix, AgreesWithFFprobeAndTheOracleDecoders) {
  const Fixture& fixture = GetParam();
  const auto file = test::fixtureFolder() / fixture.name;
  const auto probe = test::ffprobe(file);

  const auto loaded = AudioFileModel::load(file);
  const AudioFileModel& model = loaded.model;
  const AudioBuffer& buffer = *loaded.buffer;

  EXPECT_EQ(model.sampleRate, probe.sampleRate);
  EXPECT_EQ(model.channelCount, probe.channels);
  EXPECT_EQ(buffer.channelCount(), probe.channels);
  EXPECT_EQ(model.channelLabels(), labelsForLayout(probe.channelLayout, probe.channels)) << probe.channelLayout;
  ASSERT_GT(probe.durationFrames, 0);
  if (fixture.lossless) {
    EXPECT_EQ(buffer.frameLength(), probe.durationFrames);
    EXPECT_EQ(model.totalFrames, probe.durationFrames);
  } else {
    // ffprobe may count the encoder's delay and padding (LAME: 1105 + up to a frame of 1152;
    // AAC: 1024 priming plus a frame; Opus: 312 pre-skip); two MP3 frames bound them all.
    EXPECT_NEAR(static_cast<double>(buffer.frameLength()), static_cast<double>(probe.durationFrames), 2304.0);
  }
  EXPECT_DOUBLE_EQ(model.duration, static_cast<double>(model.totalFrames) / model.sampleRate);

  ASSERT_TRUE(model.identity.has_value());
  EXPECT_EQ(model.identity->formatLabel, fixture.formatLabel);
  EXPECT_EQ(model.identity->encodingName, fixture.encodingName);
  EXPECT_EQ(model.identity->isRewritableInPlace, fixture.rewritable);
  EXPECT_FALSE(model.identity->isMisnamed);
  EXPECT_EQ(model.fileFormat, fixture.formatLabel);

  const auto ours = test::interleave(buffer);
  const auto theirs = fixture.oracle == "sox" ? test::soxDecode(file) : test::ffmpegDecode(file);
  if (fixture.lossless) {
    ASSERT_EQ(ours.size(), theirs.size());
    std::size_t mismatches = 0;
    double worst = 0.0;
    for (std::size_t i = 0; i < ours.size(); ++i) {
      const double difference = std::fabs(static_cast<double>(ours[i]) - theirs[i]);
      worst = std::max(worst, difference);
      if (fixture.wide ? difference > 1e-7 * std::max(1.0, std::fabs(static_cast<double>(theirs[i]))) : ours[i] != theirs[i]) {
        ++mismatches;
      }
    }
    EXPECT_EQ(mismatches, 0u) << "largest difference " << worst;
  } else {
    // Lossy decoders differ in their last bits and in how they trim the start; the level of
    // every channel must still agree within 0.5 dB.
    for (int c = 0; c < model.channelCount; ++c) {
      const double a = rms(ours, model.channelCount, c);
      const double b = rms(theirs, model.channelCount, c);
      ASSERT_GT(b, 1e-4);
      EXPECT_NEAR(20.0 * std::log10(a / b), 0.0, 0.5) << "channel " << c;
    }
  }

  ASSERT_EQ(model.waveformPeaks.size(), static_cast<std::size_t>(model.channelCount));
  EXPECT_EQ(model.clipRegions.size(), static_cast<std::size_t>(model.channelCount));
  EXPECT_TRUE(model.waveformPyramid.empty());
}

INSTANTIATE_TEST_SUITE_P(Files, DecodeMatrix, ::testing::ValuesIn(test::fixtureMatrix()),
                         [](const ::testing::TestParamInfo<Fixture>& info) {
                           std::string name = info.param.name;
                           for (char& c : name) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name;
                         });

}  // namespace
}  // namespace corvane
