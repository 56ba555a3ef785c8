// What the editing tests share: a session with a file loaded from a real WAV, the live
// samples as arrays, and the snapshot files in the private temporary folder.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "SessionTestSupport.h"
#include "editing/EditEngine.h"

namespace corvane::test {

class EditingTest : public SessionTest {
 protected:
  void TearDown() override;

  // Writes `signal` as a float WAV and loads it into a new session; waits for the metrics.
  std::unique_ptr<AudioEngine> loadSession(const Planar& signal, const std::string& name = "take.wav");
  std::string lastPath;
};

// A copy of the live samples.
ChannelData liveSamples(AudioEngine& engine);
// Bit-for-bit equality of every sample (and of the lengths).
bool sameBits(const ChannelData& a, const ChannelData& b);
// The "corvane-undo-" files of the private temporary folder.
std::vector<std::filesystem::path> snapshotFiles();
// Every file name of the private temporary folder.
std::vector<std::string> temporaryFileNames();
// As channel arrays.
ChannelData toChannels(const Planar& signal);

}  // namespace corvane::test
