// Playback on a real JACK server (dummy driver), heard by a second JACK client.
#include <gtest/gtest.h>

#include <ebur128.h>

#include <algorithm>
#include <cmath>

#include "playback/RoutingGain.h"
#include "support/JackPlaybackRig.h"
#include "support/PlaybackTestSignals.h"

namespace corvane::test {
namespace {

using JackPlayback = OnJackServer;

// Where the audio starts on the captured ports: the first non-silent sample of any of them.
long captureStart(const JackPlaybackRig& rig, int channels) {
  long start = -1;
  for (int c = 0; c < channels; ++c) {
    const long s = firstAbove(rig.capture.channel(c));
    if (s >= 0 && (start < 0 || s < start)) start = s;
  }
  return start;
}

TEST_F(JackPlayback, DeviceListShowsTheServersPortsWithTheirChannelCounts) {
  JackCaptureClient threePorts("cvthree", 3);
  AudioDeviceCatalog catalog({AudioBackend::jack}, {kStreamClientName});
  const auto system = jackLspCounts(server->name(), "system");
  const auto three = jackLspCounts(server->name(), "cvthree");
  ASSERT_EQ(system.inputPorts, 8);  // the server really has what the device list should show

  const auto find = [&](const std::string& name) {
    const auto& list = catalog.outputDevices();
    const auto it = std::find_if(list.begin(), list.end(), [&](const auto& d) { return d.name == name; });
    return it == list.end() ? std::optional<AudioOutputDevice>() : *it;
  };
  const auto systemOut = find("system");
  ASSERT_TRUE(systemOut);
  EXPECT_EQ(systemOut->id, "jack:system");
  EXPECT_EQ(systemOut->outputChannelCount, system.inputPorts);
  EXPECT_EQ(systemOut->preferredSampleRate, 48000u);
  const auto threeOut = find("cvthree");
  ASSERT_TRUE(threeOut);
  EXPECT_EQ(threeOut->outputChannelCount, three.inputPorts);
  EXPECT_EQ(AudioDeviceCatalog::pickerLabel(*threeOut), "cvthree (3 ch)");

  // The hardware client is the default and has inputs too, with a count of their own.
  ASSERT_TRUE(catalog.selectedDevice());
  EXPECT_EQ(catalog.selectedDevice()->id, "jack:system");
  const auto& inputs = catalog.inputDevices();
  const auto systemIn = std::find_if(inputs.begin(), inputs.end(), [](const auto& d) { return d.id == "jack:system"; });
  ASSERT_NE(systemIn, inputs.end());
  EXPECT_EQ(systemIn->inputChannelCount, system.outputPorts);
  // A client with only inputs is no input device.
  EXPECT_TRUE(std::none_of(inputs.begin(), inputs.end(), [](const auto& d) { return d.name == "cvthree"; }));

  // This program's own stream is not offered as a device.
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(2, 4800));
  ASSERT_TRUE(rig.build());
  rig.controller.play();
  rig.runFor(0.05);
  EXPECT_GT(jackLspCounts(server->name(), kStreamClientName).outputPorts, 0);
  rig.catalog.refresh();
  for (const auto& d : rig.catalog.inputDevices()) EXPECT_NE(d.name, kStreamClientName);
}

TEST_F(JackPlayback, DeliversExactlyTheBuffersSamplesAndStopsWithFinalLoudness) {
  JackPlaybackRig rig;
  ASSERT_TRUE(rig.deviceIsCapture());
  const FrameCount frames = 36000;  // 0.75 s
  rig.load(indexCodedBuffer(2, frames));
  ASSERT_TRUE(rig.build());
  EXPECT_EQ(rig.controller.graph().liveGraphChannels(), 8);
  ASSERT_TRUE(rig.playToEnd(5.0)) << "the end of the file did not stop the transport";

  const long start = captureStart(rig, 8);
  ASSERT_GE(start, 0);
  for (int c = 0; c < 2; ++c) {
    const std::vector<float> x = rig.capture.channel(c);
    ASSERT_GE(static_cast<long>(x.size()), start + frames);
    for (FrameCount i = 0; i < frames; ++i) {
      ASSERT_EQ(x[start + i], indexCodedSample(i, c)) << "channel " << c << " frame " << i;
    }
    // Nothing after the last frame.
    EXPECT_EQ(lastAbove(x), start + frames - 1);
  }
  for (int c = 2; c < 8; ++c) EXPECT_EQ(firstAbove(rig.capture.channel(c)), -1) << "port " << c;

  // Stopped at the end: position back to 0, the pass's loudness figures published.
  EXPECT_FALSE(rig.controller.isPlaying());
  EXPECT_EQ(rig.controller.playbackFrame(), 0);
  EXPECT_EQ(rig.controller.currentTime(), 0.0);
  ASSERT_TRUE(rig.controller.finalLoudness().has_value());
}

TEST_F(JackPlayback, FinalLoudnessOfAPassAgreesWithLibebur128) {
  JackPlaybackRig rig;
  const auto buffer = sineBuffer(2, 72000, 997.0, 0.1);  // 1.5 s at -20 dBFS
  rig.load(buffer);
  ASSERT_TRUE(rig.build());
  ASSERT_TRUE(rig.playToEnd(5.0));
  ASSERT_TRUE(rig.controller.finalLoudness().has_value());

  ebur128_state* state = ebur128_init(2, 48000, EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK);
  std::vector<float> interleaved(72000 * 2);
  for (int i = 0; i < 72000; ++i) {
    interleaved[2 * i] = buffer->channel(0)[i];
    interleaved[2 * i + 1] = buffer->channel(1)[i];
  }
  ebur128_add_frames_float(state, interleaved.data(), 72000);
  double integrated = 0.0, peak = 0.0;
  ebur128_loudness_global(state, &integrated);
  ebur128_true_peak(state, 0, &peak);
  ebur128_destroy(&state);
  EXPECT_NEAR(rig.controller.finalLoudness()->integratedLUFS, integrated, 0.1);
  EXPECT_NEAR(rig.controller.finalLoudness()->truePeakDB, 20.0 * std::log10(peak), 0.1);
}

TEST_F(JackPlayback, MonoPlaysAtMinusThreeDBOnBothOutputs) {
  JackPlaybackRig rig;
  const FrameCount frames = 24000;
  rig.load(indexCodedBuffer(1, frames));
  ASSERT_TRUE(rig.build());
  ASSERT_TRUE(rig.playToEnd(5.0));
  const long start = captureStart(rig, 8);
  ASSERT_GE(start, 0);
  for (int c = 0; c < 2; ++c) {
    const std::vector<float> x = rig.capture.channel(c);
    for (FrameCount i = 0; i < frames; ++i) {
      ASSERT_EQ(x[start + i], 0.70794576f * indexCodedSample(i, 0)) << "port " << c << " frame " << i;
    }
  }
  for (int c = 2; c < 8; ++c) EXPECT_EQ(firstAbove(rig.capture.channel(c)), -1) << "port " << c;
}

TEST_F(JackPlayback, FiveOneLandsEachChannelOnItsOwnPort) {
  JackPlaybackRig rig;
  const FrameCount frames = 24000;
  auto buffer = indexCodedBuffer(6, frames);
  rig.load(buffer);
  ASSERT_TRUE(rig.build());
  ASSERT_TRUE(rig.playToEnd(5.0));
  const long start = captureStart(rig, 8);
  ASSERT_GE(start, 0);
  for (int c = 0; c < 6; ++c) {
    const std::vector<float> x = rig.capture.channel(c);
    for (FrameCount i = 0; i < frames; i += 97) {
      const auto frame = frameOfSample(x[start + i], c);
      ASSERT_TRUE(frame.has_value()) << "port " << c << " carries another channel at " << i;
      ASSERT_EQ(*frame, i) << "port " << c;
    }
  }
  EXPECT_EQ(firstAbove(rig.capture.channel(6)), -1);
  EXPECT_EQ(firstAbove(rig.capture.channel(7)), -1);
}

TEST_F(JackPlayback, MuteGainAndPhaseDoWhatTheySay) {
  JackPlaybackRig rig;
  const double rate = 48000.0;
  const FrameCount frames = 48000;
  // Channel 0: a 1 kHz tone; channel 1: a 1 kHz tone too, which mute must silence.
  auto buffer = sineBuffer(2, frames, 1000.0, 0.25);
  rig.load(buffer);
  ChannelRoutings routings = defaultRoutings(2, 8, {});
  const auto route = [&](int out, int src, double gainDB, RoutingPhase phase) {
    routings[out].sources = {ChannelSourceSlot{RoutingId::create(), src, routingGainFromDB(gainDB), phase}};
  };
  route(0, 0, 0.0, RoutingPhase::inPhase);   // reference
  route(1, 0, 6.0, RoutingPhase::inPhase);
  route(2, 0, -6.0, RoutingPhase::inPhase);
  route(3, 0, 0.0, RoutingPhase::invert);
  route(4, 0, 0.0, RoutingPhase::plus90);
  route(5, 0, 0.0, RoutingPhase::minus90);
  route(6, 1, 0.0, RoutingPhase::inPhase);   // muted below
  route(7, 1, -6.0, RoutingPhase::plus90);   // muted too, though at ±90°
  rig.controller.setRoutings(routings);
  rig.controller.setMutedSourceChannels({1});
  ASSERT_TRUE(rig.build());
  ASSERT_TRUE(rig.playToEnd(5.0));

  std::vector<std::vector<float>> out;
  for (int c = 0; c < 8; ++c) out.push_back(rig.capture.channel(c));
  const long start = firstAbove(out[0]);
  ASSERT_GE(start, 0);
  // Measure in the middle, clear of the filter's start-up: 480 samples = 10 whole periods.
  const long from = start + 12000;
  const long count = 480;
  const double ref = rms(out[0], from, count);
  EXPECT_NEAR(ref, 0.25 / std::sqrt(2.0), 1e-3);
  EXPECT_NEAR(20 * std::log10(rms(out[1], from, count) / ref), 6.0, 0.01);
  EXPECT_NEAR(20 * std::log10(rms(out[2], from, count) / ref), -6.0, 0.01);
  for (long i = from; i < from + count; ++i) ASSERT_EQ(out[3][i], -out[0][i]);

  const double phase0 = phaseDegrees(out[0], from, count, 1000.0, rate);
  const double plus = wrapDegrees(phaseDegrees(out[4], from, count, 1000.0, rate) - phase0);
  const double minus = wrapDegrees(phaseDegrees(out[5], from, count, 1000.0, rate) - phase0);
  // +90° plays the core's quadrature row, which lags its reference by a quarter period.
  EXPECT_NEAR(plus, -90.0, 1.0) << "+90° slot";
  EXPECT_NEAR(minus, -plus, 1.0) << "−90° is the opposite quadrature";
  EXPECT_NEAR(rms(out[4], from, count) / ref, 1.0, 0.06);
  EXPECT_EQ(firstAbove(out[6]), -1);
  EXPECT_EQ(firstAbove(out[7]), -1);
}

}  // namespace
}  // namespace corvane::test
