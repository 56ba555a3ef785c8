// The routing as a list, driven through its real widgets: Add Source routes the first file
// channel an output lacks, a slot's source, phase and gain pickers edit it, a source an output
// already has can't be picked twice, and the remove button stands only beside a second slot.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QCoreApplication>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <cmath>

#include "app/RoutingListView.h"
#include "playback/ChannelRouting.h"

namespace corvane {
namespace {

class RoutingListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    list.setSources({"L", "R", "C"});
    list.setRoutings(defaultRoutings(3, 2, std::span<const std::string>{}));
    QObject::connect(&list, &RoutingListView::routingsEdited, &list, [this](const ChannelRoutings& edited) {
      ++edits;
      list.setRoutings(edited);
    });
    list.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&list));
  }
  // A widget of output `out`'s block, after the list has rebuilt itself.
  template <typename W>
  W* find(int out, const QString& name) {
    QCoreApplication::processEvents();
    auto* block = list.findChild<QGroupBox*>(QStringLiteral("output.%1").arg(out));
    return block ? block->findChild<W*>(name) : nullptr;
  }
  std::vector<int> sourcesOf(int out) const {
    std::vector<int> sources;
    for (const ChannelSourceSlot& s : list.routings()[static_cast<std::size_t>(out)].sources) sources.push_back(s.sourceChannelIndex);
    return sources;
  }

  RoutingListView list;
  int edits = 0;
};

TEST_F(RoutingListTest, AddPickAndRemoveSources) {
  EXPECT_EQ(sourcesOf(0), std::vector<int>{0});
  EXPECT_EQ(find<QToolButton>(0, QStringLiteral("remove.0")), nullptr);  // an only slot stays

  find<QPushButton>(0, QStringLiteral("add"))->click();
  EXPECT_EQ(sourcesOf(0), (std::vector<int>{0, 1}));  // R, the first channel output 1 lacks
  ASSERT_NE(find<QToolButton>(0, QStringLiteral("remove.1")), nullptr);

  // The second slot's picker: L is taken on this output, C is free.
  QComboBox* source = find<QComboBox>(0, QStringLiteral("source.1"));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->currentText(), QStringLiteral("R"));
  source->activated(source->findText(QStringLiteral("L")));
  EXPECT_EQ(sourcesOf(0), (std::vector<int>{0, 1}));
  source = find<QComboBox>(0, QStringLiteral("source.1"));
  source->activated(source->findText(QStringLiteral("C")));
  EXPECT_EQ(sourcesOf(0), (std::vector<int>{0, 2}));

  QComboBox* phase = find<QComboBox>(0, QStringLiteral("phase.1"));
  phase->activated(phase->findText(QStringLiteral("180\u00B0")));
  EXPECT_EQ(list.routings()[0].sources[1].phase, RoutingPhase::invert);

  QDoubleSpinBox* gain = find<QDoubleSpinBox>(0, QStringLiteral("gain.1"));
  gain->setValue(-6.0);
  EXPECT_NEAR(20.0 * std::log10(list.routings()[0].sources[1].gain), -6.0, 1e-4);

  find<QToolButton>(0, QStringLiteral("remove.0"))->click();
  EXPECT_EQ(sourcesOf(0), std::vector<int>{2});
  EXPECT_EQ(find<QToolButton>(0, QStringLiteral("remove.0")), nullptr);
  // Output 2 was never touched.
  EXPECT_EQ(sourcesOf(1), std::vector<int>{1});
  EXPECT_EQ(edits, 5);
}

}  // namespace
}  // namespace corvane
