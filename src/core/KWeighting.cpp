#include "core/KWeighting.h"

#include <cmath>
#include <numbers>

namespace corvane {
namespace {

// ITU-R BS.1770, tables 1 and 2: the 48 kHz definition.
constexpr double kReferenceRate = 48000.0;
constexpr Biquad kShelf48k{1.53512485958697, -2.69169618940638, 1.19839281085285,
                           -1.69065929318241, 0.73248077421585};
constexpr Biquad kHighPass48k{1.0, -2.0, 1.0, -1.99004745483398, 0.99007225036621};

// A second-order section in prewarped bilinear form:
//   H(s) = (vh·s² + vb·(ω0/Q)·s + vl·ω0²) / (s² + (ω0/Q)·s + ω0²),
// with K = tan(π·f0/fs) the prewarped ω0. A shelf has vl = 1, a high pass vb = vl = 0.
struct Prototype {
  double f0;    // Hz
  double q;
  double vh;    // gain at high frequencies
  double vb;    // band term
  double vl;    // gain at DC
  double gain;  // extra factor on the numerator (keeps the standard's passband level)
};

struct Denominator {
  double k;       // tan(π·f0/fs)
  double kOverQ;
  double d;       // 1 + K/Q + K²: the a0 the published coefficients were divided by
};

// Solves a1 = 2(K² − 1)/d and a2 = (1 − K/Q + K²)/d for K and K/Q.
Denominator solveDenominator(const Biquad& biquad) {
  const double r = (1.0 + biquad.a2) / biquad.a1;  // = (1 + K²) / (K² − 1)
  const double k2 = (r + 1.0) / (r - 1.0);
  const double d = 2.0 * (1.0 + k2) / (1.0 + biquad.a2);
  return {std::sqrt(k2), d - 1.0 - k2, d};
}

Prototype shelfPrototype() {
  const Denominator den = solveDenominator(kShelf48k);
  const double k2 = den.k * den.k;
  Prototype p{};
  p.f0 = kReferenceRate * std::atan(den.k) / std::numbers::pi;
  p.q = den.k / den.kOverQ;
  // b1·d = 2(K² − vh); (b0 − b2)·d = 2·vb·K/Q.
  p.vh = k2 - kShelf48k.b1 * den.d / 2.0;
  p.vb = (kShelf48k.b0 - kShelf48k.b2) * den.d / (2.0 * den.kOverQ);
  p.vl = 1.0;
  p.gain = 1.0;
  return p;
}

Prototype highPassPrototype() {
  const Denominator den = solveDenominator(kHighPass48k);
  Prototype p{};
  p.f0 = kReferenceRate * std::atan(den.k) / std::numbers::pi;
  p.q = den.k / den.kOverQ;
  p.vh = 1.0;
  p.vb = 0.0;
  p.vl = 0.0;
  // The published numerator is 1, −2, 1 without the division by d, i.e. the prototype times d.
  p.gain = den.d * kHighPass48k.b0;
  return p;
}

Biquad discretise(const Prototype& p, double sampleRate) {
  const double k = std::tan(std::numbers::pi * p.f0 / sampleRate);
  const double k2 = k * k;
  const double kq = k / p.q;
  const double d = 1.0 + kq + k2;
  Biquad b{};
  b.b0 = p.gain * (p.vh + p.vb * kq + p.vl * k2) / d;
  b.b1 = p.gain * 2.0 * (p.vl * k2 - p.vh) / d;
  b.b2 = p.gain * (p.vh - p.vb * kq + p.vl * k2) / d;
  b.a1 = 2.0 * (k2 - 1.0) / d;
  b.a2 = (1.0 - kq + k2) / d;
  return b;
}

}  // namespace

KWeightingCoefficients kWeightingCoefficients(double sampleRate) {
  static const Prototype shelf = shelfPrototype();
  static const Prototype highPass = highPassPrototype();
  return {discretise(shelf, sampleRate), discretise(highPass, sampleRate)};
}

double biquadPowerResponse(const Biquad& b, double frequencyHz, double sampleRate) {
  const double w = 2.0 * std::numbers::pi * frequencyHz / sampleRate;
  const double c1 = std::cos(w), s1 = std::sin(w), c2 = std::cos(2 * w), s2 = std::sin(2 * w);
  const double nr = b.b0 + b.b1 * c1 + b.b2 * c2, ni = -(b.b1 * s1 + b.b2 * s2);
  const double dr = 1.0 + b.a1 * c1 + b.a2 * c2, di = -(b.a1 * s1 + b.a2 * s2);
  return (nr * nr + ni * ni) / (dr * dr + di * di);
}

}  // namespace corvane
