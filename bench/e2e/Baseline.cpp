#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include "e2e/Receivers.h"
#include "e2e/Stamp.h"

namespace kolvex_bench {

namespace {

constexpr std::size_t kRtpHeader = 12;
constexpr int kReceiveBuffer = 131'070;  // as the library has it
constexpr int kPriority = -5;            // as the library asks for

class BareStream {
 public:
  BareStream(StreamTarget& target, Arrivals& arrivals, const std::atomic<bool>& refusing)
      : arrivals_(arrivals), refusing_(refusing) {
    const int size = kReceiveBuffer;
    setsockopt(rtp_, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(own);
    if (bind(rtp_, reinterpret_cast<sockaddr*>(&own), length) != 0 ||
        getsockname(rtp_, reinterpret_cast<sockaddr*>(&own), &length) != 0) {
      throw std::runtime_error("no port for a bare receiver");
    }
    target.to = own;
    target.playing.store(true, std::memory_order_release);
    std::thread([this] { Receive(); }).detach();
  }

 private:
  void Receive() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kPriority);
    std::vector<unsigned char> buffer(4096);
    std::vector<unsigned char> frame(300'000);
    std::size_t size = 0;
    std::uint16_t expected = 0;
    bool whole = false;
    for (;;) {
      if (!refusing_.load(std::memory_order_relaxed)) {
        pollfd waiting{rtp_, POLLIN, 0};
        poll(&waiting, 1, 5000);
      }
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
        if (const auto age = Stamp::AgeOf(frame.data(), size); whole && age) {
          arrivals_.frames.fetch_add(1, std::memory_order_relaxed);
          arrivals_.Add(*age);
        }
        size = 0;
        whole = true;
      }
    }
  }

  const int rtp_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  Arrivals& arrivals_;
  const std::atomic<bool>& refusing_;
};

}  // namespace

void RunBaseline(const Plan& plan, Board& board, int place) {
  Place& own = board.places[static_cast<std::size_t>(place)];
  for (int i = 0; i < plan.streams; ++i) {
    // Ends with the process.
    new BareStream(own.targets[static_cast<std::size_t>(i)], own.arrivals, board.refusing);
  }
}

}  // namespace kolvex_bench
