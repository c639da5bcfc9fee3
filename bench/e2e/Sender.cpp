#include "e2e/Sender.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <thread>
#include <vector>

#include "TestFrame.h"
#include "e2e/Camera.h"

namespace kolvex_bench {

namespace {

constexpr std::size_t kRtpHeader = 12;
constexpr std::size_t kBatch = 64;
constexpr std::size_t kInterFrameBytes = 8'000;

struct Stream {
  std::uint16_t sequence = 0;
  std::uint32_t timestamp = 0;
  int frame = 0;
};

class FrameSender {
 public:
  FrameSender(const Plan& plan, SentCounts& sent)
      : plan_(plan),
        sent_(sent),
        jpeg_(MakeFrame(FrameKind::Jpeg, plan.frameBytes)),
        key_(MakeFrame(FrameKind::Mpeg4Key, plan.frameBytes)),
        inter_(MakeFrame(FrameKind::Mpeg4Inter, kInterFrameBytes)) {}

  void Send(Stream& stream, int index, sockaddr_in& to) {
    const std::vector<Payload>& payloads = CodecOf(plan_, index) == sarnevo::CodecMJPEG ? jpeg_
                                           : stream.frame % plan_.framesPerSecond == 0  ? key_
                                                                                        : inter_;
    for (std::size_t first = 0; first < payloads.size(); first += kBatch) {
      SendBatch(stream, payloads, first, to);
    }
    ++stream.frame;
    stream.timestamp += static_cast<std::uint32_t>(90'000 / plan_.framesPerSecond);
    sent_.packets.fetch_add(payloads.size(), std::memory_order_relaxed);
    sent_.frames.fetch_add(1, std::memory_order_relaxed);
  }

 private:
  void SendBatch(Stream& stream, const std::vector<Payload>& payloads, std::size_t first, sockaddr_in& to) {
    const std::size_t count = std::min(kBatch, payloads.size() - first);
    for (std::size_t i = 0; i < count; ++i) {
      const bool marker = first + i + 1 == payloads.size();
      const std::uint16_t sequence = stream.sequence++;
      const std::uint32_t time = stream.timestamp;
      headers_[i] = {0x80,
                     static_cast<u8>((marker ? 0x80 : 0) | 26),
                     static_cast<u8>(sequence >> 8),
                     static_cast<u8>(sequence),
                     static_cast<u8>(time >> 24),
                     static_cast<u8>(time >> 16),
                     static_cast<u8>(time >> 8),
                     static_cast<u8>(time)};
      auto* const payload = const_cast<u8*>(payloads[first + i].data());
      parts_[i] = {iovec{headers_[i].data(), kRtpHeader}, iovec{payload, payloads[first + i].size()}};
      messages_[i].msg_hdr = {&to, sizeof(to), parts_[i].data(), 2, nullptr, 0, 0};
    }
    for (std::size_t done = 0; done < count;) {
      const int sent = sendmmsg(socket_, &messages_[done], static_cast<unsigned>(count - done), 0);
      done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
    }
  }

  const Plan plan_;
  SentCounts& sent_;
  const std::vector<Payload> jpeg_, key_, inter_;
  const int socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  std::array<std::array<u8, kRtpHeader>, kBatch> headers_{};
  std::array<std::array<iovec, 2>, kBatch> parts_{};
  std::array<mmsghdr, kBatch> messages_{};
};

}  // namespace

void RunSender(const Plan& plan, SentCounts& sent, void (*ready)()) {
  const auto count = static_cast<std::size_t>(plan.streams);
  std::vector<StreamTarget> targets(count);
  std::vector<Stream> streams(count);
  CameraControl control(targets);
  std::thread([&control] { control.Serve(); }).detach();
  FrameSender sender(plan, sent);
  ready();

  using Clock = std::chrono::steady_clock;
  const auto step = std::chrono::nanoseconds(std::chrono::seconds(1)) / (plan.framesPerSecond * plan.streams);
  for (auto due = Clock::now();;) {
    for (std::size_t i = 0; i < count; ++i, due += step) {
      std::this_thread::sleep_until(due);
      if (targets[i].playing) {
        sender.Send(streams[i], static_cast<int>(i), targets[i].to);
      } else {
        streams[i] = {};
      }
    }
  }
}

}  // namespace kolvex_bench
