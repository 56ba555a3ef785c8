// The waveform's mouse and wheel behaviour, apart from any window system: hit tests, the
// drag state machine, and what a wheel turn does to zoom, scroll and amplitude.
//
// A gesture is a press (mouseDown), any number of moves (drag) and a release. What a press
// grabs decides what the moves do, in this order of precedence:
//   - in dialogue mode, a dialogue region's edge (within kEdgeHitThreshold) or inside;
//   - a draggable chapter boundary within kBoundaryHitThreshold (the nearest);
//   - the selection's start edge, then its end edge (within kEdgeHitThreshold), then its inside;
//   - with Ctrl held, a new selection anchored at the pressed time;
//   - otherwise the playhead, which scrubs: every move seeks.
// A press and release without a move is a tap: on a chapter boundary or a dialogue region it
// reports the tap, anywhere else it seeks to the released point.
//
// Every call takes the scene as it is at that moment (the selection may have been changed by
// the previous move) and returns the effects for the view to apply; the object itself keeps
// only the state of the gesture in progress.
//
// Thread class: main thread (a plain object, not shared).
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/LevelViolations.h"
#include "displays/TimeAxis.h"
#include "displays/WheelInput.h"
#include "headless/speech/DialogueRegion.h"

namespace corvane {

enum class WaveformDragHandle {
  none,
  leftEdge,
  rightEdge,
  body,
  newSelection,
  chapterBoundary,
  dlgLeftEdge,
  dlgRightEdge,
  dlgBody,
};

// Ctrl, Alt and Shift (the other platform's command, option and shift keys).
struct GestureModifiers {
  bool command = false;
  bool option = false;
  bool shift = false;
};

// What the view shows, as far as gestures care.
struct WaveformGestureScene {
  TimeAxis axis;
  std::optional<SecondsRange> selection;
  std::span<const double> chapterBoundaryTimes;
  bool chapterBoundaryDraggable = false;
  std::span<const DialogueRegion> dialogueRegions;
  bool isDialogueModeActive = false;
};

// What one step of a gesture asks of the view. Everything absent is left alone.
struct WaveformGestureEffect {
  bool setsSelection = false;
  std::optional<SecondsRange> selection;  // the new selection when setsSelection
  std::optional<double> seek;             // the playhead's new time, and a seek of the transport
  struct BoundaryMove {
    int index = 0;
    double time = 0.0;
  };
  std::optional<BoundaryMove> chapterBoundaryDrag;
  std::optional<int> chapterBoundaryTap;
  std::optional<std::string> dialogueRegionDragBegin;
  struct RegionMove {
    std::string id;
    double start = 0.0;
    double end = 0.0;
  };
  std::optional<RegionMove> dialogueRegionDrag;
  std::optional<std::string> dialogueRegionClick;
};

enum class WaveformCursor { arrow, resizeHorizontal, move, splitHorizontal };

class WaveformGestures {
 public:
  static constexpr double kBoundaryHitThreshold = 6.0;  // pixels
  static constexpr double kEdgeHitThreshold = 8.0;      // pixels

  // The boundary whose x lies nearest to `x` within kBoundaryHitThreshold; the first of equals.
  // With a duration of 0 every boundary stands at x 0.
  static std::optional<int> boundaryIndex(double x, const WaveformGestureScene& scene);

  // What a press at `x` outside dialogue mode grabs (chapterBoundary, leftEdge, rightEdge, body
  // or none); the start edge wins when both edges lie within reach.
  static WaveformDragHandle hitTest(double x, const WaveformGestureScene& scene);

  struct DialogueHit {
    WaveformDragHandle handle = WaveformDragHandle::none;
    std::size_t index = 0;  // into scene.dialogueRegions
  };
  // The dialogue region grabbed at `x`: an edge within kEdgeHitThreshold (edges of every region
  // before insides), else the region whose inside holds x.
  static std::optional<DialogueHit> dialogueRegionHitTest(double x, const WaveformGestureScene& scene);

  WaveformGestureEffect mouseDown(double x, GestureModifiers modifiers, const WaveformGestureScene& scene);
  WaveformGestureEffect drag(double x, GestureModifiers modifiers, const WaveformGestureScene& scene);
  // Ends the gesture; `moved` tells a tap from the end of a drag. The state returns to rest.
  WaveformGestureEffect release(double x, bool moved, const WaveformGestureScene& scene);

  // The pointer's shape over `x` while no button is held.
  static WaveformCursor cursorHint(double x, const WaveformGestureScene& scene);

  WaveformDragHandle activeDragHandle() const { return _activeDragHandle; }
  bool isDraggingPlayhead() const { return _isDraggingPlayhead; }
  std::optional<double> selectionDragStart() const { return _selectionDragStart; }
  std::optional<int> draggingBoundaryIndex() const { return _draggingBoundaryIndex; }
  bool dialogueDragMoved() const { return _dialogueDragMoved; }

 private:
  struct BodyAnchor {
    double selStart, selEnd, mouseTime;
  };
  struct DialogueAnchor {
    double start, end, mouseTime;
  };
  void reset();

  WaveformDragHandle _activeDragHandle = WaveformDragHandle::none;
  bool _isDraggingPlayhead = false;
  std::optional<double> _selectionDragStart;
  std::optional<BodyAnchor> _bodyDragAnchor;
  std::optional<std::string> _draggingDialogueRegionID;
  std::optional<DialogueAnchor> _dialogueDragAnchor;
  bool _dialogueDragMoved = false;
  std::optional<int> _draggingBoundaryIndex;
};

// What a wheel turn changes.
struct WaveformWheelOutcome {
  ZoomScroll zoomScroll;
  double amplitudeZoom = 1.0;
};

inline constexpr double kMinAmplitudeZoom = 0.1;
inline constexpr double kMaxAmplitudeZoom = 1000.0;

// A wheel turn over the waveform at `pointerX`, decided in this order:
//   Shift: pan by twice the larger of the two deltas, the scroll held to its range;
//   Alt:   amplitude zoom × (1 − 0.008 · dy), held to 0.1 ... 1000;
//   else:  time zoom × (1 − 0.005 · dy), held to 1 ... maxTimeZoom(frames), keeping the time
//          under the pointer where it is; a zoom that doesn't change leaves the scroll alone.
WaveformWheelOutcome handleScrollWheel(WheelDelta delta, GestureModifiers modifiers, double pointerX,
                                       const TimeAxis& axis, FrameCount frames, double amplitudeZoom);

// The amplitude zoom buttons: ÷ 1.5 down to 0.1, × 1.5 up to 1000.
double stepAmplitudeZoom(double amplitudeZoom, bool up);

// The rows of the legend button "Waveform gestures", with the key names of this platform.
struct GestureLegendRow {
  const char* gesture;
  const char* action;
};
inline constexpr const char* kWaveformGestureLegendTitle = "Waveform gestures";
std::span<const GestureLegendRow> waveformGestureLegend();

}  // namespace corvane
