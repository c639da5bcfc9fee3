#include "platform/Socket.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/SendTogether.h"

namespace sarnevo::platform {
namespace {

using namespace std::chrono_literals;

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
  }
  receiver.SetReceiveTimeout(10ms);
  SocketAddress from;
  EXPECT_EQ(receiver.ReceiveJoined(buffer, from).error, SocketError::TimedOut);
}

}  // namespace
}  // namespace sarnevo::platform
