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

TEST(Socket, DatagramsKeepTheirBordersAndAnOversizedOneIsReportedAndGone) {
  Socket receiver = Socket::CreateUdp();
  ASSERT_EQ(receiver.Bind(*SocketAddress::Parse("127.0.0.1", 0)), SocketError::None);
  receiver.SetReceiveTimeout(5s);
  Socket sender = Socket::CreateUdp();
  const SocketAddress to = *SocketAddress::Parse("127.0.0.1", receiver.LocalPort().value());
  EXPECT_EQ(sender.Bind(to), SocketError::AddressInUse);
  const std::vector<std::uint8_t> bytes(100, 7);
  std::array<std::uint8_t, 64> buffer{};
  SocketAddress from;
  for (const std::size_t size : {0U, 64U, 65U, 3U}) {
    ASSERT_EQ(sender.SendTo(std::span(bytes).first(size), to), SocketError::None);
  }
  for (const std::size_t size : {0U, 64U, 65U, 3U}) {
    const ReceiveResult result = receiver.ReceiveFrom(buffer, from);
    EXPECT_EQ(result.error, size > buffer.size() ? SocketError::TooLong : SocketError::None);
    EXPECT_EQ(result.count, size > buffer.size() ? 0U : size);
  }
  EXPECT_EQ(from.Text(), "127.0.0.1");
  EXPECT_EQ(receiver.TryReceiveFrom(buffer, from).error, SocketError::WouldBlock);
  receiver.SetReceiveTimeout(10ms);
  EXPECT_EQ(receiver.ReceiveFrom(buffer, from).error, SocketError::TimedOut);

  receiver.SetReceiveTimeout(30s);
  const auto began = MonotonicMilliseconds();
  std::thread receiving([&] { EXPECT_EQ(receiver.ReceiveFrom(buffer, from).count, 0U); });
  receiver.Shutdown();
  receiving.join();
  EXPECT_LT(MonotonicMilliseconds() - began, 10'000U) << "a shutdown wakes it";
  receiver.Close();
  receiver.Shutdown();
  EXPECT_EQ(receiver.ReceiveFrom(buffer, from).error, SocketError::NotInitialised);
}

TEST(Socket, ARefusedConnectionNeverBecomesWritable) {
  Socket socket = Socket::CreateTcp();
  ASSERT_TRUE(socket.SetNonBlocking(true));
  const SocketError started = socket.Connect(*SocketAddress::Parse("127.0.0.1", 1));
  EXPECT_TRUE(started == SocketError::WouldBlock || started == SocketError::ConnectionReset);
  EXPECT_FALSE(socket.WaitWritable(50ms));
}

TEST(Socket, WorksAboveDescriptor1024AndIsCloseOnExec) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  if (before.rlim_max < 1200) {
    GTEST_SKIP() << "the system allows too few descriptors";
  }
  const rlimit enough{1200, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &enough), 0);
  {
    std::vector<Socket> many;
    for (int i = 0; i < 1100; ++i) {
      many.push_back(Socket::CreateUdp());
      ASSERT_TRUE(many.back().IsOpen());
    }
    EXPECT_EQ(fcntl(1050, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    ASSERT_EQ(many.back().Bind(*SocketAddress::Parse("127.0.0.1", 0)), SocketError::None);
    EXPECT_EQ(many.back().WaitReadable(1ms), SocketError::TimedOut);
  }
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST(SocketAddress, TakesOnlyDottedAddresses) {
  for (const char* text : {"", "camera", "1.2.3", "256.1.1.1", "1.2.3.4 ", "::1"}) {
    EXPECT_FALSE(SocketAddress::Parse(text, 1)) << text;
  }
  EXPECT_FALSE(SocketAddress::Parse(nullptr, 1));
}

}  // namespace
}  // namespace sarnevo::platform
