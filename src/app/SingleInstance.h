// SingleInstance: one Corvane window per user. The first launch listens on a local socket of
// its own; a later launch finds it, hands over its files and exits.
//
// The socket is a QLocalServer named after the user: $XDG_RUNTIME_DIR/corvane-app.socket when
// the runtime folder exists (private to the user by definition), otherwise corvane-app-<uid> in
// the temporary folder. A socket left behind by a process that died is removed and taken over.
//
// The hand-over is one line of JSON: {"urls": ["file:///…", …]}; the running instance answers
// "ok" once it has taken them, raises its window and opens them (CorvaneAppBridge::openURLs).
// A launch without files just raises the window.
//
// Thread class: main thread.
#pragma once

#include <QList>
#include <QLocalServer>
#include <QObject>
#include <QUrl>

namespace corvane {

class SingleInstance : public QObject {
  Q_OBJECT

 public:
  // The socket's name for this user (see above); `runtimeDir` empty: from the environment.
  static QString socketName(const QString& runtimeDir = {});

  explicit SingleInstance(QString name = socketName(), QObject* parent = nullptr);

  // Hands `urls` to a running instance. True when one took them (this process should exit);
  // false when none answers within `timeoutMs`.
  bool handOver(const QList<QUrl>& urls, int timeoutMs = 2000) const;
  // Starts listening; false (with the reason logged) when the socket can't be made.
  bool listen();
  bool isListening() const { return _server.isListening(); }

 signals:
  // Another launch handed files over (possibly none: it only wants the window raised).
  void filesHandedOver(const QList<QUrl>& urls);

 private:
  void readConnection();

  QString _name;
  QLocalServer _server;
};

}  // namespace corvane
