#include "headless/files/AudioLoadLimits.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

namespace corvane {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();
// cgroup v1 reports "no limit" as a page-rounded LONG_MAX; anything this large is no limit.
constexpr std::int64_t kNoLimitThreshold = std::int64_t{1} << 60;

std::mutex& testMutex() {
  static std::mutex mutex;
  return mutex;
}
std::optional<MemoryFigures>& testFigures() {
  static std::optional<MemoryFigures> figures;
  return figures;
}

std::optional<std::int64_t> readNumber(const fs::path& file) {
  std::ifstream in(file);
  std::string word;
  if (!(in >> word)) return std::nullopt;
  if (word == "max") return kUnlimited;
  try {
    std::size_t used = 0;
    const long long value = std::stoll(word, &used);
    if (used != word.size() || value < 0) return std::nullopt;
    return value >= kNoLimitThreshold ? kUnlimited : static_cast<std::int64_t>(value);
  } catch (...) {
    return std::nullopt;
  }
}

// The value of `key` in a "key value" file (memory.stat).
std::optional<std::int64_t> readStat(const fs::path& file, const std::string& key) {
  std::ifstream in(file);
  std::string name;
  long long value = 0;
  while (in >> name >> value) {
    if (name == key) return static_cast<std::int64_t>(value);
  }
  return std::nullopt;
}

struct GroupFiles {
  const char* limit;
  const char* usage;
  const char* inactiveKey;
};

// The tightest limit on the way from `leaf` up to `root`, and the room left under it.
void applyGroupLimits(const fs::path& root, const fs::path& leaf, const GroupFiles& files, MemoryFigures& figures) {
  std::error_code error;
  fs::path dir = leaf;
  for (int depth = 0; depth < 64; ++depth) {
    if (const auto limit = readNumber(dir / files.limit); limit && *limit != kUnlimited) {
      figures.budgetBytes = std::min(figures.budgetBytes, *limit);
      const std::int64_t usage = readNumber(dir / files.usage).value_or(0);
      const std::int64_t inactive = readStat(dir / "memory.stat", files.inactiveKey).value_or(0);
      const std::int64_t held = std::max<std::int64_t>(0, usage - inactive);
      figures.availableBytes = std::min(figures.availableBytes, std::max<std::int64_t>(0, *limit - held));
    }
    if (fs::equivalent(dir, root, error) || !dir.has_parent_path() || dir == dir.parent_path()) break;
    dir = dir.parent_path();
  }
}

// The group's own folder under a hierarchy root, or the root itself when the process sees its
// group as the root (a container's cgroup namespace).
fs::path groupFolder(const fs::path& root, const std::string& groupPath) {
  std::error_code error;
  const fs::path candidate = root / fs::path(groupPath).relative_path();
  return fs::is_directory(candidate, error) ? candidate : root;
}

}  // namespace

MemoryFigures AudioLoadLimits::readSystemFigures(const fs::path& procRoot, const fs::path& cgroupRoot) {
  MemoryFigures figures;
  {
    std::ifstream meminfo(procRoot / "meminfo");
    std::string line;
    std::int64_t totalKB = -1;
    std::int64_t availableKB = -1;
    while (std::getline(meminfo, line)) {
      std::istringstream fields(line);
      std::string key;
      long long value = 0;
      if (!(fields >> key >> value)) continue;
      if (key == "MemTotal:") totalKB = value;
      if (key == "MemAvailable:") availableKB = value;
    }
    if (totalKB < 0 || availableKB < 0) return {};
    figures.budgetBytes = totalKB * 1024;
    figures.availableBytes = availableKB * 1024;
  }

  std::ifstream groups(procRoot / "self" / "cgroup");
  std::string line;
  std::error_code error;
  while (std::getline(groups, line)) {
    const auto first = line.find(':');
    const auto second = first == std::string::npos ? std::string::npos : line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const std::string path = line.substr(second + 1);
    if (line.compare(0, first, "0") == 0 && controllers.empty()) {
      for (const fs::path& root : {cgroupRoot, cgroupRoot / "unified"}) {
        if (!fs::exists(root / "cgroup.controllers", error)) continue;
        applyGroupLimits(root, groupFolder(root, path), {"memory.max", "memory.current", "inactive_file"}, figures);
        break;
      }
    } else {
      std::istringstream list(controllers);
      std::string controller;
      while (std::getline(list, controller, ',')) {
        if (controller != "memory") continue;
        const fs::path root = cgroupRoot / "memory";
        applyGroupLimits(root, groupFolder(root, path),
                         {"memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file"}, figures);
      }
    }
  }
  return figures;
}

void AudioLoadLimits::setFiguresForTesting(std::optional<MemoryFigures> figures) {
  std::lock_guard lock(testMutex());
  testFigures() = figures;
}

MemoryFigures AudioLoadLimits::currentFigures() {
  {
    std::lock_guard lock(testMutex());
    if (testFigures()) return *testFigures();
  }
  return readSystemFigures();
}

std::int64_t AudioLoadLimits::maxDecodedBytes() { return currentFigures().budgetBytes / 2; }

std::int64_t AudioLoadLimits::availableBytes() { return currentFigures().availableBytes; }

bool AudioLoadLimits::isWithinLimits(FrameCount frameLength, int channelCount) {
  if (frameLength < 0 || channelCount < 1) return false;
  const auto figures = currentFigures();
  const std::int64_t cap = std::min(figures.budgetBytes / 2, static_cast<std::int64_t>(static_cast<double>(figures.availableBytes) * 0.9));
  const std::int64_t bytesPerFrame = std::int64_t{4} * channelCount;
  if (frameLength > std::numeric_limits<std::int64_t>::max() / bytesPerFrame) return false;
  return frameLength * bytesPerFrame <= cap;
}

bool AudioLoadLimits::rebuildEditFits(std::int64_t decodedBytes) {
  if (decodedBytes <= 0) return true;
  if (decodedBytes > std::numeric_limits<std::int64_t>::max() / 2) return false;
  return static_cast<double>(2 * decodedBytes) <= static_cast<double>(availableBytes()) * 0.75;
}

}  // namespace corvane
