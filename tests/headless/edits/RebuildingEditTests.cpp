// The rebuilding edits against sox doing the same edit: trim, cut (hard and crossfaded),
// silence, channel swap and split, on 24-bit files that sox made. Where no crossfade or gain
// applies the result must be bit-identical to sox's; sox reads 24-bit samples exactly.
#include <gtest/gtest.h>

#include <cmath>

#include "EditTestSupport.h"
#include "headless/edits/EditOperations.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;

class RebuildingEditTest : public ::testing::Test {
 protected:
  void SetUp() override {
    source = folder / "source.wav";
    // Left pink noise, right a tone: the channels differ, so a swap or a mix-up shows.
    soxMake(source, "-r 48000 -b 24 -c 2", "synth 2.5 pinknoise sine 440 vol 0.4");
    audio = readAudio(source);
    ASSERT_EQ(audio.frames(), 120000);
  }

  // sox's output of `sox SOURCE OUT effects` as float arrays.
  ChannelData soxEdit(const std::string& effects, const std::string& name = "sox.wav") {
    const fs::path out = folder / name;
    runChecked("sox -V1 " + shellQuote(source.string()) + " -e floating-point -b 32 " + shellQuote(out.string()) +
               " " + effects + " 2>&1");
    return readAudio(out).channels;
  }

  // Concatenation of sox pieces, each `sox SOURCE -p effects`.
  ChannelData soxConcat(const std::vector<std::string>& pieces) {
    std::string command = "sox -V1";
    for (const auto& effects : pieces) {
      std::string piece = "|sox -V1 ";
      piece += shellQuote(source.string()) + " -p " + effects;
      command += ' ';
      command += shellQuote(piece);
    }
    const fs::path out = folder / "concat.wav";
    runChecked(command + " -e floating-point -b 32 " + shellQuote(out.string()) + " 2>&1");
    return readAudio(out).channels;
  }

  TemporaryFolder folder;
  fs::path source;
  Audio audio;
};

TEST_F(RebuildingEditTest, TrimKeepsExactlyTheRangeAsSoxDoes) {
  const auto result = Ops::trim(audio.channels, 12345, 98765, audio.rate);
  ASSERT_FALSE(result.nothingToDo);
  EXPECT_EQ(result.frameLength(), 98765 - 12345);
  EXPECT_EQ(result.sampleRate, audio.rate);
  EXPECT_TRUE(bitIdentical(result.channelData, soxEdit("trim 12345s =98765s")));

  // A range past the end is clamped to it; the whole file still gives a result.
  const auto tail = Ops::trim(audio.channels, 100000, 500000, audio.rate);
  EXPECT_TRUE(bitIdentical(tail.channelData, soxEdit("trim 100000s")));
  const auto whole = Ops::trim(audio.channels, 0, audio.frames(), audio.rate);
  ASSERT_FALSE(whole.nothingToDo);
  EXPECT_TRUE(bitIdentical(whole.channelData, audio.channels));

  // Empty ranges, after clamping, are nothing to do.
  EXPECT_TRUE(Ops::trim(audio.channels, 5000, 5000, audio.rate).nothingToDo);
  EXPECT_TRUE(Ops::trim(audio.channels, 200000, 300000, audio.rate).nothingToDo);
  EXPECT_TRUE(Ops::trim(audio.channels, 9000, 4000, audio.rate).nothingToDo);
  EXPECT_TRUE(Ops::trim(audio.channels, -50, 0, audio.rate).nothingToDo);
}

TEST_F(RebuildingEditTest, HardCutIsSoxConcatenationOfBothSides) {
  const auto result = Ops::cutRange(audio.channels, 30000, 70001, 0, audio.rate);
  ASSERT_FALSE(result.nothingToDo);
  EXPECT_EQ(result.frameLength(), audio.frames() - 40001);
  EXPECT_TRUE(bitIdentical(result.channelData, soxConcat({"trim 0 =30000s", "trim 70001s"})));
}

