// BS.1770 channel weights by position, and a 5.1 programme that uses them.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "TestSignals.h"
#include "core/ChannelOrder.h"

namespace corvane::test {
namespace {

using P = ChannelPosition;
using Weights = std::vector<double>;

TEST(ChannelWeights, CanonicalLayoutsWhenTheBufferHasNoPositions) {
  EXPECT_EQ(ChannelOrder::bs1770Weights({}, 1), (Weights{1.0}));
  EXPECT_EQ(ChannelOrder::bs1770Weights({}, 2), (Weights{1.0, 1.0}));
  EXPECT_EQ(ChannelOrder::bs1770Weights({}, 4), (Weights{1.0, 1.0, 1.41, 1.41}));
  EXPECT_EQ(ChannelOrder::bs1770Weights({}, 5), (Weights{1.0, 1.0, 1.0, 1.41, 1.41}));
  EXPECT_EQ(ChannelOrder::bs1770Weights({}, 6), (Weights{1.0, 1.0, 1.0, 0.0, 1.41, 1.41}));
  // 7.1: Ls/Rs are the rear pair (beyond 120°), Lss/Rss the sides.
  EXPECT_EQ(ChannelOrder::bs1770Weights({}, 8), (Weights{1.0, 1.0, 1.0, 0.0, 1.0, 1.0, 1.41, 1.41}));
  // Counts without a known layout: discrete channels, all weighted alike.
  EXPECT_EQ(ChannelOrder::bs1770Weights({}, 7), Weights(7, 1.0));
  EXPECT_TRUE(ChannelOrder::bs1770Weights({}, 0).empty());
}

TEST(ChannelWeights, PositionsDecideWhereTheyAreGiven) {
  // 5.1 with side channels (WAVE_FORMAT_EXTENSIBLE 0x60F): the sides are the surrounds.
  const std::vector<P> sides = {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::SideLeft, P::SideRight};
  EXPECT_EQ(ChannelOrder::bs1770Weights(sides, 6), (Weights{1.0, 1.0, 1.0, 0.0, 1.41, 1.41}));
  // 5.1 written with back channels (0x3F): without sides, the back pair is the surround pair.
  const std::vector<P> backs = {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight};
  EXPECT_EQ(ChannelOrder::bs1770Weights(backs, 6), (Weights{1.0, 1.0, 1.0, 0.0, 1.41, 1.41}));
  // An LFE anywhere is excluded; a stereo pair in odd order keeps its weights.
  const std::vector<P> odd = {P::LowFrequency, P::FrontRight, P::FrontLeft};
  EXPECT_EQ(ChannelOrder::bs1770Weights(odd, 3), (Weights{0.0, 1.0, 1.0}));
  // Positions that disagree with the count are ignored in favour of the canonical layout.
  EXPECT_EQ(ChannelOrder::bs1770Weights(odd, 6), ChannelOrder::bs1770Weights({}, 6));
  // Through the buffer.
  auto buffer = AudioBuffer::createZeroed(6, 16, 48000.0);
  buffer->setChannelPositions(sides);
  EXPECT_EQ(ChannelOrder::bs1770Weights(*buffer), (Weights{1.0, 1.0, 1.0, 0.0, 1.41, 1.41}));
}

// Each channel of a 5.1 programme carries its own tone; the LFE carries a loud 60 Hz tone that
// must not count. Expected: the weighted energy sum of each channel's loudness measured alone
// (as mono, by libebur128).
TEST(ChannelWeights, FivePointOneWithOneToneOnEachChannel) {
  const double rate = 48000.0;
  const double frequencies[6] = {500, 700, 1000, 60, 1500, 2500};
  const double levels[6] = {-26, -24, -22, -3, -30, -28};
  const Weights weights = ChannelOrder::bs1770Weights({}, 6);
  Planar signal(rate, 6);
  double expectedEnergy = 0.0;
  for (int c = 0; c < 6; ++c) {
    const Planar tone = sine(rate, 1, 10.0, frequencies[c], dbfs(levels[c]));
    signal.channels[static_cast<std::size_t>(c)] = tone.channels[0];
    const double alone = ebur128Measure(tone).integrated;
    expectedEnergy += weights[static_cast<std::size_t>(c)] * std::pow(10.0, alone / 10.0);
  }
  const double expected = 10.0 * std::log10(expectedEnergy);
  const Measured ours = measure(signal, weights);
  EXPECT_NEAR(ours.integrated, expected, 0.05);
  const OracleResult oracle = ebur128Measure(signal, {EBUR128_LEFT, EBUR128_RIGHT, EBUR128_CENTER, EBUR128_UNUSED,
                                                      EBUR128_LEFT_SURROUND, EBUR128_RIGHT_SURROUND});
  EXPECT_NEAR(ours.integrated, oracle.integrated, 0.05);
  // The LFE tone is 19 dB above everything else: had it counted, the reading would be far up.
  EXPECT_LT(ours.integrated, -17.0);
}

}  // namespace
}  // namespace corvane::test
