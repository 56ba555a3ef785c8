// Headless PCM under a declared format decodes to the same samples sox reads from the WAV it
// was cut from, in every encoding, byte order and layout.
#include <gtest/gtest.h>

#include <cmath>

#include "FileTestSupport.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/RawPCMReader.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using Encoding = RawPCMFormat::Encoding;
using Endianness = RawPCMFormat::Endianness;

std::vector<unsigned char> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

class RawPCM : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { test::fixtureFolder(); }

  // The raw bytes sox cuts from a fixture with the given sox output options.
  std::vector<unsigned char> soxRaw(const std::string& fixture, const std::string& options,
                                    const std::string& effects = "") {
    return bytesOf(test::runChecked("sox -V1 " + test::shellQuote((test::fixtureFolder() / fixture).string()) +
                                    " -t raw " + options + " - " + effects));
  }

  void expectSamples(const AudioBuffer& buffer, const std::vector<float>& interleaved, FrameCount frames) {
    const int channels = buffer.channelCount();
    ASSERT_EQ(buffer.frameLength(), frames);
    std::size_t mismatches = 0;
    for (FrameCount i = 0; i < frames; ++i) {
      for (int c = 0; c < channels; ++c) {
        if (buffer.channel(c)[i] != interleaved[static_cast<std::size_t>(i * channels + c)]) ++mismatches;
      }
    }
    EXPECT_EQ(mismatches, 0u);
  }

  test::TemporaryFolder folder;
};

TEST_F(RawPCM, EveryEncodingAndByteOrderMatchesSox) {
  struct Case {
    std::string fixture;
    std::string soxOptions;
    Encoding encoding;
    Endianness endianness;
    int channels;
    double rate;
    double tolerance;  // 0: bit-exact
  };
  const std::vector<Case> cases{
      {"wav-u8.wav", "-e unsigned-integer -b 8", Encoding::u8, Endianness::little, 1, 22050, 0},
      {"wav-s16.wav", "-e signed-integer -b 16 -L", Encoding::s16, Endianness::little, 2, 44100, 0},
      {"wav-s16.wav", "-e signed-integer -b 16 -B", Encoding::s16, Endianness::big, 2, 44100, 0},
      {"wav-s24.wav", "-e signed-integer -b 24 -L", Encoding::s24, Endianness::little, 2, 48000, 0},
      {"wav-s24.wav", "-e signed-integer -b 24 -B", Encoding::s24, Endianness::big, 2, 48000, 0},
      {"wav-s32.wav", "-e signed-integer -b 32 -L", Encoding::s32, Endianness::little, 2, 48000, 1e-7},
      {"wav-s32.wav", "-e signed-integer -b 32 -B", Encoding::s32, Endianness::big, 2, 48000, 1e-7},
      {"wav-f32.wav", "-e floating-point -b 32 -L", Encoding::f32, Endianness::little, 2, 48000, 0},
      {"wav-f32.wav", "-e floating-point -b 32 -B", Encoding::f32, Endianness::big, 2, 48000, 0},
      {"wav-f64.wav", "-e floating-point -b 64 -L", Encoding::f64, Endianness::little, 2, 48000, 1e-7},
      {"wav-f64.wav", "-e floating-point -b 64 -B", Encoding::f64, Endianness::big, 2, 48000, 1e-7},
  };
  int index = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fixture + " " + c.soxOptions);
    const fs::path file = folder / ("raw" + std::to_string(index++) + ".pcm");
    test::writeBytes(file, soxRaw(c.fixture, c.soxOptions));
    RawPCMFormat format;
    format.sampleRate = c.rate;
    format.channelCount = c.channels;
    format.encoding = c.encoding;
    format.endianness = c.endianness;
    const auto buffer = RawPCMReader::read(file, format);
    const auto reference = test::soxDecode(test::fixtureFolder() / c.fixture);
    const auto frames = static_cast<FrameCount>(reference.size()) / c.channels;
    EXPECT_EQ(buffer->sampleRate(), c.rate);
    if (c.tolerance == 0) {
      expectSamples(*buffer, reference, frames);
    } else {
      ASSERT_EQ(buffer->frameLength(), frames);
      const auto ours = test::interleave(*buffer);
      for (std::size_t i = 0; i < ours.size(); ++i) ASSERT_NEAR(ours[i], reference[i], c.tolerance) << i;
    }
  }
}

