// The band filters of playback: a band-pass (high-pass at the low edge, low-pass at the high
// edge) or a band-reject around the geometric centre of a frequency selection.
//
// Two forms share one processing routine. The multichannel graph's filter (inside the render
// callback) uses RBJ cookbook high-pass / low-pass (Q = 1/√2) and a notch whose bandwidth is
// the selection's width; the two-channel graph's EQ uses the same high-pass / low-pass for a
// band-pass, and for a band-reject a peaking cut of -40 dB over the selection's width in
// octaves (at least 0.05).
//
// Edges are limited before the design: the low edge to 20 ... 19999 Hz, the high edge to
// 21 ... 20000 Hz, and both below 0.45 × the sample rate (a design at 20 kHz is unstable at
// 22.05 kHz, where it lies above Nyquist).
//
// Thread class: the design functions are pure and allocate nothing (any thread);
// processBiquadStages is real-time safe.
#pragma once

#include <array>
#include <optional>

namespace corvane {

// Coefficients already divided by a0.
struct BiquadCoeffs {
  float b0 = 1.0f;
  float b1 = 0.0f;
  float b2 = 0.0f;
  float a1 = 0.0f;
  float a2 = 0.0f;
};

// Stage 0 is `hp`, or `notch` when there is no `hp`; stage 1 is `lp`. A missing stage is
// skipped. A band-pass has hp and lp, a band-reject only notch.
struct BiquadFilterSpec {
  std::optional<BiquadCoeffs> hp;
  std::optional<BiquadCoeffs> lp;
  std::optional<BiquadCoeffs> notch;
};

enum class FreqFilterMode { bandPass, bandReject };

// A frequency selection in Hz (shared with the spectrum view); low ≤ high is not required.
struct FreqRange {
  double lowHz = 0.0;
  double highHz = 0.0;

  friend bool operator==(const FreqRange&, const FreqRange&) = default;
};

// The edges as the designs use them (see the header comment).
FreqRange limitFilterEdges(FreqRange range, double sampleRate);

// The callback filter of the multichannel graph, coefficients computed in 32-bit floats.
BiquadFilterSpec makeCallbackFilterSpec(FreqRange selection, FreqFilterMode mode,
                                        double sampleRate);
// The EQ of the two-channel graph: the same band-pass, or a -40 dB peaking band-reject.
BiquadFilterSpec makeEqFilterSpec(FreqRange selection, FreqFilterMode mode, double sampleRate);

// State of one channel: two stages of the transposed direct form II, (s1, s2) each. Kept and
// computed in double: in single precision the state's rounding noise lifts the stopband of a
// low corner at high rates by tenths of a dB (a 200 Hz high-pass at 96 kHz reads 0.2 dB high
// at 25 Hz), while the coefficients stay the 32-bit values of the design.
using BiquadChannelState = std::array<double, 4>;

// Runs the stages of `spec` in place over `frames` samples of one channel.
// y = b0 x + s1; s1 = b1 x - a1 y + s2; s2 = b2 x - a2 y.
void processBiquadStages(const BiquadFilterSpec& spec, BiquadChannelState& state, float* samples,
                         int frames) noexcept;

}  // namespace corvane
