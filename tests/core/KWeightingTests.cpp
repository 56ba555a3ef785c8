// The K-weighting filter at every rate against the standard's 48 kHz definition.
#include <gtest/gtest.h>

#include <cmath>

#include "core/KWeighting.h"

namespace corvane {
namespace {

double responseDB(const KWeightingCoefficients& k, double f, double rate) {
  return 10.0 * std::log10(biquadPowerResponse(k.shelf, f, rate) * biquadPowerResponse(k.highPass, f, rate));
}

TEST(KWeighting, At48kHzTheCoefficientsAreTheStandardsTables) {
  const KWeightingCoefficients k = kWeightingCoefficients(48000.0);
  // ITU-R BS.1770, table 1 (pre-filter) and table 2 (RLB weighting).
  EXPECT_NEAR(k.shelf.b0, 1.53512485958697, 1e-12);
  EXPECT_NEAR(k.shelf.b1, -2.69169618940638, 1e-12);
  EXPECT_NEAR(k.shelf.b2, 1.19839281085285, 1e-12);
  EXPECT_NEAR(k.shelf.a1, -1.69065929318241, 1e-12);
  EXPECT_NEAR(k.shelf.a2, 0.73248077421585, 1e-12);
  EXPECT_NEAR(k.highPass.b0, 1.0, 1e-12);
  EXPECT_NEAR(k.highPass.b1, -2.0, 1e-12);
  EXPECT_NEAR(k.highPass.b2, 1.0, 1e-12);
  EXPECT_NEAR(k.highPass.a1, -1.99004745483398, 1e-12);
  EXPECT_NEAR(k.highPass.a2, 0.99007225036621, 1e-12);
}

TEST(KWeighting, GainAt997HzIsTheOffsetTheLoudnessFormulaRemoves) {
  // BS.1770's −0.691 cancels the K-weighting gain at 997 Hz.
  for (double rate : {8000.0, 44100.0, 48000.0, 96000.0, 192000.0}) {
    EXPECT_NEAR(responseDB(kWeightingCoefficients(rate), 997.0, rate), 0.691, 0.01) << rate;
  }
}

TEST(KWeighting, EveryRateHasThe48kHzResponse) {
  const KWeightingCoefficients reference = kWeightingCoefficients(48000.0);
  for (double rate : {8000.0, 11025.0, 16000.0, 22050.0, 32000.0, 44100.0, 88200.0, 96000.0,
                      176400.0, 192000.0, 384000.0, 768000.0}) {
    const KWeightingCoefficients k = kWeightingCoefficients(rate);
    // Stable: both poles inside the unit circle (a2 < 1 and |a1| < 1 + a2).
    for (const Biquad& b : {k.shelf, k.highPass}) {
      EXPECT_LT(b.a2, 1.0) << rate;
      EXPECT_LT(std::fabs(b.a1), 1.0 + b.a2) << rate;
    }
    const double top = std::min(20000.0, 0.45 * rate);
    double worst = 0.0;
    for (double f = 20.0; f <= top; f *= 1.02) {
      worst = std::max(worst, std::fabs(responseDB(k, f, rate) - responseDB(reference, f, 48000.0)));
    }
    EXPECT_LE(worst, 0.01) << rate;
  }
}

TEST(KWeighting, ShapeOfTheCurve) {
  const KWeightingCoefficients k = kWeightingCoefficients(48000.0);
  EXPECT_NEAR(responseDB(k, 10000.0, 48000.0), 4.0, 0.1);  // the head's high shelf
  EXPECT_LT(responseDB(k, 20.0, 48000.0), -10.0);           // the high pass
}

}  // namespace
}  // namespace corvane
