// Saving through the session, judged from outside: what Save and Save As leave on disk is read
// back by ffmpeg (the samples, bit for bit) and described by ffprobe, sndfile-info and sox
// (container, encoding, bit depth, rate, channels, layout); a save killed at any moment, a
// full disk, a symbolic link and every spelling of the loaded file are tried on the session's
// own commands, not on the file layer beneath them; and the questions before the session is
// left (another file, the compare view) save for real before they let it go.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "EditingTestSupport.h"
#include "KillDuringSave.h"
#include "editing/EditCommands.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/PCMWriteSettings.h"
#include "headless/files/InPlaceSave.h"
#include "session/BackgroundWork.h"
#include "session/SettingsStore.h"

namespace corvane::test {
namespace {

namespace fs = std::filesystem;

std::string quoted(const fs::path& path) {
  std::string text = path.string();
  text.insert(text.begin(), '\'');
  text.push_back('\'');
  return text;
}

std::string bytesOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Interleaved samples as ffmpeg decodes them to 32-bit float: exact for 16- and 24-bit
// integers and for float, so equal files give equal bits.
std::vector<float> ffmpegSamples(const fs::path& path) {
  const CommandResult decoded = runCommand("ffmpeg -v error -i " + quoted(path) + " -f f32le -");
  EXPECT_EQ(decoded.exitCode, 0) << path;
  std::vector<float> samples(decoded.output.size() / sizeof(float));
  std::memcpy(samples.data(), decoded.output.data(), samples.size() * sizeof(float));
  return samples;
}

// The frames [begin, end) of interleaved samples, optionally with the two channels swapped.
std::vector<float> framesOf(const std::vector<float>& interleaved, int channels, std::size_t begin, std::size_t end,
                            bool swapStereo) {
  std::vector<float> out;
  for (std::size_t frame = begin; frame < end; ++frame) {
    for (int c = 0; c < channels; ++c) {
      const int from = swapStereo ? 1 - c : c;
      out.push_back(interleaved[frame * static_cast<std::size_t>(channels) + static_cast<std::size_t>(from)]);
    }
  }
  return out;
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// "key=value" lines of ffprobe, "Key : value" lines of sndfile-info.
std::map<std::string, std::string> keyValues(const std::string& text, char separator) {
  std::map<std::string, std::string> values;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const auto at = line.find(separator);
    if (at == std::string::npos) continue;
    auto trim = [](std::string s) {
      s.erase(0, s.find_first_not_of(" \t"));
      s.erase(s.find_last_not_of(" \t\r") + 1);
      return s;
    };
    // The last wins: sndfile-info's summary (Format, Channels) follows the chunk dump, which
    // uses some of the same words for the header's raw fields.
    values[trim(line.substr(0, at))] = trim(line.substr(at + 1));
  }
  return values;
}

// What the three tools say about a file.
struct ToolReport {
  // ffprobe
  std::string formatName, codecName, layout;
  int probeRate = 0, probeChannels = 0;
  // sndfile-info
  int sndfileRate = 0, sndfileChannels = 0;
  unsigned sndfileFormat = 0;
  // sox --i
  int soxRate = 0, soxChannels = 0, soxBits = 0;
  std::string soxEncoding;
};

ToolReport describe(const fs::path& path) {
  ToolReport report;
  auto probe = keyValues(runCommand("ffprobe -v error -show_entries stream=codec_name,sample_rate,channels,"
                                    "channel_layout:format=format_name -of default=nw=1 " +
                                    quoted(path))
                             .output,
                         '=');
  report.formatName = probe["format_name"];
  report.codecName = probe["codec_name"];
  report.layout = probe["channel_layout"];
  report.probeRate = std::atoi(probe["sample_rate"].c_str());
  report.probeChannels = std::atoi(probe["channels"].c_str());
  auto info = keyValues(runCommand("sndfile-info " + quoted(path)).output, ':');
  report.sndfileRate = std::atoi(info["Sample Rate"].c_str());
  report.sndfileChannels = std::atoi(info["Channels"].c_str());
  report.sndfileFormat = static_cast<unsigned>(std::strtoul(info["Format"].c_str(), nullptr, 16));
  auto sox = [&](const char* option) {
    std::string out = runCommand("sox --i " + std::string(option) + " " + quoted(path)).output;
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    return out;
  };
  report.soxRate = std::atoi(sox("-r").c_str());
  report.soxChannels = std::atoi(sox("-c").c_str());
  report.soxBits = std::atoi(sox("-b").c_str());
  report.soxEncoding = sox("-e");
  return report;
}

// The body of a CAF file's 'chan' chunk as big-endian words (each chunk after the 8-byte file
// header is a 4-byte type and an 8-byte size); empty when there is none. Word 0 is the layout
// tag, 1 the bitmap, 2 the number of descriptions, then five words per description (label,
// flags, three coordinates).
std::vector<std::uint32_t> cafChannelLayout(const fs::path& path) {
  const std::string bytes = bytesOf(path);
  auto be = [&](std::size_t at, int width) {
    std::uint64_t value = 0;
    for (int i = 0; i < width; ++i) value = (value << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
    return value;
  };
  for (std::size_t at = 8; at + 12 <= bytes.size();) {
    const std::string type = bytes.substr(at, 4);
    const std::uint64_t size = be(at + 4, 8);
    if (type == "chan" && at + 12 + size <= bytes.size()) {
      std::vector<std::uint32_t> words;
      for (std::size_t word = 0; word + 4 <= size; word += 4) words.push_back(static_cast<std::uint32_t>(be(at + 12 + word, 4)));
      return words;
    }
    if (type == "data") break;
    at += 12 + size;
  }
  return {};
}

// One source format of the matrix, and what the tools must say about every file saved from it
// (from the containers' and libsndfile's definitions, not from Corvane's output).
struct SourceFormat {
  std::string name;
  std::string extension;   // of the source, and of the Save As target
  std::string soxOptions;  // how sox writes the source
  int rate = 48000;
  // Expected of every saved file:
  std::string probeFormat;      // ffprobe format_name
  std::string codecPrefix;      // ffprobe codec_name without its byte order
  std::vector<unsigned> majors; // sndfile major formats accepted (WAV may be written extensible)
  unsigned subtype = 0;         // sndfile subtype: PCM_16 2, PCM_24 3, FLOAT 6
  int bits = 0;
  std::string soxEncoding;
};

void PrintTo(const SourceFormat& format, std::ostream* out) { *out << format.name; }

constexpr unsigned kWav = 0x010000, kWavex = 0x130000, kAiff = 0x020000, kCaf = 0x180000;
const std::string kInteger = "Signed Integer PCM";
const std::string kFloat = "Floating Point PCM";

std::vector<SourceFormat> sourceFormats() {
  const std::string f32 = "-e floating-point -b 32";
  return {
      {"wav16", "wav", "-b 16", 44100, "wav", "pcm_s16", {kWav, kWavex}, 2, 16, kInteger},
      {"wav24", "wav", "-b 24", 48000, "wav", "pcm_s24", {kWav, kWavex}, 3, 24, kInteger},
      {"wavFloat", "wav", f32, 96000, "wav", "pcm_f32", {kWav, kWavex}, 6, 32, kFloat},
      {"aiff16", "aiff", "-b 16", 48000, "aiff", "pcm_s16", {kAiff}, 2, 16, kInteger},
      {"aiff24", "aiff", "-b 24", 96000, "aiff", "pcm_s24", {kAiff}, 3, 24, kInteger},
      {"aiffFloat", "aifc", f32, 44100, "aiff", "pcm_f32", {kAiff}, 6, 32, kFloat},
      {"caf16", "caf", "-b 16", 96000, "caf", "pcm_s16", {kCaf}, 2, 16, kInteger},
      {"caf24", "caf", "-b 24", 44100, "caf", "pcm_s24", {kCaf}, 3, 24, kInteger},
      {"cafFloat", "caf", f32, 48000, "caf", "pcm_f32", {kCaf}, 6, 32, kFloat},
  };
}

class SaveThroughSession : public EditingTest {
 protected:
  // Loads `path` into a new session with a save panel that answers `nextLocation`.
  std::unique_ptr<AudioEngine> open(const fs::path& path) {
    auto engine = makeEngine();
    LandingLog log(*engine);
    engine->loadFile(url(path.string()));
    EXPECT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) == 1; })) << path;
    waitForBackgroundWork();
    QCoreApplication::processEvents();
    engine->editEngine().setSaveLocationChooser([this](const EditEngine::SaveRequest& request) {
      requests.push_back(request);
      return nextLocation;
    });
    return engine;
  }
  // Save over the loaded file without a question.
  void allowSilentOverwrite() {
    store->setCorvaneAllowSaveOverwrite(true);
    store->setCorvaneConfirmSaveOverwrite(false);
  }
  std::vector<std::string> temporariesIn(const fs::path& dir) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) {
      const std::string name = entry.path().filename().string();
      if (name.find(".corvane-save-") != std::string::npos) names.push_back(name);
    }
    return names;
  }

  std::vector<EditEngine::SaveRequest> requests;
  std::optional<fs::path> nextLocation;
};

