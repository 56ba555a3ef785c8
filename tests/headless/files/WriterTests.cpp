// What Corvane writes reads back bit for bit, through its own reader and through sox and
// ffmpeg; ffprobe and sndfile-info see the container and encoding that were asked for; and
// integer samples clip at full scale instead of wrapping.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "FileTestSupport.h"
#include "headless/files/AudioFileIdentity.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/AudioFileReader.h"
#include "headless/files/AudioFileWriter.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using P = ChannelPosition;

// Samples every encoding stores exactly: integers on the encoding's grid including both
// extremes, floats anywhere (beyond full scale too).
SharedAudioBuffer gridSignal(PCMEncoding encoding, int channels, FrameCount frames, unsigned seed) {
  auto buffer = AudioBuffer::create(channels, frames, 48000.0);
  std::mt19937 random(seed);
  const int bits = bitDepth(encoding);
  for (int c = 0; c < channels; ++c) {
    float* data = buffer->channel(c);
    for (FrameCount i = 0; i < frames; ++i) {
      if (isFloat(encoding)) {
        data[i] = std::uniform_real_distribution<float>(-1.5f, 1.5f)(random);
      } else {
        const std::int64_t top = (std::int64_t{1} << (bits - 1));
        std::int64_t code = std::uniform_int_distribution<std::int64_t>(-top, top - 1)(random);
        if (i == 0) code = top - 1;
        if (i == 1) code = -top;
        data[i] = static_cast<float>(static_cast<double>(code) / static_cast<double>(top));
      }
    }
  }
  return buffer;
}

struct WriteCase {
  AudioContainer container;
  PCMEncoding encoding;
  std::string extension;
  std::string ffprobeFormat;  // ffprobe's format_name
  std::string ffprobeCodec;   // ffprobe's codec_name
  std::string headerMarker;   // what sndfile-info shows first of the container
  std::string identityLabel;  // AudioFileIdentity::formatLabel of the written file
};

void PrintTo(const WriteCase& value, std::ostream* out) {
  *out << displayName(value.container) << " " << label(value.encoding);
}

class WriteRoundTrip : public ::testing::TestWithParam<WriteCase> {};

TEST_P(WriteRoundTrip, ReadsBackBitForBitAndToolsAgreeOnTheFormat) {
  const auto& param = GetParam();
  test::TemporaryFolder folder;
  const fs::path file = folder / ("written." + param.extension);
  const FrameCount frames = 9001;  // more than two conversion chunks, not a multiple of either
  auto source = gridSignal(param.encoding, 3, frames, 77);
  source->setChannelPositions({P::FrontLeft, P::FrontRight, P::FrontCenter});

  auto settings = PCMWriteSettings::make(param.container, AudioStreamFormat::of(*source), param.encoding);
  settings.expectedFrames = frames;
  {
    auto writer = AudioFileWriter::create(file, settings);
    writer->write(*source);
    writer->finish();
    EXPECT_EQ(writer->framesWritten(), frames);
  }

  auto reader = AudioFileReader::open(file);
  ASSERT_EQ(reader->channelCount(), 3);
  ASSERT_EQ(reader->length(), frames);
  auto back = AudioBuffer::create(3, frames, 48000.0);
  ASSERT_EQ(reader->read(back->channels(), frames), frames);
  for (int c = 0; c < 3; ++c) {
    EXPECT_TRUE(std::equal(back->channel(c), back->channel(c) + frames, source->channel(c))) << "channel " << c;
  }
  EXPECT_EQ(reader->pcmEncoding(), param.encoding);

  const auto probe = test::ffprobe(file);
  EXPECT_EQ(probe.formatName, param.ffprobeFormat);
  EXPECT_EQ(probe.codecName, param.ffprobeCodec);
  EXPECT_EQ(probe.sampleRate, 48000);
  EXPECT_EQ(probe.channels, 3);
  EXPECT_EQ(probe.durationFrames, frames);

  const std::string info = test::sndfileInfo(file);
  EXPECT_NE(info.find(param.headerMarker), std::string::npos) << info;
  EXPECT_NE(info.find("Frames      : " + std::to_string(frames)), std::string::npos) << info;
  EXPECT_NE(info.find("Channels    : 3"), std::string::npos) << info;
  EXPECT_EQ(info.find("rror"), std::string::npos) << info;

  const auto identity = AudioFileIdentity::inspect(file);
  ASSERT_TRUE(identity);
  EXPECT_EQ(identity->formatLabel, param.identityLabel);
  EXPECT_EQ(identity->pcmEncoding, param.encoding);
  EXPECT_TRUE(identity->isRewritableInPlace);

  // An independent decoder sees the same samples (ffmpeg: its own demuxers for every
  // container, none of them libsndfile).
  const auto theirs = test::ffmpegDecode(file);
  const auto ours = test::interleave(*source);
  ASSERT_EQ(theirs.size(), ours.size());
  std::size_t mismatches = 0;
  for (std::size_t i = 0; i < ours.size(); ++i) {
    const bool exact = bitDepth(param.encoding) <= 24 || param.encoding == PCMEncoding::float32;
    if (exact ? theirs[i] != ours[i] : std::fabs(theirs[i] - ours[i]) > 1e-7f) ++mismatches;
  }
  EXPECT_EQ(mismatches, 0u);
}

