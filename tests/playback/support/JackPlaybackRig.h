// A playback rig on the private JACK server: a capture client that stands as the output
// device (RtAudio connects the stream's ports to its inputs in order), the device catalog
// reading the server, and a PlaybackController playing to that device.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/ChannelOrder.h"
#include "playback/AudioDeviceCatalog.h"
#include "playback/PlaybackController.h"
#include "support/JackTestServer.h"
#include "support/PlaybackTestSignals.h"

namespace corvane::test {

// A captured index-coded channel as runs of consecutive frames: (first frame, length) in
// capture order, silence skipped. Fails the test on a sample that is not index-coded for
// `channel`.
inline std::vector<std::pair<std::int64_t, std::int64_t>> runsOf(const std::vector<float>& x, int channel) {
  std::vector<std::pair<std::int64_t, std::int64_t>> runs;
  for (float v : x) {
    const auto frame = frameOfSample(v, channel);
    if (!frame) {
      EXPECT_EQ(v, 0.0f) << "a sample that no frame of this channel carries";
      continue;
    }
    if (!runs.empty() && runs.back().first + runs.back().second == *frame) {
      ++runs.back().second;
    } else {
      runs.push_back({*frame, 1});
    }
  }
  return runs;
}

inline const std::string kStreamClientName = "Corvane";

struct JackPlaybackRig {
  explicit JackPlaybackRig(int captureChannels = 8, const std::string& captureName = "cvcap")
      : capture(captureName, captureChannels),
        catalog({AudioBackend::jack}, {kStreamClientName}),
        controller(&catalog) {
    for (const auto& device : catalog.outputDevices()) {
      if (device.name == captureName) catalog.selectDevice(device);
    }
  }

  bool deviceIsCapture() const {
    return catalog.selectedDevice() && catalog.selectedDevice()->name == capture.clientName();
  }

  // Loads `buffer` with the default routing for the device and builds the graph.
  void load(SharedAudioBuffer buffer) {
    controller.loadSource(PlaybackSource{buffer, ChannelOrder::bs1770Weights(*buffer), nullptr});
    controller.setupRoutings(buffer->channelCount(),
                             std::max(2, catalog.selectedDevice()->outputChannelCount));
  }

  bool build() { return controller.setupEngine(); }

  // Runs the main thread's side (the display tick) every 5 ms for up to `seconds`, or until
  // `until` says stop.
  template <typename Until>
  void runFor(double seconds, Until until) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < deadline && !until()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      controller.displayTick();
    }
  }
  void runFor(double seconds) {
    runFor(seconds, [] { return false; });
  }

  // Plays from the current position until the transport stops itself at the end (or the
  // timeout), recording everything the capture client hears.
  bool playToEnd(double timeoutSeconds) {
    capture.arm();
    controller.play();
    runFor(timeoutSeconds, [this] { return !controller.isPlaying(); });
    const bool stopped = !controller.isPlaying();
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    capture.disarm();
    return stopped;
  }

  JackCaptureClient capture;
  AudioDeviceCatalog catalog;
  PlaybackController controller;
};

}  // namespace corvane::test
