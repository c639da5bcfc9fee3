#include "platform/Socket.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include <pthread.h>
#include <signal.h>

namespace sarnevo::platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A host's thread may have a timer that beats faster than our time-outs.
TEST(Socket, SignalsNeitherEndNorProlongAWait) {
  constexpr auto kTimeout = 100ms;
  std::array<std::uint8_t, 65'536> buffer;
  SocketAddress from;
  const struct {
    const char* name;
    std::function<bool(Socket&)> timesOut;
  } kRows[] = {
      {"Receive", [&](Socket& socket) { return socket.Receive(buffer).error == SocketError::NotYet; }},
      {"ReceiveFrom",
       [&](Socket& socket) { return socket.ReceiveFrom(buffer, from).error == SocketError::NotYet; }},
      {"WaitReadable", [&](Socket& socket) { return !socket.WaitReadable(kTimeout); }},
  };
  for (const int flags : {0, SA_RESTART}) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = flags;
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    for (const auto& row : kRows) {
      SCOPED_TRACE(row.name);
      Socket socket;
      ASSERT_TRUE(socket.Open(Transport::Udp));
      ASSERT_EQ(socket.Bind(SocketAddress::Any(0)), SocketError::None);
      ASSERT_TRUE(socket.SetReceiveTimeout(kTimeout));
      std::atomic<bool> over{false};
      const auto began = Clock::now();
      std::thread waiting([&] {
        EXPECT_TRUE(row.timesOut(socket));
        EXPECT_GE(Clock::now() - began, kTimeout - 1ms);
        over = true;
      });
      while (!over && Clock::now() < began + 20s) {
        pthread_kill(waiting.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(5ms);
      }
      EXPECT_TRUE(over) << "each signal gives it a new time-out";
      waiting.join();
    }
  }
}

}  // namespace
}  // namespace sarnevo::platform
