// Canonical channel order, display names, WAV order and the 7.1 order check.
#include <gtest/gtest.h>

#include "core/ChannelOrder.h"

namespace corvane {
namespace {

using P = ChannelPosition;

TEST(ChannelOrderLayouts, ContainerOrdersMapOntoTheCanonicalOrder) {
  struct Case {
    const char* name;
    std::vector<P> positions;
    std::vector<int> permutation;
  };
  const std::vector<Case> cases{
      {"Vorbis 5.1", {P::FrontLeft, P::FrontCenter, P::FrontRight, P::BackLeft, P::BackRight, P::LowFrequency}, {0, 2, 1, 5, 3, 4}},
      {"AAC 5.1", {P::FrontCenter, P::FrontLeft, P::FrontRight, P::SideLeft, P::SideRight, P::LowFrequency}, {1, 2, 0, 5, 3, 4}},
      {"WAV 5.1", {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight}, {}},
      {"WAV 5.1 side", {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::SideLeft, P::SideRight}, {}},
      {"7.1 sides first", {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::SideLeft, P::SideRight, P::BackLeft, P::BackRight}, {0, 1, 2, 3, 6, 7, 4, 5}},
      {"Vorbis 7.1", {P::FrontLeft, P::FrontCenter, P::FrontRight, P::SideLeft, P::SideRight, P::BackLeft, P::BackRight, P::LowFrequency}, {0, 2, 1, 7, 5, 6, 3, 4}},
      {"swapped stereo", {P::FrontRight, P::FrontLeft}, {1, 0}},
      {"quad", {P::BackLeft, P::BackRight, P::FrontLeft, P::FrontRight}, {2, 3, 0, 1}},
      {"3.0 L C R", {P::FrontLeft, P::FrontCenter, P::FrontRight}, {0, 2, 1}},
      {"mixed surround pair", {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::SideRight}, {}},
      {"two lefts", {P::FrontLeft, P::FrontLeft, P::FrontCenter}, {}},
      {"unlabelled channel", {P::FrontRight, P::Unknown}, {}},
      {"7.1 wide", {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight, P::FrontLeftOfCenter, P::FrontRightOfCenter}, {}},
      {"6.1", {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackCenter, P::SideLeft, P::SideRight}, {}},
      {"no positions", {}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ChannelOrder::canonicalPermutation(c.positions), c.permutation);
  }
}

SharedAudioBuffer taggedBuffer(const std::vector<P>& positions) {
  auto buffer = AudioBuffer::create(static_cast<int>(positions.size()), 4, 48000.0);
  for (int c = 0; c < buffer->channelCount(); ++c) std::fill_n(buffer->channel(c), 4, static_cast<float>(c));
  buffer->setChannelPositions(positions);
  return buffer;
}

TEST(ChannelOrderLayouts, CanonicalizeMovesChannelsWithoutCopyingUnlessShared) {
  const std::vector<P> vorbis{P::FrontLeft, P::FrontCenter, P::FrontRight, P::BackLeft, P::BackRight, P::LowFrequency};
  const std::vector<P> canonical{P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight};

  auto only = taggedBuffer(vorbis);
  const float* centre = only->channel(1);
  auto* original = only.get();
  auto result = ChannelOrder::canonicalize(std::move(only));
  EXPECT_EQ(result.get(), original);
  EXPECT_EQ(result->channel(2), centre) << "the centre channel's array moved, not copied";
  EXPECT_EQ(result->channelPositions(), canonical);
  const std::vector<float> expected{0, 2, 1, 5, 3, 4};
  for (int c = 0; c < 6; ++c) EXPECT_EQ(result->channel(c)[3], expected[static_cast<std::size_t>(c)]);

  auto shared = taggedBuffer(vorbis);
  const auto keeper = shared;
  auto copy = ChannelOrder::canonicalize(shared);
  EXPECT_NE(copy.get(), keeper.get());
  EXPECT_EQ(keeper->channelPositions(), vorbis);
  EXPECT_EQ(keeper->channel(1)[0], 1.0f);
  EXPECT_EQ(copy->channel(2)[0], 1.0f);

  auto plain = AudioBuffer::create(6, 4, 48000.0);
  EXPECT_EQ(ChannelOrder::canonicalize(plain).get(), plain.get());
}

TEST(ChannelOrderLayouts, PermutingChannelsChecksThePermutation) {
  auto buffer = taggedBuffer({P::FrontLeft, P::FrontRight, P::FrontCenter});
  EXPECT_THROW(buffer->permuteChannels({0, 0, 1}), std::invalid_argument);
  EXPECT_THROW(buffer->permuteChannels({0, 1}), std::invalid_argument);
  EXPECT_THROW(buffer->permuteChannels({0, 1, 3}), std::invalid_argument);
  EXPECT_EQ(buffer->channel(1)[0], 1.0f);
  buffer->permuteChannels({2, 0, 1});
  EXPECT_EQ(buffer->channel(0)[0], 2.0f);
  EXPECT_EQ(buffer->channelPositions(), (std::vector<P>{P::FrontCenter, P::FrontLeft, P::FrontRight}));
}

TEST(ChannelOrderLayouts, ShortNamesFollowTheLayoutsLabels) {
  using V = std::vector<std::string>;
  EXPECT_EQ(ChannelOrder::displayShortNames(std::vector<P>{P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight}),
            (V{"L", "R", "C", "LFE", "Ls", "Rs"}));
  EXPECT_EQ(ChannelOrder::displayShortNames(std::vector<P>{P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::SideLeft, P::SideRight}),
            (V{"L", "R", "C", "LFE", "Ls", "Rs"}));
  EXPECT_EQ(ChannelOrder::displayShortNames(std::vector<P>{P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight, P::SideLeft, P::SideRight}),
            (V{"L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss"}));
  EXPECT_EQ(ChannelOrder::displayShortNames(std::vector<P>{P::FrontCenter}), (V{"M"}));
  EXPECT_EQ(ChannelOrder::displayShortNames(std::vector<P>{P::Mono}), (V{"M"}));
  EXPECT_EQ(ChannelOrder::displayShortNames(std::vector<P>{P::FrontLeftOfCenter, P::FrontRightOfCenter, P::BackCenter, P::TopCenter, P::TopFrontLeft, P::TopBackRight}),
            (V{"Lc", "Rc", "Cs", "Ts", "Tfl", "Tbr"}));
  EXPECT_TRUE(ChannelOrder::displayShortNames(std::vector<P>{P::FrontLeft, P::Unknown}).empty());
  EXPECT_TRUE(ChannelOrder::displayShortNames(std::vector<P>{}).empty());
}

TEST(ChannelOrderLayouts, WavHoldsOnlyAscendingSpeakerOrder) {
  EXPECT_TRUE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{}));
  EXPECT_TRUE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight, P::SideLeft, P::SideRight}));
  EXPECT_TRUE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{P::FrontLeft, P::FrontRight, P::Unknown, P::Unknown}));
  EXPECT_TRUE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{P::Unknown, P::Unknown, P::Unknown}));
  EXPECT_FALSE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{P::FrontCenter, P::FrontLeft, P::FrontRight}));
  EXPECT_FALSE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{P::Unknown, P::FrontLeft}));
  EXPECT_FALSE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{P::FrontLeft, P::FrontLeft}));
  EXPECT_FALSE(ChannelOrder::wavPreservesChannelOrder(std::vector<P>{P::FrontLeft, P::FrontRight, P::SideLeft, P::SideRight, P::BackLeft, P::BackRight}));
}

TEST(ChannelOrderLayouts, TheSmpte71OrderUnderItsUsualNames) {
  using V = std::vector<std::string>;
  EXPECT_TRUE(ChannelOrder::is71SMPTEOrdered(V{"L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss"}));
  EXPECT_TRUE(ChannelOrder::is71SMPTEOrdered(V{"FL", "FR", "FC", "LFE", "BL", "BR", "SL", "SR"}));
  EXPECT_TRUE(ChannelOrder::is71SMPTEOrdered(V{"left", "RIGHT", "Centre", "lfe", "Lrs", "Rrs", "Lsd", "Rsd"}));
  EXPECT_FALSE(ChannelOrder::is71SMPTEOrdered(V{"L", "R", "C", "LFE", "Lss", "Rss", "Ls", "Rs"}));
  EXPECT_FALSE(ChannelOrder::is71SMPTEOrdered(V{"L", "C", "R", "Ls", "Rs", "Lss", "Rss", "LFE"}));
  EXPECT_FALSE(ChannelOrder::is71SMPTEOrdered(V{"L", "R", "C", "LFE", "Ls", "Rs"}));
}

}  // namespace
}  // namespace corvane
