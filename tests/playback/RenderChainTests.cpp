// The render chain offline, through the manual output (the code the device callback runs):
// which filter each graph shape uses, the edit-mode channel map, the end of file after a
// time-pitch tail, the analysis feed and the output tap.
#include <gtest/gtest.h>

#include <cmath>

#include "core/ChannelOrder.h"
#include "playback/PlaybackController.h"
#include "support/PlaybackTestSignals.h"
#include "support/RbjOracle.h"

namespace corvane::test {
namespace {

struct OfflineRig {
  explicit OfflineRig(int outputChannels, double rate = 48000.0) : channels(outputChannels) {
    controller.setManualOutput(ManualOutput{rate, outputChannels});
    storage.assign(static_cast<std::size_t>(outputChannels) * kBlock, 0.0f);
    for (int c = 0; c < outputChannels; ++c) pointers.push_back(storage.data() + c * kBlock);
  }
  void load(SharedAudioBuffer buffer) {
    controller.loadSource(PlaybackSource{buffer, ChannelOrder::bs1770Weights(*buffer), nullptr});
    controller.setupRoutings(buffer->channelCount(), std::max(2, channels));
  }
  // Renders `frames` frames and appends each output channel to `out`.
  void render(FrameCount frames) {
    out.resize(static_cast<std::size_t>(channels));
    for (FrameCount done = 0; done < frames; done += kBlock) {
      controller.graph().renderManual(pointers.data(), kBlock);
      for (int c = 0; c < channels; ++c) out[c].insert(out[c].end(), pointers[c], pointers[c] + kBlock);
    }
  }
  static constexpr int kBlock = 512;
  int channels;
  PlaybackController controller;
  std::vector<float> storage;
  std::vector<float*> pointers;
  std::vector<std::vector<float>> out;
};

void expectResponse(const std::vector<float>& h, double fs, const std::string& form, double lo,
                    double hi) {
  const std::vector<double> freqs = logGrid(30.0, 0.45 * fs, 60);
  const std::vector<double> expected = rbjOracleDB(fs, form, lo, hi, freqs);
  ASSERT_EQ(expected.size(), freqs.size());
  const std::vector<double> actual = responseDB(h, fs, freqs);
  for (std::size_t i = 0; i < freqs.size(); ++i) {
    if (expected[i] < -40.0) continue;
    EXPECT_NEAR(actual[i], expected[i], 0.1) << form << " at " << freqs[i] << " Hz";
  }
}

SharedAudioBuffer impulse(int channels, FrameCount frames) {
  auto buffer = AudioBuffer::createZeroed(channels, frames, 48000.0);
  for (int c = 0; c < channels; ++c) buffer->channel(c)[0] = 1.0f;
  return buffer;
}

TEST(RenderChain, TwoChannelGraphFiltersInItsEqMultichannelInTheCallback) {
  {
    OfflineRig rig(2);
    rig.load(impulse(2, 1 << 15));
    rig.controller.setFreqFilter(FreqRange{200.0, 2000.0}, FreqFilterMode::bandReject);
    ASSERT_TRUE(rig.controller.setupEngine());
    EXPECT_TRUE(rig.controller.graph().isStereoGraph());
    rig.controller.play();
    rig.render(1 << 15);
    expectResponse(rig.out[1], 48000.0, "peakcut", 200.0, 2000.0);
    // Changed while playing: the new filter starts from zero state at the next buffer.
    rig.controller.setFreqFilter(FreqRange{300.0, 3000.0}, FreqFilterMode::bandPass);
    rig.controller.seek(0.0, true);
    rig.out.clear();
    rig.render(1 << 15);
    expectResponse(rig.out[0], 48000.0, "bandpass", 300.0, 3000.0);
  }
  {
    OfflineRig rig(6);
    rig.load(impulse(2, 1 << 15));
    rig.controller.setFreqFilter(FreqRange{200.0, 2000.0}, FreqFilterMode::bandReject);
    ASSERT_TRUE(rig.controller.setupEngine());
    EXPECT_FALSE(rig.controller.graph().isStereoGraph());
    rig.controller.play();
    rig.render(1 << 15);
    expectResponse(rig.out[0], 48000.0, "notch", 200.0, 2000.0);
    // Outputs without a source stay silent through the filter.
    EXPECT_EQ(firstAbove(rig.out[4]), -1);
  }
}

TEST(RenderChain, EditModeOnAWideDevicePlaysTheIdentityRoutingThroughTheChannelMap) {
  OfflineRig rig(6);
  rig.load(indexCodedBuffer(2, 4800));
  rig.controller.setEditMode(true);
  // The user's matrix: output 4 takes R, output 5 takes L at -6 dB (the map ignores gains),
  // outputs 2 and 3 are placeholders.
  ChannelRoutings routings = rig.controller.routings();
  addRoute(routings, 4, 1);
  addRoute(routings, 5, 0);
  setRouteGainDB(routings, 5, 0, -6.0);
  rig.controller.setRoutings(routings);
  ASSERT_TRUE(rig.controller.setupEngine());
  EXPECT_TRUE(rig.controller.graph().isStereoGraph());
  EXPECT_TRUE(rig.controller.graph().usesIdentityRouting());
  EXPECT_EQ(rig.controller.graph().channelMap(), (std::vector<std::int32_t>{0, 1, -1, -1, 1, 0}));
  rig.controller.play();
  rig.render(4096);
  for (int i = 0; i < 4096; ++i) {
    ASSERT_EQ(rig.out[0][i], indexCodedSample(i, 0));
    ASSERT_EQ(rig.out[1][i], indexCodedSample(i, 1));
    ASSERT_EQ(rig.out[4][i], indexCodedSample(i, 1));
    ASSERT_EQ(rig.out[5][i], indexCodedSample(i, 0));
  }
  EXPECT_EQ(firstAbove(rig.out[2]), -1);
  EXPECT_EQ(firstAbove(rig.out[3]), -1);
  // Leaving edit mode rebuilds the graph as wide as the device, with the user's gains.
  rig.controller.setEditMode(false);
  EXPECT_FALSE(rig.controller.graph().isStereoGraph());
  EXPECT_EQ(rig.controller.graph().liveGraphChannels(), 6);
}

TEST(RenderChain, EndOfFileWaitsForTheTimePitchTail) {
  OfflineRig rig(2);
  rig.load(sineBuffer(1, 24000, 1000.0, 0.5));  // 0.5 s
  rig.controller.setPlaybackRate(2.0);
  ASSERT_TRUE(rig.controller.setupEngine());
  rig.controller.play();
  int blocks = 0;
  while (rig.controller.isPlaying() && blocks < 400) {
    rig.render(OfflineRig::kBlock);
    rig.controller.displayTick();
    ++blocks;
  }
  ASSERT_FALSE(rig.controller.isPlaying()) << "the end of the file never stopped the transport";
  // The whole tone came out before the stop: a quarter second at twice the speed.
  const long first = firstAbove(rig.out[0], 0.05f);
  const long last = lastAbove(rig.out[0], 0.05f);
  ASSERT_GE(first, 0);
  EXPECT_NEAR((last - first) / 48000.0, 0.25, 0.02);
  EXPECT_LT(last, static_cast<long>(rig.out[0].size()) - 256) << "stopped before the tail was out";
}

TEST(RenderChain, FeedsTheAnalysisFromTheSourceAndTapsTheOutput) {
  OfflineRig rig(2);
  const auto buffer = indexCodedBuffer(2, 48000);
  rig.load(buffer);
  ChannelRoutings routings = rig.controller.routings();
  setRouteGainDB(routings, 0, 0, -6.0);
  rig.controller.setRoutings(routings);
  ASSERT_TRUE(rig.controller.setupEngine());
  rig.controller.mirrors()._atomicAnalysisRings.publish(std::make_unique<AnalysisRings>(2, 16384));
  rig.controller.play();
  rig.render(10240);
  // The rings hold the source as it is, before routing and gain.
  const AnalysisRings* rings = rig.controller.mirrors()._atomicAnalysisRings.current();
  std::vector<float> copy(4096);
  ASSERT_TRUE(rings->rings[0]->copyLast(4096, copy.data()));
  for (int i = 0; i < 4096; ++i) ASSERT_EQ(copy[i], indexCodedSample(10240 - 4096 + i, 0));
  ASSERT_TRUE(rings->rings[1]->copyEnding(1000, 100, copy.data()));
  for (int i = 0; i < 100; ++i) ASSERT_EQ(copy[i], indexCodedSample(10240 - 1100 + i, 1));
  // The tap sees the output: two whole windows of 4096 frames published.
  const OutputTap& tap = rig.controller.graph().chain()->outputTap();
  EXPECT_EQ(tap.windowsPublished(), 2u);
  float tapRMS[2];
  tap.readOutputRMS(tapRMS);
  std::vector<float> window(rig.out[0].begin() + 4096, rig.out[0].begin() + 8192);
  EXPECT_NEAR(tapRMS[0], rms(window, 0, 4096), 1e-7);
  // The scope shows the first 512 frames of the newest window, here the third (from 8192),
  // published as soon as they are in.
  std::vector<float> left(OutputTap::kScopeFrames), right(OutputTap::kScopeFrames);
  ASSERT_EQ(tap.readPhaseScope(left, right), OutputTap::kScopeFrames);
  for (int i = 0; i < OutputTap::kScopeFrames; ++i) {
    ASSERT_EQ(left[i], rig.out[0][8192 + i]);
    ASSERT_EQ(right[i], rig.out[1][8192 + i]);
  }
  // The source meters: RMS of the last buffer's source frames.
  const std::vector<float> source(buffer->channel(1) + 10240 - 512, buffer->channel(1) + 10240);
  EXPECT_NEAR(rig.controller.graph().chain()->renderer().sourceRMS(1), rms(source, 0, 512), 1e-7);
}

TEST(RenderChain, BufferSwapRestartsTheLiveLoudnessAtThePlayhead) {
  OfflineRig rig(2);
  rig.load(sineBuffer(2, 5 * 48000, 1000.0, 0.2));
  ASSERT_TRUE(rig.controller.setupEngine());
  rig.controller.placePlayhead(2.0);
  rig.controller.play();
  rig.render(48000);
  LoudnessProcessor* loudness = rig.controller.graph().loudnessProcessor();
  EXPECT_EQ(loudness->blockCount(), 10);
  rig.controller.swapSourceBuffer(sineBuffer(2, 5 * 48000, 500.0, 0.1));
  rig.render(512);
  // Reset at the next buffer, block index placed at the frame it then stood on (3.0 s).
  EXPECT_EQ(loudness->blockCount(), 0);
  EXPECT_EQ(loudness->blockIndex(), 30);
}

TEST(RenderChain, SelectionBoundsAndOutputsPastTheRouting) {
  OfflineRig rig(4);
  rig.load(indexCodedBuffer(3, 48000));
  // A routing of two entries: outputs 2 and 3 lie past it. Output 2 plays source 2; the file
  // has no channel 3, so output 3 is silent.
  ChannelRoutings routings = defaultRoutings(3, 2, {});
  rig.controller.setRoutings(routings);
  ASSERT_TRUE(rig.controller.setupEngine());
  rig.controller.setSelection(PlaybackSelection{0.5, 0.6});
  rig.controller.play();
  // A frame before the selection moves to its start at the next buffer.
  rig.controller.mirrors()._playbackFrame.store(100);
  rig.render(1024);
  EXPECT_EQ(frameOfSample(rig.out[0][0], 0), 24000);
  EXPECT_EQ(frameOfSample(rig.out[2][0], 2), 24000);
  EXPECT_EQ(firstAbove(rig.out[3]), -1);
}

}  // namespace
}  // namespace corvane::test
