#include "app/RoutingMatrixView.h"

#include <QContextMenuEvent>
#include <QGridLayout>
#include <QHelpEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <cmath>

#include "app/RoutingCellText.h"
#include "displays/ChannelColors.h"
#include "playback/RoutingGain.h"

namespace corvane {

// ---- The matrix ---------------------------------------------------------------------------------

RoutingMatrixView::RoutingMatrixView(QWidget* parent) : QWidget(parent) {
  setObjectName(QStringLiteral("routingMatrix"));
  _grid = new QGridLayout(this);
  _grid->setContentsMargins(0, 0, 0, 0);
  _grid->setSpacing(3);
}

void RoutingMatrixView::setSources(std::vector<std::string> labels, std::vector<ChannelColor> colors) {
  if (labels == _labels && colors == _colors) return;
  _labels = std::move(labels);
  _colors = std::move(colors);
  _builtColumns = -1;
  rebuild();
}

void RoutingMatrixView::setRoutings(const ChannelRoutings& routings) {
  _routings = routings;
  rebuild();
}

RoutingMatrixCell* RoutingMatrixView::cell(int out, int src) const {
  if (out < 0 || out >= static_cast<int>(_cells.size())) return nullptr;
  const auto& row = _cells[static_cast<std::size_t>(out)];
  if (src < 0 || src >= static_cast<int>(row.size())) return nullptr;
  return row[static_cast<std::size_t>(src)];
}

void RoutingMatrixView::rebuild() {
  std::vector<std::string> rowLabels;
  for (const auto& entry : _routings) rowLabels.push_back(entry.outputChannelLabel);
  const int rows = static_cast<int>(_routings.size());
  const int columns = static_cast<int>(_labels.size());
  if (rows != _builtRows || columns != _builtColumns || rowLabels != _builtRowLabels) {
    while (QLayoutItem* item = _grid->takeAt(0)) {
      delete item->widget();
      delete item;
    }
    _cells.assign(static_cast<std::size_t>(rows), {});
    for (int c = 0; c < columns; ++c) {
      auto* header = new QLabel(QString::fromStdString(_labels[static_cast<std::size_t>(c)]), this);
      header->setAlignment(Qt::AlignCenter);
      const QColor colour = c < static_cast<int>(_colors.size()) ? channelQColor(_colors[static_cast<std::size_t>(c)]) : QColor();
      header->setStyleSheet(QStringLiteral("color: %1; font-weight: bold;").arg(colour.name()));
      _grid->addWidget(header, 0, c + 1);
    }
    for (int r = 0; r < rows; ++r) {
      const QString outLabel = QString::fromStdString(rowLabels[static_cast<std::size_t>(r)]);
      _grid->addWidget(new QLabel(outLabel, this), r + 1, 0);
      for (int c = 0; c < columns; ++c) {
        auto* cellWidget = new RoutingMatrixCell(this, r, c, QString::fromStdString(_labels[static_cast<std::size_t>(c)]), outLabel);
        cellWidget->setObjectName(QStringLiteral("cell.%1.%2").arg(r).arg(c));
        _grid->addWidget(cellWidget, r + 1, c + 1);
        _cells[static_cast<std::size_t>(r)].push_back(cellWidget);
      }
    }
    _builtRows = rows;
    _builtColumns = columns;
    _builtRowLabels = rowLabels;
  }
  refreshCells();
}

void RoutingMatrixView::refreshCells() {
  for (int r = 0; r < static_cast<int>(_cells.size()); ++r) {
    for (int c = 0; c < static_cast<int>(_cells[static_cast<std::size_t>(r)].size()); ++c) {
      const auto gain = routingGainFor(_routings, r, c);
      const auto phase = routingPhaseFor(_routings, r, c);
      _cells[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)]->setSlot(gain, phase.value_or(RoutingPhase::inPhase));
    }
  }
}

void RoutingMatrixView::edit(bool changed) {
  if (!changed) return;
  refreshCells();
  emit routingsEdited(_routings);
}

void RoutingMatrixView::addRoute(int out, int src) { edit(corvane::addRoute(_routings, out, src)); }
void RoutingMatrixView::removeRoute(int out, int src) { edit(corvane::removeRoute(_routings, out, src)); }
void RoutingMatrixView::cyclePhase(int out, int src) { edit(cycleRoutePhase(_routings, out, src)); }
void RoutingMatrixView::resetGain(int out, int src) { edit(resetRouteGain(_routings, out, src)); }
void RoutingMatrixView::setGainDB(int out, int src, double gainDB) { edit(setRouteGainDB(_routings, out, src, gainDB)); }

// ---- A cell ---------------------------------------------------------------------------------

RoutingMatrixCell::RoutingMatrixCell(RoutingMatrixView* matrix, int out, int src, QString srcLabel, QString outLabel)
    : QWidget(matrix), _matrix(matrix), _out(out), _src(src), _srcLabel(std::move(srcLabel)), _outLabel(std::move(outLabel)) {
  setMinimumSize(70, 26);
  setMouseTracking(true);
}

void RoutingMatrixCell::setSlot(std::optional<float> gain, RoutingPhase phase) {
  if (gain == _gain && phase == _phase) return;
  _gain = gain;
  _phase = phase;
  update();
}

QString RoutingMatrixCell::valueText() const {
  return _gain ? QString::fromStdString(formatRoutingGainValue(*_gain)) : QString();
}

QRect RoutingMatrixCell::areaRect(Area area) const {
  const int h = height();
  switch (area) {
    case Area::dot: return QRect(0, 0, 18, h);
    case Area::phasor: return QRect(18, 0, 20, h);
    case Area::value: return QRect(38, 0, width() - 38, h);
    case Area::none: break;
  }
  return {};
}

