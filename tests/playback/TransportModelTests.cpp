// The Qt side of playback on a real JACK server (dummy driver), on a real event loop: the
// transport's properties and its display timer, the device list's periodic re-read, and a file
// opened through the session heard by a second JACK client.
#include <QCoreApplication>
#include <QSignalSpy>
#include <algorithm>
#include <chrono>
#include <thread>

#include "TestSignals.h"
#include "playback/AudioDeviceManager.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SettingsStore.h"
#include "support/JackPlaybackRig.h"
#include "support/PlaybackTestSignals.h"
#include "support/SessionOnJack.h"

namespace corvane::test {
namespace {

using TransportModel = OnJackServer;

TEST_F(TransportModel, TheDisplayTimerRunsWhilePlayingAndTheEndOfTheFileStopsIt) {
  JackCaptureClient capture("cvcap", 2);
  AudioDeviceManager devices({AudioBackend::jack}, false);
  const auto device = deviceNamed(devices, "cvcap");
  ASSERT_TRUE(device);
  devices.selectDevice(device);
  Transport transport(&devices);
  transport.loadSource(sineBuffer(2, 24000, 1000.0, 0.5), nullptr);
  EXPECT_DOUBLE_EQ(transport.duration(), 0.5);
  transport.setupRoutings(2, devices.deviceChannels());
  ASSERT_TRUE(transport.setupEngine());
  EXPECT_FALSE(transport.isDisplayTimerActive());

  QSignalSpy playing(&transport, &Transport::isPlayingChanged);
  QSignalSpy time(&transport, &Transport::currentTimeChanged);
  QSignalSpy ticks(&transport, &Transport::displayTicked);
  capture.arm();
  const auto started = std::chrono::steady_clock::now();
  transport.play();
  EXPECT_TRUE(transport.isPlaying());
  EXPECT_TRUE(transport.isDisplayTimerActive());
  EXPECT_EQ(playing.count(), 1);
  // Half way, the playhead has moved on from 0 with the ticks.
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 0.2; }, 3.0));
  ASSERT_TRUE(waitUntil([&] { return !transport.isPlaying(); }, 5.0));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  capture.disarm();

  EXPECT_FALSE(transport.isDisplayTimerActive());
  EXPECT_EQ(playing.count(), 2);
  EXPECT_EQ(transport.currentTime(), 0.0);  // the end of the file is a stop: back to the start
  // About 30 ticks a second while it played; the hook sees each of them.
  const double perSecond = ticks.count() / seconds;
  std::printf("[ measured ] %d display ticks in %.3f s: %.1f per second\n", static_cast<int>(ticks.count()), seconds, perSecond);
  EXPECT_GT(perSecond, 20.0);
  EXPECT_LT(perSecond, 32.0);
  EXPECT_GE(time.count(), 5);
  EXPECT_GT(lastAbove(capture.channel(0), 0.1f), firstAbove(capture.channel(0), 0.1f) + 20000);

  // Nothing ticks while stopped.
  const auto idle = ticks.count();
  waitUntil([] { return false; }, 0.3);
  EXPECT_EQ(ticks.count(), idle);

  // Pause stops the timer too, and keeps the place.
  transport.play();
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 0.1; }, 3.0));
  transport.pause();
  EXPECT_FALSE(transport.isDisplayTimerActive());
  EXPECT_FALSE(transport.isPlaying());
  EXPECT_GT(transport.currentTime(), 0.1);
}

