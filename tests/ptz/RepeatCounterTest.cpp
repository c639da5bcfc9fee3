#include "driver/RepeatCounter.h"

#include <gtest/gtest.h>

#include <vector>

namespace sarnevo {
namespace {

// The numbers of those of @p calls calls that are reported.
std::vector<u32> Reported(u32 calls) {
  RepeatCounter counter;
  std::vector<u32> reported;
  for (u32 call = 1; call <= calls; ++call) {
    if (counter.ShouldReport()) {
      reported.push_back(call);
    }
  }
  return reported;
}

TEST(RepeatCounter, ThinsOutWhatKeepsComing) {
  EXPECT_EQ(Reported(600),
            (std::vector<u32>{1,  2,  3,  4,  5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  16, 32,
                              48, 64, 80, 96, 112, 128, 144, 160, 176, 192, 208, 224, 240, 256, 512}));
  // Every 256th up to 3840, then every 4096th; the count falls from 65535 to 4095, so that the very next
  // one is reported.
  std::vector<u32> late = Reported(65536 + 4096);
  late.erase(late.begin(), late.begin() + 31);
  std::vector<u32> expected;
  for (u32 call = 768; call <= 3840; call += 256) {
    expected.push_back(call);
  }
  for (u32 call = 4096; call <= 61440; call += 4096) {
    expected.push_back(call);
  }
  expected.push_back(65536);
  expected.push_back(65536 + 4096);
  EXPECT_EQ(late, expected);
}

}  // namespace
}  // namespace sarnevo
