// One QApplication for a test binary of widgets, on the offscreen platform unless the caller
// chose another (a run under Xvfb sets QT_QPA_PLATFORM=xcb). Made on first use, so that
// listing the tests needs no display at all.
#pragma once

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cstdlib>

namespace corvane::testing {

inline QApplication& offscreenApplication() {
  static QApplication* application = [] {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    // Qt warns about a missing runtime folder on every start; give it a private one.
    static QTemporaryDir runtime;
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR") && runtime.isValid()) {
      QFile::setPermissions(runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
      qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    }
    static int argc = 1;
    static char name[] = "corvane-widget-tests";
    static char* argv[] = {name, nullptr};
    return new QApplication(argc, argv);
  }();
  return *application;
}

}  // namespace corvane::testing