TEST_F(RebuildingEditTest, CrossfadedCutIsAnEqualPowerSpliceOfSoxFades) {
  // 10 ms at 48 kHz, odd on purpose: 240 frames ahead of the join, 241 behind it.
  const FrameCount start = 40000, end = 52000, crossfade = 481, before = 240, after = 241;
  const auto result = Ops::cutRange(audio.channels, start, end, crossfade, audio.rate);
  ASSERT_FALSE(result.nothingToDo);
  ASSERT_EQ(result.frameLength(), audio.frames() - (end - start));

  // The oracle: the outgoing side faded out and the incoming side faded in by sox's
  // quarter-sine fades (the equal-power pair), mixed by sox at unity gain.
  const auto s = [](FrameCount frames) { return std::to_string(frames) + "s"; };
  const fs::path out = folder / "out.wav", in = folder / "in.wav", mixed = folder / "mixed.wav";
  runChecked("sox -V1 " + shellQuote(source.string()) + " -e floating-point -b 32 " + shellQuote(out.string()) +
             " trim " + s(start - before) + " " + s(crossfade) + " fade q 0 " + s(crossfade) + " " + s(crossfade));
  runChecked("sox -V1 " + shellQuote(source.string()) + " -e floating-point -b 32 " + shellQuote(in.string()) +
             " trim " + s(end - before) + " " + s(crossfade) + " fade q " + s(crossfade));
  runChecked("sox -V1 -m -v 1 " + shellQuote(out.string()) + " -v 1 " + shellQuote(in.string()) + " " +
             shellQuote(mixed.string()));
  const ChannelData join = readAudio(mixed).channels;
  ASSERT_EQ(static_cast<FrameCount>(join.front().size()), crossfade);

  const ChannelData kept = soxConcat({"trim 0 =" + s(start - before), "trim " + s(end + after)});
  for (std::size_t c = 0; c < 2; ++c) {
    const auto& r = result.channelData[c];
    for (FrameCount i = 0; i < start - before; ++i) ASSERT_EQ(r[i], kept[c][i]) << "before the join, frame " << i;
    for (FrameCount i = 0; i < crossfade; ++i) {
      ASSERT_NEAR(r[start - before + i], join[c][i], 1e-6) << "crossfade frame " << i;
    }
    for (FrameCount i = start - before + crossfade; i < result.frameLength(); ++i) {
      ASSERT_EQ(r[i], kept[c][i - crossfade]) << "after the join, frame " << i;
    }
  }
}

TEST_F(RebuildingEditTest, CutCrossfadeIsClampedToTheAudioKeptOnEachSideAndWholeCutsAreRefused) {
  // 100 frames before the cut allow a crossfade of 200 at most: the first frame of the result
  // is then still the file's first frame at full level.
  const auto nearStart = Ops::cutRange(audio.channels, 100, 60000, 4800, audio.rate);
  ASSERT_EQ(nearStart.frameLength(), audio.frames() - 59900);
  EXPECT_EQ(nearStart.channelData[0][0], audio.channels[0][0]);
  const auto explicitly = Ops::cutRange(audio.channels, 100, 60000, 200, audio.rate);
  EXPECT_TRUE(bitIdentical(nearStart.channelData, explicitly.channelData));

  EXPECT_TRUE(Ops::cutRange(audio.channels, 0, audio.frames(), 480, audio.rate).nothingToDo);
  EXPECT_TRUE(Ops::cutRange(audio.channels, -10, audio.frames() + 10, 0, audio.rate).nothingToDo);
  EXPECT_TRUE(Ops::cutRange(audio.channels, 500, 500, 480, audio.rate).nothingToDo);
  // All but the first frame: nothing is left to crossfade with, and one frame remains.
  const auto oneFrame = Ops::cutRange(audio.channels, 1, audio.frames(), 480, audio.rate);
  ASSERT_EQ(oneFrame.frameLength(), 1);
  EXPECT_EQ(oneFrame.channelData[1][0], audio.channels[1][0]);
}

