#include "support/ScriptedCamera.h"

namespace kolvex_test {

using namespace sarnevo::platform;

namespace {

// What comes after a mark, up to the next space or the end of the line.
std::string After(const std::string& text, const std::string& mark) {
  const std::size_t begin = text.find(mark);
  return begin == text.npos ? ""
                            : text.substr(begin + mark.size(),
                                          text.find_first_of(" \r", begin + mark.size()) - begin - mark.size());
}

std::string Method(const std::string& request) { return request.substr(0, request.find(' ')); }

}  // namespace

ScriptedCamera::ScriptedCamera(int group, std::string address, bool speaksRtsp)
    : group_(group),
      address_(std::move(address)),
      http_([this](Connection& connection) { ServeHttp(connection); }, Address()) {
  socket_.Open(Transport::Udp);
  if (speaksRtsp) {
    rtsp_.emplace([this](Connection& connection) { ServeRtsp(connection); }, Address(), 554);
  }
}

void ScriptedCamera::ServeHttp(Connection& connection) {
  const std::string request = connection.ReadHead();
  if (request.empty()) {
    return;
  }
  log.Add("GET " + After(request, "GET "));
  if (!onHttp || !onHttp(connection, request)) {
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nret=200\r\n");
  }
}

void ScriptedCamera::ServeRtsp(Connection& connection) {
  for (std::string request = connection.ReadHead(); !request.empty(); request = connection.ReadHead()) {
    const std::string method = Method(request);
    const std::string ports = After(request, "client_port=");
    if (method == "SETUP") {
      rtpPort_ = static_cast<std::uint16_t>(std::stoi(ports));
    }
    log.Add(method + (ports.empty() ? "" : " " + ports));
    if (!onRtsp || !onRtsp(connection, request)) {
      connection.Send(Reply(request));
    }
  }
}

std::string ScriptedCamera::Reply(const std::string& request) const {
  const std::string method = Method(request);
  std::string reply = "RTSP/1.0 200 OK\r\nCSeq: " + After(request, "CSeq: ") + "\r\n";
  reply += group_ == 2 ? "Server: camera\r\n" : "";
  if (method == "DESCRIBE") {
    return reply +
           "Content-Base: rtsp://camera/\r\nContent-Type: application/sdp\r\nContent-Length: 5\r\n\r\nv=0\r\n";
  }
  if (method == "SETUP") {
    reply += "Transport: RTP/AVP;unicast;client_port=" + After(request, "client_port=") +
             ";server_port=6970-6971\r\n";
  }
  return reply + (method == "TEARDOWN" ? "\r\n" : "Session: 12345\r\n\r\n");
}

void ScriptedCamera::Send(std::uint16_t sequence, bool marker, const Payload& payload) {
  Payload packet{0x80, static_cast<std::uint8_t>(marker ? 0x9A : 0x1A),
                 static_cast<std::uint8_t>(sequence >> 8), static_cast<std::uint8_t>(sequence)};
  packet.resize(12);
  packet.insert(packet.end(), payload.begin(), payload.end());
  socket_.SendTo(packet, *SocketAddress::Parse("127.0.0.1", rtpPort_));
}

void ScriptedCamera::StartSending(Payload payload) {
  sending_ = true;
  sender_ = std::thread([this, payload = std::move(payload)] {
    while (sending_) {
      if (rtpPort_ != 0) {
        Send(sequence_++, true, payload);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
}

std::uint16_t ScriptedCamera::StopSending() {
  sending_ = false;
  if (sender_.joinable()) {
    sender_.join();
  }
  return sequence_;
}

Payload JpegFramePacket(int group) {
  Payload payload{0, 0, 0, 0, 1, 255, 44, 36};
  payload.resize(group == 1 ? 200 : 300);
  return payload;
}

Payload Mpeg4KeyFramePacket() {
  return {0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0xB5, 0x89, 0x13, 0x00, 0x00, 0x01, 0x00, 0x00,
          0x00, 0x01, 0x20, 0x00, 0xC4, 0x8D, 0x88, 0x00, 0xCD, 0x0B, 0x04, 0x24, 0x14, 0x63, 0x00};
}

}  // namespace kolvex_test
