#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace simcam_test {

/// A client of the simulated camera that reads everything as bytes, on plain sockets. Each wait has a limit
/// of some seconds, after which what has come counts.
class Wire {
 public:
  Wire(const std::string& address, std::uint16_t port);  ///< connects
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  bool connected() const { return socket_ >= 0; }
  void Send(const std::string& bytes);
  /// Until the peer closes or `count` bytes have come.
  std::string Read(std::size_t count = SIZE_MAX);
  /// Until that text has come at the end.
  std::string ReadUntil(const std::string& end);
  bool closed() const { return closed_; }  ///< the last read ended because the peer closed
  bool reset() const { return reset_; }

 private:
  int socket_ = -1;
  bool closed_ = false, reset_ = false;
};

/// GET with the cameras' default credentials, or with that Authorization value. The whole reply.
std::string Get(const std::string& address, const std::string& target,
                const std::string& authorization = "Basic YWRtaW46a29sdmV4");
std::string BodyOf(const std::string& reply);

struct Datagram {
  std::vector<std::uint8_t> bytes;
  std::uint16_t sequence() const { return static_cast<std::uint16_t>(bytes[2] << 8 | bytes[3]); }
  std::uint32_t word(std::size_t at) const {
    return static_cast<std::uint32_t>(bytes[at]) << 24U | static_cast<std::uint32_t>(bytes[at + 1]) << 16U |
           static_cast<std::uint32_t>(bytes[at + 2]) << 8U | bytes[at + 3];
  }
  bool marker() const { return (bytes[1] & 0x80) != 0; }
};

/// A client's UDP port.
class Port {
 public:
  Port();
  ~Port();
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  std::uint16_t number() const { return number_; }
  /// The next datagram; nothing when none came within the limit.
  std::optional<Datagram> Receive(int milliseconds = 5000);
  void Answer(const std::vector<std::uint8_t>& bytes);  ///< to where the last datagram came from

 private:
  int socket_;
  std::uint16_t number_ = 0;
  std::uint32_t peerAddress_ = 0;  // network order, like the port
  std::uint16_t peerPort_ = 0;
};

/// An RTSP session that plays, in the words of a group's client.
class Stream {
 public:
  Stream(const std::string& address, int group);

  std::string Request(const std::string& method);  ///< with the next CSeq; gives the reply
  /// The datagrams of the next whole frame; fewer or none when the limit ran out.
  std::vector<Datagram> NextFrame();

  Wire rtsp;
  Port rtp, rtcp;
  std::string describe, setup, play;  ///< replies
  std::string session;

 private:
  const std::string url_;
  int cseq_ = 1;
};

}  // namespace simcam_test
