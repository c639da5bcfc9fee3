#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>

#include "simcam/device/CameraStatus.h"
#include "simcam/device/Faults.h"
#include "simcam/stream/PacketMangler.h"
#include "simcam/stream/Pacer.h"
#include "simcam/stream/SenderReport.h"
#include "simcam/stream/StreamSource.h"
#include "simcam/stream/UdpPair.h"

namespace simcam {

/// What a sender needs of its camera. All of it outlives the sender.
struct SenderContext {
  EventLoop& loop;
  Pacer& pacer;
  const UdpPair& sockets;
  Faults& faults;
  CameraCounters& counters;
  std::string cname;
};

/// One RTP stream to one client (RFC 3550): numbers and stamps the packets of its source's frames, spreads
/// them over the frame's time, sends reports and checks the answers. Loop thread only.
class RtpSender : public FrameSink, public PacedSender {
 public:
  /// The clients' ports of SETUP; the seed draws SSRC, first sequence number and time offset.
  RtpSender(const SenderContext& context, const sockaddr_in& rtp, const sockaddr_in& rtcp, std::uint64_t seed,
            bool isPlayer);
  ~RtpSender() override;

  /// Begins or goes on, with the frames of that source. The numbers go on where they were.
  void Play(std::shared_ptr<StreamSource> source);
  void Pause();
  bool isPlayer() const { return isPlayer_; }
  bool playing() const { return source_ != nullptr; }
  const std::shared_ptr<StreamSource>& source() const { return source_; }

  /// Checks a datagram that came to the RTCP port. False if it isn't from this stream's client.
  bool TakeReport(const sockaddr_in& from, std::span<const std::uint8_t> datagram);

  void OnFrame(const std::shared_ptr<const PacketizedFrame>& frame) override;
  bool SendDue(Clock::time_point now) override;

 private:
  struct Queued {
    std::shared_ptr<const PacketizedFrame> frame;
    Clock::time_point start;
    std::size_t sent = 0;
  };
  std::size_t CountDue(const Queued& queued, Clock::time_point now) const;
  void SendPlain(const Queued& queued, std::size_t count);
  void SendMangled(const Queued& queued, std::size_t count);
  void WriteHeader(std::uint8_t* header, const Queued& queued, std::size_t index);
  void CountPacket(std::size_t payload);
  void SendReport();
  std::uint32_t TimestampOf(Clock::time_point time) const;

  const SenderContext context_;
  const sockaddr_in rtp_, rtcp_;
  const bool isPlayer_;  // the client is one of many, not one of the family
  std::uint32_t ssrc_;
  std::uint32_t timestampBase_;
  std::uint16_t nextSequence_;
  double stagger_;  // share of a frame's time by which this stream lags, so that streams don't burst together
  PacketMangler mangler_;
  std::shared_ptr<StreamSource> source_;  // null while paused
  std::deque<Queued> queue_;
  Timer reportTimer_;
  SenderReport lastReport_;
  std::uint32_t packets_ = 0, octets_ = 0;
};

}  // namespace simcam
