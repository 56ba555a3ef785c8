// What a file is, whatever its name says; and what happens to files that are damaged, empty,
// not files at all, or not audio.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "FileTestSupport.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileIdentity.h"
#include "headless/files/AudioFileModel.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

using FileIdentity = test::FixtureCopyTest;

TEST_F(FileIdentity, MisnamedFilesAreToldByTheirBytes) {
  struct Case {
    std::string fixture, name, label, help;
    bool rewritable;
  };
  const std::vector<Case> cases{
      {"wav-s16.wav", "take.aif", "WAV",
       "The file's header says WAV; its name says .aif. Save keeps it a WAV file. Use Save As to write a AIFF.", true},
      {"aiff-s16.aiff", "take.wav", "AIFF",
       "The file's header says AIFF; its name says .wav. Save keeps it a AIFF file. Use Save As to write a WAV.", true},
      {"mp3.mp3", "song.wav", "MP3",
       "The file's header says MP3; its name says .wav. It can't be rewritten in place; Save As writes a new PCM file.",
       false},
      {"flac-24.flac", "master.wav", "FLAC",
       "The file's header says FLAC; its name says .wav. It can't be rewritten in place; Save As writes a new PCM file.",
       false},
      {"caf-s24.caf", "stem.w64", "CAF",
       "The file's header says CAF; its name says .w64. Save keeps it a CAF file. Use Save As to write a Wave64.", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto loaded = AudioFileModel::load(copyAs(c.fixture, c.name));
    ASSERT_TRUE(loaded.model.identity);
    EXPECT_EQ(loaded.model.identity->formatLabel, c.label);
    EXPECT_TRUE(loaded.model.identity->isMisnamed);
    EXPECT_EQ(loaded.model.identity->isRewritableInPlace, c.rewritable);
    EXPECT_EQ(loaded.model.fileFormat, c.label);
    EXPECT_EQ(loaded.model.formatHelp(), c.help);
  }
}

TEST_F(FileIdentity, NamesThatFitTheBytesOrSayNothingAreNoLie) {
  // RF64 and BW64 are rightly named .wav, AIFF-C .aif; an unknown extension says nothing.
  for (const auto& [fixture, name] : std::vector<std::pair<std::string, std::string>>{
           {"rf64.wav", "long.wav"}, {"aifc-s24.aifc", "take.aif"}, {"wav-s24.wav", "take.raw"},
           {"wav-s24.wav", "take"}, {"vorbis.ogg", "take.oga"}, {"aac.m4a", "take.mp4"}}) {
    SCOPED_TRACE(name);
    const auto identity = AudioFileIdentity::inspect(copyAs(fixture, name));
    ASSERT_TRUE(identity);
    EXPECT_FALSE(identity->isMisnamed);
  }
  const auto loaded = AudioFileModel::load(copyAs("wav-s24.wav", "take.raw"));
  EXPECT_EQ(loaded.model.formatHelp(), std::nullopt);
}

TEST_F(FileIdentity, Bw64IsReadByFFmpegAndNeverRewrittenInPlace) {
  // BW64 is RF64 with another magic; no writer here makes its header.
  auto bytes = test::readBytes(test::fixtureFolder() / "rf64.wav");
  ASSERT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "RF64");
  std::copy_n("BW64", 4, bytes.begin());
  const fs::path file = folder / "programme.wav";
  test::writeBytes(file, bytes);

  const auto loaded = AudioFileModel::load(file);
  ASSERT_TRUE(loaded.model.identity);
  EXPECT_EQ(loaded.model.identity->formatLabel, "BW64");
  EXPECT_FALSE(loaded.model.identity->isRewritableInPlace);
  EXPECT_FALSE(loaded.model.identity->isMisnamed);
  const auto reference = AudioFileModel::load(test::fixtureFolder() / "rf64.wav");
  EXPECT_EQ(test::interleave(*loaded.buffer), test::interleave(*reference.buffer));
  EXPECT_EQ(loaded.model.pcmEncoding, PCMEncoding::int24);
}

