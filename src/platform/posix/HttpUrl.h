#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/HttpTransport.h"
#include "platform/SocketAddress.h"

namespace sarnevo::platform::posix {

/// An absolute http URL (RFC 3986, RFC 9110, 4.2.1) that a request goes to: a server and what is asked of it.
/// Constant once made; copies share the server.
class HttpUrl {
 public:
  /// Nothing when the host can't stand in a URL. @p target as RequestTarget makes it.
  static std::optional<HttpUrl> Make(const HttpServer& server, const std::string& target);

  /// Where a Location header (RFC 9110, 10.2.2) of a reply from this URL leads, absolute or relative.
  /// Nothing when that isn't plain http, carries credentials, can't be read, or names another host: a camera
  /// may move its pages, but not make this process connect to whom it likes.
  std::optional<HttpUrl> Resolve(const std::string& location) const;

  /// The same host and port.
  bool IsSameServer(const HttpUrl& other) const;
  /// The server's address and port if its host is an IPv4 address, so that no name has to be looked up.
  const std::optional<SocketAddress>& Address() const noexcept { return address_; }
  /// Host and, unless it is http's own, port, as a Host header has them (RFC 9110, 7.2).
  std::string Authority() const;

  /// For CURLOPT_CURLU, which only reads it. Lives as long as this object or a copy of it.
  CURLU* Server() const noexcept { return server_.get(); }
  /// Path and query, for CURLOPT_REQUEST_TARGET.
  const std::string& Target() const noexcept { return target_; }

 private:
  HttpUrl() = default;
  static std::optional<HttpUrl> FromParts(std::shared_ptr<CURLU> server, std::string target);

  std::shared_ptr<CURLU> server_;
  std::string target_;
  std::string host_;  // lower case
  std::string port_;  // decimal
  std::optional<SocketAddress> address_;
};

}  // namespace sarnevo::platform::posix
