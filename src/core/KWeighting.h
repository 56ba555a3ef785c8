// KWeighting: the BS.1770 K-weighting filter for any sample rate.
//
// The standard defines the filter only at 48 kHz, as two biquads (a high shelf modelling the
// head, then a high pass), and asks other rates for "the same frequency response". We recover
// the analogue prototype each 48 kHz biquad is the prewarped bilinear transform of (shelf:
// f0 ≈ 1681.97 Hz, Q ≈ 0.70718, +4.0 dB; high pass: f0 ≈ 38.135 Hz, Q ≈ 0.50033) by solving the
// transform backwards from the published coefficients, then transform that prototype at the
// requested rate, prewarped at its own f0. At 48 kHz this gives the published coefficients
// back (to 1e-15); from 44.1 kHz up the response stays within 0.01 dB of the 48 kHz one up
// to 20 kHz. Below 44.1 kHz the transform would bend the shelf by up to 0.2 dB (at 8 kHz), so
// there the shelf biquad is fitted to the 48 kHz response instead (see KWeighting.cpp), within
// 0.007 dB up to 0.45 × the rate. The high pass keeps the standard's passband gain (its
// numerator 1, −2, 1 at 48 kHz is 0.043 dB above unity), so every rate reads the same level,
// not just the same shape.
//
// Thread class: pure functions, any thread.
#pragma once

namespace corvane {

// y = b0·x + b1·x₋₁ + b2·x₋₂ − a1·y₋₁ − a2·y₋₂ (a0 = 1).
struct Biquad {
  double b0, b1, b2, a1, a2;
};

struct KWeightingCoefficients {
  Biquad shelf;     // stage 1
  Biquad highPass;  // stage 2
};

// sampleRate must be positive and above 2 × 1682 Hz (the shelf's f0 must lie below Nyquist);
// LoudnessProcessor admits 8 kHz and up.
KWeightingCoefficients kWeightingCoefficients(double sampleRate);

// |H(f)|² of a biquad at frequency f for sample rate fs; for tests and plots.
double biquadPowerResponse(const Biquad& biquad, double frequencyHz, double sampleRate);

}  // namespace corvane
