// RecentDocumentsTracker: the files the user opened lately, for the "Open Recent" menu.
//
// Most recent first, each file once, at most kMaximumCount. The list is kept in the settings
// (SettingsStore::recentDocuments) so it survives a restart; clear() empties it there too.
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QStringList>

namespace corvane {

class SettingsStore;

class RecentDocumentsTracker : public QObject {
  Q_OBJECT
  Q_PROPERTY(QStringList paths READ paths NOTIFY pathsChanged)

 public:
  static constexpr int kMaximumCount = 10;

  // Reads the list from `store`, which must outlive the tracker.
  explicit RecentDocumentsTracker(SettingsStore& store, QObject* parent = nullptr);

  // Absolute paths, most recent first.
  const QStringList& paths() const { return _paths; }

  // Puts a file at the head of the list (moving it there if it was listed) and stores the list.
  void noteDocument(const QString& path);
  void clear();

 signals:
  void pathsChanged();

 private:
  void publish(QStringList paths);

  SettingsStore& _store;
  QStringList _paths;
};

}  // namespace corvane
