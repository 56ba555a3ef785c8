#include "displays/SegmentedControl.h"

#include <QHBoxLayout>
#include <QToolButton>

namespace corvane {

SegmentedControl::SegmentedControl(const QStringList& labels, QWidget* parent) : QWidget(parent) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  _group.setExclusive(true);
  for (int i = 0; i < labels.size(); ++i) {
    auto* button = new QToolButton(this);
    button->setText(labels[i]);
    button->setCheckable(true);
    button->setAutoRaise(false);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setObjectName(QStringLiteral("segment.%1").arg(labels[i]));
    _group.addButton(button, i);
    layout->addWidget(button);
  }
  if (!labels.isEmpty()) _group.button(0)->setChecked(true);
  connect(&_group, &QButtonGroup::idClicked, this, &SegmentedControl::activated);
}

int SegmentedControl::currentIndex() const { return _group.checkedId(); }

void SegmentedControl::setCurrentIndex(int index) {
  if (QAbstractButton* button = _group.button(index)) button->setChecked(true);
}

void SegmentedControl::setSegmentToolTip(int index, const QString& tip) {
  if (QAbstractButton* button = _group.button(index)) button->setToolTip(tip);
}

void SegmentedControl::setSegmentEnabled(int index, bool enabled) {
  if (QAbstractButton* button = _group.button(index)) button->setEnabled(enabled);
}

QAbstractButton* SegmentedControl::segment(int index) const { return _group.button(index); }

int SegmentedControl::count() const { return static_cast<int>(_group.buttons().size()); }

}  // namespace corvane
