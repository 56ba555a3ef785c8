// 5.1 and 7.1 files with one tone per channel: whatever order the container stores (WAV's
// mask order, FLAC's, Vorbis' L C R order, CAF's layout tag, AAC through FFmpeg), the load
// puts each speaker's tone into its canonical channel.
#include <gtest/gtest.h>

#include "FileTestSupport.h"
#include "headless/files/AudioFileModel.h"
#include "core/SurroundBake.h"
#include "headless/files/AudioFileReader.h"

namespace corvane {
namespace {

struct SurroundCase {
  std::string file;
  int channels;
};

void PrintTo(const SurroundCase& value, std::ostream* out) { *out << value.file; }

class SurroundFiles : public ::testing::TestWithParam<SurroundCase> {
 protected:
  static void SetUpTestSuite() { test::fixtureFolder(); }
};

// The tone that dominates a channel, among the fixture's tones.
double dominantTone(const float* samples, FrameCount frames, double sampleRate, int channels) {
  double best = 0.0, bestMagnitude = -1.0;
  for (int k = 0; k < channels; ++k) {
    const double magnitude = test::toneMagnitude(samples, frames, sampleRate, test::kSurroundTones[k]);
    if (magnitude > bestMagnitude) {
      bestMagnitude = magnitude;
      best = test::kSurroundTones[k];
    }
  }
  return best;
}

TEST_P(SurroundFiles, EachSpeakerLandsInItsCanonicalChannel) {
  const auto& param = GetParam();
  const auto loaded = AudioFileModel::load(test::fixtureFolder() / param.file);
  const AudioBuffer& buffer = *loaded.buffer;
  ASSERT_EQ(buffer.channelCount(), param.channels);
  const std::vector<std::string> expected =
      param.channels == 6 ? std::vector<std::string>{"L", "R", "C", "LFE", "Ls", "Rs"}
                          : std::vector<std::string>{"L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss"};
  EXPECT_EQ(loaded.model.channelLabels(), expected);
  // The fixtures were made from FFmpeg's native order (FL FR FC LFE BL BR [SL SR]), which is
  // Corvane's canonical order: canonical channel k must carry tone k.
  for (int k = 0; k < param.channels; ++k) {
    EXPECT_EQ(dominantTone(buffer.channel(k), buffer.frameLength(), buffer.sampleRate(), param.channels),
              test::kSurroundTones[k])
        << "channel " << k << " (" << expected[static_cast<std::size_t>(k)] << ")";
  }
}

INSTANTIATE_TEST_SUITE_P(Layouts, SurroundFiles,
                         ::testing::Values(SurroundCase{"wavex-51.wav", 6}, SurroundCase{"flac-51.flac", 6},
                                           SurroundCase{"aac-51.m4a", 6}, SurroundCase{"vorbis-51.ogg", 6},
                                           SurroundCase{"caf-51.caf", 6}, SurroundCase{"wavex-71.wav", 8},
                                           SurroundCase{"flac-71.flac", 8}, SurroundCase{"aac-71.m4a", 8},
                                           SurroundCase{"vorbis-71.ogg", 8}),
                         [](const ::testing::TestParamInfo<SurroundCase>& info) {
                           std::string name = info.param.file;
                           for (char& c : name) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name;
                         });

TEST_P(SurroundFiles, AStereoDownmixTakesEachSpeakerWithItsGain) {
  // Lo = L + 0.5 C + 0.5 Ls (+ 0.5 Lss), Ro likewise; LFE dropped, and Ro takes the left
  // surround inverted and shifted by 90° (a matrix-surround style fold) to show the routes mix
  // by position.
  const auto& param = GetParam();
  const auto loaded = AudioFileModel::load(test::fixtureFolder() / param.file);
  const AudioBuffer& buffer = *loaded.buffer;
  std::vector<std::vector<float>> channels;
  for (int c = 0; c < buffer.channelCount(); ++c) channels.emplace_back(buffer.channel(c), buffer.channel(c) + buffer.frameLength());
  using Route = SurroundBake::Route;
  std::vector<Route> left{{0, 1.0f, false}, {2, 0.5f, false}, {4, 0.5f, false}};
  std::vector<Route> right{{1, 1.0f, false}, {2, 0.5f, false}, {5, 0.5f, false}, {4, -0.25f, true}};
  if (param.channels == 8) {
    left.push_back({6, 0.5f, false});
    right.push_back({7, 0.5f, false});
  }
  const auto out = SurroundBake::render(channels, {left, right}, buffer.sampleRate());
  ASSERT_EQ(out.size(), 2u);
  ASSERT_EQ(static_cast<FrameCount>(out[0].size()), buffer.frameLength());
  // Each tone was written at 0.25; the Goertzel magnitude of a sine of amplitude A is A / 2.
  auto level = [&](int output, int tone) {
    const auto& x = out[static_cast<std::size_t>(output)];
    return 2.0 * test::toneMagnitude(x.data() + 2400, static_cast<FrameCount>(x.size()) - 4800, buffer.sampleRate(),
                                     test::kSurroundTones[tone]);
  };
  const double lossyTolerance = param.file.find(".wav") != std::string::npos || param.file.find(".flac") != std::string::npos ? 0.005 : 0.03;
  EXPECT_NEAR(level(0, 0), 0.25, lossyTolerance);
  EXPECT_NEAR(level(0, 2), 0.125, lossyTolerance);
  EXPECT_NEAR(level(0, 4), 0.125, lossyTolerance);
  EXPECT_LT(level(0, 1), 0.01);
  EXPECT_LT(level(0, 3), 0.01);
  EXPECT_LT(level(0, 5), 0.01);
  EXPECT_NEAR(level(1, 1), 0.25, lossyTolerance);
  EXPECT_NEAR(level(1, 4), 0.0625, lossyTolerance);
  EXPECT_LT(level(1, 0), 0.01);
  if (param.channels == 8) {
    EXPECT_NEAR(level(0, 6), 0.125, lossyTolerance);
    EXPECT_NEAR(level(1, 7), 0.125, lossyTolerance);
    EXPECT_LT(level(0, 7), 0.01);
  }
}

TEST(SurroundOrder, VorbisFileOrderIsReorderedNotRelabelled) {
  // Vorbis stores 5.1 as L C R Ls Rs LFE. The reader hands the channels over in that order
  // with their positions; only canonical ordering moves them.
  auto reader = AudioFileReader::open(test::fixtureFolder() / "vorbis-51.ogg");
  ASSERT_EQ(reader->channelCount(), 6);
  auto buffer = AudioBuffer::create(6, reader->length(), reader->sampleRate());
  buffer->setFrameLength(reader->read(buffer->channels(), reader->length()));
  EXPECT_EQ(dominantTone(buffer->channel(1), buffer->frameLength(), 48000.0, 6), test::kSurroundTones[2]);
  EXPECT_EQ(dominantTone(buffer->channel(5), buffer->frameLength(), 48000.0, 6), test::kSurroundTones[3]);
  const std::vector<ChannelPosition> vorbisOrder{ChannelPosition::FrontLeft, ChannelPosition::FrontCenter,
                                                 ChannelPosition::FrontRight, ChannelPosition::BackLeft,
                                                 ChannelPosition::BackRight, ChannelPosition::LowFrequency};
  EXPECT_EQ(reader->channelPositions(), vorbisOrder);
}

}  // namespace
}  // namespace corvane
