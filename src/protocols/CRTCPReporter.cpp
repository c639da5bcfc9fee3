#include "protocols/CRTCPReporter.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <random>
#include <stop_token>
#include <string_view>

#include "platform/Clock.h"
#include "protocols/BigEndian.h"
#include "protocols/RtcpAnswer.h"

namespace sarnevo {

using platform::ReceiveResult;
using platform::SocketAddress;
using platform::SocketError;

namespace {

constexpr u32 kSocketBuffer = 0x10000;
constexpr std::size_t kReadBytes = 4096;
constexpr std::string_view kDefaultName = "default";

// A generator of our own, since the process's belongs to the host. Its seed is the time in seconds, so that streams
// which start in the same second have the same SSRC. Each is a session of its own, so that they never meet.
u32 DrawSsrc() {
  std::minstd_rand generator(static_cast<u32>(std::time(nullptr)));
  u32 ssrc = 0;
  for (int i = 0; i < 4; ++i) {
    ssrc = ssrc << 8 | (generator() & 0xFF);
  }
  return ssrc;
}

}  // namespace

CRTCPReporter::CRTCPReporter(const ChannelTiming& times, HostNameSource hostName)
    : times_(times), hostName_(hostName) {}

CRTCPReporter::~CRTCPReporter() {
  RequestStop();
  Stop();
}

bool CRTCPReporter::Start(u32 port) noexcept {
  const COptexGuard guard(startLock_);
  if (thread_.HasHandle()) {
    RequestStop();
    Stop();
  }
  port_ = port;
  stopRequested_.store(0, std::memory_order_relaxed);
  ssrc_ = DrawSsrc();
  // A name that doesn't fit, here or in the memory that is left, counts as none.
  std::optional<std::string> found;
  try {
    found = hostName_();
  } catch (const std::bad_alloc&) {
    found.reset();
  }
  const std::string_view name =
      found && found->size() < cname_.size() ? std::string_view(*found) : kDefaultName;
  cname_.fill('\0');
  std::copy(name.begin(), name.end(), cname_.begin());
  cnameLength_ = static_cast<u16>(name.size());
  return thread_.Start("KolvexRTCP", [this] { Run(); });
}

void CRTCPReporter::RequestStop() noexcept {
  stopRequested_.store(1, std::memory_order_relaxed);
  socket_.Shutdown();  // so that the thread sees it at once and not after its time-out
}

bool CRTCPReporter::Stop() noexcept { return thread_.End(times_.reporterStop); }

void CRTCPReporter::Run() noexcept {
  if (OpenSocket()) {
    // All that the thread ever waits for is its socket.
    const std::stop_callback interrupt(own_thread::InterruptToken(), [this] { RequestStop(); });
    threadRunning_.store(1, std::memory_order_relaxed);
    while (stopRequested_.load(std::memory_order_relaxed) == 0) {
      ReceiveReport();
    }
    socket_.Shutdown();
  }
  socket_.Close();
  threadRunning_.store(0, std::memory_order_relaxed);
}

bool CRTCPReporter::OpenSocket() noexcept {
  if (!socket_.Open(platform::Transport::Udp)) {
    return false;
  }
  // When the port is taken the camera's reports go elsewhere; the stream works without answers.
  static_cast<void>(socket_.Bind(SocketAddress::Any(static_cast<u16>(port_))));
  return socket_.SetReceiveBuffer(kSocketBuffer) && socket_.SetReceiveTimeout(times_.reporterReceive) &&
         socket_.SetSendBuffer(kSocketBuffer) && socket_.SetSendTimeout(times_.reporterReceive);
}

void CRTCPReporter::ReceiveReport() noexcept {
  std::array<u8, kReadBytes> buffer;
  SocketAddress from;
  const ReceiveResult got = socket_.ReceiveFrom(buffer, from);
  if (got.error != SocketError::None) {
    lastError_ = static_cast<u32>(got.error);
    if (got.error == SocketError::NotYet) {
      return;
    }
  }
  if (got.count == 0) {
    stopRequested_.store(1, std::memory_order_relaxed);
    return;
  }
  Answer(std::span(buffer).first(got.count), from);
}

// What isn't a sender report at all gets the same answer.
void CRTCPReporter::Answer(std::span<const u8> report, const SocketAddress& from) noexcept {
  const auto answer = AnswerSenderReport(report, ssrc_, {cname_.data(), cnameLength_}, GetLastSequence());
  if (!answer) {
    return;
  }
  lastReportTime_ = platform::UtcFileTime();
  lastReportRtpTime_ = ReadU32(&report[16]);
  static_cast<void>(socket_.SendTo(*answer, from));
}

}  // namespace sarnevo
