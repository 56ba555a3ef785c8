// The in-place edits against independent oracles: fades against sox's fades of the same
// shape, gain by sox stats and sox vol, phase inversion mixed back by sox, DC removal by sox
// stats, and the dialogue gate by hand-computed gains and ffmpeg astats on the regions.
#include <gtest/gtest.h>

#include <cmath>

#include "EditTestSupport.h"
#include "headless/edits/EditOperations.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;

class InPlaceEditTest : public ::testing::Test {
 protected:
  void SetUp() override {
    source = folder / "source.wav";
    soxMake(source, "-r 44100 -b 24 -c 2", "synth 2 pinknoise sine 997 vol 0.4");
    audio = readAudio(source);
    ASSERT_EQ(audio.frames(), 88200);
  }

  // `sox SOURCE OUT effects` as float arrays.
  ChannelData soxEdit(const fs::path& input, const std::string& effects) {
    const fs::path out = folder / "sox.wav";
    runChecked("sox -V1 " + shellQuote(input.string()) + " -e floating-point -b 32 " + shellQuote(out.string()) +
               " " + effects + " 2>&1");
    return readAudio(out).channels;
  }

  // Checks that `edited` equals the source outside [start, end) bit for bit, and `inside`
  // within `tolerance` over it.
  void expectRangeEdit(const Audio& edited, FrameCount start, FrameCount end, const ChannelData& inside,
                       double tolerance) {
    for (std::size_t c = 0; c < edited.channels.size(); ++c) {
      for (FrameCount i = 0; i < edited.frames(); ++i) {
        if (i >= start && i < end) {
          ASSERT_NEAR(edited.channels[c][i], inside[c][i - start], tolerance) << "channel " << c << " frame " << i;
        } else {
          ASSERT_EQ(edited.channels[c][i], audio.channels[c][i]) << "outside the range: channel " << c << " frame " << i;
        }
      }
    }
  }

  TemporaryFolder folder;
  fs::path source;
  Audio audio;
};

TEST_F(InPlaceEditTest, FadesMatchSoxFadesOfTheSameShape) {
  struct Case {
    Ops::FadeCurve curve;
    const char* soxType;
  };
  const Case cases[] = {{Ops::FadeCurve::linear, "t"}, {Ops::FadeCurve::log, "l"}, {Ops::FadeCurve::equalPower, "q"}};
  const FrameCount start = 10000, end = 54100, length = end - start;
  const std::string l = std::to_string(length) + "s";
  for (const auto& c : cases) {
    for (const auto direction : {Ops::FadeDirection::fadeIn, Ops::FadeDirection::fadeOut}) {
      SCOPED_TRACE(std::string(Ops::displayName(c.curve)) + " " + std::string(Ops::displayName(direction)));
      Audio edited = audio;
      ASSERT_TRUE(Ops::fadeInPlace(edited.pointers().data(), 2, edited.frames(), direction, c.curve, start, end));
      const std::string fade = direction == Ops::FadeDirection::fadeIn ? std::string("fade ") + c.soxType + " " + l
                                                                       : std::string("fade ") + c.soxType + " 0 " + l + " " + l;
      const ChannelData oracle = soxEdit(source, "trim " + std::to_string(start) + "s " + l + " " + fade);
      expectRangeEdit(edited, start, end, oracle, 2e-7);
    }
  }
  // A fade over the whole file, as the quick fades of the menu do it.
  Audio edited = audio;
  Ops::fadeInPlace(edited.pointers().data(), 2, edited.frames(), Ops::FadeDirection::fadeOut, Ops::FadeCurve::equalPower,
                   0, edited.frames());
  EXPECT_LT(maxDifference(edited.channels, soxEdit(source, "fade q 0 88200s 88200s")), 2e-7);
}

TEST_F(InPlaceEditTest, GainMovesTheLevelByExactlyItsDecibels) {
  for (const double gainDB : {-3.5, 6.0, -40.0}) {
    SCOPED_TRACE(gainDB);
    Audio edited = audio;
    ASSERT_TRUE(Ops::changeLevelInPlace(edited.pointers().data(), 2, edited.frames(), gainDB, 0, edited.frames()));
    const fs::path out = folder / "gain.wav";
    writeFloatWav(out, edited);
    EXPECT_NEAR(soxStats(out).rmsDB - soxStats(source).rmsDB, gainDB, 0.01);
    EXPECT_NEAR(soxStats(out).peakDB - soxStats(source).peakDB, gainDB, 0.01);
    char vol[64];
    std::snprintf(vol, sizeof vol, "vol %.1fdB", gainDB);
    EXPECT_LT(maxDifference(edited.channels, soxEdit(source, vol)), 1e-6);
  }
  // On a range only; the rest stays as it was, bit for bit.
  Audio edited = audio;
  Ops::changeLevelInPlace(edited.pointers().data(), 2, edited.frames(), 6.0, 30000, 30001);
  EXPECT_EQ(edited.channels[0][30000], static_cast<float>(audio.channels[0][30000] * std::pow(10.0, 6.0 / 20.0)));
  expectRangeEdit(edited, 30000, 30001, {{edited.channels[0][30000]}, {edited.channels[1][30000]}}, 0.0);
}