// ---- The format matrix -------------------------------------------------------------------------

class SaveRoundTrip : public SaveThroughSession, public ::testing::WithParamInterface<SourceFormat> {
 protected:
  void expectSaved(const fs::path& path, const std::vector<float>& expected, const ToolReport& source) {
    const SourceFormat& format = GetParam();
    SCOPED_TRACE(path.filename().string());
    EXPECT_TRUE(sameBits(ffmpegSamples(path), expected)) << "the samples didn't read back bit for bit";
    const ToolReport saved = describe(path);
    EXPECT_EQ(saved.formatName, format.probeFormat);
    EXPECT_EQ(saved.codecName.substr(0, format.codecPrefix.size()), format.codecPrefix) << saved.codecName;
    EXPECT_NE(std::find(format.majors.begin(), format.majors.end(), saved.sndfileFormat & 0x0FFF0000u),
              format.majors.end())
        << std::hex << saved.sndfileFormat;
    EXPECT_EQ(saved.sndfileFormat & 0xFFFFu, format.subtype) << std::hex << saved.sndfileFormat;
    EXPECT_EQ(saved.soxBits, format.bits);
    EXPECT_EQ(saved.soxEncoding, format.soxEncoding);
    // Rate and channels: the same as the source's, and the three tools agree.
    for (int rate : {saved.probeRate, saved.sndfileRate, saved.soxRate}) EXPECT_EQ(rate, format.rate);
    for (int channels : {saved.probeChannels, saved.sndfileChannels, saved.soxChannels}) EXPECT_EQ(channels, 2);
    EXPECT_EQ(source.probeRate, format.rate);
    EXPECT_EQ(source.soxBits, saved.soxBits);
    EXPECT_EQ(source.soxEncoding, saved.soxEncoding);
  }
};

