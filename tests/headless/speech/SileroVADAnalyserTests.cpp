// The whole detector on a recording with speech at known times, at every common rate and
// layout.
#include <gtest/gtest.h>

#include <cmath>

#include "SpeechScene.h"
#include "headless/speech/SileroVADAnalyser.h"
#include "headless/speech/SileroVADNetwork.h"
#include "headless/speech/SpeechSegments.h"

namespace corvane {
namespace {

class SpeechDetection : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder = new test::TemporaryFolder();
    scene = new test::SpeechScene(test::SpeechScene::build(folder->path()));
    const auto model = test::installedModel();
    ASSERT_TRUE(model);
    analyser = new SileroVADAnalyser(model);
  }
  static void TearDownTestSuite() {
    delete analyser;
    delete scene;
    delete folder;
  }

  // The blocks of the scene's 48 kHz history that lie wholly inside or wholly outside the
  // phrases, with one block of collar at every phrase boundary left unscored: a block that
  // straddles the first consonant has no right answer.
  static void score(const std::vector<bool>& history, double& speechRight, double& otherRight, int& speechBlocks,
                    int& otherBlocks) {
    const FrameCount block = speechBlockFrames(test::SpeechScene::kRate);
    int speechHits = 0, otherHits = 0;
    speechBlocks = otherBlocks = 0;
    for (std::size_t b = 0; b < history.size(); ++b) {
      const FrameCount start = static_cast<FrameCount>(b) * block;
      const FrameCount end = start + block;
      bool inside = false, near = false;
      for (const auto& p : scene->phrases) {
        if (start >= p.start && end <= p.end) inside = true;
        if (end > p.start - block && start < p.end + block) near = true;
      }
      if (inside) {
        ++speechBlocks;
        speechHits += history[b];
      } else if (!near) {
        ++otherBlocks;
        otherHits += !history[b];
      }
    }
    speechRight = static_cast<double>(speechHits) / speechBlocks;
    otherRight = static_cast<double>(otherHits) / otherBlocks;
  }

  // The blocks that touch `span`.
  static std::vector<bool> blocksOf(const std::vector<bool>& history, const test::SpeechScene::Span& span) {
    const FrameCount block = speechBlockFrames(test::SpeechScene::kRate);
    return {history.begin() + span.start / block, history.begin() + (span.end + block - 1) / block};
  }
  // The blocks wholly inside `span`.
  static std::vector<bool> blocksWithin(const std::vector<bool>& history, const test::SpeechScene::Span& span) {
    const FrameCount block = speechBlockFrames(test::SpeechScene::kRate);
    return {history.begin() + (span.start + block - 1) / block, history.begin() + span.end / block};
  }

  static std::string text(const std::vector<bool>& history) {
    std::string s;
    for (const bool b : history) s += b ? '1' : '0';
    return s;
  }

  static test::TemporaryFolder* folder;
  static test::SpeechScene* scene;
  static SileroVADAnalyser* analyser;
};

test::TemporaryFolder* SpeechDetection::folder = nullptr;
test::SpeechScene* SpeechDetection::scene = nullptr;
SileroVADAnalyser* SpeechDetection::analyser = nullptr;

TEST_F(SpeechDetection, FindsThePhrasesAndNothingElse) {
  const auto history = analyser->detectSpeech(*scene->audio, {});
  ASSERT_EQ(static_cast<std::int64_t>(history.size()), speechBlockCount(scene->audio->frameLength(), 48000));
  double speechRight = 0, otherRight = 0;
  int speechBlocks = 0, otherBlocks = 0;
  score(history, speechRight, otherRight, speechBlocks, otherBlocks);
  std::printf("[ detection ] speech blocks right %.1f %% of %d, other blocks right %.1f %% of %d\n",
              100 * speechRight, speechBlocks, 100 * otherRight, otherBlocks);
  EXPECT_GE(speechRight, 0.95);
  EXPECT_GE(otherRight, 0.98);
  // The noise and the chord, loud as they are, are not speech.
  for (const bool b : blocksOf(history, scene->noise)) EXPECT_FALSE(b);
  for (const bool b : blocksOf(history, scene->chord)) EXPECT_FALSE(b);
}

TEST_F(SpeechDetection, DropsAShortClick) {
  const auto history = analyser->detectSpeech(*scene->audio, {});
  const test::SpeechScene::Span around{scene->click.start - 9600, scene->click.end + 9600};
  for (const bool b : blocksOf(history, around)) EXPECT_FALSE(b);
}

TEST_F(SpeechDetection, MinimumSilenceMergesOrSplitsNeighbouringPhrases) {
  // Phrases 2 and 3 are 0.5 s apart; look at the middle 0.3 s of the pause.
  const auto& c = scene->phrases[2];
  const auto& d = scene->phrases[3];
  const FrameCount middle = (c.end + d.start) / 2;
  const test::SpeechScene::Span pause{middle - 7200, middle + 7200};

  SileroVADTuning patient;
  patient.minSilenceDurationSec = 1.0;
  const auto merged = analyser->detectSpeech(*scene->audio, patient);
  ASSERT_EQ(blocksWithin(merged, pause).size(), 2u);
  for (const bool b : blocksWithin(merged, pause)) EXPECT_TRUE(b);

  SileroVADTuning quick;
  quick.minSilenceDurationSec = 0.1;
  const auto split = analyser->detectSpeech(*scene->audio, quick);
  int speechInPause = 0;
  for (const bool b : blocksWithin(split, pause)) speechInPause += b;
  EXPECT_EQ(speechInPause, 0);
}

