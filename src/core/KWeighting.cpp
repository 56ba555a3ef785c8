#include "core/KWeighting.h"

#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <optional>

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

// A polynomial 1 + q1·u + q2·u² (u = z⁻¹) and gain g whose power response
// |g·(1 + q1·e^−jw + q2·e^−2jw)|² equals c0 + c1·cos w + c2·cos 2w, with both zeros inside the
// unit circle. With x = cos w the power is a quadratic in x; each of its roots x_r gives the
// zero z_r = x_r − sqrt(x_r² − 1) or its reciprocal, whichever lies inside.
struct Factor {
  double g, q1, q2;
};
std::optional<Factor> factorPower(double c0, double c1, double c2) {
  using C = std::complex<double>;
  const double a = 2.0 * c2, b = c1, c = c0 - c2;
  if (std::fabs(a) < 1e-300) return std::nullopt;
  const C root = std::sqrt(C(b * b - 4.0 * a * c));
  const std::array<C, 2> xs = {(-b + root) / (2.0 * a), (-b - root) / (2.0 * a)};
  std::array<C, 2> zs;
  for (std::size_t i = 0; i < 2; ++i) {
    const C s = std::sqrt(xs[i] * xs[i] - 1.0);
    C z = xs[i] - s;
    if (std::abs(z) > 1.0) z = xs[i] + s;
    if (!(std::abs(z) < 1.0)) return std::nullopt;  // a zero on the unit circle: not a power
    zs[i] = z;
  }
  const double q1 = -(zs[0] + zs[1]).real();
  const double q2 = (zs[0] * zs[1]).real();
  const double atDc = (1.0 + q1 + q2) * (1.0 + q1 + q2);
  const double power = c0 + c1 + c2;
  if (!(atDc > 0.0) || !(power > 0.0)) return std::nullopt;
  return Factor{std::sqrt(power / atDc), q1, q2};
}

// Below 44.1 kHz the shelf's f0 sits high enough in the band that the bilinear transform bends
// the response by up to 0.2 dB (at 8 kHz). There the biquad is fitted instead: the power
// response of a biquad is a ratio of cosine polynomials, linear in their coefficients, so a
// weighted least-squares fit to the 48 kHz response over 20 Hz ... 0.46 × rate is a 5 × 5
// linear system. A few Lawson reweightings move the fit towards equal ripple, and spectral
// factorisation turns the result back into a stable biquad. The fit stays within 0.007 dB of
// the 48 kHz response up to 0.45 × rate.
std::optional<Biquad> fittedShelf(double sampleRate) {
  constexpr int kPoints = 400;
  constexpr int kIterations = 6;
  std::array<double, kPoints> target{}, cos1{}, cos2{}, weight{};
  for (int i = 0; i < kPoints; ++i) {
    const double f = 20.0 * std::pow(0.46 * sampleRate / 20.0, i / (kPoints - 1.0));
    const double w = 2.0 * std::numbers::pi * f / sampleRate;
    target[i] = biquadPowerResponse(kShelf48k, f, kReferenceRate);
    cos1[i] = std::cos(w);
    cos2[i] = std::cos(2.0 * w);
    weight[i] = 1.0;
  }
  std::array<double, 5> x{};
  for (int iteration = 0; iteration < kIterations; ++iteration) {
    // Rows of B0 + B1·c1 + B2·c2 − T·A1·c1 − T·A2·c2 = T, divided by T (relative error).
    std::array<std::array<double, 6>, 5> normal{};  // [row][col], last column the right side
    for (int i = 0; i < kPoints; ++i) {
      const double t = target[i], v = weight[i];
      const std::array<double, 5> row = {v / t, v * cos1[i] / t, v * cos2[i] / t, -v * cos1[i], -v * cos2[i]};
      for (int r = 0; r < 5; ++r) {
        for (int c = 0; c < 5; ++c) normal[r][c] += row[r] * row[c];
        normal[r][5] += row[r] * v;
      }
    }
    for (int col = 0; col < 5; ++col) {  // Gauss–Jordan with partial pivoting
      int pivot = col;
      for (int r = col + 1; r < 5; ++r) {
        if (std::fabs(normal[r][col]) > std::fabs(normal[pivot][col])) pivot = r;
      }
      std::swap(normal[col], normal[pivot]);
      if (std::fabs(normal[col][col]) < 1e-300) return std::nullopt;
      for (int r = 0; r < 5; ++r) {
        if (r == col) continue;
        const double factor = normal[r][col] / normal[col][col];
        for (int c = col; c < 6; ++c) normal[r][c] -= factor * normal[col][c];
      }
    }
    for (int r = 0; r < 5; ++r) x[r] = normal[r][5] / normal[r][r];
    // Lawson: points with more error get more weight next time.
    std::array<double, kPoints> error{};
    double mean = 0.0;
    for (int i = 0; i < kPoints; ++i) {
      const double fit = (x[0] + x[1] * cos1[i] + x[2] * cos2[i]) / (1.0 + x[3] * cos1[i] + x[4] * cos2[i]);
      error[i] = std::fabs(std::log(fit / target[i]));
      mean += error[i] / kPoints;
    }
    if (!(mean > 0.0)) break;
    for (int i = 0; i < kPoints; ++i) weight[i] *= std::sqrt(error[i] / mean);
  }
  const auto numerator = factorPower(x[0], x[1], x[2]);
  const auto denominator = factorPower(1.0, x[3], x[4]);
  if (!numerator || !denominator) return std::nullopt;
  const double gain = numerator->g / denominator->g;
  return Biquad{gain, gain * numerator->q1, gain * numerator->q2, denominator->q1, denominator->q2};
}

}  // namespace

KWeightingCoefficients kWeightingCoefficients(double sampleRate) {
  static const Prototype shelf = shelfPrototype();
  static const Prototype highPass = highPassPrototype();
  Biquad shelfBiquad = discretise(shelf, sampleRate);
  if (sampleRate < 44100.0) {
    if (const auto fitted = fittedShelf(sampleRate)) shelfBiquad = *fitted;
  }
  return {shelfBiquad, discretise(highPass, sampleRate)};
}

double biquadPowerResponse(const Biquad& b, double frequencyHz, double sampleRate) {
  const double w = 2.0 * std::numbers::pi * frequencyHz / sampleRate;
  const double c1 = std::cos(w), s1 = std::sin(w), c2 = std::cos(2 * w), s2 = std::sin(2 * w);
  const double nr = b.b0 + b.b1 * c1 + b.b2 * c2, ni = -(b.b1 * s1 + b.b2 * s2);
  const double dr = 1.0 + b.a1 * c1 + b.a2 * c2, di = -(b.a1 * s1 + b.a2 * s2);
  return (nr * nr + ni * ni) / (dr * dr + di * di);
}

}  // namespace corvane