std::vector<WriteCase> writeCases() {
  using C = AudioContainer;
  using E = PCMEncoding;
  return {
      {C::wav, E::int8, "wav", "wav", "pcm_u8", "RIFF", "WAV"},
      {C::wav, E::int16, "wav", "wav", "pcm_s16le", "RIFF", "WAV"},
      {C::wav, E::int24, "wav", "wav", "pcm_s24le", "RIFF", "WAV"},
      {C::wav, E::int32, "wav", "wav", "pcm_s32le", "RIFF", "WAV"},
      {C::wav, E::float32, "wav", "wav", "pcm_f32le", "RIFF", "WAV"},
      {C::wav, E::float64, "wav", "wav", "pcm_f64le", "RIFF", "WAV"},
      {C::rf64, E::int16, "wav", "wav", "pcm_s16le", "RF64", "RF64"},
      {C::rf64, E::int24, "wav", "wav", "pcm_s24le", "RF64", "RF64"},
      {C::rf64, E::float32, "wav", "wav", "pcm_f32le", "RF64", "RF64"},
      {C::wave64, E::int16, "w64", "w64", "pcm_s16le", "riff", "Wave64"},
      {C::wave64, E::int24, "w64", "w64", "pcm_s24le", "riff", "Wave64"},
      {C::wave64, E::float32, "w64", "w64", "pcm_f32le", "riff", "Wave64"},
      {C::aiff, E::int16, "aif", "aiff", "pcm_s16be", "AIFF", "AIFF"},
      {C::aiff, E::int24, "aif", "aiff", "pcm_s24be", "AIFF", "AIFF"},
      {C::aiff, E::int32, "aif", "aiff", "pcm_s32be", "AIFF", "AIFF"},
      {C::aiff, E::float32, "aif", "aiff", "pcm_f32be", "AIFC", "AIFF-C"},
      {C::aiffc, E::int8, "aifc", "aiff", "pcm_s8", "AIFC", "AIFF-C"},
      {C::aiffc, E::int16, "aifc", "aiff", "pcm_s16be", "AIFC", "AIFF-C"},
      {C::aiffc, E::int24, "aifc", "aiff", "pcm_s24be", "AIFC", "AIFF-C"},
      {C::aiffc, E::int32, "aifc", "aiff", "pcm_s32be", "AIFC", "AIFF-C"},
      {C::aiffc, E::float32, "aifc", "aiff", "pcm_f32be", "AIFC", "AIFF-C"},
      {C::caf, E::int16, "caf", "caf", "pcm_s16le", "caff", "CAF"},
      {C::caf, E::int24, "caf", "caf", "pcm_s24le", "caff", "CAF"},
      {C::caf, E::int32, "caf", "caf", "pcm_s32le", "caff", "CAF"},
      {C::caf, E::float32, "caf", "caf", "pcm_f32le", "caff", "CAF"},
      {C::caf, E::float64, "caf", "caf", "pcm_f64le", "caff", "CAF"},
  };
}

INSTANTIATE_TEST_SUITE_P(Containers, WriteRoundTrip, ::testing::ValuesIn(writeCases()),
                         [](const ::testing::TestParamInfo<WriteCase>& info) {
                           std::string name = std::string(displayName(info.param.container)) + "_" +
                                              std::string(label(info.param.encoding));
                           for (char& c : name) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name;
                         });

