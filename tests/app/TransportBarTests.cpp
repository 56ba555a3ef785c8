// The transport bar in the real window over a real session: its buttons are the commands'
// (titles as tool tips, disabled without a file), the time reads "position / length", the
// speed menu offers the speeds with their labels, and the three switches change the transport
// and say what they do in their tool tips.
#include <gtest/gtest.h>

#include <QLabel>
#include <QMenu>
#include <QTest>
#include <QToolButton>

#include "WindowTest.h"
#include "app/ContentView.h"
#include "app/MainWindow.h"
#include "app/NotificationBus.h"
#include "app/TransportBar.h"
#include "playback/Transport.h"

namespace corvane {
namespace {

using test::waitUntil;

class TransportBarTest : public test::WindowTest {
 protected:
  void SetUp() override {
    WindowTest::SetUp();
    bar = window->content()->transportBar();
  }
  QToolButton* button(const char* name) const { return bar->findChild<QToolButton*>(QString::fromLatin1(name)); }
  QString time() const { return bar->findChild<QLabel*>(QStringLiteral("transport.time"))->text(); }

  TransportBar* bar = nullptr;
};

TEST_F(TransportBarTest, ButtonsTimeSpeedsAndSwitches) {
  QToolButton* play = button("button.view.playPause");
  QToolButton* back = button("button.view.skipBack5");
  ASSERT_NE(play, nullptr);
  ASSERT_NE(back, nullptr);
  EXPECT_FALSE(play->isEnabled());
  EXPECT_EQ(play->toolTip(), QStringLiteral("Play / Pause (Space)"));
  EXPECT_EQ(back->toolTip(), QStringLiteral("Skip Back 5 Seconds (Left)"));

  engine->loadFile(url(writeFile("ninety.wav", test::sine(48000.0, 2, 90.5, 440.0, 0.25))));
  ASSERT_TRUE(waitUntil([&] { return engine->loadedFile().has_value() && !engine->isLoading(); }));
  QCoreApplication::processEvents();
  EXPECT_TRUE(play->isEnabled());
  EXPECT_EQ(time(), QStringLiteral("0:00.00 / 1:30.50"));
  button("button.view.skipForward5")->click();
  EXPECT_EQ(time(), QStringLiteral("0:05.00 / 1:30.50"));
  back->click();
  back->click();  // never before the start
  EXPECT_EQ(time(), QStringLiteral("0:00.00 / 1:30.50"));

  // The speeds, labelled "1×" and "%g×".
  auto* rate = bar->findChild<QToolButton*>(QStringLiteral("transport.rate"));
  ASSERT_NE(rate, nullptr);
  QStringList speeds;
  for (QAction* a : rate->menu()->actions()) speeds << a->text();
  EXPECT_EQ(speeds, (QStringList{QStringLiteral("0.25\u00D7"), QStringLiteral("0.5\u00D7"), QStringLiteral("0.75\u00D7"),
                                 QStringLiteral("1\u00D7"), QStringLiteral("1.25\u00D7"), QStringLiteral("1.5\u00D7"),
                                 QStringLiteral("2\u00D7")}));
  EXPECT_EQ(rate->text(), QStringLiteral("1\u00D7"));
  rate->menu()->actions()[5]->trigger();
  EXPECT_DOUBLE_EQ(engine->transport().playbackRate(), 1.5);
  EXPECT_EQ(rate->text(), QStringLiteral("1.5\u00D7"));

  // The switches: each flips its transport flag and its tool tip says the new state.
  struct Switch {
    const char* name;
    std::function<bool()> flag;
    const char* offTip;
    const char* onTip;
  };
  Transport& transport = engine->transport();
  const std::vector<Switch> switches{
      {"transport.hold", [&] { return transport.holdsPlayStart(); }, "Hold play-start: Off. Pause stays at current position",
       "Hold play-start: On. Pause returns to where Play started; nudges re-seek there"},
      {"transport.loop", [&] { return transport.isLooping(); }, "Loop: Off, click to enable", "Loop: On, click to disable"},
  };
  for (const Switch& s : switches) {
    SCOPED_TRACE(s.name);
    QToolButton* b = bar->findChild<QToolButton*>(QString::fromLatin1(s.name));
    ASSERT_NE(b, nullptr);
    EXPECT_FALSE(s.flag());
    EXPECT_EQ(b->toolTip(), QString::fromUtf8(s.offTip));
    b->click();
    EXPECT_TRUE(s.flag());
    EXPECT_TRUE(b->isChecked());
    EXPECT_EQ(b->toolTip(), QString::fromUtf8(s.onTip));
  }
  // Pitch preservation starts on.
  QToolButton* pitch = bar->findChild<QToolButton*>(QStringLiteral("transport.pitch"));
  EXPECT_TRUE(transport.preservePitch());
  EXPECT_EQ(pitch->toolTip(), QStringLiteral("Pitch preservation on, click to disable"));
  pitch->click();
  EXPECT_FALSE(transport.preservePitch());
  EXPECT_EQ(pitch->toolTip(), QStringLiteral("Pitch preservation off, click to enable"));

  // Play shows the pause sign while playing; the same button pauses.
  const QString idleGlyph = play->text();
  play->click();
  EXPECT_TRUE(transport.isPlaying());
  EXPECT_NE(play->text(), idleGlyph);
  play->click();
  EXPECT_FALSE(transport.isPlaying());
  EXPECT_EQ(play->text(), idleGlyph);
}

}  // namespace
}  // namespace corvane
