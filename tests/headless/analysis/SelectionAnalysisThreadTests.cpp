// The pass's threads, also run by the ThreadSanitizer build: the two halves of one pass, two
// passes over one shared buffer at once (the session lets a later pass start while an earlier
// one runs), and a stop requested from another thread while a pass is under way.
#include <gtest/gtest.h>

#include <stop_token>
#include <thread>

#include "AnalysisTestSupport.h"

namespace corvane::test {
namespace {

TEST(SelectionAnalysisThreads, PassesSideBySideOnOneBufferAgreeWithAPassAlone) {
  const SharedAudioBuffer buffer = toBuffer(programme(48000.0, 2, 8.0, 17));
  SelectionAnalysisSettings settings = plainSettings(2);
  settings.threadCount = 1;
  const SelectionAnalysisOutput alone = analyse(buffer, 0.0, 8.0, settings);

  settings.threadCount = 2;
  std::optional<SelectionAnalysisOutput> first, second;
  const auto frames = SelectionFrames::capture(buffer, 0.0, 8.0);
  ASSERT_TRUE(frames && frames->readsSharedBuffer());
  std::thread a([&] { first = runSelectionAnalysis(*frames, settings); });
  std::thread b([&] { second = runSelectionAnalysis(*frames, settings); });
  a.join();
  b.join();
  ASSERT_TRUE(first && second);
  expectIdentical(alone, *first);
  expectIdentical(alone, *second);
}

TEST(SelectionAnalysisThreads, AStopFromAnotherThreadEndsThePassOrLeavesItWhole) {
  const SharedAudioBuffer buffer = toBuffer(programme(48000.0, 2, 20.0, 18));
  const auto frames = SelectionFrames::capture(buffer, 0.0, 20.0);
  ASSERT_TRUE(frames.has_value());
  const SelectionAnalysisSettings settings = plainSettings(2);
  const SelectionAnalysisOutput reference = analyse(*frames, settings);

  // Stopped at some point of its run: either nothing comes back, or (had it finished first)
  // the complete result; never a half-made one.
  std::stop_source stop;
  std::optional<SelectionAnalysisOutput> out;
  std::thread pass([&] { out = runSelectionAnalysis(*frames, settings, stop.get_token()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  stop.request_stop();
  pass.join();
  if (out) expectIdentical(reference, *out);
}

}  // namespace
}  // namespace corvane::test
