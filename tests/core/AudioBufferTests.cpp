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

}  // namespace
}  // namespace corvane