TEST_P(SaveRoundTrip, SaveAndSaveAsReadBackBitIdenticalInTheSourceFormat) {
  const SourceFormat& format = GetParam();
  const fs::path source = fs::path(folder.path()) / ("source." + format.extension);
  const CommandResult made =
      runCommand("sox -V1 -R -n -r " + std::to_string(format.rate) + " " + format.soxOptions + " -c 2 " +
                 quoted(source) + " synth 0.5 sine 440 whitenoise vol 0.7 2>&1");
  ASSERT_EQ(made.exitCode, 0) << made.output;
  const ToolReport sourceReport = describe(source);
  const std::vector<float> original = ffmpegSamples(source);
  const std::size_t frames = original.size() / 2;
  ASSERT_EQ(frames, static_cast<std::size_t>(format.rate / 2));

  // Exact edits only (a channel swap, a trim), so the saved samples can be predicted bit for
  // bit from the source's.
  auto engine = open(source);
  EditEngine& edits = engine->editEngine();
  allowSilentOverwrite();
  const FrameCount begin = static_cast<FrameCount>(frames / 10);
  const FrameCount end = static_cast<FrameCount>(frames - frames / 5);
  EditCommands(*engine).applyChannelSwap();
  EditCommands(*engine).applyTrim(begin, end);
  ASSERT_TRUE(edits.isDirty());

  // Save over the source, which sox wrote.
  edits.saveEditedBufferInPlace();
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(requests.empty()) << "Save asked for a new file";
  expectSaved(source, framesOf(original, 2, static_cast<std::size_t>(begin), static_cast<std::size_t>(end), true),
              sourceReport);
  EXPECT_TRUE(temporariesIn(folder.path()).empty());

  // Swap back and Save As a new file of the same type.
  EditCommands(*engine).applyChannelSwap();
  nextLocation = fs::path(folder.path()) / ("delivered." + format.extension);
  edits.exportEditedBuffer();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].proposedName, "source_edited.wav");
  EXPECT_FALSE(edits.isDirty());
  EXPECT_EQ(engine->loadedFile()->url, *nextLocation);
  expectSaved(*nextLocation,
              framesOf(original, 2, static_cast<std::size_t>(begin), static_cast<std::size_t>(end), false),
              sourceReport);
  EXPECT_TRUE(user->seen.empty()) << user->seen.front().messageText.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Formats, SaveRoundTrip, ::testing::ValuesIn(sourceFormats()),
                         [](const auto& info) { return info.param.name; });

