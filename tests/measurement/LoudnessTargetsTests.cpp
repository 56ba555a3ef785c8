// Delivery targets in the session: verdicts for files made at known loudness (libebur128 sets
// the level), the live match and what it hands the render path, the selection and display mode
// kept in the settings, the Normalize and Limit requests and the violation lists.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <string>

#include "SessionTestSupport.h"
#include "core/TruePeakLimiterDSP.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LoudnessTargets.h"
#include "playback/Transport.h"
#include "session/BackgroundWork.h"

namespace corvane::test {
namespace {

constexpr double kRate = 48000.0;

// Six seconds of a stereo 1 kHz tone at `lufs` integrated loudness by libebur128: its true peak
// lies near the same figure, far under every target's ceiling.
Planar toneAt(double lufs) {
  Planar p = sine(kRate, 2, 6.0, 1000.0, 0.1);
  const double measured = ebur128Measure(p).integrated;
  const float gain = static_cast<float>(dbfs(lufs - measured));
  for (auto& channel : p.channels) {
    for (float& s : channel) s *= gain;
  }
  return p;
}

class LoudnessTargetsTest : public SessionTest {
 protected:
  // A session with the file open and its metrics landed.
  std::unique_ptr<AudioEngine> open(const Planar& signal, const std::string& name) {
    auto engine = makeEngine();
    LandingLog landings(*engine);
    engine->openURLs({url(writeFile(name, signal))});
    EXPECT_TRUE(waitUntil([&] { return landings.count(AudioEngine::Landing::metrics) == 1; }));
    return engine;
  }
  static std::map<std::string, LoudnessTargetEvaluation> verdictsIn(LoudnessTargets& targets, LoudnessTargetMode mode) {
    targets.setLoudnessTargetSelection(targets.loudnessTargetSelection().withMode(mode));
    std::map<std::string, LoudnessTargetEvaluation> byID;
    for (const auto& row : targets.verdicts()) byID[row.target.id] = row.evaluation;
    return byID;
  }
};

struct Expected {
  double lufs;
  std::string applePodcasts, aes;            // podcast verdicts
  float spotifyDB, appleMusicDB, youtubeDB;  // music: the platform's gain, 0 = as-is
};

TEST_F(LoudnessTargetsTest, FilesAtMinus16Minus17Point2AndMinus14GetTheirVerdictsInEveryMode) {
  const Expected cases[] = {
      {-16.0, "OK", "OK", 2.0f, 0.0f, 0.0f},
      {-17.2, "FAIL L", "OK", 3.2f, 1.2f, 0.0f},
      {-14.0, "FAIL L", "FAIL L", 0.0f, -2.0f, 0.0f},
  };
  for (const Expected& e : cases) {
    SCOPED_TRACE(e.lufs);
    auto engine = open(toneAt(e.lufs), "tone.wav");
    LoudnessTargets& targets = engine->analysis().targets();
    // Nothing has played: the live readings are empty, so is every verdict.
    targets.setLoudnessDisplayMode(LoudnessDisplayMode::live);
    for (const auto& [id, verdict] : verdictsIn(targets, LoudnessTargetMode::podcast)) {
      EXPECT_EQ(verdict.verdictClass, LoudnessVerdictClass::noReading) << id;
    }
    // Offline: the file's metrics.
    targets.setLoudnessDisplayMode(LoudnessDisplayMode::offline);
    EXPECT_NEAR(targets.displayIntegratedLUFS(), e.lufs, 0.05);

    auto podcast = verdictsIn(targets, LoudnessTargetMode::podcast);
    EXPECT_EQ(podcast.at("podcast.applePodcasts").verdictText(), e.applePodcasts);
    EXPECT_EQ(podcast.at("podcast.aesTD1008Speech").verdictText(), e.aes);

    auto music = verdictsIn(targets, LoudnessTargetMode::music);
    const std::pair<const char*, float> platforms[] = {
        {"music.spotify", e.spotifyDB}, {"music.appleMusic", e.appleMusicDB}, {"music.youtube", e.youtubeDB}};
    for (const auto& [id, gainDB] : platforms) {
      const auto& verdict = music.at(id);
      EXPECT_EQ(verdict.verdictClass, LoudnessVerdictClass::playback) << id;
      if (gainDB == 0.0f) {
        EXPECT_EQ(verdict.verdictText(), "as-is") << id;
      } else {
        ASSERT_TRUE(verdict.playbackGainDB) << id;
        EXPECT_NEAR(*verdict.playbackGainDB, gainDB, 0.06) << id;
      }
    }

    // Broadcast levels lie 7 to 10 LU lower: every one fails on loudness, none on peak.
    for (const auto& [id, verdict] : verdictsIn(targets, LoudnessTargetMode::broadcast)) {
      EXPECT_EQ(verdict.verdictText(), "FAIL L") << id;
    }
    // A steady tone holds no speech: the dialogue-gated video targets have nothing to judge.
    EXPECT_EQ(verdictsIn(targets, LoudnessTargetMode::vod).at("vod.primeVideo").verdictText(), "no speech");
  }
}

TEST_F(LoudnessTargetsTest, MatchPlaysAMinus20FileAtMinus16AndEndsOnDeselectionAndOnALostReading) {
  auto engine = open(toneAt(-20.0), "minus20.wav");
  LoudnessTargets& targets = engine->analysis().targets();
  targets.setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  targets.setLoudnessTargetSelection(targets.loudnessTargetSelection().withMode(LoudnessTargetMode::podcast));
  RenderMirrors& mirrors = engine->transport().mirrors();
  TruePeakLimiterDSP* limiter = engine->transport().controller().graph().targetMatchLimiter();
  ASSERT_NE(limiter, nullptr);
  limiter->setCeilingDB(-6.0f);
  const LoudnessTarget apple = *targets.loudnessTargetSelection().target("podcast.applePodcasts");
  auto resetRequested = [&] { return mirrors._atomicPendingTargetMatchReset.exchange(false); };
  resetRequested();

  targets.toggleLoudnessTargetMatch(apple);
  EXPECT_EQ(targets.loudnessTargetMatchID(), std::optional<std::string>("podcast.applePodcasts"));
  EXPECT_TRUE(mirrors._atomicTargetMatchEnabled.load());
  EXPECT_NEAR(mirrors._atomicTargetMatchGain.load(), 1.5848932f, 0.002f);
  EXPECT_NEAR(targets.matchGainDB(), 4.0f, 0.02f);
  EXPECT_EQ(limiter->ceilingDB(), -1.0f);
  EXPECT_TRUE(resetRequested());

  // The same target again releases it.
  targets.toggleLoudnessTargetMatch(apple);
  EXPECT_FALSE(targets.loudnessTargetMatchID());
  EXPECT_FALSE(mirrors._atomicTargetMatchEnabled.load());
  EXPECT_EQ(mirrors._atomicTargetMatchGain.load(), 1.0f);
  EXPECT_TRUE(resetRequested());

  // Deselected in the settings: the match ends.
  targets.toggleLoudnessTargetMatch(apple);
  ASSERT_TRUE(mirrors._atomicTargetMatchEnabled.load());
  resetRequested();
  LoudnessTargetSelection without = targets.loudnessTargetSelection();
  without.toggle("podcast.applePodcasts", LoudnessTargetMode::podcast, false);
  targets.setLoudnessTargetSelection(without);
  EXPECT_FALSE(targets.loudnessTargetMatchID());
  EXPECT_FALSE(mirrors._atomicTargetMatchEnabled.load());
  EXPECT_EQ(mirrors._atomicTargetMatchGain.load(), 1.0f);
  EXPECT_TRUE(resetRequested());

  // The live reading of a file that never played is −inf: switching to it ends the match.
  const LoudnessTarget aes = *targets.loudnessTargetSelection().target("podcast.aesTD1008Speech");
  targets.toggleLoudnessTargetMatch(aes);
  EXPECT_NEAR(mirrors._atomicTargetMatchGain.load(), 1.2589254f, 0.002f);
  targets.setLoudnessDisplayMode(LoudnessDisplayMode::live);
  EXPECT_FALSE(targets.loudnessTargetMatchID());
  EXPECT_FALSE(mirrors._atomicTargetMatchEnabled.load());
  EXPECT_EQ(mirrors._atomicTargetMatchGain.load(), 1.0f);

  // RMS targets have no loudness to match; nor does anything match on a reading of −inf.
  targets.setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  targets.toggleLoudnessTargetMatch(*targets.loudnessTargetSelection().target("podcast.acx"));
  EXPECT_FALSE(targets.loudnessTargetMatchID());
  targets.setLoudnessDisplayMode(LoudnessDisplayMode::live);
  targets.toggleLoudnessTargetMatch(aes);
  EXPECT_FALSE(targets.loudnessTargetMatchID());
}

TEST_F(LoudnessTargetsTest, SelectionAndDisplayModeOutliveTheSession) {
  LoudnessTargetSelection chosen;
  {
    auto engine = makeEngine();
    LoudnessTargets& targets = engine->analysis().targets();
    EXPECT_EQ(targets.loudnessTargetSelection(), LoudnessTargetSelection::defaultSelection());
    chosen = targets.loudnessTargetSelection().withMode(LoudnessTargetMode::broadcast);
    chosen.toggle("music.youtube", LoudnessTargetMode::music, false);
    chosen.toggle("broadcast.aribTRB32", LoudnessTargetMode::broadcast, true);
    targets.setLoudnessTargetSelection(chosen);
    targets.setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  }
  auto engine = makeEngine();
  EXPECT_EQ(engine->analysis().targets().loudnessTargetSelection(), chosen);
  EXPECT_EQ(engine->analysis().targets().loudnessDisplayMode(), LoudnessDisplayMode::offline);
  const auto broadcast =
      engine->analysis().targets().loudnessTargetSelection().selectedIDs(LoudnessTargetMode::broadcast);
  EXPECT_EQ(broadcast.back(), "broadcast.aribTRB32");
}

TEST_F(LoudnessTargetsTest, NormalizeAndLimitOpenEditModeWithTheirRequests) {
  auto engine = open(toneAt(-20.0), "minus20.wav");
  LoudnessTargets& targets = engine->analysis().targets();
  targets.setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  const auto selection = targets.loudnessTargetSelection();
  // No request for an RMS target.
  targets.requestNormalizeToTarget(*selection.target("podcast.acx"));
  EXPECT_FALSE(targets.pendingNormalize());
  EXPECT_FALSE(engine->isEditMode());

  targets.requestNormalizeToTarget(*selection.target("podcast.applePodcasts"));
  ASSERT_TRUE(targets.pendingNormalize());
  EXPECT_EQ(targets.pendingNormalize()->basis, PendingNormalize::Basis::integrated);
  EXPECT_EQ(targets.pendingNormalize()->targetName, "Apple Podcasts");
  EXPECT_NEAR(targets.pendingNormalize()->nowLUFS, -20.0f, 0.05f);
  EXPECT_EQ(targets.pendingNormalize()->targetLUFS, -16.0f);
  EXPECT_EQ(targets.pendingNormalize()->ceilingDB, -1.0f);
  EXPECT_TRUE(engine->isEditMode());

  targets.requestLimitTPToTarget(*selection.target("broadcast.atscA85"));
  ASSERT_TRUE(targets.pendingLimitTP());
  EXPECT_EQ(*targets.pendingLimitTP(), (PendingLimitTP{"ATSC A/85", -2.0f}));
}

TEST_F(LoudnessTargetsTest, OfflineReadingsPreferTheSelectionAnalysisToTheFilesMetrics) {
  {
    auto empty = makeEngine();
    empty->analysis().targets().setLoudnessDisplayMode(LoudnessDisplayMode::offline);
    EXPECT_EQ(empty->analysis().targets().displayIntegratedLUFS(), -std::numeric_limits<float>::infinity());
  }
  // Six seconds at −20 LUFS, then six at −30: the file integrates to about −22.6 (both halves
  // pass the relative gate), its first half alone to −20.
  Planar signal = toneAt(-20.0);
  signal.append(toneAt(-30.0));
  auto engine = open(signal, "steps.wav");
  LoudnessTargets& targets = engine->analysis().targets();
  targets.setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  EXPECT_NEAR(targets.displayIntegratedLUFS(), -22.6, 0.1);
  engine->transport().setSelection(PlaybackSelection{0.0, 6.0});
  engine->analysis().analyseSelection();
  waitForBackgroundWork();
  ASSERT_TRUE(waitUntil([&] { return static_cast<bool>(engine->analysis().selectionAnalysis()); }));
  EXPECT_NEAR(targets.displayIntegratedLUFS(), -20.0, 0.05);
  EXPECT_NEAR(targets.displayMaxShortTermLUFS(), -20.0, 0.05);
}

TEST_F(LoudnessTargetsTest, ViolationsReadTheSelectionAnalysisCurvesAboveTheirThresholds) {
  auto engine = open(toneAt(-20.0), "minus20.wav");
  LoudnessTargets& targets = engine->analysis().targets();
  engine->analysis().analyse();
  waitForBackgroundWork();
  ASSERT_TRUE(waitUntil([&] { return static_cast<bool>(engine->analysis().selectionAnalysis()); }));

  targets.setShortTermThreshold(-21.0f);
  EXPECT_TRUE(targets.shortTermViolations().empty());  // not switched on
  targets.setViolationsEnabled(true);
  const auto ranges = targets.shortTermViolations();
  ASSERT_EQ(ranges.size(), 1u);
  // The 3 s window of the first blocks is part empty: the short-term reads −20 + 10·log10(t / 3)
  // and passes −21 once t ≥ 3 · 10^−0.1 = 2.38 s, so the first block counting ends at 2.4 s and
  // the range starts a block earlier. The run reaches the end and closes at the last point.
  EXPECT_NEAR(ranges[0].lower, 2.3, 1e-6);
  EXPECT_NEAR(ranges[0].upper, 6.0, 1e-9);
  targets.setShortTermThreshold(-19.0f);
  EXPECT_TRUE(targets.shortTermViolations().empty());
  EXPECT_TRUE(targets.momentaryViolations().empty());  // no threshold
}

}  // namespace
}  // namespace corvane::test
