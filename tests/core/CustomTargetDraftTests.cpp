#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "core/CustomTargetDraft.h"
#include "core/LoudnessTargetEvaluator.h"
#include "core/LoudnessTargetSelection.h"

namespace corvane {
namespace {

using Mode = LoudnessTargetMode;

constexpr const char* kUUID = "0F1E2D3C-4B5A-4697-8887-A6B5C4D3E2F1";

CustomTargetDraft named(float reference, float tolerance, float ceiling) {
  CustomTargetDraft draft = CustomTargetDraft::newDraft(Mode::music, kUUID);
  draft.name = "Spec";
  draft.referenceLUFS = reference;
  draft.toleranceLU = tolerance;
  draft.truePeakCeilingDBTP = ceiling;
  return draft;
}

TEST(CustomTargetDraft, ValidationEdges) {
  struct Case {
    float reference, tolerance, ceiling;
    bool valid;
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Case cases[] = {
      {-60.0f, 1.0f, -1.0f, true},   {0.0f, 1.0f, -1.0f, true},
      {0.0f, 1.0f, 0.0f, true},      {0.1f, 1.0f, -1.0f, false},
      {-60.1f, 1.0f, -1.0f, false},  {-18.0f, 0.0f, -1.0f, true},
      {-18.0f, 12.0f, -1.0f, true},  {-18.0f, 12.1f, -1.0f, false},
      {-18.0f, -0.1f, -1.0f, false}, {-18.0f, 1.0f, -12.0f, true},
      {-18.0f, 1.0f, -12.1f, false}, {-18.0f, 1.0f, 0.1f, false},
      {nan, 1.0f, -1.0f, false},     {-18.0f, nan, -1.0f, false},
      {-18.0f, 1.0f, nan, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(named(c.reference, c.tolerance, c.ceiling).isValid(), c.valid)
        << c.reference << " ±" << c.tolerance << " ≤ " << c.ceiling;
  }
  CustomTargetDraft blank = named(-18.0f, 1.0f, -1.0f);
  blank.name = " \t\n ";
  EXPECT_FALSE(blank.isValid());
  blank.name = "";
  EXPECT_FALSE(blank.isValid());
}

TEST(CustomTargetDraft, NewDraftsTakeTheirModeAndTheGivenId) {
  const auto podcast = CustomTargetDraft::newDraft(Mode::podcast, kUUID);
  EXPECT_EQ(podcast.source, LoudnessSource::dialogGated);
  EXPECT_EQ(podcast.referenceLUFS, -18.0f);
  EXPECT_EQ(podcast.toleranceLU, 1.0f);
  EXPECT_EQ(podcast.truePeakCeilingDBTP, -1.0f);
  EXPECT_FALSE(podcast.sourceTouched);
  EXPECT_FALSE(podcast.isValid());  // no name yet
  EXPECT_EQ(CustomTargetDraft::newDraft(Mode::vod, kUUID).source, LoudnessSource::dialogGated);
  EXPECT_EQ(CustomTargetDraft::newDraft(Mode::broadcast, kUUID).source, LoudnessSource::integrated);

  EXPECT_EQ(podcast.id, "custom.0F1E2D3C-4B5A-4697-8887-A6B5C4D3E2F1");
}

TEST(CustomTargetDraft, SourceFollowsModeUntilTheUserChoosesOne) {
  auto draft = CustomTargetDraft::newDraft(Mode::music, kUUID);
  draft.setMode(Mode::podcast);
  EXPECT_EQ(draft.source, LoudnessSource::dialogGated);
  draft.setMode(Mode::broadcast);
  EXPECT_EQ(draft.source, LoudnessSource::integrated);
  draft.setSource(LoudnessSource::rms);
  EXPECT_TRUE(draft.sourceTouched);
  draft.setMode(Mode::vod);
  EXPECT_EQ(draft.source, LoudnessSource::rms);

  // A saved target's source counts as chosen.
  auto saved = CustomTargetDraft::newDraft(Mode::music, kUUID);
  saved.name = "Loud club";
  auto editing = CustomTargetDraft::editing(saved.buildTarget());
  editing.setMode(Mode::podcast);
  EXPECT_EQ(editing.source, LoudnessSource::integrated);
}

TEST(CustomTargetDraft, BuildsADeliveryTargetThatJudgesLikeOne) {
  auto draft = CustomTargetDraft::newDraft(Mode::podcast, kUUID);
  draft.name = "  Client spec\n";
  draft.setSource(LoudnessSource::integrated);
  draft.referenceLUFS = -19.0f;
  draft.toleranceLU = 0.5f;
  draft.truePeakCeilingDBTP = -2.0f;
  ASSERT_TRUE(draft.isValid());
  const LoudnessTarget target = draft.buildTarget();
  EXPECT_EQ(target.displayName, "Client spec");
  EXPECT_EQ(target.id, draft.id);
  EXPECT_TRUE(target.isCustom());
  EXPECT_FALSE(target.isPlaybackTarget());
  EXPECT_TRUE(target.items.empty());
  EXPECT_EQ(referenceLine(target), "-19 ±0.5 LUFS · ≤ -2 dBTP");

  LoudnessMeasurement m;
  m.truePeakDBTP = -2.0f;
  m.integratedLUFS = -19.5f;
  EXPECT_EQ(LoudnessTargetEvaluator::evaluate(target, m).verdictText(), "OK");
  m.integratedLUFS = -19.6f;
  EXPECT_EQ(LoudnessTargetEvaluator::evaluate(target, m).verdictText(), "FAIL L");
  // A round trip through the editor keeps everything.
  EXPECT_EQ(CustomTargetDraft::editing(target).buildTarget(), target);
}

TEST(CustomTargetDraft, EditorWords) {
  auto draft = CustomTargetDraft::newDraft(Mode::podcast, kUUID);
  EXPECT_EQ(draft.summaryText(),
            "Verdicts read pass when the measured Loudness sits within 1 LU of -18 LKFS and the "
            "true peak stays at or under -1 dBTP. Dialog-gated needs detected speech; RMS needs "
            "an offline analysis run.");
  draft.setSource(LoudnessSource::rms);
  draft.referenceLUFS = -20.5f;
  draft.toleranceLU = 2.5f;
  draft.truePeakCeilingDBTP = -3.0f;
  EXPECT_EQ(draft.summaryText(),
            "Verdicts read pass when the measured RMS sits within 2.5 dB of -20.5 dB RMS and the "
            "true peak stays at or under -3 dBTP. Dialog-gated needs detected speech; RMS needs "
            "an offline analysis run.");
  EXPECT_EQ(CustomTargetDraft::editorTitle(true), "New Custom Target");
  EXPECT_EQ(CustomTargetDraft::editorTitle(false), "Edit Custom Target");
}

}  // namespace
}  // namespace corvane
