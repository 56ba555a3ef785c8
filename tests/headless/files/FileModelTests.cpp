// The loaded file's derived values and the model of an edited buffer.
#include <gtest/gtest.h>

#include "FileTestSupport.h"
#include "headless/files/AudioFileModel.h"

namespace corvane {
namespace {

TEST(AudioFileModel, SizesAndRatesReadAsTheUserExpects) {
  AudioFileModel model;
  const std::vector<std::pair<std::int64_t, std::string>> sizes{
      {0, "0.0 MB"},
      {1048576, "1.0 MB"},
      {static_cast<std::int64_t>(999.94 * 1048576), "999.9 MB"},
      {1000LL * 1048576, "0.98 GB"},
      {1536LL * 1048576, "1.50 GB"},
  };
  for (const auto& [bytes, text] : sizes) {
    model.fileSize = bytes;
    EXPECT_EQ(model.fileSizeFormatted(), text);
  }
  const std::vector<std::pair<double, std::string>> rates{
      {44100, "44.1 kHz"}, {48000, "48.0 kHz"}, {1000, "1.0 kHz"}, {999, "999 Hz"}, {8000, "8.0 kHz"}, {192000, "192.0 kHz"}};
  for (const auto& [rate, text] : rates) {
    model.sampleRate = rate;
    EXPECT_EQ(model.sampleRateFormatted(), text);
  }
}

TEST(AudioFileModel, LabelsComeFromPositionsWhenTheyNameEveryChannel) {
  AudioFileModel model;
  model.channelCount = 6;
  EXPECT_EQ(model.channelLabels(), (std::vector<std::string>{"L", "R", "C", "LFE", "Ls", "Rs"}));
  model.pcmBuffer = AudioBuffer::create(6, 0, 48000.0);
  using P = ChannelPosition;
  model.pcmBuffer->setChannelPositions({P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackCenter, P::TopCenter});
  EXPECT_EQ(model.channelLabels(), (std::vector<std::string>{"L", "R", "C", "LFE", "Cs", "Ts"}));
  model.pcmBuffer->setChannelPositions({P::FrontLeft, P::FrontRight, P::Unknown, P::LowFrequency, P::BackLeft, P::BackRight});
  EXPECT_EQ(model.channelLabels(), (std::vector<std::string>{"L", "R", "C", "LFE", "Ls", "Rs"}));
  model.channelCount = 7;
  model.pcmBuffer = AudioBuffer::create(7, 0, 48000.0);
  EXPECT_EQ(model.channelLabels(), (std::vector<std::string>{"Ch1", "Ch2", "Ch3", "Ch4", "Ch5", "Ch6", "Ch7"}));
  EXPECT_EQ(model.channelLayout().displayName(), "7 ch");
}

TEST(AudioFileModel, EncodingLabelFallsBackInOrder) {
  AudioFileModel model;
  EXPECT_EQ(model.encodingLabel(), "32-bit float");
  model.pcmEncoding = PCMEncoding::int16;
  EXPECT_EQ(model.encodingLabel(), "16-bit integer");
  model.identity = AudioFileIdentity{};
  model.identity->encodingName = "FLAC (24-bit)";
  EXPECT_EQ(model.encodingLabel(), "FLAC (24-bit)");
  model.rawFormat = RawPCMFormat{};
  model.rawFormat->encoding = RawPCMFormat::Encoding::f32;
  EXPECT_EQ(model.encodingLabel(), "32-bit float, declared");
  model.rawFormat->encoding = RawPCMFormat::Encoding::s24in32;
  EXPECT_EQ(model.encodingLabel(), "24-bit integer, declared");
}

TEST(AudioFileModel, AnEditedBufferKeepsTheFilesIdentity) {
  test::fixtureFolder();
  const auto loaded = AudioFileModel::load(test::fixtureFolder() / "flac-24.flac");
  auto edited = AudioBuffer::createZeroed(2, 1000, 48000.0);
  edited->channel(0)[10] = 1.0f;
  const auto model = AudioFileModel::fromBuffer(edited, loaded.model);
  EXPECT_EQ(model.url, loaded.model.url);
  EXPECT_EQ(model.name, "flac-24");
  EXPECT_EQ(model.bitDepth, 24);
  EXPECT_EQ(model.fileFormat, "FLAC");
  EXPECT_EQ(model.fileSize, loaded.model.fileSize);
  EXPECT_EQ(model.pcmEncoding, PCMEncoding::int24);
  ASSERT_TRUE(model.identity);
  EXPECT_EQ(model.identity->encodingName, "FLAC (24-bit)");
  EXPECT_EQ(model.totalFrames, 1000);
  EXPECT_DOUBLE_EQ(model.duration, 1000.0 / 48000.0);
  EXPECT_EQ(model.waveformPeaks[0].size(), 1000u);
  EXPECT_EQ(model.clipRegions[0], (ChannelClipRegions{{10, 10}}));
  EXPECT_TRUE(model.clipRegions[1].empty());
  EXPECT_EQ(model.pcmBuffer, edited);
  EXPECT_TRUE(model.waveformPyramid.empty());
}

TEST(AudioFileModel, DescribeReadsTheHeaderOnly) {
  test::fixtureFolder();
  const auto model = AudioFileModel::describe(test::fixtureFolder() / "vorbis-51.ogg");
  EXPECT_EQ(model.channelCount, 6);
  EXPECT_EQ(model.totalFrames, 48000);
  EXPECT_EQ(model.channelLabels(), (std::vector<std::string>{"L", "R", "C", "LFE", "Ls", "Rs"}));
  EXPECT_EQ(model.pcmBuffer->frameLength(), 0);
  EXPECT_TRUE(model.waveformPeaks.empty());
  EXPECT_EQ(model.fileFormat, "Ogg Vorbis");
  EXPECT_EQ(model.bitDepth, 24);
}

}  // namespace
}  // namespace corvane
