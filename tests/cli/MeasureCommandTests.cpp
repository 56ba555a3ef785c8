// corvane measure and corvane demo, run as processes on real files. Files are made by sox (an
// independent writer) or by the demo command itself.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "TestSignals.h"

namespace corvane::test {
namespace {

struct ToolRun {
  int exitCode;
  std::string out, err;
};

class Cli : public ::testing::Test {
 protected:
  ToolRun run(const std::string& arguments) {
    const std::string errPath = dir.file("stderr.txt");
    const CommandResult r = runCommand(std::string("'") + CORVANE_CLI_PATH + "' " + arguments + " 2>'" + errPath + "'");
    std::ifstream in(errPath);
    std::stringstream err;
    err << in.rdbuf();
    return {r.exitCode, r.output, err.str()};
  }
  void sox(const std::string& arguments) {
    ASSERT_EQ(runCommand("sox " + arguments + " 2>&1").exitCode, 0) << arguments;
  }
  TemporaryDirectory dir;
};

TEST_F(Cli, UsageErrorsExitWithTwo) {
  ToolRun r = run("");
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("usage: corvane COMMAND"), std::string::npos);
  r = run("measure");
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "usage: corvane measure FILE [--json] [--speech] [--mode music|podcast|vod|broadcast]\n");
  EXPECT_TRUE(r.out.empty());
  EXPECT_EQ(run("measure a.wav --frobnicate").exitCode, 2);
  EXPECT_EQ(run("frobnicate").exitCode, 2);
  EXPECT_EQ(run("demo").exitCode, 2);
  EXPECT_EQ(run("--help").exitCode, 0);
}

TEST_F(Cli, MissingPathsAndDirectoriesAreNamedInTheUsersWords) {
  const std::string missing = dir.file("nowhere.wav");
  ToolRun r = run("measure '" + missing + "'");
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "Could not find a file at " + missing + ".\n");
  EXPECT_TRUE(r.out.empty());
  r = run("measure '" + dir.path() + "' --json");
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "Could not find a file at " + dir.path() + ".\n");
  EXPECT_TRUE(r.out.empty());
}

TEST_F(Cli, NonAudioFileIsRefused) {
  const std::string text = dir.file("notes.wav");  // the name says WAV, the bytes do not
  std::ofstream(text) << "these are not the samples you are looking for\n";
  const ToolRun r = run("measure '" + text + "'");
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "The file at " + text + " is not a recognised audio file.\n");
  EXPECT_TRUE(r.out.empty());
}

