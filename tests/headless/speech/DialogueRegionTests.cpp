#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <set>

#include "headless/speech/DialogueRegion.h"
#include "headless/speech/SpeechRanges.h"

namespace corvane {
namespace {

std::vector<bool> bits(const std::string& pattern) {
  std::vector<bool> h;
  for (const char c : pattern) h.push_back(c == '1');
  return h;
}

DialogueRegion region(double start, double end) {
  DialogueRegion r;
  r.id = DialogueRegion::makeID();
  r.start = start;
  r.end = end;
  return r;
}

TEST(DialogueRegion, FromHistoryGivesOneRegionPerRunOnBlockBoundaries) {
  const auto regions = DialogueRegion::fromHistory(bits("0011100011"), 0.1);
  ASSERT_EQ(regions.size(), 2u);
  EXPECT_DOUBLE_EQ(regions[0].start, 0.2);
  EXPECT_DOUBLE_EQ(regions[0].end, 0.5);
  EXPECT_DOUBLE_EQ(regions[1].start, 0.8);
  EXPECT_DOUBLE_EQ(regions[1].end, 1.0);
  EXPECT_NE(regions[0].id, regions[1].id);
  EXPECT_FALSE(regions[0].speaker.has_value());
  EXPECT_TRUE(DialogueRegion::fromHistory(bits("0000"), 0.1).empty());
  EXPECT_TRUE(DialogueRegion::fromHistory({}, 0.1).empty());
}

TEST(DialogueRegion, HistoryRoundTripsThroughRegions) {
  std::mt19937 random(7);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<bool> h(static_cast<std::size_t>(random() % 400));
    for (std::size_t i = 0; i < h.size(); ++i) h[i] = random() % 3 == 0;
    const auto regions = DialogueRegion::fromHistory(h, 0.1);
    ASSERT_EQ(DialogueRegion::toHistory(regions, static_cast<std::int64_t>(h.size()), 0.1), h) << trial;
  }
}

TEST(DialogueRegion, ToHistoryUsesExactBlockArithmetic) {
  // 0.3 / 0.1 and 0.7 / 0.1 fall just under 3 and 7 in floating point; the blocks must not.
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.3, 0.6)}, 10, 0.1), bits("0001110000"));
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.7, 0.9)}, 10, 0.1), bits("0000000110"));
  // Times made by adding tenths, as a drag would make them.
  double t = 0;
  for (int i = 0; i < 3; ++i) t += 0.1;  // 0.30000000000000004
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(t, t + 0.1)}, 10, 0.1), bits("0001000000"));
}

TEST(DialogueRegion, ABlockCountsWhenTheRegionCoversItsMiddle) {
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.35, 0.5)}, 6, 0.1), bits("000110"));
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.36, 0.5)}, 6, 0.1), bits("000010"));
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.2, 0.45)}, 6, 0.1), bits("001100"));
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.2, 0.46)}, 6, 0.1), bits("001110"));
  // A short region inside one block counts only if it covers the middle.
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.12, 0.18)}, 3, 0.1), bits("010"));
  EXPECT_EQ(DialogueRegion::toHistory(std::vector{region(0.07, 0.13)}, 3, 0.1), bits("000"));
}

TEST(DialogueRegion, ToHistoryClampsAndUnites) {
  const std::vector regions{region(-1.0, 0.25), region(0.5, 0.8), region(0.7, 5.0), region(0.4, 0.4)};
  EXPECT_EQ(DialogueRegion::toHistory(regions, 10, 0.1), bits("1100011111"));
  EXPECT_TRUE(DialogueRegion::toHistory(regions, 0, 0.1).empty());
}

TEST(DialogueRegion, SliceTakesTheSelectionsOwnBlocks) {
  const auto h = bits("0001111000");  // 1 s at 48 kHz, blocks of 4800 frames
  // Selection from 0.3 s for 0.4 s: exactly blocks 3..6.
  EXPECT_EQ(DialogueRegion::sliceHistory(h, 14400, 19200, 48000, 0.1), bits("1111"));
  // From 0.26 s: block j's middle lies at 0.31 + 0.1 j → file blocks 3, 4, 5, 6, 7.
  EXPECT_EQ(DialogueRegion::sliceHistory(h, 12480, 24000, 48000, 0.1), bits("11110"));
  // From 0.24 s: the middles at 0.29, 0.39 ... → file blocks 2, 3, 4.
  EXPECT_EQ(DialogueRegion::sliceHistory(h, 11520, 14400, 48000, 0.1), bits("011"));
  // A partial last block counts by its own middle: 0.3 s + 0.05 s → one block, middle 0.325.
  EXPECT_EQ(DialogueRegion::sliceHistory(h, 14400, 2400, 48000, 0.1), bits("1"));
  // Past the history's end: false; an empty selection: no blocks.
  EXPECT_EQ(DialogueRegion::sliceHistory(h, 43200, 14400, 48000, 0.1), bits("000"));
  EXPECT_TRUE(DialogueRegion::sliceHistory(h, 4800, 0, 48000, 0.1).empty());
}

TEST(DialogueRegion, IdsAreDistinctVersionFourUUIDs) {
  const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string id = DialogueRegion::makeID();
    ASSERT_TRUE(std::regex_match(id, form)) << id;
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

TEST(SpeechRanges, PausesOfUpToThreeBlocksAreFilled) {
  auto ranges = computeSpeechRanges(bits("10001"), 0, 0.1);
  ASSERT_EQ(ranges.size(), 1u);
  EXPECT_DOUBLE_EQ(ranges[0].startSec, 0.0);
  EXPECT_DOUBLE_EQ(ranges[0].endSec, 0.5);

  ranges = computeSpeechRanges(bits("100001"), 0, 0.1);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_DOUBLE_EQ(ranges[0].endSec, 0.1);
  EXPECT_DOUBLE_EQ(ranges[1].startSec, 0.5);
  EXPECT_DOUBLE_EQ(ranges[1].endSec, 0.6);
}

TEST(SpeechRanges, OnlyPausesBetweenSpeechAreFilled) {
  // Leading and trailing silence stays silence; the selection start shifts every time.
  const auto ranges = computeSpeechRanges(bits("00110100"), 12.5, 0.1);
  ASSERT_EQ(ranges.size(), 1u);
  EXPECT_DOUBLE_EQ(ranges[0].startSec, 12.7);
  EXPECT_DOUBLE_EQ(ranges[0].endSec, 13.1);
  EXPECT_TRUE(computeSpeechRanges({}, 0, 0.1).empty());
  EXPECT_TRUE(computeSpeechRanges(bits("0000"), 0, 0.1).empty());
}

TEST(SpeechRanges, ARunToTheEndClosesAtTheEndOfTheLastBlock) {
  const auto ranges = computeSpeechRanges(bits("0111"), 2.0, 0.1);
  ASSERT_EQ(ranges.size(), 1u);
  EXPECT_DOUBLE_EQ(ranges[0].startSec, 2.1);
  EXPECT_DOUBLE_EQ(ranges[0].endSec, 2.4);
}

}  // namespace
}  // namespace corvane
