#include "EditingTestSupport.h"

#include <cstring>

#include "headless/TemporaryFiles.h"
#include "headless/files/AudioLoadLimits.h"
#include "session/BackgroundWork.h"

namespace corvane::test {

void EditingTest::TearDown() {
  AudioLoadLimits::setFiguresForTesting(std::nullopt);
  SessionTest::TearDown();
}

std::unique_ptr<AudioEngine> EditingTest::loadSession(const Planar& signal, const std::string& name) {
  lastPath = writeFile(name, signal);
  auto engine = makeEngine();
  LandingLog log(*engine);
  engine->loadFile(url(lastPath));
  EXPECT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) == 1; }));
  // Speech re-derivations and pyramids of earlier steps must not land in the middle of a test.
  waitForBackgroundWork();
  QCoreApplication::processEvents();
  return engine;
}

ChannelData liveSamples(AudioEngine& engine) {
  const AudioBuffer& buffer = *engine.pcmBuffer();
  ChannelData out(static_cast<std::size_t>(buffer.channelCount()));
  for (int c = 0; c < buffer.channelCount(); ++c) {
    out[static_cast<std::size_t>(c)].assign(buffer.channel(c), buffer.channel(c) + buffer.frameLength());
  }
  return out;
}

bool sameBits(const ChannelData& a, const ChannelData& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t c = 0; c < a.size(); ++c) {
    if (a[c].size() != b[c].size()) return false;
    if (std::memcmp(a[c].data(), b[c].data(), a[c].size() * sizeof(float)) != 0) return false;
  }
  return true;
}

std::vector<std::filesystem::path> snapshotFiles() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(privateTemporaryDirectory())) {
    if (entry.path().filename().string().starts_with("corvane-undo-")) files.push_back(entry.path());
  }
  return files;
}

std::vector<std::string> temporaryFileNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(privateTemporaryDirectory())) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

ChannelData toChannels(const Planar& signal) { return signal.channels; }

}  // namespace corvane::test
