#pragma once

#include "kolvex/Types.h"

struct sockaddr_in;

namespace sarnevo {

class CUDPPort;

/// Whoever gets the datagrams of a CUDPPort. Every call comes on the port's receive thread, except
/// SocketClosed from a Close, which comes on the closing thread. No lock of the port is held around a call on
/// the receive thread, which may close the port, or close and destroy it. A Close holds the port's lock around
/// its SocketClosed and needs the port afterwards: that call may neither destroy nor open it.
class IUDPPortUser {
 public:
  virtual ~IUDPPortUser() = default;

  /// A datagram of @p size bytes, at least 1, arrived from @p from. Both are valid only during the call;
  /// the data may be changed in place.
  virtual void DataReceived(CUDPPort* port, const sockaddr_in* from, u8* data, u32 size) = 0;
  /// One whole time-out has passed without a datagram. Comes again after each further one.
  virtual void ReceiveTimeout() = 0;
  /// The port was closed, or the socket layer went away under it and nothing more will come. From a Close the
  /// port must not be destroyed in here, and an exception is dropped.
  virtual void SocketClosed(CUDPPort* port) = 0;
};

}  // namespace sarnevo
