// Helpers of the speech detection tests: the installed model, WAV files through libsndfile,
// and signals made by espeak-ng and sox in a private temporary folder.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "headless/speech/SileroVADModel.h"

namespace corvane::test {

// The model that scripts/install-deps installed; fails the calling test (not skips it) when
// it is missing, since every machine that runs the tests has run install-deps.
std::shared_ptr<const SileroVADModel> installedModel();

struct WavFile {
  double sampleRate = 0;
  int channels = 0;
  std::vector<float> interleaved;
  std::int64_t frames() const { return channels ? static_cast<std::int64_t>(interleaved.size()) / channels : 0; }
};

WavFile readWav(const std::filesystem::path& path);
void writeWav(const std::filesystem::path& path, const SharedAudioBuffer& buffer);
SharedAudioBuffer toBuffer(const WavFile& wav);

// Runs a command line through the shell; throws with its output when it fails.
void run(const std::string& commandLine);

// A fresh folder under the system's temporary directory, removed with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  const std::filesystem::path& path() const { return _path; }
  std::filesystem::path operator/(const std::string& name) const { return _path / name; }

 private:
  std::filesystem::path _path;
};

// Quotes a path for the shell.
std::string quoted(const std::filesystem::path& path);

}  // namespace corvane::test
