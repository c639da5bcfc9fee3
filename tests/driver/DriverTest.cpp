#include "driver/CKolvexIPCaptureDriver.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "platform/HostProcess.h"
#include "platform/Thread.h"
#include "support/CountAllocations.h"
#include "support/FakeHost.h"
#include "support/VersionImage.h"

namespace sarnevo {
namespace {

using kolvex_test::FakeAllocator;
using kolvex_test::FakeDebugSink;
using kolvex_test::FakeParams;
using kolvex_test::HostLog;

// The host's core library, of a given version, beside the test program for as long as the object lives.
class CoreLibrary {
 public:
  CoreLibrary(u16 major, u16 minor) : path_(platform::HostExecutableFolder().value() + "/ovanhost.dll") {
    platform::Image image(true);
    image.Put16(platform::kFixed + 18, major).Put16(platform::kFixed + 16, minor);
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(image.Bytes().data()),
               static_cast<std::streamsize>(image.Bytes().size()));
  }
  ~CoreLibrary() { std::filesystem::remove(path_); }

 private:
  const std::string path_;
};

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
}

TEST_F(DriverTest, TakesEachSettingForItsOwnField) {
  params.settings = {{2, "1"},    {3, "1"},   {4, "16"},        {5, "4"},
                     {6, "3000"}, {7, "256"}, {8, "256,512,e"}, {9, "00:11"}};
  ASSERT_TRUE(driver.Open(&sink, &allocator, &params));
  const CQualitySettings& quality = driver.GetQualitySettings();
  EXPECT_EQ(quality.maxQualityJPEG, 16);
  EXPECT_EQ(quality.minQualityJPEG, 4);
  EXPECT_EQ(quality.maxQualityMPEG, 3000);
  EXPECT_EQ(quality.minQualityMPEG, 256);
  EXPECT_EQ(quality.bitrates, (std::vector<i32>{256, 512}));
  EXPECT_EQ(driver.GetMacAddress(), "00:11");
  EXPECT_EQ(driver.GetVideoStandard(), VideoStandardPAL);
  EXPECT_EQ(driver.GetVideoCapture()->GetChannelCount(), 1U);
}

TEST_F(DriverTest, DoesNotAskForGroup1SettingsOfAGroup2Camera) {
  params.settings = {{2, "2"}, {3, "0"}, {4, "16"}, {8, "256,"}, {9, "00:11"}};
  ASSERT_TRUE(driver.Open(&sink, &allocator, &params));
  EXPECT_EQ(questions.Count("GetCustomSetting"), 3U);
  EXPECT_EQ(driver.GetGroup(), 2U);
  EXPECT_EQ(driver.GetVideoStandard(), VideoStandardNTSC);
  EXPECT_EQ(driver.GetMacAddress(), "");
  EXPECT_EQ(driver.GetQualitySettings().maxQualityJPEG, 0);
}

