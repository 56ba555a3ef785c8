// RoutingMatrixView: the routing as a matrix, a row per device output and a column per file
// channel; a cell shows the slot of that pair.
//
// Gestures on a cell: a click on an empty cell routes the source at unity; on a routed cell the
// dot removes the route, the phasor cycles the phase (0° → +90° → −90° → 180°), and the value
// (its gain, "%+.1f" dB or "0.0" at unity) starts editing on a click, or follows a vertical drag
// of at least 5 points at 0.25 dB a point from where the drag began (up is louder). The
// right-click menus offer the same. Every change is a matrix operation of ChannelRouting.h on
// a copy of the routing, handed out by routingsEdited(); the owner gives it to the session
// and the view shows what comes back through setRoutings().
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>
#include <string>
#include <vector>

#include "core/ChannelLayout.h"
#include "playback/ChannelRouting.h"

class QLineEdit;
class QGridLayout;

namespace corvane {

class RoutingMatrixCell;

class RoutingMatrixView : public QWidget {
  Q_OBJECT

 public:
  explicit RoutingMatrixView(QWidget* parent = nullptr);

  // The file's channel labels (columns) with their colours, and the routing (rows).
  void setSources(std::vector<std::string> labels, std::vector<ChannelColor> colors);
  void setRoutings(const ChannelRoutings& routings);
  const ChannelRoutings& routings() const { return _routings; }

  // The cell of output `out` and source `src`, or null.
  RoutingMatrixCell* cell(int out, int src) const;

  // The matrix operations, as the cells ask for them.
  void addRoute(int out, int src);
  void removeRoute(int out, int src);
  void cyclePhase(int out, int src);
  void resetGain(int out, int src);
  void setGainDB(int out, int src, double gainDB);

 signals:
  void routingsEdited(const corvane::ChannelRoutings& routings);

 private:
  void rebuild();
  void refreshCells();
  void edit(bool changed);

  std::vector<std::string> _labels;
  std::vector<ChannelColor> _colors;
  ChannelRoutings _routings;
  QGridLayout* _grid;
  std::vector<std::vector<RoutingMatrixCell*>> _cells;
  int _builtRows = -1;
  int _builtColumns = -1;
  std::vector<std::string> _builtRowLabels;
};

// One cell: its drawing, hit areas and gestures.
class RoutingMatrixCell : public QWidget {
  Q_OBJECT

 public:
  enum class Area { none, dot, phasor, value };

  RoutingMatrixCell(RoutingMatrixView* matrix, int out, int src, QString srcLabel, QString outLabel);

  // What the cell shows; no gain: the pair is not routed.
  void setSlot(std::optional<float> gain, RoutingPhase phase);
  bool isRouted() const { return _gain.has_value(); }
  QString valueText() const;
  QString toolTipAt(QPoint position) const;
  Area areaAt(QPoint position) const;
  QRect areaRect(Area area) const;
  // The value editor while editing (null otherwise), and its commit: "dB" dropped, trimmed, a
  // number sets the gain (clamped to ±24 dB), anything else keeps it; editing ends either way.
  QLineEdit* editor() const { return _editor; }
  void beginEditing();
  void commitEditing();
  // The context menu's items, run by title (what a right-click offers).
  QStringList contextMenuItems() const;
  void runContextMenuItem(int index);

  QSize sizeHint() const override { return {78, 30}; }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;
  bool event(QEvent* event) override;

 private:
  RoutingMatrixView* _matrix;
  int _out;
  int _src;
  QString _srcLabel;
  QString _outLabel;
  std::optional<float> _gain;
  RoutingPhase _phase = RoutingPhase::inPhase;
  bool _pressOnValue = false;
  bool _dragging = false;
  QPoint _pressPosition;
  float _dragStartGain = 1.0f;
  QLineEdit* _editor = nullptr;
};

}  // namespace corvane
