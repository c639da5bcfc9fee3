#include "http/HttpConnection.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "http/LookUpName.h"
#include "platform/Clock.h"

namespace Web {

using namespace sarnevo::platform;

namespace {

// Bytes of one receive, on the caller's stack. The replies to polls are shorter.
constexpr std::size_t kBlock = 4096;
// How long a wait without a limit lasts before it is begun again.
constexpr Milliseconds kLongWait{60'000};

// The end of a time-out; the clock's greatest value when there is no limit.
std::uint64_t EndOf(Milliseconds duration) noexcept {
  return duration.count() > 0 ? MonotonicMilliseconds() + static_cast<std::uint64_t>(duration.count())
                              : std::numeric_limits<std::uint64_t>::max();
}

bool IsOver(std::uint64_t end) noexcept { return MonotonicMilliseconds() >= end; }

// How long to wait next, at the most.
Milliseconds LeftUntil(std::uint64_t end) noexcept {
  const std::uint64_t now = MonotonicMilliseconds();
  const std::uint64_t left = end > now ? end - now : 0;
  return Milliseconds{static_cast<Milliseconds::rep>(std::min<std::uint64_t>(left, kLongWait.count()))};
}

}  // namespace

void HttpConnection::Cancel() noexcept {
  // In this order: a socket that is opened meanwhile is seen either here or by the owner, who looks after it.
  cancelled_.Set();
  socket_.Shutdown();
}

bool HttpConnection::IsCancelled() noexcept { return cancelled_.Wait(Milliseconds{0}); }

HttpError HttpConnection::Begin(Milliseconds limit) noexcept {
  limit_ = EndOf(limit);
  return IsCancelled() ? HttpError::Cancelled : HttpError::None;
}

HttpError HttpConnection::Ask(const HttpTarget& target, std::string_view method, std::string_view request) {
  const bool again = (method == "GET" || method == "HEAD") && port_ == target.port && IsIdle();
  HttpError error = HttpError::None;
  if (again) {
    error = Exchange(method, request);
  }
  if (!again || (error == HttpError::ConnectionBroken && !reply_.HasBegun())) {
    error = Connect(target);
    error = error == HttpError::None ? Exchange(method, request) : error;
  }
  return error == HttpError::None ? error : Fail(error);
}

HttpError HttpConnection::AwaitBody() {
  while (!IsCancelled()) {
    if (!reply_.Body().empty()) {
      return HttpError::None;
    }
    if (failed_ != HttpError::None || reply_.IsWhole()) {
      return failed_;
    }
    Receive();
  }
  return HttpError::Cancelled;
}

HttpError HttpConnection::Fail(HttpError error) noexcept {
  failed_ = error;
  reply_ = HttpReply();
  Close();
  return error;
}

// False when the server has closed the connection, or has sent something unasked: no request goes out over it then.
bool HttpConnection::IsIdle() noexcept {
  std::uint8_t byte = 0;
  return socket_.IsOpen() && reply_.IsWhole() && socket_.Receive({&byte, 1}).error == SocketError::TimedOut;
}

// The end of a step: its own or the request's, whichever comes first.
std::uint64_t HttpConnection::EndOfStep() const noexcept { return std::min(EndOf(timeout_), limit_); }

HttpError HttpConnection::Connect(const HttpTarget& target) {
  const std::uint64_t end = EndOfStep();
  std::vector<SocketAddress> peers;
  HttpError error = HttpError::CannotConnect;
  if (const auto address = SocketAddress::Parse(target.host.c_str(), target.port)) {
    peers.push_back(*address);
  } else if (const HttpError failed = LookUpName(target.host, target.port, LeftUntil(end), cancelled_, peers);
             failed != HttpError::None) {
    return failed;
  }
  for (std::size_t i = 0; i < peers.size() && error == HttpError::CannotConnect; ++i) {
    error = ConnectTo(peers[i], end);
  }
  port_ = target.port;
  return error;
}

HttpError HttpConnection::ConnectTo(const SocketAddress& peer, std::uint64_t end) noexcept {
  if (!socket_.Open(Transport::Tcp) || !socket_.SetNonBlocking(true)) {
    return HttpError::OutOfResources;
  }
  while (!IsCancelled()) {
    switch (socket_.Connect(peer)) {
      case SocketError::None:
        return HttpError::None;
      case SocketError::WouldBlock:
        break;
      case SocketError::TimedOut:
        return HttpError::TimedOut;
      default:
        return HttpError::CannotConnect;
    }
    if (IsOver(end)) {
      return HttpError::TimedOut;
    }
    socket_.WaitWritable(LeftUntil(end));
  }
  return HttpError::Cancelled;
}

HttpError HttpConnection::Exchange(std::string_view method, std::string_view request) {
  reply_ = HttpReply(method == "HEAD");
  HttpError error = Transmit(request);
  while (error == HttpError::None && !reply_.HasHead()) {
    error = Receive();
  }
  return reply_.HasHead() ? HttpError::None : error;
}

HttpError HttpConnection::Transmit(std::string_view request) noexcept {
  const std::uint64_t end = EndOfStep();
  std::span rest(reinterpret_cast<const std::uint8_t*>(request.data()), request.size());
  while (!rest.empty()) {
    if (IsCancelled()) {
      return HttpError::Cancelled;
    }
    const ReceiveResult sent = socket_.Send(rest);
    if (sent.error == SocketError::WouldBlock) {
      if (IsOver(end)) {
        return HttpError::TimedOut;
      }
      socket_.WaitWritable(LeftUntil(end));
    } else if (sent.error != SocketError::None) {
      return IsCancelled() ? HttpError::Cancelled : HttpError::ConnectionBroken;
    }
    rest = rest.subspan(sent.count);
  }
  return HttpError::None;
}

// Takes in one piece of the reply. What came before a failure counts.
HttpError HttpConnection::Receive() {
  std::array<std::uint8_t, kBlock> block;
  std::size_t count = 0;
  failed_ = ReceiveInto(block, count);
  if (failed_ == HttpError::None) {
    failed_ = count > 0 ? reply_.Take(std::span(block).first(count)) : reply_.TakeEnd();
  }
  if (failed_ != HttpError::None || (reply_.IsWhole() && !(keep_ && reply_.LeavesOpen()))) {
    Close();
  }
  return failed_;
}

// @param count  0: the connection's end
HttpError HttpConnection::ReceiveInto(std::span<std::uint8_t> block, std::size_t& count) noexcept {
  const std::uint64_t end = EndOfStep();
  ReceiveResult received{0, SocketError::TimedOut};
  while (received.error == SocketError::TimedOut) {
    // The request's limit holds however much there is to receive.
    if (IsOver(limit_)) {
      return HttpError::TimedOut;
    }
    socket_.WaitReadable(LeftUntil(end));
    received = socket_.Receive(block);
    // Cancel may have ended the connection; that isn't the reply's end.
    if (IsCancelled()) {
      return HttpError::Cancelled;
    }
    if (received.error == SocketError::TimedOut && IsOver(end)) {
      return HttpError::TimedOut;
    }
  }
  count = received.count;
  return received.error == SocketError::None ? HttpError::None : HttpError::ConnectionBroken;
}

}  // namespace Web
