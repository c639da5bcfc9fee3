#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <vector>

#include "e2e/TestFrame.h"
#include "e2e/Plan.h"
#include "e2e/Stamp.h"

namespace kolvex_bench {

/// How far the sender is in one stream.
struct StreamState {
  std::uint16_t sequence = 0;
  std::uint32_t time = 0;  ///< RTP time stamp of the frame under way
  int frame = 0;
};

/// Puts frames on the wire, as RTP, with as few system calls as it can.
class FrameSender {
 public:
  explicit FrameSender(const Plan& plan);
  ~FrameSender();
  FrameSender(const FrameSender&) = delete;
  FrameSender& operator=(const FrameSender&) = delete;

  /// All packets but the last in one system call, then the last with the time in it.
  /// @return the number of packets
  std::size_t Send(StreamState& stream, int index, sockaddr_in& to);
  /// Sends one packet of the frame, counted from 0.
  /// @return whether it was the last
  bool SendPacket(StreamState& stream, int index, std::size_t packet, sockaddr_in& to);

 private:
  static constexpr std::size_t kRtpHeader = 12;
  static constexpr std::size_t kBatch = 60;  // datagrams; a segmented one of them stays under 64 kB

  const std::vector<Payload>& PayloadsOf(const StreamState& stream, int index) const;
  void SendLast(StreamState& stream, const Payload& payload, sockaddr_in& to);
  void Prepare(std::size_t slot, StreamState& stream, const Payload& payload, bool marker, sockaddr_in& to);
  void SendPrepared(std::size_t count, sockaddr_in& to);
  void SendAtOnce(std::size_t count, sockaddr_in& to);
  void SendAlone(std::size_t slot);

  const Plan plan_;
  const std::vector<Payload> jpeg_, key_, inter_;
  const int socket_;
  bool hasComplained_ = false;
  Stamp stamp_;
  std::array<std::array<u8, kRtpHeader>, kBatch> headers_{};
  std::array<std::array<iovec, 3>, kBatch> parts_{};
  std::array<mmsghdr, kBatch> messages_{};
};

}  // namespace kolvex_bench
