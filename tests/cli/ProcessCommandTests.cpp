// corvane process, run as a script runs it, on real files: loudness delivery by libebur128,
// trims and fades against sox, the steps in their order, dialogue levelling by ffmpeg astats,
// the in-memory and streaming roads byte for byte, the output format, and the refusal to write
// over the input.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <random>
#include <set>

#include "EditTestSupport.h"

namespace corvane::test {
namespace {

struct ToolRun {
  int exitCode = -1;
  std::string err;
};

ToolRun corvane(const std::string& arguments) {
  const CommandResult result = runCommand(shellQuote(CORVANE_CLI) + " process " + arguments + " 2>&1");
  return {result.exitCode, result.output};
}

std::string q(const fs::path& path) { return shellQuote(path.string()); }

std::set<std::string> listing(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
  return names;
}

// 10 s of 24-bit stereo at about −32 LUFS: pink noise with a click every half second, whose
// peaks the limiter must catch once the level is raised (and whose energy is too small to
// count in the loudness).
fs::path programme(const TemporaryFolder& folder) {
  const fs::path noise = folder / "noise.wav", mixed = folder / "mixed.wav", out = folder / "programme.wav";
  soxMake(noise, "-r 48000 -b 24 -c 2", "synth 10 pinknoise pinknoise vol 0.08");
  Audio audio = readAudio(noise);
  for (FrameCount i = 12000; i < audio.frames(); i += 24000) {
    audio.channels[0][i] = 0.2f;
    audio.channels[1][i] = -0.2f;
  }
  writeFloatWav(mixed, audio);
  runChecked("sox -V1 " + q(mixed) + " -b 24 " + q(out));
  return out;
}

TEST(ProcessCommandTest, NormalizeLUFSDeliversTheTargetUnderTheCeilingOnEveryRoad) {
  TemporaryFolder folder;
  const fs::path input = programme(folder);
  ASSERT_LT(ebur128Measure(readAudio(input)).integratedLUFS, -25.0);
  const std::string step = " --normalize-lufs -16 --ceiling -1";
  // In memory; streamed from the loaded buffer (the load fits, six copies don't); streamed
  // from the file (not even the load fits).
  const fs::path memory = folder / "memory.wav", buffered = folder / "buffered.wav", disk = folder / "disk.wav";
  ASSERT_EQ(corvane(q(input) + " -o " + q(memory) + step).exitCode, 0);
  ASSERT_EQ(corvane(q(input) + " -o " + q(buffered) + step + " --memory-limit 10").exitCode, 0);
  ASSERT_EQ(corvane(q(input) + " -o " + q(disk) + step + " --memory-limit 1").exitCode, 0);

  const Audio out = readAudio(memory);
  const auto oracle = ebur128Measure(out);
  std::printf("[ process ] -16 LUFS, -1 dBTP: libebur128 %.3f LUFS, %.3f dBTP; our meter %.3f dBTP\n",
              oracle.integratedLUFS, oracle.truePeakDB, ourTruePeakDB(out));
  EXPECT_NEAR(oracle.integratedLUFS, -16.0, 0.1);
  EXPECT_LE(oracle.truePeakDB, -0.9);
  EXPECT_LE(ourTruePeakDB(out), -1.0);
  // The bursts needed the limiter: without it they would pass the ceiling.
  EXPECT_GT(ourTruePeakDB(readAudio(input)) + (-16.0 - ebur128Measure(readAudio(input)).integratedLUFS), -1.0);

  const ProbeInfo info = ffprobe(memory);
  EXPECT_EQ(info.codecName, "pcm_s24le");
  EXPECT_EQ(info.sampleRate, 48000);
  EXPECT_EQ(info.channels, 2);
  EXPECT_EQ(readBytes(memory), readBytes(buffered));
  EXPECT_EQ(readBytes(memory), readBytes(disk));
}

TEST(ProcessCommandTest, StepsRunInTheOrderGiven) {
  TemporaryFolder folder;
  const fs::path input = folder / "in.wav", a = folder / "a.wav", b = folder / "b.wav";
  soxMake(input, "-r 44100 -b 24 -c 2", "synth 2 pinknoise sine 440 vol 0.2");
  ASSERT_EQ(corvane(q(input) + " -o " + q(a) + " --gain -6 --normalize-peak -1").exitCode, 0);
  ASSERT_EQ(corvane(q(input) + " -o " + q(b) + " --normalize-peak -1 --gain -6").exitCode, 0);
  EXPECT_NEAR(soxStats(a).peakDB, -1.0, 0.01);
  EXPECT_NEAR(soxStats(b).peakDB, -7.0, 0.01);
}

TEST(ProcessCommandTest, TrimAndFadesMatchSox) {
  TemporaryFolder folder;
  const fs::path input = folder / "in.wav", trimmed = folder / "trimmed.wav", faded = folder / "faded.wav";
  soxMake(input, "-r 48000 -b 24 -c 2", "synth 2 pinknoise sine 440 vol 0.3");
  ASSERT_EQ(corvane(q(input) + " -o " + q(trimmed) + " --trim 0.5 1.25").exitCode, 0);
  const ChannelData soxTrim = deinterleave(
      [&] {
        const fs::path oracle = folder / "sox-trim.wav";
        runChecked("sox -V1 " + q(input) + " " + q(oracle) + " trim 24000s =60000s");
        return soxDecode(oracle);
      }(),
      2);
  EXPECT_TRUE(bitIdentical(readAudio(trimmed).channels, soxTrim));

  ASSERT_EQ(corvane(q(input) + " -o " + q(faded) + " --fade-in 0.3 --fade-out 0.2 --fade-curve linear").exitCode, 0);
  const fs::path oracle = folder / "sox-fade.wav";
  runChecked("sox -V1 " + q(input) + " -e floating-point -b 32 " + q(oracle) + " fade t 14400s 0 9600s");
  // The output is 24-bit: one step of rounding either way.
  EXPECT_LE(maxDifference(readAudio(faded).channels, readAudio(oracle).channels), 1.01 / 8388608.0);
}

TEST(ProcessCommandTest, LimitHoldsTheCeilingOnIntersamplePeaks) {
  TemporaryFolder folder;
  // A 12 kHz tone at 45°: samples at 0.707 of a peak that passes full scale by 2 dB.
  const fs::path raw = folder / "raw.wav", input = folder / "in.wav", out = folder / "out.wav";
  Audio audio{ChannelData(2, std::vector<float>(96000)), 48000, {}};
  for (FrameCount i = 0; i < 96000; ++i) {
    audio.channels[0][i] = audio.channels[1][i] =
        static_cast<float>(1.25 * std::sin(2.0 * M_PI * 12000.0 * static_cast<double>(i) / 48000.0 + M_PI / 4.0));
  }
  writeFloatWav(raw, audio);
  runChecked("sox -V1 " + q(raw) + " -b 24 " + q(input));
  ASSERT_GT(ourTruePeakDB(readAudio(input)), 1.5);
  ASSERT_EQ(corvane(q(input) + " -o " + q(out) + " --limit -3").exitCode, 0);
  const Audio limited = readAudio(out);
  EXPECT_LE(ourTruePeakDB(limited), -3.0);
  EXPECT_LE(ebur128Measure(limited).truePeakDB, -2.9);
}

TEST(ProcessCommandTest, LevelDialogueDucksTheRoomToneBetweenPhrases) {
  TemporaryFolder folder;
  // Two spoken phrases over room tone, 2.5 s of room tone around and between them.
  const fs::path phrase = folder / "phrase.wav", tone = folder / "tone.wav", input = folder / "in.wav";
  runChecked("espeak-ng -s 150 -w " + q(phrase) + " 'Please measure the dialogue level before delivery.'");
  const fs::path speech = folder / "speech.wav";
  runChecked("sox -V1 " + q(phrase) + " -r 48000 -c 2 -b 24 " + q(speech) +
             " silence 1 0.01 0.1% reverse silence 1 0.01 0.1% reverse pad 2.5 0");
  const fs::path twice = folder / "twice.wav";
  runChecked("sox -V1 " + q(speech) + " " + q(speech) + " " + q(twice) + " pad 0 2.5");
  const double length = std::stod(runChecked("soxi -D " + q(twice)));
  soxMake(tone, "-r 48000 -b 24 -c 2", "synth " + std::to_string(length) + " pinknoise vol 0.003");
  runChecked("sox -V1 -m -v 1 " + q(twice) + " -v 1 " + q(tone) + " " + q(input));
  const double phraseLength = std::stod(runChecked("soxi -D " + q(speech))) - 2.5;

  const fs::path memory = folder / "memory.wav", disk = folder / "disk.wav";
  const ToolRun run = corvane(q(input) + " -o " + q(memory) + " --level-dialogue 18");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  // A limit under which the stereo file can't be loaded but its mono mix for the detector fits.
  char limit[32];
  std::snprintf(limit, sizeof limit, "%.3f", length * 48000 * 2 * 4 * 0.75 * 2 / 1048576.0);
  const ToolRun streamed = corvane(q(input) + " -o " + q(disk) + " --level-dialogue -18 --memory-limit " + limit);
  ASSERT_EQ(streamed.exitCode, 0) << streamed.err;
  EXPECT_EQ(readBytes(memory), readBytes(disk));

  // Room tone well away from the phrases: before the first, between the two, after the last.
  const double gapStart = 2.5 + phraseLength;
  for (const double at : {0.6, gapStart + 0.8, length - 1.7}) {
    SCOPED_TRACE(at);
    const double depth = astatsRMSDB(memory, at, 1.0) - astatsRMSDB(input, at, 1.0);
    std::printf("[ process ] room tone at %.1f s ducked by %.2f dB (astats)\n", at, depth);
    EXPECT_NEAR(depth, -18.0, 0.3);
  }
  // The phrases keep their level.
  EXPECT_NEAR(astatsRMSDB(memory, 2.5, phraseLength) - astatsRMSDB(input, 2.5, phraseLength), 0.0, 0.3);
}

TEST(ProcessCommandTest, OutputKeepsTheSourceFormatOrADocumentedFallback) {
  TemporaryFolder folder;
  struct Case {
    std::string input, make, output, codec, format, layout;
  };
  const Case cases[] = {
      {"in.aif", "-r 44100 -b 16 -c 2", "out.aif", "pcm_s16be", "aiff", "unknown"},
      {"in.aif", "-r 44100 -b 16 -c 2", "out", "pcm_s16be", "aiff", "unknown"},
      {"in.flac", "-r 96000 -b 24 -c 2", "out.wav", "pcm_s24le", "wav", "stereo"},
      // An MP3 names no speaker positions, so the WAV gets no channel mask.
      {"in.mp3", "-r 44100 -c 2", "out.wav", "pcm_f32le", "wav", ""},
      {"in.wav", "-r 48000 -b 16 -c 6", "out.wav", "pcm_s16le", "wav", "5.1"},
      // Wave64 has no place for a layout.
      {"in.caf", "-r 32000 -b 24 -c 1", "out.w64", "pcm_s24le", "w64", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input + " -> " + c.output);
    const fs::path input = folder / c.input, output = folder / c.output;
    soxMake(input, c.make, "synth 1 pinknoise vol 0.2");
    const ToolRun run = corvane(q(input) + " -o " + q(output) + " --gain -1");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const ProbeInfo in = ffprobe(input), out = ffprobe(output);
    EXPECT_EQ(out.codecName, c.codec);
    EXPECT_NE(out.formatName.find(c.format), std::string::npos) << out.formatName;
    EXPECT_EQ(out.sampleRate, in.sampleRate);
    EXPECT_EQ(out.channels, in.channels);
    if (!c.layout.empty()) {
      EXPECT_EQ(out.channelLayout, in.channelLayout);
      EXPECT_EQ(in.channelLayout, c.layout);
    }
    fs::remove(output);
  }
  const fs::path input = folder / "in.wav";
  EXPECT_EQ(corvane(q(input) + " -o " + q(folder / "out.flac") + " --gain -1").exitCode, 2);
  EXPECT_FALSE(fs::exists(folder / "out.flac"));
}

TEST(ProcessCommandTest, RefusesToWriteOverItsInputUnderAnyName) {
  TemporaryFolder folder;
  fs::create_directories(folder / "sub");
  const fs::path input = folder / "in.wav";
  soxMake(input, "-r 48000 -b 24 -c 2", "synth 1 pinknoise vol 0.2");
  fs::create_hard_link(input, folder / "hard.wav");
  fs::create_symlink(input, folder / "soft.wav");
  const auto before = readBytes(input);
  const auto names = listing(folder.path());
  const std::string spellings[] = {
      input.string(), (folder / "." / "in.wav").string(), (folder / "sub" / ".." / "in.wav").string(),
      (folder / "hard.wav").string(), (folder / "soft.wav").string()};
  for (const auto& spelling : spellings) {
    SCOPED_TRACE(spelling);
    const ToolRun run = corvane(q(input) + " -o " + shellQuote(spelling) + " --normalize-lufs -16");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("Cannot overwrite the original file"), std::string::npos) << run.err;
    EXPECT_EQ(readBytes(input), before);
    EXPECT_EQ(listing(folder.path()), names);
  }
  // Through the link as the input, naming the real file as the output, too.
  EXPECT_EQ(corvane(q(folder / "soft.wav") + " -o " + q(input) + " --gain 3").exitCode, 1);
  EXPECT_EQ(readBytes(input), before);
}

TEST(ProcessCommandTest, UsageErrorsExitTwoAndNamedErrorsOne) {
  TemporaryFolder folder;
  const fs::path input = folder / "in.wav", out = folder / "out.wav";
  soxMake(input, "-r 48000 -b 16 -c 1", "synth 2 sine 440 vol 0.2");
  const std::string io = q(input) + " -o " + q(out);
  const ToolRun help = corvane("--help");
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.err.find("--normalize-lufs LUFS"), std::string::npos) << help.err;
  EXPECT_EQ(corvane(io).exitCode, 2);                                    // no step
  EXPECT_EQ(corvane(q(input) + " --gain 1").exitCode, 2);                // no output
  EXPECT_EQ(corvane(io + " --gain loud").exitCode, 2);                   // not a number
  EXPECT_EQ(corvane(io + " --gain 1,5").exitCode, 2);                    // C locale only
  EXPECT_EQ(corvane(io + " --gain").exitCode, 2);                        // no value
  EXPECT_EQ(corvane(io + " --louder 3").exitCode, 2);                    // unknown option
  EXPECT_EQ(corvane(io + " --gain 1 --ceiling -1").exitCode, 2);         // ceiling without normalize
  EXPECT_EQ(corvane(io + " --trim 1.5 1.0").exitCode, 2);                // END before START
  EXPECT_EQ(corvane(io + " --fade-curve cubic --fade-in 1").exitCode, 2);
  EXPECT_FALSE(fs::exists(out));
  EXPECT_EQ(corvane(q(folder / "missing.wav") + " -o " + q(out) + " --gain 1").exitCode, 1);
  const ToolRun outside = corvane(io + " --trim 5 6");
  EXPECT_EQ(outside.exitCode, 1);
  EXPECT_NE(outside.err.find("keeps nothing"), std::string::npos) << outside.err;
  EXPECT_FALSE(fs::exists(out));
  // A step with nothing to do says so and the rest goes on.
  const fs::path silent = folder / "silent.wav";
  soxMake(silent, "-r 48000 -b 16 -c 1", "synth 1 sine 440 vol 0");
  const ToolRun run = corvane(q(silent) + " -o " + q(out) + " --normalize-peak -1 --fade-in 0.5");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_NE(run.err.find("--normalize-peak: nothing to do"), std::string::npos) << run.err;
  EXPECT_TRUE(fs::exists(out));
}

}  // namespace
}  // namespace corvane::test
