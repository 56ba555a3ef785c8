// `corvane measure FILE --mode M` on files synthesised at -16, -17.2 and -14 LUFS.
//
// The files are a stereo 997 Hz tone, the same in both channels, levelled with libebur128 as
// the oracle. For that tone the true peak is the tone's amplitude (about the LUFS figure) and
// the un-weighted RMS is the amplitude minus 3.01 dB, so every reading is known by hand and
// lies clear of the targets' edges, except AES TD1008 at -16, which sits exactly on its edge
// and is left to the core tests. Expected verdicts come from each platform's figures, worked
// out by hand.
#include <ebur128.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kRate = 48000;
constexpr int kSeconds = 6;

struct ToolRun {
  int exitCode = -1;
  std::string output;
};

// Runs the tool with `arguments` (already quoted for the shell) and captures standard output,
// or standard error with `captureErrors`.
ToolRun runCorvane(const std::string& arguments, bool captureErrors = false) {
  const std::string command = std::string("'") + CORVANE_CLI_PATH + "' " + arguments +
                              (captureErrors ? " 2>&1 >/dev/null" : " 2>/dev/null");
  ToolRun run;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, got);
  const int status = ::pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

double oracleIntegratedLUFS(const std::vector<float>& interleaved) {
  ebur128_state* state = ebur128_init(2, kRate, EBUR128_MODE_I);
  ebur128_add_frames_float(state, interleaved.data(), interleaved.size() / 2);
  double lufs = 0.0;
  ebur128_loudness_global(state, &lufs);
  ebur128_destroy(&state);
  return lufs;
}

