#pragma once

#include <http_parser.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/Socket.h"
#include "platform/posix/HttpTransfer.h"

namespace sarnevo::platform::posix {

/// A connection to a server that outlives the requests over it, and the same plain GET over and over: sent in one
/// piece, the reply read by http_parser. That is a tenth of what libcurl does for it, which is what hundreds of
/// polled cameras cost.
///
/// For ordinary replies. What it doesn't understand isn't judged here: IsStrange tells, and the owner asks again by
/// other means.
///
/// One server, one user. One thread at a time; Wake from any.
class KeptConnection final : public HttpTransfer {
 public:
  /// Whether @p request to @p url is one for here: a short GET to an address that needs no look-up.
  static bool Suits(const HttpUrl& url, const HttpRequestLine& request) noexcept;

  explicit KeptConnection(std::string_view agent);
  /// Wipes the request, which has the credentials in it.
  ~KeptConnection();
  KeptConnection(const KeptConnection&) = delete;
  KeptConnection& operator=(const KeptConnection&) = delete;

  /// Where everything of the next request goes. Outlives it, or its Rest.
  void SetSink(HttpSink* sink) noexcept { sink_ = sink; }
  /// Nothing is asked for the time being. Closes the connection of a reply that wasn't read to its end.
  void Rest() noexcept;

  bool Begin(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) override;
  std::optional<HttpError> Run() noexcept override;
  bool Wait(Milliseconds timeout) noexcept override;
  std::uint32_t Status() const noexcept override { return parser_.status_code; }
  /// Ends the connection, too.
  void Wake() noexcept override { socket_.Shutdown(); }

  /// The last request went over a connection that the server ended without a word of a reply, as it may at any
  /// time (RFC 9112, 9.3.1): a GET is for asking again.
  bool WasLetGo() const noexcept { return letGo_; }
  /// The last reply isn't one that can be read here.
  bool IsStrange() const noexcept { return trouble_ == Trouble::Strange; }

 private:
  enum class State { Connecting, Sending, Receiving };
  // Why a reply isn't read on.
  enum class Trouble { None, Refused, Strange, NoMemory };
  struct Callbacks;

  void MakeRequest(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials);
  bool IsIdle() noexcept;
  std::optional<HttpError> Connect() noexcept;
  std::optional<HttpError> Transmit() noexcept;
  std::optional<HttpError> Receive() noexcept;
  // No bytes: the end of the connection.
  std::optional<HttpError> Parse(std::span<const std::uint8_t> bytes) noexcept;
  HttpError Broken() noexcept;
  // In the parser's callbacks: 0, or not to go on.
  int GiveLine(std::string_view line) noexcept;
  int Gather(std::string_view piece) noexcept;
  int StopFor(Trouble trouble) noexcept;

  const std::string agent_;
  HttpSink* sink_ = nullptr;
  std::string target_;   // of request_
  std::string request_;  // as it goes out; wiped
  SocketAddress peer_;
  Socket socket_;
  bool reused_ = false;  // the connection has carried a request before this one

  // The request under way.
  State state_ = State::Connecting;
  http_parser parser_{};
  std::string line_;  // of the head that is coming in
  bool lineHasValue_ = false;
  bool inHead_ = true;
  std::size_t headBytes_ = 0;  // of all heads, and what came with the last one's end
  bool answered_ = false;      // something of the reply came
  bool complete_ = false;
  bool staysOpen_ = false;
  bool letGo_ = false;
  Trouble trouble_ = Trouble::None;
};

}  // namespace sarnevo::platform::posix
