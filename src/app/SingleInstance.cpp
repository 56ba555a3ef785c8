#include "app/SingleInstance.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <cstdio>
#include <unistd.h>

namespace corvane {

QString SingleInstance::socketName(const QString& runtimeDir) {
  const QString runtime = runtimeDir.isEmpty() ? qEnvironmentVariable("XDG_RUNTIME_DIR") : runtimeDir;
  if (!runtime.isEmpty() && QFileInfo(runtime).isDir()) return QDir(runtime).filePath(QStringLiteral("corvane-app.socket"));
  return QDir(QDir::tempPath()).filePath(QStringLiteral("corvane-app-%1").arg(::getuid()));
}

SingleInstance::SingleInstance(QString name, QObject* parent) : QObject(parent), _name(std::move(name)) {
  _server.setSocketOptions(QLocalServer::UserAccessOption);
  connect(&_server, &QLocalServer::newConnection, this, [this] {
    while (QLocalSocket* socket = _server.nextPendingConnection()) {
      connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
      connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
        if (!socket->canReadLine()) return;
        const QJsonDocument message = QJsonDocument::fromJson(socket->readLine());
        QList<QUrl> urls;
        for (const QJsonValue& value : message.object().value(QStringLiteral("urls")).toArray()) {
          const QUrl url(value.toString());
          if (url.isValid()) urls << url;
        }
        socket->write("ok\n");
        socket->flush();
        emit filesHandedOver(urls);
      });
    }
  });
}

bool SingleInstance::handOver(const QList<QUrl>& urls, int timeoutMs) const {
  QLocalSocket socket;
  socket.connectToServer(_name);
  if (!socket.waitForConnected(timeoutMs)) return false;
  QJsonArray list;
  for (const QUrl& url : urls) list.append(url.toString(QUrl::FullyEncoded));
  socket.write(QJsonDocument(QJsonObject{{"urls", list}}).toJson(QJsonDocument::Compact) + "\n");
  socket.flush();
  if (!socket.waitForReadyRead(timeoutMs)) return false;
  return socket.readLine().trimmed() == "ok";
}

bool SingleInstance::listen() {
  if (_server.listen(_name)) return true;
  // A socket file without a server behind it: its process died. Take the name over.
  if (_server.serverError() == QAbstractSocket::AddressInUseError) {
    QLocalServer::removeServer(_name);
    if (_server.listen(_name)) return true;
  }
  std::printf("[App] could not listen on %s: %s\n", _name.toUtf8().constData(), _server.errorString().toUtf8().constData());
  std::fflush(stdout);
  return false;
}

}  // namespace corvane
