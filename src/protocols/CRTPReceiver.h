#pragma once

#include <atomic>

#include "device/ChannelTiming.h"
#include "protocols/CUDPPort.h"
#include "protocols/IRTPReceiverUser.h"
#include "protocols/IUDPPortUser.h"

namespace sarnevo {

/// Turns the datagrams of one UDP port into RTP packets (RFC 3550) and hands them up, on the port's receive
/// thread. Keeps nothing between packets: order, loss and assembly are its user's business. What isn't RTP
/// is dropped without a trace.
class CRTPReceiver : public IUDPPortUser {
 public:
  explicit CRTPReceiver(const ChannelTiming& times = {}) noexcept;
  ~CRTPReceiver() override;  // closes the port

  void DataReceived(CUDPPort* port, const sockaddr_in* from, u8* data, u32 size) override;
  void ReceiveTimeout() override;
  void SocketClosed(CUDPPort* port) override;

  /// The receiver's own port, for its owner to open and close.
  CUDPPort& Port() noexcept { return port_; }

  /// @param user  not owned; null, as at the start, drops all packets. Any thread may call, at any time.
  void SetUser(IRTPReceiverUser* user) noexcept { user_.store(user, std::memory_order_release); }

 private:
  CUDPPort port_;
  // Set by the owner's thread, read by the receive thread; release and acquire, so that what the owner
  // prepared before it set the user is there when the first packet comes.
  std::atomic<IRTPReceiverUser*> user_{nullptr};
};

}  // namespace sarnevo
