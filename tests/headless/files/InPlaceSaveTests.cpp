// Saving over a file: its container, encoding, permissions and links survive, and whatever
// goes wrong (a kill, a full disk, a file it can't rewrite) the original stays as it was.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "FileTestSupport.h"
#include "KillDuringSave.h"
#include "headless/files/AudioFileIdentity.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/InPlaceSave.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

void reverseInTime(AudioBuffer& buffer) {
  for (int c = 0; c < buffer.channelCount(); ++c) std::reverse(buffer.channel(c), buffer.channel(c) + buffer.frameLength());
}

// The file's samples in file order, reversed in time (what a save of the reversed buffer must
// leave), from the oracle decoder.
std::vector<float> reversedFrames(const std::vector<float>& interleaved, int channels) {
  std::vector<float> out(interleaved.size());
  const std::size_t frames = interleaved.size() / static_cast<std::size_t>(channels);
  for (std::size_t i = 0; i < frames; ++i) {
    for (int c = 0; c < channels; ++c) {
      out[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)] =
          interleaved[(frames - 1 - i) * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)];
    }
  }
  return out;
}

std::vector<std::string> temporaries(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().filename().string().find(".corvane-save-") != std::string::npos) {
      names.push_back(entry.path().filename().string());
    }
  }
  return names;
}

using InPlaceSaving = test::FixtureCopyTest;

TEST_F(InPlaceSaving, KeepsContainerEncodingLayoutAndPermissions) {
  struct Case {
    std::string fixture;
    std::string oracle;
  };
  for (const auto& c : std::vector<Case>{{"wav-s16.wav", "sox"},   {"wav-s24.wav", "sox"},    {"wav-f32.wav", "sox"},
                                         {"wav-u8.wav", "sox"},    {"rf64.wav", "ffmpeg"},    {"wave64.w64", "ffmpeg"},
                                         {"aiff-s16.aiff", "sox"}, {"aifc-s24.aifc", "sox"},  {"caf-s24.caf", "ffmpeg"},
                                         {"caf-51.caf", "ffmpeg"}, {"wavex-51.wav", "ffmpeg"}, {"wavex-71.wav", "ffmpeg"}}) {
    SCOPED_TRACE(c.fixture);
    const fs::path file = copyAs(c.fixture, c.fixture);
    ::chmod(file.c_str(), 0640);
    const auto before = AudioFileIdentity::inspect(file);
    const auto probeBefore = test::ffprobe(file);
    const auto oracleBefore = c.oracle == "sox" ? test::soxDecode(file) : test::ffmpegDecode(file);

    auto loaded = AudioFileModel::load(file);
    reverseInTime(*loaded.buffer);
    InPlaceSave::write(*loaded.buffer, file);

    const auto after = AudioFileIdentity::inspect(file);
    ASSERT_TRUE(before && after);
    EXPECT_EQ(after->formatLabel, before->formatLabel);
    EXPECT_EQ(after->pcmEncoding, before->pcmEncoding);
    const auto probeAfter = test::ffprobe(file);
    // Wave64 has no place for a layout in libsndfile's writer; every other container keeps it.
    if (c.fixture != "wave64.w64") {
      EXPECT_EQ(probeAfter.channelLayout, probeBefore.channelLayout);
    }
    EXPECT_EQ(probeAfter.sampleRate, probeBefore.sampleRate);
    EXPECT_EQ(probeAfter.durationFrames, probeBefore.durationFrames);
    const auto oracleAfter = c.oracle == "sox" ? test::soxDecode(file) : test::ffmpegDecode(file);
    EXPECT_TRUE(oracleAfter == reversedFrames(oracleBefore, probeBefore.channels)) << "samples differ";
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_TRUE(temporaries(folder.path()).empty());
  }
}

TEST_F(InPlaceSaving, AMisnamedFileKeepsItsTrueContainer) {
  const fs::path file = copyAs("aiff-s16.aiff", "take.wav");
  auto loaded = AudioFileModel::load(file);
  reverseInTime(*loaded.buffer);
  InPlaceSave::write(*loaded.buffer, file);
  const auto bytes = test::readBytes(file);
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "FORM");
  EXPECT_EQ(std::string(bytes.begin() + 8, bytes.begin() + 12), "AIFF");
  EXPECT_EQ(test::ffprobe(file).codecName, "pcm_s16be");
}

