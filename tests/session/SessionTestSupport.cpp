#include "SessionTestSupport.h"

#include <QThreadPool>
#include <algorithm>
#include <thread>

#include "session/BackgroundWork.h"

namespace corvane::test {

bool waitUntil(const std::function<bool()>& done, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

LandingLog::LandingLog(AudioEngine& engine) {
  connect(&engine, &AudioEngine::landed, this, [this](AudioEngine::Landing landing) { landings.push_back(landing); });
}

int LandingLog::count(AudioEngine::Landing landing) const {
  return static_cast<int>(std::count(landings.begin(), landings.end(), landing));
}

void SessionTest::SetUp() { store = std::make_shared<SettingsStore>(QString::fromStdString(folder.file("settings.ini"))); }

void SessionTest::TearDown() {
  // No task of this test may land in the next one's session or hold its files open.
  waitForBackgroundWork();
}

std::unique_ptr<AudioEngine> SessionTest::makeEngine() { return std::make_unique<AudioEngine>(engineOptions()); }

AudioEngineOptions SessionTest::engineOptions() const {
  AudioEngineOptions options;
  options.settings = store;
  options.presenter = user;
  // No server runs in these tests: the list stays empty and the manual output plays.
  options.audioBackends = {AudioBackend::jack};
  options.rescanDevices = false;
  options.manualOutput = ManualOutput{48000.0, 2};
  options.registerWithBridge = false;
  return options;
}

std::string SessionTest::writeFile(const std::string& name, const Planar& signal) {
  const std::string path = folder.file(name);
  writeWav(path, signal);
  return path;
}

Planar burstyProgramme(double rate, int channels, double seconds) {
  Planar p = bandLimitedNoise(rate, channels, seconds, 4000.0, -40.0, 0.0, 17);
  const Planar loud = bandLimitedNoise(rate, channels, seconds, 4000.0, -18.0, 6.0, 29);
  const FrameCount frames = p.frames();
  const FrameCount burst = static_cast<FrameCount>(rate * 0.7);
  for (FrameCount start = static_cast<FrameCount>(rate * 0.3); start + burst < frames; start += 2 * burst) {
    for (int c = 0; c < channels; ++c) {
      for (FrameCount i = start; i < start + burst; ++i) {
        p.channels[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)] =
            loud.channels[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)];
      }
    }
  }
  return p;
}

}  // namespace corvane::test
