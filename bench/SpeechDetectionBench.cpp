// speech_detection_bench: see bench/README.md.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "headless/speech/SileroVADAnalyser.h"
#include "headless/speech/SileroVADNetwork.h"

using namespace corvane;

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Two minutes of espeak-ng phrases at 48 kHz (through sox), or nothing when either is missing.
std::vector<float> spokenPhrases() {
  const char* phrases[] = {
      "The quick brown fox jumps over the lazy dog.",
      "Please measure the dialogue level before delivery.",
      "Seven bright apples fell from the tree and rolled slowly down the hill.",
      "Loudness is measured over the dialogue, not over the music.",
      "In the beginning the narrator speaks softly, then the story picks up speed.",
  };
  std::vector<float> speech;
  for (const char* text : phrases) {
    const std::string command = std::string("espeak-ng -s 165 --stdout '") + text +
                                "' 2>/dev/null | sox -t wav - -t f32 -r 48000 -c 1 - 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return {};
    float chunk[4096];
    std::size_t got = 0;
    while ((got = fread(chunk, sizeof(float), 4096, pipe)) > 0) speech.insert(speech.end(), chunk, chunk + got);
    if (pclose(pipe) != 0) return {};
    speech.insert(speech.end(), 24000, 0.0f);  // half a second between phrases
  }
  return speech;
}

// Programme-like stereo: speech over a quiet noise floor for 14 s of every 20, then 6 s of
// music-like chords, so the detector's probabilities swing as they do on real programmes.
SharedAudioBuffer makeProgramme(double seconds) {
  const double rate = 48000;
  const auto frames = static_cast<FrameCount>(seconds * rate);
  auto buffer = AudioBuffer::create(2, frames, rate);
  const std::vector<float> speech = spokenPhrases();
  if (speech.empty()) std::printf("(espeak-ng or sox missing: the programme has no speech)\n");
  std::mt19937 random(1234);
  std::normal_distribution<float> noise(0.0f, 1.0f);
  std::size_t speechPosition = 0;
  for (FrameCount i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    float s = 0.003f * noise(random);
    if (std::fmod(t, 20.0) < 14.0) {
      if (!speech.empty()) s += 0.5f * speech[speechPosition++ % speech.size()];
    } else {
      s += static_cast<float>(0.1 * (std::sin(2 * M_PI * 220 * t) + std::sin(2 * M_PI * 277.2 * t) + std::sin(2 * M_PI * 329.6 * t)));
    }
    buffer->channel(0)[i] = s;
    buffer->channel(1)[i] = 0.9f * s;
  }
  return buffer;
}

std::string readAll(FILE* pipe) {
  std::string out;
  char chunk[256];
  while (fgets(chunk, sizeof chunk, pipe)) out += chunk;
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  double minutes = 60;
  bool reference = true;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--minutes" && i + 1 < argc) minutes = std::atof(argv[++i]);
    else if (arg == "--no-reference") reference = false;
    else {
      std::fprintf(stderr, "usage: speech_detection_bench [--minutes N] [--no-reference]\n");
      return 2;
    }
  }

  SileroVADAnalyser& analyser = SileroVADAnalyser::shared();
  if (!analyser.isAvailable()) {
    std::fprintf(stderr, "%s\n", analyser.errorText().c_str());
    return 1;
  }
  const double seconds = minutes * 60;
  std::printf("programme: %.0f s of 48 kHz stereo\n", seconds);
  const auto programme = makeProgramme(seconds);
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));

  std::vector<bool> history;
  for (const int threads : {1, cores}) {
    analyser.setThreadCount(threads);
    const auto start = std::chrono::steady_clock::now();
    history = analyser.detectSpeech(*programme, {});
    const double took = secondsSince(start);
    std::printf("native speech history, %d thread%s:   %7.2f s  (%6.0f× real time, per hour %.2f s)\n", threads,
                threads == 1 ? " " : "s", took, seconds / took, took * 3600 / seconds);
  }
  std::printf("  %zu blocks, %.1f %% speech\n", history.size(),
              100.0 * static_cast<double>(std::count(history.begin(), history.end(), true)) / static_cast<double>(history.size()));

  // The 16 kHz mono signal both networks see.
  std::vector<float> mix(static_cast<std::size_t>(programme->frameLength()));
  for (std::size_t i = 0; i < mix.size(); ++i) mix[i] = 0.5f * programme->channel(0)[i] + 0.5f * programme->channel(1)[i];
  analyser.setThreadCount(1);
  const auto resampled = [&] {
    // A plain 3:1 average stands in for the resampler: both networks get the same signal,
    // which is all this comparison needs.
    std::vector<float> out(mix.size() / 3);
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = (mix[3 * i] + mix[3 * i + 1] + mix[3 * i + 2]) / 3.0f;
    return out;
  }();
  mix = {};
  SileroVADNetwork network(SileroVADModel::loadInstalled()->branch16k());
  auto start = std::chrono::steady_clock::now();
  const auto ours = network.probabilities(resampled, 1);
  const double networkSeconds = secondsSince(start);
  std::printf("native network alone, 1 thread:         %7.2f s  (%zu windows, %.2f µs per window)\n", networkSeconds,
              ours.size(), networkSeconds / static_cast<double>(ours.size()) * 1e6);

  const std::filesystem::path benchDir = CORVANE_BENCH_DIR;
  if (!reference) return 0;
  if (!std::filesystem::exists(benchDir / "node_modules" / "onnxruntime-node")) {
    std::printf("onnxruntime-node is not installed in bench/node_modules (see bench/README.md): no reference\n");
    return 0;
  }
  const auto folder = std::filesystem::temp_directory_path() / ("corvane-vad-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  {
    std::ofstream out(folder / "samples.f32", std::ios::binary);
    out.write(reinterpret_cast<const char*>(resampled.data()), static_cast<std::streamsize>(resampled.size() * sizeof(float)));
  }
  const std::string command = "node '" + (benchDir / "silero-onnxruntime.mjs").string() + "' '" +
                              SileroVADModel::loadInstalled()->path().string() + "' '" + (folder / "samples.f32").string() +
                              "' '" + (folder / "probabilities.f32").string() + "' 1";
  FILE* pipe = popen(command.c_str(), "r");
  const std::string output = pipe ? readAll(pipe) : std::string();
  const int status = pipe ? pclose(pipe) : -1;
  double ortSeconds = 0;
  if (status != 0 || std::sscanf(output.c_str(), "{\"seconds\":%lf", &ortSeconds) != 1) {
    std::printf("onnxruntime-node failed: %s\n", output.c_str());
    std::filesystem::remove_all(folder);
    return 1;
  }
  std::vector<float> theirs(ours.size());
  {
    std::ifstream in(folder / "probabilities.f32", std::ios::binary);
    in.read(reinterpret_cast<char*>(theirs.data()), static_cast<std::streamsize>(theirs.size() * sizeof(float)));
  }
  std::filesystem::remove_all(folder);
  float worst = 0;
  for (std::size_t i = 0; i < ours.size(); ++i) worst = std::max(worst, std::abs(ours[i] - theirs[i]));
  std::printf("onnxruntime-node 1.23.2, 1 thread:      %7.2f s  (%.2f µs per window)\n", ortSeconds,
              ortSeconds / static_cast<double>(ours.size()) * 1e6);
  std::printf("native network is %.1f× faster than onnxruntime on one thread; largest probability difference %.2e\n",
              ortSeconds / networkSeconds, static_cast<double>(worst));
  return 0;
}
