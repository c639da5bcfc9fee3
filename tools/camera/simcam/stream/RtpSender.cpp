#include "simcam/stream/RtpSender.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "simcam/stream/DatagramBatch.h"
#include "simcam/stream/ReportChecker.h"

namespace simcam {

namespace {

constexpr std::size_t kHeaderBytes = DatagramBatch::kHeaderBytes;
constexpr std::size_t kBatch = DatagramBatch::kCapacity;
constexpr std::size_t kMaxQueued = 100;  // frames; a sender further behind drops the newest
constexpr Microseconds kMaxGap{400};     // between two packets of a frame
constexpr double kFrameShare = 0.4;      // of a frame's time that its packets may take
constexpr double kStaggerShare = 0.3;
constexpr Microseconds kFirstReport{500'000};
constexpr Microseconds kReportInterval{5'000'000};

void PutWord(std::uint8_t* at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    at[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
  }
}

// False when it isn't to be sent at all.
bool SpoilReport(ReportFault fault, std::vector<std::uint8_t>& report) {
  constexpr std::size_t kTooShort = 19;
  switch (fault) {
    case ReportFault::Short:
      report.resize(kTooShort);
      break;
    case ReportFault::Garbage:
      report.assign(64, 0xA5);
      break;
    case ReportFault::Oversize:
      report.resize(report.size() + 6000);
      break;
    case ReportFault::Empty:
      report.clear();
      break;
    default:
      break;
  }
  return fault != ReportFault::Lose;
}

bool SameEndpoint(const sockaddr_in& a, const sockaddr_in& b) {
  return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

}  // namespace

RtpSender::RtpSender(const SenderContext& context, const sockaddr_in& rtp, const sockaddr_in& rtcp,
                     std::uint64_t seed, bool isPlayer)
    : context_(context),
      rtp_(rtp),
      rtcp_(rtcp),
      isPlayer_(isPlayer),
      mangler_(seed),
      reportTimer_(context.loop, [this] {
        SendReport();
        reportTimer_.StartOnce(kReportInterval);
      }) {
  std::mt19937_64 dice(seed);
  ssrc_ = static_cast<std::uint32_t>(dice());
  timestampBase_ = static_cast<std::uint32_t>(dice());
  nextSequence_ = static_cast<std::uint16_t>(dice());
  stagger_ = static_cast<double>(dice() % 1000) / 1000 * kStaggerShare;
}

RtpSender::~RtpSender() { Pause(); }

void RtpSender::Play(std::shared_ptr<StreamSource> source) {
  if (source == source_) {
    return;
  }
  if (source_ != nullptr) {
    source_->Unsubscribe(this);
  }
  source_ = std::move(source);
  source_->Subscribe(this);
  if (!reportTimer_.running()) {
    reportTimer_.StartOnce(kFirstReport);
  }
}

void RtpSender::Pause() {
  if (source_ != nullptr) {
    source_->Unsubscribe(this);
    source_ = nullptr;
  }
  reportTimer_.Stop();
  queue_.clear();
  context_.pacer.Remove(this);
}

void RtpSender::OnFrame(const std::shared_ptr<const PacketizedFrame>& frame) {
  if (context_.faults.silent) {
    return;
  }
  if (queue_.size() >= kMaxQueued) {
    ++context_.counters.framesDropped;
    return;
  }
  const auto lag = std::chrono::duration_cast<Clock::duration>(frame->interval * stagger_);
  queue_.push_back({frame, Clock::now() + lag});
  context_.pacer.Add(this);
}

std::size_t RtpSender::CountDue(const Queued& queued, Clock::time_point now) const {
  if (now < queued.start) {
    return 0;
  }
  const std::size_t total = queued.frame->size();
  const Clock::duration gap = std::min<Clock::duration>(
      kMaxGap, std::chrono::duration_cast<Clock::duration>(queued.frame->interval * kFrameShare) /
                   static_cast<int>(total));
  const std::size_t due = gap.count() == 0 ? total : 1 + static_cast<std::size_t>((now - queued.start) / gap);
  return std::min({due, total, queued.sent + kBatch}) - queued.sent;
}

bool RtpSender::SendDue(Clock::time_point now) {
  while (!queue_.empty()) {
    Queued& front = queue_.front();
    const std::size_t count = CountDue(front, now);
    if (count == 0) {
      return true;
    }
    if (context_.faults.packets.active()) {
      SendMangled(front, count);
    } else {
      SendPlain(front, count);
    }
    front.sent += count;
    if (front.sent < front.frame->size()) {
      return true;
    }
    ++context_.counters.framesSent;
    context_.counters.lastFrame = front.frame->counter;
    queue_.pop_front();
  }
  return false;
}

// RFC 3550, 5.1: version 2, no padding, no extension, no CSRC.
void RtpSender::WriteHeader(std::uint8_t* header, const Queued& queued, std::size_t index) {
  const bool last = index + 1 == queued.frame->size();
  header[0] = 0x80;
  header[1] = static_cast<std::uint8_t>((last ? 0x80 : 0) | queued.frame->payloadType);
  header[2] = static_cast<std::uint8_t>(nextSequence_ >> 8);
  header[3] = static_cast<std::uint8_t>(nextSequence_);
  PutWord(header + 4, TimestampOf(queued.frame->captured));
  PutWord(header + 8, ssrc_);
  ++nextSequence_;
}

void RtpSender::SendPlain(const Queued& queued, std::size_t count) {
  DatagramBatch batch;
  for (std::size_t i = 0; i < count; ++i) {
    const std::span<const std::uint8_t> payload = queued.frame->payload(queued.sent + i);
    WriteHeader(batch.Add(payload), queued, queued.sent + i);
    CountPacket(payload.size());
  }
  context_.counters.sendErrors += batch.Send(context_.sockets.rtp(), rtp_);
}

void RtpSender::SendMangled(const Queued& queued, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::span<const std::uint8_t> payload = queued.frame->payload(queued.sent + i);
    std::vector<std::uint8_t> datagram(kHeaderBytes + payload.size());
    WriteHeader(datagram.data(), queued, queued.sent + i);
    std::copy(payload.begin(), payload.end(), datagram.begin() + kHeaderBytes);
    CountPacket(payload.size());
    mangler_.Process(context_.faults.packets, context_.counters.faults, std::move(datagram),
                     [this](std::span<const std::uint8_t> bytes, PacketMangler::From from) {
                       const int socket = from == PacketMangler::From::Stranger ? context_.sockets.stranger()
                                                                                : context_.sockets.rtp();
                       if (sendto(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL,
                                  reinterpret_cast<const sockaddr*>(&rtp_), sizeof rtp_) < 0) {
                         ++context_.counters.sendErrors;
                       }
                     });
  }
}

void RtpSender::CountPacket(std::size_t payload) {
  ++packets_;
  octets_ += static_cast<std::uint32_t>(payload);
  ++context_.counters.packets;
  context_.counters.bytes += kHeaderBytes + payload;
}

std::uint32_t RtpSender::TimestampOf(Clock::time_point time) const {
  const auto micros = std::chrono::duration_cast<Microseconds>(time.time_since_epoch()).count();
  return timestampBase_ + static_cast<std::uint32_t>(micros * 9 / 100);  // 90 kHz
}

void RtpSender::SendReport() {
  lastReport_ = {ssrc_, NtpTime(std::chrono::system_clock::now()), TimestampOf(Clock::now()), packets_,
                 octets_};
  std::vector<std::uint8_t> bytes = BuildSenderReport(lastReport_, context_.cname);
  if (context_.faults.reports != ReportFault::None) {
    ++context_.counters.faults.reports;
    if (!SpoilReport(context_.faults.reports, bytes)) {
      return;
    }
  }
  sendto(context_.sockets.rtcp(), bytes.data(), bytes.size(), MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr*>(&rtcp_), sizeof rtcp_);
  ++context_.counters.reportsSent;
}

bool RtpSender::TakeReport(const sockaddr_in& from, std::span<const std::uint8_t> datagram) {
  if (!SameEndpoint(from, rtcp_)) {
    return false;
  }
  const std::string wrong = CheckReceiverReport(
      datagram, {ssrc_, lastReport_.lastSr(), static_cast<std::uint16_t>(nextSequence_ - 1), packets_ > 0});
  if (wrong.empty()) {
    ++context_.counters.answersOk;
  } else {
    ++context_.counters.answersBad;
    context_.counters.lastBadAnswer = wrong;
  }
  return true;
}

}  // namespace simcam
