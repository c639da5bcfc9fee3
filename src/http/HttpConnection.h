#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "http/HttpError.h"
#include "http/HttpReply.h"
#include "http/HttpTarget.h"
#include "platform/Event.h"
#include "platform/Socket.h"
#include "platform/Time.h"

namespace Web {

/// The connection of one HttpRequest to its server: looks the name up, connects, sends, takes the reply in. Between
/// requests it holds a descriptor only where the connection is kept.
///
/// Time-outs: one for look-up and connect together, one for sending, one for each receive; and a limit for all of a
/// request. The end of each wait is computed once, so that a signal doesn't make it longer.
///
/// One owner thread at a time; any thread may call IsCancelled and Cancel. Whoever cancels makes sure that Open and Close
/// aren't called meanwhile.
class HttpConnection {
 public:
  /// Throws std::bad_alloc.
  /// @param timeout  of each step; 0: no limit
  explicit HttpConnection(sarnevo::platform::Milliseconds timeout) : timeout_(timeout) {}

  /// Whether the server may keep the connection after a reply. At first it may not.
  void Keep(bool keep) noexcept { keep_ = keep; }
  bool Keeps() const noexcept { return keep_; }

  /// Lets requests through, until Cancel. At first it lets none through.
  void Open() noexcept { cancelled_.Reset(); }
  /// The step under way fails at once, and so does each later one until Open.
  void Cancel() noexcept;
  bool IsCancelled() noexcept;

  /// Begins a request, in place of the one before.
  /// @param limit  for all of it; 0: none
  HttpError Begin(sarnevo::platform::Milliseconds limit) noexcept;
  /// Sends @p request and waits for the reply's head, within the request that was begun: once, and once more for
  /// each redirect.
  /// @param target  names the server
  /// @param method  of the request; only GET and HEAD go over a connection that was kept, and go out again when the
  ///                server has let go of it without a word (RFC 9112, 9.3.1)
  HttpError Ask(const HttpTarget& target, std::string_view method, std::string_view request);
  /// Waits until some of the body is there, or its end.
  HttpError AwaitBody();

  const HttpReply& Reply() const noexcept { return reply_; }
  void Consume(std::size_t count) noexcept { reply_.Consume(count); }

  /// Gives the request up: each later AwaitBody gives @p error.
  HttpError Fail(HttpError error) noexcept;
  /// Closes the connection, whatever is under way.
  void Close() noexcept { socket_.Close(); }

 private:
  // Ends of waits are on the monotonic clock.
  std::uint64_t EndOfStep() const noexcept;
  HttpError Connect(const HttpTarget& target);
  HttpError ConnectTo(const sarnevo::platform::SocketAddress& peer, std::uint64_t end) noexcept;
  HttpError Exchange(std::string_view method, std::string_view request);
  HttpError Transmit(std::string_view request) noexcept;
  HttpError Receive();
  HttpError ReceiveInto(std::span<std::uint8_t> block, std::size_t& count) noexcept;
  bool IsIdle() noexcept;

  const sarnevo::platform::Milliseconds timeout_;
  sarnevo::platform::Event cancelled_{true, true};

  // The owner's.
  sarnevo::platform::Socket socket_;
  std::uint16_t port_ = 0;  // that socket_ leads to
  HttpReply reply_;
  std::uint64_t limit_ = 0;  // of the request
  bool keep_ = false;
  HttpError failed_ = HttpError::None;  // of the reply, when all that came before has been read
};

}  // namespace Web
