#include "session/RecentDocumentsTracker.h"

#include <QFileInfo>

#include "session/SettingsStore.h"

namespace corvane {

RecentDocumentsTracker::RecentDocumentsTracker(SettingsStore& store, QObject* parent)
    : QObject(parent), _store(store), _paths(store.recentDocuments().mid(0, kMaximumCount)) {}

void RecentDocumentsTracker::noteDocument(const QString& path) {
  const QString absolute = QFileInfo(path).absoluteFilePath();
  QStringList paths = _paths;
  paths.removeAll(absolute);
  paths.prepend(absolute);
  publish(paths.mid(0, kMaximumCount));
}

void RecentDocumentsTracker::clear() { publish({}); }

void RecentDocumentsTracker::publish(QStringList paths) {
  if (paths == _paths) return;
  _paths = std::move(paths);
  _store.setRecentDocuments(_paths);
  emit pathsChanged();
}

}  // namespace corvane