// ---- Layouts -----------------------------------------------------------------------------------

TEST_F(SaveThroughSession, ASurroundLayoutSurvivesSaveAndSaveAsToWavAndCaf) {
  // 5.1 with a channel mask, from ffmpeg: a tone per channel.
  const fs::path source = fs::path(folder.path()) / "surround.wav";
  const CommandResult made = runCommand(
      "ffmpeg -v error -f lavfi -i 'aevalsrc=0.5*sin(2*PI*300*t)|0.5*sin(2*PI*400*t)|0.5*sin(2*PI*500*t)|"
      "0.5*sin(2*PI*60*t)|0.5*sin(2*PI*700*t)|0.5*sin(2*PI*800*t):c=5.1:s=48000:d=0.5' -c:a pcm_s24le " +
      quoted(source) + " 2>&1");
  ASSERT_EQ(made.exitCode, 0) << made.output;
  const ToolReport sourceReport = describe(source);
  ASSERT_EQ(sourceReport.probeChannels, 6);
  ASSERT_NE(sourceReport.layout, "unknown");
  const std::vector<float> original = ffmpegSamples(source);
  const std::size_t frames = original.size() / 6;

  auto engine = open(source);
  allowSilentOverwrite();
  EditCommands(*engine).applyTrim(1000, static_cast<FrameCount>(frames) - 2000);
  engine->editEngine().saveEditedBufferInPlace();
  const std::vector<float> expected = framesOf(original, 6, 1000, frames - 2000, false);

  auto check = [&](const fs::path& path, const std::string& container) {
    SCOPED_TRACE(path.filename().string());
    const ToolReport saved = describe(path);
    EXPECT_EQ(saved.formatName, container);
    if (container == "caf") {
      // Core Audio's tag for L R C LFE Ls Rs (kAudioChannelLayoutTag_MPEG_5_1_A, 121 << 16 | 6).
      // ffprobe names what that tag reads as "5.1(side)" whichever way the surrounds were
      // named in the WAV; the speakers and their order are the same.
      EXPECT_EQ(cafChannelLayout(path).at(0), (121u << 16) | 6u);
      EXPECT_EQ(saved.layout.substr(0, 3), "5.1") << saved.layout;
    } else {
      EXPECT_EQ(saved.layout, sourceReport.layout);
    }
    EXPECT_EQ(saved.probeChannels, 6);
    EXPECT_EQ(saved.sndfileChannels, 6);
    EXPECT_EQ(saved.soxBits, 24);
    EXPECT_TRUE(sameBits(ffmpegSamples(path), expected));
  };
  check(source, "wav");
  for (const char* name : {"delivered.caf", "delivered.wav"}) {
    nextLocation = fs::path(folder.path()) / name;
    engine->editEngine().exportEditedBuffer();
    EXPECT_EQ(engine->loadedFile()->url, *nextLocation);
    check(*nextLocation, fs::path(name).extension() == ".caf" ? "caf" : "wav");
  }
  // A 5.1 order that WAV holds asks no CAF question.
  EXPECT_TRUE(user->seen.empty());
}

