#include "protocols/CRTPReceiver.h"

#include "protocols/CRTPPacket.h"

namespace sarnevo {

namespace {

// More than any camera sends without fragmenting; a larger datagram makes the port grow.
constexpr u32 kReadSize = 4096;

}  // namespace

CRTPReceiver::CRTPReceiver(const ChannelTiming& times) noexcept : port_(times.packetTimeout) {
  port_.SetUser(this);
  port_.SetReadSize(kReadSize);
}

// Here and not in the port's destructor, since the port still calls this object while it closes.
CRTPReceiver::~CRTPReceiver() { port_.Close(); }

// The user may destroy this object from inside its call, so that the call comes last.
void CRTPReceiver::DataReceived(CUDPPort* port, const sockaddr_in* from, u8* data, u32 size) {
  if (port != &port_) {
    return;
  }
  const std::optional<CRTPPacket> packet = ParseRtpHeader({data, size});
  if (!packet) {
    return;
  }
  port_.MoreFollows(packet->marker == 0);
  if (IRTPReceiverUser* const user = user_.load(std::memory_order_acquire)) {
    user->PacketReceived(this, from, &*packet);
  }
}

void CRTPReceiver::ReceiveTimeout() {
  if (IRTPReceiverUser* const user = user_.load(std::memory_order_acquire)) {
    user->ReceiveTimeout();
  }
}

void CRTPReceiver::SocketClosed(CUDPPort* port) {
  IRTPReceiverUser* const user = user_.load(std::memory_order_acquire);
  if (port == &port_ && user != nullptr) {
    user->SocketClosed(this);
  }
}

}  // namespace sarnevo
