// A private home for a test binary: the XDG folders (settings, data, cache, runtime) in a fresh
// temporary folder, so no test reads or writes the user's, and no test meets a running Corvane.
// The speech model is pinned first, since it is found through XDG_DATA_HOME among others.
// Call at the top of main(), before any Qt application object exists.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "headless/speech/SileroVADModel.h"

namespace corvane::test {

class PrivateTestHome {
 public:
  PrivateTestHome() {
    if (!std::getenv("CORVANE_SILERO_VAD_MODEL")) {
      try {
        ::setenv("CORVANE_SILERO_VAD_MODEL", SileroVADModel::locate().c_str(), 1);
      } catch (const std::exception&) {
        // Not installed: speech stages land without a history, as they would for a user.
      }
    }
    std::string pattern = (std::filesystem::temp_directory_path() / "corvane-test-home-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary home");
    _home = pattern;
    for (const char* name : {"config", "data", "cache", "runtime"}) std::filesystem::create_directory(_home / name);
    std::filesystem::permissions(_home / "runtime", std::filesystem::perms::owner_all);
    ::setenv("XDG_CONFIG_HOME", (_home / "config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (_home / "data").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (_home / "cache").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", (_home / "runtime").c_str(), 1);
  }
  ~PrivateTestHome() {
    std::error_code ignored;
    std::filesystem::remove_all(_home, ignored);
  }
  PrivateTestHome(const PrivateTestHome&) = delete;
  PrivateTestHome& operator=(const PrivateTestHome&) = delete;

 private:
  std::filesystem::path _home;
};

}  // namespace corvane::test
