#include "session/CorvaneAppBridge.h"

#include "session/AudioEngine.h"

namespace corvane {

CorvaneAppBridge& CorvaneAppBridge::shared() {
  static CorvaneAppBridge bridge;
  return bridge;
}

void CorvaneAppBridge::registerEngine(AudioEngine* engine) {
  _engine = engine;
  if (!engine || _pendingOpenURLs.isEmpty()) return;
  const QList<QUrl> pending = std::exchange(_pendingOpenURLs, {});
  engine->openURLs(pending);
}

void CorvaneAppBridge::openURLs(const QList<QUrl>& urls) {
  if (urls.isEmpty()) return;
  if (_engine) {
    _engine->openURLs(urls);
  } else {
    _pendingOpenURLs.append(urls);
  }
}

}  // namespace corvane
