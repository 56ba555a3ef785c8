#include "displays/TimeAxis.h"

#include <algorithm>
#include <cmath>

namespace corvane {

double TimeAxis::xForTime(double seconds) const {
  if (!(duration > 0.0)) return 0.0;
  return seconds / duration * width * zoom - scroll;
}

double TimeAxis::timeForX(double x) const {
  const double content = width * zoom;
  if (!(duration > 0.0) || !(content > 0.0)) return 0.0;
  return std::clamp((x + scroll) / content * duration, 0.0, duration);
}

double TimeAxis::maxScroll() const { return std::max(0.0, width * zoom - width); }

double TimeAxis::clampScroll(double value) const {
  if (!std::isfinite(value)) return 0.0;
  return std::clamp(value, 0.0, maxScroll());
}

double maxTimeZoom(FrameCount frames) { return std::max(1.0, static_cast<double>(frames) / 3.0); }

ZoomScroll zoomAround(const TimeAxis& axis, FrameCount frames, double newZoom, double anchorX) {
  newZoom = std::isfinite(newZoom) ? std::clamp(newZoom, 1.0, maxTimeZoom(frames)) : axis.zoom;
  // The fraction of the file under the anchor, before the change.
  const double fraction = axis.duration > 0.0 ? axis.timeForX(anchorX) / axis.duration : 0.0;
  TimeAxis zoomed = axis;
  zoomed.zoom = newZoom;
  return {newZoom, zoomed.clampScroll(fraction * axis.width * newZoom - anchorX)};
}

ZoomScroll adjustZoom(const TimeAxis& axis, FrameCount frames, double factor) {
  return zoomAround(axis, frames, axis.zoom * factor, axis.width / 2.0);
}

std::optional<ColumnSpan> columnAt(double x, int width) {
  if (!(x >= 0.0) || !(x < width)) return std::nullopt;
  const int column = static_cast<int>(std::floor(x));
  return ColumnSpan{column, column};
}

std::optional<ColumnSpan> columnsCovering(double x1, double x2, int width) {
  if (!std::isfinite(x1) || !std::isfinite(x2) || width < 1) return std::nullopt;
  if (x2 < x1) std::swap(x1, x2);
  double first = std::ceil(x1 - 0.5);
  double last = std::floor(x2 - 0.5);
  if (last < first) first = last = std::floor((x1 + x2) / 2.0);
  if (last < 0.0 || first > width - 1) return std::nullopt;
  return ColumnSpan{static_cast<int>(std::max(first, 0.0)), static_cast<int>(std::min(last, width - 1.0))};
}

}  // namespace corvane
