#include "io/CIOBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "driver/CKolvexIPCaptureDriver.h"
#include "io/FakeHost.h"
#include "io/FakeIO.h"
#include "io/RandomHost.h"
#include "platform/Clock.h"
#include "support/Eventually.h"
#include "support/StopSlack.h"

namespace sarnevo {
namespace {

using kolvex_test::Eventually;

constexpr platform::Milliseconds kLimit{10'000};
using kolvex_test::kStopSlack;

struct Fixture {
  explicit Fixture(u32 inputs, u32 outputs, u32 stopTimeoutMs = CIOBase::kStopTimeoutMs,
                   std::function<void()> inCallback = {})
      : callback(log, std::move(inCallback)) {
    kolvex_test::FakeParams params = Camera(inputs, outputs);
    EXPECT_TRUE(driver.Open(nullptr, nullptr, &params));
    io = std::make_unique<FakeIO>(&driver, log, stopTimeoutMs);
    EXPECT_TRUE(io->SetCallback(&callback));
  }

  HostLog log;
  FakeCallback callback;
  CKolvexIPCaptureDriver driver;
  std::unique_ptr<FakeIO> io;
};

TEST(CIOBase, ReportsEachInputOnceAndThenItsChanges) {
  Fixture f(2, 0);
  f.io->highInputs = 0b10;
  EXPECT_FALSE(f.io->SetCallback(nullptr)) << "keeps the one before";
  ASSERT_TRUE(f.io->Start());
  f.io->AwaitPoll();
  EXPECT_EQ(f.log.Text(), "input 0 is 1\ninput 1 is 2\n");
  f.io->highInputs = 0b11;
  f.io->AwaitPoll();
  EXPECT_EQ(f.log.Text(), "input 0 is 1\ninput 1 is 2\ninput 0 is 2\n");
  f.log.Clear();

  f.io->readsFail = true;
  EXPECT_EQ(Awaited(f.log, "failure\n").substr(0, 8), "failure\n");
  f.io->AwaitPoll();
  f.io->readsFail = false;
  f.log.Clear();
  f.io->AwaitPoll();
  f.io->AwaitPoll();
  EXPECT_THAT(f.log.Text(), ::testing::EndsWith("input 0 is 2\ninput 1 is 2\n"));
  EXPECT_TRUE(f.io->SetOutput(0, IOStateHigh)) << "waits where no thread takes it";
  EXPECT_TRUE(f.io->Stop());
  const u32 polls = f.io->polls;
  EXPECT_TRUE(f.io->Stop());
  EXPECT_EQ(f.io->polls, polls);
}

TEST(CIOBase, SendsOutputsThatChangeInTheirOrderAndAllLowAtEachStart) {
  Fixture f(0, 2);
  EXPECT_TRUE(f.io->SetOutput(1, IOStateHigh)) << "before Start it waits";
  ASSERT_TRUE(f.io->Start());
  EXPECT_FALSE(f.io->Start()) << "the second asks for low again, which it is by then";
  for (const auto& [index, state] : std::initializer_list<std::pair<u32, u32>>{
           {0, IOStateHigh}, {0, IOStateHigh}, {5, IOStateHigh}, {1, IOStateHigh}, {0, IOStateLow}}) {
    EXPECT_TRUE(f.io->SetOutput(index, state));
  }
  const char* const kEnd = "output 0 to 2\noutput 1 to 2\noutput 0 to 1\n";
  EXPECT_TRUE(Eventually([&] { return f.log.Text().ends_with(kEnd); })) << f.log.Text();
  EXPECT_EQ(f.log.Text().substr(0, 42), "output 1 to 2\noutput 0 to 1\noutput 1 to 1\n");
  EXPECT_TRUE(f.io->Stop());
  EXPECT_FALSE(f.io->SetOutput(0, IOStateHigh)) << "stopped";
  f.log.Clear();
  ASSERT_TRUE(f.io->Start());
  const char* const kLow = "output 0 to 1\noutput 1 to 1\n";
  EXPECT_EQ(Awaited(f.log, kLow), kLow) << "the camera was left with output 1 high";
}

TEST(CIOBase, ForgetsAllStatesWhenAnOutputFails) {
  Fixture f(1, 2);
  ASSERT_TRUE(f.io->Start());
  f.io->AwaitPoll();
  ASSERT_TRUE(Eventually([&] { return f.io->Outputs().size() == 2; }));
  f.log.Clear();
  f.io->writesFail = true;
  EXPECT_TRUE(f.io->SetOutput(0, IOStateHigh));
  EXPECT_EQ(Awaited(f.log, "failure\ninput 0 is 1\n"), "failure\ninput 0 is 1\n");
  f.io->writesFail = false;
  f.log.Clear();
  EXPECT_TRUE(f.io->SetOutput(1, IOStateLow)) << "low is no longer known";
  EXPECT_EQ(Awaited(f.log, "output 1 to 1\n"), "output 1 to 1\n");
}

TEST(CIOBase, TakesAnyNumberOfPortsUpToItsBound) {
  struct {
    u32 count;
    bool started;
  } const cases[] = {{0, true}, {1, true}, {64, true}, {256, true}, {257, false}, {4'000'000'000, false}};
  for (const auto& c : cases) {
    for (const bool inputs : {true, false}) {
      SCOPED_TRACE(std::to_string(c.count) + (inputs ? " inputs" : " outputs"));
      Fixture f(inputs ? c.count : 0, inputs ? 0 : c.count);
      EXPECT_EQ(inputs ? f.io->GetInputCount() : f.io->GetOutputCount(), c.count);
      EXPECT_EQ(f.io->Start(), c.started);
      if (c.started && c.count > 0) {
        const std::string last = std::to_string(c.count - 1);
        const std::string end = inputs ? "input " + last + " is 1\n" : "output " + last + " to 1\n";
        EXPECT_TRUE(Eventually([&] { return f.log.Text().ends_with(end); })) << f.log.Text();
      }
      EXPECT_TRUE(f.io->SetOutput(4'000'000'000, 7));
      EXPECT_TRUE(f.io->Stop());
    }
  }
}

TEST(CIOBase, LivesWithoutACallbackAndWithOneThatThrows) {
  kolvex_test::FakeParams params = Camera(1, 1);
  CKolvexIPCaptureDriver driver;
  ASSERT_TRUE(driver.Open(nullptr, nullptr, &params));
  HostLog log;
  FakeIO io(&driver, log);
  ASSERT_TRUE(io.Start());
  io.AwaitPoll();
  io.readsFail = true;
  io.AwaitPoll();
  FakeCallback throws(log, [] { throw 42; });
  io.SetCallback(&throws);
  io.readsFail = false;
  io.AwaitPoll();
  io.AwaitPoll();
  EXPECT_TRUE(io.Stop());
  EXPECT_THAT(log.Text(), ::testing::HasSubstr("input 0 is 1\n"));
}

// A callback that stops, starts or sets, on the input thread and on the output thread.
TEST(CIOBase, MayBeCalledFromItsOwnCallbacks) {
  for (const bool onInput : {true, false}) {
    FakeIO* io = nullptr;
    std::atomic<int> calls{0};
    platform::Event done;
    Fixture f(onInput ? 1 : 0, 1, CIOBase::kStopTimeoutMs, [&] {
      if (++calls == 1) {
        EXPECT_TRUE(io->SetOutput(0, IOStateHigh));
        EXPECT_FALSE(io->Start());
        EXPECT_FALSE(io->Stop());
        EXPECT_FALSE(io->SetOutput(0, IOStateHigh));
        done.Set();
      }
    });
    io = f.io.get();
    io->writesFail = !onInput;
    ASSERT_TRUE(io->Start());
    ASSERT_EQ(done.Wait(kLimit), platform::WaitResult::Signalled);
    EXPECT_TRUE(io->Stop());
    EXPECT_EQ(calls, 1);
    io->writesFail = false;
    EXPECT_TRUE(io->Start());
  }
}

// The owner stops while the callback stops too: neither waits for the other.
TEST(CIOBase, IsStoppedInsideAndOutsideAtOnce) {
  FakeIO* io = nullptr;
  platform::Event inside;
  std::atomic<bool> stopping{false};
  Fixture f(1, 0, CIOBase::kStopTimeoutMs, [&] {
    inside.Set();
    EXPECT_TRUE(Eventually([&] { return stopping.load(); }));
    EXPECT_FALSE(io->Stop());
  });
  io = f.io.get();
  ASSERT_TRUE(io->Start());
  ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
  const u64 begin = platform::MonotonicMilliseconds();
  std::thread late([&] { stopping = true; });
  EXPECT_TRUE(io->Stop());
  late.join();
  EXPECT_LT(platform::MonotonicMilliseconds() - begin, CIOBase::kStopTimeoutMs);
}

TEST(CIOBase, StopsInTimeWithACallbackThatNeverReturnsAndMayThenGo) {
  for (const bool onInput : {true, false}) {
    constexpr u32 kStopTimeout = 100;
    platform::Event inside;
    platform::Event release(false, true);
    std::atomic<int> left{0};
    auto f = std::make_unique<Fixture>(onInput ? 2 : 0, onInput ? 0 : 2, kStopTimeout, [&] {
      inside.Set();
      release.Wait();
      ++left;
    });
    f->io->writesFail = true;
    ASSERT_TRUE(f->io->Start());
    ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
    const u64 begin = platform::MonotonicMilliseconds();
    EXPECT_TRUE(f->io->Stop());
    EXPECT_LE(platform::MonotonicMilliseconds() - begin, kStopTimeout + kStopSlack);
    // Another round with a new thread, while the old one is still in the host.
    ASSERT_TRUE(f->io->Start());
    ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
    f->io.reset();
    release.Set();
    EXPECT_TRUE(Eventually([&] { return left == 2; })) << left << " threads left the host";
  }
}

TEST(CIOBase, InterruptsARequestThatTheStopIsTiredOfWaitingFor) {
  constexpr u32 kStopTimeout = 50;
  Fixture f(0, 2, kStopTimeout);
  platform::Event inside;
  platform::Event request;
  f.io->duringWrite = [&] {
    inside.Set();
    request.Wait();
  };
  f.io->SetInterrupts([&] { request.Set(); }, {});
  ASSERT_TRUE(f.io->Start());
  ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
  EXPECT_TRUE(f.io->Stop());
  EXPECT_EQ(f.log.Text(), "output 0 to 1\n") << "what waited behind it is gone";
}

TEST(CIOBase, MayBeDestroyedInACallback) {
  for (const bool onInput : {true, false}) {
    platform::Event started;
    platform::Event gone;
    std::unique_ptr<FakeIO> io;
    Fixture f(onInput ? 2 : 0, onInput ? 0 : 2, CIOBase::kStopTimeoutMs, [&] {
      started.Wait();
      io.reset();
      gone.Set();
    });
    io = std::move(f.io);
    io->writesFail = true;
    ASSERT_TRUE(io->Start());
    started.Set();
    EXPECT_EQ(gone.Wait(kLimit), platform::WaitResult::Signalled);
  }
}

// A callback is in the middle of a stop, which waits for a request, while the object ends on another thread.
TEST(CIOBase, MayBeDestroyedWhileACallbackStopsIt) {
  FakeIO* io = nullptr;
  platform::Event writing;
  platform::Event request;
  platform::Event left;
  Fixture f(1, 1, 100, [&] {
    writing.Wait();
    EXPECT_FALSE(io->Stop());
    left.Set();
  });
  io = f.io.get();
  io->duringWrite = [&] {
    writing.Set();
    request.Wait();
  };
  io->SetInterrupts([&] { request.Set(); }, {});
  ASSERT_TRUE(io->Start());
  ASSERT_TRUE(Eventually([&] { return !io->SetOutput(0, IOStateHigh); })) << "the callback doesn't stop";
  f.io.reset();
  EXPECT_EQ(left.Wait(platform::Milliseconds{0}), platform::WaitResult::Signalled);
}

TEST(CIOBase, KeepsStepWithTheCameraThroughRandomOperations) {
  RandomHost host;
  Fixture f(3, RandomHost::kOutputs, CIOBase::kStopTimeoutMs, [&host] { host.InCallback(); });
  host.Operate(*f.io, [&f](u32 number) {
    f.io->writesFail = number % 3 == 0;
    f.io->readsFail = number % 5 == 0;
    f.io->highInputs = number;
  });
  f.io->writesFail = false;
  f.io->readsFail = false;
  RandomHost::ExpectStep(*f.io, [&f](u32 index) { return f.io->Outputs()[index]; });
}

}  // namespace
}  // namespace sarnevo
