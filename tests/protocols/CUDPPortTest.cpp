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
#include "support/Eventually.h"
#include "support/HostLog.h"
#include "support/SendTogether.h"

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
    onData(port);
  }
  void ReceiveTimeout() override {
    calls.Add("ReceiveTimeout");
    onTimeout();
  }
  void SocketClosed(CUDPPort* port) override {
    calls.Add("SocketClosed");
    onClosed(port);
  }

  std::function<void(CUDPPort*)> onData = [](CUDPPort*) {};
  std::function<void()> onTimeout = [] {};
  std::function<void(CUDPPort*)> onClosed = [](CUDPPort*) {};
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

bool ReceiveThreadRuns() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    if (std::getline(std::ifstream(task.path() / "comm"), name) && name == "KolvexRTP") {
      return true;
    }
  }
  return false;
}

TEST(CUDPPort, OpenTellsWhatIsWrongAndLeavesTheFirstBindingAlone) {
  FakeUser user;
  CUDPPort port;
  port.SetUser(&user);
  for (const char* const address : {"", "1.2.3", "127.0.0.x", "localhost", "10.0.0.256"}) {
    EXPECT_EQ(port.Open(address, 0), CUDPPort::InvalidAddress) << address;
  }
  EXPECT_EQ(port.Open("203.0.113.1", 0), CUDPPort::BindFailed) << "not an address of this machine";
  EXPECT_FALSE(port.IsOpen());
  ASSERT_EQ(port.Open(nullptr, 0), CUDPPort::Opened);
  const u16 chosen = port.LocalPort();
  EXPECT_NE(chosen, 0);
  EXPECT_EQ(port.Open("x", 3556), CUDPPort::AlreadyOpen);
  CUDPPort second;
  EXPECT_EQ(second.Open(nullptr, chosen), CUDPPort::BindFailed);
  EXPECT_TRUE(port.Close());
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
  EXPECT_TRUE(user.calls.WaitFor("DataReceived 5120 byte 5"));
  port.SetReadSize(5120 - 2049);
  sender.Send(port, 3072, 6);
  sender.Send(port, 3071, 7);
  EXPECT_TRUE(user.calls.WaitFor("DataReceived 3071 byte 7"));
  EXPECT_EQ(user.calls.Count(""), 5U);
}

TEST(CUDPPort, DatagramsThatTravelTogetherAreHandedOverOneByOne) {
  FakeUser user;
  Event closed;
  user.onData = [&](CUDPPort* own) {
    if (user.calls.Count("DataReceived 1200 byte 2") != 0) {
      EXPECT_TRUE(own->Close());
      closed.Set();
    }
  };
  CUDPPort port;
  port.SetUser(&user);
  port.SetReadSize(1100);
  ASSERT_EQ(port.Open(kLocal, 0), CUDPPort::Opened);
  const auto send = [&port](u8 byte) {
    std::vector<u8> bytes(3 * 1200 + 50, byte);
    return kolvex_test::SendTogether(*SocketAddress::Parse(kLocal, port.LocalPort()), bytes, 1200);
  };
  if (!send(1)) {
    GTEST_SKIP() << "the system can't send several datagrams at once";
  }
  EXPECT_TRUE(user.calls.WaitFor("DataReceived 50 byte 1"));
  EXPECT_EQ(user.calls.Text(),
            "DataReceived 1200 byte 1 from 1\nDataReceived 1200 byte 1 from 1\nDataReceived 50 byte 1 from 1\n")
      << "the first was too large, the others found more room";
  ASSERT_TRUE(send(2));
  ASSERT_EQ(closed.Wait(20s), platform::WaitResult::Signalled);
  ASSERT_TRUE(kolvex_test::Eventually([] { return !ReceiveThreadRuns(); }));
  EXPECT_EQ(user.calls.Count("DataReceived 1200 byte 2"), 1U) << "nothing comes behind a Close";
}

TEST(CUDPPort, EachTimeOutIsReportedAndALostSocketEndsReception) {
  FakeUser user;
  CUDPPort port(20ms);
  port.SetUser(&user);
  ASSERT_EQ(port.Open(kLocal, 0), CUDPPort::Opened);
  EXPECT_TRUE(user.calls.WaitFor("ReceiveTimeout", 3));
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
  ASSERT_TRUE(kolvex_test::Eventually([] { return !ReceiveThreadRuns(); }));
  EXPECT_EQ(user.calls.Count("SocketClosed"), 1U);
  EXPECT_TRUE(port.IsOpen()) << "until somebody closes it";
  port.Close();
  EXPECT_EQ(user.calls.Count("SocketClosed"), 2U);
}

TEST(CUDPPort, CloseFromAnotherThreadWaitsForTheCallbackInProgress) {
  FakeUser user;
  Event inside;
  Event goOn(false, true);
  std::atomic<bool> left{false};
  CUDPPort port;
  port.SetUser(&user);
  user.onData = [&](CUDPPort* own) {
    inside.Set();
    goOn.Wait();
    left = true;
    EXPECT_TRUE(own->Close()) << "is left to the other";
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

TEST(CUDPPort, ACallbackMayCloseReopenAndDestroyThePort) {
  for (const bool onTimeout : {false, true}) {
    FakeUser user;
    Event opened, done;
    auto port = std::make_unique<CUDPPort>(onTimeout ? 20ms : 10s);
    const auto end = [&](auto&&...) {
      opened.Wait();
      EXPECT_TRUE(port->Close());
      EXPECT_EQ(port->Open(kLocal, 0), CUDPPort::Opened);
      port->SetUser(nullptr);
      port.reset();
      user.calls.Add("gone");
      done.Set();
    };
    port->SetUser(&user);
    user.onData = end;
    user.onTimeout = end;
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

}  // namespace
}  // namespace sarnevo