TEST_F(SpeechDetection, EveryRateAndLayoutGivesTheSameHistoryOfTheRightLength) {
  // The scene's first 9 s (two phrases, the noise) as a mono file, converted by sox.
  const FrameCount frames = static_cast<FrameCount>(9.0 * 48000);
  auto mono = AudioBuffer::create(1, frames, 48000);
  std::copy_n(scene->audio->channel(0), frames, mono->channel(0));
  const auto source = folder->path() / "mono48.wav";
  test::writeWav(source, mono);
  const auto reference = analyser->detectSpeech(*mono, {});

  for (const int rate : {8000, 16000, 22050, 44100, 48000, 96000}) {
    for (const int channels : {1, 6}) {
      SCOPED_TRACE(std::to_string(rate) + " Hz, " + std::to_string(channels) + " channels");
      const auto converted = folder->path() / ("scene-" + std::to_string(rate) + "-" + std::to_string(channels) + ".wav");
      // 5.1 with the speech in every channel: the mono mix is the original.
      test::run("sox " + test::quoted(source) + " -b 32 -e float " + test::quoted(converted) + " rate -v " +
                std::to_string(rate) + (channels == 6 ? " remix 1 1 1 1 1 1" : "") + " trim 0 8.97");
      const auto buffer = test::toBuffer(test::readWav(converted));
      ASSERT_EQ(buffer->channelCount(), channels);
      const auto history = analyser->detectSpeech(*buffer, {});
      const std::int64_t blockFrames = std::llround(rate * 0.1);
      const std::int64_t expected = (buffer->frameLength() + blockFrames - 1) / blockFrames;
      ASSERT_EQ(static_cast<std::int64_t>(history.size()), expected);
      int same = 0;
      for (std::size_t b = 0; b < history.size(); ++b) same += history[b] == reference[b];
      EXPECT_GE(same, static_cast<int>(history.size()) - 3)
          << "blocks that differ from the 48 kHz history:\n" << text(history) << "\n" << text(reference);

      auto silent = AudioBuffer::createZeroed(channels, buffer->frameLength(), rate);
      const auto quiet = analyser->detectSpeech(*silent, {});
      ASSERT_EQ(quiet.size(), history.size());
      EXPECT_EQ(std::count(quiet.begin(), quiet.end(), true), 0);
    }
  }
}

TEST_F(SpeechDetection, MonoMixAndBufferGiveTheSameHistory) {
  std::vector<float> mix(static_cast<std::size_t>(scene->audio->frameLength()));
  for (std::size_t i = 0; i < mix.size(); ++i) mix[i] = 0.5f * scene->audio->channel(0)[i] + 0.5f * scene->audio->channel(1)[i];
  const auto fromMix = analyser->speechHistory(mix, 48000, {});
  ASSERT_TRUE(fromMix.has_value());
  EXPECT_EQ(*fromMix, analyser->detectSpeech(*scene->audio, {}));
}

TEST_F(SpeechDetection, EmptyAndTinyInputs) {
  EXPECT_TRUE(analyser->detectSpeech(std::span<const float>(), 48000, {}).empty());
  const std::vector<float> one(1, 0.5f);
  EXPECT_EQ(analyser->detectSpeech(one, 44100, {}).size(), 1u);
  EXPECT_THROW(analyser->detectSpeech(one, 0, {}), std::invalid_argument);
  EXPECT_FALSE(analyser->speechHistory(one, -1, {}).has_value());
}

TEST(SileroVADAnalyser, EightKilohertzSourcesGoToTheBranchChosen) {
  const auto model = test::installedModel();
  ASSERT_TRUE(model);
  const auto samples = test::readWav(std::filesystem::path(CORVANE_TEST_DATA_DIR) / "speech-8k.wav").interleaved;
  SileroVADAnalyser analyser(model);
  const auto upsampled = analyser.probabilities(samples, 8000);
  EXPECT_EQ(upsampled.detectorRate, 16000);
  EXPECT_EQ(upsampled.detectorSamples, 2 * static_cast<std::int64_t>(samples.size()));
  EXPECT_EQ(upsampled.values.size(), (2 * samples.size() + 511) / 512);

  analyser.setUseEightKilohertzBranch(true);
  const auto native = analyser.probabilities(samples, 8000);
  EXPECT_EQ(native.detectorRate, 8000);
  EXPECT_EQ(native.windowSamples, 256);
  EXPECT_EQ(native.values, SileroVADNetwork(model->branch8k()).probabilities(samples));
  // Either way the history has the source's block count, and the phrase is found by both.
  const auto a = analyser.detectSpeech(samples, 8000, {});
  analyser.setUseEightKilohertzBranch(false);
  const auto b = analyser.detectSpeech(samples, 8000, {});
  ASSERT_EQ(a.size(), 31u);
  ASSERT_EQ(b.size(), 31u);
  EXPECT_GE(std::count(a.begin(), a.end(), true), 20);
  EXPECT_GE(std::count(b.begin(), b.end(), true), 20);
}

}  // namespace
}  // namespace corvane
