// Transport on a real JACK server: speed, selection, loop, seeks, hold-play-start, device
// changes while playing. Buffers are index-coded, so every captured sample tells which frame
// it came from.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "support/JackPlaybackRig.h"
#include "support/PlaybackTestSignals.h"

namespace corvane::test {
namespace {

using JackTransport = OnJackServer;

TEST_F(JackTransport, DoubleSpeedKeepsThePitchOrLetsItFollow) {
  JackPlaybackRig rig;
  const auto buffer = sineBuffer(1, 48000, 1000.0, 0.5);
  rig.load(buffer);
  rig.controller.setPlaybackRate(2.0);
  ASSERT_TRUE(rig.build());
  for (bool preserve : {true, false}) {
    rig.controller.setPreservePitch(preserve);
    ASSERT_TRUE(rig.playToEnd(5.0)) << "preservePitch " << preserve;
    const std::vector<float> x = rig.capture.channel(0);
    const long first = firstAbove(x, 0.05f);
    const long last = lastAbove(x, 0.05f);
    ASSERT_GE(first, 0);
    const double seconds = (last - first) / 48000.0;
    EXPECT_NEAR(seconds, 0.5, 0.03) << "preservePitch " << preserve;
    const double frequency = zeroCrossingFrequency(x, first + 4800, 9600, 48000.0);
    EXPECT_NEAR(frequency, preserve ? 1000.0 : 2000.0, 5.0) << "preservePitch " << preserve;
    // The level of the tone survives the stretch or the resampling (-3 dB of the mono spread).
    EXPECT_NEAR(rms(x, first + 4800, 9600), 0.5 * 0.70794576 / std::sqrt(2.0), 0.03);
  }
}

TEST_F(JackTransport, SelectionPlaysOnlyItsRangeAndStopsAtItsEnd) {
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(2, 48000));
  ASSERT_TRUE(rig.build());
  // The playhead inside the selection: play still starts at the selection's start.
  rig.controller.placePlayhead(0.4);
  rig.controller.setSelection(PlaybackSelection{0.25, 0.5});
  ASSERT_TRUE(rig.playToEnd(5.0));
  const auto runs = runsOf(rig.capture.channel(1), 1);
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].first, 12000);
  EXPECT_EQ(runs[0].second, 12000);
  // The end of a selection stops like the end of the file: back to 0, not to its start.
  EXPECT_EQ(rig.controller.playbackFrame(), 0);
}

TEST_F(JackTransport, LoopWrapsToTheSelectionStart) {
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(2, 48000));
  ASSERT_TRUE(rig.build());
  rig.controller.setSelection(PlaybackSelection{0.2, 0.25});
  rig.controller.setLooping(true);
  rig.capture.arm();
  rig.controller.play();
  rig.runFor(0.5);
  EXPECT_TRUE(rig.controller.isPlaying()) << "a loop never ends by itself";
  rig.controller.pause();
  rig.capture.disarm();
  const auto runs = runsOf(rig.capture.channel(0), 0);
  ASSERT_GE(runs.size(), 5u);
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const auto [first, length] = runs[i];
    EXPECT_GE(first, 9600);
    EXPECT_LE(first + length, 12000);
    // Every run but the first and the last covers the whole loop: nothing is skipped or repeated.
    if (i > 0 && i + 1 < runs.size()) {
      EXPECT_EQ(first, 9600);
      EXPECT_EQ(length, 2400);
    }
  }
}

TEST_F(JackTransport, SeekWhilePlayingContinuesFromTheTarget) {
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(2, 4 * 48000));
  ASSERT_TRUE(rig.build());
  rig.capture.arm();
  rig.controller.play();
  rig.runFor(0.3);
  rig.controller.placePlayhead(2.0);
  EXPECT_TRUE(rig.controller.isPlaying());
  rig.runFor(0.3);
  rig.controller.pause();
  rig.capture.disarm();
  const auto runs = runsOf(rig.capture.channel(0), 0);
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0].first, 0);
  EXPECT_EQ(runs[1].first, 96000);
  EXPECT_GT(runs[1].second, 4800);
}

