// Cost of the render callback: ten minutes of eight-channel 48 kHz audio rendered offline
// through the live render chain (the code the device callback runs) in 256-frame buffers, with
// a full routing matrix, ±90° phase shifts, the band filter and the target-match limiter on.
// Prints the CPU time per buffer, mean and 99.9th percentile, as a fraction of the buffer's
// real-time duration, and, as a reference in the same run, SoX doing a lighter job on the same
// amount of audio (its remix matrix and two biquads per channel).
//
// Usage: playback_callback_bench [minutes]   (default 10)
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "core/ChannelOrder.h"
#include "playback/PlaybackController.h"

namespace {

double threadCpuSeconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec * 1e-9;
}

double wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

int main(int argc, char** argv) {
  using namespace corvane;
  const double minutes = argc > 1 ? std::atof(argv[1]) : 10.0;
  constexpr int kChannels = 8;
  constexpr int kBlock = 256;
  constexpr double kRate = 48000.0;

  // One minute of programme-like material (noise shaped per channel), looped for the run.
  auto buffer = AudioBuffer::create(kChannels, static_cast<FrameCount>(60 * kRate), kRate);
  std::mt19937 rng(1);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  for (int c = 0; c < kChannels; ++c) {
    float lp = 0.0f;
    for (FrameCount i = 0; i < buffer->frameLength(); ++i) {
      lp += (0.05f + 0.1f * c) * (noise(rng) - lp);
      buffer->channel(c)[i] = lp * (1.0f + 0.5f * std::sin(i * 2e-5f * (c + 1)));
    }
  }

  PlaybackController controller;
  controller.setManualOutput(ManualOutput{kRate, kChannels});
  controller.loadSource(PlaybackSource{buffer, ChannelOrder::bs1770Weights(*buffer), nullptr});
  // Every output takes three sources with gains; four of them are at ±90° or inverted.
  ChannelRoutings routings = defaultRoutings(kChannels, kChannels, {});
  const RoutingPhase phases[] = {RoutingPhase::plus90, RoutingPhase::inPhase, RoutingPhase::minus90,
                                 RoutingPhase::invert};
  for (int o = 0; o < kChannels; ++o) {
    routings[o].sources = {
        {RoutingId::create(), o, 0.8f, phases[o % 4]},
        {RoutingId::create(), (o + 1) % kChannels, 0.3f, RoutingPhase::inPhase},
        {RoutingId::create(), (o + 3) % kChannels, 0.2f, phases[(o + 1) % 4]},
    };
  }
  controller.setRoutings(routings);
  controller.setLooping(true);
  controller.setFreqFilter(FreqRange{120.0, 9000.0}, FreqFilterMode::bandPass);
  if (!controller.setupEngine()) {
    std::fprintf(stderr, "no graph: %s\n", controller.graph().lastError().c_str());
    return 1;
  }
  RenderMirrors& mirrors = controller.mirrors();
  mirrors._atomicAnalysisRings.publish(std::make_unique<AnalysisRings>(kChannels, 4 * 4096));
  mirrors._atomicTargetMatchGain.store(2.5f);
  mirrors._atomicTargetMatchEnabled.store(true);
  controller.play();

  std::vector<float> storage(static_cast<std::size_t>(kChannels) * kBlock);
  std::vector<float*> out;
  for (int c = 0; c < kChannels; ++c) out.push_back(storage.data() + c * kBlock);

  const long buffers = static_cast<long>(minutes * 60.0 * kRate / kBlock);
  std::vector<double> cost;
  cost.reserve(static_cast<std::size_t>(buffers));
  for (int i = 0; i < 200; ++i) controller.graph().renderManual(out.data(), kBlock);  // warm-up
  const double wallStart = wallSeconds();
  for (long i = 0; i < buffers; ++i) {
    const double t0 = threadCpuSeconds();
    controller.graph().renderManual(out.data(), kBlock);
    cost.push_back(threadCpuSeconds() - t0);
  }
  const double wall = wallSeconds() - wallStart;
  controller.pause();

  const double budget = kBlock / kRate;
  double sum = 0.0;
  for (double c : cost) sum += c;
  std::vector<double> sorted = cost;
  std::sort(sorted.begin(), sorted.end());
  const double p999 = sorted[static_cast<std::size_t>(0.999 * (sorted.size() - 1))];
  const double worst = sorted.back();
  std::printf("render callback, %d ch %.0f Hz, %d-frame buffers, %.1f min (%ld buffers)\n", kChannels,
              kRate, kBlock, minutes, buffers);
  std::printf("  routing 3 sources/output, +-90 deg and 180 deg, band-pass, limiter, loudness feed\n");
  std::printf("  mean CPU per buffer   %8.2f us = %6.3f %% of its %.3f ms\n", 1e6 * sum / buffers,
              100.0 * sum / buffers / budget, 1e3 * budget);
  std::printf("  99.9th percentile     %8.2f us = %6.3f %%\n", 1e6 * p999, 100.0 * p999 / budget);
  std::printf("  worst buffer          %8.2f us = %6.3f %%\n", 1e6 * worst, 100.0 * worst / budget);
  std::printf("  whole run             %8.2f s wall for %.0f s of audio (%.0fx real time)\n", wall,
              minutes * 60.0, minutes * 60.0 / wall);

  // Reference: SoX mixing and filtering the same amount of eight-channel audio (synthesised
  // noise, a remix matrix of three sources per output, a high-pass and a low-pass per channel).
  std::string remix;
  for (int o = 0; o < kChannels; ++o) {
    char part[64];
    std::snprintf(part, sizeof part, " %dv0.8,%dv0.3,%dv0.2", o + 1, (o + 1) % kChannels + 1,
                  (o + 3) % kChannels + 1);
    remix += part;
  }
  char command[1024];
  std::snprintf(command, sizeof command,
                "sox -q -r 48000 -c 8 -n -b 32 -e float -t raw - synth %.0f whitenoise remix%s "
                "highpass 120 lowpass 9000 2>/dev/null > /dev/null",
                minutes * 60.0, remix.c_str());
  const double soxStart = wallSeconds();
  const int status = std::system(command);
  const double soxWall = wallSeconds() - soxStart;
  if (status == 0) {
    std::printf("reference: sox synth + remix + highpass + lowpass, same audio: %.2f s wall (%.0fx real "
                "time)\n",
                soxWall, minutes * 60.0 / soxWall);
  } else {
    std::printf("reference: sox not available\n");
  }
  const bool met = 100.0 * sum / buffers / budget < 2.0 && 100.0 * p999 / budget < 10.0;
  std::printf("aim (mean < 2 %%, 99.9th < 10 %%): %s\n", met ? "met" : "NOT met");
  return 0;
}
