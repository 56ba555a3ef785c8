// What the whole-file benchmarks share: their command line ([FOLDER] [--runs N]), shell steps
// that must succeed, and the hour of 48 kHz stereo 24-bit WAV they all open, made once with sox
// in the folder and reused (pink noise and a tone, 1.04 GB).
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace corvane::bench {

struct BenchArguments {
  std::filesystem::path folder;
  int runs;
};

// [FOLDER] (default: $TMPDIR/corvane-bench, made if missing) [--runs N] (default `defaultRuns`).
inline BenchArguments parseBenchArguments(int argc, char** argv, int defaultRuns) {
  BenchArguments arguments{std::filesystem::temp_directory_path() / "corvane-bench", defaultRuns};
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      arguments.runs = std::max(1, std::atoi(argv[++i]));
    } else {
      arguments.folder = argv[i];
    }
  }
  std::filesystem::create_directories(arguments.folder);
  return arguments;
}

// Runs a shell command; a failure ends the benchmark.
inline void runShell(const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    std::fprintf(stderr, "failed: %s\n", command.c_str());
    std::exit(1);
  }
}

// The hour file in `folder`, made if it is missing or short.
inline std::filesystem::path ensureHourWav(const std::filesystem::path& folder) {
  const std::filesystem::path wav = folder / "hour-48k-24bit.wav";
  const std::uintmax_t wavBytes = 3600ull * 48000 * 2 * 3 + 44;
  if (!std::filesystem::exists(wav) || std::filesystem::file_size(wav) < wavBytes) {
    std::printf("making %s (one hour of pink noise and a tone)...\n", wav.c_str());
    runShell("sox -R -V1 -n -r 48000 -c 2 -b 24 '" + wav.string() + "' synth 3600 pinknoise sine 1000 vol 0.5");
  }
  return wav;
}

}  // namespace corvane::bench
