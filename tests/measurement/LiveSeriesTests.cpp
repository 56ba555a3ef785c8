// LiveSeries: a capped series whose copies must keep exactly the points they had while the
// owner goes on appending and dropping.
#include <gtest/gtest.h>

#include "measurement/LiveSeries.h"

namespace corvane {
namespace {

TEST(LiveSeries, KeepsTheNewestPointsUpToItsCapAcrossChunks) {
  LiveSeries<int, 8> series;
  for (int i = 0; i < 100; ++i) series.append(i, 30);
  ASSERT_EQ(series.size(), 30u);
  for (std::size_t i = 0; i < series.size(); ++i) EXPECT_EQ(series[i], 70 + static_cast<int>(i));
  EXPECT_EQ(series.front(), 70);
  EXPECT_EQ(series.back(), 99);
  // 30 points over chunks of 8, starting mid-chunk: never more than five chunks held.
  EXPECT_LE(series.chunkCount(), 5u);
  series.clear();
  EXPECT_TRUE(series.empty());
  series.append(7, 30);
  EXPECT_EQ(series.toVector(), std::vector<int>{7});
}

TEST(LiveSeries, ACopyIsUnchangedByLaterAppendsAndDrops) {
  LiveSeries<int, 4> series;
  for (int i = 0; i < 10; ++i) series.append(i, 12);
  const LiveSeries<int, 4> published = series;  // a reader's copy, mid-chunk
  const std::vector<int> seen = published.toVector();
  for (int i = 10; i < 50; ++i) series.append(i, 12);
  EXPECT_EQ(published.toVector(), seen);
  ASSERT_EQ(series.size(), 12u);
  EXPECT_EQ(series.front(), 38);
  EXPECT_EQ(series.back(), 49);
}

}  // namespace
}  // namespace corvane
