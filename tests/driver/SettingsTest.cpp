#include <gtest/gtest.h>

#include <string>

#include "driver/CQualitySettings.h"
#include "driver/ChannelTiming.h"
#include "driver/DecimalText.h"
#include "driver/HostVersion.h"

namespace sarnevo {
namespace {

using Numbers = std::vector<i32>;

TEST(DecimalText, GivesTheNumberInFrontAndNeverOverflows) {
  const struct {
    std::string text;
    i32 number;
  } rows[] = {
      {"", 0},
      {"abc", 0},
      {"5000", 5000},
      {"0005", 5},
      {" \t\r\n5", 5},
      {"+5", 5},
      {"-5", -5},
      {"+-5", 0},
      {"- 5", 0},
      {"-", 0},
      {"5x", 5},
      {"5.9", 5},
      {"0x10", 0},
      {"2147483647", 2147483647},
      {"2147483648", 2147483647},
      {"-2147483648", -2147483647 - 1},
      {"-2147483649", -2147483647 - 1},
      {std::string(10'000, '9'), 2147483647},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ParseDecimal(row.text), row.number) << row.text;
  }
}

TEST(BitrateList, CountsNumbersBehindWhichACommaStands) {
  const struct {
    const char* text;
    Numbers bitrates;
  } rows[] = {
      {"256,512,768,1000,1500,2000,3000,e", {256, 512, 768, 1000, 1500, 2000, 3000}},
      {"256,512e", {256}},  // the last one is lost
      {"256,512", {256}},
      {"256,512,", {256, 512}},
      {"256,e512,", {256}},  // the letter ends it
      {"e", {}},
      {"", {}},
      {",", {0}},
      {"x,7y,-3,", {0, 7, -3}},
      {"900,100,", {900, 100}},  // not sorted
      {" 1 , 2 ,", {1, 2}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ParseBitrateList(row.text), row.bitrates) << row.text;
  }
}

TEST(HostVersion, IsDecidedByTheFirstNumberThatDiffers) {
  const struct {
    HostVersion version;
    bool isAtLeast;
  } rows[] = {
      {{5, 12, 0, 0}, true}, {{5, 12, 0, 1}, true},    {{5, 12, 1, 0}, true},
      {{6, 0, 0, 0}, true},  {{5, 11, 99, 99}, false}, {{4, 99, 99, 99}, false},
      {{0, 0, 0, 0}, false}, {{5, 13, 0, 0}, true},    {{5, 11, 65535, 0}, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.version.IsAtLeast(5, 12, 0, 0), row.isAtLeast)
        << row.version.major << '.' << row.version.minor;
  }
  EXPECT_FALSE((HostVersion{5, 12, 3, 4}.IsAtLeast(5, 12, 3, 5)));
}

TEST(ChannelTiming, IsWhatCamerasNeedAndHostsExpect) {
  const ChannelTiming timing;
  EXPECT_EQ(timing.streamPass.count(), 1000);
  EXPECT_EQ(timing.pause.count(), 3000);
  EXPECT_EQ(timing.receiveTimeout.count(), 5000);
  EXPECT_EQ(timing.startingReceiveTimeout.count(), 10000);
  EXPECT_EQ(timing.packetTimeout.count(), 5000);
}

}  // namespace
}  // namespace sarnevo
