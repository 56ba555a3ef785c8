// The load pipeline run on files: which stages run for which file, in which order, and what a
// listener that stops wanting more, or a detector that is missing, does to the run.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "TestSignals.h"
#include "headless/files/AudioError.h"
#include "headless/pipelines/FileLoadPipeline.h"
#include "headless/speech/SileroVADAnalyser.h"

namespace corvane::test {
namespace {

// Records what arrives, as "stage" names, with the hook's calls as "after:stage".
class Recorder : public FileLoadListener {
 public:
  bool wantsMore() override { return events.size() < stopAfter; }
  void decodeFailed(std::exception_ptr error) override {
    failure = error;
    events.push_back("failed");
  }
  void decoded(AudioFileModel m, SharedAudioBuffer b) override {
    model = std::move(m);
    buffer = std::move(b);
    events.push_back("decoded");
  }
  void pyramidBuilt(std::vector<WaveformPyramidLevel> levels) override {
    pyramid = std::move(levels);
    events.push_back("pyramid");
  }
  void speechDetected(SpeechStageResult result) override {
    speech = std::move(result);
    events.push_back("speech");
  }
  void measured(SlotMetrics result) override {
    metrics = std::move(result);
    events.push_back("metrics");
  }
  void spectrogramComputed(SpectrogramColumns result) override {
    columns = std::move(result);
    events.push_back("spectrogram");
  }

  std::size_t stopAfter = 100;
  std::vector<std::string> events;
  std::exception_ptr failure;
  std::optional<AudioFileModel> model;
  SharedAudioBuffer buffer;
  std::vector<WaveformPyramidLevel> pyramid;
  SpeechStageResult speech;
  std::optional<SlotMetrics> metrics;
  SpectrogramColumns columns;
};

class Pipeline : public ::testing::Test {
 protected:
  FileLoadRequest request(const std::string& name, const Planar& signal) {
    FileLoadRequest r;
    r.url = dir.file(name);
    writeWav(r.url, signal);
    r.options.detectSpeech = false;
    r.options.computeSpectrogram = true;
    r.options.spectrogramFftSize = 1024;
    r.options.afterStage = [this](FileLoadStage stage) { hooks.push_back(fileLoadStageName(stage)); };
    return r;
  }
  TemporaryDirectory dir;
  std::vector<std::string> hooks;
};

TEST_F(Pipeline, EveryStageRunsInOrderAndTheHookSeesEachBeforeItsResult) {
  Recorder run;
  auto r = request("tone.wav", sine(48000.0, 2, 1.0, 1000.0, 0.5));
  r.options.buildPyramid = true;
  runFileLoad(r, run);
  EXPECT_EQ(run.events, (std::vector<std::string>{"decoded", "pyramid", "speech", "metrics", "spectrogram"}));
  EXPECT_EQ(hooks, (std::vector<std::string>{"decode", "pyramid", "speech", "metrics", "spectrogram"}));
  EXPECT_TRUE(run.pyramid.empty());  // a second of audio has none
  EXPECT_FALSE(run.speech.history);
  EXPECT_TRUE(run.speech.failure.empty());  // not asked for, so not missed
  ASSERT_TRUE(run.metrics);
  EXPECT_NEAR(run.metrics->samplePeakDB, 20.0 * std::log10(0.5), 0.01);
  EXPECT_EQ(run.metrics->duration, 1.0);
  ASSERT_FALSE(run.columns.empty());
  EXPECT_EQ(run.columns.front().mags.size(), 512u);
}

TEST_F(Pipeline, ARunStopsAtTheFirstStageNobodyWants) {
  Recorder run;
  run.stopAfter = 2;  // decoded and speech
  runFileLoad(request("tone.wav", sine(48000.0, 1, 1.0, 1000.0, 0.5)), run);
  EXPECT_EQ(run.events, (std::vector<std::string>{"decoded", "speech"}));
  EXPECT_EQ(hooks, (std::vector<std::string>{"decode", "speech"}));
}

TEST_F(Pipeline, FilesWithoutFramesOrShorterThanAWindowSkipTheirStages) {
  Recorder empty;
  runFileLoad(request("empty.wav", Planar(48000.0, 2, 0)), empty);
  EXPECT_EQ(empty.events, std::vector<std::string>{"decoded"});

  Recorder shortRun;
  runFileLoad(request("short.wav", sine(48000.0, 2, 1023 / 48000.0, 1000.0, 0.5)), shortRun);
  EXPECT_EQ(shortRun.events, (std::vector<std::string>{"decoded", "speech", "metrics"}));

  // Stage 4 is asked for by its option only.
  Recorder noSpectrogram;
  auto r = request("long.wav", sine(48000.0, 2, 0.5, 1000.0, 0.5));
  r.options.computeSpectrogram = false;
  runFileLoad(r, noSpectrogram);
  EXPECT_EQ(noSpectrogram.events, (std::vector<std::string>{"decoded", "speech", "metrics"}));
}

TEST_F(Pipeline, AFailedDecodeEndsTheRunWithWhatTheDecoderThrew) {
  Recorder run;
  FileLoadRequest r;
  r.url = dir.file("notes.wav");
  std::ofstream(r.url) << "not audio";
  runFileLoad(r, run);
  EXPECT_EQ(run.events, std::vector<std::string>{"failed"});
  ASSERT_TRUE(run.failure);
  EXPECT_THROW(std::rethrow_exception(run.failure), AudioDecodeError);
}

TEST_F(Pipeline, AMissingSpeechModelLeavesTheOtherFiguresStanding) {
  const SileroVADAnalyser missing(std::filesystem::path(dir.file("no-model.onnx")));
  ASSERT_FALSE(missing.isAvailable());
  Recorder run;
  auto r = request("tone.wav", sine(48000.0, 2, 1.0, 1000.0, 0.5));
  r.options.detectSpeech = true;
  r.options.speechDetector = &missing;
  runFileLoad(r, run);
  EXPECT_EQ(run.events, (std::vector<std::string>{"decoded", "speech", "metrics", "spectrogram"}));
  EXPECT_FALSE(run.speech.history);
  EXPECT_EQ(run.speech.failure, missing.errorText());
  ASSERT_TRUE(run.metrics);
  EXPECT_EQ(run.metrics->speechPercentage, 0.0f);
  // A stereo 1 kHz sine reads its peak level in LUFS (EBU Tech 3341, test 1): 0.5 is -6.02.
  EXPECT_NEAR(run.metrics->integratedLUFS, -6.02, 0.1);
}

}  // namespace
}  // namespace corvane::test
