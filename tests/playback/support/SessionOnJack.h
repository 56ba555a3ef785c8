// A whole session (AudioEngine) on the private JACK server: settings in a fresh folder, a
// scripted user at the alerts, JACK as the only backend, and the real event loop to wait on.
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

namespace corvane::test {

inline bool runEventsUntil(const std::function<bool()>& done, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return done();
}

inline std::optional<AudioOutputDevice> deviceNamed(const AudioDeviceManager& devices, const std::string& name) {
  for (const auto& device : devices.outputDevices()) {
    if (device.name == name) return device;
  }
  return std::nullopt;
}

// Answers every alert with the next scripted button (closing it when the script has run out)
// and keeps what it was shown.
class AlertLog : public AlertPresenter {
 public:
  int present(const SessionAlert& alert) override {
    seen.push_back(alert);
    if (answers.empty()) return kNoButton;
    const int answer = answers.front();
    answers.erase(answers.begin());
    return answer;
  }
  std::vector<int> answers;
  std::vector<SessionAlert> seen;
};

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

  // Chooses the JACK client `deviceName` as the output and opens `path` through the session's
  // road; true once the file is live.
  bool open(const std::string& path, const std::string& deviceName) {
    devices().refresh();
    const auto device = deviceNamed(devices(), deviceName);
    if (!device) return false;
    devices().selectDevice(device);
    engine->openURLs({QUrl::fromLocalFile(QString::fromStdString(path))});
    return runEventsUntil([&] { return engine->loadedFile().has_value() && transport().hasGraph(); }, 10.0);
  }

  TemporaryDirectory folder;
  std::shared_ptr<AlertLog> user = std::make_shared<AlertLog>();
  std::unique_ptr<AudioEngine> engine;
};

}  // namespace corvane::test
