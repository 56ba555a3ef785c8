// The streaming road against the in-memory road: every rebuilding edit gives the same samples
// bit for bit, whatever the chunk size and whether the source is a buffer or a file; results
// are float WAVs in the private temporary folder; a failed write leaves no file behind.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <functional>
#include <regex>

#include "EditTestSupport.h"
#include "core/ChannelOrder.h"
#include "headless/TemporaryFiles.h"
#include "headless/edits/EditKernels.h"
#include "headless/edits/EditOperations.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/PCMWriteSettings.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;

struct ParityCase {
  std::string name;
  std::function<Ops::EditResult(const Audio&)> inMemory;
  std::function<bool(EditSource&, const fs::path&, FrameCount)> streamed;
};

std::vector<ParityCase> parityCases() {
  const auto weights = [](const Audio& a) { return ChannelOrder::bs1770Weights(a.positions, a.channelCount()); };
  return {
      {"trim", [](const Audio& a) { return Ops::trim(a.channels, 12345, 250001, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writeTrimmedWAV(s, 12345, 250001, to, n); }},
      {"cut", [](const Audio& a) { return Ops::cutRange(a.channels, 100000, 160000, 480, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writeCutWAV(s, 100000, 160000, 480, to, n); }},
      {"cut, crossfade longer than a chunk",
       [](const Audio& a) { return Ops::cutRange(a.channels, 100000, 160000, 20011, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writeCutWAV(s, 100000, 160000, 20011, to, n); }},
      {"silence before",
       [](const Audio& a) { return Ops::addSilence(a.channels, 5000, 9000, Ops::SilenceMode::before, 7777, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) {
         return Ops::writeSilenceWAV(s, 5000, 9000, Ops::SilenceMode::before, 7777, to, n);
       }},
      {"silence after",
       [](const Audio& a) { return Ops::addSilence(a.channels, 5000, 9000, Ops::SilenceMode::after, 7777, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) {
         return Ops::writeSilenceWAV(s, 5000, 9000, Ops::SilenceMode::after, 7777, to, n);
       }},
      {"silence replacing",
       [](const Audio& a) { return Ops::addSilence(a.channels, 5000, 90000, Ops::SilenceMode::replace, 0, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) {
         return Ops::writeSilenceWAV(s, 5000, 90000, Ops::SilenceMode::replace, 0, to, n);
       }},
      {"normalize LUFS, limited",
       [weights](const Audio& a) { return Ops::normalizeLUFS(a.channels, -9.0, -1.0, a.rate, weights(a)); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writeNormalizedWAV(s, -9.0, -1.0, to, n); }},
      {"normalize peak", [](const Audio& a) { return Ops::normalizePeak(a.channels, -0.5, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writePeakNormalizedWAV(s, -0.5, to, n); }},
      {"limit", [](const Audio& a) { return Ops::limitTruePeak(a.channels, -8.0, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writeLimitedWAV(s, -8.0, to, n); }},
      {"normalize by gain", [](const Audio& a) { return Ops::normalizeByGain(a.channels, 12.0, -1.0, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writeGainLimitedWAV(s, 12.0, -1.0, to, n); }},
      {"swap", [](const Audio& a) { return Ops::swapChannels(a.channels, a.rate); },
       [](EditSource& s, const fs::path& to, FrameCount n) { return Ops::writeChannelSwappedWAV(s, to, n); }},
  };
}

class StreamingParityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    source = folder / "source.wav";
    // Loud enough that every limiter engages; 297,600 frames, a multiple of no chunk size here.
    soxMake(source, "-r 48000 -b 24 -c 2", "synth 6.2 pinknoise sine 3000 vol 0.5");
    audio = readAudio(source);
    buffer = AudioBuffer::create(2, audio.frames(), audio.rate);
    for (int c = 0; c < 2; ++c) std::copy(audio.channels[c].begin(), audio.channels[c].end(), buffer->channel(c));
  }

  TemporaryFolder folder;
  fs::path source;
  Audio audio;
  SharedAudioBuffer buffer;
};

TEST_F(StreamingParityTest, EveryRebuildingEditStreamsTheSamplesOfItsInMemoryTwin) {
  for (const auto& c : parityCases()) {
    SCOPED_TRACE(c.name);
    const Ops::EditResult expected = c.inMemory(audio);
    ASSERT_FALSE(expected.nothingToDo);
    // The editor's chunk and an odd small one from the session's buffer, a third from the file.
    for (const FrameCount chunk : {Ops::kStreamingChunkFrames, FrameCount{4099}}) {
      SCOPED_TRACE(chunk);
      BufferEditSource from(*buffer);
      const fs::path to = Ops::temporaryResultPath("parity");
      ASSERT_TRUE(c.streamed(from, to, chunk));
      const Audio streamed = readAudio(to);
      fs::remove(to);
      EXPECT_EQ(streamed.rate, audio.rate);
      EXPECT_TRUE(bitIdentical(streamed.channels, expected.channelData));
    }
    FileEditSource file(source);
    const fs::path to = folder / "from-file.wav";
    ASSERT_TRUE(c.streamed(file, to, 65521));
    EXPECT_EQ(ffprobe(to).codecName, "pcm_f32le");
    EXPECT_TRUE(bitIdentical(readAudio(to).channels, expected.channelData));
  }
}

TEST_F(StreamingParityTest, InPlaceRulesAppliedChunkByChunkGiveTheInPlaceMembersSamples) {
  SpeechHistory mask(62, false);
  for (int b = 7; b < 19; ++b) mask[static_cast<std::size_t>(b)] = true;
  for (int b = 30; b < 33; ++b) mask[static_cast<std::size_t>(b)] = true;
  const EditKernels::NonSpeechGain gate(mask, 4800, -18.0, 1.5, 5.0, 200.0, audio.rate);
  struct Case {
    std::string name;
    std::function<void(float* const*, FrameCount)> whole;
    Ops::ChunkEditor chunked;
  };
  const FrameCount start = 1234, end = 250123;
  const Case cases[] = {
      {"gain", [&](float* const* p, FrameCount n) { Ops::changeLevelInPlace(p, 2, n, -7.5, start, end); },
       [&](float* const* p, int c, FrameCount first, FrameCount n) {
         EditKernels::applyGain({p, c, first, n}, start, end, std::pow(10.0, -7.5 / 20.0));
       }},
      {"fade out, log",
       [&](float* const* p, FrameCount n) {
         Ops::fadeInPlace(p, 2, n, Ops::FadeDirection::fadeOut, Ops::FadeCurve::log, start, end);
       },
       [&](float* const* p, int c, FrameCount first, FrameCount n) {
         EditKernels::applyFade({p, c, first, n}, start, end, Ops::FadeDirection::fadeOut, Ops::FadeCurve::log);
       }},
      {"invert", [&](float* const* p, FrameCount n) { Ops::invertPhaseInPlace(p, 2, n, start, end); },
       [&](float* const* p, int c, FrameCount first, FrameCount n) { EditKernels::applyInvert({p, c, first, n}, start, end); }},
      {"dialogue gate",
       [&](float* const* p, FrameCount n) {
         Ops::expandNonSpeechInPlace(p, 2, n, mask, 4800, -18.0, 1.5, 5.0, 200.0, audio.rate);
       },
       [&](float* const* p, int c, FrameCount first, FrameCount n) { gate.apply({p, c, first, n}); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Audio whole = audio;
    c.whole(whole.pointers().data(), whole.frames());
    FileEditSource file(source);
    const fs::path to = folder / "chunked.wav";
    Ops::writeChunkEditedWAV(file, c.chunked, to, 4099);
    EXPECT_TRUE(bitIdentical(readAudio(to).channels, whole.channels));
    EXPECT_FALSE(bitIdentical(whole.channels, audio.channels));
  }
}

TEST_F(StreamingParityTest, NothingToDoWritesNoFile) {
  BufferEditSource from(*buffer);
  const fs::path to = folder / "none.wav";
  EXPECT_FALSE(Ops::writeTrimmedWAV(from, 500, 500, to, 4096));
  EXPECT_FALSE(Ops::writeCutWAV(from, 0, audio.frames(), 480, to, 4096));
  EXPECT_FALSE(Ops::writeSilenceWAV(from, 0, 10, Ops::SilenceMode::before, 0, to, 4096));
  EXPECT_FALSE(Ops::writeLimitedWAV(from, 12.0, to, 4096));
  EXPECT_FALSE(Ops::writeGainLimitedWAV(from, 0.0, 12.0, to, 4096));
  auto silence = AudioBuffer::createZeroed(1, 48000, 48000);
  BufferEditSource silent(*silence);
  EXPECT_FALSE(Ops::writePeakNormalizedWAV(silent, -1.0, to, 4096));
  EXPECT_FALSE(Ops::writeNormalizedWAV(silent, -16.0, -1.0, to, 4096));
  EXPECT_FALSE(Ops::writeChannelSwappedWAV(silent, to, 4096));
  EXPECT_FALSE(fs::exists(to));
}

TEST_F(StreamingParityTest, ResultsAreNamedFloatWAVsInThePrivateTemporaryFolder) {
  const fs::path to = Ops::temporaryResultPath(Ops::kCutTag);
  EXPECT_EQ(to.parent_path(), privateTemporaryDirectory());
  EXPECT_TRUE(std::regex_match(to.filename().string(),
                               std::regex("corvane-cut-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\\.wav")));
  EXPECT_NE(to, Ops::temporaryResultPath(Ops::kCutTag));
  EXPECT_EQ(fs::status(to.parent_path()).permissions() & fs::perms::all, fs::perms::owner_all);
  BufferEditSource from(*buffer);
  ASSERT_TRUE(Ops::writeCutWAV(from, 1000, 2000, 0, to, Ops::kStreamingChunkFrames));
  const std::string info = sndfileInfo(to);
  EXPECT_NE(info.find("WAVE_FORMAT_IEEE_FLOAT"), std::string::npos) << info;
  EXPECT_EQ(ffprobe(to).durationFrames, audio.frames() - 1000);
  fs::remove(to);
}

TEST_F(StreamingParityTest, AFailedWriteThrowsTheWriterErrorAndLeavesNoFile) {
  BufferEditSource from(*buffer);
  EXPECT_THROW(Ops::writeTrimmedWAV(from, 0, 1000, folder / "missing" / "out.wav", 4096), AudioWriteError);

  // A full disk, as the file-size limit stands in for it, in a child process.
  const fs::path to = folder / "full.wav";
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{200000, 200000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    int code = 3;
    try {
      Ops::writeTrimmedWAV(from, 0, from.frameLength(), to, 4099);
      code = 1;
    } catch (const AudioWriteError&) {
      code = fs::exists(to) ? 2 : 0;
    } catch (...) {
      code = 4;
    }
    ::_exit(code);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: no error, 2: partial file left, 4: another error";
}

TEST(FileEditSourceTest, DecodesAsTheLoadDoesInAnyOrderOfReads) {
  TemporaryFolder folder;
  struct Case {
    const char* name;
    const char* command;
  };
  // Vorbis stores 5.1 as L C R Ls Rs LFE and MP3 has no exact length in its header: the source
  // must reorder the first and count the second as the load does.
  const Case cases[] = {
      {"surround.ogg",
       "ffmpeg -v error -f lavfi -i 'sine=f=330:d=1,aformat=channel_layouts=mono' -filter_complex "
       "'[0]asplit=6[a][b][c][d][e][f];[b]volume=0.8[b2];[c]volume=0.6[c2];[d]volume=0.4[d2];[e]volume=0.3[e2];"
       "[f]volume=0.2[f2];[a][b2][c2][d2][e2][f2]join=inputs=6:channel_layout=5.1' -c:a libvorbis {out}"},
      {"stereo.mp3", "sox -n -r 44100 -c 2 {out} synth 1.3 pinknoise sine 500 vol 0.3"},
      {"stereo.flac", "sox -n -r 96000 -b 24 -c 2 {out} synth 0.7 pinknoise sine 500 vol 0.3"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path file = folder / c.name;
    std::string command = c.command;
    command.replace(command.find("{out}"), 5, shellQuote(file.string()));
    runChecked(command + " 2>&1");
    const auto loaded = AudioFileModel::load(file);
    FileEditSource source(file);
    // The load stops at the length the header estimates; the source counts to the end.
    const FrameCount frames = loaded.buffer->frameLength();
    ASSERT_GE(source.frameLength(), frames);
    EXPECT_EQ(source.channelPositions(), loaded.buffer->channelPositions());
    const int channels = source.channelCount();
    ChannelData read(static_cast<std::size_t>(channels), std::vector<float>(static_cast<std::size_t>(frames)));
    std::vector<float*> pointers;
    for (auto& channel : read) pointers.push_back(channel.data());
    // Back to front in uneven pieces: every read that goes backwards reopens the file.
    for (FrameCount end = frames; end > 0;) {
      const FrameCount start = std::max<FrameCount>(0, end - 10007);
      std::vector<float*> at;
      for (auto* p : pointers) at.push_back(p + start);
      source.read(start, end - start, at.data());
      end = start;
    }
    EXPECT_TRUE(bitIdentical(read, Ops::extractChannelData(*loaded.buffer)));
    EXPECT_THROW(source.read(source.frameLength() - 10, 11, pointers.data()), std::out_of_range);
  }
}

}  // namespace
}  // namespace corvane::test