TEST_F(JackTransport, HoldPlayStartReturnsPauseToTheAnchor) {
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(2, 3 * 48000));
  ASSERT_TRUE(rig.build());
  rig.controller.setHoldsPlayStart(true);
  rig.controller.placePlayhead(1.0);
  rig.controller.play();
  rig.runFor(0.2);
  EXPECT_GT(rig.controller.playbackFrame(), 48000);
  rig.controller.pause();
  EXPECT_EQ(rig.controller.playbackFrame(), 48000);
  EXPECT_EQ(rig.controller.currentTime(), 1.0);
  // A new place while paused becomes the anchor of the next pass.
  rig.controller.placePlayhead(0.5);
  rig.capture.arm();
  rig.controller.play();
  rig.runFor(0.2);
  rig.controller.pause();
  rig.capture.disarm();
  EXPECT_EQ(rig.controller.playbackFrame(), 24000);
  const auto runs = runsOf(rig.capture.channel(0), 0);
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].first, 24000);
  // With a selection, pause right after play goes back to the selection's start.
  rig.controller.setSelection(PlaybackSelection{1.5, 2.0});
  rig.controller.play();
  rig.runFor(0.05);
  rig.controller.pause();
  EXPECT_EQ(rig.controller.playbackFrame(), 72000);
  // Without hold, pause stays where playback got to.
  rig.controller.setHoldsPlayStart(false);
  rig.controller.setSelection(std::nullopt);
  rig.controller.placePlayhead(0.0);
  rig.controller.play();
  rig.runFor(0.2);
  rig.controller.pause();
  EXPECT_GT(rig.controller.playbackFrame(), 4800);
  EXPECT_EQ(rig.controller.currentTime(), rig.controller.playbackFrame() / 48000.0);
}

// Seeks land while the render callback runs; none may be undone by a buffer that started
// before it (the callback advances the frame only by compare-and-swap from where it began).
TEST_F(JackTransport, SeekStormNeverLosesASeek) {
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(8, 10 * 48000));
  // Every output but the first at +90°: the Hilbert filters lengthen each buffer's rendering,
  // and with it the window in which a seek meets a buffer under way.
  ChannelRoutings routings = rig.controller.routings();
  for (int o = 1; o < 8; ++o) routings[o].sources[0].phase = RoutingPhase::plus90;
  rig.controller.setRoutings(routings);
  rig.controller.setLooping(true);
  ASSERT_TRUE(rig.build());
  rig.controller.play();
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> lowHalf(0.0, 4.0);
  double target = 0.0;
  for (int i = 0; i < 1500; ++i) {
    // Alternate halves, so a lost seek leaves the frame seconds away from its target.
    target = lowHalf(rng) + (i % 2 ? 5.0 : 0.0);
    rig.controller.seek(target, true);
    // Look once a buffer that was under way at the seek has had time to finish.
    // Spinning, not sleeping: a sleeping main thread wakes in step with the server's timer and
    // would never meet a buffer under way.
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(300 + (i % 7) * 150);
    while (std::chrono::steady_clock::now() < until) {
    }
    const FrameCount frame = rig.controller.playbackFrame();
    const FrameCount expected = static_cast<FrameCount>(target * 48000.0);
    ASSERT_GE(frame, expected) << "seek " << i;
    ASSERT_LT(frame, expected + 24000) << "seek " << i << " was undone";
  }
  // And what is heard after the last seek starts at its target. The reference row of the
  // phase-shift path still holds the 50 frames from before the seek; they come first.
  rig.capture.arm();
  rig.runFor(0.2);
  rig.capture.disarm();
  rig.controller.pause();
  auto runs = runsOf(rig.capture.channel(0), 0);
  if (runs.size() > 1 && runs.front().second <= 50) runs.erase(runs.begin());
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_GE(runs.front().first, static_cast<FrameCount>(target * 48000.0));
  EXPECT_LE(runs.front().first, static_cast<FrameCount>(target * 48000.0) + 24000);
}

TEST_F(JackTransport, HotPlugRefreshesTheListWithoutStoppingPlayback) {
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(2, 5 * 48000));
  ASSERT_TRUE(rig.build());
  const auto selectedBefore = rig.catalog.selectedDevice();
  rig.capture.arm();
  rig.controller.play();
  rig.runFor(0.2);
  const auto listed = [&](const std::string& name) {
    const auto& list = rig.catalog.outputDevices();
    return std::any_of(list.begin(), list.end(), [&](const auto& d) { return d.name == name; });
  };
  {
    JackCaptureClient newcomer("cvhotplug", 2);
    EXPECT_TRUE(rig.catalog.refresh()) << "a new client is a change";
    EXPECT_TRUE(listed("cvhotplug"));
    EXPECT_FALSE(rig.catalog.refresh()) << "nothing changed since";
    rig.runFor(0.2);
  }
  EXPECT_TRUE(rig.catalog.refresh());
  EXPECT_FALSE(listed("cvhotplug"));
  EXPECT_EQ(rig.catalog.selectedDevice(), selectedBefore);
  rig.runFor(0.2);
  EXPECT_TRUE(rig.controller.isPlaying());
  rig.controller.pause();
  rig.capture.disarm();
  // One unbroken run: the re-scans never interrupted the stream.
  const auto runs = runsOf(rig.capture.channel(0), 0);
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].first, 0);
  EXPECT_GT(runs[0].second, 48000 / 2);
}

