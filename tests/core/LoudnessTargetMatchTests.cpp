#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/LoudnessTargetCatalog.h"
#include "core/LoudnessTargetMatch.h"

namespace corvane {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

LoudnessMeasurement reading(float integrated, float dialogGated = -kInf) {
  LoudnessMeasurement m;
  m.integratedLUFS = integrated;
  m.dialogGatedLUFS = dialogGated;
  m.truePeakDBTP = -3.0f;
  return m;
}

const LoudnessTarget& builtIn(const char* id) {
  return *LoudnessTargetCatalog::target(id);
}

TEST(LoudnessMatchGain, IsTheLevelDifferenceAsAFactor) {
  // 10^(4/20), worked out by hand: 1.58489319...
  ASSERT_TRUE(loudnessMatchGain(-16.0f, -20.0f).has_value());
  EXPECT_NEAR(*loudnessMatchGain(-16.0f, -20.0f), 1.5848932, 1e-7);
  EXPECT_NEAR(*loudnessMatchGain(-23.0f, -17.0f), 0.5011872, 1e-7);  // 10^(-6/20)
  EXPECT_DOUBLE_EQ(*loudnessMatchGain(-14.0f, -14.0f), 1.0);
  EXPECT_FALSE(loudnessMatchGain(-16.0f, -kInf).has_value());
  EXPECT_FALSE(loudnessMatchGain(-16.0f, std::numeric_limits<float>::quiet_NaN()).has_value());
  EXPECT_FALSE(loudnessMatchGain(-16.0f, kInf).has_value());
}

TEST(LoudnessTargetMatch, ToggleMatchesThenReleases) {
  LoudnessTargetMatch match;
  const auto& podcasts = builtIn("podcast.applePodcasts");  // -16, ceiling -1
  auto effects = match.toggle(podcasts, reading(-20.0f));
  EXPECT_EQ(match.matchID(), "podcast.applePodcasts");
  EXPECT_TRUE(match.isEnabled());
  EXPECT_NEAR(match.gain(), 1.5848932f, 1e-6f);
  EXPECT_NEAR(match.gainDB(), 4.0f, 1e-5f);
  EXPECT_EQ(effects.limiterCeilingDB, -1.0f);
  EXPECT_TRUE(effects.resetLimiter);

  // Another target takes over, with its own ceiling.
  effects = match.toggle(builtIn("broadcast.atscA85"), reading(-20.0f));
  EXPECT_EQ(match.matchID(), "broadcast.atscA85");
  EXPECT_NEAR(match.gain(), std::pow(10.0, -4.0 / 20.0), 1e-6);
  EXPECT_EQ(effects.limiterCeilingDB, -2.0f);

  // The same target again releases it.
  effects = match.toggle(builtIn("broadcast.atscA85"), reading(-20.0f));
  EXPECT_FALSE(match.matchID().has_value());
  EXPECT_FALSE(match.isEnabled());
  EXPECT_EQ(match.gain(), 1.0f);
  EXPECT_EQ(match.gainDB(), 0.0f);
  EXPECT_FALSE(effects.limiterCeilingDB.has_value());
  EXPECT_TRUE(effects.resetLimiter);
}

TEST(LoudnessTargetMatch, NeedsAFiniteLoudnessReadingOfItsSource) {
  LoudnessTargetMatch match;
  auto effects = match.toggle(builtIn("podcast.applePodcasts"), reading(-kInf));
  EXPECT_FALSE(match.isEnabled());
  EXPECT_FALSE(effects.resetLimiter);
  EXPECT_FALSE(effects.limiterCeilingDB.has_value());
  // RMS targets can't be matched, whatever the readings.
  LoudnessMeasurement everything = reading(-20.0f, -20.0f);
  everything.rmsDBFS = -20.0f;
  match.toggle(builtIn("podcast.acx"), everything);
  EXPECT_FALSE(match.isEnabled());
  // A dialog-gated target works from the gated reading, not the integrated one.
  match.toggle(builtIn("vod.netflix"), reading(-20.0f, -30.0f));
  EXPECT_TRUE(match.isEnabled());
  EXPECT_NEAR(match.gainDB(), 3.0f, 1e-5f);
  EXPECT_FALSE(matchReading(builtIn("vod.netflix"), reading(-20.0f)).has_value());
}

TEST(LoudnessTargetMatch, ReadingChangesRecomputeOrEndTheMatch) {
  auto selection = LoudnessTargetSelection::defaultSelection().withMode(LoudnessTargetMode::podcast);
  LoudnessTargetMatch match;
  match.toggle(builtIn("podcast.applePodcasts"), reading(-20.0f));

  // The display mode changed and the reading with it: -18 needs +2 dB.
  auto effects = match.displayModeChanged(selection, reading(-18.0f));
  EXPECT_TRUE(match.isEnabled());
  EXPECT_NEAR(match.gain(), std::pow(10.0, 2.0 / 20.0), 1e-6);
  EXPECT_TRUE(effects.resetLimiter);

  // Offline with no analysis: -inf ends the match.
  effects = match.displayModeChanged(selection, reading(-kInf));
  EXPECT_FALSE(match.matchID().has_value());
  EXPECT_FALSE(match.isEnabled());
  EXPECT_EQ(match.gain(), 1.0f);
  EXPECT_TRUE(effects.resetLimiter);

  // Without a match nothing happens.
  effects = match.displayModeChanged(selection, reading(-18.0f));
  EXPECT_FALSE(effects.resetLimiter);
}

TEST(LoudnessTargetMatch, EndsWhenItsTargetLeavesTheActiveList) {
  auto selection = LoudnessTargetSelection::defaultSelection().withMode(LoudnessTargetMode::podcast);
  LoudnessTargetMatch match;
  match.toggle(builtIn("podcast.applePodcasts"), reading(-20.0f));

  // Deselecting another target leaves the match alone.
  ASSERT_TRUE(selection.toggle("podcast.acx", LoudnessTargetMode::podcast, false));
  auto effects = match.selectionChanged(selection);
  EXPECT_TRUE(match.isEnabled());
  EXPECT_FALSE(effects.resetLimiter);

  ASSERT_TRUE(selection.toggle("podcast.applePodcasts", LoudnessTargetMode::podcast, false));
  effects = match.selectionChanged(selection);
  EXPECT_FALSE(match.isEnabled());
  EXPECT_EQ(match.gain(), 1.0f);
  EXPECT_TRUE(effects.resetLimiter);

  // Changing the chosen mode takes the matched target out of the active list too.
  match.toggle(builtIn("podcast.aesTD1008Speech"), reading(-20.0f));
  ASSERT_TRUE(match.isEnabled());
  selection.setMode(LoudnessTargetMode::music);
  match.selectionChanged(selection);
  EXPECT_FALSE(match.isEnabled());
}

}  // namespace
}  // namespace corvane
