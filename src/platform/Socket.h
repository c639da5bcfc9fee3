#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "platform/SocketAddress.h"
#include "platform/Time.h"

namespace sarnevo::platform {

/// How an operation on a socket failed, as far as it makes a difference to the callers.
enum class SocketError : std::uint8_t {
  None,
  NotYet,   ///< nothing came in time, there is no room to send, or a connect is under way
  TooLong,  ///< a datagram didn't fit the buffer; it is gone
  Gone,     ///< nothing will work any more: the network is down, or the socket isn't open
  Other,
};

enum class Transport { Tcp, Udp };

/// What one send or receive did.
struct ReceiveResult {
  std::size_t count =
      0;  ///< bytes; 0 with None: the peer closed, the socket was shut down, or an empty datagram
  SocketError error = SocketError::None;
  std::size_t each =
      0;  ///< of ReceiveFrom: bytes of each datagram, one after the other; the last may be shorter
};

/// An IPv4 socket, closed with its object. Descriptors are close-on-exec and sending never raises a
/// signal.
///
/// One thread uses a socket at a time, with two exceptions: any thread may call Shutdown at any time while
/// the object lives, and one thread may send while another receives. Open and Close are safe against Shutdown
/// but not against an operation in progress: the owner ends its threads first.
///
/// A signal that interrupts a wait neither ends nor prolongs it.
class Socket {
 public:
  Socket() noexcept = default;
  ~Socket() { Close(); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Closes what was open before. False when the system has no socket left.
  bool Open(Transport transport) noexcept;
  bool IsOpen() const noexcept;
  void Close() noexcept;
  /// Shuts both directions down. Wakes a thread that waits or receives on the socket, of either kind,
  /// connected or not; what it tries from then on gives 0 bytes or fails at once.
  void Shutdown() noexcept;

  SocketError Bind(const SocketAddress& local) noexcept;
  /// The bound port in host byte order.
  std::optional<std::uint16_t> LocalPort() const noexcept;

  bool SetNonBlocking(bool on) noexcept;
  bool SetReceiveBuffer(std::uint32_t bytes) noexcept;
  bool SetSendBuffer(std::uint32_t bytes) noexcept;
  /// For Receive and ReceiveFrom in blocking mode; 0 waits without limit.
  bool SetReceiveTimeout(Milliseconds timeout) noexcept;
  bool SetSendTimeout(Milliseconds timeout) noexcept;
  /// Lets the system join datagrams that arrive together, for ReceiveFrom: a burst then takes one trip through
  /// the network layers instead of one for each datagram. No datagram waits for another that isn't there yet. A
  /// wish that not every system grants; the socket is then as it was.
  void JoinDatagrams() noexcept;

  /// NotYet while the connection is being made (non-blocking mode); call it again to learn how far it is.
  SocketError Connect(const SocketAddress& peer) noexcept;
  /// Whether a connection that was being made is up. A refused one never becomes writable.
  bool WaitWritable(Milliseconds timeout) noexcept;
  /// Whether a receive has something to give: bytes, the end, or an error.
  bool WaitReadable(Milliseconds timeout) noexcept;

  /// One send of all of @p data. The count of bytes taken, or the error.
  ReceiveResult Send(std::span<const std::uint8_t> data) noexcept;
  SocketError SendTo(std::span<const std::uint8_t> data, const SocketAddress& peer) noexcept;

  /// One receive of up to @p into.size() bytes. NotYet after a time-out of the socket's, and in non-blocking mode when
  /// nothing is there.
  ReceiveResult Receive(std::span<std::uint8_t> into) noexcept;
  /// One datagram and where it came from; with JoinDatagrams several of one sender that were joined on their way, for
  /// which 65,536 bytes are room enough. What doesn't fit gives TooLong and is gone, all that was joined.
  /// @param waits  false: NotYet at once when none is there
  ReceiveResult ReceiveFrom(std::span<std::uint8_t> into, SocketAddress& from, bool waits = true) noexcept;

 private:
  // Written by the owner's thread under closing_; Shutdown reads it under closing_, the owner without.
  std::atomic<std::intptr_t> handle_{-1};
  // Keeps a Shutdown from another thread off a descriptor that Close has given back to the system.
  std::mutex closing_;
  Milliseconds receiveTimeout_{0};  // the owner's: written before the first receive
};

/// The machine's host name; nothing when the system doesn't say.
std::optional<std::string> LocalHostName();

}  // namespace sarnevo::platform
