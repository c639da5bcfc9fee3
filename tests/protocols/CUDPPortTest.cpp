#include "protocols/CUDPPort.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/Clock.h"
#include "support/HostLog.h"
#include "threads/HostCall.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using platform::Event;
using platform::Socket;
using platform::SocketAddress;

constexpr const char* kLocal = "127.0.0.1";

class FakeUser : public IUDPPortUser {
 public:
  void DataReceived(CUDPPort* port, const sockaddr_in* from, u8* data, u32 size) override {
    calls.Add("DataReceived " + std::to_string(size) + " byte " + std::to_string(data[size - 1]) + " from " +
              std::to_string(ntohl(from->sin_addr.s_addr) & 0xFF));
    if (onData) {
      onData(port);
    }
  }
  void ReceiveTimeout() override {
    calls.Add("ReceiveTimeout");
    if (onTimeout) {
      onTimeout();
    }
  }
  void SocketClosed(CUDPPort* port) override {
    calls.Add("SocketClosed");
    if (onClosed) {
      onClosed(port);
    }
  }

  std::function<void(CUDPPort*)> onData;
  std::function<void()> onTimeout;
  std::function<void(CUDPPort*)> onClosed;
  kolvex_test::HostLog calls;
};

// Sends from 127.0.0.9.
class Sender {
 public:
  Sender() { EXPECT_EQ(socket_.Bind(*SocketAddress::Parse("127.0.0.9", 0)), platform::SocketError::None); }
  void Send(const CUDPPort& port, std::size_t size, u8 byte) {
    EXPECT_EQ(socket_.SendTo(std::vector<u8>(size, byte), *SocketAddress::Parse(kLocal, port.LocalPort())),
              platform::SocketError::None);
  }

 private:
  Socket socket_ = Socket::CreateUdp();
};

// Waits until the process has no receive thread any more.
bool ReceiveThreadsEnd() {
  for (int i = 0; i < 2000; ++i) {
    bool running = false;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      std::string name;
      std::getline(std::ifstream(task.path() / "comm"), name);
      running = running || name == "KolvexRTP";
    }
    if (!running) {
      return true;
    }
    platform::Sleep(10ms);
  }
  return false;
}

TEST(CUDPPort, OpenTellsWhatIsWrongAndLeavesTheFirstBindingAlone) {
  FakeUser user;
  CUDPPort port;
  port.SetUser(&user);
  EXPECT_TRUE(port.Close());
  for (const char* const address : {"", "1.2.3", "127.0.0.1.1.1.1.1", "127.0.0.x", "localhost", "10.0.0.256"}) {
    EXPECT_EQ(port.Open(address, 0), CUDPPort::InvalidAddress) << address;
  }
  EXPECT_EQ(port.Open("203.0.113.1", 0), CUDPPort::BindFailed) << "not an address of this machine";
  EXPECT_FALSE(port.IsOpen());
  ASSERT_EQ(port.Open(nullptr, 0), CUDPPort::Opened);
  const u16 chosen = port.LocalPort();
  EXPECT_NE(chosen, 0);
  EXPECT_EQ(port.Open("x", 3556), CUDPPort::AlreadyOpen);
  EXPECT_EQ(port.LocalPort(), chosen);

  CUDPPort second;
  EXPECT_EQ(second.Open(nullptr, chosen), CUDPPort::BindFailed);
  EXPECT_EQ(second.LocalPort(), 0);
  EXPECT_TRUE(port.Close());
  EXPECT_EQ(port.LocalPort(), 0);
  EXPECT_EQ(second.Open(nullptr, chosen), CUDPPort::Opened);
  EXPECT_EQ(second.LocalPort(), chosen);
  EXPECT_EQ(user.calls.Text(), "SocketClosed\n") << "closing a closed port tells nobody";
}

