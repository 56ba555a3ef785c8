// The main of the window's tests: a QApplication on the offscreen platform (unless the caller
// chose another), and settings and XDG folders in a private temporary folder, so no test reads
// or writes the user's, and no test meets a running Corvane's single-instance socket.
#include <gtest/gtest.h>

#include <QApplication>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "headless/speech/SileroVADModel.h"

int main(int argc, char** argv) {
  // The speech model is found through XDG_DATA_HOME among others: pin it before that moves.
  if (!std::getenv("CORVANE_SILERO_VAD_MODEL")) {
    try {
      ::setenv("CORVANE_SILERO_VAD_MODEL", corvane::SileroVADModel::locate().c_str(), 1);
    } catch (const std::exception&) {
      // Not installed: speech stages land without a history, as they would for a user.
    }
  }
  std::string pattern = (std::filesystem::temp_directory_path() / "corvane-app-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) return 2;
  const std::filesystem::path home(pattern);
  for (const char* name : {"config", "data", "cache", "runtime"}) std::filesystem::create_directory(home / name);
  std::filesystem::permissions(home / "runtime", std::filesystem::perms::owner_all);
  ::setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
  ::setenv("XDG_CACHE_HOME", (home / "cache").c_str(), 1);
  ::setenv("XDG_RUNTIME_DIR", (home / "runtime").c_str(), 1);
  if (!std::getenv("QT_QPA_PLATFORM")) ::setenv("QT_QPA_PLATFORM", "offscreen", 1);

  ::testing::InitGoogleTest(&argc, argv);
  int result = 0;
  {
    QApplication app(argc, argv);
    result = RUN_ALL_TESTS();
  }
  std::filesystem::remove_all(home);
  return result;
}
