#include "displays/WaveformGestures.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace corvane {

std::optional<int> WaveformGestures::boundaryIndex(double x, const WaveformGestureScene& scene) {
  std::optional<int> nearest;
  double nearestDistance = 0.0;
  for (std::size_t i = 0; i < scene.chapterBoundaryTimes.size(); ++i) {
    const double distance = std::fabs(scene.axis.xForTime(scene.chapterBoundaryTimes[i]) - x);
    if (distance <= kBoundaryHitThreshold && (!nearest || distance < nearestDistance)) {
      nearest = static_cast<int>(i);
      nearestDistance = distance;
    }
  }
  return nearest;
}

WaveformDragHandle WaveformGestures::hitTest(double x, const WaveformGestureScene& scene) {
  if (scene.chapterBoundaryDraggable && boundaryIndex(x, scene)) return WaveformDragHandle::chapterBoundary;
  if (!scene.selection) return WaveformDragHandle::none;
  const double startX = scene.axis.xForTime(scene.selection->lower);
  const double endX = scene.axis.xForTime(scene.selection->upper);
  if (std::fabs(x - startX) <= kEdgeHitThreshold) return WaveformDragHandle::leftEdge;
  if (std::fabs(x - endX) <= kEdgeHitThreshold) return WaveformDragHandle::rightEdge;
  if (x > startX && x < endX) return WaveformDragHandle::body;
  return WaveformDragHandle::none;
}

std::optional<WaveformGestures::DialogueHit> WaveformGestures::dialogueRegionHitTest(
    double x, const WaveformGestureScene& scene) {
  const auto& regions = scene.dialogueRegions;
  for (std::size_t i = 0; i < regions.size(); ++i) {
    if (std::fabs(x - scene.axis.xForTime(regions[i].start)) <= kEdgeHitThreshold) {
      return DialogueHit{WaveformDragHandle::dlgLeftEdge, i};
    }
    if (std::fabs(x - scene.axis.xForTime(regions[i].end)) <= kEdgeHitThreshold) {
      return DialogueHit{WaveformDragHandle::dlgRightEdge, i};
    }
  }
  for (std::size_t i = 0; i < regions.size(); ++i) {
    if (x > scene.axis.xForTime(regions[i].start) && x < scene.axis.xForTime(regions[i].end)) {
      return DialogueHit{WaveformDragHandle::dlgBody, i};
    }
  }
  return std::nullopt;
}

void WaveformGestures::reset() { *this = WaveformGestures(); }

WaveformGestureEffect WaveformGestures::mouseDown(double x, GestureModifiers modifiers,
                                                  const WaveformGestureScene& scene) {
  reset();
  WaveformGestureEffect effect;
  const double time = scene.axis.timeForX(x);
  if (scene.isDialogueModeActive) {
    if (const auto hit = dialogueRegionHitTest(x, scene)) {
      const DialogueRegion& region = scene.dialogueRegions[hit->index];
      _activeDragHandle = hit->handle;
      _draggingDialogueRegionID = region.id;
      _dialogueDragMoved = false;
      _dialogueDragAnchor = DialogueAnchor{region.start, region.end, time};
      effect.dialogueRegionDragBegin = region.id;
      return effect;
    }
  }
  _activeDragHandle = hitTest(x, scene);
  switch (_activeDragHandle) {
    case WaveformDragHandle::chapterBoundary:
      _draggingBoundaryIndex = boundaryIndex(x, scene);
      break;
    case WaveformDragHandle::body:
      _bodyDragAnchor = BodyAnchor{scene.selection->lower, scene.selection->upper, time};
      break;
    case WaveformDragHandle::none:
      if (modifiers.command) {
        _activeDragHandle = WaveformDragHandle::newSelection;
        _selectionDragStart = time;
      }
      break;
    default:
      break;
  }
  return effect;
}

