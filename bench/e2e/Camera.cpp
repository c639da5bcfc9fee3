#include "e2e/Camera.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "support/Listener.h"

namespace kolvex_bench {

namespace {

constexpr int kCamerasPerNet = 250;
constexpr int kLookMs = 50;  // longest time until an absence shows
constexpr std::string_view kInputs = "ret=200&gpio1=0&gpio2=1&relay1=0&relay2=0\r\n";

}  // namespace

std::string CameraAddress(int index) {
  return "127.1." + std::to_string(index / kCamerasPerNet) + "." + std::to_string(index % kCamerasPerNet + 1);
}

int CameraIndex(std::uint32_t address) {
  return static_cast<int>(address >> 8 & 0xFF) * kCamerasPerNet + static_cast<int>(address & 0xFF) - 1;
}

CameraControl::CameraControl(Place& place, int cameras, CameraPorts ports)
    : place_(place), cameras_(cameras), ports_(ports) {
  Listen();
}

void CameraControl::Listen() {
  cgi_ = ListenOn(ports_.cgi);
  rtsp_ = ports_.rtsp != 0 ? ListenOn(ports_.rtsp) : -1;
}

void CameraControl::Leave() {
  close(std::exchange(cgi_, -1));
  close(std::exchange(rtsp_, -1));
  for (const Connection& connection : connections_) {
    close(connection.descriptor);
  }
  connections_.clear();
  for (StreamTarget& target : place_.targets) {
    target.playing = false;
  }
}

void CameraControl::Serve(const std::atomic<bool>& absent) {
  for (;;) {
    if (absent && cgi_ >= 0) {
      Leave();
    } else if (!absent && cgi_ < 0) {
      Listen();
    }
    std::vector<pollfd> waiting{{cgi_, POLLIN, 0}, {rtsp_, POLLIN, 0}};
    for (const Connection& connection : connections_) {
      waiting.push_back({connection.descriptor, POLLIN, 0});
    }
    poll(waiting.data(), waiting.size(), kLookMs);
    std::vector<Connection> kept;
    for (std::size_t i = 0; i < connections_.size(); ++i) {
      Connection& connection = connections_[i];
      if (waiting[i + 2].revents == 0 || Read(connection)) {
        kept.push_back(std::move(connection));
      } else {
        close(connection.descriptor);
      }
    }
    connections_ = std::move(kept);
    if (waiting[0].revents != 0) {
      Accept(cgi_, false);
    }
    if (waiting[1].revents != 0) {
      Accept(rtsp_, true);
    }
  }
}

void CameraControl::Accept(int listener, bool rtsp) {
  const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  sockaddr_in local{};
  socklen_t size = sizeof(local);
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &size);
  const int camera = CameraIndex(ntohl(local.sin_addr.s_addr));
  if (camera < 0 || camera >= cameras_) {
    close(descriptor);
    return;
  }
  connections_.push_back({descriptor, camera, rtsp});
}

bool CameraControl::Read(Connection& connection) {
  char bytes[2048];
  const ssize_t count = recv(connection.descriptor, bytes, sizeof(bytes), 0);
  if (count <= 0) {
    if (connection.rtsp) {
      place_.targets[static_cast<std::size_t>(connection.camera)].playing = false;
    }
    return false;
  }
  connection.received.append(bytes, static_cast<std::size_t>(count));
  const std::size_t end = connection.received.find("\r\n\r\n");
  if (end == std::string::npos) {
    return true;
  }
  const std::string request = connection.received.substr(0, end + 4);
  connection.received.erase(0, end + 4);
  return Answer(connection, request);
}

bool CameraControl::Answer(Connection& connection, const std::string& request) {
  std::string answer;
  bool keep = true;
  if (connection.rtsp) {
    answer = AnswerRtsp(connection, request);
  } else {
    keep = ports_.keepsConnections && request.find("Connection: close") == request.npos;
    answer = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kInputs.size()) +
             (keep ? "\r\nConnection: keep-alive" : "\r\nConnection: close") + "\r\n\r\n" +
             std::string(kInputs);
    place_.requests.fetch_add(1, std::memory_order_relaxed);
  }
  send(connection.descriptor, answer.data(), answer.size(), MSG_NOSIGNAL);
  return keep;
}

std::string CameraControl::AnswerRtsp(Connection& connection, const std::string& request) {
  StreamTarget& target = place_.targets[static_cast<std::size_t>(connection.camera)];
  const std::size_t count = request.find("CSeq: ");
  const std::string head =
      "RTSP/1.0 200 OK\r\n" + request.substr(count, request.find("\r\n", count) - count) + "\r\n";
  if (request.starts_with("DESCRIBE")) {
    return head + "Content-Base: rtsp://camera/\r\nContent-Type: application/sdp\r\nContent-Length: 0\r\n\r\n";
  }
  if (request.starts_with("SETUP")) {
    const std::string ports = request.substr(request.find("client_port="), 21);
    socklen_t size = sizeof(target.to);
    getpeername(connection.descriptor, reinterpret_cast<sockaddr*>(&target.to), &size);
    target.to.sin_port = htons(static_cast<std::uint16_t>(std::atoi(ports.c_str() + 12)));
    return head + "Transport: RTP/AVP;unicast;" + ports.substr(0, ports.find('\r')) +
           ";server_port=6000-6001\r\nSession: 1\r\n\r\n";
  }
  if (request.starts_with("PLAY")) {
    target.playing.store(true, std::memory_order_release);
    return head + "Session: 1\r\n\r\n";
  }
  if (request.starts_with("TEARDOWN")) {
    target.playing = false;
    return head + "\r\n";
  }
  return head + "Session: 1\r\n\r\n";
}

}  // namespace kolvex_bench
