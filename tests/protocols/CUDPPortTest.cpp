#include "protocols/CUDPPort.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/Eventually.h"
#include "support/HostLog.h"
#include "support/Tasks.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using kolvex_test::TasksNamed;
using platform::Socket;
using platform::SocketAddress;

constexpr const char* kLocal = "127.0.0.1";

class FakeUser : public IUDPPortUser {
 public:
  void DataReceived(CUDPPort* port, const sockaddr_in* from, u8* data, u32 size) override {
    calls.Add("DataReceived " + std::to_string(size) + " byte " + std::to_string(data[size - 1]) + " from " +
              std::to_string(ntohl(from->sin_addr.s_addr) & 0xFF));
    if (burstEndsWith != 0) {
      port->MoreFollows(size != burstEndsWith);
    }
    if (size == reopensAt) {
      EXPECT_TRUE(port->Close());
      EXPECT_EQ(port->Open(kLocal, 0), CUDPPort::Opened);
      calls.Add("open again");
    }
  }
  void ReceiveTimeout() override { calls.Add("ReceiveTimeout"); }
  void SocketClosed(CUDPPort*) override { calls.Add("SocketClosed"); }

  std::atomic<u32> reopensAt{0};      // the size of a datagram
  std::atomic<u32> burstEndsWith{0};  // the size of a datagram; 0: nothing is said of bursts
  kolvex_test::HostLog calls;
};

class CUDPPortTest : public testing::Test {
 protected:
  void Open(platform::Milliseconds timeout = 10s, u32 readSize = 4096) {
    port = std::make_unique<CUDPPort>(timeout);
    port->SetUser(&user);
    port->SetReadSize(readSize);
    ASSERT_EQ(port->Open(kLocal, 0), CUDPPort::Opened);
  }
  // From 127.0.0.9.
  void Send(std::size_t size, u8 byte) const {
    Socket socket;
    EXPECT_TRUE(socket.Open(platform::Transport::Udp));
    socket.Bind(*SocketAddress::Parse("127.0.0.9", 0));
    EXPECT_EQ(socket.SendTo(std::vector<u8>(size, byte), *SocketAddress::Parse(kLocal, port->LocalPort())),
              platform::SocketError::None);
  }
  // Waits until so many receive threads are left.
  static bool WaitForThreads(std::size_t wanted) {
    return kolvex_test::Eventually([wanted] { return TasksNamed("KolvexRTP").size() == wanted; });
  }

  FakeUser user;
  std::unique_ptr<CUDPPort> port;
};

TEST_F(CUDPPortTest, OpenSaysWhatIsWrongAndLeavesTheFirstBindingAlone) {
  CUDPPort first;
  first.SetUser(&user);
  for (const char* const address :
       {"", "1.2.3", "127.0.0.x", "localhost", "10.0.0.256", "127.000.000.0001", "255.255.255.255"}) {
    EXPECT_EQ(first.Open(address, 0), CUDPPort::InvalidAddress) << address;
  }
  for (const char* const address : {"127.0.01.1", "127.0.1", "0x7f.0.0.1"}) {
    EXPECT_EQ(first.Open(address, 0), CUDPPort::Opened) << address;
    first.Close();
  }
  user.calls.Clear();
  EXPECT_EQ(first.Open("203.0.113.1", 0), CUDPPort::BindFailed) << "not an address of this machine";
  EXPECT_FALSE(first.IsOpen());
  ASSERT_EQ(first.Open(nullptr, 0), CUDPPort::Opened);
  const u16 chosen = first.LocalPort();
  EXPECT_EQ(first.Open("x", 3556), CUDPPort::AlreadyOpen);
  CUDPPort second;
  EXPECT_EQ(second.Open(nullptr, chosen), CUDPPort::BindFailed);
  EXPECT_TRUE(first.Close());
  EXPECT_TRUE(first.Close());
  EXPECT_EQ(first.LocalPort(), 0);
  EXPECT_EQ(second.Open("0.0.0.0", chosen), CUDPPort::Opened);
  EXPECT_EQ(second.LocalPort(), chosen);
  EXPECT_EQ(user.calls.Text(), "SocketClosed\n") << "nobody hears of a closed port that is closed";
}

// Above the thread that opens it, where that may be; never by a jump.
TEST_F(CUDPPortTest, ReceivesAboveThePriorityOfItsHost) {
  std::thread([&] {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 7);
    Open();
    ASSERT_TRUE(WaitForThreads(1));
    for (const pid_t task : TasksNamed("KolvexRTP")) {
      const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(task));
      EXPECT_TRUE(nice == 2 || nice == 7) << nice;
    }
  }).join();
}

