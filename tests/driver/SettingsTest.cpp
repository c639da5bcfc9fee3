#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "driver/CQualitySettings.h"
#include "driver/ChannelTiming.h"
#include "driver/DecimalText.h"

namespace sarnevo {
namespace {

TEST(DecimalText, GivesTheNumberInFrontAndNeverOverflows) {
  const std::pair<std::string, i32> rows[] = {
      {"", 0},
      {" \t\r\n0005", 5},
      {"+5", 5},
      {"-5x", -5},
      {"+-5", 0},
      {"2147483648", 2147483647},
      {"-2147483649", -2147483647 - 1},
      {std::string(10'000, '9'), 2147483647},
  };
  for (const auto& [text, number] : rows) {
    EXPECT_EQ(ParseDecimal(text), number) << text;
  }
}

TEST(BitrateList, CountsNumbersBehindWhichACommaStands) {
  const std::pair<const char*, std::vector<i32>> rows[] = {
      {"256,512,768,e", {256, 512, 768}},
      {"256,512", {256}},    // the last one is lost
      {"256,e512,", {256}},  // the letter ends it
      {"", {}},
      {",", {0}},
      {"x,7y,-3,", {0, 7, -3}},
      {" 900 , 100 ,", {900, 100}},  // not sorted
  };
  for (const auto& [text, bitrates] : rows) {
    EXPECT_EQ(ParseBitrateList(text), bitrates) << text;
  }
}

TEST(ChannelTiming, IsWhatCamerasNeedAndHostsExpect) {
  const ChannelTiming timing;
  EXPECT_EQ(timing.streamPass.count(), 1000);
  EXPECT_EQ(timing.pause.count(), 3000);
  EXPECT_EQ(timing.receiveTimeout.count(), 5000);
  EXPECT_EQ(timing.startingReceiveTimeout.count(), 10000);
  EXPECT_EQ(timing.packetTimeout.count(), 5000);
  EXPECT_EQ(timing.rtspReceive.count(), 2000);
  EXPECT_EQ(timing.rtspConnectStep.count(), 100);
}

}  // namespace
}  // namespace sarnevo