TEST_F(RebuildingEditTest, SilenceIsInsertedOrReplacedWhereSoxPadsIt) {
  const auto before = Ops::addSilence(audio.channels, 24000, 36000, Ops::SilenceMode::before, 4800, audio.rate);
  EXPECT_TRUE(bitIdentical(before.channelData, soxEdit("pad 4800s@24000s")));
  const auto after = Ops::addSilence(audio.channels, 24000, 36000, Ops::SilenceMode::after, 4800, audio.rate);
  EXPECT_TRUE(bitIdentical(after.channelData, soxEdit("pad 4800s@36000s")));
  const auto atEnd = Ops::addSilence(audio.channels, 0, audio.frames(), Ops::SilenceMode::after, 100, audio.rate);
  EXPECT_TRUE(bitIdentical(atEnd.channelData, soxEdit("pad 0 100s")));

  const auto replaced = Ops::addSilence(audio.channels, 24000, 36000, Ops::SilenceMode::replace, 0, audio.rate);
  ASSERT_EQ(replaced.frameLength(), audio.frames());
  for (std::size_t c = 0; c < 2; ++c) {
    for (FrameCount i = 0; i < audio.frames(); ++i) {
      const float expected = i >= 24000 && i < 36000 ? 0.0f : audio.channels[c][i];
      ASSERT_EQ(replaced.channelData[c][i], expected) << "channel " << c << " frame " << i;
    }
  }
  EXPECT_TRUE(Ops::addSilence(audio.channels, 10, 10, Ops::SilenceMode::replace, 0, audio.rate).nothingToDo);
  EXPECT_TRUE(Ops::addSilence(audio.channels, 10, 20, Ops::SilenceMode::before, 0, audio.rate).nothingToDo);
}

TEST_F(RebuildingEditTest, SwapAndSplitMatchSoxRemix) {
  const auto swapped = Ops::swapChannels(audio.channels, audio.rate);
  EXPECT_TRUE(bitIdentical(swapped.channelData, soxEdit("remix 2 1")));
  Audio mono{{audio.channels[0]}, audio.rate, {}};
  EXPECT_TRUE(Ops::swapChannels(mono.channels, audio.rate).nothingToDo);

  FileEditSource file(source);
  for (int channel = 0; channel < 2; ++channel) {
    const fs::path split = folder / ("split" + std::to_string(channel) + ".wav");
    Ops::writeMonoChannelWAV(file, channel, split, Ops::kStreamingChunkFrames);
    const ProbeInfo info = ffprobe(split);
    EXPECT_EQ(info.channels, 1);
    EXPECT_EQ(info.codecName, "pcm_f32le");
    EXPECT_TRUE(bitIdentical(readAudio(split).channels, soxEdit("remix " + std::to_string(channel + 1))));
  }
  // At the source's own bit depth on request, still exactly sox's samples.
  const fs::path split24 = folder / "split24.wav";
  Ops::writeMonoChannelWAV(file, 1, split24, 7919, PCMEncoding::int24);
  EXPECT_EQ(ffprobe(split24).codecName, "pcm_s24le");
  EXPECT_TRUE(bitIdentical(readAudio(split24).channels, soxEdit("remix 2")));
  EXPECT_THROW(Ops::writeMonoChannelWAV(file, 2, folder / "none.wav", 4096), std::invalid_argument);
}

TEST_F(RebuildingEditTest, BuffersAndChannelArraysConvertBothWays) {
  const std::vector<ChannelPosition> stereo{ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
  auto result = Ops::trim(audio.channels, 0, 48000, audio.rate);
  const ChannelData expected = result.channelData;
  SharedAudioBuffer buffer = Ops::buildBuffer(result, stereo);
  ASSERT_TRUE(buffer);
  EXPECT_EQ(buffer->frameLength(), 48000);
  EXPECT_EQ(buffer->sampleRate(), audio.rate);
  EXPECT_EQ(buffer->channelPositions(), stereo);
  EXPECT_TRUE(bitIdentical(Ops::extractChannelData(*buffer), expected));
  // A layout that does not fit the channel count is dropped, not applied.
  SharedAudioBuffer moved = Ops::buildBuffer(std::move(result), {ChannelPosition::Mono});
  ASSERT_TRUE(moved);
  EXPECT_TRUE(moved->channelPositions().empty());
  EXPECT_TRUE(bitIdentical(Ops::extractChannelData(*moved), expected));
  EXPECT_EQ(Ops::buildBuffer(Ops::EditResult::nothing(48000), stereo), nullptr);
  EXPECT_THROW(Ops::trim({{1.0f, 2.0f}, {1.0f}}, 0, 1, 48000), std::invalid_argument);
}

}  // namespace
}  // namespace corvane::test