TEST_F(InPlaceSaving, ASymbolicLinkIsFollowedAndStays) {
  fs::create_directory(folder / "masters");
  const fs::path real = copyAs("wav-s24.wav", "masters/mix.wav");
  ::chmod(real.c_str(), 0604);
  const fs::path link = folder / "mix-link.wav";
  fs::create_symlink(real, link);
  const auto before = test::soxDecode(real);

  auto loaded = AudioFileModel::load(link);
  reverseInTime(*loaded.buffer);
  InPlaceSave::write(*loaded.buffer, link);

  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(fs::read_symlink(link), real);
  EXPECT_EQ(test::soxDecode(real), reversedFrames(before, 2));
  struct stat info {};
  ASSERT_EQ(::stat(real.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0604u);
  EXPECT_TRUE(temporaries(folder / "masters").empty());
  EXPECT_TRUE(temporaries(folder.path()).empty());
}

TEST_F(InPlaceSaving, FilesItCantRewriteAreRefusedUntouched) {
  auto buffer = AudioBuffer::createZeroed(2, 100, 48000.0);
  for (const auto& [fixture, text] : std::vector<std::pair<std::string, std::string>>{
           {"mp3.mp3", "mp3.mp3 is MP3 inside, which Corvane can't rewrite in place. mp3.mp3 is unchanged."},
           {"flac-24.flac", "flac-24.flac is FLAC inside, which Corvane can't rewrite in place. flac-24.flac is unchanged."},
           {"aac.m4a", "aac.m4a is MPEG-4 inside, which Corvane can't rewrite in place. aac.m4a is unchanged."}}) {
    const fs::path file = copyAs(fixture, fixture);
    const auto bytes = test::readBytes(file);
    try {
      InPlaceSave::write(*buffer, file);
      ADD_FAILURE() << fixture << " was rewritten";
    } catch (const InPlaceSaveError& error) {
      EXPECT_EQ(std::string(error.what()), text);
    }
    EXPECT_EQ(test::readBytes(file), bytes);
  }
  try {
    InPlaceSave::write(*buffer, folder / "gone.wav");
    ADD_FAILURE() << "saved over a missing file";
  } catch (const InPlaceSaveError& error) {
    EXPECT_EQ(std::string(error.what()), "gone.wav can't be found any more; it may have been moved or deleted.");
  }
}

TEST_F(InPlaceSaving, AFullDiskLeavesTheOriginal) {
  // The process may write no file larger than 64 KiB (as a full disk would stop it); the new
  // file needs 288 KiB.
  const fs::path file = copyAs("wav-s24.wav", "mix.wav");
  const auto bytes = test::readBytes(file);
  auto loaded = AudioFileModel::load(file);
  reverseInTime(*loaded.buffer);

  int pipeFds[2];
  ASSERT_EQ(::pipe(pipeFds), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(pipeFds[0]);
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{64 * 1024, 64 * 1024};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::string message = "saved";
    try {
      InPlaceSave::write(*loaded.buffer, file);
    } catch (const InPlaceSaveError& error) {
      message = error.what();
    }
    [[maybe_unused]] auto written = ::write(pipeFds[1], message.data(), message.size());
    ::_exit(0);
  }
  ::close(pipeFds[1]);
  std::string message;
  char chunk[512];
  ssize_t n;
  while ((n = ::read(pipeFds[0], chunk, sizeof chunk)) > 0) message.append(chunk, static_cast<std::size_t>(n));
  ::close(pipeFds[0]);
  int status = 0;
  ::waitpid(child, &status, 0);

  EXPECT_EQ(message, "mix.wav would be larger than this disk or this system allows. mix.wav is unchanged.");
  EXPECT_EQ(test::readBytes(file), bytes);
  EXPECT_TRUE(temporaries(folder.path()).empty());
}

TEST_F(InPlaceSaving, AKilledSaveLeavesTheOriginalOrTheWholeNewFile) {
  // About 29 MB: long enough that the kills land while samples are being written, synced
  // and renamed.
  const fs::path file = folder / "long.wav";
  test::runChecked("sox -R -V1 -n -r 48000 -c 2 -b 24 " + test::shellQuote(file.string()) +
                   " synth 100 whitenoise vol 0.5");
  auto loaded = AudioFileModel::load(file);
  reverseInTime(*loaded.buffer);
  const SharedAudioBuffer edited = loaded.buffer;

  const auto report = test::killDuringSave(file, [&] { InPlaceSave::write(*edited, file); }, 16);
  std::printf("[Files] kill test: %d kills over a %.2f s save: %d original, %d new, %d other\n", report.attempts,
              report.saveSeconds, report.originalIntact, report.newComplete, report.otherOutcomes);
  EXPECT_EQ(report.otherOutcomes, 0);
  EXPECT_GT(report.originalIntact, 0);
  EXPECT_GT(report.newComplete, 0);

  // The next save removes what the killed ones left behind.
  InPlaceSave::write(*edited, file);
  EXPECT_TRUE(temporaries(folder.path()).empty());
}

TEST_F(InPlaceSaving, LeftoversOfLiveProcessesAreLeftAlone) {
  const fs::path file = copyAs("wav-s16.wav", "take.wav");
  const pid_t dead = ::fork();
  if (dead == 0) ::_exit(0);
  ::waitpid(dead, nullptr, 0);
  const std::string prefix = InPlaceSave::temporaryPrefix(file);
  const fs::path stale = folder / (prefix + std::to_string(dead) + "-A.tmp");
  const fs::path alive = folder / (prefix + "1-B.tmp");  // pid 1 never exits
  test::writeBytes(stale, {1, 2, 3});
  test::writeBytes(alive, {1, 2, 3});
  auto loaded = AudioFileModel::load(file);
  InPlaceSave::write(*loaded.buffer, file);
  EXPECT_FALSE(fs::exists(stale));
  EXPECT_TRUE(fs::exists(alive));
}

}  // namespace
}  // namespace corvane
