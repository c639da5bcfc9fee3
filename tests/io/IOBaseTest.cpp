#include "io/CIOBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "io/FakeHost.h"
#include "io/CKolvexIOHandler.h"
#include "platform/Clock.h"
#include "support/Eventually.h"
#include "support/StopSlack.h"

namespace sarnevo {
namespace {

using kolvex_test::Eventually;

constexpr platform::Milliseconds kLimit{10'000};
using kolvex_test::kStopSlack;

// Digital I/O with a camera that is a handful of fields. Polls are often, and only their effects are
// written down.
class FakeIO : public CIOBase {
 public:
  FakeIO(CKolvexIPCaptureDriver* driver, HostLog& log, u32 stopTimeoutMs = kStopTimeoutMs)
      : CIOBase(driver, 2, stopTimeoutMs), log_(log) {}
  ~FakeIO() override { EndThreads(); }

  using CIOBase::SetInterrupts;

  // Waits until a poll has begun and ended after this call.
  void AwaitPoll() {
    const u32 seen = polls;
    EXPECT_TRUE(kolvex_test::Eventually([&] { return polls >= seen + 2; }));
  }

  std::atomic<u32> polls{0};
  std::atomic<u32> highInputs{0};  // a bit for each of the first 32 inputs
  std::atomic<bool> readsFail{false};
  std::atomic<bool> writesFail{false};
  std::function<void()> duringWrite;  // set before Start

 protected:
  bool WriteOutput(u32 index, u32 state) override {
    if (duringWrite) {
      duringWrite();
    }
    if (writesFail) {
      return false;
    }
    log_.Add("output " + std::to_string(index) + " to " + std::to_string(state));
    return true;
  }

  bool ReadInputs(u32 count) override {
    const bool good = !readsFail;
    for (u32 index = 0; good && index < count; ++index) {
      UpdateInput(index, (highInputs >> index % 32 & 1) != 0 ? IOStateHigh : IOStateLow);
    }
    ++polls;
    return good;
  }

 private:
  HostLog& log_;
};

struct Fixture : IOHost {
  explicit Fixture(u32 inputs, u32 outputs, u32 stopTimeoutMs = CIOBase::kStopTimeoutMs,
                   std::function<void()> inCallback = {})
      : IOHost(Camera(inputs, outputs), std::move(inCallback)) {
    io = std::make_unique<FakeIO>(&driver, log, stopTimeoutMs);
    EXPECT_TRUE(io->SetCallback(&callback));
  }

  std::unique_ptr<FakeIO> io;
};

TEST(CIOBase, ReportsEachInputOnceAndThenItsChangesWithOrWithoutACallback) {
  Fixture f(2, 0, CIOBase::kStopTimeoutMs, [] { throw 42; });
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
  f.io->AwaitPoll();
  f.io->AwaitPoll();
  EXPECT_THAT(f.log.Text(), ::testing::EndsWith("failure\ninput 0 is 2\ninput 1 is 2\n"));
  EXPECT_TRUE(f.io->Stop());
  FakeIO alone(&f.driver, f.log);
  ASSERT_TRUE(alone.Start());
  alone.AwaitPoll();
  alone.readsFail = true;
  alone.AwaitPoll();
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
  ASSERT_TRUE(f.log.WaitFor("output 1 to 1"));
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
  for (const u32 count : {0U, 1U, 64U, 256U, 257U, 4'000'000'000U}) {
    for (const bool inputs : {true, false}) {
      SCOPED_TRACE(std::to_string(count) + (inputs ? " inputs" : " outputs"));
      Fixture f(inputs ? count : 0, inputs ? 0 : count);
      EXPECT_EQ(inputs ? f.io->GetInputCount() : f.io->GetOutputCount(), count);
      EXPECT_EQ(f.io->Start(), count <= 256);
      if (count > 0 && count <= 256) {
        const std::string last = std::to_string(count - 1);
        const std::string end = inputs ? "input " + last + " is 1\n" : "output " + last + " to 1\n";
        EXPECT_TRUE(Eventually([&] { return f.log.Text().ends_with(end); })) << f.log.Text();
      }
      EXPECT_TRUE(f.io->SetOutput(4'000'000'000, 7));
      EXPECT_TRUE(f.io->Stop());
    }
  }
}

// A callback that stops, starts or sets, or destroys the object, on the input thread and on the output thread.
TEST(CIOBase, MayBeCalledAndDestroyedInItsOwnCallbacks) {
  for (const bool onInput : {true, false}) {
    for (const bool destroys : {true, false}) {
      std::unique_ptr<FakeIO> io;
      std::atomic<int> calls{0};
      platform::Event started;
      platform::Event done;
      Fixture f(onInput ? 1 : 0, 1, CIOBase::kStopTimeoutMs, [&] {
        if (++calls > 1) {
          return;
        }
        started.Wait();
        if (destroys) {
          io.reset();
        } else {
          EXPECT_TRUE(io->SetOutput(0, IOStateHigh));
          EXPECT_FALSE(io->Start());
          EXPECT_FALSE(io->Stop());
          EXPECT_FALSE(io->SetOutput(0, IOStateHigh));
        }
        done.Set();
      });
      io = std::move(f.io);
      io->writesFail = !onInput;
      ASSERT_TRUE(io->Start());
      started.Set();
      ASSERT_EQ(done.Wait(kLimit), platform::WaitResult::Signalled);
      EXPECT_TRUE(destroys || io->Stop());
      EXPECT_EQ(calls, 1);
    }
  }
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
    u64 best = ~u64{0};  // a busy machine may spoil one
    int rounds = 0;
    while (rounds < 5 && best > kStopTimeout + kStopSlack) {
      // With a new thread each time, while the old ones are still in the host.
      ASSERT_TRUE(f->io->Start());
      ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
      const u64 begin = platform::MonotonicMilliseconds();
      EXPECT_TRUE(f->io->Stop());
      best = std::min(best, platform::MonotonicMilliseconds() - begin);
      ++rounds;
    }
    EXPECT_LE(best, kStopTimeout + kStopSlack);
    ASSERT_TRUE(f->io->Start());
    ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
    f->io.reset();
    release.Set();
    EXPECT_TRUE(Eventually([&] { return left == rounds + 1; })) << left << " threads left the host";
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

TEST(CKolvexIOHandler, DescribesTheCameraAndWritesFinishedText) {
  HostLog log;
  kolvex_test::FakeDebugSink sink(log);
  kolvex_test::FakeParams params = Camera(3, 5, 8080);
  CKolvexIPCaptureDriver driver;
  ASSERT_TRUE(driver.Open(&sink, nullptr, &params));
  CKolvexIOHandler handler(&driver);
  CIPCaptureIOBaseHandlerIf& host = handler;
  EXPECT_EQ(host.GetDriverName() + host.GetAddress() + host.GetUserName() + host.GetPassword(),
            "NewKolvexIPCapture127.0.0.1usersecret");
  const CameraIOSettings& settings = *host.GetSettings();
  EXPECT_EQ((std::vector<u32>{host.GetPort(), settings.inputCount, settings.outputCount, settings.interval}),
            (std::vector<u32>{8080, 3, 5, 1000}));
  EXPECT_EQ(settings.texts, decltype(settings.texts){});
  log.Clear();
  host.WriteDebug(DebugLevelFailure, "%s at %u%%", "100%s", 7u);
  host.WriteDebug(DebugLevelDropped, "nobody hears this");
  EXPECT_EQ(log.Text(), "OnDebugInfo 1 100%s at 7%\n");
}

}  // namespace
}  // namespace sarnevo
