// The main of the window's tests: a QApplication on the offscreen platform (unless the caller
// chose another), and settings and XDG folders in a private temporary folder (PrivateTestHome),
// so no test reads or writes the user's, and no test meets a running Corvane's single-instance
// socket.
#include <gtest/gtest.h>

#include <QApplication>
#include <cstdlib>

#include "PrivateTestHome.h"

int main(int argc, char** argv) {
  const corvane::test::PrivateTestHome home;
  if (!std::getenv("QT_QPA_PLATFORM")) ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  ::testing::InitGoogleTest(&argc, argv);
  QApplication app(argc, argv);
  return RUN_ALL_TESTS();
}
