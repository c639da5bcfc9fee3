#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/Time.h"

namespace sarnevo::platform {

/// How an operation of the HTTP layer ended.
enum class HttpError : std::uint8_t {
  None,
  Cancelled,         ///< closed from outside
  InvalidRequest,    ///< host, method or path can't be sent
  NameNotResolved,   ///< the host's name is unknown
  CannotConnect,     ///< refused, unreachable
  TimedOut,          ///< connect, send or one receive took too long, or the request's limit is reached
  ConnectionBroken,  ///< reset, or ended before the reply was whole
  InvalidReply,      ///< not HTTP/1.x, or a header that can't be right; libcurl counts a cut one as that, too
  ReplyTooLarge,     ///< more header bytes than are taken
  RedirectRefused,   ///< more than 10 redirects, or one that leaves plain http or the host
  LoginFailure,      ///< the server wants other credentials (status 401, RFC 9110, 15.5.2)
  OutOfResources,    ///< memory or descriptors
  Other,
};

/// What all requests to one server have in common.
struct HttpSettings {
  std::string agent;                 ///< User-Agent
  Milliseconds timeout{0};           ///< for the connect, for sending and for each receive; 0: no limit
  std::uint32_t maxConnections = 0;  ///< to one server; an exchange takes one, so that posix ignores it
  std::uint32_t codePage = 0;        ///< of the texts, 0: the system's own; posix sends bytes as they are
};

/// One server.
struct HttpServer {
  std::string host;        ///< dotted IPv4 address or name
  std::uint16_t port = 0;  ///< 0: HTTP's own, 80
};

/// One request. The texts are only read while Send runs.
struct HttpRequestLine {
  std::string_view method;    ///< a token of RFC 9110, 5.6.2
  std::string_view path;      ///< path and query; goes out with a "/" in front
  bool escapeQuery = true;    ///< false: of the query only what would break the request line is escaped
  const char* userName = "";  ///< Basic credentials (RFC 7617), sent with the first request
  const char* password = "";
};

/// Whether @p host may stand in a request: an IPv4 address or a host name, nothing with a port, a path or
/// credentials in it.
bool IsHttpHost(std::string_view host) noexcept;

/// What an exchange leaves for the next one with the same settings, server and credentials: the connection if the
/// server keeps it and the reply was read to its end, and the request. Saves most of what an exchange costs, the
/// more so for the same GET again; takes a descriptor, for a server with a name or with odd replies about three
/// and 30 KB, and one of the server's places.
class HttpKeeper {
 public:
  HttpKeeper();
  ~HttpKeeper();
  HttpKeeper(const HttpKeeper&) = delete;
  HttpKeeper& operator=(const HttpKeeper&) = delete;

  /// Gives everything back and closes the connection. The credentials may be others then. Any thread.
  void Drop() noexcept;

 private:
  friend class HttpExchange;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// One exchange with a server: a request, its reply's head, and the body piece by piece.
///
/// Goes straight to the server: no proxy, no cache, no cookies, no file or environment variable is looked
/// at, and the host's process is left alone (no signals, one-time start of the library below apart).
/// Credentials go out at once and never to another server. Up to 10 redirects are followed, only over plain
/// http and only to the same host. Chunked bodies (RFC 9112, 7.1) come out plain; compressed ones come out as
/// they are. At most 256 KB of headers are taken, and however long a body is, little of it is held here.
///
/// Its connection is new and closed at the end. With a keeper it isn't: a connection that was kept is used,
/// or replaced if the server has closed it meanwhile, and kept again. One whose exchange was closed, failed
/// or wasn't read to the end is closed as well.
///
/// One owner thread at a time, but Close from any. An exchange that wasn't sent, and one whose body has
/// ended, holds no descriptor.
class HttpExchange {
 public:
  /// @param keeper  outlives the exchange; null for a connection of its own
  HttpExchange(HttpSettings settings, HttpServer server, HttpKeeper* keeper = nullptr);
  ~HttpExchange();
  HttpExchange(const HttpExchange&) = delete;
  HttpExchange& operator=(const HttpExchange&) = delete;

  /// Ends the exchange after @p total milliseconds from Send's start, however busy it is. 0: no limit.
  /// Before Send.
  void LimitTo(Milliseconds total) noexcept;

  /// Sends the request and waits for the reply's head. A reply with an error status is no error. At most
  /// once.
  HttpError Send(const HttpRequestLine& request) noexcept;

  /// Status code of the reply, once Send gave None.
  std::uint32_t StatusCode() const noexcept;
  /// Content-Length of the reply, if it has one.
  std::optional<std::uint64_t> ContentLength() const noexcept;

  /// Waits for the next piece of the body. @p count gets the bytes that can be read now, 0 at the body's
  /// end.
  HttpError DataAvailable(std::size_t& count) noexcept;
  /// Waits for the next piece of the body and takes up to into.size() bytes of it. @p count gets how many;
  /// 0 only at the body's end, or for an empty @p into.
  HttpError Read(std::span<std::uint8_t> into, std::size_t& count) noexcept;

  /// Ends the exchange: the operation under way fails at once, and so does each later one. Any thread.
  void Close() noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace sarnevo::platform
