#include "platform/Socket.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>

#include "platform/Clock.h"

namespace sarnevo::platform {
namespace {

using namespace std::chrono_literals;

Socket BoundUdp(std::uint16_t& port) {
  Socket socket = Socket::CreateUdp();
  EXPECT_EQ(socket.Bind(*SocketAddress::Parse("127.0.0.1", 0)), SocketError::None);
  port = socket.LocalPort().value_or(0);
  return socket;
}

TEST(Socket, DatagramsKeepTheirBordersAndAnOversizedOneIsReportedAndGone) {
  std::uint16_t port = 0;
  Socket receiver = BoundUdp(port);
  receiver.SetReceiveTimeout(5s);
  Socket sender = Socket::CreateUdp();
  const SocketAddress to = *SocketAddress::Parse("127.0.0.1", port);
  const std::vector<std::uint8_t> bytes(100, 7);
  for (const std::size_t size : {std::size_t{0}, std::size_t{64}, std::size_t{65}, std::size_t{3}}) {
    ASSERT_EQ(sender.SendTo(std::span(bytes).first(size), to), SocketError::None);
  }
  std::array<std::uint8_t, 64> buffer{};
  SocketAddress from;
  const auto expect = [&](std::size_t count, SocketError error) {
    const ReceiveResult result = receiver.ReceiveFrom(buffer, from);
    EXPECT_EQ(result.error, error);
    EXPECT_EQ(result.count, count);
  };
  expect(0, SocketError::None);
  expect(64, SocketError::None);
  expect(0, SocketError::TooLong);
  expect(3, SocketError::None);
  EXPECT_EQ(from.Text(), "127.0.0.1");
  EXPECT_EQ(receiver.TryReceiveFrom(buffer, from).error, SocketError::WouldBlock);
  receiver.SetReceiveTimeout(10ms);
  EXPECT_EQ(receiver.ReceiveFrom(buffer, from).error, SocketError::TimedOut);
  EXPECT_EQ(receiver.WaitReadable(10ms), SocketError::TimedOut);
}

TEST(Socket, ShutdownWakesAReceivingThreadOfEitherKindAndIsSafeOnAClosedSocket) {
  std::uint16_t port = 0;
  Socket udp = BoundUdp(port);
  udp.SetReceiveTimeout(30s);
  std::array<std::uint8_t, 16> buffer{};
  SocketAddress from;
  const auto began = MonotonicMilliseconds();
  std::thread receiving([&] { EXPECT_EQ(udp.ReceiveFrom(buffer, from).count, 0U); });
  udp.Shutdown();
  receiving.join();
  EXPECT_EQ(udp.WaitReadable(30s), SocketError::None);
  EXPECT_LT(MonotonicMilliseconds() - began, 10'000U);
  udp.Close();
  udp.Shutdown();
  EXPECT_FALSE(udp.IsOpen());
  EXPECT_EQ(udp.ReceiveFrom(buffer, from).error, SocketError::NotInitialised);
}

TEST(Socket, ARefusedConnectionNeverBecomesWritable) {
  Socket socket = Socket::CreateTcp();
  ASSERT_TRUE(socket.SetNonBlocking(true));
  const SocketError started = socket.Connect(*SocketAddress::Parse("127.0.0.1", 1));
  EXPECT_TRUE(started == SocketError::WouldBlock || started == SocketError::ConnectionReset);
  EXPECT_FALSE(socket.WaitWritable(50ms));
}

TEST(Socket, WorksAboveDescriptor1024AndIsCloseOnExec) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < 1200) {
    GTEST_SKIP() << "the system allows too few descriptors";
  }
  const rlimit before = limit;
  limit.rlim_cur = 1200;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  {
    std::vector<Socket> many;
    for (int i = 0; i < 1100; ++i) {
      many.push_back(Socket::CreateUdp());
      ASSERT_TRUE(many.back().IsOpen());
    }
    Socket& high = many.back();
    EXPECT_EQ(fcntl(1050, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    ASSERT_EQ(high.Bind(*SocketAddress::Parse("127.0.0.1", 0)), SocketError::None);
    EXPECT_EQ(high.WaitReadable(1ms), SocketError::TimedOut);
  }
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST(SocketAddress, TakesOnlyDottedAddresses) {
  for (const char* text : {"", "camera", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", "::1"}) {
    EXPECT_FALSE(SocketAddress::Parse(text, 1)) << text;
  }
  EXPECT_FALSE(SocketAddress::Parse(nullptr, 1));
  EXPECT_EQ(SocketAddress::Parse("10.20.30.40", 554)->Text(), "10.20.30.40");
  EXPECT_EQ(SocketAddress::Parse("10.20.30.40", 554)->Port(), 554);
}

}  // namespace
}  // namespace sarnevo::platform
