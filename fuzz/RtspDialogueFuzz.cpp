// The real client against a server that says the input's bytes, whatever it is asked, and goes.
#include <array>
#include <csignal>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "FuzzTarget.h"
#include "protocols/CRTSPClient.h"

namespace {

using kolvex_fuzz::Check;
using namespace std::chrono_literals;

int Listen(std::uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  Check(bind(listener, reinterpret_cast<sockaddr*>(&address), size) == 0 && listen(listener, 16) == 0,
        "listening");
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(address.sin_port);
  return listener;
}

}  // namespace

FUZZ_TARGET(RtspDialogue) {
  static std::uint16_t port = 0;
  static const int listener = Listen(port);
  if (input.size() > 100'000) {
    return;  // more than the socket takes without a reader
  }
  sarnevo::ProtocolTimes times;
  times.rtspConnectStep = 1ms;
  times.rtspReceive = 20ms;
  sarnevo::CRTSPClient client(times);
  Check(client.Connect("127.0.0.1", port, 1000), "connected");
  const int peer = accept(listener, nullptr, nullptr);
  if (!input.empty()) {
    const bool objectPath = (input[0] & 1) != 0;
    const auto said = input.subspan(1);
    send(peer, said.data(), said.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    shutdown(peer, SHUT_WR);
    client.Describe(objectPath);
    const bool setUp = client.Setup(3556, 3557, objectPath);
    client.Play(objectPath);
    client.Pause(objectPath);
    Check(setUp || !client.Teardown(objectPath), "no farewell to a session that was never set up");
  }
  client.Disconnect();
  close(peer);
}
