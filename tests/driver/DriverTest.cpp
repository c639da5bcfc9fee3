#include "driver/CKolvexIPCaptureDriver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

#include "camera/RequestPolicy.h"
#include "driver/CapabilityQuery.h"
#include "io/CIOBase.h"
#include "platform/HostProcess.h"
#include "support/FakeHost.h"

namespace sarnevo {
namespace {

using namespace kolvex_test;
using namespace std::chrono_literals;

class DriverTest : public testing::Test {
 protected:
  HostLog log;
  HostLog questions;
  FakeDebugSink sink{log};
  FakeAllocator allocator{log};
  FakeParams params{&questions};
  CKolvexIPCaptureDriver driver;
};

TEST_F(DriverTest, OpenAsksTheHostInAFixedOrder) {
  params.settings = CameraSettings("1", "5000");
  params.settings[8] = "256,512,e";
  params.settings[9] = "00:11";
  ASSERT_TRUE(driver.Open(&sink, &allocator, &params));
  EXPECT_EQ(questions.Text(),
            "GetCustomSetting 1\n"
            "GetConnection\nGetCodec\n"
            "GetDevice\nGetChannelCount\n"
            "GetModel\nGetInputCount\nGetOutputCount\n"
            "GetAddress\nGetPort\nGetUserName\nGetPassword\n"
            "GetCustomSetting 2\nGetCustomSetting 3\n"
            "GetCustomSetting 4\nGetCustomSetting 5\nGetCustomSetting 6\n"
            "GetCustomSetting 7\nGetCustomSetting 8\nGetCustomSetting 9\n");
  EXPECT_EQ(log.Text(),
            "OnDebugInfo 3 DRIVER IS OPENED (name: NewKolvexIPCapture, device model: KX-1, "
            "address: 127.0.0.1:80)\n");
  const CQualitySettings& quality = driver.GetQualitySettings();
  EXPECT_EQ((std::vector{quality.maxQualityJPEG, quality.minQualityJPEG, quality.maxQualityMPEG,
                         quality.minQualityMPEG}),
            (std::vector{16, 4, 3000, 256}));
  EXPECT_EQ(quality.bitrates, (std::vector<i32>{256, 512}));
  EXPECT_EQ(driver.GetMacAddress(), "00:11");
  EXPECT_EQ(driver.GetVideoStandard(), VideoStandardPAL);
  EXPECT_EQ(driver.GetVideoCapture()->GetChannelCount(), 1U);
  EXPECT_EQ(driver.GetVideoCapture(), driver.GetVideoCaptureEx());
  EXPECT_EQ(driver.GetCaptureIO(), nullptr);

  params.settings[2] = "2";
  params.settings[3] = "0";
  questions.Clear();
  CKolvexIPCaptureDriver group2;
  ASSERT_TRUE(group2.Open(&sink, &allocator, &params));
  EXPECT_EQ(questions.Count("GetCustomSetting"), 3U) << "the others are group 1's";
  EXPECT_EQ(group2.GetVideoStandard(), VideoStandardNTSC);
  EXPECT_EQ(group2.GetMacAddress(), "");
}

// Every other test shortens them.
TEST_F(DriverTest, HasTheTimesThatCamerasNeedAndHostsExpect) {
  const ChannelTiming& channel = driver.GetChannelTiming();
  const std::vector times{
      channel.streamPass,    channel.pause,       channel.receiveTimeout, channel.startingReceiveTimeout,
      channel.packetTimeout, channel.rtspReceive, channel.rtspReply,      channel.farewell,
      channel.reporterStop};
  EXPECT_EQ(times,
            (std::vector{1000ms, 3000ms, 5000ms, 10'000ms, 5000ms, 2000ms, 300'000ms, 5000ms, 10'000ms}));
  const struct {
    RequestPolicy real;
    u32 timeout;
    u32 limit;
  } requests[] = {
      {request_policy::kDetection, 5000, 30'000},
      {request_policy::kConfiguration, kDeviceTimeout, 300'000},
      {request_policy::kInputs, kDeviceTimeout, 300'000},
      {request_policy::kOutput, kDeviceTimeout, 300'000},
      {request_policy::kPtz, 5000, 15'000},
  };
  for (const auto& request : requests) {
    EXPECT_EQ(request.real.timeout, request.timeout);
    EXPECT_EQ(request.real.limit, request.limit);
  }
  EXPECT_EQ(QueryTiming().stopWait, 10'000ms);
  EXPECT_EQ(CIOBase::kStopTimeoutMs, 5000U);
}

TEST_F(DriverTest, SettingsDecideWhetherItOpens) {
  const struct {
    std::map<u32, std::string> settings;
    bool opens;
    u32 timeout;
    bool hasVideo;
  } rows[] = {
      {{{1, "700"}, {2, "1"}, {3, "1"}}, true, 700, true}, {{{2, "1"}, {3, "1"}}, true, 5000, true},
      {{{1, "0"}, {2, "1"}, {3, "1"}}, true, 5000, true},  {{{1, "1"}, {3, "1"}}, false, 1, false},
      {{{2, "3"}, {3, "1"}}, false, 5000, false},          {{{2, "2"}}, false, 5000, true},
      {{{2, "2"}, {3, "PAL"}}, true, 5000, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.settings));
    log.Clear();
    params.settings = row.settings;
    EXPECT_EQ(driver.Open(&sink, &allocator, &params), row.opens);
    EXPECT_EQ(driver.GetNetworkTimeout(), row.timeout);
    EXPECT_EQ(driver.GetVideoCapture() != nullptr, row.hasVideo);
    EXPECT_EQ(log.Text().empty(), !row.opens);  // a failure sends no message
    driver.Close();
    EXPECT_EQ(driver.GetVideoCapture(), nullptr);
  }
}

TEST(BitrateList, CountsNumbersWithACommaAfterThem) {
  const std::pair<std::string, std::vector<i32>> rows[] = {
      {"256,512", {256}},    // the last one is lost
      {"256,e512,", {256}},  // the letter ends it
      {"", {}},
      {",x,7y,-3,+5,+-5,", {0, 0, 7, -3, 5, 0}},
      {" \t\r\n900 , 0100 ,", {900, 100}},  // not sorted
      {"2147483648,-2147483649," + std::string(10'000, '9') + ",", {2147483647, INT32_MIN, 2147483647}},
  };
  for (const auto& [text, bitrates] : rows) {
    EXPECT_EQ(ParseBitrateList(text), bitrates) << text;
  }
}

TEST_F(DriverTest, TakesNullAndThrowingHostsForEmptyOnes) {
  struct Thrower : FakeParams {
    const char* GetModel() override { throw std::runtime_error("host"); }
    u16 GetPort() override { throw 1; }
  } thrower;
  ASSERT_TRUE(driver.Open(&sink, nullptr, &thrower));
  EXPECT_EQ(driver.GetDeviceModel() + std::to_string(driver.GetPort()), "0");

  params.model = params.address = params.user = params.password = nullptr;
  ASSERT_TRUE(driver.Open(nullptr, nullptr, &params));
  EXPECT_EQ(driver.GetAddress() + driver.GetUserName() + driver.GetPassword() + driver.GetDeviceModel(), "");

  params.hasDevice = params.hasConnection = false;
  EXPECT_TRUE(driver.Open(&sink, &allocator, &params));
  EXPECT_FALSE(driver.Open(&sink, &allocator, nullptr));
}

TEST_F(DriverTest, LevelsReachTheHostByItsAge) {
  const struct {
    u16 major;  // of the host's core library; 0: it has none
    u16 minor;
    u32 level;
    u32 seen;  // 0: nothing is
  } rows[] = {
      {0, 0, 1, 1},  {0, 0, 3, 3},  {0, 0, 4, 0},     {0, 0, 0x14, 4}, {5, 12, 3, 3}, {5, 11, 3, 2},
      {5, 11, 1, 1}, {5, 11, 4, 0}, {5, 11, 0x13, 3}, {4, 99, 3, 2},   {6, 0, 3, 3},
  };
  const std::string library = *platform::HostExecutableFolder() + "/ovanhost.dll";
  for (const auto& row : rows) {
    std::ifstream file(KOLVEX_VERSIONS + std::string(row.minor == 99 ? "/pe32" : "/pe32-plus"),
                       std::ios::binary);
    std::string image(std::istreambuf_iterator<char>(file), {});
    const std::size_t version = image.find(std::string("\x0B\0\x05\0", 4));  // 5.11
    ASSERT_NE(version, image.npos);
    if (row.major != 0) {
      image[version] = static_cast<char>(row.minor);
      image[version + 2] = static_cast<char>(row.major);
      std::ofstream(library, std::ios::binary) << image;
    }
    ASSERT_TRUE(driver.Open(&sink, &allocator, &params));
    std::filesystem::remove(library);
    log.Clear();
    driver.DebugMessage(row.level, "text %d", 7);
    EXPECT_EQ(log.Text(), row.seen != 0 ? "OnDebugInfo " + std::to_string(row.seen) + " text 7\n" : "")
        << row.level << " in " << row.major << '.' << row.minor;
  }
}

TEST_F(DriverTest, MessagesOfAnyLengthArriveWholeAndAnEmptyOneAsNull) {
  driver.DebugMessage(1, "before Open there is no sink");
  ASSERT_TRUE(driver.Open(&sink, &allocator, &params));
  log.Clear();
  const std::string longText(100'000, 'x');
  driver.DebugMessage(1, "%s", longText.c_str());
  driver.DebugMessage(1, "%s", "");
  sink.onDebugInfo = [] { throw std::runtime_error("host"); };
  driver.DebugMessage(1, "%s: 100%% %s", "name", "of it");
  EXPECT_EQ(log.Text(),
            "OnDebugInfo 1 " + longText + "\nOnDebugInfo 1 (null)\nOnDebugInfo 1 name: 100% of it\n");
}

}  // namespace
}  // namespace sarnevo