TEST_F(SaveThroughSession, AnOrderWavCannotHoldIsOfferedAsCafAndKeptThere) {
  // Top centre, then left and right: no WAV channel mask holds this order, and it is no layout
  // that loading would reorder. Written by Corvane's writer as the fixture; what is judged is
  // the question, the proposal and what the saved CAF declares.
  const fs::path dir(folder.path());
  const fs::path source = dir / "overhead.caf";
  auto buffer = AudioBuffer::create(3, 4800, 48000.0);
  for (int c = 0; c < 3; ++c) {
    for (FrameCount i = 0; i < 4800; ++i) {
      buffer->channel(c)[i] = static_cast<float>(0.25 * std::sin(2.0 * M_PI * (300.0 + 200.0 * c) * static_cast<double>(i) / 48000.0));
    }
  }
  buffer->setChannelPositions({ChannelPosition::TopCenter, ChannelPosition::FrontLeft, ChannelPosition::FrontRight});
  auto writer = AudioFileWriter::create(
      source, PCMWriteSettings::make(AudioContainer::caf, AudioStreamFormat::of(*buffer), PCMEncoding::int24));
  writer->write(*buffer);
  writer->finish();
  writer.reset();
  const std::vector<float> original = ffmpegSamples(source);

  auto engine = open(source);
  EditEngine& edits = engine->editEngine();
  ASSERT_EQ(engine->pcmBuffer()->channelPositions(), buffer->channelPositions());

  // Cancel asks nothing further.
  user->answers = {2};
  edits.exportEditedBuffer();
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "Save as CAF to keep the channel layout?");
  EXPECT_TRUE(user->seen[0].informativeText.startsWith(
      "This file's channel order (Ts L R) can't be stored in a WAV file. Saving as WAV keeps the audio but drops the "
      "channel-layout tag"))
      << user->seen[0].informativeText.toStdString();
  EXPECT_EQ(user->seen[0].buttons, (QStringList{"Save as CAF", "Save as WAV Anyway", "Cancel"}));
  EXPECT_TRUE(requests.empty());

  // Save as CAF: a CAF is proposed, and the order stands in it as one description per channel
  // (Core Audio labels: TopCenterSurround 12, Left 1, Right 2).
  user->answers = {0};
  nextLocation = dir / "overhead_edited.caf";
  edits.exportEditedBuffer();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].proposedName, "overhead_edited.caf");
  EXPECT_EQ(requests[0].extension, "caf");
  const std::vector<std::uint32_t> layout = cafChannelLayout(*nextLocation);
  ASSERT_EQ(layout.size(), 3u + 3u * 5u);
  EXPECT_EQ(layout[0], 0u);  // kAudioChannelLayoutTag_UseChannelDescriptions
  EXPECT_EQ(layout[2], 3u);
  EXPECT_EQ((std::vector<std::uint32_t>{layout[3], layout[8], layout[13]}), (std::vector<std::uint32_t>{12, 1, 2}));
  EXPECT_TRUE(sameBits(ffmpegSamples(*nextLocation), original));
  EXPECT_EQ(describe(*nextLocation).soxBits, 24);

  // Save as WAV Anyway: a WAV with the audio in the same order.
  user->answers = {1};
  nextLocation = dir / "overhead.wav";
  edits.exportEditedBuffer();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[1].proposedName, "overhead_edited_edited.wav");
  EXPECT_EQ(describe(*nextLocation).formatName, "wav");
  EXPECT_TRUE(sameBits(ffmpegSamples(*nextLocation), original));
}

// ---- Leaving the session -------------------------------------------------------------------------

