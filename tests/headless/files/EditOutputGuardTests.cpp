#include <gtest/gtest.h>
#include <unistd.h>

#include "FileTestSupport.h"
#include "headless/files/EditOutputGuard.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

TEST(EditOutputGuard, RefusesEverySpellingOfTheInput) {
  test::TemporaryFolder folder;
  fs::create_directories(folder / "a" / "b");
  const fs::path input = folder / "a" / "mix.wav";
  test::writeBytes(input, {0, 1, 2, 3});
  fs::create_symlink(input, folder / "link.wav");
  fs::create_hard_link(input, folder / "hard.wav");

  for (const fs::path& output : {input, folder / "a" / "." / "mix.wav", folder / "a" / "b" / ".." / "mix.wav",
                                 folder / "link.wav", folder / "hard.wav"}) {
    SCOPED_TRACE(output.string());
    try {
      EditOutputGuard::assertNotInPlace(input, output);
      ADD_FAILURE() << "accepted";
    } catch (const EditOutputGuardError& error) {
      EXPECT_EQ(std::string(error.what()), "Cannot overwrite the original file: " + output.string() +
                                               " is the file being edited. Choose a different name or location.");
    }
  }
  // A relative spelling from the working folder.
  const fs::path previous = fs::current_path();
  fs::current_path(folder / "a" / "b");
  EXPECT_THROW(EditOutputGuard::assertNotInPlace(input, "../mix.wav"), EditOutputGuardError);
  fs::current_path(previous);
}

TEST(EditOutputGuard, AllowsOtherFilesNewOrExisting) {
  test::TemporaryFolder folder;
  const fs::path input = folder / "mix.wav";
  test::writeBytes(input, {0, 1, 2, 3});
  test::writeBytes(folder / "other.wav", {0, 1, 2, 3});
  EXPECT_NO_THROW(EditOutputGuard::assertNotInPlace(input, folder / "other.wav"));
  EXPECT_NO_THROW(EditOutputGuard::assertNotInPlace(input, folder / "mix_edited.wav"));
  EXPECT_NO_THROW(EditOutputGuard::assertNotInPlace(input, folder / "new" / "mix.wav"));
}

}  // namespace
}  // namespace corvane
