#include "simcam/stream/UdpPair.h"

#include <arpa/inet.h>
#include <event2/event.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace simcam {

namespace {

int BindUdp(const std::string& address, std::uint16_t port) {
  sockaddr_in local{};
  if (!MakeAddress(address, port, local)) {
    return -1;
  }
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int buffer = 1 << 20;
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
  if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

}  // namespace

bool MakeAddress(const std::string& address, std::uint16_t port, sockaddr_in& into) {
  into = {};
  into.sin_family = AF_INET;
  into.sin_port = htons(port);
  return inet_pton(AF_INET, address.c_str(), &into.sin_addr) == 1;
}

std::unique_ptr<UdpPair> UdpPair::Open(EventLoop& loop, const std::string& address, std::uint16_t firstPort,
                                       Received received) {
  for (unsigned port = firstPort; port < 65'000; port += 2) {
    const int rtp = BindUdp(address, static_cast<std::uint16_t>(port));
    const int rtcp = rtp < 0 ? -1 : BindUdp(address, static_cast<std::uint16_t>(port + 1));
    if (rtcp >= 0) {
      return std::unique_ptr<UdpPair>(
          new UdpPair(loop, rtp, rtcp, static_cast<std::uint16_t>(port), std::move(received)));
    }
    if (rtp >= 0) {
      close(rtp);
    }
  }
  return nullptr;
}

UdpPair::UdpPair(EventLoop& loop, int rtp, int rtcp, std::uint16_t port, Received received)
    : rtp_(rtp),
      rtcp_(rtcp),
      stranger_(BindUdp("127.255.255.254", 0)),
      port_(port),
      received_(std::move(received)),
      readable_(event_new(
          loop.base(), rtcp, EV_READ | EV_PERSIST,
          [](evutil_socket_t, short, void* self) { static_cast<UdpPair*>(self)->Drain(); }, this)) {
  event_add(readable_, nullptr);
}

UdpPair::~UdpPair() {
  event_free(readable_);
  close(rtp_);
  close(rtcp_);
  close(stranger_);
}

void UdpPair::Drain() {
  std::array<std::uint8_t, 2048> buffer;
  sockaddr_in from{};
  for (;;) {
    socklen_t length = sizeof from;
    const ssize_t count =
        recvfrom(rtcp_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    if (count < 0) {
      return;
    }
    received_(from, std::span(buffer).first(static_cast<std::size_t>(count)));
  }
}

}  // namespace simcam
