#include "driver/RepeatCounter.h"

#include <gtest/gtest.h>

#include <vector>

namespace sarnevo {
namespace {

TEST(RepeatCounter, ThinsOutWhatKeepsComing) {
  std::vector<u32> expected{1,  2,  3,  4,  5,  6,   7,   8,   9,   10,  11,  12,  13,  14,  16,
                            32, 48, 64, 80, 96, 112, 128, 144, 160, 176, 192, 208, 224, 240, 256};
  for (u32 call = 512; call <= 3840; call += 256) {
    expected.push_back(call);
  }
  for (u32 call = 4096; call <= 61440; call += 4096) {
    expected.push_back(call);
  }
  // Call 65535 puts the count back to 4095, so that the very next one is reported.
  expected.insert(expected.end(), {65536, 65536 + 4096});

  RepeatCounter counter;
  std::vector<u32> reported;
  for (u32 call = 1; call <= 65536 + 4096; ++call) {
    if (counter.ShouldReport()) {
      reported.push_back(call);
    }
  }
  EXPECT_EQ(reported, expected);
}

}  // namespace
}  // namespace sarnevo
