#pragma once

#include <cstdint>
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
/// One owner thread at a time; any thread may call Cancel, IsCancelled and Resume.
class HttpConnection {
 public:
  /// Throws std::bad_alloc.
  /// @param timeout  of each step; 0: no limit
  explicit HttpConnection(sarnevo::platform::Milliseconds timeout) : timeout_(timeout) {}

  /// Whether the server may keep the connection after a reply. At first it may not, and no more after a body whose end
  /// didn't come in time.
  void Keep(bool keep) noexcept { keep_ = keep; }
  bool Keeps() const noexcept { return keep_; }

  /// Ends the step under way at once, and lets no connection be made until Resume. What the step gives then means
  /// nothing; the owner calls Fail after it.
  void Cancel() noexcept;
  bool IsCancelled() noexcept { return cancelled_.Wait(sarnevo::platform::Milliseconds{0}); }
  void Resume() noexcept { cancelled_.Reset(); }

  /// Begins a request, in place of the one before.
  /// @param limit  for all of it; 0: none
  void Begin(sarnevo::platform::Milliseconds limit) noexcept;
  /// Sends @p request and waits for the reply's head, within the request that was begun: once, and once more for
  /// each redirect.
  /// @param target  names the server
  /// @param method  of the request; only GET and HEAD go over a connection that was kept, and go out again when the
  ///                server has let go of it without a word (RFC 9112, 9.3.1)
  HttpError Ask(const HttpTarget& target, std::string_view method, std::string_view request);
  /// Waits until some of the body is there, or its end.
  HttpError AwaitBody();

  HttpReply& Reply() noexcept { return reply_; }

  /// Gives the request up and closes the connection: each later AwaitBody gives @p error.
  HttpError Fail(HttpError error) noexcept;

 private:
  HttpError Connect(const HttpTarget& target);
  HttpError ConnectTo(const sarnevo::platform::SocketAddress& peer,
                      sarnevo::platform::Nanoseconds end) noexcept;
  HttpError Exchange(std::string_view request);
  HttpError Transmit(std::string_view request) noexcept;
  HttpError Receive();
  bool IsIdle() noexcept;
  sarnevo::platform::Nanoseconds EndOfStep() const noexcept;

  const sarnevo::platform::Milliseconds timeout_;
  sarnevo::platform::Event cancelled_{false, true};

  // The owner's.
  sarnevo::platform::Socket socket_;
  std::uint16_t port_ = 0;  // that socket_ leads to
  HttpReply reply_;
  sarnevo::platform::Nanoseconds limit_{0};  // of the request, on the monotonic clock
  bool keep_ = false;
  HttpError failed_ = HttpError::Cancelled;  // of the reply, when all that came before has been read
};

}  // namespace Web
