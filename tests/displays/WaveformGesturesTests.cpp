// Hit tests and the drag state machine of the waveform. The axis puts ten pixels on a second
// (100 s over 1000 pixels), so every expected time below is the pixel divided by ten.
#include <gtest/gtest.h>

#include <vector>

#include "displays/WaveformGestures.h"

namespace corvane {
namespace {

WaveformGestureScene sceneWith(std::optional<SecondsRange> selection) {
  WaveformGestureScene scene;
  scene.axis = TimeAxis{100.0, 1000.0, 1.0, 0.0};
  scene.selection = selection;
  return scene;
}

constexpr GestureModifiers kNone{};
constexpr GestureModifiers kCtrl{.command = true};

TEST(WaveformHitTest, EdgesBodyAndNothing) {
  const auto scene = sceneWith(SecondsRange{20.0, 50.0});  // x 200 ... 500
  EXPECT_EQ(WaveformGestures::hitTest(192.0, scene), WaveformDragHandle::leftEdge);
  EXPECT_EQ(WaveformGestures::hitTest(208.0, scene), WaveformDragHandle::leftEdge);  // 8 pixels: still the edge
  EXPECT_EQ(WaveformGestures::hitTest(191.9, scene), WaveformDragHandle::none);
  EXPECT_EQ(WaveformGestures::hitTest(208.1, scene), WaveformDragHandle::body);
  EXPECT_EQ(WaveformGestures::hitTest(300.0, scene), WaveformDragHandle::body);
  EXPECT_EQ(WaveformGestures::hitTest(505.0, scene), WaveformDragHandle::rightEdge);
  EXPECT_EQ(WaveformGestures::hitTest(600.0, scene), WaveformDragHandle::none);
  EXPECT_EQ(WaveformGestures::hitTest(300.0, sceneWith(std::nullopt)), WaveformDragHandle::none);

  // Both edges within reach: the start wins.
  EXPECT_EQ(WaveformGestures::hitTest(204.0, sceneWith(SecondsRange{20.0, 20.5})), WaveformDragHandle::leftEdge);
  EXPECT_EQ(WaveformGestures::hitTest(211.0, sceneWith(SecondsRange{20.0, 20.5})), WaveformDragHandle::rightEdge);
}

TEST(WaveformHitTest, ChapterBoundariesComeFirstAndTheNearestWins) {
  auto scene = sceneWith(SecondsRange{20.0, 50.0});
  const std::vector<double> boundaries{20.4, 60.0};
  scene.chapterBoundaryTimes = boundaries;
  // 199 is 5 pixels from the boundary at 204 and 1 from the selection's edge.
  EXPECT_EQ(WaveformGestures::hitTest(199.0, scene), WaveformDragHandle::leftEdge);  // not draggable
  scene.chapterBoundaryDraggable = true;
  EXPECT_EQ(WaveformGestures::hitTest(199.0, scene), WaveformDragHandle::chapterBoundary);
  EXPECT_EQ(WaveformGestures::hitTest(197.0, scene), WaveformDragHandle::leftEdge);  // 7 pixels: out of its reach

  const std::vector<double> close{10.0, 10.8};  // x 100 and 108
  scene.chapterBoundaryTimes = close;
  EXPECT_EQ(WaveformGestures::boundaryIndex(105.0, scene), 1);
  EXPECT_EQ(WaveformGestures::boundaryIndex(103.0, scene), 0);
  const std::vector<double> even{10.0, 11.0};  // x 100 and 110
  scene.chapterBoundaryTimes = even;
  EXPECT_EQ(WaveformGestures::boundaryIndex(105.0, scene), 0);  // equal distances: the first
  EXPECT_FALSE(WaveformGestures::boundaryIndex(117.0, scene));

  // With no duration every boundary stands at x 0.
  scene.axis.duration = 0.0;
  EXPECT_EQ(WaveformGestures::boundaryIndex(3.0, scene), 0);
  EXPECT_FALSE(WaveformGestures::boundaryIndex(7.0, scene));
}

TEST(WaveformDrag, CtrlDragDrawsANewSelectionEitherWay) {
  WaveformGestures gestures;
  auto scene = sceneWith(std::nullopt);
  gestures.mouseDown(300.0, kCtrl, scene);
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::newSelection);
  EXPECT_EQ(gestures.selectionDragStart(), 30.0);
  auto effect = gestures.drag(150.0, kNone, scene);  // Ctrl may be let go during the drag
  ASSERT_TRUE(effect.setsSelection);
  EXPECT_EQ(effect.selection, (SecondsRange{15.0, 30.0}));
  EXPECT_FALSE(effect.seek);
  scene.selection = effect.selection;
  effect = gestures.drag(450.0, kNone, scene);
  EXPECT_EQ(effect.selection, (SecondsRange{30.0, 45.0}));
  effect = gestures.drag(5000.0, kNone, scene);  // past the end: held to the file
  EXPECT_EQ(effect.selection, (SecondsRange{30.0, 100.0}));
  effect = gestures.release(5000.0, true, scene);
  EXPECT_FALSE(effect.seek);
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::none);
  EXPECT_FALSE(gestures.selectionDragStart());
}

