#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/Event.h"
#include "ptz/CGroup1PTZComm.h"
#include "ptz/PtzFakes.h"

namespace sarnevo {
namespace {

using kolvex_test::FakeDevice;
using kolvex_test::FakeLens;
using kolvex_test::SerialCamera;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRequestTimeout{5000};

void Drip(SerialCamera::Connection& connection, const std::string&) {
  connection.Drip("HTTP/1.1 200 OK\r\nX: " + std::string(100'000, 'x'), std::chrono::milliseconds{20});
}

TEST(PtzClose, BreaksOffARequestThatHangsAndThrowsAwayTheQueue) {
  struct Row {
    const char* name;
    SerialCamera::Answer answer;
  };
  const Row rows[] = {{"a camera that doesn't answer", SerialCamera::Hang}, {"a camera that drips", Drip}};
  for (const Row& row : rows) {
    SerialCamera camera("1");
    camera.SetAnswer(row.answer);
    FakeDevice device(camera.Port());
    FakeLens lens;
    CGroup1PTZComm comm(&device);
    for (int round = 0; round < 2; ++round) {  // an object that was closed in this way opens again
      ASSERT_EQ(comm.Open(), 1);
      camera.Requests().Take();
      for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(comm.StartMove(&lens, PtzLeft, 8), 1);
      }
      camera.Requests().WaitFor(1);
      const auto start = steady_clock::now();
      EXPECT_EQ(comm.Close(), 1);
      EXPECT_LT(steady_clock::now() - start, kRequestTimeout / 2) << row.name;
      EXPECT_EQ(camera.Requests().Text(), "010283\n") << row.name;
    }
  }
}

TEST(PtzClose, LetsACommandThatIsUnderWayReachTheCamera) {
  SerialCamera camera("1");
  platform::Event closing(false, true);
  kolvex_test::Lines ends;
  camera.SetAnswer([&](SerialCamera::Connection& connection, const std::string& request) {
    closing.Wait(platform::Milliseconds{20'000});
    std::this_thread::sleep_for(std::chrono::milliseconds{100});  // a camera that takes its time
    SerialCamera::Ok(connection, request);
    ends.Add("answered");
  });
  FakeDevice device(camera.Port());
  FakeLens lens;
  CGroup1PTZComm comm(&device);
  ASSERT_EQ(comm.Open(), 1);
  camera.Requests().Take();
  lens.focus = 1;
  ASSERT_EQ(comm.StartMove(&lens, PtzLeft, 8), 1);
  ASSERT_EQ(camera.Requests().WaitFor(1), "0100D5\n");
  closing.Set();
  comm.Close();
  EXPECT_EQ(ends.Text(), "answered\nanswered\n");
  EXPECT_EQ(camera.Requests().Text(), "0100D5\n010283\n") << "all requests of the item";
  EXPECT_EQ(device.messages.Text(), "");
}

// No time-out ever ends such a reply, and a stop command waits behind it.
TEST(PtzClose, EndsADrippingReplyByItself) {
  SerialCamera camera("1");
  camera.SetAnswer(Drip);
  FakeDevice device(camera.Port());
  FakeLens lens;
  CGroup1PTZComm comm(&device, {.requestTimeout = 200, .requestLimit = 600});
  ASSERT_EQ(comm.Open(), 1);
  ASSERT_EQ(comm.StartMove(&lens, PtzLeft, 8), 1);
  EXPECT_NE(device.messages.WaitFor(1).find("HandleWorkItem: cannot send"), std::string::npos);
  EXPECT_FALSE(comm.StorePreset(1));
}

}  // namespace
}  // namespace sarnevo
