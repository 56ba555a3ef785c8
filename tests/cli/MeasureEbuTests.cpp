// corvane measure on the EBU Tech 3341 and Tech 3342 test signals, written to files and read
// back through the window's load road. Each figure must meet the documents' tolerances (±0.1 LU
// for M, S and I, ±1 LU for LRA, +0.2/−0.4 dB for true peak) and equal what the core's
// loudness processor reads from the same samples, so the road adds nothing and loses nothing.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <numbers>

#include "TestSignals.h"
#include "core/ChannelOrder.h"

namespace corvane::test {
namespace {

constexpr double kNegInf = -std::numeric_limits<double>::infinity();

class MeasureEbu : public ::testing::Test {
 protected:
  // The JSON of `corvane measure` on the signal, written as a 32-bit float WAV.
  nlohmann::json measureFile(const Planar& signal) {
    const std::string path = dir.file("signal-" + std::to_string(++_files) + ".wav");
    writeWav(path, signal);
    const CommandResult r = runCommand(std::string("'") + CORVANE_CLI_PATH + "' measure '" + path + "' --json 2>&1");
    EXPECT_EQ(r.exitCode, 0) << r.output;
    return nlohmann::json::parse(r.output);
  }
  // A figure of the JSON against the core's reading of the same samples: the same number, up
  // to the 32-bit float the file metrics keep it in.
  static void expectCore(const nlohmann::json& json, const char* key, double core) {
    ASSERT_FALSE(json.at(key).is_null()) << key;
    EXPECT_NEAR(json.at(key).get<double>(), core, 1e-5 * std::max(1.0, std::fabs(core))) << key;
  }

  TemporaryDirectory dir;

 private:
  int _files = 0;
};

TEST_F(MeasureEbu, Tech3341Tests1to6IntegratedLoudness) {
  const std::vector<std::vector<std::pair<double, double>>> cases = {
      {{20, -23}},
      {{20, -33}},
      {{10, -36}, {60, -23}, {10, -36}},
      {{10, -72}, {10, -36}, {60, -23}, {10, -36}, {10, -72}},
      {{20, -26}, {20.1, -20}, {20, -26}},
  };
  const double expected[] = {-23, -33, -23, -23, -23};
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE("Tech 3341 test " + std::to_string(i + 1));
    const Planar signal = toneSequence(48000.0, cases[i]);
    const nlohmann::json json = measureFile(signal);
    EXPECT_NEAR(json.at("integratedLUFS").get<double>(), expected[i], 0.1);
    const Measured core = measure(signal);
    expectCore(json, "integratedLUFS", core.integrated);
    expectCore(json, "truePeakDBTP", core.truePeak);
    expectCore(json, "maxMomentaryLUFS", core.maxMomentary);
    expectCore(json, "maxShortTermLUFS", core.maxShortTerm);
    expectCore(json, "loudnessRange", core.range);
  }

  // Test 6: 5.0, the surrounds weighted 1.41 after the layout the file's channel count gives.
  Planar five(48000.0, 5);
  const double levels[] = {-28, -28, -24, -30, -30};  // L R C Ls Rs
  for (int c = 0; c < 5; ++c) {
    five.channels[static_cast<std::size_t>(c)] = sine(48000.0, 1, 20.0, 1000.0, dbfs(levels[c])).channels[0];
  }
  const nlohmann::json json = measureFile(five);
  EXPECT_NEAR(json.at("integratedLUFS").get<double>(), -23.0, 0.1);
  expectCore(json, "integratedLUFS", measure(five, ChannelOrder::bs1770Weights({}, 5)).integrated);
}

TEST_F(MeasureEbu, Tech3341Tests10And13MaximaOfShortFiles) {
  for (int i : {0, 7, 19}) {
    SCOPED_TRACE("file " + std::to_string(i));
    const nlohmann::json st = measureFile(toneSequence(48000.0, {{i * 0.15, kNegInf}, {3.0, -23}, {1.0, kNegInf}}));
    EXPECT_NEAR(st.at("maxShortTermLUFS").get<double>(), -23.0, 0.1);
    const Planar momentary = toneSequence(48000.0, {{i * 0.02, kNegInf}, {0.4, -23}, {1.0, kNegInf}});
    const nlohmann::json m = measureFile(momentary);
    EXPECT_NEAR(m.at("maxMomentaryLUFS").get<double>(), -23.0, 0.1);
    expectCore(m, "maxMomentaryLUFS", measure(momentary).maxMomentary);
  }
}

TEST_F(MeasureEbu, Tech3341Tests15to19TruePeaks) {
  struct Case {
    int test;
    double frequency, amplitude, phaseDegrees, expectedDB;
  };
  for (const Case& c : {Case{15, 12000, 0.50, 0.0, -6.0}, Case{16, 12000, 0.50, 45.0, -6.0},
                        Case{17, 8000, 0.50, 60.0, -6.0}, Case{18, 6000, 0.50, 67.5, -6.0},
                        Case{19, 12000, 1.41, 45.0, 3.0}}) {
    SCOPED_TRACE("Tech 3341 test " + std::to_string(c.test));
    Planar tone = sine(48000.0, 2, 1.0, c.frequency, c.amplitude, c.phaseDegrees * std::numbers::pi / 180.0);
    taper(tone, 0.010);
    const nlohmann::json json = measureFile(tone);
    const double truePeak = json.at("truePeakDBTP").get<double>();
    EXPECT_LE(truePeak, c.expectedDB + 0.2);
    EXPECT_GE(truePeak, c.expectedDB - 0.4);
    expectCore(json, "truePeakDBTP", measure(tone).truePeak);
    // A sample peak can't exceed the true peak it samples.
    EXPECT_LE(json.at("samplePeakDBFS").get<double>(), truePeak + 1e-6);
  }
}

TEST_F(MeasureEbu, Tech3342Tests1to4LoudnessRange) {
  const std::vector<std::pair<std::vector<std::pair<double, double>>, double>> cases = {
      {{{20, -20}, {20, -30}}, 10.0},
      {{{20, -20}, {20, -15}}, 5.0},
      {{{20, -40}, {20, -20}}, 20.0},
      {{{20, -50}, {20, -35}, {20, -20}, {20, -35}, {20, -50}}, 15.0},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE("Tech 3342 test " + std::to_string(i + 1));
    const Planar signal = toneSequence(48000.0, cases[i].first);
    const nlohmann::json json = measureFile(signal);
    EXPECT_NEAR(json.at("loudnessRange").get<double>(), cases[i].second, 1.0);
    expectCore(json, "loudnessRange", measure(signal).range);
  }
}

}  // namespace
}  // namespace corvane::test
