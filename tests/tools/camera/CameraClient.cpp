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

bool Readable(int socket) {
  pollfd wait{socket, POLLIN, 0};
  return poll(&wait, 1, 5000) > 0;
}

sockaddr_in AddressOf(const std::string& address, std::uint16_t port) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &made.sin_addr);
  return made;
}

const sockaddr* Plain(const sockaddr_in& address) { return reinterpret_cast<const sockaddr*>(&address); }

}  // namespace

Wire::Wire(const std::string& address, std::uint16_t port, const std::string& request)
    : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
  const sockaddr_in peer = AddressOf(address, port);
  if (connect(socket_, Plain(peer), sizeof peer) != 0) {
    close(socket_);
    socket_ = -1;
  }
  Send(request);
}

Wire::~Wire() {
  if (socket_ >= 0) close(socket_);
}

void Wire::Send(const std::string& bytes) { send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

std::string Wire::Read(std::size_t count, const std::string& end) {
  std::string bytes;
  std::array<char, 4096> buffer;
  while (bytes.size() < count && (end.empty() || !bytes.ends_with(end)) && Readable(socket_)) {
    const std::size_t most = end.empty() ? std::min(buffer.size(), count - bytes.size()) : 1;
    const ssize_t got = recv(socket_, buffer.data(), most, 0);
    if (got <= 0) {
      reset_ = got < 0 && errno == ECONNRESET;
      break;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return bytes;
}

std::string Get(const std::string& address, const std::string& target, const std::string& authorization) {
  Wire wire(address, 80,
            "GET " + target + " HTTP/1.1\r\nHost: camera\r\nConnection: close\r\n" +
                (authorization.empty() ? "" : "Authorization: " + authorization + "\r\n") + "\r\n");
  return wire.Read();
}

std::string BodyOf(const std::string& reply) {
  const std::size_t blank = reply.find("\r\n\r\n");
  return blank == std::string::npos ? "" : reply.substr(blank + 4);
}

std::uint32_t Word(const Bytes& bytes, std::size_t at) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    word = word << 8U | bytes.at(at + i);
  }
  return word;
}

Port::Port() : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
  const int buffer = 131070;  // what a driver asks for
  setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  sockaddr_in local = AddressOf("0.0.0.0", 0);
  socklen_t length = sizeof local;
  bind(socket_, Plain(local), sizeof local);
  getsockname(socket_, reinterpret_cast<sockaddr*>(&local), &length);
  number_ = ntohs(local.sin_port);
}

Port::~Port() { close(socket_); }

Bytes Port::Receive() {
  Bytes buffer(65536);
  socklen_t length = sizeof peer_;
  const ssize_t count = Readable(socket_) ? recvfrom(socket_, buffer.data(), buffer.size(), 0,
                                                     reinterpret_cast<sockaddr*>(&peer_), &length)
                                          : 0;
  buffer.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return buffer;
}

void Port::Answer(const Bytes& bytes) {
  sendto(socket_, bytes.data(), bytes.size(), 0, Plain(peer_), sizeof peer_);
}

Stream::Stream(const std::string& address, int group)
    : rtsp(address, 554), url_("rtsp://" + address + ":554" + (group == 1 ? "/object.sdp" : "/")) {
  rtsp.Send("DESCRIBE " + url_ + " RTSP/1.0\r\nCSeq: 1\r\n\r\n");
  const auto behind = [this](const std::string& key) {
    const std::size_t at = replies.find(key);
    return at == std::string::npos ? "0"
                                   : replies.substr(at + key.size(), replies.find('\r', at) - at - key.size());
  };
  replies = rtsp.Read(SIZE_MAX, "\r\n\r\n");
  replies += rtsp.Read(std::stoul(behind("Content-Length: ")));
  rtsp.Send("SETUP " + url_ + (group == 1 ? "/trackID=0" : "") +
            " RTSP/1.0\r\nCSeq: 2\r\nTransport: RTP/AVP;unicast;client_port=" + std::to_string(rtp.number()) +
            "-" + std::to_string(rtcp.number()) + "\r\n\r\n");
  replies += rtsp.Read(SIZE_MAX, "\r\n\r\n");
  session = behind("Session: ");
  replies += Request("PLAY");
}

std::string Stream::Request(const std::string& method) {
  rtsp.Send(method + " " + url_ + " RTSP/1.0\r\nCSeq: " + std::to_string(++cseq_) + "\r\nSession: " + session +
            "\r\n\r\n");
  return rtsp.Read(SIZE_MAX, "\r\n\r\n");
}

std::vector<Bytes> Stream::NextFrame() {
  std::vector<Bytes> frame;
  do {
    frame.push_back(rtp.Receive());
  } while (frame.back().size() >= 12 && (frame.back()[1] & 0x80) == 0);
  if (frame.back().empty()) {
    frame.pop_back();
  }
  return frame;
}

}  // namespace simcam_test
