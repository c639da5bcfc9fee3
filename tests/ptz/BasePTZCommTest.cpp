#include "ptz/CBasePTZComm.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "platform/Event.h"
#include "ptz/PtzFakes.h"

namespace sarnevo {
namespace {

using kolvex_test::FakeDevice;
using kolvex_test::FakeLens;
using kolvex_test::Lines;

constexpr platform::Milliseconds kLimit{20'000};

// Writes each item down as its type and parameters.
class Comm : public CBasePTZComm {
 public:
  using CBasePTZComm::CBasePTZComm;
  ~Comm() override { Close(); }

  u32 IsPTZAvailable(IIPParams*) override { return 1; }
  i32 GetCapabilities(CPtzCapabilities*) override { return 1; }
  u32 GetPtzProtocol() override { return protocol; }
  bool StorePreset(u32) override { return true; }
  bool GotoPreset(u32, u32) override { return true; }
  bool DeletePreset(u32) override { return true; }
  std::string StopText() const { return Commands().StopCommand(); }

  u32 protocol = 1;
  Lines items;
  std::function<void()> onItem;

 protected:
  void HandleWorkItem(IWorkItem* work) override {
    const auto& item = static_cast<const CWorkItem&>(*work);
    if (onItem) {
      onItem();
    }
    std::string line = item.params != nullptr ? "" : "nobody's ";
    for (const u32 number : {item.type, item.param1, item.param2, item.param3, item.param4}) {
      line += std::to_string(number) + " ";
    }
    line.pop_back();
    items.Add(line);
  }
};

TEST(CBasePTZComm, ChecksAndQueues) {
  struct Row {
    const char* name;
    i32 (*call)(Comm&, IIPParams*);
    i32 result;
    const char* item;
  };
  constexpr Row kRows[] = {
      {"the slowest move", [](Comm& c, IIPParams* p) { return c.StartMove(p, 4, 1); }, 1, "1 4 1 0 0"},
      {"the fastest move", [](Comm& c, IIPParams* p) { return c.StartMove(p, 1, 16); }, 1, "1 1 16 0 0"},
      {"too fast", [](Comm& c, IIPParams* p) { return c.StartMove(p, 1, 17); }, -3, ""},
      {"below 0", [](Comm& c, IIPParams* p) { return c.StartMove(p, 1, -1); }, -3, ""},
      {"no speed is no stop", [](Comm& c, IIPParams* p) { return c.StartMove(p, 1, 0); }, 1, ""},
      {"any direction", [](Comm& c, IIPParams* p) { return c.StartMove(p, 77, 8); }, 1, "1 77 8 0 0"},
      {"stop", [](Comm& c, IIPParams* p) { return c.StopMove(p); }, 1, "0 0 0 0 0"},
      {"focus far", [](Comm& c, IIPParams* p) { return c.Focus(p, 0, 1); }, 1, "2 11 0 0 0"},
      {"focus near", [](Comm& c, IIPParams* p) { return c.Focus(p, 1, 5); }, 1, "2 12 0 0 0"},
      {"focus stop", [](Comm& c, IIPParams* p) { return c.Focus(p, 0, 0); }, 1, "2 15 0 0 0"},
      {"focus stop too", [](Comm& c, IIPParams* p) { return c.Focus(p, 1, 0); }, 1, "2 15 0 0 0"},
      {"iris close", [](Comm& c, IIPParams* p) { return c.Iris(p, 0, 1); }, 1, "2 13 0 0 0"},
      {"iris open", [](Comm& c, IIPParams* p) { return c.Iris(p, 255, 0xFFFFFFFF); }, 1, "2 14 0 0 0"},
      {"iris stop", [](Comm& c, IIPParams* p) { return c.Iris(p, 0, 0); }, 1, "2 16 0 0 0"},
      {"iris stop too", [](Comm& c, IIPParams* p) { return c.Iris(p, 1, 0); }, 1, "2 16 0 0 0"},
      {"area zoom", [](Comm& c, IIPParams* p) { return c.AreaZoom(p, 6, 7, 8, 9); }, 1, "3 6 7 8 9"},
      {"center", [](Comm& c, IIPParams* p) { return c.Center(p, 6, 7, 8); }, 1, "4 6 7 8 0"},
      {"unzoom", [](Comm& c, IIPParams* p) { return c.Unzoom(p, 6); }, 1, "5 6 0 0 0"},
  };
  FakeDevice device;
  FakeLens lens;
  Comm comm(&device);
  ASSERT_EQ(comm.Open(), 1);
  for (const Row& row : kRows) {
    EXPECT_EQ(row.call(comm, &lens), row.result) << row.name;
    // The stop tells that nothing came in front of it.
    ASSERT_EQ(comm.StopMove(&lens), 1);
    const std::string item = row.item;
    EXPECT_EQ(comm.items.WaitFor(item.empty() ? 1 : 2), item.empty() ? "0 0 0 0 0\n" : item + "\n0 0 0 0 0\n")
        << row.name;
    comm.items.Take();
  }
  EXPECT_EQ(device.messages.Text(), "");
}

TEST(CBasePTZComm, RefusesWithAMessageWhileItIsClosed) {
  FakeDevice device;
  FakeLens lens;
  Comm comm(&device);
  const std::string messages =
      "1 sarnevo::CBasePTZComm::StartMove: cannot send message (1) to thread\n"
      "1 sarnevo::CBasePTZComm::StopMove: cannot send message (0) to thread\n"
      "1 sarnevo::CBasePTZComm::Iris: cannot send message (2) to thread\n"
      "1 sarnevo::CBasePTZComm::Focus: cannot send message (2) to thread\n"
      "1 sarnevo::CBasePTZComm::AreaZoom: cannot send message (3) to thread\n"
      "1 sarnevo::CBasePTZComm::Unzoom: cannot send message (5) to thread\n"
      "1 sarnevo::CBasePTZComm::Center: cannot send message (4) to thread\n";
  for (const char* state : {"unopened", "closed"}) {
    EXPECT_EQ(comm.StartMove(&lens, 1, 1), -1) << state;
    EXPECT_EQ(comm.StopMove(&lens), -1) << state;
    EXPECT_EQ(comm.Iris(&lens, 1, 1), -1) << state;
    EXPECT_EQ(comm.Focus(&lens, 1, 1), -1) << state;
    EXPECT_EQ(comm.AreaZoom(&lens, 1, 2, 3, 4), -1) << state;
    EXPECT_EQ(comm.Unzoom(&lens, 1), -1) << state;
    EXPECT_EQ(comm.Center(&lens, 1, 2, 3), -1) << state;
    EXPECT_EQ(device.messages.Take(), messages) << state;

    EXPECT_EQ(comm.StartMove(&lens, 1, 17), -3) << state;
    EXPECT_EQ(comm.StartMove(&lens, 1, 0), 1) << state;
    EXPECT_EQ(device.messages.Take(), "") << state;

    EXPECT_EQ(comm.Open(), 1);
    EXPECT_EQ(comm.Close(), 1);
    EXPECT_EQ(comm.Close(), 1);
  }
  EXPECT_EQ(comm.items.Text(), "");
}

TEST(CBasePTZComm, OpensOnceAndReadsTheProtocolEachTime) {
  FakeDevice device;
  Comm comm(&device);
  EXPECT_EQ(comm.StopText(), "");
  EXPECT_EQ(comm.Open(), 1);
  EXPECT_EQ(comm.StopText(), "/serial.cgi?action=apply&port=2&write=0100FF");
  comm.protocol = 2;
  EXPECT_EQ(comm.Open(), 1);
  EXPECT_EQ(comm.StopText(), "/serial.cgi?action=apply&port=2&write=FF010000000001");
  EXPECT_EQ(comm.Close(), 1);

  // A thread of the object's that isn't Open's is as good as one that can't be made.
  ASSERT_TRUE(comm.Start("other"));
  EXPECT_EQ(comm.Open(), -1);
  EXPECT_EQ(device.messages.Text(), "1 sarnevo::CBasePTZComm::Open: unable to create thread\n");
  comm.Stop();
  EXPECT_EQ(comm.Open(), 1);
}

TEST(CBasePTZComm, NeitherMergesNorReordersAndThrowsAwayAtClose) {
  FakeDevice device;
  FakeLens lens;
  Comm comm(&device);
  platform::Event inside(false, true);
  platform::Event goOn(false, true);
  comm.onItem = [&] {
    inside.Set();
    goOn.Wait(kLimit);
  };
  ASSERT_EQ(comm.Open(), 1);
  std::string expected;
  for (i32 speed = 1; speed <= 3; ++speed) {
    for (int again = 0; again < 2; ++again) {
      ASSERT_EQ(comm.StartMove(&lens, 1, speed), 1);
      ASSERT_EQ(comm.StopMove(&lens), 1);
      expected += "1 1 " + std::to_string(speed) + " 0 0\n0 0 0 0 0\n";
    }
  }
  goOn.Set();
  EXPECT_EQ(comm.items.WaitFor(12), expected);
  comm.items.Take();

  inside.Reset();
  goOn.Reset();
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(comm.StartMove(&lens, 2, 1), 1);
  }
  ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
  std::thread closing([&] { comm.Close(); });
  while (comm.StartMove(&lens, 1, 1) != -1) {
    std::this_thread::yield();
  }
  goOn.Set();
  closing.join();
  EXPECT_EQ(comm.items.Text(), "1 2 1 0 0\n") << "the one in progress, and no other";
}

}  // namespace
}  // namespace sarnevo
