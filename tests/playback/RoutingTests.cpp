// Routing records and their matrix operations, gain texts, quadrature needs and the edit-mode
// channel map. Expected values are worked out by hand from the routing's rules.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "playback/ChannelRouting.h"
#include "playback/PlaybackRates.h"
#include "playback/RenderRouting.h"
#include "playback/RoutingGain.h"

namespace corvane {
namespace {

const std::vector<std::string> k51Labels = {"L", "R", "C", "LFE", "Ls", "Rs"};

std::vector<int> sourcesOf(const ChannelRoutingEntry& entry) {
  std::vector<int> sources;
  for (const auto& slot : entry.sources) sources.push_back(slot.sourceChannelIndex);
  return sources;
}

TEST(DefaultRoutings, MonoSpreadsToTheFirstPairAtMinusThreeDB) {
  const ChannelRoutings routings = defaultRoutings(1, 4, {});
  ASSERT_EQ(routings.size(), 4u);
  for (int o = 0; o < 2; ++o) {
    ASSERT_EQ(routings[o].sources.size(), 1u);
    EXPECT_EQ(routings[o].sources[0].sourceChannelIndex, 0);
    EXPECT_EQ(routings[o].sources[0].gain, 0.70794576f);
    EXPECT_NEAR(20.0 * std::log10(routings[o].sources[0].gain), -3.0, 0.0005);
  }
  EXPECT_EQ(sourcesOf(routings[2]), std::vector<int>{-1});
  EXPECT_EQ(sourcesOf(routings[3]), std::vector<int>{-1});
  // A mono file on a mono device keeps its single output at unity.
  const ChannelRoutings single = defaultRoutings(1, 1, {});
  ASSERT_EQ(single.size(), 1u);
  EXPECT_EQ(single[0].sources[0].gain, 1.0f);
}

TEST(DefaultRoutings, LabelsPlaceholdersAndFreshIds) {
  const ChannelRoutings stereoOn51 = defaultRoutings(2, 6, k51Labels);
  ASSERT_EQ(stereoOn51.size(), 6u);
  const std::vector<std::string> expected = {"L Out", "R Out", "C Out", "LFE Out", "Ls Out", "Rs Out"};
  std::set<std::string> ids;
  for (int o = 0; o < 6; ++o) {
    EXPECT_EQ(stereoOn51[o].outputChannelLabel, expected[o]);
    EXPECT_EQ(sourcesOf(stereoOn51[o]), std::vector<int>{o < 2 ? o : -1});
    EXPECT_EQ(stereoOn51[o].sources[0].phase, RoutingPhase::inPhase);
    ids.insert(stereoOn51[o].id.toString());
    ids.insert(stereoOn51[o].sources[0].id.toString());
  }
  EXPECT_EQ(ids.size(), 12u);
  // Seven outputs have no layout of their own: "Ch<n> Out".
  const ChannelRoutings seven = defaultRoutings(7, 7, {});
  for (int o = 0; o < 7; ++o) EXPECT_EQ(seven[o].outputChannelLabel, "Ch" + std::to_string(o + 1) + " Out");
  EXPECT_TRUE(defaultRoutings(2, 0, {}).empty());
}

TEST(RoutingId, IsAVersionFourUuid) {
  const RoutingId id = RoutingId::create();
  const std::string text = id.toString();
  ASSERT_EQ(text.size(), 36u);
  EXPECT_EQ(text[14], '4');
  EXPECT_TRUE(text[19] == '8' || text[19] == '9' || text[19] == 'a' || text[19] == 'b');
  EXPECT_NE(RoutingId::create(), id);
}

TEST(MatrixOperations, PlaceholderIsReplacedAndRestored) {
  ChannelRoutings routings = defaultRoutings(2, 3, {});
  // Output 2 holds a placeholder; adding a source replaces it rather than joining it.
  EXPECT_TRUE(addRoute(routings, 2, 1));
  EXPECT_EQ(sourcesOf(routings[2]), std::vector<int>{1});
  EXPECT_EQ(routings[2].sources[0].gain, 1.0f);
  // A second source joins.
  EXPECT_TRUE(addRoute(routings, 2, 0));
  EXPECT_EQ(sourcesOf(routings[2]), (std::vector<int>{1, 0}));
  // The same source again changes nothing.
  const ChannelRoutings before = routings;
  EXPECT_FALSE(addRoute(routings, 2, 0));
  EXPECT_EQ(routings, before);
  // Removing both leaves one placeholder at unity, in phase.
  EXPECT_TRUE(removeRoute(routings, 2, 1));
  EXPECT_TRUE(removeRoute(routings, 2, 0));
  ASSERT_EQ(routings[2].sources.size(), 1u);
  EXPECT_EQ(routings[2].sources[0].sourceChannelIndex, -1);
  EXPECT_EQ(routings[2].sources[0].gain, 1.0f);
  EXPECT_FALSE(removeRoute(routings, 2, 0));
  // An output past the routing does nothing.
  EXPECT_FALSE(addRoute(routings, 3, 0));
  EXPECT_FALSE(routingGainFor(routings, 3, 0).has_value());
}

TEST(MatrixOperations, GainEditsClampAndCycle) {
  ChannelRoutings routings = defaultRoutings(2, 2, {});
  EXPECT_TRUE(setRouteGainDB(routings, 0, 0, 30.0));
  EXPECT_FLOAT_EQ(*routingGainFor(routings, 0, 0), 15.848932f);
  EXPECT_TRUE(setRouteGainDB(routings, 0, 0, -6.0));
  EXPECT_NEAR(*routingGainFor(routings, 0, 0), 0.501187, 1e-6);
  EXPECT_TRUE(adjustRouteGain(routings, 0, 0, -30.0));
  EXPECT_NEAR(routingGainDB(*routingGainFor(routings, 0, 0)), -24.0, 1e-5);
  // From silence an adjustment starts at -60 dB and lands on the floor of the range.
  routings[1].sources[0].gain = 0.0f;
  EXPECT_TRUE(adjustRouteGain(routings, 1, 1, 10.0));
  EXPECT_NEAR(routingGainDB(*routingGainFor(routings, 1, 1)), -24.0, 1e-5);
  EXPECT_TRUE(resetRouteGain(routings, 1, 1));
  EXPECT_EQ(*routingGainFor(routings, 1, 1), 1.0f);
  // The phasor's cycle.
  std::vector<RoutingPhase> seen;
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(cycleRoutePhase(routings, 0, 0));
    seen.push_back(*routingPhaseFor(routings, 0, 0));
  }
  EXPECT_EQ(seen, (std::vector<RoutingPhase>{RoutingPhase::plus90, RoutingPhase::minus90,
                                             RoutingPhase::invert, RoutingPhase::inPhase}));
  EXPECT_FALSE(setRouteGainDB(routings, 0, 1, 0.0));  // output 0 has no slot of channel 1
}

TEST(RoutingGainText, ParsesTypedLevels) {
  EXPECT_EQ(parseRoutingGainText("+30"), 30.0);
  EXPECT_EQ(parseRoutingGainText("-6 dB"), -6.0);
  EXPECT_EQ(parseRoutingGainText("  -6DB "), -6.0);
  EXPECT_EQ(parseRoutingGainText("\xE2\x88\x92" "4.5 db"), -4.5);
  EXPECT_EQ(parseRoutingGainText("3.25"), 3.25);
  EXPECT_FALSE(parseRoutingGainText("loud").has_value());
  EXPECT_FALSE(parseRoutingGainText("").has_value());
  EXPECT_FALSE(parseRoutingGainText("dB").has_value());
  EXPECT_FALSE(parseRoutingGainText("--6").has_value());
  EXPECT_FALSE(parseRoutingGainText("6 7").has_value());
  // A typed +30 lands at +24 once applied.
  EXPECT_FLOAT_EQ(routingGainFromDB(*parseRoutingGainText("+30")), 15.848932f);
}

TEST(RoutingGainText, FormatsValuesAndEditText) {
  EXPECT_EQ(formatRoutingGainValue(1.0f), "0.0");
  EXPECT_EQ(formatRoutingGainValue(routingGainFromDB(0.04)), "0.0");
  EXPECT_TRUE(isUnityRoutingGain(routingGainFromDB(-0.04)));
  EXPECT_EQ(formatRoutingGainValue(routingGainFromDB(6.0)), "+6.0");
  EXPECT_EQ(formatRoutingGainValue(routingGainFromDB(-3.0)), "-3.0");
  EXPECT_EQ(formatRoutingGainValue(0.70794576f), "-3.0");
  EXPECT_EQ(formatRoutingGainEditText(routingGainFromDB(6.0)), "6.0");
  EXPECT_EQ(formatRoutingGainEditText(routingGainFromDB(-12.34)), "-12.3");
}

TEST(RoutingPhases, LabelsRawValuesAndQuadratureNeeds) {
  EXPECT_EQ(routingPhaseLabel(RoutingPhase::minus90), "\xE2\x88\x92" "90°");
  EXPECT_EQ(routingPhaseFromDegrees(-90), RoutingPhase::minus90);
  EXPECT_FALSE(routingPhaseFromDegrees(45).has_value());

  ChannelRoutings routings = defaultRoutings(70, 3, {});
  routings[0].sources[0].phase = RoutingPhase::invert;
  EXPECT_FALSE(phaseShiftNeeds(routings).anyPhaseShift);  // 180° needs no filter
  routings[1].sources[0].phase = RoutingPhase::minus90;
  PhaseShiftNeeds needs = phaseShiftNeeds(routings);
  EXPECT_TRUE(needs.anyPhaseShift);
  EXPECT_EQ(needs.srcQuadMask, 0b10u);
  // A source from 64 on sets the flag but has no bit.
  addRoute(routings, 2, 65);
  routings[2].sources[1].phase = RoutingPhase::plus90;
  needs = phaseShiftNeeds(routings);
  EXPECT_EQ(needs.srcQuadMask, 0b10u);
}

TEST(MonitorModes, RawValues) {
  EXPECT_EQ(monitorModeRawValue(MonitorMode::pre), "PRE");
  EXPECT_EQ(monitorModeFromRawValue("POST"), MonitorMode::post);
  EXPECT_FALSE(monitorModeFromRawValue("post").has_value());
}

TEST(EditModeChannelMap, FollowsTheFirstSlotWithinTheGraph) {
  ChannelRoutings routings = defaultRoutings(2, 4, {});
  // out 0: L, out 1: R, out 2 and 3 placeholders → silent.
  EXPECT_EQ(editModeChannelMap(routings, 4, 2), (std::vector<std::int32_t>{0, 1, -1, -1}));
  // Output 2 given channel 1 plays it; an output whose first slot is outside the graph skips
  // to the next slot that is inside.
  addRoute(routings, 2, 1);
  routings[3].sources = {ChannelSourceSlot{RoutingId::create(), 5, 1.0f, RoutingPhase::inPhase},
                         ChannelSourceSlot{RoutingId::create(), 0, 1.0f, RoutingPhase::inPhase}};
  EXPECT_EQ(editModeChannelMap(routings, 4, 2), (std::vector<std::int32_t>{0, 1, 1, 0}));
  // A mono file has only graph channel 0; outputs past the routing play their own index if
  // that exists.
  EXPECT_EQ(editModeChannelMap(defaultRoutings(1, 2, {}), 4, 1),
            (std::vector<std::int32_t>{0, 0, -1, -1}));
  EXPECT_EQ(editModeChannelMap({}, 3, 2), (std::vector<std::int32_t>{0, 1, -1}));
  EXPECT_TRUE(editModeChannelMap(routings, 0, 2).empty());
  // The identity routing of edit mode.
  const ChannelRoutings identity = editModeIdentityRoutings(1);
  EXPECT_EQ(identity[0].outputChannelLabel, "L");
  EXPECT_EQ(sourcesOf(identity[1]), std::vector<int>{0});
}

TEST(RenderRouting, DropsPlaceholdersAndKeepsOrder) {
  ChannelRoutings routings = defaultRoutings(2, 3, {});
  addRoute(routings, 0, 1);
  routings[0].sources[1].gain = 0.5f;
  routings[0].sources[1].phase = RoutingPhase::invert;
  const RenderRouting compiled = compileRenderRouting(routings);
  ASSERT_EQ(compiled.outputCount(), 3);
  EXPECT_EQ(compiled.firstSource, (std::vector<int>{0, 2, 3, 3}));
  EXPECT_EQ(compiled.sources[1].channel, 1);
  EXPECT_EQ(compiled.sources[1].gain, 0.5f);
  EXPECT_EQ(compiled.sources[1].phase, RoutingPhase::invert);
}

TEST(PlaybackRates, LabelsAndPitch) {
  std::vector<std::string> labels;
  for (double r : kPlaybackRateChoices) labels.push_back(playbackRateLabel(r));
  EXPECT_EQ(labels, (std::vector<std::string>{"0.25×", "0.5×", "0.75×", "1×", "1.25×", "1.5×", "2×"}));
  EXPECT_EQ(playbackPitchCents(2.0, false), 1200.0);
  EXPECT_EQ(playbackPitchCents(2.0, true), 0.0);
  EXPECT_NEAR(playbackPitchCents(0.5, false), -1200.0, 1e-9);
  EXPECT_EQ(limitPlaybackRate(4.0), 2.0);
  EXPECT_EQ(limitPlaybackRate(0.1), 0.25);
}

}  // namespace
}  // namespace corvane