TEST(WaveformDrag, APlainDragScrubsThePlayhead) {
  WaveformGestures gestures;
  const auto scene = sceneWith(SecondsRange{20.0, 50.0});
  gestures.mouseDown(700.0, kNone, scene);  // outside the selection
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::none);
  for (double x : {710.0, 650.0, -30.0}) {
    const auto effect = gestures.drag(x, kNone, scene);
    ASSERT_TRUE(effect.seek);
    EXPECT_EQ(*effect.seek, std::max(x, 0.0) / 10.0);
    EXPECT_FALSE(effect.setsSelection);
    EXPECT_TRUE(gestures.isDraggingPlayhead());
  }
  gestures.release(-30.0, true, scene);
  EXPECT_FALSE(gestures.isDraggingPlayhead());
}

TEST(WaveformDrag, EdgesFollowThePointerWithinTheirBounds) {
  WaveformGestures gestures;
  auto scene = sceneWith(SecondsRange{20.0, 50.0});
  gestures.mouseDown(202.0, kCtrl, scene);  // on the edge, Ctrl or not
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::leftEdge);
  EXPECT_EQ(gestures.drag(120.0, kNone, scene).selection, (SecondsRange{12.0, 50.0}));
  EXPECT_EQ(gestures.drag(700.0, kNone, scene).selection, (SecondsRange{50.0, 50.0}));  // not past the end
  gestures.release(700.0, true, scene);

  gestures.mouseDown(498.0, kNone, scene);
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::rightEdge);
  EXPECT_EQ(gestures.drag(640.0, kNone, scene).selection, (SecondsRange{20.0, 64.0}));
  EXPECT_EQ(gestures.drag(-100.0, kNone, scene).selection, (SecondsRange{20.0, 20.0}));  // not before the start
  EXPECT_EQ(gestures.drag(2000.0, kNone, scene).selection, (SecondsRange{20.0, 100.0}));
}

TEST(WaveformDrag, TheBodyMovesTheWholeSelectionAndStopsAtTheEnds) {
  WaveformGestures gestures;
  const auto scene = sceneWith(SecondsRange{20.0, 50.0});
  gestures.mouseDown(300.0, kNone, scene);  // t 30
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::body);
  EXPECT_EQ(gestures.drag(400.0, kNone, scene).selection, (SecondsRange{30.0, 60.0}));
  EXPECT_EQ(gestures.drag(900.0, kNone, scene).selection, (SecondsRange{70.0, 100.0}));  // 30 s long still
  EXPECT_EQ(gestures.drag(0.0, kNone, scene).selection, (SecondsRange{0.0, 30.0}));
}

TEST(WaveformDrag, APressWithoutAMoveIsATap) {
  WaveformGestures gestures;
  auto scene = sceneWith(SecondsRange{20.0, 50.0});
  gestures.mouseDown(420.0, kNone, scene);  // inside the selection
  auto effect = gestures.release(420.0, false, scene);
  EXPECT_EQ(effect.seek, 42.0);
  EXPECT_FALSE(effect.setsSelection);

  gestures.mouseDown(800.0, kCtrl, scene);  // a Ctrl-click selects nothing: it seeks
  effect = gestures.release(800.0, false, scene);
  EXPECT_EQ(effect.seek, 80.0);
  EXPECT_FALSE(effect.setsSelection);

  const std::vector<double> boundaries{70.0};
  scene.chapterBoundaryTimes = boundaries;
  scene.chapterBoundaryDraggable = true;
  gestures.mouseDown(703.0, kNone, scene);
  EXPECT_EQ(gestures.draggingBoundaryIndex(), 0);
  effect = gestures.release(703.0, false, scene);
  EXPECT_EQ(effect.chapterBoundaryTap, 0);
  EXPECT_FALSE(effect.seek);

  gestures.mouseDown(703.0, kNone, scene);
  const auto moved = gestures.drag(760.0, kNone, scene);
  ASSERT_TRUE(moved.chapterBoundaryDrag);
  EXPECT_EQ(moved.chapterBoundaryDrag->index, 0);
  EXPECT_EQ(moved.chapterBoundaryDrag->time, 76.0);
  EXPECT_FALSE(gestures.release(760.0, true, scene).chapterBoundaryTap);
}