TEST_F(InPlaceEditTest, InvertedSignalMixedWithTheOriginalIsSilence) {
  Audio inverted = audio;
  ASSERT_TRUE(Ops::invertPhaseInPlace(inverted.pointers().data(), 2, inverted.frames(), 0, inverted.frames()));
  const fs::path out = folder / "inverted.wav", sum = folder / "sum.wav";
  writeFloatWav(out, inverted);
  runChecked("sox -V1 -m -v 1 " + shellQuote(source.string()) + " -v 1 " + shellQuote(out.string()) +
             " -e floating-point -b 32 " + shellQuote(sum.string()));
  const Audio mixed = readAudio(sum);
  for (const auto& channel : mixed.channels) {
    for (float x : channel) ASSERT_EQ(x, 0.0f);
  }
  // Twice is the original; a range inverts only itself.
  Ops::invertPhaseInPlace(inverted.pointers().data(), 2, inverted.frames(), 0, inverted.frames());
  EXPECT_TRUE(bitIdentical(inverted.channels, audio.channels));
  Ops::invertPhaseInPlace(inverted.pointers().data(), 2, inverted.frames(), 100, 200);
  ChannelData negated(2);
  for (int c = 0; c < 2; ++c) {
    for (FrameCount i = 100; i < 200; ++i) negated[c].push_back(-audio.channels[c][i]);
  }
  expectRangeEdit(inverted, 100, 200, negated, 0.0);
}

TEST_F(InPlaceEditTest, DCRemovalLeavesNoOffsetBySoxStats) {
  const fs::path offset = folder / "offset.wav";
  runChecked("sox -V1 " + shellQuote(source.string()) + " " + shellQuote(offset.string()) + " dcshift 0.05");
  Audio shifted = readAudio(offset);
  ASSERT_GT(soxStats(offset, 1).dcOffset, 0.03);
  ASSERT_TRUE(Ops::removeDCOffsetInPlace(shifted.pointers().data(), 2, shifted.frames(), 0, shifted.frames()));
  const fs::path out = folder / "removed.wav";
  writeFloatWav(out, shifted);
  for (int channel = 1; channel <= 2; ++channel) EXPECT_NEAR(soxStats(out, channel).dcOffset, 0.0, 2e-6);
  // Only the offset went: the difference from the input is one constant per channel.
  const Audio before = readAudio(offset);
  for (int c = 0; c < 2; ++c) {
    const double shift = static_cast<double>(shifted.channels[c][0]) - before.channels[c][0];
    for (FrameCount i = 0; i < shifted.frames(); i += 97) {
      ASSERT_NEAR(static_cast<double>(shifted.channels[c][i]) - before.channels[c][i], shift, 1e-7);
    }
  }
}

TEST_F(InPlaceEditTest, EmptyRangesChangeNothing) {
  Audio edited = audio;
  auto p = edited.pointers();
  EXPECT_FALSE(Ops::changeLevelInPlace(p.data(), 2, edited.frames(), 6.0, 500, 500));
  EXPECT_FALSE(Ops::fadeInPlace(p.data(), 2, edited.frames(), Ops::FadeDirection::fadeIn, Ops::FadeCurve::linear,
                                edited.frames(), edited.frames() + 100));
  EXPECT_FALSE(Ops::invertPhaseInPlace(p.data(), 2, edited.frames(), -100, 0));
  EXPECT_FALSE(Ops::removeDCOffsetInPlace(p.data(), 2, edited.frames(), 900, 100));
  EXPECT_TRUE(bitIdentical(edited.channels, audio.channels));
}

// ---- The dialogue gate ---------------------------------------------------------------------

