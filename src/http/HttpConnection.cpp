#include "http/HttpConnection.h"

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "http/LookUpName.h"
#include "platform/Clock.h"

namespace Web {

using namespace sarnevo::platform;

namespace {

// Bytes of one receive, on the caller's stack. The replies to polls are shorter.
constexpr std::size_t kBlock = 4096;

// The end of a time-out; 0 sets none.
Nanoseconds EndOf(Milliseconds duration) noexcept {
  return TimeAfter(duration.count() > 0 ? duration : Milliseconds::max());
}

// How long to wait next; 0 or less when the time is over.
Milliseconds LeftUntil(Nanoseconds end) noexcept {
  return std::chrono::ceil<Milliseconds>(end - MonotonicTime());
}

bool IsOver(Nanoseconds end) noexcept { return LeftUntil(end).count() <= 0; }

}  // namespace

void HttpConnection::Cancel() noexcept {
  // In this order: a socket that is opened meanwhile is seen either here or by the owner, who looks after it.
  cancelled_.Set();
  socket_.Shutdown();
}

void HttpConnection::Begin(Milliseconds limit) noexcept { limit_ = EndOf(limit); }

HttpError HttpConnection::Ask(const HttpTarget& target, std::string_view method, std::string_view request) {
  const bool again = (method == "GET" || method == "HEAD") && port_ == target.port && IsIdle();
  reply_ = HttpReply(method == "HEAD");
  HttpError error = again ? Exchange(request) : HttpError::None;
  if (!again || (error == HttpError::ConnectionBroken && !reply_.HasBegun())) {
    error = Connect(target);
    error = error == HttpError::None ? Exchange(request) : error;
  }
  return error;
}

HttpError HttpConnection::AwaitBody() {
  while (reply_.Body().empty() && failed_ == HttpError::None && !reply_.IsWhole()) {
    Receive();
  }
  return reply_.Body().empty() ? failed_ : HttpError::None;
}

HttpError HttpConnection::Fail(HttpError error) noexcept {
  failed_ = error;
  reply_ = HttpReply();
  socket_.Close();
  return error;
}

// False when the server has closed the connection, or has sent something unasked: no request goes out over it then.
bool HttpConnection::IsIdle() noexcept {
  std::uint8_t byte = 0;
  return socket_.IsOpen() && reply_.IsWhole() && socket_.Receive({&byte, 1}).error == SocketError::NotYet;
}

// The end of a step: its own or the request's, whichever comes first.
Nanoseconds HttpConnection::EndOfStep() const noexcept { return std::min(EndOf(timeout_), limit_); }

HttpError HttpConnection::Connect(const HttpTarget& target) {
  const Nanoseconds end = EndOfStep();
  std::vector<SocketAddress> peers;
  HttpError error = LookUpName(target.host, target.port, LeftUntil(end), cancelled_, peers);
  for (const SocketAddress& peer : peers) {
    error = ConnectTo(peer, end);
    if (error == HttpError::None) {
      break;
    }
  }
  port_ = target.port;
  return error;
}

HttpError HttpConnection::ConnectTo(const SocketAddress& peer, Nanoseconds end) noexcept {
  if (!socket_.Open(Transport::Tcp) || !socket_.SetNonBlocking(true)) {
    return HttpError::OutOfResources;
  }
  while (!IsCancelled()) {
    const SocketError result = socket_.Connect(peer);
    if (result == SocketError::None) {
      return HttpError::None;
    }
    if (result != SocketError::NotYet) {
      return HttpError::CannotConnect;
    }
    if (IsOver(end)) {
      return HttpError::TimedOut;
    }
    socket_.WaitWritable(LeftUntil(end));
  }
  return HttpError::Cancelled;
}

HttpError HttpConnection::Exchange(std::string_view request) {
  HttpError error = Transmit(request);
  while (error == HttpError::None && !reply_.HasHead()) {
    error = Receive();
  }
  return reply_.HasHead() ? HttpError::None : error;
}

HttpError HttpConnection::Transmit(std::string_view request) noexcept {
  const Nanoseconds end = EndOfStep();
  std::span rest(reinterpret_cast<const std::uint8_t*>(request.data()), request.size());
  while (!rest.empty()) {
    const ReceiveResult sent = socket_.Send(rest);
    if (sent.error == SocketError::NotYet) {
      if (IsOver(end)) {
        return HttpError::TimedOut;
      }
      socket_.WaitWritable(LeftUntil(end));
    } else if (sent.error != SocketError::None) {
      return HttpError::ConnectionBroken;
    }
    rest = rest.subspan(sent.count);
  }
  return HttpError::None;
}

// Takes in one piece of the reply. What came before a failure counts.
HttpError HttpConnection::Receive() {
  std::array<std::uint8_t, kBlock> block;
  const Nanoseconds end = EndOfStep();
  ReceiveResult received{0, SocketError::NotYet};
  // The request's limit holds however much there is to receive.
  while (received.error == SocketError::NotYet && !IsOver(end)) {
    socket_.WaitReadable(LeftUntil(end));
    received = socket_.Receive(block);
  }
  if (received.error != SocketError::None) {
    const bool late = received.error == SocketError::NotYet;
    failed_ = late ? HttpError::TimedOut : HttpError::ConnectionBroken;
    // A server that neither says where a body ends nor closes after it needs to be asked to close; or each reply would
    // cost the whole time-out.
    keep_ = keep_ && !(late && reply_.HasHead());
  } else if (received.count > 0) {
    failed_ = reply_.Take(std::span(block).first(received.count));
  } else {
    failed_ = reply_.TakeEnd();
  }
  if (failed_ != HttpError::None || (reply_.IsWhole() && !(keep_ && reply_.LeavesOpen()))) {
    socket_.Close();
  }
  return failed_;
}

}  // namespace Web
