#include "io/CKolvexIOHandler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "driver/CKolvexIPCaptureDriver.h"
#include "io/FakeHost.h"

namespace sarnevo {
namespace {

TEST(CKolvexIOHandler, DescribesTheCameraAndWritesFinishedText) {
  HostLog log;
  kolvex_test::FakeDebugSink sink(log);
  kolvex_test::FakeParams params = Camera(3, 5, 8080);
  CKolvexIPCaptureDriver driver;
  ASSERT_TRUE(driver.Open(&sink, nullptr, &params));
  CKolvexIOHandler handler(&driver);
  CIPCaptureIOBaseHandlerIf& host = handler;
  EXPECT_STREQ(host.GetDriverName(), "NewKolvexIPCapture");
  EXPECT_EQ(host.GetPort(), 8080);
  EXPECT_EQ(host.GetAddress(), "127.0.0.1");
  EXPECT_EQ(host.GetUserName(), "user");
  EXPECT_EQ(host.GetPassword(), "secret");

  CameraIOSettings& settings = *host.GetSettings();
  EXPECT_EQ(settings.inputCount, 3u);
  EXPECT_EQ(settings.outputCount, 5u);
  EXPECT_EQ(settings.interval, 1000u);
  EXPECT_EQ(settings.texts.size(), 35u);
  EXPECT_TRUE(std::ranges::all_of(settings.texts, [](const auto& text) { return text.empty(); }));

  log.Clear();
  host.WriteDebug(DebugLevelFailure, "%s at %u%%", "100%s", 7u);
  host.WriteDebug(DebugLevelDropped, "nobody hears this");
  EXPECT_EQ(log.Text(), "OnDebugInfo 1 100%s at 7%\n");
}

}  // namespace
}  // namespace sarnevo
