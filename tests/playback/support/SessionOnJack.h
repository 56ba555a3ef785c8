// A whole session (AudioEngine) on the private JACK server: settings in a fresh folder, a
// scripted user at the alerts (ScriptedUser), JACK as the only backend.
#pragma once

#include <QCoreApplication>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "TestSignals.h"
#include "playback/AudioDeviceManager.h"
#include "playback/Transport.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SettingsStore.h"
#include "session/SessionTestSupport.h"
#include "support/PlaybackTestSignals.h"

namespace corvane::test {

inline std::optional<AudioOutputDevice> deviceNamed(const AudioDeviceManager& devices, const std::string& name) {
  for (const auto& device : devices.outputDevices()) {
    if (device.name == name) return device;
  }
  return std::nullopt;
}

struct SessionOnJack {
  explicit SessionOnJack(bool rescanDevices = false) {
    AudioEngineOptions options;
    options.settings = std::make_shared<SettingsStore>(QString::fromStdString(folder.file("settings.ini")));
    options.presenter = user;
    options.audioBackends = {AudioBackend::jack};
    options.rescanDevices = rescanDevices;
    options.registerWithBridge = false;
    engine = std::make_unique<AudioEngine>(options);
  }
  ~SessionOnJack() {
    waitForBackgroundWork();
    engine.reset();
  }

  Transport& transport() { return engine->transport(); }
  AudioDeviceManager& devices() { return engine->deviceManager(); }

  // A 32-bit float WAV `name` in the session's folder, index-coded (PlaybackTestSignals.h) so
  // that every captured sample tells its frame; returns its path.
  std::string writeIndexCodedFile(const std::string& name, int channels, FrameCount frames) {
    Planar file(48000.0, channels, frames);
    for (int c = 0; c < channels; ++c) {
      for (FrameCount i = 0; i < frames; ++i) file.channels[c][i] = indexCodedSample(i, c);
    }
    const std::string path = folder.file(name);
    writeWav(path, file);
    return path;
  }

  // Chooses the JACK client `deviceName` as the output and opens `path` through the session's
  // road; true once the file is live.
  bool open(const std::string& path, const std::string& deviceName) {
    devices().refresh();
    const auto device = deviceNamed(devices(), deviceName);
    if (!device) return false;
    devices().selectDevice(device);
    engine->openURLs({QUrl::fromLocalFile(QString::fromStdString(path))});
    return waitUntil([&] { return engine->loadedFile().has_value() && transport().hasGraph(); }, 10.0);
  }

  TemporaryDirectory folder;
  std::shared_ptr<ScriptedUser> user = std::make_shared<ScriptedUser>();
  std::unique_ptr<AudioEngine> engine;
};

}  // namespace corvane::test
