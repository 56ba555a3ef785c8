// The detection pipeline spreads one signal over threads. These cases run under
// ThreadSanitizer too (label tsan): the pipeline's hand-over of segments between the reading,
// encoding and recurrent stages is where a race would hide.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "SpeechTestSupport.h"
#include "headless/speech/SileroVADNetwork.h"

namespace corvane {
namespace {

std::vector<float> referenceSpeech() {
  return test::readWav(std::filesystem::path(CORVANE_TEST_DATA_DIR) / "speech-16k.wav").interleaved;
}

// Neither the segment size nor the number of threads may change a single bit of the result.
TEST(SileroVADPipeline, ResultDoesNotDependOnSegmentsOrThreads) {
  const auto model = test::installedModel();
  ASSERT_TRUE(model);
  const auto samples = referenceSpeech();
  SileroVADNetwork network(model->branch16k());
  const auto whole = network.probabilities(samples, 1);
  ASSERT_EQ(whole.size(), (samples.size() + 511) / 512);
  for (const int segment : {1, 3, 7, 64}) {
    for (const int threads : {1, 2, 5}) {
      network.setSegmentWindows(segment);
      EXPECT_EQ(network.probabilities(samples, threads), whole) << segment << " windows, " << threads << " threads";
    }
  }
}

// A source that fails midway: the failure comes out of probabilities() on the calling thread,
// and every helper thread has stopped.
TEST(SileroVADPipeline, AFailingSourceStopsEveryThread) {
  const auto model = test::installedModel();
  ASSERT_TRUE(model);
  SileroVADNetwork network(model->branch16k());
  network.setSegmentWindows(2);
  std::atomic<int> calls = 0;
  const SileroVADNetwork::SampleSource failing = [&](float* out, std::int64_t count) -> std::int64_t {
    if (++calls == 5) throw std::runtime_error("disk gone");
    std::fill_n(out, count, 0.01f);
    return count;
  };
  EXPECT_THROW(network.probabilities(failing, 4), std::runtime_error);
  EXPECT_EQ(calls.load(), 5);
}

}  // namespace
}  // namespace corvane
