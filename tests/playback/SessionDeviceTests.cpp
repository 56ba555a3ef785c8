// The session's device list on a real JACK server while a file plays: clients that come and go
// are picked up by the 2 s re-read without disturbing playback, and the selected device leaving
// hands the selection to the default without rebuilding the graph under the music.
#include <QSignalSpy>

#include "support/JackPlaybackRig.h"
#include "support/SessionOnJack.h"

namespace corvane::test {
namespace {

using SessionDevices = OnJackServer;

TEST_F(SessionDevices, ClientsComingAndGoingWhilePlayingAndTheSelectedOneLeaving) {
  auto capture = std::make_unique<JackCaptureClient>("cvcap", 2);
  SessionOnJack session(true);
  ASSERT_TRUE(session.open(session.writeIndexCodedFile("long.wav", 2, 16 * 48000), "cvcap"));
  AudioDeviceManager& devices = session.devices();
  Transport& transport = session.transport();
  ASSERT_TRUE(devices.isRescanning());
  QSignalSpy listChanges(&devices, &AudioDeviceManager::outputDevicesChanged);
  QSignalSpy selectionChanges(&devices, &AudioDeviceManager::selectedDeviceChanged);
  QSignalSpy lost(&transport, &Transport::outputDeviceLost);

  capture->arm();
  transport.play();
  {
    JackCaptureClient newcomer("cvhotplug", 4);
    ASSERT_TRUE(waitUntil([&] { return deviceNamed(devices, "cvhotplug").has_value(); }, 3.0));
    EXPECT_EQ(deviceNamed(devices, "cvhotplug")->outputChannelCount, 4);
    EXPECT_EQ(devices.selectedDevice()->name, "cvcap");
  }
  ASSERT_TRUE(waitUntil([&] { return !deviceNamed(devices, "cvhotplug"); }, 3.0));
  EXPECT_EQ(listChanges.count(), 2);
  EXPECT_EQ(selectionChanges.count(), 0);
  EXPECT_TRUE(transport.isPlaying());
  capture->disarm();
  // One unbroken run from the start: the re-reads never touched the stream.
  const auto runs = runsOf(capture->channel(0), 0);
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].first, 0);
  EXPECT_GT(runs[0].second, 2 * 48000);

  // The selected device goes: the default takes its place in the list's choice at once, but the
  // graph playing into the old one stays until a graph is next built.
  capture.reset();
  ASSERT_TRUE(waitUntil([&] { return devices.selectedDevice() && devices.selectedDevice()->name == "system"; }, 3.0));
  EXPECT_FALSE(deviceNamed(devices, "cvcap"));
  EXPECT_EQ(selectionChanges.count(), 1);
  EXPECT_EQ(lost.count(), 0);
  ASSERT_TRUE(transport.controller().graph().device());
  EXPECT_EQ(transport.controller().graph().device()->id, "jack:cvcap");
  const double playedTo = transport.currentTime();
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > playedTo + 0.3; }, 2.0)) << "playback stopped";
  EXPECT_TRUE(transport.isPlaying());

  // The next build lands on the new selection, and a rebuild keeps playing from where it was.
  transport.controller().rebuildLiveGraphPreservingPlayback();
  ASSERT_TRUE(transport.controller().graph().device());
  EXPECT_EQ(transport.controller().graph().device()->id, "jack:system");
  EXPECT_TRUE(transport.isPlaying());
  EXPECT_GT(transport.currentTime(), playedTo);
  transport.stop();
}

}  // namespace
}  // namespace corvane::test
