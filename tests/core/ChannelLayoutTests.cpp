#include <gtest/gtest.h>

#include "core/ChannelLayout.h"

namespace corvane {
namespace {

using C = ChannelColor;

TEST(ChannelLayout, KnownCountsHaveTheirNamesLabelsAndColours) {
  struct Row {
    int count;
    const char* name;
    std::vector<std::string> labels;
    std::vector<ChannelColor> colors;
  };
  const std::vector<Row> table{
      {1, "Mono", {"M"}, {C::cyan}},
      {2, "Stereo", {"L", "R"}, {C::cyan, C::green}},
      {3, "3.0", {"L", "R", "C"}, {C::cyan, C::green, C::yellow}},
      {4, "Quad", {"L", "R", "Ls", "Rs"}, {C::cyan, C::green, C::orange, C::purple}},
      {5, "5.0", {"L", "R", "C", "Ls", "Rs"}, {C::cyan, C::green, C::yellow, C::orange, C::purple}},
      {6, "5.1", {"L", "R", "C", "LFE", "Ls", "Rs"}, {C::cyan, C::green, C::yellow, C::red, C::orange, C::purple}},
      {8, "7.1", {"L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss"},
       {C::cyan, C::green, C::yellow, C::red, C::orange, C::purple, C::mint, C::pink}},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.count);
    const ChannelLayout layout(row.count);
    EXPECT_NE(layout.kind(), ChannelLayout::Kind::custom);
    EXPECT_EQ(layout.channelCount(), row.count);
    EXPECT_EQ(layout.displayName(), row.name);
    EXPECT_EQ(layout.channelLabels(), row.labels);
    EXPECT_EQ(layout.colors(), row.colors);
  }
}

TEST(ChannelLayout, OtherCountsAreCustomWithCyclingColours) {
  const ChannelLayout seven(7);
  EXPECT_EQ(seven.kind(), ChannelLayout::Kind::custom);
  EXPECT_EQ(seven.displayName(), "7 ch");
  EXPECT_EQ(seven.channelLabels(), (std::vector<std::string>{"Ch1", "Ch2", "Ch3", "Ch4", "Ch5", "Ch6", "Ch7"}));
  const ChannelLayout ten(10);
  EXPECT_EQ(ten.displayName(), "10 ch");
  EXPECT_EQ(ten.colors(), (std::vector<ChannelColor>{C::cyan, C::green, C::yellow, C::orange, C::red, C::purple,
                                                     C::mint, C::pink, C::cyan, C::green}));
  EXPECT_EQ(ChannelLayout(0).displayName(), "0 ch");
  EXPECT_TRUE(ChannelLayout(-3).channelLabels().empty());
  EXPECT_EQ(ChannelLayout(6), ChannelLayout(6));
  EXPECT_FALSE(ChannelLayout(6) == ChannelLayout(7));
  EXPECT_EQ(channelColorName(C::mint), "mint");
}

}  // namespace
}  // namespace corvane
