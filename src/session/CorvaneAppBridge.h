// CorvaneAppBridge: the way to the session for code that has no view of its own (the D-Bus
// service, the single-instance hand-over, the desktop file's actions), and the queue of files
// that arrive before the session exists.
//
// The session registers itself when it starts up. openURLs() hands files to it, or keeps them
// until it registers; registering then opens what was kept, once, in the order it came.
//
// Thread class: main thread; one bridge per process (shared()).
#pragma once

#include <QList>
#include <QPointer>
#include <QUrl>

namespace corvane {

class AudioEngine;

class CorvaneAppBridge {
 public:
  static CorvaneAppBridge& shared();

  // The registered session, or null.
  AudioEngine* engine() const { return _engine.data(); }
  // Stores the session and opens what waited for it (one openURLs call with every URL).
  void registerEngine(AudioEngine* engine);

  // Opens the files in the session, or keeps them for it.
  void openURLs(const QList<QUrl>& urls);
  const QList<QUrl>& pendingOpenURLs() const { return _pendingOpenURLs; }

 private:
  QPointer<AudioEngine> _engine;
  QList<QUrl> _pendingOpenURLs;
};

}  // namespace corvane
