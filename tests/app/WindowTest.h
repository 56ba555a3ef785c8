// The fixture of the window's tests: a session on this test's settings file with the scripted
// user (test::SessionTest), and the main window over it, shown on the offscreen platform.
#pragma once

#include <QTest>
#include <memory>

#include "SessionTestSupport.h"
#include "app/ContentView.h"
#include "app/MainWindow.h"
#include "app/NotificationBus.h"

namespace corvane::test {

class WindowTest : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    engine = makeEngine();
    window = std::make_unique<MainWindow>(*engine, bus, user);
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    content = window->content();
  }
  void TearDown() override {
    window.reset();
    engine.reset();
    SessionTest::TearDown();
  }

  NotificationBus bus;
  std::unique_ptr<AudioEngine> engine;
  std::unique_ptr<MainWindow> window;
  ContentView* content = nullptr;
};

}  // namespace corvane::test
