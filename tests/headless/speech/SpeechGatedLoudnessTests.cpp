// End to end: detector → speech history → loudness processor, against libebur128's integrated
// loudness of the speech phrases alone.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>

#include "SpeechScene.h"
#include "core/ChannelOrder.h"
#include "core/LoudnessProcessor.h"
#include "headless/speech/SileroVADAnalyser.h"

namespace corvane {
namespace {

double libebur128Integrated(const std::vector<float>& left, const std::vector<float>& right, double rate) {
  ebur128_state* state = ebur128_init(2, static_cast<unsigned long>(rate), EBUR128_MODE_I);
  std::vector<float> interleaved(2 * left.size());
  for (std::size_t i = 0; i < left.size(); ++i) {
    interleaved[2 * i] = left[i];
    interleaved[2 * i + 1] = right[i];
  }
  ebur128_add_frames_float(state, interleaved.data(), left.size());
  double lufs = 0;
  ebur128_loudness_global(state, &lufs);
  ebur128_destroy(&state);
  return lufs;
}

TEST(SpeechGatedLoudness, MatchesTheLoudnessOfTheSpeechAlone) {
  test::TemporaryFolder folder;
  const auto scene = test::SpeechScene::build(folder.path());
  const auto& audio = *scene.audio;
  const auto model = test::installedModel();
  ASSERT_TRUE(model);
  const SileroVADAnalyser detector(model);
  const auto history = std::make_shared<const SpeechHistory>(detector.detectSpeech(audio, {}));

  // The offline feed: 0.1 s chunks, true peak then loudness, then the partial block.
  LoudnessProcessor loudness(audio.sampleRate(), audio.channelCount(), history, ChannelOrder::bs1770Weights(audio));
  loudness.setOfflineFeed(true);
  const FrameCount chunk = 4800;
  for (FrameCount start = 0; start < audio.frameLength(); start += chunk) {
    const FrameCount n = std::min(chunk, audio.frameLength() - start);
    const float* channels[2] = {audio.channel(0) + start, audio.channel(1) + start};
    loudness.updateTruePeak(channels, n);
    loudness.process(channels, n);
  }
  loudness.flushPartialBlock();

  // The oracle: the phrases cut out and put end to end.
  std::vector<float> left, right;
  for (const auto& p : scene.phrases) {
    left.insert(left.end(), audio.channel(0) + p.start, audio.channel(0) + p.end);
    right.insert(right.end(), audio.channel(1) + p.start, audio.channel(1) + p.end);
  }
  const double speechAlone = libebur128Integrated(left, right, audio.sampleRate());
  const std::vector<float> all(audio.channel(0), audio.channel(0) + audio.frameLength());
  const double programme = libebur128Integrated(all, all, audio.sampleRate());

  std::printf("[ loudness ] speech-gated %.2f LUFS, speech alone (libebur128) %.2f LUFS, programme %.2f LUFS, "
              "speech %.1f %%\n",
              loudness.speechGatedLUFS(), speechAlone, programme, loudness.speechPercentage());
  EXPECT_NEAR(loudness.speechGatedLUFS(), speechAlone, 0.5);
  EXPECT_NEAR(loudness.integratedLUFS(), programme, 0.1);
  EXPECT_GE(std::abs(programme - speechAlone), 3.0) << "the scene must tell gated from programme loudness";
  // The share of speech blocks is the share of the history's true entries.
  const double share = 100.0 * static_cast<double>(std::count(history->begin(), history->end(), true)) /
                       static_cast<double>(history->size());
  EXPECT_NEAR(loudness.speechPercentage(), share, 1e-9);
}

}  // namespace
}  // namespace corvane
