#include <gtest/gtest.h>

#include "SpeechTestSupport.h"

namespace corvane {
namespace {

TEST(SileroVADModel, LoadsBothBranches) {
  const auto model = test::installedModel();
  ASSERT_TRUE(model);
  EXPECT_EQ(model->branch16k().framesPerWindow(), 4);
  EXPECT_EQ(model->branch8k().framesPerWindow(), 4);
}

}  // namespace
}  // namespace corvane
