// The shared time mapping, zoom around the pointer, wheel input and lane geometry, on values
// worked out by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "displays/TimeAxis.h"
#include "displays/WaveformGestures.h"
#include "displays/WaveformLanes.h"
#include "displays/WheelInput.h"

namespace corvane {
namespace {

TEST(TimeAxis, MapsTimeAndPixelsBothWays) {
  // An hour drawn eight times 1000 pixels wide, scrolled 1234 pixels.
  const TimeAxis axis{3600.0, 1000.0, 8.0, 1234.0};
  EXPECT_DOUBLE_EQ(axis.xForTime(450.0), -234.0);  // 450 / 3600 · 8000 − 1234
  EXPECT_DOUBLE_EQ(axis.xForTime(1012.5), 1016.0);
  EXPECT_DOUBLE_EQ(axis.timeForX(0.0), 555.3);     // 1234 / 8000 · 3600
  EXPECT_DOUBLE_EQ(axis.timeForX(1000.0), 1005.3);
  EXPECT_DOUBLE_EQ(axis.secondsVisible(), 450.0);
  for (double t : {555.3, 600.0, 777.77, 1005.3}) EXPECT_NEAR(axis.timeForX(axis.xForTime(t)), t, 1e-9);
  // Held to the file.
  EXPECT_EQ(axis.timeForX(-1e6), 0.0);
  EXPECT_EQ(axis.timeForX(1e9), 3600.0);

  EXPECT_DOUBLE_EQ(axis.maxScroll(), 7000.0);
  EXPECT_EQ(axis.clampScroll(-5.0), 0.0);
  EXPECT_EQ(axis.clampScroll(1e9), 7000.0);
  EXPECT_EQ(axis.clampScroll(std::nan("")), 0.0);
  EXPECT_EQ((TimeAxis{3600.0, 1000.0, 1.0, 0.0}.maxScroll()), 0.0);
}

TEST(TimeAxis, AFileOfNoDurationSitsAtZero) {
  const TimeAxis empty{0.0, 800.0, 1.0, 0.0};
  EXPECT_EQ(empty.timeForX(400.0), 0.0);
  EXPECT_EQ(empty.xForTime(5.0), 0.0);
  const TimeAxis noWidth{10.0, 0.0, 1.0, 0.0};
  EXPECT_EQ(noWidth.timeForX(3.0), 0.0);
}

TEST(TimeAxis, ZoomKeepsTheTimeUnderTheAnchor) {
  const FrameCount frames = 48000 * 600;  // ten minutes
  const TimeAxis start{600.0, 1200.0, 3.0, 1500.0};
  for (double anchor : {0.0, 1.0, 333.3, 600.0, 1199.0}) {
    for (double zoom : {3.3, 7.0, 250.0}) {
      const ZoomScroll result = zoomAround(start, frames, zoom, anchor);
      TimeAxis after = start;
      after.zoom = result.zoom;
      after.scroll = result.scroll;
      EXPECT_NEAR(after.timeForX(anchor), start.timeForX(anchor), 1e-9) << anchor << " " << zoom;
    }
  }
  // Out to the whole file: scroll 0 whatever the anchor.
  EXPECT_EQ(zoomAround(start, frames, 0.2, 700.0), (ZoomScroll{1.0, 0.0}));
  // The deepest zoom leaves three frames in view.
  EXPECT_EQ(maxTimeZoom(frames), 9600000.0);
  EXPECT_EQ(maxTimeZoom(2), 1.0);
  EXPECT_EQ(zoomAround(start, frames, 1e12, 0.0).zoom, 9600000.0);
  // The buttons zoom around the middle.
  const ZoomScroll stepped = adjustZoom(start, frames, 1.5);
  EXPECT_DOUBLE_EQ(stepped.zoom, 4.5);
  TimeAxis after = start;
  after.zoom = stepped.zoom;
  after.scroll = stepped.scroll;
  EXPECT_NEAR(after.timeForX(600.0), start.timeForX(600.0), 1e-9);
}

TEST(TimeAxis, ColumnsOfLinesAndSpans) {
  EXPECT_EQ(columnAt(10.7, 100), (ColumnSpan{10, 10}));
  EXPECT_EQ(columnAt(0.0, 100), (ColumnSpan{0, 0}));
  EXPECT_FALSE(columnAt(-0.1, 100));
  EXPECT_FALSE(columnAt(100.0, 100));
  EXPECT_FALSE(columnAt(std::nan(""), 100));

  EXPECT_EQ(columnsCovering(10.2, 20.8, 100), (ColumnSpan{10, 20}));  // centres 10.5 ... 20.5
  EXPECT_EQ(columnsCovering(10.6, 20.4, 100), (ColumnSpan{11, 19}));
  EXPECT_EQ(columnsCovering(10.6, 10.9, 100), (ColumnSpan{10, 10}));  // no centre inside: the middle's column
  EXPECT_EQ(columnsCovering(20.8, 10.2, 100), (ColumnSpan{10, 20}));
  EXPECT_EQ(columnsCovering(-50.0, 5.5, 100), (ColumnSpan{0, 5}));
  EXPECT_EQ(columnsCovering(90.0, 500.0, 100), (ColumnSpan{90, 99}));
  EXPECT_FALSE(columnsCovering(120.0, 130.0, 100));
  EXPECT_FALSE(columnsCovering(-30.0, -20.0, 100));
}

TEST(WheelInput, NotchesAndPixelsBecomePoints) {
  const WheelDelta notchAway = normaliseWheel(0, 120, 0, 0, false);
  EXPECT_EQ(notchAway.dx, 0.0);
  EXPECT_EQ(notchAway.dy, -kWheelPointsPerNotch);
  EXPECT_EQ(normaliseWheel(0, -240, 0, 0, false).dy, 2 * kWheelPointsPerNotch);
  EXPECT_EQ(normaliseWheel(0, 15, 0, 0, false).dy, -kWheelPointsPerNotch / 8);  // a high-resolution wheel's eighth
  EXPECT_EQ(normaliseWheel(-120, 0, 0, 0, false).dx, kWheelPointsPerNotch);
  // A touchpad's pixels win over its angle.
  const WheelDelta pad = normaliseWheel(40, -90, 3, -7, false);
  EXPECT_EQ(pad.dx, -3.0);
  EXPECT_EQ(pad.dy, 7.0);
  // Alt under X11: the turn arrives on the horizontal axis and is read as vertical.
  const WheelDelta alt = normaliseWheel(120, 0, 0, 0, true);
  EXPECT_EQ(alt.dx, 0.0);
  EXPECT_EQ(alt.dy, -kWheelPointsPerNotch);
  // With a vertical delta present, Alt keeps both as they are.
  const WheelDelta altVertical = normaliseWheel(0, 120, 0, 0, true);
  EXPECT_EQ(altVertical.dy, -kWheelPointsPerNotch);
}

TEST(WheelInput, WheelZoomsPansAndScalesAmplitude) {
  const FrameCount frames = 48000 * 100;
  const TimeAxis axis{100.0, 1000.0, 2.0, 300.0};

  // A notch away from the user zooms in by 10 % around the pointer.
  const auto in = handleScrollWheel({0.0, -20.0}, {}, 640.0, axis, frames, 1.0);
  EXPECT_DOUBLE_EQ(in.zoomScroll.zoom, 2.2);
  TimeAxis after = axis;
  after.zoom = in.zoomScroll.zoom;
  after.scroll = in.zoomScroll.scroll;
  EXPECT_NEAR(after.timeForX(640.0), axis.timeForX(640.0), 1e-9);
  EXPECT_EQ(in.amplitudeZoom, 1.0);

  // Shift pans by twice the larger delta, held to the content.
  EXPECT_EQ(handleScrollWheel({3.0, 40.0}, {.shift = true}, 0.0, axis, frames, 1.0).zoomScroll, (ZoomScroll{2.0, 380.0}));
  EXPECT_EQ(handleScrollWheel({-45.0, 40.0}, {.shift = true}, 0.0, axis, frames, 1.0).zoomScroll, (ZoomScroll{2.0, 210.0}));
  EXPECT_EQ(handleScrollWheel({0.0, 9000.0}, {.shift = true}, 0.0, axis, frames, 1.0).zoomScroll, (ZoomScroll{2.0, 1000.0}));
  EXPECT_EQ(handleScrollWheel({0.0, -9000.0}, {.shift = true}, 0.0, axis, frames, 1.0).zoomScroll, (ZoomScroll{2.0, 0.0}));

  // Alt scales the amplitude, 0.1 ... 1000, and leaves the time alone.
  const auto louder = handleScrollWheel({0.0, -20.0}, {.option = true}, 0.0, axis, frames, 2.0);
  EXPECT_DOUBLE_EQ(louder.amplitudeZoom, 2.32);
  EXPECT_EQ(louder.zoomScroll, (ZoomScroll{2.0, 300.0}));
  EXPECT_EQ(handleScrollWheel({0.0, -500.0}, {.option = true}, 0.0, axis, frames, 900.0).amplitudeZoom, 1000.0);
  EXPECT_EQ(handleScrollWheel({0.0, 120.0}, {.option = true}, 0.0, axis, frames, 0.11).amplitudeZoom, 0.1);
  // Shift comes before Alt.
  EXPECT_EQ(handleScrollWheel({0.0, 10.0}, {.option = true, .shift = true}, 0.0, axis, frames, 1.0).amplitudeZoom, 1.0);

  EXPECT_DOUBLE_EQ(stepAmplitudeZoom(2.0, true), 3.0);
  EXPECT_DOUBLE_EQ(stepAmplitudeZoom(3.0, false), 2.0);
  EXPECT_EQ(stepAmplitudeZoom(800.0, true), 1000.0);
  EXPECT_EQ(stepAmplitudeZoom(0.12, false), 0.1);
}

TEST(WheelInput, AtTheZoomLimitsTheScrollStaysPut) {
  const FrameCount frames = 30000;  // deepest zoom 10000
  const TimeAxis deepest{30000.0 / 48000.0, 1000.0, 10000.0, 4321.0};
  const auto further = handleScrollWheel({0.0, -20.0}, {}, 10.0, deepest, frames, 1.0);
  EXPECT_EQ(further.zoomScroll, (ZoomScroll{10000.0, 4321.0}));
  const TimeAxis whole{30000.0 / 48000.0, 1000.0, 1.0, 0.0};
  EXPECT_EQ(handleScrollWheel({0.0, 20.0}, {}, 500.0, whole, frames, 1.0).zoomScroll, (ZoomScroll{1.0, 0.0}));
}

TEST(WaveformLanes, LanesShareTheHeightAndFullScaleFillsThem) {
  const auto lanes = laneGeometry(2, 20, 400, 4);
  ASSERT_EQ(lanes.size(), 2u);
  EXPECT_EQ(lanes[0].top, 20);
  EXPECT_EQ(lanes[0].height, 198);  // (400 − 4) / 2
  EXPECT_EQ(lanes[0].bottom(), 217);
  EXPECT_EQ(lanes[1].top, 222);
  EXPECT_EQ(lanes[1].bottom(), 419);

  EXPECT_EQ(laneYForValue(lanes[0], 1.0, 1.0), 20.0);
  EXPECT_EQ(laneYForValue(lanes[0], -1.0, 1.0), 217.0);
  EXPECT_EQ(laneYForValue(lanes[0], 0.0, 1.0), 118.5);
  EXPECT_EQ(laneYForValue(lanes[0], 0.5, 1.0), 69.25);
  EXPECT_EQ(laneYForValue(lanes[0], 0.5, 2.0), 20.0);   // scaled to full scale
  EXPECT_EQ(laneYForValue(lanes[0], 7.0, 1.0), 20.0);   // held to the lane
  EXPECT_EQ(laneYForValue(lanes[1], -7.0, 1.0), 419.0);
  EXPECT_EQ(laneYForValue(lanes[0], std::nan(""), 1.0), 118.5);

  EXPECT_EQ(laneAtY(lanes, 20.0), 0);
  EXPECT_EQ(laneAtY(lanes, 217.9), 0);
  EXPECT_FALSE(laneAtY(lanes, 219.0));  // between the lanes
  EXPECT_EQ(laneAtY(lanes, 222.0), 1);
  EXPECT_FALSE(laneAtY(lanes, 420.0));
  EXPECT_FALSE(laneAtY(lanes, 5.0));

  // Too little room still gives every channel a row.
  const auto cramped = laneGeometry(8, 0, 10, 4);
  ASSERT_EQ(cramped.size(), 8u);
  EXPECT_EQ(cramped[7].height, 1);
  EXPECT_TRUE(laneGeometry(0, 0, 100).empty());
}

}  // namespace
}  // namespace corvane
