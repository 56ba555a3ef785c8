#include "displays/TimeRuler.h"

#include <array>
#include <cmath>

namespace corvane {

namespace {

constexpr std::array<double, 13> kSecondSpacings = {0.1, 0.25, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600};
constexpr int kMaxTicks = 10;

constexpr std::array<FrameCount, 21> kFrameSpacings = {
    1,      2,      4,      10,      20,      50,      100,     200,     500,     1000,   2000,
    5000,   10000,  20000,  50000,   100000,  200000,  500000,  1000000, 2000000, 5000000};

}  // namespace

double niceTickInterval(double secondsVisible) {
  for (double spacing : kSecondSpacings) {
    if (!(secondsVisible / spacing > kMaxTicks)) return spacing;
  }
  return kSecondSpacings.back();
}

FrameCount sampleTickInterval(double framesVisible) {
  for (FrameCount spacing : kFrameSpacings) {
    if (!(framesVisible / static_cast<double>(spacing) > kMaxTicks)) return spacing;
  }
  return kFrameSpacings.back();
}

std::vector<double> rulerTicks(double visibleStart, double visibleEnd, double interval) {
  std::vector<double> ticks;
  if (!(interval > 0.0) || !(visibleEnd >= visibleStart) || !std::isfinite(visibleEnd)) return ticks;
  // A start that is a multiple up to rounding (0.3 / 0.1 = 2.9999999999999996) keeps its tick.
  const double relativeSlack = 1e-9;
  auto k = static_cast<long long>(std::ceil(visibleStart / interval - relativeSlack));
  for (double t = static_cast<double>(k) * interval; t <= visibleEnd + interval * relativeSlack;
       t = static_cast<double>(++k) * interval) {
    ticks.push_back(t);
  }
  return ticks;
}

std::vector<FrameCount> rulerSampleTicks(double firstFrame, double lastFrame, FrameCount interval) {
  std::vector<FrameCount> ticks;
  if (interval < 1 || !(lastFrame >= firstFrame) || !std::isfinite(lastFrame)) return ticks;
  FrameCount k = static_cast<FrameCount>(std::ceil(firstFrame / static_cast<double>(interval)));
  for (FrameCount frame = k * interval; static_cast<double>(frame) <= lastFrame; frame = ++k * interval) {
    ticks.push_back(frame);
  }
  return ticks;
}

}  // namespace corvane