TEST_F(SaveThroughSession, LeavingForAnotherFileOrForCompareSavesForRealFirst) {
  const fs::path dir(folder.path());
  const fs::path file = dir / "mix.wav";
  const fs::path next = dir / "next.wav";
  ASSERT_EQ(runCommand("sox -V1 -R -n -r 48000 -c 2 -b 24 " + quoted(file) + " synth 0.5 sine 440 sine 660").exitCode, 0);
  ASSERT_EQ(runCommand("sox -V1 -R -n -r 48000 -c 2 -b 16 " + quoted(next) + " synth 0.5 sine 330 sine 550").exitCode, 0);
  const std::vector<float> mix = ffmpegSamples(file);
  const std::vector<float> nextOriginal = ffmpegSamples(next);
  auto engine = open(file);
  EditEngine& edits = engine->editEngine();
  EditCommands(*engine).applyChannelSwap();

  // Opening another file: "Save…" is a Save As; once it is written the other file loads.
  user->answers = {0};
  nextLocation = dir / "mix-swapped.wav";
  {
    LandingLog log(*engine);
    engine->openURLs({url(next.string())});
    ASSERT_EQ(user->seen.size(), 1u);
    EXPECT_EQ(user->seen[0].informativeText,
              "Opening the new file replaces the edited audio. Save your edits first, discard them, or cancel?");
    EXPECT_EQ(user->seen[0].buttons, (QStringList{"Save…", "Discard Edits", "Cancel"}));
    EXPECT_TRUE(sameBits(ffmpegSamples(*nextLocation), framesOf(mix, 2, 0, mix.size() / 2, true)));
    ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) == 1; }));
  }
  waitForBackgroundWork();
  EXPECT_EQ(engine->loadedFile()->url, next);
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(sameBits(ffmpegSamples(file), mix));

  // Compare, with overwriting allowed and unconfirmed: "Save" writes over the file, then the
  // compare view opens.
  allowSilentOverwrite();
  EditCommands(*engine).applyChannelSwap();
  user->answers = {0};
  EXPECT_TRUE(engine->setMode(AudioEngine::Mode::compare, true));
  ASSERT_EQ(user->seen.size(), 2u);
  EXPECT_EQ(user->seen[1].messageText, "Unsaved Edits");
  EXPECT_EQ(user->seen[1].informativeText,
            "Comparing files sets the edited audio aside. Save it first, discard your edits, or cancel?");
  EXPECT_EQ(user->seen[1].buttons, (QStringList{"Save", "Discard", "Cancel"}));
  EXPECT_TRUE(engine->isCompareMode());
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(sameBits(ffmpegSamples(next), framesOf(nextOriginal, 2, 0, nextOriginal.size() / 2, true)));

  // A save that fails (the file was moved away) keeps the session out of compare, edits kept.
  engine->setMode(AudioEngine::Mode::compare, false);
  EditCommands(*engine).applyChannelSwap();
  fs::rename(next, dir / "moved.wav");
  user->answers = {0, 1};  // "Save", then "Cancel" in the failure's alert
  EXPECT_FALSE(engine->setMode(AudioEngine::Mode::compare, true));
  ASSERT_EQ(user->seen.size(), 4u);
  EXPECT_EQ(user->seen[3].messageText, "Couldn't save over the file");
  EXPECT_EQ(user->seen[3].informativeText,
            "next.wav can't be found any more; it may have been moved or deleted. Save As still works.");
  EXPECT_FALSE(engine->isCompareMode());
  EXPECT_TRUE(edits.isDirty());
  // "Discard" sets the edits aside and opens compare.
  user->answers = {1};
  EXPECT_TRUE(engine->setMode(AudioEngine::Mode::compare, true));
  EXPECT_TRUE(engine->isCompareMode());
}

// ---- What can go wrong -------------------------------------------------------------------------