TEST_F(RawPCM, Packed24In32TakesTheLowThreeBytes) {
  // ALSA's S24_LE: each 24-bit sample in the low three bytes of four. The fourth byte is
  // written as garbage here: it must not matter.
  const auto packed = soxRaw("wav-s24.wav", "-e signed-integer -b 24 -L");
  std::vector<unsigned char> little, big;
  for (std::size_t i = 0; i + 3 <= packed.size(); i += 3) {
    little.insert(little.end(), {packed[i], packed[i + 1], packed[i + 2], 0x5A});
    big.insert(big.end(), {0xA5, packed[i + 2], packed[i + 1], packed[i]});
  }
  const auto reference = test::soxDecode(test::fixtureFolder() / "wav-s24.wav");
  for (const auto& [bytes, endianness] : {std::pair{little, Endianness::little}, std::pair{big, Endianness::big}}) {
    const fs::path file = folder / "s24in32.raw";
    test::writeBytes(file, bytes);
    RawPCMFormat format;
    format.channelCount = 2;
    format.encoding = Encoding::s24in32;
    format.endianness = endianness;
    expectSamples(*RawPCMReader::read(file, format), reference, static_cast<FrameCount>(reference.size() / 2));
  }
}

TEST_F(RawPCM, PlanarHeaderSkipToleranceAndFrameLimit) {
  // Planar: all of channel 1, then all of channel 2, behind a 44-byte header and before three
  // trailing bytes.
  const auto left = soxRaw("wav-s16.wav", "-e signed-integer -b 16 -L", "remix 1");
  const auto right = soxRaw("wav-s16.wav", "-e signed-integer -b 16 -L", "remix 2");
  ASSERT_EQ(left.size(), right.size());
  std::vector<unsigned char> bytes;
  bytes.reserve(44 + left.size() + right.size() + 3);
  bytes.assign(44, 0x77);
  bytes.insert(bytes.end(), left.begin(), left.end());
  bytes.insert(bytes.end(), right.begin(), right.end());
  bytes.insert(bytes.end(), {1, 2, 3});
  const fs::path file = folder / "planar.raw";
  test::writeBytes(file, bytes);

  RawPCMFormat format;
  format.sampleRate = 44100;
  format.channelCount = 2;
  format.planar = true;
  format.headerSkip = 44;
  EXPECT_EQ(format.frameCount(static_cast<std::int64_t>(bytes.size())), std::nullopt);
  EXPECT_THROW(RawPCMReader::read(file, format), RawPCMReadError);
  format.tolerance = 3;
  const auto frames = static_cast<FrameCount>(left.size() / 2);
  EXPECT_EQ(format.frameCount(static_cast<std::int64_t>(bytes.size())), frames);
  const auto reference = test::soxDecode(test::fixtureFolder() / "wav-s16.wav");
  expectSamples(*RawPCMReader::read(file, format), reference, frames);

  const auto first = RawPCMReader::read(file, format, 1000);
  ASSERT_EQ(first->frameLength(), 1000);
  EXPECT_EQ(first->channel(1)[999], reference[2 * 999 + 1]);
  EXPECT_EQ(RawPCMReader::read(file, format, 10'000'000)->frameLength(), frames);
}

