// Wheel and touchpad input in one unit for every display.
//
// A mouse wheel reports angleDelta in eighths of a degree, 120 per notch; a touchpad (and a
// high-resolution wheel under Wayland) reports pixelDelta, which is preferred when present. Both
// become points: kWheelPointsPerNotch per notch, one per pixel. The sign follows the content:
// turning the wheel away from the user gives a negative dy (zoom in, pan towards the start,
// amplitude up), tilting it right a positive dx.
//
// Under X11, Qt hands an Alt+wheel turn over on the horizontal axis; with Alt held and no
// vertical motion the horizontal delta is taken as the vertical one, so "Alt-scroll" works
// with a plain wheel.
//
// Thread class: pure functions, any thread.
#pragma once

namespace corvane {

inline constexpr int kAngleDeltaPerNotch = 120;
// Points per notch: a notch zooms time by 10 %, amplitude by 16 %, and pans 40 pixels.
inline constexpr double kWheelPointsPerNotch = 20.0;

struct WheelDelta {
  double dx = 0.0;  // points, positive to the right
  double dy = 0.0;  // points, positive towards the user
};

WheelDelta normaliseWheel(int angleDeltaX, int angleDeltaY, int pixelDeltaX, int pixelDeltaY, bool altHeld);

}  // namespace corvane
