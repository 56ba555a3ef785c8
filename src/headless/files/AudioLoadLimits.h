// AudioLoadLimits: how much decoded audio this machine can hold.
//
// A decoded file lives in memory as planar float (frames × channels × 4 bytes): an hour of
// 48 kHz stereo is 1.4 GB, a day-long 8-channel recording far more. Linux overcommits, so an
// allocation that is too large "succeeds" and the process dies later when its pages are
// touched. The limits below refuse such a load or edit up front instead.
//
// Memory figures come from /proc/meminfo (MemTotal, MemAvailable) and from the memory limit
// of the process's control group (cgroup v2 memory.max / memory.current, or v1
// memory.limit_in_bytes / memory.usage_in_bytes, the smallest limit on the way to the root;
// reclaimable page cache, inactive_file, counts as free inside the group). A container that
// caps the process at 2 GB thus loads no 3 GB file even on a 64 GB host.
//
//   budgetBytes    = min(MemTotal, cgroup limit)
//   availableBytes = min(MemAvailable, cgroup limit − (cgroup usage − inactive file cache))
//   maxDecodedBytes = budgetBytes / 2: one decoded file (or all compared files together)
//                   may take half of what the process can ever hold, leaving the other half
//                   for the edit road's second buffer, analysis and the rest of the system.
//   isWithinLimits  : frames × channels × 4 ≤ min(maxDecodedBytes, availableBytes × 0.9),
//                   with no overflow, at least one channel and a non-negative frame count.
//   rebuildEditFits : a rebuilding edit holds the channel copies and the result beside the
//                   live buffer, so 2 × decodedBytes must fit in availableBytes × 0.75.
//
// Tests (and the edit roads' tests) install fixed figures with setFiguresForTesting().
// Thread class: any thread; the system figures are read on every call (cheap: two small
// files), the test figures are guarded by a mutex.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "core/AudioBuffer.h"

namespace corvane {

struct MemoryFigures {
  // Bytes the process could ever hold (physical memory or its control group's limit).
  std::int64_t budgetBytes = 0;
  // Bytes it could allocate now without pushing the system or its group into reclaim.
  std::int64_t availableBytes = 0;
};

class AudioLoadLimits {
 public:
  // True if a decoded buffer of that shape may be allocated now.
  static bool isWithinLimits(FrameCount frameLength, int channelCount);

  // True if a rebuilding edit over a buffer of `decodedBytes` may run in memory; always true
  // for 0 bytes or fewer (nothing to rebuild).
  static bool rebuildEditFits(std::int64_t decodedBytes);

  // The most decoded bytes one file, or all compared files together, may take.
  static std::int64_t maxDecodedBytes();

  // Memory available now, in bytes.
  static std::int64_t availableBytes();

  // The figures in force: the test figures if installed, else the system's.
  static MemoryFigures currentFigures();

  // The system's figures, read from `procRoot`/meminfo, `procRoot`/self/cgroup and the
  // cgroup hierarchies under `cgroupRoot` (v2 at the root or at "unified", v1 at "memory").
  // Missing or unreadable files leave that limit out; with nothing readable the figures are
  // 0, and nothing fits.
  static MemoryFigures readSystemFigures(const std::filesystem::path& procRoot = "/proc",
                                         const std::filesystem::path& cgroupRoot = "/sys/fs/cgroup");

  // Installs fixed figures for every caller in the process (nullopt restores the system's).
  static void setFiguresForTesting(std::optional<MemoryFigures> figures);
};

}  // namespace corvane