TEST_F(RawPCM, SizesThatDontFitAreRefusedInPlainWords) {
  const fs::path file = folder / "odd.raw";
  test::writeBytes(file, std::vector<unsigned char>(1001, 0));
  RawPCMFormat format;
  format.channelCount = 2;
  format.encoding = Encoding::s16;
  EXPECT_EQ(format.frameCount(1001), std::nullopt);
  try {
    RawPCMReader::read(file, format);
    ADD_FAILURE();
  } catch (const RawPCMReadError& error) {
    EXPECT_EQ(std::string(error.what()),
              "The payload doesn't divide into whole 2-channel frames — check channels, format, and header skip.");
  }
  format.tolerance = 1;
  EXPECT_EQ(format.frameCount(1001), 250);
  EXPECT_EQ(RawPCMReader::read(file, format)->frameLength(), 250);

  format.planar = true;
  format.tolerance = 0;
  format.channelCount = 3;
  try {
    RawPCMReader::read(file, format);
    ADD_FAILURE();
  } catch (const RawPCMReadError& error) {
    EXPECT_EQ(std::string(error.what()), "The payload doesn't divide into 3 equal channel sections of whole samples.");
  }

  format = RawPCMFormat{};
  format.headerSkip = 2000;
  try {
    RawPCMReader::read(file, format);
    ADD_FAILURE();
  } catch (const RawPCMReadError& error) {
    EXPECT_EQ(std::string(error.what()), "The header skip of 2000 bytes passes the end of the 1001-byte file.");
  }

  for (auto broken : {RawPCMFormat{0.0}, RawPCMFormat{NAN}, RawPCMFormat{48000.0, 0}, RawPCMFormat{48000.0, 65}}) {
    EXPECT_FALSE(broken.isValid());
    EXPECT_THROW(RawPCMReader::read(file, broken), RawPCMReadError);
  }
}

TEST_F(RawPCM, TheDeclarationNamesTheModel) {
  const auto bytes = soxRaw("wav-s24.wav", "-e signed-integer -b 24 -B");
  const fs::path file = folder / "capture.wav";  // a misleading name: the declaration decides
  test::writeBytes(file, bytes);
  RawPCMFormat format;
  format.sampleRate = 48000;
  format.channelCount = 2;
  format.encoding = Encoding::s24;
  format.endianness = Endianness::big;
  const auto loaded = AudioFileModel::load(file, format);
  EXPECT_EQ(loaded.model.rawFormat, format);
  EXPECT_FALSE(loaded.model.identity.has_value());
  EXPECT_FALSE(loaded.model.pcmEncoding.has_value());
  EXPECT_EQ(loaded.model.bitDepth, 24);
  EXPECT_EQ(loaded.model.fileFormat, "Raw PCM (s24be)");
  EXPECT_EQ(loaded.model.encodingLabel(), "24-bit integer, declared");
  EXPECT_EQ(loaded.model.fileSize, static_cast<std::int64_t>(bytes.size()));
  EXPECT_EQ(loaded.model.totalFrames, 60000);
  EXPECT_DOUBLE_EQ(loaded.model.duration, 1.25);
  EXPECT_EQ(loaded.model.formatHelp(), std::nullopt);
  EXPECT_EQ(loaded.model.channelLabels(), (std::vector<std::string>{"L", "R"}));

  format.encoding = Encoding::f64;
  EXPECT_EQ(format.fileFormatLabel(), "Raw PCM (f64be)");
  format.encoding = Encoding::u8;
  format.planar = true;
  format.headerSkip = 44;
  EXPECT_EQ(format.fileFormatLabel(), "Raw PCM (u8, planar)");
  EXPECT_EQ(format.summary(), "48000 Hz · 2 ch · 8-bit unsigned (u8) · planar · skip 44 bytes");
  format.sampleRate = 44100.5;
  format.encoding = Encoding::s24in32;
  format.planar = false;
  format.headerSkip = 0;
  format.tolerance = 3;
  EXPECT_EQ(format.summary(), "44100.5 Hz · 2 ch · 24-bit in 32 (s24_32) · big-endian · interleaved · tolerate 3 bytes");
}

}  // namespace
}  // namespace corvane