TEST_F(FileIdentity, EmptyFilesAndFoldersEndInTheDecodersWordsNotTheRawRoad) {
  const fs::path empty = folder / "empty.wav";
  test::writeBytes(empty, {});
  const fs::path directory = folder / "session.wav";
  fs::create_directory(directory);
  const fs::path missing = folder / "gone.wav";

  for (const auto& [path, text] : std::vector<std::pair<fs::path, std::string>>{
           {empty, "empty.wav is empty (0 bytes)."},
           {directory, "session.wav is a folder, not an audio file."},
           {missing, "There is no file at " + missing.string() + "."}}) {
    SCOPED_TRACE(path.string());
    EXPECT_EQ(regularFileSize(path), std::nullopt);
    try {
      AudioFileModel::load(path);
      ADD_FAILURE() << "loaded";
    } catch (const AudioDecodeError& error) {
      EXPECT_EQ(std::string(error.what()), text);
    }
  }
}

TEST_F(FileIdentity, UndecodableFilesAreLeftToTheRawRoad) {
  std::mt19937 random(1234);
  std::vector<unsigned char> noise(65536);
  for (auto& byte : noise) byte = static_cast<unsigned char>(random());
  // Headerless PCM as a recorder leaves it, under names that libsndfile would otherwise
  // guess a headerless format from (.au, .vox, .gsm).
  const std::string pcm = test::runChecked("sox -R -V1 -n -r 48000 -c 2 -b 16 -t raw - synth 0.5 sine 440 sine 660");
  const std::vector<unsigned char> pcmBytes(pcm.begin(), pcm.end());
  const std::vector<unsigned char> text{'t', 'a', 'k', 'e', ' ', '3', '\n'};

  struct Case {
    std::string name;
    const std::vector<unsigned char>* bytes;
    std::optional<std::string> note;
  };
  const std::vector<Case> cases{
      {"noise.wav", &noise,
       "The file couldn't be read as WAV audio; it may be damaged. If it is actually headerless PCM, declare the format "
       "below."},
      {"noise.bin", &noise, std::nullopt},
      {"recorder.au", &pcmBytes,
       "The file couldn't be read as AU audio; it may be damaged. If it is actually headerless PCM, declare the format "
       "below."},
      {"recorder.vox", &pcmBytes, std::nullopt},
      {"recorder.gsm", &pcmBytes, std::nullopt},
      {"recorder.pcm", &pcmBytes, std::nullopt},
      {"recorder.mp3", &pcmBytes,
       "The file couldn't be read as MP3 audio; it may be damaged. If it is actually headerless PCM, declare the format "
       "below."},
      {"notes.txt", &text, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path file = folder / c.name;
    test::writeBytes(file, *c.bytes);
    EXPECT_THROW(AudioFileModel::load(file), std::exception);
    EXPECT_EQ(regularFileSize(file), static_cast<std::int64_t>(c.bytes->size()));
    EXPECT_EQ(rawImportNote(file), c.note);
    EXPECT_FALSE(AudioFileIdentity::inspect(file).has_value());
  }
}

TEST_F(FileIdentity, AStreamWithoutAFrameCountIsReadToItsEnd) {
  // ADTS carries no length: FFmpeg estimates one from the bit rate, and the load reads on
  // through its scratch buffer, growing the buffer, until the stream ends. Every frame ffmpeg
  // itself decodes must be there, none more.
  const auto loaded = AudioFileModel::load(test::fixtureFolder() / "adts.aac");
  const auto reference = test::ffmpegDecode(test::fixtureFolder() / "adts.aac");
  EXPECT_EQ(loaded.buffer->frameLength(), static_cast<FrameCount>(reference.size() / 2));
  EXPECT_EQ(loaded.model.totalFrames, loaded.buffer->frameLength());
  const auto ours = test::interleave(*loaded.buffer);
  double worst = 0.0;
  for (std::size_t i = 0; i < std::min(ours.size(), reference.size()); ++i) {
    worst = std::max(worst, std::fabs(static_cast<double>(ours[i]) - reference[i]));
  }
  EXPECT_LT(worst, 1e-6) << "the same decoder should give the same samples";
}

// The data chunk of a RIFF file, found by walking its chunks (independently of the probe).
std::pair<std::size_t, std::size_t> riffData(const std::vector<unsigned char>& bytes) {
  std::size_t at = 12;
  while (at + 8 <= bytes.size()) {
    const std::size_t size = bytes[at + 4] | (bytes[at + 5] << 8) | (bytes[at + 6] << 16) |
                             (static_cast<std::size_t>(bytes[at + 7]) << 24);
    if (std::equal(bytes.begin() + static_cast<long>(at), bytes.begin() + static_cast<long>(at) + 4, "data")) {
      return {at + 8, size};
    }
    at += 8 + size + (size & 1);
  }
  return {0, 0};
}

TEST_F(FileIdentity, TruncatedFilesLoadWhatTheyHoldAndNothingMore) {
  const auto full = test::readBytes(test::fixtureFolder() / "wav-s24.wav");
  const auto [dataOffset, dataBytes] = riffData(full);
  ASSERT_GT(dataOffset, 0u);
  ASSERT_EQ(dataBytes, full.size() - dataOffset);
  // Cut inside a frame: 1000 whole frames and two bytes of the next.
  const std::size_t keep = dataOffset + 1000 * 6 + 2;
  const fs::path cut = folder / "cut.wav";
  test::writeBytes(cut, std::vector<unsigned char>(full.begin(), full.begin() + static_cast<long>(keep)));
  const auto loaded = AudioFileModel::load(cut);
  ASSERT_EQ(loaded.buffer->frameLength(), 1000);
  const auto reference = test::soxDecode(test::fixtureFolder() / "wav-s24.wav");
  const auto ours = test::interleave(*loaded.buffer);
  EXPECT_TRUE(std::equal(ours.begin(), ours.end(), reference.begin()));

  // FLAC: the header's count stays, the buffer holds the whole frames that survived.
  const auto flac = test::readBytes(test::fixtureFolder() / "flac-24.flac");
  const fs::path cutFlac = folder / "cut.flac";
  test::writeBytes(cutFlac, std::vector<unsigned char>(flac.begin(), flac.begin() + static_cast<long>(flac.size() / 2)));
  const auto partial = AudioFileModel::load(cutFlac);
  const auto flacReference = test::soxDecode(test::fixtureFolder() / "flac-24.flac");
  EXPECT_EQ(partial.model.totalFrames, 60000);
  EXPECT_DOUBLE_EQ(partial.model.duration, 1.25);
  EXPECT_GT(partial.buffer->frameLength(), 0);
  EXPECT_LT(partial.buffer->frameLength(), 60000);
  const auto partialSamples = test::interleave(*partial.buffer);
  EXPECT_TRUE(std::equal(partialSamples.begin(), partialSamples.end(), flacReference.begin()))
      << "decoded past the damage";

  // Compressed and chunked containers cut short: never a crash, never more than the file had.
  for (const std::string fixture : {"mp3.mp3", "caf-s24.caf", "vorbis.ogg", "aac.m4a", "rf64.wav", "aifc-s24.aifc"}) {
    SCOPED_TRACE(fixture);
    const auto bytes = test::readBytes(test::fixtureFolder() / fixture);
    const fs::path file = folder / ("cut-" + fixture);
    test::writeBytes(file, std::vector<unsigned char>(bytes.begin(), bytes.begin() + static_cast<long>(bytes.size() / 3)));
    try {
      const auto result = AudioFileModel::load(file);
      EXPECT_LT(result.buffer->frameLength(), 60000 * 2 / 3);
    } catch (const std::exception& error) {
      // MP4 keeps its index at the end: a cut file can't be decoded and goes to the raw road.
      EXPECT_TRUE(regularFileSize(file).has_value()) << error.what();
    }
  }
}

}  // namespace
}  // namespace corvane
