// A row of exclusive buttons, one of them checked: the small switches of the panels (Live /
// Offline, PRE / POST, Full file / Selection, Matrix / List).
//
// setCurrentIndex() from the owner does not emit; a click by the user emits `activated`.
//
// Thread class: main thread (a widget).
#pragma once

#include <QButtonGroup>
#include <QStringList>
#include <QWidget>

class QAbstractButton;

namespace corvane {

class SegmentedControl : public QWidget {
  Q_OBJECT

 public:
  explicit SegmentedControl(const QStringList& labels, QWidget* parent = nullptr);

  int currentIndex() const;
  void setCurrentIndex(int index);
  void setSegmentToolTip(int index, const QString& tip);
  void setSegmentEnabled(int index, bool enabled);
  QAbstractButton* segment(int index) const;
  int count() const;

 signals:
  void activated(int index);

 private:
  QButtonGroup _group;
};

}  // namespace corvane
