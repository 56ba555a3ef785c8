// A save killed at many points: the file it saves over must afterwards be the complete
// original or the complete new file, never a mixture and never missing.
//
// The save runs in a child process (fork) that is killed with SIGKILL after delays spread over
// the time one whole save takes (measured first, unkilled). Before each attempt the target is
// restored to the original bytes. Any saving road can be tested this way: the file layer's
// InPlaceSave directly, and later the session's Save, by passing a different `save`.
#pragma once

#include <filesystem>
#include <functional>
#include <vector>

namespace corvane::test {

struct KillDuringSaveReport {
  int attempts = 0;
  int originalIntact = 0;   // the target held the original bytes afterwards
  int newComplete = 0;      // the target held exactly the bytes of an unkilled save
  int otherOutcomes = 0;    // anything else: a mixture, a missing or unreadable file
  double saveSeconds = 0.0; // how long the unkilled save took
};

// `save` must write over `target` and is only ever called in a child process. `attempts`
// kills are spread from the start to 1.2 × the save's duration; should none of them land
// after the save completed (a busy machine slows the killed saves), a few more follow at 2, 4,
// 8 ... times the duration.
KillDuringSaveReport killDuringSave(const std::filesystem::path& target, const std::function<void()>& save,
                                    int attempts);

}  // namespace corvane::test
