// HilbertPhaseShifter: a 90° phase-shift pair for one channel.
//
// A 101-tap linear-phase FIR Hilbert transformer (equiripple design). It gives two rows:
//   reference   the input delayed by the filter's latency, kLatencyFrames = 50 frames;
//   quadrature  the same signal shifted by 90°: it lags the reference by a quarter period
//               (cos in, sin out), and its magnitude follows the reference's within ±0.5 dB
//               over the band below.
// Pass the quadrature row for a +90° source and its negation for −90°; mixing the reference
// with either keeps the two time-aligned.
//
// Band where |quadrature| stays within ±0.5 dB of |reference|: from 0.00708 to 0.49292 of the
// sample rate, that is 340 Hz ... 23.66 kHz at 48 kHz (312 Hz ... 21.74 kHz at 44.1 kHz,
// 680 Hz ... 47.3 kHz at 96 kHz). Below the band the quadrature falls towards 0 at DC: a
// finite filter cannot shift bass by 90°. The phase is exactly 90° at every frequency.
//
// Thread class: construction allocates; process() and reset() allocate nothing, never block and
// never throw, so a shifter per source channel can live in the render callback. One shifter
// serves one channel and one thread at a time; it keeps the last 100 input frames between
// calls, so consecutive calls process one continuous signal.
#pragma once

#include <vector>

namespace corvane {

class HilbertPhaseShifter {
 public:
  static constexpr int kTapCount = 101;
  static constexpr int kLatencyFrames = (kTapCount - 1) / 2;
  // Edges of the ±0.5 dB band as fractions of the sample rate.
  static constexpr double kBandLowFraction = 0.00708;
  static constexpr double kBandHighFraction = 0.5 - kBandLowFraction;

  HilbertPhaseShifter();

  // Reads `count` frames of `input` and writes `count` frames of the reference row and, when
  // `quadrature` is not null, of the quadrature row. `reference` must not be null. The input
  // may be the same array as either output. count below 1 does nothing.
  void process(const float* input, int count, float* reference, float* quadrature) noexcept;

  // Forgets the history: the next call starts from silence.
  void reset() noexcept;

 private:
  static constexpr int kHistory = kTapCount - 1;
  static constexpr int kChunk = 1024;
  // [history | chunk]: the filter reads straight through it without wrapping.
  std::vector<float> _window;
};

}  // namespace corvane
