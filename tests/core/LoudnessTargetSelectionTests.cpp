#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "core/CustomTargetDraft.h"
#include "core/LoudnessTargetCatalog.h"
#include "core/LoudnessTargetSelection.h"

namespace corvane {
namespace {

using Mode = LoudnessTargetMode;
using Stored = LoudnessTargetSelection::Stored;
using StoredCustom = LoudnessTargetSelection::StoredCustomTarget;

std::vector<std::string> idsOf(const std::vector<LoudnessTarget>& targets) {
  std::vector<std::string> ids;
  for (const auto& t : targets) ids.push_back(t.id);
  return ids;
}

StoredCustom houseSpec(std::string id = "custom.A1B2") {
  return StoredCustom{std::move(id), "  House spec ", "podcast", "dialogGated", -19.5, 1.5, -2.0};
}

TEST(LoudnessTargetSelection, DefaultFollowsTheCatalogueAndMusicMode) {
  const auto selection = LoudnessTargetSelection::defaultSelection();
  EXPECT_EQ(selection.mode(), Mode::music);
  EXPECT_EQ(idsOf(selection.activeTargets()),
            (std::vector<std::string>{"music.spotify", "music.appleMusic", "music.youtube"}));
  EXPECT_EQ(idsOf(selection.withMode(Mode::podcast).activeTargets()),
            (std::vector<std::string>{"podcast.applePodcasts", "podcast.aesTD1008Speech",
                                      "podcast.acx"}));
  EXPECT_TRUE(selection.customTargets().empty());
}

TEST(LoudnessTargetSelection, ToggleKeepsSelectionOrderAndTheLimit) {
  auto selection = LoudnessTargetSelection::defaultSelection();
  // Broadcast starts with EBU R128, ATSC A/85. Switching R128 off and on moves it last.
  ASSERT_TRUE(selection.toggle("broadcast.ebuR128", Mode::broadcast, false));
  ASSERT_TRUE(selection.toggle("broadcast.aribTRB32", Mode::broadcast, true));
  ASSERT_TRUE(selection.toggle("broadcast.ebuR128", Mode::broadcast, true));
  EXPECT_EQ(selection.selectedIDs(Mode::broadcast),
            (std::vector<std::string>{"broadcast.atscA85", "broadcast.aribTRB32",
                                      "broadcast.ebuR128"}));
  ASSERT_TRUE(selection.toggle("broadcast.freeTVOP59", Mode::broadcast, true));
  EXPECT_FALSE(selection.canSelectMore(Mode::broadcast));
  // A fifth is refused; switching an already selected one on again is harmless.
  EXPECT_FALSE(selection.toggle("broadcast.ebuR128ShortForm", Mode::broadcast, true));
  EXPECT_TRUE(selection.toggle("broadcast.atscA85", Mode::broadcast, true));
  EXPECT_EQ(selection.selectedIDs(Mode::broadcast).size(), 4u);
  EXPECT_EQ(selection.selectedIDs(Mode::broadcast).back(), "broadcast.atscA85");
  // Ids of another mode or of nothing are refused.
  EXPECT_FALSE(selection.toggle("music.spotify", Mode::podcast, true));
  EXPECT_FALSE(selection.toggle("podcast.nothing", Mode::podcast, true));
  EXPECT_FALSE(selection.isSelected("music.spotify", Mode::podcast));
}

TEST(LoudnessTargetSelection, CustomTargetsJoinTheirModeAndLeaveCleanly) {
  auto selection = LoudnessTargetSelection::defaultSelection().withMode(Mode::podcast);
  CustomTargetDraft draft = CustomTargetDraft::newDraft(Mode::podcast, "5C1A9E3B-7D2F-4A60-9B18-3E4D5F6A7B8C");
  draft.name = "Client";
  const LoudnessTarget custom = draft.buildTarget();
  ASSERT_TRUE(selection.upsertCustomTarget(custom));
  EXPECT_FALSE(selection.isSelected(custom.id, Mode::podcast));  // listed, not selected
  ASSERT_TRUE(selection.toggle(custom.id, Mode::podcast, true));
  EXPECT_EQ(idsOf(selection.activeTargets()).back(), custom.id);
  EXPECT_EQ(selection.target(custom.id), custom);
  EXPECT_EQ(selection.customTargets(Mode::podcast).size(), 1u);
  EXPECT_TRUE(selection.customTargets(Mode::vod).empty());

  // Moving it to VOD takes it out of the podcast list.
  LoudnessTarget moved = custom;
  moved.mode = Mode::vod;
  ASSERT_TRUE(selection.upsertCustomTarget(moved));
  EXPECT_FALSE(selection.isSelected(custom.id, Mode::podcast));
  EXPECT_EQ(selection.customTargets().size(), 1u);
  ASSERT_TRUE(selection.toggle(custom.id, Mode::vod, true));

  selection.deleteCustomTarget(custom.id);
  EXPECT_FALSE(selection.target(custom.id).has_value());
  EXPECT_FALSE(selection.isSelected(custom.id, Mode::vod));

  LoudnessTarget notCustom = custom;
  notCustom.id = "podcast.mine";
  EXPECT_FALSE(selection.upsertCustomTarget(notCustom));
  EXPECT_TRUE(selection.customTargets().empty());
}

TEST(LoudnessTargetSelection, StoredFormRoundTrips) {
  auto selection = LoudnessTargetSelection::defaultSelection().withMode(Mode::vod);
  CustomTargetDraft draft = CustomTargetDraft::newDraft(Mode::vod, "B7E6D5C4-A3B2-4C1D-8E0F-112233445566");
  draft.name = "Festival";
  draft.referenceLUFS = -18.1f;
  draft.toleranceLU = 0.7f;
  draft.truePeakCeilingDBTP = -1.5f;
  ASSERT_TRUE(selection.upsertCustomTarget(draft.buildTarget()));
  ASSERT_TRUE(selection.toggle(draft.id, Mode::vod, true));
  ASSERT_TRUE(selection.toggle("music.youtube", Mode::music, false));

  const Stored stored = selection.toStored();
  EXPECT_EQ(stored.mode, "vod");
  ASSERT_EQ(stored.customTargets.size(), 1u);
  // Levels are stored as the decimal the user typed, not the float's binary expansion.
  EXPECT_EQ(stored.customTargets[0].referenceLUFS, -18.1);
  EXPECT_EQ(stored.customTargets[0].toleranceLU, 0.7);
  EXPECT_EQ(stored.customTargets[0].source, "dialogGated");
  EXPECT_EQ(stored.selectedIDs.at("music"),
            (std::vector<std::string>{"music.spotify", "music.appleMusic"}));
  EXPECT_EQ(LoudnessTargetSelection::fromStored(stored), selection);
}

TEST(LoudnessTargetSelection, DecodingFillsMissingModesAndDropsWhatNoLongerResolves) {
  Stored stored;
  stored.mode = "podcast";
  stored.selectedIDs["music"] = {};  // the user switched everything off: stays empty
  stored.selectedIDs["podcast"] = {"podcast.acx", "podcast.retired", "music.spotify",
                                   "podcast.acx", "custom.A1B2"};
  stored.selectedIDs["broadcast"] = {"broadcast.ebuR128", "broadcast.atscA85",
                                     "broadcast.aribTRB32", "broadcast.freeTVOP59",
                                     "broadcast.ebuR128ShortForm"};
  stored.selectedIDs["cinema"] = {"cinema.x"};  // a mode we don't know: ignored
  stored.customTargets = {houseSpec()};
  // no "vod" entry: a store from before VOD existed

  const auto selection = LoudnessTargetSelection::fromStored(stored);
  EXPECT_EQ(selection.mode(), Mode::podcast);
  EXPECT_TRUE(selection.selectedIDs(Mode::music).empty());
  EXPECT_EQ(selection.selectedIDs(Mode::podcast),
            (std::vector<std::string>{"podcast.acx", "custom.A1B2"}));
  EXPECT_EQ(selection.selectedIDs(Mode::vod), LoudnessTargetCatalog::defaultSelectedIDs(Mode::vod));
  EXPECT_EQ(selection.selectedIDs(Mode::broadcast).size(),
            static_cast<std::size_t>(LoudnessTargetSelection::maxTargetsPerMode));
  ASSERT_EQ(selection.customTargets().size(), 1u);
  EXPECT_EQ(selection.customTargets()[0].displayName, "House spec");  // trimmed
  EXPECT_EQ(selection.customTargets()[0].tolerance, 1.5f);
  EXPECT_EQ(idsOf(selection.activeTargets()),
            (std::vector<std::string>{"podcast.acx", "custom.A1B2"}));
}

TEST(LoudnessTargetSelection, DecodingDropsInvalidCustomTargetsOnly) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  Stored stored;
  stored.mode = "teleport";  // unknown mode: the factory mode, the rest kept
  auto bad = [](auto change) {
    StoredCustom c = houseSpec("custom.BAD");
    change(c);
    return c;
  };
  stored.customTargets = {
      houseSpec("custom.GOOD"),
      houseSpec("custom.GOOD"),  // repeat of an id: the first stays
      bad([](StoredCustom& c) { c.name = " \t "; }),
      bad([](StoredCustom& c) { c.referenceLUFS = 0.1; }),
      bad([](StoredCustom& c) { c.toleranceLU = 12.1; }),
      bad([](StoredCustom& c) { c.truePeakCeilingDBTP = -12.1; }),
      bad([&](StoredCustom& c) { c.referenceLUFS = nan; }),
      bad([](StoredCustom& c) { c.source = "loudest"; }),
      bad([](StoredCustom& c) { c.mode = ""; }),
      bad([](StoredCustom& c) { c.id = "house"; }),
      bad([](StoredCustom& c) { c.id = "custom."; }),
      bad([](StoredCustom& c) { c.id = "podcast.acx"; }),  // would shadow a built-in
  };
  stored.selectedIDs["podcast"] = {"custom.BAD", "custom.GOOD"};

  const auto selection = LoudnessTargetSelection::fromStored(stored);
  EXPECT_EQ(selection.mode(), Mode::music);
  ASSERT_EQ(selection.customTargets().size(), 1u);
  EXPECT_EQ(selection.customTargets()[0].id, "custom.GOOD");
  EXPECT_EQ(selection.selectedIDs(Mode::podcast), (std::vector<std::string>{"custom.GOOD"}));
  // An empty store (the model layer's mirror of "{}") is the factory value.
  EXPECT_EQ(LoudnessTargetSelection::fromStored(Stored{}),
            LoudnessTargetSelection::defaultSelection());
}

}  // namespace
}  // namespace corvane
