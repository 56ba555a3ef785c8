#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>

#include "headless/TemporaryFiles.h"

namespace corvane {
namespace {

class TemporaryFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = std::filesystem::temp_directory_path() / ("corvane-tmpdir-test-" + makeUUIDString());
    std::filesystem::create_directories(root);
    const char* old = std::getenv("XDG_CACHE_HOME");
    saved = old ? old : "";
    hadValue = old != nullptr;
    ::setenv("XDG_CACHE_HOME", root.c_str(), 1);
  }
  void TearDown() override {
    if (hadValue) ::setenv("XDG_CACHE_HOME", saved.c_str(), 1); else ::unsetenv("XDG_CACHE_HOME");
    std::filesystem::remove_all(root);
  }
  std::filesystem::path root;
  std::string saved;
  bool hadValue = false;
};

TEST_F(TemporaryFilesTest, FolderIsPrivateAndRecreatedAfterRemoval) {
  auto dir = privateTemporaryDirectory();
  EXPECT_EQ(dir, root / "Corvane" / "tmp");
  struct stat info {};
  ASSERT_EQ(::stat(dir.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);

  ::chmod(dir.c_str(), 0755);
  privateTemporaryDirectory();
  ASSERT_EQ(::stat(dir.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);

  std::filesystem::remove_all(dir);
  EXPECT_TRUE(std::filesystem::is_directory(privateTemporaryDirectory()));
}

TEST_F(TemporaryFilesTest, FileNamesCarryTagAndDistinctUUIDs) {
  const std::regex pattern("corvane-undo-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\\.wav");
  std::set<std::string> names;
  for (int i = 0; i < 200; ++i) {
    auto path = makeTemporaryFilePath("undo", "wav");
    EXPECT_EQ(path.parent_path(), root / "Corvane" / "tmp");
    EXPECT_TRUE(std::regex_match(path.filename().string(), pattern)) << path;
    names.insert(path.filename().string());
  }
  EXPECT_EQ(names.size(), 200u);
}

}  // namespace
}  // namespace corvane
