#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

namespace simcam_test {

/// A client of the simulated camera that reads everything as bytes, on plain sockets. Each wait has a limit
/// of some seconds, after which what has come counts.
class Wire {
 public:
  Wire(const std::string& address, std::uint16_t port, const std::string& request = "");
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  bool connected() const { return socket_ >= 0; }
  void Send(const std::string& bytes);
  /// Until the peer closes, `count` bytes have come, or they end so.
  std::string Read(std::size_t count = SIZE_MAX, const std::string& end = "");
  bool reset() const { return reset_; }  ///< the last read ended so

 private:
  int socket_ = -1;
  bool reset_ = false;
};

/// GET with the cameras' default credentials, or with that Authorization value. The whole reply.
std::string Get(const std::string& address, const std::string& target,
                const std::string& authorization = "Basic YWRtaW46a29sdmV4");
std::string BodyOf(const std::string& reply);

using Bytes = std::vector<std::uint8_t>;

std::uint32_t Word(const Bytes& bytes, std::size_t at);  ///< 32 bits in network order

/// A client's UDP port.
class Port {
 public:
  Port();
  ~Port();
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  std::uint16_t number() const { return number_; }
  /// The next datagram; nothing when none came within the limit.
  Bytes Receive();
  void Answer(const Bytes& bytes);  ///< to where the last datagram came from

 private:
  int socket_;
  std::uint16_t number_ = 0;
  sockaddr_in peer_{};  // of the last datagram
};

/// An RTSP session that plays, in the words of a group's client.
class Stream {
 public:
  Stream(const std::string& address, int group);

  std::string Request(const std::string& method);  ///< with the next CSeq; gives the reply
  /// The datagrams of the next whole frame; fewer or none when the limit ran out.
  std::vector<Bytes> NextFrame();

  Wire rtsp;
  Port rtp, rtcp;
  std::string replies;  ///< to DESCRIBE, SETUP and PLAY
  std::string session;

 private:
  const std::string url_;
  int cseq_ = 2;
};

}  // namespace simcam_test
