#include <gtest/gtest.h>

#include <stdexcept>

#include "core/AudioBuffer.h"

namespace corvane {
namespace {

TEST(AudioBuffer, CloneCopiesOnlyTheFramesThatHoldAudio) {
  auto buffer = AudioBuffer::createZeroed(2, 100, 48000.0);
  for (int i = 0; i < 100; ++i) {
    buffer->channel(0)[i] = static_cast<float>(i);
    buffer->channel(1)[i] = -static_cast<float>(i);
  }
  buffer->setFrameLength(60);
  buffer->setChannelPositions({ChannelPosition::FrontLeft, ChannelPosition::FrontRight});

  auto copy = buffer->clone();
  ASSERT_EQ(copy->frameLength(), 60);
  EXPECT_EQ(copy->frameCapacity(), 60);
  EXPECT_EQ(copy->sampleRate(), 48000.0);
  EXPECT_EQ(copy->channelPositions(), buffer->channelPositions());
  EXPECT_NE(copy->channel(0), buffer->channel(0));
  EXPECT_EQ(copy->channel(0)[59], 59.0f);
  EXPECT_EQ(copy->channel(1)[59], -59.0f);
}

TEST(AudioBuffer, RejectsInconsistentShapes) {
  EXPECT_THROW(AudioBuffer::create(-1, 10, 48000.0), std::invalid_argument);
  EXPECT_THROW(AudioBuffer::create(1, -10, 48000.0), std::invalid_argument);
  EXPECT_THROW(AudioBuffer::create(1, 10, 0.0), std::invalid_argument);
  auto buffer = AudioBuffer::create(3, 10, 44100.0);
  EXPECT_THROW(buffer->setChannelPositions({ChannelPosition::FrontLeft}), std::invalid_argument);
  buffer->setFrameLength(1000);
  EXPECT_EQ(buffer->frameLength(), 10);
  buffer->setFrameLength(-5);
  EXPECT_EQ(buffer->frameLength(), 0);
}

TEST(AudioBuffer, EmptyBufferStillHasValidChannelPointers) {
  auto buffer = AudioBuffer::createZeroed(2, 0, 48000.0);
  ASSERT_NE(buffer->channel(0), nullptr);
  ASSERT_NE(buffer->channel(1), nullptr);
  EXPECT_EQ(buffer->frameLength(), 0);
  EXPECT_EQ(buffer->clone()->frameLength(), 0);
}

TEST(AudioBuffer, AdoptedArraysBecomeTheChannelsWithoutACopy) {
  std::vector<std::vector<float>> arrays{{1.0f, 2.0f, 3.0f}, {-1.0f, -2.0f, -3.0f}, {7.0f, 8.0f, 9.0f}};
  const float* first = arrays[0].data();
  const float* third = arrays[2].data();
  auto buffer = AudioBuffer::adopt(std::move(arrays), 44100.0);
  EXPECT_EQ(buffer->channelCount(), 3);
  EXPECT_EQ(buffer->frameLength(), 3);
  EXPECT_EQ(buffer->frameCapacity(), 3);
  EXPECT_EQ(buffer->sampleRate(), 44100.0);
  EXPECT_EQ(buffer->channel(0), first);
  EXPECT_EQ(buffer->channel(2), third);
  EXPECT_EQ(buffer->channel(1)[2], -3.0f);

  // Adopted channels move with a permutation like allocated ones, and outlive the original.
  buffer->permuteChannels({2, 0, 1});
  EXPECT_EQ(buffer->channel(0), third);
  EXPECT_EQ(buffer->channel(1), first);
  auto copy = buffer->clone();
  buffer.reset();
  EXPECT_EQ(copy->channel(0)[0], 7.0f);
  EXPECT_EQ(copy->channel(2)[1], -2.0f);

  // Empty arrays still give valid pointers; unequal lengths and a bad rate are refused.
  auto empty = AudioBuffer::adopt({{}, {}}, 48000.0);
  EXPECT_NE(empty->channel(1), nullptr);
  EXPECT_EQ(empty->frameLength(), 0);
  EXPECT_THROW(AudioBuffer::adopt({{1.0f}, {1.0f, 2.0f}}, 48000.0), std::invalid_argument);
  EXPECT_THROW(AudioBuffer::adopt({{1.0f}}, 0.0), std::invalid_argument);
}

}  // namespace
}  // namespace corvane
