#include "displays/WheelInput.h"

namespace corvane {

WheelDelta normaliseWheel(int angleDeltaX, int angleDeltaY, int pixelDeltaX, int pixelDeltaY, bool altHeld) {
  WheelDelta delta;
  if (pixelDeltaX != 0 || pixelDeltaY != 0) {
    delta = {-static_cast<double>(pixelDeltaX), -static_cast<double>(pixelDeltaY)};
  } else {
    const double scale = kWheelPointsPerNotch / kAngleDeltaPerNotch;
    delta = {-angleDeltaX * scale, -angleDeltaY * scale};
  }
  if (altHeld && delta.dy == 0.0) delta = {0.0, delta.dx};
  return delta;
}

}  // namespace corvane