TEST(CUDPPort, AnOversizedDatagramIsLostAndTheNextFinds1024BytesMore) {
  FakeUser user;
  CUDPPort port;
  port.SetUser(&user);
  port.SetReadSize(4096);
  ASSERT_EQ(port.Open(kLocal, 0), CUDPPort::Opened);
  Sender sender;
  sender.Send(port, 4096, 1);
  sender.Send(port, 4097, 2);
  sender.Send(port, 5120, 3);
  sender.Send(port, 1, 4);
  EXPECT_TRUE(user.calls.WaitFor("", 3));
  EXPECT_EQ(user.calls.Text(),
            "DataReceived 4096 byte 1 from 9\nDataReceived 5120 byte 3 from 9\nDataReceived 1 byte 4 from 9\n");
  EXPECT_EQ(port.ReadSize(), 5120U);

  // A wish that is smaller by up to 2048 keeps the room, one smaller by more doesn't.
  port.SetReadSize(5120 - 2048);
  sender.Send(port, 5120, 5);
  EXPECT_TRUE(user.calls.WaitFor("", 4));
  port.SetReadSize(5120 - 2049);
  sender.Send(port, 3072, 6);
  sender.Send(port, 3071, 7);
  EXPECT_TRUE(user.calls.WaitFor("", 5));
  const std::string text = user.calls.Text();
  EXPECT_EQ(text.substr(text.find("from 9\nDataReceived 5120 byte 5")),
            "from 9\nDataReceived 5120 byte 5 from 9\nDataReceived 3071 byte 7 from 9\n");
  EXPECT_EQ(port.ReadSize(), 4095U);
}

TEST(CUDPPort, EachTimeOutIsReportedAndAnEmptyDatagramEndsReception) {
  FakeUser user;
  CUDPPort port(20ms);
  port.SetUser(&user);
  ASSERT_EQ(port.Open(kLocal, 0), CUDPPort::Opened);
  EXPECT_TRUE(user.calls.WaitFor("", 3));
  EXPECT_EQ(user.calls.Text(), "ReceiveTimeout\nReceiveTimeout\nReceiveTimeout\n");
  Sender sender;
  sender.Send(port, 0, 0);
  ASSERT_TRUE(ReceiveThreadsEnd());
  const std::string before = user.calls.Text();
  EXPECT_TRUE(port.IsOpen());
  port.Close();
  EXPECT_EQ(user.calls.Text(), before + "SocketClosed\n");
}

TEST(CUDPPort, ASocketLayerThatGoesAwayIsReportedOnce) {
  FakeUser user;
  CUDPPort port(20ms);
  port.SetUser(&user);
  ASSERT_EQ(port.Open(kLocal, 0), CUDPPort::Opened);
  EXPECT_TRUE(user.calls.WaitFor("", 1));
  // Puts something that is no socket where the port's descriptor was.
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int descriptor = 3; descriptor < 256; ++descriptor) {
    sockaddr_in local{};
    socklen_t size = sizeof(local);
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &size) == 0 &&
        ntohs(local.sin_port) == port.LocalPort()) {
      dup2(nothing, descriptor);
    }
  }
  close(nothing);
  ASSERT_TRUE(ReceiveThreadsEnd());
  const std::string text = user.calls.Text();
  EXPECT_TRUE(text.ends_with("ReceiveTimeout\nSocketClosed\n")) << text;
  EXPECT_TRUE(port.IsOpen()) << "until somebody closes it";
}

TEST(CUDPPort, CloseFromAnotherThreadWaitsForTheCallbackInProgress) {
  FakeUser user;
  Event inside;
  Event goOn(false, true);
  std::atomic<bool> left{false};
  CUDPPort port;
  port.SetUser(&user);
  user.onData = [&](CUDPPort*) {
    inside.Set();
    goOn.Wait();
    left = true;
  };
  user.onClosed = [&](CUDPPort* closing) {
    EXPECT_TRUE(left);
    EXPECT_NE(closing->LocalPort(), 0);
    EXPECT_TRUE(closing->Close());
    throw std::runtime_error("the user's own affair");
  };
  ASSERT_EQ(port.Open(kLocal, 0), CUDPPort::Opened);
  Sender sender;
  sender.Send(port, 10, 1);
  sender.Send(port, 10, 2);
  ASSERT_EQ(inside.Wait(20s), platform::WaitResult::Signalled);
  std::thread closing([&] { EXPECT_TRUE(port.Close()); });
  platform::Sleep(20ms);  // room for a Close that wrongly doesn't wait
  EXPECT_EQ(user.calls.Text().find("SocketClosed"), std::string::npos);
  goOn.Set();
  closing.join();
  EXPECT_FALSE(port.IsOpen());
  const std::string text = user.calls.Text();
  EXPECT_TRUE(text.ends_with("SocketClosed\n") && text.find("SocketClosed") == text.size() - 13) << text;
}