RoutingMatrixCell::Area RoutingMatrixCell::areaAt(QPoint position) const {
  if (!_gain) return Area::none;
  for (Area area : {Area::dot, Area::phasor, Area::value}) {
    if (areaRect(area).contains(position)) return area;
  }
  return Area::none;
}

QString RoutingMatrixCell::toolTipAt(QPoint position) const {
  if (!_gain) return emptyCellToolTip(_srcLabel, _outLabel);
  switch (areaAt(position)) {
    case Area::dot: return dotToolTip(_srcLabel, _outLabel);
    case Area::phasor: return phasorToolTip(_phase);
    default: return routedCellToolTip(_srcLabel, _outLabel, *_gain, _phase);
  }
}

void RoutingMatrixCell::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRect box = rect().adjusted(0, 0, -1, -1);
  painter.setPen(palette().color(QPalette::Mid));
  painter.setBrush(_gain ? palette().color(QPalette::AlternateBase) : palette().color(QPalette::Base));
  painter.drawRoundedRect(box, 4, 4);
  if (!_gain) return;
  const QColor accent(0x36, 0xc5, 0xe0);
  const QRect dot = areaRect(Area::dot);
  painter.setPen(Qt::NoPen);
  painter.setBrush(accent);
  painter.drawEllipse(QPointF(dot.center()) + QPointF(1, 0.5), 4.0, 4.0);
  // The phasor: a short hand at the slot's phase angle.
  const QRect phasor = areaRect(Area::phasor);
  const QPointF centre = QPointF(phasor.center()) + QPointF(0.5, 0.5);
  const double radians = static_cast<int>(_phase) * M_PI / 180.0;
  painter.setPen(QPen(palette().color(QPalette::Text), 1.2));
  painter.setBrush(Qt::NoBrush);
  painter.drawEllipse(centre, 6.0, 6.0);
  painter.drawLine(centre, centre + QPointF(6.0 * std::cos(radians), -6.0 * std::sin(radians)));
  if (!_editor) {
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(areaRect(Area::value).adjusted(0, 0, -4, 0), Qt::AlignRight | Qt::AlignVCenter, valueText());
  }
}

bool RoutingMatrixCell::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    auto* help = static_cast<QHelpEvent*>(event);
    QToolTip::showText(help->globalPos(), toolTipAt(help->pos()), this);
    return true;
  }
  return QWidget::event(event);
}

void RoutingMatrixCell::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
  const QPoint position = event->position().toPoint();
  if (!_gain) {
    _matrix->addRoute(_out, _src);
    return;
  }
  switch (areaAt(position)) {
    case Area::dot: _matrix->removeRoute(_out, _src); return;
    case Area::phasor: _matrix->cyclePhase(_out, _src); return;
    case Area::value:
      _pressOnValue = true;
      _dragging = false;
      _pressPosition = position;
      _dragStartGain = *_gain;
      return;
    case Area::none: return;
  }
}

void RoutingMatrixCell::mouseMoveEvent(QMouseEvent* event) {
  if (!_pressOnValue) return QWidget::mouseMoveEvent(event);
  const int dy = event->position().toPoint().y() - _pressPosition.y();
  if (!_dragging && std::abs(dy) < kGainDragMinimumPoints) return;
  _dragging = true;
  // Up is louder: the drag's translation so far, from the gain at its start.
  const float gain = adjustedRoutingGain(_dragStartGain, -kGainDragDBPerPoint * dy);
  _matrix->setGainDB(_out, _src, routingGainDB(gain));
}

void RoutingMatrixCell::mouseReleaseEvent(QMouseEvent* event) {
  if (!_pressOnValue) return QWidget::mouseReleaseEvent(event);
  _pressOnValue = false;
  if (!_dragging) beginEditing();
  _dragging = false;
}

void RoutingMatrixCell::beginEditing() {
  if (!_gain || _editor) return;
  _editor = new QLineEdit(this);
  _editor->setObjectName(QStringLiteral("gainEditor"));
  _editor->setGeometry(areaRect(Area::value).adjusted(0, 2, -2, -2));
  _editor->setAlignment(Qt::AlignRight);
  _editor->setText(QString::fromStdString(formatRoutingGainEditText(*_gain)));
  _editor->selectAll();
  _editor->show();
  _editor->setFocus();
  connect(_editor, &QLineEdit::editingFinished, this, &RoutingMatrixCell::commitEditing);
  update();
}

void RoutingMatrixCell::commitEditing() {
  if (!_editor) return;
  QLineEdit* editor = std::exchange(_editor, nullptr);
  const auto gainDB = parseRoutingGainText(editor->text().toStdString());
  editor->hide();
  editor->deleteLater();
  if (gainDB) _matrix->setGainDB(_out, _src, *gainDB);
  update();
}

QStringList RoutingMatrixCell::contextMenuItems() const { return _gain ? routedCellMenu(_phase) : emptyCellMenu(); }

void RoutingMatrixCell::runContextMenuItem(int index) {
  if (!_gain) {
    if (index == 0) _matrix->addRoute(_out, _src);
    return;
  }
  switch (index) {
    case 0: _matrix->cyclePhase(_out, _src); break;
    case 1: _matrix->resetGain(_out, _src); break;
    case 2: _matrix->removeRoute(_out, _src); break;
    default: break;
  }
}

void RoutingMatrixCell::contextMenuEvent(QContextMenuEvent* event) {
  QMenu menu(this);
  const QStringList items = contextMenuItems();
  for (int i = 0; i < items.size(); ++i) {
    connect(menu.addAction(items[i]), &QAction::triggered, this, [this, i] { runContextMenuItem(i); });
  }
  menu.exec(event->globalPos());
}

}  // namespace corvane
