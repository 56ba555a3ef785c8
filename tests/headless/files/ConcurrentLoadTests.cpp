// The session loads its file and its compare extras on concurrent background tasks: loads of
// different files on different threads must not share state. Run under ThreadSanitizer by
// the tsan build (label tsan); the decoders themselves are not instrumented there.
#include <gtest/gtest.h>

#include <thread>

#include "FileTestSupport.h"
#include "headless/files/AudioFileModel.h"

namespace corvane {
namespace {

TEST(ConcurrentLoads, ThreadsLoadingDifferentFilesGetWhatOneThreadGets) {
  const std::vector<std::string> files{"wav-s24.wav", "flac-24.flac", "aac.m4a", "vorbis-51.ogg", "caf-51.caf", "mp3.mp3"};
  std::vector<std::vector<float>> expected;
  for (const auto& file : files) expected.push_back(test::interleave(*AudioFileModel::load(test::fixtureFolder() / file).buffer));

  std::vector<std::vector<std::vector<float>>> results(4, std::vector<std::vector<float>>(files.size()));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t k = 0; k < files.size(); ++k) {
        const std::size_t index = (k + static_cast<std::size_t>(t)) % files.size();
        const auto loaded = AudioFileModel::load(test::fixtureFolder() / files[index]);
        results[static_cast<std::size_t>(t)][index] = test::interleave(*loaded.buffer);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 4; ++t) {
    for (std::size_t k = 0; k < files.size(); ++k) {
      EXPECT_TRUE(results[static_cast<std::size_t>(t)][k] == expected[k]) << files[k] << " on thread " << t;
    }
  }
}

}  // namespace
}  // namespace corvane
