#include "video/PortPair.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/Socket.h"
#include "protocols/CRTCPReporter.h"
#include "protocols/CUDPPort.h"

namespace {

std::atomic<int> binds{0};

}  // namespace

// Stands in front of the system's, so that attempts can be counted.
extern "C" int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  ++binds;
  return static_cast<int>(syscall(SYS_bind, descriptor, address, size));
}

namespace sarnevo {
namespace {

using platform::Socket;
using platform::SocketAddress;
using platform::SocketError;

// The ports of one channel.
struct Stream {
  CUDPPort port;
  CRTCPReporter reporter;
  std::optional<PortPair> pair = OpenPortPair(port, reporter);
};

// A port of another process, as far as the search can tell.
Socket Foreign(u16 port) {
  Socket socket = Socket::CreateUdp();
  return socket.Bind(SocketAddress::Any(port)) == SocketError::None ? std::move(socket) : Socket();
}

// What a search that knows nothing would find.
u16 FirstFree() {
  for (u16 port = 3556; port < 4556; port = static_cast<u16>(port + 2)) {
    if (Foreign(port).IsOpen()) {
      return port;
    }
  }
  return 0;
}

TEST(PortPair, IsAlwaysTheFirstFreeOneWhoeverTakesAndFreesPorts) {
  std::minstd_rand random(1);
  std::map<u16, std::unique_ptr<Stream>> streams;
  std::map<u16, Socket> foreign;
  const auto dropOne = [&random](auto& held) {
    if (!held.empty()) {
      held.erase(std::next(held.begin(), static_cast<int>(random() % held.size())));
    }
  };
  for (int step = 0; step < 300; ++step) {
    switch (random() % 6) {
      case 0:
        dropOne(streams);
        break;
      case 1:
        dropOne(foreign);
        break;
      case 2: {
        const auto port = static_cast<u16>(3556 + 2 * (random() % 60));
        if (Socket socket = Foreign(port); socket.IsOpen()) {
          foreign.emplace(port, std::move(socket));
        }
        break;
      }
      default:
        const u16 expected = FirstFree();
        auto stream = std::make_unique<Stream>();
        ASSERT_TRUE(stream->pair) << "step " << step;
        ASSERT_EQ(stream->pair->rtp, expected) << "step " << step;
        ASSERT_EQ(stream->pair->rtcp, expected + 1);
        streams.emplace(expected, std::move(stream));
        break;
    }
  }
  EXPECT_GT(streams.size(), 20U);
}

TEST(PortPair, All500AreUsableAndTheirSearchesTryEachPortOnce) {
  std::deque<Stream> streams;
  const int before = binds;
  for (u16 i = 0; i < 500; ++i) {
    ASSERT_TRUE(streams.emplace_back().pair) << i;
    ASSERT_EQ(streams.back().pair->rtp, 3556 + 2 * i);
  }
  EXPECT_FALSE(Stream().pair) << "the range is used up";
  EXPECT_LE(binds - before, 1000) << "one for each RTP port, and at most one for each RTCP port";
  EXPECT_GE(binds - before, 500);
  streams.pop_front();
  EXPECT_EQ(Stream().pair->rtp, 3556);
}

TEST(PortPair, IsNobodyElsesWhenManySearchAtOnce) {
  std::deque<Stream> streams[4];
  std::vector<std::thread> threads;
  for (auto& own : streams) {
    threads.emplace_back([&own] {
      for (int i = 0; i < 20; ++i) {
        own.emplace_back();
      }
    });
  }
  std::map<u16, int> found;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i].join();
    for (const Stream& stream : streams[i]) {
      ++found[stream.pair.value_or(PortPair{}).rtp];
    }
  }
  EXPECT_EQ(found.size(), 80U);
  EXPECT_EQ(found.begin()->first, 3556);
  EXPECT_EQ(found.rbegin()->first, 3556 + 2 * 79);
}

}  // namespace
}  // namespace sarnevo
