// The full offline loudness pass on one hour of 48 kHz stereo, one thread, against libebur128
// (with true peak) on the same samples in the same run.
//
// Ours: integrated, momentary, short-term, range, true peak per channel, sample peak and the
// per-block history, fed as the offline analysis feeds it (0.1 s chunks, updateTruePeak then
// process, then flushPartialBlock). libebur128: EBUR128_MODE_I | LRA | TRUE_PEAK | SAMPLE_PEAK |
// M | S, fed interleaved (its native layout) in the same 0.1 s chunks. The hour is a 60 s
// programme-like clip played 60 times, so both read identical samples from memory that is
// already in place; neither run is charged for generating or converting audio.
//
// Run: build/bench/loudness_bench [minutes]   (default 60)
#include <ebur128.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/LoudnessProcessor.h"
#include "core/ProgrammeSignal.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

}  // namespace

int main(int argc, char** argv) {
  using namespace corvane;
  const int minutes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
  constexpr double kRate = 48000.0;
  const SharedAudioBuffer clip = synthesiseProgramme({kRate, 2, 60.0, 42});
  const FrameCount clipFrames = clip->frameLength();
  const FrameCount chunk = 4800;
  std::vector<float> interleaved(static_cast<std::size_t>(clipFrames * 2));
  for (FrameCount i = 0; i < clipFrames; ++i) {
    interleaved[static_cast<std::size_t>(2 * i)] = clip->channel(0)[i];
    interleaved[static_cast<std::size_t>(2 * i + 1)] = clip->channel(1)[i];
  }
  const double audioSeconds = 60.0 * minutes;
  std::printf("Loudness pass over %d min of 48 kHz stereo (programme-like, one thread)\n", minutes);

  double bestOurs = 1e30, bestTheirs = 1e30;
  for (int round = 0; round < 3; ++round) {
    // ---- Corvane ----
    const auto t0 = Clock::now();
    LoudnessProcessor ours(kRate, 2);
    ours.setOfflineFeed(true);
    for (int pass = 0; pass < minutes; ++pass) {
      for (FrameCount start = 0; start < clipFrames; start += chunk) {
        const FrameCount n = std::min(chunk, clipFrames - start);
        const float* ptrs[2] = {clip->channel(0) + start, clip->channel(1) + start};
        ours.updateTruePeak(ptrs, n);
        ours.process(ptrs, n);
      }
    }
    ours.flushPartialBlock();
    const double oursI = ours.integratedLUFS(), oursLRA = ours.loudnessRange();
    const double oursTP0 = ours.channelTruePeakDB(0), oursTP1 = ours.channelTruePeakDB(1);
    const double oursSP = ours.samplePeakDB(), oursM = ours.momentaryLUFS(), oursS = ours.shortTermLUFS();
    const std::size_t blocks = ours.blockHistory().size();
    const auto t1 = Clock::now();

    // ---- libebur128 ----
    ebur128_state* st = ebur128_init(2, static_cast<unsigned long>(kRate),
                                     EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK |
                                         EBUR128_MODE_SAMPLE_PEAK | EBUR128_MODE_M | EBUR128_MODE_S);
    for (int pass = 0; pass < minutes; ++pass) {
      for (FrameCount start = 0; start < clipFrames; start += chunk) {
        const FrameCount n = std::min(chunk, clipFrames - start);
        ebur128_add_frames_float(st, interleaved.data() + 2 * start, static_cast<std::size_t>(n));
      }
    }
    double I = 0, LRA = 0, tp0 = 0, tp1 = 0, sp0 = 0, sp1 = 0, M = 0, S = 0;
    ebur128_loudness_global(st, &I);
    ebur128_loudness_range(st, &LRA);
    ebur128_true_peak(st, 0, &tp0);
    ebur128_true_peak(st, 1, &tp1);
    ebur128_sample_peak(st, 0, &sp0);
    ebur128_sample_peak(st, 1, &sp1);
    ebur128_loudness_momentary(st, &M);
    ebur128_loudness_shortterm(st, &S);
    ebur128_destroy(&st);
    const auto t2 = Clock::now();

    const double a = seconds(t0, t1), b = seconds(t1, t2);
    bestOurs = std::min(bestOurs, a);
    bestTheirs = std::min(bestTheirs, b);
    std::printf("round %d  Corvane %.3f s (%.0fx realtime)   libebur128 %.3f s (%.0fx realtime)   ratio %.2fx\n",
                round + 1, a, audioSeconds / a, b, audioSeconds / b, b / a);
    if (round == 0) {
      std::printf("         Corvane    I %.3f LUFS  LRA %.3f LU  TP %.3f / %.3f dBTP  SP %.3f dBFS  M %.3f  S %.3f  (%zu blocks kept)\n",
                  oursI, oursLRA, oursTP0, oursTP1, oursSP, oursM, oursS, blocks);
      std::printf("         libebur128 I %.3f LUFS  LRA %.3f LU  TP %.3f / %.3f dBTP  SP %.3f dBFS  M %.3f  S %.3f\n", I,
                  LRA, 20 * std::log10(tp0), 20 * std::log10(tp1), 20 * std::log10(std::max(sp0, sp1)), M, S);
    }
  }
  std::printf("best: Corvane %.3f s, libebur128 %.3f s: Corvane is %.2fx libebur128's speed (%.0fx realtime)\n",
              bestOurs, bestTheirs, bestTheirs / bestOurs, audioSeconds / bestOurs);
  return 0;
}