TEST_F(CUDPPortTest, AnOversizedDatagramIsLostAndTheNextFinds1024BytesMore) {
  Open();
  Send(4096, 1);
  Send(4097, 2);
  Send(5120, 3);
  Send(1, 4);
  EXPECT_TRUE(user.calls.WaitFor("", 3));
  EXPECT_EQ(user.calls.Text(),
            "DataReceived 4096 byte 1 from 9\nDataReceived 5120 byte 3 from 9\nDataReceived 1 byte 4 from 9\n");
  EXPECT_EQ(port->ReadSize(), 5120U);

  // A wish that is smaller by up to 2048 keeps the room, one smaller by more doesn't.
  port->SetReadSize(5120 - 2048);
  Send(5120, 5);
  EXPECT_TRUE(user.calls.WaitFor("DataReceived 5120 byte 5"));
  port->SetReadSize(5120 - 2049);
  Send(3072, 6);
  Send(3071, 7);
  EXPECT_TRUE(user.calls.WaitFor("DataReceived 3071 byte 7"));
  EXPECT_EQ(user.calls.Count(""), 5U);
}

TEST_F(CUDPPortTest, DatagramsThatTravelTogetherAreHandedOverOneByOne) {
  Open(10s, 1100);
  // As datagrams of 1200 bytes that stay together on the way.
  const auto send = [this](u8 byte) {
    const std::vector<u8> bytes(3 * 1200 + 50, byte);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int each = 1200;
    const bool can = setsockopt(descriptor, IPPROTO_UDP, UDP_SEGMENT, &each, sizeof(each)) == 0;
    const SocketAddress to = *SocketAddress::Parse(kLocal, port->LocalPort());
    const ssize_t sent = sendto(descriptor, bytes.data(), bytes.size(), 0,
                                reinterpret_cast<const sockaddr*>(to.Get()), sizeof(sockaddr_in));
    close(descriptor);
    return can && sent == static_cast<ssize_t>(bytes.size());
  };
  if (!send(1)) {
    GTEST_SKIP() << "the system can't send several datagrams at once";
  }
  EXPECT_TRUE(user.calls.WaitFor("DataReceived 50 byte 1"));
  EXPECT_EQ(user.calls.Text(),
            "DataReceived 1200 byte 1 from 1\nDataReceived 1200 byte 1 from 1\nDataReceived 50 byte 1 from 1\n")
      << "the first was too large, the others found more room";
  user.reopensAt = 1200;
  ASSERT_TRUE(send(2));
  ASSERT_TRUE(user.calls.WaitFor("open again"));
  EXPECT_TRUE(WaitForThreads(1)) << "the new one";
  EXPECT_EQ(user.calls.Count("DataReceived 1200 byte 2"), 1U) << "nothing comes after a Close";
}

// The thread sleeps while they come in.
TEST_F(CUDPPortTest, BurstsArriveWholeAndOneThatBreaksOffTimesOut) {
  user.burstEndsWith = 20;
  Open(100ms);
  const std::string timeOut = "ReceiveTimeout\n";  // where the test itself is slow
  std::string all;
  for (u8 burst = 1; burst <= 10; ++burst) {
    for (std::size_t size = 1; size <= 20; ++size) {
      Send(size, burst);
      all += "DataReceived " + std::to_string(size) + " byte " + std::to_string(burst) + " from 9\n";
      std::this_thread::sleep_for(100us);  // as a camera does
    }
    ASSERT_TRUE(user.calls.WaitFor("DataReceived 20 byte " + std::to_string(burst)));
  }
  std::string heard = user.calls.Text();
  for (std::size_t at = 0; (at = heard.find(timeOut)) != heard.npos;) {
    heard.erase(at, timeOut.size());
  }
  EXPECT_EQ(heard, all);
  user.calls.Clear();
  Send(1, 11);
  Send(2, 11);
  EXPECT_TRUE(user.calls.WaitFor("ReceiveTimeout"));
  Send(3, 11);
  EXPECT_TRUE(user.calls.WaitFor("DataReceived 3 byte 11"));
  EXPECT_TRUE(port->Close());
  EXPECT_TRUE(WaitForThreads(0));
}

TEST_F(CUDPPortTest, EachTimeOutIsReportedAndALostSocketEndsReception) {
  Open(20ms);
  EXPECT_TRUE(user.calls.WaitFor("ReceiveTimeout", 3));
  // Puts something that is no socket where the port's descriptor was, the only one here.
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int descriptor = 3; descriptor < 256; ++descriptor) {
    int type = 0;
    socklen_t size = sizeof(type);
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0) {
      dup2(nothing, descriptor);
    }
  }
  close(nothing);
  ASSERT_TRUE(WaitForThreads(0));
  EXPECT_EQ(user.calls.Count("SocketClosed"), 1U);
  EXPECT_TRUE(port->IsOpen()) << "until somebody closes it";
  port->Close();
  EXPECT_EQ(user.calls.Count("SocketClosed"), 2U);
}

}  // namespace
}  // namespace sarnevo
