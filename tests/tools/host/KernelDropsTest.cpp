#include "KernelDrops.h"

#include <gtest/gtest.h>

#include <array>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

TEST(KernelDrops, CountsWhatIsThrownAwayAndKeepsTheCountOfAClosedSocket) {
  kolvex_host::KernelDrops drops;
  std::uint64_t expected = 0;
  for (int round = 0; round < 2; ++round) {
    const int receiver = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(bind(receiver, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const int small = 1;
    setsockopt(receiver, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
    std::array<char, 1000> datagram{};
    for (int part = 0; part < 2; ++part) {
      for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(
            sendto(receiver, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&address), size),
            1000);
      }
      expected += 50;
      while (recv(receiver, datagram.data(), datagram.size(), MSG_DONTWAIT) > 0) {
        --expected;
      }
      drops.Look();
      EXPECT_EQ(drops.Total(), expected);
    }
    close(receiver);
  }
  EXPECT_GT(expected, 100U);
}

}  // namespace
