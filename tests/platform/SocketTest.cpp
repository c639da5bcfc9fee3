#include "platform/Socket.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>

#include "platform/Clock.h"
#include "support/SendTogether.h"

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

TEST(Socket, DatagramsThatTravelTogetherAreReceivedTogetherWithTheirBorders) {
  Socket receiver = Socket::CreateUdp();
  ASSERT_EQ(receiver.Bind(*SocketAddress::Parse("127.0.0.1", 0)), SocketError::None);
  receiver.SetReceiveTimeout(5s);
  receiver.JoinDatagrams();
  const SocketAddress to = *SocketAddress::Parse("127.0.0.1", receiver.LocalPort().value());
  std::vector<std::uint8_t> buffer(65'536);
  const struct {
    std::size_t sent, each;
    std::size_t room, bytes, expectedEach;
    SocketError error;
  } rows[] = {{3500, 1000, 65'536, 3500, 1000, SocketError::None},
              {2000, 1000, 65'536, 2000, 1000, SocketError::None},
              {999, 1000, 65'536, 999, 999, SocketError::None},
              {0, 1000, 65'536, 0, 0, SocketError::None},
              {3500, 1000, 3499, 0, 0, SocketError::TooLong},
              {64'000, 1400, 65'536, 64'000, 1400, SocketError::None}};
  for (const auto& row : rows) {
    std::vector<std::uint8_t> bytes(row.sent, 7);
    if (!kolvex_test::SendTogether(to, bytes, row.each)) {
      GTEST_SKIP() << "the system can't send several datagrams at once";
    }
    SocketAddress from;
    const JoinedDatagrams got = receiver.ReceiveJoined(std::span(buffer).first(row.room), from);
    EXPECT_EQ(got.error, row.error) << row.sent;
    EXPECT_EQ(got.bytes, row.bytes) << row.sent;
    EXPECT_EQ(got.each, row.expectedEach) << row.sent;
    EXPECT_EQ(from.Text(), "127.0.0.1");
  }
  receiver.SetReceiveTimeout(10ms);
  SocketAddress from;
  EXPECT_EQ(receiver.ReceiveJoined(buffer, from).error, SocketError::TimedOut);
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
