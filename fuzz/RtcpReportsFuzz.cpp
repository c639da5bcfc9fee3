// Datagrams to the reporter of a stream, over UDP on the loopback: which are answered, and with what, byte by byte.
// An input is a list of datagrams, each with its length in front.
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FuzzTarget.h"
#include "platform/Socket.h"
#include "protocols/CRTCPReporter.h"

namespace {

using kolvex_fuzz::Bytes;
using kolvex_fuzz::Check;
using namespace sarnevo;
using namespace std::chrono_literals;

constexpr u16 kPort = 4600;  // none that a stream takes

// A camera's end of the reports.
class Peer {
 public:
  Peer() { Check(socket_.Open(platform::Transport::Udp), "a socket"); }
  void Send(Bytes datagram) {
    Check(socket_.SendTo(datagram, *platform::SocketAddress::Parse("127.0.0.1", kPort)) ==
              platform::SocketError::None,
          "sent");
  }
  // Nothing when none comes in time.
  std::optional<std::vector<u8>> Receive(platform::Milliseconds limit) {
    std::vector<u8> answer(2048);
    platform::SocketAddress from;
    if (!socket_.WaitReadable(limit)) {
      return std::nullopt;
    }
    answer.resize(socket_.ReceiveFrom(answer, from).count);
    return answer;
  }

 private:
  platform::Socket socket_;
};

std::optional<std::string> HostName() { return "a-name-that-is-longer-than-the-26-bytes"; }

class Reports {
 public:
  /// The reporter, running and heard of.
  void Start() {
    if (running_) {
      return;
    }
    reporter_ = std::make_unique<CRTCPReporter>(ChannelTiming{}, &HostName);
    Check(reporter_->Start(kPort), "the reporter starts");
    // Until the reporter listens, what is sent is lost.
    for (int i = 0; !running_; ++i) {
      Check(i < 4000, "the reporter answers");
      peer_.Send(kProbe);
      running_ = peer_.Receive(5ms).has_value();
    }
    // The answers to earlier tries may come late, but in order: after that to this one there is none.
    peer_.Send(kLastProbe);
    for (bool last = false; !last;) {
      const auto answer = peer_.Receive(10s);
      Check(answer && answer->size() == 68, "each try is answered");
      last = std::ranges::equal(Bytes(*answer).subspan(24, 4), Bytes(kLastProbe).subspan(10, 4));
    }
  }

  void Ask(Bytes datagram, u16 lastSequence) {
    Start();
    reporter_->SetLastSequence(lastSequence);
    peer_.Send(datagram);
    if (datagram.empty() || datagram.size() > 4096) {
      // Ends it, for good and without a word.
      Check(reporter_->Stop(), "the reporter has ended");
      Check(!peer_.Receive(0ms), "a last word");
      running_ = false;
      return;
    }
    if (datagram.size() >= 20) {
      CheckAnswer(datagram, lastSequence);
    }
    // What comes next is the answer to a report of ours, so that there was no other.
    peer_.Send(kProbe);
    CheckAnswer(kProbe, lastSequence);
  }

 private:
  void CheckAnswer(Bytes asked, u16 lastSequence) {
    const auto answer = peer_.Receive(10s);
    Check(answer && answer->size() == 68, "an answer has 68 bytes, whatever was asked");
    std::vector<u8> wanted{0x81, 201, 0, 7};
    const auto add = [&wanted](Bytes bytes) { wanted.insert(wanted.end(), bytes.begin(), bytes.end()); };
    const Bytes ssrc = Bytes(*answer).subspan(4, 4);
    add(ssrc);
    add(asked.subspan(4, 4));
    wanted.resize(18);
    wanted.push_back(static_cast<u8>(lastSequence >> 8));
    wanted.push_back(static_cast<u8>(lastSequence));
    wanted.resize(24);
    add(asked.subspan(10, 4));
    wanted.insert(wanted.end(), {0, 0, 0, 1, 0x81, 202, 0, 5});
    add(ssrc);
    const std::string name = *HostName();
    wanted.push_back(1);
    wanted.push_back(static_cast<u8>(name.size()));
    wanted.insert(wanted.end(), name.begin(), name.begin() + 26);
    Check(*answer == wanted, "the answer has what was asked and nothing else");
  }

  static constexpr std::array<u8, 28> kProbe = {0x80, 200, 0, 6, 'p', 'r', 'o', 'b', 1, 2, 3, 4, 5, 6};
  static constexpr std::array<u8, 28> kLastProbe = {0x80, 200, 0, 6,   'p', 'r', 'o',
                                                    'b',  0,   0, 'l', 'a', 's', 't'};
  Peer peer_;
  std::unique_ptr<CRTCPReporter> reporter_;
  bool running_ = false;
};

}  // namespace

FUZZ_TARGET(RtcpReports) {
  static Reports reports;
  kolvex_fuzz::Reader reader(input);
  for (int datagrams = 0; !reader.IsEmpty() && datagrams < 64; ++datagrams) {
    const u8 size = reader.Byte();
    const u16 last = reader.Byte();
    const Bytes part = reader.Take(size);
    std::vector<u8> datagram(part.begin(), part.end());
    // A few are long: what doesn't fit the reporter's buffer ends it.
    datagram.resize(datagram.size() * (last == 0xFF ? 40 : 1));
    reports.Ask(datagram, static_cast<u16>(last << 8 | size));
  }
}
