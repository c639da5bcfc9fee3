// The real client against a server that says the input's bytes, whatever it is asked, and goes.
#include <algorithm>
#include <array>
#include <string_view>

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

// Takes the next line off the front.
std::string_view Line(std::string_view& rest) {
  const std::size_t end = rest.find("\r\n");
  Check(end != rest.npos, "each line of a request has its end");
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end + 2);
  return line;
}

// Nothing that a server says gets more into a request than one word after "Session:".
void CheckRequests(std::string_view said, bool setUp) {
  for (const std::string_view method : {"DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN"}) {
    if (method == "TEARDOWN" && !setUp) {
      continue;
    }
    const std::string_view first = Line(said);
    Check(first.starts_with(method) && first.substr(method.size()).starts_with(" rtsp://127.0.0.1:") &&
              first.ends_with(" RTSP/1.0") && std::ranges::count(first, ' ') == 2,
          "a request line has three words");
    Check(Line(said).starts_with("CSeq: "), "each request has its number");
    if (method == "SETUP") {
      Check(Line(said) == "Transport: RTP/AVP;unicast;client_port=3556-3557", "our ports are named");
    } else if (method != "DESCRIBE") {
      const std::string_view session = Line(said);
      Check(session.starts_with("Session: ") && session.size() < 9 + 256 &&
                session.find_first_of(" \t\n\v\f\r", 9) == session.npos,
            "a session is one bounded word");
    }
    Check(Line(said).empty(), "a request ends with a blank line");
  }
  Check(said.empty(), "no request but these");
}

}  // namespace

FUZZ_TARGET(RtspDialogue) {
  static std::uint16_t port = 0;
  static const int listener = Listen(port);
  if (input.size() > 100'000) {
    return;  // more than the socket takes without a reader
  }
  sarnevo::ChannelTiming times;
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
    Check(!client.Teardown(objectPath) || setUp, "no farewell to a session that was never set up");
    std::array<char, 8192> requests;
    const ssize_t count = recv(peer, requests.data(), requests.size(), MSG_DONTWAIT);
    CheckRequests({requests.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))}, setUp);
  }
  client.Disconnect();
  close(peer);
}
