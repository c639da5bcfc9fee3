#include "platform/Socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/Clock.h"

namespace sarnevo::platform {

namespace {

constexpr int kClosed = -1;

// The system's number of a socket.
int Descriptor(const std::atomic<std::intptr_t>& handle) noexcept {
  return static_cast<int>(handle.load(std::memory_order_relaxed));
}

SocketError FromErrno(int error) noexcept {
  switch (error) {
    case EAGAIN:
    case EINPROGRESS:
    case EALREADY:
      return SocketError::NotYet;
    case EMSGSIZE:
      return SocketError::TooLong;
    case EFAULT:
    case ENETDOWN:
    case EBADF:
    case ENOTSOCK:
      return SocketError::Gone;
    default:
      return SocketError::Other;
  }
}

// Repeats a call that a signal of the host's interrupted. For calls without a time-out, which would start again.
template <typename Call>
auto Retried(Call call) noexcept {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

bool SetOption(int descriptor, int option, const void* value, socklen_t size) noexcept {
  return setsockopt(descriptor, SOL_SOCKET, option, value, size) == 0;
}

bool SetBuffer(int descriptor, int option, std::uint32_t bytes) noexcept {
  const int value = static_cast<int>(std::min<std::uint32_t>(bytes, std::numeric_limits<int>::max()));
  return SetOption(descriptor, option, &value, sizeof(value));
}

bool SetTimeout(int descriptor, int option, Milliseconds timeout) noexcept {
  timeval value{};
  value.tv_sec = static_cast<time_t>(timeout.count() / 1000);
  value.tv_usec = static_cast<suseconds_t>(timeout.count() % 1000) * 1000;
  return SetOption(descriptor, option, &value, sizeof(value));
}

// The events that came, 0 when the time is over, negative with errno.
// @param end  of MonotonicTime; computed once for a wait, so that a host's thread with a timer that beats faster than the
//             time-out comes back all the same
int Poll(int descriptor, short events, Nanoseconds end) noexcept {
  pollfd wanted{};
  wanted.fd = descriptor;
  wanted.events = events;
  const int ready = Retried([&] {
    const auto left = std::chrono::ceil<Milliseconds>(end - MonotonicTime()).count();
    return poll(&wanted, 1,
                static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max())));
  });
  return ready > 0 ? wanted.revents : ready;
}

// A blocking call of @p receive, which takes flags, on a socket with that receive time-out. A signal gives it back
// unfinished (with a time-out the system never restarts it), and the rest of the time is waited for in poll.
template <typename Receive>
ssize_t ReceiveWithin(int descriptor, Milliseconds timeout, Receive receive) noexcept {
  if (timeout <= Milliseconds{0}) {
    return Retried([&] { return receive(0); });
  }
  const Nanoseconds end = TimeAfter(timeout);
  ssize_t count = receive(0);
  if (count >= 0 || errno != EINTR) {
    return count;
  }
  // Readable and yet nothing there: a datagram with a wrong checksum, which the system drops when it is read.
  do {
    if (Poll(descriptor, POLLIN, end) <= 0) {
      errno = EAGAIN;
      return -1;
    }
    count = receive(MSG_DONTWAIT);
  } while (count < 0 && errno == EAGAIN);
  return count;
}

// Bytes of each of the datagrams that the system has joined (UDP_GRO), from the control message; without one it is a
// single datagram.
std::size_t SizeOfEach(msghdr& message, std::size_t bytes) noexcept {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
    int size = 0;
    if (part->cmsg_level == IPPROTO_UDP && part->cmsg_type == UDP_GRO &&
        part->cmsg_len >= CMSG_LEN(sizeof(size))) {
      std::memcpy(&size, CMSG_DATA(part), sizeof(size));
      return size > 0 ? static_cast<std::size_t>(size) : bytes;
    }
  }
  return bytes;
}

}  // namespace

bool Socket::Open(Transport transport) noexcept {
  Close();
  const std::lock_guard guard(closing_);
  const int type = transport == Transport::Tcp ? SOCK_STREAM : SOCK_DGRAM;
  handle_.store(socket(AF_INET, type | SOCK_CLOEXEC, 0), std::memory_order_relaxed);
  receiveTimeout_ = Milliseconds{0};
  return IsOpen();
}

bool Socket::IsOpen() const noexcept { return Descriptor(handle_) >= 0; }

void Socket::Close() noexcept {
  const std::lock_guard guard(closing_);
  const auto descriptor = static_cast<int>(handle_.exchange(kClosed, std::memory_order_relaxed));
  if (descriptor >= 0) {
    close(descriptor);
  }
}

void Socket::Shutdown() noexcept {
  const std::lock_guard guard(closing_);
  // On an unconnected UDP socket this reports an error and wakes the waiting thread all the same.
  shutdown(Descriptor(handle_), SHUT_RDWR);
}

SocketError Socket::Bind(const SocketAddress& local) noexcept {
  const auto* const address = reinterpret_cast<const sockaddr*>(local.Get());
  return bind(Descriptor(handle_), address, sizeof(sockaddr_in)) == 0 ? SocketError::None : FromErrno(errno);
}

