#include "CameraClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace simcam_test {

namespace {

constexpr int kLimit = 5000;  // milliseconds

bool Readable(int socket, int milliseconds) {
  pollfd wait{socket, POLLIN, 0};
  return poll(&wait, 1, milliseconds) > 0;
}

sockaddr_in AddressOf(const std::string& address, std::uint16_t port) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &made.sin_addr);
  return made;
}

}  // namespace

Wire::Wire(const std::string& address, std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
  const sockaddr_in peer = AddressOf(address, port);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
    close(socket_);
    socket_ = -1;
  }
}

Wire::~Wire() {
  if (socket_ >= 0) close(socket_);
}

void Wire::Send(const std::string& bytes) { send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

std::string Wire::Read(std::size_t count) {
  std::string bytes;
  std::array<char, 4096> buffer;
  while (bytes.size() < count && Readable(socket_, kLimit)) {
    const ssize_t got = recv(socket_, buffer.data(), std::min(buffer.size(), count - bytes.size()), 0);
    if (got <= 0) {
      closed_ = true;
      reset_ = got < 0 && errno == ECONNRESET;
      break;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return bytes;
}

std::string Wire::ReadUntil(const std::string& end) {
  std::string bytes;
  while (!bytes.ends_with(end)) {
    const std::string next = Read(1);
    if (next.empty()) break;
    bytes += next;
  }
  return bytes;
}

std::string Get(const std::string& address, const std::string& target, const std::string& authorization) {
  Wire wire(address, 80);
  wire.Send("GET " + target + " HTTP/1.1\r\nHost: camera\r\nConnection: close\r\n" +
            (authorization.empty() ? "" : "Authorization: " + authorization + "\r\n") + "\r\n");
  return wire.Read();
}

std::string BodyOf(const std::string& reply) {
  const std::size_t blank = reply.find("\r\n\r\n");
  return blank == std::string::npos ? "" : reply.substr(blank + 4);
}

Port::Port() : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
  const int buffer = 131070;  // what a driver asks for
  setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  sockaddr_in local = AddressOf("0.0.0.0", 0);
  socklen_t length = sizeof local;
  bind(socket_, reinterpret_cast<const sockaddr*>(&local), sizeof local);
  getsockname(socket_, reinterpret_cast<sockaddr*>(&local), &length);
  number_ = ntohs(local.sin_port);
}

Port::~Port() { close(socket_); }

std::optional<Datagram> Port::Receive(int milliseconds) {
  if (!Readable(socket_, milliseconds)) {
    return std::nullopt;
  }
  std::array<std::uint8_t, 65536> buffer;
  sockaddr_in from{};
  socklen_t length = sizeof from;
  const ssize_t count =
      recvfrom(socket_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
  peerAddress_ = from.sin_addr.s_addr;
  peerPort_ = from.sin_port;
  return Datagram{{buffer.begin(), buffer.begin() + count}};
}

void Port::Answer(const std::vector<std::uint8_t>& bytes) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = peerAddress_;
  to.sin_port = peerPort_;
  sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

Stream::Stream(const std::string& address, int group)
    : rtsp(address, 554), url_("rtsp://" + address + ":554" + (group == 1 ? "/object.sdp" : "/")) {
  rtsp.Send("DESCRIBE " + url_ + " RTSP/1.0\r\nCSeq: 1\r\n\r\n");
  describe = rtsp.ReadUntil("\r\n\r\n");
  const std::size_t length = describe.find("Content-Length: ");
  if (length != std::string::npos) {
    describe += rtsp.Read(std::stoul(describe.substr(length + 16)));
  }
  rtsp.Send("SETUP " + url_ + (group == 1 ? "/trackID=0" : "") +
            " RTSP/1.0\r\nCSeq: " + std::to_string(++cseq_) + "\r\nTransport: RTP/AVP;unicast;client_port=" +
            std::to_string(rtp.number()) + "-" + std::to_string(rtcp.number()) + "\r\n\r\n");
  setup = rtsp.ReadUntil("\r\n\r\n");
  const std::size_t at = setup.find("Session: ");
  if (at != std::string::npos) {
    session = setup.substr(at + 9, setup.find("\r\n", at) - at - 9);
  }
  play = Request("PLAY");
}

std::string Stream::Request(const std::string& method) {
  rtsp.Send(method + " " + url_ + " RTSP/1.0\r\nCSeq: " + std::to_string(++cseq_) + "\r\nSession: " + session +
            "\r\n\r\n");
  return rtsp.ReadUntil("\r\n\r\n");
}

std::vector<Datagram> Stream::NextFrame() {
  std::vector<Datagram> frame;
  while (std::optional<Datagram> datagram = rtp.Receive()) {
    frame.push_back(*datagram);
    if (datagram->bytes.size() >= 12 && datagram->marker()) {
      break;
    }
  }
  return frame;
}

}  // namespace simcam_test
