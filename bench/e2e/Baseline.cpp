#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "e2e/Receivers.h"

namespace kolvex_bench {

namespace {

constexpr std::size_t kRtpHeader = 12;
constexpr int kReceiveBuffer = 131'070;  // as the library has it
constexpr int kPriority = -5;            // as the library asks for

class BareStream {
 public:
  explicit BareStream(const std::string& camera) {
    const int size = kReceiveBuffer;
    setsockopt(rtp_, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    sockaddr_in any{};
    any.sin_family = AF_INET;
    socklen_t length = sizeof(any);
    bind(rtp_, reinterpret_cast<sockaddr*>(&any), length);
    getsockname(rtp_, reinterpret_cast<sockaddr*>(&any), &length);
    const std::string port = std::to_string(ntohs(any.sin_port));

    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(554);
    inet_pton(AF_INET, camera.c_str(), &to.sin_addr);
    if (connect(rtsp_, reinterpret_cast<sockaddr*>(&to), sizeof(to)) != 0) {
      throw std::runtime_error("no connection to " + camera);
    }
    thread_ = std::thread([this] { Receive(); });
    Ask("SETUP rtsp://" + camera + "/ RTSP/1.0\r\nCSeq: 1\r\nTransport: RTP/AVP;unicast;client_port=" + port +
        "-" + port + "\r\n\r\n");
    Ask("PLAY rtsp://" + camera + "/ RTSP/1.0\r\nCSeq: 2\r\n\r\n");
  }

  ~BareStream() {
    ending_ = true;
    shutdown(rtp_, SHUT_RDWR);
    thread_.join();
    close(rtp_);
    close(rtsp_);
  }

  std::uint64_t Frames() const { return frames_.load(std::memory_order_relaxed); }

 private:
  void Ask(const std::string& request) {
    send(rtsp_, request.data(), request.size(), MSG_NOSIGNAL);
    std::string reply;
    char byte = 0;
    while (!reply.ends_with("\r\n\r\n") && recv(rtsp_, &byte, 1, 0) == 1) {
      reply += byte;
    }
  }

  void Receive() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kPriority);
    std::vector<unsigned char> buffer(4096);
    std::vector<unsigned char> frame(300'000);
    std::size_t size = 0;
    std::uint16_t expected = 0;
    bool whole = false;
    while (!ending_.load(std::memory_order_relaxed)) {
      pollfd waiting{rtp_, POLLIN, 0};
      poll(&waiting, 1, 5000);
      sockaddr_in from{};
      socklen_t length = sizeof(from);
      const ssize_t count =
          recvfrom(rtp_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
      if (count <= static_cast<ssize_t>(kRtpHeader)) {
        continue;
      }
      const auto sequence = static_cast<std::uint16_t>(buffer[2] << 8 | buffer[3]);
      whole = whole && sequence == expected;
      expected = static_cast<std::uint16_t>(sequence + 1);
      const std::size_t payload = static_cast<std::size_t>(count) - kRtpHeader;
      if (size + payload <= frame.size()) {
        std::memcpy(frame.data() + size, buffer.data() + kRtpHeader, payload);
        size += payload;
      }
      if ((buffer[1] & 0x80) != 0) {
        frames_.fetch_add(whole ? 1 : 0, std::memory_order_relaxed);
        size = 0;
        whole = true;
      }
    }
  }

  const int rtp_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int rtsp_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::atomic<bool> ending_{false};
  std::atomic<std::uint64_t> frames_{0};
  std::thread thread_;
};

}  // namespace

Measurement RunBaseline(const Plan& plan, const SentCounts& sent, bool counting) {
  std::vector<std::unique_ptr<BareStream>> streams;
  for (int i = 0; i < plan.streams; ++i) {
    streams.push_back(std::make_unique<BareStream>(CameraAddress(i)));
  }
  const auto complete = [&] {
    std::uint64_t all = 0;
    for (const auto& stream : streams) {
      all += stream->Frames();
    }
    return all;
  };
  const auto isUp = [&] {
    for (const auto& stream : streams) {
      if (stream->Frames() < 5) {
        return false;
      }
    }
    return true;
  };
  return Measure(plan, sent, counting, complete, isUp);
}

}  // namespace kolvex_bench
