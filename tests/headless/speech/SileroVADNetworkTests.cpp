// The native network against onnxruntime's probabilities for the same model and inputs
// (data/reference.json, made by data/make-reference.mjs).
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "SpeechTestSupport.h"
#include "headless/speech/SileroVADNetwork.h"

namespace corvane {
namespace {

struct ReferenceCase {
  std::string file;
  int sampleRate;
  std::vector<float> samples;
  std::vector<float> probabilities;
};

std::vector<ReferenceCase> referenceCases() {
  const std::filesystem::path dir = CORVANE_TEST_DATA_DIR;
  std::ifstream in(dir / "reference.json");
  const auto json = nlohmann::json::parse(in);
  EXPECT_EQ(json.at("modelSHA256").get<std::string>(), SileroVADModel::kSHA256);
  std::vector<ReferenceCase> cases;
  for (const auto& c : json.at("cases")) {
    ReferenceCase rc;
    rc.file = c.at("file").get<std::string>();
    rc.sampleRate = c.at("sampleRate").get<int>();
    const test::WavFile wav = test::readWav(dir / rc.file);
    EXPECT_EQ(wav.sampleRate, rc.sampleRate);
    EXPECT_EQ(wav.frames(), c.at("samples").get<std::int64_t>());
    rc.samples = wav.interleaved;
    rc.probabilities = c.at("probabilities").get<std::vector<float>>();
    cases.push_back(std::move(rc));
  }
  return cases;
}

const SileroVADBranch& branchFor(const SileroVADModel& model, int rate) {
  return rate == 16000 ? model.branch16k() : model.branch8k();
}

TEST(SileroVADNetwork, MatchesOnnxRuntimeOnSpeechNoiseMusicAndSilenceAtBothRates) {
  const auto model = test::installedModel();
  ASSERT_TRUE(model);
  const auto cases = referenceCases();
  ASSERT_EQ(cases.size(), 8u);
  for (const auto& rc : cases) {
    SCOPED_TRACE(rc.file);
    const SileroVADNetwork network(branchFor(*model, rc.sampleRate));
    const auto probabilities = network.probabilities(rc.samples, 1);
    ASSERT_EQ(probabilities.size(), rc.probabilities.size());
    float worst = 0;
    for (std::size_t i = 0; i < probabilities.size(); ++i) {
      worst = std::max(worst, std::abs(probabilities[i] - rc.probabilities[i]));
    }
    EXPECT_LE(worst, 1e-4f);
    std::printf("[ reference ] %-16s %3zu windows, largest difference %.2e\n", rc.file.c_str(), probabilities.size(),
                static_cast<double>(worst));
  }
}

}  // namespace
}  // namespace corvane
