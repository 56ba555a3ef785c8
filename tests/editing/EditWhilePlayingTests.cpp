// Edits while the session plays through a real JACK server (dummy driver), heard by a second
// JACK client: an in-place edit pauses, waits for the callback to finish the buffer it is in,
// and plays on, so no buffer that reaches the device mixes audio from before and after it; a
// rebuild hands the callback a new buffer and leaves playback stopped at the start.
#include <QCoreApplication>
#include <chrono>
#include <algorithm>
#include <cmath>
#include <thread>

#include "TestSignals.h"
#include "editing/EditEngine.h"
#include "headless/edits/EditOperations.h"
#include "playback/AudioDeviceManager.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SettingsStore.h"
#include "support/JackTestServer.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;
using EditWhilePlaying = OnJackServer;

constexpr int kPeriod = 1024;  // the test server's period: one callback of the stream
constexpr float kLevel = 0.25f;

void runEvents(double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

bool runEventsUntil(const std::function<bool()>& done, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return done();
}

// A constant level on both channels: every sample tells by its sign which side of an inversion
// it is from.
Planar levelSignal(double seconds) {
  Planar signal(48000.0, 2, static_cast<FrameCount>(48000 * seconds));
  for (auto& channel : signal.channels) std::fill(channel.begin(), channel.end(), kLevel);
  return signal;
}

std::unique_ptr<AudioEngine> sessionOnCapture(const TemporaryDirectory& folder, const Planar& signal) {
  const std::string path = folder.file("level.wav");
  writeWav(path, signal);
  AudioEngineOptions options;
  options.settings = std::make_shared<SettingsStore>(QString::fromStdString(folder.file("settings.ini")));
  options.audioBackends = {AudioBackend::jack};
  options.rescanDevices = false;
  options.registerWithBridge = false;
  auto engine = std::make_unique<AudioEngine>(options);
  for (const auto& device : engine->deviceManager().outputDevices()) {
    if (device.name == "cvcap") engine->deviceManager().selectDevice(device);
  }
  engine->loadFile(QUrl::fromLocalFile(QString::fromStdString(path)));
  EXPECT_TRUE(runEventsUntil([&] { return engine->loadedFile().has_value(); }, 10.0));
  return engine;
}

// What a sample says about the audio it came from: the level before an odd number of
// inversions, after it, or silence (paused).
enum class Heard { before, after, silence, other };
Heard classify(float sample) {
  if (std::fabs(sample) < 1e-6f) return Heard::silence;
  if (std::fabs(sample - kLevel) < 1e-5f) return Heard::before;
  if (std::fabs(sample + kLevel) < 1e-5f) return Heard::after;
  return Heard::other;
}

TEST_F(EditWhilePlaying, NoBufferMixesAudioFromBeforeAndAfterAnInPlaceEdit) {
  JackCaptureClient capture("cvcap", 2, 30.0);
  const TemporaryDirectory folder;
  auto engine = sessionOnCapture(folder, levelSignal(20.0));
  Transport& transport = engine->transport();
  EditEngine& edits = engine->editEngine();
  ASSERT_TRUE(transport.hasGraph());

  capture.arm();
  transport.play();
  ASSERT_TRUE(transport.isPlaying());
  runEvents(0.2);
  // Each edit inverts the whole file, the stretch ahead of the playhead slowly (64 frames a
  // millisecond, a little faster than playback): a callback that read while it is being
  // written would straddle the write's frontier for some 60 ms and play both sides of it.
  const auto slowInversion = [&](float* const* d, int n, FrameCount total, FrameCount s, FrameCount e) {
    const FrameCount from = std::clamp(engine->transport().controller().playbackFrame(), s, e);
    const FrameCount slowEnd = std::min(e, from + 8192);
    for (FrameCount f = from; f < slowEnd; f += 64) {
      Ops::invertPhaseInPlace(d, n, total, f, std::min(slowEnd, f + 64));
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    Ops::invertPhaseInPlace(d, n, total, s, from);
    Ops::invertPhaseInPlace(d, n, total, slowEnd, e);
    return true;
  };
  constexpr int kEdits = 24;
  for (int i = 0; i < kEdits; ++i) {
    edits.applyInPlaceEdit(0, engine->pcmBuffer()->frameLength(), std::nullopt, slowInversion);
    ASSERT_TRUE(transport.isPlaying()) << "edit " << i;
    // Edits at varying places in the device's period.
    runEvents(0.03 + 0.007 * (i % 5));
  }
  runEvents(0.2);
  transport.pause();
  runEvents(0.1);
  capture.disarm();
  EXPECT_EQ(edits.undoDepth(), EditEngine::kMaxHistoryDepth);

  // The capture client records whole periods of the same cycles the stream renders.
  const std::vector<float> heard = capture.channel(0);
  ASSERT_GT(heard.size(), static_cast<std::size_t>(kPeriod * 40));
  int periodsBefore = 0, periodsAfter = 0, mixed = 0, other = 0, sideChanges = 0, flipsWithoutPause = 0;
  Heard lastSide = Heard::silence;
  bool silenceSinceLastSound = false;
  for (std::size_t start = 0; start + kPeriod <= heard.size(); start += kPeriod) {
    bool sawBefore = false, sawAfter = false;
    for (std::size_t i = start; i < start + kPeriod; ++i) {
      const Heard h = classify(heard[i]);
      sawBefore |= h == Heard::before;
      sawAfter |= h == Heard::after;
      if (h == Heard::other) ++other;
      if (h == Heard::silence) silenceSinceLastSound = true;
      if (h == Heard::before || h == Heard::after) {
        if (h != lastSide && lastSide != Heard::silence) {
          ++sideChanges;
          // The edit paused first: a flip always comes after silence.
          if (!silenceSinceLastSound) ++flipsWithoutPause;
        }
        lastSide = h;
        silenceSinceLastSound = false;
      }
    }
    if (sawBefore && sawAfter) ++mixed;
    periodsBefore += sawBefore;
    periodsAfter += sawAfter;
  }
  EXPECT_EQ(mixed, 0);
  EXPECT_EQ(other, 0);
  // The edits were heard: the level flipped at (nearly) every edit, and playback went on.
  EXPECT_GE(sideChanges, kEdits - 2);
  EXPECT_GT(periodsBefore, 10);
  EXPECT_GT(periodsAfter, 10);
  EXPECT_EQ(flipsWithoutPause, 0);
  waitForBackgroundWork();
}

TEST_F(EditWhilePlaying, ARebuildWhilePlayingStopsAtTheStartAndPlaysTheNewBufferNext) {
  JackCaptureClient capture("cvcap", 2, 30.0);
  const TemporaryDirectory folder;
  auto engine = sessionOnCapture(folder, levelSignal(4.0));
  Transport& transport = engine->transport();
  transport.play();
  runEvents(0.3);
  const SharedAudioBuffer old = engine->pcmBuffer();
  engine->editEngine().applyEdit(std::nullopt, [](const ChannelData& d, double rate) {
    Ops::EditResult r = Ops::trim(d, 0, 96000, rate);
    for (auto& channel : r.channelData) {
      for (float& v : channel) v = -v;
    }
    return r;
  });
  EXPECT_FALSE(transport.isPlaying());
  EXPECT_EQ(transport.controller().playbackFrame(), 0);
  EXPECT_DOUBLE_EQ(transport.duration(), 2.0);

  // The old buffer lives on while the render side may still hold it, and is freed after.
  capture.arm();
  transport.play();
  ASSERT_TRUE(runEventsUntil([&] { return !transport.isPlaying(); }, 5.0));
  runEvents(0.1);
  capture.disarm();
  const std::vector<float> heard = capture.channel(0);
  int before = 0, after = 0;
  for (const float v : heard) {
    before += classify(v) == Heard::before;
    after += classify(v) == Heard::after;
  }
  EXPECT_EQ(before, 0);
  EXPECT_GE(after, 96000 - kPeriod);
  EXPECT_LE(after, 96000);
  EXPECT_EQ(old.use_count(), 1) << "a retired buffer was not freed once the callback moved on";
  waitForBackgroundWork();
}

}  // namespace
}  // namespace corvane::test
