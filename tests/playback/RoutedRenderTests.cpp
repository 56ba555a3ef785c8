// The offline mix of "Render to File…": which outputs are written, and what each phase does
// to its source's sign and signal.
#include <gtest/gtest.h>

#include <cmath>

#include "playback/RoutedRender.h"
#include "support/PlaybackTestSignals.h"

namespace corvane {
namespace {

ChannelSourceSlot slot(int src, float gain, RoutingPhase phase) { return ChannelSourceSlot{RoutingId::create(), src, gain, phase}; }

ChannelRoutingEntry entry(std::vector<ChannelSourceSlot> sources) {
  return ChannelRoutingEntry{RoutingId::create(), "Out", std::move(sources)};
}

TEST(RoutedRender, KeepsOnlyOutputsWithASourceInOrder) {
  const ChannelRoutings routings = {entry({slot(-1, 1.0f, RoutingPhase::inPhase)}),
                                    entry({slot(-1, 1.0f, RoutingPhase::inPhase), slot(1, 1.0f, RoutingPhase::invert)}),
                                    entry({slot(9, 1.0f, RoutingPhase::inPhase)}),
                                    entry({slot(0, 1.0f, RoutingPhase::inPhase)})};
  EXPECT_EQ(routedOutputIndexes(routings), (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(routedOutputIndexes({}).empty());
}

TEST(RoutedRender, PhasesSignTheGainOrTakeTheQuadrature) {
  const auto source = test::sineBuffer(2, 9600, 1000.0, 0.5);
  for (FrameCount i = 0; i < 9600; ++i) source->channel(1)[i] *= 0.25f;
  const ChannelRoutings routings = {
      entry({slot(0, 1.0f, RoutingPhase::inPhase), slot(1, 0.5f, RoutingPhase::invert)}),  // 0: ch0 − ch1/2
      entry({slot(0, 0.7f, RoutingPhase::plus90), slot(0, 0.7f, RoutingPhase::minus90)}),  // 1: cancels
      entry({slot(0, 1.0f, RoutingPhase::plus90)}),                                         // 2: quadrature
      entry({slot(0, 1.0f, RoutingPhase::minus90)}),                                        // 3: its negation
      entry({slot(-1, 1.0f, RoutingPhase::inPhase), slot(5, 1.0f, RoutingPhase::inPhase)}), // 4: silence
  };
  const auto out = buildRoutedBuffer(*source, routings, 5);
  ASSERT_TRUE(out);
  ASSERT_EQ(out->channelCount(), 5);
  EXPECT_EQ(out->frameLength(), 9600);
  EXPECT_EQ(out->sampleRate(), 48000.0);
  // More than two channels are discrete: no speaker of their own.
  EXPECT_EQ(out->channelPositions(), std::vector<ChannelPosition>(5, ChannelPosition::Unknown));
  EXPECT_FALSE(routedOutputFitsWav(3));
  EXPECT_TRUE(routedOutputFitsWav(2));
  for (FrameCount i = 0; i < 9600; ++i) {
    ASSERT_EQ(out->channel(0)[i], source->channel(0)[i] - 0.5f * source->channel(1)[i]) << i;
    ASSERT_EQ(out->channel(1)[i], 0.0f) << i;
    ASSERT_EQ(out->channel(3)[i], -out->channel(2)[i]) << i;
    ASSERT_EQ(out->channel(4)[i], 0.0f) << i;
  }
  // The quadrature is the tone a quarter period on, at its level, aligned with the source.
  const std::vector<float> ref(source->channel(0), source->channel(0) + 9600);
  const std::vector<float> quad(out->channel(2), out->channel(2) + 9600);
  const double shift = test::wrapDegrees(test::phaseDegrees(quad, 4800, 480, 1000.0, 48000.0) -
                                         test::phaseDegrees(ref, 4800, 480, 1000.0, 48000.0));
  EXPECT_NEAR(std::fabs(shift), 90.0, 1.0);
  EXPECT_NEAR(test::rms(quad, 4800, 480) / test::rms(ref, 4800, 480), 1.0, 0.06);

  // A count that isn't the routing's, or none, gives nothing.
  EXPECT_FALSE(buildRoutedBuffer(*source, routings, 4));
  EXPECT_FALSE(buildRoutedBuffer(*source, {}, 0));
}

}  // namespace
}  // namespace corvane
