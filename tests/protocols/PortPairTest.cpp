#include "protocols/PortPair.h"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>

#include "platform/Socket.h"
#include "protocols/CRTCPReporter.h"
#include "protocols/CUDPPort.h"

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

// A port of another process, as far as the search can see; null when somebody has it.
std::shared_ptr<Socket> Foreign(u16 port) {
  auto socket = std::make_shared<Socket>();
  return socket->Open(platform::Transport::Udp) && socket->Bind(SocketAddress::Any(port)) == SocketError::None
             ? socket
             : nullptr;
}

// What a search that knows nothing would find.
u16 FirstFree() {
  u16 port = 3556;
  while (!Foreign(port)) {
    port = static_cast<u16>(port + 2);
  }
  return port;
}

TEST(PortPair, IsAlwaysTheFirstFreeOneOf500WhoeverTakesAndFreesPorts) {
  std::minstd_rand random(1);
  std::map<u16, std::shared_ptr<void>> held;
  for (int step = 0; step < 300; ++step) {
    const auto choice = random() % 6;
    const auto port = static_cast<u16>(3556 + 2 * (random() % 60));
    if (choice == 0 && !held.empty()) {
      held.erase(std::next(held.begin(), static_cast<int>(random() % held.size())));
    } else if (choice == 1 && !held.contains(port)) {
      held.emplace(port, Foreign(port));
    } else {
      const u16 expected = FirstFree();
      const auto stream = std::make_shared<Stream>();
      ASSERT_TRUE(stream->pair) << "step " << step;
      ASSERT_EQ(stream->pair->rtp, expected) << "step " << step;
      ASSERT_EQ(stream->pair->rtcp, expected + 1);
      held.emplace(expected, stream);
    }
  }
  EXPECT_GT(held.size(), 60U);
  while (held.size() < 500) {
    const auto stream = std::make_shared<Stream>();
    ASSERT_TRUE(stream->pair) << held.size();
    held.emplace(stream->pair->rtp, stream);
  }
  EXPECT_FALSE(Stream().pair) << "the range is used up";
}

}  // namespace
}  // namespace sarnevo
