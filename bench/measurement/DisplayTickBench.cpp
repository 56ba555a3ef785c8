// The cost of one display tick of the live meters (spectra of every channel, mid and side,
// live spectrogram columns, loudness read-outs, curves, correlation) at 8 channels, fftSize
// 16384 and 48 kHz, against the bare FFT work the tick cannot avoid (one transform per channel
// and two for mid and side, on the same processors' type). The render side is simulated on
// the same thread between ticks: 1600 frames a tick written into the analysis rings and fed to
// the loudness processor (not timed).
//
//   build/bench/measurement/display_tick_bench [ticks]
//
// Three cases: the default overlap (a column every 4096 frames: about one tick in three makes
// one), overlap 64 (a column every 256 frames: six or seven a tick), and the worst tick there
// is, after a jump: 64 columns at once.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "core/FFTProcessor.h"
#include "core/LoudnessProcessor.h"
#include "measurement/LiveMeters.h"
#include "playback/RenderMirrors.h"

using namespace corvane;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kChannels = 8;
constexpr int kFftSize = 16384;
constexpr double kRate = 48000.0;
constexpr int kFramesPerTick = 1600;  // 48 kHz / 30

struct Figures {
  double meanMs, medianMs, p99Ms, maxMs;
};

Figures summarise(std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  double sum = 0.0;
  for (double v : ms) sum += v;
  const auto at = [&](double q) { return ms[std::min(ms.size() - 1, static_cast<std::size_t>(q * ms.size()))]; };
  return {sum / ms.size(), at(0.5), at(0.99), ms.back()};
}

void print(const char* name, const Figures& f) {
  std::printf("%-44s mean %6.3f ms  median %6.3f ms  p99 %6.3f ms  max %6.3f ms\n", name, f.meanMs, f.medianMs, f.p99Ms,
              f.maxMs);
}

struct Rig {
  RenderMirrors mirrors;
  LiveMeters meters;
  LoudnessProcessor loudness{kRate, kChannels};
  std::mt19937 gen{7};
  std::normal_distribution<float> noise{0.0f, 0.1f};
  std::vector<std::vector<float>> block =
      std::vector<std::vector<float>>(kChannels, std::vector<float>(kFramesPerTick));
  double time = 0.0;
  double clock = 0.0;

  explicit Rig(int overlap) {
    meters.prepareForFile(kChannels, kRate, kFftSize, FFTWindowType::Hann, mirrors);
    meters.setSpectrogramOverlapFactor(overlap);
    meters.setClock([this] { return clock; });
  }
  // What the render callback does in a thirtieth of a second.
  void render() {
    std::vector<const float*> pointers;
    for (auto& channel : block) {
      for (float& s : channel) s = noise(gen);
      pointers.push_back(channel.data());
    }
    const AnalysisRings& rings = *mirrors._atomicAnalysisRings.current();
    for (int c = 0; c < kChannels; ++c)
      rings.rings[static_cast<std::size_t>(c)]->write(block[c].data(), kFramesPerTick);
    loudness.updateTruePeak(pointers.data(), kFramesPerTick);
    loudness.process(pointers.data(), kFramesPerTick);
    time += kFramesPerTick / kRate;
    clock += 1.0 / 30.0;
  }
  double tick() {
    DisplayTickInput in;
    in.currentTime = time;
    in.isPlaying = true;
    in.rings = mirrors._atomicAnalysisRings.current();
    in.loudness = &loudness;
    in.channelRMS.assign(kChannels, 0.1f);
    in.outputChannelRMS.assign(2, 0.1f);
    const auto start = Clock::now();
    meters.updateDisplayState(in);
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  }
};

Figures steady(int overlap, int ticks) {
  Rig rig(overlap);
  for (int i = 0; i < 4 * kFftSize / kFramesPerTick + 1; ++i) rig.render();  // rings full
  std::vector<double> ms;
  for (int i = 0; i < ticks; ++i) {
    rig.render();
    ms.push_back(rig.tick());
  }
  return summarise(ms);
}

Figures afterJumps(int ticks) {
  Rig rig(64);
  for (int i = 0; i < 4 * kFftSize / kFramesPerTick + 1; ++i) rig.render();
  rig.tick();
  std::vector<double> ms;
  for (int i = 0; i < ticks; ++i) {
    rig.render();
    rig.time += 1.0;  // a jump forward: the next column goes back to the oldest window, 64 are due
    ms.push_back(rig.tick());
  }
  return summarise(ms);
}

Figures bareTransforms(int ticks) {
  std::vector<std::unique_ptr<FFTProcessor>> processors;
  for (int i = 0; i < kChannels + 2; ++i) processors.push_back(std::make_unique<FFTProcessor>(kFftSize, kRate));
  std::vector<float> input(kFftSize);
  std::mt19937 gen(3);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  for (float& s : input) s = noise(gen);
  std::vector<double> ms;
  float sink = 0.0f;
  for (int i = 0; i < ticks; ++i) {
    const auto start = Clock::now();
    for (auto& p : processors) sink += p->process(input.data(), kFftSize)[100];
    ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  if (sink == 12345.0f) std::printf(" ");
  return summarise(ms);
}

}  // namespace

int main(int argc, char** argv) {
  const int ticks = argc > 1 ? std::max(10, std::atoi(argv[1])) : 600;
  std::printf("Display tick, %d channels, fftSize %d, %.0f Hz, %d ticks each (budget: 5 ms of the 33 ms frame)\n",
              kChannels, kFftSize, kRate, ticks);
  print("reference: 10 bare transforms (8 + mid/side)", bareTransforms(ticks));
  print("tick, overlap 4 (default)", steady(4, ticks));
  print("tick, overlap 64", steady(64, ticks));
  print("tick after a jump (64 columns)", afterJumps(std::max(10, ticks / 10)));
  return 0;
}
