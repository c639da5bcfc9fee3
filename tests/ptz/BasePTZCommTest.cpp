#include "ptz/CBasePTZComm.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "platform/Event.h"
#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::HostLog;
using kolvex_test::PtzFixture;
using kolvex_test::Take;

// Writes each item down as its type and parameters; the thread can be held in one.
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
  HostLog items;
  platform::Event goOn{true, true};

 protected:
  void HandleWorkItem(IWorkItem* work) override {
    const auto& item = static_cast<const CWorkItem&>(*work);
    items.Add(std::to_string(item.type) + ": " + std::to_string(item.param1) + " " +
              std::to_string(item.param2) + " " + std::to_string(item.param3) + " " +
              std::to_string(item.param4));
    goOn.Wait(platform::Milliseconds{20'000});
  }
};

TEST(CBasePTZComm, RefusesWithAMessageWhileItIsClosed) {
  struct Row {
    const char* operation;
    i32 (*call)(Comm&);
    const char* item;  // also begins with the number in the message
  };
  constexpr Row kRows[] = {
      {"StartMove", [](Comm& c) { return c.StartMove(nullptr, 77, 16); }, "1: 77 16 0 0\n"},
      {"StopMove", [](Comm& c) { return c.StopMove(nullptr); }, "0: 0 0 0 0\n"},
      {"Iris", [](Comm& c) { return c.Iris(nullptr, 255, 99); }, "2: 14 0 0 0\n"},
      {"Focus", [](Comm& c) { return c.Focus(nullptr, 0, 1); }, "2: 11 0 0 0\n"},
      {"AreaZoom", [](Comm& c) { return c.AreaZoom(nullptr, 6, 7, 8, 9); }, "3: 6 7 8 9\n"},
      {"Unzoom", [](Comm& c) { return c.Unzoom(nullptr, 6); }, "5: 6 0 0 0\n"},
      {"Center", [](Comm& c) { return c.Center(nullptr, 6, 7, 8); }, "4: 6 7 8 0\n"},
  };
  PtzFixture fixture("1");
  Comm comm(fixture.handler.get());
  for (int round = 0; round < 2; ++round) {  // never opened, and closed
    std::string items;
    for (const Row& row : kRows) {
      EXPECT_EQ(row.call(comm), -1) << row.operation;
      EXPECT_EQ(Take(fixture.messages), std::string("OnDebugInfo 1 sarnevo::CBasePTZComm::") + row.operation +
                                            ": cannot send message (" + row.item[0] + ") to thread\n");
      items += row.item;
    }
    EXPECT_EQ(comm.StartMove(nullptr, 1, 17), -3);
    EXPECT_EQ(comm.StartMove(nullptr, 1, 0), 1) << "there is nothing to queue";
    ASSERT_EQ(comm.Open(), 1);
    comm.goOn.Reset();  // all are queued before the second one is done, and none is merged with its like
    for (int twice = 0; twice < 2; ++twice) {
      for (const Row& row : kRows) {
        EXPECT_EQ(row.call(comm), 1) << row.operation;
      }
    }
    comm.goOn.Set();
    EXPECT_EQ(Take(comm.items, 2 * std::size(kRows)), items + items);
    EXPECT_EQ(comm.Close(), 1);
    EXPECT_EQ(comm.Close(), 1);
    EXPECT_EQ(fixture.messages.Text(), "");
  }
}

TEST(CBasePTZComm, OpensOnceAndReadsTheProtocolEachTime) {
  PtzFixture fixture("1");
  Comm comm(fixture.handler.get());
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
  EXPECT_EQ(Take(fixture.messages), "OnDebugInfo 1 sarnevo::CBasePTZComm::Open: unable to create thread\n");
  comm.Stop();
  EXPECT_EQ(comm.Open(), 1);
}

}  // namespace
}  // namespace sarnevo