TEST(PCMWriting, FullScaleAndBeyondClipInsteadOfWrapping) {
  test::TemporaryFolder folder;
  const std::vector<float> input{1.0f, -1.0f, 1.5f, -1.5f, 32767.0f / 32768.0f, -1.0000001f,
                                 std::numeric_limits<float>::quiet_NaN(), 1000.0f, -1000.0f,
                                 std::numeric_limits<float>::infinity(), 3.0f / 32768.0f};
  auto buffer = AudioBuffer::create(1, static_cast<FrameCount>(input.size()), 48000.0);
  std::copy(input.begin(), input.end(), buffer->channel(0));

  struct Expectation {
    PCMEncoding encoding;
    const char* soxType;
    std::vector<std::int64_t> codes;
  };
  const std::vector<Expectation> expectations{
      {PCMEncoding::int16, "s16",
       {32767, -32768, 32767, -32768, 32767, -32768, 0, 32767, -32768, 32767, 3}},
      {PCMEncoding::int24, "s24",
       {8388607, -8388608, 8388607, -8388608, 8388352, -8388608, 0, 8388607, -8388608, 8388607, 768}},
  };
  for (const auto& expectation : expectations) {
    for (AudioContainer container : {AudioContainer::wav, AudioContainer::aiff, AudioContainer::aiffc, AudioContainer::caf}) {
      SCOPED_TRACE(std::string(label(expectation.encoding)) + " " + std::string(displayName(container)));
      const fs::path file = folder / ("clip." + std::string(preferredExtension(container)));
      auto writer = AudioFileWriter::create(file, PCMWriteSettings::make(container, AudioStreamFormat::of(*buffer),
                                                                        expectation.encoding));
      writer->write(*buffer);
      writer->finish();
      writer.reset();
      // sox hands back the stored integer codes, little-endian.
      const std::string raw = test::runChecked("sox -V1 " + test::shellQuote(file.string()) + " -t " +
                                               expectation.soxType + " -L -");
      const int width = expectation.encoding == PCMEncoding::int16 ? 2 : 3;
      ASSERT_EQ(raw.size(), input.size() * static_cast<std::size_t>(width));
      for (std::size_t i = 0; i < input.size(); ++i) {
        std::int64_t code = 0;
        for (int b = width - 1; b >= 0; --b) code = (code << 8) | static_cast<unsigned char>(raw[i * width + static_cast<std::size_t>(b)]);
        if (code >= (std::int64_t{1} << (8 * width - 1))) code -= std::int64_t{1} << (8 * width);
        EXPECT_EQ(code, expectation.codes[i]) << "sample " << i << " = " << input[i];
      }
    }
  }
}

TEST(PCMWriting, FloatToIntegerScalingRoundsToTheNearestCode) {
  EXPECT_EQ(floatToInteger(0.4f / 32768.0f, 16), 0);
  EXPECT_EQ(floatToInteger(0.6f / 32768.0f, 16), 1);
  EXPECT_EQ(floatToInteger(-0.6f / 32768.0f, 16), -1);
  EXPECT_EQ(floatToInteger(0.5f, 8), 64);
  EXPECT_EQ(floatToInteger(-1.0f, 8), -128);
  EXPECT_EQ(floatToInteger(1.0f, 32), 2147483647);
  EXPECT_EQ(floatToInteger(-1.0f, 32), -2147483647 - 1);
  EXPECT_EQ(floatToInteger(0.25f, 32), 536870912);
}

TEST(PCMWriting, LayoutsReachTheFileWhereTheContainerHoldsThem) {
  test::TemporaryFolder folder;
  struct Case {
    AudioContainer container;
    std::vector<P> positions;
    std::string ffprobeLayout;  // empty: not checked
  };
  const std::vector<Case> cases{
      {AudioContainer::wav, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::SideLeft, P::SideRight}, "5.1(side)"},
      {AudioContainer::wav, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight, P::SideLeft, P::SideRight}, "7.1"},
      {AudioContainer::rf64, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight}, "5.1"},
      {AudioContainer::caf, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::SideLeft, P::SideRight}, "5.1(side)"},
      {AudioContainer::caf, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight, P::SideLeft, P::SideRight}, "7.1"},
      {AudioContainer::caf, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight}, ""},
      // An order no channel mask can hold: CAF describes each channel.
      {AudioContainer::caf, {P::FrontCenter, P::FrontLeft, P::FrontRight, P::LowFrequency}, ""},
  };
  int index = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(index);
    const int channels = static_cast<int>(c.positions.size());
    auto buffer = AudioBuffer::createZeroed(channels, 480, 48000.0);
    buffer->setChannelPositions(c.positions);
    const fs::path file = folder / ("layout" + std::to_string(index++) + "." + std::string(preferredExtension(c.container)));
    auto writer = AudioFileWriter::create(file, PCMWriteSettings::make(c.container, AudioStreamFormat::of(*buffer), PCMEncoding::int16));
    writer->write(*buffer);
    writer->finish();
    writer.reset();
    if (!c.ffprobeLayout.empty()) {
      EXPECT_EQ(test::ffprobe(file).channelLayout, c.ffprobeLayout);
    }
    auto reader = AudioFileReader::open(file);
    auto expected = c.positions;
    EXPECT_EQ(reader->channelPositions(), expected);
  }
}

