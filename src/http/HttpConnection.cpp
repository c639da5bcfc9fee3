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

// Of what comes in at once, on the caller's stack. The replies to polls are shorter.
constexpr std::size_t kBlock = 4096;
// How long a wait without a limit lasts before it is begun again.
constexpr Milliseconds kLongWait{60'000};

// Of the monotonic clock; its greatest value for no limit.
std::uint64_t EndOf(Milliseconds duration) noexcept {
  return duration.count() > 0 ? MonotonicMilliseconds() + static_cast<std::uint64_t>(duration.count())
                              : std::numeric_limits<std::uint64_t>::max();
}

}  // namespace

// A step's end or the request's, whichever comes first.
class HttpConnection::Deadline {
 public:
  Deadline(Milliseconds timeout, std::uint64_t limit) noexcept : end_(std::min(EndOf(timeout), limit)) {}

  bool IsOver() const noexcept { return MonotonicMilliseconds() >= end_; }
  Milliseconds Left() const noexcept {
    const std::uint64_t now = MonotonicMilliseconds();
    const std::uint64_t left = end_ > now ? end_ - now : 0;
    return Milliseconds{static_cast<Milliseconds::rep>(std::min<std::uint64_t>(left, kLongWait.count()))};
  }

 private:
  const std::uint64_t end_;
};

void HttpConnection::Cancel() noexcept {
  // In this order: a socket that is opened meanwhile is seen either here or by the owner, who looks after it.
  cancelled_.Set();
  socket_.Shutdown();
}

bool HttpConnection::IsCancelled() noexcept { return cancelled_.Wait(Milliseconds{0}); }

HttpError HttpConnection::Begin(Milliseconds limit, bool keep) noexcept {
  limit_ = EndOf(limit);
  keep_ = keep;
  failed_ = HttpError::None;
  return IsCancelled() ? HttpError::Cancelled : HttpError::None;
}

HttpError HttpConnection::Ask(const HttpServer& server, std::string_view method, std::string_view request) {
  const bool again = (method == "GET" || method == "HEAD") && port_ == server.port && IsIdle();
  HttpError error = again ? HttpError::None : Connect(server);
  if (error == HttpError::None) {
    error = Exchange(method, request);
  }
  if (error == HttpError::ConnectionBroken && again && !answered_) {
    error = Connect(server);
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
    // What came with a failure counts before it.
    failed_ = Receive();
    if (failed_ != HttpError::None) {
      Close();
    }
  }
  return HttpError::Cancelled;
}

HttpError HttpConnection::Fail(HttpError error) noexcept {
  failed_ = error;
  reply_.Begin(false);
  Close();
  return error;
}

void HttpConnection::LetGo() noexcept {
  keep_ = false;
  if (reply_.IsWhole()) {
    Close();
  }
}

// A server that has closed the connection, or says something unasked, isn't asked over it.
bool HttpConnection::IsIdle() noexcept {
  std::uint8_t byte = 0;
  return socket_.IsOpen() && reply_.IsWhole() && socket_.Receive({&byte, 1}).error == SocketError::TimedOut;
}

HttpError HttpConnection::Connect(const HttpServer& server) {
  const Deadline deadline(timeout_, limit_);
  std::vector<SocketAddress> peers;
  if (const auto address = SocketAddress::Parse(server.host.c_str(), server.port)) {
    peers.push_back(*address);
  } else {
    const HttpError error = LookUpName(server.host, server.port, deadline.Left(), cancelled_, peers);
    if (error != HttpError::None) {
      return error;
    }
  }
  HttpError error = HttpError::CannotConnect;
  for (std::size_t i = 0; i < peers.size() && error == HttpError::CannotConnect; ++i) {
    error = ConnectTo(peers[i], deadline);
  }
  port_ = server.port;
  return error;
}

HttpError HttpConnection::ConnectTo(const SocketAddress& peer, const Deadline& deadline) noexcept {
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
    if (deadline.IsOver()) {
      return HttpError::TimedOut;
    }
    socket_.WaitWritable(deadline.Left());
  }
  return HttpError::Cancelled;
}

HttpError HttpConnection::Exchange(std::string_view method, std::string_view request) {
  reply_.Begin(method == "HEAD");
  answered_ = false;
  HttpError error = Transmit(request);
  while (error == HttpError::None && !reply_.HasHead()) {
    error = Receive();
  }
  if (!reply_.HasHead()) {
    return error;
  }
  failed_ = error;  // of the body
  if (error != HttpError::None) {
    Close();
  }
  return HttpError::None;
}

HttpError HttpConnection::Transmit(std::string_view request) noexcept {
  const Deadline deadline(timeout_, limit_);
  std::span rest(reinterpret_cast<const std::uint8_t*>(request.data()), request.size());
  while (!rest.empty()) {
    if (IsCancelled()) {
      return HttpError::Cancelled;
    }
    const ReceiveResult sent = socket_.Send(rest);
    if (sent.error == SocketError::WouldBlock) {
      if (deadline.IsOver()) {
        return HttpError::TimedOut;
      }
      socket_.WaitWritable(deadline.Left());
    } else if (sent.error != SocketError::None) {
      return IsCancelled() ? HttpError::Cancelled : HttpError::ConnectionBroken;
    }
    rest = rest.subspan(sent.count);
  }
  return HttpError::None;
}

// One piece of the reply, whatever it has in it.
HttpError HttpConnection::Receive() {
  const Deadline deadline(timeout_, limit_);
  const Deadline whole(Milliseconds{0}, limit_);
  std::array<std::uint8_t, kBlock> block;
  ReceiveResult received;
  // What has just been asked isn't answered yet; of a reply that has begun there is often more.
  bool waits = !answered_;
  for (;;) {
    if (whole.IsOver()) {
      return HttpError::TimedOut;  // however much there is to receive
    }
    if (waits) {
      socket_.WaitReadable(deadline.Left());
    }
    received = socket_.Receive(block);
    // The connection's end may be of our own making, and isn't the reply's.
    if (IsCancelled()) {
      return HttpError::Cancelled;
    }
    if (received.error != SocketError::TimedOut) {
      break;
    }
    if (waits && deadline.IsOver()) {
      return HttpError::TimedOut;
    }
    waits = true;
  }
  HttpError error = HttpError::ConnectionBroken;
  if (received.error == SocketError::None) {
    answered_ = answered_ || received.count > 0;
    error = received.count > 0 ? reply_.Take(std::span(block).first(received.count)) : reply_.TakeEnd();
  }
  if (reply_.IsWhole() && !(keep_ && reply_.LeavesOpen())) {
    Close();
  }
  return error;
}

}  // namespace Web
