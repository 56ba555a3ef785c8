// The routing matrix's gestures with real mouse and key events on real cells: a click routes an
// empty pair, the dot removes a route, the phasor cycles the phase, a vertical drag on the value
// changes the gain by a quarter dB a point from where the drag began, and a click on the value
// edits it as text. The view hands each change out; the test gives it back as the session would.
#include <gtest/gtest.h>

#include <QApplication>
#include <QLineEdit>
#include <QMouseEvent>
#include <QTest>
#include <cmath>

#include "app/RoutingMatrixView.h"
#include "playback/ChannelRouting.h"

namespace corvane {
namespace {

class RoutingMatrixTest : public ::testing::Test {
 protected:
  void SetUp() override {
    matrix.setSources({"L", "R"}, {ChannelColor::cyan, ChannelColor::green});
    matrix.setRoutings(defaultRoutings(2, 2, std::span<const std::string>{}));
    QObject::connect(&matrix, &RoutingMatrixView::routingsEdited, &matrix,
                     [this](const ChannelRoutings& edited) { ++edits, matrix.setRoutings(edited); });
    matrix.resize(400, 200);
    matrix.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&matrix));
  }

  RoutingMatrixCell* cell(int out, int src) const { return matrix.cell(out, src); }
  QPoint centreOf(RoutingMatrixCell* c, RoutingMatrixCell::Area area) const { return c->areaRect(area).center(); }
  std::optional<double> gainDB(int out, int src) const {
    const auto gain = routingGainFor(matrix.routings(), out, src);
    if (!gain) return std::nullopt;
    return 20.0 * std::log10(std::abs(*gain));
  }
  // A press, moves with the button held, and a release, as a mouse makes them.
  static void drag(QWidget* w, QPoint from, std::initializer_list<QPoint> path) {
    const auto send = [w](QEvent::Type type, QPoint at, Qt::MouseButtons buttons) {
      QMouseEvent event(type, QPointF(at), QPointF(w->mapToGlobal(at)), Qt::LeftButton, buttons, Qt::NoModifier);
      QApplication::sendEvent(w, &event);
    };
    send(QEvent::MouseButtonPress, from, Qt::LeftButton);
    QPoint last = from;
    for (QPoint at : path) {
      send(QEvent::MouseMove, at, Qt::LeftButton);
      last = at;
    }
    send(QEvent::MouseButtonRelease, last, Qt::NoButton);
  }

  RoutingMatrixView matrix;
  int edits = 0;
};

TEST_F(RoutingMatrixTest, ClicksRouteRemoveAndTurnThePhase) {
  // The default routing: L to output 1, R to output 2, at unity.
  ASSERT_TRUE(cell(0, 0)->isRouted());
  ASSERT_FALSE(cell(0, 1)->isRouted());
  EXPECT_EQ(cell(0, 0)->valueText(), QStringLiteral("0.0"));

  QTest::mouseClick(cell(0, 1), Qt::LeftButton, Qt::NoModifier, QPoint(40, 10));
  ASSERT_TRUE(gainDB(0, 1).has_value());
  EXPECT_NEAR(*gainDB(0, 1), 0.0, 1e-6);
  EXPECT_TRUE(cell(0, 1)->isRouted());

  std::vector<RoutingPhase> phases;
  for (int i = 0; i < 4; ++i) {
    QTest::mouseClick(cell(0, 1), Qt::LeftButton, Qt::NoModifier, centreOf(cell(0, 1), RoutingMatrixCell::Area::phasor));
    phases.push_back(*routingPhaseFor(matrix.routings(), 0, 1));
  }
  EXPECT_EQ(phases, (std::vector<RoutingPhase>{RoutingPhase::plus90, RoutingPhase::minus90, RoutingPhase::invert,
                                               RoutingPhase::inPhase}));

  QTest::mouseClick(cell(0, 1), Qt::LeftButton, Qt::NoModifier, centreOf(cell(0, 1), RoutingMatrixCell::Area::dot));
  EXPECT_FALSE(gainDB(0, 1).has_value());
  EXPECT_FALSE(cell(0, 1)->isRouted());
  EXPECT_TRUE(gainDB(0, 0).has_value());  // the rest untouched
  EXPECT_EQ(edits, 6);
}

TEST_F(RoutingMatrixTest, AVerticalDragSetsTheGainFromWhereItBegan) {
  RoutingMatrixCell* c = cell(1, 1);
  const QPoint start = centreOf(c, RoutingMatrixCell::Area::value);
  // 3 points is below the drag threshold: nothing changes, and the release edits as text.
  drag(c, start, {start + QPoint(0, -3)});
  EXPECT_EQ(edits, 0);
  ASSERT_NE(c->editor(), nullptr);
  c->editor()->clear();
  QTest::keyClicks(c->editor(), QStringLiteral(" -6 dB "));
  QTest::keyClick(c->editor(), Qt::Key_Return);
  ASSERT_TRUE(gainDB(1, 1).has_value());
  EXPECT_NEAR(*gainDB(1, 1), -6.0, 1e-4);
  EXPECT_EQ(matrix.cell(1, 1)->valueText(), QStringLiteral("-6.0"));

  // Up 20 points: +5 dB over the gain at the press, however the pointer wandered on the way.
  c = cell(1, 1);
  drag(c, start, {start + QPoint(0, -6), start + QPoint(0, -30), start + QPoint(0, -20)});
  EXPECT_NEAR(*gainDB(1, 1), -1.0, 1e-3);
  EXPECT_EQ(matrix.cell(1, 1)->editor(), nullptr);  // a drag doesn't edit as text
  // Down 8 points: −2 dB.
  c = cell(1, 1);
  drag(c, start, {start + QPoint(0, 8)});
  EXPECT_NEAR(*gainDB(1, 1), -3.0, 1e-3);
}

TEST_F(RoutingMatrixTest, TypedGainsAreClampedAndNonsenseIsIgnored) {
  const auto type = [&](const QString& text) {
    RoutingMatrixCell* c = cell(0, 0);
    c->beginEditing();
    ASSERT_NE(c->editor(), nullptr);
    c->editor()->clear();
    QTest::keyClicks(c->editor(), text);
    QTest::keyClick(c->editor(), Qt::Key_Return);
    EXPECT_EQ(cell(0, 0)->editor(), nullptr) << "editing did not end on Return";
  };
  type(QStringLiteral("40"));
  EXPECT_NEAR(*gainDB(0, 0), 24.0, 1e-3);
  type(QStringLiteral("loud"));
  EXPECT_NEAR(*gainDB(0, 0), 24.0, 1e-3);
  type(QStringLiteral("-99dB"));
  EXPECT_NEAR(*gainDB(0, 0), -24.0, 1e-3);
}

}  // namespace
}  // namespace corvane
