#include "e2e/FrameSender.h"

#include <netinet/udp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kolvex_bench {

namespace {

constexpr std::size_t kInterFrameBytes = 8'000;
constexpr std::int64_t kNanosecondsPerTick = 1'000'000'000 / 90'000;

// By the clock and not by the frame, since a stream pauses while other receivers have their turn.
std::uint32_t MediaTime() { return static_cast<std::uint32_t>(Stamp::Now() / kNanosecondsPerTick); }

}  // namespace

FrameSender::FrameSender(const Plan& plan)
    : plan_(plan),
      jpeg_(MakeFrame(FrameKind::Jpeg, plan.frameBytes)),
      key_(MakeFrame(FrameKind::Mpeg4Key, plan.frameBytes)),
      inter_(MakeFrame(FrameKind::Mpeg4Inter, kInterFrameBytes)),
      socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

FrameSender::~FrameSender() { close(socket_); }

const std::vector<Payload>& FrameSender::PayloadsOf(const StreamState& stream, int index) const {
  return CodecOf(plan_, index) == sarnevo::CodecMJPEG ? jpeg_
         : stream.frame % plan_.framesPerSecond == 0  ? key_
                                                      : inter_;
}

bool FrameSender::SendPacket(StreamState& stream, int index, std::size_t packet, sockaddr_in& to) {
  const std::vector<Payload>& payloads = PayloadsOf(stream, index);
  stream.time = packet == 0 ? MediaTime() : stream.time;
  if (packet + 1 == payloads.size()) {
    SendLast(stream, payloads[packet], to);
    return true;
  }
  Prepare(0, stream, payloads[packet], false, to);
  SendAlone(0);
  return false;
}

std::size_t FrameSender::Send(StreamState& stream, int index, sockaddr_in& to) {
  const std::vector<Payload>& payloads = PayloadsOf(stream, index);
  stream.time = MediaTime();
  const std::size_t last = payloads.size() - 1;
  for (std::size_t first = 0; first < last; first += kBatch) {
    const std::size_t count = std::min(kBatch, last - first);
    for (std::size_t i = 0; i < count; ++i) {
      Prepare(i, stream, payloads[first + i], false, to);
    }
    SendPrepared(count, to);
  }
  SendLast(stream, payloads[last], to);
  return payloads.size();
}

void FrameSender::SendLast(StreamState& stream, const Payload& payload, sockaddr_in& to) {
  Prepare(0, stream, payload, true, to);
  // The stamp takes the place of the payload's last bytes.
  parts_[0][1].iov_len -= sizeof(stamp_);
  parts_[0][2] = {&stamp_, sizeof(stamp_)};
  stamp_.nanoseconds = Stamp::Now();
  SendAlone(0);
  ++stream.frame;
}

void FrameSender::Prepare(std::size_t slot, StreamState& stream, const Payload& payload, bool marker,
                          sockaddr_in& to) {
  const std::uint16_t sequence = stream.sequence++;
  const std::uint32_t time = stream.time;
  headers_[slot] = {0x80,
                    static_cast<u8>((marker ? 0x80 : 0) | 26),
                    static_cast<u8>(sequence >> 8),
                    static_cast<u8>(sequence),
                    static_cast<u8>(time >> 24),
                    static_cast<u8>(time >> 16),
                    static_cast<u8>(time >> 8),
                    static_cast<u8>(time)};
  parts_[slot] = {iovec{headers_[slot].data(), kRtpHeader},
                  iovec{const_cast<u8*>(payload.data()), payload.size()}, iovec{}};
  messages_[slot].msg_hdr = {&to, sizeof(to), parts_[slot].data(), marker ? 3U : 2U, nullptr, 0, 0};
}

void FrameSender::SendPrepared(std::size_t count, sockaddr_in& to) {
  if (plan_.arrival != Arrival::OneByOne) {
    SendAtOnce(count, to);
    return;
  }
  for (std::size_t done = 0; done < count;) {
    // A datagram that the system refuses is lost on the wire; the receiver's figures show it.
    const int sent = sendmmsg(socket_, &messages_[done], static_cast<unsigned>(count - done), 0);
    done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
  }
}

void FrameSender::SendAtOnce(std::size_t count, sockaddr_in& to) {
  // Header and payload of each packet follow each other in one gather list, cut at the size of the first.
  std::array<iovec, 2 * kBatch> all;
  for (std::size_t i = 0; i < count; ++i) {
    all[2 * i] = parts_[i][0];
    all[2 * i + 1] = parts_[i][1];
  }
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(std::uint16_t))> control{};
  msghdr message{&to, sizeof(to), all.data(), 2 * count, control.data(), control.size(), 0};
  cmsghdr* const option = CMSG_FIRSTHDR(&message);
  option->cmsg_level = SOL_UDP;
  option->cmsg_type = UDP_SEGMENT;
  option->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
  const auto size = static_cast<std::uint16_t>(parts_[0][0].iov_len + parts_[0][1].iov_len);
  std::memcpy(CMSG_DATA(option), &size, sizeof(size));
  if (sendmsg(socket_, &message, 0) < 0 && !hasComplained_) {
    hasComplained_ = true;
    std::perror("the system can't cut datagrams");
  }
}

void FrameSender::SendAlone(std::size_t slot) {
  static_cast<void>(sendmsg(socket_, &messages_[slot].msg_hdr, 0));
}

}  // namespace kolvex_bench
