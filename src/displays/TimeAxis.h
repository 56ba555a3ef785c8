// The horizontal mapping every time display shares: a file of `duration` seconds drawn
// `zoom` times the view's `width`, scrolled `scroll` pixels of that zoomed content to the left.
//
//   xForTime(t) = t / duration · width · zoom − scroll
//   timeForX(x) = (x + scroll) / (width · zoom) · duration, held to 0 ... duration
//
// `scroll` always lies in 0 ... max(0, width · zoom − width); zoom runs from 1 (the whole file
// fits) to max(1, frames / 3), where about three frames fill the view. A file of no duration
// maps every x to 0 and every time to x 0.
//
// Thread class: a plain value; any thread.
#pragma once

#include <optional>

#include "core/AudioBuffer.h"

namespace corvane {

struct TimeAxis {
  double duration = 0.0;  // seconds
  double width = 0.0;     // pixels of the view
  double zoom = 1.0;
  double scroll = 0.0;    // pixels of the zoomed content

  double xForTime(double seconds) const;
  double timeForX(double x) const;

  // The width of the zoomed content less the view's: the largest scroll.
  double maxScroll() const;
  double clampScroll(double value) const;

  // The times at the left and right edges of the view.
  double visibleStart() const { return timeForX(0.0); }
  double visibleEnd() const { return timeForX(width); }
  double secondsVisible() const { return zoom > 0.0 ? duration / zoom : duration; }
};

// The deepest zoom for a file of `frames` frames: max(1, frames / 3).
double maxTimeZoom(FrameCount frames);

// A zoom and scroll together, as the shared state holds them.
struct ZoomScroll {
  double zoom = 1.0;
  double scroll = 0.0;
  friend bool operator==(const ZoomScroll&, const ZoomScroll&) = default;
};

// `axis` zoomed to `newZoom` (held to 1 ... maxTimeZoom(frames)) with the time under `anchorX`
// staying under it; the scroll held to its range.
ZoomScroll zoomAround(const TimeAxis& axis, FrameCount frames, double newZoom, double anchorX);

// The zoom buttons: zoom × factor around the middle of the view.
ZoomScroll adjustZoom(const TimeAxis& axis, FrameCount frames, double factor);

// Pixel columns of a view `width` columns wide, column c spanning x c ... c + 1.
struct ColumnSpan {
  int first = 0;
  int last = 0;  // inclusive
  friend bool operator==(const ColumnSpan&, const ColumnSpan&) = default;
};
// The column that holds `x` (a line such as the playhead); none outside the view.
std::optional<ColumnSpan> columnAt(double x, int width);
// The columns whose centres lie within [x1, x2] (a span such as the selection), and at least
// the one under its middle, so that a narrow span stays visible; clipped to the view, none
// when the span lies outside it.
std::optional<ColumnSpan> columnsCovering(double x1, double x2, int width);

}  // namespace corvane
