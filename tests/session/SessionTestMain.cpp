// The main of the session tests: a real QCoreApplication, and settings and XDG folders in a
// private temporary folder (PrivateTestHome), so no test reads or writes the user's.
#include <gtest/gtest.h>

#include <QCoreApplication>

#include "PrivateTestHome.h"

int main(int argc, char** argv) {
  const corvane::test::PrivateTestHome home;
  QCoreApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
