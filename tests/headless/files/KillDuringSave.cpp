#include "KillDuringSave.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

namespace corvane::test {

namespace {

// The file's bytes. Kept here rather than taken from the file tests' support, so that tests of
// other folders (the session's Save) can link this file beside their own support.
std::vector<unsigned char> readBytes(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::filesystem::path& file, const std::vector<unsigned char>& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

pid_t startSave(const std::function<void()>& save) {
  const pid_t child = ::fork();
  if (child == 0) {
    try {
      save();
    } catch (...) {
      ::_exit(2);
    }
    ::_exit(0);
  }
  return child;
}

void restore(const std::filesystem::path& target, const std::vector<unsigned char>& bytes) {
  if (readBytes(target) != bytes) writeBytes(target, bytes);
}

}  // namespace

KillDuringSaveReport killDuringSave(const std::filesystem::path& target, const std::function<void()>& save, int attempts) {
  KillDuringSaveReport report;
  const auto original = readBytes(target);

  const auto started = std::chrono::steady_clock::now();
  const pid_t reference = startSave(save);
  int status = 0;
  ::waitpid(reference, &status, 0);
  report.saveSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the unkilled save failed";
  const auto saved = readBytes(target);
  EXPECT_NE(saved, original) << "the save changed nothing, so the test can't tell the outcomes apart";

  auto attempt = [&](double delay) {
    restore(target, original);
    const pid_t child = startSave(save);
    std::this_thread::sleep_for(std::chrono::duration<double>(delay));
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    ++report.attempts;
    std::error_code error;
    if (!std::filesystem::is_regular_file(target, error)) {
      ++report.otherOutcomes;
      ADD_FAILURE() << "the target is missing after a kill at " << delay << " s";
      return;
    }
    const auto after = readBytes(target);
    if (after == original) {
      ++report.originalIntact;
    } else if (after == saved) {
      ++report.newComplete;
    } else {
      ++report.otherOutcomes;
      ADD_FAILURE() << "a kill at " << delay << " s left " << after.size() << " bytes that are neither file";
    }
  };
  for (int i = 0; i < attempts; ++i) attempt(report.saveSeconds * 1.2 * (static_cast<double>(i) + 0.5) / attempts);
  // A machine busier than during the measured save shifts every kill earlier in the save; a
  // few later kills make sure the far side of the rename is reached too.
  for (double delay = report.saveSeconds * 2.0; report.newComplete == 0 && delay < report.saveSeconds * 40.0; delay *= 2.0) {
    attempt(delay);
  }
  return report;
}

}  // namespace corvane::test