TEST_F(SaveThroughSession, ASaveKilledAtAnyMomentLeavesTheOriginalOrTheWholeNewFile) {
  // About 17 MB, so the kills land while the samples are written, synced and renamed.
  const fs::path file = fs::path(folder.path()) / "long.wav";
  ASSERT_EQ(runCommand("sox -V1 -R -n -r 48000 -c 2 -b 24 " + quoted(file) + " synth 60 whitenoise pinknoise vol 0.5").exitCode,
            0);
  auto engine = open(file);
  allowSilentOverwrite();
  EditCommands(*engine).applyChannelSwap();
  EditEngine& edits = engine->editEngine();
  ASSERT_TRUE(edits.isDirty());

  // Each save runs in a child process of this one, on the same session, and is killed there.
  const KillDuringSaveReport report = killDuringSave(
      file,
      [&] {
        edits.saveEditedBufferInPlace();
        if (edits.isDirty()) throw std::runtime_error("the save failed");
      },
      16);
  std::printf("[Editing] kill test through Save: %d kills over a %.2f s save: %d original, %d new, %d other\n",
              report.attempts, report.saveSeconds, report.originalIntact, report.newComplete, report.otherOutcomes);
  EXPECT_EQ(report.otherOutcomes, 0);
  EXPECT_GT(report.originalIntact, 0);
  EXPECT_GT(report.newComplete, 0);

  // This process's session never saved: still dirty, and its own Save clears what the killed
  // ones left behind.
  EXPECT_TRUE(edits.isDirty());
  edits.saveEditedBufferInPlace();
  EXPECT_FALSE(edits.isDirty());
  EXPECT_TRUE(temporariesIn(folder.path()).empty());
  const std::vector<float> saved = ffmpegSamples(file);
  const ChannelData live = liveSamples(*engine);
  ASSERT_EQ(saved.size(), live[0].size() * 2);
  EXPECT_EQ(saved[2 * 1000], live[0][1000]);
  EXPECT_EQ(saved[2 * 1000 + 1], live[1][1000]);
}

TEST_F(SaveThroughSession, AFullDiskFailsWithTheSaveAsAdviceAndLeavesTheOriginal) {
  const fs::path file = fs::path(folder.path()) / "mix.wav";
  ASSERT_EQ(runCommand("sox -V1 -R -n -r 48000 -c 2 -b 24 " + quoted(file) + " synth 3 pinknoise vol 0.5").exitCode, 0);
  const std::string original = bytesOf(file);
  auto engine = open(file);
  allowSilentOverwrite();
  EditEngine& edits = engine->editEngine();
  EditCommands(*engine).applyChannelSwap();
  ASSERT_EQ(edits.undoDepth(), 1);

  // No file of this process may grow past 256 KiB while Save runs, as on a full disk; the new
  // file needs 864 KiB. The user cancels the alert that follows.
  rlimit previous{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &previous), 0);
  const auto previousHandler = ::signal(SIGXFSZ, SIG_IGN);
  rlimit limited = previous;
  limited.rlim_cur = 256 * 1024;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
  user->answers = {1};
  edits.saveEditedBufferInPlace();
  ::setrlimit(RLIMIT_FSIZE, &previous);
  ::signal(SIGXFSZ, previousHandler);

  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "Couldn't save over the file");
  EXPECT_EQ(user->seen[0].informativeText,
            "mix.wav would be larger than this disk or this system allows. mix.wav is unchanged. Save As still works.");
  EXPECT_EQ(user->seen[0].buttons, (QStringList{"Save As…", "Cancel"}));
  EXPECT_EQ(bytesOf(file), original);
  EXPECT_TRUE(temporariesIn(folder.path()).empty());
  EXPECT_TRUE(edits.isDirty());
  EXPECT_EQ(edits.undoDepth(), 1);
  EXPECT_TRUE(requests.empty());

  // And Save As does work once there is room.
  nextLocation = fs::path(folder.path()) / "mix-swapped.wav";
  edits.exportEditedBuffer();
  EXPECT_FALSE(edits.isDirty());
  const std::vector<float> before = [&] {
    // The original's channels, swapped: what the new file must hold.
    const fs::path copy = fs::path(folder.path()) / "original-copy.wav";
    std::ofstream(copy, std::ios::binary) << original;
    return ffmpegSamples(copy);
  }();
  EXPECT_TRUE(sameBits(ffmpegSamples(*nextLocation), framesOf(before, 2, 0, before.size() / 2, true)));
}

