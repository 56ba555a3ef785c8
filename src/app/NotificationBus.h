// NotificationBus: the application's internal notices, process-local and on the main thread.
//
// A command that belongs to a view rather than to the session (open the file panel, toggle a
// panel, show the output panel) posts a notice by name; the view that owns the behaviour
// observes it. Poster and observer never know each other, so a subsystem that comes later
// observes the notices meant for it (switchCompareSlot, toggleDiffViewActiveSlot, ...) without
// touching the poster, and a notice nobody observes yet is simply dropped.
//
// Names take the prefix "com.fenwright.Corvane." except the three that the table writes bare.
// A payload is optional (the slot index of switchCompareSlot, the file of
// corvaneOpenGeneratedFile).
//
// Thread class: main thread. post() delivers synchronously, in the order observers joined.
#pragma once

#include <QObject>
#include <QString>
#include <QVariant>
#include <functional>

namespace corvane {

namespace notification {
#define CORVANE_NOTICE(name) inline const QString name = QStringLiteral("com.fenwright.Corvane." #name)
CORVANE_NOTICE(openFile);
CORVANE_NOTICE(addFilesToCompare);
CORVANE_NOTICE(clearSelection);
CORVANE_NOTICE(toggleWaveform);
CORVANE_NOTICE(toggleLoudnessCurve);
CORVANE_NOTICE(toggleSpectrogram);
CORVANE_NOTICE(toggleFFT);
CORVANE_NOTICE(toggleStereoWidth);
CORVANE_NOTICE(toggleChapterRibbon);
CORVANE_NOTICE(focusWaveform);
CORVANE_NOTICE(focusLoudnessCurve);
CORVANE_NOTICE(focusSpectrogram);
CORVANE_NOTICE(focusFFT);
CORVANE_NOTICE(focusStereoWidth);
CORVANE_NOTICE(focusChapters);
CORVANE_NOTICE(exitEditMode);
CORVANE_NOTICE(toggleDiffViewActiveSlot);
CORVANE_NOTICE(showOutputPanel);
CORVANE_NOTICE(showChannelStatsPanel);
CORVANE_NOTICE(chapterShowLevel);
#undef CORVANE_NOTICE
// Payload: the slot index (int).
inline const QString switchCompareSlot = QStringLiteral("switchCompareSlot");
inline const QString corvaneShowGenerator = QStringLiteral("com.fenwright.Corvane.showGenerator");
// Payload: the file (QUrl).
inline const QString corvaneOpenGeneratedFile = QStringLiteral("com.fenwright.Corvane.openGeneratedFile");
inline const QString corvaneOpenReportPreview = QStringLiteral("corvaneOpenReportPreview");
}  // namespace notification

class NotificationBus : public QObject {
  Q_OBJECT

 public:
  // The process's bus.
  static NotificationBus& shared();

  void post(const QString& name, const QVariant& payload = {});
  // Calls `handler` for every notice of `name` while `context` lives.
  QMetaObject::Connection observe(const QString& name, QObject* context, std::function<void(const QVariant&)> handler);

 signals:
  void posted(const QString& name, const QVariant& payload);
};

}  // namespace corvane