TEST_F(DriverTest, SettingsDecideWhetherItOpens) {
  const struct {
    const char* name;
    std::map<u32, std::string> settings;
    bool opens;
    u32 timeout;
    bool hasVideo;
  } rows[] = {
      {"time-out given", {{1, "700"}, {2, "1"}, {3, "1"}}, true, 700, true},
      {"time-out missing", {{2, "1"}, {3, "1"}}, true, 5000, true},
      {"time-out 0", {{1, "0"}, {2, "1"}, {3, "1"}}, true, 5000, true},
      {"time-out no number", {{1, "abc"}, {2, "1"}, {3, "1"}}, true, 5000, true},
      {"time-out empty", {{1, ""}, {2, "1"}, {3, "1"}}, true, 5000, true},
      {"time-out negative", {{1, "-1"}, {2, "1"}, {3, "1"}}, true, 5000, true},
      {"time-out beyond 32 bits", {{1, "99999999999"}, {2, "1"}, {3, "1"}}, true, 2147483647, true},
      {"group missing", {{1, "1"}, {3, "1"}}, false, 1, false},
      {"group 0", {{2, "0"}, {3, "1"}}, false, 5000, false},
      {"group 3", {{2, "3"}, {3, "1"}}, false, 5000, false},
      {"group no number", {{2, "one"}, {3, "1"}}, false, 5000, false},
      {"standard missing", {{2, "2"}}, false, 5000, true},
      {"standard no number", {{2, "2"}, {3, "PAL"}}, true, 5000, true},
      {"nothing", {}, false, 5000, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    CKolvexIPCaptureDriver own;
    log.Clear();
    params.settings = row.settings;
    EXPECT_EQ(own.Open(&sink, &allocator, &params), row.opens);
    EXPECT_EQ(own.GetNetworkTimeout(), row.timeout);
    EXPECT_EQ(own.GetVideoCapture() != nullptr, row.hasVideo);
    EXPECT_EQ(log.Text().empty(), !row.opens);  // a failure sends no message
    own.Close();
    EXPECT_EQ(own.GetVideoCapture(), nullptr);
    own.Close();
  }
}

TEST_F(DriverTest, TakesNullAndThrowingHostsForEmptyOnes) {
  struct Thrower : FakeParams {
    const char* GetModel() override { throw std::runtime_error("host"); }
    u16 GetPort() override { throw 1; }
  } thrower;
  ASSERT_TRUE(driver.Open(&sink, nullptr, &thrower));
  EXPECT_EQ(driver.GetDeviceModel(), "");
  EXPECT_EQ(driver.GetPort(), 0);

  CKolvexIPCaptureDriver second;
  params.model = params.address = params.user = params.password = nullptr;
  ASSERT_TRUE(second.Open(nullptr, nullptr, &params));
  EXPECT_EQ(second.GetAddress() + second.GetUserName() + second.GetPassword() + second.GetDeviceModel(), "");

  CKolvexIPCaptureDriver third;
  params.hasDevice = params.hasConnection = false;
  ASSERT_TRUE(third.Open(&sink, &allocator, &params));
  EXPECT_EQ(third.GetChannelCount(), 0U);
  EXPECT_FALSE(CKolvexIPCaptureDriver().Open(&sink, &allocator, nullptr));
}

// Whichever piece of memory is missing, Open either copes without it or gives false, and throws nothing.
TEST_F(DriverTest, OpensWithoutMemoryForASingleThingOrSaysSo) {
  struct Frugal : FakeParams {  // takes no memory itself
    const char* GetCustomSetting(u32 index) override {
      return index == 8 ? "256,512,e" : index == 9 ? "00:11:22:33:44:55, beyond the small string" : "1";
    }
  } frugal;
  frugal.inputs = 1;
  frugal.address = "an address beyond the small string";
  std::size_t refused = 0;
  for (std::size_t allowed = 0;; ++allowed) {
    SCOPED_TRACE(allowed);
    CKolvexIPCaptureDriver own;
    bool opened = false;
    kolvex_test::FailAllocationBehind(allowed);
    EXPECT_NO_THROW(opened = own.Open(nullptr, &allocator, &frugal));
    const bool enough = kolvex_test::CancelFailure();
    refused += opened ? 0 : 1;
    if (enough) {
      EXPECT_TRUE(opened);
      break;
    }
    EXPECT_TRUE(!opened || own.GetAddress() == frugal.address) << "opened without all it was told";
    EXPECT_TRUE(!opened || own.GetMacAddress() == frugal.GetCustomSetting(9));
  }
  EXPECT_GT(refused, 5U);
}

TEST_F(DriverTest, GivesTheSameObjectsUnderBothNamesAndNothingThatItLacks) {
  CKolvexIPCaptureDriver& created = driver;
  EXPECT_EQ(created.GetVideoCapture(), nullptr);
  ASSERT_TRUE(created.Open(&sink, &allocator, &params));
  EXPECT_EQ(created.GetVideoCapture(), created.GetVideoCaptureEx());
  EXPECT_EQ(created.GetCaptureIO(), nullptr);
  EXPECT_EQ(created.GetOptionalA(), nullptr);
  EXPECT_EQ(created.GetOptionalB(), nullptr);
}

TEST_F(DriverTest, LevelsReachTheHostByItsAge) {
  const struct {
    std::optional<std::pair<u16, u16>> hostVersion;
    u32 level;
    const char* seen;
  } rows[] = {
      {std::nullopt, 1, "OnDebugInfo 1 text 7\n"},
      {std::nullopt, 3, "OnDebugInfo 3 text 7\n"},
      {std::nullopt, 4, ""},
      {std::nullopt, 0x14, "OnDebugInfo 4 text 7\n"},
      {{{5, 12}}, 3, "OnDebugInfo 3 text 7\n"},
      {{{5, 11}}, 3, "OnDebugInfo 2 text 7\n"},
      {{{5, 11}}, 1, "OnDebugInfo 1 text 7\n"},
      {{{5, 11}}, 4, ""},
      {{{5, 11}}, 0x13, "OnDebugInfo 3 text 7\n"},
      {{{4, 99}}, 3, "OnDebugInfo 2 text 7\n"},
      {{{6, 0}}, 3, "OnDebugInfo 3 text 7\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.level);
    std::optional<CoreLibrary> library;
    if (row.hostVersion) {
      library.emplace(row.hostVersion->first, row.hostVersion->second);
    }
    CKolvexIPCaptureDriver own;
    ASSERT_TRUE(own.Open(&sink, &allocator, &params));
    log.Clear();
    own.DebugMessage(row.level, "text %d", 7);
    EXPECT_EQ(log.Text(), row.seen);
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

// What the message holds must not stay behind when the sink's host ends the thread that wrote it.
TEST_F(DriverTest, AMessageWhoseThreadIsGivenUpInTheSinkLeavesNothingBehind) {
  ASSERT_TRUE(driver.Open(&sink, &allocator, &params));
  sink.onDebugInfo = [] { EXPECT_TRUE(platform::current_thread::Abandon()); };
  bool cameBack = false;
  platform::Thread thread;
  ASSERT_TRUE(thread.Start("writer", [&] {
    driver.DebugMessage(1, "%s", "a text on the heap");
    cameBack = true;
  }));
  EXPECT_TRUE(log.WaitFor("OnDebugInfo 1 a text"));
  EXPECT_EQ(thread.Wait(), platform::WaitResult::Signalled);
  EXPECT_FALSE(cameBack);
}

}  // namespace
}  // namespace sarnevo
