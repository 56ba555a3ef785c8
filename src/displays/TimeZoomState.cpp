#include "displays/TimeZoomState.h"

#include <cmath>

namespace corvane {

TimeZoomState::TimeZoomState(QObject* parent) : QObject(parent) {}

void TimeZoomState::setZoom(double zoom) { setZoomScroll({zoom, _scroll}); }

void TimeZoomState::setScroll(double scroll) { setZoomScroll({_zoom, scroll}); }

void TimeZoomState::setZoomScroll(ZoomScroll value) {
  const double zoom = std::isfinite(value.zoom) && value.zoom > 1.0 ? value.zoom : 1.0;
  const double scroll = std::isfinite(value.scroll) && value.scroll > 0.0 ? value.scroll : 0.0;
  const bool zoomMoves = zoom != _zoom;
  const bool scrollMoves = scroll != _scroll;
  if (!zoomMoves && !scrollMoves) return;
  _zoom = zoom;
  _scroll = scroll;
  if (zoomMoves) emit zoomChanged(_zoom);
  if (scrollMoves) emit scrollChanged(_scroll);
  emit changed();
}

void TimeZoomState::reset() { setZoomScroll({1.0, 0.0}); }

}  // namespace corvane
