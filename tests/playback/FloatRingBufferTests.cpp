// The analysis feed's ring: what the tick reads, and that a lapped read is refused.
#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>
#include <vector>

#include "playback/FloatRingBuffer.h"

namespace corvane {
namespace {

std::vector<float> ramp(int from, int count) {
  std::vector<float> v(static_cast<std::size_t>(count));
  std::iota(v.begin(), v.end(), static_cast<float>(from));
  return v;
}

TEST(FloatRingBuffer, CopiesTheNewestSamplesInTimeOrderAcrossTheWrap) {
  FloatRingBuffer ring(10);
  std::vector<float> out(10, -1.0f);
  EXPECT_FALSE(ring.copyLast(1, out.data()));
  ring.write(ramp(0, 7).data(), 7);
  EXPECT_EQ(ring.filledCount(), 7);
  EXPECT_FALSE(ring.copyLast(8, out.data()));
  ring.write(ramp(7, 6).data(), 6);  // 0 ... 12 written; the ring holds 3 ... 12
  EXPECT_EQ(ring.filledCount(), 10);
  ASSERT_TRUE(ring.copyLast(4, out.data()));
  EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 4), ramp(9, 4));
  ASSERT_TRUE(ring.copyEnding(3, 5, out.data()));  // five samples ending three before 12
  EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 5), ramp(5, 5));
  ASSERT_TRUE(ring.copyEnding(0, 10, out.data()));
  EXPECT_EQ(out, ramp(3, 10));
  EXPECT_FALSE(ring.copyEnding(1, 10, out.data()));  // sample 2 is gone
  EXPECT_FALSE(ring.copyEnding(-1, 2, out.data()));
  EXPECT_FALSE(ring.copyLast(0, out.data()));
  // An oversized write keeps its newest samples and counts every one.
  ring.write(ramp(100, 25).data(), 25);
  EXPECT_EQ(ring.totalWritten(), 38u);
  ASSERT_TRUE(ring.copyLast(10, out.data()));
  EXPECT_EQ(out, ramp(115, 10));
}

// A writer that runs far ahead of a slow reader: every copy the reader accepts must be a run
// of consecutive values (the writer writes a counter), never a mix of two laps.
TEST(FloatRingBuffer, ReaderRefusesCopiesTheWriterOvertook) {
  FloatRingBuffer ring(4096);
  std::atomic<bool> done{false};
  std::thread writer([&] {
    std::vector<float> block(512);
    float next = 0.0f;
    for (int i = 0; i < 20000 && !done.load(); ++i) {
      for (float& v : block) v = next++;
      if (next > 8e6f) next = 0.0f;  // stay where floats count exactly
      ring.write(block.data(), static_cast<int>(block.size()));
    }
    done.store(true);
  });
  std::vector<float> out(4096);
  long accepted = 0;
  long refused = 0;
  while (!done.load()) {
    for (int lag : {0, 1000, 3000}) {
      const int count = 4096 - lag;
      if (!ring.copyEnding(lag, count, out.data())) {
        ++refused;
        continue;
      }
      ++accepted;
      for (int i = 1; i < count; ++i) {
        // A wrap of the writer's counter is the only allowed break.
        if (out[i] != out[i - 1] + 1.0f && out[i] != 0.0f) {
          ADD_FAILURE() << "torn copy at " << i << ": " << out[i - 1] << " then " << out[i];
          done.store(true);
          break;
        }
      }
    }
  }
  writer.join();
  EXPECT_GT(accepted, 0);
  std::printf("accepted %ld, refused %ld\n", accepted, refused);
}

}  // namespace
}  // namespace corvane
