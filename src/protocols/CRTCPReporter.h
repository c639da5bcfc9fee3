#pragma once

#include <array>
#include <atomic>
#include <optional>
#include <span>
#include <string>

#include "device/ChannelTiming.h"
#include "kolvex/Types.h"
#include "platform/Socket.h"
#include "threads/COptex.h"
#include "threads/StoppableThread.h"

namespace sarnevo {

/// Answers the camera's RTCP sender reports (RFC 3550, 6.4) on a thread and a UDP socket of its own, each at
/// once and to where it came from. Sends nothing by itself. Also keeps the sequence number of the last RTP
/// packet, which the answers carry.
///
/// Reports nothing: without a socket, or when it fails, the thread ends quietly and RTP goes on without it.
class CRTCPReporter {
 public:
  /// Gives the name that goes out as CNAME; nothing when the system doesn't say.
  using HostNameSource = std::optional<std::string> (*)();

  explicit CRTCPReporter(const ChannelTiming& times = {}, HostNameSource hostName = &platform::LocalHostName);
  /// Ends the thread if Stop hasn't.
  ~CRTCPReporter();
  CRTCPReporter(const CRTCPReporter&) = delete;
  CRTCPReporter& operator=(const CRTCPReporter&) = delete;

  /// Starts the thread, which answers on the local UDP @p port. False only when there is no thread; a taken
  /// port doesn't show.
  bool Start(u32 port) noexcept;
  /// Asks the thread to end. Any thread may call.
  void RequestStop() noexcept;
  /// Waits for the thread. False when it didn't end in time and had to be interrupted; it has ended in any case.
  bool Stop() noexcept;

  /// Sequence number of the last RTP packet; 0 until the first. No lock: an answer may carry a number that
  /// is one packet old.
  u16 GetLastSequence() const noexcept { return lastSequence_.load(std::memory_order_relaxed); }
  void SetLastSequence(u16 sequence) noexcept { lastSequence_.store(sequence, std::memory_order_relaxed); }

 private:
  void Run() noexcept;
  bool OpenSocket() noexcept;
  void ReceiveReport() noexcept;
  void Answer(std::span<const u8> report, const platform::SocketAddress& from) noexcept;

  const ChannelTiming times_;
  const HostNameSource hostName_;

  // Reporter's thread only. Kept for whoever looks with a debugger.
  u32 lastError_ = 0;          // platform::SocketError of the last failed receive
  u64 lastReportTime_ = 0;     // arrival of the last sender report, UTC as in platform::UtcFileTime
  u32 lastReportRtpTime_ = 0;  // RTP timestamp of the last sender report

  COptex startLock_;  // held through Start, which first waits for the end of an earlier thread
  // Set by any thread and by the reporter's own, read by the latter.
  std::atomic<u32> stopRequested_{0};
  // The thread's loop is live. Written by the thread.
  std::atomic<u32> threadRunning_{0};
  platform::Socket socket_;  // the reporter's thread, and Shutdown from any
  // Written in Start before the thread exists.
  u32 port_ = 0;
  u32 ssrc_ = 0;
  StoppableThread thread_;  // the owner's thread
  std::atomic<u16> lastSequence_{0};
  // Written in Start before the thread exists.
  std::array<char, 128> cname_{};
  u16 cnameLength_ = 0;
};

}  // namespace sarnevo