TEST(PCMWriting, ContainerLimitsAreReportedBeforeWriting) {
  test::TemporaryFolder folder;
  AudioStreamFormat stereo{48000.0, 2, {}};
  EXPECT_THROW(PCMWriteSettings::make(AudioContainer::bw64, stereo, PCMEncoding::int24), AudioWriteError);
  EXPECT_THROW(PCMWriteSettings::make(AudioContainer::wav, AudioStreamFormat{44100.5, 2, {}}, PCMEncoding::int16), AudioWriteError);
  EXPECT_THROW(PCMWriteSettings::make(AudioContainer::wav, AudioStreamFormat{48000.0, 0, {}}, PCMEncoding::int16), AudioWriteError);

  // Six hours of 48 kHz stereo float is past AIFF's 32-bit sizes.
  auto aiff = PCMWriteSettings::make(AudioContainer::aiff, stereo, PCMEncoding::float32);
  aiff.expectedFrames = FrameCount{6} * 3600 * 48000;
  try {
    AudioFileWriter::create(folder / "long.aif", aiff);
    ADD_FAILURE() << "an AIFF of more than 4 GB was begun";
  } catch (const AudioWriteError& error) {
    EXPECT_EQ(std::string(error.what()),
              "long.aif would hold more than 4 GB of audio, which AIFF can't. Save it as RF64, Wave64 or CAF.");
  }

  // A WAV known to pass 4 GiB is RF64 from its first byte; an open-ended one that stays small
  // ends as a plain RIFF WAV.
  auto big = PCMWriteSettings::make(AudioContainer::wav, stereo, PCMEncoding::float32);
  big.expectedFrames = FrameCount{4} * 3600 * 48000;
  auto small = PCMWriteSettings::make(AudioContainer::wav, stereo, PCMEncoding::float32);
  auto some = AudioBuffer::createZeroed(2, 1000, 48000.0);
  for (const auto& [name, settings, label] : std::vector<std::tuple<std::string, PCMWriteSettings, std::string>>{
           {"big.wav", big, "RF64"}, {"open.wav", small, "WAV"}}) {
    auto writer = AudioFileWriter::create(folder / name, settings);
    writer->write(*some);
    writer->finish();
    writer.reset();
    EXPECT_EQ(AudioFileIdentity::inspect(folder / name)->formatLabel, label) << name;
    EXPECT_EQ(AudioFileReader::open(folder / name)->length(), 1000) << name;
  }
}

TEST(PCMWriting, AnUnfinishedCafStillReadsToItsLastFrame) {
  // A recording whose process dies before finish(): the CAF declares its data as running to
  // the end of the file, so every frame written is there.
  test::TemporaryFolder folder;
  auto buffer = gridSignal(PCMEncoding::int24, 2, 5000, 5);
  {
    auto writer = AudioFileWriter::create(folder / "take.caf", PCMWriteSettings::make(AudioContainer::caf,
                                                                                      AudioStreamFormat::of(*buffer),
                                                                                      PCMEncoding::int24));
    writer->write(*buffer);
  }
  const auto loaded = AudioFileModel::load(folder / "take.caf");
  ASSERT_EQ(loaded.buffer->frameLength(), 5000);
  EXPECT_TRUE(std::equal(buffer->channel(1), buffer->channel(1) + 5000, loaded.buffer->channel(1)));
  EXPECT_EQ(test::ffprobe(folder / "take.caf").channels, 2);
  EXPECT_EQ(test::ffmpegDecode(folder / "take.caf").size(), 10000u);
}

}  // namespace
}  // namespace corvane
