// The zoom and scroll that every time display of the main window shares, so that the
// waveform, the loudness curve and the spectrogram always show the same span. The main view
// owns one and hands it to each panel; a panel reads it when it paints and writes it when the
// user zooms or pans, and every panel repaints on `changed`.
//
// `scroll` is in pixels of the zoomed content (see TimeAxis); each panel holds it to its own
// range when it reads it. A load resets both (zoom 1, scroll 0).
//
// Thread class: main thread.
#pragma once

#include <QObject>

#include "displays/TimeAxis.h"

namespace corvane {

class TimeZoomState : public QObject {
  Q_OBJECT
  Q_PROPERTY(double zoom READ zoom WRITE setZoom NOTIFY zoomChanged)
  Q_PROPERTY(double scroll READ scroll WRITE setScroll NOTIFY scrollChanged)

 public:
  explicit TimeZoomState(QObject* parent = nullptr);

  double zoom() const { return _zoom; }
  double scroll() const { return _scroll; }
  ZoomScroll zoomScroll() const { return {_zoom, _scroll}; }

  // A zoom below 1 or not finite counts as 1; a negative or non-finite scroll as 0.
  void setZoom(double zoom);
  void setScroll(double scroll);
  // Both at once: `changed` is emitted once, after both fields hold their new values.
  void setZoomScroll(ZoomScroll value);
  // Zoom 1, scroll 0: the whole file.
  void reset();

 signals:
  void zoomChanged(double zoom);
  void scrollChanged(double scroll);
  // After any real change of either.
  void changed();

 private:
  double _zoom = 1.0;
  double _scroll = 0.0;
};

}  // namespace corvane