TEST_F(SaveThroughSession, ASymlinkedOriginalIsWrittenThroughToItsTargetWithItsMode) {
  const fs::path masters = fs::path(folder.path()) / "masters";
  fs::create_directory(masters);
  const fs::path real = masters / "mix.aiff";
  ASSERT_EQ(runCommand("sox -V1 -R -n -r 44100 -c 2 -b 16 " + quoted(real) + " synth 1 sine 330 sine 550").exitCode, 0);
  ASSERT_EQ(::chmod(real.c_str(), 0640), 0);
  const fs::path link = fs::path(folder.path()) / "current.aiff";
  fs::create_symlink(real, link);
  const std::vector<float> original = ffmpegSamples(real);

  auto engine = open(link);
  allowSilentOverwrite();
  EXPECT_EQ(engine->editEngine().inPlaceSaveBlocker(), std::nullopt);
  EditCommands(*engine).applyChannelSwap();
  engine->editEngine().saveEditedBufferInPlace();
  EXPECT_FALSE(engine->editEngine().isDirty());

  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(fs::read_symlink(link), real);
  EXPECT_TRUE(sameBits(ffmpegSamples(real), framesOf(original, 2, 0, original.size() / 2, true)));
  struct stat info {};
  ASSERT_EQ(::stat(real.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
  EXPECT_EQ(describe(real).formatName, "aiff");
  EXPECT_TRUE(temporariesIn(masters).empty());
  EXPECT_TRUE(temporariesIn(folder.path()).empty());
  ASSERT_TRUE(engine->editEngine().editConfirmation());
  EXPECT_EQ(engine->editEngine().editConfirmation()->text, "Saved over current.aiff");
}

TEST_F(SaveThroughSession, SaveAsRefusesEverySpellingOfTheLoadedFile) {
  const fs::path dir(folder.path());
  const fs::path file = dir / "take.wav";
  ASSERT_EQ(runCommand("sox -V1 -R -n -r 48000 -c 2 -b 16 " + quoted(file) + " synth 1 pinknoise vol 0.5").exitCode, 0);
  fs::create_directory(dir / "sub");
  fs::create_hard_link(file, dir / "hard.wav");
  fs::create_symlink(file, dir / "soft.wav");
  const std::string original = bytesOf(file);

  auto engine = open(file);
  EditCommands(*engine).applyChannelSwap();
  const auto before = engine->loadedFile()->url;
  const std::vector<fs::path> spellings{file,
                                        dir / "." / "take.wav",
                                        fs::path(dir.string() + "//take.wav"),
                                        dir / "sub" / ".." / "take.wav",
                                        dir / "hard.wav",
                                        dir / "soft.wav"};
  for (bool overwriteAllowed : {false, true}) {
    store->setCorvaneAllowSaveOverwrite(overwriteAllowed);
    for (const fs::path& spelling : spellings) {
      SCOPED_TRACE(spelling.string());
      user->seen.clear();
      nextLocation = spelling;
      engine->editEngine().exportEditedBuffer();
      ASSERT_EQ(user->seen.size(), 1u);
      EXPECT_EQ(user->seen[0].messageText, "Cannot overwrite the original file");
      EXPECT_EQ(bytesOf(file), original);
      EXPECT_EQ(bytesOf(dir / "hard.wav"), original);
      EXPECT_TRUE(engine->editEngine().isDirty());
      EXPECT_EQ(engine->loadedFile()->url, before);
    }
  }
  // A name beside it is a new file and is written.
  nextLocation = dir / "sub" / "take.wav";
  user->seen.clear();
  engine->editEngine().exportEditedBuffer();
  EXPECT_TRUE(user->seen.empty());
  EXPECT_FALSE(engine->editEngine().isDirty());
  EXPECT_EQ(bytesOf(file), original);
  EXPECT_EQ(describe(*nextLocation).soxBits, 16);
}

}  // namespace
}  // namespace corvane::test