TEST_F(TransportModel, PropertiesNotifyOnlyOnARealChangeAndALoadKeepsTheSelection) {
  JackCaptureClient capture("cvcap", 2);
  AudioDeviceManager devices({AudioBackend::jack}, false);
  Transport transport(&devices);
  QSignalSpy rate(&transport, &Transport::playbackRateChanged);
  QSignalSpy selection(&transport, &Transport::selectionChanged);
  QSignalSpy loop(&transport, &Transport::isLoopingChanged);
  QSignalSpy muted(&transport, &Transport::mutedSourceChannelsChanged);
  transport.setPlaybackRate(1.0);
  transport.setPlaybackRate(1.5);
  transport.setPlaybackRate(1.5);
  transport.setPlaybackRate(9.0);  // limited to 2
  EXPECT_EQ(rate.count(), 2);
  EXPECT_EQ(transport.playbackRate(), 2.0);
  transport.setSelection(PlaybackSelection{0.1, 0.2});
  transport.setSelection(PlaybackSelection{0.1, 0.2});
  EXPECT_EQ(selection.count(), 1);
  transport.setIsLooping(false);
  EXPECT_EQ(loop.count(), 0);
  transport.setMutedSourceChannels({1});
  transport.setMutedSourceChannels({1});
  EXPECT_EQ(muted.count(), 1);
  EXPECT_EQ(transport.mirrors()._atomicMutedChannelMask.load(), 2u);

  transport.loadSource(sineBuffer(2, 48000, 440.0, 0.5), nullptr);
  ASSERT_TRUE(transport.selection());
  EXPECT_EQ(*transport.selection(), (PlaybackSelection{0.1, 0.2}));
  EXPECT_EQ(selection.count(), 1);
  EXPECT_EQ(transport.playbackRate(), 2.0);
}

TEST_F(TransportModel, TheDeviceListIsReadAgainEveryTwoSeconds) {
  AudioDeviceManager devices({AudioBackend::jack}, true);
  ASSERT_TRUE(devices.isRescanning());
  EXPECT_FALSE(deviceNamed(devices, "cvlate"));
  QSignalSpy changed(&devices, &AudioDeviceManager::outputDevicesChanged);
  QSignalSpy rescans(&devices, &AudioDeviceManager::rescanned);
  auto late = std::make_unique<JackCaptureClient>("cvlate", 3);
  ASSERT_TRUE(waitUntil([&] { return deviceNamed(devices, "cvlate").has_value(); }, 3.0));
  EXPECT_EQ(deviceNamed(devices, "cvlate")->outputChannelCount, 3);
  EXPECT_EQ(changed.count(), 1);
  late.reset();
  ASSERT_TRUE(waitUntil([&] { return !deviceNamed(devices, "cvlate"); }, 3.0));
  EXPECT_EQ(changed.count(), 2);
  EXPECT_GE(rescans.count(), 2);
}

TEST_F(TransportModel, AFileOpenedInTheSessionPlaysThroughTheChosenDevice) {
  JackCaptureClient capture("cvcap", 6);
  TemporaryDirectory folder;
  const std::string path = folder.file("tone.wav");
  writeWav(path, sine(48000.0, 2, 0.5, 1000.0, 0.5, 0.0, {1}));  // the right channel only

  AudioEngineOptions options;
  options.settings = std::make_shared<SettingsStore>(QString::fromStdString(folder.file("settings.ini")));
  options.audioBackends = {AudioBackend::jack};
  options.rescanDevices = false;
  options.registerWithBridge = false;
  AudioEngine engine(options);
  engine.deviceManager().selectDevice(deviceNamed(engine.deviceManager(), "cvcap"));
  engine.openURLs({QUrl::fromLocalFile(QString::fromStdString(path))});
  ASSERT_TRUE(waitUntil([&] { return engine.loadedFile().has_value(); }, 10.0));

  // The default routing of a stereo file on six outputs: two live, four placeholders.
  Transport& transport = engine.transport();
  ASSERT_TRUE(transport.hasGraph());
  const auto& routings = transport.routings();
  ASSERT_EQ(routings.size(), 6u);
  const char* labels[] = {"L Out", "R Out", "C Out", "LFE Out", "Ls Out", "Rs Out"};
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(routings[i].outputChannelLabel, labels[i]);
    EXPECT_EQ(routings[i].sources[0].sourceChannelIndex, i < 2 ? static_cast<int>(i) : -1);
  }
  capture.arm();
  transport.play();
  ASSERT_TRUE(waitUntil([&] { return !transport.isPlaying(); }, 5.0));
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  capture.disarm();
  // The tone comes out of the second output only.
  EXPECT_EQ(firstAbove(capture.channel(0), 1e-4f), -1);
  EXPECT_GT(lastAbove(capture.channel(1), 0.1f) - firstAbove(capture.channel(1), 0.1f), 20000);
  for (int c = 2; c < 6; ++c) EXPECT_EQ(firstAbove(capture.channel(c), 1e-4f), -1) << c;
  waitForBackgroundWork();
}

}  // namespace
}  // namespace corvane::test
