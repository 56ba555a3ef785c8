// `corvane info` on real files made by sox and ffmpeg.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Run {
  int exitCode = -1;
  std::string out;
};

Run run(const std::string& commandLine) {
  Run result;
  FILE* pipe = ::popen(commandLine.c_str(), "r");
  char chunk[4096];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) result.out.append(chunk, n);
  const int status = ::pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

class InfoCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::temp_directory_path() / ("corvane-cli-test-" + std::to_string(::getpid()) + "-" +
                                          std::to_string(std::random_device{}()));
    fs::create_directories(folder);
  }
  void TearDown() override { fs::remove_all(folder); }
  std::string corvane(const std::string& arguments) { return std::string(CORVANE_CLI_PATH) + " " + arguments; }
  fs::path folder;
};

TEST_F(InfoCommand, ReportsTheLayoutAndIdentityAsJson) {
  const fs::path surround = folder / "stems.wav";
  ASSERT_EQ(run("ffmpeg -v error -f lavfi -i 'aevalsrc=0.1*sin(2*PI*300*t):s=48000:d=0.5:c=5.1' -c:a pcm_s24le " +
                surround.string() + " < /dev/null").exitCode, 0);
  const auto result = run(corvane("info --json " + surround.string()));
  ASSERT_EQ(result.exitCode, 0);
  const auto json = nlohmann::json::parse(result.out);
  EXPECT_EQ(json["fileName"], "stems.wav");
  EXPECT_EQ(json["fileFormat"], "WAV");
  EXPECT_EQ(json["encodingLabel"], "24-bit integer");
  EXPECT_EQ(json["sampleRate"], 48000);
  EXPECT_EQ(json["channelCount"], 6);
  EXPECT_EQ(json["channelLabels"], nlohmann::json({"L", "R", "C", "LFE", "Ls", "Rs"}));
  EXPECT_EQ(json["bitDepth"], 24);
  EXPECT_EQ(json["totalFrames"], 24000);
  EXPECT_EQ(json["durationSeconds"], 0.5);
  EXPECT_EQ(json["isMisnamed"], false);
  EXPECT_TRUE(json["formatHelp"].is_null());
}

TEST_F(InfoCommand, SaysWhenTheNameLies) {
  const fs::path file = folder / "take.wav";
  ASSERT_EQ(run("sox -V1 -n -r 44100 -c 2 -b 16 -t aiff " + file.string() + " synth 0.25 sine 440").exitCode, 0);
  auto json = nlohmann::json::parse(run(corvane("info " + file.string() + " --json")).out);
  EXPECT_EQ(json["fileFormat"], "AIFF");
  EXPECT_EQ(json["isMisnamed"], true);
  EXPECT_EQ(json["formatHelp"],
            "The file's header says AIFF; its name says .wav. Save keeps it a AIFF file. Use Save As to write a WAV.");
  const auto text = run(corvane("info " + file.string()));
  EXPECT_EQ(text.exitCode, 0);
  EXPECT_NE(text.out.find("Format:          AIFF\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("Misnamed:        yes\n"), std::string::npos) << text.out;
}

TEST_F(InfoCommand, NamedErrorsAndUsage) {
  const fs::path notAudio = folder / "notes.wav";
  std::ofstream(notAudio) << "not audio at all\n";
  auto result = run(corvane("info " + notAudio.string() + " 2>&1"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "The file at " + notAudio.string() + " is not a recognised audio file.\n");
  result = run(corvane("info " + (folder / "missing.wav").string() + " 2>&1"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "Could not find a file at " + (folder / "missing.wav").string() + ".\n");
  EXPECT_EQ(run(corvane("info 2>/dev/null")).exitCode, 2);
  EXPECT_EQ(run(corvane("info a.wav b.wav 2>/dev/null")).exitCode, 2);
}

}  // namespace
