// What the session tests share: a session on a private settings file with a scripted user
// (the alert presenter), files written to a fresh folder, and waiting on the real event loop.
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QList>
#include <QUrl>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestSignals.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"
#include "session/SessionWorkGuard.h"
#include "session/SettingsStore.h"

namespace corvane::test {

// The user in front of the alerts: answers from a script (the index of the button to press),
// or closes the alert when the script has run out; remembers every alert it saw.
class ScriptedUser : public AlertPresenter {
 public:
  int present(const SessionAlert& alert) override {
    seen.push_back(alert);
    if (answers.empty()) return kNoButton;
    const int answer = answers.front();
    answers.pop_front();
    return answer;
  }
  std::deque<int> answers;
  std::vector<SessionAlert> seen;
};

// Unsaved edits and takes as the edit history and the recording engine will report them; the
// save steps do what a user's cancelled or successful save dialog would.
class FakeWork : public SessionWorkGuard {
 public:
  bool isRecording() const override { return recording; }
  void stopRecording() override { recording = false; ++stops; }
  QString takesDirectory() const override { return takes.isEmpty() ? SessionWorkGuard::takesDirectory() : takes; }
  bool hasUnsavedEdits() const override { return dirty; }
  std::optional<QString> inPlaceSaveBlocker() const override { return blocker; }
  QString sessionPromptSaveTitle() const override { return QStringLiteral("Save…"); }
  void saveEditedBufferInPlace() override {
    ++inPlaceSaves;
    if (saveSucceeds) dirty = false;
  }
  void exportEditedBuffer() override {
    ++exports;
    if (saveSucceeds) dirty = false;
    if (onExport) onExport();
  }

  bool recording = false;
  bool dirty = false;
  bool saveSucceeds = false;
  std::optional<QString> blocker;
  QString takes;
  std::function<void()> onExport;
  int stops = 0, inPlaceSaves = 0, exports = 0;
};

// Runs the event loop until `done` holds or `seconds` pass; returns whether it holds.
bool waitUntil(const std::function<bool()>& done, double seconds = 30.0);

// Every landing of one engine, in order.
class LandingLog : public QObject {
 public:
  explicit LandingLog(AudioEngine& engine);
  std::vector<AudioEngine::Landing> landings;
  int count(AudioEngine::Landing landing) const;
};

class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // What makeEngine() makes a session with: this test's settings file and user, a manual
  // output instead of a device, no device re-read, no bridge.
  AudioEngineOptions engineOptions() const;
  // A session on this test's settings file, playing into a manual output (no device opened).
  std::unique_ptr<AudioEngine> makeEngine();

  // A 32-bit float WAV in this test's folder; returns its path.
  std::string writeFile(const std::string& name, const Planar& signal);
  static QUrl url(const std::string& path) { return QUrl::fromLocalFile(QString::fromStdString(path)); }

  TemporaryDirectory folder;
  std::shared_ptr<SettingsStore> store;
  std::shared_ptr<ScriptedUser> user = std::make_shared<ScriptedUser>();
};

// A signal with speech-like bursts over a quiet floor, `seconds` long: something for every
// stage to measure.
Planar burstyProgramme(double rate, int channels, double seconds);

}  // namespace corvane::test
