#pragma once

struct sockaddr_in;

namespace sarnevo {

class CRTPReceiver;
struct CRTPPacket;

/// Whoever gets the packets of a CRTPReceiver. Calls come on the receive thread of the receiver's port, and
/// SocketClosed also on the thread that closes the port.
class IRTPReceiverUser {
 public:
  virtual ~IRTPReceiverUser() = default;

  /// A well-formed RTP packet arrived. @p packet and what it points to are valid only during the call.
  virtual void PacketReceived(CRTPReceiver* receiver, const sockaddr_in* from, const CRTPPacket* packet) = 0;
  /// IUDPPortUser::ReceiveTimeout of the port.
  virtual void ReceiveTimeout() = 0;
  /// IUDPPortUser::SocketClosed of the port.
  virtual void SocketClosed(CRTPReceiver* receiver) = 0;
};

}  // namespace sarnevo
