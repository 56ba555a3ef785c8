// corvane measure --speech on a recording with speech at known times.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "SpeechScene.h"

namespace corvane {
namespace {

struct ToolRun {
  int exitCode;
  std::string out;
  std::string err;
};

ToolRun runCorvane(const std::string& arguments, const test::TemporaryFolder& folder, const std::string& environment = "") {
  const auto out = folder / "stdout.txt";
  const auto err = folder / "stderr.txt";
  const std::string command = environment + " " + test::quoted(CORVANE_CLI) + " " + arguments + " > " +
                              test::quoted(out) + " 2> " + test::quoted(err);
  const int status = std::system(command.c_str());
  auto slurp = [](const std::filesystem::path& p) {
    std::ifstream in(p);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  };
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(out), slurp(err)};
}

double integratedOfPhrases(const test::SpeechScene& scene) {
  ebur128_state* state = ebur128_init(2, 48000, EBUR128_MODE_I);
  for (const auto& p : scene.phrases) {
    std::vector<float> interleaved;
    for (FrameCount i = p.start; i < p.end; ++i) {
      interleaved.push_back(scene.audio->channel(0)[i]);
      interleaved.push_back(scene.audio->channel(1)[i]);
    }
    ebur128_add_frames_float(state, interleaved.data(), interleaved.size() / 2);
  }
  double lufs = 0;
  ebur128_loudness_global(state, &lufs);
  ebur128_destroy(&state);
  return lufs;
}

class MeasureSpeech : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder = new test::TemporaryFolder();
    scene = new test::SpeechScene(test::SpeechScene::build(folder->path()));
    test::writeWav(folder->path() / "scene.wav", scene->audio);
  }
  static void TearDownTestSuite() {
    delete scene;
    delete folder;
  }
  static test::TemporaryFolder* folder;
  static test::SpeechScene* scene;
};

test::TemporaryFolder* MeasureSpeech::folder = nullptr;
test::SpeechScene* MeasureSpeech::scene = nullptr;

TEST_F(MeasureSpeech, GivesTheLoudnessOfTheSpeech) {
  const ToolRun run = runCorvane("measure " + test::quoted(folder->path() / "scene.wav") + " --speech --json", *folder);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const auto json = nlohmann::json::parse(run.out);
  EXPECT_TRUE(json.at("speechVADAvailable").get<bool>());
  const double speechAlone = integratedOfPhrases(*scene);
  EXPECT_NEAR(json.at("speechGatedLUFS").get<double>(), speechAlone, 0.5);
  EXPECT_GE(std::abs(json.at("integratedLUFS").get<double>() - speechAlone), 3.0);
  // About 10 s of phrases (with their padding) in 21 s.
  const double speechSeconds = [&] {
    double s = 0;
    for (const auto& p : scene->phrases) s += static_cast<double>(p.end - p.start) / 48000;
    return s;
  }();
  const double duration = json.at("durationSeconds").get<double>();
  EXPECT_NEAR(json.at("speechPercentage").get<double>(), 100 * speechSeconds / duration, 5.0);
}

TEST_F(MeasureSpeech, WithoutTheModelTheOtherFiguresStand) {
  const ToolRun with = runCorvane("measure " + test::quoted(folder->path() / "scene.wav") + " --speech --json", *folder,
                           "CORVANE_SILERO_VAD_MODEL=" + test::quoted(folder->path() / "missing.onnx"));
  ASSERT_EQ(with.exitCode, 0) << with.err;
  EXPECT_NE(with.err.find("[SpeechDetection] Speech detection is unavailable: there is no model file at"),
            std::string::npos)
      << with.err;
  const auto json = nlohmann::json::parse(with.out);
  EXPECT_FALSE(json.at("speechVADAvailable").get<bool>());
  EXPECT_TRUE(json.at("speechGatedLUFS").is_null());
  EXPECT_EQ(json.at("speechPercentage").get<double>(), 0.0);

  // The same loudness figures as a run that never asked for speech.
  const ToolRun without = runCorvane("measure " + test::quoted(folder->path() / "scene.wav") + " --json", *folder);
  ASSERT_EQ(without.exitCode, 0) << without.err;
  const auto plain = nlohmann::json::parse(without.out);
  EXPECT_EQ(plain.at("integratedLUFS"), json.at("integratedLUFS"));
  EXPECT_FALSE(plain.at("speechVADAvailable").get<bool>());
  EXPECT_TRUE(without.err.empty()) << without.err;
}

}  // namespace
}  // namespace corvane
