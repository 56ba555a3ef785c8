// Memory figures from /proc and the control group, and the decisions taken on them.
#include <gtest/gtest.h>

#include <fstream>

#include "FileTestSupport.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/AudioLoadLimits.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
constexpr std::int64_t GiB = std::int64_t{1} << 30;

void put(const fs::path& file, const std::string& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

class MemoryFiguresFrom : public ::testing::Test {
 protected:
  void SetUp() override {
    put(proc() / "meminfo", "MemTotal:       16777216 kB\nMemFree:         1000000 kB\nMemAvailable:    8388608 kB\n");
  }
  fs::path proc() const { return folder / "proc"; }
  fs::path cgroup() const { return folder / "cgroup"; }
  test::TemporaryFolder folder;
};

TEST_F(MemoryFiguresFrom, ProcAloneWithoutALimitedGroup) {
  put(proc() / "self" / "cgroup", "0::/user.slice\n");
  put(cgroup() / "cgroup.controllers", "memory\n");
  put(cgroup() / "user.slice" / "memory.max", "max\n");
  const auto figures = AudioLoadLimits::readSystemFigures(proc(), cgroup());
  EXPECT_EQ(figures.budgetBytes, 16 * GiB);
  EXPECT_EQ(figures.availableBytes, 8 * GiB);
}

TEST_F(MemoryFiguresFrom, TheTightestCgroupV2LimitOnTheWayUp) {
  // The leaf is unlimited, its parent caps at 2 GiB with 1.5 GiB in use of which 256 MiB is
  // reclaimable file cache.
  put(proc() / "self" / "cgroup", "0::/app.slice/corvane.scope\n");
  put(cgroup() / "cgroup.controllers", "memory\n");
  put(cgroup() / "app.slice" / "corvane.scope" / "memory.max", "max\n");
  put(cgroup() / "app.slice" / "memory.max", std::to_string(2 * GiB) + "\n");
  put(cgroup() / "app.slice" / "memory.current", std::to_string(3 * GiB / 2) + "\n");
  put(cgroup() / "app.slice" / "memory.stat", "anon 1000\ninactive_file " + std::to_string(GiB / 4) + "\n");
  const auto figures = AudioLoadLimits::readSystemFigures(proc(), cgroup());
  EXPECT_EQ(figures.budgetBytes, 2 * GiB);
  EXPECT_EQ(figures.availableBytes, 2 * GiB - (3 * GiB / 2 - GiB / 4));
}

TEST_F(MemoryFiguresFrom, ACgroupV1LimitSeenFromInsideAContainer) {
  // Inside a container the group's own folder is mounted as the hierarchy's root.
  put(proc() / "self" / "cgroup", "12:pids:/docker/abc\n4:memory:/docker/abc\n0::/\n");
  put(cgroup() / "memory" / "memory.limit_in_bytes", std::to_string(GiB) + "\n");
  put(cgroup() / "memory" / "memory.usage_in_bytes", std::to_string(GiB / 2) + "\n");
  put(cgroup() / "memory" / "memory.stat", "cache 5\ntotal_inactive_file 0\n");
  const auto figures = AudioLoadLimits::readSystemFigures(proc(), cgroup());
  EXPECT_EQ(figures.budgetBytes, GiB);
  EXPECT_EQ(figures.availableBytes, GiB / 2);
}

TEST_F(MemoryFiguresFrom, AnUnlimitedV1GroupAndUnreadableFiles) {
  put(proc() / "self" / "cgroup", "4:memory:/\n");
  put(cgroup() / "memory" / "memory.limit_in_bytes", "9223372036854771712\n");
  auto figures = AudioLoadLimits::readSystemFigures(proc(), cgroup());
  EXPECT_EQ(figures.budgetBytes, 16 * GiB);
  EXPECT_EQ(figures.availableBytes, 8 * GiB);
  figures = AudioLoadLimits::readSystemFigures(folder / "nowhere", cgroup());
  EXPECT_EQ(figures.budgetBytes, 0);
  EXPECT_EQ(figures.availableBytes, 0);
}

class InjectedLimits : public ::testing::Test {
 protected:
  void TearDown() override { AudioLoadLimits::setFiguresForTesting(std::nullopt); }
};

TEST_F(InjectedLimits, DecisionsFollowTheFigures) {
  AudioLoadLimits::setFiguresForTesting(MemoryFigures{8 * GiB, 6 * GiB});
  EXPECT_EQ(AudioLoadLimits::maxDecodedBytes(), 4 * GiB);
  EXPECT_EQ(AudioLoadLimits::availableBytes(), 6 * GiB);
  // An hour of 48 kHz stereo: 1.29 GiB decoded.
  EXPECT_TRUE(AudioLoadLimits::isWithinLimits(FrameCount{3600} * 48000, 2));
  // Exactly the budget (4 GiB: 8 channels × 4 bytes × GiB / 8 frames) fits, one frame more
  // doesn't.
  EXPECT_TRUE(AudioLoadLimits::isWithinLimits(GiB / 8, 8));
  EXPECT_FALSE(AudioLoadLimits::isWithinLimits(GiB / 8 + 1, 8));
  EXPECT_FALSE(AudioLoadLimits::isWithinLimits(-1, 2));
  EXPECT_FALSE(AudioLoadLimits::isWithinLimits(100, 0));
  EXPECT_FALSE(AudioLoadLimits::isWithinLimits(std::numeric_limits<FrameCount>::max() / 2, 64));
  EXPECT_TRUE(AudioLoadLimits::isWithinLimits(0, 2));

  // A rebuild holds two more buffers of the decoded size within 75 % of what is available.
  EXPECT_TRUE(AudioLoadLimits::rebuildEditFits(0));
  EXPECT_TRUE(AudioLoadLimits::rebuildEditFits(6 * GiB * 3 / 8));
  EXPECT_FALSE(AudioLoadLimits::rebuildEditFits(6 * GiB * 3 / 8 + 1));

  // Little available memory caps a load below the budget: 90 % of 1 GiB.
  AudioLoadLimits::setFiguresForTesting(MemoryFigures{8 * GiB, GiB});
  EXPECT_FALSE(AudioLoadLimits::isWithinLimits(GiB / 16, 4));
  EXPECT_TRUE(AudioLoadLimits::isWithinLimits(GiB / 32, 4));
}

TEST_F(InjectedLimits, ALoadBeyondTheLimitIsRefusedWithItsText) {
  test::fixtureFolder();
  // 1.25 s of 48 kHz stereo is 480,000 bytes decoded.
  AudioLoadLimits::setFiguresForTesting(MemoryFigures{900'000, 900'000});
  try {
    AudioFileModel::load(test::fixtureFolder() / "wav-s24.wav");
    ADD_FAILURE() << "loaded";
  } catch (const AudioError& error) {
    EXPECT_EQ(error.kind(), AudioError::Kind::fileTooLarge);
    EXPECT_EQ(std::string(error.what()), "Audio file is too large or its header is invalid");
  }
  AudioLoadLimits::setFiguresForTesting(MemoryFigures{1'100'000, 1'100'000});
  EXPECT_NO_THROW(AudioFileModel::load(test::fixtureFolder() / "wav-s24.wav"));
}

TEST(AudioErrorTexts, AreTheSystemsWords) {
  using K = AudioError::Kind;
  EXPECT_STREQ(AudioError(K::formatNotSupported).what(), "Audio format not supported");
  EXPECT_STREQ(AudioError(K::bufferCreationFailed).what(), "Failed to allocate audio buffer");
  EXPECT_STREQ(AudioError(K::deviceNotFound).what(), "Output device not found");
  EXPECT_STREQ(AudioError(K::engineSetupFailed).what(), "Failed to set up audio engine");
  EXPECT_STREQ(AudioError(K::fileTooLarge).what(), "Audio file is too large or its header is invalid");
}

}  // namespace
}  // namespace corvane