TEST(DialogueGateTest, GainOpensBeforeSpeechAndClosesAfterItLinearlyInDecibels) {
  // A constant signal shows the gain itself. 20 blocks of 0.1 s, speech in blocks 5 to 9.
  const double rate = 48000;
  const FrameCount block = 4800;
  SpeechHistory mask(20, false);
  for (int b = 5; b < 10; ++b) mask[static_cast<std::size_t>(b)] = true;
  ChannelData dc(1, std::vector<float>(96000, 0.5f));
  const auto result = Ops::expandNonSpeech(dc, mask, block, -18.0, 2.0, 5.0, 200.0, rate);
  ASSERT_FALSE(result.nothingToDo);
  const auto gainAt = [&](FrameCount frame) { return 20.0 * std::log10(result.channelData[0][frame] / 0.5); };
  const FrameCount firstSpeech = 5 * block, lastSpeech = 10 * block - 1;
  // Attack: 5 ms = 240 frames, fully open on the first speech frame.
  EXPECT_NEAR(gainAt(firstSpeech), 2.0, 1e-5);
  EXPECT_NEAR(gainAt(firstSpeech - 120), -9.0 + 2.0, 1e-5);
  EXPECT_NEAR(gainAt(firstSpeech - 240), -18.0 + 2.0, 1e-5);
  EXPECT_NEAR(gainAt(firstSpeech - 1), -18.0 / 240 + 2.0, 1e-5);
  // Release: 200 ms = 9600 frames after the last speech frame.
  EXPECT_NEAR(gainAt(lastSpeech), 2.0, 1e-5);
  EXPECT_NEAR(gainAt(lastSpeech + 4800), -9.0 + 2.0, 1e-5);
  EXPECT_NEAR(gainAt(lastSpeech + 9600), -18.0 + 2.0, 1e-5);
  EXPECT_NEAR(gainAt(0), -18.0 + 2.0, 1e-5);
  EXPECT_NEAR(gainAt(95999), -18.0 + 2.0, 1e-5);

  // The sign of the reduction does not matter, and the in-place member gives the same.
  const auto positive = Ops::expandNonSpeech(dc, mask, block, 18.0, 2.0, 5.0, 200.0, rate);
  EXPECT_TRUE(bitIdentical(positive.channelData, result.channelData));
  float* channel = dc[0].data();
  ASSERT_TRUE(Ops::expandNonSpeechInPlace(&channel, 1, 96000, mask, block, -18.0, 2.0, 5.0, 200.0, rate));
  EXPECT_TRUE(bitIdentical(dc, result.channelData));

  EXPECT_TRUE(Ops::expandNonSpeech(dc, {}, block, -18.0, 0.0, 5.0, 200.0, rate).nothingToDo);
  EXPECT_TRUE(Ops::expandNonSpeech(dc, mask, block, 0.0, 0.0, 5.0, 200.0, rate).nothingToDo);
}

TEST(DialogueGateTest, RoomToneBetweenPhrasesIsDuckedByTheRequestedDepth) {
  TemporaryFolder folder;
  // Room tone at about −45 dBFS throughout (sox's pink noise); "phrases", a tone over it, at
  // 1–2 s and 4–5 s, exactly the speech blocks of the mask.
  const fs::path input = folder / "input.wav";
  soxMake(folder / "bed.wav", "-r 48000 -b 24 -c 2", "synth 6 pinknoise vol 0.01");
  Audio audio = readAudio(folder / "bed.wav");
  for (auto& channel : audio.channels) {
    for (FrameCount i = 0; i < audio.frames(); ++i) {
      if ((i >= 48000 && i < 96000) || (i >= 192000 && i < 240000)) {
        channel[i] += static_cast<float>(0.3 * std::sin(2.0 * M_PI * 300.0 * static_cast<double>(i) / 48000.0));
      }
    }
  }
  writeFloatWav(input, audio);
  SpeechHistory mask(60, false);
  for (int b = 10; b < 20; ++b) mask[static_cast<std::size_t>(b)] = true;
  for (int b = 40; b < 50; ++b) mask[static_cast<std::size_t>(b)] = true;

  Audio gated = audio;
  ASSERT_TRUE(Ops::expandNonSpeechInPlace(gated.pointers().data(), 2, gated.frames(), mask, 4800, -18.0, 0.0, 5.0,
                                          200.0, audio.rate));
  const fs::path out = folder / "gated.wav";
  writeFloatWav(out, gated);
  // Between the phrases, once the release is over and before the next attack begins.
  const double depth = astatsRMSDB(out, 2.3, 1.6) - astatsRMSDB(input, 2.3, 1.6);
  std::printf("[ gate ] room tone between the phrases ducked by %.3f dB (astats)\n", depth);
  EXPECT_NEAR(depth, -18.0, 0.05);
  EXPECT_NEAR(astatsRMSDB(out, 5.3, 0.6) - astatsRMSDB(input, 5.3, 0.6), -18.0, 0.05);
  // The phrases themselves are untouched.
  for (int c = 0; c < 2; ++c) {
    for (FrameCount i = 48000; i < 96000; ++i) ASSERT_EQ(gated.channels[c][i], audio.channels[c][i]);
  }
}

}  // namespace
}  // namespace corvane::test
