// Verdicts of the built-in targets. Expected verdicts are worked out by hand from each
// platform's published figures (reference, tolerance, ceiling, gain policy), not read back
// from the evaluator.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>

#include "core/LoudnessTargetCatalog.h"
#include "core/LoudnessTargetEvaluator.h"
#include "core/LoudnessTargetSelection.h"

namespace corvane {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

const LoudnessTarget& builtIn(const char* id) {
  const LoudnessTarget* target = LoudnessTargetCatalog::target(id);
  if (!target) throw std::runtime_error(std::string("no built-in target ") + id);
  return *target;
}

// A programme at `lufs` (integrated and, for a talk programme, dialog-gated alike) with
// peaks at -3 dBTP: clear of every ceiling in the catalogue except ACX's -3, which it meets.
LoudnessMeasurement programme(float lufs) {
  LoudnessMeasurement m;
  m.integratedLUFS = lufs;
  m.dialogGatedLUFS = lufs;
  m.speechPercentage = 80.0f;
  m.truePeakDBTP = -3.0f;
  m.maxShortTermLUFS = lufs + 2.0f;
  return m;
}

std::string verdict(const char* id, const LoudnessMeasurement& m) {
  return LoudnessTargetEvaluator::evaluate(builtIn(id), m).verdictText();
}

struct VerdictCase {
  const char* targetID;
  float lufs;
  const char* expected;
};

TEST(LoudnessTargetEvaluator, VerdictsOfTheBuiltInTargetsAtThreeLevels) {
  const VerdictCase cases[] = {
      // Spotify lifts quiet masters only until the peak reaches -1 dBTP: at -3 dBTP that is
      // 2 dB, so -17.2 is lifted 2.0 dB, not 3.2.
      {"music.spotify", -16.0f, "+2.0 dB"},
      {"music.spotify", -17.2f, "+2.0 dB"},
      {"music.spotify", -14.0f, "as-is"},
      {"music.appleMusic", -16.0f, "as-is"},
      {"music.appleMusic", -17.2f, "+1.2 dB"},
      {"music.appleMusic", -14.0f, "-2.0 dB"},
      // YouTube only ever turns down.
      {"music.youtube", -16.0f, "as-is"},
      {"music.youtube", -17.2f, "as-is"},
      {"music.youtube", -14.0f, "as-is"},
      {"music.youtube", -9.5f, "-4.5 dB"},
      // Apple Podcasts -16 ±1.
      {"podcast.applePodcasts", -16.0f, "OK"},
      {"podcast.applePodcasts", -17.2f, "FAIL L"},
      {"podcast.applePodcasts", -14.0f, "FAIL L"},
      // AES TD1008 speech -18 ±2: -16 sits exactly on the upper edge.
      {"podcast.aesTD1008Speech", -16.0f, "OK"},
      {"podcast.aesTD1008Speech", -17.2f, "OK"},
      {"podcast.aesTD1008Speech", -14.0f, "FAIL L"},
      // Dialog-gated VOD and broadcast at -16 ... -14 are all far too loud.
      {"vod.netflix", -16.0f, "FAIL L"},
      {"vod.netflix", -27.0f, "OK"},
      {"vod.primeVideo", -17.2f, "FAIL L"},
      {"vod.primeVideo", -24.0f, "OK"},
      {"broadcast.ebuR128", -14.0f, "FAIL L"},
      {"broadcast.ebuR128", -23.0f, "OK"},
      {"broadcast.atscA85", -16.0f, "FAIL L"},
      {"broadcast.atscA85", -24.0f, "OK"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(verdict(c.targetID, programme(c.lufs)), c.expected)
        << c.targetID << " at " << c.lufs << " LUFS";
  }
}

TEST(LoudnessTargetEvaluator, ToleranceAndCeilingEdgesAreInclusive) {
  struct Edge {
    const char* id;
    float lufs;
    float truePeak;
    const char* expected;
  };
  const Edge edges[] = {
      {"podcast.applePodcasts", -15.0f, -3.0f, "OK"},
      {"podcast.applePodcasts", -14.99f, -3.0f, "FAIL L"},
      {"podcast.applePodcasts", -17.0f, -3.0f, "OK"},
      {"podcast.applePodcasts", -17.01f, -3.0f, "FAIL L"},
      {"podcast.applePodcasts", -16.0f, -1.0f, "OK"},
      {"podcast.applePodcasts", -16.0f, -0.99f, "FAIL TP"},
      {"broadcast.ebuR128", -22.5f, -3.0f, "OK"},
      {"broadcast.ebuR128", -22.49f, -3.0f, "FAIL L"},
      {"broadcast.ebuR128", -23.5f, -3.0f, "OK"},
      {"broadcast.ebuR128", -23.51f, -3.0f, "FAIL L"},
      {"broadcast.atscA85", -24.0f, -2.0f, "OK"},
      {"broadcast.atscA85", -24.0f, -1.99f, "FAIL TP"},
      {"broadcast.freeTVOP59", -24.0f, -1.5f, "FAIL TP"},
      {"broadcast.aribTRB32", -24.0f, -1.5f, "OK"},
      // Loudness and peak both out: the badge names loudness first.
      {"broadcast.ebuR128", -20.0f, 0.0f, "FAIL L"},
  };
  for (const auto& e : edges) {
    LoudnessMeasurement m = programme(e.lufs);
    m.truePeakDBTP = e.truePeak;
    EXPECT_EQ(verdict(e.id, m), e.expected) << e.id << " at " << e.lufs << " / " << e.truePeak;
  }
}

TEST(LoudnessTargetEvaluator, ShortFormBroadcastHoldsTheMaximumShortTerm) {
  LoudnessMeasurement m = programme(-23.0f);
  m.maxShortTermLUFS = -18.0f;
  EXPECT_EQ(verdict("broadcast.ebuR128ShortForm", m), "OK");
  m.maxShortTermLUFS = -17.9f;
  auto e = LoudnessTargetEvaluator::evaluate(builtIn("broadcast.ebuR128ShortForm"), m);
  EXPECT_EQ(e.verdictText(), "FAIL S↑");
  EXPECT_EQ(e.failures, kFailureMaxShortTerm);
  EXPECT_EQ(e.statusDot(), LoudnessStatusDot::red);
  // The long-form recommendation has no such limit.
  EXPECT_EQ(verdict("broadcast.ebuR128", m), "OK");
}

TEST(LoudnessTargetEvaluator, NetflixFallsBackToFullProgrammeBelowFifteenPercentDialogue) {
  const LoudnessTarget& netflix = builtIn("vod.netflix");
  LoudnessMeasurement m;
  m.truePeakDBTP = -6.0f;
  m.integratedLUFS = -24.5f;
  m.dialogGatedLUFS = -31.0f;  // far out of -27 ±2

  m.speechPercentage = 14.9f;  // under 15 %: judged on -24.5 against -24 ±2
  auto e = LoudnessTargetEvaluator::evaluate(netflix, m);
  EXPECT_EQ(e.basis, LoudnessBasis::integratedFallback);
  EXPECT_EQ(e.referenceLevel, -24.0f);
  EXPECT_EQ(e.verdictText(), "OK");

  m.speechPercentage = 15.0f;  // exactly 15 %: gated reading counts, -31 fails
  e = LoudnessTargetEvaluator::evaluate(netflix, m);
  EXPECT_EQ(e.basis, LoudnessBasis::dialogGated);
  EXPECT_EQ(e.verdictText(), "FAIL L");

  m.speechPercentage = 0.0f;  // detection ran and found none: the fallback still judges
  m.dialogGatedLUFS = -kInf;
  m.integratedLUFS = -21.9f;  // 2.1 LU over -24
  EXPECT_EQ(LoudnessTargetEvaluator::evaluate(netflix, m).verdictText(), "FAIL L");
  m.integratedLUFS = -22.0f;
  EXPECT_EQ(LoudnessTargetEvaluator::evaluate(netflix, m).verdictText(), "OK");

  // Without speech detection nothing says the dialogue is short: no reading.
  m.speechPercentage.reset();
  e = LoudnessTargetEvaluator::evaluate(netflix, m);
  EXPECT_EQ(e.verdictClass, LoudnessVerdictClass::noReading);
  EXPECT_EQ(e.verdictText(), "no speech");
  EXPECT_EQ(e.statusDot(), LoudnessStatusDot::dim);
}

TEST(LoudnessTargetEvaluator, DialogGatedTargetsWithoutFallbackNeedSpeech) {
  LoudnessMeasurement m = programme(-24.0f);
  m.speechPercentage = 5.0f;  // little speech, but Prime Video gates regardless
  m.dialogGatedLUFS = -25.0f;
  EXPECT_EQ(verdict("vod.primeVideo", m), "OK");
  m.dialogGatedLUFS = -kInf;
  EXPECT_EQ(verdict("vod.primeVideo", m), "no speech");
  // An integrated target with no reading shows a dash instead.
  m.integratedLUFS = -kInf;
  EXPECT_EQ(verdict("podcast.applePodcasts", m), "—");
  m.integratedLUFS = kNaN;
  EXPECT_EQ(verdict("podcast.applePodcasts", m), "—");
}

TEST(LoudnessTargetEvaluator, AcxJudgesRmsPeakAndNoiseFloor) {
  const LoudnessTarget& acx = builtIn("podcast.acx");
  auto with = [&acx](float rms, float truePeak, float noiseFloor) {
    LoudnessMeasurement m;
    m.integratedLUFS = -12.0f;  // ACX ignores LUFS: this must not matter
    m.rmsDBFS = rms;
    m.truePeakDBTP = truePeak;
    m.speechGatedNoiseFloorDBRMS = noiseFloor;
    return LoudnessTargetEvaluator::evaluate(acx, m);
  };
  EXPECT_EQ(with(-23.0f, -3.0f, -60.0f).verdictText(), "OK");  // every edge at once
  EXPECT_EQ(with(-18.0f, -6.0f, -70.0f).verdictText(), "OK");
  EXPECT_EQ(with(-17.9f, -6.0f, -70.0f).verdictText(), "FAIL L");
  EXPECT_EQ(with(-23.1f, -6.0f, -70.0f).verdictText(), "FAIL L");
  EXPECT_EQ(with(-20.0f, -2.9f, -70.0f).verdictText(), "FAIL TP");
  auto noisy = with(-20.0f, -6.0f, -59.9f);
  EXPECT_EQ(noisy.verdictText(), "FAIL NF");
  EXPECT_EQ(noisy.failures, kFailureNoiseFloor);

  // No noise-floor reading: passes what it can, flagged, with an orange dot.
  auto unmeasured = with(-20.0f, -6.0f, -kInf);
  EXPECT_EQ(unmeasured.verdictText(), "OK");
  EXPECT_TRUE(unmeasured.isFlagged());
  EXPECT_EQ(unmeasured.warnings, kWarningNoiseFloorUnmeasured);
  EXPECT_EQ(unmeasured.statusDot(), LoudnessStatusDot::orange);
  EXPECT_EQ(with(-20.0f, -6.0f, -70.0f).statusDot(), LoudnessStatusDot::green);

  // No RMS reading (no offline analysis yet): a dash, not a failure.
  EXPECT_EQ(with(-kInf, -6.0f, -70.0f).verdictText(), "—");
}

TEST(LoudnessTargetEvaluator, ProgramRmsIsTheMeanOfChannelPowers) {
  const float same[] = {-20.0f, -20.0f};
  EXPECT_NEAR(LoudnessMeasurement::programRMSDBFS(same), -20.0, 1e-5);
  // One silent channel halves the power: -20 - 10 log10(2).
  const float oneSilent[] = {-20.0f, -kInf};
  EXPECT_NEAR(LoudnessMeasurement::programRMSDBFS(oneSilent), -23.0103, 1e-4);
  // 10 log10((0.1 + 0.01) / 2) = -12.5964.
  const float mixed[] = {-10.0f, -20.0f};
  EXPECT_NEAR(LoudnessMeasurement::programRMSDBFS(mixed), -12.5964, 1e-4);
  const float withNaN[] = {-10.0f, kNaN};
  EXPECT_NEAR(LoudnessMeasurement::programRMSDBFS(withNaN), -10.0, 1e-5);
  const float silent[] = {-kInf, -kInf};
  EXPECT_EQ(LoudnessMeasurement::programRMSDBFS(silent), -kInf);
  EXPECT_EQ(LoudnessMeasurement::programRMSDBFS({}), -kInf);
}

TEST(LoudnessTargetEvaluator, PlaybackVerdictsFlagPeaksAndColourByDistance) {
  // Spotify at -17.2 with -3 dBTP: stopped 1.2 dB short of -14 by the ceiling.
  auto spotify = LoudnessTargetEvaluator::evaluate(builtIn("music.spotify"), programme(-17.2f));
  EXPECT_EQ(spotify.verdictClass, LoudnessVerdictClass::playback);
  ASSERT_TRUE(spotify.playbackGainDB.has_value());
  EXPECT_NEAR(*spotify.playbackGainDB, 2.0f, 1e-5);
  EXPECT_EQ(spotify.warnings, kWarningGainLimitedByPeak);
  EXPECT_EQ(spotify.statusDot(), LoudnessStatusDot::yellow);  // 3.2 dB from -14

  // Spotify's own example: -20 LUFS with a -5 dBTP peak is lifted to -16 LUFS only.
  LoudnessMeasurement example = programme(-20.0f);
  example.truePeakDBTP = -5.0f;
  auto lifted = LoudnessTargetEvaluator::evaluate(builtIn("music.spotify"), example);
  EXPECT_EQ(lifted.verdictText(), "+4.0 dB");
  EXPECT_EQ(lifted.statusDot(), LoudnessStatusDot::orange);  // 6 dB from the reference

  // A loud master with peaks over -1 dBTP is turned down, but its encode may clip.
  LoudnessMeasurement hot = programme(-8.0f);
  hot.truePeakDBTP = -0.2f;
  auto youtube = LoudnessTargetEvaluator::evaluate(builtIn("music.youtube"), hot);
  EXPECT_EQ(youtube.verdictText(), "-6.0 dB");
  EXPECT_EQ(youtube.warnings, kWarningTruePeakOverCeiling);

  // Apple Music -17.2: lifted 1.2 dB, within 1.5 of -16: green, nothing flagged.
  auto apple = LoudnessTargetEvaluator::evaluate(builtIn("music.appleMusic"), programme(-17.2f));
  EXPECT_FALSE(apple.isFlagged());
  EXPECT_EQ(apple.statusDot(), LoudnessStatusDot::green);
  // 4 dB exactly is still yellow; beyond is orange.
  EXPECT_EQ(LoudnessTargetEvaluator::evaluate(builtIn("music.appleMusic"), programme(-12.0f))
                .statusDot(),
            LoudnessStatusDot::yellow);
  EXPECT_EQ(LoudnessTargetEvaluator::evaluate(builtIn("music.appleMusic"), programme(-11.9f))
                .statusDot(),
            LoudnessStatusDot::orange);
  // A quiet file YouTube leaves as-is still stands out: orange by its distance.
  auto quiet = LoudnessTargetEvaluator::evaluate(builtIn("music.youtube"), programme(-25.0f));
  EXPECT_EQ(quiet.verdictText(), "as-is");
  EXPECT_EQ(quiet.statusDot(), LoudnessStatusDot::orange);
  // Peak unknown: nothing limits the lift.
  LoudnessMeasurement noPeak = programme(-20.0f);
  noPeak.truePeakDBTP = -kInf;
  EXPECT_EQ(verdict("music.spotify", noPeak), "+6.0 dB");
}

TEST(LoudnessTargetEvaluator, ReferenceLinesAndTooltips) {
  EXPECT_EQ(referenceLine(builtIn("vod.netflix")), "dialog · -27 ±2 LKFS · ≤ -2 dBTP");
  EXPECT_EQ(referenceLine(builtIn("music.spotify")), "ref -14 LUFS · ≤ -1 dBTP");
  EXPECT_EQ(referenceLine(builtIn("podcast.acx")), "-20.5 ±2.5 dB RMS · ≤ -3 dBTP");
  EXPECT_EQ(referenceLine(builtIn("broadcast.ebuR128")), "-23 ±0.5 LUFS · ≤ -1 dBTP");

  const std::string fail =
      LoudnessTargetEvaluator::tooltipText(builtIn("podcast.applePodcasts"), programme(-17.2f));
  EXPECT_NE(fail.find("-17.2 LUFS, -1.2 LU from -16: outside the ±1 LU tolerance."),
            std::string::npos)
      << fail;
  EXPECT_NE(fail.find("Fails on loudness."), std::string::npos) << fail;

  LoudnessMeasurement shortDialogue = programme(-24.0f);
  shortDialogue.speechPercentage = 9.5f;
  const std::string fallback =
      LoudnessTargetEvaluator::tooltipText(builtIn("vod.netflix"), shortDialogue);
  EXPECT_NE(fallback.find("Dialogue is 9.5 % of the programme"), std::string::npos) << fallback;

  const std::string limited =
      LoudnessTargetEvaluator::tooltipText(builtIn("music.spotify"), programme(-17.2f));
  EXPECT_NE(limited.find("turns it up by 2.0 dB"), std::string::npos) << limited;
  EXPECT_NE(limited.find("1.2 dB short of the reference"), std::string::npos) << limited;
}

TEST(LoudnessTargetCatalog, EveryModeHasConsistentTargetsAndDefaults) {
  std::set<std::string> ids;
  for (auto mode : kAllLoudnessTargetModes) {
    const auto targets = LoudnessTargetCatalog::targets(mode);
    ASSERT_FALSE(targets.empty()) << rawValue(mode);
    for (const auto& target : targets) {
      EXPECT_EQ(target.mode, mode) << target.id;
      EXPECT_TRUE(target.id.starts_with(std::string(rawValue(mode)) + ".")) << target.id;
      EXPECT_TRUE(ids.insert(target.id).second) << "repeated id " << target.id;
      EXPECT_FALSE(target.isCustom());
      EXPECT_LE(target.truePeakCeilingDBTP, 0.0f) << target.id;
      // Only music platforms normalise at playback; everything else is a delivery spec.
      EXPECT_EQ(target.isPlaybackTarget(), mode == LoudnessTargetMode::music) << target.id;
    }
    const auto defaults = LoudnessTargetCatalog::defaultSelectedIDs(mode);
    EXPECT_FALSE(defaults.empty());
    EXPECT_LE(static_cast<int>(defaults.size()), LoudnessTargetSelection::maxTargetsPerMode);
    for (const auto& id : defaults) {
      const auto* target = LoudnessTargetCatalog::target(id);
      ASSERT_NE(target, nullptr) << id;
      EXPECT_EQ(target->mode, mode) << id;
    }
  }
  EXPECT_EQ(ids.size(), LoudnessTargetCatalog::allTargets().size());
  EXPECT_EQ(LoudnessTargetCatalog::target("music.nowhere"), nullptr);
}

}  // namespace
}  // namespace corvane