std::optional<std::uint16_t> Socket::LocalPort() const noexcept {
  SocketAddress local;
  socklen_t size = sizeof(sockaddr_in);
  if (getsockname(Descriptor(handle_), reinterpret_cast<sockaddr*>(local.Get()), &size) != 0) {
    return std::nullopt;
  }
  return local.Port();
}

bool Socket::SetNonBlocking(bool on) noexcept {
  const int flags = fcntl(Descriptor(handle_), F_GETFL);
  return flags >= 0 && fcntl(Descriptor(handle_), F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) == 0;
}

bool Socket::SetReceiveBuffer(std::uint32_t bytes) noexcept {
  return SetBuffer(Descriptor(handle_), SO_RCVBUF, bytes);
}

bool Socket::SetSendBuffer(std::uint32_t bytes) noexcept {
  return SetBuffer(Descriptor(handle_), SO_SNDBUF, bytes);
}

bool Socket::SetReceiveTimeout(Milliseconds timeout) noexcept {
  receiveTimeout_ = timeout;
  return SetTimeout(Descriptor(handle_), SO_RCVTIMEO, timeout);
}

void Socket::JoinDatagrams() noexcept {
  const int on = 1;
  static_cast<void>(setsockopt(Descriptor(handle_), IPPROTO_UDP, UDP_GRO, &on, sizeof(on)));
}

bool Socket::SetSendTimeout(Milliseconds timeout) noexcept {
  return SetTimeout(Descriptor(handle_), SO_SNDTIMEO, timeout);
}

SocketError Socket::Connect(const SocketAddress& peer) noexcept {
  const auto* const address = reinterpret_cast<const sockaddr*>(peer.Get());
  const bool isUp = connect(Descriptor(handle_), address, sizeof(sockaddr_in)) == 0 || errno == EISCONN;
  return isUp ? SocketError::None : FromErrno(errno);
}

bool Socket::WaitWritable(Milliseconds timeout) noexcept {
  const int events = Poll(Descriptor(handle_), POLLOUT, TimeAfter(timeout));
  return events > 0 && (events & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

bool Socket::WaitReadable(Milliseconds timeout) noexcept {
  return Poll(Descriptor(handle_), POLLIN, TimeAfter(timeout)) > 0;
}

ReceiveResult Socket::Send(std::span<const std::uint8_t> data) noexcept {
  const ssize_t count =
      Retried([&] { return send(Descriptor(handle_), data.data(), data.size(), MSG_NOSIGNAL); });
  return count < 0 ? ReceiveResult{0, FromErrno(errno)}
                   : ReceiveResult{static_cast<std::size_t>(count), SocketError::None};
}

SocketError Socket::SendTo(std::span<const std::uint8_t> data, const SocketAddress& peer) noexcept {
  const auto* const address = reinterpret_cast<const sockaddr*>(peer.Get());
  const ssize_t count = Retried([&] {
    return sendto(Descriptor(handle_), data.data(), data.size(), MSG_NOSIGNAL, address, sizeof(sockaddr_in));
  });
  return count < 0 ? FromErrno(errno) : SocketError::None;
}

ReceiveResult Socket::Receive(std::span<std::uint8_t> into) noexcept {
  const ssize_t count = ReceiveWithin(Descriptor(handle_), receiveTimeout_, [&](int flags) {
    return recv(Descriptor(handle_), into.data(), into.size(), flags);
  });
  return count < 0 ? ReceiveResult{0, FromErrno(errno)}
                   : ReceiveResult{static_cast<std::size_t>(count), SocketError::None};
}

ReceiveResult Socket::ReceiveFrom(std::span<std::uint8_t> into, SocketAddress& from, bool waits) noexcept {
  iovec room{into.data(), into.size()};
  alignas(cmsghdr) std::byte control[CMSG_SPACE(sizeof(int))];
  msghdr message;
  // Asks for the whole size (MSG_TRUNC), so that a datagram that was cut shows.
  const auto receive = [&](int flags) {
    message = {.msg_name = from.Get(),
               .msg_namelen = sizeof(sockaddr_in),
               .msg_iov = &room,
               .msg_iovlen = 1,
               .msg_control = control,
               .msg_controllen = sizeof(control),
               .msg_flags = 0};
    return recvmsg(Descriptor(handle_), &message, flags | MSG_TRUNC);
  };
  const ssize_t count = waits ? ReceiveWithin(Descriptor(handle_), receiveTimeout_, receive)
                              : Retried([&] { return receive(MSG_DONTWAIT); });
  if (count < 0) {
    return {0, FromErrno(errno)};
  }
  const auto bytes = static_cast<std::size_t>(count);
  if (bytes > into.size()) {
    return {0, SocketError::TooLong};
  }
  return {bytes, SocketError::None, SizeOfEach(message, bytes)};
}

std::optional<std::string> LocalHostName() {
  char name[256] = "";
  if (gethostname(name, sizeof(name) - 1) != 0) {
    return std::nullopt;
  }
  return name;
}

}  // namespace sarnevo::platform