WaveformGestureEffect WaveformGestures::drag(double x, GestureModifiers, const WaveformGestureScene& scene) {
  WaveformGestureEffect effect;
  const double time = scene.axis.timeForX(x);
  const double duration = std::max(scene.axis.duration, 0.0);
  switch (_activeDragHandle) {
    case WaveformDragHandle::dlgLeftEdge:
    case WaveformDragHandle::dlgRightEdge:
    case WaveformDragHandle::dlgBody: {
      if (!_dialogueDragAnchor || !_draggingDialogueRegionID) break;
      const DialogueAnchor& anchor = *_dialogueDragAnchor;
      double start = anchor.start, end = anchor.end;
      if (_activeDragHandle == WaveformDragHandle::dlgLeftEdge) {
        start = std::clamp(time, 0.0, anchor.end);
      } else if (_activeDragHandle == WaveformDragHandle::dlgRightEdge) {
        end = std::clamp(time, anchor.start, duration);
      } else {
        const double shift = std::clamp(time - anchor.mouseTime, -anchor.start, duration - anchor.end);
        start += shift;
        end += shift;
      }
      _dialogueDragMoved = true;
      effect.dialogueRegionDrag = WaveformGestureEffect::RegionMove{*_draggingDialogueRegionID, start, end};
      break;
    }
    case WaveformDragHandle::chapterBoundary:
      if (_draggingBoundaryIndex) effect.chapterBoundaryDrag = {*_draggingBoundaryIndex, time};
      break;
    case WaveformDragHandle::leftEdge:
      if (scene.selection) {
        effect.setsSelection = true;
        effect.selection = SecondsRange{std::clamp(time, 0.0, scene.selection->upper), scene.selection->upper};
      }
      break;
    case WaveformDragHandle::rightEdge:
      if (scene.selection) {
        effect.setsSelection = true;
        effect.selection = SecondsRange{scene.selection->lower,
                                        std::clamp(time, scene.selection->lower, std::max(duration, scene.selection->lower))};
      }
      break;
    case WaveformDragHandle::body:
      if (_bodyDragAnchor) {
        const BodyAnchor& anchor = *_bodyDragAnchor;
        const double shift = std::clamp(time - anchor.mouseTime, -anchor.selStart, std::max(0.0, duration - anchor.selEnd));
        effect.setsSelection = true;
        effect.selection = SecondsRange{anchor.selStart + shift, anchor.selEnd + shift};
      }
      break;
    case WaveformDragHandle::newSelection:
      if (_selectionDragStart) {
        effect.setsSelection = true;
        effect.selection = SecondsRange{std::min(*_selectionDragStart, time), std::max(*_selectionDragStart, time)};
      }
      break;
    case WaveformDragHandle::none:
      _isDraggingPlayhead = true;
      effect.seek = time;
      break;
  }
  return effect;
}

WaveformGestureEffect WaveformGestures::release(double x, bool moved, const WaveformGestureScene& scene) {
  WaveformGestureEffect effect;
  if (!moved) {
    if (_activeDragHandle == WaveformDragHandle::chapterBoundary && _draggingBoundaryIndex) {
      effect.chapterBoundaryTap = *_draggingBoundaryIndex;
    } else if (_draggingDialogueRegionID) {
      effect.dialogueRegionClick = *_draggingDialogueRegionID;
    } else {
      effect.seek = scene.axis.timeForX(x);
    }
  }
  reset();
  return effect;
}

WaveformCursor WaveformGestures::cursorHint(double x, const WaveformGestureScene& scene) {
  if (scene.isDialogueModeActive) {
    if (const auto hit = dialogueRegionHitTest(x, scene)) {
      return hit->handle == WaveformDragHandle::dlgBody ? WaveformCursor::move : WaveformCursor::resizeHorizontal;
    }
  }
  switch (hitTest(x, scene)) {
    case WaveformDragHandle::chapterBoundary:
      return WaveformCursor::splitHorizontal;
    case WaveformDragHandle::leftEdge:
    case WaveformDragHandle::rightEdge:
      return WaveformCursor::resizeHorizontal;
    case WaveformDragHandle::body:
      return WaveformCursor::move;
    default:
      return WaveformCursor::arrow;
  }
}

WaveformWheelOutcome handleScrollWheel(WheelDelta delta, GestureModifiers modifiers, double pointerX,
                                       const TimeAxis& axis, FrameCount frames, double amplitudeZoom) {
  WaveformWheelOutcome outcome{{axis.zoom, axis.scroll}, amplitudeZoom};
  if (modifiers.shift) {
    const double along = std::fabs(delta.dx) > std::fabs(delta.dy) ? delta.dx : delta.dy;
    outcome.zoomScroll.scroll = axis.clampScroll(axis.scroll + 2.0 * along);
    return outcome;
  }
  if (modifiers.option) {
    outcome.amplitudeZoom = std::clamp(amplitudeZoom * (1.0 - 0.008 * delta.dy), kMinAmplitudeZoom, kMaxAmplitudeZoom);
    return outcome;
  }
  const double zoom = std::clamp(axis.zoom * (1.0 - 0.005 * delta.dy), 1.0, maxTimeZoom(frames));
  if (zoom == axis.zoom) return outcome;
  outcome.zoomScroll = zoomAround(axis, frames, zoom, pointerX);
  return outcome;
}

double stepAmplitudeZoom(double amplitudeZoom, bool up) {
  return up ? std::min(amplitudeZoom * 1.5, kMaxAmplitudeZoom) : std::max(amplitudeZoom / 1.5, kMinAmplitudeZoom);
}

std::span<const GestureLegendRow> waveformGestureLegend() {
  static constexpr std::array<GestureLegendRow, 6> rows = {{
      {"Click / drag", "Move the playhead"},
      {"Ctrl-drag", "Select a region"},
      {"Drag edge / body", "Resize / move the selection"},
      {"Scroll", "Zoom horizontally"},
      {"Alt-scroll", "Amplitude (vertical) zoom"},
      {"Shift-scroll", "Pan horizontally"},
  }};
  return rows;
}

}  // namespace corvane