TEST_F(Cli, MeasuresAToneWrittenBySox) {
  // EBU Tech 3341 test 1 as a 24-bit file: 20 s of 1 kHz at −23 dBFS in both channels.
  const std::string path = dir.file("tone.wav");
  sox("-n -D -r 48000 -c 2 -b 24 '" + path + "' synth 20 sine 1000 vol -23dB");
  ToolRun r = run("measure '" + path + "' --json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto json = nlohmann::ordered_json::parse(r.out);
  const std::vector<std::string> keys = {"fileName", "durationSeconds", "sampleRate", "channelCount",
                                         "integratedLUFS", "loudnessRange", "truePeakDBTP", "samplePeakDBFS",
                                         "maxMomentaryLUFS", "maxShortTermLUFS", "dynamicRange",
                                         "speechGatedLUFS", "speechPercentage", "speechVADAvailable"};
  std::vector<std::string> seen;
  for (auto it = json.begin(); it != json.end(); ++it) seen.push_back(it.key());
  EXPECT_EQ(seen, keys);
  EXPECT_EQ(json["fileName"], "tone.wav");
  EXPECT_DOUBLE_EQ(json["durationSeconds"].get<double>(), 20.0);
  EXPECT_DOUBLE_EQ(json["sampleRate"].get<double>(), 48000.0);
  EXPECT_EQ(json["channelCount"], 2);
  EXPECT_NEAR(json["integratedLUFS"].get<double>(), -23.0, 0.1);
  EXPECT_NEAR(json["maxMomentaryLUFS"].get<double>(), -23.0, 0.1);
  EXPECT_NEAR(json["maxShortTermLUFS"].get<double>(), -23.0, 0.1);
  EXPECT_NEAR(json["loudnessRange"].get<double>(), 0.0, 0.1);
  EXPECT_NEAR(json["truePeakDBTP"].get<double>(), -23.0, 0.05);
  EXPECT_NEAR(json["samplePeakDBFS"].get<double>(), -23.0, 0.01);
  EXPECT_EQ(json["dynamicRange"], 0);  // a sine: its RMS × √2 is its peak
  EXPECT_TRUE(json["speechGatedLUFS"].is_null());
  EXPECT_EQ(json["speechPercentage"], 0);
  EXPECT_EQ(json["speechVADAvailable"], false);
  EXPECT_TRUE(r.err.empty()) << r.err;

  r = run("measure '" + path + "'");
  ASSERT_EQ(r.exitCode, 0);
  EXPECT_NE(r.out.find("Integrated:      -23.0 LUFS\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("True peak:       -23.0 dBTP\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Dynamic range:   DR0\n"), std::string::npos) << r.out;
}

TEST_F(Cli, SilenceGivesNullsInJsonAndZeroRange) {
  const std::string path = dir.file("silence.flac");
  sox("-n -D -r 44100 -c 1 -b 16 '" + path + "' trim 0 3");  // -D: no dither, true silence
  const ToolRun r = run("measure '" + path + "' --json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto json = nlohmann::json::parse(r.out);
  EXPECT_TRUE(json["integratedLUFS"].is_null());
  EXPECT_TRUE(json["truePeakDBTP"].is_null());
  EXPECT_TRUE(json["samplePeakDBFS"].is_null());
  EXPECT_TRUE(json["maxMomentaryLUFS"].is_null());
  EXPECT_EQ(json["loudnessRange"], 0);
  EXPECT_EQ(json["channelCount"], 1);
  EXPECT_DOUBLE_EQ(json["durationSeconds"].get<double>(), 3.0);
  const ToolRun text = run("measure '" + path + "'");
  EXPECT_NE(text.out.find("Integrated:      -inf LUFS\n"), std::string::npos) << text.out;
}

TEST_F(Cli, DemoWritesTheSameProgrammeEveryTimeAndMeasureReadsIt) {
  const std::string first = dir.file("demo.wav"), second = dir.file("again.wav");
  ASSERT_EQ(run("demo '" + first + "'").exitCode, 0);
  ASSERT_EQ(run("demo '" + second + "'").exitCode, 0);
  EXPECT_EQ(runCommand("cmp -s '" + first + "' '" + second + "'").exitCode, 0);
  // What sndfile-info (an independent reader) sees.
  const CommandResult info = runCommand("sndfile-info '" + first + "'");
  EXPECT_NE(info.output.find("Sample Rate : 48000"), std::string::npos) << info.output;
  EXPECT_NE(info.output.find("Channels    : 2"), std::string::npos) << info.output;
  EXPECT_NE(info.output.find("Frames      : 1440000"), std::string::npos) << info.output;

  const ToolRun r = run("measure '" + first + "' --json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto json = nlohmann::json::parse(r.out);
  // Programme-like: a plausible loudness, a real range and dynamics, no clipping.
  EXPECT_GT(json["integratedLUFS"].get<double>(), -30.0);
  EXPECT_LT(json["integratedLUFS"].get<double>(), -12.0);
  EXPECT_GT(json["loudnessRange"].get<double>(), 3.0);
  EXPECT_LE(json["truePeakDBTP"].get<double>(), 0.0);
  EXPECT_NEAR(json["samplePeakDBFS"].get<double>(), -1.0, 0.01);
  EXPECT_GE(json["dynamicRange"].get<int>(), 5);
  EXPECT_DOUBLE_EQ(json["durationSeconds"].get<double>(), 30.0);
  EXPECT_EQ(run("demo '" + dir.file("no/such/folder/demo.wav") + "'").exitCode, 1);
}

}  // namespace
}  // namespace corvane::test
