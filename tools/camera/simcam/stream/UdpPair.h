#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "simcam/base/EventLoop.h"

namespace simcam {

/// A camera's two UDP sockets, RTP on an even port and RTCP on the next (RFC 3550, 11). Loop thread only.
class UdpPair {
 public:
  using Received = std::function<void(const sockaddr_in& from, std::span<const std::uint8_t> datagram)>;

  /// Binds the first free pair from that port up, on the address. Null when there is none. What arrives on
  /// the RTCP port goes to `received`.
  static std::unique_ptr<UdpPair> Open(EventLoop& loop, const std::string& address, std::uint16_t firstPort,
                                       Received received);
  ~UdpPair();
  UdpPair(const UdpPair&) = delete;
  UdpPair& operator=(const UdpPair&) = delete;

  int rtp() const { return rtp_; }
  int rtcp() const { return rtcp_; }
  int stranger() const { return stranger_; }  ///< at another address than the camera's
  std::uint16_t rtpPort() const { return port_; }

 private:
  UdpPair(EventLoop& loop, int rtp, int rtcp, std::uint16_t port, Received received);
  void Drain();

  const int rtp_, rtcp_, stranger_;  // owned
  const std::uint16_t port_;
  const Received received_;
  event* readable_;  // owned
};

/// Text and number as a socket address; nothing when the text is no dotted IPv4 address.
bool MakeAddress(const std::string& address, std::uint16_t port, sockaddr_in& into);

}  // namespace simcam