TEST(CUDPPort, ACallbackMayCloseAndDestroyThePort) {
  for (const bool onTimeout : {false, true}) {
    for (const bool reopen : {false, true}) {
      FakeUser user;
      Event opened, done;
      auto port = std::make_unique<CUDPPort>(onTimeout ? 20ms : 10s);
      const auto end = [&](auto&&...) {
        opened.Wait();
        EXPECT_TRUE(port->Close());
        if (reopen) {
          EXPECT_EQ(port->Open(kLocal, 0), CUDPPort::Opened);
          port->SetUser(nullptr);
        }
        port.reset();
        user.calls.Add("gone");
        done.Set();
      };
      port->SetUser(&user);
      if (onTimeout) {
        user.onTimeout = end;
      } else {
        user.onData = end;
      }
      ASSERT_EQ(port->Open(kLocal, 0), CUDPPort::Opened);
      if (!onTimeout) {
        Sender().Send(*port, 10, 1);
      }
      opened.Set();
      ASSERT_EQ(done.Wait(20s), platform::WaitResult::Signalled);
      EXPECT_EQ(user.calls.Text(),
                (onTimeout ? "ReceiveTimeout"s : "DataReceived 10 byte 1 from 9"s) + "\nSocketClosed\ngone\n");
    }
  }
}

TEST(CUDPPort, TwoThreadsThatCloseAtOnceDontWaitForEachOther) {
  FakeUser user;
  Event inside;
  CUDPPort port;
  port.SetUser(&user);
  user.onData = [&](CUDPPort* own) {
    inside.Set();
    platform::Sleep(20ms);  // lets the other get in front
    EXPECT_TRUE(own->Close());
  };
  ASSERT_EQ(port.Open(kLocal, 0), CUDPPort::Opened);
  Sender sender;
  sender.Send(port, 10, 1);
  ASSERT_EQ(inside.Wait(20s), platform::WaitResult::Signalled);
  EXPECT_TRUE(port.Close());
  EXPECT_FALSE(port.IsOpen());
}

// A host that stops its channel from inside a callback gives its thread up; the port is destroyed by another
// thread, which doesn't wait, and the thread never comes back to it.
TEST(CUDPPort, AReceiveThreadThatWasGivenUpIsNotWaitedForAndTouchesNothing) {
  FakeUser user;
  Event givenUp, goOn, over;
  std::atomic<bool> cameBack{false};
  auto port = std::make_unique<CUDPPort>();
  port->SetUser(&user);
  user.onData = [&](CUDPPort*) {
    CallHost(
        [&] {
          EXPECT_TRUE(platform::current_thread::Abandon());
          givenUp.Set();
          goOn.Wait();
        },
        [&] { over.Set(); });
    cameBack = true;
  };
  ASSERT_EQ(port->Open(kLocal, 0), CUDPPort::Opened);
  Sender sender;
  sender.Send(*port, 10, 1);
  ASSERT_EQ(givenUp.Wait(20s), platform::WaitResult::Signalled);
  port.reset();
  goOn.Set();
  ASSERT_EQ(over.Wait(20s), platform::WaitResult::Signalled);
  EXPECT_FALSE(cameBack);
  EXPECT_EQ(user.calls.Text(), "DataReceived 10 byte 1 from 9\nSocketClosed\n");
}

}  // namespace
}  // namespace sarnevo