TEST(WaveformDrag, DialogueRegionsInDialogueMode) {
  WaveformGestures gestures;
  auto scene = sceneWith(SecondsRange{5.0, 40.0});
  const std::vector<DialogueRegion> regions{{"a", 10.0, 20.0, {}, {}}, {"b", 60.0, 70.0, {}, {}}};
  scene.dialogueRegions = regions;

  // Outside dialogue mode a region is just audio: the press lands in the selection's body.
  gestures.mouseDown(150.0, kNone, scene);
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::body);
  gestures.release(150.0, true, scene);

  scene.isDialogueModeActive = true;
  auto effect = gestures.mouseDown(150.0, kNone, scene);
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::dlgBody);
  EXPECT_EQ(effect.dialogueRegionDragBegin, "a");
  EXPECT_FALSE(gestures.dialogueDragMoved());
  effect = gestures.drag(250.0, kNone, scene);
  ASSERT_TRUE(effect.dialogueRegionDrag);
  EXPECT_EQ(effect.dialogueRegionDrag->id, "a");
  EXPECT_EQ(effect.dialogueRegionDrag->start, 20.0);
  EXPECT_EQ(effect.dialogueRegionDrag->end, 30.0);
  EXPECT_TRUE(gestures.dialogueDragMoved());
  effect = gestures.drag(-500.0, kNone, scene);  // stops at 0, keeping its length
  EXPECT_EQ(effect.dialogueRegionDrag->start, 0.0);
  EXPECT_EQ(effect.dialogueRegionDrag->end, 10.0);
  gestures.release(-500.0, true, scene);

  gestures.mouseDown(597.0, kNone, scene);
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::dlgLeftEdge);
  effect = gestures.drag(900.0, kNone, scene);
  EXPECT_EQ(effect.dialogueRegionDrag->id, "b");
  EXPECT_EQ(effect.dialogueRegionDrag->start, 70.0);  // not past its own end
  EXPECT_EQ(effect.dialogueRegionDrag->end, 70.0);
  gestures.release(900.0, true, scene);

  gestures.mouseDown(704.0, kNone, scene);
  EXPECT_EQ(gestures.activeDragHandle(), WaveformDragHandle::dlgRightEdge);
  effect = gestures.drag(2000.0, kNone, scene);
  EXPECT_EQ(effect.dialogueRegionDrag->end, 100.0);
  gestures.release(2000.0, true, scene);

  gestures.mouseDown(650.0, kNone, scene);
  effect = gestures.release(650.0, false, scene);
  EXPECT_EQ(effect.dialogueRegionClick, "b");
  EXPECT_FALSE(effect.seek);
}

TEST(WaveformDrag, CursorHints) {
  auto scene = sceneWith(SecondsRange{20.0, 50.0});
  EXPECT_EQ(WaveformGestures::cursorHint(201.0, scene), WaveformCursor::resizeHorizontal);
  EXPECT_EQ(WaveformGestures::cursorHint(300.0, scene), WaveformCursor::move);
  EXPECT_EQ(WaveformGestures::cursorHint(800.0, scene), WaveformCursor::arrow);
}

TEST(WaveformLegend, RowsInThisPlatformsKeyNames) {
  const auto rows = waveformGestureLegend();
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_STREQ(rows[1].gesture, "Ctrl-drag");
  EXPECT_STREQ(rows[1].action, "Select a region");
  EXPECT_STREQ(rows[4].gesture, "Alt-scroll");
  EXPECT_STREQ(rows[4].action, "Amplitude (vertical) zoom");
  EXPECT_STREQ(rows[5].gesture, "Shift-scroll");
  EXPECT_STREQ(kWaveformGestureLegendTitle, "Waveform gestures");
}

}  // namespace
}  // namespace corvane