// Clients come and go while the list is read: a client that stays must be in every read, with
// its own channel count, and no client twice. (JACK hands a leaving client's port slots to the
// next one, so ports of different clients interleave in the server's port order.)
TEST_F(JackTransport, EveryReadListsTheClientsThatStayWhileOthersComeAndGo) {
  JackCaptureClient steady("cvsteady", 3);
  std::atomic<bool> done{false};
  std::thread churn([&] {
    for (int i = 0; !done.load(); ++i) {
      try {
        JackCaptureClient passing("cvpassing" + std::to_string(i % 3), 1 + i % 4);
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
      } catch (const std::runtime_error&) {
        // A busy server may refuse a client now and then; the churn goes on.
      }
    }
  });
  int reads = 0;
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  while (std::chrono::steady_clock::now() < until) {
    const AudioDeviceScan scan = scanAudioDevices({AudioBackend::jack}, {});
    ++reads;
    int steadyCount = 0;
    std::set<std::string> ids;
    for (const auto& d : scan.outputs) {
      EXPECT_TRUE(ids.insert(d.id).second) << d.id << " listed twice in read " << reads;
      if (d.name == "cvsteady") {
        ++steadyCount;
        EXPECT_EQ(d.outputChannelCount, 3) << "read " << reads;
      }
      if (d.name == "system") {
        EXPECT_EQ(d.outputChannelCount, 8) << "read " << reads;
      }
    }
    EXPECT_EQ(steadyCount, 1) << "read " << reads;
    if (::testing::Test::HasFailure()) break;
  }
  done.store(true);
  churn.join();
  std::printf("[ measured ] %d reads of the device list while clients came and went\n", reads);
}

TEST_F(JackTransport, ChoosingADeviceWhilePlayingResumesThere) {
  JackPlaybackRig rig;
  rig.load(indexCodedBuffer(1, 4 * 48000));
  ASSERT_TRUE(rig.build());
  JackCaptureClient other("cvother", 2);
  rig.catalog.refresh();
  std::optional<AudioOutputDevice> target;
  for (const auto& d : rig.catalog.outputDevices()) {
    if (d.name == "cvother") target = d;
  }
  ASSERT_TRUE(target);
  rig.controller.play();
  rig.runFor(0.3);
  other.arm();
  rig.controller.setOutputDevice(*target);
  const double resumedAt = rig.controller.currentTime();
  EXPECT_TRUE(rig.controller.isPlaying());
  EXPECT_GT(resumedAt, 0.2);
  rig.runFor(0.3);
  rig.controller.pause();
  other.disarm();
  EXPECT_EQ(rig.controller.graph().liveGraphChannels(), 2);
  // The new device's default routing: mono spread at -3 dB, from where playback was.
  const std::vector<float> x = other.channel(0);
  const long first = firstAbove(x);
  ASSERT_GE(first, 0);
  const auto frame = frameOfSample(x[first] / 0.70794576f, 0);
  ASSERT_TRUE(frame.has_value() || std::fabs(x[first] / 0.70794576f - indexCodedSample(static_cast<FrameCount>(resumedAt * 48000), 0)) < 1e-6);
  EXPECT_NEAR(x[first] / 0.70794576f, indexCodedSample(static_cast<FrameCount>(resumedAt * 48000), 0), 2e-6);
}

TEST_F(JackTransport, LosingTheServerStopsTheTransportAndSaysSo) {
  struct Listener : PlaybackListener {
    bool lost = false;
    void outputDeviceLost() override { lost = true; }
  } listener;
  const std::string previous = server->name();
  {
    auto second = std::make_unique<JackTestServer>(48000, 1024, "-second");
    JackPlaybackRig rig;
    rig.controller.setListener(&listener);
    rig.load(indexCodedBuffer(2, 5 * 48000));
    ASSERT_TRUE(rig.build());
    rig.controller.play();
    rig.runFor(0.2);
    ASSERT_TRUE(rig.controller.isPlaying());
    second.reset();
    rig.runFor(3.0, [&] { return listener.lost; });
    EXPECT_TRUE(listener.lost);
    EXPECT_FALSE(rig.controller.isPlaying());
    // The error-driven re-scan finds no JACK devices left.
    rig.catalog.refresh();
    EXPECT_FALSE(rig.catalog.selectedDevice().has_value());
    EXPECT_TRUE(rig.catalog.outputDevices().empty());
    rig.controller.setListener(nullptr);
  }
  setenv("JACK_DEFAULT_SERVER", previous.c_str(), 1);
}

}  // namespace
}  // namespace corvane::test
