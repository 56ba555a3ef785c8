// Helpers of the file-layer tests: temporary folders, the oracle tools (sox, ffmpeg,
// ffprobe, sndfile-info) run as child processes, and the shared fixture matrix.
//
// The fixture matrix is made by sox and ffmpeg, never by Corvane's writer, so that every
// decoding test reads files that an independent encoder produced. CTest runs each test case
// in a process of its own, so the matrix is made once and kept under the build tree
// (CORVANE_TEST_OUTPUT_DIR/headless-files-fixtures/<hash of the commands>): the first process
// builds it in a private folder and renames it into place, later ones (and parallel ones) use
// it as it stands. Changing a command changes the hash and so makes a fresh matrix.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"

namespace corvane::test {

namespace fs = std::filesystem;

// A fresh folder under the system's temporary folder, removed with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const fs::path& path() const { return _path; }
  fs::path operator/(const std::string& name) const { return _path / name; }

 private:
  fs::path _path;
};

// `text` quoted for /bin/sh.
std::string shellQuote(const std::string& text);

struct CommandResult {
  int exitCode = -1;
  std::string output;  // standard output (standard error is discarded unless redirected)
};

// Runs a shell command line and collects its standard output.
CommandResult runCommand(const std::string& commandLine);

// Runs a command that must succeed; fails the calling test (and throws) otherwise.
std::string runChecked(const std::string& commandLine);

std::vector<unsigned char> readBytes(const fs::path& file);
void writeBytes(const fs::path& file, const std::vector<unsigned char>& bytes);

// Interleaved 32-bit float samples of a whole file as sox decodes it (sox scales integers by
// 1 / 2^31 of its 32-bit internal form, which is exact up to 24 bits).
std::vector<float> soxDecode(const fs::path& file);
// The same from ffmpeg (pcm_f32le, the file's own channel order).
std::vector<float> ffmpegDecode(const fs::path& file);

// The first audio stream as ffprobe sees it.
struct ProbeInfo {
  std::string formatName;   // ffprobe's format_name ("wav", "aiff", "caf", ...)
  std::string codecName;    // "pcm_s16le", "flac", "aac", ...
  int sampleRate = 0;
  int channels = 0;
  std::string channelLayout;  // "stereo", "5.1", "5.1(side)", "7.1", "unknown" ...
  std::int64_t durationFrames = -1;  // duration_ts rescaled to frames, -1 when absent
};
ProbeInfo ffprobe(const fs::path& file);

// The text of `sndfile-info FILE`.
std::string sndfileInfo(const fs::path& file);

// The buffer's channels interleaved (for comparisons with the tools' output).
std::vector<float> interleave(const AudioBuffer& buffer);

// Magnitude of the Goertzel filter at `frequency` over one channel (a tone detector).
double toneMagnitude(const float* samples, FrameCount count, double sampleRate, double frequency);

// A fixture of the shared matrix.
struct Fixture {
  std::string name;       // file name in the matrix folder
  std::string command;    // shell command with {out} for the output path
  bool lossless = true;   // samples must match the oracle bit for bit (or within float precision)
  bool wide = false;      // wider than 24 bits: compared within float precision
  std::string oracle;     // "sox" or "ffmpeg": which tool's decode the samples are compared with
  // What AudioFileIdentity must say (written from the container's specification, not from
  // Corvane's output).
  std::string formatLabel;
  std::string encodingName;
  bool rewritable = false;
};

// For gtest's messages: the fixture's file name.
inline void PrintTo(const Fixture& fixture, std::ostream* out) { *out << fixture.name; }

// The matrix's fixtures, in a fixed order.
const std::vector<Fixture>& fixtureMatrix();

// The folder holding every fixture of the matrix, made on first use (see above).
const fs::path& fixtureFolder();

// The tones of the surround fixtures: channel k of FFmpeg's native order (5.1: FL FR FC LFE
// BL BR; 7.1: FL FR FC LFE BL BR SL SR) carries kSurroundTones[k] Hz. The LFE tone is low
// enough to survive the LFE low-pass of AAC and Vorbis.
inline constexpr double kSurroundTones[8] = {330.0, 470.0, 610.0, 70.0, 890.0, 1030.0, 1170.0, 1310.0};

// A test on copies of matrix fixtures, made under new names in a fresh folder.
class FixtureCopyTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { fixtureFolder(); }
  fs::path copyAs(const std::string& fixture, const std::string& name) {
    const fs::path target = folder / name;
    fs::copy_file(fixtureFolder() / fixture, target, fs::copy_options::overwrite_existing);
    return target;
  }
  TemporaryFolder folder;
};

}  // namespace corvane::test
