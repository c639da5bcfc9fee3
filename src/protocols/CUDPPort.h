#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

#include "device/ChannelTiming.h"
#include "kolvex/Types.h"
#include "platform/Socket.h"
#include "platform/SocketAddress.h"
#include "platform/Time.h"
#include "protocols/IUDPPortUser.h"
#include "threads/StoppableThread.h"

namespace sarnevo {

/// A bound UDP socket with a receive thread of its own, which hands each datagram to an IUDPPortUser.
///
/// No lock and no allocation per datagram, and one system call. While a burst comes in, of which the user says that it
/// goes on (MoreFollows), the thread lets datagrams gather instead of waking up for each (BurstPace).
///
/// Any thread may call any operation, but Open and SetUser aren't for callbacks of the port: a Close that waits for the
/// callback would keep them. A closed port can be opened again.
class CUDPPort {
 public:
  enum OpenResult : u32 {
    Opened = 1,               ///< open, the thread runs
    AlreadyOpen = 2,          ///< nothing changed
    InvalidAddress = 4,       ///< the local address is no IPv4 text of 7 to 15 characters
    NoSocket = 5,             ///< no socket could be created
    BindFailed = 6,           ///< for example because the port is taken
    ReceiveBufferFailed = 8,  ///< the socket refused its receive buffer size or time-out
    NoThread = 9,             ///< the receive thread could not be started
  };

  explicit CUDPPort(platform::Milliseconds timeout = ChannelTiming{}.packetTimeout) noexcept;
  /// Closes the port.
  virtual ~CUDPPort();
  CUDPPort(const CUDPPort&) = delete;
  CUDPPort& operator=(const CUDPPort&) = delete;

  /// Binds to @p port of the local address @p address and starts to receive.
  /// @param address  dotted IPv4 text; null for all local addresses.
  /// @param port     0 lets the system choose one; see LocalPort.
  OpenResult Open(const char* address, u16 port) noexcept;

  /// Ends reception and gives the port back. Always true. Waits for the receive thread, and so for a
  /// callback in progress, without limit; then calls SocketClosed of the user. Does nothing on a closed
  /// port.
  ///
  /// From inside a callback of this port it doesn't wait. The thread looks at neither the port nor the user any
  /// more once that callback returns, so that both may be destroyed before it does. When another thread is
  /// closing the port already, the closing is left to it. A receive thread that was let go (StoppableThread) counts as
  /// ended.
  bool Close() noexcept;

  bool IsOpen() const noexcept { return socket_.IsOpen(); }
  /// The bound port in host byte order; 0 when closed.
  u16 LocalPort() const noexcept { return localPort_.load(std::memory_order_relaxed); }

  /// @param user  not owned; null drops what arrives. A callback in progress still goes to the one before.
  void SetUser(IUDPPortUser* user) noexcept;
  /// What the port is a part of: it lives until the receive thread has ended. While the port is closed.
  void KeepAlive(std::weak_ptr<const void> object) noexcept { thread_.KeepAlive(std::move(object)); }
  /// Size in bytes of the largest datagram to be taken; takes effect with the next one. Also decides the
  /// socket's receive buffer at Open.
  void SetReadSize(u32 bytes) noexcept { readSize_.store(bytes, std::memory_order_relaxed); }
  u32 ReadSize() const noexcept { return readSize_.load(std::memory_order_relaxed); }

  /// Said by the user inside DataReceived, for this datagram and until it says otherwise: whether more of the same
  /// burst is on its way. False at Open. On any other thread it does nothing.
  void MoreFollows(bool more) noexcept;

 private:
  struct Receiving;

  OpenResult OpenSocket(const platform::SocketAddress& local) noexcept;
  bool StartReceiving() noexcept;
  void Receive(Receiving& receiving);
  void HandOver(Receiving& receiving, const platform::ReceiveResult& got, platform::SocketAddress& from);
  bool Fits(Receiving& receiving, std::size_t size) noexcept;
  void Drain() noexcept;

  // Guards Open, Close and SetUser. A Close holds it while it waits for the receive thread. So when that thread calls
  // Close itself, inside a callback, it doesn't wait for a Close of another thread.
  std::recursive_mutex lock_;

  // Written under lock_ (readSize_: by any thread, running_: also by the receive thread), read by the receive
  // thread without it. Each is read by itself, so that relaxed order is enough, but for the user, whose object has to be
  // seen whole.
  std::atomic<IUDPPortUser*> user_{nullptr};
  platform::Socket socket_;  // opened and closed under lock_, while no receive thread uses it
  std::atomic<u16> localPort_{0};
  StoppableThread thread_;  // under lock_
  std::atomic<u32> readSize_{0x10000};
  const u32 timeoutSeconds_;
  const u32 timeoutMicroseconds_;
  std::atomic<bool> running_{false};
};

}  // namespace sarnevo
