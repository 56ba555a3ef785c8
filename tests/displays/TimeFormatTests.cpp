// Formatters and tick rules of the time displays, on hand-worked values and their edges.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "displays/TimeFormat.h"
#include "displays/TimeRuler.h"

namespace corvane {
namespace {

TEST(FormatTime, DecimalsFollowTheInterval) {
  // Whole seconds from an interval of 1 on; then one, two, three decimals.
  EXPECT_EQ(formatTime(0.0, 1.0), "0:00");
  EXPECT_EQ(formatTime(59.4, 1.0), "0:59");
  EXPECT_EQ(formatTime(65.26, 0.25), "1:05.3");
  EXPECT_EQ(formatTime(5.126, 0.05), "0:05.13");
  EXPECT_EQ(formatTime(3661.2346, 0.005), "1:01:01.235");
  EXPECT_EQ(formatTime(7.5, 0.999), "0:07.5");
  EXPECT_EQ(formatTime(7.5, 0.1), "0:07.5");
  EXPECT_EQ(formatTime(7.5, 0.099), "0:07.50");
  EXPECT_EQ(formatTime(7.5, 0.01), "0:07.50");
  EXPECT_EQ(formatTime(7.5, 0.0099), "0:07.500");
  EXPECT_EQ(formatTime(7.5, 600.0), "0:08");
}

TEST(FormatTime, HoursMinutesAndCarries) {
  EXPECT_EQ(formatTime(3725.0, 1.0), "1:02:05");
  EXPECT_EQ(formatTime(36000.0, 600.0), "10:00:00");
  EXPECT_EQ(formatTime(3599.0, 1.0), "59:59");
  // Rounding that reaches the next minute or hour carries instead of writing 60.
  EXPECT_EQ(formatTime(59.6, 1.0), "1:00");
  EXPECT_EQ(formatTime(59.96, 0.1), "1:00.0");
  EXPECT_EQ(formatTime(3599.6, 1.0), "1:00:00");
  EXPECT_EQ(formatTime(3599.9996, 0.001), "1:00:00.000");
  EXPECT_EQ(formatTime(36000.04, 0.1), "10:00:00.0");
}

TEST(FormatTime, NegativeAndNonFiniteTimesCountAsZero) {
  EXPECT_EQ(formatTime(-5.0, 1.0), "0:00");
  EXPECT_EQ(formatTime(-0.0004, 0.001), "0:00.000");
  EXPECT_EQ(formatTime(std::nan(""), 0.1), "0:00.0");
  EXPECT_EQ(formatTime(std::numeric_limits<double>::infinity(), 1.0), "0:00");
  EXPECT_EQ(formatTime(1.25, std::nan("")), "0:01.250");
}

TEST(PositionFields, WriteAndReadBack) {
  EXPECT_EQ(formatPosition(1.5, RulerMode::samples, 48000), "72000");
  EXPECT_EQ(formatPosition(1.0 / 44100 * 12345, RulerMode::samples, 44100), "12345");
  EXPECT_EQ(formatPosition(1.5, RulerMode::time, 48000), "0:01.500");

  EXPECT_EQ(parsePosition("1:02:03.5", RulerMode::time, 48000), 3723.5);
  EXPECT_EQ(parsePosition("2:03.25", RulerMode::time, 48000), 123.25);
  EXPECT_EQ(parsePosition("42.5", RulerMode::time, 48000), 42.5);
  EXPECT_EQ(parsePosition(" 7 ", RulerMode::time, 48000), 7.0);
  EXPECT_EQ(parsePosition("0:75", RulerMode::time, 48000), 75.0);
  EXPECT_EQ(parsePosition("72000", RulerMode::samples, 48000), 1.5);
  for (const char* bad : {"", "abc", "1:2:3:4", "-1", "1:-2", "1.5:30", "1:", "1e3", "5 s"}) {
    EXPECT_FALSE(parsePosition(bad, RulerMode::time, 48000)) << bad;
  }
  for (const char* bad : {"72000.5", "-3", "", "1:00"}) {
    EXPECT_FALSE(parsePosition(bad, RulerMode::samples, 48000)) << bad;
  }
  EXPECT_FALSE(parsePosition("100", RulerMode::samples, 0.0));

  // What the field writes reads back to the same millisecond.
  for (double t : {0.0, 0.0005, 59.9994, 3599.9991, 4321.1234, 35999.999}) {
    const auto back = parsePosition(formatPosition(t, RulerMode::time, 48000), RulerMode::time, 48000);
    ASSERT_TRUE(back) << t;
    EXPECT_NEAR(*back, t, 0.0005 + 1e-9) << t;
  }
}

TEST(PanelLabels, TimeSpanAndZoomLabels) {
  EXPECT_EQ(timeLabel(65.254), "1:05.25");
  EXPECT_EQ(timeLabel(3700.0), "61:40.00");
  EXPECT_EQ(timeLabel(59.999), "1:00.00");
  EXPECT_EQ(timeLabel(-2.0), "0:00.00");

  EXPECT_EQ(zoomLabel(1.0), "fit");
  EXPECT_EQ(zoomLabel(1.49), "fit");
  EXPECT_EQ(zoomLabel(1.5), "1.5x");
  EXPECT_EQ(zoomLabel(999.94), "999.9x");
  EXPECT_EQ(zoomLabel(1000.0), "1000x");
  EXPECT_EQ(zoomLabel(12345.6), "12346x");

  EXPECT_EQ(amplitudeZoomLabel(1.0), "amp");
  EXPECT_EQ(amplitudeZoomLabel(1.019), "amp");
  EXPECT_EQ(amplitudeZoomLabel(0.981), "amp");
  EXPECT_EQ(amplitudeZoomLabel(1.03), "×1.0");
  EXPECT_EQ(amplitudeZoomLabel(1.5), "×1.5");
  EXPECT_EQ(amplitudeZoomLabel(0.1), "×0.1");
  EXPECT_EQ(amplitudeZoomLabel(9.94), "×9.9");
  EXPECT_EQ(amplitudeZoomLabel(10.0), "×10");
  EXPECT_EQ(amplitudeZoomLabel(1000.0), "×1000");
}

TEST(RulerTicks, SpacingInSeconds) {
  EXPECT_EQ(niceTickInterval(2.4), 0.25);
  EXPECT_EQ(niceTickInterval(6000.1), 600.0);
  EXPECT_EQ(niceTickInterval(6000.0), 600.0);
  EXPECT_EQ(niceTickInterval(36000.0), 600.0);
  EXPECT_EQ(niceTickInterval(1.0), 0.1);  // exactly ten ticks still fit
  EXPECT_EQ(niceTickInterval(1.01), 0.25);
  EXPECT_EQ(niceTickInterval(0.0), 0.1);
  EXPECT_EQ(niceTickInterval(100.0), 10.0);
  EXPECT_EQ(niceTickInterval(100.5), 15.0);
  EXPECT_EQ(niceTickInterval(1200.5), 300.0);
}

TEST(RulerTicks, SpacingInFrames) {
  EXPECT_EQ(sampleTickInterval(10), 1);
  EXPECT_EQ(sampleTickInterval(11), 2);
  EXPECT_EQ(sampleTickInterval(21), 4);  // 4, not 5
  EXPECT_EQ(sampleTickInterval(40), 4);
  EXPECT_EQ(sampleTickInterval(41), 10);
  EXPECT_EQ(sampleTickInterval(5001), 1000);
  EXPECT_EQ(sampleTickInterval(5e7), 5000000);
  EXPECT_EQ(sampleTickInterval(5e7 + 1), 5000000);
  EXPECT_EQ(sampleTickInterval(1.728e9), 5000000);
}

TEST(RulerTicks, TicksAreWholeMultiplesInView) {
  const auto tenths = rulerTicks(0.3, 1.0, 0.1);
  ASSERT_EQ(tenths.size(), 8u);  // 0.3 itself counts, though 0.3 / 0.1 is just under 3
  for (std::size_t i = 0; i < tenths.size(); ++i) EXPECT_NEAR(tenths[i], 0.3 + 0.1 * static_cast<double>(i), 1e-12);

  // Deep into a long file a tick is k · interval exactly, not an accumulated sum.
  EXPECT_EQ(rulerTicks(4499.9, 4500.6, 0.25), (std::vector<double>{4500.0, 4500.25, 4500.5}));
  EXPECT_EQ(rulerTicks(35999.9, 36000.0, 0.25), (std::vector<double>{36000.0}));
  EXPECT_EQ(rulerTicks(0.0, 3600.0, 600.0).size(), 7u);
  EXPECT_TRUE(rulerTicks(0.0, 10.0, 0.0).empty());
  EXPECT_TRUE(rulerTicks(5.0, 4.0, 1.0).empty());

  EXPECT_EQ(rulerSampleTicks(5, 25, 10), (std::vector<FrameCount>{10, 20}));
  EXPECT_EQ(rulerSampleTicks(0, 8, 4), (std::vector<FrameCount>{0, 4, 8}));
  EXPECT_EQ(rulerSampleTicks(1.7249e9, 1.728e9, 5000000), (std::vector<FrameCount>{1725000000}));
}

}  // namespace
}  // namespace corvane
