// The zoom and scroll the time panels share: one notification per change, none without one,
// and values a panel can always draw with.
#include <gtest/gtest.h>

#include <QSignalSpy>

#include <cmath>
#include <limits>

#include "displays/TimeZoomState.h"

namespace corvane {
namespace {

TEST(TimeZoomState, OneChangeNotifiesOnceAndNoChangeNotAtAll) {
  TimeZoomState state;
  QSignalSpy changed(&state, &TimeZoomState::changed);
  QSignalSpy zoomChanged(&state, &TimeZoomState::zoomChanged);
  QSignalSpy scrollChanged(&state, &TimeZoomState::scrollChanged);
  // Panels repaint on `changed`: when it fires, both values must already be the new ones.
  double seenZoom = 0, seenScroll = 0;
  QObject::connect(&state, &TimeZoomState::changed, [&] {
    seenZoom = state.zoom();
    seenScroll = state.scroll();
  });

  state.setZoomScroll({4.0, 900.0});
  EXPECT_EQ(changed.count(), 1);
  EXPECT_EQ(zoomChanged.count(), 1);
  EXPECT_EQ(scrollChanged.count(), 1);
  EXPECT_EQ(seenZoom, 4.0);
  EXPECT_EQ(seenScroll, 900.0);

  state.setZoomScroll({4.0, 900.0});
  state.setZoom(4.0);
  EXPECT_EQ(changed.count(), 1);

  state.setScroll(950.0);
  EXPECT_EQ(changed.count(), 2);
  EXPECT_EQ(zoomChanged.count(), 1);
  EXPECT_EQ(scrollChanged.count(), 2);

  state.reset();
  EXPECT_EQ(state.zoomScroll(), (ZoomScroll{1.0, 0.0}));
  EXPECT_EQ(changed.count(), 3);
}

TEST(TimeZoomState, ValuesOutsideTheirRangeAreHeldToIt) {
  TimeZoomState state;
  state.setZoomScroll({0.25, -40.0});
  EXPECT_EQ(state.zoomScroll(), (ZoomScroll{1.0, 0.0}));
  state.setZoomScroll({std::nan(""), std::numeric_limits<double>::infinity()});
  EXPECT_EQ(state.zoomScroll(), (ZoomScroll{1.0, 0.0}));
}

}  // namespace
}  // namespace corvane