class MeasureMode : public ::testing::Test {
 protected:
  void SetUp() override {
    _folder = fs::temp_directory_path() /
              ("corvane-cli-test-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(_folder);
    fs::create_directories(_folder);
  }
  void TearDown() override { fs::remove_all(_folder); }

  // A float WAV of the tone at `lufs` by libebur128; returns its path and sets the tone's
  // amplitude.
  std::string writeTone(double lufs, double& amplitude) {
    const size_t frames = static_cast<size_t>(kRate) * kSeconds;
    auto render = [&](double a) {
      std::vector<float> samples(frames * 2);
      for (size_t i = 0; i < frames; ++i) {
        const float v =
            static_cast<float>(a * std::sin(2.0 * std::numbers::pi * 997.0 * i / kRate));
        samples[2 * i] = v;
        samples[2 * i + 1] = v;
      }
      return samples;
    };
    amplitude = std::pow(10.0, lufs / 20.0);
    amplitude *= std::pow(10.0, (lufs - oracleIntegratedLUFS(render(amplitude))) / 20.0);
    std::vector<float> samples = render(amplitude);
    const double check = oracleIntegratedLUFS(samples);
    EXPECT_NEAR(check, lufs, 0.005) << "the oracle could not level the tone";

    const fs::path path = _folder / ("tone" + std::to_string(lufs) + ".wav");
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
    if (file) {
      EXPECT_EQ(sf_writef_float(file, samples.data(), static_cast<sf_count_t>(frames)),
                static_cast<sf_count_t>(frames));
      sf_close(file);
    }
    return path.string();
  }

  // id → the target's JSON object, for `mode` on the file at `path`.
  std::map<std::string, nlohmann::json> verdicts(const std::string& path, const char* mode) {
    const ToolRun run = runCorvane("measure '" + path + "' --json --mode " + mode);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    std::map<std::string, nlohmann::json> byID;
    const auto document = nlohmann::json::parse(run.output, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << run.output;
    if (document.is_discarded()) return byID;
    EXPECT_EQ(document.value("loudnessMode", ""), mode);
    for (const auto& target : document.at("targets")) byID[target.at("id")] = target;
    return byID;
  }

  fs::path _folder;
};

struct Expected {
  const char* mode;
  const char* targetID;
  const char* verdicts[3];  // at -16, -17.2, -14 LUFS; nullptr: not checked
};

TEST_F(MeasureMode, VerdictsPerModeAtThreeLevels) {
  const double levels[3] = {-16.0, -17.2, -14.0};
  const Expected table[] = {
      // Playback platforms: the gain they apply. The tone's peak (about its LUFS figure)
      // leaves Spotify and Apple Music room to lift it fully; YouTube never lifts.
      {"music", "music.spotify", {"+2.0 dB", "+3.2 dB", "as-is"}},
      {"music", "music.appleMusic", {"as-is", "+1.2 dB", "-2.0 dB"}},
      {"music", "music.youtube", {"as-is", "as-is", "as-is"}},
      // Apple Podcasts -16 ±1; AES TD1008 -18 ±2 (-16 is its edge); ACX on RMS -23 ... -18:
      // the tone's RMS is -19.0, -20.2 and -17.0 dB.
      {"podcast", "podcast.applePodcasts", {"OK", "FAIL L", "FAIL L"}},
      {"podcast", "podcast.aesTD1008Speech", {nullptr, "OK", "FAIL L"}},
      {"podcast", "podcast.acx", {"OK", "OK", "FAIL L"}},
      // No speech detection in the tool yet: dialog-gated targets have no reading.
      {"vod", "vod.netflix", {"no speech", "no speech", "no speech"}},
      {"vod", "vod.primeVideo", {"no speech", "no speech", "no speech"}},
      {"broadcast", "broadcast.ebuR128", {"FAIL L", "FAIL L", "FAIL L"}},
      {"broadcast", "broadcast.atscA85", {"FAIL L", "FAIL L", "FAIL L"}},
  };

  for (int level = 0; level < 3; ++level) {
    double amplitude = 0.0;
    const std::string path = writeTone(levels[level], amplitude);
    std::map<std::string, std::map<std::string, nlohmann::json>> byMode;
    for (const char* mode : {"music", "podcast", "vod", "broadcast"}) {
      byMode[mode] = verdicts(path, mode);
    }
    // Each mode shows its factory targets, and only those.
    EXPECT_EQ(byMode["music"].size(), 3u);
    EXPECT_EQ(byMode["podcast"].size(), 3u);
    EXPECT_EQ(byMode["vod"].size(), 2u);
    EXPECT_EQ(byMode["broadcast"].size(), 2u);

    for (const auto& row : table) {
      if (!row.verdicts[level]) continue;
      const auto& targets = byMode[row.mode];
      const auto found = targets.find(row.targetID);
      ASSERT_NE(found, targets.end()) << row.targetID;
      EXPECT_EQ(found->second.at("verdict"), row.verdicts[level])
          << row.targetID << " at " << levels[level] << " LUFS";
    }

    // ACX reads the tone's un-weighted RMS: amplitude / sqrt(2), worked out from what was
    // written, not from any meter.
    const double rmsDB = 20.0 * std::log10(amplitude / std::sqrt(2.0));
    EXPECT_NEAR(byMode["podcast"]["podcast.acx"].at("reading").get<double>(), rmsDB, 0.01);
    // Without speech detection the noise floor is unknown: ACX passes flagged, never clean.
    EXPECT_TRUE(byMode["podcast"]["podcast.acx"].at("flagged").get<bool>());
    // The playback gain is the distance to -16 for Apple Music, to the tenth shown.
    const auto& apple = byMode["music"]["music.appleMusic"];
    if (!apple.at("playbackGainDB").is_null()) {
      EXPECT_NEAR(apple.at("playbackGainDB").get<double>(), -16.0 - levels[level], 0.02);
    }
  }
}

TEST_F(MeasureMode, TextListsTheModesTargetsWithTheirVerdicts) {
  double amplitude = 0.0;
  const std::string path = writeTone(-17.2, amplitude);
  const ToolRun run = runCorvane("measure '" + path + "' --mode podcast");
  ASSERT_EQ(run.exitCode, 0);
  const auto at = run.output.find("Targets (Podcast / Spoken Word):\n");
  ASSERT_NE(at, std::string::npos) << run.output;
  const std::string block = run.output.substr(at);
  EXPECT_NE(block.find("  Apple Podcasts       FAIL L     -16 ±1 LUFS · ≤ -1 dBTP\n"),
            std::string::npos)
      << block;
  EXPECT_NE(block.find("  ACX (Audible)        OK ⚠       -20.5 ±2.5 dB RMS · ≤ -3 dBTP\n"),
            std::string::npos)
      << block;
  // Without --mode there are no verdicts.
  EXPECT_EQ(runCorvane("measure '" + path + "'").output.find("Targets"), std::string::npos);
}

TEST_F(MeasureMode, UnknownModeIsAUsageError) {
  double amplitude = 0.0;
  const std::string path = writeTone(-16.0, amplitude);
  const ToolRun unknown = runCorvane("measure '" + path + "' --mode cinema", true);
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_NE(unknown.output.find("unknown mode 'cinema'"), std::string::npos) << unknown.output;
  EXPECT_EQ(runCorvane("measure '" + path + "' --mode", true).exitCode, 2);
  EXPECT_EQ(runCorvane("measure '" + path + "' --mode music --mode vod", true).exitCode, 2);
}

}  // namespace
